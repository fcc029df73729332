// The programs that play or record, for the question before Windows audio restarts.
import { devicesFacts } from "./facts.js";

/**
 * @param {string} path
 * @returns {string} the file name of a program
 */
export const programFile = (path) =>
  path.slice(Math.max(path.lastIndexOf("\\"), path.lastIndexOf("/")) + 1) || path;

/**
 * @param {unknown} devices a device list
 * @returns {string[]} each program once, on all devices, microphones too; not the system's own sounds
 */
export function activePrograms(devices) {
  const { playback, microphones } = devicesFacts(devices);
  const names = [...playback, ...microphones].flatMap(({ sessions }) => sessions);
  return [...new Set(names.map(programFile))].filter((name) => name !== "system");
}
