// Uploads to the storage emulator, checked through the storage SDK.
import assert from 'node:assert/strict';
import { join } from 'node:path';
import { after, before, describe, it } from 'node:test';
import { startStorageEmulator } from '../../wine/storage_emulator.mjs';
import { certificates } from '../../wine/certificates.mjs';
import { assertDelivered, assertEnded, kMiB, kUploadFailed, useProduct } from './harness.mjs';
import { stateFolder } from '../../wine/paths.mjs';
import { blobSas } from '../../wine/storage_signatures.mjs';
import { openStorage } from '../../wine/storage_client.mjs';

const kPutFailed = /^AzureBlobUploader::AzurePutBlobRequestCb\(\): Error headers: HTTP\/1\.1 40[34] /;
const kChainFailed = new RegExp('^AzureBlobUploader::AzureAppendBlockRequestCb\\(\\): Failed to append the previous ' +
  'chunk\\. Response Code: 403\\. .*Total bytes sent: 4194304ll$', 's');

describe('the delivery to the storage emulator', () => {
  const product = useProduct('delivery');
  let emulator, storage;
  before(async () => {
    const { leaf, authorityPem } = await certificates();
    emulator = await startStorageEmulator(join(stateFolder('emulators'), 'test-delivery'), leaf('good'));
    storage = openStorage(emulator.origin, emulator.account, authorityPem);
    await storage.createContainer('logs');
  });
  after(async () => {
    storage?.close();
    await emulator?.stop();
  });

  // Runs the product once. Returns the result, and the blob as the SDK sees it.
  const deliver = async (name, { container = 'logs', permissions, size = '1M' } = {}) => {
    const path = `/${container}/${name}`;
    const url = `${emulator.origin}${path}?${blobSas(emulator.account, path, { permissions })}`;
    const result = await product.run({ args: ['-url', url], standin: { size } });
    return { result, blob: await storage.facts(container, decodeURIComponent(name)) };
  };

  it('stores a bundle of 8 MiB as a block blob, by a name with blanks and other letters', async () => {
    const run = await deliver('Pr%C3%BCf%20stand.zip', { size: '8M' });
    assertDelivered(run, 'BlockBlob', 8 * kMiB);
    assert.equal(run.blob.contentType, 'application/zip');
  });

  it('stores a bundle of 257 MiB as an append blob of 65 blocks', async () => {
    const run = await deliver('large.zip', { size: '257M' });
    assertDelivered(run, 'AppendBlob', 257 * kMiB);
    assert.equal(run.blob.blocks, 65);
  });

  // name: [options, error, size of the blob]
  const kRefused = {
    'without permission to write': [{ permissions: 'r' }, kPutFailed],
    'to a container that is not there': [{ container: 'missing' }, kPutFailed],
    'with permission only to create': [{ permissions: 'c', size: '257M' }, kChainFailed, 0],
  };
  for (const [name, [options, error, size]] of Object.entries(kRefused)) {
    it(`${name} ends with 7`, async () => {
      const { result, blob } = await deliver('refused.zip', options);
      assertEnded(result, 7, [error, kUploadFailed]);
      assert.equal(blob?.size, size);
    });
  }
});
