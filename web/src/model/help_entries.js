// What the Help page contains, in its order: sections with groups of entries, each with the titles that the pages show,
// its cause and remedy, and the anchors that links lead to. The search over them is here too.
import { hexResult, isKnownResult, resultSentence } from "./reasons.js";
import { knownServiceTexts } from "./service_texts.js";

/**
 * @typedef {import("./types.js").Sentence} Sentence
 * @typedef {import("./types.js").VerdictId} VerdictId
 *
 * @typedef {object} Title
 * @property {string} id the anchor
 * @property {Sentence} text
 *
 * @typedef {object} Entry
 * @property {string} id the anchor: that of the first title
 * @property {Title[]} titles at least one
 * @property {Sentence[]} text paragraphs; empty where there is a cause
 * @property {Sentence | null} steps a line for each step
 * @property {Sentence | null} cause
 * @property {Sentence | null} remedy
 * @property {string[]} sent the service's own texts; a part that changes is "…"
 * @property {string[]} forms the codes of the titles in the other forms that the pages show
 * @property {string[]} shown keys of further texts that a person may have seen, for the search
 * @property {string[]} links names of sections, which have a text `help.see.NAME`
 *
 * @typedef {object} Group
 * @property {string} title key; empty for none
 * @property {boolean} folded whether each entry is unfolded by itself
 * @property {Entry[]} entries
 *
 * @typedef {object} Section
 * @property {string} id the anchor
 * @property {string} title key
 * @property {Sentence[]} text paragraphs at the beginning
 * @property {Sentence | null} steps
 * @property {Group[]} groups
 * @property {{keys: string[][], does: string}[]} keys combinations of keys, and the key of what they do
 */

/** Names in the registry and folders are the same in every language. */
const values = {
  path: "HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\MMDevices\\Audio\\Render",
  key: "HKEY_LOCAL_MACHINE\\SOFTWARE\\Velmora\\DevBinding",
  presets: "C:\\ProgramData\\Velmora\\presets",
  captures: "C:\\ProgramData\\Velmora\\wav",
};

/**
 * @param {string} key
 * @param {Record<string, unknown>} [given]
 * @returns {Sentence}
 */
const sentence = (key, given = {}) => ({ key, values: given });

/** Examples for the changing parts of a title. */
const sample = {
  device: sentence("help.sample.device"),
  file: "capture-1-host-in.wav",
  code: "12007",
  status: "403",
};

/** @type {Omit<Entry, "id" | "titles">} */
const bareEntry = {
  text: [],
  steps: null,
  cause: null,
  remedy: null,
  sent: [],
  forms: [],
  shown: [],
  links: [],
};

/**
 * @param {Title[]} titles
 * @param {Partial<Entry>} more
 * @returns {Entry}
 */
const entry = (titles, more) => ({ ...bareEntry, id: titles[0].id, titles, ...more });

/**
 * @param {string} prefix of the keys of its cause and remedy
 * @returns {{cause: Sentence, remedy: Sentence}}
 */
const causeAndRemedy = (prefix) => ({
  cause: sentence(`${prefix}.cause`),
  remedy: sentence(`${prefix}.remedy`, { device: sentence("help.sample.otherDevice") }),
});

// ---- controls ----

/** @type {Record<string, string[]>} keys of what the pages say beside a control */
const besideControl = { clip: ["curve.clip"], curve: ["curve.tooHigh", "curve.allUsed"] };

/**
 * @param {string} name
 * @param {string} [key]
 */
const control = (name, key = name) =>
  entry([{ id: name, text: sentence(`help.${key}`) }], {
    text: [sentence(`help.${key}.text`)],
    shown: besideControl[name] ?? [],
  });

/**
 * @param {string} title
 * @param {string[]} names
 * @returns {Group}
 */
const controls = (title, names) => ({
  title: `help.controls.${title}`,
  folded: false,
  entries: names.map((name) => control(name.replace(".", "-"), name)),
});

