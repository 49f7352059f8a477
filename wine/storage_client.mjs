// The storage service seen through its own SDK. It checks independently what the product has stored.
import { createHash } from 'node:crypto';
import { Agent } from 'node:https';
import { createRequire } from 'node:module';

const require = createRequire(import.meta.url);
const { BlobServiceClient, StorageSharedKeyCredential, newPipeline } = require('@azure/storage-blob');

/** Returns a step of the SDK's pipeline that sends every request through this agent. */
const sendThrough = (agent) => ({
  create: (next) => ({ sendRequest: (request) => next.sendRequest(Object.assign(request, { agent })) }),
});

/**
 * Opens an account of the storage service.
 * @param {string} origin the URL of the account.
 * @param {{name: string, key: string}} account
 * @param {string} authorityPem the authority whose server certificates the client trusts.
 * @returns {{service, createContainer, facts, close}} facts(container, blob) downloads a blob and returns its name,
 *   type, size and SHA-256, or null when there is no such blob.
 */
export function openStorage(origin, account, authorityPem) {
  const agent = new Agent({ ca: authorityPem });
  const credential = new StorageSharedKeyCredential(account.name, account.key);
  const pipeline = newPipeline(credential, { retryOptions: { maxTries: 1 } });
  pipeline.factories.unshift(sendThrough(agent));
  const service = new BlobServiceClient(origin, pipeline);
  const facts = async (container, name) => {
    const blob = service.getContainerClient(container).getBlobClient(name);
    if (!(await blob.exists())) return null;
    const properties = await blob.getProperties();
    const hash = createHash('sha256');
    for await (const chunk of (await blob.download()).readableStreamBody) hash.update(chunk);
    const { blobType: type, contentLength: size, contentType, blobCommittedBlockCount: blocks } = properties;
    return { name, type, size, contentType, blocks, sha256: hash.digest('hex') };
  };
  return {
    service,
    createContainer: (container) => service.getContainerClient(container).createIfNotExists(),
    facts,
    close: () => agent.destroy(),
  };
}
