// The responses of the nine band types, against the published digital filters computed to 50 digits.
//
// VELMORA_CURVE_ROWS=20000 compares as many random rows and prints the table of errors.
import assert from "node:assert/strict";
import test from "node:test";

import {
  filterTypeOf,
  filterTypes,
  gridOf,
  isDrawable,
  lowestDb,
  multiplyPowers,
} from "../../web/src/model/filters.js";
import { responseDb, responseOn } from "../../web/src/model/filters.js";
import { en } from "../../web/src/texts/en.js";
import { cookbookResponse } from "./cookbook.mjs";

const rates = [8000, 16000, 44100, 48000, 96000, 192000];
const randomRows = Number(process.env.VELMORA_CURVE_ROWS ?? 2700);

const peaking = { type: 0, freq_hz: 1000, gain_db: 6, q: 2 };

/** @param {number} seed */
function generator(seed) {
  let state = seed;
  return () => {
    state = (Math.imul(state, 1664525) + 1013904223) >>> 0;
    return state / 2 ** 32;
  };
}

/** The highest frequency of a band or of the curve at a rate: 20 kHz, or just below half the rate. */
const topOf = (rate) => Math.min(20000, rate / 2 - 1e-9);

// Each rate has a pool of frequencies, since a sine of 50 digits takes milliseconds.
function poolOf(rate, random, count) {
  const top = topOf(rate);
  const drawn = Array.from({ length: count }, () => 20 * (top / 20) ** random());
  return [20, 20.0001, 1000, top * 0.9999, top - 0.001, top, ...drawn];
}

function* rowsOf(count, seed) {
  const random = generator(seed);
  const pick = (items) => items[Math.floor(random() * items.length)];
  const pools = new Map(rates.map((rate) => [rate, poolOf(rate, random, Math.ceil(count / 100))]));
  const near = [1, 1, 1 + 1e-9, 1 - 1e-6, 1.0001, 0.999, 1.01];
  const gains = [-30, -0.1, 0, 0.1, 30, ...Array.from({ length: 40 }, () => random() * 60 - 30)];
  const narrowest = [0.1, 0.707, 18];
  for (let i = 0; i < count; i++) {
    const rate = pick(rates);
    const centre = pick(pools.get(rate));
    const frequency = i % 5 === 0 ? Math.min(topOf(rate), centre * pick(near)) : pick(pools.get(rate));
    const q = i % 4 === 0 ? pick(narrowest) : 0.1 * 180 ** random();
    yield { band: { type: i % 9, freq_hz: centre, gain_db: pick(gains), q }, frequency, rate };
  }
}

function* edgeRows() {
  for (const rate of rates)
    for (const [type] of filterTypes.entries())
      for (const centre of [20, topOf(rate) - 1e-8, topOf(rate)])
        for (const gain of filterTypes[type].usesGain ? [-30, 30] : [0])
          for (const q of [0.1, 18])
            for (const frequency of [20, topOf(rate)])
              yield { band: { type, freq_hz: centre, gain_db: gain, q }, frequency, rate };
}

/** The deepest response counts as the floor of ours: a notch is 0 at its centre. */
function errorOf({ band, frequency, rate }) {
  const expected = cookbookResponse(band, frequency, rate);
  const [actual] = responseDb(band, [frequency], rate);
  return { expected, error: Math.abs(actual - Math.max(lowestDb, expected)) };
}

test("every type agrees with the published filters over the whole range of values", (t) => {
  const errors = filterTypes.map(() => ({
    above: /** @type {number[]} */ ([]),
    below: /** @type {number[]} */ ([]),
  }));
  for (const rows of [edgeRows(), rowsOf(randomRows, 15)])
    for (const row of rows) {
      const { expected, error } = errorOf(row);
      // The curve is good within 0.01 dB. Next to a zero rounding counts for more than elsewhere.
      const limit = expected > -120 ? 1e-6 : 1e-3;
      assert.ok(error <= limit, `${JSON.stringify(row)}: off by ${error} dB at ${expected} dB`);
      errors[row.band.type][expected > -120 ? "above" : "below"].push(error);
    }
  const show = (values, part) =>
    values.sort((a, b) => a - b)[Math.ceil(values.length * part) - 1]?.toExponential(1);
  for (const [type, { above, below }] of errors.entries()) {
    assert.ok(above.length > 100);
    const cells = [above.length, show(above, 1), show(above, 0.999), below.length, show(below, 1) ?? "none"];
    t.diagnostic(`| ${type} | ${filterTypes[type].name} | ${cells.join(" | ")} |`);
  }
});

test("the comparison has rows at 20 Hz, near half the rate, in deep notches and at each end of gain and Q", () => {
  const rows = [...edgeRows(), ...rowsOf(2700, 15)];
  const has = (isSuch) => assert.ok(rows.filter(isSuch).length >= 20, String(isSuch));
  has(({ frequency }) => frequency === 20);
  has(({ frequency, rate }) => frequency > 0.4999 * rate);
  has(({ band, rate }) => band.freq_hz > 0.4999 * rate);
  has(({ band, frequency }) => band.type === 7 && band.freq_hz === frequency);
  has(({ band, frequency }) => band.freq_hz !== frequency && Math.abs(band.freq_hz / frequency - 1) < 1e-5);
  has(({ band }) => band.gain_db === -30);
  has(({ band }) => band.gain_db === 30);
  has(({ band }) => band.q === 0.1);
  has(({ band }) => band.q === 18);
});

