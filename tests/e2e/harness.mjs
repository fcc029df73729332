// Drives the real programs from outside: starts them, speaks to the service over raw sockets, reads the shared
// record, and ends everything again.
//
// The environment says what to drive: VELMORA_BUILD is the build directory, VELMORA_TARGET is `native` or `wine`.
// Every wait has a limit, given in milliseconds. Text from programs and sockets is held byte by byte (latin1), so
// that comparisons are exact.
import assert from 'node:assert/strict';
import { execFileSync, spawn } from 'node:child_process';
import fs from 'node:fs';
import net from 'node:net';
import os from 'node:os';
import path from 'node:path';

import { AccountService, json_reply } from '../programs/account/service.mjs';

export const is_wine = process.env.VELMORA_TARGET === 'wine';
export const is_native = !is_wine;
export const build_directory = path.resolve(process.env.VELMORA_BUILD ?? 'build/native');
const program_suffix = is_wine ? '.exe' : '';

// A loaded machine and a sanitizer are slow; a program that hangs is slower still.
export const start_limit_ms = 30_000;
export const wait_limit_ms = 15_000;
const poll_interval_ms = 20;

export const development_token = '0123456789abcdef0123456789abcdef';
export const record_bytes = 576;

// ---- what must be ended, whatever happens ----

const alive = new Set();
const directories = new Set();
const mapping_names = new Set();
const disks = new Set();

function end_everything() {
  for (const program of alive) program.kill();
  for (const disk of disks) unmount(disk);
  for (const directory of directories) fs.rmSync(directory, { recursive: true, force: true });
  // Natively a mapping is a file here, and one that a killed program held stays behind.
  if (is_native) for (const name of mapping_names) fs.rmSync(`/dev/shm/${name.replace('\\', '.')}`, { force: true });
}
process.on('exit', end_everything);
for (const signal of ['SIGTERM', 'SIGINT', 'SIGHUP']) process.on(signal, () => process.exit(1));

// ---- waiting ----

export function sleep(milliseconds) {
  return new Promise((resolve) => setTimeout(resolve, milliseconds));
}

// The promise's value, or a failure that names what was waited for. The timer keeps this process alive: sockets and
// programs do not, so that a failed test never hangs on what it left.
export async function within(limit_ms, what, promise) {
  let timer;
  const expired = new Promise((_, reject) => {
    timer = setTimeout(() => reject(new Error(`waited ${limit_ms} ms for ${what()}`)), limit_ms);
  });
  try {
    return await Promise.race([promise, expired]);
  } finally {
    clearTimeout(timer);
  }
}

// Looks again and again until `look` gives something other than undefined. It ends with its limit, unlike a loop of
// the test's own, which would keep a failed test running.
export async function poll(what, look, limit_ms = wait_limit_ms) {
  const deadline = Date.now() + limit_ms;
  for (;;) {
    const value = await look();
    if (value !== undefined) return value;
    if (Date.now() > deadline) throw new Error(`waited ${limit_ms} ms for ${what}`);
    await sleep(poll_interval_ms);
  }
}

// ---- files ----

export function make_directory(name = '') {
  const directory = fs.mkdtempSync(path.join(os.tmpdir(), 'velmora-e2e-'));
  directories.add(directory);
  if (name === '') return directory;
  fs.mkdirSync(path.join(directory, name));
  return path.join(directory, name);
}

function unmount(directory) {
  // Lazily: whoever still uses it keeps it until then, and nothing of it stays in the tree.
  execFileSync('umount', ['--lazy', directory]);
  disks.delete(directory);
}

// A disk of its own with room for so many bytes, in pages of 4096, until the test ends. Needs root, as ./test does.
export function make_small_disk(t, bytes) {
  const directory = make_directory();
  execFileSync('mount', ['-t', 'tmpfs', '-o', `size=${bytes}`, 'velmora-test', directory]);
  disks.add(directory);
  t.after(() => unmount(directory));
  return {
    directory,
    make_read_only: () => execFileSync('mount', ['-o', 'remount,ro', directory]),
  };
}

