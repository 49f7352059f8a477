// Which servers a request trusts. The certificates are made for this run, the connections use TLS, and the CRLs are
// really fetched.
//
// What differs under Wine: A server that WinHTTP itself refuses shows as error 12157; Windows shows 12175 and reasons.
// A request that is closed before it is sent still sends its request line and headers, so a server sees the GET of the
// probe, and only a whole body counts as sent. WinHTTP's own revocation check never fetches through a proxy.
import assert from 'node:assert/strict';
import { copyFileSync, readFileSync, readdirSync, rmSync, writeFileSync } from 'node:fs';
import { userInfo } from 'node:os';
import { join } from 'node:path';
import { after, before, describe, it } from 'node:test';
import { useFiles, useProduct } from './harness.mjs';
import { binaries } from '../../wine/paths.mjs';
import { makePki } from './pki.mjs';
import { kProgramFolder, kProxyKey, kSettingsKey } from '../../wine/product.mjs';
import { startProxy } from './proxy.mjs';
import { startSink } from './sink.mjs';

const kClient = 'mddct_https_client.exe';
const kBody = `${kProgramFolder}\\body.bin`;

// A cache by serial number. Wine reads "revoked" from it as "good", so every row starts without it.
const kWineCache = 'AppData/LocalLow/Microsoft/CryptnetUrlCache';

