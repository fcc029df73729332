// The one sentence on the first screen: whether the person hears the effect, and if not, the one thing to do.
//
// The rows are judged in their order and the first that applies wins. A row applies only where the facts that it rests
// on are known. "Works" is the most careful one: each of its conditions must be known to hold.
import { gatherFacts, recentMs } from "./facts.js";
import { checksOf } from "./evidence.js";
import { shortDeviceName } from "./format.js";
import { activePrograms } from "./programs.js";
import { failureOf, resultSentence, serviceSentence } from "./reasons.js";

/**
 * @typedef {import("./types.js").Verdict} Verdict
 * @typedef {import("./types.js").VerdictId} VerdictId
 * @typedef {import("./types.js").Button} Button
 * @typedef {import("./types.js").Values} Values
 * @typedef {import("./types.js").Link} Link
 * @typedef {import("./types.js").Action} Action
 * @typedef {import("./types.js").Memory} Memory
 *
 * @typedef {object} Case everything that a row looks at
 * @property {import("./facts.js").Facts} facts
 * @property {Link} link
 * @property {Action | null} action
 * @property {Memory} memory
 * @property {unknown} devices
 * @property {number} time
 * @property {string} device how the chosen device is called
 *
 * @typedef {object} Found what a row says
 * @property {VerdictId} id
 * @property {Verdict["tone"]} tone
 * @property {Verdict["controls"]} [controls] shown, where it is not given
 * @property {string} [variant] of the headline; the id's own where it is not given
 * @property {string} [detail] variant of the detail; that of the headline where it is not given
 * @property {Values} [values] of headline and detail
 * @property {Button[]} [buttons]
 * @property {number} [since]
 */

/** From here on, a page that waits says what may be the reason. */
const longWaitMs = 10_000;
/** How long a restarted audio service may keep the old engine before the page calls it kept. */
export const engineSettlesMs = 10_000;
/** What a strength of 0 is raised to. */
export const usualStrength = 0.5;
/** What a volume of 0 is raised to. */
const usualVolume = 0.2;
/** So long the page waits for looks that clear up what the present ones leave open. */
const checkingEndsMs = 5000;
const unauthorized = 401;
const accessDenied = 0x80070005 | 0;

/**
 * @param {Button["id"]} id
 * @param {Values} [values]
 * @returns {Button}
 */
const button = (id, values = {}) => ({ id, key: `button.${id}`, values });

/** @param {Case} state */
function whichCannotBeReached({ link }) {
  if (link.state === "noToken" || link.state === "refused") {
    return /** @type {Found} */ ({ id: "expired", tone: "bad", controls: "hidden" });
  }
  if (link.state === "gone") return /** @type {Found} */ ({ id: "gone", tone: "bad", controls: "hidden" });
  return undefined;
}

/**
 * @param {Case} state
 * @returns {Found | undefined}
 */
function whichWaits({ link, time }) {
  if (link.state === "first") return { id: "checking", tone: "neutral", controls: "dimmed" };
  if (link.state !== "waiting") return undefined;
  const seconds = Math.max(0, Math.floor((time - link.since) / 1000));
  const detail = time - link.since > longWaitMs ? "waiting.long" : "waiting";
  return { id: "waiting", tone: "neutral", controls: "dimmed", detail, values: { seconds } };
}

/**
 * @param {Case} state
 * @returns {Found | undefined}
 */
function whichIsUnderWay({ action, facts, memory, time }) {
  if (action === null) return undefined;
  const seconds = Math.max(0, Math.floor((time - action.startedAt) / 1000));
  const variant = action.restartsAudio ? "restarting" : "restarting.settings";
  if (action.endedAt === null) return { id: "restarting", tone: "neutral", variant, values: { seconds } };
  // The old engine may still be seen for a moment after the audio service is back.
  const settles =
    action.result?.audioRestarted === true &&
    action.kind !== "remove" &&
    time - action.endedAt < engineSettlesMs;
  const isUnseen = memory.seen !== null && memory.seen.now === null;
  if (!settles || (facts.rebuilt !== false && !isUnseen)) return undefined;
  return { id: "restarting", tone: "neutral", detail: "restarting.engine", values: { seconds } };
}

