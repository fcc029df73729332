// Drives the real programs from outside: starts them, speaks to the service over raw sockets, reads the shared
// record, and ends everything again.
//
// The environment says what to drive: VELMORA_BUILD is the build directory, VELMORA_TARGET is `native` or `wine`.
// Every wait has a limit, given in milliseconds. Text from programs and sockets is held byte by byte (latin1), so
// that comparisons are exact.
import assert from "node:assert/strict";
import { execFileSync, spawn, spawnSync } from "node:child_process";
import { once } from "node:events";
import fs from "node:fs";
import net from "node:net";
import os from "node:os";
import path from "node:path";

import { AccountService, jsonReply } from "../programs/account/service.mjs";

/**
 * @typedef {import("node:net").Socket} Socket
 * @typedef {import("../programs/account/service.mjs").AccountOptions} AccountOptions
 * @typedef {{ after(end: () => unknown): void }} Scope What a program or file lives as long as: a test, or a file's tests.
 * @typedef {string[]} Pair A name and a value
 * @typedef {object} ProgramOptions
 * @property {Record<string, string | undefined>} [env]
 * @property {string} [cwd]
 * @property {boolean} [ofSystem] it is a program of this system, whatever the target
 * @property {string[]} [wrapper] a command of this system that starts the one behind it
 * @property {boolean} [withInput] standard input is `child.stdin`, else there is none
 * @property {string} [input] what comes first there
 * @typedef {object} OwnServiceOptions
 * @property {string} [program] which copy of the service; by default the one that can make its mapping by itself
 * @property {string | null} [token] null: the service makes one
 * @property {number} [port]
 * @property {string} [mapping]
 * @property {string} [webRoot]
 * @property {string[]} [more] further arguments
 * @typedef {ProgramOptions & OwnServiceOptions} ServiceOptions
 * @typedef {{ port: number, token?: string }} Peer
 * @typedef {{ reads?: boolean }} ConnectOptions
 * @typedef {{ method?: string, target?: string, host?: string | null, headers?: Pair[], body?: string }} RequestOptions
 * @typedef {{ type: number, freq_hz: number, gain_db: number, q: number }} Band
 * @typedef {{ bypass: boolean, fade_ms: number, bands: Band[] }} Equalizer
 * @typedef {{ id: string, name: string, peak?: number, sessions?: unknown[], bound?: boolean }} Endpoint
 * @typedef {object} Devices
 * @property {Endpoint[]} [render]
 * @property {Endpoint[]} [capture]
 * @property {string} [defaultRender]
 * @property {string} [defaultCapture]
 * @property {string} [selectedRender]
 * @property {string} [selectedCapture]
 * @property {number} [error_code]
 */
/**
 * @template T
 * @typedef {new (file: string, args: string[], options?: ProgramOptions) => T} ProgramClass
 */

export const isWine = process.env.VELMORA_TARGET === "wine";
export const isNative = !isWine;
export const buildDirectory = path.resolve(process.env.VELMORA_BUILD ?? "build/native");
const programSuffix = isWine ? ".exe" : "";

// A loaded machine and a sanitizer are slow; a program that hangs is slower still.
export const startLimitMs = 60_000;
export const waitLimitMs = 15_000;
const pollIntervalMs = 20;

export const developmentToken = "0123456789abcdef0123456789abcdef";
export const recordBytes = 576;

// ---- what must be ended in any case ----

/** @type {Set<Program>} */
const alive = new Set();
/** @type {Set<string>} */
const directories = new Set();
/** @type {Set<string>} */
const mappingNames = new Set();
/** @type {Set<string>} */
const disks = new Set();

function endEverything() {
  for (const program of alive) program.kill();
  for (const disk of disks) unmount(disk);
  for (const directory of directories) fs.rmSync(directory, { recursive: true, force: true });
  // Natively a mapping is a file here, and one that a killed program held stays behind.
  if (isNative)
    for (const name of mappingNames) fs.rmSync(`/dev/shm/${name.replace("\\", ".")}`, { force: true });
}
process.on("exit", endEverything);
for (const signal of ["SIGTERM", "SIGINT", "SIGHUP"]) process.on(signal, () => process.exit(1));

// ---- the end of a test ----

/** @type {WeakMap<Scope, (() => unknown)[]>} */
const endings = new WeakMap();

// What a test started ends with the test, the latest first. A failure fails the test, and the rest ends all the same.
/** @param {Scope} t @param {() => unknown} end */
export function atEnd(t, end) {
  const known = endings.get(t);
  if (known) return void known.push(end);
  const ends = [end];
  endings.set(t, ends);
  t.after(async () => {
    const failures = [];
    for (let next = ends.pop(); next; next = ends.pop()) {
      try {
        await next();
      } catch (error) {
        failures.push(error);
      }
    }
    if (failures.length > 0) throw failures[0];
  });
}

// A program that the test leaves running must end cleanly then.
/** @param {Scope} t @param {Program} program */
function stopAtEnd(t, program) {
  atEnd(t, async () => {
    if (!program.end) await program.stop();
  });
}

