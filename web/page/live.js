// What a page says to its reader: aloud by a screen reader, and in a line that goes away again.
import {find, make} from './dom.js';

const SHOWN = 6000; // ms

function region(urgency) {
  const id = `live-${urgency}`;
  let found = find(`#${id}`);
  if (!found) {
    found = make('div', {id, class: 'visually-hidden', 'aria-live': urgency, 'aria-atomic': 'true'});
    document.body.append(found);
  }
  return found;
}

// Says a sentence without showing it.
export function say(sentence, urgency = 'polite') {
  region(urgency).textContent = sentence;
}

// Shows a sentence for a while and says it. kind: 'note' or 'failure'.
export function tell(sentence, kind = 'note') {
  say(sentence, kind === 'failure' ? 'assertive' : 'polite');
  let stack = find('#tells');
  if (!stack) {
    stack = make('div', {id: 'tells', class: 'tells'});
    document.body.append(stack);
  }
  const line = make('p', {class: `tell tell-${kind}`}, sentence);
  stack.append(line);
  setTimeout(() => line.remove(), SHOWN);
}

// Does `work` and tells if it fails. Returns what it returned, or undefined.
export async function trying(work) {
  try {
    return await work();
  } catch (failure) {
    tell(failure.message, 'failure');
    return undefined;
  }
}
