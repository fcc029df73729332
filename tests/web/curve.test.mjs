// The response curve: sums, the highest point, the level, the axis and the path.
import assert from "node:assert/strict";
import test from "node:test";

import {
  axisRange,
  clipExcess,
  curveFrequencies,
  dbOf,
  frequencyOf,
  levelOf,
  pathOf,
  peakOf,
  settingCurve,
  xOf,
  yOf,
} from "../../web/src/model/curve.js";
import { bandCount } from "../../web/src/model/equalizer.js";
import { responseDb } from "../../web/src/model/filters.js";

const flat = { type: 0, freq_hz: 1000, gain_db: 0, q: 0.707 };
const frequencies = curveFrequencies();

const setting = (bands = {}, bypass = false) => ({
  bypass,
  fade_ms: 20,
  bands: Array.from({ length: bandCount }, (_, index) => ({ ...flat, ...bands[index] })),
});

/** @param {number} seed */
function generator(seed) {
  let state = seed;
  return () => {
    state = (Math.imul(state, 1664525) + 1013904223) >>> 0;
    return state / 2 ** 32;
  };
}

/** Random settings: every fourth has sharp resonances, every third has its bands close to each other. */
function randomSetting(seed) {
  const random = generator(seed * 7919);
  const centre = 20 * 1000 ** random();
  const bands = Array.from({ length: Math.ceil(random() * bandCount) }, () => ({
    type: Math.floor(random() * (seed % 2 === 0 ? 3 : 9)),
    freq_hz: Math.min(20000, seed % 3 === 0 ? centre * (1 + random() / 20) : 20 * 1000 ** random()),
    gain_db: random() * 60 - 30,
    q: seed % 4 === 0 ? 18 : 0.1 * 180 ** random(),
  }));
  return setting(bands);
}

const rates = [8000, 16000, 44100, 48000, 192000];
const randomSettings = Array.from({ length: 40 }, (_, seed) => ({
  seed,
  rate: rates[seed % rates.length],
  present: randomSetting(seed),
}));

const topOf = (rate) => Math.min(20000, (rate / 2) * (1 - 1e-9));
const isClose = (one, other, limit = 1e-9) => Math.abs(one - other) <= limit;

/** The sum by its definition: the response of each band in use that has one. */
function plainSum({ bands }, at, rate) {
  const sum = new Float64Array(at.length);
  for (const band of bands) {
    const isIdle = band.type <= 2 && band.gain_db === 0;
    if (isIdle || band.freq_hz >= rate / 2) continue;
    for (const [i, decibels] of responseDb(band, at, rate).entries()) sum[i] += decibels;
  }
  return sum;
}

// ---- frequencies and scales ----

test("the frequencies go from 20 to 20000 Hz in equal ratios, 600 unless asked otherwise", () => {
  for (const [actual, count] of /** @type {[Float64Array, number][]} */ ([
    [curveFrequencies(), 600],
    [curveFrequencies(1000), 1000],
    [curveFrequencies(2), 2],
  ])) {
    assert.equal(actual.length, count);
    assert.equal(actual[0], 20);
    assert.equal(actual[count - 1], 20000);
    for (let i = 1; i < count; i++)
      assert.ok(isClose(actual[i] / actual[i - 1], 1000 ** (1 / (count - 1)), 1e-12));
  }
});

test("the scales have their ends where the drawing has them", () => {
  assert.equal(xOf(20, 800), 0);
  assert.ok(isClose(xOf(20000, 800), 800));
  assert.ok(isClose(xOf(200, 900), 300));
  assert.equal(yOf(12, 12, 240), 0);
  assert.equal(yOf(0, 12, 240), 120);
  assert.equal(yOf(-30, 30, 240), 240);
  assert.equal(yOf(6, 12, 240), 60);
});

test("each scale and its inverse give the value back", () => {
  for (const width of [1, 360, 1280])
    for (const frequency of [20, 21.5, 1000, 19999, 20000])
      assert.ok(isClose(frequencyOf(xOf(frequency, width), width) / frequency, 1, 1e-12));
  for (const range of [12, 18, 24, 30])
    for (const decibels of [-40, -30, -3.3, 0, 12, 29.9])
      assert.ok(isClose(dbOf(yOf(decibels, range, 240), range, 240), decibels));
});

// ---- values ----

