// The card of the captures.
import { digits, parseField } from "../model/equalizer.js";
import { html } from "../view.js";
import { NumberField } from "./controls.js";

/**
 * @typedef {import("../view.js").Translate} Translate
 * @typedef {import("../app/advanced_actions.js").Advanced} Advanced
 */

/** @param {{t: Translate, advanced: Advanced}} props */
export function CaptureCard({ t, advanced }) {
  const { capture, captureBytes, seconds } = advanced.view;
  return html`<section class="card" aria-labelledby="captures">
    <h2 id="captures">${t("capture.title")}</h2>
    <p class="muted">${t("capture.note")}</p>
    <div class="row">
      <${NumberField}
        label=${t("capture.seconds")}
        name="seconds"
        value=${seconds}
        minimum=${1}
        maximum=${300}
        format=${(/** @type {number} */ value) => `${digits(value)} s`}
        parse=${parseField}
        onChange=${advanced.setSeconds}
      />
      ${
        /** @type {const} */ (["start", "stop", "export"]).map(
          (action) =>
            html`<button key=${action} type="button" class="button" onClick=${() => advanced.capture(action)}>
              ${t(`capture.${action}`)}
            </button>`,
        )
      }
      <button type="button" class="button" disabled=${capture !== "ready"} onClick=${advanced.download}>
        ${t("capture.download")}
      </button>
      <span class="muted" role="status"
        >${capture !== "none" && t(`capture.${capture}`, { bytes: captureBytes })}</span
      >
    </div>
  </section>`;
}
