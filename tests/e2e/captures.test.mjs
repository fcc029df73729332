// Captures: commands to the effect, whether an export is there, and the archive that is made of it.
import assert from "node:assert/strict";
import { execFile, execFileSync } from "node:child_process";
import { createHash } from "node:crypto";
import fs from "node:fs";
import path from "node:path";
import test from "node:test";
import { promisify } from "node:util";

import {
  atEnd,
  answerBytes,
  answers,
  holdFile,
  isNative,
  jsonDocument,
  makeDirectory,
  makeUnprivilegedService,
  programPathText,
  readRecord,
  refusalBytes,
  run,
  startEffect,
  startService,
  uniqueMappingName,
} from "./harness.mjs";
import { exportText, textData } from "./registry.mjs";

const limits = { timeout: 180_000 };
const downloadLimitMs = 60_000;
const capture = "/api/v1/debug/capture";
const requestAt = 0xa8;

const names = [
  "capture-1-host-in.wav",
  "capture-2-algorithm-in.wav",
  "capture-3-algorithm-out.wav",
  "capture-4-host-out.wav",
];

const accepted = answerBytes(200, "OK", "application/json", '{"ok":true,"applies_within_seconds":1}');
const badAction = refusalBytes(400, "Bad Request", "action must be start, stop or export");
const badSeconds = refusalBytes(400, "Bad Request", "seconds must be between 1 and 300");
const noExport = refusalBytes(404, "Not Found", "no exported capture found -- export first");
const failure = (message) => refusalBytes(500, "Internal Server Error", message);
const readyAnswer = (ready, bytes) =>
  answerBytes(200, "OK", jsonDocument, `{"ready":${ready},"bytes":${bytes}}`);

const command = (service, body) => service.ask("POST", capture, body);
const ready = (service) => service.ask("GET", `${capture}/ready`);
const downloadBytes = (service) => service.apiBytes("GET", `${capture}/download`);

async function startWithCaptures(t, directory, options = {}) {
  return startService(t, { more: ["--capture-directory", programPathText(directory)], ...options });
}

// Bytes that differ from file to file and from place to place.
function someBytes(count, seed) {
  const bytes = Buffer.alloc(count);
  for (let index = 0; index < count; ++index) bytes[index] = (index * 31 + (index >> 8) * 7 + seed) & 0xff;
  return bytes;
}

// Writes the four files in place of what is there, and returns their contents.
function writeCaptures(directory, sizes) {
  return sizes.map((size, index) => {
    const bytes = someBytes(size, index * 50);
    const file = path.join(directory, names[index]);
    fs.rmSync(file, { recursive: true, force: true });
    fs.writeFileSync(file, bytes);
    return bytes;
  });
}

function assertKept(directory, contents) {
  names.forEach((name, at) =>
    assert.ok(fs.readFileSync(path.join(directory, name)).equals(contents[at]), name),
  );
}

const sumOf = (sizes) => sizes.reduce((sum, size) => sum + size, 0);

// ---- the archive, written down a second time ----

const crcTable = Array.from({ length: 256 }, (_, index) => {
  let value = index;
  for (let round = 0; round < 8; ++round) value = value & 1 ? (value >>> 1) ^ 0xedb88320 : value >>> 1;
  return value >>> 0;
});

function crc32Of(bytes) {
  let register = 0xffffffff;
  for (const byte of bytes) register = (register >>> 8) ^ crcTable[(register ^ byte) & 0xff];
  return (register ^ 0xffffffff) >>> 0;
}

function fields(...widthsAndValues) {
  const pieces = [];
  for (let at = 0; at < widthsAndValues.length; at += 2) {
    const bytes = Buffer.alloc(widthsAndValues[at]);
    bytes.writeUIntLE(widthsAndValues[at + 1], 0, bytes.length);
    pieces.push(bytes);
  }
  return Buffer.concat(pieces);
}

// The offsets of the local headers, and of the central directory at the end.
function offsetsOf(sizes) {
  const offsets = [0];
  sizes.forEach((size, index) => offsets.push(offsets[index] + 30 + names[index].length + size));
  return offsets;
}

