// The Windows layer itself: what mddct_platform_check reports in TAP, one subtest a line.
import assert from 'node:assert/strict';
import { join } from 'node:path';
import { it } from 'node:test';
import { binaries } from '../../scripts/wine/paths.mjs';
import { clonePrefix, onDriveZ } from '../../scripts/wine/prefix.mjs';
import { emptyFolder } from '../../scripts/wine/proc.mjs';

it('the Windows layer', async (test) => {
  const prefix = await clonePrefix('test-platform');
  try {
    const folder = emptyFolder(join(prefix.folder, 'check'));
    const { code, output } = await prefix.wine([join(binaries, 'mddct_platform_check.exe'), onDriveZ(folder)]);
    const results = [...output.matchAll(/^(not )?ok \d+ - (.*?)\r?\n((?:#.*\n)*)/gm)];
    for (const [, failure, name, notes] of results) await test.test(name, () => assert.ok(!failure, notes || name));
    const [, planned] = /^1\.\.(\d+)/m.exec(output) ?? [];
    assert.equal(results.length, Number(planned), output.slice(-3000));
    assert.equal(code, results.some(([, failure]) => failure) ? 1 : 0, output.slice(-3000));
  } finally {
    await prefix.remove();
  }
});
