// Checks the rules of the source tree that no compiler checks. Prints each breach as FILE:LINE: RULE and exits with 1
// if there is any.
import { execFileSync } from "node:child_process";
import { existsSync, readFileSync } from "node:fs";
import { basename, dirname, join } from "node:path";
import { fileURLToPath } from "node:url";

const root = join(dirname(fileURLToPath(import.meta.url)), "..");
process.chdir(root);

/**
 * The rooms of src/ (one CMake library each) and the rooms that each links.
 * @returns {Record<string, string[]>}
 */
function readRooms() {
  /** @type {Record<string, string[]>} */
  const links = {};
  for (const file of files.filter((name) => /^src\/[a-z]+\/CMakeLists\.txt$/.test(name))) {
    for (const [, name, list] of readFileSync(file, "utf8").matchAll(
      /velmora_library\(velmora_(\w+)([^)]*)\)/g,
    )) {
      links[name] = [...(list.split("LINKS")[1] ?? "").matchAll(/velmora_(\w+)/g)].map(([, room]) => room);
    }
  }
  return links;
}
// From the bottom up. A room links rooms of lower floors only.
const floors = [
  ["base"],
  ["json", "platform"],
  ["http", "bridge", "binding", "endpoints", "capture", "account"],
  ["effects", "engine"],
  ["api"],
  ["service", "command"],
];
/** @param {string} room */
const floorOf = (room) => floors.findIndex((row) => row.includes(room));
const windowsHeaders =
  /^(windows|winsock2|ws2tcpip|winhttp|audiopolicy|endpointvolume|mmdeviceapi|propidl|tlhelp32|sddl|bcrypt|objbase|shellapi|io|winreg|winsvc)\.h$/;
