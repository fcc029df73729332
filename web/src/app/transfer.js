// Settings that come from and go to outside the page: files, what is dropped, the clipboard.
import { decodeText, importLimit, tooLarge } from "../model/import/decode.js";

/**
 * @typedef {import("../model/types.js").Sentence} Sentence
 * @typedef {{text: string} | {error: Sentence}} Read
 * @typedef {File | string | {error: Sentence}} Given what a person drops: a file, a text, or neither
 */

/** @param {string} name @returns {{error: Sentence}} */
const errorOf = (name) => ({ error: { key: `import.error.${name}`, values: {} } });

/**
 * @param {string} text that was pasted or dropped
 * @returns {Read}
 */
export const checkText = (text) => (text.length > importLimit ? { error: tooLarge } : { text });

/**
 * @param {Given} given
 * @returns {Promise<Read>}
 */
export async function readGiven(given) {
  if (typeof given === "string") return checkText(given);
  if ("error" in given) return given;
  if (given.size > importLimit) return { error: tooLarge };
  try {
    return decodeText(new Uint8Array(await given.arrayBuffer()));
  } catch {
    // A folder, or a file that has been moved or locked.
    return errorOf("unreadable");
  }
}

/** @param {DataTransfer | null} transfer */
const isOfUse = (transfer) =>
  transfer !== null && (transfer.types.includes("Files") || transfer.types.includes("text/plain"));

/**
 * @param {DataTransfer} transfer
 * @returns {Given}
 */
function givenOf(transfer) {
  const { files } = transfer;
  if (files.length > 1) return errorOf("severalFiles");
  if (files.length === 1) return files[0];
  const text = transfer.getData("text/plain");
  return text === "" ? errorOf("noText") : text;
}

/**
 * A text that is dropped on a field is for the field.
 *
 * @param {DragEvent} event
 */
function isForField({ target, dataTransfer }) {
  const isField = target instanceof HTMLInputElement || target instanceof HTMLTextAreaElement;
  return isField && !dataTransfer?.types.includes("Files");
}

/**
 * Handlers of an element that takes files and texts.
 *
 * @param {(given: Given) => void} onGiven
 * @param {(isOver: boolean) => void} [onOver] whether something is dragged over the element
 */
export function dropHandlers(onGiven, onOver = () => {}) {
  return {
    /** @param {DragEvent} event */
    onDragOver(event) {
      if (!isOfUse(event.dataTransfer) || isForField(event)) return;
      event.preventDefault();
      onOver(true);
    },
    /** @param {DragEvent & {currentTarget: HTMLElement}} event */
    onDragLeave({ currentTarget, relatedTarget }) {
      if (!(relatedTarget instanceof Node && currentTarget.contains(relatedTarget))) onOver(false);
    },
    /** @param {DragEvent} event */
    onDrop(event) {
      onOver(false);
      if (!isOfUse(event.dataTransfer) || isForField(event) || event.dataTransfer === null) return;
      event.preventDefault();
      onGiven(givenOf(event.dataTransfer));
    },
  };
}

/**
 * Lets the browser save a file.
 *
 * @param {string} name
 * @param {string} text
 */
export function saveFile(name, text) {
  const address = URL.createObjectURL(new Blob([text], { type: "application/octet-stream" }));
  const link = document.createElement("a");
  link.href = address;
  link.download = name;
  link.click();
  // The browser has begun to read it by the next task.
  setTimeout(() => URL.revokeObjectURL(address), 1000);
}
