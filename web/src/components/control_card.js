// The enhancement: on or off, how strong, and what it sounds like without.
import { percent } from "../model/format.js";
import { html, useEffect } from "../view.js";
import { Slider, Switch } from "./controls.js";

/**
 * @typedef {import("../view.js").Translate} Translate
 * @typedef {import("../app/sound_actions.js").Sound} Sound
 */

/** Where a key press writes or chooses something, it is no shortcut. */
const takesKeys = "input:not([type=checkbox]):not([type=range]):not([type=radio]), select, textarea, dialog";

/**
 * Switches with the key O.
 *
 * @param {() => void} onPress
 */
function useOriginalKey(onPress) {
  useEffect(() => {
    const listen = (/** @type {KeyboardEvent} */ event) => {
      if (event.key.toLowerCase() !== "o" || event.ctrlKey || event.altKey || event.metaKey || event.repeat)
        return;
      if (event.target instanceof Element && event.target.closest(takesKeys) !== null) return;
      event.preventDefault();
      onPress();
    };
    addEventListener("keydown", listen);
    return () => removeEventListener("keydown", listen);
  });
}

/** @param {{t: Translate, sound: Sound}} props */
export function ControlCard({ t, sound }) {
  const footstep = sound.footstep();
  const isOriginal = footstep?.bypass_all ?? false;
  const hear = () => {
    if (footstep !== undefined) sound.hearOriginal(!isOriginal);
  };
  useOriginalKey(hear);
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
