// Runs the command line as a person does: with a home of its own, the service beside it, and a mapping that a test
// effect has made.
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import fs from "node:fs";
import path from "node:path";

import {
  atEnd,
  builtProgram,
  freePort,
  isNative,
  isWine,
  launchUntil,
  makeDirectory,
  makeWebRoot,
  programPathText,
  run,
  Service,
  startEffect,
  uniqueMappingName,
} from "./harness.mjs";

/**
 * @typedef {import("./harness.mjs").Scope} Scope
 * @typedef {import("./harness.mjs").Program} Program
 * @typedef {{ env: Record<string, string | undefined>, folder: string }} Home
 */

export const commandLine = builtProgram("velmora");
const suffix = isWine ? ".exe" : "";

/** @type {string | undefined} */
let wineFolder;

// Wine takes LOCALAPPDATA from its registry and not from us, so all tests share one folder there.
function windowsFolder() {
  wineFolder ??= execFileSync("wine", ["cmd", "/c", "echo %LOCALAPPDATA%"], { encoding: "utf8" }).trim();
  const [, rest] = wineFolder.split(":");
  const prefix = process.env.WINEPREFIX ?? path.join(process.env.HOME ?? "", ".wine");
  return path.join(prefix, "drive_c", rest.replaceAll("\\", "/"), "Velmora", "Control");
}

// A user's home. Nothing runs there yet.
/** @param {Scope} t @returns {Home} */
export function makeHome(t) {
  const home = makeDirectory();
  if (isNative) return { env: { HOME: home }, folder: path.join(home, ".local/state/velmora/control") };
  const folder = windowsFolder();
  fs.rmSync(folder, { recursive: true, force: true });
  atEnd(t, () => fs.rmSync(folder, { recursive: true, force: true }));
  return { env: {}, folder };
}

/** @param {Home} home */
export const runFileOf = (home) => path.join(home.folder, "run.json");

// The run file's document, or undefined while there is none.
/** @param {Home} home */
export function readRunFile(home) {
  try {
    const text = fs.readFileSync(runFileOf(home), "utf8");
    return text === "" ? undefined : JSON.parse(text);
  } catch {
    return undefined;
  }
}

// Runs a command to its end. Under Wine a line of the standard streams ends as natively.
/** @param {Scope} t @param {Home} home @param {string[]} args @param {{ env?: Record<string, string | undefined>, program?: string }} options */
export function command(t, home, args, { env = {}, program = commandLine } = {}) {
  return run(t, program, args, { env: { ...home.env, ...env } });
}

/** @param {Scope} t @param {Home} home @param {string[]} args @param {number} code @param {string} errors @param {string} output */
export async function expectCommand(t, home, args, code, errors, output = "") {
  const end = await command(t, home, args);
  assert.deepEqual(end, { code, signal: null, output, errors });
}

const bannerForm =
  /^Velmora 1\.2\.0 {2}\(algorithm [^\n]*\)\n {2}Open: http:\/\/127\.0\.0\.1:([0-9]+)\/\?token=([^\n]*)\n(?:[^]*\n)? {2}Press Ctrl\+C to stop\.\n/m;

/**
 * @typedef {object} StartOptions
 * @property {string[]} [more] options of the service
 * @property {string | null} [webRoot] null: none is given
 * @property {number | null} [port] null: none is given
 * @property {boolean} [inWindow]
 * @property {Record<string, string | undefined>} [env]
 * @property {string} [program]
 * @property {string[]} [wrapper]
 * @property {string} [answer] what a person types at the first question
 */

// Starts Velmora and waits until its page can be asked. Whatever still runs is ended with the test.
/** @param {Scope} t @param {Home} home @param {StartOptions} options */
export async function startCommand(t, home, options = {}) {
  const {
    more = [],
    webRoot = makeWebRoot(),
    inWindow = false,
    env = {},
    program = commandLine,
    wrapper,
    answer,
  } = options;
  const port = options.port === undefined ? await freePort() : options.port;
  const mapping = uniqueMappingName();
  await startEffect(t, mapping);
  const args = ["start", ...(inWindow ? ["--window"] : []), "--control-map", mapping];
  if (port !== null) args.push("--port", String(port));
  if (webRoot !== null) args.push("--web-root", programPathText(webRoot));
  const given = { env: { ...home.env, ...env }, withInput: inWindow, wrapper, input: answer };
  /** @param {string} output */
  const find = (output) => output.match(bannerForm) ?? undefined;
  const [started, found] = await launchUntil(
    t,
    program,
    [...args, ...more],
    given,
    "the banner",
    find,
    Service,
  );
  const [, portText, token] = found;
  return Object.assign(started, { port: Number(portText), token, mapping });
}

// The program and the service in a folder of their own. `service` is a script in place of the service, natively.
/** @param {string} name @param {string} [service] */
export function makeProgramFolder(name, service) {
  const folder = makeDirectory(name);
  const program = path.join(folder, `velmora${suffix}`);
  fs.copyFileSync(commandLine, program);
  const servicePath = path.join(folder, `velmora_control_demo${suffix}`);
  if (service === undefined) fs.copyFileSync(builtProgram("velmora_control_demo"), servicePath);
  else fs.writeFileSync(servicePath, service, { mode: 0o755 });
  return { folder, program };
}

// The sentence of a command, which is one line.
/** @param {string} errors */
export function assertOneSentence(errors) {
  assert.match(errors, /^[A-Z/"][^\n]*\.\n$/);
}
