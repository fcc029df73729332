// What the program refuses to start with, byte for byte, and in which order it looks.
import assert from "node:assert/strict";
import fs from "node:fs";
import path from "node:path";
import test from "node:test";

import {
  creatingService,
  isWine,
  makeDirectory,
  makeWebRoot,
  pageNames,
  programPathText,
  run,
  shippedService,
} from "./harness.mjs";

const usage =
  "Usage: velmora_control_demo [--port N] [--web-root PATH] [--token DEV_TOKEN] " +
  "[--control-map Local\\NAME|Global\\NAME] [--capture-directory PATH] [--preset-directory PATH] " +
  "[--account-service URL] [--open-browser] [--verbose] [--self-test]\n";
const invalidPort = "Invalid port\n";
const shortToken = "A supplied development token must contain at least 32 characters\n";
const badName =
  "Unable to create shared control bridge: control mapping name must be Local\\ or Global\\ plus ASCII letters, " +
  "digits, '.', '-' or '_'\n";

const separator = isWine ? "\\" : "/";
const suiteLimits = { timeout: 110_000, concurrency: 4 };
const missingRoot = "velmora-no-such-root";
const missingIndex = `Unable to read ${quoted(`${missingRoot}${separator}index.html`)}\n`;

function quoted(text) {
  return `"${text.replaceAll("\\", "\\\\").replaceAll('"', '\\"')}"`;
}

async function assertRefused(t, args, expected, code, options) {
  const ended = await run(t, shippedService, args, options);
  assert.equal(ended.errors, expected);
  assert.equal(ended.output, "");
  assert.equal(ended.code, code);
}

// Runs a table of [arguments, standard error, exit code], several rows at a time.
async function checkTable(t, rows) {
  const cwd = makeDirectory();
  await Promise.all(
    rows.map(([args, expected, code]) =>
      t.test(`${JSON.stringify(args)} ends with ${code}`, (row) =>
        assertRefused(row, args, expected, code, { cwd }),
      ),
    ),
  );
}

test("a bad command line is refused with exit code 2", suiteLimits, (t) =>
  checkTable(t, [
    [["--bad"], usage, 2],
    [[""], usage, 2],
    [["17831"], usage, 2],
    [["--PORT", "80"], usage, 2],
    [["--port=80"], usage, 2],
    [["-port", "80"], usage, 2],
    [["--port"], usage, 2],
    [["--web-root"], usage, 2],
    [["--token"], usage, 2],
    [["--control-map"], usage, 2],
    [["--capture-directory"], usage, 2],
    [["--preset-directory"], usage, 2],
    [["--account-service"], usage, 2],
    [["--verbose", "--open-browser", "--bad"], usage, 2],
    [["--port", "80", "x"], usage, 2],
    [["--port", "0"], invalidPort, 2],
    [["--port", "65536"], invalidPort, 2],
    [["--port", "+80"], invalidPort, 2],
    [["--port", "-80"], invalidPort, 2],
    [["--port", "80x"], invalidPort, 2],
    [["--port", " 80"], invalidPort, 2],
    [["--port", "80 "], invalidPort, 2],
    [["--port", ""], invalidPort, 2],
    [["--port", "4294967376"], invalidPort, 2],
    [["--port", "99999999999999999999"], invalidPort, 2],
    [["--token", "x".repeat(31)], shortToken, 2],
    [["--token", ""], shortToken, 2],
  ]),
);

test("the first refusal counts and later options are never looked at", suiteLimits, (t) =>
  checkTable(t, [
    [["--port", "0", "--token", "short"], invalidPort, 2],
    [["--token", "short", "--bad"], shortToken, 2],
    [["--bad", "--port", "0"], usage, 2],
    [["--port", "0", "--port", "80"], invalidPort, 2],
    [["--unknown", "--self-test"], usage, 2],
    [["--port", "0", "--self-test"], invalidPort, 2],
    [["--port", "--self-test"], invalidPort, 2],
  ]),
);

