// Curves of frequency and gain pairs, fitted by 15 peaking bands: how close the bands come, and which errors they state.
import assert from "node:assert/strict";
import test from "node:test";

import { bandCount, bandRanges } from "../../web/src/model/equalizer.js";
import { fitGraphic, mostRounds } from "../../web/src/model/import/graphic.js";

const rate = 48000;

/** @returns {() => number} 0 to below 1, the same row for the same seed */
function randomRow(seed) {
  let state = seed;
  return () => {
    state = (state + 0x6d2b79f5) | 0;
    let mixed = Math.imul(state ^ (state >>> 15), 1 | state);
    mixed = (mixed + Math.imul(mixed ^ (mixed >>> 7), 61 | mixed)) ^ mixed;
    return ((mixed ^ (mixed >>> 14)) >>> 0) / 2 ** 32;
  };
}

/** @returns {number[]} from 20 Hz to 20 kHz */
const logSpaced = (count) => Array.from({ length: count }, (_, index) => 20 * 1000 ** (index / (count - 1)));

const pointsOf = (count, curve) => logSpaced(count).map((frequency) => ({ frequency, db: curve(frequency) }));

const peak = (frequency, gain, q) => ({ type: 0, freq_hz: frequency, gain_db: gain, q });

// ---- a second evaluation: the coefficients of the biquad, at z on the unit circle ----

/** @param {number[]} value */
const power = ([real, imaginary]) => real * real + imaginary * imaginary;

function peakingDb({ freq_hz: middle, gain_db: gain, q }, frequency, atRate) {
  const amplitude = 10 ** (gain / 40);
  const center = (2 * Math.PI * middle) / atRate;
  const alpha = Math.sin(center) / (2 * q);
  const [b0, b1, b2] = [1 + alpha * amplitude, -2 * Math.cos(center), 1 - alpha * amplitude];
  const [a0, a1, a2] = [1 + alpha / amplitude, -2 * Math.cos(center), 1 - alpha / amplitude];
  const angle = (2 * Math.PI * frequency) / atRate;
  const at = (c0, c1, c2) => [
    c0 + c1 * Math.cos(angle) + c2 * Math.cos(2 * angle),
    -c1 * Math.sin(angle) - c2 * Math.sin(2 * angle),
  ];
  return 10 * Math.log10(power(at(b0, b1, b2)) / power(at(a0, a1, a2)));
}

const sumDb = (bands, frequency, atRate = rate) =>
  bands.reduce((sum, band) => sum + peakingDb(band, frequency, atRate), 0);

/** Linear over log frequency between the neighbours, found by search. */
function wantedDb(points, frequency) {
  const below = points.filter((point) => point.frequency <= frequency);
  const above = points.filter((point) => point.frequency > frequency);
  const nearest = (side, isNearer) => side.reduce((best, one) => (isNearer(one, best) ? one : best));
  const from = below.length > 0 ? nearest(below, (one, best) => one.frequency >= best.frequency) : undefined;
  const to = above.length > 0 ? nearest(above, (one, best) => one.frequency <= best.frequency) : undefined;
  if (from === undefined || to === undefined) return (from ?? to).db;
  const position = Math.log(frequency) - Math.log(from.frequency);
  const width = Math.log(to.frequency) - Math.log(from.frequency);
  return from.db + ((to.db - from.db) * position) / width;
}

function measure(points, bands, atRate = rate) {
  const frequencies = logSpaced(600).filter((frequency) => frequency < atRate / 2);
  const errors = frequencies.map(
    (frequency) => wantedDb(points, frequency) - sumDb(bands, frequency, atRate),
  );
  const squares = errors.reduce((sum, error) => sum + error * error, 0);
  return { maximumDb: Math.max(...errors.map(Math.abs)), rmsDb: Math.sqrt(squares / errors.length) };
}

