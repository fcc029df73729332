// The sign-in: what the page gets from each route, and what the account service gets in turn.
import assert from "node:assert/strict";
import test from "node:test";

import { jsonReply } from "../programs/account/service.mjs";
import {
  accountRequestBytes,
  answerBytes,
  isNative,
  issuedFields,
  jsonDocument,
  noSession,
  refusalBytes,
  startAccountService,
  startService,
  startServiceFor,
  undoWineEscapes,
  utf8Bytes,
  words,
} from "./harness.mjs";

const limits = { timeout: 120_000 };

const routes = {
  register: ["POST", "/api/v1/account/register"],
  password: ["POST", "/api/v1/account/password"],
  qrcode: ["POST", "/api/v1/account/qrcode"],
  poll: ["GET", "/api/v1/account/poll?state=attempt"],
  referrer: ["POST", "/api/v1/account/referrer"],
  unbind: ["POST", "/api/v1/account/unbind"],
  logout: ["POST", "/api/v1/account/logout"],
};
const remote = {
  register: "/api/v1/auth/register",
  password: "/api/v1/auth/password",
  qrcode: "/api/v1/auth/qrcode",
  poll: "/api/v1/auth/poll",
  referrer: "/api/v1/session/referrer",
  unbind: "/api/v1/session/unbind",
};
const credentials = '{"username":"user","password":"secret"}';
const bodies = { register: credentials, password: credentials, referrer: '{"public_id":"10002"}' };

async function startBoth(t) {
  const account = await startAccountService(t);
  account.answer("/api/v1/session/release", jsonReply({}));
  return { account, service: await startServiceFor(t, account) };
}

const call = (service, route, body = bodies[route]) => service.ask(...routes[route], body);
const done = (text) => answerBytes(200, "OK", jsonDocument, utf8Bytes(text));
const refused = (status, reason, message) => refusalBytes(status, reason, utf8Bytes(message));
const badRequest = (message) => refused(400, "Bad Request", message);
// How a failed call shows, by route.
const callFailed = {
  register: badRequest,
  password: (message) => refused(401, "Unauthorized", message),
  qrcode: (message) => refused(502, "Bad Gateway", message),
  poll: (message) => refused(502, "Bad Gateway", message),
};
const loginRoutes = ["register", "password", "qrcode"];
const unreadable = "账号服务返回的内容无法识别";

// What came since the last look, as the service saw it, without Wine's escapes.
function takeRequests(account) {
  return account.requests.splice(0).map(({ head, body }) => undoWineEscapes(head) + body);
}

// The machine's id in requests, learnt from one.
async function machineIdOf(service, account) {
  account.answer(remote.qrcode, jsonReply({ state: "s", qr_data_url: "q" }));
  await call(service, "qrcode");
  return JSON.parse(account.requests.pop().body).machine_id;
}

test("without an account service each route but the logout says so", limits, async (t) => {
  const service = await startService(t);
  for (const route of loginRoutes) {
    const message = "未配置账号服务，请用 --account-service 指定";
    assert.equal(await call(service, route), refused(501, "Not Implemented", message), route);
    assert.equal(await call(service, route, "no JSON"), refused(501, "Not Implemented", message), route);
  }
  for (const route of ["poll", "referrer", "unbind"]) {
    assert.equal(await call(service, route), refused(501, "Not Implemented", "未配置账号服务"), route);
  }
  const noState = await service.ask("GET", "/api/v1/account/poll");
  assert.equal(noState, refused(501, "Not Implemented", "未配置账号服务"));
  assert.equal(await call(service, "logout"), done('{"ok":true}'));
});

test("an empty address is none", limits, async (t) => {
  const service = await startService(t, { more: ["--account-service", ""] });
  assert.equal(await call(service, "poll"), refused(501, "Not Implemented", "未配置账号服务"));
});

