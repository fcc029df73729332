// The session: the checks that ask whether it is still this machine's, its end here and elsewhere, and its release.
import assert from "node:assert/strict";
import fs from "node:fs";
import os from "node:os";
import path from "node:path";
import test from "node:test";

import { jsonReply } from "../programs/account/service.mjs";
import {
  atEnd,
  accountRequestBytes,
  isNative,
  issuedFields,
  launch,
  makeDirectory,
  noSession,
  poll,
  sleep,
  startAccountService,
  startService,
  startServiceFor,
} from "./harness.mjs";

const limits = { timeout: 120_000 };
const check = "/api/v1/session/check";
const release = "/api/v1/session/release";
const intervalMs = 1000;
const supersededLine = "The account has signed in on another device. This machine is now signed out.\n";
const credentials = '{"account_hash":"hash-1","token":"credential-1"}';

// A service with its account service, signed in and checked each second. Releases are taken.
async function startSignedIn(t, fields = {}, options = {}) {
  const account = await startAccountService(t);
  account.answer(check, jsonReply({ active: true }));
  account.answer(release, jsonReply({}));
  const service = await startServiceFor(t, account, options);
  await service.signIn(account, { session_check_seconds: 1, ...fields });
  return { account, service };
}

const checks = (account) => account.requestsTo(check);
const releases = (account) => account.requestsTo(release);
const bytesOf = ({ head, body }) => head + body;
const logout = (service) => service.ask("POST", "/api/v1/account/logout");

function makeHold() {
  /** @type {(value?: unknown) => void} */
  let letGo = () => {};
  const hold = new Promise((resolve) => (letGo = resolve));
  return { hold, letGo };
}

async function waitForSignOut(service) {
  return poll("the sign-out", async () => {
    const session = await service.session();
    return session.signed_in ? undefined : session;
  });
}

// Nothing comes to the path for a while in which a check at each second would have.
async function staysSilent(account, pathName, milliseconds = 2500) {
  const before = account.requestsTo(pathName).length;
  await sleep(milliseconds);
  assert.equal(account.requestsTo(pathName).length, before);
}

test("the checks of a session go out byte by byte, as far apart as the sign-in says", limits, async (t) => {
  const { account, service } = await startSignedIn(t, { account_hash: 'ha"s\\h', session_token: 'to"k\\en' });
  const seen = await account.waitForRequests(check, 3);
  const body = '{"account_hash":"ha\\"s\\\\h","token":"to\\"k\\\\en"}';
  for (const request of seen)
    assert.equal(bytesOf(request), accountRequestBytes(account, "POST", check, body));
  assert.equal((await service.session()).signed_in, true);
  await service.stop();
  assert.deepEqual(releases(account).map(bytesOf), [accountRequestBytes(account, "POST", release, body)]);
});

test("the first check waits for the interval that each start begins with", limits, async (t) => {
  const { account, service } = await startSignedIn(t, { session_check_seconds: 0 });
  await staysSilent(account, check);
  assert.equal(checks(account).length, 0);
  await service.stop();
  assert.equal(releases(account).length, 1);
});

test("a check may change the interval to any number but 0", limits, async (t) => {
  /** @type {any[][]} */
  const rows = [
    // What a check answers, and whether another follows within 2.5 seconds.
    ['{"active":true,"next_check_seconds":0}', true],
    ['{"active":true}', true],
    ['{"active":true,"next_check_seconds":1}', true],
    ['{"active":true,"next_check_seconds":"30"}', true],
    ['{"active":true,"next_check_seconds":-1}', true],
    ['{"active":true,"next_check_seconds":4294967296}', true],
    ['{"active":true,"next_check_seconds":30}', false],
    ['{"active":true,"next_check_seconds":4294967295}', false],
    ['{"active":true,"next_check_seconds":30.9x', false],
  ];
  await Promise.all(
    rows.map(async ([body, goesOn]) => {
      const { account, service } = await startSignedIn(t);
      account.answer(check, { body });
      await account.waitForRequests(check, 1);
      if (goesOn) {
        await account.waitForRequests(check, 3);
      } else {
        await staysSilent(account, check);
        // A sign-in sets it anew, and the change counts from the last decision, at once.
        await service.signIn(account, { session_check_seconds: 1 });
        await account.waitForRequests(check, 2);
      }
      await service.stop();
    }),
  );
});

