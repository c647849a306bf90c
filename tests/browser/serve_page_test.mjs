// `iio-subhal serve` in a real browser, looked at as a person would: the page loads from the
// running tool with nothing from anywhere else; its charts have labelled axes scaled to the data
// and a readout of the newest value; pause freezes them and a drag zooms; the rate box submits on
// Enter, says what the host answered and returns to the default when emptied; an error stands
// beside its control; a page the server refuses says why and gets in once there is room; the
// controls lock while a check runs; the dump opens with what is on; a replay says latency does
// not apply. A screenshot per state goes to the directory given.
//   node serve_page_test.mjs <iio-subhal> <artifact directory>
import { spawn, execFileSync } from 'node:child_process';
import { mkdirSync } from 'node:fs';
import { join } from 'node:path';
import assert from 'node:assert/strict';
import { launchChromium, isolatedPage, skipWithoutChromium } from './chromium.mjs';

const [tool, shots] = process.argv.slice(2);
skipWithoutChromium();
mkdirSync(shots, { recursive: true });

const LONG = { timeout: 120_000, polling: 50 };
const ACCEL = 1;
const LIGHT = 4;
const card = (handle) => `#sensor-${handle}`;
const received = (page, handle) => page.evaluate((h) => window.iioLive.received[h] || 0, handle);
const shot = (page, name) => page.screenshot({ path: join(shots, `${name}.png`), fullPage: true });
const text = (page, selector) => page.$eval(selector, (e) => e.textContent);

// Starts serve and resolves with its URL once printed.
function startServe(...common) {
  const child = spawn(tool, [...common, 'serve', '--port', '0'], { stdio: ['ignore', 'pipe', 'pipe'] });
  process.on('exit', () => child.kill('SIGKILL'));  // never left behind by a failure
  child.stderrText = '';
  child.stderr.on('data', (d) => { child.stderrText += d; });
  child.exited = new Promise((resolve) => child.on('exit', (code, signal) => resolve({ code, signal })));
  const url = new Promise((resolve, reject) => {
    let out = '';
    child.stdout.on('data', (d) => {
      out += d;
      const match = out.match(/^(http:\/\/127\.0\.0\.1:\d+)\/\?token=[0-9a-f]{32}\n/);
      if (match) resolve({ url: match[0].trim(), origin: match[1] });
    });
    child.on('exit', () => reject(new Error(`serve exited before printing its URL:\n${child.stderrText}`)));
  });
  return { child, url };
}

async function openPage(browser, url, origin) {
  const page = await isolatedPage(browser, [origin]);
  await page.goto(url);
  await page.waitForFunction(() => window.iioLive && window.iioLive.connected, LONG);
  return page;
}

// What each chart of a sensor drew: its value and time tick labels, x range and newest point.
const chartsOf = (page, handle) => page.evaluate((h) => window.iioLive.charts(h).map((u) => ({
  yLabels: u.axes[1]._values, xLabels: u.axes[0]._values, x: [u.scales.x.min, u.scales.x.max],
  y: [u.scales.y.min, u.scales.y.max], last: u.data[1][u.data[1].length - 1], points: u.data[0].length,
})), handle);

async function setRate(page, handle, value) {
  const box = `${card(handle)} input[type=number]`;
  await page.focus(box);
  await page.$eval(box, (input) => input.select());
  await page.keyboard.press('Backspace');
  if (value !== '') await page.type(box, value);
  await page.keyboard.press('Enter');
}

const observedHz = (page, handle) => page.$eval(`${card(handle)} .stats b`, (b) => parseFloat(b.textContent));

