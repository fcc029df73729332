// Help: its entries, the search, and the links that lead into it from what the pages show.
import assert from "node:assert/strict";
import { createRequire } from "node:module";
import test from "node:test";

import { helpSections } from "../../web/src/model/help_entries.js";
import { tables } from "../../web/src/texts/index.js";
import { poll } from "../e2e/harness.mjs";
import {
  headphones,
  limits,
  microphone,
  openPage,
  speakers,
  waitForMessage,
  waitForVerdict,
} from "./browser.mjs";

const axePath = createRequire(import.meta.url).resolve("axe-core/axe.min.js");
const entries = helpSections.flatMap(({ groups }) => groups.flatMap((group) => group.entries));

async function openHelp(t, { hash = "", context = {} } = {}) {
  const opened = await openPage(t, { open: false, context });
  await opened.page.goto(`${opened.address("/help.html")}${hash}`);
  await opened.page.locator("#help").waitFor();
  return opened;
}

const search = (page) => page.getByRole("searchbox", { name: "Find a sentence you saw" });
const shown = (page) => page.locator(".help .entry").count();
const unfolded = (page) =>
  page.locator(".help details[open] > summary").evaluateAll((all) => all.map(({ id }) => id));

// The focus is on the entry, and the entry is in view.
async function assertArrived(page, anchor) {
  await poll(`the focus at ${anchor}`, () =>
    page.evaluate((id) => {
      const target = document.getElementById(id);
      const focused = document.activeElement;
      if (target === null || focused === null) return undefined;
      const { top, bottom } = target.getBoundingClientRect();
      const isSeen = top >= 0 && bottom <= innerHeight;
      return (focused === target || (focused.matches("summary") && focused.contains(target))) && isSeen;
    }, anchor),
  );
}

test("help explains everything in both languages and asks the service for nothing", limits, async (t) => {
  const { page, requests, complaints, foreign } = await openHelp(t, { hash: "#refused" });
  await assertArrived(page, "refused");
  assert.equal(await shown(page), entries.length);
  assert.equal(await page.locator(".contents a").count(), helpSections.length);
  for (const [language, button] of [
    ["en", "中文"],
    ["zh", "English"],
  ]) {
    const table = tables[language];
    const text = await page.locator("main").evaluate((main) => main.textContent);
    for (const key of ["help.start.text", "help.verdict.muted.remedy", "help.error.chainLocked.cause"])
      assert.ok(String(text).includes(table[key]), key);
    assert.equal(await page.locator("html").getAttribute("lang"), language === "en" ? "en" : "zh-CN");
    await page.getByRole("button", { name: button }).click();
  }
  await page.getByRole("button", { name: "中文" }).click();
  await page.reload();
  await page.getByRole("link", { name: "声音" }).waitFor();
  await assertArrived(page, "refused");
  assert.deepEqual([requests, complaints, foreign], [[], [], []]);
});

test("a link unfolds its entry, goes there and gives it the focus", limits, async (t) => {
  const { page } = await openHelp(t, { hash: "#error-captureRead" });
  await assertArrived(page, "error-captureRead");
  assert.deepEqual(await unfolded(page), ["error-captureUnreadable"]);
  await page.getByRole("link", { name: "Privacy", exact: true }).click();
  await assertArrived(page, "privacy");
  await page.evaluate(() => location.assign("#verdict-refused"));
  await assertArrived(page, "verdict-refused");
  const steps = page
    .locator("details[open] a", { hasText: "Steps for a device that refuses changes" })
    .first();
  await steps.focus();
  await page.keyboard.press("Enter");
  await assertArrived(page, "refused");
  await page.goBack();
  await assertArrived(page, "verdict-refused");
  for (const hash of ["#", "#nothing-here", "#%E0%A4%A", "#<b>"]) {
    await page.evaluate((one) => location.assign(one), hash);
    assert.equal(await shown(page), entries.length);
  }
});

test("the search finds a sentence, says how many, and gives everything back", limits, async (t) => {
  const { page } = await openHelp(t);
  await search(page).fill("Sound is playing on Kopfhörer (USB)");
  await page.getByText(/^Entries found: \d$/).waitFor();
  assert.ok((await unfolded(page)).includes("verdict-otherDevice"));
  assert.ok((await shown(page)) < 6);
  await search(page).fill("声音正在耳机上播放");
  await page.locator("#verdict-otherDevice").waitFor();
  await search(page).fill("0x88890004");
  await page.getByText("Entries found: 1", { exact: true }).waitFor();
  assert.deepEqual(await unfolded(page), ["result-0x88890004"]);
  for (const text of ["0x8007041C", "-2147023844", "−2147023844"]) {
    await search(page).fill(text);
    await page.getByText("Entries found: 1", { exact: true }).waitFor();
    assert.deepEqual(await unfolded(page), ["result-1051"]);
    await page.getByText("0x8007041B · −2147023845").waitFor();
  }
  await search(page).fill("ctrl+c");
  await page.locator("#end").waitFor();
  for (const text of ["xylophone", '<img src=x onerror="document.title=1">']) {
    await search(page).fill(text);
    await page.getByText(/^Nothing found/).waitFor();
    assert.equal(await shown(page), 0);
  }
  await page.getByRole("button", { name: "Show everything" }).click();
  assert.equal(await shown(page), entries.length);
  await page.waitForFunction(() => document.activeElement?.getAttribute("type") === "search");
  // A link to what the search hides ends the search.
  await search(page).fill("xylophone");
  await page.evaluate(() => location.assign("#verdict-muted"));
  await assertArrived(page, "verdict-muted");
  assert.equal(await search(page).inputValue(), "");
});

