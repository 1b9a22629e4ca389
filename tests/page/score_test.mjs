// The engraved music: the bar that is marked, what is pencilled over the bars, sheets that turn in time.

import assert from 'node:assert/strict';
import { copyFileSync, existsSync, mkdirSync, readdirSync, readFileSync } from 'node:fs';
import { join } from 'node:path';
import test from 'node:test';
import { assertAccessible } from './access_test.mjs';
import { makeShowWithPages, Passphrase } from './printed_show.mjs';
import { becomesEqual, importScores, isConnected, openPage, Performance, Root, sees, testShow } from './support.mjs';

const Corpus = join(Root, '..', 'shared', 'corpus');
const Song = join(Corpus, 'show_schubert_muellerin', '01_Das_Wandern.mxl');
const Engraver = join(process.env.STAGE ?? join(Root, 'build/release/bin/stage'), '..', '..', 'share/stage/engraver/verovio-module.mjs');
const obstacle = !existsSync(Song) ? 'the corpus is not here' : !existsSync(Engraver) ? 'the engraver is not installed: scripts/setup-packages does it' : '';

/** Its twenty bars are played twice. */
const Edits = `add vamp --song 1 --from 3 --to 4
add fermata --song 1 --from 6 --to 6
add cut --song 1 --from 8 --to "17 (2)"
add caesura --song 1 --at 2 --text "wait for the door"
add marker --song 1 --at 5 --text Brook
`;

const testScore = (name, options, body, makeShow = () => importScores([Song], Edits)) => {
  if (obstacle === '') testShow(name, options, body, {}, makeShow);
  else test(name, { skip: obstacle }, () => {});
};

/** Runs in the page: keeps every bar that is marked, with the bars that are on the screen at that moment, and how often nothing was drawn for the better part of a bar. */
function watchMarks() {
  window.marks = [];
  window.gaps = 0;
  let last = performance.now();
  const watch = () => {
    const now = performance.now();
    if (now - last > 600) ++window.gaps;
    last = now;
    const marked = [...document.querySelectorAll('.sounding')].map((each) => each.dataset.number).filter((number) => number);
    const isNew = marked.length !== 1 || marked[0] !== window.marks.at(-1)?.bar;
    if (marked.length > 0 && isNew) window.marks.push({ bar: marked.join('+'), seen: [...document.querySelectorAll('.slot g.measure')].map((each) => each.dataset.n) });
    requestAnimationFrame(watch);
  };
  watch();
}

const marked = (page) => page.evaluate(() => document.querySelector('.sounding[data-number]:not([data-number=""])')?.dataset.number);

async function openScore(performance, options = {}) {
  const page = await openPage(performance, { view: 'score', ...options });
  await page.locator('.sounding[data-number]:not([data-number=""])').first().waitFor({ state: 'attached', timeout: 90000 });
  return page;
}

/** The measure as it is printed that the core tells, at each downbeat, and whether there was time to draw it before the next one was told. */
async function toldBars(page) {
  const events = (await page.evaluate(() => window.arrivals)).filter(({ event }) => ['bar', 'jump', 'put', 'started'].includes(event));
  const told = events.map(({ bar, at }) => ({ bar: String(bar).split(':')[0].split(' ')[0], at })).filter(({ bar }, index, all) => bar !== all[index - 1]?.bar);
  return { told: told.map(({ bar }) => bar), isShort: told.map(({ at }, index) => told[index + 1]?.at - at < 400) };
}

/**
 * Lays the marks beside the bars that were played: {unseen, steps}, the places in `played` of bars that no mark stands for, and of
 * each mark what comes after it. A bar that was over at once may have been drawn or not; where it was not, equal bars around it are
 * one mark. Whatever fits best counts.
 */
function alignMarks(marks, played, isShort) {
  const short = [...played.keys()].filter((index) => isShort[index]).slice(0, 8);
  let best = null;
  for (let choice = 0; choice < 2 ** short.length; ++choice) {
    const drawn = [...played.keys()].filter((index) => !(choice & (1 << short.indexOf(index))) || !short.includes(index));
    const kept = drawn.filter((index, place) => played[index] !== played[drawn[place - 1]]);
    const unseen = new Set(kept);
    const steps = [];
    let at = -1;
    for (const { bar, seen } of marks) {
      const place = kept.findIndex((index, each) => each > at && played[index] === bar);
      if (place < 0) break;
      at = place;
      unseen.delete(kept[place]);
      steps.push({ bar, seen, next: kept[place + 1] });
    }
    if (best === null || unseen.size < best.unseen.length) best = { unseen: [...unseen], steps };
  }
  return best;
}

