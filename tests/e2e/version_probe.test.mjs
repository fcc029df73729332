// The algorithm's version in the banner comes from the library beside the program, wherever that is.
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import fs from "node:fs";
import path from "node:path";
import test from "node:test";

import { buildDirectory, creatingService, isNative, makeDirectory, startService } from "./harness.mjs";

// A copy of the program in a directory of its own, with whatever `furnish` puts beside it.
function copyProgram(furnish, directoryName) {
  const directory = makeDirectory(directoryName);
  const copy = path.join(directory, path.basename(creatingService()));
  fs.copyFileSync(creatingService(), copy);
  fs.chmodSync(copy, 0o755);
  furnish(path.join(directory, "fse.dll"));
  return copy;
}

function builtLibrary(name) {
  return path.join(buildDirectory, "programs", name, "fse.dll");
}

test(
  "the banner names the version of the algorithm library",
  { timeout: 60_000, concurrency: 2 },
  async (t) => {
    /** @type {any[][]} */
    const rows = [
      [
        "a library that gives its version",
        "3.2.1",
        (file) => fs.copyFileSync(builtLibrary("versioned"), file),
      ],
      [
        "a library without the function",
        "unknown",
        (file) => fs.copyFileSync(builtLibrary("unversioned"), file),
      ],
      [
        "a file that is no library",
        "unavailable",
        (file) => fs.writeFileSync(file, "no library at all\n".repeat(99)),
      ],
      ["an empty file", "unavailable", (file) => fs.writeFileSync(file, "")],
      ["a directory", "not found", (file) => fs.mkdirSync(file)],
      ["nothing", "not found", () => {}],
      [
        "a library in a directory named Prüfung 試",
        "3.2.1",
        (file) => fs.copyFileSync(builtLibrary("versioned"), file),
      ],
    ];
    // Windows keeps its pipes in no directory, so that none can lie beside the program there.
    if (isNative) {
      rows.push(["a pipe that nobody writes to", "unavailable", (file) => execFileSync("mkfifo", [file])]);
    }
    await Promise.all(
      rows.map(([what, version, furnish]) =>
        t.test(`${what} gives ${version}`, async (row) => {
          const program = copyProgram(furnish, /named (.*)$/.exec(what)?.[1]);
          const service = await startService(row, { program });
          assert.equal(service.algorithm, version);
          await service.assertAnswers();
          await service.stop();
        }),
      ),
    );
  },
);

test("a library in the working directory is not looked at", { timeout: 60_000 }, async (t) => {
  const cwd = makeDirectory();
  fs.copyFileSync(builtLibrary("versioned"), path.join(cwd, "fse.dll"));
  const service = await startService(t, { program: copyProgram(() => {}), cwd });
  assert.equal(service.algorithm, "not found");
});
