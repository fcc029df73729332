// What the page shows of the equalizer while the person edits it, and what is still to be sent. All functions are pure:
// each takes an editor and gives the next one.
//
// A change is shown at once. It is sent in two exchanges: the present setting is read, and the change is put onto that,
// so that what others have changed meanwhile is kept. Changes that come in between are sent together.
import {
  applyChange,
  asHeld,
  inverseOf,
  isSameBand,
  isEmptyChange,
  leavingOff,
  mergeChanges,
  switchingOn,
  valuesAt,
  withChange,
  wholeChange,
} from "./equalizer.js";
import { emptyHistory, recordStep, redoStep, undoStep, withPresets } from "./history.js";

/**
 * @typedef {import("./equalizer.js").Setting} Setting
 * @typedef {import("./equalizer.js").Change} Change
 * @typedef {import("./history.js").Edit} Edit
 * @typedef {import("./history.js").History} History
 * @typedef {import("./types.js").PresetRef} PresetRef
 * @typedef {"a" | "b"} SlotName
 *
 * @typedef {object} Slot a setting to compare with
 * @property {Setting} setting
 * @property {PresetRef | null} preset
 * @property {History} history
 *
 * @typedef {object} Editor
 * @property {Setting | undefined} held what the record held at the last look or write
 * @property {Setting | undefined} shown while it differs from what is held
 * @property {Change | null} pending to be sent
 * @property {Change | null} flight being sent
 * @property {{from: Setting, change: Change} | null} gesture a drag: one undo step when it ends
 * @property {number[]} foreign bands that another page or program has changed since the drag has set them
 * @property {boolean} isDoubtful a write got no answer: the record may hold it or not
 * @property {History} history of the active slot
 * @property {SlotName} active
 * @property {Slot | null} other null until the other slot was used
 */

/** @returns {Editor} */
export const newEditor = () => ({
  held: undefined,
  shown: undefined,
  pending: null,
  flight: null,
  gesture: null,
  foreign: [],
  isDoubtful: false,
  history: emptyHistory(),
  active: "a",
  other: null,
});

/** @param {Editor} editor */
export const settingOf = ({ shown, held }) => shown ?? held;

/** @param {Editor} editor */
const isSettled = ({ pending, flight }) => pending === null && flight === null;

/**
 * Takes in what others have changed of the bands that a drag sets: the drag then began with their newer values, so that
 * its end and Escape go back to these.
 *
 * @param {Editor} editor
 * @param {Setting | undefined} present what the record holds
 * @returns {Editor}
 */
function takeForeign(editor, present) {
  const { held, gesture, isDoubtful } = editor;
  if (gesture === null || held === undefined || present === undefined) return editor;
  // What is different may be this page's own write.
  if (isDoubtful) return editor;
  const dragged = { bands: gesture.change.bands ?? {} };
  const { bands: foreign = {} } = inverseOf(present, valuesAt(held, dragged));
  const indices = Object.keys(foreign).map(Number);
  if (indices.length === 0) return editor;
  return {
    ...editor,
    gesture: { ...gesture, from: withChange(gesture.from, { bands: foreign }) },
    foreign: [...new Set([...editor.foreign, ...indices])],
  };
}

/**
 * Takes in what the record holds. While a change is on its way, a look may be older than the change.
 *
 * @param {Editor} editor
 * @param {Setting | undefined} setting undefined where it could not be read
 * @returns {Editor}
 */
export function takeLook(editor, setting) {
  if (!isSettled(editor)) return editor;
  const taken = takeForeign(editor, setting);
  const { gesture } = taken;
  if (gesture === null || setting === undefined)
    return { ...taken, held: setting, shown: undefined, foreign: [] };
  return { ...taken, held: setting, shown: withChange(setting, gesture.change) };
}

/**
 * Shows a change and marks it to be sent.
 *
 * @param {Editor} editor
 * @param {Change} change
 * @returns {Editor}
 */
