// Presets: the starters, the names that a preset may have, and how one is renamed without ever being lost.
//
// A preset is a file of the service's preset folder. Windows treats two names that differ in case as one file, Linux as
// two. The page does not know which system it is on, so every plan here is safe on both.
import { asHeld, bandRanges, fadeRange, firstBands, readSetting } from "./equalizer.js";

/**
 * @typedef {import("./types.js").EqualizerDocument} Setting
 * @typedef {Setting["bands"][number]} Band
 * @typedef {import("./types.js").Sentence} Sentence
 *
 * @typedef {object} Starter a preset that comes with the page
 * @property {string} name the text key is `starter.NAME`
 * @property {Setting} setting
 *
 * @typedef {object} Step one request of a plan
 * @property {"write" | "check" | "delete"} act check: read it back and compare
 * @property {string} name
 *
 * @typedef {object} Store carries out steps; each resolves to true where the step succeeded
 * @property {(name: string) => Promise<boolean>} write
 * @property {(name: string) => Promise<boolean>} check
 * @property {(name: string) => Promise<boolean>} delete
 */

// ---- starters ----

const [peaking, lowShelf, highShelf] = [0, 1, 2];

/**
 * @param {string} name
 * @param {Record<number, Band>} used bands by index; the others are as in a new record
 * @returns {Starter}
 */
function starter(name, used) {
  const bands = firstBands().map((band, index) => used[index] ?? band);
  return { name, setting: { bypass: false, fade_ms: 20, bands } };
}

/**
 * @param {number} type
 * @param {number} frequency
 * @param {number} gain
 * @param {number} q
 * @returns {Band}
 */
const band = (type, frequency, gain, q) => ({ type, freq_hz: frequency, gain_db: gain, q });

/**
 * Few bands with moderate gains. None lifts any frequency by more than 6 dB.
 *
 * @type {readonly Starter[]}
 */
export const starters = [
  starter("flat", {}),
  // The dip behind the shelf keeps voices clear of the bass.
  starter("moreBass", { 3: band(lowShelf, 95, 5, 0.707), 5: band(peaking, 280, -1.5, 1) }),
  // Less rumble and boxiness, more of what makes consonants.
  starter("clearerVoices", {
    3: band(lowShelf, 120, -3, 0.707),
    6: band(peaking, 350, -2, 1),
    10: band(peaking, 2800, 3.5, 0.9),
  }),
  starter("softerTreble", { 11: band(peaking, 3800, -1.5, 1), 12: band(highShelf, 7000, -4, 0.707) }),
  // Bass carries through walls, and treble wakes. A little presence keeps speech intelligible at low volume.
  starter("night", {
    3: band(lowShelf, 110, -6, 0.707),
    9: band(peaking, 1800, 2, 0.8),
    13: band(highShelf, 9000, -3, 0.707),
  }),
];

/**
 * @param {string} name
 * @returns {Starter | undefined}
 */
export const starterNamed = (name) => starters.find((one) => one.name === name);

// ---- names ----

export const mostNameBytes = 64;

const outsideService = /[^ \-_a-zA-Z0-9\u0080-\u{10ffff}]|\p{Surrogate}/u;
// Controls and marks that are not seen, but turn or hide what is around them. Joiners belong to words and emoji.
const unseen =
  /(?![\u200c\u200d])[\p{Control}\p{Format}\p{Line_Separator}\p{Paragraph_Separator}\p{Surrogate}]/u;
const blankAtEnd = /^\s|\s$/u;
const device = /^(?:CON|PRN|AUX|NUL|(?:COM|LPT)[0-9\u00b9\u00b2\u00b3])$/i;

/** @param {string} name */
const bytesOf = (name) => new TextEncoder().encode(name).length;

/**
 * Whether the service accepts a name. One that it does not may still be listed, where another program has put the file
 * there. Such a name must not get into a path: "." and ".." would lead elsewhere.
 *
 * @param {string} name
 */
