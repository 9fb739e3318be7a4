// What the page carries, and what is read out of it: the numbers of a curve, a value at a time, the points that a plot of
// some width needs. Everything here works on recorded samples only; none is made up.
"use strict";

const data = JSON.parse(document.getElementById("data").textContent);

/** The numbers of a text in base64: doubles, the lowest byte first. */
function doubles(text) {
  const raw = atob(text), bytes = new Uint8Array(raw.length);
  for (let i = 0; i < raw.length; ++i) bytes[i] = raw.charCodeAt(i);
  return new Float64Array(bytes.buffer);
}

/** A recorded signal of one run, or the difference of two. Its numbers are decoded when they are first needed. */
class Curve {
  constructor(record) {
    Object.assign(this, record);
  }
  // Curves of one run share the times of one of them, unless each was reduced to samples of its own.
  get times() {
    return this.ownTimes ??= typeof this.time === "number" ? curves[this.time].times : doubles(this.time);
  }
  get values() {
    return this.ownValues ??= doubles(this.value);
  }
  get label() {
    return this.name + " · " + this.series;
  }
}
const curves = data.curves.map((record) => new Curve(record));

/** The index of the first time that is not before `time`; with `After`, of the first that is after it. */
function firstFrom(times, time) {
  let low = 0, high = times.length;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (times[middle] < time) low = middle + 1;
    else high = middle;
  }
  return low;
}
function firstAfter(times, time) {
  let low = 0, high = times.length;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (times[middle] <= time) low = middle + 1;
    else high = middle;
  }
  return low;
}

/** The time of the curve's sample that is nearest to `time`; null for a curve without samples. */
function nearestTime(curve, time) {
  const times = curve.times;
  if (times.length === 0) return null;
  const i = Math.min(firstFrom(times, time), times.length - 1);
  return i > 0 && time - times[i - 1] < times[i] - time ? times[i - 1] : times[i];
}

/** The value as the plot draws it: between two samples on the line between them, or held where the signal is. Null outside. */
function valueAt(curve, time) {
  const { times, values } = curve, after = firstAfter(times, time);
  if (after === 0 || (after === times.length && times[after - 1] !== time)) return null;
  const before = after - 1;
  if (curve.held || times[before] === time) return values[before];
  const part = (time - times[before]) / (times[after] - times[before]);
  return values[before] + part * (values[after] - values[before]);
}

/**
 * The indices of the samples that show [from, to] on `width` pixels, and of one more on either side. Of the samples that
 * fall into one pixel these are the first, the smallest, the largest and the last, so that no spike is lost at any zoom,
 * and the first that is no number, so that no gap closes.
 */
function shownSamples(curve, from, to, width) {
  const { times, values } = curve;
  const begin = Math.max(0, firstFrom(times, from) - 1), end = Math.min(times.length, firstAfter(times, to) + 1);
  const indices = [];
  if (end - begin <= 4 * width) {
    for (let i = begin; i < end; ++i) indices.push(i);
    return indices;
  }
  const perPixel = (to - from) / width;
  for (let i = begin; i < end;) {
    const pixel = Math.floor((times[i] - from) / perPixel), first = i;
    let least = -1, most = -1, none = -1;
    for (; i < end && Math.floor((times[i] - from) / perPixel) === pixel; ++i) {
      if (Number.isNaN(values[i])) none = none < 0 ? i : none;
      else if (least < 0) least = most = i;
      else if (values[i] < values[least]) least = i;
      else if (values[i] > values[most]) most = i;
    }
    const kept = [first, least, most, none, i - 1].filter((index) => index >= 0).sort((a, b) => a - b);
    kept.forEach((index, k) => k > 0 && index === kept[k - 1] || indices.push(index));
  }
  return indices;
}

/**
 * Rows of time and one value for each curve, in the order of time: null where a curve has no sample at that time, which is
 * drawn over, NaN where its sample is no number, which is a gap. A time that a curve repeats gives as many rows.
 */
function mergedRows(shown, indices, toValue) {
  const rows = [], next = shown.map(() => 0);
  for (;;) {
    let time = Infinity;
    shown.forEach((curve, c) => {
      if (next[c] < indices[c].length) time = Math.min(time, curve.times[indices[c][next[c]]]);
    });
    if (time === Infinity) return rows;
    rows.push([time, ...shown.map((curve, c) => {
      const i = indices[c][next[c]];
      if (i === undefined || curve.times[i] !== time) return null;
      next[c] += 1;
      return toValue(curve.values[i]);
    })]);
  }
}

/** The first and the last time of any of them. */
function timeSpan(of) {
  const starts = of.filter((curve) => curve.times.length > 0);
  if (starts.length === 0) return [0, 1];
  const from = Math.min(...starts.map((curve) => curve.times[0]));
  const to = Math.max(...starts.map((curve) => curve.times[curve.times.length - 1]));
  return from < to ? [from, to] : [from - 0.5, to + 0.5];
}

// ---- numbers as people read them ----

const kScales = [[1, "s"], [1e-3, "ms"], [1e-6, "µs"], [1e-9, "ns"]];

/** What the times of a span are best told in: [seconds of one, its name]. */
function timeScale(span) {
  return kScales.find(([size]) => span >= size) ?? kScales[kScales.length - 1];
}

/** At most `digits` significant digits, without zeros that say nothing. */
function shortNumber(value, digits = 7) {
  if (value === null || value === undefined) return "–";
  if (!Number.isFinite(value)) return String(value).replace("-", "−");
  const size = Math.abs(value);
  const text = size !== 0 && (size < 1e-4 || size >= 1e9) ? value.toExponential(digits - 1).replace(/\.?0+e/, "e")
                                                          : String(Number(value.toPrecision(digits)));
  return text.replace("e+", "e").replaceAll("-", "−");
}

function timeText(time) {
  return time === null ? "–" : shortNumber(time, 10) + " s";
}
