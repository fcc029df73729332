// What a person does with presets. The service's folder is the only store: another page, another program or the person
// may change it at any time, so each action looks at it first and says what it finds.
import { asHeld, haveSameBands } from "../model/equalizer.js";
import { rememberTrim, trimOf } from "../model/memory.js";
import {
  copiesAfter,
  freeName,
  isSameContents,
  isServiceName,
  nameProblem,
  readContents,
  renameSteps,
  sameName,
  shownName,
  sortedNames,
  starterNamed,
  takeSteps,
} from "../model/presets.js";
import { objectOf } from "../model/read.js";
import { serviceSentence } from "../model/reasons.js";
import { renameTies } from "../model/ties.js";
import { languageTag, say } from "../texts/index.js";

/**
 * @typedef {import("./session.js").Session} Session
 * @typedef {import("./client.js").Answer} Answer
 * @typedef {import("./equalizer_actions.js").Equalizer} Equalizer
 * @typedef {import("../model/equalizer.js").Setting} Setting
 * @typedef {import("../model/presets.js").Step} Step
 * @typedef {import("../model/types.js").PresetRef} PresetRef
 * @typedef {import("../model/types.js").Sentence} Sentence
 *
 * @typedef {object} Naming a name is asked for
 * @property {"save" | "rename"} kind
 * @property {string} from the preset that gets another name; empty when one is saved
 * @property {string} name what the field begins with
 * @property {Sentence | null} problem
 * @property {{typed: string, name: string} | null} taken the preset that would be replaced
 *
 * @typedef {object} Confirming
 * @property {"replace" | "delete"} kind
 * @property {string} name
 * @property {Sentence} why
 * @property {() => void} confirm
 * @property {() => void} [decline]
 *
 * @typedef {{setting: Setting} | {problem: Sentence | null}} Contents a null problem: nobody answered, which the verdict
 *   says
 *
 * @typedef {object} Deleted
 * @property {PresetRef} preset
 * @property {Setting} setting
 * @property {number | undefined} trim
 */

const listPath = "/api/v1/eq/presets";

/** @param {string} name */
const pathOf = (name) => `${listPath}/${encodeURIComponent(name)}`;

/**
 * @param {string} key
 * @param {Record<string, unknown>} [values]
 * @returns {Sentence}
 */
const sentence = (key, values = {}) => ({ key: `preset.${key}`, values });

/** @param {Answer} answer */
const reasonOf = ({ status, error }) => (status === 0 ? sentence("reason.silent") : serviceSentence(error));

/**
 * @param {Setting} one
 * @param {Setting} other
 * @returns {boolean} whether both sound the same when they are loaded; loading always switches the equalizer on
 */
const soundsSame = (one, other) => haveSameBands(one, other) && one.fade_ms === other.fade_ms;

/**
 * @param {PresetRef} preset
 * @param {string} name
 */
const isOwn = (preset, name) => !preset.starter && preset.name === name;

/**
 * @param {Session} session
 * @param {Equalizer} equalizer
 */
