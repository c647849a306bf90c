// The page of `iio-subhal serve`: a card per sensor with its controls, live figures and one chart
// per axis (a shared cursor, pause and zoom), then the check, the recording, the dump and the
// published list. Every request carries the token of the URL the tool printed; the live messages
// come as Server-Sent Events, read with fetch so that a refusal's reason can be shown.
'use strict';

const token = new URLSearchParams(location.search).get('token') || '';
const WINDOW_S = 10;       // seconds of points a chart keeps
const MAX_POINTS = 4000;   // and at most this many
const RETRY_S = 2;         // after a lost stream, unless the server says otherwise
const COLOURS = ['#c0392b', '#2e7d32', '#2f6fd6'];
const CHART_HEIGHT = 150;

// What the page has taken in, for people and for the tests and benchmarks that drive it.
const live = window.iioLive = {
  received: {},     // handle -> events taken from the stream
  serverTotal: {},  // handle -> events the tool had taken from the library
  firstTotal: {},   // handle -> serverTotal before the first batch this page got
  droppedFrames: 0,
  framesDrawn: 0,
  connected: false,
  unavailable: '',  // why the live stream was refused, while it is
  lastCheck: null,
  charts: (handle) => (cards.get(handle) ? cards.get(handle).charts : []),
};

// What the charts show: the newest event time, and whether the view is paused or zoomed.
const view = { now: null, paused: false, pausedAt: null, zoom: null, replay: false, checkRunning: false };

const $ = (id) => document.getElementById(id);
const cards = new Map();  // handle -> card (addCard)

const fmt = (v, digits = 3) => (v === null || v === undefined ? '–' : Number(Number(v).toPrecision(digits)).toString());
const hz = (v) => `${fmt(v, 4)} Hz`;
const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));
// A value as a readout shows it: four significant digits, no exponent for everyday sizes.
const readoutText = (v) => (v === null || v === undefined ? '–' : Math.abs(v) >= 1e4 ? v.toFixed(0) : Number(v.toPrecision(4)).toString());

// One sentence: a capital first letter and a full stop.
function sentence(text) {
  const t = String(text).trim().replace(/\s+/g, ' ');
  if (!t) return '';
  return t[0].toUpperCase() + t.slice(1) + (/[.!?]$/.test(t) ? '' : '.');
}

function showMessage(text) {
  $('message').textContent = text;
  $('message').hidden = !text;
}

// The reason in an error reply: {"error": "..."} or, from an older tool, its text.
async function errorOf(response) {
  const text = await response.text();
  try {
    const body = JSON.parse(text);
    if (body && typeof body.error === 'string') return body.error;
  } catch { /* not JSON: the text is the reason */ }
  return text.trim() || `the tool answered ${response.status}`;
}

// The response, or an Error whose message is the reason in one sentence.
async function api(method, path, body) {
  let response;
  try {
    response = await fetch(path, {
      method,
      headers: { 'X-Token': token, 'Content-Type': 'application/json' },
      body: body === undefined ? undefined : JSON.stringify(body),
    });
  } catch {
    throw new Error('the tool does not answer; is serve still running?');
  }
  if (!response.ok) throw new Error(sentence(await errorOf(response)));
  return response;
}

// Runs a request for a control and puts its error, or nothing, in `where` beside the control.
function request(where, method, path, body) {
  where.textContent = '';
  return api(method, path, body).catch((e) => { where.textContent = e.message; });
}

// ---- Time and value axes -------------------------------------------------------------------

// Where the time axis counts from: now (live) or the recording's start (a replay).
const timeOrigin = () => (view.replay ? 0 : shownNow());
const shownNow = () => (view.paused ? view.pausedAt : view.now) ?? 0;

function xRange() {
  if (view.zoom) return view.zoom;
  const now = shownNow();
  // A recording's time starts at 0: nothing to show before it.
  return [view.replay ? Math.max(now - WINDOW_S, 0) : now - WINDOW_S, now];
}

