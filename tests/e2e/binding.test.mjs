// The binding tool from outside: what it says, and what it changes in a machine's registry.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';

import {
  built_program,
  is_native,
  is_wine,
  make_directory,
  make_web_root,
  run,
  shipped_service,
} from './harness.mjs';
import {
  Machine,
  difference,
  dword_data,
  entries_of,
  export_text,
  hex_data,
  key_entry,
  list_data,
  records_path,
  render_path,
  text_data,
  value_entry,
  velmora_path,
  without_record_parents,
  wrap,
} from './registry.mjs';

const limits = { timeout: 120_000 };
const guid = '{6d0f6d3b-2c11-4f0a-9d7e-0c5b8f3ad2e1}';
const endpoint_key = `${render_path}\\${guid}`;
const fx_key = `${endpoint_key}\\FxProperties`;
const record_key = `${records_path}\\${guid}`;

const effect = '{631D9145-CACF-44D7-861B-5D82ADD8C84F}';
const foreign = '{A9DFDEC6-BAEC-4E5B-AF5D-8BB09F2E9EA4}';
const driver_effect = '{9063CBD4-3561-449D-8011-E21BBB69B9DB}';
const default_modes = [
  '{C18E2F7E-933D-4965-B7D1-1EEF228D2AF3}',
  '{4780004E-7133-41D8-8C74-660DADD2C0EE}',
  '{B26FEB0D-EC94-477C-9494-D1AB8E753F6E}',
  '{98951333-B9CD-48B1-A0A3-FF40682D73F7}',
  '{FC1CFC9B-B9D6-4CFA-B5E0-4BB2166878B2}',
  '{9CF2A70B-F377-403B-BD6B-360863E0355C}',
];
const driver_modes = default_modes.slice(0, 2);

const chain = '{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},14';
const slot = '{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},6';
const modes = '{d3993a3f-99c2-4402-b5ec-a92a0367664b},6';
const offload_modes = '{d3993a3f-99c2-4402-b5ec-a92a0367664b},12';
const driver_lists = [
  [modes, list_data(driver_modes)],
  [offload_modes, list_data(driver_modes.slice(0, 1))],
];

const restored = 'endpoint unbound and its original mode effect restored';
const moved =
  'endpoint bound; its existing mode effect was moved into the composite chain because the legacy slot suppresses it';
const not_opened =
  'the endpoint FxProperties key could not be opened for writing (run the control service elevated)';
const bad_id = 'endpoint id is not a render endpoint identifier';

// What must never change: values and keys beside those that binding is about, and another endpoint.
const bystander_values = [
  ['{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},5', text_data('{4CA87FC2-BFB6-47DD-8BAE-2D26683447C1}')],
  ['{d3993a3f-99c2-4402-b5ec-a92a0367664b},5', list_data(default_modes.slice(0, 1))],
];
const bystander_keys = [
  [`${fx_key}\\{b13412ee-07af-4c57-b08b-e327f8db085b}`, []],
  [`${fx_key}\\{b13412ee-07af-4c57-b08b-e327f8db085b}\\Default`, [[slot, text_data(driver_effect)]]],
  [`${fx_key}\\{b13412ee-07af-4c57-b08b-e327f8db085b}\\User`, [[chain, list_data([effect])]]],
  [`${endpoint_key}\\Properties`, [['{a45c254e-df1c-4efd-8020-67d146a850e0},2', text_data('Speakers')]]],
  [`${render_path}\\{6d0f6d3b-2c11-4f0a-9d7e-0c5b8f3ad2e2}\\FxProperties`, [[slot, text_data(driver_effect)]]],
];

// A machine with one endpoint to work on. Values of the effect key follow the bystanders in their order.
function machine_text(fx_values, record_values = null) {
  const keys = [...bystander_keys, [fx_key, [...bystander_values, ...fx_values]]];
  if (record_values) keys.push([record_key, record_values]);
  return export_text(keys);
}

const fx_entry = (name, data) => value_entry(fx_key, name, data);
// The keys above the records are made with the first record and stay.
const new_parents = (before) =>
  [key_entry(velmora_path), key_entry(records_path)].filter((entry) => !before.includes(`${entry}\r\n`));
const added_lists_entry = value_entry(record_key, 'AddedModeList', dword_data(1));
const moved_entry = (text) => value_entry(record_key, 'MigratedLegacyModeEffect', text_data(text));

