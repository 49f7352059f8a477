// The policy templates against the code and against the format's rules.
import assert from 'node:assert/strict';
import { createRequire } from 'node:module';
import { describe, it } from 'node:test';
import { isWhole, read, settings, sorted } from './source.mjs';

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
    assert.deepEqual(sorted(written), [...settings.keys()]
      .filter((name) => !others.includes(name) && !isWhole(name)).map((name) => `Software\\Policies\\Calvera\\Meridon\\${name}`).sort());
  });
});
