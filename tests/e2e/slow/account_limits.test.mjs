// What takes its time: the limits on waiting for the account service, and the count of usage. The limits are for each
// wait; there is none on the whole.
//
// Wine's HTTP library has no limit of its own on the wait for the head of a reply and on that for an answer to TLS's
// first words, whatever its settings: there only the other limits can be seen.
import assert from "node:assert/strict";
import dgram from "node:dgram";
import { once } from "node:events";
import fs from "node:fs";
import path from "node:path";
import test from "node:test";

import { jsonReply, startDeafPort } from "../../programs/account/service.mjs";
import {
  atEnd,
  answerBytes,
  isNative,
  jsonDocument,
  makeDirectory,
  poll,
  refusalBytes,
  sleep,
  startAccountService,
  startServiceFor,
  utf8Bytes,
} from "../harness.mjs";

const limits = { timeout: 180_000, concurrency: 8 };
const remotePoll = "/api/v1/auth/poll";
const check = "/api/v1/session/check";
const release = "/api/v1/session/release";
const slowestAnswerMs = 60_000;

const pending = '{"status":"pending"}';
const arrived = answerBytes(
  200,
  "OK",
  jsonDocument,
  '{"status":"pending","detail":"","nickname":"","public_id":""}',
);
const badGateway = (message) => refusalBytes(502, "Bad Gateway", utf8Bytes(message));
const tooSlow = badGateway("连接账号服务失败（错误 12002）");

// A poll's answer, and how long it took.
async function timedPoll(service) {
  const begin = performance.now();
  const client = await service.connect();
  client.push(service.apiBytes("GET", "/api/v1/account/poll?state=attempt"));
  const { bytes } = await client.answer(slowestAnswerMs);
  return { answer: bytes, tookMs: performance.now() - begin };
}

// A wait for so many milliseconds, seen from outside: a coarse clock may count a little less, and a loaded machine
// comes late, but not so late that one limit looks like the other.
function assertWaited(tookMs, limitMs, what) {
  const slackMs = 200;
  assert.ok(
    tookMs > limitMs - slackMs && tookMs < limitMs + 4500,
    `${what}: ${tookMs} ms in place of ${limitMs}`,
  );
}

async function startForReply(t, reply) {
  const account = await startAccountService(t);
  account.answer(remotePoll, reply);
  return startServiceFor(t, account);
}

// A name whose server hears every question and answers none. Gives the command under which programs ask it.
async function startSilentNameServer(t) {
  const address = "127.0.0.153";
  const server = dgram.createSocket("udp4");
  atEnd(t, () => server.close());
  server.bind(53, address);
  await once(server, "listening");
  const directory = makeDirectory();
  const settings = path.join(directory, "resolv.conf");
  fs.writeFileSync(settings, `nameserver ${address}\noptions timeout:30 attempts:2\n`);
  const script = path.join(directory, "with_name_server");
  fs.writeFileSync(script, `#!/bin/sh\nmount --bind ${settings} /etc/resolv.conf && exec "$@"\n`, {
    mode: 0o755,
  });
  return ["unshare", "--mount", script];
}

