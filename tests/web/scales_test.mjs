// The axis scales shared by the live page and the reports, run in node without a browser.
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import vm from 'node:vm';

const source = readFileSync(new URL('../../tools/web/scales.js', import.meta.url), 'utf8');
const iioScales = vm.runInNewContext(`${source}; iioScales`);

// Labels: as many decimals as the step needs; a value that rounds to zero is never "-0".
assert.deepEqual(iioScales.labels([-10, -8, -6, -4, -2, -1e-15]), ['-10', '-8', '-6', '-4', '-2', '0']);
assert.deepEqual(iioScales.labels([-0.1, -1e-17, 0.1]), ['-0.1', '0.0', '0.1']);
assert.deepEqual(iioScales.labels([0, 0.02, 0.04]), ['0.00', '0.02', '0.04']);

// Ticks: round steps, three to six of them, an exact 0 where the span crosses it.
for (const [min, max] of [[-0.31, 0.27], [9.6, 9.9], [-12, 12], [0, 1000], [-1e-9, 1e-9]]) {
  const ticks = iioScales.ticks(min, max);
  assert.ok(ticks.length >= 3 && ticks.length <= 6, `${min}..${max}: ${ticks}`);
  assert.ok(ticks[0] >= min - 1e-12 && ticks[ticks.length - 1] <= max + 1e-12, `${min}..${max}: ${ticks}`);
  if (min < 0 && max > 0) assert.ok(ticks.includes(0), `${min}..${max}: ${ticks}`);
}

// Automatic ranges: never narrower than the unit's least span, and they hold the data.
const [lo, hi] = iioScales.autoRange(9.80, 9.81, 'm/s²');
assert.ok(hi - lo >= 0.5 && lo <= 9.80 && hi >= 9.81, `${lo}..${hi}`);
console.log('scales: ok');
