// Dragging, the wheel and the keys as functions: what they make of a band.
import assert from "node:assert/strict";
import test from "node:test";

import {
  beginDrag,
  changedValues,
  dragThreshold,
  flatValues,
  freeFrequency,
  hasGain,
  isSecondTap,
  keyValues,
  moveDrag,
  nearestDot,
  reach,
  roundFrequency,
  roundGain,
  roundQ,
  stepFrequency,
  stepGain,
  stepQ,
  turnWheel,
} from "../../web/src/model/gestures.js";

const band = { type: 0, freq_hz: 1000, gain_db: 2.5, q: 1.4 };
// 100 pixels to the octave at ten octaves; 10 pixels to the decibel.
const scale = { width: 1000 * Math.log10(2) * 3, height: 240, range: 12 };
const octave = scale.width / Math.log2(1000);
const at = (x, y, shift = false) => ({ x, y, shift });
const drag = (start, ...moves) =>
  moves.reduce(
    (one, [x, y, shift, plot = scale]) => moveDrag(one, at(x, y, shift), plot),
    beginDrag(4, start, at(100, 100), scale),
  );

test("a new band is placed in the middle of the widest gap", () => {
  assert.equal(freeFrequency([]), 632);
  assert.equal(freeFrequency([632]), 3560);
  assert.equal(freeFrequency([632, 3560]), 112);
  assert.equal(freeFrequency([200, 2000]), 63.2, "of equal gaps, the lowest");
  assert.equal(freeFrequency([20, 20000, 20, 20000]), 632);
  assert.equal(freeFrequency([1000, 30, 60, 5000, 250]), 2240, "in any order");
  const taken = [];
  for (let band = 0; band < 15; ++band) taken.push(freeFrequency(taken));
  assert.equal(new Set(taken).size, 15);
});

test("values have the steps of a drag, within their ranges", () => {
  assert.deepEqual(
    [19, 20.04, 32.7934, 999.6, 1256, 19970, 99999].map(roundFrequency),
    [20, 20, 32.8, 1000, 1260, 20000, 20000],
  );
  assert.deepEqual([-99, -3.27, -0.04, 0.05, 2.449, 99].map(roundGain), [-30, -3.3, 0, 0.1, 2.4, 30]);
  assert.deepEqual([0, 0.104, 0.7071, 1.405, 17.996, 99].map(roundQ), [0.1, 0.1, 0.71, 1.41, 18, 18]);
  assert.ok(!Object.is(roundGain(-0.04), -0), "no negative zero");
});

test("a press moves nothing, and neither does a hand that trembles", () => {
  const pressed = drag(band);
  assert.equal(pressed.isMoving, false);
  assert.equal(pressed.band, band);
  const trembling = drag(band, [101, 101], [98, 99]);
  assert.equal(trembling.isMoving, false);
  assert.equal(trembling.band, band);
  assert.equal(drag(band, [100, 100 + dragThreshold]).isMoving, true);
});

test("a drag moves the band by as much as the pointer moves", () => {
  const rows = /** @type {[number, number, number, number][]} */ ([
    [octave, 0, 2000, 2.5],
    [-octave, 0, 500, 2.5],
    [0, -10, 1000, 3.5],
    [0, 25, 1000, 0],
    [0, -500, 1000, 30],
    [0, 500, 1000, -30],
    [9999, 0, 20000, 2.5],
    [-9999, 0, 20, 2.5],
    [octave / 12, -1, 1060, 2.6],
  ]);
  for (const [x, y, frequency, gain] of rows) {
    const { band: dragged } = drag(band, [100 + x, 100 + y]);
    assert.deepEqual(dragged, { ...band, freq_hz: frequency, gain_db: gain }, `${x}, ${y}`);
  }
});

test("a drag has no memory of its way: back at the press, the band is what it was", () => {
  const fine = { type: 1, freq_hz: 32.7934, gain_db: -3.27, q: 0.7071 };
  assert.deepEqual(drag(fine, [400, -300], [17, 900], [100, 100]).band, fine);
  assert.equal(drag(fine, [100, 90]).band.freq_hz, 32.7934, "the other axis keeps its digits");
  assert.equal(drag(fine, [160, 100]).band.gain_db, -3.27, "the other axis keeps its digits");
});

test("a drag names the values that it has changed, and sets them back as well", () => {
  assert.deepEqual(drag(band).values, {});
  assert.deepEqual(drag(band, [100, 90]).values, { gain_db: 3.5 });
  assert.deepEqual(drag(band, [100 + octave, 90], [100, 100]).values, { freq_hz: 1000, gain_db: 2.5 });
  assert.deepEqual(drag(band, [100 + octave, 100], [100 + octave, 60, true]).values, {
    freq_hz: 2000,
    q: 2.8,
  });
});

test("types without gain move sideways only", () => {
  const notch = { ...band, type: 7, gain_db: 0 };
  assert.deepEqual(drag(notch, [100 + octave, 30]).band, { ...notch, freq_hz: 2000 });
});

