// The command line: help, what it says when nothing runs, start, status, open.
import assert from "node:assert/strict";
import fs from "node:fs";
import path from "node:path";
import test from "node:test";

import {
  assertOneSentence,
  command,
  commandLine,
  expectCommand,
  makeHome,
  makeProgramFolder,
  readRunFile,
  runFileOf,
  startCommand,
} from "./commands.mjs";
import {
  isNative,
  isWine,
  launch,
  makeBrowser,
  makeDirectory,
  makeSmallDisk,
  makeWebRoot,
  missingMountRight,
  pageNames,
  poll,
  programPathText,
  run,
  startLimitMs,
  uniqueMappingName,
} from "./harness.mjs";

const limits = { timeout: 120_000 };
const notRunning = "Velmora is not running: start it with velmora start.\n";
const alreadyRunning =
  "Velmora is already running: open its page with velmora open, or end it with velmora stop.\n";

test("help and version need nothing", limits, async (t) => {
  const home = makeHome(t);
  const overview = await command(t, home, ["--help"]);
  assert.equal(overview.code, 0);
  assert.equal(overview.errors, "");
  assert.match(overview.output, /^ {2}velmora start /m);
  const none = await command(t, home, []);
  assert.deepEqual(none, { code: 2, signal: null, output: "", errors: overview.output });
  for (const name of ["start", "stop", "status", "open", "interrupt"]) {
    const help = await command(t, home, [name, "--help"]);
    assert.equal(help.code, 0);
    assert.match(help.output, new RegExp(`^ {2}velmora ${name}`, "m"));
  }
  await expectCommand(t, home, ["--version"], 0, "", "velmora 1.2.0\n");
  assert.ok(!fs.existsSync(home.folder), "nothing was written");
});

test("a command line that makes no sense is refused", limits, async (t) => {
  const home = makeHome(t);
  for (const args of [
    ["begin"],
    ["stop", "--json"],
    ["status", "now"],
    ["open", "--force"],
    ["interrupt", "x"],
  ]) {
    const end = await command(t, home, args);
    assert.equal(end.code, 2, args.join(" "));
    assert.equal(end.output, "");
    assertOneSentence(end.errors);
  }
});

test("without a run each command says so", limits, async (t) => {
  const home = makeHome(t);
  for (const args of [["status"], ["status", "--json"], ["stop"], ["stop", "--force"], ["open"]])
    await expectCommand(t, home, args, 20, notRunning);
});

test("start relays the service and keeps its address for its user only", limits, async (t) => {
  const home = makeHome(t);
  const started = await startCommand(t, home, { more: ["--verbose"] });
  assert.match(started.output, /^ {2}Advanced: /m);
  assert.equal(started.errors, "");
  const record = readRunFile(home);
  assert.deepEqual(Object.keys(record), ["version", "address", "port", "run", "process_id", "token"]);
  assert.equal(record.version, "1.2.0");
  assert.equal(record.address, `http://127.0.0.1:${started.port}/`);
  assert.equal(record.port, started.port);
  assert.match(record.run, /^[0-9a-f]{16}$/);
  assert.equal(record.token, started.token);
  if (isNative) {
    assert.equal(fs.statSync(runFileOf(home)).mode & 0o777, 0o600);
    assert.equal(fs.statSync(home.folder).mode & 0o777, 0o700);
    assert.ok(!fs.readFileSync(`/proc/${record.process_id}/cmdline`, "utf8").includes(started.token));
  }
  await started.assertAnswers();
  await expectCommand(t, home, ["start"], 21, alreadyRunning);
  await expectCommand(t, home, ["stop"], 0, "", "Velmora has ended.\n");
  assert.deepEqual(await started.waitForEnd(), { code: 0, signal: null });
  assert.ok(!fs.existsSync(runFileOf(home)));
  assert.deepEqual(fs.readdirSync(home.folder), []);
});

test("status shows checks and settings, and never the token", limits, async (t) => {
  const home = makeHome(t);
  const started = await startCommand(t, home);
  const body = '{"bypass":false,"bypass_all":false,"enhance_strength":0.25}';
  await started.ask("PUT", "/api/v1/render/effects/footstep", body);
  const report = await command(t, home, ["status"]);
  assert.equal(report.code, 0, report.errors);
  assert.equal(report.errors, "");
  const lines = report.output.split("\n");
  assert.equal(lines[0], `Velmora 1.2.0 at http://127.0.0.1:${started.port}/`);
  const names = ["installed", "added", "engine", "loaded", "processing", "applied"];
  names.forEach((name, index) =>
    assert.match(lines[index + 2], new RegExp(`^${name.padEnd(13)}(yes|no|unknown) +[A-Z]`)),
  );
  const settings = lines.slice(9, -1).map((line) => line.slice(0, 13).trim());
  assert.deepEqual(settings, [
    ..."device,volume,enhancement,strength,bypass all,equalizer,output trim,limiter,account".split(","),
  ]);
  assert.ok(lines.includes("enhancement  on"));
  assert.ok(lines.includes("strength     25 %"));
  assert.ok(lines.includes("equalizer    off, 0 of 15 bands in use"));
  const all = await command(t, home, ["status", "--json"]);
  assert.equal(all.code, 0, all.errors);
  const document = JSON.parse(all.output);
  assert.deepEqual(Object.keys(document), ["version", "address", "checks", "status", "equalizer", "devices"]);
  assert.deepEqual(Object.keys(document.checks), names);
  assert.equal(document.status.footstep.enhance_strength, 0.25);
  assert.equal(document.equalizer.bands.length, 15);
  for (const text of [report.output, all.output]) assert.ok(!text.includes(started.token));
});

