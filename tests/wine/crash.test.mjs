// Real crashes of the shipped program: what they leave in the log, in the dump folder, and as the exit code.
import assert from 'node:assert/strict';
import { existsSync, readFileSync, readdirSync } from 'node:fs';
import { join } from 'node:path';
import { describe, it } from 'node:test';
import { upload, useProduct, wholeRecords } from './harness.mjs';
import { kSettingsKey } from '../../scripts/wine/product.mjs';

const kDumpFolder = 'C:\\ProgramData\\Calvera\\Meridon\\dumps';
const kDumpName = /^mdDCT-\d{4}-\d\d-\d\d-\d{6}-\d+\.dmp$/;
const kTold =
  /^crashHandling::onUnhandledException\(\): Structured exception 0xc000001d at 0x[0-9A-F]{16} in thread (\d+)$/;
const kIllegalInstruction = 0xC000001D;
const kStreams = { threads: 3, modules: 4, exception: 6, system: 7 };

/** The streams of a minidump that lie within it, by type. Source: MINIDUMP_HEADER, MINIDUMP_DIRECTORY. */
function streamsOf(dump) {
  assert.equal(dump.toString('latin1', 0, 4), 'MDMP');
  const [count, directory] = [dump.readUInt32LE(8), dump.readUInt32LE(12)];
  const streams = new Map();
  for (let at = directory; at < directory + 12 * count; at += 12) {
    const [type, size, offset] = [0, 4, 8].map((field) => dump.readUInt32LE(at + field));
    assert.ok(offset + size <= dump.length, `stream ${type} ends beyond the file`);
    if (size > 0) streams.set(type, dump.subarray(offset, offset + size));
  }
  return streams;
}

describe('a crash', () => {
  const product = useProduct('crash');
  const folder = () => product.prefix.path(kDumpFolder);
  const dumps = () => (existsSync(folder()) ? readdirSync(folder()) : []).sort();

  /** A run into a function of Windows that crashes, and the messages of its FATAL records. */
  async function crash(call) {
    const { result } = await upload(product, { patch: `${call}=crash` });
    const fatal = result.debug.filter(({ level }) => level === 'FATAL').map(({ message }) => message);
    assert.deepEqual(result.running, []);
    wholeRecords(product);
    return { result, fatal };
  }

  /** Demands the crash in the log, and a new dump that shows it. Gives the thread that failed. */
  function assertTold(fatal, earlier) {
    const thread = Number(kTold.exec(fatal[0])?.[1]);
    assert.match(fatal[1], /^crashHandling::logStack\(\): {2}0 \S/);
    const [fresh, ...more] = dumps().filter((name) => !earlier.includes(name));
    assert.match(fresh, kDumpName);
    assert.deepEqual(more, []);
    assert.equal(fatal.at(-1), `crashHandling::logDump(): Minidump: ${kDumpFolder}\\${fresh}`);

    const streams = streamsOf(readFileSync(join(folder(), fresh)));
    for (const [name, type] of Object.entries(kStreams)) assert.ok(streams.has(type), `no stream of ${name}`);
    const [exception, threads] = [streams.get(kStreams.exception), streams.get(kStreams.threads)];
    const ids = Array.from({ length: threads.readUInt32LE(0) }, (_, n) => threads.readUInt32LE(4 + 48 * n));
    assert.deepEqual([exception.readUInt32LE(0), exception.readUInt32LE(8)], [thread, kIllegalInstruction]);
    assert.ok(ids.includes(thread), `${ids}`);
    return thread;
  }

  it('on the main thread ends the stage with its exit code, and the run with its clean-up', async () => {
    const { result, fatal } = await crash('urlmon.dll!IsValidURL');
    assert.equal(result.code, 3, result.output);
    const thread = assertTold(fatal, []);
    const verdict = result.debug.find(({ message }) => /^wWinMain\(\): Structured exception 0xc000001d/.test(message));
    assert.deepEqual([Number.parseInt(verdict.tid, 16), verdict.level, result.record], [thread, 'ERROR', []]);
  });

  it('on a worker ends the process with the code of its exception', async () => {
    const earlier = dumps();
    const { result, fatal } = await crash('winhttp.dll!WinHttpQueryHeaders');
    assert.equal(result.code, kIllegalInstruction & 0xFF, result.output);
    assert.notEqual(assertTold(fatal, earlier), Number.parseInt(result.debug[0].tid, 16));
  });

  it('leaves as many dumps as are asked for', async () => {
    const ask = (count) => product.prefix.importRegistry({ [`${kSettingsKey}\\Dump`]: { DumpCount: count } });
    await ask('1');
    for (let run = 0; run < 2; run++) {
      const earlier = dumps();
      assertTold((await crash('urlmon.dll!IsValidURL')).fatal, earlier);
      assert.equal(dumps().length, 1);
    }
    await ask('0');
    const kept = dumps();
    const { result, fatal } = await crash('urlmon.dll!IsValidURL');
    assert.deepEqual([result.code, fatal.at(-1)], [3, 'crashHandling::logDump(): No minidump: dumps are switched off']);
    assert.deepEqual(dumps(), kept);
  });
});
