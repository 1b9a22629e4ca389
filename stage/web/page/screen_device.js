// The screen that the page is shown on: its colours, whether it stays awake, whether the page opens without the server.

const Themes = { dark: 'dark', light: 'light', contrast: 'high contrast' };
const Key = 'stage-theme';

function readKept() {
  try {
    return localStorage.getItem(Key);
  } catch {
    return null;
  }
}

export class ScreenDevice {
  #button;
  #wakeLock = null;
  #shell = 'no';

  constructor(button) {
    this.#button = button;
    const kept = readKept();
    const asked = matchMedia('(prefers-contrast: more)').matches ? 'contrast' : 'dark';
    this.#setTheme(Themes[kept] === undefined ? asked : kept);
    button.addEventListener('mousedown', (event) => event.preventDefault());
    button.addEventListener('click', () => this.nextTheme());
  }

  #setTheme(theme) {
    this.theme = theme;
    document.documentElement.dataset.theme = theme;
    document.querySelector('meta[name=theme-color]').content = theme === 'light' ? '#f6f7f8' : '#0d0f12';
    this.#button.textContent = theme === 'light' ? '☀' : theme === 'contrast' ? '◑' : '☾';
    this.#button.setAttribute('aria-label', `Colours: ${Themes[theme]}. Change`);
  }

  nextTheme() {
    const names = Object.keys(Themes);
    this.#setTheme(names[(names.indexOf(this.theme) + 1) % names.length]);
    try {
      localStorage.setItem(Key, this.theme);
    } catch {
      // Then it is chosen anew next time.
    }
  }

  start() {
    this.#stayAwake();
    // The system takes the lock away when the page is out of sight.
    document.addEventListener('visibilitychange', () => document.hidden || this.#stayAwake());
    if (!('serviceWorker' in navigator) || !isSecureContext) return;
    navigator.serviceWorker.register('service_worker.js').then(() => { this.#shell = 'yes'; }, () => { this.#shell = 'no'; });
  }

  async #stayAwake() {
    if (!('wakeLock' in navigator) || (this.#wakeLock && !this.#wakeLock.released)) return;
    try {
      this.#wakeLock = await navigator.wakeLock.request('screen');
    } catch {
      this.#wakeLock = null;
    }
  }

  describe() {
    const isAwake = this.#wakeLock !== null && !this.#wakeLock.released;
    const why = isSecureContext ? 'no: the system does not allow it' : 'no: this needs https, or this computer itself';
    return [['Colours', Themes[this.theme]], ['Stays awake', isAwake ? 'yes' : why], ['Opens without the server', this.#shell]];
  }
}
