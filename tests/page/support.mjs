// What the tests of the page have in common: the browser, a show, the program that performs it, and looking at a page.

import assert from 'node:assert/strict';
import { AsyncLocalStorage } from 'node:async_hooks';
import { spawn, execFileSync } from 'node:child_process';
import { existsSync, mkdtempSync, mkdirSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { createServer } from 'node:net';
import { tmpdir } from 'node:os';
import { dirname, join } from 'node:path';
import { createInterface } from 'node:readline';
import test, { suite } from 'node:test';
import { fileURLToPath } from 'node:url';

export const Root = join(dirname(fileURLToPath(import.meta.url)), '..', '..');
const Stage = process.env.STAGE ?? join(Root, 'build/release/bin/stage');
const Chromium = process.env.CHROMIUM ?? '/usr/bin/chromium';
const PatientMs = 30000;

/** Why the tests cannot run here; empty where they can. */
export async function findObstacle({ needsStage = true } = {}) {
  if (!existsSync(Chromium)) return 'Chromium is not installed';
  if (needsStage && !existsSync(Stage)) return `${Stage} is not built`;
  try {
    await import('playwright-core');
    await import('axe-core');
    return '';
  } catch {
    return 'playwright-core is not installed: scripts/setup-packages does it';
  }
}

const work = mkdtempSync(join(tmpdir(), 'page-tests-'));
export const WorkFolder = work;
/** What each test has opened and started: {contexts, running}. */
const belongings = new AsyncLocalStorage();
const withoutTest = { contexts: new Set(), running: new Set() };
const own = () => belongings.getStore() ?? withoutTest;
let browser = null;

function findBrowser() {
  browser ??= launchBrowser();
  return browser;
}

async function launchBrowser() {
  const { chromium } = await import('playwright-core');
  return chromium.launch({
    executablePath: Chromium,
    args: ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking', '--disable-component-update', '--disable-sync'],
  });
  return browser;
}

/** Closes what a test has opened and started, however it ended. */
async function endTest() {
  const { contexts, running } = own();
  await Promise.all([...contexts].map((context) => context.close()));
  await Promise.all([...running].map((server) => server.kill()));
}

/** The music takes its time in real time: meanwhile another test has the machine. */
const AtOnce = 2;
const showTests = [];

/**
 * A test over a show of its own: `body(performance)`; its programs and pages end with it. `options` are those of the program;
 * `settings` are put into those of the show that `copy` makes.
 */
export function testShow(name, options, body, settings = {}, copy = copyShow) {
  showTests.push({ name, run: () => belongings.run({ contexts: new Set(), running: new Set() }, async () => {
    try {
      const show = copy();
      const file = join(show, 'settings.json');
      writeFileSync(file, JSON.stringify({ ...JSON.parse(readFileSync(file, 'utf8')), ...settings }));
      await body(await Performance.start(show, { options }));
    } finally {
      await endTest();
    }
  }) });
}

/** Runs all that `testShow` was called for. */
export function runShowTests() {
  suite('A show in the browser', { concurrency: AtOnce }, () => {
    for (const { name, run } of showTests) test(name, { timeout: (process.env.PAGE_WHOLE_SONGS === '1' ? 12 : 4) * PatientMs }, run);
  });
}

export async function endAll() {
  await (await browser)?.close();
  rmSync(work, { recursive: true, force: true });
}

function run(...words) {
  return execFileSync(Stage, words, { encoding: 'utf8', stdio: ['ignore', 'pipe', 'pipe'] });
}

const bars = (count) => `| c4/2 ${'| % '.repeat(count - 1)}|`;

/** Short songs with everything that an operator meets: a vamp, a caesura, a fermata, a repeat, a cut. A second a bar. */
const Songs = {
  '1.score.txt': `number 1\ntitle The Door\nat 1 meter 2/4\nat 1 tempo 120\nat 1 key D minor\n\npart Piano program 1\n${bars(7)}\n`,
  '2.score.txt': `number 2\ntitle A Held Note\nat 1 meter 2/4\nat 1 tempo 120\n\npart Organ program 20\n${bars(7)}\n`,
  '3.score.txt': `number 3\ntitle The Long Road Home\nat 1 meter 2/4\nat 1 tempo 120\n\npart Piano program 1\n${bars(60)}\n`,
};

const Edits = `add vamp --song 1 --from 2 --to 3
add caesura --song 1 --at 6 --text "wait for the door"
add marker --song 1 --at 4 --text Door
add repeat --song 2 --from 1 --to 2 --times 2
add fermata --song 2 --from 3 --to 3
add cut --song 2 --from 5 --to 6
add marker --song 3 --at 9 --text Bridge
add marker --song 3 --at 17 --text "Last verse"
`;

/** Options of a program that shows a certificate which nobody has signed but itself. */
export function makeCertificate() {
  const [certificate, key] = ['page.pem', 'page.key'].map((name) => join(work, name));
  execFileSync('openssl', ['req', '-x509', '-newkey', 'ec', '-pkeyopt', 'ec_paramgen_curve:prime256v1', '-nodes', '-subj', '/CN=pit', '-keyout', key, '-out', certificate], { stdio: 'ignore' });
  return ['--web-certificate', certificate, '--web-key', key];
}

let shows = 0;
let original = null;

function makeShow() {
  const texts = join(work, 'texts');
  mkdirSync(texts);
  for (const [name, text] of Object.entries(Songs)) writeFileSync(join(texts, name), text);
  run('compose', ...Object.keys(Songs).map((name) => join(texts, name)), '-o', join(work, 'midi'));
  original = join(work, 'original');
  run('import', join(work, 'midi'), '-o', original, '--title', 'An Evening of Tests');
  writeFileSync(join(work, 'show.edits'), Edits);
  run('edit', original, 'apply', join(work, 'show.edits'));
}

/** A show directory of its own for one test. */
export function copyShow() {
  if (original === null) makeShow();
  const copy = join(work, `show-${++shows}`);
  execFileSync('cp', ['-r', original, copy]);
  return copy;
}

/** Waits until both give the same; `one` and `other` may promise it. */
export async function becomesEqual(one, other) {
  const until = Date.now() + PatientMs;
  for (;;) {
    const [actual, expected] = [await one(), await other()];
    if (JSON.stringify(actual) === JSON.stringify(expected)) return;
    if (Date.now() > until) assert.deepEqual(actual, expected);
    await new Promise((resolve) => setImmediate(resolve));
  }
}

export function runStage(...words) {
  return run(...words);
}

export function setPasscode(show, role, passcode) {
  execFileSync(Stage, ['passcode', show, role], { input: `${passcode}\n`, stdio: ['pipe', 'ignore', 'pipe'] });
}

/** A show that is imported from scores, with edits as `stage edit SHOW apply` reads them. */
export function importScores(scores, edits = '') {
  const show = join(work, `show-${++shows}`);
  run('import', ...scores, '-o', show, '--title', 'Scores');
  if (edits !== '') {
    writeFileSync(`${show}.edits`, edits);
    run('edit', show, 'apply', `${show}.edits`);
  }
  return show;
}

export async function findFreePort() {
  const server = createServer();
  await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
  const { port } = server.address();
  await new Promise((resolve) => server.close(resolve));
  return port;
}

/** A running `stage play` over no device, with its events. */
export class Performance {
  events = [];
  #waiting = [];

  static async start(show, { port, options = [] } = {}) {
    const performance = new Performance();
    performance.port = port ?? (await findFreePort());
    performance.show = show;
    performance.url = `http${options.includes('--web-certificate') ? 's' : ''}://127.0.0.1:${performance.port}/`;
    performance.#start(['play', show, '--headless', '--output', 'null', '--no-take', '--web', `127.0.0.1:${performance.port}`, ...options]);
    const ended = performance.ended.then(() => { throw new Error(`the program has ended: ${performance.errors}`); });
    ended.catch(() => {});
    await Promise.race([performance.waitFor((event) => event.event === 'ready'), ended]);
    return performance;
  }

  #start(words) {
    this.child = spawn(Stage, words, { stdio: ['pipe', 'pipe', 'pipe'] });
    this.ended = new Promise((resolve) => this.child.once('exit', resolve));
    own().running.add(this);
    this.running = own().running;
    this.errors = '';
    this.child.stderr.on('data', (data) => { this.errors += data; });
    this.child.stdin.on('error', () => {});
    createInterface({ input: this.child.stdout }).on('line', (line) => {
      const event = JSON.parse(line);
      this.events.push(event);
      this.#waiting = this.#waiting.filter((waiter) => !waiter(event));
    });
  }

  /** The first event, from the beginning on, that fits. */
  waitFor(fits) {
    const found = this.events.find(fits);
    return found === undefined ? this.waitForNext(fits) : Promise.resolve(found);
  }

  /** The first one from now on. */
  waitForNext(fits) {
    // Where it was waited for is known only now.
    const late = new Error(`the event did not come: ${fits}`);
    return new Promise((resolve, reject) => {
      const timer = setTimeout(() => {
        late.message += `; the program said: ${this.errors}`;
        reject(late);
      }, PatientMs);
      this.#waiting.push((event) => {
        if (!fits(event)) return false;
        clearTimeout(timer);
        resolve(event);
        return true;
      });
    });
  }

  /** Of all pages, as the desk has decided. */
  presses(outcome) {
    return this.events.filter((event) => event.event === 'press' && event.door === 'page' && event.outcome === outcome).map((event) => event.press);
  }

  /** At once, as a power cut does it. */
  async kill() {
    this.running.delete(this);
    this.child.kill('SIGKILL');
    await this.ended;
  }
}

