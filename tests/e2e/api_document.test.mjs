// docs/api.md against the running service: each example is sent, and what comes back is compared with what the document
// shows. A command or a route without an example, and a route that only one side knows, is a failure.
//
// Natively the machine is the one that the program has built in, as the document says, and every example is replayed
// twice: as raw bytes and by curl itself. Under Wine the machine has other devices: there the answers about devices
// are left out, not those that refuse a request.
import assert from "node:assert/strict";
import { execFile } from "node:child_process";
import fs from "node:fs";
import path from "node:path";
import test from "node:test";
import { promisify } from "node:util";

import { jsonReply } from "../programs/account/service.mjs";
import {
  documentedPort,
  examplesIn,
  parseCurl,
  patternOf,
  readDocument,
  routeOf,
  routesIn,
} from "./api_examples.mjs";
import {
  answerBytes,
  bodyOf,
  isNative,
  isWine,
  issuedFields,
  jsonDocument,
  makeDirectory,
  programPathText,
  startAccountService,
  startService,
  startServiceFor,
  utf8Bytes,
  utf8Text,
} from "./harness.mjs";
import { quietSystem } from "./quiet_system.mjs";

/** @typedef {import("./api_examples.mjs").Example} Example */

const limits = { timeout: 180_000 };
const quiet = quietSystem();
const text = readDocument();
const examples = examplesIn(text);
const source = (/** @type {string} */ name) =>
  fs.readFileSync(new URL(`../../src/${name}`, import.meta.url), "utf8");

const captureNames = ["1-host-in", "2-algorithm-in", "3-algorithm-out", "4-host-out"];
const captureBytesPerSecond = 96_000;
const waveHeaderBytes = 44;
const download = "GET /api/v1/debug/capture/download";

// ---- what the examples talk to ----

// What the account service of the examples replies.
/** @param {import("node:test").TestContext} t */
async function startExampleAccount(t) {
  const account = await startAccountService(t);
  account.answer(
    "/api/v1/auth/register",
    jsonReply({ state: "8b02", public_id: "10003", referrer_note: "Welcome" }),
  );
  account.answer("/api/v1/auth/password", jsonReply({ state: "3f1c" }));
  account.answer(
    "/api/v1/auth/qrcode",
    jsonReply({ state: "5d7e", qr_data_url: "data:image/png;base64,iVBORw0KGgo=" }),
  );
  account.answer(
    "/api/v1/auth/poll",
    jsonReply({ ...issuedFields, nickname: "User", public_id: "10001", referral_open: true }),
  );
  account.answer("/api/v1/session/referrer", jsonReply({}));
  account.answer("/api/v1/session/unbind", jsonReply({}));
  account.answer("/api/v1/session/check", jsonReply({}));
  account.answer("/api/v1/session/release", jsonReply({}));
  return account;
}

// The services that the examples of one replay talk to, by section, and the folder where the commands run.
/** @param {import("node:test").TestContext} t */
async function startExampleServices(t) {
  const captures = makeDirectory("wav");
  const more = [
    ["--capture-directory", captures],
    ["--preset-directory", path.join(captures, "../presets")],
  ].flatMap(([option, directory]) => [option, programPathText(directory)]);
  const options = { env: { VELMORA_DRIVES: makeDirectory(), ...quiet() }, more };
  const signingIn = await startServiceFor(t, await startExampleAccount(t), options);
  const plain = await startService(t, options);
  return {
    captures,
    folder: makeDirectory(),
    of: (/** @type {Example} */ { section }) =>
      section === "Without an account service" ? plain : signingIn,
  };
}

// The effect's part: an accepted export is followed by four files of that many seconds.
/** @param {string} captures @param {import("./api_examples.mjs").Curl} request */
function actAsEffect(captures, { method, target, body }) {
  if (routeOf({ method, target }) !== "POST /api/v1/debug/capture") return;
  const { action, seconds } = JSON.parse(body ?? "{}");
  if (action !== "export" || seconds > 300) return;
  for (const name of captureNames) {
    const bytes = Buffer.alloc(waveHeaderBytes + seconds * captureBytesPerSecond, name);
    fs.writeFileSync(path.join(captures, `capture-${name}.wav`), bytes);
  }
}

// ---- the comparison ----

const statusOf = (/** @type {Example} */ { printed }) =>
  Number(/^HTTP\/1\.1 ([0-9]+) /.exec(printed)?.[1] ?? 200);

