// The page's own rules, without a browser: keys, the lines of edits, the clock, bars and beats.

import assert from 'node:assert/strict';
import { readdirSync, readFileSync } from 'node:fs';
import { join } from 'node:path';
import test from 'node:test';
import { Root } from './support.mjs';

/** A module of the page that imports nothing. */
function load(name) {
  return import(`data:text/javascript,${encodeURIComponent(readFileSync(join(Root, 'stage/web/page', name), 'utf8'))}`);
}

const { OperatorKeys } = await load('operator_keys.js');
const { addLine, changeLine, EditKinds, quote, valuesOf } = await load('edit_kinds.js');
const { ServerClock } = await load('server_clock.js');
const { barsOfMeasure, followFlow, interpolate, nextSheet, turnSheets } = await load('score_flow.js');
const { limitRun, nestLoops, placeAt, SteadyTick } = await load('song_time.js');

const stopped = { isMoving: false, tempoScale: 1, volumes: { master: 1, music: 0.5 }, hasArrows: true };
const playing = { ...stopped, isMoving: true };

function type(keys, text, context) {
  return [...text].map((key) => keys.take(key === '\n' ? 'Enter' : key, context)).at(-1);
}

test('Keys of the show: each presses what the terminal\'s screen presses', () => {
  const rows = [[' ', 'go'], ['Enter', 'play'], ['p', 'pause'], ['P', 'pause'], ['f', 'fade 3'], ['c', 'cancel-fade'], ['ArrowLeft', 'previous-marker'],
    ['ArrowRight', 'next-marker'], ['u', 'undo'], ['r', 'redo'], ['s', 'save'], ['+', 'tempo 101%'], ['=', 'tempo 101%'], ['-', 'tempo 99%'],
    ['[', 'volume 95%'], [']', 'volume 100%'], ['{', 'volume 45% music'], ['}', 'volume 55% music']];
  for (const [key, line] of rows) assert.deepEqual(new OperatorKeys().take(key, playing), { kind: 'press', line }, key);
});

test('Esc: stops what moves, is panic when pressed again in time or when nothing moves', () => {
  let now = 0;
  const keys = new OperatorKeys(() => now);
  assert.equal(keys.take('Escape', playing).line, 'stop');
  now = 2000;
  assert.equal(keys.take('Escape', playing).line, 'panic');
  now = 4001;
  assert.equal(keys.take('Escape', playing).line, 'stop');
  now = 10000;
  assert.equal(keys.take('Escape', stopped).line, 'panic');
});

test('Tempo key pressed quickly: counts from what was asked for, within the range', () => {
  let now = 0;
  const keys = new OperatorKeys(() => now);
  assert.equal(keys.take('+', playing).line, 'tempo 101%');
  assert.equal(keys.take('+', playing).line, 'tempo 102%');
  now = 500;
  assert.equal(keys.take('+', playing).line, 'tempo 101%');
  assert.equal(new OperatorKeys().take('+', { ...playing, tempoScale: 2 }).line, 'tempo 200%');
  assert.equal(new OperatorKeys().take('-', { ...playing, tempoScale: 0.5 }).line, 'tempo 50%');
});

test('A bar that is typed: Enter goes there, Esc leaves, Space goes on', () => {
  const keys = new OperatorKeys();
  assert.equal(type(keys, '12:3\n', playing).line, 'seek 12:3');
  assert.equal(keys.mode, 'show');
  assert.equal(type(keys, 'g17', playing).kind, 'none');
  assert.equal(keys.entry, '17');
  keys.take('Backspace', playing);
  assert.equal(keys.entry, '1');
  keys.take('Escape', playing);
  assert.equal(keys.mode, 'show');
  assert.equal(type(keys, '5 ', playing).line, 'go');
  assert.equal(type(keys, 'g\n', playing).kind, 'none');
  assert.equal(type(keys, `g${'1'.repeat(17)}`, playing).kind, 'refuse');
});

test('Up and Down: step while playing, choose from the list when stopped', () => {
  const keys = new OperatorKeys();
  assert.equal(keys.take('ArrowDown', playing).line, 'next');
  assert.equal(keys.take('ArrowUp', playing).line, 'previous');
  assert.deepEqual(keys.take('ArrowDown', stopped), { kind: 'choose', step: 1 });
  assert.equal(keys.mode, 'songs');
  assert.equal(keys.take(' ', stopped).kind, 'refuse');
  assert.deepEqual(keys.take('Enter', stopped), { kind: 'load' });
});

test('A view that is scrolled: keeps arrows, Enter and what is not the show\'s, and gives digits', () => {
  const keys = new OperatorKeys();
  for (const key of ['ArrowDown', 'Enter', 'Tab', 'PageDown', 'F5']) assert.equal(keys.take(key, { ...playing, hasArrows: false }), null, key);
  assert.equal(keys.take('x', playing).kind, 'refuse');
  keys.take('1', { ...playing, hasArrows: false });
  keys.take('2', { ...playing, hasArrows: false });
  assert.equal(keys.take('Enter', { ...playing, hasArrows: false }).line, 'seek 12');
});