// The archive of these contents with these words for time and date. A checksum may be given for bytes that were others
// when they were summed.
function archiveOf(contents, moment, checksums = contents.map(crc32Of)) {
  const offsets = offsetsOf(contents.map((bytes) => bytes.length));
  const parts = [];
  const entries = [];
  contents.forEach((bytes, index) => {
    const name = Buffer.from(names[index], "latin1");
    const { time, date } = moment;
    const size = bytes.length;
    const words = fields(2, 20, 2, 0, 2, 0, 2, time, 2, date);
    const common = Buffer.concat([
      words,
      fields(4, checksums[index], 4, size, 4, size, 2, name.length, 2, 0),
    ]);
    parts.push(fields(4, 0x04034b50), common, name, bytes);
    const rest = fields(2, 0, 2, 0, 2, 0, 4, 0, 4, offsets[index]);
    entries.push(fields(4, 0x02014b50, 2, 20), common, rest, name);
  });
  const directory = Buffer.concat(entries);
  const end = fields(4, 0x06054b50, 2, 0, 2, 0, 2, 4, 2, 4, 4, directory.length, 4, offsets[4], 2, 0);
  return Buffer.concat([...parts, directory, end]);
}

// ---- the download ----

const headForm = new RegExp(
  "^HTTP/1\\.1 200 OK\r\nContent-Type: application/zip\r\nContent-Length: ([0-9]+)\r\n" +
    'Content-Disposition: attachment; filename="(velmora-capture-[0-9]{8}-[0-9]{6}\\.zip)"\r\n' +
    "Connection: close\r\nCache-Control: no-store\r\nX-Content-Type-Options: nosniff\r\n\r\n$",
);

// Takes an answer apart: the promised length, the name, the bytes, and the words for time and date of the first header.
function takeApart(answer) {
  const headBytes = answer.indexOf("\r\n\r\n") + 4;
  const head = answer.slice(0, headBytes);
  const match = headForm.exec(head);
  assert.ok(match, head.slice(0, 1000));
  const archive = Buffer.from(answer.slice(headBytes), "latin1");
  const moment = { time: archive.readUInt16LE(10), date: archive.readUInt16LE(12) };
  return { length: Number(match[1]), name: match[2], archive, moment };
}

async function download(service) {
  const client = await service.connect();
  client.push(downloadBytes(service));
  return takeApart((await client.answer(downloadLimitMs)).bytes);
}

function assertWhole(taken, contents) {
  const expected = archiveOf(contents, taken.moment);
  assert.equal(taken.length, expected.length);
  assert.equal(taken.archive.length, expected.length);
  assert.ok(taken.archive.equals(expected), "the archive is the expected one byte for byte");
}

// What Python's own reader finds: whether every checksum fits, and of each member the name, size, method and content.
const pythonReader = `
import hashlib, json, sys, zipfile
with zipfile.ZipFile(sys.argv[1]) as archive:
  members = [[i.filename, i.file_size, i.compress_size, i.compress_type,
              hashlib.sha256(archive.read(i)).hexdigest()] for i in archive.infolist()]
  print(json.dumps([archive.testzip(), archive.comment.decode(), members]))
`;

const runTool = promisify(execFile);
const toolLimits = { timeout: 60_000, env: { ...process.env, LC_ALL: "C.UTF-8" } };

async function assertToolsRead(archive, contents) {
  const file = path.join(makeDirectory(), "captures.zip");
  fs.writeFileSync(file, archive);
  const tested = await runTool("unzip", ["-t", file], toolLimits);
  assert.ok(tested.stdout.endsWith(`No errors detected in compressed data of ${file}.\n`), tested.stdout);
  assert.equal(tested.stderr, "");
  const listed = await runTool("bsdtar", ["-tvf", file], toolLimits);
  const lines = [...listed.stdout.matchAll(/^(\S+\s+){4}(\d+) .* (\S+)$/gm)].map(
    ([, , size, name]) => `${name} ${size}`,
  );
  const expected = contents.map((bytes, index) => `${names[index]} ${bytes.length}`);
  assert.deepEqual(lines, expected);
  assert.equal(listed.stderr, "");
  const read = await runTool("python3", ["-c", pythonReader, file], toolLimits);
  const members = contents.map((bytes, index) => {
    return [names[index], bytes.length, bytes.length, 0, createHash("sha256").update(bytes).digest("hex")];
  });
  assert.deepEqual(JSON.parse(read.stdout), [null, "", members]);
  fs.rmSync(file);
}

// ---- commands ----