test("a longer interval counts from the check before", limits, async (t) => {
  const { account } = await startSignedIn(t);
  account.answer(check, jsonReply({ next_check_seconds: 4 }), jsonReply({ next_check_seconds: 1 }));
  const [first, second, third] = await account.waitForRequests(check, 3);
  // Halves of the intervals: what is late in coming makes one distance shorter and the next one longer.
  assert.ok(second.atMs - first.atMs >= 2 * intervalMs, `${second.atMs - first.atMs} ms`);
  assert.ok(third.atMs - second.atMs >= intervalMs / 2, `${third.atMs - second.atMs} ms`);
});

test("two checks are never in flight at once", limits, async (t) => {
  const { account, service } = await startSignedIn(t);
  const { hold, letGo } = makeHold();
  account.answer(check, jsonReply({ active: true }, { hold }), jsonReply({ active: true }));
  await account.waitForRequests(check, 1);
  await staysSilent(account, check, 3500);
  assert.equal(checks(account).length, 1);
  // The service answers meanwhile: the check has a thread of its own.
  assert.equal((await service.session()).signed_in, true);
  letGo();
  await account.waitForRequests(check, 2);
});

test("a check that fails, or says nothing against the session, changes nothing", limits, async (t) => {
  const rows = [
    { status: 401, body: '{"active":false,"next_check_seconds":30}' },
    { status: 403, body: '{"active":false,"next_check_seconds":30}' },
    { status: 404, body: "" },
    { status: 500, body: '{"active":false,"next_check_seconds":30}' },
    { status: 201, body: '{"active":false,"next_check_seconds":30}' },
    { body: "" },
    { body: "{" },
    { body: "no JSON" },
    { body: '\0\xff\xfe"active":' },
    { body: '{"active": false}' },
    { body: '{"active" :false}' },
    { body: '{"active":"false"}' },
    { body: '{"active":False}' },
    { body: '{"active":0}' },
    { body: '{"active":null,"next_check_seconds":null}' },
    { body: '{"active":fals', contentLength: 100, then: "end" },
    { cut: 0, then: "end" },
    { cut: 0, then: "reset" },
    { raw: "no HTTP at all", then: "end" },
    { body: `${" ".repeat(2_097_153)}"active":false` },
  ];
  await Promise.all(
    [0, 1, 2, 3].map(async (first) => {
      const ownRows = rows.filter((_, index) => index % 4 === first);
      const { account, service } = await startSignedIn(t);
      account.answer(check, ...ownRows, jsonReply({ active: true }));
      const before = await service.session();
      // The one behind the last row comes at the interval that was there before.
      await account.waitForRequests(check, ownRows.length + 1);
      const { usage_seconds, ...session } = await service.session();
      assert.ok(usage_seconds >= before.usage_seconds);
      assert.deepEqual({ ...session, usage_seconds: before.usage_seconds }, before);
      await service.stop();
      assert.equal(service.output.includes(supersededLine), false);
      assert.equal(releases(account).length, 1);
    }),
  );
});

test("an account service that is gone ends no session and holds up no exit", limits, async (t) => {
  const { account, service } = await startSignedIn(t);
  await account.waitForRequests(check, 1);
  await account.close();
  await sleep(2500);
  assert.equal((await service.session()).signed_in, true);
});

