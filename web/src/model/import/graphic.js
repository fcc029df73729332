// A curve given by frequency and gain pairs, fitted by peaking bands: damped least squares over the frequency, the gain
// and the Q of every band.
import { bandCount, bandRanges } from "../equalizer.js";
import { gridOf, responseOn } from "../filters.js";

/**
 * @typedef {import("../equalizer.js").Band} Band
 * @typedef {{frequency: number, db: number}} Point
 * @typedef {{bands: Band[], maximumDb: number, rmsDb: number}} Fit
 *
 * @typedef {object} Problem the fit on its grid
 * @property {number} rate in hertz
 * @property {Float64Array} frequencies in hertz
 * @property {Float64Array} warped tan(pi f / rate) of each frequency
 * @property {Float64Array} wanted decibels at each frequency
 * @property {Float64Array} lowest the lower limit of each parameter
 * @property {Float64Array} highest the upper limit of each parameter
 * @property {{rounds: number}} counter counts the steps of the fit
 *
 * @typedef {object} Linear the normal equations close to some parameters, for those that are free
 * @property {Float64Array[]} matrix its lower triangle
 * @property {Float64Array} slope the right side
 */

// Decibels for each unit of a power's natural logarithm.
const perLogPower = 10 / Math.LN10;

// Parameters of a band, in this order: ln(frequency in Hz), gain in dB, ln(Q).
const [atFrequency, atGain, atQ, perBand] = [0, 1, 2, 3];

const gridSize = 160;
const errorGridSize = 600;

// Bands stay below half the rate: at and above it there is no response.
const highestOfRate = 0.49;

// The weight of squared gains in the cost. It keeps neighbours from cancelling each other with huge gains.
const gainCost = 3e-6;

// The fit aims no further than this, in dB, so that squares of errors stay finite.
const largestTarget = 200;

// The fit adds no band for an error below this, in dB: nobody hears it.
const leastError = 0.02;

// A fit with more bands is not worth using for less than this, in dB of RMS error.
const leastBenefit = 0.005;

// Steps of a fit: of gains from flat, of each added band, of all bands at the end, and of gains after rounding.
const rounds = { gains: 6, added: 6, grown: 40, spread: 20, rounded: 4 };

/** The most steps that a fit takes, each of them of the same work at most. */
export const mostRounds =
  bandCount * rounds.added + rounds.grown + rounds.gains + rounds.spread + 3 * rounds.rounded;

/**
 * Fits a curve by 15 peaking bands. Between its points the curve is linear in decibels over log frequency; outside them
 * it is constant. The fit itself takes a bounded number of steps; only sorting and reading depend on the points.
 *
 * @param {Point[]} points at least one, in any order; frequencies above 0 Hz; the last of equal frequencies counts
 * @param {number} rate the sample rate in hertz, at least 1000
 * @param {{rounds: number}} [counter] counts the steps of the fit: at most `mostRounds`
 * @returns {Fit} bands within their ranges, by frequency, rounded as fields show them; a band that is not needed has a
 *   gain of 0 dB. The errors are those of the rounded bands, in dB, over 20 Hz to 20 kHz as far as it is below half the rate.
 */
export function fitGraphic(points, rate, counter = { rounds: 0 }) {
  const curve = sortPoints(points);
  const problem = makeProblem(curve, rate, counter);
  const frequencies = logSpaced(errorGridSize, rate);
  const grid = gridOf(frequencies, rate);
  const wanted = interpolate(curve, frequencies);
  const fits = [growBands(problem), ...moveSpreadBands(problem)].map((bands) => ({
    bands,
    ...errorsOf(bands, wanted, grid),
  }));
  // The first needs the fewest bands; another has to be clearly better.
  return fits.reduce((best, fit) => (fit.rmsDb < best.rmsDb - leastBenefit ? fit : best));
}

// ---- the wanted curve ----

/** @param {Point[]} points */
function sortPoints(points) {
  const byFrequency = new Map(points.map((point) => [point.frequency, point.db]));
  return [...byFrequency]
    .map(([frequency, db]) => ({ frequency, db }))
    .sort((one, other) => one.frequency - other.frequency);
}

