// mdDCT.exe in a prefix: its installation, one run of it, and everything that the run leaves to be seen.
import { createHash } from 'node:crypto';
import { copyFileSync, createReadStream, existsSync, linkSync, mkdirSync, readFileSync, readdirSync, rmSync, statSync,
  writeFileSync } from 'node:fs';
import { basename, join } from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';
import { binaries } from './paths.mjs';

export const kProgramFolder = 'C:\\mddct';
export const kInstallPath = 'C:\\Program Files\\Calvera\\Meridon\\Agent';
export const kLogFolder = 'C:\\ProgramData\\Calvera\\Meridon\\logs';
export const kSettingsKey = 'HKEY_LOCAL_MACHINE\\Software\\Calvera\\Meridon';
export const kProxyKey = `${kSettingsKey}\\Node Manager`;
const kStandinFolder = 'C:\\standin';  // its records: no part of what a run may leave
const recordOf = (run) => `${kStandinFolder}\\record-${run}.txt`;

const kLine = /^(\S+) (.{5}) \(([^()]*)-([0-9A-F]+)\) <[^>]*> \[[^\]]*\] ([^]*)$/;

/** Takes the text of a log file apart; a message may hold line breaks. */
export function parseLog(text) {
  const records = text.replace(/\r\n$/, '').split(/\r\n(?=\d{4}-\d\d-\d\dT)/).filter((line) => line !== '');
  return records.map((line) => {
    const [, time, level, pid, tid, message] = kLine.exec(line) ?? [];
    return { time, level: level?.trim(), pid, tid, message, line };
  });
}

async function sha256OfFile(file) {
  const hash = createHash('sha256');
  for await (const chunk of createReadStream(file, { highWaterMark: 1 << 20 })) hash.update(chunk);
  return hash.digest('hex');
}

const filesBelow = (folder) => (existsSync(folder) ? readdirSync(folder, { withFileTypes: true }) : []).flatMap(
  (entry) => (entry.isDirectory() ? filesBelow(join(folder, entry.name)) : [join(folder, entry.name)]));

/**
 * Puts a second name on every bundle as soon as it appears, so that its bytes can be compared when it is gone. It looks
 * every 5 ms; only a bundle that is not sent at all is gone sooner.
 */
function watchBundles(folder, keep) {
  mkdirSync(keep);
  const list = () => (existsSync(folder) ? readdirSync(folder) : []);
  const [earlier, names] = [list(), new Set()];
  const look = () => {
    for (const name of list()) {
      if (names.has(name) || earlier.includes(name) || !name.endsWith('.zip')) continue;
      try {
        linkSync(join(folder, name), join(keep, name));
        names.add(name);
      } catch (error) {
        // A run that ends at once may have removed it between the two calls.
        if (error.code !== 'ENOENT') throw error;
      }
    }
  };
  const timer = setInterval(look, 5);
  /** Ends the watch. Gives the bundles seen, as {name, size, sha256}. */
  return async () => {
    clearInterval(timer);
    const bundles = [];
    for (const file of [...names].map((name) => join(keep, name))) {
      bundles.push({ name: basename(file), size: statSync(file).size, sha256: await sha256OfFile(file) });
    }
    rmSync(keep, { recursive: true });
    return bundles;
  };
}

/** The program, installed in one prefix. */
export class Product {
  /**
   * Copies the program and the stand-in for powershell.exe, makes the agent's folders and imports its settings.
   * @param {object} [options] installPath, logFolder: Windows paths; agent: further values of the agent's.
   */
  static async install(prefix, { installPath = kInstallPath, logFolder = kLogFolder, agent = {} } = {}) {
    const [program, scripts] = [prefix.path(kProgramFolder), prefix.path(`${installPath}\\dct`)];
    for (const folder of [program, scripts, prefix.path(kStandinFolder), prefix.path(logFolder)]) {
      mkdirSync(folder, { recursive: true });
    }
    for (const name of ['mdDCT.exe', 'mddct_run_as_system.exe', 'standin/powershell.exe']) {
      copyFileSync(join(binaries, name), join(program, basename(name)));
    }
    for (const name of ['vdx-support.ps1', 'vdx-query.ps1']) {
      writeFileSync(join(scripts, name), '# the stand-in takes its place\r\n');
    }
    const settings = {
      [`${kSettingsKey}\\Agent`]: { AgentInstallPath: installPath, UseRegistryForLoggingPath: 'true', ...agent },
      [`${kSettingsKey}\\Log`]: { LogFileDirectory: logFolder },
    };
    await prefix.importRegistry(settings);
    return Object.assign(new Product(), { prefix, settings, logFolder: prefix.path(logFolder), runs: 0 });
  }