test("each route reports an address that is not a URL", limits, async (t) => {
  for (const url of ["127.0.0.1:80", "account.invalid", "http//x", "://x", "ftp://127.0.0.1"]) {
    const service = await startServiceFor(t, url);
    for (const route of [...loginRoutes, "poll"]) {
      assert.equal(await call(service, route), callFailed[route]("账号服务地址无法解析"), `${url} ${route}`);
    }
    await service.stop();
  }
});

test("requests that lack what they need are refused and nothing is asked", limits, async (t) => {
  const { account, service } = await startBoth(t);
  const incomplete = words`no-JSON {"username":"user"} {"username":"","password":"secret"}`;
  for (const body of incomplete) {
    assert.equal(await call(service, "register", body), badRequest("请填写用户名和密码"), body);
    assert.equal(await call(service, "password", body), badRequest("请填写用户名和密码"), body);
  }
  for (const target of ["", "?state", "?State=abc"]) {
    assert.equal(await service.ask("GET", `/api/v1/account/poll${target}`), badRequest("缺少 state"), target);
  }
  // A missing id is reported before a missing session.
  for (const body of ["", '{"public_id":""}']) {
    assert.equal(await call(service, "referrer", body), badRequest("请填写推荐人的用户 ID"), body);
  }
  assert.equal(await call(service, "referrer"), badRequest("请先扫码登录"));
  assert.equal(await call(service, "unbind"), badRequest("请先扫码登录，再更换常用电脑"));
  assert.equal(account.connections, 0);
});

test("each operation goes out byte by byte", limits, async (t) => {
  const { account, service } = await startBoth(t);
  const machine = await machineIdOf(service, account);
  account.answer(remote.register, jsonReply({ state: "s" }));
  account.answer(remote.password, jsonReply({ state: "s" }));
  account.answer(remote.referrer, jsonReply({}));
  account.answer(remote.unbind, jsonReply({}));
  await service.signIn(account, { account_hash: 'ha"s\\h', session_token: 'to"k\\en' });
  account.requests.length = 0;
  // Only quotes and backslashes are escaped: control bytes and UTF-8 go out as they are.
  const odd = '"a\\"b\\\\c\\/d\\n\\t\\b用户\x7f"';
  const oddWire = '"a\\"b\\\\c/d\n\t\b用户\x7f"';
  const wireOf = (username, password, more = "") =>
    `{"username":${username},"password":${password},"machine_id":"${machine}"${more}}`;
  const session = '"account_hash":"ha\\"s\\\\h","token":"to\\"k\\\\en"';
  /** @type {any[][]} */
  const rows = [
    ["register", credentials, wireOf('"user"', '"secret"')],
    [
      "register",
      `{"username":${odd},"password":${odd},"referrer_public_id":${odd}}`,
      wireOf(oddWire, oddWire, `,"referrer_public_id":${oddWire}`),
    ],
    ["password", `{"username":${odd},"password":${odd},"referrer_public_id":"x"}`, wireOf(oddWire, oddWire)],
    ["qrcode", "anything", `{"machine_id":"${machine}"}`],
    ["referrer", `{"public_id":${odd}}`, `{${session},"public_id":${oddWire}}`],
    ["unbind", undefined, `{${session}}`],
  ];
  for (const [route, body, wire] of rows) {
    const answer = await call(service, route, body === undefined ? undefined : utf8Bytes(body));
    assert.match(answer, /^HTTP\/1\.1 200 OK\r\n/, `${route} ${body}`);
    const expected = accountRequestBytes(account, "POST", remote[route], utf8Bytes(wire));
    assert.deepEqual(takeRequests(account), [expected], `${route} ${body}`);
  }
  assert.deepEqual(await call(service, "logout", '{"any":"body"}'), done('{"ok":true}'));
  assert.deepEqual(takeRequests(account), []);
});

