// The keypad, by pointer and by the PC's keys, and the pen on the touch panel.
import {make} from './dom.js';
import {HEIGHT, WIDTH} from './lcd.js';

// name (as the input system has it), shortcut, its sign, place and size, looks
const KEYS = [
  ['macro', 'q', 'Q', 45, 416, 62, 26, ''],
  ['delete', 'w', 'W', 223, 416, 62, 26, ''],
  ['edit', 'e', 'E', 32, 456, 66, 42, 'call'],
  ['exit', 'r', 'R', 232, 456, 66, 42, 'end'],
  ['front', 'ArrowUp', '▲', 139, 427, 52, 29, ''],
  ['undo', 'ArrowLeft', '◀', 115, 458, 33, 38, ''],
  ['paste', 'Enter', '⏎', 150, 462, 30, 30, 'middle'],
  ['copy', 'ArrowRight', '▶', 182, 458, 33, 38, ''],
  ['open', 'ArrowDown', '▼', 139, 498, 52, 29, ''],
  ['power', 'p', 'P', 58, 504, 56, 27, 'end'],
  ['deletefile', '1', '1', 50, 572, 70, 40, ''],
  ['eject', '2', '2', 130, 572, 70, 40, ''],
  ['cancel', '3', '3', 210, 572, 70, 40, ''],
];

// One command after the other, so that a release never overtakes its press.
export function inOrder(command) {
  let last = Promise.resolve();
  return (...words) => {
    last = last.then(() => command(...words));
    return last;
  };
}

export function keypad(place, command) {
  const send = inOrder(command);
  let held = null;

  function press(button) {
    if (held) return;
    held = button;
    button.classList.add('held');
    send('key', 'down', button.dataset.key);
  }
  function release(button) {
    if (held !== button) return;
    held = null;
    button.classList.remove('held');
    send('key', 'up');
  }

  const byShortcut = new Map();
  for (const [name, shortcut, sign, x, y, width, height, looks] of KEYS) {
    const button = make('button', {
      type: 'button', class: looks, 'data-key': name, title: `${name}: ${shortcut}`, 'aria-label': `Key ${name}`,
      'aria-keyshortcuts': shortcut,
    }, make('span', {class: 'hint'}, sign), looks === 'middle' ? '' : name);
    Object.assign(button.style, {left: `${x}px`, top: `${y}px`, width: `${width}px`, height: `${height}px`});
    button.addEventListener('pointerdown', (event) => {
      if (event.button !== 0) return;
      button.setPointerCapture(event.pointerId);
      press(button);
    });
    for (const end of ['pointerup', 'pointercancel', 'lostpointercapture', 'blur']) {
      button.addEventListener(end, () => release(button));
    }
    byShortcut.set(shortcut, button);
    place.append(button);
  }

  // A shortcut counts where a key has no other meaning; Space and Enter hold the button that has the focus.
  const target = (event) => {
    if (event.target.closest?.('#keys') && (event.key === ' ' || event.key === 'Enter')) return event.target;
    const free = event.target === document.body || event.target.closest?.('#phone');
    if (!free || event.ctrlKey || event.altKey || event.metaKey) return undefined;
    return byShortcut.get(event.key.length === 1 ? event.key.toLowerCase() : event.key);
  };
  document.addEventListener('keydown', (event) => {
    const button = target(event);
    if (!button) return;
    event.preventDefault();
    if (!event.repeat) press(button);
  });
  document.addEventListener('keyup', () => { if (held) release(held); });
  window.addEventListener('blur', () => { if (held) release(held); });
}

// The pointer on the canvas is the pen. Moves that come faster than the phone takes them are passed over.
export function touchPanel(canvas, command) {
  const send = inOrder(command);
  let down = false;
  let place = null;
  let moving = false;

  function pixel(event) {
    const box = canvas.getBoundingClientRect();
    const along = (position, start, length, pixels) =>
      String(Math.min(pixels - 1, Math.max(0, Math.floor((position - start) / length * pixels))));
    return [along(event.clientX, box.left, box.width, WIDTH), along(event.clientY, box.top, box.height, HEIGHT)];
  }

  canvas.addEventListener('pointerdown', (event) => {
    if (event.button !== 0) return;
    canvas.setPointerCapture(event.pointerId);
    down = true;
    place = pixel(event);
    send('touch', 'down', ...place);
  });
  canvas.addEventListener('pointermove', async (event) => {
    if (!down) return;
    place = pixel(event);
    if (moving) return;
    moving = true;
    await send('touch', 'move', ...place);
    moving = false;
  });
  for (const end of ['pointerup', 'pointercancel']) {
    canvas.addEventListener(end, (event) => {
      if (!down) return;
      down = false;
      send('touch', 'up', ...pixel(event));
    });
  }
}
