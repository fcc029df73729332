// The Windows program on Wine's own endpoints, which a PulseAudio of the test's own makes of sinks that play into
// nothing. Wine adds a first endpoint to each direction, its default, which follows the server's.
//
// Wine 8 has neither meters nor a list of sessions, and refuses to set a volume.
import assert from 'node:assert/strict';
import path from 'node:path';
import test from 'node:test';

import {
  answer_bytes,
  answers,
  ask,
  body_of,
  built_program,
  devices_document,
  is_wine,
  json_document,
  make_directory,
  refusal_bytes,
  run,
  start_service,
} from './harness.mjs';
import { start_pulse, use_sound_server } from './pulse.mjs';
import { add_key, blocks_below, keep_keys, render_path, velmora_path } from './registry.mjs';

const limits = { timeout: 120_000 };
const devices = '/api/v1/devices';
const render_choice = '/api/v1/devices/render';
const capture_choice = '/api/v1/devices/capture';

const no_id = refusal_bytes(400, 'Bad Request', 'endpoint_id must be a non-empty string');
const no_such_endpoint = refusal_bytes(404, 'Not Found', 'active endpoint not found for this direction');
const not_selected = refusal_bytes(503, 'Service Unavailable', 'Windows endpoint selection failed');
const no_volume = refusal_bytes(503, 'Service Unavailable', 'Windows endpoint volume update failed');
const no_mute = refusal_bytes(503, 'Service Unavailable', 'Windows endpoint mute update failed');

const list_answer = (found) => answer_bytes(200, 'OK', json_document, devices_document(found));
const list = (service) => ask(service, 'GET', devices);
const choose = (service, route, id) => ask(service, 'PUT', route, JSON.stringify({ endpoint_id: id }));
const set_volume = (service, level) => ask(service, 'PUT', '/api/v1/render/volume', `{"volume":${level}}`);
const set_mute = (service, muted) => ask(service, 'PUT', '/api/v1/render/mute', `{"muted":${muted}}`);

const default_name = 'PulseAudio';  // Wine's own text
const sinks = [
  ['speakers', 'Speakers'],
  ['kitchen', 'K\u00fcche \u97f3 \u{1f50a}'],
  ['workshop', 'The "workshop" \\ it\'s loud'],
];
const sources = [['microphone', 'Microphone']];

