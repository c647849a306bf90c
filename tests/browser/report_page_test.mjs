// The HTML reports in a real browser, opened from disk with the network cut off: a recording
// made by the tool (`report`) draws a chart per channel, with labelled value axes that do not
// stretch a constant channel, and a histogram per device; a check run (`check --html`) lists its
// results with failures first. Both open with what was judged, when and by what. Screenshots go
// to the directory given.
//   node report_page_test.mjs <iio-subhal> <output directory>
import { execFileSync } from 'node:child_process';
import { mkdirSync, readFileSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import assert from 'node:assert/strict';
import { launchChromium, isolatedPage, skipWithoutChromium } from './chromium.mjs';

const [tool, out] = process.argv.slice(2);
skipWithoutChromium();
mkdirSync(out, { recursive: true });
const run = (...args) => execFileSync(tool, args, { stdio: ['ignore', 'ignore', 'pipe'] });

const recording = join(out, 'recording.json');
const report = join(out, 'recording.html');
const check = join(out, 'check.html');
run('stream', '--duration', '2', '--record', recording);
// The accelerometer's y channel held still: a constant raw value.
const held = JSON.parse(readFileSync(recording, 'utf8'));
const accel = held.devices[0].timedSamples;
const y = accel.channels.indexOf(held.devices[0].channels.indexOf('accel_y'));
for (const sample of accel.samples) sample[1 + y] = 40;
writeFileSync(recording, JSON.stringify(held));
run('report', recording, '-o', report);
run('check', '--quick', '--rule', 'list.*', '--rule', 'commands.flush*', '--html', check);

// The block every kept page opens with: what was judged, when, by which tool and command line.
async function expectOrigin(page, host, command, library = /none loaded/) {
  const rows = Object.fromEntries(await page.$$eval('table.origin tr', (trs) => trs.map((tr) => [tr.cells[0].textContent, tr.cells[1].textContent])));
  assert.match(rows.judged, host);
  assert.match(rows.written, /^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d UTC$/);
  assert.match(rows.tool, /^iio-subhal \d/);
  assert.match(rows['command line'], command);
  assert.match(rows.library, library);
}

const browser = await launchChromium();
try {
  const page = await isolatedPage(browser, [`file://${out}`]);
  await page.goto(`file://${report}`);
  await page.waitForFunction(() => document.body.dataset.drawn === '1', { timeout: 60000 });
  const devices = await page.$$eval('.card', (cards) => cards.map((card) => ({
    id: card.id, charts: card.querySelectorAll('.uplot').length })));
  assert.equal(devices.length, 5, JSON.stringify(devices));
  // Three axes and a histogram for the accelerometer; light has one channel.
  assert.equal(devices.find((d) => d.id === 'device-0').charts, 4);
  assert.ok(devices.every((d) => d.charts >= 2), JSON.stringify(devices));
  assert.match(await page.$eval('body', (t) => t.textContent), /accelerometer/);
  await expectOrigin(page, /the recording .*recording\.json/, / report .*recording\.json/);
  const spans = await page.evaluate(() => window.iioReport.charts.filter((c) => c.device === 0).map((c) => ({
    name: c.name, y: [c.u.scales.y.min, c.u.scales.y.max], labels: c.u.axes[1]._values, last: c.u.data[1].at(-1) })));
  for (const s of spans) assert.ok(s.labels.length >= 3, `${s.name}: ${s.labels}`);
  const flat = spans.find((s) => s.name === 'accel_y');
  assert.ok(flat.y[1] - flat.y[0] <= 1 && flat.y[0] < flat.last && flat.last < flat.y[1],
    `a constant ${flat.last} m/s² on a small span around it: ${flat.y}`);
  await page.screenshot({ path: join(out, 'recording.png'), fullPage: true });
  // The charts fill their card, two to a row on a wide window and one on a narrow one.
  for (const [viewport, perRow] of [[{ width: 1400, height: 900 }, 2], [{ width: 700, height: 900 }, 1]]) {
    await page.setViewport(viewport);
    const firstRows = () => page.$$eval('.card .charts', (all) => all.map((c) => {
      const charts = [...c.querySelectorAll('.uplot')];
      const row = charts.filter((u) => u.offsetTop === charts[0].offsetTop);
      return { width: c.clientWidth, charts: charts.length, row: row.length, drawn: row.reduce((sum, u) => sum + u.offsetWidth, 0) };
    }));
    await page.waitForFunction((n) => [...document.querySelectorAll('.card .charts')].every((c) => {
      const charts = [...c.querySelectorAll('.uplot')];
      return charts.filter((u) => u.offsetTop === charts[0].offsetTop).length === Math.min(n, charts.length);
    }), { timeout: 10000 }, perRow);
    for (const card of await firstRows()) {
      assert.ok(card.drawn > 0.9 * card.width && card.drawn <= card.width, `${viewport.width} px: ${card.drawn} of ${card.width} px drawn`);
    }
  }
  await page.screenshot({ path: join(out, 'recording-narrow.png'), fullPage: true });
  assert.deepEqual(page.errors, []);

  await page.goto(`file://${check}`);
  await page.waitForFunction(() => document.body.dataset.drawn === '1', { timeout: 60000 });
  const verdicts = await page.$$eval('#results td.verdict', (cells) => cells.map((c) => c.textContent));
  assert.ok(verdicts.length > 5, `${verdicts.length} results`);
  const firstOther = verdicts.findIndex((v) => v !== 'FAIL');
  assert.ok(!verdicts.slice(firstOther).includes('FAIL'), 'failures come first');
  assert.match(await page.$eval('.summary', (s) => s.textContent), /results: \d+ PASS/);
  await expectOrigin(page, /the built-in emulated host/, / check --quick .*--html /, /libiio-sensors-subhal\.so \(build [0-9a-f]{16,}\)/);
  await page.screenshot({ path: join(out, 'check.png'), fullPage: true });

  assert.deepEqual(page.refused, [], 'the reports fetched nothing');
  assert.deepEqual(page.errors, [], 'no script errors');
  console.log(`ok: ${devices.length} devices drawn, ${verdicts.length} check results`);
} finally {
  await browser.close();
}
