// The engraved music: the bar that sounds, what the production made of the bars, the next sheet in time.

import { clickButton, make, setHidden, setText } from './elements.js';
import { EditForm } from './edit_form.js';
import { describeEdit, FlowPicture } from './flow_picture.js';
import { ScoreEngraver } from './score_engraver.js';
import { barIndexAt, barsOfMeasure, followFlow, nextSheet, turnSheets } from './score_flow.js';
import { barsOnPage, pageAt, PageImages, PageSheet, pagesOf } from './score_pages.js';
import { ScoreSheet } from './score_sheet.js';
import { listBars, placeAt } from './song_time.js';

const Zooms = [50, 60, 75, 90, 100, 115, 135, 160, 200, 250];
const ZoomKey = 'stage-score-zoom';
/** A window that is being pulled larger is engraved for once it rests. */
const RestMs = 200;
/** In the place of a part: the pages as the theatre has printed them. */
const Pages = 'pages';

function readZoom() {
  try {
    return Zooms.includes(Number(localStorage.getItem(ZoomKey))) ? Number(localStorage.getItem(ZoomKey)) : 100;
  } catch {
    return 100;
  }
}

export class ScoreView {
  #model;
  #press;
  #refuse;
  #engraver = new ScoreEngraver();
  #images = new PageImages();
  #stillness = matchMedia('(prefers-reduced-motion: reduce)');
  #isStale = true;
  #run;
  #song = null;
  #bars = [];
  #engraved = null;
  #wanted = '';
  #part = '';
  #zoom = readZoom();
  #shown = [null, null];
  #slots;
  #order = [];
  #orderKey = '';
  #chosen = null;
  #timer = null;