test("a sign-in on another device signs this one out", limits, async (t) => {
  const { account, service } = await startSignedIn(t, {
    public_id: "10001",
    referral_open: true,
    invite_url: "https://velmora.invalid/i",
    primary_machine_id: "machine-1",
  });
  await account.waitForRequests(check, 1);
  account.answer(check, { body: '{"active":false,"detail":"elsewhere","next_check_seconds":1}' });
  const session = await waitForSignOut(service);
  assert.deepEqual(
    { ...session, usage_seconds: 0 },
    { ...noSession, public_id: "10001", referral_open: true, invite_url: "https://velmora.invalid/i" },
  );
  await staysSilent(account, check);
  assert.equal(service.output.split(supersededLine).length, 2);
  await service.stop();
  assert.ok(service.output.endsWith(supersededLine), service.output);
  assert.equal(releases(account).length, 0);
});

test("somebody signed out elsewhere may sign in again", limits, async (t) => {
  const { account, service } = await startSignedIn(t);
  account.answer(check, { body: '{"active":false}' });
  await waitForSignOut(service);
  account.answer(check, jsonReply({ active: true }));
  await service.signIn(account);
  const before = checks(account).length;
  await account.waitForRequests(check, before + 1);
  assert.equal((await service.session()).signed_in, true);
  await service.stop();
  assert.deepEqual(
    releases(account).map(({ body }) => body),
    [credentials],
  );
});

test("the answer to a check counts for the session that it finds", limits, async (t) => {
  const { account, service } = await startSignedIn(t);
  const { hold, letGo } = makeHold();
  account.answer(check, { body: '{"active":false}', hold });
  await account.waitForRequests(check, 1);
  await logout(service);
  await service.signIn(account, { account_hash: "hash-2", session_token: "credential-2" });
  assert.equal((await service.session()).signed_in, true);
  letGo();
  await waitForSignOut(service);
  await service.stop();
  assert.equal(releases(account).length, 0);
});

test("a logout sends nothing, and nothing follows it", limits, async (t) => {
  const { account, service } = await startSignedIn(t);
  await account.waitForRequests(check, 1);
  await logout(service);
  // A check may have been on its way.
  await sleep(intervalMs / 2);
  await staysSilent(account, check);
  await service.stop();
  assert.equal(releases(account).length, 0);
  assert.equal(service.output.includes(supersededLine), false);
});

test("a session without a credential is neither checked nor released", limits, async (t) => {
  const { account, service } = await startSignedIn(t, { session_token: "" });
  assert.equal((await service.session()).signed_in, true);
  await staysSilent(account, check);
  await service.stop();
  assert.deepEqual(
    account.requests.map(({ path: name }) => name),
    ["/api/v1/auth/poll"],
  );
});

test("a session is released once, whatever comes of it", limits, async (t) => {
  const rows = [
    { body: "{}" },
    { status: 500, body: "broken" },
    { status: 401, body: "" },
    { cut: 0, then: "end" },
    { cut: 0, then: "reset" },
    { raw: "no HTTP at all", then: "end" },
    { body: "x".repeat(3_000_000) },
  ];
  for (const row of rows) {
    const { account, service } = await startSignedIn(t, { session_check_seconds: 0 });
    account.answer(release, row);
    await service.stop();
    const seen = releases(account).map(bytesOf);
    assert.deepEqual(
      seen,
      [accountRequestBytes(account, "POST", release, credentials)],
      JSON.stringify(row).slice(0, 80),
    );
  }
});

test("each way of stopping releases the session", limits, async (t) => {
  /** @type {NodeJS.Signals[]} */
  const signals = isNative ? ["SIGINT", "SIGTERM", "SIGQUIT", "SIGHUP"] : ["SIGINT"];
  for (const signal of signals) {
    const { account, service } = await startSignedIn(t, { session_check_seconds: 0 });
    service.signal(signal);
    const end = await service.waitForEnd();
    if (end.signal === null)
      assert.deepEqual(
        releases(account).map(({ body }) => body),
        [credentials],
        signal,
      );
  }
});

