// What ./run.sh prints. The functions that check something return the problems, in words: an empty list when all is
// well.
import { alive } from '../../wine/processes.mjs';
import { kProgramFolder } from '../../wine/product.mjs';

/** The meanings of the exit codes. */
const kMeanings = ['the bundle arrived', 'not started as the local system account',
  'another collection is running', 'the command line or the URL cannot be used', 'the collection failed: no bundle',
  'the upload could not start', 'waiting for the upload failed', 'the upload failed'];

/** Prints one line for a step that begins. */
export const step = (text) => console.log(`== ${text}`);

const heading = (text) => console.log(`\n${text}`);
const field = (name, value) => console.log(`  ${name.padEnd(10)}${value}`);
const bytes = (count) => `${count.toLocaleString('en-US')} bytes`;

/** Prints the imported registry values. */
export function showSettings(settings) {
  for (const [key, values] of Object.entries(settings)) {
    const shortKey = key.replace('HKEY_LOCAL_MACHINE', 'HKLM');
    for (const [name, value] of Object.entries(values)) console.log(`   ${shortKey}\\${name} = ${value}`);
  }
}

/** Prints the log. Leaves out lines that repeat the two before them, as the blocks of an append blob write them. */
function showLog(records) {
  let leftOut = 0;
  const printLeftOut = () => {
    if (leftOut > 0) console.log(`  ... ${leftOut} more of the same ...`);
    leftOut = 0;
  };
  records.forEach(({ line, message }, n) => {
    if (n >= 4 && message === records[n - 2].message && message === records[n - 4].message) {
      leftOut++;
      return;
    }
    printLeftOut();
    console.log(`  ${line.replaceAll(/\r?\n/g, '\n  ')}`);
  });
  printLeftOut();
}

/** Prints the run: command line, log, exit code, and what the script wrote. Returns the problems. */
export function showRun(args, result) {
  heading('Command line (through the launcher that makes the account look like the local system\'s)');
  console.log(`  ${[`${kProgramFolder}\\mdDCT.exe`, ...args].join(' ')}`);
  heading(`The product's own log (${result.debug.length} lines)`);
  showLog(result.debug);
  if (result.output.trim() !== '') {
    heading('Printed');
    console.log(`  ${result.output.trim().replaceAll('\n', '\n  ')}`);
  }
  heading('Exit code');
  const ownMeaning = kMeanings[result.code] ?? 'not one of the program\'s own';
  const meaning = result.timedOut ? 'it did not end in time' : ownMeaning;
  console.log(`  ${result.code}: ${meaning} (${(result.ms / 1000).toFixed(1)} s)`);
  heading('The bundle, as the script wrote it');
  for (const bundle of result.bundles) {
    field('name', bundle.name);
    field('size', bytes(bundle.size));
    field('SHA-256', bundle.sha256);
  }
  if (result.bundles.length === 0) console.log('  none');
  return result.code === 0 ? [] : [`mdDCT.exe ended with exit code ${result.code}: ${meaning}`];
}

/** Prints the blob, and compares it with the bundle. Returns the problems. */
export function showBlob(blob, [bundle]) {
  heading('The blob, as the storage SDK sees it');
  if (!blob) {
    console.log('  none');
    return ['the storage service holds no such blob'];
  }
  field('name', blob.name);
  field('type', blob.type + (blob.blocks ? `, ${blob.blocks} blocks` : ''));
  field('size', bytes(blob.size));
  const same = blob.size === bundle?.size && blob.sha256 === bundle.sha256;
  field('SHA-256', `${blob.sha256} (${same ? 'the bundle\'s' : 'NOT the bundle\'s'})`);
  return same ? [] : ['the blob is not the bundle'];
}

/** Prints what is left after the prefix and the emulator have ended. Returns the problems. emulator: its process id. */
export function showEnd(prefix, result, emulator) {
  heading('Afterwards');
  const report = (name, left) => {
    field(name, left.length === 0 ? 'gone' : `STILL THERE: ${left.join('; ')}`);
    return left.map((what) => `still there: ${what}`);
  };
  const commands = (processes) => processes.map(({ pid, command }) => `${pid} ${command}`);
  const shortName = (file) => file.replace(`${prefix.folder}/drive_c`, 'C:');
  const left = result.leftBehind.map(shortName);
  return [
    ...report('bundle', left.filter((file) => file.endsWith('.zip'))),
    ...report('files', left.filter((file) => !file.endsWith('.zip'))),
    ...report('program', commands(result.running)),
    ...report('Wine', commands(prefix.processes())),
    ...(emulator ? report('emulator', alive(emulator) ? [`process ${emulator}`] : []) : []),
  ];
}
