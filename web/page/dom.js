// Building a page from data. Text is only ever set as text, so nothing that a phone prints becomes markup.

const SVG = 'http://www.w3.org/2000/svg';

// make('button', {class: 'key', 'aria-label': 'Call', onclick: call}, 'Call'): an element with its attributes,
// listeners (on…) and children (elements or text). A value of false, null or undefined leaves the attribute out.
export function make(name, attributes = {}, ...children) {
  return fill(document.createElement(name), attributes, children);
}

export function makeSvg(name, attributes = {}, ...children) {
  return fill(document.createElementNS(SVG, name), attributes, children);
}

function fill(element, attributes, children) {
  for (const [name, value] of Object.entries(attributes)) {
    if (value === false || value === null || value === undefined) continue;
    if (name.startsWith('on')) element.addEventListener(name.slice(2), value);
    else element.setAttribute(name, value === true ? '' : value);
  }
  element.append(...children.flat().filter((child) => child !== null && child !== undefined));
  return element;
}

export const find = (selector, from = document) => from.querySelector(selector);
export const findAll = (selector, from = document) => [...from.querySelectorAll(selector)];

// Changes the text only if it differs, so that a screen reader is not told the same twice.
export function setText(element, text) {
  const wanted = String(text);
  if (element.textContent !== wanted) element.textContent = wanted;
}

// Asks the server. Returns its JSON, or its text if it is not JSON; throws an Error with the server's sentence.
export async function ask(path) {
  return read(await send(path, {}));
}

// Asks for a change.
export async function change(path, data = {}) {
  return read(await send(path, {
    method: 'POST',
    headers: {'Content-Type': 'application/json'},
    body: JSON.stringify(data),
  }));
}

async function send(path, options) {
  try {
    return await fetch(path, {credentials: 'same-origin', cache: 'no-store', ...options});
  } catch {
    throw new Error('The program that shows this page does not answer.');
  }
}

async function read(response) {
  const text = await response.text();
  if (!response.ok) throw new Error(text.trim() || `The server answered with status ${response.status}.`);
  return (response.headers.get('Content-Type') || '').startsWith('application/json') ? JSON.parse(text) : text;
}
