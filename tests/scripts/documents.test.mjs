// The documents as a whole: every link leads somewhere, every path that a text names is there, every document can be
// found from README.md, and the newest entry of CHANGELOG.md is of this version.
import assert from "node:assert/strict";
import { spawnSync } from "node:child_process";
import fs from "node:fs";
import path from "node:path";
import test from "node:test";

import { anchorsOf, documentNames, inlineCode, linksOf, readText, root, tableRows } from "./markdown.mjs";

const documents = documentNames();

for (const document of documents) {
  test(`${document}: every link leads to a file and a heading`, () => {
    const text = readText(document);
    for (const link of linksOf(text)) {
      if (/^https?:\/\//.test(link)) continue;
      const [file, anchor] = link.split("#");
      const target = file === "" ? document : path.normalize(path.join(path.dirname(document), file));
      assert.ok(fs.existsSync(path.join(root, target)), `${document}: ${link}`);
      if (anchor !== undefined)
        assert.ok(anchorsOf(readText(target)).includes(anchor), `${document}: ${link}`);
    }
  });

  test(`${document}: no two headings have one anchor`, () => {
    const anchors = anchorsOf(readText(document));
    // Every version of a change log has the same headings below it.
    if (document !== "CHANGELOG.md") assert.equal(new Set(anchors).size, anchors.length);
    assert.ok(anchors.length > 0);
  });
}

// Whether a path is there; a star stands for any name, words in capitals for a name of the reader's.
/** @param {string} name */
function isThere(name) {
  if (/[A-Z]{4}/.test(path.basename(name)) || /\/[A-Z]{4,}\//.test(name)) return true;
  const found = spawnSync("bash", ["-O", "nullglob", "-O", "globstar", "-c", `printf '%s\\n' ${name}`], {
    cwd: root,
    encoding: "utf8",
  }).stdout.trim();
  return found !== "" && found.split("\n").every((one) => fs.existsSync(path.join(root, one)));
}

test("every path into the repository that a document names is there", () => {
  let count = 0;
  for (const document of documents) {
    for (const code of inlineCode(readText(document))) {
      if (!/^(?:src|tests|web|docs|tools|bench|cmake|release)\/[\w./*{},-]*$/.test(code)) continue;
      assert.ok(isThere(code), `${document}: ${code}`);
      ++count;
    }
  }
  assert.ok(count > 50, `${count} paths`);
});

test("README.md leads to every document", () => {
  const linked = linksOf(readText("README.md"));
  for (const document of documents.filter((one) => one !== "README.md"))
    assert.ok(linked.includes(document), document);
});

test("README.md names every folder of the repository", () => {
  const { stdout } = spawnSync("git", ["ls-files"], { cwd: root, encoding: "utf8" });
  const folders = new Set(stdout.split("\n").flatMap((name) => /^([^./][^/]*)\//.exec(name)?.[1] ?? []));
  assert.ok(folders.size > 5);
  const rows = tableRows(readText("README.md")).map(([where]) => where);
  for (const folder of folders)
    assert.ok(
      rows.some((where) => where.includes(`${folder}/`)),
      folder,
    );
});

// ---- the change log ----

const kinds = ["Added", "Changed", "Deprecated", "Removed", "Fixed", "Security"];
const changes = readText("CHANGELOG.md").split("\n");

test("the newest version of the change log is this one", () => {
  const version = /application_version = "([^"]+)"/.exec(readText("src/base/version.h"))?.[1];
  const newest = changes.find((line) => line.startsWith("## ")) ?? "";
  assert.match(newest, new RegExp(`^## \\[${version?.replaceAll(".", "\\.")}\\] - `));
});

test("the change log has versions, kinds of changes and entries, and nothing else", () => {
  const [, ...versions] = changes.join("\n").split(/^## /m);
  for (const [index, version] of versions.entries()) {
    const [title, ...lines] = version.split("\n");
    assert.match(title, /^\[\d+\.\d+\.\d+\] - (?:\d{4}-\d\d-\d\d|Unreleased)$/);
    if (index > 0) assert.doesNotMatch(title, /Unreleased/, "a version that others follow is released");
    const headings = lines.filter((line) => line.startsWith("### ")).map((line) => line.slice(4));
    for (const heading of headings) assert.ok(kinds.includes(heading), heading);
    assert.equal(new Set(headings).size, headings.length);
    assert.ok(headings.length > 0 && lines.some((line) => line.startsWith("- ")), title);
    for (const line of lines) assert.match(line, /^(?:|### .+|- .+| {2}.+|[A-Z].*|\S.*\.)$/);
  }
});
