// The presets of the equalizer: the list, Save, and what else can be done behind "More".
import { shownName, starters } from "../model/presets.js";
import { html, useEffect, useLayoutEffect, useRef, useState } from "../view.js";

/**
 * @typedef {import("../view.js").Translate} Translate
 * @typedef {import("../app/sound_actions.js").Sound} Sound
 * @typedef {import("../app/preset_actions.js").Presets} Presets
 * @typedef {import("../model/types.js").PresetRef} PresetRef
 */

// A starter and a preset of the person may have the same name.
const starterValue = (/** @type {string} */ name) => `starter ${name}`;
const ownValue = (/** @type {string} */ name) => `own ${name}`;

/**
 * @param {Presets} presets
 * @param {string} value
 */
function choose(presets, value) {
  const at = value.indexOf(" ");
  const name = value.slice(at + 1);
  if (value.slice(0, at) === "starter") presets.useStarter(name);
  else presets.use(name);
}

/** @param {{t: Translate, sound: Sound}} props */
function PresetSelect({ t, sound }) {
  const { presets, equalizer } = sound;
  const { names, isListed } = presets.view;
  const chosen = equalizer.preset();
  const isChanged = equalizer.isChanged();
  const value = chosen === null ? "" : (chosen.starter ? starterValue : ownValue)(chosen.name);
  const isMissing = chosen !== null && !chosen.starter && !names.includes(chosen.name);
  const own = isMissing ? [chosen.name, ...names] : names;
  const select = useRef(/** @type {HTMLSelectElement | null} */ (null));
  // A choice that cannot be loaded goes back to the preset that is in use.
  useLayoutEffect(() => {
    if (select.current !== null) select.current.value = value;
  });
  const option = (/** @type {string} */ itsValue, /** @type {string} */ name) => {
    const isMarked = itsValue === value && isChanged;
    const label = isMissing && isListed && itsValue === value ? t("preset.missing", { name }) : name;
    return html`<option key=${itsValue} value=${itsValue}>
      ${isMarked ? t("preset.changed", { name: label }) : label}
    </option>`;
  };
  return html`<select
    ref=${select}
    id="preset"
    class="preset"
    aria-label=${t("preset.label")}
    disabled=${equalizer.setting() === undefined}
    onChange=${(/** @type {{currentTarget: HTMLSelectElement}} */ { currentTarget }) =>
      choose(presets, currentTarget.value)}
  >
    <option value="" disabled hidden>${t("preset.choose")}</option>
    <optgroup label=${t("preset.starters")}>
      ${starters.map(({ name }) => option(starterValue(name), t(`starter.${name}`)))}
    </optgroup>
    ${
      own.length > 0 &&
      html`<optgroup label=${t("preset.own")}>
        ${own.map((name) => option(ownValue(name), shownName(name)))}
      </optgroup>`
    }
  </select>`;
}

/**
 * Buttons behind a button. It closes by Escape, by a click elsewhere, and when the focus goes elsewhere.
 *
 * @param {{t: Translate, items: {key: string, values?: Record<string, unknown>, press: () => void, isOff: boolean}[], disabled: boolean}} props
 */
function More({ t, items, disabled }) {
  const [isOpen, setOpen] = useState(false);
  const place = useRef(/** @type {HTMLDivElement | null} */ (null));
  const button = useRef(/** @type {HTMLButtonElement | null} */ (null));
  const isWithin = (/** @type {EventTarget | null} */ target) =>
    target instanceof Node && place.current !== null && place.current.contains(target);
  const close = () => {
    setOpen(false);
    button.current?.focus();
  };
  useEffect(() => {
    if (!isOpen) return undefined;
    const closeOutside = (/** @type {MouseEvent} */ { target }) => {
      if (isWithin(target)) return;
      setOpen(false);
      if (document.activeElement === null || document.activeElement === document.body)
        button.current?.focus();
    };
    addEventListener("click", closeOutside);
    return () => removeEventListener("click", closeOutside);
  }, [isOpen]);
  return html`<div
    ref=${place}
    class="more"
    onKeyDown=${(/** @type {KeyboardEvent} */ event) => {
      if (event.key !== "Escape" || !isOpen) return;
      event.stopPropagation();
      close();
    }}
    onFocusOut=${(/** @type {FocusEvent} */ { relatedTarget }) => {
      if (relatedTarget !== null && !isWithin(relatedTarget)) setOpen(false);
    }}
  >
    <button
      ref=${button}
      type="button"
      class="button"
      aria-expanded=${isOpen}
      aria-controls="preset-more"
      aria-label=${t("preset.moreLabel")}
      disabled=${disabled}
      onClick=${() => setOpen(!isOpen)}
    >
      ${t("preset.more")}
    </button>
    <div id="preset-more" class="more-items" hidden=${!isOpen}>
      ${items.map(
        ({ key, values, press, isOff }) =>
          html`<button
            key=${key}
            type="button"
            class="button"
            disabled=${isOff}
            onClick=${() => {
              close();
              press();
            }}
          >
            ${t(key, values)}
          </button>`,
      )}
    </div>
  </div>`;
}

/** @param {{t: Translate, sound: Sound}} props */
export function PresetBar({ t, sound }) {
  const { presets, equalizer, devicePresets } = sound;
  const chosen = equalizer.preset();
  const tied = devicePresets.tied();
  const isOwn = chosen !== null && !chosen.starter;
  const isUnknown = equalizer.setting() === undefined;
  const items = [
    { key: "preset.saveAs", press: presets.saveAs, isOff: false },
    { key: "preset.rename", press: presets.rename, isOff: !isOwn },
    { key: "preset.revert", press: presets.revert, isOff: chosen === null },
    { key: "preset.delete", press: presets.delete, isOff: !isOwn },
    { key: "preset.reset", press: equalizer.reset, isOff: false },
    {
      key: tied?.isTied ? "tie.remove" : "tie.add",
      values: { device: tied?.device ?? t("tie.thisDevice") },
      press: devicePresets.toggle,
      isOff: tied === null,
    },
    {
      key: devicePresets.offers() ? "tie.stopOffering" : "tie.startOffering",
      press: devicePresets.toggleOffers,
      isOff: false,
    },
    { key: "export.open", press: () => sound.ask({ kind: "export" }), isOff: false },
  ];
  return html`<div class="preset-bar">
    <${PresetSelect} t=${t} sound=${sound} />
    <button type="button" class="button" disabled=${isUnknown} onClick=${presets.save}>
      ${t("preset.save")}
    </button>
    <${More} t=${t} items=${items} disabled=${isUnknown} />
  </div>`;
}

/**
 * Offers the preset that is tied to the device that has become the chosen one.
 *
 * @param {{t: Translate, sound: Sound}} props
 */
export function DeviceOffer({ t, sound: { devicePresets } }) {
  const offer = devicePresets.offer();
  if (offer === null) return null;
  return html`<div class="row note" data-offer>
    <span>${t("tie.offer", offer)}</span>
    <button type="button" class="button" onClick=${() => devicePresets.answer(true)}>
      ${t("tie.use", offer)}
    </button>
    <button type="button" class="button" onClick=${() => devicePresets.answer(false)}>
      ${t("tie.notNow")}
    </button>
  </div>`;
}
