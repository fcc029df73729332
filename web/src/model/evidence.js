// The six checks below the verdict, each with the raw values that it rests on.
import { pendingResult } from "./facts.js";
import { resultSentence } from "./reasons.js";

/**
 * @typedef {import("./types.js").Check} Check
 * @typedef {import("./types.js").Values} Values
 * @typedef {import("./facts.js").Facts} Facts
 */

/**
 * @param {Check["id"]} id
 * @param {boolean | undefined} holds
 * @param {string} variant
 * @param {Values} values
 * @param {Record<string, unknown>} raw
 * @returns {Check}
 */
function check(id, holds, variant, values, raw) {
  const state = holds === undefined ? "unknown" : holds ? "yes" : "no";
  return { id, state, text: { key: `check.${id}.${variant}`, values }, raw };
}

/** @param {Facts} facts */
function installed({ registered, filePresent, algorithmPresent, filePath }) {
  const raw = {
    clsid_registered: registered,
    apo_dll_present: filePresent,
    algorithm_present: algorithmPresent,
    apo_dll_path: filePath,
  };
  if (registered === false) return check("installed", false, "notRegistered", {}, raw);
  if (filePresent === false) return check("installed", false, "noFile", { path: filePath ?? "" }, raw);
  if (algorithmPresent === false) return check("installed", false, "noAlgorithm", {}, raw);
  const isKnown = registered && filePresent && algorithmPresent;
  return isKnown
    ? check("installed", true, "yes", {}, raw)
    : check("installed", undefined, "unknown", {}, raw);
}

/** @param {Facts} facts */
function added({ hasEffect, binding, chosen, chosenId }) {
  const raw = {
    endpoint_id: chosenId,
    bound: binding.bound,
    apo_bound: chosen?.hasEffect,
    fx_key_present: binding.keyPresent,
    error_code: binding.errorCode,
    chain: binding.chain,
  };
  const variant = hasEffect === undefined ? "unknown" : hasEffect ? "yes" : "no";
  return check("added", hasEffect, variant, {}, raw);
}

/** @param {Facts} facts */
function engineRuns({ engine }) {
  const raw = { running: engine.isRunning, process_id: engine.processId, error_code: engine.errorCode };
  if (engine.isRunning) return check("engine", true, "yes", { id: String(engine.processId ?? "?") }, raw);
  if (engine.isRunning === false) return check("engine", false, "no", {}, raw);
  if (!engine.errorCode) return check("engine", undefined, "unknown", {}, raw);
  return check("engine", undefined, "unlisted", { result: resultSentence(engine.errorCode) }, raw);
}

/** @param {Facts} facts */
function loaded({ engine }) {
  const raw = {
    apo_loaded: engine.effectLoaded,
    algorithm_loaded: engine.algorithmLoaded,
    apo_module_path: engine.modulePath,
    error_code: engine.errorCode,
  };
  if (engine.isRunning === false) return check("loaded", undefined, "noEngine", {}, raw);
  if (engine.effectLoaded === undefined && !engine.errorCode)
    return check("loaded", undefined, "unknown", {}, raw);
  if (engine.effectLoaded === undefined) {
    return check("loaded", undefined, "unlisted", { result: resultSentence(engine.errorCode ?? 0) }, raw);
  }
  if (!engine.effectLoaded) return check("loaded", false, "no", {}, raw);
  return engine.algorithmLoaded === false
    ? check("loaded", false, "noAlgorithm", {}, raw)
    : check("loaded", true, "yes", {}, raw);
}

/** @param {Facts} facts */
function processing({ effect, moved }) {
  const blocks = effect.blocks ?? 0;
  const raw = {
    total_processed_blocks: effect.blocks,
    initialize_stage: effect.initializeStage,
    initialize_hresult: effect.initializeResult,
    lock_stage: effect.lockStage,
    lock_hresult: effect.lockResult,
    last_algorithm_error: effect.algorithmError,
  };
  if (effect.isRead === false) return check("processing", undefined, "noRecord", {}, raw);
  if (moved === true) return check("processing", true, "yes", { blocks }, raw);
  const result = effect.initializeResult;
  if (result !== undefined && result < 0 && result !== pendingResult) {
    return check("processing", false, "failed", { result: resultSentence(result) }, raw);
  }
  if (moved === false) return check("processing", false, "no", { blocks }, raw);
  return check("processing", undefined, "unknown", {}, raw);
}

/** @param {Facts} facts */
function applied({ effect, appliedEquals }) {
  const raw = {
    applied_valid: effect.appliedValid,
    applied_bypass: effect.appliedBypass,
    applied_bypass_all: effect.appliedBypassAll,
    applied_strength: effect.appliedStrength,
    bypass: effect.enhancementIsOn === undefined ? undefined : !effect.enhancementIsOn,
    bypass_all: effect.bypassAll,
    enhance_strength: effect.strength,
  };
  if (effect.appliedValid === false) return check("applied", undefined, "notReported", {}, raw);
  const variant = appliedEquals === undefined ? "unknown" : appliedEquals ? "yes" : "no";
  return check("applied", appliedEquals, variant, { strength: effect.appliedStrength }, raw);
}

/**
 * @param {Facts} facts
 * @returns {Check[]} in the order in which they build on each other
 */
export function checksOf(facts) {
  return [installed, added, engineRuns, loaded, processing, applied].map((judge) => judge(facts));
}
