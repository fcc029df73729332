// What the pointer, the wheel and the keys do to a band of the equalizer: positions and key names in, values out.
import { bandRanges } from "./equalizer.js";
import { filterTypeOf, filterTypes } from "./filters.js";

/**
 * @typedef {import("./equalizer.js").Band} Band
 *
 * @typedef {object} Scale the plot, in CSS pixels
 * @property {number} width from 20 Hz to 20 kHz
 * @property {number} height from -range to +range
 * @property {number} range decibels between the middle and either edge
 *
 * @typedef {object} Pointer
 * @property {number} x
 * @property {number} y
 * @property {boolean} shift whether Shift is held: up and down then changes Q
 *
 * @typedef {object} Drag
 * @property {number} index the band
 * @property {Band} first the band when the pointer was pressed
 * @property {Pointer} pressed
 * @property {Pointer} last where the band was moved last
 * @property {Band} base the band where this part of the drag begins: a press, a change of Shift or of the plot
 * @property {Pointer} origin the pointer where this part begins
 * @property {Scale} scale
 * @property {Band} band the band as the pointer has moved it
 * @property {Partial<Band>} values those that the drag has changed, also where they are back at their first value
 * @property {boolean} isMoving whether the pointer has left the place where it was pressed
 *
 * @typedef {object} WheelTurn
 * @property {number} index
 * @property {number} q the exact value, so that the small steps of a touchpad add up
 *
 * @typedef {{index: number, x: number, y: number}} Dot
 *
 * @typedef {object} Tap
 * @property {number} index
 * @property {number} time milliseconds
 * @property {number} x
 * @property {number} y
 */

/** The pointer moves this many pixels before a press becomes a drag. */
export const dragThreshold = 3;

/** A dot takes the pointer within this many pixels. */
export const reach = 20;

const octaves = Math.log2(bandRanges.freq_hz.maximum / bandRanges.freq_hz.minimum);
const pixelsPerQOctave = 40;
const qFactor = 1.1;
const wheelNotch = 100;
const pixelsPerLine = 33;
const pixelsPerPage = 400;
const mostNotches = 5;
const doubleTapMs = 400;
const doubleTapReach = 24;

/**
 * @param {number} value
 * @param {{minimum: number, maximum: number}} range
 */
const clamp = (value, { minimum, maximum }) => Math.min(maximum, Math.max(minimum, value));

/**
 * @param {number} value Hz
 * @returns {number} with three digits, within the range of a band
 */
export const roundFrequency = (value) =>
  clamp(Number(clamp(value, bandRanges.freq_hz).toPrecision(3)), bandRanges.freq_hz);

/**
 * Where a new band has the most room: the middle, on the logarithmic axis, of the widest gap between the ends of the
 * range and the frequencies that are taken. Of equal gaps, the lowest.
 *
 * @param {number[]} taken Hz
 * @returns {number} Hz, with three digits
 */
export function freeFrequency(taken) {
  const { minimum, maximum } = bandRanges.freq_hz;
  const edges = [minimum, ...taken.map(roundFrequency), maximum].sort((one, other) => one - other);
  let widest = 1;
  for (let gap = 2; gap < edges.length; ++gap) {
    // Equal gaps differ by rounding.
    const isWider = edges[gap] / edges[gap - 1] > (edges[widest] / edges[widest - 1]) * 1.0001;
    if (isWider) widest = gap;
  }
  return roundFrequency(Math.sqrt(edges[widest] * edges[widest - 1]));
}

/**
 * @param {number} value dB
 * @returns {number} in tenths, within the range of a band
 */
export const roundGain = (value) => clamp(Math.round(value * 10) / 10 + 0, bandRanges.gain_db);

/**
 * @param {number} value
 * @returns {number} in hundredths, within the range of a band
 */
export const roundQ = (value) => clamp(Math.round(value * 100) / 100, bandRanges.q);

/**
 * @param {number} q
 * @param {number} factor
 * @returns {number} at least a hundredth away from `q`, unless the range ends there
 */
function scaledQ(q, factor) {
  const wanted = roundQ(q * factor);
  return wanted === q ? roundQ(q + Math.sign(factor - 1) / 100) : wanted;
}

/**
 * Whether the type of a band has a gain.
 *
 * @param {Band} band
 */
export const hasGain = (band) => filterTypeOf(band).usesGain;