  /** `press(line)` sends a press, `edit(line, song)` an edit, `refuse(sentence)` tells why nothing was sent. */
  constructor(model, { press, edit, refuse }) {
    this.#model = model;
    this.#run = model.run;
    this.#press = press;
    this.#refuse = refuse;
    this.title = make('h2', {});
    this.place = make('p', { class: 'score-place' });
    this.parts = make('select', { id: 'score-part', onchange: () => {
      this.#part = this.parts.value;
      this.parts.blur();
      this.#engrave();
    } });
    const zoom = (step, name, text) => clickButton({ 'aria-label': name, onclick: () => this.#changeZoom(step) }, text);
    this.zoom = make('output', { class: 'value' });
    this.zooms = [zoom(-1, 'Smaller notes', '−'), zoom(1, 'Larger notes', '+')];
    this.tools = clickButton({ 'aria-expanded': 'false', onclick: () => this.#toggleTools() }, 'Edit');
    this.head = make('div', { class: 'score-head' }, this.title, this.place,
      make('div', { class: 'row' }, make('label', { for: 'score-part', class: 'only-read' }, 'Part'), this.parts),
      make('div', { class: 'row' }, this.zooms[0], this.zoom, this.zooms[1], this.tools));
    this.answer = make('p', { class: 'none', role: 'status' });
    this.#slots = [0, 1].map(() => ({ holder: make('div', { class: 'slot' }), sheet: null, asked: '' }));
    this.sheets = make('div', { class: 'sheets', role: 'img' }, ...this.#slots.map(({ holder }) => holder));
    this.flow = make('div', { class: 'picture', tabindex: '0', role: 'region', 'aria-label': 'Flow of the song' });
    this.picture = new FlowPicture(this.flow, { onBar: (bar) => this.#seek(bar) });
    this.edits = make('p', { class: 'score-edits', role: 'status' });
    this.form = new EditForm((line) => edit(line, this.#song?.number ?? ''));
    const act = (line, name) => clickButton({ 'data-press': line, onclick: () => press(line) }, name);
    this.acts = [act('undo', 'Undo'), act('redo', 'Redo'), act('save', 'Save')];
    this.panel = make('div', { class: 'score-tools', tabindex: '0', role: 'region', 'aria-label': 'Edit bars' }, make('div', { class: 'row' }, ...this.acts), this.form.element);
    setHidden(this.panel, true);
    this.element = make('section', { class: 'score', 'aria-label': 'Score' }, this.head, this.answer, this.sheets, this.flow, this.edits, this.panel);
    this.#listen();
    new ResizeObserver(() => {
      clearTimeout(this.#timer);
      this.#timer = setTimeout(() => this.#engrave(), RestMs);
    }).observe(this.sheets);
  }

  note(message) {
    this.#isStale = true;
    if (message?.type === 'hello' && this.#model.run !== this.#run) this.#beginAnew();
  }

  /** Another run of the program may play another show, whose songs have the same numbers. */
  #beginAnew() {
    this.#run = this.#model.run;
    this.#song = null;
    this.#wanted = '';
    this.#clear('');
    this.#engraver.forget();
    this.#images.forget();
  }

  #changeZoom(step) {
    this.#zoom = Zooms[Math.min(Math.max(Zooms.indexOf(this.#zoom) + step, 0), Zooms.length - 1)];
    try {
      localStorage.setItem(ZoomKey, String(this.#zoom));
    } catch {
      // Then it is chosen anew next time.
    }
    this.#engrave();
  }

  #toggleTools() {
    setHidden(this.panel, !this.panel.hidden);
    this.tools.setAttribute('aria-expanded', String(!this.panel.hidden));
    if (this.panel.hidden) this.#choose(null);
  }

  showFrame() {
    const { state } = this.#model;
    if (this.#isStale) {
      this.#isStale = false;
      this.#showState(state);
    }
    const tick = this.#model.findTick();
    if (this.#song === null || this.#song.number !== this.#model.playhead?.song) return;
    const place = placeAt(this.#song, tick);
    const seen = this.#stillness.matches ? place.tick ?? tick : tick;
    setText(this.place, `Bar ${place.bar}, beat ${place.beat}`);
    this.picture.showTick(seen);
    if (this.#engraved !== null) this.#showMusic(seen);
  }

  #showState(state) {
    setText(this.title, state.song ? `${state.song} ${state.title}` : 'No song is loaded');
    setText(this.zoom, `${this.#zoom} %`);
    const song = this.#model.getSong(state.song) ?? null;
    if (song !== null && song !== this.#song) this.#takeSong(song);
    this.picture.showLoops(state.loops);
    for (const { sheet } of this.#slots) sheet?.showLoops(state.loops);
    const isEnabled = this.#model.editRefusal === '';
    for (const act of this.acts) act.disabled = !isEnabled;
    if (this.form.isEnabled !== isEnabled) this.form.setEnabled(isEnabled);
  }

  #takeSong(song) {
    const isOther = song.number !== this.#song?.number;
    this.#song = song;
    this.#bars = listBars(song);
    this.#orderKey = '';
    this.picture.show(song);
    if (isOther) {
      this.#part = this.#hasImages(song) ? Pages : '';
      this.#showParts([]);
      this.#choose(null);
      this.#engrave();
    } else {
      for (const { sheet } of this.#slots) sheet?.pencil(song, this.#bars);
      this.#showEdits();
    }
  }

  #hasImages(song) {
    return pagesOf(song, this.#model.show.pageImages ?? []).length > 0;
  }

  /** Why there is no engraved music; empty where there is. */
  #findObstacle(song) {
    if (this.#part === Pages) return '';
    if (song.measures === undefined) return `Song ${song.number} has no score to engrave: it was imported from MIDI alone.`;
    return this.#model.hasEngraver ? '' : 'The engraver is not installed with the program: the flow of the song is shown instead.';
  }

  #findShape() {
    const { clientWidth, clientHeight } = this.sheets;
    const isWide = clientWidth > clientHeight * 1.25;
    this.sheets.classList.toggle('is-wide', isWide);
    const [width, tall] = isWide ? [Math.floor(clientWidth / 2) - 4, clientHeight] : [clientWidth, Math.floor(clientHeight / 2) - 3];
    // A notice that takes a second line must not break the music anew: what is a little too tall is drawn smaller.
    const last = this.#engraved?.request;
    const height = last?.width === width && Math.abs(tall - last.height) < last.height / 5 ? last.height : tall;
    // Two systems find room in a place where they can.
    const usual = Math.min(Math.max(width / 22, 22), Math.max(height / 15, 26), 60);
    return { width, height: Math.max(height, 60), scale: Math.round((usual * this.#zoom) / 100) };
  }

  async #engrave() {
    const song = this.#song;
    if (song === null) return;
    const obstacle = this.#findObstacle(song);
    this.#showObstacle(obstacle);
    if (obstacle !== '') return;
    if (this.sheets.clientWidth < 80 || this.sheets.clientHeight < 80) return;
    if (this.#part === Pages) return this.#layPages(song);
    const request = { song: song.number, part: this.#part, ...this.#findShape() };
    const key = JSON.stringify(request);
    if (this.#engraved?.key === key) return;
    this.#wanted = key;
    if (this.#engraved?.song !== song.number || this.#engraved?.part !== this.#part) this.#clear(`Song ${song.number} is being engraved…`);
    try {
      const score = await this.#engraver.findSheets(request);
      if (this.#wanted !== key) return;
      this.#engraved = { ...score, key, request, song: song.number, part: this.#part };
      this.#shown = [null, null];
      this.#showParts(score.parts);
      setText(this.answer, '');
      setHidden(this.answer, true);
      this.#prepareNext(request);
    } catch (problem) {
      if (this.#wanted !== key) return;
      this.#wanted = '';
      this.#showObstacle(problem.message);
    }
  }

  #layPages(song) {
    const { clientWidth, clientHeight } = this.sheets;
    this.sheets.classList.toggle('is-wide', clientWidth > clientHeight);
    const key = `${Pages} ${song.number}`;
    if (this.#engraved?.key === key) return;
    this.#wanted = key;
    this.#clear('');
    this.#engraved = { key, song: song.number, part: Pages, isImages: true };
    this.#shown = [null, null];
    this.#orderKey = '';
    const { songs } = this.#model.show;
    // Its pages are known when it begins.
    this.#model.getSong(songs[songs.findIndex(({ number }) => number === song.number) + 1]?.number);
  }

  #clear(sentence) {
    this.#engraved = null;
    for (const slot of this.#slots) {
      slot.sheet = null;
      slot.asked = '';
      slot.holder.replaceChildren();
    }
    setText(this.answer, sentence);
    setHidden(this.answer, sentence === '');
  }

  #showObstacle(sentence) {
    const isEngraved = sentence === '';
    if (!isEngraved) this.#clear(sentence);
    setHidden(this.answer, isEngraved && this.answer.textContent === '');
    setHidden(this.sheets, !isEngraved);
    // Nothing can be marked in an image: where the music is, and what was edited, the flow below it shows.
    setHidden(this.flow, isEngraved && this.#part !== Pages);
    this.flow.classList.toggle('is-strip', isEngraved);
    this.parts.disabled = !isEngraved;
    for (const control of this.zooms) control.disabled = !isEngraved || this.#part === Pages;
  }

  #showParts(parts) {
    const hasImages = this.#hasImages(this.#song);
    const isEngravable = !hasImages || (this.#song.measures !== undefined && this.#model.hasEngraver);
    this.parts.replaceChildren(
      ...(hasImages ? [make('option', { value: Pages }, 'Printed pages')] : []),
      ...(isEngravable ? [make('option', { value: '' }, 'Whole score')] : []),
      ...parts.map(({ id, name }) => make('option', { value: id }, name)));
    this.parts.value = this.#part;
  }

  /** The next song is there when it begins. */
  #prepareNext(request) {
    const { songs } = this.#model.show;
    const next = songs[songs.findIndex(({ number }) => number === request.song) + 1];
    if (next?.score) this.#engraver.findSheets({ ...request, song: next.number, part: '' }).catch(() => {});
  }

  #sheetOf(index) {
    if (this.#engraved.isImages) return pageAt(this.#song, this.#bars[index].tick);
    return this.#engraved.sheets[this.#song.measures[index]] ?? 1;
  }

  #showMusic(tick) {
    const index = barIndexAt(this.#bars, tick);
    const current = this.#sheetOf(index);
    const key = `${index} ${this.#engraved.key} ${JSON.stringify(this.#model.state.loops)}`;
    if (key !== this.#orderKey) {
      this.#orderKey = key;
      this.#order = followFlow(this.#song, this.#bars, this.#model.state.loops, tick);
      const next = nextSheet(this.#order, (each) => this.#sheetOf(each), current);
      this.#turn(turnSheets(this.#shown, current, next), current);
    }
    const measure = this.#song.measures?.[index];
    const sheets = this.#slots.map(({ sheet }) => sheet).filter((sheet) => sheet !== null);
    // Until a sheet is drawn, one that was broken otherwise may have the bar.
    const bearer = sheets.find((sheet) => sheet.page === current && sheet.key === this.#engraved.key) ?? sheets.find((sheet) => sheet.has(measure));
    for (const sheet of sheets) sheet.showPlace(sheet === bearer ? measure : null, this.#bars[index], tick, this.#song.ticksPerQuarter);
  }

  #turn(pages, current) {
    this.#shown = pages;
    this.#slots.forEach((slot, place) => {
      slot.holder.classList.toggle('is-current', pages[place] === current);
      this.#fill(slot, pages[place]);
    });
  }

  async #fill(slot, page) {
    const asked = page === null ? '' : `${page} ${this.#engraved.key}`;
    if (slot.asked === asked) return;
    slot.asked = asked;
    if (page === null) {
      slot.sheet = null;
      return slot.holder.replaceChildren();
    }
    const engraved = this.#engraved;
    if (engraved.isImages) return this.#fillWithImage(slot, page, engraved);
    try {
      const svg = await this.#engraver.drawSheet(engraved.request, page);
      if (slot.asked !== asked || this.#engraved !== engraved) return;
      slot.sheet = new ScoreSheet(svg, engraved.measures, page);
      slot.sheet.key = engraved.key;
      slot.holder.replaceChildren(svg);
      slot.holder.dataset.page = String(page);
      slot.sheet.pencil(this.#song, this.#bars);
      slot.sheet.showLoops(this.#model.state.loops);
      this.#showChosen();
      this.#describe();
    } catch (problem) {
      if (slot.asked === asked) this.#showObstacle(problem.message);
    }
  }

  async #fillWithImage(slot, page, engraved) {
    const { asked } = slot;
    const has = (this.#model.show.pageImages ?? []).includes(page);
    slot.sheet = null;
    let content;
    try {
      const image = has ? await this.#images.find(page) : null;
      if (slot.asked !== asked || this.#engraved !== engraved) return;
      if (has) slot.sheet = new PageSheet(image, page, barsOnPage(this.#song, this.#bars, page));
      content = slot.sheet?.element ?? make('p', { class: 'none' }, `There is no image of page ${page}.`);
    } catch (problem) {
      if (slot.asked !== asked || this.#engraved !== engraved) return;
      // With the next turn it is tried again.
      slot.asked = '';
      content = make('p', { class: 'none' }, problem.message);
    }
    slot.holder.replaceChildren(content);
    slot.holder.dataset.page = String(page);
    this.#describe();
  }

  #describe() {
    const spans = this.#slots.filter(({ sheet }) => sheet !== null).map(({ sheet }) => sheet.numbers.join(' to '));
    const edits = this.#song.edits.map(describeEdit).join('; ');
    this.sheets.setAttribute('aria-label', `Score of song ${this.#song.number}: bars ${spans.join(' and ')}${edits === '' ? '' : `. Edits: ${edits}`}`);
  }

  // Choosing bars.

  #listen() {
    let first = null;
    const find = (event) => {
      const hit = document.elementFromPoint(event.clientX, event.clientY)?.closest?.('.hit');
      return hit ? Number(hit.dataset.measure) : null;
    };
    this.sheets.addEventListener('mousedown', (event) => event.preventDefault());
    this.sheets.addEventListener('pointerdown', (event) => { first = event.button === 0 ? find(event) : null; });
    this.sheets.addEventListener('pointercancel', () => { first = null; });
    this.sheets.addEventListener('pointerup', (event) => {
      const last = find(event);
      if (first !== null && last !== null) this.#take(Math.min(first, last), Math.max(first, last));
      first = null;
    });
  }

  /** The bars that two measures stand for: of several times that they are played those of now or the next ones. */
  #barsOf(first, last) {
    const { measures } = this.#song;
    const tick = this.#model.findTick();
    const froms = barsOfMeasure(measures, first);
    // Where the music stands already the same click means the next time.
    const isPast = ({ tick: start, end }) => (first === last && !this.#model.isMoving && start === tick) || end <= tick;
    const from = froms.find((index) => !isPast(this.#bars[index])) ?? froms[0];
    const tos = barsOfMeasure(measures, last);
    return [this.#bars[from], this.#bars[tos.find((index) => index >= from) ?? tos.at(-1)]];
  }

  #take(first, last) {
    const bars = this.#barsOf(first, last);
    if (bars.includes(undefined)) return this.#refuse('This bar is not played: no place of the song is there.');
    const [from, to] = bars[0].tick <= bars[1].tick ? bars : [bars[1], bars[0]];
    this.#choose({ first: from, last: to });
    if (first === last && this.panel.hidden && !this.#model.isMoving) this.#seek(from);
  }

  #seek(bar) {
    if (this.#model.isMoving) this.#refuse('A click seeks while the music is stopped; G goes to a bar at any time.');
    else this.#press(`seek t${bar.tick}`);
  }

  #choose(span) {
    this.#chosen = span;
    this.form.choose(span);
    this.#showChosen();
    this.#showEdits();
  }

  #showChosen() {
    const measures = new Set();
    if (this.#chosen !== null) {
      const { first, last } = this.#chosen;
      this.#bars.forEach((bar, index) => bar.tick >= first.tick && bar.tick <= last.tick && measures.add(this.#song.measures?.[index]));
    }
    for (const { sheet } of this.#slots) sheet?.showChosen(measures);
  }

  #showEdits() {
    if (this.#chosen === null) return setText(this.edits, '');
    const { first, last } = this.#chosen;
    const here = this.#song.edits.filter((edit) => edit.start < last.end && (edit.end > first.tick || edit.start >= first.tick));
    const name = first.tick === last.tick ? `Bar ${first.label}` : `Bars ${first.label} to ${last.label}`;
    setText(this.edits, `${name}: ${here.length === 0 ? 'no edits' : here.map(describeEdit).join('; ')}.`);
  }
}
