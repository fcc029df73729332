// The calls to Windows that binding makes, held one by one to the tables of calls.md by Wine's own call trace.
import assert from "node:assert/strict";
import test from "node:test";

import { documentedRoads, hex, low, mustBeNull, ownCalls, registryTrace } from "./call_trace.mjs";
import { builtProgram, isWine, launch, startLimitMs, words } from "./harness.mjs";
import {
  Machine,
  dwordData,
  exportText,
  hexData,
  listData,
  recordsPath,
  renderPath,
  textData,
} from "./registry.mjs";

const guid = "{2f8c1f7e-7d0c-4a53-8a86-5b1a0e6c9d43}";
const fxKey = `${renderPath}\\${guid}\\FxProperties`;
const effect = "{631D9145-CACF-44D7-861B-5D82ADD8C84F}";
const driverEffect = "{9063CBD4-3561-449D-8011-E21BBB69B9DB}";
const foreign = "{A9DFDEC6-BAEC-4E5B-AF5D-8BB09F2E9EA4}";
const defaultModes = words`
  {C18E2F7E-933D-4965-B7D1-1EEF228D2AF3} {4780004E-7133-41D8-8C74-660DADD2C0EE}
  {B26FEB0D-EC94-477C-9494-D1AB8E753F6E} {98951333-B9CD-48B1-A0A3-FF40682D73F7}
  {FC1CFC9B-B9D6-4CFA-B5E0-4BB2166878B2} {9CF2A70B-F377-403B-BD6B-360863E0355C}
`;
const chain = (...entries) => ["{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},14", listData(entries)];
const slot = ["{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},6", textData(driverEffect)];
const modes = (entries) => ["{d3993a3f-99c2-4402-b5ec-a92a0367664b},6", listData(entries)];
const offloadModes = (entries) => ["{d3993a3f-99c2-4402-b5ec-a92a0367664b},12", listData(entries)];
const driverLists = [modes(defaultModes.slice(0, 2)), offloadModes(defaultModes.slice(0, 1))];
const oddChain = hexData(7, Buffer.concat([Buffer.from(`${foreign}\0\0`, "utf16le"), Buffer.from([0x41])]));

const addedLists = ["AddedModeList", dwordData(1)];
const movedEffect = ["MigratedLegacyModeEffect", textData(driverEffect)];

// For each table of the document: what the endpoint and its record hold, and what the tool is asked for.
const roads = {
  Look: { fx: [chain(effect)], action: "look" },
  "Look at a list of an odd size": { fx: [[chain()[0], oddChain]], action: "look" },
  "Look at an endpoint without the effect key": { action: "look", code: 1 },
  "Bind, both mode lists missing": { fx: [], action: "bind" },
  "Bind, with an effect to be moved": { fx: [chain(foreign), slot, ...driverLists], action: "bind" },
  "Bind, with nothing to do": { fx: [chain(effect), ...driverLists], action: "bind" },
  "Bind, with a mode list to be refreshed": {
    fx: [chain(effect), modes(defaultModes), offloadModes(defaultModes.slice(0, 1))],
    record: [addedLists],
    action: "bind",
  },
  Unbind: { fx: [chain(foreign, effect), ...driverLists], action: "unbind" },
  "Unbind, with an effect to be restored and mode lists to be removed": {
    fx: [chain(driverEffect, effect), modes(defaultModes), offloadModes(defaultModes)],
    record: [addedLists, movedEffect],
    action: "unbind",
  },
  "Unbind, with nothing to do": { fx: [chain(foreign)], action: "unbind" },
};

// ---- the document ----

const shortNames = [
  [`${renderPath.replace("HKEY_LOCAL_MACHINE\\", "")}\\${guid}\\FxProperties`, "ENDPOINT"],
  [`${recordsPath.replace("HKEY_LOCAL_MACHINE\\", "")}\\${guid}`, "RECORD"],
  [recordsPath.replace("HKEY_LOCAL_MACHINE\\", ""), "RECORDS"],
  [guid, "GUID"],
];

const documented = documentedRoads(
  "Binding, call by call",
  "| call | key | path or value | handed over | result |",
);

// ---- the calls ----

const localMachine = 0xffffffff80000002n;

function keyText({ value }, known) {
  if (value === localMachine) return "HKEY_LOCAL_MACHINE";
  return known.get(value) ?? "unknown";
}

function short(text) {
  return shortNames.find(([long]) => long === text)?.[1] ?? text;
}

