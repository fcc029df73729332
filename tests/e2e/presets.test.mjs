// Presets: named settings as files of one directory, which no name may lead out of.
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import fs from "node:fs";
import path from "node:path";
import test from "node:test";

import {
  answerBytes,
  answers,
  bodyOf,
  equalizerDocument,
  holdFile,
  isNative,
  isWine,
  jsonDocument,
  makeDirectory,
  makeSmallDisk,
  makeUnprivilegedService,
  missingMountRight,
  programPathText,
  readRecord,
  refusalBytes,
  someBands,
  startService,
  words,
} from "./harness.mjs";

const limits = { timeout: 120_000 };
const collection = "/api/v1/eq/presets";
const equalizer = "/api/v1/render/effects/eq";

const noSuchPreset = refusalBytes(404, "Not Found", "no such preset");
const nameRule = "preset name may contain letters, digits, spaces, - and _ only";
const badName = refusalBytes(400, "Bad Request", nameRule);
const badMethod = refusalBytes(405, "Method Not Allowed", "unsupported method");
const notWritten = refusalBytes(500, "Internal Server Error", "cannot write the preset file");

const presetAnswer = (bytes) => answerBytes(200, "OK", jsonDocument, bytes);
const bytesOf = (text) => Buffer.from(text, "utf8").toString("latin1");

const get = (service, name) => service.ask("GET", `${collection}/${name}`);
const put = (service, name, body) => service.ask("PUT", `${collection}/${name}`, body);
const remove = (service, name) => service.ask("DELETE", `${collection}/${name}`);

// The listed names, sorted: their order is the file system's own.
async function list(service) {
  const answer = await service.ask("GET", collection);
  const body = bodyOf(answer);
  assert.equal(answer, answerBytes(200, "OK", jsonDocument, body));
  const { presets, ...more } = JSON.parse(Buffer.from(body, "latin1").toString("utf8"));
  assert.deepEqual(more, {});
  assert.equal(bytesOf(JSON.stringify({ presets })), body, "the list is written without blanks");
  return presets.sort();
}

function settingOf(shift = 0, bypass = false) {
  return { bypass, fade_ms: 12.34, bands: someBands(shift) };
}

async function startWithPresets(t, directory, options = {}) {
  return startService(t, { more: ["--preset-directory", programPathText(directory)], ...options });
}

// Every file below a directory with its content; anything else by its kind.
function treeOf(directory, below = "") {
  const found = {};
  for (const entry of fs.readdirSync(path.join(directory, below), { withFileTypes: true })) {
    const name = path.join(below, entry.name);
    if (entry.isFile()) found[name] = fs.readFileSync(path.join(directory, name), "latin1");
    else found[name] = entry.isSymbolicLink() ? "link" : entry.isDirectory() ? "directory" : "other";
    if (entry.isDirectory()) Object.assign(found, treeOf(directory, name));
  }
  return found;
}

