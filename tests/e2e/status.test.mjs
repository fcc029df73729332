// The status document from outside: its members, and that each shows what is so. That it is asked for changes nothing.
//
// A closed bridge cannot be tested from outside: a service without one does not start. The unit tests do it.
import assert from "node:assert/strict";
import fs from "node:fs";
import path from "node:path";
import test from "node:test";

import {
  answerBytes,
  answers,
  bodyOf,
  buildDirectory,
  creatingService,
  isNative,
  isWine,
  jsonDocument,
  makeDirectory,
  noSession,
  readRecord,
  run,
  startEffect,
  startService,
  uniqueMappingName,
  words,
} from "./harness.mjs";
import { quietSystem } from "./quiet_system.mjs";
import { Machine, dwordData, exportText, keepKeys, listData, renderPath, textData } from "./registry.mjs";

const limits = { timeout: 120_000 };
const quiet = quietSystem();
const status = "/api/v1/status";
const footstep = "/api/v1/render/effects/footstep";
const algorithm = "/api/v1/render/effects/algorithm";

const effect = "{631D9145-CACF-44D7-861B-5D82ADD8C84F}";
const invalidArgument = -2147024809;
const notFound = -2147023728;
const missingFile = -2147024894;
const unspecifiedFailure = -2147467259;
const pending = -2147483638;

// ---- the document ----

// Every member in its order, with its type: bool, text, texts, float, and whole numbers by their sign and bits.
const members = (text) =>
  Object.fromEntries(
    text.raw[0]
      .trim()
      .split(/\s+/)
      .map((member) => member.split(":")),
  );
const form = {
  render: members`available:bool volume:float muted:bool error_code:i32`,
  footstep: members`
    bypass:bool bypass_all:bool enhance_strength:float output_trim_db:float mask_time_alpha:float
    mask_frequency_smooth:i32 limiter_enabled:bool limiter_ceiling_db:float stereo_link:i32
  `,
  session: members`
    account:text signed_in:bool usage_seconds:i64 signed_in_unix:i64 primary_machine_id:text primary_known:bool
    public_id:text referral_open:bool referrer:text invite_url:text
  `,
  versions: members`app:text algorithm:text`,
  control_bridge: "text",
  control_bridge_available: "bool",
  apo_diagnostics: members`
    available:bool initialize_attempt_count:u64 initialize_runtime_count:u32 initialize_discovery_count:u32
    initialize_count:u64 lock_count:u64 initialize_data_size:u32 initialize_declared_size:u32
    initialize_structure:u32 initialize_processing_mode:u32 initialize_for_discovery_only:bool
    initialize_stage:u32 initialize_hresult:i32 format_negotiation_count:u64 input_format_negotiation_count:u32
    output_format_negotiation_count:u32 get_effects_list_count:u32 get_controllable_effects_list_count:u32
    get_latency_count:u32 get_input_channel_count_count:u32 last_effect_count:u32
    last_controllable_effect_count:u32 last_latency_nonzero:bool last_input_channel_count:u32
    get_effects_list_succeeded:bool get_controllable_effects_list_succeeded:bool get_latency_succeeded:bool
    get_input_channel_count_succeeded:bool lock_attempt_count:u64 lock_stage:u32 lock_hresult:i32
    lock_input_sample_rate:u32 lock_input_channels:u32 lock_input_valid_bits:u32 lock_input_container_bytes:u32
    lock_input_format_type:u32 lock_output_sample_rate:u32 lock_output_channels:u32 lock_output_valid_bits:u32
    lock_output_container_bytes:u32 lock_output_format_type:u32 sample_rate:u32 channels:u32
    algorithm_requested:bool pipeline_mode:u32 last_algorithm_error:i32 applied_valid:bool applied_bypass:bool
    applied_bypass_all:bool applied_strength:float processing_gain_valid:bool processing_gain_db:float
    processing_block_count:u32 initialized_mode_mask:u32 locked_mode_mask:u32 processed_mode_mask:u32
    total_processed_blocks:u64 capture_reported:bool capture_state:u32 capture_seconds:u32
    capture_detail_code:i32
  `,
  apo_host: members`
    elevated:bool clsid_registered:bool protected_audio_dg_disabled:bool apo_dll_present:bool
    algorithm_present:bool apo_dll_path:text render_clsid:text
  `,
  audio_engine: members`
    running:bool process_id:u32 apo_loaded:bool algorithm_loaded:bool apo_module_path:text error_code:i32
  `,
  apo_binding: members`endpoint_id:text bound:bool fx_key_present:bool error_code:i32 chain:texts`,
};

