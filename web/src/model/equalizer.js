// The equalizer's setting: its bands, and changes that are put onto whatever the record holds when they are sent.
import { toPlain } from "./import/lines.js";

/**
 * @typedef {import("./types.js").EqualizerDocument} Setting
 * @typedef {Setting["bands"][number]} Band
 *
 * @typedef {object} Change values to set; what it does not name stays as it is
 * @property {boolean} [bypass]
 * @property {number} [fade_ms]
 * @property {Record<number, Partial<Band>>} [bands] by index
 */

export const bandCount = 15;

export const bandRanges = {
  freq_hz: { minimum: 20, maximum: 20000 },
  gain_db: { minimum: -30, maximum: 30 },
  q: { minimum: 0.1, maximum: 18 },
};

export const fadeRange = { minimum: 1, maximum: 200 };

/**
 * @param {unknown} value
 * @returns {Setting | undefined} undefined where the value is no whole setting
 */
export function readSetting(value) {
  const setting = /** @type {Partial<Setting> | null} */ (typeof value === "object" ? value : null);
  if (setting === null || typeof setting.bypass !== "boolean" || !Number.isFinite(setting.fade_ms))
    return undefined;
  if (!Array.isArray(setting.bands) || setting.bands.length < bandCount) return undefined;
  const bands = setting.bands.slice(0, bandCount);
  const keys = /** @type {const} */ (["type", "freq_hz", "gain_db", "q"]);
  const isWhole = bands.every((band) => keys.every((key) => Number.isFinite(band?.[key])));
  return isWhole ? { bypass: setting.bypass, fade_ms: Number(setting.fade_ms), bands } : undefined;
}

/**
 * @param {Band} one
 * @param {Band} other
 */
export const isSameBand = (one, other) =>
  one.type === other.type &&
  one.freq_hz === other.freq_hz &&
  one.gain_db === other.gain_db &&
  one.q === other.q;

/**
 * @param {Setting} one
 * @param {Setting} other
 * @returns {boolean} whether the bands are alike
 */
export function haveSameBands(one, other) {
  return one.bands.every((band, index) => isSameBand(band, other.bands[index]));
}

/**
 * Whether a band changes the sound. Types that only pass a part of it do so at any gain.
 *
 * @param {Band} band
 */
export const isBandUsed = ({ type, gain_db: gain }) => type > 2 || gain !== 0;

/**
 * The next band that is not in use, going round.
 *
 * @param {Band[]} bands
 * @param {number} start where to look first
 * @returns {number} -1: all bands are in use
 */
export function nextFree(bands, start) {
  const round = bands.map((_, step) => (start + step) % bands.length);
  return round.find((index) => !isBandUsed(bands[index])) ?? -1;
}

/**
 * The band that "add" means: the chosen one while it is not in use, else the first free one.
 *
 * @param {Band[]} bands
 * @param {number} chosen
 * @returns {number} -1: all bands are in use
 */
export const bandToAdd = (bands, chosen) => (isBandUsed(bands[chosen]) ? nextFree(bands, 0) : chosen);

/** @returns {Band[]} the bands of a new record: 20 Hz to 20 kHz, evenly spaced by ear, flat */
export const firstBands = () =>
  Array.from({ length: bandCount }, (_, index) => ({
    type: 0,
    freq_hz: Number((20 * 1000 ** (index / (bandCount - 1))).toPrecision(6)),
    gain_db: 0,
    q: 0.707,
  }));

/**
 * @param {number} value
 * @returns {number} as the service answers it: a 32-bit number with six digits
 */
const heldNumber = (value) => Number(Math.fround(value).toPrecision(6));

/**
 * @param {Setting} setting
 * @returns {Setting} as the service answers it after it was sent
 */
export function asHeld({ bypass, fade_ms: fade, bands }) {
  return {
    bypass,
    fade_ms: heldNumber(Math.round(fade * 10) / 10),
    bands: bands.map(({ type, freq_hz: frequency, gain_db: gain, q }) => ({
      type,
      freq_hz: heldNumber(frequency),
      gain_db: heldNumber(gain),
      q: heldNumber(q),
    })),
  };
}

// ---- changes ----

/**
 * @param {Setting} setting
 * @param {Change} change
 * @returns {Setting}
 */
export function withChange(setting, { bypass, fade_ms: fade, bands = {} }) {
  return {
    bypass: bypass ?? setting.bypass,
    fade_ms: fade ?? setting.fade_ms,
    bands: setting.bands.map((band, index) =>
      Object.hasOwn(bands, index) ? { ...band, ...bands[index] } : band,
    ),
  };
}

/**
 * A change of bands switches an equalizer on that is off.
 *
 * @param {Setting} setting
 * @param {Change} change
 * @returns {Change}
 */
export function switchingOn(setting, change) {
  const isEdit = change.bands !== undefined && change.bypass === undefined && setting.bypass;
  return isEdit ? { ...change, bypass: false } : change;
}

/**
 * Going back is no edit: it leaves an equalizer off that is off, where the change does not say otherwise.
 *
 * @param {Setting} setting
 * @param {Change} change
 * @returns {Change}
 */
export function leavingOff(setting, change) {
  const isOpen = change.bands !== undefined && change.bypass === undefined && setting.bypass;
  return isOpen ? { ...change, bypass: true } : change;
}

/**
 * @param {Setting} setting
 * @param {Change} change
 * @returns {Change} the values that the setting has in place of those of the change
 */