// Ticks at round distances from the origin, so that "−2" stays where it is while data moves.
function timeSplits(min, max) {
  const origin = timeOrigin();
  const step = iioScales.niceStep((max - min) / 5);
  const out = [];
  for (let v = origin + Math.ceil((min - origin) / step - 1e-9) * step; v <= max + step * 1e-9; v += step) out.push(v);
  return out;
}

const timeLabels = (splits) => iioScales.labels(splits.map((v) => v - timeOrigin()));

function timeAxisLabel() {
  return view.replay ? 'recording time (s)' : 'seconds before now';
}

// The first index of sorted `xs` at or after `t`.
function indexAt(xs, t) {
  let lo = 0;
  let hi = xs.length;
  while (lo < hi) {
    const mid = (lo + hi) >> 1;
    if (xs[mid] < t) lo = mid + 1; else hi = mid;
  }
  return lo;
}

// ---- Cards ---------------------------------------------------------------------------------

function sensorRow(s) {
  const unit = s.unit ? ` ${s.unit}` : '';
  const cells = [s.sensorHandle, s.name, s.vendor, s.shortType, `${fmt(s.maxRange, 6)}${unit}`,
    `${fmt(s.resolution, 6)}${unit}`, `${fmt(s.power, 3)} mA`, `${s.minDelay} µs`,
    `${s.maxDelay} µs`, s.reportingMode + (s.wakeUp ? ', wake-up' : '')];
  return el('tr', {}, ...cells.map((c, i) => el('td', { class: i >= 4 && i <= 8 ? 'num' : '', text: String(c) })));
}

const axesOf = (sensor) => sensor.axes || (sensor.shortType === 'light' ? ['lux'] : ['x', 'y', 'z']);

function makeChart(card, i, holder) {
  return new uPlot({
    width: 320, height: CHART_HEIGHT,
    legend: { show: false },
    scales: { x: { time: false, range: () => xRange() }, y: { range: () => card.yRanges[i] || iioScales.autoRange(NaN, NaN, card.sensor.unit) } },
    series: [{}, { stroke: COLOURS[i % COLOURS.length], width: 1, points: { show: false } }],
    axes: [
      { splits: (u, a, min, max) => timeSplits(min, max), values: (u, splits) => timeLabels(splits),
        label: timeAxisLabel(), labelSize: 16, labelFont: '11px system-ui', font: '11px system-ui', size: 24, space: 50 },
      { splits: (u, a, min, max) => iioScales.ticks(min, max), values: (u, splits) => iioScales.labels(splits),
        font: '11px system-ui', size: 56 },
    ],
    cursor: { sync: { key: 'iio-live' }, drag: { x: true, y: false, setScale: false } },
    hooks: {
      setCursor: [(u) => showReadout(card, i, u)],
      setSelect: [(u) => zoomToSelection(u)],
    },
  }, [[], []], holder);
}

function chartBlock(card, axis, i) {
  const value = el('span', { class: 'value', text: '–' });
  const readout = el('div', { class: 'readout' }, el('span', { class: 'axis', style: `color: ${COLOURS[i % COLOURS.length]}`, text: axis }),
    ' ', value, ' ', el('span', { class: 'unit', text: card.sensor.unit || '' }));
  const holder = el('div', { class: 'plot' });
  card.el.charts.append(el('div', { class: 'chart', 'data-axis': axis }, readout, holder));
  card.readouts.push(value);
  card.yRanges.push(null);
  const chart = makeChart(card, i, holder);
  chart.over.addEventListener('dblclick', () => wholeWindow());
  card.charts.push(chart);
}

function rangeChoice(card) {
  const unit = card.sensor.unit || '';
  const select = el('select', { class: 'range', title: 'value axis' }, el('option', { value: '', text: 'auto scale' }),
    ...iioScales.fixedRanges(unit).map(([lo, hi]) => el('option', { value: `${lo},${hi}`, text: `${lo} to ${hi} ${unit}` })));
  select.addEventListener('change', () => {
    card.fixed = select.value ? select.value.split(',').map(Number) : null;
    card.yRanges = card.yRanges.map(() => null);
    drawCard(card);
  });
  return select;
}

