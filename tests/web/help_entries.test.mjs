// What Help contains: an entry for each verdict, each error text of the service and each result with words; the anchors
// that links lead to; the search.
import assert from "node:assert/strict";
import fs from "node:fs";
import path from "node:path";
import test from "node:test";
import { fileURLToPath } from "node:url";

import {
  entryOf,
  goodNews,
  helpAnchorOf,
  helpAnchorOfVerdict,
  helpSections,
  isFound,
  resultGroups,
  searchedEntry,
  sentencesOf,
} from "../../web/src/model/help_entries.js";
import { hexResult, resultCodes, resultSentence, serviceSentence } from "../../web/src/model/reasons.js";
import { knownServiceTexts } from "../../web/src/model/service_texts.js";
import { say, tables } from "../../web/src/texts/index.js";

const root = fileURLToPath(new URL("../..", import.meta.url));
const read = (name) => fs.readFileSync(path.join(root, name), "utf8");
const entries = helpSections.flatMap(({ groups }) => groups.flatMap((group) => group.entries));
const keys = Object.keys(tables.en);
const languages = /** @type {const} */ (["en", "zh"]);

function assertExplained(anchor) {
  const entry = entryOf(anchor);
  assert.ok(entry, `${anchor} has no entry`);
  assert.ok(entry.cause && entry.remedy, `${anchor} has a cause and a remedy`);
}

// ---- nothing is missing ----

function verdictIds() {
  const written = [...read("web/src/model/verdict.js").matchAll(/\bid: "(\w+)"/g)].map(([, id]) => id);
  const union = /@typedef \{((?:"\w+"[\s*|]*)+)\} VerdictId/.exec(read("web/src/model/types.js"));
  const typed = [...String(union?.[1]).matchAll(/"(\w+)"/g)].map(([, id]) => id);
  return { written: new Set(written), typed: new Set(typed) };
}

test("each verdict has an entry", () => {
  const { written, typed } = verdictIds();
  assert.ok(typed.size >= 28, `${typed.size}`);
  assert.deepEqual([...written].sort(), [...typed].sort());
  for (const id of typed) assertExplained(`verdict-${id}`);
});

test("each headline, detail and reason of a verdict belongs to an entry", () => {
  const shown = new Set(entries.flatMap((entry) => sentencesOf(entry).seen.map(({ key }) => key)));
  for (const key of keys.filter((one) => /^(?:verdict|detail|reason)\./.test(one)))
    assert.ok(shown.has(key), key);
});

test("each error text of the service has an entry", () => {
  for (const { key } of knownServiceTexts.filter((one) => !goodNews.includes(one.key)))
    assertExplained(`error-${key}`);
  const known = new Set(knownServiceTexts.map(({ key }) => key));
  for (const key of goodNews) assert.ok(known.has(key) && entryOf(`error-${key}`) === undefined, key);
});

// What the pages themselves say when something fails or is not as expected.
const ownSentences = [
  /^account\.(?:over|codeOver|denied|failed|noCode|ended)$/,
  /^action\.(?:failed|stopped|not\w+)$/,
  /^capture\.(?:missing\w*|gone|broken\w*|unwritable)$/,
  /^capture\.note\.(?:silent|no\w+|missing\w*|gone|old\w*|elsewhere)$/,
  /^check\.\w+\.(?!yes$)/,
  /^curve\.(?:clip|tooHigh|allUsed)$/,
  /^devices\.(?:trouble|none)$/,
  /^equalizer\.(?:unsent|changedElsewhere)$/,
  /^import\.(?:nothing$|dropped$|error\.|reason\.)/,
  /^page\.notKept$/,
  /^preset\.(?:not[A-Z]\w+|renamedTwice|foreign|unopened|unreadable|deleteUnreadable|gone\w*)$/,
  /^preset\.(?:name|reason)\./,
  /^service\.none$/,
  /\.(?:copyByHand|byHand)$/,
];