test("with Shift, up and down changes Q, in hundredths", () => {
  assert.deepEqual(drag(band, [150, 60, true]).band, { ...band, q: 2.8 });
  assert.deepEqual(drag(band, [100, 140, true]).band, { ...band, q: 0.7 });
  assert.equal(drag(band, [100, -900, true]).band.q, 18);
  assert.equal(drag(band, [100, 9000, true]).band.q, 0.1);
  assert.equal(drag(band, [100, 99, true], [104, 99, true]).band.q, roundQ(1.4 * 2 ** (1 / 40)));
});

test("pressing and releasing Shift within a drag jumps nowhere", () => {
  const up = drag(band, [100, 60]);
  assert.equal(up.band.gain_db, 6.5);
  const held = moveDrag(up, at(100, 60, true), scale);
  assert.deepEqual(held.band, up.band);
  const turned = moveDrag(held, at(130, 20, true), scale);
  assert.deepEqual(turned.band, { ...up.band, q: 2.8 });
  const released = moveDrag(turned, at(130, 20), scale);
  assert.deepEqual(released.band, turned.band);
  assert.deepEqual(moveDrag(released, at(130 + octave, 30), scale).band, {
    ...turned.band,
    freq_hz: 2000,
    gain_db: 5.5,
  });
});

test("a plot that grows within a drag moves the band on from where it is", () => {
  const grown = { ...scale, range: 24 };
  const before = drag(band, [100, 0]);
  assert.equal(before.band.gain_db, 12.5);
  const still = moveDrag(before, at(100, 0), grown);
  assert.equal(still.band.gain_db, 12.5);
  assert.equal(moveDrag(still, at(100, -10), grown).band.gain_db, 14.5);
});

test("the nearest dot takes the press; of two at one place, the chosen one", () => {
  const dots = [
    { index: 0, x: 100, y: 100 },
    { index: 3, x: 112, y: 100 },
    { index: 8, x: 112, y: 100 },
  ];
  const rows = /** @type {[number, number, number, number][]} */ ([
    [100, 100, 8, 0],
    [105, 100, 3, 0],
    [107, 100, 0, 3],
    [112, 104, 8, 8],
    [112, 104, 3, 3],
    [100, 100 + reach, 0, 0],
    [100, 101 + reach, 0, -1],
    [400, 400, 0, -1],
  ]);
  for (const [x, y, chosen, index] of rows) {
    assert.equal(nearestDot(dots, { x, y }, chosen), index, `${x}, ${y}, ${chosen}`);
  }
  assert.equal(nearestDot([], { x: 0, y: 0 }, 0), -1);
});

test("two taps on a dot are a double tap where they are near in time and place", () => {
  const tap = (more = {}) => ({ index: 2, time: 1000, x: 50, y: 50, ...more });
  assert.equal(isSecondTap(null, tap()), false);
  assert.equal(isSecondTap(tap(), tap({ time: 1400, x: 60 })), true);
  assert.equal(isSecondTap(tap(), tap({ time: 1401 })), false);
  assert.equal(isSecondTap(tap(), tap({ time: 1100, index: 3 })), false);
  assert.equal(isSecondTap(tap(), tap({ time: 1100, y: 80 })), false);
});

const wheel = (deltaY, more = {}) => ({ deltaX: 0, deltaY, deltaMode: 0, ...more });

test("a notch of the wheel changes Q by 10 %, in each unit of the browsers", () => {
  assert.equal(turnWheel(null, 0, band, wheel(-100)).q, 1.54);
  assert.equal(turnWheel(null, 0, band, wheel(100)).q, 1.27);
  assert.equal(turnWheel(null, 0, band, wheel(-3, { deltaMode: 1 })).q, 1.54);
  assert.equal(turnWheel(null, 0, band, wheel(0, { deltaX: -100 })).q, 1.54);
  assert.equal(turnWheel(null, 0, band, wheel(-1, { deltaMode: 2 })).q, roundQ(1.4 * 1.1 ** 4));
  assert.equal(
    turnWheel(null, 0, band, wheel(-1e9)).q,
    roundQ(1.4 * 1.1 ** 5),
    "one event goes five notches at most",
  );
  assert.equal(turnWheel(null, 0, { ...band, q: 17.5 }, wheel(-100)).q, 18);
  assert.equal(turnWheel(null, 0, { ...band, q: 0.1 }, wheel(100)).q, 0.1);
});

test("the small steps of a touchpad add up", () => {
  let turn = /** @type {import("../../web/src/model/gestures.js").WheelTurn | null} */ (null);
  let q = 1;
  for (let count = 0; count < 100; ++count) {
    ({ turn, q } = turnWheel(turn, 0, { ...band, q }, wheel(-1)));
  }
  assert.equal(q, 1.1);
  const fine = { ...band, q: 0.7071 };
  assert.equal(turnWheel(null, 0, fine, wheel(-1)).q, 0.7071, "less than a step changes nothing");
  const other = turnWheel({ index: 3, q: 5 }, 0, band, wheel(-100));
  assert.equal(other.q, 1.54, "another band begins at its own value");
  assert.equal(
    turnWheel({ index: 0, q: 5 }, 0, band, wheel(-100)).q,
    1.54,
    "so does one that was set meanwhile",
  );
});

