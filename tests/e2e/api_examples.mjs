// The examples of docs/api.md: curl commands and what they print. Its first lines define the notation.
import assert from "node:assert/strict";
import fs from "node:fs";

/**
 * @typedef {object} Example
 * @property {number} line where the command is, counted from 1
 * @property {string} section the heading above it
 * @property {string} command as a shell takes it
 * @property {string} printed what it prints, as the document shows it; "" if nothing
 * @typedef {object} Curl The command's request, and where the answer goes.
 * @property {string} method
 * @property {string} target
 * @property {string[][]} headers
 * @property {string | undefined} body
 * @property {string | undefined} bodyFile the file that has the body
 * @property {boolean} printsHead
 * @property {string | undefined} output the file that takes the answer's body
 * @property {boolean} namesOutput the answer's own header names that file
 * @property {string | undefined} format what is printed behind the answer
 */

export const documentedPort = 17831;
const documentUrl = new URL("../../docs/api.md", import.meta.url);

export function readDocument() {
  return fs.readFileSync(documentUrl, "utf8");
}

/**
 * The paragraphs of the document's code, indented or fenced, each with its line and section.
 * @param {string} text
 */
function codeParagraphs(text) {
  /** @type {{ line: number, section: string, lines: string[] }[]} */
  const paragraphs = [];
  let section = "";
  let isFenced = false;
  let isOpen = false;
  text.split("\n").forEach((whole, index) => {
    if (whole.startsWith("```")) isFenced = !isFenced;
    const isCode = !whole.startsWith("```") && (isFenced || whole.startsWith("    "));
    if (!isCode && whole.startsWith("#")) section = whole.replace(/^#+ /, "");
    if (!isCode || whole.trim() === "") {
      isOpen = false;
      // A line of text ends an answer.
      if (whole.trim() !== "") paragraphs.push({ line: index + 1, section, lines: [] });
      return;
    }
    if (!isOpen) paragraphs.push({ line: index + 1, section, lines: [] });
    isOpen = true;
    paragraphs.at(-1)?.lines.push(isFenced ? whole : whole.slice(4));
  });
  return paragraphs;
}

/**
 * All examples, in the order of the document.
 * @param {string} text
 * @returns {Example[]}
 */
export function examplesIn(text) {
  /** @type {Example[]} */
  const examples = [];
  let isAnswer = false;
  for (const { line, section, lines } of codeParagraphs(text)) {
    if (lines.length === 0) isAnswer = false;
    else if (lines[0].startsWith("curl ")) {
      examples.push({ line, section, command: lines.join("\n"), printed: "" });
      isAnswer = true;
    } else if (isAnswer) {
      const example = examples[examples.length - 1];
      // A head and a body are two paragraphs. Within a head lines end in CR LF; a body is one line.
      const paragraph = lines[0].startsWith("HTTP/") ? `${lines.join("\r\n")}\r\n\r\n` : lines.join("");
      example.printed += paragraph;
    } else {
      assert.doesNotMatch(lines[0], /^(?:[{[]|HTTP\/)/, `line ${line}: an answer without its command`);
    }
  }
  return examples;
}

/** @param {string} command */
function shellWords(command) {
  const joined = command.replace(/\\\n\s*/g, "");
  assert.ok(!joined.includes("\n"), `one command only: ${command}`);
  return [...joined.matchAll(/'([^']*)'|"([^"]*)"|([^\s'"]+)/g)].map(
    ([, single, double, bare]) => single ?? double ?? bare,
  );
}

/**
 * The request that a command makes. Fails on anything but the options that the document uses.
 * @param {string} command
 * @param {string} token
 * @returns {Curl}
 */
export function parseCurl(command, token) {
  const [program, ...words] = shellWords(command);
  assert.equal(program, "curl", command);
  /** @type {Curl} */
  const curl = {
    method: "",
    target: "",
    headers: [],
    body: undefined,
    bodyFile: undefined,
    printsHead: false,
    output: undefined,
    namesOutput: false,
    format: undefined,
  };
  const next = () => words.shift() ?? assert.fail(`a value is missing: ${command}`);
  for (let word = words.shift(); word !== undefined; word = words.shift()) {
    if (word === "-s") continue;
    else if (word === "-si") curl.printsHead = true;
    else if (word === "-D") curl.printsHead = next() === "-" || assert.fail(`-D -: ${command}`);
    else if (word === "-OJ") curl.namesOutput = true;
    else if (word === "-o") curl.output = next();
    else if (word === "-w") curl.format = next();
    else if (word === "-X") curl.method = next();
    else if (word === "-H") curl.headers.push(next().replace("$TOKEN", token).split(": "));
    else if (word === "-d") curl.body = next();
    else if (word === "--data-binary") curl.bodyFile = /^@(.+)$/.exec(next())?.[1] ?? assert.fail(command);
    else {
      const address = `http://127.0.0.1:${documentedPort}`;
      assert.ok(word.startsWith(`${address}/`) && curl.target === "", `${word} in ${command}`);
      curl.target = word.slice(address.length);
    }
  }
  assert.notEqual(curl.target, "", command);
  curl.method ||= curl.body === undefined && curl.bodyFile === undefined ? "GET" : "POST";
  return curl;
}

/**
 * Whether bytes are what the document shows. `...` and a time leave bytes open, the first at least one byte. A line
 * `...` in a head leaves whole lines open.
 * @param {string} shown
 */
export function patternOf(shown) {
  const literal = shown
    .replace(/[.*+?^${}()|[\]\\]/g, "\\$&")
    .replaceAll("\\.\\.\\.", "[^]+?")
    .replaceAll("YYYYMMDD-HHMMSS", "[0-9]{8}-[0-9]{6}");
  return new RegExp(`^${literal}$`);
}

/**
 * The routes as METHOD PATH, from the two functions that look them up. A preset's routes are those of the methods
 * that serve_preset takes.
 * @param {string} routes the source of the routes
 * @param {string} presets the source of the presets' routes
 */
export function routesIn(routes, presets) {
  const found = [...routes.matchAll(/matches\("([A-Z]+)", "([^"]+)"\)/g)].map(
    ([, method, path]) => `${method} ${path}`,
  );
  for (const [, page] of routes.matchAll(/path == "(\/[^"]*)"/g)) found.push(`GET ${page}`);
  const prefixes = [...routes.matchAll(/path\.starts_with\("([^"]+)"\)/g)].map(([, prefix]) => prefix);
  assert.deepEqual(prefixes, ["/api/v1/eq/presets", "/api/"], "the routes below a prefix are known here");
  const collection = [...presets.matchAll(/rest\.empty\(\) && request\.method == "([A-Z]+)"/g)];
  for (const [, method] of collection) found.push(`${method} ${prefixes[0]}`);
  const named = [...presets.matchAll(/if \(request\.method == "([A-Z]+)"\)/g)];
  for (const [, method] of named) found.push(`${method} ${prefixes[0]}/NAME`);
  assert.ok(collection.length > 0 && named.length > 0, "the presets' routes are found");
  return found.sort();
}

/**
 * The route of a request in the form of routesIn.
 * @param {{ method: string, target: string }} request
 */
export function routeOf({ method, target }) {
  const path = target.split("?")[0].replace(/^(\/api\/v1\/eq\/presets)\/.+$/, "$1/NAME");
  return `${method} ${path}`;
}
