// What all pages of the line have at their top: where one is, whose station it is, who works here, and whether
// the results are stored.
import {ask, change, find, make, setText} from '/dom.js';
import {tell, trying} from '/live.js';

const PAGES = [['/', 'Line'], ['/history.html', 'History'], ['/yield.html', 'Yield'], ['/numbers.html', 'Numbers']];

// Fills the header and returns {line, showStore, showLink}. `line` is what GET /line says.
export async function openFrame(title) {
  const line = await ask('/line');
  document.title = `${title} · ${line.plan}`;
  const pages = line.role === 'manager' ? [...PAGES, ['/settings.html', 'Settings']] : PAGES;
  const links = pages.map(([address, name]) =>
    make('a', {href: address, 'aria-current': location.pathname === address ? 'page' : null}, name));
  find('#frame').append(
    make('div', {class: 'place'}, make('h1', {}, line.plan), make('p', {class: 'quiet'}, line.station)),
    make('nav', {'aria-label': 'Pages'}, links),
    make('div', {class: 'states'},
      make('span', {id: 'link', class: 'badge warn', role: 'status'}, 'connecting'),
      make('span', {id: 'store', class: 'badge', role: 'status'}),
      line.role === 'manager' ? make('span', {class: 'badge good'}, 'line manager') : null));
  if (title === 'Line') find('#frame').append(personField());
  return {line, showStore, showLink};
}

// The operator's name stays with the browser: it goes into the records with each answer.
function personField() {
  const field = make('input', {id: 'person', placeholder: 'your name', maxlength: 60, autocomplete: 'off'});
  field.value = localStorage.getItem('operator') || '';
  field.addEventListener('change', () => localStorage.setItem('operator', field.value.trim()));
  return make('label', {class: 'person'}, make('span', {}, 'Operator'), field);
}

export const person = () => localStorage.getItem('operator') || '';

function badge(id, text, kind) {
  const shown = find(id);
  setText(shown, text);
  shown.className = `badge ${kind}`;
  shown.hidden = text === '';
}

function showStore(store) {
  const waiting = store.waiting === 1 ? '1 run waits' : `${store.waiting} runs wait`;
  if (store.reachable && store.waiting === 0) badge('#store', 'results stored', 'good');
  else if (store.reachable) badge('#store', `${waiting} to be handed in`, 'warn');
  else badge('#store', `results cannot be reached · ${waiting}`, 'bad');
  find('#store').title = store.where;
}

// Handles the store's news, and calls `look` when a run of any station has begun or ended since the page was opened.
export function whenChanged(showStore, look) {
  let seen = null;
  return (store) => {
    showStore(store);
    if (seen !== null && store.changes !== seen) look();
    seen = store.changes;
  };
}

function showLink(state) {
  document.body.classList.toggle('lost', state !== 'open');
  if (state === 'open') badge('#link', '', '');
  else badge('#link', 'this page has lost the station', 'bad');
}

// The line manager's switch: no phone is started while the line is held.
export function holdButton(line) {
  if (line.role !== 'manager') return null;
  return make('button', {id: 'hold', onclick: () => trying(async () => {
    const reason = line.held ? '' : prompt('Why is the line held?');
    if (reason === null) return;
    if (!line.held && reason.trim() === '') tell('The line is not held: the operators must be told why.', 'failure');
    else await change('/hold', {reason: reason.trim()});
  })}, line.held ? 'Let the line go on' : 'Hold the line');
}
