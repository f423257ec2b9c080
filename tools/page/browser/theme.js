// Light, dark, or as the system has it.

import {byId, element} from './dom.js';

const kThemes = ['auto', 'light', 'dark'];

function remembered() {
  try {
    return localStorage.getItem('theme') ?? 'auto';
  } catch {
    return 'auto';
  }
}

function apply(theme) {
  document.documentElement.dataset.theme = theme;
  byId('theme').replaceChildren(element('span', {}, 'Theme: '), theme);
  byId('theme').setAttribute('aria-label', `Theme: ${theme}`);
  try {
    localStorage.setItem('theme', theme);
  } catch {
    // A browser that keeps nothing asks again next time.
  }
}

export function wireTheme() {
  apply(remembered());
  byId('theme').addEventListener('click', () => {
    const now = kThemes.indexOf(document.documentElement.dataset.theme);
    apply(kThemes[(now + 1) % kThemes.length]);
  });
}
