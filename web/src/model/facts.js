// What two status documents and a device list say about the chosen device, as facts that are true, false or unknown
// (undefined). The verdict and its evidence are made of these facts only.
import { flagOf, listOf, numberOf, objectOf, textOf, textsOf } from "./read.js";

/** @typedef {import("./types.js").Memory} Memory */

/** How long a peak counts as sound, and how long a report may differ from the settings. */
export const recentMs = 2000;

/** What an initialisation leaves that has begun and not ended, signed (E_PENDING). */
export const pendingResult = 0x8000000a | 0;
const notFoundResult = 0x80070490 | 0;
const fileNotFoundResult = 0x80070002 | 0;

/**
 * @typedef {object} DeviceFacts
 * @property {string} id
 * @property {string} name the id when it has no name
 * @property {boolean} isDefault
 * @property {number | undefined} peak
 * @property {string[]} sessions
 * @property {boolean | undefined} hasEffect undefined for a microphone
 */

/**
 * @param {unknown} value
 * @returns {DeviceFacts | undefined} undefined if it has no id
 */
function deviceFacts(value) {
  const device = objectOf(value);
  const id = textOf(device.id);
  if (id === undefined || id === "") return undefined;
  return {
    id,
    name: textOf(device.name) || id,
    isDefault: flagOf(device.is_default) ?? false,
    peak: numberOf(device.peak),
    sessions: textsOf(device.sessions).filter((name) => name !== ""),
    hasEffect: flagOf(device.apo_bound),
  };
}

/**
 * @param {unknown} list
 * @returns {DeviceFacts[]}
 */
function deviceList(list) {
  return listOf(list)
    .map(deviceFacts)
    .filter((device) => device !== undefined);
}

/**
 * @param {unknown} document a device list
 */
export function devicesFacts(document) {
  const devices = objectOf(document);
  const errorCode = numberOf(devices.error_code);
  return {
    isRead: Array.isArray(devices.render),
    playback: deviceList(devices.render),
    microphones: deviceList(devices.capture),
    selectedId: textOf(devices.selected_render_endpoint_id),
    errorCode,
    // A list that could not be read ends early. "Not found" means that there is no default: the list is complete.
    isComplete: Array.isArray(devices.render) && (errorCode === 0 || errorCode === notFoundResult),
  };
}

/**
 * @param {unknown} document an equalizer setting
 * @returns {boolean | undefined} whether the equalizer is on
 */
export function equalizerIsOn(document) {
  const bypass = flagOf(objectOf(document).bypass);
  return bypass === undefined ? undefined : !bypass;
}

/**
 * @param {unknown} value
 * @returns {number | undefined} NaN and infinities too, which come as texts
 */
function strengthOf(value) {
  if (value === "nan") return NaN;
  if (value === "inf" || value === "-inf") return value === "inf" ? Infinity : -Infinity;
  return numberOf(value);
}

/**
 * Whether what the effect reports equals the settings. The strength of both has been printed from a 32-bit float with
 * seven digits.
 *
 * @param {unknown} status
 * @returns {boolean | undefined}
 */
export function appliedEqualsPublished(status) {
  const document = objectOf(status);
  const wanted = objectOf(document.footstep);
  const applied = objectOf(document.apo_diagnostics);
  const strengths = [strengthOf(wanted.enhance_strength), strengthOf(applied.applied_strength)];
  const flags = [wanted.bypass, wanted.bypass_all, applied.applied_bypass, applied.applied_bypass_all].map(
    flagOf,
  );
  if (flagOf(applied.applied_valid) === false) return false;
  if (applied.applied_valid !== true || flags.includes(undefined) || strengths.includes(undefined))
    return undefined;
  return (
    flags[0] === flags[2] &&
    flags[1] === flags[3] &&
    Math.abs(Number(strengths[0]) - Number(strengths[1])) < 1e-6
  );
}

/**
 * @param {unknown} now
 * @param {unknown} before
 * @returns {boolean | undefined} whether sound went through the effect between the two looks
 */
export function blocksMoved(now, before) {
  const blocks = numberOf(objectOf(objectOf(now).apo_diagnostics).total_processed_blocks);
  const blocksBefore = numberOf(objectOf(objectOf(before).apo_diagnostics).total_processed_blocks);
  if (blocks === undefined || blocksBefore === undefined) return undefined;
  if (objectOf(objectOf(now).apo_diagnostics).available === false) return undefined;
  // A record that was created again starts at 0.
  return blocks < blocksBefore ? undefined : blocks > blocksBefore;
}

/**
 * @param {Record<string, unknown>} status
 */
function effectFacts(status) {
  const report = objectOf(status.apo_diagnostics);
  const footstep = objectOf(status.footstep);
  const bypass = flagOf(footstep.bypass);
  return {
    isRead: flagOf(report.available),
    enhancementIsOn: bypass === undefined ? undefined : !bypass,
    bypassAll: flagOf(footstep.bypass_all),
    strength: numberOf(footstep.enhance_strength),
    initializeResult: numberOf(report.initialize_hresult),
    initializeStage: numberOf(report.initialize_stage),
    lockResult: numberOf(report.lock_hresult),
    lockStage: numberOf(report.lock_stage),
    lockCount: numberOf(report.lock_count),
    algorithmError: numberOf(report.last_algorithm_error),
    appliedValid: flagOf(report.applied_valid),
    appliedBypass: flagOf(report.applied_bypass),
    appliedBypassAll: flagOf(report.applied_bypass_all),
    appliedStrength: numberOf(report.applied_strength),
    blocks: numberOf(report.total_processed_blocks),
  };
}