test('Line of an edit: is written for every kind as the grammar reads it', () => {
  const rows = [
    ['vamp', { from: '12', to: '15', max: '' }, 'add vamp --from 12 --to 15'],
    ['vamp', { from: '12:3', to: 'end', max: '4' }, 'add vamp --from 12:3 --to end --max 4'],
    ['repeat', { from: '1', to: '2', times: '3' }, 'add repeat --from 1 --to 2 --times 3'],
    ['cut', { from: '12 (2)', to: '15' }, 'add cut --from "12 (2)" --to 15'],
    ['fermata', { from: '4', to: '4' }, 'add fermata --from 4 --to 4'],
    ['caesura', { at: '17:3', text: 'wait for the door' }, 'add caesura --at 17:3 --text "wait for the door"'],
    ['tempo-scale', { from: '1', to: '8', percent: '92.5' }, 'add tempo-scale --from 1 --to 8 --percent 92.5'],
    ['transposition', { from: '1', to: 'end', semitones: '-2' }, 'add transposition --from 1 --to end --semitones=-2'],
    ['click', { from: '9', to: '12', every: '3/8' }, 'add click --from 9 --to 12 --every 3/8'],
    ['marker', { at: '9', text: 'The "Door"' }, 'add marker --at 9 --text \'The "Door"\''],
    ['sfx', { at: '3', to: '', sound: 'sounds/bell.wav', gain: '-6' }, 'add sfx --at 3 --sound sounds/bell.wav --gain=-6'],
    ['ambient', { from: '1', to: '9', sound: 'a b.wav' }, 'add ambient --from 1 --to 9 --sound "a b.wav"'],
    ['osc', { at: '9', address: '/curtain', arg: 'i:1 s:slow', target: 'lights' }, 'add osc --at 9 --address /curtain --arg=i:1 --arg=s:slow --target lights'],
  ];
  for (const [kind, values, line] of rows) assert.equal(addLine(EditKinds.find((each) => each.kind === kind), values), line);
  assert.deepEqual(new Set(rows.map(([kind]) => kind)), new Set(EditKinds.map(({ kind }) => kind)));
});

test('Word with all marks and a line end: stays one word of one line', () => {
  assert.equal(quote('"\'`'), '"”\'`"');
  assert.equal(quote('a\nb'), '"a b"');
  assert.equal(quote('plain'), 'plain');
});

const song = {
  endTick: 7680,
  bars: [{ label: '0', tick: 0 }, { label: '1', tick: 480 }, { label: '2', tick: 2400 }, { label: '3', tick: 4320 }, { label: '3', tick: 5760 }],
  beats: [0, 480, 960, 1440, 1920, 2400, 2880, 3360, 3840, 4320, 4800, 5280, 5760, 6240, 6720, 7200],
  clickedBeats: [{ tick: 0, bar: '0', beat: 1 }, { tick: 480, bar: '1', beat: 1 }, { tick: 1440, bar: '1', beat: 2 }],
  edits: [{ kind: 'cut', start: 4320, end: 5760 }],
};

test('Form of an edit that is there: shows its places and values, and sends only what changed', () => {
  const kind = (name) => EditKinds.find((each) => each.kind === name);
  const vamp = valuesOf(kind('vamp'), { start: 480, end: 4320, value: 'at most 3 times' }, song);
  assert.deepEqual(vamp, { from: '1', to: '2', max: '3' });
  assert.equal(changeLine(kind('vamp'), 4, { ...vamp, to: '3' }, vamp), 'change 4 --to 3');
  assert.equal(changeLine(kind('vamp'), 4, vamp, vamp), '');
  assert.deepEqual(valuesOf(kind('transposition'), { start: 0, end: 2880, value: 'down 2 semitones' }, song), { from: '0', to: '2:2', semitones: '-2' });
  assert.deepEqual(valuesOf(kind('caesura'), { start: 3000, end: 3000, value: '"wait", version 2' }, song), { at: '2:2+120', text: 'wait', 'version-target': '2' });
  assert.deepEqual(valuesOf(kind('sfx'), { start: 5760, end: 5760, value: '"a.wav", -6 dB' }, song), { at: 't5760', to: '', sound: 'a.wav', gain: '-6' });
  assert.equal(valuesOf(kind('sfx'), { start: 0, end: 7680, value: '"a.wav"' }, song).to, 'end');
});

test('Place of a tick: is that of the beats as they are counted', () => {
  assert.deepEqual(placeAt(song, 1439), { bar: '1', beat: '1', tick: 480 });
  assert.deepEqual(placeAt(song, 1440), { bar: '1', beat: '2', tick: 1440 });
});

