// The output groups: how loud each is, its volume, mute and solo.

import { clickButton, make, setClass } from './elements.js';
import { LevelMeter } from './level_meter.js';
import { Slider } from './controls_panel.js';

export class GroupsPanel {
  #press;
  #rows = new Map();
  #enabled = null;

  /** `press(line)` sends a press. */
  constructor(press) {
    this.#press = press;
    this.main = new LevelMeter('Level of the main output');
    this.list = make('div', { class: 'groups' });
    this.element = make('section', { class: 'panel', 'aria-label': 'Levels and groups' }, make('h3', {}, 'Levels and groups'),
      make('div', { class: 'row' }, make('span', { class: 'row-name' }, 'Main'), this.main.element), this.list);
  }

  #makeRow(name) {
    const quoted = /^[\w.-]+$/.test(name) ? name : `"${name}"`;
    const meter = new LevelMeter(`Level of ${name}`);
    const slider = new Slider({ name: `Volume of ${name}`, min: 0, max: 100, unit: '%', onset: (percent) => this.#press(`volume ${percent}% ${quoted}`) });
    const toggle = (word) => {
      const button = clickButton({ 'aria-label': `${word} ${name}`, 'aria-pressed': 'false', onclick: () => this.#press(`${button.ariaPressed === 'true' ? 'un' : ''}${word.toLowerCase()} ${quoted}`) }, word);
      return button;
    };
    const row = { meter, slider, mute: toggle('Mute'), solo: toggle('Solo') };
    row.element = make('div', { class: 'group' }, make('span', { class: 'row-name' }, name), meter.element, make('div', { class: 'row' }, slider.input, slider.value, row.mute, row.solo));
    return row;
  }

  show(groups, mayOperate) {
    const names = (groups ?? []).map(({ name }) => name);
    if (names.join('\n') !== [...this.#rows.keys()].join('\n')) {
      this.#rows = new Map(names.map((name) => [name, this.#makeRow(name)]));
      this.list.replaceChildren(...[...this.#rows.values()].map(({ element }) => element));
      this.#enabled = null;
    }
    for (const { name, volume, mute, solo } of groups ?? []) {
      const row = this.#rows.get(name);
      row.slider.show(Math.round(volume * 100));
      for (const [button, isOn] of [[row.mute, mute], [row.solo, solo]]) {
        if (button.ariaPressed !== String(isOn)) button.ariaPressed = String(isOn);
        setClass(button, 'is-on', isOn);
      }
    }
    if (mayOperate === this.#enabled) return;
    this.#enabled = mayOperate;
    for (const control of this.list.querySelectorAll('button, input')) control.disabled = !mayOperate;
  }

  /** Once a frame while it is seen. */
  showMeters(meters) {
    this.main.show(meters?.main);
    for (const [name, { meter }] of this.#rows) meter.show(meters?.groups?.[name]);
  }
}
