// Parametric text, line by line.
import { bandCount } from "../equalizer.js";
import { fields } from "./fields.js";
import { readFilter } from "./filter_line.js";
import { readPairs } from "./graphic_line.js";
import { snippet, splitLines, splitWords, toPlain } from "./lines.js";
import { readAmount } from "./numbers.js";

/**
 * @typedef {import("../types.js").Sentence} Sentence
 * @typedef {import("../equalizer.js").Band} Band
 * @typedef {import("./lines.js").Counter} Counter
 * @typedef {import("./lines.js").Line} Line
 * @typedef {import("./graphic_line.js").Pairs} Pairs
 * @typedef {{line: number, text: string, reason: Sentence}} Dropped
 *
 * @typedef {object} Command a line with a name before its colon
 * @property {string} label its name as it is written
 * @property {string} body plain, behind the colon
 *
 * @typedef {object} Found what the lines hold
 * @property {Band[]} bands at most 15
 * @property {number} filters all of them, also those that are not taken
 * @property {number} surplus good ones behind the 15th
 * @property {number} rounded
 * @property {number} bandwidths
 * @property {{line: Line, given: number, db: number} | null} preamp the last good one; `db` in the trim's tenths
 * @property {boolean} hasPreamp any, also one that is not taken
 * @property {{line: Line, pairs: Pairs} | null} graphic the first one
 * @property {number} scoped commands that limit filters to a channel, a device or a condition
 * @property {number} commands lines with a known name
 * @property {Dropped[]} dropped in the order of their lines, but for those that a later line overtakes
 */

// Commands of such files that are known and have no counterpart here.
const scopes = new Set(["device", "channel", "stage", "if", "elseif", "else", "endif", "include"]);
const others = new Set([
  "delay",
  "copy",
  "convolution",
  "eval",
  "loudness",
  "loudnesscorrection",
  "vst",
  "crossfeed",
]);

const longestName = 40;

/** @param {string} key; @param {Sentence["values"]} [values] @returns {Sentence} */
const reasonOf = (key, values = {}) => ({ key: `import.reason.${key}`, values });
const notUnderstood = reasonOf("notUnderstood");

/**
 * @param {string} text plain
 * @returns {Command | undefined} undefined for a line without a name
 */
function readCommand(text) {
  const colon = text.slice(0, longestName).indexOf(":");
  if (colon < 1) return undefined;
  return { label: text.slice(0, colon).trim(), body: text.slice(colon + 1) };
}

/** @param {string} name; @returns {boolean} "filter", "filter 1", "filter1" */
function isFilter(name) {
  if (!name.startsWith("filter")) return false;
  const number = name.slice("filter".length).trim();
  return [...number].every((character) => character >= "0" && character <= "9");
}

/**
 * @param {Found} found
 * @param {Line} line
 * @param {Sentence} reason
 */
const drop = (found, line, reason) =>
  found.dropped.push({ line: line.number, text: snippet(line.text), reason });

/**
 * @param {Found} found
 * @param {Line} line
 * @param {string[]} words
 */
function takeFilter(found, line, words) {
  ++found.filters;
  const filter = readFilter(words);
  if ("reason" in filter) {
    drop(found, line, filter.reason);
  } else if (found.bands.length === bandCount) {
    ++found.surplus;
    drop(found, line, reasonOf("surplus"));
  } else {
    found.bands.push(filter.band);
    if (filter.isRounded) ++found.rounded;
    if (filter.hadBandwidth) ++found.bandwidths;
  }
}

/**
 * @param {Found} found
 * @param {Line} line
 * @param {string[]} words
 */
function takePreamp(found, line, words) {
  found.hasPreamp = true;
  const comment = words.findIndex((word) => word.startsWith("#"));
  const own = comment === -1 ? words : words.slice(0, comment);
  const amount = readAmount(own, 0, fields.preamp);
  if ("reason" in amount) {
    drop(found, line, amount.reason);
  } else if (amount.next < own.length) {
    drop(found, line, reasonOf("word", { text: own[amount.next].slice(0, longestName) }));
  } else {
    if (found.preamp !== null) drop(found, found.preamp.line, reasonOf("overtaken", { line: line.number }));
    found.preamp = { line, given: amount.value, db: Math.round(amount.value * 10) / 10 || 0 };
  }
}

/**
 * @param {Found} found
 * @param {Line} line
 * @param {Counter} counter
 */
function takeLine(found, line, counter) {
  const first = line.text.trimStart()[0];
  counter.steps += line.text.length + 1;
  if (first === undefined || first === "#" || first === ";") return;
  const text = toPlain(line.text, counter);
  const command = readCommand(text);
  if (command === undefined) {
    drop(found, line, notUnderstood);
    return;
  }
  const { label, body } = command;
  const name = label.toLowerCase();
  ++found.commands;
  if (isFilter(name)) takeFilter(found, line, splitWords(body, counter));
  else if (name === "preamp") takePreamp(found, line, splitWords(body, counter));
  else if (name === "graphiceq") {
    if (found.graphic === null) found.graphic = { line, pairs: readPairs(body, counter) };
    else drop(found, line, reasonOf("secondGraphic"));
  } else if (scopes.has(name) || others.has(name)) {
    if (scopes.has(name)) ++found.scoped;
    drop(found, line, reasonOf("notSupported", { text: label }));
  } else {
    --found.commands;
    drop(found, line, notUnderstood);
  }
}

/**
 * Reads the lines of parametric text. Each line that is neither blank nor a comment (#, ;) is in the result or in `dropped`.
 *
 * @param {string} text
 * @param {Counter} counter
 * @returns {Found}
 */
export function readLines(text, counter) {
  /** @type {Found} */
  const found = {
    bands: [],
    filters: 0,
    surplus: 0,
    rounded: 0,
    bandwidths: 0,
    preamp: null,
    hasPreamp: false,
    graphic: null,
    scoped: 0,
    commands: 0,
    dropped: [],
  };
  for (const line of splitLines(text, counter)) takeLine(found, line, counter);
  return found;
}
