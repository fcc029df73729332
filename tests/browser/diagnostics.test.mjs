// The diagnostics on the Advanced page, and the report with its preview on both pages.
import assert from "node:assert/strict";
import fs from "node:fs";
import { createRequire } from "node:module";
import path from "node:path";
import test from "node:test";

import { makeDirectory, poll, startAccountService } from "../e2e/harness.mjs";
import { jsonReply } from "../programs/account/service.mjs";
import {
  idOf,
  limits,
  microphone,
  openPage,
  paths,
  putDocument,
  readDocument,
  speakers,
  waitForVerdict,
} from "./browser.mjs";

const advanced = { page: "/advanced.html" };
const axePath = createRequire(import.meta.url).resolve("axe-core/axe.min.js");

const rowOf = (page, name) => page.locator(`#diagnostics tr[data-path="${name}"]`);
const valueOf = (page, name) => rowOf(page, name).locator(".value");
const waitForValue = (page, name, wanted) =>
  poll(`${name} ${wanted}`, async () =>
    (await valueOf(page, name).textContent()) === wanted ? true : undefined,
  );

async function unfold(page) {
  await page.locator("#diagnostics > summary").click();
  // There is nothing to open before the first look.
  await page.locator("#diagnostics .group .number", { hasText: /[1-9]/ }).first().waitFor();
  await page.getByRole("button", { name: /^(?:Open all|全部展开)$/ }).click();
}

const reportField = (page) => page.getByRole("dialog").locator("textarea");

function pathsOf(document, prefix = "") {
  return Object.entries(document).flatMap(([key, value]) =>
    typeof value === "object" && !Array.isArray(value) ? pathsOf(value, `${prefix}${key}.`) : [prefix + key],
  );
}

async function violations(page) {
  if (!(await page.evaluate(() => "axe" in window))) await page.addScriptTag({ path: axePath });
  return page.evaluate(async () => {
    const found = await /** @type {any} */ (window).axe.run({ resultTypes: ["violations"] });
    return found.violations.flatMap(({ id, nodes }) => nodes.map(({ html }) => `${id}: ${html}`));
  });
}

const tooWide = (page) => page.evaluate(() => document.documentElement.scrollWidth - innerWidth);

test(
  "each value of the document is shown once, with its name in words and that of the API",
  limits,
  async (t) => {
    const { page, service, effect, complaints, changes } = await openPage(t, advanced);
    effect.write("initializeProgress", (3n << 32n) | 0x80004005n);
    await unfold(page);
    await waitForValue(page, "apo_diagnostics.initialize_hresult", "unspecified failure (0x80004005)");
    await waitForValue(page, "apo_diagnostics.initialize_stage", "3");
    await waitForValue(page, "apo_diagnostics.initialized_mode_mask", "none");
    await waitForValue(page, "audio_engine.process_id", "4711");
    await waitForValue(page, "apo_binding.chain", "{631D9145-CACF-44D7-861B-5D82ADD8C84F}");
    await waitForValue(page, "apo_host.protected_audio_dg_disabled", "Yes");
    assert.match(
      String(await rowOf(page, "apo_host.protected_audio_dg_disabled").locator(".note").textContent()),
      /HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Audio, DisableProtectedAudioDG$/,
    );
    const wanted = pathsOf(await readDocument(service, paths.status)).sort();
    const shown = await page
      .locator("#diagnostics tr")
      .evaluateAll((rows) => rows.map((row) => /** @type {HTMLElement} */ (row).dataset.path));
    assert.deepEqual(shown.sort(), wanted);
    assert.equal(await page.getByText("106 values", { exact: true }).count(), 1);
    await page.evaluate(() => Object.assign(window, { firstRow: document.querySelector("#diagnostics tr") }));
    effect.write("blocks", 77n);
    await waitForValue(page, "apo_diagnostics.total_processed_blocks", "77");
    assert.ok(
      await page.evaluate(
        () => /** @type {any} */ (window).firstRow === document.querySelector("#diagnostics tr"),
      ),
    );
    const numerals = await valueOf(page, "audio_engine.process_id").evaluate(
      (value) => getComputedStyle(value).fontVariantNumeric,
    );
    assert.equal(numerals, "tabular-nums");
    assert.deepEqual(await changes(), []);
    assert.deepEqual(
      complaints.filter((text) => !/501/.test(text)),
      [],
      "but for the question after an account service",
    );
  },
);

