// Tests the sink itself, because the tests of the product rely on it: the storage SDK must work with it, and it must
// refuse what the storage service refuses.
import assert from 'node:assert/strict';
import { createHash } from 'node:crypto';
import { it } from 'node:test';
import { BlobService } from './blob_service.mjs';
import { certificates } from '../../wine/certificates.mjs';
import { blobSas, developmentAccount as account } from '../../wine/storage_signatures.mjs';
import { startSink } from './sink.mjs';
import { openStorage } from '../../wine/storage_client.mjs';

const sha256 = (bytes) => createHash('sha256').update(bytes).digest('hex');

it('the storage SDK finds a service in the sink', async () => {
  const { leaf, authorityPem } = await certificates();
  const sink = await startSink({ leaf: leaf('good'), account });
  const open = (key) => openStorage(sink.origin, { ...account, key }, authorityPem);
  const [storage, stranger] = [open(account.key), open('AAAA')];
  const [container, others] = [storage, stranger].map(({ service }) => service.getContainerClient('logs'));
  const rejectsWith = (promise, statusCode, code) => assert.rejects(promise, (error) => {
    assert.deepEqual([error.statusCode, error.details?.errorCode ?? error.code], [statusCode, code]);
    return true;
  });
  try {
    const body = Buffer.alloc(300000, 'abc');
    await container.getBlockBlobClient('put.zip').upload(body, body.length);
    const put = sink.service.blobs.get('/logs/put.zip');
    assert.deepEqual([put.type, put.size, put.sha256], ['BlockBlob', body.length, sha256(body)]);
    assert.match(sink.requests.at(-1).headers.authorization, /^SharedKey devstoreaccount1:/);

    const blob = container.getAppendBlobClient('append.zip');
    await blob.create();
    for (const piece of ['one', 'two', 'three']) await blob.appendBlock(piece, piece.length);
    const { blocks, sha256: stored } = sink.service.blobs.get('/logs/append.zip');
    assert.deepEqual([blocks, stored], [3, sha256('onetwothree')]);
    await rejectsWith(container.getAppendBlobClient('missing').appendBlock('x', 1), 404, 'BlobNotFound');
    await rejectsWith(container.getAppendBlobClient('put.zip').appendBlock('x', 1), 409, 'InvalidBlobType');
    await rejectsWith(others.getBlockBlobClient('x').upload('x', 1), 403, 'AuthenticationFailed');
  } finally {
    for (const each of [storage, stranger]) each.close();
    await sink.stop();
  }
});

const now = Date.parse('2026-11-13T04:02:42Z');
const minutesUntil = (time) => (time - Date.now()) / 60000;
const good = { 'x-ms-version': '2020-04-08', 'x-ms-date': 'Fri, 13 Nov 2026 04:02:42 GMT', 'content-length': '5',
  'x-ms-blob-type': 'BlockBlob' };

// Returns a good request with these headers changed (null removes one). sas: permissions and lifetime of its signature.
function request(headers = {}, { path = '/logs/a.zip', comp = '', method = 'PUT', sas = {} } = {}) {
  const signature = blobSas(account, path, { minutes: minutesUntil(now + 3600000), ...sas });
  const all = Object.entries({ ...good, ...headers }).filter(([, value]) => value !== null);
  return { method, path, query: new URLSearchParams(signature + comp), headers: Object.fromEntries(all) };
}
const block = (size, path = '/logs/open') => request({ 'content-length': String(size), 'x-ms-blob-type': null },
  { path, comp: '&comp=appendblock', sas: { permissions: 'w' } });

// name: [request, operation or error]
const kCases = {
  'a good Put Blob': [request(), 'put'],
  'a block of 4 MiB': [block(4 << 20), 'append'],
  'a block of 4 MiB and a byte': [block((4 << 20) + 1), '413 RequestBodyTooLarge'],
  'an empty block': [block(0), '400 InvalidHeaderValue'],
  'block 50001': [block(1, '/logs/full'), '409 BlockCountExceedsLimit'],
  'a creation with a body': [request({ 'x-ms-blob-type': 'AppendBlob' }), '400 InvalidHeaderValue'],
  'a page blob': [request({ 'x-ms-blob-type': 'PageBlob' }), '400 InvalidHeaderValue'],
  'too much for one put': [request({ 'content-length': String(5001 * 1048576) }), '413 RequestBodyTooLarge'],
  'an unknown version': [request({ 'x-ms-version': '2020-04-09' }), '400 InvalidHeaderValue'],
  'a date 16 minutes old': [request({ 'x-ms-date': 'Fri, 13 Nov 2026 03:46:42 GMT' }), '403 AuthenticationFailed'],
  'the wrong day name': [request({ 'x-ms-date': 'Thu, 13 Nov 2026 04:02:42 GMT' }), '400 InvalidHeaderValue'],
  'another method': [request({}, { method: 'POST' }), '405 UnsupportedHttpVerb'],
  'a missing container': [request({}, { path: '/none/a.zip' }), '404 ContainerNotFound'],
  'another comp': [request({}, { comp: '&comp=block' }), '400 InvalidQueryParameterValue'],
  'an expired signature': [request({}, { sas: { minutes: minutesUntil(now - 1000) } }), '403 AuthenticationFailed'],
  'a signature for reading': [request({}, { sas: { permissions: 'r' } }), '403 AuthorizationPermissionMismatch'],
  'no signature': [{ ...request(), query: new URLSearchParams() }, '403 AuthenticationFailed'],
};
it('the sink keeps the service\'s rules', () => {
  const service = new BlobService(account);
  for (const path of ['/logs/open', '/logs/full']) service.store('create', path, 0, service.digestFor('create'));
  service.blobs.get('/logs/full').blocks = 50000;
  for (const [name, [given, expected]] of Object.entries(kCases)) {
    const { operation, status, code } = service.check(given, now);
    assert.equal(operation ?? `${status} ${code}`, expected, name);
  }
});
