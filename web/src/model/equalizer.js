// The equalizer's setting: the fields of a band, and changes that keep what others have set meanwhile.

/**
 * @typedef {import("./types.js").EqualizerDocument} Setting
 * @typedef {Setting["bands"][number]} Band
 *
 * @typedef {object} Change what a person does to the setting
 * @property {boolean} [bypass]
 * @property {number} [fade_ms]
 * @property {{index: number, values: Partial<Band>}} [band]
 * @property {Setting} [whole] takes the place of everything
 */

export const bandCount = 15;

/** The names of the band types in the language tables, by number. */
export const bandTypes = [
  "peaking",
  "lowShelf",
  "highShelf",
  "lowPass",
  "highPass",
  "bandPass",
  "bandPassSkirt",
  "notch",
  "allPass",
];

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
const isSameBand = (one, other) =>
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
 * Puts a change onto the present setting. The first edit of a band switches an equalizer on that is off.
 *
 * @param {Setting} known what the person saw when they made the change
 * @param {Setting} present what the record holds by now
 * @param {Change} change
 * @returns {{setting: Setting, overtakes: number | null}} `overtakes`: the band that another one has changed meanwhile,
 *   and whose change is lost by this one
 */
export function applyChange(known, present, { bypass, fade_ms: fade, band, whole }) {
  if (whole !== undefined) return { setting: { ...whole, bypass: false }, overtakes: null };
  const bands = present.bands.map((one, index) => (index === band?.index ? { ...one, ...band.values } : one));
  const isOvertaken = band !== undefined && !isSameBand(known.bands[band.index], present.bands[band.index]);
  const setting = {
    bypass: bypass ?? (band === undefined ? present.bypass : false),
    fade_ms: fade ?? present.fade_ms,
    bands,
  };
  return { setting, overtakes: isOvertaken ? band.index : null };
}

// ---- fields ----

/**
 * @param {number} value
 * @returns {string} with the digits that the record keeps
 */
export const digits = (value) => String(Number(value.toPrecision(6)));

/** @param {number} value */
export const hertzField = (value) => `${digits(value)} Hz`;

/**
 * @param {number} value
 * @returns {string} two digits, such as "88" or "1.7k", where there is room for no more
 */
export function shortHertz(value) {
  const rounded = Number(value.toPrecision(2));
  return rounded < 1000 ? String(rounded) : `${rounded / 1000}k`;
}

/** @param {number} value */
export const decibelField = (value) => `${value > 0 ? "+" : ""}${digits(value)} dB`;

/** @param {number} value */
export const millisecondField = (value) => `${digits(value)} ms`;

const number = /^\s*([+\-−]?)\s*(\d+(?:[.,]\d*)?|[.,]\d+)\s*(k?)\s*(?:hz|db|ms|s|%)?\s*$/iu;

/**
 * Reads what a person typed: a number, with a point or a comma, perhaps with its unit, and "k" for thousands.
 *
 * @param {string} text
 * @returns {number | undefined}
 */
export function parseField(text) {
  const [whole, sign = "", amount = "", thousands = ""] = number.exec(text) ?? [];
  if (whole === undefined) return undefined;
  const value = Number(amount.replace(",", ".")) * (thousands === "" ? 1 : 1000);
  return sign === "-" || sign === "−" ? -value : value;
}
