// The Windows program against audio endpoints that a COM server of the tests' own gives it: what it asks for, what it
// makes of each answer, and that it gives everything back.
import assert from 'node:assert/strict';
import test from 'node:test';

import { AudioServer, quoted } from './audio_server.mjs';
import {
  answer_bytes,
  answers,
  ask,
  body_of,
  devices_document,
  is_wine,
  json_document,
  refusal_bytes,
  run,
  start_effect,
  start_service,
  unique_mapping_name,
} from './harness.mjs';

const limits = { timeout: 300_000 };
const devices = '/api/v1/devices';
const render_choice = '/api/v1/devices/render';
const capture_choice = '/api/v1/devices/capture';

const no_such_endpoint = refusal_bytes(404, 'Not Found', 'active endpoint not found for this direction');
const not_selected = refusal_bytes(503, 'Service Unavailable', 'Windows endpoint selection failed');
const no_volume = refusal_bytes(503, 'Service Unavailable', 'Windows endpoint volume update failed');
const no_mute = refusal_bytes(503, 'Service Unavailable', 'Windows endpoint mute update failed');

const status_failed = 0x80004005;
const status_unexpected = 0x8000ffff;
const status_not_found = 0x80070490;
const signed = (status) => status | 0;
const hex = (status) => `0x${status.toString(16).padStart(8, '0')}`;

const list_answer = (list) => answer_bytes(200, 'OK', json_document, devices_document(list));
const get_list = (service) => ask(service, 'GET', devices);
const utf8_bytes = (text) => Buffer.from(text, 'utf8').toString('latin1');
const choose = (service, route, id) => ask(service, 'PUT', route, utf8_bytes(JSON.stringify({ endpoint_id: id })));
const set_volume = (service, level) => ask(service, 'PUT', '/api/v1/render/volume', `{"volume":${level}}`);
const set_mute = (service, muted) => ask(service, 'PUT', '/api/v1/render/mute', `{"muted":${muted}}`);

// A process id that no process has: no id is that large.
const nobody = 4_294_967_280;
const itself = 'velmora_control_demo.exe';

// ---- a machine with something of everything ----

const speakers = {
  id: '{0.0.0.00000000}.{feab839f-3407-471a-aa45-bcd41f1bb5f6}',
  name: 'Speakers',
  peak: 0.25,
  sessions: [[1, 0], [0, nobody], [1, 'self'], [2, nobody], [1, nobody]],
};
const unplugged = { id: '{unplugged}', name: 'Unplugged', state: 8 };
const headphones = { id: '{headphones}', name: 'Headphones', peak: 0.5, sessions: [[1, 'self'], [1, 'self']] };
const microphone = { id: '{microphone}', name: 'Microphone', peak: 0.125, sessions: [[1, 0]] };
const line_in = { id: '{line in}', name: 'Line in' };
const machine = {
  render: [speakers, unplugged, headphones],
  capture: [microphone, line_in],
  default_render: speakers.id,
  default_capture: microphone.id,
};

// What the list shows of it.
const listed = () => ({
  render: [
    { id: speakers.id, name: 'Speakers', peak: 0.25, sessions: ['system', itself, `pid ${nobody}`] },
    { id: headphones.id, name: 'Headphones', peak: 0.5, sessions: [itself, itself] },
  ],
  capture: [
    { id: microphone.id, name: 'Microphone', peak: 0.125, sessions: ['system'] },
    { id: line_in.id, name: 'Line in', peak: 0, sessions: [] },
  ],
  default_render: speakers.id,
  default_capture: microphone.id,
});

// ---- the calls, as the log has them ----

const ok = '-> 0x00000000';
const opening_calls = [
  `DllGetClassObject class={7A1D0F0B-6A0E-4B0D-9C33-3A5E8E1F6C21} interface=IClassFactory ${ok}`,
  `IClassFactory.CreateInstance outer=null interface=IMMDeviceEnumerator ${ok}`,
];
const default_calls = (flow, id) => [
  `IMMDeviceEnumerator.GetDefaultAudioEndpoint flow=${flow} role=1 ${ok}`,
  `IMMDevice.GetId of=${quoted(id)} ${ok}`,
];
const list_calls = (flow) => [
  `IMMDeviceEnumerator.EnumAudioEndpoints flow=${flow} states=1 ${ok}`,
  `IMMDeviceCollection.GetCount flow=${flow} ${ok}`,
];
const item_calls = (flow, index, id) => [
  `IMMDeviceCollection.Item flow=${flow} index=${index} ${ok}`,
  `IMMDevice.GetId of=${quoted(id)} ${ok}`,
];
const activation = (id, wanted) =>
  `IMMDevice.Activate of=${quoted(id)} interface=${wanted} context=1 params=null ${ok}`;
