// The curve of the equalizer: dots moved by mouse, finger, wheel and keys, and the fields of the chosen band.
import assert from "node:assert/strict";
import { createRequire } from "node:module";
import net from "node:net";
import test from "node:test";

import { atEnd, poll, sleep } from "../e2e/harness.mjs";
import { limits, openPage, paths, putDocument, readDocument } from "./browser.mjs";

const axePath = createRequire(import.meta.url).resolve("axe-core/axe.min.js");
const flat = { type: 0, freq_hz: 1000, gain_db: 0, q: 0.707 };
const five = [
  { type: 1, freq_hz: 90, gain_db: 4.5, q: 0.71 },
  { type: 0, freq_hz: 260, gain_db: -2.5, q: 1 },
  { type: 0, freq_hz: 1000, gain_db: 2.5, q: 1.4 },
  { type: 7, freq_hz: 3200, gain_db: 0, q: 2 },
  { type: 2, freq_hz: 9000, gain_db: 3, q: 0.71 },
];
const whole = (bands, bypass = false) => ({
  bypass,
  fade_ms: 20,
  bands: Array.from({ length: 15 }, (_, index) => ({ ...flat, ...bands[index] })),
});

const dot = (page, number) => page.locator(`#band-dot-${number}`);
const field = (page, name) => page.getByRole("textbox", { name });
const button = (page, name) => page.getByRole("button", { name, exact: true });
const readout = (page) => page.locator(".readout");
const focusedId = (page) => page.evaluate(() => document.activeElement?.id);

/**
 * A page whose record holds the bands, once it shows them.
 *
 * @param {import("node:test").TestContext} t
 * @param {Parameters<typeof openPage>[1] & {bands?: object[], bypass?: boolean}} [options]
 */
async function openCurve(t, { bands = five, bypass = false, ...options } = {}) {
  const opened = await openPage(t, { ...options, open: false });
  await putDocument(opened.service, paths.equalizer, whole(bands, bypass));
  await opened.page.goto(opened.address("/"));
  await opened.page.locator(".curve .dot").first().waitFor();
  await opened.page.locator(".curve").scrollIntoViewIfNeeded();
  return opened;
}

async function centreOf(locator) {
  const { x, y, width, height } = await locator.boundingBox();
  return { x: x + width / 2, y: y + height / 2 };
}

const bandOf = async ({ service }, number) =>
  (await readDocument(service, paths.equalizer)).bands[number - 1];

// Waits until the record holds the values of a band.
function waitForBand({ service }, number, values) {
  let last;
  return poll(`band ${number}`, async () => {
    last = (await readDocument(service, paths.equalizer)).bands[number - 1];
    return Object.entries(values).every(([key, value]) => last[key] === value) ? last : undefined;
  }).catch((error) => {
    throw new Error(`${error.message}: ${JSON.stringify(values)}, but it is ${JSON.stringify(last)}`);
  });
}

// Waits until the page has sent all, and has looked at what the record holds.
async function settled({ page }) {
  for (let count = 0; count < 2; ++count) {
    await page.waitForResponse(
      (response) => response.url().includes(paths.equalizer) && response.request().method() === "GET",
    );
  }
}

async function press(page, point) {
  await page.mouse.move(point.x, point.y);
  await page.mouse.down();
}

// Waits for the frame in which the page takes in the pointer's last move.
const nextFrame = (page) =>
  page.evaluate(() => new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done))));

async function drag(page, from, [right, down], steps = 8) {
  await press(page, from);
  await page.mouse.move(from.x + right, from.y + down, { steps });
  await nextFrame(page);
}

test(
  "a drag by mouse moves frequency and gain, shows its values, and is one undo step",
  limits,
  async (t) => {
    const opened = await openCurve(t);
    const { page } = opened;
    const from = await centreOf(dot(page, 3));
    const values = () => dot(page, 3).getAttribute("aria-valuetext");
    const before = await values();
    await drag(page, from, [80, -40]);
    const text = await readout(page).textContent();
    assert.match(text ?? "", /^\d\.\d\d kHz, \+7\.\d dB, Q 1\.4$/);
    assert.equal(await values(), before, "a screen reader hears nothing meanwhile");
    const place = await centreOf(dot(page, 3));
    assert.ok(Math.hypot(place.x - from.x - 80, place.y - from.y + 40) < 3, "the dot is under the pointer");
    await page.mouse.up();
    await readout(page).waitFor({ state: "detached" });
    const [, frequency, gain] = text?.match(/^(\S+) kHz, \+(\S+) dB/) ?? [];
    await waitForBand(opened, 3, { freq_hz: Number(frequency) * 1000, gain_db: Number(gain), q: 1.4 });
    assert.match((await values()) ?? "", new RegExp(`^${frequency} kHz, plus ${gain} dB`));
    assert.equal(await field(page, "Gain of band 3, dB").inputValue(), `+${gain} dB`);

    await button(page, "Undo").click();
    await waitForBand(opened, 3, { freq_hz: 1000, gain_db: 2.5 });
    assert.equal(await button(page, "Undo").getAttribute("aria-disabled"), "true", "one step was all");
  },
);