/**
 * @param {Point[]} curve by frequency
 * @param {Float64Array} frequencies ascending
 */
function interpolate(curve, frequencies) {
  let next = 0;
  return frequencies.map((frequency) => {
    while (next < curve.length && curve[next].frequency <= frequency) ++next;
    if (next === 0) return curve[0].db;
    if (next === curve.length) return curve[next - 1].db;
    const [from, to] = [curve[next - 1], curve[next]];
    const part = Math.log(frequency / from.frequency) / Math.log(to.frequency / from.frequency);
    return from.db * (1 - part) + to.db * part;
  });
}

/**
 * @param {number} count
 * @param {number} rate
 * @returns {Float64Array} log spaced from 20 Hz to 20 kHz, as far as they are below half the rate
 */
function logSpaced(count, rate) {
  const { minimum, maximum } = bandRanges.freq_hz;
  const step = Math.log(maximum / minimum) / (count - 1);
  return Float64Array.from({ length: count }, (_, index) => minimum * Math.exp(index * step)).filter(
    (frequency) => frequency < rate / 2,
  );
}

/** @param {Float64Array} errors */
function rootMeanSquare(errors) {
  const largest = errors.reduce((most, error) => Math.max(most, Math.abs(error)), 0);
  if (largest === 0) return 0;
  // Scaled, as squares of huge errors overflow.
  const sum = errors.reduce((total, error) => total + (error / largest) ** 2, 0);
  return largest * Math.sqrt(sum / errors.length);
}

/**
 * @param {Band[]} bands
 * @param {Float64Array} wanted
 * @param {import("../filters.js").Grid} grid
 */
function errorsOf(bands, wanted, grid) {
  const errors = Float64Array.from(wanted);
  for (const band of bands.filter(({ gain_db: gain }) => gain !== 0)) {
    const response = responseOn(band, grid);
    for (let at = 0; at < errors.length; ++at) errors[at] -= response[at];
  }
  const maximumDb = errors.reduce((most, error) => Math.max(most, Math.abs(error)), 0);
  return { maximumDb, rmsDb: rootMeanSquare(errors) };
}

// ---- parameters ----

/**
 * @param {Point[]} curve
 * @param {number} rate
 * @param {{rounds: number}} counter
 * @returns {Problem}
 */
function makeProblem(curve, rate, counter) {
  const { freq_hz: frequency, gain_db: gain, q } = bandRanges;
  const frequencies = logSpaced(gridSize, rate);
  const top = Math.min(frequency.maximum, rate * highestOfRate);
  /** @param {number[]} values */
  const forEachBand = (values) => Float64Array.from(Array.from({ length: bandCount }, () => values).flat());
  return {
    rate,
    frequencies,
    warped: frequencies.map((one) => Math.tan((Math.PI * one) / rate)),
    wanted: interpolate(curve, frequencies).map((db) => clamp(db, -largestTarget, largestTarget)),
    lowest: forEachBand([Math.log(frequency.minimum), gain.minimum, Math.log(q.minimum)]),
    highest: forEachBand([Math.log(top), gain.maximum, Math.log(q.maximum)]),
    counter,
  };
}

/**
 * @param {number} value
 * @param {number} minimum
 * @param {number} maximum
 */
const clamp = (value, minimum, maximum) => Math.min(Math.max(value, minimum), maximum);

/**
 * @param {Problem} problem
 * @param {number} q
 * @returns {Float64Array} flat bands, spread evenly over log frequency
 */
function spread({ lowest, highest }, q) {
  const parameters = new Float64Array(bandCount * perBand);
  const step = (highest[atFrequency] - lowest[atFrequency]) / bandCount;
  for (let band = 0; band < bandCount; ++band) {
    parameters[band * perBand + atFrequency] = lowest[atFrequency] + (band + 0.5) * step;
    parameters[band * perBand + atQ] = Math.log(q);
  }
  return parameters;
}

const allBands = Array.from({ length: bandCount }, (_, band) => band);

