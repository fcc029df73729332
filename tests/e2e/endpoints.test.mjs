// The audio endpoints from outside: the list, the choice, volume and mute, and what each route refuses.
//
// Natively a machine's export file tells which endpoints there are. Under Wine a sound server of the test's own does,
// and what is refused stands here; the rest is told by endpoints_pulse.test.mjs.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';

import {
  answer_bytes,
  answers,
  ask,
  body_of,
  devices_document,
  exchange,
  is_native,
  json_document,
  make_directory,
  make_small_disk,
  refusal_bytes,
  request_bytes,
  start_service,
} from './harness.mjs';
import { start_pulse } from './pulse.mjs';
import {
  Machine,
  difference,
  dword_data,
  export_text,
  hex_data,
  key_entry,
  list_data,
  render_path,
  text_data,
  value_entry,
} from './registry.mjs';

const limits = { timeout: 120_000 };
const devices = '/api/v1/devices';
const render_choice = '/api/v1/devices/render';
const capture_choice = '/api/v1/devices/capture';
const volume = '/api/v1/render/volume';
const mute = '/api/v1/render/mute';

const no_id = refusal_bytes(400, 'Bad Request', 'endpoint_id must be a non-empty string');
const no_such_endpoint = refusal_bytes(404, 'Not Found', 'active endpoint not found for this direction');
const not_selected = refusal_bytes(503, 'Service Unavailable', 'Windows endpoint selection failed');
const bad_volume = refusal_bytes(400, 'Bad Request', 'volume must be between 0 and 1');
const no_volume = refusal_bytes(503, 'Service Unavailable', 'Windows endpoint volume update failed');
const bad_mute = refusal_bytes(400, 'Bad Request', 'muted must be a boolean');
const no_mute = refusal_bytes(503, 'Service Unavailable', 'Windows endpoint mute update failed');

const list_answer = (list) => answer_bytes(200, 'OK', json_document, devices_document(list));
const list = (service) => ask(service, 'GET', devices);
const choose = (service, route, id) => ask(service, 'PUT', route, JSON.stringify({ endpoint_id: id }));
const set_volume = (service, level) => ask(service, 'PUT', volume, `{"volume":${level}}`);
const set_mute = (service, muted) => ask(service, 'PUT', mute, `{"muted":${muted}}`);

// ---- machines of the tests' own ----

const own_path = 'HKEY_LOCAL_MACHINE\\SOFTWARE\\VelmoraStandIn\\Audio';
const capture_path = render_path.replace(/Render$/, 'Capture');
const properties = {
  name: '{a45c254e-df1c-4efd-8020-67d146a850e0},14',
  description: '{a45c254e-df1c-4efd-8020-67d146a850e0},2',
  interface_name: '{b3f8fa53-0004-438e-9003-51a46e139bfc},6',
};
const chain = '{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},14';
const effect = '{631D9145-CACF-44D7-861B-5D82ADD8C84F}';

const guid_of = (number) => `{${number.toString(16).padStart(8, '0')}-c0de-4a4d-9f3b-2f8f4d3f00a1}`;
const render_id = (guid) => `{0.0.0.00000000}.${guid}`;
const capture_id = (guid) => `{0.0.1.00000000}.${guid}`;

// An endpoint's keys. `named` are the values of its properties, `own` those that Windows keeps elsewhere, and
// `sessions` the values of each session.
function endpoint_keys(id, { state = 1, named = [], fx = [], own = [], sessions = [] } = {}) {
  const guid = id.slice(id.indexOf('.{') + 1);
  const key = `${id === render_id(guid) ? render_path : capture_path}\\${guid}`;
  const keys = [[key, [['DeviceState', dword_data(state)]]], [`${key}\\Properties`, named]];
  if (fx) keys.push([`${key}\\FxProperties`, fx]);
  if (own.length > 0) keys.push([`${own_path}\\${id}`, own]);
  sessions.forEach((session, index) => keys.push([`${own_path}\\${id}\\Sessions\\${index}`, session]));
  return keys;
}

function machine_text(endpoints, { render, capture } = {}) {
  const defaults = [];
  if (render) defaults.push(['DefaultRender', text_data(render)]);
  if (capture) defaults.push(['DefaultCapture', text_data(capture)]);
  const own = defaults.length > 0 ? [[own_path, defaults]] : [];
  return export_text([...endpoints.flatMap(([id, about]) => endpoint_keys(id, about)), ...own]);
}

const name_value = (text) => [properties.name, text_data(text)];
const session_values = (state, process_id) => [['State', dword_data(state)], ['ProcessId', dword_data(process_id)]];

const speakers = { id: render_id(guid_of(1)), name: 'Speakers', peak: 0.25, sessions: ['system'] };
const headphones = { id: render_id(guid_of(2)), name: 'Headphones' };
const unplugged = { id: render_id(guid_of(3)), name: 'Television' };
const line_in = { id: capture_id(guid_of(4)), name: 'Line in' };
const microphone = { id: capture_id(guid_of(5)), name: 'Microphone', peak: 0.5 };

