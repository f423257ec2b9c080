// One request in full.

import {base, byId, element} from './dom.js';
import {bytesOfHex, HexDump} from './hex.js';
import {fieldsOfJson} from './json.js';
import {ageText, countText, timeText, toneOf} from './text.js';
import {Tree} from './tree.js';

const box = byId('detail');
let wanted = null;

/** Fetches and shows a request; the last one asked for wins. */
export async function showDetail(id) {
  wanted?.abort();
  wanted = new AbortController();
  try {
    const response = await fetch(new URL(`requests/${id}`, base), {signal: wanted.signal});
    if (!response.ok) return say(await response.text());
    box.replaceChildren(...partsOf(await response.json()));
    box.scrollTop = 0;
  } catch (error) {
    if (error.name !== 'AbortError') say('The collector does not answer.');
  }
}

/** Shows nothing. */
export function clearDetail() {
  wanted?.abort();
  say('Choose a request to see what is in it.');
}

const say = (text) => box.replaceChildren(element('p', {class: 'empty'}, text));

function partsOf(detail) {
  return [
    element('h2', {class: 'title'},
      element('span', {class: 'badge', 'data-tone': toneOf(detail.status)}, detail.status), ' ',
      element('span', {}, `${detail.method} ${detail.path}`)),
    element('p', {class: 'hint'}, `No. ${detail.id}, received ${timeText(detail.at)}, ` +
      `${countText(detail.body.length / 2, 'byte')}`),
    ...section('Token', tokenList(detail.token)),
    ...contentParts(detail),
    ...section('Headers', definitions(detail.headers)),
    ...section('JSON line', rawLine(detail.line)),
  ];
}

const section = (title, ...parts) => [element('h3', {}, title), ...parts];

function definitions(pairs) {
  return element('dl', {}, ...pairs.flatMap(([name, value]) => [element('dt', {}, name), element('dd', {}, value)]));
}

function tokenList(token) {
  const verdict = element('span', {class: 'badge', 'data-tone': token.state === 'valid' ? 'good' : 'bad'},
    token.state);
  if (token.createdMillis === undefined) return definitions([['verdict', verdict]]);
  const age = Math.abs(token.ageMillis) < 1000 ? `${token.ageMillis} ms` : ageText(Math.abs(token.ageMillis));
  return element('dl', {}, element('dt', {}, 'verdict'), element('dd', {}, verdict, ' opened and verified'),
    element('dt', {}, 'application'), element('dd', {}, token.bundleIdentifier),
    element('dt', {}, 'made'), element('dd', {}, new Date(token.createdMillis).toISOString(),
      token.ageMillis < 0 ? `, ${age} ahead` : `, ${age} before it came`));
}

function contentParts(detail) {
  if (detail.body === '') return section('Body', element('p', {class: 'hint'}, 'empty'));
  const bytes = bytesOfHex(detail.body);
  const fields = detail.fields ?? (detail.isJson ? fieldsOfJson(bytes) : null);
  const title = detail.message ?? 'JSON';
  let tree = null;
  const dump = new HexDump(bytes, (byte) => tree?.markByte(byte) ?? null);
  if (fields !== null) tree = new Tree(fields, title, (field) => dump.mark(field));
  const problem = detail.decoded === false
    ? element('p', {class: 'outcome'}, `does not decode as ${detail.message}; this is as far as it reads`) : null;
  const dumpPart = element('div', {class: 'bytes-part'}, ...section('Bytes', dump.root));
  return [...(tree === null ? [] : section(title, ...[problem, tree.root].filter(Boolean))), dumpPart];
}

function rawLine(line) {
  const copy = element('button', {type: 'button'}, 'Copy');
  copy.addEventListener('click', async () => {
    try {
      await navigator.clipboard.writeText(line);
      copy.textContent = 'Copied';
    } catch {
      copy.textContent = 'Not allowed here; select it';
    }
  });
  return element('div', {class: 'raw'}, element('pre', {tabindex: '0', 'aria-label': 'JSON line'}, line), copy);
}