test("an accepted command line goes on to the pages", suiteLimits, (t) => {
  const root = ["--web-root", missingRoot];
  return checkTable(t, [
    [[...root, "--port", "1"], missingIndex, 3],
    [[...root, "--port", "65535"], missingIndex, 3],
    [[...root, "--port", "00080"], missingIndex, 3],
    [[...root, "--token", "x".repeat(32)], missingIndex, 3],
    // Sixteen letters of two bytes each: bytes are counted.
    [[...root, "--token", "é".repeat(16)], missingIndex, 3],
    [["--web-root", "elsewhere", ...root], missingIndex, 3],
    [[...root, "--control-map", "not a name"], missingIndex, 3],
    [["--web-root", "*", ...root], missingIndex, 3],
    [["--web-root", ""], 'Unable to read "index.html"\n', 3],
    [["--web-root", "ends/"], 'Unable to read "ends/index.html"\n', 3],
    [["--web-root", 'a "b" c\\d'], `Unable to read ${quoted(`a "b" c\\d${separator}index.html`)}\n`, 3],
    [["--web-root", "*"], `Unable to read ${quoted(`*${separator}index.html`)}\n`, 3],
    [[], `Unable to read ${quoted(`D:/proj/velmora/web${separator}index.html`)}\n`, 3],
  ]);
});

test("a page that is missing, empty or a directory ends the start with its path", suiteLimits, async (t) => {
  const spoilers = {
    missing: () => {},
    empty: (file) => fs.writeFileSync(file, ""),
    "a directory": (file) => fs.mkdirSync(file),
  };
  /** @type {any[][]} */
  const rows = [];
  for (const page of pageNames) {
    for (const [how, spoil] of Object.entries(spoilers)) rows.push([page, how, spoil]);
  }
  await Promise.all(
    rows.map(([page, how, spoil]) =>
      t.test(`${page} ${how}`, (row) => {
        const directory = makeWebRoot({ [page]: null });
        spoil(path.join(directory, page));
        const root = programPathText(directory);
        const expected = `Unable to read ${quoted(`${root}${separator}${page}`)}\n`;
        return assertRefused(row, ["--web-root", root], expected, 3);
      }),
    ),
  );
  await t.test("the first page in order is named when several are missing", (row) => {
    const directory = makeWebRoot({ "advanced.html": null, "help.html": "" });
    const root = programPathText(directory);
    const expected = `Unable to read ${quoted(`${root}${separator}advanced.html`)}\n`;
    return assertRefused(row, ["--web-root", root], expected, 3);
  });
});

test("a bad name of the control map is refused with exit code 5", suiteLimits, async (t) => {
  const root = programPathText(makeWebRoot());
  const names = [
    "",
    "x",
    "local\\x",
    "GLOBAL\\x",
    "Local\\",
    "Global\\",
    "Local/x",
    "Global\\a b",
    "Global\\a/b",
    "Local\\a\\b",
    "Local\\é",
    `Local\\${"n".repeat(235)}`,
    `Global\\${"n".repeat(234)}`,
  ];
  await checkTable(
    t,
    names.map((name) => [["--web-root", root, "--control-map", name], badName, 5]),
  );
});

test("the self-test runs when it is reached", suiteLimits, async (t) => {
  const passed = { code: 0, signal: null, output: "Velmora control self-test passed\n", errors: "" };
  const rows = [
    ["--self-test"],
    ["--self-test", "--bad"],
    ["--self-test", "--port"],
    ["--port", "80", "--verbose", "--web-root", missingRoot, "--self-test", "--port", "0"],
  ];
  for (const args of rows) {
    await t.test(JSON.stringify(args), async (row) => {
      assert.deepEqual(await run(row, creatingService(), args), passed);
    });
  }
  if (isWine) {
    // Only here does a machine refuse the mapping, and so only here can the failed end be seen from outside.
    await t.test("it fails with exit code 1 where no mapping can be made", async (row) => {
      const failed = { code: 1, signal: null, output: "Velmora control self-test failed\n", errors: "" };
      assert.deepEqual(await run(row, shippedService, ["--self-test"]), failed);
    });
  }
});