const wholeNumberForm = /^(0|-?[1-9][0-9]*)$/;
const wholeBetween = (low, high) => (text) =>
  wholeNumberForm.test(text) && BigInt(text) >= low && BigInt(text) <= high;

// What each type's text may be.
const textForm = /^"(?:[\x20\x21\x23-\x5b\x5d-\x7e\x80-\xff]|\\["\\bfnrt]|\\u00[01][0-9a-f])*"$/;
const isOfType = {
  bool: (text) => text === "true" || text === "false",
  text: (text) => textForm.test(text),
  texts: (text) =>
    text === "[]" ||
    text
      .slice(1, -1)
      .split(",")
      .every((entry) => textForm.test(entry)),
  float: (text) =>
    /^-?[0-9]+(\.[0-9]+)?(e[+-][0-9]{2})?$/.test(text) && text.replace(/e.*|\D|^-?0\.0*/g, "").length <= 7,
  i32: wholeBetween(-(2n ** 31n), 2n ** 31n - 1n),
  u32: wholeBetween(0n, 2n ** 32n - 1n),
  i64: wholeBetween(-(2n ** 63n), 2n ** 63n - 1n),
  u64: wholeBetween(0n, 2n ** 64n - 1n),
};

// The text of each member of an object without blanks, in its order. No string of ours holds what looks like a member.
function membersOf(text) {
  assert.ok(text.startsWith("{") && text.endsWith("}"), text);
  const members = [];
  let depth = 0;
  let begin = 1;
  let inString = false;
  for (let at = 1; at < text.length; ++at) {
    const char = text[at];
    if (inString) {
      if (char === "\\") ++at;
      else if (char === '"') inString = false;
      continue;
    }
    if (char === '"') inString = true;
    if ("{[".includes(char)) ++depth;
    if ((char === "," && depth === 0) || at === text.length - 1) {
      const [, key, value] =
        /^"([a-z_]+)":([^]*)$/.exec(text.slice(begin, at)) ?? assert.fail(text.slice(begin, at));
      members.push([key, value]);
      begin = at + 1;
    }
    if ("}]".includes(char)) --depth;
  }
  return members;
}

// Holds the order of the members and the type of each.
function assertForm(text, wanted = form) {
  const found = membersOf(text);
  assert.deepEqual(Object.keys(wanted), Object.keys(Object.fromEntries(found)));
  assert.equal(found.length, Object.keys(wanted).length, "no member comes twice");
  for (const [key, value] of found) {
    const type = wanted[key];
    if (typeof type === "object") assertForm(value, type);
    else assert.ok(isOfType[type](value), `${key} is ${type}: ${value}`);
  }
}

async function statusText(service) {
  const answer = await service.ask("GET", status);
  const text = bodyOf(answer);
  assert.equal(answer, answerBytes(200, "OK", jsonDocument, text));
  return text;
}

async function readStatus(service) {
  const text = await statusText(service);
  assertForm(text);
  return JSON.parse(text);
}

// A member as it is in the text, whether that is JSON or not.
function memberText(text, object, key) {
  const find = (members, wanted) => membersOf(members).find(([name]) => name === wanted)?.[1] ?? "";
  return find(find(text, object), key);
}

// ---- expected values ----

const values = (text) =>
  Object.fromEntries(Object.entries(members(text)).map(([key, value]) => [key, JSON.parse(value)]));

const newFootstep = values`
  bypass:true bypass_all:false enhance_strength:0 output_trim_db:0 mask_time_alpha:0 mask_frequency_smooth:0
  limiter_enabled:true limiter_ceiling_db:-1 stereo_link:1
`;

// Before the effect has reported anything, and with these differences behind it.
function diagnostics(differences = {}) {
  const zero = (type) => (type === "bool" ? false : 0);
  const entries = Object.entries(form.apo_diagnostics).map(([key, type]) => [key, zero(type)]);
  for (const key of Object.keys(differences)) assert.ok(key in form.apo_diagnostics, key);
  return { ...Object.fromEntries(entries), available: true, ...differences };
}