// ---- waiting ----

/** @param {number} milliseconds */
export function sleep(milliseconds) {
  return new Promise((resolve) => setTimeout(resolve, milliseconds));
}

// The promise's value, or a failure that names what was waited for. The timer keeps this process alive: sockets and
// programs do not, so that a failed test never hangs on what it left.
/** @template T @param {number} limitMs @param {() => string} what @param {Promise<T>} promise @returns {Promise<T>} */
export async function within(limitMs, what, promise) {
  /** @type {NodeJS.Timeout | undefined} */
  let timer;
  /** @type {Promise<never>} */
  const expired = new Promise((_, reject) => {
    timer = setTimeout(() => reject(new Error(`waited ${limitMs} ms for ${what()}`)), limitMs);
  });
  try {
    return await Promise.race([promise, expired]);
  } finally {
    clearTimeout(timer);
  }
}

// Looks again and again until `look` gives something other than undefined. It ends with its limit, unlike a loop of
// the test's own, which would keep a failed test running.
/** @template T @param {string} what @param {() => T | undefined | Promise<T | undefined>} look @returns {Promise<T>} */
export async function poll(what, look, limitMs = waitLimitMs) {
  const deadline = Date.now() + limitMs;
  for (;;) {
    const value = await look();
    if (value !== undefined) return value;
    if (Date.now() > deadline) throw new Error(`waited ${limitMs} ms for ${what}`);
    await sleep(pollIntervalMs);
  }
}

// ---- rights that a container may lack ----

/** @type {string | undefined} */
let mountRefusal;

// For the `skip` option of a test that mounts: undefined where mounts are allowed, else the right that is missing. ./test
// lists these tests as not run. It counts any other skip as a failure.
export function missingMountRight() {
  mountRefusal ??= spawnSync(
    "unshare",
    ["--mount", "mount", "-t", "tmpfs", "velmora-test", makeDirectory()],
    { encoding: "utf8", env: { ...process.env, LC_ALL: "C" } },
  ).stderr;
  const isRefused = /Operation not permitted|[Pp]ermission denied|must be superuser/.test(mountRefusal);
  return isRefused ? "not run: needs CAP_SYS_ADMIN (mounts)" : undefined;
}

// ---- tables ----

// The words of a template text, as they are written: a backslash is one.
/** @param {TemplateStringsArray} text */
export function words(text) {
  return text.raw[0].trim().split(/\s+/);
}

// ---- files ----

export function makeDirectory(name = "") {
  const directory = fs.mkdtempSync(path.join(os.tmpdir(), "velmora-e2e-"));
  directories.add(directory);
  if (name === "") return directory;
  fs.mkdirSync(path.join(directory, name));
  return path.join(directory, name);
}

/** @param {string} directory */
function unmount(directory) {
  // Lazily: whoever still uses it keeps it until then, and it leaves the tree at once.
  execFileSync("umount", ["--lazy", directory]);
  disks.delete(directory);
}

// A disk of its own with room for so many bytes, in pages of 4096, until the test ends. Such a test
// skips on missingMountRight().
/** @param {Scope} t @param {number} bytes */
export function makeSmallDisk(t, bytes) {
  const directory = makeDirectory();
  execFileSync("mount", ["-t", "tmpfs", "-o", `size=${bytes}`, "velmora-test", directory]);
  disks.add(directory);
  atEnd(t, () => unmount(directory));
  return { directory, makeReadOnly: () => execFileSync("mount", ["-o", "remount,ro", directory]) };
}

// A path as the program under test writes it.
/** @param {string} systemPath */
export function programPathText(systemPath) {
  return isWine ? `Z:${systemPath.replaceAll("/", "\\")}` : systemPath;
}

export const pageNames = ["index.html", "advanced.html", "velmora-eq.js", "help.html"];

// A web root of the tests' own. A page given as null is left out.
/** @param {Record<string, string | Buffer | null>} pages */
export function makeWebRoot(pages = {}, name = "") {
  const directory = makeDirectory(name);
  for (const page of pageNames) {
    const content = page in pages ? pages[page] : `the page ${page}\n`;
    if (content !== null) fs.writeFileSync(path.join(directory, page), content);
  }
  return directory;
}

// ---- programs ----

/** @param {string} name */
export function builtProgram(name) {
  return path.join(buildDirectory, name + programSuffix);
}

// The service as it is shipped.
export const shippedService = builtProgram("velmora_control_demo");

/** @type {string | undefined} */
let patchedCopy;

// The service that can make a mapping by itself. Natively it is the shipped program. Wine 8 refuses one trustee
// of the mapping's descriptor, WR; in a copy it is renamed to WD, which has the same length.
export function creatingService() {
  if (isNative) return shippedService;
  if (patchedCopy) return patchedCopy;
  const image = fs.readFileSync(shippedService);
  const refused = Buffer.from(";;;WR)", "utf16le");
  const place = image.indexOf(refused);
  assert.notEqual(place, -1, "the program holds the descriptor as one wide text");
  assert.equal(image.indexOf(refused, place + 1), -1, "the descriptor is in the program once");
  Buffer.from(";;;WD)", "utf16le").copy(image, place);
  const copy = path.join(makeDirectory(), path.basename(shippedService));
  fs.writeFileSync(copy, image, { mode: 0o755 });
  patchedCopy = copy;
  return patchedCopy;
}

