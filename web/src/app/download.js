// Receives a file: straight to disk where the browser can write there, else into the browser's memory and from there to
// its downloads. A plain link cannot send the token.
import { isWhole, namedFile, nextTail, promisedLength } from "../model/download.js";

/**
 * @typedef {object} Target where a file goes
 * @property {boolean} inBrowser the browser's downloads get it in the end
 * @property {() => Promise<void>} open
 * @property {(piece: Uint8Array<ArrayBuffer>) => Promise<void>} write
 * @property {(name: string) => Promise<string>} finish gives the name under which the file is; only now it is there
 * @property {() => Promise<void>} discard keeps nothing; never rejects
 *
 * @typedef {import("../model/capture_flow.js").Outcome} Outcome
 *
 * @typedef {FileSystemFileHandle & {remove?: () => Promise<void>}} FileHandle
 * @typedef {{suggestedName: string, types: {description: string, accept: Record<string, string[]>}[]}} PickerOptions
 */

const addressKeptMs = 60_000;
/** What has arrived goes to the browser's storage of blobs in pieces of this size, out of the page's own memory. */
const blobBytes = 8 * 1024 * 1024;

const picker = () =>
  /** @type {{showSaveFilePicker?: (options: PickerOptions) => Promise<FileHandle>}} */ (
    /** @type {unknown} */ (window)
  ).showSaveFilePicker;

export const canWriteToDisk = () => typeof picker() === "function";

/**
 * @param {FileHandle} handle
 * @returns {Target}
 */
function fileTarget(handle) {
  /** @type {FileSystemWritableFileStream | null} */
  let writable = null;
  return {
    inBrowser: false,
    async open() {
      writable = await handle.createWritable();
    },
    async write(piece) {
      await writable?.write(piece);
    },
    async finish() {
      await writable?.close();
      writable = null;
      return handle.name;
    },
    async discard() {
      await writable?.abort().catch(() => {});
      writable = null;
      try {
        // The picker has made an empty file. One with contents is not of this download.
        if ((await handle.getFile()).size === 0) await handle.remove?.();
      } catch {
        // The browser does not let the page remove it.
      }
    },
  };
}

/** @returns {Target} */
export function browserTarget() {
  /** @type {Blob[]} */
  let blobs = [];
  /** @type {Uint8Array<ArrayBuffer>[]} */
  let pieces = [];
  let bytes = 0;
  const fold = () => {
    blobs.push(new Blob(pieces));
    [pieces, bytes] = [[], 0];
  };
  return {
    inBrowser: true,
    async open() {},
    async write(piece) {
      pieces.push(piece);
      bytes += piece.length;
      if (bytes >= blobBytes) fold();
    },
    async finish(name) {
      fold();
      const link = document.createElement("a");
      link.href = URL.createObjectURL(new Blob(blobs, { type: "application/zip" }));
      link.download = name;
      link.click();
      setTimeout(() => URL.revokeObjectURL(link.href), addressKeptMs);
      blobs = [];
      return name;
    },
    async discard() {
      [blobs, pieces] = [[], []];
    },
  };
}

/**
 * Asks the person where the file shall go. Call it within a click.
 *
 * @param {string} suggestedName
 * @returns {Promise<Target | "cancelled" | "impossible">} impossible: the browser has no picker or refuses it
 */
export async function askForFile(suggestedName) {
  const ask = picker();
  if (ask === undefined) return "impossible";
  const types = [{ description: "ZIP", accept: { "application/zip": [".zip"] } }];
  try {
    return fileTarget(await ask.call(window, { suggestedName, types }));
  } catch (error) {
    return error instanceof DOMException && error.name === "AbortError" ? "cancelled" : "impossible";
  }
}

/**
 * Moves the body of an answer to its target, piece by piece. It never rejects. Unless the outcome is complete, nothing
 * of the file is kept.
 *
 * @param {Response} response
 * @param {Target} target
 * @param {string} suggestedName for an answer that names no file
 * @param {AbortSignal} signal of the request
 * @param {(received: number, total: number) => void} onProgress bytes; total is 0 where it is not known
 * @returns {Promise<Outcome>}
 */
export async function receive(response, target, suggestedName, signal, onProgress) {
  const promised = promisedLength(response.headers.get("content-length"));
  const { inBrowser } = target;
  let received = 0;
  let tail = /** @type {Uint8Array} */ (new Uint8Array());
  let name = namedFile(response.headers.get("content-disposition")) || suggestedName;
  /** What fails next would be the fault of. */
  let kind = /** @type {Outcome["kind"]} */ ("unwritable");
  const reader = response.body?.getReader();
  // A slow disk does not hold up a cancel.
  const aborted = new Promise((_, reject) => signal.addEventListener("abort", () => reject(signal.reason)));
  aborted.catch(() => {});
  try {
    await target.open();
    for (;;) {
      kind = "broken";
      const { done, value } = (await reader?.read()) ?? { done: true, value: undefined };
      if (done) break;
      kind = "unwritable";
      await Promise.race([target.write(value), aborted]);
      received += value.length;
      tail = nextTail(tail, value);
      onProgress(received, promised ?? 0);
    }
    if (!isWhole(received, promised, tail)) throw new Error("the end is missing");
    kind = "unwritable";
    name = await target.finish(name);
    kind = "complete";
  } catch {
    if (signal.aborted) kind = "cancelled";
    await reader?.cancel().catch(() => {});
    await target.discard();
  }
  return { kind, received, total: promised ?? 0, name, inBrowser };
}
