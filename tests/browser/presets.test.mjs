// Presets on the first screen, with the real service and a real folder that others may change at any time.
import assert from "node:assert/strict";
import fs from "node:fs";
import path from "node:path";
import test from "node:test";

import { equalizerDocument, makeDirectory, poll, someBands } from "../e2e/harness.mjs";
import { limits, openPage, paths, putDocument, readDocument, waitForMessage } from "./browser.mjs";

const presetPath = "/api/v1/eq/presets";
const algorithm = "/api/v1/render/effects/algorithm";
const flatBands = (gains = {}) =>
  someBands().map((band, index) => ({ ...band, type: 0, gain_db: gains[index] ?? 0 }));
const settingOf = (gains = {}) => ({ bypass: false, fade_ms: 20, bands: flatBands(gains) });
const contentsOf = (gains = {}) => equalizerDocument(settingOf(gains));

/**
 * A page with a folder of presets.
 *
 * @param {import("node:test").TestContext} t
 * @param {Record<string, string>} [files] contents by name
 * @param {Parameters<typeof openPage>[1] & {folder?: string}} [options]
 */
async function openPresets(t, files = {}, { folder = makeDirectory(), ...options } = {}) {
  for (const [name, text] of Object.entries(files)) fs.writeFileSync(path.join(folder, `${name}.json`), text);
  const opened = await openPage(t, { more: ["--preset-directory", folder], ...options });
  return {
    ...opened,
    folder,
    ...controlsOf(opened.page),
    ...filesOf(folder),
    held: () => held(opened.service),
  };
}

/** @param {import("playwright-core").Page} page */
function controlsOf(page) {
  const select = page.locator("#preset");
  const dialog = page.getByRole("dialog");
  const more = page.locator(".more > button");
  return {
    select,
    dialog,
    more,
    save: page.locator(".preset-bar > button"),
    message: page.locator(".messages .message > span"),
    /** @param {string} name */
    own: (name) => select.selectOption(`own ${name}`),
    /** @param {string} name */
    starter: (name) => select.selectOption(`starter ${name}`),
    /** @param {"save as" | "rename" | "revert" | "delete" | "reset"} what */
    async choose(what) {
      await more.click();
      const at = ["save as", "rename", "revert", "delete", "reset"].indexOf(what);
      await page.locator(".more-items button").nth(at).click();
    },
    /** @param {string} name */
    async enter(name) {
      await dialog.getByRole("textbox").fill(name);
      await dialog.locator(".primary").click();
    },
    /** @param {string | RegExp} label */
    async waitForChosen(label) {
      let last = "";
      await poll(`the choice ${label}`, async () => {
        last = await select
          .locator("option:checked")
          .first()
          .evaluate((one) => one.textContent?.trim() ?? "");
        return (typeof label === "string" ? last === label : label.test(last)) ? true : undefined;
      }).catch((error) => {
        throw new Error(`${error.message}; it is ${last}`);
      });
    },
    /** Waits until the question is gone or there. */
    waitForDialog: (isOpen) => dialog.waitFor({ state: isOpen ? "visible" : "detached" }),
    undo: page.locator(".messages .message button"),
    gain: page.getByRole("textbox", { name: /^Gain of band \d+, dB/ }),
    labels: () => select.locator("option:not([disabled])").allTextContents(),
  };
}

/** @param {string} folder */
function filesOf(folder) {
  const file = (/** @type {string} */ name) => path.join(folder, `${name}.json`);
  return {
    files: () => fs.readdirSync(folder).sort(),
    stored: (/** @type {string} */ name) => fs.readFileSync(file(name), "utf8"),
    write: (/** @type {string} */ name, /** @type {string} */ text) => fs.writeFileSync(file(name), text),
    remove: (/** @type {string} */ name) => fs.rmSync(file(name)),
  };
}

/** @param {import("../e2e/harness.mjs").Service} service */
async function held(service) {
  const setting = await readDocument(service, paths.equalizer);
  const status = await readDocument(service, paths.status);
  return { ...setting, trim: status.footstep.output_trim_db };
}

/** Waits until the gain of the first band is as given. */
const waitForGain = (service, gain) =>
  poll(`the gain ${gain}`, async () => {
    const { bands } = await readDocument(service, paths.equalizer);
    return bands[0].gain_db === gain ? true : undefined;
  });

/** @param {import("playwright-core").Locator} field */
async function edit(field, text) {
  await field.fill(text);
  await field.press("Enter");
}

const presetChanges = async (changes) => (await changes()).filter((request) => request.includes(presetPath));

/** Another client writes a preset. */
const writeElsewhere = (service, name, gains) =>
  putDocument(service, `${presetPath}/${encodeURIComponent(name)}`, settingOf(gains));