/**
 * The values that take a band out of use. A type that works at any gain becomes a peaking one.
 *
 * @param {Band} band
 * @returns {Partial<Band>}
 */
export const flatValues = (band) => (hasGain(band) ? { gain_db: 0 } : { type: 0, gain_db: 0 });

/**
 * The values of `after` that differ from those of `before`.
 *
 * @param {Band} before
 * @param {Band} after
 * @returns {Partial<Band> | null} null where nothing differs
 */
export function changedValues(before, after) {
  const keys = /** @type {const} */ (["type", "freq_hz", "gain_db", "q"]);
  const changed = keys.filter((key) => before[key] !== after[key]);
  return changed.length === 0 ? null : Object.fromEntries(changed.map((key) => [key, after[key]]));
}

// ---- dots ----

/**
 * The dot that takes a press: the nearest one. The chosen dot wins where two are equally near.
 *
 * @param {Dot[]} dots
 * @param {{x: number, y: number}} point
 * @param {number} chosen
 * @returns {number} the band; -1 where no dot is within reach
 */
export function nearestDot(dots, { x, y }, chosen) {
  let best = -1;
  let bestDistance = reach;
  for (const dot of dots) {
    const distance = Math.hypot(dot.x - x, dot.y - y);
    const isNearer = distance < bestDistance || (distance === bestDistance && dot.index === chosen);
    if (distance > reach || (best !== -1 && !isNearer)) continue;
    best = dot.index;
    bestDistance = distance;
  }
  return best;
}

/**
 * Whether a tap is the second one of a double tap.
 *
 * @param {Tap | null} before
 * @param {Tap} tap
 */
export const isSecondTap = (before, tap) =>
  before !== null &&
  before.index === tap.index &&
  tap.time - before.time <= doubleTapMs &&
  Math.hypot(tap.x - before.x, tap.y - before.y) <= doubleTapReach;

// ---- dragging ----

/**
 * @param {number} index
 * @param {Band} band
 * @param {Pointer} pointer
 * @param {Scale} scale
 * @returns {Drag}
 */
export const beginDrag = (index, band, pointer, scale) => ({
  index,
  first: band,
  pressed: pointer,
  last: pointer,
  base: band,
  origin: pointer,
  scale,
  band,
  values: {},
  isMoving: false,
});

/**
 * Moves the band by as much as the pointer has moved, so that nothing jumps: not at the press, not where Shift is
 * pressed or released, and not where the plot grows. A value keeps its digits until the pointer moves along its axis.
 *
 * @param {Drag} drag
 * @param {Pointer} pointer
 * @param {Scale} scale the plot as it is drawn at this moment
 * @returns {Drag}
 */
export function moveDrag(drag, pointer, scale) {
  const isMoving =
    drag.isMoving || Math.hypot(pointer.x - drag.pressed.x, pointer.y - drag.pressed.y) >= dragThreshold;
  if (!isMoving) return drag;
  const isSame = ["width", "height", "range"].every((key) => {
    const name = /** @type {keyof Scale} */ (key);
    return scale[name] === drag.scale[name];
  });
  const goesOn = pointer.shift === drag.origin.shift && isSame;
  const base = goesOn ? drag.base : drag.band;
  const origin = goesOn ? drag.origin : { ...drag.last, shift: pointer.shift };
  const [right, up] = [pointer.x - origin.x, origin.y - pointer.y];
  const band = pointer.shift ? turned(base, up) : moved(base, right, up, scale);
  const values = { ...pick(band, drag.values), ...changedValues(drag.first, band) };
  return { ...drag, last: pointer, base, origin, scale, band, values, isMoving };
}

/**
 * @param {Band} band
 * @param {Partial<Band>} keys
 * @returns {Partial<Band>} the band's values of these keys
 */
const pick = (band, keys) => Object.fromEntries(Object.entries(band).filter(([key]) => key in keys));

/**
 * @param {Band} base
 * @param {number} up pixels
 * @returns {Band}
 */
const turned = (base, up) =>
  up === 0 ? base : { ...base, q: roundQ(base.q * 2 ** (up / pixelsPerQOctave)) };

/**
 * @param {Band} base
 * @param {number} right pixels
 * @param {number} up pixels
 * @param {Scale} scale
 * @returns {Band}
 */
