// What a person does to the equalizer: edits, undo, the slots A and B, and the output trim that goes with them.
import { levelOf } from "../model/curve.js";
import {
  cancel,
  finish,
  followRename,
  hasPending,
  makeEdit,
  newEditor,
  redo,
  settingOf,
  switchSlot,
  takeLook,
  takePending,
  takeRefusal,
  takeSilence,
  takeWritten,
  touch,
  undo,
} from "../model/editor.js";
import { firstBands, haveSameBands, isBandUsed, readSetting, wholeChange } from "../model/equalizer.js";
import { matchedTrims } from "../model/matching.js";
import { rememberSettings } from "../model/memory.js";
import { numberOf, objectOf } from "../model/read.js";

/**
 * @typedef {import("./session.js").Session} Session
 * @typedef {import("./client.js").Answer} Answer
 * @typedef {import("../model/types.js").PresetRef} PresetRef
 * @typedef {import("../model/types.js").LastSettings} LastSettings
 * @typedef {import("../model/editor.js").Editor} Editor
 * @typedef {import("../model/editor.js").SlotName} SlotName
 * @typedef {import("../model/equalizer.js").Setting} Setting
 * @typedef {import("../model/equalizer.js").Change} Change
 * @typedef {import("../model/history.js").Edit} Edit
 */

const equalizerPath = "/api/v1/render/effects/eq";
const algorithmPath = "/api/v1/render/effects/algorithm";
const usualRate = 48000;

const lockName = "velmora.equalizer";
const longestLockWaitMs = 500;

/**
 * Reading and writing are two exchanges. The pages of one browser take turns, so that none writes over what another has
 * written in between. A page that the browser has put to sleep does not hold up the others.
 *
 * @template Result
 * @param {() => Promise<Result>} exchange
 * @returns {Promise<Result>}
 */
async function inTurn(exchange) {
  const { locks } = navigator;
  if (locks === undefined) return exchange();
  let begun = false;
  const run = () => {
    begun = true;
    return exchange();
  };
  try {
    return await locks.request(lockName, { signal: AbortSignal.timeout(longestLockWaitMs) }, run);
  } catch (error) {
    if (begun) throw error;
    return exchange();
  }
}

/**
 * Whether nobody answered, or the link has ended.
 *
 * @param {Answer} answer
 */
const isUnanswered = ({ status }) => status === 0 || status === 401;

/** @param {Setting} setting */
const isUntouched = ({ bypass, bands }) => bypass && !bands.some(isBandUsed);

/**
 * @param {Session} session
 * @param {() => LastSettings["footstep"] | undefined} footstep what the page shows of the enhancement
 */
