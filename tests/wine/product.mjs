// mdDCT.exe in a prefix: its installation, one run of it, and everything that the run leaves to be seen.
import { createHash } from 'node:crypto';
import { copyFileSync, createReadStream, existsSync, linkSync, mkdirSync, readFileSync, readdirSync, rmSync, statSync,
  writeFileSync } from 'node:fs';
import { basename, dirname, join } from 'node:path';
import { binaries } from './paths.mjs';

export const kProgramFolder = 'C:\\mddct';
export const kInstallPath = 'C:\\Program Files\\Calvera\\Meridon\\Agent';
export const kLogFolder = 'C:\\ProgramData\\Calvera\\Meridon\\logs';
const kSettingsKey = 'HKEY_LOCAL_MACHINE\\Software\\Calvera\\Meridon';
const kStandinFolder = 'C:\\standin';  // its control files and records: no part of what a run may leave

/** What the exit codes mean. */
export const kMeanings = ['the bundle arrived', 'not started as the local system account',
  'another collection is running', 'the command line or the URL cannot be used', 'the collection failed: no bundle',
  'the upload could not start', 'waiting for the upload failed', 'the upload failed'];

const kLine = /^(\S+) (.{5}) \(([^()]*)-([0-9A-F]+)\) <([^>]*)> \[([^\]]*)\] ([^]*)$/;

/** Takes the text of a log file apart; a message may hold line breaks. */
export function parseLog(text) {
  const records = text.replace(/\r\n$/, '').split(/\r\n(?=\d{4}-\d\d-\d\dT)/).filter((line) => line !== '');
  return records.map((line) => {
    const [, time, level, pid, tid, name, component, message] = kLine.exec(line) ?? [];
    return { time, level: level?.trim(), pid, tid, name, component, message, line };
  });
}

export async function sha256OfFile(file) {
  const hash = createHash('sha256');
  for await (const chunk of createReadStream(file, { highWaterMark: 1 << 20 })) hash.update(chunk);
  return hash.digest('hex');
}

function filesBelow(folder) {
  if (!existsSync(folder)) return [];
  return readdirSync(folder, { withFileTypes: true }).flatMap((entry) => {
    const path = join(folder, entry.name);
    return entry.isDirectory() ? filesBelow(path) : [path];
  });
}

/**
 * Puts a second name on every bundle as soon as it appears, so that its bytes can be compared when it is gone. It looks
 * every 5 ms; only a bundle that is not sent at all is gone sooner.
 */
class BundleWitness {
  constructor(folder, keep) {
    this.folder = folder;
    this.keep = keep;
    this.names = new Set();
    this.timer = setInterval(() => this.look(), 5);
  }

  look() {
    if (!existsSync(this.folder)) return;
    for (const name of readdirSync(this.folder)) {
      if (this.names.has(name) || !name.endsWith('.zip')) continue;
      mkdirSync(this.keep, { recursive: true });
      try {
        linkSync(join(this.folder, name), join(this.keep, name));
        this.names.add(name);
      } catch (error) {
        // A run that ends at once may have removed it between the two calls.
        if (error.code !== 'ENOENT') throw error;
      }
    }
  }

  /** The bundles seen, as {name, size, sha256}. */
  async close() {
    clearInterval(this.timer);
    const bundles = [];
    for (const name of this.names) {
      const file = join(this.keep, name);
      bundles.push({ name, size: statSync(file).size, sha256: await sha256OfFile(file) });
    }
    rmSync(this.keep, { recursive: true, force: true });
    return bundles;
  }
}

/** The program, installed in one prefix. */
export class Product {
  /**
   * Copies the program and the stand-in for powershell.exe, makes the agent's folders and imports its settings.
   * @param {object} [options] installPath, logFolder: Windows paths; settings: further values, as {Agent: {...}, ...}.
   */
  static async install(prefix, options = {}) {
    const { installPath = kInstallPath, logFolder = kLogFolder, settings = {} } = options;
    const program = prefix.path(kProgramFolder);
    for (const folder of [program, prefix.path(kStandinFolder)]) mkdirSync(folder, { recursive: true });
    for (const name of ['mdDCT.exe', 'mddct_run_as_system.exe', 'standin/powershell.exe']) {
      copyFileSync(join(binaries, name), join(program, name.split('/').at(-1)));
    }
    const scripts = prefix.path(`${installPath}\\dct`);
    for (const folder of [scripts, prefix.path(logFolder)]) mkdirSync(folder, { recursive: true });
    for (const name of ['vdx-support.ps1', 'vdx-query.ps1']) {
      writeFileSync(join(scripts, name), '# the stand-in takes its place\r\n');
    }
    const agent = { AgentInstallPath: installPath, UseRegistryForLoggingPath: 'true' };
    const values = { Agent: agent, Log: { LogFileDirectory: logFolder } };
    for (const [key, more] of Object.entries(settings)) values[key] = { ...values[key], ...more };
    const product = new Product(prefix, logFolder);
    product.settings = {};
    for (const [key, value] of Object.entries(values)) product.settings[`${kSettingsKey}\\${key}`] = value;
    await prefix.importRegistry(product.settings);
    return product;
  }

