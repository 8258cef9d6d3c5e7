// The page's one stream of events. It reconnects by itself, also when the program was restarted.

const FIRST_PAUSE = 500; // ms
const LONGEST_PAUSE = 5000;

// handlers: {topic: (data, text) => …} with the event's data as JSON (its text if it is not JSON); `TOPIC-skipped` gets
// the number of events of a log that this page was too slow for. onState gets 'open', 'lost' or, with the server's
// sentence, 'refused'. Before each 'open' all topics begin anew. Returns a function that ends the stream.
export function openEvents(path, handlers, onState = () => {}) {
  let source = null;
  let timer = 0;
  let pause = FIRST_PAUSE;
  let ended = false;

  function connect() {
    source = new EventSource(path);
    source.onopen = () => {
      pause = FIRST_PAUSE;
      onState('open');
    };
    source.onerror = lose;
    for (const [topic, handle] of Object.entries(handlers)) {
      source.addEventListener(topic, (event) => handle(parsed(event.data), event.data));
    }
  }

  // The browser's own repetition stops at a refusal: a server that starts again has to be found too.
  async function lose() {
    source.close();
    if (ended) return;
    onState('lost');
    timer = setTimeout(retry, pause);
    pause = Math.min(pause * 2, LONGEST_PAUSE);
  }

  async function retry() {
    const sentence = await refusal();
    if (ended) return;
    if (sentence) onState('refused', sentence);
    connect();
  }

  // What the server says if it does not want this page, for example since it was started anew with another token.
  async function refusal() {
    const stop = new AbortController();
    try {
      const response = await fetch(path, {signal: stop.signal, cache: 'no-store'});
      return response.ok ? '' : (await response.text()).trim();
    } catch {
      return '';
    } finally {
      stop.abort();
    }
  }

  connect();
  return () => {
    ended = true;
    clearTimeout(timer);
    source.close();
  };
}

function parsed(text) {
  try {
    return JSON.parse(text);
  } catch {
    return text;
  }
}

// The bytes of base64 text.
export function bytesOf(text) {
  const binary = atob(text);
  const bytes = new Uint8Array(binary.length);
  for (let index = 0; index < binary.length; ++index) bytes[index] = binary.charCodeAt(index);
  return bytes;
}
