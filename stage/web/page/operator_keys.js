// What the operator's keys mean: as on the terminal's screen. Knows nothing of the page; it says what is to be pressed.

const PanicTimeMs = 2000;
const SettlingTimeMs = 500;
const LongestEntry = 16;
const VolumeStep = 5;
const TempoRange = [50, 200];

export const KeyRows = [
  ['Space', 'go on: start, or leave the vamp, fermata, caesura'],
  ['Enter', 'play'],
  ['P', 'pause'],
  ['Esc', 'stop; again within 2 seconds, or when stopped: panic, silence at once'],
  ['F, C', 'fade out in 3 seconds and stop; cancel the fade'],
  ['Left, Right', 'previous, next marker'],
  ['Up, Down', 'previous, next song; when stopped: choose from a list'],
  ['0-9, G', 'go to a bar: type 12 or 12:3, then Enter'],
  ['+, -', 'tempo up, down by 1 %'],
  ['[, ]', 'master volume down, up by 5 %'],
  ['{, }', 'the music’s volume likewise'],
  ['U, R, S', 'undo, redo the last edit; save the edits'],
  ['?', 'all keys'],
];

const None = { kind: 'none' };
const press = (line) => ({ kind: 'press', line });
const refuse = (sentence) => ({ kind: 'refuse', sentence });

/** The presses of one key after another, with what they open: `mode` is 'show', 'place', 'songs' or 'keys'. */
export class OperatorKeys {
  mode = 'show';
  entry = '';
  #lastEscape = null;
  #wanted = {};
  #readClock;

  constructor(readClock = () => performance.now()) {
    this.#readClock = readClock;
  }

  /**
   * `key` as KeyboardEvent.key has it; `context` says what the show does: {isMoving, tempoScale, volumes}, and whether the keys
   * that also move about a page belong to the show: {hasArrows}. Null where the key is the browser's.
   */
  take(key, context) {
    if (this.mode === 'place') return this.#takeInPlace(key);
    if (this.mode === 'songs') return this.#takeInSongs(key);
    if (this.mode === 'keys' && (key === 'Escape' || key === '?')) return this.#leave();
    return this.#takeInShow(key, context);
  }

  #leave() {
    this.mode = 'show';
    this.entry = '';
    return None;
  }

  #takeInShow(key, context) {
    if (context.hasArrows) {
      if (key === 'Enter') return press('play');
      if (key === 'ArrowLeft') return press('previous-marker');
      if (key === 'ArrowRight') return press('next-marker');
      if (key === 'ArrowUp') return this.#choose(-1, context);
      if (key === 'ArrowDown') return this.#choose(1, context);
    }
    if (key === 'Escape') return this.#stop(context);
    if (/^[0-9gG]$/.test(key)) {
      this.mode = 'place';
      this.entry = /[0-9]/.test(key) ? key : '';
      return None;
    }
    return this.#takeCharacter(key, context);
  }

  #takeCharacter(key, context) {
    const presses = { ' ': 'go', p: 'pause', f: 'fade 3', c: 'cancel-fade', u: 'undo', r: 'redo', s: 'save' };
    const line = presses[key.toLowerCase()];
    if (line !== undefined) return press(line);
    switch (key) {
      case '+': case '=': return this.#changeTempo(1, context);
      case '-': return this.#changeTempo(-1, context);
      case '[': return this.#changeVolume('master', -VolumeStep, context);
      case ']': return this.#changeVolume('master', VolumeStep, context);
      case '{': return this.#changeVolume('music', -VolumeStep, context);
      case '}': return this.#changeVolume('music', VolumeStep, context);
      case '?': this.mode = 'keys'; return None;
      default: return key.length === 1 ? refuse('This key has no meaning here: ? shows all keys.') : null;
    }
  }

  #takeInPlace(key) {
    if (key === 'Enter') {
      const place = this.entry;
      this.#leave();
      return place === '' ? None : press(`seek ${place}`);
    }
    if (key === 'Backspace') {
      this.entry = this.entry.slice(0, -1);
      return None;
    }
    if (key === ' ') {
      // Whatever is open, this key takes the show on.
      this.#leave();
      return press('go');
    }
    if (key.length !== 1) return ['Shift', 'Control', 'Alt', 'Meta', 'AltGraph', 'CapsLock', 'Tab'].includes(key) ? null : this.#leave();
    if (!/^[!-~]$/.test(key) || this.entry.length >= LongestEntry) return refuse('A place is a bar such as 12, or a beat such as 12:3.');
    this.entry += key;
    return None;
  }

  #takeInSongs(key) {
    if (key === 'ArrowUp') return { kind: 'choose', step: -1 };
    if (key === 'ArrowDown') return { kind: 'choose', step: 1 };
    if (key === 'Enter') {
      this.mode = 'show';
      return { kind: 'load' };
    }
    if (key === 'Escape') return this.#leave();
    if (key === 'Tab' || key === 'Shift') return null;
    // Going on here could start another song than the one that is being looked at.
    return refuse('Enter loads the song, Esc leaves the list; then the other keys have their meaning.');
  }

  #stop(context) {
    const now = this.#readClock();
    const isSecond = this.#lastEscape !== null && now - this.#lastEscape <= PanicTimeMs;
    this.#lastEscape = now;
    return press(isSecond || !context.isMoving ? 'panic' : 'stop');
  }

  #choose(step, context) {
    if (context.isMoving) return press(step < 0 ? 'previous' : 'next');
    this.mode = 'songs';
    return { kind: 'choose', step };
  }

  /** Presses that follow one another count from what was asked for: the state comes later. */
  #base(name, current) {
    const wanted = this.#wanted[name];
    if (wanted !== undefined && this.#readClock() - wanted.since < SettlingTimeMs) return wanted.percent;
    return Math.round(current * 100);
  }

  #want(name, percent, lowest, highest) {
    const clamped = Math.min(Math.max(percent, lowest), highest);
    this.#wanted[name] = { percent: clamped, since: this.#readClock() };
    return clamped;
  }

  #changeTempo(step, context) {
    return press(`tempo ${this.#want('tempo', this.#base('tempo', context.tempoScale ?? 1) + step, ...TempoRange)}%`);
  }

  #changeVolume(name, step, context) {
    const percent = this.#want(name, this.#base(name, context.volumes?.[name] ?? 1) + step, 0, 100);
    return press(`volume ${percent}%${name === 'master' ? '' : ` ${name}`}`);
  }
}
