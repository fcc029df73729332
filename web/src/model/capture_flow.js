// The way from "record" to a downloaded file. The service keeps no state of a capture, so the page puts one together
// from what it asked for and when, the looks at the files, and the effect's own report. The values of that report are
// the effect's numbers: only that they change says something here.
//
// step(flow, event, time) gives the next flow, explain(flow, ...) what to show. Times are milliseconds since 1970.
import { flagOf, numberOf, objectOf, textOf } from "./read.js";

/**
 * @typedef {import("./types.js").Sentence} Sentence
 *
 * @typedef {"idle" | "recording" | "recorded" | "exporting" | "missing" | "ready" | "gone" | "downloading" | "downloaded"} Phase
 *   recorded: the time is over or was cut short, nothing is exported; missing: the effect has written no files, or has
 *   stopped writing; gone: files that were ready are not complete any more; downloaded: the file is complete
 *
 * @typedef {object} Words the effect's report of its captures
 * @property {number} state
 * @property {number} seconds
 * @property {number} code
 *
 * @typedef {object} Files what a look at the files has found
 * @property {boolean} ready
 * @property {number} bytes
 *
 * @typedef {object} Flow
 * @property {Phase} phase
 * @property {number} seconds to record, or that are being recorded
 * @property {number | null} startedAt when the effect was asked to record
 * @property {number | null} endedAt when the time was over, or when the effect was asked to stop
 * @property {boolean} isCut the person stopped it early
 * @property {number | null} exportedAt when the effect was asked to write the files
 * @property {number} progressAt when the files last changed while they are awaited
 * @property {Files | null} files null before the first look
 * @property {number | null} bytesBefore of the files of an earlier export, which the export was to remove
 * @property {boolean} wasCleared a look since the export has found those files gone
 * @property {boolean} areOld the files may be those of an earlier export
 * @property {{at: number, bytes: number} | null} made when this page saw files become ready
 * @property {number | null} goneAt when a look no longer found files that had been ready
 * @property {Words | null | undefined} words null: the effect has reported nothing; undefined: not looked yet
 * @property {Words | null | undefined} wordsBefore at the last command
 * @property {boolean} hasAsked the page has given a command: changes of the report may come of it
 * @property {boolean} isElsewhere the report changed though this page had asked for nothing
 * @property {boolean} isResumed the page was opened after the command: reloaded, or one more of them
 * @property {{received: number, total: number, startedAt: number} | null} download
 * @property {Outcome | null} outcome of the last download
 * @property {boolean} isRefused the service has refused the last download
 *
 * @typedef {object} Outcome
 * @property {"complete" | "cancelled" | "broken" | "unwritable"} kind
 * @property {number} received bytes
 * @property {number} total bytes; 0: not known
 * @property {string} name of the file
 * @property {boolean} inBrowser the browser's downloads have it; else it is where the person chose
 *
 * @typedef {{type: "seconds", seconds: number}
 *   | {type: "started"}
 *   | {type: "stopped"}
 *   | {type: "exported"}
 *   | {type: "notAwaited"}
 *   | {type: "awaited"}
 *   | {type: "again"}
 *   | {type: "files", ready: boolean, bytes: number}
 *   | {type: "words", words: Words | null}
 *   | {type: "tick"}
 *   | {type: "downloading"}
 *   | {type: "received", received: number, total: number}
 *   | {type: "downloadEnded", outcome: Outcome | null}} FlowEvent
 *   started, stopped, exported: the service has passed the command on; notAwaited: the person stops waiting for the
 *   files; awaited: waits on; again: another capture; downloadEnded without an outcome: refused, nothing has arrived
 *
 * @typedef {"start" | "stop" | "export" | "notAwaited" | "awaited" | "again" | "download" | "cancel"} ButtonId
 *
 * @typedef {object} View
 * @property {Sentence} sentence
 * @property {"info" | "good" | "warning"} tone
 * @property {Sentence[]} notes
 * @property {{id: ButtonId, key: string, values: Record<string, unknown>, primary: boolean}[]} buttons
 * @property {{value: number, most: number} | null} progress `most` is 0 where the end is not known
 */

export const secondsRange = { minimum: 1, maximum: 300 };
const firstSeconds = 10;
/** The effect takes a command within this time. */
const takenWithinMs = 1000;
/** From here on, a report that has not changed is worth a word: the command's time and a look's. */
const reportDueMs = 4000;
/** From here on, the page says why files may be late. */
const lateMs = 10_000;
/** Without progress for so long, the page stops to wait. */
export const missingMs = 120_000;
/** What the page kept is not the present any more. */
const keptMs = 3_600_000;
/** A clock that was set back by more than this makes the kept times worthless. */
const clockSlackMs = 5000;
const version = 1;

