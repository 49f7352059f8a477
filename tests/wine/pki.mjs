// A public-key infrastructure made fresh for one test run: its certificates name the CRLs of a server that runs now,
// and Wine keeps what it fetched by URL.
//
//   trusted root (ca.mjs; in the prefix's store) - intermediate - leaves        private root (in no store) - private
import { X509Certificate } from 'node:crypto';
import { copyFileSync, readFileSync } from 'node:fs';
import { join } from 'node:path';
import { Authority, certificates, kAuthorityExtensions, leafExtensions } from '../../scripts/wine/ca.mjs';
import { stateFolder } from '../../scripts/wine/paths.mjs';
import { emptyFolder } from '../../scripts/wine/proc.mjs';

// name: what differs from a good leaf of the intermediate's
const kLeaves = {
  good: {},
  revoked: {},
  stale: {},   // its CRL has expired
  absent: {},  // its CRL is not there
  expired: { expired: true },
  'wrong-name': { host: 'elsewhere.example' },
  'wrong-usage': { usage: 'clientAuth' },
  private: { isPrivate: true },
};

/**
 * Makes everything; the CRLs are put on the server as root.crl and NAME.crl, a leaf's own.
 * @param {FileServer} server of the CRLs, which listens already.
 * @returns {Promise<function>} leaf(name): {key, cert}, cert holding the leaf and its issuer, and pins: the SHA-256 of
 *   its certificates as upper-case pairs with colons, leaf first and the root last.
 */
export async function makePki(folderName, server) {
  const folder = emptyFolder(stateFolder(folderName));
  const { authority } = await certificates();
  for (const kind of ['pem', 'key']) {
    copyFileSync(authority.pem.replace(/pem$/, kind), join(folder, `root.${kind}`));
  }
  const crlAt = (name) => `crlDistributionPoints = URI:${server.origin}/${name}.crl`;
  const root = new Authority(folder, 'root');
  await root.sign('intermediate', [...kAuthorityExtensions, crlAt('root')]);
  const intermediate = new Authority(folder, 'intermediate');
  const privateRoot = await new Authority(folder, 'private-root').signItself();
  for (const [name, { isPrivate, host = 'localhost', usage, expired }] of Object.entries(kLeaves)) {
    const signer = isPrivate ? privateRoot : intermediate;
    await signer.sign(name, [...leafExtensions(host, usage), crlAt(name)], { expired });
  }
  await intermediate.revoke('revoked');
  const crl = await intermediate.crl();
  for (const name of Object.keys(kLeaves)) server.files.set(`/${name}.crl`, crl);
  server.files.delete('/absent.crl');
  server.files.set('/stale.crl', await intermediate.crl({ expired: true }));
  server.files.set('/private.crl', await privateRoot.crl()).set('/root.crl', await root.crl());

  return (name) => {
    const read = (file) => readFileSync(join(folder, file));
    const chain = kLeaves[name].isPrivate ? [`${name}.pem`, 'private-root.pem'] :
      [`${name}.pem`, 'intermediate.pem', 'root.pem'];
    const pins = chain.map((file) => new X509Certificate(read(file)).fingerprint256);
    return { key: read(`${name}.key`), cert: Buffer.concat(chain.slice(0, 2).map(read)), pins };
  };
}
