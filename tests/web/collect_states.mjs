// Collects the documents that the verdict's table is made of: it starts the native program with its test programs on
// machines of its own, lets them do what a row needs, and keeps the answers in tests/web/states/NAME.json. Run it again
// when the documents change: `node tests/web/collect_states.mjs [NAME...]`, VELMORA_BUILD being the build's directory.
import { spawn } from "node:child_process";
import fs from "node:fs";
import os from "node:os";
import path from "node:path";
import { fileURLToPath } from "node:url";

const top = fileURLToPath(new URL("../..", import.meta.url));
const build = path.resolve(process.env.VELMORA_BUILD ?? path.join(top, "build/native"));
const states = path.join(top, "tests/web/states");
const web = path.join(build, "web");
const token = "0123456789abcdef0123456789abcdef";
const betweenLooksMs = 250;

const software = "HKEY_LOCAL_MACHINE\\SOFTWARE";
const machineKey = `${software}\\VelmoraStandIn`;
const audio = `${software}\\Microsoft\\Windows\\CurrentVersion\\MMDevices\\Audio`;
const services = "HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services";
const effectClass = "{631D9145-CACF-44D7-861B-5D82ADD8C84F}";
const friendlyName = "{a45c254e-df1c-4efd-8020-67d146a850e0},14";
const effectChain = "{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},14";

// ---- machines ----

/** @param {string} value */
const text = (value) => `"${value.replaceAll("\\", "\\\\").replaceAll('"', '\\"')}"`;
/** @param {number} value */
const number = (value) => `dword:${value.toString(16).padStart(8, "0")}`;
/** @param {string[]} entries */
const list = (entries) => {
  const bytes = Buffer.from(`${entries.map((entry) => `${entry}\0`).join("")}\0`, "utf16le");
  return `hex(7):${[...bytes].map((byte) => byte.toString(16).padStart(2, "0")).join(",")}`;
};
/** @param {number} digit */
const guidOf = (digit) => `{${String(digit).repeat(8)}-1111-4222-8333-444444444444}`;
/** @param {number} digit */
const idOf = (digit, flow = 0) => `{0.0.${flow}.00000000}.${guidOf(digit)}`;

const speakers = { digit: 1, name: "Speakers (High Definition Audio)", bound: true };
const headphones = { digit: 2, name: "Headphones (High Definition Audio)" };
const microphone = { digit: 3, name: "Microphone (High Definition Audio)" };

/**
 * @typedef {{digit: number, name: string, bound?: boolean, takesEffects?: boolean, volume?: number, muted?: boolean,
 *   peak?: number, sessions?: number[]}} Device
 * @typedef {any[]} Key a key of the registry and a list of its values, each as name and data
 * @typedef {{playback?: Device[], microphones?: Device[], effect?: string,
 *   service?: {disabled?: boolean, own?: Record<string, number>} | null}} Contents of a machine
 * @typedef {{child: import("node:child_process").ChildProcess}} Started
 */

/**
 * @param {Device} device
 * @param {number} flow
 * @returns {Key[]}
 */
function deviceKeys({ digit, name, bound, takesEffects = true, volume, muted, peak, sessions = [] }, flow) {
  const device = `${audio}\\${flow === 0 ? "Render" : "Capture"}\\${guidOf(digit)}`;
  const own = `${machineKey}\\Audio\\${idOf(digit, flow)}`;
  const sound = [
    ...(volume === undefined ? [] : [["Volume", text(String(volume))]]),
    ...(muted === undefined ? [] : [["Muted", number(Number(muted))]]),
    ...(peak === undefined ? [] : [["Peak", text(String(peak))]]),
  ];
  return [
    [device, [["DeviceState", number(1)]]],
    [`${device}\\Properties`, [[friendlyName, text(name)]]],
    ...(takesEffects ? [[`${device}\\FxProperties`, bound ? [[effectChain, list([effectClass])]] : []]] : []),
    [own, sound],
    [`${own}\\Sessions`, []],
    ...sessions.map((id, index) => [
      `${own}\\Sessions\\${index}`,
      [
        ["State", number(1)],
        ["ProcessId", number(id)],
      ],
    ]),
  ];
}

