// The HTML reports in a real browser, opened from disk with the network cut off: a recording
// made by the tool (`report`) draws a chart per channel and a histogram per device, and a check
// run (`check --html`) lists its results with failures first. Screenshots go to the directory
// given.
//   node report_page_test.mjs <iio-subhal> <output directory>
import { execFileSync } from 'node:child_process';
import { mkdirSync } from 'node:fs';
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
run('report', recording, '-o', report);
run('check', '--quick', '--rule', 'list.*', '--rule', 'commands.flush*', '--html', check);

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
  assert.match(await page.$eval('table', (t) => t.textContent), /accelerometer/);
  await page.screenshot({ path: join(out, 'recording.png'), fullPage: true });
  assert.deepEqual(page.errors, []);

  await page.goto(`file://${check}`);
  await page.waitForFunction(() => document.body.dataset.drawn === '1', { timeout: 60000 });
  const verdicts = await page.$$eval('#results td.verdict', (cells) => cells.map((c) => c.textContent));
  assert.ok(verdicts.length > 5, `${verdicts.length} results`);
  const firstOther = verdicts.findIndex((v) => v !== 'FAIL');
  assert.ok(!verdicts.slice(firstOther).includes('FAIL'), 'failures come first');
  assert.match(await page.$eval('.summary', (s) => s.textContent), /results: \d+ PASS/);
  await page.screenshot({ path: join(out, 'check.png'), fullPage: true });

  assert.deepEqual(page.refused, [], 'the reports fetched nothing');
  assert.deepEqual(page.errors, [], 'no script errors');
  console.log(`ok: ${devices.length} devices drawn, ${verdicts.length} check results`);
} finally {
  await browser.close();
}
