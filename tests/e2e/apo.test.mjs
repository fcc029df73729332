// Binding with a restart of the audio service through the API, and the probes of the effect: from outside.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';

import {
  Engine,
  algorithm_library,
  assert_probes,
  effect_library,
  engine_program,
  install_audio_service,
  number_data,
  old_algorithm_library,
  register_effect,
  registered,
  visible_processes,
} from './engine.mjs';
import {
  answer_bytes,
  answers,
  api_bytes,
  ask,
  built_program,
  exchange,
  is_native,
  is_wine,
  json_document,
  make_directory,
  poll,
  program_path_text,
  refusal_bytes,
  request_bytes,
  run,
  start_service,
} from './harness.mjs';
import {
  Machine,
  difference,
  dword_data,
  export_text,
  hex_data,
  list_data,
  render_path,
  text_data,
  value_entry,
} from './registry.mjs';

const limits = { timeout: 120_000 };

// ---- machines with services ----

const capture_path = render_path.replace(/Render$/, 'Capture');
const root = 'HKEY_LOCAL_MACHINE\\';
const services_path = `${root}SYSTEM\\CurrentControlSet\\Services`;
const standin_path = `${root}SOFTWARE\\VelmoraStandIn`;

const speakers_guid = '{3c1c1e0e-5a0f-4c0c-9a45-6f0b1d0a7e11}';
const phones_guid = '{3c1c1e0e-5a0f-4c0c-9a45-6f0b1d0a7e12}';
const odd_guid = '{3c1c1e0e-5a0f-4c0c-9a45-6f0b1d0a7e13}';
const microphone_guid = '{3c1c1e0e-5a0f-4c0c-9a45-6f0b1d0a7e14}';
const missing_guid = '{3c1c1e0e-5a0f-4c0c-9a45-6f0b1d0a7e15}';
const speakers = `{0.0.0.00000000}.${speakers_guid}`;
const phones = `{0.0.0.00000000}.${phones_guid}`;
const odd = `{0.0.0.00000000}.${odd_guid}`;
const microphone = `{0.0.1.00000000}.${microphone_guid}`;
const missing = `{0.0.0.00000000}.${missing_guid}`;

const effect = '{631D9145-CACF-44D7-861B-5D82ADD8C84F}';
const foreign = '{A9DFDEC6-BAEC-4E5B-AF5D-8BB09F2E9EA4}';
const mode = '{C18E2F7E-933D-4965-B7D1-1EEF228D2AF3}';
const chain = '{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},14';
const driver_lists = [
  ['{d3993a3f-99c2-4402-b5ec-a92a0367664b},6', list_data([mode])],
  ['{d3993a3f-99c2-4402-b5ec-a92a0367664b},12', list_data([mode])],
];
const active = ['DeviceState', dword_data(1)];
const driver_chain = [...driver_lists, [chain, list_data([foreign])]];

const endpoints = [
  [`${render_path}\\${speakers_guid}`, [active]],
  [`${render_path}\\${speakers_guid}\\FxProperties`, driver_chain],
  [`${render_path}\\${phones_guid}`, [active]],
  [`${render_path}\\${phones_guid}\\FxProperties`, driver_chain],
  [`${render_path}\\${odd_guid}`, [active]],
  [`${render_path}\\${odd_guid}\\FxProperties`, [[chain, text_data(foreign)]]],
  [`${capture_path}\\${microphone_guid}`, [active]],
  [`${capture_path}\\${microphone_guid}\\FxProperties`, driver_chain],
];

// A service, what it needs, and (natively) how it behaves.
function service_keys(name, needs = [], behaviour = {}) {
  const values = Object.entries(behaviour).map(([value, number]) => [value, dword_data(number)]);
  return [
    [`${services_path}\\${name}`, needs.length === 0 ? [] : [['DependOnService', list_data(needs)]]],
    ...(values.length === 0 ? [] : [[`${standin_path}\\Services\\${name}`, values]]),
  ];
}