test("a password of the largest request goes out whole", limits, async (t) => {
  const { account, service } = await startBoth(t);
  account.answer(remote.password, jsonReply({ state: "s" }));
  // Each backslash is escaped on the way in and on the way out.
  const secret = "\\\\".repeat(32_000);
  const answer = await call(service, "password", `{"username":"user","password":"${secret}"}`);
  assert.equal(answer, done('{"ok":true,"state":"s"}'));
  assert.equal(JSON.parse(account.requests[0].body).password, "\\".repeat(32_000));
});

test("a state goes out as it came", limits, async (t) => {
  const { account, service } = await startBoth(t);
  account.answer(remote.poll, jsonReply({ status: "pending" }));
  const rows = [
    ["?x=1&state=abc&y=2", "abc"],
    ["?mystate=abc", "abc"],
    ["?state=", ""],
    ["?state=%20a%zz%", "%20a%zz%"],
    ["?state=\"<>{}|^`'", "\"<>{}|^`'"],
    ["?state=a\\b", "a\\b"],
    ["?state=a?b/../c//d;e=f#g", "a?b/../c//d;e=f#g"],
    ["?state=用户", "用户"],
  ];
  for (const [query, state] of rows) {
    const answer = await service.ask("GET", `/api/v1/account/poll${utf8Bytes(query)}`);
    assert.equal(answer, done('{"status":"pending","detail":"","nickname":"","public_id":""}'), query);
    const target = `${remote.poll}?state=${utf8Bytes(state)}`;
    assert.deepEqual(takeRequests(account), [accountRequestBytes(account, "GET", target)], query);
  }
});

test("a slash at the end of the address stays, and so does a path", limits, async (t) => {
  const account = await startAccountService(t);
  const endings = ["/", "/base", "/base/", "/base?key=1&rest="];
  // Wine loses a query that follows no path.
  if (isNative) endings.push("?key=1&rest=");
  for (const ending of endings) {
    const service = await startServiceFor(t, account.url + ending);
    await call(service, "poll");
    const target = `${ending.startsWith("/") ? "" : "/"}${ending}${remote.poll}?state=attempt`;
    const expected = accountRequestBytes(account, "GET", target);
    assert.deepEqual(takeRequests(account), [expected], ending);
    await service.stop();
  }
});

test("a login attempt that the account service opens is passed on", limits, async (t) => {
  const { account, service } = await startBoth(t);
  const rows = [
    [
      "register",
      '{"state":"s1","public_id":"10001","referrer_note":"谢谢"}',
      '{"ok":true,"state":"s1","public_id":"10001","referrer_note":"谢谢"}',
    ],
    ["register", '{"state":""}', '{"ok":true,"state":"","public_id":"","referrer_note":""}'],
    ["password", '{"state":"a\\"b\\\\c\\n\\u7528\\b"}', '{"ok":true,"state":"a\\"b\\\\c\\n用b"}'],
    ["password", '{"state":"ends\\', '{"ok":true,"state":"ends\\\\"}'],
    ["qrcode", '{"state":"","qr_data_url":"d:AA+/="}', '{"ok":true,"state":"","qr_data_url":"d:AA+/="}'],
  ];
  for (const [route, reply, answer] of rows) {
    account.answer(remote[route], { body: utf8Bytes(reply) });
    assert.equal(await call(service, route), done(answer), `${route} ${reply}`);
  }
  assert.deepEqual(await service.session(), noSession);
});

test("unusable replies of status 200 are reported as unreadable", limits, async (t) => {
  const { account, service } = await startBoth(t);
  const rows = [
    "",
    "no JSON",
    "\0\0\0\0",
    '{"state',
    '{"state":12}',
    '{"state":\t"s1"}',
    "[[[[[[[[".repeat(1000),
  ];
  for (const body of rows) {
    for (const route of [...loginRoutes, "poll"]) {
      account.answer(remote[route], { body });
      const what = `${route} ${body.slice(0, 40)}`;
      assert.equal(await call(service, route), callFailed[route](unreadable), what);
    }
  }
  for (const body of ['{"state":"s1"}', '{"qr_data_url":"q"}', '{"state":"s1","qr_data_url":null}']) {
    account.answer(remote.qrcode, { body });
    assert.equal(await call(service, "qrcode"), callFailed.qrcode(unreadable), body);
  }
  assert.deepEqual(await service.session(), noSession);
});

