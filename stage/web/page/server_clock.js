// The server's clock as this page knows it. All times are milliseconds.

const KeptProbes = 12;
const OldestProbeMs = 60000;

export class ServerClock {
  #probes = [];
  #readOwn;

  /** `readOwn` tells this page's own clock, which never jumps. */
  constructor(readOwn = () => performance.now()) {
    this.#readOwn = readOwn;
  }

  /**
   * An answer has come: the request left at `sent` and was back at `received` of the own clock, and the server's clock said
   * `serverNow` in between. The shortest way there and back tells the difference best.
   */
  note(sent, received, serverNow) {
    this.#probes = this.#probes.filter((probe) => received - probe.received < OldestProbeMs).slice(1 - KeptProbes);
    this.#probes.push({ roundTrip: received - sent, received, difference: serverNow - (sent + received) / 2 });
  }

  /** Without a probe a message of the server is all that there is: it is late by its way here. */
  noteMessage(serverNow) {
    if (this.#probes.length === 0) this.#probes.push({ roundTrip: Infinity, received: this.#readOwn(), difference: serverNow - this.#readOwn() });
  }

  /** After the server was started anew its clock is another one. */
  forget() {
    this.#probes = [];
  }

  #best() {
    return this.#probes.reduce((best, probe) => (best === null || probe.roundTrip <= best.roundTrip ? probe : best), null);
  }

  /** The shortest way there and back that is known; null without one. */
  get roundTripMs() {
    const best = this.#best();
    return best === null || best.roundTrip === Infinity ? null : best.roundTrip;
  }

  now() {
    return this.#readOwn() + (this.#best()?.difference ?? 0);
  }
}
