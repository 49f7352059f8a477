// Every exit code except 0: each run ends by itself, logs why, and cleans up.
import assert from 'node:assert/strict';
import { rmSync, writeFileSync } from 'node:fs';
import { setTimeout as sleep } from 'node:timers/promises';
import { describe, it } from 'node:test';
import { assertDelivered, assertEnded, kMiB, kPutFailed, kUploadFailed, requestError, upload, useProduct,
  wholeRecords, withProduct, withSink } from './harness.mjs';
import { kInstallPath, kPowerShellFolder, kSettingsKey } from '../../wine/product.mjs';

const kNobody = 'https://localhost:9/logs/a.zip';
const kUsage = 'PrintUsage(): Usage:\r\nmdDCT.exe -url "<url>"';
const kInvalid = 'wWinMain(): Invalid command line options.';
const kNotStarted = 'wWinMain(): Failed to start upload.';
const syntax = (argument) => [`lParseCommandLine(): Unrecognized argument or bad syntax: ${argument}`, kInvalid];
const failed = (what) => new RegExp(`^wWinMain\\(\\): Invoking the DCT script failed\\. Error ${what}$`);
const kNoBundle = '-1: The DCT script FAILED\\. Process exited with error ';

// Rows of the table below. errors: all ERROR messages, or the last ones where others may precede them; calls: what the
// stand-in was asked for; requests: how many reached the server.
const endsEarly = (code, errors, options) => (
  { code, errors, options, calls: [], showsUsage: false, othersPrecede: false, requests: 0 });
const rejectsLine = (errors, args) => ({ ...endsEarly(3, errors, { args }), showsUsage: true });
const collects = (code, errors, options) => ({ ...endsEarly(code, errors, options), calls: ['query', 'collect'] });
const fails = (errors, options, requests = 0) => ({ ...collects(7, errors, options), othersPrecede: true, requests });
const shows = (certificate) => fails([requestError('WinHttpSendRequest', 12157), ...kPutFailed], { certificate });
const answers = (behaviour, ...errors) => fails([...errors, ...kPutFailed], { plan: () => behaviour }, 1);

describe('a run', () => {
  const product = useProduct('exit-codes');

  // Wine's IsValidURL accepts every text. So the launcher makes it refuse one, and the URLs that end with 5 pass it.
  const kCases = {
    'of another account': endsEarly(1, ['wWinMain(): Insufficient permissions.'], { asSystem: false }),
    'without an argument': rejectsLine([kInvalid], []),
    'with an unknown option': rejectsLine(syntax('-bogus'), ['-bogus']),
    'with a prefix after one dash': rejectsLine(syntax('-ur'), ['-ur', kNobody]),
    'with a bad URL': endsEarly(3, ['wWinMain(): Invalid URL.'], { patch: 'urlmon.dll!IsValidURL=0x80070057' }),
    'with an empty URL': collects(5, ['AzureBlobUploader::uploadFile(): Invalid upload arguments', kNotStarted],
      { args: ['-url', ''] }),
    'with a port above 65535': collects(5, [/^WinHttpRequest::CrackURL\(\): Unable to parse full URL\. /,
      'WinHttpRequest::performAsync(): Unable to parse url', kNotStarted], { args: ['-url', 'https://h:70000'] }),
    'with an http:// URL': collects(5, ['WinHttpRequest::performAsync(): Only https is supported', kNotStarted],
      { args: ['-url', 'http://localhost:9/logs/a.zip'] }),
    'whose script writes no bundle': collects(4, [failed(`${kNoBundle}.+\\.`)], { standin: { collect: 'none' } }),
    'whose script writes no bundle and fails': collects(4, [failed(`${kNoBundle}Access denied\\.\\.`)],
      { standin: { collect: 'none', exit: 5 } }),
    'whose server refuses the connection': fails([requestError('WinHttpSendRequest', 12029), ...kPutFailed],
      { args: ['-url', kNobody] }),
    'whose server answers 200': answers({ status: 200 }),
    'whose server answers 500 with 100 MB': answers({ status: 500, bodyBytes: 1e8 }),
    'whose server resets the connection': answers({ resetAfter: 3 * kMiB }, requestError('WinHttp\\w+', 10054)),
    // When the connection ends after the answer, Wine reports the failed write. Windows may still deliver the 403.
    'whose server answers before the body is through and reads on': answers({ early: 'keep', status: 403 }),
    'whose server answers before the body is through, then closes': answers({ early: 'close', status: 403 }),
    'whose server answers before the body is through, then resets': answers({ early: 'reset', status: 403 }),
    'whose server shows an untrusted certificate': shows('untrusted'),
    'whose server shows an expired certificate': shows('expired'),
    'whose server shows a certificate of another name': shows('wrong-name'),
    'whose server answers 409 to block three': fails([/Code: 409\. .*Total bytes sent: 12582912ll$/s, kUploadFailed],
      { plan: (request, index) => (index === 3 ? { status: 409 } : {}), standin: { size: '257M' } }, 4),
  };
  for (const [name, { code, errors, options, calls, showsUsage, othersPrecede, requests }] of Object.entries(kCases)) {
    it(`${name} ends with ${code}`, async () => {
      const run = await upload(product, { standin: { size: '32M' }, ...options });
      assertEnded(run.result, code, errors);
      assert.ok(othersPrecede || run.result.errors.length === errors.length, `${run.result.errors}`);
      assert.equal(run.result.debug.at(-1).message === kUsage, showsUsage);
      assert.deepEqual(run.result.record.map(({ mode }) => mode), calls);
      assert.equal(run.requests.length, requests);
    });
  }

  it('that cannot collect ends with 4', (test) => withProduct('no-collection',
    { logFolder: 'C:\\mddct\\logs', agent: { UseRegistryForLoggingPath: 'false' } }, async (broken) => {
      const file = (name) => broken.prefix.path(name);
      const kShared = file('C:\\ProgramData\\Calvera');
      // What a collection needs, from its last step to its first. name: [how it is taken away, the error]
      const kSteps = {
        'without a PowerShell': [() => writeFileSync(file(`${kPowerShellFolder}\\powershell.exe`), 'no program'),
          '60: The DCT script failed to start, error: .+'],
        'without the script': [() => rmSync(file(`${kInstallPath}\\dct\\vdx-support.ps1`)),
          '70: The DCT script is not found on disk\\.'],
        'without an install path': [
          () => broken.prefix.importRegistry({ [`${kSettingsKey}\\Agent`]: { AgentInstallPath: null } }),
          '80: Cannot get the AgentInstallPath from registry'],
        'without a folder for the bundle': [() => rmSync(kShared, { recursive: true }) ?? writeFileSync(kShared, ''),
          '130: Cannot create the temporary directory\\.'],
      };
      for (const [name, [takeAway, error]] of Object.entries(kSteps)) {
        await takeAway();
        const result = await broken.run({ args: ['-url', kNobody] });
        await test.test(name, () => assertEnded(result, 4, [failed(error)]));
        assert.deepEqual(result.record, [], name);
      }
    }));

  it('during another run ends with 2 and leaves that run alone', () => withSink({}, async (sink) => {
    const args = ['-url', `${sink.origin}/logs/a.zip`];
    const first = product.run({ args, standin: { delay: 8000 } });
    while (product.record().length === 0) await sleep(20);  // the first run holds the mutex from its first call on
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
