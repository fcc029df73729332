// The audio engine and the effect's installation, for the tests: starts the test engine, puts the effect where the
// class id's registration leads, and asks the probes through the tool that prints them.
import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import fs from "node:fs";
import path from "node:path";

import {
  atEnd,
  buildDirectory,
  builtProgram,
  isWine,
  makeDirectory,
  poll,
  programPathText,
  run,
  startLimitMs,
  waitLimitMs,
  within,
} from "./harness.mjs";
import { dwordData, exportText, textData } from "./registry.mjs";

/** @typedef {import("./harness.mjs").Scope} Scope */
/** @typedef {import("node:stream").Writable} Writable */
/** @typedef {import("node:stream").Readable} Readable */
/**
 * @typedef {{ effect?: string, audio?: string }} Registration `effect` is the data of the class id's default value,
 *   `audio` that of DisableProtectedAudioDG, as an export writes them.
 * @typedef {typeof nothingFound} Probes
 */

export const engineProgram = path.join(buildDirectory, "programs/engine/audiodg.exe");
export const effectLibrary = path.join(buildDirectory, "programs/effect/velmora_windows_apo.dll");
export const algorithmLibrary = path.join(buildDirectory, "programs/versioned/fse.dll");
export const oldAlgorithmLibrary = path.join(buildDirectory, "programs/unversioned/fse.dll");

const classKey = "HKEY_LOCAL_MACHINE\\SOFTWARE\\Classes\\CLSID\\{631D9145-CACF-44D7-861B-5D82ADD8C84F}";
const audioKey = "HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Audio";

// ---- the engine ----

/** @type {Set<import("node:child_process").ChildProcess>} */
const engines = new Set();
process.on("exit", () => {
  for (const engine of engines) engine.kill("SIGKILL");
});

export class Engine {
  output = "";
  process_id = 0;

  /** @param {string} program @param {import("node:child_process").ChildProcessByStdio<Writable, Readable, null>} child */
  constructor(program, child) {
    this.program = program;
    this.child = child;
    this.ended = new Promise((resolve) => {
      child.on("exit", (code, signal) => {
        engines.delete(child);
        resolve({ code, signal });
      });
    });
  }

  // Starts an engine that has loaded these libraries, paths of this system. `program` is the engine's own file.
  /** @param {Scope} t @param {string[]} libraries */
  static async start(t, libraries = [], program = engineProgram) {
    const args = libraries.flatMap((library) => ["--load", programPathText(library)]);
    const command = isWine ? ["wine", program, ...args] : [program, ...args];
    const engine = new Engine(
      program,
      spawn(command[0], command.slice(1), { stdio: ["pipe", "pipe", "ignore"] }),
    );
    engines.add(engine.child);
    engine.child.stdin.on("error", () => {});
    engine.child.stdout.setEncoding("latin1").on("data", (text) => (engine.output += text));
    atEnd(t, async () => {
      engine.child.kill("SIGKILL");
      await within(waitLimitMs, () => "the end of the engine", engine.ended);
    });
    const [, id] = await engine.until(/^engine ([0-9]+)\n/, startLimitMs);
    engine.process_id = Number(id);
    for (const library of libraries)
      await engine.until(new RegExp(`^loaded ${path.basename(library)}$`, "m"));
    return engine;
  }

  /** @param {RegExp} form */
  until(form, limitMs = waitLimitMs) {
    return poll(
      `${form} in ${JSON.stringify(this.output)}`,
      () => this.output.match(form) ?? undefined,
      limitMs,
    );
  }

  /** @param {string} order @param {string} library @param {string} done */
  async obey(order, library, done) {
    const from = this.output.length;
    this.child.stdin.write(`${order} ${programPathText(library)}\n`);
    const line = `${done} ${path.basename(library)}\n`;
    await poll(line, () => (this.output.slice(from).includes("\n") ? true : undefined));
    assert.equal(this.output.slice(from), line);
  }

  /** @param {string} library */
  load(library) {
    return this.obey("load", library, "loaded");
  }

  /** @param {string} library */
  unload(library) {
    return this.obey("unload", library, "unloaded");
  }

  async stop() {
    this.child.stdin.end();
    const end = await within(waitLimitMs, () => "the end of the engine", this.ended);
    assert.deepEqual(end, { code: 0, signal: null }, this.output);
  }
}

// ---- the installation ----

