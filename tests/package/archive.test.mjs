// What is in the archive: nothing more and nothing less, and each part says what it should.
import assert from "node:assert/strict";
import { execFileSync, spawnSync } from "node:child_process";
import fs from "node:fs";
import { homedir } from "node:os";
import { join } from "node:path";
import { test } from "node:test";

import * as CycloneDX from "@cyclonedx/cyclonedx-library";

import {
  archiveName,
  filesBelow,
  folder,
  makePackage,
  programs,
  root,
  sha256,
  unpack,
  version,
} from "./package.mjs";

const output = makePackage();
const archive = join(output, archiveName);
const contents = unpack(archive);
const files = [
  "LICENSES/GPL-3.txt",
  "LICENSES/README.txt",
  "LICENSES/gcc.txt",
  "LICENSES/htm.txt",
  "LICENSES/mingw-w64.txt",
  "LICENSES/preact.txt",
  "README.txt",
  "README.zh-CN.txt",
  "SHA256SUMS",
  "sbom.cdx.json",
  "start.cmd",
  "stop.cmd",
  "velmora.exe",
  "velmora_control_demo.exe",
  "web/advanced.html",
  "web/help.html",
  "web/index.html",
  "web/velmora-eq.js",
];

/** @param {string} name */
const read = (name) => fs.readFileSync(join(contents, name));

/** Entries of the archive's central directory, read without a tool. @param {Buffer} bytes */
function entriesOf(bytes) {
  const end = bytes.length - 22;
  assert.equal(bytes.readUInt32LE(end), 0x06054b50, "the archive has no comment");
  const entries = [];
  let at = bytes.readUInt32LE(end + 16);
  for (let left = bytes.readUInt16LE(end + 10); left > 0; left--) {
    assert.equal(bytes.readUInt32LE(at), 0x02014b50);
    const [name, extra, comment] = [28, 30, 32].map((offset) => bytes.readUInt16LE(at + offset));
    const local = bytes.readUInt32LE(at + 42);
    entries.push({
      name: bytes.toString("latin1", at + 46, at + 46 + name),
      extra: extra + bytes.readUInt16LE(local + 28),
      comment,
      mode: bytes.readUInt32LE(at + 38) >>> 16,
    });
    at += 46 + name + extra + comment;
  }
  return entries;
}

test("the archive holds these files in one folder, sorted, without extra fields", () => {
  const entries = entriesOf(fs.readFileSync(archive));
  assert.deepEqual(
    entries,
    files.map((name) => ({ name: `${folder}/${name}`, extra: 0, comment: 0, mode: 0o100644 })),
  );
  assert.deepEqual(filesBelow(contents), files);
});

test("nothing else is beside the archive", () => {
  assert.deepEqual(fs.readdirSync(output), [archiveName, `${archiveName}.sha256`]);
});

test("the checksum beside the archive is the archive's", () => {
  const said = execFileSync("sha256sum", ["--strict", "--check", `${archiveName}.sha256`], {
    cwd: output,
    encoding: "utf8",
  });
  assert.equal(said, `${archiveName}: OK\n`);
});

test("SHA256SUMS names every other file, with its checksum", () => {
  const wanted = files
    .filter((name) => name !== "SHA256SUMS")
    .map((name) => `${sha256(read(name))}  ${name}\n`);
  assert.equal(read("SHA256SUMS").toString(), wanted.join(""));
  execFileSync("sha256sum", ["--strict", "--quiet", "--check", "SHA256SUMS"], { cwd: contents });
});

test("the programs are the built ones, stripped; the pages are the built ones", () => {
  for (const name of programs) {
    // A section's code is the same before and after.
    const code = [join(contents, name), join(root, "build/windows", name)].map((file) => {
      execFileSync("x86_64-w64-mingw32-objcopy", ["-O", "binary", "-j", ".text", file, join(output, "code")]);
      const digest = sha256(fs.readFileSync(join(output, "code")));
      fs.rmSync(join(output, "code"));
      return digest;
    });
    assert.equal(code[0], code[1]);
  }
  for (const name of files.filter((file) => file.startsWith("web/"))) {
    assert.deepEqual(read(name), fs.readFileSync(join(root, "build/windows", name)));
  }
});

