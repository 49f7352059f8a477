// Whole runs: how the product calls the two scripts, and what must not stop a collection, from the agent's folders, the
// scripts or the server.
import assert from 'node:assert/strict';
import { copyFileSync, mkdirSync, rmSync } from 'node:fs';
import { join } from 'node:path';
import { describe, it } from 'node:test';
import { assertDelivered, upload, useProduct, withProduct } from './harness.mjs';
import { binaries } from '../../wine/paths.mjs';
import { kInstallPath, kPowerShellFolder } from '../../wine/product.mjs';

describe('the collection', () => {
  const product = useProduct('collection');

  it('is asked for with the agreed command lines, from the script folder, of Windows\' own PowerShell', async () => {
    // Two others of that name: in a folder that comes first in the PATH, and in the folder of the caller.
    const others = ['C:\\first', 'C:\\caller'].map((name) => product.prefix.path(name));
    for (const folder of others) {
      mkdirSync(folder);
      copyFileSync(join(binaries, 'standin', 'powershell.exe'), join(folder, 'powershell.exe'));
    }
    const run = await upload(product, { env: { WINEPATH: 'C:\\first' }, cwd: others[1] });
    assertDelivered(run, 'BlockBlob', 1 << 20);
    const [query, collect, ...more] = run.result.record;
    assert.deepEqual([query.mode, query.stdout, query.stderr], ['query', 'pipe', 'pipe']);
    assert.deepEqual([collect.mode, more], ['collect', []]);
    for (const { folder, program } of [query, collect]) {
      assert.equal(folder.toLowerCase(), `${kInstallPath}\\dct`.toLowerCase());
      assert.equal(program.toLowerCase(), `${kPowerShellFolder}\\powershell.exe`.toLowerCase());
    }
    assert.deepEqual(collect.arguments.slice(0, 5),
      ['-nologo', '-ExecutionPolicy', 'RemoteSigned', '-File', `${kInstallPath}\\dct\\vdx-support.ps1`]);
    assert.equal(collect.arguments.at(-1), '-s');
  });

  it('makes the folders that are missing, though its threads do so at once', async () => {
    for (let n = 0; n < 5; n++) {
      rmSync(product.prefix.path('C:\\ProgramData\\Calvera'), { recursive: true });
      assertDelivered(await upload(product), 'BlockBlob');
    }
  });

  it('succeeds in folders with other letters and blanks', () => withProduct('letters',
    { installPath: 'C:\\Prüfstand Ωmega 試験\\Agent', logFolder: 'C:\\Protokolle Ωmega\\logs' }, async (other) => {
      const run = await upload(other);
      assertDelivered(run, 'BlockBlob');
      assert.match(run.result.record[1].folder, /Prüfstand Ωmega 試験\\Agent\\dct$/i);
    }));

  // Whatever the query does, the collection goes on with the default lists. The log tells of a query that failed.
  const kUnreadable = /^dct_common::getLogLevel\(\): Failed to load json /;
  // name: [options of the run, ERROR message, whether processes that hold the pipe are left, what the query wrote to
  // its standard error]
  const kCases = {
    'a query that prints nothing': [{ standin: { query: 'silent' } }, kUnreadable],
    'a query that prints no JSON': [{ standin: { query: 'garbage' } }, kUnreadable],
    'a query that prints no UTF-8': [{ standin: { query: 'notutf8' } }],
    'a query that prints 100 MB': [{ standin: { query: 'huge' } }],
    'a query that nests a million deep': [{ standin: { query: 'deep' } }],
    'a query that fails': [{ standin: { query: 'fail' } },
      /^dct_common::runDctCommand\(\): DCT process failed with error /, [], ['powershell: ordered to fail\r\n']],
    'a script that fails but leaves a bundle': [{ standin: { exit: 3 } }],
    'a server that answers late': [{ plan: () => ({ lateMs: 4000 }) }],
    'a server that replies 201 with 100 MB': [{ plan: () => ({ bodyBytes: 1e8 }) }],
    'a server that replies 201 with 1 MB of headers': [{ plan: () => ({ headerBytes: 1e6 }) }],
    // The last row, because the grandchild still exists when the run has ended.
    'a query whose grandchild keeps the pipe for a minute': [{ standin: { grandchild: 60000 } }, undefined, [true]],
  };
  for (const [name, [options, error, left = [], complaints = []]] of Object.entries(kCases)) {
    it(`is not stopped by ${name}`, async () => {
      const run = await upload(product, options);
      const holders = run.result.running.splice(0).map(({ command }) => command.includes('--hold'));
      assert.deepEqual(holders, left);
      assertDelivered(run, 'BlockBlob');
      assert.ok(!error || run.result.errors.some((text) => error.test(text)), `${run.result.errors}`.slice(0, 2000));
      const kComplaint = 'dct_common::getDCTFilter(): Standard error of the query: ';
      const warnings = run.result.debug.map(({ message }) => message).filter((text) => text.startsWith(kComplaint));
      assert.deepEqual(warnings, complaints.map((text) => kComplaint + text));
      assert.ok(run.result.ms < 45000, `${run.result.ms} ms`);
    });
  }
});
