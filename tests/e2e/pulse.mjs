// A PulseAudio of a test's own, which gives Wine its audio endpoints: its sinks play into nothing, its sources are
// silent. It is reached only by the environment, and a sound server of the user's is left out of it.
import net from "node:net";
import path from "node:path";

import { launch, makeDirectory, poll, run } from "./harness.mjs";
import { devicesPath, keepKeys, setText } from "./registry.mjs";

/** @typedef {import("./harness.mjs").Scope} Scope */

const driversKey = "HKEY_CURRENT_USER\\Software\\Wine\\Drivers";

/** @param {string} socket @returns {Promise<true | undefined>} */
function takesConnections(socket) {
  return new Promise((resolve) => {
    const connection = net.connect(socket);
    connection.once("connect", () => {
      connection.destroy();
      resolve(true);
    });
    connection.once("error", () => resolve(undefined));
  });
}

// A text within the single quotes of a module's argument.
/** @param {string} text */
const escaped = (text) => text.replace(/["'\\]/g, "\\$&");

// Wine's endpoints come from a sound server and from no other driver. What Wine notes of them in the registry is taken
// out again when the test ends. `socket` is where the server listens; nobody has to. Gives the environment of programs.
/** @param {Scope} t @param {string} socket */
export async function useSoundServer(t, socket) {
  await keepKeys(t, [devicesPath, driversKey]);
  await setText(t, driversKey, "Audio", "pulse");
  const directory = path.dirname(socket);
  // A client leaves its cookie and a directory of its own, too: not among the user's files.
  return {
    PULSE_SERVER: `unix:${socket}`,
    PULSE_COOKIE: path.join(directory, "cookie"),
    PULSE_RUNTIME_PATH: directory,
  };
}

// Starts it. Sinks and sources are given as [name, description]; the first ones are the defaults. Gives the environment
// of programs that use it, and `removeSink`.
/** @param {Scope} t @param {{ sinks?: string[][], sources?: string[][] }} devices */
export async function startPulse(t, { sinks = [], sources = [] } = {}) {
  const directory = makeDirectory();
  const socket = path.join(directory, "native");
  const clientEnv = await useSoundServer(t, socket);
  const env = {
    ...clientEnv,
    HOME: directory,
    XDG_RUNTIME_DIR: directory,
    PULSE_STATE_PATH: path.join(directory, "state"),
    DBUS_SESSION_BUS_ADDRESS: `unix:path=${path.join(directory, "no-bus")}`,
    DBUS_SYSTEM_BUS_ADDRESS: `unix:path=${path.join(directory, "no-bus")}`,
  };
  const modules = [
    ...sinks.map(
      ([name, text]) =>
        `module-null-sink sink_name=${name} sink_properties='device.description="${escaped(text)}"'`,
    ),
    ...sources.map(([name, text]) => `module-null-source source_name=${name} description='${escaped(text)}'`),
    // Comes last: who is let in finds all of it.
    `module-native-protocol-unix auth-anonymous=1 socket=${socket}`,
  ];
  const options = ["-n", "--daemonize=no", "--exit-idle-time=-1", "--use-pid-file=no", "--disable-shm=yes"];
  options.push("--realtime=no", "--high-priority=no", "--log-target=stderr");
  const server = launch(t, "pulseaudio", [...options, ...modules.flatMap((module) => ["-L", module])], {
    env,
    ofSystem: true,
  });
  await poll(`the sound server: ${server.said()}`, async () => {
    if (server.end) throw new Error(`no sound server: ${server.said()}`);
    return takesConnections(socket);
  });
  if (server.errors.includes("Failed to load module")) throw new Error(`not all modules: ${server.said()}`);
  /** @param {string[]} args */
  const control = async (...args) => {
    const { code, output, errors } = await run(t, "pactl", args, { env, ofSystem: true });
    if (code !== 0) throw new Error(`pactl ${args.join(" ")}: ${output}${errors}`);
    return output;
  };
  return {
    env: clientEnv,
    /** @param {string} name */
    removeSink: async (name) => {
      const modulesNow = (await control("list", "short", "modules"))
        .split("\n")
        .map((line) => line.split("\t"));
      const [number] = modulesNow.find(([, , args]) => args?.includes(`sink_name=${name} `)) ?? [];
      await control("unload-module", number);
    },
  };
}