function cardControls(card, handle) {
  const e = card.el;
  e.toggle = el('button', { class: 'toggle', text: 'Turn on', disabled: '' });
  e.rate = el('input', { type: 'number', min: '0.001', step: 'any', placeholder: 'default', title: 'rate in Hz; empty for the default', disabled: '' });
  e.setRate = el('button', { type: 'submit', text: 'Set rate', disabled: '' });
  e.flush = el('button', { class: 'flush-button', text: 'Flush', disabled: '' });
  e.answered = el('span', { class: 'answered' });
  e.flushStatus = el('span', { class: 'flush' });
  e.lock = el('span', { class: 'lock' });
  e.error = el('span', { class: 'error' });
  const form = el('form', { class: 'rate-form', novalidate: '' }, e.rate, el('span', { text: 'Hz' }), e.setRate);
  e.toggle.addEventListener('click', () => request(e.error, 'POST', `/api/sensors/${handle}/active`, { on: !card.on }));
  form.addEventListener('submit', (event) => {
    event.preventDefault();
    const text = e.rate.value.trim();
    request(e.error, 'POST', `/api/sensors/${handle}/rate`, { hz: text === '' ? null : Number(text) }).then(() => e.rate.blur());
  });
  e.flush.addEventListener('click', () => request(e.error, 'POST', `/api/sensors/${handle}/flush`));
  return el('div', { class: 'controls' }, e.toggle, form, e.answered, e.flush, e.flushStatus, rangeChoice(card), e.lock, e.error);
}

function addCard(sensor) {
  const handle = sensor.sensorHandle;
  const card = { sensor, on: null, xs: [], ys: [], snapshot: null, dirty: false, charts: [], readouts: [],
    yRanges: [], fixed: null, el: {} };
  const e = card.el;
  e.state = el('span', { class: 'state', text: 'state unknown' });
  e.stats = el('div', { class: 'stats', text: 'waiting for the live stream…' });
  e.charts = el('div', { class: 'charts' });
  e.card = el('div', { class: 'card unknown', id: `sensor-${handle}` },
    el('div', { class: 'card-head' }, el('h3', {}, sensor.name, ' ', el('span', { class: 'quiet', text: `${sensor.shortType} · handle ${handle}` })),
      e.state, cardControls(card, handle)),
    el('div', { class: 'card-body' }, e.stats, e.charts));
  $('sensors').append(e.card);
  axesOf(sensor).forEach((axis, i) => { card.ys.push([]); chartBlock(card, axis, i); });
  new ResizeObserver(() => fitCharts(card)).observe(e.charts);
  cards.set(handle, card);
}

// The charts share their card's width: side by side when there is room, one a row otherwise.
function fitCharts(card) {
  const width = card.el.charts.clientWidth;
  if (width === 0) return;
  const n = card.charts.length;
  const perRow = width >= 250 * n ? n : 1;
  const chartWidth = Math.floor((width - 12 * (perRow - 1)) / perRow);
  for (const chart of card.charts) chart.setSize({ width: chartWidth, height: CHART_HEIGHT });
}

// ---- What the charts draw ------------------------------------------------------------------

const shownData = (card) => card.snapshot || { xs: card.xs, ys: card.ys };

function drawCard(card) {
  card.dirty = false;
  const { xs, ys } = shownData(card);
  const [from, to] = view.zoom ? [indexAt(xs, view.zoom[0]), indexAt(xs, view.zoom[1])] : [0, xs.length];
  card.charts.forEach((chart, i) => {
    const [min, max] = iioScales.extent(ys[i], from, to);
    card.yRanges[i] = card.fixed || iioScales.follow(card.yRanges[i], min, max, card.sensor.unit);
    chart.setData([xs, ys[i]]);
    if (chart.cursor.idx === null || chart.cursor.idx === undefined) showReadout(card, i, chart);
  });
  live.framesDrawn++;
}

// Beside each chart: the value under the shared cursor, or the newest value.
function showReadout(card, i, chart) {
  const values = chart.data[1] || [];
  const idx = chart.cursor.idx;
  const value = idx === null || idx === undefined ? values[values.length - 1] : values[idx];
  card.readouts[i].textContent = readoutText(value);
  card.readouts[i].parentNode.classList.toggle('at-cursor', idx !== null && idx !== undefined);
}

