// Binding with a restart of the audio service through the API, and the probes of the effect: from outside.
import assert from "node:assert/strict";
import fs from "node:fs";
import path from "node:path";
import test from "node:test";

import {
  Engine,
  algorithmLibrary,
  assertProbes,
  effectLibrary,
  engineProgram,
  installAudioService,
  numberData,
  oldAlgorithmLibrary,
  registerEffect,
  registered,
  visibleProcesses,
} from "./engine.mjs";
import {
  answerBytes,
  answers,
  builtProgram,
  isNative,
  isWine,
  jsonDocument,
  makeDirectory,
  poll,
  programPathText,
  refusalBytes,
  run,
  startService,
} from "./harness.mjs";
import {
  Machine,
  difference,
  dwordData,
  exportText,
  hexData,
  listData,
  renderPath,
  textData,
  valueEntry,
} from "./registry.mjs";

const limits = { timeout: 120_000 };

// ---- machines with services ----

const capturePath = renderPath.replace(/Render$/, "Capture");
const root = "HKEY_LOCAL_MACHINE\\";
const servicesPath = `${root}SYSTEM\\CurrentControlSet\\Services`;
const machinePath = `${root}SOFTWARE\\VelmoraStandIn`;

const guidOf = (number) => `{3c1c1e0e-5a0f-4c0c-9a45-6f0b1d0a7e${number}}`;
const [speakersGuid, phonesGuid, oddGuid, microphoneGuid, missingGuid] = [11, 12, 13, 14, 15].map(guidOf);
const [speakers, phones, odd, missing] = [speakersGuid, phonesGuid, oddGuid, missingGuid].map(
  (guid) => `{0.0.0.00000000}.${guid}`,
);
const microphone = `{0.0.1.00000000}.${microphoneGuid}`;

const effect = "{631D9145-CACF-44D7-861B-5D82ADD8C84F}";
const foreign = "{A9DFDEC6-BAEC-4E5B-AF5D-8BB09F2E9EA4}";
const mode = "{C18E2F7E-933D-4965-B7D1-1EEF228D2AF3}";
const chain = "{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},14";
const driverLists = [
  ["{d3993a3f-99c2-4402-b5ec-a92a0367664b},6", listData([mode])],
  ["{d3993a3f-99c2-4402-b5ec-a92a0367664b},12", listData([mode])],
];
const active = ["DeviceState", dwordData(1)];
const driverChain = [...driverLists, [chain, listData([foreign])]];

const endpointKeys = (key, fx = driverChain) => [
  [key, [active]],
  [`${key}\\FxProperties`, fx],
];
const endpoints = [
  ...endpointKeys(`${renderPath}\\${speakersGuid}`),
  ...endpointKeys(`${renderPath}\\${phonesGuid}`),
  ...endpointKeys(`${renderPath}\\${oddGuid}`, [[chain, textData(foreign)]]),
  ...endpointKeys(`${capturePath}\\${microphoneGuid}`),
];

// A service, what it needs, and (natively) how it behaves.
function serviceKeys(name, needs = [], behaviour = {}) {
  const values = Object.entries(behaviour).map(([value, number]) => [value, dwordData(number)]);
  return [
    [`${servicesPath}\\${name}`, needs.length === 0 ? [] : [["DependOnService", listData(needs)]]],
    ...(values.length === 0 ? [] : [[`${machinePath}\\Services\\${name}`, values]]),
  ];
}

const plainServices = [...serviceKeys("Audiosrv"), ...serviceKeys("SonicMonitor", ["Audiosrv"])];

function machineText(/** @type {any[]} */ services = plainServices, /** @type {any[]} */ more = []) {
  const defaults = [[`${machinePath}\\Audio`, [["DefaultRender", textData(speakers)]]]];
  return exportText([...endpoints, ...defaults, ...services, ...more]);
}

// Keys of the machine that refuse to be changed.
function readOnly(...keys) {
  const nameOf = (key) => key.replace(root, "").replaceAll("\\", "\\\\");
  return [[`${machinePath}\\Access`, keys.map((key) => [nameOf(key), dwordData(0x20019)])]];
}

