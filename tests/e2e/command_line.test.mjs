// What the program refuses to start with, byte for byte, and in which order it looks.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';

import {
  creating_service,
  is_wine,
  make_directory,
  make_web_root,
  page_names,
  program_path_text,
  run,
  shipped_service,
} from './harness.mjs';

const usage =
  'Usage: velmora_control_demo [--port N] [--web-root PATH] [--token DEV_TOKEN] ' +
  '[--control-map Local\\NAME|Global\\NAME] [--capture-directory PATH] [--preset-directory PATH] ' +
  '[--account-service URL] [--open-browser] [--verbose] [--self-test]\n';
const invalid_port = 'Invalid port\n';
const short_token = 'A supplied development token must contain at least 32 characters\n';
const bad_name =
  'Unable to create shared control bridge: control mapping name must be Local\\ or Global\\ plus ASCII letters, ' +
  "digits, '.', '-' or '_'\n";

const separator = is_wine ? '\\' : '/';
const suite_limits = { timeout: 110_000, concurrency: 4 };
const missing_root = 'velmora-no-such-root';
const missing_index = `Unable to read ${quoted(`${missing_root}${separator}index.html`)}\n`;

function quoted(text) {
  return `"${text.replaceAll('\\', '\\\\').replaceAll('"', '\\"')}"`;
}

async function assert_refused(t, args, expected, code, options) {
  const ended = await run(t, shipped_service, args, options);
  assert.equal(ended.errors, expected);
  assert.equal(ended.output, '');
  assert.equal(ended.code, code);
}

// Runs a table of [arguments, standard error, exit code], several rows at a time.
async function check_table(t, rows) {
  const cwd = make_directory();
  await Promise.all(
    rows.map(([args, expected, code]) =>
      t.test(`${JSON.stringify(args)} ends with ${code}`, (row) => assert_refused(row, args, expected, code, { cwd })),
    ),
  );
}

test('a bad command line is refused with exit code 2', suite_limits, (t) =>
  check_table(t, [
    [['--bad'], usage, 2],
    [[''], usage, 2],
    [['17831'], usage, 2],
    [['--PORT', '80'], usage, 2],
    [['--port=80'], usage, 2],
    [['-port', '80'], usage, 2],
    [['--port'], usage, 2],
    [['--web-root'], usage, 2],
    [['--token'], usage, 2],
    [['--control-map'], usage, 2],
    [['--capture-directory'], usage, 2],
    [['--preset-directory'], usage, 2],
    [['--account-service'], usage, 2],
    [['--verbose', '--open-browser', '--bad'], usage, 2],
    [['--port', '80', 'x'], usage, 2],
    [['--port', '0'], invalid_port, 2],
    [['--port', '65536'], invalid_port, 2],
    [['--port', '+80'], invalid_port, 2],
    [['--port', '-80'], invalid_port, 2],
    [['--port', '80x'], invalid_port, 2],
    [['--port', ' 80'], invalid_port, 2],
    [['--port', '80 '], invalid_port, 2],
    [['--port', ''], invalid_port, 2],
    [['--port', '4294967376'], invalid_port, 2],
    [['--port', '99999999999999999999'], invalid_port, 2],
    [['--token', 'x'.repeat(31)], short_token, 2],
    [['--token', ''], short_token, 2],
  ]));

test('the first refusal counts and later options are never looked at', suite_limits, (t) =>
  check_table(t, [
    [['--port', '0', '--token', 'short'], invalid_port, 2],
    [['--token', 'short', '--bad'], short_token, 2],
    [['--bad', '--port', '0'], usage, 2],
    [['--port', '0', '--port', '80'], invalid_port, 2],
    [['--unknown', '--self-test'], usage, 2],
    [['--port', '0', '--self-test'], invalid_port, 2],
    [['--port', '--self-test'], invalid_port, 2],
  ]));

