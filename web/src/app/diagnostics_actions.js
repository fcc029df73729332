// What a person does with the diagnostics: unfolding, searching, marking what changes.
import { diagnosticsGroups, groupKinds, markChanges, noMarks } from "../model/diagnostics.js";

/** @typedef {import("./session.js").Session} Session */

const card = "diagnostics";

/**
 * What the address asks for: "#diagnostics" is the card, "#diagnostics-engine" a group of it.
 *
 * @param {string} hash
 * @returns {{isOpen: boolean, group: string | null}}
 */
function linked(hash) {
  const [, group = null] = /^#diagnostics(?:-(\w+))?$/.exec(hash) ?? [];
  const isOpen = hash === `#${card}` || (group !== null && Object.hasOwn(groupKinds, group));
  return { isOpen, group: isOpen ? group : null };
}

/** @param {Session} session */
export function createDiagnostics(session) {
  const { state } = session;
  const { isOpen, group } = linked(location.hash);
  const view = {
    isOpen,
    query: "",
    /** The groups that are unfolded while nothing is searched. */
    openGroups: new Set(group === null ? [] : [group]),
    /** The groups that were folded while the present search shows what it has found. */
    foldedGroups: /** @type {Set<string>} */ (new Set()),
    marks: noMarks,
    markedSince: 0,
  };

  function mark() {
    if (view.isOpen && state.seen.now !== null)
      view.marks = markChanges(view.marks, diagnosticsGroups(state.seen.now));
  }

  session.watchers.add((kind) => {
    if (kind === "status") mark();
  });
  addEventListener("hashchange", () => {
    const asked = linked(location.hash);
    if (!asked.isOpen) return;
    unfold(true);
    if (asked.group !== null) view.openGroups.add(asked.group);
    session.changed();
  });

  /** @param {boolean} open */
  function unfold(open) {
    if (view.isOpen === open) return;
    view.isOpen = open;
    if (open) markFromNow();
    session.changed();
  }

  const isSearching = () => view.query.trim() !== "";

  /** @param {string} id */
  const groupIsOpen = (id) => (isSearching() ? !view.foldedGroups.has(id) : view.openGroups.has(id));

  /** @param {string} id */
  function toggleGroup(id) {
    const set = isSearching() ? view.foldedGroups : view.openGroups;
    if (!set.delete(id)) set.add(id);
    session.changed();
  }

  function markFromNow() {
    view.marks = noMarks;
    view.markedSince = Date.now();
    mark();
    session.changed();
  }

  if (isOpen) markFromNow();

  return {
    view,
    groups: () => diagnosticsGroups(state.seen.now),
    status: () => state.seen.now,
    unfold,
    isSearching,
    groupIsOpen,
    toggleGroup,
    /** @param {string[]} ids empty: all are folded */
    unfoldAll(ids) {
      view.openGroups = new Set(ids);
      session.changed();
    },
    /** @param {string} query */
    search(query) {
      view.query = query;
      view.foldedGroups.clear();
      session.changed();
    },
    markFromNow,
  };
}

/** @typedef {ReturnType<typeof createDiagnostics>} Diagnostics */