const fxEntry = (guid, entries) =>
  valueEntry(`${renderPath}\\${guid}\\FxProperties`, chain, listData(entries));
const [driversOnly, withEffect] = [[foreign], [foreign, effect]];
const boundIn = (guid) => ({ removed: [fxEntry(guid, driversOnly)], added: [fxEntry(guid, withEffect)] });
const unboundIn = (guid) => ({ removed: [fxEntry(guid, withEffect)], added: [fxEntry(guid, driversOnly)] });
/** @typedef {{ removed: string[], added: string[] }} Changes */

/** @type {Changes} */
const unchanged = { removed: [], added: [] };

// ---- answers ----

const route = "/api/v1/render/apo";

const restarted = {
  audio_restarted: true,
  audio_restart_error: 0,
  audio_restart_detail: "audio stack restarted",
};
const notAsked = { audio_restarted: false, audio_restart_error: 0, audio_restart_detail: "" };

const win32Status = (error) => 0x80070000 | error | 0;

function failedRestart(error, detail) {
  return { audio_restarted: false, audio_restart_error: win32Status(error), audio_restart_detail: detail };
}

function done(bound, endpoint_id, detail, restart) {
  const document = { ok: true, bound, endpoint_id, detail, ...restart };
  return answerBytes(200, "OK", jsonDocument, JSON.stringify(document));
}

const bad = (message) => refusalBytes(400, "Bad Request", message);
const unavailable = (message) => refusalBytes(503, "Service Unavailable", message);

const noAttach = bad("attach must be a boolean");
const noEndpoint = bad("no render endpoint is selected");
const noId = bad("endpoint_id must be a render endpoint identifier");
const notOpened = unavailable(
  "the endpoint FxProperties key could not be opened for writing (run the control service elevated)",
);
const notRead = unavailable("the endpoint mode-effect chain could not be read");
const serviceNotOpened = "Audiosrv could not be opened (run the control service elevated)";
const stopRefused = "Audiosrv did not accept the stop request";
const startRefused = "Audiosrv did not restart";

// A service on a machine. `asks` asks the route, and demands the answer and what it changed in the machine.
async function startOn(t, text = machineText()) {
  const machine = await Machine.make(t, text);
  const service = await startService(t, { env: machine.env });
  const asks = async (body, answer, /** @type {Changes} */ changes = unchanged) => {
    const before = await machine.export();
    assert.equal(await service.ask("POST", route, body), answer, body);
    assert.deepEqual(difference(before, await machine.export()), changes, body);
  };
  return { machine, service, asks };
}

// Answers, and the changes that go with them.
/** @returns {[string, Changes]} */
const nowBound = (restart, id = speakers, guid = speakersGuid) => [
  done(true, id, "endpoint bound", restart),
  boundIn(guid),
];
/** @returns {[string, Changes]} */
const nowUnbound = (restart, id = speakers, guid = speakersGuid) => [
  done(false, id, "endpoint unbound", restart),
  unboundIn(guid),
];
const alreadyBound = (restart) => done(true, speakers, "endpoint was already bound", restart);
const notBound = (restart) => done(false, speakers, "endpoint was not bound", restart);

// ---- refusals ----

const quoted = JSON.stringify;

// Bodies with their answers. Neither changes anything.
const refusals = [
  ["", noAttach],
  ['{"attach":1}', noAttach],
  [`{"attach":"true","endpoint_id":"nobody"}`, noAttach],
  ['{"attach":false,"endpoint_id":"nobody"}', noId],
  [`{"attach":true,"endpoint_id":${quoted(`${speakers} `)}}`, noId],
  [`{"attach":true,"endpoint_id":${quoted(missing)}}`, notOpened],
  [`{"attach":false,"endpoint_id":${quoted(microphone)}}`, notOpened],
  [`{"attach":true,"endpoint_id":${quoted(odd)}}`, notRead],
  [`{"attach":false,"endpoint_id":${quoted(odd)}}`, notRead],
];