// A path as the program under test writes it.
export function program_path_text(system_path) {
  return is_wine ? `Z:${system_path.replaceAll('/', '\\')}` : system_path;
}

export const page_names = ['index.html', 'advanced.html', 'velmora-eq.js', 'help.html'];

// A web root of the tests' own. A page given as null is left out.
export function make_web_root(pages = {}, name = '') {
  const directory = make_directory(name);
  for (const page of page_names) {
    const content = page in pages ? pages[page] : `the page ${page}\n`;
    if (content !== null) fs.writeFileSync(path.join(directory, page), content);
  }
  return directory;
}

// ---- programs ----

export function built_program(name) {
  return path.join(build_directory, name + program_suffix);
}

// The service as it is shipped.
export const shipped_service = built_program('velmora_control_demo');

let patched_copy;

// The service that can make a mapping by itself. Natively it is the program as it stands. Wine 8 refuses one trustee
// of the mapping's descriptor, WR; in a copy it is renamed to WD, which has the same length.
export function creating_service() {
  if (is_native) return shipped_service;
  if (patched_copy) return patched_copy;
  const image = fs.readFileSync(shipped_service);
  const refused = Buffer.from(';;;WR)', 'utf16le');
  const place = image.indexOf(refused);
  assert.notEqual(place, -1, 'the program holds the descriptor as one wide text');
  assert.equal(image.indexOf(refused, place + 1), -1, 'the descriptor stands in the program once');
  Buffer.from(';;;WD)', 'utf16le').copy(image, place);
  const copy = path.join(make_directory(), path.basename(shipped_service));
  fs.writeFileSync(copy, image, { mode: 0o755 });
  patched_copy = copy;
  return patched_copy;
}

// The native service without root's right to pass over the modes of files.
export function make_unprivileged_service() {
  if (process.getuid() !== 0) return shipped_service;
  const script = path.join(make_directory(), 'velmora_control_demo');
  const command = `exec setpriv --bounding-set=-dac_override,-dac_read_search ${shipped_service} "$@"`;
  fs.writeFileSync(script, `#!/bin/sh\n${command}\n`, { mode: 0o755 });
  return script;
}

export function unique_mapping_name() {
  const name = `Local\\VelmoraTest-${process.pid}-${mapping_names.size + 1}`;
  mapping_names.add(name);
  return name;
}

// Natively a program has ended when its pipes have, which also shows that nothing else holds them. Under Wine the
// first program of a session starts helpers that hold its pipes for as long as the session lasts: there the program's
// own end counts. What it wrote is in the pipes by then, and is given this time to be read.
const end_event = is_wine ? 'exit' : 'close';
const pipe_drain_ms = 1000;

// What a person's own session says to our programs is not for those of a test: it names a machine, folders with files
// in them (such as `./run` leaves), a proxy and authorities.
const personal_variables = /^(VELMORA_(MACHINE|DRIVES|PROC)|ProgramData|XDG_STATE_HOME|SSL_CERT_FILE|(https?|all|no)_proxy)$/i;

// The environment of a program: that of the tests without the person's, on drives of its own, and `more`.
let common_drives;
function environment_with(more) {
  common_drives ??= make_directory();
  const inherited = Object.entries(process.env).filter(([name]) => !personal_variables.test(name));
  return { WINEDEBUG: '-all', ...Object.fromEntries(inherited), VELMORA_DRIVES: common_drives, ...more };
}

