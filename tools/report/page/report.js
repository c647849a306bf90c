// The reports of iio-subhal, drawn from the data inlined beside this script: a recording's (a
// chart per channel with gaps and host events marked, and the interval histogram per device) or
// a check run's (every result, failures first). Each opens with what was judged, when and by
// what. Sets document.body.dataset.drawn once done.
'use strict';

const data = JSON.parse(document.getElementById('data').textContent);
// The charts drawn, for the tests that look at them: {device, name, u}.
window.iioReport = { charts: [] };

// What check would FAIL on a device's stream: the rules' names, and each with its reason.
const flagRules = (flags) => (flags || []).map((f) => f.rule).join(', ');
function flagList(flags) {
  const list = el('ul', { class: 'flags' });
  for (const f of flags || []) list.append(el('li', {}, el('strong', { text: f.rule }), ` ${f.detail}`));
  return list;
}

const fmt = (v, digits = 4) => (v === null || v === undefined ? '–' : Number(v).toPrecision(digits));
const count = (n) => Number(n).toLocaleString('en-US');

// Vertical lines at the gaps (red) and the host's events (purple) on a time chart.
function markerPlugin(gaps, marks) {
  const line = (u, at, colour) => {
    const x = Math.round(u.valToPos(at, 'x', true));
    if (x < u.bbox.left || x > u.bbox.left + u.bbox.width) return;
    u.ctx.strokeStyle = colour;
    u.ctx.beginPath();
    u.ctx.moveTo(x, u.bbox.top);
    u.ctx.lineTo(x, u.bbox.top + u.bbox.height);
    u.ctx.stroke();
  };
  return {
    hooks: {
      draw: (u) => {
        u.ctx.save();
        u.ctx.lineWidth = 1;
        for (const gap of gaps) line(u, gap.atS, 'rgba(192, 57, 43, 0.55)');
        for (const mark of marks) line(u, mark.atS, 'rgba(123, 63, 191, 0.9)');
        u.ctx.restore();
      },
    },
  };
}

// What was judged, when and by what: the first thing a kept page says.
function originBlock(origin) {
  const library = origin.library
    ? `${origin.library}${origin.libraryBuild ? ` (build ${origin.libraryBuild})` : ''}`
    : 'none loaded: the recorded samples are read';
  const rows = [['judged', origin.host], ['written', origin.written], ['tool', origin.tool],
    ['library', library], ['command line', origin.commandLine]];
  return el('table', { class: 'origin' }, ...rows.map(([k, v]) => el('tr', {}, el('th', { text: k }), el('td', { text: v }))));
}

// A value axis with round ticks, at least the unit's least span, so a constant channel reads as
// a line at its value rather than a 0-100 scale.
function valueAxis(unit) {
  return { label: unit, size: 64, splits: (u, a, min, max) => iioScales.ticks(min, max), values: (u, splits) => iioScales.labels(splits) };
}

// Charts fill their card: two side by side while each still gets 480 px, else one per row. They
// follow the window's width.
const CHART_GAP_PX = 8;
const drawnCharts = [];
function chartWidth(charts) {
  const width = charts.clientWidth;
  return width >= 2 * 480 + CHART_GAP_PX ? Math.floor((width - CHART_GAP_PX) / 2) : width;
}
function fitted(u, charts) {
  drawnCharts.push([u, charts]);
  return u;
}
window.addEventListener('resize', () => {
  for (const [u, charts] of drawnCharts) u.setSize({ width: chartWidth(charts), height: 200 });
});

function timeChart(parent, device, series, marks) {
  const [min, max] = iioScales.extent(series.v);
  const range = iioScales.autoRange(min, max, device.unit);
  return fitted(new uPlot({
    title: series.name, width: chartWidth(parent), height: 200,
    scales: { x: { time: false }, y: { range: () => range } },
    series: [{ label: 's' }, { label: device.unit, stroke: '#2f6fd6', width: 1, points: { show: false } }],
    axes: [{ label: 'time since the recording started (s)' }, valueAxis(device.unit)],
    legend: { show: false },
    plugins: [markerPlugin(device.gaps, marks)],
  }, [device.t, series.v], parent), parent);
}

function histogramChart(parent, device) {
  const h = device.histogram;
  const xs = h.counts.map((_, i) => (i + 0.5) * h.binMs);
  return fitted(new uPlot({
    title: `intervals (ms)${h.over ? `; ${count(h.over)} longer than ${fmt(h.binMs * h.counts.length, 3)} ms` : ''}`,
    width: chartWidth(parent), height: 200,
    scales: { x: { time: false } },
    series: [{ label: 'ms' }, { label: 'samples', fill: 'rgba(47, 111, 214, 0.35)', stroke: '#2f6fd6',
      paths: uPlot.paths.bars({ size: [0.95, 100] }), points: { show: false } }],
    axes: [{ label: `interval from ${device.intervalsFrom} (ms)` }, { label: 'samples', size: 64 }],
    legend: { show: false },
  }, [xs, h.counts], parent), parent);
}

