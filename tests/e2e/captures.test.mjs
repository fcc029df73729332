// Captures: commands to the effect, whether an export is there, and the archive that is made of it.
import assert from 'node:assert/strict';
import { execFile, execFileSync } from 'node:child_process';
import { createHash } from 'node:crypto';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';
import { promisify } from 'node:util';

import {
  answer_bytes,
  answers,
  api_bytes,
  ask,
  assert_answers,
  Client,
  exchange,
  hold_file,
  is_native,
  json_document,
  make_directory,
  make_unprivileged_service,
  program_path_text,
  read_record,
  refusal_bytes,
  request_bytes,
  run,
  start_effect,
  start_service,
  unique_mapping_name,
} from './harness.mjs';

const limits = { timeout: 180_000 };
const download_limit_ms = 60_000;
const capture = '/api/v1/debug/capture';
const request_at = 0xa8;

const names = [
  'capture-1-host-in.wav',
  'capture-2-algorithm-in.wav',
  'capture-3-algorithm-out.wav',
  'capture-4-host-out.wav',
];

const accepted = answer_bytes(200, 'OK', 'application/json', '{"ok":true,"applies_within_seconds":1}');
const bad_action = refusal_bytes(400, 'Bad Request', 'action must be start, stop or export');
const bad_seconds = refusal_bytes(400, 'Bad Request', 'seconds must be between 1 and 300');
const no_export = refusal_bytes(404, 'Not Found', 'no exported capture found -- export first');
const failure = (message) => refusal_bytes(500, 'Internal Server Error', message);
const ready_answer = (ready, bytes) => answer_bytes(200, 'OK', json_document, `{"ready":${ready},"bytes":${bytes}}`);

const command = (service, body) => ask(service, 'POST', capture, body);
const ready = (service) => ask(service, 'GET', `${capture}/ready`);
const download_bytes = (service) => api_bytes(service, 'GET', `${capture}/download`);

async function start_with_captures(t, directory, options = {}) {
  return start_service(t, { more: ['--capture-directory', program_path_text(directory)], ...options });
}

// Bytes that differ from file to file and from place to place.
function some_bytes(count, seed) {
  const bytes = Buffer.alloc(count);
  for (let index = 0; index < count; ++index) bytes[index] = (index * 31 + (index >> 8) * 7 + seed) & 0xff;
  return bytes;
}

// Writes the four files in place of whatever stands there, and gives their contents.
function write_captures(directory, sizes) {
  return sizes.map((size, index) => {
    const bytes = some_bytes(size, index * 50);
    const file = path.join(directory, names[index]);
    fs.rmSync(file, { recursive: true, force: true });
    fs.writeFileSync(file, bytes);
    return bytes;
  });
}

// ---- the archive, written down a second time ----

const crc_table = Array.from({ length: 256 }, (_, index) => {
  let value = index;
  for (let round = 0; round < 8; ++round) value = value & 1 ? (value >>> 1) ^ 0xedb88320 : value >>> 1;
  return value >>> 0;
});

function crc32_of(bytes) {
  let register = 0xffffffff;
  for (const byte of bytes) register = (register >>> 8) ^ crc_table[(register ^ byte) & 0xff];
  return (register ^ 0xffffffff) >>> 0;
}

function fields(...widths_and_values) {
  return Buffer.concat(
    widths_and_values.map(([width, value]) => {
      const bytes = Buffer.alloc(width);
      bytes.writeUIntLE(value, 0, width);
      return bytes;
    }),
  );
}

// Where the local headers stand, and the central directory at the end.
function offsets_of(sizes) {
  const offsets = [0];
  sizes.forEach((size, index) => offsets.push(offsets[index] + 30 + names[index].length + size));
  return offsets;
}

