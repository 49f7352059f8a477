// Bundles that change after the script has ended: before the program opens them (while it asks for its proxy), or while
// it sends them.
import assert from 'node:assert/strict';
import { createHash } from 'node:crypto';
import { appendFileSync, existsSync, readFileSync, readdirSync, rmSync, truncateSync } from 'node:fs';
import { join } from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';
import { describe, it } from 'node:test';
import { assertEnded, kMiB, kPutFailed, kUploadFailed, upload, useFiles, useProduct } from './harness.mjs';
import { kLogFolder, kPowerShellFolder } from '../../wine/product.mjs';

const kMissing = [/^wWinMain\(\): filesystem error: file_size: No such file or directory \[.*\.zip\]$/];
const kCannotOpen = [/^WinHttpRequest::performAsync\(\): Unable to open file .*\.zip: 0x20 /,
  /^wWinMain\(\): Failed to start upload\.$/];
const kStreamEnds = [/^WinHttpRequest::UploadData\(\): File stream is invalid$/, ...kPutFailed];
const kChainEnds = [/^AzureBlobUploader::AzureAppendBlockRequestCb\(\): File stream no longer valid$/, kUploadFailed];
const kChainRefused = [/Failed to append the previous chunk\. Response Code: 400\. .*Total bytes sent: 8388608ll$/s,
  kUploadFailed];
const kNotRemoved = /^DCTDeleter::~DCTDeleter\(\): Unable to clean DCT bundle\. Error code: (\d+)/;

describe('a bundle that', () => {
  const files = useFiles();
  const product = useProduct('bundle', { asks: files });

  const bundle = () => join(product.bundleFolder, ...readdirSync(product.bundleFolder));
  const grow = () => appendFileSync(bundle(), Buffer.alloc(kMiB, 'g'));
  const shrinkTo = (size) => () => truncateSync(bundle(), size * kMiB);
  const remove = () => rmSync(bundle());
  // Lets another process open the bundle without sharing it.
  const lock = async () => {
    const [file] = readdirSync(product.bundleFolder);
    const record = 'C:\\standin\\lock.txt';
    product.prefix.wine([`${kPowerShellFolder}\\powershell.exe`, '--lock', '60000', `${kLogFolder}\\Temp\\${file}`],
      { env: { MDDCT_STANDIN: `record=${record}` } });
    for (let n = 0; n < 4000 && !existsSync(product.prefix.path(record)); n++) await sleep(5);
  };

  // name: [index of the request during which the bundle changes, change, size in MiB, exit code, errors, MiB stored,
  // when the bundle had the blob's digest (before or after the change), warnings of the removal, files that stay]
  const kOpening = -1;  // no request yet: the program has not opened the bundle
  const kCases = {
    'grows before it is opened is sent as it is': [kOpening, grow, 32, 0, [], 33, 'after'],
    'grows while it is sent ends the upload': [0, grow, 32, 7, kStreamEnds],
    'grows within an append chain ends the chain': [2, grow, 257, 7, kChainEnds, 258],
    // By a part of the last piece that is read, so that nothing but the length shows it.
    'shrinks while it is sent ends the upload': [0, shrinkTo(31), 32, 7, kStreamEnds],
    'shrinks within an append chain ends the chain': [2, shrinkTo(5), 257, 7, kChainRefused, 8],
    'vanishes before it is opened is missed': [kOpening, remove, 32, 5, kMissing, undefined, 'any', ['WARN 0']],
    'vanishes while it is sent arrives': [0, remove, 32, 0, [], 32, 'before', ['WARN 0']],
    'another process does not share is not sent, and stays': [kOpening, lock, 32, 5, kCannotOpen, undefined, 'any',
      ['WARN 32'], /^[^,]+\.zip$/],
  };
  for (const [name, [at, change, size, code, errors, stored, digest = 'any', warnings = [], stays = /^$/]] of
    Object.entries(kCases)) {
    it(name, async () => {
      files.beforeAnswer = () => (at === kOpening ? change() : undefined);
      let before;
      const plan = (request, index) => {
        if (index !== at) return;
        before = createHash('sha256').update(readFileSync(bundle())).digest('hex');
        change();
      };
      const { result, blob } = await upload(product, { plan, standin: { size: `${size}M` } });
      for (const { pid } of result.running.splice(0)) process.kill(pid, 'SIGKILL');  // the one that locks the bundle
      assert.match(result.leftBehind.splice(0).join(), stays);
      assertEnded(result, code, errors);
      assert.deepEqual(result.debug.filter(({ message }) => kNotRemoved.test(message)).map(
        ({ level, message }) => `${level} ${kNotRemoved.exec(message)[1]}`), warnings);
      const digests = { before, after: result.bundles[0]?.sha256, any: blob?.sha256 };
      assert.deepEqual([blob && blob.size / kMiB, blob?.sha256], [stored, digests[digest]]);
    });
  }
});
