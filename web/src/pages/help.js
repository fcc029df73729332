// Help: what the words on the pages mean, and what to do when something is refused. It asks the service for nothing.
import { createReader, sessionToken } from "../app/session.js";
import { Frame, nameDocument } from "../components/frame.js";
import { say } from "../texts/index.js";
import { html, render } from "../view.js";

/** The entries of the page in their order; the texts are `help.NAME` and `help.NAME.text`. */
const entries = [
  "hear",
  "add",
  "restart",
  "refused",
  "link",
  "enhancement",
  "original",
  "equalizer",
  "presets",
  "devices",
  "volume",
  "settings",
  "processing",
  "captures",
  "diagnostics",
  "account",
];

/** Draws the page. */
export function openHelpPage() {
  const reader = createReader();

  function draw() {
    const language = reader.language();
    const t = (/** @type {string} */ key, values = {}) => say(language, key, values);
    nameDocument(language, `${t("header.help")} – ${t("page.title")}`);
    const content = html`<${Frame}
      t=${t}
      page="help"
      token=${sessionToken}
      language=${language}
      onLanguage=${(/** @type {"en" | "zh"} */ chosen) => {
        reader.setLanguage(chosen);
        draw();
      }}
      stamp=""
    >
      <section class="card" aria-labelledby="help">
        <h2 id="help">${t("header.help")}</h2>
        <dl class="help">
          ${entries.map(
            (name) => html`
              <dt id=${name}>${t(`help.${name}`)}</dt>
              <dd>${t(`help.${name}.text`)}</dd>
            `,
          )}
        </dl>
      </section>
    <//>`;
    render(content, document.body);
  }

  draw();
  // The entry that a link leads to has only now been drawn.
  if (location.hash !== "") document.getElementById(location.hash.slice(1))?.scrollIntoView();
}
