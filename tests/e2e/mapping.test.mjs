// How the service gets hold of the shared record and lets go of it: the calls that it makes for it on Windows, a
// creator that is not done yet, and a service that is killed.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import net from 'node:net';
import test from 'node:test';

import { call_trace, own_calls } from './call_trace.mjs';
import {
  answers,
  assert_answers,
  creating_service,
  exchange,
  free_port,
  is_wine,
  launch,
  make_web_root,
  poll,
  program_path_text,
  put_bytes,
  read_record,
  run,
  shipped_service,
  start_effect,
  start_limit_ms,
  start_service,
  unique_mapping_name,
  wait_limit_ms,
  within,
} from './harness.mjs';

const limits = { timeout: 90_000 };
const footstep = '/api/v1/render/effects/footstep';
const algorithm = '/api/v1/render/effects/algorithm';
const incompatible = 'Unable to create shared control bridge: existing control mapping has an incompatible layout\n';
const record_magic = 0x31434d56;

function service_arguments(port, mapping) {
  return ['--port', String(port), '--web-root', program_path_text(make_web_root()), '--control-map', mapping];
}

// ---- a creator that is not done yet ----

function is_finished(record) {
  return record.readUInt32LE(0) === record_magic;
}

// The state letter of a process, or undefined when it is gone.
function state_of(program) {
  try {
    const text = fs.readFileSync(`/proc/${program.child.pid}/stat`, 'latin1');
    return text.slice(text.lastIndexOf(')') + 2)[0];
  } catch {
    return undefined;
  }
}

// Holds a program where it is. False when it ended before.
async function hold(program) {
  program.signal('SIGSTOP');
  const state = await poll(`${program.name} to hold`, () => {
    const now = state_of(program);
    return now === undefined || 'TZX'.includes(now) ? (now ?? 'X') : undefined;
  });
  return state === 'T';
}

// An effect that has made the mapping and is held before it writes the magic. It writes it once it is let go on. On a
// machine so slow that the magic came first, another mapping gets more time.
async function start_held_creator(t) {
  for (let finish_after_ms = 1_000; finish_after_ms <= 8_000; finish_after_ms *= 2) {
    const mapping = unique_mapping_name();
    const effect = await start_effect(t, mapping, ['--finish-after-ms', String(finish_after_ms)], 'mapping made');
    // The last of what it does before: from here on the magic is the only thing that it still writes.
    await effect.until('its first look', () => effect.output.match(/^algorithm word=.*\n/m) ?? undefined);
    assert.ok(await hold(effect));
    if (!is_finished(await read_record(t, mapping))) return { effect, mapping };
    effect.kill();
  }
  throw new Error('no creator could be held before it was done');
}

async function finished_record(t, mapping) {
  return poll('the creator to finish', async () => {
    const record = await read_record(t, mapping);
    return is_finished(record) ? record : undefined;
  });
}

test('a creator that is not done in time ends the start, and the next start finds it done', limits, async (t) => {
  const { effect, mapping } = await start_held_creator(t);
  const unfinished = await read_record(t, mapping);
  const refused = { code: 5, signal: null, output: '', errors: incompatible };
  assert.deepEqual(await run(t, shipped_service, service_arguments(await free_port(), mapping)), refused);
  assert.deepEqual(await read_record(t, mapping), unfinished, 'nothing was written');

  effect.signal('SIGCONT');
  const record = await finished_record(t, mapping);
  const service = await start_service(t, { program: shipped_service, mapping });
  assert.deepEqual(await read_record(t, mapping), record);
  await assert_answers(service);
  await service.stop();
  await effect.stop();
});

// Whether the service pauses with the record in hand. Natively the system tells what a process has mapped and that it
// sleeps; under Wine the trace tells.
function is_waiting(service, mapping) {
  if (is_wine) return service.errors.includes('.Sleep(00000001)');
  try {
    const maps = fs.readFileSync(`/proc/${service.child.pid}/maps`, 'latin1');
    return maps.includes(mapping.replace('\\', '.')) && state_of(service) === 'S';
  } catch {
    return false;
  }
}

// Looks without a pause of its own: the moment is short.
async function reach_its_wait(service, mapping) {
  const deadline = Date.now() + wait_limit_ms;
  while (!service.end && Date.now() < deadline) {
    if (is_waiting(service, mapping)) return;
    await new Promise((resolve) => setImmediate(resolve));
  }
}

