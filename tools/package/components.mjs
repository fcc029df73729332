// What others wrote of that which the archive holds: the libraries that the compiler links into both programs, and
// those that are bundled into the pages.
import { execFileSync } from "node:child_process";
import { readFileSync, realpathSync } from "node:fs";
import { join } from "node:path";

import { PackageURL } from "packageurl-js";

/**
 * @typedef {object} Component
 * @property {string} name
 * @property {string} version that of its package
 * @property {string} description
 * @property {string} license an SPDX expression
 * @property {PackageURL} purl
 * @property {string} where the files of the archive that hold it
 * @property {LicenseText[]} texts
 *
 * @typedef {{ name: string, source: string }} LicenseText Name in the folder LICENSES, and file on this machine
 */

const compiler = "x86_64-w64-mingw32-g++-posix";

/** @param {string} file @param {string[]} args */
const output = (file, args) => execFileSync(file, args, { encoding: "utf8" }).trim();

/**
 * Libraries that the linker takes from the compiler's folders. One file of each finds its Debian package.
 * @type {{ name: string, file: string, description: string, license: string, texts: string[] }[]}
 */
const linked = [
  {
    name: "libstdc++",
    file: "libstdc++.a",
    description: "The C++ library of the compiler",
    license: "GPL-3.0-or-later WITH GCC-exception-3.1",
    texts: ["gcc", "GPL-3"],
  },
  {
    name: "libgcc",
    file: "libgcc.a",
    description: "The compiler's own functions",
    license: "GPL-3.0-or-later WITH GCC-exception-3.1",
    texts: ["gcc", "GPL-3"],
  },
  {
    name: "mingw-w64-runtime",
    file: "libmingw32.a",
    description: "Start code and parts of the C library. Some files are under other permissive licenses",
    license: "ZPL-2.1",
    texts: ["mingw-w64"],
  },
  {
    name: "winpthreads",
    file: "libwinpthread.a",
    description: "POSIX threads on top of Windows' own",
    license: "MIT AND BSD-3-Clause",
    texts: ["mingw-w64"],
  },
];

/** The file of the compiler's folders with this name. @param {string} name */
const compilerFile = (name) => realpathSync(output(compiler, [`-print-file-name=${name}`]));

/** The Debian package that a file belongs to. @param {string} file */
export const debianPackageOf = (file) => output("dpkg", ["-S", file]).split(":")[0];

/** Name of the Debian release, such as bookworm. */
function debianRelease() {
  return /^VERSION_CODENAME=(.+)$/m.exec(readFileSync("/etc/os-release", "utf8"))?.[1] ?? "unknown";
}

/** @returns {Component[]} */
function linkedComponents() {
  const release = debianRelease();
  return linked.map(({ name, file, description, license, texts }) => {
    const owner = debianPackageOf(compilerFile(file));
    // eslint-disable-next-line no-template-curly-in-string -- dpkg-query fills it in
    const [version, arch] = output("dpkg-query", ["-W", "-f", "${Version} ${Architecture}", owner]).split(
      " ",
    );
    const sources = {
      gcc: `/usr/share/doc/${owner}/copyright`,
      "mingw-w64": `/usr/share/doc/${owner}/copyright`,
      "GPL-3": "/usr/share/common-licenses/GPL-3",
    };
    return {
      name,
      version,
      description,
      license,
      purl: new PackageURL("deb", "debian", owner, version, { arch, distro: release }, undefined),
      where: "velmora.exe, velmora_control_demo.exe",
      texts: texts.map((text) => ({ name: `${text}.txt`, source: sources[/** @type {"gcc"} */ (text)] })),
    };
  });
}

/** @param {string} root of the tree @returns {Component[]} */
function bundledComponents(root) {
  const lock = JSON.parse(readFileSync(join(root, "web/package-lock.json"), "utf8"));
  return Object.entries(lock.packages)
    .filter(([folder]) => folder !== "")
    .map(([folder, { version, license }]) => {
      const name = folder.replace(/^.*node_modules\//, "");
      const about = JSON.parse(readFileSync(join(root, "web", folder, "package.json"), "utf8"));
      if (about.version !== version) throw new Error(`web/${folder} is not the version of the lock file`);
      return {
        name,
        version,
        description: about.description,
        license,
        purl: new PackageURL("npm", undefined, name, version, undefined, undefined),
        where: "web/velmora-eq.js",
        texts: [{ name: `${name}.txt`, source: join(root, "web", folder, "LICENSE") }],
      };
    });
}

/**
 * All components, in a fixed order.
 * @param {string} root of the tree
 * @returns {Component[]}
 * @throws {Error} if a package is not installed
 */
export const componentsOf = (root) => [...linkedComponents(), ...bundledComponents(root)];

/**
 * The text that says which license text covers what.
 * @param {Component[]} components
 */
export function licenseGuide(components) {
  const rows = components.map(
    ({ name, version, where, license, texts }) =>
      `${name} ${version}\n  in       ${where}\n  license  ${license}\n  text     ${texts.map((text) => text.name).join(", ")}\n`,
  );
  return `Libraries of others in this archive, and where their license texts are in this folder.\n\n${rows.join("\n")}`;
}
