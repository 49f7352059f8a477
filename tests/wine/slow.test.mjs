// What takes long, side by side: every test has a prefix of its own and mostly waits.
import assert from 'node:assert/strict';
import { once } from 'node:events';
import { connect } from 'node:net';
import { describe, it } from 'node:test';
import { assertDelivered, assertEnded, kMiB, kPutFailed, requestError, upload, withProduct } from './harness.mjs';
import { endGroup, startGroup } from '../../scripts/wine/proc.mjs';

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
  const rest = size % kBlock;
  const blocks = size <= kLargestPut ? [] : [...Array((size - rest) / kBlock).fill(kBlock), ...(rest ? [rest] : [])];
  const [type, length] = blocks.length > 0 ? ['AppendBlob', 0] : ['BlockBlob', size];
  assert.deepEqual(requests.map(({ bytes }) => bytes), [length, ...blocks]);
  let free = 0;
  for (const [n, { method, path, queryText, headers, bytes, startedAt, endedAt }] of requests.entries()) {
    assert.deepEqual([method, path, queryText.replace(/&$/, '')],
      ['PUT', '/logs/a.zip', `sv=1&sig=a%2Bb${n > 0 ? '&comp=appendblock' : ''}`]);
    const names = ['user-agent', 'content-type', 'x-ms-blob-type', 'x-ms-version', 'content-length', 'authorization',
      'transfer-encoding'];
    assert.deepEqual(names.map((name) => headers[name]), ['VXAgent', 'application/zip', n > 0 ? undefined : type,
      '2020-04-08', String(bytes), undefined, undefined]);
    assert.ok(startedAt >= free, 'one at a time');
    free = endedAt;
  }
}

describe('at length', { concurrency: 6 }, () => {
  it('a query that hangs is ended after a minute with its own child, and the run goes on', () => withProduct('hang', {},
    async (product) => {
      const { result, blob } = await upload(product, { standin: { query: 'hang', grandchild: 300000 } });
      assertEnded(result, 0, [/^dct_common::runDctCommand\(\): Timed out reading script output from the pipe when /]);
      assert.equal(blob.sha256, result.bundles[0].sha256);
      assert.ok(result.ms > 60000 && result.ms < 120000, `${result.ms} ms`);
    }));

  // The stages whose time-outs Wine honours; it waits for ever for a handshake, for the headers of an answer, and for
  // the bytes that go out with the send itself (the blocks of a chain).
  // name: [behaviour of the server, exit code, the call that fails]
  const kStalls = {
    'reads nothing of the body': [{ stallAfter: 1 }, 7, 'WinHttpWriteData'],
    'stops reading within the body': [{ stallAfter: 9 * kMiB }, 7, 'WinHttpWriteData'],
    'stops within a refusal': [{ status: 403, stallReply: true }, 7, 'WinHttpQueryDataAvailable'],
    'stops within its reply of 201': [{ stallReply: true }, 0, 'WinHttpQueryDataAvailable'],
  };
  const assertTimedOut = (result, code, error) => {
    assertEnded(result, code, [error, ...(code === 0 ? [] : kPutFailed)]);
    assert.ok(result.ms > 30000 && result.ms < 120000, `${result.ms} ms`);
  };
  for (const [name, [behaviour, code, operation]] of Object.entries(kStalls)) {
    it(`a server that ${name}: ${code}`, () => withProduct(`stall-${name}`, {}, async (product) => {
      const { result } = await upload(product, { plan: () => behaviour, standin: { size: '64M' } });
      assertTimedOut(result, code, requestError(operation, kTimedOut));
    }));
  }

  it('a server that takes no connection: 7', () => withProduct('stall-connect', {}, async (product) => {
    const listener = startGroup(process.execPath, ['-e', kDeafListener], { stdio: ['ignore', 'pipe', 'inherit'] });
    const [port] = await once(listener.stdout, 'data');
    const queue = Array.from({ length: 4 }, () => connect(Number(port), '127.0.0.1').on('error', () => {}));
    const result = await product.run({ args: ['-url', `https://localhost:${port}/logs/a.zip`] });
    queue.forEach((socket) => socket.destroy());
    await endGroup(listener.pid);
    assertTimedOut(result, 7, requestError('WinHttpSendRequest', 12002));
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
