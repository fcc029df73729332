// Two settings at one loudness: the louder one is heard with a lower output trim.

/** @typedef {{a: number, b: number}} Trims in decibels */

const lowestTrimDb = -60;

/** @param {number} value */
const tenths = (value) => Math.round(value * 10) / 10;

/**
 * @param {{a: number, b: number}} levels of the two settings, in decibels
 * @param {number} trimDb the output trim without matching
 * @returns {Trims} the output trim for each: nothing becomes louder
 */
export function matchedTrims({ a, b }, trimDb) {
  const quieter = Math.min(a, b);
  const lowered = (/** @type {number} */ level) => Math.max(lowestTrimDb, tenths(trimDb - (level - quieter)));
  return { a: lowered(a), b: lowered(b) };
}
