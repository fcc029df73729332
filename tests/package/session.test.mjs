// The archive as a person uses it, under Wine: unpacked into a folder with an unusual name in a fresh prefix, started,
// looked at, stopped. The steps are those of README.txt.
//
// Wine's tokens all count as elevated, so start.cmd neither asks for an administrator nor opens the browser by itself.
// Wine cannot make the mapping (tests/e2e/harness.mjs says why), so the test effect makes it first, as an effect that
// has run does.
import assert from "node:assert/strict";
import { execFileSync, spawnSync } from "node:child_process";
import fs from "node:fs";
import net from "node:net";
import { join } from "node:path";
import { after, before, test } from "node:test";

import {
  archiveName,
  filesBelow,
  makeDirectory,
  makePackage,
  root,
  sha256,
  unpack,
  version,
} from "./package.mjs";

process.env.VELMORA_TARGET = "wine";
process.env.VELMORA_BUILD = join(root, "build/windows");
process.env.WINEPREFIX = makeDirectory("prefix");
process.env.WINEDLLOVERRIDES = "mscoree,mshtml=";
process.env.DISPLAY = "";
process.env.LC_ALL = "C.UTF-8"; // Wine writes file names in the locale's encoding
const { launch, launchUntil, listen, poll, run, startEffect, uniqueMappingName } =
  await import("../e2e/harness.mjs");

/** @typedef {import("../e2e/harness.mjs").Scope} Scope */
/** @typedef {import("../e2e/harness.mjs").Program} Program */

const drive = join(process.env.WINEPREFIX, "drive_c");
const limits = { timeout: 180_000 };
const startMs = 60_000;
// Exit codes of the command line.
const [done, badCommandLine, noRecord, notRunning, alreadyThere, noProgram] = [0, 2, 5, 20, 26, 27];

/** @type {string} */
let home;
before(
  () => {
    const created = spawnSync("wineboot", ["--init"], { encoding: "utf8", timeout: 300_000 });
    assert.equal(created.status, 0, created.stderr);
    spawnSync("wineserver", ["--wait"], { timeout: 60_000 });
    const folder = join(drive, "新建文件夹 (2) & Co! 100 €");
    fs.mkdirSync(folder);
    home = unpack(join(makePackage(), archiveName), folder);
  },
  { timeout: 600_000 },
);
after(() => spawnSync("wineserver", ["--kill"], { timeout: 60_000 }));

/**
 * Runs a command line in the archive's folder, as the command interpreter does after a double click.
 * @param {Scope} t @param {string[]} command @param {Record<string, string>} [env]
 */
const runHere = (t, command, env = {}) => run(t, "cmd", ["/c", ...command], { cwd: home, env });

/**
 * Double-clicks start.cmd and waits for the address.
 * @param {Scope} t @param {string[]} [options]
 */
async function start(t, options = []) {
  const banner =
    /^ {2}Open: http:\/\/127\.0\.0\.1:(\d+)\/\?token=(\S+)\r?\n(?:.*\n)*? {2}Press Ctrl\+C to stop\.\r?\n/m;
  const command = ["/c", ".\\start.cmd", ...options];
  const find = (output) => banner.exec(output) ?? undefined;
  const [program, found] = await launchUntil(t, "cmd", command, { cwd: home }, "the banner", find);
  const [, port, token] = found;
  return { program, port: Number(port), token, address: `http://127.0.0.1:${port}` };
}

/** Ends it by stop.cmd. @param {Scope} t @param {Program} program */
async function stop(t, program) {
  const stopped = await runHere(t, [".\\stop.cmd"]);
  assert.equal(stopped.code, done, JSON.stringify(stopped));
  assert.deepEqual(await program.waitForEnd(), { code: done, signal: null }, program.said());
  return stopped;
}