const names_of = {
  render: [default_name, ...sinks.map(([, name]) => name)],
  capture: [default_name, ...sinks.map(([, name]) => `Monitor of ${name}`), ...sources.map(([, name]) => name)],
};
const id_forms = {
  render: /^\{0\.0\.0\.00000000\}\.\{[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\}$/,
  capture: /^\{0\.0\.1\.00000000\}\.\{[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\}$/,
};

// The ids and names of a list, in Wine's order, which is that of ids it has drawn by chance.
async function found_in(service) {
  const text = Buffer.from(body_of(await list(service)), 'latin1').toString('utf8');
  const document = JSON.parse(text);
  const pairs = (endpoints) => endpoints.map(({ id, name }) => ({ id, name }));
  const id_of = (endpoints) => endpoints.find(({ name }) => name === default_name)?.id ?? '';
  return {
    render: pairs(document.render),
    capture: pairs(document.capture),
    default_render: id_of(document.render),
    default_capture: id_of(document.capture),
  };
}

// The friendly name of a render endpoint, as Wine has put it into the registry.
async function registered_name(t, id) {
  const key = `${render_path}\\${id.slice(id.indexOf('.{') + 1)}\\Properties`;
  const name_line = /^"\{A45C254E-DF1C-4EFD-8020-67D146A850E0\},14"="(.*)"\r$/m;
  return (await blocks_below(t, key)).match(name_line)?.[1].replace(/\\(.)/g, '$1');
}

const id_named = (endpoints, wanted) => endpoints.find(({ name }) => name === wanted).id;

async function start_on_sinks(t, given = { sinks, sources }) {
  const pulse = await start_pulse(t, given);
  const service = await start_service(t, { env: pulse.env });
  return { pulse, service, found: await found_in(service) };
}

if (is_wine) {
  test('the sinks and sources of the sound server are listed', limits, async (t) => {
    const { pulse, service, found } = await start_on_sinks(t);
    for (const flow of ['render', 'capture']) {
      assert.deepEqual(found[flow].map(({ name }) => name).sort(), [...names_of[flow]].sort());
      for (const { id } of found[flow]) assert.match(id, id_forms[flow]);
      assert.equal(new Set(found[flow].map(({ id }) => id)).size, found[flow].length);
    }
    for (let round = 0; round < 10; ++round) assert.equal(await list(service), list_answer(found));
    for (const { id, name } of found.render) assert.equal(await registered_name(t, id), name);
    await service.stop();

    const next = await start_service(t, { env: pulse.env });
    const by_id = (endpoints) => [...endpoints].sort((a, b) => (a.id < b.id ? -1 : 1));
    const again = await found_in(next);
    assert.deepEqual([by_id(again.render), by_id(again.capture)], [by_id(found.render), by_id(found.capture)]);
    await next.stop();
  });

  test('each endpoint can be chosen, and the default again', limits, async (t) => {
    const { service, found } = await start_on_sinks(t);
    const now = { ...found };
    for (const id of [...found.render.map((endpoint) => endpoint.id), found.default_render]) {
      assert.equal(await choose(service, render_choice, id), answers.done);
      now.selected_render = id;
      assert.equal(await list(service), list_answer(now));
    }
    for (const id of [...found.capture.map((endpoint) => endpoint.id), found.default_capture]) {
      assert.equal(await choose(service, capture_choice, id), answers.done);
      now.selected_capture = id;
      assert.equal(await list(service), list_answer(now));
    }
    await service.stop();
  });

  test('only an endpoint of the direction with exactly this id is chosen', limits, async (t) => {
    const { service, found } = await start_on_sinks(t);
    const render = id_named(found.render, sinks[1][1]);
    const capture = id_named(found.capture, sources[0][1]);
    assert.equal(await choose(service, render_choice, render), answers.done);
    assert.equal(await choose(service, capture_choice, capture), answers.done);
    const chosen = list_answer({ ...found, selected_render: render, selected_capture: capture });
    const rows = [
      [render_choice, capture, no_such_endpoint],
      [capture_choice, render, no_such_endpoint],
      [render_choice, found.default_render.toLowerCase(), no_such_endpoint],
      [capture_choice, found.default_capture.toLowerCase(), no_such_endpoint],
      [render_choice, found.default_render.slice(found.default_render.indexOf('.{') + 1), no_such_endpoint],
      [render_choice, `${found.default_render} `, no_such_endpoint],
      [render_choice, sinks[0][1], no_such_endpoint],
      [render_choice, '', no_id],
    ];
    for (const [route, id, refusal] of rows) {
      assert.equal(await choose(service, route, id), refusal, `${route} ${id}`);
      assert.equal(await list(service), chosen);
    }
    await service.stop();
  });

  test('a sink that is gone is neither listed nor chosen', limits, async (t) => {
    const { pulse, service, found } = await start_on_sinks(t);
    await service.stop();
    await pulse.remove_sink('kitchen');
    const next = await start_service(t, { env: pulse.env });
    const gone = id_named(found.render, sinks[1][1]);
    const gone_monitor = id_named(found.capture, `Monitor of ${sinks[1][1]}`);
    const without = (endpoints, gone_id) =>
      endpoints.filter(({ id }) => id !== gone_id).map(({ name }) => name).sort();
    const left = await found_in(next);
    assert.deepEqual(left.render.map(({ name }) => name).sort(), without(found.render, gone));
    assert.deepEqual(left.capture.map(({ name }) => name).sort(), without(found.capture, gone_monitor));
    assert.equal(await choose(next, render_choice, gone), no_such_endpoint);
    assert.equal(await choose(next, capture_choice, gone_monitor), no_such_endpoint);
    assert.equal(await list(next), list_answer(left));
    await next.stop();
  });

  test('a mute is taken, and a volume is refused as Wine refuses it', limits, async (t) => {
    const { service, found } = await start_on_sinks(t);
    for (const id of [null, id_named(found.render, sinks[0][1])]) {
      if (id !== null) assert.equal(await choose(service, render_choice, id), answers.done);
      const before = await list(service);
      for (const level of [0, 0.5, 1]) assert.equal(await set_volume(service, level), no_volume);
      for (const muted of [true, true, false, false]) assert.equal(await set_mute(service, muted), answers.done);
      assert.equal(await list(service), before);
    }
    await service.stop();
  });

  test('the effect is shown as bound to one of the endpoints', limits, async (t) => {
    const { service, found } = await start_on_sinks(t);
    const id = id_named(found.render, sinks[0][1]);
    const guid = id.slice(id.indexOf('.{') + 1);
    const shows = async (bound) => {
      const render = found.render.map((endpoint) => ({ ...endpoint, bound: bound && endpoint.id === id }));
      assert.equal(await list(service), list_answer({ ...found, render }));
    };
    await shows(false);
    // Wine gives its endpoints no key for effects.
    await add_key(t, `${render_path}\\${guid}\\FxProperties`);
    await shows(false);
    await keep_keys(t, [velmora_path]);
    const act = async (action, detail) => {
      const { code, output } = await run(t, built_program('velmora_bind_endpoint'), [action, guid]);
      assert.deepEqual([code, output], [0, `status 0x00000000\ndetail ${detail}\n`]);
    };
    await act('bind', 'endpoint bound and a default-mode list was added');
    await shows(true);
    await act('unbind', 'endpoint unbound');
    await shows(false);
    await service.stop();
  });

  test('a sound server without sinks leaves the default endpoints', limits, async (t) => {
    const { service, found } = await start_on_sinks(t, {});
    assert.deepEqual(found.render.map(({ name }) => name), [default_name]);
    assert.deepEqual(found.capture.map(({ name }) => name), [default_name]);
    assert.equal(await list(service), list_answer(found));
    await service.stop();
  });

  test('without a sound server every route tells of its failure, and the service goes on', limits, async (t) => {
    const service = await start_service(t, {
      env: await use_sound_server(t, path.join(make_directory(), 'nobody')),
    });
    const failed = list_answer({ error_code: -2147467259 });
    const id = '{0.0.0.00000000}.{FD47D9CC-4218-4135-9CE2-0C195C87405B}';
    for (let round = 0; round < 2; ++round) {
      assert.equal(await list(service), failed);
      for (const route of [render_choice, capture_choice]) assert.equal(await choose(service, route, id), not_selected);
      assert.equal(await set_volume(service, 0.5), no_volume);
      assert.equal(await set_mute(service, true), no_mute);
    }
    assert.equal(await list(service), failed);
    await service.stop();
  });
}
