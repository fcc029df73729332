// The binding tool from outside: what it says, and what it changes in a machine's registry.
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import fs from "node:fs";
import path from "node:path";
import test from "node:test";

import {
  builtProgram,
  isNative,
  isWine,
  makeDirectory,
  makeWebRoot,
  run,
  shippedService,
  words,
} from "./harness.mjs";
import {
  Machine,
  difference,
  dwordData,
  entriesOf,
  exportText,
  hexData,
  keyEntry,
  listData,
  recordsPath,
  renderPath,
  textData,
  valueEntry,
  velmoraPath,
  withoutRecordParents,
  wrap,
} from "./registry.mjs";

const limits = { timeout: 120_000 };
const guid = "{6d0f6d3b-2c11-4f0a-9d7e-0c5b8f3ad2e1}";
const endpointKey = `${renderPath}\\${guid}`;
const fxKey = `${endpointKey}\\FxProperties`;
const recordKey = `${recordsPath}\\${guid}`;

const effect = "{631D9145-CACF-44D7-861B-5D82ADD8C84F}";
const foreign = "{A9DFDEC6-BAEC-4E5B-AF5D-8BB09F2E9EA4}";
const driverEffect = "{9063CBD4-3561-449D-8011-E21BBB69B9DB}";
const defaultModes = words`
  {C18E2F7E-933D-4965-B7D1-1EEF228D2AF3} {4780004E-7133-41D8-8C74-660DADD2C0EE}
  {B26FEB0D-EC94-477C-9494-D1AB8E753F6E} {98951333-B9CD-48B1-A0A3-FF40682D73F7}
  {FC1CFC9B-B9D6-4CFA-B5E0-4BB2166878B2} {9CF2A70B-F377-403B-BD6B-360863E0355C}
`;
const driverModes = defaultModes.slice(0, 2);

const chain = "{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},14";
const slot = "{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},6";
const modes = "{d3993a3f-99c2-4402-b5ec-a92a0367664b},6";
const offloadModes = "{d3993a3f-99c2-4402-b5ec-a92a0367664b},12";
const driverLists = [
  [modes, listData(driverModes)],
  [offloadModes, listData(driverModes.slice(0, 1))],
];

const restored = "endpoint unbound and its original mode effect restored";
const moved =
  "endpoint bound; its existing mode effect was moved into the composite chain because the legacy slot suppresses it";
const notOpened =
  "the endpoint FxProperties key could not be opened for writing (run the control service elevated)";
const badId = "endpoint id is not a render endpoint identifier";

// What must never change: values and keys beside those that binding is about, and another endpoint.
const bystanderValues = [
  ["{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},5", textData("{4CA87FC2-BFB6-47DD-8BAE-2D26683447C1}")],
  ["{d3993a3f-99c2-4402-b5ec-a92a0367664b},5", listData(defaultModes.slice(0, 1))],
];
const bystanderKeys = [
  [`${fxKey}\\{b13412ee-07af-4c57-b08b-e327f8db085b}`, []],
  [`${fxKey}\\{b13412ee-07af-4c57-b08b-e327f8db085b}\\Default`, [[slot, textData(driverEffect)]]],
  [`${fxKey}\\{b13412ee-07af-4c57-b08b-e327f8db085b}\\User`, [[chain, listData([effect])]]],
  [`${endpointKey}\\Properties`, [["{a45c254e-df1c-4efd-8020-67d146a850e0},2", textData("Speakers")]]],
  [`${renderPath}\\{6d0f6d3b-2c11-4f0a-9d7e-0c5b8f3ad2e2}\\FxProperties`, [[slot, textData(driverEffect)]]],
];

// A machine with one endpoint to work on. Values of the effect key follow the bystanders in their order.
function machineText(fxValues, /** @type {string[][] | null} */ recordValues = null) {
  const keys = [...bystanderKeys, [fxKey, [...bystanderValues, ...fxValues]]];
  if (recordValues) keys.push([recordKey, recordValues]);
  return exportText(keys);
}

const fxEntry = (name, data) => valueEntry(fxKey, name, data);
// The keys above the records are made with the first record and stay.
const newParents = (before) =>
  [keyEntry(velmoraPath), keyEntry(recordsPath)].filter((entry) => !before.includes(`${entry}\r\n`));
