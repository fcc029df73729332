// The largest capture file and an archive above 4 GiB, as a client receives them. The files are sparse, and
// nothing holds them or the archive in memory as a whole.
import assert from "node:assert/strict";
import { execFile } from "node:child_process";
import fs from "node:fs";
import path from "node:path";
import test from "node:test";
import { promisify } from "node:util";

import { makeDirectory, programPathText, startService, within } from "../harness.mjs";

const limits = { timeout: 400_000 };
const downloadLimitMs = 300_000;
const target = "/api/v1/debug/capture/download";
const names = [
  "capture-1-host-in.wav",
  "capture-2-algorithm-in.wav",
  "capture-3-algorithm-out.wav",
  "capture-4-host-out.wav",
];

// The second file is the largest that a member can be. What follows it begins beyond 4 GiB.
const sizes = [70_000, 0xffffffff, 65_537, 1000];
const markBytes = 16;
const headBytesLimit = 4096;

// A file begins and ends with a mark of its own, and is zeros in between.
/** @param {number} index @param {string} place */
const mark = (index, place) => Buffer.from(`<${names[index].slice(8, 19)} ${place}>`.padEnd(markBytes, "."));

/** @param {string} file @param {number} index @param {number} size */
function writeSparse(file, index, size) {
  const descriptor = fs.openSync(file, "w");
  fs.writeSync(descriptor, mark(index, "a"), 0, markBytes, 0);
  fs.writeSync(descriptor, mark(index, "z"), 0, markBytes, size - markBytes);
  fs.closeSync(descriptor);
}

const pythonChecksum = `
import sys, zlib
crc = 0
with open(sys.argv[1], "rb") as file:
  while block := file.read(1 << 20): crc = zlib.crc32(block, crc)
print(crc)
`;

/** @param {string} file */
async function checksumOf(file) {
  return Number((await promisify(execFile)("python3", ["-c", pythonChecksum, file])).stdout);
}

// Little-endian fields, each a width and a value. Of a value only the bits that fit are kept.
/** @param {number[][]} pairs */
function fields(...pairs) {
  const parts = pairs.map(([width, value]) => {
    const bytes = Buffer.alloc(8);
    bytes.writeBigUInt64LE(BigInt(value));
    return bytes.subarray(0, width);
  });
  return Buffer.concat(parts);
}

// The archive in pieces: bytes, or a number of zeros. Offsets beyond 4 GiB keep their low 32 bits.
/** @param {number[]} checksums @param {number} moment @returns {(Buffer | number)[]} */
function archivePieces(checksums, moment) {
  /** @type {(Buffer | number)[]} */
  const pieces = [];
  /** @type {Buffer[]} */
  const entries = [];
  let offset = 0;
  names.forEach((name, index) => {
    const [size, checksum] = [sizes[index], checksums[index]];
    const common = fields(
      [2, 20],
      [4, 0],
      [4, moment],
      [4, checksum],
      [4, size],
      [4, size],
      [2, name.length],
      [2, 0],
    );
    const header = Buffer.concat([fields([4, 0x04034b50]), common, Buffer.from(name)]);
    pieces.push(header, mark(index, "a"), size - 2 * markBytes, mark(index, "z"));
    const rest = fields([2, 0], [4, 0], [4, 0], [4, offset]);
    entries.push(fields([4, 0x02014b50], [2, 20]), common, rest, Buffer.from(name));
    offset += header.length + size;
  });
  assert.ok(offset > 2 ** 32);
  const directory = Buffer.concat(entries);
  const end = fields([4, 0x06054b50], [4, 0], [2, 4], [2, 4], [4, directory.length], [4, offset], [2, 0]);
  return [...pieces, directory, end];
}

/** @param {(Buffer | number)[]} pieces */
function bytesOf(pieces) {
  return pieces.reduce(
    (/** @type {number} */ sum, piece) => sum + (typeof piece === "number" ? piece : piece.length),
    0,
  );
}

// Compares a stream with the pieces while it comes in.
class Comparison {
  /** @param {(Buffer | number)[]} pieces */
  constructor(pieces) {
    this.pieces = pieces;
    this.received = 0;
    this.zeros = Buffer.alloc(1 << 20);
    this.piece = 0;
    this.used = 0;
  }

  /** @param {Buffer} chunk */
  take(chunk) {
    for (let at = 0; at < chunk.length;) {
      const piece = this.pieces[this.piece];
      assert.notEqual(piece, undefined, `bytes behind the end, at ${this.received}`);
      const isZeros = typeof piece === "number";
      const left = (isZeros ? piece : piece.length) - this.used;
      const count = Math.min(left, chunk.length - at, this.zeros.length);
      const expected = isZeros ? this.zeros.subarray(0, count) : piece.subarray(this.used, this.used + count);
      const actual = chunk.subarray(at, at + count);
      if (!actual.equals(expected)) assert.deepEqual(actual, expected, `at ${this.received} of the archive`);
      at += count;
      this.received += count;
      this.used += count;
      if (count === left) [this.piece, this.used] = [this.piece + 1, 0];
    }
  }
}

test("a member of 4294967295 bytes in an archive above 4 GiB arrives whole", limits, async (t) => {
  const directory = makeDirectory();
  const files = names.map((name) => path.join(directory, name));
  files.forEach((file, index) => writeSparse(file, index, sizes[index]));
  const checksums = await Promise.all(files.map(checksumOf));
  const service = await startService(t, { more: ["--capture-directory", programPathText(directory)] });
  const client = await service.connect({ reads: false });
  client.push(service.apiBytes("GET", target));

  /** @type {Comparison | undefined} */
  let comparison;
  let head = Buffer.alloc(0);
  const receive = async () => {
    for await (const chunk of client.socket) {
      if (comparison) {
        comparison.take(chunk);
        continue;
      }
      head = Buffer.concat([head, chunk]);
      const end = head.indexOf("\r\n\r\n") + 4;
      // The moment is read from the first local header; everything else is known.
      if (end === 3 || head.length < end + 14) {
        assert.ok(head.length < headBytesLimit, head.toString("latin1"));
        continue;
      }
      const pieces = archivePieces(checksums, head.readUInt32LE(end + 10));
      const length = /\r\nContent-Length: ([0-9]+)\r\n/.exec(head.toString("latin1", 0, end))?.[1];
      assert.equal(Number(length), bytesOf(pieces));
      comparison = new Comparison(pieces);
      comparison.take(head.subarray(end));
    }
  };
  await within(downloadLimitMs, () => `the archive, ${comparison?.received} bytes so far`, receive());
  assert.ok(comparison, head.toString("latin1"));
  assert.equal(comparison.received, bytesOf(comparison.pieces));
  await service.stop();
});