test("each sentence of the pages about a failure has an entry, which it finds", () => {
  // Other values than those of the entries' own titles.
  const values = {
    ...{
      device: "Kopfhörer",
      name: "Abend 2",
      other: "Abend 3",
      old: "Abend",
      typed: "abend",
      bytes: 7_340_032,
    },
    ...{
      received: 1_048_576,
      total: 2_097_152,
      at: 0,
      line: 12,
      position: 4,
      count: 9,
      minimum: 20,
      maximum: 30,
    },
    ...{
      character: "?",
      most: 64,
      blocks: 7,
      id: 12,
      excess: 3,
      limit: 22_050,
      path: "C:\\x.dll",
      strength: 0.5,
    },
    ...{ text: "XYZ", field: { key: "import.field.q", values: {} }, result: resultSentence(-1) },
    reason: { key: "service.presetFile", values: {} },
  };
  for (const pattern of ownSentences)
    assert.ok(
      keys.some((key) => pattern.test(key)),
      String(pattern),
    );
  for (const key of keys.filter((one) => ownSentences.some((pattern) => pattern.test(one)))) {
    const explaining = entries.filter((entry) => sentencesOf(entry).seen.some((seen) => seen.key === key));
    assert.ok(explaining.length > 0, `${key} has no entry`);
    for (const { text, cause, remedy } of explaining) assert.ok(text.length > 0 || (cause && remedy), key);
    for (const language of languages) {
      const ids = found(say(language, key, values));
      assert.ok(
        explaining.some(({ id }) => ids.includes(id)),
        `${language} ${key}: ${ids}`,
      );
    }
  }
});

test("each result of Windows with words has an entry", () => {
  const words = keys.filter(
    (key) => key.startsWith("result.") && !["result.0", "result.unknown"].includes(key),
  );
  assert.ok(words.length >= 39, `${words.length}`);
  for (const key of words) assertExplained(key.replace("result.", "result-"));
  const titles = entries.flatMap((entry) => entry.titles).filter(({ id }) => id.startsWith("result-"));
  assert.deepEqual(titles.map(({ text }) => text.key).sort(), words.sort());
  const codes = resultGroups.flatMap(([, group]) => group);
  assert.equal(new Set(codes).size, codes.length);
});

// ---- the texts in the service's sources ----

// What an answer can contain comes from these folders.
const answering = ["account", "api", "binding", "capture", "effects", "endpoints", "engine", "http"];

// Literals of these folders that read like a sentence and are not an error of an answer.
const otherTexts = [
  // Done, and how.
  /^endpoint (?:bound|unbound|was (?:already|not) bound)/,
  // The standard output only: the answer has begun.
  /^the download was interrupted$/,
  /^the connection closed before the download started$/,
  /^capture file shrank while it was being sent: $/,
  // Parts of texts that are whole elsewhere.
  /^no exported capture found$/,
  /^）上的 Velmora/,
  // A version that is not known, a key of the registry.
  /^not found$/,
  /^SOFTWARE\\\\/,
  // Part of what is hashed, and of HTTP.
  /^velmora machine 1\\n$/,
  /^(?:Bad Request|Bad Gateway|Not Found|Not Implemented|Method Not Allowed|Internal Server Error|Service Unavailable)$/,
  /^(?:\\r\\n)?(?:HTTP\/1\.1 |Content-|Connection: |Cache-Control: |X-Content-Type-Options: |'unsafe-inline')/,
];

function sourcesIn(folder) {
  const found = fs.readdirSync(path.join(root, "src", folder), { recursive: true, withFileTypes: true });
  return found
    .filter((one) => one.isFile() && /\.(?:cpp|h)$/.test(one.name))
    .map((one) => path.join("src", folder, one.name));
}

// Neighbouring literals are one, as for the compiler.
function literalsOf(source) {
  const code = source
    .replace(/"(?:[^"\\\n]|\\.)*"|\/\/[^\n]*/g, (found) => (found.startsWith("//") ? "" : found))
    .replace(/^\s*(?:#include|static_assert).*$/gm, "")
    .replace(/"\s*\n\s*"/g, "");
  return [...code.matchAll(/"((?:[^"\\\n]|\\.)*)"/g)].map(([, text]) => text);
}

const readsLikeASentence = (text) => /[a-z]{2,} [a-z0-9_]/i.test(text) || /\p{Script=Han}/u.test(text);

// The parts that the service adds: a file, a number, a device.
function isKnownText(text) {
  const ends = [
    "",
    "capture-1-host-in.wav",
    "500",
    "12002）",
    "（403）",
    "TV）上的 Velmora 将在两分钟内自动退出。",
  ];
  return ends.some((end) => {
    const { key } = serviceSentence(text + end);
    return key !== "service.unknown" && key !== "service.none";
  });
}

