// Who can use the page: rules for accessibility in every view and colour, names for screen readers, sizes of screens.

import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { openPage, sees, testShow } from './support.mjs';

const axe = readFileSync(createRequire(import.meta.url).resolve('axe-core/axe.min.js'), 'utf8');

/**
 * Violations, one line each. The policy of the page lets no script in that is not its own, so axe comes by the debugger.
 * `rules`: those that are looked at, or all.
 */
async function findViolations(page, rules) {
  if (!(await page.evaluate(() => 'axe' in window))) await page.evaluate(axe);
  const options = { resultTypes: ['violations'], ...(rules === undefined ? {} : { runOnly: { type: 'rule', values: rules } }) };
  const { violations } = await page.evaluate((chosen) => window.axe.run(document, chosen), options);
  return violations.flatMap(({ id, nodes }) => nodes.map((node) => `${id}: ${node.target.join(' ')}: ${node.failureSummary}`));
}

const Themes = ['light', 'contrast', 'dark'];

/** What is seen breaks no rule, in no colours: what the others say of names and roles, one of them says. */
export async function assertAccessible(page, what) {
  for (const theme of Themes) {
    while ((await page.evaluate(() => document.documentElement.dataset.theme)) !== theme) await page.evaluate(() => document.getElementById('theme').click());
    assert.deepEqual(await findViolations(page, theme === 'dark' ? undefined : ['color-contrast']), [], `${what} in ${theme} colours`);
  }
}

testShow('Every view in all colours: breaks no rule of accessibility', [], async (performance) => {
  const page = await openPage(performance);
  await sees(page, { motion: 'STOPPED' });
  await assertAccessible(page, 'what is stopped');
  await page.keyboard.press(' ');
  await sees(page, { lamp: /ON/, loops: /pass/ });
  await page.keyboard.press('x');
  await page.keyboard.press('g');
  await assertAccessible(page, 'a vamp');
  await page.keyboard.press('Escape');
  for (const [view, content] of [['score', '.score svg.flow'], ['edit', 'table.edits tbody tr'], ['setup', '.panel dd']]) {
    await page.goto(`${performance.url}#${view}`);
    await page.locator(`[data-view=${view}][aria-current=page]`).waitFor();
    await page.locator(content).first().waitFor();
    await assertAccessible(page, view);
  }
  await page.keyboard.press('?');
  await page.locator('#keys-dialog').waitFor();
  await assertAccessible(page, 'keys');
  await page.keyboard.press('?');
  await page.locator('[data-press=songs]').click();
  await page.locator('#songs-dialog').waitFor();
  await assertAccessible(page, 'songs');

  await page.emulateMedia({ reducedMotion: 'reduce' });
  assert.equal(await page.evaluate(() => document.getAnimations().length), 0);
});

const Controls = ['#bar', '#beat', '#lamp', '#go'];

/** Runs in the page: goes through the views and tells what is wider than its place in each; then where `controls` are. */
async function measureViews({ views, controls }) {
  const wide = [];
  for (const view of views) {
    const changed = new Promise((resolve) => addEventListener('hashchange', resolve, { once: true }));
    location.hash = view;
    await changed;
    // The page fills a view at the beginning of a frame.
    await new Promise((resolve) => requestAnimationFrame(resolve));
    for (const each of document.querySelectorAll('body, #main, footer')) if (each.scrollWidth > each.clientWidth + 1) wide.push(`${view}: ${each.id || each.tagName}`);
  }
  return { wide, boxes: controls.map((selector) => document.querySelector(selector).getBoundingClientRect().toJSON()) };
}

testShow('Every screen from a telephone to a wall: shows bar, beat and GO without scrolling, and nothing wider than itself', [], async (performance) => {
  const page = await openPage(performance);
  await sees(page, { bar: '1' });
  for (const [width, height] of [[360, 740], [740, 360], [820, 1180], [1180, 820], [1280, 800], [1920, 1080], [3840, 2160]]) {
    await page.setViewportSize({ width, height });
    const { wide, boxes } = await page.evaluate(measureViews, { views: ['score', 'edit', 'setup', 'perform'], controls: Controls });
    assert.deepEqual(wide, [], `at ${width}x${height}`);
    for (const [index, box] of boxes.entries())
      assert.ok(box.width > 0 && box.top >= 0 && box.left >= 0 && box.bottom <= height + 1 && box.right <= width + 1, `${Controls[index]} at ${width}x${height}: ${JSON.stringify(box)}`);
  }
});

testShow('Controls: none lies over another, and the volumes are in sight on a tablet held upright, a laptop and a wall', [], async (performance) => {
  const page = await openPage(performance);
  await sees(page, { bar: '1' });
  // As high as that of a song with two lines of bars.
  await page.evaluate(() => { document.querySelector('.picture').style.height = '11rem'; });
  for (const [width, height] of [[360, 740], [740, 360], [820, 1180], [1180, 820], [1280, 800], [1920, 1080], [3840, 2160]]) {
    await page.setViewportSize({ width, height });
    const { panels, bottoms, end } = await page.evaluate(() => ({
      panels: [...document.querySelectorAll('.control')].map((panel) => panel.getBoundingClientRect().toJSON()),
      bottoms: [...document.querySelectorAll('.is-volume .row')].map((row) => row.getBoundingClientRect().bottom),
      end: document.querySelector('#main').getBoundingClientRect().bottom,
    }));
    assert.equal(panels.length, 5);
    for (const [index, a] of panels.entries()) for (const b of panels.slice(index + 1))
      assert.ok(a.right <= b.left || b.right <= a.left || a.bottom <= b.top || b.bottom <= a.top, `at ${width}x${height}: ${JSON.stringify([a, b])}`);
    assert.equal(bottoms.length, 5);
    if (width !== 360 && width !== 740)
      assert.ok(Math.max(...bottoms) <= end + 1, `at ${width}x${height}: ${bottoms.join(', ')}, and the view ends at ${end}`);
  }
});
