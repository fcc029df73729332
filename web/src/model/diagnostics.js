// The values of the status document: their groups, names and kinds, how each is shown, and which have changed.
import { numberOf, objectOf } from "./read.js";
import { hexResult, isKnownResult, resultSentence } from "./reasons.js";

/**
 * What a value means, and so how it is shown.
 *
 * own: a number of the effect, algorithm: of the algorithm; no table says what they mean. mask: bits, one for each mode
 * of the effect. detail: a number of the effect whose highest bit is set. registry: whether a registry value is 1.
 * private: of the account. version, path, classId, classIds, deviceId: texts.
 *
 * @typedef {"flag" | "number" | "percent" | "decibels" | "hertz" | "bits" | "bytes" | "seconds" | "duration" | "time"
 *   | "result" | "own" | "algorithm" | "mask" | "detail" | "registry" | "private" | "version" | "path" | "classId"
 *   | "classIds" | "deviceId"} Kind
 *
 * @typedef {import("./types.js").Sentence} Sentence
 *
 * @typedef {object} Shown
 * @property {Sentence} text
 * @property {Sentence | null} note what else there is to say of it: the number behind words, who gave it
 *
 * @typedef {object} Row
 * @property {string} path of the value in the document, such as "render.volume"
 * @property {Kind | "unknown"} kind
 * @property {Sentence} name its API name where the tables have none
 * @property {unknown} value
 * @property {Shown} shown
 *
 * @typedef {object} Group
 * @property {string} id
 * @property {Row[]} rows
 *
 * @typedef {object} Marks what has changed since the marking began
 * @property {Record<string, Row>} first each row as it was then, by path
 * @property {Record<string, boolean>} moved the paths that have had another value since
 */