test("a press, and a hand that trembles, send nothing", limits, async (t) => {
  const opened = await openCurve(t);
  const { page } = opened;
  const from = await centreOf(dot(page, 2));
  await press(page, { x: from.x + 7, y: from.y - 5 });
  await page.mouse.move(from.x + 8, from.y - 6);
  await nextFrame(page);
  assert.equal(await readout(page).count(), 0);
  await page.mouse.up();
  assert.equal(await page.getByRole("combobox", { name: "Band", exact: true }).inputValue(), "1");
  await page.mouse.click(from.x + 60, from.y - 60);
  await drag(page, { x: from.x + 60, y: from.y - 60 }, [30, 30]);
  await page.mouse.up();
  await settled(opened);
  assert.deepEqual(await opened.changes(), []);
  const after = await centreOf(dot(page, 2));
  assert.deepEqual(after, from, "no jump");
});

test("a dot that is grabbed at its edge does not jump", limits, async (t) => {
  const opened = await openCurve(t);
  const { page } = opened;
  const from = await centreOf(dot(page, 2));
  await drag(page, { x: from.x + 12, y: from.y + 9 }, [0, -33]);
  await page.mouse.up();
  const after = await waitForBand(opened, 2, { freq_hz: 260 });
  const expected = -2.5 + (33 / 196) * 24;
  await waitForBand(opened, 2, { gain_db: Math.round(expected * 10) / 10 });
  assert.ok(after);
});

test("Escape cancels a drag and puts the values back", limits, async (t) => {
  const opened = await openCurve(t);
  const { page } = opened;
  const from = await centreOf(dot(page, 5));
  await drag(page, from, [-90, 50]);
  await poll("the drag is heard", async () => ((await bandOf(opened, 5)).gain_db < 0 ? true : undefined));
  await page.keyboard.press("Escape");
  await readout(page).waitFor({ state: "detached" });
  await waitForBand(opened, 5, five[4]);
  await page.mouse.move(from.x - 200, from.y + 90, { steps: 4 });
  await page.mouse.up();
  await settled(opened);
  assert.deepEqual(await bandOf(opened, 5), five[4], "the drag has ended");
  assert.equal(await button(page, "Undo").getAttribute("aria-disabled"), "true");
});

test("a drag ends where its dot goes, and goes on where the page is resized", limits, async (t) => {
  const opened = await openCurve(t);
  const { page } = opened;
  const from = await centreOf(dot(page, 3));
  await drag(page, from, [0, -20]);
  await page.setViewportSize({ width: 40, height: 800 });
  await nextFrame(page);
  await page.setViewportSize({ width: 1280, height: 800 });
  await nextFrame(page);
  await page.mouse.move(from.x, from.y - 40, { steps: 3 });
  await nextFrame(page);
  assert.equal(await readout(page).textContent(), "1 kHz, +7.4 dB, Q 1.4");
  await dot(page, 3).evaluate((one) => one.remove());
  await readout(page).waitFor({ state: "detached" });
  await waitForBand(opened, 3, { gain_db: 7.4 });
  await page.mouse.up();
});

test("Shift changes Q within a drag, without a jump", limits, async (t) => {
  const opened = await openCurve(t);
  const { page } = opened;
  const from = await centreOf(dot(page, 3));
  await drag(page, from, [0, -20]);
  const gain = Number((await readout(page).textContent())?.match(/\+(\S+) dB/)?.[1]);
  await page.keyboard.down("Shift");
  await page.mouse.move(from.x, from.y - 60, { steps: 4 });
  await nextFrame(page);
  assert.equal(await readout(page).textContent(), `1 kHz, +${gain} dB, Q 2.8`);
  await page.keyboard.up("Shift");
  await page.mouse.up();
  await waitForBand(opened, 3, { freq_hz: 1000, gain_db: gain, q: 2.8 });
  await button(page, "Undo").click();
  await waitForBand(opened, 3, five[2]);
});

