// How the program is started: exit codes 1, 2, 3 and 5, each without a trace of a run.
import assert from 'node:assert/strict';
import { existsSync } from 'node:fs';
import { setTimeout as sleep } from 'node:timers/promises';
import { after, before, describe, it } from 'node:test';
import { assertDelivered, assertEnded, openProduct, withSink } from './harness.mjs';

const kUsage = 'PrintUsage(): Usage:\r\nmdDCT.exe -url "<url>"';
const kNotStarted = 'wWinMain(): Failed to start upload.';
const syntax = (argument) => `lParseCommandLine(): Unrecognized argument or bad syntax: ${argument}`;

describe('the invocation', () => {
  let product;
  before(async () => { product = await openProduct('invocation'); });
  after(() => product?.close());

  it('by anybody but the local system account ends with 1', async () => {
    const result = await product.run({ args: ['-url', 'https://localhost:9/logs/a.zip'], asSystem: false });
    assertEnded(result, 1, ['wWinMain(): Insufficient permissions.']);
    assert.deepEqual(result.record, []);
  });

  const refused = {
    'without an argument': [[], []],
    'with an unknown option': [['-bogus'], [syntax('-bogus')]],
    'with -url and no value': [['-url'], [syntax('-url')]],
    'with a prefix after one dash': [['-ur', 'https://localhost:9/logs/a.zip'], [syntax('-ur')]],
    'with /url': [['/url', 'https://localhost:9/logs/a.zip'], []],
  };
  for (const [name, [args, errors]] of Object.entries(refused)) {
    it(`${name} ends with 3 and the usage`, async () => {
      const result = await product.run({ args });
      assertEnded(result, 3, [...errors, 'wWinMain(): Invalid command line options.']);
      assert.equal(result.errors.length, errors.length + 1);
      assert.equal(result.debug.at(-1).message, kUsage);
      assert.deepEqual(result.record, []);
    });
  }

  // Wine's IsValidURL takes every text; the launcher makes it refuse.
  it('with a URL that Windows refuses ends with 3 before the script is started', async () => {
    const args = ['-url', 'https://localhost:9/logs/a.zip'];
    const result = await product.run({ args, patch: 'urlmon.dll!IsValidURL=0x80070057' });
    assertEnded(result, 3, ['wWinMain(): Invalid URL.']);
    assert.deepEqual(result.record, []);
  });

  const unusable = {
    'an empty URL': ['', 'AzureBlobUploader::uploadFile(): Invalid upload arguments'],
    'a port beyond all ports': ['https://localhost:70000/a', 'WinHttpRequest::performAsync(): Unable to parse url'],
    'an http:// URL': ['http://localhost:9/logs/a.zip', 'WinHttpRequest::performAsync(): Only https is supported'],
  };
  for (const [name, [url, error]] of Object.entries(unusable)) {
    it(`with ${name} (which Wine does not refuse) ends with 5 and removes the bundle`, async () => {
      const result = await product.run({ args: ['-url', url] });
      assertEnded(result, 5, [error, kNotStarted]);
      assert.deepEqual(result.record.map(({ mode, outcome }) => `${mode} ${outcome}`), ['query json', 'collect ok']);
    });
  }

  it('while another run lasts ends with 2 and disturbs nothing', async () => {
    await withSink({}, async (sink) => {
      const args = ['-url', `${sink.origin}/logs/a.zip`];
      const first = product.run({ args, standin: { delay: 8000 } });
      while (!existsSync(product.recordFile())) await sleep(20);  // from then on it holds the mutex
      const second = await product.run({ args });
      assert.equal(second.code, 2);
      const refusals = second.debug.filter(({ message }) => message.includes('utex already'));
      assert.equal(refusals.length, 1);
      const own = second.debug.filter(({ pid }) => pid === refusals[0].pid).map(({ message }) => message);
      assert.deepEqual(own.slice(2), [  // after the log's own two lines
        'wWinMain(): Starting DCT collection.', 'DCTMutex::GetMutex(): Mutex already exists',
        'wWinMain(): DCT collection is already in progress.']);
      const { code, bundles, leftBehind } = await first;
      assert.deepEqual([code, leftBehind], [0, []]);
      assert.equal(sink.service.blobs.get('/logs/a.zip').sha256, bundles[0].sha256);
      assertDelivered(await product.run({ args }), sink.service.blobs.get('/logs/a.zip'), 'BlockBlob');
    });
  });
});