/**
 * Whether the engine is known to be another one than before an action. Another page or program, or Windows, has
 * restarted audio since.
 *
 * @param {Action} action
 * @param {import("./facts.js").Facts} facts
 */
function hasRestartedSince({ engine: mark }, { engine }) {
  if (mark?.known !== true || engine.isRunning !== true || engine.processId === undefined) return false;
  return engine.processId !== mark.processId;
}

/**
 * @param {Case} state
 * @returns {Found | undefined}
 */
function whichDidNotRestart({ action, facts }) {
  const result = action?.result;
  if (!action?.restartsAudio || result?.status !== 200 || result.audioRestarted) return undefined;
  if (hasRestartedSince(action, facts)) return undefined;
  const values = {
    reason: serviceSentence(result.restartDetail),
    result: resultSentence(result.restartError),
  };
  const mayNot = facts.elevated === false && result.restartError === accessDenied;
  const detail = mayNot ? "restartFailed.rights" : "restartFailed";
  return { id: "restartFailed", tone: "bad", detail, values, buttons: [button("retryRestart")] };
}

/**
 * @param {Case} state
 * @returns {Found | undefined}
 */
function whichIsNotInstalled({ facts }) {
  if (facts.registered === false) return { id: "notInstalled", tone: "bad" };
  if (facts.filePresent === false) {
    return { id: "fileMissing", tone: "bad", variant: "fileMissing.effect", detail: "fileMissing" };
  }
  if (facts.algorithmPresent === false) {
    return { id: "fileMissing", tone: "bad", variant: "fileMissing.algorithm", detail: "fileMissing" };
  }
  return undefined;
}

/**
 * @param {Case} state
 * @returns {Found | undefined}
 */
function whichHasNoDevice({ facts, device }) {
  const { devices, binding } = facts;
  if (devices.isComplete && devices.playback.length === 0) return { id: "noDevice", tone: "warning" };
  if (!devices.isRead || facts.chosen !== undefined || !facts.idsAgree || !devices.selectedId)
    return undefined;
  if (!devices.isComplete && facts.renderAvailable !== false) return undefined;
  // A list that ended early may have missed it.
  if (!devices.isComplete && binding.endpointId !== devices.selectedId) return undefined;
  const variant = device === "" ? "deviceGone.unnamed" : "deviceGone";
  return { id: "deviceGone", tone: "warning", variant, detail: "deviceGone", values: { device } };
}

/**
 * @param {Case} state
 * @returns {Found | undefined}
 */
function whichTakesNoEffects({ facts, device }) {
  if (facts.binding.takesEffects !== false || !facts.idsAgree) return undefined;
  return { id: "noEffects", tone: "warning", values: { device } };
}

/**
 * Whether the device now is as a refused action should have made it. The chain must have changed, or the engine.
 *
 * @param {Action} action
 * @param {import("./facts.js").Facts} facts
 */
function isDoneSince(action, facts) {
  const wanted = action.kind !== "remove";
  if (facts.hasEffect !== wanted) return false;
  return action.hadEffect === !wanted || hasRestartedSince(action, facts);
}

/**
 * @param {Case} state
 * @returns {Found | undefined}
 */
function whichWasRefused({ facts, action }) {
  const result = action?.result;
  if (action === null || !result || result.status < 300 || result.status === unauthorized) return undefined;
  if (action.endpointId !== facts.chosenId || isDoneSince(action, facts)) return undefined;
  const values = { reason: serviceSentence(result.error) };
  if (facts.elevated === false) return { id: "needsAdmin", tone: "bad", values };
  const { kind, endpointId } = action;
  const buttons = [button("openHelp"), button("retryChange", { kind, endpointId })];
  return { id: "refused", tone: "bad", values, buttons };
}

