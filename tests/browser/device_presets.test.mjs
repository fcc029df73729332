// Presets that belong to devices.
import assert from "node:assert/strict";
import test from "node:test";

import { sleep } from "../e2e/harness.mjs";
import { headphones, limits, openPage, speakers, waitForMessage, waitForVerdict } from "./browser.mjs";

const select = (page) => page.getByRole("combobox", { name: "Preset" });
const device = (page) => page.getByRole("combobox", { name: "Device" });
const offer = (page) => page.locator("[data-offer]");

async function choose(page, name) {
  await page.getByRole("button", { name: "More for presets" }).click();
  await page.getByRole("button", { name }).click();
}

test("the preset for a device is offered when that device becomes the chosen one", limits, async (t) => {
  const { page, changes } = await openPage(t);
  await waitForVerdict(page, "off");
  await select(page).selectOption({ label: "Night" });
  await page.getByRole("button", { name: "Undo" }).waitFor();
  await choose(page, "Keep for Speakers");
  await waitForMessage(page, "Night is kept for Speakers. It is offered when you choose that device.");
  await select(page).selectOption({ label: "More bass" });
  await device(page).selectOption({ label: headphones.name });
  await sleep(800);
  assert.equal(await offer(page).count(), 0, "nothing belongs to the headphones");

  await device(page).selectOption({ label: speakers.name });
  await offer(page).waitFor();
  await page.getByRole("link", { name: "Advanced" }).click();
  await page.getByRole("heading", { name: "Captures" }).waitFor();
  await page.getByRole("link", { name: "Sound" }).click();
  await offer(page).waitFor();
  await page.reload();
  await offer(page).waitFor();
  const before = (await changes()).length;
  await sleep(300);
  assert.equal((await changes()).length, before, "it is offered, not used");
  await offer(page).getByRole("button", { name: "Use Night" }).click();
  await offer(page).waitFor({ state: "detached" });
  assert.equal(await select(page).evaluate((element) => element.selectedOptions[0].text), "Night");

  await select(page).selectOption({ label: "Flat" });
  await device(page).selectOption({ label: headphones.name });
  await sleep(800);
  await device(page).selectOption({ label: speakers.name });
  await offer(page).getByRole("button", { name: "Not now" }).click();
  await page.reload();
  await page.waitForFunction(
    (name) => [...document.querySelectorAll("select")].some((one) => one.selectedOptions[0]?.text === name),
    speakers.name,
  );
  await sleep(800);
  assert.equal(await offer(page).count(), 0, "it was answered");

  await choose(page, "Stop offering presets for devices");
  await select(page).selectOption({ label: "Flat" });
  for (const { name } of [headphones, speakers]) {
    await device(page).selectOption({ label: name });
    await sleep(800);
  }
  assert.equal(await offer(page).count(), 0);
  await select(page).selectOption({ label: "Night" });
  await choose(page, "No longer keep for Speakers");
  await waitForMessage(page, "Night is no longer kept for Speakers.");
});