/** @returns {Flow} */
export function newFlow() {
  return {
    phase: "idle",
    seconds: firstSeconds,
    startedAt: null,
    endedAt: null,
    isCut: false,
    exportedAt: null,
    progressAt: 0,
    files: null,
    bytesBefore: null,
    wasCleared: false,
    areOld: false,
    made: null,
    goneAt: null,
    words: undefined,
    wordsBefore: undefined,
    hasAsked: false,
    isElsewhere: false,
    isResumed: false,
    download: null,
    outcome: null,
    isRefused: false,
  };
}

/**
 * @param {Words | null | undefined} one
 * @param {Words | null | undefined} other
 */
const areSameWords = (one, other) =>
  one?.state === other?.state && one?.seconds === other?.seconds && one?.code === other?.code;

/**
 * @param {unknown} status the status document
 * @returns {Words | null | undefined} null: the effect has reported nothing; undefined: not known
 */
export function captureWords(status) {
  const report = objectOf(objectOf(status).apo_diagnostics);
  const reported = flagOf(report.capture_reported);
  if (report.available !== true || reported === undefined) return undefined;
  if (!reported) return null;
  const [state, seconds, code] = [
    numberOf(report.capture_state),
    numberOf(report.capture_seconds),
    numberOf(report.capture_detail_code),
  ];
  if (state === undefined || seconds === undefined || code === undefined) return undefined;
  return { state, seconds, code };
}

// ---- time ----

/** @param {Flow} flow */
const recordedMs = ({ seconds }) => seconds * 1000 + takenWithinMs;

/**
 * @param {Flow} flow
 * @param {number} time
 * @returns {number} whole seconds; never more than were asked for
 */
export function secondsLeft(flow, time) {
  const left = Math.ceil(((flow.startedAt ?? time) + recordedMs(flow) - time) / 1000);
  return Math.min(flow.seconds, Math.max(0, left));
}

// ---- what happens ----

/**
 * @param {Flow} flow
 * @param {{ready: boolean, bytes: number}} look
 * @param {number} time
 * @returns {Flow}
 */
function takeFiles(flow, { ready, bytes }, time) {
  const next = { ...flow, files: { ready, bytes } };
  const { phase, made } = flow;
  if (phase === "exporting" || phase === "missing") {
    const { files: before, bytesBefore } = flow;
    const moved = before === null || before.ready !== ready || before.bytes !== bytes;
    if (!ready) next.wasCleared = true;
    if (moved) next.progressAt = time;
    // The effect may still be writing: the files are complete when a second look finds them alike.
    if (!ready || moved) return phase === "missing" && moved ? { ...next, phase: "exporting" } : next;
    next.areOld = !next.wasCleared && bytesBefore === bytes;
    // Files that could not be removed may yet be written over.
    if (next.areOld && time - (flow.exportedAt ?? time) < lateMs) return next;
    next.made = next.areOld ? made : { at: time, bytes };
    return { ...next, phase: "ready", outcome: null, isResumed: false };
  }
  if (phase === "idle" && flow.files === null && ready) {
    return { ...next, phase: "ready", made: made?.bytes === bytes ? made : null };
  }
  if ((phase === "ready" || phase === "downloaded") && !ready)
    return { ...next, phase: "gone", goneAt: time };
  // They may be coming back piece by piece.
  if (phase === "gone" && ready && flow.files?.ready && flow.files.bytes === bytes)
    return { ...next, phase: "ready", made: made?.bytes === bytes ? made : null, isResumed: false };
  if (phase === "ready" && ready && made !== null && made.bytes !== bytes) return { ...next, made: null };
  return next;
}

/**
 * @param {Flow} flow
 * @param {Words | null} words
 * @returns {Flow}
 */
function takeWords(flow, words) {
  // The first report that the page sees says nothing about a change.
  if (flow.words === undefined) return { ...flow, words };
  if (areSameWords(words, flow.words)) return flow;
  return { ...flow, words, isElsewhere: !flow.hasAsked };
}

/**
 * @param {Flow} flow
 * @param {number} time
 * @returns {Flow}
 */
function takeTime(flow, time) {
  if (flow.phase === "recording" && flow.startedAt !== null) {
    const end = flow.startedAt + recordedMs(flow);
    return time < end ? flow : { ...flow, phase: "recorded", endedAt: end };
  }
  if (flow.phase === "exporting" && time - flow.progressAt >= missingMs) return { ...flow, phase: "missing" };
  return flow;
}

