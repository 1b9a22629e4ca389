// node screenshots.mjs SHOW DIRECTORY [SIZE...]: pictures of every view at those sizes, or all, in dark and light, of a show that
// goes round in the first vamp of song 2, as the demo show has one; of printed pages, and of what asks for a passcode.

import { mkdirSync } from 'node:fs';
import { join } from 'node:path';
import { makeShowWithPages, Passphrase } from './printed_show.mjs';
import { copyShow, endAll, findObstacle, openPage, Performance, sees, setPasscode } from './support.mjs';

const Sizes = { desktop: [1280, 800], phone: [360, 740], 'phone-on-its-side': [740, 360], tablet: [820, 1180], wall: [1920, 1080] };

const [show, directory, ...wanted] = process.argv.slice(2);
const obstacle = show && directory ? await findObstacle() : 'usage: node screenshots.mjs SHOW DIRECTORY [SIZE...]';
if (obstacle !== '') {
  console.error(obstacle);
  process.exit(2);
}
mkdirSync(directory, { recursive: true });

function* shots() {
  for (const [name, [width, height]] of Object.entries(Sizes)) {
    if (wanted.length > 0 && !wanted.includes(name)) continue;
    for (const theme of ['dark', 'light']) yield { name, theme, size: { width, height } };
  }
}

const take = (page, view, { name, theme }) => page.screenshot({ path: join(directory, `${view}-${name}-${theme}.png`) });

const performance = await Performance.start(show, { options: ['--song', '2', '--lead', '4096'] });
let isPlaying = false;
for (const shot of shots()) {
  const page = await openPage(performance, shot);
  if (!isPlaying) await page.keyboard.press('Enter');
  isPlaying = true;
  await sees(page, { lamp: /ON/, loops: /pass ([2-9]|\d\d)/ });
  await take(page, 'perform', shot);
  for (const [view, content] of [['score', '.slot .sounding[data-number]:not([data-number=""]), .score .picture:not([hidden]) svg.flow'], ['edit', 'table.edits tbody tr'], ['setup', '.panel dd']]) {
    await page.goto(`${performance.url}#${view}`);
    await page.locator(content).first().waitFor({ state: 'attached' });
    if (view === 'score') await page.waitForFunction(() => document.querySelector('.score .picture:not([hidden]) svg.flow') ?? document.querySelector('.sheet .pencil'));
    await take(page, view, shot);
  }
  await page.locator('.wires-panel fieldset').first().waitFor();
  await page.locator('.wires-panel').evaluate((panel) => panel.scrollIntoView());
  await take(page, 'wires', shot);
  await page.context().close();
}
await performance.kill();

const printed = await Performance.start(makeShowWithPages(), { options: ['--passphrase-file', Passphrase] });
for (const shot of shots()) {
  const page = await openPage(printed, { view: 'score', ...shot });
  await page.waitForFunction(() => [...document.querySelectorAll('.slot img.page-image')].some(({ complete, naturalWidth }) => complete && naturalWidth > 0));
  await take(page, 'pages', shot);
  await page.context().close();
}
await printed.kill();

const secret = copyShow();
setPasscode(secret, 'operate', 'conductor');
const guarded = await Performance.start(secret);
for (const shot of shots()) {
  const page = await openPage(guarded, { connects: false, ...shot });
  await page.getByRole('dialog', { name: 'Passcode' }).waitFor();
  await take(page, 'passcode', shot);
  await page.context().close();
}
await guarded.kill();
await endAll();