test("the whole life of a preset", limits, async (t) => {
  const home = makeDirectory();
  const directory = path.join(home, "made", "by", "the service");
  const service = await startWithPresets(t, directory);

  await t.test("nothing is made before the first one is kept", async () => {
    await service.expect(presetAnswer('{"presets":[]}'), "GET", collection);
    assert.equal(await get(service, "first"), noSuchPreset);
    assert.equal(await remove(service, "first"), noSuchPreset);
    const refused = refusalBytes(400, "Bad Request", "bands must contain exactly 15 entries");
    assert.equal(await put(service, "first", '{"bands":[]}'), refused);
    assert.deepEqual(fs.readdirSync(home), []);
  });

  const live = { bypass: false, fade_ms: 50, bands: someBands(3) };
  await service.expect(answers.done, "PUT", equalizer, JSON.stringify(live));
  const liveRecord = await readRecord(t, service.mapping);

  await t.test("saved: the file holds the checked setting and no more", async () => {
    const body = JSON.stringify({ colour: "blue", ...settingOf(), more: [1, 2] }, null, 2);
    assert.equal(await put(service, "first", body), answers.done);
    assert.deepEqual(treeOf(directory), { "first.json": equalizerDocument(settingOf()) });
    assert.deepEqual(
      await readRecord(t, service.mapping),
      liveRecord,
      "the live equalizer is another matter",
    );
  });
  await t.test("what the body leaves out is a default, whatever is live", async () => {
    const { bands } = settingOf();
    assert.equal(await put(service, "defaults", JSON.stringify({ bands })), answers.done);
    const expected = equalizerDocument({ bypass: true, fade_ms: 20, bands });
    assert.equal(treeOf(directory)["defaults.json"], expected);
  });
  await t.test("listed and fetched", async () => {
    assert.deepEqual(await list(service), ["defaults", "first"]);
    assert.equal(await get(service, "first"), presetAnswer(equalizerDocument(settingOf())));
    assert.equal(await get(service, "second"), noSuchPreset);
  });
  await t.test("put to the live equalizer", async () => {
    await service.expect(answers.done, "PUT", equalizer, bodyOf(await get(service, "first")));
    const expected = equalizerDocument({ ...settingOf(), fade_ms: 12.3 });
    assert.equal(bodyOf(await service.ask("GET", equalizer)), expected);
  });
  await t.test("replaced by a shorter one without a question", async () => {
    const band = { type: 0, freq_hz: 20, gain_db: 0, q: 1 };
    const short = { bypass: true, fade_ms: 1, bands: Array(15).fill(band) };
    assert.equal(await put(service, "first", JSON.stringify(short)), answers.done);
    assert.equal(treeOf(directory)["first.json"], equalizerDocument(short));
  });
  await t.test("a refused body leaves the file as it was", async () => {
    const before = treeOf(home);
    const { bands } = settingOf();
    const refusals = [
      ['{"bands":[{}]}', "each band needs type, freq_hz, gain_db and q"],
      [JSON.stringify({ bands, fade_ms: 0.5 }), "fade_ms must be 1..200"],
    ];
    for (const [body, message] of refusals) {
      assert.equal(await put(service, "first", body), refusalBytes(400, "Bad Request", message));
      assert.equal(await put(service, "fresh", body), refusalBytes(400, "Bad Request", message));
    }
    assert.deepEqual(treeOf(home), before);
  });
  await t.test("it outlives the service", async () => {
    const second = await startWithPresets(t, directory);
    assert.deepEqual(await list(second), ["defaults", "first"]);
    await second.stop();
  });
  await t.test("deleted, which changes nothing in the effect", async () => {
    const before = await readRecord(t, service.mapping);
    assert.equal(await remove(service, "first"), answers.done);
    assert.deepEqual(Object.keys(treeOf(directory)), ["defaults.json"]);
    assert.equal(await remove(service, "first"), noSuchPreset);
    assert.equal(await get(service, "first"), noSuchPreset);
    assert.deepEqual(await list(service), ["defaults"]);
    assert.deepEqual(await readRecord(t, service.mapping), before);
  });
  await t.test("a directory that has gone is made again", async () => {
    fs.rmSync(path.join(home, "made"), { recursive: true });
    assert.deepEqual(await list(service), []);
    assert.equal(await put(service, "again", JSON.stringify(settingOf())), answers.done);
    assert.deepEqual(await list(service), ["again"]);
  });
});

test("presets lie beside the captures unless an option says where", limits, async (t) => {
  const home = makeDirectory();
  const captures = programPathText(path.join(home, "wav"));
  const service = await startService(t, { more: ["--capture-directory", captures] });
  assert.equal(await put(service, "beside", JSON.stringify(settingOf())), answers.done);
  assert.deepEqual(Object.keys(treeOf(home)).sort(), ["presets", path.join("presets", "beside.json")]);
});

// What follows the collection's path, and the file that it names.
const longLetter = "\u4e2d";
const names = [
  ["with-dash_1", "with-dash_1"],
  ["n%6Frmal%2d2", "normal-2"],
  ["with%20two++blanks", "with two  blanks"],
  ["%E4%B8%AD%e6%96%87", "\u4e2d\u6587"],
  [bytesOf("\u4e2d\u6587"), "\u4e2d\u6587"],
  ["e%CC%81", "e\u0301"],
  ["%61".repeat(64), "a".repeat(64)],
  [encodeURIComponent(`${longLetter.repeat(21)}x`), `${longLetter.repeat(21)}x`],
  ["normal?name=../escape", "normal"],
  // Signs that only look like a dot or a separator are letters like any other.
  [encodeURIComponent("\uff0e\uff0e\uff0fescape"), "\uff0e\uff0e\uff0fescape"],
];