// The archive of these contents with these words for time and date. A checksum may be given for bytes that were others
// when they were summed.
function archive_of(contents, moment, checksums = contents.map(crc32_of)) {
  const offsets = offsets_of(contents.map((bytes) => bytes.length));
  const parts = [];
  const entries = [];
  contents.forEach((bytes, index) => {
    const name = Buffer.from(names[index], 'latin1');
    const common = fields(
      [2, 20], [2, 0], [2, 0], [2, moment.time], [2, moment.date],
      [4, checksums[index]], [4, bytes.length], [4, bytes.length], [2, name.length], [2, 0],
    );
    parts.push(fields([4, 0x04034b50]), common, name, bytes);
    const rest = fields([2, 0], [2, 0], [2, 0], [4, 0], [4, offsets[index]]);
    entries.push(fields([4, 0x02014b50], [2, 20]), common, rest, name);
  });
  const directory = Buffer.concat(entries);
  const end = fields([4, 0x06054b50], [2, 0], [2, 0], [2, 4], [2, 4], [4, directory.length], [4, offsets[4]], [2, 0]);
  return Buffer.concat([...parts, directory, end]);
}

// ---- the download ----

const head_form = new RegExp(
  '^HTTP/1\\.1 200 OK\r\nContent-Type: application/zip\r\nContent-Length: ([0-9]+)\r\n' +
    'Content-Disposition: attachment; filename="(velmora-capture-[0-9]{8}-[0-9]{6}\\.zip)"\r\n' +
    'Connection: close\r\nCache-Control: no-store\r\nX-Content-Type-Options: nosniff\r\n\r\n$',
);

// Takes an answer apart: the promised length, the name, the bytes, and the words for time and date of the first header.
function take_apart(answer) {
  const head_bytes = answer.indexOf('\r\n\r\n') + 4;
  const head = answer.slice(0, head_bytes);
  const match = head_form.exec(head);
  assert.ok(match, head.slice(0, 1000));
  const archive = Buffer.from(answer.slice(head_bytes), 'latin1');
  const moment = { time: archive.readUInt16LE(10), date: archive.readUInt16LE(12) };
  return { length: Number(match[1]), name: match[2], archive, moment };
}

async function download(service) {
  const client = await Client.connect(service);
  client.push(download_bytes(service));
  return take_apart((await client.answer(download_limit_ms)).bytes);
}

function assert_whole(taken, contents) {
  const expected = archive_of(contents, taken.moment);
  assert.equal(taken.length, expected.length);
  assert.equal(taken.archive.length, expected.length);
  assert.ok(taken.archive.equals(expected), 'the archive is the expected one byte for byte');
}

// What Python's own reader finds: whether every checksum fits, and of each member the name, size, method and content.
const python_reader = `
import hashlib, json, sys, zipfile
with zipfile.ZipFile(sys.argv[1]) as archive:
  members = [[i.filename, i.file_size, i.compress_size, i.compress_type,
              hashlib.sha256(archive.read(i)).hexdigest()] for i in archive.infolist()]
  print(json.dumps([archive.testzip(), archive.comment.decode(), members]))
`;

const run_tool = promisify(execFile);
const tool_limits = { timeout: 60_000, env: { ...process.env, LC_ALL: 'C.UTF-8' } };

async function assert_tools_read(archive, contents) {
  const file = path.join(make_directory(), 'captures.zip');
  fs.writeFileSync(file, archive);
  const tested = await run_tool('unzip', ['-t', file], tool_limits);
  assert.ok(tested.stdout.endsWith(`No errors detected in compressed data of ${file}.\n`), tested.stdout);
  assert.equal(tested.stderr, '');
  const listed = await run_tool('bsdtar', ['-tvf', file], tool_limits);
  const lines = listed.stdout.trimEnd().split('\n').map((line) => line.split(/\s+/));
  assert.deepEqual(lines.map((line) => [line.at(-1), Number(line[4])]), contents.map((bytes, index) => [names[index], bytes.length]));
  assert.equal(listed.stderr, '');
  const read = await run_tool('python3', ['-c', python_reader, file], tool_limits);
  const members = contents.map((bytes, index) => {
    return [names[index], bytes.length, bytes.length, 0, createHash('sha256').update(bytes).digest('hex')];
  });
  assert.deepEqual(JSON.parse(read.stdout), [null, '', members]);
  fs.rmSync(file);
}

