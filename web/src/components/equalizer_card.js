// The equalizer: its own switch, the presets, and the fields of one band.
import {
  bandRanges,
  bandTypes,
  decibelField,
  digits,
  hertzField,
  isBandUsed,
  parseField,
  shortHertz,
} from "../model/equalizer.js";
import { decibels } from "../model/format.js";
import { html, useLayoutEffect, useRef } from "../view.js";
import { NumberField, Switch } from "./controls.js";

/**
 * @typedef {import("../view.js").Translate} Translate
 * @typedef {import("../app/sound_actions.js").Sound} Sound
 * @typedef {import("../model/equalizer.js").Band} Band
 */

/** @param {{t: Translate, sound: Sound}} props */
function Presets({ t, sound }) {
  const { presets = [] } = sound.view;
  const chosen = sound.chosenPreset();
  const isListed = presets.includes(chosen);
  const isChanged = sound.presetIsChanged();
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

/** @param {{t: Translate, bands: Band[], chosen: number, onChoose: (index: number) => void}} props */
function BandPicker({ t, bands, chosen, onChoose }) {
  return html`<fieldset class="band-picker">
    <legend class="for-readers">${t("equalizer.bands")}</legend>
    ${bands.map((band, index) => {
      const values = {
        number: index + 1,
        gain: band.gain_db,
        frequency: band.freq_hz,
        type: t(typeKey(band)),
      };
      return html`<label key=${index} class=${isBandUsed(band) ? "used" : ""}>
        <input
          type="radio"
          name="band"
          aria-label=${t("equalizer.bandName", values)}
          checked=${index === chosen}
          onChange=${() => onChoose(index)}
        />
        <span class="face" aria-hidden="true">
          <b>${index + 1}</b>
          <span
            >${isBandUsed(band) ? decibels(band.gain_db).replace(" dB", "") : shortHertz(band.freq_hz)}</span
          >
        </span>
      </label>`;
    })}
  </fieldset>`;
}

/** @param {Band} band */
const typeKey = ({ type }) => `equalizer.type.${bandTypes[Math.trunc(type)] ?? bandTypes[0]}`;

/** @param {{t: Translate, band: Band, index: number, onChange: (values: Partial<Band>) => void}} props */
function BandFields({ t, band, index, onChange }) {
  const number = index + 1;
  const select = useRef(/** @type {HTMLSelectElement | null} */ (null));
  useLayoutEffect(() => {
    if (select.current !== null) select.current.value = String(Math.trunc(band.type));
  });
  const fields = [
    {
      key: /** @type {const} */ ("freq_hz"),
      label: "frequencyShort",
      name: "bandFrequency",
      format: hertzField,
    },
    { key: /** @type {const} */ ("gain_db"), label: "gainShort", name: "bandGain", format: decibelField },
    { key: /** @type {const} */ ("q"), label: "qShort", name: "bandQ", format: digits },
  ];
  return html`<div class="fields">
    <label class="labelled">
      <span>${t("equalizer.band", { number })}</span>
      <select
        ref=${select}
        aria-label=${t("equalizer.bandType", { number })}
        onChange=${(/** @type {{currentTarget: HTMLSelectElement}} */ { currentTarget }) =>
          onChange({ type: Number(currentTarget.value) })}
      >
        ${bandTypes.map((name, type) => html`<option key=${name} value=${type}>${t(`equalizer.type.${name}`)}</option>`)}
      </select>
    </label>
    ${fields.map(
      ({ key, label, name, format }) =>
        html`<${NumberField}
          key=${`${key} of ${index}`}
          label=${t(`equalizer.${label}`)}
          ariaLabel=${t(`equalizer.${name}`, { number })}
          name=${key}
          value=${band[key]}
          ...${bandRanges[key]}
          format=${format}
          parse=${parseField}
          onChange=${(/** @type {number} */ value) => onChange({ [key]: value })}
        />`,
    )}
  </div>`;
}

/** @param {{t: Translate, sound: Sound}} props */
export function EqualizerCard({ t, sound }) {
  const setting = sound.equalizer();
  const { band } = sound.view;
  return html`<section class="card" aria-labelledby="equalizer">
    <div class="row">
      <h2 id="equalizer">${t("equalizer.title")}</h2>
      <${Switch}
        class="small"
        label=${t("equalizer.switch")}
        words=${[t("equalizer.off"), t("equalizer.on")]}
        checked=${setting !== undefined && !setting.bypass}
        disabled=${setting === undefined}
        onChange=${(/** @type {boolean} */ on) => sound.changeEqualizer({ bypass: !on })}
      />
      <${Presets} t=${t} sound=${sound} />
    </div>
    ${
      setting !== undefined &&
      html`
        <${BandPicker} t=${t} bands=${setting.bands} chosen=${band} onChoose=${sound.showBand} />
        <${BandFields}
          t=${t}
          band=${setting.bands[band]}
          index=${band}
          onChange=${(/** @type {Partial<Band>} */ values) => sound.changeEqualizer({ band: { index: band, values } })}
        />
      `
    }
  </section>`;
}
