// The built pages in a real browser, on the native program with a machine of the tests' own.
import assert from "node:assert/strict";
import fs from "node:fs";
import path from "node:path";
import { after } from "node:test";

import { chromium } from "playwright-core";

import {
  atEnd,
  buildDirectory,
  developmentToken,
  makeDirectory,
  poll,
  startService,
  uniqueMappingName,
  waitLimitMs,
} from "../e2e/harness.mjs";
import {
  Machine,
  devicesPath,
  dwordData,
  exportText,
  listData,
  renderPath,
  textData,
} from "../e2e/registry.mjs";

export const limits = { timeout: 120_000 };
export const webRoot = path.join(buildDirectory, "web");

// ---- a machine ----

const software = "HKEY_LOCAL_MACHINE\\SOFTWARE";
const servicesPath = "HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services";
const ownPath = `${software}\\VelmoraStandIn`;
const friendlyName = "{a45c254e-df1c-4efd-8020-67d146a850e0},14";
const chain = "{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},14";
const effectClass = "{631D9145-CACF-44D7-861B-5D82ADD8C84F}";
const flows = {
  render: { path: renderPath, prefix: "{0.0.0.00000000}.", standard: "DefaultRender" },
  capture: {
    path: `${devicesPath}\\Audio\\Capture`,
    prefix: "{0.0.1.00000000}.",
    standard: "DefaultCapture",
  },
};

/**
 * @typedef {object} TestDevice
 * @property {number} digit names it
 * @property {string} name
 * @property {"render" | "capture"} [flow] render, where it is not given
 * @property {boolean} [bound] has the effect in its chain
 * @property {boolean} [takesEffects]
 * @property {number} [volume]
 * @property {boolean} [muted]
 * @property {number} [peak]
 * @property {number[]} [sessions] processes that play
 *
 * @typedef {object} Contents
 * @property {TestDevice[]} [devices] the first of each flow is the default
 * @property {string | null} [effect] the path of the effect's file; null: it is not registered
 * @property {Record<string, number>} [audio] how the audio service behaves: StopMs, StopError and so on
 */

/** @param {number} digit */
const guidOf = (digit) => `{${`${digit}`.repeat(8)}-1111-4222-8333-444444444444}`;
/** @param {{digit: number, flow?: "render" | "capture"}} device */
export const idOf = ({ digit, flow = "render" }) => flows[flow].prefix + guidOf(digit);

/** Processes of makeProcesses that play. */
export const player = 4801;
export const browserProgram = 4802;

/** @type {TestDevice} */
export const speakers = {
  digit: 1,
  name: "Speakers (High Definition Audio)",
  bound: true,
  volume: 0.75,
  muted: false,
  peak: 0.25,
  sessions: [player],
};
/** @type {TestDevice} */
export const headphones = { digit: 2, name: "Headphones (USB Audio)", volume: 0.5, muted: false, peak: 0 };
/** @type {TestDevice} */
export const microphone = {
  digit: 3,
  flow: "capture",
  name: "Microphone (High Definition Audio)",
  peak: 0.1,
};

/**
 * @param {TestDevice} device
 * @returns {[string, [string, string][]][]}
 */
function deviceKeys({
  digit,
  name,
  flow = "render",
  bound,
  takesEffects = true,
  volume,
  muted,
  peak,
  sessions = [],
}) {
  const device = `${flows[flow].path}\\${guidOf(digit)}`;
  const own = `${ownPath}\\Audio\\${idOf({ digit, flow })}`;
  /** @type {[string, string][]} */
  const sound = [];
  if (volume !== undefined) sound.push(["Volume", textData(String(volume))]);
  if (muted !== undefined) sound.push(["Muted", dwordData(Number(muted))]);
  if (peak !== undefined) sound.push(["Peak", textData(String(peak))]);
  /** @type {[string, [string, string][]][]} */
  const keys = [
    [device, [["DeviceState", dwordData(1)]]],
    [`${device}\\Properties`, [[friendlyName, textData(name)]]],
    [own, sound],
  ];
  sessions.forEach((process, index) => {
    keys.push([
      `${own}\\Sessions\\${index}`,
      [
        ["State", dwordData(1)],
        ["ProcessId", dwordData(process)],
      ],
    ]);
  });
  if (takesEffects) keys.push([`${device}\\FxProperties`, bound ? [[chain, listData([effectClass])]] : []]);
  return keys;
}

/**
 * The export of a machine.
 *
 * @param {Contents} contents
 */
