// What a person does on the first screen, from the control to the answer.
import { devicesFacts } from "../model/facts.js";
import { markEngine, rememberAction } from "../model/memory.js";
import { holdPeak, noPeak } from "../model/peak_hold.js";
import { flagOf, numberOf, objectOf, textOf } from "../model/read.js";
import { usualStrength } from "../model/verdict.js";
import { createDevicePresets } from "./device_presets.js";
import { createEqualizer } from "./equalizer_actions.js";
import { createPresets } from "./preset_actions.js";

/**
 * @typedef {import("./session.js").Session} Session
 * @typedef {import("../model/types.js").Action} Action
 * @typedef {import("../model/types.js").LastSettings} LastSettings
 * @typedef {import("../model/equalizer.js").Setting} Setting
 * @typedef {LastSettings["footstep"]} Footstep
 *
 * @typedef {{kind: "restart" | "add" | "remove", endpointId: string, name: string, as?: Action["kind"]}
 *   | {kind: "import", given?: import("./transfer.js").Given}
 *   | {kind: "export"}} Question what the page asks before it does something;
 *   `as`: a restart that is tried again repeats this request
 */

const paths = {
  footstep: "/api/v1/render/effects/footstep",
  volume: "/api/v1/render/volume",
  mute: "/api/v1/render/mute",
  device: "/api/v1/devices/render",
  microphone: "/api/v1/devices/capture",
  effect: "/api/v1/render/apo",
};

/**
 * A value that the person has set and the service has not confirmed yet. It is shown in place of the last look until a
 * look from after the change has come.
 *
 * @template Value
 */
class Overlay {
  /** @type {Value | undefined} */
  value = undefined;
  outstanding = 0;

  /** @param {Value} value */
  begin(value) {
    this.value = value;
    ++this.outstanding;
  }

  /** @param {boolean} isDone false: the change was refused or did not arrive */
  end(isDone) {
    --this.outstanding;
    if (!isDone && this.outstanding === 0) this.value = undefined;
  }

  settle() {
    if (this.outstanding === 0) this.value = undefined;
  }
}

/** @param {unknown} status */
function publishedFootstep(status) {
  const { bypass, bypass_all: bypassAll, enhance_strength: strength } = objectOf(objectOf(status).footstep);
  const share = numberOf(strength);
  if (flagOf(bypass) === undefined || flagOf(bypassAll) === undefined || share === undefined)
    return undefined;
  const inRange = Math.min(1, Math.max(0, share));
  return /** @type {Footstep} */ ({ bypass, bypass_all: bypassAll, enhance_strength: inRange });
}

