// The two language tables, the lookup, and the choice of a language.
import assert from "node:assert/strict";
import fs from "node:fs";
import test from "node:test";

import { serviceSentence, resultSentence } from "../../web/src/model/reasons.js";
import { knownServiceTexts } from "../../web/src/model/service_texts.js";
import { chooseLanguage, languageTag, say, saySentence, tables } from "../../web/src/texts/index.js";

const keys = Object.keys(tables.en);

function placeholdersOf(text) {
  return [...text.matchAll(/\{[^}]*\}/g)].map(([found]) => found).sort();
}

const languages = /** @type {const} */ (["en", "zh"]);

test("both languages have the same keys, in the same order", () => {
  assert.deepEqual(Object.keys(tables.zh), keys);
});

test("no text is empty, and none has blanks at its ends", () => {
  for (const table of Object.values(tables)) {
    for (const [key, text] of Object.entries(table)) assert.match(text, /^\S(?:.*\S)?$/s, key);
  }
});

test("both languages have the same placeholders", () => {
  for (const key of keys)
    assert.deepEqual(placeholdersOf(tables.zh[key]), placeholdersOf(tables.en[key]), key);
});

test("each placeholder has a form that the lookup knows", () => {
  const form =
    /^\{[a-zA-Z]+(?::(?:percent|decibels|decibelsPlain|hertz|seconds|duration|time|size|dateTime|countdown|list))?\}$/;
  for (const key of keys) for (const found of placeholdersOf(tables.en[key])) assert.match(found, form, key);
});

test("Chinese texts are Chinese, but for names and numbers", () => {
  const same = keys.filter((key) => tables.en[key] === tables.zh[key]);
  for (const key of same) assert.match(tables.en[key], /^(?:Velmora(?: \{version\})?|\{.*\}|A|B|Q|ID)$/, key);
  for (const key of keys.filter((one) => !same.includes(one) && one !== "header.language")) {
    assert.match(tables.zh[key], /\p{Script=Han}|，|：/u, key);
  }
});

test("no blank follows full-width punctuation", () => {
  for (const key of keys) assert.doesNotMatch(tables.zh[key], /[，。：；？！、（）“”…] /u, key);
});

test("the name of each button for a device begins with the words on it", () => {
  const rows = [
    ["devices.choose", "devices.chooseShort"],
    ["devices.removeFrom", "devices.remove"],
    ["devices.addTo", "devices.add"],
  ];
  for (const language of languages) {
    for (const [name, text] of rows)
      assert.ok(say(language, name, { device: "TV" }).startsWith(say(language, text)), `${language} ${name}`);
  }
});

test("no sentence uses the words that belong to the details", () => {
  const words = /\b(?:endpoint|render|bind|APO|HRESULT)\b/i;
  for (const key of keys.filter((one) => !one.startsWith("check.") && !one.startsWith("evidence."))) {
    assert.doesNotMatch(tables.en[key], words, key);
  }
});

test("every known text of the service has a sentence", () => {
  for (const { key } of knownServiceTexts) assert.ok(Object.hasOwn(tables.en, `service.${key}`), key);
  const used = new Set(["none", "unknown", ...knownServiceTexts.map(({ key }) => key)]);
  for (const key of keys.filter((one) => one.startsWith("service."))) assert.ok(used.has(key.slice(8)), key);
});

// What `src` and the description of the API hold is the whole list: a text that is new there must be known here.
test("the texts of refusals in the description of the API are known", () => {
  const text = fs.readFileSync(new URL("../../docs/api.md", import.meta.url), "utf8");
  const refusals = text.slice(text.indexOf("\n## Refusals"));
  const rows = refusals.split("\n").filter((line) => /^\| [45]\d\d [A-Z]/.test(line));
  assert.ok(rows.length > 20, `${rows.length}`);
  const messages = rows.flatMap((row) =>
    [...row.split("|")[2].matchAll(/`([^`]+)`/g)].map(([, message]) => message),
  );
  assert.ok(messages.length > 40, `${messages.length}`);
  const filled = (message) =>
    message.replace("FILE", "capture-1-host-in.wav").replace("NUMBER", "12002").replace("STATUS", "500");
  for (const message of messages)
    assert.notEqual(serviceSentence(filled(message)).key, "service.unknown", message);
});

test("a text of the service with a value keeps it", () => {
  assert.equal(
    saySentence("en", serviceSentence("连接账号服务失败（错误 12002）")),
    "The account service did not answer (error 12002).",
  );
  assert.equal(
    saySentence("zh", serviceSentence("cannot read capture-1-host-in.wav")),
    "无法读取录音文件：capture-1-host-in.wav",
  );
});

test("an unknown text of the service is shown as it came", () => {
  for (const text of ["<b>{text}</b>", "something new", "toString", "__proto__"]) {
    for (const language of languages) assert.equal(saySentence(language, serviceSentence(text)), text);
  }
  assert.equal(saySentence("en", serviceSentence("")), "There is no reason given.");
});

test("values are put in as text, in their form, and sentences in the same language", () => {
  assert.equal(say("en", "button.setStrength", { strength: 0.5 }), "Set to 50 %");
  assert.equal(say("zh", "verdict.otherDevice", { device: "Headphones" }), "声音正在 Headphones 上播放");
  assert.equal(say("zh", "verdict.otherDevice", { device: "耳机" }), "声音正在耳机上播放");
  assert.equal(
    say("zh", "confirm.removeTitle", { device: "Speakers (High Definition Audio)" }),
    "从 Speakers (High Definition Audio) 移除 Velmora？",
  );
  assert.equal(say("zh", "confirm.removeTitle", { device: "耳机（USB）" }), "从耳机（USB）移除 Velmora？");
  assert.equal(say("zh", "verdict.deviceGone", { device: "[TV]" }), "[TV] 未连接");
  assert.equal(
    say("en", "verdict.otherDevice", { device: "$& {device} <b>" }),
    "Sound is playing on $& {device} <b>",
  );
  assert.equal(say("en", "verdict.otherDevice"), "Sound is playing on ");
  assert.equal(say("en", "no.such.key"), "no.such.key");
  assert.equal(
    say("zh", "reason.lock", { result: resultSentence(5) }),
    "未能做好处理声音的准备：拒绝访问 (5)。",
  );
});

test("the language is the person's choice, else the browser's first that is known, else English", () => {
  assert.equal(chooseLanguage(["zh-CN", "en"], null), "zh");
  assert.equal(chooseLanguage(["zh-Hant-TW"], null), "zh");
  assert.equal(chooseLanguage(["de-DE", "en-GB", "zh"], null), "en");
  assert.equal(chooseLanguage(["fr", "zh"], null), "zh");
  assert.equal(chooseLanguage([], null), "en");
  assert.equal(chooseLanguage(["zh"], "en"), "en");
  assert.equal(languageTag("zh"), "zh-CN");
});
