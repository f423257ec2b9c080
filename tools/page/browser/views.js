// Which view is in front. A wide window shows the requests beside any other; a narrow one, one at a time.

import {byId} from './dom.js';

const wide = matchMedia('(min-width: 60rem)');
const tabs = [...document.querySelectorAll('[role=tab]')];
let onChange = () => {};

export const currentView = () => document.body.dataset.view;

export function show(view) {
  const front = wide.matches && view === 'requests' ? 'detail' : view;
  document.body.dataset.view = front;
  for (const tab of tabs) {
    const isFront = tab.dataset.view === front;
    tab.setAttribute('aria-selected', isFront);
    tab.setAttribute('tabindex', isFront ? 0 : -1);
  }
  onChange(front);
}

/** `changed(view)` for each view that comes to the front. */
export function wireViews(changed) {
  onChange = changed;
  for (const tab of tabs) {
    tab.addEventListener('click', () => show(tab.dataset.view));
    tab.addEventListener('keydown', (event) => {
      const step = {ArrowRight: 1, ArrowLeft: -1}[event.key];
      if (step === undefined) return;
      const shown = tabs.filter((each) => each.offsetParent !== null);
      const next = shown[(shown.indexOf(tab) + step + shown.length) % shown.length];
      show(next.dataset.view);
      next.focus();
    });
  }
  wide.addEventListener('change', () => show(currentView() === 'detail' && !wide.matches ? 'requests' : currentView()));
  show(byId('requests').id);
}