/** @param {number[]} bands */
const gainsOf = (bands) => bands.map((band) => band * perBand + atGain);

/** @param {number[]} bands */
const allOf = (bands) =>
  bands.flatMap((band) => [atFrequency, atGain, atQ].map((parameter) => band * perBand + parameter));

/**
 * Rounds to 0.1 Hz below 1 kHz, else 1 Hz, and to 0.01 dB and 0.01 Q. The limits of the ranges are such values.
 *
 * @param {Float64Array} parameters
 * @returns {Band[]} by frequency
 */
function toBands(parameters) {
  /**
   * @param {number} value
   * @param {number} parts of one
   */
  const round = (value, parts) => Math.round(value * parts) / parts || 0;
  const bands = allBands.map((band) => {
    const [frequency, gain, q] = parameters.subarray(band * perBand, (band + 1) * perBand);
    const hertz = Math.exp(frequency);
    return {
      type: 0,
      freq_hz: round(hertz, hertz < 1000 ? 10 : 1),
      gain_db: round(gain, 100),
      q: round(Math.exp(q), 100),
    };
  });
  return bands.sort((one, other) => one.freq_hz - other.freq_hz);
}

/** @param {Band[]} bands */
const toParameters = (bands) =>
  Float64Array.from(bands.flatMap(({ freq_hz: f, gain_db: gain, q }) => [Math.log(f), gain, Math.log(q)]));

/**
 * Rounds the bands and fits the gains once more, as rounded frequencies and Q want slightly other ones.
 *
 * @param {Problem} problem
 * @param {Float64Array} parameters
 */
function settle(problem, parameters) {
  const rounded = toBands(parameters);
  const used = allBands.filter((band) => rounded[band].gain_db !== 0);
  return toBands(refine(problem, toParameters(rounded), gainsOf(used), rounds.rounded));
}

// ---- the response of the bands, and its derivatives ----

/**
 * With u = w - 1/w, where w is the frequency relative to the band's after the bilinear warp, a peaking band has
 * |H|^2 = (u^2 + n) / (u^2 + d), n = (A/Q)^2, d = 1/(A Q)^2, A = 10^(gain/40).
 *
 * @param {Float64Array} parameters
 * @param {number} band
 * @param {number} rate
 */
function shapeOf(parameters, band, rate) {
  const [frequency, gain, q] = parameters.subarray(band * perBand, (band + 1) * perBand);
  const angle = (Math.PI * Math.exp(frequency)) / rate;
  const square = 10 ** (gain / 20);
  const narrow = Math.exp(-2 * q);
  return {
    tangent: Math.tan(angle),
    n: square * narrow,
    d: narrow / square,
    // -d(ln w) / d(ln frequency)
    warp: (2 * angle) / Math.sin(2 * angle),
  };
}

/**
 * @param {Problem} problem
 * @param {Float64Array} parameters
 * @returns {Float64Array} wanted minus reached, in decibels
 */
function residualOf({ warped, wanted, rate }, parameters) {
  // A product of 15 ratios stays far from the limits of a number, and needs one logarithm.
  const ratio = new Float64Array(warped.length).fill(1);
  for (const band of allBands) {
    if (parameters[band * perBand + atGain] === 0) continue;
    const { tangent, n, d } = shapeOf(parameters, band, rate);
    for (let at = 0; at < ratio.length; ++at) {
      const w = warped[at] / tangent;
      const u = w - 1 / w;
      ratio[at] *= (u * u + n) / (u * u + d);
    }
  }
  return wanted.map((db, at) => db - perLogPower * Math.log(ratio[at]));
}

/**
 * @param {Problem} problem
 * @param {Float64Array} parameters
 * @param {number} band
 * @returns {Float64Array[]} the change of the response in dB per change of ln(frequency), gain and ln(Q)
 */