/**
 * Whether the effect was removed from the chosen device and the engine of that time still runs. What it has loaded
 * cannot always be listed; an engine that is known not to have the effect has nothing to finish.
 *
 * @param {Case} state
 */
function awaitsRemoval({ facts: { engine, chosenId }, memory: { kept } }) {
  if (chosenId === undefined || !kept.removalPending?.endpointIds.includes(chosenId)) return false;
  const isSame = engine.isRunning === true && engine.processId === kept.removalPending.processId;
  return isSame && engine.effectLoaded !== false;
}

/**
 * @param {Case} state
 * @returns {Found | undefined}
 */
function whichIsNotAdded(state) {
  const { facts, memory, devices, device } = state;
  if (facts.hasEffect !== false || !facts.chosenId) return undefined;
  const programs = activePrograms(devices);
  const values = { device, programs, endpointId: facts.chosenId };
  const wanted = { endpointId: facts.chosenId };
  if (Object.hasOwn(memory.kept.added, facts.chosenId)) {
    return { id: "goneAgain", tone: "warning", values, buttons: [button("addAgain", wanted)] };
  }
  if (awaitsRemoval(state)) {
    const buttons = [button("restart", { ...wanted, as: "remove" }), button("addAgain", wanted)];
    return { id: "removalPending", tone: "warning", values, buttons };
  }
  const detail = programs.length > 0 ? "notAdded.programs" : "notAdded";
  return {
    id: "notAdded",
    tone: "warning",
    detail,
    values,
    buttons: [button("add", wanted), button("addLater", wanted)],
  };
}

/**
 * @param {Case} state
 * @returns {Found | undefined}
 */
function whichNeedsARestart({ facts, memory }) {
  const { restartPending: pending, engine: mark } = memory.kept;
  const { engine, chosenId } = facts;
  if (facts.hasEffect === false) return undefined;
  if (pending !== null && pending.endpointId === chosenId) {
    const isAnother =
      engine.isRunning === true && engine.processId !== undefined && engine.processId !== pending.processId;
    const wanted = { endpointId: pending.endpointId };
    if (!isAnother) return { id: "restartPending", tone: "warning", buttons: [button("restart", wanted)] };
  }
  if (mark !== null && facts.rebuilt === false) return { id: "engineKept", tone: "warning" };
  return undefined;
}

/**
 * @param {Case} state
 * @returns {Found | undefined}
 */
function whichIsMuted({ facts }) {
  if (facts.renderAvailable !== true || !facts.idsAgree) return undefined;
  if (facts.muted !== true && facts.volume !== 0) return undefined;
  const values = { muted: facts.muted === true, volume: facts.volume === 0 ? usualVolume : facts.volume };
  const detail = facts.muted === true ? "muted" : "muted.volume";
  return { id: "muted", tone: "warning", detail, buttons: [button("unmute", values)] };
}

/**
 * @param {Case} state
 * @returns {Found | undefined}
 */
function whichIsOff({ facts, memory }) {
  const { effect, equalizerIsOn } = facts;
  if (effect.enhancementIsOn === false && equalizerIsOn === false) {
    const strength = effect.strength || memory.kept.lastStrength || usualStrength;
    return { id: "off", tone: "warning", buttons: [button("turnOn", { strength })] };
  }
  if (effect.bypassAll === true) {
    return memory.kept.comparing
      ? { id: "original", tone: "warning", buttons: [button("backToVelmora")] }
      : { id: "bypassed", tone: "warning", buttons: [button("stopBypassing")] };
  }
  if (effect.enhancementIsOn === true && effect.strength === 0 && equalizerIsOn === false) {
    return {
      id: "strengthZero",
      tone: "warning",
      buttons: [button("setStrength", { strength: usualStrength })],
    };
  }
  return undefined;
}

/**
 * @param {number | null | undefined} since
 * @param {number} time
 */
const longEnough = (since, time) => since !== null && since !== undefined && time - since >= recentMs;

/**
 * @param {Case} state
 * @returns {Found | undefined}
 */
