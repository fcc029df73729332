// What the page asks about presets: a name, and whether one may be replaced or deleted.
import { shownName } from "../model/presets.js";
import { html, useEffect, useRef } from "../view.js";
import { Dialog } from "./controls.js";

/**
 * @typedef {import("../view.js").Translate} Translate
 * @typedef {import("../app/preset_actions.js").Presets} Presets
 * @typedef {import("../app/preset_actions.js").Naming} Naming
 * @typedef {import("../app/preset_actions.js").Confirming} Confirming
 * @typedef {import("../model/types.js").Sentence} Sentence
 */

/** @param {{t: Translate, presets: Presets, naming: Naming}} props */
function NameForm({ t, presets, naming }) {
  const { kind, name, problem } = naming;
  const input = useRef(/** @type {HTMLInputElement | null} */ (null));
  useEffect(() => input.current?.select(), []);
  useEffect(() => input.current?.focus(), [problem]);
  const submit = (/** @type {SubmitEvent} */ event) => {
    event.preventDefault();
    presets.submitName(input.current?.value ?? "");
  };
  return html`<form novalidate onSubmit=${submit}>
    <label class="labelled">
      <span>${t("preset.name")}</span>
      <input
        ref=${input}
        class="field text"
        type="text"
        autocomplete="off"
        spellcheck=${false}
        dir="auto"
        aria-invalid=${problem !== null}
        aria-describedby="name-problem"
        defaultValue=${name}
      />
    </label>
    <p id="name-problem" class="problem" role="alert">
      ${problem !== null && t(problem.key, problem.values)}
    </p>
    <div class="row">
      <button type="button" class="button" onClick=${presets.decline}>${t("preset.cancel")}</button>
      <button class="button primary">${t(kind === "save" ? "preset.save" : "preset.renameButton")}</button>
    </div>
  </form>`;
}

/**
 * @param {{text: string, back: string, onBack: () => void, go: string, onGo: () => void}} props
 */
function Choice({ text, back, onBack, go, onGo }) {
  const safe = useRef(/** @type {HTMLButtonElement | null} */ (null));
  useEffect(() => safe.current?.focus(), []);
  return html`
    <p>${text}</p>
    <div class="row">
      <button ref=${safe} type="button" class="button" autofocus onClick=${onBack}>${back}</button>
      <button type="button" class="button primary" onClick=${onGo}>${go}</button>
    </div>
  `;
}

/** @param {{t: Translate, presets: Presets, naming: Naming}} props */
function NameQuestion({ t, presets, naming }) {
  const { kind, from, taken } = naming;
  const asksName =
    kind === "save" ? t("preset.saveTitle") : t("preset.renameTitle", { name: shownName(from) });
  if (taken === null) {
    return html`<${Dialog} title=${asksName} onCancel=${presets.decline}>
      <${NameForm} t=${t} presets=${presets} naming=${naming} />
    <//>`;
  }
  const values = { typed: shownName(taken.typed), name: shownName(taken.name) };
  return html`<${Dialog} title=${t("preset.replaceTitle", values)} onCancel=${presets.decline}>
    <${Choice}
      text=${t(taken.typed === taken.name ? "preset.replaceTaken" : "preset.replaceCase", values)}
      back=${t("preset.back")}
      onBack=${presets.backToName}
      go=${t("preset.replaceButton")}
      onGo=${() => presets.submitName(taken.typed)}
    />
  <//>`;
}

/** @param {{t: Translate, presets: Presets, question: Confirming}} props */
function ConfirmQuestion({ t, presets, question: { kind, name, why } }) {
  return html`<${Dialog}
    title=${t(`preset.${kind}Title`, { name: shownName(name) })}
    onCancel=${presets.decline}
  >
    <${Choice}
      text=${t(why.key, why.values)}
      back=${t("preset.cancel")}
      onBack=${presets.decline}
      go=${t(kind === "replace" ? "preset.replaceButton" : "preset.delete")}
      onGo=${presets.confirm}
    />
  <//>`;
}

/** @param {{t: Translate, presets: Presets}} props */
export function PresetQuestions({ t, presets }) {
  const { question } = presets.view;
  if (question === null) return null;
  if ("taken" in question) return html`<${NameQuestion} t=${t} presets=${presets} naming=${question} />`;
  return html`<${ConfirmQuestion} t=${t} presets=${presets} question=${question} />`;
}
