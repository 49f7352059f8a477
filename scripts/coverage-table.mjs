// coverage-table.mjs FILE: prints gcovr's JSON report as a table, one row per folder, and then the lines that did not
// run.
import { readFileSync } from 'node:fs';

const { files } = JSON.parse(readFileSync(process.argv[2], 'utf8'));
const folders = new Map();
const missed = [];
for (const { file, lines } of files) {
  const folder = file.split('/')[0];
  const sum = folders.get(folder) ?? { lines: [0, 0], branches: [0, 0] };
  folders.set(folder, sum);
  const count = (pair, ran) => pair.splice(0, 2, pair[0] + (ran ? 1 : 0), pair[1] + 1);
  const holes = [];
  for (const { line_number: number, count: runs, branches } of lines.filter((line) => !line['gcovr/noncode'])) {
    count(sum.lines, runs > 0);
    for (const branch of branches) count(sum.branches, branch.count > 0);
    if (runs === 0) holes.push(number);
  }
  if (holes.length > 0) missed.push(`${file}: ${holes.join(' ')}`);
}

const total = { lines: [0, 0], branches: [0, 0] };
const row = (name, { lines, branches }) => {
  const cell = ([ran, all]) => `${ran} of ${all} | ${all === 0 ? '-' : `${((100 * ran) / all).toFixed(1)} %`}`;
  console.log(`| ${name} | ${cell(lines)} | ${cell(branches)} |`);
};
console.log('| folder | lines | | branches | |\n|---|---|---|---|---|');
for (const [name, sum] of [...folders].sort()) {
  row(`\`${name}/\``, sum);
  for (const kind of ['lines', 'branches']) sum[kind].forEach((value, n) => (total[kind][n] += value));
}
row('all', total);
console.log(`\nNot run:\n\n${missed.sort().join('\n')}`);
