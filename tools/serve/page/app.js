// The page of `iio-subhal serve`: the published sensors, a card per sensor with its controls,
// live figures and one chart per axis, the check, the recording and the dump. Every request
// carries the token of the URL the tool printed; the live messages come as Server-Sent Events.
'use strict';

const token = new URLSearchParams(location.search).get('token') || '';
const WINDOW_S = 10;         // seconds of points a chart keeps
const MAX_POINTS = 4000;     // and at most this many
const AXES = ['x', 'y', 'z'];

// What the page has taken in, for people and for the tests and benchmarks that drive it.
const live = window.iioLive = {
  received: {},     // handle -> events taken from the stream
  serverTotal: {},  // handle -> events the tool had taken from the library
  firstTotal: {},   // handle -> serverTotal before the first batch this page got
  droppedFrames: 0,
  framesDrawn: 0,
  connected: false,
  lastCheck: null,
};

const $ = (id) => document.getElementById(id);
const cards = new Map();  // handle -> {sensor, charts, xs, ys, dirty, elements}

function el(tag, attrs = {}, ...children) {
  const node = document.createElement(tag);
  for (const [k, v] of Object.entries(attrs)) {
    if (k === 'class') node.className = v; else if (k === 'text') node.textContent = v;
    else node.setAttribute(k, v);
  }
  for (const child of children) node.append(child);
  return node;
}

function showMessage(text) {
  const box = $('message');
  box.textContent = text;
  box.hidden = !text;
}

async function api(method, path, body) {
  const response = await fetch(path, {
    method,
    headers: { 'X-Token': token, 'Content-Type': 'application/json' },
    body: body === undefined ? undefined : JSON.stringify(body),
  });
  if (!response.ok) {
    const why = (await response.text()).trim();
    showMessage(`${method} ${path}: ${why || response.status}`);
    throw new Error(why);
  }
  showMessage('');
  return response;
}

const fmt = (v, digits = 3) => (v === null || v === undefined ? '–' : Number(v).toPrecision(digits));

function sensorRow(s) {
  const unit = s.unit ? ` ${s.unit}` : '';
  const cells = [s.sensorHandle, s.name, s.vendor, s.shortType, `${fmt(s.maxRange, 6)}${unit}`,
    `${fmt(s.resolution, 6)}${unit}`, `${fmt(s.power, 3)} mA`, `${s.minDelay} µs`,
    `${s.maxDelay} µs`, s.reportingMode + (s.wakeUp ? ', wake-up' : '')];
  return el('tr', {}, ...cells.map((c, i) => el('td', { class: i >= 4 && i <= 8 ? 'num' : '', text: String(c) })));
}

function makeChart(parent, title, unit) {
  const opts = {
    title, width: 380, height: 170,
    scales: { x: { time: false } },
    series: [{ label: 's' }, { label: unit || 'value', stroke: '#2f6fd6', width: 1, points: { show: false } }],
    axes: [{ label: 'time (s)' }, { label: unit, size: 60 }],
    legend: { show: false },
    cursor: { drag: { x: false, y: false } },
  };
  return new uPlot(opts, [[], []], parent);
}

function addCard(sensor) {
  const handle = sensor.sensorHandle;
  const axes = sensor.shortType === 'light' ? ['lux'] : AXES;
  const toggle = el('button', { class: 'toggle', text: 'Turn on' });
  const rate = el('input', { type: 'number', min: '0.001', step: 'any', placeholder: 'default', title: 'rate in Hz' });
  const setRate = el('button', { text: 'Set rate' });
  const flush = el('button', { text: 'Flush' });
  const flushStatus = el('span', { class: 'flush' });
  const stats = el('div', { class: 'stats', text: 'no events yet' });
  const charts = el('div', { class: 'charts' });
  const card = el('div', { class: 'card', id: `sensor-${handle}` },
    el('h3', {}, `[${handle}] ${sensor.name} `, el('span', { class: 'unit', text: sensor.unit ? `(${sensor.unit})` : '' })),
    el('div', { class: 'controls' }, toggle, rate, el('span', { text: 'Hz' }), setRate, flush, flushStatus),
    stats, charts);
  $('sensors').append(card);
  const entry = {
    sensor, on: false, xs: [], ys: axes.map(() => []), dirty: false,
    charts: axes.map((axis) => makeChart(charts, sensor.shortType === 'light' ? 'light' : axis, sensor.unit)),
    toggle, rate, flushStatus, stats,
  };
  toggle.addEventListener('click', () => api('POST', `/api/sensors/${handle}/active`, { on: !entry.on }).catch(() => {}));
  setRate.addEventListener('click', () => {
    const hz = Number(rate.value);
    api('POST', `/api/sensors/${handle}/rate`, { hz: rate.value === '' ? null : hz }).catch(() => {});
  });
  flush.addEventListener('click', () => api('POST', `/api/sensors/${handle}/flush`).catch(() => {}));
  cards.set(handle, entry);
}

function onSensors(state) {
  for (const s of state.sensors) {
    const card = cards.get(s.handle);
    if (!card) continue;
    card.on = s.on;
    card.toggle.textContent = s.on ? 'Turn off' : 'Turn on';
    card.toggle.disabled = !!state.suspended;
    card.toggle.classList.toggle('active', s.on);
    if (document.activeElement !== card.rate) card.rate.value = s.rateHz === null ? '' : s.rateHz;
    card.flushStatus.textContent = s.flushPending ? 'flush pending…'
      : s.flushes ? `flush ${s.flushes} complete after ${fmt(s.lastFlushMs, 3)} ms` : '';
    card.stats.dataset.on = s.on ? '1' : '0';
  }
  $('check-run').disabled = !!state.suspended;
}