function checkBands(bands, atRate = rate) {
  assert.equal(bands.length, bandCount);
  for (const band of bands) {
    assert.deepEqual(Object.keys(band).sort(), ["freq_hz", "gain_db", "q", "type"]);
    assert.equal(band.type, 0);
    for (const [key, { minimum, maximum }] of Object.entries(bandRanges))
      assert.ok(band[key] >= minimum && band[key] <= maximum, `${key} ${band[key]}`);
    assert.ok(band.freq_hz < atRate / 2);
    const parts = band.freq_hz < 1000 ? 10 : 1;
    assert.equal(band.freq_hz, Math.round(band.freq_hz * parts) / parts);
    assert.equal(band.gain_db, Math.round(band.gain_db * 100) / 100);
    assert.equal(band.q, Math.round(band.q * 100) / 100);
  }
  const frequencies = bands.map((band) => band.freq_hz);
  const sorted = [...frequencies].sort((one, other) => one - other);
  assert.deepEqual(frequencies, sorted);
}

function checkFit(points, fit, atRate = rate) {
  checkBands(fit.bands, atRate);
  const measured = measure(points, fit.bands, atRate);
  for (const key of /** @type {const} */ (["maximumDb", "rmsDb"]))
    assert.ok(Math.abs(fit[key] - measured[key]) < 1e-5, `${key}: ${fit[key]}, measured ${measured[key]}`);
}

const usedBands = ({ bands }) => bands.filter((band) => band.gain_db !== 0).length;

// ---- curves ----

/** Peaks with room between them. */
const separatePeaks = (count) =>
  Array.from({ length: count }, (_, index) =>
    peak(
      20 * 1000 ** ((index + 0.5) / count),
      (index % 2 === 0 ? 1 : -1) * (3 + ((index * 5) % 7)),
      2 + (index % 3),
    ),
  );

/** A hill of a height in dB and a width in octaves. */
const hill = (frequency, center, height, width) =>
  height * Math.exp(-((Math.log2(frequency / center) / width) ** 2));

/** A correction of headphones: more bass, a dip in the presence, narrow corrections in the treble, a slope. */
const headphones = (frequency) =>
  hill(frequency, 60, 6, 1.5) +
  hill(frequency, 200, -4, 0.8) +
  hill(frequency, 1200, 3, 0.7) +
  hill(frequency, 3000, -5, 0.5) +
  hill(frequency, 5500, 6.5, 0.3) +
  hill(frequency, 8500, -7, 0.25) +
  hill(frequency, 12000, 4, 0.3) -
  Math.log2(frequency / 1000) / 2;

/** Wide hills only, as a room or a taste asks for. */
const gentle = (frequency) =>
  hill(frequency, 90, 5, 1.2) + hill(frequency, 500, -3, 1) + hill(frequency, 2500, 2, 0.8) - 1;

test("a curve made by peaking bands is found again", () => {
  for (let count = 1; count <= bandCount; ++count) {
    const bands = separatePeaks(count);
    const points = pointsOf(600, (frequency) => sumDb(bands, frequency));
    const fit = fitGraphic(points, rate);
    checkFit(points, fit);
    assert.ok(fit.rmsDb < 0.03 && fit.maximumDb < 0.1, `${count} bands: ${fit.rmsDb}, ${fit.maximumDb}`);
    assert.equal(usedBands(fit), count);
  }
});

test("a single band comes back with its values", () => {
  for (const band of [peak(1000, 6, 1.41), peak(63.5, -12.25, 4), peak(9000, 3.5, 0.7)]) {
    const fit = fitGraphic(
      pointsOf(600, (frequency) => sumDb([band], frequency)),
      rate,
    );
    const [found] = fit.bands.filter((one) => one.gain_db !== 0);
    assert.ok(Math.abs(found.freq_hz / band.freq_hz - 1) < 0.002, `${found.freq_hz} Hz`);
    assert.ok(Math.abs(found.gain_db - band.gain_db) < 0.03, `${found.gain_db} dB`);
    assert.ok(Math.abs(found.q / band.q - 1) < 0.02, `Q ${found.q}`);
  }
});