function look_text(bound, entries, status = 0) {
  const lines = [`status ${status_text(status)}`, `fx_key_present true`, `bound ${bound}`];
  return [...lines, ...entries.map((entry) => `chain ${entry}`), ''].join('\n');
}

function status_text(status) {
  return `0x${status.toString(16).padStart(8, '0')}`;
}

async function assert_says(machine, args, output) {
  const end = await machine.run_tool(...args);
  const code = output.startsWith('status 0x00000000\n') ? 0 : 1;
  assert.deepEqual(end, { code, signal: null, output, errors: '' }, args.join(' '));
}

// Runs the tool, demands its status and detail, and gives what it changed.
async function change(machine, action, detail, status = 0, id = guid) {
  const before = await machine.export();
  await assert_says(machine, [action, id], `status ${status_text(status)}\ndetail ${detail}\n`);
  return difference(before, await machine.export());
}

// As `change`, for what must not change anything, not even how the machine is written.
async function change_nothing(machine, action, detail, status = 0, id = guid) {
  const before = await machine.export();
  const file = is_native ? fs.statSync(machine.file) : null;
  await change(machine, action, detail, status, id);
  assert.equal(await machine.export(), before);
  if (file) assert.equal(fs.statSync(machine.file).ino, file.ino, 'the file has not been written');
}

function sorted_difference({ removed = [], added = [] }) {
  return { removed: [...removed].sort(), added: [...added].sort() };
}

// ---- the roads ----

test('an endpoint without any list is bound and unbound without a trace', limits, async (t) => {
  const machine = await Machine.make(t, machine_text([]));
  const before = await machine.export();
  await assert_says(machine, ['look', guid], look_text(false, []));
  assert.equal(await machine.export(), before, 'a look changes nothing');

  const bound = await change(machine, 'bind', 'endpoint bound and a default-mode list was added');
  assert.deepEqual(bound, sorted_difference({
    added: [
      fx_entry(chain, list_data([effect])),
      fx_entry(modes, list_data(default_modes)),
      fx_entry(offload_modes, list_data(default_modes)),
      ...new_parents(before),
      key_entry(record_key),
      added_lists_entry,
    ],
  }));
  await assert_says(machine, ['look', guid], look_text(true, [effect]));
  await change_nothing(machine, 'bind', 'endpoint was already bound');

  await change(machine, 'unbind', 'endpoint unbound');
  const after = await machine.export();
  assert.deepEqual(difference(before, after), sorted_difference({ added: new_parents(before) }));
  assert.equal(without_record_parents(after), without_record_parents(before));
  await assert_says(machine, ['look', guid], look_text(false, []));
  await change_nothing(machine, 'unbind', 'endpoint was not bound');
});

test("a driver's effect is moved into the chain and goes back into its slot", limits, async (t) => {
  const values = [[chain, list_data([foreign])], ...driver_lists, [slot, text_data(driver_effect)]];
  const machine = await Machine.make(t, machine_text(values));
  const before = await machine.export();

  assert.deepEqual(await change(machine, 'bind', moved), sorted_difference({
    removed: [fx_entry(chain, list_data([foreign])), fx_entry(slot, text_data(driver_effect))],
    added: [
      fx_entry(chain, list_data([foreign, driver_effect, effect])),
      ...new_parents(before),
      key_entry(record_key),
      moved_entry(driver_effect),
    ],
  }));
  await assert_says(machine, ['look', guid], look_text(true, [foreign, driver_effect, effect]));
  await change_nothing(machine, 'bind', 'endpoint was already bound');

  await change(machine, 'unbind', restored);
  assert.equal(without_record_parents(await machine.export()), without_record_parents(before));
  await change_nothing(machine, 'unbind', 'endpoint was not bound');
});

test('an endpoint with lists of its driver keeps them', limits, async (t) => {
  const machine = await Machine.make(t, machine_text([[chain, list_data([foreign])], ...driver_lists]));
  const before = await machine.export();
  assert.deepEqual(await change(machine, 'bind', 'endpoint bound'), {
    removed: [fx_entry(chain, list_data([foreign]))],
    added: [fx_entry(chain, list_data([foreign, effect]))],
  });
  await change(machine, 'unbind', 'endpoint unbound');
  assert.equal(await machine.export(), before, 'nothing had to be remembered');
});