// The native service without root's right to pass over the modes of files.
export function makeUnprivilegedService() {
  if (process.getuid?.() !== 0) return shippedService;
  const script = path.join(makeDirectory(), "velmora_control_demo");
  const command = `exec setpriv --bounding-set=-dac_override,-dac_read_search ${shippedService} "$@"`;
  fs.writeFileSync(script, `#!/bin/sh\n${command}\n`, { mode: 0o755 });
  return script;
}

export function uniqueMappingName() {
  const name = `Local\\VelmoraTest-${process.pid}-${mappingNames.size + 1}`;
  mappingNames.add(name);
  return name;
}

// Natively a program has ended when its pipes have, which also shows that nothing else holds them. Under Wine the
// first program of a session starts helpers that hold its pipes for as long as the session lasts: there the program's
// own end counts. What it wrote is in the pipes by then, and is given this time to be read.
const endEvent = isWine ? "exit" : "close";
const pipeDrainMs = 1000;

// What a person's own session says to our programs is not for those of a test: it names a machine, folders with files
// in them (such as `./run` leaves), a proxy and authorities.
const personalVariables =
  /^(VELMORA_(MACHINE|DRIVES|PROC)|ProgramData|XDG_STATE_HOME|SSL_CERT_FILE|(https?|all|no)_proxy)$/i;

// The environment of a program: that of the tests without the person's, on drives of its own, and `more`.
/** @type {string | undefined} */
let commonDrives;
/** @param {Record<string, string | undefined>} more */
function environmentWith(more) {
  commonDrives ??= makeDirectory();
  const inherited = Object.entries(process.env).filter(([name]) => !personalVariables.test(name));
  return { WINEDEBUG: "-all", ...Object.fromEntries(inherited), VELMORA_DRIVES: commonDrives, ...more };
}

// A started program, its output so far, and its end.
export class Program {
  /** @param {string} file @param {string[]} args @param {ProgramOptions} options */
  constructor(file, args, { env = {}, cwd, ofSystem = false, wrapper = [], withInput = false, input } = {}) {
    const command = [...wrapper, ...(isWine && !ofSystem ? ["wine"] : []), file, ...args];
    const environment = environmentWith(env);
    this.name = `${path.basename(file)} ${args.join(" ")}`;
    this.output = "";
    this.errors = "";
    /** @type {Set<() => void>} */
    this.watchers = new Set();
    /** @type {{ code: number | null, signal: NodeJS.Signals | null } | undefined} */
    this.end = undefined;
    this.child = spawn(command[0], command.slice(1), {
      cwd,
      env: environment,
      stdio: [withInput ? "pipe" : "ignore", "pipe", "pipe"],
    });
    alive.add(this);
    /** @type {Promise<{ code: number | null, signal: NodeJS.Signals | null }>} */
    this.exited = new Promise((resolve, reject) => {
      this.child.on("error", reject);
      const closed = new Promise((drained) => this.child.once("close", drained));
      this.child.on(endEvent, async (code, signal) => {
        alive.delete(this);
        await Promise.race([closed, sleep(pipeDrainMs)]);
        this.end = { code, signal };
        this.lookAgain();
        resolve(this.end);
      });
    });
    this.exited.catch(() => {});
    this.collect(/** @type {Socket} */ (this.child.stdout), "output");
    this.collect(/** @type {Socket} */ (this.child.stderr), "errors");
    if (input !== undefined) this.child.stdin?.write(input);
    this.child.unref();
  }

  /** @param {Socket} stream @param {"output" | "errors"} field */
  collect(stream, field) {
    stream.setEncoding("latin1");
    stream.on("data", (text) => {
      this[field] += text;
      this.lookAgain();
    });
    stream.on("error", () => {});
    stream.unref();
  }

  lookAgain() {
    for (const watcher of [...this.watchers]) watcher();
  }

  said() {
    return `${this.name}; output ${JSON.stringify(this.output)}, errors ${JSON.stringify(this.errors)}`;
  }

  // Waits until `look` gives something other than undefined, looking whenever the program has written.
  /** @template T @param {string} what @param {() => T | undefined} look @returns {Promise<T>} */
  until(what, look, limitMs = waitLimitMs) {
    let watcher = () => {};
    /** @type {Promise<T>} */
    const found = new Promise((resolve, reject) => {
      watcher = () => {
        const value = look();
        if (value !== undefined) return resolve(value);
        if (this.end)
          reject(new Error(`ended with ${JSON.stringify(this.end)} before ${what}: ${this.said()}`));
      };
      this.watchers.add(watcher);
      watcher();
    });
    return within(limitMs, () => `${what}: ${this.said()}`, found).finally(() =>
      this.watchers.delete(watcher),
    );
  }