// A started program, its output so far, and its end.
export class Program {
  // With `of_system` true it is a program of this system, whatever the target. `wrapper` is a command of this system
  // that starts the one behind it. With `with_input` true standard input is `child.stdin`, else there is none.
  constructor(file, args, { env = {}, cwd, of_system = false, wrapper = [], with_input = false } = {}) {
    const command = [...wrapper, ...(is_wine && !of_system ? ['wine'] : []), file, ...args];
    const environment = environment_with(env);
    this.name = `${path.basename(file)} ${args.join(' ')}`;
    this.output = '';
    this.errors = '';
    this.watchers = new Set();
    this.child = spawn(command[0], command.slice(1), {
      cwd,
      env: environment,
      stdio: [with_input ? 'pipe' : 'ignore', 'pipe', 'pipe'],
    });
    alive.add(this);
    this.exited = new Promise((resolve, reject) => {
      this.child.on('error', reject);
      const closed = new Promise((drained) => this.child.once('close', drained));
      this.child.on(end_event, async (code, signal) => {
        alive.delete(this);
        await Promise.race([closed, sleep(pipe_drain_ms)]);
        this.end = { code, signal };
        this.look_again();
        resolve(this.end);
      });
    });
    this.exited.catch(() => {});
    this.collect(this.child.stdout, 'output');
    this.collect(this.child.stderr, 'errors');
    this.child.unref();
  }

  collect(stream, field) {
    stream.setEncoding('latin1');
    stream.on('data', (text) => {
      this[field] += text;
      this.look_again();
    });
    stream.on('error', () => {});
    stream.unref();
  }

  look_again() {
    for (const watcher of [...this.watchers]) watcher();
  }

  said() {
    return `${this.name}; output ${JSON.stringify(this.output)}, errors ${JSON.stringify(this.errors)}`;
  }

  // Waits until `look` gives something other than undefined, looking whenever the program has written.
  until(what, look, limit_ms = wait_limit_ms) {
    let watcher;
    const found = new Promise((resolve, reject) => {
      watcher = () => {
        const value = look();
        if (value !== undefined) return resolve(value);
        if (this.end) reject(new Error(`ended with ${JSON.stringify(this.end)} before ${what}: ${this.said()}`));
      };
      this.watchers.add(watcher);
      watcher();
    });
    return within(limit_ms, () => `${what}: ${this.said()}`, found).finally(() => this.watchers.delete(watcher));
  }

  // A place in the output: lines that are waited for from here on are new ones.
  mark() {
    return this.output.length;
  }

  async wait_for_line(line, from = 0, limit_ms = wait_limit_ms) {
    const wanted = `\n${line}\n`;
    await this.until(`the line ${JSON.stringify(line)}`, () => {
      const lines = `\n${this.output.slice(from)}`;
      return lines.includes(wanted) ? true : undefined;
    }, limit_ms);
  }

  signal(name) {
    this.child.kill(name);
  }

  kill() {
    if (!this.end) this.child.kill('SIGKILL');
  }

  async wait_for_end(limit_ms = wait_limit_ms) {
    return within(limit_ms, () => `the end of ${this.said()}`, this.exited);
  }

  // Ends it as Ctrl+C does, and demands a clean end.
  async stop(signal = 'SIGINT') {
    this.signal(signal);
    const end = await this.wait_for_end();
    assert.deepEqual(end, { code: 0, signal: null }, this.said());
    // Wine's sound library complains there of a machine without a sound card.
    assert.equal(is_wine ? this.errors.replace(/^ALSA lib .*\n/gm, '') : this.errors, '');
  }
}

// Starts a program that the test's end takes down, however it ends.
export function launch(t, file, args, options) {
  const program = new Program(file, args, options);
  t.after(async () => {
    program.kill();
    await program.wait_for_end().catch(() => {});
  });
  return program;
}

// Wine's own words when a new process failed ahead of its first step, which happens once in some ten thousand starts on
// a busy machine: those of its starter, and those of a process that lost its server. Nothing of the program has run.
const never_began = 'ShellExecuteEx failed: Internal error.';
const lost_server = 'wine client error:';
const most_starts = 3;

function has_failed_in_wine({ end, output, errors }) {
  if (!is_wine || end === undefined || end.code === 0) return false;
  return (output + errors).includes(never_began) || (output === '' && errors.includes(lost_server));
}

