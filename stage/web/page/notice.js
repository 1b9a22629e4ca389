// The line above the buttons: what was refused and why, or the place that is being typed; and what a screen reader is told.

import { make, setText } from './elements.js';
import { describeRecord, withoutVerb } from './press_list.js';

const ShownMs = 8000;
const LongestPress = 60;
const Statuses = { Vamp: 'Vamp', Repeat: 'Repeat', Skip: 'Fermata', Caesura: 'Caesura ahead', EndOfSong: 'End of song ahead', AdvanceAttacca: 'Segue ahead' };

/** A press may carry a whole list. */
function shorten(press) {
  return press.length <= LongestPress ? press : `${press.slice(0, LongestPress)}...`;
}

export class Notice {
  #element;
  #announcer;
  #keys;
  #sentence = '';
  #isRefusal = false;
  #timer = null;
  #lamp;
  #status = '';

  constructor(element, announcer, keys) {
    this.#element = element;
    this.#announcer = announcer;
    this.#keys = keys;
  }

  /** A refusal stays until the operator presses on; what is merely worth a sentence waits in the list of messages. */
  note(sentence) {
    if (!this.#isRefusal) this.tell(sentence, false);
  }

  tell(sentence, isRefusal) {
    this.#sentence = sentence;
    this.#isRefusal = isRefusal;
    clearTimeout(this.#timer);
    this.#timer = setTimeout(() => this.tell('', false), ShownMs);
    this.#show();
  }

  refuse(record, line) {
    const outcome = record.outcome === 'refused' ? 'REFUSED' : 'FAILED';
    this.tell(`${outcome} ${shorten(record.press ?? line)}: ${withoutVerb(record)}`, true);
  }

  /** The operator has pressed on. */
  taken() {
    if (this.#isRefusal) this.tell('', false);
  }

  /** Another door's refusal is worth a line, too. */
  noteRecord(record) {
    if (record.id === undefined && record.outcome !== 'taken') this.tell(describeRecord(record), true);
  }

  showEntry() {
    this.#show();
  }

  #show() {
    const isPlace = this.#keys.mode === 'place';
    this.#element.classList.toggle('is-entry', isPlace);
    this.#element.classList.toggle('is-refusal', !isPlace && this.#isRefusal);
    if (!isPlace) return setText(this.#element, this.#sentence);
    this.#element.replaceChildren(make('span', {}, `Go to bar: ${this.#keys.entry}`), make('span', { class: 'cursor', 'aria-hidden': 'true' }, '_'), make('small', {}, ' Enter goes there, Esc leaves'));
  }

  /** The lamp and a status are read out when they come, not with each of their counts. */
  announce(state) {
    const words = [];
    if (this.#lamp !== undefined && state.vampLamp !== this.#lamp) words.push(state.vampLamp ? 'Lamp on' : 'Lamp off');
    this.#lamp = state.vampLamp;
    if (state.status !== this.#status && state.status) words.push(Statuses[state.status] ?? state.status);
    this.#status = state.status;
    if (words.length > 0) this.#announcer.textContent = words.join('. ');
  }
}