function want(editor, change) {
  const setting = settingOf(editor);
  if (setting === undefined || isEmptyChange(change)) return editor;
  return { ...editor, shown: withChange(setting, change), pending: mergeChanges(editor.pending, change) };
}

/**
 * Shows values from before and marks them to be sent.
 *
 * @param {Editor} editor
 * @param {Change} change
 * @returns {Editor}
 */
function wantBack(editor, change) {
  const setting = settingOf(editor);
  return setting === undefined ? editor : want(editor, leavingOff(setting, change));
}

// ---- edits ----

/**
 * Takes in a part of a drag: shown and sent, without an undo step until the drag ends.
 *
 * @param {Editor} editor
 * @param {Change} change
 * @returns {Editor}
 */
export function touch(editor, change) {
  const setting = settingOf(editor);
  if (setting === undefined) return editor;
  const wanted = switchingOn(setting, change);
  const { from, change: before } = editor.gesture ?? { from: setting, change: null };
  return want({ ...editor, gesture: { from, change: mergeChanges(before, wanted) } }, wanted);
}

/**
 * Ends a drag: all of it is one undo step.
 *
 * @param {Editor} editor
 * @returns {Editor}
 */
export function finish(editor) {
  const { gesture, history } = editor;
  if (gesture === null) return editor;
  const back = inverseOf(gesture.from, gesture.change);
  const ended = { ...editor, gesture: null };
  if (isEmptyChange(back)) return ended;
  return {
    ...ended,
    history: recordStep(history, { back: { change: back }, forth: { change: gesture.change } }),
  };
}

/**
 * Ends a drag and goes back to where it began.
 *
 * @param {Editor} editor
 * @returns {Editor}
 */
export function cancel(editor) {
  const { gesture } = editor;
  if (gesture === null) return editor;
  return wantBack({ ...editor, gesture: null }, inverseOf(gesture.from, gesture.change));
}

/**
 * Makes one whole edit: one undo step. An edit that changes nothing is none.
 *
 * @param {Editor} editor
 * @param {Edit} edit
 * @param {Omit<Edit, "change">} before the output trim and the preset before it, where the edit sets them
 * @param {string} [key] edits with one key that follow within a second are one step
 * @param {number} [time] milliseconds
 * @returns {Editor}
 */
export function makeEdit(editor, edit, before, key, time) {
  const finished = finish(editor);
  const setting = settingOf(finished);
  if (setting === undefined) return finished;
  const isNothing = isEmptyChange(inverseOf(setting, edit.change));
  const change = isNothing ? {} : switchingOn(setting, edit.change);
  const back = inverseOf(setting, change);
  const setsMore = edit.trimDb !== before.trimDb || edit.preset !== before.preset;
  if (isNothing && !setsMore) return finished;
  const step = { back: { ...before, change: back }, forth: { ...edit, change } };
  return want({ ...finished, history: recordStep(finished.history, step, key, time) }, change);
}

/**
 * @param {Editor} editor
 * @returns {{editor: Editor, edit: Edit} | null} `edit`: what else is to be set; null if there is nothing to undo
 */
export function undo(editor) {
  const finished = finish(editor);
  const undone = undoStep(finished.history);
  if (undone === null) return null;
  const { history, edit } = undone;
  return { editor: wantBack({ ...finished, history }, edit.change), edit };
}

/**
 * @param {Editor} editor
 * @returns {{editor: Editor, edit: Edit} | null} `edit`: what else is to be set; null if there is nothing to redo
 */
export function redo(editor) {
  const finished = finish(editor);
  const redone = redoStep(finished.history);
  if (redone === null) return null;
  const { history, edit } = redone;
  return { editor: wantBack({ ...finished, history }, edit.change), edit };
}

/**
 * Takes in that a preset has another name: the steps of undo and the other slot choose it by that.
 *
 * @param {Editor} editor
 * @param {string} from
 * @param {string} to
 * @returns {Editor}
 */
