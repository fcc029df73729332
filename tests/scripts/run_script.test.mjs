// ./run as a person uses it: from the prompt to Ctrl+C.
import assert from "node:assert/strict";
import { spawn, spawnSync } from "node:child_process";
import {
  chmodSync,
  copyFileSync,
  existsSync,
  mkdtempSync,
  readFileSync,
  readdirSync,
  rmSync,
  statSync,
  symlinkSync,
  writeFileSync,
} from "node:fs";
import http from "node:http";
import net from "node:net";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { after, test } from "node:test";
import { fileURLToPath } from "node:url";

import { listen } from "../e2e/harness.mjs";

const root = fileURLToPath(new URL("../..", import.meta.url));
const token = "run-script-test-token-0123456789abcdef";
const program = join(root, "build/native/velmora_control_demo");
const limits = { timeout: 180_000 }; // the first start may have to build
let nextMap = 0;
// Never those of the person who runs the tests.
const commonDrives = mkdtempSync(join(tmpdir(), "velmora-run-"));
after(() => rmSync(commonDrives, { recursive: true, force: true }));

async function freePort() {
  const server = net.createServer();
  const port = await listen(server);
  await new Promise((done) => server.close(done));
  return port;
}

// Starts ./run; `said` grows with what it prints, and `ended` resolves to its exit code. What a failing test leaves
// is ended with it.
async function startRun(t, port, options = [], environment = {}) {
  const map = `Local\\VelmoraRun-${process.pid}-${nextMap++}`;
  const child = spawn("./run", ["--port", String(port), "--token", token, "--control-map", map, ...options], {
    cwd: root,
    env: { ...process.env, VELMORA_MACHINE: "", VELMORA_DRIVES: commonDrives, ...environment },
    stdio: ["ignore", "pipe", "pipe"],
  });
  const run = { child, map, said: "" };
  for (const stream of [child.stdout, child.stderr]) stream.on("data", (bytes) => (run.said += bytes));
  run.ended = new Promise((done) => child.once("close", (code) => done(code)));
  t.after(() => {
    child.kill("SIGKILL");
    for (const pid of processesOf(run).split("\n").filter(Boolean)) process.kill(Number(pid), "SIGKILL");
    if (engineIsThere(run)) process.kill(Number(engineOf(run)), "SIGKILL");
    for (const stream of [child.stdout, child.stderr]) stream.destroy();
  });
  return run;
}

async function until(what, condition, limitMs = 120_000) {
  const begin = Date.now();
  while (!condition()) {
    assert.ok(Date.now() - begin < limitMs, `waited in vain for ${what()}`);
    await new Promise((done) => setTimeout(done, 20));
  }
}

const said = (run, text) =>
  until(
    () => `${JSON.stringify(text)} in ${run.said}`,
    () => run.said.includes(text),
  );

function processesOf(run) {
  return spawnSync("pgrep", ["-f", "--", `--control-map ${run.map.replace("\\", "\\\\")}`], {
    encoding: "utf8",
  }).stdout;
}

// The one that was started last.
const engineOf = (run) => [...run.said.matchAll(/^engine ([0-9]+)$/gm)].at(-1)?.[1];

// The engine does not get the mapping's name, and its id may belong to another program by now.
function engineIsThere(run) {
  const id = engineOf(run);
  try {
    return id !== undefined && readFileSync(`/proc/${id}/cmdline`, "latin1").endsWith("/audiodg.exe\0");
  } catch {
    return false;
  }
}

function assertNothingLeft(run) {
  assert.equal(processesOf(run), "");
  assert.equal(engineIsThere(run), false);
  assert.equal(existsSync(`/dev/shm/${run.map.replace("\\", ".")}`), false);
}

function send(port, method, path, body) {
  return new Promise((done, fail) => {
    const request = http.request(
      {
        host: "127.0.0.1",
        port,
        path,
        method,
        headers: { "x-velmora-token": token, "content-length": body.length },
        agent: false,
      },
      (response) => {
        let text = "";
        response.on("data", (bytes) => (text += bytes));
        response.on("end", () => done(`${response.statusCode} ${text}`));
      },
    );
    request.once("error", fail);
    request.end(body);
  });
}

const putFootstep = (port, body) => send(port, "PUT", "/api/v1/render/effects/footstep", body);

test("a parameter reaches the test effect, and Ctrl+C ends all programs", limits, async (t) => {
  const port = await freePort();
  const run = await startRun(t, port);
  await said(run, "Press Ctrl+C to stop.");
  assert.match(run.said, new RegExp(`Open: http://127\\.0\\.0\\.1:${port}/\\?token=${token}\\n`));
  await postApo(port, '{"attach":true}');
  await said(run, "applied word=0x8000000100000000");
  assert.equal(await putFootstep(port, '{"bypass":false,"enhance_strength":0.5}'), '200 {"ok":true}');
  await said(run, "applied word=0x800000003f000000 bypass=false bypass_all=false strength=0.5\n");
  run.child.kill("SIGINT");
  assert.equal(await run.ended, 0);
  assertNothingLeft(run);
});