for (const name of ["README.txt", "README.zh-CN.txt"]) {
  test(`${name}: UTF-8 with a mark, CR LF, the version, short lines`, () => {
    const bytes = read(name);
    assert.deepEqual([...bytes.subarray(0, 3)], [0xef, 0xbb, 0xbf]);
    const text = new TextDecoder("utf-8", { fatal: true, ignoreBOM: true }).decode(bytes.subarray(3));
    assert(!text.includes("\ufeff"), "one mark only");
    assert.deepEqual(text.replaceAll("\r\n", "").match(/[\r\n]/g), null);
    assert(text.endsWith("\r\n"));
    assert(text.startsWith(`Velmora ${version}`));
    assert(text.includes(archiveName), "how to check the download");
    assert(!text.includes("{{"), "everything is filled in");
    for (const line of text.split("\r\n")) {
      // A Chinese letter is two columns wide.
      assert([...line].reduce((width, letter) => width + (letter > "\u2e80" ? 2 : 1), 0) <= 100, line);
    }
  });

  test(`${name}: names every file beside it, and no other`, () => {
    const text = read(name).toString();
    const top = new Set(files.map((file) => file.split("/")[0]));
    for (const file of top) {
      if (file !== name) assert(text.includes(file), file);
    }
    // The service writes it into the user's folder.
    const elsewhere = "run.json";
    for (const file of text.match(/\b[\w.-]+\.(cmd|exe|txt|json)\b/g) ?? [])
      assert(top.has(file) || file === elsewhere, file);
  });
}

test("both readme files quote the buttons as the pages show them", async () => {
  const { en } = await import("../../web/src/texts/en.js");
  const { zh } = await import("../../web/src/texts/zh.js");
  const keys = [
    "button.add",
    "button.turnOn",
    "verdict.works",
    "devices.title",
    "devices.remove",
    "devices.withEffect",
  ];
  for (const [name, texts] of /** @type {const} */ ([
    ["README.txt", en],
    ["README.zh-CN.txt", zh],
  ])) {
    const text = read(name)
      .toString()
      .replace(/\s+/g, name.includes("zh") ? "" : " ");
    for (const key of keys) {
      const label = /** @type {Record<string, string>} */ (texts)[key].replace(
        /\s+/g,
        name.includes("zh") ? "" : " ",
      );
      assert(text.includes(label), `${name} quotes ${label}`);
    }
  }
});

for (const name of ["start.cmd", "stop.cmd"]) {
  test(`${name}: ASCII, CR LF, no mark`, () => {
    const text = read(name).toString("latin1");
    assert.match(text, /^@echo off\r\n/);
    assert.match(text, /^[\x20-\x7e\r\n]*$/);
    assert.deepEqual(text.replaceAll("\r\n", "").match(/[\r\n]/g), null);
  });
}

test("each component has its license text, and the guide names it", () => {
  const guide = read("LICENSES/README.txt").toString();
  const bill = JSON.parse(read("sbom.cdx.json").toString());
  for (const { name, version: componentVersion } of bill.components) {
    assert(guide.includes(`${name} ${componentVersion}\r\n`), name);
  }
  const named = [...guide.matchAll(/^ {2}text {5}(.*)\r$/gm)].flatMap(([, texts]) => texts.split(", "));
  const texts = files.filter((name) => /^LICENSES\/(?!README)/.test(name)).map((name) => name.slice(9));
  assert.deepEqual([...new Set(named)].sort(), texts);
  const marks = {
    "GPL-3.txt": "GNU GENERAL PUBLIC LICENSE\n                       Version 3",
    "gcc.txt": "GCC RUNTIME LIBRARY EXCEPTION",
    "htm.txt": "Apache License",
    "mingw-w64.txt": "Files: mingw-w64-libraries/winpthreads/*",
    "preact.txt": "The MIT License (MIT)",
  };
  for (const name of texts) {
    assert(read(`LICENSES/${name}`).includes(marks[/** @type {"gcc.txt"} */ (name)]), name);
  }
});

