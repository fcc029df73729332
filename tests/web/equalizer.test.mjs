// The equalizer's setting: fields that a person types into, and changes put onto what another tab has set.
import assert from "node:assert/strict";
import test from "node:test";

import {
  applyChange,
  asHeld,
  bandCount,
  bandToAdd,
  decibelField,
  firstBands,
  hertzField,
  inverseOf,
  isBandUsed,
  isEmptyChange,
  mergeChanges,
  nextFree,
  parseField,
  readSetting,
  wholeChange,
  withChange,
} from "../../web/src/model/equalizer.js";

const flat = { type: 0, freq_hz: 1000, gain_db: 0, q: 0.707 };
const setting = (bypass = true, bands = {}) => ({
  bypass,
  fade_ms: 20,
  bands: Array.from({ length: bandCount }, (_, index) => ({ ...flat, ...bands[index] })),
});

test("fields take numbers with points, commas and units", () => {
  const rows = /** @type {[string, string, number | undefined][]} */ ([
    ["90", "1000 Hz", 90],
    [" 90 Hz ", "1000 Hz", 90],
    ["1.5k", "1000 Hz", 1500],
    ["1,5 kHz", "1000 Hz", 1500],
    ["1,50", "1000 Hz", 1.5],
    ["0,125", "1", 0.125],
    ["1000,125", "1000 Hz", 1000.125],
    ["+4.5 dB", "0 dB", 4.5],
    ["-3,27", "0 dB", -3.27],
    ["−3 DB", "0 dB", -3],
    [".5", "1", 0.5],
    ["5.", "1", 5],
    ["20 ms", "30 ms", 20],
    ["30 s", "20 s", 30],
    ["", "1", undefined],
    ["-", "1", undefined],
    ["abc", "1", undefined],
    ["1e3", "1000 Hz", undefined],
    ["1.2.3", "1", undefined],
    ["5 bananas", "1", undefined],
    ["NaN", "1", undefined],
    ["20,000", "1000 Hz", undefined],
    ["1,250 Hz", "1000 Hz", undefined],
    ["500 ms", "1000 Hz", undefined],
    ["30 s", "20 ms", undefined],
    ["2 Hz", "1", undefined],
    ["2k", "0 dB", undefined],
    ["0.02 k", "20 ms", undefined],
  ]);
  for (const [text, shown, value] of rows) {
    assert.equal(parseField(text, shown), value, JSON.stringify([text, shown]));
  }
});

test("fields take Chinese units, and what a Chinese input method types", () => {
  const rows = /** @type {[string, string, number | undefined][]} */ ([
    ["20秒", "10 s", 20],
    ["20 秒", "10 s", 20],
    ["50毫秒", "20 ms", 50],
    ["-3分贝", "0 dB", -3],
    ["440赫兹", "1000 Hz", 440],
    ["440赫", "1000 Hz", 440],
    ["1.5千赫", "1000 Hz", 1500],
    ["1.5 千赫兹", "1000 Hz", 1500],
    ["1.5千", "1000 Hz", 1500],
    ["50％", "20 %", 50],
    ["５", "0 dB", 5],
    ["－１２．５　ｄＢ", "0 dB", -12.5],
    ["＋２", "0 dB", 2],
    ["−3", "0 dB", -3],
    ["0。5", "1", 0.5],
    ["０，５", "1", 0.5],
    ["１．５ｋＨｚ", "1000 Hz", 1500],
    ["50毫秒", "10 s", undefined],
    ["20秒", "20 ms", undefined],
    ["3分贝", "1000 Hz", undefined],
    ["2秒", "1", undefined],
    ["1千分贝", "0 dB", undefined],
    ["２０，０００", "1000 Hz", undefined],
    ["0。5。1", "1", undefined],
    ["20分钟", "10 s", undefined],
    ["二十秒", "10 s", undefined],
    ["10²", "1000 Hz", undefined],
  ]);
  for (const [text, shown, value] of rows) {
    assert.equal(parseField(text, shown), value, JSON.stringify([text, shown]));
  }
});

test("fields show the digits that the record keeps", () => {
  assert.deepEqual(
    [hertzField(31.25), hertzField(20000), hertzField(32.7934)],
    ["31.25 Hz", "20000 Hz", "32.7934 Hz"],
  );
  assert.deepEqual([decibelField(4.5), decibelField(-3.3), decibelField(0)], ["+4.5 dB", "-3.3 dB", "0 dB"]);
});

