// The presets of the equalizer.
import { html, useLayoutEffect, useRef } from "../view.js";

/**
 * @typedef {import("../view.js").Translate} Translate
 * @typedef {import("../app/sound_actions.js").Sound} Sound
 */

/** @param {{t: Translate, sound: Sound}} props */
export function PresetBar({ t, sound }) {
  const { presets = [] } = sound.view;
  const chosen = sound.equalizer.preset()?.name ?? "";
  const isListed = presets.includes(chosen);
  const isChanged = sound.equalizer.isChanged();
  const label = (/** @type {string} */ name) =>
    isChanged && name === chosen ? t("equalizer.presetChanged", { name }) : name;
  const select = useRef(/** @type {HTMLSelectElement | null} */ (null));
  useLayoutEffect(() => {
    if (select.current !== null) select.current.value = isListed ? chosen : "";
  });
  const placeholder = presets.length > 0 ? "equalizer.choosePreset" : "equalizer.noPresets";
  return html`
    <select
      ref=${select}
      class="preset"
      aria-label=${t("equalizer.preset")}
      disabled=${presets.length === 0}
      onChange=${(/** @type {{currentTarget: HTMLSelectElement}} */ { currentTarget }) =>
        sound.usePreset(currentTarget.value)}
    >
      <option value="" disabled>${t(placeholder)}</option>
      ${presets.map((name) => html`<option key=${name} value=${name}>${label(name)}</option>`)}
    </select>
    <button type="button" class="button" onClick=${() => sound.ask({ kind: "savePreset" })}>
      ${t("equalizer.save")}
    </button>
    ${
      isListed &&
      html`<button
        type="button"
        class="button"
        aria-label=${t("equalizer.deletePreset", { name: chosen })}
        onClick=${() => sound.ask({ kind: "deletePreset", name: chosen })}
      >
        ${t("equalizer.delete")}
      </button>`
    }
  `;
}