/** @type {Record<string, Record<string, Kind>>} */
export const groupKinds = {
  sound: {
    "render.available": "flag",
    "render.volume": "percent",
    "render.muted": "flag",
    "render.error_code": "result",
  },
  settings: {
    "footstep.bypass": "flag",
    "footstep.bypass_all": "flag",
    "footstep.enhance_strength": "percent",
    "footstep.output_trim_db": "decibels",
    "footstep.mask_time_alpha": "number",
    "footstep.mask_frequency_smooth": "number",
    "footstep.limiter_enabled": "flag",
    "footstep.limiter_ceiling_db": "decibels",
    "footstep.stereo_link": "number",
  },
  versions: {
    "versions.app": "version",
    "versions.algorithm": "version",
    control_bridge: "version",
    control_bridge_available: "flag",
    "apo_diagnostics.available": "flag",
  },
  start: {
    "apo_diagnostics.initialize_attempt_count": "number",
    "apo_diagnostics.initialize_runtime_count": "number",
    "apo_diagnostics.initialize_discovery_count": "number",
    "apo_diagnostics.initialize_count": "number",
    "apo_diagnostics.initialize_stage": "own",
    "apo_diagnostics.initialize_hresult": "result",
    "apo_diagnostics.initialize_for_discovery_only": "flag",
    "apo_diagnostics.initialize_structure": "own",
    "apo_diagnostics.initialize_processing_mode": "own",
    "apo_diagnostics.initialize_data_size": "bytes",
    "apo_diagnostics.initialize_declared_size": "bytes",
  },
  formats: {
    "apo_diagnostics.format_negotiation_count": "number",
    "apo_diagnostics.input_format_negotiation_count": "number",
    "apo_diagnostics.output_format_negotiation_count": "number",
    "apo_diagnostics.lock_input_sample_rate": "hertz",
    "apo_diagnostics.lock_input_channels": "number",
    "apo_diagnostics.lock_input_valid_bits": "bits",
    "apo_diagnostics.lock_input_container_bytes": "bytes",
    "apo_diagnostics.lock_input_format_type": "own",
    "apo_diagnostics.lock_output_sample_rate": "hertz",
    "apo_diagnostics.lock_output_channels": "number",
    "apo_diagnostics.lock_output_valid_bits": "bits",
    "apo_diagnostics.lock_output_container_bytes": "bytes",
    "apo_diagnostics.lock_output_format_type": "own",
  },
  stream: {
    "apo_diagnostics.lock_attempt_count": "number",
    "apo_diagnostics.lock_count": "number",
    "apo_diagnostics.lock_stage": "own",
    "apo_diagnostics.lock_hresult": "result",
    "apo_diagnostics.sample_rate": "hertz",
    "apo_diagnostics.channels": "number",
    "apo_diagnostics.algorithm_requested": "flag",
    "apo_diagnostics.pipeline_mode": "own",
    "apo_diagnostics.last_algorithm_error": "algorithm",
  },
  applied: {
    "apo_diagnostics.applied_valid": "flag",
    "apo_diagnostics.applied_bypass": "flag",
    "apo_diagnostics.applied_bypass_all": "flag",
    "apo_diagnostics.applied_strength": "percent",
  },
  processing: {
    "apo_diagnostics.total_processed_blocks": "number",
    "apo_diagnostics.processing_gain_valid": "flag",
    "apo_diagnostics.processing_gain_db": "decibels",
    "apo_diagnostics.processing_block_count": "number",
    "apo_diagnostics.initialized_mode_mask": "mask",
    "apo_diagnostics.locked_mode_mask": "mask",
    "apo_diagnostics.processed_mode_mask": "mask",
  },
  queries: {
    "apo_diagnostics.get_effects_list_count": "number",
    "apo_diagnostics.get_effects_list_succeeded": "flag",
    "apo_diagnostics.last_effect_count": "number",
    "apo_diagnostics.get_controllable_effects_list_count": "number",
    "apo_diagnostics.get_controllable_effects_list_succeeded": "flag",
    "apo_diagnostics.last_controllable_effect_count": "number",
    "apo_diagnostics.get_latency_count": "number",
    "apo_diagnostics.get_latency_succeeded": "flag",
    "apo_diagnostics.last_latency_nonzero": "flag",
    "apo_diagnostics.get_input_channel_count_count": "number",
    "apo_diagnostics.get_input_channel_count_succeeded": "flag",
    "apo_diagnostics.last_input_channel_count": "number",
  },
  capture: {
    "apo_diagnostics.capture_reported": "flag",
    "apo_diagnostics.capture_state": "own",
    "apo_diagnostics.capture_seconds": "seconds",
    "apo_diagnostics.capture_detail_code": "detail",
  },
  installation: {
    "apo_host.elevated": "flag",
    "apo_host.clsid_registered": "flag",
    "apo_host.apo_dll_present": "flag",
    "apo_host.algorithm_present": "flag",
    "apo_host.apo_dll_path": "path",
    "apo_host.render_clsid": "classId",
    "apo_host.protected_audio_dg_disabled": "registry",
  },
  engine: {
    "audio_engine.running": "flag",
    "audio_engine.process_id": "number",
    "audio_engine.apo_loaded": "flag",
    "audio_engine.algorithm_loaded": "flag",
    "audio_engine.apo_module_path": "path",
    "audio_engine.error_code": "result",
  },
  chain: {
    "apo_binding.endpoint_id": "deviceId",
    "apo_binding.bound": "flag",
    "apo_binding.fx_key_present": "flag",
    "apo_binding.error_code": "result",
    "apo_binding.chain": "classIds",
  },
  account: {
    "session.account": "private",
    "session.signed_in": "flag",
    "session.usage_seconds": "duration",
    "session.signed_in_unix": "time",
    "session.primary_machine_id": "private",
    "session.primary_known": "flag",
    "session.public_id": "private",
    "session.referral_open": "flag",
    "session.referrer": "private",
    "session.invite_url": "private",
  },
};

/** The group of values that the page has no name for: a newer service may have them. */
const otherGroup = "other";

/**
 * @param {string} key
 * @param {Record<string, unknown>} [values]
 * @returns {Sentence}
 */
const sentence = (key, values = {}) => ({ key: `diagnostics.${key}`, values });
const plain = (/** @type {unknown} */ value) => sentence("plain", { value });
const signed = (/** @type {number} */ value) => String(value).replace("-", "−");

/**
 * @param {number} code
 * @returns {Shown}
 */
