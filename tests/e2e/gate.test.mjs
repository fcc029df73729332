// Which requests are read, which are local, which carry the token, and how the others are refused.
import assert from "node:assert/strict";
import test from "node:test";

import { answerBytes, answers, makeWebRoot, startService, words } from "./harness.mjs";

const pageAnswer = answerBytes(200, "OK", "text/html; charset=utf-8", "help\n");
const footstep = "/api/v1/render/effects/footstep";
const algorithm = "/api/v1/render/effects/algorithm";
const requestLimit = 65_536;

function startGateService(t) {
  return startService(t, { webRoot: makeWebRoot({ "help.html": "help\n" }) });
}

test("only local requests pass", { timeout: 60_000 }, async (t) => {
  const service = await startGateService(t);
  const { port } = service;
  const otherPort = port + 1;

  /** @type {any[][]} */
  const hosts = [
    [`127.0.0.1:${port}`, true],
    [`localhost:${port}`, true],
    [`LOCALHOST:${port}`, true],
    [`  127.0.0.1:${port}\t`, true],
    [null, false],
    ["", false],
    ["127.0.0.1", false],
    [`127.0.0.1:${otherPort}`, false],
    [`127.0.0.1:0${port}`, false],
    [`127.0.0.1:${port}.`, false],
    [`[::1]:${port}`, false],
    [`localhost.:${port}`, false],
    [`evil.example:${port}`, false],
    [`127.0.0.1 :${port}`, false],
  ];
  for (const [host, passes] of hosts) {
    await t.test(`Host ${JSON.stringify(host)} ${passes ? "passes" : "is refused"}`, async () => {
      const bytes = service.requestBytes({ target: "/help.html", host });
      await service.expectFor(passes ? pageAnswer : answers.notLocal, bytes);
    });
  }

  /** @type {any[][]} */
  const origins = [
    [`http://127.0.0.1:${port}`, true],
    [`http://localhost:${port}`, true],
    [`HTTP://LOCALHOST:${port}`, true],
    [`HTTP://127.0.0.1:${port}`, false],
    ["", false],
    ["null", false],
    [`https://127.0.0.1:${port}`, false],
    [`http://127.0.0.1:${otherPort}`, false],
    [`http://127.0.0.1:${port}/`, false],
    [`127.0.0.1:${port}`, false],
    [`http://127.0.0.1:${port} http://evil.example`, false],
  ];
  for (const [origin, passes] of origins) {
    await t.test(`Origin ${JSON.stringify(origin)} ${passes ? "passes" : "is refused"}`, async () => {
      const bytes = service.requestBytes({ target: "/help.html", headers: [["Origin", origin]] });
      await service.expectFor(passes ? pageAnswer : answers.notLocal, bytes);
    });
  }

  await t.test("a Referer from elsewhere is not looked at", async () => {
    const headers = [["Referer", "http://evil.example/"]];
    await service.expectFor(pageAnswer, service.requestBytes({ target: "/help.html", headers }));
  });
  await t.test("a Host and an Origin that name the service differently pass", async () => {
    const headers = [["Origin", `http://localhost:${port}`]];
    await service.expectFor(pageAnswer, service.requestBytes({ target: "/help.html", headers }));
  });
  await service.assertAnswers();
});

test("everything under /api/ needs the token", { timeout: 60_000 }, async (t) => {
  const token = "Token-With-Letters-Of-Both-Cases-0";
  const service = await startService(t, { token });
  const tokens = [
    [token, true],
    [`  ${token}\t `, true],
    [null, false],
    ["", false],
    [token.toLowerCase(), false],
    [token.slice(0, -1), false],
    [`${token}0`, false],
    [`${token}\0`, false],
    [`Bearer ${token}`, false],
    ["x".repeat(30_000), false],
  ];
  for (const [value, passes] of tokens) {
    await t.test(`${JSON.stringify(value)?.slice(0, 60)} ${passes ? "passes" : "is refused"}`, async () => {
      /** @type {any[][]} */
      const headers = value === null ? [] : [["x-velmora-token", value]];
      const bytes = service.requestBytes({ target: "/api/v1/nothing", headers });
      await service.expectFor(passes ? answers.notFound : answers.noToken, bytes);
    });
  }
  await t.test("the last of two token headers counts", async () => {
    const twice = (first, second) => [first, second].map((value) => ["X-Velmora-Token", value]);
    const ask = (headers) => service.exchange(service.requestBytes({ target: "/api/", headers }));
    assert.equal(await ask(twice("wrong", token)), answers.notFound);
    assert.equal(await ask(twice(token, "wrong")), answers.noToken);
  });
  await t.test("a token in the query or under another name is none", async () => {
    const target = `/api/v1/nothing?token=${token}`;
    const headers = Object.entries({ Authorization: `Bearer ${token}`, Cookie: `token=${token}` });
    await service.expectFor(answers.noToken, service.requestBytes({ target, headers }));
  });
});

