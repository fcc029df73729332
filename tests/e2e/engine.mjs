// The audio engine and the effect's installation, for the tests: starts the test engine, puts the effect where the
// class id's registration leads, and asks the probes through the tool that prints them.
import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';

import {
  build_directory,
  built_program,
  is_wine,
  make_directory,
  poll,
  program_path_text,
  run,
  start_limit_ms,
  wait_limit_ms,
  within,
} from './harness.mjs';
import { dword_data, export_text, text_data } from './registry.mjs';

export const engine_program = path.join(build_directory, 'programs/engine/audiodg.exe');
export const effect_library = path.join(build_directory, 'programs/effect/velmora_windows_apo.dll');
export const algorithm_library = path.join(build_directory, 'programs/versioned/fse.dll');
export const old_algorithm_library = path.join(build_directory, 'programs/unversioned/fse.dll');

const class_key = 'HKEY_LOCAL_MACHINE\\SOFTWARE\\Classes\\CLSID\\{631D9145-CACF-44D7-861B-5D82ADD8C84F}';
const audio_key = 'HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Audio';

// ---- the engine ----

const engines = new Set();
process.on('exit', () => {
  for (const engine of engines) engine.kill('SIGKILL');
});

export class Engine {
  // Starts an engine that has loaded these libraries, paths of this system. `program` is the engine's own file.
  static async start(t, libraries = [], program = engine_program) {
    const engine = new Engine();
    const args = libraries.flatMap((library) => ['--load', program_path_text(library)]);
    const command = is_wine ? ['wine', program, ...args] : [program, ...args];
    engine.program = program;
    engine.output = '';
    engine.child = spawn(command[0], command.slice(1), { stdio: ['pipe', 'pipe', 'ignore'] });
    engines.add(engine.child);
    engine.child.stdin.on('error', () => {});
    engine.child.stdout.setEncoding('latin1').on('data', (text) => (engine.output += text));
    engine.ended = new Promise((resolve) => {
      engine.child.on('exit', (code, signal) => {
        engines.delete(engine.child);
        resolve({ code, signal });
      });
    });
    t.after(async () => {
      engine.child.kill('SIGKILL');
      await within(wait_limit_ms, () => 'the end of the engine', engine.ended);
    });
    const [, id] = await engine.until(/^engine ([0-9]+)\n/, start_limit_ms);
    engine.process_id = Number(id);
    for (const library of libraries) await engine.until(new RegExp(`^loaded ${path.basename(library)}$`, 'm'));
    return engine;
  }

  until(form, limit_ms = wait_limit_ms) {
    return poll(`${form} in ${JSON.stringify(this.output)}`, () => this.output.match(form) ?? undefined, limit_ms);
  }

  async obey(order, library, done) {
    const from = this.output.length;
    this.child.stdin.write(`${order} ${program_path_text(library)}\n`);
    const line = `${done} ${path.basename(library)}\n`;
    await poll(line, () => (this.output.slice(from).includes('\n') ? true : undefined));
    assert.equal(this.output.slice(from), line);
  }

  load(library) {
    return this.obey('load', library, 'loaded');
  }

  unload(library) {
    return this.obey('unload', library, 'unloaded');
  }

  async stop() {
    this.child.stdin.end();
    const end = await within(wait_limit_ms, () => 'the end of the engine', this.ended);
    assert.deepEqual(end, { code: 0, signal: null }, this.output);
  }
}

// ---- the installation ----

// What is registered: `effect` is the data of the class id's default value, `audio` that of DisableProtectedAudioDG, as
// an export writes them.
function registration_text({ effect, audio }) {
  const keys = [];
  if (effect !== undefined) keys.push([`${class_key}\\InprocServer32`, [['', effect]]]);
  if (audio !== undefined) keys.push([audio_key, [['DisableProtectedAudioDG', audio]]]);
  // The default value has no name.
  return export_text(keys).replace('""=', '@=');
}

// Takes a registration away; `-` in an export is a removal.
const removal = `[-${class_key}]\r\n\r\n[-${audio_key}]\r\n\r\n`;

// Registers it for the tool, until the test ends. Gives the environment with which it finds the registration.
export async function register_effect(t, registration) {
  const file = path.join(make_directory(), 'registration.reg');
  const text = registration_text(registration);
  if (!is_wine) {
    fs.writeFileSync(file, text);
    return { VELMORA_MACHINE: file };
  }
  const import_text = async (keys) => {
    fs.writeFileSync(file, `\ufeff${export_text([])}${keys}`, 'utf16le');
    const { code, output, errors } = await run(t, 'reg', ['import', program_path_text(file)]);
    assert.equal(code, 0, output + errors);
  };
  // A test that was killed has left its own.
  await import_text(removal + text.replace(export_text([]), ''));
  t.after(() => import_text(removal));
  return {};
}

export const registered = (file) => text_data(program_path_text(file));
export const number_data = dword_data;

// ---- the probes ----

// The processes of this system that the tool shall see, natively; under Wine it sees those of the prefix.
export function visible_processes(...process_ids) {
  if (is_wine) return {};
  const root = make_directory();
  fs.chmodSync(root, 0o755);
  for (const id of process_ids) fs.symlinkSync(`/proc/${id}`, path.join(root, String(id)));
  return { VELMORA_PROC: root };
}

const nothing_found = {
  elevated: true,
  clsid_registered: false,
  protected_audio_dg_disabled: false,
  apo_dll_present: false,
  algorithm_present: false,
  apo_dll_path: '',
  running: false,
  process_id: 0,
  apo_loaded: false,
  algorithm_loaded: false,
  apo_module_path: '',
  error_code: 0,
  program: '',
};

// What the tool prints when nothing is there but what is told here.
export function probes_text(found = {}) {
  const fields = { ...nothing_found, ...found };
  assert.equal(Object.keys(fields).length, Object.keys(nothing_found).length, 'fields that exist');
  return Object.entries(fields).map(([name, value]) => `${name} ${value}\n`).join('');
}

// Runs the tool and demands what it finds. `wrapped` puts a program in front of it, natively.
export async function assert_probes(t, env, found, { wrapped = [] } = {}) {
  const tool = built_program('velmora_print_engine');
  const [file, ...args] = [...wrapped, tool];
  const end = await run(t, file, args, { env });
  assert.deepEqual(end, { code: 0, signal: null, output: probes_text(found), errors: '' });
}

// ---- the audio service, under Wine ----

const standin_service = built_program('velmora_test_service');

// Registers the test service as the audio service until the test ends. Gives the words that it has logged since the last
// look, in the order of their times.
export async function install_audio_service(t, options = []) {
  const log = path.join(make_directory(), 'service.log');
  const args = ['install', 'Audiosrv', '--log', program_path_text(log), ...options];
  assert.deepEqual(await run(t, standin_service, args), { code: 0, signal: null, output: '', errors: '' });
  t.after(() => run(t, standin_service, ['remove', 'Audiosrv']));
  let known = 0;
  const text = () => (fs.existsSync(log) ? fs.readFileSync(log, 'utf8') : '');
  const look = () => {
    const lines = text().split('\n').slice(0, -1);
    const entries = lines.slice(known).map((line) => line.match(/^([0-9]+) Audiosrv ([a-z]+)$/).slice(1));
    known = lines.length;
    const times = entries.map(([time]) => Number(time));
    assert.deepEqual(times, [...times].sort((a, b) => a - b));
    return { words: entries.map(([, word]) => word).join(' '), times };
  };
  return Object.assign(look, { text });
}
