// Counts the instructions that the service executes: node benchmarks/callgrind.mjs [BUILD_DIRECTORY] [WEB_ROOT]
//
// Counted is what the processor executes outside the kernel in the service's process: the program with the parts of the
// C++ library linked into it, the C library, and for the start also the loader. The kernel is not counted. valgrind counts
// each step of a repeated string instruction (`rep movsb`), so a copy of 2 KB and more costs one instruction for each byte.
//
// valgrind writes its counts each time that a function is entered: the loop, which is the end of the start, and the
// handler of a connection. The count from one entry of the handler to the next is one request: its handling, the
// end of its connection, one pass of the loop, one wait, one accept. A request costs the count of the last M of N
// requests divided by M, the difference between N and N - M. The first ones are left out because the loader
// resolves each function of the C library on first use.
import { execFileSync } from "node:child_process";
import fs from "node:fs";
import os from "node:os";
import path from "node:path";

import { askers, requestOf, shapes } from "./browser_requests.mjs";
import { exchange, pause, startPlainly } from "./plain_service.mjs";
import { addResultRow } from "./result_rows.mjs";

const build = path.resolve(process.argv[2] ?? "build/native");
const webRoot = path.resolve(process.argv[3] ?? path.join(build, "web"));
const program = path.join(build, "velmora_control_demo");
const pageFiles = ["index.html", "advanced.html", "velmora-eq.js", "help.html"];

const firstRequests = 6;
const countedRequests = 10;
const dumpLimitMs = 30_000;

const loopEntry = "velmora::serve_until_stopped*";
const handlerEntry = "velmora::handle_connection*";

/** Instructions. Aims of the requests by shape and asker; those of the start are below. */
/** @type {Record<string, Record<string, number>>} */
const aims = {
  footstep: { needed: 3500, Chromium: 4500, Firefox: 4500 },
  page: { needed: 2500, Chromium: 3500, Firefox: 3500 },
};
const startAim = 150_000;
const pageByteAim = 1;

/**
 * @typedef {object} Dump What was executed up to a point.
 * @property {string} entry the function whose entry is the point
 * @property {number} total
 * @property {Map<string, number>} objects instructions by file
 */

/**
 * Adds up the lines of a dump. A line behind `calls=` is the cost of a call, which the callee's own lines have already.
 * @param {string} text
 * @returns {Dump}
 */