test('a bind writes anew the lists that it added and that have changed since', limits, async (t) => {
  const values = [[chain, list_data([effect.toLowerCase()])], [modes, list_data(driver_modes)]];
  const machine = await Machine.make(t, machine_text(values, [['AddedModeList', dword_data(1)]]));
  const refreshed = 'endpoint was already bound; refreshed the mode list';
  assert.deepEqual(await change(machine, 'bind', refreshed), sorted_difference({
    removed: [fx_entry(modes, list_data(driver_modes))],
    added: [fx_entry(modes, list_data(default_modes)), fx_entry(offload_modes, list_data(default_modes))],
  }));
  await change_nothing(machine, 'bind', 'endpoint was already bound');
  assert.deepEqual(await change(machine, 'unbind', 'endpoint unbound'), sorted_difference({
    removed: [
      fx_entry(chain, list_data([effect.toLowerCase()])),
      fx_entry(modes, list_data(default_modes)),
      fx_entry(offload_modes, list_data(default_modes)),
      key_entry(record_key),
      added_lists_entry,
    ],
  }));
});

test('a slot that names this effect stays', limits, async (t) => {
  const machine = await Machine.make(t, machine_text([...driver_lists, [slot, text_data(effect)]]));
  const before = await machine.export();
  assert.deepEqual(await change(machine, 'bind', 'endpoint bound'), {
    removed: [],
    added: [fx_entry(chain, list_data([effect]))],
  });
  await change(machine, 'unbind', 'endpoint unbound');
  assert.equal(await machine.export(), before);
});

// ---- ids ----

test('the bare GUID and the whole id reach the same endpoint and the same record', limits, async (t) => {
  const machine = await Machine.make(t, machine_text([[slot, text_data(driver_effect)]]));
  const before = await machine.export();
  const whole_id = `{0.0.0.00000000}.${guid}`;
  await change(machine, 'bind', moved, 0, whole_id);
  await assert_says(machine, ['look', whole_id], look_text(true, [driver_effect, effect]));
  await assert_says(machine, ['look', guid], look_text(true, [driver_effect, effect]));
  await change_nothing(machine, 'bind', 'endpoint was already bound');
  await change(machine, 'unbind', restored);
  assert.equal(without_record_parents(await machine.export()), without_record_parents(before));
  await change(machine, 'bind', moved);
  await change(machine, 'unbind', restored, 0, whole_id);
  await change_nothing(machine, 'unbind', 'endpoint was not bound', 0, whole_id);
});

test('an id without a GUID is refused', limits, async (t) => {
  const machine = await Machine.make(t, machine_text([]));
  const before = await machine.export();
  const ids = [
    '',
    'x',
    '.{',
    '{0.0.0.00000000}.{not-a-guid}',
    guid.slice(1, -1),
    guid.slice(0, -1),
    `${guid}x`,
    `${guid} `,
    guid.replace('6', 'g'),
    `${guid}.{0.0.0.00000000}`,
    '{'.repeat(70_000),
  ];
  for (const id of is_wine ? ids.slice(0, -1) : ids) {
    for (const action of ['bind', 'unbind']) {
      await assert_says(machine, [action, id], `status 0x80070057\ndetail ${bad_id}\n`);
    }
    await assert_says(machine, ['look', id], 'status 0x80070057\nfx_key_present false\nbound false\n');
  }
  assert.equal(await machine.export(), before);
});

test('an endpoint without the effect key is left alone', limits, async (t) => {
  const machine = await Machine.make(t, export_text([[`${endpoint_key}\\Properties`, []]]));
  for (const action of ['bind', 'unbind']) await change_nothing(machine, action, not_opened, 0x80070002);
  await assert_says(machine, ['look', guid], 'status 0x80070002\nfx_key_present false\nbound false\n');
});

// ---- odd values ----

const utf16 = (text) => Buffer.from(text, 'utf16le');

test('a chain of another type is never overwritten', limits, async (t) => {
  const rows = [
    ['REG_SZ', text_data(effect)],
    ['REG_EXPAND_SZ', hex_data(2, utf16(`${effect}\0`))],
    ['REG_BINARY', 'hex:00,00'],
    ['REG_DWORD', dword_data(0)],
  ];
  for (const [what, data] of rows) {
    await t.test(what, async (row) => {
      const machine = await Machine.make(row, machine_text([[chain, data], [slot, text_data(driver_effect)]]));
      for (const action of ['bind', 'unbind']) {
        await change_nothing(machine, action, 'the endpoint mode-effect chain could not be read', 0x8007070c);
      }
      await assert_says(machine, ['look', guid], look_text(false, [], 0x8007070c));
    });
  }
});

