// The calls to WinHTTP of an exchange with the account service, held one by one to the tables of calls.md by
// Wine's own call trace.
import assert from 'node:assert/strict';
import test from 'node:test';

import { json_reply } from '../programs/account/service.mjs';
import { call_trace, documented_roads, hex, low, must_be_null, own_calls } from './call_trace.mjs';
import {
  ask,
  creating_service,
  free_port,
  is_wine,
  start_account_service,
  start_limit_ms,
  start_service_for,
} from './harness.mjs';

const reply_limit_bytes = 2_097_152;

// ---- what is asked for ----

const qrcode = ['POST', '/api/v1/account/qrcode'];
const poll = ['GET', '/api/v1/account/poll?state=attempt'];

// The rows of a service that is asked once, for an account service at this address.
async function exchange_rows(t, url, [method, target], status) {
  const program = creating_service();
  const service = await start_service_for(t, url, { program, env: call_trace });
  const answer = await ask(service, method, target);
  assert.ok(answer.startsWith(`HTTP/1.1 ${status} `), answer);
  service.signal('SIGINT');
  await service.wait_for_end(start_limit_ms);
  return rows_of(await own_calls(service, program, ({ name }) => name === 'OpenFileMappingW'), url);
}

async function replied_rows(t, reply, request, status) {
  const account = await start_account_service(t);
  account.answer('/api/v1/auth/qrcode', reply);
  account.answer('/api/v1/auth/poll', reply);
  return exchange_rows(t, account.url, request, status);
}

const silence = { cut: 0, then: 'end' };

// For each table of the document: the rows of the calls that were made.
const roads = {
  'Exchange with a body': (t) => replied_rows(t, json_reply({ state: 's', qr_data_url: 'q' }), qrcode, 200),
  'Exchange without a body': (t) => replied_rows(t, json_reply({ status: 'waiting' }), poll, 200),
  'Reply that is too large': (t) => replied_rows(t, { body: 'x'.repeat(reply_limit_bytes + 1) }, poll, 502),
  'Connection that ends before the reply': (t) => replied_rows(t, silence, qrcode, 502),
  'Connection that is refused': async (t) => exchange_rows(t, `http://127.0.0.1:${await free_port()}`, qrcode, 502),
  'Connection that is refused, of https': async (t) =>
    exchange_rows(t, `https://127.0.0.1:${await free_port()}`, poll, 502),
  'Address that cannot be split': (t) => exchange_rows(t, 'velmora.invalid', poll, 502),
};

// ---- the document ----

const documented = documented_roads('Account service, call by call', '| call | on | handed over | result |');

// ---- the calls ----

function must_be_given(...args) {
  for (const argument of args) assert.notEqual(argument.value, 0n, 'an argument with a use is given');
}

function must_be_zero(...args) {
  must_be_null(...args.map((argument) => ({ value: low(argument) })));
}