/** @param {Contents} contents */
function machineText({
  playback = [speakers, headphones],
  microphones = [microphone],
  effect,
  service = {},
}) {
  const first = playback.length > 0 ? [["DefaultRender", text(idOf(playback[0].digit))]] : [];
  /** @type {Key[]} */
  const keys = [
    [`${machineKey}\\Audio`, first],
    [`${audio}\\Render`, []],
    [`${audio}\\Capture`, []],
    ...playback.flatMap((device) => deviceKeys(device, 0)),
    ...microphones.flatMap((device) => deviceKeys(device, 1)),
    [`${software}\\Microsoft\\Windows NT\\CurrentVersion\\Audio`, [["DisableProtectedAudioDG", number(1)]]],
    ...(service === null ? [] : [[`${services}\\Audiosrv`, service.disabled ? [["Start", number(4)]] : []]]),
    [
      `${machineKey}\\Services\\Audiosrv`,
      Object.entries(service?.own ?? {}).map(([key, value]) => [key, number(value)]),
    ],
    ...(effect
      ? [[`${software}\\Classes\\CLSID\\${effectClass}\\InprocServer32`, [["@", text(effect)]]]]
      : []),
  ];
  /** @type {Map<string, string[][]>} */
  const values = new Map();
  for (const [key, entries] of keys) {
    const parts = key.split("\\");
    for (let count = 2; count <= parts.length; ++count) {
      const above = parts.slice(0, count).join("\\");
      if (!values.has(above)) values.set(above, []);
    }
    values.get(key)?.push(...entries);
  }
  const blocks = [...values].map(([key, entries]) =>
    [`[${key}]`, ...entries.map(([name, data]) => `${name === "@" ? "@" : text(name)}=${data}`), "", ""].join(
      "\r\n",
    ),
  );
  return `Windows Registry Editor Version 5.00\r\n\r\n${blocks.join("")}`;
}

// ---- programs ----

/** @param {import("node:child_process").ChildProcess} child */
const ended = (child) => new Promise((resolve) => child.once("exit", resolve));
/** @param {number} ms */
const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

/**
 * @param {string} program
 * @param {string[]} args
 * @param {NodeJS.ProcessEnv} env
 * @param {RegExp} line what it writes when it is ready
 * @param {string[]} [wrapper]
 * @returns {Promise<Started>}
 */
async function start(program, args, env, line, wrapper = []) {
  const [file, ...rest] = [...wrapper, path.join(build, program), ...args];
  const child = spawn(file, rest, { env: { ...process.env, ...env }, stdio: ["pipe", "pipe", "inherit"] });
  let output = "";
  await new Promise((/** @type {(value?: unknown) => void} */ resolve, reject) => {
    child.stdout.on("data", (data) => {
      output += data;
      if (line.test(output)) resolve();
    });
    child.once("exit", () => reject(new Error(`${program} ended: ${output}`)));
  });
  return { child };
}

/** @param {Started} program */
async function stop({ child }) {
  if (child.exitCode !== null || child.signalCode !== null) return;
  const end = ended(child);
  child.kill("SIGKILL");
  await end;
}

