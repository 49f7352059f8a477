// Tests that take long, run in parallel: each has a prefix of its own and mostly waits.
import assert from 'node:assert/strict';
import { once } from 'node:events';
import { connect } from 'node:net';
import { describe, it } from 'node:test';
import { assertDelivered, assertEnded, kMiB, kPutFailed, requestError, upload, withProduct } from './harness.mjs';
import { endGroup, startGroup } from '../../wine/processes.mjs';

const kBlock = 4 * kMiB;
const kMaxPut = 256 * kMiB;

// A server that accepts no connection. Its queue of waiting ones is short.
const kDeafListener = `require('net').createServer().listen({ port: 0, host: '127.0.0.1', backlog: 1 }, function () {
  require('fs').writeSync(1, String(this.address().port));
  Atomics.wait(new Int32Array(new SharedArrayBuffer(4)), 0, 0);
})`;

/** Checks that the requests have bodies of these sizes, the first one creates a blob of this type, and none overlap. */
function assertRequests(requests, blobType, sizes) {
  assert.deepEqual(requests.map(({ bytes }) => bytes), sizes);
  for (const [n, { method, path, queryText, headers, bytes, startedAt }] of requests.entries()) {
    assert.deepEqual([method, path, queryText.replace(/&$/, '')],
      ['PUT', '/logs/a.zip', `sv=1&sig=a%2Bb${n > 0 ? '&comp=appendblock' : ''}`]);
    const type = n > 0 ? undefined : blobType;
    const names = ['user-agent', 'content-type', 'x-ms-blob-type', 'content-length'];
    assert.deepEqual(names.map((name) => headers[name]), ['VXAgent', 'application/zip', type, String(bytes)]);
    assert.ok(n === 0 || startedAt >= requests[n - 1].endedAt, 'one at a time');
  }
}

/** Checks the end of a run in which a time limit of this length has passed. */
function assertTimedOut(result, ms, code, errors) {
  assertEnded(result, code, errors);
  assert.ok(result.ms > ms && result.ms < 120000, `${result.ms} ms`);
}

describe('at length', { concurrency: 6 }, () => {
  it('a query that hangs is ended after a minute with its own child, and the run goes on', () => withProduct('hang', {},
    async (product) => {
      const { result, blob } = await upload(product, { standin: { query: 'hang', grandchild: 300000 } });
      assertTimedOut(result, 60000, 0,
        [/^dct_common::runDctCommand\(\): Timed out reading script output from the pipe when /]);
      assert.equal(blob.sha256, result.bundles[0].sha256);
    }));

  // The stages whose time limits Wine keeps. Wine waits for ever for a handshake, for the headers of an answer, and for
  // the bytes that are sent with the request itself (the blocks of a chain).
  // name: [behaviour of the server, exit code, ERROR messages]
  const timedOut = (operation) => requestError(operation, 10060);
  const kStalls = {
    'stops reading within the body': [{ stallAfter: 9 * kMiB }, 7, [timedOut('WinHttpWriteData'), ...kPutFailed]],
    'stops within a refusal': [{ status: 403, stallReply: true }, 7,
      [timedOut('WinHttpQueryDataAvailable'), ...kPutFailed]],
    'stops within its reply of 201': [{ stallReply: true }, 0, [timedOut('WinHttpQueryDataAvailable')]],
  };
  for (const [name, [behaviour, code, errors]] of Object.entries(kStalls)) {
    it(`a server that ${name}: ${code}`, () => withProduct(`stall-${name}`, {}, async (product) => {
      const { result } = await upload(product, { plan: () => behaviour, standin: { size: '64M' } });
      assertTimedOut(result, 30000, code, errors);
    }));
  }

  it('a server that accepts no connection: 7', () => withProduct('stall-connect', {}, async (product) => {
    const listener = startGroup(process.execPath, ['-e', kDeafListener], { stdio: ['ignore', 'pipe', 'inherit'] });
    const [port] = await once(listener.stdout, 'data');
    const queue = Array.from({ length: 4 }, () => connect(Number(port), '127.0.0.1').on('error', () => {}));
    const result = await product.run({ args: ['-url', `https://localhost:${port}/logs/a.zip`] });
    queue.forEach((socket) => socket.destroy());
    await endGroup(listener.pid);
    assertTimedOut(result, 30000, 7, [requestError('WinHttpSendRequest', 12002), ...kPutFailed]);
  }));

  const arrives = (size, type, sizes) => it(`a bundle of ${size} bytes is stored as ${type}`, () => withProduct(
    `size-${size}`, {}, async (product) => {
      const run = await upload(product, { query: '?sv=1&sig=a%2Bb', standin: { size }, timeoutMs: 500000 });
      assertDelivered(run, type, size);
      assertRequests(run.requests, type, sizes);
    }));
  // The longest first. An append chain begins with a request without a body.
  const kChains = [[2048 * kMiB, 512, []], [264 * kMiB, 66, []], [kMaxPut + 1, 64, [1]]];
  for (const [size, blocks, rest] of kChains) arrives(size, 'AppendBlob', [0, ...Array(blocks).fill(kBlock), ...rest]);
  const kPuts = [kMaxPut, kBlock + 1, kBlock, kBlock - 1, 1, 0];
  for (const size of kPuts) arrives(size, 'BlockBlob', [size]);
});