test("the wheel over a dot changes Q as one step; elsewhere it scrolls the page", limits, async (t) => {
  const opened = await openCurve(t, { context: { viewport: { width: 1280, height: 500 } } });
  const { page } = opened;
  const scrolled = () => page.evaluate(() => scrollY);
  const place = await centreOf(dot(page, 3));
  const top = await scrolled();
  await page.mouse.move(place.x + 6, place.y);
  for (let count = 0; count < 3; ++count) await page.mouse.wheel(0, -100);
  await waitForBand(opened, 3, { q: 1.86 });
  assert.equal(await readout(page).textContent(), "1 kHz, +2.5 dB, Q 1.86");
  assert.equal(await scrolled(), top);
  await page.mouse.wheel(0, 100);
  await waitForBand(opened, 3, { q: 1.69 });
  await readout(page).waitFor({ state: "detached" });
  await button(page, "Undo").click();
  await waitForBand(opened, 3, { q: 1.4 });
  await page.mouse.move(place.x + 60, place.y - 40);
  await page.mouse.wheel(0, 100);
  await poll("the page scrolls", async () => ((await scrolled()) > top ? true : undefined));
});

test("every key of a dot, and the focus stays on it", limits, async (t) => {
  const opened = await openCurve(t);
  const { page } = opened;
  await dot(page, 3).focus();
  const rows = /** @type {[string, object][]} */ ([
    ["ArrowRight", { freq_hz: 1030 }],
    ["ArrowLeft", { freq_hz: 1000 }],
    ["Shift+ArrowRight", { freq_hz: 1260 }],
    ["ArrowUp", { gain_db: 2.6 }],
    ["Shift+ArrowDown", { gain_db: 1.6 }],
    ["PageUp", { gain_db: 4.6 }],
    ["PageDown", { gain_db: 1.6 }],
    ["Shift++", { q: 1.54 }],
    ["-", { q: 1.4 }],
    ["Delete", { gain_db: 0 }],
    ["t", { type: 1 }],
    ["Shift+T", { type: 0 }],
  ]);
  for (const [key, values] of rows) {
    await page.keyboard.press(key);
    await waitForBand(opened, 3, values);
    assert.equal(await focusedId(page), "band-dot-3", key);
  }
  assert.equal(
    await dot(page, 3).getAttribute("aria-label"),
    "Band 3, peaking, 1.26 kHz, zero dB, Q 1.4",
    "the flat band keeps its dot while it is chosen",
  );
  await page.keyboard.press("Tab");
  assert.equal(await focusedId(page), "band-dot-4");
  await dot(page, 3).waitFor({ state: "detached" });
  await page.keyboard.press("Backspace");
  await waitForBand(opened, 4, { type: 0, gain_db: 0 });
  assert.equal(await focusedId(page), "band-dot-4");
});

test("a held key is one undo step", limits, async (t) => {
  const opened = await openCurve(t);
  const { page } = opened;
  await dot(page, 2).focus();
  for (let count = 0; count < 12; ++count) await page.keyboard.down("ArrowUp");
  await page.keyboard.up("ArrowUp");
  await waitForBand(opened, 2, { gain_db: -1.3 });
  await button(page, "Undo").click();
  await waitForBand(opened, 2, { gain_db: -2.5 });
});

test("a double click flattens a dot, and adds a band where there is none", limits, async (t) => {
  const opened = await openCurve(t);
  const { page } = opened;
  const first = await centreOf(dot(page, 1));
  await page.mouse.dblclick(first.x, first.y);
  await waitForBand(opened, 1, { type: 1, gain_db: 0 });
  const notch = await centreOf(dot(page, 4));
  await page.mouse.dblclick(notch.x, notch.y);
  await waitForBand(opened, 4, { type: 0, gain_db: 0 });
  await button(page, "Undo").click();
  await waitForBand(opened, 4, { type: 7 });

  await dot(page, 2).focus();
  const { x, y } = await centreOf(dot(page, 2));
  await page.mouse.dblclick(x + 40, y - 90);
  const { freq_hz: frequency, gain_db: gain } = await waitForBand(opened, 1, { type: 0, q: 0.71 });
  assert.ok(frequency > 260 && frequency < 500, `${frequency}`);
  assert.ok(gain > 5 && gain < 12, `${gain}`);
  const added = await centreOf(dot(page, 1));
  assert.ok(Math.hypot(added.x - x - 40, added.y - y + 90) < 3);
});

