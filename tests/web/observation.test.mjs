// What the page has seen: which two looks are compared, and since when something holds.
import assert from "node:assert/strict";
import test from "node:test";

import { conclude, emptyObservation, forgetLooks, observe } from "../../web/src/model/observation.js";
import { collected } from "./states.mjs";

const start = Date.UTC(2026, 2, 14);
const status = (blocks, more = {}) => {
  const { now } = collected("works");
  now.apo_diagnostics.total_processed_blocks = blocks;
  Object.assign(now.footstep, more.footstep);
  Object.assign(now.apo_diagnostics, more.report);
  return now;
};
const looks = (...list) =>
  list.reduce(
    (seen, [time, document]) => observe(seen, { kind: "status", document }, start + time),
    emptyObservation(),
  );
const listens = (seen, time, document) => observe(seen, { kind: "devices", document }, start + time);
const devices = (peak, more = {}) => {
  const document = collected("works").devices;
  document.render[0].peak = peak;
  return { ...document, ...more };
};

test("a look is compared with the one before it", () => {
  const seen = looks([0, "a"], [1000, "b"], [2000, "c"]);
  assert.deepEqual(
    [seen.before, seen.beforeAt, seen.now, seen.nowAt],
    ["b", start + 1000, "c", start + 2000],
  );
});

test("looks that are too close keep the one before them", () => {
  const seen = looks([0, "a"], [1000, "b"], [1100, "c"]);
  assert.deepEqual([seen.before, seen.now], ["a", "c"]);
});

test("looks that are too far apart, or back in time, are not compared", () => {
  assert.equal(looks([0, "a"], [12_001, "b"]).before, null);
  assert.equal(looks([0, "a"], [12_000, "b"]).before, "a");
  assert.equal(looks([0, "a"], [-5000, "b"]).before, null);
});

test("since when blocks stand still", () => {
  const moving = looks([0, status(1)], [1000, status(2)]);
  assert.equal(moving.stillSince, null);
  const still = looks([0, status(1)], [1000, status(1)], [2000, status(1)]);
  assert.equal(still.stillSince, start);
  assert.equal(observe(still, { kind: "status", document: status(2) }, start + 3000).stillSince, null);
});

test("since when the report differs, again from each change of the settings", () => {
  const other = { footstep: { enhance_strength: 0.2 } };
  const seen = looks([0, status(1)], [1000, status(2, other)], [2000, status(3, other)]);
  assert.equal(seen.differsSince, start + 1000);
  const changed = observe(
    seen,
    { kind: "status", document: status(4, { footstep: { enhance_strength: 0.3 } }) },
    start + 3000,
  );
  assert.equal(changed.differsSince, start + 3000);
  assert.equal(observe(changed, { kind: "status", document: status(5) }, start + 4000).differsSince, null);
});

test("since when the chosen device has sound", () => {
  let seen = listens(emptyObservation(), 0, devices(0));
  assert.equal(seen.soundSince, null);
  seen = listens(seen, 1000, devices(0.1));
  seen = listens(seen, 2000, devices(0));
  assert.equal(seen.soundSince, start + 1000, "a pause of two seconds is none");
  seen = listens(seen, 3000, devices(0));
  assert.equal(seen.soundSince, start + 1000);
  seen = listens(seen, 3001, devices(0));
  assert.equal(seen.soundSince, null);
});

test("another choice is another sound", () => {
  const document = devices(0.1);
  let seen = listens(emptyObservation(), 0, document);
  const other = { ...document, selected_render_endpoint_id: document.render[1].id };
  seen = listens(seen, 1000, other);
  assert.deepEqual([seen.soundSince, seen.chosen?.name], [null, "Headphones (High Definition Audio)"]);
});

test("devices that went away take their peaks with them, and odd ids are ids", () => {
  const device = (id, peak) => ({ id, name: id, peak, apo_bound: true });
  let seen = listens(emptyObservation(), 0, { render: [device("__proto__", 1), device("a", 1)] });
  assert.deepEqual(Object.entries(seen.peaks), [
    ["__proto__", start],
    ["a", start],
  ]);
  seen = listens(seen, 1000, { render: [device("__proto__", 0)] });
  assert.deepEqual(Object.entries(seen.peaks), [["__proto__", start]]);
  for (const odd of [null, undefined, 7, "x", [], { render: 7 }, { render: [null, 7, { id: 3 }] }]) {
    assert.deepEqual(listens(seen, 2000, odd).peaks, {});
  }
});

test("what is forgotten is all but the equalizer and the name", () => {
  let seen = looks([0, status(1)], [1000, status(2)]);
  seen = observe(listens(seen, 1000, devices(0.1)), { kind: "equalizer", document: "e" }, start);
  const chosen = { id: devices(0).selected_render_endpoint_id, name: "Speakers (High Definition Audio)" };
  assert.deepEqual(forgetLooks(seen), { ...emptyObservation(), equalizer: "e", chosen });
});

test("conclude keeps the first of unbroken verdicts, and the same object where nothing changed", () => {
  let seen = conclude(emptyObservation(), /** @type {any} */ ({ id: "works" }), start);
  assert.equal(conclude(seen, /** @type {any} */ ({ id: "works" }), start + 1000), seen);
  assert.equal(seen.worksSince, start);
  seen = conclude(seen, /** @type {any} */ ({ id: "checking" }), start + 2000);
  assert.deepEqual([seen.worksSince, seen.checkingSince], [null, start + 2000]);
});
