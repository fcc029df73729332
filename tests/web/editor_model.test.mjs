// Random sequences of what a person, the service and another writer do to the equalizer, against rules that always hold.
import assert from "node:assert/strict";
import test from "node:test";

import {
  cancel,
  finish,
  hasPending,
  makeEdit,
  newEditor,
  redo,
  settingOf,
  switchSlot,
  takeLook,
  takePending,
  takeRefusal,
  takeSilence,
  takeWritten,
  touch,
  undo,
} from "../../web/src/model/editor.js";
import { asHeld, firstBands, withChange } from "../../web/src/model/equalizer.js";

const runs = 60;
const stepsPerRun = 80;
/** The person edits the first bands, the other writer the others. */
const ownBands = 6;
const allBands = 15;

/**
 * Random numbers that are the same for the same seed.
 *
 * @param {number} seed
 */
function randomOf(seed) {
  let state = seed >>> 0;
  const next = () => {
    state = (state + 0x6d2b79f5) >>> 0;
    let mixed = Math.imul(state ^ (state >>> 15), state | 1);
    mixed ^= mixed + Math.imul(mixed ^ (mixed >>> 7), mixed | 61);
    return ((mixed ^ (mixed >>> 14)) >>> 0) / 2 ** 32;
  };
  const below = (/** @type {number} */ limit) => Math.floor(next() * limit);
  return { below, among: (/** @type {any[]} */ values) => values[below(values.length)] };
}

/** @param {ReturnType<typeof randomOf>} random */
function randomValues({ below, among }) {
  return among([
    { gain_db: below(7) - 3 },
    { freq_hz: among([20, 100, 1234.5678, 20000]) },
    { q: among([0.707, 1, 4.321]) },
    { type: below(9) },
    { gain_db: below(5), freq_hz: 100 * (1 + below(9)) },
  ]);
}

/** @param {import("../../web/src/model/equalizer.js").Setting} setting */
const ownOf = (setting) => asHeld(setting).bands.slice(0, ownBands);

/** A page and the record, with what happens between them. */
class World {
  /** @param {number} seed */
  constructor(seed) {
    this.random = randomOf(seed);
    this.record = asHeld({ bypass: this.random.below(2) === 0, fade_ms: 20, bands: firstBands() });
    this.first = this.record;
    this.editor = takeLook(newEditor(), this.record);
    /** What is on its way to the service. */
    this.sent = /** @type {import("../../web/src/model/equalizer.js").Setting | null} */ (null);
    this.time = 0;
  }

  shown() {
    const setting = settingOf(this.editor);
    assert.ok(setting);
    return setting;
  }

  change() {
    const index = this.random.below(ownBands);
    return { bands: { [index]: randomValues(this.random) } };
  }

  /** Reads the record and begins to write. */
  begin() {
    if (this.sent !== null || !hasPending(this.editor)) return;
    const [before, shown, held] = [this.record, this.shown(), this.editor.held];
    const { editor, setting } = takePending(this.editor, before);
    for (let index = ownBands; index < allBands; ++index)
      assert.deepEqual(setting.bands[index], before.bands[index], "a band of others is kept");
    assert.deepEqual(ownOf(setting), ownOf(shown), "what is shown is what is written");
    if (held?.bypass === before.bypass)
      assert.equal(setting.bypass, shown.bypass, "what is shown on is written on, off is off");
    this.editor = editor;
    this.sent = setting;
  }

  answer() {
    if (this.sent === null) return;
    this.record = asHeld(this.sent);
    this.editor = takeWritten(this.editor, this.sent);
    this.sent = null;
  }

  silence() {
    const shown = this.shown();
    // The service may have taken it all the same.
    if (this.sent !== null && this.random.below(2) === 0) this.record = asHeld(this.sent);
    this.editor = takeSilence(this.editor);
    this.sent = null;
    assert.deepEqual(this.shown(), shown, "without an answer nothing is lost");
  }

  refusal() {
    if (this.sent === null) return;
    this.editor = takeRefusal(this.editor);
    this.sent = null;
    assert.deepEqual(this.shown(), this.editor.held, "a refusal goes back to what is held");
  }

  /** Another page or program writes. */
  other() {
    const { below } = this.random;
    if (this.sent !== null) return;
    const index = ownBands + below(allBands - ownBands);
    this.record = asHeld(withChange(this.record, { bands: { [index]: randomValues(this.random) } }));
  }

