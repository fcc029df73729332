// Captures on the Advanced page: from the start of a recording to a file on disk.
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import fs from "node:fs";
import path from "node:path";
import test from "node:test";

import { makeDirectory, poll, readRecord } from "../e2e/harness.mjs";
import { limits, openPage, waitForMessage } from "./browser.mjs";

const capturePath = "/api/v1/debug/capture";
const archiveExtra = 518;
const names = [
  "capture-1-host-in.wav",
  "capture-2-algorithm-in.wav",
  "capture-3-algorithm-out.wav",
  "capture-4-host-out.wav",
];

/** The picker itself gives up in a browser without a window: a file of the page's private file system is in its place. */
function choosePrivateFile() {
  const page = /** @type {any} */ (window);
  page.showSaveFilePicker = async ({ suggestedName }) => {
    page.chosen = suggestedName;
    const folder = await navigator.storage.getDirectory();
    return folder.getFileHandle(suggestedName, { create: true });
  };
}

/** The same, and each write after the first one waits until the test lets it go on. */
function chooseSlowFile() {
  const page = /** @type {any} */ (window);
  let open = () => {};
  const gate = new Promise((resolve) => (open = () => resolve(undefined)));
  page.openGate = open;
  page.showSaveFilePicker = async ({ suggestedName }) => {
    page.chosen = suggestedName;
    const folder = await navigator.storage.getDirectory();
    const handle = await folder.getFileHandle(suggestedName, { create: true });
    const create = handle.createWritable.bind(handle);
    handle.createWritable = async () => {
      const writable = await create();
      let writes = 0;
      return /** @type {any} */ ({
        async write(piece) {
          if (writes++ > 0) await gate;
          await writable.write(piece);
        },
        close: () => writable.close(),
        abort: () => writable.abort(),
      });
    };
    return handle;
  };
}

const withoutPicker = () => Reflect.deleteProperty(window, "showSaveFilePicker");

/** What the private file system holds under the name that the page proposed; null for no such file. */
const readChosen = (page) =>
  page.evaluate(async () => {
    const folder = await navigator.storage.getDirectory();
    try {
      const handle = await folder.getFileHandle(/** @type {any} */ (window).chosen);
      const bytes = new Uint8Array(await (await handle.getFile()).arrayBuffer());
      let text = "";
      for (let at = 0; at < bytes.length; at += 4096)
        text += String.fromCharCode(...bytes.subarray(at, at + 4096));
      return btoa(text);
    } catch {
      return null;
    }
  });

function writeCaptures(folder, size) {
  names.forEach((name, index) => fs.writeFileSync(path.join(folder, name), Buffer.alloc(size, index + 1)));
}

function assertIsArchive(file) {
  assert.match(execFileSync("unzip", ["-t", file], { encoding: "utf8" }), /No errors detected/);
}

/**
 * @param {import("node:test").TestContext} t
 * @param {{prepare?: () => void, size?: number, open?: boolean}} options size: of each file that is there already
 */
async function openCaptures(t, { prepare, size = 0, open = true } = {}) {
  const folder = makeDirectory();
  if (size > 0) writeCaptures(folder, size);
  const opened = await openPage(t, { open: false, more: ["--capture-directory", folder] });
  if (prepare !== undefined) await opened.context.addInitScript(prepare);
  if (open) await opened.page.goto(opened.address("/advanced.html"));
  const { page } = opened;
  const card = page.locator("section[data-phase]");
  return {
    ...opened,
    folder,
    card,
    click: (action) => card.locator(`[data-action=${action}]`).click(),
    phase: (wanted) => page.locator(`section[data-phase=${wanted}]`).waitFor(),
    sentence: () => card.locator("[data-sentence]").innerText(),
    note: (key) => card.locator(`[data-note="capture.note.${key}"]`).waitFor(),
    buttons: () =>
      card.locator(".actions button").evaluateAll((all) => all.map((one) => one.getAttribute("data-action"))),
    captureWord: async () => (await readRecord(t, opened.mapping)).readBigUInt64LE(0xa8),
  };
}