test("what is refused changes nothing, each thing with its own answer", limits, async (t) => {
  const { machine, service } = await startOn(t);
  const before = await machine.export();
  for (const [body, answer] of refusals) assert.equal(await service.ask("POST", route, body), answer, body);
  assert.equal(await machine.export(), before);
});

test("the route takes only POST, with the token", limits, async (t) => {
  const { machine, service } = await startOn(t);
  const body = `{"attach":true,"endpoint_id":${quoted(speakers)}}`;
  const before = await machine.export();
  for (const method of ["GET", "PUT", "DELETE", "PATCH"]) {
    assert.equal(await service.ask(method, route, body), answers.notFound, method);
  }
  for (const target of [`${route}/`, `${route}s`]) {
    assert.equal(await service.ask("POST", target, body), answers.notFound, target);
  }
  await service.expectFor(answers.noToken, service.requestBytes({ method: "POST", target: route, body }));
  await service.expectFor(
    answers.notLocal,
    service.apiBytes("POST", route, body, [["Origin", "http://example.com"]]),
  );
  assert.equal(await machine.export(), before);
});

// ---- binding without a restart ----

test("an endpoint is bound and unbound without a restart", limits, async (t) => {
  const { machine, asks } = await startOn(t);
  const before = await machine.export();
  const body = (attach, id) => `{"attach":${attach},"endpoint_id":${quoted(id)},"restart_audio":false}`;
  await asks(body(false, speakers), notBound(notAsked));
  await asks(body(true, speakers), ...nowBound(notAsked));
  await asks(body(true, speakers), alreadyBound(notAsked));
  await asks(body(false, speakers), ...nowUnbound(notAsked));
  assert.equal(await machine.export(), before);
  // The answer repeats the id as it was given, though only its GUID counts.
  for (const id of [phonesGuid, `"\\.${phonesGuid}`, `{0.0.0.00000000}.${phonesGuid.toUpperCase()}`]) {
    await asks(body(true, id), ...nowBound(notAsked, id, phonesGuid));
    await asks(body(false, id), ...nowUnbound(notAsked, id, phonesGuid));
  }
  assert.equal(await machine.export(), before);
});

// ---- the restart, natively: services of the machine, as they behave there ----

const attachBody = `{"attach":true,"endpoint_id":${JSON.stringify(speakers)}}`;

