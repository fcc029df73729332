// Settings from imported texts: the corpus, random changes of it, and the work.
import assert from "node:assert/strict";
import test from "node:test";

import { decodeText } from "../../web/src/model/import/decode.js";
import { readImport } from "../../web/src/model/import/read.js";
import { tables } from "../../web/src/texts/index.js";
import { encodeText, makeRandom, mutateText, readCorpus } from "./import_corpus.mjs";
import { corpusRows } from "./import_rows.mjs";
import { shapes } from "./import_shapes.mjs";
import { brokenRules } from "./import_setting_rules.mjs";

const corpus = readCorpus();
const quickFit = () => ({ bands: [], maximumDb: 0, rmsDb: 0 });
const read = (text) => readImport(text, { steps: 0 }, { fit: quickFit });

function shortReason({ key, values }) {
  const name = key.replace("import.reason.", "");
  const inner = values.reason === undefined ? "" : `.${shortReason(values.reason)}`;
  const field = values.field?.key.replace("import.field.", "");
  return name === "pair" ? name + inner : name + (field === undefined ? "" : `(${field})`);
}

function rowOf({ name, bytes }) {
  const decoded = decodeText(bytes);
  if ("error" in decoded) return [name, decoded.error.key.replace("import.error.", "")];
  const { kind, taken, total, preampDb, dropped, notes } = read(decoded.text);
  const reasons = dropped.map(({ line, reason }) => `${line} ${shortReason(reason)}`);
  const noteNames = notes.map(({ key }) => key.replace("import.note.", ""));
  return [name, kind, taken, total, preampDb, reasons.join(", "), noteNames.join(" ")];
}

test("the corpus has at least 100 files, each with a row", () => {
  assert.ok(corpus.length >= 100, `${corpus.length}`);
  assert.deepEqual(
    corpus.map(({ name }) => name),
    corpusRows.map(([name]) => name).sort(),
  );
});

for (const row of corpusRows) {
  test(`corpus: ${row[0]}`, () => {
    const file = corpus.find(({ name }) => name === row[0]);
    assert.ok(file);
    assert.deepEqual(rowOf(file), row);
  });
}

test("every text of a reason, a note and an error is in the tables, and the corpus reaches each", () => {
  const reached = new Set();
  const reach = ({ key, values }) => {
    assert.ok(Object.hasOwn(tables.en, key), key);
    reached.add(key);
    for (const value of Object.values(values)) if (value?.key !== undefined) reach(value);
  };
  for (const { bytes } of corpus) {
    const decoded = decodeText(bytes);
    if ("error" in decoded) {
      reach(decoded.error);
      continue;
    }
    const { dropped, notes } = read(decoded.text);
    for (const { reason } of dropped) reach(reason);
    for (const note of notes) reach(note);
  }
  const all = Object.keys(tables.en).filter((key) => /^import\.(?:reason|note|field)\./.test(key));
  assert.deepEqual(
    all.filter((key) => !reached.has(key)),
    [],
  );
});

test("filters and bands that find no place are counted so that the totals agree", () => {
  const filters = Array.from({ length: 20 }, (_, index) => {
    const state = [2, 7, 19].includes(index) ? "OFF" : "ON";
    return `Filter ${index + 1}: ${state} PK Fc ${100 + index} Hz Gain 1 dB Q 1`;
  });
  const { taken, total, dropped, notes } = read(filters.join("\n"));
  assert.deepEqual([taken, total, dropped.length], [15, 20, 5]);
  assert.deepEqual(notes, [{ key: "import.note.surplus", values: { count: 2 } }]);
  const bands = Array.from({ length: 17 }, () => ({ type: 0, freq_hz: 100, gain_db: 1, q: 1 }));
  const json = read(JSON.stringify({ bypass: false, fade_ms: 20, bands }));
  assert.deepEqual([json.taken, json.total], [15, 17]);
  assert.deepEqual(json.notes, [{ key: "import.note.surplus", values: { count: 2 } }]);
});