  look() {
    this.editor = takeLook(this.editor, this.record);
  }

  /** Sends all and looks. */
  settle() {
    this.answer();
    while (hasPending(this.editor)) {
      this.begin();
      this.answer();
    }
    this.look();
  }

  edit() {
    const { below, among } = this.random;
    const change = among([this.change(), this.change(), this.change(), { bypass: below(2) === 0 }]);
    this.time += below(1500);
    const wanted = withChange(this.shown(), change);
    this.editor = makeEdit(this.editor, { change }, {}, among(["", "key"]), this.time);
    assert.deepEqual(this.shown().bands, wanted.bands);
  }

  undoAndRedo() {
    this.editor = finish(this.editor);
    const before = this.shown();
    const undone = undo(this.editor);
    if (undone === null) return;
    const redone = redo(undone.editor);
    assert.ok(redone);
    this.editor = redone.editor;
    assert.deepEqual(ownOf(this.shown()), ownOf(before), "undo and redo give the same");
  }

  /** @param {typeof undo} step undo or redo */
  goBack(step) {
    this.editor = step(this.editor)?.editor ?? this.editor;
  }

  cancel() {
    const from = this.editor.gesture?.from;
    this.editor = cancel(this.editor);
    if (from !== undefined)
      assert.deepEqual(ownOf(this.shown()), ownOf(from), "a drag that is cancelled leaves nothing");
  }

  /** Undoes all that can be undone. */
  undoAll() {
    for (let done = undo(this.editor); done !== null; done = undo(this.editor)) this.editor = done.editor;
  }

  /** @param {string[]} deeds */
  run(deeds) {
    const { among } = this.random;
    for (let count = 0; count < stepsPerRun; ++count) {
      const deed = among(deeds);
      if (deed === "touch") this.editor = touch(this.editor, this.change());
      else if (deed === "finish") this.editor = finish(this.editor);
      else if (deed === "undo") this.goBack(undo);
      else if (deed === "redo") this.goBack(redo);
      else if (deed === "switch") this.editor = switchSlot(this.editor, null).editor;
      else if (deed === "off") this.record = { ...this.record, bypass: this.random.below(2) === 0 };
      else /** @type {any} */ (this)[deed]();
    }
  }
}

const edits = ["touch", "touch", "touch", "finish", "cancel", "edit", "edit"];
const person = [...edits, "undo", "redo", "undoAndRedo"];
const service = ["begin", "begin", "answer", "answer", "look"];

/**
 * @param {string[]} deeds
 * @param {(world: World) => void} check
 */
function runAll(deeds, check) {
  for (let seed = 1; seed <= runs; ++seed) {
    const world = new World(seed);
    try {
      world.run(deeds);
      check(world);
    } catch (error) {
      if (error instanceof Error) error.message = `seed ${seed}: ${error.message}`;
      throw error;
    }
  }
}

/** @param {World} world */
function checkSettled(world) {
  world.editor = finish(world.editor);
  const own = ownOf(world.shown());
  world.settle();
  assert.deepEqual(world.shown(), world.record, "what is shown is what the record holds");
  assert.deepEqual(ownOf(world.record), own, "nothing is lost");
}

/** @param {World} world */
function checkUndone(world) {
  checkSettled(world);
  world.undoAll();
  checkSettled(world);
  assert.deepEqual(ownOf(world.record), ownOf(world.first), "all is undone");
}

test("whatever a person does, it arrives, and all of it can be undone", () => {
  runAll([...person, ...service, "other"], (world) => {
    checkUndone(world);
    assert.equal(world.record.bypass, world.first.bypass);
  });
});

test("nothing is lost where no answer comes", () => {
  runAll([...person, ...service, "other", "silence"], checkUndone);
});

test("after refusals the page shows what is held, and the next edits arrive", () => {
  runAll([...edits, ...service, "other", "refusal"], checkSettled);
});

test("others switch the equalizer on and off meanwhile", () => {
  runAll([...person, ...service, "other", "off"], checkUndone);
});

test("two slots, and what is shown is what is held", () => {
  runAll([...person, ...service, "switch", "silence"], (world) => {
    checkSettled(world);
    const { bypass } = world.record;
    world.editor = switchSlot(world.editor, null).editor;
    checkSettled(world);
    assert.equal(world.record.bypass, bypass, "a switch leaves it on or off");
  });
});
