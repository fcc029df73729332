// What takes its time: the limits on waiting for the account service, and the count of usage. The limits are for each
// wait; there is none on the whole.
//
// Wine's HTTP library has no limit of its own on the wait for the head of a reply and on that for an answer to TLS's
// first words, whatever it is told: there only the other limits can be seen.
import assert from 'node:assert/strict';
import dgram from 'node:dgram';
import { once } from 'node:events';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';

import { json_reply, start_deaf_port } from '../../programs/account/service.mjs';
import {
  Client,
  answer_bytes,
  api_bytes,
  is_native,
  json_document,
  make_directory,
  poll,
  refusal_bytes,
  session_of,
  sign_in,
  sleep,
  start_account_service,
  start_service_for,
  utf8_bytes,
} from '../harness.mjs';

const limits = { timeout: 180_000, concurrency: 8 };
const remote_poll = '/api/v1/auth/poll';
const check = '/api/v1/session/check';
const release = '/api/v1/session/release';
const slowest_answer_ms = 60_000;

const pending = '{"status":"pending"}';
const arrived = answer_bytes(200, 'OK', json_document, '{"status":"pending","detail":"","nickname":"","public_id":""}');
const bad_gateway = (message) => refusal_bytes(502, 'Bad Gateway', utf8_bytes(message));
const too_slow = bad_gateway('连接账号服务失败（错误 12002）');

// A poll's answer, and how long it took.
async function timed_poll(service) {
  const begin = performance.now();
  const client = await Client.connect(service);
  client.push(api_bytes(service, 'GET', '/api/v1/account/poll?state=attempt'));
  const { bytes } = await client.answer(slowest_answer_ms);
  return { answer: bytes, took_ms: performance.now() - begin };
}

// A wait for so many milliseconds, seen from outside: a coarse clock may count a little less, and a loaded machine
// comes late, but not so late that one limit looks like the other.
function assert_waited(took_ms, limit_ms, what) {
  const slack_ms = 200;
  assert.ok(took_ms > limit_ms - slack_ms && took_ms < limit_ms + 4500, `${what}: ${took_ms} ms in place of ${limit_ms}`);
}

async function start_for_reply(t, reply) {
  const account = await start_account_service(t);
  account.answer(remote_poll, reply);
  return start_service_for(t, account);
}

// A name whose server hears every question and answers none. Gives the command under which programs ask it.
async function start_silent_name_server(t) {
  const address = '127.0.0.153';
  const server = dgram.createSocket('udp4');
  t.after(() => server.close());
  server.bind(53, address);
  await once(server, 'listening');
  const directory = make_directory();
  const settings = path.join(directory, 'resolv.conf');
  fs.writeFileSync(settings, `nameserver ${address}\noptions timeout:30 attempts:2\n`);
  const script = path.join(directory, 'with_name_server');
  fs.writeFileSync(script, `#!/bin/sh\nmount --bind ${settings} /etc/resolv.conf && exec "$@"\n`, { mode: 0o755 });
  return ['unshare', '--mount', script];
}

