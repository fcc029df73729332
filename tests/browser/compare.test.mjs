// Undo, redo, the slots A and B at one loudness, and edits that did not reach the service.
import assert from "node:assert/strict";
import test from "node:test";

import { equalizerDocument, poll, sleep, someBands } from "../e2e/harness.mjs";
import {
  limits,
  openPage,
  paths,
  putDocument,
  readDocument,
  startAgain,
  waitForMessage,
  waitForVerdict,
} from "./browser.mjs";

const gainField = (page) => page.getByRole("textbox", { name: "Gain of band 1, dB" });
const undoButton = (page) => page.getByRole("button", { name: "Undo" });
const redoButton = (page) => page.getByRole("button", { name: "Redo" });
const slot = (page, name) => page.getByRole("button", { name: `Setting ${name}` });
const matching = (page) => page.getByRole("checkbox", { name: "Same loudness for A and B" });

async function setGain(page, text) {
  await gainField(page).fill(text);
  await gainField(page).press("Enter");
}

/** Presses a key while no field has the focus. */
async function press(page, key) {
  await page.evaluate(() => /** @type {HTMLElement | null} */ (document.activeElement)?.blur());
  await page.keyboard.press(key);
}

/** Edits the gain at the moment in which the service stops to answer: the card goes soon after. */
async function setGainInSilence(page, text) {
  await gainField(page).fill(text);
  await gainField(page).evaluate((field) => {
    const { fetch } = globalThis;
    Object.assign(globalThis, { fetchOf: fetch, fetch: () => Promise.reject(new TypeError("silence")) });
    field.dispatchEvent(new KeyboardEvent("keydown", { key: "Enter", bubbles: true }));
  });
}

const endSilence = (page) =>
  page.evaluate(() => Object.assign(globalThis, { fetch: /** @type {any} */ (globalThis).fetchOf }));

/** The service refuses to write the equalizer, until the page's routes are taken away. */
const refuseWrites = (page) =>
  page.route("**/render/effects/eq", (route) =>
    route.request().method() === "PUT"
      ? route.fulfill({
          status: 503,
          contentType: "application/json",
          body: '{"error":"shared control bridge update failed"}',
        })
      : route.fallback(),
  );

async function waitForGain(service, gain, bypass = false) {
  await poll(`a gain of ${gain} dB`, async () => {
    const setting = await readDocument(service, paths.equalizer);
    return setting.bands[0].gain_db === gain && setting.bypass === bypass ? true : undefined;
  });
}

const trimOf = async (service) => (await readDocument(service, paths.status)).footstep.output_trim_db;
const waitForTrim = (service, wanted) =>
  poll(`a trim of ${wanted} dB`, async () => ((await trimOf(service)) === wanted ? true : undefined));

test("each edit is undone and redone, by buttons and by keys", limits, async (t) => {
  const { page, service, changes } = await openPage(t);
  await gainField(page).waitFor();
  assert.equal(await undoButton(page).getAttribute("aria-disabled"), "true");
  await undoButton(page).click({ force: true });
  assert.deepEqual(await changes(), []);
  for (const text of ["1", "2", "3"]) {
    await setGain(page, text);
    await waitForGain(service, Number(text));
  }
  await undoButton(page).click();
  await waitForGain(service, 2);
  await press(page, "Control+z");
  await waitForGain(service, 1);
  await press(page, "Control+z");
  await waitForGain(service, 0, true);
  assert.equal(await undoButton(page).getAttribute("aria-disabled"), "true");
  await redoButton(page).click();
  await press(page, "Control+y");
  await waitForGain(service, 2);
  await press(page, "Control+Shift+z");
  await waitForGain(service, 3);
  assert.equal(await redoButton(page).getAttribute("aria-disabled"), "true");
  await gainField(page).focus();
  await page.keyboard.press("Control+z");
  await sleep(300);
  await waitForGain(service, 3);
});