// Off sensors fold to one line; an on sensor's charts read like an instrument.
async function chartsReadAtAGlance(page) {
  const folded = await page.$eval(card(ACCEL), (c) => c.getBoundingClientRect().height);
  assert.ok(folded < 60, `an off sensor is one line, not ${folded} px`);
  await page.click(`${card(ACCEL)} button.toggle`);
  await page.waitForFunction((h) => (window.iioLive.received[h] || 0) > 150, LONG, ACCEL);
  await page.waitForFunction((c) => /Hz/.test(document.querySelector(`${c} .stats b`)?.textContent || ''), LONG, card(ACCEL));
  const charts = await chartsOf(page, ACCEL);
  assert.equal(charts.length, 3);
  const width = await page.$eval(`${card(ACCEL)} .charts`, (c) => c.clientWidth);
  const drawn = await page.$$eval(`${card(ACCEL)} .uplot`, (us) => us.reduce((sum, u) => sum + u.clientWidth, 0));
  assert.ok(drawn > 0.9 * width, `the charts fill their card: ${drawn} of ${width} px`);
  for (const c of charts) {
    assert.ok(c.yLabels.length >= 3, `value ticks: ${c.yLabels}`);
    assert.ok(c.y[0] <= c.last && c.last <= c.y[1], `the newest value ${c.last} within ${c.y}`);
    assert.ok(c.xLabels.includes('0') && c.xLabels.includes('-10'), `seconds before now: ${c.xLabels}`);
  }
  // The still accelerometer's x swings about 0.3 m/s²: its axis is not stretched to 20 m/s².
  assert.ok(charts[0].y[1] - charts[0].y[0] < 3, `x axis span ${charts[0].y}`);
  return charts;
}

// Pause freezes the charts while events keep arriving; the readout is the newest value drawn; a
// drag across a chart zooms every chart into it; resume goes live again.
async function pauseAndZoom(page) {
  await page.click('#pause');
  const frozen = await chartsOf(page, ACCEL);
  const readouts = await page.$$eval(`${card(ACCEL)} .readout .value`, (vs) => vs.map((v) => v.textContent));
  frozen.forEach((c, i) => assert.equal(Number(readouts[i]), Number(Number(c.last).toPrecision(4)), `readout ${i}`));
  const before = await received(page, ACCEL);
  await page.waitForFunction((h, n) => window.iioLive.received[h] > n + 40, LONG, ACCEL, before);
  assert.deepEqual((await chartsOf(page, ACCEL)).map((c) => c.last), frozen.map((c) => c.last), 'paused');

  const plot = await page.$(`${card(ACCEL)} .chart:first-child .u-over`);
  const box = await plot.boundingBox();
  await page.mouse.move(box.x + box.width * 0.5, box.y + box.height / 2);
  await page.mouse.down();
  await page.mouse.move(box.x + box.width * 0.9, box.y + box.height / 2, { steps: 5 });
  await page.mouse.up();
  const zoomed = await chartsOf(page, ACCEL);
  for (const c of zoomed) {
    assert.ok(c.x[1] - c.x[0] < 5, `zoomed into ${c.x}`);
    assert.ok(c.xLabels.length >= 3 && c.yLabels.length >= 3, `labels when zoomed: ${c.xLabels} / ${c.yLabels}`);
  }
  assert.match(await text(page, '#view-status'), /paused: .* zoomed in/);
  await page.mouse.move(box.x + box.width * 0.3, box.y + box.height / 2);
  const atCursor = await page.$$eval(`${card(ACCEL)} .readout`, (rs) => rs.map((r) => r.classList.contains('at-cursor')));
  assert.deepEqual(atCursor, [true, true, true], 'one cursor reads every axis');
  await shot(page, 'serve-paused-zoomed');
  await page.click('#pause');
  await page.waitForFunction((h, last) => window.iioLive.charts(h)[0].data[1].at(-1) !== last, LONG, ACCEL, frozen[0].last);
}

// Enter submits; the host's answer shows when it differs; an empty box is the default rate.
async function rateControls(page, info) {
  await setRate(page, ACCEL, '100');
  await page.waitForFunction((c) => { const r = parseFloat(document.querySelector(`${c} .stats b`).textContent); return r > 80 && r < 120; },
    LONG, card(ACCEL));
  await page.click(`${card(LIGHT)} button.toggle`);
  await setRate(page, LIGHT, '400');
  if (info.answers) {
    await page.waitForFunction((c) => /asked 400 Hz; the host answered \d/.test(document.querySelector(`${c} .answered`).textContent), LONG, card(LIGHT));
  }
  await page.waitForFunction((c) => document.querySelector(`${c} .stats b`) && parseFloat(document.querySelector(`${c} .stats b`).textContent) < 100, LONG, card(LIGHT));
  await shot(page, 'serve-rate-answered');
  await defaultRate(page);
  // A rate the tool refuses: one sentence beside the box, nothing at the top of the page.
  await setRate(page, ACCEL, '0.00001');
  await page.waitForFunction((c) => document.querySelector(`${c} .error`).textContent !== '', LONG, card(ACCEL));
  const error = await text(page, `${card(ACCEL)} .error`);
  assert.match(error, /^[A-Z][^\n]*\.$/, `one sentence: ${error}`);
  assert.equal(await page.$eval('#message', (m) => m.hidden), true);
  await shot(page, 'serve-rate-error');
  await setRate(page, ACCEL, '50');
  await page.waitForFunction((c) => document.querySelector(`${c} .error`).textContent === '', LONG, card(ACCEL));
}