test("the first decision that refuses is the one that answers", { timeout: 60_000 }, async (t) => {
  const service = await startGateService(t);
  const { port, token } = service;
  const goodHost = `Host: 127.0.0.1:${port}\r\n`;
  const badHost = "Host: evil.example\r\n";
  const rightToken = `X-Velmora-Token: ${token}\r\n`;
  const signed = goodHost + rightToken;
  const { done, invalidRequest, notFound, notLocal, noToken } = answers;
  // What is asked, its first line, the headers, and the answer.
  const table = [
    ["an unreadable request before a foreign host", "GET /", badHost, invalidRequest],
    [
      "a bad length before a foreign host",
      "GET / HTTP/1.1",
      `${badHost}Content-Length: x\r\n`,
      invalidRequest,
    ],
    ["a foreign host before a page", "GET / HTTP/1.1", badHost, notLocal],
    ["a foreign host before the token", "GET /api/ HTTP/1.1", badHost, notLocal],
    ["a foreign origin with the right token", "GET /api/ HTTP/1.1", `Origin: null\r\n${signed}`, notLocal],
    ["an unknown path before the token", "GET /none HTTP/1.1", goodHost, notFound],
    ["/api without the slash before the token", "GET /api HTTP/1.1", goodHost, notFound],
    ["the token before an unknown route", "GET /api/none HTTP/1.1", goodHost, noToken],
    ["the token before a known route", `PUT ${footstep} HTTP/1.1`, goodHost, noToken],
    ["an unknown route with the token", "GET /api/none HTTP/1.1", signed, notFound],
    ["GET on the footstep route", `GET ${footstep} HTTP/1.1`, signed, notFound],
    ["put in lower case", `put ${algorithm} HTTP/1.1`, signed, notFound],
    ["a slash behind the route", `PUT ${algorithm}/ HTTP/1.1`, signed, notFound],
    ["a fragment behind the route", `PUT ${algorithm}#x HTTP/1.1`, signed, notFound],
    ["a query behind the route", `PUT ${algorithm}?x=/y HTTP/1.1`, signed, done],
  ];
  for (const [what, line, headers, expected] of table) {
    await t.test(what, () => service.expectFor(expected, `${line}\r\n${headers}\r\n`));
  }
  await service.assertAnswers();
});

test("what is no request gets 400", { timeout: 60_000 }, async (t) => {
  const service = await startGateService(t);
  const host = `Host: 127.0.0.1:${service.port}\r\n`;

  const heads = [
    ["an empty head", "\r\n\r\n"],
    ["a blank first line", ` \t\r\n${host}\r\n`],
    ["no version", `GET /\r\n${host}\r\n`],
    ["version 2.0", `GET / HTTP/2.0\r\n${host}\r\n`],
    ["the prefix without its point", `GET / HTTP/1\r\n${host}\r\n`],
    ["a lower-case version", `GET / http/1.1\r\n${host}\r\n`],
    ["a target with a blank", `GET /a b HTTP/1.1\r\n${host}\r\n`],
    ["the greeting of a secure connection", "\x16\x03\x01\x00\xee\x01\x00\x00\xea\x03\x03\r\n\r\n"],
  ];
  for (const [what, bytes] of heads) {
    await t.test(what, () => service.expectFor(answers.invalidRequest, bytes));
  }

  const lengths = ["", "5 5", ...words`+5 -0 5x 0x5 5.0 18446744073709551616 65536`];
  for (const length of lengths) {
    await t.test(`a content length of ${JSON.stringify(length)}`, async () => {
      const bytes = `GET /help.html HTTP/1.1\r\n${host}Content-Length: ${length}\r\n\r\n`;
      await service.expectFor(answers.invalidRequest, bytes);
    });
  }

  await t.test("a head that does not end within 65536 bytes", async () => {
    const start = `GET /help.html HTTP/1.1\r\n${host}X: `;
    await service.expectFor(answers.invalidRequest, start.padEnd(requestLimit, "x"));
  });
  await t.test("a head that ends one byte too late, only by its length", async () => {
    const start = `PUT ${algorithm} HTTP/1.1\r\n${host}X-Velmora-Token: ${service.token}\r\n`;
    const line = "Content-Length: 65000\r\n\r\n";
    const total = start.length + line.length + 65_000;
    const filled = `${start}X: ${"x".repeat(requestLimit + 1 - total - 5)}\r\n${line}`;
    assert.equal(filled.length + 65_000, requestLimit + 1);
    await service.expectFor(answers.invalidRequest, filled);
  });

  const cutShort = [
    ["nothing at all", ""],
    ["half a head", `GET /help.html HTTP/1.1\r\n${host}`],
    ["a head that ends with bare line feeds", `GET /help.html HTTP/1.1\n${host.replace("\r", "")}\n`],
    ["half a body", `GET /help.html HTTP/1.1\r\n${host}Content-Length: 10\r\n\r\n12345`],
  ];
  for (const [what, bytes] of cutShort) {
    await t.test(`${what}, and the client's side ended`, async () => {
      const client = await service.connect();
      if (bytes !== "") await client.send(bytes);
      client.halfClose();
      assert.deepEqual(await client.answer(), { bytes: answers.invalidRequest, reset: false });
    });
  }
  await service.assertAnswers();
});