test("of two near dots the nearest one takes the pointer", limits, async (t) => {
  const bands = [
    { type: 0, freq_hz: 1000, gain_db: 3, q: 1 },
    { type: 0, freq_hz: 1080, gain_db: 3, q: 1 },
  ];
  const opened = await openCurve(t, { bands });
  const { page } = opened;
  const [one, other] = [await centreOf(dot(page, 1)), await centreOf(dot(page, 2))];
  assert.ok(other.x - one.x < 20, "the second one covers the first");
  await drag(page, { x: one.x - 1, y: one.y }, [0, -33]);
  await page.mouse.up();
  await waitForBand(opened, 1, { gain_db: 7 });
  assert.equal((await bandOf(opened, 2)).gain_db, 3);
  await drag(page, { x: other.x + 1, y: other.y }, [0, 33]);
  await page.mouse.up();
  await waitForBand(opened, 2, { gain_db: -1 });
  assert.equal((await bandOf(opened, 1)).gain_db, 7);
});

test("the axis grows with a drag, and shrinks only after it", limits, async (t) => {
  const opened = await openCurve(t, { bands: [{ type: 0, freq_hz: 1000, gain_db: 11, q: 1 }] });
  const { page } = opened;
  const top = () =>
    page.locator(".curve .grid text").evaluateAll((all) => all.map((one) => one.textContent.trim()));
  assert.ok((await top()).includes("+12"));
  const from = await centreOf(dot(page, 1));
  await drag(page, from, [0, -40], 20);
  await poll("the axis", async () => ((await top()).includes("+18") ? true : undefined));
  const gain = Number((await readout(page).textContent())?.match(/\+(\S+) dB/)?.[1]);
  assert.ok(gain > 14 && gain <= 18, `it goes on from where it is: ${gain}`);
  await page.mouse.move(from.x, from.y + 60, { steps: 5 });
  await nextFrame(page);
  const low = Number((await readout(page).textContent())?.match(/([+−]\S+) dB/)?.[1].replace("−", "-"));
  assert.ok(low < 12, `${low}`);
  assert.ok((await top()).includes("+18"), "it does not shrink within the drag");
  await page.mouse.up();
  await poll("the axis", async () => ((await top()).includes("+12") ? true : undefined));
  await page.getByRole("combobox", { name: "Band", exact: true }).selectOption("0");
  await field(page, "Gain of band 1, dB").fill("30");
  await field(page, "Gain of band 1, dB").press("Enter");
  await poll("the axis", async () => ((await top()).includes("+30") ? true : undefined));
});

// A finger on the touch screen, as the browser's own input.
async function finger(page) {
  const session = await page.context().newCDPSession(page);
  const send = (type, points) =>
    session.send("Input.dispatchTouchEvent", { type, touchPoints: points.map(({ x, y }) => ({ x, y })) });
  return {
    down: (point) => send("touchStart", [point]),
    async move(from, to, steps = 8) {
      for (let step = 1; step <= steps; ++step) {
        const part = step / steps;
        await send("touchMove", [{ x: from.x + (to.x - from.x) * part, y: from.y + (to.y - from.y) * part }]);
      }
    },
    up: () => send("touchEnd", []),
    cancel: () => send("touchCancel", []),
  };
}

test("a finger drags a dot; elsewhere it scrolls the page", limits, async (t) => {
  const context = { viewport: { width: 360, height: 500 }, hasTouch: true, isMobile: true };
  const opened = await openCurve(t, { context });
  const { page } = opened;
  await page.locator(".curve").evaluate((one) => one.scrollIntoView({ block: "center" }));
  // Where the curve is on the screen: the browser scrolls by itself where something above it grows.
  const place = () => page.locator(".curve").evaluate((one) => Math.round(one.getBoundingClientRect().top));
  const touch = await finger(page);
  const top = await place();
  const from = await centreOf(dot(page, 3));
  // 15 pixels beside the dot: a fingertip's precision.
  const begin = { x: from.x + 9, y: from.y + 12 };
  await touch.down(begin);
  await touch.move(begin, { x: begin.x, y: begin.y - 49 });
  await nextFrame(page);
  assert.match((await readout(page).textContent()) ?? "", /^1 kHz, \+8\.5 dB, Q 1\.4$/);
  await touch.up();
  await waitForBand(opened, 3, { freq_hz: 1000, gain_db: 8.5 });
  assert.equal(await place(), top, "the page stays");

  const free = { x: from.x, y: from.y + 70 };
  const sent = (await opened.changes()).length;
  await touch.down(free);
  await touch.move(free, { x: free.x, y: free.y - 150 }, 12);
  await touch.up();
  await poll("the page scrolls", async () => ((await place()) < top - 50 ? true : undefined));
  assert.equal((await opened.changes()).length, sent);
});

