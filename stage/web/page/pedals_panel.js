// The MIDI input that pedals are heard from, and what gives each command: taught by pressing it.

import { clickButton, make, setClass, setHidden, setText } from './elements.js';

const None = '';
/** While the panel is seen, so often it is asked which inputs there are. */
const AskEveryMs = 3000;

export class PedalsPanel {
  #press;
  #rows = new Map();
  #inputs = [];
  #chosen = null;
  #nextAsked = 0;
  #enabled = null;

  /** `press(line)` sends a press. */
  constructor(press) {
    this.#press = press;
    this.input = make('select', { id: 'set-midi-input', onchange: () => {
      press(`set midi-input ${this.input.value}`.trim());
      this.input.blur();
    } });
    this.list = make('div', { class: 'pedals' });
    this.problem = make('p', { class: 'problem', role: 'status' });
    this.element = make('section', { class: 'panel settings', 'aria-label': 'Pedals' }, make('h3', {}, 'Pedals'),
      make('div', { class: 'row' }, make('label', { for: this.input.id }, 'MIDI in'), this.input), this.list, this.problem);
  }

  #makeRow(name) {
    const message = make('span', { class: 'pedal-message' });
    const learn = clickButton({ 'aria-pressed': 'false', 'aria-label': `Learn ${name}`, onclick: () => this.#press(learn.ariaPressed === 'true' ? 'set midi-learn' : `set midi-learn ${name}`) }, 'Learn');
    const forget = clickButton({ 'aria-label': `Forget ${name}`, onclick: () => this.#press(`set midi-forget ${name}`) }, 'Forget');
    return { message, learn, forget, element: make('div', { class: 'row', 'data-command': name }, make('span', { class: 'row-name' }, name), message, learn, forget) };
  }

  async #askInputs() {
    try {
      const answer = await fetch('api/midi-inputs', { cache: 'no-store' });
      if (answer.ok) this.#inputs = (await answer.json()).inputs;
    } catch {
      // With the connection they come again.
    }
  }

  /** One that is chosen and not there is listed all the same. */
  #showInputs(chosen) {
    const names = [None, ...new Set([...(chosen === None ? [] : [chosen]), ...this.#inputs])];
    const texts = names.map((name) => (name === None ? 'none' : this.#inputs.includes(name) ? name : `${name} (not there)`));
    const isOpen = this.input === document.activeElement;
    if (!isOpen && texts.join('\n') !== [...this.input.options].map(({ text }) => text).join('\n')) {
      this.input.replaceChildren(...names.map((name, index) => make('option', { value: name }, texts[index])));
      this.#chosen = null;
    }
    if (isOpen || this.#chosen === chosen) return;
    this.#chosen = chosen;
    this.input.value = chosen;
  }

  /** As often as the view likes while it is seen. */
  show({ pedals, midiInput }, isEnabled) {
    if (pedals === undefined) return;
    if (performance.now() >= this.#nextAsked) {
      this.#nextAsked = performance.now() + AskEveryMs;
      this.#askInputs();
    }
    this.#showInputs(midiInput ?? None);
    const names = Object.keys(pedals.commands);
    if (names.join('\n') !== [...this.#rows.keys()].join('\n')) {
      this.#rows = new Map(names.map((name) => [name, this.#makeRow(name)]));
      this.list.replaceChildren(...[...this.#rows.values()].map(({ element }) => element));
      this.#enabled = null;
    }
    for (const [name, { message, learn, forget }] of this.#rows) {
      const isLearning = pedals.learning === name;
      setText(message, isLearning ? 'press the pedal now' : pedals.commands[name] || 'nothing');
      setText(learn, isLearning ? 'Cancel' : 'Learn');
      if (learn.ariaPressed !== String(isLearning)) {
        learn.ariaPressed = String(isLearning);
        learn.ariaLabel = `${isLearning ? 'Cancel learning' : 'Learn'} ${name}`;
      }
      setClass(learn, 'is-on', isLearning);
      setHidden(forget, pedals.commands[name] === '' || isLearning);
    }
    setText(this.problem, pedals.problem);
    if (isEnabled === this.#enabled) return;
    this.#enabled = isEnabled;
    for (const control of this.element.querySelectorAll('button, select')) control.disabled = !isEnabled;
  }
}