export function machineText({
  devices = [speakers, headphones, microphone],
  effect = null,
  audio = {},
} = {}) {
  /** @type {[string, string][]} */
  const standards = [];
  for (const flow of /** @type {const} */ (["render", "capture"])) {
    const first = devices.find((device) => (device.flow ?? "render") === flow);
    if (first !== undefined) standards.push([flows[flow].standard, textData(idOf(first))]);
  }
  const audioValues = Object.entries(audio).map(([name, value]) => [name, dwordData(value)]);
  const keys = [
    [`${ownPath}\\Audio`, standards],
    [
      `${software}\\Microsoft\\Windows NT\\CurrentVersion\\Audio`,
      [["DisableProtectedAudioDG", dwordData(1)]],
    ],
    [`${servicesPath}\\Audiosrv`, []],
    [`${ownPath}\\Services\\Audiosrv`, audioValues],
    [flows.capture.path, []],
    ...devices.flatMap(deviceKeys),
  ];
  if (effect !== null) {
    keys.push([
      `${software}\\Classes\\CLSID\\${effectClass}\\InprocServer32`,
      [["DEFAULT", textData(effect)]],
    ]);
  }
  return exportText(keys).replace('"DEFAULT"=', "@=");
}

/**
 * A folder with the effect's files, or some of them.
 *
 * @param {string[]} names
 * @returns {string} the path of the effect
 */
export function installEffect(names = ["velmora_windows_apo.dll", "fse.dll", "model_weights.bin"]) {
  const place = makeDirectory();
  for (const name of names) fs.writeFileSync(path.join(place, name), "");
  return path.join(place, "velmora_windows_apo.dll");
}

const loadedModules = ["velmora_windows_apo.dll", "fse.dll"];

/** Processes for the service to see: two players, and an audio engine that a test may end and start. */
export class Processes {
  root = makeDirectory();

  constructor() {
    this.add(player, "player.exe");
    this.add(browserProgram, "browser.exe");
    this.startEngine(4711);
  }

  /**
   * @param {number} id
   * @param {string} name
   * @param {string[]} [modules]
   */
  add(id, name, modules = []) {
    const folder = path.join(this.root, String(id));
    fs.mkdirSync(folder);
    fs.symlinkSync(name, path.join(folder, "exe"));
    const lines = modules.map(
      (module, index) => `${index + 1}0000-${index + 1}1000 r-xp 0 08:01 7   /windows/${module}\n`,
    );
    fs.writeFileSync(path.join(folder, "maps"), lines.join(""));
  }

  /**
   * @param {number} id
   * @param {string[]} [modules]
   */
  startEngine(id, modules = loadedModules) {
    this.engine = id;
    this.add(id, "audiodg.exe", modules);
  }

  endEngine() {
    fs.rmSync(path.join(this.root, String(this.engine)), { recursive: true });
  }
}

// ---- what an effect writes into the record ----

const words = { initializeProgress: 0x58, lockProgress: 0x68, applied: 0x80, blocks: 0x98, capture: 0xb0 };

/** @param {number} value */
function floatBits(value) {
  const bytes = Buffer.alloc(4);
  bytes.writeFloatLE(value);
  return BigInt(bytes.readUInt32LE());
}

/** An effect that the test plays: it applies what is published, and its blocks move while it plays. */
export class Effect {
  /** @type {ReturnType<typeof setInterval> | undefined} */
  timer;
  blocks = 1000n;

  /** @param {string} mapping */
  constructor(mapping) {
    this.file = `/dev/shm/${mapping.replace("\\", ".")}`;
  }

  /**
   * @param {keyof typeof words} word
   * @param {bigint} value
   */
  write(word, value) {
    const bytes = Buffer.alloc(8);
    bytes.writeBigUInt64LE(value);
    const file = fs.openSync(this.file, "r+");
    fs.writeSync(file, bytes, 0, 8, words[word]);
    fs.closeSync(file);
  }

  /** @param {{strength?: number, bypass?: boolean, bypassAll?: boolean}} applied */
  apply({ strength = 0, bypass = false, bypassAll = false } = {}) {
    const flags = (BigInt(bypass) << 32n) | (BigInt(bypassAll) << 33n) | (1n << 63n);
    this.write("applied", floatBits(strength) | flags);
  }

  /**
   * @param {number} state
   * @param {number} seconds
   * @param {number} detail
   */
  reportCapture(state, seconds, detail = 0) {
    this.write("capture", (BigInt(detail) << 32n) | (1n << 63n) | (BigInt(seconds) << 16n) | BigInt(state));
  }

  play() {
    this.timer = setInterval(() => {
      const record = fs.readFileSync(this.file);
      this.write("applied", record.readBigUInt64LE(0x10) | (1n << 63n));
      this.write("blocks", ++this.blocks);
    }, 20);
    this.timer.unref();
  }

  stop() {
    clearInterval(this.timer);
  }
}

// ---- pages ----

/** @type {Promise<import("playwright-core").Browser> | undefined} */
let sharedBrowser;

function startBrowser() {
  sharedBrowser ??= chromium.launch({
    executablePath: process.env.CHROMIUM ?? "/usr/bin/chromium",
    args: [
      "--headless",
      "--no-sandbox",
      "--disable-gpu",
      "--no-first-run",
      "--disable-background-networking",
    ],
  });
  return sharedBrowser;
}
after(async () => (await sharedBrowser)?.close());

/**
 * The service on a machine, and a page of it.
 *
 * @param {import("node:test").TestContext} t
 * @param {Contents & {more?: string[], page?: string, open?: boolean,
 *   context?: import("playwright-core").BrowserContextOptions}} options
 */
