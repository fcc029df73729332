// The machine's id, as the account service gets it, and what the system keeps that it is made of.
import assert from "node:assert/strict";
import { createHash, randomUUID } from "node:crypto";
import fs from "node:fs";
import os from "node:os";
import path from "node:path";
import test from "node:test";

import { jsonReply } from "../programs/account/service.mjs";
import {
  atEnd,
  isNative,
  isWine,
  makeDirectory,
  run,
  startAccountService,
  startServiceFor,
  missingMountRight,
} from "./harness.mjs";

const limits = { timeout: 120_000 };
const remoteQrcode = "/api/v1/auth/qrcode";

async function startAccount(t) {
  const account = await startAccountService(t);
  account.answer(remoteQrcode, jsonReply({ state: "s", qr_data_url: "q" }));
  return account;
}

// The id that the account service gets from a running service.
async function sentId(service, account) {
  await service.ask("POST", "/api/v1/account/qrcode");
  assert.equal(account.requests.length, 1);
  return JSON.parse(account.requests.pop().body).machine_id;
}

// The same of a service that is started for it.
async function newId(t, account, options) {
  const service = await startServiceFor(t, account, options);
  const id = await sentId(service, account);
  await service.stop();
  return id;
}

const idOf = (origin) => createHash("sha256").update(`velmora machine 1\n${origin}`).digest("hex");

test("the machine has one id, which does not reveal what it is made of", limits, async (t) => {
  const account = await startAccount(t);
  const service = await startServiceFor(t, account);
  const id = await sentId(service, account);
  assert.match(id, /^[0-9a-f]{64}$/);
  assert.equal(await sentId(service, account), id);
  await service.stop();
  assert.equal(await newId(t, account), id);
});

if (isNative) {
  // The command that shows a program a system whose /etc has little more than this file, whether ours has one or not.
  function withMachineIdFile(content) {
    const directory = makeDirectory();
    const settings = path.join(directory, "etc");
    fs.mkdirSync(settings);
    fs.copyFileSync("/etc/ld.so.cache", path.join(settings, "ld.so.cache"));
    if (content !== null) fs.writeFileSync(path.join(settings, "machine-id"), content);
    const script = path.join(directory, "with_machine_id");
    fs.writeFileSync(script, `#!/bin/sh\nmount --bind ${settings} /etc && exec "$@"\n`, { mode: 0o755 });
    return ["unshare", "--mount", script];
  }

  test(
    "the id comes from the file's first line, or the host name",
    { ...limits, skip: missingMountRight() },
    async (t) => {
      const identifier = "0f1e2d3c4b5a69788796a5b4c3d2e1f0";
      const named = `name:${os.hostname()}`;
      /** @type {any[][]} */
      const rows = [
        ["a line", `${identifier}\n`, `id:${identifier}`],
        ["a line without its end", identifier, `id:${identifier}`],
        ["two lines", `${identifier}\nanother\n`, `id:${identifier}`],
        ["a line of 63 bytes", `${"x".repeat(63)}\n`, `id:${"x".repeat(63)}`],
        ["a line that is too long", `${"x".repeat(200)}\n`, `id:${"x".repeat(63)}`],
        ["what an image holds before its first start", "uninitialized\n", named],
        ["the same without its end", "uninitialized", named],
        ["a line that begins in the same way", "uninitialized1\n", "id:uninitialized1"],
        ["an empty line", "\n", named],
        ["an empty file", "", named],
        ["no file", null, named],
      ];
      const account = await startAccount(t);
      for (const [what, content, origin] of rows) {
        await t.test(what, async (row) => {
          assert.equal(await newId(row, account, { wrapper: withMachineIdFile(content) }), idOf(origin));
        });
      }
    },
  );
}

if (isWine) {
  const place = ["HKLM\\SOFTWARE\\Microsoft\\Cryptography", "/v", "MachineGuid", "/reg:64"];
  const namePlace = [
    "HKLM\\System\\CurrentControlSet\\Control\\ComputerName\\ActiveComputerName",
    "/v",
    "ComputerName",
    "/reg:64",
  ];

  const isGuid = /^[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}$/;

  // A text of the registry, or undefined where there is none.
  async function registryText(t, /** @type {string[]} */ [key, ...value]) {
    const { output } = await run(t, "reg", ["query", key, ...value]);
    return output.match(/ REG_SZ +([^\r\n]+)/)?.[1];
  }

  async function changeRegistry(t, ...args) {
    const { code, output, errors } = await run(t, "reg", args);
    assert.equal(code, 0, `reg ${args.join(" ")}: ${output}${errors}`);
  }

  test("the id comes from the registry, or the computer's name", limits, async (t) => {
    const account = await startAccount(t);
    const name = await registryText(t, namePlace);
    assert.ok(name, "the computer has a name");
    const put = (text) => changeRegistry(t, "add", ...place, "/d", text, "/f");
    // A run that was ended in the middle has left something else.
    if (!isGuid.test((await registryText(t, place)) ?? "")) await put(randomUUID());
    const found = await registryText(t, place);
    atEnd(t, () => put(found));

    assert.equal(await newId(t, account), idOf(`id:${found}`), "as the system has made it");
    const another = "6f3a2b1c-0d4e-4f5a-8b6c-7d8e9fa0b1c2";
    await put(another);
    assert.equal(await newId(t, account), idOf(`id:${another}`), "another one");
    await put("x".repeat(63));
    assert.equal(await newId(t, account), idOf(`id:${"x".repeat(63)}`), "one of 63 characters");
    await put("x".repeat(64));
    assert.equal(await newId(t, account), idOf(`name:${name}`), "one that is too long");
    await changeRegistry(t, "delete", ...place, "/f");
    assert.equal(await newId(t, account), idOf(`name:${name}`), "none");
  });
}
