// Volume and devices: adding, removing and restarting audio, choosing a device, meters.
import assert from "node:assert/strict";
import test from "node:test";

import { poll } from "../e2e/harness.mjs";
import {
  browserProgram,
  headphones,
  idOf,
  limits,
  microphone,
  openPage,
  paths,
  player,
  putDocument,
  readDocument,
  speakers,
  verdictTexts,
  waitForMessage,
  waitForVerdict,
} from "./browser.mjs";

const bare = { ...speakers, bound: false, sessions: [player, browserProgram] };
const half = { bypass: false, enhance_strength: 0.5 };
const posts = async (changes) => (await changes()).filter((request) => request.startsWith("POST"));
const body = (attach, device, restart) =>
  `POST /api/v1/render/apo ${JSON.stringify({ attach, endpoint_id: idOf(device), restart_audio: restart })}`;

test("the whole way from adding the effect to hearing it", limits, async (t) => {
  const { page, service, effect, processes, changes } = await openPage(t, {
    devices: [bare, headphones],
    audio: { StopMs: 1500 },
  });
  await putDocument(service, paths.footstep, half);
  await waitForVerdict(page, "notAdded");
  assert.match(
    (await verdictTexts(page))[1],
    /Sound stops for a few seconds in: player\.exe, browser\.exe\.$/,
  );
  await page.getByRole("button", { name: "Add and restart audio" }).click();
  await waitForVerdict(page, "restarting");
  assert.equal(await page.locator("#strength").isDisabled(), true);
  processes.endEngine();
  await waitForMessage(page, "Added to Speakers (High Definition Audio).");
  processes.startEngine(4712);
  effect.play();
  await waitForVerdict(page, "works");
  assert.deepEqual(await posts(changes), [body(true, speakers, true)]);
});

test("an engine that stays is said to be kept", limits, async (t) => {
  const { page, service, effect } = await openPage(t, { devices: [bare, headphones] });
  await putDocument(service, paths.footstep, half);
  effect.play();
  await waitForVerdict(page, "notAdded");
  await page.getByRole("button", { name: "Add and restart audio" }).click();
  await poll("the wait for the engine", async () =>
    /Waiting for Windows/.test((await verdictTexts(page))[1]) ? true : undefined,
  );
  await waitForVerdict(page, "engineKept", 20_000);
  await page.reload();
  await waitForVerdict(page, "engineKept");
});

test("a restart for later is remembered and offered until it is done", limits, async (t) => {
  const { page, service, effect, processes, changes } = await openPage(t, {
    devices: [bare, headphones],
    audio: { StopMs: 1500 },
  });
  await putDocument(service, paths.footstep, half);
  await waitForVerdict(page, "notAdded");
  await page.getByRole("button", { name: "Add, restart later" }).click();
  await waitForMessage(page, "Done. It takes effect after the next audio restart.");
  await waitForVerdict(page, "restartPending");
  await page.reload();
  await waitForVerdict(page, "restartPending");
  await page.getByRole("button", { name: "Restart audio" }).click();
  const dialog = page.getByRole("dialog", { name: "Restart Windows audio?" });
  assert.match(await dialog.innerText(), /Sound stops for a few seconds in: player\.exe, browser\.exe\./);
  await page.keyboard.press("Escape");
  await dialog.waitFor({ state: "detached" });
  assert.equal((await posts(changes)).length, 1);
  await page.getByRole("button", { name: "Restart audio" }).click();
  await page.getByRole("button", { name: "Restart audio now" }).click();
  await poll("the request", async () => ((await posts(changes)).length === 2 ? true : undefined));
  processes.endEngine();
  processes.startEngine(4712);
  effect.play();
  await waitForVerdict(page, "works");
  assert.deepEqual(await posts(changes), [body(true, speakers, false), body(true, speakers, true)]);
});

test("an audio service that does not restart is named, and can be tried again", limits, async (t) => {
  const { page } = await openPage(t, { devices: [bare], audio: { StartError: 1058 } });
  await waitForVerdict(page, "notAdded");
  await page.getByRole("button", { name: "Add and restart audio" }).click();
  await waitForVerdict(page, "restartFailed");
  const [, detail, button] = await verdictTexts(page);
  assert.match(detail, /^Windows audio did not start again\. .*the service is disabled \(1058\)/i);
  assert.equal(button, "Try again");
  await page.getByRole("button", { name: "Try again" }).click();
  await page.getByRole("button", { name: "Restart audio now" }).click();
  await waitForVerdict(page, "restartFailed");
});