test("a name is the file that its bytes say", limits, async (t) => {
  const home = makeDirectory();
  const directory = path.join(home, "presets");
  const service = await startWithPresets(t, directory);
  const body = JSON.stringify(settingOf());
  for (const [target, name] of names) {
    await t.test(`${target} is ${name}`, async () => {
      assert.equal(await put(service, target, body), answers.done);
      assert.deepEqual(treeOf(home), {
        presets: "directory",
        [`presets/${name}.json`]: equalizerDocument(settingOf()),
      });
      assert.deepEqual(await list(service), [name]);
      assert.equal(await get(service, target), presetAnswer(equalizerDocument(settingOf())));
      await service.expect(badMethod, "POST", `${collection}/${target}`);
      assert.equal(await remove(service, target), answers.done);
      assert.deepEqual(treeOf(home), { presets: "directory" });
    });
  }

  // Bytes that are no UTF-8 become replacement signs, and so does every way to write a dot or a slash in too many.
  const illFormed = words`
    %ff %80%80 %c0%ae%c0%ae%c0%afescape %c0%ae%c0%ae%c1%9cescape %e0%80%ae%e0%80%ae%e0%80%afescape
    %f0%80%80%ae%f0%80%80%ae%f0%80%80%afescape %ed%a0%80 %ed%bc%af %f4%90%80%80 cut%e4%b8
  `;
  for (const target of illFormed) {
    await t.test(`${target} stays in the directory`, async () => {
      assert.equal(await put(service, target, body), answers.done);
      const [folder, file, ...more] = Object.keys(treeOf(home));
      assert.deepEqual([folder, more], ["presets", []]);
      assert.match(file, /^presets\/(cut)?\ufffd+(escape)?\.json$/);
      assert.equal(await get(service, target), presetAnswer(equalizerDocument(settingOf())));
      assert.equal(await remove(service, target), answers.done);
      assert.deepEqual(treeOf(home), { presets: "directory" });
    });
  }
});

// One name for each way out that is written differently; each sign that the rule leaves out is one of the unit tests.
const refusedNames = [
  ...words`
    . .. ../escape ..%2Fescape ..\escape ..%5Cescape %2e%2e %2e%2e%5cescape a%2f..%2f..%2fescape ./escape
    ../presets/victim %252e%252e%252fescape %c0%ae%c0%ae/escape ..%c0%afescape ..%ef%bc%8fescape %00
    victim%00.json /tmp/escape %2Ftmp%2Fescape %5C%5Cserver%5Cshare%5Cescape C:escape C%3A%5Cescape
    %5C%5C%3F%5CC%3A%5Cescape %5C%5C.%5CNUL NUL: victim%3Astream victim::$DATA victim.json trailing. with*star
    VICTIM~1 $HOME a%0d%0ab %20 victim%20 + a% %zz a#b victim/
  `,
  ...[
    "victim\0",
    "`id`",
    "victim\\",
    "a".repeat(65),
    "a".repeat(60_000),
    encodeURIComponent(longLetter.repeat(22)),
  ],
];

test("no name leads out of the directory, whatever the method", limits, async (t) => {
  const home = makeDirectory();
  const directory = path.join(home, "presets");
  fs.mkdirSync(path.join(directory, "a"), { recursive: true });
  fs.writeFileSync(path.join(directory, "victim.json"), "inside");
  fs.writeFileSync(path.join(home, "escape.json"), "outside");
  fs.writeFileSync(path.join(home, "escape"), "outside");
  const service = await startWithPresets(t, directory, { cwd: home });
  const before = treeOf(home);
  const body = JSON.stringify(settingOf());
  for (const name of refusedNames) {
    await t.test(JSON.stringify(name.slice(0, 60)), async () => {
      const target = `${collection}/${name}`;
      for (const method of ["GET", "DELETE", "POST"]) await service.expect(badName, method, target);
      await service.expect(badName, "PUT", target, body);
      // The name is looked at before the body.
      await service.expect(badName, "PUT", target, "no setting");
    });
  }
  assert.deepEqual(treeOf(home), before);
  assert.equal(fs.existsSync("/tmp/escape.json"), false);
  await service.assertAnswers();
});

