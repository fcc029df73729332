// The text of a file that a person imports, from its bytes.

/**
 * @typedef {import("../types.js").Sentence} Sentence
 */

/** The most bytes of a file, and the most characters of a pasted text. */
export const importLimit = 1 << 20;

/** @type {Sentence} */
export const tooLarge = { key: "import.error.tooLarge", values: {} };

/** @type {Sentence} */
const binary = { key: "import.error.binary", values: {} };

// At least this part of the characters has a zero byte in UTF-16 of any language: line ends, digits, blanks.
const zeroShare = 0.2;

// More control characters than this part is no text.
const controlShare = 0.02;

/**
 * @param {Uint8Array} bytes
 * @param {number[]} start
 */
const startsWith = (bytes, start) => start.every((byte, index) => bytes[index] === byte);

/**
 * The encoding by the byte order mark, else by where the zero bytes are.
 *
 * @param {Uint8Array} bytes
 * @returns {string | undefined} undefined for none that has zero bytes there
 */
function findEncoding(bytes) {
  if (startsWith(bytes, [0xff, 0xfe])) return "utf-16le";
  if (startsWith(bytes, [0xfe, 0xff])) return "utf-16be";
  const zeros = [0, 0];
  for (let index = 0; index < bytes.length; ++index) if (bytes[index] === 0) ++zeros[index & 1];
  if (zeros[0] === 0 && zeros[1] === 0) return "utf-8";
  const enough = (bytes.length / 2) * zeroShare;
  if (zeros[0] === 0 && zeros[1] >= enough) return "utf-16le";
  if (zeros[1] === 0 && zeros[0] >= enough) return "utf-16be";
  return undefined;
}

/**
 * @param {Uint8Array} bytes
 * @param {string} encoding
 */
function decode(bytes, encoding) {
  if (encoding !== "utf-8") return new TextDecoder(encoding).decode(bytes);
  try {
    return new TextDecoder("utf-8", { fatal: true }).decode(bytes);
  } catch {
    // Old programs write Windows' western code page. Every byte is a character there.
    return new TextDecoder("windows-1252").decode(bytes);
  }
}

/** @param {number} code of a character that no text has */
const isControl = (code) => (code < 0x20 && (code < 9 || code > 13) && code !== 0x1a) || code === 0xfffd;

/** @param {string} text */
function looksLikeText(text) {
  let controls = 0;
  for (let index = 0; index < text.length; ++index) {
    const code = text.charCodeAt(index);
    if (code === 0) return false;
    if (isControl(code)) ++controls;
  }
  // One may be the half of a character that was cut off.
  return controls <= 1 + text.length * controlShare;
}

/**
 * Takes UTF-8 and UTF-16 with or without a byte order mark; else Windows-1252.
 *
 * @param {Uint8Array} bytes
 * @returns {{text: string} | {error: Sentence}} `error`: too large, or no text
 */
export function decodeText(bytes) {
  if (bytes.length > importLimit) return { error: tooLarge };
  const encoding = findEncoding(bytes);
  if (encoding === undefined) return { error: binary };
  const text = decode(bytes, encoding);
  return looksLikeText(text) ? { text } : { error: binary };
}