const plain_services = [...service_keys('Audiosrv'), ...service_keys('SonicMonitor', ['Audiosrv'])];

function machine_text(services = plain_services, more = []) {
  const defaults = [[`${standin_path}\\Audio`, [['DefaultRender', text_data(speakers)]]]];
  return export_text([...endpoints, ...defaults, ...services, ...more]);
}

// Keys of the machine that refuse to be changed.
function read_only(...keys) {
  return [[`${standin_path}\\Access`, keys.map((key) => [key.replace(root, '').replaceAll('\\', '\\\\'), dword_data(0x20019)])]];
}

const fx_entry = (guid, entries) => value_entry(`${render_path}\\${guid}\\FxProperties`, chain, list_data(entries));
const bound_in = (guid) => ({ removed: [fx_entry(guid, [foreign])], added: [fx_entry(guid, [foreign, effect])] });
const unbound_in = (guid) => ({ removed: [fx_entry(guid, [foreign, effect])], added: [fx_entry(guid, [foreign])] });
const unchanged = { removed: [], added: [] };

// ---- answers ----

const route = '/api/v1/render/apo';

const restarted = { audio_restarted: true, audio_restart_error: 0, audio_restart_detail: 'audio stack restarted' };
const not_asked = { audio_restarted: false, audio_restart_error: 0, audio_restart_detail: '' };

const win32_status = (error) => (0x80070000 | error) | 0;

function failed_restart(error, detail) {
  return { audio_restarted: false, audio_restart_error: win32_status(error), audio_restart_detail: detail };
}

function done(bound, endpoint_id, detail, restart) {
  return answer_bytes(200, 'OK', json_document, JSON.stringify({ ok: true, bound, endpoint_id, detail, ...restart }));
}

const bad = (message) => refusal_bytes(400, 'Bad Request', message);
const unavailable = (message) => refusal_bytes(503, 'Service Unavailable', message);

const no_attach = bad('attach must be a boolean');
const no_endpoint = bad('no render endpoint is selected');
const no_id = bad('endpoint_id must be a render endpoint identifier');
const not_opened = unavailable(
  'the endpoint FxProperties key could not be opened for writing (run the control service elevated)',
);
const not_read = unavailable('the endpoint mode-effect chain could not be read');
const service_not_opened = 'Audiosrv could not be opened (run the control service elevated)';
const stop_refused = 'Audiosrv did not accept the stop request';
const start_refused = 'Audiosrv did not restart';

// Asks the route, demands the answer, and demands what it changed in the machine.
async function post(service, machine, body, answer, changes = unchanged) {
  const before = await machine.export();
  assert.equal(await ask(service, 'POST', route, body), answer, body);
  assert.deepEqual(difference(before, await machine.export()), changes, body);
}

// ---- refusals ----

const quoted = JSON.stringify;

// Bodies with their answers. Neither changes anything.
const refusals = [
  ['', no_attach],
  ['{}', no_attach],
  ['{"attach":', no_attach],
  ['{"attach":"true"}', no_attach],
  ['{"attach":1}', no_attach],
  ['{"attach":null}', no_attach],
  ['{"attach":[true]}', no_attach],
  [`{"attach":"true","endpoint_id":"nobody"}`, no_attach],
  [`{"endpoint_id":${quoted(speakers)}}`, no_attach],
  ['{"attach":true,"endpoint_id":"nobody"}', no_id],
  ['{"attach":false,"endpoint_id":"nobody"}', no_id],
  ['{"attach":true,"endpoint_id":"{0.0.0.00000000}.{not-a-guid}"}', no_id],
  [`{"attach":true,"endpoint_id":${quoted(`${speakers} `)}}`, no_id],
  [`{"attach":true,"endpoint_id":${quoted(speakers.slice(0, -1))}}`, no_id],
  [`{"attach":true,"endpoint_id":${quoted(missing)}}`, not_opened],
  [`{"attach":false,"endpoint_id":${quoted(missing)}}`, not_opened],
  [`{"attach":true,"endpoint_id":${quoted(microphone)}}`, not_opened],
  [`{"attach":false,"endpoint_id":${quoted(microphone)}}`, not_opened],
  [`{"attach":true,"endpoint_id":${quoted(odd)}}`, not_read],
  [`{"attach":false,"endpoint_id":${quoted(odd)}}`, not_read],
];

