// Child processes that always end: each has a process group, a file for its output, and a time limit of its own.
import { spawn } from 'node:child_process';
import { randomUUID } from 'node:crypto';
import { closeSync, existsSync, fstatSync, mkdirSync, openSync, readFileSync, readSync, readdirSync, rmSync,
  writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';

/** Returns whether a process of that number exists. A zombie counts as gone. */
export function alive(pid) {
  try {
    return !/\) [ZX] /.test(readFileSync(`/proc/${pid}/stat`, 'latin1'));
  } catch {
    return false;
  }
}

// The leaders of the process groups that this process started and that have not ended.
const startedLeaders = new Set();

/** Starts a command in a process group of its own. endStarted() ends it as long as it has not exited. */
export function startGroup(command, args, options) {
  const child = spawn(command, args, { ...options, detached: true });
  if (child.pid) startedLeaders.add(child.pid);
  child.once('exit', () => startedLeaders.delete(child.pid));
  return child;
}

/** Ends every process group that startGroup() or run() started and that still runs. */
export const endStarted = () => Promise.all([...startedLeaders].map((pid) => endGroup(pid)));

/** Ends a process group: sends SIGTERM, waits up to graceMs, then sends SIGKILL. Returns when the leader is gone. */
export async function endGroup(pid, graceMs = 2000) {
  for (const [signal, limit] of [['SIGTERM', graceMs], ['SIGKILL', 5000]]) {
    try {
      process.kill(-pid, signal);
    } catch {
      return;
    }
    for (const end = Date.now() + limit; Date.now() < end && alive(pid);) await sleep(20);
    if (!alive(pid)) return;
  }
}

/**
 * Runs a command to its end and waits for the command alone. Wine's services inherit the output and would keep a pipe
 * open, so the output goes to a file.
 * @returns {Promise<{code: number, timedOut: boolean, ms: number, output: string}>} code is -1 after a time-out.
 */
export async function run(command, args, { env, cwd, timeoutMs = 60000 } = {}) {
  const file = join(tmpdir(), `mddct-${randomUUID()}`);
  const out = openSync(file, 'wx+');
  rmSync(file);  // the file exists until the last process has closed it
  const began = Date.now();
  try {
    const child = startGroup(command, args, { env, cwd, stdio: ['ignore', out, out] });
    const ended = new Promise((resolve, reject) => {
      child.once('error', reject);
      child.once('exit', (code, signal) => resolve(signal ? -1 : code));
    });
    let timedOut = false;
    const timer = setTimeout(() => {
      timedOut = true;
      endGroup(child.pid, 300);
    }, timeoutMs);
    const code = await ended.finally(() => clearTimeout(timer));
    const output = Buffer.alloc(fstatSync(out).size);
    readSync(out, output, 0, output.length, 0);
    return { code: timedOut ? -1 : code, timedOut, ms: Date.now() - began, output: output.toString('utf8') };
  } finally {
    closeSync(out);
  }
}

/** Runs a command as run() does and returns its output. @throws {Error} with the output when the exit code is not 0. */
export async function must(command, args, options) {
  const result = await run(command, args, options);
  if (result.code !== 0) {
    const how = result.timedOut ? `did not end in ${result.ms} ms` : `ended with ${result.code}`;
    throw new Error(`${command} ${args.join(' ')} ${how}:\n${result.output.slice(-4000)}`);
  }
  return result.output;
}

/** Returns every process whose environment holds NAME=VALUE, as {pid, command}, with blanks between the arguments. */
export function processesWith(name, value) {
  const found = [];
  for (const pid of readdirSync('/proc').filter((entry) => /^\d+$/.test(entry))) {
    try {
      if (!readFileSync(`/proc/${pid}/environ`, 'latin1').split('\0').includes(`${name}=${value}`)) continue;
      if (!alive(pid)) continue;
      const command = readFileSync(`/proc/${pid}/cmdline`, 'utf8').replaceAll('\0', ' ').trim();
      found.push({ pid: Number(pid), command });
    } catch {
      // It ended in the meantime, or it belongs to another user.
    }
  }
  return found;
}

/** Runs fn while it holds a lock file, which excludes other processes too. Takes over a lock whose owner is gone. */
export async function withLock(file, fn) {
  for (;;) {
    try {
      writeFileSync(file, String(process.pid), { flag: 'wx' });
      break;
    } catch (error) {
      if (error.code !== 'EEXIST') throw error;
      const owner = existsSync(file) ? readFileSync(file, 'utf8') : '';
      if (owner && !alive(owner)) rmSync(file, { force: true });
      else await sleep(100);
    }
  }
  try {
    return await fn();
  } finally {
    rmSync(file, { force: true });
  }
}

/** Creates an empty folder and returns its name. Removes what was there before. */
export function emptyFolder(folder) {
  rmSync(folder, { recursive: true, force: true });
  mkdirSync(folder, { recursive: true });
  return folder;
}
