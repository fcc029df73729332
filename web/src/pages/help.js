// Help: what the words on the pages mean, and what to do when something is refused. It asks the service for nothing.
import { createReader, sessionToken } from "../app/session.js";
import { Frame, nameDocument } from "../components/frame.js";
import { entryOf, helpSections, isFound, searchedEntry, searchedText } from "../model/help_entries.js";
import { say, tables } from "../texts/index.js";
import { html, render, useEffect, useLayoutEffect, useRef, useState } from "../view.js";

/**
 * @typedef {import("../view.js").Translate} Translate
 * @typedef {import("../model/types.js").Language} Language
 * @typedef {import("../model/types.js").Sentence} Sentence
 * @typedef {import("../model/help_entries.js").Entry} Entry
 * @typedef {import("../model/help_entries.js").Group} Group
 * @typedef {import("../model/help_entries.js").Section} Section
 * @typedef {(sentence: Sentence) => string} Say
 */

/** So few entries that are found are unfolded at once. */
const fewEntries = 5;

// ---- the search ----

const languages = /** @type {Language[]} */ (Object.keys(tables));
const templatesOf = (/** @type {string} */ key) => languages.map((language) => tables[language][key]);
const everyLanguage = (/** @type {Sentence} */ { key, values }) =>
  languages.map((language) => say(language, key, values));
/** @type {Map<Entry | Section, import("../model/help_entries.js").Searched>} */
const searched = new Map();

/** @param {Entry} entry */
function searchedOf(entry) {
  const known = searched.get(entry) ?? searchedEntry(entry, templatesOf, everyLanguage);
  searched.set(entry, known);
  return known;
}

/** @param {Section} section */
function searchedSection(section) {
  const { title, text, steps, keys } = section;
  const plainKeys = [title, ...keys.map(({ does }) => does)];
  const sentences = [...text, ...(steps === null ? [] : [steps])];
  const texts = [...plainKeys.flatMap(templatesOf), ...sentences.flatMap(everyLanguage)];
  const known = searched.get(section) ?? searchedText([], texts);
  searched.set(section, known);
  return known;
}

/**
 * The sections with what is found of them. A section whose own text is found keeps that.
 *
 * @param {string} query
 */
function find(query) {
  return helpSections.map((section) => {
    const isOwn = isFound(searchedSection(section), query);
    const groups = section.groups.map((group) => ({
      ...group,
      entries: group.entries.filter((entry) => isFound(searchedOf(entry), query)),
    }));
    const count = groups.reduce((sum, { entries }) => sum + entries.length, 0);
    return { section: { ...section, groups }, isOwn, count };
  });
}

// ---- what is drawn ----

/** @param {{text: string}} props */
const Steps = ({ text }) =>
  html`<ol class="steps">
    ${text.split("\n").map((step) => html`<li>${step}</li>`)}
  </ol>`;

/**
 * The titles of an entry, as one heading. The first one's anchor is that of the entry itself.
 *
 * @param {{say: Say, entry: Entry, level: 3 | 4}} props
 */
function Titles({ say: tell, entry: { titles }, level }) {
  const lines = titles.map(
    ({ id, text }, index) => html`<span key=${id} id=${index === 0 ? undefined : id}>${tell(text)}</span>`,
  );
  return level === 3 ? html`<h3>${lines}</h3>` : html`<h4>${lines}</h4>`;
}

/** @param {{label: string, codes: string[]}} props */
const Codes = ({ label, codes }) =>
  codes.length > 0 &&
  html`<p class="muted">
    ${label}${" "}${codes.map((one, index) => html`${index > 0 && ", "}<code>${one}</code>`)}
  </p>`;

/** @param {{t: Translate, say: Say, entry: Entry}} props */
function EntryBody({ t, say: tell, entry }) {
  const { text, steps, cause, remedy, sent, forms, links } = entry;
  return html`${text.map((one) => html`<p>${tell(one)}</p>`)}
    ${steps !== null && html`<${Steps} text=${tell(steps)} />`}
    ${cause !== null && html`<p><b>${t("help.cause")}</b> ${tell(cause)}</p>`}
    ${remedy !== null && html`<p><b>${t("help.remedy")}</b> ${tell(remedy)}</p>`}
    ${links.map((link) => html`<p><a href=${`#${link}`}>${t(`help.see.${link}`)}</a></p>`)}
    <${Codes} label=${t("help.forms")} codes=${forms} />
    <${Codes} label=${t("help.sent")} codes=${sent} />`;
}

