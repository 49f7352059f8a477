// A small and strict XML reader for files of our own: elements, attributes in double quotes, text, comments and the
// five named entities. Whatever else it meets is an error.

const kToken = /<!--[^]*?-->|<\?xml [^]*?\?>|<\/([\w:]+)\s*>|<([\w:]+)((?:\s+[\w:]+="[^"<]*")*)\s*(\/?)>|([^<]+)/y;
const kEntities = { lt: '<', gt: '>', amp: '&', quot: '"', apos: "'" };

function decoded(text) {
  return text.replace(/&(\w*;?)/g, (whole, name) => {
    const known = kEntities[name.replace(/;$/, '')];
    if (!known || !name.endsWith(';')) throw new Error(`no entity: ${whole}`);
    return known;
  });
}

function attributesOf(text) {
  const out = {};
  for (const [, name, value] of text.matchAll(/([\w:]+)="([^"]*)"/g)) {
    if (name in out) throw new Error(`attribute ${name} twice`);
    out[name] = decoded(value);
  }
  return out;
}

/** The root element: {name, attributes, children, text}. @throws for what is not well-formed. */
export function parseXml(source) {
  const top = { name: '', attributes: {}, children: [], text: '' };
  const open = [top];
  kToken.lastIndex = 0;
  while (kToken.lastIndex < source.length) {
    const at = kToken.lastIndex;
    const match = kToken.exec(source);
    if (!match) throw new Error(`no XML: ${source.slice(at, at + 40)}`);
    const [, closing, name, attributes = '', empty, text] = match;
    if (text !== undefined) open.at(-1).text += decoded(text);
    if (closing && open.pop().name !== closing) throw new Error(`</${closing}> closes another element`);
    if (!name) continue;
    const element = { name, attributes: attributesOf(attributes), children: [], text: '' };
    open.at(-1).children.push(element);
    if (!empty) open.push(element);
  }
  if (open.length !== 1 || top.children.length !== 1 || top.text.trim()) throw new Error('not one whole element');
  return top.children[0];
}
