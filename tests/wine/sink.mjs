// A small HTTPS blob service of our own: it enforces the service's rules, records every request and every byte, and
// misbehaves on request.
import { createHash } from 'node:crypto';
import { once } from 'node:events';
import { createServer } from 'node:https';
import { setTimeout as sleep } from 'node:timers/promises';
import { BlobService, errorBody } from './blob_service.mjs';

/**
 * How one request is treated; all optional.
 * @typedef {object} Behaviour
 * @property {number} [status] answered instead of the service's own; headers, body: go with it.
 * @property {'keep' | 'close' | 'reset'} [early] answers before the body is read, then reads on, closes or resets.
 * @property {number} [lateMs] answers that much later.
 * @property {number} [resetAfter] resets the connection after that many bytes of the body.
 * @property {number} [stallAfter] stops reading for good after that many bytes.
 * @property {number} [pauseAfter] after that many bytes reads on only pauseMs later.
 * @property {boolean} [silent] never answers.
 * @property {number} [bodyBytes] the reply has a body of that size.
 * @property {number} [headerBytes] the reply has headers of that size together.
 */

class Sink {
  constructor({ leaf, plan, ...service }) {
    this.service = new BlobService(service);
    this.plan = plan ?? (() => ({}));
    /** One entry a request, in the order of arrival; its fields are filled as the request goes on. */
    this.requests = [];
    this.tlsFailures = 0;
    this.rawSockets = new Map();
    this.server = createServer({ key: leaf.key, cert: leaf.cert, maxHeaderSize: 1 << 16 });
    Object.assign(this.server, { requestTimeout: 0, headersTimeout: 0, keepAliveTimeout: 0 });
    this.server.on('connection', (socket) => {
      this.rawSockets.set(socket.remotePort, socket);
      socket.once('close', () => this.rawSockets.delete(socket.remotePort));
      socket.on('error', () => {});
    });
    this.server.on('tlsClientError', () => this.tlsFailures++);
    this.server.on('clientError', (error, socket) => socket.destroy());
    this.server.on('request', (request, response) => this.#serve(request, response).catch((error) => {
      this.requests.at(-1).broken = error.message;
      request.socket.destroy();
    }));
  }

  get port() {
    return this.server.address().port;
  }

  /** https://localhost:port, without a slash at its end. */
  get origin() {
    return `https://localhost:${this.port}`;
  }

  /** Closes every connection and the port. */
  async stop() {
    for (const socket of this.rawSockets.values()) socket.destroy();
    this.server.close();
    await once(this.server, 'close');
  }

  #record(request) {
    const [, target] = /^(?:https?:\/\/[^/?]*)?(.*)$/.exec(request.url);
    const [path, query = ''] = target.split(/\?(.*)/s);
    const entry = { line: `${request.method} ${request.url} HTTP/${request.httpVersion}`, method: request.method, path,
      queryText: query, query: new URLSearchParams(query), headers: request.headers, rawHeaders: request.rawHeaders,
      bytes: 0, sha256: null, complete: false, status: null, startedAt: Date.now(), endedAt: null };
    this.requests.push(entry);
    return entry;
  }

  #reset(socket) {
    this.rawSockets.get(socket.remotePort)?.resetAndDestroy();
    socket.destroy();
  }

  async #serve(request, response) {
    request.on('error', () => {});
    response.on('error', () => {});
    const entry = this.#record(request);
    const behaviour = this.plan(entry, this.requests.length - 1) ?? {};
    const verdict = this.service.judge(entry);
    if (behaviour.early) {
      await this.#answer(response, entry, behaviour, verdict);
      if (behaviour.early === 'keep') {
        for await (const chunk of request) entry.bytes += chunk.length;
        return;
      }
      await sleep(50);
      return behaviour.early === 'reset' ? this.#reset(request.socket) : request.socket.destroy();
    }
    const hash = verdict.operation && this.service.digestFor(verdict.operation, entry.path);
    if (!(await this.#read(request, entry, behaviour, hash))) return;
    if (verdict.operation && !behaviour.status) {
      this.service.store(verdict.operation, entry.path, entry.bytes, hash);
    }
    if (behaviour.lateMs) await sleep(behaviour.lateMs);
    if (!behaviour.silent) await this.#answer(response, entry, behaviour, verdict);
  }

  // True when the whole body has come.
  async #read(request, entry, { resetAfter, stallAfter, pauseAfter = Infinity, pauseMs }, blobHash) {
    const own = createHash('sha256');
    const stop = resetAfter ?? stallAfter ?? Infinity;
    let pause = pauseAfter;
    try {
      for await (const chunk of request) {
        entry.bytes += chunk.length;
        own.update(chunk);
        blobHash?.update(chunk);
        if (entry.bytes >= pause) {
          pause = Infinity;
          await sleep(pauseMs);
        }
        if (entry.bytes < stop) continue;
        if (resetAfter === undefined) await once(request.socket, 'close');
        this.#reset(request.socket);
        return false;
      }
    } catch {
      // The client went away: an incomplete body is the record of it.
    }
    entry.endedAt = Date.now();
    entry.sha256 = own.digest('hex');
    entry.complete = request.complete;
    return request.complete;
  }

  async #answer(response, entry, behaviour, verdict) {
    const refused = behaviour.status === undefined && !verdict.operation ? verdict : null;
    entry.status = behaviour.status ?? refused?.status ?? 201;
    entry.code = refused?.code;
    const body = behaviour.body ?? (refused ? errorBody(refused) : '');
    const headers = { 'x-ms-request-id': String(this.requests.length), 'x-ms-version': '2020-04-08',
      ...behaviour.headers };
    if (refused) Object.assign(headers, { 'x-ms-error-code': refused.code, 'content-type': 'application/xml' });
    if (behaviour.early === 'close') headers.connection = 'close';
    for (let n = 0; n * 8000 < (behaviour.headerBytes ?? 0); n++) headers[`x-fill-${n}`] = 'f'.repeat(7988);
    headers['content-length'] = behaviour.bodyBytes ?? Buffer.byteLength(body);
    response.writeHead(entry.status, headers);
    const piece = Buffer.alloc(1 << 20, 'r');
    for (let left = behaviour.bodyBytes ?? 0; left > 0 && !response.destroyed; left -= piece.length) {
      if (response.write(piece.subarray(0, left))) continue;
      await Promise.race(['drain', 'close'].map((event) => once(response, event)));
    }
    response.end(behaviour.bodyBytes ? undefined : body);
  }
}

/**
 * Starts a sink on a free port of 127.0.0.1.
 * @param {object} options leaf: the certificate; plan: (request, index) => Behaviour; the rest is BlobService's.
 */
export async function startSink(options) {
  const sink = new Sink(options);
  sink.server.listen(0, '127.0.0.1');
  await once(sink.server, 'listening');
  return sink;
}

/** A port of 127.0.0.1 on which nothing listens. */
export async function closedPort() {
  const server = createServer().listen(0, '127.0.0.1');
  await once(server, 'listening');
  const { port } = server.address();
  server.close();
  return port;
}