// Body, then action and seconds as they must be in the word.
/** @type {any[][]} */
const commands = [
  ['{"action":"start"}', 1, 120],
  ['{"action":"start"}', 1, 120],
  ['{"action":"stop","seconds":299.99}', 2, 299],
  ['{"seconds":7,"action":"export"}', 3, 7],
  ['{"action":"start","seconds":"7"}', 1, 120],
];

test("a command is one word of the record, with a sequence of its own", limits, async (t) => {
  const directory = makeDirectory();
  const service = await startWithCaptures(t, directory);
  const first = await readRecord(t, service.mapping);
  assert.equal(first.readBigUInt64LE(requestAt), 0n);
  for (const [index, [body, action, seconds]] of commands.entries()) {
    await t.test(`${index + 1}: ${body}`, async () => {
      assert.equal(await command(service, body), accepted);
      const expected = Buffer.from(first);
      expected.writeUInt16LE(action, requestAt);
      expected.writeUInt16LE(seconds, requestAt + 2);
      expected.writeUInt32LE(index + 1, requestAt + 4);
      assert.deepEqual(await readRecord(t, service.mapping), expected);
    });
  }
});

const refusedCommands = [
  ...["", "{}", '{"seconds":5}', '{"action":3}', '{"action":"export\\u0000"}', '{"action":"export'].map(
    (body) => [body, badAction],
  ),
  ...["0.99999", "300.001", "65537"].map((seconds) => [
    `{"action":"export","seconds":${seconds}}`,
    badSeconds,
  ]),
];

test("a refused command publishes nothing and deletes nothing", limits, async (t) => {
  const directory = makeDirectory();
  const contents = writeCaptures(directory, [10, 20, 30, 40]);
  const service = await startWithCaptures(t, directory);
  assert.equal(await command(service, '{"action":"start","seconds":5}'), accepted);
  const before = await readRecord(t, service.mapping);
  const assertNothingDone = async () => {
    assert.deepEqual(await readRecord(t, service.mapping), before);
    assertKept(directory, contents);
  };
  for (const [body, expected] of refusedCommands) {
    await t.test(body || "no body", async () => {
      assert.equal(await command(service, body), expected);
      await assertNothingDone();
    });
  }
  await t.test("methods, paths, origin and token", async () => {
    const body = '{"action":"export"}';
    const wrong = ["GET", "PUT", "post"].map((method) => [method, capture]);
    wrong.push(["POST", `${capture}/ready`], ["POST", `${capture}s`], ["HEAD", `${capture}/download`]);
    for (const [method, target] of wrong) {
      assert.equal(await service.ask(method, target, body), answers.notFound, `${method} ${target}`);
    }
    const options = { method: "POST", target: capture, body };
    await service.expectFor(answers.noToken, service.requestBytes(options));
    const fromElsewhere = service.apiBytes("POST", capture, body, [["Origin", "null"]]);
    await service.expectFor(answers.notLocal, fromElsewhere);
    const plain = service.requestBytes({ target: `${capture}/download` });
    await service.expectFor(answers.noToken, plain);
    await assertNothingDone();
  });
});

test("export clears the files of the last one, and start and stop do not", limits, async (t) => {
  const directory = makeDirectory();
  const service = await startWithCaptures(t, directory);
  writeCaptures(directory, [10, 20, 30, 40]);
  fs.writeFileSync(path.join(directory, "capture-5-other.wav"), "other");
  for (const action of ["start", "stop"]) {
    assert.equal(await command(service, `{"action":"${action}"}`), accepted);
    assert.equal(await ready(service), readyAnswer(true, 100));
  }
  assert.equal(await command(service, '{"action":"export"}'), accepted);
  assert.deepEqual(fs.readdirSync(directory), ["capture-5-other.wav"]);
  assert.equal(await ready(service), readyAnswer(false, 0));
  assert.equal(await command(service, '{"action":"export"}'), accepted, "nothing to clear is no fault");

  await t.test("a directory of that name stays, and a missing file is skipped", async () => {
    writeCaptures(directory, [10, 20, 30, 40]);
    fs.rmSync(path.join(directory, names[0]));
    fs.mkdirSync(path.join(directory, names[0]));
    fs.rmSync(path.join(directory, names[1]));
    assert.equal(await command(service, '{"action":"export"}'), accepted);
    assert.deepEqual(fs.readdirSync(directory).sort(), [names[0], "capture-5-other.wav"].sort());
    fs.rmdirSync(path.join(directory, names[0]));
  });
  await t.test("no directory is no fault", async () => {
    fs.rmSync(directory, { recursive: true });
    assert.equal(await command(service, '{"action":"export"}'), accepted);
    assert.equal(await ready(service), readyAnswer(false, 0));
    await service.expectFor(noExport, downloadBytes(service));
    assert.equal(fs.existsSync(directory), false);
  });
});

