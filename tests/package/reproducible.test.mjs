// The archive is the same, byte for byte, whoever builds it and wherever.
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import fs from "node:fs";
import { dirname, join } from "node:path";
import { test } from "node:test";

import { archiveName, filesBelow, makeDirectory, makePackage, root, sha256, unpack } from "./package.mjs";

/** Copies the tracked files, without the history. The npm packages are tools, so they are shared. */
function copyTree() {
  const tree = makeDirectory("another folder, of another length");
  const names = execFileSync("git", ["ls-files", "-z", "--cached", "--others", "--exclude-standard"], {
    cwd: root,
    encoding: "utf8",
  });
  for (const name of names.split("\0").filter((file) => file !== "" && fs.existsSync(join(root, file)))) {
    fs.mkdirSync(dirname(join(tree, name)), { recursive: true });
    fs.copyFileSync(join(root, name), join(tree, name));
  }
  for (const directory of [".", "web"]) {
    execFileSync("cp", ["-a", join(root, directory, "node_modules"), join(tree, directory, "node_modules")]);
    fs.utimesSync(join(tree, directory, "node_modules/.package-lock.json"), new Date(), new Date());
  }
  return tree;
}

test("two trees in different folders give the same archive", { timeout: 1_200_000 }, () => {
  const time = execFileSync("git", ["log", "-1", "--format=%ct"], { cwd: root, encoding: "utf8" }).trim();
  const own = makePackage();
  // No cache of compiled files, another time zone, language and default permission.
  const copy = makePackage([], {
    tree: copyTree(),
    env: { CCACHE_DISABLE: "1", SOURCE_DATE_EPOCH: time, TZ: "Asia/Shanghai", LC_ALL: "C", LANGUAGE: "de" },
  });
  const digest = (/** @type {string} */ output) => {
    const contents = unpack(join(output, archiveName));
    return filesBelow(contents).map((name) => `${sha256(fs.readFileSync(join(contents, name)))} ${name}`);
  };
  assert.deepEqual(digest(copy), digest(own));
  assert.deepEqual(fs.readFileSync(join(copy, archiveName)), fs.readFileSync(join(own, archiveName)));
});

test("the time of the release is in the archive, and nothing else of the machine's time", () => {
  const env = { SOURCE_DATE_EPOCH: "1700000000", TZ: "America/New_York" };
  const [one, other] = [makePackage([], { env }), makePackage([], { env: { ...env, TZ: "UTC" } })];
  const listing = execFileSync("unzip", ["-lv", join(one, archiveName)], { encoding: "utf8" });
  const times = listing.match(/\d{4}-\d\d-\d\d \d\d:\d\d/g) ?? [];
  assert.deepEqual([...new Set(times)], ["2023-11-14 22:13"]);
  assert.deepEqual(fs.readFileSync(join(one, archiveName)), fs.readFileSync(join(other, archiveName)));
});