test("a status other than 200 refuses a login in the account service's words", limits, async (t) => {
  const { account, service } = await startBoth(t);
  const rows = /** @type {any[][]} */ ([
    [403, '{"detail":"密码错误"}', "密码错误"],
    [403, '{"detail":""}', ""],
    [403, '{"detail":null}', "账号服务返回 403"],
    [407, "{}", "账号服务返回 407"],
    [500, '{"detail":"broken"}', "broken"],
    [201, '{"state":"s1","qr_data_url":"q"}', "账号服务返回 201"],
  ]);
  for (const [status, body, message] of rows) {
    for (const route of loginRoutes) {
      account.answer(remote[route], { status, reason: "As It Is", body: utf8Bytes(body) });
      assert.equal(await call(service, route), callFailed[route](message), `${route} ${status} ${body}`);
    }
  }
});

test("a poll passes the progress on, whatever the status of the reply", limits, async (t) => {
  const { account, service } = await startBoth(t);
  const progress = (status, { detail = "", nickname = "" } = {}) =>
    `{"status":"${status}","detail":"${detail}","nickname":"${nickname}","public_id":""}`;
  const rows = /** @type {any[][]} */ ([
    [200, '{"status":""}', progress("")],
    [200, '{"status":"issued "}', progress("issued ")],
    [403, '{"status":"expired","detail":"二维码已过期"}', progress("expired", { detail: "二维码已过期" })],
    [500, '{"status":"scanned","nickname":"用户\\n"}', progress("scanned", { nickname: "用户\\n" })],
    [200, '{"status":"pending","detail":"unclosed', progress("pending", { detail: "unclosed" })],
    // What does not sign in is not read as a sign-in's.
    [
      200,
      '{"status":"pending","displaced_machine":"other","detail":"d"}',
      progress("pending", { detail: "d" }),
    ],
  ]);
  for (const [status, reply, answer] of rows) {
    account.answer(remote.poll, { status, reason: "As It Is", body: utf8Bytes(reply) });
    assert.equal(await call(service, "poll"), done(answer), reply);
  }
  assert.deepEqual(await service.session(), noSession);
});

test("a reply with a public id keeps it without signing in", limits, async (t) => {
  const { account, service } = await startBoth(t);
  account.answer(
    remote.poll,
    jsonReply({ ...issuedFields, status: "scanned", public_id: "10001" }),
    jsonReply({ status: "scanned", public_id: "" }),
    jsonReply({ status: "scanned" }),
  );
  const scanned = (id) => done(`{"status":"scanned","detail":"","nickname":"","public_id":"${id}"}`);
  assert.equal(await call(service, "poll"), scanned("10001"));
  assert.deepEqual(await service.session(), { ...noSession, public_id: "10001" });
  // An empty one, or none, changes nothing.
  assert.equal(await call(service, "poll"), scanned(""));
  assert.equal(await call(service, "poll"), scanned(""));
  assert.deepEqual(await service.session(), { ...noSession, public_id: "10001" });
});

test("what is issued without an account signs nobody in", limits, async (t) => {
  const { account, service } = await startBoth(t);
  const detail = "账号服务未返回账号标识，无法完成登录";
  const answer = (id) => done(`{"status":"error","detail":"${detail}","nickname":"n","public_id":"${id}"}`);
  const fields = {
    ...issuedFields,
    detail: "d",
    nickname: "n",
    displaced_machine: "m",
    account_hash: undefined,
  };
  const known = { public_id: "10001", invite_url: "i", primary_machine_id: "p" };
  account.answer(
    remote.poll,
    jsonReply(fields),
    jsonReply({ ...fields, account_hash: "" }),
    jsonReply({ ...fields, ...known, account_hash: null }),
  );
  assert.equal(await call(service, "poll"), answer(""));
  assert.equal(await call(service, "poll"), answer(""));
  assert.deepEqual(await service.session(), noSession);
  assert.equal(await call(service, "poll"), answer("10001"));
  assert.deepEqual(await service.session(), { ...noSession, public_id: "10001" });

  // Nor does it change who is signed in.
  await service.signIn(account);
  const before = await service.session();
  account.answer(remote.poll, jsonReply(fields));
  assert.equal(await call(service, "poll"), answer(""));
  assert.deepEqual(await service.session(), before);
});

