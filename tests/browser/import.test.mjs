// Settings from other equalizers on the first screen, and back to text: by file, paste and drop.
import assert from "node:assert/strict";
import fs from "node:fs";
import path from "node:path";
import test from "node:test";

import { makeDirectory, poll } from "../e2e/harness.mjs";
import { limits, openPage, paths, putDocument, readDocument } from "./browser.mjs";

const text = [
  "Preamp: -6.5 dB",
  "# my room",
  "Filter 1: ON PK Fc 105 Hz Gain 3,5 dB Q 0.70",
  "Filter 2: OFF PK Fc 200 Hz Gain 1 dB Q 1",
  "Filter 3: ON HSC Fc 9 kHz Gain -2 dB Q 0.7",
  "Filter 4: ON PK Fc 40000 Hz Gain 1 dB Q 1",
  "Device: all",
].join("\r\n");
const firstBands = [
  { type: 0, freq_hz: 105, gain_db: 3.5, q: 0.7 },
  { type: 2, freq_hz: 9000, gain_db: -2, q: 0.7 },
];

const settingOf = (service) => readDocument(service, paths.equalizer);
const trimOf = async (service) => (await readDocument(service, paths.status)).footstep.output_trim_db;
const dialogOf = (page) => page.getByRole("dialog");
const use = (page) => dialogOf(page).getByRole("button", { name: "Use this setting" });
const droppedLines = (page) => dialogOf(page).locator(".import-dropped li").allInnerTexts();
const plain = (lines) => lines.map((line) => line.replace(/\s+/g, " ").trim());

async function openImport(page, name = "Import…") {
  await page.getByRole("button", { name }).click();
  await dialogOf(page).waitFor();
}

async function paste(page, pasted) {
  await dialogOf(page).getByRole("textbox").fill(pasted);
}

async function waitForBands(service, wanted) {
  return poll("the bands", async () => {
    const setting = await settingOf(service);
    return JSON.stringify(setting.bands.slice(0, wanted.length)) === JSON.stringify(wanted)
      ? setting
      : undefined;
  });
}

/**
 * Drops files or a text on an element, as the browser would.
 *
 * @param {import("playwright-core").Page} page
 * @param {string} selector
 * @param {{files?: {name: string, content: string}[], dropped?: string}} given
 */
async function drop(page, selector, { files = [], dropped = "" }) {
  await page.locator(selector).evaluate(
    (element, given) => {
      const dataTransfer = new DataTransfer();
      for (const { name, content } of given.files) dataTransfer.items.add(new File([content], name));
      if (given.dropped !== "") dataTransfer.setData("text/plain", given.dropped);
      for (const type of ["dragenter", "dragover", "drop"])
        element.dispatchEvent(new DragEvent(type, { dataTransfer, bubbles: true, cancelable: true }));
    },
    { files, dropped },
  );
}

function writeFile(name, content) {
  const file = path.join(makeDirectory("import"), name);
  fs.writeFileSync(file, content);
  return file;
}

test("a pasted text is shown before anything is sent, and then used with its preamp", limits, async (t) => {
  const { page, service, changes, complaints } = await openPage(t);
  await openImport(page);
  assert.equal(await use(page).isEnabled(), false);
  await paste(page, text);
  await dialogOf(page).getByText("2 of 4 filters are used.").waitFor();
  assert.match((await dialogOf(page).locator(".import-curve path").getAttribute("d")) ?? "", /^M0 .*L600 /);
  assert.deepEqual(plain(await droppedLines(page)), [
    "Line 4 Filter 2: OFF PK Fc 200 Hz Gain 1 dB Q 1 Switched off in the file.",
    "Line 6 Filter 4: ON PK Fc 40000 Hz Gain 1 dB Q 1 Frequency 40000 is outside 20 to 20000.",
    "Line 7 Device: all Device is not supported.",
  ]);
  const offer = dialogOf(page).getByRole("checkbox", { name: "Set the output trim to −6.5 dB (Preamp)" });
  assert.equal(await offer.isChecked(), true);
  assert.deepEqual(await changes(), []);
  await use(page).click();
  const setting = await waitForBands(service, firstBands);
  assert.equal(setting.bypass, false);
  assert.ok(setting.bands.slice(2).every(({ type, gain_db: gain }) => type === 0 && gain === 0));
  await poll("the trim", async () => ((await trimOf(service)) === -6.5 ? true : undefined));
  assert.equal(await dialogOf(page).count(), 0);
  assert.equal((await changes()).length, 2);
  // One step back is the setting and the trim.
  await page.getByRole("button", { name: "Undo" }).click();
  await poll("the setting undone", async () => ((await settingOf(service)).bypass ? true : undefined));
  await poll("the trim undone", async () => ((await trimOf(service)) === 0 ? true : undefined));
  assert.deepEqual(complaints, []);
});

