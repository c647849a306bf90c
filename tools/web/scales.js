// How the live page and the reports scale a value axis, so that both read alike: the data's own
// span, but never less than the least span that means something in its unit (a still
// accelerometer's noise is not a swing, a constant is not a 0-100 scale), with round ticks, at
// least three of them labelled; or one of the fixed ranges a person can pick.
'use strict';

const iioScales = (() => {
  // Per unit: the least span an automatic axis shows, and the fixed ranges offered.
  const UNITS = {
    'm/s²': { least: 0.5, fixed: [[-2, 2], [-12, 12], [-20, 20], [-40, 40]] },
    'rad/s': { least: 0.05, fixed: [[-0.2, 0.2], [-1, 1], [-5, 5], [-35, 35]] },
    'µT': { least: 5, fixed: [[-60, 60], [-200, 200], [-1200, 1200]] },
    lux: { least: 10, fixed: [[0, 100], [0, 1000], [0, 10000], [0, 100000]] },
  };
  const DEFAULT = { least: 1, fixed: [] };
  const about = (unit) => UNITS[unit] || DEFAULT;

  // 1, 2 or 5 times a power of ten, the smallest such at least `raw`.
  function niceStep(raw) {
    if (!(raw > 0) || !Number.isFinite(raw)) return 1;
    const power = 10 ** Math.floor(Math.log10(raw));
    for (const m of [1, 2, 5, 10]) if (m * power >= raw * (1 - 1e-9)) return m * power;
    return 10 * power;
  }

  // The ticks from `min` to `max` at a round step that gives three to six of them.
  function ticks(min, max) {
    const step = niceStep((max - min) / 5);
    const out = [];
    for (let v = Math.ceil(min / step - 1e-9) * step; v <= max + step * 1e-9; v += step) {
      out.push(Math.abs(v) < step * 1e-9 ? 0 : v);
    }
    return out;
  }

  // Tick labels with as many decimals as the step needs, and no more.
  function labels(values) {
    const step = values.length > 1 ? Math.abs(values[1] - values[0]) : 1;
    const digits = Math.max(0, Math.min(6, -Math.floor(Math.log10(step) + 1e-9)));
    // A value that rounds to zero reads "0", never "-0" (a time axis's "now" is often -1e-15).
    return values.map((v) => (Math.abs(v) < 0.5 * 10 ** -digits ? 0 : v).toFixed(digits));
  }

  // The automatic range of data from `min` to `max` in `unit`: padded, at least the unit's least
  // span, centred on the data, and ending on round ticks.
  function autoRange(min, max, unit) {
    if (!Number.isFinite(min) || !Number.isFinite(max)) {
      min = 0;
      max = 0;
    }
    const span = Math.max((max - min) * 1.15, about(unit).least);
    const centre = (min + max) / 2;
    const step = niceStep(span / 5);
    return [Math.floor((centre - span / 2) / step) * step, Math.ceil((centre + span / 2) / step) * step];
  }

  // The range to draw now, given the one drawn before: it follows data that leaves it at once but
  // shrinks only when the data fills less than a third of it, so the axis does not twitch.
  function follow(previous, min, max, unit) {
    const next = autoRange(min, max, unit);
    if (!previous) return next;
    const inside = min >= previous[0] && max <= previous[1];
    const small = (next[1] - next[0]) * 3 < previous[1] - previous[0];
    return inside && !small ? previous : next;
  }

  // The smallest and largest finite value of `values` from index `from` to `to` (excluded).
  function extent(values, from = 0, to = values.length) {
    let min = Infinity;
    let max = -Infinity;
    for (let i = from; i < to; i++) {
      const v = values[i];
      if (v === null) continue;  // a value that was not a number
      if (v < min) min = v;
      if (v > max) max = v;
    }
    return [min, max];
  }

  return { niceStep, ticks, labels, autoRange, follow, extent, fixedRanges: (unit) => about(unit).fixed };
})();
