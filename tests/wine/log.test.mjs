// The log's files as several processes write them at once.
import assert from 'node:assert/strict';
import { describe, it } from 'node:test';
import { useProduct, wholeRecords } from './harness.mjs';

describe('the log', () => {
  const product = useProduct('log');

  it('of six processes at once has each of their records, whole and in order', async () => {
    const today = new Date().toDateString();
    const runs = await Promise.all(Array.from({ length: 6 }, () => product.run({ args: ['-bogus'] })));
    assert.deepEqual(runs.map(({ code }) => [2, 3].includes(code)), Array(6).fill(true));
    for (const all of wholeRecords(product)) {
      const pids = [...new Set(all.map(({ pid }) => pid))];
      assert.equal(pids.length, 6);
      for (const pid of pids) {
        const messages = all.filter((record) => record.pid === pid).map(({ message }) => message);
        assert.match(messages[0], /^(Log for mdDCT\.exe|Opening latest existing log file)$/);
        assert.match(messages[1], new RegExp(`^Program 'mdDCT\\.exe' started, version=[\\d.]+, ` +
          `pid=0x${pid.replace(/^0+/, '')}, buildtype=release, usethread=1, closeafterwrite=0, sessionId=\\d+\\r\\n ` +
          '\\*+ Debug log file is enabled for mdDCT\\.exe\\. \\*+$'));
        assert.equal(messages[2], 'wWinMain(): Starting DCT collection.');
        assert.match(messages.at(-1), /^(PrintUsage\(\): Usage:|wWinMain\(\): DCT collection is already in progress)/);
      }
    }

    const { debug } = await product.run({ args: ['-bogus'] });
    if (new Date().toDateString() === today) assert.equal(debug[0].message, 'Opening latest existing log file');
  });
});
