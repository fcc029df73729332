// Why something failed, as sentences of the language tables.
import { pendingResult } from "./facts.js";
import { knownServiceTexts } from "./service_texts.js";

/**
 * @typedef {import("./types.js").Sentence} Sentence
 * @typedef {import("./facts.js").Facts} Facts
 */

/**
 * Results of Windows that have words, by number: a Win32 error as it is, others by their HRESULT. docs/api.md says where
 * each can come from.
 */
export const resultCodes = Object.freeze([
  2, 3, 4, 5, 6, 8, 14, 18, 19, 24, 29, 31, 87, 112, 123, 126, 127, 170, 183, 193, 206, 234, 267, 299, 577,
  1016, 1018, 1051, 1052, 1053, 1054, 1055, 1056, 1058, 1059, 1060, 1061, 1062, 1065, 1067, 1068, 1069, 1072,
  1075, 1115, 1168, 1450, 1630, 1722, 1726, 1804, 1921, 12002, 12004, 12005, 12006, 12007, 12029, 12030,
  12150, 12152, 12156, 12157, 12175, 12182, 0x80004001, 0x80004002, 0x80004003, 0x80004004, 0x80004005,
  0x8000000a, 0x8000ffff, 0x80040110, 0x80040154, 0x800401f0, 0x80010108, 0x88890001, 0x88890002, 0x88890003,
  0x88890004, 0x88890008, 0x8889000a, 0x8889000f, 0x88890010, 0x88890017, 0x88890018, 0x88890026, 0x887d0001,
  0x887d0002, 0x887d0003, 0x887d0004, 0x887d0005, 0x887d0006, 0x887d0007, 0x887d0008, 0x887d0009, 0x887d000a,
  0x887d000b, 0x887d000c, 0x887d000d, 0x887d000e,
]);
const knownResults = new Set(resultCodes);
const win32Results = 0x8007;

/**
 * @param {number} code a status of Windows, signed or unsigned
 * @returns {string} as Windows writes it, such as 0x80070005
 */
export function hexResult(code) {
  return `0x${(code >>> 0).toString(16).toUpperCase().padStart(8, "0")}`;
}

/**
 * @param {number} code signed or unsigned
 * @returns {number} the Win32 error where the status carries one, else the HRESULT, unsigned
 */
function resultNumber(code) {
  const unsigned = code >>> 0;
  return unsigned >>> 16 === win32Results ? unsigned & 0xffff : unsigned;
}

/**
 * @param {number} code a status of Windows, signed or unsigned
 * @returns {boolean} whether it has words
 */
export const isKnownResult = (code) => code === 0 || knownResults.has(resultNumber(code));

/**
 * The words for a status of Windows.
 *
 * @param {number} code signed or unsigned
 * @returns {Sentence} with the values `code`, the number that people look up, and `hex`
 */
export function resultSentence(code) {
  const number = resultNumber(code);
  const isWin32 = number < 0x10000;
  const values = { code: String(isWin32 ? number : code | 0), hex: hexResult(code) };
  if (code === 0) return { key: "result.0", values };
  if (!isKnownResult(code)) return { key: "result.unknown", values };
  return { key: isWin32 ? `result.${number}` : `result.${hexResult(code)}`, values };
}

/**
 * A text of the service: its sentence where the text is known, else the text as it came.
 *
 * @param {string} text
 * @returns {Sentence}
 */
export function serviceSentence(text) {
  for (const { pattern, key } of knownServiceTexts) {
    if (typeof pattern === "string") {
      if (pattern === text) return { key: `service.${key}`, values: {} };
      continue;
    }
    const found = pattern.exec(text);
    if (found !== null) return { key: `service.${key}`, values: { ...found.groups } };
  }
  return { key: text === "" ? "service.none" : "service.unknown", values: { text } };
}

/**
 * @param {number | undefined} result
 */
const failed = (result) => result !== undefined && result < 0 && result !== pendingResult;

/** Stages in which the effect negotiates a format. */
const negotiations = [9, 10];
const unsupportedFormats = [0x88890008 | 0, 0x887d0003 | 0];

/**
 * Why sound on the chosen device does not go through the effect as set.
 *
 * @param {Facts} facts
 * @param {{differs: boolean, still: boolean}} lasting what has held for long enough to count
 * @returns {Sentence | undefined}
 */
export function failureOf({ engine, effect, moved, chosen }, { differs, still }) {
  const because = (/** @type {string} */ key, /** @type {number | undefined} */ result) => ({
    key: `reason.${key}`,
    values: result === undefined ? {} : { result: resultSentence(result) },
  });
  if (chosen === undefined) return undefined;
  if (engine.isRunning === false) return because("engine", undefined);
  if (engine.effectLoaded === false) return because("notLoaded", undefined);
  const enhances = effect.enhancementIsOn === true && (effect.strength ?? 0) > 0;
  if (engine.algorithmLoaded === false && enhances) return because("algorithmNotLoaded", undefined);
  if (failed(effect.initializeResult)) return because("initialize", effect.initializeResult);
  if (failed(effect.lockResult) && moved === false) {
    const isFormat =
      unsupportedFormats.includes(effect.lockResult ?? 0) || negotiations.includes(effect.lockStage ?? 0);
    return because(isFormat ? "format" : "lock", effect.lockResult);
  }
  if (effect.algorithmError !== undefined && effect.algorithmError !== 0) {
    return { key: "reason.algorithm", values: { code: String(effect.algorithmError) } };
  }
  if (effect.initializeResult === pendingResult && (differs || still)) return because("hangs", undefined);
  if (differs) return because(effect.appliedValid === false ? "notApplied" : "differs", undefined);
  if (still) return because("still", undefined);
  return undefined;
}
