// Words for the results of Windows: the page's table against the table in docs/api.md and against the codes that the
// sources and the documents name.
import assert from "node:assert/strict";
import fs from "node:fs";
import test from "node:test";

import {
  failureOf,
  hexResult,
  isKnownResult,
  resultCodes,
  resultSentence,
} from "../../web/src/model/reasons.js";
import { saySentence, tables } from "../../web/src/texts/index.js";

const root = new URL("../../", import.meta.url);
const read = (/** @type {string} */ path) => fs.readFileSync(new URL(path, root), "utf8");
const languages = /** @type {const} */ (["en", "zh"]);

/** The rows of the table "Result codes". */
function documentedCodes() {
  const text = read("docs/api.md");
  const section = text.slice(text.indexOf("\n## Result codes"));
  const rows = [...section.matchAll(/^\| `(0x[0-9A-F]{8}|\d+)` \| `([A-Z0-9_]+)` \| (.+) \|$/gm)];
  return rows.map(([, code, name, where]) => ({ code: Number(code), name, where }));
}

/** A Win32 error as the API writes it. */
const asStatus = (/** @type {number} */ code) => (code > 0 && code < 0x10000 ? 0x80070000 | code : code) | 0;

test("the table of the documents and that of the page have the same codes", () => {
  const documented = documentedCodes();
  assert.ok(documented.length > 90, `${documented.length} rows`);
  const codes = documented.map(({ code }) => code).filter((code) => code !== 0);
  assert.deepEqual(
    codes.filter((code) => !resultCodes.includes(code)),
    [],
    "without words",
  );
  assert.deepEqual(
    resultCodes.filter((code) => !codes.includes(code)),
    [],
    "not documented",
  );
  assert.equal(new Set(codes).size, codes.length, "each is listed once");
  assert.equal(resultCodes.length, codes.length);
});

test("each row says where its code comes from, by the letters of the table above it", () => {
  const text = read("docs/api.md");
  const section = text.slice(text.indexOf("\n## Result codes"));
  const letters = [...section.matchAll(/^\| ([A-Z]) \| /gm)].map(([, letter]) => letter);
  assert.deepEqual(letters, ["V", "D", "C", "R", "M", "E", "A"]);
  for (const { code, where } of documentedCodes().filter((row) => row.code !== 0)) {
    const named = where.split(/[:;]/)[0].split(", ");
    for (const letter of named) assert.ok(letters.includes(letter), `${code}: ${where}`);
  }
});

test("the codes that a restart and a module list are known for have words", () => {
  const rows = documentedCodes();
  const from = (/** @type {number} */ code) => rows.find((row) => row.code === code)?.where ?? "";
  for (const code of [1051, 1053, 1061, 1068]) {
    assert.match(from(code), /^R/, String(code));
    assert.ok(isKnownResult(asStatus(code)), String(code));
  }
  for (const code of [24, 299]) {
    assert.match(from(code), /^(?:.*, )?M/, String(code));
    assert.ok(isKnownResult(asStatus(code)), String(code));
  }
});

// The mark of a report, and the first values of a checksum, are no results.
const noResults = ["0x80000000"];

test("every status that a document names has words", () => {
  /** @type {string[]} */
  const found = [];
  for (const file of fs.readdirSync(new URL("docs/", root)).filter((name) => name.endsWith(".md"))) {
    for (const [code] of read(`docs/${file}`).matchAll(/\b0x8[0-9A-Fa-f]{7}\b/g)) {
      if (noResults.includes(code)) continue;
      found.push(code);
      assert.ok(isKnownResult(Number(code)), `${file}: ${code}`);
    }
    for (const [code] of read(`docs/${file}`).matchAll(/-2[01]\d{8}\b/g)) {
      found.push(code);
      assert.ok(isKnownResult(Number(code)), `${file}: ${code}`);
    }
  }
  assert.ok(found.length > 25, `${found.length}`);
});

// The room of the command line, and the calls of the system that only it makes. No page sees their errors.
const ofCommandLine = /^(?:command\/|platform\/\w+\/(?:child_process|exec_errors|private_files)\.)/;
// Names and numbers of all errors; and the native program's table from the numbers of its own system.
const tablesOfErrors = ["platform/errors.h", "platform/posix/errors.cpp"];

/** The C++ files of src/ whose names pass, as one text. @param {(name: string) => boolean} passes */
function sources(passes) {
  const names = fs.readdirSync(new URL("src/", root), { recursive: true }).map(String);
  const files = names.filter((name) => /\.(?:cpp|h)$/.test(name) && !tablesOfErrors.includes(name));
  return files
    .filter(passes)
    .map((name) => read(`src/${name}`))
    .join("\n");
}

