// Endpoints of the tests' own under Wine: the test COM server of tests/programs/audio in place of Wine's. Its
// header tells of the script and of the log.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';

import { build_directory, make_directory, program_path_text, run } from './harness.mjs';

const server_file = path.join(build_directory, 'velmora_test_audio.dll');
const own_class_key = 'HKLM\\SOFTWARE\\Classes\\CLSID\\{7A1D0F0B-6A0E-4B0D-9C33-3A5E8E1F6C21}';

// ---- registration ----

// The keys are volatile, and programs without a script get Wine's own class all the same: what a killed run leaves
// harms nobody and goes with Wine's session.
const registration = ['/s', program_path_text(server_file)];
let is_registered = false;

process.on('exit', () => {
  if (is_registered) execFileSync('wine', ['regsvr32', '/u', ...registration], { stdio: 'ignore' });
});

async function regsvr32(t, ...args) {
  const { code, output, errors } = await run(t, 'regsvr32', args);
  assert.equal(code, 0, `regsvr32 ${args.join(' ')}: ${output}${errors}`);
}

async function unregister(t) {
  if (!is_registered) return;
  is_registered = false;
  await regsvr32(t, '/u', ...registration);
}

// ---- the script ----

// A word of the script, quoted, from a text of UTF-16 units.
export function quoted(text) {
  const escaped = text.replace(/["\\]/g, '\\$&').replace(/[^ -~]/g, (unit) =>
    unit.split('').map((half) => `\\u${half.charCodeAt(0).toString(16).padStart(4, '0')}`).join(''));
  return `"${escaped}"`;
}

const endpoint_lines = (flow, { id, name, more = [], state, level, muted, peak, sessions = [] }) => [
  `endpoint ${flow} ${quoted(id)}`,
  ...(name === undefined ? [] : [`  name ${quoted(name)}`]),
  ...Object.entries({ state, level, muted, peak })
    .filter(([, value]) => value !== undefined)
    .map(([what, value]) => `  ${what} ${value}`),
  ...sessions.map(([session_state, process_id]) => `  session ${session_state} ${process_id}`),
  ...more.map((line) => `  ${line}`),
];

// The script of a machine. An endpoint has `id`, and may have `name`, `state`, `level`, `muted`, `peak`, `sessions` as
// [state, process id], and `more`, lines as they stand in a script. `faults` are lines too.
export function script_text({ render = [], capture = [], default_render, default_capture, faults = [] }) {
  return [
    ...render.flatMap((endpoint) => endpoint_lines('render', endpoint)),
    ...capture.flatMap((endpoint) => endpoint_lines('capture', endpoint)),
    ...(default_render === undefined ? [] : [`default render ${quoted(default_render)}`]),
    ...(default_capture === undefined ? [] : [`default capture ${quoted(default_capture)}`]),
    ...faults,
    '',
  ].join('\n');
}

// ---- the server ----

const nothing_left = 'live references=0 allocations=0';

export class AudioServer {
  // Registers it until the test ends. Programs that are to have its endpoints are started with `env`.
  static async make(t) {
    const server = new AudioServer();
    const directory = make_directory();
    server.script_file = path.join(directory, 'script.txt');
    server.log_file = path.join(directory, 'log.txt');
    server.env = {
      VELMORA_TEST_AUDIO: program_path_text(server.script_file),
      VELMORA_TEST_AUDIO_LOG: program_path_text(server.log_file),
    };
    fs.writeFileSync(server.log_file, '');
    server.set({});
    t.after(() => unregister(t));
    is_registered = true;
    await regsvr32(t, ...registration);
    return server;
  }

  // Takes away the class that stands in, so that no class is registered at all.
  static async remove_class(t) {
    const { code, output, errors } = await run(t, 'reg', ['delete', `${own_class_key}\\InprocServer32`, '/f']);
    assert.equal(code, 0, output + errors);
  }

  // The endpoints from the next request on.
  set(machine) {
    fs.writeFileSync(this.script_file, script_text(machine));
  }

  // The log since the last look.
  take_lines() {
    const lines = fs.readFileSync(this.log_file, 'utf8').split('\n');
    assert.equal(lines.pop(), '');
    fs.truncateSync(this.log_file);
    return lines;
  }

  // The calls of one request, behind which everything has been given back.
  take_calls() {
    const lines = this.take_lines();
    assert.equal(lines.at(-1), nothing_left, `what is left at the end of\n${lines.join('\n')}`);
    assert.ok(!lines.slice(0, -1).includes(nothing_left), `one enumerator, held to the end of\n${lines.join('\n')}`);
    assert.deepEqual(lines.filter((line) => line.startsWith('ERROR')), []);
    return lines.filter((line) => !line.startsWith('live '));
  }
}
