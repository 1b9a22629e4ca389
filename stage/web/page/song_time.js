// Where things are in a song: bars and beats by tick, and what the production's edits make of them. Pure functions over what
// /api/song/N gives.

/** The last element of an ascending list whose `tick` is not after `tick`; undefined before the first. */
export function lastAt(list, tick) {
  let low = 0;
  let high = list.length;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (list[middle].tick <= tick) low = middle + 1;
    else high = middle;
  }
  return list[low - 1];
}

/** Bars with their ends: {label, tick, end}. */
export function listBars(song) {
  return song.bars.map((bar, index) => ({
    ...bar,
    end: index + 1 < song.bars.length ? song.bars[index + 1].tick : song.endTick,
  }));
}

/** The bar and beat at a tick, as the performers count: {bar: '17', beat: '3'}, with the beat's own length. */
export function placeAt(song, tick) {
  const beat = lastAt(song.clickedBeats, tick) ?? song.clickedBeats[0];
  if (beat === undefined) return { bar: lastAt(song.bars, tick)?.label ?? '', beat: '' };
  return { bar: beat.bar, beat: String(beat.beat), tick: beat.tick };
}

/** How many beats the bar at a tick has, and which one it is, for the row of lights: {count, current}. */
export function beatsAround(song, tick) {
  const bar = lastAt(song.bars, tick);
  if (bar === undefined) return { count: 0, current: 0 };
  const next = song.bars.find((other) => other.tick > bar.tick)?.tick ?? song.endTick;
  const beats = song.clickedBeats.filter((beat) => beat.tick >= bar.tick && beat.tick < next);
  return { count: beats.length, current: beats.filter((beat) => beat.tick <= tick).length };
}

/**
 * Between two reports of the position the playhead runs on by itself, but never over an edge that only flow control knows how
 * to take: the end of a loop that is active, the beginning of a cut, a caesura, the end of the song.
 */
export function limitRun(song, loops, from, to) {
  let limit = song.endTick;
  // Also of one that was left: word of that may come before word of the jump that the pass before it ended with.
  for (const loop of loops ?? []) if (loop.end > from) limit = Math.min(limit, loop.end);
  for (const edit of song.edits ?? []) {
    const isEdge = edit.kind === 'cut' || edit.kind === 'caesura';
    if (isEdge && edit.start > from) limit = Math.min(limit, edit.start);
  }
  return Math.min(to, Math.max(from, limit - 1));
}

/**
 * The playhead as it is shown while the music moves. Where the sound was late it has run on too far, and waits there for the
 * music instead of going back, for a bar that is announced and taken back again misleads everybody. A jump is for `forget`.
 */
export class SteadyTick {
  #shown = null;

  /** What is shown of `tick`, at most `longest` ticks after it. */
  follow(tick, longest) {
    const isTooFar = this.#shown !== null && this.#shown > tick && this.#shown - tick <= longest;
    if (!isTooFar) this.#shown = tick;
    return this.#shown;
  }

  /** The next tick counts, wherever it is. */
  forget() {
    this.#shown = null;
  }
}

/** The semitones that the edits ask for at a tick. */
export function editedSemitones(song, tick) {
  const edit = song?.edits.find((each) => each.kind === 'transposition' && each.start <= tick && tick < each.end);
  const match = /^(up|down) (\d+)/.exec(edit?.value ?? '');
  return match === null ? 0 : Number(match[2]) * (match[1] === 'up' ? 1 : -1);
}

/** Levels for loops of a picture: one lies above all that it covers. Takes and returns edits with a `level`. */
export function nestLoops(loops) {
  const byLength = [...loops].sort((a, b) => a.end - a.start - (b.end - b.start));
  const placed = [];
  for (const loop of byLength) {
    const under = placed.filter((other) => other.start < loop.end && loop.start < other.end);
    placed.push({ ...loop, level: under.reduce((level, other) => Math.max(level, other.level + 1), 0) });
  }
  return placed;
}

/** "3:07", "1:02:45". */
export function describeSeconds(seconds) {
  const whole = Math.max(0, Math.floor(seconds ?? 0));
  const two = (number) => String(number).padStart(2, '0');
  const hours = Math.floor(whole / 3600);
  const minutes = Math.floor(whole / 60) % 60;
  return hours > 0 ? `${hours}:${two(minutes)}:${two(whole % 60)}` : `${minutes}:${two(whole % 60)}`;
}
