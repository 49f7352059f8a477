// Where things are. Everything that a test makes stands below build/wine/, which git does not see.
import { mkdirSync } from 'node:fs';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';

export const here = dirname(fileURLToPath(import.meta.url));
export const root = join(here, '..', '..');
export const state = join(root, 'build', 'wine');

/** What scripts/build-windows.sh leaves; MDDCT_BINARIES names another folder. */
export const binaries = process.env.MDDCT_BINARIES ?? join(root, 'build', 'windows');

/** A folder below build/wine/, made when it is missing. */
export function stateFolder(...names) {
  const folder = join(state, ...names);
  mkdirSync(folder, { recursive: true });
  return folder;
}