test("a file that cannot be deleted does not keep an export from the effect", limits, async (t) => {
  const directory = makeDirectory();
  writeCaptures(directory, [10, 20, 30, 40]);
  let letGo;
  const options = {};
  if (isNative) {
    options.program = makeUnprivilegedService();
    fs.chmodSync(directory, 0o555);
    letGo = async () => fs.chmodSync(directory, 0o755);
  } else {
    letGo = await holdFile(t, path.join(directory, names[1]));
  }
  const service = await startWithCaptures(t, directory, options);
  const left = isNative ? names : [names[1]];
  assert.equal(await command(service, '{"action":"export","seconds":9}'), accepted);
  assert.deepEqual(fs.readdirSync(directory).sort(), left);
  const record = await readRecord(t, service.mapping);
  assert.equal(record.readBigUInt64LE(requestAt), (1n << 32n) | (9n << 16n) | 3n);
  await letGo();
  assert.equal(await command(service, '{"action":"export"}'), accepted);
  assert.deepEqual(fs.readdirSync(directory), []);
});

// ---- what is there, and what comes of it ----

const isEmpty = (name) => failure(`capture file is empty or unreadable: ${name}`);
const replaced = (index, make) => (at) => {
  fs.rmSync(at(index));
  make(at(index));
};
const resized = (index, bytes, missing) => (at) => {
  fs.truncateSync(at(index), bytes);
  fs.rmSync(at(missing));
};

// Spoils one file. Gives the download's answer, and how many files are counted. The first file that fails
// decides, so a later fault is not reported.
/** @type {any[][]} */
const faults = [
  ...names.map((name, index) => [`no ${name}`, (at) => fs.rmSync(at(index)), noExport, index]),
  ...names.map((name, index) => [
    `${name} is empty`,
    (at) => fs.truncateSync(at(index), 0),
    isEmpty(name),
    index,
  ]),
  ["a directory", replaced(3, (file) => fs.mkdirSync(file)), noExport, 3],
  ["a pipe", replaced(2, (file) => execFileSync("mkfifo", [file])), noExport, 2],
  ["a link to nowhere", replaced(1, (file) => fs.symlinkSync("nowhere", file)), noExport, 1],
  ["a link to a directory", replaced(1, (file) => fs.symlinkSync(".", file)), noExport, 1],
  ["an empty second before a missing third", resized(1, 0, 2), isEmpty(names[1]), 1],
  ["a missing second before an empty third", resized(2, 0, 1), noExport, 1],
  [
    "one byte too large, before a missing fourth",
    resized(2, 0x100000000, 3),
    failure(`capture file is too large for a zip member: ${names[2]}`),
    3,
    10 + 20 + 0x100000000,
  ],
  // For such a file the system reports a size that reading it does not give.
  [
    "a file that reads shorter than it is",
    replaced(0, (file) => fs.symlinkSync("/sys/devices/system/cpu/online", file)),
    failure(`capture file changed while it was being read: ${names[0]}`),
    4,
    4096 + 20 + 30 + 40,
  ],
];

test("a missing or spoilt file is reported before the head", limits, async (t) => {
  const directory = makeDirectory();
  const service = await startWithCaptures(t, directory);
  const sizes = [10, 20, 30, 40];
  for (const [what, spoil, expected, goodFiles, bytes] of faults) {
    await t.test(what, async () => {
      writeCaptures(directory, sizes);
      spoil((index) => path.join(directory, names[index]));
      const counted = bytes ?? sumOf(sizes.slice(0, goodFiles));
      assert.equal(await ready(service), readyAnswer(goodFiles === 4, counted));
      await service.expectFor(expected, downloadBytes(service));
    });
  }
  await t.test("four files above the limit are ready and yet too large", async () => {
    writeCaptures(directory, sizes);
    for (const name of names) fs.truncateSync(path.join(directory, name), 0x100000000);
    assert.equal(await ready(service), readyAnswer(true, 4 * 0x100000000));
    const expected = failure(`capture file is too large for a zip member: ${names[0]}`);
    await service.expectFor(expected, downloadBytes(service));
  });
  await t.test("whole again", async () => {
    const contents = writeCaptures(directory, sizes);
    assertWhole(await download(service), contents);
  });
});

