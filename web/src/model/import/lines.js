// Lines and words of an imported text. Every function counts the characters that it looks at.

/**
 * @typedef {object} Counter
 * @property {number} steps
 *
 * @typedef {{number: number, text: string}} Line `number` counts from 1
 */

/** So much of a line is shown. */
const longestSnippet = 160;

const [lineFeed, carriageReturn] = [10, 13];

/**
 * @param {string} text with lines that end in LF, CR or CR LF
 * @param {Counter} counter
 * @returns {Line[]} without the last one if it is empty
 */
export function splitLines(text, counter) {
  /** @type {Line[]} */
  const lines = [];
  let start = 0;
  for (let at = 0; at < text.length; ++at) {
    const code = text.charCodeAt(at);
    if (code !== lineFeed && code !== carriageReturn) continue;
    lines.push({ number: lines.length + 1, text: text.slice(start, at) });
    if (code === carriageReturn && text.charCodeAt(at + 1) === lineFeed) ++at;
    start = at + 1;
  }
  if (start < text.length) lines.push({ number: lines.length + 1, text: text.slice(start) });
  counter.steps += text.length;
  return lines;
}

/**
 * @param {string} text
 * @returns {string} on one line, cut where it is long
 */
export function snippet(text) {
  const start = text.slice(0, longestSnippet).replace(/\s+/gu, " ").trim();
  return text.length > longestSnippet ? `${start}…` : start;
}

// What is written for a character in other scripts: digits, signs, separators, blanks. Marks of the writing direction
// become blanks, so that they part words and never join digits.
const plain = new Map([
  ["\u066b", "."],
  ["\u060c", ","],
  ["\u061b", ";"],
  ["\u2212", "-"],
  ["\u2013", "-"],
  ["\ufe63", "-"],
  ...[..."\u00a0\u1680\u202f\u205f\u3000\u200b\u200c\u200d\u200e\u200f\u061c\u2060\ufeff"].map(
    (blank) => /** @type {[string, string]} */ ([blank, " "]),
  ),
]);

/** First and last code of the blanks of typography, of directional marks, and the first digits of other scripts. */
const [firstBlank, lastBlank] = [0x2000, 0x200a];
const directional = [0x202a, 0x202e, 0x2066, 0x2069];
const zeros = [0x0660, 0x06f0, 0x0966];
const [firstWide, lastWide, wideOffset] = [0xff01, 0xff5e, 0xfee0];

/** @param {string} character */
function plainOf(character) {
  const known = plain.get(character);
  if (known !== undefined) return known;
  const code = character.charCodeAt(0);
  if (code >= firstWide && code <= lastWide) return String.fromCharCode(code - wideOffset);
  if (code >= firstBlank && code <= lastBlank) return " ";
  const [start, end, startIsolate, endIsolate] = directional;
  if ((code >= start && code <= end) || (code >= startIsolate && code <= endIsolate)) return " ";
  const zero = zeros.find((first) => code >= first && code <= first + 9);
  return zero === undefined ? character : String(code - zero);
}

/**
 * Digits, signs, separators and blanks of other scripts, and full-width letters, as ASCII. The length stays.
 *
 * @param {string} text
 * @param {Counter} counter
 */
export function toPlain(text, counter) {
  counter.steps += text.length;
  let first = 0;
  while (first < text.length && text.charCodeAt(first) < 0x80) ++first;
  if (first === text.length) return text;
  const characters = [text.slice(0, first)];
  for (let at = first; at < text.length; ++at) {
    const character = text[at];
    characters.push(character < "\u0080" ? character : plainOf(character));
  }
  return characters.join("");
}

const blanks = new Set([9, 11, 12, 32]);

/** @param {string} text plain; @param {number} at */
const isBlankAt = (text, at) => blanks.has(text.charCodeAt(at));

/**
 * A comma before a digit belongs to a number, as in "3,5" and ",5". Others part words, as semicolons and blanks do.
 *
 * @param {string} text plain
 * @param {number} at
 */
function isSeparatorAt(text, at) {
  const character = text[at];
  if (character !== ",") return character === ";" || isBlankAt(text, at);
  return !(text[at + 1] >= "0" && text[at + 1] <= "9");
}

/**
 * @param {string} text plain
 * @param {Counter} counter
 * @returns {string[]} what blanks and separators part
 */
export function splitWords(text, counter) {
  counter.steps += text.length;
  const words = [];
  for (let at = 0; at < text.length; ++at) {
    const start = at;
    while (at < text.length && !isSeparatorAt(text, at)) ++at;
    if (at > start) words.push(text.slice(start, at));
  }
  return words;
}
