// Child processes that always end: each in a group of its own, with its output in a file and its own time-out.
import { spawn } from 'node:child_process';
import { randomUUID } from 'node:crypto';
import { closeSync, existsSync, fstatSync, mkdirSync, openSync, readFileSync, readSync, readdirSync, rmSync,
  writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';

/** True while a process of that number exists (a zombie counts as gone). */
export function alive(pid) {
  try {
    return !/\) [ZX] /.test(readFileSync(`/proc/${pid}/stat`, 'latin1'));
  } catch {
    return false;
  }
}

// The leaders of the groups that this process started and that have not ended.
const started = new Set();

/** Starts a command in a group of its own; it counts as started until it exits. */
export function startGroup(command, args, options) {
  const child = spawn(command, args, { ...options, detached: true });
  if (child.pid) started.add(child.pid);
  child.once('exit', () => started.delete(child.pid));
  return child;
}

/** Ends every group that startGroup() or run() started and that still lives. */
export const endStarted = () => Promise.all([...started].map((pid) => endGroup(pid)));

/** Ends a process group: asks, waits up to graceMs, then insists. Returns when its leader is gone. */
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
 * Runs a command to its end. Only the command itself is waited for: Wine's services inherit the output and would hold
 * a pipe open, so the output goes to a file.
 * @returns {Promise<{code: number, timedOut: boolean, ms: number, output: string}>} code is -1 after a time-out.
 */
export async function run(command, args, { env, cwd, timeoutMs = 60000 } = {}) {
  const file = join(tmpdir(), `mddct-${randomUUID()}`);
  const out = openSync(file, 'wx+');
  rmSync(file);  // it lives as long as somebody has it open
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

/** run(), but anything else than exit code 0 is an error that shows the output. */
export async function must(command, args, options) {
  const result = await run(command, args, options);
  if (result.code !== 0) {
    const how = result.timedOut ? `did not end in ${result.ms} ms` : `ended with ${result.code}`;
    throw new Error(`${command} ${args.join(' ')} ${how}:\n${result.output.slice(-4000)}`);
  }
  return result.output;
}

/** Every process whose environment holds NAME=VALUE, as {pid, command}; command has blanks between the arguments. */
export function processesWith(name, value) {
  const found = [];
  for (const pid of readdirSync('/proc').filter((entry) => /^\d+$/.test(entry))) {
    try {
      if (!readFileSync(`/proc/${pid}/environ`, 'latin1').split('\0').includes(`${name}=${value}`)) continue;
      if (!alive(pid)) continue;
      const command = readFileSync(`/proc/${pid}/cmdline`, 'utf8').replaceAll('\0', ' ').trim();
      found.push({ pid: Number(pid), command });
    } catch {
      // It ended while we looked, or it belongs to somebody else.
    }
  }
  return found;
}

/** Runs fn while holding a lock file, also against other processes; a lock whose owner is gone is taken over. */
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

/** An empty folder: whatever stood there is removed. */
export function emptyFolder(folder) {
  rmSync(folder, { recursive: true, force: true });
  mkdirSync(folder, { recursive: true });
  return folder;
}
