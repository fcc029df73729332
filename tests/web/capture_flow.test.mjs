// The flow of a capture: from the commands, the looks at the files, the effect's report and the clock.
import assert from "node:assert/strict";
import test from "node:test";

import {
  awaitsFiles,
  captureWords,
  explain,
  missingMs,
  newFlow,
  restoreFlow,
  secondsLeft,
  serializeFlow,
  step,
} from "../../web/src/model/capture_flow.js";
import { tables } from "../../web/src/texts/index.js";

const t0 = 1_780_000_000_000;

/**
 * Plays events; a number is how many milliseconds go by.
 *
 * @param {(number | import("../../web/src/model/capture_flow.js").FlowEvent["type"] | object)[]} events
 */
function play(events, flow = newFlow(), time = t0) {
  for (const event of events) {
    if (typeof event === "number") {
      time += event;
      flow = step(flow, { type: "tick" }, time);
    } else {
      const whole = /** @type {any} */ (typeof event === "string" ? { type: event } : event);
      flow = step(flow, whole, time);
    }
  }
  return { flow, time };
}

const files = (ready, bytes) => ({ type: "files", ready, bytes });
const words = (state, seconds = 10, code = -2147483648) => ({
  type: "words",
  words: { state, seconds, code },
});
const look = ({ flow, time }, isProcessing = true) => {
  const view = explain(flow, time, isProcessing);
  return {
    sentence: view.sentence.key.slice("capture.".length),
    values: view.sentence.values,
    notes: view.notes.map(({ key }) => key.slice("capture.note.".length)),
    buttons: view.buttons.map(({ id }) => id),
    progress: view.progress,
    tone: view.tone,
  };
};
const recorded = ["started", 11_000];
const exported = [...recorded, "exported"];
const ready = [...exported, files(false, 0), 1000, files(true, 400), 1000, files(true, 400)];

test("a capture from the start to its files", () => {
  assert.deepEqual(look(play([files(false, 0)])), {
    sentence: "idle",
    values: {},
    notes: [],
    buttons: ["start"],
    progress: null,
    tone: "info",
  });
  const recording = look(play([{ type: "seconds", seconds: 20.9 }, "started", 5000]));
  assert.equal(recording.sentence, "recording");
  assert.deepEqual(recording.values, { left: 16, seconds: 20 });
  assert.deepEqual(recording.buttons, ["stop"]);
  assert.deepEqual(recording.progress, { value: 4, most: 20 });
  assert.deepEqual(look(play(recorded)).buttons, ["export", "again"]);
  const waiting = look(play([...exported, files(false, 0), 3000, files(false, 90)]));
  assert.equal(waiting.sentence, "exporting");
  assert.deepEqual(waiting.values, { elapsed: 3, bytes: 90 });
  assert.deepEqual(waiting.buttons, ["notAwaited"]);
  const there = look(play(ready));
  assert.equal(there.sentence, "ready");
  assert.deepEqual(there.values, { bytes: 400, at: t0 + 13_000 });
  assert.deepEqual(there.buttons, ["download", "again"]);
  assert.equal(there.tone, "good");
});

test("the countdown never shows more than was asked for, and ends a second late: the command takes as long", () => {
  const { flow } = play(["started"]);
  const rows = [
    [0, 10],
    [999, 10],
    [1000, 10],
    [1001, 10],
    [2000, 9],
    [10_000, 1],
    [11_000, 0],
    [50_000, 0],
    [-3000, 10],
  ];
  for (const [after, left] of rows) assert.equal(secondsLeft(flow, t0 + after), left, `${after}`);
  assert.equal(play(["started", 10_999]).flow.phase, "recording");
  assert.equal(play(["started", 11_000]).flow.phase, "recorded");
});

test("stopping early says after how long", () => {
  const stopped = look(play(["started", 4200, "stopped", 60_000]));
  assert.equal(stopped.sentence, "stopped");
  assert.deepEqual(stopped.values, { after: 4 });
  assert.equal(look(play(["started", 60_000])).sentence, "recorded");
});

