// What a download of captures needs to know: its name, whether it fits into memory, and whether it is whole.

/** Above this, a download that must go through the browser's memory is asked about first. */
export const largestUnasked = 64 * 1024 * 1024;
/** An archive without a comment ends with a record of this length. */
export const endBytes = 22;
const endSignature = 0x06054b50;
const directorySizeAt = 12;
const directoryOffsetAt = 16;
const wholeWord = 2 ** 32;

/** @param {number} value */
const twoDigits = (value) => String(value).padStart(2, "0");

/**
 * The name to propose before the service has named the file.
 *
 * @param {Date} time
 * @returns {string} such as "velmora-capture-20260314-091502.zip", in local time
 */
export function captureFileName(time) {
  const day = [time.getFullYear(), twoDigits(time.getMonth() + 1), twoDigits(time.getDate())].join("");
  const clock = [time.getHours(), time.getMinutes(), time.getSeconds()].map(twoDigits).join("");
  return `velmora-capture-${day}-${clock}.zip`;
}

/**
 * @param {string | null} disposition the header Content-Disposition
 * @returns {string} the file name in it; empty for none, or for one that is a path
 */
export function namedFile(disposition) {
  const name = /filename="([^"]*)"/.exec(disposition ?? "")?.[1] ?? "";
  return /[\\/]/.test(name) ? "" : name;
}

/**
 * @param {string | null} header Content-Length
 * @returns {number | null} null where it promises no length
 */
export function promisedLength(header) {
  return header !== null && /^\d+$/.test(header) ? Number(header) : null;
}

/**
 * The last bytes of what has arrived.
 *
 * @param {Uint8Array} tail before this piece
 * @param {Uint8Array} piece
 * @returns {Uint8Array} of endBytes at most
 */
export function nextTail(tail, piece) {
  if (piece.length >= endBytes) return piece.slice(-endBytes);
  const both = new Uint8Array(tail.length + piece.length);
  both.set(tail);
  both.set(piece, tail.length);
  return both.slice(-endBytes);
}

/**
 * Whether an archive has arrived to its last byte: as many bytes as were promised, and at their end the record that
 * says where its directory is.
 *
 * @param {number} received bytes
 * @param {number | null} promised null for no promise
 * @param {Uint8Array} tail the last bytes
 */
export function isWhole(received, promised, tail) {
  if (promised !== null && received !== promised) return false;
  if (tail.length !== endBytes) return false;
  const end = new DataView(tail.buffer, tail.byteOffset, tail.length);
  if (end.getUint32(0, true) !== endSignature) return false;
  const directoryEnd = end.getUint32(directorySizeAt, true) + end.getUint32(directoryOffsetAt, true);
  // The offsets of an archive above 4 GiB keep their low 32 bits.
  return (directoryEnd + endBytes) % wholeWord === received % wholeWord;
}
