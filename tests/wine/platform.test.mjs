// The Windows layer itself: what mddct_platform_check reports in TAP, one subtest a line.
import assert from 'node:assert/strict';
import { join } from 'node:path';
import { it } from 'node:test';
import { withSink } from './harness.mjs';
import { binaries } from './paths.mjs';
import { clonePrefix } from './prefix.mjs';

it('the Windows layer', async (test) => {
  const prefix = await clonePrefix('test-platform');
  try {
    await withSink({ plan: () => ({ status: 200, body: 'here it is' }) }, async (sink) => {
      const program = join(binaries, 'mddct_platform_check.exe');
      const { code, output } = await prefix.wine([program, `${sink.origin}/logs/check.bin`], { timeoutMs: 120000 });
      const lines = output.split(/\r?\n/);
      const results = lines.filter((line) => /^(not )?ok \d+/.test(line));
      for (const line of results) {
        const [, failure, name, skipped] = /^(not )?ok \d+(?: - )?(.*?)(?:\s+# SKIP(.*))?$/.exec(line);
        const notes = lines.slice(lines.indexOf(line) + 1);
        const end = notes.findIndex((note) => !note.startsWith('#'));
        await test.test(name, { skip: skipped !== undefined && (skipped.trim() || true) },
          () => assert.ok(!failure, notes.slice(0, end < 0 ? undefined : end).join('\n') || name));
      }
      const [, planned] = /^1\.\.(\d+)$/m.exec(output) ?? [];
      assert.equal(results.length, Number(planned), output.slice(-3000));
      assert.equal(code, results.some((line) => line.startsWith('not')) ? 1 : 0, output.slice(-3000));
    });
  } finally {
    await prefix.remove();
  }
});
