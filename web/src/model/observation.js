// What the page has seen since it was opened or shown: the last looks and since when something holds. It is kept in
// memory only; what outlives the page is in memory.js.
import { appliedEqualsPublished, blocksMoved, devicesFacts, recentMs } from "./facts.js";
import { objectOf } from "./read.js";

/** @typedef {import("./types.js").Observation} Observation */

/** Two status documents are compared when their looks are at least and at most so far apart. */
const closestMs = 150;
const farthestMs = 12_000;

/** @returns {Observation} */
export function emptyObservation() {
  return {
    now: null,
    nowAt: 0,
    before: null,
    beforeAt: 0,
    devices: null,
    devicesAt: 0,
    equalizer: null,
    peaks: {},
    soundSince: null,
    differsSince: null,
    stillSince: null,
    worksSince: null,
    checkingSince: null,
    chosen: null,
  };
}

/**
 * @param {unknown} first
 * @param {unknown} second
 */
function haveSameSettings(first, second) {
  const [one, other] = [first, second].map((status) => objectOf(objectOf(status).footstep));
  return ["bypass", "bypass_all", "enhance_strength"].every((key) => one[key] === other[key]);
}

/**
 * @param {Observation} seen
 * @param {unknown} document
 * @param {number} time
 * @returns {Observation}
 */
function observeStatus(seen, document, time) {
  const gap = time - seen.nowAt;
  let { before, beforeAt } = seen;
  if (seen.now === null || gap > farthestMs || gap < 0) [before, beforeAt] = [null, 0];
  else if (gap >= closestMs) [before, beforeAt] = [seen.now, seen.nowAt];

  const moved = blocksMoved(document, before);
  const equal = appliedEqualsPublished(document);
  const changed = seen.now !== null && !haveSameSettings(document, seen.now);
  const differsSince = equal === false ? ((changed ? null : seen.differsSince) ?? time) : null;
  const stillSince = moved === false ? (seen.stillSince ?? beforeAt) : null;
  return { ...seen, now: document, nowAt: time, before, beforeAt, differsSince, stillSince };
}

/**
 * @param {Observation} seen
 * @param {unknown} document
 * @param {number} time
 * @returns {Observation}
 */
function observeDevices(seen, document, time) {
  const { playback, selectedId } = devicesFacts(document);
  const listed = playback.find(({ id }) => id === selectedId);
  const chosen = listed === undefined ? seen.chosen : { id: listed.id, name: listed.name };
  /** @type {Record<string, number>} */
  const peaks = {};
  for (const { id, peak = 0 } of playback) {
    const last = Object.hasOwn(seen.peaks, id) ? seen.peaks[id] : undefined;
    const peakAt = peak > 0 ? time : last;
    // An id may be any text, "__proto__" too.
    if (peakAt !== undefined)
      Object.defineProperty(peaks, id, { value: peakAt, enumerable: true, writable: true });
  }
  const isSameChoice = devicesFacts(seen.devices).selectedId === selectedId;
  const lastPeak =
    selectedId !== undefined && Object.hasOwn(peaks, selectedId) ? peaks[selectedId] : undefined;
  const sounds = lastPeak !== undefined && time - lastPeak <= recentMs;
  const soundSince = sounds ? ((isSameChoice ? seen.soundSince : null) ?? lastPeak) : null;
  return { ...seen, devices: document, devicesAt: time, peaks, soundSince, chosen };
}

/**
 * Takes in one look. `document` is undefined where the answer was not JSON.
 *
 * @param {Observation} seen
 * @param {{kind: "status" | "devices" | "equalizer", document: unknown}} look
 * @param {number} time when the answer came
 * @returns {Observation}
 */
export function observe(seen, { kind, document }, time) {
  if (kind === "status") return observeStatus(seen, document, time);
  if (kind === "devices") return observeDevices(seen, document, time);
  return { ...seen, equalizer: document };
}

/**
 * What is left when the looks so far say nothing about the present: after the page was hidden, after an add, remove or
 * restart, and after another device was chosen.
 *
 * @param {Observation} seen
 * @returns {Observation}
 */
export function forgetLooks(seen) {
  return { ...emptyObservation(), equalizer: seen.equalizer, chosen: seen.chosen };
}

/**
 * Keeps since when each verdict has been "works" or "checking". Call it once for each verdict.
 *
 * @param {Observation} seen
 * @param {import("./types.js").Verdict} verdict
 * @param {number} time
 * @returns {Observation}
 */
export function conclude(seen, verdict, time) {
  const worksSince = verdict.id === "works" ? (seen.worksSince ?? time) : null;
  const checkingSince = verdict.id === "checking" ? (seen.checkingSince ?? time) : null;
  const isSame = worksSince === seen.worksSince && checkingSince === seen.checkingSince;
  return isSame ? seen : { ...seen, worksSince, checkingSince };
}
