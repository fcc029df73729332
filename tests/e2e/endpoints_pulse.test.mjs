// The Windows program on Wine's own endpoints, which a PulseAudio of the test's own makes of sinks that play into
// nothing. Wine adds a first endpoint to each direction, its default, which follows the server's.
//
// Wine 8 has neither meters nor a list of sessions, and refuses to set a volume.
import assert from "node:assert/strict";
import path from "node:path";
import test from "node:test";

import {
  renderChoice,
  captureChoice,
  noId,
  noSuchEndpoint,
  notSelected,
  noVolume,
  noMute,
  listAnswer,
  list,
  choose,
  setVolume,
  setMute,
} from "./endpoint_routes.mjs";
import { answers, bodyOf, builtProgram, isWine, makeDirectory, run, startService } from "./harness.mjs";
import { startPulse, useSoundServer } from "./pulse.mjs";
import { addKey, blocksBelow, keepKeys, renderPath, velmoraPath } from "./registry.mjs";

const limits = { timeout: 120_000 };

const defaultName = "PulseAudio"; // Wine's own text
const sinks = [
  ["speakers", "Speakers"],
  ["kitchen", "K\u00fcche \u97f3 \u{1f50a}"],
  ["workshop", 'The "workshop" \\ it\'s loud'],
];
const sources = [["microphone", "Microphone"]];

