// The card of the algorithm's values, and of the equalizer's fade.
import { fadeRange, millisecondField, parseField } from "../model/equalizer.js";
import { changedValues, fadeFirst, firstValues, numberSettings } from "../model/processing.js";
import { html, useLayoutEffect, useRef } from "../view.js";
import { NumberField, Switch } from "./controls.js";

/**
 * @typedef {import("../view.js").Translate} Translate
 * @typedef {import("../view.js").Children} Children
 * @typedef {import("../app/advanced_actions.js").Advanced} Advanced
 * @typedef {import("../model/processing.js").NumberSetting} NumberSetting
 */

const stereoModes = [0, 1, 2];

/** @param {string} text */
const withMinus = (text) => text.replace("-", "−");

/**
 * One value: its name and control, a sentence on it, its range, and the way back to its first value.
 *
 * @param {{t: Translate, name: string, text: string, range: string, isChanged: boolean, onReset: () => void,
 *   note?: string, children: Children}} props
 */
function Setting({ t, name, text, range, isChanged, onReset, note = "", children }) {
  return html`<div class="tuning">
    ${children}
    <p class="muted" id=${`about-${name}`}>
      ${t(`advanced.${text}.text`)}${" "}<span class="range">${range}</span>
      ${note && html`<span class="note">${note}</span>`}
    </p>
    ${
      isChanged &&
      html`<button
        type="button"
        class="button"
        aria-label=${t("advanced.resetOne", { name: t(`advanced.${text}`) })}
        onClick=${(/** @type {{currentTarget: HTMLElement}} */ { currentTarget }) => {
          // The button goes with the reset; the focus stays at the value.
          const control = currentTarget.parentElement?.querySelector("input, select");
          if (control instanceof HTMLElement) control.focus();
          onReset();
        }}
      >
        ${t("advanced.reset")}
      </button>`
    }
  </div>`;
}

/**
 * @param {{t: Translate, name: string, value: number | undefined, setting: Omit<NumberSetting, "key">, note?: string,
 *   onChange: (value: number) => void}} props
 */
function NumberSettingField({ t, name, value, setting, note, onChange }) {
  const { text, minimum, maximum, first, format } = setting;
  const plain = (/** @type {number} */ limit) => withMinus(format(limit).replace("+", ""));
  const range = t("advanced.range", {
    minimum: plain(minimum),
    maximum: plain(maximum),
    first: plain(first),
  });
  return html`<${Setting}
    t=${t}
    name=${name}
    text=${text}
    range=${range}
    note=${note}
    isChanged=${value !== undefined && value !== first}
    onReset=${() => onChange(first)}
  >
    <${NumberField}
      label=${t(`advanced.${text}`)}
      name=${name}
      value=${value}
      minimum=${minimum}
      maximum=${maximum}
      format=${format}
      parse=${parseField}
      describedBy=${`about-${name}`}
      disabled=${value === undefined}
      onChange=${onChange}
    />
  <//>`;
}

/** @param {{t: Translate, value: number | undefined, onChange: (value: number) => void}} props */
function StereoLink({ t, value, onChange }) {
  const select = useRef(/** @type {HTMLSelectElement | null} */ (null));
  useLayoutEffect(() => {
    if (select.current !== null) select.current.value = String(value ?? "");
  });
  const first = Number(firstValues.stereo_link);
  const mode = (/** @type {number} */ number) => t("advanced.stereoLinkMode", { number });
  return html`<${Setting}
    t=${t}
    name="stereo_link"
    text="stereoLink"
    range=${t("advanced.first", { first: mode(first) })}
    isChanged=${value !== undefined && value !== first}
    onReset=${() => onChange(first)}
  >
    <label class="labelled">
      <span>${t("advanced.stereoLink")}</span>
      <select
        ref=${select}
        name="stereo_link"
        aria-describedby="about-stereo_link"
        disabled=${value === undefined}
        onChange=${(/** @type {{currentTarget: HTMLSelectElement}} */ { currentTarget }) =>
          onChange(Number(currentTarget.value))}
      >
        ${stereoModes.map((number) => html`<option key=${number} value=${number}>${mode(number)}</option>`)}
      </select>
    </label>
  <//>`;
}

