// A song's flow as a picture: its bars in rows as wide as the screen, what the edits do to them, and where the music is.

import { draw, make } from './elements.js';
import { listBars, nestLoops } from './song_time.js';

const Margin = 10;
const BarHeight = 34;
const LoopHeight = 16;
const MarkerHeight = 16;
const SignHeight = 15;
const BandHeight = 6;
const RowGap = 14;
const SmallestBar = 34;
const WidestBar = 110;

const LoopNames = { vamp: 'Vamp', repeat: 'Repeat' };
const BandKinds = { 'tempo scale': 'scale', transposition: 'transposition', click: 'click', 'ambient sfx': 'ambience' };
const Signs = { caesura: '//', sfx: '♪', OSC: '▸' };

/** The text that stands for an edit in a list and in what a screen reader says. */
export function describeEdit(edit) {
  return [edit.kind, edit.place, edit.value].filter((part) => part).join(' ');
}

/** Breaks the bars into rows of at most `width`; bars of one length are equally wide in all of them. */
export function breakIntoRows(song, width) {
  const bars = listBars(song);
  const usual = [...bars].sort((a, b) => a.end - a.tick - (b.end - b.tick))[bars.length >> 1];
  const usualTicks = Math.max(usual.end - usual.tick, 1);
  const inRow = Math.max(2, Math.floor(width / Math.min(WidestBar, Math.max(SmallestBar, width / 16))));
  const weigh = (bar) => Math.max(bar.end - bar.tick, usualTicks * 0.4);
  const whole = bars.reduce((sum, bar) => sum + weigh(bar), 0);
  // Rows of like length: no bar is left alone in the last one.
  const rowCount = Math.max(Math.ceil(whole / (usualTicks * inRow) - 0.001), 1);
  const room = usualTicks * Math.ceil(whole / rowCount / usualTicks - 0.001);
  const rows = [];
  let row = null;
  for (const bar of bars) {
    const weight = weigh(bar);
    if (row === null || row.weight + weight > room * 1.001) rows.push((row = { bars: [], weight: 0 }));
    row.bars.push({ ...bar, weight });
    row.weight += weight;
  }
  const scale = width / Math.max(room, ...rows.map((each) => each.weight));
  for (const each of rows) {
    let left = 0;
    for (const bar of each.bars) {
      Object.assign(bar, { left, width: bar.weight * scale });
      left += bar.width;
    }
    each.start = each.bars[0].tick;
    each.end = each.bars.at(-1).end;
    each.width = left;
  }
  return rows;
}

function findX(row, tick) {
  const bar = row.bars.findLast((each) => each.tick <= tick) ?? row.bars[0];
  const share = Math.min(Math.max((tick - bar.tick) / Math.max(bar.end - bar.tick, 1), 0), 1);
  return Margin + bar.left + share * bar.width;
}

function findBar(row, x) {
  return row.bars.findLast((each) => each.left + Margin <= x) ?? row.bars[0];
}

export class FlowPicture {
  #holder;
  #svg = null;
  #song = null;
  #shownWidth = 0;
  #width = 0;
  #scale = 1;
  #rows = [];
  // Over the picture: moving it draws nothing of the picture again.
  #playhead = make('div', { class: 'playhead' });
  #playheadPlace = '';
  #loops = [];
  #shownRow = null;
  #selection = null;

