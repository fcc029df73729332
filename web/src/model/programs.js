// The programs that play or record, for the question before Windows audio restarts.
import { devicesFacts } from "./facts.js";

/**
 * @param {unknown} devices a device list
 * @returns {string[]} each program once, on all devices, microphones too; not the system's own sounds
 */
export function activePrograms(devices) {
  const { playback, microphones } = devicesFacts(devices);
  const names = [...playback, ...microphones].flatMap(({ sessions }) => sessions);
  const files = names.map(
    (name) => name.slice(Math.max(name.lastIndexOf("\\"), name.lastIndexOf("/")) + 1) || name,
  );
  return [...new Set(files)].filter((name) => name !== "system");
}