// Whether the answer depends on the devices of the machine. A refusal of the request itself does not.
/** @param {Example} example */
function dependsOnMachine(example) {
  const { target } = parseCurl(example.command, "");
  if (example.printed.includes("active endpoint not found")) return true;
  return (
    statusOf(example) === 200 && /^\/api\/v1\/(?:devices|render\/(?:volume|mute|apo)|status)/.test(target)
  );
}

const plainOk = '{"ok":true}';

// The head that an answer must have, whatever part of it the document shows.
/** @param {string} route @param {string} answer */
function assertHead(route, answer) {
  if (route === download) return; // the document shows all of it
  const body = bodyOf(answer);
  const [, status, reason] = /^HTTP\/1\.1 ([0-9]+) ([^\r]+)\r\n/.exec(answer) ?? assert.fail(answer);
  const [, type] = /\r\nContent-Type: ([^\r]+)\r\n/.exec(answer) ?? assert.fail(answer);
  assert.equal(answer, answerBytes(Number(status), reason, type, body), route);
  if (!route.includes("/api/")) return;
  const isShort =
    (body === plainOk && !route.includes("/account/")) || body.includes("applies_within_seconds");
  assert.equal(type, isShort ? "application/json" : jsonDocument, `${route}: ${body}`);
}

// What the command prints, from the answer to its request.
/** @param {import("./api_examples.mjs").Curl} curl @param {string} answer */
function printedBy(curl, answer) {
  const head = answer.slice(0, answer.length - bodyOf(answer).length);
  const type = /\r\nContent-Type: ([^\r]+)\r\n/.exec(head)?.[1] ?? "";
  const values = { "%{http_code}": answer.slice(9, 12), "%{content_type}": type, "\\n": "\n" };
  const behind = (curl.format ?? "").replace(/%\{\w+\}|\\n/g, (name) => values[name] ?? assert.fail(name));
  const body = curl.output !== undefined || curl.namesOutput ? "" : bodyOf(answer);
  return `${curl.printsHead ? head : ""}${body}${behind}`;
}

// Sends the example's request as raw bytes. Gives the whole answer.
/** @param {import("./harness.mjs").Service} service @param {import("./api_examples.mjs").Curl} curl @param {string} folder */
async function send(service, curl, folder) {
  const isHost = (/** @type {string[]} */ header) => header[0].toLowerCase() === "host";
  const file = curl.bodyFile === undefined ? undefined : path.join(folder, curl.bodyFile);
  const body = file === undefined ? curl.body : fs.readFileSync(file, "latin1");
  const answer = await service.exchange(
    service.requestBytes({
      method: curl.method,
      target: curl.target,
      host: curl.headers.find(isHost)?.[1],
      headers: curl.headers.filter((header) => !isHost(header)),
      body: body === undefined ? undefined : utf8Bytes(body),
    }),
  );
  if (curl.output !== undefined) fs.writeFileSync(path.join(folder, curl.output), bodyOf(answer), "latin1");
  return answer;
}

/** @param {Example} example @param {string} printed */
function assertPrinted({ line, command, printed: shown }, printed) {
  const expected = parseCurl(command, "").format === undefined ? shown : `${shown}\n`;
  const found = utf8Text(printed);
  if (!patternOf(expected).test(found)) assert.equal(found, expected, `docs/api.md:${line}: ${command}`);
}

const nameOf = (/** @type {Example} */ { line, command }) =>
  `line ${line}: ${command.replace(/\s+/g, " ").replace(/-H "x-velmora-token: \$TOKEN" /, "")}`;

// ---- the tests ----