test("the exit waits for no check, and ends in good order", limits, async (t) => {
  const { account, service } = await startSignedIn(t);
  const { hold } = makeHold();
  account.answer(check, jsonReply({ active: false }, { hold }));
  await account.waitForRequests(check, 1);
  await service.stop();
  assert.deepEqual(
    releases(account).map(({ body }) => body),
    [credentials],
  );
  assert.equal(checks(account).length, 1);
});

test("the exit while checks come and go ends in good order", limits, async (t) => {
  await Promise.all(
    [0, 5, 30, 120].map(async (delayMs) => {
      const { account, service } = await startSignedIn(t);
      account.answer(check, { body: '{"active":true}', drip: { bytes: 16, everyMs: 5 } });
      await account.waitForRequests(check, 1);
      await sleep(delayMs);
      await service.stop();
      assert.equal(releases(account).length, 1);
    }),
  );
});

test("each run begins signed out", limits, async (t) => {
  const { account, service } = await startSignedIn(t);
  await service.stop();
  const next = await startServiceFor(t, account);
  assert.deepEqual(await next.session(), noSession);
  await next.stop();
  assert.equal(releases(account).length, 1);
});

test("a sign-in of the same user sets the time anew, and one of another as well", limits, async (t) => {
  const { account, service } = await startSignedIn(t, { session_check_seconds: 0 });
  const first = await service.session();
  await sleep(1100);
  await service.signIn(account);
  const second = await service.session();
  assert.ok(second.signed_in_unix > first.signed_in_unix);
  await sleep(1100);
  await service.signIn(account, { account_hash: "hash-2" });
  assert.ok((await service.session()).signed_in_unix > second.signed_in_unix);
});

test("the credential of a session shows nowhere", limits, async (t) => {
  const secret = "C0FFEE-not-to-be-seen";
  const account = await startAccountService(t);
  account.answer(check, jsonReply({ active: true, detail: `about ${secret.length}` }));
  const service = await startServiceFor(t, account, { more: ["--verbose"] });
  const seen = [];
  const say = async (method, target, /** @type {string | undefined} */ body = undefined) =>
    seen.push(await service.ask(method, target, body));
  const fields = { ...issuedFields, session_token: secret, session_check_seconds: 1, displaced_machine: "m" };
  account.answer("/api/v1/auth/poll", jsonReply(fields));
  await say("GET", "/api/v1/account/poll?state=a");
  account.answer("/api/v1/auth/poll", jsonReply({ ...fields, account_hash: "" }));
  await say("GET", "/api/v1/account/poll?state=a");
  account.answer("/api/v1/auth/poll", jsonReply({ session_token: secret }));
  await say("GET", "/api/v1/account/poll?state=a");
  const replies = [{ status: 500, body: "x" }, { cut: 0, then: "end" }, { body: "{}" }];
  for (const reply of replies) {
    account.answer("/api/v1/session/referrer", reply);
    account.answer("/api/v1/session/unbind", reply);
    await say("POST", "/api/v1/account/referrer", '{"public_id":"10002"}');
    await say("POST", "/api/v1/account/unbind");
    await say("GET", "/api/v1/status");
  }
  for (const request of await account.waitForRequests(check, 1)) assert.ok(request.body.includes(secret));
  account.answer(check, { body: '{"active":false}' });
  await waitForSignOut(service);
  await say("GET", "/api/v1/status");
  await say("POST", "/api/v1/account/logout");
  await service.stop();
  for (const answer of seen) assert.equal(answer.includes(secret), false, answer);
  assert.equal((service.output + service.errors).includes(secret), false);
});

// ---- the file that an earlier version left ----

