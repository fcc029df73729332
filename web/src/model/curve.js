// The response curve of a setting: its values, its highest point, its level, and where to draw it.
import { bandCount, bandRanges, isBandUsed } from "./equalizer.js";
import { filterTypeOf, gridOf, isDrawable, multiplyPowers, responseOn } from "./filters.js";

/**
 * @typedef {import("./equalizer.js").Setting} Setting
 * @typedef {import("./equalizer.js").Band} Band
 *
 * @typedef {object} Curve decibels at each frequency, NaN at and above half the sample rate. Callers leave the arrays
 *   unchanged: equal bands share them from one curve to the next
 * @property {Float64Array} sum
 * @property {(Float64Array | null)[]} bands null: the band is not in use, or at or above half the rate
 *
 * @typedef {object} Size of the drawing
 * @property {number} width
 * @property {number} height
 * @property {number} range decibels from the middle to the upper edge
 */

const { minimum: lowest, maximum: highest } = bandRanges.freq_hz;

/** Half the heights of the drawing, in decibels. */
const ranges = /** @type {const} */ ([12, 18, 24, 30]);

/** Excess that a rounded sum can show where none is meant, in decibels. */
const tolerance = 0.01;

// ---- scales ----

const decades = Math.log(highest / lowest);

/**
 * @param {number} frequency in hertz
 * @param {number} width of the drawing
 * @returns {number} 0 at 20 Hz, `width` at 20000 Hz
 */
export const xOf = (frequency, width) => (width * Math.log(frequency / lowest)) / decades;

/**
 * @param {number} x
 * @param {number} width of the drawing
 * @returns {number} in hertz
 */
export const frequencyOf = (x, width) => lowest * Math.exp((x / width) * decades);

/**
 * @param {number} db
 * @param {number} range decibels from the middle to an edge
 * @param {number} height of the drawing
 * @returns {number} 0 at `range`, `height` at `-range`
 */
export const yOf = (db, range, height) => (height / 2) * (1 - db / range);

/**
 * @param {number} y
 * @param {number} range decibels from the middle to an edge
 * @param {number} height of the drawing
 * @returns {number} decibels
 */
export const dbOf = (y, range, height) => range * (1 - (2 * y) / height);

/**
 * @param {number} [count] at least 2
 * @returns {Float64Array} frequencies from 20 to 20000 Hz in equal ratios
 */
export function curveFrequencies(count = 600) {
  const frequencies = Float64Array.from({ length: count }, (_, i) => frequencyOf(i, count - 1));
  frequencies[count - 1] = highest;
  return frequencies;
}

// ---- values ----

/**
 * @param {Band} band
 * @param {number} rate
 */
const isShown = (band, rate) => isBandUsed(band) && isDrawable(band, rate);

/** How many settings with the same frequencies are drawn in turn: the present one, a ghost, a preview. */
const remembered = 4;

/**
 * @typedef {object} Memory what was computed for one array of frequencies
 * @property {import("./filters.js").Grid} grid
 * @property {{band: Band, response: Float64Array}[][]} bands by index, the last used first
 * @property {Curve[]} curves the last used first
 */

/** @type {WeakMap<Float64Array, Memory>} */
const memories = new WeakMap();

/**
 * The curve, whether or not the setting is bypassed. Only bands that differ from the last calls with the same array
 * of frequencies are computed.
 *
 * @param {Setting} setting
 * @param {number} rate in hertz
 * @param {Float64Array} frequencies in hertz
 * @returns {Curve} the same object while nothing has changed
 */
export function settingCurve(setting, rate, frequencies) {
  const memory = memoryOf(frequencies, rate);
  const bands = setting.bands.map((band, index) =>
    isShown(band, rate) ? bandResponse(memory, index, band) : null,
  );
  const isSame = (/** @type {Curve} */ curve) =>
    curve.bands.length === bands.length && curve.bands.every((response, index) => response === bands[index]);
  return recall(memory.curves, isSame, () => ({ sum: sumOf(bands, memory.grid), bands }));
}

/**
 * @param {Float64Array} frequencies
 * @param {number} rate
 */
function memoryOf(frequencies, rate) {
  const known = memories.get(frequencies);
  if (known?.grid.rate === rate) return known;
  const memory = {
    grid: gridOf(frequencies, rate),
    bands: Array.from({ length: bandCount }, () => []),
    curves: [],
  };
  memories.set(frequencies, memory);
  return memory;
}

/**
 * @param {Memory} memory
 * @param {number} index
 * @param {Band} band
 */
function bandResponse({ bands, grid }, index, { type, freq_hz: frequency, gain_db: gain, q }) {
  const isSame = (/** @type {{band: Band}} */ { band }) =>
    band.type === type && band.freq_hz === frequency && band.gain_db === gain && band.q === q;
  const band = { type, freq_hz: frequency, gain_db: gain, q };
  return recall(bands[index], isSame, () => ({ band, response: responseOn(band, grid) })).response;
}

