// What the page keeps in browser storage: it survives any content, and knows what only a memory can tell.
import assert from "node:assert/strict";
import test from "node:test";

import {
  emptyMemory,
  holdsFirstValues,
  markEngine,
  parseMemory,
  readMemory,
  rememberAction,
  rememberDevices,
  rememberSettings,
  rememberStatus,
  rememberTrim,
  serializeMemory,
  settingsToOffer,
  trimOf,
  writeMemory,
} from "../../web/src/model/memory.js";
import { collected } from "./states.mjs";

const endpointId = collected("works").devices.selected_render_endpoint_id;
const chosenId = endpointId;
const footstep = { bypass: false, bypass_all: false, enhance_strength: 0.6 };
/** @returns {import("../../web/src/model/types.js").Kept} */
const full = () => ({
  added: { [endpointId]: "Speakers" },
  engine: { processId: 4711, known: true, lockCount: 3, kind: "add", endpointId },
  restartPending: { endpointId, processId: 4711 },
  removalPending: { processId: 4711, endpointIds: [endpointId, "__proto__"] },
  lastSettings: {
    footstep,
    preset: "More bass",
    presetChanged: true,
    equalizer: collected("works").equalizer,
  },
  lastStrength: 0.6,
  comparing: true,
  language: "zh",
  preset: { name: "More bass", starter: false, saved: collected("works").equalizer },
  unsent: collected("works").equalizer,
  ties: [{ id: endpointId, device: "Speakers", preset: "night", starter: true }],
  offersTies: false,
  chosenDevice: endpointId,
  offeredDevice: endpointId,
  matching: { trimBefore: 0, trimDb: -2.5 },
  trims: [["More bass", -3]],
});

class Store {
  items = new Map();
  getItem(key) {
    return this.items.get(key) ?? null;
  }
  setItem(key, value) {
    this.items.set(key, value);
  }
}

test("what is kept comes back", () => {
  const store = new Store();
  assert.deepEqual(
    readMemory(() => store),
    emptyMemory(),
  );
  assert.equal(
    writeMemory(() => store, full()),
    true,
  );
  assert.deepEqual(
    readMemory(() => store),
    full(),
  );
  assert.equal(store.items.size, 1);
});

test("a storage that is refused, full or missing is no failure", () => {
  const refused = () => {
    throw new Error("refused");
  };
  const broken = { getItem: refused, setItem: refused };
  for (const storage of [refused, () => broken, () => null, () => undefined]) {
    assert.deepEqual(readMemory(storage), emptyMemory());
    assert.equal(writeMemory(storage, full()), false);
  }
});

test("whatever else is in it counts as nothing", () => {
  const bad = [
    null,
    "",
    "x",
    "null",
    "[]",
    "7",
    '"text"',
    "{}",
    '{"version":2,"language":"zh"}',
    "{".repeat(10_000),
  ];
  for (const text of bad) assert.deepEqual(parseMemory(text), emptyMemory(), String(text));
});

test("a bad member is left out, and the others stay", () => {
  const whole = JSON.parse(serializeMemory(full()));
  const odd = [null, true, -1, "x", [], {}, [[1, 2]], [["a"]], { processId: "1" }, { endpointId: 3 }];
  for (const key of Object.keys(emptyMemory())) {
    for (const value of odd) {
      const read = parseMemory(JSON.stringify({ ...whole, [key]: value }));
      const isGood = (key === "comparing" && value === true) || (/Device$/.test(key) && value === "x");
      if (!isGood) {
        assert.deepEqual(read[key], emptyMemory()[key], `${key} ${JSON.stringify(value)}`);
      }
      for (const other of Object.keys(whole).filter((one) => one !== key && one !== "version")) {
        assert.deepEqual(read[other], full()[other], `${other} beside ${key}`);
      }
    }
  }
});