test("open shows the page of the running service", limits, async (t) => {
  const home = makeHome(t);
  const started = await startCommand(t, home);
  const { seen, env } = makeBrowser();
  const end = await command(t, home, ["open"], { env });
  assert.deepEqual(end, { code: 0, signal: null, output: "", errors: "" });
  await poll("the browser", () => (fs.existsSync(seen) ? true : undefined), startLimitMs);
  assert.equal(
    fs.readFileSync(seen, "utf8"),
    `1\nhttp://127.0.0.1:${started.port}/?token=${started.token}\n`,
  );
});

test("start hands on how the service failed", limits, async (t) => {
  const home = makeHome(t);
  const refused = await command(t, home, ["start", "--what"]);
  assert.equal(refused.code, 2);
  assert.match(refused.errors, /^Usage: velmora_control_demo /);
  await expectCommand(t, home, ["start", "--port", "x"], 2, "Invalid port\n");
  const missing = path.join(makeDirectory(), "none");
  const unread = await command(t, home, ["start", "--web-root", programPathText(missing)]);
  assert.equal(unread.code, 3);
  assert.match(unread.errors, /^Unable to read "/);
  // The self-test makes a mapping, and Wine refuses its descriptor.
  const result = isNative ? { code: 0, word: "passed" } : { code: 1, word: "failed" };
  const tested = await command(t, home, ["start", "--self-test"]);
  const line = `Velmora control self-test ${result.word}\n`;
  assert.deepEqual(tested, { code: result.code, signal: null, output: line, errors: "" });
  assert.ok(!fs.existsSync(runFileOf(home)));
});

// Under Wine a path with a quotation mark or a colon is none.
for (const name of [
  "with blanks",
  "中文 路径",
  "a&b",
  "100%!done!",
  "it's (1)",
  ...(isNative ? ['"quoted" \\', "a\tb"] : []),
]) {
  test(`pages and programs may be in a folder named ${JSON.stringify(name)}`, limits, async (t) => {
    const home = makeHome(t);
    const given = await startCommand(t, home, { webRoot: makeWebRoot({ "index.html": "mine\n" }, name) });
    assert.match(await given.exchange(given.requestBytes()), /\r\n\r\nmine\n$/);
    assert.equal((await command(t, home, ["stop"])).code, 0);
    const { folder, program } = makeProgramFolder(name);
    fs.mkdirSync(path.join(folder, "web"));
    for (const page of pageNames)
      fs.writeFileSync(path.join(folder, "web", page), `of the folder: ${page}\n`);
    const found = await startCommand(t, home, { program, webRoot: null });
    assert.match(await found.exchange(found.requestBytes()), /\r\n\r\nof the folder: index\.html\n$/);
    assert.equal((await command(t, home, ["stop"], { program })).code, 0);
    assert.deepEqual(await found.waitForEnd(), { code: 0, signal: null });
  });
}

test("start needs the service's program", limits, async (t) => {
  const home = makeHome(t);
  const { folder, program } = makeProgramFolder("");
  const service = path.join(folder, `velmora_control_demo${isWine ? ".exe" : ""}`);
  fs.rmSync(service);
  const missing = await command(t, home, ["start"], { program });
  assert.equal(missing.code, 27);
  assert.equal(missing.errors, `${programPathText(service)} is missing: unpack the whole archive again.\n`);
  fs.writeFileSync(service, "no program", { mode: 0o755 });
  const broken = await command(t, home, ["start"], { program });
  assert.equal(broken.code, 27);
  assert.match(
    broken.errors,
    /velmora_control_demo(\.exe)? cannot be started \(error [0-9]+\): unpack the whole archive again\.\n$/,
  );
  assert.ok(!fs.existsSync(runFileOf(home)));
});

test("a run file of a run that was killed is of no use", limits, async (t) => {
  const home = makeHome(t);
  const killed = await startCommand(t, home);
  const { process_id: serviceId } = readRunFile(home);
  killed.kill();
  await killed.waitForEnd();
  await poll("the service to end", async () => {
    if (isNative) return fs.existsSync(`/proc/${serviceId}`) ? undefined : true;
    return (await killed.connect().catch(() => null)) === null ? true : undefined;
  });
  await expectCommand(t, home, ["status"], 20, notRunning);
  await expectCommand(t, home, ["stop"], 20, notRunning);
  const again = await startCommand(t, home, { port: killed.port });
  assert.equal(readRunFile(home).token, again.token);
  assert.equal((await command(t, home, ["status"])).code, 0);
});

test("in a window start says what it is, and opens the page of a run that exists", limits, async (t) => {
  const home = makeHome(t);
  const { seen, env } = makeBrowser();
  // The tests have an administrator's rights, with which no browser is started.
  const started = await startCommand(t, home, { inWindow: true, env });
  assert.match(started.output, /^This window runs Velmora\. /);
  const second = await command(t, home, ["start", "--window"], { env });
  assert.deepEqual(second, {
    code: 0,
    signal: null,
    output: "Velmora is already running. Its page opens in the browser.\n",
    errors: "",
  });
  await poll("the browser", () => (fs.existsSync(seen) ? true : undefined), startLimitMs);
  assert.match(fs.readFileSync(seen, "utf8"), new RegExp(`token=${started.token}\\n$`));
  const stopped = await command(t, home, ["stop", "--window"]);
  assert.equal(stopped.code, 0, stopped.errors);
  assert.equal(stopped.output, "Ending Velmora ...\nVelmora has ended.\n");
  assert.deepEqual(await started.waitForEnd(), { code: 0, signal: null });
});

test("in a window a failure waits to be read", limits, async (t) => {
  const home = makeHome(t);
  const program = launch(t, commandLine, ["stop", "--window"], { env: home.env, withInput: true });
  const asks = "Press Enter to close this window. ";
  await program.until("the question", () => (program.output.endsWith(asks) ? true : undefined), startLimitMs);
  assert.equal(program.end, undefined);
  program.child.stdin?.write("\n");
  assert.deepEqual(await program.waitForEnd(), { code: 20, signal: null });
  assert.equal(program.errors, "Velmora is not running: start it with start.cmd.\n");
});

if (isNative) {
  test("output that a full disk does not take is a failure", limits, async (t) => {
    const home = makeHome(t);
    const started = await startCommand(t, home);
    for (const args of ["--help", "--version", "status", "status --json"]) {
      const end = await run(t, "/bin/sh", ["-c", `exec "$0" ${args} >/dev/full`, commandLine], {
        env: home.env,
      });
      assert.equal(end.code, 30, args);
      assert.equal(end.output, "");
      assertOneSentence(end.errors);
    }
    await started.stop();
  });

  const mounts = { ...limits, skip: missingMountRight() };

  test("on a full disk no service is left running", mounts, async (t) => {
    const { directory } = makeSmallDisk(t, 16_384);
    const home = { env: { HOME: directory }, folder: path.join(directory, ".local/state/velmora/control") };
    fs.mkdirSync(home.folder, { recursive: true, mode: 0o700 });
    const filler = path.join(directory, "filler");
    try {
      fs.writeFileSync(filler, Buffer.alloc(65_536));
    } catch {
      // It is full now.
    }
    const mapping = uniqueMappingName();
    const options = ["--control-map", mapping, "--web-root", makeWebRoot()];
    const end = await command(t, home, ["start", ...options]);
    assert.equal(end.code, 24, end.output + end.errors);
    assert.match(
      end.errors,
      /run\.json cannot be written, because the disk is full: make room, then try again\.\n$/,
    );
    assert.equal(end.output, "");
    assert.deepEqual(fs.readdirSync(home.folder), []);
  });

  test("on a read-only disk nothing starts", mounts, async (t) => {
    const { directory, makeReadOnly } = makeSmallDisk(t, 65_536);
    fs.mkdirSync(path.join(directory, ".local/state/velmora"), { recursive: true });
    makeReadOnly();
    const end = await command(t, { env: { HOME: directory }, folder: "" }, ["start"]);
    assert.equal(end.code, 24);
    assert.match(
      end.errors,
      /control cannot be written, because the disk is read-only: make it writable, then try again\.\n$/,
    );
  });

  test("a stop request that cannot be written stops nothing", mounts, async (t) => {
    const { directory } = makeSmallDisk(t, 16_384);
    const home = { env: { HOME: directory }, folder: path.join(directory, ".local/state/velmora/control") };
    const started = await startCommand(t, home);
    try {
      fs.writeFileSync(path.join(directory, "filler"), Buffer.alloc(65_536));
    } catch {
      // It is full now.
    }
    const end = await command(t, home, ["stop"]);
    assert.equal(end.code, 24);
    assert.match(
      end.errors,
      /stop\.json cannot be written, because the disk is full: make room, then try again\.\n$/,
    );
    assert.deepEqual(fs.readdirSync(home.folder), ["run.json"]);
    await started.assertAnswers();
    await started.stop();
  });

  test("without a home there is one sentence", limits, async (t) => {
    const home = { env: { HOME: undefined }, folder: "" };
    const sentence =
      "There is no folder for this user: set LOCALAPPDATA on Windows, or HOME elsewhere, to a full path.\n";
    await expectCommand(t, home, ["start"], 24, sentence);
    await expectCommand(t, home, ["status"], 23, sentence);
    await expectCommand(t, home, ["stop"], 23, sentence);
    await expectCommand(t, { env: { HOME: "relative" }, folder: "" }, ["open"], 23, sentence);
  });

  // Another user, who is no administrator, with a home and programs of their own.
  function makeOtherUser() {
    const { folder, program } = makeProgramFolder("programs");
    fs.chmodSync(path.dirname(folder), 0o755);
    const webRoot = makeWebRoot({}, "web");
    fs.chmodSync(path.dirname(webRoot), 0o755);
    const home = makeDirectory();
    fs.chownSync(home, 65_534, 65_534);
    const control = path.join(home, ".local/state/velmora/control");
    const wrapper = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"];
    return { home: { env: { HOME: home }, folder: control }, program, webRoot, wrapper };
  }

  test("in a window a person without an administrator's rights is asked first", limits, async (t) => {
    const { home, program, webRoot, wrapper } = makeOtherUser();
    const browser = makeBrowser();
    fs.chmodSync(path.dirname(browser.seen), 0o777);
    const options = { program, webRoot, wrapper, inWindow: true, answer: "y\n", env: browser.env };
    const started = await startCommand(t, home, options);
    assert.ok(
      started.output.startsWith(
        "Velmora needs administrator rights to be added to a device or removed from one, to restart audio,\n" +
          "and to start while no sound goes through the effect.\n" +
          "Start Velmora as administrator? (y/n) " +
          "Windows has not started it as administrator. It starts with your own rights.\n" +
          "This window runs Velmora. Leave it open while you use Velmora.\n",
      ),
      started.output,
    );
    await poll("the browser", () => (fs.existsSync(browser.seen) ? true : undefined), startLimitMs);
    // This user finds the run; another one does not get at it.
    assert.equal(fs.statSync(runFileOf(home)).uid, 65_534);
    const root = await command(t, home, ["status"]);
    assert.equal(root.code, 23, root.errors);
    assertOneSentence(root.errors);
    const mine = makeHome(t);
    const own = await startCommand(t, mine);
    for (const directory of [mine.env.HOME ?? "", path.join(mine.env.HOME ?? "", ".local")])
      fs.chmodSync(directory, 0o755);
    const asked = await run(t, program, ["status"], { wrapper, env: mine.env });
    assert.equal(asked.code, 23, asked.errors);
    assertOneSentence(asked.errors);
    await own.stop();
    await started.stop();
  });

  test("files of somebody else are left alone", limits, async (t) => {
    const home = makeHome(t);
    const started = await startCommand(t, home);
    fs.chownSync(runFileOf(home), 1, 1);
    const sentence = `${runFileOf(home)} belongs to somebody else or others may read it: remove it, then try again.\n`;
    for (const name of ["status", "stop", "open"]) await expectCommand(t, home, [name], 23, sentence);
    fs.chownSync(runFileOf(home), 0, 0);
    fs.chmodSync(runFileOf(home), 0o644);
    await expectCommand(t, home, ["status"], 23, sentence);
    fs.chmodSync(runFileOf(home), 0o600);
    await started.stop();
    fs.chownSync(home.folder, 1, 1);
    await expectCommand(
      t,
      home,
      ["start"],
      23,
      `${home.folder} belongs to somebody else or others may read it: remove it, then try again.\n`,
    );
  });

  test("a run file that is a link, a folder or nonsense is not read", limits, async (t) => {
    const home = makeHome(t);
    fs.mkdirSync(home.folder, { recursive: true, mode: 0o700 });
    const target = path.join(makeDirectory(), "secret");
    fs.writeFileSync(target, "secret", { mode: 0o600 });
    fs.symlinkSync(target, runFileOf(home));
    const linked = await command(t, home, ["status"]);
    assert.equal(linked.code, 23);
    assertOneSentence(linked.errors);
    fs.rmSync(runFileOf(home));
    fs.mkdirSync(runFileOf(home));
    const folder = await command(t, home, ["status"]);
    assert.equal(folder.code, 23);
    assertOneSentence(folder.errors);
    const refused = await command(t, home, ["start"]);
    assert.equal(refused.code, 24);
    assertOneSentence(refused.errors);
  });
}
