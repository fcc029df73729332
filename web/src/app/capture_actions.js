// What a person does with captures: record, stop, export, download. The flow says how far that is.
import { captureFileName, largestUnasked } from "../model/download.js";
import {
  awaitsFiles,
  captureWords,
  explain,
  restoreFlow,
  serializeFlow,
  step,
} from "../model/capture_flow.js";
import { blocksMoved } from "../model/facts.js";
import { flagOf, numberOf, objectOf } from "../model/read.js";
import { askForFile, browserTarget, canWriteToDisk, receive } from "./download.js";

/**
 * @typedef {import("./session.js").Session} Session
 * @typedef {import("./download.js").Target} Target
 * @typedef {import("../model/capture_flow.js").FlowEvent} FlowEvent
 * @typedef {import("../model/capture_flow.js").Outcome} Outcome
 * @typedef {import("../model/capture_flow.js").ButtonId} ButtonId
 */

const capturePath = "/api/v1/debug/capture";
const storageKey = "velmora.capture";
const lookAgainMs = 1000;
const progressMs = 100;
const done = /** @type {const} */ ({ start: "started", stop: "stopped", export: "exported" });

/** @returns {string | null} */
function readKept() {
  try {
    return localStorage.getItem(storageKey);
  } catch {
    return null;
  }
}

/** @param {string} text */
function writeKept(text) {
  try {
    localStorage.setItem(storageKey, text);
  } catch {
    // The page then does not find its way back after a reload.
  }
}

/** @param {Event} event */
const askBeforeLeaving = (event) => event.preventDefault();

/** @param {Session} session */
export function createCaptures(session) {
  const { state, client } = session;
  let flow = restoreFlow(readKept(), Date.now());
  let kept = serializeFlow(flow);
  const view = {
    /** A command is on its way. */
    isBusy: false,
    /** The size of a download that must go through memory, while the page asks about it. */
    question: /** @type {number | null} */ (null),
  };
  /** @type {ReturnType<typeof setTimeout> | undefined} */
  let nextLook;
  let looks = 0;
  let transfer = new AbortController();

  /** @param {FlowEvent} event */
  function tell(event) {
    const next = step(flow, event, Date.now());
    if (next === flow) return;
    flow = next;
    const text = serializeFlow(flow);
    if (text !== kept) writeKept(text);
    kept = text;
    session.changed();
  }

  /** One look at the files, and the next ones while an export is awaited. */
  async function look() {
    clearTimeout(nextLook);
    const turn = ++looks;
    const answer =
      document.visibilityState === "hidden"
        ? null
        : await client.ask({ method: "GET", path: `${capturePath}/ready`, control: "look at files" });
    if (turn !== looks) return;
    const { ready, bytes } = objectOf(answer?.document);
    const [isReady, count] = [flagOf(ready), numberOf(bytes)];
    if (isReady !== undefined && count !== undefined) tell({ type: "files", ready: isReady, bytes: count });
    if (awaitsFiles(flow)) nextLook = setTimeout(look, lookAgainMs);
  }

  /** @param {"start" | "stop" | "export"} action */
  async function command(action) {
    if (view.isBusy) return;
    session.begin();
    view.isBusy = true;
    const body = { action, seconds: flow.seconds };
    const answer = await client.ask({ method: "POST", path: capturePath, body });
    view.isBusy = false;
    if (!answer.ok) return session.sayFailure("action.failed", answer);
    tell({ type: done[action] });
    if (action === "export") look();
  }

  // ---- the download ----

  /** @param {Target} target */
  async function transferTo(target) {
    const name = captureFileName(new Date());
    transfer = new AbortController();
    const { signal } = transfer;
    /** @type {Outcome | null} */
    let outcome = null;
    let shownAt = 0;
    tell({ type: "downloading" });
    addEventListener("beforeunload", askBeforeLeaving);
    const answer = await client.ask({
      method: "GET",
      path: `${capturePath}/download`,
      slow: true,
      signal,
      // The service answers nothing else meanwhile, so the request ends with the body's last byte.
      async read(response) {
        outcome = await receive(response, target, name, signal, (received, total) => {
          if (Date.now() - shownAt < progressMs) return;
          shownAt = Date.now();
          tell({ type: "received", received, total });
        });
      },
    });
    removeEventListener("beforeunload", askBeforeLeaving);
    if (outcome === null) {
      await target.discard();
      const kind = signal.aborted ? "cancelled" : "broken";
      const isRefusal = answer.error !== "" && !signal.aborted;
      if (isRefusal) session.sayFailure("action.failed", answer);
      else outcome = { kind, received: 0, total: 0, name, inBrowser: target.inBrowser };
    }
    tell({ type: "downloadEnded", outcome });
    if (outcome?.kind !== "complete") look();
  }

  async function download() {
    if (flow.phase === "downloading") return;
    session.begin();
    const target = await askForFile(captureFileName(new Date()));
    if (target === "cancelled") return;
    const bytes = flow.files?.bytes ?? 0;
    if (target !== "impossible") return transferTo(target);
    if (bytes <= largestUnasked) return transferTo(browserTarget());
    view.question = bytes;
    session.changed();
  }

  /** @param {boolean} yes whether the download shall go through memory */
  function answerQuestion(yes) {
    view.question = null;
    session.changed();
    if (yes) transferTo(browserTarget());
  }

  // ---- what the page sees ----

  session.watchers.add((kind, status) => {
    if (kind !== "status") return;
    const words = captureWords(status);
    if (words !== undefined) tell({ type: "words", words });
    // The first look may have come to nothing.
    if (flow.files === null && !awaitsFiles(flow) && flow.phase !== "downloading") look();
  });

  function start() {
    look();
    document.addEventListener("visibilitychange", () => {
      if (flow.phase !== "downloading" && document.visibilityState !== "hidden") look();
    });
    // What another page of this browser has asked for.
    addEventListener("storage", ({ key, newValue }) => {
      if (key !== storageKey || flow.phase === "downloading") return;
      flow = { ...restoreFlow(newValue, Date.now()), isResumed: false };
      kept = serializeFlow(flow);
      look();
      session.changed();
    });
  }

  /** @type {Record<ButtonId, () => void>} */
  const actions = {
    start: () => command("start"),
    stop: () => command("stop"),
    export: () => command("export"),
    notAwaited: () => tell({ type: "notAwaited" }),
    awaited() {
      tell({ type: "awaited" });
      look();
    },
    again: () => tell({ type: "again" }),
    download,
    cancel: () => transfer.abort(),
  };

  return {
    view,
    start,
    answerQuestion,
    canWriteToDisk,
    flow: () => flow,
    /** @param {ButtonId} id */
    act(id) {
      if (id !== "start" && id !== "stop" && id !== "export" && id !== "download") session.begin();
      actions[id]();
    },
    /** @param {number} seconds */
    setSeconds: (seconds) => tell({ type: "seconds", seconds }),
    explain() {
      const time = Date.now();
      flow = step(flow, { type: "tick" }, time);
      return explain(flow, time, blocksMoved(state.seen.now, state.seen.before));
    },
  };
}

/** @typedef {ReturnType<typeof createCaptures>} Captures */
