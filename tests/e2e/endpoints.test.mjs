// The audio endpoints from outside: the list, the choice, volume and mute, and what each route refuses.
//
// Natively a machine's export file lists the endpoints. Under Wine a sound server of the test's own does,
// and the refusals are tested here; endpoints_pulse.test.mjs tests the rest.
import assert from "node:assert/strict";
import fs from "node:fs";
import path from "node:path";
import test from "node:test";

import {
  devices,
  renderChoice,
  captureChoice,
  volume,
  mute,
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
import {
  answers,
  bodyOf,
  isNative,
  makeDirectory,
  makeSmallDisk,
  missingMountRight,
  refusalBytes,
  startService,
  words,
} from "./harness.mjs";
import { startPulse } from "./pulse.mjs";
import {
  Machine,
  difference,
  dwordData,
  exportText,
  hexData,
  keyEntry,
  listData,
  renderPath,
  textData,
  valueEntry,
} from "./registry.mjs";

const limits = { timeout: 120_000 };

const badVolume = refusalBytes(400, "Bad Request", "volume must be between 0 and 1");
const badMute = refusalBytes(400, "Bad Request", "muted must be a boolean");

// ---- machines of the tests' own ----

const ownPath = "HKEY_LOCAL_MACHINE\\SOFTWARE\\VelmoraStandIn\\Audio";
const capturePath = renderPath.replace(/Render$/, "Capture");
const properties = {
  name: "{a45c254e-df1c-4efd-8020-67d146a850e0},14",
  description: "{a45c254e-df1c-4efd-8020-67d146a850e0},2",
  interfaceName: "{b3f8fa53-0004-438e-9003-51a46e139bfc},6",
};
const chain = "{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},14";
const effect = "{631D9145-CACF-44D7-861B-5D82ADD8C84F}";

const guidOf = (number) => `{${number.toString(16).padStart(8, "0")}-c0de-4a4d-9f3b-2f8f4d3f00a1}`;
const renderId = (guid) => `{0.0.0.00000000}.${guid}`;
const captureId = (guid) => `{0.0.1.00000000}.${guid}`;

// An endpoint's keys. `named` are the values of its properties, `own` those that Windows keeps elsewhere, and
// `sessions` the values of each session.
function endpointKeys(
  id,
  /** @type {any} */ { state = 1, named = [], fx = [], own = [], sessions = [] } = {},
) {
  const guid = id.slice(id.indexOf(".{") + 1);
  const key = `${id === renderId(guid) ? renderPath : capturePath}\\${guid}`;
  const keys = [
    [key, [["DeviceState", dwordData(state)]]],
    [`${key}\\Properties`, named],
  ];
  if (fx) keys.push([`${key}\\FxProperties`, fx]);
  if (own.length > 0) keys.push([`${ownPath}\\${id}`, own]);
  sessions.forEach((session, index) => keys.push([`${ownPath}\\${id}\\Sessions\\${index}`, session]));
  return keys;
}

function machineText(
  endpoints,
  /** @type {{ render?: string, capture?: string }} */ { render, capture } = {},
) {
  const defaults = [];
  if (render) defaults.push(["DefaultRender", textData(render)]);
  if (capture) defaults.push(["DefaultCapture", textData(capture)]);
  const own = defaults.length > 0 ? [[ownPath, defaults]] : [];
  return exportText([...endpoints.flatMap(([id, about]) => endpointKeys(id, about)), ...own]);
}

const nameValue = (text) => [properties.name, textData(text)];
const sessionValues = (state, process_id) => [
  ["State", dwordData(state)],
  ["ProcessId", dwordData(process_id)],
];

const speakers = { id: renderId(guidOf(1)), name: "Speakers", peak: 0.25, sessions: ["system"] };
const headphones = { id: renderId(guidOf(2)), name: "Headphones" };
const unplugged = { id: renderId(guidOf(3)), name: "Television" };
const lineIn = { id: captureId(guidOf(4)), name: "Line in" };
const microphone = { id: captureId(guidOf(5)), name: "Microphone", peak: 0.5 };

// Two active endpoints of either flow and one that is unplugged; the second ones are the defaults.
function studioText({ headphonesState = 1, render = headphones.id, without = [] } = {}) {
  const peak = (text) => [["Peak", textData(text)]];
  const endpoint = ({ id, name }, more = {}) => [id, { named: [nameValue(name)], ...more }];
  const endpoints = [
    endpoint(speakers, { own: peak("0.25"), sessions: [sessionValues(1, 0)] }),
    endpoint(headphones, { state: headphonesState }),
    endpoint(unplugged, { state: 8 }),
    endpoint(lineIn),
    endpoint(microphone, { own: peak("0.5") }),
  ];
  const kept = endpoints.filter(([id]) => !without.includes(id));
  return machineText(kept, { render, capture: microphone.id });
}

const studio = {
  render: [speakers, headphones],
  capture: [lineIn, microphone],
  defaultRender: headphones.id,
  defaultCapture: microphone.id,
};

// The service on endpoints of its own, ids that it would take, and its list as it must stay.
async function startInStudio(t) {
  if (isNative) {
    const machine = await Machine.make(t, studioText());
    const service = await startService(t, { env: machine.env });
    return { service, machine, render: speakers.id, capture: lineIn.id, before: listAnswer(studio) };
  }
  const { env } = await startPulse(t, {
    sinks: [["speakers", "Speakers"]],
    sources: [["line_in", "Line in"]],
  });
  const service = await startService(t, { env });
  const before = await list(service);
  const listed = JSON.parse(bodyOf(before));
  const idOf = (endpoints) => endpoints.find((endpoint) => !endpoint.is_default).id;
  return { service, render: idOf(listed.render), capture: idOf(listed.capture), before };
}

// Nothing is chosen and nothing is changed.
async function assertUntouched(/** @type {any} */ { service, machine, before }) {
  assert.equal(await list(service), before);
  if (machine) assert.equal(await machine.export(), studioText());
}

// ---- what is refused ----

const escapedId = (text) => `{"endpoint_id":"${text}"}`;

// One body for each way to the answer.
const bodiesWithoutId = [
  "",
  '{"ENDPOINT_ID":"x"}',
  '{"endpoint_id":5}',
  escapedId(""),
  '{"endpoint_id":"x\\',
  escapedId("x\\u0041"),
  escapedId("{0.0.0.0\0"),
];

const utf8 = (text) => Buffer.from(text, "utf8").toString("latin1");
const longBytes = 60_000;

const unknownIds = [
  ...[
    "x",
    'a\\"b\\"c',
    "\\\\\\\\?\\\\SWD#MMDEVAPI#x",
    "\x7f",
    utf8("\u97f3 \ufffd \uffff \u{1f50a}"),
    renderId(""),
  ],
  "x".repeat(longBytes),
  "\\\\".repeat(longBytes / 2),
  utf8("\u97f3".repeat(longBytes / 3)),
];

const illFormedIds = ["\xff", "x\xc3(", "\xed\xa0\x80", `${speakers.id}\xff`, `${"x".repeat(longBytes)}\xff`];

const shortened = (text) =>
  JSON.stringify(text.length > 80 ? `${text.slice(0, 80)}... ${text.length} bytes` : text);

test("an id that chooses nothing is refused, and the choice stays", limits, async (t) => {
  const studioService = await startInStudio(t);
  const rows = [
    ...bodiesWithoutId.map((body) => [body, noId]),
    ...unknownIds.map((id) => [escapedId(id), noSuchEndpoint]),
    ...illFormedIds.map((id) => [escapedId(id), notSelected]),
  ];
  for (const route of [renderChoice, captureChoice]) {
    for (const [body, refusal] of rows) {
      await t.test(`${route} ${shortened(body)}`, async () => {
        await studioService.service.expect(refusal, "PUT", route, body);
        await assertUntouched(studioService);
      });
    }
  }
  await studioService.service.stop();
});

const badVolumes = [
  "",
  '{"Volume":0.5}',
  ...words`1.0000001 -1e-30 "0.5" nan inf`.map((text) => `{"volume":${text}}`),
];
const badMutes = ["", '{"Muted":true}', ...words`1 "true" tru`.map((text) => `{"muted":${text}}`)];

test("a volume or mute that is none is refused, and nothing is set", limits, async (t) => {
  const studioService = await startInStudio(t);
  const rows = [
    ...badVolumes.map((body) => [volume, body, badVolume]),
    ...badMutes.map((body) => [mute, body, badMute]),
  ];
  for (const [route, body, refusal] of rows) {
    await t.test(`${route} ${body}`, async () => {
      await studioService.service.expect(refusal, "PUT", route, body);
      await assertUntouched(studioService);
    });
  }
  await studioService.service.stop();
});

const validRequests = ({ render, capture }) => [
  ["GET", devices],
  ["PUT", renderChoice, escapedId(render)],
  ["PUT", captureChoice, escapedId(capture)],
  ["PUT", volume, '{"volume":0.5}'],
  ["PUT", mute, '{"muted":true}'],
];

test("another method, and a path that is only like one of these, leads nowhere", limits, async (t) => {
  const studioService = await startInStudio(t);
  const methods = ["GET", "PUT", "POST", "HEAD", "get"];
  const rows = validRequests(studioService).flatMap(([method, target, body]) => [
    ...methods.filter((other) => other !== method).map((other) => [other, target, body]),
    [method, `${target}/`, body],
    [method, target.toUpperCase(), body],
  ]);
  rows.push(
    ["PUT", "/api/v1/devices/both", escapedId(studioService.render)],
    ["PUT", "/api/v1/capture/volume", '{"volume":1}'],
  );
  for (const [method, target, body] of rows) {
    await t.test(`${method} ${target}`, async () => {
      await studioService.service.expect(answers.notFound, method, target, body);
    });
  }
  await assertUntouched(studioService);
  await studioService.service.stop();
});

test("without the token nothing is shown and nothing is done", limits, async (t) => {
  const studioService = await startInStudio(t);
  const { service } = studioService;
  for (const [method, target, body] of validRequests(studioService)) {
    await service.expectFor(answers.noToken, service.requestBytes({ method, target, body }));
  }
  await assertUntouched(studioService);
  await service.stop();
});

test("the text behind a question mark is not part of the path", limits, async (t) => {
  const studioService = await startInStudio(t);
  const { service, before } = studioService;
  await service.expect(before, "GET", `${devices}?flow=render`);
  await service.expect(noId, "PUT", `${captureChoice}?/render`, escapedId(""));
  await service.expect(badVolume, "PUT", `${volume}?volume=1`, "{}");
  await service.expect(badMute, "PUT", `${mute}?`, "{}");
  await assertUntouched(studioService);
  await service.stop();
});

// ---- the list ----

async function startOn(t, text, env = {}) {
  const machine = await Machine.make(t, text);
  return { machine, service: await startService(t, { env: { ...machine.env, ...env } }) };
}

const notFoundCode = -2147023728;
const unreadableCode = -2147023880;

if (isNative) {
  test("with nothing chosen the default endpoints have both marks", limits, async (t) => {
    const { service } = await startOn(t, studioText());
    const answer = await list(service);
    assert.equal(answer, listAnswer(studio));
    const { render, capture } = JSON.parse(bodyOf(answer));
    const marks = (endpoints) => endpoints.map((endpoint) => [endpoint.is_default, endpoint.is_selected]);
    for (const endpoints of [render, capture])
      assert.deepEqual(marks(endpoints).flat(), [false, false, true, true]);
  });

  const named = (id, name) => ({ id, name });
  const headset = named(renderId("{4a2b60cd-d30a-4b04-aa33-94d743a1fbf9}"), "USB headset (USB Audio)");
  const array = named(
    captureId("{ae22db8f-4b0c-488e-8414-26287ed209de}"),
    "Microphone array (High Definition Audio)",
  );
  const laptop = {
    render: [
      headset,
      named(renderId("{517f1efe-9874-44ab-b8c0-d341131d9da7}"), "Speakers (High Definition Audio)"),
    ],
    capture: [
      array,
      named(captureId("{ff5910c1-be74-4a99-9c55-4f8cda470cb0}"), "Headset microphone (USB Audio)"),
    ],
    defaultRender: headset.id,
    defaultCapture: array.id,
  };
  const laptopText = fs.readFileSync(new URL("../machines/laptop.reg", import.meta.url), "utf8");

  test("the endpoints of a laptop are listed, and each can be chosen", limits, async (t) => {
    const { machine, service } = await startOn(t, laptopText);
    const listBefore = listAnswer(laptop);
    assert.equal(await list(service), listBefore);
    /** @type {import("./harness.mjs").Devices} */
    const now = { ...laptop };
    for (const flow of ["render", "capture"]) {
      const [route, mark] =
        flow === "render" ? [renderChoice, "selectedRender"] : [captureChoice, "selectedCapture"];
      for (const { id } of [...laptop[flow], ...laptop[flow]]) {
        assert.equal(await choose(service, route, id), answers.done);
        now[mark] = id;
        assert.equal(await list(service), listAnswer(now));
      }
    }
    await service.stop();

    assert.equal(await machine.export(), laptopText, "the choice is the service's own");
    const next = await startService(t, { env: machine.env });
    assert.equal(await list(next), listBefore, "it ends with the service");
  });

  test("the endpoints that a laptop has without being active cannot be chosen", limits, async (t) => {
    const { service } = await startOn(t, laptopText);
    const inactive = [
      [renderChoice, renderId("{224f4790-924c-4a31-a961-c2115d0a2a43}")],
      [renderChoice, renderId("{f3065860-9e6a-4a3c-8a4f-e771a101eada}")],
      [captureChoice, captureId("{b89f7ec9-4c7e-45dd-a6bc-ca1fe11bbdf2}")],
    ];
    for (const [route, id] of inactive) assert.equal(await choose(service, route, id), noSuchEndpoint, id);
    assert.equal(await list(service), listAnswer(laptop));
  });

  test("a machine that is not given is the built-in one", limits, async (t) => {
    const service = await startService(t, { env: { VELMORA_MACHINE: "" } });
    const first = renderId("{b7decc0c-5d96-4f7f-a65b-eda9cf0c26ef}");
    const input = captureId("{566bf9d7-c55a-45f8-a1a6-e55e9b9b1325}");
    const builtIn = {
      render: [
        { ...named(first, "Speakers (High Definition Audio)"), peak: 0.25, sessions: ["system"] },
        named(renderId("{b37523a5-3b4a-4ee2-a463-513755ac0ecd}"), "Headphones (High Definition Audio)"),
      ],
      capture: [named(input, "Microphone (High Definition Audio)")],
    };
    assert.equal(
      await list(service),
      listAnswer({ ...builtIn, defaultRender: first, defaultCapture: input }),
    );
    assert.equal(await setVolume(service, 0.5), answers.done);
    assert.equal(await setMute(service, true), answers.done);
  });

  test("an endpoint is named by its friendly name, its description or its id", limits, async (t) => {
    const idOf = (index) => renderId(guidOf(index + 1));
    const utf16Data = (type, text) => hexData(type, Buffer.from(`${text}\0`, "utf16le"));
    // What is shown, null for the id, and the values of the name, the description and the interface's name.
    const row = (shown, ...values) => ({
      shown,
      named: Object.values(properties).flatMap((property, at) =>
        values[at] ? [[property, values[at]]] : [],
      ),
    });
    const odd = ['C:\\a "quoted" name/', "K\u00fcche \u97f3 \u{1f50a} \x7f", "n".repeat(40_000), ""];
    const rows = [
      row("A", textData("A"), textData("B"), textData("C")),
      row("B (C)", null, textData("B"), textData("C")),
      row("B", null, textData("B")),
      row(null, null, null, textData("C")),
      row(null),
      row(null, dwordData(1), textData("B")),
      row(null, utf16Data(2, "A")),
      ...odd.map((text) => row(text, textData(text))),
      row("\x01\b\t\n\x0b\f\r\x1b\x1f ", utf16Data(1, "\x01\b\t\n\x0b\f\r\x1b\x1f ")),
      row("", utf16Data(1, "half \ud83d")),
    ];
    const { service } = await startOn(
      t,
      machineText(rows.map(({ named }, index) => [idOf(index), { named }])),
    );
    const render = rows.map(({ shown }, index) => ({ id: idOf(index), name: shown ?? idOf(index) }));
    assert.equal(
      await list(service),
      listAnswer({ render, defaultRender: idOf(0), error_code: notFoundCode }),
    );
  });

  test("a peak is shown as the meter gives it, unless it is no finite number", limits, async (t) => {
    const finite = ["0.25", "1.5", "-1", "1e-7", "1e30"].map((text) => [text, Number(text)]);
    const rows = /** @type {any[][]} */ ([
      ...finite,
      ...["nan", "inf", "-inf", "1e39", "loud", ""].map((text) => [text, 0]),
    ]);
    const endpoints = rows.map(([text, peak], index) => {
      const id = captureId(guidOf(index + 1));
      const about = { named: [nameValue("m")], own: [["Peak", textData(text)]] };
      return { about: [id, about], shown: { id, name: "m", peak } };
    });
    const withoutMeter = [speakers.id, { named: [nameValue("no meter")] }];
    const { service } = await startOn(t, machineText([...endpoints.map(({ about }) => about), withoutMeter]));
    const capture = endpoints.map(({ shown }) => shown);
    const defaults = { defaultRender: speakers.id, defaultCapture: captureId(guidOf(1)) };
    const render = [{ id: speakers.id, name: "no meter" }];
    assert.equal(await list(service), listAnswer({ render, capture, ...defaults }));
  });

  const aboveAllProcesses = 4_194_305; // Linux gives no id above 4194304

  test("a session is shown by the program of its process", limits, async (t) => {
    const ownProgram = fs.readlinkSync(`/proc/${process.pid}/exe`);
    const sessions = [
      [sessionValues(1, process.pid), ownProgram],
      [sessionValues(0, process.pid), null],
      [sessionValues(1, 0), "system"],
      [sessionValues(2, 0), null],
      [sessionValues(1, aboveAllProcesses), `pid ${aboveAllProcesses}`],
      [sessionValues(1, 0xffff_ffff), "pid 4294967295"],
      [sessionValues(1, process.pid), ownProgram],
      [[["ProcessId", dwordData(process.pid)]], null],
      [[["State", dwordData(1)]], "system"],
      [sessionValues(3, 0), null],
    ];
    const id = captureId(guidOf(1));
    const ofAll = { named: [nameValue("m")], sessions: sessions.map(([values]) => values) };
    const endpoints = [id, speakers.id].map((each) => [each, ofAll]);
    const { service } = await startOn(t, machineText(endpoints));
    const shown = { name: "m", sessions: sessions.map(([, name]) => name).filter((name) => name !== null) };
    const entries = { render: [{ id: speakers.id, ...shown }], capture: [{ id, ...shown }] };
    assert.equal(
      await list(service),
      listAnswer({ ...entries, defaultRender: speakers.id, defaultCapture: id }),
    );
  });

  test("only the part of a path behind its last backslash is shown", limits, async (t) => {
    const processes = makeDirectory();
    const rows = [
      ["C:\\Program Files\\Player\\player.exe", "player.exe"],
      ["player.exe", "player.exe"],
      ["/opt/player/player", "/opt/player/player"],
      ["C:\\Program Files\\", "pid 103"],
      ['C:\\M\u00fcsik\\sp\u00efeler "1" \u{1f50a}.exe', 'sp\u00efeler "1" \u{1f50a}.exe'],
      [Buffer.from("C:\\half \xff.exe", "latin1"), "half \ufffd.exe"],
      [`C:\\${"n".repeat(1000)}`, "n".repeat(1000)],
    ];
    rows.forEach(([target], index) => {
      fs.mkdirSync(path.join(processes, String(100 + index)));
      fs.symlinkSync(target, path.join(processes, String(100 + index), "exe"));
    });
    const sessions = rows.map((_, index) => sessionValues(1, 100 + index));
    const text = machineText([[speakers.id, { named: [nameValue("m")], sessions }]]);
    const { service } = await startOn(t, text, { VELMORA_PROC: processes });
    const render = [{ id: speakers.id, name: "m", sessions: rows.map(([, shown]) => shown) }];
    assert.equal(
      await list(service),
      listAnswer({ render, defaultRender: speakers.id, error_code: notFoundCode }),
    );
  });

  test("the error code reports a flow without endpoints", limits, async (t) => {
    const render = [speakers.id, { named: [nameValue("r")] }];
    const capture = [microphone.id, { named: [nameValue("c")] }];
    const off = (id) => [id, { state: 4, named: [nameValue("off")] }];
    const renderAlone = { render: [{ id: speakers.id, name: "r" }], defaultRender: speakers.id };
    const captureAlone = { capture: [{ id: microphone.id, name: "c" }], defaultCapture: microphone.id };
    const missing = { error_code: notFoundCode };
    const noEndpoints = [renderPath, capturePath].map((key) => [key, []]);
    const otherDefault = machineText([off(headphones.id), render, capture], { render: headphones.id });
    /** @type {any[][]} */
    const rows = [
      ["none at all", exportText([]), missing],
      ["keys without endpoints", exportText(noEndpoints), missing],
      ["none that is active", machineText([off(speakers.id), off(microphone.id)]), missing],
      ["render alone", machineText([render, off(microphone.id)]), { ...renderAlone, ...missing }],
      ["capture alone", machineText([off(speakers.id), capture]), { ...captureAlone, ...missing }],
      ["both", machineText([render, capture]), { ...renderAlone, ...captureAlone }],
      ["a default that is not active", otherDefault, { ...renderAlone, ...captureAlone }],
    ];
    for (const [what, text, expected] of rows) {
      await t.test(what, async (row) => {
        const { service } = await startOn(row, text);
        assert.equal(await list(service), listAnswer(expected));
        const hasRender = expected.defaultRender !== undefined;
        assert.equal(
          await choose(service, renderChoice, speakers.id),
          hasRender ? answers.done : noSuchEndpoint,
        );
        assert.equal(await setVolume(service, 1), hasRender ? answers.done : noVolume);
        assert.equal(await setMute(service, true), hasRender ? answers.done : noMute);
        assert.equal(await list(service), listAnswer(expected));
      });
    }
  });

  test("the effect is shown as bound from its bind to its unbind", limits, async (t) => {
    const { machine, service } = await startOn(t, studioText());
    const shows = async (bound) => {
      const render = [speakers, { ...headphones, bound }];
      assert.equal(await list(service), listAnswer({ ...studio, render }));
    };
    const act = async (action, detail) => {
      const { code, output } = await machine.runTool(action, guidOf(2));
      assert.deepEqual([code, output], [0, `status 0x00000000\ndetail ${detail}\n`]);
    };
    await shows(false);
    await act("bind", "endpoint bound and a default-mode list was added");
    await shows(true);
    await act("bind", "endpoint was already bound");
    await shows(true);
    await act("unbind", "endpoint unbound");
    await shows(false);
  });

  test("an endpoint whose chain cannot be read is shown as not bound", limits, async (t) => {
    const fxValues = [
      [[[chain, listData([effect])]], true],
      [[[chain, listData([effect.toLowerCase()])]], true],
      [[[chain, listData([])]], false],
      [[[chain, textData(effect)]], false],
      [[], false],
      [null, false],
    ];
    const endpoints = fxValues.map(([fx, bound], index) => ({
      id: renderId(guidOf(index + 1)),
      fx,
      shown: { id: renderId(guidOf(index + 1)), name: "e", bound },
    }));
    const oddId = "{0.0.0.00000000}.not a GUID";
    const text = exportText([
      ...endpoints.flatMap(({ id, fx }) => endpointKeys(id, { fx, named: [nameValue("e")] })),
      [`${renderPath}\\not a GUID`, [["DeviceState", dwordData(1)]]],
      [`${renderPath}\\not a GUID\\FxProperties`, [[chain, listData([effect])]]],
    ]);
    const { service } = await startOn(t, text);
    const { render } = JSON.parse(bodyOf(await list(service)));
    const sorted = [...endpoints.map(({ shown }) => shown), { id: oddId, name: oddId, bound: false }];
    assert.deepEqual(render.map(({ id }) => id).sort(), sorted.map(({ id }) => id).sort());
    const inOrder = render.map(({ id }) => sorted.find((shown) => shown.id === id));
    const devices = { render: inOrder, defaultRender: inOrder[0].id };
    assert.equal(await list(service), listAnswer({ ...devices, error_code: notFoundCode }));
  });

  // ---- the choice ----

  test("only an active endpoint of the direction with exactly this id is chosen", limits, async (t) => {
    const { machine, service } = await startOn(t, studioText());
    assert.equal(await choose(service, renderChoice, speakers.id), answers.done);
    assert.equal(await choose(service, captureChoice, lineIn.id), answers.done);
    const chosen = listAnswer({ ...studio, selectedRender: speakers.id, selectedCapture: lineIn.id });
    assert.equal(await list(service), chosen);
    const rows = [
      [captureChoice, speakers.id],
      ...[microphone.id, headphones.id.toUpperCase(), unplugged.id, guidOf(2), ` ${headphones.id}`].map(
        (id) => [renderChoice, id],
      ),
    ];
    for (const [route, id] of rows) {
      assert.equal(await choose(service, route, id), noSuchEndpoint, `${route} ${id}`);
      assert.equal(await list(service), chosen);
    }
    assert.equal(await machine.export(), studioText());
  });

  test("without a choice the default is followed; a choice outlives a new default", limits, async (t) => {
    const { machine, service } = await startOn(t, studioText());
    fs.writeFileSync(machine.file, studioText({ render: speakers.id }));
    const moved = { ...studio, defaultRender: speakers.id };
    assert.equal(await list(service), listAnswer(moved));
    assert.equal(await choose(service, renderChoice, speakers.id), answers.done);
    fs.writeFileSync(machine.file, studioText());
    assert.equal(await list(service), listAnswer({ ...studio, selectedRender: speakers.id }));
  });

  test("a chosen endpoint that goes away stays chosen until another one is", limits, async (t) => {
    /** @type {any[][]} */
    const rows = [
      ["its key is gone", { without: [headphones.id] }],
      ["it is unplugged", { headphonesState: 8 }],
      ["it is disabled", { headphonesState: 2 }],
    ];
    for (const [what, change] of rows) {
      await t.test(what, async (row) => {
        const { machine, service } = await startOn(row, studioText());
        assert.equal(await choose(service, renderChoice, headphones.id), answers.done);
        const withoutIt = studioText({ ...change, render: speakers.id });
        fs.writeFileSync(machine.file, withoutIt);
        const left = { ...studio, render: [speakers], defaultRender: speakers.id };
        const gone = { ...left, selectedRender: headphones.id };
        const answer = await list(service);
        assert.equal(answer, listAnswer(gone));
        assert.ok(!JSON.parse(bodyOf(answer)).render[0].is_selected);
        assert.equal(await setVolume(service, 0.5), noVolume);
        assert.equal(await setMute(service, true), noMute);
        assert.equal(await choose(service, renderChoice, headphones.id), noSuchEndpoint);
        assert.equal(await list(service), listAnswer(gone));
        assert.equal(await machine.export(), withoutIt, "the default device is not changed instead");

        fs.writeFileSync(machine.file, studioText());
        const back = listAnswer({ ...studio, selectedRender: headphones.id });
        assert.equal(await list(service), back);
        fs.writeFileSync(machine.file, withoutIt);
        assert.equal(await choose(service, renderChoice, speakers.id), answers.done);
        assert.equal(await list(service), listAnswer({ ...gone, selectedRender: speakers.id }));
        assert.equal(await setVolume(service, 0.5), answers.done);
        assert.equal(await setMute(service, true), answers.done);
        const added = [muteEntry(speakers.id, true), volumeEntry(speakers.id, "0.5")];
        assert.deepEqual(difference(withoutIt, await machine.export()), { removed: [], added });
      });
    }
  });

  // ---- volume and mute ----

  const volumeEntry = (id, text) => valueEntry(`${ownPath}\\${id}`, "Volume", textData(text));
  const muteEntry = (id, muted) => valueEntry(`${ownPath}\\${id}`, "Muted", dwordData(muted ? 1 : 0));

  test("a volume reaches the machine, in 32 bits", limits, async (t) => {
    const { machine, service } = await startOn(t, studioText());
    const rows = [
      ['{"volume":1}', "1"],
      ['{"volume":0.1}', "0.100000001"],
      ['{"volume":1e-45}', "1.40129846e-45"],
      ['{"volume":-0}', "-0"],
      ['{"volume":0.3,"volume":2}', "0.300000012"],
    ];
    for (const [body, kept] of rows) {
      await t.test(body, async () => {
        await service.expect(answers.done, "PUT", volume, body);
        assert.deepEqual(difference(studioText(), await machine.export()), {
          removed: [],
          added: [keyEntry(`${ownPath}\\${headphones.id}`), volumeEntry(headphones.id, kept)],
        });
      });
    }
    assert.equal(await list(service), listAnswer(studio));
  });

  test("a mute reaches the machine, and one that changes nothing is no error", limits, async (t) => {
    const { machine, service } = await startOn(t, studioText());
    /** @type {any[][]} */
    const rows = [
      ['{"muted":false}', null],
      ['{"muted":true}', true],
      ['{"muted":true}', true],
      ['{"muted":false}', false],
    ];
    for (const [body, kept] of rows) {
      const before = await machine.export();
      const { ino } = fs.statSync(machine.file);
      assert.equal(await service.ask("PUT", mute, body), answers.done, body);
      const added =
        kept === null ? [] : [keyEntry(`${ownPath}\\${headphones.id}`), muteEntry(headphones.id, kept)];
      assert.deepEqual(difference(studioText(), await machine.export()), { removed: [], added }, body);
      if (before === (await machine.export()))
        assert.equal(fs.statSync(machine.file).ino, ino, "it is not written");
    }
    assert.equal(await list(service), listAnswer(studio));
  });

  test("volume and mute go to the chosen endpoint, and stay with it", limits, async (t) => {
    const { machine, service } = await startOn(t, studioText());
    assert.equal(await setVolume(service, 0.25), answers.done);
    assert.equal(await choose(service, renderChoice, speakers.id), answers.done);
    assert.equal(await setVolume(service, 0.5), answers.done);
    assert.equal(await setMute(service, true), answers.done);
    assert.equal(await choose(service, renderChoice, headphones.id), answers.done);
    // The capture choice has no part in it.
    assert.equal(await choose(service, captureChoice, lineIn.id), answers.done);
    assert.equal(await setVolume(service, 0.75), answers.done);
    const own = [
      volumeEntry(headphones.id, "0.75"),
      volumeEntry(speakers.id, "0.5"),
      muteEntry(speakers.id, true),
    ];
    const kept = { removed: [], added: [keyEntry(`${ownPath}\\${headphones.id}`), ...own].sort() };
    assert.deepEqual(difference(studioText(), await machine.export()), kept);
    await service.stop();
    assert.deepEqual(difference(studioText(), await machine.export()), kept);
  });

  // ---- a machine that fails ----

  test("the error code reports an unreadable machine, and the service goes on", limits, async (t) => {
    /** @type {any[][]} */
    const rows = [
      ["malformed", (file) => fs.writeFileSync(file, `${studioText()}[HKEY_LOCAL_MACHINE\r\n`)],
      ["empty", (file) => fs.writeFileSync(file, "")],
      ["gone", (file) => fs.rmSync(file)],
    ];
    for (const [what, spoil] of rows) {
      await t.test(what, async (row) => {
        const { machine, service } = await startOn(row, studioText());
        assert.equal(await choose(service, renderChoice, speakers.id), answers.done);
        spoil(machine.file);
        const spoilt = fs.existsSync(machine.file) ? await machine.export() : null;
        const unreadable = listAnswer({ error_code: unreadableCode });
        assert.equal(await list(service), unreadable);
        assert.equal(await choose(service, renderChoice, headphones.id), notSelected);
        assert.equal(await choose(service, captureChoice, lineIn.id), notSelected);
        assert.equal(await setVolume(service, 0.5), noVolume);
        assert.equal(await setMute(service, true), noMute);
        assert.equal(await list(service), unreadable);
        assert.equal(fs.existsSync(machine.file) ? await machine.export() : null, spoilt, "it is left alone");

        fs.writeFileSync(machine.file, studioText());
        const kept = listAnswer({ ...studio, selectedRender: speakers.id });
        assert.equal(await list(service), kept, "the choice stays");
        assert.equal(await setVolume(service, 0.5), answers.done);
      });
    }
  });

  // The service on a machine file on a disk of its own.
  async function startOnDisk(t, disk) {
    const file = path.join(disk.directory, "machine.reg");
    fs.writeFileSync(file, studioText());
    return { file, service: await startService(t, { env: { VELMORA_MACHINE: file } }) };
  }

  async function assertNotWritten({ file, service }) {
    assert.equal(await setVolume(service, 0.5), noVolume);
    assert.equal(await setMute(service, true), noMute);
    assert.equal(fs.readFileSync(file, "utf8"), studioText());
    assert.deepEqual(fs.readdirSync(path.dirname(file)).sort(), ["filler", "machine.reg"]);
  }

  test("a read-only machine keeps its volume", { ...limits, skip: missingMountRight() }, async (t) => {
    const disk = makeSmallDisk(t, 65_536);
    fs.writeFileSync(path.join(disk.directory, "filler"), "");
    const started = await startOnDisk(t, disk);
    disk.makeReadOnly();
    await assertNotWritten(started);
    assert.equal(await choose(started.service, renderChoice, speakers.id), answers.done);
    await assertNotWritten(started);
    assert.equal(await list(started.service), listAnswer({ ...studio, selectedRender: speakers.id }));
    await started.service.stop();
  });

  test(
    "a full disk keeps the machine, and takes a change when there is room",
    { ...limits, skip: missingMountRight() },
    async (t) => {
      const pageBytes = 4096;
      const machinePages = Math.ceil(Buffer.byteLength(studioText()) / pageBytes);
      const disk = makeSmallDisk(t, (machinePages * 2 + 1) * pageBytes);
      const filler = path.join(disk.directory, "filler");
      fs.writeFileSync(filler, Buffer.alloc((machinePages + 1) * pageBytes, 1));
      const started = await startOnDisk(t, disk);
      await assertNotWritten(started);
      assert.equal(await list(started.service), listAnswer(studio));

      fs.truncateSync(filler, 0);
      assert.equal(await setMute(started.service, true), answers.done);
      assert.deepEqual(difference(studioText(), fs.readFileSync(started.file, "utf8")), {
        removed: [],
        added: [keyEntry(`${ownPath}\\${headphones.id}`), muteEntry(headphones.id, true)],
      });
      await started.service.stop();
    },
  );
}

// ---- what the service survives ----

test("many lists and choices in a row leave the service as it was", limits, async (t) => {
  const studioService = await startInStudio(t);
  const { service } = studioService;
  for (let round = 0; round < 100; ++round) {
    assert.equal(await choose(service, renderChoice, "x"), noSuchEndpoint);
    await assertUntouched(studioService);
  }
  await service.expect(studioService.before, "GET", devices, '{"endpoint_id":"x"}');
  await service.stop();
});
