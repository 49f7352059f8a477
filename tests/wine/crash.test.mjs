// Real crashes of the shipped program: what they leave in the log, in the dump folder, and as the exit code.
import assert from 'node:assert/strict';
import { existsSync, readFileSync, readdirSync } from 'node:fs';
import { join } from 'node:path';
import { after, before, beforeEach, describe, it } from 'node:test';
import { openProduct, withSink } from './harness.mjs';

const kDumpFolder = 'C:\\ProgramData\\Calvera\\Meridon\\dumps';
const kDumpKey = 'HKEY_LOCAL_MACHINE\\Software\\Calvera\\Meridon\\Dump';
const kDumpName = /^mdDCT-\d{4}-\d\d-\d\d-\d{6}-\d+\.dmp$/;
const kIllegalInstruction = 0xC000001D;
const kStreams = { threads: 3, modules: 4, exception: 6, system: 7 };
const kUrl = 'https://localhost:9/logs/a.zip';

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
  let product;
  before(async () => { product = await openProduct('crash'); });
  after(() => product?.close());
  beforeEach(() => product.prefix.importRegistry({ [kDumpKey]: { DumpCount: null } }));

  const folder = () => product.prefix.path(kDumpFolder);
  const dumps = () => (existsSync(folder()) ? readdirSync(folder()) : []).sort();
  const crash = (patch, options) => product.run({ args: ['-url', kUrl], patch: `${patch}=crash`, ...options });

  /** Demands the crash in the log, and a new dump that shows it. Gives the thread that failed. */
  function assertTold(result, earlier) {
    const fatal = result.debug.filter(({ level }) => level === 'FATAL').map(({ message }) => message);
    const [, thread] = /^crashHandling::onUnhandledException\(\): Structured exception 0xc000001d at 0x[0-9A-F]{16} in thread (\d+)$/
      .exec(fatal[0]) ?? assert.fail(result.debug.map(({ line }) => line).join('\n'));
    assert.match(fatal[1], /^crashHandling::logStack\(\): {2}0 \S/);
    const fresh = dumps().filter((name) => !earlier.includes(name));
    assert.equal(fresh.length, 1, `${dumps()}`);
    assert.match(fresh[0], kDumpName);
    assert.equal(fatal.at(-1), `crashHandling::logDump(): Minidump: ${kDumpFolder}\\${fresh[0]}`);

    const streams = streamsOf(readFileSync(join(folder(), fresh[0])));
    for (const [name, type] of Object.entries(kStreams)) assert.ok(streams.has(type), `no stream of ${name}`);
    const [exception, threads] = [streams.get(kStreams.exception), streams.get(kStreams.threads)];
    const ids = Array.from({ length: threads.readUInt32LE(0) }, (_, n) => threads.readUInt32LE(4 + 48 * n));
    assert.equal(exception.readUInt32LE(0), Number(thread));
    assert.equal(exception.readUInt32LE(8), kIllegalInstruction);
    assert.ok(ids.includes(Number(thread)), `${ids}`);
    return Number(thread);
  }

  it('on the main thread ends the stage with its exit code, and the run with its clean-up', async () => {
    const earlier = dumps();
    const result = await crash('urlmon.dll!IsValidURL');
    assert.equal(result.code, 3, result.output);
    const thread = assertTold(result, earlier);
    const verdict = result.debug.find(({ message }) => /^wWinMain\(\): Structured exception 0xc000001d at 0x/.test(message));
    assert.equal(Number.parseInt(verdict.tid, 16), thread);
    assert.equal(verdict.level, 'ERROR');
    assert.deepEqual(result.record, []);
    assert.deepEqual(result.running, []);
  });

  it('on a worker ends the process with the code of its exception, and no line is torn', async () => {
    const earlier = dumps();
    await withSink({}, async (sink) => {
      const result = await crash('winhttp.dll!WinHttpQueryHeaders', { args: ['-url', `${sink.origin}/a.zip`] });
      assert.equal(result.code, kIllegalInstruction & 0xFF, result.output);
      const thread = assertTold(result, earlier);
      assert.notEqual(thread, Number.parseInt(result.debug[0].tid, 16));
      assert.ok(result.debug.every(({ level }) => level !== undefined));
      for (const name of readdirSync(product.logFolder).filter((file) => file.endsWith('.txt'))) {
        assert.match(readFileSync(join(product.logFolder, name), 'utf8'), /\r\n$/);
      }
      assert.deepEqual(result.running, []);
    });
  });

  it('leaves as many dumps as are asked for', async () => {
    await product.prefix.importRegistry({ [kDumpKey]: { DumpCount: '1' } });
    for (let run = 0; run < 2; run++) {
      const earlier = dumps();
      assertTold(await crash('urlmon.dll!IsValidURL'), earlier);
      assert.equal(dumps().length, 1);
    }
    await product.prefix.importRegistry({ [kDumpKey]: { DumpCount: '0' } });
    const [kept] = dumps();
    const result = await crash('urlmon.dll!IsValidURL');
    assert.equal(result.code, 3);
    assert.equal(result.debug.filter(({ level }) => level === 'FATAL').at(-1).message,
      'crashHandling::logDump(): No minidump: dumps are switched off');
    assert.deepEqual(dumps(), [kept]);
  });
});
