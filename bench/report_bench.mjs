// `report` of a long recording: ten minutes of five sensors at 400 Hz (1.2 million samples, as a
// recording of `stream --record` holds them), written by the tool (target: under 10 s) and then
// opened from disk and drawn in headless Chromium (target: under 5 s).
//   node bench/report_bench.mjs <iio-subhal> [minutes]
import { execFileSync } from 'node:child_process';
import { createWriteStream, mkdtempSync, statSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { launchChromium, isolatedPage, skipWithoutChromium } from '../tests/browser/chromium.mjs';

const [tool, minutesArg] = process.argv.slice(2);
const minutes = Number(minutesArg || 10);
const RATE = 400;
skipWithoutChromium();

const devices = [
  { id: 0, types: [1], axes: ['accel_x', 'accel_y', 'accel_z'], scale: '0.0023928' },
  { id: 1, types: [2], axes: ['anglvel_x', 'anglvel_y', 'anglvel_z'], scale: '0.0010652' },
  { id: 2, types: [5], axes: ['magn_x', 'magn_y', 'magn_z'], scale: '0.0625' },
  { id: 3, types: [3], axes: ['illuminance'], scale: '1' },
  { id: 4, types: [11], axes: ['gravity_x', 'gravity_y', 'gravity_z'], scale: '0.001' },
];

async function writeRecording(path) {
  const out = createWriteStream(path);
  const write = (text) => (out.write(text) ? null : new Promise((resolve) => out.once('drain', resolve)));
  const n = minutes * 60 * RATE;
  await write('{"bridgeVersion": 54, "devices": [\n');
  for (const [k, d] of devices.entries()) {
    const channels = [...d.axes, 'timestamp'];
    await write(`{"id": ${d.id}, "types": ${JSON.stringify(d.types)}, "channels": ${JSON.stringify(channels)}, ` +
      `"attributes": {"name": "bench-${d.id}", "location": "lid", "scale": "${d.scale}"}, ` +
      `"timedSamples": {"channels": ${JSON.stringify(channels.map((_, i) => i))}, "samples": [\n`);
    let rows = [];
    for (let i = 0; i < n; ++i) {
      const values = d.axes.map((_, a) => Math.round(1000 * Math.sin(i / 200 + a + d.id)));
      rows.push(`[${i === 0 ? 2000000 : 2500}, ${values.join(', ')}, ${1e12 + i * 2500000}]`);
      if (rows.length === 10000 || i === n - 1) {
        await write(rows.join(',\n') + (i === n - 1 ? '\n' : ',\n'));
        rows = [];
      }
    }
    await write(`]}}${k + 1 < devices.length ? ',' : ''}\n`);
  }
  await write(']}\n');
  await new Promise((resolve) => out.end(resolve));
}

const dir = mkdtempSync(join(tmpdir(), 'report-bench-'));
const recording = join(dir, 'long.json');
const report = join(dir, 'long.html');
await writeRecording(recording);
const started = process.hrtime.bigint();
execFileSync(tool, ['report', recording, '-o', report], { stdio: 'ignore' });
const writeS = Number(process.hrtime.bigint() - started) / 1e9;

const browser = await launchChromium();
const page = await isolatedPage(browser, [`file://${dir}`]);
const opened = process.hrtime.bigint();
await page.goto(`file://${report}`);
await page.waitForFunction(() => document.body.dataset.drawn === '1', { timeout: 120000, polling: 10 });
// A frame after the charts were made, so that they are on screen.
await page.evaluate(() => new Promise((resolve) => requestAnimationFrame(() => requestAnimationFrame(resolve))));
const drawS = Number(process.hrtime.bigint() - opened) / 1e9;
await browser.close();

const mb = (path) => (statSync(path).size / 1e6).toFixed(1);
console.log(`recording: ${devices.length} sensors at ${RATE} Hz for ${minutes} min, ` +
  `${(devices.length * minutes * 60 * RATE).toLocaleString('en-US')} samples, ${mb(recording)} MB`);
console.log(`report written in ${writeS.toFixed(2)} s (target < 10 s), ${mb(report)} MB`);
console.log(`opened and drawn in headless Chromium in ${drawS.toFixed(2)} s (target < 5 s)`);
