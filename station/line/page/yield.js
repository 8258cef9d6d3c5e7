// How good the line is: yields, what fails, and how the measurements lie in their limits. Live: what was stored since is
// drawn in.
import {ask, find, make, setText} from '/dom.js';
import {openEvents} from '/events.js';
import {trying} from '/live.js';
import {drawFailingSteps, drawHistogram, drawTrend, drawYield} from '/charts.js';
import {openFrame} from '/frame.js';

// Runs end together on a line; the page asks once for all of them.
const PAUSE = 1500; // ms

const frame = await openFrame('Yield');
const form = find('#range');
const today = new Date();
const dayText = (date) => [date.getFullYear(), date.getMonth() + 1, date.getDate()]
  .map((part) => String(part).padStart(2, '0')).join('-');
form.from.value = dayText(new Date(today.getTime() - 6 * 24 * 3600 * 1000));
form.to.value = dayText(today);
form.plan.append(make('option', {value: frame.line.plan}, frame.line.plan), make('option', {value: ''}, 'all plans'));
form.station.append(make('option', {value: ''}, 'all stations'),
  make('option', {value: frame.line.station}, frame.line.station));

const range = () => new URLSearchParams(
  ['from', 'to', 'plan', 'station'].map((name) => [name, form[name].value]));

const share = (part, whole) => (whole ? `${(100 * part / whole).toFixed(1)} %` : '–');

function tile(name, value, note) {
  return make('div', {class: 'tile card'}, make('span', {class: 'quiet'}, name), make('b', {}, value),
    make('span', {class: 'quiet'}, note));
}

function showTiles({phones, first_tested, first_passed, passed, runs}) {
  find('#tiles').replaceChildren(
    tile('First-pass yield', share(first_passed, first_tested), `${first_passed} of ${first_tested} new phones`),
    tile('Final yield', share(passed, phones), `${passed} of ${phones} phones`),
    tile('Phones', String(phones), 'tested'),
    tile('Runs', String(runs), `${Math.max(0, runs - phones)} of them again`));
}

let measurements = new Map();

// Keeps what is chosen while the list grows.
function showMeasurements(list) {
  const select = find('#measurement');
  const before = select.value;
  // Where the limits were changed, the values before are a measurement of their own.
  measurements = new Map();
  for (const one of list) {
    const name = `${one.number}. ${one.step}: ${one.reading}`;
    const limits = `${one.minimum ?? ''} to ${one.maximum ?? ''}`;
    measurements.set([name, `${name}, ${limits}`].find((free) => !measurements.has(free)) ?? `${name}, ${limits}, ${one.plan}`, one);
  }
  select.replaceChildren(...[...measurements.keys()].map((name) => make('option', {value: name}, name)));
  if (measurements.has(before)) select.value = before;
}

const number = (value) => (value === null ? '–' : Number(value.toPrecision(4)).toString());

async function showMeasurement() {
  const one = measurements.get(find('#measurement').value);
  const spread = find('#spread');
  if (!one) {
    setText(spread, 'nothing was measured against limits yet');
    return;
  }
  const wanted = range();
  wanted.set('measurement', one.definitions);
  const points = await trying(() => ask(`/trend?${wanted}`));
  if (!points) return;
  const shown = points.length < one.count ? `the newest ${points.length} of ${one.count} values` : `${one.count} values`;
  setText(spread, `${shown} · mean ${number(one.mean)} ${one.unit} · spread ${number(one.spread)}` +
    ` · Cp ${number(one.cp)} · Cpk ${number(one.cpk)}${one.few ? ' (of few values)' : ''}`);
  const data = {...one, name: one.reading, points};
  drawTrend('trend', data);
  drawHistogram('histogram', data);
}

async function show() {
  const summary = await trying(() => ask(`/yields?${range()}`));
  if (!summary) return;
  showTiles(summary);
  drawYield('hours', summary.hours);
  drawYield('days', summary.days);
  drawFailingSteps('steps', summary.failing);
  showMeasurements(summary.measurements);
  await showMeasurement();
}

form.addEventListener('change', show);
find('#measurement').addEventListener('change', showMeasurement);

let timer = 0;
const ended = new Map(); // the newest run of each slot
function look(slot, view) {
  const run = view.verdict?.run;
  if (!run || ended.get(slot) === run) return;
  ended.set(slot, run);
  clearTimeout(timer);
  timer = setTimeout(show, PAUSE);
}

await show();
openEvents('/events', {
  store: frame.showStore,
  ...Object.fromEntries(frame.line.slots.map(({name}) => [`slot-${name}`, (view) => look(name, view)])),
}, frame.showLink);
