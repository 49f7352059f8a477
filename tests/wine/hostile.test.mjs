// Servers and certificates that are not as they should be. Every run must end by itself, tell why, and clean up.
import assert from 'node:assert/strict';
import { describe, it } from 'node:test';
import { assertDelivered, assertEnded, kMiB, kPutFailed, kUploadFailed, requestError, upload,
  useProduct } from './harness.mjs';

describe('a server that', () => {
  const product = useProduct('hostile');

  it('refuses the connection: 7', async () => {
    assertEnded(await product.run({ args: ['-url', 'https://localhost:9/logs/a.zip'] }), 7,
      [requestError('WinHttpSendRequest', 12029), ...kPutFailed]);
  });

  // Behaviour, and the errors before the last two. To an early answer whose connection ends, Wine tells of the write
  // that failed; Windows may still deliver the 403.
  const answers = (behaviour) => ({ plan: () => behaviour });
  const shows = (certificate) => [{ certificate }, requestError('WinHttpSendRequest', 12157)];
  const refusals = {
    'answers 200': [answers({ status: 200 })],
    'answers 500 with 100 MB': [answers({ status: 500, bodyBytes: 1e8 })],
    'resets the connection within the body': [answers({ resetAfter: 3 * kMiB }), requestError('WinHttp\\w+', 10054)],
    'answers before the body is through and reads on': [answers({ early: 'keep', status: 403 })],
    'answers before the body is through, then closes': [answers({ early: 'close', status: 403 })],
    'answers before the body is through, then resets': [answers({ early: 'reset', status: 403 })],
    'shows an untrusted certificate': shows('untrusted'),
    'shows an expired certificate': shows('expired'),
    'shows a certificate of another name': shows('wrong-name'),
  };
  for (const [name, [options, ...errors]] of Object.entries(refusals)) {
    it(`${name}: 7, and no second try`, async () => {
      const { result, requests } = await upload(product, { ...options, standin: { size: '32M' } });
      assertEnded(result, 7, [...errors, ...kPutFailed]);
      assert.equal(requests.length, options.certificate ? 0 : 1);
    });
  }

  it('answers 409 to the third block: 7', async () => {
    const plan = (request, index) => (index === 3 ? { status: 409 } : {});
    const { result, requests } = await upload(product, { plan, standin: { size: '257M' } });
    assertEnded(result, 7, [/Response Code: 409\. .*Total bytes sent: 12582912ll$/s, kUploadFailed]);
    assert.equal(requests.length, 4);
  });

  const oddities = {
    'answers late': { lateMs: 4000 },
    'replies 201 with 100 MB': { bodyBytes: 1e8 },
    'replies 201 with 1 MB of headers': { headerBytes: 1e6 },
  };
  for (const [name, behaviour] of Object.entries(oddities)) {
    it(`${name}: 0`, async () => assertDelivered(await upload(product, answers(behaviour)), 'BlockBlob'));
  }
});