test("files count as complete when a second look finds them alike", () => {
  assert.equal(play([...exported, files(true, 100)]).flow.phase, "exporting");
  assert.equal(play([...exported, files(true, 100), 1000, files(true, 200)]).flow.phase, "exporting");
  const growing = [files(true, 100), 1000, files(true, 200), 1000, files(true, 200)];
  assert.equal(play([...exported, ...growing]).flow.phase, "ready");
});

test("waiting goes on while the files grow and ends without progress", () => {
  const slow = [files(false, 10), missingMs - 1, files(false, 20), missingMs - 1];
  assert.equal(play([...exported, ...slow]).flow.phase, "exporting");
  const ended = play([...exported, ...slow, 1]);
  assert.equal(look(ended).sentence, "missingRest");
  assert.equal(awaitsFiles(ended.flow), false);
  assert.deepEqual(look(ended).buttons, ["export", "awaited", "again"]);
  assert.deepEqual(look(ended).notes, ["missing"]);
  assert.equal(look(ended).tone, "warning");
  const none = play([...exported, files(false, 0), missingMs]);
  assert.equal(look(none).sentence, "missing");
  const again = play(["awaited"], none.flow, none.time);
  assert.equal(awaitsFiles(again.flow), true);
  assert.equal(play([missingMs - 1], again.flow, again.time).flow.phase, "exporting");
  assert.equal(play(["notAwaited"], again.flow, again.time).flow.phase, "recorded");
});

test("no sound and no report are said as what may be wrong", () => {
  assert.deepEqual(look(play([]), false).notes, ["silent"]);
  assert.deepEqual(look(play(["started", 1000]), false).notes, ["noSound"]);
  assert.deepEqual(look(play([words(1), "started", 4000])).notes, [], "the report may yet come");
  assert.deepEqual(look(play([words(1), "started", 4001])).notes, ["noReport"]);
  assert.deepEqual(look(play([words(1), "started", 2000, words(2), 3000])).notes, []);
  assert.deepEqual(look(play([words(1), "started", 11_000])).notes, ["noReport"]);
  assert.deepEqual(look(play([words(1), "started", 2000, words(1, 11), 9000])).notes, []);
  assert.deepEqual(look(play([words(1), ...exported, 10_000])).notes, []);
  assert.deepEqual(look(play([words(1), ...exported, 10_001])).notes, ["noReport"]);
  assert.deepEqual(look(play([words(1), ...exported, 10_001]), false).notes, ["noSound"]);
  assert.deepEqual(look(play([...exported, 10_001])).notes, [], "the report was never read");
  assert.deepEqual(look(play([...exported, 10_001, words(3)])).notes, [], "nor was the one before");
  assert.deepEqual(look(play([words(1), ...exported, words(3), 10_001])).notes, []);
});

test("files that could not be removed are said to be old", () => {
  const held = [files(true, 400), ...recorded, "exported", files(true, 400), 1000, files(true, 400)];
  assert.equal(play(held).flow.phase, "exporting", "they may yet be written over");
  const old = play([...held, 9000, files(true, 400)]);
  assert.equal(old.flow.phase, "ready");
  assert.deepEqual(look(old).notes, ["old"]);
  assert.deepEqual(look(old).buttons, ["export", "download", "again"]);
  assert.equal(look(old).tone, "warning");
  const first = play(ready);
  const second = play(["again", ...held.slice(1), 9000, files(true, 400)], first.flow, first.time);
  const view = explain(second.flow, second.time, true);
  assert.deepEqual(view.notes, [{ key: "capture.note.oldFrom", values: { at: t0 + 13_000 } }]);
});

