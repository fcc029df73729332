// How the equalizer feels under the pointer: VELMORA_BUILD=build/native VELMORA_TARGET=native node --test benchmarks/drag.mjs
//
// Drags a dot of the curve for some seconds and prints the times between frames, the work of the page's main thread for
// each frame, the time from a movement to the published record, and from the release to the last value. An idle page
// beside it shows what the browser itself makes of frames on this machine.
import fs from "node:fs";
import test from "node:test";

import { openPage, paths, putDocument, waitForVerdict } from "../tests/browser/browser.mjs";

const dragMs = 6000;
const moves = 120;
const releases = 20;
const bandsOffset = 0xd8;
const bandBytes = 16;
const frameMs = 17.5;
const usedBands = 8;

/**
 * @param {number[]} values
 * @param {number} share 0.5 for the median
 */
const quantile = (values, share) =>
  [...values].sort((one, other) => one - other)[
    Math.min(values.length - 1, Math.floor(values.length * share))
  ];

/**
 * @param {number[]} values
 * @param {number} digits
 */
const figures = (values, digits = 1) =>
  [0.5, 0.95, 1].map((share) => quantile(values, share).toFixed(digits).padStart(6)).join(" ");

/** @typedef {{name: string, ph: string, ts: number, dur?: number, pid: number, tid: number, args: any}} TraceEvent */

/** The page's own work: its scripts, and what the browser does to draw what they have changed. */
const ownWork = new Set([
  "EvaluateScript",
  "EventDispatch",
  "FireAnimationFrame",
  "FunctionCall",
  "Layerize",
  "Layout",
  "Paint",
  "PrePaint",
  "RunMicrotasks",
  "TimerFire",
  "UpdateLayoutTree",
]);

/**
 * The page's own work between two frames, in milliseconds.
 *
 * @param {Buffer} trace
 */
function workPerFrame(trace) {
  const { traceEvents: events } = /** @type {{traceEvents: TraceEvent[]}} */ (JSON.parse(trace.toString()));
  const threadOf = (/** @type {TraceEvent} */ { pid, tid }) => `${pid} ${tid}`;
  const mains = events
    .filter(({ name, args }) => name === "thread_name" && args.name === "CrRendererMain")
    .map((event) => {
      const own = events.filter((other) => threadOf(other) === threadOf(event));
      const frames = own.filter(({ name }) => name === "BeginCommitCompositorFrame").map(({ ts }) => ts);
      return { own, frames };
    });
  // The page is the renderer that draws.
  mains.sort((one, other) => other.frames.length - one.frames.length);
  const [{ own, frames }] = mains;
  const parts = own.filter(({ name, ph }) => ownWork.has(name) && ph === "X");
  const work = frames.map(() => 0);
  let frame = 0;
  let end = 0;
  for (const { ts, dur = 0 } of parts.sort((one, other) => one.ts - other.ts)) {
    // A part within another one is counted with that.
    if (ts < end) continue;
    end = ts + dur;
    while (frame + 1 < frames.length && ts >= frames[frame + 1]) ++frame;
    work[frame] += dur / 1000;
  }
  return work.slice(1, -1);
}

