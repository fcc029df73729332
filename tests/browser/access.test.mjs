// The pages for everybody: without a mouse, with a screen reader, in the dark, in forced colours, enlarged, on a narrow
// screen, in both languages.
import assert from "node:assert/strict";
import { createRequire } from "node:module";
import test from "node:test";

import { poll } from "../e2e/harness.mjs";
import {
  headphones,
  limits,
  microphone,
  openPage,
  paths,
  putDocument,
  speakers,
  waitForVerdict,
} from "./browser.mjs";

const axePath = createRequire(import.meta.url).resolve("axe-core/axe.min.js");
const bare = { ...speakers, bound: false };
const half = { bypass: false, enhance_strength: 0.5 };

// What axe finds, a line for each element. The content security policy lets no foreign script in, so it is evaluated.
async function violations(page) {
  if (!(await page.evaluate(() => "axe" in window))) {
    await page.addScriptTag({ path: axePath });
  }
  return page.evaluate(async () => {
    const found = await /** @type {any} */ (window).axe.run({ resultTypes: ["violations"] });
    return found.violations.flatMap(({ id, nodes }) => nodes.map(({ html }) => `${id}: ${html}`));
  });
}

// The names of what can be operated, as a screen reader says them: those that occur twice.
async function sameNames(page) {
  const tree = await page.locator("body").ariaSnapshot();
  const names = [
    ...tree.matchAll(/- (button|link|switch|slider|checkbox|combobox|textbox|radio) "([^"]+)"/g),
  ];
  const seen = names.map(([, role, name]) => `${role} ${name}`);
  return seen.filter((name, index) => seen.indexOf(name) !== index);
}

// Buttons whose name does not contain the words that are seen on them: who speaks to a computer says what is seen. A
// sign, such as + or −, is no word.
async function otherwiseNamed(page) {
  return page.locator("button[aria-label]").evaluateAll((all) => {
    const plain = (text) => text.replace(/\s+/g, " ").trim().toLowerCase();
    return all
      .map((one) => [plain(one.getAttribute("aria-label") ?? ""), plain(one.textContent ?? "")])
      .filter(([name, text]) => /[\p{L}\p{N}]/u.test(text) && !name.includes(text));
  });
}

async function unfoldAll(page) {
  await page.locator(".verdict .link").click();
  await page.locator("details.card > summary").click();
  await page.locator(".devices li").first().waitFor();
}

for (const [locale, colorScheme] of /** @type {["en-US" | "zh-CN", "light" | "dark"][]} */ ([
  ["en-US", "light"],
  ["zh-CN", "dark"],
])) {
  test(`axe finds nothing, and names are unique: ${locale}, ${colorScheme}`, limits, async (t) => {
    const { page, service, effect, address } = await openPage(t, { context: { locale, colorScheme } });
    await putDocument(service, paths.footstep, half);
    effect.play();
    await waitForVerdict(page, "works");
    await unfoldAll(page);
    assert.deepEqual(await violations(page), []);
    assert.deepEqual(await sameNames(page), []);
    assert.equal(await page.locator(".devices button[aria-label]").count(), 3);
    assert.deepEqual(await otherwiseNamed(page), []);
    for (const where of ["/advanced.html", "/help.html"]) {
      await page.goto(address(where));
      await page.locator("h2").first().waitFor();
      assert.deepEqual([await violations(page), await sameNames(page)], [[], []], where);
      assert.deepEqual(await otherwiseNamed(page), [], where);
    }
    await page.goto(address("/", "0123456789abcdef0123456789abcdee"));
    await waitForVerdict(page, "expired");
    assert.deepEqual(await violations(page), []);
    const dark = await page.evaluate(() => getComputedStyle(document.body).backgroundColor);
    assert.equal(dark, colorScheme === "dark" ? "rgb(15, 21, 27)" : "rgb(246, 248, 250)");
  });
}

test("axe finds nothing in the step that is left and in its questions", limits, async (t) => {
  const { page } = await openPage(t, { devices: [bare, headphones, microphone] });
  await waitForVerdict(page, "notAdded");
  assert.deepEqual(await violations(page), []);
  await page.locator("details.card > summary").click();
  await page.getByRole("button", { name: `Add to this device: ${headphones.name}` }).click();
  await page.getByRole("dialog").waitFor();
  assert.deepEqual(await violations(page), []);
});