/**
 * @template Item
 * @param {Item[]} items the last used first; at most `remembered` are kept
 * @param {(item: Item) => boolean} isSame
 * @param {() => Item} make
 * @returns {Item}
 */
function recall(items, isSame, make) {
  const found = items.findIndex(isSame);
  const item = found < 0 ? make() : items[found];
  items.splice(found < 0 ? remembered - 1 : found, 1);
  items.unshift(item);
  return item;
}

/**
 * @param {(Float64Array | null)[]} responses
 * @param {import("./filters.js").Grid} grid
 */
function sumOf(responses, { sines }) {
  const sum = new Float64Array(sines.length);
  for (let i = 0; i < sum.length; i++) if (Number.isNaN(sines[i])) sum[i] = NaN;
  for (const response of responses) {
    if (response !== null) for (let i = 0; i < sum.length; i++) sum[i] += response[i];
  }
  return sum;
}

// ---- the highest point, and the level ----

/** Distances from a resonance, in halves of its width, at which the sum is sampled. */
const distances = [0, 0.25, 0.5, 0.75, 1, 1.25, 1.5, 2, 2.5, 3, 4, 5, 6, 8, 10, 12, 16];

const evenFrequencies = curveFrequencies();

/**
 * @typedef {object} Samples
 * @property {Float64Array} frequencies ascending, all below half the rate
 * @property {Float64Array} powers the squared response of all bands together
 */

/**
 * The highest point of the curve from 20 to 20000 Hz, or to half the rate, within 0.01 dB.
 *
 * @param {Setting} setting bypassed or not
 * @param {number} rate in hertz
 * @returns {{db: number, frequency: number}}
 */
export function peakOf(setting, rate) {
  const bands = setting.bands.filter((band) => isShown(band, rate));
  const samples = samplesOf(bands, rate);
  const { frequencies, powers } = samples;
  let best = highestOf(samples);
  for (const index of summits(powers, best.power)) {
    const from = frequencies[Math.max(0, index - 1)];
    const to = frequencies[Math.min(frequencies.length - 1, index + 1)];
    const point = climb(bands, rate, from, to);
    if (point.power > best.power) best = point;
  }
  return { db: 10 * Math.log10(best.power), frequency: best.frequency };
}

/**
 * How far the loudest frequency of a full-scale sound is above full scale.
 *
 * @param {Setting} setting a bypassed one counts as flat
 * @param {number} trimDb output trim in decibels
 * @param {number} rate in hertz
 * @returns {number} decibels, 0 where nothing can clip
 */
export function clipExcess(setting, trimDb, rate) {
  const excess = trimDb + (setting.bypass ? 0 : peakOf(setting, rate).db);
  return excess < tolerance ? 0 : excess;
}

/**
 * The level that the setting gives to pink noise from 20 to 20000 Hz, or to half the rate: the mean power of the
 * response over the logarithm of frequency.
 *
 * @param {Setting} setting a bypassed one counts as flat
 * @param {number} rate in hertz
 * @returns {number} decibels, 0 for a flat setting
 */
export function levelOf(setting, rate) {
  const bands = setting.bypass ? [] : setting.bands.filter((band) => isShown(band, rate));
  const { frequencies, powers } = samplesOf(bands, rate);
  let sum = 0;
  for (let i = 1; i < powers.length; i++)
    sum += Math.log(frequencies[i] / frequencies[i - 1]) * ((powers[i] + powers[i - 1]) / 2);
  return 10 * Math.log10(sum / Math.log(frequencies[powers.length - 1] / frequencies[0]));
}

/**
 * Samples the sum evenly and around each band's resonance, which may be much narrower than the even distance.
 *
 * @param {Band[]} bands
 * @param {number} rate
 * @returns {Samples}
 */
function samplesOf(bands, rate) {
  const last = Math.min(highest, (rate / 2) * (1 - 1e-9));
  const isWithin = (/** @type {number} */ frequency) => frequency >= lowest && frequency <= last;
  const around = bands.flatMap((band) => resonanceFrequencies(band, rate));
  const all = Float64Array.from([...evenFrequencies, ...around, last].filter(isWithin)).sort();
  // Samples at the same place, but for rounding, would hide a summit next to them.
  const isNew = (/** @type {number} */ frequency, /** @type {number} */ i) =>
    i === 0 || frequency > all[i - 1] * (1 + 1e-12);
  return samplesAt(all.filter(isNew), bands, rate);
}

/**
 * @param {Float64Array} frequencies
 * @param {Band[]} bands
 * @param {number} rate
 * @returns {Samples}
 */
function samplesAt(frequencies, bands, rate) {
  const grid = gridOf(frequencies, rate);
  const powers = new Float64Array(frequencies.length).fill(1);
  for (const band of bands) multiplyPowers(band, grid, powers);
  return { frequencies, powers };
}

