// How good the line is: yields, what fails, and how the measurements lie in their limits. Live: what was stored since is
// drawn in.
import {ask, find, make, setText} from '/dom.js';
import {openEvents} from '/events.js';
import {trying} from '/live.js';
import {drawFailingSteps, drawHistogram, drawTrend, drawYield} from '/charts.js';
import {openFrame, whenChanged} from '/frame.js';


const frame = await openFrame('Yield');
const form = find('#range');
const today = new Date();
const dayText = (date) => [date.getFullYear(), date.getMonth() + 1, date.getDate()]
  .map((part) => String(part).padStart(2, '0')).join('-');
form.from.value = dayText(new Date(today.getTime() - 6 * 24 * 3600 * 1000));
form.to.value = dayText(today);
form.plan.append(make('option', {value: frame.line.plan}, frame.line.plan));
form.plan.value = frame.line.plan;

// What can be chosen: all plans and stations that have a run, and this line's before its first one.
function showChoices(select, all, own, names) {
  const before = select.value;
  select.replaceChildren(make('option', {value: ''}, all),
    ...[...new Set([own, ...names])].filter(Boolean).sort().map((name) => make('option', {value: name}, name)));
  select.value = before;
}

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

let timer = 0;
let took = 0;
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
  timer = 0;
  const begun = performance.now();
  const summary = await trying(() => ask(`/yields?${range()}`));
  if (!summary) return;
  showChoices(form.plan, 'all plans', frame.line.plan, summary.plans);
  showChoices(form.station, 'all stations', frame.line.station, summary.stations);
  showTiles(summary);
  drawYield('hours', summary.hours);
  drawYield('days', summary.days);
  drawFailingSteps('steps', summary.failing);
  showMeasurements(summary.measurements);
  await showMeasurement();
  took = performance.now() - begun;
}

form.addEventListener('change', show);
find('#measurement').addEventListener('change', showMeasurement);

// Runs end together on a line; the page asks once for all of them, and leaves a database with many runs most of its time.
function look() {
  if (!timer) timer = setTimeout(show, Math.max(1500, 10 * took));
}

await show();
openEvents('/events', {store: whenChanged(frame.showStore, look)}, frame.showLink);
