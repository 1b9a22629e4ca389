// Whole performances run from the page, beside a second page that only watches.

import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { join } from 'node:path';
import { becomesEqual, hasSeen, look, openPage, sees, testShow } from './support.mjs';

/** What two pages must agree on: all but the last presses, whose times are their own, and a notice, which is for who pressed. */
function common(seen) {
  const { presses, notice, ...rest } = seen;
  return rest;
}

/** Waits until both show this, and then the same in everything. */
async function agree(page, watcher, wanted) {
  await Promise.all([sees(page, wanted), sees(watcher, wanted)]);
  await becomesEqual(async () => common(await look(watcher)), async () => common(await look(page)));
}

const toldTo = (page, type) => page.received.filter((message) => message.type === type);

/** The bars that a page was told, each once as long as it lasts. A late device is reported afterwards, with the bar of then. */
function toldBars(page) {
  const bars = toldTo(page, 'event').filter((message) => message.event !== 'late').map((message) => String(message.bar).split(':')[0]).filter((bar) => /^\d+$/.test(bar));
  return bars.filter((bar, index) => bar !== bars[index - 1]);
}

/** Waits until both have shown it, each in its own time. */
function bothSee(page, watcher, wanted) {
  return Promise.all([page, watcher].map((each) => hasSeen(each, wanted)));
}

/** The bars that a page has shown are those that the core told, in its order. */
function assertBars(told, shown) {
  let at = 0;
  for (const bar of shown) {
    at = told.indexOf(bar, at);
    assert.notEqual(at, -1, `${bar} of ${shown.join(' ')} among ${told.join(' ')}`);
  }
  // A machine that is too busy to draw for the length of a bar leaves it out.
  assert.ok(shown.length > told.length / 2, `${shown.join(' ')} of ${told.join(' ')}`);
}

