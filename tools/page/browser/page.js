// Puts the parts together.

import {showState, wireControls} from './controls.js';
import {clearDetail, showDetail} from './detail.js';
import {byId, post} from './dom.js';
import {openFeed} from './feed.js';
import {List} from './list.js';
import {Metrics} from './metrics.js';
import {Store} from './store.js';
import {countText} from './text.js';
import {wireTheme} from './theme.js';
import {currentView, show, wireViews} from './views.js';

const store = new Store();
const metrics = new Metrics();
const list = new List((request) => showDetail(request.id), () => show('detail'));
let clearedUpTo = 0;
let drawIsDue = false;

/** All that has changed since the last frame is drawn at once. */
function draw() {
  if (drawIsDue) return;
  drawIsDue = true;
  requestAnimationFrame(() => {
    drawIsDue = false;
    list.show(store.shown);
    const shown = store.shown.length;
    byId('count').textContent = shown === store.total ? countText(shown, 'request')
      : `${shown.toLocaleString('en')} of ${countText(store.total, 'request')}`;
    byId('empty').hidden = shown > 0;
    byId('empty').textContent = store.total > 0 ? 'Nothing here is like that.' : 'Nothing has arrived yet.';
    byId('pause').textContent = store.paused ? `Resume (${store.heldCount} new)` : 'Pause';
    if (currentView() === 'metrics') metrics.draw();
  });
}

function notice(text) {
  byId('notice').textContent = text;
  byId('notice').hidden = text === '';
}

function onState(state) {
  showState(state);
  byId('address').textContent = state.collector;
  if (state.clearedUpTo <= clearedUpTo) return;
  clearedUpTo = state.clearedUpTo;
  if (store.forget(clearedUpTo)) {
    metrics.clear();
    clearDetail();
    notice('');
  }
  draw();
}

function onRequest(request) {
  if (store.add(request)) metrics.add(request);
  draw();
}

function wireFilter() {
  const apply = () => {
    const kind = document.querySelector('input[name=kind]:checked').value;
    store.setFilter({text: byId('search').value, kind, failed: byId('failed').checked});
    draw();
  };
  byId('search').addEventListener('input', apply);
  byId('search').addEventListener('keydown', (event) => {
    if (!['Enter', 'ArrowDown', 'Escape'].includes(event.key)) return;
    event.preventDefault();
    list.focus();
  });
  byId('failed').addEventListener('change', apply);
  for (const radio of document.querySelectorAll('input[name=kind]')) radio.addEventListener('change', apply);
}

function wireKeys() {
  const isTyping = (target) => target.matches('input:not([type=radio], [type=checkbox]), textarea');
  document.addEventListener('keydown', (event) => {
    if (event.ctrlKey || event.metaKey || event.altKey) return;
    if (isTyping(event.target)) return;
    const actions = {
      '/': () => byId('search').focus(), j: () => list.move(1), k: () => list.move(-1),
      p: () => byId('pause').click(), d: () => show('detail'), m: () => show('metrics'), a: () => show('answers')};
    if (!Object.hasOwn(actions, event.key)) return;
    actions[event.key]();
    event.preventDefault();
  });
}

byId('pause').addEventListener('click', () => {
  for (const request of store.setPaused(!store.paused)) metrics.add(request);
  byId('pause').setAttribute('aria-pressed', store.paused);
  draw();
});
byId('clear').addEventListener('click', async () => notice(await post('requests/clear')));
wireTheme();
wireViews(draw);
wireFilter();
wireKeys();
wireControls();
setInterval(() => {
  list.tick();
  if (currentView() === 'metrics' && !store.paused) metrics.draw();
}, 1000);
openFeed({
  request: onRequest,
  state: onState,
  gap: (count) => notice(`${countText(count, 'request')} came and went unseen.`)});
draw();
