// The response curve with the dots of its bands.
import { axisRange, clipExcess, curveFrequencies, pathOf, settingCurve, xOf, yOf } from "../model/curve.js";
import { isBandUsed } from "../model/equalizer.js";
import { filterTypeOf, isDrawable } from "../model/filters.js";
import { hasGain } from "../model/gestures.js";
import { html, useEffect, useLayoutEffect, useRef, useState } from "../view.js";
import { createGestures, dotId } from "./curve_gestures.js";
import { Icon } from "./icon.js";

/**
 * @typedef {import("../view.js").Translate} Translate
 * @typedef {import("../app/equalizer_actions.js").Equalizer} Equalizer
 * @typedef {import("../model/equalizer.js").Setting} Setting
 * @typedef {import("../model/equalizer.js").Band} Band
 * @typedef {import("../model/curve.js").Curve} CurveValues
 * @typedef {import("../model/curve.js").Size} Size
 * @typedef {import("../model/gestures.js").Dot} Dot
 */

/** The drawing, in CSS pixels. The plot is what its margins leave. */
const drawingHeight = 240;
const margin = { left: 44, top: 14, right: 14, bottom: 30 };
const plotHeight = drawingHeight - margin.top - margin.bottom;
/** Curves and grid go on for this much beyond the outer lines. */
const bleed = 8;
const dotRadius = 11;
const reachRadius = 20;
const ringRadius = 16;

const frequencies = curveFrequencies();
const gridFrequencies = [50, 100, 200, 500, 1000, 2000, 5000, 10000];
const sparseFrequencies = [100, 1000, 10000];
/** Below this width of the drawing there is no room for all labels. */
const denseWidth = 480;
const leastTrim = -60;

// ---- words ----

/**
 * @param {Translate} t
 * @param {Band} band
 */
export const typeName = (t, band) => t(`equalizer.type.${filterTypeOf(band).name}`);

/** @param {number} q */
const shortQ = (q) => String(Number(q.toFixed(2)));

/** @param {Band} band */
function spokenGain({ gain_db: gain }) {
  const key = gain > 0 ? "curve.plus" : gain < 0 ? "curve.minus" : "curve.zero";
  return { key, values: { gain: String(Number(Math.abs(gain).toFixed(2))) } };
}

/**
 * What a screen reader says of a band.
 *
 * @param {Translate} t
 * @param {Band} band
 * @param {number} index
 * @param {number} rate
 * @returns {{name: string, value: string}}
 */
function spoken(t, band, index, rate) {
  const type = typeName(t, band);
  const values = {
    number: index + 1,
    type: type.charAt(0).toLowerCase() + type.slice(1),
    frequency: band.freq_hz,
    gain: spokenGain(band),
    q: shortQ(band.q),
  };
  const kind = hasGain(band) ? "" : "WithoutGain";
  const name = t(`curve.name${kind}`, values);
  const value = t(`curve.value${kind}`, values);
  return { name: isDrawable(band, rate) ? name : t("curve.nameTooHigh", { name, limit: rate / 2 }), value };
}

// ---- the drawing ----

/**
 * @param {{width: number, range: number, labelled: number[]}} props the plot's width
 */
function Grid({ width, range, labelled }) {
  const step = range === 30 ? 10 : 6;
  const count = Math.floor(range / step);
  const levels = Array.from({ length: 2 * count + 1 }, (_, index) => (index - count) * step);
  return html`<g class="grid" aria-hidden="true">
    ${levels.map((level) => {
      const y = yOf(level, range, plotHeight);
      return html`<g key=${level}>
        <line x1="0" x2=${width} y1=${y} y2=${y} />
        <text x="-16" y=${y} dy="0.35em" text-anchor="end">
          ${level > 0 ? "+" : level < 0 ? "−" : ""}${Math.abs(level)}
        </text>
      </g>`;
    })}
    ${gridFrequencies.map((frequency) => {
      const x = xOf(frequency, width);
      return html`<g key=${`${frequency} Hz`}>
        <line x1=${x} x2=${x} y1=${-bleed} y2=${plotHeight + bleed} />
        ${
          labelled.includes(frequency) &&
          html`<text x=${x} y=${plotHeight + bleed + 15} text-anchor="middle">
            ${frequency < 1000 ? frequency : `${frequency / 1000}k`}
          </text>`
        }
      </g>`;
    })}
  </g>`;
}