// One listed endpoint. `sessions` are the states of its sessions.
const endpoint_calls = (flow, index, id, sessions) => [
  ...item_calls(flow, index, id),
  `IMMDevice.OpenPropertyStore of=${quoted(id)} access=0 ${ok}`,
  `IPropertyStore.GetValue of=${quoted(id)} key={A45C254E-DF1C-4EFD-8020-67D146A850E0},14 ${ok}`,
  activation(id, 'IAudioMeterInformation'),
  `IAudioMeterInformation.GetPeakValue of=${quoted(id)} ${ok}`,
  activation(id, 'IAudioSessionManager2'),
  `IAudioSessionManager2.GetSessionEnumerator of=${quoted(id)} ${ok}`,
  `IAudioSessionEnumerator.GetCount of=${quoted(id)} ${ok}`,
  ...sessions.flatMap((state, session) => [
    `IAudioSessionEnumerator.GetSession of=${quoted(id)} index=${session} ${ok}`,
    `IAudioSessionControl.GetState of=${quoted(id)} session=${session} ${ok}`,
    ...(state === 1
      ? [
          `IAudioSessionControl.QueryInterface of=${quoted(id)} session=${session} interface=IAudioSessionControl2 ${ok}`,
          `IAudioSessionControl2.GetProcessId of=${quoted(id)} session=${session} ${ok}`,
        ]
      : []),
  ]),
];
const whole_list_calls = [
  ...opening_calls,
  ...default_calls(0, speakers.id),
  ...default_calls(1, microphone.id),
  ...list_calls(0),
  ...endpoint_calls(0, 0, speakers.id, [1, 0, 1, 2, 1]),
  ...endpoint_calls(0, 1, headphones.id, [1, 1]),
  ...list_calls(1),
  ...endpoint_calls(1, 0, microphone.id, [1]),
  ...endpoint_calls(1, 1, line_in.id, []),
];

// The calls of a log line by line, with what tells one from the other: the operation, its how-manyth call this is, and
// the arguments.
function told_apart(lines) {
  const counts = new Map();
  return lines.map((line) => {
    const [, op, args] = line.match(/^(\S+) (.*) -> 0x[0-9a-f]{8}$/);
    counts.set(op, (counts.get(op) ?? 0) + 1);
    const argument = (name) => args.match(new RegExp(`(?:^| )${name}=("(?:[^"\\\\]|\\\\.)*"|\\S+)`))?.[1];
    const of = argument('of');
    return {
      op,
      nth: counts.get(op),
      args,
      id: of && JSON.parse(of),
      flow: Number(argument('flow')),
      index: Number(argument('index') ?? argument('session')),
      wanted: argument('interface'),
    };
  });
}

// ---- what a failed call does to the list ----

const flow_names = ['render', 'capture'];
const flow_of = (id) => (id === speakers.id || id === headphones.id ? 0 : 1);
const entry_of = (list, id) => [...list.render, ...list.capture].find((entry) => entry.id === id);

// The list ends before this entry, and no list comes behind it.
function cut(list, flow, index, status) {
  list[flow_names[flow]].length = index;
  if (flow === 0) list.capture = [];
  list.error_code = signed(status);
}

function without_default(list, flow) {
  list[`default_${flow_names[flow]}`] = '';
}

function without_session(list, { id, index }) {
  const states = [speakers, headphones, microphone].find((endpoint) => endpoint.id === id).sessions.map(([state]) => state);
  if (states[index] !== 1) return;
  entry_of(list, id).sessions.splice(states.slice(0, index).filter((state) => state === 1).length, 1);
}

function nothing_at_all(list, status) {
  for (const key of Object.keys(list)) delete list[key];
  list.error_code = signed(status);
}

function without_name(list, { id }) {
  entry_of(list, id).name = id;
}

function without_peak(list, { id }) {
  entry_of(list, id).peak = 0;
}

function without_sessions(list, { id }) {
  entry_of(list, id).sessions = [];
}

// The first two ids are asked for the defaults.
function without_id(list, call, status) {
  if (call.nth <= 2) return without_default(list, call.nth - 1);
  const flow = flow_of(call.id);
  cut(list, flow, list[flow_names[flow]].findIndex((entry) => entry.id === call.id), status);
}

