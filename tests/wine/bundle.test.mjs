// Bundles that change between the script's end and their last byte: before they are opened (while the program asks for
// its proxy) or while they are sent.
import assert from 'node:assert/strict';
import { createHash } from 'node:crypto';
import { appendFileSync, existsSync, readFileSync, readdirSync, rmSync, truncateSync } from 'node:fs';
import { join } from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';
import { describe, it } from 'node:test';
import { assertEnded, kMiB, kPutFailed, kUploadFailed, upload, useFiles, useProduct } from './harness.mjs';
import { kLogFolder, kProgramFolder } from '../../wine/product.mjs';

const kMissing = [/^wWinMain\(\): filesystem error: file_size: No such file or directory/];
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
  // Within the last piece that is read, so that nothing but the length tells; a chain within its first blocks.
  const shrink = (size) => truncateSync(bundle(), (size > 256 ? 5 : size - 1) * kMiB);
  const remove = () => rmSync(bundle());
  // Lets another process have it for itself alone.
  const lock = async () => {
    const [file] = readdirSync(product.bundleFolder);
    const record = 'C:\\standin\\lock.txt';
    product.prefix.wine([`${kProgramFolder}\\powershell.exe`, '--lock', '60000', `${kLogFolder}\\Temp\\${file}`],
      { env: { MDDCT_STANDIN: `record=${record}` } });
    for (let n = 0; n < 4000 && !existsSync(product.prefix.path(record)); n++) await sleep(5);
  };

  // name: [when, what, size in MiB, exit code, errors, MiB that are stored, error number of its removal]
  const kCases = {
    'grows before it is opened is sent as it is': ['asked', grow, 32, 0, [], 33],
    'grows while it is sent arrives as it was': ['sent', grow, 32, 0, [], 32],
    'grows within an append chain ends the chain': ['sent', grow, 257, 7, kChainEnds, 258],
    'shrinks while it is sent ends the upload': ['sent', shrink, 32, 7, kStreamEnds],
    'shrinks within an append chain ends the chain': ['sent', shrink, 257, 7, kChainRefused, 8],
    'vanishes before it is opened is missed': ['asked', remove, 32, 5, kMissing, undefined, '0'],
    'vanishes while it is sent arrives': ['sent', remove, 32, 0, [], 32, '0'],
    'another process has for itself alone is not sent, and stays': ['asked', lock, 32, 7, kStreamEnds, undefined, '32'],
  };
  for (const [name, [when, spoil, size, code, errors, stored, notRemoved]] of Object.entries(kCases)) {
    it(name, async () => {
      files.beforeAnswer = () => (when === 'asked' ? spoil(size) : undefined);
      let whole;
      const plan = (request, index) => {
        if (when !== 'sent' || index !== (size > 256 ? 2 : 0)) return;
        whole = createHash('sha256').update(readFileSync(bundle())).digest('hex');
        spoil(size);
      };
      const { result, blob } = await upload(product, { plan, standin: { size: `${size}M` } });
      for (const { pid } of result.running.splice(0)) process.kill(pid, 'SIGKILL');  // who locks it
      if (spoil === lock) assert.match(result.leftBehind.pop(), /\.zip$/);
      assertEnded(result, code, errors);
      const warned = result.debug.filter(({ message }) => kNotRemoved.test(message))
        .map(({ level, message }) => `${level} ${kNotRemoved.exec(message)[1]}`);
      assert.deepEqual(warned, notRemoved ? [`WARN ${notRemoved}`] : []);
      assert.equal(blob && blob.size / kMiB, stored);
      if (code === 0) assert.equal(blob.sha256, whole ?? result.bundles[0].sha256);
    });
  }
});