// ---- commands ----

// Body, then action and seconds as they must stand in the word.
const commands = [
  ['{"action":"start"}', 1, 120],
  ['{"action":"start"}', 1, 120],
  ['{"action":"stop"}', 2, 120],
  ['{"action":"export"}', 3, 120],
  ['{"action":"start","seconds":1}', 1, 1],
  ['{"action":"start","seconds":300}', 1, 300],
  ['{"action":"start","seconds":300.0}', 1, 300],
  ['{"action":"start","seconds":1.9}', 1, 1],
  ['{"action":"stop","seconds":299.99}', 2, 299],
  ['{"seconds":7,"action":"export"}', 3, 7],
  ['{"action":"start","seconds":"7"}', 1, 120],
  ['{"action":"start","seconds":null}', 1, 120],
  ['{"action":"start","seconds":true}', 1, 120],
  ['{"action":"start","seconds":nan}', 1, 120],
  ['{"action":"export","action":"start"}', 3, 120],
  ['"action":"stop"', 2, 120],
];

test('a command is one word of the record, with a sequence of its own', limits, async (t) => {
  const directory = make_directory();
  const service = await start_with_captures(t, directory);
  const first = await read_record(t, service.mapping);
  assert.equal(first.readBigUInt64LE(request_at), 0n);
  for (const [index, [body, action, seconds]] of commands.entries()) {
    await t.test(`${index + 1}: ${body}`, async () => {
      assert.equal(await command(service, body), accepted);
      const expected = Buffer.from(first);
      expected.writeUInt16LE(action, request_at);
      expected.writeUInt16LE(seconds, request_at + 2);
      expected.writeUInt32LE(index + 1, request_at + 4);
      assert.deepEqual(await read_record(t, service.mapping), expected);
    });
  }
  await service.stop();
});

const refused_commands = [
  ...['', '{}', 'null', '{"seconds":5}', '{"action":null}', '{"action":3}', '{"action":""}', '{"action":"Start"}', '{"action":"EXPORT"}',
    '{"action":"export "}', '{"action":" export"}', '{"action":"exports"}', '{"action":"export\\u0000"}', '{"action":"expor\\t"}',
    '{"action":"export', '{"action":export}', "{'action':'export'}", '{"Action":"export"}', '{"action":["export"]}',
    '{"action":"none","action":"export"}', '{"action":"pause","seconds":999}'].map((body) => [body, bad_action]),
  ...['0', '0.5', '0.99999', '300.5', '300.001', '301', '999', '-1', '-0', '65537', '1e9', '1e38'].map((seconds) =>
    [`{"action":"export","seconds":${seconds}}`, bad_seconds]),
  ['{"action":"start","seconds":0.5}', bad_seconds],
  ['{"action":"stop","seconds":999}', bad_seconds],
];

test('a refused command publishes nothing and deletes nothing', limits, async (t) => {
  const directory = make_directory();
  const contents = write_captures(directory, [10, 20, 30, 40]);
  const service = await start_with_captures(t, directory);
  assert.equal(await command(service, '{"action":"start","seconds":5}'), accepted);
  const before = await read_record(t, service.mapping);
  const assert_nothing_done = async () => {
    assert.deepEqual(await read_record(t, service.mapping), before);
    names.forEach((name, index) => assert.ok(fs.readFileSync(path.join(directory, name)).equals(contents[index])));
  };
  for (const [body, expected] of refused_commands) {
    await t.test(body || 'no body', async () => {
      assert.equal(await command(service, body), expected);
      await assert_nothing_done();
    });
  }
  await t.test('methods, paths, origin and token', async () => {
    const body = '{"action":"export"}';
    for (const [method, target] of [
      ['GET', capture], ['PUT', capture], ['DELETE', capture], ['post', capture], ['POST', `${capture}/`],
      ['POST', `${capture}/ready`], ['POST', `${capture}/download`], ['POST', `${capture}s`],
      ['HEAD', `${capture}/ready`], ['HEAD', `${capture}/download`], ['DELETE', `${capture}/download`], ['GET', `${capture}/download/`],
    ]) {
      assert.equal(await ask(service, method, target, body), answers.not_found, `${method} ${target}`);
    }
    const options = { method: 'POST', target: capture, body };
    assert.equal(await exchange(service, request_bytes(service, options)), answers.no_token);
    const headers = [['X-Velmora-Token', service.token], ['Origin', 'null']];
    assert.equal(await exchange(service, request_bytes(service, { ...options, headers })), answers.not_local);
    const plain = request_bytes(service, { target: `${capture}/download` });
    assert.equal(await exchange(service, plain), answers.no_token);
    await assert_nothing_done();
  });
  await service.stop();
});