if (isNative) {
  test("a restart follows each bind and unbind, also one with nothing to do", limits, async (t) => {
    const { machine, asks } = await startOn(t);
    const before = await machine.export();
    const detachBody = attachBody.replace("true", "false");
    await asks(attachBody, ...nowBound(restarted));
    await asks(attachBody, alreadyBound(restarted));
    await asks(detachBody, ...nowUnbound(restarted));
    await asks(detachBody, notBound(restarted));
    assert.equal(await machine.export(), before);
  });

  test("only false itself leaves the restart out", limits, async (t) => {
    const { asks } = await startOn(t);
    const rows = [
      ["", restarted],
      [',"restart_audio":"false"', restarted],
      [',"restart_audio" : false', notAsked],
    ];
    for (const [field, restart] of rows) {
      const body = `{"attach":false,"endpoint_id":${quoted(speakers)}${field}}`;
      await asks(body, notBound(restart));
    }
  });

  test("the endpoint is the given one, else the chosen one, else the default", limits, async (t) => {
    const { machine, service, asks } = await startOn(t);
    const bind = (endpoint_id = "") => `{"attach":true${endpoint_id},"restart_audio":false}`;
    const bound = (id) => done(true, id, "endpoint bound", notAsked);
    const again = (id) => done(true, id, "endpoint was already bound", notAsked);
    await asks(bind(), bound(speakers), boundIn(speakersGuid));
    await asks(bind(',"endpoint_id":""'), again(speakers));
    await asks(bind(',"endpoint_id":7'), again(speakers));
    const chosen = await service.ask("PUT", "/api/v1/devices/render", `{"endpoint_id":${quoted(phones)}}`);
    assert.ok(chosen.startsWith("HTTP/1.1 200 OK\r\n"), chosen);
    await asks(bind(), bound(phones), boundIn(phonesGuid));
    await asks(bind(',"endpoint_id":""'), again(phones));
    await asks(bind(`,"endpoint_id":${quoted(speakers)}`), again(speakers));
    // One that goes away stays chosen.
    fs.writeFileSync(machine.file, (await machine.export()).replaceAll(phonesGuid, guidOf(16)));
    await asks(bind(), notOpened);
  });

  test("without any endpoint there is none to bind", limits, async (t) => {
    const { asks } = await startOn(t, exportText(plainServices));
    for (const body of ['{"attach":true}', '{"attach":true,"endpoint_id":5}']) await asks(body, noEndpoint);
    await asks('{"attach":"true","endpoint_id":""}', noAttach);
    await asks(`{"attach":true,"endpoint_id":${quoted(speakers)}}`, notOpened);
  });

  const audio = (behaviour = {}) => serviceKeys("Audiosrv", [], behaviour);
  const lookOnly = (name) => readOnly(`${servicesPath}\\${name}`);

  // How the services behave, and what becomes of the restart. The endpoint is bound in each row.
  /** @type {Record<string, any[]>} */
  const rows = {
    "a service that is not installed": [[], failedRestart(1060, serviceNotOpened)],
    "a service that may only be looked at": [
      plainServices,
      failedRestart(5, serviceNotOpened),
      lookOnly("Audiosrv"),
    ],
    "a service that refuses to stop": [audio({ StopError: 1052 }), failedRestart(1052, stopRefused)],
    "a service that refuses to start": [audio({ StartError: 1058 }), failedRestart(1058, startRefused)],
    "a stopped service": [audio({ State: 1 }), restarted],
    "a stopped service that refuses to start": [
      audio({ State: 1, StartError: 1069 }),
      failedRestart(1069, startRefused),
    ],
    "a dependent that may only be looked at runs on, and so does the service": [
      plainServices,
      failedRestart(1051, stopRefused),
      lookOnly("SonicMonitor"),
    ],
    "a dependent that refuses to start": [
      [...audio(), ...serviceKeys("SonicMonitor", ["Audiosrv"], { StartError: 1058 })],
      restarted,
    ],
    "dependents of dependents": [
      [...plainServices, ...serviceKeys("SonicPanel", ["SonicMonitor"])],
      restarted,
    ],
  };
  for (const [what, [services, restart, more = []]] of Object.entries(rows)) {
    test(`restart: ${what}`, limits, async (t) => {
      const { asks } = await startOn(t, machineText(services, more));
      await asks(attachBody, ...nowBound(restart));
      // The binding stays, and the service answers the next request.
      await asks(attachBody, alreadyBound(restart));
    });
  }

  test("the answer waits for the stops and the start of the audio service", limits, async (t) => {
    const stopMs = 150;
    const startMs = 120;
    const dependentStopMs = 110;
    const services = [
      ...serviceKeys("Audiosrv", [], { StopMs: stopMs, StartMs: startMs }),
      // How long a dependent starts is its own business.
      ...serviceKeys("SonicMonitor", ["Audiosrv"], { StopMs: dependentStopMs, StartMs: 0xffffffff }),
    ];
    const { asks } = await startOn(t, machineText(services));
    const begin = process.hrtime.bigint();
    await asks(attachBody, ...nowBound(restarted));
    const waitedMs = Number(process.hrtime.bigint() - begin) / 1e6;
    assert.ok(waitedMs >= stopMs + startMs + dependentStopMs, `${waitedMs} ms`);
  });

  test("where the bind is refused, the service runs on", limits, async (t) => {
    // A service that was stopped here could not be started again.
    const cannotStart = serviceKeys("Audiosrv", [], { StartError: 1058 });
    const { machine, asks } = await startOn(t, machineText(cannotStart, readOnly(renderPath)));
    await asks(attachBody, notOpened);
    await asks(attachBody.replace("true", "false"), notOpened);
    // A stopped service would be started now, and only a running one can refuse to stop.
    fs.writeFileSync(machine.file, machineText(serviceKeys("Audiosrv", [], { StopError: 1052 })));
    const restart = failedRestart(1052, stopRefused);
    await asks(attachBody, ...nowBound(restart));
  });
}

