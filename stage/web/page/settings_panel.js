// What can be set up while the show is open, and is kept for the next time: time code and the press guard.

import { clickButton, make, setClass } from './elements.js';

const FrameRates = ['24', '25', '29.97 drop', '30'];
const Jumps = { locate: 'jumps, too', runOn: 'runs on' };

/** Shows the value unless somebody is about to change it. */
function follow(control, value) {
  if (control !== document.activeElement && control.value !== value) control.value = value;
}

export class SettingsPanel {
  #press;
  #enabled = null;

  /** `press(line)` sends a press. */
  constructor(press) {
    this.#press = press;
    this.active = clickButton({ 'aria-pressed': 'false', onclick: () => press(`set time-code ${this.active.ariaPressed === 'true' ? 'off' : 'on'}`) }, 'Send time code');
    this.rate = this.#choice('time-code-rate', FrameRates.map((rate) => [rate, `${rate} frames a second`]));
    this.jumps = this.#choice('time-code-jumps', Object.entries(Jumps));
    this.output = make('input', { type: 'text', id: 'set-time-code-output', maxlength: '200', autocomplete: 'off', autocapitalize: 'off', spellcheck: 'false' });
    this.guard = make('input', { type: 'number', id: 'set-press-guard', min: '0', max: '10000', step: '10', required: '' });
    this.element = make('section', { class: 'panel settings', 'aria-label': 'Time code and press guard' }, make('h3', {}, 'Time code and press guard'),
      make('div', { class: 'row' }, this.active),
      make('div', { class: 'row' }, make('label', { for: this.rate.id }, 'Frame rate'), this.rate),
      this.#form('To the port', this.output), make('div', { class: 'row' }, make('label', { for: this.jumps.id }, 'At a jump, time code'), this.jumps),
      this.#form('Press guard in ms', this.guard));
  }

  #choice(name, values) {
    const select = make('select', { id: `set-${name}`, onchange: () => {
      this.#press(`set ${name} ${select.value}`);
      select.blur();
    } }, ...values.map(([value, text]) => make('option', { value }, text)));
    return select;
  }

  /** What is typed counts when it is entered; a field that is left without that shows again what is. */
  #form(label, input) {
    return make('form', { class: 'row', onsubmit: (event) => {
      event.preventDefault();
      this.#press(`${input.id.replace('-', ' ')} ${input.value.trim()}`);
      input.blur();
    } }, make('label', { for: input.id }, label), input, make('button', { type: 'submit', 'aria-label': `Set: ${label}` }, 'Set'));
  }

  show({ timeCode, pressGuardMs }, isEnabled) {
    if (timeCode === undefined) return;
    const isActive = String(timeCode.active);
    if (this.active.ariaPressed !== isActive) this.active.ariaPressed = isActive;
    setClass(this.active, 'is-on', timeCode.active);
    follow(this.rate, timeCode.frameRate);
    follow(this.output, timeCode.output);
    follow(this.jumps, timeCode.onJump);
    follow(this.guard, String(pressGuardMs));
    if (isEnabled === this.#enabled) return;
    this.#enabled = isEnabled;
    for (const control of this.element.querySelectorAll('button, input, select')) control.disabled = !isEnabled;
  }
}