  // A place in the output: lines that are waited for from here on are new ones.
  mark() {
    return this.output.length;
  }

  /** @param {string} line */
  async waitForLine(line, from = 0, limitMs = waitLimitMs) {
    const wanted = `\n${line}\n`;
    await this.until(
      `the line ${JSON.stringify(line)}`,
      () => {
        const lines = `\n${this.output.slice(from)}`;
        return lines.includes(wanted) ? true : undefined;
      },
      limitMs,
    );
  }

  /** @param {NodeJS.Signals} name */
  signal(name) {
    this.child.kill(name);
  }

  kill() {
    if (!this.end) this.child.kill("SIGKILL");
  }

  async waitForEnd(limitMs = waitLimitMs) {
    return within(limitMs, () => `the end of ${this.said()}`, this.exited);
  }

  // Ends it as Ctrl+C does, and demands a clean end.
  /** @param {NodeJS.Signals} signal */
  async stop(signal = "SIGINT") {
    this.signal(signal);
    const end = await this.waitForEnd();
    assert.deepEqual(end, { code: 0, signal: null }, this.said());
    // Wine's sound library complains there of a machine without a sound card.
    assert.equal(isWine ? this.errors.replace(/^ALSA lib .*\n/gm, "") : this.errors, "");
  }
}

// Starts a program, of the class `kind`, that the test's end takes down.
/** @template {Program} [T=Program] @param {Scope} t @param {string} file @param {string[]} args @param {ProgramOptions} [options] @param {ProgramClass<T>} [kind] @returns {T} */
export function launch(t, file, args, options, kind = /** @type {ProgramClass<any>} */ (Program)) {
  const program = new kind(file, args, options);
  atEnd(t, async () => {
    program.kill();
    await program.waitForEnd().catch(() => {});
  });
  return program;
}

// Wine's own words when a new process failed ahead of its first step, which happens once in some ten thousand starts on
// a busy machine: those of its starter, and those of a process that lost its server. Nothing of the program has run.
const neverBegan = "ShellExecuteEx failed: Internal error.";
const lostServer = "wine client error:";
// The same, when it is the service that our command line starts (ERROR_INTERNAL_ERROR, winerror.h).
const serviceNeverBegan = "cannot be started (error 1359)";
// Once in some two thousand starts on a busy machine, Wine's loader ends with this code and writes nothing. No program of
// ours ends with it in silence. One that did would do so at each of the starts, and the last result counts.
const codeOfSilentLoader = 1;
const mostStarts = 3;

/** @param {Program} program */
function hasFailedInWine({ end, output, errors }) {
  if (!isWine || end === undefined || end.code === 0) return false;
  const isSilent = output === "" && errors === "";
  if (isSilent) return end.code === codeOfSilentLoader;
  if ([neverBegan, serviceNeverBegan].some((words) => (output + errors).includes(words))) return true;
  return output === "" && errors.includes(lostServer);
}

// Runs a program to its end. `errors` and `output` are bytes.
/** @param {Scope} t @param {string} file @param {string[]} args @param {ProgramOptions} [options] */
export async function run(t, file, args, options) {
  for (let start = 1; ; ++start) {
    const program = launch(t, file, args, options);
    const { code, signal } = await program.waitForEnd(startLimitMs);
    const { output, errors } = program;
    if (start === mostStarts || !hasFailedInWine(program)) return { code, signal, output, errors };
  }
}

// Starts a program and waits until `look` finds what it wants in the output. Gives the program and what was found.
/** @template F @template {Program} [T=Program] @param {Scope} t @param {string} file @param {string[]} args @param {ProgramOptions} options @param {string} what @param {(output: string) => F | undefined} look @param {ProgramClass<T>} [kind] @returns {Promise<[T, F]>} */
export async function launchUntil(t, file, args, options, what, look, kind) {
  for (let start = 1; ; ++start) {
    const program = launch(t, file, args, options, kind);
    try {
      return [program, await program.until(what, () => look(program.output), startLimitMs)];
    } catch (error) {
      if (start === mostStarts || !hasFailedInWine(program)) throw error;
    }
  }
}

// ---- the browser ----

// Puts a program named xdg-open first on the path. It leaves its arguments in a file.
export function makeBrowser() {
  const directory = makeDirectory();
  const seen = path.join(directory, "seen");
  const script = `#!/bin/sh\nprintf '%s\\n' "$#" "$@" > '${seen}.part'\nmv '${seen}.part' '${seen}'\n`;
  fs.writeFileSync(path.join(directory, "xdg-open"), script, { mode: 0o755 });
  return { seen, env: { PATH: `${directory}:${process.env.PATH}` } };
}

// ---- the service ----

// Below the range that the system gives to clients, so that no client of another test takes it.
let nextPort = 10_000 + ((process.pid * 37) % 20_000);

