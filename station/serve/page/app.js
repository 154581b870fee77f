// A view of what the server says: it keeps nothing that a reload would lose, but the language.
const byId = (id) => document.getElementById(id);
const texts = {};
let language = localStorage.language ?? (navigator.language.startsWith('de') ? 'de' : 'en');
let state = null;
let stream = null;

const say = (key, ...values) => (texts[language]?.[key] ?? key).replace(/\{(\d)\}/g, (_, n) => values[n]);

/** Makes an element; a child that is false or null is left out. */
function make(name, attributes = {}, ...children) {
  const element = document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) {
    if (key.startsWith('on')) element.addEventListener(key.slice(2), value);
    else if (value !== false && value !== null) element.setAttribute(key, value);
  }
  element.append(...children.filter((child) => child !== false && child !== null));
  return element;
}

async function post(path, body) {
  const request = crypto.randomUUID?.() ?? String(Math.random()).slice(2);
  // A repeated request is carried out once: a reply that was lost does no harm.
  for (let attempt = 1; ; ++attempt) {
    try {
      const reply = await fetch(`/api/v1/${path}`, {
        method: 'POST', headers: {'Content-Type': 'application/json'}, body: JSON.stringify({...body, request}),
      });
      return {status: reply.status, wait: reply.headers.get('Retry-After'), ...(await reply.json())};
    } catch (error) {
      if (attempt === 3) return {status: 0, error: say('lost')};
    }
  }
}

async function act(path, body) {
  const reply = await post(path, body);
  if (reply.status === 401) await showLogin();
  byId('answer').textContent = reply.error
    ?? (reply.started && say('started', reply.started)) ?? (reply.selected && say('selectedSlot', reply.selected))
    ?? (reply.choose && say('choose')) ?? (reply.answered && say('answered')) ?? '';
  if (reply.choose) {
    const scan = body.text;
    byId('answer').append(...reply.choose.map((question) => make('button', {
      type: 'button', onclick: () => act('answers', {question, answer: scan}),
    }, question)));
  }
}

// The scanner types a burst and Enter, wherever the focus is.
let typed = '';
let typedAt = 0;
document.addEventListener('keydown', (event) => {
  const field = event.target.matches?.('input, select');
  if (field || event.ctrlKey || event.altKey || event.metaKey || byId('login').hidden === false) return;
  if (event.timeStamp - typedAt > 500) typed = '';
  const isBurst = typed !== '';
  if (event.key.length === 1 && (event.key !== ' ' || isBurst)) {
    typed += event.key;
    typedAt = event.timeStamp;
    byId('text').value = typed;
    event.preventDefault();
  } else if (event.key === 'Enter' && isBurst) {
    event.preventDefault();
    scanned(typed);
  }
}, true);

function scanned(text) {
  typed = '';
  byId('text').value = '';
  if (text.trim() !== '') act('scan', {text: text.trim()});
}

byId('scan').addEventListener('submit', (event) => {
  event.preventDefault();
  scanned(byId('text').value);
});

function question(asked) {
  const answer = (text) => act('answers', {question: asked.id, answer: text});
  const button = (text, value) => make('button', {type: 'button', onclick: () => answer(value)}, text);
  const buttons = asked.kind === 'yes/no' ? [button(say('yes'), 'yes'), button(say('no'), 'no')]
    : asked.choices.map((choice) => button(choice, choice));
  const typing = buttons.length === 0 && make('form', {
    class: 'choices', autocomplete: 'off',
    onsubmit: (event) => { event.preventDefault(); answer(event.target.elements.answer.value); },
  }, make('input', {
    name: 'answer', 'aria-label': asked.text, type: asked.secret ? 'password' : 'text',
    inputmode: asked.kind === 'number' ? 'decimal' : 'text',
  }), make('button', {}, say('send')));
  return make('div', {class: 'question', role: 'alert', 'data-question': asked.id},
    make('p', {}, asked.text),
    asked.image && make('img', {src: `/api/v1/questions/${asked.id}/image`, alt: ''}),
    typing || make('div', {class: 'choices'}, ...buttons));
}

const kSigns = {PASS: '✔', FAIL: '✖'};
const kClasses = {PASS: 'good', FAIL: 'bad'};