/** @param {Registration} registration */
function registrationText({ effect, audio }) {
  /** @type {import("./registry.mjs").Key[]} */
  const keys = [];
  if (effect !== undefined) keys.push([`${classKey}\\InprocServer32`, [["", effect]]]);
  if (audio !== undefined) keys.push([audioKey, [["DisableProtectedAudioDG", audio]]]);
  // The default value has no name.
  return exportText(keys).replace('""=', "@=");
}

// Takes a registration away; `-` in an export is a removal.
const removal = `[-${classKey}]\r\n\r\n[-${audioKey}]\r\n\r\n`;

// Registers it for the tool, until the test ends. Gives the environment with which it finds the registration.
/** @param {Scope} t @param {Registration} registration @returns {Promise<Record<string, string>>} */
export async function registerEffect(t, registration) {
  const file = path.join(makeDirectory(), "registration.reg");
  const text = registrationText(registration);
  if (!isWine) {
    fs.writeFileSync(file, text);
    return { VELMORA_MACHINE: file };
  }
  /** @param {string} keys */
  const importText = async (keys) => {
    fs.writeFileSync(file, `\ufeff${exportText([])}${keys}`, "utf16le");
    const { code, output, errors } = await run(t, "reg", ["import", programPathText(file)]);
    assert.equal(code, 0, output + errors);
  };
  // A test that was killed has left its own.
  await importText(removal + text.replace(exportText([]), ""));
  atEnd(t, () => importText(removal));
  return {};
}

/** @param {string} file */
export const registered = (file) => textData(programPathText(file));
export const numberData = dwordData;

// ---- the probes ----

// The processes of this system that the tool shall see, natively; under Wine it sees those of the prefix.
/** @param {number[]} processIds @returns {Record<string, string>} */
export function visibleProcesses(...processIds) {
  if (isWine) return {};
  const root = makeDirectory();
  fs.chmodSync(root, 0o755);
  for (const id of processIds) fs.symlinkSync(`/proc/${id}`, path.join(root, String(id)));
  return { VELMORA_PROC: root };
}

const nothingFound = {
  elevated: true,
  clsid_registered: false,
  protected_audio_dg_disabled: false,
  apo_dll_present: false,
  algorithm_present: false,
  apo_dll_path: "",
  running: false,
  process_id: 0,
  apo_loaded: false,
  algorithm_loaded: false,
  apo_module_path: "",
  error_code: 0,
  program: "",
};

// What the tool prints when it finds nothing but `found`.
/** @param {Partial<Probes>} found */
export function probesText(found = {}) {
  const fields = { ...nothingFound, ...found };
  assert.equal(Object.keys(fields).length, Object.keys(nothingFound).length, "fields that exist");
  return Object.entries(fields)
    .map(([name, value]) => `${name} ${value}\n`)
    .join("");
}

// Runs the tool and demands what it finds. `wrapped` puts a program in front of it, natively.
/** @param {Scope} t @param {Record<string, string>} env @param {Partial<Probes>} found @param {{ wrapped?: string[] }} options */
export async function assertProbes(t, env, found, { wrapped = [] } = {}) {
  const tool = builtProgram("velmora_print_engine");
  const [file, ...args] = [...wrapped, tool];
  const end = await run(t, file, args, { env });
  assert.deepEqual(end, { code: 0, signal: null, output: probesText(found), errors: "" });
}

// ---- the audio service, under Wine ----

const testService = builtProgram("velmora_test_service");

// Registers the test service as the audio service until the test ends. Gives the words that it has logged since the last
// look, in the order of their times.
/** @param {Scope} t @param {string[]} options */
export async function installAudioService(t, options = []) {
  const log = path.join(makeDirectory(), "service.log");
  const args = ["install", "Audiosrv", "--log", programPathText(log), ...options];
  assert.deepEqual(await run(t, testService, args), { code: 0, signal: null, output: "", errors: "" });
  atEnd(t, () => run(t, testService, ["remove", "Audiosrv"]));
  let known = 0;
  const text = () => (fs.existsSync(log) ? fs.readFileSync(log, "utf8") : "");
  const look = () => {
    const lines = text().split("\n").slice(0, -1);
    const entries = lines.slice(known).map((line) => line.split(" Audiosrv "));
    known = lines.length;
    const times = entries.map(([time]) => Number(time));
    for (const line of lines) assert.match(line, /^[0-9]+ Audiosrv [a-z]+$/);
    assert.deepEqual(
      times,
      [...times].sort((a, b) => a - b),
    );
    return { words: entries.map(([, word]) => word).join(" "), times };
  };
  return Object.assign(look, { text });
}
