// What every test of the program shares: a product in a prefix of its own, a sink, and what "ended well" means.
import assert from 'node:assert/strict';
import { certificates } from './ca.mjs';
import { clonePrefix, endOnSignals } from './prefix.mjs';
import { Product } from './product.mjs';
import { startSink } from './sink.mjs';

endOnSignals();

export const kMiB = 1024 * 1024;
export const kUploadFailed = 'wWinMain(): Upload failed.';

/** Installs the product in a prefix called name; close() ends everything in there and removes it. */
export async function openProduct(name, options) {
  const prefix = await clonePrefix(`test-${name}`);
  try {
    const product = await Product.install(prefix, options);
    return Object.assign(product, { close: () => prefix.remove() });
  } catch (error) {
    await prefix.remove();
    throw error;
  }
}

/** Lends a product of its own to fn. */
export async function withProduct(name, options, fn) {
  const product = await openProduct(name, options);
  return fn(product).finally(() => product.close());
}

/** Lends a sink to fn; certificate: the name of the leaf that it shows. */
export async function withSink({ certificate = 'good', ...options }, fn) {
  const { leaf } = await certificates();
  const sink = await startSink({ leaf: leaf(certificate), ...options });
  try {
    return await fn(sink);
  } finally {
    await sink.stop();
  }
}

/** Everything of the log, for the message of an assertion that fails. */
const story = (result) => `\n${result.debug.map(({ line }) => line).join('\n').slice(-6000)}\n${result.output}`;

const matches = (text, expected) => (expected instanceof RegExp ? expected.test(text) : text === expected);

/**
 * Demands what every run must show: this exit code, these ERROR messages (texts or patterns) as the last ones, and
 * neither files nor processes left behind.
 */
export function assertEnded(result, code, lastErrors = []) {
  assert.equal(result.timedOut, false, `the run did not end in ${result.ms} ms${story(result)}`);
  assert.equal(result.code, code, story(result));
  const errors = result.errors.slice(-lastErrors.length || Infinity);
  const same = errors.length === lastErrors.length && errors.every((text, n) => matches(text, lastErrors[n]));
  assert.ok(same, `ERROR lines: ${JSON.stringify(errors)}\nexpected: ${lastErrors.join(' | ')}${story(result)}`);
  assert.deepEqual([result.leftBehind, result.running], [[], []], story(result));
}

/** Demands success, and that the stored blob is what the script wrote. */
export function assertDelivered(result, blob, type, size) {
  assertEnded(result, 0);
  assert.ok(result.debug.some(({ message }) => message === 'wWinMain(): DCT collection succeeded.'));
  assert.equal(result.bundles.length, 1);
  const [bundle] = result.bundles;
  assert.deepEqual([blob?.type, blob?.size, blob?.sha256], [type, bundle.size, bundle.sha256]);
  if (size !== undefined) assert.equal(bundle.size, size);
}
