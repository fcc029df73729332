// The first screen: the verdict with its next step, and the controls of the enhancement.
import assert from "node:assert/strict";
import test from "node:test";

import { poll } from "../e2e/harness.mjs";
import {
  headphones,
  idOf,
  installEffect,
  limits,
  microphone,
  openPage,
  paths,
  putDocument,
  readDocument,
  speakers,
  verdictTexts,
  waitForMessage,
  waitForVerdict,
} from "./browser.mjs";

const half = { bypass: false, bypass_all: false, enhance_strength: 0.5 };

async function footstepOf(service) {
  const { footstep } = await readDocument(service, paths.status);
  return [footstep.bypass, footstep.bypass_all, footstep.enhance_strength];
}

const waitForFootstep = (service, wanted) =>
  poll(`the record to hold ${JSON.stringify(wanted)}`, async () =>
    JSON.stringify(await footstepOf(service)) === JSON.stringify(wanted) ? true : undefined,
  );

test("sound that goes through the effect is heard, with its six checks", limits, async (t) => {
  const { page, service, effect, requests, foreign, complaints, changes } = await openPage(t);
  await putDocument(service, paths.footstep, half);
  await waitForVerdict(page, "couldNotStart");
  effect.play();
  await waitForVerdict(page, "works");
  const [headline, detail, ...buttons] = await verdictTexts(page);
  assert.equal(headline, "You are hearing Velmora");
  assert.match(detail, /^On Speakers since \d\d:\d\d, strength 50 %\.$/);
  assert.deepEqual(buttons, []);

  const evidence = page.getByRole("button", { name: "How do you know?" });
  assert.equal(await evidence.getAttribute("aria-expanded"), "false");
  await evidence.click();
  assert.equal(await evidence.getAttribute("aria-expanded"), "true");
  const checks = await page.locator(".checks dt").evaluateAll((all) => all.map((one) => one.textContent));
  assert.deepEqual(
    checks,
    ["Installed", "Added", "Engine", "Loaded", "Processing", "Applied"].map((name) => `${name}Yes`),
  );
  assert.match(await page.locator(".checks").innerText(), /process_id: 4711/);
  effect.stop();
  await waitForVerdict(page, "couldNotStart");
  assert.ok(requests.length > 5);
  assert.deepEqual(
    [await changes(), foreign, complaints],
    [[], [], []],
    "a page that is looked at changes nothing",
  );
});

test("what keeps a person from hearing it is named, with the next step", limits, async (t) => {
  const rows = /** @type {[string, import("./browser.mjs").Contents, string, string[]][]} */ ([
    ["notInstalled", { effect: null }, "The Velmora effect is not installed", []],
    [
      "fileMissing",
      { effect: installEffect(["velmora_windows_apo.dll", "fse.dll"]) },
      "A Velmora file is missing: fse.dll or model_weights.bin",
      [],
    ],
    ["noDevice", { devices: [microphone] }, "No speakers or headphones found", []],
    [
      "noEffects",
      { devices: [{ ...headphones, takesEffects: false }] },
      "Headphones cannot take effects",
      [],
    ],
    [
      "notAdded",
      { devices: [{ ...speakers, bound: false }] },
      "One step left: add Velmora to Speakers",
      ["Add and restart audio", "Add, restart later"],
    ],
    ["muted", { devices: [{ ...speakers, muted: true }] }, "Windows is muted", ["Unmute"]],
    ["off", {}, "Velmora is off", ["Turn on"]],
  ]);
  for (const [id, contents, wanted, buttons] of rows) {
    await t.test(id, async (row) => {
      const { page, changes } = await openPage(row, contents);
      await waitForVerdict(page, id);
      const [headline, , ...shown] = await verdictTexts(page);
      assert.deepEqual([headline, shown], [wanted, buttons]);
      assert.deepEqual(await changes(), []);
    });
  }
});

test("the verdict's own buttons do what they say", limits, async (t) => {
  const { page, service, effect, rewrite, changes } = await openPage(t, {
    devices: [{ ...speakers, muted: true, volume: 0 }, headphones],
  });
  effect.play();
  await waitForVerdict(page, "muted");
  await page.getByRole("button", { name: "Unmute" }).click();
  await waitForVerdict(page, "off");
  assert.deepEqual(await changes(), [
    'PUT /api/v1/render/mute {"muted":false}',
    'PUT /api/v1/render/volume {"volume":0.2}',
  ]);
  await page.getByRole("button", { name: "Turn on" }).click();
  await waitForVerdict(page, "works");
  assert.deepEqual(await footstepOf(service), [false, false, 0.5]);
  await putDocument(service, paths.footstep, { ...half, bypass_all: true });
  await waitForVerdict(page, "bypassed");
  await page.getByRole("button", { name: "Stop bypassing" }).click();
  await waitForVerdict(page, "works");
  await putDocument(service, paths.footstep, { ...half, enhance_strength: 0 });
  await waitForVerdict(page, "strengthZero");
  await page.getByRole("button", { name: "Set to 50 %" }).click();
  await waitForVerdict(page, "works");
  rewrite({
    devices: [
      { ...speakers, peak: 0, sessions: [] },
      { ...headphones, peak: 0.5 },
    ],
  });
  await waitForVerdict(page, "otherDevice");
  await page.getByRole("button", { name: "Use Headphones here" }).click();
  await waitForVerdict(page, "notAdded");
  assert.equal((await readDocument(service, paths.status)).apo_binding.endpoint_id, idOf(headphones));
});

