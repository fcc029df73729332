// What the page asks before it does something.
import { activePrograms } from "../model/programs.js";
import { html, useEffect, useRef } from "../view.js";
import { Dialog } from "./controls.js";

/**
 * @typedef {import("../view.js").Translate} Translate
 * @typedef {import("../app/sound_actions.js").Sound} Sound
 * @typedef {import("../app/session.js").Session} Session
 */

const titles = { restart: "confirm.restartTitle", add: "confirm.addTitle", remove: "confirm.removeTitle" };
const yes = { restart: "confirm.now", add: "confirm.add", remove: "confirm.remove" };
const later = { restart: "", add: "confirm.addLater", remove: "confirm.removeLater" };

/**
 * Audio restarts only after this, with the programs that it interrupts by name.
 *
 * @param {{t: Translate, sound: Sound, session: Session,
 *   question: {kind: "restart" | "add" | "remove", endpointId: string, name: string,
 *   as?: "restart" | "add" | "remove"}}} props
 */
function RestartQuestion({ t, sound, session, question }) {
  const { kind, endpointId, name, as = kind } = question;
  const programs = activePrograms(session.state.seen.devices);
  const text = programs.length > 0 ? t("confirm.programs", { programs }) : t("confirm.text");
  return html`<${Dialog} title=${t(titles[kind], { device: name })} onCancel=${() => sound.ask(null)}>
    <p>${text} ${t("confirm.microphones")}</p>
    <div class="row">
      <button type="button" class="button" onClick=${() => sound.ask(null)}>${t("confirm.cancel")}</button>
      ${
        kind !== "restart" &&
        html`<button
          type="button"
          class="button"
          onClick=${() => sound.changeEffect(kind, endpointId, false)}
        >
          ${t(later[kind])}
        </button>`
      }
      <button
        type="button"
        class="button primary"
        autofocus
        onClick=${() => sound.changeEffect(as, endpointId, true)}
      >
        ${t(yes[kind])}
      </button>
    </div>
  <//>`;
}

/** @param {{t: Translate, sound: Sound}} props */
function SaveQuestion({ t, sound }) {
  const input = useRef(/** @type {HTMLInputElement | null} */ (null));
  useEffect(() => input.current?.select(), []);
  const save = (/** @type {SubmitEvent} */ event) => {
    event.preventDefault();
    const name = input.current?.value.trim() ?? "";
    if (name === "") return;
    sound.ask(null);
    sound.savePreset(name);
  };
  return html`<${Dialog} title=${t("equalizer.saveTitle")} onCancel=${() => sound.ask(null)}>
    <form onSubmit=${save}>
      <label class="labelled">
        <span>${t("equalizer.saveAs")}</span>
        <input
          ref=${input}
          class="field text"
          type="text"
          maxlength="64"
          required
          defaultValue=${sound.equalizer.preset()?.name ?? ""}
        />
      </label>
      <p class="muted">${t("equalizer.saveHint")}</p>
      <div class="row">
        <button type="button" class="button" onClick=${() => sound.ask(null)}>${t("confirm.cancel")}</button>
        <button class="button primary">${t("equalizer.save")}</button>
      </div>
    </form>
  <//>`;
}

/** @param {{t: Translate, sound: Sound, name: string}} props */
function DeleteQuestion({ t, sound, name }) {
  return html`<${Dialog} title=${t("equalizer.deleteQuestion", { name })} onCancel=${() => sound.ask(null)}>
    <div class="row">
      <button type="button" class="button" autofocus onClick=${() => sound.ask(null)}>
        ${t("confirm.cancel")}
      </button>
      <button
        type="button"
        class="button primary"
        onClick=${() => {
          sound.ask(null);
          sound.deletePreset(name);
        }}
      >
        ${t("equalizer.delete")}
      </button>
    </div>
  <//>`;
}

/** @param {{t: Translate, sound: Sound, session: Session}} props */
export function Questions({ t, sound, session }) {
  const { question } = sound.view;
  if (question === null) return null;
  if (question.kind === "savePreset") return html`<${SaveQuestion} t=${t} sound=${sound} />`;
  if (question.kind === "deletePreset")
    return html`<${DeleteQuestion} t=${t} sound=${sound} name=${question.name} />`;
  return html`<${RestartQuestion} t=${t} sound=${sound} session=${session} question=${question} />`;
}