test('export clears the files of the last one, and start and stop do not', limits, async (t) => {
  const directory = make_directory();
  const service = await start_with_captures(t, directory);
  write_captures(directory, [10, 20, 30, 40]);
  fs.writeFileSync(path.join(directory, 'capture-5-other.wav'), 'other');
  for (const action of ['start', 'stop']) {
    assert.equal(await command(service, `{"action":"${action}"}`), accepted);
    assert.equal(await ready(service), ready_answer(true, 100));
  }
  assert.equal(await command(service, '{"action":"export"}'), accepted);
  assert.deepEqual(fs.readdirSync(directory), ['capture-5-other.wav']);
  assert.equal(await ready(service), ready_answer(false, 0));
  assert.equal(await command(service, '{"action":"export"}'), accepted, 'nothing to clear is no fault');

  await t.test('a directory that bears a name stays, and what is missing does not keep the rest', async () => {
    write_captures(directory, [10, 20, 30, 40]);
    fs.rmSync(path.join(directory, names[0]));
    fs.mkdirSync(path.join(directory, names[0]));
    fs.rmSync(path.join(directory, names[1]));
    assert.equal(await command(service, '{"action":"export"}'), accepted);
    assert.deepEqual(fs.readdirSync(directory).sort(), [names[0], 'capture-5-other.wav'].sort());
    fs.rmdirSync(path.join(directory, names[0]));
  });
  await t.test('no directory is no fault', async () => {
    fs.rmSync(directory, { recursive: true });
    assert.equal(await command(service, '{"action":"export"}'), accepted);
    assert.equal(await ready(service), ready_answer(false, 0));
    assert.equal(await exchange(service, download_bytes(service)), no_export);
    assert.equal(fs.existsSync(directory), false);
  });
  await service.stop();
});

test('a file that cannot be deleted does not keep an export from the effect', limits, async (t) => {
  const directory = make_directory();
  write_captures(directory, [10, 20, 30, 40]);
  let let_go;
  const options = {};
  if (is_native) {
    options.program = make_unprivileged_service();
    fs.chmodSync(directory, 0o555);
    let_go = async () => fs.chmodSync(directory, 0o755);
  } else {
    let_go = await hold_file(t, path.join(directory, names[1]));
  }
  const service = await start_with_captures(t, directory, options);
  const left = is_native ? names : [names[1]];
  assert.equal(await command(service, '{"action":"export","seconds":9}'), accepted);
  assert.deepEqual(fs.readdirSync(directory).sort(), left);
  const record = await read_record(t, service.mapping);
  assert.equal(record.readBigUInt64LE(request_at), (1n << 32n) | (9n << 16n) | 3n);
  await let_go();
  assert.equal(await command(service, '{"action":"export"}'), accepted);
  assert.deepEqual(fs.readdirSync(directory), []);
  await service.stop();
});

// ---- what is there, and what comes of it ----

