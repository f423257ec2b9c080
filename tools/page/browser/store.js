// The requests that this page knows: bounded, newest first when shown, and filtered.

/** What the server keeps; older ones are dropped here, too. */
export const kCapacity = 2000;

export function contentOf(request) {
  if (request.kind === 'heartbeat') return heartbeatText(request);
  if (request.kind === 'metrics') return metricsText(request);
  return request.kind === 'config' ? 'configuration asked for' : `${request.method} ${request.path}`;
}

function heartbeatText(request) {
  if (!request.decoded) return 'does not decode';
  const kits = request.kits.join(', ') || 'no record';
  return request.records > request.kits.length ? `${kits} (${request.records} records)` : kits;
}

function metricsText(request) {
  if (!request.decoded) return 'does not decode';
  const times = new Map();
  for (const [, name] of request.metrics) times.set(name, (times.get(name) ?? 0) + 1);
  const names = [...times].slice(0, 8).map(([name, count]) => (count > 1 ? `${name} \u00d7${count}` : name));
  return `${request.records}: ${names.join(', ')}${times.size > 8 ? ', \u2026' : ''}`;
}

export class Store {
  #requests = [];
  #held = [];
  #shown = null;
  #filter = {text: '', kind: '', failed: false};
  paused = false;

  /** Takes a request in; false when it is held back until the pause ends. */
  add(request) {
    request.content = contentOf(request);
    request.searched = `${request.content} ${request.app ?? ''} ${request.token} ${request.text}`.toLowerCase();
    const list = this.paused ? this.#held : this.#requests;
    list.push(request);
    if (list.length > kCapacity) list.splice(0, list.length - kCapacity);
    this.#shown = null;
    return !this.paused;
  }

  /** Ends or begins a pause; gives the requests that were held back. */
  setPaused(paused) {
    this.paused = paused;
    const held = paused ? [] : this.#held.splice(0);
    this.#requests.push(...held);
    if (this.#requests.length > kCapacity) this.#requests.splice(0, this.#requests.length - kCapacity);
    this.#shown = null;
    return held;
  }

  /** Forgets requests up to an id; true when there were any. */
  forget(id) {
    const before = this.#requests.length + this.#held.length;
    this.#requests = this.#requests.filter((request) => request.id > id);
    this.#held = this.#held.filter((request) => request.id > id);
    this.#shown = null;
    return before !== this.#requests.length + this.#held.length;
  }

  setFilter(filter) {
    this.#filter = {...filter, text: filter.text.trim().toLowerCase()};
    this.#shown = null;
  }

  get heldCount() { return this.#held.length; }
  get total() { return this.#requests.length; }

  /** What passes the filter, newest first. */
  get shown() {
    this.#shown ??= this.#requests.filter((request) => this.#passes(request)).reverse();
    return this.#shown;
  }

  #passes(request) {
    const {text, kind, failed} = this.#filter;
    return (kind === '' || request.kind === kind) && !(failed && request.status === 200) &&
      (text === '' || request.searched.includes(text));
  }
}
