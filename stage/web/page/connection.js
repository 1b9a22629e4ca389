// The socket to the server: it comes back by itself, asks what the server's clock says, and pairs presses with answers.

const LostAfterMs = 3000;
const FirstWaitMs = 250;
const LongestWaitMs = 2000;
const ProbeEveryMs = 5000;
const FirstProbes = 5;

/** What became of a press that was never sent, or whose answer never came. */
const NotConnected = 'The page is not connected: nothing was sent.';
const AnswerLost = 'The connection was lost before the answer came: look whether it was taken.';

export class Connection {
  #socket = null;
  #state = 'connecting';
  #handlers;
  #clock;
  #pending = new Map();
  #lastId = 0;
  #lastSeq = null;
  #lastHeard = null;
  #waitMs = FirstWaitMs;
  #timer = null;
  #probesLeft = 0;
  #nextProbe = 0;
  #opened = 0;

  /**
   * `handlers.onMessage(message)` gets every message but those for the clock; `handlers.onState(state)` hears of 'connecting',
   * 'connected' and 'lost'; `handlers.mayConnect()`, a promise, says before each attempt whether there is a point in it.
   */
  constructor(url, clock, handlers) {
    this.url = url;
    this.#clock = clock;
    this.#handlers = handlers;
    setInterval(() => this.#watch(), 250);
    addEventListener('online', () => this.#hurry());
    document.addEventListener('visibilitychange', () => document.hidden || this.#hurry());
    addEventListener('pagehide', () => this.#socket?.close());
  }

  get state() {
    return this.#state;
  }

  /** Milliseconds since the server was last heard; null before the first time. */
  get silenceMs() {
    return this.#lastHeard === null ? null : performance.now() - this.#lastHeard;
  }

  /** Connects now; after that it does so by itself. */
  async connect() {
    clearTimeout(this.#timer);
    this.#timer = null;
    if (this.#socket !== null) return;
    // Marks the attempt: a second one must not begin while this one asks.
    const attempt = {};
    this.#socket = { close() {}, attempt };
    const may = await this.#handlers.mayConnect().catch(() => false);
    if (this.#socket?.attempt !== attempt) return;
    this.#socket = null;
    if (!may) return this.#retry();
    this.#open();
  }

  #open() {
    const socket = new WebSocket(this.url);
    this.#socket = socket;
    this.#lastSeq = null;
    this.#opened = performance.now();
    socket.onmessage = (event) => {
      if (socket === this.#socket) this.#receive(event.data);
    };
    socket.onclose = () => {
      if (socket === this.#socket) this.#lose();
    };
  }

  #receive(data) {
    this.#lastHeard = performance.now();
    const message = JSON.parse(data);
    if (message.seq !== undefined) {
      // A gap cannot be filled: the whole state comes with a new connection.
      if (this.#lastSeq !== null && message.seq !== this.#lastSeq + 1) return this.#lose();
      this.#lastSeq = message.seq;
    }
    if (message.now !== undefined && message.type !== 'time') this.#clock.noteMessage(message.now);
    if (message.type === 'time') return this.#clock.note(message.t, this.#lastHeard, message.now), this.#probeAgain();
    if (message.type === 'heartbeat') return;
    if (message.type === 'hello') this.#greet();
    if (message.type === 'state' && this.#state !== 'connected') this.#change('connected');
    this.#handlers.onMessage(message);
    if (message.id !== undefined) this.#settle(message.id, message);
  }

  #greet() {
    this.#waitMs = FirstWaitMs;
    this.#probesLeft = FirstProbes;
    this.#probe();
  }

  #probeAgain() {
    if (--this.#probesLeft > 0) this.#probe();
  }

  #probe() {
    this.#nextProbe = performance.now() + ProbeEveryMs;
    this.#send({ type: 'time', t: performance.now() });
  }

  #watch() {
    const now = performance.now();
    if (this.#state === 'connected') {
      if (now - this.#lastHeard > LostAfterMs) return this.#lose();
      if (now > this.#nextProbe) this.#probe();
    } else if (this.#socket instanceof WebSocket && now - this.#opened > LostAfterMs) {
      this.#lose();
    }
  }

  #lose() {
    const socket = this.#socket;
    this.#socket = null;
    socket?.close();
    for (const id of [...this.#pending.keys()]) this.#settle(id, { outcome: 'failed', sentence: AnswerLost });
    this.#change(this.#lastHeard === null ? 'connecting' : 'lost');
    this.#retry();
  }

  #retry() {
    if (this.#timer !== null) return;
    this.#timer = setTimeout(() => {
      this.#timer = null;
      this.connect();
    }, this.#waitMs);
    this.#waitMs = Math.min(this.#waitMs * 1.5, LongestWaitMs);
  }

  #hurry() {
    if (this.#socket !== null) return;
    this.#waitMs = FirstWaitMs;
    this.connect();
  }

  #change(state) {
    if (state === this.#state) return;
    this.#state = state;
    this.#handlers.onState(state);
  }

  #send(object) {
    if (this.#socket?.readyState !== WebSocket.OPEN) return false;
    this.#socket.send(JSON.stringify(object));
    return true;
  }

  #settle(id, answer) {
    this.#pending.get(id)?.(answer);
    this.#pending.delete(id);
  }

  /**
   * Sends a press or an edit; the promise becomes its record, or one with the outcome 'failed' and a sentence. What cannot be
   * sent at once is never sent: a GO that comes late is worse than none.
   */
  request(message) {
    if (this.#state !== 'connected') return Promise.resolve({ outcome: 'failed', sentence: NotConnected });
    const id = ++this.#lastId;
    return new Promise((resolve) => {
      this.#pending.set(id, resolve);
      if (!this.#send({ ...message, id })) this.#settle(id, { outcome: 'failed', sentence: NotConnected });
    });
  }

  /** Gives the connection up and makes it anew, after a log-in for instance. */
  renew() {
    const socket = this.#socket;
    this.#socket = null;
    socket?.close();
    this.#hurry();
  }
}