test("the preamp may be left out, and a cancelled import sends nothing", limits, async (t) => {
  const { page, service, changes } = await openPage(t);
  await openImport(page);
  await paste(page, text);
  await dialogOf(page).getByText("2 of 4").waitFor();
  await page.keyboard.press("Escape");
  await dialogOf(page).waitFor({ state: "detached" });
  assert.deepEqual(await changes(), []);
  await openImport(page);
  await paste(page, text);
  await dialogOf(page).getByRole("checkbox").uncheck();
  await use(page).click();
  await waitForBands(service, firstBands);
  assert.equal(await trimOf(service), 0);
  assert.equal((await changes()).length, 1);
});

test("a text with a preamp only sets the output trim only", limits, async (t) => {
  const { page, service, changes } = await openPage(t);
  await openImport(page);
  await paste(page, "Preamp: -4 dB");
  await dialogOf(page).getByRole("button", { name: "Set the output trim to −4 dB" }).click();
  await poll("the trim", async () => ((await trimOf(service)) === -4 ? true : undefined));
  assert.ok((await changes()).every((request) => request.includes("/algorithm")));
});

test("a file is read in its encoding, and one that is no text is refused", limits, async (t) => {
  const { page, service, changes } = await openPage(t);
  await openImport(page);
  const chooser = dialogOf(page).locator("input[type=file]");
  await chooser.setInputFiles(writeFile("sound.wav", Buffer.from([82, 73, 70, 70, 0, 0, 1, 0, 0, 9])));
  await dialogOf(page).getByText("This file is not text. Choose a text or JSON file.").waitFor();
  assert.equal(await use(page).isEnabled(), false);
  await chooser.setInputFiles(writeFile("large.txt", Buffer.alloc((1 << 20) + 1, "#")));
  await dialogOf(page).getByText("The file is larger than 1 MiB.").waitFor();
  const utf16 = Buffer.concat([Buffer.from([0xff, 0xfe]), Buffer.from(text, "utf16le")]);
  await chooser.setInputFiles(writeFile("我的设置.txt", utf16));
  await dialogOf(page).getByText("我的设置.txt").waitFor();
  await dialogOf(page).getByText("2 of 4 filters are used.").waitFor();
  assert.deepEqual(await changes(), []);
  await use(page).click();
  await waitForBands(service, firstBands);
});

test("a file or a text that is dropped on the equalizer is shown, not applied", limits, async (t) => {
  const { page, service, changes } = await openPage(t);
  await page.getByRole("button", { name: "Import…" }).waitFor();
  await drop(page, ".card.equalizer", { files: [{ name: "mine.txt", content: text }] });
  await dialogOf(page).getByText("mine.txt").waitFor();
  await dialogOf(page).getByText("2 of 4 filters are used.").waitFor();
  // Another one on the dialog takes its place.
  await drop(page, "dialog .import", { files: [{ name: "none.txt", content: "hello" }] });
  await dialogOf(page).getByText("There is no setting in this text.").waitFor();
  assert.equal(await use(page).isEnabled(), false);
  await drop(page, "dialog .import", {
    files: [
      { name: "a.txt", content: text },
      { name: "b.txt", content: text },
    ],
  });
  await dialogOf(page).getByText("Drop one file at a time.").waitFor();
  await page.keyboard.press("Escape");
  await dialogOf(page).waitFor({ state: "detached" });
  await drop(page, ".card.equalizer h2", { dropped: text });
  await dialogOf(page).getByText("2 of 4 filters are used.").waitFor();
  assert.equal(await dialogOf(page).getByRole("textbox").inputValue(), text.replaceAll("\r\n", "\n"));
  assert.deepEqual(await changes(), []);
  await use(page).click();
  await waitForBands(service, firstBands);
});

