// The diagnostics: each value of the status document has a name, a group and words, and changes are seen.
import assert from "node:assert/strict";
import fs from "node:fs";
import test from "node:test";

import {
  diagnosticsGroups,
  formatSentence,
  groupKinds,
  isFound,
  markChanges,
  markOf,
  noMarks,
  pathsOf,
} from "../../web/src/model/diagnostics.js";
import { saySentence, tables } from "../../web/src/texts/index.js";
import { collected, collectedNames } from "./states.mjs";

const languages = /** @type {const} */ (["en", "zh"]);
const kinds = Object.assign({}, ...Object.values(groupKinds));
const namedPaths = Object.keys(kinds);

/** The paths of the status document by its description in docs/api.md. */
function documentedPaths() {
  const text = fs.readFileSync(new URL("../../docs/api.md", import.meta.url), "utf8");
  const begin = text.indexOf("\n## `GET /api/v1/status`");
  const section = text.slice(begin, text.indexOf("\n## ", begin + 4));
  /** @type {string[]} */
  const paths = [];
  let object = "";
  for (const line of section.split("\n")) {
    const heading = /^`(\w+)`(?:,| is what)/.exec(line);
    if (heading !== null) object = `${heading[1]}.`;
    const row = /^\| (`[^|]*`) \|/.exec(line);
    if (row === null) continue;
    const keys = [...row[1].matchAll(/`([\w.]+)`/g)].map(([, key]) => key);
    // One table has members of the document itself and of an object, with their whole names.
    const isWhole = keys.some((key) => key.includes(".") || key.startsWith("control_bridge"));
    paths.push(...keys.map((key) => (isWhole ? key : object + key)));
  }
  return paths;
}

function statusDocuments() {
  return collectedNames().flatMap((name) => {
    const { before, now, change } = collected(name);
    return [before, now, change?.first].filter((document) => document !== undefined && document !== null);
  });
}

const rowOf = (status, path) =>
  diagnosticsGroups(status)
    .flatMap(({ rows }) => rows)
    .find((row) => row.path === path);

const said = (language, shown) => [
  saySentence(language, shown.text),
  shown.note === null ? "" : saySentence(language, shown.note),
];

test("each member of the described status document has a kind, and no other", () => {
  const documented = documentedPaths();
  assert.equal(documented.length, new Set(documented).size);
  assert.equal(documented.length, 106);
  assert.deepEqual(
    documented.filter((path) => !Object.hasOwn(kinds, path)),
    [],
  );
  assert.deepEqual(
    namedPaths.filter((path) => !documented.includes(path)),
    [],
  );
});

test("each member of the collected status documents has a name in both languages", () => {
  const documents = statusDocuments();
  assert.ok(documents.length > 100, `${documents.length}`);
  for (const document of documents) {
    const paths = pathsOf(document);
    assert.ok(paths.length > 90, `${paths.length}`);
    for (const path of paths) {
      assert.ok(Object.hasOwn(kinds, path), path);
      for (const language of languages) assert.ok(Object.hasOwn(tables[language], `value.${path}`), path);
    }
  }
});

test("each name and each group's title belongs to something, and no two names are alike", () => {
  for (const language of languages) {
    const keys = Object.keys(tables[language]);
    const names = keys.filter((key) => key.startsWith("value."));
    assert.deepEqual(names.map((key) => key.slice(6)).sort(), [...namedPaths].sort());
    assert.equal(new Set(names.map((key) => tables[language][key])).size, names.length);
    const titles = keys.filter((key) => key.startsWith("diagnostics.group."));
    assert.deepEqual(titles.map((key) => key.slice(18)).sort(), [...Object.keys(groupKinds), "other"].sort());
  }
});

test("all values are shown, each once, in both languages", () => {
  for (const document of statusDocuments()) {
    const rows = diagnosticsGroups(document).flatMap((group) => group.rows);
    assert.equal(rows.length, 106);
    for (const { path, shown, name } of rows) {
      for (const language of languages) {
        const [text] = said(language, shown);
        assert.notEqual(text, "", path);
        assert.doesNotMatch(said(language, shown).join(" "), /undefined|diagnostics\./, path);
        assert.notEqual(saySentence(language, name), name.key, path);
      }
    }
  }
});

const report = (values) => ({ apo_diagnostics: values });

