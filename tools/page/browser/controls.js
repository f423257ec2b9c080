// The collector's next answers and its configuration.

import {base, byId, element, post} from './dom.js';

const words = {drop: 'drop', stall: 'stall'};

async function order(answer) {
  byId('outcome').textContent = await post('answers', JSON.stringify({answers: [answer]}));
}

async function loadConfig() {
  const response = await fetch(new URL('config', base));
  if (response.ok) byId('json').value = await response.text();
}

/** Shows what the server says of itself. */
export function showState(state) {
  const chips = state.answers.map((answer) => element('li', {'data-answer': answer}, words[answer] ?? answer));
  byId('pending').replaceChildren(...chips, element('li', {class: 'rest'}, chips.length > 0 ? 'then 200' : '200'));
  byId('tab-answers').dataset.count = state.answers.length || '';
  byId('forget').disabled = state.answers.length === 0;
  byId('release').disabled = state.stalled === 0;
  byId('release').textContent = state.stalled > 0
    ? `Let ${state.stalled} stalled go` : 'Let stalled requests go';
  byId('source').textContent = state.config === 'page'
    ? 'The collector answers with the text from this page; the file is as it was.'
    : 'The collector answers with its file, or an empty object without one.';
  byId('restore').disabled = state.config !== 'page';
}

export function wireControls() {
  for (const button of document.querySelectorAll('button[data-answer]')) {
    button.addEventListener('click', () => order(button.dataset.answer));
  }
  byId('limit').addEventListener('click', () => order(`429:X-Retry-After-Millis=${Number(byId('delay').value)}`));
  byId('order').addEventListener('submit', (event) => {
    event.preventDefault();
    order(byId('other').value.trim());
  });
  byId('forget').addEventListener('click', () => post('answers/clear'));
  byId('release').addEventListener('click', () => post('stalls/release'));
  byId('config').addEventListener('submit', async (event) => {
    event.preventDefault();
    byId('problem').textContent = await post('config', byId('json').value) || 'Answered from now on.';
  });
  byId('restore').addEventListener('click', async () => {
    byId('problem').textContent = await post('config/restore');
    await loadConfig();
  });
  loadConfig();
}