testShow('Whole performance by the keyboard alone: everything happens, a second page agrees at every step, and a screen reader is told of lamp and status', [], async (performance) => {
  // What is stopped at a bar's very end may be drawn in the next one for a moment: a page runs on between two reports.
  const barBegins = () => performance.waitForNext((event) => event.event === 'bar');
  const page = await openPage(performance);
  const watcher = await openPage(performance, { size: { width: 360, height: 740 }, theme: 'light' });
  await agree(page, watcher, { song: '1', title: 'The Door', motion: 'STOPPED', bar: '1', beat: '1', meter: '2/4', key: 'D minor', go: 'start' });

  await page.keyboard.press(' ');
  await bothSee(page, watcher, { motion: 'PLAYING', lamp: /ON/, loops: /^vamp bars 2 to 3: pass 2/, counted: 'Vamp', go: 'leave the vamp' });
  await page.keyboard.press(' ');
  await bothSee(page, watcher, { counted: 'Leaves in', loops: /leaves at its end/ });
  await bothSee(page, watcher, { lamp: /off/, loops: '', marker: 'Door' });
  await bothSee(page, watcher, { counted: 'Caesura' });
  await agree(page, watcher, { motion: 'PAUSED', bar: /^[56]$/, go: 'continue' });
  await page.keyboard.press(' ');
  await bothSee(page, watcher, { motion: 'PLAYING', counted: 'End of song' });
  await agree(page, watcher, { song: '2', title: 'A Held Note', motion: 'STOPPED' });

  await page.keyboard.press('Enter');
  await bothSee(page, watcher, { loops: /^repeat bars 1 to 2: pass 2 of 2/ });
  await agree(page, watcher, { motion: 'HOLDING', bar: '3', lamp: /ON/, go: 'release the fermata' });
  await page.keyboard.press(' ');
  await bothSee(page, watcher, { motion: 'PLAYING', bar: /^[47]$/ });
  await agree(page, watcher, { song: '3', motion: 'STOPPED', next: 'Bridge' });

  await page.keyboard.press(' ');
  await bothSee(page, watcher, { motion: 'PLAYING', bar: /^([2-9]|\d\d)$/ });
  await barBegins();
  await page.keyboard.press('p');
  await agree(page, watcher, { motion: 'PAUSED' });
  await page.keyboard.type('12:2\n');
  await agree(page, watcher, { bar: '12', beat: '2', marker: 'Bridge', next: 'Last verse' });
  await page.keyboard.press('ArrowRight');
  await agree(page, watcher, { bar: '17', beat: '1', marker: 'Last verse' });
  await page.keyboard.press('+');
  await page.keyboard.press('+');
  await agree(page, watcher, { tempo: /^122.4 at 102%/ });
  await page.keyboard.press('[');
  await page.keyboard.press('Enter');
  await bothSee(page, watcher, { motion: 'PLAYING' });
  await barBegins();
  await page.keyboard.press('Escape');
  const escapedAt = await page.evaluate(() => performance.now());
  await agree(page, watcher, { bar: '1', motion: 'STOPPED' });

  await page.keyboard.press('ArrowUp');
  await page.locator('#songs-dialog').waitFor();
  await page.keyboard.press('ArrowUp');
  await page.keyboard.press('Enter');
  await agree(page, watcher, { song: '1', motion: 'STOPPED' });
  await page.keyboard.press(' ');
  await bothSee(page, watcher, { motion: 'PLAYING' });
  await page.keyboard.press('f');
  await bothSee(page, watcher, { motion: 'FADING' });
  // On a busy machine the fade would be over before its stop, and Esc in a show that stands is panic.
  await page.keyboard.press('c');
  await bothSee(page, watcher, { motion: 'PLAYING' });
  // Within two seconds of the last one it would be panic, too.
  await page.waitForFunction((since) => performance.now() - since > 2100, escapedAt);
  await barBegins();
  await page.keyboard.press('Escape');
  await agree(page, watcher, { motion: 'STOPPED', bar: '1' });

  // What the browser tells of its sockets, what it shows and what the program prints come on three ways.
  const statuses = (each) => toldTo(each, 'status').map(({ status, count }) => `${status} ${count}`);
  await becomesEqual(() => statuses(watcher), () => statuses(page));
  for (const status of ['Vamp 1', 'Vamp 2', 'Caesura 1', 'EndOfSong 1', 'Repeat 1', 'Repeat 2']) assert.ok(statuses(page).includes(status), `${status} among ${statuses(page).join(', ')}`);
  await becomesEqual(() => performance.presses('taken'), () => ['go', 'go', 'go', 'play', 'go', 'go', 'pause', 'seek tick 11040', 'next-marker', 'tempo 101%', 'tempo 102%', 'volume 95%', 'play', 'stop', 'load 1', 'go', 'fade 3', 'cancel-fade', 'stop']);
  assert.deepEqual(performance.presses('refused'), []);

  // Meters move all the time: they are no changes of the state, but go with the playhead.
  const metered = toldTo(page, 'change').filter(({ state }) => JSON.stringify(state).includes('"peak"'));
  assert.deepEqual(metered, []);
  assert.ok(toldTo(page, 'playhead').some(({ meters }) => meters.main.peak > 0.01 && meters.main.rms > 0));

  for (const each of [page, watcher]) {
    await becomesEqual(() => toldBars(each).at(-1), () => '1');
    assertBars(toldBars(each), await each.evaluate(() => window.shownBars));
    const announced = (await each.evaluate(() => window.announced)).join('. ');
    assert.match(announced, /Lamp on.*Lamp off.*Caesura ahead.*End of song ahead.*Lamp on.*Lamp off/);
  }
  assert.deepEqual([...page.complaints, ...watcher.complaints], []);
});

testShow('Two operators press GO at once: it is taken once, and the other one is told', [], async (performance) => {
  const pages = await Promise.all([openPage(performance), openPage(performance)]);
  await Promise.all(pages.map((page) => sees(page, { motion: 'STOPPED', go: 'start' })));
  await Promise.all(pages.map((page) => page.keyboard.press(' ')));
  await Promise.all(pages.map((page) => sees(page, { motion: 'PLAYING', presses: /REFUSED go/ })));
  assert.deepEqual(performance.presses('taken'), ['go']);
  assert.deepEqual(performance.presses('refused'), ['go']);
  const notices = (await Promise.all(pages.map(look))).map(({ notice }) => notice);
  assert.equal(notices.filter((notice) => /^REFUSED go: .*presses within 3000 ms are one press/.test(notice)).length, 1, notices.join(' / '));
}, { pressGuardMs: 3000 });

testShow('Typing into a field: presses nothing; Esc leaves the field first', [], async (performance) => {
  const page = await openPage(performance);
  await sees(page, { motion: 'STOPPED' });
  await page.locator('#seek-bar').click();
  await page.keyboard.type('go p f s 1+-');
  assert.equal(await page.locator('#seek-bar').inputValue(), 'go p f s 1+-');
  await page.keyboard.press('Escape');
  assert.equal(await page.evaluate(() => document.activeElement === document.body), true);
  await page.goto(`${performance.url}#edit`);
  await page.locator('#edit-kind').selectOption('marker');
  await page.locator('#edit-text').click();
  await page.keyboard.type('go f p s u ');
  await page.locator('#edit-kind').focus();
  await page.keyboard.press(' ');
  await page.keyboard.press('Escape');
  await page.keyboard.press('Escape');

  // The desk's answer to one real press comes after whatever was sent before it.
  await page.evaluate(() => document.activeElement.blur());
  await page.goto(`${performance.url}#perform`);
  await page.keyboard.press(' ');
  await sees(page, { motion: 'PLAYING' });
  assert.deepEqual(performance.presses('taken'), ['go']);
  assert.deepEqual(performance.presses('refused'), []);
});

