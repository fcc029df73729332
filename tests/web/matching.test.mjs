// Two settings at one loudness.
import assert from "node:assert/strict";
import test from "node:test";

import { matchedTrims } from "../../web/src/model/matching.js";

test("the louder setting is turned down to the quieter one", () => {
  const rows = /** @type {[{a: number, b: number}, number, {a: number, b: number}][]} */ ([
    [{ a: 0, b: 0 }, 0, { a: 0, b: 0 }],
    [{ a: 3.04, b: 0 }, 0, { a: -3, b: 0 }],
    [{ a: 0, b: 2.26 }, -4, { a: -4, b: -6.3 }],
    [{ a: -5, b: -7 }, 1.5, { a: -0.5, b: 1.5 }],
    [{ a: 12, b: 0 }, -55, { a: -60, b: -55 }],
  ]);
  for (const [levels, trim, wanted] of rows) assert.deepEqual(matchedTrims(levels, trim), wanted);
});
