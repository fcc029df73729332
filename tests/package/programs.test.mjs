// The two programs as files: what Windows reads of them before they run.
import assert from "node:assert/strict";
import fs from "node:fs";
import { join } from "node:path";
import { test } from "node:test";

import { Format, NtExecutable, NtExecutableResource } from "pe-library";
import { Resource } from "resedit";

import { archiveName, makePackage, programs, root, unpack, version } from "./package.mjs";

const contents = unpack(join(makePackage(), archiveName));
const descriptions = {
  "velmora.exe": "Velmora command line",
  "velmora_control_demo.exe": "Velmora control service",
};
const [english, unicode] = [0x409, 1200];
// DLLs that Windows loads from its own folder only.
const systemLibraries = [
  "advapi32.dll",
  "kernel32.dll",
  "msvcrt.dll",
  "ole32.dll",
  "shell32.dll",
  "ws2_32.dll",
];
const [iconType, versionType, iconGroupType, manifestType] = [3, 16, 14, 24];

/** @param {string} name */
function read(name) {
  const bytes = fs.readFileSync(join(contents, name));
  const program = NtExecutable.from(bytes);
  return { bytes, program, entries: NtExecutableResource.from(program).entries };
}

/** The names in the import table. @param {NtExecutable} program */
function importsOf(program) {
  const section = program.getSectionByEntry(Format.ImageDirectoryEntry.Import);
  assert(section?.data, "the program has imports");
  const bytes = Buffer.from(section.data);
  const start = section.info.virtualAddress;
  const table = program.newHeader.optionalHeaderDataDirectory.get(
    Format.ImageDirectoryEntry.Import,
  ).virtualAddress;
  const names = [];
  for (let at = table - start; bytes.readUInt32LE(at + 12) !== 0; at += 20) {
    const name = bytes.readUInt32LE(at + 12) - start;
    names.push(bytes.toString("latin1", name, bytes.indexOf(0, name)).toLowerCase());
  }
  return names;
}

for (const name of programs) {
  test(`${name}: a console program for 64-bit Windows`, () => {
    const { fileHeader, optionalHeader } = read(name).program.newHeader;
    assert.equal(fileHeader.machine, 0x8664);
    assert.equal(optionalHeader.magic, 0x20b);
    assert.equal(optionalHeader.subsystem, 3);
  });

  test(`${name}: ASLR with high entropy, no executable data`, () => {
    const { program } = read(name);
    const { fileHeader, optionalHeader } = program.newHeader;
    const [highEntropy, dynamicBase, noExecute] = [0x20, 0x40, 0x100];
    assert.equal(optionalHeader.dllCharacteristics, highEntropy | dynamicBase | noExecute);
    const relocationsStripped = 1;
    assert.equal(fileHeader.characteristics & relocationsStripped, 0);
    assert(program.getSectionByEntry(Format.ImageDirectoryEntry.BaseRelocation)?.data, "it can be moved");
    assert("imageBaseBigInt" in optionalHeader);
    assert(optionalHeader.imageBaseBigInt > 0xffffffffn, "its address has more than 32 bits");
    const [execute, write] = [0x20000000, 0x80000000];
    const loose = program
      .getAllSections()
      .filter(({ info }) => info.characteristics & execute && info.characteristics & write);
    assert.deepEqual(loose, []);
  });

  test(`${name}: no symbols, and small`, () => {
    const { bytes, program } = read(name);
    assert.equal(program.newHeader.fileHeader.numberOfSymbols, 0);
    assert.equal(program.newHeader.fileHeader.pointerToSymbolTable, 0);
    assert.equal(
      program.newHeader.optionalHeaderDataDirectory.get(Format.ImageDirectoryEntry.Debug).virtualAddress,
      0,
    );
    assert.deepEqual(
      program.getAllSections().filter(({ info }) => /debug|^\//.test(info.name)),
      [],
    );
    assert(bytes.length < 2_097_152, `${bytes.length} bytes`);
  });

  test(`${name}: imports only what Windows loads from its own folder`, () => {
    const imports = importsOf(read(name).program);
    assert(imports.includes("kernel32.dll"));
    assert.deepEqual(
      imports.filter((library) => !systemLibraries.includes(library)),
      [],
    );
  });

  test(`${name}: the manifest`, () => {
    const manifests = read(name).entries.filter(({ type }) => type === manifestType);
    assert.deepEqual(
      manifests.map(({ id }) => id),
      [1],
    );
    const text = Buffer.from(manifests[0].bin).toString("utf8");
    assert.equal(text, fs.readFileSync(join(root, "src/platform/windows/program.manifest"), "utf8"));
    assert.match(text, /<requestedExecutionLevel level="asInvoker" uiAccess="false"\/>/);
    assert.match(text, /<activeCodePage xmlns="[^"]+\/2019\/WindowsSettings">UTF-8<\/activeCodePage>/);
    assert.match(text, /<longPathAware xmlns="[^"]+\/2016\/WindowsSettings">true<\/longPathAware>/);
    assert.match(text, /<supportedOS Id="\{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a\}"\/>/);
  });

  test(`${name}: the version is the service's`, () => {
    const { entries } = read(name);
    assert.equal(entries.filter(({ type }) => type === versionType).length, 1);
    const [information] = Resource.VersionInfo.fromEntries(entries);
    assert.deepEqual(
      { ...information.getStringValues({ lang: english, codepage: unicode }) },
      {
        FileDescription: descriptions[/** @type {"velmora.exe"} */ (name)],
        FileVersion: version,
        InternalName: name.replace(".exe", ""),
        OriginalFilename: name,
        ProductName: "Velmora",
        ProductVersion: version,
      },
    );
    const [major, minor, patch] = version.split(".").map(Number);
    const { fileVersionMS, fileVersionLS, productVersionMS, productVersionLS } = information.fixedInfo;
    const numbers = [major * 65536 + minor, patch * 65536];
    assert.deepEqual([fileVersionMS, fileVersionLS], numbers);
    assert.deepEqual([productVersionMS, productVersionLS], numbers);
  });

  test(`${name}: the icon, in each size that Windows shows`, () => {
    const { entries } = read(name);
    assert.equal(entries.filter(({ type }) => type === iconGroupType).length, 1);
    const [group] = Resource.IconGroupEntry.fromEntries(entries);
    const sizes = group.icons.map(({ width, height, bitCount }) => [width || 256, height || 256, bitCount]);
    assert.deepEqual(
      sizes.sort((one, other) => one[0] - other[0]),
      [16, 24, 32, 48, 64, 256].map((size) => [size, size, 32]),
    );
    for (const { width, iconID, dataSize } of group.icons) {
      const picture = entries.find(({ type, id }) => type === iconType && id === iconID);
      assert(picture, `the picture of ${width || 256}`);
      assert.equal(picture.bin.byteLength, dataSize);
      const isCompressed = Buffer.from(picture.bin).toString("latin1", 1, 4) === "PNG";
      assert.equal(isCompressed, (width || 256) === 256);
    }
  });
}