const controlGroups = [
  controls("sound", ["hear", "device", "enhancement", "strength", "original", "lastSettings", "language"]),
  controls("equalizer", [
    "equalizer",
    "curve",
    "bands",
    "addBand",
    "clip",
    "undo",
    "compare",
    "loudness",
    "presets",
    "import",
    "export",
  ]),
  controls("devices", ["volume", "devices", "add", "restart", "microphones"]),
  controls("advanced", [
    "outputTrim",
    "maskTime",
    "maskFrequency",
    "limiter",
    "limiterCeiling",
    "stereoLink",
    "fade",
    "captures",
    "diagnostics",
    "report",
    "account",
    "account.primary",
    "account.referrer",
  ]),
];

// ---- verdicts ----

/**
 * Headlines and details by verdict; where nothing is given, both have the verdict's own name. Also: further keys that
 * say the same.
 *
 * @typedef {{headlines?: string[], details?: string[], also?: string[], links?: string[]}} VerdictRow
 * @type {Record<VerdictId, VerdictRow>}
 */
const verdicts = {
  works: { details: ["works.enhancement", "works.equalizer"] },
  ready: {},
  notAdded: { details: ["notAdded", "notAdded.programs"], also: ["check.added.no"] },
  goneAgain: {},
  restartPending: {},
  engineKept: {},
  muted: { details: ["muted", "muted.volume"] },
  off: {},
  bypassed: {},
  original: {},
  strengthZero: {},
  couldNotStart: {},
  otherDevice: {},
  severalDevices: {},
  noDevice: { also: ["devices.none"] },
  deviceGone: { headlines: ["deviceGone", "deviceGone.unnamed"] },
  noEffects: {},
  needsAdmin: {},
  refused: { links: ["refused"] },
  restartFailed: { details: ["restartFailed", "restartFailed.rights"] },
  restarting: {
    headlines: ["restarting", "restarting.settings"],
    details: ["restarting", "restarting.settings", "restarting.engine"],
  },
  notInstalled: { also: ["check.installed.notRegistered"] },
  fileMissing: {
    headlines: ["fileMissing.effect", "fileMissing.algorithm"],
    also: ["check.installed.noFile", "check.installed.noAlgorithm"],
  },
  expired: {},
  gone: { also: ["action.stopped"] },
  checking: { also: ["check.processing.unknown"] },
  waiting: { details: ["waiting", "waiting.long"] },
  unclear: {
    details: ["unclear", "unclear.answer", "unclear.devices", "unclear.record", "unclear.volume"],
    also: [
      "check.installed.unknown",
      "check.added.unknown",
      "check.engine.unlisted",
      "check.engine.unknown",
      "check.loaded.unlisted",
      "check.loaded.unknown",
      "check.processing.noRecord",
      "check.applied.unknown",
    ],
  },
  removalPending: {},
};

/** @type {[string, string[]][]} each reason, with keys of checks that say the same */
const reasons = [
  ["engine", ["check.engine.no", "check.loaded.noEngine"]],
  ["notLoaded", ["check.loaded.no"]],
  ["algorithmNotLoaded", ["check.loaded.noAlgorithm"]],
  ["initialize", ["check.processing.failed"]],
  ["format", []],
  ["lock", []],
  ["algorithm", []],
  ["differs", ["check.applied.no"]],
  ["notApplied", ["check.applied.notReported"]],
  ["still", ["check.processing.no"]],
  ["hangs", []],
];

/** @param {[string, VerdictRow]} row */
const verdictEntry = ([id, { headlines = [id], details = [id], also = [], links = [] }]) =>
  entry(
    headlines.map((name, index) => ({
      id: index === 0 ? `verdict-${id}` : `verdict-${name}`,
      text: sentence(`verdict.${name}`, sample),
    })),
    {
      ...causeAndRemedy(`help.verdict.${id}`),
      shown: [...details.map((name) => `detail.${name}`), ...also],
      links,
    },
  );

/** @param {[string, string[]]} row */
const reasonEntry = ([name, shown]) =>
  entry(
    [
      {
        id: `reason-${name}`,
        text: sentence(`reason.${name}`, { result: resultSentence(0x80004005), code: "1" }),
      },
    ],
    { ...causeAndRemedy(`help.reason.${name}`), shown },
  );