/** The names of errors that only the command line meets. */
function errorsOfCommandLine() {
  const names = (/** @type {string} */ text) => new Set(text.match(/\berror_\w+/g));
  const others = names(sources((name) => !ofCommandLine.test(name)));
  return [...names(sources((name) => ofCommandLine.test(name)))].filter((name) => !others.has(name));
}

test("every code that the sources give a name has words, but for those of sockets and of the command line", () => {
  const unseen = errorsOfCommandLine();
  const errors = [...read("src/platform/errors.h").matchAll(/(error_\w+) = (\d+);/g)]
    .filter(([, name]) => !unseen.includes(name))
    .map(([, , code]) => Number(code));
  assert.ok(errors.length > 40, `${errors.length}`);
  for (const code of errors) assert.ok(isKnownResult(asStatus(code)), String(code));
  const statuses = [...read("src/base/status.h").matchAll(/\((0x[0-9A-F]{8})u\)/g)].map(([, code]) => code);
  assert.ok(statuses.length > 5, `${statuses.length}`);
  const named = ["src/bridge/diagnostics.h", "src/platform/hosted/audio_endpoints.cpp"].flatMap((file) =>
    [...read(file).matchAll(/= .*\b(0x8[0-9A-F]{7})u?\b/g)].map(([, code]) => code),
  );
  assert.equal(named.length, 2);
  for (const code of [...statuses, ...named]) assert.ok(isKnownResult(Number(code)), code);
});

test("results of Windows have words with their number", () => {
  const rows = /** @type {[number, string][]} */ ([
    [5, "access denied (5)"],
    [-2147024891, "access denied (5)"],
    [-2147023845, "other services that depend on it are still running (1051)"],
    [-2147467259, "unspecified failure (0x80004005)"],
    [-2004287480, "the format is not supported (0x88890008)"],
    [-2147023728, "not found (1168)"],
    [-1, "error -1 (0xFFFFFFFF)"],
    [0, "no error"],
  ]);
  for (const [code, text] of rows) assert.equal(saySentence("en", resultSentence(code)), text);
  for (const code of [1051, 1053, 1056, 1060, 1061, 1062, 1068]) {
    assert.match(
      saySentence("zh", resultSentence(0x80070000 | code | 0)),
      new RegExp(`\\p{Script=Han}.*\\(${code}\\)`, "u"),
    );
  }
});

test("every result with words is in the tables", () => {
  for (let code = 0; code < 0x10000; ++code) {
    const { key } = resultSentence(code);
    assert.ok(Object.hasOwn(tables.en, key), key);
  }
  const reached = new Set(["result.0", "result.unknown"]);
  for (const key of Object.keys(tables.en).filter((one) => one.startsWith("result."))) {
    const code = Number(key.slice(7));
    if (Number.isInteger(code)) reached.add(resultSentence(code | 0).key);
  }
  for (const key of Object.keys(tables.en).filter((one) => one.startsWith("result.")))
    assert.ok(reached.has(key), key);
});

test("each known result has its own words in both languages, and its number in them", () => {
  for (const code of resultCodes) {
    const status = asStatus(code);
    const sentence = resultSentence(status);
    assert.notEqual(sentence.key, "result.unknown", String(code));
    const number = code < 0x10000 ? String(code) : hexResult(code);
    for (const language of languages) {
      const text = saySentence(language, sentence);
      assert.ok(text.endsWith(`(${number})`), text);
      assert.doesNotMatch(text, /[{}]/);
    }
    assert.match(saySentence("zh", sentence), /\p{Script=Han}/u);
  }
});

test("an unknown result has its number in both forms", () => {
  assert.equal(isKnownResult(-1), false);
  assert.equal(saySentence("en", resultSentence(-1)), "error -1 (0xFFFFFFFF)");
  assert.equal(saySentence("zh", resultSentence(0x80079999 | 0)), "错误 39321 (0x80079999)");
});

test("a refused format is called that, whoever names it", () => {
  const facts = /** @type {any} */ ({
    engine: { isRunning: true, effectLoaded: true, algorithmLoaded: true },
    effect: { initializeResult: 0, lockStage: 2, lockResult: 0 },
    moved: false,
    chosen: {},
  });
  const reasonOf = (/** @type {number} */ code) =>
    failureOf(
      { ...facts, effect: { ...facts.effect, lockResult: code | 0 } },
      { differs: false, still: false },
    );
  assert.equal(reasonOf(0x88890008)?.key, "reason.format");
  assert.equal(reasonOf(0x887d0003)?.key, "reason.format");
  assert.equal(reasonOf(0x80004005)?.key, "reason.lock");
});
