// A public-key infrastructure made fresh for one test run: its certificates name the CRLs of a server that runs now,
// and Wine keeps what it fetched by URL.
//
//   trusted root (ca.mjs; in the prefix's store) - intermediate - leaves        private root (in no store) - private
import { X509Certificate } from 'node:crypto';
import { readFileSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { certificates, signingConfig } from './ca.mjs';
import { stateFolder } from './paths.mjs';
import { emptyFolder, must } from './proc.mjs';

// Not an elliptic curve: Wine refuses one signature in 128 of those, whenever a number in it is a byte shorter.
const newKey = ['-newkey', 'rsa:2048', '-nodes'];
const kPast = ['-startdate', '20200101000000Z', '-enddate', '20200201000000Z'];

// name: what differs from a good leaf of the intermediate's
const kLeaves = {
  good: {},
  revoked: {},
  stale: {},   // its CRL has expired
  absent: {},  // its CRL is not there
  expired: { dates: kPast },
  'wrong-name': { host: 'elsewhere.example' },
  'wrong-usage': { usage: 'clientAuth' },
  private: { authority: 'private-root' },
};

const kExtensions = `
[authority]
basicConstraints = critical,CA:TRUE
keyUsage = critical,keyCertSign,cRLSign
subjectKeyIdentifier = hash
[intermediate]
basicConstraints = critical,CA:TRUE
keyUsage = critical,keyCertSign,cRLSign
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
crlDistributionPoints = URI:$ENV::CRL
[leaf]
basicConstraints = critical,CA:FALSE
keyUsage = critical,digitalSignature,keyEncipherment
extendedKeyUsage = $ENV::USAGE
subjectAltName = DNS:$ENV::HOST
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
crlDistributionPoints = URI:$ENV::CRL
[req]
distinguished_name = any
`;

/** One authority of the infrastructure, as the files of its name in a folder. */
class Authority {
  constructor(folder, name) {
    Object.assign(this, { folder, name });
    writeFileSync(join(folder, `${name}.cnf`), signingConfig(`${name}.db`, name, kExtensions));
    writeFileSync(join(folder, `${name}.db`), '');
  }

  #openssl(args, env = {}) {
    const all = { ...process.env, CRL: 'none', USAGE: 'none', HOST: 'none', ...env };
    return must('openssl', args, { cwd: this.folder, env: all });
  }

  /** Makes the authority's own key and certificate, signed with that key. */
  async signItself() {
    const out = ['-keyout', `${this.name}.key`, '-out', `${this.name}.pem`];
    await this.#openssl(['req', '-x509', ...newKey, '-days', '30', '-subj', `/CN=mdDCT ${this.name}`,
      '-config', `${this.name}.cnf`, '-extensions', 'authority', ...out]);
    return this;
  }

  /** Signs a new key; kind: the section of extensions; values: what they are filled with. */
  async sign(name, kind, values, dates = ['-days', '30']) {
    const config = ['-config', `${this.name}.cnf`];
    await this.#openssl(['req', ...newKey, ...config, '-subj', `/CN=mdDCT ${name}`, '-keyout', `${name}.key`,
      '-out', `${name}.csr`], values);
    await this.#openssl(['ca', '-batch', '-notext', ...config, '-extensions', kind, ...dates, '-in', `${name}.csr`,
      '-out', `${name}.pem`], values);
  }

  revoke(name) {
    return this.#openssl(['ca', '-config', `${this.name}.cnf`, '-revoke', `${name}.pem`]);
  }

  /** A CRL of what was revoked so far, as DER. */
  async crl(dates = ['-crldays', '7']) {
    const [pem, der] = [`${this.name}.crl.pem`, `${this.name}.crl`];
    await this.#openssl(['ca', '-gencrl', '-config', `${this.name}.cnf`, ...dates, '-out', pem]);
    await this.#openssl(['crl', '-in', pem, '-outform', 'DER', '-out', der]);
    return readFileSync(join(this.folder, der));
  }
}

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
    writeFileSync(join(folder, `root.${kind}`), readFileSync(authority.pem.replace(/pem$/, kind)));
  }
  const root = new Authority(folder, 'root');
  await root.sign('intermediate', 'intermediate', { CRL: `${server.origin}/root.crl` });
  const intermediate = new Authority(folder, 'intermediate');
  const privateRoot = await new Authority(folder, 'private-root').signItself();
  for (const [name, { authority: of, host = 'localhost', usage = 'serverAuth', dates }] of Object.entries(kLeaves)) {
    const values = { CRL: `${server.origin}/${name}.crl`, HOST: host, USAGE: usage };
    await (of ? privateRoot : intermediate).sign(name, 'leaf', values, dates);
  }
  await intermediate.revoke('revoked');
  const crl = await intermediate.crl();
  for (const name of Object.keys(kLeaves)) server.files.set(`/${name}.crl`, crl);
  server.files.delete('/absent.crl');
  server.files.set('/stale.crl',
    await intermediate.crl(['-crl_lastupdate', '20200101000000Z', '-crl_nextupdate', '20200201000000Z']));
  server.files.set('/private.crl', await privateRoot.crl()).set('/root.crl', await root.crl());

  return (name) => {
    const read = (file) => readFileSync(join(folder, file));
    const chain = kLeaves[name].authority ? [`${name}.pem`, 'private-root.pem'] :
      [`${name}.pem`, 'intermediate.pem', 'root.pem'];
    const pins = chain.map((file) => new X509Certificate(read(file)).fingerprint256);
    return { key: read(`${name}.key`), cert: Buffer.concat(chain.slice(0, 2).map(read)), pins };
  };
}
