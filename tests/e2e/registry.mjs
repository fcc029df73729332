// Machines for the tests: registry exports that the programs work on, and what a program changed in them.
//
// Natively a machine is an export file, named by VELMORA_MACHINE. Under Wine its audio devices and its binding records
// are put into the prefix's registry and taken out again when the test ends. Data of values is written as in an export,
// in one line.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';

import { built_program, is_wine, make_directory, program_path_text, run } from './harness.mjs';

const root = 'HKEY_LOCAL_MACHINE\\';
export const devices_path = `${root}SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\MMDevices`;
export const render_path = `${devices_path}\\Audio\\Render`;
export const velmora_path = `${root}SOFTWARE\\Velmora`;
export const records_path = `${velmora_path}\\DevBinding`;

const header = 'Windows Registry Editor Version 5.00\r\n\r\n';
const full_line_columns = 77;

// ---- data of values ----

export function hex_data(type, bytes) {
  return `hex(${type.toString(16)}):${[...bytes].map((byte) => byte.toString(16).padStart(2, '0')).join(',')}`;
}

export function text_data(text) {
  return `"${text.replaceAll('\\', '\\\\').replaceAll('"', '\\"')}"`;
}

// REG_MULTI_SZ.
export function list_data(entries) {
  return hex_data(7, Buffer.from([...entries, ''].map((entry) => `${entry}\0`).join(''), 'utf16le'));
}

export function dword_data(value) {
  return `dword:${value.toString(16).padStart(8, '0')}`;
}

// ---- exports as text ----

// A long list of bytes in lines, as Windows breaks it.
export function wrap(line) {
  if (!line.includes('=hex')) return line;
  const lines = [''];
  for (const piece of line.split(/(?<=,)/)) {
    if (lines.at(-1).endsWith(',') && lines.at(-1).length >= full_line_columns) lines.push('  ');
    lines[lines.length - 1] += piece;
  }
  return lines.join('\\\r\n');
}

// The export of a machine with these keys, given as [path, values] with values as [name, data]. The keys above them are
// there too.
export function export_text(keys) {
  const machine = new Map();
  for (const [key, values] of keys) {
    const names = key.split('\\');
    for (let depth = 2; depth < names.length; ++depth) {
      const above = names.slice(0, depth).join('\\');
      if (!machine.has(above)) machine.set(above, []);
    }
    machine.set(key, values);
  }
  const sorted = [...machine].sort(([left], [right]) => {
    const [a, b] = [left, right].map((key) => key.toUpperCase().replaceAll('\\', '\x01'));
    return a < b ? -1 : 1;
  });
  const blocks = sorted.map(([key, values]) =>
    [`[${key}]`, ...values.map(([name, data]) => wrap(`"${name}"=${data}`)), '\r\n'].join('\r\n'));
  return header + blocks.join('');
}

// An export as one entry for each key, `[KEY]`, and for each value, `[KEY] "NAME"=DATA`, in its order.
export function entries_of(text) {
  const entries = [];
  let key = '';
  for (const line of text.replaceAll('\\\r\n  ', '').split('\r\n')) {
    if (line.startsWith('[')) entries.push((key = line));
    else if (key !== '' && line !== '') entries.push(`${key} ${line}`);
  }
  return entries;
}

// What differs between two exports, sorted. Whatever stands in both must have kept its order.
export function difference(before, after) {
  const [old_entries, new_entries] = [entries_of(before), entries_of(after)];
  const [old_set, new_set] = [new Set(old_entries), new Set(new_entries)];
  assert.deepEqual(
    new_entries.filter((entry) => old_set.has(entry)),
    old_entries.filter((entry) => new_set.has(entry)),
    'what stays keeps its order',
  );
  return {
    removed: old_entries.filter((entry) => !new_set.has(entry)).sort(),
    added: new_entries.filter((entry) => !old_set.has(entry)).sort(),
  };
}

export function key_entry(key) {
  return `[${key}]`;
}

export function value_entry(key, name, data) {
  return `[${key}] "${name}"=${data}`;
}

// The export without the keys above the binding records, which stay once they have been made.
export function without_record_parents(text) {
  return text.replace(`[${velmora_path}]\r\n\r\n`, '').replace(`[${records_path}]\r\n\r\n`, '');
}

// ---- machines ----

const system_name = (key) => key.replace(root, 'HKLM\\');

async function reg(t, ...args) {
  return run(t, 'reg', args);
}

async function reg_succeeds(t, ...args) {
  const { code, output, errors } = await reg(t, ...args);
  assert.equal(code, 0, `reg ${args.join(' ')}: ${output}${errors}`);
}

