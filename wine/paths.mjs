// The folders of the tests and of run.sh. Everything that they make is below build/wine/, which git ignores.
import { mkdirSync } from 'node:fs';
import { join } from 'node:path';
import { fileURLToPath } from 'node:url';

const root = fileURLToPath(new URL('..', import.meta.url));

/** The folder of what scripts/build-windows.sh built. */
export const binaries = join(root, 'build', 'windows');

/** Returns a folder below build/wine/, and creates it when it is missing. */
export function stateFolder(...names) {
  const folder = join(root, 'build', 'wine', ...names);
  mkdirSync(folder, { recursive: true });
  return folder;
}