export async function openPage(
  t,
  { more = [], page: pagePath = "/", open: opens = true, context: wanted = {}, ...contents } = {},
) {
  const given = { effect: installEffect(), ...contents };
  const machine = await Machine.make(t, machineText(given));
  const mapping = uniqueMappingName();
  const processes = new Processes();
  const env = { ...machine.env, VELMORA_PROC: processes.root };
  const service = await startService(t, { webRoot, env, mapping, more });
  const effect = new Effect(mapping);
  atEnd(t, () => effect.stop());
  const browser = await startBrowser();
  const context = await browser.newContext({
    locale: "en-US",
    viewport: { width: 1280, height: 800 },
    ...wanted,
  });
  atEnd(t, () => context.close());
  const opened = {
    machine,
    service,
    mapping,
    processes,
    effect,
    context,
    env,
    /** @type {string[]} */
    requests: [],
    /** @type {string[]} */
    foreign: [],
    /** @type {string[]} */
    complaints: [],
    address: (/** @type {string} */ where, token = service.token) =>
      `http://127.0.0.1:${service.port}${where}${token ? `?token=${token}` : ""}`,
    /** @param {Contents} changed */
    rewrite(changed) {
      // As another program writes it: the service never sees a half.
      fs.writeFileSync(`${machine.file}.next`, machineText({ ...given, ...changed }));
      fs.renameSync(`${machine.file}.next`, machine.file);
    },
    async newPage() {
      const page = await context.newPage();
      page.setDefaultTimeout(waitLimitMs);
      page.on("console", (message) => {
        if (["error", "warning"].includes(message.type())) opened.complaints.push(message.text());
      });
      page.on("pageerror", (error) => opened.complaints.push(String(error)));
      page.on("request", (request) => {
        const { protocol, host, pathname, search } = new URL(request.url());
        if (protocol !== "data:" && host !== `127.0.0.1:${service.port}`) opened.foreign.push(request.url());
        if (!pathname.startsWith("/api/")) return;
        opened.requests.push(
          [request.method(), pathname + search, request.postData() ?? ""].join(" ").trim(),
        );
      });
      return page;
    },
    /** The requests that change something. The page reports all that it has sent before it answers this question. */
    async changes() {
      await opened.page.evaluate(() => 0);
      return opened.requests.filter((request) => !request.startsWith("GET"));
    },
    page: /** @type {import("playwright-core").Page} */ (/** @type {unknown} */ (undefined)),
  };
  opened.page = await opened.newPage();
  if (opens) await opened.page.goto(opened.address(pagePath));
  return opened;
}

/**
 * Starts the service again where it was.
 *
 * @param {import("node:test").TestContext} t
 * @param {Awaited<ReturnType<typeof openPage>>} opened
 * @param {string} [token]
 */
export function startAgain(t, { service, env }, token = developmentToken) {
  return startService(t, { webRoot, env, port: service.port, token });
}

/**
 * @param {import("playwright-core").Page} page
 * @param {string} id
 * @param {number} [limitMs]
 */
export async function waitForVerdict(page, id, limitMs = waitLimitMs) {
  /** @type {string | null} */
  let last = null;
  await poll(
    `the verdict ${id}`,
    async () => {
      last = await page.locator(".verdict").getAttribute("data-verdict");
      return last === id ? true : undefined;
    },
    limitMs,
  ).catch((error) => {
    throw new Error(`${error.message}; it is ${last}`);
  });
}

/**
 * @param {import("playwright-core").Page} page
 * @returns {Promise<string[]>} the headline, the detail and the buttons
 */
export async function verdictTexts(page) {
  const [headline, detail] = [
    await page.locator("#verdict").innerText(),
    await page.locator("#verdict-detail").innerText(),
  ];
  const buttons = await page.locator(".verdict .actions button").allTextContents();
  return [headline, detail, ...buttons.map((text) => text.trim())];
}

/**
 * @param {import("playwright-core").Page} page
 * @param {string} text
 */
export async function waitForMessage(page, text) {
  await page.locator(".messages .message > span", { hasText: text }).waitFor();
}

/**
 * A document of the service.
 *
 * @param {import("../e2e/harness.mjs").Service} service
 * @param {string} target
 */
export async function readDocument(service, target) {
  const answer = await service.ask("GET", target);
  return JSON.parse(Buffer.from(answer.slice(answer.indexOf("\r\n\r\n") + 4), "latin1").toString("utf8"));
}

/**
 * @param {import("../e2e/harness.mjs").Service} service
 * @param {string} target
 * @param {unknown} body
 */
export async function putDocument(service, target, body) {
  assert.match(await service.ask("PUT", target, JSON.stringify(body)), /^HTTP\/1\.1 200 /);
}

export const paths = {
  footstep: "/api/v1/render/effects/footstep",
  equalizer: "/api/v1/render/effects/eq",
  status: "/api/v1/status",
};