test("values are shown in words and units", () => {
  const rows = /** @type {[object, string, string, string][]} */ ([
    [{ render: { volume: 0.75 } }, "render.volume", "75 %", "0.75"],
    [{ render: { muted: true } }, "render.muted", "Yes", ""],
    [{ render: { error_code: 0 } }, "render.error_code", "no error", "0"],
    [
      { render: { error_code: -2147024891 } },
      "render.error_code",
      "access denied (5)",
      "0x80070005 · −2147024891",
    ],
    [{ render: { error_code: -3 } }, "render.error_code", "not in this list", "0xFFFFFFFD · −3"],
    [{ footstep: { output_trim_db: -2.5 } }, "footstep.output_trim_db", "−2.5 dB", ""],
    [report({ lock_input_sample_rate: 44100 }), "apo_diagnostics.lock_input_sample_rate", "44100 Hz", ""],
    [report({ lock_stage: 8 }), "apo_diagnostics.lock_stage", "8", "the effect's own number"],
    [report({ pipeline_mode: 2 }), "apo_diagnostics.pipeline_mode", "2", "the effect's own number"],
    [report({ capture_state: 5 }), "apo_diagnostics.capture_state", "5", "the effect's own number"],
    [
      report({ last_algorithm_error: -7 }),
      "apo_diagnostics.last_algorithm_error",
      "−7",
      "the algorithm's own number",
    ],
    [
      report({ capture_detail_code: -2147483648 }),
      "apo_diagnostics.capture_detail_code",
      "−2147483648",
      "0x80000000, the effect's own number",
    ],
    [
      report({ locked_mode_mask: 0x8006 }),
      "apo_diagnostics.locked_mode_mask",
      "1, 2, 15",
      "0x8006, the effect's own numbers",
    ],
    [
      report({ locked_mode_mask: 0 }),
      "apo_diagnostics.locked_mode_mask",
      "none",
      "0x0000, the effect's own numbers",
    ],
    [
      report({ applied_strength: "nan" }),
      "apo_diagnostics.applied_strength",
      "nan",
      "not of the expected kind",
    ],
    [{ apo_host: { apo_dll_path: "" } }, "apo_host.apo_dll_path", "none", ""],
    [{ apo_binding: { chain: ["{A}", "{B}"] } }, "apo_binding.chain", "{A}\n{B}", ""],
    [{ apo_binding: { chain: [] } }, "apo_binding.chain", "none", ""],
    [{ session: { usage_seconds: 7500 } }, "session.usage_seconds", "2 h 5 min", "7500 s"],
    [
      { session: { signed_in_unix: 1773515040 } },
      "session.signed_in_unix",
      "2026-03-14 19:04 UTC",
      "1773515040",
    ],
    [{ session: { signed_in_unix: 0 } }, "session.signed_in_unix", "none", "0"],
    [{}, "render.volume", "not in the answer", ""],
  ]);
  for (const [status, path, text, note] of rows) {
    assert.deepEqual(said("en", rowOf(status, path)?.shown), [text, note], path);
  }
});