// ---- errors ----

/**
 * The keys of service_texts.js by entry. An entry is named after its first key, unless it has a name.
 *
 * @type {{title: string, rows: {name?: string, keys: string[], links?: string[]}[]}[]}
 */
const errorGroups = [
  {
    title: "use",
    rows: [
      { keys: ["token"] },
      { keys: ["route", "method"] },
      { keys: ["origin"] },
      { keys: ["invalidRequest", "attach"] },
      { keys: ["record"] },
      {
        name: "range",
        keys: [
          "footstep",
          "outputTrim",
          "maskTime",
          "maskFrequency",
          "limiterCeiling",
          "stereoLink",
          "bandType",
          "bandFrequency",
          "bandGain",
          "bandQ",
          "fade",
          "volumeRange",
          "muteRange",
          "captureSeconds",
          "captureAction",
        ],
      },
      { keys: ["bands", "band"] },
    ],
  },
  { title: "presets", rows: [{ keys: ["presetName"] }, { keys: ["noPreset"] }, { keys: ["presetFile"] }] },
  { title: "import", rows: [] },
  {
    title: "captures",
    rows: [
      { keys: ["noCapture"] },
      { keys: ["captureUnreadable", "captureRead"] },
      { keys: ["captureChanged"] },
      { keys: ["captureLarge"] },
    ],
  },
  {
    title: "devices",
    rows: [
      { keys: ["deviceMissing"] },
      { keys: ["deviceId", "noSelection"] },
      { keys: ["deviceChoice"] },
      { keys: ["volume", "mute"] },
    ],
  },
  {
    title: "change",
    rows: [
      { keys: ["chainLocked"], links: ["refused"] },
      { keys: ["chainUnwritable"], links: ["refused"] },
      { keys: ["chainReverted"] },
      { keys: ["chainUnreadable"] },
      { keys: ["notPlayback"] },
      { keys: ["managerClosed"] },
      { keys: ["audioLocked"] },
      { keys: ["audioKeepsRunning"] },
      { keys: ["audioStopsSlowly"] },
      { keys: ["audioNotStarted"] },
      { keys: ["audioStartsSlowly"] },
    ],
  },
  {
    title: "account",
    rows: [
      { keys: ["accountFields", "accountReferrer"] },
      { keys: ["accountSignIn", "accountSignInFirst"] },
      { keys: ["accountState"] },
      { keys: ["accountUnreachable", "accountFailed", "accountNetwork", "accountRequest"] },
      { keys: ["accountStatus"] },
      { name: "accountActionRefused", keys: ["accountNotBound", "accountNotFreed"] },
      { keys: ["accountUnreadable", "accountLarge", "accountNameless"] },
      { keys: ["accountElsewhere"] },
      { keys: ["accountMissing"] },
      { keys: ["accountAddress"] },
    ],
  },
];

/**
 * What the pages themselves say when something fails, by the group of errors that it belongs to. Titles and shown are
 * whole keys; the first title names the anchor.
 *
 * @type {Record<string, {name: string, titles: string[], shown?: string[]}[]>}
 */
