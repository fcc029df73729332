// What every page has around its own content: the header with the links, and the footer.
import { languageTag } from "../texts/index.js";
import { html } from "../view.js";

/** @typedef {import("../view.js").Children} Children */
/** @typedef {import("../view.js").Translate} Translate */
/** @typedef {import("../model/types.js").Language} Language */

const pages = [
  { name: "index", path: "/", key: "header.sound" },
  { name: "advanced", path: "/advanced.html", key: "header.advanced" },
  { name: "help", path: "/help.html", key: "header.help" },
];

/** Each language names the other in its own words. */
const otherLanguage = /** @type {const} */ ({ en: "zh", zh: "en" });

/**
 * The address of a page with the token, so that it works in a second tab too.
 *
 * @param {string} path
 * @param {string} token
 */
export function pageAddress(path, token) {
  return token === "" ? path : `${path}?token=${encodeURIComponent(token)}`;
}

/**
 * The address of an entry of Help.
 *
 * @param {string} anchor
 * @param {string} token
 */
export const helpAddress = (anchor, token) => `${pageAddress("/help.html", token)}#${anchor}`;

/**
 * A link to an entry of Help. It opens in a tab of Help, so that a sign-in or the steps of undo are not lost.
 *
 * @param {{t: Translate, token: string, anchor: string | undefined, text: string}} props without an anchor, no link
 */
export function HelpLink({ t, token, anchor, text }) {
  if (anchor === undefined) return null;
  return html`<a class="help-link" href=${helpAddress(anchor, token)} target="velmora-help"
    >${text}<span class="for-readers"> ${t("help.newTab")}</span></a
  >`;
}

/**
 * Names the document, for screen readers and the browser's tab. Setting what it has already would restyle all of it.
 *
 * @param {Language} language
 * @param {string} title
 */
export function nameDocument(language, title) {
  const tag = languageTag(language);
  if (document.documentElement.lang !== tag) document.documentElement.lang = tag;
  if (document.title !== title) document.title = title;
}

/**
 * @param {{t: Translate, page: string, token: string, language: Language, onLanguage: (language: Language) => void,
 *   version?: string, stamp: string, device?: Children, children: Children}} props
 */
export function Frame({
  t,
  page,
  token,
  language,
  onLanguage,
  version = "",
  stamp,
  device = null,
  children,
}) {
  const other = otherLanguage[language];
  return html`
    <header class="bar">
      <div class="column">
        <h1>${t("page.title")}</h1>
        ${device}
        <nav aria-label=${t("header.pages")}>
          ${pages.map(
            ({ name, path, key }) =>
              html`<a href=${pageAddress(path, token)} aria-current=${name === page ? "page" : undefined}
                >${t(key)}</a
              >`,
          )}
          <button
            type="button"
            lang=${other}
            title=${t("header.languageTitle")}
            onClick=${() => onLanguage(other)}
          >
            ${t("header.language")}
          </button>
        </nav>
      </div>
    </header>
    <main class="column">${children}</main>
    <footer class="column">
      <span title=${stamp || undefined}>${t("page.version", { version })}</span>
    </footer>
  `;
}
