// Measures what the unit tests notice: makes one small change (a mutant) in a source, builds and runs the
// unit test program, restores the source, and goes on with the next. A mutant that fails no test shows a
// behaviour without a test, unless the change has no effect at all. `--help` prints the usage.
import { spawn } from "node:child_process";
import { createHash } from "node:crypto";
import { once } from "node:events";
import { appendFileSync, existsSync, readFileSync, readdirSync, statSync, writeFileSync } from "node:fs";
import { setPriority } from "node:os";
import { basename, join, resolve } from "node:path";
import { fileURLToPath } from "node:url";
import { parseArgs } from "node:util";

const usage = `Usage: node tools/mutants.mjs --build DIR [options] [PATH[=COUNT] ...]

PATH is a source file or a folder of src/ (its .cpp files). COUNT of its mutants are taken, all by default.

  --build DIR     a configured build directory of its own. Fast, and with -w, for mutants cause warnings:
                    cmake -S . -B build/mutants -G Ninja -DCMAKE_CXX_COMPILER=clang++ \\
                      -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG=-O0 -DCMAKE_CXX_FLAGS=-w \\
                      -DCMAKE_EXE_LINKER_FLAGS="-fuse-ld=lld -Wl,--strip-debug"
  --out FILE      append the results there. Mutants that it lists already are not run again.
  --like FILE     take the mutants that FILE lists, wherever the PATHs (src by default) have their code now.
                  An edited statement is replaced by the most similar one ("for KEY" is added to the result),
                  and what is not found is listed as gone.
  --seed N        another sample (1 by default)
  --filter F      run only the tests that the GoogleTest filter F names
  --limit S       processor time that one run of the tests may take (60 seconds by default)
  --minutes M     start no mutant after this time
  --list          print the sample and run nothing
  --show KEY      print the source with this mutant applied and run nothing

A result is one line of fields between tabs: verdict, FILE:LINE, key, operator, change, the test that failed.
Verdicts: killed, survived, doubtful (failures did not repeat), not-compiled, gone. A key is made from the
enclosing function, the statement and the operator, so that it survives moves, renamed files, new comments and
line breaks.`;

const program = "velmora_unit_tests";
/**
 * @typedef {{ place: string, key: string, operator: string, change: string, test?: string, note?: string }} Result
 * @typedef {Result & { file: string, source: string }} Mutant
 * @typedef {{ binary: string, filter: string, limit: number }} Tests
 */

/** @param {string} text */
const hash = (text) => createHash("sha1").update(text).digest("hex").slice(0, 12);
/** @param {string} text */
const oneLine = (text) => text.replace(/\s+/g, " ").trim();

