// The list of the phones that run, each with its LCD.
import {find, make, setText} from './dom.js';
import {openEvents} from './events.js';
import {lcdOn} from './lcd.js';

const link = find('#link');
let shown = '';
let close = null;

function card(phone) {
  const canvas = make('canvas', {class: 'small-lcd', 'aria-hidden': 'true'});
  const name = make('strong', {}, phone.name);
  const text = make('span', {class: 'quiet'}, `${phone.host_port}${phone.executable ? `, ${phone.executable.processor}` : ''}`);
  const item = make('li', {}, make('a', {class: 'card phone-card', href: `/phone/${phone.name}`}, canvas, name, text));
  return {item, draw: lcdOn(canvas)};
}

// Each set of phones has a stream of its own.
function show(phones) {
  const names = phones.map((phone) => `${phone.name} ${phone.host_port}`).join('\n');
  find('#none').hidden = phones.length > 0;
  if (names === shown && close) return;
  shown = names;
  const cards = phones.map(card);
  find('#phones').replaceChildren(...cards.map((one) => one.item));
  const handlers = {phones: show};
  phones.forEach((phone, index) => { handlers[`${phone.name}/lcd`] = cards[index].draw; });
  connect(handlers);
}

function connect(handlers) {
  if (close) close();
  const topics = Object.keys(handlers).map((topic) => `topic=${encodeURIComponent(topic)}`).join('&');
  close = openEvents(`/events?${topics}`, handlers, (state, sentence) => {
    setText(link, {open: 'live', lost: 'reconnecting', refused: sentence}[state]);
    link.className = `badge ${state === 'open' ? 'good' : 'warn'}`;
  });
}

connect({phones: show});