/** A page that is open, and connected unless it is not to be waited for. It notes whatever the browser complains of, and every frame of its sockets. */
export async function openPage(performance, { view = 'perform', theme = 'dark', size = { width: 1280, height: 800 }, connects = true } = {}) {
  const context = await (await findBrowser()).newContext({ viewport: size, ignoreHTTPSErrors: true });
  own().contexts.add(context);
  await context.addInitScript((name) => localStorage.getItem('stage-theme') ?? localStorage.setItem('stage-theme', name), theme);
  await context.addInitScript(`window.lookAtPage = ${lookAtPage}; (${watchPage})();`);
  const page = await context.newPage();
  page.setDefaultTimeout(PatientMs);
  page.complaints = [];
  page.requested = [];
  page.received = [];
  page.on('console', (message) => ['error', 'warning'].includes(message.type()) && page.complaints.push(message.text()));
  page.on('pageerror', (problem) => page.complaints.push(String(problem)));
  page.on('request', (request) => page.requested.push(request.url()));
  page.on('websocket', (socket) => socket.on('framereceived', ({ payload }) => page.received.push(JSON.parse(payload))));
  await page.goto(`${performance.url}#${view}`);
  if (connects) await isConnected(page);
  return page;
}

export function isConnected(page) {
  return page.waitForFunction(() => document.body.dataset.connection === 'connected');
}

