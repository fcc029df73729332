// Numbers as people and programs of several languages write them, read without guessing; and written plainly.

/**
 * @typedef {import("../types.js").Sentence} Sentence
 *
 * @typedef {object} Unit
 * @property {string} name in small letters
 * @property {number} factor
 *
 * @typedef {object} Field
 * @property {string} name of its text
 * @property {number} minimum
 * @property {number} maximum
 * @property {Unit[]} units
 * @property {boolean} [isPair] another number follows it
 *
 * @typedef {object} Amount
 * @property {number} value in the field's own unit
 * @property {boolean} hasComma a decimal comma
 * @property {boolean} mayBeGrouped the point may part thousands, where the line has decimal commas
 * @property {number} next the place behind its words
 */

// Longer ones are no settings.
const longestNumber = 60;

/** @param {string} text; @param {number} at */
const isDigitAt = (text, at) => text[at] >= "0" && text[at] <= "9";

/** @param {string} text; @param {number} at */
function endOfDigits(text, at) {
  let end = at;
  while (isDigitAt(text, end)) ++end;
  return end;
}

/** @param {string} text; @param {number} at; @returns {number} `at` for no exponent */
function endOfExponent(text, at) {
  if (text[at] !== "e" && text[at] !== "E") return at;
  const digits = text[at + 1] === "-" || text[at + 1] === "+" ? at + 2 : at + 1;
  const end = endOfDigits(text, digits);
  return end > digits ? end : at;
}

/**
 * A number at the start of a word, with its mark and what follows it.
 *
 * @param {string} word plain
 */
export function scanNumber(word) {
  if (word.length > longestNumber) return undefined;
  const start = word[0] === "-" || word[0] === "+" ? 1 : 0;
  const point = endOfDigits(word, start);
  const mark = word[point] === "." || word[point] === "," ? word[point] : "";
  const end = mark === "" ? point : endOfDigits(word, point + 1);
  const whole = word.slice(start, point);
  const fraction = word.slice(point + 1, end);
  if (whole === "" && (mark === "" || fraction === "")) return undefined;
  const behind = endOfExponent(word, end);
  const value = Number(word.slice(0, behind).replace(",", "."));
  const isGroup = mark !== "" && whole.length <= 3 && fraction.length === 3 && whole[0] !== "0";
  return { value, mark, isGroup: isGroup && whole !== "", unit: word.slice(behind).toLowerCase() };
}

/** @param {Field} field @returns {Sentence} */
export const nameOf = ({ name }) => ({ key: `import.field.${name}`, values: {} });

/** @param {Field} field; @param {string} text @returns {Sentence} */
const noNumber = (field, text) => ({
  key: "import.reason.number",
  values: { field: nameOf(field), text: text.slice(0, longestNumber) },
});

/** @param {Field} field; @param {string} text @returns {Sentence} */
export const ambiguous = (field, text) => ({
  key: "import.reason.ambiguous",
  values: { field: nameOf(field), text: text.slice(0, longestNumber) },
});

/**
 * Reads the number of a field, and its unit in the same word or the next.
 *
 * @param {string[]} words
 * @param {number} at where the number is expected
 * @param {Field} field
 * @returns {Amount | {reason: Sentence}}
 */
export function readAmount(words, at, field) {
  const word = words[at] ?? "";
  if (word === "") return { reason: { key: "import.reason.noValue", values: { field: nameOf(field) } } };
  const number = scanNumber(word);
  if (number === undefined) return { reason: noNumber(field, word) };
  const unitOf = (/** @type {string} */ name) => field.units.find((unit) => unit.name === name);
  const own = number.unit === "" ? undefined : unitOf(number.unit);
  if (number.unit !== "" && own === undefined) return { reason: noNumber(field, word) };
  const following =
    own === undefined && (words[at + 1] ?? "").length <= 4
      ? unitOf((words[at + 1] ?? "").toLowerCase())
      : undefined;
  const unit = own ?? following ?? { name: "", factor: 1 };
  const next = following === undefined ? at + 1 : at + 2;
  // "1 000": a number behind a number.
  if (
    !field.isPair &&
    following === undefined &&
    next < words.length &&
    scanNumber(words[next]) !== undefined
  )
    return { reason: ambiguous(field, `${word} ${words[next]}`) };
  // "1,250 Hz" is 1.25 Hz or 1250 Hz; "0,707" and "1,414" of a Q can be read in one way only.
  const couldBeThousands = number.isGroup && unit.factor === 1 && field.maximum >= 1000;
  if (couldBeThousands && number.mark === ",") return { reason: ambiguous(field, word) };
  const value = number.value * unit.factor;
  if (!(value >= field.minimum && value <= field.maximum)) return { reason: outOfRange(field, word) };
  return { value, hasComma: number.mark === ",", mayBeGrouped: couldBeThousands, next };
}

/**
 * @param {Field} field
 * @param {string} text of the value
 * @returns {Sentence}
 */
export const outOfRange = (field, text) => ({
  key: "import.reason.range",
  values: {
    field: nameOf(field),
    text: text.slice(0, longestNumber),
    minimum: String(field.minimum),
    maximum: String(field.maximum),
  },
});

/**
 * @param {number} value
 * @returns {number} as the service reports it once it is set: six digits of a 32-bit number
 */
export const kept = (value) => Number(Math.fround(value).toPrecision(6)) || 0;

/**
 * @param {number} value finite
 * @returns {string} its six digits without an exponent
 */
export function plainNumber(value) {
  const text = String(kept(value));
  const [digits, exponent] = text.split("e");
  if (exponent === undefined) return text;
  const sign = digits.startsWith("-") ? "-" : "";
  const [whole, fraction = ""] = digits.replace("-", "").split(".");
  const places = Number(exponent);
  // Values that a setting holds are below 1e6, so that only small ones have an exponent.
  return `${sign}0.${"0".repeat(-places - 1)}${whole}${fraction}`;
}
