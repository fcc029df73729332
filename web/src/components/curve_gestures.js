// The pointer, the wheel and the keys on the dots of the curve: from the browser's events to edits of the equalizer.
import { dbOf, frequencyOf } from "../model/curve.js";
import { bandToAdd } from "../model/equalizer.js";
import {
  beginDrag,
  flatValues,
  isSecondTap,
  keyValues,
  moveDrag,
  nearestDot,
  roundFrequency,
  roundGain,
  turnWheel,
} from "../model/gestures.js";

/**
 * @typedef {import("../app/equalizer_actions.js").Equalizer} Equalizer
 * @typedef {import("../model/equalizer.js").Band} Band
 * @typedef {import("../model/gestures.js").Drag} Drag
 * @typedef {import("../model/gestures.js").Dot} Dot
 * @typedef {import("../model/gestures.js").Scale} Scale
 * @typedef {import("../model/gestures.js").Tap} Tap
 * @typedef {import("../model/gestures.js").WheelTurn} WheelTurn
 *
 * @typedef {object} Surface the curve as it is drawn at this moment
 * @property {Equalizer} equalizer
 * @property {import("../model/equalizer.js").Setting} setting
 * @property {Dot[]} dots their places within the plot
 * @property {Scale} scale
 * @property {{left: number, top: number}} margin of the plot within the drawing
 */

/** The Q of a band that is added. */
export const addedQ = 0.71;
const wheelReadoutMs = 1000;

/** @param {number} index */
export const dotId = (index) => `band-dot-${index + 1}`;

/** @param {EventTarget | null} target */
const isInert = (target) => target instanceof Element && target.closest("fieldset:disabled") !== null;

/**
 * @param {() => void} redraw draws the curve again where nothing of the equalizer has changed
 */