/** @param {number} port @returns {Promise<boolean>} */
function isFree(port) {
  return new Promise((resolve) => {
    const server = net.createServer();
    server.once("error", () => resolve(false));
    server.listen({ port, host: "127.0.0.1" }, () => server.close(() => resolve(true)));
  });
}

export async function freePort() {
  for (;;) {
    const port = nextPort;
    nextPort = port < 32_000 ? port + 1 : 10_000;
    if (await isFree(port)) return port;
  }
}

// The service, and what its clients ask it. The functions of the same names say more.
export class Service extends Program {
  port = 0;
  token = "";
  algorithm = "";
  mapping = "";
  webRoot = "";

  /** @param {ConnectOptions} [options] */
  connect(options) {
    return Client.connect(this, options);
  }

  /** @param {RequestOptions} [options] */
  requestBytes(options) {
    return requestBytes(this, options);
  }

  /** @param {string} method @param {string} target @param {string} [body] @param {Pair[]} [headers] */
  apiBytes(method, target, body, headers) {
    return apiBytes(this, method, target, body, headers);
  }

  /** @param {string} target @param {string} [body] @param {Pair[]} [headers] */
  putBytes(target, body, headers) {
    return putBytes(this, target, body, headers);
  }

  /** @param {string} bytes */
  exchange(bytes) {
    return exchange(this, bytes);
  }

  // Asks with the session token. `body` is the text that goes out, byte by byte.
  /** @param {string} method @param {string} target @param {string} [body] */
  ask(method, target, body) {
    return this.exchange(this.apiBytes(method, target, body));
  }

  // Asks with the session token, and demands this answer.
  /** @param {string} expected @param {string} method @param {string} target @param {string} [body] */
  async expect(expected, method, target, body) {
    assert.equal(await this.ask(method, target, body), expected);
  }

  // The same of a request that is given as its bytes.
  /** @param {string} expected @param {string} bytes */
  async expectFor(expected, bytes) {
    assert.equal(await this.exchange(bytes), expected);
  }

  assertAnswers() {
    return assertAnswers(this);
  }

  // The session as the status document shows it.
  async session() {
    return JSON.parse(utf8Text(bodyOf(await this.ask("GET", "/api/v1/status")))).session;
  }

  // Signs in by one poll. `fields` come on top of the issued ones.
  /** @param {AccountService} account @param {Record<string, unknown>} fields */
  async signIn(account, fields = {}) {
    account.answer("/api/v1/auth/poll", jsonReply({ ...issuedFields, ...fields }));
    const answer = await this.ask("GET", "/api/v1/account/poll?state=attempt");
    assert.equal(JSON.parse(utf8Text(bodyOf(answer))).status, "issued", answer);
  }
}

const bannerForm =
  /^Velmora 1\.2\.0 {2}\(algorithm ([^\n]*)\)\n {2}Open: http:\/\/127\.0\.0\.1:([0-9]+)\/\?token=([^\n]*)\n(?:[^]*\n)? {2}Press Ctrl\+C to stop\.\n/;

/** @type {string | undefined} */
let commonWebRoot;

// Starts the service and waits for its whole banner. It must end cleanly with the test.
/** @param {Scope} t @param {ServiceOptions} options */
export async function startService(t, options = {}) {
  const {
    program = creatingService(),
    port = await freePort(),
    mapping = uniqueMappingName(),
    token = developmentToken,
    more = [],
  } = options;
  commonWebRoot ??= makeWebRoot();
  const webRoot = options.webRoot ?? commonWebRoot;
  const args = ["--port", String(port), "--web-root", programPathText(webRoot), "--control-map", mapping];
  if (token !== null) args.push("--token", token);
  const look = (/** @type {string} */ output) => output.match(bannerForm) ?? undefined;
  const start = [...args, ...more];
  const [service, found] = await launchUntil(t, program, start, options, "the banner", look, Service);
  stopAtEnd(t, service);
  const [, algorithm, portText, tokenText] = found;
  return Object.assign(service, { algorithm, port: Number(portText), token: tokenText, mapping, webRoot });
}

// ---- the test effect and the record ----

/** @param {Scope} t @param {string} mapping @param {string[]} more @param {string} [firstLine] */
export async function startEffect(t, mapping, more = [], firstLine = undefined) {
  const args = ["--control-map", mapping, ...more];
  const look = (/** @type {string} */ output) => output.match(/^(mapping (?:made|opened))\n/)?.[1];
  const program = builtProgram("velmora_test_effect");
  const [effect, line] = await launchUntil(t, program, args, {}, "its mapping", look);
  stopAtEnd(t, effect);
  if (firstLine !== undefined) assert.equal(line, firstLine);
  return effect;
}

