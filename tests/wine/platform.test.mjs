// The Windows layer itself: each line that mddct_platform_check prints in the Test Anything Protocol is one subtest.
import assert from 'node:assert/strict';
import { join } from 'node:path';
import { it } from 'node:test';
import { withProduct } from './harness.mjs';
import { binaries } from '../../wine/paths.mjs';
import { onDriveZ } from '../../wine/prefix.mjs';
import { emptyFolder } from '../../wine/processes.mjs';

it('the Windows layer', (test) => withProduct('platform', {}, async ({ prefix }) => {
  const folder = emptyFolder(join(prefix.folder, 'check'));
  const { code, output } = await prefix.wine([join(binaries, 'mddct_platform_check.exe'), onDriveZ(folder)]);
  const results = [...output.matchAll(/^(not )?ok \d+ - (.*?)\r?$/gm)];
  for (const [, failure, name] of results) await test.test(name, () => assert.ok(!failure));
  assert.equal(results.length, Number(/^1\.\.(\d+)/m.exec(output)?.[1]), output.slice(-3000));
  assert.equal(code, results.some(([, failure]) => failure) ? 1 : 0, output.slice(-3000));
}));
