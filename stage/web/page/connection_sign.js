// Whether the page shows the present, and how old it is where it does not.

import { setClass, setHidden, setText } from './elements.js';

export class ConnectionSign {
  #sign;
  #banner;
  #connection;
  #clock;

  constructor(sign, banner, connection, clock) {
    this.#sign = sign;
    this.#banner = banner;
    this.#connection = connection;
    this.#clock = clock;
  }

  describe() {
    if (this.#connection.state !== 'connected') return 'not connected';
    const roundTrip = this.#clock.roundTripMs;
    return roundTrip === null ? 'connected' : `connected, ${roundTrip < 10 ? roundTrip.toFixed(1) : Math.round(roundTrip)} ms there and back`;
  }

  show() {
    const { state, silenceMs } = this.#connection;
    const isConnected = state === 'connected';
    const age = silenceMs === null ? null : Math.floor(silenceMs / 1000);
    // Beats come every few milliseconds: a second of silence is worth a word before it is a loss.
    const isLate = isConnected && silenceMs > 1500;
    setText(this.#sign, isConnected ? (isLate ? `${age} s old` : 'connected') : 'NOT CONNECTED');
    setClass(this.#sign, 'is-alarm', !isConnected || isLate);
    setHidden(this.#banner, isConnected);
    // The seconds are for the eye: a screen reader is told once.
    if (isConnected) return;
    if (this.#banner.childElementCount === 0) {
      const text = document.createElement('span');
      const seconds = document.createElement('span');
      seconds.setAttribute('aria-hidden', 'true');
      this.#banner.append(text, seconds);
    }
    const [text, seconds] = this.#banner.children;
    setText(text, age === null ? 'Not connected to the show yet. It connects by itself.' : 'NOT CONNECTED: presses do nothing. It connects again by itself.');
    setText(seconds, age === null ? '' : ` What you see is ${age} s old.`);
  }
}