export function followRename(editor, from, to) {
  /** @type {(preset: PresetRef | null) => PresetRef | null} */
  const renamed = (preset) =>
    preset !== null && !preset.starter && preset.name === from ? { ...preset, name: to } : preset;
  const history = withPresets(editor.history, renamed);
  const other = editor.other && {
    ...editor.other,
    preset: renamed(editor.other.preset),
    history: withPresets(editor.other.history, renamed),
  };
  return { ...editor, history, other };
}

// ---- the slots A and B ----

/**
 * Goes to the other slot. At first it is a copy of this one. Whether the equalizer is on stays as it is.
 *
 * @param {Editor} editor
 * @param {PresetRef | null} preset the chosen one
 * @returns {{editor: Editor, preset: PresetRef | null}} `preset`: the other slot's
 */
export function switchSlot(editor, preset) {
  const finished = finish(editor);
  const setting = settingOf(finished);
  if (setting === undefined) return { editor: finished, preset };
  const left = { setting, preset, history: finished.history };
  const entered = finished.other ?? { ...left, history: emptyHistory() };
  const { fade_ms, bands } = wholeChange(entered.setting);
  const back = inverseOf(setting, { fade_ms, bands });
  const active = finished.active === "a" ? "b" : "a";
  const next = /** @type {Editor} */ ({ ...finished, history: entered.history, active, other: left });
  const change = isEmptyChange(back) ? {} : { bypass: setting.bypass, fade_ms, bands };
  return { editor: want(next, change), preset: entered.preset };
}

// ---- sending ----

/** @param {Editor} editor */
export const hasPending = ({ pending }) => pending !== null;

/**
 * Takes what is pending, to be sent on what the record holds now.
 *
 * @param {Editor} editor with a change that is pending
 * @param {Setting} present what the record holds, read just before
 * @returns {{editor: Editor, setting: Setting, overtakes: number[]}} `setting`: to be written; `overtakes`: bands that
 *   another page or program has changed as well
 */
export function takePending(editor, present) {
  const taken = takeForeign(editor, present);
  const change = taken.pending ?? {};
  const { setting, overtakes } = applyChange(taken.held ?? present, present, change);
  const seen = taken.foreign.filter((index) => !isSameBand(setting.bands[index], present.bands[index]));
  return {
    editor: { ...taken, pending: null, flight: change, held: present, foreign: [] },
    setting,
    overtakes: [...new Set([...overtakes, ...seen])],
  };
}

/**
 * The record holds what was sent.
 *
 * @param {Editor} editor
 * @param {Setting} setting as it was written
 * @returns {Editor}
 */
export function takeWritten(editor, setting) {
  const held = asHeld(setting);
  const { pending, gesture } = editor;
  const still = mergeChanges(gesture?.change ?? null, pending ?? {});
  const shown = isEmptyChange(still) ? undefined : withChange(held, still);
  return { ...editor, flight: null, isDoubtful: false, held, shown };
}

/**
 * No answer came. What was on its way is sent again when the service answers.
 *
 * @param {Editor} editor
 * @returns {Editor}
 */
export function takeSilence(editor) {
  const { flight, pending } = editor;
  return {
    ...editor,
    flight: null,
    isDoubtful: editor.isDoubtful || flight !== null,
    pending: flight === null ? pending : mergeChanges(flight, pending ?? {}),
  };
}

/**
 * The service refused what was sent: the page goes back to what the record holds. What has arrived of a drag is an undo
 * step.
 *
 * @param {Editor} editor
 * @returns {Editor}
 */
export function takeRefusal(editor) {
  const { held, gesture } = editor;
  const arrived =
    gesture === null || held === undefined
      ? null
      : { from: gesture.from, change: valuesAt(held, gesture.change) };
  return finish({
    ...editor,
    flight: null,
    pending: null,
    isDoubtful: false,
    gesture: arrived,
    shown: undefined,
  });
}