// Under Wine: another program holds a file so that it can be read, but neither written nor deleted. The command
// interpreter opens its input in that way and keeps it for as long as the program runs that it starts. Resolves, when
// it is held, to what waits for its release, which comes by itself.
/** @param {Scope} t @param {string} file */
export async function holdFile(t, file) {
  const heldMs = 5000;
  const effect = `${programPathText(builtProgram("velmora_test_effect"))} --control-map ${uniqueMappingName()}`;
  const command = `${effect} --exit-after-ms ${heldMs} < ${programPathText(file)}`;
  const holder = launch(t, "cmd", ["/c", command]);
  await holder.until(
    "the file to be held",
    () => (holder.output.includes("mapping made") ? true : undefined),
    startLimitMs,
  );
  return async () => {
    assert.equal(holder.end, undefined, "it was held until now");
    await holder.waitForEnd();
  };
}

// The record's bytes, as another process sees them.
/** @param {Scope} t @param {string} mapping */
export async function readRecord(t, mapping) {
  const printed = await run(t, builtProgram("velmora_print_record"), [mapping]);
  assert.equal(printed.errors, "");
  assert.equal(printed.code, 0);
  const lines = printed.output.split("\n");
  assert.equal(lines.pop(), "", "the last line is ended");
  assert.equal(lines.length, recordBytes / 16);
  lines.forEach((line, index) => {
    assert.match(line, /^[0-9a-f]{3} {2}[0-9a-f]{2}( [0-9a-f]{2}){15}$/);
    assert.equal(Number.parseInt(line.slice(0, 3), 16), index * 16);
  });
  return Buffer.from(lines.map((line) => line.slice(5).replaceAll(" ", "")).join(""), "hex");
}

// ---- the equalizer, as a body gives it and as the record holds it ----

// A number as the service writes it: 32 bits, then six significant digits as C's %g.
/** @param {number} value */
export function numberText(value) {
  const narrow = Math.fround(value);
  if (narrow === 0) return Object.is(narrow, -0) ? "-0" : "0";
  const [digits, exponentText] = narrow.toExponential(5).split("e");
  const exponent = Number(exponentText);
  if (exponent >= -4 && exponent < 6) return String(Number(narrow.toPrecision(6)));
  const sign = exponent < 0 ? "-" : "+";
  return `${Number(digits)}e${sign}${String(Math.abs(exponent)).padStart(2, "0")}`;
}

// The document that the service makes of a setting.
/** @param {Equalizer} setting */
export function equalizerDocument({ bypass, fade_ms, bands }) {
  const bandTexts = bands.map(
    ({ type, freq_hz, gain_db, q }) =>
      `{"type":${type},"freq_hz":${numberText(freq_hz)},"gain_db":${numberText(gain_db)},"q":${numberText(q)}}`,
  );
  return `{"bypass":${bypass},"fade_ms":${numberText(fade_ms)},"bands":[${bandTexts.join(",")}]}`;
}

// The setting and its revision, as the record's bytes say.
/** @param {Buffer} record */
export function equalizerIn(record) {
  const word = record.readBigUInt64LE(0xc8);
  const bands = Array.from({ length: 15 }, (_, index) => {
    const at = 0xd8 + index * 16;
    return {
      type: record.readInt32LE(at),
      freq_hz: record.readFloatLE(at + 4),
      gain_db: record.readFloatLE(at + 8),
      q: record.readFloatLE(at + 12),
    };
  });
  return {
    bypass: (word & 1n) === 1n,
    fade_ms: Number((word >> 32n) & 0xffffn) / 10,
    bands,
    revision: Number(record.readBigUInt64LE(0xd0)),
  };
}

// Fifteen bands that differ from each other and from a new record's.
export function someBands(shift = 0) {
  return Array.from({ length: 15 }, (_, index) => ({
    type: (index + shift) % 9,
    freq_hz: 31.25 * (index + 1) + shift,
    gain_db: index - 7.5,
    q: 0.5 + index / 10,
  }));
}

// ---- the endpoints, as the list gives them ----

// The list's document. An endpoint has `id` and `name`, and may have `peak`, `sessions` and, of render, `bound`. The
// marks follow from the ids.
/** @param {Devices} devices */
export function devicesDocument({
  render = [],
  capture = [],
  defaultRender = "",
  defaultCapture = "",
  selectedRender = defaultRender,
  selectedCapture = defaultCapture,
  error_code = 0,
} = {}) {
  /** @param {Endpoint} endpoint @param {string} defaultId @param {string} selectedId */
  const entry = ({ id, name, peak = 0, sessions = [] }, defaultId, selectedId, more = "") =>
    `{"id":${JSON.stringify(id)},"name":${JSON.stringify(name)},"is_default":${id === defaultId},` +
    `"is_selected":${id === selectedId},"peak":${numberText(peak)},"sessions":${JSON.stringify(sessions)}${more}}`;
  const renderEntries = render.map((endpoint) =>
    entry(endpoint, defaultRender, selectedRender, `,"apo_bound":${endpoint.bound ?? false}`),
  );
  const captureEntries = capture.map((endpoint) => entry(endpoint, defaultCapture, selectedCapture));
  const document =
    `{"render":[${renderEntries}],"capture":[${captureEntries}],` +
    `"default_render_endpoint_id":${JSON.stringify(defaultRender)},` +
    `"default_capture_endpoint_id":${JSON.stringify(defaultCapture)},` +
    `"selected_render_endpoint_id":${JSON.stringify(selectedRender)},` +
    `"selected_capture_endpoint_id":${JSON.stringify(selectedCapture)},"error_code":${error_code}}`;
  return Buffer.from(document, "utf8").toString("latin1");
}

