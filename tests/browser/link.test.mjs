// The link to the service: a token that is old, a service that ends, hangs, comes back; hidden pages; bad documents.
import assert from "node:assert/strict";
import net from "node:net";
import test from "node:test";

import { atEnd, poll, sleep } from "../e2e/harness.mjs";
import {
  limits,
  openPage,
  paths,
  putDocument,
  startAgain,
  verdictTexts,
  waitForVerdict,
} from "./browser.mjs";

const controls = (page) => page.locator("input, select, .verdict .actions button").count();

test("without the token, or with an old one, there is only the way to a new one", limits, async (t) => {
  const { page, requests, address, complaints } = await openPage(t, { open: false });
  for (const token of ["", "0123456789abcdef0123456789abcdee"]) {
    for (const [where, allowed] of /** @type {[string, number][]} */ ([
      ["/", 1],
      ["/advanced.html", 3],
    ])) {
      requests.length = 0;
      await page.goto(address(where, token));
      await waitForVerdict(page, "expired");
      assert.equal((await verdictTexts(page))[0], "This link is out of date");
      assert.equal(await controls(page), 0);
      await sleep(700);
      assert.ok(requests.length <= (token === "" ? 0 : allowed), JSON.stringify(requests));
    }
  }
  assert.ok(
    complaints.every((text) => /401/.test(text)),
    JSON.stringify(complaints),
  );
});

test("a service that ends is said to have stopped, and one that is back is used again", limits, async (t) => {
  const opened = await openPage(t);
  const { page, service } = opened;
  await waitForVerdict(page, "off");
  await service.stop();
  await waitForVerdict(page, "gone");
  assert.deepEqual(await verdictTexts(page), [
    "Velmora's control service has stopped",
    "Start it again and open the address it shows.",
  ]);
  assert.equal(await controls(page), 0);
  const again = await startAgain(t, opened);
  await waitForVerdict(page, "off");
  await again.stop();
  await waitForVerdict(page, "gone");
  const other = await startAgain(t, opened, "another-token-0123456789abcdef0123456789");
  await waitForVerdict(page, "expired");
  await page.close();
  await other.stop();
});

test(
  "while an idle connection holds the service, the page waits and dims what may be old",
  limits,
  async (t) => {
    const { page, service } = await openPage(t);
    await waitForVerdict(page, "off");
    const idle = net.connect(service.port, "127.0.0.1");
    idle.on("error", () => {});
    atEnd(t, () => idle.destroy());
    await waitForVerdict(page, "waiting");
    await page.locator(".cards.stale").waitFor();
    await page.getByRole("switch", { name: "Velmora", exact: true }).click();
    assert.equal(await page.locator(".message").count(), 0);
    await poll("the words about other tabs", async () =>
      /Close other browser tabs/.test((await verdictTexts(page))[1]) ? true : undefined,
    );
    idle.destroy();
    await page.locator(".cards.stale").waitFor({ state: "detached" });
    await poll("the change", async () =>
      (await page.locator("#strength").inputValue()) === "0.5" ? true : undefined,
    );
  },
);

test("an idle page asks at most twice a second, a hidden one nothing", limits, async (t) => {
  const { page, requests, changes } = await openPage(t);
  await waitForVerdict(page, "off");
  await sleep(500);
  const count = async (ms) => {
    const before = requests.length;
    await sleep(ms);
    return requests.length - before;
  };
  const idle = await count(4000);
  assert.ok(idle > 0 && idle <= 9, String(idle));
  await page.locator("details > summary").click();
  const unfolded = await count(2000);
  assert.ok(unfolded / 2 > idle / 4, `with meters more often: ${unfolded} in 2 s, ${idle} in 4 s`);
  await page.evaluate(() => {
    Object.defineProperty(document, "visibilityState", { configurable: true, get: () => "hidden" });
    document.dispatchEvent(new Event("visibilitychange"));
  });
  await sleep(300);
  assert.equal(await count(2000), 0);
  await page.evaluate(() => {
    Object.defineProperty(document, "visibilityState", { configurable: true, get: () => "visible" });
    document.dispatchEvent(new Event("visibilitychange"));
  });
  assert.ok((await count(1000)) >= 4);
  assert.deepEqual(await changes(), []);
});

