// What can be undone and redone.

/**
 * @typedef {import("./equalizer.js").Change} Change
 * @typedef {import("./types.js").PresetRef} PresetRef
 *
 * @typedef {object} Edit
 * @property {Change} change
 * @property {number} [trimDb] the output trim to set as well
 * @property {PresetRef | null} [preset] the preset that is chosen with it
 *
 * @typedef {{back: Edit, forth: Edit}} Step
 *
 * @typedef {object} History
 * @property {Step[]} past the last one is undone first
 * @property {Step[]} future the last one is redone first
 * @property {{key: string, until: number} | null} open what the last step may still take in
 */
import { mergeChanges } from "./equalizer.js";

/** How many steps are kept. */
export const mostSteps = 500;
const mergeMs = 1000;

/** @returns {History} */
export const emptyHistory = () => ({ past: [], future: [], open: null });

/**
 * @param {Edit} first
 * @param {Edit} second
 * @returns {Edit} both; the second one wins
 */
const mergeEdits = (first, second) => ({
  ...first,
  ...second,
  change: mergeChanges(first.change, second.change),
});

/**
 * @param {History} history
 * @param {Step} step done just now
 * @param {string} [key] steps with one key that follow within a second are one step
 * @param {number} [time] milliseconds
 * @returns {History}
 */
export function recordStep({ past, open }, step, key = "", time = 0) {
  const next = key === "" ? null : { key, until: time + mergeMs };
  const last = past.at(-1);
  if (open !== null && open.key === key && time <= open.until && last !== undefined) {
    const merged = { back: mergeEdits(step.back, last.back), forth: mergeEdits(last.forth, step.forth) };
    return { past: [...past.slice(0, -1), merged], future: [], open: next };
  }
  return { past: [...past, step].slice(-mostSteps), future: [], open: next };
}

/**
 * @param {History} history
 * @returns {{history: History, edit: Edit} | null} null if there is nothing to undo
 */
export function undoStep({ past, future }) {
  const step = past.at(-1);
  if (step === undefined) return null;
  return { history: { past: past.slice(0, -1), future: [...future, step], open: null }, edit: step.back };
}

/**
 * @param {History} history
 * @returns {{history: History, edit: Edit} | null} null if there is nothing to redo
 */
export function redoStep({ past, future }) {
  const step = future.at(-1);
  if (step === undefined) return null;
  return { history: { past: [...past, step], future: future.slice(0, -1), open: null }, edit: step.forth };
}

/**
 * @param {History} history
 * @param {(preset: PresetRef | null) => PresetRef | null} change
 * @returns {History} with another preset in each step that chooses one
 */
export function withPresets({ past, future, open }, change) {
  /** @type {(edit: Edit) => Edit} */
  const changed = (edit) => (edit.preset === undefined ? edit : { ...edit, preset: change(edit.preset) });
  /** @type {(step: Step) => Step} */
  const step = ({ back, forth }) => ({ back: changed(back), forth: changed(forth) });
  return { past: past.map(step), future: future.map(step), open };
}
