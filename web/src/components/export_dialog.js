// Export: the setting as text, to save or to copy, with what the text cannot carry.
import { saveFile } from "../app/transfer.js";
import { exportJson, exportParametric, lostInJson } from "../model/import/write.js";
import { html, useRef, useState } from "../view.js";
import { Dialog } from "./controls.js";

/**
 * @typedef {import("../view.js").Translate} Translate
 * @typedef {import("../app/sound_actions.js").Sound} Sound
 * @typedef {import("../model/types.js").Sentence} Sentence
 * @typedef {"json" | "parametric"} Form
 */

const forms = /** @type {const} */ (["json", "parametric"]);
const endings = { json: "json", parametric: "txt" };

/**
 * @param {Sound} sound
 * @param {Form} form
 * @returns {{text: string, lost: Sentence[]}}
 */
function exported({ equalizer }, form) {
  const setting = equalizer.setting();
  if (setting === undefined) return { text: "", lost: [] };
  const trim = equalizer.ownTrim();
  return form === "json"
    ? { text: exportJson(setting), lost: lostInJson(trim) }
    : exportParametric(setting, trim);
}

/**
 * The name of the person's own preset, else a plain one.
 *
 * @param {Sound} sound
 */
function fileName({ equalizer }) {
  const preset = equalizer.preset();
  return preset !== null && !preset.starter ? preset.name : "velmora-equalizer";
}

/** @param {{t: Translate, form: Form, onForm: (form: Form) => void}} props */
function FormChoice({ t, form, onForm }) {
  return html`<fieldset class="export-forms">
    <legend class="for-readers">${t("export.form")}</legend>
    ${forms.map(
      (one) =>
        html`<label key=${one} class="check">
          <input type="radio" name="export-form" checked=${one === form} onChange=${() => onForm(one)} />
          <span>${t(`export.${one}`)}<br /><span class="muted">${t(`export.${one}Hint`)}</span></span>
        </label>`,
    )}
  </fieldset>`;
}

/** @param {{t: Translate, lost: Sentence[]}} props */
function Lost({ t, lost }) {
  if (lost.length === 0) return html`<p>${t("export.nothingLost")}</p>`;
  return html`<div>
    <p>${t("export.lost")}</p>
    <ul>
      ${lost.map(({ key, values }) => html`<li key=${key}>${t(key, values)}</li>`)}
    </ul>
  </div>`;
}

/** @param {{t: Translate, sound: Sound}} props */
export function ExportDialog({ t, sound }) {
  const [form, setForm] = useState(/** @type {Form} */ ("json"));
  const [copied, setCopied] = useState("");
  const area = useRef(/** @type {HTMLTextAreaElement | null} */ (null));
  // What is exported is what was there when the dialog opened, also if another page edits meanwhile.
  const texts = useRef(/** @type {Record<Form, ReturnType<typeof exported>> | null} */ (null));
  texts.current ??= { json: exported(sound, "json"), parametric: exported(sound, "parametric") };
  const { text, lost } = texts.current[form];
  const copy = async () => {
    try {
      await navigator.clipboard.writeText(text);
      setCopied("export.copied");
    } catch {
      area.current?.select();
      setCopied("export.copyByHand");
    }
  };
  const choose = (/** @type {Form} */ one) => {
    setForm(one);
    setCopied("");
  };
  return html`<${Dialog} title=${t("export.title")} onCancel=${() => sound.ask(null)}>
    <${FormChoice} t=${t} form=${form} onForm=${choose} />
    <textarea
      ref=${area}
      class="report"
      readonly
      aria-label=${t("export.text")}
      rows="6"
      value=${text}
    ></textarea>
    <${Lost} t=${t} lost=${lost} />
    <p role="status">${copied !== "" && t(copied)}</p>
    <div class="row">
      <button type="button" class="button" onClick=${() => sound.ask(null)}>${t("export.close")}</button>
      <button type="button" class="button" onClick=${copy}>${t("export.copy")}</button>
      <button
        type="button"
        class="button primary"
        onClick=${() => saveFile(`${fileName(sound)}.${endings[form]}`, text)}
      >
        ${t("export.download")}
      </button>
    </div>
  <//>`;
}
