// Rounds and rows, as bench/harness.cpp makes them.

export const median = (values) => {
  const sorted = [...values].sort((a, b) => a - b);
  const middle = Math.floor(sorted.length / 2);
  return sorted.length % 2 === 1 ? sorted[middle] : (sorted[middle - 1] + sorted[middle]) / 2;
};

/** Returns the median of each round's ratio. */
export const ratioOf = (ours, peer) => median(ours.map((value, round) => value / peer[round]));

export const figure = (value) => value.toFixed(value >= 100 ? 0 : value >= 10 ? 1 : 2);

/**
 * Runs every side in rounds, after some rounds that do not count. Each round begins with another side.
 * @param {Object<string, () => Promise>} sides
 * @returns {Promise<Object<string, Array>>} the results of each side, one per round.
 */
export async function inRounds(rounds, sides, uncounted = 1) {
  const names = Object.keys(sides);
  const results = Object.fromEntries(names.map((name) => [name, []]));
  for (let round = -uncounted; round < rounds; round++) {
    for (let n = 0; n < names.length; n++) {
      const name = names[(n + round + names.length) % names.length];
      const result = await sides[name]();
      if (round >= 0) results[name].push(result);
    }
  }
  return results;
}

/** Prints a row of the table of results. met is null for a row that is only for information. */
export function printRow(what, ours, peerName, peer, unit, ratio, wanted, met) {
  const answer = met === null ? '' : met ? 'yes' : '**no**';
  const sides = [`${figure(ours)} ${unit}`, `${peerName}: ${figure(peer)} ${unit}`];
  console.log(`| ${[what, ...sides, ratio.toFixed(2), wanted, answer].join(' | ')} |`);
}