test("what only the effect can explain stays a number and is called the effect's own", () => {
  const own = Object.keys(kinds).filter((path) =>
    /_stage|_structure|_mode(_mask)?$|capture_state|_type$/.test(path),
  );
  assert.equal(own.length, 11);
  for (const path of own) {
    assert.match(kinds[path], /^(?:own|mask)$/, path);
    const [, key] = path.split(".");
    for (const value of [0, 1, 2, 9, 4096]) {
      const shown = rowOf(report({ [key]: value }), path)?.shown;
      for (const language of languages) {
        assert.match(said(language, shown)[0], /^(?:[\d, ]+|none|无)$/, path);
        assert.match(said(language, shown)[1], /the effect's own number|音效自定义的数字/, path);
      }
    }
  }
});

test("the registry value is information with its whole path", () => {
  for (const value of [true, false]) {
    const shown = rowOf(
      { apo_host: { protected_audio_dg_disabled: value } },
      "apo_host.protected_audio_dg_disabled",
    )?.shown;
    assert.deepEqual(said("en", shown), [
      value ? "Yes" : "No",
      "For information: HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Audio, DisableProtectedAudioDG",
    ]);
  }
});

test("every result is a result, and no other value is", () => {
  const results = namedPaths.filter((path) => kinds[path] === "result");
  assert.deepEqual(results.sort(), [
    "apo_binding.error_code",
    "apo_diagnostics.initialize_hresult",
    "apo_diagnostics.lock_hresult",
    "audio_engine.error_code",
    "render.error_code",
  ]);
});

test("the version of a file that does not exist is in words, and any other text as it came", () => {
  const shownOf = (/** @type {string} */ algorithm) =>
    rowOf({ versions: { algorithm } }, "versions.algorithm")?.shown;
  assert.deepEqual(said("en", shownOf("not found")), ["file not found", ""]);
  assert.deepEqual(said("zh", shownOf("not found")), ["未找到文件", ""]);
  for (const text of ["1.2.0", "unavailable", "not found "])
    assert.deepEqual(said("zh", shownOf(text)), [text, ""]);
});

test("formats in one line", () => {
  const lock = {
    lock_input_sample_rate: 48000,
    lock_input_channels: 2,
    lock_input_valid_bits: 24,
    lock_input_container_bytes: 4,
  };
  assert.equal(
    saySentence("en", formatSentence(report(lock), "input")),
    "Input: 48000 Hz, 2 channels, 24 of 32 bits used",
  );
  assert.equal(saySentence("en", formatSentence(report(lock), "output")), "Output: no format");
  assert.equal(saySentence("zh", formatSentence(null, "input")), "输入：无格式");
});

test("a document that is not as it should be shows what it has", () => {
  const odd = [null, 7, "x", [], {}, true, [1], { a: [] }, NaN];
  for (const value of [...odd, undefined]) {
    assert.ok(diagnosticsGroups(value).length >= Object.keys(groupKinds).length);
    for (const path of namedPaths) {
      const keys = path.split(".");
      const status = keys.length === 1 ? { [path]: value } : { [keys[0]]: { [keys[1]]: value } };
      for (const { rows } of diagnosticsGroups(status)) {
        for (const row of rows)
          for (const language of languages) assert.ok(said(language, row.shown)[0] !== "");
      }
    }
  }
  const row = rowOf({ render: { volume: { deep: 1 } } }, "render.volume.deep");
  assert.equal(row?.kind, "unknown");
});

test("values without a name are shown below their API name", () => {
  const status = { render: { volume: 1, loudness: 3 }, new: "x", __proto__: null, list: [1] };
  const other = diagnosticsGroups(status).find(({ id }) => id === "other");
  assert.deepEqual(
    other?.rows.map(({ path, name, shown }) => [path, saySentence("en", name), said("zh", shown)[0]]),
    [
      ["render.loudness", "render.loudness", "3"],
      ["new", "new", "x"],
      ["list", "list", "[1]"],
    ],
  );
  assert.equal(diagnosticsGroups(collected("works").now).at(-1)?.id, "account");
});

test("changes are marked until the marking begins again", () => {
  const at = (volume) => diagnosticsGroups({ render: { volume } });
  const volumeOf = (groups) => groups[0].rows.find(({ path }) => path === "render.volume");
  let marks = markChanges(noMarks, at(0.5));
  assert.equal(markOf(marks, volumeOf(at(0.5))), null);
  assert.equal(markChanges(marks, at(0.5)), marks, "nothing new");
  marks = markChanges(marks, at(0.75));
  const mark = markOf(marks, volumeOf(at(0.75)));
  assert.equal(mark?.state, "changed");
  assert.equal(said("en", mark?.was)[0], "50 %");
  marks = markChanges(marks, at(0.5));
  assert.equal(markOf(marks, volumeOf(at(0.5)))?.state, "back");
  assert.equal(markOf(markChanges(noMarks, at(0.75)), volumeOf(at(0.75))), null);
  const appears = markChanges(
    markChanges(noMarks, at(1)),
    diagnosticsGroups({ render: { volume: 1 }, extra: 1 }),
  );
  assert.equal(Object.hasOwn(appears.first, "extra"), true);
});

test("lists count as changed by what they hold", () => {
  const at = (chain) => diagnosticsGroups({ apo_binding: { chain } });
  const rows = at(["{A}", "{B}"]).flatMap((group) => group.rows);
  const row = rows.find(({ path }) => path === "apo_binding.chain");
  assert.ok(row);
  assert.equal(markOf(markChanges(markChanges(noMarks, at(["{A}", "{B}"])), at(["{A}", "{B}"])), row), null);
  assert.equal(
    markOf(markChanges(markChanges(noMarks, at(["{B}", "{A}"])), at(["{A}", "{B}"])), row)?.state,
    "changed",
  );
});

test("a search finds words, API names and values, in any order and case", () => {
  const texts = [
    "Result of the last start",
    "apo_diagnostics.initialize_hresult",
    "access denied (5)",
    "0x80070005",
  ];
  for (const query of [
    "",
    "  ",
    "LAST start",
    "initialize_",
    "start result",
    "denied",
    "80070005",
    "of APO_",
  ]) {
    assert.equal(isFound(texts, query), true, query);
  }
  for (const query of ["stop", "start stop", "0x80070006", ".*", "("]) {
    assert.equal(isFound(texts, query), query === "(", query);
  }
  assert.equal(isFound(["音量", "render.volume"], "音量"), true);
});