test("200 edits are undone one by one", limits, async (t) => {
  const { page, service } = await openPage(t);
  await gainField(page).waitFor();
  // In the page, since 600 steps from outside take minutes on a busy machine.
  await gainField(page).evaluate(async (field) => {
    const input = /** @type {HTMLInputElement} */ (field);
    const drawn = () => new Promise((resolve) => requestAnimationFrame(() => setTimeout(resolve)));
    for (let edit = 1; edit <= 200; ++edit) {
      input.value = String(edit / 10);
      input.dispatchEvent(new Event("input", { bubbles: true }));
      await drawn();
      input.dispatchEvent(new KeyboardEvent("keydown", { key: "Enter", bubbles: true }));
      await drawn();
    }
  });
  await waitForGain(service, 20);
  const undoTimes = (/** @type {number} */ times) =>
    undoButton(page).evaluate((button, count) => {
      for (let click = 0; click < count; ++click) /** @type {HTMLElement} */ (button).click();
    }, times);
  await undoTimes(100);
  await waitForGain(service, 10);
  await undoTimes(100);
  await waitForGain(service, 0, true);
});

test("undo leaves what another page has changed", limits, async (t) => {
  const { page, service } = await openPage(t);
  await gainField(page).waitFor();
  await setGain(page, "5");
  await waitForGain(service, 5);
  const setting = await readDocument(service, paths.equalizer);
  setting.bands[7].gain_db = -4;
  await putDocument(service, paths.equalizer, setting);
  await undoButton(page).click();
  await waitForGain(service, 0, true);
  assert.equal((await readDocument(service, paths.equalizer)).bands[7].gain_db, -4);
});

test("two pages edit different bands at once, and both edits hold", limits, async (t) => {
  const opened = await openPage(t);
  const { page, service, address } = opened;
  const other = await opened.newPage();
  await other.goto(address("/"));
  await gainField(page).waitFor();
  await waitForVerdict(other, "off");
  await other.evaluate(() => {
    const select = document.querySelector("#band, select[name=band]");
    if (!(select instanceof HTMLSelectElement)) return;
    select.value = "4";
    select.dispatchEvent(new Event("change", { bubbles: true }));
  });
  const otherGain = other.getByRole("textbox", { name: "Gain of band 5, dB" });
  if ((await otherGain.count()) === 0)
    await other.getByRole("combobox", { name: "Band", exact: true }).selectOption("4");
  for (let round = 1; round <= 8; ++round) {
    await Promise.all([
      setGain(page, String(round)),
      otherGain.fill(String(-round)).then(() => otherGain.press("Enter")),
    ]);
  }
  await poll("both edits", async () => {
    const { bands } = await readDocument(service, paths.equalizer);
    return bands[0].gain_db === 8 && bands[4].gain_db === -8 ? true : undefined;
  });
  await poll("both pages", async () => {
    const shown = [await gainField(page).inputValue(), await otherGain.inputValue()];
    return shown.join() === "+8 dB,-8 dB" ? true : undefined;
  });
});

test("A and B are two settings, and one key switches between them", limits, async (t) => {
  const { page, service, changes } = await openPage(t);
  await gainField(page).waitFor();
  await setGain(page, "3");
  await waitForGain(service, 3);
  await slot(page, "B").click();
  assert.equal(await slot(page, "B").getAttribute("aria-pressed"), "true");
  await setGain(page, "-6");
  await waitForGain(service, -6);
  await press(page, "c");
  await waitForGain(service, 3);
  assert.equal(await slot(page, "A").getAttribute("aria-pressed"), "true");
  await press(page, "c");
  await waitForGain(service, -6);
  await undoButton(page).click();
  await waitForGain(service, 3);
  assert.equal(await undoButton(page).getAttribute("aria-disabled"), "true", "B's own edits only");
  const before = (await changes()).length;
  await slot(page, "B").click();
  assert.equal((await changes()).length, before);
  await gainField(page).focus();
  await page.keyboard.press("c");
  assert.equal(await slot(page, "B").getAttribute("aria-pressed"), "true", "a letter in a field is no key");
});

