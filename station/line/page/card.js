// A slot's card: what is on it follows from the slot's state alone, so a page that is loaded anew shows the same.
import {find, make, setText} from '/dom.js';

const STATES = {
  idle: 'free',
  ready: 'scanning',
  checking: 'checking',
  running: 'testing',
  aborting: 'aborting',
  finished: 'done',
};

export class Card {
  // actions: {choose(name), act(word, data)}
  constructor(slot, steps, actions) {
    this.slot = slot;
    this.steps = steps;
    this.actions = actions;
    this.view = null;
    this.head = make('header', {}, make('h2', {}, slot.name), make('span', {class: 'phone'}),
      slot.page ? make('a', {href: slot.page, target: '_blank', rel: 'noopener', 'aria-label': 'See the phone'}, 'Phone ↗') : null,
      make('span', {class: 'badge state'}));
    this.body = make('div', {class: 'body'});
    this.element = make('article', {class: 'card slot', id: `slot-${slot.name}`, tabindex: 0,
      'aria-label': `Slot ${slot.name}`, onclick: () => actions.choose(slot.name),
      onkeydown: (event) => {
        if (event.target === this.element && event.key === 'Enter') actions.choose(slot.name);
      }}, this.head, this.body);
  }

  setChosen(chosen) {
    this.element.classList.toggle('chosen', chosen);
    this.element.setAttribute('aria-current', chosen ? 'true' : 'false');
  }

  show(view) {
    this.view = view;
    this.received = performance.now();
    const question = view.run?.question;
    const kind = view.verdict ? view.verdict.kind : question ? 'asks' : view.state;
    this.element.dataset.kind = kind;
    this.element.dataset.state = view.state;
    setText(find('.phone', this.head), view.values[0]?.value || '');
    find('.phone', this.head).title = view.values[0]?.value || '';
    setText(find('.state', this.head), question ? 'asks' : STATES[view.state]);
    if (question) this.showQuestion(question);
    else if (view.run) this.showRun(view);
    else if (view.verdict) this.put(`verdict-${JSON.stringify(view.verdict)}`, () => this.verdict(view));
    else if (view.state === 'checking') this.put('checking', () => [make('p', {class: 'wants'}, 'One moment …')]);
    else this.put(`wants-${JSON.stringify([view.values, view.wants])}`, () => this.wants(view));
  }

  // Builds the body anew only if something else is to stand there: a button must not vanish under a finger.
  put(key, build) {
    if (this.key === key) return;
    this.key = key;
    this.body.replaceChildren(...build());
  }

  button(label, word, data = {}, attributes = {}) {
    return make('button', {type: 'button', onclick: () => this.actions.act(word, data), ...attributes}, label);
  }

  wants(view) {
    const known = view.values.map(({name, value}) => [make('dt', {}, name), make('dd', {}, value)]);
    const begun = view.values.length > 0;
    return [
      make('p', {class: 'wants'}, begun ? `Scan the ${view.wants?.name}` : 'Put a phone in and scan it'),
      begun ? make('p', {class: 'quiet'}, view.wants?.help) : make('p', {class: 'quiet mono'}, view.barcode),
      begun ? make('dl', {}, known.flat()) : null,
      begun ? make('div', {class: 'actions'}, this.button('Start over', 'clear')) : null,
    ].filter(Boolean);
  }

  showRun(view) {
    this.put('run', () => [
      make('p', {class: 'step', 'aria-live': 'off'}),
      make('progress', {max: 1}),
      make('p', {class: 'quiet count'}),
      make('div', {class: 'marks', 'aria-hidden': 'true'}),
      make('div', {class: 'actions'}, this.button('Abort', 'abort', {}, {class: 'abort'})),
    ]);
    const {run} = view;
    setText(find('.step', this.body), view.state === 'aborting' ? 'Aborting: the phone is put back' : run.name);
    find('.abort', this.body).disabled = view.state === 'aborting';
    this.showMarks(view);
    this.tick();
  }

  // A square for each step, as text: equal ones in a row are one element, since many elements on many cards are what a
  // page is slow by.
  showMarks({marks, run}) {
    const signs = this.steps.map((_, index) => marks[index] ?? (index === run.step - 1 ? 'now' : 'to-come'));
    const runs = [];
    for (const sign of signs) {
      if (runs.at(-1)?.sign === sign) runs.at(-1).count += 1;
      else runs.push({sign, count: 1});
    }
    find('.marks', this.body).replaceChildren(...runs.map(({sign, count}) =>
      make('span', {class: MARKS[sign]}, '■'.repeat(count))));
  }

  // Between two events the time left counts down by itself: to be called every now and then.
  tick() {
    const run = this.view?.run;
    if (!run || run.question) return;
    const since = (performance.now() - this.received) / 1000;
    const left = run.left === null ? null : Math.max(0, run.left - since);
    const done = left === null ? (run.step - 1) / run.steps : (run.seconds + since) / (run.seconds + since + left);
    find('progress', this.body).value = Math.min(1, done);
    setText(find('.count', this.body),
      `Step ${run.step} of ${run.steps}${left === null ? '' : ` · ${timeLeft(left)}`}`);
  }

  showQuestion(question) {
    this.put(`question-${question.number}`, () => {
      const {name} = this.slot;
      const reply = (word) => ({question: question.number, reply: word});
      const picture = question.picture
        ? make('img', {class: 'picture', alt: 'What the question is about',
          src: `/slots/${name}/picture?question=${question.number}`}) : null;
      return [
        make('p', {class: 'question'}, question.text),
        picture,
        make('div', {class: 'replies'},
          this.button([make('span', {}, '✓ Pass'), make('kbd', {}, 'P')], 'answer', reply('pass'), {class: 'pass'}),
          this.button([make('span', {}, '✗ Fail'), make('kbd', {}, 'F')], 'answer', reply('fail'), {class: 'fail'})),
        make('div', {class: 'actions'}, this.button('Abort', 'abort', {}, {class: 'abort'})),
      ].filter(Boolean);
    });
  }

  verdict({verdict}) {
    const SHOWN = 4;
    const failures = verdict.failures.slice(0, SHOWN).map(({step, text}) =>
      make('li', {}, step ? make('b', {}, step) : null, make('span', {}, text)));
    const more = verdict.failures.length - SHOWN;
    return [
      make('p', {class: verdict.word.length > 5 ? 'word long' : 'word'}, make('span', {class: 'sign', 'aria-hidden': 'true'}, verdict.sign), verdict.word),
      failures.length ? make('ul', {class: 'failures'}, failures, more > 0 ? make('li', {}, `and ${more} more`) : null)
        : null,
      verdict.problem ? make('p', {class: 'aside'}, verdict.problem) : null,
      make('div', {class: 'actions'},
        verdict.seconds === undefined ? null : make('span', {class: 'took'}, `${verdict.seconds.toFixed(1)} s`),
        verdict.run ? make('a', {class: 'button report', href: `/history.html#${verdict.run}`}, 'Report') : null,
        this.button('Test again', 'retest', {}, {class: 'retest'})),
    ].filter(Boolean);
  }
}

const MARKS = {p: 'p', f: 'f', '-': 'n', now: 'now'};

function timeLeft(seconds) {
  if (seconds < 1) return 'nearly done';
  if (seconds < 90) return `about ${Math.round(seconds)} s left`;
  return `about ${Math.round(seconds / 60)} min left`;
}
