// Runs ./package as a person does, and opens what it writes.
import assert from "node:assert/strict";
import { execFileSync, spawnSync } from "node:child_process";
import { createHash } from "node:crypto";
import fs from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { after } from "node:test";
import { fileURLToPath } from "node:url";

export const root = fileURLToPath(new URL("../..", import.meta.url));
export const version = String(
  /application_version = "([^"]+)"/.exec(fs.readFileSync(join(root, "src/base/version.h"), "utf8"))?.[1],
);
export const folder = `velmora-${version}`;
export const archiveName = `${folder}-windows-x64.zip`;
export const programs = ["velmora.exe", "velmora_control_demo.exe"];

/** @type {string[]} */
const directories = [];
after(() => {
  for (const directory of directories) fs.rmSync(directory, { recursive: true, force: true });
});

/** A folder that goes with the tests of this file. @param {string} [name] a further folder inside it */
export function makeDirectory(name = "") {
  const directory = fs.mkdtempSync(join(tmpdir(), "velmora-package-"));
  directories.push(directory);
  fs.mkdirSync(join(directory, name), { recursive: true });
  return join(directory, name);
}

/**
 * @param {string[]} args
 * @param {{ tree?: string, env?: Record<string, string | undefined> }} [options]
 */
export function runPackage(args, { tree = root, env = {} } = {}) {
  const result = spawnSync("./package", args, {
    cwd: tree,
    env: { ...process.env, ...env },
    encoding: "utf8",
    timeout: 900_000,
  });
  return { code: result.status, said: result.stdout, errors: result.stderr };
}

/** Writes the archive into a folder. @param {string[]} args @param {{ tree?: string, env?: Record<string, string | undefined> }} [options] */
export function makePackage(args = [], options = {}) {
  const output = makeDirectory();
  const { code, errors } = runPackage(["--output", output, ...args], options);
  assert.equal(code, 0, errors);
  return output;
}

/** Unpacks an archive. @param {string} archive @param {string} [into] @returns {string} the folder inside */
export function unpack(archive, into = makeDirectory()) {
  execFileSync("unzip", ["-q", archive, "-d", into], { env: { ...process.env, LC_ALL: "C.UTF-8" } });
  return join(into, folder);
}

/** All files below a folder, sorted, with forward slashes. @param {string} directory @returns {string[]} */
export function filesBelow(directory) {
  return fs
    .readdirSync(directory, { withFileTypes: true })
    .flatMap((entry) =>
      entry.isDirectory()
        ? filesBelow(join(directory, entry.name)).map((name) => `${entry.name}/${name}`)
        : [entry.name],
    )
    .sort();
}

/** @param {string | Buffer} bytes */
export const sha256 = (bytes) => createHash("sha256").update(bytes).digest("hex");
