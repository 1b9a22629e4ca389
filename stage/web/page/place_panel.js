// What a conductor reads at three metres: bar, beat, lamp, what is counted, and the facts of the place.

import { make, setClass, setHidden, setText } from './elements.js';
import { describePass } from './flow_picture.js';
import { beatsAround, describeSeconds, placeAt } from './song_time.js';

const Motions = { 'no song': 'NO SONG', stopped: 'STOPPED', playing: 'PLAYING', paused: 'PAUSED', fading: 'FADING', holding: 'HOLDING' };
const Statuses = { EndOfSong: 'End of song', AdvanceAttacca: 'Segue', Caesura: 'Caesura', Vamp: 'Vamp', Repeat: 'Repeat', Skip: 'Fermata' };

/** Beats a minute with one digit after the point where it has one. */
function describeTempo(state) {
  if (!state.song) return '–';
  const tempo = String(Math.round((state.tempo ?? 0) * 10) / 10);
  const own = `${Math.round((state.tempoScale ?? 1) * 1000) / 10}%`;
  const yours = own === state.scale ? '' : ` (yours ${own})`;
  return `${tempo} at ${state.scale}${yours}`;
}

function describeKey(state) {
  if (!state.transposition) return state.key || '–';
  const steps = Math.abs(state.transposition);
  return `${state.key}, ${state.transposition > 0 ? '+' : '−'}${steps} semitone${steps === 1 ? '' : 's'}`;
}

function describeLoop(loop) {
  return `${loop.kind} ${loop.place}: ${describePass(loop)}`;
}

export class PlacePanel {
  #facts = {};

  constructor() {
    this.number = make('span', { class: 'song-number' });
    this.title = make('span', { class: 'song-title' });
    this.motion = make('span', { class: 'motion' });
    this.elapsed = make('span', { class: 'time' });
    this.remaining = make('span', { class: 'time' });
    this.heading = make('div', { class: 'song-line' }, make('h2', {}, this.number, ' ', this.title), this.motion,
      make('p', { class: 'times' }, make('span', { class: 'name' }, 'elapsed '), this.elapsed, make('span', { class: 'name' }, ' remaining '), this.remaining));

    this.bar = make('span', { class: 'digits', id: 'bar' });
    this.beat = make('span', { class: 'digits', id: 'beat' });
    this.lights = make('p', { class: 'lights', 'aria-hidden': 'true' });
    this.place = make('div', { class: 'place' },
      make('p', { class: 'figure is-bar' }, make('span', { class: 'name' }, 'Bar'), this.bar),
      make('p', { class: 'figure is-beat' }, make('span', { class: 'name' }, 'Beat'), this.beat));

    this.lamp = make('p', { class: 'lamp', id: 'lamp' });
    this.count = make('span', { class: 'count-number' });
    this.countName = make('span', { class: 'count-name' });
    this.countdown = make('p', { class: 'countdown', id: 'countdown' }, this.countName, ' ', this.count);
    this.loops = make('ul', { class: 'loops', 'aria-label': 'Active loops' });
    this.flow = make('div', { class: 'flow-line' }, this.lamp, this.countdown, this.loops);
    this.facts = make('dl', { class: 'facts' }, ...['Tempo', 'Meter', 'Key', 'Page', 'Marker', 'Next'].map((name) => {
      this.#facts[name] = make('dd', { 'data-fact': name.toLowerCase() });
      return make('div', {}, make('dt', {}, name), this.#facts[name]);
    }));
  }

  /** The things that change with a message. */
  show(state) {
    setText(this.number, state.song || '–');
    setText(this.title, state.song ? state.title : 'No song is loaded');
    setText(this.motion, Motions[state.motion] ?? '');
    this.motion.dataset.motion = state.motion ?? '';
    setText(this.lamp, state.vampLamp ? '● LAMP ON' : '○ lamp off');
    setClass(this.lamp, 'is-on', state.vampLamp);
    this.#showCount(state);
    const loops = (state.loops ?? []).map(describeLoop);
    if (loops.join('\n') !== this.shownLoops) {
      this.shownLoops = loops.join('\n');
      this.loops.replaceChildren(...loops.map((text) => make('li', {}, text)));
    }
    setText(this.#facts.Tempo, describeTempo(state));
    setText(this.#facts.Meter, state.meter || '–');
    setText(this.#facts.Key, describeKey(state));
    setText(this.#facts.Page, state.page || '–');
    setText(this.#facts.Marker, state.marker || '–');
    setText(this.#facts.Next, state.nextMarker || '–');
  }

  /** The beats before a seam go before the display's own countdown. */
  #showCount(state) {
    const isLeaving = state.leavesInBeats !== undefined;
    const name = isLeaving ? 'Leaves in' : Statuses[state.status] ?? state.status ?? '';
    const count = isLeaving ? `${state.leavesInBeats} beat${state.leavesInBeats === 1 ? '' : 's'}` : state.status ? String(state.count) : '';
    setText(this.countName, name);
    setText(this.count, count);
    setHidden(this.countdown, name === '');
    setClass(this.countdown, 'is-urgent', isLeaving || ['Caesura', 'EndOfSong', 'AdvanceAttacca'].includes(state.status));
  }

  /** The things that change with time. */
  showPlace(model, tick) {
    const { state } = model;
    const song = model.getSong(state.song);
    const playhead = model.playhead ?? state;
    const place = song !== undefined && playhead.moving ? placeAt(song, tick) : playhead;
    setText(this.bar, place.bar || '–');
    setText(this.beat, place.beat || '–');
    setClass(this.place, 'is-long', String(place.bar).length > 3);
    if (song !== undefined) this.#showLights(song, tick);
    const { elapsed, remaining } = model.findTimes();
    setText(this.elapsed, describeSeconds(elapsed));
    setText(this.remaining, state.song ? describeSeconds(remaining) : '–');
  }

  #showLights(song, tick) {
    const { count, current } = beatsAround(song, tick);
    if (this.lights.childElementCount !== count) this.lights.replaceChildren(...Array.from({ length: count }, () => make('span', {})));
    [...this.lights.children].forEach((light, index) => setClass(light, 'is-on', index + 1 === current));
  }
}