const namesOf = {
  render: [defaultName, ...sinks.map(([, name]) => name)],
  capture: [
    defaultName,
    ...sinks.map(([, name]) => `Monitor of ${name}`),
    ...sources.map(([, name]) => name),
  ],
};
const idForms = {
  render: /^\{0\.0\.0\.00000000\}\.\{[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\}$/,
  capture: /^\{0\.0\.1\.00000000\}\.\{[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\}$/,
};

// The ids and names of a list, in Wine's order, which is that of ids it has drawn by chance.
async function foundIn(service) {
  const text = Buffer.from(bodyOf(await list(service)), "latin1").toString("utf8");
  const document = JSON.parse(text);
  const pairs = (endpoints) => endpoints.map(({ id, name }) => ({ id, name }));
  const idOf = (endpoints) => endpoints.find(({ name }) => name === defaultName)?.id ?? "";
  return {
    render: pairs(document.render),
    capture: pairs(document.capture),
    defaultRender: idOf(document.render),
    defaultCapture: idOf(document.capture),
  };
}

// The friendly name of a render endpoint, as Wine has put it into the registry.
async function registeredName(t, id) {
  const key = `${renderPath}\\${id.slice(id.indexOf(".{") + 1)}\\Properties`;
  const nameLine = /^"\{A45C254E-DF1C-4EFD-8020-67D146A850E0\},14"="(.*)"\r$/m;
  return (await blocksBelow(t, key)).match(nameLine)?.[1].replace(/\\(.)/g, "$1");
}

const idNamed = (endpoints, wanted) => endpoints.find(({ name }) => name === wanted).id;

/** @param {import("./harness.mjs").Scope} t @param {{ sinks?: string[][], sources?: string[][] }} given */
async function startOnSinks(t, given = { sinks, sources }) {
  const pulse = await startPulse(t, given);
  const service = await startService(t, { env: pulse.env });
  return { pulse, service, found: await foundIn(service) };
}

if (isWine) {
  test("the sinks and sources of the sound server are listed", limits, async (t) => {
    const { pulse, service, found } = await startOnSinks(t);
    for (const flow of ["render", "capture"]) {
      assert.deepEqual(found[flow].map(({ name }) => name).sort(), [...namesOf[flow]].sort());
      for (const { id } of found[flow]) assert.match(id, idForms[flow]);
      assert.equal(new Set(found[flow].map(({ id }) => id)).size, found[flow].length);
    }
    for (let round = 0; round < 10; ++round) assert.equal(await list(service), listAnswer(found));
    for (const { id, name } of found.render) assert.equal(await registeredName(t, id), name);
    await service.stop();

    const next = await startService(t, { env: pulse.env });
    const byId = (endpoints) => [...endpoints].sort((a, b) => (a.id < b.id ? -1 : 1));
    const again = await foundIn(next);
    assert.deepEqual([byId(again.render), byId(again.capture)], [byId(found.render), byId(found.capture)]);
  });

  test("each endpoint can be chosen, and the default again", limits, async (t) => {
    const { service, found } = await startOnSinks(t);
    /** @type {import("./harness.mjs").Devices} */
    const now = { ...found };
    for (const id of [...found.render.map((endpoint) => endpoint.id), found.defaultRender]) {
      assert.equal(await choose(service, renderChoice, id), answers.done);
      now.selectedRender = id;
      assert.equal(await list(service), listAnswer(now));
    }
    for (const id of [...found.capture.map((endpoint) => endpoint.id), found.defaultCapture]) {
      assert.equal(await choose(service, captureChoice, id), answers.done);
      now.selectedCapture = id;
      assert.equal(await list(service), listAnswer(now));
    }
  });

  test("only an endpoint of the direction with exactly this id is chosen", limits, async (t) => {
    const { service, found } = await startOnSinks(t);
    const render = idNamed(found.render, sinks[1][1]);
    const capture = idNamed(found.capture, sources[0][1]);
    assert.equal(await choose(service, renderChoice, render), answers.done);
    assert.equal(await choose(service, captureChoice, capture), answers.done);
    const chosen = listAnswer({ ...found, selectedRender: render, selectedCapture: capture });
    const rows = [
      [renderChoice, capture, noSuchEndpoint],
      [captureChoice, render, noSuchEndpoint],
      [renderChoice, found.defaultRender.toLowerCase(), noSuchEndpoint],
      [captureChoice, found.defaultCapture.toLowerCase(), noSuchEndpoint],
      [renderChoice, found.defaultRender.slice(found.defaultRender.indexOf(".{") + 1), noSuchEndpoint],
      [renderChoice, `${found.defaultRender} `, noSuchEndpoint],
      [renderChoice, sinks[0][1], noSuchEndpoint],
      [renderChoice, "", noId],
    ];
    for (const [route, id, refusal] of rows) {
      assert.equal(await choose(service, route, id), refusal, `${route} ${id}`);
      assert.equal(await list(service), chosen);
    }
  });

  test("a sink that is gone is neither listed nor chosen", limits, async (t) => {
    const { pulse, service, found } = await startOnSinks(t);
    await service.stop();
    await pulse.removeSink("kitchen");
    const next = await startService(t, { env: pulse.env });
    const gone = idNamed(found.render, sinks[1][1]);
    const goneMonitor = idNamed(found.capture, `Monitor of ${sinks[1][1]}`);
    const without = (endpoints, goneId) =>
      endpoints
        .filter(({ id }) => id !== goneId)
        .map(({ name }) => name)
        .sort();
    const left = await foundIn(next);
    assert.deepEqual(left.render.map(({ name }) => name).sort(), without(found.render, gone));
    assert.deepEqual(left.capture.map(({ name }) => name).sort(), without(found.capture, goneMonitor));
    assert.equal(await choose(next, renderChoice, gone), noSuchEndpoint);
    assert.equal(await choose(next, captureChoice, goneMonitor), noSuchEndpoint);
    assert.equal(await list(next), listAnswer(left));
  });

  test("a mute is taken, and a volume is refused as Wine refuses it", limits, async (t) => {
    const { service, found } = await startOnSinks(t);
    for (const id of [null, idNamed(found.render, sinks[0][1])]) {
      if (id !== null) assert.equal(await choose(service, renderChoice, id), answers.done);
      const before = await list(service);
      for (const level of [0, 0.5, 1]) assert.equal(await setVolume(service, level), noVolume);
      for (const muted of [true, true, false, false])
        assert.equal(await setMute(service, muted), answers.done);
      assert.equal(await list(service), before);
    }
  });

  test("the effect is shown as bound to one of the endpoints", limits, async (t) => {
    const { service, found } = await startOnSinks(t);
    const id = idNamed(found.render, sinks[0][1]);
    const guid = id.slice(id.indexOf(".{") + 1);
    const shows = async (bound) => {
      const render = found.render.map((endpoint) => ({ ...endpoint, bound: bound && endpoint.id === id }));
      assert.equal(await list(service), listAnswer({ ...found, render }));
    };
    await shows(false);
    // Wine gives its endpoints no key for effects.
    await addKey(t, `${renderPath}\\${guid}\\FxProperties`);
    await shows(false);
    await keepKeys(t, [velmoraPath]);
    const act = async (action, detail) => {
      const { code, output } = await run(t, builtProgram("velmora_bind_endpoint"), [action, guid]);
      assert.deepEqual([code, output], [0, `status 0x00000000\ndetail ${detail}\n`]);
    };
    await act("bind", "endpoint bound and a default-mode list was added");
    await shows(true);
    await act("unbind", "endpoint unbound");
    await shows(false);
  });

  test("a sound server without sinks leaves the default endpoints", limits, async (t) => {
    const { service, found } = await startOnSinks(t, {});
    assert.deepEqual(
      found.render.map(({ name }) => name),
      [defaultName],
    );
    assert.deepEqual(
      found.capture.map(({ name }) => name),
      [defaultName],
    );
    assert.equal(await list(service), listAnswer(found));
  });

  test("without a sound server every route reports it, and the service goes on", limits, async (t) => {
    const service = await startService(t, {
      env: await useSoundServer(t, path.join(makeDirectory(), "nobody")),
    });
    const failed = listAnswer({ error_code: -2147467259 });
    const id = "{0.0.0.00000000}.{FD47D9CC-4218-4135-9CE2-0C195C87405B}";
    for (let round = 0; round < 2; ++round) {
      assert.equal(await list(service), failed);
      for (const route of [renderChoice, captureChoice])
        assert.equal(await choose(service, route, id), notSelected);
      assert.equal(await setVolume(service, 0.5), noVolume);
      assert.equal(await setMute(service, true), noMute);
    }
    assert.equal(await list(service), failed);
  });
}
