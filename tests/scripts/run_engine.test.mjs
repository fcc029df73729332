// The road from "add" to "works" that ./run offers: the engine restarts with the audio service, and sound plays where
// the machine says.
import assert from "node:assert/strict";
import { spawn, spawnSync } from "node:child_process";
import { copyFileSync, existsSync, mkdtempSync, readFileSync, rmSync } from "node:fs";
import net from "node:net";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { after, test } from "node:test";
import { fileURLToPath } from "node:url";

const root = fileURLToPath(new URL("../..", import.meta.url));
const token = "run-engine-test-token-0123456789abcdef";
const limits = { timeout: 180_000 };
const speakers = "{0.0.0.00000000}.{b7decc0c-5d96-4f7f-a65b-eda9cf0c26ef}";
const headphones = "{0.0.0.00000000}.{b37523a5-3b4a-4ee2-a463-513755ac0ecd}";
const player = join(root, "build/native/velmora_test_supervisor");
// Never those of the person who runs the tests.
const drives = mkdtempSync(join(tmpdir(), "velmora-run-"));
after(() => rmSync(drives, { recursive: true, force: true }));
let runs = 0;

async function freePort() {
  const server = net.createServer().listen(0, "127.0.0.1");
  await new Promise((done) => server.once("listening", done));
  const { port } = /** @type {net.AddressInfo} */ (server.address());
  await new Promise((done) => server.close(done));
  return port;
}

// Asks until `ask` gives something other than undefined.
async function poll(what, ask, limitMs = 60_000) {
  const begin = Date.now();
  for (;;) {
    const answer = await ask();
    if (answer !== undefined) return answer;
    assert.ok(Date.now() - begin < limitMs, `waited in vain for ${what}`);
    await new Promise((done) => setTimeout(done, 20));
  }
}

class Run {
  port = 0;
  map = "";
  /** What the programs have written so far. */
  said = "";
  machine = "";
  /** @type {any} */
  child = undefined;
  /** @type {Promise<number | null>} */
  ended = Promise.resolve(null);

  static async start(t, options = [], environment = {}) {
    const run = new Run();
    run.port = await freePort();
    run.map = `Local\\VelmoraRunEngine-${process.pid}-${runs++}`;
    const own = ["--port", String(run.port), "--token", token, "--control-map", run.map];
    run.child = spawn("./run", [...own, ...options], {
      cwd: root,
      env: { ...process.env, VELMORA_MACHINE: "", VELMORA_DRIVES: drives, ...environment },
      stdio: ["ignore", "pipe", "pipe"],
    });
    for (const stream of [run.child.stdout, run.child.stderr]) {
      stream.setEncoding("latin1").on("data", (text) => (run.said += text));
    }
    run.ended = new Promise((done) => run.child.once("close", (code) => done(code)));
    t.after(async () => {
      // A test that failed: ./run ends all of its programs.
      if (run.child.exitCode === null) run.child.kill("SIGTERM");
      await run.ended;
    });
    await run.until(/Press Ctrl\+C to stop\./);
    run.machine = (await run.until(/^Sound: VELMORA_MACHINE='([^']+)'/m))[1];
    await run.until(/^engine [0-9]+$/m);
    return run;
  }

  until(form) {
    const ended = () => assert.equal(this.child.exitCode, null, this.said);
    return poll(`${form} in ${this.said}`, () => this.said.match(form) ?? ended());
  }

  async fetch(path, options = {}) {
    const response = await fetch(`http://127.0.0.1:${this.port}${path}`, {
      headers: { "X-Velmora-Token": token, connection: "close" },
      ...options,
    });
    assert.equal(response.status, 200);
    return response.json();
  }

  status() {
    return this.fetch("/api/v1/status");
  }

  // What the pages look at.
  async look() {
    const { audio_engine: engine, apo_diagnostics: effect } = await this.status();
    return {
      id: engine.process_id,
      loaded: engine.apo_loaded && engine.algorithm_loaded,
      blocks: effect.total_processed_blocks,
      initialized: effect.initialize_count,
      locked: effect.lock_count,
    };
  }

  // The peak and the playing programs of each render endpoint.
  async sound() {
    const { render } = await this.fetch("/api/v1/devices");
    return Object.fromEntries(render.map(({ id, peak, sessions }) => [id, { peak, sessions }]));
  }

  async attach(attach, endpoint = speakers) {
    const body = JSON.stringify({ attach, endpoint_id: endpoint });
    const answer = await this.fetch("/api/v1/render/apo", { method: "POST", body });
    assert.equal(answer.audio_restarted, true);
  }

  play(choice) {
    const tool = join(root, "build/native/velmora_machine");
    return spawnSync(tool, ["play", choice], {
      encoding: "utf8",
      env: { ...process.env, VELMORA_MACHINE: this.machine },
    });
  }

  // Waits until sound plays on this endpoint only (none: nowhere), by the player only and with a moving peak. Until
  // the player takes over, the built-in machine has a sound of its own.
  async untilPlaying(endpoint) {
    const first = await poll(`sound on ${endpoint}`, async () => {
      const sound = await this.sound();
      const playing = Object.keys(sound).filter((id) => sound[id].peak > 0 || sound[id].sessions.length > 0);
      if (endpoint === undefined) return playing.length === 0 ? sound : undefined;
      return playing.join() === endpoint && sound[endpoint].sessions.join() === player ? sound : undefined;
    });
    if (endpoint === undefined) return;
    await poll("a peak that moves", async () => {
      const { peak } = (await this.sound())[endpoint];
      assert.ok(peak > 0 && peak <= 1, String(peak));
      return peak === first[endpoint].peak ? undefined : true;
    });
  }