// The parts of a life, as the test effect plays it.
const discovered = values`
  initialize_attempt_count:1 initialize_discovery_count:1 initialize_count:1 initialize_data_size:96
  initialize_declared_size:96 initialize_structure:4 initialize_processing_mode:1
  initialize_for_discovery_only:true initialize_stage:6
`;
const formats = values`
  lock_input_sample_rate:48000 lock_input_channels:2 lock_input_valid_bits:24 lock_input_container_bytes:4
  lock_input_format_type:1 lock_output_sample_rate:48000 lock_output_channels:2 lock_output_valid_bits:32
  lock_output_container_bytes:4 lock_output_format_type:3
`;
const negotiations = values`
  format_negotiation_count:2 input_format_negotiation_count:1 output_format_negotiation_count:1 lock_stage:11
`;
const asked = values`
  get_effects_list_count:1 get_controllable_effects_list_count:1 get_latency_count:1
  get_input_channel_count_count:1
`;
const results = values`
  last_effect_count:1 last_controllable_effect_count:1 last_latency_nonzero:true last_input_channel_count:2
  get_effects_list_succeeded:true get_controllable_effects_list_succeeded:true get_latency_succeeded:true
  get_input_channel_count_succeeded:true
`;
const initialized = values`
  initialize_attempt_count:2 initialize_runtime_count:1 initialize_count:2 initialize_for_discovery_only:false
  initialize_stage:6 initialized_mode_mask:2
`;
const locked = values`
  lock_attempt_count:1 lock_stage:8 lock_count:1 sample_rate:48000 channels:2 algorithm_requested:true
  pipeline_mode:2 locked_mode_mask:2
`;
const processedByThree = values`
  applied_valid:true applied_bypass:true processing_gain_valid:true processing_gain_db:2.5
  processing_block_count:30 processed_mode_mask:2 total_processed_blocks:90
`;
const startedLife = { ...discovered, ...negotiations, ...formats, ...asked, ...results, ...initialized };
const wholeLife = { ...startedLife, ...locked, ...processedByThree };

// ---- machines of the tests' own ----

const guid = "{0000e77f-c0de-4a4d-9f3b-2f8f4d3f00a1}";
const otherGuid = "{0000e780-c0de-4a4d-9f3b-2f8f4d3f00a1}";
const idOf = (endpointGuid) => `{0.0.0.00000000}.${endpointGuid}`;
const ownPath = "HKEY_LOCAL_MACHINE\\SOFTWARE\\VelmoraStandIn\\Audio";
const classPath = `HKEY_LOCAL_MACHINE\\SOFTWARE\\Classes\\CLSID\\${effect}`;
const serverPath = `${classPath}\\InprocServer32`;
const protectionPath = "HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Audio";
const chainValue = "{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},14";
const driverEffect = "{9063CBD4-3561-449D-8011-E21BBB69B9DB}";

function renderKeys(endpointGuid, /** @type {any} */ { state = 1, fx = [], volume, muted } = {}) {
  const own = [];
  if (volume !== undefined) own.push(["Volume", textData(volume)]);
  if (muted !== undefined) own.push(["Muted", dwordData(muted)]);
  const keys = [[`${renderPath}\\${endpointGuid}`, [["DeviceState", dwordData(state)]]]];
  if (fx) keys.push([`${renderPath}\\${endpointGuid}\\FxProperties`, fx]);
  if (own.length > 0) keys.push([`${ownPath}\\${idOf(endpointGuid)}`, own]);
  return keys;
}

async function startOn(t, keys, env = {}) {
  const machine = await Machine.make(t, exportText(keys));
  const service = await startService(t, { env: { ...quiet(), ...machine.env, ...env } });
  return { machine, service };
}

// ---- the form and the values ----

test("a new service shows a document of all members in their order", limits, async (t) => {
  const service = await startService(t, { env: quiet() });
  const document = await readStatus(service);
  assert.deepEqual(document.footstep, newFootstep);
  assert.deepEqual(document.session, noSession);
  assert.deepEqual(document.versions, { app: "1.2.0", algorithm: "not found" });
  assert.equal(document.control_bridge, "shared_memory_v8");
  assert.equal(document.control_bridge_available, true);
  assert.deepEqual(document.apo_diagnostics, diagnostics());
  assert.equal(document.apo_host.render_clsid, effect);
  const engine = { running: false, process_id: 0, apo_loaded: false, algorithm_loaded: false };
  assert.deepEqual(document.audio_engine, { ...engine, apo_module_path: "", error_code: 0 });
  if (isNative) assert.equal(document.apo_host.elevated, process.getuid?.() === 0);
});