test('the limits on each wait', limits, async (t) => {
  const row = (what, body) => t.test(what, { timeout: 120_000 }, body);
  const with_reply = (what, reply, answer, limit_ms) =>
    row(what, async (own) => {
      const service = await start_for_reply(own, reply);
      const outcome = await timed_poll(service);
      assert.equal(outcome.answer, answer);
      assert_waited(outcome.took_ms, limit_ms, what);
      await service.stop();
    });

  const rows = [
    row('5 s for the name', async (own) => {
      const wrapper = await start_silent_name_server(own);
      const service = await start_service_for(own, 'http://slow.velmora.test', { wrapper });
      const { answer, took_ms } = await timed_poll(service);
      assert.equal(answer, too_slow);
      assert_waited(took_ms, 5000, 'the name');
      await service.stop();
    }),
    row('5 s for the connection', async (own) => {
      const deaf = await start_deaf_port();
      own.after(() => deaf.close());
      const service = await start_service_for(own, `http://127.0.0.1:${deaf.port}`);
      const { answer, took_ms } = await timed_poll(service);
      assert.equal(answer, too_slow);
      assert_waited(took_ms, 5000, 'the connection');
      await service.stop();
    }),
    with_reply('10 s within the body', { body: pending, content_length: 100, then: 'stall' }, arrived, 10_000),
    with_reply(
      '10 s within a chunk',
      { raw: `HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n40\r\n${pending}`, then: 'stall' },
      arrived,
      10_000,
    ),
    // 4 s between the pieces, and longer than any limit in all.
    with_reply('no limit on a whole body', { body: pending, content_length: pending.length, drip: { bytes: 15, every_ms: 4000 } },
      arrived, 4000 * Math.floor((`HTTP/1.1 200 OK\r\nContent-Length: 20\r\n\r\n`.length + pending.length - 1) / 15)),
  ];
  if (is_native) {
    rows.push(
      with_reply('10 s for the reply', { cut: 0, then: 'stall' }, too_slow, 10_000),
      with_reply('10 s within the first line', { cut: 10, then: 'stall' }, too_slow, 10_000),
      with_reply('10 s within the head', { cut: 25, then: 'stall' }, too_slow, 10_000),
      row('10 s for a peer that reads nothing', async (own) => {
        const account = await start_account_service(own);
        account.at_connection = 'stall';
        const service = await start_service_for(own, account);
        const { answer, took_ms } = await timed_poll(service);
        assert.equal(answer, too_slow);
        assert_waited(took_ms, 10_000, 'the reply');
        await service.stop();
      }),
      row('5 s for TLS', async (own) => {
        const account = await start_account_service(own);
        account.at_connection = 'stall';
        const service = await start_service_for(own, account.url.replace('http', 'https'));
        const { answer, took_ms } = await timed_poll(service);
        assert.equal(answer, too_slow);
        assert_waited(took_ms, 5000, 'TLS');
        await service.stop();
      }),
      row('10 s for a release at the exit', async (own) => {
        const account = await start_account_service(own);
        account.answer(release, { cut: 0, then: 'stall' });
        const service = await start_service_for(own, account);
        await sign_in(service, account);
        const begin = performance.now();
        service.signal('SIGINT');
        assert.deepEqual(await service.wait_for_end(slowest_answer_ms), { code: 0, signal: null });
        assert_waited(performance.now() - begin, 10_000, 'the exit');
        assert.equal(service.errors, '');
      }),
      row('10 s for a check, behind which the next one comes', async (own) => {
        const account = await start_account_service(own);
        account.answer(check, { cut: 0, then: 'stall' }, json_reply({ active: true }));
        account.answer(release, json_reply({}));
        const service = await start_service_for(own, account);
        await sign_in(service, account, { session_check_seconds: 1 });
        const [first, second] = await account.wait_for_requests(check, 2);
        assert_waited(second.at_ms - first.at_ms, 10_000, 'the check');
        assert.equal((await session_of(service)).signed_in, true);
        await service.stop();
      }),
    );
  }
  await Promise.all(rows);
});

test('usage counts every 30 seconds, while somebody is signed in', limits, async (t) => {
  const account = await start_account_service(t);
  account.answer(release, json_reply({}));
  const begin = performance.now();
  const service = await start_service_for(t, account);
  await sign_in(service, account);
  assert.equal((await session_of(service)).usage_seconds, 0);
  const first_count = (limit_ms) =>
    poll('the count', async () => {
      await sleep(200);
      const { usage_seconds } = await session_of(service);
      return usage_seconds === 0 ? undefined : usage_seconds;
    }, limit_ms);
  const counted = await first_count(60_000);
  assert.ok(counted >= 30 && counted <= (performance.now() - begin) / 1000, `${counted} s`);

  // The same user anew keeps it, another one begins at 0.
  await sign_in(service, account);
  assert.equal((await session_of(service)).usage_seconds, counted);
  await sign_in(service, account, { account_hash: 'hash-2' });
  assert.equal((await session_of(service)).usage_seconds, 0);
  const of_second = await first_count(60_000);
  assert.ok(of_second >= 30 && of_second <= (performance.now() - begin) / 1000, `${of_second} s`);

  // It is shown on after the sign-out, and counts no further.
  const client = await Client.connect(service);
  client.push(api_bytes(service, 'POST', '/api/v1/account/logout'));
  await client.answer();
  assert.equal((await session_of(service)).usage_seconds, of_second);
  await sleep(31_000);
  assert.equal((await session_of(service)).usage_seconds, of_second);
  await sign_in(service, account, { account_hash: 'hash-2' });
  assert.equal((await session_of(service)).usage_seconds, 0);
  await service.stop();
});