/** @param {Flow} flow */
const lasting = ({ seconds, files, made, words, hasAsked }) => ({ seconds, files, made, words, hasAsked });

/**
 * @param {Flow} flow
 * @param {FlowEvent} event
 * @param {number} time
 * @returns {Flow} the same object where nothing has changed
 */
export function step(flow, event, time) {
  switch (event.type) {
    case "seconds":
      return { ...flow, seconds: Math.trunc(event.seconds) };
    case "started":
      return {
        ...flow,
        phase: "recording",
        startedAt: time,
        endedAt: null,
        isCut: false,
        exportedAt: null,
        wordsBefore: flow.words,
        hasAsked: true,
        isElsewhere: false,
        isResumed: false,
        isRefused: false,
        outcome: null,
      };
    case "stopped":
      return { ...flow, phase: "recorded", endedAt: time, isCut: true };
    case "exported":
      return {
        ...flow,
        phase: "exporting",
        exportedAt: time,
        progressAt: time,
        bytesBefore: flow.files?.ready ? flow.files.bytes : null,
        files: null,
        wasCleared: false,
        areOld: false,
        wordsBefore: flow.words,
        hasAsked: true,
        isElsewhere: false,
        isResumed: false,
        isRefused: false,
        outcome: null,
      };
    case "notAwaited":
      return { ...flow, phase: "recorded" };
    case "awaited":
      return { ...flow, phase: "exporting", progressAt: time };
    case "again":
      return { ...newFlow(), ...lasting(flow) };
    case "files":
      return takeFiles(flow, event, time);
    case "words":
      return takeWords(flow, event.words);
    case "downloading": {
      const total = flow.files?.bytes ?? 0;
      return {
        ...flow,
        phase: "downloading",
        outcome: null,
        isRefused: false,
        download: { received: 0, total, startedAt: time },
      };
    }
    case "received": {
      if (flow.download === null) return flow;
      const { received, total } = event;
      return { ...flow, download: { ...flow.download, received, total } };
    }
    case "downloadEnded": {
      const phase = event.outcome?.kind === "complete" ? "downloaded" : "ready";
      return { ...flow, phase, outcome: event.outcome, isRefused: event.outcome === null, download: null };
    }
    default:
      return takeTime(flow, time);
  }
}

/**
 * Whether the page is to look at the files.
 *
 * @param {Flow} flow
 */
export const awaitsFiles = ({ phase }) => phase === "exporting" || phase === "gone";

// ---- what is kept over a reload ----

/**
 * @param {Flow} flow
 * @returns {string}
 */
export function serializeFlow(flow) {
  const { phase, seconds, startedAt, endedAt, isCut, exportedAt, bytesBefore, wasCleared, areOld, made } =
    flow;
  const { goneAt, words, wordsBefore } = flow;
  const found = phase === "downloading" || phase === "downloaded" ? "ready" : phase;
  const kept = { phase: found, seconds, startedAt, endedAt, isCut, exportedAt, bytesBefore, wasCleared };
  return JSON.stringify({ version, ...kept, areOld, made, goneAt, words, wordsBefore });
}

/**
 * @param {unknown} value
 * @returns {Words | null | undefined} undefined where nothing was kept
 */
function readWords(value) {
  if (value === undefined) return undefined;
  const { state, seconds, code } = objectOf(value);
  const [one, two, three] = [numberOf(state), numberOf(seconds), numberOf(code)];
  return one === undefined || two === undefined || three === undefined
    ? null
    : { state: one, seconds: two, code: three };
}

/**
 * Finds the way back after a reload, as far as the page has kept it. A time that lies in the future or too far back
 * leads nowhere; what the files are is for the first look at them.
 *
 * @param {string | null} text
 * @param {number} time
 * @returns {Flow}
 */