export function isServiceName(name) {
  const bytes = bytesOf(name);
  return bytes >= 1 && bytes <= mostNameBytes && !outsideService.test(name) && !/^ | $/.test(name);
}

/**
 * @param {string} character
 * @returns {string} the character, or its number where it is not seen
 */
function shownCharacter(character) {
  const number = /** @type {number} */ (character.codePointAt(0));
  if (!unseen.test(character)) return character;
  return `U+${number.toString(16).toUpperCase().padStart(4, "0")}`;
}

/**
 * What is wrong with a name that a person gives to a preset. The page is stricter than the service: it also refuses
 * what Windows takes for a device, and characters that are not seen.
 *
 * @param {string} name
 * @returns {Sentence | null} null: the name is fine
 */
export function nameProblem(name) {
  if (/^\s*$/u.test(name)) return { key: "preset.name.empty", values: {} };
  if (blankAtEnd.test(name)) return { key: "preset.name.blank", values: {} };
  const found = outsideService.exec(name) ?? unseen.exec(name);
  if (found !== null)
    return { key: "preset.name.character", values: { character: shownCharacter(found[0]) } };
  const bytes = bytesOf(name);
  if (bytes > mostNameBytes) return { key: "preset.name.long", values: { bytes, most: mostNameBytes } };
  if (device.test(name)) return { key: "preset.name.reserved", values: { name } };
  return null;
}

/**
 * Folds case as Windows does for file names: one UTF-16 unit at a time, and never between ASCII and other letters.
 *
 * @param {string} name
 */
function foldCase(name) {
  return Array.from({ length: name.length }, (_, index) => {
    const unit = name[index];
    const upper = unit.toUpperCase();
    const isOne = upper.length === 1 && upper < "\u0080" === unit < "\u0080";
    return isOne ? upper : unit;
  }).join("");
}

/**
 * @param {string} one
 * @param {string} other
 * @returns {boolean} whether Windows takes both names for the same file
 */
export const isSameFile = (one, other) => foldCase(one) === foldCase(other);

/**
 * @param {readonly string[]} names
 * @param {string} name
 * @returns {string | undefined} the name as it is, if it is among them, else one that differs in case only
 */
export function sameName(names, name) {
  return names.includes(name) ? name : names.find((other) => isSameFile(other, name));
}

/**
 * @param {string} text
 * @param {number} most in bytes
 * @returns {string} the start of the text, cut between characters
 */
function cutToBytes(text, most) {
  let cut = "";
  let bytes = 0;
  for (const character of text) {
    bytes += bytesOf(character);
    if (bytes > most) break;
    cut += character;
  }
  return cut.trimEnd();
}

/**
 * @param {readonly string[]} names
 * @param {string} base
 * @returns {string} the base, or the base with the first number that makes a new name of at most 64 bytes
 */
export function freeName(names, base) {
  if (sameName(names, base) === undefined && bytesOf(base) <= mostNameBytes) return base;
  for (let number = 2; ; ++number) {
    const name = `${cutToBytes(base, mostNameBytes - 1 - String(number).length)} ${number}`;
    if (sameName(names, name) === undefined) return name;
  }
}

const rightToLeft = /[\u0590-\u08ff\ufb1d-\ufdff\ufe70-\ufefc\u{10800}-\u{10fff}\u{1e800}-\u{1efff}]/u;

/**
 * A name as it may be shown within a sentence or a list: what is not seen becomes a visible sign, and a name that is
 * written from right to left cannot turn the words around it.
 *
 * @param {string} name
 */
export function shownName(name) {
  const seen = name.replace(new RegExp(unseen, "gu"), "\ufffd");
  return rightToLeft.test(seen) ? `\u2068${seen}\u2069` : seen;
}

/**
 * @param {unknown} names what the service listed
 * @param {string} language of the page, such as "zh-CN"
 * @returns {string[]} each name once, sorted as a person expects it: 2 before 10
 */
