// The collected states, and the road from documents to a verdict as a page takes it.
import fs from "node:fs";

import {
  emptyMemory,
  markEngine,
  rememberAction,
  rememberDevices,
  rememberStatus,
} from "../../web/src/model/memory.js";
import { conclude, emptyObservation, observe } from "../../web/src/model/observation.js";
import { verdict } from "../../web/src/model/verdict.js";

/**
 * @typedef {any} State documents of any content: rows change them
 * @typedef {import("../../web/src/model/types.js").Action} Action
 * @typedef {import("../../web/src/model/types.js").Kept} Kept
 * @typedef {import("../../web/src/model/types.js").Link} Link
 * @typedef {{link?: Link, action?: Action | null, kept?: Kept, seenMs?: number, at?: number,
 *   endedMs?: number}} Page
 */

const directory = new URL("./states/", import.meta.url);

/** When the verdict is asked for, unless a row says otherwise. */
export const now = Date.UTC(2026, 2, 14, 19, 4);
/** @type {Link} */
export const answering = { state: "answering", since: now - 60_000 };

/**
 * A collected state, a new one for each call: rows change it.
 *
 * @param {string} name
 * @returns {State}
 */
export function collected(name) {
  return JSON.parse(fs.readFileSync(new URL(`${name}.json`, directory), "utf8"));
}

export function collectedNames() {
  return fs
    .readdirSync(directory)
    .filter((file) => file.endsWith(".json"))
    .map((file) => file.slice(0, -5))
    .sort();
}

/**
 * The action and the memory as a page keeps them after the change that a state was collected behind.
 *
 * @param {State} state
 * @param {number} endedAt
 * @returns {{action: Action, kept: Kept}}
 */
export function afterChange({ change, devices }, endedAt) {
  const { first, endpointId, attach, restartsAudio, status, answer } = change;
  /** @type {Action["kind"]} */
  const kind = attach ? "add" : "remove";
  const result = {
    status,
    error: answer.error ?? "",
    audioRestarted: answer.audio_restarted ?? false,
    restartError: answer.audio_restart_error ?? 0,
    restartDetail: answer.audio_restart_detail ?? "",
  };
  const engine = markEngine(kind, endpointId, first);
  const action = {
    kind,
    endpointId,
    restartsAudio,
    startedAt: endedAt - 2000,
    endedAt,
    result,
    hadEffect: first.apo_binding.bound,
    engine,
  };
  const name = devices.render.find((/** @type {State} */ { id }) => id === endpointId)?.name;
  return { action, kept: rememberAction(emptyMemory(), action, engine, name) };
}

/**
 * What a page has seen that has looked at this state for `seenMs`.
 *
 * @param {State} state
 * @param {number} seenMs
 */
export function seenFor(state, seenMs, at = now) {
  let seen = emptyObservation();
  seen = observe(seen, { kind: "equalizer", document: state.equalizer }, at - seenMs);
  seen = observe(seen, { kind: "devices", document: state.devices }, at - seenMs);
  seen = observe(seen, { kind: "status", document: state.before }, at - seenMs);
  if (seenMs > 2000) seen = observe(seen, { kind: "status", document: state.before }, at - 1000);
  seen = observe(seen, { kind: "status", document: state.now }, at - 200);
  return observe(seen, { kind: "devices", document: state.devices }, at - 100);
}

/**
 * The verdict of a page that has looked at a state for some time.
 *
 * @param {State} state
 * @param {Page} [page]
 */
export function judge(
  state,
  { link = answering, action, kept, seenMs = 3000, at = now, endedMs = 60_000 } = {},
) {
  const change = state.change ? afterChange(state, at - endedMs) : { action: null, kept: emptyMemory() };
  const seen = seenFor(state, seenMs, at);
  let memory = kept ?? change.kept;
  memory = rememberStatus(rememberDevices(memory, seen.devices), seen.now);
  const used = action === undefined ? change.action : action;
  const found = verdict(
    seen.now,
    seen.before,
    seen.devices,
    seen.equalizer,
    link,
    used,
    { kept: memory, seen },
    at,
  );
  return { found, seen: conclude(seen, found, at), memory, action: used };
}