test("a restart that failed after a removal is tried again without adding", limits, async (t) => {
  const { page, changes } = await openPage(t, { devices: [speakers], audio: { StopError: 5 } });
  await waitForVerdict(page, "off");
  await page.locator("details > summary").click();
  await page.getByRole("button", { name: `Remove from this device: ${speakers.name}` }).click();
  await page.getByRole("button", { name: "Remove and restart audio" }).click();
  await waitForVerdict(page, "restartFailed");
  await page.getByRole("button", { name: "Try again" }).click();
  await page.getByRole("button", { name: "Restart audio now" }).click();
  await poll("the second request", async () => ((await posts(changes)).length === 2 ? true : undefined));
  assert.deepEqual(await posts(changes), [body(false, speakers, true), body(false, speakers, true)]);
});

test("a removal for later is finished by a restart, or undone without one", limits, async (t) => {
  const { page, service, effect, processes, changes } = await openPage(t, { devices: [speakers] });
  await putDocument(service, paths.footstep, half);
  effect.play();
  await waitForVerdict(page, "works");
  await page.locator("details.card > summary").click();
  const removeLater = async () => {
    await page.getByRole("button", { name: `Remove from this device: ${speakers.name}` }).click();
    await page.getByRole("button", { name: "Remove, restart later" }).click();
    await waitForMessage(page, "Done. It takes effect after the next audio restart.");
    await waitForVerdict(page, "removalPending");
  };
  await removeLater();
  assert.deepEqual(await verdictTexts(page), [
    "Removed. Restart audio to finish",
    "Until Windows audio restarts, you may still hear Velmora on Speakers.",
    "Restart audio",
    "Add again",
  ]);
  await page.getByRole("button", { name: "Add again" }).click();
  await page.getByRole("button", { name: "Add, restart later" }).click();
  await waitForMessage(page, "Added to Speakers (High Definition Audio).");
  await waitForVerdict(page, "works");
  await removeLater();
  await page.reload();
  await waitForVerdict(page, "removalPending");
  await page.getByRole("button", { name: "Restart audio", exact: true }).click();
  await page.getByRole("button", { name: "Restart audio now" }).click();
  await poll("the restart", async () => ((await posts(changes)).length === 4 ? true : undefined));
  processes.endEngine();
  processes.startEngine(4712, []);
  effect.stop();
  await waitForVerdict(page, "notAdded");
  assert.deepEqual(await posts(changes), [
    body(false, speakers, false),
    body(true, speakers, false),
    body(false, speakers, false),
    body(false, speakers, true),
  ]);
});

test("a restart that failed is over once another program has restarted audio", limits, async (t) => {
  const { page, service, effect, processes } = await openPage(t, {
    devices: [bare],
    audio: { StopError: 5 },
  });
  await putDocument(service, paths.footstep, half);
  await waitForVerdict(page, "notAdded");
  await page.getByRole("button", { name: "Add and restart audio" }).click();
  await waitForVerdict(page, "restartFailed");
  processes.endEngine();
  processes.startEngine(4712);
  effect.play();
  await waitForVerdict(page, "works");
});

test("an effect that something else took out is noticed", limits, async (t) => {
  const { page, service, rewrite } = await openPage(t);
  await putDocument(service, paths.footstep, half);
  await waitForVerdict(page, "couldNotStart");
  rewrite({ devices: [{ ...speakers, bound: false }, headphones] });
  await waitForVerdict(page, "goneAgain");
  assert.equal((await verdictTexts(page))[0], "Velmora is no longer on Speakers");
  await page.reload();
  await waitForVerdict(page, "goneAgain");
});