function shownResult(code) {
  if (!Number.isInteger(code)) return { text: plain(signed(code)), note: sentence("odd") };
  if (code === 0) return { text: resultSentence(0), note: plain("0") };
  const numbers = plain(`${hexResult(code)} · ${signed(code)}`);
  return { text: isKnownResult(code) ? resultSentence(code) : sentence("unlisted"), note: numbers };
}

/**
 * @param {number} mask
 * @returns {Shown} the numbers of the bits that are set
 */
function shownMask(mask) {
  const modes = Array.from({ length: 16 }, (_, mode) => mode).filter((mode) => (mask >>> mode) & 1);
  const hex = `0x${(mask >>> 0).toString(16).toUpperCase().padStart(4, "0")}`;
  return {
    text: modes.length > 0 ? plain(modes.join(", ")) : sentence("none"),
    note: sentence("ownModes", { hex }),
  };
}

/**
 * @param {number} unix seconds since 1970
 * @returns {Sentence}
 */
function utc(unix) {
  const date = new Date(unix * 1000);
  if (unix === 0 || Number.isNaN(date.getTime()))
    return sentence(unix === 0 ? "none" : "plain", { value: unix });
  return sentence("utc", { value: date.toISOString().slice(0, 16).replace("T", " ") });
}

/** @type {Partial<Record<Kind, (value: number) => Shown>>} */
const shownNumbers = {
  number: (value) => ({ text: plain(signed(value)), note: null }),
  percent: (value) => ({ text: sentence("percent", { value }), note: plain(signed(value)) }),
  decibels: (value) => ({ text: plain(`${signed(value)} dB`), note: null }),
  hertz: (value) => ({ text: plain(`${value} Hz`), note: null }),
  bits: (value) => ({ text: sentence("bits", { value }), note: null }),
  bytes: (value) => ({ text: sentence("bytes", { value }), note: null }),
  seconds: (value) => ({ text: sentence("seconds", { value }), note: null }),
  duration: (value) => ({ text: sentence("duration", { value }), note: plain(`${value} s`) }),
  time: (value) => ({ text: utc(value), note: plain(value) }),
  result: shownResult,
  own: (value) => ({ text: plain(signed(value)), note: sentence("own") }),
  algorithm: (value) => ({ text: plain(signed(value)), note: sentence("algorithm") }),
  mask: shownMask,
  detail: (value) => ({ text: plain(signed(value)), note: sentence("ownHex", { hex: hexResult(value) }) }),
};

/** The service's word for the version of a file that does not exist. */
const missingFile = "not found";

/** @param {unknown} value */
const oddText = (value) => (typeof value === "string" ? value : JSON.stringify(value));

/**
 * @param {Kind | "unknown"} kind
 * @param {unknown} value
 * @returns {Shown}
 */
function shownValue(kind, value) {
  if (value === undefined) return { text: sentence("missing"), note: null };
  if (kind === "unknown") return { text: plain(oddText(value)), note: null };
  if (kind === "flag" || kind === "registry") {
    if (typeof value !== "boolean") return { text: plain(oddText(value)), note: sentence("odd") };
    return { text: sentence(value ? "yes" : "no"), note: kind === "registry" ? sentence("registry") : null };
  }
  const showNumber = shownNumbers[kind];
  if (showNumber !== undefined) {
    const number = numberOf(value);
    return number === undefined ? { text: plain(oddText(value)), note: sentence("odd") } : showNumber(number);
  }
  if (kind === "classIds") {
    const isList = Array.isArray(value) && value.every((one) => typeof one === "string");
    if (!isList) return { text: plain(oddText(value)), note: sentence("odd") };
    return { text: value.length > 0 ? plain(value.join("\n")) : sentence("none"), note: null };
  }
  if (typeof value !== "string") return { text: plain(oddText(value)), note: sentence("odd") };
  if (kind === "version" && value === missingFile) return { text: sentence("fileNotFound"), note: null };
  return { text: value === "" ? sentence("none") : plain(value), note: null };
}

/**
 * @param {unknown} document
 * @param {string} path
 * @returns {unknown}
 */
function valueAt(document, path) {
  /** @type {unknown} */
  let value = document;
  for (const key of path.split(".")) {
    const object = objectOf(value);
    value = Object.hasOwn(object, key) ? object[key] : undefined;
  }
  return value;
}