test("files of the same size that were seen gone, or of another size, are new", () => {
  const before = [files(true, 400), ...recorded, "exported"];
  const gone = play([...before, files(false, 0), 1000, files(true, 400), 1000, files(true, 400)]);
  assert.equal(gone.flow.phase, "ready");
  assert.equal(gone.flow.areOld, false);
  const other = play([...before, files(true, 401), 1000, files(true, 401)]);
  assert.equal(other.flow.phase, "ready");
  assert.equal(other.flow.areOld, false);
});

test("files found at opening are those of an earlier export", () => {
  const found = play([files(true, 400)]);
  assert.equal(look(found).sentence, "readyUnknown");
  assert.deepEqual(look(found).buttons, ["download", "again"]);
  const again = play(["again"], found.flow);
  assert.deepEqual(look(again).notes, ["kept"]);
  assert.deepEqual(look(again).buttons, ["start", "download"]);
  assert.deepEqual(look(play(recorded, again.flow)).notes.at(-1), "replaces");
  assert.equal(look(play([files(false, 0)], found.flow)).sentence, "gone");
});

test("the earlier files are named by their time where it is known", () => {
  const { flow, time } = play([...ready, "again", ...recorded]);
  const { notes } = explain(flow, time, true);
  assert.deepEqual(notes.at(-1), { key: "capture.note.replacesFrom", values: { at: t0 + 13_000 } });
});

test("the effect's report changing by itself is said", () => {
  assert.deepEqual(look(play([words(1), words(1)])).notes, []);
  const changed = play([words(1), words(2)]);
  assert.deepEqual(look(changed).notes, ["elsewhere"]);
  assert.deepEqual(look(changed).buttons, ["start", "export"]);
  assert.deepEqual(look(play([{ type: "words", words: null }, words(0)])).notes, ["elsewhere"]);
  assert.deepEqual(
    look(play([words(1), ...ready, "again", words(9)])).notes,
    ["kept"],
    "asked for by the page",
  );
});

test("the report is read where it is whole", () => {
  const report = {
    available: true,
    capture_reported: true,
    capture_state: 2,
    capture_seconds: 120,
    capture_detail_code: -5,
  };
  const of = (/** @type {object} */ changed) => captureWords({ apo_diagnostics: { ...report, ...changed } });
  assert.deepEqual(of({}), { state: 2, seconds: 120, code: -5 });
  assert.equal(of({ capture_reported: false }), null);
  for (const changed of [{ available: false }, { capture_reported: 1 }, { capture_state: "2" }])
    assert.equal(of(changed), undefined);
  assert.equal(captureWords(null), undefined);
});

test("a download: progress, and each of its ends", () => {
  const under = [...ready, "downloading"];
  assert.equal(look(play(under)).sentence, "preparing");
  const half = play([...under, { type: "received", received: 200, total: 918 }]);
  assert.equal(look(half).sentence, "downloading");
  assert.deepEqual(look(half).progress, { value: 200, most: 918 });
  assert.deepEqual(look(half).buttons, ["cancel"]);
  assert.deepEqual(look(half).notes, ["downloading"]);
  const ended = (/** @type {string} */ kind, total = 918, inBrowser = false) =>
    play([
      ...under,
      { type: "downloadEnded", outcome: { kind, received: 200, total, name: "a.zip", inBrowser } },
    ]);
  assert.equal(look(ended("complete")).sentence, "downloaded");
  assert.equal(look(ended("complete", 918, true)).sentence, "downloadedByBrowser");
  assert.deepEqual(look(ended("complete")).buttons, ["again", "download"]);
  for (const kind of ["cancelled", "broken", "unwritable"]) {
    const view = explain(ended(kind).flow, t0, true);
    assert.equal(view.sentence.key, "capture.ready", kind);
    assert.equal(view.notes[0].key, `capture.${kind}`);
    assert.equal(view.tone, kind === "cancelled" ? "good" : "warning");
  }
  assert.equal(explain(ended("broken", 0).flow, t0, true).notes[0].key, "capture.brokenUnknown");
  const refused = play([...under, { type: "downloadEnded", outcome: null }]);
  assert.deepEqual(look(refused).notes, []);
  assert.deepEqual(look(refused).buttons, ["download", "export", "again"], "Help advises both");
  const { outcome } = ended("broken").flow;
  const broken = play(["downloading", { type: "downloadEnded", outcome }], refused.flow);
  assert.deepEqual(look(broken).buttons, ["download", "again"]);
  const late = play([{ type: "received", received: 1, total: 2 }], refused.flow);
  assert.equal(late.flow, refused.flow, "what comes after the end changes nothing");
});

