// The digital filters of the W3C note "Audio EQ Cookbook", computed to 50 digits: what the pages' response is compared
// with. Nothing here comes from the pages' own formulas.
import { Decimal } from "decimal.js";

const Exact = Decimal.clone({ precision: 50 });
const pi = Exact.acos(-1);
const unit = new Exact(2).pow(100);

/**
 * The value of a double to its last bit: the constructor takes the shortest digits that name it, which differ.
 *
 * @param {number} value at least 2^-47, or 0
 */
const exact = (value) => new Exact(BigInt(value * 2 ** 100).toString()).div(unit);

/**
 * @typedef {import("../../web/src/model/equalizer.js").Band} Band
 * @typedef {InstanceType<typeof Exact>} Number50
 * @typedef {Record<"cosine" | "alpha" | "a" | "q", Number50>} Terms of the note; `a` is its A, `cosine` is cos(w0)
 * @typedef {Number50[]} Coefficients b0, b1, b2, a0, a1, a2
 */

/** @param {(number | Number50)[]} values */
const coefficients = (...values) => values.map((value) => new Exact(value));

/** @type {((terms: Terms) => Coefficients)[]} by type number */
const types = [
  peaking,
  (terms) => shelf(terms, -1),
  (terms) => shelf(terms, 1),
  ({ cosine: c, alpha }) => {
    const b1 = new Exact(1).sub(c);
    return coefficients(b1.div(2), b1, b1.div(2), ...resonance(c, alpha));
  },
  ({ cosine: c, alpha }) => {
    const b1 = new Exact(1).add(c);
    return coefficients(b1.div(2), b1.neg(), b1.div(2), ...resonance(c, alpha));
  },
  ({ cosine: c, alpha }) => coefficients(alpha, 0, alpha.neg(), ...resonance(c, alpha)),
  ({ cosine: c, alpha, q }) => coefficients(q.mul(alpha), 0, q.mul(alpha).neg(), ...resonance(c, alpha)),
  ({ cosine: c, alpha }) => coefficients(1, c.mul(-2), 1, ...resonance(c, alpha)),
  ({ cosine: c, alpha }) => {
    const [a0, a1, a2] = resonance(c, alpha);
    return coefficients(a2, a1, a0, a0, a1, a2);
  },
];

/**
 * @param {Number50} cosine
 * @param {Number50} alpha
 */
const resonance = (cosine, alpha) => [alpha.add(1), cosine.mul(-2), new Exact(1).sub(alpha)];

/** @param {Terms} terms */
function peaking({ cosine, alpha, a }) {
  return coefficients(...resonance(cosine, alpha.mul(a)), ...resonance(cosine, alpha.div(a)));
}

/**
 * The two shelves of the note differ in the sign of cos(w0) and of the middle factors only.
 *
 * @param {Terms} terms
 * @param {1 | -1} sign 1 for the high shelf
 */
function shelf({ cosine, alpha, a }, sign) {
  const [up, down] = [a.add(1), a.sub(1)];
  const width = a.sqrt().mul(2).mul(alpha);
  const tilt = down.mul(cosine).mul(sign);
  const [above, below] = [up.add(tilt), up.sub(tilt)];
  return coefficients(
    a.mul(above.add(width)),
    a.mul(-2 * sign).mul(down.add(up.mul(cosine).mul(sign))),
    a.mul(above.sub(width)),
    below.add(width),
    new Exact(2 * sign).mul(down.sub(up.mul(cosine).mul(sign))),
    below.sub(width),
  );
}

/**
 * @param {Band} band
 * @param {number} frequency in hertz
 * @param {number} rate in hertz
 * @returns {number} decibels, -Infinity where the response is 0
 */
export function cookbookResponse({ type, freq_hz: centre, gain_db: gain, q }, frequency, rate) {
  const { cosine, sine } = turn(centre, rate);
  const alpha = sine.div(exact(q).mul(2));
  const [b0, b1, b2, a0, a1, a2] = types[type]({ cosine, alpha, a: amplitude(gain), q: exact(q) });
  const at = turn(frequency, rate);
  const above = squared(b0, b1, b2, at);
  const below = squared(a0, a1, a2, at);
  return 10 * Math.log10(above.div(below).toNumber());
}

// Sines and powers of 50 digits take milliseconds, so that each is computed once.

/** @type {Map<number, Number50>} */
const amplitudes = new Map();

/** @param {number} gain in decibels */
function amplitude(gain) {
  const known = amplitudes.get(gain) ?? new Exact(10).pow(exact(gain).div(40));
  amplitudes.set(gain, known);
  return known;
}

/** @type {Map<string, {cosine: Number50, sine: Number50}>} */
const turns = new Map();

/**
 * @param {number} frequency
 * @param {number} rate
 */
function turn(frequency, rate) {
  const key = `${frequency} of ${rate}`;
  const w = pi.mul(2).mul(exact(frequency)).div(rate);
  const known = turns.get(key) ?? { cosine: w.cos(), sine: w.sin() };
  turns.set(key, known);
  return known;
}

/**
 * |c0 + c1 e^-jw + c2 e^-2jw|²
 *
 * @param {Number50} c0
 * @param {Number50} c1
 * @param {Number50} c2
 * @param {{cosine: Number50, sine: Number50}} at of w
 */
function squared(c0, c1, c2, { cosine, sine }) {
  const cosine2 = cosine.mul(cosine).mul(2).sub(1);
  const sine2 = cosine.mul(sine).mul(2);
  const real = c0.add(c1.mul(cosine)).add(c2.mul(cosine2));
  const imaginary = c1.mul(sine).add(c2.mul(sine2));
  return real.mul(real).add(imaginary.mul(imaginary));
}
