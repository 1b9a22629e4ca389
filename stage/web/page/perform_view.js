// The show as those who run it want to see it.

import { make } from './elements.js';
import { ControlsPanel } from './controls_panel.js';
import { FlowPicture } from './flow_picture.js';
import { PlacePanel } from './place_panel.js';
import { PressList } from './press_list.js';
import { editedSemitones, placeAt } from './song_time.js';

export class PerformView {
  #model;
  #place = new PlacePanel();
  #controls;
  #presses = new PressList();
  #picture;
  #isStale = true;
  #stillness = matchMedia('(prefers-reduced-motion: reduce)');

  /** `press(line)` sends a press, `refuse(sentence)` tells why nothing was sent. */
  constructor(model, { press, refuse }) {
    this.#model = model;
    this.#controls = new ControlsPanel(press);
    const holder = make('div', { class: 'picture' });
    this.#picture = new FlowPicture(holder, { onBar: (bar) => {
      if (model.isMoving) refuse('The picture is for seeking while the music is stopped; G goes to a bar at any time.');
      else press(`seek t${bar.tick}`);
    } });
    this.element = make('section', { class: 'perform', 'aria-label': 'Perform' },
      this.#place.heading,
      make('div', { class: 'stage' }, this.#place.place, this.#place.lights, this.#place.flow),
      this.#place.facts, holder, this.#controls.element, this.#presses.element);
  }

  /** Something has changed; it is shown with the next frame. */
  note() {
    this.#isStale = true;
  }

  /** Once a frame while the view is seen. */
  showFrame() {
    const { state } = this.#model;
    const tick = this.#model.findTick();
    if (this.#isStale) {
      this.#isStale = false;
      const song = this.#model.getSong(state.song);
      this.#place.show(state);
      this.#controls.show(state, editedSemitones(song, tick));
      this.#controls.setEnabled(this.#model.mayOperate);
      this.#controls.showSong(song);
      this.#picture.show(song ?? null);
      this.#picture.showLoops(state.loops);
      this.#presses.show(this.#model);
    }
    this.#place.showPlace(this.#model, tick);
    this.#controls.level.show(this.#model.meters?.main);
    this.#picture.showTick(this.#findShownTick(state, tick));
  }

  /** For those who ask for less motion the playhead steps from beat to beat. */
  #findShownTick(state, tick) {
    const song = this.#stillness.matches ? this.#model.getSong(state.song) : undefined;
    return (song && placeAt(song, tick).tick) ?? tick;
  }
}
