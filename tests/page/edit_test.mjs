// Edits from the page, down to the file.

import assert from 'node:assert/strict';
import { readdirSync, readFileSync } from 'node:fs';
import { join } from 'node:path';
import { openPage, sees, testShow } from './support.mjs';

function listed(page) {
  return page.locator('table.edits tbody tr').allTextContents();
}

function row(page, text) {
  return page.locator('table.edits tbody tr', { hasText: text });
}

async function fillForm(page, kind, values) {
  await page.locator('#edit-kind').selectOption(kind);
  for (const [name, value] of Object.entries(values)) await page.locator(`#edit-${name}`).fill(value);
  await page.locator('.edit-form button[type=submit]').click();
}

function newestLog(show) {
  const logs = readdirSync(show).filter((name) => name.endsWith('.logdata')).sort((a, b) => a.localeCompare(b, 'en', { numeric: true }));
  return { name: logs.at(-1), text: readFileSync(join(show, logs.at(-1)), 'utf8') };
}

testShow('Edit that is added, undone, made again and saved: is listed at each step, on both pages, and in the file', ['--song', '3'], async (performance) => {
  const page = await openPage(performance, { view: 'edit' });
  const watcher = await openPage(performance, { view: 'edit', size: { width: 360, height: 740 } });
  await row(page, 'Bridge').waitFor();
  const before = newestLog(performance.show);

  await fillForm(page, 'vamp', { from: '20', to: '23', max: '4' });
  await row(page, 'bars 20 to 23').waitFor();
  await row(watcher, 'bars 20 to 23').waitFor();
  await page.locator('#version-state.is-unsaved').waitFor();
  await page.locator('.edit [data-press=undo]').click();
  await row(page, 'bars 20 to 23').waitFor({ state: 'detached' });
  await row(watcher, 'bars 20 to 23').waitFor({ state: 'detached' });
  await page.locator('.edit [data-press=redo]').click();
  await row(page, 'bars 20 to 23').waitFor();
  assert.equal(newestLog(performance.show).name, before.name);
  await page.locator('.edit [data-press=save]').click();
  await page.locator('#version-state:not(.is-unsaved)').waitFor();

  const saved = newestLog(performance.show);
  assert.notEqual(saved.name, before.name);
  const vamps = (text) => text.split('\n').filter((line) => /vamp/i.test(line)).length;
  assert.equal(vamps(saved.text), vamps(before.text) + 1);
  assert.deepEqual([...page.complaints, ...watcher.complaints], []);
});

testShow('Every kind of edit: is added by its form and listed', ['--song', '3'], async (performance) => {
  const page = await openPage(performance, { view: 'edit' });
  await row(page, 'Bridge').waitFor();
  const rows = [
    ['vamp', { from: '2', to: '3' }, /vampbars 2 to 3/],
    ['repeat', { from: '5', to: '6', times: '3' }, /repeatbars 5 to 63 times/],
    ['cut', { from: '30', to: '31' }, /cutbars 30 to 31/],
    ['fermata', { from: '8', to: '8' }, /fermatabar 8/],
    ['caesura', { at: '12', text: 'wait for it' }, /caesura12"wait for it"/],
    ['tempo-scale', { from: '40', to: '44', percent: '80' }, /tempo scalebars 40 to 4480%/],
    ['transposition', { from: '40', to: '44', semitones: '-2' }, /transpositionbars 40 to 44down 2 semitones/],
    ['click', { from: '50', to: '52', every: '1/8' }, /clickbars 50 to 52every 1\/8/],
    ['marker', { at: '33', text: 'The "new" one' }, /marker33"The "new" one"/],
    ['sfx', { at: '34', sound: 'door.wav', gain: '-6' }, /sfx34"door.wav", -6 dB/],
    ['ambient', { from: '35', to: '36', sound: 'rain.wav' }, /ambient sfxbars 35 to 36"rain.wav"/],
    ['osc', { at: '37', address: '/go', arg: 'i:1 s:slow' }, /OSC37\/go 1 slow/],
  ];
  for (const [kind, values, text] of rows) {
    await fillForm(page, kind, values);
    await row(page, text).waitFor();
  }
  assert.equal((await listed(page)).length, rows.length + 2);
  await page.locator('#edit-follow').selectOption('attacca');
  await page.locator('#edit-answer', { hasText: 'attacca' }).waitFor();
});