test("settings that the service would refuse are not kept", () => {
  const { equalizer } = collected("works");
  const read = (lastSettings) =>
    parseMemory(JSON.stringify({ version: 1, lastSettings })).lastSettings ?? null;
  assert.equal(read({ footstep: { ...footstep, enhance_strength: 1.5 } }), null);
  assert.equal(read({ footstep: { ...footstep, bypass: 1 } }), null);
  assert.notEqual(read({ footstep, equalizer })?.equalizer, null);
  assert.equal(
    read({ footstep, equalizer: { ...equalizer, bands: equalizer.bands.slice(1) } })?.equalizer,
    null,
  );
  assert.equal(read({ footstep, equalizer: { ...equalizer, fade_ms: "20" } })?.equalizer, null);
});

test("devices that were seen with the effect are remembered, with their names", () => {
  const first = rememberDevices(emptyMemory(), collected("works").devices);
  assert.deepEqual(first.added, { [endpointId]: "Speakers (High Definition Audio)" });
  assert.equal(rememberDevices(first, collected("works").devices), first, "nothing is new");
  assert.equal(
    rememberDevices(first, collected("unboundWhileRunning").devices),
    first,
    "it is not forgotten",
  );
  for (const odd of [
    null,
    undefined,
    7,
    [],
    { render: {} },
    { render: [null, { id: 3, apo_bound: true }] },
  ]) {
    assert.equal(rememberDevices(first, odd), first);
  }
});

test("any id is a key, and the oldest go first", () => {
  const device = (id) => ({ id, name: id, apo_bound: true });
  const odd = rememberDevices(emptyMemory(), { render: ["__proto__", "constructor", "a"].map(device) });
  assert.deepEqual(Object.keys(parseMemory(serializeMemory(odd)).added), ["__proto__", "constructor", "a"]);
  assert.equal(Object.getPrototypeOf(odd.added), Object.prototype);
  const many = rememberDevices(odd, {
    render: Array.from({ length: 500 }, (_, index) => device(`device ${index}`)),
  });
  assert.equal(Object.keys(many.added).length, 64);
  assert.ok(Object.hasOwn(many.added, "device 499"));
});

function act(
  kept,
  kind,
  {
    restartsAudio = true,
    status = 200,
    audioRestarted = restartsAudio,
    state = "works",
    id: endpointId = chosenId,
  } = {},
) {
  const result = { status, error: "", audioRestarted, restartError: 0, restartDetail: "" };
  const action = { kind, endpointId, restartsAudio, startedAt: 0, endedAt: 1, result };
  return rememberAction(kept, action, markEngine(kind, endpointId, collected(state).now), "Speakers");
}

test("an add with a restart marks the engine until another one runs, or none", () => {
  const kept = act(emptyMemory(), "add");
  assert.deepEqual(kept.engine, { processId: 4711, known: true, lockCount: 1, kind: "add", endpointId });
  assert.equal(kept.restartPending, null);
  assert.equal(rememberStatus(kept, collected("addedEngineKept").now).engine, kept.engine);
  assert.equal(rememberStatus(kept, collected("added").now).engine, null);
  assert.equal(rememberStatus(kept, collected("addedEngineGone").now).engine, null);
  assert.equal(rememberStatus(kept, { audio_engine: { running: false, error_code: 5 } }).engine, kept.engine);
});

test("an add without a restart, or with one that failed, waits for one", () => {
  const later = act(emptyMemory(), "add", { restartsAudio: false });
  assert.deepEqual([later.restartPending, later.engine], [{ endpointId, processId: 4711 }, null]);
  const failed = act(emptyMemory(), "add", { audioRestarted: false });
  assert.deepEqual(failed.restartPending, { endpointId, processId: 4711 });
  assert.equal(act(later, "restart").restartPending, null);
  assert.equal(act(later, "remove", { restartsAudio: false }).restartPending, null);
  assert.equal(rememberStatus(later, collected("added").now).restartPending, null, "the PC was restarted");
  assert.equal(rememberStatus(later, collected("addedEngineGone").now).restartPending, later.restartPending);
});

