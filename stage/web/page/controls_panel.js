// What is set while the show runs: where to go, tempo, transposition, fade, volumes.

import { clickButton, make, setText } from './elements.js';
import { LevelMeter } from './level_meter.js';

const TempoRange = { min: 50, max: 200 };
const VolumeNames = { master: 'Master', music: 'Music', click: 'Click', effects: 'Effects', ambience: 'Ambience' };

/** `kind` says where it stands among the others. */
function group(kind, title, ...children) {
  return make('fieldset', { class: `control is-${kind}` }, make('legend', {}, title), ...children);
}

/** A slider that is the operator's while it is held, and follows the show otherwise. `onset(value)` at most every 60 ms. */
export class Slider {
  #held = false;
  #timer = null;
  #settle = 0;

  constructor({ name, min, max, unit, onset }) {
    this.unit = unit;
    this.input = make('input', { type: 'range', min: String(min), max: String(max), step: '1', 'aria-label': name });
    this.value = make('output', { class: 'value' });
    this.input.addEventListener('pointerdown', () => { this.#held = true; });
    for (const end of ['pointerup', 'pointercancel']) {
      this.input.addEventListener(end, () => { this.#held = false; this.input.blur(); });
    }
    this.input.addEventListener('input', () => {
      this.#settle = performance.now() + 400;
      setText(this.value, `${this.input.value}${unit}`);
      this.#timer ??= setTimeout(() => { this.#timer = null; onset(Number(this.input.value)); }, 60);
    });
  }

  show(value) {
    if (this.#held || performance.now() < this.#settle) return;
    this.input.value = String(value);
    this.input.setAttribute('aria-valuetext', `${value}${this.unit}`);
    setText(this.value, `${value}${this.unit}`);
  }
}

export class ControlsPanel {
  #volumes = new Map();
  #press;
  #markers = '';
  #pages = '';

  /** `press(line)` sends a press. */
  constructor(press) {
    this.#press = press;
    this.element = make('div', { class: 'controls' }, this.#makeSeek(), this.#makeTempo(), this.#makeTransposition(), this.#makeFade(), this.#makeVolumes());
  }

  #makeSeek() {
    this.place = make('input', { type: 'text', id: 'seek-bar', size: '6', maxlength: '16', placeholder: '12:3', autocomplete: 'off', autocapitalize: 'off', enterkeyhint: 'go' });
    const form = make('form', { class: 'row', onsubmit: (event) => {
      event.preventDefault();
      const place = this.place.value.trim();
      if (place !== '') this.#press(`seek ${place}`);
      this.place.value = '';
      this.place.blur();
    } }, make('label', { for: 'seek-bar' }, 'Bar'), this.place, make('button', { type: 'submit' }, 'Go there'));
    this.marker = this.#makeChoice('Marker', 'seek-marker');
    this.page = this.#makeChoice('Page', 'seek-page');
    return group('seek', 'Go to', form, this.marker.row, this.page.row);
  }

  #makeChoice(name, id) {
    const select = make('select', { id, onchange: () => {
      if (select.value !== '') this.#press(`seek t${select.value}`);
      select.value = '';
      select.blur();
    } });
    return { select, row: make('div', { class: 'row' }, make('label', { for: id }, name), select) };
  }

  #step(name, label, line) {
    return clickButton({ 'aria-label': name, onclick: () => this.#press(line()) }, label);
  }

  #makeTempo() {
    this.tempo = new Slider({ name: 'Tempo scale in percent', ...TempoRange, unit: '%', onset: (percent) => this.#press(`tempo ${percent}%`) });
    const change = (by) => () => `tempo ${Math.min(Math.max(Math.round((this.tempoScale ?? 1) * 100) + by, TempoRange.min), TempoRange.max)}%`;
    return group('tempo', 'Tempo', make('div', { class: 'row' }, this.tempo.input, this.tempo.value),
      make('div', { class: 'row' }, this.#step('− 1 % tempo', '− 1 %', change(-1)), this.#step('+ 1 % tempo', '+ 1 %', change(1)),
        this.#step('As written: tempo', 'As written', () => 'tempo 100%')));
  }

  #makeTransposition() {
    this.transposition = make('output', { class: 'value' });
    const change = (by) => () => `transpose ${Math.min(Math.max(this.semitones + by, -24), 24)}`;
    this.semitones = 0;
    return group('transposition', 'Transposition', make('div', { class: 'row' }, this.#step('− 1 semitone', '− 1', change(-1)), this.transposition,
      this.#step('+ 1 semitone', '+ 1', change(1)), this.#step('As written: not transposed', 'As written', () => 'transpose 0')));
  }

  #makeFade() {
    this.fade = make('input', { type: 'number', id: 'fade-seconds', min: '0', max: '600', step: '0.5', value: '3' });
    return group('fade', 'Fade', make('div', { class: 'row is-short' }, make('label', { for: 'fade-seconds' }, 'Seconds'), this.fade,
      clickButton({ onclick: () => this.#press(`fade ${this.fade.value || 0}`) }, 'Fade out'),
      clickButton({ onclick: () => this.#press('cancel-fade') }, 'Cancel')));
  }

  #makeVolumes() {
    this.level = new LevelMeter('Level of the main output');
    this.volumes = group('volume', 'Volume', this.level.element);
    return this.volumes;
  }

  /** `edited` are the semitones that the edits ask for at this place. */
  show(state, edited) {
    this.tempoScale = state.tempoScale;
    this.tempo.show(Math.round((state.tempoScale ?? 1) * 100));
    this.#showTransposition((state.transposition ?? 0) - edited);
    for (const [name, factor] of Object.entries(state.volumes ?? {})) this.#findVolume(name).show(Math.round(factor * 100));
    for (const { name, volume } of state.groups ?? []) this.#findVolume(name).show(Math.round(volume * 100));
  }

  #showTransposition(own) {
    this.semitones = own;
    setText(this.transposition, own > 0 ? `+${own}` : String(own).replace('-', '−'));
  }

  #findVolume(name) {
    let slider = this.#volumes.get(name);
    if (slider === undefined) {
      const label = VolumeNames[name] ?? name;
      slider = new Slider({ name: `Volume: ${label}`, min: 0, max: 100, unit: '%', onset: (percent) => this.#press(`volume ${percent}%${name === 'master' ? '' : ` ${name}`}`) });
      this.#volumes.set(name, slider);
      this.volumes.append(make('div', { class: 'row' }, make('span', { class: 'row-name' }, label), slider.input, slider.value));
    }
    return slider;
  }

  showSong(song) {
    const markers = (song?.markers ?? []).map((marker) => [marker.tick, marker.text]);
    const pages = (song?.pages ?? []).map((page) => [page.tick, String(page.number)]);
    this.#markers = this.#fill(this.marker, this.#markers, markers, 'No markers');
    this.#pages = this.#fill(this.page, this.#pages, pages, 'No pages');
  }

  #fill(choice, shown, entries, none) {
    const wanted = JSON.stringify(entries);
    if (wanted === shown) return shown;
    choice.select.replaceChildren(make('option', { value: '' }, entries.length === 0 ? none : 'Choose…'),
      ...entries.map(([tick, text]) => make('option', { value: String(tick) }, text)));
    choice.select.disabled = entries.length === 0;
    return wanted;
  }

  setEnabled(isEnabled) {
    for (const fieldset of this.element.children) fieldset.disabled = !isEnabled;
  }
}
