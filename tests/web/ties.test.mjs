// Presets that belong to devices: found by id, else by name, and offered when the device becomes the chosen one.
import assert from "node:assert/strict";
import test from "node:test";

import { emptyMemory, parseMemory, serializeMemory } from "../../web/src/model/memory.js";
import {
  endOffer,
  offeredTie,
  readTies,
  renameTies,
  takeChosenDevice,
  tie,
  tieOf,
} from "../../web/src/model/ties.js";

const speakers = { id: "{1}", name: "Speakers" };
const headphones = { id: "{2}", name: "Headphones" };
const night = { name: "night", starter: true };
const own = { name: "My sound", starter: false };
const kept = () => tie(tie(emptyMemory(), speakers, night), headphones, own);

test("a tie is found by the device's id, else by its name", () => {
  const { ties } = kept();
  assert.equal(tieOf(ties, speakers)?.preset, "night");
  assert.equal(tieOf(ties, { id: "{3}", name: "Headphones" })?.preset, "My sound", "plugged in elsewhere");
  assert.equal(tieOf(ties, { id: "{1}", name: "Headphones" })?.preset, "night", "the id goes first");
  assert.equal(tieOf(ties, { id: "{3}", name: "Else" }), null);
  const nameless = tie(emptyMemory(), { id: "{4}", name: "" }, night).ties;
  assert.equal(tieOf(nameless, { id: "{5}", name: "" }), null, "no name is no name in common");
});

test("a device has one tie; the newer one takes its place", () => {
  const again = tie(kept(), { id: "{9}", name: "Speakers" }, own);
  assert.deepEqual(
    again.ties.map(({ id, preset }) => [id, preset]),
    [
      ["{2}", "My sound"],
      ["{9}", "My sound"],
    ],
  );
  assert.deepEqual(tie(tie(kept(), speakers, null), headphones, null).ties, []);
  let many = emptyMemory();
  for (let index = 0; index < 100; ++index) many = tie(many, { id: `{${index}}`, name: `${index}` }, own);
  assert.deepEqual([many.ties.length, many.ties[0].id], [64, "{36}"]);
});

test("a renamed preset keeps its ties, a starter of the same name has its own", () => {
  const both = tie(kept(), { id: "{3}", name: "Screen" }, { name: "My sound", starter: true });
  assert.deepEqual(
    renameTies(both, "My sound", "Other").ties.map(({ preset }) => preset),
    ["night", "Other", "My sound"],
  );
  assert.deepEqual(
    renameTies(both, "My sound", null).ties.map(({ preset }) => preset),
    ["night", "My sound"],
  );
  assert.equal(renameTies(both, "night", "Other"), both);
});

test("a preset is offered when its device becomes the chosen one", () => {
  const offered = (/** @type {any} */ memory, /** @type {any} */ device, /** @type {any} */ inUse) =>
    offeredTie(takeChosenDevice(memory, device, inUse), device, inUse)?.preset;
  assert.equal(offered(kept(), speakers, null), "night");
  assert.equal(offered(kept(), headphones, own), undefined, "it is in use");
  assert.equal(offered(kept(), { id: "{3}", name: "Else" }, null), undefined);
  assert.equal(offered({ ...kept(), offersTies: false }, speakers, null), undefined);
  assert.equal(offered(kept(), speakers, { name: "night", starter: false }), "night");
});

test("an offer stays until it is answered, in use, or of another device", () => {
  const open = takeChosenDevice(kept(), speakers, null);
  assert.equal(takeChosenDevice(open, speakers, null), open, "it stays chosen");
  const reloaded = parseMemory(serializeMemory(open));
  assert.equal(offeredTie(takeChosenDevice(reloaded, speakers, own), speakers, own)?.preset, "night");
  const again = (/** @type {any} */ memory) => offeredTie(memory, speakers, null);
  const answered = endOffer(open);
  assert.equal(again(takeChosenDevice(answered, speakers, null)), null);
  const used = takeChosenDevice(open, speakers, night);
  assert.equal(again(takeChosenDevice(used, speakers, null)), null, "another choice brings no offer back");
  const elsewhere = takeChosenDevice(open, { id: "{3}", name: "Else" }, null);
  assert.equal(elsewhere.offeredDevice, null);
  assert.equal(again(takeChosenDevice(elsewhere, speakers, null))?.preset, "night", "chosen again");
  const untied = takeChosenDevice(tie(open, speakers, null), speakers, null);
  assert.equal(untied.offeredDevice, null);
});

test("ties come back from the storage, and what is none is left out", () => {
  const full = { ...kept(), offersTies: false, chosenDevice: "{1}" };
  assert.deepEqual(parseMemory(serializeMemory(full)), full);
  const [good] = kept().ties;
  const bad = [
    null,
    7,
    {},
    { ...good, id: "" },
    { ...good, device: 1 },
    { ...good, preset: "" },
    { ...good, starter: 1 },
  ];
  assert.deepEqual(readTies([...bad, good]), [good]);
  assert.deepEqual(readTies("no list"), []);
});