test("a search finds words and API names in both languages, and Escape ends it", limits, async (t) => {
  const { page } = await openPage(t, advanced);
  await page.locator("#diagnostics > summary").click();
  const search = page.getByRole("textbox", { name: "Search" });
  const rows = page.locator("#diagnostics tr");
  assert.equal(await rows.count(), 0, "the groups begin folded");
  await search.fill("process of THE engine");
  await rowOf(page, "audio_engine.process_id").waitFor();
  assert.equal(await rows.count(), 1);
  await page.getByText("1 of 106 values").waitFor();
  await search.fill("lock_input");
  await poll("the format", async () => ((await rows.count()) === 5 ? true : undefined));
  await page.locator("#diagnostics-formats > summary").click();
  await poll("the folded group", async () => ((await rows.count()) === 0 ? true : undefined));
  await search.fill("lock_output");
  await poll("what the next search finds", async () => ((await rows.count()) === 5 ? true : undefined));
  await search.fill("nothing has this");
  await page.getByText("No value matches. Press Escape to see all.").waitFor();
  await search.press("Escape");
  await page.getByText("106 values", { exact: true }).waitFor();
  assert.equal(await search.inputValue(), "");
  assert.equal(await rows.count(), 0, "what was folded is folded again");
  await search.fill("sample rate");
  await page.getByRole("button", { name: "Clear the search" }).click();
  assert.equal(await search.inputValue(), "");
  await page.waitForFunction(() => document.activeElement?.matches(".search input"));
  await page.getByRole("button", { name: "中文" }).click();
  await page.getByRole("textbox", { name: "搜索" }).fill("引擎 进程号");
  await rowOf(page, "audio_engine.process_id").waitFor();
  await page.getByText("106 项中的 1 项").waitFor();
});

test(
  "changes are marked in words, with what was there before, until the marking begins again",
  limits,
  async (t) => {
    const { page, service } = await openPage(t, advanced);
    await putDocument(service, paths.footstep, { bypass: false, enhance_strength: 0.5 });
    await page.locator("#diagnostics > summary").click();
    await page.locator("#diagnostics-settings > summary").click();
    const mark = rowOf(page, "footstep.enhance_strength").locator(".mark");
    await waitForValue(page, "footstep.enhance_strength", "50 %");
    await page.getByRole("button", { name: "Mark changes from now" }).click();
    assert.equal(await mark.count(), 0);
    await putDocument(service, paths.footstep, { bypass: false, enhance_strength: 0.25 });
    await mark.waitFor();
    assert.equal((await mark.innerText()).trim(), "changed");
    assert.equal(await mark.locator("svg").count(), 1);
    assert.equal(await mark.getAttribute("title"), "Changed. It was: 50 % (0.5)");
    assert.match(await page.locator("#diagnostics-settings > summary").innerText(), /1 changed/);
    assert.equal(await rowOf(page, "footstep.bypass").locator(".mark").count(), 0);
    await putDocument(service, paths.footstep, { bypass: false, enhance_strength: 0.5 });
    await poll("back", async () =>
      (await mark.innerText()).trim() === "changed and back" ? true : undefined,
    );
    await page.getByRole("button", { name: "Mark changes from now" }).click();
    await mark.waitFor({ state: "detached" });
  },
);

