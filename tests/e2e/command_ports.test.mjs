// Ports that are taken, and programs at them that are no Velmora service, or another one.
import assert from "node:assert/strict";
import fs from "node:fs";
import net from "node:net";
import test from "node:test";

import {
  assertOneSentence,
  command,
  expectCommand,
  makeHome,
  makeProgramFolder,
  readRunFile,
  runFileOf,
  startCommand,
} from "./commands.mjs";
import {
  answerBytes,
  answers,
  atEnd,
  isNative,
  jsonDocument,
  launch,
  listen,
  poll,
  startLimitMs,
  startService,
} from "./harness.mjs";

const limits = { timeout: 120_000 };

// A program at a port that gives each connection the same bytes, or nothing, and remembers what it got.
/** @param {import("./harness.mjs").Scope} t @param {{ bytes?: string | null, port?: number, closes?: boolean }} behaviour */
async function startOther(t, { bytes = null, port = 0, closes = true } = {}) {
  const seen = [];
  const sockets = new Set();
  const server = net.createServer((socket) => {
    sockets.add(socket);
    let got = "";
    socket.setEncoding("latin1");
    socket.on("error", () => {});
    socket.on("data", (text) => {
      got += text;
      if (!got.endsWith("\r\n\r\n")) return;
      seen.push(got);
      if (bytes !== null) socket.write(bytes, "latin1");
      if (bytes !== null && closes) socket.end();
    });
  });
  atEnd(t, () => {
    for (const socket of sockets) socket.destroy();
    server.close();
  });
  const end = () => sockets.forEach((socket) => socket.destroy());
  return { port: await listen(server, port), seen, end };
}

const elsewhere =
  "HTTP/1.1 302 Found\r\nLocation: http://127.0.0.1:PORT/taken\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
const others = {
  garbage: "220 mail.example ready\r\n",
  silence: null,
  "an early end": "",
  "a redirection": elsewhere,
  "another page": answerBytes(200, "OK", "text/html", "<html>"),
  "another refusal": answerBytes(401, "Unauthorized", "text/html", "no"),
};

for (const [name, bytes] of Object.entries(others)) {
  test(`a port with ${name} is refused if it is asked for`, limits, async (t) => {
    const home = makeHome(t);
    const other = await startOther(t, { bytes });
    const begin = Date.now();
    await expectCommand(
      t,
      home,
      ["start", "--port", String(other.port)],
      26,
      `Another program uses the port ${other.port}: choose another one, or start without --port.\n`,
    );
    assert.ok(Date.now() - begin < 15_000);
    assert.equal(other.seen.length, 1);
    assert.ok(!/token/i.test(other.seen[0]));
    assert.ok(!fs.existsSync(runFileOf(home)));
  });
}

test("a service that this command did not start is refused", limits, async (t) => {
  const home = makeHome(t);
  const service = await startService(t);
  await expectCommand(
    t,
    home,
    ["start", "--port", String(service.port)],
    26,
    `Another Velmora service, perhaps of another user, answers at http://127.0.0.1:${service.port}/: end it in its own ` +
      "window, then start again.\n",
  );
  await service.assertAnswers();
});

test("without --port the first free port is taken", limits, async (t) => {
  const home = makeHome(t);
  // Other programs of this machine may have any of these ports, a Velmora service too.
  const first = await startOther(t, { bytes: others.garbage, port: 17831 }).catch(() => null);
  const started = await startCommand(t, home, { port: null }).catch((error) => {
    assert.match(String(error), /Another Velmora service, perhaps of another user, answers/);
    return null;
  });
  if (started === null) return;
  assert.ok(started.port >= (first === null ? 17831 : 17832) && started.port <= 17850);
  assert.equal(readRunFile(home).port, started.port);
  assert.equal((await command(t, home, ["stop"])).code, 0);
});

// In place of the service: a script that shows a banner for a port of the test's, and waits.
const banner = (port) =>
  `printf 'Velmora 1.2.0  (algorithm not found)\\n  Open: http://127.0.0.1:${port}/?token=0123456789abcdef\\n` +
  `  Press Ctrl+C to stop.\\n'\n`;
const script = (text) => `#!/bin/sh\ntrap 'exit 0' INT TERM\n${text}`;
const waits = "while :; do sleep 0.1; done\n";

