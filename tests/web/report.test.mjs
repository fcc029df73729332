// The report that a person copies: what it has, and that nothing private is in it wherever it was planted.
import assert from "node:assert/strict";
import test from "node:test";

import { groupKinds } from "../../web/src/model/diagnostics.js";
import { emptyMemory } from "../../web/src/model/memory.js";
import { knownServiceTexts } from "../../web/src/model/service_texts.js";
import { cutPaths, reportText } from "../../web/src/model/report.js";
import { say, saySentence, tables } from "../../web/src/texts/index.js";
import { afterChange, answering, collected, collectedNames, judge, now, seenFor } from "./states.mjs";

const languages = /** @type {const} */ (["en", "zh"]);
const token = "5ecre7-t0ken+of/the=session-0123456789";
const browser = "Mozilla/5.0 (Windows NT 10.0; Win64; x64) Chromium/140";

/**
 * The report of a page that has looked at a state.
 *
 * @param {import("./states.mjs").State} state
 * @param {import("./states.mjs").Page & {language?: "en" | "zh", agent?: string, secret?: string}} [page]
 */
function reportOf(state, { language = "en", kept, action, agent = browser, secret = token } = {}) {
  const page = judge(state, { kept, action });
  const source = {
    time: now,
    browser: agent,
    token: secret,
    verdict: page.found,
    link: answering,
    action: page.action,
    kept: page.memory,
    seen: page.seen,
  };
  return reportText(source, (sentence) => saySentence(language, sentence));
}

const valuePaths = Object.values(groupKinds)
  .flatMap((members) => Object.keys(members))
  .filter((path) => !path.startsWith("session."));