function slopesOf({ warped, rate }, parameters, band) {
  const { tangent, n, d, warp } = shapeOf(parameters, band, rate);
  const slopes = Array.from({ length: perBand }, () => new Float64Array(warped.length));
  for (let at = 0; at < warped.length; ++at) {
    const w = warped[at] / tangent;
    const u = w - 1 / w;
    const above = 1 / (u * u + n);
    const below = 1 / (u * u + d);
    slopes[atFrequency][at] = -2 * perLogPower * u * (w + 1 / w) * warp * (above - below);
    slopes[atGain][at] = (n * above + d * below) / 2;
    slopes[atQ][at] = -2 * perLogPower * (n * above - d * below);
  }
  return slopes;
}

// ---- damped least squares ----

/**
 * @param {Float64Array} one
 * @param {Float64Array} other
 */
function dot(one, other) {
  let sum = 0;
  for (let at = 0; at < one.length; ++at) sum += one[at] * other[at];
  return sum;
}

/**
 * @param {Float64Array} residual
 * @param {Float64Array} parameters
 */
function costOf(residual, parameters) {
  return (
    dot(residual, residual) + gainCost * gainsOf(allBands).reduce((sum, at) => sum + parameters[at] ** 2, 0)
  );
}

/**
 * @param {Problem} problem
 * @param {Float64Array} parameters
 * @param {Float64Array} residual
 * @param {number[]} free the parameters to change
 * @returns {Linear}
 */
function linearize(problem, parameters, residual, free) {
  const bands = [...new Set(free.map((parameter) => Math.floor(parameter / perBand)))];
  const ofBand = new Map(bands.map((band) => [band, slopesOf(problem, parameters, band)]));
  const slopes = free.map(
    (at) => /** @type {Float64Array[]} */ (ofBand.get(Math.floor(at / perBand)))[at % perBand],
  );
  const matrix = slopes.map((one, row) =>
    Float64Array.from(slopes.slice(0, row + 1), (other) => dot(one, other)),
  );
  const slope = Float64Array.from(slopes, (one) => dot(one, residual));
  free.forEach((parameter, row) => {
    if (parameter % perBand !== atGain) return;
    matrix[row][row] += gainCost;
    slope[row] -= gainCost * parameters[parameter];
  });
  return { matrix, slope };
}

/**
 * Solves the damped normal equations by Cholesky's decomposition.
 *
 * @param {Linear} linear
 * @param {number} damping above 0, which keeps the matrix positive definite
 * @returns {Float64Array}
 */
function solve({ matrix, slope }, damping) {
  const lower = matrix.map((row) => Float64Array.from(row));
  const step = Float64Array.from(slope);
  for (let row = 0; row < step.length; ++row) {
    // The 1 leads a parameter without effect, such as the Q of a flat band, to a step of 0.
    lower[row][row] += damping * (lower[row][row] + 1);
    for (let column = 0; column <= row; ++column) {
      let value = lower[row][column];
      for (let k = 0; k < column; ++k) value -= lower[row][k] * lower[column][k];
      lower[row][column] = row === column ? Math.sqrt(Math.max(value, 1e-12)) : value / lower[column][column];
    }
    for (let k = 0; k < row; ++k) step[row] -= lower[row][k] * step[k];
    step[row] /= lower[row][row];
  }
  for (let row = step.length - 1; row >= 0; --row) {
    for (let k = row + 1; k < step.length; ++k) step[row] -= lower[k][row] * step[k];
    step[row] /= lower[row][row];
  }
  return step;
}

/**
 * Improves some of the parameters within their limits.
 *
 * @param {Problem} problem
 * @param {Float64Array} start
 * @param {number[]} free the parameters to change
 * @param {number} most steps to try
 * @returns {Float64Array} parameters of no higher cost
 */
function refine(problem, start, free, most) {
  let parameters = start;
  let residual = residualOf(problem, parameters);
  let cost = costOf(residual, parameters);
  let linear = linearize(problem, parameters, residual, free);
  let damping = 1e-3;
  for (let round = 0; round < most; ++round) {
    ++problem.counter.rounds;
    const tried = move(problem, parameters, free, solve(linear, damping));
    const triedResidual = residualOf(problem, tried);
    const triedCost = costOf(triedResidual, tried);
    if (!(triedCost < cost)) {
      damping *= 4;
      continue;
    }
    const isSettled = cost - triedCost < cost * 1e-4;
    [parameters, residual, cost] = [tried, triedResidual, triedCost];
    if (isSettled) break;
    linear = linearize(problem, parameters, residual, free);
    damping /= 5;
  }
  return parameters;
}