test("an issued session signs in, and the status shows all but the credential", limits, async (t) => {
  const { account, service } = await startBoth(t);
  const reply = {
    ...issuedFields,
    detail: "欢迎",
    nickname: "用户",
    public_id: "10001",
    referral_open: true,
    referrer: "10002",
    invite_url: "https://velmora.invalid/i?a=1&b=2",
    primary_machine_id: 'machine "1"',
  };
  account.answer(remote.poll, jsonReply(reply));
  const begin = Math.floor(Date.now() / 1000);
  assert.equal(
    await call(service, "poll"),
    done('{"status":"issued","detail":"欢迎","nickname":"用户","public_id":"10001"}'),
  );
  const session = await service.session();
  assert.ok(session.signed_in_unix >= begin && session.signed_in_unix <= Date.now() / 1000);
  assert.ok(session.usage_seconds >= 0);
  assert.deepEqual(Object.entries({ ...session, signed_in_unix: 0, usage_seconds: 0 }), [
    ["account", "hash-1"],
    ["signed_in", true],
    ["usage_seconds", 0],
    ["signed_in_unix", 0],
    ["primary_machine_id", 'machine "1"'],
    ["primary_known", true],
    ["public_id", "10001"],
    ["referral_open", true],
    ["referrer", "10002"],
    ["invite_url", "https://velmora.invalid/i?a=1&b=2"],
  ]);

  // A new sign-in takes its place, and what its reply lacks becomes empty.
  await service.signIn(account, { account_hash: "hash-2" });
  assert.deepEqual(
    { ...(await service.session()), signed_in_unix: 0, usage_seconds: 0 },
    { ...noSession, account: "hash-2", signed_in: true, primary_known: true },
  );
});

test("a device that loses its session is named in place of the detail", limits, async (t) => {
  const { account, service } = await startBoth(t);
  const rows = [
    ['办公室"1"', '已登录。另一台设备（办公室\\"1\\"）上的 Velmora 将在两分钟内自动退出。'],
    ["", "of the service"],
    [null, "of the service"],
  ];
  for (const [displaced_machine, detail] of rows) {
    account.answer(remote.poll, jsonReply({ ...issuedFields, detail: "of the service", displaced_machine }));
    const answer = done(`{"status":"issued","detail":"${detail}","nickname":"","public_id":""}`);
    assert.equal(await call(service, "poll"), answer);
  }
});

test("a referral is open by exactly these bytes of the reply", limits, async (t) => {
  const { account, service } = await startBoth(t);
  /** @type {any[][]} */
  const rows = [
    ['"deep":{"referral_open":true}', true],
    ['"referral_open": true', false],
    ['"referral_open":"true"', false],
    ['"x":1', false],
  ];
  for (const [field, isOpen] of rows) {
    const body = `{"status":"issued","account_hash":"h","session_token":"t",${field}}`;
    account.answer(remote.poll, { body });
    await call(service, "poll");
    assert.equal((await service.session()).referral_open, isOpen, field);
  }
});

