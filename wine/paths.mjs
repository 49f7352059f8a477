// Where things are. Everything that a test makes stands below build/wine/, which git does not see.
import { mkdirSync } from 'node:fs';
import { join } from 'node:path';
import { fileURLToPath } from 'node:url';

const root = fileURLToPath(new URL('..', import.meta.url));

/** What scripts/build-windows.sh leaves. */
export const binaries = join(root, 'build', 'windows');

/** A folder below build/wine/, made when it is missing. */
export function stateFolder(...names) {
  const folder = join(root, 'build', 'wine', ...names);
  mkdirSync(folder, { recursive: true });
  return folder;
}
