// The calls to WinHTTP of an exchange with the account service, held one by one to the tables of calls.md by
// Wine's own call trace.
import assert from "node:assert/strict";
import test from "node:test";

import { jsonReply } from "../programs/account/service.mjs";
import { callTrace, documentedRoads, hex, low, mustBeNull, ownCalls } from "./call_trace.mjs";
import {
  creatingService,
  freePort,
  isWine,
  startAccountService,
  startLimitMs,
  startServiceFor,
} from "./harness.mjs";

const replyLimitBytes = 2_097_152;

// ---- what is asked for ----

const qrcode = ["POST", "/api/v1/account/qrcode"];
const poll = ["GET", "/api/v1/account/poll?state=attempt"];

// The rows of a service that is asked once, for an account service at this address.
async function exchangeRows(t, url, /** @type {string[]} */ [method, target], status) {
  const program = creatingService();
  const service = await startServiceFor(t, url, { program, env: callTrace });
  const answer = await service.ask(method, target);
  assert.ok(answer.startsWith(`HTTP/1.1 ${status} `), answer);
  service.signal("SIGINT");
  await service.waitForEnd(startLimitMs);
  return rowsOf(await ownCalls(service, program, ({ name }) => name === "OpenFileMappingW"), url);
}

async function repliedRows(t, reply, request, status) {
  const account = await startAccountService(t);
  account.answer("/api/v1/auth/qrcode", reply);
  account.answer("/api/v1/auth/poll", reply);
  return exchangeRows(t, account.url, request, status);
}

const silence = { cut: 0, then: "end" };

// For each table of the document: the rows of the calls that were made.
const roads = {
  "Exchange with a body": (t) => repliedRows(t, jsonReply({ state: "s", qr_data_url: "q" }), qrcode, 200),
  "Exchange without a body": (t) => repliedRows(t, jsonReply({ status: "waiting" }), poll, 200),
  "Reply that is too large": (t) => repliedRows(t, { body: "x".repeat(replyLimitBytes + 1) }, poll, 502),
  "Connection that ends before the reply": (t) => repliedRows(t, silence, qrcode, 502),
  "Connection that is refused": async (t) =>
    exchangeRows(t, `http://127.0.0.1:${await freePort()}`, qrcode, 502),
  "Connection that is refused, of https": async (t) =>
    exchangeRows(t, `https://127.0.0.1:${await freePort()}`, poll, 502),
  "Address that cannot be split": (t) => exchangeRows(t, "velmora.invalid", poll, 502),
};

// ---- the document ----

const documented = documentedRoads("Account service, call by call", "| call | on | handed over | result |");

// ---- the calls ----

function mustBeGiven(...args) {
  for (const argument of args) assert.notEqual(argument.value, 0n, "an argument with a use is given");
}

function mustBeZero(...args) {
  mustBeNull(...args.map((argument) => ({ value: low(argument) })));
}

// What a call hands over. `on` says that it works on the first handle, and `gives` names the one that it
// gives.
const shown = {
  LoadLibraryExW: {
    gives: "library",
    args([name, file, flags]) {
      mustBeNull(file);
      return `${name.text}, flags ${hex(flags)}`;
    },
  },
  WinHttpCrackUrl: {
    args([url, length, flags, parts], address) {
      mustBeGiven(parts);
      return `${url.text.replace(address, "ADDRESS")}, length ${low(length)}, flags ${low(flags)}`;
    },
  },
  WinHttpOpen: {
    gives: "session",
    args([agent, access, proxy, bypass, flags]) {
      mustBeNull(proxy, bypass);
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
    gives: "connection",
    args([, host, port, reserved], address) {
      mustBeZero(reserved);
      assert.ok(address.endsWith(`//${host.text}:${low(port)}`), `${host.text}:${low(port)} of ${address}`);
      return "host and port of ADDRESS";
    },
  },
  WinHttpOpenRequest: {
    on: true,
    gives: "request",
    args([, method, target, version, referrer, types, flags]) {
      mustBeNull(version, referrer, types);
      return `${method.text} ${target.text}, no version, no referrer, no accept types, flags ${hex(flags)}`;
    },
  },
  WinHttpSendRequest: {
    on: true,
    args([, header, headerLength, data, size, total, context]) {
      mustBeNull(context);
      if (data.value === 0n) {
        mustBeNull(header);
        mustBeZero(headerLength, size, total);
        return "no header, no data";
      }
      return `${header.text} (length ${low(headerLength)}), ${low(size)} of ${low(total)} bytes of data`;
    },
  },
  WinHttpReceiveResponse: {
    on: true,
    args([, reserved]) {
      mustBeNull(reserved);
      return "";
    },
  },
  WinHttpQueryHeaders: {
    on: true,
    args([, what, name, buffer, size, index]) {
      mustBeNull(name, index);
      mustBeGiven(buffer, size);
      return `level ${hex(what)}, no name, no index`;
    },
  },
  WinHttpQueryDataAvailable: {
    on: true,
    args([, count]) {
      mustBeGiven(count);
      return "";
    },
  },
  WinHttpReadData: {
    on: true,
    args([, buffer, size, count]) {
      mustBeGiven(buffer, count);
      return `${low(size)} bytes`;
    },
  },
  WinHttpCloseHandle: { on: true, ends: true },
};

const isOfAccount = ({ name, args }) =>
  name.startsWith("WinHttp") || (name.startsWith("LoadLibrary") && /winhttp/i.test(args[0].text));

// The rows of the calls. Each call to WinHTTP is one, so that one more than expected is seen.
function rowsOf(calls, address) {
  const known = new Map();
  const rows = [];
  for (const { name, args, result } of calls.filter(isOfAccount)) {
    const form = shown[name];
    assert.ok(form, `${name}: a call that the tables do not know`);
    const on = form.on ? known.get(args[0].value) : "";
    assert.notEqual(on, undefined, `${name}: a handle that is open`);
    const gives = result !== 0n ? form.gives : undefined;
    rows.push([
      name,
      on,
      form.args?.(args, address) ?? "",
      gives ? "handle" : String(low({ value: result })),
    ]);
    if (gives) known.set(result, gives);
    if (form.ends) known.delete(args[0].value);
  }
  // The library stays.
  assert.deepEqual([...known.values()], ["library"], "every handle has been closed");
  return withoutRepetition(rows);
}

// A long reply takes as many reads as it takes, and any of them may be a short one: they become one, with the most that
// was asked for.
function withoutRepetition(rows) {
  const kept = [];
  for (const row of rows) {
    const [before, between] = kept.slice(-2);
    if (row[0] === "WinHttpReadData" && before?.[0] === "WinHttpReadData") {
      assert.equal(between[0], "WinHttpQueryDataAvailable");
      const most = Math.max(...[before, row].map(([, , bytes]) => Number.parseInt(bytes, 10)));
      kept.splice(-2, 2);
      kept.push([...row.slice(0, 2), `${most} bytes`, row[3]]);
    } else {
      kept.push(row);
    }
  }
  return kept;
}

test("each road has its table in the document", () => {
  assert.deepEqual(Object.keys(documented), Object.keys(roads));
});

if (isWine) {
  test("the calls of an exchange are those of the document, one by one", { timeout: 240_000 }, async (t) => {
    for (const [road, rows] of Object.entries(roads)) {
      await t.test(road, async (own) => assert.deepEqual(await rows(own), documented[road]));
    }
  });
}
