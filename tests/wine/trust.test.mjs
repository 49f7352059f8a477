// Which servers a request trusts, by certificates made for this run, over TLS, with CRLs fetched for real.
//
// What differs under Wine: a server that WinHTTP itself refuses shows as error 12157 (Windows: 12175 and the reasons);
// a request that is closed before it is sent still sends its line and headers, so a server sees the probe's GET, and
// what counts as sent is a whole body; WinHTTP's own revocation check never fetches through a proxy.
import assert from 'node:assert/strict';
import { copyFileSync, readFileSync, readdirSync, rmSync, writeFileSync } from 'node:fs';
import { userInfo } from 'node:os';
import { join } from 'node:path';
import { after, before, describe, it } from 'node:test';
import { useFiles, useProduct } from './harness.mjs';
import { binaries } from '../../scripts/wine/paths.mjs';
import { makePki } from './pki.mjs';
import { kProgramFolder, kProxyKey, kSettingsKey } from '../../scripts/wine/product.mjs';
import { startProxy } from './proxy.mjs';
import { startSink } from './sink.mjs';

const kClient = 'mddct_https_client.exe';
const kBody = `${kProgramFolder}\\body.bin`;

// By serial number. Wine takes a "revoked" that it finds there for "good", so a second question would not be answered.
const kWineCache = 'AppData/LocalLow/Microsoft/CryptnetUrlCache';

const preflight = (text) => `WinHttpRequest::preflightCertVerification(): ${text}`;
const sending = (text) => `WinHttpRequest::SendingRequest(): ${text}`;
const manual = (text) => `WinHttpRequest::performManualCRLCheck(): ${text}`;
const kCaptured = preflight("Preflight request successfully obtained the server's certificates");
const kNotCaptured = preflight('Preflight request failed to obtain server certificates. Will perform an in-callback ' +
  'check instead.');
const kAutomatic = preflight('Performing automatic CRL check');
const kManual = preflight('Performing manual CRL check');
const kChecked = preflight("CRL check for preflight's certificates completed");
const matched = (pin) => `WinHttpRequest::thumbprintMatch(): Matched thumbprint: ${pin}`;
const kSame = sending('Preflight thumbprints matched all live certs, skipping further verification');
const kAutomaticFailed = preflight('Preflight: automatic CRL check failed');
const kManualFailed = preflight('Preflight: manual CRL check failed');
const kRefusedByWinHttp = /^WinHttpRequest::RequestCallback\(\): WinHttpSendRequest failed for url .*: 0x2f7d /;

