// The first screen: is it on, do I hear it, what next.
import { createReport } from "../app/report_actions.js";
import { createSession } from "../app/session.js";
import { createSound } from "../app/sound_actions.js";
import { ControlCard } from "../components/control_card.js";
import { DeviceSelect, DevicesCard } from "../components/devices_card.js";
import { EqualizerCard } from "../components/equalizer_card.js";
import { Frame, nameDocument, pageAddress } from "../components/frame.js";
import { Message } from "../components/message.js";
import { PresetQuestions } from "../components/preset_questions.js";
import { Questions } from "../components/questions.js";
import { ReportDialog } from "../components/report_dialog.js";
import { VerdictCard } from "../components/verdict_card.js";
import { devicesFacts } from "../model/facts.js";
import { plainName } from "../model/format.js";
import { settingsToOffer } from "../model/memory.js";
import { shownName } from "../model/presets.js";
import { flagOf, objectOf } from "../model/read.js";
import { say } from "../texts/index.js";
import { html, render } from "../view.js";

/**
 * @typedef {import("../model/types.js").Button} Button
 * @typedef {import("../model/types.js").LastSettings} LastSettings
 * @typedef {import("../app/session.js").Session} Session
 * @typedef {import("../app/sound_actions.js").Sound} Sound
 * @typedef {import("../app/report_actions.js").Report} Report
 */

/**
 * Carries out a button of the verdict. What restarts audio asks first, unless the verdict itself has just said what that
 * interrupts.
 *
 * @param {Session} session
 * @param {Sound} sound
 * @param {Report} report
 * @param {Button} button
 */
function press(session, sound, report, { id, values }) {
  const endpointId = String(values.endpointId ?? sound.chosenDevice());
  const name = deviceName(session, endpointId);
  const strength = Number(values.strength);
  const actions = {
    retryRestart: () => {
      const { kind: as, endpointId: target } = session.state.action ?? { kind: "restart", endpointId };
      sound.ask({ kind: "restart", endpointId: target, name, as });
    },
    retryChange: () => sound.ask({ kind: kindOf(values.kind), endpointId, name }),
    add: () => sound.changeEffect("add", endpointId, true),
    addLater: () => sound.changeEffect("add", endpointId, false),
    addAgain: () => sound.ask({ kind: "add", endpointId, name }),
    restart: () =>
      sound.ask({ kind: "restart", endpointId, name, as: values.as === "remove" ? "remove" : "restart" }),
    unmute: () => unmute(sound, values),
    turnOn: () => sound.setFootstep({ bypass: false, bypass_all: false, enhance_strength: strength }),
    stopBypassing: () => sound.hearOriginal(false),
    backToVelmora: () => sound.hearOriginal(false),
    setStrength: () => sound.setStrength(strength),
    copyReport: report.open,
    useDevice: () => sound.choose("device", endpointId),
    openHelp: () => location.assign(`${pageAddress("/help.html", session.token)}#refused`),
  };
  actions[id]();
}

/**
 * @param {unknown} kind
 * @returns {import("../model/types.js").Action["kind"]}
 */
const kindOf = (kind) => (kind === "add" || kind === "remove" ? kind : "restart");

/**
 * @param {Sound} sound
 * @param {Record<string, unknown>} values
 */
function unmute(sound, { muted, volume }) {
  if (muted === true) sound.setMuted(false);
  if (sound.sound().volume === 0) sound.setVolume(Number(volume));
}

/**
 * @param {Session} session
 * @param {string} endpointId
 */
function deviceName({ state }, endpointId) {
  const device = devicesFacts(state.seen.devices).playback.find(({ id }) => id === endpointId);
  return plainName(device?.name ?? endpointId);
}

/** @param {LastSettings} settings */
function offerKey({ footstep, equalizer, preset }) {
  const isOn = !footstep.bypass && footstep.enhance_strength > 0;
  const equalizes = equalizer !== null && !equalizer.bypass;
  if (isOn && equalizes) return preset ? "control.offerBoth" : "control.offerStrengthAndEqualizer";
  if (isOn) return "control.offerStrength";
  return preset ? "control.offerPreset" : "control.offerEqualizer";
}

/**
 * @param {LastSettings} settings
 * @returns {string | import("../model/types.js").Sentence}
 */
function presetName({ preset, starter, presetChanged }) {
  const name = starter ? { key: `starter.${preset}`, values: {} } : shownName(preset);
  return presetChanged ? { key: "preset.changed", values: { name } } : name;
}

