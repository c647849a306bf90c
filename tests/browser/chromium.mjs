// Debian's Chromium, headless, for the page tests and benchmarks: a fresh profile every time,
// no background traffic, and every request that leaves the allowed origins refused and counted,
// so a page that would fetch something from the internet fails its test.
import { mkdtempSync, rmSync, existsSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import puppeteer from 'puppeteer-core';

export const CHROMIUM = '/usr/bin/chromium';
// ctest's SKIP_RETURN_CODE: no browser on this machine.
export const SKIP = 77;

export function skipWithoutChromium() {
  if (!existsSync(CHROMIUM)) {
    console.log(`SKIP: ${CHROMIUM} is missing (scripts/install-deps installs it)`);
    process.exit(SKIP);
  }
}

export async function launchChromium() {
  const profile = mkdtempSync(join(tmpdir(), 'iio-subhal-chromium-'));
  const browser = await puppeteer.launch({
    executablePath: CHROMIUM,
    headless: true,
    args: ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
      '--disable-background-networking', '--disable-component-update', '--disable-sync',
      `--user-data-dir=${profile}`],
  });
  browser.on('disconnected', () => {
    try { rmSync(profile, { recursive: true, force: true, maxRetries: 5 }); } catch { /* Chromium may still be writing; it is a temporary directory */ }
  });
  return browser;
}

// A page that may load only URLs starting with one of `allowed` (and data: URLs); the others are
// aborted and listed in page.refused.
export async function isolatedPage(browser, allowed) {
  const page = await browser.newPage();
  page.refused = [];
  await page.setRequestInterception(true);
  page.on('request', (request) => {
    const url = request.url();
    if (url.startsWith('data:') || allowed.some((prefix) => url.startsWith(prefix))) {
      request.continue();
    } else {
      page.refused.push(url);
      request.abort();
    }
  });
  page.errors = [];
  page.on('pageerror', (error) => page.errors.push(String(error)));
  await page.setViewport({ width: 1400, height: 1000 });
  return page;
}
