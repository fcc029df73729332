// The corpus of imported files, and random changes of them.
import fs from "node:fs";

const folder = new URL("corpus/", import.meta.url);

/** @returns {{name: string, bytes: Uint8Array}[]} by name */
export const readCorpus = () =>
  fs
    .readdirSync(folder)
    .sort()
    .map((name) => ({ name, bytes: new Uint8Array(fs.readFileSync(new URL(name, folder))) }));

/**
 * @param {number} seed
 * @returns {(limit: number) => number} whole numbers from 0 to below `limit`, the same for the same seed
 */
export function makeRandom(seed) {
  let state = seed >>> 0;
  return (limit) => {
    state = (state + 0x6d2b79f5) >>> 0;
    let mixed = Math.imul(state ^ (state >>> 15), state | 1);
    mixed = (mixed + Math.imul(mixed ^ (mixed >>> 7), mixed | 61)) ^ mixed;
    return ((mixed ^ (mixed >>> 14)) >>> 0) % limit;
  };
}

const inserts = [
  "99999999999999999999999",
  "1e999",
  "-1e-999",
  "0.0000000000000000000000001",
  "1,000",
  "1.000,5",
  "NaN",
  "Infinity",
  "\0",
  "\ufeff",
  "\u2028",
  "٫",
  "，",
  "{",
  "}",
  '"',
  "[",
  "]",
  ":",
  ";",
  "#",
  "\r",
  "\n",
  "\r\n",
  "\t",
  "-",
  "Gain",
  "Q 1",
  "Fc 100 Hz",
  "BW Oct 1",
  "GraphicEQ: 100 1; 200 2",
  "Preamp: -3 dB",
  "Filter: ON PK Fc 100 Hz Gain 1 dB Q 1",
  '"gain_db":-0,',
  '"bands":[',
  "🎧",
  "\ud800",
];

/**
 * @typedef {(text: string, random: (limit: number) => number, other: string) => string} Change
 *
 * @type {Change[]}
 */
const changes = [
  (text, random) => {
    const at = random(text.length + 1);
    return text.slice(0, at) + inserts[random(inserts.length)] + text.slice(at);
  },
  (text, random) => text.slice(0, random(text.length + 1)),
  (text, random) => text.slice(random(text.length + 1)),
  (text, random) => {
    const [from, to] = [random(text.length + 1), random(text.length + 1)];
    return text.slice(0, Math.min(from, to)) + text.slice(Math.max(from, to));
  },
  (text, random) => {
    const from = random(text.length + 1);
    const part = text.slice(from, from + random(60));
    return text.slice(0, from) + part.repeat(1 + random(20)) + text.slice(from);
  },
  (text, random) => {
    const lines = text.split("\n");
    const [one, other] = [random(lines.length), random(lines.length)];
    [lines[one], lines[other]] = [lines[other], lines[one]];
    return lines.join("\n");
  },
  (text, random) => {
    const lines = text.split("\n");
    lines.splice(random(lines.length), 0, lines[random(lines.length)]);
    return lines.join(["\n", "\r\n", "\r"][random(3)]);
  },
  (text, random) => text.replaceAll(".", [",", "٫", "．", ". "][random(4)]),
  (text, random) => text.replace(/\d/gu, (digit) => (random(4) === 0 ? String(random(10)) : digit)),
  (text, random) => (random(2) === 0 ? text.toUpperCase() : text.toLowerCase()),
  (text, random, other) => {
    const at = random(text.length + 1);
    return text.slice(0, at) + other.slice(random(other.length + 1)) + text.slice(at);
  },
];

/**
 * @param {string} text
 * @param {string} other that parts are taken from
 * @param {(limit: number) => number} random
 */
export function mutateText(text, other, random) {
  let changed = text;
  for (let count = 1 + random(4); count > 0; --count)
    changed = changes[random(changes.length)](changed, random, other).slice(0, 20000);
  return changed;
}

/**
 * @param {string} text
 * @param {(limit: number) => number} random
 * @returns {Uint8Array} in some encoding, with bytes changed at times
 */
export function encodeText(text, random) {
  const encodings = /** @type {BufferEncoding[]} */ (["utf8", "utf8", "utf8", "utf16le", "latin1"]);
  const bytes = Uint8Array.from(Buffer.from(text, encodings[random(encodings.length)]));
  if (random(3) !== 0 || bytes.length === 0) return bytes;
  for (let count = 1 + random(3); count > 0; --count) bytes[random(bytes.length)] = random(256);
  return bytes;
}
