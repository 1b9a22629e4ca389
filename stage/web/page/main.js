// Puts the page together: connection, model, views, keys.

import { Connection } from './connection.js';
import { ConnectionSign } from './connection_sign.js';
import { Dialogs } from './dialogs.js';
import { EditView } from './edit_view.js';
import { isTyping } from './elements.js';
import { KeyboardDoor } from './keyboard_door.js';
import { Notice } from './notice.js';
import { PerformView } from './perform_view.js';
import { OperatorKeys } from './operator_keys.js';
import { ScoreView } from './score_view.js';
import { ScreenDevice } from './screen_device.js';
import { ServerClock } from './server_clock.js';
import { SetupView } from './setup_view.js';
import { ShowModel } from './show_model.js';
import { Transport } from './transport.js';

const find = (id) => document.getElementById(id);

const clock = new ServerClock();
const model = new ShowModel(clock);
const keys = new OperatorKeys();
const device = new ScreenDevice(find('theme'));
const notice = new Notice(find('notice'), find('announcer'), keys);
const dialogs = new Dialogs({ keys: find('keys-dialog'), songs: find('songs-dialog'), passcode: find('passcode-dialog') }, model, keys);

async function mayConnect() {
  const answer = await fetch('api/session', { cache: 'no-store' });
  const session = await answer.json();
  if (!session.login || session.role !== 'none') return true;
  dialogs.askPasscode();
  return false;
}

const address = new URL('ws', location.href);
address.protocol = location.protocol === 'https:' ? 'wss:' : 'ws:';
const connection = new Connection(address.href, clock, { mayConnect, onMessage: take, onState: noteConnection });
const sign = new ConnectionSign(find('connection'), find('lost'), connection, clock);

async function request(message) {
  const record = await connection.request(message);
  if (record.outcome !== 'taken') notice.refuse(record, message.line);
  else notice.taken(message.line);
  return record;
}
const press = (line) => request({ type: 'press', line });

const views = {
  perform: new PerformView(model, { press, refuse: (sentence) => notice.tell(sentence, true) }),
  score: new ScoreView(model, { press, edit: (line, song) => request({ type: 'edit', line, song }), refuse: (sentence) => notice.tell(sentence, true) }),
  edit: new EditView(model, request),
  setup: new SetupView(model, () => [['Connection', sign.describe()], ['Allowed here', model.role], ...device.describe()], [
    { name: 'Change the colours', act: () => device.nextTheme() },
    { name: 'Enter a passcode', act: () => dialogs.askPasscode() },
  ], press),
};
const transport = new Transport(find('transport'), press, () => dialogs.chooseSong(0));
let seen = 'perform';

function showView() {
  const wanted = location.hash.slice(1);
  seen = views[wanted] === undefined ? 'perform' : wanted;
  find('main').replaceChildren(views[seen].element);
  document.body.dataset.view = seen;
  for (const link of document.querySelectorAll('nav a')) {
    if (link.dataset.view === seen) link.setAttribute('aria-current', 'page');
    else link.removeAttribute('aria-current');
  }
  views[seen].note({ type: 'view' });
}

function showShow() {
  find('show-title').textContent = model.show.title || 'Stage';
  document.title = model.show.title || 'Stage';
  document.body.classList.toggle('is-locked-show', Boolean(model.state.locked));
  transport.show(model.state, model.mayOperate && connection.state === 'connected');
}

function take(message) {
  model.take(message);
  if (message.type === 'message') notice.note(message.sentence);
  if (message.type === 'record') notice.noteRecord(message);
}

function noteConnection(state) {
  document.body.dataset.connection = state;
  sign.show();
  showShow();
  for (const view of Object.values(views)) view.note({ type: 'connection' });
}

model.listen((message) => {
  if (message.type === 'playhead') return;
  for (const view of Object.values(views)) view.note(message);
  notice.announce(model.state);
  showShow();
});

function showFrame() {
  views[seen].showFrame();
  requestAnimationFrame(showFrame);
}

new KeyboardDoor(keys, {
  isTyping,
  context: () => ({ isMoving: model.isMoving, tempoScale: model.state.tempoScale, volumes: model.state.volumes, hasArrows: seen === 'perform' || seen === 'score' }),
  press: (line) => {
    if (!model.mayOperate) return notice.tell('This passcode allows to watch, not to press.', true);
    if (line === 'fade 3') notice.tell('Fades out in 3 seconds: C cancels it.', false);
    press(line);
  },
  refuse: (sentence) => notice.tell(sentence, true),
  chooseSong: (step) => dialogs.chooseSong(step),
  loadSong: () => press(`load ${dialogs.takeChosen()}`),
  changed: () => {
    dialogs.follow();
    notice.showEntry();
  },
});
dialogs.onLoad = (number) => press(`load ${number}`);
dialogs.onLogin = () => connection.renew();

find('keys').addEventListener('mousedown', (event) => event.preventDefault());
find('keys').addEventListener('click', () => dialogs.toggleKeys());
addEventListener('hashchange', showView);
document.body.dataset.connection = 'connecting';
showView();
sign.show();
setInterval(() => sign.show(), 250);
connection.connect();
requestAnimationFrame(showFrame);
device.start();