test("a setting is whole or none", () => {
  const whole = setting();
  assert.deepEqual(readSetting(whole), whole);
  const bad = [
    undefined,
    null,
    7,
    {},
    { ...whole, bypass: 1 },
    { ...whole, fade_ms: "nan" },
    { ...whole, bands: whole.bands.slice(1) },
    setting(true, { 3: { q: "inf" } }),
  ];
  for (const value of bad) assert.equal(readSetting(value), undefined, JSON.stringify(value));
});

test("a change is put onto the present setting", () => {
  const known = setting();
  const present = setting(true, { 5: { gain_db: 4 } });
  const edit = applyChange(known, present, { bands: { 0: { gain_db: 2 } } });
  assert.deepEqual(edit, {
    setting: setting(false, { 0: { gain_db: 2 }, 5: { gain_db: 4 } }),
    overtakes: [],
  });
  const same = applyChange(known, present, { bands: { 5: { q: 2 } } });
  assert.deepEqual(same, { setting: setting(false, { 5: { gain_db: 4, q: 2 } }), overtakes: [5] });
  const equal = applyChange(known, present, { bands: { 5: { gain_db: 4 } } });
  assert.deepEqual(equal.overtakes, [], "both have set the same");
  assert.equal(applyChange(known, setting(false), { bypass: true }).setting.bypass, true);
  const fade = applyChange(known, present, { fade_ms: 50 }).setting;
  assert.deepEqual([fade.bypass, fade.fade_ms], [true, 50], "a fade switches nothing on");
  const off = applyChange(known, present, { bypass: true, bands: { 1: { gain_db: 0 } } }).setting;
  assert.equal(off.bypass, true, "a change that says so leaves it off");
});

test("a change and its inverse", () => {
  const from = setting(true, { 2: { gain_db: 3 } });
  const change = { bypass: false, bands: { 2: { gain_db: 5, q: 0.707 }, 4: { type: 3 }, 6: { gain_db: 0 } } };
  const back = inverseOf(from, change);
  assert.deepEqual(back, { bypass: true, bands: { 2: { gain_db: 3 }, 4: { type: 0 } } });
  assert.deepEqual(withChange(withChange(from, change), back), from);
  assert.ok(isEmptyChange(inverseOf(from, wholeChange(from))));
  assert.ok(isEmptyChange({ bands: {} }));
  for (const one of [{ bypass: true }, { fade_ms: 2 }, { bands: { 0: {} } }]) assert.ok(!isEmptyChange(one));
  assert.deepEqual(withChange(setting(), wholeChange(from)), from);
});

test("changes are merged, the later one wins", () => {
  const first = { bypass: true, bands: { 1: { gain_db: 1, q: 2 }, 3: { type: 4 } } };
  const second = { fade_ms: 30, bands: { 1: { gain_db: 7 } } };
  assert.deepEqual(mergeChanges(first, second), {
    bypass: true,
    fade_ms: 30,
    bands: { 1: { gain_db: 7, q: 2 }, 3: { type: 4 } },
  });
  assert.deepEqual(first.bands[1], { gain_db: 1, q: 2 }, "its parts are not changed");
  assert.equal(mergeChanges(null, second), second);
  assert.deepEqual(mergeChanges({ bypass: true }, { bypass: false }), { bypass: false });
});

test("what was written is shown as the service answers it", () => {
  const exact = { type: 1, freq_hz: 1234.5678, gain_db: -3.2745678, q: 1 / 3 };
  const held = asHeld({ bypass: true, fade_ms: 12.34, bands: [exact] });
  assert.deepEqual(held, {
    bypass: true,
    fade_ms: 12.3,
    bands: [{ type: 1, freq_hz: 1234.57, gain_db: -3.27457, q: 0.333333 }],
  });
  const bands = firstBands();
  assert.deepEqual(
    [bands.length, bands[0].freq_hz, bands[1].freq_hz, bands[14].freq_hz],
    [15, 20, 32.7579, 20000],
  );
  assert.ok(!bands.some(isBandUsed));
});

test("a band is in use where it changes the sound", () => {
  assert.deepEqual(
    [flat, { ...flat, gain_db: 1 }, { ...flat, type: 2 }, { ...flat, type: 3 }].map(isBandUsed),
    [false, true, false, true],
  );
});

test("a free band is found going round, and the chosen one is added while it is free", () => {
  const used = { ...flat, gain_db: 1 };
  const bands = [used, flat, used, flat];
  assert.deepEqual(
    [0, 1, 2, 3, 4].map((start) => nextFree(bands, start)),
    [1, 1, 3, 3, 1],
  );
  assert.deepEqual(
    [0, 1, 2, 3].map((chosen) => bandToAdd(bands, chosen)),
    [1, 1, 1, 3],
  );
  assert.equal(nextFree([used, used], 1), -1);
  assert.equal(bandToAdd([used, used], 0), -1);
});