export function sortedNames(names, language) {
  const texts = Array.isArray(names) ? names.filter((name) => typeof name === "string" && name !== "") : [];
  const { compare } = new Intl.Collator(language, { numeric: true });
  // Names that the language takes for equal keep an order of their own, so that the list never moves by itself.
  return [...new Set(texts)].sort((one, other) => compare(one, other) || (one < other ? -1 : 1));
}

// ---- contents ----

const lastType = 8;

/**
 * @param {number} value
 * @param {{minimum: number, maximum: number}} range
 */
const isWithin = (value, { minimum, maximum }) => value >= minimum && value <= maximum;

/** @param {Band} band */
function isBandWithin(band) {
  const keys = /** @type {const} */ (["freq_hz", "gain_db", "q"]);
  const isType = Number.isInteger(band.type) && isWithin(band.type, { minimum: 0, maximum: lastType });
  return isType && keys.every((key) => isWithin(band[key], bandRanges[key]));
}

/**
 * The setting of a preset file, which any program may have written.
 *
 * @param {unknown} document
 * @returns {Setting | undefined} as the record would hold it; undefined where the equalizer cannot take it
 */
export function readContents(document) {
  const setting = readSetting(document);
  if (setting === undefined || !isWithin(setting.fade_ms, fadeRange)) return undefined;
  return setting.bands.every(isBandWithin) ? asHeld(setting) : undefined;
}

// The file keeps six significant digits of a 32-bit value.
const leastShare = 1e-5;

/**
 * @param {number} one
 * @param {number} other
 */
const isSameNumber = (one, other) =>
  Math.abs(one - other) <= leastShare * Math.max(Math.abs(one), Math.abs(other));

/**
 * @param {Setting} one
 * @param {Setting} other
 * @returns {boolean} whether a preset file cannot tell the two settings apart
 */
export function isSameContents(one, other) {
  if (one.bypass !== other.bypass || !isSameNumber(one.fade_ms, other.fade_ms)) return false;
  const keys = /** @type {const} */ (["type", "freq_hz", "gain_db", "q"]);
  return one.bands.every((each, index) =>
    keys.every((key) => isSameNumber(each[key], other.bands[index][key])),
  );
}

// ---- renaming ----

/**
 * The requests that rename a preset. At every point at least one whole copy exists, on Windows and on Linux.
 *
 * Names that differ in case only go through a third one: where both are one file, writing the new name would keep the
 * old one, and deleting the old name would then delete the only copy.
 *
 * @param {readonly string[]} names all presets that are listed
 * @param {string} from
 * @param {string} to
 * @returns {Step[]} empty if the names are the same
 */
export function renameSteps(names, from, to) {
  if (from === to) return [];
  /** @type {(name: string) => Step[]} */
  const copyTo = (name) => [
    { act: "write", name },
    { act: "check", name },
  ];
  if (!isSameFile(from, to)) return [...copyTo(to), { act: "delete", name: from }];
  const third = freeName([...names, from, to], to);
  return [...copyTo(third), { act: "delete", name: from }, ...copyTo(to), { act: "delete", name: third }];
}

/**
 * The names under which the preset is whole after some steps. A copy counts from the time it has been read back.
 *
 * @param {string} from
 * @param {readonly Step[]} done
 * @returns {string[]}
 */
export function copiesAfter(from, done) {
  const copies = new Set([from]);
  for (const { act, name } of done) {
    if (act === "check") copies.add(name);
    if (act === "delete") copies.delete(name);
  }
  return [...copies];
}

/**
 * Takes one step after the other until one fails.
 *
 * @param {readonly Step[]} steps
 * @param {Store} store
 * @returns {Promise<Step[]>} the steps that succeeded
 */
export async function takeSteps(steps, store) {
  /** @type {Step[]} */
  const done = [];
  for (const step of steps) {
    if (!(await store[step.act](step.name))) break;
    done.push(step);
  }
  return done;
}
