// A setting from the text of a file: the own form, parametric text, or the curve of a graphic equalizer.
import { bandCount, firstBands } from "../equalizer.js";
import { plainFade } from "./fields.js";
import { fitGraphic } from "./graphic.js";
import { readJsonSetting } from "./json_setting.js";
import { readJsonText } from "./json_text.js";
import { snippet, splitLines } from "./lines.js";
import { readLines } from "./parametric.js";

/**
 * @typedef {import("../types.js").Sentence} Sentence
 * @typedef {import("../equalizer.js").Setting} Setting
 * @typedef {import("../equalizer.js").Band} Band
 * @typedef {import("./lines.js").Counter} Counter
 * @typedef {import("./parametric.js").Dropped} Dropped
 * @typedef {import("./parametric.js").Found} Found
 * @typedef {import("./graphic_line.js").Point} Point
 *
 * @typedef {object} Import
 * @property {"json" | "parametric" | "graphic" | "none"} kind none: no line is of a known form
 * @property {Setting | null} setting always within the service's rules; null where nothing is taken
 * @property {number | null} preampDb for the output trim, in steps of 0.1 dB from -60 to 20
 * @property {number} taken bands, filters or pairs
 * @property {number} total of them in the text
 * @property {Dropped[]} dropped each line that is not taken over, by its number; a line of several pairs or members may be
 *   there more than once
 * @property {Sentence[]} notes what a person should know of the setting besides
 * @property {{maximumDb: number, rmsDb: number}} [fit] how far the bands are from a graphic equalizer's curve
 *
 * @typedef {object} Options
 * @property {number} [rate] of the samples, in hertz
 * @property {(points: Point[], rate: number) => {bands: Band[], maximumDb: number, rmsDb: number}} [fit]
 */

const defaultRate = 48000;

/** @param {string} key; @param {Sentence["values"]} [values] @returns {Sentence} */
const note = (key, values = {}) => ({ key: `import.note.${key}`, values });

/** @param {string} key; @param {Sentence["values"]} [values] @returns {Sentence} */
const reasonOf = (key, values = {}) => ({ key: `import.reason.${key}`, values });

/** @param {(Sentence | false)[]} notes */
const given = (notes) => /** @type {Sentence[]} */ (notes.filter((one) => one !== false));

/** @param {Dropped[]} dropped */
const byLine = (dropped) => dropped.sort((one, other) => one.line - other.line);

/**
 * @param {Band[]} bands at most 15
 * @returns {Setting} switched on, with the other bands flat
 */
const settingOf = (bands) => ({
  bypass: false,
  fade_ms: plainFade,
  bands: [...bands, ...firstBands().slice(bands.length)],
});

/**
 * @param {string} text
 * @param {import("./json_text.js").Node} root
 * @param {Counter} counter
 * @returns {Import}
 */
function importJson(text, root, counter) {
  const { setting, taken, total, surplus, missing, rounded, dropped } = readJsonSetting(text, root, counter);
  const isUsed = setting !== null;
  const notes = given([
    surplus > 0 && note("surplus", { count: surplus }),
    isUsed && total < bandCount && note("fewerBands", { total }),
    ...missing.map((name) => isUsed && note(name === "bypass" ? "noBypass" : "noFade")),
    rounded > 0 && note("rounded", { count: rounded }),
  ]);
  return { kind: "json", setting, preampDb: null, taken, total, dropped: byLine(dropped), notes };
}

/**
 * A text that looks like JSON and is none: no line of it is taken.
 *
 * @param {string} text
 * @param {number} errorLine
 * @param {Counter} counter
 * @returns {Import}
 */
function refuseJson(text, errorLine, counter) {
  const lines = splitLines(text, counter).filter((line) => line.text.trim() !== "");
  // A document that is cut off ends behind its last line.
  const wrong = lines.findLast(({ number }) => number <= errorLine) ?? lines[0];
  const notRead = reasonOf("jsonNotRead", { line: wrong.number });
  const dropped = lines.map((line) => ({
    line: line.number,
    text: snippet(line.text),
    reason: line === wrong ? reasonOf("json") : notRead,
  }));
  counter.steps += text.length;
  return { kind: "json", setting: null, preampDb: null, taken: 0, total: 0, dropped, notes: [] };
}

