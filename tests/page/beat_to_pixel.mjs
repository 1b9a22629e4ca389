// node beat_to_pixel.mjs [TIMES]: how long after a beat is heard the page has drawn it, over a song of 120 beats at double tempo that
// is played so many times, twice unless another number is given. On a quiet machine: what it prints is the machine's, too.

import { copyShow, endAll, findObstacle, openPage, Performance } from './support.mjs';

const times = Number(process.argv[2] ?? 2);
const obstacle = await findObstacle();
if (obstacle !== '') {
  console.error(obstacle);
  process.exit(2);
}

/** Runs in the page: the difference from its clock to the server's in milliseconds, by the quickest of many questions. */
async function findOffset() {
  const socket = new WebSocket(`${location.origin.replace('http', 'ws')}/ws`);
  await new Promise((resolve) => { socket.onopen = resolve; });
  let best = { took: Infinity, offset: 0 };
  for (let probe = 0; probe < 50; ++probe) {
    const asked = performance.now();
    socket.send(JSON.stringify({ type: 'time', t: asked }));
    const now = await new Promise((resolve) => {
      socket.onmessage = ({ data }) => {
        const message = JSON.parse(data);
        if (message.type === 'time') resolve(message.now);
      };
    });
    const took = performance.now() - asked;
    if (took < best.took) best = { took, offset: now - asked - took / 2 };
  }
  socket.close();
  return best;
}

/** Runs in the page: notes the moment at which each change of the beat has been painted. */
function watchBeats() {
  window.painted = [];
  const channel = new MessageChannel();
  // What is posted while a frame is made comes when it has been.
  channel.port1.onmessage = () => window.painted.push(performance.now());
  new MutationObserver(() => channel.port2.postMessage(0)).observe(document.getElementById('beat'), { childList: true, characterData: true, subtree: true });
}

const TicksOfBeat = 480;

const show = await Performance.start(copyShow(), { options: ['--song', '3'] });
const page = await openPage(show);
const { offset, took } = await page.evaluate(findOffset);
await page.evaluate(watchBeats);
show.child.stdin.write('tempo 200%\n');
for (let time = 1; time <= times; ++time) {
  show.child.stdin.write(time === 1 ? 'play\n' : 'load 3\nplay\n');
  while (show.events.filter(({ event }) => event === 'song-end').length < time) await new Promise((resolve) => setTimeout(resolve, 500));
}
const painted = await page.evaluate(() => window.painted);
const playheads = page.received.filter(({ type }) => type === 'playhead');
const late = [];
for (const moment of painted) {
  const now = moment + offset;
  const from = playheads.findLast(({ at }) => at <= now);
  if (from === undefined || !from.moving) continue;
  const ticks = (from.tick + ((now - from.at) / 1000) * from.ticksPerSecond) % TicksOfBeat;
  late.push(((ticks > TicksOfBeat / 2 ? ticks - TicksOfBeat : ticks) / from.ticksPerSecond) * 1000);
}
late.sort((one, other) => one - other);
const at = (quantile) => late[Math.floor(quantile * (late.length - 1))].toFixed(1);
console.log(`${late.length} beats, drawn after they were heard: p50 ${at(0.5)} ms, p90 ${at(0.9)} ms, p99 ${at(0.99)} ms, longest ${at(1)} ms, earliest ${at(0)} ms; the clocks agree to ${(took / 2).toFixed(2)} ms`);
await show.kill();
await endAll();
