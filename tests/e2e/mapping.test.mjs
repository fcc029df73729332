// How the service gets hold of the shared record and lets go of it: the calls that it makes for it on Windows, a
// creator that is not done yet, and a service that is killed.
import assert from "node:assert/strict";
import fs from "node:fs";
import net from "node:net";
import test from "node:test";

import { callTrace, ownCalls } from "./call_trace.mjs";
import {
  atEnd,
  answers,
  assertAnswers,
  creatingService,
  freePort,
  isWine,
  launch,
  listen,
  makeWebRoot,
  poll,
  programPathText,
  readRecord,
  run,
  shippedService,
  startEffect,
  startLimitMs,
  startService,
  uniqueMappingName,
  waitLimitMs,
} from "./harness.mjs";

const limits = { timeout: 90_000 };
const footstep = "/api/v1/render/effects/footstep";
const algorithm = "/api/v1/render/effects/algorithm";
const incompatible =
  "Unable to create shared control bridge: existing control mapping has an incompatible layout\n";
const recordMagic = 0x31434d56;

function serviceArguments(port, mapping) {
  return ["--port", String(port), "--web-root", programPathText(makeWebRoot()), "--control-map", mapping];
}

// ---- a creator that is not done yet ----

function isFinished(record) {
  return record.readUInt32LE(0) === recordMagic;
}

// The state letter of a process, or undefined when it is gone.
function stateOf(program) {
  try {
    const text = fs.readFileSync(`/proc/${program.child.pid}/stat`, "latin1");
    return text.slice(text.lastIndexOf(")") + 2)[0];
  } catch {
    return undefined;
  }
}

// Holds a program where it is. False when it ended before.
async function hold(program) {
  program.signal("SIGSTOP");
  const state = await poll(`${program.name} to hold`, () => {
    const now = stateOf(program);
    return now === undefined || "TZX".includes(now) ? (now ?? "X") : undefined;
  });
  return state === "T";
}

// An effect that has made the mapping and is held before it writes the magic. It writes it once it is let go on. On a
// machine so slow that the magic came first, another mapping gets more time.
async function startHeldCreator(t) {
  for (let finishAfterMs = 1_000; finishAfterMs <= 8_000; finishAfterMs *= 2) {
    const mapping = uniqueMappingName();
    const effect = await startEffect(
      t,
      mapping,
      ["--finish-after-ms", String(finishAfterMs)],
      "mapping made",
    );
    // The last of what it does before: from here on the magic is the only thing that it still writes.
    await effect.until("its first look", () => effect.output.match(/^algorithm word=.*\n/m) ?? undefined);
    assert.ok(await hold(effect));
    if (!isFinished(await readRecord(t, mapping))) return { effect, mapping };
    effect.kill();
  }
  throw new Error("no creator could be held before it was done");
}

async function finishedRecord(t, mapping) {
  return poll("the creator to finish", async () => {
    const record = await readRecord(t, mapping);
    return isFinished(record) ? record : undefined;
  });
}

test("a slow creator fails the start, and the next start finds it done", limits, async (t) => {
  const { effect, mapping } = await startHeldCreator(t);
  const unfinished = await readRecord(t, mapping);
  const refused = { code: 5, signal: null, output: "", errors: incompatible };
  assert.deepEqual(await run(t, shippedService, serviceArguments(await freePort(), mapping)), refused);
  assert.deepEqual(await readRecord(t, mapping), unfinished, "nothing was written");

  effect.signal("SIGCONT");
  const record = await finishedRecord(t, mapping);
  const service = await startService(t, { program: shippedService, mapping });
  assert.deepEqual(await readRecord(t, mapping), record);
  await service.assertAnswers();
});

// Whether the service pauses with the record in hand. Natively the system shows what a process has mapped and that it
// sleeps; under Wine the trace shows it.
function isWaiting(service, mapping) {
  if (isWine) return service.errors.includes(".Sleep(00000001)");
  try {
    const maps = fs.readFileSync(`/proc/${service.child.pid}/maps`, "latin1");
    return maps.includes(mapping.replace("\\", ".")) && stateOf(service) === "S";
  } catch {
    return false;
  }
}

// Looks without a pause of its own: the moment is short.
async function reachItsWait(service, mapping) {
  const deadline = Date.now() + waitLimitMs;
  while (!service.end && Date.now() < deadline) {
    if (isWaiting(service, mapping)) return;
    await new Promise((resolve) => setImmediate(resolve));
  }
}

