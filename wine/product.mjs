// mdDCT.exe in a prefix: its installation, one run of it, and everything that the run leaves.
import { createHash } from 'node:crypto';
import { copyFileSync, createReadStream, existsSync, linkSync, mkdirSync, readFileSync, readdirSync, rmSync, statSync,
  writeFileSync } from 'node:fs';
import { basename, join } from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';
import { binaries } from './paths.mjs';

export const kProgramFolder = 'C:\\mddct';
/** PowerShell's own folder, where Windows has it. The stand-in takes the place of Wine's program in it. */
export const kPowerShellFolder = 'C:\\windows\\system32\\WindowsPowerShell\\v1.0';
export const kInstallPath = 'C:\\Program Files\\Calvera\\Meridon\\Agent';
export const kLogFolder = 'C:\\ProgramData\\Calvera\\Meridon\\logs';
export const kSettingsKey = 'HKEY_LOCAL_MACHINE\\Software\\Calvera\\Meridon';
export const kProxyKey = `${kSettingsKey}\\Node Manager`;
const kStandinFolder = 'C:\\standin';  // for the records of the stand-in, which do not count as left behind
const recordOf = (run) => `${kStandinFolder}\\record-${run}.txt`;

const kLine = /^(\S+) (.{5}) \(([^()]*)-([0-9A-F]+)\) <[^>]*> \[[^\]]*\] ([^]*)$/;

/** Splits the text of a log file into records. A message may hold line breaks. */
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
 * Links every bundle into the folder keep as soon as it appears, so that its bytes can be compared after its removal.
 * Checks for bundles every 5 ms. Only a bundle that is never sent is gone sooner.
 * @returns {function} ends the watch and returns the bundles seen, as {name, size, sha256}.
 */
function watchBundles(folder, keep) {
  mkdirSync(keep);
  const list = () => (existsSync(folder) ? readdirSync(folder) : []);
  const [earlier, names] = [list(), new Set()];
  const linkNew = () => {
    for (const name of list()) {
      if (names.has(name) || earlier.includes(name) || !name.endsWith('.zip')) continue;
      try {
        linkSync(join(folder, name), join(keep, name));
        names.add(name);
      } catch (error) {
        // The run may have removed the bundle between the two calls.
        if (error.code !== 'ENOENT') throw error;
      }
    }
  };
  const timer = setInterval(linkNew, 5);
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

/** The program as it is installed in one prefix. */
export class Product {
  /**
   * Copies the program, the launcher and the stand-in for powershell.exe, makes the agent's folders and imports the
   * agent's settings.
   * @param {object} [options] installPath, logFolder: Windows paths; agent: further registry values of the agent.
   */
  static async install(prefix, { installPath = kInstallPath, logFolder = kLogFolder, agent = {} } = {}) {
    const [program, scripts] = [prefix.path(kProgramFolder), prefix.path(`${installPath}\\dct`)];
    for (const folder of [program, scripts, prefix.path(kStandinFolder), prefix.path(logFolder)]) {
      mkdirSync(folder, { recursive: true });
    }
    for (const name of ['mdDCT.exe', 'mddct_run_as_system.exe']) {
      copyFileSync(join(binaries, name), join(program, name));
    }
    const powerShell = prefix.path(`${kPowerShellFolder}\\powershell.exe`);
    rmSync(powerShell);  // a link to the template's file, which must stay as it is
    copyFileSync(join(binaries, 'standin', 'powershell.exe'), powerShell);
    for (const name of ['vdx-support.ps1', 'vdx-query.ps1']) {
      writeFileSync(join(scripts, name), '# the stand-in for PowerShell does not read this\r\n');
    }
    const settings = {
      [`${kSettingsKey}\\Agent`]: { AgentInstallPath: installPath, UseRegistryForLoggingPath: 'true', ...agent },
      [`${kSettingsKey}\\Log`]: { LogFileDirectory: logFolder },
    };
    await prefix.importRegistry(settings);
    return Object.assign(new Product(), { prefix, settings, logFolder: prefix.path(logFolder), runs: 0 });
  }

  /** The folder into which the script writes its bundle. */
  get bundleFolder() {
    return join(this.logFolder, 'Temp');
  }

  #ownFiles() {
    const roots = [kProgramFolder, 'C:\\ProgramData', 'C:\\users', 'C:\\Program Files', 'C:\\windows\\temp'];
    return [...new Set([...roots.map((name) => this.prefix.path(name)), this.logFolder].flatMap(filesBelow))];
  }

  /** Returns the processes of the run that still exist. Wine reports an end a moment before the process is gone. */
  async #running() {
    for (let checksLeft = 30; ; checksLeft--) {
      const running = this.prefix.processes().filter(({ command }) => /mddct|powershell/i.test(command));
      if (running.length === 0 || checksLeft === 0) return running;
      await sleep(100);
    }
  }

  /** Returns the whole text of the log files with that base name. */
  logText(base) {
    return this.#logFiles(base).map((file) => readFileSync(file, 'utf8')).join('');
  }

  /**
   * Returns the calls of the stand-in in one run, by default the latest: what it was asked, in which folder, and which
   * file it was.
   */
  record(number = this.runs) {
    const file = this.prefix.path(recordOf(number));
    const lines = existsSync(file) ? readFileSync(file, 'utf8').trim().split('\n') : [];
    return lines.map((line) => {
      const [mode, outcome, folder, program, stdout, stderr, ...args] = line.split('\t');
      return { mode, outcome, folder, program, stdout, stderr, arguments: args };
    });
  }

  #logFiles(base) {
    const names = existsSync(this.logFolder) ? readdirSync(this.logFolder).sort() : [];
    return names.filter((name) => new RegExp(`^${base}-[\\d-]+\\.txt$`).test(name)).map((n) => join(this.logFolder, n));
  }

  /**
   * Runs the program once, to its end.
   * @param {object} options args: the arguments of the program; asSystem: false starts it without the launcher; patch:
   *   one more function that the launcher patches; standin: the orders for the stand-in; timeoutMs: the time limit of
   *   the whole run; program: another program of the same folder that writes the same log; env: further environment
   *   variables; cwd: the current folder, as a path of this machine.
   * @returns {Promise<object>} code (-1 after a time-out), timedOut, ms, output; log and debug: the records that the
   *   run added to the two files; errors: the messages at ERROR and above; record: the calls of the stand-in; bundles:
   *   what the stand-in wrote, as {name, size, sha256}; leftBehind: new files except logs; running: processes of the
   *   run that still exist.
   */
  async run({ args = [], asSystem = true, patch = '', standin = {}, timeoutMs = 180000, program = 'mdDCT.exe',
    env: more = {}, cwd } = {}) {
    const number = ++this.runs;
    const orders = { record: recordOf(number), ...standin };
    const standinText = Object.entries(orders).map((entry) => entry.join('=')).join(';');
    const env = { MDDCT_PATCH: patch, MDDCT_STANDIN: standinText, ...more };
    const files = new Set(this.#ownFiles());
    const sizes = new Map(this.#logFiles('(log|debug)').map((file) => [file, statSync(file).size]));
    const endWatch = watchBundles(this.bundleFolder, join(this.prefix.folder, `bundles-${number}`));
    const programs = [...(asSystem ? ['mddct_run_as_system.exe'] : []), program];
    const line = [...programs.map((name) => `${kProgramFolder}\\${name}`), ...args];
    const result = await this.prefix.wine(line, { timeoutMs, env, cwd });
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