test("each text that the service's sources can answer is known", () => {
  const unknown = [];
  let count = 0;
  for (const file of answering.flatMap(sourcesIn)) {
    for (const text of literalsOf(read(file)).filter(readsLikeASentence)) {
      if (otherTexts.some((other) => other.test(text))) continue;
      ++count;
      if (!isKnownText(text)) unknown.push(`${file}: ${text}`);
    }
  }
  assert.deepEqual(unknown, []);
  assert.ok(count >= 60, `${count}`);
});

test("a text that is new in the sources is noticed", () => {
  const source = 'return "it broke "\n   "in a new way";  // "not this one" \nadd("key");';
  assert.deepEqual(literalsOf(source).filter(readsLikeASentence), ["it broke in a new way"]);
  assert.ok(!isKnownText("it broke in a new way") && !isKnownText("出现新的错误"));
});

test("each known text is still in the sources", () => {
  const all = answering.flatMap(sourcesIn).flatMap((file) => literalsOf(read(file)));
  for (const { pattern } of knownServiceTexts) {
    const text = typeof pattern === "string" ? pattern : pattern.source.replace(/^\^|\(\?<.*$/g, "");
    assert.ok(
      all.some((literal) => literal.startsWith(text) || text.startsWith(`${literal}（`)),
      text,
    );
  }
});

test("each detail of a failed change or restart in the description of the API leads to its entry", () => {
  const text = read("docs/api.md");
  const restart = text.slice(text.indexOf("| `audio_restart_detail` | |"));
  const details = [...restart.slice(0, restart.indexOf("\n\n")).matchAll(/^\| `([^`]+)` \|/gm)].map(
    ([, one]) => one,
  );
  assert.equal(details.filter((one) => one !== "audio_restart_detail").length, 7);
  for (const detail of details.slice(1).filter((one) => one !== "audio stack restarted"))
    assertExplained(String(helpAnchorOf(serviceSentence(detail))));
});

// ---- texts and anchors ----

test("every text is there in both languages, and none is left over", () => {
  const used = new Set([
    ...helpSections.flatMap(({ title, text, steps, groups, keys: rows }) => [
      title,
      ...text.map(({ key }) => key),
      steps?.key ?? "",
      ...groups.map((group) => group.title),
      ...rows.map(({ does }) => does),
    ]),
    ...entries.flatMap((entry) =>
      Object.values(sentencesOf(entry)).flatMap((all) => all.map(({ key }) => key)),
    ),
    ...entries.flatMap(({ links }) => links.map((link) => `help.see.${link}`)),
  ]);
  used.delete("");
  // A group is left out while none of its results has words.
  for (const [name] of resultGroups)
    for (const part of ["cause", "remedy"]) used.add(`help.result.${name}.${part}`);
  for (const key of used)
    for (const table of Object.values(tables)) assert.ok(Object.hasOwn(table, key), key);
  // What the page and the links themselves say.
  const frame =
    /^help\.(?:intro|contents|find|findHint|found|foundNone|showAll|cause|remedy|sent|forms|more|whatIsThis|newTab|keys\.(?:key|does)|sample\.\w+)$/;
  for (const key of keys.filter((one) => one.startsWith("help.") && !frame.test(one)))
    assert.ok(used.has(key), `${key} is shown nowhere`);
});

test("both languages have the same number of steps", () => {
  const steps = keys.filter((key) => key.startsWith("help.") && key.endsWith("steps"));
  assert.ok(steps.length >= 4);
  for (const key of steps)
    assert.equal(tables.zh[key].split("\n").length, tables.en[key].split("\n").length, key);
  assert.equal(tables.en["help.start.steps"].split("\n").length, 5);
});

test("no title has a gap where something is filled in", () => {
  for (const language of languages) {
    for (const { titles, cause, remedy, text, steps } of entries) {
      for (const one of [...titles.map((title) => title.text), ...text, cause, remedy, steps]) {
        if (one === null) continue;
        const said = say(language, one.key, one.values);
        assert.doesNotMatch(said, /\{|\}| {2}|\(\)|（）|undefined|^ | $/, one.key);
        assert.equal(/help\.\w/.test(said), false, said);
      }
    }
  }
});

test("anchors are unique, and fit into an address", () => {
  const anchors = [
    ...helpSections.map(({ id }) => id),
    ...entries.flatMap(({ titles }) => titles.map(({ id }) => id)),
  ];
  assert.deepEqual(
    anchors.filter((anchor, index) => anchors.indexOf(anchor) !== index),
    [],
  );
  for (const anchor of anchors) assert.match(anchor, /^[a-zA-Z][\w.-]*$/);
  for (const entry of entries) {
    for (const { id } of entry.titles) assert.equal(entryOf(id), entry);
    for (const link of entry.links)
      assert.ok(
        helpSections.some(({ id }) => id === link),
        link,
      );
  }
  assert.equal(entryOf("start"), undefined);
  assert.equal(entryOf("constructor"), undefined);
});

test("a sentence leads to the entry of what is innermost in it", () => {
  const chain = serviceSentence("the endpoint mode-effect chain could not be written");
  const rows = /** @type {[unknown, string | undefined][]} */ ([
    [chain, "error-chainUnwritable"],
    [{ key: "action.notAdded", values: { reason: chain } }, "error-chainUnwritable"],
    [{ key: "devices.trouble", values: { result: resultSentence(-2147024891) } }, "result-5"],
    [{ key: "devices.trouble", values: { result: resultSentence(0x88890004) } }, "result-0x88890004"],
    [{ key: "reason.lock", values: { result: resultSentence(12345) } }, "reason-lock"],
    [serviceSentence("something new"), undefined],
    [serviceSentence("audio stack restarted"), undefined],
    [{ key: "action.saved", values: {} }, undefined],
    [{ key: "action.failed", values: { reason: null } }, undefined],
    [undefined, undefined],
    ["service.token", undefined],
  ]);
  for (const [shown, anchor] of rows) assert.equal(helpAnchorOf(shown), anchor, JSON.stringify(shown));
});

test("a verdict leads to its entry, unless it passes by itself or no page can be opened", () => {
  const anchorOf = (id, values = {}) =>
    helpAnchorOfVerdict(/** @type {any} */ ({ id, detail: { key: `detail.${id}`, values } }));
  const without = ["checking", "waiting", "restarting", "gone"];
  for (const id of verdictIds().typed) {
    const anchor = anchorOf(id);
    if (without.includes(id)) assert.equal(anchor, undefined);
    else assertExplained(String(anchor));
  }
  const hangs = { reason: { key: "reason.hangs", values: {} } };
  assert.equal(anchorOf("couldNotStart", hangs), "reason-hangs");
  assert.equal(anchorOf("refused", hangs), "verdict-refused");
  assert.equal(anchorOf("couldNotStart", { reason: 7 }), "verdict-couldNotStart");
});

test("what Help says of administrator rights is what the archive offers", () => {
  for (const name of ["start.cmd", "stop.cmd"]) {
    assert.ok(fs.existsSync(path.join(root, "release", name)), name);
    for (const readme of ["release/README.txt", "release/README.zh-CN.txt"])
      assert.ok(read(readme).includes(name), `${readme}: ${name}`);
  }
  const steps = [
    "help.start.steps",
    "help.verdict.needsAdmin.remedy",
    "help.error.chainLocked.remedy",
    "help.refused.steps",
    "help.remove.steps",
  ];
  for (const language of languages) {
    for (const key of steps)
      for (const name of ["start.cmd", "stop.cmd"]) assert.ok(tables[language][key].includes(name), key);
    for (const key of keys.filter((one) => one.startsWith("help.")))
      assert.doesNotMatch(
        tables[language][key],
        /right-click Velmora|Run as administrator|右键单击 Velmora/i,
        key,
      );
  }
});

test("Help says of the report what its preview says", () => {
  const rows = /** @type {const} */ ([
    ["en", "Names of programs and presets are left out"],
    ["zh", "程序和预设的名称不在其中"],
  ]);
  for (const [language, text] of rows)
    for (const key of ["report.note", "help.privacy.report.text"])
      assert.ok(tables[language][key].includes(text), `${language} ${key}`);
});

test("a service that did not start for another one's sake is not called disabled", () => {
  const dependency = entryOf("result-1068");
  assert.notEqual(dependency, entryOf("result-1058"));
  assert.match(say("en", String(dependency?.remedy?.key)), /^Restart the PC\./);
});

test("one thing has one name in Chinese: the primary computer is freed, not changed", () => {
  for (const [key, text] of Object.entries(tables.zh)) assert.doesNotMatch(text, /更换常用电脑/, key);
  const { zh } = tables;
  assert.equal(zh["account.freeQuestion"], `${zh["account.free"]}？`);
  assert.equal(zh["help.account.primary"], zh["account.free"]);
});

// ---- the search ----

const searchedOf = (entry) =>
  searchedEntry(
    entry,
    (key) => languages.map((language) => tables[language][key]),
    ({ key, values }) => languages.map((language) => say(language, key, values)),
  );

/** @returns {[string, Record<string, unknown>]} */
function wordsOf(status) {
  const { key, values } = resultSentence(status);
  return [key, values];
}

const found = (query) => entries.filter((entry) => isFound(searchedOf(entry), query)).map(({ id }) => id);

test("a sentence that a person saw finds its entry, with whatever it had filled in", () => {
  const rows = [
    ["Sound is playing on Kopfhörer (USB)", "verdict-otherDevice"],
    ["声音正在 Kopfhörer 上播放", "verdict-otherDevice"],
    ["  one step left:  ADD velmora to Lautsprecher ", "verdict-notAdded"],
    ["Not added: The device's effect chain cannot be changed.", "error-chainUnwritable"],
    ["未添加：无法更改此设备的音效链。", "error-chainUnwritable"],
    ["the endpoint mode-effect chain could not be written", "error-chainUnwritable"],
    ["连接账号服务失败（错误 12002）", "error-accountUnreachable"],
    ["The account service did not answer (error 12029).", "error-accountUnreachable"],
    ["0x88890004", "result-0x88890004"],
    ["access denied (5)", "result-5"],
    ["It could not get ready for sound: not supported (0x80004001).", "reason-lock"],
    ["No answer for 12 s.", "verdict-waiting"],
    ["Windows kept its old audio setup", "verdict-engineKept"],
    ["ｗｉｎｄｏｗｓ　ｉｓ　ｍｕｔｅｄ！", "verdict-muted"],
  ];
  for (const [query, id] of rows) {
    const ids = found(query);
    assert.ok(ids.includes(id), `${query}: ${ids}`);
    assert.ok(ids.length <= 12, `${query}: ${ids.length}`);
  }
});

test("every result is found in each form that the pages show", () => {
  for (const number of resultCodes) {
    const status = number < 0x10000 ? 0x80070000 | number | 0 : number | 0;
    const id = entryOf(resultSentence(status).key.replace("result.", "result-"))?.id;
    const inWords = languages.map((language) => say(language, ...wordsOf(status)));
    const forms = [hexResult(status), hexResult(status).toLowerCase(), `${status}`, `−${-status}`];
    const inDiagnostics = inWords.map((words) => `${words} ${hexResult(status)} · −${-status}`);
    const inReport = inWords.map((words) => `${status} = ${hexResult(status)}, ${words}`);
    for (const query of forms) {
      const ids = found(query);
      // Some titles have a result as an example.
      assert.ok(
        ids.includes(String(id)) && ids.every((one) => one === id || /^(?:reason|message)-/.test(one)),
        query,
      );
    }
    for (const query of [...inDiagnostics, ...inReport]) assert.ok(found(query).includes(String(id)), query);
  }
});

test("words find the entries that have them all, and nothing finds everything", () => {
  assert.ok(found("quarantine").includes("verdict-fileMissing"));
  assert.deepEqual(found("xylophone"), []);
  assert.deepEqual(found("muted xylophone"), []);
  assert.equal(found(" … ").length, entries.length);
  for (const query of ["", "(", "[a-z", "\\", "{device}", "𝄞", "\0", "x".repeat(10_000)]) found(query);
});

test("every entry is found by its own titles in both languages", () => {
  for (const language of languages) {
    for (const entry of entries) {
      for (const { text } of entry.titles) {
        const said = say(language, text.key, text.values);
        assert.ok(isFound(searchedOf(entry), said), said);
      }
    }
  }
});
