// The commands of README.md and of the documents for those who build, test and bind by hand. Each is run, or checked in
// a way that can fail where running it takes too long or changes the machine. A command that no checker knows is a
// failure, and so is a block of code that is neither a command nor known as something else.
//
// Run here: the session of ./run, the machine file's session, the refusals of ./test and ./package, the installation of
// packages (on a machine that has them all), the binding tool, and the compiler over the example of a route.
// Checked only, with what would go stale: builds (minutes; the presets and targets exist), ./test and ./package (an
// hour; their options), Windows' own commands (no Windows; keys, values, services and files are those of the sources).
import assert from "node:assert/strict";
import { execFileSync, spawnSync } from "node:child_process";
import fs from "node:fs";
import path from "node:path";
import test from "node:test";

import {
  Program,
  atEnd,
  freePort,
  makeDirectory,
  requestBytes,
  exchange,
  uniqueMappingName,
} from "../e2e/harness.mjs";
import { codeBlocks, inlineCode, proseOf, readText, root, sectionOf, tableRows } from "./markdown.mjs";

const limits = { timeout: 180_000 };
const checkedDocuments = [
  "README.md",
  ...["developing", "linux-machine", "release", "testing", "windows"].map((name) => `docs/${name}.md`),
];
const build = path.join(root, "build/native");
const token = "readme-test-token-0123456789abcdef";

/** @param {string} name */
const exists = (name) => fs.existsSync(path.join(root, name));

/** @param {string} command @param {Record<string, string>} [env] */
function bash(command, env = {}) {
  return spawnSync("bash", ["-c", command], { cwd: root, encoding: "utf8", env: { ...process.env, ...env } });
}

// ---- what the sources define ----

/** @returns {string[]} */
function cmakeFiles() {
  const listed = execFileSync(
    "git",
    ["ls-files", "--cached", "--others", "--exclude-standard", "*CMakeLists.txt"],
    { cwd: root, encoding: "utf8" },
  );
  return listed.split("\n").filter((name) => name !== "");
}

// Every target that a CMakeLists.txt defines, whatever the function that does it.
function definedTargets() {
  const calls = cmakeFiles().flatMap((name) => [...readText(name).matchAll(/^\s*(\w+)\((velmora_\w+)/gm)]);
  const targets = calls
    .filter(([, call]) => !/^(?:target_|set_|add_dependencies|function)/.test(call))
    .map(([, , target]) => target);
  assert.ok(targets.length > 30);
  return new Set(targets);
}

/** @type {string[]} */
const presets = JSON.parse(readText("CMakePresets.json"))
  .configurePresets.map(({ name }) => name)
  .filter((name) => name !== "base");
const targets = definedTargets();

/** @param {string} target */
const assertTarget = (target) => assert.ok(targets.has(target) || target === "all", `no target ${target}`);
/** @param {string} preset */
const assertPreset = (preset) => assert.ok(presets.includes(preset), `no preset ${preset}`);

// The options of a script's loop over its arguments.
/** @param {string} script */
const optionsOf = (script) =>
  [...readText(script).matchAll(/^ +((?:--[a-z-]+(?: \| )?)+)\)/gm)].flatMap(([, all]) => all.split(" | "));

/** @param {string[]} args */
function serviceUsage(...args) {
  const { status, stderr } = spawnSync(path.join(build, "velmora_control_demo"), args, { encoding: "utf8" });
  assert.equal(status, 2);
  return [...stderr.matchAll(/\[(--[^\]]+)\]/g)].map(([, option]) => option);
}
const serviceOptions = serviceUsage("--no-such-option");
const serviceOptionNames = serviceOptions.map((option) => option.split(" ")[0]);

// A command of `velmora` or an option: the help of it has each.
/** @param {string} word */
function assertWordOfCommandLine(word) {
  if (/^-?-?[a-z]/.test(word) && !serviceOptionNames.includes(word))
    assert.match(readText("src/command/help.cpp"), new RegExp(`[ "]${word}[ "\\\\]`));
}

/** @param {string} command @param {string[]} known */
function assertOptions(command, known) {
  for (const [option] of command.matchAll(/(?<= )--[a-z-]+/g))
    assert.ok(known.includes(option), `${option} in ${command}`);
}

/** @param {string} script */
function assertScript(script) {
  assert.ok(fs.statSync(path.join(root, script)).mode & 0o100, `${script} can be executed`);
  assert.equal(bash(`bash -n ${script}`).status, 0, script);
}