if (isNative) {
  // A run of a script in place of the service.
  async function startScript(t, text) {
    const home = makeHome(t);
    const { program } = makeProgramFolder("", script(text));
    const started = launch(t, program, ["start"], { env: home.env });
    return { home, program, started };
  }

  async function startWithPeer(t, peer) {
    const run = await startScript(t, `${banner(peer.port)}${waits}`);
    await run.started.waitForLine("  Press Ctrl+C to stop.", 0, startLimitMs);
    return run;
  }

  /** @type {[string, { bytes: string | null, closes?: boolean }, number][]} */
  const rows = [
    ["garbage", { bytes: others.garbage }, 29],
    ["silence", { bytes: null }, 22],
    [
      "the beginning of an answer",
      { bytes: "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n{", closes: false },
      22,
    ],
    ["an early end", { bytes: "" }, 25],
    ["an end amid the answer", { bytes: "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n{" }, 25],
    ["another page", { bytes: others["another page"] }, 29],
    ["another document", { bytes: answerBytes(200, "OK", jsonDocument, '{"ok":true}') }, 29],
    ["a failure", { bytes: answerBytes(500, "Internal Server Error", jsonDocument, '{"error":"x"}') }, 29],
    ["a refusal of the token", { bytes: answers.noToken }, 26],
    ["a length beyond the limit", { bytes: "HTTP/1.1 200 OK\r\nContent-Length: 16777217\r\n\r\n" }, 29],
  ];
  for (const [name, behaviour, code] of rows) {
    test(`${name} in place of the status is exit code ${code}`, limits, async (t) => {
      const other = await startOther(t, behaviour);
      const { home, started } = await startWithPeer(t, other);
      const begin = Date.now();
      const status = await command(t, home, ["status"]);
      assert.equal(status.code, code, status.errors);
      assert.equal(status.output, "");
      assertOneSentence(status.errors);
      assert.ok(!status.errors.includes("0123456789abcdef"));
      assert.ok(Date.now() - begin < 15_000);
      assert.match(
        other.seen[0],
        /^GET \/api\/v1\/status HTTP\/1\.1\r\nHost: 127\.0\.0\.1:[0-9]+\r\nX-Velmora-Token: /,
      );
      await started.stop();
    });
  }

  test("a redirection is not followed, so the token stays", limits, async (t) => {
    const target = await startOther(t, { bytes: others.garbage });
    const other = await startOther(t, { bytes: elsewhere.replace("PORT", String(target.port)) });
    const { home, started } = await startWithPeer(t, other);
    for (const name of ["status", "open"]) {
      const end = await command(t, home, [name]);
      assert.equal(end.code, 29, end.errors);
      assertOneSentence(end.errors);
    }
    assert.equal(other.seen.length, 2);
    assert.deepEqual(target.seen, []);
    await started.stop();
  });

  test("a service that starts slowly is waited for, and started once", limits, async (t) => {
    const other = await startOther(t, { bytes: others["another page"] });
    const { home, program, started } = await startScript(t, `sleep 2\n${banner(other.port)}${waits}`);
    await poll("its run file", () => (fs.existsSync(runFileOf(home)) ? true : undefined));
    assert.equal(readRunFile(home), undefined, "the run file is empty while the service starts");
    const second = await command(t, home, ["start"], { program });
    assert.equal(second.code, 21, second.errors);
    const status = await command(t, home, ["status"]);
    assert.equal(status.code, 29, "it waited for the address and asked there");
    await started.stop();
  });

  test("a service that ends before its banner ends the run", limits, async (t) => {
    const { home, started } = await startScript(t, "echo 'no good' >&2\nprintf half\nexit 7\n");
    assert.deepEqual(await started.waitForEnd(), { code: 7, signal: null });
    assert.equal(started.errors, "no good\n");
    assert.equal(started.output, "half");
    assert.ok(!fs.existsSync(runFileOf(home)));
  });

  // Task Manager ends a process with code 1, which no service that has shown its address gives.
  for (const [how, before, ending, code] of [
    ["is killed while it starts", "", "kill -KILL $$\n", 137],
    ["is killed", banner(9), "kill -KILL $$\n", 137],
    ["ends with the code of Task Manager", banner(9), "exit 1\n", 1],
  ]) {
    test(`a service that ${how} gives 25`, limits, async (t) => {
      const { home, started } = await startScript(t, `${before}${ending}`);
      assert.deepEqual(await started.waitForEnd(), { code: 25, signal: null });
      assert.equal(
        started.errors,
        `The service has ended unexpectedly (code ${code}): start it again with velmora start.\n`,
      );
      assert.ok(!fs.existsSync(runFileOf(home)));
    });
  }

  test("a service that dies while it is asked is lost", limits, async (t) => {
    const home = makeHome(t);
    const other = await startOther(t, { bytes: null });
    const { program } = makeProgramFolder("", script(`${banner(other.port)}${waits}`));
    const started = launch(t, program, ["start"], { env: home.env });
    await started.waitForLine("  Press Ctrl+C to stop.", 0, startLimitMs);
    const asked = command(t, home, ["status"]);
    await poll("its request", () => (other.seen.length > 0 ? true : undefined));
    other.end();
    const status = await asked;
    assert.equal(status.code, 25, status.errors);
    assertOneSentence(status.errors);
    await started.stop();
  });
}
