// What `serve` costs with five sensors at 400 Hz and a page drawing them in headless Chromium:
// events lost between the library and the page (counted on both sides), the tool's CPU time per
// event next to that of `stream --json` at the same load, and the page's frame rate while it
// draws. Both processes are measured over the same steady window, from /proc/<pid>/stat.
//   node bench/serve_bench.mjs <iio-subhal> [seconds]
import { spawn } from 'node:child_process';
import { readFileSync, mkdtempSync, statSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { launchChromium, isolatedPage, skipWithoutChromium } from '../tests/browser/chromium.mjs';

const [tool, secondsArg] = process.argv.slice(2);
const seconds = Number(secondsArg || 10);
const RATE = 400;
const HANDLES = [1, 2, 3, 4, 5];
skipWithoutChromium();

const ticksPerSecond = 100;  // USER_HZ on Linux
function cpuSeconds(pid) {
  const fields = readFileSync(`/proc/${pid}/stat`, 'utf8').split(') ')[1].split(' ');
  return (Number(fields[11]) + Number(fields[12])) / ticksPerSecond;  // utime + stime
}
const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

// stream --json into a file: CPU and lines over the window, after the sensors started.
async function measureStream() {
  const dir = mkdtempSync(join(tmpdir(), 'serve-bench-'));
  const out = join(dir, 'events.jsonl');
  const child = spawn('/bin/sh', ['-c', `exec "$0" stream --json --rate ${RATE} --follow > "$1" 2>/dev/null`, tool, out]);
  const lines = () => { try { return readFileSync(out, 'utf8').split('\n').length - 1; } catch { return 0; } };
  while (lines() < RATE) await sleep(100);  // enumerated and streaming
  await sleep(1000);
  const cpu0 = cpuSeconds(child.pid); const n0 = lines(); const t0 = Date.now();
  await sleep(seconds * 1000);
  const cpu1 = cpuSeconds(child.pid); const n1 = lines(); const t1 = Date.now();
  child.kill('SIGINT');
  await new Promise((resolve) => child.on('exit', resolve));
  return { cpuPerEventUs: (cpu1 - cpu0) / (n1 - n0) * 1e6, events: n1 - n0, rate: (n1 - n0) / ((t1 - t0) / 1000), bytes: statSync(out).size };
}

async function measureServe() {
  const child = spawn(tool, ['serve', '--port', '0'], { stdio: ['ignore', 'pipe', 'ignore'] });
  process.on('exit', () => child.kill('SIGKILL'));
  const url = await new Promise((resolve) => {
    let text = '';
    child.stdout.on('data', (d) => { text += d; const m = text.match(/^(http:\S+)\n/); if (m) resolve(m[1]); });
  });
  const origin = new URL(url).origin;
  const browser = await launchChromium();
  const page = await isolatedPage(browser, [origin]);
  await page.goto(url);
  await page.waitForFunction(() => window.iioLive && window.iioLive.connected, { timeout: 60000 });
  await page.evaluate(async (handles, rate) => {
    const token = new URLSearchParams(location.search).get('token');
    const post = (path, body) => fetch(path, { method: 'POST', headers: { 'X-Token': token }, body: JSON.stringify(body) });
    for (const h of handles) { await post(`/api/sensors/${h}/rate`, { hz: rate }); await post(`/api/sensors/${h}/active`, { on: true }); }
    window.benchFrames = 0;
    const count = () => { window.benchFrames++; requestAnimationFrame(count); };
    requestAnimationFrame(count);
  }, HANDLES, RATE);
  await sleep(2000);
  const snapshot = () => page.evaluate(() => ({ frames: window.benchFrames, drawn: window.iioLive.framesDrawn,
    received: { ...window.iioLive.received }, serverTotal: { ...window.iioLive.serverTotal }, firstTotal: { ...window.iioLive.firstTotal }, dropped: window.iioLive.droppedFrames }));
  const s0 = await snapshot(); const cpu0 = cpuSeconds(child.pid); const t0 = Date.now();
  await sleep(seconds * 1000);
  const s1 = await snapshot(); const cpu1 = cpuSeconds(child.pid); const t1 = Date.now();
  const sum = (o) => Object.values(o).reduce((a, b) => a + b, 0);
  const events = sum(s1.serverTotal) - sum(s0.serverTotal);
  // Stop the sensors and let the last batch arrive before counting what never reached the page.
  await page.evaluate(async (handles) => {
    const token = new URLSearchParams(location.search).get('token');
    for (const h of handles) await fetch(`/api/sensors/${h}/active`, { method: 'POST', headers: { 'X-Token': token }, body: '{"on":false}' });
  }, HANDLES);
  await sleep(1000);
  const end = await snapshot();
  const lost = sum(end.serverTotal) - sum(end.firstTotal) - sum(end.received);
  await browser.close();
  child.kill('SIGINT');
  await new Promise((resolve) => child.on('exit', resolve));
  return { cpuPerEventUs: (cpu1 - cpu0) / events * 1e6, events, rate: events / ((t1 - t0) / 1000),
    fps: (s1.frames - s0.frames) / ((t1 - t0) / 1000), chartUpdates: s1.drawn - s0.drawn,
    lost, droppedFrames: end.dropped, taken: sum(end.serverTotal) - sum(end.firstTotal) };
}

const stream = await measureStream();
const serve = await measureServe();
const f = (x, d = 1) => x.toFixed(d);
console.log(`stream --json: ${stream.events} events in ${seconds} s (${f(stream.rate)}/s), ${f(stream.cpuPerEventUs)} us CPU per event`);
console.log(`serve + page:  ${serve.events} events in ${seconds} s (${f(serve.rate)}/s), ${f(serve.cpuPerEventUs)} us CPU per event ` +
  `(${f(serve.cpuPerEventUs / stream.cpuPerEventUs, 2)}x stream --json; target <= 2x)`);
console.log(`page: ${f(serve.fps)} frames/s (target >= 30), ${serve.chartUpdates} chart updates; ` +
  `${serve.taken} events taken by the tool, ${serve.lost} not reached the page, ${serve.droppedFrames} frames dropped (target 0)`);