// ---- the restart under Wine: a service of its own that keeps a log ----

if (isWine) {
  test("without an audio service the endpoint is bound all the same", limits, async (t) => {
    const { asks } = await startOn(t);
    const restart = failedRestart(1060, serviceNotOpened);
    await asks(attachBody, ...nowBound(restart));
    await asks(attachBody, alreadyBound(restart));
  });

  test("the audio service logs that it was stopped and started, once for each restart", limits, async (t) => {
    const [stopMs, startMs] = [150, 120];
    const logged = await installAudioService(t, ["--stop-ms", String(stopMs), "--start-ms", String(startMs)]);
    const { service, asks } = await startOn(t);
    // It has not been started yet.
    await asks(attachBody, ...nowBound(restarted));
    assert.equal(logged().words, "start running");
    await asks(attachBody, alreadyBound(restarted));
    const { words, times } = logged();
    assert.equal(words, "stop stopped start running");
    assert.ok(times[1] - times[0] >= stopMs && times[3] - times[2] >= startMs, `${times}`);
    // Neither what is refused nor a bind without restart reaches the service.
    const quiet = `{"attach":false,"endpoint_id":${quoted(speakers)},"restart_audio":false}`;
    await asks(quiet, ...nowUnbound(notAsked));
    for (const [body, answer] of refusals) assert.equal(await service.ask("POST", route, body), answer, body);
    assert.equal(logged().words, "");
  });

  test("a service on its way takes no stop request, and a disabled one is not started", limits, async (t) => {
    const { service, asks } = await startOn(t);
    const bind = async (restart) => service.expect(alreadyBound(restart), "POST", route, attachBody);
    const quiet = attachBody.replace('}"}', '}","restart_audio":false}');
    await asks(quiet, ...nowBound(notAsked));
    let logged = await installAudioService(t, ["--start-ms", "forever"]);
    const started = await run(t, "sc", ["start", "Audiosrv"]);
    assert.equal(started.code, 0, started.output);
    await poll("the start", () => (logged.text().includes("start") ? true : undefined));
    // Wine's word for it; Windows says 1061.
    await bind(failedRestart(1052, stopRefused));
    assert.equal(logged().words, "start");
    logged = await installAudioService(t, ["--disabled"]);
    await bind(failedRestart(1058, startRefused));
    assert.equal(logged().words, "");
  });
}

// ---- whether the effect is installed ----

// A folder with what `files` says: a name leads to a file of some bytes, or to a folder when it ends in a slash.
function folderWith(files, name = "Velmora") {
  const folder = makeDirectory(name);
  fs.chmodSync(path.dirname(folder), 0o755);
  for (const file of files) {
    if (file.endsWith("/")) fs.mkdirSync(path.join(folder, file));
    else fs.writeFileSync(path.join(folder, file), "some bytes");
  }
  return folder;
}

const apoName = "velmora_windows_apo.dll";
const allFiles = [apoName, "fse.dll", "model_weights.bin"];
const found = (effect, algorithm) => ({
  ...{ clsid_registered: true, apo_dll_present: effect, algorithm_present: algorithm },
});

// What lies in the folder, and what is found of it.
/** @type {any[][]} */
const installations = [
  ["all of it", allFiles, found(true, true)],
  ["no weights", [apoName, "fse.dll"], found(true, false)],
  ["no algorithm", [apoName, "model_weights.bin"], found(true, false)],
  ["an algorithm that is a folder", [apoName, "fse.dll/", "model_weights.bin"], found(true, false)],
  ["weights that are a folder", [apoName, "fse.dll", "model_weights.bin/"], found(true, false)],
  ["the effect alone", [apoName], found(true, false)],
  ["no effect", ["fse.dll", "model_weights.bin"], found(false, true)],
  ["an effect that is a folder", [`${apoName}/`, "fse.dll", "model_weights.bin"], found(false, true)],
  ["nothing", [], found(false, false)],
];