// Runs a program to its end. `errors` and `output` are bytes.
export async function run(t, file, args, options) {
  for (let start = 1; ; ++start) {
    const program = launch(t, file, args, options);
    const { code, signal } = await program.wait_for_end(start_limit_ms);
    const { output, errors } = program;
    if (start === most_starts || !has_failed_in_wine(program)) return { code, signal, output, errors };
  }
}

// Starts a program and waits until `look` finds what it wants in the output. Gives the program and what was found.
async function launch_until(t, file, args, options, what, look) {
  for (let start = 1; ; ++start) {
    const program = launch(t, file, args, options);
    try {
      return [program, await program.until(what, () => look(program.output), start_limit_ms)];
    } catch (error) {
      if (start === most_starts || !has_failed_in_wine(program)) throw error;
    }
  }
}

// ---- the service ----

// Below the range that the system gives to clients, so that no client of another test takes it.
let next_port = 10_000 + ((process.pid * 37) % 20_000);

function is_free(port) {
  return new Promise((resolve) => {
    const server = net.createServer();
    server.once('error', () => resolve(false));
    server.listen({ port, host: '127.0.0.1' }, () => server.close(() => resolve(true)));
  });
}

export async function free_port() {
  for (;;) {
    const port = next_port;
    next_port = port < 32_000 ? port + 1 : 10_000;
    if (await is_free(port)) return port;
  }
}

const banner_form =
  /^Velmora 1\.2\.0 {2}\(algorithm ([^\n]*)\)\n {2}Open: http:\/\/127\.0\.0\.1:([0-9]+)\/\?token=([^\n]*)\n(?:[^]*\n)? {2}Press Ctrl\+C to stop\.\n/;

let common_web_root;

// Starts the service and waits for its whole banner. Gives the program with `port`, `token` and `algorithm` as the
// banner names them.
//   program   which copy of the service; the one that can make its mapping by itself when not given
//   token     null: let the service make one
//   port, mapping, web_root, more, env, cwd, wrapper
export async function start_service(t, options = {}) {
  const {
    program = creating_service(),
    port = await free_port(),
    mapping = unique_mapping_name(),
    token = development_token,
    more = [],
  } = options;
  common_web_root ??= make_web_root();
  const web_root = options.web_root ?? common_web_root;
  const args = ['--port', String(port), '--web-root', program_path_text(web_root), '--control-map', mapping];
  if (token !== null) args.push('--token', token);
  const look = (output) => output.match(banner_form) ?? undefined;
  const [service, [, algorithm, port_text, token_text]] = await launch_until(
    t, program, [...args, ...more], options, 'the banner', look);
  return Object.assign(service, { algorithm, port: Number(port_text), token: token_text, mapping, web_root });
}

// ---- the test effect and the record ----

export async function start_effect(t, mapping, more = [], first_line = undefined) {
  const args = ['--control-map', mapping, ...more];
  const look = (output) => output.match(/^(mapping (?:made|opened))\n/)?.[1];
  const [effect, line] = await launch_until(t, built_program('velmora_test_effect'), args, {}, 'its mapping', look);
  if (first_line !== undefined) assert.equal(line, first_line);
  return effect;
}

// Under Wine: another program holds a file so that it can be read, but neither written nor deleted. The command
// interpreter opens its input in that way and keeps it for as long as the program runs that it starts. Resolves, when
// it is held, to what waits for its release, which comes by itself.
export async function hold_file(t, file) {
  const held_ms = 5000;
  const effect = `${program_path_text(built_program('velmora_test_effect'))} --control-map ${unique_mapping_name()}`;
  const command = `${effect} --exit-after-ms ${held_ms} < ${program_path_text(file)}`;
  const holder = launch(t, 'cmd', ['/c', command]);
  await holder.until('the file to be held', () => (holder.output.includes('mapping made') ? true : undefined), start_limit_ms);
  return async () => {
    assert.equal(holder.end, undefined, 'it was held until now');
    await holder.wait_for_end();
  };
}