const kPassword = 'Tr0ub4dor-and-3';
const kProxied = '--revocation --pac=PAC';
// Outcomes: what the operation returns, the bodies at the server, the tunnels (one of the probe, one of the request).
const [kSent, kSentByProxy] = [[true, [100000], 0], [true, [100000], 2]];
const [kRefused, kRefusedByProxy] = [[false, [], 0], [false, [], 1]];
const kCaptured = /: Preflight request successfully obtained the server's certificates$/;
const kAutomatic = /: Performing automatic CRL check$/;
const kManual = /: Performing manual CRL check$/;
const kChecked = /: CRL check for preflight's certificates completed$/;
const kSame = /: Preflight thumbprints matched all live certs, skipping further verification$/;
const kByWinHttp = [/: Preflight request failed to obtain server certificates\. Will perform an in-callback check/,
  /^WinHttpRequest::RequestCallback\(\): WinHttpSendRequest failed for url .*: 0x2f7d /];

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
    files.requests.length = 0;
    const result = await product.run({ program: kClient, asSystem: false, args });
    const [line] = /^\{.*\}/m.exec(result.output) ?? assert.fail(`no answer: ${result.code} ${result.output}`);
    return { ...JSON.parse(line), messages: result.debug.map(({ message }) => message), output: result.output };
  };

  // Puts a body to a server with this leaf. Returns the result, and what the servers saw.
  const put = async (name, options) => {
    const sink = await startSink({ leaf: leaf(name), plan: () => ({ status: 201 }) });
    const already = proxy.requests.length;
    rmSync(join(product.prefix.path('C:\\users'), userInfo().username, kWineCache), { recursive: true, force: true });
    try {
      const result = await run('putfile', `${sink.origin}/a`, kBody, ...options.replace('PAC', pac).split(' '));
      const asked = proxy.requests.slice(already);
      const bodies = sink.requests.filter(({ complete, bytes }) => complete && bytes > 0).map(({ bytes }) => bytes);
      const tunnels = asked.filter((line) => line === `CONNECT ${new URL(sink.origin).host}`).length;
      return { ...result, bodies, asked, tunnels };
    } finally {
      await sink.stop();
    }
  };

  const disableManualCheck = (value) => product.prefix.importRegistry(
    { [kProxyKey]: { DisableManualCRLCheck: value } });
  // name: [leaf, options, outcome, log lines in this order, CRLs fetched as [directly, through the proxy], value of
  // DisableManualCRLCheck]. "private#0" is the pin of that leaf, "private#1" that of its issuer, and "private#0-" the
  // first one in lower case.
  const pinned = (text) => text.replace(/([\w-]+)#(\d)(-?)/g, (_, name, n, lower) => (
    lower ? leaf(name).pins[n].toLowerCase() : leaf(name).pins[n]));
  const kCases = {
    'to a good server is sent once the automatic check found nothing': ['good', '--revocation', kSent,
      [kCaptured, kAutomatic, kChecked], { good: [1, 0], root: [1, 0] }],
    'to a revoked server is not sent': ['revoked', '--revocation', kRefused, [kCaptured, kAutomatic,
      /automaticCRLCheck\(\): Revocation check failed\. Status: 0x4 /, /: Preflight: automatic CRL check failed$/]],
    'to a server whose CRL is not there is not sent': ['absent', '--revocation', kRefused, [kAutomatic,
      /automaticCRLCheck\(\): Revocation check failed\. Status: 0x10000[04]0 /]],
    'through a proxy to a good server fetches the CRLs through the proxy, and finds the chain of the probe again':
      ['good', kProxied, kSentByProxy, [kCaptured, kManual, /NOT revoked by CRL .*\/good\.crl$/,
        /NOT revoked by CRL .*\/root\.crl$/,
        /No CRL URLs found for certificate with subject name: .*mdDCT trusted test authority/, kChecked, kSame],
      { good: [0, 1], root: [0, 1] }],
    'through a proxy to a revoked server is not sent': ['revoked', kProxied, kRefusedByProxy, [kManual,
      /REVOKED by CRL .*\/revoked\.crl$/, /: Preflight: manual CRL check failed$/], { revoked: [0, 1], root: [0, 0] }],
    'through a proxy with an expired CRL is not sent': ['stale', kProxied, kRefusedByProxy,
      [/\/stale\.crl is EXPIRED$/, /CRL check failed\. Unable to perform any/], { stale: [0, 1] }],
    'through a proxy to a revoked server is not sent once only the automatic check is allowed': ['revoked', kProxied,
      kRefusedByProxy, [/: Manual CRL check is disabled by killswitch$/, kAutomatic], {}, 'true'],
    'to a private root is sent with the pin of the leaf': ['private', '--revocation --pin=private#0', kSent,
      [kManual, /NOT revoked by CRL .*\/private\.crl$/, 'Matched thumbprint: private#0', kSame], { private: [1, 0] }],
    'to a private root is sent with the pin of the root, and through a proxy': ['private',
      `${kProxied} --pin=good#0 --pin=private#1`, kSentByProxy, [kManual, 'Matched thumbprint: private#1', kSame],
      { private: [0, 1] }],
    'to a private root is not sent with the pin in lower case': ['private', '--revocation --pin=private#0-', kRefused,
      [kChecked, 'Thumbprints did not match.', 'preflightCertVerification(): Thumbprint verification failed.']],
    'to a private root is not sent without a pin': ['private', '--revocation', kRefused, kByWinHttp],
    'to a server that leaves its private root out is not sent, whatever is pinned': ['rootless', '--pin=rootless#0',
      kRefused, [/verifyCertChain\(\): Unable to verify cert chain\. Error: 0x800b010a$/]],
    'that does not ask for revocation compares the pin on the live chain': ['private', '--pin=private#0', kSent,
      ['Matched thumbprint: private#0'], { private: [0, 0] }],
    'to an expired server is sent when everything is ignored': ['expired', '--revocation --ignore-all', kSent, []],
    'to a server of another name is sent when names are ignored': ['wrong-name', `${kProxied} --ignore-name`,
      kSentByProxy, [kCaptured, kChecked, kSame], { 'wrong-name': [0, 1] }],
    'to a certificate for clients is not sent, whatever is ignored or pinned': ['wrong-usage',
      '--revocation --pin=wrong-usage#0 --ignore-name', kRefused, kByWinHttp],
  };
  for (const [title, [name, options, outcome, log, crls = {}, disabled]] of Object.entries(kCases)) {
    it(title, async () => {
      if (disabled) await disableManualCheck(disabled);
      const result = await put(name, pinned(options));
      if (disabled) await disableManualCheck(null);
      const story = result.messages.join('\n');
      assert.deepEqual([result.ok, result.bodies, result.tunnels], outcome, story);
      let from = 0;
      for (const expected of log) {
        const found = result.messages.slice(from).findIndex((message) => (
          expected instanceof RegExp ? expected.test(message) : message.endsWith(pinned(expected))));
        assert.notEqual(found, -1, `not there, or not there in this order: ${expected}\n${story}`);
        from += found + 1;
      }
      for (const [crl, counts] of Object.entries(crls)) assert.deepEqual(files.counts(`/${crl}.crl`), counts, story);
      assert.equal(result.asked.length > 0, outcome[2] > 0, story);
    });
  }

  it('is redirected when nothing is checked and it has no body, not otherwise', async () => {
    const other = await startSink({ leaf: leaf('good'), plan: () => ({ status: 200 }) });
    const plan = () => ({ status: 307, location: `${other.origin}/b` });
    const sink = await startSink({ leaf: leaf('good'), plan });
    try {
      for (const [args, status, redirected] of [
        [['get', `${sink.origin}/a`], 200, 1],
        [['get', `${sink.origin}/a`, `--pin=${leaf('good').pins[0]}`], 307, 0],
        [['get', `${sink.origin}/a`, '--revocation'], 307, 0],
        [['putfile', `${sink.origin}/a`, kBody], 307, 0],
      ]) {
        other.requests.length = 0;
        const result = await run(...args);
        assert.deepEqual([result.status, other.requests.length], [status, redirected], args.join(' '));
      }
    } finally {
      await Promise.all([sink.stop(), other.stop()]);
    }
  });

  // The URL has a query, because Wine counts a fragment behind a bare path as part of the path.
  it('takes no part of an answer for the whole, and sends no fragment', async () => {
    const plans = { '/huge': { status: 200, bodyBytes: 101 << 20 }, '/cut': { status: 200, cutReply: true } };
    const sink = await startSink({ leaf: leaf('good'), plan: ({ path }) => plans[path] ?? { status: 200 } });
    try {
      for (const [url, ok, least, most] of [
        ['/huge', false, 99 << 20, 100 << 20],
        ['/cut', false, 1, 1],
        ['/whole?sv=1#part', true, 2, 2],
      ]) {
        const result = await run('get', sink.origin + url);
        assert.deepEqual([result.status, result.ok], [200, ok], url);
        assert.ok(least <= result.bytes && result.bytes <= most, `${url}: ${result.bytes}`);
      }
      assert.equal(sink.requests.at(-1).queryText, 'sv=1');
    } finally {
      await sink.stop();
    }
  });

  // Wine sends credentials only for plain HTTP; Windows also with CONNECT.
  it('shows its credentials to the proxy that demands them, and to no log', async () => {
    const strict = await startProxy('strict', { credentials: `agent ${kPassword}` });
    try {
      const get = ['get', `${files.origin}/good.crl`, '--plain-http',
        `--pac=${files.addPac('strict.pac', `PROXY ${strict.host}`)}`];
      assert.deepEqual([(await run(...get)).status, files.counts('/good.crl')], [407, [0, 0]]);
      const { ok, status, bytes, output } = await run(...get, '--user=agent', `--password=${kPassword}`);
      assert.deepEqual([ok, status, bytes, files.counts('/good.crl')],
        [true, 200, files.files.get('/good.crl').length, [0, 1]]);
      const logs = readdirSync(product.logFolder).filter((name) => name.endsWith('.txt'));
      const text = [output, ...logs.map((name) => readFileSync(join(product.logFolder, name), 'utf8'))].join('\n');
      assert.ok(text.includes(strict.host), 'the right logs');
      for (const secret of [kPassword, Buffer.from(`agent:${kPassword}`).toString('base64')]) {
        assert.ok(!text.includes(secret), 'the password is in a log');
      }
    } finally {
      await strict.stop();
    }
  });
});