// Spoils one file, and tells what the download then says and how many files are counted. The first file that fails
// decides, so a fault behind it is not told.
const faults = [
  ...names.map((name, index) => [`no ${name}`, (at) => fs.rmSync(at(index)), no_export, index]),
  ...names.map((name, index) => [
    `${name} is empty`,
    (at) => fs.truncateSync(at(index), 0),
    failure(`capture file is empty or unreadable: ${name}`),
    index,
  ]),
  ['a directory', (at) => { fs.rmSync(at(3)); fs.mkdirSync(at(3)); }, no_export, 3],
  ['a pipe', (at) => { fs.rmSync(at(2)); execFileSync('mkfifo', [at(2)]); }, no_export, 2],
  ['a link to nowhere', (at) => { fs.rmSync(at(1)); fs.symlinkSync('nowhere', at(1)); }, no_export, 1],
  ['a link to a directory', (at) => { fs.rmSync(at(1)); fs.symlinkSync('.', at(1)); }, no_export, 1],
  [
    'an empty second before a missing third',
    (at) => { fs.truncateSync(at(1), 0); fs.rmSync(at(2)); },
    failure(`capture file is empty or unreadable: ${names[1]}`),
    1,
  ],
  ['a missing second before an empty third', (at) => { fs.rmSync(at(1)); fs.truncateSync(at(2), 0); }, no_export, 1],
  [
    'one byte too large, before a missing fourth',
    (at) => { fs.truncateSync(at(2), 0x100000000); fs.rmSync(at(3)); },
    failure(`capture file is too large for a zip member: ${names[2]}`),
    3,
    10 + 20 + 0x100000000,
  ],
  // Of such a file the system tells a size that its reading does not give.
  [
    'a file that reads shorter than it is',
    (at) => { fs.rmSync(at(0)); fs.symlinkSync('/sys/devices/system/cpu/online', at(0)); },
    failure(`capture file changed while it was being read: ${names[0]}`),
    4,
    4096 + 20 + 30 + 40,
  ],
];

test('what is missing or spoilt is told before the head', limits, async (t) => {
  const directory = make_directory();
  const service = await start_with_captures(t, directory);
  const sizes = [10, 20, 30, 40];
  for (const [what, spoil, expected, good_files, bytes] of faults) {
    await t.test(what, async () => {
      write_captures(directory, sizes);
      spoil((index) => path.join(directory, names[index]));
      const counted = bytes ?? sizes.slice(0, good_files).reduce((sum, size) => sum + size, 0);
      assert.equal(await ready(service), ready_answer(good_files === 4, counted));
      assert.equal(await exchange(service, download_bytes(service)), expected);
    });
  }
  await t.test('four files above the limit are ready and yet too large', async () => {
    write_captures(directory, sizes);
    for (const name of names) fs.truncateSync(path.join(directory, name), 0x100000000);
    assert.equal(await ready(service), ready_answer(true, 4 * 0x100000000));
    const expected = failure(`capture file is too large for a zip member: ${names[0]}`);
    assert.equal(await exchange(service, download_bytes(service)), expected);
  });
  await t.test('whole again', async () => {
    const contents = write_captures(directory, sizes);
    assert_whole(await download(service), contents);
  });
  await service.stop();
});

if (is_native) {
  test('a file that may not be read', limits, async (t) => {
    const directory = make_directory();
    const service = await start_with_captures(t, directory, { program: make_unprivileged_service() });
    for (const [index, name] of names.entries()) {
      write_captures(directory, [10, 20, 30, 40]);
      fs.chmodSync(path.join(directory, name), 0);
      assert.equal(await ready(service), ready_answer(true, 100), 'it is looked at and not opened');
      assert.equal(await exchange(service, download_bytes(service)), failure(`cannot read ${name}`), String(index));
    }
    await service.stop();
  });
}

// ---- where the files are looked for ----

