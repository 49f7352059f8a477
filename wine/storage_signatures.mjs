// The signatures of the storage service, computed from its published rules with node's crypto alone.
import { createHmac } from 'node:crypto';

/** The account and the key that every storage emulator publishes. */
export const developmentAccount = {
  name: 'devstoreaccount1',
  key: 'Eby8vdM02xNOcqFlqUwJPLlmEtlCDXJ1OUzFT50uSRZ6IFsuFq2UVErCz4I6tq/K1SZFPTOtr/KBHBeksoGMGw==',
};

const hmac = (key, text) => createHmac('sha256', Buffer.from(key, 'base64')).update(text, 'utf8').digest('base64');

/** Returns the signature of a shared-access query for one blob, as versions 2018-11-09 and later sign it. */
export function sasSignature(account, path, query) {
  const { sp = '', st = '', se = '', sv = '', sr = '', sip = '', spr = '', si = '' } = query;
  const resource = `/blob/${account.name}${decodeURIComponent(path)}`;
  const fields = [sp, st, se, resource, si, sip, spr, sv, sr, '', '', '', '', '', ''];
  return hmac(account.key, fields.join('\n'));
}

/**
 * Returns the query of a shared-access signature for one blob.
 * @param {string} path /container/blob, percent-encoded as in the URL.
 * @param {string} permissions c creates a blob, w also writes to it (Append Block needs w). An upload needs cw.
 */
export function blobSas(account, path, { permissions = 'cw', minutes = 60, version = '2020-04-08' } = {}) {
  const end = new Date(Date.now() + minutes * 60000).toISOString().replace(/\.\d+Z$/, 'Z');
  const fields = { sv: version, sr: 'b', sp: permissions, se: end };
  return new URLSearchParams({ ...fields, sig: sasSignature(account, path, fields) }).toString();
}

// The standard headers of the string-to-sign, in its order. A body length of 0 counts as absent.
const kSignedHeaders = ['content-encoding', 'content-language', 'content-length', 'content-md5', 'content-type', 'date',
  'if-modified-since', 'if-match', 'if-none-match', 'if-unmodified-since', 'range'];

/**
 * Returns the Authorization value of a request that is signed with an account key (Blob service, 2015-02-21 and later).
 * @param {object} headers with lower-case names.
 * @param {URLSearchParams} query
 */
export function sharedKeyAuthorization(account, method, path, query, headers) {
  const standard = kSignedHeaders.map((name) => headers[name] ?? '');
  if (standard[2] === '0') standard[2] = '';
  if (headers['x-ms-date']) standard[5] = '';
  const own = Object.keys(headers).filter((name) => name.startsWith('x-ms-')).sort()
    .map((name) => `${name}:${headers[name]}\n`).join('');
  const names = [...new Set([...query.keys()].map((name) => name.toLowerCase()))].sort();
  const values = (name) => [...query].filter(([key]) => key.toLowerCase() === name).map(([, value]) => value).sort();
  const resource = `/${account.name}${path}${names.map((name) => `\n${name}:${values(name).join(',')}`).join('')}`;
  return `SharedKey ${account.name}:${hmac(account.key, [method, ...standard, own + resource].join('\n'))}`;
}
