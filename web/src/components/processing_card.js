// The card of the algorithm's values.
import { decibelField, digits, fadeRange, millisecondField, parseField } from "../model/equalizer.js";
import { html, useLayoutEffect, useRef } from "../view.js";
import { NumberField, Switch } from "./controls.js";

/**
 * @typedef {import("../view.js").Translate} Translate
 * @typedef {import("../app/advanced_actions.js").Advanced} Advanced
 */

/** The record keeps this one in steps of its own, which have digits that nobody has set. */
const twoDigits = (/** @type {number} */ value) => digits(Number(value.toFixed(2)));

const numbers = [
  { key: "output_trim_db", text: "outputTrim", minimum: -60, maximum: 20, format: decibelField },
  { key: "mask_time_alpha", text: "maskTime", minimum: 0, maximum: 0.95, format: twoDigits },
  { key: "limiter_ceiling_db", text: "limiterCeiling", minimum: -12, maximum: 0, format: decibelField },
];

/** @param {{label: string, value: number | undefined, onChange: (value: number) => void}} props */
function StereoLink({ label, value, onChange }) {
  const select = useRef(/** @type {HTMLSelectElement | null} */ (null));
  useLayoutEffect(() => {
    if (select.current !== null) select.current.value = String(value ?? "");
  });
  return html`<label>
    <span>${label}</span>
    <select
      ref=${select}
      name="stereo_link"
      disabled=${value === undefined}
      onChange=${(/** @type {{currentTarget: HTMLSelectElement}} */ { currentTarget }) =>
        onChange(Number(currentTarget.value))}
    >
      ${[0, 1, 2].map((one) => html`<option key=${one} value=${one}>${one}</option>`)}
    </select>
  </label>`;
}

/** @param {{t: Translate, advanced: Advanced}} props */
export function ProcessingCard({ t, advanced }) {
  const numberOf = (/** @type {string} */ key) => {
    const value = advanced.value(key);
    return typeof value === "number" ? value : undefined;
  };
  const switches = [
    { key: "mask_frequency_smooth", text: "maskFrequency", values: [0, 1] },
    { key: "limiter_enabled", text: "limiter", values: [false, true] },
  ];
  return html`<section class="card" aria-labelledby="processing">
    <h2 id="processing">${t("advanced.processing")}</h2>
    <div class="settings">
      ${numbers.map(
        ({ key, text, ...field }) =>
          html`<${NumberField}
            key=${key}
            label=${t(`advanced.${text}`)}
            name=${key}
            value=${numberOf(key)}
            disabled=${numberOf(key) === undefined}
            parse=${parseField}
            onChange=${(/** @type {number} */ value) => advanced.setAlgorithm(key, value)}
            ...${field}
          />`,
      )}
      <${NumberField}
        label=${t("advanced.fade")}
        name="fade_ms"
        value=${advanced.fade()}
        disabled=${advanced.fade() === undefined}
        format=${millisecondField}
        parse=${parseField}
        onChange=${advanced.setFade}
        ...${fadeRange}
      />
      <${StereoLink}
        label=${t("advanced.stereoLink")}
        value=${numberOf("stereo_link")}
        onChange=${(/** @type {number} */ value) => advanced.setAlgorithm("stereo_link", value)}
      />
      ${switches.map(({ key, text, values: [off, on] }) => {
        const value = advanced.value(key);
        return html`<div key=${key} class="setting">
          <span aria-hidden="true">${t(`advanced.${text}`)}</span>
          <${Switch}
            class="small"
            label=${t(`advanced.${text}`)}
            words=${[t("control.off"), t("control.on")]}
            checked=${value !== undefined && value !== off}
            disabled=${value === undefined}
            onChange=${(/** @type {boolean} */ isOn) => advanced.setAlgorithm(key, isOn ? on : off)}
          />
        </div>`;
      })}
    </div>
    <p class="muted">${t("advanced.processingNote")}</p>
  </section>`;
}
