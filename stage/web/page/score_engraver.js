// The engraver as the page's views use it: asks the worker, keeps what it gave.

const KeptSheets = 80;

export class ScoreEngraver {
  #worker = null;
  #lastId = 0;
  #waiting = new Map();
  #kept = new Map();
  #fonts = new Set();
  #problem = '';

  #ask(task, request) {
    this.#worker ??= this.#start();
    if (this.#problem !== '') return Promise.reject(new Error(this.#problem));
    const id = ++this.#lastId;
    return new Promise((resolve, reject) => {
      this.#waiting.set(id, { resolve, reject });
      this.#worker.postMessage({ ...request, task, id });
    });
  }

  #start() {
    const worker = new Worker('score_worker.js', { type: 'module' });
    worker.onmessage = ({ data }) => {
      const { resolve, reject } = this.#waiting.get(data.id);
      this.#waiting.delete(data.id);
      if (data.problem === undefined) resolve(data.result);
      else reject(new Error(data.problem));
    };
    worker.onerror = () => {
      this.#problem = 'The engraver cannot be started: open the page anew, or look whether it is installed with the program.';
      for (const { reject } of this.#waiting.values()) reject(new Error(this.#problem));
      this.#waiting.clear();
    };
    return worker;
  }

  /** The scores may be others from now on. What is still asked for is never answered. */
  forget() {
    this.#worker?.terminate();
    this.#worker = null;
    this.#problem = '';
    this.#waiting.clear();
    this.#kept.clear();
  }

  #keep(task, request) {
    const key = JSON.stringify([task, request]);
    let answer = this.#kept.get(key);
    this.#kept.delete(key);
    if (answer === undefined) {
      answer = this.#ask(task, request);
      // What failed is asked for again.
      answer.catch(() => this.#kept.delete(key));
    }
    this.#kept.set(key, answer);
    for (const oldest of this.#kept.keys()) {
      if (this.#kept.size <= KeptSheets) break;
      this.#kept.delete(oldest);
    }
    return answer;
  }

  /**
   * Breaks a song into sheets: `request` is {song, part, width, height, scale}, part '' for the whole score, sizes in pixels.
   * Promises {parts, measures: [{id, onsets}], sheets: of each measure its sheet from 1, count}; the problem is one sentence.
   */
  findSheets(request) {
    return this.#keep('sheets', request);
  }

  /** Promises a sheet as an element of its own each time. */
  async drawSheet(request, page) {
    const { svg, font } = await this.#keep('sheet', { ...request, page });
    if (font !== null) this.#addFont(font);
    const parsed = new DOMParser().parseFromString(svg, 'image/svg+xml').documentElement;
    for (const styled of parsed.querySelectorAll('[data-style]')) {
      styled.style.cssText = styled.dataset.style;
      delete styled.dataset.style;
    }
    parsed.querySelector('svg')?.removeAttribute('color');
    return document.importNode(parsed, true);
  }

  /** For notes within words, such as those of a metronome mark. */
  #addFont({ name, data }) {
    if (this.#fonts.has(name)) return;
    this.#fonts.add(name);
    const bytes = Uint8Array.from(atob(data), (character) => character.charCodeAt(0));
    document.fonts.add(new FontFace(name, bytes));
  }
}