  /** The folder in which the script puts its bundle. */
  get bundleFolder() {
    return join(this.logFolder, 'Temp');
  }

  #ownFiles() {
    const roots = [kProgramFolder, 'C:\\ProgramData', 'C:\\users', 'C:\\Program Files', 'C:\\windows\\temp'];
    return [...new Set([...roots.map((name) => this.prefix.path(name)), this.logFolder].flatMap(filesBelow))];
  }

  /** Processes of the run that still live: Wine tells of an end a moment before the system has finished with it. */
  async #running() {
    for (let patience = 30; ; patience--) {
      const living = this.prefix.processes().filter(({ command }) => /mddct|powershell/i.test(command));
      if (living.length === 0 || patience === 0) return living;
      await sleep(100);
    }
  }

  /** All text of the log files with that base name. */
  logText(base) {
    return this.#logFiles(base).map((file) => readFileSync(file, 'utf8')).join('');
  }

  /** The stand-in's calls in a run, by default the latest: what it was asked, and from where. */
  record(number = this.runs) {
    const file = this.prefix.path(recordOf(number));
    const lines = existsSync(file) ? readFileSync(file, 'utf8').trim().split('\n') : [];
    return lines.map((line) => {
      const [mode, outcome, folder, stdout, stderr, ...args] = line.split('\t');
      return { mode, outcome, folder, stdout, stderr, arguments: args };
    });
  }

  #logFiles(base) {
    const names = existsSync(this.logFolder) ? readdirSync(this.logFolder).sort() : [];
    return names.filter((name) => new RegExp(`^${base}-[\\d-]+\\.txt$`).test(name)).map((n) => join(this.logFolder, n));
  }

  /**
   * One run, to its end.
   * @param {object} options args: the program's arguments; asSystem: false starts it without the launcher; patch: one
   *   more function for the launcher; standin: what the stand-in is told; timeoutMs: of the whole run; program: another
   *   one of its folder that logs as it does.
   * @returns {Promise<object>} code (-1 after a time-out), ms, output; log and debug: records of the two files; errors:
   *   the messages at ERROR and above; record: what the stand-in was asked; bundles: what it wrote, as {name, size,
   *   sha256}; leftBehind: files that were not there before, logs apart; running: processes of the run that still live.
   */
  async run({ args = [], asSystem = true, patch = '', standin = {}, timeoutMs = 180000, program = 'mdDCT.exe' } = {}) {
    const number = ++this.runs;
    const told = { record: recordOf(number), ...standin };
    const env = { MDDCT_PATCH: patch, MDDCT_STANDIN: Object.entries(told).map((entry) => entry.join('=')).join(';') };
    const files = new Set(this.#ownFiles());
    const sizes = new Map(this.#logFiles('(log|debug)').map((file) => [file, statSync(file).size]));
    const endWatch = watchBundles(this.bundleFolder, join(this.prefix.folder, `witness-${number}`));
    const programs = [...(asSystem ? ['mddct_run_as_system.exe'] : []), program];
    const line = [...programs.map((name) => `${kProgramFolder}\\${name}`), ...args];
    const result = await this.prefix.wine(line, { timeoutMs, env });
    const bundles = await endWatch();
    const newLines = (base) => parseLog(Buffer.concat(this.#logFiles(base).map(
      (file) => readFileSync(file).subarray(sizes.get(file) ?? 0))).toString('utf8'));
    const [log, debug] = [newLines('log'), newLines('debug')];
    const logFiles = this.#logFiles('(log|debug)');
    return { ...result, log, debug, bundles, record: this.record(number),
      errors: debug.filter(({ level }) => level === 'ERROR' || level === 'FATAL').map(({ message }) => message),
      leftBehind: this.#ownFiles().filter((file) => !files.has(file) && !logFiles.includes(file)),
      running: await this.#running() };
  }
}