const notFinite = /"[^"\\]*(?:\\.[^"\\]*)*"|-?\b(?:nan|inf)\b/g;
/** @param {string} body */
const parse = (body) =>
  JSON.parse(body.replace(notFinite, (found) => (found.startsWith('"') ? found : `"${found}"`)));

// One machine with its service, and what a scenario does with them.
class Scene {
  /**
   * @param {string} name
   * @param {number} port
   */
  constructor(name, port) {
    this.name = name;
    this.port = port;
    this.directory = fs.mkdtempSync(path.join(os.tmpdir(), "velmora-states-"));
    fs.chmodSync(this.directory, 0o755);
    this.mapping = `Local\\VelmoraStates-${process.pid}-${port}`;
    /** @type {Started[]} */
    this.running = [];
    this.processes = path.join(this.directory, "proc");
    fs.mkdirSync(this.processes);
  }

  install(names = ["velmora_windows_apo.dll", "fse.dll", "model_weights.bin"]) {
    const place = path.join(this.directory, "installed");
    fs.mkdirSync(place, { recursive: true });
    for (const name of names) fs.writeFileSync(path.join(place, name), "");
    return path.join(place, "velmora_windows_apo.dll");
  }

  /**
   * @param {number} id
   * @param {string} program
   * @param {string[]} [modules]
   */
  process(id, program, modules = [], readable = true) {
    const place = path.join(this.processes, String(id));
    fs.rmSync(place, { recursive: true, force: true });
    fs.mkdirSync(place);
    fs.symlinkSync(`/windows/${program}`, path.join(place, "exe"));
    const lines = modules.map(
      (name, at) => `${at + 1}0000-${at + 1}1000 r-xp 00000000 08:01 7   /windows/${name}\n`,
    );
    if (readable) fs.writeFileSync(path.join(place, "maps"), lines.join(""));
  }

  /** @param {number} id */
  endProcess(id) {
    fs.rmSync(path.join(this.processes, String(id)), { recursive: true });
  }

  /** @param {Contents} contents */
  machine(contents) {
    const file = path.join(this.directory, "machine.reg");
    fs.writeFileSync(`${file}.next`, machineText(contents));
    fs.renameSync(`${file}.next`, file);
    return file;
  }

  /**
   * @param {Contents} contents
   * @param {{wrapper?: string[]}} [options]
   */
  async begin(contents, { wrapper } = {}) {
    const env = {
      VELMORA_MACHINE: this.machine(contents),
      VELMORA_PROC: this.processes,
      VELMORA_DRIVES: this.directory,
    };
    const args = [
      "--port",
      String(this.port),
      "--web-root",
      web,
      "--control-map",
      this.mapping,
      "--token",
      token,
    ];
    this.running.push(await start("velmora_control_demo", args, env, /Press Ctrl/, wrapper));
  }

  /** @param {string[]} args */
  async effect(...args) {
    const all = ["--control-map", this.mapping, ...args];
    const effect = await start("velmora_test_effect", all, {}, /mapping (?:made|opened)\n/);
    this.running.unshift(effect);
    await sleep(150);
  }

  /**
   * Writes a word of the record as the effect would.
   *
   * @param {number} offset
   * @param {bigint} value
   */
  poke(offset, value) {
    const bytes = Buffer.alloc(8);
    bytes.writeBigUInt64LE(value);
    const file = fs.openSync(`/dev/shm/${this.mapping.replace("\\", ".")}`, "r+");
    fs.writeSync(file, bytes, 0, 8, offset);
    fs.closeSync(file);
  }

  /**
   * @param {string} method
   * @param {string} target
   * @param {unknown} [body]
   */
  async ask(method, target, body) {
    const answer = await fetch(`http://127.0.0.1:${this.port}${target}`, {
      method,
      headers: { "x-velmora-token": token },
      body: body === undefined ? undefined : JSON.stringify(body),
    });
    return { status: answer.status, body: parse(await answer.text()) };
  }

  /** @param {string} target */
  async get(target) {
    return (await this.ask("GET", target)).body;
  }

  /** @param {number} strength */
  footstep(strength, more = {}) {
    const body = { bypass: false, bypass_all: false, enhance_strength: strength, ...more };
    return this.ask("PUT", "/api/v1/render/effects/footstep", body);
  }

  /** @param {boolean} bypass */
  async equalizer(bypass) {
    const setting = await this.get("/api/v1/render/effects/eq");
    return this.ask("PUT", "/api/v1/render/effects/eq", { ...setting, bypass });
  }

  async look() {
    const before = await this.get("/api/v1/status");
    await sleep(betweenLooksMs);
    return {
      before,
      now: await this.get("/api/v1/status"),
      devices: await this.get("/api/v1/devices"),
      equalizer: await this.get("/api/v1/render/effects/eq"),
    };
  }

  /**
   * An add or a remove as the page would ask for it, with the documents around it.
   *
   * @param {boolean} attach
   */
  async change(attach, restartsAudio = true) {
    const first = await this.get("/api/v1/status");
    const endpointId = first.apo_binding.endpoint_id;
    const body = { attach, endpoint_id: endpointId, restart_audio: restartsAudio };
    const { status, body: answer } = await this.ask("POST", "/api/v1/render/apo", body);
    return { first, endpointId, attach, restartsAudio, status, answer };
  }

  async end() {
    for (const program of this.running) await stop(program);
    fs.rmSync(this.directory, { recursive: true, force: true });
    fs.rmSync(`/dev/shm/${this.mapping.replace("\\", ".")}`, { force: true });
  }
}

// ---- what is collected ----

const loaded = ["velmora_windows_apo.dll", "fse.dll"];
const playing = { ...speakers, peak: 0.25, sessions: [200] };
const idle = { ...headphones, peak: 0 };

/**
 * A machine on which everything works, but for what is said otherwise.
 *
 * @param {Scene} scene
 * @param {Contents & {life?: string[] | null, modules?: string[] | null, readable?: boolean,
 *   strength?: number}} [differences]
 */
async function whole(
  scene,
  { life = ["--life"], modules = loaded, readable = true, strength = 0.5, ...machine } = {},
) {
  if (modules !== null) scene.process(4711, "audiodg.exe", modules, readable);
  scene.process(200, "player.exe");
  scene.process(300, "call.exe");
  await scene.begin({ effect: scene.install(), playback: [playing, idle], ...machine });
  if (life !== null) await scene.effect(...life);
  await scene.footstep(strength);
  await sleep(150);
}

/** @param {Contents["service"]} service */
const failedRestart = (service) => async (/** @type {Scene} */ scene) => {
  await whole(scene, { playback: [{ ...playing, bound: false }, idle], service });
  const change = await scene.change(true);
  return { ...(await scene.look()), change };
};

/** @type {Record<string, (scene: Scene) => Promise<any>>} */
const scenarios = {
  works: async (scene) => {
    await whole(scene);
    return scene.look();
  },
  equalizerOnly: async (scene) => {
    await whole(scene);
    await scene.footstep(0.5, { bypass: true });
    await scene.equalizer(false);
    await sleep(150);
    return scene.look();
  },
  off: async (scene) => {
    await whole(scene);
    await scene.footstep(0.5, { bypass: true });
    await sleep(150);
    return scene.look();
  },
  bypassAll: async (scene) => {
    await whole(scene);
    await scene.footstep(0.5, { bypass_all: true });
    await sleep(150);
    return scene.look();
  },
  strengthZero: async (scene) => {
    await whole(scene, { strength: 0 });
    return scene.look();
  },
  newRecord: async (scene) => {
    scene.process(4711, "audiodg.exe", loaded);
    await scene.begin({ effect: scene.install(), playback: [playing, idle] });
    return scene.look();
  },
  muted: async (scene) => {
    await whole(scene, { playback: [{ ...playing, muted: true }, idle] });
    return scene.look();
  },
  volumeZero: async (scene) => {
    await whole(scene, { playback: [{ ...playing, volume: 0 }, idle] });
    return scene.look();
  },
  silent: async (scene) => {
    await whole(scene, { playback: [{ ...playing, peak: 0 }, idle], life: ["--life", "--life-blocks", "5"] });
    return scene.look();
  },
  silentNoEngine: async (scene) => {
    await whole(scene, {
      playback: [{ ...playing, peak: 0, sessions: [] }, idle],
      life: null,
      modules: null,
    });
    return scene.look();
  },
  noMicrophone: async (scene) => {
    await whole(scene, { microphones: [] });
    return scene.look();
  },
  otherDevice: async (scene) => {
    await whole(scene, {
      playback: [
        { ...speakers, peak: 0 },
        { ...headphones, peak: 0.5, sessions: [200] },
      ],
    });
    return scene.look();
  },
  otherDeviceWithEffect: async (scene) => {
    await whole(scene, {
      playback: [
        { ...speakers, peak: 0 },
        { ...headphones, bound: true, peak: 0.5 },
      ],
    });
    return scene.look();
  },
  bothSound: async (scene) => {
    await whole(scene, { playback: [playing, { ...headphones, peak: 0.5, sessions: [300] }] });
    return scene.look();
  },
  severalDevices: async (scene) => {
    await whole(scene, { playback: [playing, { ...headphones, bound: true, peak: 0.5 }] });
    return scene.look();
  },
  notInstalled: async (scene) => {
    await scene.begin({ playback: [speakers, headphones] });
    return scene.look();
  },
  fileMissing: async (scene) => {
    await scene.begin({ effect: scene.install(["fse.dll", "model_weights.bin"]) });
    return scene.look();
  },
  algorithmMissing: async (scene) => {
    await scene.begin({ effect: scene.install(["velmora_windows_apo.dll", "fse.dll"]) });
    return scene.look();
  },
  noDevice: async (scene) => {
    await scene.begin({ effect: scene.install(), playback: [] });
    return scene.look();
  },
  nothingAtAll: async (scene) => {
    await scene.begin({ playback: [], microphones: [] });
    return scene.look();
  },
  deviceGone: async (scene) => {
    const effect = scene.install();
    await scene.begin({ effect, playback: [speakers, headphones] });
    await scene.ask("PUT", "/api/v1/devices/render", { endpoint_id: idOf(2) });
    scene.machine({ effect, playback: [speakers] });
    return scene.look();
  },
  noEffects: async (scene) => {
    await scene.begin({
      effect: scene.install(),
      playback: [{ ...headphones, takesEffects: false }, speakers],
    });
    const change = await scene.change(true);
    return { ...(await scene.look()), change };
  },
  notAdded: async (scene) => {
    scene.process(200, "player.exe");
    scene.process(300, "call.exe");
    const capture = { ...microphone, sessions: [300] };
    await scene.begin({
      effect: scene.install(),
      playback: [{ ...headphones, peak: 0.5, sessions: [200] }, speakers],
      microphones: [capture],
    });
    return scene.look();
  },
  refusedNotElevated: async (scene) => {
    const effect = scene.install();
    const wrapper =
      process.getuid?.() === 0 ? ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"] : [];
    await scene.begin({ effect, playback: [headphones, speakers] }, { wrapper });
    const change = await scene.change(true);
    return { ...(await scene.look()), change };
  },
  added: async (scene) => {
    await whole(scene, { playback: [{ ...playing, bound: false }, idle] });
    const change = await scene.change(true);
    scene.process(5822, "audiodg.exe", loaded);
    scene.endProcess(4711);
    return { ...(await scene.look()), change };
  },
  addedEngineKept: async (scene) => {
    await whole(scene, { playback: [{ ...playing, bound: false }, idle] });
    const change = await scene.change(true);
    return { ...(await scene.look()), change };
  },
  addedEngineGone: async (scene) => {
    await whole(scene, { playback: [{ ...playing, bound: false, peak: 0 }, idle], life: null });
    const change = await scene.change(true);
    scene.endProcess(4711);
    return { ...(await scene.look()), change };
  },
  addedLater: async (scene) => {
    await whole(scene, { playback: [{ ...playing, bound: false }, idle] });
    const change = await scene.change(true, false);
    return { ...(await scene.look()), change };
  },
  removed: async (scene) => {
    await whole(scene);
    const change = await scene.change(false);
    return { ...(await scene.look()), change };
  },
  removedLater: async (scene) => {
    await whole(scene);
    const change = await scene.change(false, false);
    return { ...(await scene.look()), change };
  },
  restartRefused: failedRestart({ own: { StopError: 1061 } }),
  restartDependents: failedRestart({ own: { StopError: 1051 } }),
  restartDenied: failedRestart({ own: { StopError: 5 } }),
  restartTimeout: failedRestart({ own: { StartError: 1053 } }),
  restartDependency: failedRestart({ own: { StartError: 1068 } }),
  restartDisabled: failedRestart({ disabled: true }),
  restartNoService: failedRestart(null),
  restartHangs: failedRestart({ own: { StopMs: 0xffffffff } }),
  noEngine: async (scene) => {
    await whole(scene, { modules: null, life: null });
    return scene.look();
  },
  notLoaded: async (scene) => {
    await whole(scene, { modules: ["other.dll"], life: null });
    return scene.look();
  },
  algorithmNotLoaded: async (scene) => {
    await whole(scene, { modules: ["velmora_windows_apo.dll"] });
    return scene.look();
  },
  unlisted: async (scene) => {
    await whole(scene, { readable: false });
    return scene.look();
  },
  initializeFailed: async (scene) => {
    await whole(scene, { life: ["--life", "--life-fault", "initialize"] });
    return scene.look();
  },
  initializeHangs: async (scene) => {
    await whole(scene, { life: ["--life", "--life-fault", "hang"] });
    return scene.look();
  },
  lockFailed: async (scene) => {
    await whole(scene, { life: ["--life", "--life-fault", "lock"] });
    return scene.look();
  },
  lockFailedWhileBlocksMove: async (scene) => {
    await whole(scene);
    scene.poke(0x68, 0x0000000988890008n);
    return scene.look();
  },
  queriesFailed: async (scene) => {
    await whole(scene, { life: ["--life", "--life-fault", "query"] });
    return scene.look();
  },
  algorithmError: async (scene) => {
    await whole(scene);
    scene.poke(0x30, 0x80000002fffffff9n);
    return scene.look();
  },
  appliedDiffers: async (scene) => {
    await whole(scene, { life: ["--life", "--applied-strength", "0.2"] });
    return scene.look();
  },
  appliedNotFinite: async (scene) => {
    await whole(scene, { life: ["--life", "--applied-strength", "nan"] });
    return scene.look();
  },
  publishedNotFinite: async (scene) => {
    await whole(scene, { life: null });
    scene.poke(0x10, 0x000000007fc00000n);
    return scene.look();
  },
  notApplied: async (scene) => {
    await whole(scene, { life: null });
    scene.poke(0x98, 100n);
    const look = scene.look();
    await sleep(100);
    scene.poke(0x98, 200n);
    return look;
  },
  hammered: async (scene) => {
    await scene.begin({ effect: scene.install(), playback: [playing, idle] });
    await scene.footstep(0.5, { bypass_all: true });
    await scene.effect("--hammer", "4000000");
    return scene.look();
  },
  unboundWhileRunning: async (scene) => {
    await whole(scene);
    const effect = path.join(scene.directory, "installed/velmora_windows_apo.dll");
    scene.machine({ effect, playback: [{ ...playing, bound: false }, idle] });
    return scene.look();
  },
  oddNames: async (scene) => {
    const odd = { ...playing, name: 'אוזניות "<b>" \\ ㊙ $& {device} %s', sessions: [200, 200, 0, 987654] };
    await whole(scene, { playback: [odd, { ...idle, name: "" }] });
    return scene.look();
  },
};

const wanted = process.argv.slice(2);
fs.mkdirSync(states, { recursive: true });
let port = 33_000 + (process.pid % 500);
for (const [name, play] of Object.entries(scenarios)) {
  if (wanted.length > 0 && !wanted.includes(name)) continue;
  const scene = new Scene(name, ++port);
  try {
    const state = await play(scene);
    // Nobody is signed in, and the session's members do not count for a verdict.
    for (const key of ["before", "now"]) delete state[key].session;
    if (state.change) delete state.change.first.session;
    const document = JSON.stringify(state).replaceAll(scene.directory, "/velmora-states");
    fs.writeFileSync(path.join(states, `${name}.json`), `${document}\n`);
    console.log(`${name}`);
  } finally {
    await scene.end();
  }
}
