// What the line manager sets for the phones to come, and what the line was started with.
import {ask, change, find, make} from '/dom.js';
import {openEvents} from '/events.js';
import {tell, trying} from '/live.js';
import {openFrame} from '/frame.js';

const frame = await openFrame('Settings');
const manages = frame.line.role === 'manager';

function setting({name, help, value}) {
  const field = make('input', {name: 'value', value, autocomplete: 'off', spellcheck: 'false', maxlength: 200,
    placeholder: 'scanned with each phone, or the plan’s default', disabled: !manages});
  const save = (event) => {
    event.preventDefault();
    trying(async () => {
      await change('/settings', {name, value: field.value.trim()});
      tell(`${name} is ${field.value.trim() || 'no longer set'}.`);
    });
  };
  return make('form', {class: 'search', onsubmit: save, 'data-setting': name},
    make('label', {class: 'wide'}, `${name}${help ? `: ${help}` : ''}`, field),
    manages ? make('button', {class: 'primary'}, 'Set') : null);
}

const all = await trying(() => ask('/settings'));
if (all) {
  find('#settings').replaceChildren(...(all.settings.length ? all.settings.map(setting)
    : [make('p', {class: 'empty'}, 'The plan names no variables that are set here.')]));
  find('#slots').replaceChildren(...all.slots.map(({name, barcode, port}) =>
    make('tr', {}, make('td', {}, name), make('td', {class: 'mono'}, barcode), make('td', {class: 'mono'}, port))));
  find('#station').replaceChildren(...all.station.map(([name, value]) =>
    make('div', {}, make('dt', {}, name), make('dd', {}, value))));
}
openEvents('/events', {store: frame.showStore}, frame.showLink);
