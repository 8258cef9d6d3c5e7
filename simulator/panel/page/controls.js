// What the page shows of the phone's state, and its switches.
import {ask, find, findAll, make, setText} from './dom.js';
import {say, tell, trying} from './live.js';
import {listen, measure} from './sound.js';

// The LED's colour numbers are a bit each for red, green and blue.
const LED_COLOURS = ['off', 'red', 'green', 'yellow', 'blue', 'magenta', 'cyan', 'white'];
const LED_LIGHTS = ['transparent', '#ff4a3d', '#3dff7c', '#ffe23d', '#4d8dff', '#ff5df1', '#4dfff3', '#ffffff'];
const EIGHTH = 125; // ms: the timing word's high byte counts the lit ones, its low byte the dark ones

const DEVICES = [
  ['/dev/fb/0', 'LCD'], ['/proc/backlight/lcd', 'backlight'], ['/dev/input/event0', 'keypad'],
  ['/dev/touchscreen/tsc2046', 'touch panel'], ['/dev/sound/dsp', 'sound output'], ['/dev/sound/mixer', 'mixer'],
  ['/dev/v4l/radio0', 'FM radio'], ['/dev/v4l2/capture0', 'camera'], ['/dev/misc/rtc', 'clock'],
  ['/dev/misc/omap730_gpio', 'GPIO lines'], ['/proc/bus/mmc/device', 'memory card'], ['/dev/csmi_tty/6', 'modem AT port'],
  ['/dev/csmi_tty/7', 'modem data port'], ['/dev/csmi_tty/1', 'modem control port'], ['/dev/mtd/*', 'flash'],
  ['/dev/mtdblock_bbs/*', 'flash, as blocks'], ['/proc/mtd', 'list of partitions'], ['/root/bt_cit_test', 'Bluetooth tool'],
];
const EFFECTS = [
  ['refuses requests', ['request', 'error=EIO']], ['cannot be opened', ['open', 'error=ENODEV']],
  ['is slow to open (2 s)', ['open', 'delay=2000']], ['is slow to answer (2 s)', ['request', 'delay=2000']],
  ['reads short', ['open', 'size=10']], ['cannot be started', ['exec', 'error=EACCES']],
];
const LAMPS = [
  ['UART receive', (state) => state.uart_rx !== '0'], ['Audio A', (state) => state.lines['audio-a']],
  ['Audio B', (state) => state.lines['audio-b']], ['Standby held', (state) => state.standby_held],
  ['Motor', (state) => state.motor], ['LED', (state) => state.led.colour !== '0'],
];
const ANSWERED = 400; // ms after which a new picture may be there

let before = null;
let base = '';

export function showState(state) {
  showLights(state);
  showAround(state);
  showFaults(state.faults);
  showCamera(state.camera);
  setText(find('#sound-path'), state.sound.off || state.sound.path === 'none' ? 'no path' : state.sound.path);
  setText(find('#clip'), state.player ? state.player.join(' ') : 'none');
  announce(state);
  before = state;
}

function announce(state) {
  if (!before) return;
  if (state.motor !== before.motor) say(state.motor ? 'The motor runs.' : 'The motor stands still.');
  if (state.plugged !== before.plugged) say(state.plugged ? 'The cable is plugged in.' : 'The cable is drawn.');
  if (state.led.colour !== before.led.colour) say(`The LED is ${LED_COLOURS[Number(state.led.colour)] ?? 'lit'}.`);
}

function showLights(state) {
  const phone = find('#phone');
  // The eye sees a backlight of half the power as much more than half as bright.
  const level = Math.min(100, Math.max(0, Number(state.backlight) || 0)) / 100;
  find('#dimmer').style.opacity = String(0.92 * (1 - Math.sqrt(level)));
  phone.classList.toggle('shaking', state.motor);
  phone.classList.toggle('unplugged', !state.plugged);
  const colour = Number(state.led.colour) & 7;
  const timing = Number(state.led.timing) || 0;
  const period = ((timing >> 8 & 255) + (timing & 255)) * EIGHTH;
  phone.classList.toggle('led-on', colour !== 0);
  phone.classList.toggle('led-blinks', colour !== 0 && period > 0);
  phone.style.setProperty('--led', LED_LIGHTS[colour]);
  phone.style.setProperty('--led-period', `${period}ms`);
  const lamps = find('#lamps');
  if (!lamps.children.length) lamps.append(...LAMPS.map(([name]) => make('li', {'data-lamp': name}, make('i'), make('span', {}, name), make('span', {class: 'visually-hidden'}))));
  LAMPS.forEach(([, lit], index) => {
    const lamp = lamps.children[index];
    lamp.classList.toggle('on', Boolean(lit(state)));
    setText(lamp.lastElementChild, lit(state) ? ' on' : ' off');
  });
}