const failures = {
  'DllGetClassObject': (list, call, status) => nothing_at_all(list, status),
  'IClassFactory.CreateInstance': (list, call, status) => nothing_at_all(list, status),
  'IMMDeviceEnumerator.EnumAudioEndpoints': (list, call, status) => cut(list, call.flow, 0, status),
  'IMMDeviceEnumerator.GetDefaultAudioEndpoint': (list, call) => without_default(list, call.flow),
  'IMMDeviceCollection.GetCount': (list, call, status) => cut(list, call.flow, 0, status),
  'IMMDeviceCollection.Item': (list, call, status) => cut(list, call.flow, call.index, status),
  'IMMDevice.Activate': (list, call) =>
    (call.wanted === 'IAudioMeterInformation' ? without_peak : without_sessions)(list, call),
  'IMMDevice.OpenPropertyStore': without_name,
  'IMMDevice.GetId': without_id,
  'IPropertyStore.GetValue': without_name,
  'IAudioMeterInformation.GetPeakValue': without_peak,
  'IAudioSessionManager2.GetSessionEnumerator': without_sessions,
  'IAudioSessionEnumerator.GetCount': without_sessions,
  'IAudioSessionEnumerator.GetSession': without_session,
  'IAudioSessionControl.GetState': without_session,
  'IAudioSessionControl.QueryInterface': without_session,
  'IAudioSessionControl2.GetProcessId': without_session,
};

// Calls that hand out a pointer, which may be null although they succeed. The class object is for COM itself, which
// cannot live with that.
const hands_out = new Set([
  'IClassFactory.CreateInstance',
  'IMMDeviceEnumerator.EnumAudioEndpoints',
  'IMMDeviceEnumerator.GetDefaultAudioEndpoint',
  'IMMDeviceEnumerator.GetDevice',
  'IMMDeviceCollection.Item',
  'IMMDevice.Activate',
  'IMMDevice.OpenPropertyStore',
  'IMMDevice.GetId',
  'IAudioSessionManager2.GetSessionEnumerator',
  'IAudioSessionEnumerator.GetSession',
  'IAudioSessionControl.QueryInterface',
]);

function list_after(call, status) {
  const list = listed();
  failures[call.op](list, call, status);
  return list;
}

test('a failure is known for each operation that a list calls', () => {
  const called = new Set(told_apart(whole_list_calls).map(({ op }) => op));
  assert.deepEqual([...called].sort(), Object.keys(failures).sort());
});

// ---- against the program ----

async function start(t, given = machine) {
  const server = await AudioServer.make(t);
  const service = await start_service(t, { env: server.env });
  server.set(given);
  return { server, service };
}

// What came back, in few words: for the table of faults.
function in_short(answer) {
  const body = body_of(answer);
  const status = answer.slice('HTTP/1.1 '.length, 'HTTP/1.1 '.length + 3);
  if (!body.startsWith('{"render":')) return `${status} ${body}`;
  const list = JSON.parse(body);
  const name_of = (name) => (name === speakers.id ? '{speakers}' : name);
  const entry = ({ name, peak, sessions }) => `${name_of(name)} ${peak} [${sessions.join(', ')}]`;
  const entries = (of) => of.map(entry).join('; ') || 'none';
  const has = (id) => (id === '' ? 'no default' : 'a default');
  return `${status}, render: ${entries(list.render)}, ${has(list.default_render_endpoint_id)} | capture: ` +
    `${entries(list.capture)}, ${has(list.default_capture_endpoint_id)} | error_code ${list.error_code}`;
}

// Each fault in turn, one request each: `answer_to(call, status)` is what comes back, the status that of a failure, and
// of a null pointer in its place. A success that is not 0 changes nothing. The run's log gets the table of it.
async function try_faults(t, what, { server, service, request, calls, answer_to, undisturbed }) {
  t.diagnostic(`${what}, undisturbed: ${in_short(undisturbed)}`);
  for (const call of told_apart(calls)) {
    const { op, nth, args } = call;
    const faults = [
      [`fail ${op} ${nth} ${hex(status_failed)}`, status_failed, answer_to(call, status_failed)],
      [`fail ${op} ${nth} 1`, 1, undisturbed],
      ...(hands_out.has(op) ? [[`null ${op} ${nth}`, 0, answer_to(call, status_unexpected)]] : []),
    ];
    const seen = [];
    for (const [fault, status, expected] of faults) {
      server.set({ ...machine, faults: [fault] });
      const answer = await request(service);
      assert.equal(answer, expected, fault);
      // The fault did come: the call is in the log with its status.
      const lines = server.take_calls();
      const place = told_apart(lines).findIndex((other) => other.op === op && other.nth === nth);
      assert.equal(lines[place], `${op} ${args} -> ${hex(status)}`, fault);
      seen.push(`${['null', 'success 1', 'failure'][[0, 1, status_failed].indexOf(status)]}: ` +
        `${answer === undisturbed ? 'nothing changes' : in_short(answer)}`);
    }
    t.diagnostic(`${op}, call ${nth}, ${args.replaceAll(speakers.id, '{speakers}')}`);
    for (const line of seen) t.diagnostic(`    ${line}`);
  }
}