test("a capture is recorded, stopped early, exported and written to disk", limits, async (t) => {
  const opened = await openCaptures(t, { prepare: choosePrivateFile });
  const { page, effect, folder, card, click, phase, sentence, note, buttons, changes, complaints } = opened;
  await phase("idle");
  await note("silent");
  assert.deepEqual(await buttons(), ["start"]);
  assert.deepEqual(await changes(), []);
  effect.play();
  const field = page.getByRole("textbox", { name: "Length", exact: true });
  for (const text of ["0", "301", "", "x"]) {
    await field.fill(text);
    await field.blur();
    assert.equal(await field.inputValue(), "10 s", text);
  }
  await field.fill("300");
  await field.press("Enter");
  await click("start");
  await phase("recording");
  assert.equal(await opened.captureWord(), (1n << 32n) | (300n << 16n) | 1n);
  assert.match(await sentence(), /^Recording: (?:300|29\d) s of 300 s left\.$/);
  assert.deepEqual(await buttons(), ["stop"]);
  await page.waitForFunction(() => document.activeElement?.id === "captures");
  await note("noReport");
  effect.reportCapture(1, 300);
  await card.getByText("The effect reports: state 1, 300 s, detail code -2147483648.").waitFor();
  await card.locator('[data-note="capture.note.noReport"]').waitFor({ state: "detached" });

  await click("stop");
  await phase("recorded");
  assert.match(await sentence(), /^Stopped after \d+ s\. Export/);
  assert.equal(await opened.captureWord(), (2n << 32n) | (300n << 16n) | 2n);
  assert.deepEqual(await buttons(), ["export", "again"]);
  await click("export");
  await phase("exporting");
  assert.equal(await opened.captureWord(), (3n << 32n) | (300n << 16n) | 3n);
  fs.writeFileSync(path.join(folder, names[0]), Buffer.alloc(2048));
  await card.getByText("2 KB so far").waitFor();
  writeCaptures(folder, 70_000);
  await phase("ready");
  assert.match(await sentence(), /^The files are ready: 273 KB, exported \d+ \w+ \d{4}, \d\d:\d\d\.$/);
  await click("download");
  await phase("downloaded");
  assert.match(await sentence(), /^The download is complete: velmora-capture-\d{8}-\d{6}\.zip, 274 KB\.$/);
  const file = path.join(makeDirectory(), "captures.zip");
  fs.writeFileSync(file, Buffer.from(await readChosen(page), "base64"));
  assert.equal(fs.statSync(file).size, 280_000 + archiveExtra);
  assertIsArchive(file);
  await click("again");
  await note("kept");
  assert.deepEqual(await buttons(), ["start", "download"]);
  assert.equal((await changes()).length, 3);
  assert.deepEqual(
    complaints.filter((text) => !/501/.test(text)),
    [],
  );
});

test(
  "while a download runs the bytes are shown and nothing else is asked; cancel keeps nothing",
  limits,
  async (t) => {
    const opened = await openCaptures(t, { prepare: chooseSlowFile, size: 8 * 1024 * 1024 });
    const { page, service, card, click, phase, sentence, note, requests, buttons } = opened;
    await phase("ready");
    assert.match(await sentence(), /^Files of an earlier export are ready: 32 MB\./);
    await click("download");
    await card.getByText(/^Downloading: [1-9][\d.]* (?:bytes|KB|MB) of 32 MB\.$/).waitFor();
    await note("downloading");
    assert.deepEqual(await buttons(), ["cancel"]);
    await page.evaluate(() => 0);
    const asked = requests.length;
    await page.getByRole("switch", { name: "Limiter" }).uncheck();
    await page.waitForTimeout(2500);
    assert.equal(requests.length, asked, "no look, and no change");
    assert.equal(await page.locator(".verdict").count(), 0, "and no alarm");
    await click("cancel");
    await phase("ready");
    await card.getByText("The download was cancelled. Nothing was kept.").waitFor();
    await poll("the empty file to go", async () => ((await readChosen(page)) === null ? true : undefined));
    await poll("the change to be sent", () => requests.find((request) => request.startsWith("PUT")));
    await poll("the looks", () => (requests.length > asked + 5 ? true : undefined));
    assert.match(await service.ask("GET", `${capturePath}/ready`), /"ready":true/);
  },
);

