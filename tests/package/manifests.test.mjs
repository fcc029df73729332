// The manifests for the two package managers: `--url` renders them for the archive of the same run.
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import fs from "node:fs";
import { join } from "node:path";
import { test } from "node:test";

import { parse } from "yaml";

import { archiveName, filesBelow, folder, makePackage, runPackage, sha256, version } from "./package.mjs";

const url = `https://downloads.example.org:8443/velmora/${version}/${archiveName}`;
const time = 1_700_000_000;
const output = makePackage(["--url", url], { env: { SOURCE_DATE_EPOCH: String(time) } });
const digest = sha256(fs.readFileSync(join(output, archiveName)));
const identifier = "Velmora.Velmora";
const entries = execFileSync("unzip", ["-Z1", join(output, archiveName)], { encoding: "utf8" }).split("\n");

/** @param {string} name */
const read = (name) => fs.readFileSync(join(output, name), "utf8");

/** @param {string} name */
const yaml = (name) => parse(read(name), { strict: true, uniqueKeys: true, version: "1.2" });

test("the manifests are beside the archive, and nothing else", () => {
  assert.deepEqual(filesBelow(output), [
    "scoop/velmora.json",
    archiveName,
    `${archiveName}.sha256`,
    `winget/${identifier}.installer.yaml`,
    `winget/${identifier}.locale.en-US.yaml`,
    `winget/${identifier}.yaml`,
  ]);
});

test("the three winget files name each other", () => {
  for (const [name, type] of [
    ["", "version"],
    [".installer", "installer"],
    [".locale.en-US", "defaultLocale"],
  ]) {
    const document = yaml(`winget/${identifier}${name}.yaml`);
    const { PackageIdentifier, PackageVersion, ManifestType, ManifestVersion } = document;
    assert.deepEqual(
      { PackageIdentifier, PackageVersion, ManifestType, ManifestVersion },
      {
        PackageIdentifier: identifier,
        PackageVersion: version,
        ManifestType: type,
        ManifestVersion: "1.10.0",
      },
    );
  }
  assert.deepEqual(yaml(`winget/${identifier}.yaml`).DefaultLocale, "en-US");
});

test("winget: a portable program inside the archive, on the PATH with its folder", () => {
  const document = yaml(`winget/${identifier}.installer.yaml`);
  assert.equal(document.InstallerType, "zip");
  assert.equal(document.NestedInstallerType, "portable");
  assert.equal(document.ArchiveBinariesDependOnPath, true);
  assert.deepEqual(document.NestedInstallerFiles, [
    { RelativeFilePath: `${folder}\\velmora.exe`, PortableCommandAlias: "velmora" },
  ]);
  assert(entries.includes(document.NestedInstallerFiles[0].RelativeFilePath.replace("\\", "/")));
  assert.deepEqual(document.Installers, [
    { Architecture: "x64", InstallerUrl: url, InstallerSha256: digest.toUpperCase() },
  ]);
  // Text, not a date or a number: winget compares versions as text.
  assert.equal(document.ReleaseDate, "2023-11-14");
  assert.equal(document.MinimumOSVersion, "10.0.18362.0");
});

test("winget: the texts that a person sees", () => {
  const document = yaml(`winget/${identifier}.locale.en-US.yaml`);
  for (const [field, most] of /** @type {const} */ ([
    ["Publisher", 256],
    ["PackageName", 256],
    ["License", 512],
    ["ShortDescription", 256],
    ["Description", 10_000],
    ["InstallationNotes", 10_000],
  ])) {
    assert.equal(typeof document[field], "string");
    assert(document[field].length >= 3 && document[field].length <= most, field);
  }
  assert.equal(document.PackageLocale, "en-US");
});

test("Scoop: the archive, its folder, and two shortcuts to files in it", () => {
  const document = JSON.parse(read("scoop/velmora.json"));
  assert.equal(document.version, version);
  assert.deepEqual(document.architecture, { "64bit": { url, hash: digest } });
  assert.equal(document.extract_dir, folder);
  assert.deepEqual(
    document.shortcuts.map((/** @type {string[]} */ [file]) => file),
    ["start.cmd", "stop.cmd"],
  );
  for (const name of [
    document.bin,
    ...document.shortcuts.flatMap((/** @type {string[]} */ row) => [row[0], row[3]]),
  ]) {
    assert(entries.includes(`${folder}/${name}`), name);
  }
  assert.equal(document.homepage, "https://downloads.example.org:8443/");
  for (const field of ["description", "license", "notes"]) assert(document[field].length > 2, field);
  assert.equal(document.pre_uninstall, '& "$dir\\velmora.exe" stop | Out-Null');
});

test("the manifests end with a line feed and hold no carriage return", () => {
  for (const name of filesBelow(output).filter((file) => /yaml$|json$/.test(file))) {
    assert.match(read(name), /^[^\r]*[^\n]\n$/);
  }
});

test("a run without --url removes manifests of an earlier one: their checksum may be of another archive", () => {
  fs.writeFileSync(join(output, "winget/notes.txt"), "mine");
  const { code, errors } = runPackage(["--output", output]);
  assert.equal(code, 0, errors);
  assert.deepEqual(filesBelow(output), [archiveName, `${archiveName}.sha256`, "winget/notes.txt"]);
});