// The id that Wine has given to the one process of this program.
async function wine_process_id(t, program) {
  const listing = await run(t, 'wmic', ['process', 'get', 'ProcessId,Name']);
  const lines = [...listing.output.replaceAll('\0', '').matchAll(/^(\S+) +([0-9]+) *\r?$/gm)];
  const ids = lines.filter(([, name]) => name === program).map(([, , id]) => Number(id));
  assert.equal(ids.length, 1, listing.output);
  return ids[0];
}

// ---- the tests that need Wine ----

async function list_call_by_call(t) {
  const { server, service } = await start(t);
  assert.equal(await get_list(service), list_answer(listed()));
  assert.deepEqual(server.take_calls(), whole_list_calls);
  await service.stop();
  assert.deepEqual(server.take_lines(), ['live references=0 allocations=0'], 'nothing is kept to the end');
}

async function list_faults(t) {
  const { server, service } = await start(t);
  await try_faults(t, 'the list', {
    server,
    service,
    request: get_list,
    calls: whole_list_calls,
    answer_to: (call, status) => list_answer(list_after(call, status)),
    undisturbed: list_answer(listed()),
  });
}

async function missing_defaults(t) {
  const { server, service } = await start(t);
  const error = signed(status_not_found);
  const { render, capture, default_render, default_capture } = listed();
  const unset = (...names) => Object.fromEntries(Object.entries(machine).filter(([name]) => !names.includes(name)));
  const no_render = { ...machine, render: [unplugged], default_render: undefined };
  const no_capture = { ...machine, capture: [], default_capture: undefined };
  const rows = [
    ['no endpoint at all', {}, { error_code: error }],
    ['no default of render', unset('default_render'), { render, capture, default_capture }],
    ['no default of capture', unset('default_capture'), { render, capture, default_render }],
    ['no defaults', unset('default_render', 'default_capture'), { render, capture }],
    ['nothing to play on', no_render, { capture, default_capture, error_code: error }],
    ['nothing to record from', no_capture, { render, default_render, error_code: error }],
    [
      'nothing to play on, and the look for the default fails in its own way',
      { ...no_render, faults: ['fail IMMDeviceEnumerator.GetDefaultAudioEndpoint 1 0x88890017'] },
      { capture, default_capture, error_code: signed(0x88890017) },
    ],
    [
      'no endpoint at all, each look for a default failing in its own way: that of render counts',
      {
        faults: [
          'fail IMMDeviceEnumerator.GetDefaultAudioEndpoint 1 0x88890017',
          'fail IMMDeviceEnumerator.GetDefaultAudioEndpoint 2 0x88890018',
        ],
      },
      { error_code: signed(0x88890017) },
    ],
    [
      'a default that is not active',
      { ...machine, default_render: unplugged.id },
      { render, capture, default_render: unplugged.id, default_capture },
    ],
  ];
  for (const [what, given, expected] of rows) {
    server.set(given);
    assert.equal(await get_list(service), list_answer(expected), what);
    server.take_calls();
  }
}

async function names(t) {
  const { server, service } = await start(t);
  // What the script gives, and what the list shows; undefined is the id.
  const rows = [
    ['plain', { name: 'Speakers' }, 'Speakers'],
    ['empty', { name: '' }, ''],
    ['two to four bytes of UTF-8', { name: 'Lautsprecher-Ausgäng 日本語 \u{1F600} \u{10FFFF}' }],
    ['the edges of UTF-8', { name: '\x7f\x80\u07ff\u0800\ud7ff\ue000\ufffd\uffff' }],
    ['quotes and backslashes', { name: '"Quoted" \\ back/slash' }],
    ['half a pair, first half', { name: 'bad \ud800 name' }, ''],
    ['half a pair, second half', { name: 'bad \udc00' }, ''],
    ['the halves in the wrong order', { name: '\ude00\ud83d' }, ''],
    ['no such property', {}, undefined],
    ['a text whose pointer is null', { more: ['name-null'] }, undefined],
    ['a number', { more: ['name-type 19'] }, undefined],
    ['a narrow text', { more: ['name-type 30'] }, undefined],
    ['a class id', { more: ['name-type 72'] }, undefined],
    ['a long name', { name: 'é'.repeat(10_000) }],
  ];
  const endpoint = (row, index) => ({ id: `{endpoint ${index}}`, ...row[1] });
  server.set({ render: rows.map(endpoint), default_render: '{endpoint 0}' });
  const shown = (row) => (row.length === 2 ? row[1].name : row[2]);
  const render = rows.map((row, index) => ({ id: `{endpoint ${index}}`, name: shown(row) ?? `{endpoint ${index}}` }));
  assert.equal(
    await get_list(service),
    list_answer({ render, default_render: '{endpoint 0}', error_code: signed(status_not_found) }),
  );
  server.take_calls();
}

