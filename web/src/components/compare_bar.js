// Undo, redo, and the two slots to compare.
import { html } from "../view.js";
import { Icon } from "./icon.js";
import { useShortcuts } from "./keys.js";

/**
 * @typedef {import("../view.js").Translate} Translate
 * @typedef {import("../app/equalizer_actions.js").Equalizer} Equalizer
 */

const slots = /** @type {const} */ (["a", "b"]);

/** @param {{t: Translate, equalizer: Equalizer}} props */
export function CompareBar({ t, equalizer }) {
  const active = equalizer.slot();
  const isKnown = equalizer.setting() !== undefined;
  useShortcuts([
    { key: "c", press: () => equalizer.useSlot(active === "a" ? "b" : "a") },
    { key: "z", control: true, press: equalizer.undo },
    { key: "y", control: true, press: equalizer.redo },
    { key: "z", control: true, shift: true, press: equalizer.redo },
  ]);
  const steps = [
    {
      name: /** @type {const} */ ("undo"),
      does: equalizer.undo,
      can: equalizer.canUndo(),
      keys: "Control+Z",
    },
    {
      name: /** @type {const} */ ("redo"),
      does: equalizer.redo,
      can: equalizer.canRedo(),
      keys: "Control+Y",
    },
  ];
  return html`<div class="row end compare">
    ${steps.map(
      ({ name, does, can, keys }) =>
        html`<button
          key=${name}
          type="button"
          class="button"
          aria-label=${t(`equalizer.${name}`)}
          title=${t(`equalizer.${name}`)}
          aria-keyshortcuts=${keys}
          aria-disabled=${!can}
          onClick=${does}
        >
          <${Icon} name=${name} />
        </button>`,
    )}
    <div class="row" role="group" aria-label=${t("equalizer.slots")}>
      ${slots.map(
        (slot) =>
          html`<button
            key=${slot}
            type="button"
            class="button"
            aria-label=${t("equalizer.slot", { slot: slot.toUpperCase() })}
            title=${t("equalizer.slotHint")}
            aria-keyshortcuts="C"
            aria-pressed=${slot === active}
            disabled=${!isKnown}
            onClick=${() => equalizer.useSlot(slot)}
          >
            ${slot.toUpperCase()}
          </button>`,
      )}
    </div>
  </div>`;
}

/**
 * Whether A and B are heard at one loudness, and what that does to the output trim.
 *
 * @param {{t: Translate, equalizer: Equalizer}} props
 */
export function MatchingNote({ t, equalizer }) {
  const { on, trims, trimBefore } = equalizer.matching();
  if (!on && !equalizer.otherSlotIsUsed()) return null;
  const lowered = trims !== null &&
    trimBefore !== undefined && { a: trims.a - trimBefore, b: trims.b - trimBefore };
  return html`<div class="row note" data-matching>
    <label class="choice">
      <input
        type="checkbox"
        checked=${on}
        onChange=${(/** @type {{currentTarget: HTMLInputElement}} */ { currentTarget }) =>
          equalizer.setMatching(currentTarget.checked)}
      />
      ${t("equalizer.match")}
    </label>
    ${on && html`<span class="muted">${matchingText(t, lowered, trimBefore)}</span>`}
  </div>`;
}

/**
 * @param {Translate} t
 * @param {{a: number, b: number} | false} lowered by how much, in decibels
 * @param {number | undefined} trimBefore
 */
function matchingText(t, lowered, trimBefore) {
  if (lowered === false) return t("equalizer.matchLeft", { trim: trimBefore });
  if (lowered.a === 0 && lowered.b === 0) return t("equalizer.matchEqual");
  const slot = lowered.a < lowered.b ? "A" : "B";
  return t("equalizer.matchLowered", {
    slot,
    by: Math.abs(Math.min(lowered.a, lowered.b)),
    trim: trimBefore,
  });
}