const addedListsEntry = valueEntry(recordKey, "AddedModeList", dwordData(1));
const movedEntry = (text) => valueEntry(recordKey, "MigratedLegacyModeEffect", textData(text));

function lookText(bound, entries, status = 0) {
  const lines = [`status ${statusText(status)}`, `fx_key_present true`, `bound ${bound}`];
  return [...lines, ...entries.map((entry) => `chain ${entry}`), ""].join("\n");
}

function statusText(status) {
  return `0x${status.toString(16).padStart(8, "0")}`;
}

async function assertSays(machine, args, output) {
  const end = await machine.runTool(...args);
  const code = output.startsWith("status 0x00000000\n") ? 0 : 1;
  assert.deepEqual(end, { code, signal: null, output, errors: "" }, args.join(" "));
}

// Runs the tool, demands its status and detail, and gives what it changed.
async function change(machine, action, detail, status = 0, id = guid) {
  const before = await machine.export();
  await assertSays(machine, [action, id], `status ${statusText(status)}\ndetail ${detail}\n`);
  return difference(before, await machine.export());
}

// As `change`, for what must not change anything, not even how the machine is written.
async function changeNothing(machine, action, detail, status = 0, id = guid) {
  const before = await machine.export();
  const file = isNative ? fs.statSync(machine.file) : null;
  await change(machine, action, detail, status, id);
  assert.equal(await machine.export(), before);
  if (file) assert.equal(fs.statSync(machine.file).ino, file.ino, "the file has not been written");
}

/** @param {{ removed?: string[], added?: string[] }} changes */
function sortedDifference({ removed = [], added = [] }) {
  return { removed: [...removed].sort(), added: [...added].sort() };
}

// ---- the roads ----

test("an endpoint without any list is bound and unbound without a trace", limits, async (t) => {
  const machine = await Machine.make(t, machineText([]));
  const before = await machine.export();
  await assertSays(machine, ["look", guid], lookText(false, []));
  assert.equal(await machine.export(), before, "a look changes nothing");

  const bound = await change(machine, "bind", "endpoint bound and a default-mode list was added");
  assert.deepEqual(
    bound,
    sortedDifference({
      added: [
        fxEntry(chain, listData([effect])),
        fxEntry(modes, listData(defaultModes)),
        fxEntry(offloadModes, listData(defaultModes)),
        ...newParents(before),
        keyEntry(recordKey),
        addedListsEntry,
      ],
    }),
  );
  await assertSays(machine, ["look", guid], lookText(true, [effect]));
  await changeNothing(machine, "bind", "endpoint was already bound");

  await change(machine, "unbind", "endpoint unbound");
  const after = await machine.export();
  assert.deepEqual(difference(before, after), sortedDifference({ added: newParents(before) }));
  assert.equal(withoutRecordParents(after), withoutRecordParents(before));
  await assertSays(machine, ["look", guid], lookText(false, []));
  await changeNothing(machine, "unbind", "endpoint was not bound");
});

test("a driver's effect is moved into the chain and goes back into its slot", limits, async (t) => {
  const values = [[chain, listData([foreign])], ...driverLists, [slot, textData(driverEffect)]];
  const machine = await Machine.make(t, machineText(values));
  const before = await machine.export();

  assert.deepEqual(
    await change(machine, "bind", moved),
    sortedDifference({
      removed: [fxEntry(chain, listData([foreign])), fxEntry(slot, textData(driverEffect))],
      added: [
        fxEntry(chain, listData([foreign, driverEffect, effect])),
        ...newParents(before),
        keyEntry(recordKey),
        movedEntry(driverEffect),
      ],
    }),
  );
  await assertSays(machine, ["look", guid], lookText(true, [foreign, driverEffect, effect]));
  await changeNothing(machine, "bind", "endpoint was already bound");

  await change(machine, "unbind", restored);
  assert.equal(withoutRecordParents(await machine.export()), withoutRecordParents(before));
  await changeNothing(machine, "unbind", "endpoint was not bound");
});

test("an endpoint with lists of its driver keeps them", limits, async (t) => {
  const machine = await Machine.make(t, machineText([[chain, listData([foreign])], ...driverLists]));
  const before = await machine.export();
  assert.deepEqual(await change(machine, "bind", "endpoint bound"), {
    removed: [fxEntry(chain, listData([foreign]))],
    added: [fxEntry(chain, listData([foreign, effect]))],
  });
  await change(machine, "unbind", "endpoint unbound");
  assert.equal(await machine.export(), before, "nothing had to be remembered");
});