// False when the key is missing; any other failure is one.
async function reg_finds(t, ...args) {
  const { code, output, errors } = await reg(t, ...args);
  const said = `reg ${args.join(' ')}: ${code} ${output}${errors}`;
  if (code !== 0) assert.match(output + errors, /Unable to find the specified registry key/, said);
  return code === 0;
}

// A key that is not there is as good as deleted.
async function delete_key(t, key) {
  await reg_finds(t, 'delete', system_name(key), '/f');
}

// The first of these keys, from the topmost down, that is missing.
async function first_missing(t, keys) {
  for (const key of keys) {
    if (!(await reg_finds(t, 'query', system_name(key)))) return [key];
  }
  return [];
}

// Under Wine: these keys, and all below them, are put back at the test's end to what they are now.
export async function keep_keys(t, keys) {
  for (const key of keys) {
    const file = path.join(make_directory(), 'kept.reg');
    const is_there = await reg_finds(t, 'export', system_name(key), program_path_text(file), '/y');
    t.after(async () => {
      await delete_key(t, key);
      if (is_there) await reg_succeeds(t, 'import', program_path_text(file));
    });
  }
}

// Under Wine: writes a REG_SZ; a key that is missing is made.
export async function set_text(t, key, name, text) {
  await reg_succeeds(t, 'add', system_name(key), '/v', name, '/d', text, '/f');
}

// Under Wine: makes a key.
export async function add_key(t, key) {
  await reg_succeeds(t, 'add', system_name(key), '/f');
}

// An export of one key as its blocks, each with an empty line behind it; empty when the key is missing.
export async function blocks_below(t, key) {
  const file = path.join(make_directory(), 'export.reg');
  if (!(await reg_finds(t, 'export', system_name(key), program_path_text(file), '/y'))) return '';
  const text = fs.readFileSync(file, 'utf16le').replace(/^\ufeff/, '');
  assert.ok(text.startsWith(header), 'an export of the registry editor');
  return text.slice(header.length).replace(/(\r\n)*$/, '\r\n\r\n');
}

function blocks_of(text) {
  return text.split(/(?=^\[)/m).slice(1);
}

const block_key = (block) => block.slice(1, block.indexOf(']\r\n'));

const is_below = (key, above) => key === above || key.startsWith(`${above}\\`);

// The keys that a machine's end removes: each endpoint and each record, whole.
const own_key_form = /^.*\\(?:MMDevices\\Audio\\(?:Render|Capture)|Velmora\\DevBinding)\\\{[^\\]*\}/;

async function put_into_registry(t, text) {
  const blocks = blocks_of(text).filter((block) =>
    [devices_path, velmora_path].some((above) => is_below(block_key(block), above)));
  const endpoints = new Set(blocks.map((block) => block_key(block).match(own_key_form)?.[0]).filter(Boolean));
  const own = new Set([...endpoints].flatMap((key) => [key, `${records_path}\\${key.slice(key.lastIndexOf('\\') + 1)}`]));
  // A test that was killed has left them.
  for (const key of own) await delete_key(t, key);
  const made_parents = [
    ...(await first_missing(t, [devices_path, `${devices_path}\\Audio`, render_path])),
    ...(await first_missing(t, [velmora_path, records_path])),
  ];
  // What goes with a parent that goes needs no removal of its own.
  const to_delete = [...made_parents, ...[...own].filter((key) => !made_parents.some((above) => is_below(key, above)))];
  t.after(async () => {
    for (const key of to_delete) await delete_key(t, key);
  });
  const file = path.join(make_directory(), 'machine.reg');
  fs.writeFileSync(file, `\ufeff${header}${blocks.join('')}`, 'utf16le');
  await reg_succeeds(t, 'import', program_path_text(file));
}

export class Machine {
  // A machine from the text of an export with CR LF.
  static async make(t, text) {
    const machine = new Machine();
    machine.test = t;
    machine.env = {};
    if (is_wine) {
      await put_into_registry(t, text);
    } else {
      machine.file = path.join(make_directory(), 'machine.reg');
      machine.env.VELMORA_MACHINE = machine.file;
      fs.writeFileSync(machine.file, text);
    }
    return machine;
  }

  // The whole machine as an export; under Wine the part that the tests put there.
  async export() {
    if (!is_wine) return fs.readFileSync(this.file, 'utf8');
    const devices = await blocks_below(this.test, devices_path);
    return header + devices + (await blocks_below(this.test, velmora_path));
  }

  async run_tool(...args) {
    return run(this.test, built_program('velmora_bind_endpoint'), args, { env: this.env });
  }
}
