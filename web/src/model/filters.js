// The nine band types: what each does to the sound, in decibels over frequency.
//
// The types are those of the W3C note "Audio EQ Cookbook", in its form with Q. Its digital filters are bilinear
// transforms of analog prototypes, so their response at f is exactly the prototype's at s = jΩ with
// Ω = tan(πf/rate) / tan(πf0/rate). The prototype is evaluated: the digital coefficients cancel at low frequencies.

/**
 * @typedef {import("./equalizer.js").Band} Band
 *
 * @typedef {[number, number, number]} Polynomial in s: the factors of s², s and 1
 *
 * @typedef {object} FilterType
 * @property {string} name its text key is `equalizer.type.NAME`
 * @property {boolean} usesGain false where the response does not depend on the band's gain
 * @property {(a: number, q: number) => {above: Polynomial, below: Polynomial}} prototype the two polynomials of the
 *   quotient H(s), for a = 10^(gain/40)
 *
 * @typedef {object} Grid frequencies at one sample rate, as the squares of sin(πf/rate) and cos(πf/rate). NaN at and
 *   above half the rate
 * @property {number} rate
 * @property {Float64Array} sines
 * @property {Float64Array} cosines
 */

/** The lowest response that is reported, in decibels: a notch or an edge of the range reaches zero. */
export const lowestDb = -200;

const lowestPower = 10 ** (lowestDb / 10);

/** @type {(q: number) => Polynomial} */
const resonance = (q) => [1, 1 / q, 1];

/**
 * The band types, by number.
 *
 * @type {readonly FilterType[]}
 */
export const filterTypes = [
  {
    name: "peaking",
    usesGain: true,
    prototype: (a, q) => ({ above: [1, a / q, 1], below: [1, 1 / (a * q), 1] }),
  },
  {
    name: "lowShelf",
    usesGain: true,
    prototype: (a, q) => ({ above: [a, (a * Math.sqrt(a)) / q, a * a], below: [a, Math.sqrt(a) / q, 1] }),
  },
  {
    name: "highShelf",
    usesGain: true,
    prototype: (a, q) => ({ above: [a * a, (a * Math.sqrt(a)) / q, a], below: [1, Math.sqrt(a) / q, a] }),
  },
  { name: "lowPass", usesGain: false, prototype: (_, q) => ({ above: [0, 0, 1], below: resonance(q) }) },
  { name: "highPass", usesGain: false, prototype: (_, q) => ({ above: [1, 0, 0], below: resonance(q) }) },
  { name: "bandPass", usesGain: false, prototype: (_, q) => ({ above: [0, 1 / q, 0], below: resonance(q) }) },
  {
    name: "bandPassSkirt",
    usesGain: false,
    prototype: (_, q) => ({ above: [0, 1, 0], below: resonance(q) }),
  },
  { name: "notch", usesGain: false, prototype: (_, q) => ({ above: [1, 0, 1], below: resonance(q) }) },
  { name: "allPass", usesGain: false, prototype: (_, q) => ({ above: [1, -1 / q, 1], below: resonance(q) }) },
];

/**
 * @param {Pick<Band, "type">} band
 * @returns {FilterType} peaking for a number that has no type
 */
export const filterTypeOf = ({ type }) => filterTypes[Math.trunc(type)] ?? filterTypes[0];

/**
 * Whether a band's frequency exists at a sample rate. A band that is not drawable has no response.
 *
 * @param {Pick<Band, "freq_hz">} band
 * @param {number} rate in hertz
 */
export const isDrawable = ({ freq_hz: frequency }, rate) => frequency < rate / 2;

/**
 * @param {Float64Array | number[]} frequencies in hertz
 * @param {number} rate in hertz
 * @returns {Grid} for `responseOn`, so that several bands share the work
 */
export function gridOf(frequencies, rate) {
  const sines = new Float64Array(frequencies.length);
  const cosines = new Float64Array(frequencies.length);
  for (let i = 0; i < frequencies.length; i++) {
    const { sine, cosine } = halfTurn(frequencies[i], rate);
    sines[i] = sine * sine;
    cosines[i] = cosine * cosine;
  }
  return { rate, sines, cosines };
}

/**
 * @param {Band} band
 * @param {Float64Array | number[]} frequencies in hertz
 * @param {number} rate in hertz
 * @returns {Float64Array} decibels at each frequency, `lowestDb` or more. NaN at and above half the rate, and
 *   everywhere for a band that is not drawable
 */
export const responseDb = (band, frequencies, rate) => responseOn(band, gridOf(frequencies, rate));

/**
 * @param {Band} band
 * @param {Grid} grid
 * @returns {Float64Array} as `responseDb`
 */
export function responseOn(band, grid) {
  const decibels = new Float64Array(grid.sines.length).fill(1);
  multiplyPowers(band, grid, decibels);
  for (let i = 0; i < decibels.length; i++) decibels[i] = 10 * Math.log10(decibels[i]);
  return decibels;
}

/**
 * Multiplies by the squared response of a band, as often as there are bands in a setting: the product neither
 * overflows nor becomes 0.
 *
 * @param {Band} band
 * @param {Grid} grid
 * @param {Float64Array} powers one for each frequency; NaN afterwards where `responseDb` is
 */
export function multiplyPowers(band, { rate, sines, cosines }, powers) {
  const { above, below } = filterTypeOf(band).prototype(10 ** (band.gain_db / 40), band.q);
  const [above2, above1, above0] = above;
  const [below2, below1, below0] = below;
  const { sine, cosine } = halfTurn(band.freq_hz, rate);
  // |c2 s² + c1 s + c0|² at s = jΩ is (c0 - c2 Ω²)² + c1² Ω². Both polynomials are multiplied by the same factor, so
  // that 1 and Ω² become `one` and `square`, which stay finite up to half the rate.
  for (let i = 0; i < powers.length; i++) {
    const one = cosines[i] * sine * sine;
    const square = sines[i] * cosine * cosine;
    const product = one * square;
    const over = (above0 * one - above2 * square) ** 2 + above1 * above1 * product;
    const under = (below0 * one - below2 * square) ** 2 + below1 * below1 * product;
    powers[i] *= Math.max(lowestPower, over / under);
  }
}

/**
 * @param {number} frequency
 * @param {number} rate
 * @returns {{sine: number, cosine: number}} of πf/rate; NaN at and above half the rate
 */
function halfTurn(frequency, rate) {
  if (!(frequency < rate / 2)) return { sine: NaN, cosine: NaN };
  // The cosine comes from the distance to half the rate, which is exact where the cosine is small.
  return {
    sine: Math.sin((Math.PI * frequency) / rate),
    cosine: Math.sin((Math.PI * (rate / 2 - frequency)) / rate),
  };
}