/**
 * @param {{t: Translate, say: Say, group: Group, isOpen: (entry: Entry) => boolean, linked: string,
 *   onToggle: (entry: Entry, open: boolean) => void}} props
 */
function GroupOf({ t, say: tell, group, isOpen, linked, onToggle }) {
  const { title, folded, entries } = group;
  if (entries.length === 0) return null;
  const classOf = (/** @type {Entry} */ entry) =>
    entry.titles.some(({ id }) => id === linked) ? "entry linked" : "entry";
  const level = title === "" ? 3 : 4;
  return html`${title !== "" && html`<h3 class="group">${t(title)}</h3>`}
    <div class="entries">
      ${entries.map((entry) =>
        folded
          ? html`<details
              key=${entry.id}
              class=${classOf(entry)}
              open=${isOpen(entry)}
              onToggle=${(/** @type {{currentTarget: HTMLDetailsElement}} */ { currentTarget }) =>
                onToggle(entry, currentTarget.open)}
            >
              <summary id=${entry.id}><${Titles} say=${tell} entry=${entry} level=${level} /></summary>
              <${EntryBody} t=${t} say=${tell} entry=${entry} />
            </details>`
          : html`<div key=${entry.id} id=${entry.id} tabindex="-1" class=${classOf(entry)}>
              <${Titles} say=${tell} entry=${entry} level=${level} />
              <${EntryBody} t=${t} say=${tell} entry=${entry} />
            </div>`,
      )}
    </div>`;
}

/** @param {{t: Translate, rows: Section["keys"]}} props */
function KeyTable({ t, rows }) {
  return html`<table aria-labelledby="keys" class="key-table">
    <thead>
      <tr>
        <th scope="col">${t("help.keys.key")}</th>
        <th scope="col">${t("help.keys.does")}</th>
      </tr>
    </thead>
    <tbody>
      ${rows.map(
        ({ keys, does }) =>
          html`<tr key=${does}>
            <td>
              ${keys.map(
                (combination) =>
                  html`<span class="combination"
                    >${combination.map((key, index) => html`${index > 0 && " + "}<kbd>${key}</kbd>`)}</span
                  > `,
              )}
            </td>
            <td>${t(does)}</td>
          </tr>`,
      )}
    </tbody>
  </table>`;
}

/** Unfolds all for a print, and puts it back. */
function useUnfoldedPrint() {
  useEffect(() => {
    /** @type {HTMLDetailsElement[]} */
    let opened = [];
    const unfold = () => {
      const folded = [...document.querySelectorAll("details")].filter(({ open }) => !open);
      for (const one of folded) one.open = true;
      opened = [...opened, ...folded];
    };
    const fold = () => {
      for (const one of opened) one.open = false;
      opened = [];
    };
    addEventListener("beforeprint", unfold);
    addEventListener("afterprint", fold);
    return () => {
      removeEventListener("beforeprint", unfold);
      removeEventListener("afterprint", fold);
    };
  }, []);
}

/**
 * Follows the address and links within the page: the entry is unfolded, scrolled to and focused.
 *
 * @param {(anchor: string) => void} onLink
 * @returns {(anchor: string) => void}
 */
function useAnchor(onLink) {
  const [wanted, setWanted] = useState({ anchor: location.hash.slice(1) });
  const follow = (/** @type {string} */ anchor) => {
    onLink(anchor);
    setWanted({ anchor });
  };
  useEffect(() => {
    const changed = () => follow(location.hash.slice(1));
    addEventListener("hashchange", changed);
    // At the end of loading, the browser goes to the anchor by itself, and takes the focus away from the entry.
    addEventListener("load", () => requestAnimationFrame(changed), { once: true });
    return () => removeEventListener("hashchange", changed);
  }, []);
  useLayoutEffect(() => {
    const found = wanted.anchor === "" ? null : document.getElementById(wanted.anchor);
    if (found === null) return;
    const target = found.closest("summary") ?? found;
    target.scrollIntoView();
    /** @type {HTMLElement} */ (target).focus({ preventScroll: true });
  }, [wanted]);
  return follow;
}