test("keys on a dot", () => {
  const rows = /** @type {[string, boolean, object][]} */ ([
    ["ArrowRight", false, { freq_hz: 1030 }],
    ["ArrowLeft", false, { freq_hz: 972 }],
    ["ArrowRight", true, { freq_hz: 1260 }],
    ["ArrowLeft", true, { freq_hz: 794 }],
    ["ArrowUp", false, { gain_db: 2.6 }],
    ["ArrowDown", false, { gain_db: 2.4 }],
    ["ArrowUp", true, { gain_db: 3.5 }],
    ["ArrowDown", true, { gain_db: 1.5 }],
    ["PageUp", false, { gain_db: 5.5 }],
    ["PageDown", false, { gain_db: -0.5 }],
    ["+", true, { q: 1.54 }],
    ["=", false, { q: 1.54 }],
    ["-", false, { q: 1.27 }],
    ["_", true, { q: 1.27 }],
    ["Delete", false, { gain_db: 0 }],
    ["Backspace", false, { gain_db: 0 }],
    ["t", false, { type: 1 }],
    ["T", false, { type: 1 }],
    ["T", true, { type: 8 }],
  ]);
  for (const [key, shiftKey, values] of rows) {
    assert.deepEqual(keyValues(band, { key, shiftKey }), values, `${shiftKey ? "Shift " : ""}${key}`);
  }
});

test("other keys and the browser's shortcuts stay the browser's", () => {
  for (const key of ["Tab", "Enter", "a", "Home", "F5", "toString", "__proto__"]) {
    assert.equal(keyValues(band, { key }), null, key);
  }
  for (const held of ["ctrlKey", "altKey", "metaKey"]) {
    assert.equal(keyValues(band, { key: "ArrowLeft", [held]: true }), null, held);
  }
});

test("keys end at the ranges, and do nothing there", () => {
  const low = { type: 8, freq_hz: 20, gain_db: 0, q: 0.1 };
  const high = { type: 2, freq_hz: 20000, gain_db: 30, q: 18 };
  assert.deepEqual(
    ["ArrowLeft", "ArrowUp", "ArrowDown", "PageUp", "-"].map((key) => keyValues(low, { key })),
    [{}, {}, {}, {}, {}],
  );
  assert.deepEqual(
    ["ArrowRight", "ArrowUp", "PageUp", "+"].map((key) => keyValues(high, { key })),
    [{}, {}, {}, {}],
  );
  assert.deepEqual(keyValues(low, { key: "t" }), { type: 0 });
  assert.deepEqual(keyValues(low, { key: "Delete" }), { type: 0 }, "a type without gain goes out of use");
});

test("a held key goes through the whole range", () => {
  const held = (start, key, count) => {
    let one = start;
    for (let press = 0; press < count; ++press) one = { ...one, ...keyValues(one, { key }) };
    return one;
  };
  assert.equal(held({ ...band, freq_hz: 20 }, "ArrowRight", 250).freq_hz, 20000);
  assert.equal(held({ ...band, freq_hz: 20000 }, "ArrowLeft", 250).freq_hz, 20);
  assert.equal(held({ ...band, gain_db: -30 }, "ArrowUp", 600).gain_db, 30);
  assert.equal(held({ ...band, q: 0.1 }, "+", 80).q, 18);
  assert.equal(held({ ...band, q: 18 }, "-", 80).q, 0.1);
});

test("buttons step as the keys do", () => {
  assert.deepEqual(stepFrequency(band, 1), { freq_hz: 2000 });
  assert.deepEqual(stepGain(band, -0.5), { gain_db: 2 });
  assert.deepEqual(stepGain({ ...band, gain_db: -3.27 }, 0.5), { gain_db: -2.8 });
  assert.deepEqual(stepGain({ ...band, type: 3 }, -0.5), {});
  assert.deepEqual([stepQ(band, 1), stepQ(band, -1)], [{ q: 1.54 }, { q: 1.27 }]);
  assert.deepEqual(
    [stepQ({ ...band, q: 0.1 }, 1), stepQ({ ...band, q: 0.104 }, -1)],
    [{ q: 0.11 }, { q: 0.1 }],
  );
});

test("flat means out of use, for each type", () => {
  for (let type = 0; type < 9; ++type) {
    assert.equal(hasGain({ ...band, type }), type < 3);
    assert.deepEqual(flatValues({ ...band, type }), type < 3 ? { gain_db: 0 } : { type: 0, gain_db: 0 });
  }
});

test("only the values that differ are a change", () => {
  assert.equal(changedValues(band, { ...band }), null);
  assert.deepEqual(changedValues(band, { ...band, q: 2, type: 3 }), { type: 3, q: 2 });
});