// The service counts its looks and not the time, so one that is held between two looks has all the others left. It is
// held from outside, and the moment may be missed: then it has ended, and another one is started.
test('a service waits for a creator that gets done meanwhile', limits, async (t) => {
  const { effect, mapping } = await start_held_creator(t);
  const port = await free_port();
  const env = is_wine ? call_trace : {};
  let service;
  for (let attempt = 0; attempt < 20; ++attempt) {
    service = launch(t, shipped_service, service_arguments(port, mapping), { env });
    await reach_its_wait(service, mapping);
    if (await hold(service)) break;
    assert.deepEqual(await service.wait_for_end(start_limit_ms), { code: 5, signal: null });
  }
  assert.equal(state_of(service), 'T', 'a service was held while it waited');

  effect.signal('SIGCONT');
  const record = await finished_record(t, mapping);
  assert.equal(service.output, '');
  service.signal('SIGCONT');
  await service.wait_for_line('  Press Ctrl+C to stop.', 0, start_limit_ms);
  assert.deepEqual(await read_record(t, mapping), record, 'it took the record as it stands');
  await assert_answers({ port });
  service.signal('SIGINT');
  assert.deepEqual(await service.wait_for_end(), { code: 0, signal: null });
  if (is_wine) assert.ok((await traced_calls(service, shipped_service)).some((call) => call.name === 'Sleep'));
  await effect.stop();
});

// ---- a service that is killed ----

async function put_parameters(service) {
  const requests = [
    [footstep, '{"bypass":false,"enhance_strength":0.375,"bypass_all":true}'],
    [algorithm, '{"output_trim_db":-7.5,"stereo_link":2}'],
  ];
  for (const [target, body] of requests) {
    assert.equal(await exchange(service, put_bytes(service, target, body)), answers.done);
  }
}

test('the parameters outlive a service that is killed', limits, async (t) => {
  const rows = [
    ['the service made the mapping', false],
    ['the effect made the mapping', true],
  ];
  for (const [what, effect_first] of rows) {
    await t.test(what, async (row) => {
      const mapping = unique_mapping_name();
      let effect;
      if (effect_first) effect = await start_effect(row, mapping, [], 'mapping made');
      const service = await start_service(row, { mapping });
      effect ??= await start_effect(row, mapping, ['--open-only'], 'mapping opened');
      await put_parameters(service);
      await effect.until('the footstep word', () => effect.output.match(/^applied .* strength=0\.375\n/m) ?? undefined);
      const record = await read_record(row, mapping);
      assert.equal(record.readBigUInt64LE(0x10), 0x000000023ec00000n);
      assert.equal(record.readBigUInt64LE(0xb8), 0xffb5fff6000a0001n);

      service.kill();
      await service.wait_for_end();
      assert.deepEqual(await read_record(row, mapping), record, 'the killed service left the record alone');
      const again = await start_service(row, { program: shipped_service, mapping });
      assert.deepEqual(await read_record(row, mapping), record, 'the new service changed no byte');
      await put_parameters(again);
      assert.deepEqual(await read_record(row, mapping), record, 'the same parameters are the same words');
      await again.stop();
      await effect.stop();
    });
  }
});

// ---- the calls on Windows ----

const descriptor_text =
  'D:P(A;;GA;;;OW)(A;;GA;;;SY)(A;;GA;;;LS)(A;;GRGW;;;AU)(A;;GRGW;;;WD)(A;;GRGW;;;WR)S:(ML;;NW;;;LW)';

// How an argument is shown: a pointer by what it is for, a handle by where it came from. The upper half of a slot means
// nothing where the argument is of 32 bits.
const number = ({ value }) => String(value & 0xffffffffn);
const whole = ({ value }) => String(value);
const hex = ({ value }) => `0x${(value & 0xffffffffn).toString(16)}`;
const text = (argument) => argument.text;
const pointer = (what) => ({ value }) => (value === 0n ? 'null' : what);
const handle = ({ value }, known) => (value === 0xffffffffffffffffn ? 'none' : (known.get(value) ?? 'unknown'));

