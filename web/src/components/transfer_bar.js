// The buttons that open import and export.
import { html } from "../view.js";

/**
 * @typedef {import("../view.js").Translate} Translate
 * @typedef {import("../app/sound_actions.js").Sound} Sound
 */

/** @param {{t: Translate, sound: Sound}} props */
export function TransferBar({ t, sound }) {
  const isKnown = sound.equalizer.setting() !== undefined;
  return html`<div class="row">
    <button type="button" class="button" disabled=${!isKnown} onClick=${() => sound.ask({ kind: "import" })}>
      ${t("import.open")}
    </button>
    <button type="button" class="button" disabled=${!isKnown} onClick=${() => sound.ask({ kind: "export" })}>
      ${t("export.open")}
    </button>
  </div>`;
}
