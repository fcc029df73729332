// Drives the real programs from outside: starts them, speaks to the service over raw sockets, reads the shared
// record, and ends everything again.
//
// The environment says what to drive: VELMORA_BUILD is the build directory, VELMORA_TARGET is `native` or `wine`.
// Every wait has a limit, given in milliseconds. Text from programs and sockets is held byte by byte (latin1), so
// that comparisons are exact.
import assert from "node:assert/strict";
import { execFileSync, spawn } from "node:child_process";
import fs from "node:fs";
import net from "node:net";
import os from "node:os";
import path from "node:path";

import { AccountService, jsonReply } from "../programs/account/service.mjs";

export const isWine = process.env.VELMORA_TARGET === "wine";
export const isNative = !isWine;
export const buildDirectory = path.resolve(process.env.VELMORA_BUILD ?? "build/native");
const programSuffix = isWine ? ".exe" : "";

// A loaded machine and a sanitizer are slow; a program that hangs is slower still.
export const startLimitMs = 30_000;
export const waitLimitMs = 15_000;
const pollIntervalMs = 20;

export const developmentToken = "0123456789abcdef0123456789abcdef";
export const recordBytes = 576;

// ---- what must be ended, whatever happens ----

const alive = new Set();
const directories = new Set();
const mappingNames = new Set();
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

// ---- waiting ----

export function sleep(milliseconds) {
  return new Promise((resolve) => setTimeout(resolve, milliseconds));
}