// What a call hands over. `on` says that it works on the handle that stands first, and `gives` names the one that it
// gives.
const shown = {
  LoadLibraryExW: {
    gives: 'library',
    args([name, file, flags]) {
      must_be_null(file);
      return `${name.text}, flags ${hex(flags)}`;
    },
  },
  WinHttpCrackUrl: {
    args([url, length, flags, parts], address) {
      must_be_given(parts);
      return `${url.text.replace(address, 'ADDRESS')}, length ${low(length)}, flags ${low(flags)}`;
    },
  },
  WinHttpOpen: {
    gives: 'session',
    args([agent, access, proxy, bypass, flags]) {
      must_be_null(proxy, bypass);
      return `${agent.text}, access type ${low(access)}, no proxy, no bypass list, flags ${low(flags)}`;
    },
  },
  WinHttpSetTimeouts: {
    on: true,
    args([, ...limits]) {
      const [resolve, connect, send, receive] = limits.map(low);
      return `resolve ${resolve}, connect ${connect}, send ${send}, receive ${receive} ms`;
    },
  },
  WinHttpConnect: {
    on: true,
    gives: 'connection',
    args([, host, port, reserved], address) {
      must_be_zero(reserved);
      assert.ok(address.endsWith(`//${host.text}:${low(port)}`), `${host.text}:${low(port)} of ${address}`);
      return 'host and port of ADDRESS';
    },
  },
  WinHttpOpenRequest: {
    on: true,
    gives: 'request',
    args([, method, target, version, referrer, types, flags]) {
      must_be_null(version, referrer, types);
      return `${method.text} ${target.text}, no version, no referrer, no accept types, flags ${hex(flags)}`;
    },
  },
  WinHttpSendRequest: {
    on: true,
    args([, header, header_length, data, size, total, context]) {
      must_be_null(context);
      if (data.value === 0n) {
        must_be_null(header);
        must_be_zero(header_length, size, total);
        return 'no header, no data';
      }
      return `${header.text} (length ${low(header_length)}), ${low(size)} of ${low(total)} bytes of data`;
    },
  },
  WinHttpReceiveResponse: {
    on: true,
    args([, reserved]) {
      must_be_null(reserved);
      return '';
    },
  },
  WinHttpQueryHeaders: {
    on: true,
    args([, what, name, buffer, size, index]) {
      must_be_null(name, index);
      must_be_given(buffer, size);
      return `level ${hex(what)}, no name, no index`;
    },
  },
  WinHttpQueryDataAvailable: {
    on: true,
    args([, count]) {
      must_be_given(count);
      return '';
    },
  },
  WinHttpReadData: {
    on: true,
    args([, buffer, size, count]) {
      must_be_given(buffer, count);
      return `${low(size)} bytes`;
    },
  },
  WinHttpCloseHandle: { on: true, ends: true },
};

const is_of_account = ({ name, args }) =>
  name.startsWith('WinHttp') || (name.startsWith('LoadLibrary') && /winhttp/i.test(args[0].text));

// The rows of the calls. Each call to WinHTTP is one, so that one more than expected is seen.
function rows_of(calls, address) {
  const known = new Map();
  const rows = [];
  for (const { name, args, result } of calls.filter(is_of_account)) {
    const form = shown[name];
    assert.ok(form, `${name}: a call that the tables do not know`);
    const on = form.on ? known.get(args[0].value) : '';
    assert.notEqual(on, undefined, `${name}: a handle that is open`);
    const gives = result !== 0n ? form.gives : undefined;
    rows.push([name, on, form.args?.(args, address) ?? '', gives ? 'handle' : String(low({ value: result }))]);
    if (gives) known.set(result, gives);
    if (form.ends) known.delete(args[0].value);
  }
  // The library stays.
  assert.deepEqual([...known.values()], ['library'], 'every handle has been closed');
  return without_repetition(rows);
}

// A long reply takes as many reads as it takes, and any of them may be a short one: they become one, with the most that
// was asked for.
function without_repetition(rows) {
  const kept = [];
  for (const row of rows) {
    const [before, between] = kept.slice(-2);
    if (row[0] === 'WinHttpReadData' && before?.[0] === 'WinHttpReadData') {
      assert.equal(between[0], 'WinHttpQueryDataAvailable');
      const most = Math.max(...[before, row].map(([, , bytes]) => Number.parseInt(bytes, 10)));
      kept.splice(-2, 2);
      kept.push([...row.slice(0, 2), `${most} bytes`, row[3]]);
    } else {
      kept.push(row);
    }
  }
  return kept;
}

test('each road has its table in the document', () => {
  assert.deepEqual(Object.keys(documented), Object.keys(roads));
});

if (is_wine) {
  test('the calls of an exchange are those of the document, one by one', { timeout: 240_000 }, async (t) => {
    for (const [road, rows] of Object.entries(roads)) {
      await t.test(road, async (own) => assert.deepEqual(await rows(own), documented[road]));
    }
  });
}
