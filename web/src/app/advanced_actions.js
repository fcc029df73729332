// What a person does on the Advanced page: processing.
import { applyChange, readSetting } from "../model/equalizer.js";
import { algorithmValues, changedValues, firstValues } from "../model/processing.js";

/**
 * @typedef {import("./session.js").Session} Session
 * @typedef {import("../model/processing.js").Values} Values
 */

const algorithmPath = "/api/v1/render/effects/algorithm";
const equalizerPath = "/api/v1/render/effects/eq";

/** @param {Session} session */
export function createAdvanced(session) {
  const { state, client } = session;
  /** Values on their way, by key; a look from after the change shows what the record has made of them. */
  const sent = /** @type {Map<string, number | boolean>} */ (new Map());
  const view = {
    /** What the last reset has taken away. */
    undo: /** @type {Values | null} */ (null),
  };

  /** @returns {Values} what the record holds, with what is on its way to it */
  const values = () => ({ ...algorithmValues(state.seen.now), ...Object.fromEntries(sent) });

  /**
   * @param {Values} wanted
   * @returns {Promise<boolean>} whether the record has them
   */
  async function sendValues(wanted) {
    view.undo = null;
    const keys = Object.keys(wanted);
    for (const key of keys) sent.set(key, wanted[key]);
    const control = keys.length === 1 ? keys[0] : "all values";
    const answer = await client.ask({ method: "PUT", path: algorithmPath, body: wanted, control });
    if (answer.ok) await session.lookAt("status");
    else if (!answer.dropped) session.sayFailure("action.failed", answer);
    for (const key of keys) if (sent.get(key) === wanted[key]) sent.delete(key);
    session.changed();
    return answer.ok;
  }

  /**
   * @param {string} key
   * @param {number | boolean} wanted
   */
  function setAlgorithm(key, wanted) {
    session.begin();
    sendValues({ [key]: wanted });
  }

  const fade = () => readSetting(state.seen.equalizer)?.fade_ms;

  /** @param {number} milliseconds */
  async function setFade(milliseconds) {
    session.begin();
    const read = await client.ask({ method: "GET", path: equalizerPath });
    const present = readSetting(read.document);
    if (present === undefined) return session.sayFailure("action.failed", read);
    const { setting } = applyChange(present, present, { fade_ms: milliseconds });
    const answer = await client.ask({ method: "PUT", path: equalizerPath, body: setting });
    if (!answer.ok) return session.sayFailure("action.failed", answer);
    session.lookAt("equalizer");
  }

  /**
   * Puts all values of the algorithm back to those of a new record, in one request. The values that this takes away
   * are kept until the next change, so that it can be undone.
   */
  async function resetAll() {
    session.begin();
    const before = changedValues(algorithmValues(state.seen.now));
    if (await sendValues({ ...firstValues })) {
      view.undo = before;
      session.say("info", "advanced.resetDone");
    }
  }

  async function undoReset() {
    const { undo } = view;
    if (undo === null) return;
    session.begin();
    if (await sendValues(undo)) session.say("info", "advanced.undoDone");
  }

  return {
    view,
    values,
    setAlgorithm,
    resetAll,
    undoReset,
    fade,
    setFade,
    /** The output trim before the Sound page began to match loudness; undefined where it does not. */
    trimBefore: () => state.kept.matching?.trimBefore,
  };
}

/** @typedef {ReturnType<typeof createAdvanced>} Advanced */