// Two active endpoints of either flow and one that is unplugged; the second ones are the defaults.
function studio_text({ headphones_state = 1, render = headphones.id, without = [] } = {}) {
  const endpoints = [
    [speakers.id, {
      named: [name_value(speakers.name)],
      own: [['Peak', text_data('0.25')]],
      sessions: [session_values(1, 0)],
    }],
    [headphones.id, { named: [name_value(headphones.name)], state: headphones_state }],
    [unplugged.id, { named: [name_value(unplugged.name)], state: 8 }],
    [line_in.id, { named: [name_value(line_in.name)] }],
    [microphone.id, { named: [name_value(microphone.name)], own: [['Peak', text_data('0.5')]] }],
  ];
  const kept = endpoints.filter(([id]) => !without.includes(id));
  return machine_text(kept, { render, capture: microphone.id });
}

const studio = {
  render: [speakers, headphones],
  capture: [line_in, microphone],
  default_render: headphones.id,
  default_capture: microphone.id,
};

// The service on endpoints of its own, ids that it would take, and its list as it must stay.
async function start_in_studio(t) {
  if (is_native) {
    const machine = await Machine.make(t, studio_text());
    const service = await start_service(t, { env: machine.env });
    return { service, machine, render: speakers.id, capture: line_in.id, before: list_answer(studio) };
  }
  const { env } = await start_pulse(t, { sinks: [['speakers', 'Speakers']], sources: [['line_in', 'Line in']] });
  const service = await start_service(t, { env });
  const before = await list(service);
  const listed = JSON.parse(body_of(before));
  const id_of = (endpoints) => endpoints.find((endpoint) => !endpoint.is_default).id;
  return { service, render: id_of(listed.render), capture: id_of(listed.capture), before };
}

// Nothing is chosen and nothing is changed.
async function assert_untouched({ service, machine, before }) {
  assert.equal(await list(service), before);
  if (machine) assert.equal(await machine.export(), studio_text());
}

// ---- what is refused ----

const escaped_id = (text) => `{"endpoint_id":"${text}"}`;

const bodies_without_id = [
  '',
  '{}',
  'null',
  '{"endpoint":"x"}',
  '{"ENDPOINT_ID":"x"}',
  '{"endpoint_id"}',
  '{"endpoint_id":}',
  '{"endpoint_id":5}',
  '{"endpoint_id":null}',
  '{"endpoint_id":true}',
  '{"endpoint_id":["x"]}',
  '{"endpoint_id":{"id":"x"}}',
  "{\"endpoint_id\":'x'}",
  escaped_id(''),
  '{"endpoint_id":"x',
  '{"endpoint_id":"x\\',
  escaped_id('x\\u0041'),
  escaped_id('x\\x41'),
  escaped_id('x\\0'),
  ...['\0', '\x01', '\t', '\n', '\r', '\x1b', '\x1f'].map((byte) => escaped_id(`{0.0.0.0${byte}`)),
];

const utf8 = (text) => Buffer.from(text, 'utf8').toString('latin1');
const long_bytes = 60_000;

const unknown_ids = [
  'x',
  ' ',
  '\\"',
  'a\\"b\\"c',
  '\\\\',
  '\\\\\\\\?\\\\SWD#MMDEVAPI#x',
  '\\/',
  '\\b\\f\\n\\r\\t',
  '\x7f',
  '%00',
  utf8('Lautsprecher f\u00fcr die K\u00fcche'),
  utf8('\u97f3 \ufffd \uffff \u{1f50a}'),
  guid_of(1),
  render_id(''),
  'x'.repeat(long_bytes),
  '\\\\'.repeat(long_bytes / 2),
  '\\n'.repeat(long_bytes / 2),
  utf8('\u97f3'.repeat(long_bytes / 3)),
];

const ill_formed_ids = [
  '\xff',
  '\x80',
  'x\xc3',
  'x\xc3(',
  '\xc0\xaf',
  '\xe0\x80\xaf',
  '\xed\xa0\x80',
  '\xed\xa0\xbd\xed\xb4\x8a',
  '\xf4\x90\x80\x80',
  '\xf8\x88\x80\x80\x80',
  `${speakers.id}\xff`,
  `${'x'.repeat(long_bytes)}\xff`,
];

const shortened = (text) => JSON.stringify(text.length > 80 ? `${text.slice(0, 80)}... ${text.length} bytes` : text);

test('an id that chooses nothing is refused, and the choice stays', limits, async (t) => {
  const studio_service = await start_in_studio(t);
  const rows = [
    ...bodies_without_id.map((body) => [body, no_id]),
    ...unknown_ids.map((id) => [escaped_id(id), no_such_endpoint]),
    ...ill_formed_ids.map((id) => [escaped_id(id), not_selected]),
  ];
  for (const route of [render_choice, capture_choice]) {
    for (const [body, refusal] of rows) {
      await t.test(`${route} ${shortened(body)}`, async () => {
        assert.equal(await ask(studio_service.service, 'PUT', route, body), refusal);
        await assert_untouched(studio_service);
      });
    }
  }
  await studio_service.service.stop();
});

