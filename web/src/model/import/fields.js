// The values of a setting as an import reads them.
import { bandRanges } from "../equalizer.js";

/**
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
