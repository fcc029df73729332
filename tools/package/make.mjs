// Packs what has been built: node tools/package/make.mjs VERSION BUILD OUTPUT WORK URL
//
// URL may be empty. ./package has checked the arguments; SOURCE_DATE_EPOCH is the time of the release. WORK is a folder
// inside OUTPUT that this program makes and that ./package removes, however this program ends.
import { execFileSync } from "node:child_process";
import { createHash } from "node:crypto";
import fs from "node:fs";
import path from "node:path";
import { fileURLToPath } from "node:url";

import { billOf } from "./bill.mjs";
import { componentsOf, licenseGuide } from "./components.mjs";
import { manifestNames, manifestsOf } from "./manifests.mjs";

const root = fileURLToPath(new URL("../..", import.meta.url));
const programs = ["velmora.exe", "velmora_control_demo.exe"];
const pages = ["advanced.html", "help.html", "index.html", "velmora-eq.js"];
const scripts = ["start.cmd", "stop.cmd"];
const readmes = ["README.txt", "README.zh-CN.txt"];

/** @param {string} file */
const sha256Of = (file) => createHash("sha256").update(fs.readFileSync(file)).digest("hex");

/**
 * Runs a program. What it says is in the error.
 * @param {string} file
 * @param {string[]} args
 * @param {import("node:child_process").ExecFileSyncOptions} options
 */
const run = (file, args, options) => execFileSync(file, args, { ...options, stdio: "pipe" });

/** All files below a folder, sorted, with forward slashes. @param {string} folder @returns {string[]} */
function filesBelow(folder) {
  return fs
    .readdirSync(folder, { withFileTypes: true })
    .flatMap((entry) =>
      entry.isDirectory()
        ? filesBelow(path.join(folder, entry.name)).map((name) => `${entry.name}/${name}`)
        : [entry.name],
    )
    .sort();
}

/** Writes the folder that the archive holds. @param {string} folder @param {string} build @param {string} version @param {number} time */
function fillFolder(folder, build, version, time) {
  /** @param {string} name @param {string | Buffer} contents */
  const write = (name, contents) => {
    const file = path.join(folder, name);
    fs.mkdirSync(path.dirname(file), { recursive: true });
    fs.writeFileSync(file, contents);
  };
  for (const name of programs) {
    write(name, "");
    run("x86_64-w64-mingw32-strip", ["-o", path.join(folder, name), path.join(build, name)], {});
  }
  for (const name of pages) write(`web/${name}`, fs.readFileSync(path.join(build, "web", name)));
  for (const name of scripts) write(name, fs.readFileSync(path.join(root, "release", name)));
  for (const name of readmes) {
    const text = fs.readFileSync(path.join(root, "release", name), "utf8");
    write(name, text.replaceAll("{{version}}", version));
  }
  const components = componentsOf(root);
  for (const { name, source } of components.flatMap((component) => component.texts)) {
    write(`LICENSES/${name}`, fs.readFileSync(source));
  }
  write("LICENSES/README.txt", licenseGuide(components).replaceAll("\n", "\r\n"));
  write("sbom.cdx.json", billOf(version, components, time));
  const sums = filesBelow(folder).map((name) => `${sha256Of(path.join(folder, name))}  ${name}\n`);
  write("SHA256SUMS", sums.join(""));
}

/** Packs `folder`, which lies in `parent`. @param {string} archive @param {string} parent @param {string} folder @param {number} time */
function pack(archive, parent, folder, time) {
  const names = filesBelow(path.join(parent, folder)).map((name) => `${folder}/${name}`);
  for (const name of names) {
    const file = path.join(parent, name);
    fs.chmodSync(file, 0o644);
    fs.utimesSync(file, time, time);
  }
  // -X: no extra fields, -D: no entries of folders. TZ is UTC, since an archive keeps local time.
  run("zip", ["-q", "-X", "-D", "-9", archive, "-@"], { cwd: parent, input: `${names.join("\n")}\n` });
}

/** @param {string} work @param {string} version @param {string} build @param {string} url @param {number} time @returns {string[]} what was written, below `work` */
function makeAll(work, version, build, url, time) {
  const folder = `velmora-${version}`;
  const archive = `${folder}-windows-x64.zip`;
  const parts = path.join(work, "parts");
  fillFolder(path.join(parts, folder), build, version, time);
  pack(path.join(work, archive), parts, folder, time);
  const sha256 = sha256Of(path.join(work, archive));
  fs.writeFileSync(path.join(work, `${archive}.sha256`), `${sha256}  ${archive}\n`);
  const manifests = url === "" ? [] : manifestsOf({ version, url, sha256, folder, time });
  for (const { name, text } of manifests) {
    fs.mkdirSync(path.dirname(path.join(work, name)), { recursive: true });
    fs.writeFileSync(path.join(work, name), text);
  }
  return [archive, `${archive}.sha256`, ...manifests.map(({ name }) => name)];
}

/** What a failed call means for the person. @param {any} error @param {string} output */
function sentenceFor(error, output) {
  const said = `${error.code ?? ""} ${error.stderr ?? ""} ${error.stdout ?? ""} ${error.message}`;
  if (/ENOSPC|No space left|disk full/i.test(said))
    return `The disk of ${output} is full. Make room, or name another folder by --output.`;
  if (error.syscall === "mkdir" || /EROFS|EACCES|EPERM|ENOTDIR|EISDIR/.test(said))
    return `Unable to write to ${output}. Name another folder by --output.`;
  return `The archive cannot be made: ${
    String(error.stderr || error.stdout || error.message)
      .trim()
      .split("\n")[0]
  }`;
}

/** @param {string} version @param {string} build @param {string} output @param {string} work @param {string} url */
function main(version, build, output, work, url) {
  const time = Number(process.env.SOURCE_DATE_EPOCH);
  try {
    fs.mkdirSync(work, { recursive: true });
    const names = makeAll(work, version, build, url, time);
    // Manifests of an earlier run have the checksum of another archive.
    for (const name of manifestNames) fs.rmSync(path.join(output, name), { force: true });
    for (const name of names) {
      fs.mkdirSync(path.dirname(path.join(output, name)), { recursive: true });
      fs.renameSync(path.join(work, name), path.join(output, name));
    }
    for (const name of names) console.log(path.join(output, name));
  } catch (error) {
    console.error(sentenceFor(error, output));
    process.exitCode = 1;
  }
}

const [version, build, output, work, url] = process.argv.slice(2);
main(version, build, output, work, url);
