// The banner, the ways in which a start fails once the command line is good, and the end.
import assert from "node:assert/strict";
import fs from "node:fs";
import path from "node:path";
import test from "node:test";

import {
  Client,
  answers,
  assertAnswers,
  atEnd,
  creatingService,
  developmentToken,
  exchange,
  freePort,
  isNative,
  isWine,
  launch,
  makeBrowser,
  makeDirectory,
  makeWebRoot,
  poll,
  programPathText,
  putBytes,
  readRecord,
  refusalBytes,
  requestBytes,
  run,
  shippedService,
  sleep,
  startEffect,
  startLimitMs,
  startService,
  uniqueMappingName,
  waitLimitMs,
  within,
} from "./harness.mjs";

const limits = { timeout: 60_000 };
const defaultPort = 17831;
const footstep = "/api/v1/render/effects/footstep";

function quoted(text) {
  return `"${text.replaceAll("\\", "\\\\").replaceAll('"', '\\"')}"`;
}

async function assertDoesNotStart(t, program, args, code, errors) {
  const ended = await run(t, program, args);
  assert.deepEqual(ended, { code, signal: null, output: "", errors });
}

function serviceArguments(port, mapping, webRoot = makeWebRoot()) {
  return ["--port", String(port), "--web-root", programPathText(webRoot), "--control-map", mapping];
}

function takenPortLines(port) {
  return (
    `Unable to bind 127.0.0.1:${port} (Winsock error 10048)\n` +
    "Another control service is already running on this port.\n" +
    "Stop it first (run the stop script, or end velmora_control_demo), then start again.\n"
  );
}

test("the banner shows the given token and nothing else is printed", limits, async (t) => {
  const token = 'a token of any letters, "quoted" or not: é';
  const service = await startService(t, { token });
  const tokenBytes = Buffer.from(token).toString("latin1");
  const expected =
    "Velmora 1.2.0  (algorithm not found)\n" +
    `  Open: http://127.0.0.1:${service.port}/?token=${tokenBytes}\n` +
    "  Press Ctrl+C to stop.\n";
  assert.equal(service.output, expected);
  await service.assertAnswers();
  await service.stop();
  assert.equal(service.output, expected);
});

test("a generated token is 48 lower-case hexadecimal digits and never the same", limits, async (t) => {
  const tokens = new Set();
  const services = await Promise.all([1, 2].map(() => startService(t, { token: null })));
  for (const service of services) {
    assert.match(service.token, /^[0-9a-f]{48}$/);
    tokens.add(service.token);
    await service.expectFor(answers.notFound, service.putBytes("/api/v1/none", ""));
    await service.stop();
  }
  assert.equal(tokens.size, 2);
});

test("the verbose banner adds the advanced page, the web root and the control map", limits, async (t) => {
  const webRoot = makeWebRoot({}, "with blank");
  // The longest name that passes.
  const mapping = `${uniqueMappingName()}-`.padEnd(240, "n");
  const service = await startService(t, { webRoot, mapping, more: ["--verbose"] });
  const address = `http://127.0.0.1:${service.port}`;
  assert.equal(
    service.output,
    "Velmora 1.2.0  (algorithm not found)\n" +
      `  Open: ${address}/?token=${developmentToken}\n` +
      `  Advanced: ${address}/advanced.html?token=${developmentToken}\n` +
      `  Web root: ${quoted(programPathText(webRoot))}\n` +
      `  Control map: ${mapping} (shared_memory_v8)\n` +
      "  Press Ctrl+C to stop.\n",
  );
});

test("an option that is given twice takes its last value", limits, async (t) => {
  const [firstPort, port] = [await freePort(), await freePort()];
  const mapping = uniqueMappingName();
  const token = "the last token that was given counts";
  const service = launch(t, creatingService(), [
    ...serviceArguments(firstPort, "not a name", makeDirectory()),
    ...["--token", "x".repeat(40), "--verbose", "--verbose"],
    ...serviceArguments(port, mapping),
    ...["--token", token],
  ]);
  await service.waitForLine(`  Control map: ${mapping} (shared_memory_v8)`, 0, startLimitMs);
  await service.waitForLine("  Press Ctrl+C to stop.");
  await service.waitForLine(`  Open: http://127.0.0.1:${port}/?token=${token}`);
  await assertAnswers({ port });
  await service.stop();
});

test("without an option the port is 17831", limits, async (t) => {
  // A service of the machine's user may hold the port: being refused at it names it too. The control map that applies
  // without an option is that user's, so it is not touched.
  const args = ["--web-root", programPathText(makeWebRoot()), "--control-map", uniqueMappingName()];
  const refusal = takenPortLines(defaultPort);
  const service = launch(t, creatingService(), args);
  const hasPort = await service.until(
    "its banner or its refusal",
    () => {
      if (service.output.includes("  Press Ctrl+C to stop.\n")) return true;
      return service.errors.length >= refusal.length ? false : undefined;
    },
    startLimitMs,
  );
  if (!hasPort) {
    assert.deepEqual(await service.waitForEnd(), { code: 9, signal: null });
    assert.equal(service.errors, refusal);
    return assert.equal(service.output, "");
  }
  assert.match(service.output, /^ {2}Open: http:\/\/127\.0\.0\.1:17831\/\?token=[0-9a-f]{48}$/m);
  await assertDoesNotStart(t, creatingService(), args, 9, refusal);
  await assertAnswers({ port: defaultPort });
  await service.stop();
});