// The calls that are looked at, with the form of each argument. `gives` names what the result stands for in later
// calls, `ends` says that the first argument stands for nothing any more.
const watched = {
  BCryptGenRandom: { args: [whole, pointer('buffer'), number, number] },
  OpenFileMappingW: { args: [number, number, text], gives: 'mapping' },
  ConvertStringSecurityDescriptorToSecurityDescriptorW: { args: [text, number, pointer('descriptor'), whole] },
  CreateFileMappingW: { args: [handle, pointer('attributes'), number, number, number, text], gives: 'mapping' },
  LocalFree: { args: [pointer('descriptor')] },
  MapViewOfFile: { args: [handle, number, number, number, whole], gives: 'view' },
  UnmapViewOfFile: { args: [handle], ends: true },
  CloseHandle: { args: [handle], ends: true },
  Sleep: { args: [number] },
  CoInitializeEx: { args: [whole, number] },
  CoUninitialize: { args: [] },
  SetConsoleCtrlHandler: { args: [pointer('handler'), number] },
  GetModuleFileNameW: { args: [whole, pointer('buffer'), number] },
  WSAStartup: { args: [(argument) => hex({ value: argument.value & 0xffffn }), pointer('data')] },
  WSACleanup: { args: [] },
  socket: { args: [number, number, number], gives: 'listener' },
  bind: { args: [handle, pointer('address'), number] },
  listen: { args: [handle, hex] },
  select: { args: [number, pointer('set'), whole, whole, pointer('timeout')] },
  accept: { args: [handle, whole, whole], gives: 'connection' },
  recv: { args: [handle, pointer('buffer'), () => 'size', number] },
  send: { args: [handle, pointer('bytes'), () => 'size', number] },
  shutdown: { args: [handle, number] },
  closesocket: { args: [handle], ends: true },
};
// These compute a number and reach nothing.
const pure = ['htons', 'htonl', 'WSAGetLastError'];

// The calls as lines, for comparison. Any call to Winsock is shown, so that one more than expected is seen. Equal lines
// that follow each other are one, and so is the closing of what is none of ours, the pages' files.
function shown_calls(calls) {
  const known = new Map();
  const lines = [];
  for (const { module, name, args, result } of calls) {
    const form = watched[name];
    if (!form) {
      if (module === 'ws2_32' && !pure.includes(name)) lines.push(name);
      continue;
    }
    if (name === 'CloseHandle' && !known.has(args[0].value)) continue;
    assert.equal(args.length, form.args.length, name);
    const line = `${name}(${form.args.map((show, index) => show(args[index], known)).join(', ')})`;
    if (form.gives && result) known.set(result, form.gives);
    if (form.ends) known.delete(args[0].value);
    if (line !== lines.at(-1)) lines.push(line);
  }
  return lines;
}

// Wine's own programs lie at the same addresses, in processes of theirs.
const traced_calls = (service, file) => own_calls(service, file, ({ name }) => name === 'OpenFileMappingW');

const opens = (mapping) => `OpenFileMappingW(6, 0, ${mapping})`;
const makes = (mapping) => [
  `ConvertStringSecurityDescriptorToSecurityDescriptorW(${descriptor_text.replace('WR', 'WD')}, 1, descriptor, 0)`,
  `CreateFileMappingW(none, attributes, 4, 0, 576, ${mapping})`,
  'LocalFree(descriptor)',
];
const maps = 'MapViewOfFile(mapping, 6, 0, 0, 576)';
const lets_go = ['UnmapViewOfFile(view)', 'CloseHandle(mapping)'];
const starts_sockets = [
  'CoInitializeEx(0, 0)',
  'WSAStartup(0x202, data)',
  'socket(2, 1, 6)',
  'bind(listener, address, 16)',
];
const stops_sockets = ['closesocket(listener)', 'WSACleanup()', 'CoUninitialize()'];
const waits = 'select(0, set, 0, 0, timeout)';
const serves = [
  'listen(listener, 0x7fffffff)',
  'SetConsoleCtrlHandler(handler, 1)',
  'GetModuleFileNameW(0, buffer, 260)',
  waits,
  'accept(listener, 0, 0)',
  'recv(connection, buffer, size, 0)',
  'send(connection, bytes, size, 0)',
  'shutdown(connection, 2)',
  'closesocket(connection)',
  waits,
];

async function serve_one_and_stop(service) {
  assert.equal(await exchange(service, put_bytes(service, algorithm, '{"output_trim_db":-1}')), answers.done);
  await service.until('its next wait', () => {
    const closed = service.errors.lastIndexOf('.closesocket(');
    return closed !== -1 && service.errors.lastIndexOf('.select(') > closed ? true : undefined;
  });
  service.signal('SIGINT');
  assert.deepEqual(await service.wait_for_end(), { code: 0, signal: null });
}

