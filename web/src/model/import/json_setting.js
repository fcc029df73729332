// The service's own form of a setting. What the service would refuse or change is listed and not taken.
import { bandCount, bandRanges, fadeRange, firstBands } from "../equalizer.js";
import { plainFade } from "./fields.js";
import { snippet } from "./lines.js";
import { kept } from "./numbers.js";

/**
 * @typedef {import("../types.js").Sentence} Sentence
 * @typedef {import("../equalizer.js").Band} Band
 * @typedef {import("../equalizer.js").Setting} Setting
 * @typedef {import("./json_text.js").Node} Node
 * @typedef {import("./json_text.js").Member} Member
 * @typedef {import("./lines.js").Counter} Counter
 * @typedef {import("./parametric.js").Dropped} Dropped
 *
 * @typedef {object} Reader
 * @property {string} text
 * @property {Counter} counter
 * @property {Dropped[]} dropped
 * @property {number} rounded values that had more digits than are kept
 *
 * @typedef {object} JsonSetting
 * @property {Setting | null} setting null where no band is taken
 * @property {number} taken
 * @property {number} total
 * @property {number} surplus bands behind the 15th
 * @property {string[]} missing members that are absent, whose first values are taken
 * @property {number} rounded
 * @property {Dropped[]} dropped
 */

const highestType = 8;

const bandFields = /** @type {const} */ ([
  { name: "type", field: "type", minimum: 0, maximum: highestType },
  { name: "freq_hz", field: "frequency", ...bandRanges.freq_hz },
  { name: "gain_db", field: "gain", ...bandRanges.gain_db },
  { name: "q", field: "q", ...bandRanges.q },
]);

/** @param {string} key; @param {Sentence["values"]} [values] @returns {Sentence} */
const reasonOf = (key, values = {}) => ({ key: `import.reason.${key}`, values });

/** @param {string} name @returns {Sentence} */
const fieldName = (name) => ({ key: `import.field.${name}`, values: {} });

/**
 * @param {Reader} reader
 * @param {{start: number, line: number}} from
 * @param {number} end
 * @param {Sentence} reason
 */
function drop(reader, { start, line }, end, reason) {
  // One character more than is shown says that there is more.
  const text = snippet(reader.text.slice(start, Math.min(end, start + 200)));
  reader.dropped.push({ line, text, reason });
}

/**
 * The members of an object by name. The first of a name counts, as for the service; others are listed, and so are unknown
 * ones.
 *
 * @param {Reader} reader
 * @param {Node} node
 * @param {readonly string[]} known
 */
function membersOf(reader, node, known) {
  /** @type {Map<string, Member>} */
  const members = new Map();
  for (const member of node.members) {
    ++reader.counter.steps;
    const isTwice = members.has(member.name);
    if (known.includes(member.name) && !isTwice) members.set(member.name, member);
    else {
      const key = isTwice ? "memberTwice" : "memberUnknown";
      drop(reader, member, member.node.end, reasonOf(key, { text: member.name.slice(0, 40) }));
    }
  }
  return members;
}

/**
 * @param {Reader} reader
 * @param {Map<string, Member>} members
 * @returns {{band: Band} | {reason: Sentence}} the first reason in the service's order
 */
function readBand(reader, members) {
  for (const { name, field } of bandFields) {
    const kind = members.get(name)?.node.kind;
    if (kind === undefined) return { reason: reasonOf("missing", { field: fieldName(field) }) };
    if (kind !== "number") return { reason: reasonOf("noNumber", { field: fieldName(field) }) };
  }
  const values = bandFields.map(({ name }) => Number(members.get(name)?.node.value));
  const wrong = bandFields.findIndex(
    ({ minimum, maximum }, index) => !(values[index] >= minimum && values[index] <= maximum),
  );
  if (wrong !== -1) {
    const { field, minimum, maximum } = bandFields[wrong];
    const range = { minimum: String(minimum), maximum: String(maximum) };
    return { reason: reasonOf("range", { field: fieldName(field), text: String(values[wrong]), ...range }) };
  }
  const [type, frequency, gain, q] = values;
  if (!Number.isInteger(type)) return { reason: reasonOf("typeNotWhole", { text: String(type) }) };
  reader.rounded += [frequency, gain, q].filter((value) => kept(value) !== value).length;
  return { band: { type: kept(type), freq_hz: kept(frequency), gain_db: kept(gain), q: kept(q) } };
}