test('what is refused changes nothing, each thing with its own answer', limits, async (t) => {
  const machine = await Machine.make(t, machine_text());
  const service = await start_service(t, { env: machine.env });
  const before = await machine.export();
  for (const [body, answer] of refusals) assert.equal(await ask(service, 'POST', route, body), answer, body);
  assert.equal(await machine.export(), before);
  await service.stop();
});

test('the route takes POST alone, and the token', limits, async (t) => {
  const machine = await Machine.make(t, machine_text());
  const service = await start_service(t, { env: machine.env });
  const body = `{"attach":true,"endpoint_id":${quoted(speakers)}}`;
  const before = await machine.export();
  for (const method of ['GET', 'PUT', 'DELETE', 'PATCH']) {
    assert.equal(await ask(service, method, route, body), answers.not_found, method);
  }
  for (const target of [`${route}/`, `${route}s`]) {
    assert.equal(await ask(service, 'POST', target, body), answers.not_found, target);
  }
  assert.equal(await exchange(service, request_bytes(service, { method: 'POST', target: route, body })), answers.no_token);
  assert.equal(await exchange(service, api_bytes(service, 'POST', route, body, [['Origin', 'http://example.com']])), answers.not_local);
  assert.equal(await machine.export(), before);
  await service.stop();
});

// ---- binding without a restart ----

test('an endpoint is bound and unbound without a restart', limits, async (t) => {
  const machine = await Machine.make(t, machine_text());
  const before = await machine.export();
  const service = await start_service(t, { env: machine.env });
  const body = (attach, id) => `{"attach":${attach},"endpoint_id":${quoted(id)},"restart_audio":false}`;
  await post(service, machine, body(false, speakers), done(false, speakers, 'endpoint was not bound', not_asked));
  await post(service, machine, body(true, speakers), done(true, speakers, 'endpoint bound', not_asked), bound_in(speakers_guid));
  await post(service, machine, body(true, speakers), done(true, speakers, 'endpoint was already bound', not_asked));
  await post(service, machine, body(false, speakers), done(false, speakers, 'endpoint unbound', not_asked), unbound_in(speakers_guid));
  assert.equal(await machine.export(), before);
  // The endpoint is told as it was asked for, though only its GUID counts.
  for (const id of [phones_guid, `"\\.${phones_guid}`, `{0.0.0.00000000}.${phones_guid.toUpperCase()}`]) {
    await post(service, machine, body(true, id), done(true, id, 'endpoint bound', not_asked), bound_in(phones_guid));
    await post(service, machine, body(false, id), done(false, id, 'endpoint unbound', not_asked), unbound_in(phones_guid));
  }
  assert.equal(await machine.export(), before);
  await service.stop();
});


// ---- the restart, natively: services of the machine, as they behave there ----

const attach_body = `{"attach":true,"endpoint_id":${JSON.stringify(speakers)}}`;

