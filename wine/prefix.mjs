// Wine prefixes: one template, made once, and for every test a clone of it (hard links, which takes 25 ms).
import { createHash } from 'node:crypto';
import { copyFileSync, existsSync, readFileSync, renameSync, rmSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';
import { certificates } from './certificates.mjs';
import { binaries, stateFolder } from './paths.mjs';
import { emptyFolder, endStarted, must, processesWith, run, withLock } from './processes.mjs';

// Wine rewrites a registry file in place when the file has several links. So a clone gets copies of these files.
const kRegistryFiles = ['system.reg', 'user.reg', 'userdef.reg'];

// With this value a crash prints one line and not the listing of a debugger.
const kTemplateRegistry = {
  'HKEY_LOCAL_MACHINE\\Software\\Microsoft\\Windows NT\\CurrentVersion\\AeDebug': { Auto: '0' },
};

/** Returns the environment in which Wine runs: no window, no debug output, no proxy, nothing of the caller's Wine. */
function wineEnvironment(folder) {
  const env = Object.fromEntries(Object.entries(process.env).filter(
    ([name]) => !/^(wine|mddct|.*_proxy$|display$|wayland_display$|node_)/i.test(name)));
  return { ...env, WINEPREFIX: folder, WINEDEBUG: '-all', WINEDLLOVERRIDES: 'mscoree,mshtml=' };
}

/** Returns the name by which Windows programs reach a file of this machine. */
export const onDriveZ = (file) => `Z:${file.replaceAll('/', '\\')}`;

// The prefixes in which something may run.
const activePrefixes = new Set();

/** Ends everything that this process started, in a prefix or outside of one. */
export async function endEverything() {
  await endStarted();
  for (const prefix of [...activePrefixes]) await prefix.stop();
}

/** On SIGINT, SIGTERM and SIGHUP, ends everything that this process started, and then the process itself. */
export function endOnSignals(end = endEverything) {
  for (const [signal, number] of [['SIGINT', 2], ['SIGTERM', 15], ['SIGHUP', 1]]) {
    process.once(signal, async () => {
      await end().catch((error) => console.error(error.message));
      process.exit(128 + number);
    });
  }
}

/** One prefix. End it with remove(), or with stop() to keep its files. */
export class Prefix {
  constructor(folder) {
    this.folder = folder;
    this.env = wineEnvironment(folder);
    /** A command that runs the command behind it. wine() starts programs through it. */
    this.wrapper = [];
    activePrefixes.add(this);
  }

  /** Returns the name on this machine of a file on drive C. */
  path(windowsName) {
    const [, rest] = /^c:\\(.*)$/i.exec(windowsName) ?? [];
    if (rest === undefined) throw new Error(`not on drive C: ${windowsName}`);
    return join(this.folder, 'drive_c', ...rest.split('\\'));
  }

  /** Runs a Windows program to its end, as run() does. */
  wine(args, { env = {}, ...options } = {}) {
    const [command, ...rest] = [...this.wrapper, 'wine', ...args];
    return run(command, rest, { ...options, env: { ...this.env, ...env } });
  }

  /**
   * Imports registry values, as UTF-16 with a byte order mark, the only form that keeps every character.
   * @param {object} keys key path -> {value name -> string, bytes, or null to remove the value}.
   */
  async importRegistry(keys) {
    const quote = (text) => `"${text.replaceAll('\\', '\\\\').replaceAll('"', '\\"')}"`;
    const data = (value) => (typeof value === 'string' ? quote(value) :
      value ? `hex:${[...value].map((byte) => byte.toString(16).padStart(2, '0'))}` : '-');
    const lines = Object.entries(keys).flatMap(([key, values]) => [`[${key}]`, ...Object.entries(values).map(
      ([name, value]) => `${quote(name)}=${data(value)}`)]);
    const file = join(this.folder, `import-${Date.now()}.reg`);
    writeFileSync(file, `\ufeffWindows Registry Editor Version 5.00\r\n${lines.join('\r\n')}\r\n`, 'utf16le');
    await must('wine', ['reg', 'import', onDriveZ(file)], { env: this.env });
    rmSync(file);
  }

  /** Returns everything that runs in this prefix, with Wine's services, as {pid, command}. */
  processes() {
    return processesWith('WINEPREFIX', this.folder);
  }

  /** Ends everything that runs in this prefix, and waits until it is gone. @throws {Error} after 10 seconds. */
  async stop() {
    await run('wineserver', ['-k'], { env: this.env, timeoutMs: 10000 });
    for (const end = Date.now() + 10000; Date.now() < end;) {
      const left = this.processes();
      if (left.length === 0) return void activePrefixes.delete(this);
      if (end - Date.now() < 7000) await run('kill', ['-9', ...left.map(({ pid }) => String(pid))]);
      await sleep(20);
    }
    throw new Error(`still running in ${this.folder}: ${this.processes().map(({ command }) => command).join('; ')}`);
  }

  /** Ends the prefix and removes its files. */
  async remove() {
    await this.stop();
    rmSync(this.folder, { recursive: true, force: true });
  }
}

async function makeTemplate(folder, authority) {
  const work = new Prefix(emptyFolder(`${folder}.new`));
  try {
    await must('wineboot', ['-i'], { env: work.env, timeoutMs: 180000 });
    await work.importRegistry(kTemplateRegistry);
    await must('wine', [join(binaries, 'mddct_trust_root.exe'), onDriveZ(authority.der)], { env: work.env });
    await must('wineserver', ['-w'], { env: work.env, timeoutMs: 60000 });
  } finally {
    await work.stop();
  }
  rmSync(folder, { recursive: true, force: true });
  renameSync(work.folder, folder);
}

/**
 * Returns the template: a booted prefix that trusts the test authority. Makes it again when Wine or the authority has
 * changed.
 * @returns {Promise<string>} its folder, in which nothing may run.
 */
export async function templatePrefix() {
  const { authority, authorityPem } = await certificates();
  const folder = join(stateFolder(), 'template');
  const version = await must('wine', ['--version'], { env: wineEnvironment(folder) });
  const key = createHash('sha256').update(`2\n${version}\n${JSON.stringify(kTemplateRegistry)}\n`)
    .update(authorityPem).digest('hex');
  await withLock(`${folder}.lock`, async () => {
    const mark = join(folder, 'mddct-template');
    if (existsSync(mark) && readFileSync(mark, 'utf8') === key) return;
    rmSync(mark, { force: true });
    await makeTemplate(folder, authority);
    writeFileSync(mark, key);
  });
  return folder;
}

/** Clones the template for one test, below build/wine/prefixes/, and returns the new prefix. */
export async function clonePrefix(name) {
  const template = await templatePrefix();
  const folder = join(stateFolder('prefixes'), name.replace(/[^\w-]+/g, '-'));
  const prefix = new Prefix(folder);
  if (existsSync(folder)) await prefix.remove();
  await must('cp', ['-al', template, folder]);
  for (const file of kRegistryFiles) {
    rmSync(join(folder, file));
    copyFileSync(join(template, file), join(folder, file));
  }
  return prefix;
}
