// A small and strict XML reader for files of our own: elements, attributes in double quotes, text, comments and the
// five named entities. Whatever else it meets is an error.

const kToken = /<!--[^]*?-->|<\?xml [^]*?\?>|<\/([\w:]+)\s*>|<([\w:]+)((?:\s+[\w:]+="[^"<]*")*)\s*(\/?)>|([^<]+)/y;
const kEntities = { '&lt;': '<', '&gt;': '>', '&amp;': '&', '&quot;': '"', '&apos;': "'" };

const demand = (holds, otherwise) => {
  if (!holds) throw new Error(otherwise);
};

const decoded = (text) => text.replace(/&\w*;?/g, (entity) => {
  demand(entity in kEntities, `no entity: ${entity}`);
  return kEntities[entity];
});

/** The root element: {name, attributes, children}. @throws for what is not well-formed. */
export function parseXml(source) {
  const open = [{ name: '', children: [] }];
  for (kToken.lastIndex = 0; kToken.lastIndex < source.length;) {
    const at = kToken.lastIndex;
    const match = kToken.exec(source);
    demand(match, `no XML: ${source.slice(at, at + 40)}`);
    const [, closing, name, attributes = '', empty, text = ''] = match;
    demand(decoded(text).trim() === '' || open.length > 1, 'text outside of all elements');
    demand(!closing || open.pop().name === closing, `</${closing}> closes another element`);
    if (!name) continue;
    const pairs = [...attributes.matchAll(/([\w:]+)="([^"]*)"/g)].map(([, key, value]) => [key, decoded(value)]);
    const element = { name, attributes: Object.fromEntries(pairs), children: [] };
    demand(Object.keys(element.attributes).length === pairs.length, `an attribute of ${name} twice`);
    open.at(-1).children.push(element);
    if (!empty) open.push(element);
  }
  demand(open.length === 1 && open[0].children.length === 1, 'not one whole element');
  return open[0].children[0];
}
