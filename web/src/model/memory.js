// What the page keeps in browser storage, so that it knows after a reload what it had seen before. All functions are
// pure but for readMemory and writeMemory, which are given the storage. A storage that is full, refused or holds
// something else is no failure: the page then knows less.
import { devicesFacts, engineFacts } from "./facts.js";
import { flagOf, listOf, numberOf, objectOf, textOf, textsOf } from "./read.js";
import { readTies } from "./ties.js";

/**
 * @typedef {import("./types.js").Kept} Kept
 * @typedef {import("./types.js").EngineMark} EngineMark
 * @typedef {import("./types.js").EngineBefore} EngineBefore
 * @typedef {import("./types.js").LastSettings} LastSettings
 * @typedef {import("./types.js").Action} Action
 * @typedef {Pick<Storage, "getItem" | "setItem">} Store
 */

const storageKey = "velmora.memory";
const version = 1;
const mostDevices = 64;
const mostTrims = 200;
const trimRange = { minimum: -60, maximum: 20 };

/** @returns {Kept} */
export function emptyMemory() {
  return {
    added: {},
    engine: null,
    restartPending: null,
    removalPending: null,
    lastSettings: null,
    lastStrength: null,
    comparing: false,
    language: null,
    preset: null,
    unsent: null,
    matching: null,
    ties: [],
    offersTies: true,
    chosenDevice: null,
    offeredDevice: null,
    trims: [],
  };
}

/**
 * Objects with the ids of devices as keys: an id may be any text, "__proto__" too.
 *
 * @param {[string, string][]} entries
 * @returns {Record<string, string>}
 */
const byId = (entries) => Object.fromEntries(entries);

/** @param {unknown} value */
function readAdded(value) {
  /** @type {[string, string][]} */
  const entries = [];
  for (const pair of listOf(value)) {
    const [id, name] = listOf(pair);
    if (typeof id === "string" && id !== "" && typeof name === "string") entries.push([id, name]);
  }
  return byId(entries.slice(-mostDevices));
}

/**
 * @param {unknown} value
 * @returns {EngineMark | null}
 */
function readEngine(value) {
  const { processId, known, lockCount, kind, endpointId } = objectOf(value);
  const isKind = kind === "add" || kind === "remove" || kind === "restart";
  if (typeof processId !== "number" || typeof lockCount !== "number" || typeof known !== "boolean")
    return null;
  return isKind && typeof endpointId === "string" ? { processId, known, lockCount, kind, endpointId } : null;
}

/**
 * @param {unknown} value
 * @returns {Kept["removalPending"]}
 */
function readRemoval(value) {
  const { processId, endpointIds } = objectOf(value);
  const ids = textsOf(endpointIds)
    .filter((id) => id !== "")
    .slice(-mostDevices);
  return typeof processId === "number" && ids.length > 0 ? { processId, endpointIds: ids } : null;
}

/**
 * @param {unknown} value
 * @returns {LastSettings["equalizer"]}
 */
function readEqualizer(value) {
  const { bypass, fade_ms: fade, bands } = objectOf(value);
  const isWhole = (/** @type {unknown} */ band) =>
    ["type", "freq_hz", "gain_db", "q"].every((key) => numberOf(objectOf(band)[key]) !== undefined);
  if (flagOf(bypass) === undefined || numberOf(fade) === undefined || !Array.isArray(bands)) return null;
  if (bands.length !== 15 || !bands.every(isWhole)) return null;
  return /** @type {LastSettings["equalizer"]} */ (value);
}

/**
 * @param {unknown} value
 * @returns {import("./types.js").PresetRef | null}
 */
function readPreset(value) {
  const { name, starter, saved } = objectOf(value);
  const setting = readEqualizer(saved);
  if (typeof name !== "string" || name === "" || typeof starter !== "boolean" || setting === null)
    return null;
  return { name, starter, saved: setting };
}

/**
 * @param {unknown} value
 * @returns {import("./types.js").Matching | null}
 */
function readMatching(value) {
  const { trimBefore, trimDb } = objectOf(value);
  const isTrim = (/** @type {unknown} */ trim) => typeof trim === "number" && trim >= -60 && trim <= 20;
  return isTrim(trimBefore) && isTrim(trimDb)
    ? /** @type {import("./types.js").Matching} */ ({ trimBefore, trimDb })
    : null;
}