test("a drag of the equalizer", { timeout: 300_000 }, async (t) => {
  const { page, service, effect, context } = await openPage(t);
  const bands = Array.from({ length: 15 }, (_, index) => ({
    type: index === 0 ? 1 : 0,
    freq_hz: 40 * 1.5 ** index,
    gain_db: index < usedBands ? 3 : 0,
    q: 1,
  }));
  await putDocument(service, paths.footstep, { bypass: false, enhance_strength: 0.5 });
  await putDocument(service, paths.equalizer, { bypass: false, fade_ms: 20, bands });
  effect.play();
  await waitForVerdict(page, "works");
  const dot = page.getByRole("slider", { name: /^Band 4,/ });
  const placeOf = async () => {
    const box = await dot.boundingBox();
    if (box === null) throw new Error("no dot");
    return [box.x + box.width / 2, box.y + box.height / 2];
  };

  const record = fs.openSync(effect.file, "r");
  const bytes = Buffer.alloc(4);
  const gain = () => {
    fs.readSync(record, bytes, 0, 4, bandsOffset + 3 * bandBytes + 8);
    return bytes.readFloatLE();
  };

  /** Frames while `during` runs. */
  const framesOf = async (/** @type {() => Promise<unknown>} */ during) => {
    await page.evaluate(() => {
      const times = /** @type {number[]} */ ([]);
      const step = (/** @type {number} */ time) => {
        times.push(time);
        Object.assign(globalThis, { frame: requestAnimationFrame(step) });
      };
      Object.assign(globalThis, { times, frame: requestAnimationFrame(step) });
    });
    await during();
    const times = await page.evaluate(() => {
      const { times: all, frame } = /** @type {{times: number[], frame: number}} */ (
        /** @type {unknown} */ (globalThis)
      );
      cancelAnimationFrame(frame);
      return all;
    });
    return times.slice(1).map((time, index) => time - times[index]);
  };
  const drag = async () => {
    const [x, y] = await placeOf();
    await page.mouse.move(x, y);
    await page.mouse.down();
    const end = performance.now() + dragMs;
    for (let step = 0; performance.now() < end; ++step) {
      await page.mouse.move(x + 60 * Math.sin(step / 20), y + 30 * Math.sin(step / 13));
      await new Promise((resolve) => setTimeout(resolve, 8));
    }
    await page.mouse.move(x, y);
    await page.mouse.up();
  };

  const idle = await framesOf(() => page.waitForTimeout(dragMs));
  const dragged = await framesOf(drag);

  const chromium = context.browser();
  if (chromium === null) throw new Error("no browser");
  await chromium.startTracing(page, {
    categories: ["toplevel", "devtools.timeline", "disabled-by-default-devtools.timeline"],
  });
  await drag();
  const work = workPerFrame(await chromium.stopTracing());

  /** @type {number[]} */
  const latencies = [];
  const [x, y] = await placeOf();
  await page.mouse.move(x, y);
  await page.mouse.down();
  await page.mouse.move(x, y + 20);
  await page.waitForTimeout(300);
  for (let move = 0; move < moves; ++move) {
    const before = gain();
    const begun = performance.now();
    await page.mouse.move(x, y + (move % 2 === 0 ? 30 : 20) + move / 12);
    while (gain() === before) {
      if (performance.now() > begun + 5000) throw new Error("the movement did not reach the record");
      await new Promise((resolve) => setImmediate(resolve));
    }
    latencies.push(performance.now() - begun);
    await page.waitForTimeout(23);
  }
  await page.mouse.up();

  /** @type {number[]} */
  const last = [];
  for (let release = 0; release < releases; ++release) {
    const [fromX, fromY] = await placeOf();
    await page.mouse.move(fromX, fromY);
    await page.mouse.down();
    const down = release % 2 === 0 ? -1 : 1;
    for (let step = 1; step <= 20; ++step) await page.mouse.move(fromX, fromY + down * step);
    const released = performance.now();
    await page.mouse.up();
    let changedAt = released;
    for (let value = gain(); performance.now() < released + 400;) {
      const now = gain();
      if (now !== value) [value, changedAt] = [now, performance.now()];
      await new Promise((resolve) => setImmediate(resolve));
    }
    last.push(changedAt - released);
  }
  fs.closeSync(record);

  const within = (/** @type {number[]} */ intervals) =>
    `${((100 * intervals.filter((ms) => ms <= frameMs).length) / intervals.length).toFixed(1)} %`;
  console.log("                              median     95 %  largest");
  console.log(`frame interval, idle       ${figures(idle)} ms, ${within(idle)} within ${frameMs} ms`);
  console.log(`frame interval, dragging   ${figures(dragged)} ms, ${within(dragged)} within ${frameMs} ms`);
  console.log(`own work per frame         ${figures(work)} ms (scripts, style, layout, paint; traced)`);
  console.log(`movement to record         ${figures(latencies)} ms (${moves})`);
  console.log(`release to last value      ${figures(last)} ms (${releases})`);
});