test("both programs have the same capture directory, given or not", limits, async (t) => {
  const folder = mkdtempSync(join(tmpdir(), "velmora-run-"));
  t.after(() => rmSync(folder, { recursive: true, force: true }));
  const given = join(folder, "given captures");
  for (const [options, directory] of /** @type {any[][]} */ ([
    [[], join(folder, "drives/c/ProgramData/Velmora/wav")],
    [["--capture-directory", given], given],
    [["--capture-directory", "D:\\captures"], join(folder, "drives/d/captures")],
  ])) {
    const port = await freePort();
    const run = await startRun(t, port, options, { VELMORA_DRIVES: join(folder, "drives") });
    await said(run, "Press Ctrl+C to stop.");
    await postApo(port, '{"attach":true}');
    await said(run, "applied word="); // a command from before the effect's first look would not be new
    await send(port, "POST", "/api/v1/debug/capture", '{"action":"export","seconds":1}');
    await said(run, "capture action=export seconds=1 sequence=1 state=4\n");
    assert.equal(readdirSync(directory).length, 4);
    assert.equal(
      await send(port, "GET", "/api/v1/debug/capture/ready", ""),
      `200 {"ready":true,"bytes":${4 * (44 + 96000)}}`,
    );
    run.child.kill("SIGINT");
    assert.equal(await run.ended, 0);
    assertNothingLeft(run);
  }
});

// What the probes find when they see only this engine.
function probes(t, run, environment) {
  const processes = mkdtempSync(join(tmpdir(), "velmora-run-"));
  t.after(() => rmSync(processes, { recursive: true, force: true }));
  symlinkSync(`/proc/${engineOf(run)}`, join(processes, engineOf(run)));
  const tool = join(root, "build/native/velmora_print_engine");
  const env = { ...process.env, ...environment, VELMORA_PROC: processes };
  const { stdout } = spawnSync(tool, [], { encoding: "utf8", env });
  return Object.fromEntries(
    stdout
      .trimEnd()
      .split("\n")
      .map((line) => line.split(/ (.*)/).slice(0, 2)),
  );
}

const postApo = (port, body) => send(port, "POST", "/api/v1/render/apo", body);

function done(bound, endpoint_id, detail) {
  const restart = {
    audio_restarted: true,
    audio_restart_error: 0,
    audio_restart_detail: "audio stack restarted",
  };
  return `200 ${JSON.stringify({ ok: true, bound, endpoint_id, detail, ...restart })}`;
}

test("the engine has the effect loaded that the built-in machine has installed", limits, async (t) => {
  const drives = join(mkdtempSync(join(tmpdir(), "velmora-run-")), "drives");
  t.after(() => rmSync(join(drives, ".."), { recursive: true, force: true }));
  const environment = { VELMORA_MACHINE: "", VELMORA_DRIVES: drives };
  const folder = join(drives, "c/Program Files/Velmora");
  const files = ["fse.dll", "model_weights.bin", "velmora_windows_apo.dll"];
  let installed;
  for (const round of ["first", "second"]) {
    const port = await freePort();
    const run = await startRun(t, port, [], environment);
    await said(run, "Press Ctrl+C to stop.");
    const endpoint = "{0.0.0.00000000}.{b7decc0c-5d96-4f7f-a65b-eda9cf0c26ef}";
    const moved =
      "endpoint bound; its existing mode effect was moved into the composite chain because the legacy " +
      "slot suppresses it";
    assert.equal(await postApo(port, '{"attach":true}'), done(true, endpoint, moved));
    await said(run, "loaded fse.dll\n");
    assert.deepEqual(readdirSync(folder).sort(), files);
    // An engine that ran beside this start keeps the files that it has loaded.
    const written = files.map((file) => statSync(join(folder, file)).ino);
    assert.deepEqual(written, installed ?? written, round);
    installed = written;
    assert.deepEqual(probes(t, run, environment), {
      elevated: String(process.getuid?.() === 0),
      clsid_registered: "true",
      protected_audio_dg_disabled: "true",
      apo_dll_present: "true",
      algorithm_present: "true",
      apo_dll_path: "C:\\Program Files\\Velmora\\velmora_windows_apo.dll",
      running: "true",
      process_id: engineOf(run),
      apo_loaded: "true",
      algorithm_loaded: "true",
      apo_module_path: join(folder, "velmora_windows_apo.dll"),
      error_code: "0",
      program: join(root, "build/native/programs/engine/audiodg.exe"),
    });
    assert.equal(
      await postApo(port, '{"attach":false}'),
      done(false, endpoint, "endpoint unbound and its original mode effect restored"),
    );
    run.child.kill("SIGINT");
    assert.equal(await run.ended, 0);
    assertNothingLeft(run);
  }
});