test("a bind writes anew the lists that it added and that have changed since", limits, async (t) => {
  const values = [
    [chain, listData([effect.toLowerCase()])],
    [modes, listData(driverModes)],
  ];
  const machine = await Machine.make(t, machineText(values, [["AddedModeList", dwordData(1)]]));
  const refreshed = "endpoint was already bound; refreshed the mode list";
  assert.deepEqual(
    await change(machine, "bind", refreshed),
    sortedDifference({
      removed: [fxEntry(modes, listData(driverModes))],
      added: [fxEntry(modes, listData(defaultModes)), fxEntry(offloadModes, listData(defaultModes))],
    }),
  );
  await changeNothing(machine, "bind", "endpoint was already bound");
  assert.deepEqual(
    await change(machine, "unbind", "endpoint unbound"),
    sortedDifference({
      removed: [
        fxEntry(chain, listData([effect.toLowerCase()])),
        fxEntry(modes, listData(defaultModes)),
        fxEntry(offloadModes, listData(defaultModes)),
        keyEntry(recordKey),
        addedListsEntry,
      ],
    }),
  );
});

test("a slot that names this effect stays", limits, async (t) => {
  const machine = await Machine.make(t, machineText([...driverLists, [slot, textData(effect)]]));
  const before = await machine.export();
  assert.deepEqual(await change(machine, "bind", "endpoint bound"), {
    removed: [],
    added: [fxEntry(chain, listData([effect]))],
  });
  await change(machine, "unbind", "endpoint unbound");
  assert.equal(await machine.export(), before);
});

// ---- ids ----

test("the bare GUID and the whole id reach the same endpoint and the same record", limits, async (t) => {
  const machine = await Machine.make(t, machineText([[slot, textData(driverEffect)]]));
  const before = await machine.export();
  const wholeId = `{0.0.0.00000000}.${guid}`;
  await change(machine, "bind", moved, 0, wholeId);
  await assertSays(machine, ["look", wholeId], lookText(true, [driverEffect, effect]));
  await assertSays(machine, ["look", guid], lookText(true, [driverEffect, effect]));
  await changeNothing(machine, "bind", "endpoint was already bound");
  await change(machine, "unbind", restored);
  assert.equal(withoutRecordParents(await machine.export()), withoutRecordParents(before));
  await change(machine, "bind", moved);
  await change(machine, "unbind", restored, 0, wholeId);
  await changeNothing(machine, "unbind", "endpoint was not bound", 0, wholeId);
});

test("an id without a GUID is refused", limits, async (t) => {
  const machine = await Machine.make(t, machineText([]));
  const before = await machine.export();
  const ids = ["", ".{", guid.slice(1, -1), `${guid}x`, guid.replace("6", "g"), "{".repeat(70_000)];
  for (const id of isWine ? ids.slice(0, -1) : ids) {
    for (const action of ["bind", "unbind"]) {
      await assertSays(machine, [action, id], `status 0x80070057\ndetail ${badId}\n`);
    }
    await assertSays(machine, ["look", id], "status 0x80070057\nfx_key_present false\nbound false\n");
  }
  assert.equal(await machine.export(), before);
});

test("an endpoint without the effect key stays unchanged", limits, async (t) => {
  const machine = await Machine.make(t, exportText([[`${endpointKey}\\Properties`, []]]));
  for (const action of ["bind", "unbind"]) await changeNothing(machine, action, notOpened, 0x80070002);
  await assertSays(machine, ["look", guid], "status 0x80070002\nfx_key_present false\nbound false\n");
});

// ---- odd values ----

const utf16 = (text) => Buffer.from(text, "utf16le");

test("a chain of another type is never overwritten", limits, async (t) => {
  const rows = [
    ["REG_SZ", textData(effect)],
    ["REG_EXPAND_SZ", hexData(2, utf16(`${effect}\0`))],
    ["REG_BINARY", "hex:00,00"],
    ["REG_DWORD", dwordData(0)],
  ];
  for (const [what, data] of rows) {
    await t.test(what, async (row) => {
      const machine = await Machine.make(
        row,
        machineText([
          [chain, data],
          [slot, textData(driverEffect)],
        ]),
      );
      for (const action of ["bind", "unbind"]) {
        await changeNothing(machine, action, "the endpoint mode-effect chain could not be read", 0x8007070c);
      }
      await assertSays(machine, ["look", guid], lookText(false, [], 0x8007070c));
    });
  }
});