test("typical curves are met closely", () => {
  // The limits are about twice what was measured.
  const rows = /** @type {[string, {frequency: number, db: number}[], number, number][]} */ ([
    ["headphones, 31 points", pointsOf(31, headphones), 0.12, 0.9],
    ["headphones, 127 points", pointsOf(127, headphones), 0.06, 0.3],
    ["gentle, 10 points", pointsOf(10, gentle), 0.1, 0.5],
    ["gentle, 31 points", pointsOf(31, gentle), 0.05, 0.2],
    ["gentle, 127 points", pointsOf(127, gentle), 0.04, 0.1],
    ["a slope", [20, 20000].map((frequency, index) => ({ frequency, db: 10 - 20 * index })), 0.03, 0.06],
    ["more of all", [{ frequency: 1000, db: 5 }], 0.03, 0.1],
    ["less of all", [{ frequency: 1000, db: -20 }], 0.04, 0.3],
  ]);
  for (const [name, points, rmsDb, maximumDb] of rows) {
    const fit = fitGraphic(points, rate);
    checkFit(points, fit);
    assert.ok(fit.rmsDb < rmsDb && fit.maximumDb < maximumDb, `${name}: ${fit.rmsDb}, ${fit.maximumDb}`);
  }
});

test("a flat curve needs no band", () => {
  for (const points of [[{ frequency: 1000, db: 0 }], pointsOf(31, () => 0), pointsOf(5, () => -0)]) {
    const { bands, maximumDb, rmsDb } = fitGraphic(points, rate);
    checkBands(bands);
    assert.ok(bands.every((band) => Object.is(band.gain_db, 0)));
    assert.deepEqual([maximumDb, rmsDb], [0, 0]);
  }
});

test("the order of points does not matter, and the last of equal frequencies counts", () => {
  const points = pointsOf(31, headphones);
  const expected = fitGraphic(points, rate);
  assert.deepEqual(fitGraphic([...points].reverse(), rate), expected);
  const wrong = points.map(({ frequency, db }) => ({ frequency, db: db + 7 }));
  assert.deepEqual(fitGraphic([...wrong, ...points], rate), expected);
  assert.notDeepEqual(fitGraphic([...points, ...wrong], rate), expected);
});

test("the points are left as they are", () => {
  const points = [
    { frequency: 5000, db: 3 },
    { frequency: 100, db: -3 },
    { frequency: 5000, db: 4 },
  ];
  const before = structuredClone(points);
  fitGraphic(points, rate);
  assert.deepEqual(points, before);
});

test("points outside the range of hearing shape the curve between them and the next", () => {
  const points = [
    { frequency: 2, db: -12 },
    { frequency: 200, db: 0 },
    { frequency: 40000, db: 8 },
  ];
  const fit = fitGraphic(points, rate);
  checkFit(points, fit);
  assert.ok(fit.rmsDb < 0.1, String(fit.rmsDb));
  const onlyAbove = [{ frequency: 30000, db: 4 }];
  assert.deepEqual(fitGraphic(onlyAbove, rate), fitGraphic([{ frequency: 1000, db: 4 }], rate));
});

test("gains beyond the bands' reach leave an error that is stated", () => {
  const points = [
    { frequency: 20, db: 400 },
    { frequency: 20000, db: 400 },
  ];
  const fit = fitGraphic(points, rate);
  checkFit(points, fit);
  assert.ok(fit.rmsDb > 50, String(fit.rmsDb));
  const huge = fitGraphic(
    [
      { frequency: 1e-300, db: -1e308 },
      { frequency: 1e300, db: 1e308 },
    ],
    rate,
  );
  checkBands(huge.bands);
  assert.ok(Number.isFinite(huge.rmsDb) && Number.isFinite(huge.maximumDb));
  assert.ok(huge.rmsDb <= huge.maximumDb);
  const bandsFor = (db) => fitGraphic([{ frequency: 1000, db }], rate).bands;
  assert.deepEqual(bandsFor(1e300), bandsFor(1e6));
  assert.ok(sumDb(bandsFor(1e300), 1000) > 100);
});

