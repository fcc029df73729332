// What a person copies to report a fault: the verdict, the versions, the devices and the values behind them.
//
// A report is made of what this module takes, never of a document with parts removed. Numbers and flags are taken as
// they are, texts only where their form is known. A text of another form is replaced by its length. The account, the
// address of the page, names of programs and of presets are not taken at all. Names of devices are.
import { diagnosticsGroups } from "./diagnostics.js";
import { plainName } from "./format.js";
import { flagOf, listOf, numberOf, objectOf, textOf } from "./read.js";
import { hexResult, resultSentence, serviceSentence } from "./reasons.js";

/**
 * @typedef {import("./types.js").Sentence} Sentence
 * @typedef {import("./diagnostics.js").Kind} Kind
 *
 * @typedef {object} ReportSource
 * @property {number} time milliseconds since 1970
 * @property {string} browser what the browser calls itself
 * @property {string} token of the session; it is taken out wherever it is
 * @property {import("./types.js").Verdict} verdict
 * @property {import("./types.js").Link} link
 * @property {import("./types.js").Action | null} action
 * @property {import("./types.js").Kept} kept
 * @property {Pick<import("./types.js").Observation, "now" | "devices" | "equalizer">} seen
 */

const cut = "…";

// ---- paths ----

// A separator may be doubled, or escaped for JSON or for an address.
const separator = /((?:\\u005c|\\u002f|[\\/]|%5c|%2f)+)/i;
// Folders that hold the folders of users, in any case, in their short form, as shares, and behind a delimiter.
const userRoot =
  /(?:^|[\s"'`(<[{=:;,|>@])(?:users|homes?|media|profiles|documents(?: |%20|\+)and(?: |%20|\+)settings|docume~\d+)\$?[.\s]*$/i;
const homeOfUser = /(?<before>^|[\s"'`(=:;,])~[^\\/\s"'`]+/g;

/**
 * @param {string[]} names folders below the folder of all users
 * @returns {string[]} those that lead down, at the end
 */
function resolved(names) {
  /** @type {string[]} */
  const down = [];
  for (const name of names.map((one) => one.trim())) {
    if (name === "..") down.pop();
    else if (name !== "" && name !== ".") down.push(name);
  }
  return down;
}

/**
 * Cuts what is below a user's folder out of a path, or out of a text with a path: the user's name and the folders below
 * it. The folder of all users and the file's own name stay: "C:\Users\…\effect.dll".
 *
 * @param {string} text
 * @returns {string}
 */
export function cutPaths(text) {
  // Names and separators by turns; the first and the last are names.
  const parts = text.replace(homeOfUser, `$<before>~${cut}`).split(separator);
  const roots = parts.flatMap((part, index) => (index % 2 === 0 && userRoot.test(part) ? [index] : []));
  const last = parts.length - 1;
  const first = roots[0] ?? last;
  if (first === last) return parts.join("");
  const below = parts.filter((_, index) => index % 2 === 0 && index > (roots.at(-1) ?? last));
  const kept = parts.slice(0, first + 2).join("") + cut;
  const [user, ...rest] = resolved(below);
  // A single name behind the folder of all users is a user's.
  if (rest.length === 0 || resolved([parts[last]]).length === 0) return kept;
  const name = new RegExp(user.replace(/[.*+?^${}()|[\]\\]/g, "\\$&"), "gi");
  return kept + parts[last - 1] + parts[last].replace(name, cut);
}

// ---- texts ----

const shortestSecret = 4;
const longestBrowser = 200;

/**
 * @param {unknown} value
 * @returns {string[]} the texts in it, of any depth
 */
function textsWithin(value) {
  if (typeof value === "string") return [value];
  return typeof value === "object" && value !== null ? Object.values(value).flatMap(textsWithin) : [];
}

/**
 * The texts that may be nowhere in a report, as far as the page knows them: the token and the account's.
 *
 * @param {string} token
 * @param {unknown} status
 */
function secretsOf(token, status) {
  const texts = [token, ...textsWithin(objectOf(status).session)];
  const escaped = texts.map((text) => new URLSearchParams({ text }).toString().slice("text=".length));
  const known = new Set([...texts, ...escaped].filter((text) => text.length >= shortestSecret));
  return [...known].sort((one, other) => other.length - one.length);
}

/**
 * @param {string} text
 * @param {string[]} secrets
 */
function withoutSecrets(text, secrets) {
  let clean = text;
  for (const secret of secrets) clean = clean.replaceAll(secret, cut);
  return clean;
}

const guid = "\\{[0-9A-Fa-f]{8}(?:-[0-9A-Fa-f]{4}){3}-[0-9A-Fa-f]{12}\\}";
const forms = {
  version: /^(?:\d{1,5}(?:\.\d{1,5}){1,3}|shared_memory_v\d{1,3}|not found|unavailable|unknown)$/,
  classId: new RegExp(`^${guid}$`),
  deviceId: new RegExp(`^\\{0\\.0\\.[01]\\.00000000\\}\\.${guid}$`),
  path: /^(?:[A-Za-z]:|[\\/%])/,
  notFinite: /^-?(?:nan|inf)$/,
  number: /^(?:0x[0-9A-Fa-f]{1,8}|-?\d{1,10}|\?)$/,
};

/**
 * How a source's texts are shown.
 *
 * @param {string[]} secrets
 * @param {(sentence: Sentence) => string} say
 */
function cleaner(secrets, say) {
  const length = (/** @type {string} */ text) =>
    say({ key: "report.text", values: { count: String([...text].length) } });
  /**
   * @param {unknown} text
   * @param {RegExp} form
   */
  const formed = (text, form) => {
    if (text === undefined) return say({ key: "diagnostics.missing", values: {} });
    if (text === "") return say({ key: "diagnostics.none", values: {} });
    if (typeof text !== "string") return say({ key: "diagnostics.odd", values: {} });
    return form.test(text) ? withoutSecrets(text, secrets) : length(text);
  };
  const name = (/** @type {unknown} */ text) => withoutSecrets(plainName(textOf(text) ?? ""), secrets);
  const path = (/** @type {unknown} */ text) =>
    typeof text === "string" && forms.path.test(text)
      ? withoutSecrets(cutPaths(oneLine(text)), secrets)
      : formed(text, /^$/);
  /**
   * @param {unknown} text of the service
   * @returns {string} empty for none
   */
  const service = (text) =>
    typeof text === "string" && text !== "" ? say(sentence(serviceSentence(text))) : "";

  /**
   * A sentence with the values that may be shown.
   *
   * @param {Sentence} whole
   * @returns {Sentence}
   */
  function sentence({ key, values }) {
    if (key === "service.unknown")
      return { key: "report.text", values: { count: String([...String(values.text)].length) } };
    // What the service names in its own texts are no audio devices.
    const isOwn = key.startsWith("service.");
    const shown = Object.entries(values).map(([what, value]) => [
      what,
      sentenceValue(isOwn ? "" : what, value),
    ]);
    return { key: withoutPrograms(key), values: Object.fromEntries(shown) };
  }

  /**
   * @param {string} what
   * @param {unknown} value
   * @returns {unknown}
   */
  function sentenceValue(what, value) {
    if (typeof value === "number" || typeof value === "boolean") return value;
    if (typeof value === "string") {
      if (what === "device") return name(value);
      if (what === "path") return path(value);
      return forms.number.test(value) ? value : cut;
    }
    const { key, values } = objectOf(value);
    return typeof key === "string" ? sentence({ key, values: objectOf(values) }) : cut;
  }

  return { formed, name, path, service, sentence: (/** @type {Sentence} */ one) => say(sentence(one)) };
}

/** @typedef {ReturnType<typeof cleaner>} Cleaner */

/** Names of programs are not in a report, so a text that lists them has another one without the list. */
const withoutPrograms = (/** @type {string} */ key) => key.replace(/\.programs$/, "");

/** A text of the machine stays on its line. */
const oneLine = (/** @type {string} */ text) => text.replace(/[\p{Cc}\u2028\u2029]+/gu, " ");

// ---- the parts of a report ----

/** Kinds of values that are not in a report. */
const leftOut = ["private", "duration", "time"];

/**
 * @param {Kind} kind
 * @param {unknown} value
 * @param {Cleaner} clean
 * @param {(sentence: Sentence) => string} say
 * @returns {string}
 */
function valueText(kind, value, clean, say) {
  if (kind === "version" || kind === "classId" || kind === "deviceId")
    return clean.formed(value, forms[kind]);
  if (kind === "path") return clean.path(value);
  if (kind === "classIds") {
    if (!Array.isArray(value)) return clean.formed(value === undefined ? value : 0, /^$/);
    return value.map((one) => clean.formed(one, forms.classId)).join(" ") || clean.formed("", /^$/);
  }
  if (typeof value === "boolean") return String(value);
  const number = numberOf(value);
  if (number === undefined) return clean.formed(value, forms.notFinite);
  if (kind === "result" && number !== 0)
    return `${number} = ${hexResult(number)}, ${say(resultSentence(number))}`;
  return kind === "detail" || kind === "mask" ? `${number} = ${hexResult(number)}` : String(number);
}

/**
 * @param {unknown} document an equalizer setting
 * @returns {string[]}
 */
function equalizerLines(document) {
  const { bypass, fade_ms: fade, bands } = objectOf(document);
  const number = (/** @type {unknown} */ value) => numberOf(value) ?? "?";
  const lines = listOf(bands)
    .slice(0, 15)
    .map((band, index) => {
      const { type, freq_hz: frequency, gain_db: gain, q } = objectOf(band);
      return `${index + 1}: type ${number(type)}, ${number(frequency)} Hz, ${number(gain)} dB, q ${number(q)}`;
    });
  return [`bypass: ${flagOf(bypass) ?? "?"}`, `fade_ms: ${number(fade)}`, ...lines];
}

/**
 * @param {unknown} list
 * @param {Cleaner} clean
 */
function deviceLines(list, clean) {
  const flags = ["is_default", "is_selected", "apo_bound"];
  return listOf(list).map((value, index) => {
    const device = objectOf(value);
    const set = flags.filter((flag) => device[flag] === true);
    const facts = [
      `peak ${numberOf(device.peak) ?? "?"}`,
      `sessions ${listOf(device.sessions).length}`,
      ...set,
      clean.formed(device.id, forms.deviceId),
    ];
    return `${index + 1}: ${clean.name(device.name)} | ${facts.join(", ")}`;
  });
}

/**
 * @param {import("./types.js").Action} action
 * @param {Cleaner} clean
 * @param {(sentence: Sentence) => string} say
 */
function actionLines({ kind, endpointId, restartsAudio, startedAt, endedAt, result }, clean, say) {
  const lines = [
    `${kind}, restart_audio: ${restartsAudio}, ${endedAt === null ? "?" : endedAt - startedAt} ms`,
    `endpoint_id: ${clean.formed(endpointId, forms.deviceId)}`,
  ];
  if (result === null) return lines;
  const { status, error, audioRestarted, restartError, restartDetail } = result;
  return [
    ...lines,
    `HTTP ${status} ${clean.service(error)}`.trim(),
    `audio_restarted: ${audioRestarted}`,
    `audio_restart_error: ${valueText("result", restartError, clean, say)} ${clean.service(restartDetail)}`.trim(),
  ];
}

/** @param {import("./types.js").Kept} kept */
function memoryLines({ engine, restartPending, removalPending, added }, /** @type {unknown} */ chosenId) {
  const wasAdded = typeof chosenId === "string" && Object.hasOwn(added, chosenId);
  const lines = [`added before: ${wasAdded}`];
  if (engine !== null) {
    const { kind, processId, known, lockCount } = engine;
    lines.push(
      `engine before the last change (${kind}): ${processId}, known: ${known}, lock_count: ${lockCount}`,
    );
  }
  if (restartPending !== null) lines.push(`restart pending since engine ${restartPending.processId}`);
  if (removalPending !== null) {
    const { processId, endpointIds } = removalPending;
    lines.push(`removed without a restart since engine ${processId}: ${endpointIds.length}`);
  }
  return lines;
}

/**
 * @param {ReportSource} source
 * @param {(sentence: Sentence) => string} say
 * @returns {string} lines of text, in the language of `say`, with the API's names
 */
export function reportText({ time, browser, token, verdict, link, action, kept, seen }, say) {
  const secrets = secretsOf(token, seen.now);
  const clean = cleaner(secrets, say);
  const devices = objectOf(seen.devices);
  const groups = diagnosticsGroups(seen.now);
  const title = (/** @type {string} */ key) => say({ key, values: {} });
  const { endpoint_id: boundId } = objectOf(objectOf(seen.now).apo_binding);
  /** @type {[title: string, lines: string[]][]} */
  const parts = [
    [
      title("report.verdict"),
      [
        `${verdict.id}: ${clean.sentence(verdict.headline)}`,
        clean.sentence(verdict.detail),
        ...verdict.evidence.map(({ id, state, text }) => `${id}: ${state}. ${clean.sentence(text)}`),
      ],
    ],
    [title("report.playback"), deviceLines(devices.render, clean)],
    [title("report.microphones"), deviceLines(devices.capture, clean)],
    [title("report.list"), [`error_code: ${valueText("result", devices.error_code, clean, say)}`]],
    [title("report.action"), action === null ? [] : actionLines(action, clean, say)],
    [title("report.memory"), memoryLines(kept, devices.selected_render_endpoint_id ?? boundId)],
    [title("report.equalizer"), equalizerLines(seen.equalizer)],
  ];
  let unnamed = 0;
  for (const { id, rows } of groups) {
    const lines = [];
    for (const { path, kind, value } of rows) {
      if (kind === "unknown") ++unnamed;
      else if (!leftOut.includes(kind) && !path.startsWith("session."))
        lines.push(`${path}: ${valueText(kind, value, clean, say)}`);
    }
    // The versions come first: whoever reads the report asks for them.
    const part = /** @type {[string, string[]]} */ ([title(`diagnostics.group.${id}`), lines]);
    if (id === "versions") parts.splice(1, 0, part);
    else parts.push(part);
  }
  if (unnamed > 0) parts.push([title("diagnostics.group.other"), [title("report.leftOut"), String(unnamed)]]);
  const head = [
    title("report.heading"),
    new Date(time).toISOString(),
    withoutSecrets(cutPaths(oneLine(browser).slice(0, longestBrowser)), secrets),
    `link: ${link.state}, ${Math.round((time - link.since) / 1000)} s`,
  ];
  const text = parts
    .filter(([, lines]) => lines.length > 0)
    .map(([name, lines]) => `\n## ${name}\n${lines.join("\n")}\n`)
    .join("");
  const whole = `${head.join("\n")}\n${text}`;
  return token.length >= shortestSecret ? whole.replaceAll(token, cut) : whole;
}