/**
 * @param {{t: import("../view.js").Translate, say: (sentence: import("../model/types.js").Sentence) => string,
 *   token: string, message: import("../app/session.js").Message}} props
 */
function SessionMessage({ t, say: tell, token, message: { tone, sentence, action } }) {
  const press = () => {
    // The button goes with its message.
    document.getElementById("preset")?.focus();
    action?.press();
  };
  return html`<${Message} t=${t} say=${tell} token=${token} tone=${tone} lines=${[sentence]}>
    ${action !== undefined && html`<button type="button" class="button" onClick=${press}>${t(action.key)}</button>`}
  <//>`;
}

/** How often the whole page is drawn while a dot of the curve is held. */
const heldDrawMs = 200;

/** Draws the page and keeps it up to date. */
export function openSoundPage() {
  const session = createSession(draw);
  const sound = createSound(session);
  const report = createReport(session);
  const root = document.documentElement;
  let drawnAt = -heldDrawMs;

  function draw() {
    const { isHeld, live } = sound.equalizer;
    if (isHeld() && live.redraw !== null && performance.now() - drawnAt < heldDrawMs) return live.redraw();
    drawnAt = performance.now();
    const language = session.language();
    const t = (/** @type {string} */ key, values = {}) => say(language, key, values);
    const tell = (/** @type {{key: string, values: Record<string, unknown>}} */ { key, values }) =>
      t(key, values);
    const verdict = session.judge();
    nameDocument(language, t("page.title"));
    const { state, client } = session;
    const { controls } = verdict;
    const settings =
      controls === "shown" ? settingsToOffer(state.kept, state.seen.now, state.seen.equalizer) : null;
    const isProtected = flagOf(objectOf(objectOf(state.seen.now).apo_host).protected_audio_dg_disabled);
    const protectedValue =
      isProtected === undefined ? "evidence.notRead" : isProtected ? "evidence.yes" : "evidence.no";
    const isUnderWay = state.action !== null && state.action.endedAt === null;
    const content = html`<${Frame}
      t=${t}
      page="index"
      token=${session.token}
      language=${language}
      onLanguage=${session.setLanguage}
      version=${session.version()}
      stamp=${root.dataset.stamp ?? ""}
      device=${controls !== "hidden" && html`<${DeviceSelect} t=${t} sound=${sound} session=${session} />`}
    >
      <${VerdictCard}
        t=${t}
        say=${tell}
        verdict=${verdict}
        token=${session.token}
        protectedText=${t("evidence.protected", { value: t(protectedValue) })}
        evidenceIsOpen=${sound.view.evidenceIsOpen}
        onUnfold=${(/** @type {boolean} */ open) => sound.unfold("evidenceIsOpen", open)}
        onButton=${(/** @type {Button} */ button) => press(session, sound, report, button)}
      />
      <div class="messages" role="status">
        ${
          state.message !== null &&
          controls !== "hidden" &&
          html`<${SessionMessage} t=${t} say=${tell} token=${session.token} message=${state.message} />`
        }
      </div>
      ${
        settings !== null &&
        html`<div class="message">
          <span>${t("control.offerText")}</span>
          <button type="button" class="button" onClick=${() => sound.useLastSettings(settings)}>
            ${t("control.offer", {
              settings: {
                key: offerKey(settings),
                values: { strength: settings.footstep.enhance_strength, preset: presetName(settings) },
              },
            })}
          </button>
        </div>`
      }
      ${
        (controls !== "hidden" || sound.equalizer.isHeld()) &&
        html`<fieldset
          class="cards ${controls === "dimmed" && client.link().state === "waiting" ? "stale" : ""}"
          disabled=${isUnderWay}
        >
          <${ControlCard} t=${t} sound=${sound} />
          <${EqualizerCard} t=${t} sound=${sound} />
          <${DevicesCard} t=${t} sound=${sound} session=${session} />
        </fieldset>`
      }
      ${!state.isKept && controls !== "hidden" && html`<p class="muted">${t("page.notKept")}</p>`}
      <${Questions} t=${t} sound=${sound} session=${session} />
      <${PresetQuestions} t=${t} presets=${sound.presets} />
      <${ReportDialog} t=${t} report=${report} />
    <//>`;
    render(content, document.body);
  }

  // A file that misses the place for an import does not take the browser away from the page.
  for (const type of /** @type {const} */ (["dragover", "drop"])) {
    addEventListener(type, (event) => {
      if (event.dataTransfer?.types.includes("Files")) event.preventDefault();
    });
  }
  draw();
  session.start();
  if (session.token !== "") sound.presets.start();
}