test("a graphic curve is fitted, and the preview says how well", limits, async (t) => {
  const { page } = await openPage(t);
  await openImport(page);
  await paste(page, "GraphicEQ: 25 0; 63 4; 160 0; x 1; 400 -3; 1000 0; 10000 3");
  await dialogOf(page).getByText("6 of 7 points are used. 15 bands follow their curve.").waitFor();
  await dialogOf(page)
    .getByText(/^Largest difference from the curve: \d+(?:\.\d+)? dB\. RMS: \d+(?:\.\d+)? dB\.$/)
    .waitFor();
  assert.deepEqual(plain(await droppedLines(page)), [
    "Line 1 x 1 Point 4: Frequency: “x” is not a number. Write it like 1250.5, without thousands separators.",
  ]);
});

test("of very many bad lines the first 200 are shown and all are counted", limits, async (t) => {
  const { page } = await openPage(t);
  await page.getByRole("button", { name: "Import…" }).waitFor();
  await drop(page, ".card.equalizer", { files: [{ name: "bad.txt", content: "x\n".repeat(1 << 19) }] });
  await dialogOf(page).getByText("Not used: 524288").waitFor();
  assert.equal((await droppedLines(page)).length, 200);
  await dialogOf(page).getByText("And 524088 more.").waitFor();
});

test("what is exported and imported again is the same setting", limits, async (t) => {
  const { page, service } = await openPage(t);
  const first = await settingOf(service);
  const bands = first.bands.map((band, index) => ({ ...band, type: index % 9, gain_db: index - 7.3 }));
  const setting = { bypass: false, fade_ms: 30, bands };
  await putDocument(service, paths.equalizer, setting);
  const held = await settingOf(service);
  await page.reload();
  const openExport = async () => {
    await page.getByRole("button", { name: "More for presets" }).click();
    await page.getByRole("button", { name: "Export…" }).click();
    await dialogOf(page).waitFor();
  };
  const save = async () => {
    const [download] = await Promise.all([
      page.waitForEvent("download"),
      dialogOf(page).getByRole("button", { name: "Save as a file" }).click(),
    ]);
    return { name: download.suggestedFilename(), file: await download.path() };
  };
  await openExport();
  const own = await save();
  assert.equal(own.name, "velmora-equalizer.json");
  assert.deepEqual(JSON.parse(fs.readFileSync(own.file, "utf8")), held);
  await dialogOf(page).getByText("This text carries the whole setting.").waitFor();
  await dialogOf(page)
    .getByRole("radio", { name: /^Parametric text/ })
    .check();
  await dialogOf(page).getByText("Bands of the type band pass (constant skirt): 7.").waitFor();
  await dialogOf(page).getByText("The fade time, 30 ms.").waitFor();
  const parametric = await save();
  assert.equal(parametric.name, "velmora-equalizer.txt");
  const shown = await dialogOf(page).getByRole("textbox", { name: "Text of the export" }).inputValue();
  assert.equal(fs.readFileSync(parametric.file, "utf8"), shown);
  await dialogOf(page).getByRole("button", { name: "Close" }).click();

  for (const [file, wanted] of /** @type {const} */ ([
    [own.file, held.bands],
    [parametric.file, held.bands.map((band) => (band.type === 6 ? { ...band, type: 0, gain_db: 0 } : band))],
  ])) {
    await putDocument(service, paths.equalizer, first);
    await page.reload();
    await openImport(page);
    await dialogOf(page).locator("input[type=file]").setInputFiles(file);
    await dialogOf(page).getByText("Every line is used.").waitFor();
    await use(page).click();
    await waitForBands(service, wanted);
  }
});

