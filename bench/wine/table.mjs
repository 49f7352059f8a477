// Turns and rows, in the way of bench/harness.cpp.

export const median = (values) => {
  const sorted = [...values].sort((a, b) => a - b);
  const middle = Math.floor(sorted.length / 2);
  return sorted.length % 2 === 1 ? sorted[middle] : (sorted[middle - 1] + sorted[middle]) / 2;
};

/** The median of the turns' own ratios. */
export const ratioOf = (ours, peer) => median(ours.map((value, turn) => value / peer[turn]));

export const figure = (value) => value.toFixed(value >= 100 ? 0 : value >= 10 ? 1 : 2);

/**
 * Runs every side in turns, each turn beginning with another one, after some turns that do not count.
 * @param {Object<string, () => Promise>} sides
 * @returns {Promise<Object<string, Array>>} what each gave, a turn after the other.
 */
export async function inTurns(turns, sides, uncounted = 1) {
  const names = Object.keys(sides);
  const results = Object.fromEntries(names.map((name) => [name, []]));
  for (let turn = -uncounted; turn < turns; turn++) {
    for (let n = 0; n < names.length; n++) {
      const name = names[(n + turn + names.length) % names.length];
      const result = await sides[name]();
      if (turn >= 0) results[name].push(result);
    }
  }
  return results;
}

/** Prints a row of the table of results; met may be null, for information. */
export function printRow(what, ours, peerName, peer, unit, ratio, wanted, met) {
  const verdict = met === null ? '' : met ? 'yes' : '**no**';
  const sides = [`${figure(ours)} ${unit}`, `${peerName}: ${figure(peer)} ${unit}`];
  console.log(`| ${[what, ...sides, ratio.toFixed(2), wanted, verdict].join(' | ')} |`);
}
