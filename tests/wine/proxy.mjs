// A real forward proxy: tinyproxy on loopback, with a configuration and a log of its own.
import { once } from 'node:events';
import { closeSync, openSync, readFileSync, writeFileSync } from 'node:fs';
import { connect, createServer } from 'node:net';
import { join } from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';
import { stateFolder } from '../../scripts/wine/paths.mjs';
import { alive, emptyFolder, endGroup, startGroup } from '../../scripts/wine/proc.mjs';

async function freePort(address) {
  const server = createServer().listen(0, address);
  await once(server, 'listening');
  const { port } = server.address();
  server.close();
  await once(server, 'close');
  return port;
}

async function accepts(address, port) {
  const socket = connect(port, address);
  try {
    await once(socket, 'connect');
    return true;
  } catch {
    return false;
  } finally {
    socket.destroy();
  }
}

class Proxy {
  constructor(address, port, pid, logFile) {
    Object.assign(this, { address, port, pid, logFile });
    this.host = `${address}:${port}`;
  }

  /** Its log, as text. */
  get log() {
    return readFileSync(this.logFile, 'utf8');
  }

  /** What it was asked for so far, in order: "CONNECT localhost:443", "GET http://localhost/x". */
  get requests() {
    return [...this.log.matchAll(/Request \(file descriptor \d+\): (.*) HTTP\/1\.\d/g)].map(([, request]) => request);
  }

  stop() {
    return endGroup(this.pid);
  }
}

/**
 * Starts a proxy that tunnels to every port.
 * @param {string} name of its folder.
 * @param {object} [options] address, port: where it listens, by default on a free port; credentials: "user password",
 *   which it then demands.
 */
export async function startProxy(name, { address = '127.0.0.1', port, credentials } = {}) {
  const folder = emptyFolder(stateFolder('proxies', name));
  const [config, logFile] = [join(folder, 'tinyproxy.conf'), join(folder, 'log')];
  port ??= await freePort(address);
  const lines = [`Port ${port}`, `Listen ${address}`, 'Allow 127.0.0.0/8', 'Timeout 600', 'MaxClients 50',
    'LogLevel Connect', ...(credentials ? [`BasicAuth ${credentials}`] : [])];
  writeFileSync(config, `${lines.join('\n')}\n`);
  const log = openSync(logFile, 'w');
  const { pid } = startGroup('tinyproxy', ['-d', '-c', config], { stdio: ['ignore', log, log] });
  closeSync(log);
  const proxy = new Proxy(address, port, pid, logFile);
  for (const end = Date.now() + 5000; Date.now() < end && alive(pid); await sleep(20)) {
    if (await accepts(address, port)) return proxy;
  }
  await proxy.stop();
  throw new Error(`tinyproxy does not listen on ${proxy.host}:\n${proxy.log}`);
}
