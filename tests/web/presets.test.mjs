// Presets: what the starters do to the sound, names, and renaming on systems that do and do not tell case apart.
import assert from "node:assert/strict";
import test from "node:test";

import { bandRanges, readSetting } from "../../web/src/model/equalizer.js";
import {
  copiesAfter,
  freeName,
  isSameContents,
  isSameFile,
  isServiceName,
  nameProblem,
  readContents,
  renameSteps,
  sameName,
  shownName,
  sortedNames,
  starterNamed,
  starters,
  takeSteps,
} from "../../web/src/model/presets.js";
import { tables } from "../../web/src/texts/index.js";

const rate = 48000;

/** The gain of one band in decibels, by complex evaluation of its transfer function. */
function gainOf({ type, freq_hz: center, gain_db: gain, q }, frequency) {
  const a = 10 ** (gain / 40);
  const w = (2 * Math.PI * center) / rate;
  const alpha = Math.sin(w) / (2 * q);
  const cos = Math.cos(w);
  const slope = 2 * Math.sqrt(a) * alpha;
  const side = type === 1 ? 1 : -1;
  const shelf = (sign) => [
    a + 1 + sign * side * (a - 1) * cos + slope,
    -2 * sign * side * (a - 1 + sign * side * (a + 1) * cos),
    a + 1 + sign * side * (a - 1) * cos - slope,
  ];
  const top = type === 0 ? [1 + alpha * a, -2 * cos, 1 - alpha * a] : shelf(-1).map((value) => value * a);
  const bottom = type === 0 ? [1 + alpha / a, -2 * cos, 1 - alpha / a] : shelf(1);
  const power = (factors) => {
    const angle = (2 * Math.PI * frequency) / rate;
    const real = factors.reduce((sum, factor, index) => sum + factor * Math.cos(index * angle), 0);
    const imaginary = factors.reduce((sum, factor, index) => sum - factor * Math.sin(index * angle), 0);
    return real ** 2 + imaginary ** 2;
  };
  return 10 * Math.log10(power(top) / power(bottom));
}

const sumAt = ({ bands }, frequency) => bands.reduce((sum, band) => sum + gainOf(band, frequency), 0);

test("the formula of this test gives a shelf its gain at its end, and half of it at its corner", () => {
  for (const [type, end] of [
    [1, 1],
    [2, 23990],
  ]) {
    const band = { type, freq_hz: 1000, gain_db: 6, q: 0.7071 };
    assert.ok(Math.abs(gainOf(band, end) - 6) < 0.01, `${type}`);
    assert.ok(Math.abs(gainOf(band, 1000) - 3) < 0.01, `${type}`);
  }
});

test("the starters are whole settings with few bands, and none lifts anything by more than 6 dB", () => {
  assert.deepEqual(
    starters.map(({ name }) => name),
    ["flat", "moreBass", "clearerVoices", "softerTreble", "night"],
  );
  for (const { name, setting } of starters) {
    assert.deepEqual(readSetting(setting), setting, name);
    assert.ok(Object.hasOwn(tables.en, `starter.${name}`), name);
    assert.equal(setting.bypass, false);
    const used = setting.bands.filter(({ gain_db: gain }) => gain !== 0);
    assert.equal(used.length > 0, name !== "flat", name);
    assert.ok(used.length <= 4, name);
    for (const band of setting.bands) {
      for (const [key, { minimum, maximum }] of Object.entries(bandRanges))
        assert.ok(band[key] >= minimum && band[key] <= maximum, `${name} ${key}`);
    }
    let peak = 0;
    for (let step = 0; step <= 600; ++step) peak = Math.max(peak, sumAt(setting, 20 * 1000 ** (step / 600)));
    assert.ok(peak <= 6, `${name}: ${peak}`);
  }
});

test("each starter does what its name says", () => {
  const settings = Object.fromEntries(starters.map(({ name, setting }) => [name, setting]));
  const at = (name, frequency) => sumAt(settings[name], frequency);
  assert.equal(at("flat", 1000), 0);
  assert.ok(at("moreBass", 50) > 4);
  assert.ok(Math.abs(at("moreBass", 2000)) < 0.5);
  assert.ok(at("clearerVoices", 2800) > 3);
  assert.ok(at("clearerVoices", 60) < -2);
  assert.ok(at("softerTreble", 12000) < -3);
  assert.ok(Math.abs(at("softerTreble", 500)) < 0.5);
  assert.ok(at("night", 40) < -5);
  assert.ok(at("night", 15000) < -2);
  assert.ok(at("night", 1800) > 1);
  for (const { name, setting } of starters) assert.equal(starterNamed(name)?.setting, setting);
  assert.equal(starterNamed("__proto__"), undefined);
});