test('the directory is the option, else the registry, else the default', limits, async (t) => {
  const home = make_directory();
  const place = (...parts) => {
    const directory = path.join(home, ...parts);
    fs.mkdirSync(directory, { recursive: true });
    return directory;
  };
  const option = place('option');
  write_captures(option, [1, 1, 1, 1]);
  if (is_native) {
    const env = { VELMORA_DRIVES: home };
    write_captures(place('c', 'ProgramData', 'Velmora', 'wav'), [2, 2, 2, 2]);
    write_captures(place('d', 'told by', 'registry'), [3, 3, 3, 3]);
    const machine = path.join(home, 'machine.reg');
    const lines = [
      'Windows Registry Editor Version 5.00',
      '',
      '[HKEY_LOCAL_MACHINE\\SOFTWARE\\Velmora]',
      '"CaptureDirectory"="D:\\\\told by\\\\registry"',
      '',
    ];
    fs.writeFileSync(machine, lines.join('\r\n'));
    const told = { ...env, VELMORA_MACHINE: machine };
    for (const [what, options, bytes] of [
      ['the default', { env }, 8],
      ['the registry', { env: told }, 12],
      ['the option', { env: told, more: ['--capture-directory', option] }, 4],
      ['an empty option is none', { env: told, more: ['--capture-directory', ''] }, 12],
    ]) {
      await t.test(what, async (t) => {
        const service = await start_service(t, options);
        assert.equal(await ready(service), ready_answer(true, bytes));
        await service.stop();
      });
    }
    return;
  }
  const key = ['HKLM\\SOFTWARE\\Velmora', '/v', 'CaptureDirectory', '/f', '/reg:64'];
  const told = place('told by', 'registry');
  write_captures(told, [3, 3, 3, 3]);
  t.after(() => run(t, 'reg', ['delete', ...key]).catch(() => {}));
  const service = await start_service(t);
  const with_option = await start_with_captures(t, option);
  for (const [directory, bytes] of [[told, 12], [option, 4]]) {
    const set = await run(t, 'reg', ['add', ...key, '/t', 'REG_SZ', '/d', program_path_text(directory)]);
    assert.equal(set.code, 0, set.errors);
    assert.equal(await ready(service), ready_answer(true, bytes), 'each request looks anew');
    assert.equal(await ready(with_option), ready_answer(true, 4));
  }
  const removed = await run(t, 'reg', ['delete', ...key]);
  assert.equal(removed.code, 0, removed.errors);
  assert.equal(await ready(service), ready_answer(false, 0));
  await with_option.stop();
  await service.stop();
});

// ---- the archive ----

const sizes_table = [
  [1, 1, 1, 1],
  [44, 1000, 65_535, 65_536],
  [65_537, 131_072, 131_073, 3],
  [3_000_017, 44, 1_920_044, 500_000],
];

test('the archive is exact, and every reader opens it', limits, async (t) => {
  const directory = make_directory();
  const service = await start_with_captures(t, directory);
  for (const sizes of sizes_table) {
    await t.test(`files of ${sizes.join(', ')} bytes`, async () => {
      const contents = write_captures(directory, sizes);
      const taken = await download(service);
      const sum = sizes.reduce((total, size) => total + size, 0);
      assert.equal(taken.length, sum + 518);
      const offsets = offsets_of(sizes);
      assert.deepEqual(offsets.slice(1, 4), [51 + sizes[0], 107 + sizes[0] + sizes[1], 164 + sizes[0] + sizes[1] + sizes[2]]);
      assert.equal(offsets[4], 216 + sum);
      assert_whole(taken, contents);
      await assert_tools_read(taken.archive, contents);
    });
  }
  await t.test('a download changes nothing and can be repeated', async () => {
    const contents = write_captures(directory, [5, 6, 7, 8]);
    assert_whole(await download(service), contents);
    assert_whole(await download(service), contents);
    names.forEach((name, index) => assert.ok(fs.readFileSync(path.join(directory, name)).equals(contents[index])));
  });
  await t.test('a file behind a link is archived', async () => {
    const contents = write_captures(directory, [5, 6, 7, 8]);
    fs.renameSync(path.join(directory, names[2]), path.join(directory, 'elsewhere'));
    fs.symlinkSync('elsewhere', path.join(directory, names[2]));
    assert_whole(await download(service), contents);
  });
  await service.stop();
});

