// What the page asks before it does something.
import { activePrograms } from "../model/programs.js";
import { html } from "../view.js";
import { Dialog } from "./controls.js";
import { ExportDialog } from "./export_dialog.js";
import { ImportDialog } from "./import_dialog.js";

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
    <p>${text}</p>
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

/** @param {{t: Translate, sound: Sound, session: Session}} props */
export function Questions({ t, sound, session }) {
  const { question } = sound.view;
  if (question === null) return null;
  if (question.kind === "import")
    return html`<${ImportDialog} t=${t} sound=${sound} given=${question.given} />`;
  if (question.kind === "export") return html`<${ExportDialog} t=${t} sound=${sound} />`;
  return html`<${RestartQuestion} t=${t} sound=${sound} session=${session} question=${question} />`;
}