// The record's bytes, as another process sees them.
export async function read_record(t, mapping) {
  const printed = await run(t, built_program('velmora_print_record'), [mapping]);
  assert.equal(printed.errors, '');
  assert.equal(printed.code, 0);
  const lines = printed.output.split('\n');
  assert.equal(lines.pop(), '', 'the last line is ended');
  assert.equal(lines.length, record_bytes / 16);
  lines.forEach((line, index) => {
    assert.match(line, /^[0-9a-f]{3} {2}[0-9a-f]{2}( [0-9a-f]{2}){15}$/);
    assert.equal(Number.parseInt(line.slice(0, 3), 16), index * 16);
  });
  return Buffer.from(lines.map((line) => line.slice(5).replaceAll(' ', '')).join(''), 'hex');
}

// ---- the equalizer, as a body gives it and as the record holds it ----

// A number as the service writes it: 32 bits, then six significant digits as C's %g.
export function number_text(value) {
  const narrow = Math.fround(value);
  if (narrow === 0) return Object.is(narrow, -0) ? '-0' : '0';
  const [digits, exponent_text] = narrow.toExponential(5).split('e');
  const exponent = Number(exponent_text);
  if (exponent >= -4 && exponent < 6) return String(Number(narrow.toPrecision(6)));
  const sign = exponent < 0 ? '-' : '+';
  return `${Number(digits)}e${sign}${String(Math.abs(exponent)).padStart(2, '0')}`;
}

// The document that the service makes of a setting.
export function equalizer_document({ bypass, fade_ms, bands }) {
  const band_texts = bands.map(
    ({ type, freq_hz, gain_db, q }) =>
      `{"type":${type},"freq_hz":${number_text(freq_hz)},"gain_db":${number_text(gain_db)},"q":${number_text(q)}}`,
  );
  return `{"bypass":${bypass},"fade_ms":${number_text(fade_ms)},"bands":[${band_texts.join(',')}]}`;
}