test('the archive bears the local time', limits, async (t) => {
  const directory = make_directory();
  write_captures(directory, [1, 1, 1, 1]);
  const service = await start_with_captures(t, directory);
  // Half a second of slack on each side: two seconds are one step of the format.
  const before = Date.now() - 2500;
  const { name, moment } = await download(service);
  const after = Date.now() + 500;
  const local = (year, month, ...rest) => new Date(year, month - 1, ...rest).getTime();
  const [, ...digits] = /-(\d{4})(\d\d)(\d\d)-(\d\d)(\d\d)(\d\d)\.zip$/.exec(name);
  const { date, time } = moment;
  const in_words = [1980 + (date >> 9), (date >> 5) & 15, date & 31, time >> 11, (time >> 5) & 63, (time & 31) * 2];
  for (const stamp of [local(...digits.map(Number)), local(...in_words)]) {
    assert.ok(before < stamp && stamp < after, `${new Date(stamp)}`);
  }
  await service.stop();
});

test('from the start of a capture to its archive, with the effect', limits, async (t) => {
  const home = make_directory();
  const directory = path.join(home, 'made by the effect');
  const mapping = unique_mapping_name();
  const effect = await start_effect(t, mapping, ['--capture-directory', program_path_text(directory)]);
  const service = await start_with_captures(t, directory, { mapping });
  assert.equal(await command(service, '{"action":"start","seconds":3}'), accepted);
  await effect.wait_for_line('capture action=start seconds=3 sequence=1 state=1');
  assert.equal(await command(service, '{"action":"stop","seconds":3}'), accepted);
  await effect.wait_for_line('capture action=stop seconds=3 sequence=2 state=2');
  assert.equal(await ready(service), ready_answer(false, 0));
  assert.equal(await exchange(service, download_bytes(service)), no_export);

  for (const sequence of [3, 4]) {
    assert.equal(await command(service, '{"action":"export","seconds":3}'), accepted);
    await effect.wait_for_line(`capture action=export seconds=3 sequence=${sequence} state=4`);
    const contents = names.map((name) => fs.readFileSync(path.join(directory, name)));
    const bytes = contents.reduce((sum, content) => sum + content.length, 0);
    assert.equal(await ready(service), ready_answer(true, bytes));
    const taken = await download(service);
    assert_whole(taken, contents);
    await assert_tools_read(taken.archive, contents);
    for (const content of contents) {
      assert.equal(content.toString('latin1', 0, 4) + content.toString('latin1', 8, 12), 'RIFFWAVE');
      assert.equal(content.readUInt32LE(4), content.length - 8);
    }
  }
  await service.stop();
  await effect.stop();
});

// ---- files that change, and clients that leave, while the archive is on its way ----

const megabyte = 1024 * 1024;
// More than the sockets of both sides take, so that the service stands within the first file while a client waits.
const long_sizes = [64 * megabyte, 100, 200, 1000];

// Asks for the archive and takes no more than its beginning, of which so much shows that the first file is open.
const beginning_bytes = 1024;

async function begin_download(service) {
  const client = await Client.connect(service, { reads: false });
  client.push(download_bytes(service));
  await client.wait_for_first_bytes(beginning_bytes, download_limit_ms);
  return client;
}

// What has come when the service has closed. The promised length is held against what it should be.
async function end_download(client) {
  client.start_reading();
  const taken = take_apart((await client.answer(download_limit_ms)).bytes);
  assert.equal(taken.length, long_sizes.reduce((sum, size) => sum + size, 518));
  return taken;
}

function write_long_captures(directory) {
  const contents = write_captures(directory, [1, ...long_sizes.slice(1)]);
  fs.truncateSync(path.join(directory, names[0]), long_sizes[0]);
  const first = Buffer.alloc(long_sizes[0]);
  contents[0].copy(first);
  return [first, ...contents.slice(1)];
}