test("the files at the registered path decide what is installed", limits, async (t) => {
  const seen = visibleProcesses();
  for (const [what, files, state] of installations) {
    const file = path.join(folderWith(files), apoName);
    await t.test(what, async (row) => {
      const env = { ...seen, ...(await registerEffect(row, { effect: registered(file) })) };
      await assertProbes(row, env, { ...state, apo_dll_path: programPathText(file) });
    });
  }
  await t.test("a path beyond ASCII", async (row) => {
    const file = path.join(folderWith(allFiles, "Prüfung 試"), apoName);
    const env = { ...seen, ...(await registerEffect(row, { effect: registered(file) })) };
    const shown = programPathText(file).replace(/[^ -~]/g, "?");
    await assertProbes(row, env, { ...found(true, true), apo_dll_path: shown });
  });
});

test("what is registered counts by its type and its value", limits, async (t) => {
  const seen = visibleProcesses();
  const file = path.join(folderWith(allFiles), apoName);
  const shown = { ...found(true, true), apo_dll_path: programPathText(file) };
  const text = Buffer.from(`${programPathText(file)}\0`, "utf16le");
  const tooLong = path.join(path.dirname(file), "a".repeat(260));
  const disabled = { protected_audio_dg_disabled: true };
  /** @type {any[][]} */
  const rows = [
    ["nothing", {}, {}],
    ["protection off, without an effect", { audio: numberData(1) }, disabled],
    [
      "protection off, with an effect",
      { audio: numberData(1), effect: registered(file) },
      { ...shown, ...disabled },
    ],
    ["2 as the protection", { audio: numberData(2), effect: registered(file) }, shown],
    ["0 as the protection", { audio: numberData(0) }, {}],
    ["a text as the protection", { audio: textData("1") }, {}],
    ["bytes as the effect", { effect: hexData(3, text), audio: numberData(1) }, disabled],
    ["a list as the effect", { effect: hexData(7, Buffer.concat([text, Buffer.alloc(2)])) }, {}],
    ["a number as the effect", { effect: numberData(1) }, {}],
    ["a path of more than 259 characters", { effect: registered(tooLong) }, {}],
  ];
  for (const [what, registration, state] of rows) {
    await t.test(what, async (row) => {
      await assertProbes(row, { ...seen, ...(await registerEffect(row, registration)) }, state);
    });
  }
});

// ---- what the engine has loaded ----

const loaded = (engine, state) => ({
  running: true,
  process_id: engine.process_id,
  program: programPathText(engine.program),
  ...state,
});
const effectLoaded = (library = effectLibrary) => ({
  apo_loaded: true,
  apo_module_path: programPathText(library),
});
const algorithm_loaded = { algorithm_loaded: true };

test("the engine is seen with what it has loaded, for as long as it runs", limits, async (t) => {
  const env = await registerEffect(t, {});
  await assertProbes(t, { ...env, ...visibleProcesses(process.pid) }, {});
  const engine = await Engine.start(t);
  const seen = { ...env, ...visibleProcesses(process.pid, engine.process_id) };
  const sees = (state) => assertProbes(t, seen, loaded(engine, state));
  await sees({});
  await engine.load(effectLibrary);
  await sees(effectLoaded());
  await engine.load(algorithmLibrary);
  await sees({ ...effectLoaded(), ...algorithm_loaded });
  await engine.unload(effectLibrary);
  await sees(algorithm_loaded);
  await engine.load(oldAlgorithmLibrary);
  await engine.unload(algorithmLibrary);
  await sees(algorithm_loaded);
  await engine.unload(oldAlgorithmLibrary);
  await sees({});
  await engine.load(effectLibrary);
  await sees(effectLoaded());
  await engine.stop();
  await assertProbes(t, seen, {});
});

