// What takes long, side by side: every test has a prefix of its own and mostly waits.
import assert from 'node:assert/strict';
import { describe, it } from 'node:test';
import { assertDelivered, assertEnded, kMiB, kUploadFailed, withProduct, withSink } from './harness.mjs';

const runInto = (name, plan, standin, judge) => withProduct(name, {}, (product) => withSink({ plan }, async (sink) => {
  const args = ['-url', `${sink.origin}/logs/a.zip?sv=1&sig=x`];
  await judge(await product.run({ args, standin, timeoutMs: 150000 }), sink);
}));

describe('at length', { concurrency: 3 }, () => {
  it('a query that hangs is ended after a minute with its own child, and the run goes on', () => runInto('hang', undefined,
    { query: 'hang', grandchild: 300000 }, async (result, sink) => {
      assertEnded(result, 0, [/^dct_common::runDctCommand\(\): Timed out reading script output from the pipe when /]);
      assert.equal(sink.service.blobs.get('/logs/a.zip').sha256, result.bundles[0].sha256);
      assert.ok(result.ms > 60000 && result.ms < 90000, `${result.ms} ms`);
    }));

  it('a server that stops reading within the body: 7', () => runInto('stall', () => ({ stallAfter: kMiB }),
    { size: '64M' }, async (result) => assertEnded(result, 7, [kUploadFailed])));

  it('an append chain is one creation and then blocks, in order and each but the last of 4 MiB', () => runInto('chain',
    undefined, { size: '257M' }, async (result, sink) => {
      const blob = sink.service.blobs.get('/logs/a.zip');
      assertDelivered(result, blob, 'AppendBlob', 257 * kMiB);
      const [creation, ...blocks] = sink.requests;
      assert.deepEqual([creation.queryText, creation.headers['x-ms-blob-type'], creation.headers['content-length']],
        ['sv=1&sig=x', 'AppendBlob', '0']);
      assert.deepEqual(blocks.map(({ bytes }) => bytes), [...Array(64).fill(4 * kMiB), kMiB]);
      let free = creation.startedAt;
      for (const { method, path, queryText, headers, startedAt, endedAt } of blocks) {
        assert.deepEqual([method, path], ['PUT', '/logs/a.zip']);
        assert.equal(queryText.replace(/&$/, ''), 'sv=1&sig=x&comp=appendblock');
        assert.deepEqual([headers['x-ms-blob-type'], headers['content-type'], headers['x-ms-version']],
          [undefined, 'application/zip', '2020-04-08']);
        assert.ok(headers['x-ms-date'] && startedAt >= free);
        free = endedAt;
      }
      assert.ok(result.debug.some(({ message }) => message.startsWith(
        'AzureBlobUploader::AzureAppendBlockRequestCb(): Done uploading file: ')));
    }));

  it('a 409 on the third block ends the chain: 7', () => runInto('conflict',
    (request, index) => (index === 3 ? { status: 409 } : {}),
    { size: '257M' }, async (result, sink) => {
      assertEnded(result, 7, [/Response Code: 409\. .*Total bytes sent: 12582912ll$/s, kUploadFailed]);
      assert.equal(sink.requests.length, 4);
    }));
});
