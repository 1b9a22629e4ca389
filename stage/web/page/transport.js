// The buttons that every view has below it. They act when they are touched, and GO says what it will do.

import { make, pressButton, setText } from './elements.js';

function describeGo(state) {
  switch (state.motion) {
    case 'stopped': return 'start';
    case 'paused': return 'continue';
    case 'holding': return 'release the fermata';
    case 'no song': case undefined: return '';
    default: break;
  }
  const loop = (state.loops ?? []).find((each) => each.kind === 'vamp' && !each.left);
  if (loop !== undefined) return 'leave the vamp';
  return state.vampLamp ? 'leave' : 'leave what comes next';
}

const Buttons = [
  { line: 'stop', name: 'Stop', sign: '■', class: 'stop' },
  { line: 'panic', name: 'Panic: silence at once', text: 'Panic', sign: '✕', class: 'panic' },
  { line: 'play', name: 'Play', sign: '▶' },
  { line: 'pause', name: 'Pause', sign: '❚❚' },
  { line: 'previous-marker', name: 'Previous marker', text: 'Marker', sign: '◀' },
  { line: 'next-marker', name: 'Next marker', text: 'Marker', sign: '▶' },
  { line: 'previous', name: 'Previous song', text: 'Song', sign: '▲' },
  { line: 'next', name: 'Next song', text: 'Song', sign: '▼' },
];

export class Transport {
  #buttons = [];

  constructor(holder, press, chooseSong) {
    this.goMeaning = make('small', {});
    this.go = pressButton({ class: 'go', id: 'go', onpress: () => press('go') }, make('strong', {}, 'GO'), ' ', this.goMeaning);
    this.#buttons = Buttons.map(({ line, name, text, sign, class: kind }) =>
      pressButton({ class: kind ?? '', 'data-press': line, 'aria-label': name, onpress: () => press(line) }, make('span', { 'aria-hidden': 'true' }, sign), make('small', { 'aria-hidden': 'true' }, text ?? name)));
    this.songs = pressButton({ 'aria-label': 'Songs: choose one', 'data-press': 'songs', onpress: chooseSong }, make('span', { 'aria-hidden': 'true' }, '≡'), make('small', { 'aria-hidden': 'true' }, 'Songs'));
    holder.append(this.go, ...this.#buttons, this.songs);
  }

  show(state, isEnabled) {
    setText(this.goMeaning, describeGo(state));
    for (const button of [this.go, ...this.#buttons, this.songs]) button.disabled = !isEnabled;
  }
}
