// The four pages: as they stood on disk at the start, stamped where they say so, to everyone who is local.
import assert from "node:assert/strict";
import fs from "node:fs";
import path from "node:path";
import test from "node:test";

import { answerBytes, answers, isNative, makeWebRoot, sleep, startService } from "./harness.mjs";

const mark = "__VELMORA_UI_STAMP__";
const html = "text/html; charset=utf-8";
const script = "text/javascript; charset=utf-8";
const stampForm = /[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}/;

const everyByte = Buffer.from(Array.from({ length: 256 }, (_, index) => index));
const pages = {
  "index.html": `<p>${mark}</p>\r\n${mark}${mark}\n__VELMORA_UI_STAMP_${mark}_\n`,
  "advanced.html": `${mark}`,
  // More than the sockets on both sides hold.
  "velmora-eq.js": Buffer.concat([Buffer.alloc(20_000_000, "eq; "), Buffer.from(mark), everyByte]),
  "help.html": Buffer.concat([everyByte, Buffer.from(mark), Buffer.from([13, 10, 26, 0])]),
};

function pageAnswer(contentType, body) {
  return answerBytes(200, "OK", contentType, Buffer.from(body).toString("latin1"));
}

function stampSeconds(text) {
  const [date, time] = text.split(" ");
  return new Date(`${date}T${time}`).getTime() / 1000;
}

test("the pages are served", { timeout: 60_000 }, async (t) => {
  const webRoot = makeWebRoot(pages, "wéb röot 試");
  const before = Math.floor(Date.now() / 1000);
  const service = await startService(t, { webRoot });
  const after = Math.ceil(Date.now() / 1000);
  const get = (target, more = {}) => service.exchange(service.requestBytes({ target, ...more }));

  const advanced = (await get("/advanced.html")).split("\r\n\r\n")[1];
  const [stamp] = stampForm.exec(advanced) ?? [""];

  await t.test("the stamp is the local time of the start", () => {
    assert.equal(advanced, stamp);
    assert.ok(stampSeconds(stamp) >= before && stampSeconds(stamp) <= after, stamp);
  });

  const index = pageAnswer(html, pages["index.html"].replaceAll(mark, stamp));
  const table = [
    ["/", index],
    ["/index.html", index],
    ["/advanced.html", pageAnswer(html, stamp)],
    ["/velmora-eq.js", pageAnswer(script, pages["velmora-eq.js"])],
    ["/help.html", pageAnswer(html, pages["help.html"])],
    ["/?token=anything", index],
    ["/?", index],
    ["/index.html?a=b?c#d", index],
    ["/help.html?", pageAnswer(html, pages["help.html"])],
  ];
  for (const [target, expected] of table) {
    await t.test(`GET ${target} is served whole, with every header`, async () => {
      const received = await get(target);
      // A difference in twenty megabytes is better shown by its place than printed.
      if (expected.length > 100_000) {
        assert.equal(received.length, expected.length);
        assert.ok(received === expected, "every byte is the same");
      } else {
        assert.equal(received, expected);
      }
    });
  }

  await t.test("a wrong token does not matter to a page", async () => {
    assert.equal(await get("/", { headers: [["X-Velmora-Token", "wrong"]] }), index);
  });

  const refused = [
    ["GET", "/index.html#top"],
    ["GET", "/#"],
    ["GET", "/INDEX.HTML"],
    ["GET", "//"],
    ["GET", "/index.html/"],
    ["GET", "/%69ndex.html"],
    ["GET", "/./index.html"],
    ["GET", "/favicon.ico"],
    ["GET", "/../etc/passwd"],
    ["GET", "index.html"],
    ["GET", "*"],
    ["GET", "?"],
    ["GET", "/api"],
    ["GET", "/api?"],
    ["GET", "http://127.0.0.1/index.html"],
    ["get", "/"],
    ["HEAD", "/"],
    ["HEAD", "/help.html"],
    ["POST", "/"],
    ["PUT", "/index.html"],
    ["DELETE", "/velmora-eq.js"],
    ["OPTIONS", "*"],
  ];
  for (const [method, target] of refused) {
    await t.test(`${method} ${target} is not found, without any token`, async () => {
      assert.equal(await get(target, { method }), answers.notFound);
    });
  }

  for (const leave of ["leave", "reset"]) {
    await t.test(`a client goes by ${leave} in the middle of an unread answer`, async () => {
      const held = await service.connect({ reads: false });
      await held.send(service.requestBytes({ target: "/velmora-eq.js" }));
      // The answer is larger than what the sockets hold: the service waits in its send until the client goes.
      const next = await service.connect();
      next.push(service.requestBytes());
      assert.ok(await next.isSilentFor(300), "the service is blocked in its send");
      held[leave]();
      assert.equal((await next.answer()).bytes, index);
      assert.equal(await get("/"), index);
    });
  }

  // Wine 8 never ends a send that has begun behind the end of a peer that is gone by then. Answers that the socket
  // takes whole are no matter, and go through this elsewhere on both systems.
  if (isNative) {
    await t.test("a client that leaves before a long answer costs nothing", async () => {
      for (const leave of ["leave", "reset", "leave", "reset"]) {
        const client = await service.connect({ reads: false });
        await client.send(service.requestBytes({ target: "/velmora-eq.js" }));
        client[leave]();
        assert.equal(await get("/"), index);
      }
    });
  }

  await t.test("a file that changes or goes shows only after a new start", async () => {
    fs.writeFileSync(path.join(webRoot, "index.html"), "changed");
    fs.rmSync(path.join(webRoot, "help.html"));
    assert.equal(await get("/"), index);
    assert.equal(await get("/help.html"), pageAnswer(html, pages["help.html"]));
  });
  await service.stop();

  await t.test("a new start shows the change", async (row) => {
    fs.writeFileSync(path.join(webRoot, "help.html"), "new");
    const again = await startService(row, { webRoot });
    const fresh = (target) => again.exchange(again.requestBytes({ target }));
    assert.equal(await fresh("/"), pageAnswer(html, "changed"));
    assert.equal(await fresh("/help.html"), pageAnswer(html, "new"));
  });
});

test("a stop lets a blocked answer run to its end", { timeout: 60_000 }, async (t) => {
  const service = await startService(t, { webRoot: makeWebRoot(pages) });
  const client = await service.connect({ reads: false });
  await client.send(service.requestBytes({ target: "/velmora-eq.js" }));
  const next = await service.connect();
  next.push(service.requestBytes());
  assert.ok(await next.isSilentFor(300), "the service is blocked in its send");
  next.leave();
  for (let round = 0; round < 2; ++round) {
    service.signal("SIGINT");
    await sleep(100);
  }
  assert.equal(service.end, undefined, "it runs on while the answer is not taken");

  client.startReading();
  const { bytes, reset } = await client.answer();
  const expected = pageAnswer(script, pages["velmora-eq.js"]);
  assert.equal(reset, false);
  assert.equal(bytes.length, expected.length);
  assert.ok(bytes === expected, "every byte is the same");
  assert.deepEqual(await service.waitForEnd(), { code: 0, signal: null });
  assert.equal(service.errors, "");
});
