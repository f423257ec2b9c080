// The bytes of a body, sixteen to a line, a window of them at a time.

import {element} from './dom.js';

const kLine = 16;
/** Bytes in one window, so that a large body costs no more elements than a small one. */
const kWindow = 1024;

const hex = (number, digits) => number.toString(16).padStart(digits, '0');
const printable = (byte) => (byte >= 0x20 && byte < 0x7f ? String.fromCharCode(byte) : '\u00b7');

export function bytesOfHex(text) {
  const bytes = new Uint8Array(text.length / 2);
  for (let i = 0; i < bytes.length; ++i) bytes[i] = parseInt(text.slice(2 * i, 2 * i + 2), 16);
  return bytes;
}

export class HexDump {
  #bytes;
  #onByte;
  #first = 0;
  #cursor = -1;
  #range = {start: 0, end: 0};
  #lines = element('div', {class: 'lines', tabindex: '0', role: 'group',
    'aria-label': 'Bytes; the left and right arrow keys go from byte to byte'});
  #place = element('span', {class: 'place'});
  #cells = new Map();

  /** `onByte(index)` when a byte is pointed at, or -1; gives the field that holds it, or null. */
  constructor(bytes, onByte) {
    this.#bytes = bytes;
    this.#onByte = onByte;
    this.root = element('div', {class: 'hex'}, this.#lines, bytes.length > kWindow ? this.#makePager() : null);
    this.#lines.addEventListener('mouseover', (event) => this.#point(Number(event.target.dataset.byte ?? -1)));
    this.#lines.addEventListener('mouseleave', () => this.#point(-1));
    this.#lines.addEventListener('keydown', (event) => this.#onKey(event));
    this.#lines.addEventListener('blur', () => this.#point(-1));
    this.#draw();
  }

  /** Marks the bytes of a field and brings the first into sight; none for null. */
  mark(field) {
    this.#range = field === null ? {start: 0, end: 0} : field;
    const isInSight = field === null || (field.end > this.#first && field.start < this.#first + kWindow);
    if (!isInSight) this.#show(field.start);
    this.#colour();
    this.#bringIntoSight(this.#range.start);
  }

  /** Scrolls the dump alone: what the pointer is over stays where it is. */
  #bringIntoSight(byte) {
    const line = this.#cells.get(byte)?.[0].closest('.line');
    if (line === undefined || this.#range.end === 0 && this.#cursor < 0) return;
    const box = this.#lines.getBoundingClientRect();
    const place = line.getBoundingClientRect();
    if (place.top < box.top) this.#lines.scrollTop -= box.top - place.top;
    if (place.bottom > box.bottom) this.#lines.scrollTop += place.bottom - box.bottom;
  }

  #makePager() {
    const page = (label, step) => {
      const button = element('button', {type: 'button'}, label);
      button.addEventListener('click', () => this.#show(this.#first + step));
      return button;
    };
    return element('div', {class: 'pager'}, page('Earlier', -kWindow), this.#place, page('Later', kWindow));
  }

  #show(byte) {
    const last = Math.max(0, this.#bytes.length - 1);
    const wanted = Math.min(Math.max(byte, 0), last);
    this.#first = wanted - (wanted % kWindow);
    this.#draw();
  }

  #draw() {
    this.#cells.clear();
    const end = Math.min(this.#bytes.length, this.#first + kWindow);
    const lines = [];
    for (let at = this.#first; at < end; at += kLine) lines.push(this.#makeLine(at, Math.min(end, at + kLine)));
    this.#lines.replaceChildren(...lines);
    this.#place.textContent = `bytes ${this.#first} to ${end - 1} of ${this.#bytes.length}`;
    this.#colour();
  }

  #makeLine(start, end) {
    const codes = element('span', {class: 'codes'});
    const letters = element('span', {class: 'letters', 'aria-hidden': 'true'});
    for (let i = start; i < end; ++i) {
      const pair = [element('span', {'data-byte': i}, hex(this.#bytes[i], 2)),
        element('span', {'data-byte': i}, printable(this.#bytes[i]))];
      codes.append(pair[0]);
      letters.append(pair[1]);
      this.#cells.set(i, pair);
    }
    return element('div', {class: 'line'}, element('span', {class: 'offset'}, hex(start, 4)), codes, letters);
  }

  #colour() {
    for (const [index, pair] of this.#cells) {
      const inRange = index >= this.#range.start && index < this.#range.end;
      for (const cell of pair) {
        cell.classList.toggle('marked', inRange);
        cell.classList.toggle('cursor', index === this.#cursor);
      }
    }
  }

  #point(byte) {
    this.#cursor = byte;
    this.#range = this.#onByte(byte) ?? {start: 0, end: 0};
    this.#colour();
  }

  #onKey(event) {
    const steps = {ArrowRight: 1, ArrowLeft: -1, ArrowDown: kLine, ArrowUp: -kLine};
    if (!(event.key in steps)) return;
    const wanted = this.#cursor < 0 ? this.#first : this.#cursor + steps[event.key];
    const byte = Math.min(Math.max(wanted, 0), this.#bytes.length - 1);
    if (byte < this.#first || byte >= this.#first + kWindow) this.#show(byte);
    this.#point(byte);
    this.#bringIntoSight(byte);
    event.preventDefault();
  }
}