const pageMessages = {
  use: [
    {
      name: "notDone",
      titles: ["action.failed"],
      shown: ["action.notAdded", "action.notRemoved", "service.none"],
    },
    { name: "unsent", titles: ["equalizer.unsent"], shown: ["equalizer.sentLate"] },
    { name: "changedElsewhere", titles: ["equalizer.changedElsewhere"] },
    { name: "notKept", titles: ["page.notKept"] },
    { name: "copyByHand", titles: ["export.copyByHand"], shown: ["account.copyByHand", "report.byHand"] },
  ],
  presets: [
    {
      name: "presetWriting",
      titles: ["preset.notSaved", "preset.notRenamed", "preset.notDeleted", "preset.notRestored"],
      shown: [
        "preset.notRenamedTwice",
        "preset.renamedTwice",
        "preset.reason.compare",
        "preset.reason.silent",
        "preset.reason.locked",
      ],
    },
    {
      name: "presetNaming",
      titles: ["preset.name.character", "preset.name.reserved"],
      shown: ["preset.name.empty", "preset.name.blank", "preset.name.long"],
    },
    { name: "presetListing", titles: ["preset.notListed"] },
    {
      name: "presetReading",
      titles: ["preset.unopened", "preset.unreadable"],
      shown: ["preset.deleteUnreadable"],
    },
    { name: "presetForeign", titles: ["preset.foreign"] },
    { name: "presetGone", titles: ["preset.gone"], shown: ["preset.goneChosen"] },
  ],
  import: [
    {
      name: "importFile",
      titles: [
        "import.error.tooLarge",
        "import.error.binary",
        "import.error.unreadable",
        "import.error.severalFiles",
        "import.error.noText",
      ],
    },
    {
      name: "importNothing",
      titles: ["import.nothing"],
      shown: [
        "import.reason.json",
        "import.reason.jsonNotRead",
        "import.reason.noSetting",
        "import.reason.noBands",
        "import.reason.bandsNoList",
        "import.reason.bandsEmpty",
        "import.reason.noBand",
      ],
    },
    {
      name: "importLines",
      titles: ["import.dropped"],
      shown: [
        "notUnderstood",
        "notSupported",
        "off",
        "state",
        "noType",
        "type",
        "typeNotWhole",
        "slope",
        "word",
        "twice",
        "twoWidths",
        "bandwidthType",
        "missing",
        "noValue",
        "number",
        "noNumber",
        "ambiguous",
        "range",
        "surplus",
        "overtaken",
        "secondGraphic",
        "graphicBesideFilters",
        "noPairs",
        "pair",
        "frequencyTwice",
        "noYesNo",
        "memberTwice",
        "memberUnknown",
      ].map((reason) => `import.reason.${reason}`),
    },
  ],
  captures: [
    {
      name: "captureSilent",
      titles: ["capture.note.silent"],
      shown: ["capture.note.noSound", "capture.note.noReport"],
    },
    {
      name: "captureMissing",
      titles: ["capture.missing"],
      shown: ["capture.missingRest", "capture.note.missing"],
    },
    { name: "captureGone", titles: ["capture.gone"], shown: ["capture.note.gone"] },
    { name: "captureOld", titles: ["capture.note.old"], shown: ["capture.note.oldFrom"] },
    { name: "captureElsewhere", titles: ["capture.note.elsewhere"] },
    { name: "captureBroken", titles: ["capture.brokenUnknown"], shown: ["capture.broken"] },
    { name: "captureUnwritable", titles: ["capture.unwritable"] },
  ],
  devices: [{ name: "devicesTrouble", titles: ["devices.trouble"] }],
  account: [
    { name: "accountOver", titles: ["account.over", "account.codeOver"] },
    { name: "accountDenied", titles: ["account.denied"] },
    { name: "accountIncomplete", titles: ["account.failed", "account.noCode"] },
    { name: "accountEnded", titles: ["account.ended"] },
  ],
};

/** Known texts of the service that report no trouble, so that they need no entry. */
export const goodNews = ["audioRestarted", "accountBound", "accountFreed"];

/** @param {string} key */
function textsOf(key) {
  const known = knownServiceTexts.filter((one) => one.key === key);
  return known.map(({ pattern }) =>
    typeof pattern === "string"
      ? pattern
      : pattern.source.replace(/^\^|\$$/g, "").replace(/\(\?<\w+>[^)]*\)/g, "…"),
  );
}

/** @param {{name?: string, keys: string[], links?: string[]}} row */
const errorEntry = ({ keys, name = keys[0], links = [] }) =>
  entry(
    keys.map((key) => ({ id: `error-${key}`, text: sentence(`service.${key}`, sample) })),
    { ...causeAndRemedy(`help.error.${name}`), sent: keys.flatMap(textsOf), links },
  );

