// All that the status document says, for whoever looks for a fault.
import { formatSentence, isFound, markOf } from "../model/diagnostics.js";
import { html, useEffect, useLayoutEffect, useRef } from "../view.js";
import { Icon } from "./icon.js";

/**
 * @typedef {import("../view.js").Translate} Translate
 * @typedef {import("../model/types.js").Sentence} Sentence
 * @typedef {import("../model/diagnostics.js").Row} Row
 * @typedef {import("../model/diagnostics.js").Group} Group
 * @typedef {import("../app/diagnostics_actions.js").Diagnostics} Diagnostics
 * @typedef {import("../app/report_actions.js").Report} Report
 * @typedef {(sentence: Sentence) => string} Say
 */

/** @param {{say: Say, t: Translate, mark: ReturnType<typeof markOf>}} props */
function Mark({ say, t, mark }) {
  if (mark === null) return null;
  const { state, was } = mark;
  const note = was.note === null ? "" : ` (${say(was.note)})`;
  const title = t(`diagnostics.${state}From`, { was: `${say(was.text)}${note}` });
  return html`<span class="mark" title=${title}>
    <${Icon} name=${state === "back" ? "undo" : "warning"} />${t(`diagnostics.${state}`)}
  </span>`;
}

/** A long API name breaks between its words. */
const breakable = (/** @type {string} */ path) => path.split(/(?<=[._])/).map((part) => html`${part}<wbr />`);

/** @param {{say: Say, t: Translate, row: Row, mark: ReturnType<typeof markOf>}} props */
function ValueRow({ say, t, row, mark }) {
  const { path, kind, name, shown } = row;
  return html`<tr data-path=${path}>
    <th scope="row">
      <span>${say(name)}</span>
      ${kind !== "unknown" && html`<code class="muted" translate="no">${breakable(path)}</code>`}
    </th>
    <td>
      <bdi class="value">${say(shown.text)}</bdi>
      <${Mark} say=${say} t=${t} mark=${mark} />
      ${shown.note !== null && html`<span class="muted note">${say(shown.note)}</span>`}
    </td>
  </tr>`;
}

/** @param {{say: Say, status: unknown}} props */
function Formats({ say, status }) {
  return html`<ul class="formats">
    ${
      /** @type {const} */ (["input", "output"]).map(
        (side) => html`<li key=${side}>${say(formatSentence(status, side))}</li>`,
      )
    }
  </ul>`;
}

/**
 * @param {{say: Say, t: Translate, diagnostics: Diagnostics, group: Group, rows: Row[], isOpen: boolean}} props
 *   rows: those that the search has found
 */
function GroupPart({ say, t, diagnostics, group, rows, isOpen }) {
  const { marks } = diagnostics.view;
  const changed = rows.filter((row) => markOf(marks, row) !== null).length;
  const id = `diagnostics-${group.id}`;
  return html`<details class="group" id=${id} open=${isOpen}>
    <summary
      onClick=${(/** @type {Event} */ event) => {
        // The page folds and unfolds: the browser would do so ahead of a drawing that is under way.
        event.preventDefault();
        diagnostics.toggleGroup(group.id);
      }}
    >
      <h3 id=${`${id}-title`}>${t(`diagnostics.group.${group.id}`)}</h3>
      <span class="muted number">${rows.length}</span>
      ${
        changed > 0 &&
        html`<span class="mark"
          ><${Icon} name="warning" />${t("diagnostics.groupChanged", { changed })}</span
        >`
      }
    </summary>
    ${
      isOpen &&
      html`${group.id === "formats" && html`<${Formats} say=${say} status=${diagnostics.status()} />`}
        ${group.id === "account" && html`<p class="muted">${t("diagnostics.accountNote")}</p>`}
        <table aria-labelledby=${`${id}-title`}>
          <tbody>
            ${rows.map(
              (row) =>
                html`<${ValueRow} key=${row.path} say=${say} t=${t} row=${row} mark=${markOf(marks, row)} />`,
            )}
          </tbody>
        </table>`
    }
  </details>`;
}

/**
 * @param {Say} say
 * @param {Translate} t
 * @param {Group} group
 * @param {string} query
 * @returns {Row[]}
 */
function foundRows(say, t, group, query) {
  const title = t(`diagnostics.group.${group.id}`);
  return group.rows.filter(({ path, name, shown }) => {
    const note = shown.note === null ? "" : say(shown.note);
    return isFound([title, say(name), path, say(shown.text), note], query);
  });
}