test("other methods and paths lead nowhere, and without the token nothing is shown", limits, async (t) => {
  const service = await startService(t, { env: quiet() });
  for (const method of ["POST", "HEAD", "get"]) {
    await service.expect(answers.notFound, method, status);
  }
  for (const target of [`${status}/`, "/api/v1/Status", "/api/v2/status"]) {
    await service.expect(answers.notFound, "GET", target);
  }
  await service.expectFor(answers.noToken, service.requestBytes({ target: status }));
  await service.expect(await service.ask("GET", status), "GET", `${status}?detail=none`);
});

// ---- the effect's life ----

async function startWithLife(t, more) {
  const service = await startService(t, { env: quiet() });
  const effect = await startEffect(t, service.mapping, ["--life", ...more], "mapping opened");
  await effect.waitForLine("life finished");
  return { service, effect };
}

const shortLife = ["--life-blocks", "30", "--life-block-ms", "0"];
const lifeOfThree = [...shortLife, "--threads", "3"];
const reported = (effect, from = 0) =>
  effect.until("its report", () => effect.output.slice(from).match(/^applied .*\n/m) ?? undefined);

test("a life shows in every field", limits, async (t) => {
  /** @type {any[][]} */
  const writers = [
    ["the test effect's writers", []],
    ["the shared writers", ["--through-shared-writers"]],
  ];
  const records = [];
  for (const [what, more] of writers) {
    await t.test(what, async (row) => {
      const { service, effect } = await startWithLife(row, [...lifeOfThree, ...more]);
      await effect.waitForLine("applied word=0x8000000100000000 bypass=true bypass_all=false strength=0");
      assert.deepEqual((await readStatus(service)).apo_diagnostics, diagnostics(wholeLife));
      records.push(await readRecord(row, service.mapping));
      await effect.stop();
      assert.deepEqual(
        (await readStatus(service)).apo_diagnostics,
        diagnostics(wholeLife),
        "it outlives the effect",
      );
    });
  }
  assert.deepEqual(records[0], records[1], "both definitions of the words leave the same bytes");
});

test("trouble in a life shows where it stopped", limits, async (t) => {
  const notInitialized = { initialize_count: 1, initialize_stage: 4, initialized_mode_mask: 0 };
  const zeroed = (fields) => Object.fromEntries(Object.keys(fields).map((key) => [key, diagnostics()[key]]));
  const notLocked = { ...zeroed(formats), lock_attempt_count: 1, lock_stage: 2, lock_hresult: -2004287480 };
  const rows = {
    initialize: { ...startedLife, ...notInitialized, initialize_hresult: -2147024882 },
    hang: { ...startedLife, ...notInitialized, initialize_hresult: pending },
    lock: { ...startedLife, ...notLocked },
    query: { ...wholeLife, ...zeroed(results) },
  };
  for (const [fault, differences] of Object.entries(rows)) {
    await t.test(fault, async (row) => {
      const records = [];
      for (const more of [[], ["--through-shared-writers"]]) {
        // Under Wine a start is dear, and which writers report makes no difference to the service.
        if (isWine && more.length > 0) continue;
        const { service, effect } = await startWithLife(row, [
          ...lifeOfThree,
          "--life-fault",
          fault,
          ...more,
        ]);
        if (fault === "query") await reported(effect);
        assert.deepEqual((await readStatus(service)).apo_diagnostics, diagnostics(differences));
        records.push(await readRecord(row, service.mapping));
        await effect.stop();
        await service.stop();
      }
      if (isNative) assert.deepEqual(records[0], records[1], "both writers leave the same bytes");
    });
  }
});

