// How numbers and times are written.

const kMinute = 60;
const kHour = 60 * kMinute;
const kDay = 24 * kHour;

/** "now", "42 s", "7 min", "3 h" or "2 d". */
export function ageText(millis) {
  const seconds = Math.max(0, Math.floor(millis / 1000));
  if (seconds < 1) return 'now';
  if (seconds < kMinute) return `${seconds} s`;
  if (seconds < kHour) return `${Math.floor(seconds / kMinute)} min`;
  if (seconds < kDay) return `${Math.floor(seconds / kHour)} h`;
  return `${Math.floor(seconds / kDay)} d`;
}

/** The local time of day with milliseconds. */
export function timeText(millis) {
  const date = new Date(millis);
  const two = (number) => String(number).padStart(2, '0');
  return `${two(date.getHours())}:${two(date.getMinutes())}:${two(date.getSeconds())}.` +
    String(date.getMilliseconds()).padStart(3, '0');
}

const grouped = new Intl.NumberFormat('en', {maximumFractionDigits: 1});
const compact = new Intl.NumberFormat('en', {notation: 'compact', maximumFractionDigits: 1});

export const numberText = (number) =>
  Math.abs(number) < 1e7 ? grouped.format(number) : compact.format(number);

export const countText = (count, one, many = `${one}s`) => `${grouped.format(count)} ${count === 1 ? one : many}`;

/** One of "good", "limited", "bad" and "silent": how an answer looks to the one who sent the request. */
export function toneOf(status) {
  if (typeof status !== 'number') return 'silent';
  if (status < 400) return 'good';
  return status < 500 ? 'limited' : 'bad';
}