/** @param {{t: Translate, diagnostics: Diagnostics, found: number, all: number}} props */
function Search({ t, diagnostics, found, all }) {
  const input = useRef(/** @type {HTMLInputElement | null} */ (null));
  const { query } = diagnostics.view;
  useLayoutEffect(() => {
    if (input.current !== null && input.current.value !== query) input.current.value = query;
  });
  const isSearching = diagnostics.isSearching();
  return html`<div class="row search">
    <label class="labelled">
      <span>${t("diagnostics.search")}</span>
      <input
        ref=${input}
        class="field text"
        type="text"
        autocomplete="off"
        spellcheck=${false}
        placeholder=${t("diagnostics.searchHint")}
        onInput=${(/** @type {{currentTarget: HTMLInputElement}} */ { currentTarget }) =>
          diagnostics.search(currentTarget.value)}
        onKeyDown=${(/** @type {KeyboardEvent} */ event) => {
          if (event.key !== "Escape" || event.isComposing || query === "") return;
          event.preventDefault();
          diagnostics.search("");
        }}
      />
    </label>
    ${
      isSearching &&
      html`<button
        type="button"
        class="button"
        onClick=${() => {
          diagnostics.search("");
          input.current?.focus();
        }}
      >
        ${t("diagnostics.clear")}
      </button>`
    }
    <span class="muted number" role="status">
      ${isSearching ? t("diagnostics.count", { shown: found, all }) : t("diagnostics.countAll", { all })}
    </span>
  </div>`;
}

/** @param {{say: Say, t: Translate, diagnostics: Diagnostics, report: Report}} props */
function Contents({ say, t, diagnostics, report }) {
  const { query, openGroups, markedSince } = diagnostics.view;
  const groups = diagnostics.groups();
  const isSearching = diagnostics.isSearching();
  const parts = groups.map((group) => ({ group, rows: foundRows(say, t, group, query) }));
  const shown = parts.filter(({ rows }) => rows.length > 0);
  const count = (/** @type {{rows: Row[]}[]} */ all) => all.reduce((sum, { rows }) => sum + rows.length, 0);
  const allOpen = groups.every(({ id }) => openGroups.has(id));
  return html`<p class="muted">${t("diagnostics.note")}</p>
    <${Search} t=${t} diagnostics=${diagnostics} found=${count(shown)} all=${count(groups)} />
    <div class="row">
      <button type="button" class="button" onClick=${report.open}>${t("diagnostics.copyReport")}</button>
      <button type="button" class="button" onClick=${diagnostics.markFromNow}>
        ${t("diagnostics.markFromNow")}
      </button>
      ${
        !isSearching &&
        html`<button
          type="button"
          class="button"
          onClick=${() => diagnostics.unfoldAll(allOpen ? [] : groups.map(({ id }) => id))}
        >
          ${t(allOpen ? "diagnostics.closeAll" : "diagnostics.openAll")}
        </button>`
      }
    </div>
    <p class="muted">${t("diagnostics.marked", { since: markedSince })}</p>
    ${shown.length === 0 && html`<p>${t("diagnostics.nothing")}</p>`}
    ${shown.map(
      ({ group, rows }) =>
        html`<${GroupPart}
          key=${group.id}
          say=${say}
          t=${t}
          diagnostics=${diagnostics}
          group=${group}
          rows=${rows}
          isOpen=${diagnostics.groupIsOpen(group.id)}
        />`,
    )}`;
}

/** @param {{say: Say, t: Translate, diagnostics: Diagnostics, report: Report}} props */
export function DiagnosticsCard({ say, t, diagnostics, report }) {
  const { isOpen } = diagnostics.view;
  // The address may name this card or a group that was not drawn yet when the browser looked for it.
  useEffect(() => {
    if (isOpen && location.hash.startsWith("#diagnostics"))
      document.getElementById(location.hash.slice(1))?.scrollIntoView();
  }, []);
  return html`<details
    class="card"
    id="diagnostics"
    open=${isOpen}
    onToggle=${(/** @type {{currentTarget: HTMLDetailsElement}} */ { currentTarget }) =>
      diagnostics.unfold(currentTarget.open)}
  >
    <summary><h2>${t("diagnostics.title")}</h2></summary>
    ${isOpen && html`<${Contents} say=${say} t=${t} diagnostics=${diagnostics} report=${report} />`}
  </details>`;
}
