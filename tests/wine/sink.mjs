// A small HTTPS blob service. It enforces the rules of the storage service, records every request, computes the digest
// of every blob, and misbehaves as a test plans it.
import { once } from 'node:events';
import { createServer } from 'node:https';
import { setTimeout as sleep } from 'node:timers/promises';
import { BlobService, errorBody } from './blob_service.mjs';

/**
 * How the sink treats one request. Every property is optional.
 * @typedef {object} Behaviour
 * @property {number} [status] answers with this status instead of the service's own.
 * @property {string} [location] the URL that an answer 3xx points to.
 * @property {'keep' | 'close' | 'reset'} [early] answers before it has read the body, then reads on, closes or
 *   resets.
 * @property {number} [lateMs] answers this many milliseconds late.
 * @property {number} [resetAfter] resets the connection after this many bytes of the body.
 * @property {number} [stallAfter] stops reading for good after this many bytes of the body.
 * @property {boolean} [silent] never answers.
 * @property {boolean} [stallReply] never sends the end of the reply's body.
 * @property {boolean} [cutReply] closes the connection before the end of the reply's body.
 * @property {number} [bodyBytes] sends a reply with a body of this size.
 * @property {number} [headerBytes] sends a reply whose headers have this size together.
 */

class Sink {
  /** One entry per request, in the order of arrival. The sink fills its fields while it reads the request. */
  requests = [];
  rawSockets = new Map();

  constructor({ leaf, plan = () => ({}), account }) {
    this.service = new BlobService(account);
    this.plan = plan;
    this.server = createServer({ key: leaf.key, cert: leaf.cert });
    Object.assign(this.server, { requestTimeout: 0, headersTimeout: 0, keepAliveTimeout: 0 });
    this.server.on('connection', (socket) => {
      this.rawSockets.set(socket.remotePort, socket);
      socket.once('close', () => this.rawSockets.delete(socket.remotePort)).on('error', () => {});
    });
    this.server.on('clientError', (error, socket) => socket.destroy());
    this.server.on('request', (request, response) => this.#serve(request, response).catch((error) => {
      console.error('the sink:', error);
      request.socket.destroy();
    }));
  }

  /** https://localhost:port, without a slash at its end. */
  get origin() {
    return `https://localhost:${this.server.address().port}`;
  }

  /** Closes every connection and the port. */
  async stop() {
    for (const socket of this.rawSockets.values()) socket.destroy();
    await once(this.server.close(), 'close');
  }

  #reset(socket) {
    this.rawSockets.get(socket.remotePort)?.resetAndDestroy();
    socket.destroy();
  }

  async #serve(request, response) {
    for (const stream of [request, response]) stream.on('error', () => {});
    const { method, url, headers } = request;
    // Through a proxy, Wine sends the whole URL even to the server.
    const [path, queryText = ''] = url.replace(/^https:\/\/[^/?]*/, '').split(/\?(.*)/s);
    const entry = { method, path, queryText, query: new URLSearchParams(queryText), headers,
      bytes: 0, complete: false, startedAt: Date.now(), endedAt: null };
    const behaviour = this.plan(entry, this.requests.push(entry) - 1) ?? {};
    const checked = this.service.check(entry);
    if (behaviour.early) await this.#answer(response, behaviour, checked);
    if (behaviour.early && behaviour.early !== 'keep') {
      await sleep(50);
      return behaviour.early === 'reset' ? this.#reset(request.socket) : request.socket.destroy();
    }
    const hash = checked.operation && this.service.digestFor(checked.operation, path);
    if (!(await this.#read(request, entry, behaviour, hash)) || behaviour.early) return;
    if (checked.operation && !behaviour.status) this.service.store(checked.operation, path, entry.bytes, hash);
    if (behaviour.lateMs) await sleep(behaviour.lateMs);
    if (!behaviour.silent) await this.#answer(response, behaviour, checked);
  }

  // Reads the body. Returns true when all of it has come.
  async #read(request, entry, { resetAfter = Infinity, stallAfter = Infinity }, hash) {
    try {
      for await (const chunk of request) {
        entry.bytes += chunk.length;
        hash?.update(chunk);
        if (entry.bytes < Math.min(resetAfter, stallAfter)) continue;
        if (stallAfter < Infinity) await once(request.socket, 'close');
        this.#reset(request.socket);
        return false;
      }
    } catch {
      // The client went away. The entry shows it: its body is incomplete.
    }
    Object.assign(entry, { endedAt: Date.now(), complete: request.complete });
    return request.complete;
  }

  async #answer(response, { status, location, early, headerBytes = 0, bodyBytes, stallReply, cutReply }, checked) {
    const headers = { 'x-ms-request-id': String(this.requests.length), 'x-ms-version': '2020-04-08' };
    const refused = status === undefined && !checked.operation;
    if (refused) Object.assign(headers, { 'x-ms-error-code': checked.code, 'content-type': 'application/xml' });
    const body = refused ? errorBody(checked) : status ? 'no' : '';
    if (location) headers.location = location;
    if (early === 'close') headers.connection = 'close';
    for (let n = 0; n * 8000 < headerBytes; n++) headers[`x-fill-${n}`] = 'f'.repeat(7988);
    headers['content-length'] = stallReply || cutReply ? 100 : bodyBytes ?? Buffer.byteLength(body);
    response.writeHead(status ?? checked.status ?? 201, headers);
    if (stallReply || cutReply) return void response.write('n', () => cutReply && response.destroy());
    const piece = Buffer.alloc(1 << 20, 'r');
    for (let left = bodyBytes ?? 0; left > 0 && !response.destroyed; left -= piece.length) {
      if (response.write(piece.subarray(0, left))) continue;
      const waiting = new AbortController();  // takes the listener away for which nothing came
      await Promise.race(['drain', 'close'].map((event) => once(response, event, waiting).catch(() => {})));
      waiting.abort();
    }
    response.end(bodyBytes ? undefined : body);
  }
}

/**
 * Starts a sink on a free port of 127.0.0.1.
 * @param {object} options leaf: the certificate; plan: (request, index) => Behaviour; account: as of BlobService.
 */
export async function startSink(options) {
  const sink = new Sink(options);
  await once(sink.server.listen(0, '127.0.0.1'), 'listening');
  return sink;
}
