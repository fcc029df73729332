// The built-in self-test as a user runs it: what it prints, how it ends, and that it needs nothing and leaves nothing.
import assert from "node:assert/strict";
import fs from "node:fs";
import net from "node:net";
import path from "node:path";
import test from "node:test";

import {
  atEnd,
  creatingService,
  isNative,
  isWine,
  launch,
  listen,
  makeDirectory,
  makeSmallDisk,
  missingMountRight,
  readRecord,
  run,
  shippedService,
  startEffect,
  startService,
} from "./harness.mjs";

const limits = { timeout: 120_000 };
const passed = { code: 0, signal: null, output: "Velmora control self-test passed\n", errors: "" };
const failed = { code: 1, signal: null, output: "Velmora control self-test failed\n", errors: "" };
const usageCode = 2;

const selfTest = (t, options, args = ["--self-test"]) => run(t, creatingService(), args, options);

// What is left of the mapping of the self-test with this process number. Tests of other files make more of them.
/** @param {string} id */
const leftMappings = (id) =>
  fs.readdirSync("/dev/shm").filter((name) => name.includes(`VelmoraSelfTest-${id}`));

test("the self-test passes", limits, async (t) => {
  assert.deepEqual(await selfTest(t), passed);
});

if (isWine) {
  test("where the mapping's descriptor is refused the self-test fails", limits, async (t) => {
    // The program as it is shipped, whose descriptor this system does not understand.
    assert.deepEqual(await run(t, shippedService, ["--self-test"]), failed);
  });
}

test("the self-test begins at its option", limits, async (t) => {
  /** @type {any[][]} */
  const rows = [
    [["--self-test", "--bad"], passed],
    [["--self-test", "--port", "0"], passed],
    [["--port", "1", "--web-root", "missing", "--self-test", "--self-test"], passed],
    [["--control-map", "no name", "--verbose", "--self-test"], passed],
  ];
  for (const [args, expected] of rows) {
    await t.test(args.join(" "), async (row) => assert.deepEqual(await selfTest(row, {}, args), expected));
  }
  for (const args of [
    ["--bad", "--self-test"],
    ["--port", "0", "--self-test"],
    ["--Self-Test"],
    ["--self-test=1"],
  ]) {
    await t.test(args.join(" "), async (row) => {
      const { code, output } = await selfTest(row, {}, args);
      assert.deepEqual([code, output], [usageCode, ""]);
    });
  }
});

test("several at once pass", limits, async (t) => {
  const ended = await Promise.all(Array.from({ length: isNative ? 8 : 3 }, () => selfTest(t)));
  for (const end of ended) assert.deepEqual(end, passed);
});

test("it passes in a directory without pages, and leaves nothing there", limits, async (t) => {
  const cwd = makeDirectory();
  assert.deepEqual(await selfTest(t, { cwd }), passed);
  assert.deepEqual(fs.readdirSync(cwd), []);
});

if (isNative) {
  test("it passes where nothing can be written", { ...limits, skip: missingMountRight() }, async (t) => {
    const disk = makeSmallDisk(t, 65_536);
    disk.makeReadOnly();
    assert.deepEqual(await selfTest(t, { cwd: disk.directory }), passed);
  });

  test("it asks nothing of the machine", limits, async (t) => {
    const nonsense = path.join(makeDirectory(), "machine.reg");
    fs.writeFileSync(nonsense, "no export at all\n");
    for (const machine of [nonsense, "/nowhere/machine.reg", makeDirectory(), "/dev/full", ""]) {
      assert.deepEqual(await selfTest(t, { env: { VELMORA_MACHINE: machine } }), passed, machine);
    }
    assert.equal(fs.readFileSync(nonsense, "latin1"), "no export at all\n");
  });

  // A program that becomes the self-test once it is let go: its number, and with it its mapping's name, is known before.
  async function startHeldSelfTest(t) {
    const go = path.join(makeDirectory(), "go");
    const script = 'echo $$; while [ ! -e "$0" ]; do sleep 0.02; done; exec "$1" --self-test';
    const program = launch(t, "sh", ["-c", script, go, creatingService()]);
    const id = await program.until("its number", () => program.output.match(/^([0-9]+)\n/)?.[1]);
    return { program, id, letGo: () => fs.writeFileSync(go, "") };
  }

  test("it fails on a mapping that somebody else has put in its place", limits, async (t) => {
    /** @type {any[][]} */
    const rows = [
      ["with a life in it", ["--life", "--life-blocks", "1"]],
      ["of another layout", ["--fault", "version"]],
      ["that is never finished", ["--fault", "unfinished"]],
      ["that is too small", ["--fault", "small"]],
    ];
    for (const [what, more] of rows) {
      await t.test(what, async (row) => {
        const { program, id, letGo } = await startHeldSelfTest(row);
        const effect = await startEffect(row, `Local\\VelmoraSelfTest-${id}`, more, "mapping made");
        if (more[0] === "--life") await effect.waitForLine("life finished");
        letGo();
        assert.deepEqual(await program.waitForEnd(), { code: failed.code, signal: null });
        assert.equal(program.output, `${id}\n${failed.output}`);
        assert.equal(program.errors, "");
        await effect.stop();
        assert.deepEqual(leftMappings(id), []);
      });
    }
  });

  test("its mapping is gone at the end", limits, async (t) => {
    const { program, id, letGo } = await startHeldSelfTest(t);
    letGo();
    assert.equal((await program.waitForEnd()).code, 0);
    assert.deepEqual(leftMappings(id), []);
  });
}

test("a service and its effect go on undisturbed", limits, async (t) => {
  const service = await startService(t);
  const mapping = service.mapping;
  const effect = await startEffect(t, mapping, [], "mapping opened");
  await effect.until("its first report", () => effect.output.match(/^applied .*\n/m) ?? undefined);
  const record = await readRecord(t, mapping);
  assert.deepEqual(
    await selfTest(t, {}, ["--port", String(service.port), "--control-map", mapping, "--self-test"]),
    passed,
  );
  assert.deepEqual(await readRecord(t, mapping), record);
  await service.assertAnswers();
});

test("it opens no socket on the given port", limits, async (t) => {
  const holder = net.createServer();
  atEnd(t, () => holder.close());
  const port = await listen(holder);
  assert.deepEqual(await selfTest(t, {}, ["--port", String(port), "--self-test"]), passed);
});