test("no report of several instances is lost", limits, async (t) => {
  const service = await startService(t, { env: quiet() });
  const more = words`
    --life --life-blocks 500 --life-block-ms 0 --instances 4 --threads 3
  `;
  const effects = [];
  for (const writer of [[], ["--through-shared-writers"], []]) {
    effects.push(await startEffect(t, service.mapping, [...more, ...writer], "mapping opened"));
  }
  for (const effect of effects) await effect.waitForLine("life finished");
  for (const effect of effects) await reported(effect);
  const { apo_diagnostics } = await readStatus(service);
  // What is stored whole ends alike in every life, but for the mode: that is of whoever came last.
  assert.ok([1, 2, 3, 4].includes(apo_diagnostics.initialize_processing_mode));
  const lastBlock = { processing_block_count: 500, processing_gain_db: 3 };
  const counts = words`
    initialize_attempt_count initialize_runtime_count initialize_discovery_count initialize_count
    format_negotiation_count input_format_negotiation_count output_format_negotiation_count lock_attempt_count
    lock_count
  `;
  const timesTwelve = Object.fromEntries(
    [...counts, ...Object.keys(asked)].map((key) => [key, wholeLife[key] * 12]),
  );
  assert.deepEqual(
    apo_diagnostics,
    diagnostics({
      ...{ ...wholeLife, ...timesTwelve, ...lastBlock, total_processed_blocks: 3 * 4 * 3 * 500 },
      ...values`initialized_mode_mask:30 locked_mode_mask:30 processed_mode_mask:30`,
      initialize_processing_mode: apo_diagnostics.initialize_processing_mode,
    }),
  );
  for (const effect of effects) await effect.stop();
});

test("a capture command and its report show", limits, async (t) => {
  /** @type {any[][]} */
  const rows = [
    ["an effect that captures", ["--capture-directory", "/nowhere"], 1, -2147483648],
    ["an effect without a directory", [], 5, -2147024893],
  ];
  for (const [what, more, state, detail] of rows) {
    await t.test(what, async (row) => {
      const service = await startService(row, { env: quiet() });
      const effect = await startEffect(row, service.mapping, more, "mapping opened");
      await service.ask("POST", "/api/v1/debug/capture", '{"action":"start","seconds":120}');
      await effect.until("its answer", () => effect.output.match(/^capture .*\n/m) ?? undefined);
      const { apo_diagnostics } = await readStatus(service);
      assert.deepEqual(
        ["reported", "state", "seconds", "detail_code"].map((name) => apo_diagnostics[`capture_${name}`]),
        [true, state, 120, detail],
      );
    });
  }
});

// ---- numbers ----

test("numbers have up to seven significant digits", limits, async (t) => {
  const service = await startService(t, { env: quiet() });
  const effect = await startEffect(t, service.mapping, [], "mapping opened");
  await reported(effect);
  const strengths = words`
    0.6:0.6 0.12345678:0.1234568 0.99999999:1 0.0001:0.0001 0.00001:1e-05 1e-40:9.999946e-41 0:0
  `.map((row) => row.split(":"));
  for (const [strength, written] of strengths) {
    const mark = effect.mark();
    await service.expect(answers.done, "PUT", footstep, `{"bypass":false,"enhance_strength":${strength}}`);
    await reported(effect, mark);
    const text = await statusText(service);
    assertForm(text);
    assert.equal(memberText(text, "footstep", "enhance_strength"), written, strength);
    assert.equal(memberText(text, "apo_diagnostics", "applied_strength"), written, strength);
  }
  const body =
    '{"output_trim_db":-7.5,"mask_time_alpha":0.5,"mask_frequency_smooth":1,"limiter_enabled":false,' +
    '"limiter_ceiling_db":-11.9,"stereo_link":2}';
  await service.expect(answers.done, "PUT", algorithm, body);
  const [, shown] = membersOf(await statusText(service))[1];
  assert.equal(
    shown,
    '{"bypass":false,"bypass_all":false,"enhance_strength":0,"output_trim_db":-7.5,"mask_time_alpha":0.5019608,' +
      '"mask_frequency_smooth":1,"limiter_enabled":false,"limiter_ceiling_db":-11.9,"stereo_link":2}',
  );
});

