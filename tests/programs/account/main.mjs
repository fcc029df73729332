// The test account service as a program: prints its URL, then every request as it came, until it is interrupted.
//
//   node main.mjs [--port N] [--replies FILE] [--tls DIRECTORY]
//
// FILE is JSON: for each path a list of replies in the order in which they are given, the last one for good (the
// fields are those of service.mjs; `json` in place of a body is an object to send). Without it the program plays a
// service whose one user is signed in at the second poll. DIRECTORY gets an authority and its certificates, and the
// service speaks TLS with the good one.
import fs from "node:fs";
import { parseArgs } from "node:util";

import { makeAuthority } from "./authority.mjs";
import { AccountService, jsonReply } from "./service.mjs";

const { values } = parseArgs({
  options: { port: { type: "string" }, replies: { type: "string" }, tls: { type: "string" } },
});

const issued = {
  status: "issued",
  account_hash: "user-1",
  nickname: "User One",
  session_token: "credential-of-user-1",
  public_id: "10001",
  referral_open: true,
  invite_url: "https://velmora.invalid/invite/10001",
  primary_machine_id: "machine-1",
  session_check_seconds: 2,
};
/** @type {Record<string, (import("./service.mjs").Reply & { json?: object })[]>} */
const usualReplies = {
  "/api/v1/auth/register": [{ json: { state: "attempt-1", public_id: "10001", referrer_note: "" } }],
  "/api/v1/auth/password": [{ json: { state: "attempt-1" } }],
  "/api/v1/auth/qrcode": [{ json: { state: "attempt-1", qr_data_url: "data:image/png;base64,AAAA" } }],
  "/api/v1/auth/poll": [{ json: { status: "pending", detail: "scan the code" } }, { json: issued }],
  "/api/v1/session/referrer": [{ json: {} }],
  "/api/v1/session/unbind": [{ json: {} }],
  "/api/v1/session/check": [{ json: { active: true } }, { json: { active: false } }],
  "/api/v1/session/release": [{ json: {} }],
};

/** @type {typeof usualReplies} */
const scripted = values.replies ? JSON.parse(fs.readFileSync(values.replies, "utf8")) : usualReplies;
const certificate = values.tls ? makeAuthority(values.tls).good : undefined;
const service = await AccountService.start({ port: Number(values.port ?? 0), certificate });
for (const [path, replies] of Object.entries(scripted)) {
  service.answer(path, ...replies.map(({ json, ...reply }) => (json ? jsonReply(json, reply) : reply)));
}
service.onRequest = (/** @type {{ head: string, body: string }} */ { head, body }) =>
  process.stdout.write(Buffer.from(`${head}${body}\n\n`, "latin1"));
service.server.ref();
process.stdout.write(`${service.url}\n`);
for (const signal of ["SIGINT", "SIGTERM"]) process.on(signal, () => process.exit(0));
