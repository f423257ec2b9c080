// Small charts over time, drawn as SVG.

import {svgElement} from './dom.js';

const kBuckets = 48;
const kMinute = 60_000;
const kSpans = [1, 2, 5, 15, 60, 240, 1440].map((minutes) => minutes * kMinute);

/** The shortest of a few round spans that reaches back to `oldest`. */
export function spanFor(oldest, now) {
  return kSpans.find((span) => now - oldest < span) ?? kSpans.at(-1);
}

export function spanText(span) {
  if (span === kMinute) return 'last minute';
  return span <= 60 * kMinute ? `last ${span / kMinute} min` : `last ${span / kMinute / 60} h`;
}

/** The numbers of each slice of the span; `samples` are pairs of a time and a number. */
export function buckets(samples, span, now) {
  const slices = Array.from({length: kBuckets}, () => []);
  for (const [at, number] of samples) {
    const slice = kBuckets - 1 - Math.floor((now - at) / (span / kBuckets));
    if (slice >= 0 && slice < kBuckets) slices[slice].push(number);
  }
  return slices;
}

/** A bar for each slice; `series` are lists of heights that stand on each other, each with a class. */
export function barChart(series, label, height = 28) {
  const totals = series[0].heights.map((_, i) => series.reduce((sum, one) => sum + Math.max(0, one.heights[i]), 0));
  const most = Math.max(1, ...totals);
  const base = Array(totals.length).fill(height);
  const bars = series.flatMap(({heights, tone}) => heights.map((value, i) => {
    if (value <= 0) return null;
    const bar = Math.max(1.5, (value / most) * (height - 1));
    base[i] -= bar;
    return svgElement('rect', {class: tone, x: i * 4, y: base[i], width: 3, height: bar});
  }));
  const axis = svgElement('line', {x1: 0, x2: kBuckets * 4, y1: height, y2: height});
  return svgElement('svg', {class: 'chart', viewBox: `0 0 ${kBuckets * 4} ${height + 1}`,
    preserveAspectRatio: 'none', role: 'img', 'aria-label': label}, axis, ...bars);
}
