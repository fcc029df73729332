// The fields of the chosen band.
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
import { NumberField } from "./controls.js";

/**
 * @typedef {import("../view.js").Translate} Translate
 * @typedef {import("../app/equalizer_actions.js").Equalizer} Equalizer
 * @typedef {import("../model/equalizer.js").Band} Band
 */

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
function Fields({ t, band, index, onChange }) {
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

/** @param {{t: Translate, equalizer: Equalizer}} props */
export function BandFields({ t, equalizer }) {
  const setting = equalizer.setting();
  if (setting === undefined) return null;
  const chosen = equalizer.chosen();
  const change = (/** @type {Partial<Band>} */ values) => equalizer.change({ bands: { [chosen]: values } });
  return html`
    <${BandPicker} t=${t} bands=${setting.bands} chosen=${chosen} onChoose=${equalizer.choose} />
    <${Fields} t=${t} band=${setting.bands[chosen]} index=${chosen} onChange=${change} />
  `;
}