test("methods and paths are judged in their order", limits, async (t) => {
  const directory = path.join(makeDirectory(), "presets");
  const service = await startWithPresets(t, directory);
  const body = JSON.stringify(settingOf());
  const table = [
    ["GET", `${collection}?x=/y`, presetAnswer('{"presets":[]}')],
    ["PUT", collection, answers.notFound],
    ["GET", `${collection}/`, answers.notFound],
    ["PUT", `${collection}x/name`, answers.notFound],
    ["GET", collection.toUpperCase(), answers.notFound],
    ["POST", `${collection}/a.b`, badName],
    ["POST", `${collection}/name`, badMethod],
    ["put", `${collection}/name`, badMethod],
    ["GET", `${collection}/name`, noSuchPreset],
    ["DELETE", `${collection}/name`, noSuchPreset],
  ];
  for (const [method, target, expected] of table) {
    await t.test(`${method} ${target}`, async () => await service.expect(expected, method, target, body));
  }
  await t.test("the token and the origin come first", async () => {
    const options = { method: "PUT", target: `${collection}/a.b`, body };
    const fromElsewhere = service.putBytes(options.target, body, [["Origin", "null"]]);
    await service.expectFor(answers.notLocal, fromElsewhere);
    await service.expectFor(answers.noToken, service.requestBytes(options));
  });
  assert.equal(fs.existsSync(directory), false, "none of it made the directory");
});

test("files that were put there by hand", limits, async (t) => {
  const home = makeDirectory();
  const directory = path.join(home, "presets");
  fs.mkdirSync(path.join(directory, "folder.json", "inner.json"), { recursive: true });
  const at = (name) => path.join(directory, name);
  const oddBytes = Buffer.from(Array.from({ length: 200_000 }, (_, index) => (index * 7) % 256));
  for (const name of ["upper.JSON", "a.b.json", ".json", "..json", "notes.txt", "x.json.bak", "json"])
    fs.writeFileSync(at(name), name);
  fs.writeFileSync(at("empty.json"), "");
  fs.writeFileSync(at("odd.json"), oddBytes);
  fs.writeFileSync(at("by hand.json"), '\ufeff{ "bands": "whatever" }\r\n');
  fs.writeFileSync(path.join(home, "target"), "behind the link");
  fs.symlinkSync("../target", at("link.json"));
  fs.symlinkSync("..", at("link to folder.json"));
  fs.symlinkSync("nowhere", at("dangling.json"));
  fs.symlinkSync("loop.json", at("loop.json"));
  execFileSync("mkfifo", [at("pipe.json")]);
  const service = await startWithPresets(t, directory);
  const before = treeOf(home);
  const body = JSON.stringify(settingOf());

  await t.test("the regular ones are listed, whatever their names", async () => {
    assert.deepEqual(await list(service), [".", "a.b", "by hand", "empty", "link", "odd"]);
  });
  await t.test("bytes come unchanged", async () => {
    assert.equal(await get(service, "odd"), presetAnswer(oddBytes.toString("latin1")));
    assert.equal(await get(service, "by+hand"), presetAnswer(bytesOf('\ufeff{ "bands": "whatever" }\r\n')));
    assert.equal(await get(service, "link"), presetAnswer("behind the link"));
  });
  await t.test("an empty one is listed and yet not there", async () => {
    assert.equal(await get(service, "empty"), noSuchPreset);
  });
  await t.test("a listed name may be refused", async () => {
    assert.equal(await get(service, "a.b"), badName);
  });
  // A file system that ignores case finds the one in capitals.
  if (isNative) assert.equal(await get(service, "upper"), noSuchPreset);
  const noFiles = ["folder", "link+to+folder", "pipe"];
  for (const name of noFiles) {
    await t.test(`${name} is no preset, and stays`, async () => {
      assert.equal(await get(service, name), noSuchPreset);
      assert.equal(await remove(service, name), noSuchPreset);
      assert.equal(await put(service, name, body), notWritten);
    });
  }
  for (const name of ["dangling", "loop"]) {
    await t.test(`${name} is no preset`, async () => {
      assert.equal(await get(service, name), noSuchPreset);
      assert.equal(await remove(service, name), noSuchPreset);
    });
  }
  assert.deepEqual(treeOf(home), before);
  await t.test("an empty one can be deleted", async () => {
    assert.equal(await remove(service, "empty"), answers.done);
    assert.equal(fs.existsSync(at("empty.json")), false);
  });
  await t.test("a link is written through, and deleted without what it leads to", async () => {
    assert.equal(await put(service, "link", body), answers.done);
    assert.equal(fs.readFileSync(path.join(home, "target"), "latin1"), equalizerDocument(settingOf()));
    // Wine deletes what a link of the system below leads to, and leaves the link.
    if (isWine) return;
    assert.equal(await remove(service, "link"), answers.done);
    assert.equal(fs.existsSync(at("link.json")), false);
    assert.equal(fs.readFileSync(path.join(home, "target"), "latin1"), equalizerDocument(settingOf()));
  });
});

