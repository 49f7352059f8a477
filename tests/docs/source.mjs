// What the code holds that the guide and the policy templates speak of, read from the sources by a few patterns:
// exit codes from main/exit_code.h, settings from the files that read the registry, texts from the log calls.
import { execFileSync } from 'node:child_process';
import { readFileSync } from 'node:fs';
import { join } from 'node:path';
import { fileURLToPath } from 'node:url';

export const root = fileURLToPath(new URL('../..', import.meta.url));
export const read = (name) => readFileSync(join(root, name), 'utf8');

const kFolders = ['main', 'dct', 'upload', 'http', 'core'];
const sources = execFileSync('git', ['ls-files', ...kFolders], { cwd: root, encoding: 'utf8' }).split('\n')
  .filter((name) => /\.(cpp|h)$/.test(name)).map((name) => ({ name, text: read(name) }));

const all = (text, pattern) => [...text.matchAll(pattern)];

/** The numbers of the exit codes. */
export const exitCodes = all(/enum class ExitCode[^}]*/.exec(read('main/exit_code.h'))[0], /= (\d+),/g).map(([, number]) => number);

/** The product's version, as text. */
export const version = /^#define MDDCT_VERSION_TEXT "([\d.]+)"$/m.exec(read('packaging/version.h'))[1];

// How each file that reads settings names them, below the product's key. Another file that reads some has to be added.
const kReaders = {
  'core/settings/configuration.cpp': [/L"HKLM\\\\Software\\\\Calvera\\\\Meridon\\\\(\w+)"/g, ''],
  'core/crash/crash_settings.cpp': [/read(?:Text|Number)\(L"(\w+)"/g, 'Dump\\'],
  'core/log/log_disk_guard.cpp': [/kReached\[\] = L"(\w+)"/g, 'Log\\'],
  'core/log/log_line.cpp': [/readPath\(L"(HKLM\\\\[^"]+)"/g, ''],
  'core/log/log_settings.cpp': [/(?:^ {4}L"(?=\w+=)|settingName\(L")(\w+)/gm, 'Log\\', /kProductKey\) \+ L"\\\\(\w+)"/g],
  'dct/agent_paths.cpp': [/productSetting\(L"\\\\([^"]+)"/g, ''],
  'http/win_http_verification.cpp': [/kProductKey\) \+ L"\\\\([^"]+)"/g, ''],
  'main/run.cpp': [/readProxySetting\(L"([^"]+)"/g, 'Node Manager\\'],
};
const kReads =
  /\bread(Setting|SettingBool|Config|Path|PathDefault|KeyValue)\(|LogSettings::read(Flag|Number)\([kL]/;

/** Files that read settings, which must be those that settings() knows. */
export const readers = sources.filter(({ name, text }) => name.endsWith('.cpp') && kReads.test(text))
  .map(({ name }) => name).sort();
export const knownReaders = Object.keys(kReaders).sort();

/** Every registry value that is read: "Log\logEnabled", or a whole name from another key. Sorted. */
export function settings() {
  const names = Object.entries(kReaders).flatMap(([file, [pattern, key, ofProduct]]) => [
    ...all(read(file), pattern).map(([, name]) => key + name),
    ...(ofProduct ? all(read(file), ofProduct) : []).map(([, name]) => name),
  ]);
  return [...new Set(names.map((name) => name.replaceAll('\\\\', '\\')))].sort();
}

/** The defaults of the log's settings: "Log\logEnabled" to "true". */
export const logDefaults = Object.fromEntries(
  all(read('core/log/log_settings.cpp'), /^ {4}L"(\w+)=([^"]*)"/gm).map(([, name, value]) => [`Log\\${name}`, value]));

/** Where legacy policies of a component are, as the map has it. */
export function legacyKey(component) {
  const map = read('core/settings/legacy_policy.cpp');
  const pattern = component === '' ? 'L"\\\\\\\\(Vantix VDX)"' : `\\{L"${component.toLowerCase()}", L"([^"]+)"\\}`;
  const row = all(map, new RegExp(pattern, 'g')).map(([, key]) => key).find(Boolean);
  return `${/kLegacyRoot = L"([^"]+)"/.exec(map)[1]}\\\\${row}`.replaceAll('\\\\', '\\');
}

const kLiterals = '((?:L"(?:[^"\\\\]|\\\\.)*"\\s*)+)';
const joined = (literals) => all(literals, /L"((?:[^"\\]|\\.)*)"/g).map(([, text]) => text).join('');
const kLogCall = new RegExp(`\\b(?:log|submit|makeLogRecord)\\([^;"]*?k(Error|Warn|Fatal)\\b[^;"]*?${kLiterals}`, 'g');
const kResult = new RegExp(`\\b(?:storeError|storeAndLogError|setError|setErrorText)\\([^;"]*?${kLiterals}`, 'g');

/** Texts that are logged at WARN, ERROR and FATAL: text to level. A text that only hands on another one is not told. */
export const logTexts = new Map(sources.flatMap(({ text }) => all(text, kLogCall))
  .map(([, level, literals]) => [joined(literals), level.toUpperCase()]));

/** Texts that the collection hands up for such a line. */
export const resultTexts = sources.filter(({ name }) => name.startsWith('dct/'))
  .flatMap(({ text }) => all(text, kResult)).map(([, literals]) => joined(literals));

/** Every text of the code, adjacent pieces joined. */
export const literals = new Set(sources.flatMap(({ text }) => all(text, new RegExp(kLiterals, 'g')))
  .map(([, pieces]) => joined(pieces)));