export function restoreFlow(text, time) {
  const flow = newFlow();
  let value;
  try {
    value = objectOf(JSON.parse(text ?? "null"));
  } catch {
    return flow;
  }
  if (value.version !== version) return flow;
  const at = (/** @type {unknown} */ kept) => {
    const moment = numberOf(kept);
    return moment !== undefined && moment <= time + clockSlackMs ? moment : null;
  };
  const seconds = numberOf(value.seconds);
  const { minimum, maximum } = secondsRange;
  if (seconds !== undefined && Number.isInteger(seconds) && seconds >= minimum && seconds <= maximum)
    flow.seconds = seconds;
  const { at: madeAt, bytes } = objectOf(value.made);
  const [madeTime, madeBytes] = [at(madeAt), numberOf(bytes)];
  if (madeTime !== null && madeBytes !== undefined) flow.made = { at: madeTime, bytes: madeBytes };
  const [startedAt, endedAt, exportedAt] = [at(value.startedAt), at(value.endedAt), at(value.exportedAt)];
  const isRecent = (/** @type {number | null} */ moment) => moment !== null && time - moment < keptMs;
  const phase = textOf(value.phase);
  const common = { startedAt, endedAt, isCut: value.isCut === true, hasAsked: true, isResumed: true };
  const words = { words: readWords(value.words), wordsBefore: readWords(value.wordsBefore) };
  if (phase === "recording" && isRecent(startedAt)) {
    return takeTime({ ...flow, ...common, ...words, phase: "recording" }, time);
  }
  if (phase === "recorded" && isRecent(endedAt)) return { ...flow, ...common, ...words, phase: "recorded" };
  if ((phase === "exporting" || phase === "missing") && isRecent(exportedAt)) {
    const bytesBefore = numberOf(value.bytesBefore) ?? null;
    const wasCleared = value.wasCleared === true;
    const waiting = { exportedAt, bytesBefore, wasCleared, progressAt: time };
    return { ...flow, ...common, ...words, ...waiting, phase: "exporting" };
  }
  const goneAt = at(value.goneAt);
  if (phase === "gone" && isRecent(goneAt)) return { ...flow, ...common, ...words, goneAt, phase: "gone" };
  return flow;
}

// ---- what to show ----

/**
 * @param {string} key
 * @param {Record<string, unknown>} [values]
 * @returns {Sentence}
 */
const sentence = (key, values = {}) => ({ key: `capture.${key}`, values });

/**
 * @param {ButtonId} id
 * @param {{primary?: boolean, key?: string, values?: Record<string, unknown>}} [options]
 */
const button = (id, { primary = false, key = `capture.button.${id}`, values = {} } = {}) => ({
  id,
  key,
  values,
  primary,
});

/**
 * Why nothing may come of it.
 *
 * @param {Flow} flow
 * @param {boolean | undefined} isProcessing sound goes through the effect; undefined: not known
 * @param {boolean} isDue the effect has had its time
 * @returns {Sentence[]}
 */
function doubts({ words, wordsBefore }, isProcessing, isDue) {
  if (isProcessing === false) return [sentence("note.noSound")];
  const isKnown = words !== undefined && wordsBefore !== undefined;
  if (isDue && isKnown && areSameWords(words, wordsBefore)) return [sentence("note.noReport")];
  return [];
}

/**
 * @param {Outcome} outcome
 * @returns {Sentence}
 */
function outcomeSentence({ kind, received, total, name, inBrowser }) {
  if (kind === "complete")
    return sentence(inBrowser ? "downloadedByBrowser" : "downloaded", { name, received });
  if (kind === "broken" && total > 0) return sentence("broken", { received, total });
  return sentence(kind === "broken" ? "brokenUnknown" : kind, {});
}

/**
 * @param {Flow} flow
 * @param {number} after seconds
 */
function recordedSentence({ seconds, startedAt, isCut }, after) {
  if (startedAt === null) return sentence("recordedElsewhere");
  return isCut ? sentence("stopped", { after }) : sentence("recorded", { seconds });
}

/**
 * @param {Flow} flow
 * @param {number} time
 * @param {boolean | undefined} isProcessing
 * @returns {View}
 */
function explainRecording(flow, time, isProcessing) {
  const { seconds, startedAt, endedAt, files, made, isResumed } = flow;
  const elapsed = time - (startedAt ?? time);
  if (flow.phase === "recording") {
    const left = secondsLeft(flow, time);
    return {
      sentence: sentence("recording", { left, seconds }),
      tone: "info",
      notes: [
        ...(isResumed ? [sentence("note.resumed")] : []),
        ...doubts(flow, isProcessing, elapsed > reportDueMs),
      ],
      buttons: [button("stop")],
      progress: { value: seconds - left, most: seconds },
    };
  }
  const after = Math.min(seconds, Math.max(0, Math.round(((endedAt ?? 0) - (startedAt ?? 0)) / 1000)));
  const earlier = made === null ? sentence("note.replaces") : sentence("note.replacesFrom", { at: made.at });
  const wasDue = startedAt !== null && (endedAt ?? time) - startedAt > reportDueMs;
  return {
    sentence: recordedSentence(flow, after),
    tone: "info",
    notes: [
      ...(isResumed ? [sentence("note.resumed")] : []),
      ...doubts(flow, undefined, wasDue),
      ...(files?.ready ? [earlier] : []),
    ],
    buttons: [button("export", { primary: true }), button("again")],
    progress: null,
  };
}

