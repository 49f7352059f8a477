// The upload through a real proxy, chosen by the three values of the registry.
import assert from 'node:assert/strict';
import { writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { after, before, beforeEach, describe, it } from 'node:test';
import { certificates } from './ca.mjs';
import { startFileServer } from './crl_server.mjs';
import { assertDelivered, assertEnded, kMiB, kUploadFailed, openProduct } from './harness.mjs';
import { kSettingsKey } from './product.mjs';
import { startProxy } from './proxy.mjs';
import { startSink } from './sink.mjs';

const kConnections = 'HKEY_CURRENT_USER\\Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings\\Connections';

/** The user's connection settings with a PAC URL only: the one form of them that Wine reads. */
function connectionSettings(pacUrl) {
  const words = (...values) => Buffer.from(Uint32Array.from(values).buffer);
  const kPacUrl = 4;
  return Buffer.concat([words(0x46, 1, kPacUrl, 0, 0, pacUrl.length), Buffer.from(pacUrl), Buffer.alloc(32)]);
}

const kChosen = 'SystemProxy::ChooseProxyServer(): ';

// Wine takes "http://host:port" for a host called "http" and its port from the target, where Windows takes it as it
// is written. Such a host is made for the named proxies here: an address of its own, under a hosts file of its own.
const kNamedAddress = `127.77.${(process.pid >> 8) & 255}.${process.pid & 255}`;

function withHosts(prefix, address) {
  const hosts = join(prefix.folder, 'hosts');
  writeFileSync(hosts, `127.0.0.1 localhost\n${address} http\n`);
  const flags = process.getuid() === 0 ? '-m' : '-Urm';
  return ['unshare', flags, 'sh', '-c', 'mount --bind "$0" /etc/hosts && exec "$@"', hosts];
}

describe('the upload', () => {
  let product, sink, files, proxy, named, hindrance;
  before(async () => {
    const { leaf } = await certificates();
    sink = await startSink({ leaf: leaf('good') });
    files = await startFileServer();
    proxy = await startProxy('upload');
    product = await openProduct('proxies');
    named = await startProxy('upload-named', { address: kNamedAddress, port: 443 }).catch((error) => {
      hindrance = `port 443 of ${kNamedAddress} cannot be had: ${error.message}`;
    });
    product.prefix.through = withHosts(product.prefix, kNamedAddress);
    const tried = await product.prefix.wine(['cmd', '/c', 'exit 0']);
    if (tried.code !== 0) hindrance = `no hosts file of one's own: ${tried.output}`;
    product.prefix.through = [];
  });
  after(async () => {
    await product?.close();
    for (const server of [sink, files, proxy, named]) await server?.stop();
  });
  beforeEach(() => {
    sink.requests.length = 0;
  });

  const upload = async ({ server = null, bypass = null, pac = null } = {}, { standin, hosts = false } = {}) => {
    const through = () => proxy.requests.length + (named?.requests.length ?? 0);
    const already = through();
    await product.prefix.importRegistry({ [`${kSettingsKey}\\Node Manager`]: { 'HTTP Proxy Server': server,
      'HTTP Proxy Bypass': bypass, 'HTTP Proxy Auto Config URL': pac } });
    product.prefix.through = hosts ? withHosts(product.prefix, kNamedAddress) : [];
    const result = await product.run({ args: ['-url', `${sink.origin}/logs/a.zip?sv=1&sig=x`], standin });
    const messages = result.debug.map(({ message }) => message);
    const chosen = messages.filter((message) => /^SystemProxy::ChooseProxyServer/.test(message))
      .map((message) => message.slice(kChosen.length));
    return { ...result, messages, chosen, tunnels: through() - already };
  };
  const blob = () => sink.service.blobs.get('/logs/a.zip');
  const tunnel = () => `CONNECT localhost:${new URL(sink.origin).port}`;
  // The second entry serves https; the first one's port is nobody's.
  const list = `http=127.0.0.1:1;https=${kNamedAddress}:443`;
  const usesList = [`Sanitizing manual proxy: ${list}`, `Using sanitized manual proxy: http://${kNamedAddress}:443`];

  it('goes through the proxy of a PAC file, byte for byte', async () => {
    const result = await upload({ pac: files.addPac('proxy.pac', `PROXY ${proxy.host}`), server: '127.0.0.1:1' },
      { standin: { size: '40M' } });
    assertDelivered(result, blob(), 'BlockBlob', 40 * kMiB);
    assert.deepEqual(result.chosen, [`Found proxy via manual PAC URL: ${proxy.host}`]);
    assert.deepEqual([result.tunnels, proxy.requests.at(-1)], [1, tunnel()]);
    assert.ok(result.messages.includes(`WinHttpRequest::performAsync(): Using proxy server: ${proxy.host}`));
  });

  it('goes through the proxy of the user\'s automatic configuration', async () => {
    await product.prefix.importRegistry({ [kConnections]: {
      DefaultConnectionSettings: connectionSettings(files.addPac('user.pac', `PROXY ${proxy.host}`)) } });
    const result = await upload();
    await product.prefix.importRegistry({ [kConnections]: { DefaultConnectionSettings: null } });
    assertDelivered(result, blob(), 'BlockBlob');
    assert.deepEqual(result.chosen, [`Found proxy via IE automatic proxy: ${proxy.host}`]);
    assert.deepEqual([result.tunnels, proxy.requests.at(-1)], [1, tunnel()]);
  });

  it('does not go around a proxy that does not answer', async () => {
    const result = await upload({ pac: files.addPac('dead.pac', 'PROXY 127.0.0.1:1') });
    assertEnded(result, 7, [/^WinHttpRequest::RequestCallback\(\): WinHttpSendRequest failed for url .*: 0x2efd /,
      /^AzureBlobUploader::AzurePutBlobRequestCb\(\): Error headers: /, kUploadFailed]);
    assert.deepEqual(sink.requests, []);
  });

  it('goes through the named proxy', async (t) => {
    if (hindrance) return t.skip(hindrance);
    const result = await upload({ server: list }, { hosts: true });
    assertDelivered(result, blob(), 'BlockBlob');
    assert.deepEqual(result.chosen, usesList);
    assert.deepEqual([result.tunnels, named.requests.at(-1)], [1, tunnel()]);
  });

  it('goes directly to a host of the bypass list', async (t) => {
    if (hindrance) return t.skip(hindrance);
    const result = await upload({ server: list, bypass: 'elsewhere.example;localhost' }, { hosts: true });
    assertDelivered(result, blob(), 'BlockBlob');
    assert.deepEqual([result.chosen, result.tunnels], [usesList, 0]);
  });

  const broken = { 'is not there': undefined, 'is no script': 'function FindProxyForURL(', 'says DIRECT': 'DIRECT' };
  for (const [name, text] of Object.entries(broken)) {
    it(`goes through the named proxy when the PAC file ${name}`, async (t) => {
      if (hindrance) return t.skip(hindrance);
      if (text === 'DIRECT') files.addPac('broken.pac', text);
      else if (text) files.files.set('/broken.pac', text);
      else files.files.delete('/broken.pac');
      const result = await upload({ pac: `${files.origin}/broken.pac`, server: list }, { hosts: true });
      assertEnded(result, 0, text === 'DIRECT' ? [] :
        [/^SystemProxy::ResolvePacUrl\(\): Unable to find proxy with given pac file: 0x/]);
      assert.deepEqual([result.chosen, result.tunnels], [usesList, 1]);
      assert.equal(blob().sha256, result.bundles[0].sha256);
    });
  }
});