test('files that change while the archive is on its way', limits, async (t) => {
  const directory = make_directory();
  const service = await start_with_captures(t, directory);
  const at = (index) => path.join(directory, names[index]);
  const contents = write_long_captures(directory);
  const checksums = contents.map(crc32_of);
  const fourth = offsets_of(long_sizes)[3] + 30 + names[3].length;

  const cut_short = [
    ['the last file gets shorter', () => fs.truncateSync(at(3), 400), fourth + 400],
    ['the last file gets empty', () => fs.truncateSync(at(3), 0), fourth],
    ['the last file goes', () => fs.rmSync(at(3)), fourth],
    ['the last file becomes a directory', () => { fs.rmSync(at(3)); fs.mkdirSync(at(3)); }, fourth],
    ['the file that is being sent gets shorter', () => fs.truncateSync(at(0), 48 * megabyte), 30 + names[0].length + 48 * megabyte],
  ];
  for (const [what, change, sent_bytes] of cut_short) {
    await t.test(`${what}: the archive ends early`, async () => {
      write_long_captures(directory);
      const client = await begin_download(service);
      change();
      const { archive, moment } = await end_download(client);
      assert.equal(archive.length, sent_bytes);
      assert.ok(archive.equals(archive_of(contents, moment, checksums).subarray(0, sent_bytes)));
      await assert_answers(service);
    });
  }
  await t.test('the last file grows: it is cut at the size that was summed', async () => {
    write_long_captures(directory);
    const client = await begin_download(service);
    fs.appendFileSync(at(3), 'more of it');
    const { archive, moment } = await end_download(client);
    assert.ok(archive.equals(archive_of(contents, moment, checksums)));
    await assert_tools_read(archive, contents);
  });
  await t.test('a file is written over at its length: the checksum is that of the first pass', async () => {
    write_long_captures(directory);
    const client = await begin_download(service);
    const other = some_bytes(long_sizes[2], 99);
    fs.writeFileSync(at(2), other);
    const { archive, moment } = await end_download(client);
    assert.ok(archive.equals(archive_of([contents[0], contents[1], other, contents[3]], moment, checksums)));
    await assert.rejects(assert_tools_read(archive, contents), 'readers see that it does not fit');
  });
  await t.test('the effect may replace a file that is being sent', async () => {
    write_long_captures(directory);
    const client = await begin_download(service);
    const fresh = path.join(directory, 'fresh');
    fs.writeFileSync(fresh, 'fresh');
    fs.renameSync(fresh, at(0));
    const { archive, moment } = await end_download(client);
    assert.ok(archive.equals(archive_of(contents, moment, checksums)));
  });
  await service.stop();
});

test('a client that leaves does not hurt the next one', limits, async (t) => {
  const directory = make_directory();
  const service = await start_with_captures(t, directory);
  const contents = write_long_captures(directory);
  const leave_at_once = async (way) => {
    const client = await Client.connect(service, { reads: false });
    await client.send(download_bytes(service));
    client[way]();
  };
  const leave_within = async (way) => {
    const client = await begin_download(service);
    client[way]();
  };
  for (const way of ['reset', 'leave']) {
    for (const [when, go] of [['before the head', leave_at_once], ['within the first file', leave_within]]) {
      await t.test(`${way} ${when}`, async () => {
        await go(way);
        await assert_answers(service);
        await go(way);
        assert.equal(await ready(service), ready_answer(true, long_sizes.reduce((sum, size) => sum + size)));
      });
    }
  }
  await t.test('one that has only ended its own side gets all of it', async () => {
    const client = await begin_download(service);
    client.half_close();
    const { archive } = await end_download(client);
    assert.equal(archive.length, contents.reduce((sum, bytes) => sum + bytes.length, 518));
  });
  await t.test('one that waits long gets all of it, and others wait for it', async () => {
    const client = await begin_download(service);
    const other = await Client.connect(service);
    other.push(request_bytes(service, { target: '/api/' }));
    assert.ok(await other.is_silent_for(300));
    const { archive, moment } = await end_download(client);
    assert.ok(archive.equals(archive_of(contents, moment)));
    assert.equal((await other.answer()).bytes, answers.no_token);
  });
  await service.stop();
});