test("files that are gone are awaited, and can be exported again", () => {
  const refused = [...ready, "downloading", { type: "downloadEnded", outcome: null }];
  const gone = play([...refused, files(false, 300)]);
  assert.equal(look(gone).sentence, "gone");
  assert.equal(look(gone).tone, "warning");
  assert.deepEqual(look(gone).notes, ["gone"]);
  assert.deepEqual(look(gone).buttons, ["export", "again"]);
  assert.equal(awaitsFiles(gone.flow), true);
  const growing = play([files(true, 350), 1000], gone.flow, gone.time);
  assert.equal(growing.flow.phase, "gone", "they may still grow");
  const back = play([files(true, 400), 1000, files(true, 400)], growing.flow, growing.time);
  assert.equal(look(back).sentence, "ready");
  assert.deepEqual(look(back).values, { bytes: 400, at: t0 + 13_000 });
  assert.deepEqual(look(back).buttons, ["download", "export", "again"]);
  assert.equal(awaitsFiles(back.flow), false);
  const others = play([files(true, 500), 1000, files(true, 500)], gone.flow, gone.time);
  assert.equal(look(others).sentence, "readyUnknown");
  const again = play(["exported", files(false, 0), 1000, files(true, 9), 1000, files(true, 9)], gone.flow);
  assert.deepEqual(look(again).buttons, ["download", "again"]);
  const complete = { kind: "complete", received: 1, total: 1, name: "a.zip", inBrowser: false };
  const deleted = play([
    ...ready,
    "downloading",
    { type: "downloadEnded", outcome: complete },
    files(false, 0),
  ]);
  assert.equal(look(deleted).sentence, "gone");
  assert.equal(look(deleted).tone, "info", "who has the download may have deleted them");
});

// ---- over a reload ----

const reload = (/** @type {{flow: any, time: number}} */ { flow, time }, after = 0) => ({
  flow: restoreFlow(serializeFlow(flow), time + after),
  time: time + after,
});

test("a reload finds a recording, its end, and what was stopped", () => {
  const recording = reload(play(["started", 3000]), 1000);
  assert.equal(look(recording).sentence, "recording");
  assert.deepEqual(look(recording).values, { left: 7, seconds: 10 });
  assert.deepEqual(look(recording).notes, ["resumed"]);
  const over = reload(play(["started", 3000]), 60_000);
  assert.equal(look(over).sentence, "recorded");
  assert.equal(over.flow.endedAt, t0 + 11_000);
  const stopped = reload(play(["started", 3000, "stopped"]), 60_000);
  assert.deepEqual(look(stopped).values, { after: 3 });
});

test("a reload waits on for files, and knows what it had seen of the earlier ones", () => {
  const waiting = reload(play([files(true, 400), ...recorded, "exported", files(false, 0), 5000]), 1000);
  assert.equal(look(waiting).sentence, "exporting");
  assert.deepEqual(look(waiting).values, { elapsed: 6, bytes: 0 });
  assert.deepEqual(look(waiting).notes, ["resumedExport"]);
  const there = play([files(true, 400), 1000, files(true, 400)], waiting.flow, waiting.time);
  assert.equal(there.flow.phase, "ready");
  assert.equal(there.flow.areOld, false);
  assert.deepEqual(look(there).notes, []);
});