test("the sum of the bands is the product of their responses", () => {
  for (const { seed, rate, present } of randomSettings) {
    const { sum, bands } = settingCurve(present, rate, frequencies);
    const expected = plainSum(present, frequencies, rate);
    for (const [i, frequency] of frequencies.entries()) {
      if (frequency >= rate / 2) assert.ok(Number.isNaN(sum[i]), `seed ${seed} at ${frequency}`);
      else assert.ok(isClose(sum[i], expected[i]), `seed ${seed} at ${frequency}: ${sum[i]}, ${expected[i]}`);
    }
    for (const [index, response] of bands.entries())
      if (response !== null) assert.deepEqual(response, responseDb(present.bands[index], frequencies, rate));
  }
});

test("bands that are not in use or at half the rate have no curve", () => {
  const present = setting({
    1: { gain_db: 3 },
    2: { type: 7 },
    3: { gain_db: 3, freq_hz: 4000 },
    4: { type: 3, freq_hz: 5000 },
    5: { gain_db: 3, freq_hz: 3999 },
  });
  const { bands } = settingCurve(present, 8000, frequencies);
  assert.equal(bands.length, bandCount);
  assert.deepEqual(
    bands.flatMap((response, index) => (response === null ? [] : [index])),
    [1, 2, 5],
  );
});

test("a flat setting is 0 dB below half the rate and nothing above it", () => {
  const { sum } = settingCurve(setting(), 8000, frequencies);
  for (const [i, frequency] of frequencies.entries()) assert.equal(sum[i], frequency < 4000 ? 0 : NaN);
});

test("a bypassed setting has the same curve", () => {
  const one = settingCurve(setting({ 3: { gain_db: 5 } }), 48000, frequencies);
  const other = settingCurve(setting({ 3: { gain_db: 5 } }, true), 48000, frequencies);
  assert.deepEqual(one, other);
});

test("an edit of one band computes that band and the sum only", () => {
  const bands = { 0: { gain_db: 3 }, 4: { type: 4 }, 9: { gain_db: -2 } };
  const before = settingCurve(setting(bands), 48000, frequencies);
  for (const values of [
    { gain_db: -2.1 },
    { gain_db: -2, freq_hz: 900 },
    { gain_db: -2, q: 2 },
    { type: 1, gain_db: -2 },
  ]) {
    const present = setting({ ...bands, 9: values });
    const after = settingCurve(present, 48000, frequencies);
    assert.equal(after.bands[0], before.bands[0]);
    assert.equal(after.bands[4], before.bands[4]);
    assert.notEqual(after.bands[9], before.bands[9]);
    assert.notEqual(after.sum, before.sum);
    assert.deepEqual(after.sum, plainSum(present, frequencies, 48000));
  }
});

test("an unchanged setting has the same curve object, also while others are drawn in turn", () => {
  const at = curveFrequencies(512);
  const settings = [1, 2, 3, 4].map((gain) => setting({ 0: { gain_db: gain }, 1: { type: 4 } }));
  const curves = settings.map((one) => settingCurve(one, 48000, at));
  for (let round = 0; round < 3; round++)
    for (const [i, one] of settings.entries())
      assert.equal(settingCurve(structuredClone(one), 48000, at), curves[i]);
  // A long drag pushes the others out, and memory stays bounded.
  for (let gain = 0.1; gain < 12; gain += 0.1) settingCurve(setting({ 0: { gain_db: gain } }), 48000, at);
  const again = settingCurve(settings[0], 48000, at);
  assert.notEqual(again, curves[0]);
  assert.deepEqual(again, curves[0]);
});

test("a setting that is changed in place gets its own curve", () => {
  const present = setting({ 0: { gain_db: 3 } });
  const before = settingCurve(present, 48000, frequencies);
  present.bands[0].gain_db = 4;
  assert.deepEqual(settingCurve(present, 48000, frequencies).sum, plainSum(present, frequencies, 48000));
  assert.deepEqual(before.sum, plainSum(setting({ 0: { gain_db: 3 } }), frequencies, 48000));
});

test("another sample rate has another curve, and so have other frequencies", () => {
  const present = setting({ 0: { type: 3, freq_hz: 9000 } });
  for (const rate of [48000, 44100, 48000])
    assert.deepEqual(settingCurve(present, rate, frequencies).sum, plainSum(present, frequencies, rate));
  const few = curveFrequencies(16);
  assert.deepEqual(settingCurve(present, 48000, few).sum, plainSum(present, few, 48000));
});

