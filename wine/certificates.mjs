// The test certificates: an authority that the prefix trusts, one that it does not trust, and the server certificates
// (leaves) that they signed.
import { X509Certificate } from 'node:crypto';
import { appendFileSync, existsSync, readFileSync, renameSync, rmSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { stateFolder } from './paths.mjs';
import { emptyFolder, must, withLock } from './processes.mjs';

const kDay = 24 * 3600 * 1000;
const kPast = ['-startdate', '20200101000000Z', '-enddate', '20200201000000Z'];
// RSA, because Wine refuses one in 128 signatures of an elliptic curve: those with a number that is a byte shorter.
const newKey = ['-newkey', 'rsa:2048', '-nodes'];

export const kAuthorityExtensions = ['basicConstraints = critical,CA:TRUE', 'keyUsage = critical,keyCertSign,cRLSign',
  'subjectKeyIdentifier = hash', 'authorityKeyIdentifier = keyid'];
export const leafExtensions = (host, usage = 'serverAuth') => ['basicConstraints = critical,CA:FALSE',
  'keyUsage = critical,digitalSignature,keyEncipherment', `extendedKeyUsage = ${usage}`,
  `subjectAltName = DNS:${host}`, 'subjectKeyIdentifier = hash', 'authorityKeyIdentifier = keyid'];

/** One authority: the files of its name in a folder, worked on with the openssl command. */
export class Authority {
  constructor(folder, name) {
    Object.assign(this, { folder, name });
    writeFileSync(join(folder, `${name}.db`), '');
    writeFileSync(join(folder, `${name}.cnf`), `[ca]
default_ca = all
[all]
database = ${name}.db
new_certs_dir = .
certificate = ${name}.pem
private_key = ${name}.key
rand_serial = yes
default_md = sha256
policy = any
unique_subject = no
[any]
commonName = supplied
`);
  }

  #openssl(...args) {
    return must('openssl', args, { cwd: this.folder });
  }

  #ca(...args) {
    return this.#openssl('ca', '-batch', '-notext', '-config', `${this.name}.cnf`, ...args);
  }

  /** Makes the key of the authority, and its certificate, signed with that key. */
  async signItself() {
    await this.#openssl('req', '-x509', ...newKey, '-days', '400', '-addext', 'keyUsage=critical,keyCertSign,cRLSign',
      '-subj', `/O=mdDCT tests/CN=mdDCT ${this.name} test authority`, '-keyout', `${this.name}.key`,
      '-out', `${this.name}.pem`);
    await this.#openssl('x509', '-in', `${this.name}.pem`, '-outform', 'DER', '-out', `${this.name}.der`);
    return this;
  }

  /** Makes NAME.key and NAME.pem, the certificate of that key. An expired one has its dates in the past. */
  async sign(name, extensions, { expired = false } = {}) {
    await this.#openssl('req', ...newKey, '-subj', `/CN=mdDCT ${name}`, '-keyout', `${name}.key`,
      '-out', `${name}.csr`);
    writeFileSync(join(this.folder, `${name}.ext`), extensions.join('\n'));
    await this.#ca('-extfile', `${name}.ext`, ...(expired ? kPast : ['-days', '365']), '-in', `${name}.csr`,
      '-out', `${name}.pem`);
  }

  revoke(name) {
    return this.#ca('-revoke', `${name}.pem`);
  }

  /** Returns a CRL of what was revoked so far, as DER. */
  async crl({ expired = false } = {}) {
    const [pem, der] = [`${this.name}.crl.pem`, `${this.name}.crl`];
    const dates = expired ? ['-crl_lastupdate', kPast[1], '-crl_nextupdate', kPast[3]] : ['-crldays', '7'];
    await this.#ca('-gencrl', ...dates, '-out', pem);
    await this.#openssl('crl', '-in', pem, '-outform', 'DER', '-out', der);
    return readFileSync(join(this.folder, der));
  }
}

/** Returns whether the certificates exist and are valid for at least another week. */
function isFresh(folder) {
  if (!existsSync(folder)) return false;
  const certificate = new X509Certificate(readFileSync(join(folder, 'good.pem')));
  return Date.parse(certificate.validTo) - Date.now() > 7 * kDay && Date.parse(certificate.validFrom) < Date.now();
}

async function makeAll(folder) {
  const trusted = await new Authority(folder, 'trusted').signItself();
  const stranger = await new Authority(folder, 'stranger').signItself();
  await trusted.sign('good', leafExtensions('localhost'));
  await trusted.sign('expired', leafExtensions('localhost'), { expired: true });
  await trusted.sign('wrong-name', leafExtensions('elsewhere.example'));
  await stranger.sign('untrusted', leafExtensions('localhost'));
  for (const name of ['good', 'expired', 'wrong-name', 'untrusted']) {
    const issuer = name === 'untrusted' ? 'stranger' : 'trusted';
    appendFileSync(join(folder, `${name}.pem`), readFileSync(join(folder, `${issuer}.pem`)));
  }
}

/**
 * Returns the certificates, and makes them first when there are none or they end within a week.
 * @returns {Promise<object>} authority: the file names {pem, der} of the trusted one; authorityPem: its certificate;
 *   leaf(name): {certFile, keyFile, cert, key}, the file names and their bytes. cert holds the leaf and its issuer. The
 *   names are good, expired, wrong-name and untrusted.
 */
export async function certificates() {
  const folder = join(stateFolder(), 'ca');
  await withLock(`${folder}.lock`, async () => {
    if (isFresh(folder)) return;
    const work = emptyFolder(`${folder}.new`);
    await makeAll(work);
    rmSync(folder, { recursive: true, force: true });
    renameSync(work, folder);
  });
  const leaf = (name) => {
    const [certFile, keyFile] = [join(folder, `${name}.pem`), join(folder, `${name}.key`)];
    return { certFile, keyFile, cert: readFileSync(certFile), key: readFileSync(keyFile) };
  };
  const pem = join(folder, 'trusted.pem');
  return { authority: { pem, der: join(folder, 'trusted.der') }, authorityPem: readFileSync(pem), leaf };
}
