// What the code holds that the guide and the policy templates speak of, read from the sources by a few patterns:
// exit codes from main/exit_code.h, registry values from core/settings/setting_names.h, texts from the log calls.
import { execFileSync } from 'node:child_process';
import { readFileSync } from 'node:fs';
import { join } from 'node:path';
import { fileURLToPath } from 'node:url';

export const root = fileURLToPath(new URL('../..', import.meta.url));
export const read = (name) => readFileSync(join(root, name), 'utf8');

const kFolders = ['main', 'dct', 'upload', 'http', 'core'];
const sources = execFileSync('git', ['ls-files', ...kFolders], { cwd: root, encoding: 'utf8' }).split('\n')
  .filter((name) => /\.(cpp|h)$/.test(name)).map((name) => ({ name, text: read(name) }));

export const sorted = (values) => [...values].sort();
const all = (text, pattern) => [...text.matchAll(pattern)];

/** The numbers of the exit codes. */
export const exitCodes = all(/enum class ExitCode[^}]*/.exec(read('main/exit_code.h'))[0], /= (\d+),/g).map(([, number]) => number);

/** The product's version, as text. */
export const version = /^#define MDDCT_VERSION_TEXT "([\d.]+)"$/m.exec(read('packaging/version.h'))[1];

// Where registry values have their names, and the shape of one: a value of the product's key with its default, or the
// whole name of another key's value.
const kNames = 'core/settings/setting_names.h';
const kName = /^inline constexpr (?:Setting|ForeignValue) (k\w+)\{\s*L"([^"]+)"(?:, L"([^"]*)")?\};/gm;

/** Every registry value: "Log\\logEnabled", or a whole name, to {constant, defaultText}. */
export const settings = new Map(all(read(kNames), kName)
  .map(([, constant, name, defaultText = '']) => [name.replaceAll('\\\\', '\\'), { constant, defaultText }]));

/** Whether a value is named by its whole name: it is no value of the product's key. */
export const isWhole = (name) => name.startsWith('HKLM\\');

/** Constants that no file reads. */
export const unreadConstants = [...settings.values()].map(({ constant }) => constant).filter((constant) =>
  !sources.some(({ name, text }) => name.endsWith('.cpp') && new RegExp(`\\b${constant}\\b`).test(text)));

// A name made outside the list, in the list but in another shape, or written into a call that reads.
const kMade = /\b(?:Setting|ForeignValue)\b[^;()]*\{|\bread(?:Setting|SettingBool|Number)\(\{/g;
const kRead = /\b(?:read(?:Value|Config|Path|PathDefault|KeyValue)|Reg(?:OpenKey|QueryValue)ExW)\((?!k[A-Z])/g;

/** Places that read a registry value of another name, or could: "FILE: CODE". */
export const otherReads = sources.flatMap(({ name, text }) => [
  ...all(name === kNames ? text.replace(kName, '').replace(/^struct .*/gm, '') : text, kMade),
  ...(name.startsWith('core/settings/') ? [] : all(text, kRead)),
].map(([code]) => `${name}: ${code}`));

/** The key of a component's legacy policies, as the map has it. */
export function legacyKey(component) {
  const map = read('core/settings/legacy_policy.cpp');
  const pattern = component === '' ? 'L"\\\\\\\\(Vantix VDX)"' : `\\{L"${component.toLowerCase()}", L"([^"]+)"\\}`;
  const row = all(map, new RegExp(pattern, 'g')).map(([, key]) => key).find(Boolean);
  return `${/kLegacyRoot = L"([^"]+)"/.exec(map)[1]}\\\\${row}`.replaceAll('\\\\', '\\');
}

const kLiterals = '((?:L"(?:[^"\\\\]|\\\\.)*"\\s*)+)';
const joined = (literals) => all(literals, /L"((?:[^"\\]|\\.)*)"/g).map(([, text]) => text).join('');
const kLogs = 'log|submit|makeLogRecord|stepWithoutHandle';
const kStores = 'storeError|storeAndLogError|setError|setErrorText';
const kLogCall = new RegExp(`\\b(?:${kLogs})\\([^;"]*?k(Error|Warn|Fatal)\\b[^;"]*?${kLiterals}`, 'g');
const kResult = new RegExp(`\\b(?:${kStores})\\([^;"]*?${kLiterals}`, 'g');

/** Texts that are logged at WARN, ERROR and FATAL: text to level. A line that only passes on a
 * text from elsewhere is not here. */
export const logTexts = new Map(sources.flatMap(({ text }) => all(text, kLogCall))
  .map(([, level, literals]) => [joined(literals), level.toUpperCase()]));

/** Texts that the collection returns to its caller, which logs them in such a line. */
export const resultTexts = sources.filter(({ name }) => name.startsWith('dct/'))
  .flatMap(({ text }) => all(text, kResult)).map(([, literals]) => joined(literals));

/** Every text of the code, adjacent pieces joined. */
export const literals = new Set(sources.flatMap(({ text }) => all(text, new RegExp(kLiterals, 'g')))
  .map(([, pieces]) => joined(pieces)));