function whichCouldNotStart({ facts, memory, time }) {
  if (!facts.chosenSounds || !facts.idsAgree) return undefined;
  const { seen } = memory;
  // A status document from before the sound says nothing about it.
  if (seen !== null && (seen.soundSince === null || seen.nowAt < seen.soundSince)) return undefined;
  const hasHadSound = longEnough(seen?.soundSince, time);
  const lasting = {
    differs: hasHadSound && longEnough(seen?.differsSince, time),
    still: hasHadSound && longEnough(seen?.stillSince, time),
  };
  const reason = failureOf(facts, lasting);
  if (reason === undefined) return undefined;
  return { id: "couldNotStart", tone: "bad", values: { reason }, buttons: [button("copyReport")] };
}

/**
 * @param {Case} state
 * @returns {Found | undefined}
 */
function whichSoundsElsewhere({ facts }) {
  const { playback } = facts.devices;
  if (facts.soundingWithEffect.length > 1 && facts.moved === true)
    return { id: "severalDevices", tone: "warning" };
  if (facts.chosenSounds || facts.othersSounding.length === 0 || !facts.idsAgree) return undefined;
  const other = facts.othersSounding.find(({ isDefault }) => isDefault) ?? facts.othersSounding[0];
  const names = playback.map(({ name }) => name);
  const values = { device: shortDeviceName(other.name, names), endpointId: other.id };
  return { id: "otherDevice", tone: "warning", values, buttons: [button("useDevice", values)] };
}

/**
 * @param {Case} state
 * @returns {Found | undefined}
 */
function whichIsSilent({ facts, memory, device }) {
  const { seen } = memory;
  if (!facts.soundKnown || facts.chosenSounds || facts.hasEffect !== true) return undefined;
  // On a slow service the last look may be older than a peak counts: what it saw is no silence.
  if (seen !== null && seen.soundSince !== null) return undefined;
  return { id: "ready", tone: "neutral", values: { device } };
}

/**
 * @param {Case} state
 */
function isHeard({ facts, memory }) {
  const { effect } = facts;
  const enhances = effect.enhancementIsOn === true && (effect.strength ?? 0) > 0;
  return (
    facts.binding.bound === true &&
    facts.chosen?.hasEffect === true &&
    facts.binding.endpointId === facts.chosen.id &&
    facts.devices.selectedId === facts.chosen.id &&
    facts.moved === true &&
    facts.chosenSounds &&
    facts.othersSounding.every(({ hasEffect }) => hasEffect === false) &&
    facts.soundingWithEffect.every(({ id }) => id === facts.chosenId) &&
    facts.renderAvailable === true &&
    (facts.volume ?? 0) > 0 &&
    facts.muted === false &&
    effect.isRead === true &&
    effect.bypassAll === false &&
    facts.appliedEquals === true &&
    (enhances || facts.equalizerIsOn === true) &&
    effect.algorithmError === 0 &&
    facts.rebuilt === true &&
    memory.kept.restartPending?.endpointId !== facts.chosenId
  );
}

/**
 * @param {Case} state
 * @returns {Found | undefined}
 */
function whichWorks(state) {
  if (!isHeard(state)) return undefined;
  const { facts, memory, time, device } = state;
  const { enhancementIsOn, strength } = facts.effect;
  const since = memory.seen?.worksSince ?? time;
  const enhances = enhancementIsOn === true && (strength ?? 0) > 0;
  const kind = enhances ? "enhancement" : "equalizer";
  return { id: "works", tone: "good", detail: `works.${kind}`, values: { device, since, strength }, since };
}

/**
 * Whether the next looks can tell: two documents of different moments disagree, or sound has just begun.
 *
 * @param {import("./facts.js").Facts} facts
 * @param {import("./types.js").Observation} seen
 * @param {number} time
 */