test("each type has the response that its name says", () => {
  const rows = /** @type {[string, number, number, number, number][]} */ ([
    // decibels far below, at, and far above 1 kHz, with a gain of 6 dB and Q 2
    ["peaking", 0, 0, 6, 0],
    ["lowShelf", 1, 6, 3, 0],
    ["highShelf", 2, 0, 3, 6],
    ["lowPass", 3, 0, 6.0206, -Infinity],
    ["highPass", 4, -Infinity, 6.0206, 0],
    ["bandPass", 5, -Infinity, 0, -Infinity],
    ["bandPassSkirt", 6, -Infinity, 6.0206, -Infinity],
    ["notch", 7, 0, -Infinity, 0],
    ["allPass", 8, 0, 0, 0],
  ]);
  assert.equal(rows.length, filterTypes.length);
  for (const [name, type, ...expected] of rows) {
    assert.equal(filterTypes[type].name, name);
    const actual = responseDb({ ...peaking, type }, [1e-6, 1000, 24000 - 1e-6], 48000);
    for (const [i, decibels] of expected.entries()) {
      if (decibels === -Infinity) assert.ok(actual[i] < -150, `${name} at ${i}: ${actual[i]}`);
      else assert.ok(Math.abs(actual[i] - decibels) < 1e-4, `${name} at ${i}: ${actual[i]}`);
    }
  }
});

test("each type has a text", () => {
  for (const { name } of filterTypes) assert.ok(`equalizer.type.${name}` in en, name);
});

test("only types that use the gain depend on it", () => {
  for (const [type, { usesGain }] of filterTypes.entries()) {
    const [one] = responseDb({ ...peaking, type }, [900], 48000);
    const [other] = responseDb({ ...peaking, type, gain_db: -6 }, [900], 48000);
    assert.equal(one !== other, usesGain, `type ${type}`);
    const [flat] = responseDb({ ...peaking, type, gain_db: 0 }, [900], 48000);
    if (usesGain) assert.ok(Math.abs(flat) < 1e-12);
  }
});

test("an all pass is flat to the last digit", () => {
  for (const q of [0.1, 0.707, 18])
    for (const decibels of responseDb({ ...peaking, type: 8, q }, [20, 999, 1000, 20000], 44100))
      assert.equal(decibels, 0);
});

test("a response of zero is -200 dB", () => {
  assert.equal(lowestDb, -200);
  assert.deepEqual([...responseDb({ ...peaking, type: 7 }, [1000], 48000)], [-200]);
  assert.deepEqual([...responseDb({ ...peaking, type: 4, q: 0.1 }, [1e-9], 48000)], [-200]);
});

test("frequencies at and above half the rate have no response", () => {
  const response = responseDb(peaking, [20, 3999.999, 4000, 4001, 8000, 20000], 8000);
  assert.deepEqual([...response].map(Number.isNaN), [false, false, true, true, true, true]);
});

test("a band at or above half the rate is not drawable and has no response", () => {
  const rows = /** @type {[number, number, boolean][]} */ ([
    [3999.99, 8000, true],
    [4000, 8000, false],
    [4001, 8000, false],
    [20000, 44100, true],
    [20000, 40000, false],
  ]);
  for (const [frequency, rate, expected] of rows) {
    const band = { ...peaking, freq_hz: frequency };
    assert.equal(isDrawable(band, rate), expected, `${frequency} at ${rate}`);
    assert.equal(Number.isFinite(responseDb(band, [1000], rate)[0]), expected);
  }
});

test("a number without a type is a peaking band", () => {
  for (const [number, name] of /** @type {[number, string][]} */ ([
    [8, "allPass"],
    [3.9, "lowPass"],
    [9, "peaking"],
    [-1, "peaking"],
    [NaN, "peaking"],
  ]))
    assert.equal(filterTypeOf({ type: number }).name, name);
});

test("a shared grid gives the same values, and powers multiply", () => {
  const frequencies = [20, 500, 1000, 3999, 5000];
  const other = { ...peaking, type: 2, freq_hz: 600 };
  const grid = gridOf(frequencies, 8000);
  const one = responseDb(peaking, Float64Array.from(frequencies), 8000);
  assert.deepEqual(responseOn(peaking, grid), one);
  const powers = new Float64Array(frequencies.length).fill(1);
  multiplyPowers(peaking, grid, powers);
  multiplyPowers(other, grid, powers);
  const expected = responseDb(other, frequencies, 8000).map((decibels, i) => decibels + one[i]);
  for (const [i, power] of powers.entries()) {
    if (i === 4) assert.ok(Number.isNaN(power) && Number.isNaN(expected[i]));
    else assert.ok(Math.abs(10 * Math.log10(power) - expected[i]) < 1e-9);
  }
});

test("the powers of 15 bands neither overflow nor become 0", () => {
  const product = (band, frequency) => {
    const powers = Float64Array.of(1);
    for (let i = 0; i < 15; i++) multiplyPowers(band, gridOf([frequency], 48000), powers);
    return powers[0];
  };
  assert.ok(product({ ...peaking, type: 7 }, 1000) > 0);
  assert.ok(product({ ...peaking, type: 4, freq_hz: 20000 }, 20) > 0);
  const loud = responseDb({ type: 1, freq_hz: 1000, gain_db: 30, q: 18 }, [420], 48000)[0];
  assert.ok(loud > 40);
  assert.ok(Number.isFinite(product({ type: 1, freq_hz: 1000, gain_db: 30, q: 18 }, 420)));
});
