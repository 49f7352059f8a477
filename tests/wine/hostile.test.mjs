// Servers and certificates that are not as they should be. Every run must end by itself, tell why, and clean up.
import assert from 'node:assert/strict';
import { after, before, describe, it } from 'node:test';
import { assertDelivered, assertEnded, kMiB, openProduct, withSink } from './harness.mjs';
import { closedPort } from './sink.mjs';

const kUploadFailed = 'wWinMain(): Upload failed.';
const kErrorHeaders = /^AzureBlobUploader::AzurePutBlobRequestCb\(\): Error headers: /;
const requestError = (operation, number) => new RegExp(
  `^WinHttpRequest::RequestCallback\\(\\): ${operation} failed for url https://.*: 0x${number.toString(16)} `);
const against = (plan, fn) => withSink({ plan: () => plan }, fn);

describe('a server that', () => {
  let product;
  before(async () => { product = await openProduct('hostile'); });
  after(() => product?.close());

  const run = (sink, standin) => product.run({ args: ['-url', `${sink.origin}/logs/a.zip`], standin });

  it('records the one request of a Put Blob', () => withSink({}, async (sink) => {
    const url = `${sink.origin}/logs/a.zip?sv=1&sig=a%2Bb`;
    const result = await product.run({ args: ['-url', url], standin: { size: '9M' } });
    assertDelivered(result, sink.service.blobs.get('/logs/a.zip'), 'BlockBlob', 9 * kMiB);
    assert.equal(sink.requests.length, 1);
    const [{ method, path, queryText, headers, bytes }] = sink.requests;
    assert.deepEqual([method, path, queryText, bytes], ['PUT', '/logs/a.zip', 'sv=1&sig=a%2Bb', 9 * kMiB]);
    const names = ['user-agent', 'content-type', 'x-ms-blob-type', 'x-ms-version'];
    assert.deepEqual(names.map((name) => headers[name]), ['VXAgent', 'application/zip', 'BlockBlob', '2020-04-08']);
    assert.deepEqual([headers['content-length'], headers['transfer-encoding'], headers.authorization],
      [String(9 * kMiB), undefined, undefined]);
  }));

  it('refuses the connection: 7', async () => {
    const url = `https://localhost:${await closedPort()}/logs/a.zip`;
    assertEnded(await product.run({ args: ['-url', url] }), 7,
      [requestError('WinHttpSendRequest', 12029), kErrorHeaders, kUploadFailed]);
  });

  for (const status of [200, 202, 403, 409, 500, 503]) {
    it(`answers ${status}: 7, and no second try`, () => against({ status, body: 'no' }, async (sink) => {
      assertEnded(await run(sink), 7, [kErrorHeaders, kUploadFailed]);
      assert.equal(sink.requests.length, 1);
    }));
  }

  it('answers late: 0', () => against({ lateMs: 4000 }, async (sink) => {
    assertDelivered(await run(sink), sink.service.blobs.get('/logs/a.zip'), 'BlockBlob');
  }));

  it('resets the connection within the body: 7', () => against({ resetAfter: 3 * kMiB }, async (sink) => {
    assertEnded(await run(sink, { size: '32M' }), 7,
      [requestError('WinHttp\\w+', 10054), kErrorHeaders, kUploadFailed]);
    assert.equal(sink.requests.length, 1);
  }));

  it('answers before the body is through and reads on: 7', () => against(
    { early: 'keep', status: 403, body: 'no' }, async (sink) => {
      assertEnded(await run(sink, { size: '32M' }), 7, [kErrorHeaders, kUploadFailed]);
    }));

  for (const [verb, early] of [['closes', 'close'], ['resets', 'reset']]) {
    it(`answers before the body is through, then ${verb} the connection: 7`, () => against(
      { early, status: 403, body: 'no' }, async (sink) => {
        // Windows may still deliver the 403; Wine tells of the write that failed.
        assertEnded(await run(sink, { size: '32M' }), 7, [kErrorHeaders, kUploadFailed]);
        assert.equal(sink.requests.length, 1);
      }));
  }

  it('replies 201 with 100 MB: 0', () => against({ bodyBytes: 1e8 }, async (sink) => {
    assertDelivered(await run(sink), sink.service.blobs.get('/logs/a.zip'), 'BlockBlob');
  }));

  it('replies 500 with 100 MB: 7', () => against({ status: 500, bodyBytes: 1e8 }, async (sink) => {
    assertEnded(await run(sink), 7, [kErrorHeaders, kUploadFailed]);
  }));

  it('replies 201 with 1 MB of headers: 0', () => against({ headerBytes: 1e6 }, async (sink) => {
    assertDelivered(await run(sink), sink.service.blobs.get('/logs/a.zip'), 'BlockBlob');
  }));

  for (const certificate of ['untrusted', 'expired', 'wrong-name']) {
    it(`shows the ${certificate} certificate: 7, and nothing is sent`, () => withSink({ certificate }, async (sink) => {
      assertEnded(await run(sink), 7, [requestError('WinHttpSendRequest', 12157), kErrorHeaders, kUploadFailed]);
      assert.equal(sink.requests.length, 0);
    }));
  }

  it('holds its answer while the bundle vanishes: 0, and the loss is told', () => against(
    { lateMs: 4000 }, async (sink) => {
      const result = await run(sink, { collect: 'vanish', delay: 1500 });
      assertDelivered(result, sink.service.blobs.get('/logs/a.zip'), 'BlockBlob');
      const warnings = result.debug.filter(({ level }) => level === 'WARN').map(({ message }) => message);
      assert.match(warnings.at(-1), /^DCTDeleter::~DCTDeleter\(\): Unable to clean DCT bundle\. Error code: /);
    }));

  // The stand-in's bundles of one size are alike, so that the first run tells what the second one has to send.
  it('reads slowly while the bundle grows: 0, with the bytes of its first size', () => withSink(
    { plan: (request, index) => (index === 0 ? {} : { pauseAfter: 8 * kMiB, pauseMs: 3000 }) }, async (sink) => {
      const before = await run(sink, { size: '32M' });
      const result = await run(sink, { collect: 'grow', delay: 1000, size: '32M' });
      assertEnded(result, 0);
      const told = result.record.map(({ mode, outcome }) => `${mode} ${outcome}`);
      assert.deepEqual(told.slice(1), ['collect grow', 'grow done']);
      assert.equal(result.bundles[0].size, 33 * kMiB);
      assert.equal(sink.requests[1].sha256, before.bundles[0].sha256);
    }));
});
