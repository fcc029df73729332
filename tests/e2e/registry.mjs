// Machines for the tests: registry exports that the programs work on, and what a program changed in them.
//
// Natively a machine is an export file, named by VELMORA_MACHINE. Under Wine its audio devices and its binding records
// are put into the prefix's registry and taken out again when the test ends. Data of values is written as in an export,
// in one line.
import assert from "node:assert/strict";
import fs from "node:fs";
import path from "node:path";

import { atEnd, builtProgram, isWine, makeDirectory, programPathText, run } from "./harness.mjs";

/** @typedef {import("./harness.mjs").Scope} Scope */
/** @typedef {any[]} Key [path, values]: a path, and the values below it as [name, data] */

const root = "HKEY_LOCAL_MACHINE\\";
export const devicesPath = `${root}SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\MMDevices`;
export const renderPath = `${devicesPath}\\Audio\\Render`;
export const velmoraPath = `${root}SOFTWARE\\Velmora`;
export const recordsPath = `${velmoraPath}\\DevBinding`;

const header = "Windows Registry Editor Version 5.00\r\n\r\n";
const fullLineColumns = 77;

// ---- data of values ----

/** @param {number} type @param {Iterable<number>} bytes */
export function hexData(type, bytes) {
  return `hex(${type.toString(16)}):${[...bytes].map((byte) => byte.toString(16).padStart(2, "0")).join(",")}`;
}

/** @param {string} text */
export function textData(text) {
  return `"${text.replaceAll("\\", "\\\\").replaceAll('"', '\\"')}"`;
}

// REG_MULTI_SZ.
/** @param {string[]} entries */
export function listData(entries) {
  return hexData(7, Buffer.from([...entries, ""].map((entry) => `${entry}\0`).join(""), "utf16le"));
}

/** @param {number} value */
export function dwordData(value) {
  return `dword:${value.toString(16).padStart(8, "0")}`;
}

// ---- exports as text ----

// A long list of bytes in lines, as Windows breaks it.
/** @param {string} line */
export function wrap(line) {
  if (!line.includes("=hex")) return line;
  const lines = [""];
  for (const piece of line.split(/(?<=,)/)) {
    const last = lines[lines.length - 1];
    if (last.endsWith(",") && last.length >= fullLineColumns) lines.push("  ");
    lines[lines.length - 1] += piece;
  }
  return lines.join("\\\r\n");
}

// The export of a machine with these keys, given as [path, values] with values as [name, data]. The keys above them are
// there too.
/** @param {Key[]} keys */
export function exportText(keys) {
  const machine = new Map();
  for (const [key, values] of keys) {
    const names = key.split("\\");
    for (let depth = 2; depth < names.length; ++depth) {
      const above = names.slice(0, depth).join("\\");
      if (!machine.has(above)) machine.set(above, []);
    }
    machine.set(key, values);
  }
  const sorted = [...machine].sort(([left], [right]) => {
    const [a, b] = [left, right].map((key) => key.toUpperCase().replaceAll("\\", "\x01"));
    return a < b ? -1 : 1;
  });
  const blocks = sorted.map(([key, values]) =>
    [
      `[${key}]`,
      ...values.map((/** @type {string[]} */ [name, data]) => wrap(`"${name}"=${data}`)),
      "\r\n",
    ].join("\r\n"),
  );
  return header + blocks.join("");
}

// An export as one entry for each key, `[KEY]`, and for each value, `[KEY] "NAME"=DATA`, in its order.
/** @param {string} text */
export function entriesOf(text) {
  /** @type {string[]} */
  const entries = [];
  let key = "";
  for (const line of text.replaceAll("\\\r\n  ", "").split("\r\n")) {
    if (line.startsWith("[")) entries.push((key = line));
    else if (key !== "" && line !== "") entries.push(`${key} ${line}`);
  }
  return entries;
}

// What differs between two exports, sorted. Entries in both must have kept their order.
/** @param {string} before @param {string} after */
export function difference(before, after) {
  const [oldEntries, newEntries] = [entriesOf(before), entriesOf(after)];
  const [oldSet, newSet] = [new Set(oldEntries), new Set(newEntries)];
  assert.deepEqual(
    newEntries.filter((entry) => oldSet.has(entry)),
    oldEntries.filter((entry) => newSet.has(entry)),
    "what stays keeps its order",
  );
  return {
    removed: oldEntries.filter((entry) => !newSet.has(entry)).sort(),
    added: newEntries.filter((entry) => !oldSet.has(entry)).sort(),
  };
}

/** @param {string} key */
export function keyEntry(key) {
  return `[${key}]`;
}

/** @param {string} key @param {string} name @param {string} data */
export function valueEntry(key, name, data) {
  return `[${key}] "${name}"=${data}`;
}

// The export without the keys above the binding records, which stay once they have been made.
/** @param {string} text */
export function withoutRecordParents(text) {
  return text.replace(`[${velmoraPath}]\r\n\r\n`, "").replace(`[${recordsPath}]\r\n\r\n`, "");
}

// ---- machines ----

/** @param {string} key */
const systemName = (key) => key.replace(root, "HKLM\\");

/** @param {Scope} t @param {string[]} args */
async function reg(t, ...args) {
  const first = await run(t, "reg", args);
  // A reg that fails without a word was lost by Wine before its first step, as a service may be (harness.mjs).
  return first.code !== 0 && first.output + first.errors === "" ? run(t, "reg", args) : first;
}

