// Numbers, times and names as the pages show them, the meter's hold, and documents as they are read.
import assert from "node:assert/strict";
import test from "node:test";

import * as format from "../../web/src/model/format.js";
import { heldPeak, holdPeak, noPeak } from "../../web/src/model/peak_hold.js";
import { activePrograms } from "../../web/src/model/programs.js";
import { parseDocument } from "../../web/src/model/read.js";
import { hexResult } from "../../web/src/model/reasons.js";

const notNumbers = [undefined, null, NaN, Infinity, "nan", "5", {}, []];

const languages = /** @type {const} */ (["en", "zh"]);

test("percent", () => {
  const rows = [
    [0, "0 %"],
    [-0, "0 %"],
    [0.5, "50 %"],
    [0.499, "50 %"],
    [1, "100 %"],
    [0.001, "< 1 %"],
    [1.7, "170 %"],
  ];
  for (const [share, text] of rows) assert.equal(format.percent(share), text);
  for (const odd of notNumbers) assert.equal(format.percent(odd), "–");
});

test("decibels", () => {
  const rows = [
    [0, "0 dB"],
    [-0.04, "0 dB"],
    [3, "+3 dB"],
    [3.25, "+3.3 dB"],
    [-12, "−12 dB"],
    [-0.05, "−0.1 dB"],
  ];
  for (const [value, text] of rows) assert.equal(format.decibels(value), text);
  for (const odd of notNumbers) assert.equal(format.decibels(odd), "–");
});

test("hertz", () => {
  const rows = [
    [20, "20 Hz"],
    [31.25, "31.3 Hz"],
    [999.4, "999 Hz"],
    [999.6, "1 kHz"],
    [1250, "1.25 kHz"],
    [20000, "20 kHz"],
  ];
  for (const [value, text] of rows) assert.equal(format.hertz(value), text);
  for (const odd of notNumbers) assert.equal(format.hertz(odd), "–");
});

test("times", () => {
  assert.equal(format.timeOfDay(new Date(2026, 2, 14, 9, 5).getTime()), "09:05");
  assert.equal(format.timeOfDay(new Date(2026, 2, 14, 19, 4).getTime()), "19:04");
  assert.equal(format.timeOfDay(1e300), "–");
  assert.deepEqual(
    languages.map((one) => format.seconds(12.4, one)),
    ["12 s", "12 秒"],
  );
  assert.deepEqual(
    languages.map((one) => format.duration(7500, one)),
    ["2 h 5 min", "2 小时 5 分钟"],
  );
  assert.deepEqual(
    languages.map((one) => format.duration(59, one)),
    ["0 min", "0 分钟"],
  );
  assert.deepEqual(
    languages.map((one) => format.dateTime(new Date(2026, 2, 4, 19, 4).getTime(), one)),
    ["4 Mar 2026, 19:04", "2026年3月4日 19:04"],
  );
  for (const odd of [...notNumbers, 1e300]) assert.equal(format.dateTime(odd, "en"), "–");
  const left = /** @type {[number, string][]} */ ([
    [600_000, "10:00"],
    [599_001, "10:00"],
    [59_000, "0:59"],
    [1, "0:01"],
    [-5000, "0:00"],
  ]);
  for (const [ms, text] of left) assert.equal(format.countdown(ms), text);
  assert.equal(format.countdown(Number.NaN), "–");
});

test("lists name four and count the others", () => {
  assert.equal(format.list(["a", "b"], "en"), "a, b");
  assert.equal(format.list(["a", "b", "c", "d", "e", "f"], "en"), "a, b, c, d and 2 more");
  assert.equal(format.list(["a", "b", "c", "d", "e"], "zh"), "a、b、c、d等 5 个程序");
  assert.equal(format.list("x", "en"), "–");
});