if (isNative) {
  test("a file name of any bytes is listed as text", limits, async (t) => {
    const directory = makeDirectory();
    for (const name of ['quo"te', "back\\slash", "line\nend", "bell\x07"])
      fs.writeFileSync(path.join(directory, `${name}.json`), "x");
    fs.writeFileSync(Buffer.from(`${directory}/\xff.json`, "latin1"), "x");
    const service = await startWithPresets(t, directory);
    assert.deepEqual(
      await list(service),
      ["back\\slash", "bell\x07", "line\nend", 'quo"te', "\ufffd"].sort(),
    );
  });

  test("a preset that may not be read or written", limits, async (t) => {
    const directory = makeDirectory();
    const whole = path.join(directory, "private.json");
    fs.writeFileSync(whole, "private");
    fs.chmodSync(whole, 0);
    const service = await startWithPresets(t, directory, { program: makeUnprivilegedService() });
    assert.deepEqual(await list(service), ["private"]);
    assert.equal(await get(service, "private"), noSuchPreset);
    assert.equal(await put(service, "private", JSON.stringify(settingOf())), notWritten);
    fs.chmodSync(directory, 0o555);
    assert.equal(await put(service, "fresh", JSON.stringify(settingOf())), notWritten);
    assert.equal(await remove(service, "private"), noSuchPreset);
    fs.chmodSync(directory, 0o333);
    assert.deepEqual(await list(service), [], "a directory that cannot be read has no presets");
    fs.chmodSync(directory, 0);
    assert.deepEqual(await list(service), []);
    fs.chmodSync(directory, 0o755);
    assert.equal(fs.statSync(whole).size, "private".length);
  });
}

if (isWine) {
  test("a preset that another program holds", limits, async (t) => {
    const directory = makeDirectory();
    const file = path.join(directory, "held.json");
    fs.writeFileSync(file, "held");
    const service = await startWithPresets(t, directory);
    const release = await holdFile(t, file);
    assert.equal(await get(service, "held"), presetAnswer("held"), "it may still be read");
    assert.equal(await put(service, "held", JSON.stringify(settingOf())), notWritten);
    assert.equal(await remove(service, "held"), noSuchPreset);
    assert.deepEqual(treeOf(directory), { "held.json": "held" });
    assert.deepEqual(await list(service), ["held"]);
    await release();
    assert.equal(await put(service, "held", JSON.stringify(settingOf())), answers.done);
    assert.equal(await remove(service, "held"), answers.done);
    assert.deepEqual(treeOf(directory), {});
  });
}

test("where there is no directory and none can be made", limits, async (t) => {
  const home = makeDirectory();
  fs.writeFileSync(path.join(home, "file"), "a file");
  for (const place of ["file", "file/below", "file/far/below"]) {
    await t.test(place, async (t) => {
      const service = await startWithPresets(t, path.join(home, place));
      assert.deepEqual(await list(service), []);
      assert.equal(await put(service, "name", JSON.stringify(settingOf())), notWritten);
      assert.equal(await get(service, "name"), noSuchPreset);
      assert.equal(await remove(service, "name"), noSuchPreset);
    });
  }
  assert.deepEqual(treeOf(home), { file: "a file" });
});