/** The files of the command line in this user's folder. */
function runFiles() {
  const users = join(drive, "users");
  return filesBelow(users).filter((name) => /\/Velmora\/Control\//.test(name));
}

/** Puts a browser on the path, which leaves the address that it gets in a file. */
function makeBrowser() {
  const directory = makeDirectory();
  const seen = join(directory, "seen");
  const script = `#!/bin/sh\nprintf '%s\\n' "$@" > '${seen}.part'\nmv '${seen}.part' '${seen}'\n`;
  fs.writeFileSync(join(directory, "xdg-open"), script, { mode: 0o755 });
  const opened = () =>
    poll("the browser", () => (fs.existsSync(seen) ? fs.readFileSync(seen, "utf8") : undefined), startMs);
  return { env: { PATH: `${directory}:${process.env.PATH}` }, opened };
}

/** Whether anybody listens on the port. @param {number} port */
const isOpen = (port) =>
  new Promise((resolve) => {
    const socket = net.connect(port, "127.0.0.1");
    socket.once("connect", () => resolve(socket.destroy() && true));
    socket.once("error", () => resolve(false));
  });

test("from unzip to stop, by the readme", limits, async (t) => {
  const checksums = fs.readFileSync(join(home, "SHA256SUMS"), "utf8");
  await startEffect(t, "Global\\VelmoraControlV1");
  const { program, port, token, address } = await start(t);
  assert.match(program.output, /^This window runs Velmora\./);
  assert.match(program.output, /stop\.cmd/);
  assert(port >= 17831 && port <= 17850, `port ${port}`);

  // The page is that of the archive, over a real socket.
  const page = await (await fetch(`${address}/?token=${token}`)).text();
  const [before_, after_] = fs
    .readFileSync(join(home, "web/index.html"), "utf8")
    .split("__VELMORA_UI_STAMP__");
  assert(page.startsWith(before_) && page.endsWith(after_), page);
  const script = Buffer.from(await (await fetch(`${address}/velmora-eq.js`)).arrayBuffer());
  assert.equal(sha256(script), sha256(fs.readFileSync(join(home, "web/velmora-eq.js"))));
  assert.equal((await fetch(`${address}/api/v1/status`)).status, 401);
  const answer = await fetch(`${address}/api/v1/status`, { headers: { "x-velmora-token": token } });
  assert.equal(answer.status, 200);
  const document = await answer.json();

  // The command line finds the service without being given anything.
  const status = await runHere(t, ["velmora.exe", "status"]);
  assert.equal(status.code, done, JSON.stringify(status));
  assert(status.output.startsWith(`Velmora ${version} at ${address}`), status.output);
  const all = await runHere(t, ["velmora.exe", "status", "--json"]);
  assert.equal(all.code, done, all.errors);
  assert.deepEqual(Object.keys(JSON.parse(all.output).status), Object.keys(document));
  assert(!`${status.output}${all.output}`.includes(token), "the token stays where it is");

  const wantedAddress = `${address}/?token=${token}\n`;
  for (const command of [["velmora.exe", "open"], [".\\start.cmd"]]) {
    const browser = makeBrowser();
    const opened = await runHere(t, command, browser.env);
    assert.equal(opened.code, done, JSON.stringify(opened));
    assert.equal(await browser.opened(), wantedAddress);
  }
  assert.equal(program.end, undefined, "a second start.cmd starts nothing and ends nothing");
  assert.deepEqual(
    runFiles().map((name) => name.replace(/^.*\//, "")),
    ["run.json"],
  );

  await stop(t, program);
  assert.equal(await isOpen(port), false);
  assert.deepEqual(runFiles(), []);

  const again = await runHere(t, [".\\stop.cmd"]);
  assert.equal(again.code, notRunning, JSON.stringify(again));
  assert.equal((await runHere(t, ["velmora.exe", "status"])).code, notRunning);
  assert.equal((await runHere(t, ["velmora.exe", "open"])).code, notRunning);

  // Nothing was written into the archive's folder, and nothing in it was changed.
  execFileSync("sha256sum", ["--strict", "--quiet", "--check", "SHA256SUMS"], { cwd: home });
  assert.deepEqual(
    filesBelow(home),
    [...checksums.matchAll(/^\S+ {2}(.+)$/gm)]
      .map(([, name]) => name)
      .concat("SHA256SUMS")
      .sort(),
  );
});

test("another program on the first port: the next one", limits, async (t) => {
  const other = net.createServer((socket) => {
    socket.on("error", () => {}); // whoever asks may leave at any time
    socket.end("HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n");
  });
  // Somebody else may have it already, which is as good.
  await listen(other, 17831).catch(() => {});
  t.after(() => other.close());
  const mapping = uniqueMappingName();
  await startEffect(t, mapping);
  const { program, port } = await start(t, ["--control-map", mapping]);
  assert(port > 17831 && port <= 17850, `port ${port}`);
  await stop(t, program);
  assert.equal(await isOpen(17831), true, "the other program still runs");
});

test("a service that start.cmd did not start keeps the port and is left alone", limits, async (t) => {
  const mapping = uniqueMappingName();
  await startEffect(t, mapping);
  const other = launch(
    t,
    join(home, "velmora_control_demo.exe"),
    ["--port", "17849", "--web-root", "web", "--control-map", mapping],
    { cwd: home },
  );
  await other.until("its banner", () => (other.output.includes("Press Ctrl+C") ? true : undefined), startMs);
  const refused = await runHere(t, [".\\start.cmd", "--port", "17849", "--control-map", mapping]);
  assert.equal(refused.code, alreadyThere, JSON.stringify(refused));
  assert.match(refused.errors, /^[A-Z][^\n]*\.\r?\n$/);
  assert.equal(other.end, undefined);
  assert.deepEqual(runFiles(), []);
});

test("the exit code of the service comes through start.cmd", limits, async (t) => {
  // No effect has made this record, and Wine cannot.
  const refused = await runHere(t, [".\\start.cmd", "--control-map", uniqueMappingName()]);
  assert.equal(refused.code, noRecord, JSON.stringify(refused));
  const bad = await runHere(t, [".\\start.cmd", "--nonsense"]);
  assert.equal(bad.code, badCommandLine, JSON.stringify(bad));
  assert.deepEqual(runFiles(), []);
});

test("an argument with blanks and signs reaches the service unchanged", limits, async (t) => {
  const mapping = uniqueMappingName();
  await startEffect(t, mapping);
  const pages = "my pages & more! 页面";
  fs.cpSync(join(home, "web"), join(drive, pages), { recursive: true });
  fs.writeFileSync(join(drive, pages, "index.html"), "my own page\n");
  const { program, address } = await start(t, ["--control-map", mapping, "--web-root", `C:\\${pages}`]);
  assert.equal(await (await fetch(address)).text(), "my own page\n");
  await stop(t, program);
});

for (const name of [
  "with blanks",
  "a & b",
  "wow!now!",
  "文件 夹",
  "Überraschung (1)",
  "caret^caret",
  "semi;colon, comma=equals",
  "apostrophe's",
]) {
  test(`the scripts find their program in the folder "${name}"`, limits, async (t) => {
    const folder = join(drive, name);
    fs.cpSync(home, folder, { recursive: true });
    // An interpreter that expands names between exclamation marks, as a setting of Windows makes all of them.
    const interpreter = ["/v:on", "/c"];
    const help = await run(t, "cmd", [...interpreter, ".\\start.cmd", "--help"], { cwd: folder });
    assert.equal(help.code, done, JSON.stringify(help));
    assert.match(help.output, /velmora start/);
    const nothing = await run(t, "cmd", [...interpreter, ".\\stop.cmd"], { cwd: folder });
    assert.equal(nothing.code, notRunning, JSON.stringify(nothing));
    // By its whole path from elsewhere: the current folder plays no part. `call` would double the caret.
    if (name.includes("^")) return;
    const path = `C:\\${name}\\start.cmd`;
    const far = await run(t, "cmd", ["/c", "call", path, "--help"], { cwd: drive });
    assert.equal(far.code, done, JSON.stringify(far));
  });
}

for (const name of ["start.cmd", "stop.cmd"]) {
  test(`${name}, opened inside an archive that was not extracted`, limits, async (t) => {
    const folder = makeDirectory();
    fs.copyFileSync(join(home, name), join(folder, name));
    const { code, output } = await run(t, "cmd", ["/c", `.\\${name}`], { cwd: folder });
    assert.equal(code, noProgram);
    assert.match(output, /^velmora\.exe is not in this folder\. Extract the whole archive, then open /);
  });
}
