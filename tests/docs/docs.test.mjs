// The guide and the policy templates against the code, in both directions; the version; the bill of materials.
import assert from 'node:assert/strict';
import { createRequire } from 'node:module';
import { describe, it } from 'node:test';
import { document } from '../../scripts/release/sbom.mjs';
import { exitCodes, knownReaders, legacyKey, literals, logDefaults, logTexts, read, readers, resultTexts, settings,
  version } from './source.mjs';

const require = createRequire(new URL('../../wine/package.json', import.meta.url));
const { XMLParser, XMLValidator } = require('fast-xml-parser');

/** The root element: {name, attributes, children}. @throws for what is not well-formed. */
function parseXml(source) {
  assert.equal(XMLValidator.validate(source), true);
  const parser = new XMLParser({ preserveOrder: true, ignoreAttributes: false, attributeNamePrefix: '',
    ignoreDeclaration: true });
  const elementsIn = (nodes) => nodes.filter((node) => !('#text' in node)).map(({ ':@': attributes = {}, ...node }) => (
    { name: Object.keys(node)[0], attributes, children: elementsIn(Object.values(node)[0]) }));
  return elementsIn(parser.parse(source))[0];
}

const sorted = (values) => [...values].sort();
const kWhole = 'HKLM\\SYSTEM\\';

describe('the guide', () => {
  const guide = read('docs/operations.md');
  const section = (title) => guide.split(/^(?=##? )/m).find((part) => part.startsWith(`## ${title}\n`));
  const rows = (text) => [...text.matchAll(/^\|(.*)\|$/gm)].map(([, row]) => row.split('|').map((cell) => cell.trim()));
  const quoted = (cell) => [...cell.matchAll(/`([^`]+)`/g)].map(([, text]) => text);

  it('has the exit codes of the code', () => {
    assert.deepEqual(rows(section('Exit codes')).map(([code]) => code).filter((code) => /^\d+$/.test(code)), exitCodes);
  });

  it('has the registry values that are read, with their defaults and legacy places', () => {
    assert.deepEqual(readers, knownReaders);
    const table = rows(section('Registry values'));
    const values = table.filter((cells) => cells.length === 4 && cells[0].startsWith('`'));
    assert.deepEqual(sorted(values.map(([name]) => quoted(name)[0])), settings());
    for (const [name, , value] of values) {
      const wanted = logDefaults[quoted(name)[0]];
      if (wanted !== undefined) assert.equal(value, wanted, name);
    }
    const components = table.filter((cells) => cells.length === 2 && cells[1].startsWith('`'));
    const wanted = ['', ...new Set(settings().filter((name) => name.includes('\\') && !name.startsWith(kWhole))
      .map((name) => name.split('\\')[0]))];
    assert.deepEqual(components.map(([component, key]) => [quoted(component)[0] ?? '', quoted(key)[0]]),
      wanted.map((component) => [component, legacyKey(component)]));
  });

  it('has the log texts of WARN and above, each at its level', () => {
    const told = new Map();
    let texts = [];
    for (const [first, ...cells] of rows(section('Log texts'))) {
      const isLine = /^(WARN|ERROR|FATAL)$/.test(first);
      // The tables of what a line hands on begin with a number or with the text itself.
      const cell = isLine || /^(\d+|-1)$/.test(first) ? cells[0] : first;
      if (isLine) for (const text of quoted(cell)) told.set(text, first);
      texts = texts.concat(quoted(cell).filter((text) => !/^x-ms|^0x|^%/.test(text)));
    }
    assert.deepEqual(sorted(new Set(texts)).filter((text) => !literals.has(text)), [], 'in the guide alone');
    assert.deepEqual(resultTexts.filter((text) => !texts.includes(text)), [], 'in the code alone');
    assert.deepEqual([...logTexts].filter(([text, level]) => told.get(text) !== level), [], 'in the code alone');
  });
});

// The format's rules as far as these files use it: children in their order, and the attributes that must be there.
const kRules = {
  policyDefinitions: ['policyNamespaces resources supportedOn categories policies', 'xmlns revision schemaVersion'],
  policyNamespaces: ['target'], target: ['', 'prefix namespace'], resources: ['', 'minRequiredRevision'],
  supportedOn: ['definitions'], definitions: ['definition'], definition: ['', 'name displayName'],
  categories: ['category'], category: ['parentCategory', 'name displayName'], parentCategory: ['', 'ref'],
  policies: ['policy'], enabledValue: ['decimal'], disabledValue: ['decimal'], elements: ['decimal text'],
  policy: ['parentCategory supportedOn enabledValue disabledValue elements', 'name class displayName explainText key'],
  text: ['', 'id valueName'], decimal: [''],
};
const kTextRules = {
  policyDefinitionResources: ['displayName description resources', 'xmlns revision schemaVersion'],
  displayName: [''], description: [''], label: [''], defaultValue: [''], decimalTextBox: ['', 'refId'],
  resources: ['stringTable presentationTable'], stringTable: ['string'], string: ['', 'id'],
  presentationTable: ['presentation'], presentation: ['decimalTextBox textBox', 'id'],
  textBox: ['label defaultValue', 'refId'],
};