async function ids(t) {
  const { server, service } = await start(t);
  const odd = ['{"quoted" \\ id}', '{ünïcode 日本 \u{1F600}}', '{A}', '{a}'];
  const broken = '{half a pair \ud800}';
  const render = [...odd, broken].map((id) => ({ id, name: 'One' }));
  server.set({ render, default_render: broken });
  // The id that does not convert is empty on the way out, but what is compared are the ids themselves.
  const shown = (selected) => {
    const entries = [...odd, broken].map((id) => ({ id: id === broken ? '' : id, name: 'One' }));
    return list_answer({ render: entries, default_render: '', selected_render: selected, error_code: signed(status_not_found) });
  };
  assert.equal(await get_list(service), shown(''));
  server.take_calls();
  for (const id of odd) {
    assert.equal(await choose(service, render_choice, id), answers.done, id);
    server.take_calls();
    assert.equal(await get_list(service), shown(id));
    server.take_calls();
  }
  // An unnamed endpoint with such an id has nothing to show at all.
  server.set({ render: [{ id: broken }] });
  const nothing = `{"id":"","name":"","is_default":false,"is_selected":false,"peak":0,"sessions":[],"apo_bound":false}`;
  assert.ok((await get_list(service)).includes(`{"render":[${nothing}],`));
  server.take_calls();
}

async function peaks(t) {
  const { server, service } = await start(t);
  const rows = [
    ['0', 0],
    ['1', 1],
    ['0.1', 0.1],
    ['0.123456789', 0.123456789],
    ['1e-7', 1e-7],
    ['1.5', 1.5],
    ['-0.25', -0.25],
    ['-0', -0],
    ['1e-45', 1e-45],
    ['3.4e38', 3.4e38],
    ['nan', 0],
    ['-nan', 0],
    ['inf', 0],
    ['-inf', 0],
  ];
  const capture = rows.map(([peak], index) => ({ id: `{${index}}`, name: peak, peak }));
  server.set({ capture, default_capture: '{0}' });
  assert.equal(
    await get_list(service),
    list_answer({
      capture: rows.map(([name, peak], index) => ({ id: `{${index}}`, name, peak })),
      default_capture: '{0}',
      error_code: signed(status_not_found),
    }),
  );
  server.take_calls();
}

async function sessions(t) {
  const { server, service } = await start(t);
  const effect = await start_effect(t, unique_mapping_name());
  assert.equal(effect.end, undefined);
  const only = (given) => ({ capture: [{ id: '{one}', name: 'One', sessions: given }], default_capture: '{one}' });
  const shows = async (what, given, expected, faults = []) => {
    server.set({ ...only(given), faults });
    assert.equal(
      await get_list(service),
      list_answer({
        capture: [{ id: '{one}', name: 'One', sessions: expected }],
        default_capture: '{one}',
        error_code: signed(status_not_found),
      }),
      what,
    );
    return server.take_calls();
  };
  await shows('each state', [[0, 0], [1, 0], [2, 0], [3, 0], [-1, 0], [1, 0]], ['system', 'system']);
  await shows('nobody', [[1, 1234567], [1, nobody]], ['pid 1234567', `pid ${nobody}`]);
  await shows('in their order, none merged', [[1, 'self'], [1, 0], [1, nobody], [1, 0], [1, 'self']], [
    itself, 'system', `pid ${nobody}`, 'system', itself,
  ]);
  const pid = await wine_process_id(t, 'velmora_test_effect.exe');
  await shows('another process', [[1, pid]], ['velmora_test_effect.exe']);
  const positive = ['fail IAudioSessionControl2.GetProcessId * 1'];
  await shows('a positive status of each id', [[1, 0], [1, 'self'], [1, nobody]], ['system', itself, `pid ${nobody}`], positive);
  await shows('each id refused', [[1, 0], [1, 'self']], [], ['fail IAudioSessionControl2.GetProcessId * 0x80004005']);
  const calls = await shows('no interface of the second kind', [[1, 0], [1, 0]], [], [
    'fail IAudioSessionControl.QueryInterface * 0x80004002',
  ]);
  assert.ok(!calls.some((call) => call.startsWith('IAudioSessionControl2.')));
  effect.kill();
  await effect.wait_for_end();
}

