// The change log of each song as a list, and what can be done to it.

import { clickButton, make, setHidden, setText } from './elements.js';
import { EditForm } from './edit_form.js';
import { findKind, valuesOf } from './edit_kinds.js';
import { FlowPicture } from './flow_picture.js';
import { VersionList } from './version_list.js';

const Follow = { normal: 'stops at its end', attacca: 'attacca: the next song follows at once', skip: 'is passed over' };

export class EditView {
  #model;
  #request;
  #number = '';
  #follows = true;
  #isStale = true;
  #song = null;
  #choices = '';
  #wasEnabled = null;

  /** `request(message)` sends a press or an edit and promises its record. */
  constructor(model, request) {
    this.#model = model;
    this.#request = request;
    this.song = make('select', { id: 'edit-song', onchange: () => {
      this.#follows = this.song.value === model.state.song;
      this.#choose(this.song.value);
      this.song.blur();
    } });
    this.form = new EditForm((line) => this.#edit(line));
    this.versions = new VersionList(model, (line) => this.#press(line));
    this.refusal = make('p', { class: 'locked', id: 'edit-locked' });
    this.state = make('p', { class: 'version-state', id: 'version-state' });
    this.answer = make('p', { class: 'answer', role: 'status', id: 'edit-answer' });
    const act = (line, name) => clickButton({ 'data-press': line, onclick: () => this.#press(line) }, name);
    this.tools = [act('undo', 'Undo'), act('redo', 'Redo'), act('save', 'Save')];
    this.follow = make('select', { id: 'edit-follow', onchange: () => {
      this.#edit(`attacca ${this.follow.value}`, this.answer);
      this.follow.blur();
    } }, ...Object.entries(Follow).map(([value, text]) => make('option', { value }, text)));
    const holder = make('div', { class: 'picture' });
    this.picture = new FlowPicture(holder, { onSpan: (span) => {
      this.picture.showSelection(span);
      this.form.choose(span);
    } });
    this.rows = make('tbody', {});
    this.list = make('table', { class: 'edits' }, make('caption', { class: 'only-read' }, 'Edits of the song'),
      make('thead', {}, make('tr', {}, ...['No.', 'Kind', 'Place', 'Value'].map((name) => make('th', { scope: 'col' }, name)), make('td', {}))), this.rows);
    this.none = make('p', { class: 'none' }, 'This song has no edits.');
    this.warnings = make('ul', { class: 'warnings', 'aria-label': 'Warnings' });
    this.element = make('section', { class: 'edit', 'aria-label': 'Edit' },
      make('div', { class: 'edit-head' }, make('h2', {}, 'Edits'), make('div', { class: 'field' }, make('label', { for: 'edit-song' }, 'Song'), this.song),
        make('div', { class: 'row' }, ...this.tools), this.state),
      this.refusal, this.answer,
      holder, this.warnings,
      make('div', { class: 'edit-columns' },
        make('div', {}, make('h3', {}, 'Change log'), this.list, this.none, make('div', { class: 'field' }, make('label', { for: 'edit-follow' }, 'After it, the song'), this.follow)),
        make('div', {}, this.form.element, this.versions.element)));
  }

  note(message) {
    this.#isStale = true;
    if (['hello', 'edits'].includes(message?.type)) this.versions.forget();
  }

  #choose(number) {
    this.#number = number;
    this.picture.showSelection(null);
    this.form.choose(null);
    this.form.add();
    setText(this.answer, '');
    this.#isStale = true;
  }

  async #edit(line, answer) {
    const record = await this.#request({ type: 'edit', line, song: this.#number });
    if (answer) this.#tell(record);
    return record;
  }

  async #press(line) {
    const record = await this.#request({ type: 'press', line });
    this.#tell(record, line);
    return record;
  }

  #tell(record, line) {
    const isTaken = record.outcome === 'taken';
    this.answer.className = isTaken ? 'answer' : 'answer is-refusal';
    setText(this.answer, isTaken ? `Done: ${line ?? record.press}.` : record.sentence);
  }

  showFrame() {
    if (this.#number !== '' && this.#number === this.#model.playhead?.song) this.picture.showTick(this.#model.findTick());
    if (!this.#isStale) return;
    this.#isStale = false;
    this.#showSongs();
    const song = this.#model.getSong(this.#number) ?? null;
    if (song !== null && song !== this.#song) this.#showEdits(song);
    if (song === null && this.#song?.number !== this.#number) this.picture.show(null);
    this.picture.showLoops(this.#number === this.#model.state.song ? this.#model.state.loops : []);
    this.#showState();
    this.versions.show();
  }

  /** The song that is loaded is shown until somebody chooses another one. */
  #showSongs() {
    const { show, state } = this.#model;
    const key = JSON.stringify(show.songs.map((song) => [song.number, song.title]));
    if (key !== this.#choices) {
      this.#choices = key;
      this.song.replaceChildren(...show.songs.map((song) => make('option', { value: song.number }, `${song.number}  ${song.title}`)));
    }
    if (this.#follows && state.song && state.song !== this.#number) this.#choose(state.song);
    if (this.song.value !== this.#number) this.song.value = this.#number;
  }

  #showEdits(song) {
    this.#song = song;
    this.picture.show(song);
    this.rows.replaceChildren(...song.edits.map((edit) => this.#makeRow(song, edit)));
    setHidden(this.list, song.edits.length === 0);
    setHidden(this.none, song.edits.length > 0);
    this.follow.value = song.attacca;
    this.warnings.replaceChildren(...song.warnings.map((sentence) => make('li', {}, sentence)));
    setHidden(this.warnings, song.warnings.length === 0);
    this.#wasEnabled = null;
  }

  #makeRow(song, edit) {
    const kind = findKind(edit.kind);
    const name = `edit ${edit.id}, ${edit.kind} ${edit.place}`;
    const change = clickButton({ 'aria-label': `Change ${name}`, onclick: () => {
      this.form.change(edit.id, kind, valuesOf(kind, edit, song));
      this.form.element.scrollIntoView({ block: 'nearest' });
    } }, 'Change');
    const remove = clickButton({ 'aria-label': `Remove ${name}`, onclick: () => this.#edit(`remove ${edit.id}`, this.answer) }, 'Remove');
    return make('tr', { 'data-edit': String(edit.id) }, make('td', {}, String(edit.id)), make('td', { class: 'kind' }, edit.kind), make('td', {}, edit.place), make('td', {}, edit.value),
      make('td', { class: 'row-tools' }, kind === undefined ? null : change, remove));
  }

  #showState() {
    const { state, editRefusal } = this.#model;
    setText(this.state, state.version ? `Version ${state.version}${state.unsaved ? ', with unsaved changes' : ', saved'}` : '');
    this.state.classList.toggle('is-unsaved', Boolean(state.unsaved));
    setText(this.refusal, editRefusal);
    setHidden(this.refusal, editRefusal === '');
    const isEnabled = editRefusal === '';
    if (isEnabled === this.#wasEnabled) return;
    this.#wasEnabled = isEnabled;
    this.element.classList.toggle('is-locked', !isEnabled);
    for (const tool of this.tools) tool.disabled = !isEnabled;
    for (const button of this.rows.querySelectorAll('button')) button.disabled = !isEnabled;
    this.follow.disabled = !isEnabled;
    this.form.setEnabled(isEnabled);
    this.versions.setEnabled(isEnabled);
  }
}