/** Examples for the changing parts of the pages' own messages. */
const messageSample = {
  name: sentence("preset.newName"),
  reason: sentence("preset.reason.locked"),
  result: resultSentence(0x80004005),
  character: "?",
  count: 2,
};

/** @param {{name: string, titles: string[], shown?: string[]}} row */
const messageEntry = ({ name, titles, shown = [] }) =>
  entry(
    titles.map((key) => ({ id: `message-${key.replaceAll(".", "-")}`, text: sentence(key, messageSample) })),
    { ...causeAndRemedy(`help.message.${name}`), shown },
  );

// ---- results of Windows ----

/**
 * Results by what they mean for a person. Those that have no words in the tables are left out.
 *
 * @type {[string, number[]][]}
 */
export const resultGroups = [
  ["access", [5]],
  ["missing", [2, 3, 1018, 1168]],
  ["disk", [19, 29, 112, 123, 170, 183, 206, 267, 1921]],
  ["memory", [4, 8, 14, 1450]],
  ["partial", [6, 18, 24, 234, 299]],
  ["setting", [87, 1016, 1630, 1804]],
  ["file", [126, 127, 193]],
  ["signature", [577]],
  ["busy", [1051, 1052, 1055, 1061]],
  ["slow", [1053, 1054]],
  ["running", [1056]],
  ["disabled", [1058]],
  ["dependency", [1068]],
  ["uninstalled", [1059, 1060, 1065, 1069, 1072, 1075]],
  ["stopped", [1062, 1722, 1726, 0x80010108, 0x88890010]],
  ["crashed", [1067]],
  ["shutdown", [1115]],
  ["network", [12002, 12004, 12005, 12006, 12007, 12029, 12030, 12150, 12152, 12156, 12157, 12175, 12182]],
  ["component", [0x80040110, 0x80040154, 0x800401f0]],
  ["unsupported", [0x80004001, 0x80004002]],
  ["unspecified", [31, 0x80004003, 0x80004004, 0x80004005, 0x8000ffff]],
  ["pending", [0x8000000a]],
  ["deviceKind", [0x88890003]],
  ["deviceLost", [0x88890004, 0x8889000f, 0x88890026]],
  ["format", [0x88890008, 0x887d0003, 0x887d0007, 0x887d0008, 0x887d0009]],
  ["exclusive", [0x8889000a]],
  ["stream", [0x88890001, 0x88890002, 0x88890017, 0x88890018]],
  [
    "effect",
    [
      0x887d0001, 0x887d0002, 0x887d0004, 0x887d0005, 0x887d0006, 0x887d000a, 0x887d000b, 0x887d000c,
      0x887d000d, 0x887d000e,
    ],
  ],
];

/** The upper half of an HRESULT that carries a Win32 error (winerror.h, FACILITY_WIN32). */
const win32Results = 0x8007 << 16;

/**
 * The status that the service reports for a result: in hexadecimal, unless the words have it so, and in decimal.
 *
 * @param {number} code
 * @returns {string}
 */
function otherForms(code) {
  const isWin32 = code < 0x10000;
  const status = isWin32 ? win32Results | code : code | 0;
  const decimal = String(status).replace("-", "−");
  return isWin32 ? `${hexResult(status)} · ${decimal}` : decimal;
}

/**
 * @param {[string, number[]]} row
 * @returns {Entry[]} one, or none
 */
function resultEntry([name, codes]) {
  const known = codes.filter(isKnownResult);
  const titles = known
    .map(resultSentence)
    .map((text) => ({ id: text.key.replace("result.", "result-"), text }));
  if (titles.length === 0) return [];
  return [entry(titles, { ...causeAndRemedy(`help.result.${name}`), forms: known.map(otherForms) })];
}

// ---- the page ----

/**
 * @param {string} id
 * @param {string} key
 * @param {string} [steps] the key of its steps
 */
const topic = (id, key, steps) =>
  entry([{ id, text: sentence(key) }], {
    text: [sentence(`${key}.text`, values)],
    steps: steps === undefined ? null : sentence(steps, values),
  });