  // Waits until blocks have gone through the effect.
  async untilBlocksMove() {
    const { blocks } = await this.look();
    await poll("blocks that move", async () => ((await this.look()).blocks > blocks ? true : undefined));
  }

  // Waits until none has for some looks in a row: sound may have been on its way.
  async untilBlocksRest() {
    let last;
    let same = 0;
    await poll("blocks that rest", async () => {
      const { blocks } = await this.look();
      same = blocks === last ? same + 1 : 0;
      last = blocks;
      return same === 15 ? true : undefined;
    });
  }

  async stop() {
    const engine = (await this.look()).id;
    const scratch = this.machine.replace(/\/[^/]*$/, "");
    this.child.kill("SIGINT");
    assert.equal(await this.ended, 0, this.said);
    assert.equal(existsSync(`/proc/${engine}`), false);
    const left = spawnSync("pgrep", ["-f", "--", scratch], { encoding: "utf8" }).stdout;
    assert.equal(left, "");
    if (scratch.includes("/velmora-run.")) assert.equal(existsSync(scratch), false);
  }
}

test("from adding the effect to hearing it, and back", limits, async (t) => {
  const run = await Run.start(t);
  await run.untilPlaying(speakers);
  const before = await run.look();
  assert.deepEqual({ ...before, id: 0 }, { id: 0, loaded: false, blocks: 0, initialized: 0, locked: 0 });

  await run.attach(true);
  const added = await poll("an engine with the effect", async () => {
    const now = await run.look();
    return now.loaded && now.locked > 0 ? now : undefined;
  });
  assert.notEqual(added.id, before.id);
  assert.equal(existsSync(`/proc/${before.id}`), false);
  assert.equal(added.initialized, 2); // the discovery, and for use
  await run.untilBlocksMove();
  await run.untilPlaying(speakers);
  await run.fetch("/api/v1/render/effects/footstep", {
    method: "PUT",
    body: '{"bypass":false,"enhance_strength":0.5}',
  });
  await poll("the applied word", async () => {
    const { apo_diagnostics: effect } = await run.status();
    return effect.applied_valid && effect.applied_strength === 0.5 ? true : undefined;
  });

  assert.equal(run.play("Headphones").status, 0);
  await run.untilPlaying(headphones);
  await run.untilBlocksRest();
  assert.equal(run.play("none").status, 0);
  await run.untilPlaying(undefined);
  await run.untilBlocksRest();
  assert.equal((await run.look()).id, added.id);
  assert.equal(run.play("default").status, 0);
  await run.untilPlaying(speakers);
  await run.untilBlocksMove();

  await run.attach(false);
  const removed = await poll("an engine without the effect", async () => {
    const now = await run.look();
    return now.id !== 0 && now.id !== added.id && !now.loaded ? now : undefined;
  });
  await run.untilBlocksRest();
  assert.equal((await run.look()).locked, 1);
  assert.equal((await run.look()).id, removed.id);
  await run.stop();
});

test("an engine that is kept sees the new chain no earlier than at the next start", limits, async (t) => {
  const run = await Run.start(t, ["--keep-engine"]);
  await run.untilPlaying(speakers);
  const before = await run.look();
  await run.attach(true);
  // Sound plays on, so the supervisor has gone its rounds.
  for (const [choice, endpoint] of [
    ["none", undefined],
    ["default", speakers],
  ]) {
    assert.equal(run.play(choice).status, 0);
    await run.untilPlaying(endpoint);
  }
  assert.deepEqual(await run.look(), before);
  await run.stop();
});

test("sound plays from the start where --play says", limits, async (t) => {
  const quiet = await Run.start(t, ["--play", "none"]);
  await quiet.untilPlaying(undefined);
  await quiet.attach(true);
  await poll("an engine with the effect", async () => ((await quiet.look()).locked > 0 ? true : undefined));
  await quiet.untilBlocksRest();
  assert.equal((await quiet.look()).blocks, 0);
  await quiet.stop();
  const other = await Run.start(t, ["--play", "headphones"]);
  await other.untilPlaying(headphones);
  await other.stop();
});

test("a device that is not there is refused, and sound stays where it is", limits, async (t) => {
  const run = await Run.start(t);
  const { status, stderr } = run.play("Gramophone");
  assert.deepEqual([status, stderr], [1, "No active device is called Gramophone.\n"]);
  await run.untilPlaying(speakers);
  await run.stop();
  const refused = spawnSync("./run", ["--play", "Gramophone"], {
    cwd: root,
    encoding: "utf8",
    env: { ...process.env, VELMORA_MACHINE: "", VELMORA_DRIVES: drives },
  });
  assert.deepEqual([refused.status, refused.stderr], [2, "No active device is called Gramophone.\n"]);
});

test("the machine of a file is left as it is without --play", limits, async (t) => {
  const folder = mkdtempSync(join(tmpdir(), "velmora-run-"));
  t.after(() => rmSync(folder, { recursive: true, force: true }));
  const [original, machine] = [join(root, "tests/machines/laptop.reg"), join(folder, "laptop.reg")];
  copyFileSync(original, machine);
  const run = await Run.start(t, [], { VELMORA_MACHINE: machine });
  assert.equal(run.machine, machine);
  await run.look();
  await run.stop();
  assert.deepEqual(readFileSync(machine), readFileSync(original));
});
