// The calls to Windows that the restart of the audio service and the probes make, held one by one to the tables of
// calls.md by Wine's own call trace.
import assert from "node:assert/strict";
import test from "node:test";

import { documentedRoads, hex, low, mustBeNull, ownCalls, registryTrace } from "./call_trace.mjs";
import {
  Engine,
  algorithmLibrary,
  effectLibrary,
  installAudioService,
  numberData,
  registerEffect,
  registered,
} from "./engine.mjs";
import { builtProgram, creatingService, isWine, launch, startLimitMs, startService } from "./harness.mjs";
import { Machine, dwordData, exportText, listData, renderPath } from "./registry.mjs";

const guid = "{7e1f3c55-90a4-4a4e-b2a9-3d1c6f0e8a21}";
const effect = "{631D9145-CACF-44D7-861B-5D82ADD8C84F}";
const boundMachine = exportText([
  [`${renderPath}\\${guid}`, [["DeviceState", dwordData(1)]]],
  [
    `${renderPath}\\${guid}\\FxProperties`,
    [["{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},14", listData([effect])]],
  ],
]);

// ---- what is asked for ----

// The calls of a service that is asked once. `before` starts what the call is to meet.
/** @param {(service: import("./harness.mjs").Service) => Promise<unknown>} [before] */
async function serviceCalls(t, body, status = 200, before = undefined) {
  await Machine.make(t, boundMachine);
  const program = creatingService();
  const service = await startService(t, { program, env: registryTrace });
  await before?.(service);
  const answer = await service.ask("POST", "/api/v1/render/apo", body);
  assert.ok(answer.startsWith(`HTTP/1.1 ${status} `), answer);
  service.signal("SIGINT");
  await service.waitForEnd(startLimitMs);
  return ownCalls(service, program, ({ name }) => name === "OpenFileMappingW");
}

const bindBody = `{"attach":true,"endpoint_id":"${guid}"}`;

async function probeCalls(t) {
  const tool = builtProgram("velmora_print_engine");
  const program = launch(t, tool, [], { env: registryTrace });
  assert.deepEqual(await program.waitForEnd(startLimitMs), { code: 0, signal: null }, program.output);
  return ownCalls(program, tool, ({ name }) => name === "OpenProcessToken");
}

// For each table of the document: the rows of the calls that were made.
const roads = {
  "Restart of a service that stands still": async (t) => {
    await installAudioService(t, ["--start-ms", "500"]);
    return rowsOf(await serviceCalls(t, bindBody));
  },
  "Restart of a service that runs": async (t) => {
    await installAudioService(t, ["--stop-ms", "500", "--start-ms", "500"]);
    const start = async (service) => {
      const answer = await service.ask("POST", "/api/v1/render/apo", bindBody);
      assert.ok(answer.includes('"audio_restarted":true'), answer);
    };
    const rows = rowsOf(await serviceCalls(t, bindBody, 200, start));
    // The first restart has only started it.
    return rows.slice(rows.findLastIndex(([name]) => name === "OpenSCManagerW"));
  },
  "Restart of a service that is disabled": async (t) => {
    await installAudioService(t, ["--disabled"]);
    return rowsOf(await serviceCalls(t, bindBody));
  },
  "Restart where the service is missing": async (t) => rowsOf(await serviceCalls(t, bindBody)),
  "Probes, with an effect that is installed and loaded": async (t) => {
    await registerEffect(t, { effect: registered(effectLibrary), audio: numberData(1) });
    const engine = await Engine.start(t, [effectLibrary, algorithmLibrary]);
    const rows = rowsOf(await probeCalls(t), engine.process_id);
    await engine.stop();
    return rows;
  },
  "Probes, with nothing installed and no engine": async (t) => {
    await registerEffect(t, {});
    return rowsOf(await probeCalls(t));
  },
};

// ---- the document ----

const documented = documentedRoads(
  "Restart and probes, call by call",
  "| call | on | handed over | result |",
);

// ---- the calls ----

const localMachine = 0xffffffff80000002n;
const thisProcess = 0xffffffffffffffffn;
const invalidHandle = 0xffffffffffffffffn;

// A pointer leads to the buffer's size: Wine's function traces it, last in its note.
const notedSize = (call) => Number(call.note?.match(/=([0-9]+)\)$/)?.[1]);

function processText(argument, engineId) {
  return low(argument) === BigInt(engineId ?? -1) ? "the engine" : String(low(argument));
}