/**
 * @param {unknown} value
 * @returns {LastSettings["footstep"] | null}
 */
function readFootstep(value) {
  const { bypass, bypass_all: bypassAll, enhance_strength: strength } = objectOf(value);
  if (typeof bypass !== "boolean" || typeof bypassAll !== "boolean") return null;
  if (typeof strength !== "number" || !(strength >= 0 && strength <= 1)) return null;
  return { bypass, bypass_all: bypassAll, enhance_strength: strength };
}

/**
 * @param {unknown} value
 * @returns {LastSettings | null}
 */
function readSettings(value) {
  const { footstep, preset, starter, presetChanged, equalizer } = objectOf(value);
  const read = readFootstep(footstep);
  if (read === null) return null;
  return {
    footstep: read,
    preset: textOf(preset) ?? "",
    ...(starter === true && { starter }),
    presetChanged: presetChanged === true,
    equalizer: readEqualizer(equalizer),
  };
}

/** @param {number} trim */
const isTrim = (trim) => trim >= trimRange.minimum && trim <= trimRange.maximum;

/**
 * @param {unknown} value
 * @returns {Kept["trims"]}
 */
function readTrims(value) {
  /** @type {Map<string, number>} */
  const trims = new Map();
  for (const pair of listOf(value)) {
    const [preset, trim] = listOf(pair);
    if (typeof preset !== "string" || preset === "" || typeof trim !== "number" || !isTrim(trim)) continue;
    // The later one is the newer one, and the newer ones are kept.
    trims.delete(preset);
    trims.set(preset, trim);
  }
  return [...trims].slice(-mostTrims);
}

/**
 * @param {string | null} text
 * @returns {Kept} the empty memory where the text is of another version or no memory; a bad member is left out
 */
export function parseMemory(text) {
  const memory = emptyMemory();
  let value;
  try {
    value = objectOf(JSON.parse(text ?? "null"));
  } catch {
    return memory;
  }
  if (value.version !== version) return memory;
  const pending = objectOf(value.restartPending);
  const [endpointId, processId] = [textOf(pending.endpointId), numberOf(pending.processId)];
  const strength = numberOf(value.lastStrength);
  return {
    added: readAdded(value.added),
    engine: readEngine(value.engine),
    restartPending: endpointId && processId !== undefined ? { endpointId, processId } : null,
    removalPending: readRemoval(value.removalPending),
    lastSettings: readSettings(value.lastSettings),
    lastStrength: strength !== undefined && strength > 0 && strength <= 1 ? strength : null,
    comparing: value.comparing === true,
    language: value.language === "en" || value.language === "zh" ? value.language : null,
    preset: readPreset(value.preset),
    unsent: readEqualizer(value.unsent),
    matching: readMatching(value.matching),
    ties: readTies(value.ties),
    offersTies: value.offersTies !== false,
    chosenDevice: textOf(value.chosenDevice) ?? null,
    offeredDevice: textOf(value.offeredDevice) ?? null,
    trims: readTrims(value.trims),
  };
}

/**
 * @param {Kept} kept
 * @returns {string}
 */
export function serializeMemory(kept) {
  return JSON.stringify({ version, ...kept, added: Object.entries(kept.added) });
}

/**
 * @param {() => Store | null | undefined} storage gives the storage; it may throw, as `() => localStorage` does where
 *   the browser refuses it
 * @returns {Kept}
 */
export function readMemory(storage) {
  try {
    return parseMemory(storage()?.getItem(storageKey) ?? null);
  } catch {
    return emptyMemory();
  }
}

/**
 * @param {() => Store | null | undefined} storage
 * @param {Kept} kept
 * @returns {boolean} false if it could not be kept
 */
export function writeMemory(storage, kept) {
  try {
    const store = storage();
    if (!store) return false;
    store.setItem(storageKey, serializeMemory(kept));
    return true;
  } catch {
    return false;
  }
}

// ---- what changes it ----

/**
 * Without devices from which the effect is removed, no removal is pending.
 *
 * @param {Kept["removalPending"]} pending
 * @param {(id: string) => boolean} stays
 * @returns {Kept["removalPending"]} the same object where all stay
 */
function keepRemovals(pending, stays) {
  if (pending === null || pending.endpointIds.every(stays)) return pending;
  const endpointIds = pending.endpointIds.filter(stays);
  return endpointIds.length > 0 ? { ...pending, endpointIds } : null;
}