test("opening and showing a page only reads, and what others have stored is listed", limits, async (t) => {
  const { page, requests, changes, labels, write, remove, waitForChosen, own } = await openPresets(t, {
    "b 10": contentsOf(),
    "b 2": contentsOf(),
    夜晚: contentsOf(),
  });
  const starters = ["Flat", "More bass", "Clearer voices", "Softer treble", "Night"];
  const waitForLabels = (wanted) =>
    poll(`the presets ${wanted}`, async () => {
      const shown = await labels();
      return shown.length === 5 + wanted.length && wanted.every((name, at) => shown[5 + at] === name)
        ? true
        : undefined;
    });
  await waitForLabels(["b 2", "b 10", "夜晚"]);
  assert.deepEqual((await labels()).slice(0, 5), starters);
  await waitForChosen("Choose a preset");
  const lists = () => requests.filter((request) => request === `GET ${presetPath}`).length;
  assert.equal(lists(), 1);
  write("new one", contentsOf());
  remove("b 10");
  for (const state of ["hidden", "visible"]) {
    await page.evaluate((value) => {
      Object.defineProperty(document, "visibilityState", { configurable: true, get: () => value });
      document.dispatchEvent(new Event("visibilitychange"));
    }, state);
  }
  await waitForLabels(["b 2", "new one", "夜晚"]);
  assert.equal(lists(), 2);
  await page.reload();
  await waitForLabels(["b 2", "new one", "夜晚"]);
  assert.deepEqual(await changes(), []);
  // An action looks at the folder as well.
  write("third", contentsOf());
  await own("b 2");
  await waitForLabels(["b 2", "new one", "third", "夜晚"]);
});

test("a starter is loaded, edited, and saved as a copy", limits, async (t) => {
  const opened = await openPresets(t, { "more BASS": contentsOf({ 0: 1 }) });
  const { service, starter, save, dialog, gain, files, stored, waitForChosen, changes, choose } = opened;
  await starter("moreBass");
  await waitForChosen("More bass");
  await poll("the bass", async () => ((await opened.held()).bands[3].gain_db === 5 ? true : undefined));
  assert.equal((await opened.held()).bypass, false);
  assert.deepEqual(await presetChanges(changes), []);
  await edit(gain, "2");
  await waitForChosen("More bass (changed)");
  await choose("revert");
  await waitForMessage(opened.page, "Back to More bass as it was saved.");
  await waitForChosen("More bass");
  await edit(gain, "2");
  await waitForGain(service, 2);
  await save.click();
  // The name is free, whatever the case.
  assert.equal(await dialog.getByRole("textbox").inputValue(), "More bass 2");
  await opened.enter("My bass");
  await waitForMessage(opened.page, "Saved as My bass.");
  await waitForChosen("My bass");
  assert.deepEqual(files(), ["My bass.json", "more BASS.json"]);
  assert.equal(stored("My bass"), equalizerDocument(await readDocument(service, paths.equalizer)));
  assert.deepEqual((await presetChanges(changes)).length, 1);
  await choose("reset");
  await poll("flat", async () =>
    (await opened.held()).bands.every(({ gain_db: value }) => value === 0) ? true : undefined,
  );
  await waitForChosen("Choose a preset");
  assert.equal(await opened.page.locator(".messages .message").count(), 0);
});

test("names are checked in the page, with a sentence each, and nothing is sent", limits, async (t) => {
  const { page, choose, enter, dialog, changes, waitForDialog, files } = await openPresets(t);
  await choose("save as");
  assert.equal(await dialog.getByRole("textbox").inputValue(), "My sound");
  const problem = dialog.getByRole("alert");
  for (const [name, text] of [
    ["", "Enter a name."],
    ["  ", "Enter a name."],
    [" bass", "A name cannot begin or end with a space."],
    ["bass ", "A name cannot begin or end with a space."],
    ["a/b", "A name cannot contain “/”. Use letters, digits, spaces, - and _."],
    ["..", "A name cannot contain “.”. Use letters, digits, spaces, - and _."],
    ["a\u202eb", "A name cannot contain “U+202E”. Use letters, digits, spaces, - and _."],
    [
      "字".repeat(22),
      "This name is too long: 66 of at most 64 bytes. A Latin letter takes 1 byte, a Chinese character 3.",
    ],
    ["nul", "Windows reserves the name nul. Add a word to it."],
  ]) {
    await enter(name);
    await problem.filter({ hasText: text }).waitFor();
    assert.equal(await problem.innerText(), text, name);
    assert.equal(await dialog.getByRole("textbox").inputValue(), name);
    await page.waitForFunction(() => document.activeElement?.tagName === "INPUT");
  }
  await page.keyboard.press("Escape");
  await waitForDialog(false);
  assert.deepEqual(await changes(), []);
  assert.deepEqual(files(), []);
  await page.waitForFunction(() => document.activeElement?.matches(".more > button"));
});

