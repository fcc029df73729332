// The Windows program against audio endpoints that a COM server of the tests' own gives it: what it asks for, what it
// makes of each answer, and that it gives everything back.
import assert from "node:assert/strict";
import test from "node:test";

import { AudioServer, quoted } from "./audio_server.mjs";
import {
  captureChoice,
  list as getList,
  listAnswer,
  noMute,
  noSuchEndpoint,
  noVolume,
  notSelected,
  renderChoice,
  setMute,
  setVolume,
} from "./endpoint_routes.mjs";
import {
  answers,
  bodyOf,
  isWine,
  refusalBytes,
  run,
  startEffect,
  startService,
  uniqueMappingName,
  utf8Bytes,
  words,
} from "./harness.mjs";

const limits = { timeout: 300_000 };

const statusFailed = 0x80004005;
const statusUnexpected = 0x8000ffff;
const statusNotFound = 0x80070490;
const signed = (status) => status | 0;
const choose = (service, route, id) =>
  service.ask("PUT", route, utf8Bytes(JSON.stringify({ endpoint_id: id })));
const hex = (status) => `0x${status.toString(16).padStart(8, "0")}`;

// A process id that no process has: no id is that large.
const nobody = 4_294_967_280;
const itself = "velmora_control_demo.exe";

// ---- a machine with something of everything ----

const speakers = {
  id: "{0.0.0.00000000}.{feab839f-3407-471a-aa45-bcd41f1bb5f6}",
  name: "Speakers",
  peak: 0.25,
  sessions: [
    [1, 0],
    [0, nobody],
    [1, "self"],
    [2, nobody],
    [1, nobody],
  ],
};
const unplugged = { id: "{unplugged}", name: "Unplugged", state: 8 };
const headphones = {
  id: "{headphones}",
  name: "Headphones",
  peak: 0.5,
  sessions: [
    [1, "self"],
    [1, "self"],
  ],
};
const microphone = { id: "{microphone}", name: "Microphone", peak: 0.125, sessions: [[1, 0]] };
const lineIn = { id: "{line in}", name: "Line in" };
const machine = {
  render: [speakers, unplugged, headphones],
  capture: [microphone, lineIn],
  defaultRender: speakers.id,
  defaultCapture: microphone.id,
};

// What the list shows of it.
const listed = () => ({
  render: [
    { id: speakers.id, name: "Speakers", peak: 0.25, sessions: ["system", itself, `pid ${nobody}`] },
    { id: headphones.id, name: "Headphones", peak: 0.5, sessions: [itself, itself] },
  ],
  capture: [
    { id: microphone.id, name: "Microphone", peak: 0.125, sessions: ["system"] },
    { id: lineIn.id, name: "Line in", peak: 0, sessions: [] },
  ],
  defaultRender: speakers.id,
  defaultCapture: microphone.id,
});

// ---- the calls, as the log has them ----

const ok = "-> 0x00000000";
const openingCalls = [
  `DllGetClassObject class={7A1D0F0B-6A0E-4B0D-9C33-3A5E8E1F6C21} interface=IClassFactory ${ok}`,
  `IClassFactory.CreateInstance outer=null interface=IMMDeviceEnumerator ${ok}`,
];
const defaultCalls = (flow, id) => [
  `IMMDeviceEnumerator.GetDefaultAudioEndpoint flow=${flow} role=1 ${ok}`,
  `IMMDevice.GetId of=${quoted(id)} ${ok}`,
];
const listCalls = (flow) => [
  `IMMDeviceEnumerator.EnumAudioEndpoints flow=${flow} states=1 ${ok}`,
  `IMMDeviceCollection.GetCount flow=${flow} ${ok}`,
];
const itemCalls = (flow, index, id) => [
  `IMMDeviceCollection.Item flow=${flow} index=${index} ${ok}`,
  `IMMDevice.GetId of=${quoted(id)} ${ok}`,
];
const activation = (id, wanted) =>
  `IMMDevice.Activate of=${quoted(id)} interface=${wanted} context=1 params=null ${ok}`;
