// How the program is started: exit codes 1, 2, 3 and 5, each without a trace of a run.
import assert from 'node:assert/strict';
import { setTimeout as sleep } from 'node:timers/promises';
import { describe, it } from 'node:test';
import { assertDelivered, assertEnded, useProduct, withSink } from './harness.mjs';

const kUsage = 'PrintUsage(): Usage:\r\nmdDCT.exe -url "<url>"';
const kUrl = ['-url', 'https://localhost:9/logs/a.zip'];
const kInvalid = 'wWinMain(): Invalid command line options.';
const kNotStarted = 'wWinMain(): Failed to start upload.';
const syntax = (argument) => `lParseCommandLine(): Unrecognized argument or bad syntax: ${argument}`;

describe('the invocation', () => {
  const product = useProduct('invocation');

  // name: [arguments, exit code, all ERROR messages, further options]. Wine's IsValidURL takes every text, so the
  // launcher makes it refuse; the last three are those that it lets through.
  const kCases = {
    'by anybody but the local system account': [kUrl, 1, ['wWinMain(): Insufficient permissions.'],
      { asSystem: false }],
    'without an argument': [[], 3, [kInvalid]],
    'with an unknown option': [['-bogus'], 3, [syntax('-bogus'), kInvalid]],
    'with -url and no value': [['-url'], 3, [syntax('-url'), kInvalid]],
    'with a prefix after one dash': [['-ur', kUrl[1]], 3, [syntax('-ur'), kInvalid]],
    'with /url': [['/url', kUrl[1]], 3, [kInvalid]],
    'with a URL that Windows refuses': [kUrl, 3, ['wWinMain(): Invalid URL.'],
      { patch: 'urlmon.dll!IsValidURL=0x80070057' }],
    'with an empty URL': [['-url', ''], 5, ['AzureBlobUploader::uploadFile(): Invalid upload arguments', kNotStarted]],
    'with a port beyond all ports': [['-url', 'https://localhost:70000/a'], 5,
      [/^WinHttpRequest::CrackURL\(\): Unable to parse full URL\. /,
        'WinHttpRequest::performAsync(): Unable to parse url', kNotStarted]],
    'with an http:// URL': [['-url', 'http://localhost:9/logs/a.zip'], 5,
      ['WinHttpRequest::performAsync(): Only https is supported', kNotStarted]],
  };
  for (const [name, [args, code, errors, options]] of Object.entries(kCases)) {
    it(`${name} ends with ${code}`, async () => {
      const result = await product.run({ args, ...options });
      assertEnded(result, code, errors);
      assert.equal(result.errors.length, errors.length);
      assert.equal(result.debug.at(-1).message === kUsage, errors.includes(kInvalid));
      assert.deepEqual(result.record.map(({ mode, outcome }) => `${mode} ${outcome}`),
        code === 5 ? ['query json', 'collect ok'] : []);
    });
  }

  it('while another run lasts ends with 2 and disturbs nothing', () => withSink({}, async (sink) => {
    const args = ['-url', `${sink.origin}/logs/a.zip`];
    const first = product.run({ args, standin: { delay: 8000 } });
    while (product.record().length === 0) await sleep(20);  // from then on it holds the mutex
    const second = await product.run({ args });
    assert.equal(second.code, 2);
    const { pid } = second.debug.find(({ message }) => message.includes('utex already'));
    const own = second.debug.filter((record) => record.pid === pid).map(({ message }) => message);
    assert.deepEqual(own.slice(2), [  // after the log's own two lines
      'wWinMain(): Starting DCT collection.', 'DCTMutex::GetMutex(): Mutex already exists',
      'wWinMain(): DCT collection is already in progress.']);
    const { code, bundles, leftBehind } = await first;
    assert.deepEqual([code, leftBehind], [0, []]);
    const blob = sink.service.blobs.get('/logs/a.zip');
    assert.equal(blob.sha256, bundles[0].sha256);
    assertDelivered({ result: await product.run({ args }), blob }, 'BlockBlob');
  }));
});
