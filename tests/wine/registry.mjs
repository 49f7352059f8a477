// Registry values as a .reg file: UTF-16 with a mark, the only form in which every character survives.
import { writeFileSync } from 'node:fs';

const quote = (text) => `"${text.replaceAll('\\', '\\\\').replaceAll('"', '\\"')}"`;

/**
 * Writes a .reg file.
 * @param {object} keys key path -> {value name -> string, or number for a 32-bit value, or null to remove the value};
 *   a key whose value is null is removed.
 */
export function writeRegFile(file, keys) {
  const lines = ['Windows Registry Editor Version 5.00', ''];
  for (const [key, values] of Object.entries(keys)) {
    lines.push(values === null ? `[-${key}]` : `[${key}]`);
    for (const [name, value] of Object.entries(values ?? {})) {
      if (value === null) lines.push(`${quote(name)}=-`);
      else if (typeof value === 'number') lines.push(`${quote(name)}=dword:${value.toString(16).padStart(8, '0')}`);
      else lines.push(`${quote(name)}=${quote(value)}`);
    }
    lines.push('');
  }
  writeFileSync(file, Buffer.from(`\ufeff${lines.join('\r\n')}\r\n`, 'utf16le'));
}
