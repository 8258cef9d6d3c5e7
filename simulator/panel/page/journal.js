// The journal with the exchanges among its lines, the server's console, and one exchange decoded.
import {find, make} from './dom.js';

const MOST_LINES = 600;
const KINDS = ['open', 'request', 'shell', 'tool', 'value', 'sleep', 'clock', 'console', 'event', 'command'];

const list = find('#journal');
const consoleList = find('#console');
const kind = find('#kind');
const device = find('#device');
const pause = find('#pause');
const exchanges = new Map(); // number: its item
let waiting = [];

kind.append(make('option', {value: ''}, 'everything'), ...KINDS.map((name) => make('option', {value: name}, name)));
kind.addEventListener('change', refilter);
device.addEventListener('input', refilter);
pause.addEventListener('click', () => {
  const paused = pause.getAttribute('aria-pressed') !== 'true';
  pause.setAttribute('aria-pressed', String(paused));
  if (paused) return;
  const missed = waiting;
  waiting = [];
  for (const add of missed) add();
});

const passes = (item) =>
  (!kind.value || item.dataset.kind === kind.value) &&
  (!device.value || item.textContent.toLowerCase().includes(device.value.toLowerCase()));

function refilter() {
  for (const item of list.children) item.hidden = !passes(item);
  list.scrollTop = list.scrollHeight;
}

function unlessPaused(add) {
  if (pause.getAttribute('aria-pressed') === 'true') waiting.push(add);
  else add();
}

const atEnd = (log) => log.scrollHeight - log.scrollTop - log.clientHeight < 40;

function trim(log, most) {
  while (log.children.length > most) log.firstElementChild.remove();
}

// "    0.298459 request /dev/misc/rtc …"
function lineItem(line) {
  const [, time, text] = line.match(/^ *([0-9.]+) (.*)$/s) ?? [null, '0', line];
  const item = make('li', {'data-kind': text.split(' ', 1)[0], 'data-time': time},
    make('span', {class: 'time'}, `${Number(time).toFixed(3)} `), text);
  if (/ -> E[A-Z]+/.test(text)) item.classList.add('refused');
  item.hidden = !passes(item);
  return item;
}

export function takeLines(piece) {
  const consoleLines = piece.lines.filter((line) => / console /.test(line.slice(0, 24)));
  const stays = atEnd(consoleList);
  consoleList.append(...consoleLines.map((line) => make('li', {}, line.replace(/^ *[0-9.]+ console /, ''))));
  trim(consoleList, 200);
  if (stays) consoleList.scrollTop = consoleList.scrollHeight;
  unlessPaused(() => {
    const follows = atEnd(list);
    list.append(...piece.lines.map(lineItem));
    if (piece.dropped) list.append(make('li', {class: 'quiet'}, `(${piece.dropped} entries were too many to show)`));
    trim(list, MOST_LINES);
    if (follows) list.scrollTop = list.scrollHeight;
  });
}

export function takeExchanges(all) {
  unlessPaused(() => {
    const follows = atEnd(list);
    all.forEach(addExchange);
    trim(list, MOST_LINES);
    if (follows) list.scrollTop = list.scrollHeight;
  });
}

const codeText = (exchange) => `0x${exchange.code.toString(16).toUpperCase().padStart(2, '0')}`;

function outcome(exchange) {
  if (!exchange.name) return 'no command';
  if (!exchange.whole) return 'no whole answer yet';
  if (exchange.answer.bytes === '') return 'never answered';
  const first = exchange.answer.fields[0];
  return `${first.name} ${first.value}, ${exchange.milliseconds.toFixed(1)} ms`;
}

// Where its time puts it among the lines.
function addExchange(exchange) {
  const item = make('li', {class: `command${exchange.failed ? ' failed' : ''}`, 'data-kind': 'command', 'data-time': exchange.time},
    make('span', {class: 'time'}, `${exchange.time.toFixed(3)} `),
    make('button', {type: 'button', onclick: () => show(exchange)},
      `${exchange.name ?? 'unknown'} ${codeText(exchange)}: ${outcome(exchange)}`));
  item.hidden = !passes(item);
  exchanges.get(exchange.number)?.remove();
  exchanges.set(exchange.number, item);
  let before = null;
  for (let later = list.lastElementChild; later && Number(later.dataset.time) > exchange.time; later = later.previousElementSibling) before = later;
  list.insertBefore(item, before);
}

function table(title, part) {
  const rows = part.fields.map((field) => make('tr', {title: field.meaning}, make('td', {}, field.name), make('td', {}, field.value), make('td', {class: 'quiet'}, field.meaning)));
  return [make('h3', {}, title), make('table', {}, make('tbody', {}, rows)), make('code', {class: 'quiet'}, part.bytes || 'no bytes')];
}

export function show(exchange) {
  const place = find('#exchange');
  if (!exchange.name) {
    place.replaceChildren(make('p', {}, `No command has the code ${codeText(exchange)}: the server ignores it.`));
    return;
  }
  place.replaceChildren(
    make('h3', {}, `${exchange.name} (${codeText(exchange)})`), make('p', {class: 'quiet'}, exchange.action),
    ...(exchange.status_meaning ? [make('p', {class: 'badge bad'}, exchange.status_meaning)] : []),
    ...table('Request', exchange.request), ...table('Answer', exchange.answer));
}

// The phone has started anew.
export function clear() {
  for (const log of [list, consoleList]) log.replaceChildren();
  exchanges.clear();
  waiting = [];
}
