// Makes the pictures of docs/images/, for tools/screenshots: the first screen in both languages, light and dark, 1280
// and 360 wide, where it works, where a step is left, and while the equalizer is edited. With
// VELMORA_IMAGES_OF=all the other pages too, for a look.
import fs from "node:fs";
import path from "node:path";
import test from "node:test";
import { fileURLToPath } from "node:url";

import {
  browserProgram,
  headphones,
  microphone,
  openPage,
  paths,
  player,
  putDocument,
  speakers,
  waitForVerdict,
} from "./browser.mjs";

const directory = process.env.VELMORA_IMAGES ?? fileURLToPath(new URL("../../docs/images", import.meta.url));
fs.mkdirSync(directory, { recursive: true });

const sizes = { wide: { width: 1280, height: 800 }, narrow: { width: 360, height: 740 } };
const looks = [
  { name: "en-light-1280", locale: "en-US", colorScheme: "light", viewport: sizes.wide },
  { name: "zh-dark-1280", locale: "zh-CN", colorScheme: "dark", viewport: sizes.wide },
  { name: "en-dark-360", locale: "en-US", colorScheme: "dark", viewport: sizes.narrow },
  { name: "zh-light-360", locale: "zh-CN", colorScheme: "light", viewport: sizes.narrow },
];
const all = process.env.VELMORA_IMAGES_OF === "all";
const playing = { ...speakers, sessions: [player, browserProgram] };
const bands = [
  { type: 1, freq_hz: 90, gain_db: 4.5, q: 0.71 },
  { type: 0, freq_hz: 260, gain_db: -2.5, q: 1 },
  { type: 0, freq_hz: 1200, gain_db: 1.5, q: 1 },
  { type: 0, freq_hz: 3200, gain_db: -3, q: 2 },
  { type: 2, freq_hz: 9000, gain_db: 3, q: 0.71 },
];

/** What the picture of an import shows: filters that are used, one that is off, one that is out of range. */
const importText = [
  "Preamp: -4.5 dB",
  "Filter 1: ON LSC Fc 95 Hz Gain 5 dB Q 0.7",
  "Filter 2: ON PK Fc 280 Hz Gain -1.5 dB Q 1",
  "Filter 3: OFF PK Fc 500 Hz Gain 2 dB Q 1",
  "Filter 4: ON PK Fc 31000 Hz Gain 2 dB Q 1",
].join("\n");

/**
 * A dot under the pointer, A and B at one loudness, and the preview of an import.
 *
 * @param {import("playwright-core").Page} page
 * @param {string} name
 */
async function pictureEditing(page, name) {
  const card = page.locator(".card.equalizer");
  const picture = async (/** @type {string} */ what) =>
    card.screenshot({ path: path.join(directory, `${what}-${name}.png`) });
  const dot = page.locator("#band-dot-3");
  await dot.scrollIntoViewIfNeeded();
  const box = await dot.boundingBox();
  if (box === null) throw new Error("no dot");
  const [x, y] = [box.x + box.width / 2, box.y + box.height / 2];
  await page.mouse.move(x, y);
  await page.mouse.down();
  await page.mouse.move(x + 8, y - 30, { steps: 5 });
  await page.waitForTimeout(300);
  await picture("edit");
  await page.mouse.up();
  await page.locator(".compare [aria-pressed=false]").click();
  await page.locator("#band-dot-1").focus();
  await page.keyboard.press("PageUp");
  await page.locator("[data-matching] input").check();
  await page.waitForTimeout(600);
  await picture("compare");
  await page.locator("[data-matching] input").uncheck();
  await page.getByRole("button", { name: /^(?:Import|导入)…$/ }).click();
  await page.getByRole("dialog").getByRole("textbox").fill(importText);
  await page.locator(".import-dropped li").first().waitFor();
  await page.locator(".import-dropped").scrollIntoViewIfNeeded();
  await page.screenshot({ path: path.join(directory, `import-${name}.png`) });
  await page.keyboard.press("Escape");
}

for (const { name, locale, colorScheme, viewport } of looks) {
  const context = { locale, colorScheme: /** @type {"light" | "dark"} */ (colorScheme), viewport };

  test(`works, ${name}`, async (t) => {
    const { page, service, effect, address } = await openPage(t, {
      context,
      devices: [playing, headphones, microphone],
    });
    await putDocument(service, paths.footstep, { bypass: false, enhance_strength: 0.5 });
    const flat = Array.from({ length: 15 - bands.length }, () => ({
      type: 0,
      freq_hz: 1000,
      gain_db: 0,
      q: 0.707,
    }));
    await putDocument(service, paths.equalizer, { bypass: false, bands: [...bands, ...flat] });
    effect.play();
    await waitForVerdict(page, "works");
    await page.screenshot({ path: path.join(directory, `works-${name}.png`) });
    await pictureEditing(page, name);
    if (!all) return;
    await page.reload();
    await waitForVerdict(page, "works");
    await page.locator(".verdict .link").click();
    await page.locator("summary").click();
    await page.screenshot({ path: path.join(directory, `unfolded-${name}.png`), fullPage: true });
    for (const other of ["advanced", "help"]) {
      await page.goto(address(`/${other}.html`));
      await page.waitForTimeout(800);
      if (other === "advanced") await page.locator("summary").first().click();
      await page.screenshot({ path: path.join(directory, `${other}-${name}.png`), fullPage: true });
    }
  });

  test(`one step left, ${name}`, async (t) => {
    const device = { ...playing, bound: false };
    const { page } = await openPage(t, { context, devices: [device, headphones, microphone] });
    await waitForVerdict(page, "notAdded");
    await page.screenshot({ path: path.join(directory, `add-${name}.png`) });
  });
}
