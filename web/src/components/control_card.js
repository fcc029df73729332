// The enhancement: on or off, how strong, and what it sounds like without.
import { percent } from "../model/format.js";
import { html } from "../view.js";
import { Slider, Switch } from "./controls.js";
import { useShortcuts } from "./keys.js";

/**
 * @typedef {import("../view.js").Translate} Translate
 * @typedef {import("../app/sound_actions.js").Sound} Sound
 */

/** @param {{t: Translate, sound: Sound}} props */
export function ControlCard({ t, sound }) {
  const footstep = sound.footstep();
  const isOriginal = footstep?.bypass_all ?? false;
  const hear = () => {
    if (footstep !== undefined) sound.hearOriginal(!isOriginal);
  };
  useShortcuts([{ key: "o", press: hear }]);
  return html`<section class="card control" aria-label=${t("control.title")}>
    <${Switch}
      label=${t("control.switch")}
      words=${[t("control.off"), t("control.on")]}
      checked=${footstep !== undefined && !footstep.bypass}
      disabled=${footstep === undefined}
      onChange=${sound.switchEnhancement}
    />
    <${Slider}
      label=${t("control.strength")}
      name="strength"
      value=${footstep?.enhance_strength}
      format=${percent}
      disabled=${footstep === undefined}
      onInput=${sound.setStrength}
    />
    <button
      type="button"
      class="button"
      aria-pressed=${isOriginal}
      aria-keyshortcuts="O"
      disabled=${footstep === undefined}
      onClick=${hear}
    >
      ${t("control.original")} <kbd aria-hidden="true">O</kbd>
    </button>
  </section>`;
}