// The promise's value, or a failure that names what was waited for. The timer keeps this process alive: sockets and
// programs do not, so that a failed test never hangs on what it left.
export async function within(limitMs, what, promise) {
  let timer;
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
export async function poll(what, look, limitMs = waitLimitMs) {
  const deadline = Date.now() + limitMs;
  for (;;) {
    const value = await look();
    if (value !== undefined) return value;
    if (Date.now() > deadline) throw new Error(`waited ${limitMs} ms for ${what}`);
    await sleep(pollIntervalMs);
  }
}

// ---- files ----

export function makeDirectory(name = "") {
  const directory = fs.mkdtempSync(path.join(os.tmpdir(), "velmora-e2e-"));
  directories.add(directory);
  if (name === "") return directory;
  fs.mkdirSync(path.join(directory, name));
  return path.join(directory, name);
}

function unmount(directory) {
  // Lazily: whoever still uses it keeps it until then, and nothing of it stays in the tree.
  execFileSync("umount", ["--lazy", directory]);
  disks.delete(directory);
}

// A disk of its own with room for so many bytes, in pages of 4096, until the test ends. Needs root, as ./test does.
export function makeSmallDisk(t, bytes) {
  const directory = makeDirectory();
  execFileSync("mount", ["-t", "tmpfs", "-o", `size=${bytes}`, "velmora-test", directory]);
  disks.add(directory);
  t.after(() => unmount(directory));
  return { directory, makeReadOnly: () => execFileSync("mount", ["-o", "remount,ro", directory]) };
}

// A path as the program under test writes it.
export function programPathText(systemPath) {
  return isWine ? `Z:${systemPath.replaceAll("/", "\\")}` : systemPath;
}

export const pageNames = ["index.html", "advanced.html", "velmora-eq.js", "help.html"];

// A web root of the tests' own. A page given as null is left out.
export function makeWebRoot(pages = {}, name = "") {
  const directory = makeDirectory(name);
  for (const page of pageNames) {
    const content = page in pages ? pages[page] : `the page ${page}\n`;
    if (content !== null) fs.writeFileSync(path.join(directory, page), content);
  }
  return directory;
}

// ---- programs ----

export function builtProgram(name) {
  return path.join(buildDirectory, name + programSuffix);
}

// The service as it is shipped.
export const shippedService = builtProgram("velmora_control_demo");

let patchedCopy;

// The service that can make a mapping by itself. Natively it is the program as it stands. Wine 8 refuses one trustee
// of the mapping's descriptor, WR; in a copy it is renamed to WD, which has the same length.
export function creatingService() {
  if (isNative) return shippedService;
  if (patchedCopy) return patchedCopy;
  const image = fs.readFileSync(shippedService);
  const refused = Buffer.from(";;;WR)", "utf16le");
  const place = image.indexOf(refused);
  assert.notEqual(place, -1, "the program holds the descriptor as one wide text");
  assert.equal(image.indexOf(refused, place + 1), -1, "the descriptor stands in the program once");
  Buffer.from(";;;WD)", "utf16le").copy(image, place);
  const copy = path.join(makeDirectory(), path.basename(shippedService));
  fs.writeFileSync(copy, image, { mode: 0o755 });
  patchedCopy = copy;
  return patchedCopy;
}

// The native service without root's right to pass over the modes of files.
export function makeUnprivilegedService() {
  if (process.getuid() !== 0) return shippedService;
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
let commonDrives;
function environmentWith(more) {
  commonDrives ??= makeDirectory();
  const inherited = Object.entries(process.env).filter(([name]) => !personalVariables.test(name));
  return { WINEDEBUG: "-all", ...Object.fromEntries(inherited), VELMORA_DRIVES: commonDrives, ...more };
}

// A started program, its output so far, and its end.
export class Program {
  // With `ofSystem` true it is a program of this system, whatever the target. `wrapper` is a command of this system
  // that starts the one behind it. With `withInput` true standard input is `child.stdin`, else there is none.
  constructor(file, args, { env = {}, cwd, ofSystem = false, wrapper = [], withInput = false } = {}) {
    const command = [...wrapper, ...(isWine && !ofSystem ? ["wine"] : []), file, ...args];
    const environment = environmentWith(env);
    this.name = `${path.basename(file)} ${args.join(" ")}`;
    this.output = "";
    this.errors = "";
    this.watchers = new Set();
    this.child = spawn(command[0], command.slice(1), {
      cwd,
      env: environment,
      stdio: [withInput ? "pipe" : "ignore", "pipe", "pipe"],
    });
    alive.add(this);
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
    this.collect(this.child.stdout, "output");
    this.collect(this.child.stderr, "errors");
    this.child.unref();
  }

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
  until(what, look, limitMs = waitLimitMs) {
    let watcher;
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
  async stop(signal = "SIGINT") {
    this.signal(signal);
    const end = await this.waitForEnd();
    assert.deepEqual(end, { code: 0, signal: null }, this.said());
    // Wine's sound library complains there of a machine without a sound card.
    assert.equal(isWine ? this.errors.replace(/^ALSA lib .*\n/gm, "") : this.errors, "");
  }
}

// Starts a program that the test's end takes down, however it ends.
export function launch(t, file, args, options) {
  const program = new Program(file, args, options);
  t.after(async () => {
    program.kill();
    await program.waitForEnd().catch(() => {});
  });
  return program;
}

// Wine's own words when a new process failed ahead of its first step, which happens once in some ten thousand starts on
// a busy machine: those of its starter, and those of a process that lost its server. Nothing of the program has run.
const neverBegan = "ShellExecuteEx failed: Internal error.";
const lostServer = "wine client error:";
const mostStarts = 3;

function hasFailedInWine({ end, output, errors }) {
  if (!isWine || end === undefined || end.code === 0) return false;
  return (output + errors).includes(neverBegan) || (output === "" && errors.includes(lostServer));
}

// Runs a program to its end. `errors` and `output` are bytes.
export async function run(t, file, args, options) {
  for (let start = 1; ; ++start) {
    const program = launch(t, file, args, options);
    const { code, signal } = await program.waitForEnd(startLimitMs);
    const { output, errors } = program;
    if (start === mostStarts || !hasFailedInWine(program)) return { code, signal, output, errors };
  }
}

// Starts a program and waits until `look` finds what it wants in the output. Gives the program and what was found.
async function launchUntil(t, file, args, options, what, look) {
  for (let start = 1; ; ++start) {
    const program = launch(t, file, args, options);
    try {
      return [program, await program.until(what, () => look(program.output), startLimitMs)];
    } catch (error) {
      if (start === mostStarts || !hasFailedInWine(program)) throw error;
    }
  }
}

// ---- the service ----

// Below the range that the system gives to clients, so that no client of another test takes it.
let nextPort = 10_000 + ((process.pid * 37) % 20_000);

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

const bannerForm =
  /^Velmora 1\.2\.0 {2}\(algorithm ([^\n]*)\)\n {2}Open: http:\/\/127\.0\.0\.1:([0-9]+)\/\?token=([^\n]*)\n(?:[^]*\n)? {2}Press Ctrl\+C to stop\.\n/;

let commonWebRoot;

// Starts the service and waits for its whole banner. Gives the program with `port`, `token` and `algorithm` as the
// banner names them.
//   program   which copy of the service; the one that can make its mapping by itself when not given
//   token     null: let the service make one
//   port, mapping, webRoot, more, env, cwd, wrapper
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
  const look = (output) => output.match(bannerForm) ?? undefined;
  const [service, [, algorithm, portText, tokenText]] = await launchUntil(
    t,
    program,
    [...args, ...more],
    options,
    "the banner",
    look,
  );
  return Object.assign(service, { algorithm, port: Number(portText), token: tokenText, mapping, webRoot });
}

// ---- the test effect and the record ----

export async function startEffect(t, mapping, more = [], firstLine = undefined) {
  const args = ["--control-map", mapping, ...more];
  const look = (output) => output.match(/^(mapping (?:made|opened))\n/)?.[1];
  const [effect, line] = await launchUntil(
    t,
    builtProgram("velmora_test_effect"),
    args,
    {},
    "its mapping",
    look,
  );
  if (firstLine !== undefined) assert.equal(line, firstLine);
  return effect;
}

// Under Wine: another program holds a file so that it can be read, but neither written nor deleted. The command
// interpreter opens its input in that way and keeps it for as long as the program runs that it starts. Resolves, when
// it is held, to what waits for its release, which comes by itself.
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
export function equalizerDocument({ bypass, fade_ms, bands }) {
  const bandTexts = bands.map(
    ({ type, freq_hz, gain_db, q }) =>
      `{"type":${type},"freq_hz":${numberText(freq_hz)},"gain_db":${numberText(gain_db)},"q":${numberText(q)}}`,
  );
  return `{"bypass":${bypass},"fade_ms":${numberText(fade_ms)},"bands":[${bandTexts.join(",")}]}`;
}

// The setting and its revision, as the record's bytes say.
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
export function devicesDocument({
  render = [],
  capture = [],
  defaultRender = "",
  defaultCapture = "",
  selectedRender = defaultRender,
  selectedCapture = defaultCapture,
  error_code = 0,
} = {}) {
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

export function hexWord(word) {
  return `0x${word.toString(16).padStart(16, "0")}`;
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
export function answerBytes(status, reason, contentType, body) {
  const head = [
    `HTTP/1.1 ${status} ${reason}`,
    `Content-Type: ${contentType}`,
    `Content-Length: ${body.length}`,
    ...fixedHeaders,
  ];
  return `${head.join("\r\n")}\r\n\r\n${body}`;
}

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
export function bodyOf(answer) {
  return answer.slice(answer.indexOf("\r\n\r\n") + 4);
}

// The bytes of a request. Headers are pairs, sent in their order; Host stands first unless `host` is null.
export function requestBytes(service, { method = "GET", target = "/", host, headers = [], body } = {}) {
  const lines = [`${method} ${target} HTTP/1.1`];
  if (host !== null) lines.push(`Host: ${host ?? `127.0.0.1:${service.port}`}`);
  for (const [name, value] of headers) lines.push(`${name}: ${value}`);
  if (body !== undefined) lines.push(`Content-Length: ${body.length}`);
  return `${lines.join("\r\n")}\r\n\r\n${body ?? ""}`;
}

// The bytes of a request with the session token.
export function apiBytes(service, method, target, body, headers = []) {
  return requestBytes(service, {
    method,
    target,
    body,
    headers: [["X-Velmora-Token", service.token], ...headers],
  });
}

export function putBytes(service, target, body, headers = []) {
  return apiBytes(service, "PUT", target, body, headers);
}

// One connection to the service. What it sends and when it leaves is the test's choice.
export class Client {
  // With `reads` false it leaves the answer where it is, but for the first piece that the runtime takes by itself.
  static async connect(service, { reads = true } = {}) {
    const client = new Client();
    client.received = "";
    client.socket = net.connect({ port: service.port, host: "127.0.0.1", allowHalfOpen: true });
    client.socket.setNoDelay(true);
    client.socket.unref();
    client.answered = new Promise((resolve) => {
      client.socket.on("end", () => resolve({ bytes: client.received, reset: false }));
      client.socket.on("error", (error) => resolve({ bytes: client.received, reset: true, error }));
      client.socket.on("close", () => resolve({ bytes: client.received, reset: false }));
    });
    if (reads) client.startReading();
    const connected = new Promise((resolve, reject) => {
      client.socket.once("connect", resolve);
      client.socket.once("error", reject);
    });
    await within(waitLimitMs, () => `a connection to port ${service.port}`, connected);
    return client;
  }

  // For a client that was connected with `reads` false: takes what has come and all that follows.
  startReading() {
    this.socket.setEncoding("latin1");
    this.socket.on("data", (text) => {
      this.received += text;
    });
  }

  // Resolves when the system has taken the bytes. A peer that is gone is no failure here.
  async send(bytes) {
    const taken = new Promise((resolve) => this.socket.write(bytes, "latin1", () => resolve()));
    await within(waitLimitMs, () => "the socket to take bytes", taken);
  }

  // As send, but waits for nothing: for a peer that stops reading.
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
  async isSilentFor(milliseconds) {
    const silent = Symbol("silent");
    const first = await Promise.race([this.answered, sleep(milliseconds).then(() => silent)]);
    return first === silent && this.received === "";
  }
}

// Sends bytes in one piece and gives all that comes back.
export async function exchange(service, bytes) {
  const client = await Client.connect(service);
  client.push(bytes);
  return (await client.answer()).bytes;
}

// Asks with the session token. `body` is the text that goes out, byte by byte.
export function ask(service, method, target, body) {
  return exchange(service, apiBytes(service, method, target, body));
}

export async function assertAnswers(service) {
  assert.equal(await exchange(service, requestBytes(service, { target: "/api/" })), answers.noToken);
}

// ---- the account service ----

// A text as the bytes of its UTF-8, the way in which answers are read here, and the other way round.
export function utf8Bytes(text) {
  return Buffer.from(text).toString("latin1");
}

export function utf8Text(bytes) {
  return Buffer.from(bytes, "latin1").toString();
}

// A test account service that ends with the test.
export async function startAccountService(t, options) {
  const account = await AccountService.start(options);
  t.after(() => account.close());
  return account;
}

// The service with a test account service behind it, or with an address of the test's own.
export function startServiceFor(t, account, options = {}) {
  const url = typeof account === "string" ? account : account.url;
  return startService(t, { ...options, more: ["--account-service", url, ...(options.more ?? [])] });
}

// What the service reads when a login attempt has come to its end.
export const issuedFields = { status: "issued", account_hash: "hash-1", session_token: "credential-1" };

// Signs in by one poll. `fields` come on top of those above.
export async function signIn(service, account, fields = {}) {
  account.answer("/api/v1/auth/poll", jsonReply({ ...issuedFields, ...fields }));
  const answer = await ask(service, "GET", "/api/v1/account/poll?state=attempt");
  assert.equal(JSON.parse(utf8Text(bodyOf(answer))).status, "issued", answer);
}

// The session as the status document shows it.
export async function sessionOf(service) {
  const document = bodyOf(await ask(service, "GET", "/api/v1/status"));
  return JSON.parse(utf8Text(document)).session;
}

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

// A head without the escapes that Wine's library makes in a target by itself. It leaves a percent sign alone, so that
// what a test escapes on its own must be none of these.
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