test("every anchor is on the page once", limits, async (t) => {
  const { page } = await openHelp(t);
  const anchors = [
    ...helpSections.map(({ id }) => id),
    ...entries.flatMap(({ titles }) => titles.map(({ id }) => id)),
  ];
  const ids = await page.locator("[id]").evaluateAll((all) => all.map(({ id }) => id));
  for (const anchor of anchors) assert.equal(ids.filter((id) => id === anchor).length, 1, anchor);
});

for (const [locale, colorScheme, width] of /** @type {["en-US" | "zh-CN", "light" | "dark", number][]} */ ([
  ["en-US", "light", 1280],
  ["zh-CN", "dark", 360],
])) {
  test(`axe finds nothing in the unfolded help: ${locale}, ${colorScheme}, ${width}`, limits, async (t) => {
    const context = { locale, colorScheme, viewport: { width, height: 800 } };
    const { page } = await openHelp(t, { context });
    await page.locator("details").evaluateAll((all) => {
      for (const one of all) /** @type {HTMLDetailsElement} */ (one).open = true;
    });
    await page.addScriptTag({ path: axePath });
    const violations = await page.evaluate(async () => {
      const found = await /** @type {any} */ (window).axe.run({ resultTypes: ["violations"] });
      return found.violations.flatMap(({ id, nodes }) => nodes.map((one) => `${id}: ${one.html}`));
    });
    assert.deepEqual(violations, []);
    assert.equal(await page.evaluate(() => document.documentElement.scrollWidth - innerWidth), 0);
    const small = await page
      .locator(".help summary, .help .contents a, .help input")
      .evaluateAll((all) => all.filter((one) => one.getBoundingClientRect().height < 40).length);
    assert.equal(small, 0);
  });
}

test("a print has all entries unfolded and no controls", limits, async (t) => {
  const { page } = await openHelp(t, { hash: "#verdict-muted" });
  await assertArrived(page, "verdict-muted");
  await page.evaluate(() => dispatchEvent(new Event("beforeprint")));
  await page.emulateMedia({ media: "print" });
  assert.equal(await page.locator(".help details:not([open])").count(), 0);
  assert.equal(await page.locator("nav:visible, input:visible").count(), 0);
  assert.ok((await page.pdf()).length > 20_000);
  await page.evaluate(() => dispatchEvent(new Event("afterprint")));
  await poll("the rest to be folded", async () =>
    (await unfolded(page)).join() === "verdict-muted" ? true : undefined,
  );
});

test("the verdict leads to its entry, in a tab of Help", limits, async (t) => {
  const bare = { ...speakers, bound: false };
  const { page, context, rewrite } = await openPage(t, { devices: [bare, headphones, microphone] });
  const more = page.locator(".verdict").getByRole("link", { name: /^More about this/ });
  await waitForVerdict(page, "notAdded");
  const opening = context.waitForEvent("page");
  await more.click();
  const help = await opening;
  await assertArrived(help, "verdict-notAdded");
  rewrite({ devices: [{ ...bare, takesEffects: false }, headphones, microphone] });
  await waitForVerdict(page, "noEffects");
  await more.click();
  await assertArrived(help, "verdict-noEffects");
  assert.equal(context.pages().length, 2, "the same tab again");
});

test("a page without its link has a way to help that needs none", limits, async (t) => {
  const { page, address, context } = await openPage(t, { open: false });
  await page.goto(address("/", ""));
  await waitForVerdict(page, "expired");
  const opening = context.waitForEvent("page");
  await page.getByRole("link", { name: /^More about this/ }).click();
  const help = await opening;
  await assertArrived(help, "verdict-expired");
  assert.equal(new URL(help.url()).search, "");
});

test("an error that a page shows leads to its entry", limits, async (t) => {
  const { page, context } = await openPage(t);
  await waitForVerdict(page, "off");
  await page.locator("details.card > summary").click();
  // As where the device goes just before the click.
  await page.route("**/api/v1/devices/render", (route) =>
    route.fulfill({ status: 404, json: { error: "active endpoint not found for this direction" } }),
  );
  await page.getByRole("button", { name: `Use here: ${headphones.name}` }).click();
  await waitForMessage(page, "This device is not connected any more.");
  const opening = context.waitForEvent("page");
  await page.getByRole("link", { name: /^What does this mean\?/ }).click();
  await assertArrived(await opening, "error-deviceMissing");
});