test("the program as shipped needs a system that takes its descriptor", limits, async (t) => {
  if (isWine) {
    const mapping = uniqueMappingName();
    const refused =
      "Unable to create shared control bridge: unable to create the control mapping security descriptor: 1336\n";
    await assertDoesNotStart(t, shippedService, serviceArguments(await freePort(), mapping), 5, refused);
    // With a mapping that is there already it needs no descriptor.
    await startEffect(t, mapping, [], "mapping made");
    const service = await startService(t, { program: shippedService, mapping });
    await service.assertAnswers();
    return service.stop();
  }
  const service = await startService(t, { program: shippedService });
  await service.assertAnswers();
});

test("a mapping of another layout ends the start with exit code 5", limits, async (t) => {
  const incompatible =
    "Unable to create shared control bridge: existing control mapping has an incompatible layout\n";
  const rows = [
    ["version", incompatible],
    ["size", incompatible],
    ["magic", incompatible],
    ["unfinished", incompatible],
  ];
  // A mapping on Windows is whole pages, so that a smaller one can be seen past its end there.
  if (isNative) {
    rows.push(["small", "Unable to create shared control bridge: MapViewOfFile failed with error 5\n"]);
  }
  for (const [fault, errors] of rows) {
    await t.test(fault, async (row) => {
      const mapping = uniqueMappingName();
      await startEffect(row, mapping, ["--fault", fault], "mapping made");
      await assertDoesNotStart(row, shippedService, serviceArguments(await freePort(), mapping), 5, errors);
    });
  }
});

test("a second instance on the same port ends with exit code 9", limits, async (t) => {
  const service = await startService(t);
  const { port } = service;
  await assertDoesNotStart(
    t,
    creatingService(),
    serviceArguments(port, service.mapping),
    9,
    takenPortLines(port),
  );
  await service.assertAnswers();
});

test("a restart right after a stop binds the same port", limits, async (t) => {
  const port = await freePort();
  for (let round = 0; round < 3; ++round) {
    const service = await startService(t, { port });
    // The service closes first, so its side of these connections is the one that lingers.
    for (let request = 0; request < 5; ++request) await service.assertAnswers();
    await service.stop();
  }
});

test("a stop ends the service although a page was just asked for", limits, async (t) => {
  const service = await startService(t);
  const clients = await Promise.all([1, 2, 3].map(() => service.connect()));
  for (const client of clients) client.push(service.requestBytes());
});

test("a stop waits for the running exchange and does not disturb it", limits, async (t) => {
  const service = await startService(t);
  const client = await service.connect();
  const bytes = service.putBytes(footstep, '{"bypass":false,"enhance_strength":0.5}');
  await client.send(bytes.slice(0, 40));
  await sleep(100);
  service.signal("SIGINT");
  assert.ok(await client.isSilentFor(500));
  assert.equal(service.end, undefined, "it runs on while the client is there");
  await client.send(bytes.slice(40, -5));
  await sleep(50);
  await client.send(bytes.slice(-5));
  assert.deepEqual(await client.answer(), { bytes: answers.done, reset: false });
  assert.deepEqual(await service.waitForEnd(), { code: 0, signal: null });
  assert.equal(service.errors, "");
});

test("a stop is noticed when the client that held the service has left", limits, async (t) => {
  const service = await startService(t);
  const client = await service.connect();
  await sleep(100);
  service.signal("SIGINT");
  service.signal("SIGINT");
  await sleep(500);
  assert.equal(service.end, undefined, "it runs on while the client is there");
  client.leave();
  assert.deepEqual(await service.waitForEnd(), { code: 0, signal: null });
  assert.equal(service.errors, "");
});

// The other stop signals are the native system's: Wine turns only an interrupt into a console event.
if (isNative) {
  test("each stop signal ends the service with exit code 0", limits, async (t) => {
    for (const signal of /** @type {const} */ (["SIGINT", "SIGTERM", "SIGQUIT", "SIGHUP"])) {
      await t.test(signal, async (row) => {
        const service = await startService(row);
        await service.stop(signal);
      });
    }
  });
}

test("a service whose output nobody reads serves on", limits, async (t) => {
  const port = await freePort();
  const args = [...serviceArguments(port, uniqueMappingName()), "--token", developmentToken, "--verbose"];
  const start = async () => {
    const program = launch(t, creatingService(), args);
    program.child.stdout?.destroy();
    program.child.stderr?.destroy();
    const listening = () => Client.connect({ port }).catch(() => program.end);
    return { service: program, first: await poll("the service to listen", listening, startLimitMs) };
  };
  let { service, first } = await start();
  // What Wine says of a program that it could not start is not read either.
  if (isWine && service.end !== undefined) ({ service, first } = await start());
  assert.equal(service.end, undefined, "it runs");
  if (first instanceof Client) first.leave();
  await assertAnswers({ port });
  service.signal("SIGINT");
  const exited = new Promise((resolve) =>
    service.child.once("exit", (code, signal) => resolve({ code, signal })),
  );
  assert.deepEqual(await within(waitLimitMs, () => "its end", exited), { code: 0, signal: null });
});

