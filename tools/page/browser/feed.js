// The server's events. The browser connects again by itself and names the last id that it has seen.

import {base, byId} from './dom.js';

const kWords = {live: 'live', waiting: 'connecting again', ended: 'the collector has ended'};

function show(state) {
  byId('link').dataset.state = state;
  byId('link').textContent = kWords[state];
}

/** Calls `on.request(summary)`, `on.state(state)` and `on.gap(count)`; each request once. */
export function openFeed(on) {
  const source = new EventSource(new URL('events', base));
  let lastId = 0;
  source.addEventListener('open', () => show('live'));
  source.addEventListener('error', () => show(source.readyState === EventSource.CLOSED ? 'ended' : 'waiting'));
  source.addEventListener('state', (event) => on.state(JSON.parse(event.data)));
  source.addEventListener('gap', (event) => on.gap(Number(event.data)));
  source.addEventListener('request', (event) => {
    const request = JSON.parse(event.data);
    request.id = Number(event.lastEventId);
    if (request.id <= lastId) return;
    lastId = request.id;
    on.request(request);
  });
}