if (is_native) {
  test('a restart follows each bind and unbind, also one with nothing to do', limits, async (t) => {
    const machine = await Machine.make(t, machine_text());
    const before = await machine.export();
    const service = await start_service(t, { env: machine.env });
    const detach_body = attach_body.replace('true', 'false');
    await post(service, machine, attach_body, done(true, speakers, 'endpoint bound', restarted), bound_in(speakers_guid));
    await post(service, machine, attach_body, done(true, speakers, 'endpoint was already bound', restarted));
    await post(service, machine, detach_body, done(false, speakers, 'endpoint unbound', restarted), unbound_in(speakers_guid));
    await post(service, machine, detach_body, done(false, speakers, 'endpoint was not bound', restarted));
    assert.equal(await machine.export(), before);
    await service.stop();
  });

  test('only false itself leaves the restart out', limits, async (t) => {
    const machine = await Machine.make(t, machine_text());
    const service = await start_service(t, { env: machine.env });
    const rows = [
      ['', restarted],
      [',"restart_audio":true', restarted],
      [',"restart_audio":"false"', restarted],
      [',"restart_audio":0', restarted],
      [',"restart_audio":null', restarted],
      [',"restart_audio":false', not_asked],
      [',"restart_audio" : false', not_asked],
    ];
    for (const [field, restart] of rows) {
      const body = `{"attach":false,"endpoint_id":${quoted(speakers)}${field}}`;
      await post(service, machine, body, done(false, speakers, 'endpoint was not bound', restart));
    }
    await service.stop();
  });

  test('the endpoint is the one that is given, else the chosen one, else the default one', limits, async (t) => {
    const machine = await Machine.make(t, machine_text());
    const service = await start_service(t, { env: machine.env });
    const bind = (endpoint_id = '') => `{"attach":true${endpoint_id},"restart_audio":false}`;
    const bound = (id) => done(true, id, 'endpoint bound', not_asked);
    const again = (id) => done(true, id, 'endpoint was already bound', not_asked);
    await post(service, machine, bind(), bound(speakers), bound_in(speakers_guid));
    await post(service, machine, bind(',"endpoint_id":""'), again(speakers));
    await post(service, machine, bind(',"endpoint_id":7'), again(speakers));
    const chosen = await ask(service, 'PUT', '/api/v1/devices/render', `{"endpoint_id":${quoted(phones)}}`);
    assert.ok(chosen.startsWith('HTTP/1.1 200 OK\r\n'), chosen);
    await post(service, machine, bind(), bound(phones), bound_in(phones_guid));
    await post(service, machine, bind(',"endpoint_id":""'), again(phones));
    await post(service, machine, bind(`,"endpoint_id":${quoted(speakers)}`), again(speakers));
    // One that goes away stays chosen.
    fs.writeFileSync(machine.file, (await machine.export()).replaceAll(phones_guid, missing_guid.replace('e15', 'e16')));
    await post(service, machine, bind(), not_opened);
    await service.stop();
  });

  test('without any endpoint there is none to bind', limits, async (t) => {
    const machine = await Machine.make(t, export_text(plain_services));
    const service = await start_service(t, { env: machine.env });
    for (const body of ['{"attach":true}', '{"attach":false,"endpoint_id":""}', '{"attach":true,"endpoint_id":5}']) {
      await post(service, machine, body, no_endpoint);
    }
    await post(service, machine, '{"attach":"true","endpoint_id":""}', no_attach);
    await post(service, machine, `{"attach":true,"endpoint_id":${quoted(speakers)}}`, not_opened);
    await service.stop();
  });

  // How the services behave, and what becomes of the restart. The endpoint is bound in each row.
  const rows = {
    'a service that is not installed': [[], failed_restart(1060, service_not_opened)],
    'a service that may only be looked at': [
      plain_services, failed_restart(5, service_not_opened), read_only(`${services_path}\\Audiosrv`),
    ],
    'a service that refuses to stop': [service_keys('Audiosrv', [], { StopError: 1052 }), failed_restart(1052, stop_refused)],
    'a service that refuses to start': [service_keys('Audiosrv', [], { StartError: 1058 }), failed_restart(1058, start_refused)],
    'a service that stands still': [service_keys('Audiosrv', [], { State: 1 }), restarted],
    'a service that stands still and refuses to start': [
      service_keys('Audiosrv', [], { State: 1, StartError: 1069 }), failed_restart(1069, start_refused),
    ],
    'a service without dependents': [service_keys('Audiosrv'), restarted],
    'a dependent that may only be looked at runs on, and so does the service': [
      plain_services, failed_restart(1051, stop_refused), read_only(`${services_path}\\SonicMonitor`),
    ],
    'a dependent that refuses to start': [
      [...service_keys('Audiosrv'), ...service_keys('SonicMonitor', ['Audiosrv'], { StartError: 1058 })], restarted,
    ],
    'dependents of dependents': [
      [...plain_services, ...service_keys('SonicPanel', ['SonicMonitor'])], restarted,
    ],
  };
  for (const [what, [services, restart, more = []]] of Object.entries(rows)) {
    test(`restart: ${what}`, limits, async (t) => {
      const machine = await Machine.make(t, machine_text(services, more));
      const service = await start_service(t, { env: machine.env });
      await post(service, machine, attach_body, done(true, speakers, 'endpoint bound', restart), bound_in(speakers_guid));
      // The binding stands, and the service answers the next one.
      await post(service, machine, attach_body, done(true, speakers, 'endpoint was already bound', restart));
      await service.stop();
    });
  }

  test('the answer waits for the stops and the start of the audio service', limits, async (t) => {
    const stop_ms = 150;
    const start_ms = 120;
    const dependent_stop_ms = 110;
    const services = [
      ...service_keys('Audiosrv', [], { StopMs: stop_ms, StartMs: start_ms }),
      // How long a dependent starts is its own business.
      ...service_keys('SonicMonitor', ['Audiosrv'], { StopMs: dependent_stop_ms, StartMs: 0xffffffff }),
    ];
    const machine = await Machine.make(t, machine_text(services));
    const service = await start_service(t, { env: machine.env });
    const begin = process.hrtime.bigint();
    await post(service, machine, attach_body, done(true, speakers, 'endpoint bound', restarted), bound_in(speakers_guid));
    const waited_ms = Number(process.hrtime.bigint() - begin) / 1e6;
    assert.ok(waited_ms >= stop_ms + start_ms + dependent_stop_ms, `${waited_ms} ms`);
    await service.stop();
  });

  test('where the bind is refused, the service runs on', limits, async (t) => {
    // A service that was stopped here could not be started again.
    const cannot_start = service_keys('Audiosrv', [], { StartError: 1058 });
    const machine = await Machine.make(t, machine_text(cannot_start, read_only(render_path)));
    const service = await start_service(t, { env: machine.env });
    await post(service, machine, attach_body, not_opened);
    await post(service, machine, attach_body.replace('true', 'false'), not_opened);
    // One that stands still would be started now, and only one that runs can refuse to stop.
    fs.writeFileSync(machine.file, machine_text(service_keys('Audiosrv', [], { StopError: 1052 })));
    const restart = failed_restart(1052, stop_refused);
    await post(service, machine, attach_body, done(true, speakers, 'endpoint bound', restart), bound_in(speakers_guid));
    await service.stop();
  });
}