test("the report has the verdict, the versions, the devices and every value once, in both languages", () => {
  for (const name of collectedNames()) {
    const state = collected(name);
    const { found } = judge(state);
    for (const language of languages) {
      const text = reportOf(state, { language });
      const lines = text.split("\n");
      assert.ok(
        lines.includes(`${found.id}: ${saySentence(language, found.headline)}`),
        `${name}: ${found.id}`,
      );
      assert.ok(lines.includes(`versions.app: ${state.now.versions?.app}`), name);
      for (const path of valuePaths) {
        assert.equal(lines.filter((line) => line.startsWith(`${path}: `)).length, 1, `${name}: ${path}`);
      }
      for (const { id } of state.devices.render) assert.ok(text.includes(id), `${name}: ${id}`);
      assert.doesNotMatch(
        text,
        /undefined|\[object|(?<!apo_)\b(?:report|diagnostics|result)\.[a-z0-9]/,
        name,
      );
    }
  }
});

test("where programs are named, the report has the sentence without them", () => {
  const state = collected("notAdded");
  state.devices.render[0].sessions = ["C:\\Program Files\\player.exe"];
  assert.equal(judge(state).found.detail.key, "detail.notAdded.programs");
  for (const language of languages) {
    const lines = reportOf(state, { language }).split("\n");
    assert.ok(lines.includes(say(language, "detail.notAdded")), language);
    assert.ok(!lines.some((line) => line.includes("player")), language);
  }
  const lists = Object.keys(tables.en).filter((key) => tables.en[key].includes(":list}"));
  for (const key of lists.filter((one) => /^(?:verdict|detail|reason|check|evidence)\./.test(one))) {
    assert.match(key, /\.programs$/);
    assert.ok(Object.hasOwn(tables.en, key.replace(".programs", "")), key);
  }
});

test("names of devices stay, on their line", () => {
  const state = collected("works");
  state.devices.render[0].name = "Anna's headphones\n\u202e (USB)";
  const line = reportOf(state)
    .split("\n")
    .find((one) => one.startsWith("1: ") && one.includes("Anna"));
  assert.match(
    String(line),
    /^1: \u2068Anna's headphones {1,2}\(USB\)\u2069 \| peak 0\.25, sessions \d+, is_default, /,
  );
});

test("results have their number in each form, and words", () => {
  const state = collected("works");
  state.now.apo_diagnostics.lock_hresult = -2004287480;
  state.now.audio_engine.error_code = 0;
  const lines = reportOf(state).split("\n");
  assert.ok(
    lines.includes(
      "apo_diagnostics.lock_hresult: -2004287480 = 0x88890008, the format is not supported (0x88890008)",
    ),
  );
  assert.ok(lines.includes("audio_engine.error_code: 0"));
  assert.ok(lines.includes("apo_diagnostics.lock_stage: 8"));
});

test("the last change is in it, with the service's known texts in the page's language", () => {
  const state = collected("restartDenied");
  const { action, kept } = afterChange(state, now - 60_000);
  const lines = reportOf(state, { language: "zh", kept, action }).split("\n");
  assert.ok(
    lines.includes("audio_restart_error: -2147024891 = 0x80070005, 拒绝访问 (5) Windows 音频拒绝停止。"),
  );
  assert.ok(lines.includes("add, restart_audio: true, 2000 ms") && lines.includes("HTTP 200"));
});

// ---- paths ----

const user = "PLANTEDNAME";

test("paths below a user's folder keep that folder and the file's name only", () => {
  const rows = [
    [`C:\\Users\\${user}\\AppData\\Local\\Velmora\\fse.dll`, "C:\\Users\\…\\fse.dll"],
    [`c:\\USERS\\${user}\\x.dll`, "c:\\USERS\\…\\x.dll"],
    [`C:/Users/${user}/a/b/x.dll`, "C:/Users/…/x.dll"],
    [`C:\\Users\\${user}`, "C:\\Users\\…"],
    [`C:\\Users\\${user}\\`, "C:\\Users\\…"],
    [`C:\\Users\\${user.slice(0, 6)}~1\\APPDATA\\x.dll`, "C:\\Users\\…\\x.dll"],
    [`C:\\Users\\${user} of the family\\x.dll`, "C:\\Users\\…\\x.dll"],
    [`C:\\Users\\.\\${user}\\x.dll`, "C:\\Users\\…\\x.dll"],
    [`C:\\Users\\other\\..\\${user}`, "C:\\Users\\…"],
    [`C:\\Windows\\..\\Users\\${user}\\x.dll`, "C:\\Windows\\..\\Users\\…\\x.dll"],
    [`C:\\Users.\\${user}\\x.dll`, "C:\\Users.\\…\\x.dll"],
    [`\\\\?\\C:\\Users\\${user}\\x.dll`, "\\\\?\\C:\\Users\\…\\x.dll"],
    [`\\\\.\\C:\\Users\\${user}\\x.dll`, "\\\\.\\C:\\Users\\…\\x.dll"],
    [`\\??\\C:\\Users\\${user}\\x.dll`, "\\??\\C:\\Users\\…\\x.dll"],
    [`\\\\?\\UNC\\server\\Users\\${user}\\x.dll`, "\\\\?\\UNC\\server\\Users\\…\\x.dll"],
    [`\\\\server\\Users$\\${user}\\x.dll`, "\\\\server\\Users$\\…\\x.dll"],
    [`\\\\server\\home\\${user}\\x.dll`, "\\\\server\\home\\…\\x.dll"],
    [`\\\\server\\profiles\\${user}.V6\\x.dll`, "\\\\server\\profiles\\…\\x.dll"],
    [`\\Device\\HarddiskVolume3\\Users\\${user}\\x.dll`, "\\Device\\HarddiskVolume3\\Users\\…\\x.dll"],
    [`C:\\Documents and Settings\\${user}\\Local\\x.dll`, "C:\\Documents and Settings\\…\\x.dll"],
    [`C:\\DOCUME~1\\${user.slice(0, 6)}~1\\x.dll`, "C:\\DOCUME~1\\…\\x.dll"],
    [`C:\\\\Users\\\\${user}\\\\x.dll`, "C:\\\\Users\\\\…\\\\x.dll"],
    [`C:\\u005cUsers\\u005c${user}\\u005cx.dll`, "C:\\u005cUsers\\u005c…\\u005cx.dll"],
    [`file:///C:/Users/${user}/x.dll`, "file:///C:/Users/…/x.dll"],
    [`C%3A%5CUsers%5C${user}%5Cx.dll`, "C%3A%5CUsers%5C…%5Cx.dll"],
    [`C:/Documents%20and%20Settings/${user}/x.dll`, "C:/Documents%20and%20Settings/…/x.dll"],
    [`/home/${user}/.config/velmora/x.json`, "/home/…/x.json"],
    [`/home/${user}`, "/home/…"],
    [`//home//${user}//x`, "//home//…//x"],
    [`/var/home/${user}/x`, "/var/home/…/x"],
    [`/Users/${user}/x`, "/Users/…/x"],
    [`/mnt/c/Users/${user}/x.dll`, "/mnt/c/Users/…/x.dll"],
    [`/run/media/${user}/disk/x.dll`, "/run/media/…/x.dll"],
    [`~${user}/x`, "~…/x"],
    [`cannot open "/home/${user}/a/x.dll"`, 'cannot open "/home/…/x.dll"'],
    [`C:\\Users\\${user}\\x.dll;C:\\Users\\${user}`, "C:\\Users\\…"],
    [`C:\\Users\\${user}\\${user.toLowerCase()}.dll`, "C:\\Users\\…\\….dll"],
    [`C:\\Users\\a.*(b\\${user}`, `C:\\Users\\…\\${user}`],
    // Nothing of a user's.
    [
      "C:\\Program Files\\Velmora\\velmora_windows_apo.dll",
      "C:\\Program Files\\Velmora\\velmora_windows_apo.dll",
    ],
    ["/opt/velmora/fse.dll", "/opt/velmora/fse.dll"],
    ["C:\\Velmora\\Superusers\\x\\x.dll", "C:\\Velmora\\Superusers\\x\\x.dll"],
    ["C:\\Users", "C:\\Users"],
    ["", ""],
  ];
  for (const [path, wanted] of rows) assert.equal(cutPaths(path), wanted, path);
});

// ---- planted secrets ----

/**
 * A copy of a document with another text in place of each text.
 *
 * @param {any} value
 * @param {(text: string, path: string) => unknown} plant
 * @param {string} [path]
 * @returns {any}
 */
function planted(value, plant, path = "") {
  if (typeof value === "string") return plant(value, path);
  if (Array.isArray(value)) return value.map((one, index) => planted(one, plant, `${path}[${index}]`));
  if (typeof value !== "object" || value === null) return value;
  return Object.fromEntries(
    Object.entries(value).map(([key, one]) => [
      key,
      planted(one, plant, path === "" ? key : `${path}.${key}`),
    ]),
  );
}

/** What a session holds while somebody is signed in; the collected documents have none. */
const session = {
  account: "PLANT-account-hash",
  signed_in: true,
  usage_seconds: 86_399_123,
  signed_in_unix: 1_773_512_345,
  primary_machine_id: "PLANT-machine-9f86d081884c7d65",
  primary_known: true,
  public_id: "8612345678901",
  referral_open: true,
  referrer: "PLANT-referrer",
  invite_url: "https://account.invalid/i/PLANT-invite?state=PLANT-poll",
};

/** A memory with the person's words and the names of devices in each place that may have some. */
function fullMemory(/** @type {string} */ words) {
  return {
    ...emptyMemory(),
    added: { [`{${words}}`]: words },
    engine: {
      processId: 12,
      known: true,
      lockCount: 3,
      kind: /** @type {const} */ ("add"),
      endpointId: words,
    },
    restartPending: { endpointId: words, processId: 12 },
    removalPending: { processId: 12, endpointIds: [words] },
    lastSettings: {
      footstep: { bypass: false, bypass_all: false, enhance_strength: 0.5 },
      preset: words,
      presetChanged: false,
      equalizer: null,
    },
    preset: { name: words, starter: false, saved: { bypass: false, fade_ms: 20, bands: [] } },
  };
}

const changeOf = (/** @type {string} */ words, status = 503) => ({
  kind: /** @type {const} */ ("add"),
  endpointId: words,
  restartsAudio: true,
  startedAt: now - 9000,
  endedAt: now - 8000,
  result: { status, error: words, audioRestarted: false, restartError: -2147024891, restartDetail: words },
});

const isDeviceName = (/** @type {string} */ path) => /^(?:render|capture)\[\d+\]\.name$/.test(path);

test("a text planted in place of any text of the documents is in no report, but for the names of devices", () => {
  let count = 0;
  for (const name of collectedNames()) {
    const state = collected(name);
    const plant = (/** @type {string} */ _, /** @type {string} */ path) =>
      isDeviceName(path) ? `Device ${++count}` : `PLANT${++count}-secret`;
    for (const part of ["before", "now", "devices", "equalizer"]) state[part] = planted(state[part], plant);
    state.now.session = session;
    state.now["PLANT-member"] = "PLANT";
    state.now.render = { ...state.now.render, "PLANT-member": 7 };
    state.equalizer.name = "PLANT-preset";
    state.devices["PLANT-member"] = { PLANT: "PLANT" };
    for (const language of languages) {
      for (const status of [200, 503, 401]) {
        const text = reportOf(state, {
          language,
          kept: fullMemory("PLANT-words"),
          action: changeOf("PLANT-error", status),
          agent: `${browser} ${token}`,
        });
        assert.doesNotMatch(text, /PLANT/i, name);
        for (const secret of [token, encodeURIComponent(token), session.public_id, "86399123", "1773512345"])
          assert.ok(!text.includes(secret), `${name}: ${secret}`);
        for (const { name: device } of state.devices.render) assert.ok(text.includes(device), device);
      }
    }
  }
  assert.ok(count > 1000, `${count} planted`);
});

test("a text planted where a number or a flag belongs is in no report", () => {
  const state = collected("works");
  /** @param {any} value */
  const overwrite = (value) => {
    if (typeof value !== "object" || value === null) return "PLANT-value";
    if (Array.isArray(value)) return value.map(overwrite);
    return Object.fromEntries(Object.entries(value).map(([key, one]) => [key, overwrite(one)]));
  };
  for (const part of ["now", "equalizer"]) {
    const odd = { ...state, [part]: overwrite(state[part]) };
    assert.doesNotMatch(reportOf(odd), /PLANT/, part);
  }
  const devices = overwrite(state.devices);
  for (const device of [...devices.render, ...devices.capture]) device.name = "Device";
  assert.doesNotMatch(reportOf({ ...state, devices }), /PLANT/);
  for (const value of ["PLANT", 7, null, ["PLANT"], { PLANT: "PLANT" }]) {
    for (const part of ["now", "devices", "equalizer"]) {
      assert.doesNotMatch(
        reportOf({ ...state, [part]: value }),
        /PLANT/,
        `${part}: ${JSON.stringify(value)}`,
      );
    }
  }
});

test("the token and the account's texts are taken out of what stays, in any place", () => {
  const secrets = [
    token,
    encodeURIComponent(token),
    session.account,
    session.primary_machine_id,
    session.public_id,
    session.referrer,
    session.invite_url,
    encodeURIComponent(session.invite_url),
  ];
  for (const secret of secrets) {
    const state = collected("works");
    state.now.session = session;
    state.now.apo_host.apo_dll_path = `C:\\${secret}\\velmora_windows_apo.dll`;
    state.now.audio_engine.apo_module_path = `/opt/${secret}`;
    for (const device of [...state.devices.render, ...state.devices.capture])
      device.name = `Sound ${secret}`.slice(0, 79);
    const name = `Sound ${secret}`.slice(0, 79);
    const text = reportOf(state, { agent: `Browser ${secret}` });
    assert.ok(!text.includes(secret), secret);
    if (name.includes(secret)) assert.ok(text.includes("1: Sound … |"), secret);
  }
});

test("even a token that is a usual word is in no report", () => {
  const report = reportOf(collected("works"));
  for (const secret of ["answering", "Speakers", "hearing", "apo_diagnostics"]) {
    assert.ok(report.includes(secret), secret);
    assert.ok(!reportOf(collected("works"), { secret }).includes(secret), secret);
  }
});

test("a user's name in a path of any form is in no report, wherever that path is", () => {
  const forms = [
    (name) => `C:\\Users\\${name}\\AppData\\velmora_windows_apo.dll`,
    (name) => `c:/uSERS/${name}/velmora_windows_apo.dll`,
    (name) => `\\\\?\\C:\\Users\\${name}\\velmora_windows_apo.dll`,
    (name) => `\\\\server\\Users\\${name}\\velmora_windows_apo.dll`,
    (name) => `\\\\?\\UNC\\server\\c$\\Users\\${name}\\velmora_windows_apo.dll`,
    (name) => `C:\\DOCUME~1\\${name}\\velmora_windows_apo.dll`,
    (name) => `C:\\Documents and Settings\\${name}\\velmora_windows_apo.dll`,
    (name) => `C:\\\\Users\\\\${name}\\\\velmora_windows_apo.dll`,
    (name) => `/home/${name}/velmora_windows_apo.dll`,
    (name) => `"C:\\Users\\${name}\\velmora_windows_apo.dll"`,
  ];
  const names = [user, `${user.slice(0, 6)}~1`, `${user} the second`, `${user}.家`];
  for (const form of forms) {
    for (const name of names) {
      const path = form(name);
      for (const collectedName of ["works", "fileMissing", "notLoaded"]) {
        const state = collected(collectedName);
        for (const part of ["before", "now", "devices", "equalizer"]) {
          state[part] = planted(state[part], (text, where) => (isDeviceName(where) ? text : path));
        }
        const text = reportOf(state, {
          kept: fullMemory(path),
          action: changeOf(path),
          agent: `Browser ${path}`,
        });
        assert.doesNotMatch(text, new RegExp(user.slice(0, 6), "i"), path);
        if (!path.startsWith('"')) assert.match(text, /apo_dll_path: .*….*velmora_windows_apo\.dll/, path);
      }
    }
  }
});

test("an error text of the service is in the report only where it is known", () => {
  const state = collected("refusedNotElevated");
  const lineOf = (/** @type {string} */ text) =>
    reportOf(state, { kept: emptyMemory(), action: changeOf(text) })
      .split("\n")
      .find((line) => line.startsWith("HTTP 503"));
  const known =
    "the endpoint FxProperties key could not be opened for writing (run the control service elevated)";
  assert.equal(lineOf(known), "HTTP 503 Windows did not allow changes to this device's settings.");
  assert.equal(lineOf("PLANT C:\\Users\\PLANT\\x"), "HTTP 503 (text of 22 characters, left out)");
  for (const { pattern } of knownServiceTexts) {
    if (typeof pattern === "string") continue;
    const text = pattern.source.replace(/\(\?<\w+>[^)]*\)/g, "PLANT").replace(/[\\^$]/g, "");
    assert.doesNotMatch(String(lineOf(text)), /PLANT/, text);
  }
});

test("nothing at all still makes a report", () => {
  const page = judge(collected("works"));
  const seen = { ...seenFor(collected("works"), 3000), now: null, devices: null, equalizer: null };
  const source = { time: now, browser: "", token: "", verdict: page.found, link: answering, action: null };
  const text = reportText({ ...source, kept: emptyMemory(), seen }, (sentence) =>
    saySentence("en", sentence),
  );
  assert.match(text, /^Velmora report\n2026-03-14T19:04:00\.000Z\n/);
  assert.match(text, /versions\.app: not in the answer/);
});
