// The form by which an edit is added or changed: the fields of its kind.

import { clickButton, make } from './elements.js';
import { addLine, changeLine, EditKinds, PlaceLabels } from './edit_kinds.js';

export class EditForm {
  #send;
  #inputs = new Map();
  #change = null;
  #song = null;
  #span = null;

  /** `send(line)` sends an edit and promises its record. */
  constructor(send) {
    this.#send = send;
    this.kind = make('select', { id: 'edit-kind', onchange: () => this.#build() }, ...EditKinds.map((kind) => make('option', { value: kind.kind }, kind.label)));
    this.kindRow = make('div', { class: 'field' }, make('label', { for: 'edit-kind' }, 'Kind'), this.kind);
    this.help = make('p', { class: 'help' });
    this.fields = make('div', { class: 'fields' });
    this.submit = make('button', { type: 'submit', class: 'main-button' }, 'Add');
    this.leave = clickButton({ onclick: () => this.add() }, 'Leave as it is');
    this.answer = make('p', { class: 'answer', role: 'status' });
    this.title = make('h3', {}, 'Add an edit');
    this.element = make('form', { class: 'edit-form', autocomplete: 'off', onsubmit: (event) => {
      event.preventDefault();
      this.#submit();
    } }, this.title, this.kindRow, this.help, this.fields, make('div', { class: 'row' }, this.submit, this.leave), this.answer);
    this.add();
  }

  get #kind() {
    return EditKinds.find((kind) => kind.kind === this.kind.value);
  }

  /** The form is for a new edit. */
  add() {
    this.#change = null;
    this.title.textContent = 'Add an edit';
    this.submit.textContent = 'Add';
    this.kind.disabled = false;
    this.leave.hidden = true;
    this.#build();
  }

  /** The form is for the edit with that id, whose values are shown. */
  change(id, kind, values) {
    this.#change = { id, shown: values };
    this.title.textContent = `Change edit ${id}`;
    this.submit.textContent = 'Change';
    this.kind.value = kind.kind;
    this.kind.disabled = true;
    this.leave.hidden = false;
    this.#build(values);
    this.answer.textContent = '';
    this.#inputs.values().next().value?.focus();
  }

  /** The bars that were chosen on the picture. */
  choose(span) {
    this.#span = span;
    this.#fillPlaces();
  }

  #fillPlaces() {
    if (this.#span === null) return;
    const { first, last } = this.#span;
    const set = (name, value) => { if (this.#inputs.has(name)) this.#inputs.get(name).value = value; };
    set('from', first.label);
    set('at', first.label);
    if (!this.#kind.optionalPlaces?.includes('to') || first.tick !== last.tick) set('to', last.label);
  }

  #build(values = {}) {
    const kind = this.#kind;
    this.#inputs.clear();
    this.help.textContent = `${kind.label}: ${kind.help}.`;
    const places = kind.places.map((name) => ({ name, label: PlaceLabels[name], type: 'place', isRequired: !kind.optionalPlaces?.includes(name), hint: name === 'to' && kind.optionalPlaces ? 'rings out' : '17 or 17:3' }));
    this.fields.replaceChildren(...[...places, ...kind.fields].map((field) => this.#makeField(field, values[field.name])));
    if (this.#change === null) this.#fillPlaces();
  }

  #makeField(field, value) {
    const isNumber = field.type === 'whole' || field.type === 'number';
    const start = this.#change === null ? field.start ?? '' : '';
    const hint = this.#change !== null && field.type === 'list' ? 'as they are' : field.hint;
    // Whether a value can be is for the grammar to say, in a sentence; the field only helps to type it.
    const input = make('input', { type: 'text', id: `edit-${field.name}`, name: field.name, inputmode: isNumber && (field.min ?? 0) >= 0 ? 'decimal' : 'text', placeholder: hint ?? '', maxlength: '1000', spellcheck: 'false', autocapitalize: 'off' });
    input.required = Boolean(field.isRequired);
    input.value = value ?? start;
    this.#inputs.set(field.name, input);
    return make('div', { class: 'field' }, make('label', { for: input.id }, field.label), input);
  }

  async #submit() {
    const values = Object.fromEntries([...this.#inputs].map(([name, input]) => [name, input.value]));
    const line = this.#change === null ? addLine(this.#kind, values) : changeLine(this.#kind, this.#change.id, values, this.#change.shown);
    if (line === '') {
      this.answer.textContent = 'Nothing is another than before.';
      return;
    }
    this.submit.disabled = true;
    const record = await this.#send(line);
    this.submit.disabled = !this.isEnabled;
    const isTaken = record.outcome === 'taken';
    this.answer.className = isTaken ? 'answer' : 'answer is-refusal';
    this.answer.textContent = isTaken ? `Done: ${line}.` : record.sentence;
    if (isTaken && this.#change !== null) {
      const told = this.answer.textContent;
      this.add();
      this.answer.textContent = told;
    }
  }

  isEnabled = true;

  setEnabled(isEnabled) {
    this.isEnabled = isEnabled;
    this.leave.disabled = !isEnabled;
    this.submit.disabled = !isEnabled;
    for (const input of this.#inputs.values()) input.disabled = !isEnabled;
    this.kind.disabled = !isEnabled || this.#change !== null;
  }
}