const later = { restartsAudio: false };

test("a removal without a restart waits for one, until the engine of that time is gone", () => {
  const kept = act(emptyMemory(), "remove", later);
  assert.deepEqual(kept.removalPending, { processId: 4711, endpointIds: [endpointId] });
  assert.deepEqual(parseMemory(serializeMemory(kept)).removalPending, kept.removalPending);
  const failed = act(emptyMemory(), "remove", { audioRestarted: false });
  assert.deepEqual(failed.removalPending, kept.removalPending);
  const still = (status) => assert.equal(rememberStatus(kept, status).removalPending, kept.removalPending);
  still(collected("removedLater").now);
  for (const name of ["added", "addedEngineGone"])
    assert.equal(rememberStatus(kept, collected(name).now).removalPending, null, name);
  still({ audio_engine: { running: false, error_code: 5 } });
  for (const kind of ["add", "remove", "restart"]) assert.equal(act(kept, kind).removalPending, null, kind);
});

test("removals of several devices wait for the same restart", () => {
  const first = act(emptyMemory(), "remove", later);
  const both = act(first, "remove", { ...later, id: "headphones" });
  assert.deepEqual(both.removalPending, { processId: 4711, endpointIds: [endpointId, "headphones"] });
  assert.deepEqual(act(both, "remove", later).removalPending?.endpointIds, ["headphones", endpointId]);
  const added = act(both, "add", later);
  assert.deepEqual(added.removalPending, { processId: 4711, endpointIds: ["headphones"] });
  const other = act(both, "remove", { ...later, state: "added", id: "third" });
  assert.deepEqual(other.removalPending, { processId: 5822, endpointIds: ["third"] });
});

test("an effect that the engine never had leaves nothing to finish", () => {
  for (const state of ["notLoaded", "noEngine"])
    assert.equal(act(emptyMemory(), "remove", { ...later, state }).removalPending, null, state);
  const added = act(emptyMemory(), "add", later);
  const removed = act(added, "remove", later);
  assert.deepEqual([removed.removalPending, removed.restartPending], [null, null]);
});

test("what is added again while the engine still has it waits for nothing", () => {
  const removed = act(emptyMemory(), "remove", later);
  const again = act(removed, "add", later);
  assert.deepEqual([again.removalPending, again.restartPending], [null, null]);
  const another = act(removed, "add", { ...later, state: "added" });
  assert.deepEqual(another.restartPending, { endpointId, processId: 5822 }, "another engine");
  const unloaded = act(removed, "add", { ...later, state: "notLoaded" });
  assert.deepEqual(unloaded.restartPending, { endpointId, processId: 4711 }, "it is known to have let go");
  const other = act(removed, "add", { ...later, id: "headphones" });
  assert.deepEqual(other.restartPending, { endpointId: "headphones", processId: 4711 }, "another device");
  assert.deepEqual(other.removalPending, removed.removalPending);
  const seen = rememberDevices(removed, collected("works").devices);
  assert.equal(seen.removalPending, null, "another program added it");
});

test("a device that the person removed the effect from is no longer one that had it", () => {
  const kept = act(emptyMemory(), "add");
  assert.deepEqual(Object.keys(kept.added), [endpointId]);
  assert.deepEqual(act(kept, "remove").added, {});
});

test("what was refused changes nothing", () => {
  const kept = full();
  for (const status of [0, 400, 401, 503]) assert.equal(act(kept, "remove", { status }), kept);
});

test("an engine that cannot be listed is marked as unknown", () => {
  const { known } = markEngine("add", endpointId, { audio_engine: { running: false, error_code: 5 } });
  assert.equal(known, false);
  assert.deepEqual(markEngine("add", endpointId, null), {
    processId: 0,
    known: false,
    lockCount: 0,
    kind: "add",
    endpointId,
    effectLoaded: undefined,
  });
});

