// How the show is set up and how its parts are doing. What no press can change is only told.

import { clickButton, make, setText } from './elements.js';
import { GroupsPanel } from './groups_panel.js';
import { PedalsPanel } from './pedals_panel.js';
import { SettingsPanel } from './settings_panel.js';
import { describeSeconds } from './song_time.js';
import { WiresPanel } from './wires_panel.js';

function milliseconds(frames, framesPerSecond) {
  return framesPerSecond ? `${((1000 * frames) / framesPerSecond).toFixed(1)} ms` : '?';
}

function count(number, one, several) {
  return `${number ?? 0} ${number === 1 ? one : several}`;
}

function describeOutput(state) {
  const output = state.output ?? {};
  const rows = [['Output', output.name || 'none'], ['State', output.playing ? 'plays' : `LOST: ${output.problem || 'no device takes the sound'}`]];
  if (output.framesPerSecond) {
    rows.push(['Sample rate', `${output.framesPerSecond} Hz`], ['Period', `${output.periodFrames} frames, ${milliseconds(output.periodFrames, output.framesPerSecond)}`],
      ['Latency', milliseconds(output.latencyFrames, output.framesPerSecond)], ['Rendered ahead', milliseconds(state.leadFrames, output.framesPerSecond)]);
  }
  return [...rows, ['Overruns', String(output.overruns ?? 0)], ['Lost', count(output.timesLost, 'time', 'times')]];
}

function describeSound(state) {
  return [['Late blocks', String(state.latePeriods ?? 0)], ['Slow blocks', String(state.slowBlocks ?? 0)], ['Held up', count(state.heldUpBlocks, 'block', 'blocks')],
    ['Precedence', state.realTime ? 'real-time' : 'not real-time']];
}

function describeDoors(state) {
  const osc = state.osc ?? {};
  const rows = [['MIDI in', state.midiInput || 'none'], ['OSC in', osc.problem ? `LOST: ${osc.problem}` : osc.address || 'none']];
  if (osc.address) rows.push(['OSC watchers', String(osc.subscribers ?? 0)], ['OSC refused', String(osc.refused ?? 0)]);
  for (const { name, problem, sent, lost } of state.oscTargets ?? []) rows.push([`OSC to ${name}`, problem ? `LOST: ${problem}` : `${count(sent, 'message', 'messages')} sent, ${lost} lost`]);
  if (state.timeCode) rows.push(['Time code', describeTimeCode(state.timeCode)], ['Time code to', state.timeCode.output || 'none'], ['Press guard', `${state.pressGuardMs} ms`]);
  return rows;
}

function describeTimeCode({ active, frameRate, output, rolling }) {
  if (!active) return 'off';
  return `${frameRate} frames a second, ${output === '' ? 'to no port' : rolling ? 'rolls' : 'stands'}`;
}

function describeShow(model) {
  const { show, state } = model;
  const seconds = show.songs.reduce((sum, song) => sum + (song.seconds ?? 0), 0);
  return [['Title', show.title], ['Songs', `${show.songs.length}, ${describeSeconds(seconds)} as written`], ['Edits', `version ${state.version ?? '?'}${state.unsaved ? ', with unsaved changes' : ''}`],
    ['Editing', model.editRefusal || 'allowed'], ['Take', state.takeProblem || state.take || 'none'], ['Program', model.version || '?']];
}

export class SetupView {
  #model;
  #device;
  #panels = new Map();
  #nextShown = 0;

  /** `press(line)` sends a press. `device()` tells rows of what this page is doing itself: [[name, value]]; `actions` are buttons for it. */
  constructor(model, device, actions, press) {
    this.#model = model;
    this.#device = device;
    this.grid = make('div', { class: 'panels' });
    this.element = make('section', { class: 'setup', 'aria-label': 'Set up' }, make('h2', {}, 'Set up'), this.grid);
    this.groups = new GroupsPanel(press);
    this.settings = new SettingsPanel(press);
    this.pedals = new PedalsPanel(press);
    this.wires = new WiresPanel(press);
    this.tone = clickButton({ onclick: () => press('set test-tone') }, 'Play a test tone');
    for (const name of ['Sound', 'How it is doing', 'Ports and doors', 'Show', 'This screen']) this.#addPanel(name);
    this.#panels.get('Sound').holder.append(make('div', { class: 'row' }, this.tone));
    this.grid.children[1].after(this.groups.element);
    this.#panels.get('Ports and doors').holder.after(this.settings.element, this.pedals.element);
    this.#panels.get('This screen').holder.after(this.wires.element);
    this.#panels.get('This screen').holder.append(make('div', { class: 'row' }, ...actions.map(({ name, act }) => clickButton({ onclick: act }, name))));
  }

  #addPanel(name) {
    const list = make('dl', { class: 'facts' });
    const holder = make('section', { class: 'panel', 'aria-label': name }, make('h3', {}, name), list);
    this.#panels.set(name, { list, holder, cells: new Map() });
    this.grid.append(holder);
  }

  note(message) {
    this.#nextShown = 0;
    if (message.type === 'view' || message.type === 'connection') this.wires.renew();
  }

  showFrame() {
    this.groups.showMeters(this.#model.meters);
    // What is told of this page changes without a message.
    if (performance.now() < this.#nextShown) return;
    this.#nextShown = performance.now() + 500;
    const { state } = this.#model;
    this.#show('Sound', describeOutput(state));
    this.#show('How it is doing', describeSound(state));
    this.groups.show(state.groups, this.#model.mayOperate);
    this.#show('Ports and doors', describeDoors(state));
    this.settings.show(state, this.#model.editRefusal === '');
    this.pedals.show(state, this.#model.editRefusal === '');
    this.wires.show(this.#model.editRefusal === '');
    this.tone.disabled = this.#model.editRefusal !== '';
    this.#show('Show', describeShow(this.#model));
    this.#show('This screen', this.#device());
  }

  #show(name, rows) {
    const { list, cells } = this.#panels.get(name);
    const names = rows.map(([each]) => each);
    if (names.join('\n') !== [...cells.keys()].join('\n')) {
      cells.clear();
      list.replaceChildren(...names.map((each) => {
        const cell = make('dd', {});
        cells.set(each, cell);
        return make('div', {}, make('dt', {}, each), cell);
      }));
    }
    for (const [each, value] of rows) {
      setText(cells.get(each), value);
      cells.get(each).classList.toggle('is-alarm', /^LOST/.test(value));
    }
  }
}
