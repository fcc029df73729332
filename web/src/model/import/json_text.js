// JSON with the place of each value. The grammar is the strict one; the work is linear, and the depth has a limit.

/**
 * @typedef {import("./lines.js").Counter} Counter
 *
 * @typedef {object} Node
 * @property {"object" | "array" | "string" | "number" | "boolean" | "null"} kind
 * @property {number} start of its text
 * @property {number} end behind its text
 * @property {number} line counts from 1
 * @property {Member[]} members of an object, in the order of the text; empty for others
 * @property {Node[]} items of an array; empty for others
 * @property {string | number | boolean | null} value of the other kinds
 *
 * @typedef {{name: string, start: number, line: number, node: Node}} Member `start` and `line`: those of the name
 *
 * @typedef {{text: string, at: number, line: number, depth: number}} Scanner
 */

const deepest = 32;

class JsonError extends Error {}

/** @param {Scanner} scanner @returns {never} */
function fail(scanner) {
  throw new JsonError(`line ${scanner.line}`);
}

/** @param {Scanner} scanner */
function skipBlanks(scanner) {
  for (; ; ++scanner.at) {
    const character = scanner.text[scanner.at];
    if (character === "\n" || (character === "\r" && scanner.text[scanner.at + 1] !== "\n")) ++scanner.line;
    else if (character !== " " && character !== "\t" && character !== "\r") return;
  }
}

/** @param {Scanner} scanner; @param {string} character */
function take(scanner, character) {
  if (scanner.text[scanner.at] !== character) fail(scanner);
  ++scanner.at;
}

/** @param {Scanner} scanner @returns {string} */
function takeString(scanner) {
  const start = scanner.at;
  take(scanner, '"');
  for (; scanner.text[scanner.at] !== '"'; ++scanner.at) {
    const character = scanner.text[scanner.at];
    if (character === undefined || character < " ") fail(scanner);
    if (character === "\\") ++scanner.at;
  }
  ++scanner.at;
  try {
    return JSON.parse(scanner.text.slice(start, scanner.at));
  } catch {
    return fail(scanner);
  }
}

/** @param {Scanner} scanner @returns {number} */
function takeDigits(scanner) {
  const start = scanner.at;
  while (scanner.text[scanner.at] >= "0" && scanner.text[scanner.at] <= "9") ++scanner.at;
  if (scanner.at === start) fail(scanner);
  return scanner.at - start;
}

/** @param {Scanner} scanner @returns {number} */
function takeNumber(scanner) {
  const start = scanner.at;
  if (scanner.text[scanner.at] === "-") ++scanner.at;
  const isZeroFirst = scanner.text[scanner.at] === "0";
  if (takeDigits(scanner) > 1 && isZeroFirst) fail(scanner);
  if (scanner.text[scanner.at] === ".") {
    ++scanner.at;
    takeDigits(scanner);
  }
  if (scanner.text[scanner.at] === "e" || scanner.text[scanner.at] === "E") {
    ++scanner.at;
    if (scanner.text[scanner.at] === "+" || scanner.text[scanner.at] === "-") ++scanner.at;
    takeDigits(scanner);
  }
  return Number(scanner.text.slice(start, scanner.at));
}

const words = /** @type {const} */ ([
  ["true", "boolean", true],
  ["false", "boolean", false],
  ["null", "null", null],
]);

/** @param {Scanner} scanner; @param {Node} node */
function takeWord(scanner, node) {
  const word = words.find(([text]) => scanner.text.startsWith(text, scanner.at));
  if (word === undefined) return fail(scanner);
  [, node.kind, node.value] = word;
  scanner.at += word[0].length;
}

/**
 * What commas part, up to the closing bracket.
 *
 * @param {Scanner} scanner at the opening bracket
 * @param {string} closing
 * @param {() => void} takeOne
 */
function takeList(scanner, closing, takeOne) {
  if (++scanner.depth > deepest) fail(scanner);
  ++scanner.at;
  skipBlanks(scanner);
  for (let isFirst = true; scanner.text[scanner.at] !== closing; isFirst = false) {
    if (!isFirst) {
      take(scanner, ",");
      skipBlanks(scanner);
    }
    takeOne();
    skipBlanks(scanner);
  }
  ++scanner.at;
  --scanner.depth;
}

/** @param {Scanner} scanner @returns {Member} */
function takeMember(scanner) {
  const { at: start, line } = scanner;
  const name = takeString(scanner);
  skipBlanks(scanner);
  take(scanner, ":");
  skipBlanks(scanner);
  return { name, start, line, node: takeValue(scanner) };
}

/** @param {Scanner} scanner @returns {Node} */
function takeValue(scanner) {
  const { text, at: start, line } = scanner;
  /** @type {Node} */
  const node = { kind: "null", start, end: start, line, members: [], items: [], value: null };
  const first = text[start];
  if (first === "{") {
    node.kind = "object";
    takeList(scanner, "}", () => node.members.push(takeMember(scanner)));
  } else if (first === "[") {
    node.kind = "array";
    takeList(scanner, "]", () => node.items.push(takeValue(scanner)));
  } else if (first === '"') {
    node.kind = "string";
    node.value = takeString(scanner);
  } else if (first === "-" || (first >= "0" && first <= "9")) {
    node.kind = "number";
    node.value = takeNumber(scanner);
  } else takeWord(scanner, node);
  node.end = scanner.at;
  return node;
}

/**
 * @param {string} text
 * @param {Counter} counter
 * @returns {{root: Node} | {errorLine: number}} `errorLine`: where the text is no JSON, or nested too deeply
 */
export function readJsonText(text, counter) {
  /** @type {Scanner} */
  const scanner = { text, at: text.startsWith("\ufeff") ? 1 : 0, line: 1, depth: 0 };
  try {
    skipBlanks(scanner);
    const root = takeValue(scanner);
    skipBlanks(scanner);
    if (scanner.at < text.length) fail(scanner);
    return { root };
  } catch (error) {
    if (!(error instanceof JsonError)) throw error;
    return { errorLine: scanner.line };
  } finally {
    // No character is looked at again, but for those of strings and numbers.
    counter.steps += 2 * scanner.at + 1;
  }
}
