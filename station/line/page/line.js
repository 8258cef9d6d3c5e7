// The operator's page: one card a slot, fed by the station's events.
import {change, find, make, setText} from '/dom.js';
import {openEvents} from '/events.js';
import {say, trying} from '/live.js';
import {Card} from '/card.js';
import {holdButton, openFrame, person} from '/frame.js';
import {act, watchScans} from '/operator.js';

const frame = await openFrame('Line');
const cards = new Map();
let line = frame.line;
let chosen = '';
let refusal = '';

for (const slot of line.slots) {
  const card = new Card(slot, line.steps, {choose, act: (word, data) => trying(() => act(slot.name, word, data))});
  cards.set(slot.name, card);
  find('#cards').append(card.element);
}
find('#cards').classList.toggle('few', line.slots.length <= 4);
find('#cards').classList.toggle('many', line.slots.length > 8);
setInterval(() => { for (const card of cards.values()) card.tick(); }, 500);
if (cards.has(sessionStorage.getItem('slot'))) chosen = sessionStorage.getItem('slot');
else if (line.slots.length === 1) chosen = line.slots[0].name;

function choose(name) {
  chosen = name;
  sessionStorage.setItem('slot', name);
  refuse('');
  showChoice();
}

function bringIntoSight(card) {
  const box = card.getBoundingClientRect();
  const top = find('#scan-form').getBoundingClientRect().bottom;
  if (box.top < top || box.bottom > innerHeight) card.scrollIntoView({block: 'center'});
}

function showChoice() {
  for (const [name, card] of cards) card.setChosen(name === chosen);
  showNext();
}

function showNext() {
  const view = cards.get(chosen)?.view;
  setText(find('#scan-label'), chosen ? `Slot ${chosen}` : 'Scan');
  find('#scan').placeholder = placeholder(view);
  setText(find('#hint'), refusal || advice(view));
}

// Below the scan field while nothing is refused: what else can be done.
function advice(view) {
  if (!view) return line.slots.length > 1 ? 'Scan a slot’s barcode, or click its card.' : '';
  return line.slots.length > 1 ? 'Another slot is chosen by its barcode or a click.' : '';
}

// What the operator is to do next with the chosen slot.
function placeholder(view) {
  if (!view) return 'a slot’s barcode';
  if (view.wants) return view.wants.name;
  if (view.run?.question) return 'P for pass, F for fail';
  if (view.verdict) return 'the next phone’s serial number';
  return 'another slot’s barcode';
}

function refuse(sentence) {
  const hint = find('#hint');
  refusal = sentence;
  hint.classList.toggle('refusal', sentence !== '');
  showNext();
}

// A scanner may send the next code before the first one is answered, and that code belongs to the slot that the first
// one has chosen: one after the other.
let scans = Promise.resolve();
function sendScan(text) {
  scans = scans.then(() => sendOne(text));
}

async function sendOne(text) {
  refuse('');
  try {
    const result = await change('/scan', {text, slot: chosen, who: person()});
    if (result.slot) {
      choose(result.slot);
      bringIntoSight(cards.get(result.slot).element);
    }
    refuse(result.refusal);
  } catch (failure) {
    refuse(failure.message);
  }
}

watchScans({
  openQuestion: () => {
    const question = cards.get(chosen)?.view?.run?.question;
    return question ? {slot: chosen, number: question.number} : null;
  },
  answer: (question, reply) => trying(() => act(question.slot, 'answer', {question: question.number, reply})),
  sendScan,
});

function showLine(news) {
  line = {...line, ...news};
  const held = find('#held');
  held.hidden = !line.held;
  setText(held, line.held ? `The line is held: ${line.held}` : '');
  find('#hold')?.remove();
  const button = holdButton(line);
  if (button) find('.states').append(button);
}

function showSlot(name, view) {
  const before = cards.get(name).view;
  cards.get(name).show(view);
  if (name === chosen) showNext();
  if (!before) return;
  if (view.verdict && !before.verdict) say(`Slot ${name}: ${view.verdict.word}`, 'assertive');
  const question = view.run?.question;
  if (question && question.number !== before.run?.question?.number) say(`Slot ${name} asks: ${question.text}`);
}

showLine(line);
showChoice();
openEvents('/events', {
  store: frame.showStore,
  line: showLine,
  ...Object.fromEntries(line.slots.map(({name}) => [`slot-${name}`, (view) => showSlot(name, view)])),
}, (state, sentence) => {
  frame.showLink(state);
  if (state === 'refused') refuse(sentence);
});