test("a reload knows when files were made, as long as they are those", () => {
  const kept = reload(play(ready), 5000);
  assert.equal(look(kept).sentence, "idle");
  assert.deepEqual(look(play([files(true, 400)], kept.flow)).values, { bytes: 400, at: t0 + 13_000 });
  assert.equal(look(play([files(true, 401)], kept.flow)).sentence, "readyUnknown");
  const downloading = reload(play([...ready, "downloading"]));
  assert.equal(look(play([files(true, 400)], downloading.flow)).sentence, "ready");
});

test("a reload still awaits files that are gone", () => {
  const gone = reload(play([files(true, 400), files(false, 300)]), 1000);
  assert.equal(look(gone).sentence, "gone");
  assert.equal(awaitsFiles(gone.flow), true);
  const back = play([files(true, 400), 1000, files(true, 400)], gone.flow, gone.time);
  assert.equal(back.flow.phase, "ready");
  assert.equal(reload(gone, 3_600_000).flow.phase, "idle", "that was long ago");
});

test("a reload knows whether the report has changed since the command", () => {
  const same = reload(play([words(1), "started", 3000]), 20_000);
  assert.deepEqual(look(play([words(1)], same.flow)).notes, ["resumed", "noReport"]);
  assert.deepEqual(look(play([words(2)], same.flow)).notes, ["resumed"]);
  assert.deepEqual(look(reload(play(["started", 3000]), 20_000)).notes, ["resumed"]);
});

test("what is kept too long, lies in the future or is no flow leads nowhere", () => {
  const hour = 3_600_000;
  for (const events of [["started"], [...recorded], [...exported]]) {
    assert.equal(reload(play(events), 2 * hour).flow.phase, "idle", JSON.stringify(events));
    assert.equal(reload(play(events), -hour).flow.phase, "idle", JSON.stringify(events));
  }
  const texts = [
    null,
    "",
    "{",
    "[]",
    "3",
    '{"version":2,"phase":"recording"}',
    '{"version":1,"phase":"recording"}',
    `{"version":1,"phase":"recording","startedAt":"${t0}"}`,
    `{"version":1,"phase":"recorded","endedAt":null}`,
    '{"version":1,"phase":"ready","made":{"at":"x"}}',
    '{"version":1,"seconds":301}',
    '{"version":1,"seconds":0.5}',
  ];
  for (const text of texts) assert.deepEqual(restoreFlow(text, t0), newFlow(), String(text));
  assert.equal(restoreFlow('{"version":1,"seconds":300}', t0).seconds, 300);
});

// ---- all of it ----

test("every sentence, note and button of the flow has a text", () => {
  const outcome = { received: 1, total: 2, name: "a", inBrowser: false };
  const ends = ["complete", "cancelled", "broken", "unwritable"].map((kind) => ({ ...outcome, kind }));
  const flows = [
    [],
    [words(1), words(2)],
    [files(true, 1), "again"],
    ["started"],
    ["started", "stopped"],
    [words(1), ...recorded],
    [...exported, 20_000],
    [...exported, missingMs],
    [...exported, files(false, 3), missingMs],
    ready,
    [...ready, files(false, 3)],
    [...ready, "downloading", { type: "downloadEnded", outcome: null }],
    [...ready, "downloading"],
    ...ends.map((one) => [...ready, { type: "downloadEnded", outcome: one }]),
  ];
  for (const events of flows) {
    const { flow, time } = play(events);
    for (const isProcessing of [true, false, undefined]) {
      for (const state of [flow, { ...flow, isResumed: true, areOld: true }, { ...flow, startedAt: null }]) {
        const view = explain(state, time, isProcessing);
        const keys = [view.sentence, ...view.notes, ...view.buttons].map(({ key }) => key);
        for (const key of keys) assert.ok(Object.hasOwn(tables.en, key), key);
        assert.ok(view.buttons.length > 0 && view.buttons.length <= 3, JSON.stringify(events));
        assert.ok(view.buttons.filter(({ primary }) => primary).length <= 1, JSON.stringify(events));
      }
    }
  }
});