// ---- the restart under Wine: a service of its own that keeps a log ----

if (is_wine) {
  test('without an audio service the endpoint is bound all the same', limits, async (t) => {
    const machine = await Machine.make(t, machine_text());
    const service = await start_service(t, { env: machine.env });
    const restart = failed_restart(1060, service_not_opened);
    await post(service, machine, attach_body, done(true, speakers, 'endpoint bound', restart), bound_in(speakers_guid));
    await post(service, machine, attach_body, done(true, speakers, 'endpoint was already bound', restart));
    await service.stop();
  });

  test('the audio service logs that it was stopped and started, once for each restart', limits, async (t) => {
    const [stop_ms, start_ms] = [150, 120];
    const machine = await Machine.make(t, machine_text());
    const logged = await install_audio_service(t, ['--stop-ms', String(stop_ms), '--start-ms', String(start_ms)]);
    const service = await start_service(t, { env: machine.env });
    // It has not been started yet.
    await post(service, machine, attach_body, done(true, speakers, 'endpoint bound', restarted), bound_in(speakers_guid));
    assert.equal(logged().words, 'start running');
    await post(service, machine, attach_body, done(true, speakers, 'endpoint was already bound', restarted));
    const { words, times } = logged();
    assert.equal(words, 'stop stopped start running');
    assert.ok(times[1] - times[0] >= stop_ms && times[3] - times[2] >= start_ms, `${times}`);
    // Neither what is refused nor a bind without restart reaches the service.
    const quiet = `{"attach":false,"endpoint_id":${quoted(speakers)},"restart_audio":false}`;
    await post(service, machine, quiet, done(false, speakers, 'endpoint unbound', not_asked), unbound_in(speakers_guid));
    for (const [body, answer] of refusals) assert.equal(await ask(service, 'POST', route, body), answer, body);
    assert.equal(logged().words, '');
    await service.stop();
  });

  test('a service on its way takes no stop request, and a disabled one is not started', limits, async (t) => {
    const machine = await Machine.make(t, machine_text());
    const service = await start_service(t, { env: machine.env });
    const bind = async (restart) => assert.equal(await ask(service, 'POST', route, attach_body),
      done(true, speakers, 'endpoint was already bound', restart));
    const quiet = attach_body.replace('}"}', '}","restart_audio":false}');
    await post(service, machine, quiet, done(true, speakers, 'endpoint bound', not_asked), bound_in(speakers_guid));
    let logged = await install_audio_service(t, ['--start-ms', 'forever']);
    const started = await run(t, 'sc', ['start', 'Audiosrv']);
    assert.equal(started.code, 0, started.output);
    await poll('the start', () => (logged.text().includes('start') ? true : undefined));
    // Wine's word for it; Windows says 1061.
    await bind(failed_restart(1052, stop_refused));
    assert.equal(logged().words, 'start');
    logged = await install_audio_service(t, ['--disabled']);
    await bind(failed_restart(1058, start_refused));
    assert.equal(logged().words, '');
    await service.stop();
  });
}