test(
  "a setting that is off stays off through export and import, and the trim is named",
  limits,
  async (t) => {
    const { page, service } = await openPage(t);
    const first = await settingOf(service);
    const bands = first.bands.map((band, index) => (index === 2 ? { ...band, gain_db: 4 } : band));
    await putDocument(service, paths.equalizer, { bypass: true, fade_ms: 20, bands });
    await putDocument(service, "/api/v1/render/effects/algorithm", { output_trim_db: -5 });
    await page.reload();
    const exported = async () => {
      await page.getByRole("button", { name: "More for presets" }).click();
      await page.getByRole("button", { name: "Export…" }).click();
      await dialogOf(page).getByText("The output trim, −5 dB.").waitFor();
      const own = await dialogOf(page).getByRole("textbox", { name: "Text of the export" }).inputValue();
      await dialogOf(page).getByRole("button", { name: "Close" }).click();
      return own;
    };
    const own = await exported();
    for (const [present, sentence] of /** @type {const} */ ([
      [{ ...first, bypass: false }, "The equalizer switches off, as the text says."],
      [{ ...first, bypass: true }, "The equalizer stays off, as the text says."],
    ])) {
      await putDocument(service, paths.equalizer, present);
      await page.reload();
      await openImport(page);
      await paste(page, own);
      await dialogOf(page).getByText(sentence).waitFor();
      await use(page).click();
      await waitForBands(service, bands.slice(0, 3));
      assert.equal((await settingOf(service)).bypass, true);
      assert.equal(await exported(), own);
    }
  },
);

test("a text is copied, and where the browser refuses that, it is selected", limits, async (t) => {
  const { page, context } = await openPage(t);
  await context.grantPermissions(["clipboard-read", "clipboard-write"]);
  await page.getByRole("button", { name: "More for presets" }).click();
  await page.getByRole("button", { name: "Export…" }).click();
  const area = dialogOf(page).getByRole("textbox");
  await dialogOf(page).getByRole("button", { name: "Copy" }).click();
  await dialogOf(page).getByText("Copied").waitFor();
  assert.equal(await page.evaluate(() => navigator.clipboard.readText()), await area.inputValue());
  await page.evaluate(() => {
    navigator.clipboard.writeText = () => Promise.reject(new Error("refused"));
  });
  await dialogOf(page).getByRole("button", { name: "Copy" }).click();
  await dialogOf(page).getByText("press Ctrl+C").waitFor();
  const selected = await area.evaluate((element) => {
    const { selectionStart, selectionEnd } = /** @type {HTMLTextAreaElement} */ (element);
    return selectionEnd - selectionStart;
  });
  assert.equal(selected, (await area.inputValue()).length);
});

test("in Chinese, with the keyboard only, on a narrow screen", limits, async (t) => {
  const { page, service, changes } = await openPage(t, {
    context: { locale: "zh-CN", viewport: { width: 360, height: 740 }, colorScheme: "dark" },
  });
  const open = page.getByRole("button", { name: "导入…" });
  await open.click({ trial: true });
  await open.focus();
  await page.keyboard.press("Enter");
  await dialogOf(page).waitFor();
  await page.keyboard.press("Tab");
  await page.keyboard.insertText(text);
  await dialogOf(page).getByText("使用 2 个滤波器，共 4 个。").waitFor();
  assert.deepEqual(plain(await droppedLines(page)), [
    "第 4 行 Filter 2: OFF PK Fc 200 Hz Gain 1 dB Q 1 在文件中已关闭。",
    "第 6 行 Filter 4: ON PK Fc 40000 Hz Gain 1 dB Q 1 频率 40000 超出范围（20 到 20000）。",
    "第 7 行 Device: all 不支持 Device。",
  ]);
  const isTooWide = await page.evaluate(() => document.documentElement.scrollWidth > innerWidth);
  const dialogIsTooWide = await dialogOf(page).evaluate(
    ({ scrollWidth, clientWidth }) => scrollWidth > clientWidth,
  );
  assert.deepEqual([isTooWide, dialogIsTooWide], [false, false]);
  assert.deepEqual(await changes(), []);
  // The offer of the preamp, the list, cancel, use.
  for (let count = 0; count < 4; ++count) await page.keyboard.press("Tab");
  await page.waitForFunction(() => document.activeElement?.textContent?.trim() === "使用此设置");
  await page.keyboard.press("Enter");
  await waitForBands(service, firstBands);
  await poll("the focus", async () =>
    (await page.evaluate(() => document.activeElement?.textContent?.trim())) === "导入…" ? true : undefined,
  );
});