if (isNative) {
  test("a file that may not be read", limits, async (t) => {
    const directory = makeDirectory();
    const service = await startWithCaptures(t, directory, { program: makeUnprivilegedService() });
    for (const name of names) {
      writeCaptures(directory, [10, 20, 30, 40]);
      fs.chmodSync(path.join(directory, name), 0);
      assert.equal(await ready(service), readyAnswer(true, 100), "it is looked at and not opened");
      await service.expectFor(failure(`cannot read ${name}`), downloadBytes(service));
    }
  });
}

// ---- where the files are looked for ----

test("the directory is the option, else the registry, else the default", limits, async (t) => {
  const home = makeDirectory();
  const place = (...parts) => {
    const directory = path.join(home, ...parts);
    fs.mkdirSync(directory, { recursive: true });
    return directory;
  };
  const option = place("option");
  writeCaptures(option, [1, 1, 1, 1]);
  if (isNative) {
    const env = { VELMORA_DRIVES: home };
    writeCaptures(place("c", "ProgramData", "Velmora", "wav"), [2, 2, 2, 2]);
    writeCaptures(place("d", "named by", "registry"), [3, 3, 3, 3]);
    const machine = path.join(home, "machine.reg");
    const keys = [
      ["HKEY_LOCAL_MACHINE\\SOFTWARE\\Velmora", [["CaptureDirectory", textData("D:\\named by\\registry")]]],
    ];
    fs.writeFileSync(machine, exportText(keys));
    const inRegistry = { ...env, VELMORA_MACHINE: machine };
    for (const [what, options, bytes] of /** @type {any[][]} */ ([
      ["the default", { env }, 8],
      ["the registry", { env: inRegistry }, 12],
      ["the option", { env: inRegistry, more: ["--capture-directory", option] }, 4],
      ["an empty option is none", { env: inRegistry, more: ["--capture-directory", ""] }, 12],
    ])) {
      await t.test(what, async (t) => {
        const service = await startService(t, options);
        assert.equal(await ready(service), readyAnswer(true, bytes));
      });
    }
    return;
  }
  const key = ["HKLM\\SOFTWARE\\Velmora", "/v", "CaptureDirectory", "/f", "/reg:64"];
  const fromRegistry = place("named by", "registry");
  writeCaptures(fromRegistry, [3, 3, 3, 3]);
  atEnd(t, () => run(t, "reg", ["delete", ...key]).catch(() => {}));
  const service = await startService(t);
  const withOption = await startWithCaptures(t, option);
  for (const directory of [fromRegistry, option]) {
    const bytes = directory === fromRegistry ? 12 : 4;
    const set = await run(t, "reg", ["add", ...key, "/t", "REG_SZ", "/d", programPathText(directory)]);
    assert.equal(set.code, 0, set.errors);
    assert.equal(await ready(service), readyAnswer(true, bytes), "each request looks again");
    assert.equal(await ready(withOption), readyAnswer(true, 4));
  }
  const removed = await run(t, "reg", ["delete", ...key]);
  assert.equal(removed.code, 0, removed.errors);
  assert.equal(await ready(service), readyAnswer(false, 0));
});

// ---- the archive ----

const sizesTable = [
  [1, 1, 1, 1],
  [44, 1000, 65_535, 65_536],
  [65_537, 131_072, 131_073, 3],
  [3_000_017, 44, 1_920_044, 500_000],
];