function tile(slot) {
  const result = slot.state === 'ended' && slot.result;
  const verdict = result && result.verdict;
  const running = slot.state === 'running';
  const word = verdict ? `${kSigns[verdict] ?? '▲'} ${verdict}`
    : running ? say(slot.ending ? 'ending' : 'running') : say(slot.present ? 'free' : 'absent');
  return make('article', {
    class: [verdict && (kClasses[verdict] ?? 'other'), state.selected === slot.slot && 'selected'].filter(Boolean).join(' '),
    'aria-label': slot.slot, 'data-slot': slot.slot, 'data-state': slot.state, 'data-verdict': verdict || null,
  },
  make('h2', {}, make('span', {}, slot.slot), make('small', {}, slot.plan)),
  slot.serial !== '' && make('p', {class: 'serial'}, slot.serial, slot.retest && ' ', slot.retest && make('small', {}, say('retest'))),
  make('p', {class: 'word', role: 'status'}, word),
  verdict && result.reason && make('p', {class: 'why'}, result.reason),
  verdict && make('p', {class: 'next'}, say(`next ${verdict}`)),
  state.selected === slot.slot && make('p', {class: 'next'}, say('selected')),
  running && slot.total > 0 && make('p', {}, say('step', slot.done + 1, slot.total), make('br'), make('small', {}, slot.step)),
  running && make('progress', {value: slot.done, max: Math.max(slot.total, 1), 'aria-label': say('running')}),
  slot.question && question(slot.question),
  running && make('button', {type: 'button', onclick: () => act(`slots/${encodeURIComponent(slot.slot)}/abort`, {})}, say('abort')));
}

function showSlot(slot) {
  const old = document.querySelector(`[data-slot="${CSS.escape(slot.slot)}"]`);
  // An open question keeps what has been typed and the focus.
  if (old && slot.question && old.querySelector(`[data-question="${CSS.escape(slot.question.id)}"]`)) return;
  const fresh = tile(slot);
  old ? old.replaceWith(fresh) : byId('slots').append(fresh);
  const first = fresh.querySelector('.question button, .question input');
  if (first && (document.activeElement === document.body || document.activeElement === byId('text'))) first.focus();
}

function showShift(shift) {
  byId('units').textContent = shift.units;
  byId('retests').textContent = shift.retests;
  byId('yield').textContent = shift.units ? `${(100 * shift.first_pass / shift.units).toFixed(1)} %` : '–';
  byId('last').replaceChildren(...shift.last.map((unit) => make('tr', {},
    make('td', {}, new Date(unit.time).toLocaleTimeString(language)), make('td', {}, unit.serial),
    make('td', {}, unit.verdict))));
}

function show() {
  document.documentElement.lang = language;
  for (const element of document.querySelectorAll('[data-text]')) element.textContent = say(element.dataset.text);
  for (const element of document.querySelectorAll('[data-label]')) element.setAttribute('aria-label', say(element.dataset.label));
  byId('lost').textContent = say('lost');
  byId('language').value = language;
  if (!state) return;
  document.title = byId('station').textContent = state.station;
  byId('line').textContent = state.line;
  byId('slots').replaceChildren();
  state.slots.forEach(showSlot);
  showShift(state.shift);
}

function setLost(lost) {
  byId('lost').hidden = !lost;
  document.body.classList.toggle('lost', lost);
}

function connect() {
  stream?.close();
  stream = new EventSource('/api/v1/events');
  const on = (type, handle) => stream.addEventListener(type, (event) => handle(JSON.parse(event.data)));
  on('snapshot', (snapshot) => {
    state = snapshot;
    setLost(false);
    show();
  });
  on('slot', (slot) => {
    state.slots = state.slots.map((each) => (each.slot === slot.slot ? slot : each));
    if (slot.state === 'running' && state.selected === slot.slot) state.selected = '';
    showSlot(slot);
  });
  on('selected', ({slot}) => {
    state.selected = slot;
    state.slots.forEach(showSlot);
  });
  on('shift', showShift);
  stream.onopen = () => setLost(false);
  stream.onerror = async () => {
    setLost(true);
    // Closed for good: the session may have ended with the server.
    if (stream.readyState === EventSource.CLOSED) setTimeout(enter, 1000);
  };
}

async function showLogin() {
  stream?.close();
  document.querySelector('main').hidden = true;
  byId('login').hidden = false;
  byId('login').elements.badge.focus();
}

async function enter() {
  let session;
  try {
    session = await (await fetch('/api/v1/session')).json();
  } catch (error) {
    setLost(true);
    setTimeout(enter, 1000);
    return;
  }
  setLost(false);
  byId('user').textContent = session.name;
  byId('logout').hidden = session.name === '';
  if (session.role === 'none') {
    await showLogin();
    return;
  }
  byId('login').hidden = true;
  document.querySelector('main').hidden = false;
  byId('text').focus();
  connect();
}

byId('login').addEventListener('submit', async (event) => {
  event.preventDefault();
  const {badge, name, password} = event.target.elements;
  const reply = await post('login', badge.value ? {badge: badge.value} : {name: name.value, password: password.value});
  event.target.reset();
  byId('refused').textContent = reply.status === 200 ? '' : reply.wait ? say('wait', reply.wait) : say('refused');
  if (reply.status === 200) await enter();
});

byId('logout').addEventListener('click', async () => {
  await post('logout', {});
  await enter();
});

byId('language').addEventListener('change', (event) => {
  language = localStorage.language = event.target.value;
  show();
});

for (const each of ['en', 'de']) texts[each] = await (await fetch(`/${each}.json`)).json();
show();
await enter();