async function no_enumerator(t) {
  const { server, service } = await start(t);
  assert.equal(await choose(service, render_choice, headphones.id), answers.done);
  assert.equal(await choose(service, capture_choice, line_in.id), answers.done);
  server.take_lines();
  const chosen = { ...listed(), selected_render: headphones.id, selected_capture: line_in.id };
  const tries = async (status) => {
    assert.equal(await get_list(service), list_answer({ error_code: signed(status) }));
    assert.equal(await choose(service, render_choice, speakers.id), not_selected);
    assert.equal(await choose(service, capture_choice, microphone.id), not_selected);
    assert.equal(await set_volume(service, 0.5), no_volume);
    assert.equal(await set_mute(service, true), no_mute);
  };
  const failures_of_the_class = [
    ['DllGetClassObject', 0x80040111],
    ['DllGetClassObject', 0x80040154],
    ['IClassFactory.CreateInstance', 0x8007000e],
    ['IClassFactory.CreateInstance', 0x80040110],
  ];
  for (const [op, status] of failures_of_the_class) {
    server.set({ ...machine, faults: [`fail ${op} * ${hex(status)}`] });
    await tries(status);
    for (const line of server.take_lines()) assert.match(line, /^(DllGetClassObject|IClassFactory|live references=0)/);
  }
  // What was chosen stands, and none of the refused choices does.
  server.set(machine);
  assert.equal(await get_list(service), list_answer(chosen));
  server.take_calls();
  await AudioServer.remove_class(t);
  await tries(0x80040154);
  assert.deepEqual(server.take_lines(), [], 'nobody asked the server');
}

async function choice_faults(t) {
  const { server, service } = await start(t);
  const roads = [
    [render_choice, headphones.id, 0, [speakers.id, headphones.id]],
    [capture_choice, line_in.id, 1, [microphone.id, line_in.id]],
  ];
  for (const [route, id, flow, active] of roads) {
    const calls = [
      ...opening_calls,
      ...list_calls(flow),
      ...active.flatMap((listed_id, index) => item_calls(flow, index, listed_id)),
    ];
    server.set(machine);
    server.take_lines();
    assert.equal(await choose(service, route, id), answers.done);
    assert.deepEqual(server.take_calls(), calls, 'it ends with the endpoint that was asked for');
    await try_faults(t, `choosing by ${route}`, {
      server,
      service,
      request: (it) => choose(it, route, id),
      calls,
      answer_to: () => not_selected,
      undisturbed: answers.done,
    });
    // A listing that itself says that there is no such thing reads like an endpoint that is not there.
    server.set({ ...machine, faults: [`fail IMMDeviceCollection.Item 1 ${hex(status_not_found)}`] });
    assert.equal(await choose(service, route, id), no_such_endpoint);
    server.take_calls();
  }
}

async function choices(t) {
  const { server, service } = await start(t);
  const shows = async (selected) => {
    server.take_lines();
    assert.equal(await get_list(service), list_answer({ ...listed(), ...selected }));
    server.take_calls();
  };
  const refused = [
    [render_choice, microphone.id],
    [capture_choice, speakers.id],
    [render_choice, unplugged.id],
    [render_choice, speakers.id.toUpperCase()],
    [render_choice, speakers.id.slice(0, -1)],
    [render_choice, `${speakers.id} `],
    [render_choice, 'Speakers'],
    [capture_choice, '{nobody}'],
  ];
  for (const [route, id] of refused) assert.equal(await choose(service, route, id), no_such_endpoint, `${route} ${id}`);
  await shows({});
  assert.equal(await choose(service, render_choice, headphones.id), answers.done);
  await shows({ selected_render: headphones.id });
  assert.equal(await choose(service, capture_choice, line_in.id), answers.done);
  for (const [route, id] of refused) assert.equal(await choose(service, route, id), no_such_endpoint, `${route} ${id}`);
  await shows({ selected_render: headphones.id, selected_capture: line_in.id });
}

async function gone_selection(t) {
  const { server, service } = await start(t);
  assert.equal(await choose(service, render_choice, headphones.id), answers.done);
  assert.equal(await choose(service, capture_choice, line_in.id), answers.done);
  server.take_lines();
  const { render, capture, ...defaults } = listed();
  const chosen = { ...defaults, selected_render: headphones.id, selected_capture: line_in.id };
  const left = { render: render.slice(0, 1), capture: capture.slice(0, 1), ...chosen };
  const ways = [
    [{ ...machine, render: [speakers], capture: [microphone] }, [
      `IMMDeviceEnumerator.GetDevice id=${quoted(headphones.id)} -> ${hex(status_not_found)}`,
    ]],
    [{ ...machine, render: [speakers, { ...headphones, state: 8 }], capture: [microphone] }, [
      `IMMDeviceEnumerator.GetDevice id=${quoted(headphones.id)} ${ok}`,
      activation(headphones.id, 'IAudioEndpointVolume').replace(ok, '-> 0x88890004'),
    ]],
  ];
  for (const [given, calls] of ways) {
    server.set(given);
    assert.equal(await get_list(service), list_answer(left), 'it is the choice, but no entry is');
    server.take_calls();
    for (const [ask_for, refusal] of [[() => set_volume(service, 0.5), no_volume], [() => set_mute(service, true), no_mute]]) {
      assert.equal(await ask_for(), refusal);
      assert.deepEqual(server.take_calls(), [...opening_calls, ...calls], 'there is no falling back to the default');
    }
  }
  // It comes back as the choice.
  server.set(machine);
  assert.equal(await get_list(service), list_answer({ render, capture, ...chosen }));
  assert.equal(await set_volume(service, 0.5), answers.done);
  // Another choice ends it.
  server.set(ways[0][0]);
  assert.equal(await choose(service, render_choice, speakers.id), answers.done);
  assert.equal(await set_volume(service, 0.5), answers.done);
}