// An emptied box returns the sensor to its default rate, and says so.
async function defaultRate(page) {
  await setRate(page, ACCEL, '');
  await page.waitForFunction((c) => /default rate/.test(document.querySelector(`${c} .answered`).textContent) &&
    document.querySelector(`${c} input[type=number]`).value === '', LONG, card(ACCEL));
  assert.equal(await text(page, `${card(ACCEL)} .error`), '', 'the default rate is accepted');
  // The built-in accelerometer's default is 50 Hz.
  await page.waitForFunction((c) => { const r = parseFloat(document.querySelector(`${c} .stats b`).textContent); return r > 40 && r < 60; },
    LONG, card(ACCEL));
}

// The old controls still do what they say: flush, off and on, another page sees the same state.
async function controlsAndSecondPage(page, browser, url, origin) {
  await page.click(`${card(ACCEL)} .flush-button`);
  await page.waitForFunction((c) => /flush 1 complete after/.test(document.querySelector(`${c} .flush`).textContent), LONG, card(ACCEL));
  const second = await openPage(browser, url, origin);
  await second.waitForFunction((c) => document.querySelector(`${c} button.toggle`).textContent === 'Turn off', LONG, card(ACCEL));
  await second.close();
  await page.click(`${card(ACCEL)} button.toggle`);
  await page.waitForFunction((c) => document.querySelector(c).classList.contains('off'), LONG, card(ACCEL));
  await page.click(`${card(ACCEL)} button.toggle`);
  const afterOff = await received(page, ACCEL);
  await page.waitForFunction((h, n) => window.iioLive.received[h] > n + 20, LONG, ACCEL, afterOff);
}

// More pages than the server follows: the last says why on every card and gets in once one closes.
async function refusedPage(browser, url, origin, first) {
  const others = [];
  for (let i = 0; i < 3; i++) others.push(await openPage(browser, url, origin));
  const refused = await isolatedPage(browser, [origin]);
  await refused.goto(url);
  await refused.waitForFunction(() => window.iioLive && window.iioLive.unavailable !== '', LONG);
  const message = await text(refused, '#message');
  assert.match(message, /not available: .*too many pages.*Trying again every \d+ s/i, message);
  const states = await refused.$$eval('.card .state', (s) => s.map((e) => e.textContent));
  assert.ok(states.every((s) => s === 'state unknown'), `no card claims a state: ${states}`);
  assert.ok(!(await refused.$$eval('.card button.toggle', (bs) => bs.some((b) => !b.disabled))), 'no control to press');
  await shot(refused, 'serve-refused');
  await others.pop().close();
  await refused.waitForFunction(() => window.iioLive.connected, LONG);
  await refused.waitForFunction((c) => document.querySelector(`${c} .state`).textContent === 'on', LONG, card(ACCEL));
  await refused.close();
  for (const page of others) await page.close();
  await first.bringToFront();
}

// A quick check locks the sensor controls with the reason; they come back when it ends.
async function checkLocksControls(page) {
  await page.click('#check-run');
  await page.waitForFunction((c) => document.querySelector(`${c} button.toggle`).disabled &&
    /check is running/.test(document.querySelector(`${c} .lock`).textContent), LONG, card(ACCEL));
  await shot(page, 'serve-check-running');
  await page.waitForFunction(() => window.iioLive.lastCheck && !window.iioLive.lastCheck.running &&
    window.iioLive.lastCheck.results.length > 0, { timeout: 280_000, polling: 200 });
  const verdicts = await page.$$eval('#check-results tbody td.verdict', (cells) => cells.map((c) => c.textContent));
  const firstOther = verdicts.findIndex((v) => v !== 'FAIL');
  assert.ok(!verdicts.slice(firstOther).includes('FAIL'), 'failures come first');
  await page.waitForFunction((c) => !document.querySelector(`${c} button.toggle`).disabled &&
    document.querySelector(`${c} .lock`).textContent === '', LONG, card(ACCEL));
  return verdicts.length;
}