// ---- whether the effect is installed ----

// A folder with what `files` says: a name leads to a file of some bytes, or to a folder when it ends in a slash.
function folder_with(files, name = 'Velmora') {
  const folder = make_directory(name);
  fs.chmodSync(path.dirname(folder), 0o755);
  for (const file of files) {
    if (file.endsWith('/')) fs.mkdirSync(path.join(folder, file));
    else fs.writeFileSync(path.join(folder, file), 'some bytes');
  }
  return folder;
}

const apo_name = 'velmora_windows_apo.dll';
const all_files = [apo_name, 'fse.dll', 'model_weights.bin'];
const found = (effect, algorithm) => ({ clsid_registered: true, apo_dll_present: effect, algorithm_present: algorithm });

// What lies in the folder, and what is found of it.
const installations = [
  ['all of it', all_files, found(true, true)],
  ['no weights', [apo_name, 'fse.dll'], found(true, false)],
  ['no algorithm', [apo_name, 'model_weights.bin'], found(true, false)],
  ['an algorithm that is a folder', [apo_name, 'fse.dll/', 'model_weights.bin'], found(true, false)],
  ['weights that are a folder', [apo_name, 'fse.dll', 'model_weights.bin/'], found(true, false)],
  ['the effect alone', [apo_name], found(true, false)],
  ['no effect', ['fse.dll', 'model_weights.bin'], found(false, true)],
  ['an effect that is a folder', [`${apo_name}/`, 'fse.dll', 'model_weights.bin'], found(false, true)],
  ['nothing', [], found(false, false)],
];