// What a call hands over. `on` is the place of the handle that it works on, and `gives` names the one that it gives.
const shown = {
  OpenSCManagerW: {
    gives: () => "manager",
    args([machine, database, access]) {
      mustBeNull(machine, database);
      return `no machine, no database, access ${hex(access)}`;
    },
  },
  OpenServiceW: {
    on: 0,
    gives: ([, name]) => name.text,
    args: ([, name, access]) => `${name.text}, access ${hex(access)}`,
  },
  EnumDependentServicesW: {
    on: 0,
    args([, state, buffer, size]) {
      mustBeNull(buffer, { value: low(size) });
      return `state ${low(state)}, no buffer`;
    },
  },
  ControlService: { on: 0, args: ([, control]) => `control ${low(control)}` },
  QueryServiceStatusEx: {
    on: 0,
    args: ([, level, , size]) => `level ${low(level)}, buffer of ${low(size)} bytes`,
  },
  StartServiceW: {
    on: 0,
    args([, count, texts]) {
      mustBeNull({ value: low(count) }, texts);
      return "no arguments";
    },
  },
  CloseServiceHandle: { on: 0, ends: true },
  Sleep: { args: ([milliseconds]) => `${low(milliseconds)} ms` },
  OpenProcessToken: {
    givesBehindPointer: "token",
    args([of, access]) {
      assert.equal(of.value, thisProcess);
      return `this process, access ${hex(access)}`;
    },
  },
  GetTokenInformation: {
    on: 0,
    args: ([, what, , size]) => `class ${low(what)}, buffer of ${low(size)} bytes`,
  },
  CreateToolhelp32Snapshot: {
    gives: () => "snapshot",
    args: ([what, of], call, engine) => `flags ${low(what)}, process ${processText(of, engine)}`,
  },
  Process32FirstW: { on: 0 },
  Process32NextW: { on: 0 },
  Module32FirstW: { on: 0 },
  Module32NextW: { on: 0 },
  OpenProcess: {
    gives: () => "process",
    args: ([access, inherit, of], call, engine) =>
      `access ${hex(access)}, inherit ${low(inherit)}, process ${processText(of, engine)}`,
  },
  QueryFullProcessImageNameW: { on: 0, args: ([, form]) => `flags ${low(form)}` },
  RegGetValueW: {
    args([key, path, name, flags], call) {
      assert.equal(key.value, localMachine);
      return `${path.text}, ${name.text ?? "default value"}, flags ${hex(flags)}, buffer of ${notedSize(call)} bytes`;
    },
  },
  CloseHandle: { on: 0, ends: true },
};

const watchedKind = /Service|SCManager|Snapshot|Process32|Module32|Token|OpenProcess|ProcessImage/;

// The rows of the calls. Calls of these kinds that the tables do not know are failures; handles of files are left out.
function rowsOf(calls, engineId) {
  const known = new Map();
  let behindPointer;
  const rows = [];
  for (const call of calls) {
    const { name, args, result } = call;
    const form = shown[name];
    if (!form) {
      assert.doesNotMatch(name, watchedKind, "a call that the tables do not know");
      continue;
    }
    const handle = form.on === undefined ? undefined : args[form.on].value;
    if (behindPointer && name === "GetTokenInformation") {
      known.set(handle, behindPointer);
      behindPointer = undefined;
    }
    if (handle !== undefined && !known.has(handle)) {
      assert.equal(name, "CloseHandle", "only files are closed that are not shown");
      continue;
    }
    const gives = form.gives && result !== 0n && result !== invalidHandle ? form.gives(args) : undefined;
    const resultText = gives ? "handle" : name === "Sleep" ? "" : String(result & 0xffffffffn);
    // What is bound, and what is remembered of it, has tables of its own.
    if (name !== "RegGetValueW" || !args[1].text.includes("DevBinding")) {
      rows.push([
        name,
        handle === undefined ? "" : known.get(handle),
        form.args?.(args, call, engineId) ?? "",
        resultText,
      ]);
    }
    if (gives) known.set(result, gives);
    if (form.givesBehindPointer && result !== 0n) behindPointer = form.givesBehindPointer;
    if (form.ends) known.delete(handle);
  }
  assert.deepEqual([...known.values(), behindPointer].filter(Boolean), [], "every handle has been closed");
  return withoutRepetition(rows);
}

// A walk and a wait take as many rounds as they take: what is the same as one or two rows above is left out.
function withoutRepetition(rows) {
  const same = (left, right) => left !== undefined && right.every((cell, index) => cell === left[index]);
  const kept = [];
  for (const row of rows) {
    const sleeps = row[0] === "QueryServiceStatusEx" && kept.at(-1)?.[0] === "Sleep";
    if (same(kept.at(-1), row)) continue;
    if (sleeps && same(kept.at(-2), row) && same(kept.at(-3), kept.at(-1))) {
      kept.pop();
      continue;
    }
    kept.push(row);
  }
  return kept;
}

test("each road has its table in the document", () => {
  assert.deepEqual(Object.keys(documented), Object.keys(roads));
});

if (isWine) {
  test(
    "the calls of the restart and the probes are those of the document",
    { timeout: 240_000 },
    async (t) => {
      for (const [road, calls] of Object.entries(roads)) {
        await t.test(road, async (row) => assert.deepEqual(await calls(row), documented[road]));
      }
    },
  );

  test("what is refused opens neither a key nor a service", { timeout: 90_000 }, async (t) => {
    for (const body of ['{"attach":1}', '{"attach":true,"endpoint_id":"{0.0.0.00000000}.{not-a-guid}"}']) {
      const calls = await serviceCalls(t, body, 400);
      assert.deepEqual(
        calls.map(({ name }) => name).filter((name) => /^(Reg|OpenSC|CoCreate)/.test(name)),
        [],
      );
    }
    const missing = guid.replace("a21}", "a22}");
    const calls = await serviceCalls(t, `{"attach":true,"endpoint_id":"${missing}"}`, 503);
    assert.deepEqual(
      calls.map(({ name }) => name).filter((name) => /^(RegOpen|OpenSC|CoCreate)/.test(name)),
      ["RegOpenKeyExW"],
    );
  });
}
