// Servers and certificates that are not as they should be. Every run must end by itself, tell why, and clean up.
import assert from 'node:assert/strict';
import { appendFileSync, readdirSync, rmSync } from 'node:fs';
import { join } from 'node:path';
import { after, before, describe, it } from 'node:test';
import { assertDelivered, assertEnded, kMiB, kUploadFailed, openProduct, withSink } from './harness.mjs';

const kErrorHeaders = /^AzureBlobUploader::AzurePutBlobRequestCb\(\): Error headers: /;
const requestError = (operation, number) => new RegExp(
  `^WinHttpRequest::RequestCallback\\(\\): ${operation} failed for url https://.*: 0x${number.toString(16)} `);

describe('a server that', () => {
  let product;
  before(async () => { product = await openProduct('hostile'); });
  after(() => product?.close());

  const run = (sink, size) => product.run({ args: ['-url', `${sink.origin}/logs/a.zip`], standin: { size } });
  const blobOf = (sink) => sink.service.blobs.get('/logs/a.zip');

  it('records the one request of a Put Blob', () => withSink({}, async (sink) => {
    const url = `${sink.origin}/logs/a.zip?sv=1&sig=a%2Bb`;
    const result = await product.run({ args: ['-url', url], standin: { size: '9M' } });
    assertDelivered(result, blobOf(sink), 'BlockBlob', 9 * kMiB);
    assert.equal(sink.requests.length, 1);
    const [{ method, path, queryText, headers, bytes }] = sink.requests;
    assert.deepEqual([method, path, queryText, bytes], ['PUT', '/logs/a.zip', 'sv=1&sig=a%2Bb', 9 * kMiB]);
    const names = ['user-agent', 'content-type', 'x-ms-blob-type', 'x-ms-version'];
    assert.deepEqual(names.map((name) => headers[name]), ['VXAgent', 'application/zip', 'BlockBlob', '2020-04-08']);
    assert.deepEqual([headers['content-length'], headers['transfer-encoding'], headers.authorization],
      [String(9 * kMiB), undefined, undefined]);
  }));

  it('refuses the connection: 7', async () => {
    const closed = await withSink({}, ({ origin }) => ({ origin }));
    assertEnded(await run(closed, '1M'), 7,
      [requestError('WinHttpSendRequest', 12029), kErrorHeaders, kUploadFailed]);
  });

  // Behaviour, and the errors before the last two. To an early answer whose connection ends, Wine tells of the write
  // that failed; Windows may still deliver the 403.
  const refusals = {
    'answers 200': [{ status: 200 }],
    'answers 503': [{ status: 503 }],
    'answers 500 with 100 MB': [{ status: 500, bodyBytes: 1e8 }],
    'resets the connection within the body': [{ resetAfter: 3 * kMiB }, requestError('WinHttp\\w+', 10054)],
    'answers before the body is through and reads on': [{ early: 'keep', status: 403 }],
    'answers before the body is through, then closes the connection': [{ early: 'close', status: 403 }],
    'answers before the body is through, then resets the connection': [{ early: 'reset', status: 403 }],
  };
  for (const [name, [behaviour, ...errors]] of Object.entries(refusals)) {
    it(`${name}: 7, and no second try`, () => withSink({ plan: () => behaviour }, async (sink) => {
      assertEnded(await run(sink, '32M'), 7, [...errors, kErrorHeaders, kUploadFailed]);
      assert.equal(sink.requests.length, 1);
    }));
  }

  const oddities = {
    'answers late': { lateMs: 4000 },
    'replies 201 with 100 MB': { bodyBytes: 1e8 },
    'replies 201 with 1 MB of headers': { headerBytes: 1e6 },
  };
  for (const [name, behaviour] of Object.entries(oddities)) {
    it(`${name}: 0`, () => withSink({ plan: () => behaviour }, async (sink) => {
      assertDelivered(await run(sink, '1M'), blobOf(sink), 'BlockBlob');
    }));
  }

  for (const certificate of ['untrusted', 'expired', 'wrong-name']) {
    it(`shows the ${certificate} certificate: 7, and nothing is sent`, () => withSink({ certificate }, async (sink) => {
      assertEnded(await run(sink, '1M'), 7, [requestError('WinHttpSendRequest', 12157), kErrorHeaders, kUploadFailed]);
      assert.equal(sink.requests.length, 0);
    }));
  }

  const spoilBundle = (spoil) => readdirSync(product.bundleFolder).forEach((n) => spoil(join(product.bundleFolder, n)));

  it('gets a bundle that vanishes while it is sent: 0, and the loss is told', () => withSink(
    { plan: () => spoilBundle((file) => rmSync(file)) }, async (sink) => {
      const result = await run(sink, '32M');
      assertDelivered(result, blobOf(sink), 'BlockBlob');
      const warnings = result.debug.filter(({ level }) => level === 'WARN').map(({ message }) => message);
      assert.match(warnings.at(-1), /^DCTDeleter::~DCTDeleter\(\): Unable to clean DCT bundle\. Error code: /);
    }));

  // The stand-in's bundles of one size are alike, so that the first run tells what the second one has to send.
  it('gets a bundle that grows while it is sent: 0, with the bytes of its first size', () => withSink(
    { plan: (request, index) => index > 0 && spoilBundle((file) => appendFileSync(file, Buffer.alloc(kMiB, 'g'))) },
    async (sink) => {
      const before = await run(sink, '32M');
      const result = await run(sink, '32M');
      assertEnded(result, 0);
      assert.equal(result.bundles[0].size, 33 * kMiB);
      assert.equal(sink.requests[1].sha256, before.bundles[0].sha256);
    }));
});