test("a double tap flattens, and a drag that the system ends keeps its last value", limits, async (t) => {
  const context = { viewport: { width: 360, height: 740 }, hasTouch: true, isMobile: true };
  const opened = await openCurve(t, { context });
  const { page } = opened;
  await page.locator(".curve").evaluate((one) => one.scrollIntoView({ block: "center" }));
  const touch = await finger(page);
  const from = await centreOf(dot(page, 5));
  await touch.down(from);
  await touch.move(from, { x: from.x, y: from.y - 49 });
  await nextFrame(page);
  await touch.cancel();
  await waitForBand(opened, 5, { gain_db: 9 });
  assert.equal(await readout(page).count(), 0);

  await settled(opened);
  const place = await centreOf(dot(page, 5));
  for (let count = 0; count < 2; ++count) {
    await touch.down(place);
    await touch.up();
  }
  await waitForBand(opened, 5, { type: 2, gain_db: 0 });
});

test("a service that stops within a drag does not end it", limits, async (t) => {
  const opened = await openCurve(t);
  const { page } = opened;
  const from = await centreOf(dot(page, 3));
  await drag(page, from, [0, -20]);
  await page.route("**/api/**", (route) => route.abort());
  await page.mouse.move(from.x, from.y - 40, { steps: 3 });
  await nextFrame(page);
  assert.equal(await readout(page).textContent(), "1 kHz, +7.4 dB, Q 1.4");
  await page.waitForTimeout(1500);
  await page.mouse.move(from.x, from.y - 60, { steps: 3 });
  await nextFrame(page);
  assert.equal(await readout(page).textContent(), "1 kHz, +9.8 dB, Q 1.4");
  await page.unroute("**/api/**");
  await page.mouse.up();
  await waitForBand(opened, 3, { gain_db: 9.8 });
});

const kept = (page) => page.evaluate(() => JSON.parse(localStorage.getItem("velmora.memory") ?? "{}"));

test("of a drag that no answer comes to, the last value is kept for another page", limits, async (t) => {
  const opened = await openCurve(t);
  const { page } = opened;
  const from = await centreOf(dot(page, 3));
  await drag(page, from, [0, -20]);
  await page.route("**/api/**", (route) => route.abort());
  await page.mouse.move(from.x, from.y - 40, { steps: 3 });
  await poll("what is kept", async () => ((await kept(page)).unsent === null ? undefined : true));
  await page.mouse.move(from.x, from.y - 60, { steps: 3 });
  await nextFrame(page);
  await page.mouse.up();
  assert.equal((await kept(page)).unsent.bands[2].gain_db, 9.8);
});

test("a drag that rests before it ends is kept among the last settings", limits, async (t) => {
  const opened = await openCurve(t);
  const { page } = opened;
  await drag(page, await centreOf(dot(page, 3)), [0, -40]);
  await waitForBand(opened, 3, { gain_db: 7.4 });
  await settled(opened);
  await page.mouse.up();
  await poll("the last settings", async () => {
    const { lastSettings } = await kept(page);
    return lastSettings?.equalizer.bands[2].gain_db === 7.4 ? true : undefined;
  });
});

test("undo and a change of slots end a drag", limits, async (t) => {
  for (const keys of ["Control+z", "c"]) {
    const opened = await openCurve(t);
    const { page } = opened;
    const from = await centreOf(dot(page, 3));
    await drag(page, from, [0, -40]);
    await waitForBand(opened, 3, { gain_db: 7.4 });
    await page.keyboard.press(keys);
    const gain = keys === "c" ? 7.4 : 2.5;
    await waitForBand(opened, 3, { gain_db: gain });
    await page.mouse.move(from.x, from.y - 60, { steps: 3 });
    await nextFrame(page);
    assert.equal(await readout(page).count(), 0);
    await page.mouse.up();
    await settled(opened);
    assert.equal((await bandOf(opened, 3)).gain_db, gain);
  }
});

