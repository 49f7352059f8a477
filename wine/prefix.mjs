// Wine prefixes: one template, made once, and a clone of it (hard links, 25 ms) for every test.
import { createHash } from 'node:crypto';
import { copyFileSync, existsSync, readFileSync, renameSync, rmSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';
import { certificates } from './certificates.mjs';
import { binaries, stateFolder } from './paths.mjs';
import { emptyFolder, endStarted, must, processesWith, run, withLock } from './processes.mjs';

// Wine rewrites a registry file in place when it has several links: a clone gets copies of these.
const kRegistryFiles = ['system.reg', 'user.reg', 'userdef.reg'];

// Crashes end in one line instead of a debugger's listing.
const kTemplateRegistry = {
  'HKEY_LOCAL_MACHINE\\Software\\Microsoft\\Windows NT\\CurrentVersion\\AeDebug': { Auto: '0' },
};

/** The environment in which Wine runs: no window, no chatter, no proxy and nothing of the caller's own Wine. */
function wineEnvironment(folder) {
  const env = Object.fromEntries(Object.entries(process.env).filter(
    ([name]) => !/^(wine|mddct|.*_proxy$|display$|wayland_display$|node_)/i.test(name)));
  return { ...env, WINEPREFIX: folder, WINEDEBUG: '-all', WINEDLLOVERRIDES: 'mscoree,mshtml=' };
}

/** A file of this side, as Windows programs name it. */
export const onDriveZ = (file) => `Z:${file.replaceAll('/', '\\')}`;

// Those in which something may run.
const open = new Set();

/** Ends everything that this process started: in a prefix or beside it. */
export async function endEverything() {
  await endStarted();
  for (const prefix of [...open]) await prefix.stop();
}

/** When this process is told to end, it ends everything that it started first. */
export function endOnSignals(end = endEverything) {
  for (const [signal, number] of [['SIGINT', 2], ['SIGTERM', 15], ['SIGHUP', 1]]) {
    process.once(signal, async () => {
      await end().catch((error) => console.error(error.message));
      process.exit(128 + number);
    });
  }
}

/** One prefix. Always end it with remove(), or with stop() to keep its files. */
export class Prefix {
  constructor(folder) {
    this.folder = folder;
    this.env = wineEnvironment(folder);
    /** A command that runs the command behind it; programs are started through it. */
    this.through = [];
    open.add(this);
  }

  /** The file's name on this side, for a Windows name on drive C. */
  path(windowsName) {
    const [, rest] = /^c:\\(.*)$/i.exec(windowsName) ?? [];
    if (rest === undefined) throw new Error(`not on drive C: ${windowsName}`);
    return join(this.folder, 'drive_c', ...rest.split('\\'));
  }

  /** Runs a Windows program to its end; see run(). */
  wine(args, { env = {}, ...options } = {}) {
    const [command, ...rest] = [...this.through, 'wine', ...args];
    return run(command, rest, { ...options, env: { ...this.env, ...env } });
  }

  /**
   * Imports registry values, as UTF-16 with a mark: the only form in which every character survives.
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

  /** Everything that runs in this prefix, the background services included, as {pid, command}. */
  processes() {
    return processesWith('WINEPREFIX', this.folder);
  }

  /** Ends everything that runs in this prefix, and waits until it is gone. */
  async stop() {
    await run('wineserver', ['-k'], { env: this.env, timeoutMs: 10000 });
    for (const end = Date.now() + 10000; Date.now() < end;) {
      const left = this.processes();
      if (left.length === 0) return void open.delete(this);
      if (end - Date.now() < 7000) await run('kill', ['-9', ...left.map(({ pid }) => String(pid))]);
      await sleep(20);
    }
    throw new Error(`still running in ${this.folder}: ${this.processes().map(({ command }) => command).join('; ')}`);
  }

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
 * The template: a booted prefix that trusts the test authority. Made anew when Wine or the authority changed.
 * @returns {Promise<string>} its folder. Nothing may run in it.
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

/** A prefix of its own for one test, below build/wine/prefixes/. */
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