test("a full disk", { ...limits, skip: missingMountRight() }, async (t) => {
  const disk = makeSmallDisk(t, 8192);
  const service = await startWithPresets(t, disk.directory);
  const body = JSON.stringify(settingOf());
  assert.equal(await put(service, "kept", body), answers.done);
  // One page is left, and this takes it.
  fs.writeFileSync(path.join(disk.directory, "filler"), Buffer.alloc(4096, 1));
  await t.test("refuses a new preset and leaves it empty", async () => {
    assert.equal(await put(service, "fresh", body), notWritten);
    assert.equal(fs.statSync(path.join(disk.directory, "fresh.json")).size, 0);
    assert.deepEqual(await list(service), ["fresh", "kept"]);
    assert.equal(await get(service, "fresh"), noSuchPreset);
    assert.equal(await get(service, "kept"), presetAnswer(equalizerDocument(settingOf())));
  });
  await t.test("takes it when there is room again", async () => {
    fs.rmSync(path.join(disk.directory, "filler"));
    assert.equal(await put(service, "fresh", body), answers.done);
    assert.equal(await get(service, "fresh"), presetAnswer(equalizerDocument(settingOf())));
  });
});

test("a disk that may only be read", { ...limits, skip: missingMountRight() }, async (t) => {
  const disk = makeSmallDisk(t, 8192);
  fs.writeFileSync(path.join(disk.directory, "kept.json"), "kept");
  disk.makeReadOnly();
  const service = await startWithPresets(t, disk.directory);
  const body = JSON.stringify(settingOf());
  assert.deepEqual(await list(service), ["kept"]);
  assert.equal(await get(service, "kept"), presetAnswer("kept"));
  assert.equal(await put(service, "kept", body), notWritten);
  assert.equal(await put(service, "fresh", body), notWritten);
  // Wine deletes at the last close, when nobody is left to hear that it failed.
  assert.equal(await remove(service, "kept"), isWine ? answers.done : noSuchPreset);
  assert.deepEqual(treeOf(disk.directory), { "kept.json": "kept" });
  await service.stop();

  await t.test("has no room for the directory either", async (t) => {
    const below = await startWithPresets(t, path.join(disk.directory, "below", "presets"));
    assert.equal(await put(below, "fresh", body), notWritten);
    assert.deepEqual(await list(below), []);
  });
});

// Names that mean a device to Windows, whatever follows their dot, and one that Windows has taken for a device
// at times and Wine does not. A device that is opened may never answer, so each answer has its limit.
test("names of devices", { timeout: 120_000 }, async (t) => {
  const directory = path.join(makeDirectory(), "presets");
  const service = await startWithPresets(t, directory);
  assert.equal(await put(service, "plain", JSON.stringify(settingOf())), answers.done);
  for (const name of ["NUL", "CON", "COM1", "LPT1", "AUX", "PRN", "nul", "COM%C2%B9"]) {
    await t.test(name, async () => {
      const spoken = [];
      for (const method of ["GET", "PUT", "GET", "DELETE", "DELETE"]) {
        const body = method === "PUT" ? JSON.stringify(settingOf()) : undefined;
        const client = await service.connect();
        client.push(service.apiBytes(method, `${collection}/${name}`, body));
        spoken.push((await client.answer(10_000)).bytes);
        await service.assertAnswers();
      }
      const fetched = presetAnswer(equalizerDocument(settingOf()));
      const asFile = [noSuchPreset, answers.done, fetched, answers.done, noSuchPreset];
      const asDevice = [noSuchPreset, notWritten, noSuchPreset, noSuchPreset, noSuchPreset];
      assert.deepEqual(spoken, isWine && !name.includes("%") ? asDevice : asFile);
    });
  }
  assert.deepEqual(await list(service), ["plain"]);
  assert.deepEqual(Object.keys(treeOf(directory)), ["plain.json"]);
});