  /**
   * `onBar(bar)` is called with the bar that was clicked, {label, tick, end}; `onSpan({first, last})`, where it is given, instead,
   * with the bars that were chosen by a click or by pulling.
   */
  constructor(holder, { onBar, onSpan } = {}) {
    this.#holder = holder;
    this.onBar = onBar;
    this.onSpan = onSpan;
    new ResizeObserver(() => this.#fit()).observe(holder);
    this.#listen();
  }

  #fit() {
    const width = Math.floor(this.#holder.clientWidth);
    if (width !== this.#shownWidth && width > 0 && this.#song !== null) this.#build();
  }

  show(song) {
    if (song === this.#song) return;
    this.#song = song;
    this.#shownRow = null;
    if (song === null) this.#holder.replaceChildren();
    else this.#build();
  }

  #build() {
    this.#shownWidth = Math.floor(this.#holder.clientWidth);
    // On a wall the text is larger, and the picture with it.
    this.#scale = Math.max(parseFloat(getComputedStyle(document.documentElement).fontSize) / 16, 1);
    this.#width = Math.floor(this.#shownWidth / this.#scale);
    if (this.#width <= 2 * Margin || this.#song.bars.length === 0) return;
    this.#rows = breakIntoRows(this.#song, this.#width - 2 * Margin);
    const edits = this.#song.edits;
    const loops = nestLoops(edits.filter((edit) => LoopNames[edit.kind]));
    this.#loops = [];
    const parts = [];
    let top = 4;
    for (const row of this.#rows) {
      const inRow = (list) => list.filter((edit) => edit.start < row.end && (edit.end > row.start || edit.start >= row.start));
      const rowLoops = inRow(loops);
      const rowEdits = inRow(edits);
      const bands = Object.keys(BandKinds).filter((kind) => rowEdits.some((edit) => edit.kind === kind));
      this.#placeRow(row, top, rowEdits, rowLoops, bands.length);
      parts.push(this.#drawRow(row, rowEdits, rowLoops, bands));
      top = row.bottom + RowGap;
    }
    this.#svg = draw('svg', { class: 'flow', width: this.#shownWidth, height: Math.ceil(top * this.#scale), viewBox: `0 0 ${this.#width} ${top}`, role: 'img', 'aria-label': this.#describe() },
      draw('defs', {}, draw('pattern', { id: 'cut-hatch', width: 7, height: 7, patternUnits: 'userSpaceOnUse', patternTransform: 'rotate(45)' }, draw('path', { class: 'hatch', d: 'M0 0V7' }))),
      ...parts);
    this.#holder.replaceChildren(this.#svg, this.#playhead);
    this.#playheadPlace = '';
    this.#shownRow = null;
    this.showSelection(this.#selection);
  }

  /** What stands above the bars gets its room: markers, loops in their levels, signs. */
  #placeRow(row, top, edits, loops, bandCount) {
    const hasMarker = edits.some((edit) => edit.kind === 'marker' && edit.start >= row.start);
    const hasSign = edits.some((edit) => edit.kind === 'fermata' || Signs[edit.kind]);
    row.top = top;
    row.levels = loops.reduce((most, loop) => Math.max(most, loop.level + 1), 0);
    row.loopTop = top + (hasMarker ? MarkerHeight : 0);
    row.barTop = row.loopTop + row.levels * LoopHeight + (hasSign ? SignHeight : 0);
    row.bottom = row.barTop + BarHeight + bandCount * (BandHeight + 2);
  }

  #describe() {
    const song = this.#song;
    const edits = song.edits.map(describeEdit).join('; ');
    return `Song ${song.number}, ${song.bars.length} bars${edits ? `: ${edits}` : ', without edits'}`;
  }

  #drawRow(row, edits, loops, bandKinds) {
    const group = draw('g', {});
    for (const bar of row.bars) {
      const isCut = edits.some((edit) => edit.kind === 'cut' && edit.start <= bar.tick && edit.end >= bar.end);
      group.append(draw('rect', { class: isCut ? 'bar is-cut' : 'bar', x: Margin + bar.left, y: row.barTop, width: bar.width, height: BarHeight, 'data-tick': bar.tick, 'data-bar': bar.label }));
      if (bar.width > 8 * bar.label.length) group.append(draw('text', { class: isCut ? 'label is-cut' : 'label', x: Margin + bar.left + 4, y: row.barTop + 14 }, bar.label));
    }
    for (const edit of edits) this.#drawEdit(group, row, edit);
    for (const loop of loops) this.#drawLoop(group, row, loop);
    bandKinds.forEach((kind, lane) => {
      const y = row.barTop + BarHeight + 2 + lane * (BandHeight + 2);
      for (const edit of edits.filter((each) => each.kind === kind)) {
        const x = findX(row, Math.max(edit.start, row.start));
        const end = this.#findEnd(row, edit.end);
        group.append(draw('rect', { class: `band ${BandKinds[kind]}`, x, y, width: Math.max(end - x, 2), height: BandHeight }, draw('title', {}, describeEdit(edit))));
      }
    });
    return group;
  }

  #findEnd(row, tick) {
    return tick >= row.end ? Margin + row.width : findX(row, tick);
  }

