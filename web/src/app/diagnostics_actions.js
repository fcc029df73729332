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
    if (asked.group !== null) unfoldGroup(asked.group, true);
  });

  /** @param {boolean} open */
  function unfold(open) {
    if (view.isOpen === open) return;
    view.isOpen = open;
    if (open) markFromNow();
    session.changed();
  }

  /**
   * @param {string} id
   * @param {boolean} open
   */
  function unfoldGroup(id, open) {
    if (view.openGroups.has(id) === open) return;
    view.openGroups = new Set([...view.openGroups].filter((one) => one !== id).concat(open ? [id] : []));
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
    unfoldGroup,
    /** @param {string[]} ids empty: all are folded */
    unfoldAll(ids) {
      view.openGroups = new Set(ids);
      session.changed();
    },
    /** @param {string} query */
    search(query) {
      view.query = query;
      session.changed();
    },
    markFromNow,
  };
}

/** @typedef {ReturnType<typeof createDiagnostics>} Diagnostics */