/**
 * @param {Float64Array} sum
 * @param {string} path of the sum
 * @param {Size} size
 * @returns {string} the path of the area between the sum and 0 dB
 */
function areaOf(sum, path, { width, height }) {
  if (path === "") return "";
  const last = sum.findLastIndex((value) => !Number.isNaN(value));
  const middle = height / 2;
  return `${path}L${xOf(frequencies[last], width)} ${middle}L0 ${middle}Z`;
}

/**
 * @param {{curve: CurveValues, ghost: CurveValues | null, chosen: number, size: Size}} props
 */
function Traces({ curve, ghost, chosen, size }) {
  const { width, height } = size;
  const sum = pathOf(frequencies, curve.sum, size);
  return html`<svg
    class="traces"
    y=${-bleed}
    width=${width}
    height=${height + 2 * bleed}
    aria-hidden="true"
    focusable="false"
  >
    <g transform=${`translate(0 ${bleed})`}>
      <path class="area" d=${areaOf(curve.sum, sum, size)} />
      <line class="zero" x1="0" x2=${width} y1=${height / 2} y2=${height / 2} />
      ${curve.bands.map(
        (values, index) =>
          values !== null &&
          html`<path
            key=${index}
            class=${index === chosen ? "band chosen" : "band"}
            d=${pathOf(frequencies, values, size)}
          />`,
      )}
      ${ghost !== null && html`<path key="ghost" class="ghost" d=${pathOf(frequencies, ghost.sum, size)} />`}
      <path class="sum" d=${sum} />
    </g>
  </svg>`;
}

/**
 * @param {{dots: Dot[], setting: Setting, chosen: number, rate: number}} props
 */
function Faces({ dots, setting, chosen, rate }) {
  // The chosen dot is in front of the others.
  const ordered = [...dots].sort(
    (one, other) => Number(one.index === chosen) - Number(other.index === chosen),
  );
  return html`<g class="faces" aria-hidden="true">
    ${ordered.map(({ index, x, y }) => {
      const band = setting.bands[index];
      const isTooHigh = !isDrawable(band, rate);
      const state = [
        "face",
        index === chosen ? "chosen" : "",
        isBandUsed(band) ? "" : "unused",
        isTooHigh ? "too-high" : "",
      ];
      return html`<g key=${index} class=${state.join(" ")} transform=${`translate(${x} ${y})`}>
        <circle r=${dotRadius} />
        <text dy="0.36em" text-anchor="middle">${index + 1}</text>
        ${
          isTooHigh &&
          html`<g class="mark" transform="translate(9 -9)">
            <circle r="7" />
            <path d="M-3 -3L3 3M-3 3L3 -3" />
          </g>`
        }
      </g>`;
    })}
  </g>`;
}

/**
 * @param {{t: Translate, band: Band, dot: Dot, width: number}} props the plot's width
 */
function Readout({ t, band, dot, width }) {
  const key = hasGain(band) ? "curve.readout" : "curve.readoutWithoutGain";
  const text = t(key, { frequency: band.freq_hz, gain: band.gain_db, q: shortQ(band.q) });
  const isBelow = dot.y < 44;
  // Centred on the dot, but for the edges of the drawing.
  const side = dot.x < 100 ? "start" : dot.x > width - 100 ? "end" : "middle";
  const place = `left: ${margin.left + dot.x}px; top: ${margin.top + dot.y}px`;
  return html`<div class="readout ${side} ${isBelow ? "below" : ""}" style=${place} aria-hidden="true">
    ${text}
  </div>`;
}