function checkRules(element, rules) {
  const [children, attributes = ''] = rules[element.name] ?? assert.fail(`no such element: ${element.name}`);
  const order = element.children.map(({ name }) => children.split(' ').indexOf(name));
  assert.ok(order.every((at, n) => at >= 0 && at >= (order[n - 1] ?? 0)), `children of ${element.name}`);
  for (const name of attributes.match(/\w+/g) ?? []) assert.ok(element.attributes[name], `${element.name}: ${name}`);
  for (const child of element.children) if (child.attributes.ref === undefined) checkRules(child, rules);
}

describe('the policy templates', () => {
  const [admx, adml] = ['mddct.admx', 'en-US/mddct.adml'].map((name) => parseXml(read(`packaging/policy/${name}`)));
  const below = (element, name) => element.children.flatMap(
    (child) => [...(child.name === name ? [child] : []), ...below(child, name)]);
  const attribute = (elements, name) => elements.map(({ attributes }) => attributes[name]);
  const unique = (values) => assert.deepEqual(sorted(new Set(values)), sorted(values));
  const policies = below(admx, 'policy');
  const elementsOf = ({ children }) => children.find(({ name }) => name === 'elements')?.children ?? [];

  it('keep the format\'s rules', () => {
    checkRules(admx, kRules);
    checkRules(adml, kTextRules);
    const kNamespace = 'http://schemas.microsoft.com/GroupPolicy/2006/07/PolicyDefinitions';
    assert.deepEqual(attribute([admx, adml], 'xmlns'), [kNamespace, kNamespace]);
    const defined = attribute([...below(admx, 'category'), ...below(admx, 'definition')], 'name');
    unique([...defined, ...attribute(policies, 'name')]);
    for (const { attributes, children } of policies) {
      const refs = attribute(children, 'ref').filter(Boolean).map((ref) => defined.includes(ref));
      assert.deepEqual([attributes.class, refs], ['Machine', [true, true]], attributes.name);
    }
  });

  it('resolve every reference, and nothing is left over', () => {
    const used = [...read('packaging/policy/mddct.admx').matchAll(/\$\((string|presentation)\.(\w+)\)/g)];
    for (const kind of ['string', 'presentation']) {
      const ids = attribute(below(adml, kind), 'id');
      unique(ids);
      assert.deepEqual(sorted(used.filter(([, k]) => k === kind).map(([, , id]) => id)), sorted(ids));
    }
    const box = { decimal: 'decimalTextBox', text: 'textBox' };
    for (const policy of policies) {
      const shown = below(adml, 'presentation').find(
        ({ attributes }) => policy.attributes.presentation === `$(presentation.${attributes.id})`);
      assert.deepEqual(shown?.children.map(({ name, attributes }) => [name, attributes.refId]) ?? [],
        elementsOf(policy).map(({ name, attributes }) => [box[name], attributes.id]), policy.attributes.name);
    }
  });

  it('write the values that are looked for first, one policy each', () => {
    const written = policies.flatMap((policy) => attribute([policy, ...elementsOf(policy)], 'valueName').filter(Boolean)
      .map((name) => `${policy.attributes.key}\\${name}`));
    // The installer's, the program's own, and Windows'.
    const others = ['Agent\\AgentInstallPath', 'Log\\loggedThresholdReached'];
    assert.deepEqual(sorted(written), settings().filter((name) => !others.includes(name) && !name.startsWith(kWhole))
      .map((name) => `Software\\Policies\\Calvera\\Meridon\\${name}`).sort());
  });
});

describe('the release', () => {
  it('has its version in one file, and the change log tells of it', () => {
    const numbers = /^#define MDDCT_VERSION_NUMBERS ([\d, ]+)$/m.exec(read('packaging/version.h'))[1];
    assert.equal(numbers.replaceAll(', ', '.'), version);
    assert.ok(read('CHANGELOG.md').includes(`## ${version.replace(/\.0$/, '')}`));
  });

  it('has a bill of materials whose references resolve', () => {
    const data = Buffer.from('a');
    const bill = document({ version, gcc: '12', mingw: '10', files: [{ name: 'mdDCT.exe', data }], seconds: 0 });
    const ids = [bill, ...bill.packages, ...bill.files].map(({ SPDXID }) => SPDXID);
    assert.equal(new Set(ids).size, ids.length);
    const named = bill.relationships.flatMap(({ spdxElementId, relatedSpdxElement: other }) => [spdxElementId, other]);
    assert.deepEqual(named.filter((id) => !ids.includes(id)), []);
    assert.deepEqual([bill.files[0].checksums[1].checksumValue, bill.creationInfo.created],
      ['ca978112ca1bbdcafac231b39a23dc4da786eff8147c4e72b9807785afee48bb', '1970-01-01T00:00:00Z']);
  });
});