// One listed endpoint. `sessions` are the states of its sessions.
const endpointCalls = (flow, index, id, sessions) => [
  ...itemCalls(flow, index, id),
  `IMMDevice.OpenPropertyStore of=${quoted(id)} access=0 ${ok}`,
  `IPropertyStore.GetValue of=${quoted(id)} key={A45C254E-DF1C-4EFD-8020-67D146A850E0},14 ${ok}`,
  activation(id, "IAudioMeterInformation"),
  `IAudioMeterInformation.GetPeakValue of=${quoted(id)} ${ok}`,
  activation(id, "IAudioSessionManager2"),
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
const wholeListCalls = [
  ...openingCalls,
  ...defaultCalls(0, speakers.id),
  ...defaultCalls(1, microphone.id),
  ...listCalls(0),
  ...endpointCalls(0, 0, speakers.id, [1, 0, 1, 2, 1]),
  ...endpointCalls(0, 1, headphones.id, [1, 1]),
  ...listCalls(1),
  ...endpointCalls(1, 0, microphone.id, [1]),
  ...endpointCalls(1, 1, lineIn.id, []),
];

// The calls of a log line by line, with what distinguishes them: the operation, its how-manyth call this is, and
// the arguments.
function toldApart(lines) {
  const counts = new Map();
  return lines.map((line) => {
    const [, op, args] = line.match(/^(\S+) (.*) -> 0x[0-9a-f]{8}$/);
    counts.set(op, (counts.get(op) ?? 0) + 1);
    const argument = (name) => args.match(new RegExp(`(?:^| )${name}=("(?:[^"\\\\]|\\\\.)*"|\\S+)`))?.[1];
    const of = argument("of");
    return {
      op,
      nth: counts.get(op),
      args,
      id: of && JSON.parse(of),
      flow: Number(argument("flow")),
      index: Number(argument("index") ?? argument("session")),
      wanted: argument("interface"),
    };
  });
}

// ---- what a failed call does to the list ----

const flowNames = ["render", "capture"];
const flowOf = (id) => (id === speakers.id || id === headphones.id ? 0 : 1);
const entryOf = (list, id) => [...list.render, ...list.capture].find((entry) => entry.id === id);

// The list ends before this entry, and no list comes behind it.
function cut(list, flow, index, status) {
  list[flowNames[flow]].length = index;
  if (flow === 0) list.capture = [];
  list.error_code = signed(status);
}

function withoutDefault(list, flow) {
  list[flow === 0 ? "defaultRender" : "defaultCapture"] = "";
}

function withoutSession(list, { id, index }) {
  const found = [speakers, headphones, microphone].find((endpoint) => endpoint.id === id);
  const states = found?.sessions.map(([state]) => state) ?? [];
  if (states[index] !== 1) return;
  entryOf(list, id).sessions.splice(states.slice(0, index).filter((state) => state === 1).length, 1);
}

function nothingAtAll(list, status) {
  for (const key of Object.keys(list)) delete list[key];
  list.error_code = signed(status);
}

function withoutName(list, { id }) {
  entryOf(list, id).name = id;
}

function withoutPeak(list, { id }) {
  entryOf(list, id).peak = 0;
}

function withoutSessions(list, { id }) {
  entryOf(list, id).sessions = [];
}

// The first two ids are asked for the defaults.
function withoutId(list, call, status) {
  if (call.nth <= 2) return withoutDefault(list, call.nth - 1);
  const flow = flowOf(call.id);
  cut(
    list,
    flow,
    list[flowNames[flow]].findIndex((entry) => entry.id === call.id),
    status,
  );
}

const failures = {
  DllGetClassObject: (list, call, status) => nothingAtAll(list, status),
  "IClassFactory.CreateInstance": (list, call, status) => nothingAtAll(list, status),
  "IMMDeviceEnumerator.EnumAudioEndpoints": (list, call, status) => cut(list, call.flow, 0, status),
  "IMMDeviceEnumerator.GetDefaultAudioEndpoint": (list, call) => withoutDefault(list, call.flow),
  "IMMDeviceCollection.GetCount": (list, call, status) => cut(list, call.flow, 0, status),
  "IMMDeviceCollection.Item": (list, call, status) => cut(list, call.flow, call.index, status),
  "IMMDevice.Activate": (list, call) =>
    (call.wanted === "IAudioMeterInformation" ? withoutPeak : withoutSessions)(list, call),
  "IMMDevice.OpenPropertyStore": withoutName,
  "IMMDevice.GetId": withoutId,
  "IPropertyStore.GetValue": withoutName,
  "IAudioMeterInformation.GetPeakValue": withoutPeak,
  "IAudioSessionManager2.GetSessionEnumerator": withoutSessions,
  "IAudioSessionEnumerator.GetCount": withoutSessions,
  "IAudioSessionEnumerator.GetSession": withoutSession,
  "IAudioSessionControl.GetState": withoutSession,
  "IAudioSessionControl.QueryInterface": withoutSession,
  "IAudioSessionControl2.GetProcessId": withoutSession,
};

// Calls that hand out a pointer, which may be null although they succeed. The class object is for COM itself, which
// cannot live with that.
const handsOut = new Set(words`
  IClassFactory.CreateInstance IMMDeviceEnumerator.EnumAudioEndpoints
  IMMDeviceEnumerator.GetDefaultAudioEndpoint IMMDeviceEnumerator.GetDevice IMMDeviceCollection.Item
  IMMDevice.Activate IMMDevice.OpenPropertyStore IMMDevice.GetId IAudioSessionManager2.GetSessionEnumerator
  IAudioSessionEnumerator.GetSession IAudioSessionControl.QueryInterface
`);

function listAfter(call, status) {
  const list = listed();
  failures[call.op](list, call, status);
  return list;
}

test("a failure is known for each operation that a list calls", () => {
  const called = new Set(toldApart(wholeListCalls).map(({ op }) => op));
  assert.deepEqual([...called].sort(), Object.keys(failures).sort());
});

// ---- against the program ----

async function start(t, given = machine) {
  const server = await AudioServer.make(t);
  const service = await startService(t, { env: server.env });
  server.set(given);
  return { server, service };
}

// What came back, in few words: for the table of faults.
function inShort(answer) {
  const body = bodyOf(answer);
  const status = answer.slice("HTTP/1.1 ".length, "HTTP/1.1 ".length + 3);
  if (!body.startsWith('{"render":')) return `${status} ${body}`;
  const list = JSON.parse(body);
  const nameOf = (name) => (name === speakers.id ? "{speakers}" : name);
  const entry = ({ name, peak, sessions }) => `${nameOf(name)} ${peak} [${sessions.join(", ")}]`;
  const entries = (of) => of.map(entry).join("; ") || "none";
  const has = (id) => (id === "" ? "no default" : "a default");
  return (
    `${status}, render: ${entries(list.render)}, ${has(list.default_render_endpoint_id)} | capture: ` +
    `${entries(list.capture)}, ${has(list.default_capture_endpoint_id)} | error_code ${list.error_code}`
  );
}

// Each fault in turn, one request each: `answerTo(call, status)` is what comes back, the status that of a failure, and
// of a null pointer in its place. A success that is not 0 changes nothing. The run's log gets the table of it.
async function tryFaults(t, what, { server, service, request, calls, answerTo, undisturbed }) {
  t.diagnostic(`${what}, undisturbed: ${inShort(undisturbed)}`);
  for (const call of toldApart(calls)) {
    const { op, nth, args } = call;
    const faults = [
      [`fail ${op} ${nth} ${hex(statusFailed)}`, statusFailed, answerTo(call, statusFailed)],
      [`fail ${op} ${nth} 1`, 1, undisturbed],
      ...(handsOut.has(op) ? [[`null ${op} ${nth}`, 0, answerTo(call, statusUnexpected)]] : []),
    ];
    const seen = [];
    for (const [fault, status, expected] of faults) {
      server.set({ ...machine, faults: [fault] });
      const answer = await request(service);
      assert.equal(answer, expected, fault);
      // The fault did come: the call is in the log with its status.
      const lines = server.takeCalls();
      const place = toldApart(lines).findIndex((other) => other.op === op && other.nth === nth);
      assert.equal(lines[place], `${op} ${args} -> ${hex(status)}`, fault);
      seen.push(
        `${["null", "success 1", "failure"][[0, 1, statusFailed].indexOf(status)]}: ` +
          `${answer === undisturbed ? "nothing changes" : inShort(answer)}`,
      );
    }
    t.diagnostic(`${op}, call ${nth}, ${args.replaceAll(speakers.id, "{speakers}")}`);
    for (const line of seen) t.diagnostic(`    ${line}`);
  }
}

// The id that Wine has given to the one process of this program.
async function wineProcessId(t, program) {
  const listing = await run(t, "wmic", ["process", "get", "ProcessId,Name"]);
  const lines = [...listing.output.replaceAll("\0", "").matchAll(/^(\S+) +([0-9]+) *\r?$/gm)];
  const ids = lines.filter(([, name]) => name === program).map(([, , id]) => Number(id));
  assert.equal(ids.length, 1, listing.output);
  return ids[0];
}

// ---- the tests that need Wine ----

async function listCallByCall(t) {
  const { server, service } = await start(t);
  assert.equal(await getList(service), listAnswer(listed()));
  assert.deepEqual(server.takeCalls(), wholeListCalls);
  await service.stop();
  assert.deepEqual(server.takeLines(), ["live references=0 allocations=0"], "nothing is kept to the end");
}

async function listFaults(t) {
  const { server, service } = await start(t);
  await tryFaults(t, "the list", {
    server,
    service,
    request: getList,
    calls: wholeListCalls,
    answerTo: (call, status) => listAnswer(listAfter(call, status)),
    undisturbed: listAnswer(listed()),
  });
}

async function missingDefaults(t) {
  const { server, service } = await start(t);
  const error = signed(statusNotFound);
  const { render, capture, defaultRender, defaultCapture } = listed();
  const unset = (...names) =>
    Object.fromEntries(Object.entries(machine).filter(([name]) => !names.includes(name)));
  const noRender = { ...machine, render: [unplugged], defaultRender: undefined };
  const noCapture = { ...machine, capture: [], defaultCapture: undefined };
  /** @type {any[][]} */
  const rows = [
    ["no endpoint at all", {}, { error_code: error }],
    ["no default of render", unset("defaultRender"), { render, capture, defaultCapture }],
    ["no default of capture", unset("defaultCapture"), { render, capture, defaultRender }],
    ["no defaults", unset("defaultRender", "defaultCapture"), { render, capture }],
    ["nothing to play on", noRender, { capture, defaultCapture, error_code: error }],
    ["nothing to record from", noCapture, { render, defaultRender, error_code: error }],
    [
      "nothing to play on, and the look for the default fails in its own way",
      { ...noRender, faults: ["fail IMMDeviceEnumerator.GetDefaultAudioEndpoint 1 0x88890017"] },
      { capture, defaultCapture, error_code: signed(0x88890017) },
    ],
    [
      "no endpoint at all, each look for a default failing in its own way: that of render counts",
      {
        faults: [
          "fail IMMDeviceEnumerator.GetDefaultAudioEndpoint 1 0x88890017",
          "fail IMMDeviceEnumerator.GetDefaultAudioEndpoint 2 0x88890018",
        ],
      },
      { error_code: signed(0x88890017) },
    ],
    [
      "a default that is not active",
      { ...machine, defaultRender: unplugged.id },
      { render, capture, defaultRender: unplugged.id, defaultCapture },
    ],
  ];
  for (const [what, given, expected] of rows) {
    server.set(given);
    assert.equal(await getList(service), listAnswer(expected), what);
    server.takeCalls();
  }
}

async function names(t) {
  const { server, service } = await start(t);
  // What the script gives, and what the list shows; undefined is the id.
  const rows = [
    ["plain", { name: "Speakers" }, "Speakers"],
    ["empty", { name: "" }, ""],
    ["two to four bytes of UTF-8", { name: "Lautsprecher-Ausgäng 日本語 \u{1F600} \u{10FFFF}" }],
    ["the edges of UTF-8", { name: "\x7f\x80\u07ff\u0800\ud7ff\ue000\ufffd\uffff" }],
    ["quotes and backslashes", { name: '"Quoted" \\ back/slash' }],
    ["half a pair, first half", { name: "bad \ud800 name" }, ""],
    ["half a pair, second half", { name: "bad \udc00" }, ""],
    ["the halves in the wrong order", { name: "\ude00\ud83d" }, ""],
    ["no such property", {}, undefined],
    ["a text whose pointer is null", { more: ["name-null"] }, undefined],
    ["a number", { more: ["name-type 19"] }, undefined],
    ["a narrow text", { more: ["name-type 30"] }, undefined],
    ["a class id", { more: ["name-type 72"] }, undefined],
    ["a long name", { name: "é".repeat(10_000) }],
  ];
  const endpoint = (row, index) => ({ id: `{endpoint ${index}}`, ...row[1] });
  server.set({ render: rows.map(endpoint), defaultRender: "{endpoint 0}" });
  const shown = (row) => (row.length === 2 ? row[1].name : row[2]);
  const render = rows.map((row, index) => ({
    id: `{endpoint ${index}}`,
    name: shown(row) ?? `{endpoint ${index}}`,
  }));
  assert.equal(
    await getList(service),
    listAnswer({ render, defaultRender: "{endpoint 0}", error_code: signed(statusNotFound) }),
  );
  server.takeCalls();
}

async function ids(t) {
  const { server, service } = await start(t);
  const odd = ['{"quoted" \\ id}', "{ünïcode 日本 \u{1F600}}", "{A}", "{a}"];
  const broken = "{half a pair \ud800}";
  const render = [...odd, broken].map((id) => ({ id, name: "One" }));
  server.set({ render, defaultRender: broken });
  // The id that does not convert is empty on the way out, but what is compared are the ids themselves.
  const shown = (selected) => {
    const entries = [...odd, broken].map((id) => ({ id: id === broken ? "" : id, name: "One" }));
    return listAnswer({
      render: entries,
      defaultRender: "",
      selectedRender: selected,
      error_code: signed(statusNotFound),
    });
  };
  assert.equal(await getList(service), shown(""));
  server.takeCalls();
  for (const id of odd) {
    assert.equal(await choose(service, renderChoice, id), answers.done, id);
    server.takeCalls();
    assert.equal(await getList(service), shown(id));
    server.takeCalls();
  }
  // An unnamed endpoint with such an id has nothing to show at all.
  server.set({ render: [{ id: broken }] });
  const nothing = `{"id":"","name":"","is_default":false,"is_selected":false,"peak":0,"sessions":[],"apo_bound":false}`;
  assert.ok((await getList(service)).includes(`{"render":[${nothing}],`));
  server.takeCalls();
}

async function peaks(t) {
  const { server, service } = await start(t);
  const rows = [
    ["0", 0],
    ["1", 1],
    ["0.1", 0.1],
    ["0.123456789", 0.123456789],
    ["1e-7", 1e-7],
    ["1.5", 1.5],
    ["-0.25", -0.25],
    ["-0", -0],
    ["1e-45", 1e-45],
    ["3.4e38", 3.4e38],
    ["nan", 0],
    ["-nan", 0],
    ["inf", 0],
    ["-inf", 0],
  ];
  const capture = rows.map((/** @type {any[]} */ [peak], index) => ({ id: `{${index}}`, name: peak, peak }));
  server.set({ capture, defaultCapture: "{0}" });
  assert.equal(
    await getList(service),
    listAnswer({
      capture: rows.map(([name, peak], index) => ({ id: `{${index}}`, name, peak })),
      defaultCapture: "{0}",
      error_code: signed(statusNotFound),
    }),
  );
  server.takeCalls();
}

async function sessions(t) {
  const { server, service } = await start(t);
  const effect = await startEffect(t, uniqueMappingName());
  assert.equal(effect.end, undefined);
  const only = (given) => ({
    capture: [{ id: "{one}", name: "One", sessions: given }],
    defaultCapture: "{one}",
  });
  const shows = async (what, given, expected, faults = []) => {
    server.set({ ...only(given), faults });
    assert.equal(
      await getList(service),
      listAnswer({
        capture: [{ id: "{one}", name: "One", sessions: expected }],
        defaultCapture: "{one}",
        error_code: signed(statusNotFound),
      }),
      what,
    );
    return server.takeCalls();
  };
  await shows(
    "each state",
    [
      [0, 0],
      [1, 0],
      [2, 0],
      [3, 0],
      [-1, 0],
      [1, 0],
    ],
    ["system", "system"],
  );
  await shows(
    "nobody",
    [
      [1, 1234567],
      [1, nobody],
    ],
    ["pid 1234567", `pid ${nobody}`],
  );
  await shows(
    "in their order, none merged",
    [
      [1, "self"],
      [1, 0],
      [1, nobody],
      [1, 0],
      [1, "self"],
    ],
    [itself, "system", `pid ${nobody}`, "system", itself],
  );
  const pid = await wineProcessId(t, "velmora_test_effect.exe");
  await shows("another process", [[1, pid]], ["velmora_test_effect.exe"]);
  const positive = ["fail IAudioSessionControl2.GetProcessId * 1"];
  await shows(
    "a positive status of each id",
    [
      [1, 0],
      [1, "self"],
      [1, nobody],
    ],
    ["system", itself, `pid ${nobody}`],
    positive,
  );
  await shows(
    "each id refused",
    [
      [1, 0],
      [1, "self"],
    ],
    [],
    ["fail IAudioSessionControl2.GetProcessId * 0x80004005"],
  );
  const calls = await shows(
    "no interface of the second kind",
    [
      [1, 0],
      [1, 0],
    ],
    [],
    ["fail IAudioSessionControl.QueryInterface * 0x80004002"],
  );
  assert.ok(!calls.some((call) => call.startsWith("IAudioSessionControl2.")));
  effect.kill();
  await effect.waitForEnd();
}

async function noEnumerator(t) {
  const { server, service } = await start(t);
  assert.equal(await choose(service, renderChoice, headphones.id), answers.done);
  assert.equal(await choose(service, captureChoice, lineIn.id), answers.done);
  server.takeLines();
  const chosen = { ...listed(), selectedRender: headphones.id, selectedCapture: lineIn.id };
  const tries = async (status) => {
    assert.equal(await getList(service), listAnswer({ error_code: signed(status) }));
    assert.equal(await choose(service, renderChoice, speakers.id), notSelected);
    assert.equal(await choose(service, captureChoice, microphone.id), notSelected);
    assert.equal(await setVolume(service, 0.5), noVolume);
    assert.equal(await setMute(service, true), noMute);
  };
  const failuresOfTheClass = [
    ["DllGetClassObject", 0x80040111],
    ["DllGetClassObject", 0x80040154],
    ["IClassFactory.CreateInstance", 0x8007000e],
    ["IClassFactory.CreateInstance", 0x80040110],
  ];
  for (const [op, status] of failuresOfTheClass) {
    server.set({ ...machine, faults: [`fail ${op} * ${hex(status)}`] });
    await tries(status);
    for (const line of server.takeLines())
      assert.match(line, /^(DllGetClassObject|IClassFactory|live references=0)/);
  }
  // The accepted choice stays, and none of the refused ones counts.
  server.set(machine);
  assert.equal(await getList(service), listAnswer(chosen));
  server.takeCalls();
  await AudioServer.removeClass(t);
  await tries(0x80040154);
  assert.deepEqual(server.takeLines(), [], "nobody asked the server");
}

async function choiceFaults(t) {
  const { server, service } = await start(t);
  /** @type {any[][]} */
  const roads = [
    [renderChoice, headphones.id, 0, [speakers.id, headphones.id]],
    [captureChoice, lineIn.id, 1, [microphone.id, lineIn.id]],
  ];
  for (const [route, id, flow, active] of roads) {
    const calls = [
      ...openingCalls,
      ...listCalls(flow),
      ...active.flatMap((listedId, index) => itemCalls(flow, index, listedId)),
    ];
    server.set(machine);
    server.takeLines();
    assert.equal(await choose(service, route, id), answers.done);
    assert.deepEqual(server.takeCalls(), calls, "it ends with the endpoint that was asked for");
    await tryFaults(t, `choosing by ${route}`, {
      server,
      service,
      request: (it) => choose(it, route, id),
      calls,
      answerTo: () => notSelected,
      undisturbed: answers.done,
    });
    // A listing that itself says that there is no such thing reads like an endpoint that is not there.
    server.set({ ...machine, faults: [`fail IMMDeviceCollection.Item 1 ${hex(statusNotFound)}`] });
    assert.equal(await choose(service, route, id), noSuchEndpoint);
    server.takeCalls();
  }
}

async function choices(t) {
  const { server, service } = await start(t);
  const shows = async (selected) => {
    server.takeLines();
    assert.equal(await getList(service), listAnswer({ ...listed(), ...selected }));
    server.takeCalls();
  };
  const refused = [
    [renderChoice, microphone.id],
    [captureChoice, speakers.id],
    [renderChoice, unplugged.id],
    [renderChoice, speakers.id.toUpperCase()],
    [renderChoice, speakers.id.slice(0, -1)],
    [renderChoice, `${speakers.id} `],
    [renderChoice, "Speakers"],
    [captureChoice, "{nobody}"],
  ];
  for (const [route, id] of refused)
    assert.equal(await choose(service, route, id), noSuchEndpoint, `${route} ${id}`);
  await shows({});
  assert.equal(await choose(service, renderChoice, headphones.id), answers.done);
  await shows({ selectedRender: headphones.id });
  assert.equal(await choose(service, captureChoice, lineIn.id), answers.done);
  for (const [route, id] of refused)
    assert.equal(await choose(service, route, id), noSuchEndpoint, `${route} ${id}`);
  await shows({ selectedRender: headphones.id, selectedCapture: lineIn.id });
}

async function goneSelection(t) {
  const { server, service } = await start(t);
  assert.equal(await choose(service, renderChoice, headphones.id), answers.done);
  assert.equal(await choose(service, captureChoice, lineIn.id), answers.done);
  server.takeLines();
  const { render, capture, ...defaults } = listed();
  const chosen = { ...defaults, selectedRender: headphones.id, selectedCapture: lineIn.id };
  const left = { render: render.slice(0, 1), capture: capture.slice(0, 1), ...chosen };
  /** @type {any[][]} */
  const ways = [
    [
      { ...machine, render: [speakers], capture: [microphone] },
      [`IMMDeviceEnumerator.GetDevice id=${quoted(headphones.id)} -> ${hex(statusNotFound)}`],
    ],
    [
      { ...machine, render: [speakers, { ...headphones, state: 8 }], capture: [microphone] },
      [
        `IMMDeviceEnumerator.GetDevice id=${quoted(headphones.id)} ${ok}`,
        activation(headphones.id, "IAudioEndpointVolume").replace(ok, "-> 0x88890004"),
      ],
    ],
  ];
  for (const [given, calls] of ways) {
    server.set(given);
    assert.equal(await getList(service), listAnswer(left), "it is the choice, but no entry is");
    server.takeCalls();
    for (const [askFor, refusal] of /** @type {any[][]} */ ([
      [() => setVolume(service, 0.5), noVolume],
      [() => setMute(service, true), noMute],
    ])) {
      assert.equal(await askFor(), refusal);
      assert.deepEqual(
        server.takeCalls(),
        [...openingCalls, ...calls],
        "there is no falling back to the default",
      );
    }
  }
  // It comes back as the choice.
  server.set(machine);
  assert.equal(await getList(service), listAnswer({ render, capture, ...chosen }));
  assert.equal(await setVolume(service, 0.5), answers.done);
  // Another choice ends it.
  server.set(ways[0][0]);
  assert.equal(await choose(service, renderChoice, speakers.id), answers.done);
  assert.equal(await setVolume(service, 0.5), answers.done);
}

// The calls of setting something: of the endpoint that was chosen, or of the default.
const settingCalls = (id, isChosen, last, status = ok) => [
  ...openingCalls,
  isChosen
    ? `IMMDeviceEnumerator.GetDevice id=${quoted(id)} ${ok}`
    : `IMMDeviceEnumerator.GetDefaultAudioEndpoint flow=0 role=1 ${ok}`,
  activation(id, "IAudioEndpointVolume"),
  `IAudioEndpointVolume.${last} context=null ${status}`,
];
// The device and the enumerator have been given back by then.
const levelCall = (id, level) => `SetMasterVolumeLevelScalar of=${quoted(id)} references=1 level=${level}`;
const muteCall = (id, muted) => `SetMute of=${quoted(id)} references=1 muted=${muted}`;

async function volume(t) {
  const { server, service } = await start(t);
  // What is sent, and the 32 bits that arrive, in nine digits.
  const levels = [
    ["0", "0"],
    ["1", "1"],
    ["1.0", "1"],
    ["0.5", "0.5"],
    ["0.1", "0.100000001"],
    ["-0", "-0"],
    ["1e-3", "0.00100000005"],
    ["0.99999999", "1"],
  ];
  for (const [id, isChosen] of [
    [speakers.id, false],
    [headphones.id, true],
  ]) {
    if (isChosen) assert.equal(await choose(service, renderChoice, id), answers.done);
    server.takeLines();
    for (const [sent, level] of levels) {
      assert.equal(await setVolume(service, sent), answers.done, sent);
      assert.deepEqual(server.takeCalls(), settingCalls(id, isChosen, levelCall(id, level)));
    }
    // The second time nothing changes any more, which is a success too.
    for (const [muted, status] of [
      [true, 0],
      [true, 1],
      [false, 0],
      [false, 1],
    ]) {
      assert.equal(await setMute(service, muted), answers.done);
      assert.deepEqual(
        server.takeCalls(),
        settingCalls(id, isChosen, muteCall(id, Number(muted)), `-> ${hex(status)}`),
      );
    }
  }
  // A choice of capture leads nowhere.
  assert.equal(await choose(service, captureChoice, lineIn.id), answers.done);
  server.takeLines();
  assert.equal(await setVolume(service, 0.25), answers.done);
  assert.deepEqual(server.takeCalls(), settingCalls(headphones.id, true, levelCall(headphones.id, 0.25)));
  const wrong = ["1.0001", "-0.1", '"0.5"', "null", "nan", "1e39"];
  for (const level of wrong) {
    assert.equal(
      await setVolume(service, level),
      refusalBytes(400, "Bad Request", "volume must be between 0 and 1"),
      level,
    );
  }
  for (const muted of ["1", '"true"', "null"]) {
    assert.equal(
      await setMute(service, muted),
      refusalBytes(400, "Bad Request", "muted must be a boolean"),
      muted,
    );
  }
  assert.deepEqual(server.takeLines(), [], "what is refused asks nothing of the system");
  server.set({});
  assert.equal(await setVolume(service, 0.5), noVolume, "no endpoint");
}

async function volumeFaults(t) {
  const { server, service } = await start(t);
  for (const [id, isChosen] of [
    [speakers.id, false],
    [headphones.id, true],
  ]) {
    server.set(machine);
    if (isChosen) assert.equal(await choose(service, renderChoice, id), answers.done);
    server.takeLines();
    /** @type {any[][]} */
    const roads = [
      [(it) => setVolume(it, 0.5), levelCall(id, 0.5), noVolume],
      [(it) => setMute(it, true), muteCall(id, 1), noMute],
    ];
    for (const [request, last, refusal] of roads) {
      await tryFaults(t, `${last.split(" ")[0]} of ${isChosen ? "the chosen endpoint" : "the default"}`, {
        server,
        service,
        request,
        calls: settingCalls(id, isChosen, last),
        answerTo: () => refusal,
        undisturbed: answers.done,
      });
    }
  }
}

async function many(t) {
  const { server, service } = await start(t);
  const count = 60;
  const endpoints = (flow) =>
    Array.from({ length: count }, (_, index) => ({
      id: `{${flow} ${index}}`,
      name: `Endpoint ${index}`,
      peak: index / 64,
      sessions: Array.from({ length: index % 4 }, () => [1, 0]),
    }));
  const manyOf = { render: endpoints("render"), capture: endpoints("capture") };
  const defaults = { defaultRender: "{render 59}", defaultCapture: "{capture 0}" };
  server.set({ ...manyOf, ...defaults });
  const shown = (list) => list.map((entry) => ({ ...entry, sessions: entry.sessions.map(() => "system") }));
  const expected = { render: shown(manyOf.render), capture: shown(manyOf.capture), ...defaults };
  for (let round = 0; round < 3; ++round) {
    assert.equal(await getList(service), listAnswer(expected));
    server.takeCalls();
  }
  assert.equal(await choose(service, captureChoice, "{capture 59}"), answers.done);
  assert.equal(server.takeCalls().length, openingCalls.length + 2 + 2 * count, "looked for up to the last");
  assert.equal(await getList(service), listAnswer({ ...expected, selectedCapture: "{capture 59}" }));
  server.takeCalls();
}

async function counts(t) {
  const { server, service } = await start(t);
  const list = listed();
  const outOfRange = signed(0x80070057);
  const withoutSessions = { ...list, render: [{ ...list.render[0], sessions: [] }, list.render[1]] };
  const endpoints = "IMMDeviceCollection.GetCount";
  const sessionsOfOne = "IAudioSessionEnumerator.GetCount 1";
  /** @type {any[][]} */
  const rows = [
    [`${endpoints} 1 0xffffffff`, { ...list, capture: [], error_code: outOfRange }],
    [`${endpoints} 2 0xffffffff`, { ...list, error_code: outOfRange }],
    [`${endpoints} 1 3`, { ...list, capture: [], error_code: outOfRange }],
    [`${endpoints} 1 1`, { ...list, render: list.render.slice(0, 1) }],
    [`${endpoints} 1 0`, { ...list, render: [] }],
    [`${endpoints} 2 0`, { ...list, capture: [] }],
    [`${sessionsOfOne} 0`, withoutSessions],
    [`${sessionsOfOne} -1`, withoutSessions],
    [`${sessionsOfOne} -2147483648`, withoutSessions],
    [`${sessionsOfOne} 1000`, list],
  ];
  for (const [count, expected] of rows) {
    server.set({ ...machine, faults: [`count ${count}`] });
    assert.equal(await getList(service), listAnswer(expected), count);
    server.takeCalls();
  }
  // A choice is looked for no further than to its own place.
  const choices = [
    ["1 0xffffffff", "{nobody}", notSelected],
    ["1 0xffffffff", headphones.id, answers.done],
    ["1 1", headphones.id, noSuchEndpoint],
  ];
  for (const [count, id, expected] of choices) {
    server.set({ ...machine, faults: [`count ${endpoints} ${count}`] });
    assert.equal(await choose(service, renderChoice, id), expected, `${count} ${id}`);
    server.takeCalls();
  }
}

async function withoutScript(t) {
  const { server } = await start(t);
  const bare = await startService(t);
  const answer = await getList(bare);
  assert.match(answer, /^HTTP\/1\.1 200 OK\r\n/);
  assert.ok(!answer.includes(speakers.id));
  assert.deepEqual(server.takeLines(), [], "a program without a script has the endpoints of the system");
}

if (isWine) {
  test("the list asks for what it shows, call by call", limits, listCallByCall);
  test("each failed call of a list takes away what it was asked for", limits, listFaults);
  test("a list needs no default, and an empty one says why", limits, missingDefaults);
  test("a name is shown as it is read, and the id in place of one that cannot be read", limits, names);
  test("ids with quotes, letters of the world and halves of pairs are distinguished", limits, ids);
  test("a peak is shown as it is read, and one that is no number as 0", limits, peaks);
  test("active sessions are shown by the programs of their processes", limits, sessions);
  test("without an enumerator everything is empty, and the choices stay", limits, noEnumerator);
  test("an endpoint of the wrong direction or another spelling is no choice", limits, choices);
  test("each failed call of a choice refuses it", limits, choiceFaults);
  test("a chosen endpoint that went away stays the choice", limits, goneSelection);
  test("volume and mute arrive at the endpoint of choice, call by call", limits, volume);
  test("each failed call of volume and mute refuses it", limits, volumeFaults);
  test("sixty endpoints of each direction are listed", limits, many);
  test("a count that is not true does no harm", limits, counts);
  test("a program without a script keeps the endpoints of the system", limits, withoutScript);
}
