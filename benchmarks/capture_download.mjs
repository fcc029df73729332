// What a download of four captures of 115 MiB costs the page: VELMORA_BUILD=build/native node --test
// benchmarks/capture_download.mjs
//
// Prints the duration and the memory of the page before, at its most and after, for a download to disk and one through
// the browser's memory. The page's private file system is in the picker's place. The browser has a profile on disk: one
// without keeps all that it writes in memory.
import fs from "node:fs";
import path from "node:path";
import test from "node:test";

import { chromium } from "playwright-core";

import { atEnd, makeDirectory } from "../tests/e2e/harness.mjs";
import { openPage } from "../tests/browser/browser.mjs";

const mebibyte = 1024 * 1024;
const fileBytes = 115 * mebibyte;
const lookMs = 100;
const limits = { timeout: 600_000 };
const names = [
  "capture-1-host-in.wav",
  "capture-2-algorithm-in.wav",
  "capture-3-algorithm-out.wav",
  "capture-4-host-out.wav",
];

/** Files with contents on disk, so that reading them costs what it costs. */
function writeFiles() {
  const folder = makeDirectory();
  const block = Buffer.alloc(mebibyte, 0x5a);
  for (const name of names) {
    const file = fs.openSync(path.join(folder, name), "w");
    for (let written = 0; written < fileBytes; written += block.length) fs.writeSync(file, block);
    fs.closeSync(file);
  }
  return folder;
}

function choosePrivateFile() {
  const page = /** @type {any} */ (globalThis);
  page.showSaveFilePicker = async (/** @type {{suggestedName: string}} */ { suggestedName }) => {
    page.chosen = suggestedName;
    const folder = await navigator.storage.getDirectory();
    return folder.getFileHandle(suggestedName, { create: true });
  };
}

/** @param {number} id */
function residentBytes(id) {
  const [, kilobytes] = /^VmRSS:\s+(\d+) kB/m.exec(fs.readFileSync(`/proc/${id}/status`, "utf8")) ?? [];
  return Number(kilobytes) * 1024;
}

/**
 * @param {import("node:test").TestContext} t
 * @param {string} what
 * @param {() => void} prepare
 */
async function measure(t, what, prepare) {
  const folder = writeFiles();
  const opened = await openPage(t, { open: false, more: ["--capture-directory", folder] });
  const { service, address } = opened;
  const context = await chromium.launchPersistentContext(makeDirectory(), {
    executablePath: process.env.CHROMIUM ?? "/usr/bin/chromium",
    args: [
      "--headless",
      "--no-sandbox",
      "--disable-gpu",
      "--no-first-run",
      "--disable-background-networking",
    ],
    locale: "en-US",
  });
  atEnd(t, () => context.close());
  const page = await context.newPage();
  await context.addInitScript(prepare);
  await page.goto(address("/advanced.html"));
  await page.locator("section[data-phase=ready]").waitFor();
  const tools = await context.newCDPSession(page);
  await tools.send("Performance.enable");
  const browserTools = await /** @type {import("playwright-core").Browser} */ (
    context.browser()
  ).newBrowserCDPSession();
  const { processInfo } = await browserTools.send("SystemInfo.getProcessInfo");
  const renderers = processInfo.filter(({ type }) => type === "renderer").map(({ id }) => id);
  const main = processInfo.filter(({ type }) => type === "browser").map(({ id }) => id);
  const sum = (/** @type {number[]} */ ids) => ids.reduce((total, id) => total + residentBytes(id), 0);
  async function look() {
    const { metrics } = await tools.send("Performance.getMetrics");
    const heap = metrics.find(({ name }) => name === "JSHeapUsedSize")?.value ?? NaN;
    return { heap, page: sum(renderers), browser: sum(main), service: sum([Number(service.child.pid)]) };
  }
  await tools.send("HeapProfiler.collectGarbage");
  const before = await look();
  const most = { ...before };
  const began = performance.now();
  await page.locator("[data-action=download]").click();
  const yes = page.getByRole("dialog").getByRole("button", { name: "Download", exact: true });
  if (prepare !== choosePrivateFile) await yes.click();
  const end = page.locator("section[data-phase=downloaded]").waitFor({ timeout: limits.timeout });
  let hasEnded = false;
  end.then(
    () => (hasEnded = true),
    () => (hasEnded = true),
  );
  while (!hasEnded) {
    const now = await look();
    for (const key of /** @type {const} */ (["heap", "page", "browser", "service"]))
      most[key] = Math.max(most[key], now[key]);
    await page.waitForTimeout(lookMs);
  }
  await end;
  const seconds = (performance.now() - began) / 1000;
  await tools.send("HeapProfiler.collectGarbage");
  const after = await look();
  const shown = (/** @type {number} */ bytes) => (bytes / mebibyte).toFixed(1).padStart(8);
  console.log(`${what}: ${(names.length * fileBytes) / mebibyte} MiB in ${seconds.toFixed(1)} s`);
  console.log("  MiB          before     most    after");
  for (const [key, label] of /** @type {const} */ ([
    ["heap", "page's heap "],
    ["page", "page        "],
    ["browser", "browser     "],
    ["service", "service     "],
  ])) {
    console.log(`  ${label}${shown(before[key])} ${shown(most[key])} ${shown(after[key])}`);
  }
}

test("to disk", limits, (t) => measure(t, "to disk", choosePrivateFile));
test("through memory", limits, (t) =>
  measure(t, "through memory", () => Reflect.deleteProperty(globalThis, "showSaveFilePicker")),
);