// ---- the values ----

const bandsOf = (text) => read(text).setting?.bands ?? [];

test("each type of parametric text is one of the bands' types", () => {
  const rows = /** @type {[string, number][]} */ ([
    ["PK", 0],
    ["LS", 1],
    ["LSC", 1],
    ["HS", 2],
    ["HSC", 2],
    ["LP", 3],
    ["LPQ", 3],
    ["HP", 4],
    ["HPQ", 4],
    ["BP", 5],
    ["NO", 7],
    ["AP", 8],
  ]);
  for (const [word, type] of rows) {
    const [band] = bandsOf(`Filter 1: ON ${word} Fc 123 Hz Gain -2.5 dB Q 1.3`);
    assert.deepEqual(band, { type, freq_hz: 123, gain_db: -2.5, q: 1.3 }, word);
    const [plain] = bandsOf(`Filter 1: ON ${word} Fc 123 Hz Gain -2.5 dB`);
    assert.deepEqual(plain, { type, freq_hz: 123, gain_db: -2.5, q: 0.7071 }, word);
  }
});

test("numbers are read in the ways that people and programs write them", () => {
  const rows = /** @type {[string, number, number, number][]} */ ([
    ["Fc 105 Hz Gain 3.5 dB Q 0.70", 105, 3.5, 0.7],
    ["Fc 105,5 Gain -3,5 Q 0,707", 105.5, -3.5, 0.707],
    ["Fc 1.5 kHz Gain 3dB Q 1,414", 1500, 3, 1.414],
    ["Fc 1.5k Gain +3 dB Q .5", 1500, 3, 0.5],
    ["Fc 1,250 kHz Gain 3 dB Q 5.", 1250, 3, 5],
    ["Fc 20000,5e-1 Hz Gain 3 dB Q 1", 2000.05, 3, 1],
    ["Fc 100.000 Hz Gain 3.500 dB Q 1.000", 100, 3.5, 1],
    ["Fc １０５ Hz， Gain ٣٫٥ dB، Q ۰٫۷", 105, 3.5, 0.7],
    ["Fc 105.123456 Hz Gain 3.14159265 dB Q 0.70710678", 105.123, 3.14159, 0.707107],
  ]);
  for (const [text, frequency, gain, q] of rows) {
    const [band] = bandsOf(`Filter 1: ON PK ${text}`);
    assert.deepEqual(band, { type: 0, freq_hz: frequency, gain_db: gain, q }, text);
  }
});

test("a bandwidth in octaves becomes the Q with the same edges", () => {
  for (const octaves of [0.1, 0.5, 1, 2, 4]) {
    const [{ q }] = bandsOf(`Filter 1: ON PK Fc 1000 Hz Gain 6 dB BW Oct ${octaves}`);
    // The edges of a band pass of this Q, at half the power, are this far apart.
    const half = Math.sqrt(1 + 1 / (4 * q * q));
    const apart = Math.log2((half + 1 / (2 * q)) / (half - 1 / (2 * q)));
    assert.ok(Math.abs(apart - octaves) < 1e-4, `${octaves}: ${apart}`);
  }
});

test("bands that a text does not have are flat, as in a new record", () => {
  const { setting } = read("Filter 1: ON PK Fc 105 Hz Gain 3.5 dB Q 0.7");
  assert.equal(setting?.bypass, false);
  assert.equal(setting?.fade_ms, 20);
  assert.deepEqual(setting?.bands[1], { type: 0, freq_hz: 32.7579, gain_db: 0, q: 0.707 });
  assert.deepEqual(setting?.bands[14], { type: 0, freq_hz: 20000, gain_db: 0, q: 0.707 });
});