test("an address leads to a group", limits, async (t) => {
  const { page, address } = await openPage(t, { open: false });
  await page.goto(`${address("/advanced.html")}#diagnostics-engine`);
  await rowOf(page, "audio_engine.process_id").waitFor();
  const top = () =>
    page.locator("#diagnostics-engine").evaluate((group) => group.getBoundingClientRect().top);
  const [at, height] = [await top(), 800];
  assert.ok(at >= 0 && at < height, `${at}`);
  assert.equal(await page.locator("#diagnostics tr").count(), 6, "the other groups stay folded");
  await page.evaluate(() => (location.hash = "#diagnostics-chain"));
  await rowOf(page, "apo_binding.bound").waitFor();
  await page.goto(`${address("/advanced.html")}#diagnostics-nothing`);
  await page.reload();
  await page.locator("#diagnostics > summary").waitFor();
  assert.equal(await page.locator("#diagnostics").getAttribute("open"), null);
});

// ---- the report ----

test("what the preview shows is what is copied, from both pages", limits, async (t) => {
  const { page, context, service, address } = await openPage(t, { devices: [speakers, microphone] });
  await context.grantPermissions(["clipboard-read", "clipboard-write"]);
  const clipboard = () => page.evaluate(() => navigator.clipboard.readText());
  await page.evaluate(() => navigator.clipboard.writeText("before"));
  await putDocument(service, paths.footstep, { bypass: false, enhance_strength: 0.5 });
  await waitForVerdict(page, "couldNotStart");
  await page.locator("[data-action=copyReport]").click();
  const dialog = page.getByRole("dialog");
  await dialog.getByText("It names your devices.").waitFor();
  await dialog.getByText("This is what will be copied:").waitFor();
  assert.equal(await clipboard(), "before", "nothing is copied unseen");
  const shown = await reportField(page).inputValue();
  await page.waitForTimeout(1200);
  assert.equal(await reportField(page).inputValue(), shown, "the text stays as it was read");
  await page.waitForFunction(() => document.activeElement?.textContent?.trim() === "Copy");
  await page.keyboard.press("Enter");
  await dialog.getByText("Copied. Paste it where you report the fault.").waitFor();
  assert.equal(await clipboard(), shown);
  const lines = shown.split("\n");
  assert.ok(lines.includes("couldNotStart: Velmora could not start on this device"), shown);
  assert.ok(lines.includes("versions.app: 1.2.0"));
  assert.ok(lines.some((line) => line.startsWith(`1: ${speakers.name} | `) && line.includes(idOf(speakers))));
  assert.ok(lines.includes("audio_engine.process_id: 4711"));
  assert.ok(!shown.includes(service.token));
  await dialog.getByRole("button", { name: "Close" }).click();
  await dialog.waitFor({ state: "detached" });
  await page.goto(address("/advanced.html"));
  await page.locator("#diagnostics > summary").click();
  const open = page.getByRole("button", { name: "Copy report…" });
  await open.click();
  assert.match(await reportField(page).inputValue(), /^Velmora report\n/);
  await page.keyboard.press("Escape");
  await dialog.waitFor({ state: "detached" });
  // The focus comes back.
  await page.waitForFunction(() => document.activeElement?.textContent?.trim() === "Copy report…");
});

test("where the browser refuses the clipboard, the text is selected to copy by hand", limits, async (t) => {
  const { page } = await openPage(t, advanced);
  await page.evaluate(() => {
    Object.defineProperty(navigator, "clipboard", {
      value: { writeText: () => Promise.reject(new DOMException("refused", "NotAllowedError")) },
    });
  });
  await page.locator("#diagnostics > summary").click();
  await page.getByRole("button", { name: "Copy report…" }).click();
  await page.getByRole("button", { name: "Copy", exact: true }).click();
  await page.getByText("The browser does not allow copying.").waitFor();
  const selected = await reportField(page).evaluate((/** @type {HTMLTextAreaElement} */ field) => [
    document.activeElement === field,
    field.selectionStart,
    field.selectionEnd === field.value.length,
  ]);
  assert.deepEqual(selected, [true, 0, true]);
});

const remote = "/api/v1/auth/";
const secrets = {
  user: "PLANTEDUSER",
  word: "PLANTED-password",
  attempt: "PLANTED-attempt-1f2e",
  account: "PLANTED-account-hash",
  session: "PLANTED-session-credential",
  nickname: "PLANTED nickname",
  phone: "13800138000",
  machine: "PLANTED-machine-0a1b2c",
  referrer: "PLANTED-referrer",
  preset: "PLANTED preset",
};