// The service counts its looks and not the time, so one that is held between two looks has all the others left. It is
// held from outside, and the moment may be missed: then it has ended, and another one is started.
test("a service waits for a creator that gets done meanwhile", limits, async (t) => {
  const { effect, mapping } = await startHeldCreator(t);
  const port = await freePort();
  const env = isWine ? callTrace : {};
  /** @type {any} */
  let service;
  for (let attempt = 0; attempt < 20; ++attempt) {
    service = launch(t, shippedService, serviceArguments(port, mapping), { env });
    await reachItsWait(service, mapping);
    if (await hold(service)) break;
    assert.deepEqual(await service.waitForEnd(startLimitMs), { code: 5, signal: null });
  }
  assert.equal(stateOf(service), "T", "a service was held while it waited");

  effect.signal("SIGCONT");
  const record = await finishedRecord(t, mapping);
  assert.equal(service.output, "");
  service.signal("SIGCONT");
  await service.waitForLine("  Press Ctrl+C to stop.", 0, startLimitMs);
  assert.deepEqual(await readRecord(t, mapping), record, "the record is unchanged");
  await assertAnswers({ port });
  service.signal("SIGINT");
  assert.deepEqual(await service.waitForEnd(), { code: 0, signal: null });
  if (isWine) assert.ok((await tracedCalls(service, shippedService)).some((call) => call.name === "Sleep"));
});

// ---- a service that is killed ----

async function putParameters(service) {
  const requests = [
    [footstep, '{"bypass":false,"enhance_strength":0.375,"bypass_all":true}'],
    [algorithm, '{"output_trim_db":-7.5,"stereo_link":2}'],
  ];
  for (const [target, body] of requests) {
    await service.expectFor(answers.done, service.putBytes(target, body));
  }
}

test("the parameters outlive a service that is killed", limits, async (t) => {
  /** @type {any[][]} */
  const rows = [
    ["the service made the mapping", false],
    ["the effect made the mapping", true],
  ];
  for (const [what, effectFirst] of rows) {
    await t.test(what, async (row) => {
      const mapping = uniqueMappingName();
      let effect;
      if (effectFirst) effect = await startEffect(row, mapping, [], "mapping made");
      const service = await startService(row, { mapping });
      effect ??= await startEffect(row, mapping, ["--open-only"], "mapping opened");
      await putParameters(service);
      await effect.until(
        "the footstep word",
        () => effect.output.match(/^applied .* strength=0\.375\n/m) ?? undefined,
      );
      const record = await readRecord(row, mapping);
      assert.equal(record.readBigUInt64LE(0x10), 0x000000023ec00000n);
      assert.equal(record.readBigUInt64LE(0xb8), 0xffb5fff6000a0001n);

      service.kill();
      await service.waitForEnd();
      assert.deepEqual(await readRecord(row, mapping), record, "the killed service left the record alone");
      const again = await startService(row, { program: shippedService, mapping });
      assert.deepEqual(await readRecord(row, mapping), record, "the new service changed no byte");
      await putParameters(again);
      assert.deepEqual(await readRecord(row, mapping), record, "the same parameters are the same words");
    });
  }
});

// ---- the calls on Windows ----

const descriptorText =
  "D:P(A;;GA;;;OW)(A;;GA;;;SY)(A;;GA;;;LS)(A;;GRGW;;;AU)(A;;GRGW;;;WD)(A;;GRGW;;;WR)S:(ML;;NW;;;LW)";

// How an argument is shown: a pointer by what it is for, a handle by where it came from. The upper half of a slot means
// nothing where the argument is of 32 bits.
const number = ({ value }) => String(value & 0xffffffffn);
const whole = ({ value }) => String(value);
const hex = ({ value }) => `0x${(value & 0xffffffffn).toString(16)}`;
const text = (argument) => argument.text;
const pointer =
  (what) =>
  ({ value }) =>
    value === 0n ? "null" : what;
const handle = ({ value }, known) =>
  value === 0xffffffffffffffffn ? "none" : (known.get(value) ?? "unknown");