test("bands of the own form that are not taken keep the places of the others", () => {
  const band = (gain) => ({ type: 0, freq_hz: 100, gain_db: gain, q: 1 });
  const bands = [band(1), band(31), band(3)];
  const { setting, taken } = read(JSON.stringify({ bypass: true, fade_ms: 5, bands }));
  assert.equal(taken, 2);
  assert.deepEqual(
    setting?.bands.slice(0, 4).map(({ gain_db: gain }) => gain),
    [1, 0, 3, 0],
  );
  assert.deepEqual([setting?.bypass, setting?.fade_ms], [true, 5]);
});

test("a graphic curve is fitted, with the errors of the fit", () => {
  const text = "Preamp: -4 dB\nGraphicEQ: 25 0; 63 4; 160 0; 400 -3; 1000 0; 10000 3";
  const { setting, fit, taken, kind, preampDb } = readImport(text);
  assert.deepEqual([kind, taken, preampDb], ["graphic", 6, -4]);
  assert.ok(setting !== null && fit !== undefined);
  assert.deepEqual(brokenRules(setting), []);
  assert.ok(setting.bands.some(({ gain_db: gain }) => gain > 2));
  assert.ok(fit.maximumDb > 0 && fit.maximumDb < 1.5, `${fit.maximumDb}`);
  assert.ok(fit.rmsDb > 0 && fit.rmsDb < fit.maximumDb, `${fit.rmsDb}`);
});

test("the fit gets each frequency once, and the rate", () => {
  const calls = [];
  const fit = (points, rate) => {
    calls.push({ points, rate });
    return quickFit();
  };
  readImport("GraphicEQ: 1000 3; 100 -1; 1000 5; 10 3", { steps: 0 }, { rate: 44100, fit });
  const points = [
    { frequency: 1000, db: 3 },
    { frequency: 100, db: -1 },
  ];
  assert.deepEqual(calls, [{ points, rate: 44100 }]);
});

test("a long line is shown by its start", () => {
  const [dropped] = read(`${"long ".repeat(1000)}`).dropped;
  assert.ok(dropped.text.length < 200 && dropped.text.endsWith("…"), dropped.text);
});

// ---- damaged texts ----

