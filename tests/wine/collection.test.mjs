// The collection's side: what the agent's folders, the script and its answers may do to a run.
import assert from 'node:assert/strict';
import { renameSync, rmSync, writeFileSync } from 'node:fs';
import { describe, it } from 'node:test';
import { assertDelivered, assertEnded, upload, useProduct, withProduct } from './harness.mjs';
import { kInstallPath, kProgramFolder, kSettingsKey } from '../../scripts/wine/product.mjs';

const kArgs = ['-url', 'https://localhost:9/logs/a.zip'];
const failed = (what) => new RegExp(`^wWinMain\\(\\): Invoking the DCT script failed\\. Error ${what}$`);

describe('the collection', () => {
  const product = useProduct('collection');

  it('is asked for with the agreed command lines, from the script folder', async () => {
    const run = await upload(product);
    assertDelivered(run, 'BlockBlob', 1 << 20);
    const [query, collect, ...more] = run.result.record;
    assert.deepEqual([query.mode, query.stdout, query.stderr], ['query', 'pipe', 'none']);
    assert.deepEqual([collect.mode, more], ['collect', []]);
    for (const { folder } of [query, collect]) assert.equal(folder.toLowerCase(), `${kInstallPath}\\dct`.toLowerCase());
    assert.deepEqual(collect.arguments.slice(0, 5),
      ['-nologo', '-ExecutionPolicy', 'RemoteSigned', '-File', `${kInstallPath}\\dct\\vdx-support.ps1`]);
    assert.equal(collect.arguments.at(-1), '-s');
  });

  it('makes the folders that are missing, whoever else makes them', async () => {
    for (let n = 0; n < 5; n++) {
      rmSync(product.prefix.path('C:\\ProgramData\\Calvera'), { recursive: true });
      assertDelivered(await upload(product), 'BlockBlob');
    }
  });

  it('in folders with other letters and blanks succeeds', () => withProduct('letters',
    { installPath: 'C:\\Prüfstand Ωmega 試験\\Agent', logFolder: 'C:\\Protokolle Ωmega\\logs' }, async (other) => {
      const run = await upload(other);
      assertDelivered(run, 'BlockBlob');
      assert.match(run.result.record[1].folder, /Prüfstand Ωmega 試験\\Agent\\dct$/i);
    }));

  it('whose script fails but leaves a bundle succeeds', async () => {
    assertDelivered(await upload(product, { standin: { exit: 3 } }), 'BlockBlob');
  });

  const file = (name) => product.prefix.path(name);
  const kScript = `${kInstallPath}\\dct\\vdx-support.ps1`;
  const kShell = `${kProgramFolder}\\powershell.exe`;
  const install = (path) => product.prefix.importRegistry({ [`${kSettingsKey}\\Agent`]: { AgentInstallPath: path } });
  const nothing = () => {};
  const noBundle = (text) => [failed(`-1: The DCT script FAILED\\. Process exited with error ${text}\\.`)];
  // name: [what is spoiled, how it is mended, ERROR messages, calls of the script, what the stand-in is told]
  const kCases = {
    'without the install path': [() => install(null), () => install(kInstallPath),
      [failed('80: Cannot get the AgentInstallPath from registry')], 0],
    'without the script': [() => renameSync(file(kScript), file(`${kScript}.away`)),
      () => renameSync(file(`${kScript}.away`), file(kScript)),
      [failed('70: The DCT script is not found on disk\\.')], 0],
    'with a powershell.exe that is no program': [() => {
      renameSync(file(kShell), file(`${kShell}.away`));
      writeFileSync(file(kShell), 'not a program\n');
    }, () => renameSync(file(`${kShell}.away`), file(kShell)),
      ['dct_common::invokeDCTScript(): Could not create process.',
        failed('60: The DCT script failed to start, error: .+')], 0],
    'whose script writes no bundle': [nothing, nothing, noBundle('.+'), 2, { collect: 'none' }],
    'whose script writes no bundle and fails': [nothing, nothing, noBundle('Access denied\\.'), 2,
      { collect: 'none', exit: 5 }],
  };
  for (const [name, [spoil, mend, errors, calls, standin]] of Object.entries(kCases)) {
    it(`${name} ends with 4`, async () => {
      await spoil();
      const result = await product.run({ args: kArgs, standin });
      await mend();
      assertEnded(result, 4, errors);
      assert.equal(result.record.length, calls);
    });
  }

  it('whose folder cannot be made ends with 4', () => withProduct('no-folder',
    { logFolder: 'C:\\mddct\\logs', agent: { UseRegistryForLoggingPath: 'false' } }, async (other) => {
      const inTheWay = other.prefix.path('C:\\ProgramData\\Calvera');
      rmSync(inTheWay, { recursive: true, force: true });
      writeFileSync(inTheWay, '');
      assertEnded(await other.run({ args: kArgs }), 4, [failed('130: Cannot create the temporary directory\\.')]);
    }));

  // Whatever the query does, the collection goes on with the default lists; its failure is told once.
  const kUnreadable = /^dct_common::getLogLevel\(\): Failed to load json /;
  const misbehaviours = {
    'prints nothing': [{ query: 'silent' }, kUnreadable],
    'prints no JSON': [{ query: 'garbage' }, kUnreadable],
    'prints no UTF-8': [{ query: 'notutf8' }, kUnreadable],
    'prints 100 MB': [{ query: 'huge' }],
    'nests a million deep': [{ query: 'deep' }],
    'fails': [{ query: 'fail' }, /^dct_common::runDctCommand\(\): DCT process failed with error /],
    'leaves a grandchild that keeps the pipe for a minute': [{ grandchild: 60000 }],
  };
  for (const [name, [standin, error]] of Object.entries(misbehaviours)) {
    it(`is not stopped by a query that ${name}`, async () => {
      const { result, blob } = await upload(product, { standin });
      const holders = result.running.map(({ command }) => command.includes('--hold'));
      assert.deepEqual([result.code, result.leftBehind, holders], [0, [], standin.grandchild ? [true] : []],
        result.debug.map(({ line }) => line).join('\n').slice(-4000));
      assert.equal(blob.sha256, result.bundles[0].sha256);
      if (error) assert.ok(result.errors.some((text) => error.test(text)), result.errors.join('\n').slice(0, 2000));
      assert.ok(result.ms < 45000, `${result.ms} ms`);
    });
  }
});
