// What a person does on the Advanced page: processing, captures.
import { applyChange, readSetting } from "../model/equalizer.js";
import { flagOf, numberOf, objectOf } from "../model/read.js";

/**
 * @typedef {import("./session.js").Session} Session
 * @typedef {"none" | "ready" | "waiting" | "missing"} CaptureState
 */

const algorithmPath = "/api/v1/render/effects/algorithm";
const equalizerPath = "/api/v1/render/effects/eq";
const capturePath = "/api/v1/debug/capture";
const lookAgainMs = 1000;
const mostLooks = 300;
const downloadKeptMs = 60_000;

/**
 * Hands a file to the browser's downloads. A plain link could not send the token.
 *
 * @param {Response} response
 */
async function saveFile(response) {
  const disposition = response.headers.get("content-disposition") ?? "";
  const link = document.createElement("a");
  link.href = URL.createObjectURL(await response.blob());
  link.download = /filename="([^"]*)"/.exec(disposition)?.[1] ?? "download";
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), downloadKeptMs);
}

/** @param {Session} session */
export function createAdvanced(session) {
  const { state, client } = session;
  /** Values on their way, by key; a look from after the change shows what the record has made of them. */
  const sent = /** @type {Map<string, number | boolean>} */ (new Map());
  const view = { capture: /** @type {CaptureState} */ ("none"), captureBytes: 0, seconds: 10 };
  let looks = 0;
  /** @type {ReturnType<typeof setTimeout> | undefined} */
  let nextLook;

  /** @param {string} key */
  function value(key) {
    if (sent.has(key)) return sent.get(key);
    const { [key]: kept } = objectOf(objectOf(state.seen.now).footstep);
    return flagOf(kept) ?? numberOf(kept);
  }

  /**
   * @param {string} key
   * @param {number | boolean} wanted
   */
  async function setAlgorithm(key, wanted) {
    session.begin();
    sent.set(key, wanted);
    const answer = await client.ask({
      method: "PUT",
      path: algorithmPath,
      body: { [key]: wanted },
      control: key,
    });
    if (answer.dropped) return;
    if (answer.ok) await session.lookAt("status");
    else session.sayFailure("action.failed", answer);
    sent.delete(key);
    session.changed();
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

  /** @param {"start" | "stop" | "export"} action */
  async function capture(action) {
    session.begin();
    const body = { action, seconds: view.seconds };
    const answer = await client.ask({ method: "POST", path: capturePath, body });
    if (!answer.ok) return session.sayFailure("action.failed", answer);
    session.say("info", `capture.done.${action}`, { seconds: view.seconds });
    if (action === "export") lookForFiles(mostLooks);
  }

  /** The effect writes the files in its own time, so while an export is awaited the page looks for them. */
  async function lookForFiles(/** @type {number} */ most) {
    looks = most;
    clearTimeout(nextLook);
    const answer = await client.ask({ method: "GET", path: `${capturePath}/ready` });
    const { ready, bytes } = objectOf(answer.document);
    view.captureBytes = numberOf(bytes) ?? 0;
    if (ready === true) view.capture = "ready";
    else if (looks > 1) view.capture = "waiting";
    else view.capture = looks === 1 ? "missing" : "none";
    if (view.capture === "waiting") nextLook = setTimeout(lookForFiles, lookAgainMs, looks - 1);
    session.changed();
  }

  async function download() {
    session.begin();
    const answer = await client.ask({
      method: "GET",
      path: `${capturePath}/download`,
      raw: true,
      slow: true,
    });
    if (answer.response === null) return session.sayFailure("action.failed", answer);
    await saveFile(answer.response).catch(() => session.say("bad", "capture.broken"));
  }

  return {
    view,
    value,
    setAlgorithm,
    fade,
    setFade,
    capture,
    lookForFiles,
    download,
    /** @param {number} seconds */
    setSeconds(seconds) {
      view.seconds = seconds;
      session.changed();
    },
  };
}

/** @typedef {ReturnType<typeof createAdvanced>} Advanced */