test("a download that breaks off is said and not kept, and works again afterwards", limits, async (t) => {
  const opened = await openCaptures(t, { prepare: chooseSlowFile, size: 8 * 1024 * 1024 });
  const { page, folder, card, click, phase } = opened;
  await phase("ready");
  await click("download");
  await card.getByText(/^Downloading: [1-9]/).waitFor();
  fs.truncateSync(path.join(folder, names[3]), 10);
  await page.evaluate(() => /** @type {any} */ (window).openGate());
  await card.getByText(/The download broke off after [\d.]+ MB of 32 MB, and nothing was kept/).waitFor();
  await phase("ready");
  assert.equal(await readChosen(page), null);
  await click("download");
  await phase("downloaded");
  assert.equal(Buffer.from(await readChosen(page), "base64").length, 3 * 8 * 1024 * 1024 + 10 + archiveExtra);
});

test("a disk that takes no more is said", limits, async (t) => {
  const full = () => {
    const page = /** @type {any} */ (window);
    page.showSaveFilePicker = async () => ({
      name: "a.zip",
      createWritable: async () => ({
        write: async () => Promise.reject(new DOMException("full", "QuotaExceededError")),
        abort: async () => {},
      }),
      getFile: async () => new File([], "a.zip"),
      remove: async () => (page.removed = true),
    });
  };
  const { page, card, click, phase } = await openCaptures(t, { prepare: full, size: 1000 });
  await phase("ready");
  await click("download");
  await card.getByText("The file could not be written. Check that the disk has room").waitFor();
  assert.equal(await page.evaluate(() => /** @type {any} */ (window).removed), true);
});

test("a picker that is left without a choice changes nothing", limits, async (t) => {
  const leave = () => {
    /** @type {any} */ (window).showSaveFilePicker = () =>
      Promise.reject(new DOMException("left", "AbortError"));
  };
  const { page, card, click, phase, requests } = await openCaptures(t, { prepare: leave, size: 1000 });
  await phase("ready");
  await click("download");
  await page.waitForTimeout(500);
  assert.equal(await card.getAttribute("data-phase"), "ready");
  assert.ok(!requests.some((request) => request.endsWith("/download")));
});

test(
  "without a picker the browser's downloads get the file, above 64 MB after a question",
  limits,
  async (t) => {
    const opened = await openCaptures(t, { prepare: withoutPicker, size: 70_000 });
    const { page, folder, click, phase, sentence, requests } = opened;
    await phase("ready");
    const [small] = await Promise.all([page.waitForEvent("download"), click("download")]);
    assert.match(small.suggestedFilename(), /^velmora-capture-\d{8}-\d{6}\.zip$/);
    const file = path.join(makeDirectory(), "captures.zip");
    await small.saveAs(file);
    assertIsArchive(file);
    await phase("downloaded");
    assert.match(await sentence(), /^The download is complete, 274 KB\. Your browser saves it as velmora-/);

    const large = 17 * 1024 * 1024;
    for (const name of names) fs.truncateSync(path.join(folder, name), large);
    await page.reload();
    await phase("ready");
    const asked = () => requests.filter((request) => request.endsWith("/download")).length;
    await click("download");
    await page.getByRole("heading", { name: "Download 68 MB through the browser's memory?" }).waitFor();
    await page.keyboard.press("Escape");
    await page.getByRole("dialog").waitFor({ state: "detached" });
    assert.equal(asked(), 1);
    await click("download");
    const yes = page.getByRole("dialog").getByRole("button", { name: "Download", exact: true });
    const [download] = await Promise.all([page.waitForEvent("download"), yes.click()]);
    await download.saveAs(file);
    assert.equal(fs.statSync(file).size, 4 * large + archiveExtra);
    await phase("downloaded");
  },
);

