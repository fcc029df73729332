// What the Sound and the Advanced page share: the language, what has been seen of the service, what the page keeps,
// and the verdict that follows from it.
import { readMemory, rememberDevices, rememberStatus, writeMemory } from "../model/memory.js";
import { conclude, emptyObservation, forgetLooks, observe } from "../model/observation.js";
import { objectOf, textOf } from "../model/read.js";
import { serviceSentence } from "../model/reasons.js";
import { verdict } from "../model/verdict.js";
import { chooseLanguage } from "../texts/index.js";
import { createClient } from "./client.js";

/**
 * @typedef {import("../model/types.js").Sentence} Sentence
 * @typedef {import("../model/types.js").Language} Language
 * @typedef {import("../model/types.js").Kept} Kept
 * @typedef {import("../model/types.js").Action} Action
 * @typedef {import("./client.js").Answer} Answer
 * @typedef {import("./client.js").Question} Question
 *
 * @typedef {object} Message what became of the last thing that the person did
 * @property {"info" | "bad"} tone
 * @property {Sentence} sentence
 * @property {{key: string, press: () => void}} [action] a button behind it
 */

const tickMs = 1000;

/** The token stays in the address, so that a reload and a second tab work. */
export const sessionToken = new URLSearchParams(location.search).get("token") ?? "";

const storage = () => localStorage;

/** @param {Kept} kept */
const pageLanguage = ({ language }) => chooseLanguage(navigator.languages, language);

/** The memory and the language of a page that asks the service for nothing. */
export function createReader() {
  let kept = readMemory(storage);
  return {
    kept: () => kept,
    language: () => pageLanguage(kept),
    /** @param {Language} language */
    setLanguage(language) {
      kept = { ...readMemory(storage), language };
      writeMemory(storage, kept);
    },
  };
}

/**
 * @param {() => void} draw
 */
export function createSession(draw) {
  const kept = readMemory(storage);
  const state = {
    kept,
    /** Whether the browser keeps anything for this page. */
    isKept: writeMemory(storage, kept),
    seen: emptyObservation(),
    action: /** @type {Action | null} */ (null),
    message: /** @type {Message | null} */ (null),
  };
  /** @type {Set<(kind: "status" | "devices" | "equalizer", document: unknown) => void>} */
  const watchers = new Set();
  let isDrawing = false;

  /** Draws the page in the next frame, or at once while it is hidden and has no frames. */
  function changed() {
    if (isDrawing) return;
    isDrawing = true;
    const drawOnce = () => {
      isDrawing = false;
      draw();
    };
    if (document.visibilityState === "hidden") queueMicrotask(drawOnce);
    else requestAnimationFrame(drawOnce);
  }

  /** @param {Kept} kept */
  function keep(kept) {
    if (kept === state.kept) return;
    state.kept = kept;
    state.isKept = writeMemory(storage, kept);
    changed();
  }

  const client = createClient({
    token: sessionToken,
    onLook(kind, document, time) {
      state.seen = observe(state.seen, { kind, document }, time);
      if (kind === "status") keep(rememberStatus(state.kept, document));
      if (kind === "devices") keep(rememberDevices(state.kept, document));
      for (const watcher of watchers) watcher(kind, document);
    },
    onForget() {
      state.seen = forgetLooks(state.seen);
    },
    onChange: changed,
  });

  function judge() {
    const time = Date.now();
    const { seen, kept, action } = state;
    const judged = verdict(
      seen.now,
      seen.before,
      seen.devices,
      seen.equalizer,
      client.link(),
      action,
      { kept, seen },
      time,
    );
    state.seen = conclude(seen, judged, time);
    return judged;
  }

  /** Something that the person does: what was said of the last thing is over. */
  function begin() {
    state.message = null;
    if (state.action !== null && state.action.endedAt !== null) state.action = null;
    changed();
  }

  /**
   * @param {Message["tone"]} tone
   * @param {string} key
   * @param {Record<string, unknown>} [values]
   * @param {Message["action"]} [action]
   */
  function say(tone, key, values = {}, action) {
    state.message = { tone, sentence: { key, values }, action };
    changed();
  }

  /**
   * Says why something did not come about. A service that gives no answer has a verdict of its own.
   *
   * @param {string} key
   * @param {Answer} answer
   */
  function sayFailure(key, answer) {
    if (answer.status !== 0) say("bad", key, { reason: serviceSentence(answer.error) });
  }

  function followVisibility() {
    client.tell({ type: document.visibilityState === "hidden" ? "hidden" : "visible" });
  }

  /** Starts to look. Opening a page only reads. */
  function start() {
    document.addEventListener("visibilitychange", followVisibility);
    addEventListener("storage", () => {
      if (state.isKept) state.kept = readMemory(storage);
      changed();
    });
    if (document.visibilityState === "hidden") followVisibility();
    client.tell({ type: "equalizerMatters", matters: true });
    client.tell({ type: "tick" });
    setInterval(() => {
      if (document.visibilityState !== "hidden") changed();
    }, tickMs);
  }

  return {
    state,
    client,
    watchers,
    judge,
    changed,
    keep,
    begin,
    say,
    sayFailure,
    start,
    token: sessionToken,
    language: () => pageLanguage(state.kept),
    version: () => textOf(objectOf(objectOf(state.seen.now).versions).app) ?? "",
    /** @param {Language} language */
    setLanguage: (language) => keep({ ...state.kept, language }),
    /**
     * Looks at once, so that the page shows what a change has made of the record.
     * @param {"status" | "devices" | "equalizer"} look
     */
    lookAt(look) {
      const paths = {
        status: "/api/v1/status",
        devices: "/api/v1/devices",
        equalizer: "/api/v1/render/effects/eq",
      };
      return client.ask({ method: "GET", path: paths[look], look, control: `look at ${look}` });
    },
  };
}

/** @typedef {ReturnType<typeof createSession>} Session */
