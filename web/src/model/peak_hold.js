// The peak of a meter with hold: the highest value stays for a while and then falls.

const holdMs = 1500;
/** Falls from 1 to 0 in this time. */
const fallMs = 1500;

/**
 * @typedef {{held: number, heldAt: number}} PeakHold
 */

/** @type {PeakHold} */
export const noPeak = { held: 0, heldAt: 0 };

/**
 * @param {PeakHold} hold
 * @param {unknown} peak 0 to 1; anything else counts as 0
 * @param {number} time milliseconds
 * @returns {PeakHold}
 */
export function holdPeak(hold, peak, time) {
  const value = typeof peak === "number" && peak > 0 ? Math.min(peak, 1) : 0;
  return value >= heldPeak(hold, time) ? { held: value, heldAt: time } : hold;
}

/**
 * @param {PeakHold} hold
 * @param {number} time
 * @returns {number} what to draw, 0 to 1
 */
export function heldPeak({ held, heldAt }, time) {
  const falling = Math.max(0, time - heldAt - holdMs);
  return Math.max(0, held - falling / fallMs);
}