test("a device's name goes without its parentheses, unless two would be alike", () => {
  const all = [
    "Speakers (High Definition Audio)",
    "Headphones (USB)",
    "Headphones (Bluetooth)",
    "(odd)",
    "名前 (a) (b)",
  ];
  assert.deepEqual(
    all.map((name) => format.shortDeviceName(name, all)),
    ["Speakers", "Headphones (USB)", "Headphones (Bluetooth)", "(odd)", "名前 (a)"],
  );
});

test("a name stays on its line, has a bearable length, and keeps its direction to itself", () => {
  assert.equal(format.plainName("a\r\nb\u0000\u2028c"), "a b c");
  assert.equal([...format.plainName("😀".repeat(200))].length, 80);
  assert.equal(format.plainName("\u202eevil"), "\u2068evil\u2069");
  assert.equal(format.plainName("אוזניות"), "\u2068אוזניות\u2069");
  assert.equal(format.plainName(""), "");
});

test("programs are named once, by their file, and the system's sounds are not", () => {
  const device = (sessions) => ({ id: "x", name: "x", sessions });
  const devices = {
    render: [device(["player.exe", "player.exe", "system"]), device(["C:\\a\\call.exe", null, "", "pid 12"])],
    capture: [device(["call.exe", "/opt/rec"])],
  };
  assert.deepEqual(activePrograms(devices), ["player.exe", "call.exe", "pid 12", "rec"]);
  for (const odd of [null, [], 7, { render: 3 }]) assert.deepEqual(activePrograms(odd), []);
});

test("a peak is held, and then falls", () => {
  let hold = holdPeak(noPeak, 0.8, 1000);
  assert.deepEqual(
    [1000, 2500, 3250, 9000].map((time) => Number(heldPeak(hold, time).toFixed(2))),
    [0.8, 0.8, 0.3, 0],
  );
  hold = holdPeak(hold, 0.5, 1500);
  assert.equal(heldPeak(hold, 2000), 0.8, "a lower one does not end it");
  hold = holdPeak(hold, 0.9, 2000);
  assert.equal(heldPeak(hold, 3500), 0.9);
  hold = holdPeak(hold, 0.2, 5000);
  assert.equal(heldPeak(hold, 5000), 0.2);
  for (const odd of [...notNumbers, -1])
    assert.equal(heldPeak(holdPeak(noPeak, odd, 10), 10), odd === Infinity ? 1 : 0);
});

test("a document may hold numbers that JSON has not", () => {
  assert.deepEqual(parseDocument('{"a":nan,"b":-inf,"c":"nan inf \\" nan","d":[inf,1]}'), {
    a: "nan",
    b: "-inf",
    c: 'nan inf " nan',
    d: ["inf", 1],
  });
  for (const text of ["", "{", "nan nan", "<html>"]) assert.equal(parseDocument(text), undefined, text);
});

test("a status as Windows writes it", () => {
  assert.deepEqual([-2147024891, 5, 0].map(hexResult), ["0x80070005", "0x00000005", "0x00000000"]);
});

test("sizes are counted as Windows counts them", () => {
  const rows = /** @type {[number, string][]} */ ([
    [0, "0 bytes"],
    [1, "1 byte"],
    [1023, "1023 bytes"],
    [1024, "1 KB"],
    [280_000, "273 KB"],
    [1536, "1.5 KB"],
    [10 * 1024 - 1, "10 KB"],
    [1024 * 1024 - 1, "1 MB"],
    [4 * 115 * 1024 * 1024, "460 MB"],
    [4 * 1024 ** 3, "4 GB"],
    [5000 * 1024 ** 3, "5000 GB"],
  ]);
  for (const [bytes, text] of rows) assert.equal(format.fileSize(bytes, "en"), text);
  assert.equal(format.fileSize(12, "zh"), "12 字节");
  assert.equal(format.fileSize(1024 * 1024, "zh"), "1 MB");
  for (const none of [undefined, -1, NaN, "1"]) assert.equal(format.fileSize(none, "en"), "–");
});