test('a chain of odd bytes is read up to its first empty entry', limits, async (t) => {
  // 64 KB and a little more, in entries of 78 bytes.
  const many = Array.from({ length: 841 }, (_, index) => `{${String(index).padStart(36, '0')}}`);
  // Wine's importer ends each text, and breaks down on one byte.
  const rows = [
    ['no terminator', utf16(`${foreign}\0${driver_effect}`), [foreign, driver_effect]],
    ['one terminator', utf16(`${foreign}\0`), [foreign]],
    ['an odd size', Buffer.concat([utf16(`${foreign}\0\0`), Buffer.from([0x41])]), [foreign]],
    ['an odd size without terminator', Buffer.concat([utf16(foreign), Buffer.from([0x41])]), [`${foreign}A`], is_native],
    ['entries behind the end', utf16(`${foreign}\0\0${driver_effect}\0\0`), [foreign]],
    ['an empty entry first', utf16(`\0${foreign}\0\0`), []],
    ['one byte', Buffer.from([0x41]), [], is_native],
    ['no bytes', Buffer.alloc(0), []],
    ['more than ASCII', utf16('Eff\u00e9ct \u6f22\0\0'), ['Eff?ct ?']],
    ['more than 64 KB', utf16(`${many.join('\0')}\0\0`), many],
  ];
  for (const [what, bytes, entries, runs = true] of rows) {
    if (!runs) continue;
    await t.test(what, async (row) => {
      const machine = await Machine.make(row, machine_text([[chain, hex_data(7, bytes)], ...driver_lists]));
      // The text comes out of the registry as the importer put it there: Wine's ends it.
      const data = entries_of(await machine.export()).find((entry) => entry.startsWith(`[${fx_key}] "${chain}"=`));
      if (is_native) assert.equal(data, fx_entry(chain, hex_data(7, bytes)));
      await assert_says(machine, ['look', guid], look_text(false, entries));
      assert.deepEqual(await change(machine, 'bind', 'endpoint bound'), {
        removed: [data],
        added: [fx_entry(chain, list_data([...entries, effect]))],
      });
    });
  }
});

test('a slot of odd bytes is a text up to its first NUL, or empty', limits, async (t) => {
  const rows = [
    ['REG_EXPAND_SZ', hex_data(2, utf16(`${driver_effect}\0`)), driver_effect],
    ['REG_MULTI_SZ', hex_data(7, utf16(`${driver_effect}\0${foreign}\0\0`)), driver_effect],
    ['no terminator', hex_data(1, utf16(driver_effect)), driver_effect],
    ['text behind a NUL', hex_data(1, utf16(`${driver_effect}\0${foreign}\0`)), driver_effect],
    ['an empty text', text_data(''), null],
    ['REG_DWORD', dword_data(0x41), null],
    ['REG_BINARY', `hex:${hex_data(0, utf16(driver_effect)).slice(7)}`, null],
  ];
  for (const [what, data, effect_there] of rows) {
    await t.test(what, async (row) => {
      const machine = await Machine.make(row, machine_text([...driver_lists, [slot, data]]));
      const before = await machine.export();
      await change(machine, 'bind', effect_there ? moved : 'endpoint bound');
      await assert_says(machine, ['look', guid], look_text(true, [...(effect_there ? [effect_there] : []), effect]));
      await change(machine, 'unbind', effect_there ? restored : 'endpoint unbound');
      // What was a text of another form comes back as a plain one.
      const stood = entries_of(before).find((entry) => entry.startsWith(`[${fx_key}] "${slot}"=`));
      const stands = effect_there ? fx_entry(slot, text_data(effect_there)) : stood;
      assert.deepEqual(
        difference(without_record_parents(before), without_record_parents(await machine.export())),
        stands === stood ? { removed: [], added: [] } : { removed: [stood], added: [stands] },
      );
    });
  }
});

// ---- a whole laptop ----

const vendor_modes = [default_modes[0], default_modes[1], default_modes[3]];

function read_laptop() {
  return fs.readFileSync(new URL('../machines/laptop.reg', import.meta.url), 'utf8');
}

