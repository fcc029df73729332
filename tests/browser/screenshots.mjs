// Makes the pictures of docs/images/, for tools/screenshots: the first screen in both languages, light and dark, 1280
// and 360 wide, where it works and where a step is left. With VELMORA_IMAGES_OF=all the other pages too, for a look.
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
    if (!all) return;
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
