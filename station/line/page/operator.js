// What the operator does: scans, keys and the choice of a card. The scan field keeps the focus, since a scanner only
// types.
import {change, find} from '/dom.js';
import {person} from '/frame.js';

// A scanner types its next character sooner than this; a person who answers with P or F types nothing after it.
const SCANNER_PAUSE = 300; // ms

const REPLIES = {p: 'pass', f: 'fail'};

// openQuestion(): {slot, number} of the chosen card's question, or null. answer(question, reply). sendScan(text).
export function watchScans({openQuestion, answer, sendScan}) {
  const field = find('#scan');
  let pending = null;

  const forget = () => {
    if (pending) clearTimeout(pending.timer);
    pending = null;
  };

  const judge = (event) => {
    forget();
    const reply = REPLIES[event.key.toLowerCase()];
    const question = openQuestion();
    const alone = field.value === '' && !event.ctrlKey && !event.altKey && !event.metaKey && !event.repeat;
    if (!reply || !question || !alone) return;
    // It is an answer only if nothing follows: otherwise it was the first character of a scan.
    pending = {timer: setTimeout(() => {
      pending = null;
      if (field.value.toLowerCase() !== event.key.toLowerCase()) return;
      field.value = '';
      answer(question, reply);
    }, SCANNER_PAUSE)};
  };

  // What is typed is for the scan field, wherever the focus is, unless it is in another field.
  document.addEventListener('keydown', (event) => {
    if (isText(document.activeElement) && document.activeElement !== field) return;
    if (isCharacter(event)) field.focus({preventScroll: true});
    if (document.activeElement === field) judge(event);
  }, true);

  find('#scan-form').addEventListener('submit', (event) => {
    event.preventDefault();
    forget();
    const text = field.value;
    field.value = '';
    sendScan(text);
  });

  keepFocus(field);
  returnFocus(find('#person'), field);
}

const isCharacter = (event) =>
  event.key.length === 1 && event.key !== ' ' && !event.ctrlKey && !event.altKey && !event.metaKey;

function isText(element) {
  return element instanceof HTMLInputElement || element instanceof HTMLTextAreaElement ||
    element instanceof HTMLSelectElement;
}

// After a click the field has the focus again. The Tab key moves it on, until a character is typed.
function keepFocus(field) {
  document.addEventListener('click', (event) => {
    if (!isText(event.target) && !event.target.closest('label, a')) field.focus({preventScroll: true});
  });
  window.addEventListener('focus', () => {
    if (!isText(document.activeElement)) field.focus({preventScroll: true});
  });
  field.focus();
}

// The next scan must not end up in the operator's name.
function returnFocus(name, field) {
  const PATIENCE = 10000; // ms
  let timer = 0;
  const back = () => field.focus({preventScroll: true});
  const wait = () => {
    clearTimeout(timer);
    timer = setTimeout(() => { if (document.activeElement === name) back(); }, PATIENCE);
  };
  name.addEventListener('focus', wait);
  name.addEventListener('input', wait);
  name.addEventListener('keydown', (event) => {
    if (event.key !== 'Enter') return;
    event.preventDefault(); // otherwise the same key would send the scan field, and an empty scan is refused
    back();
  });
}

export const act = (slot, word, data = {}) => change(`/slots/${slot}/${word}`, {who: person(), ...data});