test("the archive is exact, and every reader opens it", limits, async (t) => {
  const directory = makeDirectory();
  const service = await startWithCaptures(t, directory);
  for (const sizes of sizesTable) {
    await t.test(`files of ${sizes.join(", ")} bytes`, async () => {
      const contents = writeCaptures(directory, sizes);
      const taken = await download(service);
      const sum = sumOf(sizes);
      assert.equal(taken.length, sum + 518);
      const offsets = offsetsOf(sizes);
      assert.deepEqual(offsets.slice(1, 4), [
        51 + sizes[0],
        107 + sizes[0] + sizes[1],
        164 + sizes[0] + sizes[1] + sizes[2],
      ]);
      assert.equal(offsets[4], 216 + sum);
      assertWhole(taken, contents);
      await assertToolsRead(taken.archive, contents);
    });
  }
  await t.test("a download changes nothing and can be repeated", async () => {
    const contents = writeCaptures(directory, [5, 6, 7, 8]);
    assertWhole(await download(service), contents);
    assertWhole(await download(service), contents);
    assertKept(directory, contents);
  });
  await t.test("a file behind a link is archived", async () => {
    const contents = writeCaptures(directory, [5, 6, 7, 8]);
    fs.renameSync(path.join(directory, names[2]), path.join(directory, "elsewhere"));
    fs.symlinkSync("elsewhere", path.join(directory, names[2]));
    assertWhole(await download(service), contents);
  });
});

test("the archive bears the local time", limits, async (t) => {
  const directory = makeDirectory();
  writeCaptures(directory, [1, 1, 1, 1]);
  const service = await startWithCaptures(t, directory);
  // Half a second of slack on each side: two seconds are one step of the format.
  const before = Date.now() - 2500;
  const { name, moment } = await download(service);
  const after = Date.now() + 500;
  const local = (year, month, ...rest) => new Date(year, month - 1, ...rest).getTime();
  const [, ...digits] = /-(\d{4})(\d\d)(\d\d)-(\d\d)(\d\d)(\d\d)\.zip$/.exec(name) ?? [];
  const { date, time } = moment;
  const day = [1980 + (date >> 9), (date >> 5) & 15, date & 31];
  const inWords = [...day, time >> 11, (time >> 5) & 63, (time & 31) * 2];
  for (const stamp of [local(...digits.map(Number)), local(...inWords)]) {
    assert.ok(before < stamp && stamp < after, `${new Date(stamp)}`);
  }
});

test("from the start of a capture to its archive, with the effect", limits, async (t) => {
  const home = makeDirectory();
  const directory = path.join(home, "made by the effect");
  const mapping = uniqueMappingName();
  const effect = await startEffect(t, mapping, ["--capture-directory", programPathText(directory)]);
  const service = await startWithCaptures(t, directory, { mapping });
  assert.equal(await command(service, '{"action":"start","seconds":3}'), accepted);
  await effect.waitForLine("capture action=start seconds=3 sequence=1 state=1");
  assert.equal(await command(service, '{"action":"stop","seconds":3}'), accepted);
  await effect.waitForLine("capture action=stop seconds=3 sequence=2 state=2");
  assert.equal(await ready(service), readyAnswer(false, 0));
  await service.expectFor(noExport, downloadBytes(service));

  for (const sequence of [3, 4]) {
    assert.equal(await command(service, '{"action":"export","seconds":3}'), accepted);
    await effect.waitForLine(`capture action=export seconds=3 sequence=${sequence} state=4`);
    const contents = names.map((name) => fs.readFileSync(path.join(directory, name)));
    const bytes = sumOf(contents.map((content) => content.length));
    assert.equal(await ready(service), readyAnswer(true, bytes));
    const taken = await download(service);
    assertWhole(taken, contents);
    await assertToolsRead(taken.archive, contents);
    for (const content of contents) {
      assert.equal(content.toString("latin1", 0, 4) + content.toString("latin1", 8, 12), "RIFFWAVE");
      assert.equal(content.readUInt32LE(4), content.length - 8);
    }
  }
});

// ---- files that change, and clients that leave, while the archive is on its way ----

const megabyte = 1024 * 1024;
// More than the sockets of both sides take, so that the service is within the first file while a client waits.
const longSizes = [64 * megabyte, 100, 200, 1000];

// Asks for the archive and takes no more than its beginning, of which so much shows that the first file is open.
const beginningBytes = 1024;

async function beginDownload(service) {
  const client = await service.connect({ reads: false });
  client.push(downloadBytes(service));
  await client.waitForFirstBytes(beginningBytes, downloadLimitMs);
  return client;
}

// What has come when the service has closed. The promised length is held against what it should be.
async function endDownload(client) {
  client.startReading();
  const taken = takeApart((await client.answer(downloadLimitMs)).bytes);
  assert.equal(taken.length, sumOf(longSizes) + 518);
  return taken;
}

