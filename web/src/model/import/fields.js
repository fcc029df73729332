// The values of a setting as an import reads them.
import { bandCount, bandRanges } from "../equalizer.js";

/**
 * @typedef {import("../equalizer.js").Band} Band
 * @typedef {import("./numbers.js").Field} Field
 */

/** @type {Record<"frequency" | "gain" | "q" | "bandwidth" | "preamp", Field>} */
export const fields = {
  frequency: {
    name: "frequency",
    ...bandRanges.freq_hz,
    units: [
      { name: "hz", factor: 1 },
      { name: "khz", factor: 1000 },
      { name: "k", factor: 1000 },
    ],
  },
  gain: { name: "gain", ...bandRanges.gain_db, units: [{ name: "db", factor: 1 }] },
  q: { name: "q", ...bandRanges.q, units: [] },
  // In octaves. Its own limits are wider than those of Q, which is checked behind it.
  bandwidth: { name: "bandwidth", minimum: 0.001, maximum: 20, units: [{ name: "oct", factor: 1 }] },
  preamp: { name: "preamp", minimum: -60, maximum: 20, units: [{ name: "db", factor: 1 }] },
};

/** The Q of a filter without one. */
export const plainQ = 0.7071;

/** The fade of a setting without one, in milliseconds. */
export const plainFade = 20;

/** @returns {Band[]} the bands of a new record: flat, spread over the range of hearing */
export function unusedBands() {
  return Array.from({ length: bandCount }, (_, index) => ({
    type: 0,
    freq_hz: Number((20 * 1000 ** (index / (bandCount - 1))).toPrecision(6)),
    gain_db: 0,
    q: 0.707,
  }));
}