/**
 * @param {(width: number) => void} take
 * @param {{current: Element | null}} element
 */
function useWidth(take, element) {
  useLayoutEffect(() => {
    const box = element.current;
    if (box === null) return undefined;
    const measure = () => {
      const { width } = box.getBoundingClientRect();
      // A place that is not shown has no width. The drawing stays, with a drag that may be under way.
      if (width > 0) take(Math.floor(width));
    };
    const observer = new ResizeObserver(measure);
    observer.observe(box);
    measure();
    return () => observer.disconnect();
  }, []);
}

/** @param {{t: Translate, equalizer: Equalizer, setting: Setting}} props */
function Plot({ t, equalizer, setting }) {
  const box = useRef(/** @type {HTMLElement | null} */ (null));
  const drawing = useRef(/** @type {SVGSVGElement | null} */ (null));
  const [fullWidth, setFullWidth] = useState(0);
  const [, setDrawn] = useState(0);
  const [gestures] = useState(() => createGestures(() => setDrawn((count) => count + 1)));
  const heldRange = useRef(0);
  useWidth(setFullWidth, box);
  useEffect(() => (drawing.current === null ? undefined : gestures.attach(drawing.current)), []);

  const rate = equalizer.rate();
  const chosen = equalizer.chosen();
  const drag = gestures.drag();
  const curve = settingCurve(setting, rate, frequencies);
  const compared = equalizer.ghost();
  const ghost = compared === undefined ? null : settingCurve(compared, rate, frequencies);
  const width = Math.max(1, fullWidth - margin.left - margin.right);
  // Within a drag the range only grows: a plot that shrinks would move the dot away from the pointer.
  const range = Math.max(axisRange(setting, curve), drag === null ? 0 : heldRange.current);
  heldRange.current = range;
  const size = { width, height: plotHeight, range };
  const dots = setting.bands.flatMap((band, index) => {
    if (!isBandUsed(band) && index !== chosen) return [];
    const level = hasGain(band) ? Math.min(range, Math.max(-range, band.gain_db)) : 0;
    return [{ index, x: xOf(band.freq_hz, width), y: yOf(level, range, plotHeight) }];
  });
  gestures.show({ equalizer, setting, dots, scale: size, margin });
  const used = setting.bands.filter(isBandUsed).length;
  const described = dots.find(({ index }) => index === gestures.readout());
  return html`<figure
    ref=${box}
    class="curve ${setting.bypass ? "off" : ""} ${drag === null ? "" : "dragging"}"
  >
    <svg
      ref=${drawing}
      class="drawing"
      width=${fullWidth}
      height=${drawingHeight}
      role="group"
      aria-label=${t("curve.label", { used, all: setting.bands.length })}
      onPointerDown=${gestures.press}
      onPointerMove=${gestures.move}
      onPointerUp=${gestures.release}
      onPointerCancel=${gestures.lose}
      onDblClick=${gestures.doubleClick}
    >
      ${
        fullWidth > 0 &&
        html`<g transform=${`translate(${margin.left} ${margin.top})`}>
          <${Grid}
            width=${width}
            range=${range}
            labelled=${fullWidth < denseWidth ? sparseFrequencies : gridFrequencies}
          />
          ${
            setting.bypass &&
            html`<text class="state" x=${width - 8} y="16" text-anchor="end" aria-hidden="true">
              ${t("curve.off")}
            </text>`
          }
          <${Traces} curve=${curve} ghost=${ghost} chosen=${chosen} size=${size} />
          <${Faces} dots=${dots} setting=${setting} chosen=${chosen} rate=${rate} />
          ${dots.map(({ index, x, y }) => {
            // A screen reader says nothing while a dot is dragged.
            const band = drag?.index === index ? drag.first : setting.bands[index];
            const isGain = hasGain(band);
            const { name, value } = spoken(t, band, index, rate);
            return html`<g
              key=${index}
              id=${dotId(index)}
              class="dot"
              transform=${`translate(${x} ${y})`}
              role="slider"
              tabindex="0"
              aria-label=${name}
              aria-valuemin=${isGain ? -30 : 20}
              aria-valuemax=${isGain ? 30 : 20000}
              aria-valuenow=${isGain ? band.gain_db : band.freq_hz}
              aria-valuetext=${value}
              onFocus=${() => equalizer.choose(index)}
              onKeyDown=${(/** @type {KeyboardEvent} */ event) => gestures.key(index, event)}
            >
              <circle class="reach" r=${reachRadius} />
              <circle class="ring" r=${ringRadius} />
            </g>`;
          })}
        </g>`
      }
    </svg>
    ${
      described !== undefined &&
      html`<${Readout} t=${t} band=${setting.bands[described.index]} dot=${described} width=${width} />`
    }
  </figure>`;
}