function renderRecording() {
  document.title = `${data.file} — iio-subhal report`;
  document.body.append(
    el('h1', { text: `Recording ${data.file}` }),
    originBlock(data.origin),
    el('div', { class: 'meta', text: `${data.devices.length} devices · ${count(data.samples)} samples · ${fmt(data.durationS, 4)} s` }));
  const table = el('table', {}, el('tr', {}, ...['device', 'type', 'samples', 'span', 'rate', 'median interval', 'jitter', 'gaps', 'marks', 'check would fail']
    .map((h) => el('th', { text: h }))));
  for (const d of data.devices) {
    table.append(el('tr', {}, el('td', { text: d.label }), el('td', { text: d.type }),
      el('td', { class: 'num', text: count(d.samples) }), el('td', { class: 'num', text: `${fmt(d.durationS)} s` }),
      el('td', { class: 'num', text: `${fmt(d.rateHz)} Hz` }), el('td', { class: 'num', text: `${fmt(d.medianIntervalMs)} ms` }),
      el('td', { class: 'num', text: d.jitterMs == null ? '-' : `${fmt(d.jitterMs)} ms` }),
      el('td', { class: 'num', text: count(d.gapCount) }), el('td', { class: 'num', text: count(d.marks.length) }),
      el('td', { class: 'flags', text: flagRules(d.flags) })));
  }
  for (const s of data.silent || []) {
    table.append(el('tr', {}, el('td', { text: s.label }), el('td', { text: 'asked for samples, sent none' }),
      el('td', { class: 'num', text: '0' }), el('td'), el('td'), el('td'), el('td'), el('td'), el('td'),
      el('td', { class: 'flags', text: flagRules(s.flags) })));
  }
  document.body.append(table);
  if (data.marks.length) {
    document.body.append(el('h2', { text: 'Host events' }),
      el('ul', {}, ...data.marks.map((m) => el('li', { text: `${fmt(m.atS)} s: ${m.what}` }))));
  }
  for (const d of data.devices) {
    const marks = d.marks.concat(data.marks);
    const charts = el('div', { class: 'charts' });
    const notes = [];
    notes.push(d.decimated
      ? `Drawn from ${count(d.samples)} samples as the smallest and largest value of each of ${count(d.buckets)} equal slices of time; the histogram and the gaps count every sample.`
      : `Every one of the ${count(d.samples)} samples is drawn.`);
    if (d.scaleUnreadable) notes.push(`The scale "${d.scale}" is not a number: raw values.`);
    const card = el('div', { class: 'card', id: `device-${d.id}` },
      el('h2', { text: `${d.label}: ${d.type}` }),
      el('div', { class: 'note', text: notes.join(' ') }),
      el('div', { class: 'marks' }, el('span', { class: 'legend-gap', text: `▮ ${count(d.gapCount)} gaps (intervals over 1.8 × the median)` }),
        ' ', el('span', { class: 'legend-mark', text: `▮ ${marks.length} host events and restarts` })),
      flagList(d.flags), charts);
    document.body.append(card);
    for (const series of d.series) window.iioReport.charts.push({ device: d.id, name: series.name, u: timeChart(charts, d, series, marks) });
    histogramChart(charts, d);
    if (d.gaps.length) {
      card.append(el('div', { class: 'marks', text: 'Gaps: ' + d.gaps.slice(0, 20).map((g) => `${fmt(g.atS)} s (${fmt(g.ms, 3)} ms)`).join(', ') +
        (d.gapCount > 20 ? `, and ${count(d.gapCount - 20)} more` : '') }));
    }
    if (d.marks.length) {
      card.append(el('div', { class: 'marks', text: 'Marks: ' + d.marks.map((m) => `${fmt(m.atS)} s ${m.what}`).join(', ') }));
    }
  }
}

function renderCheck() {
  document.body.append(
    el('h1', { text: `iio-subhal check of ${data.origin.host}` }),
    originBlock(data.origin),
    el('div', { class: 'meta', text: `the check took ${Math.round(data.seconds)} s` }),
    el('div', { class: 'summary', text: data.summary }),
    el('ul', {}, ...data.groups.map((g) => el('li', { text: g }))));
  const table = el('table', { id: 'results' }, el('tr', {}, ...['verdict', 'rule', 'subject', 'measured and bound', 'source']
    .map((h) => el('th', { text: h }))));
  for (const r of data.results) {
    table.append(el('tr', {}, el('td', { class: `verdict ${r.verdict}`, text: r.verdict }), el('td', { text: r.rule }),
      el('td', { text: r.subject }), el('td', { class: 'detail', text: r.detail }), el('td', { text: r.source })));
  }
  document.body.append(table);
}

if (data.kind === 'recording') renderRecording(); else renderCheck();
document.body.dataset.drawn = '1';