for (const [locale, colorScheme, names] of /** @type {["en-US" | "zh-CN", "light" | "dark", string[]][]} */ ([
  ["en-US", "dark", ["Import…", "More for presets", "Export…", "Close"]],
  ["zh-CN", "light", ["导入…", "更多预设操作", "导出…", "关闭"]],
])) {
  test(`axe finds nothing in import and export: ${locale}, ${colorScheme}`, limits, async (t) => {
    const { page } = await openPage(t, { context: { locale, colorScheme } });
    const [importName, moreName, exportName, closeName] = names;
    await page.getByRole("button", { name: moreName }).click();
    await page.getByRole("button", { name: exportName }).click();
    await page.getByRole("dialog").waitFor();
    assert.deepEqual([await violations(page), await sameNames(page)], [[], []]);
    await page.getByRole("button", { name: closeName }).click();
    await page.getByRole("button", { name: importName }).click();
    await page
      .getByRole("dialog")
      .getByRole("textbox")
      .fill("Preamp: -3 dB\nGraphicEQ: 100 3; 1000 0; x\nhello");
    await page.locator(".import-dropped li").first().waitFor();
    assert.deepEqual([await violations(page), await sameNames(page)], [[], []]);
  });
}

test("each new verdict is announced once", limits, async (t) => {
  const { page, service, effect } = await openPage(t);
  await page.locator(".verdict [role=status]").evaluate((region) => {
    const said = [region.textContent];
    Object.assign(window, { said });
    new MutationObserver(() => said.push(region.textContent)).observe(region, {
      childList: true,
      characterData: true,
      subtree: true,
    });
  });
  await waitForVerdict(page, "off");
  await putDocument(service, paths.footstep, half);
  await waitForVerdict(page, "couldNotStart");
  effect.play();
  await waitForVerdict(page, "works");
  await page.waitForTimeout(1500);
  const said = await page.evaluate(() => /** @type {any} */ (window).said);
  assert.ok(
    said.includes("Velmora is off") && said.at(-1) === "You are hearing Velmora",
    JSON.stringify(said),
  );
  said.forEach((text, index) => assert.notEqual(text, said[index - 1], JSON.stringify(said)));
});

test("everything can be done with the keyboard, and the focus is seen", limits, async (t) => {
  const { page, service } = await openPage(t, { devices: [bare, headphones] });
  await waitForVerdict(page, "notAdded");
  const focused = () =>
    page.evaluate(() => {
      const element = /** @type {HTMLInputElement} */ (document.activeElement);
      const label = element.labels?.[0]?.textContent;
      return (element.getAttribute("aria-label") ?? label ?? element.textContent ?? "")
        .trim()
        .replace(/\s+/g, " ");
    });
  const order = [];
  for (let count = 0; count < 40; ++count) {
    await page.keyboard.press("Tab");
    const outline = await page.evaluate(
      () => getComputedStyle(document.activeElement ?? document.body).outlineWidth,
    );
    assert.equal(outline, "3px", await focused());
    order.push(await focused());
    if (String(order.at(-1)).startsWith("Volume and devices")) break;
  }
  assert.deepEqual(order.slice(0, 9), [
    "Device",
    "Sound",
    "Advanced",
    "Help",
    "中文",
    "How do you know?",
    "More about this (opens another tab)",
    "Add and restart audio",
    "Add, restart later",
  ]);
  assert.ok(String(order.at(-1)).startsWith("Volume and devices"), JSON.stringify(order));
  await page.keyboard.press("Enter");
  const remove = page.getByRole("button", { name: `Add to this device: ${headphones.name}` });
  await remove.focus();
  await page.keyboard.press("Enter");
  await page.getByRole("dialog").waitFor();
  const waitForFocus = (name) =>
    poll(`the focus on ${name}`, async () => ((await focused()) === name ? true : undefined));
  await waitForFocus("Add and restart audio");
  await page.keyboard.press("Escape");
  await waitForFocus(`Add to this device: ${headphones.name}`);
  await page.getByRole("switch", { name: "Velmora", exact: true }).focus();
  await page.keyboard.press("Space");
  await poll("the record", async () =>
    (await page.locator("#strength").inputValue()) === "0.5" ? true : undefined,
  );
  const add = page.getByRole("button", { name: "Add, restart later" });
  await add.focus();
  await page.keyboard.press("Enter");
  await waitForVerdict(page, "restartPending");
  // The focus stays near.
  await page.waitForFunction(() => document.activeElement?.id === "verdict");
  await page.locator("#strength").focus();
  await page.keyboard.press("ArrowRight");
  await page.getByText("51 %", { exact: true }).waitFor();
  await page.waitForFunction(() => document.activeElement?.id === "strength");
  assert.ok(service);
});