function readDump(text) {
  /** @type {Map<string, string>} */
  const names = new Map();
  /** @type {Map<string, number>} */
  const objects = new Map();
  let object = "";
  let isCall = false;
  for (const line of text.split("\n")) {
    const named = /^(c?)ob=(\(\d+\))(?: (.*))?$/.exec(line);
    if (named) {
      if (named[3] !== undefined) names.set(named[2], named[3]);
      if (named[1] === "") object = names.get(named[2]) ?? "";
    } else if (line.startsWith("calls=")) {
      isCall = true;
    } else if (/^[-+*\d]\S* \d+$/.test(line)) {
      if (!isCall) objects.set(object, (objects.get(object) ?? 0) + Number(line.split(" ")[1]));
      isCall = false;
    }
  }
  const entry = /^desc: Trigger: --dump-before=(\S+?)\(/m.exec(text)?.[1] ?? "";
  return { entry, total: Number(/^totals: (\d+)/m.exec(text)?.[1]), objects };
}

/**
 * @param {string} directory
 * @returns {Dump[]} in the order in which valgrind wrote them, without the last, of the stop
 */
const readDumps = (directory) =>
  fs
    .readdirSync(directory)
    .map((name) => Number(/^counts\.(\d+)$/.exec(name)?.[1]))
    .filter((number) => number > 0)
    .sort((one, other) => one - other)
    .map((number) => readDump(fs.readFileSync(path.join(directory, `counts.${number}`), "utf8")));

/** @param {string} name */
const isHandler = (name) => name === handlerEntry.replace("*", "");

/**
 * Runs the service under valgrind and sends it one request again and again.
 * @param {string} root the web root
 * @param {(port: number) => string} request
 * @returns {Promise<Dump[]>}
 */
async function count(root, request) {
  const directory = fs.mkdtempSync(path.join(os.tmpdir(), "velmora-callgrind-"));
  try {
    const service = await startPlainly(program, root, [
      "valgrind",
      "--quiet",
      "--tool=callgrind",
      `--callgrind-out-file=${path.join(directory, "counts")}`,
      `--dump-before=${loopEntry}`,
      `--dump-before=${handlerEntry}`,
    ]);
    for (let sent = 0; sent < firstRequests + countedRequests; ++sent) {
      const answer = await exchange(service.port, request(service.port));
      if (!answer.startsWith("HTTP/1.1 200 OK\r\n"))
        throw new Error(`an answer begins with ${answer.slice(0, 40)}`);
    }
    // One more, so that the last one that counts has an end.
    await exchange(service.port, request(service.port));
    const limit = Date.now() + dumpLimitMs;
    while (readDumps(directory).length < firstRequests + countedRequests + 2 && Date.now() < limit)
      await pause(50);
    await service.stop();
    return readDumps(directory);
  } finally {
    fs.rmSync(directory, { recursive: true });
  }
}

/** @param {Dump[]} dumps @returns {Dump} the start: all up to the loop */
function startOf(dumps) {
  if (dumps.length === 0 || isHandler(dumps[0].entry))
    throw new Error("valgrind wrote no count of the start");
  return dumps[0];
}

/** @param {Dump[]} dumps @returns {{ each: number, own: number }} instructions for one request; own: of the program's file */
function requestCost(dumps) {
  const counted = dumps.slice(-countedRequests);
  if (counted.length < countedRequests || !counted.every((dump) => isHandler(dump.entry))) {
    throw new Error("valgrind wrote too few counts");
  }
  const sum = counted.reduce((all, dump) => all + dump.total, 0);
  const own = counted.reduce((all, dump) => all + (dump.objects.get(program) ?? 0), 0);
  return { each: sum / countedRequests, own: own / countedRequests };
}

/** @param {string} root */
const bytesIn = (root) => pageFiles.reduce((sum, name) => sum + fs.statSync(path.join(root, name)).size, 0);

/** @param {number} value @param {number} [digits] */
const shown = (value, digits = 0) =>
  value.toLocaleString("en-US", { minimumFractionDigits: digits, maximumFractionDigits: digits });

/**
 * Judges a count and adds it to the table of ./bench.
 * @param {string} name @param {number} value @param {number | undefined} aim @param {number} [digits]
 */
function verdict(name, value, aim, digits = 0) {
  const row = { part: "instructions, Linux", name, ours: shown(value, digits), ratio: shown(value, digits) };
  if (aim === undefined) {
    addResultRow(row);
    return "none";
  }
  const isMet = value <= aim;
  addResultRow({ ...row, aim: `<= ${shown(aim, digits)}`, isMet });
  return `  <= ${shown(aim, digits)}: ${isMet ? "met" : "missed"}`;
}

/** @param {string[]} cells */
const row = ([name, ...cells]) =>
  console.log(name.padEnd(32) + cells.map((cell) => cell.padStart(15)).join(""));

/** @param {string} root a directory for four pages of one byte */
function writeSmallPages(root) {
  for (const name of pageFiles) fs.writeFileSync(path.join(root, name), "x");
}

/** Prints the start with pages of one byte each, and what the real pages add to it. */
async function printStart() {
  const small = fs.mkdtempSync(path.join(os.tmpdir(), "velmora-pages-"));
  writeSmallPages(small);
  const request = (/** @type {number} */ port) => requestOf(shapes.page, askers.needed, port);
  const without = startOf(await count(small, request));
  const whole = startOf(await count(webRoot, request));
  fs.rmSync(small, { recursive: true });
  const added = whole.total - without.total;
  const perByte = added / (bytesIn(webRoot) - pageFiles.length);
  row(["start until the loop", "all", "the program's", "aim"]);
  row([
    "with pages of one byte",
    shown(without.total),
    shown(without.objects.get(program) ?? 0),
    verdict("start, pages of one byte", without.total, startAim),
  ]);
  row([`the pages, ${shown(bytesIn(webRoot))} bytes`, shown(added), "", ""]);
  row([
    "for each of their bytes",
    shown(perByte, 2),
    "",
    verdict("start, for each byte of the pages", perByte, pageByteAim, 2),
  ]);
  console.log("\nthe start with pages of one byte, by file");
  const files = [...without.objects].sort((one, other) => other[1] - one[1]);
  for (const [file, instructions] of files) row([path.basename(file), shown(instructions)]);
}

const version = execFileSync("valgrind", ["--version"], { encoding: "utf8" }).trim();
console.log(`${version}, ${program}\n`);
row(["instructions for each request", "all", "the program's", "aim"]);
for (const [shapeName, shape] of Object.entries(shapes)) {
  for (const [askerName, headersOf] of Object.entries(askers)) {
    const cost = requestCost(await count(webRoot, (port) => requestOf(shape, headersOf, port)));
    const name = askerName === "needed" ? shapeName : `${shapeName}, as ${askerName}`;
    row([name, shown(cost.each), shown(cost.own), verdict(name, cost.each, aims[shapeName]?.[askerName])]);
  }
}
console.log();
await printStart();