/** @param {number | bigint} word */
export function hexWord(word) {
  return `0x${word.toString(16).padStart(16, "0")}`;
}

// ---- listening ----

// Starts listening, on any port of this machine by default. Gives the port.
/** @param {import("node:net").Server} server */
export async function listen(server, port = 0) {
  server.listen({ port, host: "127.0.0.1" });
  await once(server, "listening");
  return /** @type {net.AddressInfo} */ (server.address()).port;
}

// ---- the client ----

const fixedHeaders = [
  "Connection: close",
  "Cache-Control: no-store",
  "X-Content-Type-Options: nosniff",
  "Content-Security-Policy: default-src 'self'; script-src 'self' 'unsafe-inline'; style-src 'self' " +
    "'unsafe-inline'; img-src 'self' data:; connect-src 'self'; frame-ancestors 'none'",
];

export const jsonDocument = "application/json; charset=utf-8";

// A whole answer as its bytes must be.
/** @param {number} status @param {string} reason @param {string} contentType @param {string} body */
export function answerBytes(status, reason, contentType, body) {
  const head = [
    `HTTP/1.1 ${status} ${reason}`,
    `Content-Type: ${contentType}`,
    `Content-Length: ${body.length}`,
    ...fixedHeaders,
  ];
  return `${head.join("\r\n")}\r\n\r\n${body}`;
}

/** @param {number} status @param {string} reason @param {string} message */
export function refusalBytes(status, reason, message) {
  return answerBytes(status, reason, jsonDocument, `{"error":"${message}"}`);
}

export const answers = {
  done: answerBytes(200, "OK", "application/json", '{"ok":true}'),
  invalidRequest: refusalBytes(400, "Bad Request", "invalid request"),
  notLocal: refusalBytes(403, "Forbidden", "invalid local origin"),
  noToken: refusalBytes(401, "Unauthorized", "missing or invalid session token"),
  notFound: refusalBytes(404, "Not Found", "route not found"),
};

// The body of an answer.
/** @param {string} answer */
export function bodyOf(answer) {
  return answer.slice(answer.indexOf("\r\n\r\n") + 4);
}

// The bytes of a request. Headers are pairs, sent in their order; Host is first unless `host` is null.
/** @param {Peer} service @param {RequestOptions} options */
export function requestBytes(service, { method = "GET", target = "/", host, headers = [], body } = {}) {
  const lines = [`${method} ${target} HTTP/1.1`];
  if (host !== null) lines.push(`Host: ${host ?? `127.0.0.1:${service.port}`}`);
  for (const [name, value] of headers) lines.push(`${name}: ${value}`);
  if (body !== undefined) lines.push(`Content-Length: ${body.length}`);
  return `${lines.join("\r\n")}\r\n\r\n${body ?? ""}`;
}

// The bytes of a request with the session token.
/** @param {Peer} service @param {string} method @param {string} target @param {string} [body] @param {Pair[]} headers */
export function apiBytes(service, method, target, body, headers = []) {
  return requestBytes(service, {
    method,
    target,
    body,
    headers: [["X-Velmora-Token", service.token ?? ""], ...headers],
  });
}

/** @param {Peer} service @param {string} target @param {string} [body] @param {Pair[]} headers */
export function putBytes(service, target, body, headers = []) {
  return apiBytes(service, "PUT", target, body, headers);
}

// One connection to the service. What it sends and when it leaves is the test's choice.
export class Client {
  /** @param {Socket} socket */
  constructor(socket) {
    this.received = "";
    this.socket = socket;
    /** @type {Promise<{ bytes: string, reset: boolean, error?: Error }>} */
    this.answered = new Promise((resolve) => {
      socket.on("end", () => resolve({ bytes: this.received, reset: false }));
      socket.on("error", (error) => resolve({ bytes: this.received, reset: true, error }));
      socket.on("close", () => resolve({ bytes: this.received, reset: false }));
    });
  }

  // With `reads` false it leaves the answer where it is, but for the first piece that the runtime takes by itself.
  /** @param {Peer} service @param {ConnectOptions} options */
  static async connect(service, { reads = true } = {}) {
    const socket = net.connect({ port: service.port, host: "127.0.0.1", allowHalfOpen: true });
    const client = new Client(socket);
    socket.setNoDelay(true);
    socket.unref();
    if (reads) client.startReading();
    const connected = new Promise((resolve, reject) => {
      socket.once("connect", resolve);
      socket.once("error", reject);
    });
    await within(waitLimitMs, () => `a connection to port ${service.port}`, connected);
    return client;
  }

  // For a client that was connected with `reads` false: takes what has come and all that follows.
  startReading() {
    this.socket.setEncoding("latin1");
    this.socket.on("data", (/** @type {string} */ text) => {
      this.received += text;
    });
  }