const bad_volumes = [
  '',
  '{}',
  'null',
  '{"Volume":0.5}',
  '{"volume"}',
  ...['', '1.0001', '1.0000001', '2', '1e99', '-0.1', '-1e-30', '-1', '"0.5"', 'nan', 'inf', '-inf', 'infinity', 'null',
    'true', '[0.5]', '{"level":0.5}'].map((text) => `{"volume":${text}}`),
];

const bad_mutes = [
  '',
  '{}',
  'null',
  '{"Muted":true}',
  '{"muted"}',
  ...['', '1', '0', '"true"', 'null', 'True', 'tru', 'yes', '[true]', '{"on":true}'].map((text) => `{"muted":${text}}`),
];

test('a volume or mute that is none is refused, and nothing is set', limits, async (t) => {
  const studio_service = await start_in_studio(t);
  const rows = [
    ...bad_volumes.map((body) => [volume, body, bad_volume]),
    ...bad_mutes.map((body) => [mute, body, bad_mute]),
  ];
  for (const [route, body, refusal] of rows) {
    await t.test(`${route} ${body}`, async () => {
      assert.equal(await ask(studio_service.service, 'PUT', route, body), refusal);
      await assert_untouched(studio_service);
    });
  }
  await studio_service.service.stop();
});

const valid_requests = ({ render, capture }) => [
  ['GET', devices],
  ['PUT', render_choice, escaped_id(render)],
  ['PUT', capture_choice, escaped_id(capture)],
  ['PUT', volume, '{"volume":0.5}'],
  ['PUT', mute, '{"muted":true}'],
];

test('another method, and a path that is only like one of these, leads nowhere', limits, async (t) => {
  const studio_service = await start_in_studio(t);
  const methods = ['GET', 'PUT', 'POST', 'DELETE', 'PATCH', 'HEAD', 'get', 'put'];
  const rows = valid_requests(studio_service).flatMap(([method, target, body]) => [
    ...methods.filter((other) => other !== method).map((other) => [other, target, body]),
    [method, `${target}/`, body],
    [method, target.toUpperCase(), body],
    [method, target.replace('/v1/', '/v1//'), body],
    [method, `${target}%20`, body],
  ]);
  rows.push(
    ['PUT', '/api/v1/devices/both', escaped_id(studio_service.render)],
    ['PUT', '/api/v1/capture/volume', '{"volume":1}'],
  );
  for (const [method, target, body] of rows) {
    await t.test(`${method} ${target}`, async () => {
      assert.equal(await ask(studio_service.service, method, target, body), answers.not_found);
    });
  }
  await assert_untouched(studio_service);
  await studio_service.service.stop();
});

test('without the token nothing is told and nothing is done', limits, async (t) => {
  const studio_service = await start_in_studio(t);
  const { service } = studio_service;
  for (const headers of [[], [['X-Velmora-Token', '']], [['X-Velmora-Token', `${service.token.slice(0, -1)}0`]]]) {
    for (const [method, target, body] of valid_requests(studio_service)) {
      const request = request_bytes(service, { method, target, body, headers });
      assert.equal(await exchange(service, request), answers.no_token);
    }
  }
  await assert_untouched(studio_service);
  await service.stop();
});

test('what stands behind a question mark is no part of the path', limits, async (t) => {
  const studio_service = await start_in_studio(t);
  const { service, before } = studio_service;
  assert.equal(await ask(service, 'GET', `${devices}?flow=render`), before);
  assert.equal(await ask(service, 'PUT', `${capture_choice}?/render`, escaped_id('')), no_id);
  assert.equal(await ask(service, 'PUT', `${volume}?volume=1`, '{}'), bad_volume);
  assert.equal(await ask(service, 'PUT', `${mute}?`, '{}'), bad_mute);
  await assert_untouched(studio_service);
  await service.stop();
});

// ---- the list ----

async function start_on(t, text, env = {}) {
  const machine = await Machine.make(t, text);
  return { machine, service: await start_service(t, { env: { ...machine.env, ...env } }) };
}

const not_found_code = -2147023728;
const unreadable_code = -2147023880;