test("planted secrets are in no report of the real service", limits, async (t) => {
  const account = await startAccountService(t);
  account.answer("/api/v1/session/release", jsonReply({}));
  account.answer("/api/v1/session/check", jsonReply({ active: true }));
  account.answer(`${remote}password`, jsonReply({ state: secrets.attempt }));
  account.answer(
    `${remote}poll`,
    jsonReply({
      status: "issued",
      account_hash: secrets.account,
      session_token: secrets.session,
      nickname: secrets.nickname,
      public_id: secrets.phone,
      referral_open: false,
      referrer: secrets.referrer,
      invite_url: `https://account.invalid/i/${secrets.phone}?state=${secrets.attempt}`,
      primary_machine_id: secrets.machine,
    }),
  );
  const home = path.join(makeDirectory(), "home", secrets.user);
  const presets = path.join(home, "presets");
  fs.mkdirSync(presets, { recursive: true });
  for (const name of ["velmora_windows_apo.dll", "fse.dll", "model_weights.bin"])
    fs.writeFileSync(path.join(home, name), "");
  const { page, context, processes, service, address } = await openPage(t, {
    ...advanced,
    devices: [{ ...speakers, name: "Speakers of Anna" }, microphone],
    effect: path.join(home, "velmora_windows_apo.dll"),
    more: ["--account-service", account.url, "--preset-directory", presets, "--capture-directory", home],
  });
  await context.grantPermissions(["clipboard-read", "clipboard-write"]);
  processes.endEngine();
  processes.startEngine(4712);
  fs.writeFileSync(
    path.join(processes.root, "4712", "maps"),
    `10000-11000 r-xp 0 08:01 7   /home/${secrets.user}/velmora_windows_apo.dll\n`,
  );
  const setting = await readDocument(service, paths.equalizer);
  await putDocument(service, `/api/v1/eq/presets/${encodeURIComponent(secrets.preset)}`, setting);
  await page.getByRole("textbox", { name: "User name", exact: true }).fill(secrets.user);
  await page.getByRole("textbox", { name: "Password", exact: true }).fill(secrets.word);
  await page.getByRole("button", { name: "Sign in", exact: true }).click();
  await page.getByText(`Signed in as ${secrets.nickname}`).waitFor();
  await page.evaluate((words) => {
    const memory = JSON.parse(localStorage.getItem("velmora.memory") ?? "{}");
    memory.added = [[`{${words.user}}`, words.nickname]];
    memory.lastSettings = {
      footstep: { bypass: false, bypass_all: false, enhance_strength: 0.5 },
      preset: words.preset,
      presetChanged: false,
      equalizer: null,
    };
    localStorage.setItem("velmora.memory", JSON.stringify(memory));
    localStorage.setItem("other", Object.values(words).join(" "));
  }, secrets);
  await page.reload();
  await page.locator("#diagnostics > summary").click();
  const status = JSON.stringify(await readDocument(service, paths.status));
  for (const planted of [secrets.account, secrets.machine, secrets.referrer, secrets.phone, secrets.user])
    assert.ok(status.includes(planted), `${planted} is in the status document`);
  await page.getByRole("textbox", { name: "Search" }).fill("apo_module_path");
  await waitForValue(page, "audio_engine.apo_module_path", `/home/${secrets.user}/velmora_windows_apo.dll`);
  const reports = [];
  for (const where of ["/advanced.html", "/"]) {
    for (const language of ["English", "中文"]) {
      await page.goto(address(where));
      await page.locator("nav a").first().waitFor();
      // The page before is gone, so these are looks of this one; with the second, the first is taken in.
      for (let look = 0; look < 2; ++look) await page.waitForResponse("**/api/v1/devices");
      const other = page.locator("nav button");
      if ((await other.textContent())?.trim() === language) await other.click();
      if (where === "/") {
        await putDocument(service, paths.footstep, { bypass: false, enhance_strength: 0.5 });
        await page.locator("[data-action=copyReport]").click();
      } else {
        await page.locator("#diagnostics > summary").click();
        await page.getByRole("button", { name: /^(?:Copy report…|复制报告…)$/ }).click();
      }
      await page.getByRole("dialog").locator(".primary").click();
      await page
        .getByRole("dialog")
        .getByText(/^(?:Copied\.|已复制)/)
        .waitFor();
      const copied = await page.evaluate(() => navigator.clipboard.readText());
      assert.equal(copied, await reportField(page).inputValue());
      reports.push(copied);
    }
  }
  for (const report of reports) {
    for (const planted of [...Object.values(secrets), service.token, "PLANTED", home, presets])
      assert.ok(!report.toLowerCase().includes(planted.toLowerCase()), `${planted}\n${report}`);
    assert.match(report, /\naudio_engine\.apo_module_path: \/home\/…\/velmora_windows_apo\.dll\n/);
    assert.match(report, /\napo_host\.apo_dll_path: \/.*\/home\/…\/velmora_windows_apo\.dll\n/);
    assert.ok(report.includes("Speakers of Anna"), "names of devices stay");
  }
  assert.match(reports[0], /^Velmora report\n/);
  assert.match(reports[1], /^Velmora 报告\n/);
});