testScore('Engraved score: the marked bar is the one that the core tells at every downbeat, through a vamp, a fermata, a cut, a caesura and a seek, and the next one is in sight', [], async (performance) => {
  const page = await openScore(performance);
  assert.equal(await marked(page), '1');
  await page.evaluate(watchMarks);
  await page.keyboard.press(' ');
  await performance.waitFor(({ event }) => event === 'caesura');
  await page.keyboard.press(' ');
  await page.locator('.bracket.vamp.is-lit').first().waitFor({ state: 'attached' });
  await performance.waitFor(({ event, bar }) => event === 'jump' && bar.split(':')[0] === '3');
  await page.keyboard.press(' ');
  await performance.waitFor(({ event }) => event === 'hold');
  await page.evaluate(() => document.querySelector('[data-press=go], #go').click());
  await performance.waitFor(({ event, bar }) => event === 'jump' && bar.startsWith('18'));
  await page.keyboard.type('7\n');
  await performance.waitFor(({ event, reason }) => event === 'jump' && reason === 'seek');
  await page.waitForFunction(() => window.arrivals.some(({ event }) => event === 'song-end'));

  const { told, isShort } = await toldBars(page);
  const passes = told.join(' ').match(/3 4/g).length;
  assert.ok(passes >= 2, told.join(' '));
  const played = ['1', '2', ...Array(passes).fill(['3', '4']).flat(), '5', '6', '7', '18', '7', '18', '19', '20'];
  const sought = played.indexOf('18') + 1;
  assert.deepEqual(told.slice(0, played.length), played);
  const { marks, gaps } = await page.evaluate(() => ({ marks: window.marks, gaps: window.gaps }));
  const { unseen, steps } = alignMarks(marks, played, isShort);
  for (const { seen, bar, next } of steps) if (next !== undefined && next !== sought) assert.ok(seen.includes(played[next]), `after bar ${bar} comes ${played[next]}, and ${seen} are seen`);
  // A machine that is too busy to draw for the length of a bar leaves that one out, and no other.
  assert.ok(unseen.length <= gaps, `${marks.map(({ bar }) => bar).join(' ')} of ${played.join(' ')}: bars ${unseen.map((index) => played[index])} are missing, with ${gaps} gaps`);
  assert.deepEqual(page.complaints, []);
});