/**
 * Takes in a device list: remembers the devices that have the effect. One that has it again is no longer one from which
 * it was removed. Gives the same object where nothing changed.
 *
 * @param {Kept} kept
 * @param {unknown} devices
 * @returns {Kept}
 */
export function rememberDevices(kept, devices) {
  const seen = devicesFacts(devices).playback.filter(({ hasEffect }) => hasEffect === true);
  const news = seen.filter(({ id, name }) => !Object.hasOwn(kept.added, id) || kept.added[id] !== name);
  const removalPending = keepRemovals(kept.removalPending, (one) => seen.every(({ id }) => id !== one));
  if (news.length === 0 && removalPending === kept.removalPending) return kept;
  const added = new Map(Object.entries(kept.added));
  for (const { id, name } of news) added.set(id, name);
  return { ...kept, added: byId([...added].slice(-mostDevices)), removalPending };
}

/**
 * Takes in a status document: forgets what the engine's new process has settled, and keeps the strength.
 *
 * @param {Kept} kept
 * @param {unknown} status
 * @returns {Kept}
 */
export function rememberStatus(kept, status) {
  const { isRunning, processId } = engineFacts(status);
  let { engine, restartPending, removalPending, lastStrength } = kept;
  const isAnother = (/** @type {number} */ old) =>
    isRunning === true && processId !== undefined && processId !== old;
  if (engine !== null && engine.known && (isRunning === false || isAnother(engine.processId))) engine = null;
  if (restartPending !== null && isAnother(restartPending.processId)) restartPending = null;
  if (removalPending !== null && (isRunning === false || isAnother(removalPending.processId)))
    removalPending = null;
  const strength = numberOf(objectOf(objectOf(status).footstep).enhance_strength);
  if (strength !== undefined && strength > 0 && strength <= 1) lastStrength = strength;
  const isSame =
    engine === kept.engine &&
    restartPending === kept.restartPending &&
    removalPending === kept.removalPending &&
    lastStrength === kept.lastStrength;
  return isSame ? kept : { ...kept, engine, restartPending, removalPending, lastStrength };
}

/**
 * The engine as it is before an add, a remove or a restart. Take it from a status document that was read just before
 * the request is sent.
 *
 * @param {Action["kind"]} kind
 * @param {string} endpointId
 * @param {unknown} status
 * @returns {EngineBefore}
 */
export function markEngine(kind, endpointId, status) {
  const { isRunning, processId, effectLoaded } = engineFacts(status);
  const lockCount = numberOf(objectOf(objectOf(status).apo_diagnostics).lock_count) ?? 0;
  const runs = isRunning === true && processId !== undefined;
  const known = isRunning === false || runs;
  return { processId: runs ? processId : 0, known, lockCount, kind, endpointId, effectLoaded };
}

/**
 * The devices from which the effect was removed while the engine keeps it, after one more add or remove that did not
 * restart audio.
 *
 * @param {Kept} kept
 * @param {Action} action
 * @param {EngineBefore} before
 * @returns {Kept["removalPending"]}
 */
function removalAfter({ removalPending, restartPending }, { kind, endpointId }, before) {
  const { processId, known, effectLoaded } = before;
  const isOver = known && removalPending?.processId !== processId;
  const pending = keepRemovals(isOver ? null : removalPending, (id) => id !== endpointId);
  // An engine that is older than the add has never loaded the effect for this device.
  const neverHadIt = restartPending?.endpointId === endpointId && restartPending.processId === processId;
  if (kind !== "remove" || processId === 0 || effectLoaded === false || neverHadIt) return pending;
  return { processId, endpointIds: [...(pending?.endpointIds ?? []), endpointId].slice(-mostDevices) };
}

/**
 * Whether the engine still has the effect from before it was removed, so that adding it again needs no restart.
 *
 * @param {Kept} kept
 * @param {EngineBefore} before
 */
function stillHasIt({ removalPending }, { processId, effectLoaded, endpointId }) {
  const isSame = removalPending !== null && removalPending.processId === processId;
  return isSame && effectLoaded !== false && removalPending.endpointIds.includes(endpointId);
}

/**
 * Takes in the end of an add, a remove or a restart.
 *
 * @param {Kept} kept
 * @param {Action} action ended
 * @param {EngineBefore} before the engine from before it
 * @param {string} [name] of the device
 * @returns {Kept}
 */
