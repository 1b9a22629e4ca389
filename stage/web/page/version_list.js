// The versions of the edits: what changed since each, and the way back.

import { clickButton, make, setText } from './elements.js';

const Shown = 12;

export class VersionList {
  #model;
  #press;
  #isLoading = false;
  #isKnown = false;
  #isEnabled = true;

  constructor(model, press) {
    this.#model = model;
    this.#press = press;
    this.list = make('ul', { class: 'versions' });
    this.difference = make('div', { class: 'difference', 'aria-live': 'polite' });
    this.element = make('section', { class: 'version-list', 'aria-label': 'Versions' }, make('h3', {}, 'Versions'), this.list, this.difference);
  }

  /** What is shown is not true any more. */
  forget() {
    this.#isKnown = false;
  }

  async show() {
    if (this.#isKnown || this.#isLoading) return;
    this.#isLoading = true;
    this.#isKnown = true;
    try {
      const answer = await fetch('api/versions', { cache: 'no-store' });
      const { versions } = await answer.json();
      this.list.replaceChildren(...versions.slice(-Shown).reverse().map((version) => this.#makeRow(version)));
    } catch {
      this.list.replaceChildren(make('li', { class: 'none' }, 'The versions cannot be read now.'));
    }
    this.#isLoading = false;
    this.setEnabled(this.#isEnabled);
  }

  #makeRow(version) {
    const name = `${version.version}${version.inUse ? ', in use' : ''}`;
    return make('li', {},
      make('span', {}, make('strong', {}, version.version), version.inUse ? ' in use' : '', ` · ${version.edits} edit${version.edits === 1 ? '' : 's'}`),
      clickButton({ 'aria-label': `Changes since version ${name}`, onclick: () => this.#compare(version.version) }, 'Changes since'),
      clickButton({ class: 'rollback', 'aria-label': `Go back to version ${name}`, onclick: () => this.#press(`rollback ${version.version}`) }, 'Go back to'));
  }

  async #compare(version) {
    try {
      const answer = await fetch(`api/versions/${encodeURIComponent(version)}/to/now`, { cache: 'no-store' });
      const { changes, sentence } = await answer.json();
      if (sentence !== undefined) return setText(this.difference, sentence);
      if (changes.length === 0) return setText(this.difference, `Nothing has changed since ${version}.`);
      this.difference.replaceChildren(make('p', {}, `Since ${version}:`), make('ul', {}, ...changes.map((change) => make('li', {}, change.song && !change.text.startsWith('song') ? `song ${change.song}: ${change.text}` : change.text))));
    } catch {
      setText(this.difference, 'The difference cannot be read now.');
    }
  }

  setEnabled(isEnabled) {
    this.#isEnabled = isEnabled;
    for (const button of this.list.querySelectorAll('.rollback')) button.disabled = !isEnabled;
  }
}
