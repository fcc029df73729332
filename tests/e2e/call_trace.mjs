// The calls that a Windows program makes itself, as Wine's own trace shows them.
import assert from "node:assert/strict";
import fs from "node:fs";

import { poll } from "./harness.mjs";

// Every call between modules, with the address that it returns to; and the same with what Wine's registry functions say
// of their arguments in between.
export const callTrace = { WINEDEBUG: "-all,+relay,+pid" };
export const registryTrace = { WINEDEBUG: "-all,+relay,+reg,+pid" };

/**
 * @typedef {{ value: bigint, text?: string }} Argument
 * @typedef {object} Call
 * @property {string} process_id
 * @property {string} thread
 * @property {string} module
 * @property {string} name
 * @property {Argument[]} args value, and text where it points to one
 * @property {bigint} returnsTo
 * @property {bigint} [result] none while it has not returned
 * @property {string} [note] what Wine's function of the same name says
 */

// The addresses that a program takes in memory.
/** @param {string} file */
function imageRange(file) {
  const image = fs.readFileSync(file);
  const optionalHeader = image.readUInt32LE(0x3c) + 24;
  assert.equal(image.readUInt16LE(optionalHeader), 0x20b, "a 64-bit program");
  const base = image.readBigUInt64LE(optionalHeader + 24);
  return { base, end: base + BigInt(image.readUInt32LE(optionalHeader + 56)) };
}

const callLine =
  /^([0-9a-f]{4,}):([0-9a-f]{4,}):(Call|Ret ) (\w+)\.(\w+)\((.*)\) (?:retval=([0-9a-f]+) )?ret=([0-9a-f]+)$/;
const noteLine = /^[0-9a-f]{4,}:([0-9a-f]{4,}):trace:reg:(\w+) (.*)$/;
const callArgument = /([0-9a-f]{8,16})(?: L?"((?:[^"\\]|\\.)*)")?/g;

// The program's own calls in their order, each with its `module`, `args` (value, and text where it points to one), its
// `result` (none while it has not returned), and the `note` of Wine's function of the same name. Calls of Wine's modules among themselves are left out, and so are
// other processes: `isOwn` knows one call of the program.
/** @param {import("./harness.mjs").Program} program @param {string} file @param {(call: Call) => boolean} isOwn */
export async function ownCalls(program, file, isOwn) {
  // The program's last call of all. What it wrote may still be on its way when it has ended.
  await poll("the end of the trace", () => (/Call msvcrt\.exit\(/.test(program.errors) ? true : undefined));
  const { base, end } = imageRange(file);
  /** @type {Call[]} */
  const calls = [];
  /** @type {Call[]} */
  const open = [];
  for (const raw of program.errors.split("\n")) {
    const line = raw.trimEnd();
    const note = line.match(noteLine);
    if (note) {
      const call = open.findLast(({ thread, name }) => thread === note[1] && name === note[2]);
      if (call) call.note ??= note[3];
      continue;
    }
    const parts = line.match(callLine);
    if (!parts) continue;
    const [, process_id, thread, kind, module, name, argumentsText, result, returnText] = parts;
    const returnsTo = BigInt(`0x${returnText}`);
    if (returnsTo < base || returnsTo >= end) continue;
    if (kind === "Call") {
      const args = [...argumentsText.matchAll(callArgument)].map(([, value, text]) => ({
        value: BigInt(`0x${value}`),
        text: text?.replaceAll("\\\\", "\\"),
      }));
      const call = { process_id, thread, module, name, args, returnsTo };
      calls.push(call);
      open.push(call);
      continue;
    }
    const place = open.findLastIndex(
      (call) => call.thread === thread && call.name === name && call.returnsTo === returnsTo,
    );
    if (place !== -1) open.splice(place, 1)[0].result = BigInt(`0x${result}`);
  }
  const ownProcess = calls.find(isOwn)?.process_id;
  assert.ok(ownProcess, "the calls are traced");
  return calls.filter((call) => call.process_id === ownProcess);
}

// ---- the calls and the document ----

// The upper half of a slot means nothing where the argument is of 32 bits.
/** @param {Argument} argument */
export const low = ({ value }) => value & 0xffffffffn;
/** @param {Argument} argument */
export const hex = (argument) => `0x${low(argument).toString(16)}`;

/** @param {Argument[]} args */
export function mustBeNull(...args) {
  for (const argument of args) assert.equal(argument.value, 0n, "an argument without use is null");
}

// The tables below the headings of a section of calls.md: rows as lists of cells without their code marks.
/** @param {string} heading @param {string} columns */
export function documentedRoads(heading, columns) {
  const document = fs.readFileSync(new URL("./calls.md", import.meta.url), "utf8");
  const [, rest] = document.split(`\n## ${heading}\n`);
  assert.ok(rest, `the document has the section ${heading}`);
  /** @type {Record<string, string[][]>} */
  const tables = {};
  for (const part of rest.split("\n## ")[0].split("\n### ").slice(1)) {
    const lines = part.split("\n");
    const rows = lines.filter((line) => line.startsWith("|"));
    assert.equal(rows[0], columns);
    assert.match(rows[1], /^(\|-+)+\|$/);
    tables[lines[0]] = rows.slice(2).map((row) =>
      row
        .split("|")
        .slice(1, -1)
        .map((cell) => cell.trim().replaceAll("`", "")),
    );
  }
  return tables;
}