test("a chain of odd bytes is read up to its first empty entry", limits, async (t) => {
  // 64 KB and a little more, in entries of 78 bytes.
  const many = Array.from({ length: 841 }, (_, index) => `{${String(index).padStart(36, "0")}}`);
  // Wine's importer ends each text, and breaks down on one byte.
  /** @type {any[][]} */
  const rows = [
    ["no terminator", utf16(`${foreign}\0${driverEffect}`), [foreign, driverEffect]],
    ["one terminator", utf16(`${foreign}\0`), [foreign]],
    ["an odd size", Buffer.concat([utf16(`${foreign}\0\0`), Buffer.from([0x41])]), [foreign]],
    [
      "an odd size, no terminator",
      Buffer.concat([utf16(foreign), utf16("A").subarray(0, 1)]),
      [`${foreign}A`],
      isNative,
    ],
    ["entries behind the end", utf16(`${foreign}\0\0${driverEffect}\0\0`), [foreign]],
    ["an empty entry first", utf16(`\0${foreign}\0\0`), []],
    ["one byte", Buffer.from([0x41]), [], isNative],
    ["no bytes", Buffer.alloc(0), []],
    ["more than ASCII", utf16("Eff\u00e9ct \u6f22\0\0"), ["Eff?ct ?"]],
    ["more than 64 KB", utf16(`${many.join("\0")}\0\0`), many],
  ];
  for (const [what, bytes, entries, runs = true] of rows) {
    if (!runs) continue;
    await t.test(what, async (row) => {
      const machine = await Machine.make(row, machineText([[chain, hexData(7, bytes)], ...driverLists]));
      // The text comes out of the registry as the importer put it there: Wine's ends it.
      const start = `[${fxKey}] "${chain}"=`;
      const data = entriesOf(await machine.export()).find((entry) => entry.startsWith(start));
      if (isNative) assert.equal(data, fxEntry(chain, hexData(7, bytes)));
      await assertSays(machine, ["look", guid], lookText(false, entries));
      assert.deepEqual(await change(machine, "bind", "endpoint bound"), {
        removed: [data],
        added: [fxEntry(chain, listData([...entries, effect]))],
      });
    });
  }
});

test("a slot of odd bytes is a text up to its first NUL, or empty", limits, async (t) => {
  /** @type {any[][]} */
  const rows = [
    ["REG_EXPAND_SZ", hexData(2, utf16(`${driverEffect}\0`)), driverEffect],
    ["REG_MULTI_SZ", hexData(7, utf16(`${driverEffect}\0${foreign}\0\0`)), driverEffect],
    ["no terminator", hexData(1, utf16(driverEffect)), driverEffect],
    ["text behind a NUL", hexData(1, utf16(`${driverEffect}\0${foreign}\0`)), driverEffect],
    ["an empty text", textData(""), null],
    ["REG_DWORD", dwordData(0x41), null],
    ["REG_BINARY", `hex:${hexData(0, utf16(driverEffect)).slice(7)}`, null],
  ];
  for (const [what, data, effectThere] of rows) {
    await t.test(what, async (row) => {
      const machine = await Machine.make(row, machineText([...driverLists, [slot, data]]));
      const before = await machine.export();
      await change(machine, "bind", effectThere ? moved : "endpoint bound");
      const entries = effectThere ? [effectThere, effect] : [effect];
      await assertSays(machine, ["look", guid], lookText(true, entries));
      await change(machine, "unbind", effectThere ? restored : "endpoint unbound");
      // What was a text of another form comes back as a plain one.
      const original = entriesOf(before).find((entry) => entry.startsWith(`[${fxKey}] "${slot}"=`));
      const expected = effectThere ? fxEntry(slot, textData(effectThere)) : original;
      assert.deepEqual(
        difference(withoutRecordParents(before), withoutRecordParents(await machine.export())),
        expected === original ? { removed: [], added: [] } : { removed: [original], added: [expected] },
      );
    });
  }
});

// ---- a whole laptop ----

const vendorModes = [defaultModes[0], defaultModes[1], defaultModes[3]];

function readLaptop() {
  return fs.readFileSync(new URL("../machines/laptop.reg", import.meta.url), "utf8");
}