export function createEqualizer(session, footstep) {
  const { state, client } = session;
  let editor = newEditor();
  let chosenBand = 0;
  let isSending = false;
  /** The last attempt to send got no answer: what is pending waits for the next look that gets one. */
  let isSilent = false;
  let isLate = false;
  /** What this page has kept for the page of a new link, until it can send it itself. */
  let ownUnsent = /** @type {Setting | null} */ (null);
  /** Resolves when the bands that were edited last have been sent. */
  let bandsSent = Promise.resolve(true);
  /** The trim that the person set, until a look from after the change. */
  let wantedTrim = /** @type {number | undefined} */ (undefined);
  let trimsOnTheirWay = 0;
  /** A trim that got no answer. */
  let lateTrim = /** @type {number | undefined} */ (undefined);

  session.watchers.add((kind, document) => {
    if (kind === "status" && trimsOnTheirWay === 0 && lateTrim === undefined) wantedTrim = undefined;
    if (kind === "equalizer") update(takeLook(editor, readSetting(document)));
    if (isSilent && !isSending) sendLate();
  });

  /** @param {Editor} next */
  function update(next) {
    if (next === editor) return;
    editor = next;
    session.changed();
  }

  // ---- what is shown ----

  const setting = () => settingOf(editor);
  const preset = () => state.kept.preset;

  function trim() {
    return wantedTrim ?? numberOf(objectOf(objectOf(state.seen.now).footstep).output_trim_db);
  }

  /** @returns {number} the sample rate of the stream that the effect processes, in hertz */
  function rate() {
    const reported = numberOf(objectOf(objectOf(state.seen.now).apo_diagnostics).sample_rate) ?? 0;
    return reported > 0 ? reported : usualRate;
  }

  /** The trim without what the comparison at one loudness takes away. */
  const ownTrim = () => state.kept.matching?.trimBefore ?? trim();

  /** Whether the bands are no longer those of the chosen preset: edited here, elsewhere, or lost with a restart. */
  function isChanged() {
    const saved = preset()?.saved;
    const present = setting();
    return saved !== undefined && present !== undefined && !haveSameBands(saved, present);
  }

  /** @returns {Setting | undefined} what the curve is compared with */
  function ghost() {
    const present = setting();
    const compared = editor.other?.setting ?? preset()?.saved;
    return compared === undefined || present === undefined || haveSameBands(compared, present)
      ? undefined
      : compared;
  }

  // ---- sending ----

  function keepSettings() {
    const present = footstep();
    const bands = setting();
    if (present !== undefined)
      session.keep(rememberSettings(state.kept, present, bands ?? null, isChanged()));
  }

  /**
   * Sends what is pending, one exchange at a time, until nothing is.
   *
   * @returns {Promise<boolean>} whether all of it has arrived
   */
  async function sendAll() {
    let hasArrived = true;
    isSending = true;
    while (hasPending(editor)) {
      const failure = await inTurn(sendOnce);
      if (failure !== null) {
        takeFailure(failure);
        hasArrived = false;
        break;
      }
    }
    isSending = false;
    if (hasPending(editor)) return false;
    if (!isSilent) forgetOwnUnsent();
    // Within a drag the next change comes soon; it must not wait for a look.
    if (editor.gesture !== null) return hasArrived;
    await session.lookAt("equalizer");
    if (!hasPending(editor) && editor.gesture === null) keepSettings();
    return hasArrived;
  }

  /** @returns {Promise<boolean>} whether all that was pending has arrived */
  function send() {
    if (!isSending) bandsSent = sendAll();
    return bandsSent;
  }

  /** @returns {Promise<Answer | null>} the failure, if there was one */
  async function sendOnce() {
    const read = await client.ask({ method: "GET", path: equalizerPath });
    const present = readSetting(read.document);
    if (!read.ok || present === undefined) return read;
    const before = editor.held;
    const whole = setting();
    if (isLate && isUntouched(present) && before && whole && !isUntouched(before)) {
      // The record was created again, so the other bands are lost as well.
      update({ ...editor, pending: wholeChange(whole), held: present });
    }
    const { editor: taken, setting: wanted, overtakes } = takePending(editor, present);
    update(taken);
    const answer = await client.ask({ method: "PUT", path: equalizerPath, body: wanted });
    if (!answer.ok) return answer;
    update(takeWritten(editor, wanted));
    if (overtakes.length > 0) session.say("info", "equalizer.changedElsewhere");
    return null;
  }

  /** @param {Answer} answer */
  function takeFailure(answer) {
    if (!isUnanswered(answer)) {
      update(takeRefusal(editor));
      return session.sayFailure("action.failed", answer);
    }
    // Nobody answers, or the link has ended: the edit is kept for when one does.
    isSilent = true;
    update(takeSilence(editor));
    keepUnsent();
  }

  function keepUnsent() {
    ownUnsent = setting() ?? null;
    session.keep({ ...state.kept, unsent: ownUnsent });
  }

  /** What an earlier page could not send stays on offer: what this page sends does not contain it. */
  function forgetOwnUnsent() {
    const { unsent } = state.kept;
    const isOwn = ownUnsent !== null && unsent !== null && haveSameBands(ownUnsent, unsent);
    ownUnsent = null;
    if (isOwn) session.keep({ ...state.kept, unsent: null });
  }

  async function sendLate() {
    isSilent = false;
    isLate = true;
    if (lateTrim !== undefined) sendTrim(lateTrim);
    const hasArrived = await send();
    isLate = false;
    if (hasArrived && !hasPending(editor)) session.say("info", "equalizer.sentLate");
  }

  /**
   * A lower trim is sent before the bands that it goes with, a higher one after them, so that nothing is too loud in
   * between.
   *
   * @param {number} trimDb
   */
  function sendTrim(trimDb) {
    const isHigher = trimDb > (trim() ?? trimDb);
    wantedTrim = trimDb;
    lateTrim = undefined;
    ++trimsOnTheirWay;
    const put = async () => {
      // The bands are sent by what called this, so they are on their way a moment later.
      if (isHigher) await Promise.resolve().then(() => bandsSent);
      if (wantedTrim !== trimDb) {
        --trimsOnTheirWay;
        return;
      }
      const body = { output_trim_db: trimDb };
      const answer = await client.ask({ method: "PUT", path: algorithmPath, body, control: "trim" });
      --trimsOnTheirWay;
      if (trimsOnTheirWay > 0) return;
      if (answer.ok) await session.lookAt("status");
      else if (isUnanswered(answer)) {
        lateTrim = trimDb;
        isSilent = true;
      } else {
        wantedTrim = undefined;
        session.sayFailure("action.failed", answer);
      }
    };
    put();
    session.changed();
  }

  // ---- edits ----

  /** @param {() => Editor} next */
  function edit(next) {
    if (setting() === undefined) return;
    session.begin();
    update(next());
    if (isSilent) keepUnsent();
    else send();
  }

  /**
   * Sets what an edit sets besides the bands.
   *
   * @param {Edit} edited
   */
  function setMore({ trimDb, preset: chosen }) {
    if (chosen !== undefined) session.keep({ ...state.kept, preset: chosen });
    if (trimDb !== undefined) {
      // The trim is then the person's own; nothing is left to put back.
      if (state.kept.matching !== null) session.keep({ ...state.kept, matching: null });
      if (trimDb !== trim()) sendTrim(trimDb);
    }
  }

  /**
   * @param {Edit} wanted
   * @param {string} [merge] edits with one text that follow within a second are one undo step
   */
  function makeWholeEdit(wanted, merge) {
    if (setting() === undefined) return;
    const before = {
      ...(wanted.trimDb !== undefined && { trimDb: ownTrim() }),
      ...(wanted.preset !== undefined && { preset: preset() }),
    };
    setMore(wanted);
    edit(() => makeEdit(editor, wanted, before, merge, Date.now()));
    match();
  }

  /**
   * Loads a preset or an import: one undo step. Whether the equalizer is on becomes as the setting says.
   *
   * @param {Setting} whole
   * @param {PresetRef | null} chosen
   * @param {number} [trimDb] to set with it
   */
  async function load(whole, chosen, trimDb) {
    // A person may be quicker than the page's first looks.
    if (setting() === undefined) await session.lookAt("equalizer");
    makeWholeEdit({ change: wholeChange(whole), preset: chosen, ...(trimDb !== undefined && { trimDb }) });
  }

  /** @param {typeof undo} step undo or redo */
  function goBack(step) {
    const done = setting() === undefined ? null : step(editor);
    if (done === null) return;
    setMore(done.edit);
    edit(() => done.editor);
    match();
  }

  // ---- comparing ----

  /** @returns {Record<SlotName, Setting> | null} null until both slots are in use */
  function slots() {
    const present = setting();
    const { other, active } = editor;
    if (present === undefined || other === null) return null;
    return active === "a" ? { a: present, b: other.setting } : { a: other.setting, b: present };
  }

  /** The output trim for each slot, so that both are equally loud. */
  function matchingTrims() {
    const both = slots();
    const trimDb = ownTrim();
    if (both === null || trimDb === undefined) return null;
    return matchedTrims({ a: levelOf(both.a, rate()), b: levelOf(both.b, rate()) }, trimDb);
  }

  /** Sets the trim of the active slot, where slots are matched. */
  function match() {
    const { matching } = state.kept;
    const trims = matchingTrims();
    if (matching === null || trims === null) return;
    const trimDb = trims[editor.active];
    if (matching.trimDb !== trimDb) session.keep({ ...state.kept, matching: { ...matching, trimDb } });
    if (trimDb !== trim()) sendTrim(trimDb);
  }

  /** @param {boolean} on */
  function setMatching(on) {
    const present = trim();
    if (present === undefined) return;
    session.begin();
    if (on) {
      session.keep({ ...state.kept, matching: { trimBefore: present, trimDb: present } });
      return match();
    }
    const { matching } = state.kept;
    session.keep({ ...state.kept, matching: null });
    // A trim that was set elsewhere meanwhile is newer than the one from before.
    const isOurs = matching !== null && matching.trimDb === present;
    if (isOurs && matching.trimBefore !== present) sendTrim(matching.trimBefore);
  }

  /** @param {SlotName} wanted */
  function useSlot(wanted) {
    if (wanted === editor.active || setting() === undefined) return;
    const { editor: next, preset: chosen } = switchSlot(editor, preset());
    if (chosen !== preset()) session.keep({ ...state.kept, preset: chosen });
    editor = next;
    match();
    edit(() => next);
  }

  return {
    setting,
    rate,
    trim,
    preset,
    isChanged,
    ghost,
    chosen: () => chosenBand,
    /** @param {number} index */
    choose(index) {
      chosenBand = index;
      session.changed();
    },
    /** @returns {number} the first band that is not in use; -1: none */
    /** @param {Change} change a part of a drag: shown and sent at once */
    touch: (change) => edit(() => touch(editor, change)),
    /** Ends a drag: all of it is one undo step. */
    finish() {
      update(finish(editor));
      match();
      // All of the drag may have arrived before it ends.
      if (!isSending && !hasPending(editor)) session.lookAt("equalizer").then(keepSettings);
    },
    /** How the page draws what follows a drag, without the rest; null while it is not there. */
    live: { redraw: /** @type {(() => void) | null} */ (null) },
    /** Whether a drag is under way. */
    isHeld: () => editor.gesture !== null,
    /** Ends a drag and goes back to where it began. */
    cancel() {
      if (editor.gesture !== null) edit(() => cancel(editor));
    },
    /**
     * @param {Change} change
     * @param {string} [merge] edits with one text that follow within a second are one undo step
     */
    change: (change, merge) => makeWholeEdit({ change }, merge),
    load,
    /** @param {number} trimDb */
    setTrim: (trimDb) => makeWholeEdit({ change: {}, trimDb }),
    /** Makes all bands flat, as in a new record. */
    reset: () => makeWholeEdit({ change: { bands: wholeChange(firstSetting()).bands }, preset: null }),
    undo: () => goBack(undo),
    redo: () => goBack(redo),
    canUndo: () => editor.history.past.length > 0 || editor.gesture !== null,
    canRedo: () => editor.history.future.length > 0,
    /** @param {PresetRef | null} chosen what was saved, or null when it is gone */
    setPreset(chosen) {
      session.keep({ ...state.kept, preset: chosen });
      keepSettings();
    },
    /**
     * @param {string} from
     * @param {string} to
     */
    followRename: (from, to) => update(followRename(editor, from, to)),
    slot: () => editor.active,
    otherSlotIsUsed: () => editor.other !== null,
    useSlot,
    matching: () => ({
      on: state.kept.matching !== null,
      trims: matchingTrims(),
      trimBefore: state.kept.matching?.trimBefore,
    }),
    setMatching,
    /** @returns {number | undefined} the trim to remember with a preset */
    ownTrim,
    /** @returns {Setting | null} a setting that another page could not send */
    unsent: () => (ownUnsent === null ? state.kept.unsent : null),
    /** @param {boolean} wanted */
    answerUnsent(wanted) {
      const { unsent } = state.kept;
      session.keep({ ...state.kept, unsent: null });
      if (wanted && unsent !== null) makeWholeEdit({ change: wholeChange(unsent), preset: null });
    },
    keepSettings,
  };
}

/** @returns {Setting} */
const firstSetting = () => ({ bypass: true, fade_ms: 20, bands: firstBands() });

/** @typedef {ReturnType<typeof createEqualizer>} Equalizer */
