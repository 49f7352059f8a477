// The collection's side: what the agent's folders, the script and its answers may do to a run.
import assert from 'node:assert/strict';
import { renameSync, rmSync, writeFileSync } from 'node:fs';
import { after, before, describe, it } from 'node:test';
import { assertDelivered, assertEnded, openProduct, withProduct, withSink } from './harness.mjs';
import { kInstallPath, kProgramFolder } from './product.mjs';

const kAgentKey = 'HKEY_LOCAL_MACHINE\\Software\\Calvera\\Meridon\\Agent';
const failed = (what) => new RegExp(`^wWinMain\\(\\): Invoking the DCT script failed\\. Error ${what}$`);

describe('the collection', () => {
  let product, args;
  const sinkRun = (standin, judge) => withSink({}, async (sink) => {
    const result = await product.run({ args: ['-url', `${sink.origin}/logs/a.zip`], standin });
    await judge(result, sink.service.blobs.get('/logs/a.zip'), sink);
  });
  before(async () => {
    product = await openProduct('collection');
    args = ['-url', 'https://localhost:9/logs/a.zip'];
  });
  after(() => product?.close());

  it('is asked for with the agreed command lines, from the script folder', () => sinkRun({}, (result, blob) => {
    assertDelivered(result, blob, 'BlockBlob', 1 << 20);
    assert.deepEqual(result.record.map(({ mode }) => mode), ['query', 'collect']);
    for (const { folder } of result.record) assert.equal(folder.toLowerCase(), `${kInstallPath}\\dct`.toLowerCase());
    const [query, collect] = result.record;
    assert.deepEqual([query.stdout, query.stderr], ['pipe', 'none']);
    assert.deepEqual(collect.arguments.slice(0, 5),
      ['-nologo', '-ExecutionPolicy', 'RemoteSigned', '-File', `${kInstallPath}\\dct\\vdx-support.ps1`]);
    assert.equal(collect.arguments.at(-1), '-s');
  }));

  it('makes the folders that are missing, whoever else makes them', async () => {
    for (let n = 0; n < 5; n++) {
      rmSync(product.prefix.path('C:\\ProgramData\\Calvera'), { recursive: true });
      await sinkRun({}, (result, blob) => assertDelivered(result, blob, 'BlockBlob'));
    }
  });

  it('without the install path ends with 4', async () => {
    await product.prefix.importRegistry({ [kAgentKey]: { AgentInstallPath: null } });
    const result = await product.run({ args });
    await product.prefix.importRegistry({ [kAgentKey]: { AgentInstallPath: kInstallPath } });
    assertEnded(result, 4, [failed('80: Cannot get the AgentInstallPath from registry')]);
  });

  it('without the script ends with 4', async () => {
    const script = product.prefix.path(`${kInstallPath}\\dct\\vdx-support.ps1`);
    renameSync(script, `${script}.away`);
    const result = await product.run({ args });
    renameSync(`${script}.away`, script);
    assertEnded(result, 4, [failed('70: The DCT script is not found on disk\\.')]);
    assert.deepEqual(result.record, []);
  });

  it('with a powershell.exe that is no program ends with 4', async () => {
    const shell = product.prefix.path(`${kProgramFolder}\\powershell.exe`);
    renameSync(shell, `${shell}.away`);
    writeFileSync(shell, 'not a program\n');
    const result = await product.run({ args });
    rmSync(shell);
    renameSync(`${shell}.away`, shell);
    assertEnded(result, 4, ['dct_common::invokeDCTScript(): Could not create process.',
      failed('60: The DCT script failed to start, error: .+')]);
  });

  it('whose folder cannot be made ends with 4', () => withProduct('no-folder',
    { logFolder: 'C:\\mddct\\logs', agent: { UseRegistryForLoggingPath: 'false' } }, async (other) => {
      const inTheWay = other.prefix.path('C:\\ProgramData\\Calvera');
      rmSync(inTheWay, { recursive: true, force: true });
      writeFileSync(inTheWay, '');
      assertEnded(await other.run({ args }), 4, [failed('130: Cannot create the temporary directory\\.')]);
    }));

  it('in folders with other letters and blanks succeeds', () => withProduct('letters',
    { installPath: 'C:\\Prüfstand Ωmega 試験\\Agent', logFolder: 'C:\\Protokolle Ωmega\\logs' },
    (other) => withSink({}, async (sink) => {
      const result = await other.run({ args: ['-url', `${sink.origin}/logs/a.zip`] });
      assertDelivered(result, sink.service.blobs.get('/logs/a.zip'), 'BlockBlob');
      assert.match(result.record[1].folder, /Prüfstand Ωmega 試験\\Agent\\dct$/i);
    })));

  const noBundle = {
    'writes no bundle': [{ collect: 'none' }, '.+'],
    'writes no bundle and fails': [{ collect: 'none', exit: 5 }, 'Access denied\\.'],
  };
  for (const [name, [standin, text]] of Object.entries(noBundle)) {
    it(`whose script ${name} ends with 4`, async () => {
      const line = failed(`-1: The DCT script FAILED\\. Process exited with error ${text}\\.`);
      assertEnded(await product.run({ args, standin }), 4, [line]);
    });
  }

  it('whose script fails but leaves a bundle succeeds', () => sinkRun({ exit: 3 }, (result, blob) => {
    assertDelivered(result, blob, 'BlockBlob');
  }));

  it('with an empty bundle stores an empty blob', () => sinkRun({ collect: 'empty' }, (result, blob, sink) => {
    assertDelivered(result, blob, 'BlockBlob', 0);
    assert.equal(sink.requests[0].headers['content-length'], '0');
  }));
});

describe('the capability query', () => {
  let product;
  before(async () => { product = await openProduct('query'); });
  after(() => product?.close());

  // Whatever the query does, the collection goes on with the default lists; its failure is told once.
  const misbehaviours = {
    'prints nothing': [{ query: 'silent' }, /^dct_common::getLogLevel\(\): Failed to load json \.$/],
    'prints no JSON': [{ query: 'garbage' }, /^dct_common::getLogLevel\(\): Failed to load json /],
    'prints no UTF-8': [{ query: 'notutf8' }, /^dct_common::getLogLevel\(\): Failed to load json /],
    'prints 100 MB': [{ query: 'huge' }, null],
    'nests a million deep': [{ query: 'deep' }, null],
    'fails': [{ query: 'fail' }, /^dct_common::runDctCommand\(\): DCT process failed with error /],
    'leaves a grandchild that keeps the pipe for 20 s': [{ grandchild: 20000 }, null],
  };
  for (const [name, [standin, error]] of Object.entries(misbehaviours)) {
    it(`that ${name} does not stop the run`, () => withSink({}, async (sink) => {
      const result = await product.run({ args: ['-url', `${sink.origin}/logs/a.zip`], standin });
      const holders = result.running.filter(({ command }) => command.includes('--hold'));
      assert.equal(result.code, 0, result.debug.map(({ line }) => line).join('\n').slice(-4000));
      assert.deepEqual([result.leftBehind, holders.length], [[], result.running.length]);
      assert.equal(holders.length, standin.grandchild ? 1 : 0);
      assert.equal(sink.service.blobs.get('/logs/a.zip').sha256, result.bundles[0].sha256);
      if (error) assert.ok(result.errors.some((text) => error.test(text)), result.errors.join('\n').slice(0, 2000));
      assert.ok(result.ms < 15000, `${result.ms} ms`);
    }));
  }
});
