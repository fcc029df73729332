// Prints what Chromium really sends to the service: node benchmarks/browser_heads.mjs BUILD_DIRECTORY
//
// A relay between browser and service records each request of the pages. It exchanges its port for the service's in
// what it passes on, so that the service admits the requests. benchmarks/browser_requests.mjs keeps the result.
import net from "node:net";
import path from "node:path";

import { chromium } from "playwright-core";

import { footstepBody, footstepPath } from "./browser_requests.mjs";
import { portOf, startPlainly, token } from "./plain_service.mjs";

const build = path.resolve(process.argv[2] ?? "build/native");

/**
 * Starts a relay to a port of this machine on a port with the same number of digits.
 * @param {number} port
 * @param {string[]} recorded receives the first bytes of each connection
 * @returns {Promise<net.Server>}
 */
function startRelay(port, recorded) {
  const relay = net.createServer((client) => {
    const service = net.connect(port, "127.0.0.1");
    client.once("data", (bytes) => recorded.push(bytes.toString("latin1")));
    client.on("data", (bytes) =>
      service.write(bytes.toString("latin1").replaceAll(`:${portOf(relay)}`, `:${port}`), "latin1"),
    );
    service.pipe(client);
    for (const socket of [client, service]) socket.on("error", () => socket.destroy());
    service.on("close", () => client.destroy());
    client.on("close", () => service.destroy());
  });
  return new Promise((resolve) => relay.listen(0, "127.0.0.1", () => resolve(relay)));
}

const service = await startPlainly(path.join(build, "velmora_control_demo"), path.join(build, "web"));
/** @type {string[]} */
const recorded = [];
const relay = await startRelay(service.port, recorded);
const relayPort = portOf(relay);
const browser = await chromium.launch({
  executablePath: process.env.CHROMIUM ?? "/usr/bin/chromium",
  args: ["--headless", "--no-sandbox", "--disable-gpu", "--no-first-run", "--disable-background-networking"],
});
const page = await browser.newPage();
await page.goto(`http://127.0.0.1:${relayPort}/?token=${token}`);
// As web/src/app/client.js sends it.
await page.evaluate(
  ([target, body, value]) =>
    fetch(target, { method: "PUT", headers: { "x-velmora-token": value }, body, cache: "no-store" }),
  [footstepPath, footstepBody, token],
);
await browser.close();
relay.close();
await service.stop();

const seen = new Set();
for (const request of recorded) {
  const line = request.slice(0, request.indexOf("\r\n"));
  if (seen.has(line)) continue;
  seen.add(line);
  console.log(`${request.replaceAll(`:${relayPort}`, ":PORT").replaceAll(token, "TOKEN")}\n----`);
}