const wrapValue = (name, data) => `${wrap(`"${name}"=${data}`)}\r\n`;

// The text with one key's block, its empty line included, put through `edit`.
function replaceInKey(text, key, edit) {
  const begin = text.indexOf(`[${key}]\r\n`);
  const end = text.indexOf("\r\n\r\n", begin) + 4;
  return text.slice(0, begin) + edit(text.slice(begin, end)) + text.slice(end);
}

test("a laptop is bound and unbound, and the text shows exactly what changed", limits, async (t) => {
  const laptop = readLaptop();
  const speakers = "{517f1efe-9874-44ab-b8c0-d341131d9da7}";
  const key = `${renderPath}\\${speakers}\\FxProperties`;
  const record = `${recordsPath}\\${speakers}`;
  const vendor = "{33F5F288-07F0-4BD4-AFF1-35342E825CE1}";
  const machine = await Machine.make(t, laptop);
  const before = await machine.export();
  if (isNative) assert.equal(before, laptop);

  assert.deepEqual(
    await change(machine, "bind", moved, 0, speakers),
    sortedDifference({
      removed: [valueEntry(key, slot, textData(vendor))],
      added: [
        valueEntry(key, chain, listData([vendor, effect])),
        valueEntry(key, offloadModes, listData(defaultModes)),
        ...newParents(before),
        keyEntry(record),
        valueEntry(record, "MigratedLegacyModeEffect", textData(vendor)),
        valueEntry(record, "AddedModeList", dwordData(1)),
      ],
    }),
  );
  const bound = await machine.export();
  await change(machine, "unbind", restored, 0, speakers);
  const after = await machine.export();
  assert.deepEqual(
    difference(bound, after),
    sortedDifference({
      removed: [
        valueEntry(key, chain, listData([vendor, effect])),
        // The record does not hold which of the two lists was there before: both go.
        valueEntry(key, modes, listData(vendorModes)),
        valueEntry(key, offloadModes, listData(defaultModes)),
        keyEntry(record),
        valueEntry(record, "MigratedLegacyModeEffect", textData(vendor)),
        valueEntry(record, "AddedModeList", dwordData(1)),
      ],
      added: [valueEntry(key, slot, textData(vendor))],
    }),
  );

  // The whole text: the list is gone, and where values keep the order of their coming the slot is last.
  const listLines = wrapValue(modes, listData(vendorModes));
  const slotLine = wrapValue(slot, textData(vendor));
  let expected = replaceInKey(before, key, (block) => block.replace(listLines, ""));
  if (isNative) {
    expected = replaceInKey(expected, key, (block) =>
      block.replace(slotLine, "").replace(/\r\n$/, `${slotLine}\r\n`),
    );
  }
  assert.notEqual(expected, before);
  assert.equal(withoutRecordParents(after), withoutRecordParents(expected));
});

test("a second bind of the laptop puts this system's modes over the driver's", limits, async (t) => {
  const speakers = "{517f1efe-9874-44ab-b8c0-d341131d9da7}";
  const key = `${renderPath}\\${speakers}\\FxProperties`;
  const machine = await Machine.make(t, readLaptop());
  await change(machine, "bind", moved, 0, speakers);
  const refreshed = "endpoint was already bound; refreshed the mode list";
  assert.deepEqual(await change(machine, "bind", refreshed, 0, speakers), {
    removed: [valueEntry(key, modes, listData(vendorModes))],
    added: [valueEntry(key, modes, listData(defaultModes))],
  });
});

test("the laptop's other endpoints come back to the byte", limits, async (t) => {
  const rows = [
    ["a headset with an empty effect key", "{4a2b60cd-d30a-4b04-aa33-94d743a1fbf9}"],
    ["headphones with other effects", "{224f4790-924c-4a31-a961-c2115d0a2a43}"],
  ];
  const machine = await Machine.make(t, readLaptop());
  const before = await machine.export();
  for (const [what, id] of rows) {
    await t.test(what, async () => {
      await change(machine, "bind", "endpoint bound and a default-mode list was added", 0, id);
      await change(machine, "unbind", "endpoint unbound", 0, id);
      assert.equal(withoutRecordParents(await machine.export()), withoutRecordParents(before));
    });
  }
  await t.test("a microphone is no render endpoint", async () => {
    await changeNothing(machine, "bind", notOpened, 0x80070002, "{ae22db8f-4b0c-488e-8414-26287ed209de}");
  });
});