/**
 * The response curve, with a dot for each band in use and for the chosen one. The dots are moved by pointer, wheel and
 * keys; see gestures.js.
 *
 * @param {{t: Translate, equalizer: Equalizer}} props
 */
export function Curve({ t, equalizer }) {
  const setting = equalizer.setting();
  return setting === undefined ? null : html`<${Plot} t=${t} equalizer=${equalizer} setting=${setting} />`;
}

// ---- hints ----

/**
 * What the curve cannot show: bands beyond the sound, levels beyond full scale, and the output trim. It is below the
 * fields, where it moves nothing that is under a pointer.
 *
 * @param {{t: Translate, equalizer: Equalizer}} props
 */
export function CurveHints({ t, equalizer }) {
  const setting = equalizer.setting();
  if (setting === undefined) return null;
  const rate = equalizer.rate();
  const trim = equalizer.trim();
  const isTooHigh = setting.bands.some((band) => isBandUsed(band) && !isDrawable(band, rate));
  const excess = trim === undefined ? 0 : clipExcess(setting, trim, rate);
  return html`
    ${isTooHigh && html`<p class="hint" data-too-high><${Icon} name="info" /><span>${t("curve.tooHigh", { limit: rate / 2 })}</span></p>`}
    ${trim !== undefined && excess > 0 && html`<${ClipHint} t=${t} equalizer=${equalizer} excess=${excess} trim=${trim} />`}
    <${TrimNote} t=${t} equalizer=${equalizer} />
  `;
}

/** @param {{t: Translate, equalizer: Equalizer, excess: number, trim: number}} props */
function ClipHint({ t, equalizer, excess, trim }) {
  // Rounded up to the steps of the trim, so that one click is enough.
  const step = Math.ceil(excess * 10 - 1e-6) / 10;
  const lowered = Math.max(leastTrim, Math.round((trim - step) * 10) / 10);
  return html`<div class="row" data-clip>
    <span class="hint"><${Icon} name="bad" /><span>${t("curve.clip", { excess: step })}</span></span>
    ${
      lowered < trim &&
      html`<button type="button" class="button" onClick=${() => equalizer.setTrim(lowered)}>
        ${t("curve.lower", { amount: trim - lowered })}
      </button>`
    }
  </div>`;
}

/**
 * The output trim goes on after the setting that it was made for is gone, so it is named wherever it is not 0.
 *
 * @param {{t: Translate, equalizer: Equalizer}} props
 */
function TrimNote({ t, equalizer }) {
  const trim = equalizer.ownTrim() ?? 0;
  if (trim === 0) return null;
  const clear = () => {
    // The button goes with the note. The focus stays in the card.
    document.getElementById(dotId(equalizer.chosen()))?.focus({ preventScroll: true });
    equalizer.setTrim(0);
  };
  return html`<div class="row" data-trim>
    <span class="muted">${t("curve.trim", { trim })}</span>
    <button type="button" class="button" onClick=${clear}>${t("curve.clearTrim")}</button>
  </div>`;
}
