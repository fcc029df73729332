// The Advanced page: processing, captures. And Help.
import assert from "node:assert/strict";
import test from "node:test";

import { poll } from "../e2e/harness.mjs";
import { limits, openPage, paths, putDocument, readDocument, waitForMessage } from "./browser.mjs";

const advanced = { page: "/advanced.html" };
const algorithm = "/api/v1/render/effects/algorithm";

/** The record keeps the time smoothing in steps of 1/255. */
const footstepOf = (values) => ({
  ...values,
  mask_time_alpha: Number(Math.fround(Math.round(values.mask_time_alpha * 255) / 255).toPrecision(7)),
});

const fieldOf = (page, name) => page.getByRole("textbox", { name, exact: true });

const waitForStatus = (service, what, holds) =>
  poll(what, async () => (holds(await readDocument(service, paths.status)) ? true : undefined));

test("the controls begin as the record is, and each sends its one value", limits, async (t) => {
  const { page, service, changes } = await openPage(t, { ...advanced, open: false });
  await putDocument(service, "/api/v1/render/effects/algorithm", {
    output_trim_db: -6.5,
    mask_time_alpha: 0.5,
    mask_frequency_smooth: 1,
    limiter_enabled: false,
    limiter_ceiling_db: -3,
    stereo_link: 2,
  });
  await page.goto(`http://127.0.0.1:${service.port}/advanced.html?token=${service.token}`);
  const trim = fieldOf(page, "Output trim");
  await poll("the trim", async () => ((await trim.inputValue()) === "-6.5 dB" ? true : undefined));
  assert.equal(await fieldOf(page, "Time smoothing").inputValue(), "0.502");
  assert.equal(await fieldOf(page, "Limiter ceiling").inputValue(), "-3 dB");
  await poll("the fade", async () =>
    (await fieldOf(page, "Equalizer fade").inputValue()) === "20 ms" ? true : undefined,
  );
  assert.equal(await page.getByRole("combobox", { name: "Stereo link" }).inputValue(), "2");
  assert.equal(await page.getByRole("switch", { name: "Frequency smoothing" }).isChecked(), true);
  assert.equal(await page.getByRole("switch", { name: "Limiter" }).isChecked(), false);
  assert.deepEqual(await changes(), []);

  await trim.fill("-3.27");
  await trim.press("Enter");
  await poll("the record's step", async () => ((await trim.inputValue()) === "-3.3 dB" ? true : undefined));
  for (const text of ["", "21", "x"]) {
    await trim.fill(text);
    await trim.blur();
    assert.equal(await trim.inputValue(), "-3.3 dB", text);
  }
  await page.getByRole("switch", { name: "Limiter" }).check();
  await page.getByRole("combobox", { name: "Stereo link" }).selectOption("0");
  await waitForStatus(
    service,
    "the link",
    ({ footstep }) => footstep.limiter_enabled && footstep.stereo_link === 0,
  );
  assert.equal((await changes())[0], 'PUT /api/v1/render/effects/algorithm {"output_trim_db":-3.27}');
  await fieldOf(page, "Equalizer fade").fill("12.34");
  await page.keyboard.press("Enter");
  await poll("the fade", async () =>
    (await readDocument(service, paths.equalizer)).fade_ms === 12.3 ? true : undefined,
  );
  assert.equal((await changes()).length, 4);
});

test("a reset puts one value back, or all in one request, and can be undone", limits, async (t) => {
  const { page, service, changes } = await openPage(t, { ...advanced, open: false });
  const own = { output_trim_db: -6.5, mask_time_alpha: 0.5, limiter_enabled: false, stereo_link: 2 };
  await putDocument(service, algorithm, own);
  await page.goto(`http://127.0.0.1:${service.port}/advanced.html?token=${service.token}`);
  const button = (name) => page.getByRole("button", { name, exact: true });
  await button("Reset Output trim").click();
  await waitForStatus(service, "the trim", ({ footstep }) => footstep.output_trim_db === 0);
  await button("Reset Output trim").waitFor({ state: "detached" });
  await page.waitForFunction(() => document.activeElement?.getAttribute("name") === "output_trim_db");
  assert.equal(await fieldOf(page, "Output trim").inputValue(), "0 dB");
  assert.deepEqual(await changes(), [`PUT ${algorithm} {"output_trim_db":0}`]);

  await button("Reset all processing values").click();
  await waitForMessage(page, "All processing values are reset.");
  const first = {
    output_trim_db: 0,
    mask_time_alpha: 0,
    mask_frequency_smooth: 0,
    limiter_enabled: true,
    limiter_ceiling_db: -1,
    stereo_link: 1,
  };
  assert.deepEqual((await changes()).slice(1), [`PUT ${algorithm} ${JSON.stringify(first)}`]);
  const { footstep } = await readDocument(service, paths.status);
  for (const [key, value] of Object.entries(first)) assert.equal(footstep[key], value, key);
  assert.equal(await fieldOf(page, "Time smoothing").inputValue(), "0");
  await page.getByRole("button", { name: "Reset all processing values", disabled: true }).waitFor();

  await button("Undo the reset").click();
  await waitForMessage(page, "The values from before the reset are back.");
  const back = await readDocument(service, paths.status);
  assert.equal((await changes()).length, 3);
  assert.equal(back.footstep.mask_time_alpha, footstepOf(own).mask_time_alpha);
  assert.equal(back.footstep.limiter_enabled, false);
  assert.equal(back.footstep.stereo_link, 2);
  assert.equal(back.footstep.output_trim_db, 0, "it was reset before");
  await button("Undo the reset").waitFor({ state: "detached" });
});

test("each value has its range and a sentence that belongs to its control", limits, async (t) => {
  const { page } = await openPage(t, advanced);
  const trim = fieldOf(page, "Output trim");
  await trim.waitFor();
  const described = await page
    .locator(".tuning :is(input, select)[aria-describedby]")
    .evaluateAll((all) =>
      all.map((one) => document.getElementById(one.getAttribute("aria-describedby") ?? "")?.innerText ?? ""),
    );
  assert.equal(described.length, 8);
  for (const text of described) assert.match(text, /\S/);
  assert.equal(described[0], "Makes everything louder or quieter.\n−60 dB to 20 dB, first value 0 dB");
});

test(
  "the account is absent without an account service, and nothing is sent to find out",
  limits,
  async (t) => {
    const { page, requests, changes } = await openPage(t, advanced);
    await page.getByRole("heading", { name: "Processing" }).waitFor();
    await poll("the question", () => (requests.includes("GET /api/v1/account/poll") ? true : undefined));
    await page.waitForTimeout(300);
    assert.equal(await page.locator("#account").count(), 0);
    assert.deepEqual(await changes(), []);
  },
);
