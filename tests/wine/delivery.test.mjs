// The program's job against the storage emulator, with the storage SDK as the witness.
import assert from 'node:assert/strict';
import { join } from 'node:path';
import { after, before, describe, it } from 'node:test';
import { startAzurite } from './azurite.mjs';
import { certificates } from './ca.mjs';
import { assertDelivered, assertEnded, kMiB, kUploadFailed, openProduct } from './harness.mjs';
import { stateFolder } from './paths.mjs';
import { blobSas } from './sas.mjs';
import { openStorage } from './storage.mjs';

const kPutFailed = /^AzureBlobUploader::AzurePutBlobRequestCb\(\): Error headers: HTTP\/1\.1 40[34] /;
const kChainFailed = /^AzureBlobUploader::AzureAppendBlockRequestCb\(\): Failed to append the previous chunk\. /;

describe('the delivery to the storage emulator', () => {
  let azurite, storage, product;
  before(async () => {
    const { leaf, authorityPem } = await certificates();
    azurite = await startAzurite(join(stateFolder('emulators'), 'test-delivery'), leaf('good'));
    storage = openStorage(azurite.origin, azurite.account, authorityPem);
    await storage.createContainer('logs');
    product = await openProduct('delivery');
  });
  after(async () => {
    await product?.close();
    storage?.close();
    await azurite?.stop();
  });

  const deliver = async (blob, { container = 'logs', permissions, standin, timeoutMs } = {}) => {
    const path = `/${container}/${blob}`;
    const url = `${azurite.origin}${path}?${blobSas(azurite.account, path, { permissions })}`;
    return product.run({ args: ['-url', url], standin, timeoutMs });
  };

  it('stores a bundle of 8 MiB as a block blob', async () => {
    const result = await deliver('small.zip', { standin: { size: '8M' } });
    const blob = await storage.facts('logs', 'small.zip');
    assertDelivered(result, blob, 'BlockBlob', 8 * kMiB);
    assert.equal(blob.contentType, 'application/zip');
  });

  it('stores a bundle of 257 MiB as an append blob of 65 blocks', async () => {
    const result = await deliver('large.zip', { standin: { size: '257M' }, timeoutMs: 180000 });
    const blob = await storage.facts('logs', 'large.zip');
    assertDelivered(result, blob, 'AppendBlob', 257 * kMiB);
    assert.equal(blob.blocks, 65);
  });

  it('of a name with blanks and other letters succeeds', async () => {
    const result = await deliver('Pr%C3%BCf%20stand.zip');
    assertDelivered(result, await storage.facts('logs', 'Prüf stand.zip'), 'BlockBlob');
  });

  it('without permission to write ends with 7', async () => {
    assertEnded(await deliver('read.zip', { permissions: 'r' }), 7, [kPutFailed, kUploadFailed]);
  });

  it('to a container that is not there ends with 7', async () => {
    assertEnded(await deliver('a.zip', { container: 'missing' }), 7, [kPutFailed, kUploadFailed]);
  });

  it('with permission only to create ends with 7 after the first block', async () => {
    const result = await deliver('create.zip', { permissions: 'c', standin: { size: '257M' }, timeoutMs: 120000 });
    assertEnded(result, 7, [kChainFailed, kUploadFailed]);
    assert.match(result.errors.at(-2), /Response Code: 403\. .*Total bytes sent: 4194304ll$/s);
    assert.equal((await storage.facts('logs', 'create.zip')).size, 0);
  });
});