const press = (button, pressed) => button.setAttribute('aria-pressed', String(pressed));

function showAround(state) {
  press(find('#cable'), state.plugged);
  press(find('#card'), state.card.inserted);
  press(find('#card-locked'), state.card.read_only);
  press(find('#sim'), state.modem.sim);
  setText(find('#clock'), state.clock);
  const radio = state.radio;
  setText(find('#radio'), `${radio.frequency.toFixed(2)} MHz, ${radio.muted ? 'muted' : `volume ${radio.volume}`}, signal ${radio.signal}`);
  find('#radio-meter i').style.width = `${radio.signal / 655.35}%`;
  find('#radio-meter').setAttribute('aria-valuenow', radio.signal);
  if (document.activeElement !== find('#signal')) find('#signal').value = state.modem.signal;
  setText(find('#modem'), `${state.modem.signal} of 31, state word ${state.modem_state}${state.modem.silent ? ', silent' : ''}`);
  setText(find('#lines'), Object.entries(state.lines).map(([line, on]) => `${line} ${on ? 'on' : 'off'}`).join(', '));
  if (document.activeElement !== find('#noise')) find('#noise').value = state.touch_noise;
  setText(find('#noise-value'), state.touch_noise ? `± ${state.touch_noise} counts` : 'none');
  showLog('#at', state.modem.lines.map((line) => `${line.from_phone ? '→' : '←'} ${line.text.trim().replace(/\s+/g, ' ')}`));
  showLog('#bluetooth', state.bluetooth.flatMap(({line, printed}) => [`← ${line}`, ...lines(printed).map((text) => `→ ${text}`)]));
}

const lines = (text) => text.split('\n').filter((line) => line !== '');

function showLog(selector, lines) {
  const log = find(selector);
  if (log.textContent === lines.join('')) return;
  log.replaceChildren(...lines.map((line) => make('li', {}, line)));
}

let shownFaults = '';

function showFaults(faults) {
  if (faults.join('\n') === shownFaults) return;
  shownFaults = faults.join('\n');
  const count = find('#fault-count');
  setText(count, faults.length ? `${faults.length} active` : 'none');
  count.className = `badge${faults.length ? ' warn' : ''}`;
  find('#faults').replaceChildren(...faults.map((fault, index) =>
    make('li', {}, make('code', {}, fault),
      make('button', {type: 'button', class: 'small', 'aria-label': `Take back: ${fault}`, 'data-remove': index + 1}, 'Take back'))));
}

let shownCamera = '';

function showCamera(text) {
  if (text === shownCamera) return;
  shownCamera = text;
  const signs = {dust: 'dust', row: 'dead row', blur: 'out of focus', tint: 'tint', shading: 'corners'};
  for (const button of findAll('[data-defect]')) press(button, text.includes(signs[button.dataset.defect.split(' ', 1)[0]]));
  const [, seed] = text.match(/^(?:scene|card) (\d+)/) ?? [];
  if (document.activeElement !== find('#seed')) find('#seed').value = seed ?? 0;
  find('#scene').value = text.startsWith('card') ? 'card' : 'scene';
  loadPictures();
}

function loadPictures() {
  for (const which of ['preview', 'blemish', 'focus']) {
    const image = find(`#${which}`);
    const fresh = new Image();
    fresh.onload = () => { image.src = fresh.src; };
    fresh.onerror = () => { image.removeAttribute('src'); };
    fresh.src = `${base}/picture/${which}?${Date.now()}`;
  }
}