test("every code block with curl is an example, and nearly all show what they print", () => {
  const commands = text
    .split("\n")
    .filter((line) => /^[\s`]*curl /.test(line) || /^ {4}.*\bcurl\b/.test(line));
  assert.equal(examples.length, commands.length);
  assert.ok(examples.length > 0);
  for (const { line, command, printed } of examples) {
    const isSilent = parseCurl(command, "").output !== undefined && !/ -[Dw] /.test(command);
    assert.equal(printed === "", isSilent, `line ${line}: ${command}`);
    assert.ok(
      !/\.{4}|^\.\.\.$/.test(printed),
      `line ${line}: bytes left out are three dots, and not all bytes`,
    );
  }
});

test("the routes of the document are those of the program, and each has an example", () => {
  const table = text.slice(text.indexOf("\n## Routes\n"), text.indexOf("\n## Pages\n"));
  const listed = [...table.matchAll(/^\| (`[^|]+`) \|/gm)].flatMap(([, cell]) =>
    cell.split(", ").map((code) => /^`([A-Z]+ \/[^`?]*)`$/.exec(code)?.[1] ?? assert.fail(code)),
  );
  const routes = routesIn(source("api/routes.cpp"), source("api/equalizer_routes.cpp"));
  assert.equal(new Set(routes).size, routes.length);
  assert.deepEqual(listed.sort(), routes);
  const shown = new Set(
    examples
      .filter((example) => statusOf(example) === 200)
      .map(({ command }) => routeOf(parseCurl(command, ""))),
  );
  assert.deepEqual([...shown].sort(), routes);
});

test("each refusal that an example shows is in the table of refusals", () => {
  const rows = text
    .slice(text.indexOf("\n## Refusals\n"))
    .split("\n")
    .flatMap((line) => {
      const [, status, messages] = /^\| ([45][^|]*) \| ([^|]*) \|/.exec(line) ?? [];
      const all = [...(messages ?? "").matchAll(/`([^`]+)`/g)];
      return status === undefined ? [] : all.map(([, message]) => `${status}: ${message}`);
    });
  const refusals = examples.filter((example) => statusOf(example) >= 400);
  assert.ok(refusals.length > 0);
  for (const { line, printed } of refusals) {
    const [, status, message] =
      /^HTTP\/1\.1 ([^\r]+)\r\n[^]*\{"error":"([^"]+)"\}$/.exec(printed) ?? assert.fail(`line ${line}`);
    assert.ok(rows.includes(`${status}: ${message}`), `line ${line}: ${status}: ${message}`);
  }
});

test("the service answers each example as the document shows", limits, async (t) => {
  const { captures, folder, of } = await startExampleServices(t);
  /** @type {Map<string, string[]>} */
  const bodies = new Map();
  let replayed = 0;
  let leftOut = 0;
  for (const example of examples) {
    await t.test(nameOf(example), async (row) => {
      if (isWine && dependsOnMachine(example)) {
        ++leftOut;
        return row.diagnostic("depends on the devices of the machine");
      }
      const service = of(example);
      const curl = parseCurl(example.command, service.token);
      const answer = await send(service, curl, folder);
      assertPrinted(example, printedBy(curl, answer));
      assertHead(routeOf(curl), answer);
      assert.equal(Number(answer.slice(9, 12)), statusOf(example), answer.slice(0, 200));
      if (routeOf(curl) === download)
        assert.equal(bodyOf(answer).length, Number(/Content-Length: ([0-9]+)/.exec(answer)?.[1]));
      actAsEffect(captures, curl);
      bodies.set(routeOf(curl), [...(bodies.get(routeOf(curl)) ?? []), utf8Text(bodyOf(answer))]);
      ++replayed;
    });
  }
  assert.equal(replayed + leftOut, examples.length);
  assert.ok(isNative ? leftOut === 0 : leftOut < replayed);
  t.diagnostic(`${replayed} examples replayed, ${leftOut} left out`);

  await t.test("the answers in the tables of requests have the form of real ones", () => {
    const rows = text.split("\n").filter((line) => /^\| `[A-Z]+ \/api\/[^|]*`.* \| .*`\{/.test(line));
    assert.ok(rows.length > 0);
    for (const row of rows) {
      const [, request, form] = /^\| `([^`]+)` \|.*?`(\{[^`]*\})`/.exec(row) ?? assert.fail(row);
      const [method, target] = request.split(" ");
      const answered = bodies.get(routeOf({ method, target })) ?? assert.fail(`no example of ${request}`);
      const pattern = new RegExp(patternOf(form).source.replaceAll("[^]+?", "[^]*?"));
      assert.ok(
        answered.some((body) => pattern.test(body)),
        `${request}: ${form}; ${answered}`,
      );
    }
  });
});

const replayByCurl = async (t) => {
  const { captures, folder, of } = await startExampleServices(t);
  for (const example of examples) {
    await t.test(nameOf(example), async () => {
      const { port, token } = of(example);
      const command = example.command.replace(`127.0.0.1:${documentedPort}`, `127.0.0.1:${port}`);
      const { stdout, stderr } = await promisify(execFile)("bash", ["-c", command], {
        cwd: folder,
        encoding: "latin1",
        env: { PATH: process.env.PATH, HOME: folder, TOKEN: token },
      });
      assert.equal(stderr, "");
      assertPrinted(example, stdout);
      actAsEffect(captures, parseCurl(example.command, token));
    });
  }
};
if (isNative) test("curl prints what the document shows", limits, replayByCurl);