test('an accepted command line goes on to the pages', suite_limits, (t) => {
  const root = ['--web-root', missing_root];
  return check_table(t, [
    [[...root, '--port', '1'], missing_index, 3],
    [[...root, '--port', '65535'], missing_index, 3],
    [[...root, '--port', '00080'], missing_index, 3],
    [[...root, '--token', 'x'.repeat(32)], missing_index, 3],
    // Sixteen letters of two bytes each: bytes are counted.
    [[...root, '--token', 'é'.repeat(16)], missing_index, 3],
    [['--web-root', 'elsewhere', ...root], missing_index, 3],
    [[...root, '--control-map', 'not a name'], missing_index, 3],
    [['--web-root', '*', ...root], missing_index, 3],
    [['--web-root', ''], 'Unable to read "index.html"\n', 3],
    [['--web-root', 'ends/'], 'Unable to read "ends/index.html"\n', 3],
    [['--web-root', 'a "b" c\\d'], `Unable to read ${quoted(`a "b" c\\d${separator}index.html`)}\n`, 3],
    [['--web-root', '*'], `Unable to read ${quoted(`*${separator}index.html`)}\n`, 3],
    [[], `Unable to read ${quoted(`D:/proj/velmora/web${separator}index.html`)}\n`, 3],
  ]);
});

test('a page that is missing, empty or a directory ends the start with its path', suite_limits, async (t) => {
  const spoilers = {
    missing: () => {},
    empty: (file) => fs.writeFileSync(file, ''),
    'a directory': (file) => fs.mkdirSync(file),
  };
  const rows = [];
  for (const page of page_names) {
    for (const [how, spoil] of Object.entries(spoilers)) rows.push([page, how, spoil]);
  }
  await Promise.all(
    rows.map(([page, how, spoil]) =>
      t.test(`${page} ${how}`, (row) => {
        const directory = make_web_root({ [page]: null });
        spoil(path.join(directory, page));
        const root = program_path_text(directory);
        const expected = `Unable to read ${quoted(`${root}${separator}${page}`)}\n`;
        return assert_refused(row, ['--web-root', root], expected, 3);
      }),
    ),
  );
  await t.test('the first page in order is named when several are missing', (row) => {
    const directory = make_web_root({ 'advanced.html': null, 'help.html': '' });
    const root = program_path_text(directory);
    const expected = `Unable to read ${quoted(`${root}${separator}advanced.html`)}\n`;
    return assert_refused(row, ['--web-root', root], expected, 3);
  });
});

test('a bad name of the control map is refused with exit code 5', suite_limits, async (t) => {
  const root = program_path_text(make_web_root());
  const names = [
    '',
    'x',
    'local\\x',
    'GLOBAL\\x',
    'Local\\',
    'Global\\',
    'Local/x',
    'Global\\a b',
    'Global\\a/b',
    'Local\\a\\b',
    'Local\\é',
    `Local\\${'n'.repeat(235)}`,
    `Global\\${'n'.repeat(234)}`,
  ];
  await check_table(t, names.map((name) => [['--web-root', root, '--control-map', name], bad_name, 5]));
});

test('the self-test runs when it is reached', suite_limits, async (t) => {
  const passed = { code: 0, signal: null, output: 'Velmora control self-test passed\n', errors: '' };
  const rows = [
    ['--self-test'],
    ['--self-test', '--bad'],
    ['--self-test', '--port'],
    ['--port', '80', '--verbose', '--web-root', missing_root, '--self-test', '--port', '0'],
  ];
  for (const args of rows) {
    await t.test(JSON.stringify(args), async (row) => {
      assert.deepEqual(await run(row, creating_service(), args), passed);
    });
  }
  if (is_wine) {
    // Only here does a machine refuse the mapping, and so only here can the failed end be seen from outside.
    await t.test('it fails with exit code 1 where no mapping can be made', async (row) => {
      const failed = { code: 1, signal: null, output: 'Velmora control self-test failed\n', errors: '' };
      assert.deepEqual(await run(row, shipped_service, ['--self-test']), failed);
    });
  }
});