  // Resolves when the system has taken the bytes. A peer that is gone is no failure here.
  /** @param {string} bytes */
  async send(bytes) {
    const taken = new Promise((resolve) => this.socket.write(bytes, "latin1", resolve));
    await within(waitLimitMs, () => "the socket to take bytes", taken);
  }

  // As send, but waits for nothing: for a peer that stops reading.
  /** @param {string} bytes */
  push(bytes) {
    this.socket.write(bytes, "latin1", () => {});
  }

  halfClose() {
    this.socket.end();
  }

  // Closes with a reset in place of an orderly end.
  reset() {
    this.socket.resetAndDestroy();
  }

  leave() {
    this.socket.destroy();
  }

  // For a client that was connected with `reads` false: waits until so many bytes of the answer have come, at most the
  // few thousand that the runtime takes by itself, and leaves them where they are.
  /** @param {number} count */
  async waitForFirstBytes(count, limitMs = waitLimitMs) {
    const look = () => (this.socket.readableLength >= count ? true : undefined);
    await poll(`${count} bytes of an answer`, look, limitMs);
  }

  // Everything up to the service's close.
  async answer(limitMs = waitLimitMs) {
    const soFar = () =>
      `an answer; so far ${this.received.length} bytes: ${JSON.stringify(this.received.slice(0, 2000))}`;
    const answer = await within(limitMs, soFar, this.answered);
    this.socket.destroy();
    return answer;
  }

  // Whether the service is silent for this long.
  /** @param {number} milliseconds */
  async isSilentFor(milliseconds) {
    const silent = Symbol("silent");
    const first = await Promise.race([this.answered, sleep(milliseconds).then(() => silent)]);
    return first === silent && this.received === "";
  }
}

// Sends bytes in one piece and gives all that comes back.
/** @param {Peer} service @param {string} bytes */
export async function exchange(service, bytes) {
  const client = await Client.connect(service);
  client.push(bytes);
  return (await client.answer()).bytes;
}

/** @param {Peer} service */
export async function assertAnswers(service) {
  assert.equal(await exchange(service, requestBytes(service, { target: "/api/" })), answers.noToken);
}

// ---- the account service ----

// A text as the bytes of its UTF-8, the way in which answers are read here, and the other way round.
/** @param {string} text */
export function utf8Bytes(text) {
  return Buffer.from(text).toString("latin1");
}

/** @param {string} bytes */
export function utf8Text(bytes) {
  return Buffer.from(bytes, "latin1").toString();
}

// A test account service that ends with the test.
/** @param {Scope} t @param {AccountOptions} [options] */
export async function startAccountService(t, options) {
  const account = await AccountService.start(options);
  atEnd(t, () => account.close());
  return account;
}

// The service with a test account service behind it, or with an address of the test's own.
/** @param {Scope} t @param {AccountService | string} account @param {ServiceOptions} options */
export function startServiceFor(t, account, options = {}) {
  const url = typeof account === "string" ? account : account.url;
  return startService(t, { ...options, more: ["--account-service", url, ...(options.more ?? [])] });
}

// What the service reads when a login attempt has come to its end.
export const issuedFields = { status: "issued", account_hash: "hash-1", session_token: "credential-1" };

export const noSession = {
  account: "",
  signed_in: false,
  usage_seconds: 0,
  signed_in_unix: 0,
  primary_machine_id: "",
  primary_known: false,
  public_id: "",
  referral_open: false,
  referrer: "",
  invite_url: "",
};

// A head without the escapes that Wine's library makes in a target by itself. It leaves a percent sign unchanged, so that
// what a test escapes on its own must be none of these.
/** @param {string} head */
export function undoWineEscapes(head) {
  if (isNative) return head;
  const madeByIt = /%(?:0[1-9A-F]|1[0-9A-F]|2[23]|3[CE]|5[CE]|60|7[BCDF]|[89A-F][0-9A-F])/g;
  const [targetLine] = head.split("\r\n", 1);
  const undone = targetLine.replace(madeByIt, (escape) =>
    String.fromCharCode(Number.parseInt(escape.slice(1), 16)),
  );
  return undone + head.slice(targetLine.length);
}

// A request as the account service sees it, but for Wine's escapes. Wine's library adds a line of its own, and has an
// order of its own.
/** @param {AccountService} account @param {string} method @param {string} target */
export function accountRequestBytes(account, method, target, body = "") {
  const host = `Host: 127.0.0.1:${account.port}`;
  const userAgent = "User-Agent: Velmora/1.1";
  const type = body === "" ? [] : ["Content-Type: application/json"];
  const length = body === "" ? [] : [`Content-Length: ${body.length}`];
  const lines = isNative
    ? [host, userAgent, ...type, ...length]
    : [userAgent, host, ...length, "Connection: Keep-Alive", ...type];
  return `${[`${method} ${target} HTTP/1.1`, ...lines].join("\r\n")}\r\n\r\n${body}`;
}
