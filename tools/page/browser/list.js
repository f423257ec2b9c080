// The list of requests. Only the rows in sight, and a few around them, are elements.

import {byId, element} from './dom.js';
import {ageText, timeText, toneOf} from './text.js';

const kAround = 6;
const kCells = ['number', 'age', 'status', 'kind', 'content', 'app', 'bytes', 'token'];

export class List {
  #box = byId('rows');
  #spacer = this.#box.querySelector('.spacer');
  #rows = new Map();
  #items = [];
  #selectedId = 0;
  #onSelect;
  #onOpen;

  /** `onSelect(request)` for every move of the selection, `onOpen(request)` when one is opened on purpose. */
  constructor(onSelect, onOpen) {
    this.#onSelect = onSelect;
    this.#onOpen = onOpen;
    this.#box.addEventListener('scroll', () => this.#draw(), {passive: true});
    this.#box.addEventListener('keydown', (event) => this.#onKey(event));
    this.#box.addEventListener('click', (event) => this.#onClick(event));
    new ResizeObserver(() => this.#draw()).observe(this.#box);
  }

  /** Shows these, newest first. What is in sight stays where it is when the list is scrolled. */
  show(items) {
    const height = this.#rowHeight();
    const first = Math.floor(this.#box.scrollTop / height);
    const anchor = this.#box.scrollTop > 0 ? this.#items[first] : undefined;
    this.#items = items;
    this.#spacer.style.height = `${items.length * height}px`;
    const now = anchor === undefined ? -1 : items.indexOf(anchor);
    if (now > first) this.#box.scrollTop += (now - first) * height;
    this.#draw();
  }

  /** Writes the ages anew. */
  tick() {
    for (const row of this.#rows.values()) this.#fillAge(row);
  }

  focus() { this.#box.focus(); }

  /** Moves the selection by so many rows; into the list when nothing is selected. */
  move(step) {
    const now = this.#items.findIndex((item) => item.id === this.#selectedId);
    const start = now < 0 && step > 0 ? -1 : now;
    const index = Math.min(Math.max(start + step, 0), this.#items.length - 1);
    if (this.#items.length > 0) this.#select(index);
  }

  #rowHeight() {
    return parseFloat(getComputedStyle(this.#box).getPropertyValue('--row'));
  }

  #select(index) {
    this.#selectedId = this.#items[index].id;
    const height = this.#rowHeight();
    const top = index * height;
    if (top < this.#box.scrollTop) this.#box.scrollTop = top;
    const bottom = top + height - this.#box.clientHeight;
    if (bottom > this.#box.scrollTop) this.#box.scrollTop = bottom;
    this.#draw();
    this.#onSelect(this.#items[index]);
  }

  #onKey(event) {
    const page = Math.max(1, Math.floor(this.#box.clientHeight / this.#rowHeight()) - 1);
    const steps = {ArrowDown: 1, ArrowUp: -1, PageDown: page, PageUp: -page, Home: -Infinity, End: Infinity};
    if (event.ctrlKey || event.metaKey || event.altKey) return;
    if (event.key in steps) {
      this.move(steps[event.key]);
    } else if (event.key === 'Enter' || event.key === ' ') {
      const item = this.#items.find((each) => each.id === this.#selectedId);
      if (item !== undefined) this.#onOpen(item);
    } else {
      return;
    }
    event.preventDefault();
  }

  #onClick(event) {
    const row = event.target.closest('[role=option]');
    if (row === null) return;
    this.#select(Number(row.dataset.index));
    this.#onOpen(this.#items[Number(row.dataset.index)]);
  }

  #draw() {
    const height = this.#rowHeight();
    const first = Math.max(0, Math.floor(this.#box.scrollTop / height) - kAround);
    const last = Math.min(this.#items.length,
      Math.ceil((this.#box.scrollTop + this.#box.clientHeight) / height) + kAround);
    const wanted = new Set(this.#items.slice(first, last).map((item) => item.id));
    for (const [id, row] of this.#rows) {
      if (wanted.has(id)) continue;
      row.remove();
      this.#rows.delete(id);
    }
    // In the order of the list, as it is read aloud.
    let next = this.#spacer.firstElementChild;
    for (let index = first; index < last; ++index) {
      const row = this.#place(this.#items[index], index, height);
      if (row === next) {
        next = next.nextElementSibling;
      } else {
        this.#spacer.insertBefore(row, next);
      }
    }
    this.#box.setAttribute('aria-activedescendant',
      wanted.has(this.#selectedId) ? `request-${this.#selectedId}` : '');
  }

  #place(item, index, height) {
    let row = this.#rows.get(item.id);
    if (row === undefined) {
      row = this.#makeRow(item);
      this.#rows.set(item.id, row);
    }
    row.dataset.index = index;
    row.style.transform = `translateY(${index * height}px)`;
    row.setAttribute('aria-posinset', index + 1);
    row.setAttribute('aria-setsize', this.#items.length);
    row.setAttribute('aria-selected', item.id === this.#selectedId);
    this.#fillAge(row);
    return row;
  }

  #makeRow(item) {
    const texts = {
      number: item.id, age: '', status: item.status, kind: item.kind, content: item.content,
      app: item.app ?? '', bytes: item.bytes.toLocaleString('en'), token: item.token};
    const cells = kCells.map((name) => element('span', {class: name, title: String(texts[name])}, texts[name]));
    const row = element('div', {
      class: 'row', role: 'option', id: `request-${item.id}`, 'data-tone': toneOf(item.status),
      'data-token': item.token === 'valid' ? 'valid' : 'other'}, ...cells);
    row.dataset.at = item.at;
    row.querySelector('.age').title = timeText(item.at);
    return row;
  }

  #fillAge(row) {
    const text = ageText(Date.now() - Number(row.dataset.at));
    const cell = row.querySelector('.age');
    if (cell.textContent !== text) cell.textContent = text;
  }
}
