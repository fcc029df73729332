// The fields of the chosen band.
import {
  bandRanges,
  bandToAdd,
  decibelField,
  digits,
  hertzField,
  isBandUsed,
  nextFree,
  parseField,
} from "../model/equalizer.js";
import { filterTypes } from "../model/filters.js";
import { flatValues, freeFrequency, hasGain, stepFrequency, stepGain, stepQ } from "../model/gestures.js";
import { html, useEffect, useLayoutEffect, useRef } from "../view.js";
import { NumberField } from "./controls.js";
import { typeName } from "./curve.js";
import { addedQ, dotId } from "./curve_gestures.js";

/**
 * @typedef {import("../view.js").Translate} Translate
 * @typedef {import("../app/equalizer_actions.js").Equalizer} Equalizer
 * @typedef {import("../model/equalizer.js").Band} Band
 */

const repeatDelayMs = 400;
const repeatMs = 80;

/** What the buttons − and + beside each field do, by field. They go further than a key does. */
const fields = [
  {
    key: /** @type {const} */ ("freq_hz"),
    name: "Frequency",
    label: "frequencyShort",
    format: hertzField,
    step: (/** @type {Band} */ band, /** @type {number} */ direction) => stepFrequency(band, direction / 12),
  },
  {
    key: /** @type {const} */ ("gain_db"),
    name: "Gain",
    label: "gainShort",
    format: decibelField,
    step: (/** @type {Band} */ band, /** @type {number} */ direction) => stepGain(band, direction / 2),
  },
  { key: /** @type {const} */ ("q"), name: "Q", label: "qShort", format: digits, step: stepQ },
];

/**
 * A button that repeats while it is held.
 *
 * @param {{name: string, text: string, disabled: boolean, onStep: () => void}} props
 */
function StepButton({ name, text, disabled, onStep }) {
  const held = useRef({ timer: 0, hasRepeated: false, step: onStep });
  held.current.step = onStep;
  const stop = () => clearTimeout(held.current.timer);
  const repeat = () => {
    held.current.hasRepeated = true;
    held.current.step();
    held.current.timer = window.setTimeout(repeat, repeatMs);
  };
  useEffect(() => stop, []);
  return html`<button
    type="button"
    class="button step"
    aria-label=${name}
    title=${name}
    disabled=${disabled}
    onPointerDown=${(/** @type {PointerEvent} */ { button }) => {
      stop();
      held.current.hasRepeated = false;
      if (button === 0) held.current.timer = window.setTimeout(repeat, repeatDelayMs);
    }}
    onPointerUp=${stop}
    onPointerLeave=${stop}
    onPointerCancel=${stop}
    onContextMenu=${stop}
    onClick=${(/** @type {MouseEvent} */ { detail }) => {
      // The click that ends a hold is no further step; one by a key is always a step.
      if (!held.current.hasRepeated || detail === 0) onStep();
      held.current.hasRepeated = false;
    }}
  >
    ${text}
  </button>`;
}

/**
 * A choice that shows what the setting holds, whatever the browser has moved it to.
 *
 * @param {{value: number, label: string, class: string, names: string[], onChoose: (value: number) => void}} props
 */
function Choice({ value, label, class: className, names, onChoose }) {
  const select = useRef(/** @type {HTMLSelectElement | null} */ (null));
  useLayoutEffect(() => {
    if (select.current !== null) select.current.value = String(value);
  });
  return html`<select
    ref=${select}
    class=${className}
    aria-label=${label}
    onChange=${(/** @type {{currentTarget: HTMLSelectElement}} */ { currentTarget }) =>
      onChoose(Number(currentTarget.value))}
  >
    ${names.map((name, index) => html`<option key=${index} value=${index}>${name}</option>`)}
  </select>`;
}

/**
 * @param {Translate} t
 * @param {Band} band
 * @param {number} index
 */
function optionName(t, band, index) {
  const values = { number: index + 1, type: typeName(t, band), frequency: band.freq_hz, gain: band.gain_db };
  if (!isBandUsed(band)) return t("curve.optionUnused", values);
  return t(hasGain(band) ? "equalizer.bandName" : "curve.optionWithoutGain", values);
}