testScore('Engraved score that is clicked and edited: is pencilled over, seeks, shows a part, and takes an edit down to the file', [], async (performance) => {
  const page = await openScore(performance, { size: { width: 1920, height: 1080 } });
  const struck = async (kind) => [...new Set(await page.locator(`.pencil path.cut${kind}`).evaluateAll((all) => all.map((each) => each.dataset.number)))];
  await page.locator('.bracket.vamp').first().waitFor({ state: 'attached' });
  assert.deepEqual(await page.locator('.note-text.marker').allTextContents(), ['Brook']);
  assert.deepEqual(await page.locator('.note-text.caesura').allTextContents(), ['// wait for the door']);
  assert.equal(await page.locator('.pencil .fermata').count(), 1);
  const seen = await page.locator('.slot g.measure').evaluateAll((all) => all.map((each) => each.dataset.n));
  assert.ok(seen.includes('8'), seen.join(' '));
  const isNeverPlayed = (number) => Number(number) >= 8 && Number(number) <= 17;
  assert.deepEqual(await struck(':not(.is-once)'), seen.filter(isNeverPlayed));
  assert.deepEqual((await struck('.is-once')).sort(), seen.filter((number) => !isNeverPlayed(number)).sort());
  const boxOf = (selector) => page.locator(selector).first().boundingBox();
  const staffOf = (number) => boxOf(`.slot g.measure[data-n="${number}"] .staff`);
  const [vamp, third] = [await boxOf('.wash.vamp'), await staffOf(3)];
  assert.ok(Math.abs(vamp.x - third.x) < 30, JSON.stringify([vamp, third]));

  const pull = async (one, other) => {
    const [from, to] = [await staffOf(one), await staffOf(other)];
    await page.mouse.move(from.x + from.width / 2, from.y + from.height / 2);
    await page.mouse.down();
    await page.mouse.move(to.x + to.width / 2, to.y + to.height / 2);
    await page.mouse.up();
  };
  await pull(3, 3);
  await becomesEqual(() => marked(page), () => '3');
  assert.equal(await page.locator('.score-edits').textContent(), 'Bar 3: vamp bars 3 to 4.');
  await performance.waitFor(({ event, bar }) => event === 'put' && bar.startsWith('3'));
  await page.keyboard.type('6\n');
  await becomesEqual(() => marked(page), () => '6');
  await page.keyboard.type('1\n');
  await becomesEqual(() => marked(page), () => '1');

  await pull(1, 2);
  await page.getByRole('button', { name: 'Edit', exact: true }).click();
  await page.locator('#edit-kind').selectOption('repeat');
  await page.locator('#edit-times').fill('3');
  assert.deepEqual([await page.locator('#edit-from').inputValue(), await page.locator('#edit-to').inputValue()], ['1', '2']);
  await page.locator('.edit-form button[type=submit]').click();
  const repeat = page.locator('.note-text.repeat', { hasText: 'Repeat' });
  await repeat.waitFor({ state: 'attached' });
  await page.locator('.score [data-press=undo]').click();
  await repeat.waitFor({ state: 'detached' });
  await page.locator('.score [data-press=redo]').click();
  await repeat.waitFor({ state: 'attached' });
  await page.locator('.score [data-press=save]').click();
  await performance.waitFor(({ press, outcome }) => press === 'save' && outcome === 'taken');
  const newest = readdirSync(performance.show).filter((name) => name.endsWith('.logdata')).sort().at(-1);
  assert.match(readFileSync(join(performance.show, newest), 'utf8'), /repeat/i);

  await assertAccessible(page, 'the engraved score');

  const staffs = () => page.locator('.slot g.measure[data-n="1"] g.staff').count();
  assert.equal(await staffs(), 3);
  await page.locator('#score-part').selectOption({ index: 1 });
  await becomesEqual(staffs, () => 1);
  await becomesEqual(() => marked(page), () => '1');
  await pull(2, 2);
  await page.locator('.score-edits', { hasText: /^Bar 2: repeat bars 1 to 2 .*caesura 2 "wait for the door"/ }).waitFor();
  await page.getByRole('button', { name: 'Edit', exact: true }).click();
  // Round the vamp the music goes for as long as this takes.
  await page.keyboard.type('3\n');
  await becomesEqual(() => marked(page), () => '3');
  await page.locator('[data-press=play]').click();
  await performance.waitFor(({ event }) => event === 'started');
  await page.locator('.bracket.vamp.is-lit').first().waitFor({ state: 'attached' });
  await page.locator('.hit[data-measure="3"]').first().click();
  await page.locator('.score-edits', { hasText: /^Bar 4: vamp bars 3 to 4/ }).waitFor();
  assert.deepEqual(performance.presses('taken').filter((press) => /^(seek|play)/.test(press)), [1920, 4800, 0, 1920].map((tick) => `seek tick ${tick}`).concat('play'));
  assert.deepEqual(page.complaints, []);
});

testScore('Connection that comes back: the part stays; and another show\'s music is engraved anew', [], async (performance) => {
  const page = await openScore(performance);
  const parts = page.locator('#score-part');
  const staffs = () => page.locator('.slot g.measure[data-n="1"] g.staff').count();
  const notes = () => page.locator('.slot g.measure[data-n="1"] g.note').count();
  const before = await notes();
  await parts.selectOption({ index: 1 });
  await becomesEqual(staffs, () => 1);
  const [part, offered] = [await parts.inputValue(), await parts.locator('option').allTextContents()];
  assert.ok(offered.length > 2, offered.join());
  const joined = await page.evaluate(() => {
    window.oldSocket = window.lastSocket;
    window.oldSocket.close();
    return true;
  });
  assert.ok(joined);
  await page.waitForFunction(() => window.lastSocket !== window.oldSocket);
  await isConnected(page);
  // The state of now has come when a press is answered.
  await page.keyboard.type('5\n');
  await becomesEqual(() => marked(page), () => '5');
  await page.keyboard.type('1\n');
  await becomesEqual(() => marked(page), () => '1');
  assert.deepEqual([await parts.inputValue(), await parts.locator('option').allTextContents(), await staffs()], [part, offered, 1]);

  await performance.kill();
  const other = join(`${performance.show}-other`, '01_Wohin.mxl');
  mkdirSync(`${performance.show}-other`);
  copyFileSync(join(Corpus, 'show_schubert_muellerin', '02_Wohin.mxl'), other);
  await Performance.start(importScores([other]), { port: performance.port });
  await isConnected(page);
  await page.locator('.score h2', { hasText: /Wohin/ }).waitFor();
  await becomesEqual(staffs, () => 3);
  await becomesEqual(() => marked(page), () => '1');
  assert.notEqual(await notes(), before);
  assert.deepEqual(page.complaints.filter((each) => !/WebSocket|ERR_CONNECTION_REFUSED/.test(each)), []);
});

