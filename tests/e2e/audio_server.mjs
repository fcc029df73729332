// Endpoints of the tests' own under Wine: the COM server of tests/programs/audio in place of Wine's. Its
// header describes the script and the log.
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import fs from "node:fs";
import path from "node:path";

import { atEnd, buildDirectory, makeDirectory, programPathText, run } from "./harness.mjs";

/** @typedef {import("./harness.mjs").Scope} Scope */
/**
 * @typedef {object} Endpoint
 * @property {string} id
 * @property {string} [name]
 * @property {number} [state]
 * @property {number} [level]
 * @property {number} [muted]
 * @property {number} [peak]
 * @property {(string | number)[][]} [sessions] as [state, process id]
 * @property {string[]} [more] lines as they are in a script
 * @typedef {object} Script
 * @property {Endpoint[]} [render]
 * @property {Endpoint[]} [capture]
 * @property {string} [defaultRender]
 * @property {string} [defaultCapture]
 * @property {string[]} [faults] lines too
 */

const serverFile = path.join(buildDirectory, "velmora_test_audio.dll");
const ownClassKey = "HKLM\\SOFTWARE\\Classes\\CLSID\\{7A1D0F0B-6A0E-4B0D-9C33-3A5E8E1F6C21}";

// ---- registration ----

// The keys are volatile, and programs without a script get Wine's own class all the same: what a killed run leaves
// harms nobody and goes with Wine's session.
const registration = ["/s", programPathText(serverFile)];
let isRegistered = false;

process.on("exit", () => {
  if (isRegistered) execFileSync("wine", ["regsvr32", "/u", ...registration], { stdio: "ignore" });
});

/** @param {Scope} t @param {string[]} args */
async function regsvr32(t, ...args) {
  const { code, output, errors } = await run(t, "regsvr32", args);
  assert.equal(code, 0, `regsvr32 ${args.join(" ")}: ${output}${errors}`);
}

/** @param {Scope} t */
async function unregister(t) {
  if (!isRegistered) return;
  isRegistered = false;
  await regsvr32(t, "/u", ...registration);
}

// ---- the script ----

// A word of the script, quoted, from a text of UTF-16 units.
/** @param {string} text */
export function quoted(text) {
  const escaped = text.replace(/["\\]/g, "\\$&").replace(/[^ -~]/g, (unit) =>
    unit
      .split("")
      .map((half) => `\\u${half.charCodeAt(0).toString(16).padStart(4, "0")}`)
      .join(""),
  );
  return `"${escaped}"`;
}

/** @param {string} flow @param {Endpoint} endpoint */
const endpointLines = (flow, { id, name, more = [], state, level, muted, peak, sessions = [] }) => [
  `endpoint ${flow} ${quoted(id)}`,
  ...(name === undefined ? [] : [`  name ${quoted(name)}`]),
  ...Object.entries({ state, level, muted, peak })
    .filter(([, value]) => value !== undefined)
    .map(([what, value]) => `  ${what} ${value}`),
  ...sessions.map(([sessionState, process_id]) => `  session ${sessionState} ${process_id}`),
  ...more.map((line) => `  ${line}`),
];

// The script of a machine.
/** @param {Script} script */
export function scriptText({ render = [], capture = [], defaultRender, defaultCapture, faults = [] }) {
  return [
    ...render.flatMap((endpoint) => endpointLines("render", endpoint)),
    ...capture.flatMap((endpoint) => endpointLines("capture", endpoint)),
    ...(defaultRender === undefined ? [] : [`default render ${quoted(defaultRender)}`]),
    ...(defaultCapture === undefined ? [] : [`default capture ${quoted(defaultCapture)}`]),
    ...faults,
    "",
  ].join("\n");
}

// ---- the server ----

const nothingLeft = "live references=0 allocations=0";

export class AudioServer {
  directory = makeDirectory();
  scriptFile = path.join(this.directory, "script.txt");
  logFile = path.join(this.directory, "log.txt");
  env = {
    VELMORA_TEST_AUDIO: programPathText(this.scriptFile),
    VELMORA_TEST_AUDIO_LOG: programPathText(this.logFile),
  };

  // Registers it until the test ends. Programs that are to have its endpoints are started with `env`.
  /** @param {Scope} t */
  static async make(t) {
    const server = new AudioServer();
    fs.writeFileSync(server.logFile, "");
    server.set({});
    atEnd(t, () => unregister(t));
    isRegistered = true;
    await regsvr32(t, ...registration);
    return server;
  }

  // Removes the class, so that no class is registered at all.
  /** @param {Scope} t */
  static async removeClass(t) {
    const { code, output, errors } = await run(t, "reg", ["delete", `${ownClassKey}\\InprocServer32`, "/f"]);
    assert.equal(code, 0, output + errors);
  }

  // The endpoints from the next request on.
  /** @param {Script} machine */
  set(machine) {
    fs.writeFileSync(this.scriptFile, scriptText(machine));
  }

  // The log since the last look.
  takeLines() {
    const lines = fs.readFileSync(this.logFile, "utf8").split("\n");
    assert.equal(lines.pop(), "");
    fs.truncateSync(this.logFile);
    return lines;
  }

  // The calls of one request, behind which everything has been given back.
  takeCalls() {
    const lines = this.takeLines();
    assert.equal(lines.at(-1), nothingLeft, `what is left at the end of\n${lines.join("\n")}`);
    assert.ok(
      !lines.slice(0, -1).includes(nothingLeft),
      `one enumerator, held to the end of\n${lines.join("\n")}`,
    );
    assert.deepEqual(
      lines.filter((line) => line.startsWith("ERROR")),
      [],
    );
    return lines.filter((line) => !line.startsWith("live "));
  }
}