// ---- the highest point, and the level ----

/** The highest point by brute force: many even samples, and more around each band. */
function searchedPeak(present, rate) {
  const top = topOf(rate);
  const around = present.bands.flatMap(({ freq_hz: centre }) =>
    Array.from({ length: 200 }, (_, i) => centre * (1 + ((i - 100) / 100) ** 3 / 20)),
  );
  const even = curveFrequencies(3000);
  const at = Float64Array.from(
    [...even, ...around, top].filter((frequency) => frequency >= 20 && frequency <= top),
  );
  return Math.max(...plainSum(present, at.sort(), rate));
}

test("the peak is a point of the curve, and no point is more than 0.001 dB above it", () => {
  for (const { seed, rate, present } of randomSettings) {
    const { db, frequency } = peakOf(present, rate);
    assert.ok(frequency >= 20 && frequency <= topOf(rate));
    assert.ok(isClose(db, plainSum(present, [frequency], rate)[0], 1e-6), `seed ${seed}`);
    const searched = searchedPeak(present, rate);
    assert.ok(searched - db <= 0.001, `seed ${seed} at ${rate}: ${searched} is above ${db} at ${frequency}`);
  }
});

test("the sharpest resonances are found wherever they are", () => {
  for (const rate of [8000, 40001, 44100, 48000])
    for (const part of [0.001, 0.0234, 0.1, 0.31, 0.77, 0.95, 0.9999]) {
      const centre = Math.max(20, part * topOf(rate));
      const sharp = { freq_hz: centre, q: 18 };
      const rows = /** @type {[number, number, number][]} */ ([
        // type, gain, peak: the cookbook's peaks are the gain, Q, or Q and the shelf's height
        [0, 30, 30],
        [3, 0, 20 * Math.log10(18)],
        [4, 0, 20 * Math.log10(18)],
        [5, 0, 0],
        [6, 0, 20 * Math.log10(18)],
      ]);
      for (const [type, gain, expected] of rows) {
        const { db, frequency } = peakOf(setting({ 7: { ...sharp, type, gain_db: gain } }), rate);
        assert.ok(isClose(db, expected, 0.01), `type ${type}, ${centre} Hz at ${rate}: ${db}`);
        assert.ok(
          isClose(frequency / centre, 1, 0.002),
          `type ${type}, ${centre} Hz at ${rate}: ${frequency}`,
        );
      }
      for (const type of [1, 2])
        for (const gain of [-30, 30]) {
          const present = setting({ 7: { ...sharp, type, gain_db: gain } });
          const { db } = peakOf(present, rate);
          assert.ok(
            searchedShelf(present, rate) - db <= 0.01,
            `type ${type}, ${gain} dB, ${centre} Hz at ${rate}`,
          );
        }
    }
});

/** The highest point of one shelf, whose resonance is where the prototype's is: Ω² = A or 1/A. */
function searchedShelf(present, rate) {
  const { type, freq_hz: centre, gain_db: gain } = present.bands[7];
  const ratio = 10 ** ((gain / 80) * (type === 1 ? -1 : 1));
  const tangent = Math.tan((Math.PI * centre) / rate);
  const at = Array.from({ length: 1001 }, (_, i) => ratio * tangent * 1.5 ** ((i - 500) / 500))
    .map((value) => (rate / Math.PI) * Math.atan(value))
    .filter((frequency) => frequency >= 20 && frequency <= topOf(rate));
  return Math.max(...plainSum(present, [20, ...at, topOf(rate)], rate));
}

test("the peak between two bands is above both", () => {
  const present = setting({
    0: { gain_db: 12, freq_hz: 1000, q: 18 },
    1: { gain_db: 12, freq_hz: 1010, q: 18 },
  });
  const { db, frequency } = peakOf(present, 48000);
  assert.ok(isClose(frequency, Math.sqrt(1000 * 1010), 0.5), String(frequency));
  assert.ok(db > 0.3 + plainSum(present, [1000], 48000)[0]);
});