/**
 * @param {string} title
 * @param {Entry[]} entries
 * @returns {Group}
 */
const folded = (title, entries) => ({ title, folded: true, entries });

/**
 * @param {Entry[]} entries
 * @returns {Group}
 */
const open = (entries) => ({ title: "", folded: false, entries });

const keyRows = [
  { keys: [["O"]], does: "original" },
  { keys: [["C"]], does: "slot" },
  { keys: [["Ctrl", "Z"]], does: "undo" },
  {
    keys: [
      ["Ctrl", "Y"],
      ["Ctrl", "Shift", "Z"],
    ],
    does: "redo",
  },
  { keys: [["Tab"]], does: "next" },
  { keys: [["Space"]], does: "press" },
  { keys: [["Enter"]], does: "enter" },
  { keys: [["Esc"]], does: "escape" },
  { keys: [["←"], ["→"]], does: "dotFrequency" },
  { keys: [["↑"], ["↓"]], does: "dotGain" },
  { keys: [["Page Up"], ["Page Down"]], does: "dotPage" },
  { keys: [["+"], ["-"]], does: "dotQ" },
  { keys: [["Delete"]], does: "dotFlat" },
  { keys: [["T"]], does: "dotType" },
].map(({ keys, does }) => ({ keys, does: `help.keys.${does}` }));

/**
 * @param {string} id
 * @param {Partial<Section>} more
 * @returns {Section}
 */
const section = (id, more) => ({
  id,
  title: `help.${id}`,
  text: [],
  steps: null,
  groups: [],
  keys: [],
  ...more,
});

/** @type {Section[]} */
export const helpSections = [
  section("start", { text: [sentence("help.start.text")], steps: sentence("help.start.steps") }),
  section("controls", { groups: controlGroups }),
  section("verdicts", {
    groups: [
      folded("", Object.entries(verdicts).map(verdictEntry)),
      folded("help.reasons", reasons.map(reasonEntry)),
    ],
  }),
  section("errors", {
    groups: errorGroups.map(({ title, rows }) =>
      folded(`help.errors.${title}`, [
        ...rows.map(errorEntry),
        ...(pageMessages[title] ?? []).map(messageEntry),
      ]),
    ),
  }),
  section("results", {
    text: [sentence("help.results.text")],
    groups: [folded("", resultGroups.flatMap(resultEntry))],
  }),
  section("refused", {
    text: [sentence("help.refused.text")],
    steps: sentence("help.refused.steps"),
    groups: [open([topic("rights", "help.refused.rights", "help.refused.rights.steps")])],
  }),
  section("remove", {
    text: [sentence("help.remove.text")],
    steps: sentence("help.remove.steps"),
    groups: [open([topic("stays", "help.remove.stays"), topic("end", "help.remove.end")])],
  }),
  section("keys", { text: [sentence("help.keys.text")], keys: keyRows }),
  section("privacy", {
    groups: [
      open(
        ["sends", "account", "browser", "captures", "report"].map((name) =>
          topic(`privacy-${name}`, `help.privacy.${name}`),
        ),
      ),
    ],
  }),
];

const allEntries = helpSections.flatMap(({ groups }) => groups.flatMap(({ entries }) => entries));
const entriesByAnchor = new Map(allEntries.flatMap((one) => one.titles.map(({ id }) => [id, one])));

/**
 * The entry that an anchor leads to.
 *
 * @param {string} anchor without its #
 * @returns {Entry | undefined} nothing for that of a section, and for an unknown one
 */
export const entryOf = (anchor) => entriesByAnchor.get(anchor);

/**
 * Where Help explains a sentence that a page shows: that of the error or the result in it, the innermost one first.
 *
 * @param {unknown} shown a sentence; its values may be sentences
 * @returns {string | undefined} an anchor
 */
export function helpAnchorOf(shown) {
  if (typeof shown !== "object" || shown === null || !("key" in shown)) return undefined;
  const { key, values: inner = {} } = /** @type {Sentence} */ (shown);
  for (const value of Object.values(inner)) {
    const found = helpAnchorOf(value);
    if (found !== undefined) return found;
  }
  const anchor = key
    .replace(/^service\./, "error-")
    .replace(/^result\./, "result-")
    .replace(/^reason\./, "reason-");
  return anchor !== key && entriesByAnchor.has(anchor) ? anchor : undefined;
}

