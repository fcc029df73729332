// The equalizer: its own switch, the presets, the curve and the fields of one band.
import { dropHandlers } from "../app/transfer.js";
import { html, useEffect, useState } from "../view.js";
import { BandFields } from "./band_fields.js";
import { CompareBar, MatchingNote } from "./compare_bar.js";
import { Switch } from "./controls.js";
import { Curve, CurveHints } from "./curve.js";
import { DeviceOffer, PresetBar } from "./preset_bar.js";

/**
 * @typedef {import("../view.js").Translate} Translate
 * @typedef {import("../app/sound_actions.js").Sound} Sound
 * @typedef {import("../app/equalizer_actions.js").Equalizer} Equalizer
 */

/**
 * Offers a setting that an earlier page could not send.
 *
 * @param {{t: Translate, equalizer: Equalizer}} props
 */
function UnsentOffer({ t, equalizer }) {
  if (equalizer.unsent() === null) return null;
  return html`<div class="row note" data-unsent>
    <span>${t("equalizer.unsent")}</span>
    <button type="button" class="button" onClick=${() => equalizer.answerUnsent(true)}>
      ${t("equalizer.sendUnsent")}
    </button>
    <button type="button" class="button" onClick=${() => equalizer.answerUnsent(false)}>
      ${t("equalizer.dropUnsent")}
    </button>
  </div>`;
}

/**
 * What follows a drag. While a dot is held, it is drawn for each frame and the rest of the page less often.
 *
 * @param {{t: Translate, equalizer: Equalizer}} props
 */
function LiveEditor({ t, equalizer }) {
  const [, setDrawn] = useState(0);
  useEffect(() => {
    const { live } = equalizer;
    live.redraw = () => setDrawn((count) => count + 1);
    return () => {
      live.redraw = null;
    };
  }, []);
  return html`
    <${Curve} t=${t} equalizer=${equalizer} />
    <${BandFields} t=${t} equalizer=${equalizer} />
  `;
}

/** @param {{t: Translate, sound: Sound}} props */
export function EqualizerCard({ t, sound }) {
  const { equalizer } = sound;
  const setting = equalizer.setting();
  const drop = dropHandlers((given) => sound.ask({ kind: "import", given }));
  return html`<section class="card equalizer" aria-labelledby="equalizer" ...${drop}>
    <div class="row">
      <h2 id="equalizer">${t("equalizer.title")}</h2>
      <${Switch}
        class="small"
        label=${t("equalizer.switch")}
        words=${[t("equalizer.off"), t("equalizer.on")]}
        checked=${setting !== undefined && !setting.bypass}
        disabled=${setting === undefined}
        onChange=${(/** @type {boolean} */ on) => equalizer.change({ bypass: !on })}
      />
      <${PresetBar} t=${t} sound=${sound} />
      <button
        type="button"
        class="button"
        disabled=${setting === undefined}
        onClick=${() => sound.ask({ kind: "import" })}
      >
        ${t("import.open")}
      </button>
      <${CompareBar} t=${t} equalizer=${equalizer} />
    </div>
    ${
      setting !== undefined &&
      html`
        <${UnsentOffer} t=${t} equalizer=${equalizer} />
        <${DeviceOffer} t=${t} sound=${sound} />
        <${MatchingNote} t=${t} equalizer=${equalizer} />
        <${LiveEditor} t=${t} equalizer=${equalizer} />
        <${CurveHints} t=${t} equalizer=${equalizer} />
      `
    }
  </section>`;
}