/** @param {Session} session */
export function createSound(session) {
  const { state, client } = session;
  const overlays = {
    footstep: /** @type {Overlay<Footstep>} */ (new Overlay()),
    volume: /** @type {Overlay<number>} */ (new Overlay()),
    muted: /** @type {Overlay<boolean>} */ (new Overlay()),
    device: /** @type {Overlay<string>} */ (new Overlay()),
    microphone: /** @type {Overlay<string>} */ (new Overlay()),
  };
  const view = {
    question: /** @type {Question | null} */ (null),
    evidenceIsOpen: false,
    devicesAreOpen: false,
    holds: /** @type {Map<string, import("../model/peak_hold.js").PeakHold>} */ (new Map()),
  };

  session.watchers.add((kind, document) => {
    if (kind === "status") {
      for (const overlay of [overlays.footstep, overlays.volume, overlays.muted]) overlay.settle();
      const bypassAll = flagOf(objectOf(objectOf(document).footstep).bypass_all);
      if (bypassAll === false && overlays.footstep.outstanding === 0) compare(false);
    } else if (kind === "devices") {
      overlays.device.settle();
      overlays.microphone.settle();
      holdPeaks(document);
    }
  });

  /** @param {unknown} document */
  function holdPeaks(document) {
    const { playback, microphones } = devicesFacts(document);
    const time = Date.now();
    const all = [...playback, ...microphones];
    view.holds = new Map(all.map(({ id, peak }) => [id, holdPeak(view.holds.get(id) ?? noPeak, peak, time)]));
  }

  /** @param {boolean} comparing */
  function compare(comparing) {
    if (state.kept.comparing !== comparing) session.keep({ ...state.kept, comparing });
  }

  // ---- what is shown ----

  const footstep = () => overlays.footstep.value ?? publishedFootstep(state.seen.now);
  const equalizer = createEqualizer(session, footstep);
  const presets = createPresets(session, equalizer);
  const devicePresets = createDevicePresets(session, equalizer, presets);

  function sound() {
    const { available, volume, muted } = objectOf(objectOf(state.seen.now).render);
    const isKnown = available === true;
    return {
      volume: overlays.volume.value ?? (isKnown ? numberOf(volume) : undefined),
      muted: overlays.muted.value ?? (isKnown ? flagOf(muted) : undefined),
    };
  }

  function chosenDevice() {
    const { selectedId } = devicesFacts(state.seen.devices);
    return overlays.device.value ?? selectedId ?? "";
  }

  // ---- the enhancement ----

  /** @param {Partial<Footstep>} change */
  async function setFootstep(change) {
    const present = footstep();
    if (present === undefined) return;
    session.begin();
    const wanted = { ...present, ...change };
    overlays.footstep.begin(wanted);
    const answer = await client.ask({
      method: "PUT",
      path: paths.footstep,
      body: wanted,
      control: "footstep",
    });
    overlays.footstep.end(answer.ok || answer.dropped);
    if (answer.dropped) return;
    if (!answer.ok) return session.sayFailure("action.failed", answer);
    equalizer.keepSettings();
    session.lookAt("status");
  }

  /** @param {boolean} on */
  function switchEnhancement(on) {
    const present = footstep();
    if (present === undefined) return;
    const strength = present.enhance_strength || state.kept.lastStrength || usualStrength;
    return setFootstep(on ? { bypass: false, enhance_strength: strength } : { bypass: true });
  }

  /** @param {number} strength */
  const setStrength = (strength) => setFootstep({ enhance_strength: strength });

  /** @param {boolean} original */
  function hearOriginal(original) {
    compare(original);
    return setFootstep({ bypass_all: original });
  }

  // ---- volume ----

  /** @param {number} volume */
  async function setVolume(volume) {
    session.begin();
    overlays.volume.begin(volume);
    const answer = await client.ask({
      method: "PUT",
      path: paths.volume,
      body: { volume },
      control: "volume",
    });
    overlays.volume.end(answer.ok || answer.dropped);
    if (answer.dropped) return;
    if (!answer.ok) return session.sayFailure("action.failed", answer);
    session.lookAt("status");
  }

  /** @param {boolean} muted */
  async function setMuted(muted) {
    session.begin();
    overlays.muted.begin(muted);
    const answer = await client.ask({ method: "PUT", path: paths.mute, body: { muted }, control: "mute" });
    overlays.muted.end(answer.ok || answer.dropped);
    if (answer.dropped) return;
    if (!answer.ok) return session.sayFailure("action.failed", answer);
    session.lookAt("status");
  }

  // ---- devices ----

  /**
   * @param {"device" | "microphone"} which
   * @param {string} id
   */
  async function choose(which, id) {
    session.begin();
    overlays[which].begin(id);
    const body = { endpoint_id: id };
    const answer = await client.ask({
      method: "PUT",
      path: paths[which],
      body,
      control: which,
      barrier: true,
    });
    overlays[which].end(answer.ok || answer.dropped);
    if (answer.dropped) return;
    if (!answer.ok) return session.sayFailure("action.failed", answer);
    if (which === "device") client.tell({ type: "lookAnew" });
    else session.lookAt("devices");
  }

  /**
   * Adds or removes the effect, or restarts audio for what has been added.
   *
   * @param {Action["kind"]} kind
   * @param {string} endpointId
   * @param {boolean} restartsAudio
   */
  async function changeEffect(kind, endpointId, restartsAudio) {
    if (state.action !== null && state.action.endedAt === null) return;
    session.begin();
    view.question = null;
    const action = /** @type {Action} */ ({
      kind,
      endpointId,
      restartsAudio,
      startedAt: Date.now(),
      endedAt: null,
      result: null,
    });
    state.action = action;
    const device = devicesFacts(state.seen.devices).playback.find(({ id }) => id === endpointId);
    action.hadEffect = device?.hasEffect;
    const name = device?.name ?? "";
    const before = await client.ask({ method: "GET", path: "/api/v1/status" });
    const mark = markEngine(kind, endpointId, before.ok ? before.document : state.seen.now);
    const body = { attach: kind !== "remove", endpoint_id: endpointId, restart_audio: restartsAudio };
    const answer = await client.ask({ method: "POST", path: paths.effect, body, barrier: true, slow: true });
    const document = objectOf(answer.document);
    const ended = {
      ...action,
      engine: mark,
      endedAt: Date.now(),
      result: {
        status: answer.status,
        error: answer.error,
        audioRestarted: document.audio_restarted === true,
        restartError: numberOf(document.audio_restart_error) ?? 0,
        restartDetail: textOf(document.audio_restart_detail) ?? "",
      },
    };
    state.action = ended;
    session.keep(rememberAction(state.kept, ended, mark, name));
    client.tell({ type: "lookAnew" });
    if (answer.ok) sayDone(ended, name || endpointId);
    else sayRefused(ended, answer);
  }

  /**
   * @param {Action} action
   * @param {string} device
   */
  function sayDone({ kind, endpointId, restartsAudio, result }, device) {
    if (restartsAudio && !result?.audioRestarted) return;
    const isPending = kind === "remove" || state.kept.restartPending?.endpointId === endpointId;
    if (!restartsAudio && isPending) session.say("info", "action.later");
    else if (kind === "restart") session.say("info", "action.restarted");
    else session.say("info", kind === "remove" ? "action.removed" : "action.added", { device });
  }

  /**
   * The verdict says it of the chosen device; of another one, a message does.
   *
   * @param {Action} action
   * @param {import("./client.js").Answer} answer
   */
  function sayRefused({ kind, endpointId }, answer) {
    if (endpointId === chosenDevice()) return;
    session.sayFailure(kind === "remove" ? "action.notRemoved" : "action.notAdded", answer);
  }

  // ---- the rest ----

  /** @param {LastSettings} settings */
  async function useLastSettings({ footstep: last, equalizer: bands, preset }) {
    await setFootstep(last);
    const chosen = state.kept.preset?.name === preset ? state.kept.preset : null;
    if (bands !== null && !bands.bypass) equalizer.load(bands, chosen);
  }

  /** @param {Question | null} question */
  function ask(question) {
    view.question = question;
    session.changed();
  }

  /**
   * @param {"evidenceIsOpen" | "devicesAreOpen"} part
   * @param {boolean} open
   */
  function unfold(part, open) {
    if (view[part] === open) return;
    view[part] = open;
    if (part === "devicesAreOpen") client.tell({ type: "unfolded", unfolded: open });
    session.changed();
  }

  return {
    view,
    footstep,
    equalizer,
    presets,
    devicePresets,
    sound,
    chosenDevice,
    chosenMicrophone: () =>
      overlays.microphone.value ?? textOf(objectOf(state.seen.devices).selected_capture_endpoint_id) ?? "",
    setFootstep,
    switchEnhancement,
    setStrength,
    hearOriginal,
    setVolume,
    setMuted,
    choose,
    changeEffect,
    useLastSettings,
    ask,
    unfold,
  };
}

/** @typedef {ReturnType<typeof createSound>} Sound */
