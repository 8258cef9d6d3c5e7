// One phone's page: its stream of events, and what each part of the page does with it.
import {find, setText} from './dom.js';
import {change} from './dom.js';
import {openEvents} from './events.js';
import {say, trying} from './live.js';
import {keypad, touchPanel} from './keys.js';
import {lcdOn} from './lcd.js';
import {clear, takeExchanges, takeLines} from './journal.js';
import {showState, wireControls} from './controls.js';
import {takePiece} from './sound.js';

const name = decodeURIComponent(location.pathname.split('/')[2]);
const path = `/phone/${encodeURIComponent(name)}`;
const link = find('#link');
let boot = 0;

document.title = `${name} – simulated phone`;
setText(find('#name'), name);

const command = (...words) => trying(() => change(`${path}/command`, {words}));

function showLink(text, looks) {
  setText(link, text);
  link.className = `badge ${looks}`;
}

function showPhone(phone) {
  find('#off').hidden = phone.running;
  showLink(phone.running ? 'running' : 'off', phone.running ? 'good' : 'bad');
  if (phone.running) {
    const executable = phone.executable ? `, ${phone.executable.processor}` : '';
    setText(find('#about'), `${phone.host_port}${executable}`);
  } else {
    say('The phone is off.');
  }
  if (phone.boot !== boot && phone.running) {
    boot = phone.boot;
    clear();
    document.dispatchEvent(new CustomEvent('boot'));
  }
}

keypad(find('#keys'), command);
touchPanel(find('#lcd'), command);
wireControls(path, command);

const handlers = {
  phone: showPhone,
  lcd: lcdOn(find('#lcd')),
  state: showState,
  exchanges: takeExchanges,
  journal: takeLines,
  sound: takePiece,
};
const topics = Object.keys(handlers).map((topic) => `${name}/${topic}`);
openEvents(`/events?${topics.map((topic) => `topic=${encodeURIComponent(topic)}`).join('&')}`,
  Object.fromEntries(Object.entries(handlers).map(([topic, handle]) => [`${name}/${topic}`, handle])),
  (state, sentence) => {
    if (state === 'open') clear();
    if (state === 'lost') showLink('reconnecting', 'warn');
    if (state === 'refused') showLink(sentence, 'bad');
  });