async function loadRecords() {
  const records = await trying(() => ask(`${base}/records`));
  if (!records) return;
  const row = (name, ...value) => [make('dt', {}, name), make('dd', {}, ...value)];
  const copy = (one) => row(one.name, `word ${one.word} `,
    make('span', {class: `badge ${one.verifies ? 'good' : 'bad'}`}, `check sum 0x${one.check_sum.toString(16).toUpperCase().padStart(4, '0')} ${one.verifies ? 'right' : 'wrong'}`));
  find('#records').replaceChildren(
    ...row('Identity', records.identity || 'none programmed'), ...row('Bluetooth address', records.bluetooth || 'none'),
    ...row('Factory information', records.factory.length ? records.factory.join(' · ') : 'erased'),
    ...records.partition.flatMap(copy));
}

function showSound() {
  const sound = measure();
  find('#meter i').style.width = `${(sound.level + 60) / 0.6}%`;
  find('#meter').setAttribute('aria-valuenow', sound.level.toFixed(0));
  setText(find('#sound-format'), sound.format || 'none');
  setText(find('#frequencies'), sound.quiet ? 'silent' : sound.frequencies.map((one) => `${one.toFixed(1)} Hz`).join(', ') || '…');
}

export function wireControls(path, command) {
  base = path;
  const on = (selector, event, work) => find(selector).addEventListener(event, work);
  const pressed = (selector) => find(selector).getAttribute('aria-pressed') === 'true';
  const toggle = (selector, off, back) => on(selector, 'click', () => command(...(pressed(selector) ? off : back)));
  toggle('#cable', ['unplug'], ['plug']);
  toggle('#card', ['card', 'remove'], ['card', 'insert']);
  toggle('#card-locked', ['card', 'writable'], ['card', 'read-only']);
  toggle('#sim', ['modem', 'sim', 'off'], ['modem', 'sim', 'on']);
  on('#signal', 'change', (event) => command('modem', 'signal', event.target.value));
  on('#noise', 'change', (event) => command('touch', 'noise', event.target.value));
  on('#clock-set', 'click', () => {
    const [date, time] = new Date(Date.now() - new Date().getTimezoneOffset() * 60000).toISOString().split(/[T.]/);
    command('clock', date, time);
  });
  on('#restart', 'click', () => command('restart'));
  on('#clear-faults', 'click', () => command('clear-faults'));
  on('#power-cut', 'click', () => command('fault', 'open', '/dev/mtdblock_bbs/*', 'power=cut'));
  on('#faults', 'click', (event) => {
    const button = event.target.closest('[data-remove]');
    if (button) command('fault', 'remove', button.dataset.remove);
  });
  find('#fault-device').append(...DEVICES.map(([device, name]) => make('option', {value: device}, `${name} (${device})`)));
  find('#fault-effect').append(...EFFECTS.map(([name], index) => make('option', {value: index}, name)));
  on('#fault-form', 'submit', (event) => {
    event.preventDefault();
    const [call, effect] = EFFECTS[find('#fault-effect').value][1];
    command('fault', call, find('#fault-device').value, effect, `times=${find('#fault-times').value}`);
  });
  const show = () => command('camera', find('#scene').value, find('#seed').value || '0');
  on('#scene', 'change', show);
  on('#seed', 'change', show);
  on('#camera-good', 'click', () => command('camera', 'good'));
  on('#camera-refresh', 'click', loadPictures);
  on('#camera-switches', 'click', (event) => {
    const button = event.target.closest('[data-defect]');
    if (!button) return;
    const words = button.dataset.defect.split(' ');
    const off = {dust: ['dust', '0'], blur: ['blur', '0'], tint: ['tint', '100', '100', '100'], shading: ['shading', '0'], row: ['good']};
    command('camera', ...(button.getAttribute('aria-pressed') === 'true' ? off[words[0]] : words));
  });
  on('#records-refresh', 'click', loadRecords);
  on('#listen', 'click', async () => {
    const listens = !pressed('#listen');
    press(find('#listen'), listens);
    setText(find('#listen'), listens ? 'Listening' : 'Listen');
    await trying(() => listen(listens));
    if (listens) tell('What the phone plays is heard here now.');
  });
  document.addEventListener('boot', () => setTimeout(() => { loadRecords(); loadPictures(); }, ANSWERED));
  setInterval(showSound, 250);
}