/** @param {Scope} t @param {string[]} args */
async function regSucceeds(t, ...args) {
  const { code, output, errors } = await reg(t, ...args);
  assert.equal(code, 0, `reg ${args.join(" ")}: ${output}${errors}`);
}

// False when the key is missing; any other failure is one.
/** @param {Scope} t @param {string[]} args */
async function regFinds(t, ...args) {
  const { code, output, errors } = await reg(t, ...args);
  const said = `reg ${args.join(" ")}: ${code} ${output}${errors}`;
  if (code !== 0) assert.match(output + errors, /Unable to find the specified registry key/, said);
  return code === 0;
}

// A key that is not there is as good as deleted.
/** @param {Scope} t @param {string} key */
async function deleteKey(t, key) {
  await regFinds(t, "delete", systemName(key), "/f");
}

// The first of these keys, from the topmost down, that is missing.
/** @param {Scope} t @param {string[]} keys */
async function firstMissing(t, keys) {
  for (const key of keys) {
    if (!(await regFinds(t, "query", systemName(key)))) return [key];
  }
  return [];
}

// Under Wine: these keys, and all below them, are put back at the test's end to what they are now.
/** @param {Scope} t @param {string[]} keys */
export async function keepKeys(t, keys) {
  for (const key of keys) {
    const file = path.join(makeDirectory(), "kept.reg");
    const isThere = await regFinds(t, "export", systemName(key), programPathText(file), "/y");
    atEnd(t, async () => {
      await deleteKey(t, key);
      if (isThere) await regSucceeds(t, "import", programPathText(file));
    });
  }
}

// Under Wine: writes a REG_SZ; a key that is missing is made.
/** @param {Scope} t @param {string} key @param {string} name @param {string} text */
export async function setText(t, key, name, text) {
  await regSucceeds(t, "add", systemName(key), "/v", name, "/d", text, "/f");
}

// Under Wine: makes a key.
/** @param {Scope} t @param {string} key */
export async function addKey(t, key) {
  await regSucceeds(t, "add", systemName(key), "/f");
}

// An export of one key as its blocks, each with an empty line behind it; empty when the key is missing.
/** @param {Scope} t @param {string} key */
export async function blocksBelow(t, key) {
  const file = path.join(makeDirectory(), "export.reg");
  if (!(await regFinds(t, "export", systemName(key), programPathText(file), "/y"))) return "";
  const text = fs.readFileSync(file, "utf16le").replace(/^\ufeff/, "");
  assert.ok(text.startsWith(header), "an export of the registry editor");
  return text.slice(header.length).replace(/(\r\n)*$/, "\r\n\r\n");
}

/** @param {string} text */
function blocksOf(text) {
  return text.split(/(?=^\[)/m).slice(1);
}

/** @param {string} block */
const blockKey = (block) => block.slice(1, block.indexOf("]\r\n"));

/** @param {string} key @param {string} above */
const isBelow = (key, above) => key === above || key.startsWith(`${above}\\`);

// The keys that a machine's end removes: each endpoint and each record, whole.
const ownKeyForm = /^.*\\(?:MMDevices\\Audio\\(?:Render|Capture)|Velmora\\DevBinding)\\\{[^\\]*\}/;

/** @param {Scope} t @param {string} text */
async function putIntoRegistry(t, text) {
  const blocks = blocksOf(text).filter((block) =>
    [devicesPath, velmoraPath].some((above) => isBelow(blockKey(block), above)),
  );
  const endpoints = new Set(blocks.flatMap((block) => blockKey(block).match(ownKeyForm) ?? []));
  const own = new Set(
    [...endpoints].flatMap((key) => [key, `${recordsPath}\\${key.slice(key.lastIndexOf("\\") + 1)}`]),
  );
  // A test that was killed has left them.
  for (const key of own) await deleteKey(t, key);
  const madeParents = [
    ...(await firstMissing(t, [devicesPath, `${devicesPath}\\Audio`, renderPath])),
    ...(await firstMissing(t, [velmoraPath, recordsPath])),
  ];
  // What goes with a parent that goes needs no removal of its own.
  const toDelete = [
    ...madeParents,
    ...[...own].filter((key) => !madeParents.some((above) => isBelow(key, above))),
  ];
  atEnd(t, async () => {
    for (const key of toDelete) await deleteKey(t, key);
  });
  const file = path.join(makeDirectory(), "machine.reg");
  fs.writeFileSync(file, `\ufeff${header}${blocks.join("")}`, "utf16le");
  await regSucceeds(t, "import", programPathText(file));
}

export class Machine {
  file = "";
  /** @type {Record<string, string>} */
  env = {};

  /** @param {Scope} t */
  constructor(t) {
    this.test = t;
  }

  // A machine from the text of an export with CR LF.
  /** @param {Scope} t @param {string} text */
  static async make(t, text) {
    const machine = new Machine(t);
    if (isWine) {
      await putIntoRegistry(t, text);
    } else {
      machine.file = path.join(makeDirectory(), "machine.reg");
      machine.env.VELMORA_MACHINE = machine.file;
      fs.writeFileSync(machine.file, text);
    }
    return machine;
  }

  // The whole machine as an export; under Wine the part that the tests put there.
  async export() {
    if (!isWine) return fs.readFileSync(this.file, "utf8");
    const devices = await blocksBelow(this.test, devicesPath);
    return header + devices + (await blocksBelow(this.test, velmoraPath));
  }

  /** @param {string[]} args */
  async runTool(...args) {
    return run(this.test, builtProgram("velmora_bind_endpoint"), args, { env: this.env });
  }
}
