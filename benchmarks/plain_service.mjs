// Starts the service for a benchmark: one program, one port, one token, an environment that is the same everywhere.
import { spawn } from "node:child_process";
import fs from "node:fs";
import net from "node:net";
import os from "node:os";
import path from "node:path";

export const token = "0123456789abcdef0123456789abcdef0123456789abcdef";
const startLimitMs = 60_000;
const pauseMs = 5;

/** @param {net.Server} server a listening one */
export const portOf = (server) => /** @type {net.AddressInfo} */ (server.address()).port;

/** @param {number} ms @returns {Promise<void>} */
export const pause = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

/** @returns {Promise<number>} a free port of five digits, so that requests have one length */
async function freePort() {
  for (;;) {
    const server = net.createServer();
    await new Promise((resolve) => server.listen(0, "127.0.0.1", () => resolve(undefined)));
    const port = portOf(server);
    await new Promise((resolve) => server.close(resolve));
    if (port >= 10_000) return port;
  }
}

/**
 * Sends one request and reads until the service closes the connection.
 * @param {number} port
 * @param {string} bytes
 * @returns {Promise<string>} the answer, byte by byte; rejects if nobody listens
 */
export const exchange = (port, bytes) =>
  new Promise((resolve, reject) => {
    let answer = "";
    const socket = net.connect(port, "127.0.0.1", () => socket.write(bytes, "latin1"));
    socket.setEncoding("latin1");
    socket.on("error", reject);
    socket.on("data", (text) => (answer += text));
    socket.on("close", () => resolve(answer));
  });

/**
 * Starts the service and waits until it answers.
 * @param {string} program
 * @param {string} webRoot
 * @param {string[]} [wrapper] a command that starts the program that follows it
 * @returns {Promise<{ port: number, stop: () => Promise<void> }>}
 */
export async function startPlainly(program, webRoot, wrapper = []) {
  const port = await freePort();
  const empty = fs.mkdtempSync(path.join(os.tmpdir(), "velmora-bench-"));
  const command = [...wrapper, program, "--port", `${port}`, "--token", token, "--web-root", webRoot];
  command.push("--control-map", `Local\\VelmoraBench${port}`);
  // A fixed environment, because the loader reads every variable. Without processes the status document has the same
  // length everywhere.
  const child = spawn(command[0], command.slice(1), {
    env: { PATH: "/usr/bin:/bin", VELMORA_PROC: empty },
    stdio: ["ignore", "ignore", "inherit"],
  });
  const ended = new Promise((resolve) => child.on("exit", resolve));
  const stop = async () => {
    child.kill("SIGTERM");
    await ended;
    fs.rmSync(empty, { recursive: true });
  };
  const limit = Date.now() + startLimitMs;
  for (;;) {
    const answers = await exchange(port, "GET / HTTP/1.1\r\n\r\n").catch(() => "");
    if (answers !== "") return { port, stop };
    if (Date.now() > limit || child.exitCode !== null) {
      await stop();
      throw new Error(`${program} does not answer on port ${port}`);
    }
    await pause(pauseMs);
  }
}
