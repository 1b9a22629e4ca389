// One sheet of engraved music: where its bars are, what is pencilled over them, and the bar that sounds.

import { draw } from './elements.js';
import { describePass } from './flow_picture.js';
import { interpolate } from './score_flow.js';

/** The drawing's own unit: the distance of two staff lines. */
const Space = 180;
const LoopNames = { vamp: 'Vamp', repeat: 'Repeat' };

const textOf = (edit) => edit.value.replace(/^"|".*$/g, '');

/** Marks that stand at one place, as a pit player writes them. */
const Signs = {
  caesura: (edit) => ['//', textOf(edit)].filter((part) => part !== '').join(' '),
  marker: textOf,
  'tempo scale': (edit) => edit.value,
  transposition: (edit) => edit.value,
  click: (edit) => `click ${edit.value}`,
  sfx: () => '♪',
  'ambient sfx': () => '♪…',
  OSC: () => '▸',
};

function lineOf(path) {
  const match = /^M([-\d.]+) ([-\d.]+) L([-\d.]+)/.exec(path?.getAttribute('d') ?? '');
  return match === null ? null : { left: Number(match[1]), y: Number(match[2]), right: Number(match[3]) };
}

function xOf(element) {
  const use = element?.matches('use') ? element : element?.querySelector('use[transform]');
  const match = /translate\(([-\d.]+)/.exec(use?.getAttribute('transform') ?? '');
  return match === null ? null : Number(match[1]);
}

export class ScoreSheet {
  #boxes = new Map();
  #loops = [];
  #sounding;
  #beat;
  #place = '';

  /** `svg` as the engraver drew it; `measures` are the whole score's, {id, onsets}. It has to be shown before `pencil`. */
  constructor(svg, measures, page) {
    this.element = svg;
    this.page = page;
    svg.removeAttribute('id');
    svg.setAttribute('class', 'sheet');
    svg.setAttribute('aria-hidden', 'true');
    svg.setAttribute('preserveAspectRatio', 'xMidYMin');
    this.paper = svg.querySelector('.page-margin');
    this.under = draw('g', { class: 'under' });
    this.over = draw('g', { class: 'pencil' });
    this.hits = draw('g', {});
    this.#sounding = draw('rect', { class: 'sounding', width: 0, height: 0 });
    this.#beat = draw('line', { class: 'sounding-beat', x1: 0, x2: 0, y1: 0, y2: 0 });
    this.under.append(this.#sounding);
    this.paper.prepend(this.under);
    this.paper.append(this.over, this.#beat, this.hits);
    const index = new Map(measures.map((measure, place) => [measure.id, place]));
    for (const element of svg.querySelectorAll('g.measure')) this.#measure(element, index.get(element.id), measures);
    for (const system of svg.querySelectorAll('g.system')) this.#levelSystem(system);
    for (const [place, box] of this.#boxes) {
      this.hits.append(draw('rect', { class: 'hit', 'data-measure': place, x: box.left, y: box.top - 3 * Space, width: box.right - box.left, height: box.bottom - box.top + 5 * Space }));
    }
  }

  #measure(element, place, measures) {
    const staffs = [...element.querySelectorAll(':scope > g.staff')].map((staff) => [...staff.querySelectorAll(':scope > path')].map(lineOf).filter((line) => line !== null));
    const [first, last] = [staffs[0]?.[0], staffs.at(-1)?.at(-1)];
    if (place === undefined || first === undefined || last === undefined) return;
    const box = { left: first.left, right: first.right, top: first.y, bottom: last.y, number: element.dataset.n ?? '', element };
    const onsets = measures[place].onsets.map(([quarters, id]) => ({ quarters, x: xOf(element.querySelector(`#${CSS.escape(id)}`)) })).filter(({ x }) => x !== null);
    box.onsets = onsets.filter((onset, at) => at === 0 || (onset.x > onsets[at - 1].x && onset.quarters > onsets[at - 1].quarters));
    this.#boxes.set(place, box);
  }

  /** What is pencilled above a system keeps to one line. */
  #levelSystem(system) {
    const boxes = [...this.#boxes.values()].filter((box) => system.contains(box.element));
    boxes.forEach((box) => { box.system = boxes; });
  }

  has(measure) {
    return this.#boxes.has(measure);
  }

  /** The numbers of its first and last bar, as printed. */
  get numbers() {
    const boxes = [...this.#boxes.values()];
    return [boxes[0]?.number ?? '', boxes.at(-1)?.number ?? ''];
  }

  #xAt(box, bar, tick, ticksPerQuarter) {
    if (tick <= bar.tick) return box.left;
    if (tick >= bar.end) return box.right;
    const onsets = [...box.onsets, { quarters: (bar.end - bar.tick) / ticksPerQuarter, x: box.right }];
    if (onsets[0].quarters > 0) onsets.unshift({ quarters: 0, x: box.left });
    return interpolate(onsets, (tick - bar.tick) / ticksPerQuarter);
  }

  /** Draws the edits of the song; `bars` and the song's `measures` say where they are. */
  pencil(song, bars) {
    this.over.replaceChildren();
    this.#loops = [];
    for (const box of this.#boxes.values()) box.ceiling = undefined;
    const places = bars.map((bar, index) => ({ bar, box: this.#boxes.get(song.measures[index]) })).filter(({ box }) => box !== undefined);
    const taken = new Map();
    for (const edit of song.edits) {
      if (edit.kind === 'cut') this.#strike(song, places, edit);
      else if (LoopNames[edit.kind]) this.#bracket(song, places, edit);
      else if (edit.kind === 'fermata') this.#hold(song, places, edit);
      else if (Signs[edit.kind]) this.#sign(song, places, edit, taken);
    }
  }

  #ceilingOf(box) {
    if (box.ceiling === undefined) {
      const top = Math.min(...box.system.map((each) => Math.min(each.top, each.element.getBBox().y)));
      for (const each of box.system) each.ceiling = top;
    }
    return box.ceiling;
  }

  /** The parts of an edit on this sheet: a stretch of each system, [{left, right, top, bottom, isFirst, isLast}]. */
  #stretches(song, places, edit) {
    const parts = [];
    for (const { bar, box } of places) {
      if (edit.start >= bar.end || edit.end <= bar.tick) continue;
      const left = this.#xAt(box, bar, edit.start, song.ticksPerQuarter);
      const right = this.#xAt(box, bar, edit.end, song.ticksPerQuarter);
      const last = parts.at(-1);
      if (last !== undefined && last.box.system === box.system && last.right === left) last.right = right;
      else parts.push({ box, left, right, top: box.top, bottom: box.bottom, isFirst: edit.start >= bar.tick });
      parts.at(-1).isLast = edit.end <= bar.end;
    }
    return parts;
  }

  #strike(song, places, edit) {
    for (const { bar, box } of places) {
      if (edit.start >= bar.end || edit.end <= bar.tick) continue;
      const left = this.#xAt(box, bar, edit.start, song.ticksPerQuarter);
      const right = this.#xAt(box, bar, edit.end, song.ticksPerQuarter);
      // What is played another time is struck with one stroke, that is broken.
      const isAlways = places.every((other) => other.box !== box || song.edits.some((each) => each.kind === 'cut' && each.start < other.bar.end && each.end > other.bar.tick));
      if (isAlways) this.over.append(draw('rect', { class: 'cut-wash', x: left, y: box.top, width: Math.max(right - left, 1), height: box.bottom - box.top }));
      const stroke = `M${left} ${box.bottom}L${right} ${box.top}`;
      this.over.append(draw('path', { class: isAlways ? 'cut' : 'cut is-once', 'data-number': box.number, d: isAlways ? `M${left} ${box.top}L${right} ${box.bottom}${stroke}` : stroke }));
      // "12 (2)" is the second time.
      if (edit.start >= bar.tick) this.#write('cut', left + 2.5 * Space, box.top - Space, `CUT${isAlways ? '' : ` ${/\(\d+\)$/.exec(bar.label)?.[0] ?? '(1)'}`}`);
    }
  }

  #bracket(song, places, edit) {
    for (const { box, left, right, top, isFirst, isLast } of this.#stretches(song, places, edit)) {
      const y = this.#ceilingOf(box) - 1.2 * Space;
      const wash = draw('rect', { class: `wash ${edit.kind}`, x: left, y: top, width: right - left, height: box.bottom - top });
      const path = draw('path', { class: `bracket ${edit.kind}`, d: `${isFirst ? `M${left + 30} ${y + Space}V${y}` : `M${left} ${y}`}H${right - 30}${isLast ? `V${y + Space}` : ''}` });
      this.over.append(wash, path);
      const text = [LoopNames[edit.kind], edit.value].filter((part) => part).join(' ');
      const label = isFirst ? this.#write(edit.kind, left + 30, y - 0.5 * Space, text) : null;
      this.#loops.push({ edit, wash, path, label, text });
    }
  }

  #hold(song, places, edit) {
    const part = this.#stretches(song, places, edit).findLast(({ isLast }) => isLast);
    if (part === undefined) return;
    const x = (part.left + part.right) / 2;
    const y = this.#ceilingOf(part.box) - 0.6 * Space;
    this.over.append(draw('path', { class: 'fermata', d: `M${x - 1.4 * Space} ${y}a${1.4 * Space} ${1.4 * Space} 0 0 1 ${2.8 * Space} 0` }), draw('circle', { class: 'fermata-dot', cx: x, cy: y - 0.3 * Space, r: 0.3 * Space }));
  }

  #sign(song, places, edit, taken) {
    const place = places.find(({ bar }) => edit.start >= bar.tick && edit.start < bar.end) ?? places.find(({ bar }) => edit.start === bar.end && bar.end === song.endTick);
    if (place === undefined) return;
    const x = this.#xAt(place.box, place.bar, edit.start, song.ticksPerQuarter);
    // Those at one place stand one over the other.
    const key = `${Math.round(x / Space)} ${place.box.top}`;
    const level = taken.get(key) ?? 0;
    taken.set(key, level + 1);
    this.#write(edit.kind.replace(' ', '-').toLowerCase(), x, this.#ceilingOf(place.box) - (2.6 + 2 * level) * Space, Signs[edit.kind](edit));
  }

  #write(kind, x, y, words) {
    const text = draw('text', { class: `note-text ${kind}`, x, y }, words);
    this.over.append(text);
    return text;
  }

  /** Lights the loops that are active, with their pass. */
  showLoops(active) {
    for (const { edit, wash, path, label, text } of this.#loops) {
      const loop = (active ?? []).find((each) => each.start === edit.start && each.end === edit.end && each.kind === edit.kind);
      wash.classList.toggle('is-lit', loop !== undefined);
      path.classList.toggle('is-lit', loop !== undefined);
      const words = loop === undefined ? text : `${LoopNames[edit.kind]} ${describePass(loop)}`;
      if (label !== null && label.textContent !== words) label.textContent = words;
    }
  }

  /** Marks the bar at `tick` and the place in it; null for a measure that is not on this sheet. */
  showPlace(measure, bar, tick, ticksPerQuarter) {
    const box = measure === null ? undefined : this.#boxes.get(measure);
    const place = box === undefined ? '' : String(measure);
    if (place !== this.#place) {
      this.#place = place;
      const attributes = box === undefined ? { width: 0, height: 0 } : { x: box.left, y: box.top - Space, width: box.right - box.left, height: box.bottom - box.top + 2 * Space };
      for (const [name, value] of Object.entries(attributes)) this.#sounding.setAttribute(name, value);
      this.#sounding.dataset.number = box?.number ?? '';
      this.#beat.setAttribute('y1', box === undefined ? 0 : box.top - Space);
      this.#beat.setAttribute('y2', box === undefined ? 0 : box.bottom + Space);
    }
    if (box !== undefined) this.#beat.setAttribute('transform', `translate(${this.#xAt(box, bar, tick, ticksPerQuarter).toFixed(0)} 0)`);
  }

  /** Bars that are chosen, by measure. */
  showChosen(measures) {
    for (const hit of this.hits.children) hit.classList.toggle('is-chosen', measures.has(Number(hit.dataset.measure)));
  }
}