export function rememberAction(kept, action, before, name = "") {
  const { kind, endpointId, restartsAudio, result } = action;
  if (result?.status !== 200) return kept;
  const added = new Map(Object.entries(kept.added));
  if (kind === "remove") added.delete(endpointId);
  else added.set(endpointId, name || added.get(endpointId) || "");
  const hasRestarted = restartsAudio && result.audioRestarted;
  const { processId, known, lockCount } = before;
  const isPending = kind !== "remove" && !hasRestarted && !stillHasIt(kept, before);
  const stillPending =
    kept.restartPending?.endpointId === endpointId || hasRestarted ? null : kept.restartPending;
  return {
    ...kept,
    added: byId([...added].slice(-mostDevices)),
    engine: hasRestarted ? { processId, known, lockCount, kind, endpointId } : kept.engine,
    restartPending: isPending ? { endpointId, processId } : stillPending,
    removalPending: hasRestarted ? null : removalAfter(kept, action, before),
  };
}

/**
 * The settings to offer after the record has gone back to its first values. "Hear the original" is for comparing, so
 * it is not among them.
 *
 * @param {Kept} kept
 * @param {LastSettings["footstep"]} footstep
 * @param {LastSettings["equalizer"]} equalizer
 * @param {boolean} [presetChanged] the bands have been edited since the chosen preset was loaded or saved
 * @returns {Kept}
 */
export function rememberSettings(kept, footstep, equalizer, presetChanged = false) {
  const { bypass, enhance_strength: strength } = footstep;
  const settings = { bypass, bypass_all: false, enhance_strength: strength };
  const lastStrength = strength > 0 ? strength : kept.lastStrength;
  const { name: preset = "", starter = false } = kept.preset ?? {};
  const lastSettings = { footstep: settings, equalizer, preset, ...(starter && { starter }), presetChanged };
  return { ...kept, lastSettings, lastStrength };
}

// ---- the output trim of presets ----

/**
 * The output trim that was set when a preset was saved. A preset file has no place for it.
 *
 * @param {Kept} kept
 * @param {string} preset
 * @returns {number | undefined} decibels
 */
export const trimOf = ({ trims }, preset) => trims.find(([name]) => name === preset)?.[1];

/**
 * @param {Kept} kept
 * @param {string} preset
 * @param {number | undefined} trim decibels; undefined: it is not known, and any earlier one is forgotten
 * @returns {Kept} the same object where nothing changed
 */
export function rememberTrim(kept, preset, trim) {
  const isKnown = trim !== undefined && isTrim(trim);
  if (trimOf(kept, preset) === (isKnown ? trim : undefined)) return kept;
  const others = kept.trims.filter(([name]) => name !== preset);
  /** @type {Kept["trims"]} */
  const trims = isKnown ? [...others, [preset, trim]] : others;
  return { ...kept, trims: trims.slice(-mostTrims) };
}

/**
 * Whether the record holds the values of a new one.
 *
 * @param {unknown} status
 * @param {unknown} equalizer
 * @returns {boolean} false where that is not known
 */
export function holdsFirstValues(status, equalizer) {
  const document = objectOf(status);
  const { bypass, bypass_all: bypassAll, enhance_strength: strength } = objectOf(document.footstep);
  if (document.control_bridge_available !== true) return false;
  const { bypass: equalizerBypass, bands } = objectOf(equalizer);
  const isFlat =
    Array.isArray(bands) && bands.every((band) => objectOf(band).gain_db === 0 && objectOf(band).type === 0);
  return bypass === true && bypassAll === false && strength === 0 && equalizerBypass === true && isFlat;
}

/**
 * The settings to offer, if they would change anything. The person decides; nothing is sent by itself.
 *
 * @param {Kept} kept
 * @param {unknown} status
 * @param {unknown} equalizer
 * @returns {LastSettings | null}
 */
export function settingsToOffer(kept, status, equalizer) {
  const { lastSettings: last } = kept;
  if (last === null || !holdsFirstValues(status, equalizer)) return null;
  const isOn = !last.footstep.bypass && last.footstep.enhance_strength > 0;
  const equalizes = last.equalizer !== null && !last.equalizer.bypass;
  return isOn || equalizes ? last : null;
}
