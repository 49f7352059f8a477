// run.mjs [--small] [NAME...]: prints the rows that are measured under Wine: all of them, or those of these names
// (upload, start, lines, configuration). --small makes the uploads small, to check quickly that everything works. Needs
// build/windows with mddct_bench_programs.
import { randomBytes } from 'node:crypto';
import { closeSync, existsSync, ftruncateSync, mkdirSync, openSync, readFileSync, rmSync, writeSync } from 'node:fs';
import { join } from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';
import { fileURLToPath } from 'node:url';
import { certificates } from '../../wine/certificates.mjs';
import { binaries, stateFolder } from '../../wine/paths.mjs';
import { clonePrefix, endOnSignals, onDriveZ } from '../../wine/prefix.mjs';
import { emptyFolder, run } from '../../wine/processes.mjs';
import { Product, kProgramFolder, kSettingsKey } from '../../wine/product.mjs';
import { startDrain } from './drain.mjs';
import { inRounds, median, printRow, ratioOf } from './table.mjs';

const kMiB = 1 << 20;
const kAllowedMemory = 10 * kMiB;
const small = process.argv.includes('--small');
const kPut = (small ? 32 : 256) * kMiB;
const kChain = (small ? 264 : 1024) * kMiB;
const kLong = (small ? 272 : 4096) * kMiB;

const program = `${kProgramFolder}\\mdDCT.exe`;
const launcher = `${kProgramFolder}\\mddct_run_as_system.exe`;
const builtProgram = (name) => onDriveZ(join(binaries, name));

const isSparse = (size) => size > kChain;
const sizeText = (bytes) => (bytes % (1024 * kMiB) === 0 ? `${bytes / kMiB / 1024} GiB` : `${bytes / kMiB} MiB`);

function demand(done, what) {
  if (!done) throw new Error(what);
}

/** Returns the peak of a process's resident memory, in bytes, or 0 when the process is gone. */
function peakOf(pid) {
  try {
    return Number(/^VmHWM:\s*(\d+)/m.exec(readFileSync(`/proc/${pid}/status`, 'utf8'))?.[1] ?? 0) * 1024;
  } catch {
    return 0;
  }
}

/** What the measurements share: the prefix with the product, the server, and a folder for files. */
class Bench {
  static async open() {
    const { leaf, authority } = await certificates();
    const bench = Object.assign(new Bench(), { authority: authority.pem, folder: emptyFolder(stateFolder('bench')) });
    bench.prefix = await clonePrefix('bench');
    bench.product = await Product.install(bench.prefix);
    bench.drain = await startDrain(leaf('good'));
    return bench;
  }

  async close() {
    await this.drain?.stop();
    await this.prefix?.remove();
    rmSync(this.folder, { recursive: true, force: true });
  }

  get url() {
    return `${this.drain.origin}/logs/bench.zip?sv=2020-04-08&sig=x`;
  }

  /** Writes a file and returns its name. Like a bundle, it has just been written. A very long one is sparse. */
  file(size) {
    const name = join(this.folder, 'file');
    const part = randomBytes(4 * kMiB);
    const file = openSync(name, 'w');
    if (isSparse(size)) ftruncateSync(file, size);
    else for (let left = size; left > 0; left -= part.length) writeSync(file, part, 0, Math.min(left, part.length));
    closeSync(file);
    return name;
  }

  // The ways to send a file. Each waits for the end of the sender.
  senders = {
    ours: (size) => this.prefix.wine([launcher, program, '-url', this.url],
      { timeoutMs: 600000, env: { MDDCT_STANDIN: `collect=${isSparse(size) ? 'sparse' : 'ok'};size=${size}` } }),
    bare: (size) => this.#bare(size, size > 256 * kMiB ? 'append' : 'put'),
    asking: (size) => this.#bare(size, 'append-asking'),
    curl: (size) => run('curl', ['-sS', '--fail', '--cacert', this.authority, '-T', this.file(size), '-H', 'Expect:',
      '-H', 'x-ms-blob-type: BlockBlob', this.url]),
    rclone: (size) => run('rclone', ['copyto', '--config', '', '--ca-cert', this.authority, '--retries', '1',
      '--no-check-dest', '--azureblob-sas-url', `${this.drain.origin}/logs?sv=2020-04-08&sig=x`,
      this.file(size), ':azureblob:logs/b.zip']),
    sdk: (size) => run(process.execPath, [fileURLToPath(new URL('sdk_upload.mjs', import.meta.url)), this.url,
      this.file(size), this.authority]),
  };

  #bare(size, how) {
    const line = [builtProgram('mddct_bare_upload.exe'), how, this.url, onDriveZ(this.file(size))];
    return this.prefix.wine(line, { timeoutMs: 600000 });
  }

  /** Sends once. Returns the seconds from the first to the last byte, and the peak memory of the sending process. */
  async transfer(sender, size) {
    let [peak, timer] = [0, null];
    this.drain.reset(() => {
      const sending = this.prefix.processes().find(({ command }) => /(mdDCT|mddct_bare_upload)\.exe/.test(
        command.replace(/^.*run_as_system.*$/, '')));
      timer = sending && setInterval(() => (peak = Math.max(peak, peakOf(sending.pid))), 20);
    });
    const { code, output } = await this.senders[sender](size);
    clearInterval(timer);
    const { bytes, seconds } = this.drain;
    demand(code === 0 && bytes === size, `${sender} sent ${bytes} bytes and ended with ${code}: ${output}`);
    return { seconds, peak };
  }

  /** Sends in rounds. Returns (name, field) => the values of that field of that sender, one per round. */
  async transfers(rounds, size, names, uncounted = 1) {
    const sides = names.map((name) => [name, () => this.transfer(name, size)]);
    const results = await inRounds(rounds, Object.fromEntries(sides), uncounted);
    return (name, field) => results[name].map((result) => result[field]);
  }
}