test("what is no finite number goes out by its name", limits, async (t) => {
  const rows = {
    nan: "nan",
    "-nan": "nan",
    inf: "inf",
    "-inf": "-inf",
    "-0": "-0",
    123456789: "1.234568e+08",
  };
  for (const [value, written] of Object.entries(rows)) {
    await t.test(value, async (row) => {
      const service = await startService(row, { env: quiet() });
      const more = ["--life", ...shortLife, "--applied-strength", value, "--gain", value];
      const effect = await startEffect(row, service.mapping, more, "mapping opened");
      await reported(effect);
      const text = await statusText(service);
      assert.equal(memberText(text, "apo_diagnostics", "applied_strength"), written);
      assert.equal(memberText(text, "apo_diagnostics", "processing_gain_db"), written);
      // Everything else stays what it is.
      assertForm(text.replace(/("applied_strength"|"processing_gain_db"):[^,]*/g, "$1:0"));
    });
  }
});

// ---- the machine ----

const volumeOf = ({ render }) => [render.available, render.volume, render.muted, render.error_code];

const binding = (bound, chain, error_code = 0, hasKey = true) => ({
  ...{ bound, fx_key_present: hasKey, error_code, chain },
});

if (isNative) {
  test("the endpoint that the service works on shows with its volume and its chain", limits, async (t) => {
    const chain = [driverEffect, effect];
    const { machine, service } = await startOn(t, [
      ...renderKeys(guid, { volume: "0.6", muted: 0, fx: [[chainValue, listData(chain)]] }),
      ...renderKeys(otherGuid, { volume: "0.25", muted: 1 }),
      [ownPath, [["DefaultRender", textData(idOf(guid))]]],
    ]);
    const bound = binding(true, chain);
    const unbound = binding(false, []);
    const before = await readStatus(service);
    assert.deepEqual(volumeOf(before), [true, 0.6, false, 0]);
    assert.deepEqual(before.apo_binding, { endpoint_id: idOf(guid), ...bound });
    assert.ok((await statusText(service)).includes('"volume":0.6,'));

    const body = JSON.stringify({ endpoint_id: idOf(otherGuid) });
    await service.expect(answers.done, "PUT", "/api/v1/devices/render", body);
    const chosen = await readStatus(service);
    assert.deepEqual(volumeOf(chosen), [true, 0.25, true, 0]);
    assert.deepEqual(chosen.apo_binding, { endpoint_id: idOf(otherGuid), ...unbound });

    await service.expect(answers.done, "PUT", "/api/v1/render/volume", '{"volume":0.1}');
    await service.expect(answers.done, "PUT", "/api/v1/render/mute", '{"muted":false}');
    assert.deepEqual(volumeOf(await readStatus(service)), [true, 0.1, false, 0]);

    assert.equal((await machine.runTool("bind", idOf(otherGuid))).code, 0);
    const after = await readStatus(service);
    assert.deepEqual(after.apo_binding, { endpoint_id: idOf(otherGuid), ...bound, chain: [effect] });
  });

  test("an endpoint that has gone keeps its id and has neither volume nor chain", limits, async (t) => {
    const gone = [...renderKeys(otherGuid)];
    const { machine, service } = await startOn(t, [...renderKeys(guid), ...gone]);
    const body = JSON.stringify({ endpoint_id: idOf(guid) });
    await service.expect(answers.done, "PUT", "/api/v1/devices/render", body);
    fs.writeFileSync(machine.file, exportText(gone));
    const document = await readStatus(service);
    assert.deepEqual(volumeOf(document), [false, 0, false, notFound]);
    assert.deepEqual(document.apo_binding, {
      endpoint_id: idOf(guid),
      ...binding(false, [], missingFile, false),
    });
  });

  test("the effect in the chain is found whatever the case of its letters", limits, async (t) => {
    /** @type {any[][]} */
    const rows = [
      [[[chainValue, listData([effect.toLowerCase()])]], true, 0, [effect.toLowerCase()]],
      [[[chainValue, listData([driverEffect])]], false, 0, [driverEffect]],
      [[[chainValue, listData(['a"b\\c', "Gerät"])]], false, 0, ['a"b\\c', "Ger?t"]],
      [[[chainValue, textData(effect)]], false, -2147023092, []],
      [[], false, 0, []],
    ];
    for (const [fx, bound, error_code, chain] of rows) {
      await t.test(JSON.stringify(chain), async (row) => {
        const { service } = await startOn(row, renderKeys(guid, { fx }));
        const { apo_binding } = await readStatus(service);
        assert.deepEqual(apo_binding, { endpoint_id: idOf(guid), ...binding(bound, chain, error_code) });
      });
    }
  });
}