test("bands stay below half of a low rate", () => {
  for (const atRate of [8000, 16000, 32000, 44100, 96000, 192000]) {
    const points = pointsOf(31, headphones);
    checkFit(points, fitGraphic(points, atRate), atRate);
  }
});

// ---- random curves ----

/** Solves a small linear system by elimination with pivots. */
function solveLinear(matrix, right) {
  const rows = matrix.map((row, index) => [...row, right[index]]);
  for (let at = 0; at < rows.length; ++at) {
    const pivot = rows.slice(at).reduce((best, row) => (Math.abs(row[at]) > Math.abs(best[at]) ? row : best));
    rows.splice(rows.indexOf(pivot), 1);
    rows.splice(at, 0, pivot);
    for (const row of rows) {
      if (row === pivot) continue;
      const factor = row[at] / pivot[at];
      row.forEach((value, column) => (row[column] = value - factor * pivot[column]));
    }
  }
  return rows.map((row, at) => row[rows.length] / row[at]);
}

/** Spread bands whose gains only are fitted, by linear least squares from the response of 1 dB. */
function fitGains(points, q) {
  const frequencies = logSpaced(160);
  const centers = Array.from({ length: bandCount }, (_, band) => 20 * 1000 ** ((band + 0.5) / bandCount));
  const shapes = centers.map((center) => frequencies.map((one) => peakingDb(peak(center, 1, q), one, rate)));
  const wanted = frequencies.map((frequency) => wantedDb(points, frequency));
  const product = (one, other) => one.reduce((sum, value, at) => sum + value * other[at], 0);
  const gains = solveLinear(
    shapes.map((one) => shapes.map((other) => product(one, other))),
    shapes.map((one) => product(one, wanted)),
  );
  return centers.map((center, band) => peak(center, Math.min(Math.max(gains[band], -30), 30), q));
}

function randomPoints(random) {
  const count = 1 + Math.floor(random() ** 2 * 130);
  const span = 40 * random() ** 2;
  return Array.from({ length: count }, () => ({
    frequency: 10 * 4000 ** random(),
    db: span * (2 * random() - 1),
  }));
}

test("random curves: bands in range, true errors, no worse than fitted gains, bounded work", () => {
  const random = randomRow(15);
  for (let turn = 0; turn < 30; ++turn) {
    const points = randomPoints(random);
    const counter = { rounds: 0 };
    const fit = fitGraphic(points, rate, counter);
    checkFit(points, fit);
    const gainsOnly = Math.min(
      ...[0.8, 1.2, 1.6, 2.4].map((q) => measure(points, fitGains(points, q)).rmsDb),
    );
    assert.ok(fit.rmsDb <= gainsOnly + 0.02, `curve ${turn}: ${fit.rmsDb}, gains only ${gainsOnly}`);
    assert.ok(counter.rounds > 0 && counter.rounds <= mostRounds, `curve ${turn}: ${counter.rounds} rounds`);
  }
});

test("wild curves: in range, finite, bounded", () => {
  const random = randomRow(4);
  for (let turn = 0; turn < 12; ++turn) {
    const size = 10 ** (6 * random());
    const points = randomPoints(random).map(({ frequency, db }) => ({ frequency, db: db * size }));
    const counter = { rounds: 0 };
    const atRate = 8000 + 184000 * random();
    const fit = fitGraphic(points, atRate, counter);
    checkBands(fit.bands, atRate);
    assert.ok(Number.isFinite(fit.rmsDb) && Number.isFinite(fit.maximumDb));
    assert.ok(fit.rmsDb <= fit.maximumDb && counter.rounds <= mostRounds);
  }
});

test("many points take no more steps than few", () => {
  const counter = { rounds: 0 };
  const random = randomRow(9);
  const points = Array.from({ length: 20000 }, () => ({ frequency: 20 * 1000 ** random(), db: random() }));
  checkBands(fitGraphic(points, rate, counter).bands);
  assert.ok(counter.rounds <= mostRounds);
});

test("the same points give the same bands", () => {
  const points = randomPoints(randomRow(3));
  assert.deepEqual(fitGraphic(points, rate), fitGraphic(structuredClone(points), rate));
});