test("a referrer is named once, and a primary computer freed", limits, async (t) => {
  const { account, service } = await startBoth(t);
  const fields = { referral_open: true, primary_machine_id: "machine-1", referrer: "" };
  const outcomes = (doneText, failedText) => [
    [200, "{}", true, doneText],
    [200, '{"detail":"好"}', true, "好"],
    [201, "{}", false, `${failedText}（201）`],
    [400, '{"detail":"不行"}', false, "不行"],
  ];
  const act = async (route, /** @type {any[]} */ [status, body, ok, detail]) => {
    await service.signIn(account, fields);
    account.answer(remote[route], { status, reason: "As It Is", body: utf8Bytes(body) });
    const what = `${route} ${status} ${body}`;
    assert.equal(await call(service, route), done(`{"ok":${ok},"detail":"${detail}"}`), what);
    return service.session();
  };
  for (const row of outcomes("已绑定推荐人", "绑定失败")) {
    const session = await act("referrer", row);
    const expected = [!row[2], row[2] ? "10002" : "", "machine-1"];
    assert.deepEqual([session.referral_open, session.referrer, session.primary_machine_id], expected);
  }
  for (const row of outcomes("已解绑，请重新扫码登录", "解绑失败")) {
    const { signed_in: signedIn, ...session } = await act("unbind", row);
    const expected = [true, true, true, row[2] ? "" : "machine-1"];
    assert.deepEqual(
      [signedIn, session.referral_open, session.primary_known, session.primary_machine_id],
      expected,
    );
  }
  // What does not reach the account service is a refusal as well.
  await service.signIn(account, fields);
  const before = await service.session();
  await account.close();
  const failed = done('{"ok":false,"detail":"连接账号服务失败（错误 12029）"}');
  assert.equal(await call(service, "referrer"), failed);
  assert.equal(await call(service, "unbind"), failed);
  assert.deepEqual(await service.session(), before);
});

test("a session without a credential can name no referrer and free no computer", limits, async (t) => {
  const { account, service } = await startBoth(t);
  account.answer(remote.poll, jsonReply({ status: "issued", account_hash: "hash-1" }));
  await call(service, "poll");
  assert.equal((await service.session()).signed_in, true);
  account.requests.length = 0;
  assert.equal(await call(service, "referrer"), badRequest("请先扫码登录"));
  assert.equal(await call(service, "unbind"), badRequest("请先扫码登录，再更换常用电脑"));
  await service.stop();
  assert.deepEqual(account.requests, []);
});

test("a logout forgets the session here and keeps what is only shown", limits, async (t) => {
  const { account, service } = await startBoth(t);
  assert.equal(await call(service, "logout"), done('{"ok":true}'));
  const shown = { public_id: "10001", referral_open: true, referrer: "10002", invite_url: "i" };
  await service.signIn(account, { ...shown, primary_machine_id: "m" });
  const asked = account.requests.length;
  assert.equal(await call(service, "logout"), done('{"ok":true}'));
  const session = await service.session();
  assert.ok(session.usage_seconds >= 0);
  assert.deepEqual({ ...session, usage_seconds: 0 }, { ...noSession, ...shown });
  assert.equal(await call(service, "logout"), done('{"ok":true}'));
  assert.equal(await call(service, "unbind"), badRequest("请先扫码登录，再更换常用电脑"));
  await service.stop();
  assert.equal(account.requests.length, asked);
});

test("nothing else is answered while a poll waits for the account service", limits, async (t) => {
  const { account, service } = await startBoth(t);
  /** @type {(value?: unknown) => void} */
  let release = () => {};
  account.answer(
    remote.poll,
    jsonReply({ status: "pending" }, { hold: new Promise((resolve) => (release = resolve)) }),
  );
  const polled = call(service, "poll");
  await account.waitForRequests(remote.poll, 1);
  let isAnswered = false;
  const other = service.session().then((session) => {
    isAnswered = true;
    return session;
  });
  await new Promise((resolve) => setTimeout(resolve, 300));
  assert.equal(isAnswered, false);
  release();
  assert.equal(await polled, done('{"status":"pending","detail":"","nickname":"","public_id":""}'));
  assert.deepEqual(await other, noSession);
});
