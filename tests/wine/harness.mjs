// What the tests of the program share: a product in its own prefix, a sink, and the checks that every run must pass.
import assert from 'node:assert/strict';
import { after, before } from 'node:test';
import { certificates } from '../../wine/certificates.mjs';
import { FileServer } from './file_server.mjs';
import { clonePrefix, endOnSignals } from '../../wine/prefix.mjs';
import { Product, kProxyKey, parseLog } from '../../wine/product.mjs';
import { startSink } from './sink.mjs';

endOnSignals();

export const kMiB = 1024 * 1024;
export const kUploadFailed = 'wWinMain(): Upload failed.';
/** The last two ERROR messages of a Put Blob that failed. */
export const kPutFailed = [/^AzureBlobUploader::AzurePutBlobRequestCb\(\): Error headers: /, kUploadFailed];
export const requestError = (operation, number) => new RegExp(
  `^WinHttpRequest::RequestCallback\\(\\): ${operation} failed for url https://.*: 0x${number.toString(16)} `);

/** Installs a product in a prefix of this name, for the tests of a suite. asks: a FileServer with its PAC file. */
export function useProduct(name, { asks } = {}) {
  const product = new Product();
  before(async () => {
    product.prefix = await clonePrefix(`test-${name}`);
    Object.assign(product, await Product.install(product.prefix));
    const pac = asks?.addPac('direct.pac', 'DIRECT');
    if (asks) await product.prefix.importRegistry({ [kProxyKey]: { 'HTTP Proxy Auto Config URL': pac } });
  });
  after(() => product.prefix?.remove());
  return product;
}

/** Starts a server of CRLs and PAC files for the tests of a suite. */
export function useFiles() {
  const files = new FileServer();
  before(() => files.start());
  after(() => files.stop());
  return files;
}

/** Runs fn with a product in a prefix of its own, and removes the prefix afterwards. */
export async function withProduct(name, options, fn) {
  const prefix = await clonePrefix(`test-${name}`);
  try {
    return await fn(await Product.install(prefix, options));
  } finally {
    await prefix.remove();
  }
}

/** Runs fn with a sink, and stops the sink afterwards. certificate: the name of the leaf that the sink shows. */
export async function withSink({ certificate = 'good', plan } = {}, fn) {
  const { leaf } = await certificates();
  const sink = await startSink({ leaf: leaf(certificate), plan });
  try {
    return await fn(sink);
  } finally {
    await sink.stop();
  }
}

/** Runs the product once, against a sink of its own. The options are those of the run and of withSink(). */
export const upload = (product, { plan, certificate, query = '', ...options } = {}) => withSink({ plan, certificate },
  async (sink) => {
    const result = await product.run({ args: ['-url', `${sink.origin}/logs/a.zip${query}`], ...options });
    return { result, origin: sink.origin, requests: sink.requests, blob: sink.service.blobs.get('/logs/a.zip') };
  });

/** Returns the end of the debug log and the output, for the message of a failed assertion. */
const logOf = (result) => `\n${result.debug.map(({ line }) => line).join('\n').slice(-6000)}\n${result.output}`;

const matches = (text, expected) => (expected instanceof RegExp ? expected.test(text) : text === expected);

/**
 * Checks what every run must show: this exit code, these ERROR messages (texts or patterns) as the last ones, and
 * neither files nor processes left behind.
 */
export function assertEnded(result, code, lastErrors = []) {
  assert.equal(result.timedOut, false, `the run did not end in ${result.ms} ms${logOf(result)}`);
  assert.equal(result.code, code, logOf(result));
  const errors = result.errors.slice(-lastErrors.length || Infinity);
  const same = errors.length === lastErrors.length && errors.every((text, n) => matches(text, lastErrors[n]));
  assert.ok(same, `ERROR lines: ${JSON.stringify(errors)}\nexpected: ${lastErrors.join(' | ')}${logOf(result)}`);
  assert.deepEqual([result.leftBehind, result.running], [[], []], logOf(result));
}

/** Checks that both log files consist of whole records, and returns the records of each. */
export const wholeRecords = (product) => ['log', 'debug'].map((base) => {
  const text = product.logText(base);
  assert.match(text.slice(-200), /^$|\r\n$/);
  const records = parseLog(text);
  for (const { time, line } of records) assert.ok(time, `not a record: ${line}`);
  return records;
});

/** Checks that the run succeeded and that the stored blob is what the script wrote. */
export function assertDelivered({ result, blob }, type, size) {
  assertEnded(result, 0);
  assert.ok(result.debug.some(({ message }) => message === 'wWinMain(): DCT collection succeeded.'));
  assert.equal(result.bundles.length, 1);
  const [bundle] = result.bundles;
  assert.deepEqual([blob?.type, blob?.size, blob?.sha256], [type, bundle.size, bundle.sha256]);
  if (size !== undefined) assert.equal(bundle.size, size);
}
