// The guide against the code, in both directions: exit codes, registry values, log texts.
import assert from 'node:assert/strict';
import { describe, it } from 'node:test';
import { exitCodes, isWhole, legacyKey, literals, logTexts, otherReads, read, resultTexts, settings, sorted,
  unreadConstants } from './source.mjs';

describe('the guide', () => {
  const guide = read('docs/operations.md');
  const section = (title) => guide.split(/^(?=##? )/m).find((part) => part.startsWith(`## ${title}\n`));
  const rows = (text) => [...text.matchAll(/^\|(.*)\|$/gm)].map(([, row]) => row.split('|').map((cell) => cell.trim()));
  const quoted = (cell) => [...cell.matchAll(/`([^`]+)`/g)].map(([, text]) => text);

  it('has the exit codes of the code', () => {
    assert.deepEqual(rows(section('Exit codes')).map(([code]) => code).filter((code) => /^\d+$/.test(code)), exitCodes);
  });

  it('has the registry values that are read, with their defaults and legacy places', () => {
    assert.deepEqual(otherReads, [], 'reads a value that is not in setting_names.h');
    assert.deepEqual(unreadConstants, []);
    const table = rows(section('Registry values'));
    const values = table.filter((cells) => cells.length === 4 && cells[0].startsWith('`'));
    const inGuide = values.map(([name, , value]) => [quoted(name)[0], value]);
    assert.deepEqual(sorted(inGuide), sorted([...settings].map(([name, { defaultText }]) => [name, defaultText])));
    const components = table.filter((cells) => cells.length === 2 && cells[1].startsWith('`'));
    const wanted = ['', ...new Set(sorted(settings.keys()).filter((name) => name.includes('\\') && !isWhole(name))
      .map((name) => name.split('\\')[0]))];
    assert.deepEqual(components.map(([component, key]) => [quoted(component)[0] ?? '', quoted(key)[0]]),
      wanted.map((component) => [component, legacyKey(component)]));
  });

  it('has the log texts of WARN and above, each at its level', () => {
    const levels = new Map();
    let texts = [];
    for (const [first, ...cells] of rows(section('Log texts'))) {
      const isLine = /^(WARN|ERROR|FATAL)$/.test(first);
      // The tables of texts that become a part of a line begin with a number, or with the text itself.
      const cell = isLine || /^(\d+|-1)$/.test(first) ? cells[0] : first;
      if (isLine) for (const text of quoted(cell)) levels.set(text, first);
      texts = texts.concat(quoted(cell).filter((text) => !/^x-ms|^0x|^%/.test(text)));
    }
    assert.deepEqual(sorted(new Set(texts)).filter((text) => !literals.has(text)), [], 'in the guide alone');
    assert.deepEqual(resultTexts.filter((text) => !texts.includes(text)), [], 'in the code alone');
    assert.deepEqual([...logTexts].filter(([text, level]) => levels.get(text) !== level), [], 'in the code alone');
  });
});