test("saving over a preset asks first, and says if others have changed it", limits, async (t) => {
  const opened = await openPresets(t, { bass: contentsOf({ 0: 3 }) });
  const { page, service, own, save, dialog, gain, stored, write, remove, waitForChosen, changes } = opened;
  await own("bass");
  await waitForGain(service, 3);
  // Nothing has changed, so nothing is written.
  await save.click();
  await waitForMessage(page, "Saved as bass.");
  assert.deepEqual(await presetChanges(changes), []);

  await edit(gain, "4");
  await waitForChosen("bass (changed)");
  await save.click();
  await dialog.getByRole("heading", { name: "Replace the preset bass?" }).waitFor();
  assert.equal(await dialog.locator("p").innerText(), "Its saved settings are lost.");
  await dialog.getByRole("button", { name: "Cancel" }).click();
  await waitForChosen("bass (changed)");
  assert.deepEqual(await presetChanges(changes), []);
  await save.click();
  await dialog.getByRole("button", { name: "Replace" }).click();
  await waitForMessage(page, "Saved as bass.");
  await waitForChosen("bass");
  assert.equal(JSON.parse(stored("bass")).bands[0].gain_db, 4);
  assert.equal((await presetChanges(changes)).length, 1);

  write("bass", contentsOf({ 0: -9 }));
  await save.click();
  await dialog.getByText("Another page or program has changed it.").waitFor();
  await dialog.getByRole("button", { name: "Replace" }).click();
  await waitForMessage(page, "Saved as bass.");
  assert.equal(JSON.parse(stored("bass")).bands[0].gain_db, 4);

  // Deleted elsewhere: there is nothing to replace.
  remove("bass");
  await opened.choose("revert");
  await waitForMessage(page, "The preset bass was deleted meanwhile. Save it again to keep it.");
  await waitForChosen("bass (deleted)");
  await save.click();
  await waitForMessage(page, "Saved as bass.");
  assert.equal(JSON.parse(stored("bass")).bands[0].gain_db, 4);
  await waitForChosen("bass");
});

test("a name that is taken, also in another case, is asked about and keeps its file", limits, async (t) => {
  const opened = await openPresets(t, { bass: contentsOf({ 0: 3 }), Ночь: contentsOf() });
  const { page, dialog, choose, enter, files, stored, waitForChosen, waitForDialog, changes } = opened;
  await opened.starter("night");
  await choose("save as");
  await enter("ночь");
  await dialog.getByRole("heading", { name: "Replace the preset Ночь?" }).waitFor();
  await dialog.getByRole("button", { name: "Back" }).click();
  assert.equal(await dialog.getByRole("textbox").inputValue(), "ночь");
  await enter("bass");
  await dialog.getByText("A preset with this name exists. Its saved settings are lost.").waitFor();
  await dialog.getByRole("button", { name: "Back" }).click();
  await enter("BASS");
  await dialog
    .getByText("Windows treats BASS and bass as one name. The preset keeps the name bass.")
    .waitFor();
  await page.keyboard.press("Escape");
  await waitForDialog(false);
  assert.deepEqual(await presetChanges(changes), []);
  await choose("save as");
  await enter("BASS");
  await dialog.getByRole("button", { name: "Replace" }).click();
  await waitForMessage(page, "Saved as bass.");
  await waitForChosen("bass");
  assert.deepEqual(files(), ["bass.json", "Ночь.json"]);
  assert.equal(JSON.parse(stored("bass")).bands[3].gain_db, -6);
});

test("two tabs that save the same name: the second one is asked", limits, async (t) => {
  const opened = await openPresets(t);
  const { page, stored, files } = opened;
  const second = await opened.newPage();
  await second.goto(opened.address("/"));
  const other = controlsOf(second);
  await opened.starter("moreBass");
  await waitForBand(opened, 3, 5);
  await opened.choose("save as");
  await opened.dialog.waitFor();
  await other.choose("save as");
  await other.enter("Mine");
  await waitForMessage(second, "Saved as Mine.");
  const before = stored("Mine");
  await opened.enter("mine");
  await opened.dialog.getByRole("heading", { name: "Replace the preset Mine?" }).waitFor();
  assert.equal(stored("Mine"), before);
  await opened.dialog.getByRole("button", { name: "Replace" }).click();
  await waitForMessage(page, "Saved as Mine.");
  assert.deepEqual(files(), ["Mine.json"]);
});

const waitForBand = (opened, index, gain) =>
  poll(`band ${index}`, async () => ((await opened.held()).bands[index].gain_db === gain ? true : undefined));

test("revert reads the file again and is one undo step", limits, async (t) => {
  const opened = await openPresets(t, { bass: contentsOf({ 0: 3 }) });
  const { page, service, own, gain, choose, write, waitForChosen } = opened;
  await own("bass");
  await waitForGain(service, 3);
  await edit(gain, "4");
  await waitForGain(service, 4);
  await edit(gain, "5");
  await waitForGain(service, 5);
  write("bass", contentsOf({ 0: -2, 1: 1 }));
  await choose("revert");
  await waitForMessage(page, "Back to bass as it was saved.");
  await waitForGain(service, -2);
  await waitForChosen("bass");
  await page.getByRole("button", { name: "Undo" }).click();
  await waitForGain(service, 5);
  await waitForChosen("bass (changed)");
});