function onSamples(batch) {
  for (const s of batch.sensors) {
    const card = cards.get(s.handle);
    if (!card) continue;
    if (!(s.handle in live.firstTotal)) live.firstTotal[s.handle] = s.total - s.t.length;
    live.received[s.handle] = (live.received[s.handle] || 0) + s.t.length;
    live.serverTotal[s.handle] = s.total;
    card.xs.push(...s.t);
    s.v.forEach((values, axis) => { if (card.ys[axis]) card.ys[axis].push(...values); });
    const newest = card.xs[card.xs.length - 1];
    let cut = 0;
    while (cut < card.xs.length && (card.xs[cut] < newest - WINDOW_S || card.xs.length - cut > MAX_POINTS)) cut++;
    if (cut > 0) {
      card.xs.splice(0, cut);
      for (const ys of card.ys) ys.splice(0, cut);
    }
    card.dirty = true;
  }
}

function onStats(stats) {
  for (const s of stats.sensors) {
    const card = cards.get(s.handle);
    if (!card) continue;
    const lost = (live.serverTotal[s.handle] || 0) - (live.firstTotal[s.handle] || 0) - (live.received[s.handle] || 0);
    card.stats.innerHTML = '';
    card.stats.append(
      el('b', { text: `${fmt(s.rateHz, 4)} Hz` }), ` observed · interval ${fmt(s.intervalMs, 3)} ms · jitter ${fmt(s.jitterMs, 2)} ms`,
      ` · latency p50 ${fmt(s.latencyP50Ms, 2)} ms, p99 ${fmt(s.latencyP99Ms, 2)} ms · ${s.events} events`);
    if (lost > 0) card.stats.append(el('span', { class: 'lost', text: ` · ${lost} not shown (this page fell behind)` }));
  }
}

function onHost(host) {
  const lines = [...host.problems];
  if (host.lost) lines.unshift(host.lost);
  if (host.replayOver) lines.push('the replay is over: every recorded sample was sent');
  $('host').hidden = lines.length === 0;
  $('host-problems').replaceChildren(...lines.map((line) => el('li', { text: line })));
}

function onCheck(check) {
  live.lastCheck = check;
  $('check-run').disabled = check.running;
  $('check-status').textContent = check.running ? `running${check.quick ? ' (quick)' : ''}…`
    : check.results.length ? `done in ${Math.round(check.seconds)} s` : '';
  $('check-progress').textContent = check.progress.length ? check.progress[check.progress.length - 1] : '';
  $('check-summary').textContent = check.summary;
  $('check-results').hidden = check.results.length === 0;
  $('check-results').tBodies[0].replaceChildren(...check.results.map((r) => el('tr', {},
    el('td', { class: `verdict ${r.verdict}`, text: r.verdict }), el('td', { text: r.rule, title: r.source }),
    el('td', { text: r.subject }), el('td', { class: 'detail', text: r.detail }))));
}

function onRecording(rec) {
  $('record-start').disabled = rec.recording;
  $('record-stop').disabled = !rec.recording;
  $('record-download').hidden = rec.startedS === null;
  $('record-download').href = `/api/recording?token=${encodeURIComponent(token)}`;
  $('record-status').textContent = rec.recording ? `recording since ${fmt(rec.startedS, 4)} s`
    : rec.samples !== null ? `recorded ${rec.samples} samples` : '';
}

function draw() {
  for (const card of cards.values()) {
    if (!card.dirty) continue;
    card.dirty = false;
    card.charts.forEach((chart, axis) => chart.setData([card.xs, card.ys[axis]]));
    live.framesDrawn++;
  }
  requestAnimationFrame(draw);
}

function connect() {
  const source = new EventSource(`/api/events?token=${encodeURIComponent(token)}`);
  const badge = $('connection');
  source.onopen = () => { live.connected = true; badge.textContent = 'live'; badge.className = 'badge on'; };
  source.onerror = () => { live.connected = false; badge.textContent = 'disconnected'; badge.className = 'badge off'; };
  const handlers = { sensors: onSensors, samples: onSamples, stats: onStats, host: onHost, check: onCheck, recording: onRecording };
  for (const [name, handler] of Object.entries(handlers)) {
    source.addEventListener(name, (e) => handler(JSON.parse(e.data)));
  }
  source.addEventListener('dropped', (e) => { live.droppedFrames = JSON.parse(e.data).frames; });
}

async function start() {
  if (!token) {
    showMessage('This page needs the token of the URL that iio-subhal printed: open that URL.');
    return;
  }
  const info = await (await api('GET', '/api/info')).json();
  $('subhal').textContent = info.subHal;
  $('hostname').textContent = info.host;
  $('sensor-table').tBodies[0].replaceChildren(...info.sensors.map(sensorRow));
  info.sensors.forEach(addCard);
  $('check-run').addEventListener('click', () => api('POST', '/api/check', { quick: $('check-quick').checked }).catch(() => {}));
  $('record-start').addEventListener('click', () => api('POST', '/api/recording/start').catch(() => {}));
  $('record-stop').addEventListener('click', () => api('POST', '/api/recording/stop').catch(() => {}));
  $('dump-show').addEventListener('click', async () => {
    const text = await (await api('GET', '/api/dump')).text();
    $('dump').textContent = text;
    $('dump').hidden = false;
  });
  connect();
  requestAnimationFrame(draw);
}

start().catch((e) => showMessage(`cannot load the page: ${e.message}`));