test("without a render endpoint there is no id and no look at its chain", limits, async (t) => {
  const { service } = await startOn(t, [[renderPath, []]]);
  const document = await readStatus(service);
  // Wine without a sound server fails as a whole.
  assert.deepEqual(volumeOf(document), [false, 0, false, isWine ? unspecifiedFailure : notFound]);
  assert.deepEqual(document.apo_binding, { endpoint_id: "", ...binding(false, [], invalidArgument, false) });
});

// Registers a library for the effect's class, and what else the system says of it.
async function startInstalled(t, library, /** @type {{ protection?: number }} */ { protection } = {}) {
  if (isNative) {
    const keys = [[serverPath, [["", textData(library)]]]];
    if (protection !== undefined)
      keys.push([protectionPath, [["DisableProtectedAudioDG", dwordData(protection)]]]);
    const text = exportText(keys).replace('""=', "@=");
    const machine = await Machine.make(t, text);
    return startService(t, { env: { ...quiet(), ...machine.env } });
  }
  await keepKeys(t, [classPath, protectionPath]);
  const add = async (key, ...more) => {
    const { code, output, errors } = await run(t, "reg", ["add", key, ...more, "/f"]);
    assert.equal(code, 0, output + errors);
  };
  await add(serverPath, "/ve", "/d", library);
  if (protection !== undefined) {
    await add(protectionPath, "/v", "DisableProtectedAudioDG", "/t", "REG_DWORD", "/d", String(protection));
  }
  return startService(t, { env: quiet() });
}

test("the installation shows with its path escaped and its foreign letters lost", limits, async (t) => {
  /** @type {any[][]} */
  const rows = [
    ["C:\\Velmora\\Gerät\\ä試🔊.dll", "C:\\\\Velmora\\\\Ger?t\\\\????.dll", undefined, false],
    ["C:\\Program Files\\apo.dll", "C:\\\\Program Files\\\\apo.dll", 1, true],
    ['\\\\?\\C:\\"x".dll', '\\\\\\\\?\\\\C:\\\\\\"x\\".dll', 2, false],
  ];
  for (const [library, written, protection, disabled] of rows) {
    // The command line of Wine's registry program takes no double quote.
    if (isWine && library.includes('"')) continue;
    await t.test(library, async (row) => {
      const service = await startInstalled(row, library, { protection });
      const text = await statusText(service);
      assertForm(text);
      assert.equal(memberText(text, "apo_host", "apo_dll_path"), `"${written}"`);
      const { apo_host } = JSON.parse(text);
      assert.equal(apo_host.clsid_registered, true);
      assert.equal(apo_host.protected_audio_dg_disabled, disabled);
      assert.equal(apo_host.apo_dll_present, false);
      assert.equal(apo_host.algorithm_present, false);
    });
  }
});

if (isNative) {
  // A process as the system shows it.
  function addProcess(root, id, program, mapped = []) {
    const directory = path.join(root, String(id));
    fs.mkdirSync(directory);
    fs.symlinkSync(program, path.join(directory, "exe"));
    const lines = mapped.map((file) => `7f0000000000-7f0000001000 r--p 00000000 00:00 1 ${file}\n`);
    fs.writeFileSync(path.join(directory, "maps"), lines.join(""));
  }

  test("the engine shows with the libraries that it has loaded", limits, async (t) => {
    const root = makeDirectory();
    addProcess(root, 7, "/usr/bin/other");
    const mapped = ["/opt/audiodg.exe", "/opt/Gerät/Velmora_Windows_APO.dll", "/opt/fse.dll"];
    addProcess(root, 4_000_000, "/opt/AudioDG.exe", mapped);
    const { service } = await startOn(t, renderKeys(guid), { VELMORA_PROC: root });
    const engine = { running: true, process_id: 4_000_000, apo_loaded: true, algorithm_loaded: true };
    const { audio_engine } = await readStatus(service);
    const library = "/opt/Ger?t/Velmora_Windows_APO.dll";
    assert.deepEqual(audio_engine, { ...engine, apo_module_path: library, error_code: 0 });
    fs.rmSync(path.join(root, "4000000"), { recursive: true });
    assert.equal((await readStatus(service)).audio_engine.running, false, "it is looked for each time");
  });
}

