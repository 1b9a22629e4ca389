// The kinds of edits, with what each is asked for; and the lines of the edit grammar that say it. Knows nothing of the page.

const Range = ['from', 'to'];

/**
 * `kind` is the grammar's word, `listed` the word that lists of edits have for it. Each field: the option's name, its label, and
 * what goes into it.
 */
export const EditKinds = [
  { kind: 'vamp', listed: 'vamp', label: 'Vamp', help: 'repeats until the operator goes on', places: Range,
    fields: [{ name: 'max', label: 'At most (passes)', type: 'whole', min: 0, hint: 'never by itself' }] },
  { kind: 'repeat', listed: 'repeat', label: 'Repeat', help: 'is played that many times in all', places: Range,
    fields: [{ name: 'times', label: 'Times', type: 'whole', min: 2, isRequired: true, start: '2' }] },
  { kind: 'cut', listed: 'cut', label: 'Cut', help: 'is left out', places: Range, fields: [] },
  { kind: 'fermata', listed: 'fermata', label: 'Fermata', help: 'holds the notes until the operator goes on', places: Range, fields: [] },
  { kind: 'caesura', listed: 'caesura', label: 'Caesura', help: 'stops after a countdown; the operator goes on', places: ['at'],
    fields: [{ name: 'text', label: 'Word for the operator', type: 'text' }, { name: 'version-target', label: 'Noted for version', type: 'whole', min: 0, hint: 'none' }] },
  { kind: 'tempo-scale', listed: 'tempo scale', label: 'Tempo', help: 'slower or faster, 50 to 200 percent', places: Range,
    fields: [{ name: 'percent', label: 'Percent', type: 'number', min: 50, max: 200, isRequired: true, start: '100' }] },
  { kind: 'transposition', listed: 'transposition', label: 'Transposition', help: 'up or down, 24 semitones at most', places: Range,
    fields: [{ name: 'semitones', label: 'Semitones', type: 'whole', min: -24, max: 24, isRequired: true }] },
  { kind: 'click', listed: 'click', label: 'Click', help: 'sets the length of the click: a fraction of a whole note', places: Range,
    fields: [{ name: 'every', label: 'Every', type: 'text', isRequired: true, start: '1/4', hint: '1/8' }] },
  { kind: 'marker', listed: 'marker', label: 'Marker', help: 'names a place', places: ['at'],
    fields: [{ name: 'text', label: 'Name', type: 'text', isRequired: true }] },
  { kind: 'sfx', listed: 'sfx', label: 'Sound', help: 'plays a sound once; with an end it is cut off there', places: ['at', 'to'], optionalPlaces: ['to'],
    fields: [{ name: 'sound', label: 'Sound file', type: 'text', isRequired: true, hint: 'sounds/door.wav' }, { name: 'gain', label: 'Gain (dB)', type: 'number', min: -60, max: 12, hint: '0' }] },
  { kind: 'ambient', listed: 'ambient sfx', label: 'Ambience', help: 'plays a sound over and over', places: Range,
    fields: [{ name: 'sound', label: 'Sound file', type: 'text', isRequired: true, hint: 'sounds/rain.wav' }, { name: 'gain', label: 'Gain (dB)', type: 'number', min: -60, max: 12, hint: '0' }] },
  { kind: 'osc', listed: 'OSC', label: 'OSC cue', help: 'sends an OSC message', places: ['at'],
    fields: [{ name: 'address', label: 'Address', type: 'text', isRequired: true, hint: '/go' }, { name: 'arg', label: 'Arguments', type: 'list', hint: 'i:1 f:0.5 s:text' }, { name: 'target', label: 'Target', type: 'text', hint: 'the first one' }] },
];

export const PlaceLabels = { from: 'From', to: 'To (this bar included)', at: 'At' };

export function findKind(listed) {
  return EditKinds.find((each) => each.listed === listed);
}