// The calls of setting something: of the endpoint that was chosen, or of the default.
const setting_calls = (id, is_chosen, last, status = ok) => [
  ...opening_calls,
  is_chosen
    ? `IMMDeviceEnumerator.GetDevice id=${quoted(id)} ${ok}`
    : `IMMDeviceEnumerator.GetDefaultAudioEndpoint flow=0 role=1 ${ok}`,
  activation(id, 'IAudioEndpointVolume'),
  `IAudioEndpointVolume.${last} context=null ${status}`,
];
// The device and the enumerator have been given back by then.
const level_call = (id, level) => `SetMasterVolumeLevelScalar of=${quoted(id)} references=1 level=${level}`;
const mute_call = (id, muted) => `SetMute of=${quoted(id)} references=1 muted=${muted}`;

async function volume(t) {
  const { server, service } = await start(t);
  // What is sent, and the 32 bits that arrive, in nine digits.
  const levels = [
    ['0', '0'],
    ['1', '1'],
    ['1.0', '1'],
    ['0.5', '0.5'],
    ['0.1', '0.100000001'],
    ['-0', '-0'],
    ['1e-3', '0.00100000005'],
    ['0.99999999', '1'],
  ];
  for (const [id, is_chosen] of [[speakers.id, false], [headphones.id, true]]) {
    if (is_chosen) assert.equal(await choose(service, render_choice, id), answers.done);
    server.take_lines();
    for (const [sent, level] of levels) {
      assert.equal(await set_volume(service, sent), answers.done, sent);
      assert.deepEqual(server.take_calls(), setting_calls(id, is_chosen, level_call(id, level)));
    }
    // The second time nothing changes any more, which is a success too.
    for (const [muted, status] of [[true, 0], [true, 1], [false, 0], [false, 1]]) {
      assert.equal(await set_mute(service, muted), answers.done);
      assert.deepEqual(
        server.take_calls(),
        setting_calls(id, is_chosen, mute_call(id, Number(muted)), `-> ${hex(status)}`),
      );
    }
  }
  // A choice of capture leads nowhere.
  assert.equal(await choose(service, capture_choice, line_in.id), answers.done);
  server.take_lines();
  assert.equal(await set_volume(service, 0.25), answers.done);
  assert.deepEqual(server.take_calls(), setting_calls(headphones.id, true, level_call(headphones.id, 0.25)));
  const wrong = ['1.0001', '-0.1', '"0.5"', 'null', 'nan', '1e39'];
  for (const level of wrong) {
    assert.equal(await set_volume(service, level), refusal_bytes(400, 'Bad Request', 'volume must be between 0 and 1'), level);
  }
  for (const muted of ['1', '"true"', 'null']) {
    assert.equal(await set_mute(service, muted), refusal_bytes(400, 'Bad Request', 'muted must be a boolean'), muted);
  }
  assert.deepEqual(server.take_lines(), [], 'what is refused asks nothing of the system');
  server.set({});
  assert.equal(await set_volume(service, 0.5), no_volume, 'no endpoint');
}

async function volume_faults(t) {
  const { server, service } = await start(t);
  for (const [id, is_chosen] of [[speakers.id, false], [headphones.id, true]]) {
    server.set(machine);
    if (is_chosen) assert.equal(await choose(service, render_choice, id), answers.done);
    server.take_lines();
    const roads = [
      [(it) => set_volume(it, 0.5), level_call(id, 0.5), no_volume],
      [(it) => set_mute(it, true), mute_call(id, 1), no_mute],
    ];
    for (const [request, last, refusal] of roads) {
      await try_faults(t, `${last.split(' ')[0]} of ${is_chosen ? 'the chosen endpoint' : 'the default'}`, {
        server,
        service,
        request,
        calls: setting_calls(id, is_chosen, last),
        answer_to: () => refusal,
        undisturbed: answers.done,
      });
    }
  }
}

