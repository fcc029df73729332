// Settings as text, and back.
import assert from "node:assert/strict";
import test from "node:test";

import { asHeld, firstBands } from "../../web/src/model/equalizer.js";
import { readImport } from "../../web/src/model/import/read.js";
import { exportJson, exportParametric } from "../../web/src/model/import/write.js";
import { tables } from "../../web/src/texts/index.js";
import { makeRandom } from "./import_corpus.mjs";
import { brokenRules } from "./import_setting_rules.mjs";

/** @type {import("../../web/src/model/equalizer.js").Setting} */
const first = { bypass: false, fade_ms: 20, bands: firstBands() };

// A setting as the service would answer it, with values of all sizes.
function anySetting(random, types) {
  const value = (low, high) => low + ((high - low) * random(1 << 30)) / (1 << 30);
  const gains = [() => 0, () => value(-30, 30), () => value(-1e-6, 1e-6), () => 30, () => -30];
  const bands = firstBands().map(() => ({
    type: types[random(types.length)],
    freq_hz: 20 * 1000 ** value(0, 1),
    gain_db: gains[random(gains.length)](),
    q: random(3) === 0 ? [0.1, 18, 0.707][random(3)] : value(0.1, 18),
  }));
  return asHeld({ bypass: random(2) === 0, fade_ms: value(1, 200), bands });
}

test("the own form, imported, is the same setting, and exported again the same text", () => {
  const random = makeRandom(3);
  for (let round = 0; round < 500; ++round) {
    const setting = anySetting(random, [0, 1, 2, 3, 4, 5, 6, 7, 8]);
    assert.deepEqual(brokenRules(setting), []);
    const text = exportJson(setting);
    const { setting: read, dropped, notes, kind, taken } = readImport(text);
    assert.deepEqual([read, dropped, notes, kind, taken], [setting, [], [], "json", 15]);
    assert.equal(read && exportJson(read), text);
    assert.deepEqual(JSON.parse(text), setting);
  }
});

test("parametric text, imported, is the same bands and trim", () => {
  const random = makeRandom(4);
  for (let round = 0; round < 500; ++round) {
    const setting = { ...anySetting(random, [0, 1, 2, 3, 4, 5, 7, 8]), bypass: false, fade_ms: 20 };
    const trimDb = (random(801) - 600) / 10;
    const { text, lost } = exportParametric(setting, trimDb);
    assert.deepEqual(lost, []);
    const read = readImport(text);
    assert.deepEqual([read.setting, read.preampDb, read.dropped, read.notes], [setting, trimDb, [], []]);
    assert.deepEqual(read.setting && exportParametric(read.setting, trimDb), { text, lost });
  }
});

test("what parametric text cannot carry is named, and the rest is the same", () => {
  const random = makeRandom(5);
  for (let round = 0; round < 300; ++round) {
    const setting = anySetting(random, [0, 1, 2, 3, 4, 5, 6, 6, 7, 8]);
    const { text, lost } = exportParametric(setting, -3);
    const carried = {
      bypass: false,
      fade_ms: 20,
      bands: setting.bands.map((band) => (band.type === 6 ? { ...band, type: 0, gain_db: 0 } : band)),
    };
    assert.deepEqual(readImport(text).setting, carried);
    const skirts = setting.bands.flatMap(({ type }, index) => (type === 6 ? [index + 1] : []));
    const names = lost.map(({ key }) => key.replace("export.lost.", ""));
    assert.deepEqual(
      names,
      ["skirt", "bypass", "fade"].filter(
        (name) =>
          (name === "skirt" && skirts.length > 0) ||
          (name === "bypass" && setting.bypass) ||
          (name === "fade" && setting.fade_ms !== 20),
      ),
    );
    if (skirts.length > 0) assert.equal(lost[0].values.bands, skirts.join(", "));
    for (const { key } of lost) assert.ok(Object.hasOwn(tables.en, key), key);
  }
});

test("the texts are as people know them", () => {
  const bands = first.bands.map((band, index) =>
    index === 0
      ? { type: 0, freq_hz: 105, gain_db: 3.5, q: 0.7 }
      : index === 1
        ? { type: 3, freq_hz: 15000, gain_db: 0, q: 0.7071 }
        : band,
  );
  const lines = exportParametric({ ...first, bands }, -6.5).text.split("\n");
  assert.deepEqual(lines.slice(0, 4), [
    "Preamp: -6.5 dB",
    "Filter 1: ON PK Fc 105 Hz Gain 3.5 dB Q 0.7",
    "Filter 2: ON LPQ Fc 15000 Hz Q 0.7071",
    "Filter 3: ON PK Fc 53.6539 Hz Gain 0 dB Q 0.707",
  ]);
  assert.equal(lines.length, 17);
  assert.match(exportJson(first), /^\{"bypass":false,"fade_ms":20,"bands":\[\n\{"type":0,"freq_hz":20,/);
});

test("no number has an exponent", () => {
  const bands = first.bands.map((band) => ({ ...band, gain_db: 1.23456e-12 }));
  const { text } = exportParametric({ ...first, bands }, 0);
  assert.match(text, /Gain 0\.00000000000123456 dB/);
  assert.doesNotMatch(text + exportJson({ ...first, bands }), /\de/);
});