// ---- one checker for each kind of command ----

/** @type {[RegExp, (command: string, words: string[]) => void][]} */
const checkers = [
  // run_script.test.mjs and the session below start it.
  [
    /^\.\/run( |$)/,
    (command) => (assertScript("run"), assertOptions(command, [...optionsOf("run"), ...serviceOptionNames])),
  ],
  // It runs this test.
  [/^\.\/test( |$)/, (command) => (assertScript("test"), assertOptions(command, optionsOf("test")))],
  // Its own tests run it.
  [/^\.\/package( |$)/, (command) => (assertScript("package"), assertOptions(command, optionsOf("package")))],
  [/^\.\/bench( --quick)?$/, () => assertScript("bench")],
  [/^tools\/screenshots( FOLDER)?$/, () => assertScript("tools/screenshots")],
  [/^cmake --preset \w+$/, (_, words) => assertPreset(words[2])],
  [/^cmake --build --preset \w+$/, (_, words) => assertPreset(words[3])],
  [
    /^cmake --build build\/\w+( --target( \w+)+)?$/,
    (_, words) => (assertPreset(words[2].slice(6)), words.slice(4).forEach(assertTarget)),
  ],
  [/^ctest --test-dir build\/\w+( -R \w+)?$/, checkCtest],
  [/^(?:wine )?build\/\w+\/velmora_\w+(?:\.exe)?( |$)/, checkBuiltProgram],
  [
    /^velmora_bind_endpoint(?:\.exe)? (?:look|bind|unbind) \S+$/,
    (_, words) => checkBinding(words[1], words[2]),
  ],
  [
    /^C:\\velmora\\velmora_control_demo\.exe /,
    (command) => (assertTarget("velmora_control_demo"), assertOptions(command, serviceOptionNames)),
  ],
  // Its own tests run it.
  [/^velmora(?:\.exe)? /, (_, words) => words.slice(1).forEach(assertWordOfCommandLine)],
  [
    /^velmora_control_demo\.exe /,
    (command) => (assertTarget("velmora_control_demo"), assertOptions(command, serviceOptionNames)),
  ],
  [
    /^VELMORA_TARGET=(?:native|wine) VELMORA_BUILD=(?:\$PWD\/)?build\/\w+ node --test(?: --test-concurrency=\d)? [\w/.]+$/,
    (_, words) => {
      assertPreset(words[1].split("/").at(-1) ?? "");
      const tests = words.at(-1) ?? "";
      assert.ok(exists(tests), tests);
    },
  ],
  [
    /^node --test( tests\/[\w/]+\/\*\.test\.mjs)?$/,
    (_, words) => assert.ok(words.length === 2 || exists(path.dirname(words[2]))),
  ],
  // A stage of ./test runs it.
  [/^node tools\/check_source\.mjs$/, () => assert.ok(exists("tools/check_source.mjs"))],
  [/^node tools\/mutants\.mjs --help$/, (command) => assert.match(bash(command).stdout, /^Usage: /)],
  [
    /^(?:clang-format (?:--dry-run -Werror|-i)|clang-tidy -p build\/asan --quiet) FILE$/,
    (_, words) => {
      assert.match(readText("tools/packages.sh"), new RegExp(`[ (]${words[0]}[ )\n]`));
      assert.ok(exists(`.${words[0]}`));
    },
  ],
  [
    /^export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache$/,
    (command) => assert.equal(bash(command).status, 0),
  ],
  [
    /^Get-FileHash /,
    (_, words) =>
      assert.equal(
        words[1].replace("VERSION", "$version"),
        /^archive=(\S+)$/m.exec(readText("package"))?.[1],
      ),
  ],
  [/^reg (?:query|export|delete|add|import) /, checkRegistryCommand],
  [
    /^net (?:stop|start) \w+$/,
    (_, words) => assert.match(readText("src/engine/audio_service.cpp"), new RegExp(`"${words[2]}"`)),
  ],
];

/** @param {string} command */
function checkCommand(command) {
  for (const part of command.split(" && ")) {
    const bare = part.replace(/ &$/, "");
    const checker = checkers.find(([form]) => form.test(bare));
    assert.ok(checker, `no checker knows the command: ${bare}`);
    checker[1](bare, bare.split(" "));
  }
}