function moved(base, right, up, { width, height, range }) {
  const band = { ...base };
  if (right !== 0) band.freq_hz = roundFrequency(base.freq_hz * 2 ** ((right / width) * octaves));
  if (up !== 0 && hasGain(base)) band.gain_db = roundGain(base.gain_db + (up / height) * 2 * range);
  return band;
}

// ---- the wheel ----

/**
 * Turns the wheel over a dot: Q changes by 10 % per notch, up for a narrower band.
 *
 * @param {WheelTurn | null} turn the turn so far
 * @param {number} index
 * @param {Band} band
 * @param {{deltaX: number, deltaY: number, deltaMode: number}} wheel as the browser reports it
 * @returns {{turn: WheelTurn, q: number}}
 */
export function turnWheel(turn, index, band, { deltaX, deltaY, deltaMode }) {
  const unit = [1, pixelsPerLine, pixelsPerPage][deltaMode] ?? 1;
  // Some browsers turn a wheel with Shift sideways.
  const notches = clamp(((deltaY || deltaX) * unit) / wheelNotch, {
    minimum: -mostNotches,
    maximum: mostNotches,
  });
  const goesOn = turn !== null && turn.index === index && roundQ(turn.q) === roundQ(band.q);
  const begin = goesOn ? turn.q : band.q;
  const exact = clamp(begin * qFactor ** -notches, bandRanges.q);
  return { turn: { index, q: exact }, q: roundQ(exact) === roundQ(begin) ? band.q : roundQ(exact) };
}

// ---- keys and buttons ----

const frequencyStep = 1 / 24;
const coarseFrequencyStep = 1 / 3;

/** @type {Record<string, (band: Band, isShifted: boolean) => Partial<Band>>} */
const keyActions = {
  ArrowLeft: (band, isShifted) => stepFrequency(band, isShifted ? -coarseFrequencyStep : -frequencyStep),
  ArrowRight: (band, isShifted) => stepFrequency(band, isShifted ? coarseFrequencyStep : frequencyStep),
  ArrowDown: (band, isShifted) => stepGain(band, isShifted ? -1 : -0.1),
  ArrowUp: (band, isShifted) => stepGain(band, isShifted ? 1 : 0.1),
  PageDown: (band) => stepGain(band, -3),
  PageUp: (band) => stepGain(band, 3),
  "-": (band) => stepQ(band, -1),
  _: (band) => stepQ(band, -1),
  "+": (band) => stepQ(band, 1),
  "=": (band) => stepQ(band, 1),
  Delete: flatValues,
  Backspace: flatValues,
  t: (band, isShifted) => ({
    type: (Math.trunc(band.type) + (isShifted ? filterTypes.length - 1 : 1)) % filterTypes.length,
  }),
};

/**
 * What a key does to a band whose dot has the focus: Left and Right move the frequency by 1/24 octave, with Shift by a
 * third; Up and Down the gain by 0.1 dB, with Shift by 1 dB; the Page keys by 3 dB; + and - change Q by 10 %; Delete and
 * Backspace take the band out of use; T takes the next type, with Shift the one before.
 *
 * @param {Band} band
 * @param {{key: string, shiftKey?: boolean, ctrlKey?: boolean, altKey?: boolean, metaKey?: boolean}} pressed
 * @returns {Partial<Band> | null} the values that it sets, none where a range ends; null: the key is the browser's
 */
export function keyValues(band, { key, shiftKey = false, ctrlKey = false, altKey = false, metaKey = false }) {
  if (ctrlKey || altKey || metaKey) return null;
  const name = key === "T" ? "t" : key;
  if (!Object.hasOwn(keyActions, name)) return null;
  return changedValues(band, { ...band, ...keyActions[name](band, shiftKey) }) ?? {};
}

/**
 * @param {Band} band
 * @param {number} step octaves
 * @returns {Partial<Band>}
 */
export const stepFrequency = (band, step) => ({ freq_hz: roundFrequency(band.freq_hz * 2 ** step) });

/**
 * @param {Band} band
 * @param {number} step dB
 * @returns {Partial<Band>} empty for a type without gain
 */
export const stepGain = (band, step) => (hasGain(band) ? { gain_db: roundGain(band.gain_db + step) } : {});

/**
 * @param {Band} band
 * @param {number} direction 1 for a narrower band, -1 for a wider one
 * @returns {Partial<Band>}
 */
export const stepQ = (band, direction) => ({ q: scaledQ(band.q, qFactor ** direction) });