// ---- for everybody ----

for (const [locale, colorScheme, width] of /** @type {["en-US" | "zh-CN", "light" | "dark", number][]} */ ([
  ["en-US", "light", 1280],
  ["zh-CN", "dark", 1280],
  ["en-US", "dark", 360],
  ["zh-CN", "light", 360],
])) {
  test(
    `diagnostics and report are accessible: ${locale}, ${colorScheme}, ${width} wide`,
    limits,
    async (t) => {
      const { page, service } = await openPage(t, {
        ...advanced,
        context: { locale, colorScheme, viewport: { width, height: 740 } },
      });
      await unfold(page);
      await rowOf(page, "apo_binding.chain").waitFor();
      await putDocument(service, paths.footstep, { bypass: false, enhance_strength: 0.5 });
      await page.locator("#diagnostics td .mark").first().waitFor();
      assert.equal(await tooWide(page), 0);
      assert.deepEqual(await violations(page), []);
      const small = await page
        .locator("#diagnostics button, #diagnostics input, #diagnostics summary")
        .evaluateAll((all) => all.filter((one) => one.getBoundingClientRect().height < 40).length);
      assert.equal(small, 0);
      await page.getByRole("button", { name: /^(?:Copy report…|复制报告…)$/ }).click();
      await page.getByRole("dialog").waitFor();
      assert.equal(await tooWide(page), 0);
      assert.deepEqual(await violations(page), []);
    },
  );
}

test("everything in the diagnostics can be done with the keyboard", limits, async (t) => {
  const { page } = await openPage(t, advanced);
  await page.locator("#diagnostics > summary").focus();
  await page.keyboard.press("Enter");
  await page.getByRole("textbox", { name: "Search" }).waitFor();
  const focused = () =>
    page.evaluate(() => {
      const element = /** @type {HTMLInputElement} */ (document.activeElement);
      return (
        element.labels?.[0]?.textContent ??
        element.querySelector("h3")?.textContent ??
        element.textContent
      )?.trim();
    });
  const order = [];
  for (let count = 0; count < 6; ++count) {
    await page.keyboard.press("Tab");
    assert.equal(
      await page.evaluate(
        () => getComputedStyle(/** @type {Element} */ (document.activeElement)).outlineWidth,
      ),
      "3px",
    );
    order.push(await focused());
  }
  assert.deepEqual(order, [
    "Search",
    "Copy report…",
    "Mark changes from now",
    "Open all",
    "Volume of the chosen device",
    "Settings sent to the effect",
  ]);
  await page.keyboard.press("Space");
  await rowOf(page, "footstep.bypass").waitFor();
  await page.keyboard.press("Space");
  await rowOf(page, "footstep.bypass").waitFor({ state: "detached" });
});
