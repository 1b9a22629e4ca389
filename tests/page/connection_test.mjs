// The page without the server, and with it again.

import assert from 'node:assert/strict';
import { copyShow, isConnected, look, makeCertificate, openPage, Performance, sees, setPasscode, testShow } from './support.mjs';

testShow('Server is killed and started again: the page says so, presses nothing, and is whole again by itself', [], async (performance) => {
  const page = await openPage(performance);
  await page.keyboard.press(' ');
  await sees(page, { motion: 'PLAYING', lamp: /ON/ });
  await performance.kill();

  await page.locator('#lost').waitFor();
  await page.locator('#lost', { hasText: /NOT CONNECTED.*What you see is [1-9]\d* s old/ }).waitFor();
  assert.equal(await page.locator('#connection').textContent(), 'NOT CONNECTED');
  await page.keyboard.press(' ');
  await sees(page, { notice: /FAILED go: The page is not connected: nothing was sent/ });
  assert.equal(await page.locator('#go').isDisabled(), true);

  const again = await Performance.start(performance.show, { port: performance.port });
  await isConnected(page);
  await sees(page, { motion: 'STOPPED', song: '1', bar: '1', lamp: /off/, loops: '' });
  assert.equal(await page.locator('#lost').isHidden(), true);
  await page.keyboard.press('Enter');
  await sees(page, { motion: 'PLAYING' });
  // The GO that was pressed in between has never come.
  assert.deepEqual(again.presses('taken'), ['play']);
});

testShow('Server is away: the page opens all the same and says that it is not connected', [], async (performance) => {
  const page = await openPage(performance);
  await page.evaluate(() => navigator.serviceWorker.ready);
  // The first visit's files were fetched before the worker was there.
  await page.reload();
  await isConnected(page);
  await performance.kill();
  await page.reload();
  await page.locator('#lost', { hasText: 'Not connected to the show yet' }).waitFor();
  assert.equal((await look(page)).motion, '');

  const again = await Performance.start(copyShow(), { port: performance.port });
  await isConnected(page);
  await sees(page, { song: '1', motion: 'STOPPED' });
});

function copyShowWithPasscode() {
  const show = copyShow();
  setPasscode(show, 'operate', 'conductor');
  return show;
}

testShow('Show with a passcode: refuses wrong ones in a sentence, then for longer and longer, and lets in whoever has the right one', [], async (performance) => {
  const page = await openPage(performance, { connects: false });
  const dialog = page.getByRole('dialog', { name: 'Passcode' });
  const answer = dialog.getByRole('alert');
  const enter = async (passcode) => {
    const answered = page.waitForResponse('**/api/login');
    await dialog.getByLabel('Passcode').fill(passcode);
    await page.keyboard.press('Enter');
    return (await answered).json();
  };
  await enter('sesame');
  await answer.filter({ hasText: /^The passcode is wrong\.$/ }).waitFor();
  const { song, motion } = await look(page);
  assert.deepEqual([song, motion, page.received], ['–', '', []]);

  // The first ones are free.
  let said = {};
  while (!/^Too many/.test(said.sentence)) said = await enter('open, sesame');
  await answer.filter({ hasText: /^Too many wrong passcodes: try again in \d+ s\.$/ }).waitFor();
  while (said.role === undefined) said = await enter('conductor');
  await isConnected(page);
  assert.equal(await dialog.isVisible(), false);
  await sees(page, { song: '1', motion: 'STOPPED' });
  await page.keyboard.press(' ');
  await sees(page, { motion: 'PLAYING' });
  assert.deepEqual(performance.presses('taken'), ['go']);
  await page.goto(`${performance.url}#edit`);
  await page.locator('#edit-locked', { hasText: 'This passcode does not allow edits.' }).waitFor();
}, {}, copyShowWithPasscode);

testShow('Every request of the page: goes to the server that it came from', [], async (performance) => {
  const page = await openPage(performance);
  for (const view of ['perform', 'score', 'edit', 'setup']) {
    await page.goto(`${performance.url}#${view}`);
    await page.locator(`[data-view=${view}][aria-current=page]`).waitFor();
  }
  await sees(page, {});
  assert.ok(page.requested.length > 20, `${page.requested.length} requests`);
  assert.deepEqual(page.requested.filter((url) => !url.startsWith(performance.url)), []);
  assert.deepEqual(page.complaints, []);
});

testShow('Over https: the page runs the show, its cookie is sent enciphered only, and http leads there', makeCertificate(), async (performance) => {
  const said = await performance.waitFor((event) => event.event === 'message' && /page is at/.test(event.sentence));
  assert.equal(said.sentence, `The page is at ${performance.url.slice(0, -1)}.`);
  const page = await openPage(performance, { connects: false });
  await page.goto(performance.url.replace('https:', 'http:'));
  const dialog = page.getByRole('dialog', { name: 'Passcode' });
  await dialog.getByLabel('Passcode').fill('conductor');
  await page.keyboard.press('Enter');
  await isConnected(page);
  assert.equal(page.url().split('#')[0], performance.url);
  assert.equal((await page.context().cookies())[0].secure, true);
  await page.keyboard.press(' ');
  await sees(page, { motion: 'PLAYING' });
  assert.deepEqual(performance.presses('taken'), ['go']);
}, {}, copyShowWithPasscode);
