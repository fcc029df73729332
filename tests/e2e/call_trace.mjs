// The calls that a Windows program makes itself, as Wine's own trace tells them.
import assert from 'node:assert/strict';
import fs from 'node:fs';

import { poll } from './harness.mjs';

// Every call between modules, with the address that it returns to; and the same with what Wine's registry functions say
// of their arguments in between.
export const call_trace = { WINEDEBUG: '-all,+relay,+pid' };
export const registry_trace = { WINEDEBUG: '-all,+relay,+reg,+pid' };

// The addresses that a program takes in memory.
function image_range(file) {
  const image = fs.readFileSync(file);
  const optional_header = image.readUInt32LE(0x3c) + 24;
  assert.equal(image.readUInt16LE(optional_header), 0x20b, 'a 64-bit program');
  const base = image.readBigUInt64LE(optional_header + 24);
  return { base, end: base + BigInt(image.readUInt32LE(optional_header + 56)) };
}

const call_line =
  /^([0-9a-f]{4,}):([0-9a-f]{4,}):(Call|Ret ) (\w+)\.(\w+)\((.*)\) (?:retval=([0-9a-f]+) )?ret=([0-9a-f]+)$/;
const note_line = /^[0-9a-f]{4,}:([0-9a-f]{4,}):trace:reg:(\w+) (.*)$/;
const call_argument = /([0-9a-f]{8,16})(?: L?"((?:[^"\\]|\\.)*)")?/g;

// The program's own calls in their order, each with its `module`, `args` (value, and text where it points to one), its
// `result` (none while it has not returned), and the `note` of Wine's function of the same name. Calls of Wine's modules among themselves are left out, and so are
// other processes: `is_own` knows one call of the program.
export async function own_calls(program, file, is_own) {
  // The program's last call of all. What it wrote may still be on its way when it has ended.
  await poll('the end of the trace', () => (/Call msvcrt\.exit\(/.test(program.errors) ? true : undefined));
  const { base, end } = image_range(file);
  const calls = [];
  const open = [];
  for (const raw of program.errors.split('\n')) {
    const line = raw.trimEnd();
    const note = line.match(note_line);
    if (note) {
      const call = open.findLast(({ thread, name }) => thread === note[1] && name === note[2]);
      if (call) call.note ??= note[3];
      continue;
    }
    const parts = line.match(call_line);
    if (!parts) continue;
    const [, process_id, thread, kind, module, name, arguments_text, result, return_text] = parts;
    const returns_to = BigInt(`0x${return_text}`);
    if (returns_to < base || returns_to >= end) continue;
    if (kind === 'Call') {
      const args = [...arguments_text.matchAll(call_argument)].map(([, value, text]) => ({
        value: BigInt(`0x${value}`),
        text: text?.replaceAll('\\\\', '\\'),
      }));
      const call = { process_id, thread, module, name, args, returns_to };
      calls.push(call);
      open.push(call);
      continue;
    }
    const place = open.findLastIndex(
      (call) => call.thread === thread && call.name === name && call.returns_to === returns_to,
    );
    if (place !== -1) open.splice(place, 1)[0].result = BigInt(`0x${result}`);
  }
  const own_process = calls.find(is_own)?.process_id;
  assert.ok(own_process, 'the calls are traced');
  return calls.filter((call) => call.process_id === own_process);
}

// ---- the calls and the document ----

// The upper half of a slot means nothing where the argument is of 32 bits.
export const low = ({ value }) => value & 0xffffffffn;
export const hex = (argument) => `0x${low(argument).toString(16)}`;

export function must_be_null(...args) {
  for (const argument of args) assert.equal(argument.value, 0n, 'an argument without use is null');
}

// The tables below the headings of a section of calls.md: rows as lists of cells without their code marks.
export function documented_roads(heading, columns) {
  const document = fs.readFileSync(new URL('./calls.md', import.meta.url), 'utf8');
  const [, rest] = document.split(`\n## ${heading}\n`);
  assert.ok(rest, `the document has the section ${heading}`);
  const tables = {};
  for (const part of rest.split('\n## ')[0].split('\n### ').slice(1)) {
    const lines = part.split('\n');
    const rows = lines.filter((line) => line.startsWith('|'));
    assert.equal(rows[0], columns);
    assert.match(rows[1], /^(\|-+)+\|$/);
    tables[lines[0]] = rows.slice(2).map((row) =>
      row.split('|').slice(1, -1).map((cell) => cell.trim().replaceAll('`', '')));
  }
  return tables;
}