function writeLongCaptures(directory) {
  const contents = writeCaptures(directory, [1, ...longSizes.slice(1)]);
  fs.truncateSync(path.join(directory, names[0]), longSizes[0]);
  const first = Buffer.alloc(longSizes[0]);
  contents[0].copy(first);
  return [first, ...contents.slice(1)];
}

test("files that change while the archive is on its way", limits, async (t) => {
  const directory = makeDirectory();
  const service = await startWithCaptures(t, directory);
  const at = (index) => path.join(directory, names[index]);
  const contents = writeLongCaptures(directory);
  const checksums = contents.map(crc32Of);
  const fourth = offsetsOf(longSizes)[3] + 30 + names[3].length;

  const endedAs = async (client, sent, bytes = undefined) => {
    const { archive, moment } = await endDownload(client);
    if (bytes !== undefined) assert.equal(archive.length, bytes);
    assert.ok(archive.equals(archiveOf(sent, moment, checksums).subarray(0, bytes)));
    return archive;
  };

  /** @type {any[][]} */
  const cutShort = [
    ["the last file gets shorter", () => fs.truncateSync(at(3), 400), fourth + 400],
    ["the last file gets empty", () => fs.truncateSync(at(3), 0), fourth],
    ["the last file goes", () => fs.rmSync(at(3)), fourth],
    ["the last file becomes a directory", () => replaced(3, (file) => fs.mkdirSync(file))(at), fourth],
    ["the file on its way gets shorter", () => fs.truncateSync(at(0), 48 * megabyte), 51 + 48 * megabyte],
  ];
  for (const [what, change, sentBytes] of cutShort) {
    await t.test(`${what}: the archive ends early`, async () => {
      writeLongCaptures(directory);
      const client = await beginDownload(service);
      change();
      await endedAs(client, contents, sentBytes);
      await service.assertAnswers();
    });
  }
  await t.test("the last file grows: it is cut at the size that was summed", async () => {
    writeLongCaptures(directory);
    const client = await beginDownload(service);
    fs.appendFileSync(at(3), "more of it");
    const archive = await endedAs(client, contents);
    await assertToolsRead(archive, contents);
  });
  await t.test("a file is written over at its length: the checksum is that of the first pass", async () => {
    writeLongCaptures(directory);
    const client = await beginDownload(service);
    const other = someBytes(longSizes[2], 99);
    fs.writeFileSync(at(2), other);
    const archive = await endedAs(client, [contents[0], contents[1], other, contents[3]]);
    await assert.rejects(assertToolsRead(archive, contents), "readers see that it does not fit");
  });
  await t.test("the effect may replace a file that is being sent", async () => {
    writeLongCaptures(directory);
    const client = await beginDownload(service);
    const fresh = path.join(directory, "fresh");
    fs.writeFileSync(fresh, "fresh");
    fs.renameSync(fresh, at(0));
    await endedAs(client, contents);
  });
});

test("a client that leaves does not hurt the next one", limits, async (t) => {
  const directory = makeDirectory();
  const service = await startWithCaptures(t, directory);
  const contents = writeLongCaptures(directory);
  const leaveAtOnce = async (way) => {
    const client = await service.connect({ reads: false });
    await client.send(downloadBytes(service));
    client[way]();
  };
  const leaveWithin = async (way) => {
    const client = await beginDownload(service);
    client[way]();
  };
  for (const way of ["reset", "leave"]) {
    for (const [when, go] of /** @type {any[][]} */ ([
      ["before the head", leaveAtOnce],
      ["within the first file", leaveWithin],
    ])) {
      await t.test(`${way} ${when}`, async () => {
        await go(way);
        await service.assertAnswers();
        await go(way);
        assert.equal(await ready(service), readyAnswer(true, sumOf(longSizes)));
      });
    }
  }
  await t.test("one that has only ended its own side gets all of it", async () => {
    const client = await beginDownload(service);
    client.halfClose();
    const { archive } = await endDownload(client);
    assert.equal(archive.length, sumOf(contents.map((bytes) => bytes.length)) + 518);
  });
  await t.test("one that waits long gets all of it, and others wait for it", async () => {
    const client = await beginDownload(service);
    const other = await service.connect();
    other.push(service.requestBytes({ target: "/api/" }));
    assert.ok(await other.isSilentFor(300));
    const { archive, moment } = await endDownload(client);
    assert.ok(archive.equals(archiveOf(contents, moment)));
    assert.equal((await other.answer()).bytes, answers.noToken);
  });
});
