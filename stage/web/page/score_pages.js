// The images of a score's pages, as the theatre has them: fetched once, the next one before it is needed.

import { make } from './elements.js';
import { lastAt } from './song_time.js';

/** A page is a megabyte or several; more than these are fetched again. */
const KeptImages = 8;

/** The pages of a song that there are images of, in the order of the song: [{number, tick}]. */
export function pagesOf(song, pageImages) {
  const numbers = new Set(pageImages);
  return song.pages.some(({ number }) => numbers.has(number)) ? song.pages : [];
}

/** The number of the page that a tick stands on; what comes before the first page turn stands on the first page. */
export function pageAt(song, tick) {
  return (lastAt(song.pages, tick) ?? song.pages[0]).number;
}

/** The first and the last bar of a page; `bars` as listBars gives them. */
export function barsOnPage(song, bars, number) {
  const here = bars.filter((bar) => pageAt(song, bar.tick) === number);
  return [here[0]?.label ?? '', here.at(-1)?.label ?? ''];
}

const letGo = (image) => image.then(({ src }) => URL.revokeObjectURL(src), () => {});

export class PageImages {
  #kept = new Map();

  /** The image, decoded; rejects with a sentence. */
  find(number) {
    const found = this.#kept.get(number);
    this.#kept.delete(number);
    const image = found ?? this.#load(number);
    this.#kept.set(number, image);
    for (const [oldest, kept] of this.#kept) {
      if (this.#kept.size <= KeptImages) break;
      this.#kept.delete(oldest);
      letGo(kept);
    }
    return image;
  }

  /** The images may be others from now on. */
  forget() {
    for (const kept of this.#kept.values()) letGo(kept);
    this.#kept.clear();
  }

  async #load(number) {
    try {
      const answer = await fetch(`api/page/${number}`, { cache: 'no-store' });
      if (!answer.ok) throw new Error((await answer.json().catch(() => ({}))).sentence ?? `Page ${number} cannot be had.`);
      const image = make('img', { src: URL.createObjectURL(await answer.blob()), alt: '' });
      await image.decode().catch(() => {
        URL.revokeObjectURL(image.src);
        throw new Error(`The image of page ${number} cannot be shown.`);
      });
      return image;
    } catch (problem) {
      // It is asked for again when it is wanted again.
      this.#kept.delete(number);
      throw problem instanceof TypeError ? new Error(`Page ${number} could not be fetched.`) : problem;
    }
  }
}

/** One page in the place of an engraved sheet. Nobody knows where its bars are, so nothing is marked or pencilled in it. */
export class PageSheet {
  constructor(image, page, numbers) {
    this.element = image;
    this.element.className = 'page-image';
    this.page = page;
    this.numbers = numbers;
  }

  has() {
    return false;
  }

  showPlace() {}
  showLoops() {}
  showChosen() {}
  pencil() {}
}
