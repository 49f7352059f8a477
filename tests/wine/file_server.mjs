// A plain HTTP server on loopback. It serves CRLs and PAC files, and counts direct requests and those through a proxy.
import { once } from 'node:events';
import { createServer } from 'node:http';

export class FileServer {
  /** path -> content, bytes (a CRL) or text (a PAC file). */
  files = new Map();
  /** One entry per request: its path, and whether it came through a proxy. */
  requests = [];
  /** Called and awaited before each answer. */
  beforeAnswer = () => {};
  #server = createServer(async ({ url, headers }, response) => {
    const path = url.replace(/^http:\/\/[^/]*/, '');
    this.requests.push({ path, proxied: url[0] !== '/' || 'via' in headers });
    const body = this.files.get(path);
    await this.beforeAnswer();
    const type = typeof body === 'string' ? 'application/x-ns-proxy-autoconfig' : 'application/pkix-crl';
    response.writeHead(body === undefined ? 404 : 200, { 'content-type': type, connection: 'close' }).end(body);
  });

  /** Listens on a free port of 127.0.0.1. Sets origin: http://localhost:port, without a slash at its end. */
  async start() {
    await once(this.#server.listen(0, '127.0.0.1'), 'listening');
    this.origin = `http://localhost:${this.#server.address().port}`;
  }

  /** Adds a PAC file that gives this answer for every URL, and returns its own URL. */
  addPac(name, answer) {
    this.files.set(`/${name}`, `function FindProxyForURL(url, host) { return ${JSON.stringify(answer)}; }\n`);
    return `${this.origin}/${name}`;
  }

  /** Returns how often a path was requested: [directly, through a proxy]. */
  counts(path) {
    return [false, true].map((through) => this.requests.filter(
      (request) => request.path === path && request.proxied === through).length);
  }

  stop() {
    this.#server.closeAllConnections();
    this.#server.close();
  }
}
