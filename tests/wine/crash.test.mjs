// Real crashes of the shipped program: their log lines, their dumps and their exit codes.
import assert from 'node:assert/strict';
import { existsSync, readFileSync, readdirSync } from 'node:fs';
import { join } from 'node:path';
import { describe, it } from 'node:test';
import { upload, useProduct, wholeRecords } from './harness.mjs';
import { kSettingsKey } from '../../wine/product.mjs';

const kDumpFolder = 'C:\\ProgramData\\Calvera\\Meridon\\dumps';
const kDumpName = /^mdDCT-\d{4}-\d\d-\d\d-\d{6}-\d+\.dmp$/;
const kReported =
  /^crashHandling::onUnhandledException\(\): Structured exception 0xc000001d at 0x[0-9A-F]{16} in thread (\d+)$/;
const kIllegalInstruction = 0xC000001D;

/** Returns the streams of a minidump, by type. Source: MINIDUMP_HEADER, MINIDUMP_DIRECTORY. */
function streamsOf(dump) {
  assert.equal(dump.toString('latin1', 0, 4), 'MDMP');
  const [count, directory] = [dump.readUInt32LE(8), dump.readUInt32LE(12)];
  return new Map(Array.from({ length: count }, (_, n) => {
    const [type, size, offset] = [0, 4, 8].map((field) => dump.readUInt32LE(directory + 12 * n + field));
    assert.ok(offset + size <= dump.length, `stream ${type} ends beyond the file`);
    return [type, dump.subarray(offset, offset + size)];
  }));
}

describe('a crash', () => {
  const product = useProduct('crash');
  const folder = () => product.prefix.path(kDumpFolder);
  const dumps = () => (existsSync(folder()) ? readdirSync(folder()) : []).sort();
  const setDumpCount = (count) => product.prefix.importRegistry({ [`${kSettingsKey}\\Dump`]: { DumpCount: count } });

  /** Runs the product, which crashes in this function of Windows. Returns the result, FATAL messages and new dumps. */
  async function crash(call) {
    const earlier = dumps();
    const { result } = await upload(product, { patch: `${call}=crash` });
    assert.deepEqual(result.running, []);
    wholeRecords(product);
    const fatal = result.debug.filter(({ level }) => level === 'FATAL').map(({ message }) => message);
    return { result, fatal, fresh: dumps().filter((name) => !earlier.includes(name)) };
  }

  /** Checks that the log and one new dump show the crash. Returns the thread that crashed. */
  function assertReported({ fatal, fresh }) {
    const thread = Number(kReported.exec(fatal[0])?.[1]);
    assert.match(fatal[1], /^crashHandling::logStack\(\): {2}0 \S/);
    assert.match(fresh.join(), kDumpName);
    assert.equal(fatal.at(-1), `crashHandling::logDump(): Minidump: ${kDumpFolder}\\${fresh}`);
    const streams = streamsOf(readFileSync(join(folder(), ...fresh)));
    const [threads, modules, exception, system] = [3, 4, 6, 7].map((type) => streams.get(type));
    assert.ok(modules?.length > 0 && system?.length > 0);
    const ids = Array.from({ length: threads.readUInt32LE(0) }, (_, n) => threads.readUInt32LE(4 + 48 * n));
    assert.deepEqual([exception.readUInt32LE(0), exception.readUInt32LE(8)], [thread, kIllegalInstruction]);
    assert.ok(ids.includes(thread), `${ids}`);
    return thread;
  }

  it('on the main thread ends the stage with its exit code, and the run with its clean-up', async () => {
    const all = await crash('urlmon.dll!IsValidURL');
    const { code, record, debug, output } = all.result;
    assert.deepEqual([code, record], [3, []], output);
    const stageError = debug.find(({ message }) => /^wWinMain\(\): Structured exception 0xc000001d/.test(message));
    assert.deepEqual([Number.parseInt(stageError.tid, 16), stageError.level], [assertReported(all), 'ERROR']);
  });

  it('on a worker ends the process with the code of its exception', async () => {
    const all = await crash('winhttp.dll!WinHttpQueryHeaders');
    assert.equal(all.result.code, kIllegalInstruction & 0xFF, all.result.output);
    assert.notEqual(assertReported(all), Number.parseInt(all.result.debug[0].tid, 16));
  });

  it('leaves as many dumps as are asked for', async () => {
    await setDumpCount('1');
    assertReported(await crash('urlmon.dll!IsValidURL'));
    assert.equal(dumps().length, 1);
    await setDumpCount('0');
    const { result, fatal, fresh } = await crash('urlmon.dll!IsValidURL');
    assert.deepEqual([result.code, fatal.at(-1), fresh, dumps().length],
      [3, 'crashHandling::logDump(): No minidump: dumps are switched off', [], 1]);
  });
});