export function createGestures(redraw) {
  /** @type {Surface} */
  let surface;
  /** @type {SVGSVGElement} */
  let drawing;
  let drag = /** @type {Drag | null} */ (null);
  let pointerId = -1;
  let frame = 0;
  let latest = /** @type {import("../model/gestures.js").Pointer | null} */ (null);
  let sent = "{}";
  let tap = /** @type {Tap | null} */ (null);
  let turn = /** @type {WheelTurn | null} */ (null);
  let wheelTimer = 0;
  let wheelIndex = -1;

  // ---- places ----

  /** @param {MouseEvent} event */
  function pointOf({ clientX, clientY }) {
    const { left, top } = drawing.getBoundingClientRect();
    return { x: clientX - left - surface.margin.left, y: clientY - top - surface.margin.top };
  }

  /**
   * @param {MouseEvent} event
   * @returns {number} the band whose dot is meant; -1: none
   */
  const bandAt = (event) => nearestDot(surface.dots, pointOf(event), surface.equalizer.chosen());

  /** @param {number} index */
  const handleOf = (index) => /** @type {SVGElement | null} */ (drawing.querySelector(`#${dotId(index)}`));

  /** @param {PointerEvent} event */
  const pointerOf = ({ clientX, clientY, shiftKey }) => ({ x: clientX, y: clientY, shift: shiftKey });

  // ---- edits ----

  /**
   * The band as it is now: several events may come before it is drawn.
   *
   * @param {number} index
   */
  const bandNow = (index) => (surface.equalizer.setting() ?? surface.setting).bands[index];

  /**
   * @param {number} index
   * @param {Partial<Band>} values
   * @param {string} [merge]
   */
  const change = (index, values, merge) => surface.equalizer.change({ bands: { [index]: values } }, merge);

  /** @param {number} index */
  const flatten = (index) => change(index, flatValues(bandNow(index)));

  // ---- dragging ----

  /** @param {PointerEvent} event */
  function press(event) {
    if (drag !== null || event.button !== 0 || !event.isPrimary || isInert(drawing)) return;
    const index = bandAt(event);
    const handle = handleOf(index);
    if (handle === null) return;
    // The browser would focus the dot on top, which need not be the nearest one.
    event.preventDefault();
    handle.focus({ preventScroll: true });
    handle.setPointerCapture(event.pointerId);
    pointerId = event.pointerId;
    drag = beginDrag(index, bandNow(index), pointerOf(event), surface.scale);
    sent = "{}";
    addEventListener("keydown", cancelByKey, { capture: true });
    // It goes to the document where the dot has gone.
    addEventListener("lostpointercapture", lose, { capture: true });
    surface.equalizer.choose(index);
  }

  /** @param {PointerEvent} event */
  function move(event) {
    if (drag === null || event.pointerId !== pointerId) return;
    // A release that the browser has kept to itself, such as one within a dialog of the system.
    if (event.buttons === 0) return void end();
    latest = pointerOf(event);
    if (frame !== 0) return;
    // At once, so that it is drawn in this frame. What comes before the next frame is taken in then.
    takeMove();
    frame = requestAnimationFrame(() => {
      frame = 0;
      takeMove();
    });
  }

  /** Takes in the last place of the pointer: once for each frame, and at the end. */
  function takeMove() {
    if (drag === null || latest === null) return;
    if (sent !== "{}" && !surface.equalizer.isHeld()) return drop();
    const wasMoving = drag.isMoving;
    drag = moveDrag(drag, latest, surface.scale);
    latest = null;
    const values = JSON.stringify(drag.values);
    if (values !== sent) {
      sent = values;
      surface.equalizer.touch({ bands: { [drag.index]: drag.values } });
    } else if (drag.isMoving !== wasMoving) {
      redraw();
    }
  }

  /** Ends the drag. The last value is kept. */
  function end() {
    if (drag === null) return;
    takeMove();
    if (drag === null) return;
    const { index, isMoving } = drag;
    forget();
    if (sent !== "{}") surface.equalizer.finish();
    redraw();
    return { index, isMoving };
  }

  /** Lets go of a drag that something else has ended: an undo, a change of slots, a refusal. */
  function drop() {
    if (drag === null) return;
    const handle = handleOf(drag.index);
    forget();
    if (handle?.hasPointerCapture(pointerId)) handle.releasePointerCapture(pointerId);
    redraw();
  }

  function forget() {
    cancelAnimationFrame(frame);
    removeEventListener("keydown", cancelByKey, { capture: true });
    removeEventListener("lostpointercapture", lose, { capture: true });
    frame = 0;
    latest = null;
    drag = null;
  }

  /** @param {PointerEvent} event */
  function release(event) {
    if (drag === null || event.pointerId !== pointerId) return;
    latest = pointerOf(event);
    const ended = end();
    if (ended !== undefined && !ended.isMoving && event.pointerType !== "mouse") takeTap(ended.index, event);
  }

  /** @param {PointerEvent} event */
  function lose(event) {
    if (event.pointerId === pointerId) end();
  }

  /**
   * Fingers and pens: the browser reports a double click for the mouse only.
   *
   * @param {number} index
   * @param {PointerEvent} event
   */
  function takeTap(index, { timeStamp: time, clientX: x, clientY: y }) {
    const next = { index, time, x, y };
    const isSecond = isSecondTap(tap, next);
    tap = isSecond ? null : next;
    if (isSecond) flatten(index);
  }

  /** @param {KeyboardEvent} event */
  function cancelByKey(event) {
    if (event.key !== "Escape" || drag === null) return;
    event.preventDefault();
    event.stopPropagation();
    drop();
    if (sent !== "{}") surface.equalizer.cancel();
  }

  /**
   * Keeps the page from scrolling under a drag. Within a drawing, `touch-action` has no effect in some browsers. A finger
   * beside the dots scrolls as everywhere.
   *
   * @param {TouchEvent} event
   */
  function touchStart(event) {
    if (drag !== null) event.preventDefault();
  }

  // ---- double click, wheel, keys ----

  /** @param {MouseEvent} event */
  function doubleClick(event) {
    if (isInert(drawing)) return;
    const index = bandAt(event);
    if (index >= 0) return flatten(index);
    const { x, y } = pointOf(event);
    const { width, height, range } = surface.scale;
    const { bands } = surface.equalizer.setting() ?? surface.setting;
    const free = bandToAdd(bands, surface.equalizer.chosen());
    if (free < 0 || x < 0 || x > width || y < 0 || y > height) return;
    surface.equalizer.choose(free);
    const [frequency, gain] = [roundFrequency(frequencyOf(x, width)), roundGain(dbOf(y, range, height))];
    change(free, { type: 0, freq_hz: frequency, gain_db: gain, q: addedQ });
  }

  /** @param {WheelEvent} event */
  function wheel(event) {
    // With Ctrl the wheel enlarges the page.
    if (event.ctrlKey || isInert(drawing)) return;
    const index = drag === null ? bandAt(event) : drag.index;
    if (index < 0) return;
    event.preventDefault();
    if (drag !== null) return;
    const band = bandNow(index);
    const turned = turnWheel(turn, index, band, event);
    turn = turned.turn;
    surface.equalizer.choose(index);
    clearTimeout(wheelTimer);
    wheelIndex = index;
    wheelTimer = window.setTimeout(() => {
      wheelIndex = -1;
      redraw();
    }, wheelReadoutMs);
    if (turned.q !== band.q) change(index, { q: turned.q }, `wheel of band ${index}`);
  }

  /**
   * @param {number} index
   * @param {KeyboardEvent} event
   */
  function key(index, event) {
    const values = isInert(drawing) ? null : keyValues(bandNow(index), event);
    if (values === null) return;
    event.preventDefault();
    if (drag === null && Object.keys(values).length > 0) change(index, values, `key of band ${index}`);
  }

  return {
    /** @param {Surface} drawn */
    show: (drawn) => (surface = drawn),
    drag: () => drag,
    /** @returns {number} the band whose values are shown beside its dot; -1: none */
    readout: () => (drag === null ? wheelIndex : drag.isMoving ? drag.index : -1),
    press,
    move,
    release,
    lose,
    doubleClick,
    key,
    /**
     * Listens to the wheel and to fingers, which must be able to keep the page from scrolling.
     *
     * @param {SVGSVGElement} element
     * @returns {() => void} ends a drag and the listening
     */
    attach(element) {
      drawing = element;
      element.addEventListener("wheel", wheel, { passive: false });
      element.addEventListener("touchstart", touchStart, { passive: false });
      return () => {
        element.removeEventListener("wheel", wheel);
        element.removeEventListener("touchstart", touchStart);
        clearTimeout(wheelTimer);
        end();
      };
    },
  };
}
