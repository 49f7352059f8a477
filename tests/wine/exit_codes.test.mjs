// Every end but that with 0: each run ends by itself, tells why, and cleans up.
import assert from 'node:assert/strict';
import { rmSync, writeFileSync } from 'node:fs';
import { setTimeout as sleep } from 'node:timers/promises';
import { describe, it } from 'node:test';
import { assertDelivered, assertEnded, kMiB, kPutFailed, kUploadFailed, requestError, upload, useProduct,
  wholeRecords, withProduct, withSink } from './harness.mjs';
import { kInstallPath, kProgramFolder, kSettingsKey } from '../../wine/product.mjs';

const kNobody = 'https://localhost:9/logs/a.zip';
const kUsage = 'PrintUsage(): Usage:\r\nmdDCT.exe -url "<url>"';
const kInvalid = 'wWinMain(): Invalid command line options.';
const kNotStarted = 'wWinMain(): Failed to start upload.';
const syntax = (argument) => [`lParseCommandLine(): Unrecognized argument or bad syntax: ${argument}`, kInvalid];
const failed = (what) => new RegExp(`^wWinMain\\(\\): Invoking the DCT script failed\\. Error ${what}$`);
const kNoBundle = '-1: The DCT script FAILED\\. Process exited with error ';
const shows = (certificate) => [7, [requestError('WinHttpSendRequest', 12157), ...kPutFailed], { certificate }, 0];
const answers = (behaviour, ...errors) => [7, [...errors, ...kPutFailed], { plan: () => behaviour }, 1];

