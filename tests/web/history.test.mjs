// Undo and redo: at least 200 steps, quick steps of one key as one.
import assert from "node:assert/strict";
import test from "node:test";

import { emptyHistory, mostSteps, recordStep, redoStep, undoStep } from "../../web/src/model/history.js";

/**
 * @param {typeof undoStep} step undoStep or redoStep
 * @param {import("../../web/src/model/history.js").History} history
 */
function stepped(step, history) {
  const done = step(history);
  assert.ok(done);
  return done;
}

const gain = (from, to) => ({
  back: { change: { bands: { 0: { gain_db: from } } } },
  forth: { change: { bands: { 0: { gain_db: to } } } },
});

test("steps are undone and redone in order", () => {
  let history = emptyHistory();
  assert.equal(undoStep(history), null);
  assert.equal(redoStep(history), null);
  for (let step = 0; step < 3; ++step) history = recordStep(history, gain(step, step + 1));
  for (const expected of [2, 1, 0]) {
    const undone = stepped(undoStep, history);
    assert.deepEqual(undone.edit, gain(expected, 0).back);
    history = undone.history;
  }
  assert.equal(undoStep(history), null);
  for (const expected of [1, 2, 3]) {
    const redone = stepped(redoStep, history);
    assert.deepEqual(redone.edit, gain(0, expected).forth);
    history = redone.history;
  }
  assert.equal(redoStep(history), null);
});

test("a new step ends what could be redone", () => {
  const once = recordStep(recordStep(emptyHistory(), gain(0, 1)), gain(1, 2));
  const { history } = stepped(undoStep, once);
  assert.equal(redoStep(recordStep(history, gain(1, 9))), null);
});

test("at least 200 steps are kept, and no more than the limit", () => {
  assert.ok(mostSteps >= 200);
  let history = emptyHistory();
  for (let step = 0; step < mostSteps + 20; ++step) history = recordStep(history, gain(step, step + 1));
  assert.equal(history.past.length, mostSteps);
  for (let step = 0; step < mostSteps; ++step) history = stepped(undoStep, history).history;
  assert.equal(undoStep(history), null);
  assert.deepEqual(stepped(redoStep, history).edit, gain(0, 21).forth);
});

test("steps with one key within a second are one", () => {
  let history = recordStep(emptyHistory(), gain(0, 1), "key", 1000);
  history = recordStep(history, gain(1, 2), "key", 1900);
  history = recordStep(history, gain(2, 3), "key", 2900);
  assert.deepEqual(history.past, [gain(0, 3)]);
  history = recordStep(history, gain(3, 4), "key", 3901);
  assert.equal(history.past.length, 2, "later than a second");
  history = recordStep(history, gain(4, 5), "other", 3950);
  history = recordStep(history, gain(5, 6), "", 3960);
  history = recordStep(history, gain(6, 7), "", 3960);
  assert.equal(history.past.length, 5, "other keys, and none");
  const { history: undone } = stepped(undoStep, recordStep(history, gain(7, 8), "key", 4000));
  assert.equal(recordStep(undone, gain(7, 9), "key", 4001).past.length, 6, "after an undo");
});

test("a merged step takes back the values of its beginning", () => {
  const first = {
    back: { change: { bypass: true, bands: { 0: { q: 1 } } }, trimDb: 0 },
    forth: { change: {}, trimDb: 1 },
  };
  const second = {
    back: { change: { bands: { 0: { q: 2 }, 1: { q: 3 } } }, trimDb: 1 },
    forth: { change: {}, trimDb: 2 },
  };
  const [step] = recordStep(recordStep(emptyHistory(), first, "k", 0), second, "k", 1).past;
  assert.deepEqual(step.back, { change: { bypass: true, bands: { 0: { q: 1 }, 1: { q: 3 } } }, trimDb: 0 });
  assert.equal(step.forth.trimDb, 2);
});