if (is_wine) {
  test('the descriptor stands in the program once, as one wide text with its end', limits, () => {
    const image = fs.readFileSync(shipped_service);
    const wanted = Buffer.from(`${descriptor_text}\0`, 'utf16le');
    const place = image.indexOf(wanted);
    assert.notEqual(place, -1);
    assert.equal(image.indexOf(wanted, place + 1), -1);
    const beginning = Buffer.from('D:P(', 'utf16le');
    assert.equal(image.indexOf(beginning), place, 'no part of it stands before it');
    assert.equal(image.indexOf(beginning, place + 1), -1, 'no part of it stands behind it');
  });

  test('the calls to the system have their arguments and their order', limits, async (t) => {
    // Keeps Wine's session alive: a program that begins one is traced together with all that belongs to it.
    await start_effect(t, unique_mapping_name());
    const env = call_trace;

    await t.test('a service that makes the mapping', async (row) => {
      const program = creating_service();
      const service = await start_service(row, { program, env, token: null });
      await serve_one_and_stop(service);
      const calls = await traced_calls(service, program);
      assert.deepEqual(shown_calls(calls), [
        'BCryptGenRandom(0, buffer, 24, 2)',
        opens(service.mapping),
        ...makes(service.mapping),
        maps,
        ...starts_sockets,
        ...serves,
        ...stops_sockets,
        ...lets_go,
      ]);
      // The error of the making tells whether another process was first, and is read behind the release.
      const made = calls.findIndex((call) => call.name === 'CreateFileMappingW');
      assert.deepEqual(
        calls.slice(made, made + 3).map((call) => call.name),
        ['CreateFileMappingW', 'LocalFree', 'GetLastError'],
      );
    });

    await t.test('a service that opens the mapping', async (row) => {
      const mapping = unique_mapping_name();
      await start_effect(row, mapping, [], 'mapping made');
      const service = await start_service(row, { program: shipped_service, mapping, env });
      await serve_one_and_stop(service);
      assert.deepEqual(shown_calls(await traced_calls(service, shipped_service)), [
        opens(mapping),
        maps,
        ...starts_sockets,
        ...serves,
        ...stops_sockets,
        ...lets_go,
      ]);
    });

    // Runs the service into its end and gives its calls.
    const calls_of_refused = async (row, program, code, port, mapping) => {
      const token = ['--token', 'x'.repeat(32)];
      const service = launch(row, program, [...service_arguments(port, mapping), ...token], { env });
      assert.deepEqual(await service.wait_for_end(start_limit_ms), { code, signal: null });
      assert.equal(service.output, '');
      return traced_calls(service, program);
    };

    await t.test('a descriptor that the system refuses', async (row) => {
      const mapping = unique_mapping_name();
      const calls = await calls_of_refused(row, shipped_service, 5, await free_port(), mapping);
      assert.deepEqual(shown_calls(calls), [
        opens(mapping),
        `ConvertStringSecurityDescriptorToSecurityDescriptorW(${descriptor_text}, 1, descriptor, 0)`,
      ]);
    });

    // The count of looks is bounded, and only a record that may still become ready is waited for.
    const unready = [
      ['unfinished', 100],
      ['magic', 100],
      ['version', 0],
      ['size', 0],
    ];
    for (const [fault, pauses] of unready) {
      await t.test(`a mapping with the fault ${fault}`, async (row) => {
        const mapping = unique_mapping_name();
        await start_effect(row, mapping, ['--fault', fault], 'mapping made');
        const calls = await calls_of_refused(row, shipped_service, 5, await free_port(), mapping);
        const pause = pauses > 0 ? ['Sleep(1)'] : [];
        assert.deepEqual(shown_calls(calls), [opens(mapping), maps, ...pause, ...lets_go]);
        assert.equal(calls.filter((call) => call.name === 'Sleep').length, pauses);
      });
    }

    await t.test('a port that is taken', async (row) => {
      const holder = net.createServer();
      row.after(() => holder.close());
      await within(
        wait_limit_ms,
        () => 'a port to hold',
        new Promise((resolve) => holder.listen({ port: 0, host: '127.0.0.1' }, resolve)),
      );
      const mapping = unique_mapping_name();
      const calls = await calls_of_refused(row, creating_service(), 9, holder.address().port, mapping);
      assert.deepEqual(shown_calls(calls), [
        opens(mapping),
        ...makes(mapping),
        maps,
        ...starts_sockets,
        ...stops_sockets,
        ...lets_go,
      ]);
    });
  });
}
