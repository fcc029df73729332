// The equalizer on the first screen.
import assert from "node:assert/strict";
import test from "node:test";

import { poll } from "../e2e/harness.mjs";
import { limits, openPage, paths, putDocument, readDocument, waitForMessage } from "./browser.mjs";

const field = (page, name) => page.getByRole("textbox", { name });
const gain = (page, band = 1) => field(page, `Gain of band ${band}, dB`);
const settingOf = (service) => readDocument(service, paths.equalizer);

async function waitForSetting(service, what, holds) {
  return poll(what, async () => {
    const setting = await settingOf(service);
    return holds(setting) ? setting : undefined;
  });
}

async function type(locator, text) {
  await locator.fill(text);
  await locator.press("Enter");
}

test(
  "the first edit switches the equalizer on, and the page shows what the record holds",
  limits,
  async (t) => {
    const { page, service, changes } = await openPage(t);
    const on = page.getByRole("switch", { name: "Equalizer" });
    await gain(page).waitFor();
    assert.equal(await on.isChecked(), false);
    await type(gain(page), "-3,27");
    await waitForSetting(service, "the gain", ({ bypass, bands }) => !bypass && bands[0].gain_db === -3.27);
    assert.equal((await changes()).length, 1);
    await poll("the field", async () => ((await gain(page).inputValue()) === "-3.27 dB" ? true : undefined));
    assert.equal(await on.isChecked(), true);

    await page.getByRole("combobox", { name: "Band", exact: true }).selectOption("3");
    await type(field(page, "Frequency of band 4, Hz"), "1.5k");
    await page.getByRole("combobox", { name: "Type of band 4" }).selectOption("7");
    await type(field(page, "Q of band 4"), "2");
    const { bands } = await waitForSetting(service, "band 4", (setting) => setting.bands[3].q === 2);
    assert.deepEqual(bands[3], { type: 7, freq_hz: 1500, gain_db: 0, q: 2 });
    await page.getByRole("slider", { name: "Band 4, notch, 1.5 kHz, Q 2" }).waitFor();
    await on.uncheck();
    await waitForSetting(service, "the equalizer off", ({ bypass }) => bypass);
  },
);

test("an emptied or impossible field goes back and sends nothing", limits, async (t) => {
  const { page, changes } = await openPage(t);
  await gain(page).waitFor();
  for (const [locator, first] of [
    [gain(page), "0 dB"],
    [field(page, "Frequency of band 1, Hz"), "20 Hz"],
    [field(page, "Q of band 1"), "0.707"],
  ]) {
    for (const text of ["", "abc", "31k", "-31", "1e9", "-0.1.2"]) {
      await locator.fill(text);
      await locator.blur();
      assert.equal(await locator.inputValue(), first, text);
    }
    await locator.fill("5");
    await locator.press("Escape");
    assert.equal(await locator.inputValue(), first);
    await locator.blur();
  }
  assert.deepEqual(await changes(), []);
});

test(
  "an edit keeps what another tab has changed, and says so where both changed one band",
  limits,
  async (t) => {
    const { page, service } = await openPage(t);
    await gain(page).waitFor();
    // Between the page's last look and its edit, another client changes bands.
    const changeElsewhere = async (bands) => {
      const setting = await settingOf(service);
      let isDone = false;
      await page.unrouteAll();
      for (const [index, values] of Object.entries(bands)) Object.assign(setting.bands[index], values);
      await page.route("**/render/effects/eq", async (route) => {
        if (route.request().method() === "PUT") return route.fallback();
        if (!isDone) await putDocument(service, paths.equalizer, setting);
        isDone = true;
        return route.fallback();
      });
    };
    await page.waitForResponse("**/render/effects/eq");
    await changeElsewhere({ 5: { gain_db: 4 } });
    await type(gain(page), "2");
    const { bands } = await waitForSetting(
      service,
      "both changes",
      (setting) => setting.bands[0].gain_db === 2,
    );
    assert.equal(bands[5].gain_db, 4);
    assert.deepEqual(await page.locator(".message").allTextContents(), []);

    await page.waitForResponse("**/render/effects/eq");
    await changeElsewhere({ 0: { gain_db: -9, q: 3 } });
    await type(gain(page), "6");
    await waitForMessage(
      page,
      "Another page or program changed the same band. Your change is the newer one and holds.",
    );
    const after = await settingOf(service);
    assert.deepEqual([after.bands[0].gain_db, after.bands[0].q], [6, 3]);
  },
);