/**
 * @param {Problem} problem
 * @param {Float64Array} parameters
 * @param {number[]} free
 * @param {Float64Array} step of each free parameter
 * @returns {Float64Array} within the limits
 */
function move({ lowest, highest }, parameters, free, step) {
  const moved = Float64Array.from(parameters);
  free.forEach((at, row) => {
    moved[at] = clamp(parameters[at] + step[row], lowest[at], highest[at]);
  });
  return moved;
}

// ---- two ways to begin ----

/**
 * @param {Problem} problem
 * @returns {Band[][]} bands spread evenly with fitted gains, and the same after all their values were fitted
 */
function moveSpreadBands(problem) {
  const gains = refine(problem, spread(problem, 1.6), gainsOf(allBands), rounds.gains);
  const moved = refine(problem, gains, allOf(allBands), rounds.spread);
  return [settle(problem, gains), settle(problem, moved)];
}

/**
 * Adds a band where the error is largest, then moves all bands added so far, until the error is small or no band is
 * left. A curve made of few bands therefore needs few.
 *
 * @param {Problem} problem
 * @returns {Band[]}
 */
function growBands(problem) {
  let parameters = spread(problem, 1.41);
  const flat = new Set(allBands);
  while (flat.size > 0) {
    const added = bandForError(problem, residualOf(problem, parameters));
    if (Math.abs(added[atGain]) < leastError) break;
    const band = nearestBand(parameters, flat, added[atFrequency]);
    flat.delete(band);
    const grown = Float64Array.from(parameters);
    grown.set(added, band * perBand);
    const used = allBands.filter((one) => !flat.has(one));
    parameters = refine(problem, grown, allOf(used), rounds.added);
  }
  const used = allBands.filter((one) => !flat.has(one));
  return settle(problem, refine(problem, parameters, allOf(used), rounds.grown));
}

/**
 * @param {Float64Array} parameters
 * @param {Iterable<number>} bands
 * @param {number} frequency logarithmic
 */
function nearestBand(parameters, bands, frequency) {
  const distance = (/** @type {number} */ band) =>
    Math.abs(parameters[band * perBand + atFrequency] - frequency);
  return [...bands].reduce((nearest, band) => (distance(band) < distance(nearest) ? band : nearest));
}

/**
 * @param {Problem} problem
 * @param {Float64Array} residual
 * @returns {number[]} the parameters of a band that takes away the largest part of the error
 */
function bandForError({ frequencies, lowest, highest }, residual) {
  const { peak, from, to } = largestLobe(residual);
  const height = Math.abs(residual[peak]);
  let [left, right] = [peak, peak];
  while (left > from && Math.abs(residual[left]) > height / 2) --left;
  while (right < to - 1 && Math.abs(residual[right]) > height / 2) ++right;
  const width = Math.max(right - left, 1) * Math.log(frequencies[1] / frequencies[0]);
  const q = clamp(1 / (2 * Math.sinh(width / 2)), 0.3, 8);
  return [Math.log(frequencies[peak]), residual[peak], Math.log(q)].map((value, parameter) =>
    clamp(value, lowest[parameter], highest[parameter]),
  );
}

/**
 * @param {Float64Array} residual
 * @returns {{peak: number, from: number, to: number}} the part between two changes of sign with the most squared error
 */
function largestLobe(residual) {
  let best = { energy: -1, peak: 0, from: 0, to: 0 };
  for (let from = 0, to = 0; from < residual.length; from = to) {
    let [energy, peak] = [0, from];
    for (to = from; to < residual.length && residual[to] > 0 === residual[from] > 0; ++to) {
      energy += residual[to] ** 2;
      if (Math.abs(residual[to]) > Math.abs(residual[peak])) peak = to;
    }
    if (energy > best.energy) best = { energy, peak, from, to };
  }
  return best;
}