test("names of the dots, in both languages, in the order of the bands", limits, async (t) => {
  const bands = [...five, { type: 3, freq_hz: 12000, gain_db: 0, q: 0.71 }];
  const rows = {
    "en-US": {
      label: "Equalizer curve, 6 of 15 bands in use",
      names: [
        "Band 1, low shelf, 90 Hz, plus 4.5 dB, Q 0.71",
        "Band 2, peaking, 260 Hz, minus 2.5 dB, Q 1",
        "Band 3, peaking, 1 kHz, plus 2.5 dB, Q 1.4",
        "Band 4, notch, 3.2 kHz, Q 2",
        "Band 5, high shelf, 9 kHz, plus 3 dB, Q 0.71",
        "Band 6, low pass, 12 kHz, Q 0.71",
      ],
      value: "1 kHz, plus 2.5 dB, Q 1.4",
      read: "1.01 kHz, +2.5 dB, Q 1.4",
    },
    "zh-CN": {
      label: "均衡器曲线，已使用 6 个频段，共 15 个",
      names: [
        "频段 1，低架，90 Hz，正 4.5 dB，Q 0.71",
        "频段 2，峰值，260 Hz，负 2.5 dB，Q 1",
        "频段 3，峰值，1 kHz，正 2.5 dB，Q 1.4",
        "频段 4，陷波，3.2 kHz，Q 2",
        "频段 5，高架，9 kHz，正 3 dB，Q 0.71",
        "频段 6，低通，12 kHz，Q 0.71",
      ],
      value: "1 kHz，正 2.5 dB，Q 1.4",
      read: "1.01 kHz，+2.5 dB，Q 1.4",
    },
  };
  for (const [locale, { label, names, value, read }] of Object.entries(rows)) {
    await t.test(locale, async (row) => {
      const { page } = await openCurve(row, { bands, context: { locale } });
      const group = page.getByRole("group", { name: label });
      const sliders = group.getByRole("slider");
      assert.deepEqual(
        await sliders.evaluateAll((all) => all.map((one) => one.getAttribute("aria-label"))),
        names,
      );
      const third = page.getByRole("slider", { name: names[2] });
      assert.deepEqual(
        await third.evaluate((one) =>
          ["valuemin", "valuemax", "valuenow", "valuetext"].map((name) => one.getAttribute(`aria-${name}`)),
        ),
        ["-30", "30", "2.5", value],
      );
      assert.equal(await sliders.nth(5).getAttribute("aria-valuenow"), "12000");
      await drag(page, await centreOf(third), [3, 0]);
      const shown = await readout(page).textContent();
      assert.match(shown ?? "", /^1\.0\d kHz/);
      assert.equal(shown?.replace(/1\.0\d/, "1.01"), read);
      await page.mouse.up();
    });
  }
});

test("every band is chosen by keyboard, added, and flattened", limits, async (t) => {
  const opened = await openCurve(t);
  const { page } = opened;
  const which = page.getByRole("combobox", { name: "Band", exact: true });
  const names = await which.locator("option").allTextContents();
  assert.equal(names.length, 15);
  assert.deepEqual(
    [names[0], names[3], names[14]],
    ["Band 1, Low shelf, 90 Hz, +4.5 dB", "Band 4, Notch, 3.2 kHz", "Band 15, not in use"],
  );
  await which.selectOption("14");
  await dot(page, 15).waitFor();
  assert.equal(await page.locator(".curve .dot").count(), 6);
  await dot(page, 1).focus();
  await button(page, "Add band").focus();
  await page.keyboard.press("Enter");
  await poll("the focus", async () => ((await focusedId(page)) === "band-dot-6" ? true : undefined));
  await waitForBand(opened, 6, { type: 0, gain_db: 0, freq_hz: 42.4 });
  await page.keyboard.press("PageUp");
  await waitForBand(opened, 6, { gain_db: 3 });
  await button(page, "Flatten band 6").focus();
  await page.keyboard.press("Enter");
  await waitForBand(opened, 6, { gain_db: 0 });
  assert.equal(await button(page, "Flatten band 6").getAttribute("aria-disabled"), "true");
});

test("buttons step each value, a hold repeats, and types without gain say so", limits, async (t) => {
  const opened = await openCurve(t);
  const { page } = opened;
  await page.getByRole("combobox", { name: "Band", exact: true }).selectOption("2");
  await button(page, "Raise the gain of band 3").click();
  await waitForBand(opened, 3, { gain_db: 3 });
  await button(page, "Lower the gain of band 3").click();
  await button(page, "Lower the gain of band 3").click();
  await waitForBand(opened, 3, { gain_db: 2 });
  await button(page, "Raise the frequency of band 3").click();
  await waitForBand(opened, 3, { freq_hz: 1060 });
  await button(page, "Lower the frequency of band 3").press("Enter");
  await waitForBand(opened, 3, { freq_hz: 1000 });
  await button(page, "Raise the Q of band 3: narrower").click();
  await waitForBand(opened, 3, { q: 1.54 });
  await button(page, "Lower the Q of band 3: wider").click();
  await waitForBand(opened, 3, { q: 1.4 });

  const raise = button(page, "Raise the gain of band 3");
  await raise.hover();
  await page.mouse.down();
  await poll("a repetition", async () => ((await bandOf(opened, 3)).gain_db >= 4 ? true : undefined));
  await page.mouse.up();
  await settled(opened);
  const { gain_db: held } = await bandOf(opened, 3);
  await settled(opened);
  assert.equal((await bandOf(opened, 3)).gain_db, held, "it stops when the button is released");

  await page.getByRole("combobox", { name: "Type of band 3" }).selectOption("4");
  await waitForBand(opened, 3, { type: 4 });
  const gain = field(page, "Gain of band 3, dB");
  assert.deepEqual([await gain.isDisabled(), await gain.inputValue()], [true, "No gain"]);
  assert.equal(await raise.isDisabled(), true);
});

