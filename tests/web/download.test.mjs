// The name of a download, and whether it is whole.
import assert from "node:assert/strict";
import test from "node:test";

import {
  captureFileName,
  endBytes,
  isWhole,
  namedFile,
  nextTail,
  promisedLength,
} from "../../web/src/model/download.js";

/** The last record of an archive, whose directory is so long and begins there. */
function endOf(size, offset, signature = 0x06054b50) {
  const end = Buffer.alloc(endBytes);
  end.writeUInt32LE(signature, 0);
  end.writeUInt32LE(size, 12);
  end.writeUInt32LE(offset % 2 ** 32, 16);
  return new Uint8Array(end);
}

test("the proposed name has the local date and time", () => {
  assert.equal(captureFileName(new Date(2026, 2, 4, 9, 5, 2)), "velmora-capture-20260304-090502.zip");
  assert.equal(captureFileName(new Date(2026, 11, 31, 23, 59, 59)), "velmora-capture-20261231-235959.zip");
});

test("the service's name is taken, and a path is not", () => {
  const rows = [
    ['attachment; filename="velmora-capture-20260314-091502.zip"', "velmora-capture-20260314-091502.zip"],
    ['attachment; filename="../x.zip"', ""],
    ['attachment; filename="a\\x.zip"', ""],
    ["attachment", ""],
    ["", ""],
    [null, ""],
  ];
  for (const [header, name] of rows) assert.equal(namedFile(header), name, String(header));
});

test("only a plain number is a promise of a length", () => {
  const rows = /** @type {[string | null, number | null][]} */ ([
    ["522", 522],
    ["0", 0],
    [null, null],
    ["", null],
    ["5 22", null],
    ["-1", null],
    ["1e3", null],
  ]);
  for (const [header, length] of rows) assert.equal(promisedLength(header), length, String(header));
});

test("the tail is the last bytes, however they were cut", () => {
  const all = Uint8Array.from({ length: 100 }, (_, index) => index);
  for (const size of [1, 3, 21, 22, 23, 60, 100]) {
    let tail = /** @type {Uint8Array} */ (new Uint8Array());
    for (let at = 0; at < all.length; at += size) tail = nextTail(tail, all.subarray(at, at + size));
    assert.deepEqual([...tail], [...all.subarray(-endBytes)], String(size));
  }
  assert.deepEqual([...nextTail(new Uint8Array([1]), new Uint8Array([2]))], [1, 2]);
});

test("an archive is whole when its length and its end fit", () => {
  const rows = /** @type {[string, number, number | null, Uint8Array, boolean][]} */ ([
    ["whole", 522, 522, endOf(280, 220), true],
    ["whole without a promise", 522, null, endOf(280, 220), true],
    ["shorter than promised", 500, 522, endOf(280, 220), false],
    ["longer than promised", 523, 522, endOf(280, 220), false],
    ["cut, without a promise", 500, null, endOf(280, 220), false],
    ["another end", 522, 522, endOf(280, 220, 0x02014b50), false],
    ["nothing", 0, null, new Uint8Array(), false],
    ["a few bytes", 5, 5, new Uint8Array(5), false],
    ["above 4 GiB", 2 ** 32 + 322, 2 ** 32 + 322, endOf(280, 2 ** 32 + 20), true],
  ]);
  for (const [what, received, promised, tail, whole] of rows)
    assert.equal(isWhole(received, promised, tail), whole, what);
});

test("a tail within a larger block of memory is read at its place", () => {
  const block = new Uint8Array(64);
  block.set(endOf(280, 220), 30);
  assert.equal(isWhole(522, 522, block.subarray(30, 52)), true);
});
