// A run's report, drawn from its stored record.
import {make} from '/dom.js';

const KINDS = {passed: 'good', running: '', skipped: '', interrupted: 'warn', aborted: 'warn', incomplete: 'warn'};

export const verdictBadge = (verdict) =>
  make('span', {class: `badge ${KINDS[verdict] ?? 'bad'}`}, verdict === 'passed' ? '✓ passed' : verdict);

export const moment = (milliseconds) => new Date(milliseconds).toLocaleString([], {
  year: 'numeric', month: 'short', day: 'numeric', hour: '2-digit', minute: '2-digit', second: '2-digit'});

export function seconds(milliseconds) {
  if (milliseconds === null || milliseconds === undefined) return '';
  return milliseconds < 1000 ? `${Math.round(milliseconds)} ms` : `${(milliseconds / 1000).toFixed(1)} s`;
}

function fact(name, value) {
  return value ? make('div', {}, make('dt', {}, name), make('dd', {}, String(value))) : null;
}

function limitText({minimum, maximum, stated}) {
  if (stated) return ` (${stated})`;
  if (minimum === null && maximum === null) return '';
  if (minimum === null) return ` (at most ${maximum})`;
  if (maximum === null) return ` (at least ${minimum})`;
  return ` (${minimum} to ${maximum})`;
}

// "signal 23400 (at least 20000)"
function valueLine(value) {
  const shown = value.value === null ? value.text : value.value;
  const bad = !['passed', 'skipped'].includes(value.verdict);
  return make('div', {class: bad ? 'bad-text' : 'values'},
    `${value.reading} ${shown}${value.unit ? ` ${value.unit}` : ''}${limitText(value)}`);
}

// A picture is shown, anything else is a link that saves it.
function shownFile(run, step, file) {
  const address = `/runs/${run}/files/${step}/${encodeURIComponent(file.name)}`;
  if (!file.type.startsWith('image/')) {
    return make('div', {class: 'values'}, make('a', {class: 'file', href: address, download: ''}, file.name));
  }
  return make('figure', {}, make('img', {src: address, alt: file.name, loading: 'lazy'}),
    make('figcaption', {}, file.name));
}

function stepRow(run, step) {
  const bad = !['passed', 'skipped'].includes(step.verdict);
  const answer = step.answer ? `answered ${step.answer.reply} by ${step.answer.by}, ${moment(step.answer.at)}` : '';
  return make('tr', {}, make('td', {class: 'number'}, step.number), make('td', {}, verdictBadge(step.verdict)),
    make('td', {class: 'number'}, step.attempts ? seconds(step.microseconds / 1000) : ''),
    make('td', {}, step.name,
      step.message ? make('div', {class: bad ? 'bad-text' : 'values'}, step.message) : null,
      step.question && step.question !== step.name ? make('div', {class: 'values'}, step.question) : null,
      answer ? make('div', {class: 'values'}, answer) : null,
      step.values.map(valueLine), step.files.map((file) => shownFile(run, step.number, file))));
}

export function reportOf(report) {
  const failed = report.steps.filter((step) => !['passed', 'skipped'].includes(step.verdict));
  const variables = Object.entries(report.variables || {}).map(([name, text]) => fact(name, text)).filter(Boolean);
  return [
    make('div', {class: 'report-head'},
      make('h2', {}, report.serial || report.identity || 'Phone'), verdictBadge(report.verdict),
      make('span', {class: 'quiet'}, report.plan)),
    failed.length ? make('ul', {}, failed.map((step) =>
      make('li', {}, make('b', {}, step.name), step.message ? `: ${step.message}` : ''))) : null,
    make('dl', {class: 'facts'}, [
      fact('Identity', report.identity), fact('Bluetooth address', report.address),
      fact('Started', moment(report.started)), fact('Took', seconds(report.milliseconds)),
      fact('Station', report.station), fact('Operator', report.operator), fact('Slot', report.slot),
      fact('Port', report.port), fact('Tool', report.tool), fact('Plan SHA-256', report.plan_sha256),
      fact('Executable’s SHA-256', report.executable_sha256),
      ...Object.entries(report.versions || {}).map(([name, text]) => fact(`${name} version`, text)),
    ].filter(Boolean)),
    variables.length ? make('h3', {}, 'Variables of the plan') : null,
    variables.length ? make('dl', {class: 'facts'}, variables) : null,
    report.files.length ? make('div', {class: 'files'}, make('h3', {}, 'Files of the run'),
      report.files.map((file) => shownFile(report.run, 0, file))) : null,
    make('div', {class: 'wide-table'}, make('table', {}, make('thead', {}, make('tr', {},
      make('th', {class: 'number'}, ''), make('th', {}, 'Verdict'), make('th', {class: 'number'}, 'Time'),
      make('th', {}, 'Step'))), make('tbody', {}, report.steps.map((step) => stepRow(report.run, step))))),
  ].filter(Boolean);
}
