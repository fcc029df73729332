// The text of an imported file, from its bytes.
import assert from "node:assert/strict";
import test from "node:test";

import { decodeText, importLimit } from "../../web/src/model/import/decode.js";

const bytesOf = (text, encoding = /** @type {BufferEncoding} */ ("utf8")) =>
  Uint8Array.from(Buffer.from(text, encoding));
const swapped = (text) => Uint8Array.from(Buffer.from(text, "utf16le").swap16());
const joined = (...parts) => Uint8Array.from(parts.flatMap((part) => [...part]));
const textOf = (bytes) => {
  const decoded = decodeText(bytes);
  return "error" in decoded ? decoded.error.key : decoded.text;
};

test("the encodings that programs write are read", () => {
  const text = "Filter 1: ON PK Fc 105 Hz # 低音 ü\r\n";
  const rows = /** @type {[string, Uint8Array][]} */ ([
    ["UTF-8", bytesOf(text)],
    ["UTF-8 with a mark", joined([0xef, 0xbb, 0xbf], bytesOf(text))],
    ["UTF-16 LE", joined([0xff, 0xfe], bytesOf(text, "utf16le"))],
    ["UTF-16 BE", joined([0xfe, 0xff], swapped(text))],
    ["UTF-16 LE without a mark", bytesOf(text, "utf16le")],
    ["UTF-16 BE without a mark", swapped(text)],
  ]);
  for (const [name, bytes] of rows) assert.equal(textOf(bytes), text, name);
});

test("what is no UTF-8 is Windows-1252, where each byte is a character", () => {
  assert.equal(textOf(bytesOf("Höhe: 3 dB ½", "latin1")), "Höhe: 3 dB ½");
});

test("what is no text is refused", () => {
  const rows = /** @type {[string, number[]][]} */ ([
    ["a zero byte in a text", [...bytesOf("Filter 1: ON\0 PK")]],
    ["zero bytes on both sides", [0x41, 0, 0, 0x42, 0x43, 0, 0, 0x44]],
    ["only zero bytes", new Array(64).fill(0)],
    ["control characters", [1, 2, 3, 4, 5, 6, 7, 8, 0x41, 0x42]],
    ["a zero character in UTF-16", [0xff, 0xfe, 0x41, 0, 0, 0, 0x42, 0]],
  ]);
  for (const [name, bytes] of rows) assert.equal(textOf(Uint8Array.from(bytes)), "import.error.binary", name);
});

test("no file is an empty text", () => {
  assert.equal(textOf(new Uint8Array(0)), "");
});

test("a file may have 1 MiB, and not a byte more", () => {
  const most = new Uint8Array(importLimit).fill(0x41);
  assert.equal(importLimit, 1048576);
  assert.equal(textOf(most).length, importLimit);
  assert.equal(textOf(joined(most, [0x41])), "import.error.tooLarge");
});
