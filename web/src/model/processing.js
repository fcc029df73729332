// The algorithm's values: what a field takes, and what a reset sends. What the values do is up to the effect.
import { decibelField, digits } from "./equalizer.js";
import { flagOf, numberOf, objectOf } from "./read.js";

/**
 * @typedef {object} NumberSetting a value with a range
 * @property {string} key of the API
 * @property {string} text the key of its name in the language tables is `advanced.TEXT`
 * @property {number} minimum
 * @property {number} maximum
 * @property {number} first what a new record holds
 * @property {(value: number) => string} format
 *
 * @typedef {Record<string, number | boolean>} Values by key of the API
 */

/** The record keeps this one in steps of 1/255: three digits tell them apart. */
const stepField = (/** @type {number} */ value) => digits(Number(value.toFixed(3)));

export const fadeFirst = 20;

/** @type {Record<"trim" | "time" | "ceiling", NumberSetting>} */
export const numberSettings = {
  trim: {
    key: "output_trim_db",
    text: "outputTrim",
    minimum: -60,
    maximum: 20,
    first: 0,
    format: decibelField,
  },
  time: { key: "mask_time_alpha", text: "maskTime", minimum: 0, maximum: 0.95, first: 0, format: stepField },
  ceiling: {
    key: "limiter_ceiling_db",
    text: "limiterCeiling",
    minimum: -12,
    maximum: 0,
    first: -1,
    format: decibelField,
  },
};

/** What a new record holds. */
export const firstValues = Object.freeze(
  /** @type {Values} */ ({
    output_trim_db: 0,
    mask_time_alpha: 0,
    mask_frequency_smooth: 0,
    limiter_enabled: true,
    limiter_ceiling_db: -1,
    stereo_link: 1,
  }),
);

/**
 * @param {unknown} status the status document
 * @returns {Values} those values of the algorithm that it has
 */
export function algorithmValues(status) {
  const { footstep } = objectOf(status);
  /** @type {Values} */
  const values = {};
  for (const key of Object.keys(firstValues)) {
    const value = flagOf(objectOf(footstep)[key]) ?? numberOf(objectOf(footstep)[key]);
    if (value !== undefined) values[key] = value;
  }
  return values;
}

/**
 * @param {Values} values
 * @returns {Values} those that are not as in a new record: what takes a reset back
 */
export function changedValues(values) {
  return Object.fromEntries(Object.entries(values).filter(([key, value]) => value !== firstValues[key]));
}