function printRate(what, size, of, name, peerName, wanted) {
  const rate = (side) => size / 1e6 / median(of(side, 'seconds'));
  const ratio = 1 / ratioOf(of('ours', 'seconds'), of(name, 'seconds'));
  printRow(what, rate('ours'), peerName, rate(name), 'MB/s', ratio, wanted ? `at least ${wanted}` : 'for information',
    wanted ? ratio >= wanted : null);
}

/** Prints the row of the peak memory. Returns the difference of the two peaks, in bytes. */
function printPeak(size, of, earlier = []) {
  const [ours, bare] = ['ours', 'bare'].map((name) => median(of(name, 'peak')));
  const more = ours - bare;
  const spread = Math.max(more, ...earlier) - Math.min(more, ...earlier);
  const wanted = `at most 10 MiB more (here ${(more / kMiB).toFixed(1)})` +
    (earlier.length ? `, the same at each size (within ${(spread / kMiB).toFixed(1)} MiB)` : '');
  printRow(`peak memory, ${sizeText(size)}`, ours / kMiB, 'bare loop', bare / kMiB, 'MiB', ours / bare, wanted,
    more <= kAllowedMemory && spread <= 2 * kMiB);
  return more;
}

async function benchUpload(bench) {
  const put = await bench.transfers(small ? 2 : 9, kPut, ['ours', 'bare', 'curl', 'rclone', 'sdk']);
  const what = `upload of ${sizeText(kPut)}, one Put Blob`;
  printRate(what, kPut, put, 'bare', 'bare WinHTTP loop', 0.95);
  printRate(what, kPut, put, 'curl', 'curl, no Wine');
  printRate(what, kPut, put, 'rclone', 'rclone, no Wine, blocks of 4 MiB');
  printRate(what, kPut, put, 'sdk', 'storage SDK on Node, no Wine');
  const chain = await bench.transfers(small ? 1 : 5, kChain, ['ours', 'bare', 'asking']);
  const chainText = `upload of ${sizeText(kChain)} by the append chain`;
  printRate(chainText, kChain, chain, 'bare', 'bare WinHTTP, a session a block', 0.95);
  printRate(chainText, kChain, chain, 'asking', 'the same, asking for proxies before each block');
  const long = await bench.transfers(1, kLong, ['ours', 'bare'], 0);
  const more = [printPeak(kPut, put)];
  more.push(printPeak(kChain, chain));
  printPeak(kLong, long, more);
}

async function benchStart({ prefix, product, url }) {
  const empty = builtProgram('mddct_empty_program.exe');
  const timed = (line, code) => async () => {
    const begun = performance.now();
    const result = await prefix.wine(line);
    demand(result.code === code, `${line.join(' ')} ended with ${result.code}: ${result.output}`);
    return performance.now() - begun;
  };
  const compare = async (code, through, args) => {
    const times = await inRounds(small ? 3 : 25, { ours: timed([...through, program, ...args], code),
      empty: timed([...through, empty], 0) });
    const ratio = ratioOf(times.ours, times.empty);
    printRow(`process start to exit code ${code}`, median(times.ours),
      `empty program, same imports${through.length ? ', same launcher' : ''}`, median(times.empty), 'ms', ratio,
      'at most 1.5', ratio <= 1.5);
  };
  await compare(1, [], []);
  await compare(3, [launcher], []);
  const holder = prefix.wine([launcher, program, '-url', url],
    { timeoutMs: 600000, env: { MDDCT_STANDIN: `delay=600000;record=${kProgramFolder}\\record.txt` } });
  const record = prefix.path(`${kProgramFolder}\\record.txt`);
  for (let checksLeft = 600; !existsSync(record); checksLeft--) {
    demand(checksLeft > 0, 'the instance that is to hold the mutex did not reach the script');
    await sleep(50);
  }
  await compare(2, [launcher], ['-url', url]);
  await prefix.stop();
  await holder;
}

async function benchLines({ prefix, folder }) {
  mkdirSync(join(folder, 'lines'));
  const { code, output } = await prefix.wine([builtProgram('mddct_log_lines.exe'), onDriveZ(join(folder, 'lines'))],
    { timeoutMs: 600000 });
  demand(code === 0, output);
  process.stdout.write(output.replaceAll('\r', ''));
}

async function benchConfiguration({ prefix }) {
  await prefix.importRegistry({ [`${kSettingsKey}\\WebRTCRedir`]: { limit: '4096' } });
  const { code, output } = await prefix.wine([builtProgram('mddct_bench_configuration.exe')]);
  demand(code === 0, output);
  process.stdout.write(output.replaceAll('\r', ''));
}

endOnSignals();
const wanted = process.argv.slice(2).filter((name) => name !== '--small');
const bench = await Bench.open();
try {
  const rows = { upload: benchUpload, start: benchStart, lines: benchLines, configuration: benchConfiguration };
  for (const [name, measure] of Object.entries(rows)) {
    if (wanted.length === 0 || wanted.includes(name)) await measure(bench);
  }
} finally {
  await bench.close();
}