async function many(t) {
  const { server, service } = await start(t);
  const count = 60;
  const endpoints = (flow) => Array.from({ length: count }, (_, index) => ({
    id: `{${flow} ${index}}`,
    name: `Endpoint ${index}`,
    peak: index / 64,
    sessions: Array.from({ length: index % 4 }, () => [1, 0]),
  }));
  const many_of = { render: endpoints('render'), capture: endpoints('capture') };
  const defaults = { default_render: '{render 59}', default_capture: '{capture 0}' };
  server.set({ ...many_of, ...defaults });
  const shown = (list) => list.map((entry) => ({ ...entry, sessions: entry.sessions.map(() => 'system') }));
  const expected = { render: shown(many_of.render), capture: shown(many_of.capture), ...defaults };
  for (let round = 0; round < 3; ++round) {
    assert.equal(await get_list(service), list_answer(expected));
    server.take_calls();
  }
  assert.equal(await choose(service, capture_choice, '{capture 59}'), answers.done);
  assert.equal(server.take_calls().length, opening_calls.length + 2 + 2 * count, 'looked for up to the last');
  assert.equal(await get_list(service), list_answer({ ...expected, selected_capture: '{capture 59}' }));
  server.take_calls();
}

async function counts(t) {
  const { server, service } = await start(t);
  const list = listed();
  const out_of_range = signed(0x80070057);
  const without_sessions = { ...list, render: [{ ...list.render[0], sessions: [] }, list.render[1]] };
  const endpoints = 'IMMDeviceCollection.GetCount';
  const sessions_of_one = 'IAudioSessionEnumerator.GetCount 1';
  const rows = [
    [`${endpoints} 1 0xffffffff`, { ...list, capture: [], error_code: out_of_range }],
    [`${endpoints} 2 0xffffffff`, { ...list, error_code: out_of_range }],
    [`${endpoints} 1 3`, { ...list, capture: [], error_code: out_of_range }],
    [`${endpoints} 1 1`, { ...list, render: list.render.slice(0, 1) }],
    [`${endpoints} 1 0`, { ...list, render: [] }],
    [`${endpoints} 2 0`, { ...list, capture: [] }],
    [`${sessions_of_one} 0`, without_sessions],
    [`${sessions_of_one} -1`, without_sessions],
    [`${sessions_of_one} -2147483648`, without_sessions],
    [`${sessions_of_one} 1000`, list],
  ];
  for (const [count, expected] of rows) {
    server.set({ ...machine, faults: [`count ${count}`] });
    assert.equal(await get_list(service), list_answer(expected), count);
    server.take_calls();
  }
  // A choice is looked for no further than to where it stands.
  const choices = [
    ['1 0xffffffff', '{nobody}', not_selected],
    ['1 0xffffffff', headphones.id, answers.done],
    ['1 1', headphones.id, no_such_endpoint],
  ];
  for (const [count, id, expected] of choices) {
    server.set({ ...machine, faults: [`count ${endpoints} ${count}`] });
    assert.equal(await choose(service, render_choice, id), expected, `${count} ${id}`);
    server.take_calls();
  }
}

async function without_script(t) {
  const { server } = await start(t);
  const bare = await start_service(t);
  const answer = await get_list(bare);
  assert.match(answer, /^HTTP\/1\.1 200 OK\r\n/);
  assert.ok(!answer.includes(speakers.id));
  assert.deepEqual(server.take_lines(), [], 'a program without a script has the endpoints of the system');
}

if (is_wine) {
  test('the list asks for what it shows, call by call', limits, list_call_by_call);
  test('each failed call of a list takes away what it was asked for', limits, list_faults);
  test('a list stands without a default, and an empty one tells why', limits, missing_defaults);
  test('a name is shown as it is read, and the id in place of one that cannot be read', limits, names);
  test('ids with quotes, letters of the world and halves of pairs are told apart', limits, ids);
  test('a peak is shown as it is read, and one that is no number as 0', limits, peaks);
  test('active sessions are shown by the programs of their processes', limits, sessions);
  test('without an enumerator everything is empty, and the choices stand', limits, no_enumerator);
  test('an endpoint of the wrong direction, or one that is not there letter by letter, is no choice', limits, choices);
  test('each failed call of a choice refuses it', limits, choice_faults);
  test('a chosen endpoint that went away stays the choice', limits, gone_selection);
  test('volume and mute arrive at the endpoint of choice, call by call', limits, volume);
  test('each failed call of volume and mute refuses it', limits, volume_faults);
  test('sixty endpoints of each direction are listed', limits, many);
  test('a count that is not true does no harm', limits, counts);
  test('a program without a script keeps the endpoints of the system', limits, without_script);
}
