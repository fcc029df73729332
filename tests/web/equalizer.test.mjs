// The equalizer's setting: fields that a person types into, and changes put onto what another tab has set.
import assert from "node:assert/strict";
import test from "node:test";

import {
  applyChange,
  bandCount,
  decibelField,
  hertzField,
  isBandUsed,
  parseField,
  readSetting,
  shortHertz,
} from "../../web/src/model/equalizer.js";

const flat = { type: 0, freq_hz: 1000, gain_db: 0, q: 0.707 };
const setting = (bypass = true, bands = {}) => ({
  bypass,
  fade_ms: 20,
  bands: Array.from({ length: bandCount }, (_, index) => ({ ...flat, ...bands[index] })),
});

test("fields take numbers with points, commas and units", () => {
  const rows = /** @type {[string, number | undefined][]} */ ([
    ["90", 90],
    [" 90 Hz ", 90],
    ["1.5k", 1500],
    ["1,5 kHz", 1500],
    ["+4.5 dB", 4.5],
    ["-3,27", -3.27],
    ["−3 dB", -3],
    [".5", 0.5],
    ["5.", 5],
    ["20 ms", 20],
    ["", undefined],
    ["-", undefined],
    ["abc", undefined],
    ["1e3", undefined],
    ["1.2.3", undefined],
    ["5 bananas", undefined],
    ["NaN", undefined],
  ]);
  for (const [text, value] of rows) assert.equal(parseField(text), value, JSON.stringify(text));
});

test("fields show the digits that the record keeps", () => {
  assert.deepEqual(
    [hertzField(31.25), hertzField(20000), hertzField(32.7934)],
    ["31.25 Hz", "20000 Hz", "32.7934 Hz"],
  );
  assert.deepEqual([decibelField(4.5), decibelField(-3.3), decibelField(0)], ["+4.5 dB", "-3.3 dB", "0 dB"]);
  assert.deepEqual([88, 999, 1040, 20000].map(shortHertz), ["88", "1k", "1k", "20k"]);
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
  const edit = applyChange(known, present, { band: { index: 0, values: { gain_db: 2 } } });
  assert.deepEqual(edit, {
    setting: setting(false, { 0: { gain_db: 2 }, 5: { gain_db: 4 } }),
    overtakes: null,
  });
  const same = applyChange(known, present, { band: { index: 5, values: { q: 2 } } });
  assert.deepEqual(same, { setting: setting(false, { 5: { gain_db: 4, q: 2 } }), overtakes: 5 });
  assert.equal(applyChange(known, setting(false), { bypass: true }).setting.bypass, true);
  assert.equal(
    applyChange(known, present, { fade_ms: 50 }).setting.bypass,
    true,
    "a fade switches nothing on",
  );
  const preset = setting(true, { 1: { gain_db: -1 } });
  assert.deepEqual(applyChange(known, present, { whole: preset }).setting, { ...preset, bypass: false });
});

test("a band is in use where it changes the sound", () => {
  assert.deepEqual(
    [flat, { ...flat, gain_db: 1 }, { ...flat, type: 2 }, { ...flat, type: 3 }].map(isBandUsed),
    [false, true, false, true],
  );
});