// A pointer leads to the buffer's size: Wine's function traces it, last in its note.
function bufferText(call, buffer) {
  const size = Number(call.note?.match(/=([0-9]+)\)$/)?.[1]);
  assert.ok(Number.isInteger(size), `the note names the size: ${call.note}`);
  if (buffer.value !== 0n) return `buffer of ${size} bytes`;
  assert.equal(size, 0);
  return "no buffer";
}

// What a call is about and what it hands over, as in the document.
const shown = {
  RegOpenKeyExW: ([key, path, options, access], known) => {
    assert.equal(low(options), 0n);
    return [keyText(key, known), short(path.text), `options 0, access ${hex(access)}`];
  },
  RegCreateKeyExW: ([key, path, reserved, className, options, access, security, , disposition], known) => {
    mustBeNull({ value: low(reserved) }, className, security, disposition);
    return [
      keyText(key, known),
      short(path.text),
      `options ${low(options)}, access ${hex(access)}, no class, no security`,
    ];
  },
  RegQueryValueExW: ([key, name, reserved, , buffer], known, call) => {
    mustBeNull(reserved);
    return [keyText(key, known), name.text, bufferText(call, buffer)];
  },
  RegGetValueW: ([key, path, name, flags, , buffer], known, call) => [
    keyText(key, known),
    `${short(path.text)}, ${name.text}`,
    `flags ${hex(flags)}, ${bufferText(call, buffer)}`,
  ],
  RegSetValueExW: ([key, name, reserved, type, , size], known) => {
    mustBeNull({ value: low(reserved) });
    return [keyText(key, known), name.text, `type ${low(type)}, ${low(size)} bytes`];
  },
  RegDeleteValueW: ([key, name], known) => [keyText(key, known), name.text, ""],
  RegDeleteKeyW: ([key, name], known) => [keyText(key, known), short(name.text), ""],
  RegCloseKey: ([key], known) => [keyText(key, known), "", ""],
  StringFromGUID2: ([, , count]) => ["", "", `buffer of ${low(count)} characters`],
};

const opening = ["RegOpenKeyExW", "RegCreateKeyExW"];

// The rows of the calls. Every call to the registry is one, so that one more than expected is seen.
function rowsOf(calls) {
  const known = new Map();
  // A pointer leads to a new handle: the next call with a handle that nobody knows has the one just opened.
  let opened;
  const rows = [];
  for (const call of calls) {
    const { name, args, result } = call;
    if (!shown[name]) {
      assert.doesNotMatch(name, /^(Reg|SHReg|NtCreateKey|NtOpenKey)/, "a call that the tables do not know");
      continue;
    }
    const handle = args[0].value;
    if (opened && name !== "StringFromGUID2" && handle !== localMachine && !known.has(handle)) {
      known.set(handle, opened);
      opened = undefined;
    }
    rows.push([name, ...shown[name](args, known, call), String(result & 0xffffffffn)]);
    if (opening.includes(name)) {
      assert.equal(opened, undefined, "a key is used before the next one is opened");
      if (result === 0n) opened = short(args[1].text);
    }
    if (name === "RegCloseKey") known.delete(handle);
  }
  assert.deepEqual([...known.values(), opened].filter(Boolean), [], "every key has been closed");
  return rows;
}

test("each road has its table in the document", () => {
  assert.deepEqual(Object.keys(documented), Object.keys(roads));
});

if (isWine) {
  test("the calls to Windows are those of the document, one by one", { timeout: 180_000 }, async (t) => {
    const tool = builtProgram("velmora_bind_endpoint");
    for (const [road, { fx, record, action, code = 0 }] of Object.entries(roads)) {
      await t.test(road, async (row) => {
        // The key above the records is there, as it is once an endpoint has been bound.
        const keys = [
          [recordsPath, []],
          [fx ? fxKey : `${renderPath}\\${guid}\\Properties`, fx ?? []],
        ];
        if (record) keys.push([`${recordsPath}\\${guid}`, record]);
        await Machine.make(row, exportText(keys));
        const program = launch(row, tool, [action, guid], { env: registryTrace });
        assert.deepEqual(await program.waitForEnd(startLimitMs), { code, signal: null }, program.output);
        const calls = await ownCalls(
          program,
          tool,
          ({ name, args }) => name === "RegOpenKeyExW" && args[1].text?.includes(guid) === true,
        );
        assert.deepEqual(rowsOf(calls), documented[road]);
      });
    }
  });
}