async function dumpAndRecording(page) {
  await page.click('#dump-show');
  await page.waitForFunction(() => /IioSensorSubHal/.test(document.getElementById('dump').textContent), LONG);
  const rows = await page.$$eval('#dump-sensors tbody tr', (trs) => trs.map((tr) => [...tr.cells].map((c) => c.textContent)));
  const accel = rows.find((r) => /Accelerometer/.test(r[0]));
  assert.equal(accel[1], 'on');
  assert.match(accel[4], /Hz/, 'the rate seen');
  assert.match(accel[5], /ms/, 'the latency');
  assert.equal(rows.find((r) => /Gravity/.test(r[0]))[1], 'off');
  await page.click('#record-start');
  await page.waitForFunction(() => /recording since/.test(document.getElementById('record-status').textContent), LONG);
  await page.click('#record-stop');
  await page.waitForFunction(() => /recorded [1-9]\d* samples/.test(document.getElementById('record-status').textContent), LONG);
  await shot(page, 'serve-dump');
}

async function liveServe(browser) {
  const { child, url: started } = startServe();
  const { url, origin } = await started;
  let results = 0;
  let page;
  try {
    page = await openPage(browser, url, origin);
    await shot(page, 'serve-all-off');
    await chartsReadAtAGlance(page);
    // Until the tool says what the host answered (answeredHz), the page shows what it asked.
    const answers = await page.evaluate(() => window.iioLive.lastSensors.sensors.some((s) => 'answeredHz' in s));
    await pauseAndZoom(page);
    await rateControls(page, { answers });
    await controlsAndSecondPage(page, browser, url, origin);
    await setRate(page, ACCEL, '100');
    await shot(page, 'serve-live-1400');
    await page.setViewport({ width: 480, height: 900 });
    await new Promise((resolve) => setTimeout(resolve, 500));
    await shot(page, 'serve-live-480');
    await page.setViewport({ width: 1400, height: 1000 });
    await refusedPage(browser, url, origin, page);
    await dumpAndRecording(page);
    results = await checkLocksControls(page);
    await shot(page, 'serve-check-done');
    assert.deepEqual(page.refused, [], 'the page fetched nothing from elsewhere');
    assert.deepEqual(page.errors, [], 'no script errors');
  } catch (e) {
    if (page) await shot(page, 'serve-failure');  // what the page showed when the test failed
    throw e;
  } finally {
    child.kill('SIGINT');
  }
  const { code } = await child.exited;
  assert.equal(code, 0, `serve exited with ${code}:\n${child.stderrText}`);
  assert.match(child.stderrText, /stopped by Ctrl-C/);
  return results;
}

// A replay: time is the recording's own and the stats say why latency does not apply.
async function replayServe(browser) {
  const recording = join(shots, 'replayed.json');
  execFileSync(tool, ['stream', '--duration', '3', '--record', recording], { stdio: 'ignore' });
  const { child, url: started } = startServe('--host', recording, '--speed', '0.5');
  const { url, origin } = await started;
  try {
    const page = await openPage(browser, url, origin);
    await page.click(`${card(ACCEL)} button.toggle`);
    await page.waitForFunction((h) => (window.iioLive.received[h] || 0) > 20, LONG, ACCEL);
    await page.waitForFunction((c) => /latency does not apply/.test(document.querySelector(`${c} .stats`).textContent), LONG, card(ACCEL));
    assert.match(await text(page, '#replay-note'), /recording's own.*latency does not apply/);
    assert.ok((await chartsOf(page, ACCEL))[0].xLabels.every((l) => Number(l) >= 0), 'recording time, not seconds before now');
    const charts = await chartsOf(page, ACCEL);
    assert.ok(charts[0].x[1] > 0 && charts[0].x[1] < 10, `recording time, from its start: ${charts[0].x}`);
    await shot(page, 'serve-replay');
    assert.deepEqual(page.errors, [], 'no script errors');
  } finally {
    child.kill('SIGINT');
  }
  await child.exited;
}

const browser = await launchChromium();
try {
  const results = await liveServe(browser);
  await replayServe(browser);
  console.log(`ok: ${results} check results; screenshots in ${shots}`);
} finally {
  await browser.close();
}
