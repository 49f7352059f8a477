// The upload through a real proxy, which the three values of the registry choose.
import assert from 'node:assert/strict';
import { writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { after, before, describe, it } from 'node:test';
import { assertEnded, kPutFailed, requestError, upload, useFiles, useProduct } from './harness.mjs';
import { kProxyKey } from '../../wine/product.mjs';
import { startProxy } from './proxy.mjs';

const kConnections = 'HKEY_CURRENT_USER\\Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings\\Connections';

/** Returns the user's connection settings with a PAC URL alone, the one form of them that Wine reads. */
function connectionSettings(pacUrl) {
  const words = (...values) => Buffer.from(Uint32Array.from(values).buffer);
  const kPacUrl = 4;
  return Buffer.concat([words(0x46, 1, kPacUrl, 0, 0, pacUrl.length), Buffer.from(pacUrl), Buffer.alloc(32)]);
}

// Wine reads "http://host:port" as a host called "http", with the port of the target; Windows reads it as written. So
// the tests of named proxies give the name "http" to an address of this run, in a hosts file of their own.
const kNamedAddress = `127.77.${(process.pid >> 8) & 255}.${process.pid & 255}`;
function withHosts(prefix) {
  const hosts = join(prefix.folder, 'hosts');
  writeFileSync(hosts, `127.0.0.1 localhost\n${kNamedAddress} http\n`);
  const flags = process.getuid() === 0 ? '-m' : '-Urm';
  return ['unshare', flags, 'sh', '-c', 'mount --bind "$0" /etc/hosts && exec "$@"', hosts];
}

const kChosen = 'SystemProxy::ChooseProxyServer(): ';
// The second entry serves https. Nothing listens at the first one.
const kList = `http=127.0.0.1:1;https=${kNamedAddress}:443`;
const kUsesList = [`Sanitizing manual proxy: ${kList}`, `Using sanitized manual proxy: http://${kNamedAddress}:443`];
const kNoPac = [/^SystemProxy::ResolvePacUrl\(\): Unable to find proxy with given pac file: 0x/];

describe('the upload', () => {
  const files = useFiles();
  const product = useProduct('proxies');
  let proxy, named, hindrance;
  before(async () => {
    proxy = await startProxy('upload');
    named = await startProxy('upload-named', { address: kNamedAddress, port: 443 }).catch((error) => {
      hindrance = `cannot listen on port 443 of ${kNamedAddress}: ${error.message}`;
    });
    product.prefix.wrapper = withHosts(product.prefix);
    const tried = await product.prefix.wine(['cmd', '/c', 'exit 0']);
    if (tried.code !== 0) hindrance = `cannot use a hosts file of its own: ${tried.output}`;
  });
  after(() => Promise.all([proxy?.stop(), named?.stop()]));

  /** Uploads with these settings. tunnels: how many tunnels to the server the proxies were asked for. */
  const send = async ({ server = null, bypass = null, pac = null, user = null, size = '1M' }) => {
    await product.prefix.importRegistry({
      [kProxyKey]: { 'HTTP Proxy Server': server, 'HTTP Proxy Bypass': bypass, 'HTTP Proxy Auto Config URL': pac },
      [kConnections]: { DefaultConnectionSettings: user && connectionSettings(user) },
    });
    product.prefix.wrapper = server === kList ? withHosts(product.prefix) : [];
    const run = await upload(product, { standin: { size } });
    const chosen = run.result.debug.map(({ message }) => message).filter((message) => message.startsWith(kChosen))
      .map((message) => message.slice(kChosen.length));
    const asked = [proxy, named].flatMap((each) => each?.requests ?? []);
    const tunnels = asked.filter((line) => line === `CONNECT ${new URL(run.origin).host}`).length;
    return { ...run, chosen, tunnels };
  };

  const pacFile = (name, answer) => files.addPac(name, answer);
  // name: [settings, how the proxy is chosen, tunnels, ERROR messages]
  const kCases = {
    'goes through the proxy of a PAC file, byte for byte': [
      () => ({ pac: pacFile('proxy.pac', `PROXY ${proxy.host}`), server: '127.0.0.1:1', size: '40M' }),
      () => [`Found proxy via manual PAC URL: ${proxy.host}`], 1],
    'goes through the proxy of the user\'s automatic configuration': [
      () => ({ user: pacFile('user.pac', `PROXY ${proxy.host}`) }),
      () => [`Found proxy via IE automatic proxy: ${proxy.host}`], 1],
    'goes directly to a host of the bypass list': [() => ({ server: kList, bypass: 'elsewhere.example;localhost' }),
      () => kUsesList, 0],
    'goes through the named proxy when there is no PAC file': [
      () => ({ server: kList, pac: `${files.origin}/none.pac` }), () => kUsesList, 1, kNoPac],
    'goes through the named proxy when the PAC file says DIRECT': [
      () => ({ server: kList, pac: pacFile('direct.pac', 'DIRECT') }), () => kUsesList, 1],
  };
  for (const [name, [settings, choice, tunnels, errors]] of Object.entries(kCases)) {
    it(name, async (t) => {
      if (settings().server === kList && hindrance) return t.skip(hindrance);
      const run = await send(settings());
      assertEnded(run.result, 0, errors);
      assert.equal(run.blob.sha256, run.result.bundles[0].sha256);
      assert.deepEqual([run.chosen, run.tunnels], [choice(), tunnels]);
    });
  }

  it('does not bypass a proxy that does not answer', async () => {
    const { result, requests } = await send({ pac: pacFile('dead.pac', 'PROXY 127.0.0.1:1') });
    assertEnded(result, 7, [requestError('WinHttpSendRequest', 12029), ...kPutFailed]);
    assert.deepEqual(requests, []);
  });
});