/**
 * @param {Band} band
 * @param {number} rate
 * @returns {number[]} frequencies around the band's resonance, closer where it is sharper
 */
function resonanceFrequencies(band, rate) {
  const [quadratic, linear, constant] = filterTypeOf(band).prototype(10 ** (band.gain_db / 40), band.q).below;
  const centre = Math.sqrt(constant / quadratic) * Math.tan((Math.PI * band.freq_hz) / rate);
  const halfWidth = linear / Math.sqrt(quadratic * constant) / 2;
  const at = (/** @type {number} */ distance) =>
    (rate / Math.PI) * Math.atan(centre * Math.exp(distance * halfWidth));
  return distances.flatMap((distance) => [at(-distance), at(distance)]);
}

/** @param {Samples} samples at least one */
function highestOf({ frequencies, powers }) {
  let best = 0;
  for (let i = 1; i < powers.length; i++) if (powers[i] > powers[best]) best = i;
  return { power: powers[best], frequency: frequencies[best] };
}

/**
 * @param {Float64Array} powers
 * @param {number} best the highest of them
 * @returns {number[]} the samples next to which the sum may be higher than `best`: not below their neighbours, within
 *   3 dB of `best`, and above the last dip by more than rounding makes of a flat part
 */
function summits(powers, best) {
  const found = [];
  let dip = 0;
  for (let i = 0; i < powers.length; i++) {
    const isSummit = powers[i] > dip * (1 + 1e-9) && powers[i] >= (powers[i + 1] ?? 0);
    if (isSummit && powers[i] > best / 2) found.push(i);
    dip = isSummit ? powers[i] : Math.min(dip, powers[i]);
  }
  return found;
}

/**
 * @param {Band[]} bands
 * @param {number} rate
 * @param {number} from
 * @param {number} to
 * @returns {{power: number, frequency: number}} the highest point in between, where there is one summit
 */
function climb(bands, rate, from, to) {
  const steps = 16;
  let point = { power: 0, frequency: from };
  for (let round = 0, low = from, high = to; round < 2; round++) {
    const step = (high - low) / steps;
    const frequencies = Float64Array.from({ length: steps + 1 }, (_, i) => low + i * step);
    point = highestOf(samplesAt(frequencies, bands, rate));
    low = Math.max(from, point.frequency - step);
    high = Math.min(to, point.frequency + step);
  }
  return point;
}

// ---- drawing ----

/**
 * The smallest range that shows the sum and the dots of the bands in use. Dips of types without a gain do not count:
 * they end at no range.
 *
 * @param {Setting} setting
 * @param {Curve} curve of the setting
 * @returns {12 | 18 | 24 | 30} decibels; 30 also where something is beyond
 */
export function axisRange(setting, { sum, bands }) {
  const gains = setting.bands.map((band) => (usesGain(band) ? Math.abs(band.gain_db) : 0));
  const bounded = bands.filter((_, index) => usesGain(setting.bands[index]));
  let reach = Math.max(...gains);
  for (let i = 0; i < sum.length; i++) {
    let dip = 0;
    for (const response of bounded) if (response !== null) dip += response[i];
    if (sum[i] > reach) reach = sum[i];
    if (-dip > reach) reach = -dip;
  }
  return ranges.find((range) => reach <= range + tolerance) ?? 30;
}

/** @param {Band} band */
const usesGain = (band) => filterTypeOf(band).usesGain;

/** @type {WeakMap<Float64Array, {frequencies: Float64Array, size: Size, path: string}>} */
const paths = new WeakMap();

/**
 * @param {Float64Array} frequencies in hertz, as many as decibels
 * @param {Float64Array} decibels of a curve; they stay unchanged, so that their path is made once
 * @param {Size} size
 * @returns {string} an SVG path through all points that have a value, also those beyond the range; "" without any
 */
export function pathOf(frequencies, decibels, size) {
  const { width, height, range } = size;
  const known = paths.get(decibels);
  const isKnown =
    known?.frequencies === frequencies &&
    known.size.width === width &&
    known.size.height === height &&
    known.size.range === range;
  if (isKnown) return known.path;
  const path = drawPath(frequencies, decibels, size);
  paths.set(decibels, { frequencies, size: { width, height, range }, path });
  return path;
}

/**
 * @param {Float64Array} frequencies
 * @param {Float64Array} decibels
 * @param {Size} size
 */
function drawPath(frequencies, decibels, { width, height, range }) {
  let path = "";
  for (let i = 0; i < decibels.length; i++) {
    if (Number.isNaN(decibels[i])) continue;
    const x = Math.round(100 * xOf(frequencies[i], width)) / 100;
    const y = Math.round(100 * yOf(decibels[i], range, height)) / 100;
    path += `${path === "" ? "M" : "L"}${x} ${y}`;
  }
  return path;
}