/**
 * The engine as its process and its modules show it. What could not be listed is unknown.
 *
 * @param {unknown} status
 */
export function engineFacts(status) {
  const engine = objectOf(objectOf(status).audio_engine);
  const errorCode = numberOf(engine.error_code);
  const running = flagOf(engine.running);
  const listed = errorCode === 0;
  return {
    isRunning: running || listed ? running : undefined,
    processId: numberOf(engine.process_id),
    effectLoaded: engine.apo_loaded === true || listed ? flagOf(engine.apo_loaded) : undefined,
    algorithmLoaded: engine.algorithm_loaded === true || listed ? flagOf(engine.algorithm_loaded) : undefined,
    modulePath: textOf(engine.apo_module_path),
    errorCode,
  };
}

/**
 * Whether the engine is another one than before the last change that restarted audio; true when there was none.
 *
 * @param {import("./types.js").EngineMark | null} mark
 * @param {ReturnType<typeof engineFacts>} engine
 * @param {number | undefined} lockCount
 * @returns {boolean | undefined}
 */
export function engineWasRebuilt(mark, engine, lockCount) {
  if (mark === null || mark.kind === "remove") return true;
  if (mark.known && engine.isRunning === false) return true;
  if (mark.known && engine.isRunning && engine.processId !== undefined)
    return engine.processId !== mark.processId;
  // Where processes cannot be listed, a stream that was locked since then shows that the engine has loaded the effect again.
  return lockCount !== undefined && lockCount > mark.lockCount ? true : undefined;
}

/**
 * @param {Record<string, unknown>} status
 */
function bindingFacts(status) {
  const binding = objectOf(status.apo_binding);
  const errorCode = numberOf(binding.error_code);
  const present = flagOf(binding.fx_key_present);
  const isMissing = present === false && (errorCode === 0 || errorCode === fileNotFoundResult);
  return {
    endpointId: textOf(binding.endpoint_id),
    bound: flagOf(binding.bound),
    takesEffects: isMissing ? false : present || undefined,
    keyPresent: present,
    errorCode,
    chain: textsOf(binding.chain),
  };
}

/**
 * @param {boolean | undefined} first
 * @param {boolean | undefined} second
 * @returns {boolean | undefined} what both say; undefined where they disagree
 */
function agreed(first, second) {
  if (first === undefined) return second;
  return second === undefined || first === second ? first : undefined;
}

/**
 * Which playback devices had sound lately, in the list's order.
 *
 * @param {DeviceFacts[]} playback
 * @param {Memory} memory
 * @param {number} time
 */
function soundingDevices(playback, memory, time) {
  const peaks = memory.seen?.peaks;
  return playback.filter(({ id, peak }) => {
    if (peaks === undefined) return (peak ?? 0) > 0;
    const seenAt = Object.hasOwn(peaks, id) ? peaks[id] : undefined;
    return seenAt !== undefined && time - seenAt <= recentMs;
  });
}

/**
 * @param {unknown} now
 * @param {unknown} before
 * @param {unknown} devicesDocument
 * @param {unknown} equalizer
 * @param {Memory} memory
 * @param {number} time
 */
export function gatherFacts(now, before, devicesDocument, equalizer, memory, time) {
  const status = objectOf(now);
  const devices = devicesFacts(devicesDocument);
  const binding = bindingFacts(status);
  const host = objectOf(status.apo_host);
  const render = objectOf(status.render);
  const effect = effectFacts(status);
  const engine = engineFacts(now);
  // Two documents of different moments may name different devices; the next look clears that up.
  const idsAgree =
    devices.selectedId === undefined ||
    binding.endpointId === undefined ||
    devices.selectedId === binding.endpointId;
  const chosenId = devices.selectedId ?? binding.endpointId;
  const chosen = devices.playback.find(({ id }) => id === chosenId);
  const sounding = soundingDevices(devices.playback, memory, time);
  const removed = memory.kept.removalPending?.endpointIds ?? [];
  return {
    statusIsRead: Object.keys(status).length > 0,
    devices,
    binding,
    effect,
    engine,
    chosenId,
    chosen,
    idsAgree,
    elevated: flagOf(host.elevated),
    registered: flagOf(host.clsid_registered),
    filePresent: flagOf(host.apo_dll_present),
    algorithmPresent: flagOf(host.algorithm_present),
    filePath: textOf(host.apo_dll_path),
    renderAvailable: flagOf(render.available),
    volume: numberOf(render.volume),
    muted: flagOf(render.muted),
    renderError: numberOf(render.error_code),
    equalizerIsOn: equalizerIsOn(equalizer),
    hasEffect: idsAgree ? agreed(binding.bound, chosen?.hasEffect) : undefined,
    soundKnown: chosen?.peak !== undefined,
    chosenSounds: sounding.some(({ id }) => id === chosenId),
    othersSounding: sounding.filter(({ id }) => id !== chosenId),
    // Until audio restarts, the engine may go on with an effect that was removed.
    soundingWithEffect: sounding.filter(({ id, hasEffect }) => hasEffect === true || removed.includes(id)),
    moved: blocksMoved(now, before),
    appliedEquals: appliedEqualsPublished(now),
    rebuilt: engineWasRebuilt(memory.kept.engine, engine, effect.lockCount),
  };
}

/** @typedef {ReturnType<typeof gatherFacts>} Facts */