testShow('Buttons that were clicked: leave Space to the show', [], async (performance) => {
  const page = await openPage(performance);
  await sees(page, { motion: 'STOPPED' });
  await page.locator('[data-press=play]').click();
  await sees(page, { motion: 'PLAYING', lamp: /ON/ });
  await page.locator('[data-press=pause]').click();
  await sees(page, { motion: 'PAUSED' });
  await page.keyboard.press(' ');
  await sees(page, { motion: 'PLAYING' });
  // The guard's time goes by with the beat. Even where the focus was put on a button:
  await performance.waitForNext((event) => event.event === 'bar');
  await page.locator('[data-press=panic]').focus();
  await page.keyboard.press(' ');
  await hasSeen(page, { counted: 'Leaves in' });
  assert.deepEqual(performance.presses('taken'), ['play', 'pause', 'go', 'go']);
});

testShow('Controls by the pointer: seek, marker, tempo, transposition, volume, fade; the picture only while stopped', ['--song', '3'], async (performance) => {
  const page = await openPage(performance);
  await sees(page, { song: '3', motion: 'STOPPED' });
  await page.locator('[data-bar="5"]').click();
  await sees(page, { bar: '5' });
  await page.locator('#seek-marker').selectOption({ label: 'Bridge' });
  await sees(page, { bar: '9', marker: 'Bridge' });
  await page.locator('#seek-bar').fill('30:2');
  await page.keyboard.press('Enter');
  await sees(page, { bar: '30', beat: '2' });
  await page.getByRole('button', { name: '− 1 % tempo' }).click();
  await sees(page, { tempo: /at 99%/ });
  await page.getByRole('button', { name: '− 1 semitone' }).click();
  await page.getByRole('button', { name: '− 1 semitone' }).click();
  await sees(page, { key: /−2 semitones/ });
  await page.getByRole('slider', { name: 'Volume: Music' }).fill('40');
  await performance.waitFor((event) => event.press === 'volume 40% music');
  await page.locator('[data-press=play]').click();
  await sees(page, { motion: 'PLAYING' });
  await page.locator('[data-bar="5"]').click();
  await sees(page, { notice: /only|while the music is stopped/ });
  await page.getByRole('button', { name: 'Fade out' }).click();
  await sees(page, { motion: 'FADING' });
  await page.locator('.control').getByRole('button', { name: 'Cancel' }).click();
  await sees(page, { motion: 'PLAYING' });
  assert.deepEqual(performance.presses('taken').filter((press) => !press.startsWith('seek')), ['tempo 99%', 'transpose -1', 'transpose -2', 'volume 40% music', 'play', 'fade 3', 'cancel-fade']);
  assert.deepEqual(page.complaints, []);
});