// The calls that are looked at, with the form of each argument. `gives` names the result's name in later
// calls, `ends` says that the first argument has no meaning any more.
const watched = {
  BCryptGenRandom: { args: [whole, pointer("buffer"), number, number] },
  OpenFileMappingW: { args: [number, number, text], gives: "mapping" },
  ConvertStringSecurityDescriptorToSecurityDescriptorW: {
    args: [text, number, pointer("descriptor"), whole],
  },
  CreateFileMappingW: {
    args: [handle, pointer("attributes"), number, number, number, text],
    gives: "mapping",
  },
  LocalFree: { args: [pointer("descriptor")] },
  MapViewOfFile: { args: [handle, number, number, number, whole], gives: "view" },
  UnmapViewOfFile: { args: [handle], ends: true },
  CloseHandle: { args: [handle], ends: true },
  Sleep: { args: [number] },
  CoInitializeEx: { args: [whole, number] },
  CoUninitialize: { args: [] },
  SetConsoleCtrlHandler: { args: [pointer("handler"), number] },
  GetModuleFileNameW: { args: [whole, pointer("buffer"), number] },
  WSAStartup: { args: [(argument) => hex({ value: argument.value & 0xffffn }), pointer("data")] },
  WSACleanup: { args: [] },
  socket: { args: [number, number, number], gives: "listener" },
  bind: { args: [handle, pointer("address"), number] },
  listen: { args: [handle, hex] },
  select: { args: [number, pointer("set"), whole, whole, pointer("timeout")] },
  accept: { args: [handle, whole, whole], gives: "connection" },
  recv: { args: [handle, pointer("buffer"), () => "size", number] },
  send: { args: [handle, pointer("bytes"), () => "size", number] },
  shutdown: { args: [handle, number] },
  closesocket: { args: [handle], ends: true },
};
// These compute a number and reach nothing.
const pure = ["htons", "htonl", "WSAGetLastError"];

// The calls as lines, for comparison. Any call to Winsock is shown, so that one more than expected is seen. Equal lines
// that follow each other are one, and so is the closing of what is none of ours, the pages' files.
function shownCalls(calls) {
  const known = new Map();
  const lines = [];
  for (const { module, name, args, result } of calls) {
    const form = watched[name];
    if (!form) {
      if (module === "ws2_32" && !pure.includes(name)) lines.push(name);
      continue;
    }
    if (name === "CloseHandle" && !known.has(args[0].value)) continue;
    assert.equal(args.length, form.args.length, name);
    const line = `${name}(${form.args.map((show, index) => show(args[index], known)).join(", ")})`;
    if (form.gives && result) known.set(result, form.gives);
    if (form.ends) known.delete(args[0].value);
    if (line !== lines.at(-1)) lines.push(line);
  }
  return lines;
}

// Wine's own programs lie at the same addresses, in processes of theirs.
const tracedCalls = (service, file) => ownCalls(service, file, ({ name }) => name === "OpenFileMappingW");

const opens = (mapping) => `OpenFileMappingW(6, 0, ${mapping})`;
const makes = (mapping) => [
  `ConvertStringSecurityDescriptorToSecurityDescriptorW(${descriptorText.replace("WR", "WD")}, 1, descriptor, 0)`,
  `CreateFileMappingW(none, attributes, 4, 0, 576, ${mapping})`,
  "LocalFree(descriptor)",
];
const maps = "MapViewOfFile(mapping, 6, 0, 0, 576)";
const letsGo = ["UnmapViewOfFile(view)", "CloseHandle(mapping)"];
const startsSockets = [
  "CoInitializeEx(0, 0)",
  "WSAStartup(0x202, data)",
  "socket(2, 1, 6)",
  "bind(listener, address, 16)",
];
const stopsSockets = ["closesocket(listener)", "WSACleanup()", "CoUninitialize()"];
const waits = "select(0, set, 0, 0, timeout)";
const serves = [
  "listen(listener, 0x7fffffff)",
  "SetConsoleCtrlHandler(handler, 1)",
  "GetModuleFileNameW(0, buffer, 260)",
  waits,
  "accept(listener, 0, 0)",
  "recv(connection, buffer, size, 0)",
  "send(connection, bytes, size, 0)",
  "shutdown(connection, 2)",
  "closesocket(connection)",
  waits,
];

async function serveOneAndStop(service) {
  await service.expectFor(answers.done, service.putBytes(algorithm, '{"output_trim_db":-1}'));
  await service.until("its next wait", () => {
    const closed = service.errors.lastIndexOf(".closesocket(");
    return closed !== -1 && service.errors.lastIndexOf(".select(") > closed ? true : undefined;
  });
  service.signal("SIGINT");
  assert.deepEqual(await service.waitForEnd(), { code: 0, signal: null });
}