export function createPresets(session, equalizer) {
  const { state, client } = session;
  const view = {
    names: /** @type {string[]} */ ([]),
    isListed: false,
    question: /** @type {Naming | Confirming | null} */ (null),
  };
  let last = Promise.resolve();

  /**
   * One action at a time, each on what the one before has left.
   *
   * @param {() => Promise<unknown>} action
   */
  function inTurn(action) {
    const run = async () => {
      await action();
      session.changed();
    };
    last = last.then(run, run);
  }

  // ---- requests ----

  /** @returns {Promise<Answer>} */
  async function list() {
    const answer = await client.ask({ method: "GET", path: listPath });
    if (answer.ok) {
      view.names = sortedNames(objectOf(answer.document).presets, languageTag(session.language()));
      view.isListed = true;
      session.changed();
    }
    return answer;
  }

  async function listAndSay() {
    const answer = await list();
    if (!answer.ok && answer.status !== 0 && state.message === null)
      session.say("bad", "preset.notListed", { reason: reasonOf(answer) });
  }

  /**
   * @param {string} name
   * @returns {Promise<Contents>} the problem is said of a preset that is listed, or was
   */
  async function read(name) {
    const shown = shownName(name);
    if (!isServiceName(name)) return { problem: sentence("foreign", { name: shown }) };
    const answer = await client.ask({ method: "GET", path: pathOf(name) });
    const setting = readContents(answer.document);
    if (answer.ok && setting !== undefined) return { setting };
    if (answer.ok) return { problem: sentence("unreadable", { name: shown }) };
    if (answer.status === 400) return { problem: sentence("foreign", { name: shown }) };
    if (answer.status === 404) {
      await list();
      const key = view.names.includes(name) ? "unopened" : "gone";
      return { problem: sentence(key, { name: shown }) };
    }
    return { problem: answer.status === 0 ? null : reasonOf(answer) };
  }

  /**
   * Writes a preset. Where it fails, half a file may be left; it goes away again if nothing was there before.
   *
   * @param {string} name
   * @param {Setting} setting
   * @returns {Promise<Answer>}
   */
  async function write(name, setting) {
    const wasFree = !view.names.includes(name);
    const answer = await client.ask({ method: "PUT", path: pathOf(name), body: setting });
    if (answer.status === 500 && wasFree) {
      const left = await client.ask({ method: "GET", path: pathOf(name) });
      if (readContents(left.document) === undefined)
        await client.ask({ method: "DELETE", path: pathOf(name) });
    }
    return answer;
  }

  /**
   * @param {string} name
   * @returns {Promise<Answer>} ok also where somebody else was faster
   */
  async function remove(name) {
    const answer = await client.ask({ method: "DELETE", path: pathOf(name) });
    if (answer.status !== 404) return answer;
    const listed = await list();
    if (listed.ok && !view.names.includes(name)) return { ...answer, ok: true };
    // The service's reason would be that there is none.
    return { ...answer, error: "" };
  }

  // ---- messages and questions ----

  /** @param {Naming | Confirming | null} question */
  function ask(question) {
    view.question = question;
    session.changed();
  }

  /** @param {Contents} contents */
  function sayProblem(contents) {
    if ("problem" in contents && contents.problem !== null)
      session.say("bad", contents.problem.key, contents.problem.values);
  }

  /**
   * @param {string} name
   * @param {Setting} saved
   * @returns {PresetRef}
   */
  const ownRef = (name, saved) => ({ name, starter: false, saved });

  // ---- using ----

  /**
   * @param {string} name
   * @returns {Promise<boolean>} whether there is such a starter
   */
  async function loadStarter(name) {
    const starter = starterNamed(name);
    if (starter === undefined) return false;
    // How fast a change fades in is no matter of taste in sound.
    const setting = { ...starter.setting, fade_ms: equalizer.setting()?.fade_ms ?? starter.setting.fade_ms };
    await equalizer.load(setting, { name, starter: true, saved: setting });
    return true;
  }

  /**
   * Loads a preset of the person's own, together with its output trim.
   *
   * @param {string} name
   * @param {Setting} setting
   * @returns {Promise<number | undefined>} the trim, where it was another one
   */
  async function loadOwn(name, setting) {
    const trim = trimOf(state.kept, name);
    const changed = trim === equalizer.ownTrim() ? undefined : trim;
    // The file may be of an equalizer that was off. Who chooses a preset wants to hear it.
    await equalizer.load({ ...setting, bypass: false }, ownRef(name, setting), changed);
    return changed;
  }

  /** @param {string} name */
  async function use(name) {
    session.begin();
    const contents = await read(name);
    if ("setting" in contents) {
      const trim = await loadOwn(name, contents.setting);
      if (trim !== undefined) session.say("info", "preset.trim", { trim });
    } else {
      sayProblem(contents);
    }
    await listAndSay();
  }

  async function revert() {
    const preset = equalizer.preset();
    if (preset === null) return;
    session.begin();
    const { name, starter } = preset;
    if (starter) {
      if (await loadStarter(name)) session.say("info", "preset.reverted", { name: nameSentence(preset) });
      return;
    }
    const contents = await read(name);
    if ("setting" in contents) {
      const trim = await loadOwn(name, contents.setting);
      const key = trim === undefined ? "preset.reverted" : "preset.revertedTrim";
      session.say("info", key, { name: shownName(name), trim });
    } else if (contents.problem?.key === "preset.gone") {
      session.say("bad", "preset.goneChosen", contents.problem.values);
    } else {
      sayProblem(contents);
    }
    await listAndSay();
  }

  /** @param {PresetRef} preset */
  const nameSentence = ({ name, starter }) =>
    starter ? { key: `starter.${name}`, values: {} } : shownName(name);

  // ---- saving ----

  /**
   * Saves what the page shows.
   *
   * @param {string} name
   */
  async function saveUnder(name) {
    const setting = equalizer.setting();
    if (setting === undefined) return;
    session.begin();
    const answer = await write(name, setting);
    if (answer.ok) {
      session.keep(rememberTrim(state.kept, name, equalizer.ownTrim()));
      equalizer.setPreset(ownRef(name, asHeld(setting)));
      session.say("info", "preset.saved", { name: shownName(name) });
    } else {
      session.say("bad", "preset.notSaved", { reason: reasonOf(answer) });
    }
    await listAndSay();
  }

  async function save() {
    const preset = equalizer.preset();
    const setting = equalizer.setting();
    if (setting === undefined) return;
    if (preset === null || preset.starter) return askName("save");
    session.begin();
    const { name, saved } = preset;
    const listed = await list();
    if (!listed.ok) return session.say("bad", "preset.notSaved", { reason: reasonOf(listed) });
    const existing = sameName(view.names, name);
    if (existing === undefined) return saveUnder(name);
    const contents = existing === name ? await read(name) : undefined;
    const stored = contents !== undefined && "setting" in contents ? contents.setting : undefined;
    if (stored !== undefined && soundsSame(stored, asHeld(setting))) {
      // The file holds it already. The trim is the page's own.
      session.keep(rememberTrim(state.kept, name, equalizer.ownTrim()));
      equalizer.setPreset(ownRef(name, stored));
      return session.say("info", "preset.saved", { name: shownName(name) });
    }
    const isChangedElsewhere = stored !== undefined && !soundsSame(stored, saved);
    const why =
      existing === name
        ? sentence(isChangedElsewhere ? "replaceChanged" : "replace")
        : sentence("replaceCase", { typed: shownName(name), name: shownName(existing) });
    ask({ kind: "replace", name: existing, why, confirm: () => inTurn(() => saveUnder(existing)) });
  }

  /** @param {Naming["kind"]} kind */
  async function askName(kind) {
    const preset = equalizer.preset();
    if (kind === "rename" && (preset === null || preset.starter)) return;
    session.begin();
    await list();
    const language = session.language();
    const base =
      preset === null
        ? say(language, "preset.newName")
        : preset.starter
          ? say(language, `starter.${preset.name}`)
          : preset.name;
    const name = kind === "rename" ? base : freeName(view.names, base);
    ask({ kind, from: kind === "rename" ? base : "", name, problem: null, taken: null });
  }

  /**
   * Takes the name that was typed, or that is to be replaced.
   *
   * @param {string} typed
   */
  async function submitName(typed) {
    const naming = view.question;
    if (naming === null || !("taken" in naming)) return;
    const { kind, from, taken } = naming;
    if (taken === null) {
      if (kind === "rename" && typed === from) return ask(null);
      const problem = nameProblem(typed);
      if (problem !== null) return ask({ ...naming, name: typed, problem });
      const listed = await list();
      // It was closed meanwhile.
      if (view.question !== naming) return;
      if (!listed.ok) {
        const notListed = sentence("notListed", { reason: reasonOf(listed) });
        return ask({ ...naming, name: typed, problem: notListed });
      }
      // A new name of the same file in another case is no conflict.
      const others = kind === "rename" ? view.names.filter((name) => name !== from) : view.names;
      const name = sameName(others, typed);
      if (name !== undefined) return ask({ ...naming, name: typed, problem: null, taken: { typed, name } });
    }
    ask(null);
    const name = taken?.name ?? typed;
    await (kind === "save" ? saveUnder(name) : rename(from, name));
  }

  // ---- renaming ----

  /**
   * @param {string} from
   * @param {string} to
   */
  async function rename(from, to) {
    session.begin();
    const contents = await read(from);
    if (!("setting" in contents)) {
      sayProblem(contents);
      return listAndSay();
    }
    const { setting } = contents;
    const steps = renameSteps(view.names, from, to);
    let reason = sentence("reason.silent");
    const done = await takeSteps(steps, {
      async write(name) {
        const answer = await write(name, setting);
        reason = reasonOf(answer);
        return answer.ok;
      },
      async check(name) {
        const answer = await client.ask({ method: "GET", path: pathOf(name) });
        const written = readContents(answer.document);
        const isSilent = answer.status === 0;
        reason = isSilent ? reasonOf(answer) : sentence("reason.compare", { name: shownName(name) });
        return written !== undefined && isSameContents(written, setting);
      },
      async delete(name) {
        const answer = await remove(name);
        reason = answer.status === 404 ? sentence("reason.locked") : reasonOf(answer);
        return answer.ok;
      },
    });
    const copies = copiesAfter(from, done);
    const name = copies.includes(to) ? to : copies[0];
    followRename(from, name);
    const failed = steps[done.length];
    const [first, second] = copies.map(shownName);
    if (failed === undefined) session.say("info", "preset.renamed", { name: first });
    else if (name === to)
      session.say("bad", "preset.renamedTwice", { name: shownName(to), old: shownName(failed.name) });
    else if (second === undefined) session.say("bad", "preset.notRenamed", { reason, name: first });
    else session.say("bad", "preset.notRenamedTwice", { reason, name: first, other: second });
    await listAndSay();
  }

  /**
   * @param {string} from
   * @param {string} to
   */
  function followRename(from, to) {
    if (from === to) return;
    const trim = trimOf(state.kept, from);
    session.keep(renameTies(rememberTrim(rememberTrim(state.kept, from, undefined), to, trim), from, to));
    equalizer.followRename(from, to);
    const preset = equalizer.preset();
    if (preset !== null && isOwn(preset, from)) equalizer.setPreset({ ...preset, name: to });
  }

  // ---- deleting ----

  async function deleteChosen() {
    const preset = equalizer.preset();
    if (preset === null || preset.starter) return;
    session.begin();
    const contents = await read(preset.name);
    if ("setting" in contents) return deleteNow(preset, contents.setting);
    const { problem } = contents;
    if (problem?.key === "preset.gone") {
      equalizer.setPreset(null);
      return sayProblem(contents);
    }
    if (problem?.key !== "preset.unopened" && problem?.key !== "preset.unreadable")
      return sayProblem(contents);
    const confirm = () => inTurn(() => deleteNow(preset, null));
    ask({ kind: "delete", name: preset.name, why: sentence("deleteUnreadable"), confirm });
  }

  /**
   * @param {PresetRef} preset
   * @param {Setting | null} setting to be put back; null: it could not be read
   */
  async function deleteNow(preset, setting) {
    const { name } = preset;
    session.begin();
    const trim = trimOf(state.kept, name);
    const answer = await remove(name);
    if (!answer.ok) {
      const reason = answer.status === 404 ? sentence("reason.locked") : reasonOf(answer);
      session.say("bad", "preset.notDeleted", { reason });
      return listAndSay();
    }
    session.keep(rememberTrim(state.kept, name, undefined));
    const chosen = equalizer.preset();
    if (chosen !== null && isOwn(chosen, name)) equalizer.setPreset(null);
    if (setting === null) session.say("info", "preset.deleted");
    else offerUndo({ preset, setting, trim });
    await listAndSay();
  }

  /** @param {Deleted} deleted */
  function offerUndo(deleted) {
    const press = () => inTurn(() => putBack(deleted));
    session.say("info", "preset.deleted", {}, { key: "preset.undo", press });
  }

  /** @param {Deleted} deleted */
  async function putBack(deleted) {
    session.begin();
    await list();
    const { name } = deleted.preset;
    const existing = sameName(view.names, name);
    if (existing === undefined) return putBackAs(name, deleted);
    const values = { typed: shownName(name), name: shownName(existing) };
    const why = existing === name ? sentence("replaceTaken") : sentence("replaceCase", values);
    const confirm = () => inTurn(() => putBackAs(existing, deleted));
    ask({ kind: "replace", name: existing, why, confirm, decline: () => offerUndo(deleted) });
  }

  /**
   * @param {string} name
   * @param {Deleted} deleted
   */
  async function putBackAs(name, deleted) {
    session.begin();
    const answer = await write(name, deleted.setting);
    if (answer.ok) {
      session.keep(rememberTrim(state.kept, name, deleted.trim));
      if (equalizer.preset() === null) equalizer.setPreset({ ...deleted.preset, name });
      session.say("info", "preset.restored", { name: shownName(name) });
    } else {
      const press = () => inTurn(() => putBack(deleted));
      const action = { key: "preset.tryAgain", press };
      session.say("bad", "preset.notRestored", { reason: reasonOf(answer) }, action);
    }
    await listAndSay();
  }

  return {
    view,
    /** Lists the presets, and again when the page is shown again. It only reads. */
    start() {
      inTurn(listAndSay);
      document.addEventListener("visibilitychange", () => {
        if (document.visibilityState !== "hidden") inTurn(listAndSay);
      });
    },
    /** @param {string} name */
    use: (name) => inTurn(() => use(name)),
    /** @param {string} name */
    useStarter: (name) => inTurn(() => loadStarter(name)),
    save: () => inTurn(save),
    saveAs: () => inTurn(() => askName("save")),
    rename: () => inTurn(() => askName("rename")),
    revert: () => inTurn(revert),
    delete: () => inTurn(deleteChosen),
    /** @param {string} typed */
    submitName: (typed) => inTurn(() => submitName(typed)),
    /** Goes back from the question whether to replace a preset to its name. */
    backToName() {
      if (view.question !== null && "taken" in view.question) ask({ ...view.question, taken: null });
    },
    confirm() {
      const { question } = view;
      ask(null);
      if (question !== null && "confirm" in question) question.confirm();
    },
    decline() {
      const { question } = view;
      ask(null);
      if (question !== null && "confirm" in question) question.decline?.();
    },
  };
}

/** @typedef {ReturnType<typeof createPresets>} Presets */