test("a band beyond the sound's rate is marked, and left out of the curve", limits, async (t) => {
  const opened = await openCurve(t, { bands: [five[0], { type: 0, freq_hz: 18000, gain_db: 6, q: 1 }] });
  const { page } = opened;
  const traces = () => page.locator(".curve .traces .band").count();
  assert.deepEqual([await traces(), await page.locator("[data-too-high]").count()], [2, 0]);
  await page.route("**/api/v1/status", async (route) => {
    const response = await route.fetch();
    const status = await response.json();
    status.apo_diagnostics.sample_rate = 32000;
    await route.fulfill({ response, json: status });
  });
  await page.locator("[data-too-high]").waitFor();
  assert.equal(
    await page.locator("[data-too-high]").innerText(),
    "Bands marked × are above 16 kHz, where this sound ends. The curve leaves them out.",
  );
  assert.equal(await traces(), 1);
  assert.equal(await page.locator(".curve .face.too-high").count(), 1);
  assert.equal(
    await dot(page, 2).getAttribute("aria-label"),
    "Band 2, peaking, 18 kHz, plus 6 dB, Q 1, above 16 kHz and without effect",
  );
  // The sum ends at half the rate.
  const path = await page.locator(".curve .traces .sum").getAttribute("d");
  const x = Number.parseFloat(path?.split("L").at(-1) ?? "");
  const width = Number(await page.locator(".curve .traces").getAttribute("width"));
  assert.ok(x < width * 0.98 && x > width * 0.95, `${x} of ${width}`);
});

test("a level above full scale is said, and one click lowers the output", limits, async (t) => {
  const { page, service } = await openCurve(t, { bands: [five[0]] });
  const hint = page.locator("[data-clip]");
  await hint.waitFor();
  const text = await hint.locator(".hint").innerText();
  assert.equal(text.trim(), "May clip: up to 4.5 dB above full scale.");
  await button(page, "Lower output by 4.5 dB").click();
  await hint.waitFor({ state: "detached" });
  await poll("the trim", async () => {
    const { footstep } = await readDocument(service, paths.status);
    return footstep.output_trim_db === -4.5 ? true : undefined;
  });
});

test("the output trim is named while it is not 0, and one click sets it to 0 dB", limits, async (t) => {
  const { page, service } = await openCurve(t, { bands: [five[0]] });
  const note = page.locator("[data-trim]");
  const waitForTrim = (wanted) =>
    poll(`a trim of ${wanted} dB`, async () => {
      const { footstep } = await readDocument(service, paths.status);
      return footstep.output_trim_db === wanted ? true : undefined;
    });
  await button(page, "Lower output by 4.5 dB").click();
  await waitForTrim(-4.5);
  await page.locator(".preset-bar select").selectOption("starter flat");
  await page.getByRole("button", { name: "More for presets" }).click();
  await button(page, "Reset to flat").click();
  assert.equal((await note.locator("span").innerText()).trim(), "Output trim −4.5 dB");
  await button(page, "Set the output trim to 0 dB").focus();
  await page.keyboard.press("Enter");
  await waitForTrim(0);
  await note.waitFor({ state: "detached" });
  assert.equal(await focusedId(page), "band-dot-1", "the focus stays in the card");
  await button(page, "Undo").click();
  await waitForTrim(-4.5);
  await note.waitFor();
});

test("an equalizer that is off shows its curve muted; an edit switches it on", limits, async (t) => {
  const opened = await openCurve(t, { bypass: true });
  const { page, service } = opened;
  await page.locator(".curve.off", { hasText: "Equalizer off" }).waitFor();
  await drag(page, await centreOf(dot(page, 3)), [0, -30]);
  await page.mouse.up();
  await poll("the switch", async () =>
    (await readDocument(service, paths.equalizer)).bypass === false ? true : undefined,
  );
  await page.locator(".curve:not(.off)").waitFor();
});