test("devices come and go, are chosen, and the effect is removed from one", limits, async (t) => {
  const { page, service, rewrite, changes } = await openPage(t, { devices: [speakers, headphones] });
  await waitForVerdict(page, "off");
  await page.locator("details > summary").click();
  const names = () => page.locator(".devices h4").allTextContents();
  const waitForNames = (wanted) =>
    poll(`the devices ${wanted}`, async () =>
      JSON.stringify(await names()) === JSON.stringify(wanted) ? true : undefined,
    );
  await waitForNames([speakers.name, headphones.name]);
  await page.getByText("No microphone is connected.").waitFor();
  assert.equal(await page.locator(".bad-text").count(), 0, "a machine without a microphone is a normal one");
  rewrite({ devices: [speakers, microphone] });
  await waitForNames([speakers.name, microphone.name]);
  rewrite({ devices: [speakers, headphones, microphone] });
  await waitForNames([speakers.name, headphones.name, microphone.name]);

  await page.getByRole("combobox", { name: "Device" }).selectOption(idOf(headphones));
  await waitForVerdict(page, "notAdded");
  rewrite({ devices: [speakers, microphone] });
  await waitForVerdict(page, "deviceGone");
  assert.match(
    await page.getByRole("combobox", { name: "Device" }).locator("option").first().innerText(),
    /not connected/,
  );
  await page.getByRole("button", { name: `Use here: ${speakers.name}` }).click();
  await waitForVerdict(page, "off");

  await page.getByRole("button", { name: `Remove from this device: ${speakers.name}` }).click();
  const dialog = page.getByRole("dialog", { name: `Remove Velmora from ${speakers.name}?` });
  await dialog.getByRole("button", { name: "Cancel" }).click();
  assert.deepEqual(await posts(changes), []);
  await page.getByRole("button", { name: `Remove from this device: ${speakers.name}` }).click();
  await dialog.getByRole("button", { name: "Remove, restart later" }).click();
  await waitForMessage(page, "Done. It takes effect after the next audio restart.");
  await waitForVerdict(page, "removalPending");
  assert.deepEqual(await posts(changes), [body(false, speakers, false)]);
  assert.equal((await readDocument(service, paths.status)).apo_binding.bound, false);
});

test(
  "the question in Chinese has blanks around a Latin name, and none between its sentences",
  limits,
  async (t) => {
    const { page } = await openPage(t, { context: { locale: "zh-CN" } });
    await waitForVerdict(page, "off");
    await page.locator("details.card > summary").click();
    await page.getByRole("button", { name: `从此设备移除：${speakers.name}` }).click();
    const dialog = page.getByRole("dialog", { name: `从 ${speakers.name} 移除 Velmora？`, exact: true });
    assert.match(await dialog.innerText(), /中断几秒钟：player\.exe。录音和通话也会中断。/);
  },
);

test("volume, mute and the levels follow Windows and the person", limits, async (t) => {
  const { page, service, rewrite } = await openPage(t);
  await page.getByText("Speakers 75 % · Playing: player.exe").waitFor();
  await page.locator("details > summary").click();
  const volume = page.getByRole("slider", { name: "Volume" });
  assert.equal(await volume.inputValue(), "0.75");
  await volume.fill("0.4");
  await page.getByRole("checkbox", { name: "Mute" }).check();
  await waitForVerdict(page, "muted");
  const { render } = await readDocument(service, paths.status);
  assert.deepEqual([render.volume, render.muted], [0.4, true]);

  const level = page.getByRole("meter", { name: `Level of ${speakers.name}` });
  const waitForLevel = (wanted) =>
    poll(`the level ${wanted}`, async () =>
      (await level.getAttribute("aria-valuetext")) === wanted ? true : undefined,
    );
  await waitForLevel("25 %");
  // Every state of the meter is noted in the page, so that none is missed between two looks.
  await level.evaluate((meter) => {
    const seen = /** @type {any} */ (window);
    const note = () =>
      seen.levels.push([
        meter.getAttribute("aria-valuetext"),
        meter.querySelector("i")?.getAttribute("style"),
      ]);
    seen.levels = [];
    new MutationObserver(note).observe(meter, { attributes: true, subtree: true });
  });
  rewrite({ devices: [{ ...speakers, peak: 0.05, volume: 0.1 }, headphones] });
  await waitForLevel("5 %");
  const levels = await page.evaluate(() => /** @type {any} */ (window).levels);
  const isHeld = ([text, style]) => text === "5 %" && /left: 25%/.test(style);
  assert.ok(levels.some(isHeld), `the peak is held: ${JSON.stringify(levels)}`);
  await poll("the volume of another program", async () =>
    (await volume.inputValue()) === "0.1" ? true : undefined,
  );
  await poll("the held peak to fall", async () =>
    (await level.locator("i").getAttribute("style")) === "left: 5%;" ? true : undefined,
  );
});