test("names that the service accepts, and those that it does not", () => {
  const good = [
    "normal",
    "with-dash_1",
    "with space",
    "夜晚",
    "a".repeat(64),
    "字".repeat(21),
    "NUL",
    "é",
    "\u00a0a",
  ];
  const bad = [
    "",
    ".",
    "..",
    "../a",
    "a.b",
    "a/b",
    "a\\b",
    "a:b",
    "a*b",
    'a"b',
    "a<b",
    "a|b",
    "a\nb",
    "a\u007fb",
  ];
  bad.push("a ", " a", "a".repeat(65), "字".repeat(22), "a\ud800", "\udc00");
  for (const name of good) assert.equal(isServiceName(name), true, name);
  for (const name of bad) assert.equal(isServiceName(name), false, name);
});

test("each problem of a name has its sentence", () => {
  const rows = /** @type {[string, string | null, Record<string, unknown>?][]} */ ([
    ["Bass", null],
    ["更多低音 2", null],
    ["字".repeat(21), null],
    ["a".repeat(64), null],
    ["__proto__", null],
    ["Console", null],
    ["COM10", null],
    ["nul 2", null],
    ["👩‍🚀", null],
    ["", "empty", {}],
    ["   ", "empty", {}],
    ["\u3000", "empty", {}],
    [" a", "blank", {}],
    ["a ", "blank", {}],
    ["a\u3000", "blank", {}],
    ["a\u00a0", "blank", {}],
    ["a.b", "character", { character: "." }],
    ["a/b", "character", { character: "/" }],
    ["a，b", null],
    ["a\tb", "character", { character: "U+0009" }],
    ["a\u202eb", "character", { character: "U+202E" }],
    ["a\u200bb", "character", { character: "U+200B" }],
    ["a\u0085b", "character", { character: "U+0085" }],
    ["a\ud83d", "character", { character: "U+D83D" }],
    ["a".repeat(65), "long", { bytes: 65, most: 64 }],
    ["字".repeat(22), "long", { bytes: 66, most: 64 }],
    ["con", "reserved", { name: "con" }],
    ["NUL", "reserved", { name: "NUL" }],
    ["Aux", "reserved", { name: "Aux" }],
    ["prn", "reserved", { name: "prn" }],
    ["com1", "reserved", { name: "com1" }],
    ["LPT9", "reserved", { name: "LPT9" }],
    ["COM¹", "reserved", { name: "COM¹" }],
  ]);
  for (const [name, problem, values] of rows) {
    const found = nameProblem(name);
    if (problem === null) assert.equal(found, null, name);
    else assert.deepEqual(found, { key: `preset.name.${problem}`, values }, JSON.stringify(name));
    if (found !== null) assert.ok(Object.hasOwn(tables.en, found.key), found.key);
    // What the page lets through, the service accepts.
    if (found === null) assert.ok(isServiceName(name), name);
  }
});

test("names that differ in case are one, in each alphabet, and only those", () => {
  const same = [
    ["Bass", "bASS"],
    ["Größe", "GRÖßE"],
    ["ночь", "НОЧЬ"],
    ["夜晚 A", "夜晚 a"],
    ["ÿ", "Ÿ"],
  ];
  const others = [
    ["Bass", "Bass 2"],
    ["ß", "SS"],
    ["ı", "I"],
    ["ſ", "S"],
    ["\u{10400}", "\u{10428}"],
    ["é", "e\u0301"],
    ["İ", "i"],
  ];
  for (const [one, other] of same) assert.ok(isSameFile(one, other) && isSameFile(other, one), one);
  for (const [one, other] of others) assert.ok(!isSameFile(one, other) && !isSameFile(other, one), one);
  assert.equal(sameName(["bass", "Bass"], "Bass"), "Bass");
  assert.equal(sameName(["night", "bass"], "Bass"), "bass");
  assert.equal(sameName(["night"], "Bass"), undefined);
  assert.equal(sameName([], "__proto__"), undefined);
});

