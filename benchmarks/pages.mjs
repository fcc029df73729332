// How fast the first screen is: VELMORA_BUILD=build/native node --test benchmarks/pages.mjs
//
// Prints the time from navigation to the first picture and to the first verdict, from a click to the published word, and
// what an idle page costs.
import fs from "node:fs";
import test from "node:test";

import { openPage, paths, putDocument, waitForVerdict, webRoot } from "../tests/browser/browser.mjs";

const rounds = 20;
const idleMs = 10_000;
const ticksPerSecond = 100;

/**
 * @param {number[]} values
 * @param {number} share 0.5 for the median
 */
const quantile = (values, share) =>
  values.sort((one, other) => one - other)[Math.min(values.length - 1, Math.floor(values.length * share))];

/** @param {number} pid */
function processorSeconds(pid) {
  const fields = fs.readFileSync(`/proc/${pid}/stat`, "utf8").split(") ")[1].split(" ");
  return (Number(fields[11]) + Number(fields[12])) / ticksPerSecond;
}

test("the first screen", { timeout: 300_000 }, async (t) => {
  const { page, service, effect, requests, address } = await openPage(t);
  await putDocument(service, paths.footstep, { bypass: false, enhance_strength: 0.5 });
  effect.play();
  await waitForVerdict(page, "works");
  await page.addInitScript(() => {
    new MutationObserver((_, observer) => {
      const verdict = document.querySelector(".verdict")?.getAttribute("data-verdict") ?? "checking";
      if (verdict === "checking") return;
      performance.mark("verdict");
      observer.disconnect();
    }).observe(document, { childList: true, subtree: true, attributes: true });
  });

  /** @type {number[]} */
  const pictures = [];
  /** @type {number[]} */
  const verdicts = [];
  for (let round = 0; round < rounds; ++round) {
    await page.goto(address("/"));
    await page.waitForFunction(() => performance.getEntriesByName("verdict").length > 0);
    const [picture, verdict] = await page.evaluate(() =>
      ["first-contentful-paint", "verdict"].map(
        (name) => performance.getEntriesByName(name)[0]?.startTime ?? NaN,
      ),
    );
    pictures.push(picture);
    verdicts.push(verdict);
  }

  /** @type {number[]} */
  const clicks = [];
  const record = fs.openSync(effect.file, "r");
  const word = Buffer.alloc(8);
  const read = () => {
    fs.readSync(record, word, 0, 8, 0x10);
    return word.readBigUInt64LE();
  };
  for (let round = 0; round < 5 * rounds; ++round) {
    const before = read();
    const clicked = page
      .locator(".switch input")
      .first()
      .evaluate((control) => {
        const time = performance.timeOrigin + performance.now();
        /** @type {HTMLInputElement} */ (control).click();
        return time;
      });
    while (read() === before) await new Promise((resolve) => setImmediate(resolve));
    const published = performance.timeOrigin + performance.now();
    clicks.push(published - (await clicked));
    await page.waitForTimeout(37);
  }
  fs.closeSync(record);

  await page.waitForTimeout(1000);
  const [asked, used] = [requests.length, processorSeconds(Number(service.child.pid))];
  await page.waitForTimeout(idleMs);
  const perSecond = (requests.length - asked) / (idleMs / 1000);
  const share = (processorSeconds(Number(service.child.pid)) - used) / (idleMs / 1000);
  const bytes = fs
    .readdirSync(webRoot)
    .reduce((sum, name) => sum + fs.statSync(`${webRoot}/${name}`).size, 0);
  console.log(`first picture   ${quantile(pictures, 0.5).toFixed(0)} ms (median of ${rounds})`);
  console.log(`first verdict   ${quantile(verdicts, 0.5).toFixed(0)} ms`);
  console.log(
    `click to record ${quantile(clicks, 0.5).toFixed(1)} ms, 95th percentile ${quantile(clicks, 0.95).toFixed(1)} ms`,
  );
  console.log(
    `idle            ${perSecond} requests per second, ${(100 * share).toFixed(2)} % of a core of the service`,
  );
  console.log(`pages           ${bytes} bytes`);
});
