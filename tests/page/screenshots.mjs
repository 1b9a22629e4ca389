// node screenshots.mjs SHOW DIRECTORY [SIZE...]: pictures of every view at those sizes, or all, in dark and light, of a show that
// goes round in the first vamp of song 2, as the demo show has one.

import { mkdirSync } from 'node:fs';
import { join } from 'node:path';
import { endAll, findObstacle, openPage, Performance, sees } from './support.mjs';

const Sizes = { desktop: [1280, 800], phone: [360, 740], 'phone-on-its-side': [740, 360], tablet: [820, 1180], wall: [1920, 1080] };

const [show, directory, ...wanted] = process.argv.slice(2);
const obstacle = show && directory ? await findObstacle() : 'usage: node screenshots.mjs SHOW DIRECTORY [SIZE...]';
if (obstacle !== '') {
  console.error(obstacle);
  process.exit(2);
}
mkdirSync(directory, { recursive: true });
const performance = await Performance.start(show, { options: ['--song', '2', '--lead', '4096'] });
let isPlaying = false;
for (const [name, [width, height]] of Object.entries(Sizes)) {
  if (wanted.length > 0 && !wanted.includes(name)) continue;
  for (const theme of ['dark', 'light']) {
    const page = await openPage(performance, { theme, size: { width, height } });
    if (!isPlaying) await page.keyboard.press('Enter');
    isPlaying = true;
    await sees(page, { lamp: /ON/, loops: /pass ([2-9]|\d\d)/ });
    await page.screenshot({ path: join(directory, `perform-${name}-${theme}.png`) });
    for (const [view, content] of [['score', '.slot .sounding[data-number]:not([data-number=""]), .score .picture:not([hidden]) svg.flow'], ['edit', 'table.edits tbody tr'], ['setup', '.panel dd']]) {
      await page.goto(`${performance.url}#${view}`);
      await page.locator(content).first().waitFor({ state: 'attached' });
      if (view === 'score') await page.waitForFunction(() => document.querySelector('.score .picture:not([hidden]) svg.flow') ?? document.querySelector('.sheet .pencil'));
      await page.screenshot({ path: join(directory, `${view}-${name}-${theme}.png`) });
    }
    await page.context().close();
  }
}
await performance.kill();
await endAll();