if (isWine) {
  test("the descriptor is in the program once, as one wide text with its end", limits, () => {
    const image = fs.readFileSync(shippedService);
    const wanted = Buffer.from(`${descriptorText}\0`, "utf16le");
    const place = image.indexOf(wanted);
    assert.notEqual(place, -1);
    assert.equal(image.indexOf(wanted, place + 1), -1);
    const beginning = Buffer.from("D:P(", "utf16le");
    assert.equal(image.indexOf(beginning), place, "it begins nowhere earlier");
    assert.equal(image.indexOf(beginning, place + 1), -1, "it begins nowhere later");
  });

  test("the calls to the system have their arguments and their order", limits, async (t) => {
    // Keeps Wine's session alive: a program that begins one is traced together with all that belongs to it.
    await startEffect(t, uniqueMappingName());
    const env = callTrace;

    await t.test("a service that makes the mapping", async (row) => {
      const program = creatingService();
      const service = await startService(row, { program, env, token: null });
      await serveOneAndStop(service);
      const calls = await tracedCalls(service, program);
      assert.deepEqual(shownCalls(calls), [
        "BCryptGenRandom(0, buffer, 24, 2)",
        opens(service.mapping),
        ...makes(service.mapping),
        maps,
        ...startsSockets,
        ...serves,
        ...stopsSockets,
        ...letsGo,
      ]);
      // The error of the making tells whether another process was first, and is read behind the release.
      const made = calls.findIndex((call) => call.name === "CreateFileMappingW");
      assert.deepEqual(
        calls.slice(made, made + 3).map((call) => call.name),
        ["CreateFileMappingW", "LocalFree", "GetLastError"],
      );
    });

    await t.test("a service that opens the mapping", async (row) => {
      const mapping = uniqueMappingName();
      await startEffect(row, mapping, [], "mapping made");
      const service = await startService(row, { program: shippedService, mapping, env });
      await serveOneAndStop(service);
      assert.deepEqual(shownCalls(await tracedCalls(service, shippedService)), [
        opens(mapping),
        maps,
        ...startsSockets,
        ...serves,
        ...stopsSockets,
        ...letsGo,
      ]);
    });

    // Runs the service into its end and gives its calls.
    const callsOfRefused = async (row, program, code, port, mapping) => {
      const token = ["--token", "x".repeat(32)];
      const service = launch(row, program, [...serviceArguments(port, mapping), ...token], { env });
      assert.deepEqual(await service.waitForEnd(startLimitMs), { code, signal: null });
      assert.equal(service.output, "");
      return tracedCalls(service, program);
    };

    await t.test("a descriptor that the system refuses", async (row) => {
      const mapping = uniqueMappingName();
      const calls = await callsOfRefused(row, shippedService, 5, await freePort(), mapping);
      assert.deepEqual(shownCalls(calls), [
        opens(mapping),
        `ConvertStringSecurityDescriptorToSecurityDescriptorW(${descriptorText}, 1, descriptor, 0)`,
      ]);
    });

    // The count of looks is bounded, and only a record that may still become ready is waited for.
    /** @type {any[][]} */
    const unready = [
      ["unfinished", 100],
      ["magic", 100],
      ["version", 0],
      ["size", 0],
    ];
    for (const [fault, pauses] of unready) {
      await t.test(`a mapping with the fault ${fault}`, async (row) => {
        const mapping = uniqueMappingName();
        await startEffect(row, mapping, ["--fault", fault], "mapping made");
        const calls = await callsOfRefused(row, shippedService, 5, await freePort(), mapping);
        const pause = pauses > 0 ? ["Sleep(1)"] : [];
        assert.deepEqual(shownCalls(calls), [opens(mapping), maps, ...pause, ...letsGo]);
        assert.equal(calls.filter((call) => call.name === "Sleep").length, pauses);
      });
    }

    await t.test("a port that is taken", async (row) => {
      const holder = net.createServer();
      atEnd(row, () => holder.close());
      const port = await listen(holder);
      const mapping = uniqueMappingName();
      const calls = await callsOfRefused(row, creatingService(), 9, port, mapping);
      assert.deepEqual(shownCalls(calls), [
        opens(mapping),
        ...makes(mapping),
        maps,
        ...startsSockets,
        ...stopsSockets,
        ...letsGo,
      ]);
    });
  });
}