/**
 * The chosen band: which one, its type, and its values, each with a field for any value and buttons for steps.
 *
 * "Add band" takes the chosen band while it is not in use, else the first free one, places its dot where there is room, and
 * puts the focus on it. That changes no sound: the next edit does. A further press takes the next free band.
 *
 * @param {{t: Translate, equalizer: Equalizer}} props
 */
export function BandFields({ t, equalizer }) {
  const dotToFocus = useRef(-1);
  const placed = useRef(-1);
  useLayoutEffect(() => {
    if (dotToFocus.current < 0) return;
    document.getElementById(dotId(dotToFocus.current))?.focus();
    dotToFocus.current = -1;
  });
  const setting = equalizer.setting();
  if (setting === undefined) return null;
  const chosen = equalizer.chosen();
  const number = chosen + 1;
  const band = setting.bands[chosen];
  const free =
    chosen === placed.current ? nextFree(setting.bands, chosen + 1) : bandToAdd(setting.bands, chosen);
  const isUsed = isBandUsed(band);
  const change = (/** @type {Partial<Band>} */ values, /** @type {string | undefined} */ merge = undefined) =>
    equalizer.change({ bands: { [chosen]: values } }, merge);
  const add = () => {
    if (free < 0) return;
    dotToFocus.current = free;
    placed.current = free;
    // A further press must move the dot, too.
    const taken = setting.bands.filter(
      (one, index) => isBandUsed(one) || (index === chosen && index !== free),
    );
    const place = freeFrequency(taken.map((one) => one.freq_hz));
    equalizer.choose(free);
    equalizer.change({ bands: { [free]: { type: 0, freq_hz: place, gain_db: 0, q: addedQ } } });
  };
  return html`<div class="band-fields">
    <div class="row">
      <${Choice}
        class="which"
        label=${t("curve.which")}
        value=${chosen}
        names=${setting.bands.map((one, index) => optionName(t, one, index))}
        onChoose=${equalizer.choose}
      />
      <${Choice}
        class="type"
        label=${t("equalizer.bandType", { number })}
        value=${Math.trunc(band.type)}
        names=${filterTypes.map(({ name }) => t(`equalizer.type.${name}`))}
        onChoose=${(/** @type {number} */ type) => change({ type })}
      />
      <button
        type="button"
        class="button"
        aria-disabled=${!isUsed}
        aria-label=${t("curve.flattenBand", { number })}
        onClick=${() => isUsed && change(flatValues(band))}
      >
        ${t("curve.flatten")}
      </button>
      <button
        type="button"
        class="button add"
        aria-disabled=${free < 0}
        title=${free < 0 ? t("curve.allUsed") : undefined}
        onClick=${add}
      >
        ${t("curve.add")}
      </button>
    </div>
    <div class="steppers">
      ${fields.map(({ key, name, label, format, step }) => {
        const isMissing = key === "gain_db" && !hasGain(band);
        // The band as it is now: several presses may come before it is drawn.
        const press = (/** @type {number} */ direction) =>
          change(
            step(equalizer.setting()?.bands[chosen] ?? band, direction),
            `step of ${key} of band ${chosen}`,
          );
        return html`<div key=${key} class="stepper">
          <${NumberField}
            key=${chosen}
            label=${t(`equalizer.${label}`)}
            ariaLabel=${t(`equalizer.band${name}`, { number })}
            name=${key}
            value=${band[key]}
            ...${bandRanges[key]}
            format=${isMissing ? () => t("curve.withoutGain") : format}
            parse=${parseField}
            disabled=${isMissing}
            onChange=${(/** @type {number} */ value) => change({ [key]: value })}
          />
          <span class="pair">
            <${StepButton}
              name=${t(`curve.less${name}`, { number })}
              text="−"
              disabled=${isMissing}
              onStep=${() => press(-1)}
            />
            <${StepButton}
              name=${t(`curve.more${name}`, { number })}
              text="+"
              disabled=${isMissing}
              onStep=${() => press(1)}
            />
          </span>
        </div>`;
      })}
    </div>
  </div>`;
}
