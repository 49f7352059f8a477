// A real forward proxy: tinyproxy on loopback, with its own configuration and log.
import { once } from 'node:events';
import { closeSync, openSync, readFileSync, writeFileSync } from 'node:fs';
import { createServer } from 'node:net';
import { join } from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';
import { stateFolder } from '../../wine/paths.mjs';
import { alive, emptyFolder, endGroup, startGroup } from '../../wine/processes.mjs';

async function freePort(address) {
  const server = createServer().listen(0, address);
  await once(server, 'listening');
  const { port } = server.address();
  await once(server.close(), 'close');
  return port;
}

/**
 * Starts a proxy that tunnels to every port.
 * @param {string} name of its folder.
 * @param {object} [options] address, port: where it listens, by default on a free port; credentials: "user password",
 *   which it then demands.
 * @returns {Promise<{host, requests, stop}>} requests: the request lines so far, in order, as "CONNECT localhost:443".
 */
export async function startProxy(name, { address = '127.0.0.1', port, credentials } = {}) {
  const folder = emptyFolder(stateFolder('proxies', name));
  const [config, logFile] = [join(folder, 'tinyproxy.conf'), join(folder, 'log')];
  port ??= await freePort(address);
  const lines = [`Port ${port}`, `Listen ${address}`, 'Allow 127.0.0.0/8', 'Timeout 600', 'MaxClients 50',
    'LogLevel Info', ...(credentials ? [`BasicAuth ${credentials}`] : [])];
  writeFileSync(config, `${lines.join('\n')}\n`);
  const log = openSync(logFile, 'w');
  const { pid } = startGroup('tinyproxy', ['-d', '-c', config], { stdio: ['ignore', log, log] });
  closeSync(log);
  const read = () => readFileSync(logFile, 'utf8');
  const stop = () => endGroup(pid);
  for (const end = Date.now() + 5000; Date.now() < end && alive(pid); await sleep(20)) {
    if (!read().includes('Accepting connections')) continue;
    return { host: `${address}:${port}`, stop, get requests() {
      return [...read().matchAll(/Request \(file descriptor \d+\): (.*) HTTP\/1\.\d/g)].map(([, request]) => request);
    } };
  }
  await stop();
  throw new Error(`tinyproxy does not listen on ${address}:${port}:\n${read()}`);
}
