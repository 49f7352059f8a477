// The test certificates: one authority that the prefix trusts, one that it does not, and the leaves they signed.
import { X509Certificate } from 'node:crypto';
import { existsSync, readFileSync, renameSync, rmSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { stateFolder } from './paths.mjs';
import { emptyFolder, must, withLock } from './proc.mjs';

const kDay = 24 * 3600 * 1000;

// name: [signed by, DNS name, first and last day as openssl takes them ('' is now and a year from now)]
const kLeaves = {
  good: ['trusted', 'localhost', '', ''],
  expired: ['trusted', 'localhost', '20200101000000Z', '20200201000000Z'],
  'wrong-name': ['trusted', 'elsewhere.example', '', ''],
  untrusted: ['stranger', 'localhost', '', ''],
};

function isFresh(folder) {
  const files = ['trusted.pem', 'trusted.der', ...Object.keys(kLeaves).flatMap((n) => [`${n}.pem`, `${n}.key`])];
  if (!files.every((file) => existsSync(join(folder, file)))) return false;
  const certificate = new X509Certificate(readFileSync(join(folder, 'good.pem')));
  return Date.parse(certificate.validTo) - Date.now() > 7 * kDay && Date.parse(certificate.validFrom) < Date.now();
}

const newKey = ['-newkey', 'rsa:2048', '-nodes'];

async function makeAuthority(folder, name) {
  const subject = `/O=mdDCT tests/CN=mdDCT ${name} test authority`;
  const files = ['-keyout', `${name}.key`, '-out', `${name}.pem`];
  const usage = ['-addext', 'keyUsage=critical,keyCertSign,cRLSign'];
  await must('openssl', ['req', '-x509', ...newKey, '-days', '400', '-subj', subject, ...usage, ...files],
    { cwd: folder });
  await must('openssl', ['x509', '-in', `${name}.pem`, '-outform', 'DER', '-out', `${name}.der`], { cwd: folder });
}

/**
 * What `openssl ca` reads.
 * @param {string} database the file of what was signed; authority: base name of the signer's .pem and .key files.
 * @param {string} extensions the sections that hold the extensions.
 */
export const signingConfig = (database, authority, extensions) => `[ca]
default_ca = all
[all]
database = ${database}
new_certs_dir = .
certificate = ${authority}.pem
private_key = ${authority}.key
rand_serial = yes
default_md = sha256
policy = any
unique_subject = no
[any]
commonName = supplied
${extensions}`;

async function makeLeaf(folder, name) {
  const [authority, host, from, to] = kLeaves[name];
  writeFileSync(join(folder, `${name}.cnf`), signingConfig(`${name}.db`, authority, `[leaf]
basicConstraints = critical,CA:FALSE
keyUsage = critical,digitalSignature,keyEncipherment
extendedKeyUsage = serverAuth
subjectAltName = DNS:${host}
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
`));
  writeFileSync(join(folder, `${name}.db`), '');
  const request = ['-subj', `/CN=${host}`, '-keyout', `${name}.key`, '-out', `${name}.csr`];
  await must('openssl', ['req', ...newKey, ...request], { cwd: folder });
  const dates = from ? ['-startdate', from, '-enddate', to] : ['-days', '365'];
  await must('openssl', ['ca', '-batch', '-notext', '-config', `${name}.cnf`, '-extensions', 'leaf', ...dates,
    '-in', `${name}.csr`, '-out', `${name}.crt`], { cwd: folder });
  const chain = readFileSync(join(folder, `${name}.crt`)) + readFileSync(join(folder, `${authority}.pem`));
  writeFileSync(join(folder, `${name}.pem`), chain);
}

/**
 * The certificates, made with the openssl command when there are none or they end within a week.
 * @returns {Promise<object>} authority: {pem, der} file names; leaf(name): {cert, key} file names and their bytes,
 *   cert holding the leaf and its issuer; names are good, expired, wrong-name, untrusted.
 */
export async function certificates() {
  const folder = join(stateFolder(), 'ca');
  await withLock(`${folder}.lock`, async () => {
    if (isFresh(folder)) return;
    const work = emptyFolder(`${folder}.new`);
    await Promise.all(['trusted', 'stranger'].map((name) => makeAuthority(work, name)));
    for (const name of Object.keys(kLeaves)) await makeLeaf(work, name);
    rmSync(folder, { recursive: true, force: true });
    renameSync(work, folder);
  });
  const leaf = (name) => {
    const [certFile, keyFile] = [join(folder, `${name}.pem`), join(folder, `${name}.key`)];
    return { certFile, keyFile, cert: readFileSync(certFile), key: readFileSync(keyFile) };
  };
  return {
    authority: { pem: join(folder, 'trusted.pem'), der: join(folder, 'trusted.der') },
    authorityPem: readFileSync(join(folder, 'trusted.pem')),
    leaf,
  };
}