/**
 * @param {Found} found
 * @returns {Sentence[]}
 */
function preampNotes({ preamp, dropped }) {
  if (preamp === null) return [];
  const isTwice = dropped.some(({ reason }) => reason.key === "import.reason.overtaken");
  return given([
    isTwice && note("preampTwice", { line: preamp.line.number }),
    preamp.db !== preamp.given && note("preampRounded", { value: preamp.db }),
  ]);
}

/**
 * @param {Found} found
 * @returns {Import}
 */
function importFilters(found) {
  const { bands, filters, surplus, rounded, bandwidths, preamp, scoped, graphic, dropped } = found;
  if (graphic !== null) {
    const { line } = graphic;
    dropped.push({ line: line.number, text: snippet(line.text), reason: reasonOf("graphicBesideFilters") });
  }
  const notes = given([
    surplus > 0 && note("surplus", { count: surplus }),
    graphic !== null && note("filtersNotGraphic"),
    scoped > 0 && note("scoped"),
    bandwidths > 0 && note("bandwidth", { count: bandwidths }),
    rounded > 0 && note("rounded", { count: rounded }),
    ...preampNotes(found),
  ]);
  return {
    kind: "parametric",
    setting: bands.length > 0 ? settingOf(bands) : null,
    preampDb: preamp?.db ?? null,
    taken: bands.length,
    total: filters,
    dropped: byLine(dropped),
    notes,
  };
}

/**
 * @param {Found} found
 * @param {NonNullable<Found["graphic"]>} graphic
 * @param {Required<Options>} options
 * @returns {Import}
 */
function importGraphic(found, { line, pairs }, { rate, fit }) {
  const { points, total } = pairs;
  const { preamp, scoped, dropped } = found;
  if (total === 0) dropped.push({ line: line.number, text: snippet(line.text), reason: reasonOf("noPairs") });
  for (const { text, reason } of pairs.dropped)
    dropped.push({ line: line.number, text: snippet(text), reason });
  /** @type {Import} */
  const result = {
    kind: "graphic",
    setting: null,
    preampDb: preamp?.db ?? null,
    taken: points.length,
    total,
    dropped: byLine(dropped),
    notes: given([scoped > 0 && note("scoped"), ...preampNotes(found)]),
  };
  if (points.length === 0) return result;
  const { bands, maximumDb, rmsDb } = fit(points, rate);
  return { ...result, setting: settingOf(bands), fit: { maximumDb, rmsDb } };
}

/**
 * @param {Found} found
 * @param {Required<Options>} options
 * @returns {Import}
 */
function importLines(found, options) {
  const hasFilters = found.bands.length > 0;
  if (!hasFilters && found.graphic !== null) return importGraphic(found, found.graphic, options);
  const result = importFilters(found);
  return found.commands > 0 ? result : { ...result, kind: "none" };
}

/**
 * Reads what other equalizers export, and the own form. It never throws, never guesses, and never puts a value back into its
 * range: each line that is neither taken nor blank nor a comment is in `dropped`.
 *
 * @param {string} text
 * @param {Counter} [counter] counts the work
 * @param {Options} [options]
 * @returns {Import}
 */
export function readImport(text, counter = { steps: 0 }, { rate = defaultRate, fit = fitGraphic } = {}) {
  const first = text.trimStart()[0];
  counter.steps += text.length;
  const isJsonLike = first === "{" || first === "[";
  const json = isJsonLike ? readJsonText(text, counter) : undefined;
  if (json !== undefined && "root" in json) return importJson(text, json.root, counter);
  const found = readLines(text, counter);
  const isUsed =
    found.bands.length > 0 || found.preamp !== null || (found.graphic?.pairs.points.length ?? 0) > 0;
  if (json !== undefined && !isUsed) return refuseJson(text, json.errorLine, counter);
  return importLines(found, { rate, fit });
}
