// The log's files as they are on a disk: of several processes at once, and of one that is killed.
import assert from 'node:assert/strict';
import { existsSync, readFileSync, readdirSync } from 'node:fs';
import { join } from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';
import { after, before, describe, it } from 'node:test';
import { assertDelivered, openProduct, withSink } from './harness.mjs';
import { parseLog } from './product.mjs';

const kStarting = 'wWinMain(): Starting DCT collection.';

describe('the log', () => {
  let product;
  before(async () => { product = await openProduct('log'); });
  after(() => product?.close());

  // The records of all files of that base name; every one of them is whole.
  const records = (base) => {
    const files = readdirSync(product.logFolder).filter((name) => name.startsWith(`${base}-`)).sort();
    const texts = files.map((name) => readFileSync(join(product.logFolder, name), 'utf8'));
    for (const text of texts) assert.ok(text.endsWith('\r\n'), text.slice(-200));
    const all = texts.flatMap(parseLog);
    for (const { time, line } of all) assert.ok(time, `not a record: ${line}`);
    return { files, all, ofProcess: (pid) => all.filter((record) => record.pid === pid).map(({ message }) => message) };
  };

  it('of six processes at once has each of their records, whole and in order', async () => {
    const runs = await Promise.all(Array.from({ length: 6 }, () => product.run({ args: ['-bogus'] })));
    assert.deepEqual(runs.map(({ code }) => [2, 3].includes(code)), Array(6).fill(true));
    for (const base of ['log', 'debug']) {
      const { all, ofProcess } = records(base);
      const pids = [...new Set(all.map(({ pid }) => pid))];
      assert.equal(pids.length, 6);
      for (const pid of pids) {
        const messages = ofProcess(pid);
        assert.match(messages[0], /^(Log for mdDCT\.exe|Opening latest existing log file)$/);
        assert.match(messages[1], new RegExp(`^Program 'mdDCT\\.exe' started, version=[\\d.]+, pid=0x${pid.replace(/^0+/, '')}, ` +
          'buildtype=release, usethread=1, closeafterwrite=0, sessionId=\\d+\\r\\n \\*+ Debug log file is enabled for ' +
          'mdDCT\\.exe\\. \\*+$'));
        assert.equal(messages[2], kStarting);
        assert.match(messages.at(-1), /^(PrintUsage\(\): Usage:|wWinMain\(\): DCT collection is already in progress\.$)/);
      }
    }
  });

  it('goes on in the file of the day', async () => {
    const earlier = records('debug').files.length;
    await product.run({ args: ['-bogus'] });
    // A day that has just begun has a file of its own.
    const { files } = records('debug');
    assert.ok(files.length - earlier <= (files[0].slice(0, 16) === files.at(-1).slice(0, 16) ? 0 : 1), String(files));
  });

  it('of a process that is killed ends with a whole line, and the next run is none the worse', () => withSink({},
    async (sink) => {
      const args = ['-url', `${sink.origin}/logs/a.zip`];
      const run = product.run({ args, standin: { delay: 20000 } });
      while (!existsSync(product.recordFile())) await sleep(20);
      const own = () => product.prefix.processes().filter(({ command }) => /^C:\\mddct\\mdDCT\.exe/i.test(command));
      while (own().length !== 1) await sleep(20);  // a child that is just being made goes by its parent's name
      process.kill(own()[0].pid, 'SIGKILL');
      const killed = await run;
      assert.ok(killed.debug.some(({ message }) => message === kStarting));
      for (const { pid } of killed.running) process.kill(pid, 'SIGKILL');  // its script
      records('debug');
      assertDelivered(await product.run({ args }), sink.service.blobs.get('/logs/a.zip'), 'BlockBlob');
    }));
});