// ---- the algorithm ----

function copyService() {
  const directory = makeDirectory();
  const program = path.join(directory, path.basename(creatingService()));
  fs.copyFileSync(creatingService(), program);
  fs.chmodSync(program, 0o755);
  return { directory, program };
}

test("the algorithm is shown as it was found at the start", limits, async (t) => {
  const library = (name) => (file) =>
    fs.copyFileSync(path.join(buildDirectory, "programs", name, "fse.dll"), file);
  const noLibrary = (file) => fs.writeFileSync(file, "no library at all\n".repeat(99));
  /** @type {any[][]} */
  const rows = [
    ["a library that gives its version", "3.2.1", library("versioned")],
    ["a library without the function", "unknown", library("unversioned")],
    ["a file that is no library", "unavailable", noLibrary],
    ["a directory", "not found", (file) => fs.mkdirSync(file)],
  ];
  for (const [what, version, furnish] of rows) {
    await t.test(what, async (row) => {
      const { directory, program } = copyService();
      furnish(path.join(directory, "fse.dll"));
      const service = await startService(row, { program, env: quiet() });
      assert.equal((await readStatus(service)).versions.algorithm, version);
      if (isNative) {
        fs.rmSync(path.join(directory, "fse.dll"), { recursive: true });
        assert.equal((await readStatus(service)).versions.algorithm, version, "it is not looked at again");
      }
    });
  }
});

test("a number is read and written alike when the algorithm has changed the locale", limits, async (t) => {
  const { directory, program } = copyService();
  fs.copyFileSync(path.join(buildDirectory, "programs/localized/fse.dll"), path.join(directory, "fse.dll"));
  const env = { ...quiet(), LOCPATH: path.join(buildDirectory, "locales") };
  const service = await startService(t, { program, env });
  assert.equal(service.algorithm, "4.5.6", "the locale has a decimal comma");
  assert.equal(await service.ask("PUT", footstep, '{"bypass":false,"enhance_strength":0.75}'), answers.done);
  const text = await statusText(service);
  assert.equal(memberText(text, "footstep", "enhance_strength"), "0.75");
});

// ---- it only reads ----

test("a status request changes neither the record nor the machine", limits, async (t) => {
  const keys = [
    ...renderKeys(guid, { volume: "0.5", fx: [[chainValue, listData([driverEffect])]] }),
    [serverPath, []],
  ];
  const machine = await Machine.make(t, exportText(keys));
  const mapping = uniqueMappingName();
  const effect = await startEffect(t, mapping, ["--life", ...shortLife], "mapping made");
  await reported(effect);
  const env = { ...quiet(), ...machine.env };
  const service = await startService(t, { mapping, env });
  const record = await readRecord(t, mapping);
  const before = await machine.export();
  const mark = isNative ? fs.statSync(machine.file, { bigint: true }) : null;
  const texts = [];
  for (let round = 0; round < 20; ++round) texts.push(await statusText(service));
  assert.deepEqual(new Set(texts).size, 1, "nothing moves, so nothing in the document does");
  assert.deepEqual(await readRecord(t, mapping), record);
  assert.equal(await machine.export(), before);
  if (isNative) {
    const after = fs.statSync(machine.file, { bigint: true });
    assert.deepEqual([after.ino, after.mtimeNs, after.ctimeNs], [mark?.ino, mark?.mtimeNs, mark?.ctimeNs]);
    assert.deepEqual(
      fs.readdirSync(path.dirname(machine.file)),
      [path.basename(machine.file)],
      "nothing beside it",
    );
  }
});

if (isNative) {
  test("a machine that cannot be read any more shows as errors in their fields", limits, async (t) => {
    const { machine, service } = await startOn(t, renderKeys(guid));
    fs.writeFileSync(machine.file, "no export at all\n");
    const document = await readStatus(service);
    assert.equal(document.render.available, false);
    assert.ok(document.render.error_code < 0);
    assert.equal(document.apo_binding.endpoint_id, "");
    assert.equal(document.apo_binding.error_code, invalidArgument);
    assert.equal(document.apo_host.clsid_registered, false);
    fs.writeFileSync(machine.file, exportText(renderKeys(guid)));
    assert.equal((await readStatus(service)).render.available, true);
  });
}
