// The Advanced page: processing, captures. And Help.
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import fs from "node:fs";
import path from "node:path";
import test from "node:test";

import { makeDirectory, poll, readRecord } from "../e2e/harness.mjs";
import { limits, openPage, paths, putDocument, readDocument, waitForMessage } from "./browser.mjs";

const advanced = { page: "/advanced.html" };
const captureNames = [
  "capture-1-host-in.wav",
  "capture-2-algorithm-in.wav",
  "capture-3-algorithm-out.wav",
  "capture-4-host-out.wav",
];

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
  assert.equal(await fieldOf(page, "Time smoothing").inputValue(), "0.5");
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

test("a capture is exported and downloaded", limits, async (t) => {
  const captures = makeDirectory();
  const { page, mapping, requests } = await openPage(t, {
    ...advanced,
    more: ["--capture-directory", captures],
  });
  const captureWord = async () => (await readRecord(t, mapping)).readBigUInt64LE(0xa8);
  const click = (name) => page.getByRole("button", { name, exact: true }).click();
  assert.equal(await page.getByRole("button", { name: "Download" }).isDisabled(), true);
  await fieldOf(page, "Length").fill("3");
  await click("Start");
  await waitForMessage(page, "The effect records 3 s while sound plays.");
  assert.equal(await captureWord(), (1n << 32n) | (3n << 16n) | 1n);
  await click("Stop");
  await waitForMessage(page, "The capture has stopped.");
  await click("Export");
  await page.getByText("Waiting for the effect…").waitFor();
  assert.equal(await captureWord(), (3n << 32n) | (3n << 16n) | 3n);
  captureNames.forEach((name, index) =>
    fs.writeFileSync(path.join(captures, name), Buffer.alloc(70_000, index)),
  );
  await page.getByText("280000 bytes are ready.").waitFor();
  const [download] = await Promise.all([page.waitForEvent("download"), click("Download")]);
  assert.match(download.suggestedFilename(), /^velmora-capture-\d{8}-\d{6}\.zip$/);
  const file = path.join(makeDirectory(), "captures.zip");
  await download.saveAs(file);
  assert.match(execFileSync("unzip", ["-t", file], { encoding: "utf8" }), /No errors detected/);
  fs.rmSync(path.join(captures, captureNames[0]));
  await click("Download");
  await waitForMessage(page, "Not done: There is no exported capture yet. Export first.");
  assert.ok(requests.some((request) => request.endsWith("/ready")));
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
