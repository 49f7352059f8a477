// main.mjs SIZE URL
//
// The part of ./run.sh after the build: runs mdDCT.exe once against the storage emulator and shows the result. SIZE is
// the size of the bundle. URL is where to send it; an empty one means the emulator.
import { readdirSync, rmSync } from 'node:fs';
import { join } from 'node:path';
import { startStorageEmulator } from '../../wine/storage_emulator.mjs';
import { certificates } from '../../wine/certificates.mjs';
import { stateFolder } from '../../wine/paths.mjs';
import { Prefix, clonePrefix, endEverything, endOnSignals, templatePrefix } from '../../wine/prefix.mjs';
import { alive } from '../../wine/processes.mjs';
import { Product } from '../../wine/product.mjs';
import { blobSas } from '../../wine/storage_signatures.mjs';
import { openStorage } from '../../wine/storage_client.mjs';
import { showBlob, showEnd, showRun, showSettings, step } from './show.mjs';

const kContainer = 'logs';
const [size = '8M', givenUrl = ''] = process.argv.slice(2);
const name = `run-${process.pid}`;
const prefixFolder = join(stateFolder('prefixes'), name);
const dataFolder = join(stateFolder('emulators'), name);

/** Removes what earlier runs have left that were killed. */
async function removeLeftovers() {
  for (const folder of readdirSync(stateFolder('prefixes')).filter((entry) => /^run-\d+$/.test(entry))) {
    if (!alive(folder.slice(4))) await new Prefix(join(stateFolder('prefixes'), folder)).remove();
  }
  for (const folder of readdirSync(stateFolder('emulators')).filter((entry) => /^run-\d+$/.test(entry))) {
    if (!alive(folder.slice(4))) rmSync(join(stateFolder('emulators'), folder), { recursive: true, force: true });
  }
}

/** Starts the storage emulator, and creates a container and a URL for one blob. */
async function startEmulator() {
  const { leaf, authorityPem } = await certificates();
  step('starting the storage emulator over HTTPS');
  const emulator = await startStorageEmulator(dataFolder, leaf('good'));
  step(`it listens on port ${emulator.port}; making container "${kContainer}" and a URL for one blob (create, write)`);
  const storage = openStorage(emulator.origin, emulator.account, authorityPem);
  await storage.createContainer(kContainer);
  const blob = `diagnostics-${new Date().toISOString().replace(/[:.]/g, '-')}.zip`;
  const url = `${emulator.origin}/${kContainer}/${blob}?${blobSas(emulator.account, `/${kContainer}/${blob}`)}`;
  return { emulator, storage, blob, url };
}

/** Returns the time limit of the run, in milliseconds: two minutes, and half a second per MiB. */
function timeLimitMs() {
  const [, digits, unit] = /^(\d+)([KMG]?)$/.exec(size);
  const mebibytes = Number(digits) * { '': 2 ** -20, K: 2 ** -10, M: 1, G: 1024 }[unit];
  return 120000 + mebibytes * 500;
}

/** Runs the product once in the prefix and shows the run. Returns the problems, in words. */
async function collectAndShow(prefix) {
  step('importing the product\'s settings into its registry');
  const product = await Product.install(prefix);
  showSettings(product.settings);
  const service = givenUrl ? null : await startEmulator();
  const args = ['-url', service?.url ?? givenUrl];
  step('running mdDCT.exe as the local system account');
  const result = await product.run({ args, standin: { size }, timeoutMs: timeLimitMs() });
  const problems = showRun(args, result);
  if (service) {
    problems.push(...showBlob(await service.storage.facts(kContainer, service.blob), result.bundles));
    service.storage.close();
    await service.emulator.stop();
  }
  await prefix.stop();
  problems.push(...showEnd(prefix, result, service?.emulator.pid));
  return problems;
}

/** Ends everything that was started, and removes its files. */
async function endAll() {
  await endEverything();
  for (const folder of [prefixFolder, dataFolder]) rmSync(folder, { recursive: true, force: true });
}

async function main() {
  await removeLeftovers();
  step('making the Wine prefix (the first time takes some 15 s)');
  await templatePrefix();
  const problems = await collectAndShow(await clonePrefix(name));
  console.log(problems.length === 0 ? '\nAll is well.' : ['\nFailed:', ...problems].join('\n  '));
  return problems.length === 0 ? 0 : 1;
}

let interrupted = false;
endOnSignals(async () => {
  interrupted = true;
  console.error('\ninterrupted: ending everything that was started');
  await endAll();
});
process.exitCode = await main().catch((error) => {
  if (!interrupted) console.error(`\nFailed: ${error.message}`);
  return 1;
}).finally(endAll);