test("the links carry the token, and a second tab follows the first", limits, async (t) => {
  const { page, newPage, service, changes } = await openPage(t);
  await waitForVerdict(page, "off");
  const links = await page.locator("nav a").evaluateAll((all) => all.map((one) => one.getAttribute("href")));
  const stamp = await page.locator("footer span").getAttribute("title");
  assert.match(String(stamp), /^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d$/);
  assert.deepEqual(
    links,
    ["/", "/advanced.html", "/help.html"].map((path) => `${path}?token=${service.token}`),
  );
  const second = await newPage();
  await second.goto(page.url());
  await waitForVerdict(second, "off");
  await putDocument(service, paths.footstep, { bypass: false, enhance_strength: 0.25 });
  for (const one of [page, second]) {
    await poll("the strength of the other", async () =>
      (await one.locator("#strength").inputValue()) === "0.25" ? true : undefined,
    );
  }
  await page.getByRole("link", { name: "Advanced" }).click();
  await page.getByRole("heading", { name: "Processing" }).waitFor();
  await page.getByRole("link", { name: "Help", exact: true }).click();
  await page.getByRole("heading", { name: "Help", exact: true }).waitFor();
  await page.getByRole("link", { name: "Sound", exact: true }).click();
  await page.locator("#strength").waitFor();
  assert.deepEqual(await changes(), []);
});

test("documents that are not as they should be leave the page usable", limits, async (t) => {
  const { page, complaints, address } = await openPage(t, { open: false });
  const rows = [
    ["status", "no JSON"],
    ["status", "[]"],
    ["status", '{"footstep":7,"apo_diagnostics":null,"render":"x","audio_engine":[]}'],
    ["status", '{"footstep":{"bypass":1,"enhance_strength":nan}}'],
    ["devices", "<html>"],
    ["devices", '{"render":[null,7,{"id":5},{"id":"a","name":null,"peak":nan,"sessions":"x"}],"capture":{}}'],
    ["effects/eq", '{"bypass":false,"fade_ms":20,"bands":[]}'],
  ];
  for (const [what, body] of rows) {
    await page.unrouteAll();
    await page.route(`**/api/v1/${what === "effects/eq" ? "render/effects/eq" : what}`, (route) =>
      route.fulfill({ body, contentType: "application/json" }),
    );
    await page.goto(address("/"));
    await page.locator(".verdict").waitFor();
    await sleep(900);
    assert.equal(await page.locator(".verdict").count(), 1, body);
    assert.notEqual(await page.locator(".verdict").getAttribute("data-verdict"), "works", body);
    assert.equal(await page.locator("nav a").count(), 3, body);
  }
  assert.deepEqual(complaints, []);
});

test("500 devices with names of any characters", limits, async (t) => {
  const names = [
    '<img src=x onerror="document.title=1">',
    "مكبر الصوت \u202e",
    "扬声器".repeat(60),
    "\u0007\n\t",
    "__proto__",
  ];
  const { page, complaints, foreign, address } = await openPage(t, { open: false });
  const id = (index) => (index === 4 ? "__proto__" : `{0.0.0.00000000}.{${index}}`);
  const render = Array.from({ length: 500 }, (_, index) => ({
    id: id(index),
    name: names[index] ?? `Device ${index}`,
    is_default: index === 0,
    is_selected: index === 0,
    peak: 0,
    sessions: [names[index % names.length]],
    apo_bound: index % 2 === 0,
  }));
  const body = JSON.stringify({ render, capture: [], selected_render_endpoint_id: id(0), error_code: 0 });
  await page.route("**/api/v1/devices", (route) => route.fulfill({ body, contentType: "application/json" }));
  await page.goto(address("/"));
  await page.locator("details > summary").click();
  await page.locator(".devices li").nth(499).waitFor();
  assert.equal(await page.locator("main img").count(), 0);
  assert.equal(await page.title(), "Velmora");
  const width = await page.evaluate(() => document.documentElement.scrollWidth - innerWidth);
  assert.ok(width <= 0, `${width} pixels too wide`);
  assert.deepEqual([complaints, foreign], [[], []]);
});

test("storage that is refused or holds something else leaves the page as it is", limits, async (t) => {
  const { page, address, complaints } = await openPage(t, { open: false });
  await page.goto(address("/help.html"));
  await page.evaluate(() => localStorage.setItem("velmora.memory", '{"version":1,"added":7,"language":[]}'));
  await page.goto(address("/"));
  await waitForVerdict(page, "off");
  await page.addInitScript(() => {
    Object.defineProperty(window, "localStorage", {
      get() {
        throw new DOMException("refused", "SecurityError");
      },
    });
  });
  for (const where of ["/", "/advanced.html", "/help.html"]) {
    await page.goto(address(where));
    await page.getByRole("button", { name: "中文" }).click();
    await page.getByRole("link", { name: "声音" }).waitFor();
  }
  assert.deepEqual(
    complaints.filter((text) => !/501/.test(text)),
    [],
  );
});
