// A setting as text: the own form, and parametric text for other equalizers.
import { plainFade } from "./fields.js";
import { plainNumber } from "./numbers.js";

/**
 * @typedef {import("../types.js").Sentence} Sentence
 * @typedef {import("../equalizer.js").Setting} Setting
 * @typedef {import("../equalizer.js").Band} Band
 */

/** The words of the types, by number. The sixth has none: its band is written flat. */
const typeWords = ["PK", "LSC", "HSC", "LPQ", "HPQ", "BP", "", "NO", "AP"];
const lastGainType = 2;

/**
 * What the own form cannot carry: a setting of the equalizer has no place for the output trim.
 *
 * @param {number} [trimDb] the output trim; nothing is lost where it is not known or 0
 * @returns {Sentence[]}
 */
export const lostInJson = (trimDb = 0) =>
  trimDb === 0 ? [] : [{ key: "export.lost.trim", values: { trim: trimDb } }];

/**
 * @param {Setting} setting
 * @returns {string} what the service takes for a setting or a preset, one band on a line
 */
export function exportJson({ bypass, fade_ms: fade, bands }) {
  const lines = bands.map(
    ({ type, freq_hz: frequency, gain_db: gain, q }) =>
      `{"type":${type},"freq_hz":${plainNumber(frequency)},"gain_db":${plainNumber(gain)},"q":${plainNumber(q)}}`,
  );
  return `{"bypass":${bypass},"fade_ms":${plainNumber(fade)},"bands":[\n${lines.join(",\n")}\n]}\n`;
}

/** @param {Band} band; @param {number} index */
function filterLine({ type, freq_hz: frequency, gain_db: gain, q }, index) {
  const word = typeWords[type];
  const heldGain = word === "" ? 0 : gain;
  const hasGain = word === "" || type <= lastGainType || gain !== 0;
  const gainText = hasGain ? ` Gain ${plainNumber(heldGain)} dB` : "";
  return `Filter ${index + 1}: ON ${word || "PK"} Fc ${plainNumber(frequency)} Hz${gainText} Q ${plainNumber(q)}`;
}

/**
 * @param {Setting} setting
 * @param {number} [trimDb] the output trim, which becomes the preamp; without it there is none
 * @returns {{text: string, lost: Sentence[]}} `lost`: what such text cannot carry
 */
export function exportParametric({ bypass, fade_ms: fade, bands }, trimDb) {
  const skirts = bands.flatMap(({ type }, index) => (typeWords[type] ? [] : [index + 1]));
  const preamp = trimDb === undefined ? [] : [`Preamp: ${plainNumber(Math.round(trimDb * 10) / 10)} dB`];
  const lines = [...preamp, ...bands.map(filterLine)];
  /** @type {Sentence[]} */
  const lost = [];
  if (skirts.length > 0) lost.push({ key: "export.lost.skirt", values: { bands: skirts.join(", ") } });
  if (bypass) lost.push({ key: "export.lost.bypass", values: {} });
  if (fade !== plainFade) lost.push({ key: "export.lost.fade", values: { fade: plainNumber(fade) } });
  return { text: `${lines.join("\n")}\n`, lost };
}