test("a setting without a rise has its peak at 0 dB, or at an edge", () => {
  assert.equal(peakOf(setting(), 48000).db, 0);
  assert.equal(peakOf(setting({ 0: { type: 8 } }), 48000).db, 0);
  assert.equal(peakOf(setting({ 0: { gain_db: 30, freq_hz: 4000 } }), 8000).db, 0);
  const dip = peakOf(setting({ 0: { gain_db: -20, q: 18 } }), 48000).db;
  assert.ok(dip < 0 && dip > -0.01);
  assert.equal(peakOf(setting({ 0: { type: 4, freq_hz: 10000 } }), 16000).db, 0);
  assert.equal(peakOf(setting({ 0: { type: 4, freq_hz: 19000 } }), 48000).frequency, 20000);
  assert.equal(peakOf(setting({ 0: { type: 3, freq_hz: 30 } }), 48000).frequency, 20);
});

test("the clip hint is what curve and output trim exceed 0 dB by", () => {
  const loud = { 0: { gain_db: 6 } };
  const rows = /** @type {[object, boolean, number, number][]} */ ([
    // bands, bypassed, trim, excess
    [{}, false, 0, 0],
    [{}, false, 0.1, 0.1],
    [{}, false, -3, 0],
    [loud, false, 0, 6],
    [loud, false, -4, 2],
    [loud, false, -5.9, 0.1],
    [loud, false, -6, 0],
    [loud, false, -20, 0],
    [loud, true, 0, 0],
    [loud, true, 1.5, 1.5],
    [{ 0: { gain_db: -6, q: 18 } }, false, 3, 3],
  ]);
  for (const [bands, bypass, trim, expected] of rows) {
    const actual = clipExcess(setting(bands, bypass), trim, 48000);
    assert.ok(isClose(actual, expected, 0.001), `${JSON.stringify(bands)} ${bypass} ${trim}: ${actual}`);
    if (expected === 0) assert.equal(actual, 0);
  }
});

/** The mean power by its definition, over very many frequencies. */
function meanPower(present, rate) {
  const top = topOf(rate);
  const count = 12000;
  const at = Float64Array.from({ length: count }, (_, i) => 20 * (top / 20) ** ((i + 0.5) / count));
  let power = 0;
  for (const decibels of plainSum(present, at, rate)) power += 10 ** (decibels / 10);
  return 10 * Math.log10(power / count);
}

test("the level is the mean power over the logarithm of frequency", () => {
  assert.ok(isClose(levelOf(setting(), 48000), 0));
  assert.ok(isClose(levelOf(setting(), 8000), 0));
  for (const { seed, rate, present } of randomSettings.slice(0, 16)) {
    const [actual, expected] = [levelOf(present, rate), meanPower(present, rate)];
    assert.ok(isClose(actual, expected, 0.02), `seed ${seed} at ${rate}: ${actual}, ${expected}`);
  }
});

test("the level of a rise of one octave in ten is a tenth of its power", () => {
  // A band pass of two octaves between its halves at 632 Hz, the middle of the scale.
  const present = setting({ 0: { type: 5, freq_hz: 632.4555, q: 2 / 3 } });
  // The integral of 1 / (1 + Q²(Ω - 1/Ω)²) over log Ω, for Q 2/3 within ±log(1000)/2 and without warping: 2.2853.
  const expected = 10 * Math.log10(integral() / Math.log(1000));
  assert.ok(isClose(levelOf(present, 1e7), expected, 0.01));
});

function integral() {
  const count = 20000;
  const half = Math.log(1000) / 2;
  let sum = 0;
  for (let i = 0; i < count; i++) {
    const u = -half + (2 * half * (i + 0.5)) / count;
    sum += 1 / (1 + ((2 / 3) * 2 * Math.sinh(u)) ** 2);
  }
  return (sum * 2 * half) / count;
}

test("a bypassed setting has the level of a flat one", () => {
  assert.ok(isClose(levelOf(setting({ 0: { gain_db: 20 } }, true), 48000), 0));
  assert.ok(levelOf(setting({ 0: { gain_db: 20 } }), 48000) > 5);
});

// ---- drawing ----