/** @param {{t: Translate, say: Say}} props */
function Help({ t, say: tell }) {
  const [query, setQuery] = useState("");
  const [linked, setLinked] = useState(location.hash.slice(1));
  const [opened, setOpened] = useState(() => new Set([entryOf(location.hash.slice(1))?.id]));
  const input = useRef(/** @type {HTMLInputElement | null} */ (null));
  const toggle = (/** @type {string | undefined} */ id, /** @type {boolean} */ open) =>
    setOpened((before) => {
      if (before.has(id) === open) return before;
      const after = new Set(before);
      if (open) after.add(id);
      else after.delete(id);
      return after;
    });
  const follow = useAnchor((anchor) => {
    setQuery("");
    setLinked(anchor);
    toggle(entryOf(anchor)?.id, true);
  });
  useUnfoldedPrint();
  useLayoutEffect(() => {
    if (input.current !== null && input.current.value !== query) input.current.value = query;
  });
  const isSearching = query.trim() !== "";
  const found = find(query);
  const count = found.reduce((sum, one) => sum + one.count + Number(one.isOwn), 0);
  const isOpen = (/** @type {Entry} */ { id }) => opened.has(id) || (isSearching && count <= fewEntries);
  // A link to where the address already leads changes nothing there.
  const click = (/** @type {MouseEvent} */ { target }) => {
    const link = target instanceof Element ? target.closest("a[href^='#']") : null;
    if (link !== null) follow(String(link.getAttribute("href")).slice(1));
  };
  return html`<div class="help" onClick=${click}>
    <section class="card find" aria-labelledby="help">
      <h2 id="help">${t("header.help")}</h2>
      <p>${t("help.intro")}</p>
      <label class="search">
        <span>${t("help.find")}</span>
        <input
          ref=${input}
          class="field text"
          type="search"
          autocomplete="off"
          placeholder=${t("help.findHint")}
          onInput=${(/** @type {{currentTarget: HTMLInputElement}} */ { currentTarget }) =>
            setQuery(currentTarget.value)}
        />
      </label>
      <div class="row">
        <p role="status">${isSearching && (count > 0 ? t("help.found", { count }) : t("help.foundNone"))}</p>
        ${
          isSearching &&
          html`<button
            type="button"
            class="button"
            onClick=${() => {
              setQuery("");
              input.current?.focus();
            }}
          >
            ${t("help.showAll")}
          </button>`
        }
      </div>
      ${
        !isSearching &&
        html`<nav class="contents" aria-label=${t("help.contents")}>
          <ol>
            ${helpSections.map(({ id, title }) => html`<li><a href=${`#${id}`}>${t(title)}</a></li>`)}
          </ol>
        </nav>`
      }
    </section>
    ${found
      .filter((one) => one.isOwn || one.count > 0)
      .map(
        ({ section: { id, title, text, steps, groups, keys }, isOwn }) =>
          html`<section key=${id} class="card" aria-labelledby=${id}>
            <h2 id=${id} tabindex="-1">${t(title)}</h2>
            ${isOwn && text.map((one) => html`<p>${tell(one)}</p>`)}
            ${isOwn && steps !== null && html`<${Steps} text=${tell(steps)} />`}
            ${isOwn && keys.length > 0 && html`<${KeyTable} t=${t} rows=${keys} />`}
            ${groups.map(
              (group) =>
                html`<${GroupOf}
                  key=${group.title}
                  t=${t}
                  say=${tell}
                  group=${group}
                  isOpen=${isOpen}
                  linked=${linked}
                  onToggle=${(/** @type {Entry} */ entry, /** @type {boolean} */ open) => toggle(entry.id, open)}
                />`,
            )}
          </section>`,
      )}
  </div>`;
}

/** Draws the page. */
export function openHelpPage() {
  const reader = createReader();

  function draw() {
    const language = reader.language();
    const t = (/** @type {string} */ key, values = {}) => say(language, key, values);
    const tell = (/** @type {Sentence} */ { key, values }) => t(key, values);
    nameDocument(language, `${t("header.help")} – ${t("page.title")}`);
    const content = html`<${Frame}
      t=${t}
      page="help"
      token=${sessionToken}
      language=${language}
      onLanguage=${(/** @type {Language} */ chosen) => {
        reader.setLanguage(chosen);
        draw();
      }}
      stamp=""
    >
      <${Help} t=${t} say=${tell} />
    <//>`;
    render(content, document.body);
  }

  draw();
}
