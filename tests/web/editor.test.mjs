// The equalizer while it is edited: what is shown, what is sent, and what is undone.
import assert from "node:assert/strict";
import test from "node:test";

import {
  cancel,
  finish,
  followRename,
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

const flat = { bypass: true, fade_ms: 20, bands: firstBands() };
const gain = (value, index = 0) => ({ bands: { [index]: { gain_db: value } } });
const at = (setting, index = 0) => setting.bands[index].gain_db;
const looked = (setting = flat) => takeLook(newEditor(), setting);
const edit = (editor, change, more = {}, before = {}) => makeEdit(editor, { change, ...more }, before);

/**
 * @param {import("../../web/src/model/editor.js").Editor} editor
 * @returns {import("../../web/src/model/equalizer.js").Setting}
 */
function shown(editor) {
  const setting = settingOf(editor);
  assert.ok(setting);
  return setting;
}

/**
 * @param {typeof undo} step undo or redo
 * @param {import("../../web/src/model/editor.js").Editor} editor
 */
function stepped(step, editor) {
  const done = step(editor);
  assert.ok(done);
  return done;
}

/** Sends what is pending to a record, as the page does. */
function send(editor, record) {
  const { editor: taken, setting, overtakes } = takePending(editor, record.setting);
  record.setting = asHeld(setting);
  return { editor: takeWritten(taken, setting), overtakes };
}

test("nothing is edited before the record is known", () => {
  const editor = newEditor();
  assert.equal(settingOf(editor), undefined);
  assert.equal(settingOf(touch(editor, gain(1))), undefined);
  assert.equal(hasPending(edit(editor, gain(1))), false);
  assert.equal(undo(editor), null);
  assert.equal(switchSlot(editor, null).editor, editor);
});

test("an edit is shown at once and switches the equalizer on", () => {
  const editor = edit(looked(), gain(3));
  assert.equal(at(shown(editor)), 3);
  assert.equal(shown(editor).bypass, false);
  assert.ok(hasPending(editor));
  const undone = stepped(undo, editor).editor;
  assert.deepEqual(shown(undone), flat);
  assert.deepEqual(shown(stepped(redo, undone).editor), shown(editor));
});

test("an edit that changes nothing is no step and sends nothing", () => {
  const on = { ...flat, bypass: false };
  const editor = edit(looked(on), gain(0));
  assert.equal(undo(editor), null);
  assert.equal(hasPending(editor), false);
});

test("a look during an edit is not shown, one after it is", () => {
  const record = { setting: flat };
  const editor = edit(looked(), gain(3));
  assert.equal(at(shown(takeLook(editor, flat))), 3);
  const { editor: sent } = send(editor, record);
  assert.equal(at(shown(sent)), 3);
  const other = withChange(record.setting, gain(-2, 4));
  assert.equal(at(shown(takeLook(sent, other)), 4), -2);
  assert.equal(settingOf(takeLook(sent, undefined)), undefined);
});

test("what was written is shown with the digits that the record keeps", () => {
  const record = { setting: flat };
  const { editor } = send(edit(looked(), { bands: { 0: { freq_hz: 1234.5678 } } }), record);
  assert.equal(shown(editor).bands[0].freq_hz, 1234.57);
});

test("changes that come while one is sent are sent together", () => {
  let editor = edit(looked(), gain(3));
  const { editor: taken, setting } = takePending(editor, flat);
  assert.equal(hasPending(taken), false);
  editor = edit(edit(taken, gain(4)), gain(5, 7));
  editor = takeWritten(editor, setting);
  assert.deepEqual([at(shown(editor)), at(shown(editor), 7)], [4, 5]);
  const next = takePending(editor, asHeld(setting));
  assert.deepEqual([at(next.setting), at(next.setting, 7)], [4, 5]);
  assert.deepEqual(next.overtakes, []);
});

test("what others have changed is kept; the newer change of one band wins and is reported", () => {
  const record = { setting: withChange(flat, gain(6, 9)) };
  const first = send(edit(looked(), gain(3)), record);
  assert.deepEqual([at(record.setting), at(record.setting, 9), first.overtakes], [3, 6, []]);
  record.setting = withChange(record.setting, gain(-8));
  const second = send(edit(first.editor, gain(4)), record);
  assert.deepEqual([at(record.setting), second.overtakes], [4, [0]]);
});

test("undo takes back what was done here only", () => {
  const record = { setting: flat };
  let { editor } = send(edit(looked(), gain(3)), record);
  record.setting = withChange(record.setting, gain(6, 9));
  editor = takeLook(editor, record.setting);
  send(stepped(undo, editor).editor, record);
  assert.deepEqual([at(record.setting), at(record.setting, 9), record.setting.bypass], [0, 6, true]);
});

test("a drag is one step, and can be cancelled", () => {
  let editor = edit(looked(), gain(1));
  for (const value of [2, 3, 4])
    editor = touch(editor, { bands: { 0: { gain_db: value, freq_hz: 100 * value } } });
  assert.deepEqual(shown(cancel(editor)), shown(edit(looked(), gain(1))));
  assert.equal(cancel(editor).gesture, null);
  editor = finish(editor);
  assert.equal(at(shown(editor)), 4);
  const undone = stepped(undo, editor).editor;
  assert.deepEqual([at(shown(undone)), shown(undone).bands[0].freq_hz], [1, 20]);
  assert.deepEqual(shown(stepped(undo, undone).editor), flat);
  assert.equal(finish(undone), undone);
  assert.equal(cancel(undone), undone);
});

test("a drag that ends where it began is no step", () => {
  const on = { ...flat, bypass: false };
  const editor = finish(touch(touch(looked(on), gain(3)), gain(0)));
  assert.equal(undo(editor), null);
});

test("the first drag of an equalizer that is off is undone to off", () => {
  const editor = finish(touch(looked(), gain(3)));
  assert.equal(shown(editor).bypass, false);
  assert.deepEqual(shown(stepped(undo, editor).editor), flat);
});

test("a drag goes on over looks and writes", () => {
  const record = { setting: flat };
  let editor = touch(looked(), gain(2));
  ({ editor } = send(editor, record));
  record.setting = withChange(record.setting, gain(6, 9));
  editor = takeLook(editor, record.setting);
  assert.deepEqual([at(shown(editor)), at(shown(editor), 9)], [2, 6]);
  ({ editor } = send(touch(editor, gain(5)), record));
  editor = finish(editor);
  assert.deepEqual([at(record.setting), at(record.setting, 9)], [5, 6]);
  send(stepped(undo, editor).editor, record);
  assert.deepEqual([at(record.setting), at(record.setting, 9)], [0, 6]);
});

test("an edit or an undo in the middle of a drag ends it", () => {
  const dragged = touch(looked(), gain(2));
  const edited = edit(dragged, gain(1, 3));
  assert.equal(edited.gesture, null);
  assert.equal(at(shown(stepped(undo, edited).editor)), 2);
  assert.deepEqual(shown(stepped(undo, dragged).editor), flat);
});

test("without an answer a change is kept, and sent later", () => {
  const record = { setting: flat };
  let { editor } = takePending(edit(looked(), gain(3)), flat);
  editor = takeSilence(edit(editor, gain(2, 5)));
  assert.deepEqual([at(shown(editor)), at(shown(editor), 5)], [3, 2]);
  assert.equal(at(shown(takeLook(editor, flat))), 3, "a look does not take it away");
  send(editor, record);
  assert.deepEqual([at(record.setting), at(record.setting, 5)], [3, 2]);
  const unread = takeSilence(edit(looked(), gain(3)));
  assert.ok(hasPending(unread), "nor where reading fails");
});

test("a refusal goes back to what the record holds", () => {
  const { editor } = takePending(edit(looked(), gain(3)), flat);
  const refused = takeRefusal(editor);
  assert.deepEqual(shown(refused), flat);
  assert.equal(hasPending(refused), false);
});

test("a refusal within a drag keeps what has arrived of it as an undo step", () => {
  const record = { setting: { ...flat, bypass: false } };
  let { editor } = send(touch(looked(record.setting), gain(2)), record);
  editor = takeRefusal(takePending(touch(editor, gain(4)), record.setting).editor);
  assert.deepEqual([at(shown(editor)), editor.gesture], [2, null]);
  assert.equal(at(shown(stepped(undo, editor).editor)), 0);
  const refused = takePending(touch(looked(record.setting), gain(4)), record.setting).editor;
  assert.equal(undo(takeRefusal(refused)), null, "nothing has arrived");
});

test("going back leaves an equalizer off that was switched off meanwhile", () => {
  const on = { ...flat, bypass: false };
  const off = (editor) => takeLook(editor, { ...shown(editor), bypass: true });
  const record = { setting: on };
  const { editor } = send(edit(looked(on), gain(3)), record);
  record.setting = { ...record.setting, bypass: true };
  const undone = stepped(undo, off(editor)).editor;
  const sent = send(undone, record);
  assert.deepEqual([at(record.setting), record.setting.bypass], [0, true]);
  send(stepped(redo, sent.editor).editor, record);
  assert.deepEqual([at(record.setting), record.setting.bypass], [3, true]);
  const dragged = { setting: { ...on, bypass: true } };
  const moved = send(touch(looked(on), gain(2)), { setting: on }).editor;
  send(cancel(off(moved)), dragged);
  assert.deepEqual([at(dragged.setting), dragged.setting.bypass], [0, true]);
});

test("an edit that changes nothing leaves an equalizer off", () => {
  const editor = edit(looked(), gain(0));
  assert.equal(undo(editor), null);
  assert.equal(hasPending(editor), false);
  const preset = { name: "one", starter: false, saved: flat };
  const more = edit(looked(), gain(0), { preset: null }, { preset });
  assert.equal(shown(more).bypass, true);
  assert.equal(hasPending(more), false);
  assert.equal(stepped(undo, more).edit.preset, preset);
});

test("an edit carries the output trim and the preset, and undo gives the former ones back", () => {
  const preset = { name: "More bass", starter: false, saved: flat };
  const editor = edit(looked(), gain(3), { trimDb: -4, preset }, { trimDb: 0, preset: null });
  const undone = stepped(undo, editor);
  assert.deepEqual([undone.edit.trimDb, undone.edit.preset], [0, null]);
  const redone = stepped(redo, undone.editor);
  assert.deepEqual([redone.edit.trimDb, redone.edit.preset], [-4, preset]);
  const trimOnly = edit(looked(), {}, { trimDb: -1 }, { trimDb: 0 });
  assert.equal(stepped(undo, trimOnly).edit.trimDb, 0);
  assert.equal(hasPending(trimOnly), false, "the bands are not sent");
  assert.equal(undo(edit(looked(), {}, { trimDb: -1 }, { trimDb: -1 })), null);
});

test("the other slot begins as a copy, and each has its own setting, preset and history", () => {
  const preset = { name: "one", starter: false, saved: flat };
  const first = edit(looked(), gain(3));
  const { editor: copied, preset: same } = switchSlot(first, preset);
  assert.deepEqual([copied.active, at(shown(copied)), same], ["b", 3, preset]);
  assert.deepEqual([undo(copied), redo(copied)], [null, null]);
  const second = edit(copied, gain(-6));
  const back = switchSlot(second, null);
  assert.deepEqual([back.editor.active, at(shown(back.editor)), back.preset], ["a", 3, preset]);
  assert.equal(at(shown(stepped(undo, back.editor).editor)), 0);
  const again = switchSlot(back.editor, preset);
  assert.deepEqual([at(shown(again.editor)), again.preset], [-6, null]);
  const record = { setting: flat };
  send(again.editor, record);
  assert.equal(at(record.setting), -6);
});

test("a switch of slots leaves the equalizer on or off", () => {
  for (const bypass of [true, false]) {
    const second = switchSlot(looked({ ...flat, bypass: false }), null).editor;
    const edited = edit(edit(second, gain(5)), { bypass });
    assert.equal(shown(switchSlot(edited, null).editor).bypass, bypass);
  }
});

test("a change from elsewhere while a drag rests is overtaken, reported, and what Escape goes back to", () => {
  const record = { setting: asHeld({ ...flat, bypass: false }) };
  let { editor } = send(touch(looked(record.setting), gain(3)), record);
  record.setting = withChange(record.setting, { bands: { 0: { gain_db: -6, q: 2 }, 4: { gain_db: 1 } } });
  editor = takeLook(editor, record.setting);
  assert.equal(at(shown(editor)), 3, "the dot stays under the pointer");
  const moved = send(touch(editor, gain(4)), record);
  assert.deepEqual([at(record.setting), record.setting.bands[0].q, moved.overtakes], [4, 2, [0]]);
  const again = send(touch(moved.editor, gain(5)), record);
  assert.deepEqual(again.overtakes, [], "reported once");
  const escaped = send(cancel(again.editor), record);
  assert.deepEqual([at(record.setting), at(record.setting, 4), escaped.overtakes], [-6, 1, []]);
  const undone = stepped(undo, finish(again.editor)).editor;
  assert.equal(at(shown(undone)), -6);
});

test("a change from elsewhere that is seen only when the drag is sent is what Escape goes back to", () => {
  const record = { setting: asHeld({ ...flat, bypass: false }) };
  const { editor } = send(touch(looked(record.setting), gain(3)), record);
  record.setting = withChange(record.setting, gain(-6));
  const moved = send(touch(editor, gain(4)), record);
  assert.deepEqual(moved.overtakes, [0]);
  send(cancel(moved.editor), record);
  assert.equal(at(record.setting), -6);
});

test("steps of undo and the other slot follow a rename", () => {
  const ref = (name, starter = false) => ({ name, starter, saved: flat });
  let editor = edit(looked(), gain(1), { preset: ref("One") }, { preset: ref("One", true) });
  editor = switchSlot(editor, ref("One")).editor;
  editor = edit(editor, gain(2), { preset: ref("Night") }, { preset: ref("One") });
  editor = followRename(editor, "One", "Two");
  const undone = stepped(undo, editor);
  assert.equal(undone.edit.preset?.name, "Two");
  assert.equal(stepped(redo, undone.editor).edit.preset?.name, "Night");
  const back = switchSlot(editor, ref("Night"));
  assert.equal(back.preset?.name, "Two");
  assert.equal(stepped(undo, back.editor).edit.preset?.name, "One", "a starter keeps its name");
});