/** @param {string} _ @param {string[]} words */
function checkCtest(_, words) {
  assertPreset(words[2].slice(6));
  if (words[4] === undefined) return;
  const names = cmakeFiles().flatMap((name) =>
    [...readText(name).matchAll(/add_test\(NAME (\S+)/g)].map(([, one]) => one),
  );
  const fuzzers = [...readText("tests/fuzz/CMakeLists.txt").matchAll(/^velmora_fuzzer\((\w+)/gm)].map(
    ([, one]) => `fuzz_${one}`,
  );
  assert.ok(
    [...names, ...fuzzers].some((name) => name.includes(words[4])),
    `no test ${words[4]}`,
  );
}

/** @param {string} command */
function checkBuiltProgram(command) {
  const [, preset, program] = /build\/(\w+)\/(velmora_\w+)/.exec(command) ?? assert.fail(command);
  assertPreset(preset);
  assertTarget(program);
  if (program === "velmora_control_demo") assertOptions(command, serviceOptionNames);
  const filter = /--gtest_filter='?([^']+?)'?$/.exec(command)?.[1];
  if (filter === undefined || filter === tutorialTest) return;
  const found = bash(`grep -rhoE 'TEST(_F|_P)?\\(\\w+, \\w+\\)' tests/unit`).stdout;
  const names = [...found.matchAll(/\((\w+), (\w+)\)/g)].map(([, suite, name]) => `${suite}.${name}`);
  const form = new RegExp(`^${filter.replace(".", "\\.").replaceAll("*", ".*")}$`);
  assert.ok(
    names.some((name) => form.test(name)),
    `no test ${filter}`,
  );
}

const laptopEndpoint = "{517f1efe-9874-44ab-b8c0-d341131d9da7}";

// The tool as the document calls it, on a copy of the machine that has the document's endpoint.
/** @param {string} action @param {string} id */
function checkBinding(action, id) {
  const machine = path.join(makeDirectory(), "laptop.reg");
  fs.copyFileSync(path.join(root, "tests/machines/laptop.reg"), machine);
  const endpoint = /^(?:ID|\.\.\.)$/.test(id) ? laptopEndpoint : id;
  const tool = spawnSync(path.join(build, "velmora_bind_endpoint"), [action, endpoint], {
    encoding: "utf8",
    env: { ...process.env, VELMORA_MACHINE: machine },
  });
  assert.equal(tool.status, 0, tool.stdout + tool.stderr);
  assert.match(tool.stdout, /^status 0x00000000\n/);
}

/** @param {string} command */
function checkRegistryCommand(command) {
  if (command === "reg import before.reg")
    return assert.match(readText("docs/windows.md"), /^ *reg export .* before\.reg$/m);
  const key = /HKLM\\[^" ]+/.exec(command)?.[0] ?? assert.fail(command);
  const parent = key.replace(/\\(?:GUID|\{[-0-9a-f]+\})(?:\\FxProperties)?$/, "");
  const keys = ["Microsoft\\Windows\\CurrentVersion\\MMDevices\\Audio\\Render", "Velmora\\DevBinding"];
  assert.ok(keys.map((one) => `HKLM\\SOFTWARE\\${one}`).includes(parent), command);
  const inSource = parent.slice(parent.indexOf("SOFTWARE")).replaceAll("\\", "\\\\");
  assert.equal(
    spawnSync("grep", ["-rqF", inSource, "src/binding", "src/platform"], { cwd: root }).status,
    0,
    parent,
  );
  const value = /\/v "([^"]+)"/.exec(command)?.[1];
  if (value !== undefined)
    assert.equal(spawnSync("grep", ["-rqF", value, "src"], { cwd: root }).status, 0, value);
}

// ---- blocks that are no commands, or are run as a whole by a test below ----