function mayClearUp(facts, seen, time) {
  if (seen.checkingSince !== null && time - seen.checkingSince >= checkingEndsMs) return false;
  const { effect, devices } = facts;
  const isRead = facts.statusIsRead && devices.isRead && facts.soundKnown && effect.isRead === true;
  const isWhole =
    facts.renderAvailable === true && facts.equalizerIsOn !== undefined && facts.appliedEquals !== undefined;
  const isMoving = seen.before === null || facts.chosenSounds || seen.soundSince !== null;
  return !facts.idsAgree || (isRead && isWhole && (isMoving || facts.hasEffect === undefined));
}

/**
 * What cannot be said yet, or at all.
 *
 * @param {Case} state
 * @returns {Found}
 */
function whichIsUnclear({ facts, memory, time, device }) {
  const { seen } = memory;
  const isUnseen = seen !== null && (seen.now === null || seen.devices === null);
  if (isUnseen || (seen !== null && mayClearUp(facts, seen, time)))
    return { id: "checking", tone: "neutral" };
  if (!facts.statusIsRead || !facts.devices.isRead)
    return { id: "unclear", tone: "warning", detail: "unclear.answer" };
  if (!facts.devices.isComplete && facts.chosen === undefined) {
    return {
      id: "unclear",
      tone: "warning",
      detail: "unclear.devices",
      values: { result: resultSentence(facts.devices.errorCode ?? 0) },
    };
  }
  if (facts.effect.isRead === false) return { id: "unclear", tone: "warning", detail: "unclear.record" };
  if (facts.renderAvailable === false) {
    const values = { device, result: resultSentence(facts.renderError ?? 0) };
    return { id: "unclear", tone: "warning", detail: "unclear.volume", values };
  }
  return { id: "unclear", tone: "warning", detail: "unclear" };
}

const rows = [
  whichCannotBeReached,
  whichWaits,
  whichIsUnderWay,
  whichDidNotRestart,
  whichIsNotInstalled,
  whichHasNoDevice,
  whichTakesNoEffects,
  whichWasRefused,
  whichIsNotAdded,
  whichNeedsARestart,
  whichIsMuted,
  whichIsOff,
  whichCouldNotStart,
  whichSoundsElsewhere,
  whichIsSilent,
  whichWorks,
];

/**
 * How the chosen device is called, also when it is gone.
 *
 * @param {import("./facts.js").Facts} facts
 * @param {Memory} memory
 */
function chosenName({ chosen, chosenId, devices }, { kept, seen }) {
  const names = devices.playback.map(({ name }) => name);
  if (chosen !== undefined) return shortDeviceName(chosen.name, names);
  if (chosenId !== undefined && seen?.chosen?.id === chosenId)
    return shortDeviceName(seen.chosen.name, names);
  const known = chosenId !== undefined && Object.hasOwn(kept.added, chosenId) ? kept.added[chosenId] : "";
  return shortDeviceName(known, names);
}

/**
 * Exactly one verdict with its evidence and next step. It never throws, whatever the documents hold.
 *
 * @param {unknown} now the last status document
 * @param {unknown} before the one before it
 * @param {unknown} devices the device list
 * @param {unknown} equalizer its setting
 * @param {Link} link
 * @param {Action | null} action
 * @param {Memory} memory
 * @param {number} time
 * @returns {Verdict}
 */
export function verdict(now, before, devices, equalizer, link, action, memory, time) {
  const facts = gatherFacts(now, before, devices, equalizer, memory, time);
  const state = { facts, link, action, memory, devices, time, device: chosenName(facts, memory) };
  let found;
  for (const row of rows) {
    found = row(state);
    if (found !== undefined) break;
  }
  found ??= whichIsUnclear(state);
  const { id, tone, controls = "shown", values = {}, buttons = [], since } = found;
  const variant = found.variant ?? id;
  return {
    id,
    tone,
    headline: { key: `verdict.${variant}`, values },
    detail: { key: `detail.${found.detail ?? variant}`, values },
    buttons,
    controls,
    evidence: checksOf(facts),
    ...(since === undefined ? {} : { since }),
  };
}