/** Runs in the page: what an operator reads there. */
function lookAtPage() {
  const read = (selector) => [...document.querySelectorAll(selector)].filter((element) => !element.hidden && !element.closest('[hidden]')).map((element) => element.textContent).join(' | ');
  return {
    song: read('.song-number'), title: read('.song-title'), motion: read('.motion'), bar: read('#bar'), beat: read('#beat'), lamp: read('#lamp'),
    counted: read('.count-name'), count: read('.count-number'), loops: read('.loops li'), tempo: read('[data-fact=tempo]'), meter: read('[data-fact=meter]'),
    key: read('[data-fact=key]'), marker: read('[data-fact=marker]'), next: read('[data-fact=next]'), presses: read('.happenings section:first-child li'),
    notice: read('#notice'), go: read('#go small'),
  };
}

/** Runs in the page: keeps all that it has shown, however short, the bars in their order, what a screen reader was told, and when each event came. */
function watchPage() {
  window.arrivals = [];
  window.WebSocket = class extends window.WebSocket {
    constructor(...words) {
      super(...words);
      window.lastSocket = this;
      this.addEventListener('message', ({ data }) => {
        const { type, event, bar } = JSON.parse(data);
        if (type === 'event') window.arrivals.push({ event, bar, at: performance.now() });
      });
    }
  };
  window.shown = [];
  window.seenUpTo = 0;
  window.shownBars = [];
  window.announced = [];
  new MutationObserver((changes) => {
    const now = window.lookAtPage();
    window.shown.push(now);
    const announcer = document.getElementById('announcer');
    if (changes.some(({ target }) => announcer?.contains(target))) window.announced.push(announcer.textContent);
    if (/\d/.test(now.bar) && now.bar !== window.shownBars.at(-1)) window.shownBars.push(now.bar);
  }).observe(document, { childList: true, characterData: true, subtree: true });
}

export function look(page) {
  return page.evaluate(() => window.lookAtPage());
}

async function waitUntil(page, wanted, fits, what) {
  const patterns = Object.entries(wanted).map(([name, value]) => [name, value instanceof RegExp ? value.source : `^${value.replace(/[.*+?^${}()|[\]\\]/g, '\\$&')}$`]);
  try {
    await page.waitForFunction(fits, patterns, { polling: 'raf' });
  } catch {
    throw new Error(`the page ${what} ${JSON.stringify(Object.fromEntries(patterns))} but ${JSON.stringify(await look(page))}`);
  }
}

/** Waits until the page shows all of this at once: texts, or regular expressions. */
export function sees(page, wanted) {
  return waitUntil(page, wanted, (all) => {
    const now = window.lookAtPage();
    window.seenUpTo = window.shown.length;
    return all.every(([name, pattern]) => new RegExp(pattern).test(now[name]));
  }, 'does not show');
}

/** Waits until it has shown this since what was seen last, if only for a moment. */
export function hasSeen(page, wanted) {
  return waitUntil(page, wanted, (all) => {
    const found = window.shown.findIndex((look, index) => index >= window.seenUpTo && all.every(([name, pattern]) => new RegExp(pattern).test(look[name])));
    if (found >= 0) window.seenUpTo = found;
    return found >= 0;
  }, 'has not shown');
}