testShow('Edit that is changed and removed: keeps its number and goes; one that cannot be is refused in a sentence', [], async (performance) => {
  const page = await openPage(performance, { view: 'edit' });
  await row(page, 'bars 2 to 3').getByRole('button', { name: /^Change/ }).click();
  assert.equal(await page.locator('#edit-to').inputValue(), '3');
  await page.locator('#edit-to').fill('4');
  await page.keyboard.press('Enter');
  await row(page, 'bars 2 to 4').waitFor();
  await row(page, '"Door"').getByRole('button', { name: /^Remove/ }).click();
  await row(page, '"Door"').waitFor({ state: 'detached' });
  assert.equal(await page.locator('.warnings').isHidden(), true);
  await fillForm(page, 'cut', { from: '6', to: '6' });
  await page.locator('.warnings li', { hasText: /^The caesura at 6 stands where the cut over bar 6 begins: it stops before the jump\.$/ }).waitFor();
  await row(page, 'cut').getByRole('button', { name: /^Remove/ }).click();
  await page.locator('.warnings').waitFor({ state: 'hidden' });
  const count = (await listed(page)).length;
  await fillForm(page, 'cut', { from: '70', to: '71' });
  await page.locator('.edit-form .is-refusal', { hasText: /there is no bar 70/ }).waitFor();
  assert.equal((await listed(page)).length, count);
});

testShow('Bars that are pulled over on the picture: are the range of the form', ['--song', '3'], async (performance) => {
  const page = await openPage(performance, { view: 'edit' });
  const from = await page.locator('[data-bar="3"]').boundingBox();
  const to = await page.locator('[data-bar="6"]').boundingBox();
  await page.mouse.move(from.x + from.width / 2, from.y + 20);
  await page.mouse.down();
  await page.mouse.move(to.x + to.width / 2, to.y + 20, { steps: 4 });
  await page.mouse.up();
  assert.deepEqual([await page.locator('#edit-from').inputValue(), await page.locator('#edit-to').inputValue()], ['3', '6']);
  await page.locator('.edit-form button[type=submit]').click();
  await row(page, 'bars 3 to 6').waitFor();
});

testShow('Edit while the song plays: is made, and the music goes on', ['--song', '3'], async (performance) => {
  const page = await openPage(performance);
  await page.keyboard.press(' ');
  await sees(page, { motion: 'PLAYING' });
  await page.goto(`${performance.url}#edit`);
  await fillForm(page, 'marker', { at: '3', text: 'Now' });
  await row(page, 'Now').waitFor();
  await page.goto(`${performance.url}#perform`);
  await sees(page, { motion: 'PLAYING', marker: 'Now' });
});

testShow('Versions: tell what changed since, and one that is gone back to is in the log again', [], async (performance) => {
  const page = await openPage(performance, { view: 'edit' });
  await row(page, '"Door"').waitFor();
  const first = page.locator('.versions li', { hasText: '1.0' });
  await first.getByRole('button', { name: /^Changes since/ }).click();
  await page.locator('.difference', { hasText: /vamp bars 2 to 3/ }).waitFor();
  await first.getByRole('button', { name: /^Go back to/ }).click();
  await page.locator('.edit .none', { hasText: 'no edits' }).waitFor();
  await page.locator('.edit [data-press=undo]').click();
  await row(page, '"Door"').waitFor();
});

testShow('Locked show: takes no edits from the page and says so; it is still performed', ['--locked'], async (performance) => {
  const page = await openPage(performance, { view: 'edit' });
  await row(page, '"Door"').waitFor();
  await page.locator('#edit-locked', { hasText: 'The show is locked' }).waitFor();
  const enabled = await page.locator('.edit button:not(:disabled), .edit input:not(:disabled), .edit select:not(:disabled)').evaluateAll((all) => all.map((each) => each.getAttribute('aria-label') ?? each.id).filter((name) => !/^Changes since|^edit-song$/.test(name)));
  assert.deepEqual(enabled, []);
  await page.keyboard.press('u');
  await page.locator('#notice.is-refusal').waitFor();
  await page.keyboard.press(' ');
  await page.goto(`${performance.url}#perform`);
  await sees(page, { motion: 'PLAYING' });
});
