// A public-key infrastructure, made anew for each test run. Its certificates name CRLs on a server of this run, because
// Wine caches by URL what it has fetched.
//
//   trusted root (certificates.mjs; in the store of the prefix) - intermediate - leaves
//   private root (in no store) - private
import { X509Certificate } from 'node:crypto';
import { copyFileSync, readFileSync } from 'node:fs';
import { join } from 'node:path';
import { Authority, certificates, kAuthorityExtensions, leafExtensions } from '../../wine/certificates.mjs';
import { stateFolder } from '../../wine/paths.mjs';
import { emptyFolder } from '../../wine/processes.mjs';

// name: how the leaf differs from a good one of the intermediate authority. The CRL of "stale" has expired. The CRL of
// "absent" does not exist. The server of "rootless" leaves the issuer out.
const kLeaves = { good: {}, revoked: {}, stale: {}, absent: {}, expired: { expired: true },
  'wrong-name': { host: 'elsewhere.example' }, 'wrong-usage': { usage: 'clientAuth' }, private: { isPrivate: true },
  rootless: { isPrivate: true, isAlone: true } };

/**
 * Makes the certificates and the CRLs. Puts the CRLs on the server as root.crl and, for each leaf, NAME.crl.
 * @param {FileServer} server for the CRLs, which listens already.
 * @returns {Promise<function>} leaf(name): {key, cert, pins}. cert holds the leaf, and its issuer unless it is alone.
 *   pins holds the SHA-256 of every certificate of the chain, as upper-case pairs with colons, the leaf first and the
 *   root last.
 */
export async function makePki(folderName, server) {
  const folder = emptyFolder(stateFolder(folderName));
  const file = (name) => join(folder, name);
  const { authority } = await certificates();
  for (const kind of ['pem', 'key']) copyFileSync(authority.pem.replace(/pem$/, kind), file(`root.${kind}`));
  const crlAt = (name) => `crlDistributionPoints = a
[a]
fullname = dirName:b,URI:${server.origin}/${name}.crl
[b]
CN = a name of another kind`;
  const [root, intermediate] = ['root', 'intermediate'].map((name) => new Authority(folder, name));
  await root.sign('intermediate', [...kAuthorityExtensions, crlAt('root')]);
  const privateRoot = await new Authority(folder, 'private-root').signItself();
  for (const [name, { isPrivate, host = 'localhost', usage, expired }] of Object.entries(kLeaves)) {
    const signer = isPrivate ? privateRoot : intermediate;
    await signer.sign(name, [...leafExtensions(host, usage), crlAt(name)], { expired });
  }
  await intermediate.revoke('revoked');
  const crl = await intermediate.crl();
  for (const name of Object.keys(kLeaves)) server.files.set(`/${name}.crl`, crl);
  server.files.set('/stale.crl', await intermediate.crl({ expired: true })).set('/root.crl', await root.crl())
    .set('/private.crl', await privateRoot.crl()).delete('/absent.crl');

  return (name) => {
    const issuers = kLeaves[name].isPrivate ? ['private-root'] : ['intermediate', 'root'];
    const chain = [name, ...issuers].map((each) => readFileSync(file(`${each}.pem`)));
    const pins = chain.map((pem) => new X509Certificate(pem).fingerprint256);
    const shown = chain.slice(0, kLeaves[name].isAlone ? 1 : 2);
    return { key: readFileSync(file(`${name}.key`)), cert: Buffer.concat(shown), pins };
  };
}