const wrap_value = (name, data) => `${wrap(`"${name}"=${data}`)}\r\n`;

// The text with one key's block, its empty line included, put through `edit`.
function replace_in_key(text, key, edit) {
  const begin = text.indexOf(`[${key}]\r\n`);
  const end = text.indexOf('\r\n\r\n', begin) + 4;
  return text.slice(0, begin) + edit(text.slice(begin, end)) + text.slice(end);
}

test('a laptop is bound and unbound, and the text tells exactly what changed', limits, async (t) => {
  const laptop = read_laptop();
  const speakers = '{517f1efe-9874-44ab-b8c0-d341131d9da7}';
  const key = `${render_path}\\${speakers}\\FxProperties`;
  const record = `${records_path}\\${speakers}`;
  const vendor = '{33F5F288-07F0-4BD4-AFF1-35342E825CE1}';
  const machine = await Machine.make(t, laptop);
  const before = await machine.export();
  if (is_native) assert.equal(before, laptop);

  assert.deepEqual(await change(machine, 'bind', moved, 0, speakers), sorted_difference({
    removed: [value_entry(key, slot, text_data(vendor))],
    added: [
      value_entry(key, chain, list_data([vendor, effect])),
      value_entry(key, offload_modes, list_data(default_modes)),
      ...new_parents(before),
      key_entry(record),
      value_entry(record, 'MigratedLegacyModeEffect', text_data(vendor)),
      value_entry(record, 'AddedModeList', dword_data(1)),
    ],
  }));
  const bound = await machine.export();
  await change(machine, 'unbind', restored, 0, speakers);
  const after = await machine.export();
  assert.deepEqual(difference(bound, after), sorted_difference({
    removed: [
      value_entry(key, chain, list_data([vendor, effect])),
      // The record does not tell which of the two lists was there before: both go.
      value_entry(key, modes, list_data(vendor_modes)),
      value_entry(key, offload_modes, list_data(default_modes)),
      key_entry(record),
      value_entry(record, 'MigratedLegacyModeEffect', text_data(vendor)),
      value_entry(record, 'AddedModeList', dword_data(1)),
    ],
    added: [value_entry(key, slot, text_data(vendor))],
  }));

  // The whole text: the list is gone, and where values keep the order of their coming the slot stands last.
  const list_lines = wrap_value(modes, list_data(vendor_modes));
  const slot_line = wrap_value(slot, text_data(vendor));
  let expected = replace_in_key(before, key, (block) => block.replace(list_lines, ''));
  if (is_native) {
    expected = replace_in_key(expected, key, (block) => block.replace(slot_line, '').replace(/\r\n$/, `${slot_line}\r\n`));
  }
  assert.notEqual(expected, before);
  assert.equal(without_record_parents(after), without_record_parents(expected));
});

test("a second bind of the laptop puts this system's modes over the driver's", limits, async (t) => {
  const speakers = '{517f1efe-9874-44ab-b8c0-d341131d9da7}';
  const key = `${render_path}\\${speakers}\\FxProperties`;
  const machine = await Machine.make(t, read_laptop());
  await change(machine, 'bind', moved, 0, speakers);
  const refreshed = 'endpoint was already bound; refreshed the mode list';
  assert.deepEqual(await change(machine, 'bind', refreshed, 0, speakers), {
    removed: [value_entry(key, modes, list_data(vendor_modes))],
    added: [value_entry(key, modes, list_data(default_modes))],
  });
});

test("the laptop's other endpoints come back to the byte", limits, async (t) => {
  const rows = [
    ['a headset with an empty effect key', '{4a2b60cd-d30a-4b04-aa33-94d743a1fbf9}'],
    ['headphones with other effects', '{224f4790-924c-4a31-a961-c2115d0a2a43}'],
  ];
  const machine = await Machine.make(t, read_laptop());
  const before = await machine.export();
  for (const [what, id] of rows) {
    await t.test(what, async () => {
      await change(machine, 'bind', 'endpoint bound and a default-mode list was added', 0, id);
      await change(machine, 'unbind', 'endpoint unbound', 0, id);
      assert.equal(without_record_parents(await machine.export()), without_record_parents(before));
    });
  }
  await t.test('a microphone is no render endpoint', async () => {
    await change_nothing(machine, 'bind', not_opened, 0x80070002, '{ae22db8f-4b0c-488e-8414-26287ed209de}');
  });
});