test('Playhead between two reports: stops before a loop\'s end, a cut and the song\'s end', () => {
  assert.equal(limitRun(song, [], 100, 200), 200);
  assert.equal(limitRun(song, [{ start: 0, end: 2400, left: false }], 2300, 2500), 2399);
  assert.equal(limitRun(song, [{ start: 0, end: 2400, left: true }], 2300, 2500), 2399);
  assert.equal(limitRun(song, [], 4300, 4400), 4319);
  assert.equal(limitRun(song, [], 7600, 7700), 7679);
});

test('Playhead that has run on while the sound was late: waits for the music; after a jump it goes back', () => {
  const steady = new SteadyTick();
  assert.deepEqual([470, 490, 480, 489, 495].map((tick) => steady.follow(tick, 100)), [470, 490, 490, 490, 495]);
  assert.equal(steady.follow(390, 100), 390, 'so far it has never run');
  steady.forget();
  assert.equal(steady.follow(380, 100), 380);
});

test('Loops of a picture: one that holds another lies above it', () => {
  const levels = nestLoops([{ start: 0, end: 100 }, { start: 10, end: 50 }, { start: 200, end: 300 }]).map(({ start, level }) => [start, level]);
  assert.deepEqual(new Map(levels), new Map([[0, 1], [10, 0], [200, 0]]));
});

const eightBars = [...Array(8).keys()].map((index) => ({ label: String(index + 1), tick: index * 100, end: (index + 1) * 100 }));
const flow = (edits, active, tick) => followFlow({ edits, endTick: 800 }, eightBars, active, tick).map((index) => eightBars[index].label).join(' ');

test('Bars that follow: go round a loop once, skip what is cut, and leave a loop that was left or is in its last pass', () => {
  const vamp = { kind: 'vamp', start: 100, end: 300 };
  assert.equal(flow([], [], 250), '3 4 5 6 7 8');
  assert.equal(flow([vamp], [], 0), '1 2 3 2 3 4 5 6 7 8');
  assert.equal(flow([vamp], [{ ...vamp, pass: 3, limit: 0, left: false }], 250), '3 2 3 4 5 6 7 8');
  assert.equal(flow([vamp], [{ ...vamp, pass: 3, limit: 0, left: true }], 250), '3 4 5 6 7 8');
  assert.equal(flow([vamp], [{ ...vamp, pass: 2, limit: 2, left: false }], 250), '3 4 5 6 7 8');
  assert.equal(flow([vamp], [], 250), '3 4 5 6 7 8', 'one that is not active any more');
  assert.equal(flow([{ kind: 'cut', start: 200, end: 600 }], [], 0), '1 2 7 8');
  assert.equal(flow([{ kind: 'cut', start: 250, end: 620 }], [], 0), '1 2 3 7 8');
  assert.equal(flow([{ kind: 'cut', start: 500, end: 800 }], [], 300), '4 5');
});

test('Sheets that turn: the one that sounds stays, the other place shows what comes next', () => {
  const sheetOf = (index) => 1 + (index >> 1);
  assert.equal(nextSheet([2, 3, 4, 5], sheetOf, 2), 3);
  assert.equal(nextSheet([2, 3, 0, 1], sheetOf, 2), 1);
  assert.equal(nextSheet([6, 7], sheetOf, 4), null);
  assert.deepEqual(turnSheets([null, null], 1, 2), [1, 2]);
  assert.deepEqual(turnSheets([1, 2], 2, 3), [3, 2]);
  assert.deepEqual(turnSheets([3, 2], 3, 1), [3, 1]);
  assert.deepEqual(turnSheets([3, 4], 4, null), [3, 4]);
  assert.deepEqual(turnSheets([3, 4], 7, 8), [7, 8]);
});

test('Place in a bar: lies between the notes that are around it', () => {
  const onsets = [{ quarters: 0, x: 100 }, { quarters: 1, x: 200 }, { quarters: 2, x: 280 }];
  assert.deepEqual([-1, 0, 0.5, 1.5, 3].map((quarters) => interpolate(onsets, quarters)), [100, 100, 150, 240, 280]);
  assert.deepEqual(barsOfMeasure([0, 1, 0, 1], 1), [1, 3]);
});

test('Clock of the server: the shortest way there and back tells it', () => {
  let own = 1000;
  const clock = new ServerClock(() => own);
  clock.noteMessage(5000);
  assert.equal(clock.now(), 5000);
  clock.note(1000, 1020, 7015);
  clock.note(1020, 1024, 7022);
  own = 1100;
  assert.equal(clock.now(), 7100);
  assert.equal(clock.roundTripMs, 4);
});

test('Files that are kept for opening without the server: are all that the page is made of', () => {
  const folder = join(Root, 'stage/web/page');
  const kept = new Set(readFileSync(join(folder, 'service_worker.js'), 'utf8').match(/'[a-z_.]+\.(js|css|svg|webmanifest)'/g).map((name) => name.slice(1, -1)));
  const needed = readdirSync(folder).filter((name) => /\.(js|css|svg|webmanifest)$/.test(name) && name !== 'service_worker.js');
  assert.deepEqual([...kept].sort(), needed.sort());
});
