// The manifests of the archive for the two package managers that people on Windows use.
import { stringify } from "yaml";

/**
 * @typedef {object} Release
 * @property {string} version
 * @property {string} url where the archive will be
 * @property {string} sha256 of the archive, 64 hex digits
 * @property {string} folder the archive's one folder
 * @property {number} time of the release, in seconds since 1970
 */

const identifier = "Velmora.Velmora";
const description = "Control service of the Velmora audio effect";
const details =
  "A local service with pages in the browser, where you turn the Velmora audio effect on and tune it. The effect itself is a separate product.";
// The tree names no license, so its maker keeps all rights.
const license = "Proprietary";
const advice =
  "Remove Velmora from each device before you uninstall this package. The page does it under Volume and devices.";
const manifestVersion = "1.10.0";

/** The files below the output folder. */
const names = {
  version: `winget/${identifier}.yaml`,
  installer: `winget/${identifier}.installer.yaml`,
  defaultLocale: `winget/${identifier}.locale.en-US.yaml`,
  scoop: "scoop/velmora.json",
};
export const manifestNames = Object.values(names);

/** @param {"version" | "installer" | "defaultLocale"} type @param {object} fields @param {Release} release */
function wingetFile(type, fields, { version }) {
  const document = {
    PackageIdentifier: identifier,
    PackageVersion: version,
    ...fields,
    ManifestType: type,
    ManifestVersion: manifestVersion,
  };
  return { name: names[type], text: stringify(document, { lineWidth: 0 }) };
}

/**
 * The three files of winget. The archive is portable: nothing is installed but the folder. Its program finds its own
 * files beside itself, so the folder goes onto the PATH instead of a link to the program.
 * @param {Release} release
 */
function wingetFiles(release) {
  const installer = {
    Platform: ["Windows.Desktop"],
    MinimumOSVersion: "10.0.18362.0",
    InstallerType: "zip",
    NestedInstallerType: "portable",
    NestedInstallerFiles: [
      { RelativeFilePath: `${release.folder}\\velmora.exe`, PortableCommandAlias: "velmora" },
    ],
    ArchiveBinariesDependOnPath: true,
    Commands: ["velmora"],
    ReleaseDate: new Date(release.time * 1000).toISOString().slice(0, 10),
    Installers: [
      { Architecture: "x64", InstallerUrl: release.url, InstallerSha256: release.sha256.toUpperCase() },
    ],
  };
  const locale = {
    PackageLocale: "en-US",
    Publisher: "Velmora",
    PackageName: "Velmora",
    License: license,
    ShortDescription: description,
    Description: details,
    InstallationNotes: `Run "velmora start --window" to start. ${advice}`,
  };
  return [
    wingetFile("version", { DefaultLocale: "en-US" }, release),
    wingetFile("installer", installer, release),
    wingetFile("defaultLocale", locale, release),
  ];
}

/**
 * The file of Scoop. A running service keeps its program file open, so it is stopped before the folder is removed.
 * @param {Release} release
 */
function scoopFile({ version, url, sha256, folder }) {
  const manifest = {
    version,
    description,
    homepage: `${new URL(url).origin}/`,
    license,
    notes: advice,
    architecture: { "64bit": { url, hash: sha256 } },
    extract_dir: folder,
    bin: "velmora.exe",
    shortcuts: [
      ["start.cmd", "Velmora", "", "velmora.exe"],
      ["stop.cmd", "Stop Velmora", "", "velmora.exe"],
    ],
    pre_uninstall: '& "$dir\\velmora.exe" stop | Out-Null',
  };
  return { name: names.scoop, text: `${JSON.stringify(manifest, null, 4)}\n` };
}

/**
 * All manifests.
 * @param {Release} release
 * @returns {{ name: string, text: string }[]}
 */
export const manifestsOf = (release) => [...wingetFiles(release), scoopFile(release)];
