// The sink judges the product, so it is judged first: by the storage SDK, which it must satisfy, and by requests that
// the service refuses.
import assert from 'node:assert/strict';
import { createHash } from 'node:crypto';
import { after, before, describe, it } from 'node:test';
import { BlobService } from './blob_service.mjs';
import { certificates } from '../../scripts/wine/ca.mjs';
import { blobSas, developmentAccount as account } from '../../scripts/wine/sas.mjs';
import { startSink } from './sink.mjs';
import { openStorage } from '../../scripts/wine/storage.mjs';

const sha256 = (bytes) => createHash('sha256').update(bytes).digest('hex');
const rejectsWith = (promise, statusCode, code) => assert.rejects(promise, (error) => {
  assert.deepEqual([error.statusCode, error.details?.errorCode ?? error.code], [statusCode, code]);
  return true;
});

describe('the sink and the storage SDK', () => {
  let sink, storage, container;
  before(async () => {
    const { leaf, authorityPem } = await certificates();
    sink = await startSink({ leaf: leaf('good'), account });
    storage = openStorage(sink.origin, account, authorityPem);
    container = storage.service.getContainerClient('logs');
  });
  after(async () => {
    storage?.close();
    await sink?.stop();
  });

  it('takes a Put Blob signed with the account key, byte for byte', async () => {
    const body = Buffer.alloc(300000, 'abc');
    await container.getBlockBlobClient('put.zip').upload(body, body.length);
    const { type, size, sha256: stored } = sink.service.blobs.get('/logs/put.zip');
    assert.deepEqual([type, size, stored], ['BlockBlob', body.length, sha256(body)]);
    assert.match(sink.requests.at(-1).headers.authorization, /^SharedKey devstoreaccount1:/);
  });

  it('takes an append chain, and refuses a block of a blob that is not there or not an append blob', async () => {
    const blob = container.getAppendBlobClient('append.zip');
    await blob.create();
    for (const piece of ['one', 'two', 'three']) await blob.appendBlock(piece, piece.length);
    const { blocks, sha256: stored } = sink.service.blobs.get('/logs/append.zip');
    assert.deepEqual([blocks, stored], [3, sha256('onetwothree')]);
    await rejectsWith(container.getAppendBlobClient('missing').appendBlock('x', 1), 404, 'BlobNotFound');
    await rejectsWith(container.getAppendBlobClient('put.zip').appendBlock('x', 1), 409, 'InvalidBlobType');
  });

  it('refuses another key', async () => {
    const { authorityPem } = await certificates();
    const other = openStorage(sink.origin, { ...account, key: 'AAAA' }, authorityPem);
    const put = other.service.getContainerClient('logs').getBlockBlobClient('x').upload('x', 1);
    await rejectsWith(put, 403, 'AuthenticationFailed');
    other.close();
  });
});

describe('the rules', () => {
  const service = new BlobService(account);
  const now = Date.parse('2026-11-13T04:02:42Z');
  const minutesUntil = (time) => (time - Date.now()) / 60000;
  const good = { 'x-ms-version': '2020-04-08', 'x-ms-date': 'Fri, 13 Nov 2026 04:02:42 GMT', 'content-length': '5',
    'x-ms-blob-type': 'BlockBlob' };

  // A good request, with these headers instead (null: without); sas: what its signature allows, until when.
  const request = (headers = {}, { path = '/logs/a.zip', comp = '', method = 'PUT', sas = {} } = {}) => {
    const signature = blobSas(account, path, { minutes: minutesUntil(now + 3600000), ...sas });
    const all = Object.entries({ ...good, ...headers }).filter(([, value]) => value !== null);
    return { method, path, query: new URLSearchParams(signature + comp), headers: Object.fromEntries(all) };
  };
  const block = (size, path = '/logs/open') => request({ 'content-length': String(size), 'x-ms-blob-type': null },
    { path, comp: '&comp=appendblock', sas: { permissions: 'w' } });
  before(() => {
    for (const path of ['/logs/open', '/logs/full']) service.store('create', path, 0, service.digestFor('create'));
    service.blobs.get('/logs/full').blocks = 50000;
  });

  const cases = {
    'a good Put Blob': [request(), 'put'],
    'a good creation': [request({ 'x-ms-blob-type': 'AppendBlob', 'content-length': '0' }), 'create'],
    'a block of 4 MiB': [block(4 << 20), 'append'],
    'a block of 4 MiB and a byte': [block((4 << 20) + 1), '413 RequestBodyTooLarge'],
    'an empty block': [block(0), '400 InvalidHeaderValue'],
    'block 50001': [block(1, '/logs/full'), '409 BlockCountExceedsLimit'],
    'a creation with a body': [request({ 'x-ms-blob-type': 'AppendBlob' }), '400 InvalidHeaderValue'],
    'no blob type': [request({ 'x-ms-blob-type': null }), '400 MissingRequiredHeader'],
    'a page blob': [request({ 'x-ms-blob-type': 'PageBlob' }), '400 InvalidHeaderValue'],
    'too much for one put': [request({ 'content-length': String(5001 * 1048576) }), '413 RequestBodyTooLarge'],
    'no length': [request({ 'content-length': null }), '411 MissingContentLengthHeader'],
    'no version': [request({ 'x-ms-version': null }), '400 MissingRequiredHeader'],
    'an unknown version': [request({ 'x-ms-version': '2020-04-09' }), '400 InvalidHeaderValue'],
    'a date 16 minutes old': [request({ 'x-ms-date': 'Fri, 13 Nov 2026 03:46:42 GMT' }), '403 AuthenticationFailed'],
    'the wrong day name': [request({ 'x-ms-date': 'Thu, 13 Nov 2026 04:02:42 GMT' }), '400 InvalidHeaderValue'],
    'a day without its zero': [request({ 'x-ms-date': 'Tue, 3 Nov 2026 04:02:42 GMT' }), '400 InvalidHeaderValue'],
    'another method': [request({}, { method: 'POST' }), '405 UnsupportedHttpVerb'],
    'a missing container': [request({}, { path: '/none/a.zip' }), '404 ContainerNotFound'],
    'another comp': [request({}, { comp: '&comp=block' }), '400 InvalidQueryParameterValue'],
    'an expired signature': [request({}, { sas: { minutes: minutesUntil(now - 1000) } }), '403 AuthenticationFailed'],
    'a signature for reading': [request({}, { sas: { permissions: 'r' } }), '403 AuthorizationPermissionMismatch'],
    'no signature': [{ ...request(), query: new URLSearchParams() }, '403 AuthenticationFailed'],
  };
  for (const [name, [given, expected]] of Object.entries(cases)) {
    it(name, () => {
      const { operation, status, code } = service.judge(given, now);
      assert.equal(operation ?? `${status} ${code}`, expected);
    });
  }
});