testShow('Song without a score: shows its flow and says why', [], async (performance) => {
  const page = await openPage(performance, { view: 'score' });
  await page.locator('.score .none', { hasText: 'Song 1 has no score to engrave: it was imported from MIDI alone.' }).waitFor();
  await page.locator('.score .flow [data-bar="5"]').click();
  await page.locator('.score-place', { hasText: 'Bar 5, beat 1' }).waitFor();
  assert.deepEqual(page.complaints, []);
});

testScore('Engraver that is not installed: the score\'s flow is shown, and a sentence', ['--engraver', '/nonexistent'], async (performance) => {
  const page = await openPage(performance, { view: 'score' });
  await page.locator('.score .none', { hasText: 'The engraver is not installed with the program' }).waitFor();
  await page.locator('.score .flow [data-bar="5"]').waitFor();
  await sees(page, {});
  assert.deepEqual(page.complaints, []);
});

/** Runs in the page: the pages in the two places by their widths, the one that sounds marked. */
const pagesSeen = (page) => page.evaluate(() => [...document.querySelectorAll('.slot')].map((slot) => {
  const image = slot.querySelector('img.page-image');
  const name = image === null ? slot.textContent : String(image.naturalWidth - 200);
  return slot.classList.contains('is-current') ? `[${name}]` : name;
}));

testShow('Printed pages: the one that sounds and the one that comes next, back round a vamp and on, and which is missing', ['--passphrase-file', Passphrase], async (performance) => {
  const page = await openPage(performance, { view: 'score' });
  await becomesEqual(() => pagesSeen(page), () => ['[1]', '2']);
  assert.equal(await page.locator('#score-part').inputValue(), 'pages');
  assert.match(await page.locator('.sheets').getAttribute('aria-label'), /bars 1 to 2 and 3 to 4\. Edits: vamp/);
  const seek = (bar) => page.locator(`.score .flow [data-bar="${bar}"]`).click();
  await seek(3);
  await becomesEqual(() => pagesSeen(page), () => ['1', '[2]']);
  await page.keyboard.press('Enter');
  await performance.waitFor(({ event }) => event === 'caesura');
  await becomesEqual(() => pagesSeen(page), () => ['1', '[2]']);
  // Round the vamp and then on: the first page makes room for the third.
  for (const seen of [['[1]', '2'], ['3', '[2]']]) {
    const stands = performance.waitForNext(({ event }) => event === 'caesura');
    await page.keyboard.press(' ');
    await stands;
    await becomesEqual(() => pagesSeen(page), () => seen);
  }
  // Stopped is at the beginning.
  await page.keyboard.press('Escape');
  await becomesEqual(() => pagesSeen(page), () => ['[1]', '2']);
  await seek(7);
  await becomesEqual(() => pagesSeen(page), () => ['[There is no image of page 4.]', '2']);
  await assertAccessible(page, 'printed pages');
  assert.deepEqual(page.complaints, []);

  // The music is engraved where somebody would rather have that.
  if (!existsSync(Engraver)) return;
  await page.locator('#score-part').selectOption('');
  await page.locator('.slot g.measure').first().waitFor({ state: 'attached' });
  await page.locator('#score-part').selectOption('pages');
  await becomesEqual(() => pagesSeen(page), () => ['[There is no image of page 4.]', '']);
}, {}, makeShowWithPages);

// The long run: whole songs as they are written. It takes as long as they do.
for (const [folder, name] of [['show_schubert_muellerin', '01_Das_Wandern'], ['show_schubert_muellerin', '03_Halt'], ['show_holmes_melodies', '01_Noel']]) {
  if (process.env.PAGE_WHOLE_SONGS !== '1') continue;
  const score = join(Corpus, folder, `${name}.mxl`);
  testScore(`${name} from beginning to end: the marked bar is the one that the core tells at every downbeat`, [], async (performance) => {
    const page = await openScore(performance);
    await page.evaluate(watchMarks);
    performance.child.stdin.write('go\n');
    const ended = performance.events.length;
    const until = Date.now() + 240000;
    while (!performance.events.slice(ended).some(({ event }) => event === 'song-end')) {
      assert.ok(Date.now() < until, 'the song ends');
      await page.evaluate(() => new Promise((resolve) => setTimeout(resolve, 500)));
    }
    const { told } = await toldBars(page);
    const marks = (await page.evaluate(() => window.marks)).map(({ bar }) => bar);
    assert.ok(told.length > 20, told.join(' '));
    assert.equal(marks.slice(0, told.length).join(' '), told.join(' '));
    console.log(`# ${name}: ${told.length} downbeats`);
  }, () => importScores([score]));
}
