// The pools that plans draw identities and addresses from. The line manager adds numbers; none can be taken away.
import {ask, change, find, make} from '/dom.js';
import {openEvents} from '/events.js';
import {tell, trying} from '/live.js';
import {openFrame, whenChanged} from '/frame.js';

const frame = await openFrame('Numbers');
const form = find('#add');
form.hidden = frame.line.role !== 'manager';

async function show() {
  const pools = await trying(() => ask('/numbers'));
  if (!pools) return;
  const cell = (value) => make('td', {class: 'number'}, String(value));
  find('#pools').replaceChildren(...(pools.length ? pools.map((pool) => make('tr', {}, make('td', {}, pool.name),
    make('td', {}, pool.kind), cell(pool.left), cell(pool.reserved), cell(pool.given_out)))
    : [make('tr', {}, make('td', {colspan: 5, class: 'empty'}, 'There is no pool yet.'))]));
}

form.addEventListener('submit', (event) => {
  event.preventDefault();
  trying(async () => {
    const {added} = await change('/numbers', {pool: form.pool.value.trim(), range: form.range.value.trim()});
    tell(`${added} numbers were added.`);
    form.range.value = '';
    await show();
  });
});

show();
openEvents('/events', {store: whenChanged(frame.showStore, show)}, frame.showLink);