describe('a request', () => {
  const files = useFiles();
  const product = useProduct('trust');
  let proxy, leaf, pac;
  before(async () => {
    proxy = await startProxy('trust');
    leaf = await makePki('pki', files);
    pac = files.addPac('proxy.pac', `PROXY ${proxy.host}`);
    copyFileSync(join(binaries, kClient), product.prefix.path(`${kProgramFolder}\\${kClient}`));
    writeFileSync(product.prefix.path(kBody), Buffer.alloc(100000, 'body'));
    await product.prefix.importRegistry({ [`${kSettingsKey}\\Log`]: { traceEnabled: 'true' } });
  });
  after(() => proxy?.stop());

  const run = async (...args) => {
    const result = await product.run({ program: kClient, asSystem: false, args });
    const [line] = /^\{.*\}/m.exec(result.output) ?? assert.fail(`no answer: ${result.code} ${result.output}`);
    return { ...JSON.parse(line), messages: result.debug.map(({ message }) => message), output: result.output };
  };

  // Puts a body to a server with that leaf; says what the servers saw of it.
  const put = async (name, args) => {
    const sink = await startSink({ leaf: leaf(name), plan: () => ({ status: 201 }) });
    files.requests.length = 0;
    const already = proxy.requests.length;
    rmSync(join(product.prefix.path('C:\\users'), userInfo().username, kWineCache), { recursive: true, force: true });
    try {
      const result = await run('putfile', `${sink.origin}/a`, kBody, ...args);
      const asked = proxy.requests.slice(already);
      const bodies = sink.requests.filter(({ complete, bytes }) => complete && bytes > 0).map(({ bytes }) => bytes);
      const tunnels = asked.filter((line) => line === `CONNECT ${new URL(sink.origin).host}`).length;
      return { ...result, bodies, asked, tunnels };
    } finally {
      await sink.stop();
    }
  };

  const crlUrl = (name) => `${files.origin}/${name}.crl`;
  const proxied = (...args) => ['--revocation', '--pac', pac, ...args];
  const pinned = (pin, ...args) => ['--revocation', '--pin', pin, ...args];

  /**
   * name: [leaf, () => arguments, accepted, what the log holds in this order, CRLs fetched as [direct, proxied]]
   */
  const kCases = {
    'to a good server is sent once the automatic check found nothing': ['good', () => ['--revocation'], true,
      [kCaptured, kAutomatic, kChecked], { good: [1, 0], root: [1, 0] }],
    'to a revoked server is not sent': ['revoked', () => ['--revocation'], false, [kCaptured, kAutomatic,
      /^WinHttpRequest::automaticCRLCheck\(\): Revocation check failed\. Status: 0x4 /, kAutomaticFailed]],
    'to a server whose CRL is not there is not sent': ['absent', () => ['--revocation'], false, [kCaptured, kAutomatic,
      /^WinHttpRequest::automaticCRLCheck\(\): Revocation check failed\. Status: 0x10000[04]0 /, kAutomaticFailed]],
    'through a proxy to a good server fetches the CRLs through the proxy, and finds the chain of the probe again':
      ['good', () => proxied(), true, [kCaptured, kManual, () => manual(`CRL URL: ${crlUrl('good')}`),
        /NOT revoked by CRL .*\/good\.crl$/, /NOT revoked by CRL .*\/root\.crl$/,
        /No CRL URLs found for certificate with subject name: .*mdDCT trusted test authority/, kChecked, kSame],
      { good: [0, 1], root: [0, 1] }],
    'through a proxy to a revoked server is not sent': ['revoked', () => proxied(), false,
      [kCaptured, kManual, /REVOKED by CRL .*\/revoked\.crl$/, kManualFailed], { revoked: [0, 1], root: [0, 0] }],
    'through a proxy with an expired CRL is not sent': ['stale', () => proxied(), false,
      [kCaptured, kManual, () => manual(`CRL ${crlUrl('stale')} is EXPIRED`),
        /CRL check failed\. Unable to perform any/, kManualFailed], { stale: [0, 1] }],
    'through a proxy without a CRL is not sent': ['absent', () => proxied(), false,
      [kCaptured, kManual, /CRL check failed\. Unable to perform any/, kManualFailed], { absent: [0, 1] }],
    'to a private root is sent with the pin of the leaf': ['private', () => pinned(leaf('private').pins[0]), true,
      [kCaptured, kManual, /NOT revoked by CRL .*\/private\.crl$/, kChecked,
        () => matched(leaf('private').pins[0]), kSame],
      { private: [1, 0] }],
    'to a private root is sent with the pin of the root, and through a proxy': ['private',
      () => proxied('--pin', leaf('good').pins[0], '--pin', leaf('private').pins[1]), true,
      [kCaptured, kManual, kChecked, () => matched(leaf('private').pins[1]), kSame],
      { private: [0, 1] }],
    'to a private root is not sent with the pin in lower case': ['private',
      () => pinned(leaf('private').pins[0].toLowerCase()), false, [kCaptured, kManual, kChecked,
        'WinHttpRequest::thumbprintMatch(): Thumbprints did not match.', preflight('Thumbprint verification failed.')]],
    'to a private root is not sent without a pin': ['private', () => ['--revocation'], false,
      [kNotCaptured, kRefusedByWinHttp]],
    'that does not ask for revocation compares the pin on the live chain': ['private',
      () => ['--pin', leaf('private').pins[0]], true, [() => matched(leaf('private').pins[0])], { private: [0, 0] }],
    'that does not ask for revocation is not sent with the pin in lower case': ['private',
      () => ['--pin', leaf('private').pins[0].toLowerCase()], false, [sending('Thumbprint verification failed.')]],
    'to an expired server is not sent': ['expired', () => ['--revocation'], false, [kNotCaptured, kRefusedByWinHttp]],
    'to an expired server is sent when everything is ignored': ['expired', () => ['--revocation', '--ignore-all'], true,
      []],
    'to a server of another name is not sent': ['wrong-name', () => ['--revocation'], false,
      [kNotCaptured, kRefusedByWinHttp]],
    'to a server of another name is sent when names are ignored': ['wrong-name',
      () => proxied('--ignore-name'), true, [kCaptured, kChecked, kSame], { 'wrong-name': [0, 1] }],
    'to a certificate for clients is not sent, whatever is ignored or pinned': ['wrong-usage',
      () => pinned(leaf('wrong-usage').pins[0], '--ignore-name'), false, [kNotCaptured, kRefusedByWinHttp]],
  };
  for (const [title, [name, args, accepted, log, crls = {}]] of Object.entries(kCases)) {
    it(title, async () => {
      const all = args();
      const result = await put(name, all);
      const story = result.messages.join('\n');
      assert.deepEqual([result.ok, result.bodies], [accepted, accepted ? [100000] : []], story);
      let from = 0;
      for (const expected of log.map((entry) => (typeof entry === 'function' ? entry() : entry))) {
        const found = result.messages.slice(from).findIndex(
          (message) => (expected instanceof RegExp ? expected.test(message) : message === expected));
        assert.notEqual(found, -1, `not there, or not there in this order: ${expected}\n${story}`);
        from += found + 1;
      }
      for (const [crl, counts] of Object.entries(crls)) {
        assert.deepEqual([crl, Object.values(files.counts(`/${crl}.crl`))], [crl, counts], story);
      }
      if (all.includes('--pac')) assert.equal(result.tunnels, accepted ? 2 : 1);  // the probe's and the request's
      else assert.deepEqual(result.asked, []);
    });
  }

  it('makes the automatic check through a proxy, too, once the manual one is switched off', async () => {
    await product.prefix.importRegistry({ [kProxyKey]: { DisableManualCRLCheck: 'true' } });
    const { ok, bodies, messages } = await put('revoked', proxied());
    await product.prefix.importRegistry({ [kProxyKey]: { DisableManualCRLCheck: null } });
    assert.deepEqual([ok, bodies, messages.includes(kManual), messages.includes(kAutomaticFailed)],
      [false, [], false, true]);
    assert.ok(messages.includes(preflight('Manual CRL check is disabled by killswitch')));
  });

  // Wine sends credentials only for plain HTTP; Windows also with CONNECT.
  it('shows its credentials to the proxy that demands them, and to no log', async () => {
    const password = 'Tr0ub4dor-and-3';
    const strict = await startProxy('strict', { credentials: `agent ${password}` });
    try {
      const strictPac = files.addPac('strict.pac', `PROXY ${strict.host}`);
      const get = ['get', `${files.origin}/good.crl`, '--plain-http', '--pac', strictPac];
      files.requests.length = 0;
      assert.equal((await run(...get)).status, 407);
      assert.deepEqual(files.counts('/good.crl'), { direct: 0, proxied: 0 });
      const result = await run(...get, '--user', 'agent', '--password', password);
      assert.deepEqual([result.ok, result.status, result.bytes], [true, 200, files.files.get('/good.crl').length]);
      assert.deepEqual(files.counts('/good.crl'), { direct: 0, proxied: 1 });
      const logs = readdirSync(product.logFolder).filter((name) => name.endsWith('.txt'));
      const texts = [result.output, ...logs.map((name) => readFileSync(join(product.logFolder, name), 'utf8'))];
      assert.ok(texts.some((text) => text.includes(strict.host)), 'the right logs');
      const secrets = [password, Buffer.from(`agent:${password}`).toString('base64')];
      for (const text of texts) assert.ok(!secrets.some((secret) => text.includes(secret)), 'the password is in a log');
    } finally {
      await strict.stop();
    }
  });
});
