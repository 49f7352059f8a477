// The program killed at points spread over a whole run. Whatever it was doing, the next run works at once: the mutex is
// free, and no log file holds half a line. What stays is the bundle, once the script was called (the script goes on and
// writes it), and a query that hangs: nobody is left to end it. A query that was just being made may stay, too: its
// maker would have let it run.
import assert from 'node:assert/strict';
import { existsSync, readdirSync, rmSync, statSync } from 'node:fs';
import { join } from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';
import { describe, it } from 'node:test';
import { assertDelivered, kMiB, useFiles, useProduct, wholeRecords, withSink } from './harness.mjs';
import { alive } from '../../wine/processes.mjs';

const logged = (text) => ({ log }) => log().includes(text);
const received = (index, bytes) => ({ sink }) => sink.requests[index]?.bytes >= bytes;
const complete = (index) => ({ sink }) => sink.requests[index]?.complete;
const removed = ({ sink, bundle }) => sink.requests[0]?.complete && bundle() === -1;
const only = (at, behaviour) => (request, index) => (index === at ? behaviour : {});

// name: [reached, bundles that stay, what the stand-in is told, what the sink does, how long it lasts before the kill]
const kPoints = {
  'as it starts': [() => true, 0],
  '60 ms later': [() => true, 0, {}, undefined, 60],
  'with its first lines in the log': [logged('Starting DCT collection'), 0],
  'as it calls the query': [({ calls }) => calls() === 1, 0],
  'while the query hangs': [({ calls }) => calls() === 1, 0, { query: 'hang' }, undefined, 300],
  'while the script works': [({ calls }) => calls() === 2, 1, { delay: 1500 }, undefined, 300],
  'while the bundle grows': [({ bundle }) => bundle() > 0, 1, { size: '64M' }],
  'with the bundle written': [({ bundle }) => bundle() === 4 * kMiB, 1, { size: '4M' }],
  'while it asks for its proxy': [({ asked }) => asked() > 0, 1],
  'as it connects': [({ sink }) => sink.rawSockets.size > 0, 1],
  'with its headers sent': [received(0, 0), 1, { size: '32M' }, only(0, { stallAfter: 1 })],
  'within the body': [received(0, 9 * kMiB), 1, { size: '32M' }, only(0, { stallAfter: 9 * kMiB })],
  'with the body sent and no answer': [complete(0), 1, {}, only(0, { silent: true })],
  'within the answer': [complete(0), 1, {}, only(0, { stallReply: true }), 200],
  'as it creates the append blob': [received(0, 0), 1, { size: '257M' }, only(0, { silent: true }), 100],
  'within the third block': [received(3, kMiB), 1, { size: '257M' }, only(3, { stallAfter: kMiB })],
  'between two blocks': [complete(20), 1, { size: '257M' }],
  'with every block stored': [complete(65), 1, { size: '257M' }, only(65, { silent: true })],
  'as it removes the bundle': [removed, 0],
};

describe('a run that is killed', () => {
  const files = useFiles();
  const product = useProduct('kill', { asks: files });
  const bundles = () => (existsSync(product.bundleFolder) ? readdirSync(product.bundleFolder) : []);

  // What can be seen of the run that is about to start.
  const watch = (sink) => {
    const lines = product.logText('debug').length;
    files.requests.length = 0;
    return { sink,
      log: () => product.logText('debug').slice(lines),
      calls: () => product.record().length,
      asked: () => files.requests.length,
      bundle: () => Math.max(-1, ...bundles().map(
        (name) => statSync(join(product.bundleFolder, name), { throwIfNoEntry: false })?.size ?? -1)) };
  };

  /** Kills the program when it has come to that point; waits for what it leaves. */
  async function kill(args, standin, reached, delayMs, seen) {
    let ended = false;
    const run = product.run({ args, standin }).finally(() => { ended = true; });
    const own = () => product.prefix.processes().filter(({ command }) => /^C:\\mddct\\mdDCT\.exe/i.test(command));
    while (!ended && own().length === 0) await sleep(1);
    const [{ pid }] = own();  // a child that is just being made goes by its parent's name, but comes later
    while (!ended && !reached(seen)) await sleep(1);
    await sleep(delayMs);
    assert.equal(ended, false, 'it was over before');
    if (alive(pid)) process.kill(pid, 'SIGKILL');
    return run;
  }

  for (const [name, [reached, stay, standin = {}, plan, delayMs = 0]] of Object.entries(kPoints)) {
    it(name, () => withSink({ plan }, async (sink) => {
      const args = ['-url', `${sink.origin}/logs/a.zip`];
      const killed = await kill(args, standin, reached, delayMs, watch(sink));
      for (const { pid } of killed.running) process.kill(pid, 'SIGKILL');
      const running = killed.running.map(({ command }) => command.replace(/ -.*/s, ''));
      assert.deepEqual(running, standin.query || (stay === 0 && running.length > 0) ? ['powershell.exe'] : []);
      assert.deepEqual(killed.leftBehind.filter((file) => !file.startsWith(product.bundleFolder)), []);
      assert.equal(bundles().length, stay);
      if (reached !== removed) assert.ok(!killed.debug.some(({ message }) => message.includes('succeeded')));
      wholeRecords(product);
      sink.plan = () => ({});
      const next = await product.run({ args });
      assertDelivered({ result: next, blob: sink.service.blobs.get('/logs/a.zip') }, 'BlockBlob');
      wholeRecords(product);
      bundles().forEach((file) => rmSync(join(product.bundleFolder, file)));
    }));
  }
});