function redrawAll() {
  for (const card of cards.values()) if (card.xs.length || card.snapshot) drawCard(card);
}

function draw() {
  if (!view.paused) for (const card of cards.values()) if (card.dirty) drawCard(card);
  requestAnimationFrame(draw);
}

// ---- Pause and zoom ------------------------------------------------------------------------

function pause() {
  view.paused = true;
  view.pausedAt = view.now;
  for (const card of cards.values()) card.snapshot = { xs: card.xs.slice(), ys: card.ys.map((ys) => ys.slice()) };
  showViewState();
  redrawAll();  // the charts hold the live arrays, which keep growing
}

function resume() {
  Object.assign(view, { paused: false, pausedAt: null, zoom: null });
  for (const card of cards.values()) { card.snapshot = null; card.dirty = true; }
  showViewState();
}

function zoomToSelection(u) {
  const { left, width } = u.select;
  if (width < 4) return;
  const range = [u.posToVal(left, 'x'), u.posToVal(left + width, 'x')];
  u.setSelect({ left: 0, width: 0, top: 0, height: 0 }, false);
  if (!view.paused) pause();
  view.zoom = range;
  showViewState();
  redrawAll();
}

function wholeWindow() {
  if (!view.zoom) return;
  view.zoom = null;
  showViewState();
  redrawAll();
}

function showViewState() {
  $('pause').textContent = view.paused ? 'Resume' : 'Pause';
  $('zoom-reset').hidden = !view.zoom;
  const span = view.zoom ? `${fmt(view.zoom[1] - view.zoom[0], 3)} s zoomed in` : `the last ${WINDOW_S} s`;
  $('view-status').textContent = view.paused
    ? `paused: ${span} · drag across a chart to zoom, double-click for the whole window`
    : 'live · drag across a chart to pause and zoom';
}

// ---- Live messages -------------------------------------------------------------------------

function lockReason(state) {
  if (view.checkRunning) return 'a check is running; the controls return when it ends';
  return state && state.suspended ? state.suspended : '';
}

function applyLocks() {
  const reason = sentence(lockReason(live.lastSensors));
  for (const card of cards.values()) {
    const known = card.on !== null;
    for (const control of [card.el.toggle, card.el.rate, card.el.setRate, card.el.flush]) control.disabled = !known || !!reason;
    card.el.lock.textContent = reason;
  }
  $('check-run').disabled = view.checkRunning || !!(live.lastSensors && live.lastSensors.suspended);
}

// "asked 400 Hz; the host answered 20 Hz", or the default, or nothing when they agree.
function rateText(card, s) {
  const asked = 'askedHz' in s ? s.askedHz : s.rateHz;
  const answered = s.answeredHz ?? null;
  const differs = answered !== null && asked !== null && Math.abs(answered - asked) > 0.01 * asked;
  card.el.answered.classList.toggle('differs', differs);
  if (differs) return `asked ${hz(asked)}; the host answered ${hz(answered)}`;
  if (asked === null) {
    const dflt = card.sensor.defaultHz ? ` (${hz(card.sensor.defaultHz)})` : '';
    return answered !== null ? `default rate; the host answered ${hz(answered)}` : `default rate${dflt}`;
  }
  return '';
}

function onSensors(state) {
  live.lastSensors = state;
  for (const s of state.sensors) {
    const card = cards.get(s.handle);
    if (!card) continue;
    card.on = s.on;
    card.rate = s;
    const e = card.el;
    e.card.classList.remove('unknown');
    e.card.classList.toggle('off', !s.on);
    e.state.textContent = s.on ? 'on' : 'off';
    e.toggle.textContent = s.on ? 'Turn off' : 'Turn on';
    const asked = 'askedHz' in s ? s.askedHz : s.rateHz;
    if (document.activeElement !== e.rate) e.rate.value = asked === null ? '' : asked;
    e.rate.placeholder = card.sensor.defaultHz ? `default ${fmt(card.sensor.defaultHz, 4)}` : 'default';
    e.answered.textContent = rateText(card, s);
    e.flushStatus.textContent = s.flushPending ? 'flush pending…'
      : s.flushes ? `flush ${s.flushes} complete after ${fmt(s.lastFlushMs, 3)} ms` : '';
    if (s.on && !card.xs.length) e.stats.textContent = 'on; no events yet';
  }
  applyLocks();
}