if (is_native) {
  test('with nothing chosen the default endpoints have both marks', limits, async (t) => {
    const { service } = await start_on(t, studio_text());
    const answer = await list(service);
    assert.equal(answer, list_answer(studio));
    const { render, capture } = JSON.parse(body_of(answer));
    const marks = (endpoints) => endpoints.map((endpoint) => [endpoint.is_default, endpoint.is_selected]);
    assert.deepEqual(marks(render), [[false, false], [true, true]]);
    assert.deepEqual(marks(capture), [[false, false], [true, true]]);
    await service.stop();
  });

  const laptop = {
    render: [
      { id: render_id('{4a2b60cd-d30a-4b04-aa33-94d743a1fbf9}'), name: 'USB headset (USB Audio)' },
      { id: render_id('{517f1efe-9874-44ab-b8c0-d341131d9da7}'), name: 'Speakers (High Definition Audio)' },
    ],
    capture: [
      { id: capture_id('{ae22db8f-4b0c-488e-8414-26287ed209de}'), name: 'Microphone array (High Definition Audio)' },
      { id: capture_id('{ff5910c1-be74-4a99-9c55-4f8cda470cb0}'), name: 'Headset microphone (USB Audio)' },
    ],
    default_render: render_id('{4a2b60cd-d30a-4b04-aa33-94d743a1fbf9}'),
    default_capture: capture_id('{ae22db8f-4b0c-488e-8414-26287ed209de}'),
  };
  const laptop_text = fs.readFileSync(new URL('../machines/laptop.reg', import.meta.url), 'utf8');

  test('the endpoints of a laptop are listed, and each can be chosen', limits, async (t) => {
    const { machine, service } = await start_on(t, laptop_text);
    const list_before = list_answer(laptop);
    assert.equal(await list(service), list_before);
    const now = { ...laptop };
    for (const { id } of [...laptop.render, ...laptop.render]) {
      assert.equal(await choose(service, render_choice, id), answers.done);
      now.selected_render = id;
      assert.equal(await list(service), list_answer(now));
    }
    for (const { id } of [...laptop.capture, ...laptop.capture]) {
      assert.equal(await choose(service, capture_choice, id), answers.done);
      now.selected_capture = id;
      assert.equal(await list(service), list_answer(now));
    }
    await service.stop();

    assert.equal(await machine.export(), laptop_text, 'the choice is the service\'s own');
    const next = await start_service(t, { env: machine.env });
    assert.equal(await list(next), list_before, 'it ends with the service');
    await next.stop();
  });

  test('the endpoints that a laptop has without being active cannot be chosen', limits, async (t) => {
    const { service } = await start_on(t, laptop_text);
    const inactive = [
      [render_choice, render_id('{224f4790-924c-4a31-a961-c2115d0a2a43}')],
      [render_choice, render_id('{f3065860-9e6a-4a3c-8a4f-e771a101eada}')],
      [capture_choice, capture_id('{b89f7ec9-4c7e-45dd-a6bc-ca1fe11bbdf2}')],
    ];
    for (const [route, id] of inactive) assert.equal(await choose(service, route, id), no_such_endpoint, id);
    assert.equal(await list(service), list_answer(laptop));
    await service.stop();
  });

  test('a machine that is not given is the built-in one', limits, async (t) => {
    const service = await start_service(t, { env: { VELMORA_MACHINE: '' } });
    const first = render_id('{b7decc0c-5d96-4f7f-a65b-eda9cf0c26ef}');
    const input = capture_id('{566bf9d7-c55a-45f8-a1a6-e55e9b9b1325}');
    assert.equal(await list(service), list_answer({
      render: [
        { id: first, name: 'Speakers (High Definition Audio)', peak: 0.25, sessions: ['system'] },
        { id: render_id('{b37523a5-3b4a-4ee2-a463-513755ac0ecd}'), name: 'Headphones (High Definition Audio)' },
      ],
      capture: [{ id: input, name: 'Microphone (High Definition Audio)' }],
      default_render: first,
      default_capture: input,
    }));
    assert.equal(await set_volume(service, 0.5), answers.done);
    assert.equal(await set_mute(service, true), answers.done);
    await service.stop();
  });

  test('an endpoint is named by its friendly name, its description or its id', limits, async (t) => {
    const [name, description, interface_name] = [properties.name, properties.description, properties.interface_name];
    const id_of = (index) => render_id(guid_of(index + 1));
    const utf16_data = (type, text) => hex_data(type, Buffer.from(`${text}\0`, 'utf16le'));
    const rows = [
      [[[name, text_data('A')], [description, text_data('B')], [interface_name, text_data('C')]], 'A'],
      [[[description, text_data('B')], [interface_name, text_data('C')]], 'B (C)'],
      [[[description, text_data('B')]], 'B'],
      [[[interface_name, text_data('C')]], null],
      [[], null],
      [[[name, dword_data(1)], [description, text_data('B')]], null],
      [[[name, hex_data(2, Buffer.from('A\0', 'utf16le'))]], null],
      [[[name, text_data('')]], ''],
      [[[name, text_data('C:\\a "quoted" name/')]], 'C:\\a "quoted" name/'],
      [[[name, text_data('K\u00fcche \u97f3 \u{1f50a} \x7f')]], 'K\u00fcche \u97f3 \u{1f50a} \x7f'],
      [[[name, utf16_data(1, '\x01\b\t\n\x0b\f\r\x1b\x1f ')]], '\x01\b\t\n\x0b\f\r\x1b\x1f '],
      [[[name, utf16_data(1, 'half \ud83d')]], ''],
      [[[name, text_data('n'.repeat(40_000))]], 'n'.repeat(40_000)],
    ];
    const { service } = await start_on(t, machine_text(rows.map(([named], index) => [id_of(index), { named }])));
    assert.equal(await list(service), list_answer({
      render: rows.map(([, text], index) => ({ id: id_of(index), name: text ?? id_of(index) })),
      default_render: id_of(0),
      error_code: not_found_code,
    }));
    await service.stop();
  });

  test('a peak is shown as the meter gives it, unless it is no finite number', limits, async (t) => {
    const rows = [
      ['0', 0],
      ['0.25', 0.25],
      ['1', 1],
      ['1.5', 1.5],
      ['-1', -1],
      ['0.123456789', 0.123456789],
      ['1e-7', 1e-7],
      ['1e30', 1e30],
      ['0x1p-2', 0.25],
      ['nan', 0],
      ['-nan', 0],
      ['inf', 0],
      ['-inf', 0],
      ['1e39', 0],
      ['loud', 0],
      ['', 0],
    ];
    const endpoints = rows.map(([text, peak], index) => {
      const id = capture_id(guid_of(index + 1));
      const about = { named: [name_value('m')], own: [['Peak', text_data(text)]] };
      return { about: [id, about], shown: { id, name: 'm', peak } };
    });
    const { service } = await start_on(t, machine_text([
      ...endpoints.map(({ about }) => about),
      [speakers.id, { named: [name_value('no meter')] }],
    ]));
    assert.equal(await list(service), list_answer({
      render: [{ id: speakers.id, name: 'no meter' }],
      capture: endpoints.map(({ shown }) => shown),
      default_render: speakers.id,
      default_capture: capture_id(guid_of(1)),
    }));
    await service.stop();
  });

  const above_all_processes = 4_194_305;  // Linux gives no id above 4194304

  test('a session is shown by the program of its process', limits, async (t) => {
    const own_program = fs.readlinkSync(`/proc/${process.pid}/exe`);
    const sessions = [
      [session_values(1, process.pid), own_program],
      [session_values(0, process.pid), null],
      [session_values(1, 0), 'system'],
      [session_values(2, 0), null],
      [session_values(1, above_all_processes), `pid ${above_all_processes}`],
      [session_values(1, 0xffff_ffff), 'pid 4294967295'],
      [session_values(1, process.pid), own_program],
      [[['ProcessId', dword_data(process.pid)]], null],
      [[['State', dword_data(1)]], 'system'],
      [session_values(3, 0), null],
    ];
    const id = capture_id(guid_of(1));
    const of_all = { named: [name_value('m')], sessions: sessions.map(([values]) => values) };
    const { service } = await start_on(t, machine_text([[id, of_all], [speakers.id, of_all]]));
    const shown = sessions.map(([, name]) => name).filter((name) => name !== null);
    assert.equal(await list(service), list_answer({
      render: [{ id: speakers.id, name: 'm', sessions: shown }],
      capture: [{ id, name: 'm', sessions: shown }],
      default_render: speakers.id,
      default_capture: id,
    }));
    await service.stop();
  });

  test('of a path with backslashes only what stands behind the last one is shown', limits, async (t) => {
    const processes = make_directory();
    const rows = [
      ['C:\\Program Files\\Player\\player.exe', 'player.exe'],
      ['player.exe', 'player.exe'],
      ['/opt/player/player', '/opt/player/player'],
      ['C:\\Program Files\\', 'pid 103'],
      ['C:\\M\u00fcsik\\sp\u00efeler "1" \u{1f50a}.exe', 'sp\u00efeler "1" \u{1f50a}.exe'],
      [Buffer.from('C:\\half \xff.exe', 'latin1'), 'half \ufffd.exe'],
      [`C:\\${'n'.repeat(1000)}`, 'n'.repeat(1000)],
    ];
    rows.forEach(([target], index) => {
      fs.mkdirSync(path.join(processes, String(100 + index)));
      fs.symlinkSync(target, path.join(processes, String(100 + index), 'exe'));
    });
    const sessions = rows.map((_, index) => session_values(1, 100 + index));
    const text = machine_text([[speakers.id, { named: [name_value('m')], sessions }]]);
    const { service } = await start_on(t, text, { VELMORA_PROC: processes });
    assert.equal(await list(service), list_answer({
      render: [{ id: speakers.id, name: 'm', sessions: rows.map(([, shown]) => shown) }],
      default_render: speakers.id,
      error_code: not_found_code,
    }));
    await service.stop();
  });

  test('a flow without endpoints is told by the error code', limits, async (t) => {
    const render = [speakers.id, { named: [name_value('r')] }];
    const capture = [microphone.id, { named: [name_value('c')] }];
    const off = (id) => [id, { state: 4, named: [name_value('off')] }];
    const render_alone = { render: [{ id: speakers.id, name: 'r' }], default_render: speakers.id };
    const capture_alone = { capture: [{ id: microphone.id, name: 'c' }], default_capture: microphone.id };
    const rows = [
      ['none at all', export_text([]), { error_code: not_found_code }],
      ['keys without endpoints', export_text([[render_path, []], [capture_path, []]]), { error_code: not_found_code }],
      ['none that is active', machine_text([off(speakers.id), off(microphone.id)]), { error_code: not_found_code }],
      ['render alone', machine_text([render, off(microphone.id)]), { ...render_alone, error_code: not_found_code }],
      ['capture alone', machine_text([off(speakers.id), capture]), { ...capture_alone, error_code: not_found_code }],
      ['both', machine_text([render, capture]), { ...render_alone, ...capture_alone }],
      ['a default that is not active', machine_text([off(headphones.id), render, capture], { render: headphones.id }),
        { ...render_alone, ...capture_alone }],
    ];
    for (const [what, text, expected] of rows) {
      await t.test(what, async (row) => {
        const { service } = await start_on(row, text);
        assert.equal(await list(service), list_answer(expected));
        const has_render = expected.default_render !== undefined;
        assert.equal(await choose(service, render_choice, speakers.id), has_render ? answers.done : no_such_endpoint);
        assert.equal(await set_volume(service, 1), has_render ? answers.done : no_volume);
        assert.equal(await set_mute(service, true), has_render ? answers.done : no_mute);
        assert.equal(await list(service), list_answer(expected));
        await service.stop();
      });
    }
  });

  test('the effect is shown as bound from its bind to its unbind', limits, async (t) => {
    const { machine, service } = await start_on(t, studio_text());
    const shows = async (bound) => {
      assert.equal(await list(service), list_answer({ ...studio, render: [speakers, { ...headphones, bound }] }));
    };
    const act = async (action, detail) => {
      const { code, output } = await machine.run_tool(action, guid_of(2));
      assert.deepEqual([code, output], [0, `status 0x00000000\ndetail ${detail}\n`]);
    };
    await shows(false);
    await act('bind', 'endpoint bound and a default-mode list was added');
    await shows(true);
    await act('bind', 'endpoint was already bound');
    await shows(true);
    await act('unbind', 'endpoint unbound');
    await shows(false);
    await service.stop();
  });

  test('an endpoint whose chain cannot be read is shown as not bound', limits, async (t) => {
    const fx_values = [
      [[[chain, list_data([effect])]], true],
      [[[chain, list_data([effect.toLowerCase()])]], true],
      [[[chain, list_data([])]], false],
      [[[chain, text_data(effect)]], false],
      [[], false],
      [null, false],
    ];
    const endpoints = fx_values.map(([fx, bound], index) =>
      ({ id: render_id(guid_of(index + 1)), fx, shown: { id: render_id(guid_of(index + 1)), name: 'e', bound } }));
    const odd_id = '{0.0.0.00000000}.not a GUID';
    const text = export_text([
      ...endpoints.flatMap(({ id, fx }) => endpoint_keys(id, { fx, named: [name_value('e')] })),
      [`${render_path}\\not a GUID`, [['DeviceState', dword_data(1)]]],
      [`${render_path}\\not a GUID\\FxProperties`, [[chain, list_data([effect])]]],
    ]);
    const { service } = await start_on(t, text);
    const { render } = JSON.parse(body_of(await list(service)));
    const sorted = [...endpoints.map(({ shown }) => shown), { id: odd_id, name: odd_id, bound: false }];
    assert.deepEqual(render.map(({ id }) => id).sort(), sorted.map(({ id }) => id).sort());
    const in_order = render.map(({ id }) => sorted.find((shown) => shown.id === id));
    assert.equal(await list(service),
      list_answer({ render: in_order, default_render: in_order[0].id, error_code: not_found_code }));
    await service.stop();
  });

  // ---- the choice ----

  test('only an active endpoint of the direction with exactly this id is chosen', limits, async (t) => {
    const { machine, service } = await start_on(t, studio_text());
    assert.equal(await choose(service, render_choice, speakers.id), answers.done);
    assert.equal(await choose(service, capture_choice, line_in.id), answers.done);
    const chosen = list_answer({ ...studio, selected_render: speakers.id, selected_capture: line_in.id });
    assert.equal(await list(service), chosen);
    const rows = [
      [render_choice, microphone.id],
      [capture_choice, headphones.id],
      [capture_choice, speakers.id],
      [render_choice, headphones.id.toUpperCase()],
      [capture_choice, microphone.id.toUpperCase()],
      [render_choice, unplugged.id],
      [render_choice, guid_of(2)],
      [render_choice, ` ${headphones.id}`],
      [render_choice, `${headphones.id} `],
      [render_choice, headphones.id.slice(0, -1)],
      [render_choice, `${headphones.id}}`],
    ];
    for (const [route, id] of rows) {
      assert.equal(await choose(service, route, id), no_such_endpoint, `${route} ${id}`);
      assert.equal(await list(service), chosen);
    }
    for (const [body, refusal] of [[escaped_id(''), no_id], [escaped_id('\xff'), not_selected]]) {
      for (const route of [render_choice, capture_choice]) {
        assert.equal(await ask(service, 'PUT', route, body), refusal);
      }
      assert.equal(await list(service), chosen);
    }
    assert.equal(await machine.export(), studio_text());
    await service.stop();
  });

  test('without a choice the default is followed, and a choice stays when the default changes', limits, async (t) => {
    const { machine, service } = await start_on(t, studio_text());
    fs.writeFileSync(machine.file, studio_text({ render: speakers.id }));
    const moved = { ...studio, default_render: speakers.id };
    assert.equal(await list(service), list_answer(moved));
    assert.equal(await choose(service, render_choice, speakers.id), answers.done);
    fs.writeFileSync(machine.file, studio_text());
    assert.equal(await list(service), list_answer({ ...studio, selected_render: speakers.id }));
    await service.stop();
  });

  test('a chosen endpoint that goes away stays chosen until another one is', limits, async (t) => {
    const rows = [
      ['its key is gone', { without: [headphones.id] }],
      ['it is unplugged', { headphones_state: 8 }],
      ['it is disabled', { headphones_state: 2 }],
    ];
    for (const [what, change] of rows) {
      await t.test(what, async (row) => {
        const { machine, service } = await start_on(row, studio_text());
        assert.equal(await choose(service, render_choice, headphones.id), answers.done);
        const without_it = studio_text({ ...change, render: speakers.id });
        fs.writeFileSync(machine.file, without_it);
        const gone = { ...studio, render: [speakers], default_render: speakers.id, selected_render: headphones.id };
        const answer = await list(service);
        assert.equal(answer, list_answer(gone));
        assert.deepEqual(JSON.parse(body_of(answer)).render.map(({ is_selected }) => is_selected), [false]);
        assert.equal(await set_volume(service, 0.5), no_volume);
        assert.equal(await set_mute(service, true), no_mute);
        assert.equal(await choose(service, render_choice, headphones.id), no_such_endpoint);
        assert.equal(await list(service), list_answer(gone));
        assert.equal(await machine.export(), without_it, 'the default does not stand in for it');

        fs.writeFileSync(machine.file, studio_text());
        assert.equal(await list(service), list_answer({ ...studio, selected_render: headphones.id }), 'it is back');
        fs.writeFileSync(machine.file, without_it);
        assert.equal(await choose(service, render_choice, speakers.id), answers.done);
        assert.equal(await list(service), list_answer({ ...gone, selected_render: speakers.id }));
        assert.equal(await set_volume(service, 0.5), answers.done);
        assert.equal(await set_mute(service, true), answers.done);
        const own_key = `${own_path}\\${speakers.id}`;
        assert.deepEqual(difference(without_it, await machine.export()), {
          removed: [],
          added: [value_entry(own_key, 'Muted', dword_data(1)), value_entry(own_key, 'Volume', text_data('0.5'))],
        });
        await service.stop();
      });
    }
  });

  // ---- volume and mute ----

  const volume_entry = (id, text) => value_entry(`${own_path}\\${id}`, 'Volume', text_data(text));
  const mute_entry = (id, muted) => value_entry(`${own_path}\\${id}`, 'Muted', dword_data(muted ? 1 : 0));

  test('a volume reaches the machine, in 32 bits', limits, async (t) => {
    const { machine, service } = await start_on(t, studio_text());
    const rows = [
      ['{"volume":0}', '0'],
      ['{"volume":1}', '1'],
      ['{"volume":0.5}', '0.5'],
      ['{"volume":0.1}', '0.100000001'],
      ['{"volume":1.00000001}', '1'],
      ['{"volume":1e-45}', '1.40129846e-45'],
      ['{"volume":1e-99}', '0'],
      ['{"volume":-0}', '-0'],
      [' {\r\n"volume"\t: 2.5e-1 , "muted":true}', '0.25'],
      ['"volume":.75x', '0.75'],
      ['{"volume":0.3,"volume":2}', '0.300000012'],
    ];
    for (const [body, kept] of rows) {
      await t.test(body, async () => {
        assert.equal(await ask(service, 'PUT', volume, body), answers.done);
        assert.deepEqual(difference(studio_text(), await machine.export()), {
          removed: [],
          added: [key_entry(`${own_path}\\${headphones.id}`), volume_entry(headphones.id, kept)],
        });
      });
    }
    assert.equal(await list(service), list_answer(studio));
    await service.stop();
  });

  test('a mute reaches the machine, and one that changes nothing is no error', limits, async (t) => {
    const { machine, service } = await start_on(t, studio_text());
    const rows = [
      ['{"muted":false}', null],
      ['{"muted":true}', true],
      ['{"muted":true}', true],
      ['{"muted":false}', false],
      [' { "muted"\n: trueish', true],
      ['{"muted":false,"muted":true}', false],
    ];
    for (const [body, kept] of rows) {
      const before = await machine.export();
      const { ino } = fs.statSync(machine.file);
      assert.equal(await ask(service, 'PUT', mute, body), answers.done, body);
      const added = kept === null ? [] : [key_entry(`${own_path}\\${headphones.id}`), mute_entry(headphones.id, kept)];
      assert.deepEqual(difference(studio_text(), await machine.export()), { removed: [], added }, body);
      if (before === (await machine.export())) assert.equal(fs.statSync(machine.file).ino, ino, 'it is not written');
    }
    assert.equal(await list(service), list_answer(studio));
    await service.stop();
  });

  test('volume and mute go to the chosen endpoint, and stay with it', limits, async (t) => {
    const { machine, service } = await start_on(t, studio_text());
    assert.equal(await set_volume(service, 0.25), answers.done);
    assert.equal(await choose(service, render_choice, speakers.id), answers.done);
    assert.equal(await set_volume(service, 0.5), answers.done);
    assert.equal(await set_mute(service, true), answers.done);
    assert.equal(await choose(service, render_choice, headphones.id), answers.done);
    // The capture choice has no part in it.
    assert.equal(await choose(service, capture_choice, line_in.id), answers.done);
    assert.equal(await set_volume(service, 0.75), answers.done);
    const kept = {
      removed: [],
      added: [
        key_entry(`${own_path}\\${headphones.id}`),
        mute_entry(speakers.id, true),
        volume_entry(headphones.id, '0.75'),
        volume_entry(speakers.id, '0.5'),
      ].sort(),
    };
    assert.deepEqual(difference(studio_text(), await machine.export()), kept);
    await service.stop();
    assert.deepEqual(difference(studio_text(), await machine.export()), kept);
  });

  // ---- a machine that fails ----

  test('a machine that can no longer be read is told by the error code, and the service goes on', limits, async (t) => {
    const rows = [
      ['malformed', (file) => fs.writeFileSync(file, `${studio_text()}[HKEY_LOCAL_MACHINE\r\n`)],
      ['empty', (file) => fs.writeFileSync(file, '')],
      ['gone', (file) => fs.rmSync(file)],
    ];
    for (const [what, spoil] of rows) {
      await t.test(what, async (row) => {
        const { machine, service } = await start_on(row, studio_text());
        assert.equal(await choose(service, render_choice, speakers.id), answers.done);
        spoil(machine.file);
        const spoilt = fs.existsSync(machine.file) ? await machine.export() : null;
        const unreadable = list_answer({ error_code: unreadable_code });
        assert.equal(await list(service), unreadable);
        assert.equal(await choose(service, render_choice, headphones.id), not_selected);
        assert.equal(await choose(service, capture_choice, line_in.id), not_selected);
        assert.equal(await set_volume(service, 0.5), no_volume);
        assert.equal(await set_mute(service, true), no_mute);
        assert.equal(await list(service), unreadable);
        assert.equal(fs.existsSync(machine.file) ? await machine.export() : null, spoilt, 'it is left alone');

        fs.writeFileSync(machine.file, studio_text());
        assert.equal(await list(service), list_answer({ ...studio, selected_render: speakers.id }), 'the choice stood');
        assert.equal(await set_volume(service, 0.5), answers.done);
        await service.stop();
      });
    }
  });

  // The service on a machine that stands on a disk of its own.
  async function start_on_disk(t, disk) {
    const file = path.join(disk.directory, 'machine.reg');
    fs.writeFileSync(file, studio_text());
    return { file, service: await start_service(t, { env: { VELMORA_MACHINE: file } }) };
  }

  async function assert_not_written({ file, service }) {
    assert.equal(await set_volume(service, 0.5), no_volume);
    assert.equal(await set_mute(service, true), no_mute);
    assert.equal(fs.readFileSync(file, 'utf8'), studio_text());
    assert.deepEqual(fs.readdirSync(path.dirname(file)).sort(), ['filler', 'machine.reg']);
  }

  test('a machine that may only be read keeps its volume', limits, async (t) => {
    const disk = make_small_disk(t, 65_536);
    fs.writeFileSync(path.join(disk.directory, 'filler'), '');
    const started = await start_on_disk(t, disk);
    disk.make_read_only();
    await assert_not_written(started);
    assert.equal(await choose(started.service, render_choice, speakers.id), answers.done);
    await assert_not_written(started);
    assert.equal(await list(started.service), list_answer({ ...studio, selected_render: speakers.id }));
    await started.service.stop();
  });

  test('a full disk keeps the machine as it was, and takes a change when there is room again', limits, async (t) => {
    const page_bytes = 4096;
    const machine_pages = Math.ceil(Buffer.byteLength(studio_text()) / page_bytes);
    const disk = make_small_disk(t, (machine_pages * 2 + 1) * page_bytes);
    const filler = path.join(disk.directory, 'filler');
    fs.writeFileSync(filler, Buffer.alloc((machine_pages + 1) * page_bytes, 1));
    const started = await start_on_disk(t, disk);
    await assert_not_written(started);
    assert.equal(await list(started.service), list_answer(studio));

    fs.truncateSync(filler, 0);
    assert.equal(await set_mute(started.service, true), answers.done);
    assert.deepEqual(difference(studio_text(), fs.readFileSync(started.file, 'utf8')), {
      removed: [],
      added: [key_entry(`${own_path}\\${headphones.id}`), mute_entry(headphones.id, true)],
    });
    await started.service.stop();
  });
}

// ---- what the service stands ----

test('many lists and choices in a row leave the service as it was', limits, async (t) => {
  const studio_service = await start_in_studio(t);
  const { service } = studio_service;
  for (let round = 0; round < 100; ++round) {
    assert.equal(await choose(service, render_choice, 'x'), no_such_endpoint);
    await assert_untouched(studio_service);
  }
  assert.equal(await ask(service, 'GET', devices, '{"endpoint_id":"x"}'), studio_service.before);
  await service.stop();
});
