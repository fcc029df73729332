// Presets that a person uses with a device, and when to offer one.
import { listOf, objectOf, textOf } from "./read.js";

/**
 * @typedef {import("./types.js").Kept} Kept
 * @typedef {import("./types.js").Tie} Tie
 * @typedef {{id: string, name: string}} Device
 * @typedef {{name: string, starter: boolean}} Preset
 */

const mostTies = 64;

/**
 * @param {unknown} value
 * @returns {Tie[]} what is no tie is left out
 */
export function readTies(value) {
  const ties = [];
  for (const one of listOf(value)) {
    const { id, device, preset, starter } = objectOf(one);
    const [tiedId, tiedName, name] = [textOf(id), textOf(device), textOf(preset)];
    if (tiedId && tiedName !== undefined && name && typeof starter === "boolean")
      ties.push({ id: tiedId, device: tiedName, preset: name, starter });
  }
  return ties.slice(-mostTies);
}

/**
 * The tie of a device: by its id, else by its name. A device that is plugged in elsewhere has another id.
 *
 * @param {Tie[]} ties the newest last
 * @param {Device} device
 * @returns {Tie | null}
 */
export function tieOf(ties, { id, name }) {
  const sameId = ties.find((tie) => tie.id === id);
  return sameId ?? ties.filter((tie) => name !== "" && tie.device === name).at(-1) ?? null;
}

/**
 * @param {Pick<Tie, "preset" | "starter">} tied
 * @param {Preset | null} preset
 */
export const isOf = (tied, preset) =>
  preset !== null && tied.preset === preset.name && tied.starter === preset.starter;

/**
 * Ties a preset to a device, or unties what is tied to it.
 *
 * @param {Kept} kept
 * @param {Device} device
 * @param {Preset | null} preset
 * @returns {Kept}
 */
export function tie(kept, device, preset) {
  const old = tieOf(kept.ties, device);
  const others = kept.ties.filter((one) => one !== old);
  const { id, name } = device;
  const added = preset === null ? [] : [{ id, device: name, preset: preset.name, starter: preset.starter }];
  return { ...kept, ties: [...others, ...added].slice(-mostTies) };
}

/**
 * @param {Kept} kept
 * @param {string} from the former name of a preset of the person
 * @param {string | null} to null: it was deleted
 * @returns {Kept} the same object where nothing changed
 */
export function renameTies(kept, from, to) {
  const isMeant = (/** @type {Tie} */ { preset, starter }) => !starter && preset === from;
  if (!kept.ties.some(isMeant)) return kept;
  const ties = kept.ties.flatMap((one) => {
    if (!isMeant(one)) return [one];
    return to === null ? [] : [{ ...one, preset: to }];
  });
  return { ...kept, ties };
}

/**
 * @param {Kept} kept
 * @param {Device} device
 * @param {Preset | null} inUse the chosen preset
 * @returns {Tie | null} the tie that can be offered
 */
function applicable({ ties, offersTies }, device, inUse) {
  const found = offersTies ? tieOf(ties, device) : null;
  return found === null || isOf(found, inUse) ? null : found;
}

/**
 * Takes in which device is the chosen one. A preset is offered when its device becomes that, until the offer is
 * answered or the preset is in use.
 *
 * @param {Kept} kept
 * @param {Device} device
 * @param {Preset | null} inUse the chosen preset
 * @returns {Kept} the same object where nothing changed
 */
export function takeChosenDevice(kept, device, inUse) {
  const isNew = kept.chosenDevice !== device.id;
  const isOpen = isNew || kept.offeredDevice === device.id;
  const offeredDevice = isOpen && applicable(kept, device, inUse) !== null ? device.id : null;
  if (!isNew && kept.offeredDevice === offeredDevice) return kept;
  return { ...kept, chosenDevice: device.id, offeredDevice };
}

/**
 * @param {Kept} kept
 * @param {Device} device the chosen one
 * @param {Preset | null} inUse the chosen preset
 * @returns {Tie | null} what is offered
 */
export const offeredTie = (kept, device, inUse) =>
  kept.offeredDevice === device.id ? applicable(kept, device, inUse) : null;

/**
 * @param {Kept} kept
 * @returns {Kept} with the offer answered
 */
export const endOffer = (kept) => ({ ...kept, offeredDevice: null });