export function valuesAt(setting, { bypass, fade_ms: fade, bands }) {
  /** @type {(index: string, values: Partial<Band>) => Partial<Band>} */
  const valuesOf = (index, values) =>
    Object.fromEntries(Object.entries(setting.bands[Number(index)]).filter(([key]) => key in values));
  return {
    ...(bypass !== undefined && { bypass: setting.bypass }),
    ...(fade !== undefined && { fade_ms: setting.fade_ms }),
    ...(bands !== undefined && {
      bands: Object.fromEntries(
        Object.entries(bands).map(([index, values]) => [index, valuesOf(index, values)]),
      ),
    }),
  };
}

/**
 * @param {Setting} setting
 * @returns {Change} what makes this setting of any other
 */
export function wholeChange({ bypass, fade_ms: fade, bands }) {
  return {
    bypass,
    fade_ms: fade,
    bands: Object.fromEntries(bands.map((band, index) => [index, { ...band }])),
  };
}

/**
 * @param {Setting} from
 * @param {Change} change
 * @returns {Change} what takes back those values of the change that differ
 */
export function inverseOf(from, change) {
  const keys = /** @type {const} */ (["type", "freq_hz", "gain_db", "q"]);
  /** @type {[string, Partial<Band>][]} */
  const bands = [];
  for (const [index, values] of Object.entries(change.bands ?? {})) {
    const before = from.bands[Number(index)];
    const changed = keys.filter((key) => values[key] !== undefined && values[key] !== before[key]);
    if (changed.length > 0) bands.push([index, Object.fromEntries(changed.map((key) => [key, before[key]]))]);
  }
  return {
    ...(change.bypass !== undefined && change.bypass !== from.bypass && { bypass: from.bypass }),
    ...(change.fade_ms !== undefined && change.fade_ms !== from.fade_ms && { fade_ms: from.fade_ms }),
    ...(bands.length > 0 && { bands: Object.fromEntries(bands) }),
  };
}

/** @param {Change} change */
export const isEmptyChange = ({ bypass, fade_ms: fade, bands = {} }) =>
  bypass === undefined && fade === undefined && Object.keys(bands).length === 0;

/**
 * @param {Change | null} first
 * @param {Change} second
 * @returns {Change} both; the second one wins
 */
export function mergeChanges(first, second) {
  if (first === null) return second;
  /** @type {Record<number, Partial<Band>>} */
  const bands = { ...first.bands };
  for (const [index, values] of Object.entries(second.bands ?? {})) {
    bands[Number(index)] = { ...bands[Number(index)], ...values };
  }
  const both = { ...first, ...second };
  return first.bands === undefined && second.bands === undefined ? both : { ...both, bands };
}

/**
 * Puts a change onto what the record holds when it is sent.
 *
 * @param {Setting} known what the record held when the person made the change
 * @param {Setting} present what it holds now
 * @param {Change} change
 * @returns {{setting: Setting, overtakes: number[]}} `overtakes`: the bands that another page or program has changed
 *   meanwhile and that this change sets to something else
 */
export function applyChange(known, present, change) {
  const wanted = switchingOn(present, change);
  const setting = withChange(present, wanted);
  const overtakes = Object.keys(wanted.bands ?? {})
    .map(Number)
    .filter((index) => !isSameBand(known.bands[index], present.bands[index]))
    .filter((index) => !isSameBand(setting.bands[index], present.bands[index]));
  return { setting, overtakes };
}

// ---- fields ----

/**
 * @param {number} value
 * @returns {string} with the digits that the record keeps
 */
export const digits = (value) => String(Number(value.toPrecision(6)));

/** @param {number} value */
export const hertzField = (value) => `${digits(value)} Hz`;

/** @param {number} value */
export const decibelField = (value) => `${value > 0 ? "+" : ""}${digits(value)} dB`;

/** @param {number} value */
export const millisecondField = (value) => `${digits(value)} ms`;

const number = /^\s*([+-]?)\s*(\d+(?:[.,]\d*)?|[.,]\d+)\s*(k|千)?\s*(hz|db|ms|s|%|赫兹?|分贝|毫秒|秒)?\s*$/iu;
const unitAtEnd = /(hz|db|ms|s|%)$/iu;
const chineseUnits = new Map([
  ["赫兹", "hz"],
  ["赫", "hz"],
  ["分贝", "db"],
  ["毫秒", "ms"],
  ["秒", "s"],
]);

/** A comma before three digits may separate thousands or decimals, so the number is ambiguous. */
const ambiguousComma = /^[1-9]\d{0,2},\d{3}$/u;

/**
 * Reads what a person typed: a number, with a point or a comma, perhaps with its unit in either language. Full-width
 * characters count as the usual ones. A frequency may be in thousands ("k", "千").
 *
 * @param {string} text
 * @param {string} shown the field's last value with its unit; the text may have no other unit
 * @returns {number | undefined} undefined if the text is not a number, is ambiguous, or has another unit
 */
export function parseField(text, shown) {
  // An input method in Chinese types its full stop where a decimal point is meant.
  const plain = toPlain(text, { steps: 0 }).replace(/[。｡]/u, ".");
  const [whole, sign = "", amount = "", thousands, unit] = number.exec(plain) ?? [];
  if (whole === undefined || ambiguousComma.test(amount)) return undefined;
  const own = unitAtEnd.exec(shown)?.[0].toLowerCase();
  if (unit !== undefined && (chineseUnits.get(unit) ?? unit.toLowerCase()) !== own) return undefined;
  if (thousands !== undefined && own !== "hz") return undefined;
  const value = Number(amount.replace(",", ".")) * (thousands === undefined ? 1 : 1000);
  return sign === "-" ? -value : value;
}