/**
 * @param {Flow} flow
 * @param {number} time
 * @param {boolean | undefined} isProcessing
 * @returns {View}
 */
function explainExport(flow, time, isProcessing) {
  const { files, exportedAt, progressAt, isResumed } = flow;
  const bytes = files?.bytes ?? 0;
  const elapsed = Math.max(0, Math.floor((time - (exportedAt ?? time)) / 1000));
  if (flow.phase === "exporting") {
    const isLate = time - progressAt > lateMs;
    return {
      sentence: sentence("exporting", { elapsed, bytes }),
      tone: "info",
      notes: [
        ...(isResumed ? [sentence("note.resumedExport")] : []),
        ...(isLate ? doubts(flow, isProcessing, true) : []),
      ],
      buttons: [button("notAwaited")],
      progress: { value: 0, most: 0 },
    };
  }
  return {
    sentence: bytes > 0 ? sentence("missingRest", { bytes }) : sentence("missing"),
    tone: "warning",
    notes: [sentence("note.missing")],
    buttons: [
      button("export", { primary: true, key: "capture.button.exportAgain" }),
      button("awaited"),
      button("again"),
    ],
    progress: null,
  };
}

/**
 * @param {Flow} flow
 * @returns {View}
 */
const explainGone = ({ outcome }) => ({
  sentence: sentence("gone"),
  // Who has downloaded the files may well have deleted them.
  tone: outcome?.kind === "complete" ? "info" : "warning",
  notes: [sentence("note.gone")],
  buttons: [button("export", { primary: true, key: "capture.button.exportAgain" }), button("again")],
  progress: null,
});

/**
 * @param {Flow} flow
 * @returns {View}
 */
function explainFiles(flow) {
  const { files, made, areOld, outcome, isRefused } = flow;
  const bytes = files?.bytes ?? 0;
  const download = button("download", { primary: true, values: { bytes } });
  const exportAgain = button("export", { primary: true, key: "capture.button.exportAgain" });
  if (flow.phase === "downloading") {
    const { received = 0, total = 0 } = flow.download ?? {};
    return {
      sentence: received > 0 ? sentence("downloading", { received, total }) : sentence("preparing"),
      tone: "info",
      notes: [sentence("note.downloading")],
      buttons: [button("cancel")],
      progress: { value: received, most: total },
    };
  }
  if (flow.phase === "downloaded" && outcome !== null) {
    return {
      sentence: outcomeSentence(outcome),
      tone: "good",
      notes: [],
      buttons: [
        button("again", { primary: true }),
        button("download", { key: "capture.button.downloadAgain" }),
      ],
      progress: null,
    };
  }
  const from =
    made === null ? sentence("readyUnknown", { bytes }) : sentence("ready", { bytes, at: made.at });
  const old = made === null ? sentence("note.old") : sentence("note.oldFrom", { at: made.at });
  return {
    sentence: from,
    tone: areOld || (outcome !== null && outcome.kind !== "cancelled") ? "warning" : "good",
    notes: [...(outcome === null ? [] : [outcomeSentence(outcome)]), ...(areOld ? [old] : [])],
    buttons: [
      ...(areOld ? [exportAgain, { ...download, primary: false }] : [download]),
      ...(isRefused && !areOld ? [{ ...exportAgain, primary: false }] : []),
      button("again"),
    ],
    progress: null,
  };
}

/**
 * One sentence for where the flow is, what to know besides, and the buttons that make sense.
 *
 * @param {Flow} flow
 * @param {number} time
 * @param {boolean | undefined} isProcessing sound goes through the effect; undefined: not known
 * @returns {View}
 */
export function explain(flow, time, isProcessing) {
  const { phase, files, isElsewhere } = flow;
  if (phase === "recording" || phase === "recorded") return explainRecording(flow, time, isProcessing);
  if (phase === "exporting" || phase === "missing") return explainExport(flow, time, isProcessing);
  if (phase === "gone") return explainGone(flow);
  if (phase !== "idle") return explainFiles(flow);
  const keeps = files?.ready === true;
  return {
    sentence: sentence("idle"),
    tone: "info",
    notes: [
      ...(isProcessing === false ? [sentence("note.silent")] : []),
      ...(isElsewhere ? [sentence("note.elsewhere")] : []),
      ...(keeps ? [sentence("note.kept")] : []),
    ],
    buttons: [
      button("start", { primary: true }),
      ...(isElsewhere ? [button("export")] : []),
      ...(keeps
        ? [button("download", { key: "capture.button.downloadEarlier", values: { bytes: files.bytes } })]
        : []),
    ],
    progress: null,
  };
}