test("the verdict and its button are seen without scrolling, and nothing is too wide", limits, async (t) => {
  const rows = [
    { width: 1280, height: 800 },
    { width: 360, height: 740 },
    { width: 320, height: 740 },
    // 1280 by 800 at 200 %.
    { width: 640, height: 400, scale: 2 },
  ];
  for (const { scale = 1, ...viewport } of rows) {
    for (const locale of ["en-US", "zh-CN"]) {
      await t.test(`${viewport.width} wide, ${locale}`, async (row) => {
        const context = { viewport, deviceScaleFactor: scale, locale };
        const { page, address } = await openPage(row, { devices: [bare, headphones, microphone], context });
        await waitForVerdict(page, "notAdded");
        const bottom = (locator) => locator.evaluate((one) => one.getBoundingClientRect().bottom);
        assert.ok((await bottom(page.locator(".verdict"))) <= viewport.height);
        const tooWide = () => page.evaluate(() => document.documentElement.scrollWidth - innerWidth);
        await unfoldAll(page);
        assert.equal(await tooWide(), 0);
        for (const where of ["/advanced.html", "/help.html"]) {
          await page.goto(address(where));
          await page.locator("h2").first().waitFor();
          assert.equal(await tooWide(), 0, where);
        }
        const small = await page
          .locator("nav > *")
          .evaluateAll((all) => all.filter((one) => one.getBoundingClientRect().height < 40).length);
        assert.equal(small, 0);
      });
    }
  }
});

// The number of pixels in which two pictures of the same place differ.
function difference(page, one, other) {
  return page.evaluate(
    async ([first, second]) => {
      const read = async (data) => {
        const bitmap = await createImageBitmap(await (await fetch(`data:image/png;base64,${data}`)).blob());
        const canvas = new OffscreenCanvas(bitmap.width, bitmap.height);
        const context = /** @type {OffscreenCanvasRenderingContext2D} */ (canvas.getContext("2d"));
        context.drawImage(bitmap, 0, 0);
        return context.getImageData(0, 0, bitmap.width, bitmap.height).data;
      };
      const [left, right] = [await read(first), await read(second)];
      let count = 0;
      for (let at = 0; at < left.length; at += 4) {
        if ([0, 1, 2].some((part) => Math.abs(left[at + part] - right[at + part]) > 32)) ++count;
      }
      return count;
    },
    [one, other].map((picture) => picture.toString("base64")),
  );
}

test(
  "in forced colours every control has an edge, a focus ring, and a state that is seen",
  limits,
  async (t) => {
    const { page } = await openPage(t, { context: { forcedColors: "active" } });
    await waitForVerdict(page, "off");
    const blank = await page.context().newPage();
    const around = async (locator) => {
      const { x, y, width, height } = await locator.boundingBox();
      return page.screenshot({ clip: { x: x - 6, y: y - 6, width: width + 12, height: height + 12 } });
    };
    const rows = [
      page.getByRole("switch", { name: "Velmora", exact: true }),
      page.getByRole("switch", { name: "Equalizer" }),
      page.getByRole("button", { name: "Hear the original" }),
      page.getByRole("button", { name: "Turn on" }),
      page.getByRole("textbox", { name: "Gain of band 1, dB" }),
      page.getByRole("slider", { name: /^Band 1,/ }),
      page.getByRole("combobox", { name: "Device" }),
    ];
    for (const row of rows) {
      const control = /** @type {import("playwright-core").ElementHandle<HTMLElement>} */ (
        await row.elementHandle()
      );
      const plain = await around(control);
      await page.evaluate(() => /** @type {HTMLElement} */ (document.activeElement).blur());
      // What is seen of a dot is behind what takes its pointer and its focus.
      const seen = await control.evaluateHandle(
        (one) => one.closest(".curve")?.querySelector(".face") ?? one,
      );
      const show = (visibility) =>
        seen.evaluate((one, value) => {
          /** @type {HTMLElement | SVGElement} */ (one).style.visibility = value;
        }, visibility);
      await show("hidden");
      const hidden = await around(control);
      await show("");
      assert.ok((await difference(blank, plain, hidden)) > 40, `the edge of ${row}`);
      await page.keyboard.press("Tab");
      await control.focus();
      assert.ok((await difference(blank, plain, await around(control))) > 80, `the ring of ${row}`);
    }
    const enhancement = rows[0];
    await page.evaluate(() => /** @type {HTMLElement} */ (document.activeElement).blur());
    const off = await around(enhancement);
    await enhancement.press("Space");
    await page.evaluate(() => /** @type {HTMLElement} */ (document.activeElement).blur());
    await page.getByText("50 %", { exact: true }).waitFor();
    assert.ok((await difference(blank, off, await around(enhancement))) > 40);
  },
);

test("the language is the browser's, then the person's, on all pages", limits, async (t) => {
  const { page, address } = await openPage(t, { context: { locale: "zh-TW" } });
  await waitForVerdict(page, "off");
  assert.equal(await page.locator("#verdict").textContent(), "Velmora 已关闭");
  assert.equal(await page.locator("html").getAttribute("lang"), "zh-CN");
  await page.getByRole("button", { name: "English" }).click();
  await page.getByText("Velmora is off", { exact: true }).first().waitFor();
  for (const where of ["/advanced.html", "/help.html", "/"]) {
    await page.goto(address(where));
    await page.getByRole("link", { name: "Advanced" }).waitFor();
    assert.equal(await page.locator("html").getAttribute("lang"), "en");
  }
});