test("a refused download says why, and is offered again when the files are back", limits, async (t) => {
  const { folder, click, phase, note, page, buttons } = await openCaptures(t, {
    prepare: choosePrivateFile,
    size: 1000,
  });
  await phase("ready");
  fs.truncateSync(path.join(folder, names[1]), 0);
  await click("download");
  await waitForMessage(page, `Not done: The capture file is empty or cannot be read: ${names[1]}`);
  await phase("gone");
  await note("gone");
  assert.equal(await page.evaluate(() => /** @type {any} */ (window).chosen !== undefined), true);
  assert.deepEqual(await buttons(), ["export", "again"]);
  writeCaptures(folder, 1000);
  await phase("ready");
  assert.deepEqual(await buttons(), ["download", "export", "again"]);

  fs.rmSync(path.join(folder, names[3]));
  await click("download");
  await waitForMessage(page, "Not done: There is no exported capture yet. Export first.");
  await phase("gone");
  await page.reload();
  await phase("gone");
  await click("export");
  await phase("exporting");
  writeCaptures(folder, 2000);
  await phase("ready");
  assert.deepEqual(await buttons(), ["download", "again"]);
  await click("download");
  await phase("downloaded");
});

test("a reload finds a recording and an export that is awaited, and sends nothing", limits, async (t) => {
  const { page, folder, click, phase, sentence, note, buttons, changes } = await openCaptures(t, {
    size: 1000,
  });
  await phase("ready");
  await click("again");
  await page.getByRole("textbox", { name: "Length", exact: true }).fill("2");
  await page.keyboard.press("Enter");
  await click("start");
  await phase("recording");
  await page.reload();
  await note("resumed");
  await phase("recorded");
  assert.equal(await sentence(), "The 2 s are over. Export the recording to get its files.");
  await note("replaces");
  await click("export");
  await phase("exporting");
  assert.deepEqual(fs.readdirSync(folder), []);
  await page.reload();
  await note("resumedExport");
  await phase("exporting");
  assert.deepEqual(await buttons(), ["notAwaited"]);
  assert.equal((await changes()).length, 2);
  writeCaptures(folder, 500);
  await phase("ready");
  assert.match(await sentence(), /^The files are ready: 2 KB, exported /);
  await page.reload();
  await phase("ready");
  assert.match(await sentence(), /^The files are ready: 2 KB, exported /);
});

test("an export that never comes says what to do", limits, async (t) => {
  const { page, click, phase, note, buttons, sentence, address } = await openCaptures(t, { open: false });
  await page.clock.install();
  await page.goto(address("/advanced.html"));
  await phase("idle");
  await click("start");
  await phase("recording");
  await page.clock.fastForward(12_000);
  await phase("recorded");
  await click("export");
  await phase("exporting");
  await page.clock.fastForward(125_000);
  await phase("missing");
  assert.equal(await sentence(), "The effect has not written the files.");
  await note("missing");
  assert.deepEqual(await buttons(), ["export", "awaited", "again"]);
  await click("awaited");
  await phase("exporting");
  await click("notAwaited");
  await phase("recorded");
});

test("another page's capture shows here, and the effect's own change is said", limits, async (t) => {
  const opened = await openCaptures(t);
  const { page, effect, phase, note, newPage, address, click } = opened;
  await phase("idle");
  effect.reportCapture(0, 0);
  await page.getByText("The effect reports: state 0, 0 s").waitFor();
  effect.reportCapture(1, 7, 0x55);
  await note("elsewhere");
  const other = await newPage();
  await other.goto(address("/advanced.html"));
  await click("start");
  await other.locator("section[data-phase=recording]").waitFor();
  await click("stop");
  await other.locator("section[data-phase=recorded]").waitFor();
});