const tutorialTest = "Routes.ShowTheVersion";
/** @type {[string, RegExp, string][]} */
const otherBlocks = [
  ["README.md", /^applied word=/, "the test of ./run waits for it"],
  ["docs/developing.md", /^\. tools\/packages\.sh\n/, "the test of the packages runs it"],
  [
    "docs/developing.md",
    /^(?:\/\/ GET|void get_version|if \(matches|TEST_F)/,
    "the test of the example compiles it",
  ],
  ["docs/linux-machine.md", /^cp tests\/machines/, "the test of the machine file runs it"],
  ["docs/linux-machine.md", /^curl /, "the test of the machine file sends it"],
  ["docs/linux-machine.md", /^\[HKEY_LOCAL_MACHINE/, "keys of a machine file"],
];

/** @param {string} document */
function blocksOf(document) {
  return codeBlocks(readText(document)).map((block) => ({ ...block, text: block.lines.join("\n") }));
}

/** @param {string} document @param {RegExp} beginning */
function blockOf(document, beginning) {
  const found = blocksOf(document).filter(({ text }) => beginning.test(text));
  assert.equal(found.length, 1, `${document} ${beginning}`);
  return found[0];
}

/** @param {string} document @param {string} text */
const isOther = (document, text) =>
  otherBlocks.some(([where, beginning]) => where === document && beginning.test(text));

// ---- the commands ----

for (const document of checkedDocuments) {
  test(`${document}: each command in a block is known and holds`, limits, () => {
    let count = 0;
    for (const { line, text, lines } of blocksOf(document)) {
      if (isOther(document, text)) continue;
      for (const command of lines.filter((one) => one !== "")) {
        // A line of text may follow behind several blanks.
        const bare = command.split(/ {2,}/)[0];
        assert.doesNotThrow(() => checkCommand(bare), `${document}:${line}: ${command}`);
        ++count;
      }
      // The pages are built by a target of their own.
      const webRoot = /build\/\w+\/web\b/.test(text);
      if (webRoot)
        assert.match(text, /velmora_pages/, `${document}:${line}: the block builds the pages that it uses`);
    }
    assert.ok(count > 0);
  });

  test(`${document}: each command within a line of text is known and holds`, limits, () => {
    const begins =
      /^(?:\.\/|node |cmake |ctest |clang-(?:format|tidy) |bench\/run|wine |build\/\w+\/velmora_|VELMORA_TARGET|export |reg .*(?:HKLM|\.reg)|net \w+ \w|velmora_bind_endpoint(?:\.exe)? |velmora_control_demo\.exe -)/;
    const placeholders = (command) => command.replace("--web-root FOLDER", "--web-root web");
    for (const command of inlineCode(readText(document)).filter((code) => begins.test(code))) {
      assert.doesNotThrow(() => checkCommand(placeholders(command)), `${document}: ${command}`);
    }
  });
}

test("every block that is no command is still in its document", () => {
  for (const [document, beginning] of otherBlocks)
    assert.ok(
      blocksOf(document).some(({ text }) => beginning.test(text)),
      `${document} ${beginning}`,
    );
});

test("./test and ./package refuse an option that they do not have, and name those that they have", () => {
  for (const script of ["./test", "./package"]) {
    const { status, stderr } = bash(`${script} --no-such-option`);
    assert.equal(status, 2);
    const named = [...stderr.matchAll(/\[(--[a-z-]+)/g)].map(([, option]) => option);
    assert.deepEqual(named.sort(), optionsOf(script).sort(), script);
  }
});

test("the packages are installed as the document says", () => {
  const folder = makeDirectory();
  // A machine that has nothing, and a root who installs: what would be installed is written down.
  for (const [name, script] of [
    ["dpkg-query", "exit 1"],
    ["id", "echo 0"],
    ["apt-get", `echo "$@" >>${folder}/called`],
  ]) {
    fs.writeFileSync(path.join(folder, name), `#!/bin/sh\n${script}\n`, { mode: 0o755 });
  }
  const { text } = blockOf("docs/developing.md", /^\. tools\/packages\.sh\n/);
  const more = /Add `([^`]+)`/.exec(proseOf(readText("docs/developing.md")))?.[1] ?? assert.fail();
  const { status, stderr } = bash(`${text} ${more}`, { PATH: `${folder}:${process.env.PATH}` });
  assert.equal(status, 0, stderr);
  const called = fs.readFileSync(path.join(folder, "called"), "utf8");
  for (const name of ["cmake", "googletest", "g++-mingw-w64-x86-64-posix"])
    assert.ok(called.includes(` ${name}`), name);
});

// ---- the session of ./run ----

test("./run does what README.md says", limits, async (t) => {
  const readme = readText("README.md");
  const command = inlineCode(readme).find((code) => /^\.\/run --port/.test(code)) ?? assert.fail();
  const port = await freePort();
  const words = command.replace(/--port \d+/, `--port ${port}`).split(" ");
  const mapping = uniqueMappingName();
  const env = { VELMORA_MACHINE: "", VELMORA_DRIVES: makeDirectory() };
  const run = new Program(words[0], [...words.slice(1), "--token", token, "--control-map", mapping], {
    cwd: root,
    env,
    ofSystem: true,
  });
  atEnd(t, () => (run.end ? undefined : run.stop()));
  await run.until(
    "the banner",
    () => (run.output.includes("Press Ctrl+C to stop.\n") ? true : undefined),
    120_000,
  );
  assert.match(run.output, new RegExp(`^ {2}Open: http://127\\.0\\.0\\.1:${port}/\\?token=${token}$`, "m"));

  await t.test("its first line is the command that moves the sound", () => {
    const [, move] = /^Sound: (.+) none\|default\|DEVICE\n/.exec(run.output) ?? assert.fail(run.output);
    const rows = tableRows(sectionOf(readme, "## The commands"));
    const documented = rows.flatMap(([option]) => /`--play (\w+)`/.exec(option)?.[1] ?? []);
    assert.deepEqual(documented, ["none", "DEVICE", "default"]);
    // The effect applies something while sound plays on its device, which is the default one.
    for (const device of documented.map((one) => one.replace("DEVICE", "Headphones"))) {
      const moved = bash(`${move} ${device}`);
      assert.equal(moved.status, 0, `${device}: ${moved.stderr}`);
    }
  });

  await t.test("what the page sends arrives at the test effect in the words of README.md", async () => {
    const peer = { port, token };
    const ask = (method, target, body) =>
      exchange(peer, requestBytes(peer, { method, target, body, headers: [["x-velmora-token", token]] }));
    assert.match(await ask("POST", "/api/v1/render/apo", '{"attach":true}'), /"bound":true/);
    await ask("PUT", "/api/v1/render/effects/footstep", '{"bypass":false,"enhance_strength":0.5}');
    await run.waitForLine(blockOf("README.md", /^applied word=/).text, 0, 60_000);
  });

  await t.test("Ctrl+C ends all programs", async () => {
    run.signal("SIGINT");
    assert.deepEqual(await run.waitForEnd(60_000), { code: 0, signal: null });
    assert.equal(bash(`pgrep -f -- '--control-map ${mapping.replace("\\", "..")}'`).stdout, "");
  });
});

// ---- the session with a machine file ----

test("the session with a machine file is as docs/linux-machine.md says", limits, () => {
  const folder = makeDirectory();
  const { lines } = blockOf("docs/linux-machine.md", /^cp tests\/machines/);
  const builds = lines.filter((line) => line.startsWith("cmake "));
  builds.forEach(checkCommand);
  const script = lines
    .filter((line) => !line.startsWith("cmake "))
    .map((line) => line.replaceAll("/tmp/", `${folder}/`))
    .map((line) => (line.startsWith("diff ") ? `! ${line}` : line));
  const { status, stdout, stderr } = bash(`set -e\n${script.join("\n")}`);
  assert.equal(status, 0, stderr);
  assert.equal([...stdout.matchAll(/^status 0x00000000$/gm)].length, 2, stdout);
  assert.match(
    stdout,
    /^> "\{d04e05a6-594b-4fb6-a80d-01af5eed7d1d\},14"=/m,
    "the difference shows the chain",
  );
});

test("the request of docs/linux-machine.md names an endpoint of the machine file", () => {
  const { text } = blockOf("docs/linux-machine.md", /^curl /);
  const body = JSON.parse(/'(\{"attach[^']+)'/.exec(text)?.[1] ?? assert.fail(text));
  assert.equal(body.attach, true);
  const guid = body.endpoint_id.slice(body.endpoint_id.indexOf(".{") + 1);
  assert.ok(readText("tests/machines/laptop.reg").includes(`\\Audio\\Render\\${guid}]`));
  assert.match(
    readText("src/api/routes.cpp"),
    new RegExp(`"POST", "${/http:\/\/[^/]+(\S+)/.exec(text)?.[1]}"`),
  );
});

