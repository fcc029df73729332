// How Velmora ends: by Ctrl+C, by stop, by force, by the end of `velmora start`; and what an idle client delays.
import assert from "node:assert/strict";
import fs from "node:fs";
import test from "node:test";

import { jsonReply } from "../programs/account/service.mjs";
import {
  assertOneSentence,
  command,
  commandLine,
  expectCommand,
  makeHome,
  readRunFile,
  runFileOf,
  startCommand,
} from "./commands.mjs";
import { isNative, isWine, launch, poll, startAccountService, startLimitMs } from "./harness.mjs";

const limits = { timeout: 120_000 };
const release = "/api/v1/session/release";

// A run whose account is signed in.
async function startSignedIn(t, home) {
  const account = await startAccountService(t);
  account.answer(release, jsonReply({}));
  const started = await startCommand(t, home, { more: ["--account-service", account.url] });
  await started.signIn(account);
  return { started, releases: () => account.requestsTo(release).length };
}

/** @type {NodeJS.Signals[]} */
const signals = isNative ? ["SIGINT", "SIGTERM", "SIGHUP"] : ["SIGINT"];
for (const signal of signals) {
  test(`${signal} ends the service cleanly and releases the account`, limits, async (t) => {
    const home = makeHome(t);
    const { started, releases } = await startSignedIn(t, home);
    await started.stop(signal);
    assert.equal(releases(), 1);
    assert.ok(!fs.existsSync(runFileOf(home)));
  });
}

test("stop releases the account", limits, async (t) => {
  const home = makeHome(t);
  const { started, releases } = await startSignedIn(t, home);
  await expectCommand(t, home, ["stop"], 0, "", "Velmora has ended.\n");
  assert.deepEqual(await started.waitForEnd(), { code: 0, signal: null });
  assert.equal(releases(), 1);
});

test("stop ends only the service of its own user", limits, async (t) => {
  if (isWine) return; // All tests have one user there.
  const [mine, other] = [makeHome(t), makeHome(t)];
  const left = await startCommand(t, other);
  const ended = await startCommand(t, mine);
  await expectCommand(t, mine, ["stop"], 0, "", "Velmora has ended.\n");
  await ended.waitForEnd();
  await left.assertAnswers();
  await expectCommand(t, other, ["stop"], 0, "", "Velmora has ended.\n");
});

test("an idle client delays the end until it leaves", limits, async (t) => {
  const home = makeHome(t);
  const { started, releases } = await startSignedIn(t, home);
  const idle = await started.connect();
  const begin = Date.now();
  for (const name of ["status", "open"]) {
    const end = await command(t, home, [name]);
    assert.equal(end.code, 22, end.errors);
    assert.equal(end.output, "");
    assertOneSentence(end.errors);
  }
  const stopped = await command(t, home, ["stop"]);
  assert.equal(stopped.code, 22);
  assert.equal(
    stopped.errors,
    "Velmora has not ended within 5 seconds: a browser or another program holds it, or the account service does not " +
      "answer. It ends as soon as they are done. To end it at once, run velmora stop --force. If you are signed in, " +
      "you then stay signed in at the account service until that session expires.\n",
  );
  assert.ok(Date.now() - begin >= 15_000, "each of them waited for 5 s");
  assert.equal(started.end, undefined);
  idle.leave();
  assert.deepEqual(await started.waitForEnd(), { code: 0, signal: null });
  assert.equal(releases(), 1);
  assert.ok(!fs.existsSync(runFileOf(home)));
});

const stays = "you stay signed in at the account service until that session expires.\n";
const lost = `The service was ended at once: if you were signed in, ${stays}`;

test("stop --force ends a held service at once", limits, async (t) => {
  const home = makeHome(t);
  const { started, releases } = await startSignedIn(t, home);
  const idle = await started.connect();
  const forced =
    "Velmora was ended at once. If you were signed in, you stay signed in at the account service until that\n" +
    "session expires.\n";
  await expectCommand(t, home, ["stop", "--force"], 0, "", forced);
  assert.deepEqual(await started.waitForEnd(), { code: 25, signal: null });
  assert.equal(started.errors.replace(/^ALSA lib .*\n/gm, ""), lost);
  assert.equal(releases(), 0);
  assert.ok(!fs.existsSync(runFileOf(home)));
  idle.leave();
});

test("a second Ctrl+C ends a held service at once", limits, async (t) => {
  const home = makeHome(t);
  const started = await startCommand(t, home);
  const idle = await started.connect();
  started.signal("SIGINT");
  const says =
    "Press Ctrl+C again to end it at once.\n" +
    "If you are signed in, you then stay signed in at the account service until that session expires.\n";
  await started.until("the offer", () => (started.errors.includes(says) ? true : undefined), startLimitMs);
  started.signal("SIGINT");
  assert.deepEqual(await started.waitForEnd(), { code: 25, signal: null });
  assert.ok(started.errors.endsWith(lost));
  idle.leave();
});

test("in a window stop asks before it ends a held service at once", limits, async (t) => {
  const home = makeHome(t);
  const started = await startCommand(t, home);
  const idle = await started.connect();
  const asked = launch(t, commandLine, ["stop", "--window"], { env: home.env, withInput: true });
  const question = "End it at once? (y/n) ";
  await asked.until("the question", () => (asked.output.includes(question) ? true : undefined), startLimitMs);
  asked.child.stdin?.write("y\n");
  assert.deepEqual(await asked.waitForEnd(), { code: 0, signal: null });
  assert.deepEqual(await started.waitForEnd(), { code: 25, signal: null });
  idle.leave();
});

test("the service ends with a start that is killed", limits, async (t) => {
  const home = makeHome(t);
  const started = await startCommand(t, home);
  const { port } = readRunFile(home);
  started.kill();
  await started.waitForEnd();
  await poll("the service to end", async () => {
    try {
      const client = await started.connect();
      client.leave();
      return undefined;
    } catch {
      return true;
    }
  });
  const again = await startCommand(t, home, { port });
  await again.assertAnswers();
});

// Under Wine the helper works only with the console that `start` gives it, as the other tests show.
if (isNative) {
  test("a service that is interrupted by itself ends the run", limits, async (t) => {
    const home = makeHome(t);
    const started = await startCommand(t, home);
    const { process_id: serviceId } = readRunFile(home);
    await expectCommand(t, home, ["interrupt", String(serviceId)], 0, "");
    assert.deepEqual(await started.waitForEnd(), { code: 0, signal: null });
    const gone = await command(t, home, ["interrupt", String(serviceId)]);
    assert.equal(gone.code, 20);
    assert.equal(gone.errors, `There is no process ${serviceId}: to end Velmora, run velmora stop.\n`);
  });
}