// ---- the command line ----

test("a command line that names no action and endpoint is refused", limits, async (t) => {
  const errors = "Usage: velmora_bind_endpoint look|bind|unbind ENDPOINT_ID\n";
  const rows = [[], [guid], ["look", guid, guid], ["LOOK", guid], ["--help"]];
  const machine = await Machine.make(t, machineText([]));
  for (const args of rows) {
    const wanted = { code: 2, signal: null, output: "", errors };
    assert.deepEqual(await machine.runTool(...args), wanted, args.join(" "));
  }
});

// ---- the machine file, on Linux only ----

if (isNative) {
  const tool = builtProgram("velmora_bind_endpoint");
  const refusal = (trouble) => ({
    ...{ code: 10, signal: null, output: "", errors: `Unable to read the machine ${trouble}\n` },
  });
  const serviceArguments = (...more) => ["--port", "18999", "--web-root", makeWebRoot(), ...more];

  function writeMachine(content) {
    const file = path.join(makeDirectory(), "machine.reg");
    fs.writeFileSync(file, content);
    return file;
  }

  test("a malformed machine ends both programs, and stays as it is", limits, async (t) => {
    const lineOf = (content, piece) => content.slice(0, content.indexOf(piece)).split("\r\n").length;
    const brokenValue = machineText([]).replace('="Speakers"', "=Speakers");
    const cut = `${exportText([[fxKey, []]]).trimEnd()}\r\n"a"=hex(7):41,\\`;
    const rows = [
      ["an empty file", "", 1],
      ["no export", "REGEDIT4\r\n\r\n", 1],
      ["a value without a key", 'Windows Registry Editor Version 5.00\r\n\r\n"a"="b"\r\n', 3],
      ["a broken value", brokenValue, lineOf(brokenValue, "=Speakers")],
      ["a file that ends within a value", cut, lineOf(cut, '"a"=')],
    ];
    for (const [what, content, line] of rows) {
      await t.test(what, async (row) => {
        const file = writeMachine(content);
        const env = { VELMORA_MACHINE: file };
        const { errors } = await run(row, tool, ["look", guid], { env });
        assert.match(errors, /^Unable to read the machine [^:]+:[0-9]+: [ -~]+\n$/);
        assert.ok(errors.includes(`${file}:${line}: `), `line ${line}: ${errors}`);
        const wanted = refusal(errors.slice("Unable to read the machine ".length, -1));
        for (const action of ["look", "bind", "unbind"]) {
          assert.deepEqual(await run(row, tool, [action, guid], { env }), wanted);
        }
        assert.deepEqual(await run(row, shippedService, serviceArguments(), { env }), wanted);
        assert.equal(fs.readFileSync(file, "latin1"), Buffer.from(content).toString("latin1"));
        assert.deepEqual(fs.readdirSync(path.dirname(file)), [path.basename(file)]);
      });
    }
  });

  test("what is no file that can be read ends both programs", limits, async (t) => {
    const directory = makeDirectory();
    const pipe = path.join(directory, "pipe");
    execFileSync("mkfifo", [pipe]);
    const rows = [
      ["a directory", directory],
      ["a missing file", path.join(directory, "missing.reg")],
      ["a pipe", pipe],
      ["a device", "/dev/zero"],
    ];
    for (const [what, file] of rows) {
      await t.test(what, async (row) => {
        const env = { VELMORA_MACHINE: file };
        const wanted = refusal(`${file}:0: the file cannot be read`);
        assert.deepEqual(await run(row, tool, ["bind", guid], { env }), wanted);
        assert.deepEqual(await run(row, shippedService, serviceArguments(), { env }), wanted);
      });
    }
  });

  test("the machine is read behind the options and before the pages", limits, async (t) => {
    const env = { VELMORA_MACHINE: writeMachine("no export\n") };
    const trouble = 'the first line is not "Windows Registry Editor Version 5.00"';
    const wanted = refusal(`${env.VELMORA_MACHINE}:1: ${trouble}`);
    const badOption = await run(t, shippedService, ["--no-such-option"], { env });
    assert.equal(badOption.code, 2);
    assert.ok(!badOption.errors.includes("machine"), badOption.errors);
    const noPages = ["--web-root", path.join(makeDirectory(), "missing")];
    assert.deepEqual(await run(t, shippedService, noPages, { env }), wanted);
    const selfTest = await run(t, shippedService, ["--self-test"], { env });
    assert.equal(selfTest.code, 0, "the self-test needs no machine");
    assert.equal((await run(t, tool, ["look"], { env })).code, 2);
  });

  test("a file in UTF-16 stays one, and so do its mark and its line ends", limits, async (t) => {
    const text = machineText([[slot, textData(driverEffect)]]);
    /** @type {any[][]} */
    const rows = [
      ["UTF-16 with mark", (lines) => Buffer.from(`\ufeff${lines}`, "utf16le")],
      ["UTF-16 without mark", (lines) => Buffer.from(lines, "utf16le")],
      ["UTF-8 with mark", (lines) => Buffer.from(`\ufeff${lines}`)],
      ["UTF-8 with LF", (lines) => Buffer.from(lines.replaceAll("\r\n", "\n"))],
    ];
    for (const [what, encode] of rows) {
      await t.test(what, async (row) => {
        const file = writeMachine(encode(text));
        const env = { VELMORA_MACHINE: file };
        assert.equal((await run(row, tool, ["bind", guid], { env })).code, 0);
        const asUtf8 = await Machine.make(row, text);
        await assertSays(asUtf8, ["bind", guid], `status 0x00000000\ndetail ${moved}\n`);
        assert.deepEqual(fs.readFileSync(file), encode(await asUtf8.export()));
      });
    }
  });

  test("a key that opens for reading only is looked at and not changed", limits, async (t) => {
    const accessKey = "HKEY_LOCAL_MACHINE\\SOFTWARE\\VelmoraStandIn\\Access";
    const belowRoot = (key) => key.slice(key.indexOf("\\") + 1).replaceAll("\\", "\\\\");
    const values = Object.entries({ [chain]: listData([foreign]), [slot]: textData(driverEffect) });
    const machineWith = (granted, key = fxKey) =>
      exportText([...bystanderKeys, [fxKey, values], [accessKey, [[belowRoot(key), dwordData(granted)]]]]);
    await t.test("reading only", async (row) => {
      const machine = await Machine.make(row, machineWith(0x20019));
      for (const action of ["bind", "unbind"]) await changeNothing(machine, action, notOpened, 0x80070005);
      await assertSays(machine, ["look", guid], lookText(false, [foreign]));
    });
    await t.test("nothing", async (row) => {
      const machine = await Machine.make(row, machineWith(0, endpointKey));
      for (const action of ["bind", "unbind"]) await changeNothing(machine, action, notOpened, 0x80070005);
      await assertSays(machine, ["look", guid], "status 0x80070005\nfx_key_present false\nbound false\n");
    });
    await t.test("read-only records: a bind goes on, and its unbind cannot restore", async (row) => {
      const machine = await Machine.make(row, machineWith(0x20019, "HKEY_LOCAL_MACHINE\\SOFTWARE\\Velmora"));
      const bound = await change(machine, "bind", moved);
      assert.ok(!bound.added.some((entry) => entry.startsWith(`[${velmoraPath}`)));
      await change(machine, "unbind", "endpoint unbound");
      await assertSays(machine, ["look", guid], lookText(false, [foreign, driverEffect]));
    });
  });

  test("without a machine file the built-in machine is used, and kept nowhere", limits, async (t) => {
    const speakers = "{b7decc0c-5d96-4f7f-a65b-eda9cf0c26ef}";
    const headphones = "{b37523a5-3b4a-4ee2-a463-513755ac0ecd}";
    const microphone = "{566bf9d7-c55a-45f8-a1a6-e55e9b9b1325}";
    for (const env of [{ VELMORA_MACHINE: undefined }, { VELMORA_MACHINE: "" }]) {
      const says = async (action, id) => (await run(t, tool, [action, id], { env })).output;
      assert.equal(await says("look", speakers), lookText(false, []));
      assert.equal(await says("look", headphones), lookText(false, []));
      assert.match(await says("look", microphone), /^status 0x80070002\n/);
      assert.equal(await says("bind", speakers), `status 0x00000000\ndetail ${moved}\n`);
      assert.equal(
        await says("bind", headphones),
        "status 0x00000000\ndetail endpoint bound and a default-mode list was added\n",
      );
      assert.equal(await says("look", speakers), lookText(false, []));
    }
  });
}