// The setting and its revision, as the record's bytes say.
export function equalizer_in(record) {
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
export function some_bands(shift = 0) {
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
export function devices_document({
  render = [],
  capture = [],
  default_render = '',
  default_capture = '',
  selected_render = default_render,
  selected_capture = default_capture,
  error_code = 0,
} = {}) {
  const entry = ({ id, name, peak = 0, sessions = [] }, default_id, selected_id, more = '') =>
    `{"id":${JSON.stringify(id)},"name":${JSON.stringify(name)},"is_default":${id === default_id},` +
    `"is_selected":${id === selected_id},"peak":${number_text(peak)},"sessions":${JSON.stringify(sessions)}${more}}`;
  const render_entries = render.map((endpoint) =>
    entry(endpoint, default_render, selected_render, `,"apo_bound":${endpoint.bound ?? false}`));
  const capture_entries = capture.map((endpoint) => entry(endpoint, default_capture, selected_capture));
  const document =
    `{"render":[${render_entries}],"capture":[${capture_entries}],` +
    `"default_render_endpoint_id":${JSON.stringify(default_render)},` +
    `"default_capture_endpoint_id":${JSON.stringify(default_capture)},` +
    `"selected_render_endpoint_id":${JSON.stringify(selected_render)},` +
    `"selected_capture_endpoint_id":${JSON.stringify(selected_capture)},"error_code":${error_code}}`;
  return Buffer.from(document, 'utf8').toString('latin1');
}

export function hex_word(word) {
  return `0x${word.toString(16).padStart(16, '0')}`;
}

// ---- the client ----

const fixed_headers = [
  'Connection: close',
  'Cache-Control: no-store',
  'X-Content-Type-Options: nosniff',
  "Content-Security-Policy: default-src 'self'; script-src 'self' 'unsafe-inline'; style-src 'self' " +
    "'unsafe-inline'; img-src 'self' data:; connect-src 'self'; frame-ancestors 'none'",
];

export const json_document = 'application/json; charset=utf-8';

// A whole answer as its bytes must be.
export function answer_bytes(status, reason, content_type, body) {
  const head = [
    `HTTP/1.1 ${status} ${reason}`,
    `Content-Type: ${content_type}`,
    `Content-Length: ${body.length}`,
    ...fixed_headers,
  ];
  return `${head.join('\r\n')}\r\n\r\n${body}`;
}

export function refusal_bytes(status, reason, message) {
  return answer_bytes(status, reason, json_document, `{"error":"${message}"}`);
}

export const answers = {
  done: answer_bytes(200, 'OK', 'application/json', '{"ok":true}'),
  invalid_request: refusal_bytes(400, 'Bad Request', 'invalid request'),
  not_local: refusal_bytes(403, 'Forbidden', 'invalid local origin'),
  no_token: refusal_bytes(401, 'Unauthorized', 'missing or invalid session token'),
  not_found: refusal_bytes(404, 'Not Found', 'route not found'),
};

// The body of an answer.
export function body_of(answer) {
  return answer.slice(answer.indexOf('\r\n\r\n') + 4);
}

// The bytes of a request. Headers are pairs, sent in their order; Host stands first unless `host` is null.
export function request_bytes(service, { method = 'GET', target = '/', host, headers = [], body } = {}) {
  const lines = [`${method} ${target} HTTP/1.1`];
  if (host !== null) lines.push(`Host: ${host ?? `127.0.0.1:${service.port}`}`);
  for (const [name, value] of headers) lines.push(`${name}: ${value}`);
  if (body !== undefined) lines.push(`Content-Length: ${body.length}`);
  return `${lines.join('\r\n')}\r\n\r\n${body ?? ''}`;
}

// The bytes of a request with the session token.
export function api_bytes(service, method, target, body, headers = []) {
  return request_bytes(service, { method, target, body, headers: [['X-Velmora-Token', service.token], ...headers] });
}

export function put_bytes(service, target, body, headers = []) {
  return api_bytes(service, 'PUT', target, body, headers);
}

// One connection to the service. What it sends and when it leaves is the test's choice.
export class Client {
  // With `reads` false it leaves the answer where it is, but for the first piece that the runtime takes by itself.
  static async connect(service, { reads = true } = {}) {
    const client = new Client();
    client.received = '';
    client.socket = net.connect({ port: service.port, host: '127.0.0.1', allowHalfOpen: true });
    client.socket.setNoDelay(true);
    client.socket.unref();
    client.answered = new Promise((resolve) => {
      client.socket.on('end', () => resolve({ bytes: client.received, reset: false }));
      client.socket.on('error', (error) => resolve({ bytes: client.received, reset: true, error }));
      client.socket.on('close', () => resolve({ bytes: client.received, reset: false }));
    });
    if (reads) client.start_reading();
    const connected = new Promise((resolve, reject) => {
      client.socket.once('connect', resolve);
      client.socket.once('error', reject);
    });
    await within(wait_limit_ms, () => `a connection to port ${service.port}`, connected);
    return client;
  }

  // For a client that was connected with `reads` false: takes what has come and all that follows.
  start_reading() {
    this.socket.setEncoding('latin1');
    this.socket.on('data', (text) => {
      this.received += text;
    });
  }

  // Resolves when the system has taken the bytes. A peer that is gone is no failure here.
  async send(bytes) {
    const taken = new Promise((resolve) => this.socket.write(bytes, 'latin1', () => resolve()));
    await within(wait_limit_ms, () => 'the socket to take bytes', taken);
  }

  // As send, but waits for nothing: for a peer that stops reading.
  push(bytes) {
    this.socket.write(bytes, 'latin1', () => {});
  }

  half_close() {
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
  async wait_for_first_bytes(count, limit_ms = wait_limit_ms) {
    const look = () => (this.socket.readableLength >= count ? true : undefined);
    await poll(`${count} bytes of an answer`, look, limit_ms);
  }

  // Everything up to the service's close.
  async answer(limit_ms = wait_limit_ms) {
    const so_far = () => `an answer; so far ${this.received.length} bytes: ${JSON.stringify(this.received.slice(0, 2000))}`;
    const answer = await within(limit_ms, so_far, this.answered);
    this.socket.destroy();
    return answer;
  }

  // Whether the service is silent for this long.
  async is_silent_for(milliseconds) {
    const silent = Symbol('silent');
    const first = await Promise.race([this.answered, sleep(milliseconds).then(() => silent)]);
    return first === silent && this.received === '';
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
  return exchange(service, api_bytes(service, method, target, body));
}

export async function assert_answers(service) {
  assert.equal(await exchange(service, request_bytes(service, { target: '/api/' })), answers.no_token);
}

// ---- the account service ----

// A text as the bytes of its UTF-8, the way in which answers are read here, and the other way round.
export function utf8_bytes(text) {
  return Buffer.from(text).toString('latin1');
}

export function utf8_text(bytes) {
  return Buffer.from(bytes, 'latin1').toString();
}

// A test account service that ends with the test.
export async function start_account_service(t, options) {
  const account = await AccountService.start(options);
  t.after(() => account.close());
  return account;
}

// The service with a test account service behind it, or with an address of the test's own.
export function start_service_for(t, account, options = {}) {
  const url = typeof account === 'string' ? account : account.url;
  return start_service(t, { ...options, more: ['--account-service', url, ...(options.more ?? [])] });
}

// What the service reads when a login attempt has come to its end.
export const issued_fields = { status: 'issued', account_hash: 'hash-1', session_token: 'credential-1' };

// Signs in by one poll. `fields` come on top of those above.
export async function sign_in(service, account, fields = {}) {
  account.answer('/api/v1/auth/poll', json_reply({ ...issued_fields, ...fields }));
  const answer = await ask(service, 'GET', '/api/v1/account/poll?state=attempt');
  assert.equal(JSON.parse(utf8_text(body_of(answer))).status, 'issued', answer);
}

// The session as the status document shows it.
export async function session_of(service) {
  const document = body_of(await ask(service, 'GET', '/api/v1/status'));
  return JSON.parse(utf8_text(document)).session;
}

export const no_session = {
  account: '',
  signed_in: false,
  usage_seconds: 0,
  signed_in_unix: 0,
  primary_machine_id: '',
  primary_known: false,
  public_id: '',
  referral_open: false,
  referrer: '',
  invite_url: '',
};

// A head without the escapes that Wine's library makes in a target by itself. It leaves a percent sign alone, so that
// what a test escapes on its own must be none of these.
export function undo_wine_escapes(head) {
  if (is_native) return head;
  const made_by_it = /%(?:0[1-9A-F]|1[0-9A-F]|2[23]|3[CE]|5[CE]|60|7[BCDF]|[89A-F][0-9A-F])/g;
  const [target_line] = head.split('\r\n', 1);
  const undone = target_line.replace(made_by_it, (escape) => String.fromCharCode(Number.parseInt(escape.slice(1), 16)));
  return undone + head.slice(target_line.length);
}

// A request as the account service sees it, but for Wine's escapes. Wine's library adds a line of its own, and has an
// order of its own.
export function account_request_bytes(account, method, target, body = '') {
  const host = `Host: 127.0.0.1:${account.port}`;
  const user_agent = 'User-Agent: Velmora/1.1';
  const type = body === '' ? [] : ['Content-Type: application/json'];
  const length = body === '' ? [] : [`Content-Length: ${body.length}`];
  const lines = is_native
    ? [host, user_agent, ...type, ...length]
    : [user_agent, host, ...length, 'Connection: Keep-Alive', ...type];
  return `${[`${method} ${target} HTTP/1.1`, ...lines].join('\r\n')}\r\n\r\n${body}`;
}