// A stream that is closed at the start is a number that the next thing opened would take, and the banner would go into
// it. On Windows a program without a stream has no handle for it, and nothing else can take the stream's place.
if (isNative) {
  const closedStreams = [
    ["standard input", "<&-"],
    ["standard output", ">&-"],
    ["standard error", "2>&-"],
    ["any standard stream", "<&- >&- 2>&-"],
  ];

  // Starts the program by a shell that closes streams and then becomes the program.
  const launchWithout = (t, redirections, args) =>
    launch(t, "/bin/sh", ["-c", `exec "$0" "$@" ${redirections}`, creatingService(), ...args]);

  test("a service without standard streams keeps its record and its answers", limits, async (t) => {
    const ordinary = await startService(t);
    const firstRecord = await readRecord(t, ordinary.mapping);
    const page = await ordinary.exchange(ordinary.requestBytes({ target: "/help.html" }));
    const [banner] = ordinary.output.split("  Open:");
    await ordinary.stop();

    for (const [what, redirections] of closedStreams) {
      await t.test(`without ${what}`, async (row) => {
        const [port, mapping] = [await freePort(), uniqueMappingName()];
        const args = [...serviceArguments(port, mapping), "--token", developmentToken, "--verbose"];
        const service = launchWithout(row, redirections, args);
        const client = await poll(
          "the service to listen",
          () => Client.connect({ port }).catch(() => undefined),
          startLimitMs,
        );
        client.push(requestBytes({ port }, { target: "/help.html" }));
        assert.deepEqual(await client.answer(), { bytes: page, reset: false });
        assert.deepEqual(await readRecord(row, mapping), firstRecord);
        assert.equal(
          await exchange({ port }, putBytes({ port, token: developmentToken }, footstep, "{}")),
          refusalBytes(400, "Bad Request", "bypass and enhance_strength (0..1) are required"),
        );
        await service.stop();
        const speaks = what !== "standard output" && what !== "any standard stream";
        assert.equal(service.output.slice(0, banner.length), speaks ? banner : "");
      });
    }
  });

  test("a start that fails without standard streams leaves the record unharmed", limits, async (t) => {
    const service = await startService(t);
    const firstRecord = await readRecord(t, service.mapping);
    for (const [what, redirections] of closedStreams) {
      await t.test(`without ${what}`, async (row) => {
        const refused = launchWithout(row, redirections, serviceArguments(service.port, service.mapping));
        assert.deepEqual(await refused.waitForEnd(startLimitMs), { code: 9, signal: null });
        assert.equal(refused.errors, redirections.includes("2>") ? "" : takenPortLines(service.port));
        assert.deepEqual(await readRecord(row, service.mapping), firstRecord);
      });
    }
    await service.assertAnswers();
  });
}

test("the browser is opened on the address of the banner", limits, async (t) => {
  const { seen, env } = makeBrowser();
  const service = await startService(t, { env, more: ["--open-browser"] });
  await poll("the browser", () => (fs.existsSync(seen) ? true : undefined), startLimitMs);
  const address = `http://127.0.0.1:${service.port}/?token=${service.token}`;
  assert.equal(fs.readFileSync(seen, "utf8"), `1\n${address}\n`);
  await service.assertAnswers();
  assert.ok(service.output.endsWith("  Press Ctrl+C to stop.\n"));
});

// Under Wine opening an address always succeeds: what is started there is a program of Wine's own that looks for a
// browser later.
if (isNative) {
  test("a browser that cannot be started costs one line and nothing else", limits, async (t) => {
    const service = await startService(t, { env: { PATH: makeDirectory() }, more: ["--open-browser"] });
    await service.waitForLine(
      "  (could not open a browser automatically -- copy the address above into one)",
    );
    await service.assertAnswers();
  });

  test("a browser that stays holds nothing of the service", limits, async (t) => {
    const directory = makeDirectory();
    const processFile = path.join(directory, "pid");
    const script = `#!/bin/sh\necho $$ > '${processFile}.part'\nmv '${processFile}.part' '${processFile}'\nexec sleep 60\n`;
    fs.writeFileSync(path.join(directory, "xdg-open"), script, { mode: 0o755 });
    const env = { PATH: `${directory}:${process.env.PATH}` };
    const service = await startService(t, { env, more: ["--open-browser"] });
    await poll("the browser", () => (fs.existsSync(processFile) ? true : undefined));
    const browser = Number(fs.readFileSync(processFile, "utf8"));
    atEnd(t, () => process.kill(browser, "SIGKILL"));
    assert.ok(browser > 1);
    await service.assertAnswers();
    // The end of its output shows that the browser does not hold the pipe either.
    await service.stop();
    const again = await startService(t, { port: service.port });
    await again.stop();
    process.kill(browser, 0);
  });
}