  #drawEdit(group, row, edit) {
    const isHere = edit.start >= row.start && edit.start < row.end;
    const signY = row.barTop - 4;
    if (edit.kind === 'cut') {
      const x = findX(row, Math.max(edit.start, row.start));
      group.append(draw('rect', { class: 'cut', x, y: row.barTop, width: Math.max(this.#findEnd(row, edit.end) - x, 2), height: BarHeight }, draw('title', {}, describeEdit(edit))));
    } else if (edit.kind === 'marker' && isHere) {
      const text = edit.value.replace(/^"|"$/g, '');
      const x = findX(row, edit.start);
      const room = Margin + row.width - x;
      const isNear = text.length * 7 > room && room < this.#width / 3;
      group.append(draw('text', { class: 'marker', x: isNear ? x + 2 : x, y: row.top + 11, 'text-anchor': isNear ? 'end' : 'start' }, text));
      group.append(draw('line', { class: 'marker-line', x1: x, x2: x, y1: row.top + 13, y2: row.barTop + BarHeight }));
    } else if (edit.kind === 'fermata') {
      const end = Math.min(edit.end, row.end);
      if (edit.end > row.start && edit.end <= row.end) {
        const x = (findX(row, Math.max(edit.start, row.start)) + this.#findEnd(row, end)) / 2;
        group.append(draw('path', { class: 'fermata', d: `M${x - 9} ${signY}a9 9 0 0 1 18 0` }, draw('title', {}, describeEdit(edit))), draw('circle', { class: 'fermata-dot', cx: x, cy: signY - 2, r: 2 }));
      }
    } else if (Signs[edit.kind] && isHere) {
      group.append(draw('text', { class: `sign ${edit.kind.toLowerCase()}`, x: findX(row, edit.start) + 2, y: signY + 1 }, Signs[edit.kind], draw('title', {}, describeEdit(edit))));
    }
  }

  #drawLoop(group, row, loop) {
    const x = findX(row, Math.max(loop.start, row.start));
    const room = Math.max(this.#findEnd(row, loop.end) - x, 4);
    const y = row.loopTop + (row.levels - 1 - loop.level) * LoopHeight;
    const shape = draw('rect', { class: `loop ${loop.kind}`, x: x + 1, y: y + 1, width: room - 2, height: LoopHeight - 3, rx: 4 }, draw('title', {}, describeEdit(loop)));
    const wash = draw('rect', { class: `wash ${loop.kind}`, x, y: row.barTop, width: room, height: BarHeight });
    const text = loop.start >= row.start ? LoopNames[loop.kind] : '';
    const label = draw('text', { class: `loop-label ${loop.kind}`, x: x + 6, y: y + 11 }, text);
    group.append(wash, shape, label);
    this.#loops.push({ start: loop.start, end: loop.end, kind: loop.kind, shape, wash, label, text, room });
  }

  /** Lights the loops that are active with their pass. */
  showLoops(active) {
    for (const drawn of this.#loops) {
      const loop = (active ?? []).find((each) => each.start === drawn.start && each.end === drawn.end && each.kind === drawn.kind);
      const isLit = loop !== undefined;
      drawn.shape.classList.toggle('is-lit', isLit);
      drawn.wash.classList.toggle('is-lit', isLit);
      drawn.label.classList.toggle('is-lit', isLit);
      let text = drawn.text;
      if (isLit && drawn.text) text = drawn.room > 110 ? `${drawn.text} ${describePass(loop)}` : `${loop.pass}`;
      if (drawn.label.textContent !== text) drawn.label.textContent = text;
    }
  }

  /** Moves the playhead; the row that it is in is kept in view. */
  showTick(tick) {
    if (this.#rows.length === 0) return;
    const row = this.#rows.findLast((each) => each.start <= tick) ?? this.#rows[0];
    const place = `translate(${(findX(row, tick) * this.#scale).toFixed(1)}px, ${(row.barTop * this.#scale).toFixed(1)}px) scale(${this.#scale})`;
    if (place !== this.#playheadPlace) this.#playhead.style.transform = this.#playheadPlace = place;
    if (row === this.#shownRow) return;
    this.#shownRow = row;
    const { scrollTop, clientHeight } = this.#holder;
    const [top, bottom] = [row.top * this.#scale, (row.bottom + 4) * this.#scale];
    if (top < scrollTop || bottom > scrollTop + clientHeight) this.#holder.scrollTop = Math.max(top - 12, 0);
  }

  /** The bars from `first` to `last` are chosen; null for none. */
  showSelection(span) {
    this.#selection = span;
    for (const rect of this.#svg?.querySelectorAll('.bar') ?? []) {
      const tick = Number(rect.dataset.tick);
      rect.classList.toggle('is-chosen', span !== null && tick >= span.first.tick && tick <= span.last.tick);
    }
  }

  #findBar(event) {
    const box = this.#svg?.getBoundingClientRect();
    if (box === undefined) return null;
    const y = (event.clientY - box.top) / this.#scale;
    const row = this.#rows.find((each) => y <= each.bottom + RowGap / 2) ?? this.#rows.at(-1);
    return row === undefined ? null : findBar(row, (event.clientX - box.left) / this.#scale);
  }

  /** A click means a bar; pulling from one bar to another means both and what is between. */
  #listen() {
    let first = null;
    this.#holder.addEventListener('mousedown', (event) => event.preventDefault());
    this.#holder.addEventListener('pointerdown', (event) => {
      first = event.button === 0 ? this.#findBar(event) : null;
    });
    this.#holder.addEventListener('pointermove', (event) => {
      if (first === null || !this.onSpan || event.buttons === 0) return;
      this.#tellSpan(first, this.#findBar(event));
    });
    this.#holder.addEventListener('pointercancel', () => { first = null; });
    this.#holder.addEventListener('pointerup', (event) => {
      if (first === null) return;
      const last = this.#findBar(event);
      if (this.onSpan) this.#tellSpan(first, last);
      else if (last === first || last?.tick === first.tick) this.onBar?.(first);
      first = null;
    });
  }

  #tellSpan(one, other) {
    if (other === null) return;
    const [first, last] = one.tick <= other.tick ? [one, other] : [other, one];
    this.onSpan({ first, last });
  }
}

/** "pass 2 of 4", "pass 2, leaves at its end". */
export function describePass(loop) {
  return `pass ${loop.pass}${loop.limit > 0 ? ` of ${loop.limit}` : ''}${loop.left ? ', leaves at its end' : ''}`;
}
