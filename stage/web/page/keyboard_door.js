// Keys of the keyboard on their way to the show. What is typed into a field is the field's.

const CapsNames = new Set(['Spacebar']);

export class KeyboardDoor {
  #keys;
  #doors;

  constructor(keys, doors) {
    this.#keys = keys;
    this.#doors = doors;
    // Before anything on the page: a button that has the focus must not take Space for itself.
    addEventListener('keydown', (event) => this.#press(event), { capture: true });
    addEventListener('keyup', (event) => {
      if (event.key === ' ' && !doors.isTyping(event.target)) event.preventDefault();
    }, { capture: true });
  }

  #press(event) {
    if (event.ctrlKey || event.metaKey || event.altKey || event.isComposing) return;
    const { target } = event;
    const key = CapsNames.has(event.key) ? ' ' : event.key;
    if (this.#doors.isTyping(target)) {
      // The first Esc leaves the field; the next one is the show's.
      if (key === 'Escape') this.#leaveField(event);
      return;
    }
    const isButton = target instanceof Element && target.closest('button, a, summary') !== null;
    if (isButton && key === 'Enter' && this.#keys.mode === 'show') return;
    const isSlider = target instanceof Element && target.closest('input[type=range]') !== null;
    if (isSlider && /^(Arrow|Page|Home|End)/.test(key)) return;
    const action = this.#keys.take(key, this.#doors.context());
    if (action === null) return;
    event.preventDefault();
    // A key that is held down is one press; a value may run.
    if (event.repeat && action.kind === 'press' && !/^(tempo|volume) /.test(action.line)) return;
    this.#do(action);
    this.#doors.changed();
  }

  #leaveField(event) {
    if (event.target.closest('dialog') !== null) return;
    event.preventDefault();
    event.target.blur();
  }

  #do(action) {
    switch (action.kind) {
      case 'press': return this.#doors.press(action.line);
      case 'refuse': return this.#doors.refuse(action.sentence);
      case 'choose': return this.#doors.chooseSong(action.step);
      case 'load': return this.#doors.loadSong();
      default: return undefined;
    }
  }
}
