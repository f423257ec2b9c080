// What the metrics add up to, by name, and how the requests came in over time.

import {barChart, buckets, spanFor, spanText} from './chart.js';
import {byId, element} from './dom.js';
import {countText, numberText, toneOf} from './text.js';

/** Names beyond that are counted, not listed. */
const kNames = 100;
/** Of each name, the samples that the chart knows. */
const kSamples = 1000;

const sum = (numbers) => numbers.reduce((total, number) => total + number, 0);

export class Metrics {
  #box = byId('metrics');
  #names = new Map();
  #unlisted = 0;
  #requests = [];

  add(request) {
    this.#requests.push([request.at, toneOf(request.status) === 'good' ? 0 : 1]);
    if (this.#requests.length > 2 * kSamples) this.#requests.shift();
    for (const [kind, name, number] of request.metrics ?? []) this.#addOne(kind, name, number, request.at);
    this.#unlisted += Math.max(0, (request.records ?? 0) - (request.metrics?.length ?? Infinity));
  }

  clear() {
    this.#names.clear();
    this.#unlisted = 0;
    this.#requests = [];
  }

  #addOne(kind, name, number, at) {
    const key = `${kind} ${name}`;
    let metric = this.#names.get(key);
    if (metric === undefined) {
      if (this.#names.size === kNames) {
        this.#unlisted += 1;
        return;
      }
      metric = {kind, name, count: 0, total: 0, least: number, most: number, samples: []};
      this.#names.set(key, metric);
    }
    metric.count += 1;
    metric.total += number;
    metric.least = Math.min(metric.least, number);
    metric.most = Math.max(metric.most, number);
    metric.samples.push([at, number]);
    if (metric.samples.length > kSamples) metric.samples.shift();
  }

  draw() {
    const now = Date.now();
    const span = spanFor(this.#requests[0]?.[0] ?? now, now);
    const metrics = [...this.#names.values()].sort((a, b) => (a.name < b.name ? -1 : 1));
    this.#box.replaceChildren(
      element('h2', {}, 'Requests'),
      element('p', {class: 'hint'}, `${countText(this.#requests.length, 'request')}, ${spanText(span)}`),
      this.#requestChart(span, now),
      element('h2', {}, 'Metrics by name'),
      element('p', {class: 'hint'}, metrics.length === 0
        ? 'None has arrived. Ten of them make an upload.'
        : `As they arrived in the ${spanText(span)}: counters summed, timers in milliseconds.`),
      ...metrics.map((metric) => this.#card(metric, span, now)),
      this.#unlisted > 0 ? element('p', {class: 'hint'}, `and ${countText(this.#unlisted, 'record')} not listed`) : '');
  }

  #requestChart(span, now) {
    const slices = buckets(this.#requests, span, now);
    const failed = slices.map(sum);
    const good = slices.map((slice) => slice.length - sum(slice));
    return element('div', {class: 'overview'}, barChart(
      [{heights: good, tone: 'good'}, {heights: failed, tone: 'bad'}],
      `Requests over the ${spanText(span)}: ${sum(good)} answered well, ${sum(failed)} not`, 44));
  }

  #card(metric, span, now) {
    const isCounter = metric.kind === 'counter';
    const mean = metric.total / metric.count;
    const slices = buckets(metric.samples, span, now);
    const heights = slices.map((slice) => (isCounter || slice.length === 0 ? sum(slice) : sum(slice) / slice.length));
    const main = isCounter ? numberText(metric.total) : `${numberText(mean)} ms`;
    const more = isCounter ? countText(metric.count, 'record')
      : `${countText(metric.count, 'record')}, ${numberText(metric.least)} to ${numberText(metric.most)} ms`;
    return element('article', {class: 'metric', 'data-kind': metric.kind},
      element('h3', {}, metric.name || '(no name)'),
      element('p', {class: 'main'}, main),
      element('p', {class: 'more'}, `${isCounter ? 'counter' : 'timer, mean'}; ${more}`),
      barChart([{heights, tone: isCounter ? 'counter' : 'timer'}], `${metric.name}: ${main} in ${more}`));
  }
}