function onSamples(batch) {
  for (const s of batch.sensors) {
    const card = cards.get(s.handle);
    if (!card) continue;
    if (!(s.handle in live.firstTotal)) live.firstTotal[s.handle] = s.total - s.t.length;
    live.received[s.handle] = (live.received[s.handle] || 0) + s.t.length;
    live.serverTotal[s.handle] = s.total;
    // Time that goes back (a device restarted, a replay started over) starts the chart over.
    if (card.xs.length && s.t.length && s.t[0] < card.xs[card.xs.length - 1]) {
      card.xs.length = 0;
      for (const ys of card.ys) ys.length = 0;
      card.yRanges = card.yRanges.map(() => null);
    }
    card.xs.push(...s.t);
    s.v.forEach((values, axis) => { if (card.ys[axis]) card.ys[axis].push(...values); });
    const newest = card.xs[card.xs.length - 1];
    if (view.now === null || newest > view.now || view.now - newest > WINDOW_S) view.now = newest;
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
  live.lastStats = stats;
  for (const s of stats.sensors) {
    const card = cards.get(s.handle);
    if (!card || card.on === false) continue;
    const lost = (live.serverTotal[s.handle] || 0) - (live.firstTotal[s.handle] || 0) - (live.received[s.handle] || 0);
    const latency = view.replay ? 'latency does not apply to a replay'
      : `latency p50 ${fmt(s.latencyP50Ms, 2)} ms, p99 ${fmt(s.latencyP99Ms, 2)} ms`;
    card.el.stats.replaceChildren(
      el('b', { text: hz(s.rateHz) }), ` seen · interval ${fmt(s.intervalMs, 3)} ms · jitter ${fmt(s.jitterMs, 2)} ms`,
      ` · ${latency} · ${s.events} events`);
    if (lost > 0) card.el.stats.append(el('span', { class: 'lost', text: ` · ${lost} not shown (this page fell behind)` }));
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
  view.checkRunning = check.running;
  applyLocks();
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

const handlers = {
  sensors: onSensors, samples: onSamples, stats: onStats, host: onHost, check: onCheck, recording: onRecording,
  dropped: (d) => { live.droppedFrames = d.frames; },
};

// One Server-Sent Event: "event: NAME" and "data: ..." lines; comments start with ":".
function dispatch(frame) {
  let name = 'message';
  const data = [];
  for (const line of frame.split('\n')) {
    if (line.startsWith('event:')) name = line.slice(6).trim();
    else if (line.startsWith('data:')) data.push(line.slice(line[5] === ' ' ? 6 : 5));
  }
  if (data.length && handlers[name]) handlers[name](JSON.parse(data.join('\n')));
}

// ---- The connection ------------------------------------------------------------------------

function showConnection(state, why) {
  const badge = $('connection');
  live.connected = state === 'live';
  live.unavailable = state === 'unavailable' ? why : '';
  badge.textContent = state;
  badge.className = `badge ${state === 'live' ? 'on' : 'off'}`;
  if (state === 'live') { showMessage(''); return; }
  for (const card of cards.values()) {
    card.on = null;
    card.el.card.classList.add('unknown');
    card.el.state.textContent = 'state unknown';
    card.el.stats.textContent = why;
  }
  applyLocks();
}

// Follows the live stream until it ends; the seconds to wait before asking again.
async function followOnce() {
  let response;
  try {
    response = await fetch('/api/events', { headers: { 'X-Token': token }, cache: 'no-store' });
  } catch {
    showConnection('disconnected', `The tool does not answer; trying again every ${RETRY_S} s.`);
    return RETRY_S;
  }
  if (!response.ok) {
    const after = Number(response.headers.get('Retry-After')) || RETRY_S;
    const why = `${sentence(await errorOf(response))} Trying again every ${after} s.`;
    showConnection('unavailable', why);
    showMessage(`The live view is not available: ${why}`);
    return after;
  }
  showConnection('live');
  const reader = response.body.pipeThrough(new TextDecoderStream()).getReader();
  let buffer = '';
  try {
    for (;;) {
      const { value, done } = await reader.read();
      if (done) break;
      buffer += value;
      let end;
      while ((end = buffer.indexOf('\n\n')) >= 0) {
        dispatch(buffer.slice(0, end));
        buffer = buffer.slice(end + 2);
      }
    }
  } catch { /* the connection broke: said below */ }
  showConnection('disconnected', `The live stream ended; trying again every ${RETRY_S} s.`);
  return RETRY_S;
}

async function follow() {
  for (;;) await sleep((await followOnce()) * 1000);
}

// ---- The dump ------------------------------------------------------------------------------

// Which sensors are on, at what rate and latency: the dump's own text does not say it plainly.
function dumpSummary() {
  const stats = new Map(((live.lastStats && live.lastStats.sensors) || []).map((s) => [s.handle, s]));
  return [...cards.values()].map((card) => {
    const s = card.rate || {};
    const seen = stats.get(card.sensor.sensorHandle) || {};
    const asked = 'askedHz' in s ? s.askedHz : s.rateHz;
    const on = card.on === null ? 'unknown' : card.on ? 'on' : 'off';
    const latency = (v) => (view.replay ? 'n/a (replay)' : card.on && v !== null && v !== undefined ? `${fmt(v, 3)} ms` : '–');
    const cells = [card.sensor.name, on, asked === null || asked === undefined ? 'default' : hz(asked),
      s.answeredHz ? hz(s.answeredHz) : '–', card.on && seen.rateHz ? hz(seen.rateHz) : '–',
      latency(seen.latencyP50Ms), latency(seen.latencyP99Ms)];
    return el('tr', { class: card.on ? 'on' : '' }, ...cells.map((c, i) => el('td', { class: i >= 2 ? 'num' : '', text: c })));
  });
}

async function showDump() {
  const response = await api('GET', '/api/dump').catch((e) => { $('dump-error').textContent = e.message; });
  if (!response) return;
  $('dump-error').textContent = '';
  $('dump-sensors').tBodies[0].replaceChildren(...dumpSummary());
  $('dump').textContent = await response.text();
  $('dump-panel').hidden = false;
}

// ---- Start ---------------------------------------------------------------------------------

function showInfo(info) {
  view.replay = info.replay === true;
  $('subhal').textContent = info.subHal;
  $('hostname').textContent = info.host;
  $('replay-note').hidden = !view.replay;
  $('replay-note').textContent = 'Replaying a recording: times are the recording\'s own, and latency does not apply, ' +
    'since the events carry the time they were recorded, not the time they were sent.';
  $('sensor-table').tBodies[0].replaceChildren(...info.sensors.map(sensorRow));
  info.sensors.forEach(addCard);
}

function wireControls() {
  $('pause').addEventListener('click', () => (view.paused ? resume() : pause()));
  $('zoom-reset').addEventListener('click', wholeWindow);
  $('check-run').addEventListener('click', () => request($('check-error'), 'POST', '/api/check', { quick: $('check-quick').checked }));
  $('record-start').addEventListener('click', () => request($('record-error'), 'POST', '/api/recording/start'));
  $('record-stop').addEventListener('click', () => request($('record-error'), 'POST', '/api/recording/stop'));
  $('dump-show').addEventListener('click', showDump);
}

async function start() {
  if (!token) {
    showMessage('This page needs the token of the URL that iio-subhal printed: open that URL.');
    return;
  }
  let info;
  for (;;) {
    try {
      info = await (await api('GET', '/api/info')).json();
      break;
    } catch (e) {
      showMessage(`The page cannot load: ${e.message} Trying again every ${RETRY_S} s.`);
      await sleep(RETRY_S * 1000);
    }
  }
  showMessage('');
  showInfo(info);
  wireControls();
  follow();
  requestAnimationFrame(draw);
}

start();