test(
  "a rename writes, reads back and deletes; in case only it goes through a third name",
  limits,
  async (t) => {
    const opened = await openPresets(t, { bass: contentsOf({ 0: 3 }), "other one": contentsOf({ 0: 9 }) });
    const { page, service, own, dialog, choose, enter, files, stored, waitForChosen, requests } = opened;
    const first = stored("bass");
    await own("bass");
    await waitForGain(service, 3);
    const rename = async (to) => {
      const from = requests.length;
      await choose("rename");
      await enter(to);
      return async () => {
        await waitForMessage(page, `Renamed to ${to}.`);
        await waitForChosen(to);
        return requests
          .slice(from)
          .filter((request) => request.includes(`${presetPath}/`))
          .map((request) => decodeURIComponent(request.replace(`${presetPath}/`, "").replace(/ \{.*/, "")));
      };
    };
    const done = await rename("More bass");
    assert.deepEqual(await done(), ["GET bass", "PUT More bass", "GET More bass", "DELETE bass"]);
    assert.deepEqual(files(), ["More bass.json", "other one.json"]);

    const inCase = await rename("more BASS");
    assert.deepEqual(await inCase(), [
      "GET More bass",
      "PUT more BASS 2",
      "GET more BASS 2",
      "DELETE More bass",
      "PUT more BASS",
      "GET more BASS",
      "DELETE more BASS 2",
    ]);
    assert.deepEqual(files(), ["more BASS.json", "other one.json"]);
    assert.equal(stored("more BASS"), first);

    // The same name changes nothing.
    const before = requests.filter((request) => !request.startsWith("GET")).length;
    await choose("rename");
    await enter("more BASS");
    await opened.waitForDialog(false);
    await choose("rename");
    await enter("Other one");
    await dialog.getByRole("heading", { name: "Replace the preset other one?" }).waitFor();
    assert.equal(requests.filter((request) => !request.startsWith("GET")).length, before);
    await dialog.getByRole("button", { name: "Replace" }).click();
    await waitForMessage(page, "Renamed to other one.");
    assert.deepEqual(files(), ["other one.json"]);
    assert.equal(stored("other one"), first);
  },
);

test("a rename of a file that another program wrote keeps what it means", limits, async (t) => {
  const bands = flatBands({ 0: 3 });
  bands[1].freq_hz = 1000.1257;
  const byHand = `${JSON.stringify({ note: "by hand", bands, fade_ms: 35, bypass: true }, null, 2)}\n`;
  const opened = await openPresets(t, { "by hand": byHand });
  await opened.own("by hand");
  await waitForGain(opened.service, 3);
  await opened.waitForChosen("by hand");
  await opened.choose("rename");
  await opened.enter("By hand");
  await waitForMessage(opened.page, "Renamed to By hand.");
  assert.deepEqual(opened.files(), ["By hand.json"]);
  const { fade_ms: fade, bypass, bands: kept } = JSON.parse(opened.stored("By hand"));
  assert.deepEqual([fade, bypass, kept[1].freq_hz], [35, true, 1000.13]);
});

test("wherever a rename fails, the page says what is there now", limits, async (t) => {
  const opened = await openPresets(t, { bass: contentsOf({ 0: 3 }) });
  const { page, service, own, choose, enter, files, stored, remove, waitForChosen } = opened;
  const first = stored("bass");
  await own("bass");
  await waitForGain(service, 3);
  /** The request with this number of the rename fails; the service never sees it. */
  const failing = async (number, answer) => {
    let count = -1;
    await page.route(`**${presetPath}/*`, (route) => {
      const fails = count++ === number;
      return fails ? route.fulfill(answer) : route.fallback();
    });
  };
  const json = (status, error) => ({
    status,
    contentType: "application/json",
    body: JSON.stringify({ error }),
  });
  const full = json(500, "cannot write the preset file");
  const none = json(404, "no such preset");
  const other = { status: 200, contentType: "application/json", body: contentsOf({ 0: 7 }) };
  const cannotWrite = "Windows does not let Velmora write the file. Check the disk and the preset folder.";
  const cannotCompare = (name) => `${name} was written, but could not be read back.`;
  /** @type {[to: string, failing: number, answer: typeof full, text: string, left: string[]][]} */
  const rows = [
    ["Bass", 0, full, `Not renamed: ${cannotWrite} The preset is saved as bass.`, ["bass"]],
    [
      "Bass",
      1,
      other,
      `Not renamed: ${cannotCompare("Bass 2")} The preset is saved as bass.`,
      ["Bass 2", "bass"],
    ],
    [
      "Bass",
      2,
      none,
      "Not renamed: The file is in use or write-protected. The preset is saved twice: as bass and as Bass 2.",
      ["Bass 2", "bass"],
    ],
    ["More", 0, full, `Not renamed: ${cannotWrite} The preset is saved as bass.`, ["bass"]],
    [
      "More",
      1,
      other,
      `Not renamed: ${cannotCompare("More")} The preset is saved as bass.`,
      ["More", "bass"],
    ],
  ];
  for (const [to, number, answer, text, left] of rows) {
    await failing(number, answer);
    await choose("rename");
    await enter(to);
    await waitForMessage(page, text);
    await page.unrouteAll();
    assert.deepEqual(
      files(),
      left.map((name) => `${name}.json`),
      text,
    );
    assert.equal(stored("bass"), first);
    await waitForChosen("bass");
    for (const name of left.filter((one) => one !== "bass")) remove(name);
  }
  // Behind the point where the old name is gone, the third one is the whole copy.
  /** @type {[failing: number, answer: typeof full, reason: string, left: string[]][]} */
  const late = [
    [3, full, cannotWrite, ["Bass 2"]],
    [4, other, cannotCompare("Bass"), ["Bass 2", "Bass"]],
  ];
  for (const [number, answer, reason, left] of late) {
    await failing(number, answer);
    await choose("rename");
    await enter("Bass");
    await waitForMessage(page, `Not renamed: ${reason} The preset is saved as Bass 2.`);
    await page.unrouteAll();
    assert.deepEqual(
      files(),
      left.map((name) => `${name}.json`),
    );
    assert.equal(stored("Bass 2"), first);
    await waitForChosen("Bass 2");
    for (const name of left) remove(name);
    opened.write("bass", first);
    await own("Bass 2");
    await waitForMessage(page, "The preset Bass 2 was deleted meanwhile.");
    await own("bass");
    await waitForChosen("bass");
  }
  await failing(2, none);
  await choose("rename");
  await enter("More");
  await waitForMessage(page, "Saved as More, but the preset bass could not be deleted.");
  await page.unrouteAll();
  assert.deepEqual(files(), ["More.json", "bass.json"]);
  await waitForChosen("More");
});

test("a rename onto a name that the folder cannot write changes nothing", limits, async (t) => {
  const opened = await openPresets(t, { bass: contentsOf({ 0: 3 }) });
  fs.mkdirSync(path.join(opened.folder, "taken.json"));
  await opened.own("bass");
  await waitForGain(opened.service, 3);
  await opened.choose("rename");
  await opened.enter("taken");
  await waitForMessage(opened.page, "Not renamed: Windows does not let Velmora write the file.");
  assert.deepEqual(opened.files(), ["bass.json", "taken.json"]);
  await opened.waitForChosen("bass");
});

test("deleting is undone with one click, and asks if the name is taken meanwhile", limits, async (t) => {
  const opened = await openPresets(t, { bass: contentsOf({ 0: 3 }) });
  const { page, service, own, choose, files, stored, write, undo, dialog, waitForChosen } = opened;
  const first = stored("bass");
  await own("bass");
  await waitForGain(service, 3);
  const remove = async () => {
    await choose("delete");
    await waitForMessage(page, "Deleted.");
    await waitForChosen("Choose a preset");
  };
  await remove();
  assert.deepEqual(files(), []);
  assert.equal((await opened.held()).bands[0].gain_db, 3);
  await undo.click();
  await waitForMessage(page, "bass is back.");
  assert.equal(stored("bass"), first);
  await waitForChosen("bass");
  await page.waitForFunction(() => document.activeElement?.id === "preset");

  await remove();
  await writeElsewhere(service, "BASS", { 0: -5 });
  await undo.click();
  await dialog.getByRole("heading", { name: "Replace the preset BASS?" }).waitFor();
  await dialog.getByRole("button", { name: "Cancel" }).click();
  // What was deleted is still there to be put back.
  await waitForMessage(page, "Deleted.");
  assert.equal(JSON.parse(stored("BASS")).bands[0].gain_db, -5);
  await undo.click();
  await dialog.getByRole("button", { name: "Replace" }).click();
  await waitForMessage(page, "BASS is back.");
  assert.deepEqual(files(), ["BASS.json"]);
  assert.equal(stored("BASS"), first);
  await waitForChosen("BASS");

  // It cannot be put back at once, but later.
  await choose("delete");
  await waitForMessage(page, "Deleted.");
  fs.mkdirSync(path.join(opened.folder, "BASS.json"));
  await undo.click();
  await waitForMessage(page, "Not put back: Windows does not let Velmora write the file.");
  fs.rmdirSync(path.join(opened.folder, "BASS.json"));
  await page.getByRole("button", { name: "Try again" }).click();
  await waitForMessage(page, "BASS is back.");
  assert.equal(stored("BASS"), first);

  await page.route(`**${presetPath}/BASS`, (route) =>
    route.request().method() === "DELETE"
      ? route.fulfill({ status: 404, contentType: "application/json", body: '{"error":"no such preset"}' })
      : route.fallback(),
  );
  await choose("delete");
  await waitForMessage(page, "Not deleted: The file is in use or write-protected.");
  await page.unrouteAll();
  await waitForChosen("BASS");
  opened.remove("BASS");
  await choose("delete");
  await waitForMessage(page, "The preset BASS was deleted meanwhile.");
  write("BASS", "");
  await waitForChosen("Choose a preset");
});

test("on a narrow screen the result of an action and its Undo stay in view", limits, async (t) => {
  const { page, own, more, choose } = await openPresets(t, { Evening: contentsOf({ 3: 2 }) });
  await page.setViewportSize({ width: 360, height: 640 });
  await own("Evening");
  await more.scrollIntoViewIfNeeded();
  await page.evaluate(() => document.querySelector(".more")?.scrollIntoView({ block: "center" }));
  await choose("delete");
  await waitForMessage(page, "Deleted.");
  const box = await page.getByRole("button", { name: "Undo" }).last().boundingBox();
  assert(box !== null && box.y >= 0 && box.y + box.height <= 640, JSON.stringify(box));
  assert((await page.evaluate(() => window.scrollY)) > 0);
});

test("only a preset that cannot be read is asked about before it is deleted", limits, async (t) => {
  const opened = await openPresets(t, { bass: contentsOf({ 0: 3 }) });
  await opened.own("bass");
  await waitForGain(opened.service, 3);
  for (const text of ["", "not a preset"]) {
    opened.write("bass", text);
    await opened.choose("delete");
    await opened.dialog.getByText("Velmora cannot read this preset, so it cannot be put back").waitFor();
    await opened.dialog.getByRole("button", { name: "Cancel" }).click();
    await opened.waitForDialog(false);
    assert.deepEqual(opened.files(), ["bass.json"]);
  }
  await opened.choose("delete");
  await opened.dialog.getByRole("button", { name: "Delete" }).click();
  await waitForMessage(opened.page, "Deleted.");
  assert.equal(await opened.undo.count(), 0);
  assert.deepEqual(opened.files(), []);
});

test("files of other programs are listed, and what is wrong with each is said", limits, async (t) => {
  const bands = flatBands();
  const opened = await openPresets(t, {
    "a.b": contentsOf(),
    "..": contentsOf(),
    ["long ".repeat(13)]: contentsOf(),
    empty: "",
    text: "not a preset",
    short: JSON.stringify({ bypass: true, fade_ms: 20, bands: bands.slice(1) }),
    loud: JSON.stringify({
      bypass: true,
      fade_ms: 20,
      bands: [{ ...bands[0], gain_db: 99 }, ...bands.slice(1)],
    }),
    array: "[]",
    deep: "[".repeat(100_000),
    good: contentsOf({ 0: 3 }),
    leaving: contentsOf(),
  });
  const { page, service, own, starter, waitForChosen, remove, changes, requests, complaints } = opened;
  await page.locator("#preset option", { hasText: "leaving" }).waitFor({ state: "attached" });
  // The list on the page still has it.
  remove("leaving");
  await own("leaving");
  await waitForMessage(page, "The preset leaving was deleted meanwhile.");
  await own("good");
  await waitForGain(service, 3);
  const before = (await changes()).length;
  const nameless =
    "cannot be opened: presets cannot have such a name. Rename the file, then choose it again.";
  const foreign = "does not contain equalizer settings. Choose another one.";
  for (const [name, text] of [
    ["a.b", `The file a.b.json ${nameless}`],
    ["..", `The file ...json ${nameless}`],
    ["long ".repeat(13), `.json ${nameless}`],
    ["empty", "The preset empty is empty or cannot be opened. Save it again, or choose another one."],
    ["text", `The preset text ${foreign}`],
    ["short", `The preset short ${foreign}`],
    ["loud", `The preset loud ${foreign}`],
    ["array", `The preset array ${foreign}`],
    ["deep", `The preset deep ${foreign}`],
  ]) {
    await own(name);
    await waitForMessage(page, text);
    await waitForChosen("good");
  }
  assert.equal((await changes()).length, before);
  // A name such as ".." never gets into a path.
  const known = /^GET \/api\/v1\/(?:status|devices|render\/effects\/eq|eq\/presets(?:\/[a-z]+)?)(?:\s|$)/;
  assert.deepEqual(
    requests.filter((request) => request.startsWith("GET") && !known.test(request)),
    [],
  );
  assert.deepEqual(
    complaints.filter((text) => !text.includes("404 (Not Found)")),
    [],
  );
  await starter("flat");
  await waitForChosen("Flat");
});

test("where no answer comes, the page says what it knows, and nothing is lost", limits, async (t) => {
  const opened = await openPresets(t, { bass: contentsOf({ 0: 3 }) });
  const { page, service, own, gain, save, dialog, choose, enter, files, stored, waitForChosen } = opened;
  const first = stored("bass");
  await own("bass");
  await waitForGain(service, 3);
  await edit(gain, "4");
  await waitForGain(service, 4);
  const breakOff = (method) =>
    page.route(`**${presetPath}/*`, (route) =>
      route.request().method() === method ? route.abort() : route.fallback(),
    );
  await breakOff("PUT");
  await save.click();
  await dialog.getByRole("button", { name: "Replace" }).click();
  await waitForMessage(page, "Not saved: Velmora's control service did not answer.");
  await page.unrouteAll();
  assert.equal(stored("bass"), first);
  await waitForChosen("bass (changed)");
  assert.equal(await gain.inputValue(), "+4 dB");
  await breakOff("DELETE");
  await choose("rename");
  await enter("Bass");
  await waitForMessage(
    page,
    "Not renamed: Velmora's control service did not answer. The preset is saved twice: as bass and as Bass 2.",
  );
  await page.unrouteAll();
  assert.deepEqual(files(), ["Bass 2.json", "bass.json"]);
  assert.deepEqual([stored("bass"), stored("Bass 2")], [first, first]);
});

test("a folder that refuses writing is said, and the edit is kept", limits, async (t) => {
  const file = path.join(makeDirectory(), "file");
  fs.writeFileSync(file, "");
  const folder = path.join(file, "presets");
  const {
    page,
    service,
    save,
    gain,
    enter,
    waitForChosen,
    changes,
    held: look,
  } = await openPage(t, { more: ["--preset-directory", folder] }).then((opened) => ({
    ...opened,
    ...controlsOf(opened.page),
    held: () => held(opened.service),
  }));
  await edit(gain, "4");
  await waitForGain(service, 4);
  for (let time = 0; time < 2; ++time) {
    await save.click();
    await enter("Mine");
    await waitForMessage(
      page,
      "Not saved: Windows does not let Velmora write the file. Check the disk and the preset folder.",
    );
  }
  await waitForChosen("Choose a preset");
  assert.equal((await look()).bands[0].gain_db, 4);
  assert.equal(await gain.inputValue(), "+4 dB");
  assert.equal((await presetChanges(changes)).filter((one) => one.startsWith("PUT")).length, 2);
});

test(
  "half a file that a failed save leaves goes away; one that was there is not deleted",
  limits,
  async (t) => {
    const opened = await openPresets(t, { old: contentsOf({ 0: 3 }) });
    const { page, service, own, gain, enter, choose, files, write, save, dialog } = opened;
    // As on a full disk: the file is there, and cut off.
    await page.route(`**${presetPath}/*`, (route) => {
      const request = route.request();
      if (request.method() !== "PUT") return route.fallback();
      write(decodeURIComponent(new URL(request.url()).pathname.split("/").at(-1) ?? ""), '{"bypass":tr');
      const body = '{"error":"cannot write the preset file"}';
      return route.fulfill({ status: 500, contentType: "application/json", body });
    });
    await own("old");
    await waitForGain(service, 3);
    await choose("save as");
    await enter("new");
    await waitForMessage(page, "Not saved: Windows does not let Velmora write the file.");
    assert.deepEqual(files(), ["old.json"]);
    await edit(gain, "4");
    await waitForGain(service, 4);
    await save.click();
    await dialog.getByRole("button", { name: "Replace" }).click();
    await waitForMessage(page, "Not saved: Windows does not let Velmora write the file.");
    assert.deepEqual(files(), ["old.json"]);
    await page.unrouteAll();
    await save.click();
    await dialog.getByRole("button", { name: "Replace" }).click();
    await waitForMessage(page, "Saved as old.");
    assert.equal(JSON.parse(opened.stored("old")).bands[0].gain_db, 4);
  },
);

test("the output trim goes with a preset, is said, and is undone with it", limits, async (t) => {
  const opened = await openPresets(t, { plain: contentsOf({ 0: 1 }) });
  const { page, service, own, gain, choose, enter, waitForChosen } = opened;
  const setTrim = (trim) => putDocument(service, algorithm, { output_trim_db: trim });
  const waitForTrim = (trim) =>
    poll(`the trim ${trim}`, async () => ((await opened.held()).trim === trim ? true : undefined));
  const seeTrim = async (trim) => {
    await setTrim(trim);
    await page.waitForResponse(
      async (response) =>
        response.url().endsWith("/status") && (await response.json()).footstep.output_trim_db === trim,
    );
  };
  await seeTrim(-3);
  await edit(gain, "6");
  await waitForGain(service, 6);
  await choose("save as");
  await enter("__proto__");
  await waitForMessage(page, "Saved as __proto__.");
  await seeTrim(1.5);
  // One that was saved without a trim leaves it.
  await own("plain");
  await waitForGain(service, 1);
  await waitForChosen("plain");
  assert.equal((await opened.held()).trim, 1.5);
  assert.equal(await opened.message.count(), 0);

  await own("__proto__");
  await waitForMessage(page, "Output trim −3 dB, as saved with this preset in this browser.");
  await waitForTrim(-3);
  await waitForGain(service, 6);
  await waitForChosen("__proto__");
  await page.getByRole("button", { name: "Undo" }).click();
  await waitForTrim(1.5);
  await waitForGain(service, 1);
  await waitForChosen("plain");

  // A revert brings it back as well, and says so only where it was another one.
  await own("__proto__");
  await waitForTrim(-3);
  await waitForGain(service, 6);
  await edit(gain, "2");
  await waitForGain(service, 2);
  await seeTrim(-9);
  await choose("revert");
  await waitForMessage(page, "Back to __proto__ as it was saved, with its output trim of −3 dB.");
  await waitForTrim(-3);
  await waitForGain(service, 6);
  await page.getByRole("button", { name: "Undo" }).click();
  await waitForTrim(-9);
  await waitForGain(service, 2);
  await page.getByRole("button", { name: "Redo" }).click();
  await waitForTrim(-3);
  await waitForGain(service, 6);
  await edit(gain, "1");
  await waitForGain(service, 1);
  await choose("revert");
  await waitForMessage(page, "Back to __proto__ as it was saved.");
  await waitForGain(service, 6);
  await own("plain");
  await waitForGain(service, 1);
  await seeTrim(1.5);

  // It survives a reload, a rename, and a delete that is undone.
  await page.reload();
  await own("__proto__");
  await waitForTrim(-3);
  await choose("rename");
  await enter("constructor");
  await waitForMessage(page, "Renamed to constructor.");
  await choose("delete");
  await waitForMessage(page, "Deleted.");
  await opened.undo.click();
  await waitForMessage(page, "constructor is back.");
  await seeTrim(0);
  await own("plain");
  await waitForGain(service, 1);
  await own("constructor");
  await waitForMessage(page, "Output trim −3 dB");
  await waitForTrim(-3);
});

test("any name works as a name and is only text", limits, async (t) => {
  const names = ["__proto__", `${"字".repeat(20)}ab2c`, "toString", "a  b", "é 👩‍🚀"];
  const listed = ["a\u202egnp", "<b>", "a\nb", "לילה", "&amp;"];
  const opened = await openPresets(t, Object.fromEntries(listed.map((name) => [name, contentsOf({ 0: 2 })])));
  const { page, service, choose, enter, own, files, stored, labels, waitForChosen, gain } = opened;
  await edit(gain, "3");
  await waitForGain(service, 3);
  for (const name of names) {
    await choose("save as");
    await enter(name);
    await waitForMessage(page, `Saved as ${name.replace("  ", " ")}.`);
    assert.equal(JSON.parse(stored(name)).bands[0].gain_db, 3);
  }
  for (const [name, shown] of [
    ["a\u202egnp", "a\ufffdgnp"],
    ["לילה", "\u2068לילה\u2069"],
  ]) {
    await own(name);
    await waitForGain(service, 2);
    await waitForChosen(shown);
    await choose("delete");
    await waitForMessage(page, "Deleted.");
    await opened.undo.click();
    await waitForMessage(page, `${shown} is back.`);
    await edit(gain, "3");
    await waitForGain(service, 3);
  }
  for (const name of ["<b>", "a\nb", "&amp;"]) {
    await own(name);
    await waitForMessage(page, "cannot be opened: presets cannot have such a name.");
  }
  assert.equal(files().length, names.length + listed.length);
  const shown = await labels();
  for (const name of ["<b>", "&amp;", "a\ufffdb", "__proto__"]) assert.ok(shown.includes(name), name);
  assert.deepEqual(
    opened.complaints.filter((text) => !text.includes("404")),
    [],
  );
});

test("a list that fails is said, and the last one stays", limits, async (t) => {
  const opened = await openPresets(t, { bass: contentsOf({ 0: 3 }) }, { open: false });
  const { page, labels, requests } = opened;
  const refuse = (route) =>
    route.fulfill({ status: 500, contentType: "application/json", body: '{"error":"out of order"}' });
  await page.route(`**${presetPath}`, refuse);
  await page.goto(opened.address("/"));
  await waitForMessage(page, "The list of presets could not be read: out of order");
  await opened.starter("night");
  await opened.waitForChosen("Night");
  await opened.choose("save as");
  await opened.enter("Mine");
  await opened.dialog.getByRole("alert").filter({ hasText: "could not be read: out of order" }).waitFor();
  assert.deepEqual(opened.files(), ["bass.json"]);
  await page.unrouteAll();
  await opened.enter("Mine");
  await waitForMessage(page, "Saved as Mine.");
  await page.locator("#preset option", { hasText: "Mine" }).waitFor({ state: "attached" });
  assert.deepEqual((await labels()).slice(5), ["bass", "Mine"]);
  assert.ok(requests.length > 0);
});

test(
  "more actions: by keyboard, by Escape, by a click elsewhere, in both languages at 360 px",
  limits,
  async (t) => {
    for (const { locale, more, items, others, saved } of [
      {
        locale: "en-US",
        more: "More for presets",
        items: ["Save as…", "Rename…", "Revert", "Delete", "Reset to flat"],
        others: ["Keep for Speakers", "Stop offering presets for devices", "Export…"],
        saved: "Saved as More bass.",
      },
      {
        locale: "zh-CN",
        more: "更多预设操作",
        items: ["另存为…", "重命名…", "还原", "删除", "重置为平直"],
        others: ["设为 Speakers 的预设", "不再按设备提供预设", "导出…"],
        saved: "已保存为“增强低音”。",
      },
    ]) {
      const context = { locale, viewport: { width: 360, height: 740 } };
      const opened = await openPresets(t, {}, { context });
      const { page, starter, dialog } = opened;
      const button = page.getByRole("button", { name: more });
      const list = page.locator("#preset-more");
      await starter("moreBass");
      await waitForBand(opened, 3, 5);
      const isFocused = () =>
        page.waitForFunction(() => document.activeElement?.matches(".more > button"), undefined);
      await button.focus();
      await page.keyboard.press("Enter");
      assert.deepEqual(
        (await list.getByRole("button").allTextContents()).map((text) => text.trim()),
        [...items, ...others],
      );
      assert.equal(await button.getAttribute("aria-expanded"), "true");
      for (const one of [button, opened.save, opened.select, ...(await list.getByRole("button").all())]) {
        const box = await one.boundingBox();
        assert.ok(box !== null && box.height >= 40 && box.x >= 0 && box.x + box.width <= 360, locale);
      }
      // A starter can be neither renamed nor deleted.
      assert.deepEqual(
        await list.locator("button").evaluateAll((all) => all.map((one) => one.hasAttribute("disabled"))),
        [false, true, false, true, false, false, false, false],
      );
      await page.keyboard.press("Escape");
      await list.waitFor({ state: "hidden" });
      await isFocused();
      await button.click();
      await page.locator("h1").click();
      await list.waitFor({ state: "hidden" });
      await isFocused();
      await button.click();
      await opened.select.focus();
      await list.waitFor({ state: "hidden" });
      await button.focus();
      await page.keyboard.press("Enter");
      await page.keyboard.press("Tab");
      await page.keyboard.press("Enter");
      await dialog.waitFor();
      await page.keyboard.press("Enter");
      await waitForMessage(page, saved);
      await isFocused();
      const width = await page.evaluate(() => document.documentElement.scrollWidth);
      assert.ok(width <= 360, `${width}`);
    }
  },
);
