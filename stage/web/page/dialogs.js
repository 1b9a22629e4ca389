// What opens over the view: all keys, the list of songs, the question for the passcode.

import { clickButton, make } from './elements.js';
import { KeyRows } from './operator_keys.js';

export class Dialogs {
  #elements;
  #model;
  #keys;
  #chosen = 0;
  onLoad = () => {};
  onLogin = () => {};

  constructor(elements, model, keys) {
    this.#elements = elements;
    this.#model = model;
    this.#keys = keys;
    this.#buildKeys();
    this.#buildPasscode();
    for (const name of ['keys', 'songs']) {
      elements[name].tabIndex = -1;
      // Esc is the operator's: what it does is decided where all keys are.
      elements[name].addEventListener('cancel', (event) => event.preventDefault());
      elements[name].addEventListener('click', (event) => {
        if (event.target === elements[name]) this.#leave();
      });
    }
  }

  #leave() {
    this.#keys.mode = 'show';
    this.follow();
  }

  /** Shows what the keys' mode says. */
  follow() {
    const { mode } = this.#keys;
    for (const name of ['keys', 'songs']) {
      const dialog = this.#elements[name];
      if (mode === name && !dialog.open) {
        dialog.show();
        // Not its first button: Enter is the show's while the keys are listed.
        dialog.focus();
      }
      if (mode !== name && dialog.open) dialog.close();
    }
  }

  toggleKeys() {
    this.#keys.mode = this.#keys.mode === 'keys' ? 'show' : 'keys';
    this.follow();
  }

  #buildKeys() {
    const rows = KeyRows.map(([key, meaning]) => make('tr', {}, make('th', { scope: 'row' }, key), make('td', {}, meaning)));
    this.#elements.keys.append(make('h2', { id: 'keys-title' }, 'Keys'),
      make('table', {}, make('tbody', {}, ...rows)),
      make('p', {}, 'The keys work meanwhile. What is typed into a field never presses anything; Esc leaves the field. Arrows and Enter belong to the views Perform and Score.'),
      clickButton({ onclick: () => this.#leave() }, 'Close'));
  }

  /** Opens the list of songs, or moves what is chosen in it. */
  chooseSong(step) {
    const { songs } = this.#model.show;
    if (songs.length === 0) return;
    const dialog = this.#elements.songs;
    const current = dialog.open ? this.#chosen : Math.max(songs.findIndex((song) => song.number === this.#model.state.song), 0);
    this.#chosen = Math.min(Math.max(current + step, 0), songs.length - 1);
    this.#keys.mode = 'songs';
    const list = make('ol', { class: 'songs' }, ...songs.map((song, index) => make('li', {},
      clickButton({ 'aria-current': index === this.#chosen ? 'true' : null, class: index === this.#chosen ? 'is-chosen' : '', onclick: () => {
        this.#leave();
        this.onLoad(song.number);
      } }, make('strong', {}, song.number), ` ${song.title}`))));
    dialog.replaceChildren(make('h2', { id: 'songs-title' }, 'Songs'), list, make('p', {}, 'Up and Down choose, Enter loads, Esc leaves.'), clickButton({ onclick: () => this.#leave() }, 'Close'));
    this.follow();
    list.children[this.#chosen]?.scrollIntoView({ block: 'nearest' });
  }

  /** The number of the song that is chosen; the list is closed. */
  takeChosen() {
    this.#leave();
    return this.#model.show.songs[this.#chosen]?.number ?? '';
  }

  #buildPasscode() {
    const dialog = this.#elements.passcode;
    const input = make('input', { type: 'password', id: 'passcode', autocomplete: 'current-password', maxlength: '200', required: '' });
    this.passcodeAnswer = make('p', { class: 'answer is-refusal', role: 'alert' });
    dialog.append(make('form', { onsubmit: (event) => {
      event.preventDefault();
      this.#login(input);
    } }, make('h2', { id: 'passcode-title' }, 'Passcode'), make('p', {}, 'This show asks for a passcode. It decides whether you watch, operate or edit.'),
    make('div', { class: 'field' }, make('label', { for: 'passcode' }, 'Passcode'), input), this.passcodeAnswer, make('div', { class: 'row' }, make('button', { type: 'submit', class: 'main-button' }, 'Enter'), clickButton({ onclick: () => dialog.close() }, 'Close'))));
  }

  askPasscode() {
    const dialog = this.#elements.passcode;
    if (dialog.open) return;
    dialog.showModal();
    dialog.querySelector('input').focus();
  }

  async #login(input) {
    try {
      const answer = await fetch('api/login', { method: 'POST', headers: { 'Content-Type': 'application/json' }, body: JSON.stringify({ passcode: input.value }) });
      const { sentence } = await answer.json();
      this.passcodeAnswer.textContent = answer.ok ? '' : sentence ?? 'The passcode was refused.';
      if (!answer.ok) return;
      input.value = '';
      this.#elements.passcode.close();
      this.onLogin();
    } catch {
      this.passcodeAnswer.textContent = 'The server does not answer.';
    }
  }
}