// Where a failed allocation is an answer to the client.
const handlesExceptions = new Set(["src/endpoints/selection.cpp"]);
const rawCalls = {
  sockets:
    /(?<![\w.>])(?:::)?(?:recv|send|bind|listen|accept4?|select|ppoll|closesocket|setsockopt|WSA[A-Z]\w+)\(/,
  registry: /\bReg[A-Z]\w+W?\(/,
};
// Functions that come in an 8-bit and a wide form, called without saying which.
const unsuffixed =
  /\b(CreateFile|OpenFileMapping|CreateFileMapping|GetModuleFileName|LoadLibrary|ShellExecute)\(/;
const linesBeforeAReason = 500;

/** @type {string[]} */
const breaches = [];
const files = execFileSync("git", ["ls-files", "--cached", "--others", "--exclude-standard"], {
  encoding: "utf8",
})
  .split("\n")
  .filter((file) => file && existsSync(file));
const rooms = readRooms();
// "FROM TO" for each pair of rooms of which one includes a header of the other.
const used = new Set();
/** @param {string} file */
const isCode = (file) => /\.(h|cpp|c)$/.test(file);

/** @param {string} path */
const roomOf = (path) => path.split("/")[0];

/** @param {string} file @param {string} line @param {(rule: string) => void} say */
function checkIncludes(file, line, say) {
  const include = line.match(/^\s*#\s*include\s*([<"])([^>"]+)[>"]/);
  if (!include) return;
  const [, mark, header] = include;
  if (header !== header.toLowerCase()) say("header names are lower case");
  const forWindows =
    /^(src\/platform|benchmarks)\/windows\//.test(file) ||
    /^tests\/(.*windows|programs\/(audio|service)\/)/.test(file);
  if (mark === "<" && windowsHeaders.test(header) && !forWindows) {
    say(
      "Windows headers are for src/platform/windows/, benchmarks/windows/ and the tests' files for Windows",
    );
  }
  if (mark !== '"' || !file.startsWith("src/")) return;
  const from = roomOf(file.slice(4));
  const to = roomOf(header);
  if (!rooms[to]) say(`includes start at src/, and ${header} is in no room`);
  else if (from !== to) {
    used.add(`${from} ${to}`);
    if (!rooms[from]?.includes(to)) say(`${from} does not link ${to}`);
  }
  const implementation = header.match(/^platform\/(windows|posix|hosted)\//)?.[1];
  const own = file.match(/^src\/platform\/(windows|posix|hosted)\//)?.[1];
  // posix/ keeps the hosted machine's file.
  const mayInclude = implementation === own || (implementation === "hosted" && own === "posix");
  if (implementation && !mayInclude) say("implementations of the platform are included by their own only");
}

/** @param {string} file @param {string} line @param {(rule: string) => void} say */
function checkLine(file, line, say) {
  checkIncludes(file, line, say);
  const code = line.replace(/\/\/.*/, "").replace(/"(?:[^"\\]|\\.)*"/g, '""');
  if (!file.startsWith("src/")) return;
  if (/^\s*#\s*if.*(_WIN32|__linux__|__unix__|__MINGW)/.test(code)) {
    say("the build chooses the platform, never an #if");
  }
  if (/\b(throw|try|catch)\b/.test(code) && !handlesExceptions.has(file)) say("failures travel as values");
  if (/\bvirtual\b|\bdynamic_cast\b/.test(code)) say("there is no class hierarchy");
  for (const [wrapper, call] of Object.entries(rawCalls)) {
    if (call.test(code) && !file.endsWith(`/${wrapper}.cpp`))
      say(`only the wrapper makes raw calls of ${wrapper}`);
  }
  if (file.startsWith("src/platform/windows/")) {
    if (unsuffixed.test(code) || /\b[A-Z]\w+[a-z]A\(/.test(code))
      say("only the wide functions (…W) are called");
  }
}

for (const file of files.filter(isCode)) {
  const text = readFileSync(file, "utf8");
  const lines = text.split("\n");
  lines.forEach((line, index) =>
    checkLine(file, line, (rule) => breaches.push(`${file}:${index + 1}: ${rule}`)),
  );
  const say = (/** @type {string} */ rule) => breaches.push(`${file}:1: ${rule}`);
  if (
    lines.length > linesBeforeAReason &&
    !/\b(Long because|One file because)\b/.test(lines.slice(0, 12).join(" "))
  ) {
    say(`above ${linesBeforeAReason} lines only with a reason ("One file because ...") in the top comment`);
  }
  if (!file.startsWith("src/")) continue;
  if (file.endsWith(".h") && !text.includes("#pragma once")) say("a header is included once");
  if (basename(file) !== "main.cpp" && !/^namespace velmora/m.test(text))
    say("everything lives in namespace velmora");
}

// A link list names the rooms below that are included, and no others.
for (const [room, linked] of Object.entries(rooms)) {
  for (const other of linked) {
    if (floorOf(room) < 0 || floorOf(other) >= floorOf(room))
      breaches.push(`src/${room}/CMakeLists.txt:1: ${room} may not link ${other}`);
    if (!used.has(`${room} ${other}`))
      breaches.push(`src/${room}/CMakeLists.txt:1: ${room} links ${other} and includes none of its headers`);
  }
}

// Every source has its test, and every test file is one that the build picks up.
for (const file of files.filter(
  (name) => /^src\/(?!platform\/).*\.cpp$/.test(name) && basename(name) !== "main.cpp",
)) {
  const test = file.replace(/^src\//, "tests/unit/").replace(/\.cpp$/, "_test.cpp");
  if (!existsSync(test)) breaches.push(`${file}:1: has no ${test}`);
}
for (const file of files.filter(
  (name) => /^src\/platform\/[a-z_]+\.h$/.test(name) && !["owner.h", "errors.h"].includes(basename(name)),
)) {
  const test = `tests/platform/${basename(file, ".h")}_contract_test.cpp`;
  if (!existsSync(test)) breaches.push(`${file}:1: has no ${test}`);
}
for (const file of files.filter((name) => /^tests\/.*_test\.cpp$/.test(name))) {
  if (!/^tests\/(unit|platform)\//.test(file)) breaches.push(`${file}:1: no test program builds this`);
}

for (const breach of breaches) console.log(breach);
console.log(
  `${files.filter(isCode).length} files, ${Object.keys(rooms).length} rooms, ${used.size} edges, ${breaches.length} breaches`,
);
process.exit(breaches.length === 0 ? 0 : 1);