test("the drawing has the width of its place, at least 512 points, and large targets", limits, async (t) => {
  for (const width of [1280, 880, 360]) {
    await t.test(`${width} wide`, async (row) => {
      const { page } = await openCurve(row, { context: { viewport: { width, height: 800 } } });
      const sizes = await page.locator(".curve").evaluate((figure) => {
        const drawing = figure.querySelector("svg.drawing")?.getBoundingClientRect();
        return [drawing?.width, drawing?.height, Math.floor(figure.getBoundingClientRect().width)];
      });
      assert.deepEqual(sizes, [sizes[2], 240, sizes[2]]);
      const path = await page.locator(".curve .traces .sum").getAttribute("d");
      assert.ok(Number(path?.split("L").length) >= 512);
      const dots = await page
        .locator(".curve .dot")
        .evaluateAll((all) =>
          all
            .map((one) => one.getBoundingClientRect())
            .every(({ width: w, height: h }) => w > 39.9 && h > 39.9),
        );
      assert.ok(dots);
      const controls = await page.locator(".band-fields").evaluate((box) => {
        const all = [...box.querySelectorAll("button, input, select")].map((one) =>
          one.getBoundingClientRect(),
        );
        const { right, left } = box.getBoundingClientRect();
        return {
          rows: new Set(all.map(({ top }) => Math.round(top))).size,
          isInside: all.every((one) => one.right <= right + 0.5 && one.left >= left - 0.5),
          isLarge: all.every(({ height, width: w }) => height >= 40 && w >= 40),
        };
      });
      assert.deepEqual({ ...controls, rows: 0 }, { rows: 0, isInside: true, isLarge: true });
      if (width >= 880) assert.equal(controls.rows, 2);
      assert.equal(await page.evaluate(() => document.documentElement.scrollWidth - innerWidth), 0);
      await page.setViewportSize({ width: width - 40, height: 800 });
      await poll("the new width", async () => {
        const [drawn, place] = await page
          .locator(".curve")
          .evaluate((figure) => [
            Number(figure.querySelector("svg.drawing")?.getAttribute("width")),
            Math.floor(figure.getBoundingClientRect().width),
          ]);
        return drawn === place ? true : undefined;
      });
    });
  }
});

for (const [locale, colorScheme] of /** @type {["en-US" | "zh-CN", "light" | "dark"][]} */ ([
  ["en-US", "light"],
  ["en-US", "dark"],
  ["zh-CN", "light"],
])) {
  test(`axe finds nothing in the curve and its fields: ${locale}, ${colorScheme}`, limits, async (t) => {
    const { page } = await openCurve(t, { context: { locale, colorScheme } });
    await page.addScriptTag({ path: axePath });
    const found = await page.evaluate(async () => {
      const { violations } = await /** @type {any} */ (window).axe.run(".equalizer");
      return violations.flatMap(({ id, nodes }) => nodes.map(({ html }) => `${id}: ${html}`));
    });
    assert.deepEqual(found, []);
  });
}

// ---- the way to the service ----

/**
 * Counts at the service's end how many requests are under way at once.
 *
 * @param {import("node:test").TestContext} t
 * @param {number} port of the service
 */
async function startCounter(t, port) {
  const counts = { port: 0, open: 0, most: 0, writes: 0 };
  const server = net.createServer((client) => {
    /** @type {net.Socket | undefined} */
    let upstream;
    client.on("error", () => upstream?.destroy());
    client.on("data", (chunk) => {
      // The service takes one connection at a time, so a connection without a request does not reach it.
      if (upstream === undefined) {
        ++counts.open;
        counts.most = Math.max(counts.most, counts.open);
        if (chunk.subarray(0, 4).toString() === "PUT ") ++counts.writes;
        upstream = net.connect(port, "127.0.0.1");
        upstream.on("data", (answer) => client.write(answer));
        upstream.on("error", () => client.destroy());
        upstream.on("close", () => {
          --counts.open;
          client.end();
        });
      }
      const text = chunk.toString("latin1").replaceAll(`127.0.0.1:${counts.port}`, `127.0.0.1:${port}`);
      upstream.write(text, "latin1");
    });
  });
  await new Promise((resolve) => server.listen(0, "127.0.0.1", () => resolve(undefined)));
  counts.port = /** @type {net.AddressInfo} */ (server.address()).port;
  atEnd(t, () => server.close());
  return counts;
}

test("while a dot is dragged, the service sees one request at a time", limits, async (t) => {
  const opened = await openCurve(t);
  const { page, service } = opened;
  const counts = await startCounter(t, service.port);
  await page.goto(`http://127.0.0.1:${counts.port}/?token=${service.token}`);
  await dot(page, 3).waitFor();
  const { x, y } = await centreOf(dot(page, 3));
  await page.mouse.move(x, y);
  await page.mouse.down();
  for (let step = 1; step <= 60; ++step) {
    await page.mouse.move(x + step, y + 20 * Math.sin(step / 9));
    await sleep(8);
  }
  await page.mouse.up();
  await sleep(500);
  assert.equal(counts.most, 1);
  assert.ok(counts.writes >= 5, `${counts.writes} writes`);
});