test("the last strength above 0 is kept", () => {
  const kept = rememberStatus(emptyMemory(), { footstep: { enhance_strength: 0.3 } });
  assert.equal(kept.lastStrength, 0.3);
  for (const strength of [0, -1, 2, "nan", null, undefined]) {
    assert.equal(rememberStatus(kept, { footstep: { enhance_strength: strength } }).lastStrength, 0.3);
  }
});

test("the last settings are offered when the record holds its first values, and only then", () => {
  const record = collected("newRecord");
  const { equalizer } = collected("equalizerOnly");
  const kept = rememberSettings(emptyMemory(), footstep, equalizer);
  assert.equal(holdsFirstValues(record.now, record.equalizer), true);
  assert.deepEqual(settingsToOffer(kept, record.now, record.equalizer), kept.lastSettings);
  const comparing = rememberSettings(emptyMemory(), { ...footstep, bypass_all: true }, equalizer);
  assert.equal(settingsToOffer(comparing, record.now, record.equalizer)?.footstep.bypass_all, false);
  const changed = collected("works");
  assert.equal(settingsToOffer(kept, changed.now, changed.equalizer), null);
  assert.equal(settingsToOffer(emptyMemory(), record.now, record.equalizer), null);
  const off = rememberSettings(kept, { ...footstep, bypass: true }, { ...equalizer, bypass: true });
  assert.equal(settingsToOffer(off, record.now, record.equalizer), null, "they would change nothing");
  for (const odd of [null, 7, [], {}]) {
    assert.equal(settingsToOffer(kept, odd, record.equalizer), null);
    assert.equal(settingsToOffer(kept, record.now, odd), null);
  }
});

test("the output trim of a preset is kept, replaced and forgotten, under any name", () => {
  let kept = emptyMemory();
  for (const name of ["Bass", "__proto__", "constructor", "7", "夜晚"]) {
    assert.equal(trimOf(kept, name), undefined, name);
    kept = rememberTrim(kept, name, -3);
    assert.equal(trimOf(kept, name), -3, name);
    assert.equal(rememberTrim(kept, name, -3), kept);
  }
  kept = rememberTrim(rememberTrim(kept, "__proto__", 0), "7", undefined);
  assert.deepEqual(parseMemory(serializeMemory(kept)).trims, [
    ["Bass", -3],
    ["constructor", -3],
    ["夜晚", -3],
    ["__proto__", 0],
  ]);
  for (const trim of [NaN, Infinity, -60.1, 20.1])
    assert.equal(trimOf(rememberTrim(kept, "Bass", trim), "Bass"), undefined, String(trim));
  for (const trim of [-60, 20]) assert.equal(trimOf(rememberTrim(kept, "Bass", trim), "Bass"), trim);
});

test("200 trims are kept, the newest ones", () => {
  let kept = emptyMemory();
  for (let index = 0; index < 202; ++index) kept = rememberTrim(kept, String(index), index / 100);
  assert.equal(kept.trims.length, 200);
  assert.deepEqual([trimOf(kept, "1"), trimOf(kept, "2")], [undefined, 0.02]);
  const more = [["old", 1], ...kept.trims, ["2", 9]];
  const read = parseMemory(JSON.stringify({ version: 1, trims: more }));
  assert.equal(read.trims.length, 200);
  assert.deepEqual([trimOf(read, "old"), trimOf(read, "2"), trimOf(read, "3")], [undefined, 9, 0.03]);
});

test("a trim that the service would refuse is not read", () => {
  const trims = [["a", 20.5], ["b", "3"], ["", 1], [1, 1], ["c"], "d", null, ["e", null], ["f", -60]];
  assert.deepEqual(parseMemory(JSON.stringify({ version: 1, trims })).trims, [["f", -60]]);
});
