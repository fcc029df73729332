// The pairs of a graphic equalizer's line: "GraphicEQ: 25 0; 40 -1.2; 63 -2".
import { fields } from "./fields.js";
import { splitWords } from "./lines.js";
import { readAmount } from "./numbers.js";

/**
 * @typedef {import("../types.js").Sentence} Sentence
 * @typedef {import("./lines.js").Counter} Counter
 * @typedef {{frequency: number, db: number}} Point
 *
 * @typedef {object} Pairs
 * @property {Point[]} points in the order of the line, each frequency once
 * @property {number} total
 * @property {{text: string, reason: Sentence}[]} dropped
 */

const frequencyField = { ...fields.frequency, isPair: true };

/**
 * @param {string[]} words
 * @returns {Point | {reason: Sentence}}
 */
function readPair(words) {
  const frequency = readAmount(words, 0, frequencyField);
  if ("reason" in frequency) return frequency;
  const gain = readAmount(words, frequency.next, fields.gain);
  if ("reason" in gain) return gain;
  if (gain.next < words.length)
    return { reason: { key: "import.reason.word", values: { text: words[gain.next].slice(0, 40) } } };
  if (frequency.mayBeGrouped && gain.hasComma)
    return {
      reason: {
        key: "import.reason.ambiguous",
        values: { field: { key: "import.field.frequency", values: {} }, text: words[0] },
      },
    };
  return { frequency: frequency.value, db: gain.value };
}

/**
 * @param {string} body plain, behind the colon
 * @param {Counter} counter
 * @returns {Pairs}
 */
export function readPairs(body, counter) {
  /** @type {Pairs} */
  const pairs = { points: [], total: 0, dropped: [] };
  const seen = new Set();
  const parts = body.split(";");
  counter.steps += body.length;
  for (const text of parts) {
    const words = splitWords(text, counter);
    if (words.length === 0) continue;
    ++pairs.total;
    const pair = readPair(words);
    const reason =
      "reason" in pair
        ? pair.reason
        : seen.has(pair.frequency)
          ? { key: "import.reason.frequencyTwice", values: {} }
          : undefined;
    if (reason !== undefined) {
      pairs.dropped.push({
        text,
        reason: { key: "import.reason.pair", values: { position: pairs.total, reason } },
      });
    } else if (!("reason" in pair)) {
      seen.add(pair.frequency);
      pairs.points.push(pair);
    }
  }
  return pairs;
}