test(
  "on the export of a real machine an endpoint is bound and unbound, and nothing is installed",
  limits,
  async (t) => {
    const folder = mkdtempSync(join(tmpdir(), "velmora-run-"));
    t.after(() => rmSync(folder, { recursive: true, force: true }));
    const [original, machine] = [join(root, "tests/machines/laptop.reg"), join(folder, "laptop.reg")];
    copyFileSync(original, machine);
    const environment = { VELMORA_MACHINE: machine, VELMORA_DRIVES: join(folder, "drives") };
    const port = await freePort();
    const run = await startRun(t, port, [], environment);
    await said(run, "Press Ctrl+C to stop.");
    const guid = "{517f1efe-9874-44ab-b8c0-d341131d9da7}";
    const bound = await postApo(port, `{"attach":true,"endpoint_id":"${guid}"}`);
    assert.match(bound, /^200 \{"ok":true,"bound":true,.*"audio_restarted":true,/);
    await said(run, "loaded fse.dll\n");
    const { running, apo_loaded, algorithm_loaded, apo_module_path } = probes(t, run, environment);
    assert.deepEqual(
      { running, apo_loaded, algorithm_loaded, apo_module_path },
      {
        running: "true",
        apo_loaded: "true",
        algorithm_loaded: "true",
        apo_module_path: join(root, "build/native/programs/effect/velmora_windows_apo.dll"),
      },
    );
    assert.ok(
      readFileSync(machine, "utf8").includes(`[HKEY_LOCAL_MACHINE\\SOFTWARE\\Velmora\\DevBinding\\${guid}]`),
    );
    const unbound = await postApo(port, `{"attach":false,"endpoint_id":"${guid}"}`);
    assert.match(unbound, /^200 \{"ok":true,"bound":false,.*"audio_restarted":true,/);
    assert.equal(existsSync(join(folder, "drives")), false);
    run.child.kill("SIGINT");
    assert.equal(await run.ended, 0);
    assertNothingLeft(run);
  },
);

test("a second start builds nothing anew", limits, async (t) => {
  const before = statSync(program).mtimeMs;
  const run = await startRun(t, await freePort());
  await said(run, "Press Ctrl+C to stop.");
  assert.equal(statSync(program).mtimeMs, before);
  run.child.kill("SIGTERM");
  assert.equal(await run.ended, 0);
  assertNothingLeft(run);
});

test("a stop that comes while the programs start ends them too", limits, async (t) => {
  for (let round = 0; round < 5; ++round) {
    const run = await startRun(t, await freePort());
    await until(
      () => "the first words",
      () => run.said !== "",
    ); // of whichever program was first
    run.child.kill("SIGTERM");
    await run.ended;
    assertNothingLeft(run);
  }
});

test("a client that sends nothing does not keep ./run from ending", limits, async (t) => {
  const port = await freePort();
  const run = await startRun(t, port);
  await said(run, "Press Ctrl+C to stop.");
  const idle = net.connect(port, "127.0.0.1");
  idle.on("error", () => {});
  t.after(() => idle.destroy());
  await new Promise((done) => idle.once("connect", done));
  await new Promise((done) => setTimeout(done, 400)); // until the service has taken it
  run.child.kill("SIGINT");
  assert.equal(await run.ended, 128 + 9);
  assertNothingLeft(run);
});

test("a service that cannot start ends ./run with its own exit code", limits, async (t) => {
  const holder = net.createServer();
  t.after(() => holder.close());
  const run = await startRun(t, await listen(holder));
  assert.equal(await run.ended, 9);
  assert.match(run.said, /Another control service is already running on this port\.\n/);
  assertNothingLeft(run);
});

test("without root it names the packages that are missing and does nothing", () => {
  const folder = mkdtempSync(join(tmpdir(), "velmora-run-"));
  chmodSync(folder, 0o755);
  // A machine on which the package system knows nothing, and a person who is not root.
  for (const [name, script] of [
    ["dpkg-query", "exit 1"],
    ["id", "echo 1000"],
    ["apt-get", `touch ${folder}/called`],
  ]) {
    writeFileSync(join(folder, name), `#!/bin/sh\n${script}\n`, { mode: 0o755 });
  }
  const result = spawnSync("./run", [], {
    cwd: root,
    encoding: "utf8",
    env: { ...process.env, PATH: `${folder}:${process.env.PATH}` },
  });
  assert.equal(result.status, 1);
  assert.equal(
    result.stderr,
    "These Debian packages are missing. Install them as root, then start again:\n" +
      "  apt-get install g++ cmake ninja-build libcurl4-openssl-dev esbuild\n",
  );
  assert.equal(existsSync(join(folder, "called")), false);
  rmSync(folder, { recursive: true });
});
