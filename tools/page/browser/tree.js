// A message, or a JSON text, as a tree that the keyboard can walk.

import {element} from './dom.js';
import {countText} from './text.js';

/** So many fields of one message are shown at once. */
const kPage = 100;
/** A message with no more fields than that is shown opened. */
const kOpened = 120;

const countOf = (fields) => fields.reduce((sum, field) => sum + 1 + countOf(field.fields ?? []), 0);

/** Words that help to read a value. */
function remarkOf(field) {
  const kits = ['none', 'access', 'avatar', 'sharing', 'feed'];
  if (field.name === 'kitType') return kits[Number(field.value)] ?? '';
  if (field.type !== 'Timestamp') return '';
  const seconds = field.fields.find((part) => part.name === 'seconds')?.value ?? 0;
  const nanos = field.fields.find((part) => part.name === 'nanos')?.value ?? 0;
  const date = new Date(Number(seconds) * 1000 + Number(nanos) / 1e6);
  return Number.isNaN(date.getTime()) ? '' : date.toISOString();
}

export class Tree {
  #fields = new Map();
  #items = new Map();
  #onPoint;

  /** `onPoint(field)` when a field is pointed at or focused, `onPoint(null)` when no more. */
  constructor(fields, label, onPoint) {
    this.#onPoint = onPoint;
    this.root = element('ul', {class: 'tree', role: 'tree', 'aria-label': label});
    this.#append(this.root, fields, 0, countOf(fields) <= kOpened);
    this.root.querySelector('[role=treeitem]')?.setAttribute('tabindex', '0');
    this.root.addEventListener('keydown', (event) => this.#onKey(event));
    this.root.addEventListener('click', (event) => this.#onClick(event));
    this.root.addEventListener('mouseover', (event) => this.#point(event.target));
    this.root.addEventListener('mouseleave', () => this.#point(document.activeElement));
    this.root.addEventListener('focusin', (event) => this.#onFocus(event));
    this.root.addEventListener('focusout', () => this.#onPoint(null));
  }

  /** Marks the innermost field in sight that holds the byte; none for -1. */
  markByte(byte) {
    let marked = null;
    for (const [item, field] of this.#fields) {
      item.classList.remove('marked');
      if (byte >= field.start && byte < field.end && item.offsetParent !== null) marked = item;
    }
    marked?.classList.add('marked');
    marked?.firstElementChild.scrollIntoView({block: 'nearest'});
    return marked === null ? null : this.#fields.get(marked);
  }

  #append(list, fields, first, opened) {
    for (const field of fields.slice(first, first + kPage)) list.append(this.#makeItem(field, opened));
    const left = fields.length - first - kPage;
    if (left <= 0) return;
    const more = element('li', {class: 'more', role: 'treeitem', tabindex: '-1'},
      element('div', {}, `${countText(left, 'more field')}, show`));
    more.addEventListener('click', () => {
      more.remove();
      this.#append(list, fields, first + kPage, opened);
      list.children[first + kPage].focus();
    });
    list.append(more);
  }

  #makeItem(field, opened) {
    const remark = remarkOf(field);
    const value = field.value === undefined ? countText(field.fields?.length ?? 0, 'field') : field.value;
    const item = element('li', {role: 'treeitem', tabindex: '-1'},
      element('div', {class: 'field'},
        element('span', {class: 'name'}, field.name), ' ',
        element('span', {class: field.value === undefined ? 'summary' : 'value', 'data-type': field.type}, value), ' ',
        remark === '' ? null : element('span', {class: 'remark'}, remark), ' ',
        element('span', {class: 'type'}, field.type)));
    this.#fields.set(item, field);
    if (field.fields !== undefined) {
      item.setAttribute('aria-expanded', 'false');
      if (opened) this.#setOpened(item, true);
    }
    return item;
  }

  /** The parts are made when they are first seen. */
  #setOpened(item, opened) {
    if (!item.hasAttribute('aria-expanded')) return;
    item.setAttribute('aria-expanded', opened);
    if (!opened || item.querySelector(':scope > ul') !== null) return;
    const list = element('ul', {role: 'group'});
    this.#append(list, this.#fields.get(item).fields, 0, opened && countOf(this.#fields.get(item).fields) <= kOpened);
    item.append(list);
  }

  #onKey(event) {
    const items = [...this.root.querySelectorAll('[role=treeitem]')].filter((item) => item.offsetParent !== null);
    const now = event.target.closest('[role=treeitem]');
    const index = items.indexOf(now);
    const isOpened = now?.getAttribute('aria-expanded');
    const focus = (item) => item?.focus();
    const actions = {
      ArrowDown: () => focus(items[index + 1]),
      ArrowUp: () => focus(items[index - 1]),
      Home: () => focus(items[0]),
      End: () => focus(items.at(-1)),
      ArrowRight: () => (isOpened === 'false' ? this.#setOpened(now, true)
        : focus(now.querySelector('[role=treeitem]'))),
      ArrowLeft: () => (isOpened === 'true' ? this.#setOpened(now, false)
        : focus(now.parentElement.closest('[role=treeitem]'))),
      Enter: () => now.click()};
    if (now === null || !(event.key in actions)) return;
    actions[event.key]();
    event.preventDefault();
  }

  #onClick(event) {
    const item = event.target.closest('[role=treeitem]');
    if (item === null || !this.#fields.has(item)) return;
    item.focus();
    this.#setOpened(item, item.getAttribute('aria-expanded') === 'false');
  }

  #onFocus(event) {
    const item = event.target.closest('[role=treeitem]');
    this.root.querySelector('[tabindex="0"]')?.setAttribute('tabindex', '-1');
    item.setAttribute('tabindex', '0');
    this.#point(item);
  }

  #point(target) {
    const item = target?.closest?.('[role=treeitem]') ?? null;
    this.#onPoint(this.#fields.get(item) ?? null);
  }
}