testShow('Set up: output groups are muted, made solo and faded, OSC is told of, time code and the press guard are set and kept', [], async (performance) => {
  const page = await openPage(performance, { view: 'setup' });
  const group = page.getByRole('region', { name: 'Levels and groups' });
  await group.getByRole('slider', { name: 'Volume of wind' }).fill('40');
  await performance.waitFor((event) => event.press === 'volume 40% wind' && event.outcome === 'taken');
  await group.getByRole('button', { name: 'Mute wind' }).click();
  await group.locator('button[aria-label="Mute wind"][aria-pressed=true]').waitFor();
  await group.getByRole('button', { name: 'Solo strings' }).click();
  await group.locator('button[aria-label="Solo strings"][aria-pressed=true]').waitFor();
  await group.getByRole('button', { name: 'Mute wind' }).click();
  await group.locator('button[aria-label="Mute wind"][aria-pressed=false]').waitFor();
  assert.deepEqual(performance.presses('taken').slice(-3), ['mute wind', 'solo strings', 'unmute wind']);
  const told = page.getByRole('region', { name: 'Ports and doors' });
  await told.locator('dd', { hasText: '127.0.0.1:' }).first().waitFor();

  const setUp = page.getByRole('region', { name: 'Time code and press guard' });
  await setUp.getByLabel('Press guard in ms', { exact: true }).fill('400');
  await page.keyboard.press('Enter');
  await told.locator('dd', { hasText: /^400 ms$/ }).waitFor();
  await setUp.getByLabel('Frame rate').selectOption('25');
  await setUp.getByRole('button', { name: 'Send time code' }).click();
  await told.locator('dd', { hasText: /^25 frames a second, to no port$/ }).waitFor();
  await setUp.getByLabel('To the port', { exact: true }).fill('The desk');
  await setUp.getByRole('button', { name: 'Set: To the port' }).click();
  await told.locator('dd', { hasText: /^25 frames a second, stands$/ }).waitFor();
  const keptIn = (file) => JSON.parse(readFileSync(join(performance.show, file), 'utf8'));
  assert.equal(keptIn('settings.json').pressGuardMs, 400);
  const { active, frameRate, output } = keptIn('midiTimeCodeSettings');
  assert.deepEqual([active, frameRate, output], [true, '25', 'The desk']);

  await page.getByRole('button', { name: 'Play a test tone' }).click();
  await becomesEqual(() => page.received.filter(({ press }) => press === 'set test-tone').map(({ outcome }) => outcome), () => ['taken']);

  // The same groups are faded where the show is performed.
  await page.getByRole('link', { name: 'Perform' }).click();
  await page.getByRole('slider', { name: 'Volume: strings' }).fill('70');
  await performance.waitFor((event) => event.press === 'volume 70% strings' && event.outcome === 'taken');
  assert.equal(await page.getByRole('slider', { name: 'Volume: wind' }).inputValue(), '40');
  await page.getByRole('link', { name: 'Set up' }).click();

  // Kept for the next time; what is open stays as it is.
  const wires = page.getByRole('region', { name: 'Outputs, groups and targets' });
  await wires.getByLabel('MIDI channels, with commas').first().fill('1, 2, 5');
  await wires.getByRole('button', { name: 'Add a group' }).click();
  assert.equal(await page.evaluate(() => document.activeElement.labels[0].textContent), 'Group');
  await page.keyboard.type('main');
  await wires.getByRole('button', { name: 'Keep the groups' }).click();
  await wires.getByRole('status').filter({ hasText: 'settings.json: groups[2].name must not be "main"' }).waitFor();
  await wires.getByLabel('Group', { exact: true }).last().fill('brass');
  await wires.getByLabel('Parts, with commas').last().fill('Horn*, Trumpet');
  await wires.getByLabel('Leaves by').last().selectOption('own');
  await wires.getByLabel('Into the reverb, dB').last().fill('-12.5');
  await wires.getByRole('button', { name: 'Remove group strings' }).click();
  await wires.getByRole('button', { name: 'Keep the groups' }).click();
  await wires.getByRole('status').filter({ hasText: 'Kept for the next time that the show is opened.' }).waitFor();
  await wires.locator('legend', { hasText: 'group brass' }).waitFor();
  const groups = keptIn('settings.json').groups.map(({ name, parts, channels, output: by, reverbDb }) => [name, parts, channels, by, reverbDb]);
  assert.deepEqual(groups, [['wind', [], [1, 2, 5], 'main', 'off'], ['brass', ['Horn*', 'Trumpet'], [], 'own', -12.5]]);
  await wires.getByRole('button', { name: 'Add a target' }).click();
  await wires.getByLabel('Target', { exact: true }).fill('lights');
  await wires.getByLabel('Port', { exact: true }).fill('8000');
  await wires.getByRole('button', { name: 'Keep the targets' }).click();
  await wires.locator('legend', { hasText: 'target lights' }).waitFor();
  assert.deepEqual(keptIn('settings.json').oscTargets, [{ name: 'lights', transport: 'udp', port: 8000, timeTags: false }]);
  assert.equal(await group.getByRole('button', { name: 'Mute strings' }).count(), 1);

  // What a real pedal does to it, the tests of the MIDI ports show.
  const pedals = page.getByRole('region', { name: 'Pedals' });
  assert.equal(await pedals.getByLabel('MIDI in').evaluate((input) => input.selectedOptions[0].text), 'none');
  await pedals.getByRole('button', { name: 'Learn Next Song' }).click();
  await page.locator('#notice', { hasText: 'no MIDI input is connected: choose one first' }).waitFor();
  assert.equal(await pedals.locator('[data-command="Next Song"] .pedal-message').textContent(), 'nothing');
  assert.deepEqual(page.complaints, []);
}, { groups: [{ name: 'wind', channels: [1, 2] }, { name: 'strings', channels: [3] }], osc: { listen: '0' } });