test("switching on at strength 0 sets 50 % in one request, later the last strength", limits, async (t) => {
  const { page, service, changes } = await openPage(t);
  const enhancement = page.getByRole("switch", { name: "Velmora", exact: true });
  await waitForVerdict(page, "off");
  assert.equal(await enhancement.isChecked(), false);
  await enhancement.click();
  await waitForFootstep(service, [false, false, 0.5]);
  assert.equal((await changes()).length, 1);
  assert.equal(await page.locator(".switch .state").first().textContent(), "On");

  await page.getByRole("slider", { name: "Strength" }).fill("0.8");
  await waitForFootstep(service, [false, false, 0.8]);
  await page.getByRole("slider", { name: "Strength" }).fill("0");
  await waitForFootstep(service, [false, false, 0]);
  await enhancement.click();
  await waitForFootstep(service, [true, false, 0]);
  await enhancement.click();
  await waitForFootstep(service, [false, false, 0.8]);
});

test("the original is heard by the button and by the key O, not while typing", limits, async (t) => {
  const { page, service } = await openPage(t);
  await putDocument(service, paths.footstep, half);
  const original = page.getByRole("button", { name: "Hear the original" });
  await page.getByText("50 %", { exact: true }).waitFor();
  await original.click();
  await waitForVerdict(page, "original");
  assert.deepEqual(await footstepOf(service), [false, true, 0.5]);
  assert.equal(await original.getAttribute("aria-pressed"), "true");
  await page.keyboard.press("o");
  await waitForFootstep(service, [false, false, 0.5]);
  await page.getByRole("textbox", { name: "Gain of band 1, dB" }).press("o");
  await page.waitForTimeout(300);
  assert.deepEqual(await footstepOf(service), [false, false, 0.5]);
  await page.reload();
  await page.getByRole("slider", { name: "Strength" }).focus();
  await page.getByText("50 %", { exact: true }).waitFor();
  await page.keyboard.press("O");
  await waitForVerdict(page, "original");
});

test("a dragged slider sends where it comes to rest, one request at a time", limits, async (t) => {
  const { page, service, changes } = await openPage(t);
  await putDocument(service, paths.footstep, half);
  await page.getByText("50 %", { exact: true }).waitFor();
  let underWay = 0;
  let most = 0;
  page.on("request", () => (most = Math.max(most, ++underWay)));
  page.on("requestfinished", () => --underWay);
  await page.locator("#strength").evaluate((/** @type {HTMLInputElement} */ slider) => {
    for (let value = 0; value <= 90; ++value) {
      slider.value = String(value / 100);
      slider.dispatchEvent(new Event("input", { bubbles: true }));
    }
  });
  await waitForFootstep(service, [false, false, 0.9]);
  assert.ok((await changes()).length <= 3, JSON.stringify(await changes()));
  assert.equal(most, 1);
});

test("settings that vanished are offered again, and sent by one click only", limits, async (t) => {
  const opened = await openPage(t);
  const { page, service, changes } = opened;
  await waitForVerdict(page, "off");
  await page.getByRole("switch", { name: "Velmora", exact: true }).click();
  await waitForFootstep(service, [false, false, 0.5]);
  await putDocument(service, paths.footstep, { bypass: true, enhance_strength: 0 });
  const offer = page.getByRole("button", { name: "Use your last settings (50 %)" });
  await offer.waitFor();
  assert.equal((await changes()).length, 1);
  await page.reload();
  await offer.click();
  await waitForFootstep(service, [false, false, 0.5]);
  await offer.waitFor({ state: "detached" });
});

test("what the service refuses is said in words, and goes with the next action", limits, async (t) => {
  const { page, service } = await openPage(t);
  await putDocument(service, paths.footstep, half);
  await page.getByText("50 %", { exact: true }).waitFor();
  const refusals = ["bypass and enhance_strength (0..1) are required", "something <b>new</b>"];
  await page.route("**/effects/footstep", (route) => {
    const error = refusals.shift();
    if (error === undefined) return route.fallback();
    return route.fulfill({ status: 400, contentType: "application/json", body: JSON.stringify({ error }) });
  });
  const enhancement = page.getByRole("switch", { name: "Velmora", exact: true });
  await enhancement.click();
  await waitForMessage(page, "Not done: Strength must be between 0 and 100 %.");
  assert.equal(await enhancement.isChecked(), true, "the control shows what the record holds");
  await enhancement.click();
  await waitForMessage(page, "Not done: something <b>new</b>");
  await enhancement.click();
  await page.locator(".message").waitFor({ state: "detached" });
  await waitForFootstep(service, [true, false, 0.5]);
});