// ---- the example of a route ----

test("the example of docs/developing.md compiles", limits, () => {
  const folder = makeDirectory();
  fs.mkdirSync(path.join(folder, "api"));
  const part = (beginning) => blockOf("docs/developing.md", beginning).text;
  const includes = [...proseOf(readText("docs/developing.md")).matchAll(/`(#include "[^`]+")`/g)].map(
    ([, one]) => `${one}\n`,
  );
  assert.equal(includes.length, 2);
  const end = "}  // namespace velmora";
  const header = readText("src/api/status_routes.h").replace(end, `${part(/^\/\/ GET/)}\n${end}`);
  const source = readText("src/api/status_routes.cpp").replace(end, `${part(/^void get_version/)}\n${end}`);
  const place = "  write_route_not_found(socket);\n}";
  const routes = readText("src/api/routes.cpp").replace(place, `  ${part(/^if \(matches/)}\n${place}`);
  const lastOf = "}  // namespace\n}  // namespace velmora";
  const tests = readText("tests/unit/api/routes_test.cpp").replace(lastOf, `${part(/^TEST_F/)}\n${lastOf}`);
  assert.ok([header, source, routes, tests].every((one) => /get_version|ShowTheVersion/.test(one)));
  assert.ok(part(/^TEST_F/).includes(tutorialTest.replace(".", ", ")));
  const write = (name, text) => fs.writeFileSync(path.join(folder, name), text);
  write("api/status_routes.h", header);
  write("status_routes.cpp", source.replace("#include", `${includes.join("")}#include`));
  write("routes.cpp", routes);
  write("routes_test.cpp", tests);
  const flags = [
    "-std=c++20",
    "-fsyntax-only",
    "-Wall",
    "-Wextra",
    "-Werror",
    `-I${folder}`,
    `-I${root}/src`,
    `-I${root}/tests`,
    "-I/usr/src/googletest/googletest/include",
  ];
  const files = ["status_routes.cpp", "routes.cpp", "routes_test.cpp"].map((name) => path.join(folder, name));
  const compiled = spawnSync("g++", [...flags, ...files], { encoding: "utf8" });
  assert.equal(compiled.stderr, "");
  assert.equal(compiled.status, 0);
});

