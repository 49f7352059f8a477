// Signatures of the storage service, written from its own rules with nothing but node's crypto.
import { createHmac } from 'node:crypto';

/** The account and key that every storage emulator publishes. */
export const developmentAccount = {
  name: 'devstoreaccount1',
  key: 'Eby8vdM02xNOcqFlqUwJPLlmEtlCDXJ1OUzFT50uSRZ6IFsuFq2UVErCz4I6tq/K1SZFPTOtr/KBHBeksoGMGw==',
};

/**
 * The query of a shared-access signature for one blob and an hour; the string-to-sign is that of versions 2018-11-09
 * and later.
 * @param {string} path /container/blob, percent-encoded as in the URL.
 * @param {string} permissions c creates, w also writes (which Append Block needs); cw is what an upload wants.
 */
export function blobSas(account, path, { permissions = 'cw' } = {}) {
  const end = new Date(Date.now() + 3600000).toISOString().replace(/\.\d+Z$/, 'Z');
  const resource = `/blob/${account.name}${decodeURIComponent(path)}`;
  const text = [permissions, '', end, resource, '', '', '', '2020-04-08', 'b', '', '', '', '', '', ''].join('\n');
  const sig = createHmac('sha256', Buffer.from(account.key, 'base64')).update(text, 'utf8').digest('base64');
  return new URLSearchParams({ sv: '2020-04-08', sr: 'b', sp: permissions, se: end, sig }).toString();
}
