// The last presses through all doors, and what was refused and why; and the show's messages.

import { make } from './elements.js';

const Shown = 8;

function timeOf(moment) {
  return moment.toTimeString().slice(0, 8);
}

/** "go (MIDI port Foot pedal)", and why not. */
export function describeRecord(record) {
  const door = record.id !== undefined ? '' : ` (${[record.door, record.source].filter(Boolean).join(' ')})`;
  const what = `${record.press}${door}`;
  if (record.outcome === 'taken') return what;
  return `${record.outcome === 'refused' ? 'REFUSED' : 'FAILED'} ${what}: ${withoutVerb(record)}`;
}

/** The desk's sentences begin with the verb, which is told already. */
export function withoutVerb(record) {
  const opening = `"${record.verb}" is refused: `;
  return record.sentence?.startsWith(opening) ? record.sentence.slice(opening.length) : record.sentence ?? '';
}

export class PressList {
  #shown = '';

  constructor() {
    this.presses = make('ol', {});
    this.messages = make('ol', {});
    this.element = make('div', { class: 'happenings' },
      make('section', { 'aria-label': 'Pressed' }, make('h3', {}, 'Pressed'), this.presses),
      make('section', { 'aria-label': 'Messages' }, make('h3', {}, 'Messages'), this.messages));
  }

  show(model) {
    const key = `${model.presses.length} ${model.presses[0]?.moment.getTime()} ${model.messages.length} ${model.messages[0]?.moment.getTime()}`;
    if (key === this.#shown) return;
    this.#shown = key;
    this.presses.replaceChildren(...model.presses.slice(0, Shown).map((record) =>
      make('li', { class: record.outcome }, make('time', {}, timeOf(record.moment)), ' ', describeRecord(record))));
    this.messages.replaceChildren(...model.messages.slice(0, Shown).map((message) =>
      make('li', {}, make('time', {}, timeOf(message.moment)), ' ', message.sentence)));
    if (model.messages.length === 0) this.messages.append(make('li', { class: 'none' }, 'None'));
    if (model.presses.length === 0) this.presses.append(make('li', { class: 'none' }, 'Nothing yet'));
  }
}
