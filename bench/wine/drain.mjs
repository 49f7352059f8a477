// An HTTPS server that reads every upload as fast as it comes and ignores the bytes. The sink of the tests computes the
// digest of every byte twice in the same thread, which would slow down both sides.
import { once } from 'node:events';
import { createServer } from 'node:https';

class Drain {
  constructor(leaf) {
    this.server = createServer({ key: leaf.key, cert: leaf.cert });
    this.server.on('request', (request, response) => this.#serve(request, response));
    Object.assign(this.server, { requestTimeout: 0, headersTimeout: 0 });
    this.reset();
  }

  get origin() {
    return `https://localhost:${this.server.address().port}`;
  }

  /** Forgets what came before. onFirstByte is called once, at the first byte of the next upload. */
  reset(onFirstByte = () => {}) {
    Object.assign(this, { onFirstByte, bytes: 0, first: null, last: null });
  }

  /** The seconds from the first to the last byte since reset(). */
  get seconds() {
    return (this.last - this.first) / 1000;
  }

  #take(request) {
    request.on('data', (chunk) => {
      this.last = performance.now();
      if (this.first === null) {
        this.first = this.last;
        this.onFirstByte();
      }
      this.bytes += chunk.length;
    });
  }

  // Answers a request for a blob with the size of what has come so far. A list of blocks is not a part of the blob.
  #serve(request, response) {
    const isPut = request.method === 'PUT';
    request.on('error', () => {});
    if (isPut && !request.url.includes('comp=blocklist')) this.#take(request);
    request.resume();
    request.on('end', () => {
      const headers = { etag: '"0x1"', 'last-modified': new Date().toUTCString(), 'x-ms-version': '2020-04-08',
        'x-ms-request-id': '1', 'x-ms-blob-type': 'BlockBlob', 'content-length': isPut ? 0 : this.bytes };
      response.writeHead(isPut ? 201 : this.bytes > 0 ? 200 : 404, headers);
      response.end();
    });
  }

  async stop() {
    this.server.closeAllConnections();
    this.server.close();
    await once(this.server, 'close');
  }
}

/** Starts a drain on a free port of 127.0.0.1. leaf: the certificate that it shows. */
export async function startDrain(leaf) {
  const drain = new Drain(leaf);
  drain.server.listen(0, '127.0.0.1');
  await once(drain.server, 'listening');
  return drain;
}