test("a free name is the wished one, or has a number, and is never too long", () => {
  assert.equal(freeName([], "More bass"), "More bass");
  assert.equal(freeName(["more BASS"], "More bass"), "More bass 2");
  assert.equal(freeName(["More bass", "more bass 2"], "More bass"), "More bass 3");
  const long = "字".repeat(21);
  assert.equal(freeName([long], long), `${"字".repeat(20)} 2`);
  const taken = [long, ...Array.from({ length: 120 }, (_, index) => `${"字".repeat(20)} ${index}`)];
  const free = freeName(taken, long);
  assert.equal(nameProblem(free), null, free);
  assert.ok(!taken.includes(free), free);
  const emoji = "🎧".repeat(16);
  assert.equal(nameProblem(freeName([emoji], emoji)), null);
  assert.equal(freeName([], "a".repeat(80)), `${"a".repeat(62)} 2`);
});

test("a name cannot turn or hide the words around it", () => {
  assert.equal(shownName("Bass 夜晚 👩‍🚀"), "Bass 夜晚 👩‍🚀");
  assert.equal(shownName("a\u202eb\u2066c\nd"), "a\ufffdb\ufffdc\ufffdd");
  assert.equal(shownName("לילה"), "\u2068לילה\u2069");
  assert.equal(shownName("\u2069לילה"), "\u2068\ufffdלילה\u2069");
  assert.equal(shownName("\ud800"), "\ufffd");
});

test("names are sorted as a person expects, and whatever is no name is left out", () => {
  assert.deepEqual(sortedNames(["b 10", "b 2", "A", "b 2", 7, null, "", "a"], "en"), [
    "a",
    "A",
    "b 2",
    "b 10",
  ]);
  assert.deepEqual(sortedNames(["夜晚", "低音", "A"], "zh-CN").length, 3);
  assert.deepEqual(sortedNames(["__proto__", "constructor"], "en"), ["__proto__", "constructor"]);
  for (const odd of [undefined, null, "text", {}, 7]) assert.deepEqual(sortedNames(odd, "en"), []);
});

test("contents are compared as precisely as a file keeps them", () => {
  const { setting } = starters[1];
  const edited = (index, values) => ({
    ...setting,
    bands: setting.bands.map((band, at) => (at === index ? { ...band, ...values } : band)),
  });
  assert.ok(isSameContents(setting, edited(1, { freq_hz: 32.7578773 })));
  assert.ok(isSameContents(edited(2, { freq_hz: 1000.125 }), edited(2, { freq_hz: 1000.12 })));
  for (const values of [
    { freq_hz: 32.77 },
    { gain_db: 0.1 },
    { gain_db: -0.0001 },
    { q: 0.7072 },
    { type: 3 },
  ])
    assert.ok(!isSameContents(setting, edited(1, values)), JSON.stringify(values));
  assert.ok(!isSameContents(setting, { ...setting, bypass: true }));
  assert.ok(!isSameContents(setting, { ...setting, fade_ms: 21 }));
});

test("a file counts only where the equalizer can take it", () => {
  const { setting } = starters[1];
  const edited = (values) => ({
    ...setting,
    bands: [{ ...setting.bands[0], ...values }, ...setting.bands.slice(1)],
  });
  assert.deepEqual(readContents(setting), setting);
  assert.equal(readContents(edited({ freq_hz: 32.7578773 }))?.bands[0].freq_hz, 32.7579);
  assert.equal(readContents({ ...setting, more: 1 })?.bypass, false);
  for (const values of [
    { type: 9 },
    { type: 0.5 },
    { type: -1 },
    { gain_db: 31 },
    { freq_hz: 19 },
    { q: 0 },
    { q: "1" },
  ])
    assert.equal(readContents(edited(values)), undefined, JSON.stringify(values));
  for (const odd of [null, undefined, 7, "{}", [], {}, { ...setting, fade_ms: 0 }, { ...setting, bands: [] }])
    assert.equal(readContents(odd), undefined);
});

// ---- renaming ----

