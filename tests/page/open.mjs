// node open.mjs URL [PICTURE]: opens the page of a show that is played somewhere, tells what it shows, and stops it. Exit code 77
// where there is no browser, 1 where the browser complains.

import { endAll, findObstacle, look, openPage, sees } from './support.mjs';

const [url, picture] = process.argv.slice(2);
const obstacle = await findObstacle({ needsStage: false });
if (obstacle !== '') {
  console.log(`not opened: ${obstacle}`);
  process.exit(77);
}
const page = await openPage({ url: url.endsWith('/') ? url : `${url}/` });
await sees(page, { motion: 'PLAYING', bar: /^\d/ });
const { song, title, bar } = await look(page);
console.log(`the page shows song ${song}, ${title}, bar ${bar}`);
if (picture) await page.screenshot({ path: picture });
await page.keyboard.press('Escape');
await sees(page, { motion: 'STOPPED' });
console.log('and has stopped it');
const { complaints } = page;
await endAll();
if (complaints.length > 0) {
  console.error(complaints.join('\n'));
  process.exit(1);
}