/**
 * @param {Reader} reader
 * @param {Member | undefined} member
 * @returns {{bands: Band[], taken: number, total: number}} a band that is not taken is flat, and the others keep their
 *   places
 */
function readBands(reader, member) {
  const bands = firstBands();
  if (member === undefined) return { bands, taken: 0, total: 0 };
  if (member.node.kind !== "array") {
    drop(reader, member, member.node.end, reasonOf("bandsNoList"));
    return { bands, taken: 0, total: 0 };
  }
  const { items } = member.node;
  if (items.length === 0) drop(reader, member, member.node.end, reasonOf("bandsEmpty"));
  let taken = 0;
  items.forEach((item, index) => {
    ++reader.counter.steps;
    if (index >= bandCount) {
      drop(reader, item, item.end, reasonOf("surplus"));
      return;
    }
    if (item.kind !== "object") {
      drop(reader, item, item.end, reasonOf("noBand"));
      return;
    }
    const members = membersOf(
      reader,
      item,
      bandFields.map(({ name }) => name),
    );
    const result = readBand(reader, members);
    if ("reason" in result) {
      drop(reader, item, item.end, result.reason);
      return;
    }
    bands[index] = result.band;
    ++taken;
  });
  return { bands, taken, total: items.length };
}

/** @param {Reader} reader; @param {Member | undefined} member */
function readBypass(reader, member) {
  if (member?.node.kind === "boolean") return Boolean(member.node.value);
  if (member !== undefined) drop(reader, member, member.node.end, reasonOf("noYesNo", { text: member.name }));
  return false;
}

/** @param {Reader} reader; @param {Member | undefined} member */
function readFade(reader, member) {
  if (member === undefined) return plainFade;
  const { kind, value, end } = member.node;
  const fade = kind === "number" ? Number(value) : NaN;
  if (fade >= fadeRange.minimum && fade <= fadeRange.maximum) {
    const steps = Math.round(fade * 10) / 10;
    if (steps !== fade) ++reader.rounded;
    return steps;
  }
  const field = fieldName("fade");
  const range = { minimum: String(fadeRange.minimum), maximum: String(fadeRange.maximum) };
  const reason =
    kind === "number"
      ? reasonOf("range", { field, text: String(value), ...range })
      : reasonOf("noNumber", { field });
  drop(reader, member, end, reason);
  return plainFade;
}

/**
 * @param {string} text of the whole document
 * @param {Node} root
 * @param {Counter} counter
 * @returns {JsonSetting}
 */
export function readJsonSetting(text, root, counter) {
  /** @type {Reader} */
  const reader = { text, counter, dropped: [], rounded: 0 };
  if (root.kind !== "object") {
    drop(reader, root, root.end, reasonOf("noSetting"));
    return {
      setting: null,
      taken: 0,
      total: 0,
      surplus: 0,
      missing: [],
      rounded: 0,
      dropped: reader.dropped,
    };
  }
  const members = membersOf(reader, root, ["bypass", "fade_ms", "bands"]);
  const { bands, taken, total } = readBands(reader, members.get("bands"));
  if (!members.has("bands")) drop(reader, root, root.end, reasonOf("noBands"));
  const setting = {
    bypass: readBypass(reader, members.get("bypass")),
    fade_ms: readFade(reader, members.get("fade_ms")),
    bands,
  };
  return {
    setting: taken > 0 ? setting : null,
    taken,
    total,
    surplus: Math.max(0, total - bandCount),
    missing: ["bypass", "fade_ms"].filter((name) => !members.has(name)),
    rounded: reader.rounded,
    dropped: reader.dropped,
  };
}
