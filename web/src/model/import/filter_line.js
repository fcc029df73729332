// One line of parametric text: "Filter 1: ON PK Fc 105 Hz Gain 3.5 dB Q 0.7".
import { fields, plainQ } from "./fields.js";
import { ambiguous, kept, nameOf, outOfRange, readAmount, scanNumber } from "./numbers.js";

/**
 * @typedef {import("../types.js").Sentence} Sentence
 * @typedef {import("../equalizer.js").Band} Band
 * @typedef {import("./numbers.js").Amount} Amount
 * @typedef {"frequency" | "gain" | "q" | "bandwidth"} FieldName
 *
 * @typedef {object} Filter
 * @property {Band} band
 * @property {boolean} isRounded a value had more digits than are kept
 * @property {boolean} hadBandwidth its Q comes from a bandwidth
 *
 * @typedef {Filter | {reason: Sentence}} FilterResult
 */

const types = new Map([
  ["PK", 0],
  ["LS", 1],
  ["LSC", 1],
  ["HS", 2],
  ["HSC", 2],
  ["LP", 3],
  ["LPQ", 3],
  ["HP", 4],
  ["HPQ", 4],
  ["BP", 5],
  ["NO", 7],
  ["AP", 8],
]);

/** Types up to this one are nothing without a gain. */
const lastGainType = 2;

/** Peaking, band pass, notch, all pass. */
const bandwidthTypes = new Set([0, 5, 7, 8]);

const labels = new Map(
  /** @type {[string, FieldName][]} */ ([
    ["FC", "frequency"],
    ["GAIN", "gain"],
    ["Q", "q"],
    ["BW", "bandwidth"],
  ]),
);

const longestWord = 40;

/**
 * @param {string} key
 * @param {string} [text]
 * @returns {{reason: Sentence}}
 */
const refuse = (key, text) => ({
  reason: {
    key: `import.reason.${key}`,
    values: text === undefined ? {} : { text: text.slice(0, longestWord) },
  },
});

/**
 * Long words are none of ours, and are not worth a copy.
 *
 * @param {string | undefined} word
 */
const upper = (word) => (word === undefined || word.length > longestWord ? "" : word.toUpperCase());

/** @param {string[]} words */
const withoutComment = (words) => {
  const comment = words.findIndex((word) => word.startsWith("#"));
  return comment === -1 ? words : words.slice(0, comment);
};

/**
 * @param {string[]} words behind the type
 * @returns {{amounts: Map<FieldName, Amount & {text: string}>} | {reason: Sentence}}
 */
function readFields(words) {
  /** @type {Map<FieldName, Amount & {text: string}>} */
  const amounts = new Map();
  for (let at = 0; at < words.length;) {
    const name = labels.get(upper(words[at]));
    if (name === undefined) {
      // "LS 12 dB": a shelf by its slope.
      const isSlope = at === 0 && scanNumber(words[at]) !== undefined;
      return isSlope ? refuse("slope") : refuse("word", words[at]);
    }
    if (amounts.has(name))
      return { reason: { key: "import.reason.twice", values: { field: nameOf(fields[name]) } } };
    const number = name === "bandwidth" && upper(words[at + 1]) === "OCT" ? at + 2 : at + 1;
    const amount = readAmount(words, number, fields[name]);
    if ("reason" in amount) return amount;
    amounts.set(name, { ...amount, text: words[number] });
    at = amount.next;
  }
  return { amounts };
}

/**
 * The Q of a bandwidth in octaves, by the relation of the analog prototype: 1/Q = 2 sinh(ln(2)/2 BW). It does not depend on
 * the sample rate.
 *
 * @param {number} octaves above 0
 */
export const qOfBandwidth = (octaves) => 1 / (2 * Math.sinh((Math.LN2 / 2) * octaves));

/**
 * @param {Map<FieldName, Amount & {text: string}>} amounts
 * @param {number} type
 * @returns {{q: number} | {reason: Sentence}}
 */
function readQ(amounts, type) {
  const [q, bandwidth] = [amounts.get("q"), amounts.get("bandwidth")];
  if (bandwidth === undefined) return { q: q?.value ?? plainQ };
  if (q !== undefined) return refuse("twoWidths");
  if (!bandwidthTypes.has(type)) return refuse("bandwidthType");
  const value = qOfBandwidth(bandwidth.value);
  if (!(value >= fields.q.minimum && value <= fields.q.maximum))
    return { reason: outOfRange(fields.q, String(kept(value))) };
  return { q: value };
}

/**
 * @param {Map<FieldName, Amount & {text: string}>} amounts
 * @returns {(Amount & {text: string}) | undefined} the frequency where the line writes decimal commas, and its point may
 *   part thousands
 */
function findDoubtful(amounts) {
  const frequency = amounts.get("frequency");
  const hasComma = [...amounts.values()].some((amount) => amount.hasComma);
  return frequency?.mayBeGrouped && hasComma ? frequency : undefined;
}

/**
 * @param {string[]} words behind the colon
 * @returns {FilterResult} never a value outside its range, and none that was guessed
 */
export function readFilter(words) {
  const [state, typeWord, ...rest] = withoutComment(words);
  if (upper(state) === "OFF") return refuse("off");
  if (upper(state) !== "ON") return refuse("state");
  if (typeWord === undefined) return refuse("noType");
  const type = types.get(upper(typeWord));
  if (type === undefined) return refuse("type", typeWord);
  const read = readFields(rest);
  if ("reason" in read) return read;
  const { amounts } = read;
  const [frequency, gain] = [amounts.get("frequency"), amounts.get("gain")];
  const missing =
    frequency === undefined ? "frequency" : gain === undefined && type <= lastGainType ? "gain" : "";
  if (frequency === undefined || missing !== "")
    return {
      reason: { key: "import.reason.missing", values: { field: nameOf(fields[missing || "frequency"]) } },
    };
  const doubtful = findDoubtful(amounts);
  if (doubtful !== undefined) return { reason: ambiguous(fields.frequency, doubtful.text) };
  const width = readQ(amounts, type);
  if ("reason" in width) return width;
  const given = { type, freq_hz: frequency.value, gain_db: gain?.value ?? 0, q: width.q };
  const band = { type, freq_hz: kept(given.freq_hz), gain_db: kept(given.gain_db), q: kept(given.q) };
  const hadBandwidth = amounts.has("bandwidth");
  const isRounded =
    band.freq_hz !== given.freq_hz || band.gain_db !== given.gain_db || (band.q !== given.q && !hadBandwidth);
  return { band, isRounded, hadBandwidth };
}