describe('a run', () => {
  const product = useProduct('exit-codes');

  // name: [exit code, ERROR messages, options of the run, requests at the server]. Wine's IsValidURL takes every text,
  // so the launcher makes it refuse; those that end with 5 are such as it lets through.
  const kCases = {
    'of anybody but the local system account': [1, ['wWinMain(): Insufficient permissions.'], { asSystem: false }],
    'without an argument': [3, [kInvalid], { args: [] }],
    'with an unknown option': [3, syntax('-bogus'), { args: ['-bogus'] }],
    'with a prefix after one dash': [3, syntax('-ur'), { args: ['-ur', kNobody] }],
    'with a URL that Windows refuses': [3, ['wWinMain(): Invalid URL.'], { patch: 'urlmon.dll!IsValidURL=0x80070057' }],
    'with an empty URL': [5, ['AzureBlobUploader::uploadFile(): Invalid upload arguments', kNotStarted],
      { args: ['-url', ''] }],
    'with a port beyond all ports': [5, [/^WinHttpRequest::CrackURL\(\): Unable to parse full URL\. /,
      'WinHttpRequest::performAsync(): Unable to parse url', kNotStarted], { args: ['-url', 'https://h:70000'] }],
    'with an http:// URL': [5, ['WinHttpRequest::performAsync(): Only https is supported', kNotStarted],
      { args: ['-url', 'http://localhost:9/logs/a.zip'] }],
    'whose script writes no bundle': [4, [failed(`${kNoBundle}.+\\.`)], { standin: { collect: 'none' } }],
    'whose script writes no bundle and fails': [4, [failed(`${kNoBundle}Access denied\\.\\.`)],
      { standin: { collect: 'none', exit: 5 } }],
    'whose server refuses the connection': [7, [requestError('WinHttpSendRequest', 12029), ...kPutFailed],
      { args: ['-url', kNobody] }],
    'whose server answers 200': answers({ status: 200 }),
    'whose server answers 500 with 100 MB': answers({ status: 500, bodyBytes: 1e8 }),
    'whose server resets the connection': answers({ resetAfter: 3 * kMiB }, requestError('WinHttp\\w+', 10054)),
    // When the connection ends then, Wine tells of the write that failed; Windows may still deliver the 403.
    'whose server answers before the body is through and reads on': answers({ early: 'keep', status: 403 }),
    'whose server answers before the body is through, then closes': answers({ early: 'close', status: 403 }),
    'whose server answers before the body is through, then resets': answers({ early: 'reset', status: 403 }),
    'whose server shows an untrusted certificate': shows('untrusted'),
    'whose server shows an expired certificate': shows('expired'),
    'whose server shows a certificate of another name': shows('wrong-name'),
    'whose server answers 409 to the third block': [7,
      [/Response Code: 409\. .*Total bytes sent: 12582912ll$/s, kUploadFailed],
      { plan: (request, index) => (index === 3 ? { status: 409 } : {}), standin: { size: '257M' } }, 4],
  };
  for (const [name, [code, errors, options, requests = 0]] of Object.entries(kCases)) {
    it(`${name} ends with ${code}`, async () => {
      const run = await upload(product, { standin: { size: '32M' }, ...options });
      assertEnded(run.result, code, errors);
      if (code < 7) assert.equal(run.result.errors.length, errors.length);
      assert.equal(run.result.debug.at(-1).message === kUsage, errors.includes(kInvalid));
      assert.deepEqual(run.result.record.map(({ mode }) => mode), code > 3 ? ['query', 'collect'] : []);
      assert.equal(run.requests.length, requests);
    });
  }

  it('that cannot collect ends with 4', () => withProduct('no-collection',
    { logFolder: 'C:\\mddct\\logs', agent: { UseRegistryForLoggingPath: 'false' } }, async (broken) => {
      const file = (name) => broken.prefix.path(name);
      const kShared = file('C:\\ProgramData\\Calvera');
      // From the last step to the first: [what is spoiled, the error].
      const kSteps = [
        [() => writeFileSync(file(`${kProgramFolder}\\powershell.exe`), 'no program'),
          '60: The DCT script failed to start, error: .+'],
        [() => rmSync(file(`${kInstallPath}\\dct\\vdx-support.ps1`)), '70: The DCT script is not found on disk\\.'],
        [() => broken.prefix.importRegistry({ [`${kSettingsKey}\\Agent`]: { AgentInstallPath: null } }),
          '80: Cannot get the AgentInstallPath from registry'],
        [() => rmSync(kShared, { recursive: true }) ?? writeFileSync(kShared, ''),
          '130: Cannot create the temporary directory\\.'],
      ];
      for (const [spoil, error] of kSteps) {
        await spoil();
        const result = await broken.run({ args: ['-url', kNobody] });
        assertEnded(result, 4, [failed(error)]);
        assert.deepEqual(result.record, []);
      }
    }));

  it('while another one lasts ends with 2 and disturbs nothing', () => withSink({}, async (sink) => {
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
    assertDelivered({ result: await first, blob: sink.service.blobs.get('/logs/a.zip') }, 'BlockBlob');
    assertDelivered({ result: await product.run({ args }), blob: sink.service.blobs.get('/logs/a.zip') }, 'BlockBlob');
  }));

  it('beside five others has all of its records in the log, whole and in order', () => withProduct('log', {},
    async (six) => {
      const runs = await Promise.all(Array.from({ length: 6 }, () => six.run({ args: ['-bogus'] })));
      assert.ok(runs.every(({ code }) => code === 2 || code === 3));
      for (const all of wholeRecords(six)) {
        const pids = [...new Set(all.map(({ pid }) => pid))];
        assert.equal(pids.length, 6);
        for (const pid of pids) {
          const messages = all.filter((record) => record.pid === pid).map(({ message }) => message);
          assert.match(messages[0], /^(Log for mdDCT\.exe|Opening latest existing log file)$/);
          assert.ok(messages[1].startsWith("Program 'mdDCT.exe' started, ") &&
            messages[1].includes(`, pid=0x${pid.replace(/^0+/, '')}, buildtype=release, `), messages[1]);
          assert.equal(messages[2], 'wWinMain(): Starting DCT collection.');
          assert.match(messages.at(-1), /^PrintUsage\(\): Usage:|^wWinMain\(\): DCT collection is already in progress/);
        }
      }
    }));
});