/** Verdicts that pass by themselves, or where no page can be opened. */
const withoutLink = new Set(["checking", "waiting", "restarting", "gone"]);

/**
 * Where Help explains a verdict: why it could not start, if that is known, else the verdict.
 *
 * @param {import("./types.js").Verdict} verdict
 * @returns {string | undefined} an anchor
 */
export function helpAnchorOfVerdict({ id, detail }) {
  if (withoutLink.has(id)) return undefined;
  if (id === "couldNotStart") {
    const { key = "" } = /** @type {Partial<Sentence>} */ (detail.values.reason ?? {});
    const anchor = key.replace("reason.", "reason-");
    if (entriesByAnchor.has(anchor)) return anchor;
  }
  return `verdict-${id}`;
}

// ---- the search ----

/**
 * Letters and digits only, in lower case, so that marks, blanks and their widths make no difference.
 *
 * @param {string} text
 */
const plain = (text) =>
  text
    .normalize("NFKC")
    .toLowerCase()
    .replace(/[^\p{L}\p{N}]+/gu, " ")
    .trim();

/** A part of a sentence that is shorter says too little. */
const shortestPart = 2;

/**
 * The fixed parts of a template, in plain letters.
 *
 * @param {string} template
 */
const partsOf = (template) =>
  template
    .split(/\{[^}]*\}|…/)
    .map(plain)
    .filter((part) => part.length >= shortestPart);

/**
 * Whether a sentence that a person saw has these parts in their order; the changing parts may be anything.
 *
 * @param {string[]} parts
 * @param {string} seen in plain letters
 */
function hasParts(parts, seen) {
  let from = 0;
  for (const part of parts) {
    const at = seen.indexOf(part, from);
    if (at < 0) return false;
    from = at + part.length;
  }
  return parts.length > 0;
}

/**
 * @typedef {object} Searched a text as the search takes it; searchedText makes it
 * @property {string[][]} templates the fixed parts of sentences that a person may have seen, in all languages
 * @property {string} text everything that is shown, in all languages
 */

/**
 * @param {string[]} templates sentences that a person may have seen, with {placeholders} or …
 * @param {string[]} texts everything that is shown
 * @returns {Searched}
 */
export const searchedText = (templates, texts) => ({
  templates: templates.map(partsOf),
  text: plain(texts.join("\n")),
});

/**
 * Whether a text answers what a person looks for: a sentence of it, or words that are all in it.
 *
 * @param {Searched} searched
 * @param {string} query
 */
export function isFound({ templates, text }, query) {
  const seen = plain(query);
  if (seen === "") return true;
  return seen.split(" ").every((word) => text.includes(word)) || templates.some((one) => hasParts(one, seen));
}

/**
 * @param {Entry} one
 * @returns {{seen: Sentence[], other: Sentence[]}} what a person may have seen on the pages, and the rest
 */
export function sentencesOf({ titles, text, steps, cause, remedy, shown }) {
  const rest = [...text, steps, cause, remedy].filter((found) => found !== null);
  return {
    seen: [...titles.map((title) => title.text), ...shown.map((key) => sentence(key, sample))],
    other: /** @type {Sentence[]} */ (rest),
  };
}

/**
 * An entry as the search takes it.
 *
 * @param {Entry} one
 * @param {(key: string) => string[]} templatesOf a text in every language, its placeholders kept
 * @param {(shown: Sentence) => string[]} say a sentence in every language
 * @returns {Searched}
 */
export function searchedEntry(one, templatesOf, say) {
  const { seen, other } = sentencesOf(one);
  const templates = seen.flatMap(({ key }) => templatesOf(key));
  const texts = [...[...seen, ...other].flatMap(say), ...one.sent, ...one.forms];
  return searchedText([...templates, ...one.sent], texts);
}
