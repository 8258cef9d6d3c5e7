// Every run that was stored: looked for by what a phone is known by, and read whole.
import {ask, find, make, setText} from '/dom.js';
import {openEvents} from '/events.js';
import {trying} from '/live.js';
import {openFrame, whenChanged} from '/frame.js';
import {moment, reportOf, seconds, verdictBadge} from '/report.js';

const frame = await openFrame('History');
const form = find('#search');

function row(run) {
  const open = () => { location.hash = run.run; };
  return make('tr', {onclick: open, 'data-run': run.run},
    make('td', {}, make('a', {href: `#${run.run}`}, moment(run.started))),
    make('td', {}, verdictBadge(run.verdict)),
    make('td', {class: 'mono name'}, run.serial || run.identity || run.address),
    make('td', {class: 'name'}, run.plan), make('td', {class: 'name'}, run.station), make('td', {class: 'name'}, run.operator),
    make('td', {class: 'number'}, seconds(run.milliseconds)));
}

let wanted = new URLSearchParams(); // what was searched for last; more may be typed since
let shown = '';

// Asks again when runs were stored meanwhile; what stands there stays if it is the same.
async function search() {
  const runs = await trying(() => ask(`/runs?${wanted}`));
  if (!runs) return;
  const answer = JSON.stringify([`${wanted}`, runs]);
  if (answer === shown) return;
  shown = answer;
  const phone = wanted.get('phone');
  setText(find('#found'), phone ? `Runs of ${phone}` : 'Newest runs');
  find('#runs').replaceChildren(...(runs.length ? runs.map(row)
    : [make('tr', {}, make('td', {colspan: 7, class: 'empty'}, 'No run was found.'))]));
}

let running = false; // the run whose report is shown

async function showReport() {
  const place = find('#report');
  const run = location.hash.slice(1);
  place.hidden = run === '';
  running = false;
  if (!run) return;
  place.replaceChildren(make('p', {class: 'empty'}, 'One moment …'));
  await fillReport(place, run);
  place.scrollIntoView({block: 'start'});
}

async function fillReport(place, run) {
  const report = await trying(() => ask(`/runs/${encodeURIComponent(run)}`));
  if (location.hash.slice(1) !== run) return; // another one was chosen meanwhile
  running = report?.verdict === 'running';
  place.replaceChildren(...(report ? reportOf(report) : [make('p', {class: 'empty'}, 'This run cannot be read now.')]));
}

function look() {
  search();
  if (running) fillReport(find('#report'), location.hash.slice(1));
}

form.addEventListener('submit', (event) => {
  event.preventDefault();
  location.hash = '';
  wanted = new URLSearchParams();
  for (const name of ['phone', 'from', 'to']) if (form[name].value.trim()) wanted.set(name, form[name].value.trim());
  form.phone.select(); // a scanner types the next one over it
  search();
});
window.addEventListener('hashchange', showReport);
search();
showReport();
openEvents('/events', {store: whenChanged(frame.showStore, look)}, frame.showLink);
