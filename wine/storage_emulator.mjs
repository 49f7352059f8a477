// The storage emulator, over HTTPS, on a free port.
import { closeSync, openSync, readFileSync, rmSync } from 'node:fs';
import { createRequire } from 'node:module';
import { dirname, join } from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';
import { alive, emptyFolder, endGroup, startGroup } from './processes.mjs';
import { developmentAccount } from './storage_signatures.mjs';

const require = createRequire(import.meta.url);

/**
 * Starts the emulator and waits until it listens.
 * @param {string} folder is emptied first, then holds the data and the output of the emulator. stop() removes it.
 * @param {{certFile: string, keyFile: string}} leaf the certificate that the emulator shows.
 * @returns {Promise<{port: number, pid: number, origin: string, account: object, stop: function}>} origin is the URL of
 *   the account.
 * @throws {Error} with the emulator's output, when it does not listen within 30 seconds.
 */
export async function startStorageEmulator(folder, leaf) {
  emptyFolder(folder);
  const main = join(dirname(require.resolve('azurite/package.json')), 'dist', 'src', 'blob', 'main.js');
  const output = join(folder, 'output.txt');
  const out = openSync(output, 'w');
  const args = [main, '--blobHost', '127.0.0.1', '--blobPort', '0', '--cert', leaf.certFile,
    '--key', leaf.keyFile, '--location', join(folder, 'data')];
  const child = startGroup(process.execPath, args, { cwd: folder, stdio: ['ignore', out, out] });
  closeSync(out);
  const stop = async () => {
    await endGroup(child.pid);
    rmSync(folder, { recursive: true, force: true });
  };
  for (const end = Date.now() + 30000; Date.now() < end; await sleep(50)) {
    const text = readFileSync(output, 'utf8');
    const [, port] = /successfully listen(?:s|ing) (?:on|at) https:\/\/127\.0\.0\.1:(\d+)/.exec(text) ?? [];
    if (port) {
      const origin = `https://localhost:${port}/${developmentAccount.name}`;
      return { port: Number(port), pid: child.pid, origin, account: developmentAccount, stop };
    }
    if (!alive(child.pid)) break;
  }
  const text = readFileSync(output, 'utf8');
  await stop();
  throw new Error(`the storage emulator did not start:\n${text}`);
}
