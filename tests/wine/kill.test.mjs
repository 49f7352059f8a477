// The program killed at points spread over a whole run. Whatever it was doing, the next run works at once: the mutex is
// free, and no log file ends within a line. The bundle stays once the script was called, because the script goes on and
// writes it. A query that hangs stays, because nobody is left to end it. A query that is being started during the kill
// may stay as well.
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

// What stays after the kill: the number of bundles, the processes, and whether the log may already tell of success.
const [kNothing, kBundle] = [[0, /^$/, true], [1, /^$/, false]];
const [kQuery, kMaybeQuery] = [[0, /^powershell\.exe$/, false], [0, /^(powershell\.exe)?$/, false]];

// name: [point, what stays, orders for the stand-in, plan of the sink, milliseconds from the point to the kill]
const kPoints = {
  'as it starts': [() => true, kMaybeQuery],
  '60 ms later': [() => true, kMaybeQuery, {}, undefined, 60],
  'with its first lines in the log': [logged('Starting DCT collection'), kMaybeQuery],
  'as it calls the query': [({ calls }) => calls() === 1, kMaybeQuery],
  'while the query hangs': [({ calls }) => calls() === 1, kQuery, { query: 'hang' }, undefined, 300],
  'while the script works': [({ calls }) => calls() === 2, kBundle, { delay: 1500 }, undefined, 300],
  'while the bundle grows': [({ bundle }) => bundle() > 0, kBundle, { size: '64M' }],
  'with the bundle written': [({ bundle }) => bundle() === 4 * kMiB, kBundle, { size: '4M' }],
  'while it asks for its proxy': [({ asked }) => asked() > 0, kBundle],
  'as it connects': [({ sink }) => sink.rawSockets.size > 0, kBundle],
  'with its headers sent': [received(0, 0), kBundle, { size: '32M' }, only(0, { stallAfter: 1 })],
  'within the body': [received(0, 9 * kMiB), kBundle, { size: '32M' }, only(0, { stallAfter: 9 * kMiB })],
  'with the body sent and no answer': [complete(0), kBundle, {}, only(0, { silent: true })],
  'within the answer': [complete(0), kBundle, {}, only(0, { stallReply: true }), 200],
  'as it creates the append blob': [received(0, 0), kBundle, { size: '257M' }, only(0, { silent: true }), 100],
  'within the third block': [received(3, kMiB), kBundle, { size: '257M' }, only(3, { stallAfter: kMiB })],
  'between two blocks': [complete(20), kBundle, { size: '257M' }],
  'with every block stored': [complete(65), kBundle, { size: '257M' }, only(65, { silent: true })],
  'as it removes the bundle': [removed, kNothing],
};

describe('a run that is killed', () => {
  const files = useFiles();
  const product = useProduct('kill', { asks: files });
  const bundles = () => (existsSync(product.bundleFolder) ? readdirSync(product.bundleFolder) : []);

  // Returns what can be observed of the run that is about to start.
  const observe = (sink) => {
    const lines = product.logText('debug').length;
    files.requests.length = 0;
    return { sink,
      log: () => product.logText('debug').slice(lines),
      calls: () => product.record().length,
      asked: () => files.requests.length,
      bundle: () => Math.max(-1, ...bundles().map(
        (name) => statSync(join(product.bundleFolder, name), { throwIfNoEntry: false })?.size ?? -1)) };
  };

  /** Runs the program, kills it when it has reached the point, and returns the result. */
  async function kill(args, standin, reached, delayMs, observed) {
    let ended = false;
    const run = product.run({ args, standin }).finally(() => { ended = true; });
    const own = () => product.prefix.processes().filter(({ command }) => /^C:\\mddct\\mdDCT\.exe/i.test(command));
    while (!ended && own().length === 0) await sleep(1);
    const [{ pid }] = own();  // a child that is being started has its parent's name, but appears later
    while (!ended && !reached(observed)) await sleep(1);
    await sleep(delayMs);
    assert.equal(ended, false, 'the run ended before the kill');
    if (alive(pid)) process.kill(pid, 'SIGKILL');
    return run;
  }

  for (const [name, [reached, left, standin = {}, plan, delayMs = 0]] of Object.entries(kPoints)) {
    it(name, () => withSink({ plan }, async (sink) => {
      const [bundlesLeft, processesLeft, maySucceed] = left;
      const args = ['-url', `${sink.origin}/logs/a.zip`];
      const killed = await kill(args, standin, reached, delayMs, observe(sink));
      for (const { pid } of killed.running) process.kill(pid, 'SIGKILL');
      const running = killed.running.map(({ command }) => command.replace(/ -.*/s, ''));
      assert.match(running.join(), processesLeft);
      assert.deepEqual(killed.leftBehind.filter((file) => !file.startsWith(product.bundleFolder)), []);
      assert.equal(bundles().length, bundlesLeft);
      assert.ok(maySucceed || !killed.debug.some(({ message }) => message.includes('succeeded')));
      wholeRecords(product);
      sink.plan = () => ({});
      const next = await product.run({ args });
      assertDelivered({ result: next, blob: sink.service.blobs.get('/logs/a.zip') }, 'BlockBlob');
      wholeRecords(product);
      bundles().forEach((file) => rmSync(join(product.bundleFolder, file)));
    }));
  }
});