// ---- the tables of README.md ----

const firstCells = (/** @type {string} */ heading, /** @type {RegExp} */ form) =>
  tableRows(sectionOf(readText("README.md"), heading)).flatMap((cells) => {
    const found = form.exec(cells[0]);
    return found === null ? [] : [{ found: found[1], text: cells.slice(1).join(" ") }];
  });

test("the table of options is the usage line of the service", () => {
  const rows = firstCells("## Options", /^`(--[^`]+)`$/);
  const inUsage = serviceOptions.map((option) => option.replace("Local\\NAME|Global\\NAME", "NAME"));
  assert.deepEqual(
    rows.map(({ found }) => found),
    inUsage,
  );
  const mapping = rows.find(({ found }) => found.startsWith("--control-map"));
  assert.match(mapping?.text ?? "", /`Local\\NAME` or `Global\\NAME`/);
  const defaultPort = /port = (\d+);/.exec(readText("src/service/options.h"))?.[1];
  assert.match(rows[0].text, new RegExp(`\\b${defaultPort} by default`));
});

// Each table of exit codes, and the header that defines them.
const exitCodeTables = [["## Exit codes", "src/service/exit_codes.h"]];

test("each table of exit codes is that of its program", () => {
  for (const [heading, header] of exitCodeTables) {
    const documented = firstCells(heading, /^([0-9, ]+)$/).flatMap(({ found }) =>
      found.split(", ").map(Number),
    );
    const codes = [...readText(header).matchAll(/^ +\w+ = (\d+),/gm)].map(([, code]) => Number(code));
    assert.ok(codes.length > 5);
    assert.deepEqual(documented, codes, heading);
  }
});

test("the table of ./run has the options of ./run", () => {
  const documented = firstCells("## The commands", /^`(--[a-z-]+)[^`]*`$/).map(({ found }) => found);
  const own = optionsOf("run");
  assert.ok(own.length > 0);
  assert.deepEqual([...new Set(documented)].sort(), own.sort());
  const above = readText("run").slice(0, readText("run").indexOf("set -u"));
  assert.deepEqual([...above.matchAll(/^# {3}(--[a-z-]+)/gm)].map(([, option]) => option).sort(), own.sort());
});

test("the steps for Windows name the files of the archive and the words of the page", () => {
  const steps = sectionOf(readText("README.md"), "## Five minutes to first sound on Windows");
  for (const [, name] of steps.matchAll(/`(\w+\.(?:cmd|txt))`/g)) assert.ok(exists(`release/${name}`), name);
  assert.ok(steps.includes("`start.cmd`") && steps.includes("`stop.cmd`"));
  const texts = readText("web/src/texts/en.js");
  const onPage = [...proseOf(steps).matchAll(/(?:Click|page says:?) "([^"]+)"/g)].map(([, words]) => words);
  assert.ok(onPage.length > 0);
  for (const words of onPage) assert.ok(texts.includes(`"${words}"`), words);
});
