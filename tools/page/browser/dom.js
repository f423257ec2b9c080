// Elements, text and the addresses of this page. Nothing that a request holds is ever read as markup.

/** Everything that the page asks for stands below the token's own path. */
export const base = new URL('.', import.meta.url);

export const byId = (id) => document.getElementById(id);

/** Makes an element. Children are elements or text; absent ones are left out. */
export function element(tag, attributes = {}, ...children) {
  return fill(document.createElement(tag), attributes, children);
}

const kSvg = 'http://www.w3.org/2000/svg';

export function svgElement(tag, attributes = {}, ...children) {
  return fill(document.createElementNS(kSvg, tag), attributes, children);
}

function fill(node, attributes, children) {
  for (const [name, value] of Object.entries(attributes)) {
    if (value !== undefined && value !== null && value !== false) node.setAttribute(name, String(value));
  }
  node.append(...children.filter((child) => child !== null && child !== undefined).map(textOrNode));
  return node;
}

const textOrNode = (child) => (child instanceof Node ? child : String(child));

/** Posts to a control; comes back with the reason of a refusal, or with nothing. */
export async function post(name, body = '') {
  try {
    const response = await fetch(new URL(name, base), {
      method: 'POST', body, headers: {'Content-Type': 'application/json'}});
    return response.ok ? '' : (await response.text()).trim();
  } catch {
    return 'The collector does not answer.';
  }
}