// ---- the command line ----

test('a command line that names no action and endpoint is refused', limits, async (t) => {
  const rows = [
    [],
    ['look'],
    [guid],
    ['look', guid, guid],
    ['LOOK', guid],
    ['binding', guid],
    ['', guid],
    ['--help'],
  ];
  const machine = await Machine.make(t, machine_text([]));
  for (const args of rows) {
    assert.deepEqual(await machine.run_tool(...args), {
      code: 2,
      signal: null,
      output: '',
      errors: 'Usage: velmora_bind_endpoint look|bind|unbind ENDPOINT_ID\n',
    }, args.join(' '));
  }
});

// ---- the machine file, on Linux alone ----

if (is_native) {
  const tool = built_program('velmora_bind_endpoint');
  const refusal = (trouble) => ({
    code: 10,
    signal: null,
    output: '',
    errors: `Unable to read the machine ${trouble}\n`,
  });
  const service_arguments = (...more) => ['--port', '18999', '--web-root', make_web_root(), ...more];

  function write_machine(content) {
    const file = path.join(make_directory(), 'machine.reg');
    fs.writeFileSync(file, content);
    return file;
  }

  test('a malformed machine ends both programs, and stays as it is', limits, async (t) => {
    const line_of = (content, piece) => content.slice(0, content.indexOf(piece)).split('\r\n').length;
    const broken_value = machine_text([]).replace('="Speakers"', '=Speakers');
    const cut = `${export_text([[fx_key, []]]).trimEnd()}\r\n"a"=hex(7):41,\\`;
    const rows = [
      ['an empty file', '', 1],
      ['no export', 'REGEDIT4\r\n\r\n', 1],
      ['a value without a key', 'Windows Registry Editor Version 5.00\r\n\r\n"a"="b"\r\n', 3],
      ['a broken value', broken_value, line_of(broken_value, '=Speakers')],
      ['a file that ends within a value', cut, line_of(cut, '"a"=')],
    ];
    for (const [what, content, line] of rows) {
      await t.test(what, async (row) => {
        const file = write_machine(content);
        const env = { VELMORA_MACHINE: file };
        const { errors } = await run(row, tool, ['look', guid], { env });
        assert.match(errors, /^Unable to read the machine [^:]+:[0-9]+: [ -~]+\n$/);
        assert.ok(errors.includes(`${file}:${line}: `), `line ${line}: ${errors}`);
        const wanted = refusal(errors.slice('Unable to read the machine '.length, -1));
        for (const action of ['look', 'bind', 'unbind']) {
          assert.deepEqual(await run(row, tool, [action, guid], { env }), wanted);
        }
        assert.deepEqual(await run(row, shipped_service, service_arguments(), { env }), wanted);
        assert.equal(fs.readFileSync(file, 'latin1'), Buffer.from(content).toString('latin1'));
        assert.deepEqual(fs.readdirSync(path.dirname(file)), [path.basename(file)]);
      });
    }
  });

  test('what is no file that can be read ends both programs', limits, async (t) => {
    const directory = make_directory();
    const pipe = path.join(directory, 'pipe');
    execFileSync('mkfifo', [pipe]);
    const rows = [
      ['a directory', directory],
      ['a missing file', path.join(directory, 'missing.reg')],
      ['a pipe', pipe],
      ['a device', '/dev/zero'],
    ];
    for (const [what, file] of rows) {
      await t.test(what, async (row) => {
        const env = { VELMORA_MACHINE: file };
        const wanted = refusal(`${file}:0: the file cannot be read`);
        assert.deepEqual(await run(row, tool, ['bind', guid], { env }), wanted);
        assert.deepEqual(await run(row, shipped_service, service_arguments(), { env }), wanted);
      });
    }
  });

  test('the machine is read behind the options and before the pages', limits, async (t) => {
    const env = { VELMORA_MACHINE: write_machine('no export\n') };
    const wanted = refusal(
      `${env.VELMORA_MACHINE}:1: the first line is not "Windows Registry Editor Version 5.00"`,
    );
    const bad_option = await run(t, shipped_service, ['--no-such-option'], { env });
    assert.equal(bad_option.code, 2);
    assert.ok(!bad_option.errors.includes('machine'), bad_option.errors);
    const no_pages = ['--web-root', path.join(make_directory(), 'missing')];
    assert.deepEqual(await run(t, shipped_service, no_pages, { env }), wanted);
    assert.equal((await run(t, shipped_service, ['--self-test'], { env })).code, 0, 'the self-test needs no machine');
    assert.equal((await run(t, tool, ['look'], { env })).code, 2);
  });

  test('a file in UTF-16 stays one, and so do its mark and its line ends', limits, async (t) => {
    const text = machine_text([[slot, text_data(driver_effect)]]);
    const rows = [
      ['UTF-16 with mark', (lines) => Buffer.from(`\ufeff${lines}`, 'utf16le')],
      ['UTF-16 without mark', (lines) => Buffer.from(lines, 'utf16le')],
      ['UTF-8 with mark', (lines) => Buffer.from(`\ufeff${lines}`)],
      ['UTF-8 with LF', (lines) => Buffer.from(lines.replaceAll('\r\n', '\n'))],
    ];
    for (const [what, encode] of rows) {
      await t.test(what, async (row) => {
        const file = write_machine(encode(text));
        const env = { VELMORA_MACHINE: file };
        assert.equal((await run(row, tool, ['bind', guid], { env })).code, 0);
        const as_utf8 = await Machine.make(row, text);
        await assert_says(as_utf8, ['bind', guid], `status 0x00000000\ndetail ${moved}\n`);
        assert.deepEqual(fs.readFileSync(file), encode(await as_utf8.export()));
      });
    }
  });

  test('a key that opens for reading only is looked at and not changed', limits, async (t) => {
    const access_key = 'HKEY_LOCAL_MACHINE\\SOFTWARE\\VelmoraStandIn\\Access';
    const below_root = (key) => key.slice(key.indexOf('\\') + 1).replaceAll('\\', '\\\\');
    const machine_with = (granted, key = fx_key) =>
      export_text([
        ...bystander_keys,
        [fx_key, [[chain, list_data([foreign])], [slot, text_data(driver_effect)]]],
        [access_key, [[below_root(key), dword_data(granted)]]],
      ]);
    await t.test('reading only', async (row) => {
      const machine = await Machine.make(row, machine_with(0x20019));
      for (const action of ['bind', 'unbind']) await change_nothing(machine, action, not_opened, 0x80070005);
      await assert_says(machine, ['look', guid], look_text(false, [foreign]));
    });
    await t.test('nothing', async (row) => {
      const machine = await Machine.make(row, machine_with(0, endpoint_key));
      for (const action of ['bind', 'unbind']) await change_nothing(machine, action, not_opened, 0x80070005);
      await assert_says(machine, ['look', guid], 'status 0x80070005\nfx_key_present false\nbound false\n');
    });
    await t.test('the records only for reading: a bind goes on, and its unbind cannot restore', async (row) => {
      const machine = await Machine.make(row, machine_with(0x20019, 'HKEY_LOCAL_MACHINE\\SOFTWARE\\Velmora'));
      const bound = await change(machine, 'bind', moved);
      assert.deepEqual(bound.added.filter((entry) => entry.startsWith(`[${velmora_path}`)), []);
      await change(machine, 'unbind', 'endpoint unbound');
      await assert_says(machine, ['look', guid], look_text(false, [foreign, driver_effect]));
    });
  });

  test('the built-in machine stands where none is given, and is kept nowhere', limits, async (t) => {
    const [speakers, headphones] = ['{b7decc0c-5d96-4f7f-a65b-eda9cf0c26ef}', '{b37523a5-3b4a-4ee2-a463-513755ac0ecd}'];
    const microphone = '{566bf9d7-c55a-45f8-a1a6-e55e9b9b1325}';
    for (const env of [{ VELMORA_MACHINE: undefined }, { VELMORA_MACHINE: '' }]) {
      const says = async (action, id) => (await run(t, tool, [action, id], { env })).output;
      assert.equal(await says('look', speakers), look_text(false, []));
      assert.equal(await says('look', headphones), look_text(false, []));
      assert.match(await says('look', microphone), /^status 0x80070002\n/);
      assert.equal(await says('bind', speakers), `status 0x00000000\ndetail ${moved}\n`);
      assert.equal(await says('bind', headphones),
        'status 0x00000000\ndetail endpoint bound and a default-mode list was added\n');
      assert.equal(await says('look', speakers), look_text(false, []));
    }
  });
}
