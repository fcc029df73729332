// Makes the four files that the service serves: node web/build.mjs DIRECTORY
//
// velmora-eq.js is the bundle of all scripts and the style sheet. Each HTML page is the same skeleton; it loads the
// bundle, which draws the page that the skeleton names.
import { execFileSync } from "node:child_process";
import { mkdirSync, readFileSync, writeFileSync } from "node:fs";
import { dirname, join } from "node:path";
import { fileURLToPath } from "node:url";

const source = join(dirname(fileURLToPath(import.meta.url)), "src");

// The service writes the time of its start over this mark.
const stamp = "__VELMORA_UI_STAMP__";
const pages = [
  { name: "index", stamp },
  { name: "advanced", stamp },
  { name: "help", stamp: "" },
];

const [directory] = process.argv.slice(2);
if (directory === undefined) {
  console.error("Usage: node web/build.mjs DIRECTORY");
  process.exit(2);
}
mkdirSync(directory, { recursive: true });
execFileSync(
  "esbuild",
  [
    join(source, "main.js"),
    `--outfile=${join(directory, "velmora-eq.js")}`,
    "--bundle",
    "--minify",
    "--target=es2022",
    "--charset=utf8",
    "--loader:.css=text",
    "--log-level=warning",
  ],
  { stdio: "inherit" },
);
const skeleton = readFileSync(join(source, "page.html"), "utf8");
for (const page of pages) {
  /** @type {Record<string, string>} */
  const values = page;
  const html = skeleton.replace(/\{\{(\w+)\}\}/g, (_, name) => values[name]);
  writeFileSync(join(directory, `${page.name}.html`), html);
}