test('an installation is told by the files where the registration leads', limits, async (t) => {
  const seen = visible_processes();
  for (const [what, files, state] of installations) {
    const file = path.join(folder_with(files), apo_name);
    await t.test(what, async (row) => {
      const env = { ...seen, ...(await register_effect(row, { effect: registered(file) })) };
      await assert_probes(row, env, { ...state, apo_dll_path: program_path_text(file) });
    });
  }
  await t.test('a path beyond ASCII', async (row) => {
    const file = path.join(folder_with(all_files, 'Prüfung 試'), apo_name);
    const env = { ...seen, ...(await register_effect(row, { effect: registered(file) })) };
    const shown = program_path_text(file).replace(/[^\x00-\x7f]/g, '?');
    await assert_probes(row, env, { ...found(true, true), apo_dll_path: shown });
  });
});

test('what is registered counts by its type and its value', limits, async (t) => {
  const seen = visible_processes();
  const file = path.join(folder_with(all_files), apo_name);
  const shown = { ...found(true, true), apo_dll_path: program_path_text(file) };
  const text = Buffer.from(`${program_path_text(file)}\0`, 'utf16le');
  const too_long = path.join(path.dirname(file), 'a'.repeat(260));
  const disabled = { protected_audio_dg_disabled: true };
  const rows = [
    ['nothing', {}, {}],
    ['protection off, without an effect', { audio: number_data(1) }, disabled],
    ['protection off, with an effect', { audio: number_data(1), effect: registered(file) }, { ...shown, ...disabled }],
    ['2 as the protection', { audio: number_data(2), effect: registered(file) }, shown],
    ['0 as the protection', { audio: number_data(0) }, {}],
    ['a text as the protection', { audio: text_data('1') }, {}],
    ['bytes as the effect', { effect: hex_data(3, text), audio: number_data(1) }, disabled],
    ['a list as the effect', { effect: hex_data(7, Buffer.concat([text, Buffer.alloc(2)])) }, {}],
    ['a number as the effect', { effect: number_data(1) }, {}],
    ['a path of more than 259 characters', { effect: registered(too_long) }, {}],
  ];
  for (const [what, registration, state] of rows) {
    await t.test(what, async (row) => {
      await assert_probes(row, { ...seen, ...(await register_effect(row, registration)) }, state);
    });
  }
});

// ---- what the engine has loaded ----

const loaded = (engine, state) =>
  ({ running: true, process_id: engine.process_id, program: program_path_text(engine.program), ...state });
const effect_loaded = (library = effect_library) =>
  ({ apo_loaded: true, apo_module_path: program_path_text(library) });
const algorithm_loaded = { algorithm_loaded: true };

test('the engine is seen with what it has loaded, for as long as it runs', limits, async (t) => {
  const env = await register_effect(t, {});
  await assert_probes(t, { ...env, ...visible_processes(process.pid) }, {});
  const engine = await Engine.start(t);
  const seen = { ...env, ...visible_processes(process.pid, engine.process_id) };
  const sees = (state) => assert_probes(t, seen, loaded(engine, state));
  await sees({});
  await engine.load(effect_library);
  await sees(effect_loaded());
  await engine.load(algorithm_library);
  await sees({ ...effect_loaded(), ...algorithm_loaded });
  await engine.unload(effect_library);
  await sees(algorithm_loaded);
  await engine.load(old_algorithm_library);
  await engine.unload(algorithm_library);
  await sees(algorithm_loaded);
  await engine.unload(old_algorithm_library);
  await sees({});
  await engine.load(effect_library);
  await sees(effect_loaded());
  await engine.stop();
  await assert_probes(t, seen, {});
});