test("the bill of materials is valid CycloneDX and names all that is linked or bundled", async () => {
  const text = read("sbom.cdx.json").toString();
  const validator = new CycloneDX.Validation.JsonStrictValidator(CycloneDX.Spec.Version.v1dot6);
  assert.equal(await validator.validate(text), null);
  // The validator itself is able to refuse.
  assert.notEqual(await validator.validate(text.replace('"library"', '"lib"')), null);
  const bill = JSON.parse(text);
  assert.equal(bill.metadata.component.version, version);
  /** @param {string} debianPackage */
  const installed = (debianPackage) =>
    // eslint-disable-next-line no-template-curly-in-string -- dpkg-query fills it in
    execFileSync("dpkg-query", ["-W", "-f", "${Version}", debianPackage], { encoding: "utf8" });
  const libraries = JSON.parse(fs.readFileSync(join(root, "web/package-lock.json"), "utf8")).packages;
  const gcc = installed("gcc-mingw-w64-x86-64-posix");
  const runtime = installed("mingw-w64-x86-64-dev");
  const found = bill.components.map(
    (/** @type {any} */ { name, version: componentVersion, purl, licenses }) => {
      assert.match(purl, /^pkg:(deb\/debian|npm)\//);
      assert.equal(licenses.length, 1);
      return `${name} ${componentVersion}`;
    },
  );
  assert.deepEqual(found, [
    `htm ${libraries["node_modules/htm"].version}`,
    `libgcc ${gcc}`,
    `libstdc++ ${gcc}`,
    `mingw-w64-runtime ${runtime}`,
    `preact ${libraries["node_modules/preact"].version}`,
    `winpthreads ${runtime}`,
  ]);
  assert.equal(Object.keys(libraries).length, 3, "the pages' own entry and two libraries");
  const [whole] = bill.dependencies.filter((/** @type {any} */ { ref }) => ref === "velmora");
  assert.equal(whole.dependsOn.length, bill.components.length);
});

/** The archives of others from which the linker takes anything for a program. @param {string} program */
function archivesLinkedInto(program) {
  const commands = execFileSync("ninja", ["-C", "build/windows", "-t", "commands", "-s", program], {
    cwd: root,
    encoding: "utf8",
  });
  const link = commands.trim().split("\n").at(-1) ?? "";
  const command = link.replace(/-o \S+\.exe/, `-o ${join(output, "traced.exe")} -Wl,--trace`);
  assert.notEqual(command, link);
  const { stdout, stderr, status } = spawnSync("bash", ["-c", command], {
    cwd: join(root, "build/windows"),
    encoding: "utf8",
  });
  assert.equal(status, 0, stderr);
  for (const name of fs.readdirSync(output).filter((file) => file.startsWith("traced"))) {
    fs.rmSync(join(output, name));
  }
  const lines = `${stdout}\n${stderr}`.split("\n");
  return [...new Set(lines.map((line) => /^\/\S+/.exec(line)?.[0].replace(/[(:].*/, "") ?? ""))].filter(
    (file) => file !== "" && !file.startsWith(root) && !file.startsWith("/tmp/"),
  );
}

test("the linker takes nothing from packages that the bill does not name", () => {
  const bill = JSON.parse(read("sbom.cdx.json").toString());
  const named = bill.components.map((/** @type {any} */ { purl }) =>
    decodeURIComponent(purl.replace(/^pkg:\w+\/(debian\/)?/, "").replace(/@.*/, "")),
  );
  for (const program of programs) {
    const taken = archivesLinkedInto(program).map((file) => fs.realpathSync(file));
    assert(
      taken.some((file) => file.endsWith("libstdc++.a")),
      taken.join("\n"),
    );
    const owners = execFileSync("dpkg", ["-S", ...taken], { encoding: "utf8" })
      .trim()
      .split("\n");
    assert.equal(owners.length, new Set(taken).size);
    for (const line of owners) assert(named.includes(line.split(":")[0]), line);
  }
});

/** The hosts that this machine installs packages from, as npm and apt are set up. */
function packageHosts() {
  const registry = execFileSync("npm", ["config", "get", "registry"], { cwd: root, encoding: "utf8" });
  const lists = [
    "/etc/apt/sources.list",
    ...fs.readdirSync("/etc/apt/sources.list.d").map((name) => `/etc/apt/sources.list.d/${name}`),
  ];
  const texts = lists.filter((file) => fs.existsSync(file)).map((file) => fs.readFileSync(file, "utf8"));
  return [registry, ...texts].flatMap((text) =>
    [...text.matchAll(/https?:\/\/([^/\s]+)/g)].map(([, host]) => host),
  );
}

test("no file holds a path of this machine or the address of a package host", () => {
  const hosts = packageHosts();
  assert.notEqual(hosts.length, 0);
  const forbidden = [root.replace(/\/$/, ""), ...hosts];
  if (homedir() !== "/") forbidden.push(`${homedir()}/`);
  for (const name of files) {
    const bytes = read(name);
    const wide = Buffer.from(bytes.toString("latin1").replaceAll("\0", ""), "latin1");
    const ours = name.startsWith("LICENSES/") ? [] : [".cpp", "/usr/"];
    for (const text of [...forbidden, ...ours]) {
      assert(!bytes.includes(text) && !wide.includes(text), `${name} holds ${text}`);
    }
  }
});