// Lines as a person counts them, found without the reader's own code. JSON has no comments.
function linesToAccountFor(text, kind) {
  const skipped = kind === "json" ? /^\s*$/u : /^\s*(?:[#;]|$)/u;
  return text.split(/\r\n|\r|\n/).flatMap((line, index) => (skipped.test(line) ? [] : [index + 1]));
}

function assertAccounted(text, result) {
  const wanted = linesToAccountFor(text, result.kind);
  const listed = new Set(result.dropped.map(({ line }) => line));
  const rest = wanted.filter((line) => !listed.has(line));
  const preamps = result.preampDb === null ? 0 : 1;
  if (result.kind === "graphic") {
    // The line with the pairs is listed too where some of its pairs are.
    const hasOpenLine =
      result.taken > 0 && !result.dropped.some(({ reason }) => reason.key.endsWith(".pair"));
    assert.equal(rest.length, preamps + Number(hasOpenLine));
  } else assert.equal(rest.length, result.taken + preamps);
  const known = new Set(wanted);
  assert.ok([...listed].every((line) => known.has(line)));
}

function parseOrUndefined(text) {
  try {
    return JSON.parse(text.replace(/^\ufeff/, ""));
  } catch {
    return undefined;
  }
}

// Each member and each band of a document is taken or listed.
function assertJsonAccounted(document, result) {
  const isObject = typeof document === "object" && document !== null && !Array.isArray(document);
  if (!isObject) {
    assert.equal(result.dropped.length, 1);
    return;
  }
  const bands = Array.isArray(document.bands) ? document.bands : [];
  const refused = result.dropped.filter(
    ({ reason }) =>
      !/\.(?:member|noYesNo|noBands|bands)/.test(reason.key) &&
      reason.values.field?.key !== "import.field.fade",
  );
  // A second member of a name hides the first for JSON.parse, but not for the service.
  if (result.dropped.some(({ reason }) => reason.key.endsWith(".memberTwice"))) return;
  assert.equal(result.total, bands.length);
  assert.equal(result.taken + refused.length, bands.length);
  const strangers = Object.keys(document).filter((name) => !["bypass", "fade_ms", "bands"].includes(name));
  const unknown = result.dropped.filter(({ reason }) => reason.key.endsWith(".memberUnknown"));
  assert.ok(unknown.length >= strangers.length);
}

function check(text, result) {
  assert.ok(["json", "parametric", "graphic", "none"].includes(result.kind));
  assert.ok(result.taken <= result.total);
  if (result.setting !== null) assert.deepEqual(brokenRules(result.setting), []);
  assert.equal(result.setting === null, result.taken === 0);
  const { preampDb } = result;
  if (preampDb !== null)
    assert.ok(preampDb >= -60 && preampDb <= 20 && Number(preampDb.toFixed(1)) === preampDb);
  assert.ok(result.dropped.every(({ line }, index) => index === 0 || line >= result.dropped[index - 1].line));
  const document = result.kind === "json" ? parseOrUndefined(text) : undefined;
  if (document === undefined) assertAccounted(text, result);
  else assertJsonAccounted(document, result);
}

test("10,000 damaged texts: no exception, each line is taken or listed, each setting is within the rules", () => {
  const texts = corpus.map(({ bytes }) => new TextDecoder("utf-8").decode(bytes));
  const random = makeRandom(20240229);
  const seen = new Map();
  const count = (what) => seen.set(what, (seen.get(what) ?? 0) + 1);
  for (let round = 0; round < 10000; ++round) {
    const text = mutateText(texts[random(texts.length)], texts[random(texts.length)], random);
    const bytes = encodeText(text, random);
    const decoded = decodeText(bytes);
    // A pasted text is not decoded, and may have any characters.
    for (const one of "error" in decoded ? [text] : [text, decoded.text]) {
      try {
        const result = read(one);
        check(one, result);
        count(`${result.kind} ${result.setting === null ? "nothing" : "setting"}`);
      } catch (error) {
        throw new Error(`round ${round}: ${JSON.stringify(one)}`, { cause: error });
      }
    }
    if ("error" in decoded) count(decoded.error.key);
  }
  // Otherwise the changes were too wild, or too tame, to test anything.
  for (const what of [
    "json setting",
    "parametric setting",
    "graphic setting",
    "none nothing",
    "json nothing",
  ])
    assert.ok(seen.get(what) > 150, `${what}: ${seen.get(what)}`);
  assert.ok(seen.get("import.error.binary") > 100);
});

test("damaged graphic curves are fitted within the rules", () => {
  const texts = corpus
    .filter(({ name }) => name.startsWith("graphic_"))
    .map(({ bytes }) => Buffer.from(bytes).toString());
  const random = makeRandom(7);
  let fitted = 0;
  for (let round = 0; round < 40; ++round) {
    const text = mutateText(texts[random(texts.length)], texts[random(texts.length)], random);
    const result = readImport(text);
    check(text, result);
    if (result.fit !== undefined) {
      ++fitted;
      assert.ok(Number.isFinite(result.fit.maximumDb) && result.fit.rmsDb <= result.fit.maximumDb, text);
    }
  }
  assert.ok(fitted > 10, `${fitted}`);
});

// ---- work ----

test("the work grows with the length of the text, and no faster", () => {
  const sizes = [1 << 8, 1 << 14, 1 << 20];
  for (const { name, make } of shapes) {
    for (const size of sizes) {
      const text = make(size);
      const counter = { steps: 0 };
      readImport(text, counter, { fit: quickFit });
      assert.ok(counter.steps >= text.length, `${name}, ${size}: ${counter.steps}`);
      assert.ok(counter.steps <= 8 * text.length + 100, `${name}, ${size}: ${counter.steps / text.length}`);
    }
  }
});