test("names match in any case, and whole", limits, async (t) => {
  const env = await registerEffect(t, {});
  const copy = (file, name) => {
    const target = path.join(makeDirectory(), name);
    fs.copyFileSync(file, target);
    fs.chmodSync(target, 0o755);
    return target;
  };
  const shouted = copy(effectLibrary, "VELMORA_Windows_APO.DLL");
  const neighbours = [copy(effectLibrary, "velmora_windows_apo2.dll"), copy(algorithmLibrary, "fse.dll.dll")];
  const libraries = [shouted, copy(algorithmLibrary, "FSE.dll"), ...neighbours];
  const engine = await Engine.start(t, libraries, copy(engineProgram, "AudioDG.EXE"));
  const seen = { ...env, ...visibleProcesses(engine.process_id) };
  await assertProbes(t, seen, loaded(engine, { ...effectLoaded(shouted), ...algorithm_loaded }));
  await engine.unload(libraries[0]);
  await engine.unload(libraries[1]);
  await assertProbes(t, seen, loaded(engine, {}));
  await engine.stop();

  const stranger = await Engine.start(t, [effectLibrary], copy(engineProgram, "audiodg2.exe"));
  await assertProbes(t, { ...env, ...visibleProcesses(stranger.process_id) }, {});
  await stranger.stop();
});

test("a loaded effect whose path is beyond ASCII is found", limits, async (t) => {
  const env = await registerEffect(t, {});
  const library = path.join(makeDirectory("Prüfung 試"), apoName);
  fs.copyFileSync(effectLibrary, library);
  const engine = await Engine.start(t, [library]);
  const shown = programPathText(library).replace(/[^ -~]/g, "?");
  const seen = { ...env, ...visibleProcesses(engine.process_id) };
  await assertProbes(t, seen, loaded(engine, { apo_loaded: true, apo_module_path: shown }));
  await engine.stop();
});

if (isNative) {
  test("an engine that denies access is reported as running, its modules unknown", limits, async (t) => {
    const nobody = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", "--bounding-set=-all"];
    const engine = await Engine.start(t, [effectLibrary, algorithmLibrary]);
    const env = await registerEffect(t, {});
    fs.chmodSync(path.dirname(env.VELMORA_MACHINE), 0o755);
    const seen = { ...env, ...visibleProcesses(engine.process_id) };
    const unknown = { elevated: false, error_code: win32Status(5), program: "" };
    await assertProbes(t, seen, loaded(engine, unknown), { wrapped: nobody });
    await assertProbes(t, seen, loaded(engine, { ...effectLoaded(), ...algorithm_loaded }));
    await engine.stop();
  });

  test("processes that cannot be listed are an error, and no engine", limits, async (t) => {
    const env = await registerEffect(t, {});
    const missingRoot = path.join(makeDirectory(), "proc");
    await assertProbes(t, { ...env, VELMORA_PROC: missingRoot }, { error_code: win32Status(31) });
  });

  test("links count for what they lead to", limits, async (t) => {
    const folder = folderWith(allFiles);
    const linked = makeDirectory();
    for (const file of allFiles) fs.symlinkSync(path.join(folder, file), path.join(linked, file));
    const file = path.join(linked, apoName);
    const env = { ...visibleProcesses(), ...(await registerEffect(t, { effect: registered(file) })) };
    await assertProbes(t, env, { ...found(true, true), apo_dll_path: file });
    fs.rmSync(path.join(folder, "model_weights.bin"));
    await assertProbes(t, env, { ...found(true, false), apo_dll_path: file });
  });

  test("the machine's paths lead below the folder of the drives", limits, async (t) => {
    const drives = folderWith([], "drives");
    const folder = path.join(drives, "c/Program Files/Velmora");
    fs.mkdirSync(folder, { recursive: true });
    for (const file of allFiles) fs.writeFileSync(path.join(folder, file), "");
    const env = { ...visibleProcesses(), VELMORA_DRIVES: drives, VELMORA_MACHINE: "" };
    const state = { ...found(true, true), protected_audio_dg_disabled: true };
    await assertProbes(t, env, { ...state, apo_dll_path: `C:\\Program Files\\Velmora\\${apoName}` });
  });
}

test("the tool takes no arguments", limits, async (t) => {
  const { code, output, errors } = await run(t, builtProgram("velmora_print_engine"), ["look"]);
  assert.deepEqual([code, output, errors], [2, "", "Usage: velmora_print_engine\n"]);
});