test("the axis grows in steps so that curve and dots fit", () => {
  const rows = /** @type {[object, number][]} */ ([
    [{}, 12],
    [{ 0: { gain_db: 12 } }, 12],
    [{ 0: { gain_db: 12.1 } }, 18],
    [{ 0: { gain_db: -12.1 } }, 18],
    [{ 0: { gain_db: 18 } }, 18],
    [{ 0: { gain_db: -18.1 } }, 24],
    [{ 0: { gain_db: 24 } }, 24],
    [{ 0: { gain_db: -24.1 } }, 30],
    [{ 0: { gain_db: 30 } }, 30],
    // the sum is above each of its bands
    [{ 0: { gain_db: 8 }, 1: { gain_db: 8 } }, 18],
    [{ 0: { gain_db: -8 }, 1: { gain_db: -8 } }, 18],
    [{ 0: { gain_db: 30 }, 1: { gain_db: 30 } }, 30],
    // the dots of two bands whose sum is small
    [{ 0: { gain_db: 20 }, 1: { gain_db: -20 } }, 24],
    // a dot without a curve
    [{ 0: { gain_db: 20, freq_hz: 20000 } }, 24],
    [{ 0: { gain_db: -20, freq_hz: 20000 } }, 24],
    // a gain that its type does not use; dips without an end; a resonance
    [{ 0: { type: 8, gain_db: 30 } }, 12],
    [{ 0: { type: 7, gain_db: 30 } }, 12],
    [{ 0: { type: 4, freq_hz: 100 }, 1: { gain_db: -15 } }, 18],
    [{ 0: { type: 3, q: 6 } }, 18],
    [{ 0: { type: 6, q: 18 } }, 30],
    // a dip that a rise of another type hides
    [{ 0: { type: 6, q: 18 }, 1: { gain_db: -14 } }, 18],
  ]);
  for (const [bands, expected] of rows) {
    const present = setting(bands);
    const actual = axisRange(present, settingCurve(present, 16000, frequencies));
    assert.equal(actual, expected, JSON.stringify(bands));
  }
});

test("the axis ignores what a rate has no values for", () => {
  const present = setting({ 0: { gain_db: 13 } });
  assert.equal(axisRange(present, settingCurve(present, 8000, frequencies)), 18);
  assert.equal(axisRange(setting(), settingCurve(setting(), 8000, frequencies)), 12);
});

/** @param {string} path */
const pointsOf = (path) =>
  path === ""
    ? []
    : path
        .slice(1)
        .split("L")
        .map((point) => point.split(" ").map(Number));

const size = { width: 900, height: 240, range: 12 };

test("the path has all points of the curve, at least 512, in their places", () => {
  const { sum } = settingCurve(
    setting({ 0: { gain_db: 6, q: 3 }, 1: { type: 4, freq_hz: 80 } }),
    48000,
    frequencies,
  );
  const path = pathOf(frequencies, sum, size);
  assert.match(path, /^M\d/u);
  const points = pointsOf(path);
  assert.ok(points.length >= 512);
  assert.equal(points.length, frequencies.length);
  for (const [i, [x, y]] of points.entries()) {
    assert.ok(isClose(x, xOf(frequencies[i], 900), 0.0051));
    assert.ok(isClose(y, yOf(sum[i], 12, 240), 0.0051));
  }
});

test("the path ends below half the rate and is empty without a point", () => {
  const { sum } = settingCurve(setting({ 0: { gain_db: 6 } }), 8000, frequencies);
  const points = pointsOf(pathOf(frequencies, sum, size));
  const count = frequencies.filter((frequency) => frequency < 4000).length;
  assert.equal(points.length, count);
  assert.ok(points.every((point) => point.every(Number.isFinite)));
  assert.equal(pathOf(frequencies, new Float64Array(600).fill(NaN), size), "");
});

test("a path is drawn again where its size or its values differ", () => {
  const { sum } = settingCurve(setting({ 0: { gain_db: 6 } }), 48000, frequencies);
  const first = pathOf(frequencies, sum, size);
  assert.equal(pathOf(frequencies, sum, { ...size }), first);
  for (const other of [
    { ...size, width: 300 },
    { ...size, height: 100 },
    { ...size, range: 30 },
  ]) {
    const path = pathOf(frequencies, sum, other);
    assert.equal(path, pathOf(frequencies, sum.slice(), other));
    assert.notEqual(path, first);
    assert.equal(pathOf(frequencies, sum, size), first);
  }
  const shifted = frequencies.map((frequency) => frequency / 2 + 10);
  assert.equal(pathOf(shifted, sum, size), pathOf(shifted, sum.slice(), size));
});