// Where the machine's common data is for the program, and the environment that says so.
/** @returns {any[][]} */
function commonDataPlaces() {
  const prefix = process.env.WINEPREFIX ?? path.join(os.homedir(), ".wine");
  if (!isNative) return [["of the prefix", path.join(prefix, "drive_c", "ProgramData"), {}]];
  const given = makeDirectory();
  const drives = makeDirectory();
  const belowDrives = path.join(drives, "c", "ProgramData");
  const state = makeDirectory();
  const belowState = path.join(state, "velmora", "drives", "c", "ProgramData");
  const driveVariables = { VELMORA_DRIVES: drives };
  return [
    ["given", given, { ProgramData: given }],
    ["not given", belowDrives, driveVariables],
    ["given as empty", belowDrives, { ...driveVariables, ProgramData: "" }],
    ["of 260 characters", belowDrives, { ...driveVariables, ProgramData: `/${"x".repeat(259)}` }],
    ["named with a drive", path.join(drives, "d", "data"), { ...driveVariables, ProgramData: "D:\\data" }],
    [
      "of 259 characters",
      `/tmp/${path.basename(makeDirectory())}/`.padEnd(130, "x") + "/".padEnd(129, "y"),
      undefined,
    ],
    ["among the state", belowState, { XDG_STATE_HOME: state, VELMORA_DRIVES: "" }],
  ].map(([what, place, env]) => [what, place, env ?? { ProgramData: place }]);
}

test("a session file of an earlier version is removed at the start", limits, async (t) => {
  for (const [what, place, env] of commonDataPlaces()) {
    const directory = path.join(place, "Velmora");
    const file = path.join(directory, "session.json");
    fs.mkdirSync(directory, { recursive: true });
    fs.writeFileSync(file, '{"token":"credential-0"}');
    fs.writeFileSync(path.join(directory, "session.json.kept"), "x");
    const service = await startService(t, { env });
    assert.equal(fs.existsSync(file), false, what);
    assert.equal(fs.existsSync(path.join(directory, "session.json.kept")), true, what);
    fs.rmSync(path.join(directory, "session.json.kept"));
    await service.stop();
  }
});

test("a session file that cannot be removed, or is none, is passed over", limits, async (t) => {
  const [[, place, env]] = commonDataPlaces();
  const directory = path.join(place, "Velmora");
  const file = path.join(directory, "session.json");
  fs.mkdirSync(directory, { recursive: true });
  fs.rmSync(file, { recursive: true, force: true });
  atEnd(t, () => fs.rmSync(isNative ? directory : file, { recursive: true, force: true }));
  await (await startService(t, { env })).stop();

  fs.mkdirSync(file);
  await (await startService(t, { env })).stop();
  assert.ok(fs.statSync(file).isDirectory());
  fs.writeFileSync(path.join(file, "inside"), "");
  await (await startService(t, { env })).stop();
  assert.ok(fs.existsSync(path.join(file, "inside")));
  fs.rmSync(file, { recursive: true });

  if (isNative) {
    fs.rmSync(directory, { recursive: true });
    await (await startService(t, { env })).stop();
    assert.equal(fs.existsSync(directory), false, "nothing is made");
    fs.writeFileSync(directory, "a file where the directory would be");
    await (await startService(t, { env })).stop();
    assert.equal(fs.readFileSync(directory, "utf8"), "a file where the directory would be");
  }
});

test("a session file stays when the start fails", limits, async (t) => {
  const [[, place, env]] = commonDataPlaces();
  const directory = path.join(place, "Velmora");
  const file = path.join(directory, "session.json");
  fs.mkdirSync(directory, { recursive: true });
  const first = await startService(t, { env });
  fs.writeFileSync(file, "{}");
  atEnd(t, () => fs.rmSync(file, { force: true }));
  const second = await startSecond(t, first, env);
  assert.equal(second.code, 9);
  assert.equal(fs.existsSync(file), true);
});

// Another service at the port of one that runs; it ends by itself.
async function startSecond(t, first, env) {
  const args = [
    "--port",
    String(first.port),
    "--web-root",
    first.child.spawnargs.at(first.child.spawnargs.indexOf("--web-root") + 1),
  ];
  const program = first.child.spawnargs[isNative ? 0 : 1];
  const second = launch(t, program, [...args, "--control-map", first.mapping], { env });
  return second.waitForEnd();
}