/**
 * @param {unknown} document
 * @param {string} prefix
 * @returns {string[]} the paths of all values; a list and an empty object are values
 */
export function pathsOf(document, prefix = "") {
  const entries = Object.entries(objectOf(document));
  return entries.flatMap(([key, value]) => {
    const path = `${prefix}${key}`;
    const isObject = Object.keys(objectOf(value)).length > 0;
    return isObject ? pathsOf(value, `${path}.`) : [path];
  });
}

/**
 * @param {unknown} status a status document
 * @returns {Group[]} all values with a name, in the order of the tables, and then those without
 */
export function diagnosticsGroups(status) {
  const named = new Set(Object.values(groupKinds).flatMap((members) => Object.keys(members)));
  const groups = Object.entries(groupKinds).map(([id, members]) => ({
    id,
    rows: Object.entries(members).map(([path, kind]) => {
      const value = valueAt(status, path);
      return {
        path,
        kind,
        name: { key: `value.${path}`, values: {} },
        value,
        shown: shownValue(kind, value),
      };
    }),
  }));
  const others = pathsOf(status).filter((path) => !named.has(path));
  if (others.length === 0) return groups;
  const rows = others.map((path) => {
    const value = valueAt(status, path);
    const name = plain(path);
    return { path, kind: /** @type {const} */ ("unknown"), name, value, shown: shownValue("unknown", value) };
  });
  return [...groups, { id: otherGroup, rows }];
}

/**
 * The format that the effect was offered, in one line.
 *
 * @param {unknown} status
 * @param {"input" | "output"} side
 * @returns {Sentence}
 */
export function formatSentence(status, side) {
  const report = objectOf(objectOf(status).apo_diagnostics);
  const part = (/** @type {string} */ name) => numberOf(report[`lock_${side}_${name}`]) ?? 0;
  const rate = part("sample_rate");
  if (rate === 0) return sentence(`format.none.${side}`);
  return sentence(`format.${side}`, {
    rate,
    channels: part("channels"),
    valid: part("valid_bits"),
    container: part("container_bytes") * 8,
  });
}

// ---- what has changed ----

/** @type {Marks} */
export const noMarks = { first: {}, moved: {} };

const same = (/** @type {unknown} */ one, /** @type {unknown} */ other) =>
  JSON.stringify(one) === JSON.stringify(other);

/**
 * Notes what one more document has changed.
 *
 * @param {Marks} marks
 * @param {Group[]} groups
 * @returns {Marks} the same object if nothing is new
 */
export function markChanges(marks, groups) {
  const rows = groups.flatMap((group) => group.rows);
  const added = rows.filter(({ path }) => !Object.hasOwn(marks.first, path));
  const moved = rows.filter(
    ({ path, value }) =>
      Object.hasOwn(marks.first, path) &&
      !Object.hasOwn(marks.moved, path) &&
      !same(marks.first[path].value, value),
  );
  if (added.length === 0 && moved.length === 0) return marks;
  return {
    first: Object.fromEntries([...Object.entries(marks.first), ...added.map((row) => [row.path, row])]),
    moved: Object.fromEntries([...Object.entries(marks.moved), ...moved.map(({ path }) => [path, true])]),
  };
}

/**
 * @param {Marks} marks
 * @param {Row} row
 * @returns {{state: "changed" | "back", was: Shown} | null} back: it has changed in between
 */
export function markOf(marks, { path, value }) {
  if (!Object.hasOwn(marks.moved, path)) return null;
  const { value: first, shown: was } = marks.first[path];
  return { state: same(first, value) ? "back" : "changed", was };
}

// ---- search ----

/**
 * @param {string[]} texts all that a row shows
 * @param {string} query
 * @returns {boolean} whether each word of the query is in one of the texts; a query without words finds all
 */
export function isFound(texts, query) {
  const all = texts.map((text) => text.toLowerCase());
  const words = query
    .toLowerCase()
    .split(/\s+/)
    .filter((word) => word !== "");
  return words.every((word) => all.some((text) => text.includes(word)));
}