/**
 * @param {{t: Translate, name: string, text: string, value: number | boolean | undefined,
 *   values: [off: number | boolean, on: number | boolean], onChange: (value: number | boolean) => void}} props
 */
function SwitchSetting({ t, name, text, value, values: [off, on], onChange }) {
  const first = firstValues[name];
  const words = /** @type {[string, string]} */ ([t("control.off"), t("control.on")]);
  return html`<${Setting}
    t=${t}
    name=${name}
    text=${text}
    range=${t("advanced.first", { first: words[Number(first === on)] })}
    isChanged=${value !== undefined && value !== first}
    onReset=${() => onChange(first)}
  >
    <span aria-hidden="true">${t(`advanced.${text}`)}</span>
    <${Switch}
      class="small"
      label=${t(`advanced.${text}`)}
      words=${words}
      checked=${value !== undefined && value !== off}
      describedBy=${`about-${name}`}
      disabled=${value === undefined}
      onChange=${(/** @type {boolean} */ isOn) => onChange(isOn ? on : off)}
    />
  <//>`;
}

/** @param {{t: Translate, advanced: Advanced}} props */
export function ProcessingCard({ t, advanced }) {
  const values = advanced.values();
  const { undo } = advanced.view;
  const set = (/** @type {string} */ key) => (/** @type {number | boolean} */ value) =>
    advanced.setAlgorithm(key, value);
  const numberOf = (/** @type {string} */ key) => (typeof values[key] === "number" ? values[key] : undefined);
  const number = (/** @type {NumberSetting} */ setting, note = "") =>
    html`<${NumberSettingField}
      key=${setting.key}
      t=${t}
      name=${setting.key}
      value=${numberOf(setting.key)}
      setting=${setting}
      note=${note}
      onChange=${set(setting.key)}
    />`;
  const trim = advanced.trimBefore();
  const isFirst = Object.keys(changedValues(values)).length === 0;
  return html`<section class="card" aria-labelledby="processing">
    <h2 id="processing">${t("advanced.processing")}</h2>
    <p class="muted">${t("advanced.processingNote")}</p>
    <div class="settings">
      ${number(numberSettings.trim, trim === undefined ? "" : t("advanced.matching", { trim }))}
      ${number(numberSettings.time)}
      <${SwitchSetting}
        t=${t}
        name="mask_frequency_smooth"
        text="maskFrequency"
        value=${values.mask_frequency_smooth}
        values=${[0, 1]}
        onChange=${set("mask_frequency_smooth")}
      />
      <${SwitchSetting}
        t=${t}
        name="limiter_enabled"
        text="limiter"
        value=${values.limiter_enabled}
        values=${[false, true]}
        onChange=${set("limiter_enabled")}
      />
      ${number(numberSettings.ceiling)}
      <${StereoLink} t=${t} value=${numberOf("stereo_link")} onChange=${set("stereo_link")} />
    </div>
    <div class="row">
      <button
        type="button"
        class="button"
        aria-disabled=${isFirst}
        onClick=${() => {
          if (!isFirst) advanced.resetAll();
        }}
      >
        ${t("advanced.resetAll")}
      </button>
      ${
        undo !== null &&
        html`<button type="button" class="button" onClick=${advanced.undoReset}>
          ${t("advanced.undoReset")}
        </button>`
      }
    </div>
    <h3>${t("advanced.equalizer")}</h3>
    <div class="settings">
      <${NumberSettingField}
        t=${t}
        name="fade_ms"
        value=${advanced.fade()}
        setting=${{ text: "fade", first: fadeFirst, format: millisecondField, ...fadeRange }}
        onChange=${advanced.setFade}
      />
    </div>
  </section>`;
}