/** A preset folder. Where it ignores case, a file keeps the name that it was made with. */
class Folder {
  constructor(ignoresCase, files) {
    this.ignoresCase = ignoresCase;
    this.files = new Map(Object.entries(files));
  }

  find(name) {
    return this.ignoresCase
      ? sameName([...this.files.keys()], name)
      : this.files.has(name)
        ? name
        : undefined;
  }

  put(name, contents) {
    this.files.set(this.find(name) ?? name, contents);
  }

  remove(name) {
    return this.files.delete(this.find(name));
  }

  names() {
    return [...this.files.keys()];
  }
}

/**
 * Renames; the request with the number `failing` fails. A write that fails leaves half a file, or none.
 */
async function rename(folder, from, to, failing, leavesHalf) {
  const steps = renameSteps(folder.names(), from, to);
  const contents = folder.files.get(from);
  let count = 0;
  const done = await takeSteps(steps, {
    async write(name) {
      const fails = count++ === failing;
      if (!fails || leavesHalf) folder.put(name, fails ? "half" : contents);
      return !fails;
    },
    async check(name) {
      return count++ !== failing && folder.files.get(folder.find(name)) === contents;
    },
    async delete(name) {
      return count++ !== failing && folder.remove(name);
    },
  });
  return { steps, done, copies: copiesAfter(from, done) };
}

const renames = [
  { from: "bass", to: "More bass", files: { bass: "B", night: "N" } },
  { from: "bass", to: "Bass", files: { bass: "B", night: "N" } },
  { from: "bass", to: "Bass", files: { bass: "B", "Bass 2": "2", "bass 3": "3" } },
  { from: "ночь", to: "Ночь", files: { ночь: "B" } },
  { from: "a".repeat(64), to: "A".repeat(64), files: { ["a".repeat(64)]: "B" } },
  // The person has agreed to replace it.
  { from: "bass", to: "night", files: { bass: "B", night: "N" } },
  { from: "bass", to: "Bass", files: { bass: "B", Bass: "N" }, onlyWhereCaseCounts: true },
];

test("a rename moves the file, and touches no other", async () => {
  for (const { from, to, files, onlyWhereCaseCounts = false } of renames) {
    for (const ignoresCase of onlyWhereCaseCounts ? [false] : [false, true]) {
      const folder = new Folder(ignoresCase, files);
      const { steps, done, copies } = await rename(folder, from, to, -1, false);
      assert.equal(done.length, steps.length);
      assert.deepEqual(copies, [to]);
      const others = Object.entries(files).filter(([name]) => name !== from && name !== to);
      assert.deepEqual(Object.fromEntries(folder.files), { ...Object.fromEntries(others), [to]: "B" });
    }
  }
  assert.deepEqual(renameSteps(["a"], "a", "a"), []);
});

test("wherever a rename fails, a whole copy is where the page says", async () => {
  let failures = 0;
  for (const { from, to, files, onlyWhereCaseCounts = false } of renames) {
    for (const ignoresCase of onlyWhereCaseCounts ? [false] : [false, true]) {
      for (const leavesHalf of [false, true]) {
        for (let failing = 0; failing < renameSteps(Object.keys(files), from, to).length; ++failing) {
          const folder = new Folder(ignoresCase, files);
          const { done, copies } = await rename(folder, from, to, failing, leavesHalf);
          assert.equal(done.length, failing);
          assert.ok(copies.length > 0);
          for (const name of copies)
            assert.equal(folder.files.get(name), "B", `${from} to ${to}, ${failing}`);
          for (const name of folder.names().filter((one) => one !== to && Object.hasOwn(files, one)))
            assert.equal(folder.files.get(name), files[name], name);
          ++failures;
        }
      }
    }
  }
  assert.ok(failures > 60, `${failures}`);
});

test("a rename in case only would lose the preset without its third name", async () => {
  const folder = new Folder(true, { bass: "B" });
  folder.put("Bass", "B");
  folder.remove("bass");
  assert.deepEqual(folder.names(), []);
});

test("the third name is free whatever the case", () => {
  const steps = renameSteps(["bass", "BASS 2", "bass 3"], "bass", "Bass");
  assert.deepEqual(
    steps.map(({ act, name }) => `${act} ${name}`),
    ["write Bass 4", "check Bass 4", "delete bass", "write Bass", "check Bass", "delete Bass 4"],
  );
});
