// How loud something is: a bar of the RMS with a line at the peak, from -60 dB to full scale.

import { make } from './elements.js';

const LowestDb = -60;

/** Full scale as 1, -60 dB and less as 0. */
export function shareOf(factor) {
  return factor <= 0 ? 0 : Math.min(Math.max(1 - (20 * Math.log10(factor)) / LowestDb, 0), 1);
}

export class LevelMeter {
  #shown = '';

  /** `name` is for a screen reader, which is told no figures: they change many times a second. */
  constructor(name) {
    this.rms = make('span', { class: 'meter-rms' });
    this.peak = make('span', { class: 'meter-peak' });
    this.element = make('span', { class: 'meter', role: 'img', 'aria-label': name }, this.rms, this.peak);
  }

  /** `level` is {peak, rms} in factors of full scale, or undefined for silence. */
  show(level) {
    const [rms, peak] = [shareOf(level?.rms ?? 0), shareOf(level?.peak ?? 0)].map((share) => share.toFixed(3));
    const shown = `${rms} ${peak}`;
    if (shown === this.#shown) return;
    this.#shown = shown;
    this.rms.style.transform = `scaleX(${rms})`;
    this.peak.style.left = `${100 * peak}%`;
    this.element.classList.toggle('is-over', (level?.peak ?? 0) > 1);
  }
}