test("the limits on each wait", limits, async (t) => {
  const row = (what, body, /** @type {string | undefined} */ skip = undefined) =>
    t.test(what, { timeout: 120_000, skip }, body);
  const withReply = (what, reply, answer, limitMs) =>
    row(what, async (own) => {
      const service = await startForReply(own, reply);
      const outcome = await timedPoll(service);
      assert.equal(outcome.answer, answer);
      assertWaited(outcome.tookMs, limitMs, what);
      await service.stop();
    });

  const rows = [
    row("5 s for the name", async (own) => {
      const wrapper = await startSilentNameServer(own);
      const service = await startServiceFor(own, "http://slow.velmora.test", { wrapper });
      const { answer, tookMs } = await timedPoll(service);
      assert.equal(answer, tooSlow);
      assertWaited(tookMs, 5000, "the name");
      await service.stop();
    }),
    row("5 s for the connection", async (own) => {
      const deaf = await startDeafPort();
      own.after(() => deaf.close());
      const service = await startServiceFor(own, `http://127.0.0.1:${deaf.port}`);
      const { answer, tookMs } = await timedPoll(service);
      assert.equal(answer, tooSlow);
      assertWaited(tookMs, 5000, "the connection");
      await service.stop();
    }),
    withReply("10 s within the body", { body: pending, contentLength: 100, then: "stall" }, arrived, 10_000),
    withReply(
      "10 s within a chunk",
      { raw: `HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n40\r\n${pending}`, then: "stall" },
      arrived,
      10_000,
    ),
    // 4 s between the pieces, and longer than any limit in all.
    withReply(
      "no limit on a whole body",
      { body: pending, contentLength: pending.length, drip: { bytes: 15, everyMs: 4000 } },
      arrived,
      4000 * Math.floor((`HTTP/1.1 200 OK\r\nContent-Length: 20\r\n\r\n`.length + pending.length - 1) / 15),
    ),
  ];
  if (isNative) {
    rows.push(
      withReply("10 s for the reply", { cut: 0, then: "stall" }, tooSlow, 10_000),
      withReply("10 s within the first line", { cut: 10, then: "stall" }, tooSlow, 10_000),
      withReply("10 s within the head", { cut: 25, then: "stall" }, tooSlow, 10_000),
      row("10 s for a peer that reads nothing", async (own) => {
        const account = await startAccountService(own);
        account.atConnection = "stall";
        const service = await startServiceFor(own, account);
        const { answer, tookMs } = await timedPoll(service);
        assert.equal(answer, tooSlow);
        assertWaited(tookMs, 10_000, "the reply");
        await service.stop();
      }),
      row("5 s for TLS", async (own) => {
        const account = await startAccountService(own);
        account.atConnection = "stall";
        const service = await startServiceFor(own, account.url.replace("http", "https"));
        const { answer, tookMs } = await timedPoll(service);
        assert.equal(answer, tooSlow);
        assertWaited(tookMs, 5000, "TLS");
        await service.stop();
      }),
      row("10 s for a release at the exit", async (own) => {
        const account = await startAccountService(own);
        account.answer(release, { cut: 0, then: "stall" });
        const service = await startServiceFor(own, account);
        await service.signIn(account);
        const begin = performance.now();
        service.signal("SIGINT");
        assert.deepEqual(await service.waitForEnd(slowestAnswerMs), { code: 0, signal: null });
        assertWaited(performance.now() - begin, 10_000, "the exit");
        assert.equal(service.errors, "");
      }),
      row("10 s for a check, behind which the next one comes", async (own) => {
        const account = await startAccountService(own);
        account.answer(check, { cut: 0, then: "stall" }, jsonReply({ active: true }));
        account.answer(release, jsonReply({}));
        const service = await startServiceFor(own, account);
        await service.signIn(account, { session_check_seconds: 1 });
        const [first, second] = await account.waitForRequests(check, 2);
        assertWaited(second.atMs - first.atMs, 10_000, "the check");
        assert.equal((await service.session()).signed_in, true);
        await service.stop();
      }),
    );
  }
  await Promise.all(rows);
});

test("usage counts every 30 seconds, while somebody is signed in", limits, async (t) => {
  const account = await startAccountService(t);
  account.answer(release, jsonReply({}));
  const begin = performance.now();
  const service = await startServiceFor(t, account);
  await service.signIn(account);
  assert.equal((await service.session()).usage_seconds, 0);
  const firstCount = (limitMs) =>
    poll(
      "the count",
      async () => {
        await sleep(200);
        const { usage_seconds } = await service.session();
        return usage_seconds === 0 ? undefined : usage_seconds;
      },
      limitMs,
    );
  const counted = await firstCount(60_000);
  assert.ok(counted >= 30 && counted <= (performance.now() - begin) / 1000, `${counted} s`);

  // The same user anew keeps it, another one begins at 0.
  await service.signIn(account);
  assert.equal((await service.session()).usage_seconds, counted);
  await service.signIn(account, { account_hash: "hash-2" });
  assert.equal((await service.session()).usage_seconds, 0);
  const ofSecond = await firstCount(60_000);
  assert.ok(ofSecond >= 30 && ofSecond <= (performance.now() - begin) / 1000, `${ofSecond} s`);

  // It is shown on after the sign-out, and counts no further.
  const client = await service.connect();
  client.push(service.apiBytes("POST", "/api/v1/account/logout"));
  await client.answer();
  assert.equal((await service.session()).usage_seconds, ofSecond);
  await sleep(31_000);
  assert.equal((await service.session()).usage_seconds, ofSecond);
  await service.signIn(account, { account_hash: "hash-2" });
  assert.equal((await service.session()).usage_seconds, 0);
});