/** A word as the grammar reads it back: in quotes where it needs them. */
export function quote(text) {
  const clean = text.replace(/[\u0000-\u001f\u007f]+/g, ' ').trim();
  if (/^[^\s"'`\\]+$/.test(clean)) return clean;
  const free = ['"', "'", '`'].find((mark) => !clean.includes(mark));
  if (free !== undefined) return `${free}${clean}${free}`;
  return `"${clean.replaceAll('"', '\u201d')}"`;
}

function options(kind, values) {
  const words = [];
  for (const name of [...kind.places, ...kind.fields.map((field) => field.name)]) {
    const value = (values[name] ?? '').trim();
    if (value === '') continue;
    // A negative number would be taken for an option if it stood alone.
    if (name === 'arg') for (const each of value.split(/\s+/)) words.push(`--arg=${quote(each)}`);
    else words.push(/^-/.test(value) ? `--${name}=${value}` : `--${name} ${quote(value)}`);
  }
  return words;
}

/** "add vamp --from 12 --to 15 --max 3". */
export function addLine(kind, values) {
  return ['add', kind.kind, ...options(kind, values)].join(' ');
}

/** "change 4 --to 17": only what is to be another; empty where nothing is. */
export function changeLine(kind, id, values, shown) {
  const changed = Object.fromEntries(Object.entries(values).filter(([name, value]) => value.trim() !== (shown[name] ?? '').trim()));
  const words = options(kind, changed);
  return words.length === 0 ? '' : ['change', id, ...words].join(' ');
}

/** "17", "17:3", "17:3+120": the place of a tick as the grammar reads it. */
export function describeTick(song, tick) {
  if (tick >= song.endTick) return 'end';
  const bar = song.bars.findLast((each) => each.tick <= tick) ?? song.bars[0];
  const next = song.bars.find((each) => each.tick > bar.tick)?.tick ?? song.endTick;
  const beats = song.beats.filter((beat) => beat >= bar.tick && beat < next);
  const index = beats.findLastIndex((beat) => beat <= tick);
  // Of bars with one label the first has the name.
  if (song.bars.find((each) => each.label === bar.label) !== bar) return `t${tick}`;
  if (tick === bar.tick) return bar.label;
  const rest = tick - (beats[index] ?? bar.tick);
  return `${bar.label}:${index + 1}${rest > 0 ? `+${rest}` : ''}`;
}

/** The end of a range as it is typed: a whole bar by its own name, as musicians say it. */
export function describeEnd(song, tick) {
  const bar = song.bars.findLast((each) => each.tick < tick);
  const next = song.bars.find((each) => each.tick > (bar?.tick ?? 0))?.tick ?? song.endTick;
  const isNamed = bar !== undefined && song.bars.find((each) => each.label === bar.label) === bar;
  return tick === next && isNamed ? bar.label : describeTick(song, tick);
}

/** What a form shows of an edit that is there, as far as the list tells it. */
export function valuesOf(kind, edit, song) {
  const values = {};
  for (const place of kind.places) {
    if (place === 'to') values.to = kind.optionalPlaces && edit.end === edit.start ? '' : describeEnd(song, edit.end);
    else values[place] = describeTick(song, edit.start);
  }
  return { ...values, ...readValue(kind.kind, edit.value) };
}

/** Reads "at most 3 times", "92%", "up 2 semitones", "\"sounds/bell.wav\", -6 dB" back into fields. */
function readValue(kind, value) {
  const found = (pattern) => pattern.exec(value)?.[1] ?? '';
  const text = found(/^"(.*)"/s);
  switch (kind) {
    case 'vamp': return { max: found(/(\d+)/) };
    case 'repeat': return { times: found(/(\d+)/) };
    case 'tempo-scale': return { percent: found(/([\d.]+)%/) };
    case 'transposition': return { semitones: (/^down/.test(value) ? '-' : '') + found(/(\d+)/) };
    case 'click': return { every: found(/every (\S+)/) };
    case 'caesura': return { text, 'version-target': found(/version (\d+)/) };
    case 'marker': return { text };
    case 'sfx': case 'ambient': return { sound: text, gain: found(/(-?[\d.]+) dB/) };
    case 'osc': return { address: found(/^(\S+)/), target: found(/ to (\S+)$/) };
    default: return {};
  }
}