  constructor(prefix, logFolder) {
    this.prefix = prefix;
    this.logFolder = prefix.path(logFolder);
    this.runs = 0;
  }

  #ownFiles() {
    const roots = [kProgramFolder, 'C:\\ProgramData', 'C:\\users', 'C:\\Program Files', 'C:\\windows\\temp'];
    return [...new Set([...roots.map((name) => this.prefix.path(name)), this.logFolder].flatMap(filesBelow))];
  }

  #logSizes() {
    if (!existsSync(this.logFolder)) return {};
    const names = readdirSync(this.logFolder).filter((name) => name.endsWith('.txt'));
    return Object.fromEntries(names.map((name) => [name, statSync(join(this.logFolder, name)).size]));
  }

  #newLines(base, before) {
    const names = Object.keys(this.#logSizes()).filter((name) => name.startsWith(`${base}-`)).sort();
    const added = names.map((name) => readFileSync(join(this.logFolder, name)).subarray(before[name] ?? 0));
    return parseLog(Buffer.concat(added).toString('utf8'));
  }

  /** The command line of a run. */
  commandLine({ args = [], asSystem = true, patches = [] }) {
    const program = `${kProgramFolder}\\mdDCT.exe`;
    if (!asSystem) return [program, ...args];
    const launcher = [`${kProgramFolder}\\mddct_run_as_system.exe`, ...patches.flatMap((patch) => ['--patch', patch])];
    return [...launcher, program, ...args];
  }

  /**
   * One run, to its end.
   * @param {object} options args: the program's arguments; asSystem: false starts it without the launcher; patches:
   *   the launcher's; standin: the stand-in's control values; timeoutMs: of the whole run.
   * @returns {Promise<object>} code (-1 after a time-out), ms, output; log and debug: records of the two files; errors:
   *   the messages at ERROR and above; record: what the stand-in was asked; bundles: what it wrote, as {name, size,
   *   sha256}; leftBehind: files that were not there before, logs apart; running: processes of the run that still live.
   */
  async run({ standin = {}, timeoutMs = 60000, env = {}, ...how } = {}) {
    const run = ++this.runs;
    const control = `${kStandinFolder}\\control-${run}.txt`;
    const recordFile = `${kStandinFolder}\\record-${run}.jsonl`;
    writeFileSync(this.prefix.path(control),
      Object.entries({ record: recordFile, ...standin }).map(([key, value]) => `${key}=${value}\n`).join(''));
    const files = new Set(this.#ownFiles());
    const sizes = this.#logSizes();
    const witness = new BundleWitness(join(this.logFolder, 'Temp'), join(this.prefix.folder, `witness-${run}`));
    const result = await this.prefix.wine(this.commandLine(how),
      { timeoutMs, env: { MDDCT_STANDIN: control, ...env }, onStart: how.onStart });
    const bundles = await witness.close();
    const [log, debug] = [this.#newLines('log', sizes), this.#newLines('debug', sizes)];
    const record = this.prefix.path(recordFile);
    return { ...result, log, debug, bundles,
      errors: debug.filter(({ level }) => level === 'ERROR' || level === 'FATAL').map(({ message }) => message),
      record: existsSync(record) ? readFileSync(record, 'utf8').trim().split('\n').map((line) => JSON.parse(line)) : [],
      leftBehind: this.#ownFiles().filter((file) => !files.has(file) && !this.#isLog(file)),
      running: this.running() };
  }

  #isLog(file) {
    const [folder, name] = [dirname(file), basename(file)];
    return folder === this.logFolder && /^(log|debug)-[\d-]+\.txt$/.test(name);
  }

  /** The processes of runs that still live: Wine's own services do not count. */
  running() {
    return this.prefix.processes().filter(({ command }) => /mddct|powershell/i.test(command));
  }
}
