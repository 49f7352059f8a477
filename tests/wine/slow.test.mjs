// What takes long, side by side: every test has a prefix of its own and mostly waits.
import assert from 'node:assert/strict';
import { once } from 'node:events';
import { connect } from 'node:net';
import { describe, it } from 'node:test';
import { assertDelivered, assertEnded, kMiB, kPutFailed, requestError, upload, withProduct } from './harness.mjs';
import { endGroup, startGroup } from '../../wine/processes.mjs';

const kBlock = 4 * kMiB;
const kLargestPut = 256 * kMiB;
const kTimedOut = 10060;

// Never takes a connection from its queue, which is short.
const kDeafListener = `require('net').createServer().listen({ port: 0, host: '127.0.0.1', backlog: 1 }, function () {
  require('fs').writeSync(1, String(this.address().port));
  Atomics.wait(new Int32Array(new SharedArrayBuffer(4)), 0, 0);
})`;

/** Demands that the requests are those of a Put Blob or of an append chain for that many bytes, one after the other. */
function assertRequests(requests, size) {
  const isChain = size > kLargestPut;
  const blocks = isChain ? Array.from({ length: Math.ceil(size / kBlock) }, (_, n) => (
    Math.min(kBlock, size - n * kBlock))) : [];
  assert.deepEqual(requests.map(({ bytes }) => bytes), [isChain ? 0 : size, ...blocks]);
  for (const [n, { method, path, queryText, headers, bytes, startedAt }] of requests.entries()) {
    assert.deepEqual([method, path, queryText.replace(/&$/, '')],
      ['PUT', '/logs/a.zip', `sv=1&sig=a%2Bb${n > 0 ? '&comp=appendblock' : ''}`]);
    const type = n > 0 ? undefined : isChain ? 'AppendBlob' : 'BlockBlob';
    const names = ['user-agent', 'content-type', 'x-ms-blob-type', 'content-length'];
    assert.deepEqual(names.map((name) => headers[name]), ['VXAgent', 'application/zip', type, String(bytes)]);
    assert.ok(n === 0 || startedAt >= requests[n - 1].endedAt, 'one at a time');
  }
}

function assertTimedOut(result, ms, code, error) {
  assertEnded(result, code, [error, ...(code === 0 ? [] : kPutFailed)]);
  assert.ok(result.ms > ms && result.ms < 120000, `${result.ms} ms`);
}

describe('at length', { concurrency: 6 }, () => {
  it('a query that hangs is ended after a minute with its own child, and the run goes on', () => withProduct('hang', {},
    async (product) => {
      const { result, blob } = await upload(product, { standin: { query: 'hang', grandchild: 300000 } });
      assertTimedOut(result, 60000, 0,
        /^dct_common::runDctCommand\(\): Timed out reading script output from the pipe when /);
      assert.equal(blob.sha256, result.bundles[0].sha256);
    }));

  // The stages whose time-outs Wine honours; it waits for ever for a handshake, for the headers of an answer, and for
  // the bytes that go out with the send itself (the blocks of a chain).
  // name: [behaviour of the server, exit code, the call that fails]
  const kStalls = {
    'stops reading within the body': [{ stallAfter: 9 * kMiB }, 7, 'WinHttpWriteData'],
    'stops within a refusal': [{ status: 403, stallReply: true }, 7, 'WinHttpQueryDataAvailable'],
    'stops within its reply of 201': [{ stallReply: true }, 0, 'WinHttpQueryDataAvailable'],
  };
  for (const [name, [behaviour, code, operation]] of Object.entries(kStalls)) {
    it(`a server that ${name}: ${code}`, () => withProduct(`stall-${name}`, {}, async (product) => {
      const { result } = await upload(product, { plan: () => behaviour, standin: { size: '64M' } });
      assertTimedOut(result, 30000, code, requestError(operation, kTimedOut));
    }));
  }

  it('a server that takes no connection: 7', () => withProduct('stall-connect', {}, async (product) => {
    const listener = startGroup(process.execPath, ['-e', kDeafListener], { stdio: ['ignore', 'pipe', 'inherit'] });
    const [port] = await once(listener.stdout, 'data');
    const queue = Array.from({ length: 4 }, () => connect(Number(port), '127.0.0.1').on('error', () => {}));
    const result = await product.run({ args: ['-url', `https://localhost:${port}/logs/a.zip`] });
    queue.forEach((socket) => socket.destroy());
    await endGroup(listener.pid);
    assertTimedOut(result, 30000, 7, requestError('WinHttpSendRequest', 12002));
  }));

  const kSizes = [0, 1, kBlock - 1, kBlock, kBlock + 1, kLargestPut, kLargestPut + 1, 264 * kMiB, 2048 * kMiB];
  for (const size of kSizes.reverse()) {
    it(`a bundle of ${size} bytes arrives in ${size > kLargestPut ? 'blocks' : 'one piece'}`, () => withProduct(
      `size-${size}`, {}, async (product) => {
        const run = await upload(product, { query: '?sv=1&sig=a%2Bb', standin: { size }, timeoutMs: 500000 });
        assertDelivered(run, size > kLargestPut ? 'AppendBlob' : 'BlockBlob', size);
        assertRequests(run.requests, size);
      }));
  }
});