test("what looks odd is read all the same", { timeout: 60_000 }, async (t) => {
  const service = await startGateService(t);
  const { port, token } = service;
  const address = `127.0.0.1:${port}`;
  const host = `Host: ${address}\r\n`;
  const table = [
    ["version 1.0", `GET /help.html HTTP/1.0\r\n${host}\r\n`],
    ["the bare prefix", `GET /help.html HTTP/1.\r\n${host}\r\n`],
    ["a fourth token", `GET /help.html HTTP/1.1 and more\r\n${host}\r\n`],
    ["other white space between the tokens", `\t GET \v\f/help.html\t\tHTTP/1.1 \r\n${host}\r\n`],
    ["bare line feeds between the lines", `GET /help.html HTTP/1.1\nHost: ${address}\nX: y\r\n\r\n`],
    ["a blank before the colon", `GET /help.html HTTP/1.1\r\nhost :${address}\r\n\r\n`],
    ["two hosts, the last of them right", `GET /help.html HTTP/1.1\r\nHost: x\r\n${host}\r\n`],
    ["lines without a colon", `GET /help.html HTTP/1.1\r\nno colon\r\n${host}nor here\r\n\r\n`],
    ["a header of 60000 bytes", `GET /help.html HTTP/1.1\r\nX: ${"x".repeat(60_000)}\r\n${host}\r\n`],
    ["a thousand headers", `GET /help.html HTTP/1.1\r\n${"X-Many: x\r\n".repeat(1000)}${host}\r\n`],
    ["bytes of every value", `GET /help.html HTTP/1.1\r\nX: \0\x01\x7f\x80\xff\r\n${host}\r\n`],
    [
      "blanks and zeros round a content length",
      `GET /help.html HTTP/1.1\r\n${host}Content-Length:\t 0005 \r\n\r\n12345`,
    ],
    [
      "the last of two content lengths",
      `GET /help.html HTTP/1.1\r\n${host}Content-Length: x\r\nContent-Length: 0\r\n\r\n`,
    ],
    ["a transfer encoding", `GET /help.html HTTP/1.1\r\n${host}Transfer-Encoding: chunked\r\n\r\n`],
    ["a wish for a continuation", `GET /help.html HTTP/1.1\r\n${host}Expect: 100-continue\r\n\r\n`],
  ];
  for (const [what, bytes] of table) {
    await t.test(what, () => service.expectFor(pageAnswer, bytes));
  }

  await t.test("of two hosts only the first is right", async () => {
    const bytes = `GET /help.html HTTP/1.1\r\n${host}Host: x\r\n\r\n`;
    await service.expectFor(answers.notLocal, bytes);
  });

  await t.test("a request of exactly 65536 bytes", async () => {
    const head = (length) =>
      `PUT ${algorithm} HTTP/1.1\r\n${host}X-Velmora-Token: ${token}\r\nContent-Length: ${length}\r\n\r\n`;
    const length = requestLimit - head(65_000).length;
    const bytes = head(length) + '{"stereo_link":2.5}'.padStart(length, " ");
    assert.equal(bytes.length, requestLimit);
    // The refusal of its last field shows that the body was read to its end.
    const refused = "stereo_link must be 0, 1 or 2";
    const type = "application/json; charset=utf-8";
    const expected = answerBytes(400, "Bad Request", type, `{"error":"${refused}"}`);
    await service.expectFor(expected, bytes);
  });

  // The total passes the limit by running over, and the body is what has arrived behind the head.
  for (const length of ["18446744073709551615", "18446744073709551516"]) {
    await t.test(`a content length of ${length} takes what has arrived`, async () => {
      const head = `PUT ${algorithm} HTTP/1.1\r\n${host}X-Velmora-Token: ${token}\r\nContent-Length: ${length}\r\n\r\n`;
      await service.expectFor(answers.done, head);
      const expected = "stereo_link must be 0, 1 or 2";
      assert.ok((await service.exchange(`${head}{"stereo_link":3}`)).endsWith(`{"error":"${expected}"}`));
    });
  }

  await t.test("bytes behind the body are not part of it", async () => {
    const bytes = service.putBytes(algorithm, "{}");
    await service.expectFor(answers.done, `${bytes}{"stereo_link":3}`);
  });
  await t.test("a second request on the same connection is never read", async () => {
    const bytes = service.requestBytes({ target: "/help.html" });
    await service.expectFor(pageAnswer, bytes + bytes);
  });
  await t.test("the chunks of a chunked body are not read", async () => {
    const bytes =
      `PUT ${footstep} HTTP/1.1\r\n${host}X-Velmora-Token: ${token}\r\nTransfer-Encoding: chunked\r\n\r\n` +
      '27\r\n{"bypass":false,"enhance_strength":0.5}\r\n0\r\n\r\n';
    const message = "bypass and enhance_strength (0..1) are required";
    assert.ok((await service.exchange(bytes)).endsWith(`\r\n\r\n{"error":"${message}"}`));
  });
  await service.assertAnswers();
});
