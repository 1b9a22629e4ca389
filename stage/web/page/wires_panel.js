// What the show is played on, its output groups and its OSC targets: kept in settings.json, for the next time that it is opened.

import { clickButton, make, setText } from './elements.js';

const text = (name, label, more = {}) => ({ name, label, read: (input) => input.value.trim(), write: (value) => value ?? '', ...more });
const choice = (name, label, values) => text(name, label, { values, write: (value) => value ?? values[0] });
const number = (name, label, whenEmpty) => text(name, label, {
  type: 'number', read: (input) => (input.value === '' ? whenEmpty : Number(input.value)), write: (value) => (value === whenEmpty || value === undefined ? '' : String(value)),
});
const words = (input) => input.value.split(',').map((word) => word.trim()).filter((word) => word !== '');
const list = (name, label, read) => text(name, label, { read: (input) => words(input).map(read), write: (value) => (value ?? []).join(', ') });
const flag = (name, label) => ({ name, label, type: 'checkbox', read: (input) => input.checked, write: (value) => Boolean(value) });

const isMidi = (row) => row.transport === 'midi';
const Lists = [
  { key: 'outputs', press: 'outputs', title: 'Outputs', one: 'output', add: 'Add an output', fields: [
    text('name', 'Output'), choice('backend', 'Played by', ['auto', 'jack', 'rtaudio', 'none']), text('device', 'Device or ports'),
  ] },
  { key: 'groups', press: 'groups', title: 'Groups', one: 'group', add: 'Add a group', fields: [
    text('name', 'Group'), list('parts', 'Parts, with commas', (word) => word), list('channels', 'MIDI channels, with commas', Number), choice('output', 'Leaves by', ['main', 'own']),
    number('trimDb', 'Trim in dB', 0), number('reverbDb', 'Into the reverb, dB', 'off'), text('midiPort', 'MIDI port'), text('soundfont', 'SoundFont of its own'),
  ] },
  { key: 'oscTargets', press: 'osc-targets', title: 'OSC targets', one: 'target', add: 'Add a target', fields: [
    text('name', 'Target'), choice('transport', 'By', ['udp', 'tcp', 'midi']), text('host', 'Address', { read: (input) => input.value.trim() || undefined, belongs: (row) => !isMidi(row) }), { ...number('port', 'Port', ''), belongs: (row) => !isMidi(row) },
    { ...flag('timeTags', 'With time tags'), belongs: (row) => !isMidi(row) }, text('midiPort', 'MIDI port', { belongs: isMidi }),
  ] },
];

/** One list: its rows as fields, which may be added and removed until they are kept. */
class ListForm {
  #rows = [];
  #made = 0;
  #list;
  /** Somebody is about to change it. */
  isTouched = false;

  /** `keep(form, words)` asks for it to be kept. */
  constructor(description, keep) {
    this.#list = description;
    this.rows = make('div', { class: 'wires' });
    this.element = make('form', { 'aria-label': description.title, autocomplete: 'off', oninput: () => { this.isTouched = true; }, onsubmit: (event) => {
      event.preventDefault();
      keep(this, `${description.press} ${JSON.stringify(this.#read())}`);
    } }, make('h4', {}, description.title), this.rows,
    make('div', { class: 'row' }, clickButton({ onclick: () => this.#add() }, description.add), make('button', { type: 'submit' }, `Keep the ${description.one}s`)));
  }

  #makeField(field, value, number) {
    const id = `${this.#list.press}-${number}-${field.name}`;
    const input = field.values === undefined
      ? make('input', { id, type: field.type ?? 'text', step: 'any', maxlength: '1000', autocapitalize: 'off', spellcheck: 'false' })
      : make('select', { id }, ...field.values.map((each) => make('option', { value: each }, each)));
    if (field.type === 'checkbox') input.checked = field.write(value);
    else input.value = field.write(value);
    return { field, input, element: make('div', { class: 'field' }, make('label', { for: id }, field.label), input) };
  }

  /** What is not a field stays as it is, a group's volume among it. */
  #addRow(kept) {
    const number = ++this.#made;
    const fields = this.#list.fields.map((field) => this.#makeField(field, kept[field.name], number));
    const row = { kept, fields };
    row.element = make('fieldset', { class: 'fields' }, make('legend', {}, `${this.#list.one} ${kept.name ?? ''}`.trim()), ...fields.map(({ element }) => element),
      clickButton({ 'aria-label': `Remove ${this.#list.one} ${kept.name ?? ''}`.trim(), onclick: () => this.#remove(row) }, 'Remove'));
    row.element.addEventListener('input', () => this.#showWhatBelongs(row));
    this.#showWhatBelongs(row);
    this.#rows.push(row);
    this.rows.append(row.element);
    return row;
  }

  #showWhatBelongs(row) {
    const values = Object.fromEntries(row.fields.map(({ field, input }) => [field.name, input.value]));
    for (const { field, element } of row.fields) element.hidden = field.belongs !== undefined && !field.belongs(values);
  }

  #add() {
    this.isTouched = true;
    this.#addRow({}).fields[0].input.focus();
  }

  #remove(row) {
    this.isTouched = true;
    this.#rows.splice(this.#rows.indexOf(row), 1);
    row.element.remove();
  }

  #read() {
    return this.#rows.map(({ kept, fields }) => {
      const row = { ...kept };
      for (const { field, input, element } of fields) {
        if (element.hidden) delete row[field.name];
        else row[field.name] = field.read(input);
      }
      return row;
    });
  }

  show(rows) {
    this.isTouched = false;
    this.#rows = [];
    this.rows.replaceChildren();
    for (const row of rows) this.#addRow(row);
  }
}

export class WiresPanel {
  #press;
  #forms;
  #isAsking = false;
  #isAsked = false;
  #enabled = null;

  /** `press(line)` sends a press and promises its record. */
  constructor(press) {
    this.#press = press;
    this.#forms = Lists.map((description) => [description.key, new ListForm(description, (form, words) => this.#keep(form, words))]);
    this.answer = make('p', { class: 'answer', role: 'status' });
    this.element = make('section', { class: 'panel wires-panel', 'aria-label': 'Outputs, groups and targets' }, make('h3', {}, 'Outputs, groups and targets'),
      make('p', { class: 'help' }, 'They hold from the next time that the show is opened.'), ...this.#forms.map(([, form]) => form.element), this.answer);
  }

  async #keep(form, words) {
    const record = await this.#press(`set ${words}`);
    const isKept = record.outcome === 'taken';
    setText(this.answer, isKept ? 'Kept for the next time that the show is opened.' : record.sentence ?? '');
    if (!isKept) return;
    form.isTouched = false;
    this.renew();
  }

  async #ask() {
    this.#isAsking = true;
    try {
      const answer = await fetch('api/settings', { cache: 'no-store' });
      const settings = await answer.json();
      if (!answer.ok) setText(this.answer, settings.sentence ?? '');
      // What somebody is about to change stays.
      for (const [key, form] of this.#forms) if (answer.ok && !form.isTouched) form.show(settings[key]);
      this.#isAsked = true;
      this.#enabled = null;
    } catch {
      // With the connection they come.
    }
    this.#isAsking = false;
  }

  /** The view is opened, or the show may have changed. */
  renew() {
    this.#isAsked = false;
  }

  /** As often as the view likes while it is seen. */
  show(isEnabled) {
    if (!this.#isAsked && !this.#isAsking) this.#ask();
    if (isEnabled === this.#enabled) return;
    this.#enabled = isEnabled;
    for (const control of this.element.querySelectorAll('button, input, select')) control.disabled = !isEnabled;
  }
}