// Blanks comments, and with `strings` also literals and preprocessor lines. Positions do not change.
/** @param {string} text @param {boolean} strings */
function mask(text, strings) {
  const tokens =
    /\/\/[^\n]*|\/\*[\s\S]*?\*\/|R"([^(\s]*)\([\s\S]*?\)\1"|"(?:[^"\\\n]|\\.)*"|(?<!\d)'(?:[^'\\\n]|\\.)+'|^[ \t]*#[^\n]*/gm;
  return text.replace(tokens, (/** @type {string} */ token) => {
    if (/^\/[/*]/.test(token) || (strings && /^\s*#/.test(token))) return token.replace(/[^\n]/g, " ");
    return strings ? token.replace(/[^\n]/g, "_") : token;
  });
}

// What each operator finds in masked code. replacement() says what it makes of it.
const patterns = {
  relation: /(?<= )(==|!=|<=|>=|<|>)(?= )/g,
  logic: /(?<= )(&&|\|\|)(?=\s)/g,
  arithmetic: /(?<=[\w)\]] )([-+*/%&|^]|<<|>>|[-+|&]=)(?=\s)|\+\+|--/g,
  constant: /(?<![\w.:])\d+(?:\.\d+)?(?=[uUlLfF]*\b)(?![xX.'])/g,
  boolean: /\b(?:true|false)\b/g,
  loop: /\b(?:break|continue)(?=;)/g,
  negation: /(?<=[(\s&|])!(?=[\w(])/g,
  condition: /(?<=\b(?:if|while) \((?:[^;{}]*; )?)(?=\S)/g,
  return: /(?<=\breturn )[^;{}]+(?=;)/g,
  "early-return": /\breturn\b[^;]*(?=;)(?!;(?: *|\s*\n)\})/g,
  call: /(?<=[;{})]\s*(?:else\s+)?)(?!return|throw|delete|case)(?:static_cast<void>\()?[\w:]+(?:(?:\.|->)\w+|\([^;{}]*?\))*\([^;{}]*\)(?=;)/g,
  assignment: /(?<=[;{})]\s*(?:else\s+)?)[*]?[\w:]+(?:(?:\.|->)\w+|\[[^\]]*\])* [-+|&]?= [^;{}]+(?=;)/g,
  choice: /\b(?:[A-Z]\w*::[a-z]\w*|(?:status|error|service)_\w+)\b(?!\()/g,
};
/** @type {Record<string, string>} */
const swaps = { "<": "<=", "<=": "<", ">": ">=", ">=": ">", "%": "*", "^": "|" };
const pairs = "== != && || + - * / & | += -= |= &= << >> ++ -- true false break continue".split(" ");
pairs.forEach((found, index) => (swaps[found] = pairs[index ^ 1]));

// null: no mutant. `column` decides whether a number becomes the next or the one before.
/**
 * @param {string} operator
 * @param {string} found
 * @param {number} column
 * @param {string} code
 */
function replacement(operator, found, column, code) {
  if (operator === "return") return /^(true|false|\d+|std::nullopt)$/.test(found) ? null : "{}";
  if (operator === "constant") {
    if (!/^\d+$/.test(found))
      return found.replace(/^\d+/, (/** @type {string} */ whole) => String(Number(whole) + 1));
    if (Number(found) < 2) return found === "0" ? "1" : "0";
    return String(Number(found) + (column % 2 ? 1 : -1));
  }
  if (operator === "choice") {
    // Another enumerator of the type, or constant with the same first word, that the file uses.
    const family = found.match(/^\w+::|^[a-z]+_/)?.[0];
    const members = [...new Set(code.match(new RegExp(`\\b${family}[a-z]\\w*\\b(?!\\()`, "g")) ?? [])].sort();
    return members.length > 1 ? members[(members.indexOf(found) + 1) % members.length] : null;
  }
  return swaps[found] ?? "";
}

// Where the parenthesis ends whose inside begins at `start`.
/** @param {string} code @param {number} start */
function closing(code, start) {
  let end = start;
  for (let depth = 1; depth > 0 && end < code.length; ++end) {
    if (code[end] === "(") ++depth;
    else if (code[end] === ")") --depth;
  }
  return end - 1;
}

// A line without indentation opens it; other such lines lie outside of functions.
/** @param {string} code @param {number} position */
function enclosingFunction(code, position) {
  const heads = code.slice(0, `${code}\n`.indexOf("\n", position)).match(/^[^\s].*$/gm) ?? [];
  const head = heads.at(-1) ?? "";
  return /^[}#]|;\s*$/.test(head) ? "" : (head.match(/([\w~:=]+)\(/)?.[1] ?? "");
}

/**
 * All mutants of one file.
 *
 * @param {string} file
 * @returns {Mutant[]}
 */
function mutantsOf(file) {
  const text = readFileSync(file, "utf8");
  const [code, plain] = [mask(text, true), mask(text, false)];
  const seen = new Map();
  const mutants = [];
  for (const [operator, pattern] of Object.entries(patterns)) {
    for (const { 0: found, index: start } of code.matchAll(pattern)) {
      const end = operator === "condition" ? closing(code, start) : start + found.length;
      let into = replacement(operator, found, start - code.lastIndexOf("\n", start), code);
      if (operator === "condition") into = `!(${text.slice(start, end)})`;
      // A condition with a semicolon also declares something: only the part behind counts.
      if (into === null || (operator === "condition" && code.slice(start, end).includes(";"))) continue;
      const from = Math.max(...[";", "{", "}"].map((mark) => code.lastIndexOf(mark, start - 1))) + 1;
      const to = end + Math.max(code.slice(end).search(/[;{}]/), 0);
      const statement = oneLine(plain.slice(from, to));
      const same = [enclosingFunction(code, start), statement, operator].join("\0");
      seen.set(same, (seen.get(same) ?? 0) + 1);
      const key = `${hash(`${same}\0${seen.get(same)}`)}/${basename(file).replace(/\.\w+$/, "")}`;
      const change = `${statement} : ${oneLine(plain.slice(start, end)) || "-"} => ${oneLine(into) || "-"}`;
      const place = `${file}:${text.slice(0, start).split("\n").length}`;
      const source = text.slice(0, start) + into + text.slice(end);
      mutants.push({ file, place, key, operator, change, source });
    }
  }
  return mutants;
}

/** @param {string} path */
function allMutants(path) {
  if (!statSync(path).isDirectory()) return mutantsOf(path);
  const files = readdirSync(path, { recursive: true })
    .map(String)
    .filter((file) => file.endsWith(".cpp"));
  return files.sort().flatMap((file) => mutantsOf(join(path, file)));
}

// Depends on the seed and on the mutants, never on their order. A smaller sample is part of a larger one.
/** @param {string} argument @param {string} seed */
function sample(argument, seed) {
  const [path, count] = argument.split("=");
  const mutants = allMutants(path);
  const ranks = mutants.map(({ key }) => hash(`${seed}/${key}`)).sort();
  const last = ranks[Math.min(Number(count ?? Infinity), ranks.length) - 1];
  return mutants.filter(({ key }) => hash(`${seed}/${key}`) <= last);
}

/** @param {string | undefined} file @returns {Result[]} */
const readResults = (file) =>
  (file && existsSync(file) ? readFileSync(file, "utf8").split("\n") : [])
    .map((line) => line.split("\t"))
    .filter((fields) => fields.length >= 5)
    .map(([, place, key, operator, change, test]) => ({ place, key, operator, change, test }));

// What two changes have in common, of 1.
/** @param {string} one @param {string} two */
function likeness(one, two) {
  const [left, right] = [one, two].map((change) => new Set(change.match(/\w+/g)));
  return [...left].filter((word) => right.has(word)).length / Math.max(left.size, right.size);
}

// The mutants of an earlier run: by the whole key, else by its hash (the file may have a new name), else the
// most similar one of the operator (the statement may have been edited).
/** @param {string[]} paths @param {Result[]} earlier @returns {[Mutant[], Result[]]} */
function findAgain(paths, earlier) {
  const mutants = paths.flatMap(allMutants);
  const byHash = new Map(mutants.map((mutant) => [mutant.key.split("/")[0], mutant]));
  const whole = new Map(mutants.map((mutant) => [mutant.key, mutant]));
  const taken = new Set(earlier.map(({ key }) => whole.get(key) ?? byHash.get(key.split("/")[0])));
  const gone = [];
  for (const old of earlier.filter(({ key }) => !byHash.has(key.split("/")[0]))) {
    const near = mutants.filter((mutant) => mutant.operator === old.operator && !taken.has(mutant));
    const best = near.sort((a, b) => likeness(b.change, old.change) - likeness(a.change, old.change))[0];
    const found = best && likeness(best.change, old.change) >= 0.6;
    if (found) taken.add(Object.assign(best, { note: `for ${old.key}` }));
    else gone.push(old);
  }
  return [mutants.filter((mutant) => taken.has(mutant)), gone];
}

let restore = () => {};
/** @type {import("node:child_process").ChildProcess | null} */
let child = null;
function endChild() {
  if (child?.pid && child.exitCode === null && child.signalCode === null) process.kill(-child.pid, "SIGKILL");
}

// In a process group of its own, so that all of it can be ended.
/** @param {string} command @param {string[]} args */
async function run(command, args, seconds = 3600) {
  const started = spawn(command, args, { detached: true, stdio: ["ignore", "pipe", "ignore"] });
  child = started;
  let output = "";
  started.stdout.on("data", (data) => (output = (output + data).slice(-200000)));
  const timer = setTimeout(endChild, seconds * 1000);
  const [code, signal] = await once(started, "close");
  clearTimeout(timer);
  return { code, signal, output };
}

/** @param {string} folder */
async function builds(folder) {
  return (await run("cmake", ["--build", folder, "-j1", "--target", program])).code === 0;
}

// The first test that fails, or null. Time and memory are limited: a mutant may loop or grow forever.
/** @param {Tests} tests @param {string} filter */
async function firstFailure({ binary, limit }, filter) {
  const script = `ulimit -S -t ${limit} -v 4000000 -c 0; exec "$0" --gtest_fail_fast "--gtest_filter=$1"`;
  const { code, signal, output } = await run("bash", ["-c", script, binary, filter], 60 * limit);
  if (code === 0) return null;
  const failed = output.match(/^\[ {2}FAILED {2}\] ([^\s,]+\.[^\s,]+)/m);
  const crashed = output.match(/.*^\[ RUN {6}\] (\S+)/ms);
  return { name: (failed ?? crashed)?.[1] ?? "start", signal };
}

// `first` are the tests that killed other mutants of the file; it grows.
/** @param {Tests} tests @param {Set<string>} first */
async function judge(tests, first) {
  for (const filter of [[...first].join(":"), tests.filter, tests.filter, tests.filter]) {
    const failure = filter ? await firstFailure(tests, filter) : null;
    if (!failure && filter === tests.filter) return ["survived", ""];
    if (!failure) continue;
    // A busy machine fails tests too. A kill counts when the test fails once more by itself, or loops.
    if (
      failure.signal === "SIGXCPU" ||
      failure.name === "start" ||
      (await firstFailure(tests, failure.name))
    ) {
      if (failure.name !== "start") first.add(failure.name);
      return ["killed", [failure.name, failure.signal].join(" ").trim()];
    }
  }
  return ["doubtful", ""];
}

async function main() {
  const names = ["build", "out", "like", "seed", "filter", "limit", "minutes", "show"];
  /** @type {Record<string, { type: "string" | "boolean" }>} */
  const options = { list: { type: "boolean" }, help: { type: "boolean" } };
  for (const name of names) options[name] = { type: "string" };
  const parsed = parseArgs({ options, allowPositionals: true });
  const { positionals } = parsed;
  const values = /** @type {Record<string, any>} */ (parsed.values);
  if (values.help || (!positionals.length && !values.like)) return console.log(usage);
  for (const name of ["build", "out", "like"]) if (values[name]) values[name] = resolve(values[name]);
  process.chdir(fileURLToPath(new URL("..", import.meta.url)));
  const [mutants, gone] = values.like
    ? findAgain(positionals.length ? positionals : ["src"], readResults(values.like))
    : [positionals.flatMap((argument) => sample(argument, values.seed ?? "1")), []];
  if (values.show) return console.log(mutants.find(({ key }) => key === values.show)?.source);
  /** @type {Record<string, Record<string, number>>} */
  const totals = {};
  /** @param {string} verdict @param {Result} result */
  const report = (verdict, { place, key, operator, change, note = "" }, test = "") => {
    const room = (totals[place.replace(/\/[^/]*$/, "")] ??= {});
    room[verdict] = (room[verdict] ?? 0) + 1;
    const line = [verdict, place, key, operator, change, test, note].join("\t");
    if (values.out) appendFileSync(values.out, `${line}\n`);
    else console.log(line);
  };
  if (values.list) return mutants.forEach((mutant) => report("listed", mutant));

  setPriority(19);
  process.env.CCACHE_DISABLE = "1";
  process.on("exit", () => (endChild(), restore()));
  for (const signal of ["SIGINT", "SIGTERM", "SIGHUP"]) process.on(signal, () => process.exit(130));
  const binary = join(values.build, program);
  const tests = { binary, filter: values.filter ?? "*", limit: values.limit ?? 60 };
  if (!(await builds(values.build))) throw new Error("the sources do not build as they are");
  const failure = await firstFailure(tests, tests.filter);
  if (failure) throw new Error(`${failure.name} fails without any mutant`);

  const end = Date.now() + (values.minutes ?? Infinity) * 60000;
  const done = new Set(readResults(values.out).map(({ key }) => key));
  for (const mutant of gone) if (!done.has(mutant.key)) report("gone", mutant);
  // The tests that killed mutants of a file so far, also in an earlier run.
  /** @type {Record<string, Set<string>>} */
  const killers = {};
  /** @param {Result} result */
  const killersOf = ({ key }) => (killers[key.split("/")[1]] ??= new Set());
  for (const result of readResults(values.like).concat(readResults(values.out))) {
    const { test = "" } = result;
    if (/^\S+\.\S+/.test(test)) killersOf(result).add(test.split(" ")[0]);
  }
  for (const mutant of mutants) {
    if (done.has(mutant.key) || Date.now() > end) continue;
    const original = readFileSync(mutant.file, "utf8");
    restore = () => (writeFileSync(mutant.file, original), (restore = () => {}));
    writeFileSync(mutant.file, mutant.source);
    const built = await builds(values.build);
    const [verdict, test] = built ? await judge(tests, killersOf(mutant)) : ["not-compiled", ""];
    restore();
    report(verdict, mutant, test);
    done.add(mutant.key);
  }
  console.log(totals);
}

await main();
