// All that the page knows of the show, kept from the server's messages. Views read it and are told when it has changed.

import { limitRun, SteadyTick } from './song_time.js';

const KeptPresses = 40;
const KeptMessages = 20;
/** Longer than this nothing is guessed: the playhead waits for the next report. They come six times as often. */
const LongestRunMs = 200;
const RetryMs = 2000;
/** Events after which the music is somewhere else. */
const Elsewhere = new Set(['song', 'started', 'stopped', 'put', 'jump', 'song-end']);

export class ShowModel {
  #clock;
  #listeners = new Set();
  #songs = new Map();
  #loading = new Set();
  #retryAt = new Map();

  run = '';
  version = '';
  role = 'view';
  hasEngraver = false;
  show = { title: '', songs: [] };
  state = {};
  playhead = null;
  /** How loud it is: {main: {peak, rms}, groups: {name: {peak, rms}}}. */
  meters = null;
  #nextPlayhead = null;
  #steady = new SteadyTick();
  presses = [];
  messages = [];
  editCount = 0;

  constructor(clock) {
    this.#clock = clock;
  }

  /** `listener(message)` is called after each message that has changed something. */
  listen(listener) {
    this.#listeners.add(listener);
  }

  get isMoving() {
    return ['playing', 'fading', 'holding'].includes(this.state.motion);
  }

  get mayOperate() {
    return this.role !== 'view';
  }

  /** Why edits cannot be made; empty where they can. */
  get editRefusal() {
    if (this.state.locked) return 'The show is locked: its edits cannot be changed.';
    if (this.role !== 'edit') return 'This passcode does not allow edits.';
    return '';
  }

  take(message) {
    const takers = {
      hello: () => this.#takeHello(message),
      state: () => this.#takeState(message),
      change: () => this.#takeChange(message.state),
      playhead: () => this.#takePlayhead(message),
      status: () => Object.assign(this.state, { status: message.status, count: message.count }),
      record: () => this.#keep(this.presses, message, KeptPresses),
      message: () => this.#keep(this.messages, message, KeptMessages),
      edits: () => this.#takeEdits(message),
      event: () => Elsewhere.has(message.event) && this.#steady.forget(),
    };
    takers[message.type]?.();
    this.#tell(message);
  }

  #keep(list, entry, most) {
    list.unshift({ ...entry, moment: new Date() });
    list.length = Math.min(list.length, most);
  }

  #takeHello(message) {
    if (message.run !== this.run) this.#songs.clear();
    this.run = message.run;
    this.version = message.version;
    this.role = message.role;
    this.show = message.show;
    this.hasEngraver = Boolean(message.engraver);
  }

  #takeState({ at, state }) {
    // Edits may have been made while nobody told us.
    this.#songs.clear();
    this.state = {};
    this.#takeChange(state);
    this.#nextPlayhead = null;
    this.#steady.forget();
    const { song, tick, bar, beat, moving, ticksPerSecond, elapsed, remaining, meters } = state;
    this.playhead = { at: at ?? this.#clock.now(), song, tick, bar, beat, moving, ticksPerSecond, elapsed, remaining, meters };
    this.meters = meters ?? null;
  }

  #takeChange(changes) {
    for (const [name, value] of Object.entries(changes)) {
      if (value === null) delete this.state[name];
      else this.state[name] = value;
    }
  }

  #takePlayhead(message) {
    this.meters = message.meters ?? null;
    this.#settlePlayhead();
    if (this.playhead === null || message.at <= this.#clock.now() || !message.moving) {
      this.playhead = message;
      this.#nextPlayhead = null;
    } else {
      this.#nextPlayhead = message;
    }
  }

  /** What is told of a moment that is still to come counts from then on. */
  #settlePlayhead() {
    if (this.#nextPlayhead !== null && this.#nextPlayhead.at <= this.#clock.now()) {
      this.playhead = this.#nextPlayhead;
      this.#nextPlayhead = null;
    }
  }

  #takeEdits(message) {
    ++this.editCount;
    Object.assign(this.state, { version: message.version, unsaved: message.unsaved });
    for (const number of message.songs) this.#songs.delete(number);
  }

  /** The tick that is heard now, as far as this is known. */
  findTick() {
    this.#settlePlayhead();
    const { playhead } = this;
    if (playhead === null) return 0;
    if (!playhead.moving) {
      this.#steady.forget();
      return playhead.tick;
    }
    const run = Math.min(Math.max(this.#clock.now() - playhead.at, 0), LongestRunMs);
    const tick = playhead.tick + (run / 1000) * playhead.ticksPerSecond;
    const song = this.#songs.get(playhead.song);
    const reached = song === undefined ? tick : limitRun(song, this.state.loops, playhead.tick, tick);
    return this.#steady.follow(reached, (LongestRunMs / 1000) * playhead.ticksPerSecond);
  }

  /** Seconds since playback began and until the song's end as written, running on between reports: {elapsed, remaining}. */
  findTimes() {
    const { elapsed, remaining, moving, at } = this.playhead ?? {};
    const run = moving ? Math.min(Math.max(this.#clock.now() - at, 0), LongestRunMs) / 1000 : 0;
    return { elapsed: (elapsed ?? 0) + run, remaining: Math.max((remaining ?? 0) - run, 0) };
  }

  /** The song's bars, beats and edits if they are here; else they are sent for, and the listeners hear of 'song'. */
  getSong(number) {
    if (!number) return undefined;
    const song = this.#songs.get(number);
    if (song === undefined) this.#load(number);
    return song;
  }

  async #load(number) {
    if (this.#loading.has(number) || performance.now() < (this.#retryAt.get(number) ?? 0)) return;
    const asked = this.editCount;
    this.#loading.add(number);
    try {
      const answer = await fetch(`api/song/${encodeURIComponent(number)}`, { cache: 'no-store' });
      if (!answer.ok) throw new Error(`song ${number} is not to be had`);
      const song = await answer.json();
      // An edit that was made meanwhile is not in it: the next look asks again.
      if (asked === this.editCount) this.#songs.set(number, song);
    } catch {
      // The connection's state says what is wrong.
      this.#retryAt.set(number, performance.now() + RetryMs);
      setTimeout(() => this.#tell({ type: 'song', song: number }), RetryMs);
    }
    this.#loading.delete(number);
    this.#tell({ type: 'song', song: number });
  }

  #tell(message) {
    for (const listener of this.#listeners) listener(message);
  }
}