test(
  "A and B at one loudness: the louder one is turned down, and the trim is put back",
  limits,
  async (t) => {
    const opened = await openPage(t);
    const { page, service } = opened;
    await putDocument(service, "/api/v1/render/effects/algorithm", { output_trim_db: -2 });
    await gainField(page).waitFor();
    await page.waitForResponse("**/status");
    assert.equal(await matching(page).count(), 0, "nothing to compare yet");
    await setGain(page, "6");
    await waitForGain(service, 6);
    await slot(page, "B").click();
    await setGain(page, "0");
    await waitForGain(service, 0);
    await matching(page).check();
    await sleep(300);
    assert.equal(await trimOf(service), -2, "B is the quieter one");
    await press(page, "c");
    await waitForGain(service, 6);
    const lowered = await poll("a lower trim", async () => {
      const trim = await trimOf(service);
      return trim < -2 ? trim : undefined;
    });
    const note = await page.locator("[data-matching]").innerText();
    assert.ok(note.includes(`A plays ${(-2 - lowered).toFixed(1).replace(/\.0$/, "")} dB lower`), note);
    assert.ok(note.includes("goes back to −2 dB"), note);
    await setGain(page, "9");
    await poll("a trim that follows the edit", async () =>
      (await trimOf(service)) < lowered ? true : undefined,
    );

    await page.reload();
    await matching(page).waitFor();
    assert.ok(await matching(page).isChecked(), "a reload does not forget what is to be put back");
    await page.locator("[data-matching]", { hasText: "earlier comparison" }).waitFor();
    await matching(page).click();
    await waitForTrim(service, -2);
    await matching(page).waitFor({ state: "detached" });
  },
);

/**
 * An edit that gets no answer before the service stops.
 *
 * @param {Awaited<ReturnType<typeof openPage>>} opened
 * @param {string} gain
 */
async function editInVain({ page, service }, gain) {
  await setGainInSilence(page, gain);
  await service.stop();
  await endSilence(page);
  await waitForVerdict(page, "gone");
}

test("an edit that got no answer is sent when the same link answers again", limits, async (t) => {
  const opened = await openPage(t);
  const { page, service } = opened;
  const bands = someBands();
  await putDocument(service, paths.equalizer, { bypass: false, fade_ms: 20, bands });
  await poll("the setting", async () =>
    (await gainField(page).inputValue()) === `${bands[0].gain_db > 0 ? "+" : ""}${bands[0].gain_db} dB`
      ? true
      : undefined,
  );
  await editInVain(opened, "7.5");
  const again = await startAgain(t, opened);
  await waitForMessage(page, "Velmora answers again. Your last equalizer change was sent.");
  const setting = await readDocument(again, paths.equalizer);
  const wanted = bands.map((band, index) => (index === 0 ? { ...band, gain_db: 7.5 } : band));
  assert.equal(equalizerDocument(setting), equalizerDocument({ bypass: false, fade_ms: 20, bands: wanted }));
  await page.reload();
  await gainField(page).waitFor();
  assert.equal(await page.locator("[data-unsent]").count(), 0);
});

test("an edit that a page could not send is offered on the page of the new link", limits, async (t) => {
  const opened = await openPage(t);
  const { page, address } = opened;
  await gainField(page).waitFor();
  await editInVain(opened, "-7.5");
  const token = "another-token-0123456789abcdef0123456789";
  const again = await startAgain(t, opened, token);
  await waitForVerdict(page, "expired");
  opened.requests.length = 0;
  await page.goto(address("/", token));
  const offer = page.locator("[data-unsent]");
  await offer.waitFor();
  await sleep(300);
  assert.deepEqual(await opened.changes(), [], "nothing is sent by itself");
  await offer.getByRole("button", { name: "Use it now" }).click();
  await waitForGain(again, -7.5);
  assert.equal(await offer.count(), 0);
});

