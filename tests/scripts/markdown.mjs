// What the tests of the documents read in a Markdown file: code blocks, tables, headings, links.
import fs from "node:fs";
import { fileURLToPath } from "node:url";

export const root = fileURLToPath(new URL("../..", import.meta.url));

/** @param {string} name a path in the repository */
export function readText(name) {
  return fs.readFileSync(`${root}/${name}`, "utf8");
}

/**
 * The documents of the repository: README.md, CHANGELOG.md and all of docs/.
 * @returns {string[]}
 */
export function documentNames() {
  const inDocs = fs.readdirSync(`${root}/docs`).filter((name) => name.endsWith(".md"));
  return ["README.md", "CHANGELOG.md", ...inDocs.sort().map((name) => `docs/${name}`)];
}

/**
 * The code blocks: fenced ones, and lines that are indented by four blanks more than the text around them.
 * @param {string} text
 * @returns {{ section: string, line: number, lines: string[] }[]}
 */
export function codeBlocks(text) {
  /** @type {{ section: string, line: number, lines: string[] }[]} */
  const blocks = [];
  let section = "";
  let fence = "";
  let fenceIndent = 0;
  let listIndent = 0;
  let isAfterBlank = true;
  /** @type {{ section: string, line: number, lines: string[] } | undefined} */
  let open;
  text.split("\n").forEach((line, index) => {
    const indent = line.length - line.trimStart().length;
    const mark = /^ *(`{3,})/.exec(line)?.[1];
    if (mark !== undefined) {
      fence = fence === "" ? mark : "";
      fenceIndent = indent;
      if (fence !== "") blocks.push((open = { section, line: index + 2, lines: [] }));
      else open = undefined;
    } else if (fence !== "") open?.lines.push(line.slice(fenceIndent));
    else if (line.trim() === "") isAfterBlank = true;
    else {
      if (/^#/.test(line)) section = line.replace(/^#+ */, "");
      const isListItem = /^ *(?:[-*]|[0-9]+\.) /.test(line);
      const isCode = indent >= listIndent + 4 && (isAfterBlank || open !== undefined);
      if (isCode) {
        if (open === undefined) blocks.push((open = { section, line: index + 1, lines: [] }));
        if (isAfterBlank && open.lines.length > 0) open.lines.push("");
        open.lines.push(line.slice(listIndent + 4));
      } else {
        open = undefined;
        if (isListItem) listIndent = /^ *(?:[-*]|[0-9]+\.) +/.exec(line)?.[0].length ?? 0;
        else if (indent === 0) listIndent = 0;
      }
      isAfterBlank = false;
    }
  });
  return blocks;
}

/**
 * The lines of a section, up to the next heading of its level or above.
 * @param {string} text
 * @param {string} heading with its marks, e.g. "## Options"
 */
export function sectionOf(text, heading) {
  const lines = text.split("\n");
  const begin = lines.indexOf(heading);
  if (begin < 0) throw new Error(`there is no heading ${heading}`);
  const level = heading.indexOf(" ");
  const end = lines.findIndex(
    (line, index) => index > begin && /^#+/.exec(line) !== null && line.indexOf(" ") <= level,
  );
  return lines.slice(begin + 1, end < 0 ? undefined : end).join("\n");
}

/**
 * The rows of all tables of a text, as the texts of their cells, without heads and rules.
 * @param {string} text
 */
export function tableRows(text) {
  const lines = text.split("\n");
  return lines.flatMap((line, index) => {
    if (!line.startsWith("|") || /^\|[-| ]+\|$/.test(line) || /^\|[-| ]+\|$/.test(lines[index + 1] ?? ""))
      return [];
    return [
      line
        .slice(1, -1)
        .split("|")
        .map((cell) => cell.trim()),
    ];
  });
}

/**
 * The text outside of code blocks.
 * @param {string} text
 */
export function proseOf(text) {
  const code = new Set(codeBlocks(text).flatMap(({ line, lines }) => lines.map((_, index) => line + index)));
  return text
    .split("\n")
    .filter((_, index) => !code.has(index + 1))
    .join("\n");
}

/**
 * The anchors of a document's headings, as a viewer of such files makes them.
 * @param {string} text
 */
export function anchorsOf(text) {
  return [...proseOf(text).matchAll(/^#+ (.+)$/gm)].map(([, title]) =>
    title
      .toLowerCase()
      .replace(/[^\p{L}\p{N} _-]/gu, "")
      .replaceAll(" ", "-"),
  );
}

/**
 * The links and pictures of a document, as their targets.
 * @param {string} text
 */
export function linksOf(text) {
  return [...proseOf(text).matchAll(/\]\(([^)\s]+)\)/g)].map(([, target]) => target);
}

/**
 * The code within lines of text.
 * @param {string} text
 */
export function inlineCode(text) {
  return [...proseOf(text).matchAll(/`([^`\n]+(?:\n[^`\n]+)?)`/g)].map(([, code]) =>
    code.replace(/\s*\n\s*/, " "),
  );
}
