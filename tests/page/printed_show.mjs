// A show with images of printed pages.

import { mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { importScores, runStage, WorkFolder } from './support.mjs';

export const Passphrase = join(WorkFolder, 'passphrase');

/** A show of eight bars on four pages, a second a bar, with images of the first three; a vamp of two passes leads back from the second page, and the music waits on each of its pages. */
export function makeShowWithPages() {
  const bar = (number) => `<measure number="${number}">${number % 2 === 1 && number > 1 ? '<print new-page="yes"/>' : ''}${number === 1
    ? '<attributes><divisions>1</divisions><time><beats>2</beats><beat-type>4</beat-type></time></attributes><sound tempo="120"/>' : ''}
    <note><pitch><step>C</step><octave>4</octave></pitch><duration>2</duration><type>half</type></note></measure>`;
  const folder = mkdtempSync(join(tmpdir(), 'page-images-'));
  const file = join(folder, '1_Printed.musicxml');
  writeFileSync(file, `<score-partwise version="4.0"><part-list><score-part id="P1"><part-name>Piano</part-name></score-part></part-list>
    <part id="P1">${[1, 2, 3, 4, 5, 6, 7, 8].map(bar).join('')}</part></score-partwise>`);
  const show = importScores([file], 'add vamp --song 1 --from 2 --to 4 --max 2\nadd caesura --song 1 --at 2:2\nadd caesura --song 1 --at 4:2\n');
  const pages = [1, 2, 3].map((page) => join(folder, `page-${page}.svg`));
  for (const [index, page] of pages.entries()) {
    writeFileSync(page, `<svg xmlns="http://www.w3.org/2000/svg" width="${index + 201}" height="297" viewBox="0 0 210 297"><rect width="210" height="297" fill="white"/><text x="60" y="150" font-size="40">Page ${index + 1}</text></svg>`);
  }
  writeFileSync(Passphrase, 'a lamp for the ferry\n');
  runStage('score', 'pack', show, ...pages, '--passphrase-file', Passphrase);
  rmSync(folder, { recursive: true });
  return show;
}
