// Plain HTTP on loopback: hands out CRLs and PAC files, and counts who came how.
import { once } from 'node:events';
import { createServer } from 'node:http';

export class FileServer {
  constructor() {
    /** path -> what is there, bytes or text. */
    this.files = new Map();
    /** One entry a request: path, and whether it came through a proxy. */
    this.requests = [];
    /** Awaited before an answer. */
    this.beforeAnswer = () => {};
    this.server = createServer(async ({ url, headers }, response) => {
      this.requests.push({ path: url.replace(/^http:\/\/[^/]*/, ''), proxied: url[0] !== '/' || 'via' in headers });
      const body = this.files.get(this.requests.at(-1).path);
      await this.beforeAnswer();
      const type = typeof body === 'string' ? 'application/x-ns-proxy-autoconfig' : 'application/pkix-crl';
      response.writeHead(body === undefined ? 404 : 200, { 'content-type': type, connection: 'close' }).end(body);
    });
  }

  /** http://localhost:port, without a slash at its end. */
  get origin() {
    return `http://localhost:${this.server.address().port}`;
  }

  /** Puts a PAC file there that gives this answer for every URL; returns its URL. */
  addPac(name, answer) {
    this.files.set(`/${name}`, `function FindProxyForURL(url, host) { return ${JSON.stringify(answer)}; }\n`);
    return `${this.origin}/${name}`;
  }

  /** How often a path was asked for, directly and through a proxy. */
  counts(path) {
    const asked = this.requests.filter((request) => request.path === path);
    const proxied = asked.filter((request) => request.proxied).length;
    return { direct: asked.length - proxied, proxied };
  }

  /** Listens on a free port of 127.0.0.1. */
  async start() {
    this.server.listen(0, '127.0.0.1');
    await once(this.server, 'listening');
  }

  async stop() {
    this.server.closeAllConnections();
    this.server.close();
    await once(this.server, 'close');
  }
}
