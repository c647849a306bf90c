// `iio-subhal serve` in a real browser: the page loads from the running tool with nothing from
// anywhere else, live points reach the charts, a sensor goes off and on, its rate changes, a flush
// completes, a second page sees the same state, the dump shows, a recording is made and a quick
// check runs with its failures first. Screenshots go to the directory given.
//   node serve_page_test.mjs <iio-subhal> <screenshot directory>
import { spawn } from 'node:child_process';
import { mkdirSync } from 'node:fs';
import { join } from 'node:path';
import assert from 'node:assert/strict';
import { launchChromium, isolatedPage, skipWithoutChromium } from './chromium.mjs';

const [tool, shots] = process.argv.slice(2);
skipWithoutChromium();
mkdirSync(shots, { recursive: true });

// Starts serve and resolves with its URL once printed.
function startServe() {
  const child = spawn(tool, ['serve', '--port', '0'], { stdio: ['ignore', 'pipe', 'pipe'] });
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

const LONG = { timeout: 120_000, polling: 50 };
const card = (handle) => `#sensor-${handle}`;
const received = (page, handle) => page.evaluate((h) => window.iioLive.received[h] || 0, handle);

async function openPage(browser, url, origin) {
  const page = await isolatedPage(browser, [origin]);
  await page.goto(url);
  await page.waitForFunction(() => window.iioLive && window.iioLive.connected, LONG);
  return page;
}

const { child, url: started } = startServe();
const { url, origin } = await started;
const browser = await launchChromium();
try {
  const page = await openPage(browser, url, origin);
  assert.equal(await page.$$eval('#sensor-table tbody tr', (rows) => rows.length), 5);
  assert.match(await page.$eval('#sensor-table tbody', (t) => t.textContent), /m\/s²/);

  // On: points reach the three charts of the accelerometer.
  await page.click(`${card(1)} button.toggle`);
  await page.waitForFunction(() => (window.iioLive.received[1] || 0) > 100, LONG);
  assert.equal(await page.$$eval(`${card(1)} .uplot`, (charts) => charts.length), 3);
  await page.waitForFunction((c) => /Hz/.test(document.querySelector(`${c} .stats b`)?.textContent || ''), LONG, card(1));

  // The rate: 50 Hz asked, about 50 Hz observed.
  await page.$eval(`${card(1)} input[type=number]`, (input) => { input.value = '50'; });
  await page.click(`${card(1)} .controls button:nth-of-type(2)`);
  await page.waitForFunction((c) => {
    const rate = parseFloat(document.querySelector(`${c} .stats b`).textContent);
    return rate > 40 && rate < 60;
  }, LONG, card(1));

  // A flush completes and says how long it took.
  await page.click(`${card(1)} .controls button:nth-of-type(3)`);
  await page.waitForFunction((c) => /flush 1 complete after/.test(document.querySelector(`${c} .flush`).textContent), LONG, card(1));

  // A second page sees the same state; closing it turns nothing off.
  const second = await openPage(browser, url, origin);
  await second.waitForFunction((c) => document.querySelector(`${c} button.toggle`).textContent === 'Turn off', LONG, card(1));
  await second.waitForFunction((c) => document.querySelector(`${c} input[type=number]`).value === '50', LONG, card(1));
  await second.close();
  const before = await received(page, 1);
  await page.waitForFunction((n) => window.iioLive.received[1] > n + 20, LONG, before);

  // Off, then on again.
  await page.click(`${card(1)} button.toggle`);
  await page.waitForFunction((c) => document.querySelector(`${c} button.toggle`).textContent === 'Turn on', LONG, card(1));
  await page.click(`${card(1)} button.toggle`);
  const afterOff = await received(page, 1);
  await page.waitForFunction((n) => window.iioLive.received[1] > n + 20, LONG, afterOff);

  // The dump and a recording.
  await page.click('#dump-show');
  await page.waitForFunction(() => /IioSensorSubHal/.test(document.getElementById('dump').textContent), LONG);
  await page.click('#record-start');
  await page.waitForFunction(() => /recording since/.test(document.getElementById('record-status').textContent), LONG);
  await page.click('#record-stop');
  await page.waitForFunction(() => /recorded [1-9]\d* samples/.test(document.getElementById('record-status').textContent), LONG);
  assert.equal(await page.$eval('#record-download', (a) => a.hidden), false);

  await page.screenshot({ path: join(shots, 'serve-live.png'), fullPage: true });

  // A quick check from the page: progress, then results with failures first; the sensor that was
  // on is on again afterwards.
  await page.click('#check-run');
  await page.waitForFunction(() => window.iioLive.lastCheck && window.iioLive.lastCheck.running, LONG);
  await page.waitForFunction(() => window.iioLive.lastCheck && !window.iioLive.lastCheck.running &&
    window.iioLive.lastCheck.results.length > 0, { timeout: 280_000, polling: 200 });
  const verdicts = await page.$$eval('#check-results tbody td.verdict', (cells) => cells.map((c) => c.textContent));
  assert.ok(verdicts.length > 50, `${verdicts.length} results`);
  const firstOther = verdicts.findIndex((v) => v !== 'FAIL');
  assert.ok(!verdicts.slice(firstOther).includes('FAIL'), 'failures come first');
  assert.match(await page.$eval('#check-summary', (s) => s.textContent), /results: \d+ PASS/);
  await page.waitForFunction((c) => document.querySelector(`${c} button.toggle`).textContent === 'Turn off', LONG, card(1));
  await page.screenshot({ path: join(shots, 'serve-check.png'), fullPage: true });

  assert.deepEqual(page.refused, [], 'the page fetched nothing from elsewhere');
  assert.deepEqual(page.errors, [], 'no script errors');
  console.log(`ok: ${await received(page, 1)} accelerometer events drawn, ${verdicts.length} check results`);
} finally {
  await browser.close();
  child.kill('SIGINT');
}
const { code } = await child.exited;
assert.equal(code, 0, `serve exited with ${code}:\n${child.stderrText}`);
assert.match(child.stderrText, /stopped by Ctrl-C/);