test("the offer of an unsent edit stays until it is used or discarded", limits, async (t) => {
  const opened = await openPage(t);
  const { page, service, address } = opened;
  const kept = () => page.evaluate(() => JSON.parse(localStorage.getItem("velmora.memory") ?? "{}"));
  await gainField(page).waitFor();
  await setGain(page, "3");
  await waitForGain(service, 3);
  await poll("the last settings", async () => ((await kept()).lastSettings === null ? undefined : true));
  await editInVain(opened, "-7.5");
  const token = "another-token-0123456789abcdef0123456789";
  const again = await startAgain(t, opened, token);
  await page.goto(address("/", token));
  const offer = page.locator("[data-unsent]");
  await offer.waitFor();
  await page.getByRole("button", { name: /^Use your last settings/ }).click();
  await waitForGain(again, 3);
  await setGain(page, "1");
  await waitForGain(again, 1);
  await sleep(700);
  assert.equal(await offer.count(), 1, "neither contains the edit that was kept");
  assert.equal((await kept()).unsent.bands[0].gain_db, -7.5);
  await offer.getByRole("button", { name: "Use it now" }).click();
  await waitForGain(again, -7.5);
  await undoButton(page).click();
  await waitForGain(again, 1);
  await sleep(700);
  assert.equal(await offer.count(), 0);
  assert.equal((await kept()).unsent, null);
});

test("an edit that is refused goes back, and the next one is sent", limits, async (t) => {
  const { page, service } = await openPage(t);
  await gainField(page).waitFor();
  await refuseWrites(page);
  await setGain(page, "4");
  await page.locator(".message.bad").waitFor();
  await poll("the former value", async () =>
    (await gainField(page).inputValue()) === "0 dB" ? true : undefined,
  );
  await page.unrouteAll();
  await setGain(page, "5");
  await waitForGain(service, 5);
});

test("an undone change of the trim while matched gives the person's own trim back", limits, async (t) => {
  const { page, service } = await openPage(t);
  await gainField(page).waitFor();
  await setGain(page, "6");
  await waitForGain(service, 6);
  await slot(page, "B").click();
  await setGain(page, "0");
  await waitForGain(service, 0);
  await matching(page).check();
  await press(page, "c");
  await waitForGain(service, 6);
  await poll("a lower trim", async () => ((await trimOf(service)) < 0 ? true : undefined));
  // The trim that keeps a lot of gain below full scale ends the matching.
  await setGain(page, "30");
  await page.locator("[data-clip] button").click();
  await poll("no matching", async () => ((await matching(page).isChecked()) ? undefined : true));
  await undoButton(page).click();
  await waitForTrim(service, 0);
});

test("a trim that was set elsewhere while matched is not overwritten", limits, async (t) => {
  const { page, service } = await openPage(t);
  await gainField(page).waitFor();
  await setGain(page, "6");
  await slot(page, "B").click();
  await setGain(page, "0");
  await waitForGain(service, 0);
  await matching(page).check();
  await press(page, "c");
  await poll("a lower trim", async () => ((await trimOf(service)) < 0 ? true : undefined));
  await putDocument(service, "/api/v1/render/effects/algorithm", { output_trim_db: -12 });
  await page.waitForResponse(
    async (response) =>
      response.url().endsWith("/status") && (await response.json()).footstep.output_trim_db === -12,
  );
  await matching(page).uncheck();
  await sleep(500);
  assert.equal(await trimOf(service), -12);
});

test("a late change that is refused is not reported as sent", limits, async (t) => {
  const { page, service } = await openPage(t);
  await gainField(page).waitFor();
  await page.route("**/api/**", (route) => route.abort());
  await setGain(page, "4");
  await waitForVerdict(page, "gone");
  await page.unrouteAll();
  await refuseWrites(page);
  await page.locator(".message.bad").waitFor();
  await sleep(500);
  assert.equal(await page.locator(".message", { hasText: "was sent" }).count(), 0);
  assert.equal((await readDocument(service, paths.equalizer)).bands[0].gain_db, 0);
});

test("a trim that got no answer is sent when the service answers again", limits, async (t) => {
  const { page, service } = await openPage(t);
  await gainField(page).waitFor();
  await setGain(page, "6");
  await waitForGain(service, 6);
  await page.route("**/effects/algorithm", (route) => route.abort(), { times: 1 });
  await page.locator("[data-clip] button").click();
  await waitForTrim(service, -6);
  await page.locator("[data-clip]").waitFor({ state: "detached" });
});
