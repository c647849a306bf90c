// The page of `iio-subhal compare`, drawn from the data inlined beside this script: the
// differences that matter, then per device its figures side by side and a chart per channel with
// recording A and B overlaid (seconds after each one's first sample). Sets
// document.body.dataset.drawn once done.
'use strict';

const data = JSON.parse(document.getElementById('data').textContent);

// A and B of one channel on one time axis: uPlot wants one x array, so both are merged.
function overlay(name, unit, a, b) {
  const xs = [...new Set([...(a ? a.t : []), ...(b ? b.t : [])])].sort((p, q) => p - q);
  const column = (side) => {
    if (!side) return xs.map(() => null);
    const series = side.series.find((s) => s.name === name);
    const at = new Map(side.t.map((t, i) => [t, series ? series.v[i] : null]));
    return xs.map((t) => (at.has(t) ? at.get(t) : undefined));
  };
  const box = el('div');
  new uPlot({
    title: `${name} (${unit})`, width: 560, height: 220,
    series: [{}, { label: 'A', stroke: '#2c7fb8', spanGaps: true },
      { label: 'B', stroke: '#d95f0e', spanGaps: true }],
    scales: { x: { time: false } },
  }, [xs, column(a && a), column(b && b)], box);
  return box;
}

function device(d) {
  const section = el('section', {}, el('h2', { text: d.name }));
  const table = el('table', {}, el('tr', {}, el('th', { text: '' }),
    el('th', { class: 'legend-a', text: 'A' }), el('th', { class: 'legend-b', text: 'B' })));
  for (const [what, a, b] of d.rows) {
    const changed = a !== b && what.startsWith('cts.') && b === 'FAIL';
    table.append(el('tr', changed ? { class: 'worse' } : {}, el('td', { text: what }),
      el('td', { text: a }), el('td', { text: b })));
  }
  section.append(table);
  const charts = el('div', { class: 'charts' });
  const some = d.charts.a || d.charts.b;
  for (const series of some ? some.series : []) {
    charts.append(overlay(series.name, d.unit, d.charts.a, d.charts.b));
  }
  section.append(charts);
  return section;
}

document.title = `iio-subhal compare — ${data.a} and ${data.b}`;
document.body.append(el('h1', { text: 'iio-subhal compare' }),
  el('p', {}, el('span', { class: 'legend-a', text: `A: ${data.a}` }), el('br'),
    el('span', { class: 'legend-b', text: `B: ${data.b}` })));
const list = el('ul');
for (const diff of data.differences) {
  list.append(el('li', diff.worse ? { class: 'worse' } : {}, `${diff.device}: ${diff.what}`));
}
document.body.append(el('h2', { text: data.differences.length
  ? 'Differences that matter, largest first' : 'No difference that matters' }), list);
for (const d of data.devices) document.body.append(device(d));
document.body.dataset.drawn = 'true';