test('names count in whatever case, and whole', limits, async (t) => {
  const env = await register_effect(t, {});
  const copy = (file, name) => {
    const target = path.join(make_directory(), name);
    fs.copyFileSync(file, target);
    fs.chmodSync(target, 0o755);
    return target;
  };
  const shouted = copy(effect_library, 'VELMORA_Windows_APO.DLL');
  const neighbours = [copy(effect_library, 'velmora_windows_apo2.dll'), copy(algorithm_library, 'fse.dll.dll')];
  const libraries = [shouted, copy(algorithm_library, 'FSE.dll'), ...neighbours];
  const engine = await Engine.start(t, libraries, copy(engine_program, 'AudioDG.EXE'));
  const seen = { ...env, ...visible_processes(engine.process_id) };
  await assert_probes(t, seen, loaded(engine, { ...effect_loaded(shouted), ...algorithm_loaded }));
  await engine.unload(libraries[0]);
  await engine.unload(libraries[1]);
  await assert_probes(t, seen, loaded(engine, {}));
  await engine.stop();

  const stranger = await Engine.start(t, [effect_library], copy(engine_program, 'audiodg2.exe'));
  await assert_probes(t, { ...env, ...visible_processes(stranger.process_id) }, {});
  await stranger.stop();
});

test('a loaded effect whose path is beyond ASCII is found', limits, async (t) => {
  const env = await register_effect(t, {});
  const library = path.join(make_directory('Prüfung 試'), apo_name);
  fs.copyFileSync(effect_library, library);
  const engine = await Engine.start(t, [library]);
  const shown = program_path_text(library).replace(/[^\x00-\x7f]/g, '?');
  const seen = { ...env, ...visible_processes(engine.process_id) };
  await assert_probes(t, seen, loaded(engine, { apo_loaded: true, apo_module_path: shown }));
  await engine.stop();
});

if (is_native) {
  test('an engine that may not be looked into runs, and what it has loaded is not known', limits, async (t) => {
    const nobody = ['setpriv', '--reuid=65534', '--regid=65534', '--clear-groups', '--bounding-set=-all'];
    const engine = await Engine.start(t, [effect_library, algorithm_library]);
    const env = await register_effect(t, {});
    fs.chmodSync(path.dirname(env.VELMORA_MACHINE), 0o755);
    const seen = { ...env, ...visible_processes(engine.process_id) };
    const unknown = { elevated: false, error_code: win32_status(5), program: '' };
    await assert_probes(t, seen, loaded(engine, unknown), { wrapped: nobody });
    await assert_probes(t, seen, loaded(engine, { ...effect_loaded(), ...algorithm_loaded }));
    await engine.stop();
  });

  test('processes that cannot be listed are an error, and no engine', limits, async (t) => {
    const env = await register_effect(t, {});
    const missing_root = path.join(make_directory(), 'proc');
    await assert_probes(t, { ...env, VELMORA_PROC: missing_root }, { error_code: win32_status(31) });
  });

  test('links count for what they lead to', limits, async (t) => {
    const folder = folder_with(all_files);
    const linked = make_directory();
    for (const file of all_files) fs.symlinkSync(path.join(folder, file), path.join(linked, file));
    const file = path.join(linked, apo_name);
    const env = { ...visible_processes(), ...(await register_effect(t, { effect: registered(file) })) };
    await assert_probes(t, env, { ...found(true, true), apo_dll_path: file });
    fs.rmSync(path.join(folder, 'model_weights.bin'));
    await assert_probes(t, env, { ...found(true, false), apo_dll_path: file });
  });

  test("the machine's paths lead below the folder of the drives", limits, async (t) => {
    const drives = folder_with([], 'drives');
    const folder = path.join(drives, 'c/Program Files/Velmora');
    fs.mkdirSync(folder, { recursive: true });
    for (const file of all_files) fs.writeFileSync(path.join(folder, file), '');
    const env = { ...visible_processes(), VELMORA_DRIVES: drives, VELMORA_MACHINE: '' };
    const state = { ...found(true, true), protected_audio_dg_disabled: true };
    await assert_probes(t, env, { ...state, apo_dll_path: `C:\\Program Files\\Velmora\\${apo_name}` });
  });
}

test('the tool takes no arguments', limits, async (t) => {
  const { code, output, errors } = await run(t, built_program('velmora_print_engine'), ['look']);
  assert.deepEqual([code, output, errors], [2, '', 'Usage: velmora_print_engine\n']);
});
