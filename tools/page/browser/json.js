// The fields of a JSON text, each with the bytes that it takes, in the shape of those of a message.

/** More fields are not listed. */
const kCeiling = 5000;
const kSpace = /[\s,:]*/y;
const kScalar = /"(?:[^"\\]|\\.)*"|[^\s,:\]}]+/y;

class Reader {
  #bytes;
  #text;
  #at = 0;
  #left = kCeiling;

  constructor(bytes) {
    this.#bytes = bytes;
    // One character for each byte, so that places in the text are places in the bytes.
    this.#text = Array.from(bytes, (byte) => String.fromCharCode(byte)).join('');
  }

  /** The value that comes next, under a name that began at `start`. */
  value(name, start) {
    this.#take(kSpace);
    const opening = this.#text[this.#at];
    const field = opening === '{' || opening === '[' ? this.#container(name, opening === '{') : this.#scalar(name);
    return {...field, start, end: this.#at};
  }

  #container(name, isObject) {
    const fields = [];
    for (++this.#at; this.#take(kSpace), !'}]'.includes(this.#text[this.#at] ?? ']');) {
      const start = this.#at;
      if (--this.#left < 0) {
        this.#at = this.#text.length;
        fields.push({name: 'not listed', type: '', start, end: this.#at});
        break;
      }
      fields.push(this.value(isObject ? JSON.parse(this.#word()) : String(fields.length), start));
    }
    ++this.#at;
    return {name, type: isObject ? 'object' : 'array', fields};
  }

  #scalar(name) {
    const value = JSON.parse(this.#word());
    return {name, type: value === null ? 'null' : typeof value, value: String(value)};
  }

  #word() {
    const start = this.#at;
    this.#take(kScalar);
    return new TextDecoder().decode(this.#bytes.subarray(start, this.#at));
  }

  #take(pattern) {
    pattern.lastIndex = this.#at;
    this.#at += pattern.exec(this.#text)?.[0].length ?? 0;
  }
}

/** `bytes` are JSON: the server has said so. */
export function fieldsOfJson(bytes) {
  const whole = new Reader(bytes).value('value', 0);
  return whole.fields ?? [whole];
}
