// The answer to "Do I hear it?", with the next step and what it rests on.
import { helpAnchorOfVerdict } from "../model/help_entries.js";
import { html, useEffect, useLayoutEffect, useRef, useState } from "../view.js";
import { HelpLink } from "./frame.js";
import { Icon } from "./icon.js";

/**
 * @typedef {import("../view.js").Translate} Translate
 * @typedef {import("../model/types.js").Verdict} Verdict
 * @typedef {import("../model/types.js").Button} Button
 * @typedef {import("../model/types.js").Check} Check
 * @typedef {import("../model/types.js").Sentence} Sentence
 */

/** @param {Verdict} verdict */
function iconOf({ id, tone }) {
  return id === "ready" ? "ready" : tone;
}

const checkIcons = /** @type {const} */ ({ yes: "yes", no: "no", unknown: "unknown" });
const checkClasses = { yes: "passed", no: "failed", unknown: "open" };

/** @param {{t: Translate, say: (sentence: Sentence) => string, check: Check}} props */
function CheckLine({ t, say, check: { id, state, text, raw } }) {
  return html`<div>
    <dt>
      <span class=${checkClasses[state]}><${Icon} name=${checkIcons[state]} /></span>
      <span>${t(`check.${id}`)}</span>
      <span class="for-readers">${t(`evidence.${state}`)}</span>
    </dt>
    <dd>
      <p>${say(text)}</p>
      <p class="raw">
        ${Object.entries(raw).map(
          ([name, value]) =>
            html`<span>${name}: ${value === undefined ? t("evidence.notRead") : rawText(value)}</span> `,
        )}
      </p>
    </dd>
  </div>`;
}

/** @param {unknown} value */
function rawText(value) {
  return typeof value === "string" ? value || '""' : JSON.stringify(value);
}

/**
 * Says each new verdict to a screen reader once; seconds that pass are not news.
 *
 * @param {{text: string}} props
 */
function Announcement({ text }) {
  const [said, setSaid] = useState("");
  useEffect(() => setSaid(text), [text]);
  return html`<p class="for-readers" role="status">${said}</p>`;
}

/**
 * @param {{t: Translate, say: (sentence: Sentence) => string, verdict: Verdict, token: string, protectedText: string,
 *   evidenceIsOpen: boolean, onUnfold: (open: boolean) => void, onButton: (button: Button) => void}} props
 */
export function VerdictCard({ t, say, verdict, token, protectedText, evidenceIsOpen, onUnfold, onButton }) {
  const { id, tone, headline, detail, buttons, controls, evidence } = verdict;
  const heading = say(headline);
  const hasEvidence = controls !== "hidden";
  const card = useRef(/** @type {HTMLElement | null} */ (null));
  // A button that has done its work goes; the focus stays near instead of falling to the top of the page.
  const hadFocus = card.current?.querySelector(".actions")?.contains(document.activeElement) ?? false;
  useLayoutEffect(() => {
    if (hadFocus && document.activeElement === document.body) card.current?.querySelector("h2")?.focus();
  });
  return html`<section ref=${card} class="verdict ${tone}" data-verdict=${id} aria-labelledby="verdict">
    <${Announcement} text=${heading} />
    <${Icon} name=${iconOf(verdict)} />
    <div>
      <h2 id="verdict" tabindex="-1">${heading}</h2>
      <p>
        <span id="verdict-detail">${say(detail)}</span>${" "}
        ${
          hasEvidence &&
          html`<button
              type="button"
              class="link"
              aria-expanded=${evidenceIsOpen}
              aria-controls="evidence"
              onClick=${() => onUnfold(!evidenceIsOpen)}
            >
              ${t("evidence.title")}</button
            >${" "}`
        }
        <${HelpLink} t=${t} token=${token} anchor=${helpAnchorOfVerdict(verdict)} text=${t("help.more")} />
      </p>
    </div>
    ${
      buttons.length > 0 &&
      html`<div class="actions">
        ${buttons.map(
          (button, index) =>
            html`<button
              key=${button.id}
              type="button"
              class="button ${index === 0 ? "primary" : ""}"
              data-action=${button.id}
              onClick=${() => onButton(button)}
            >
              ${say(button)}
            </button>`,
        )}
      </div>`
    }
    <div id="evidence" class="evidence" hidden=${!hasEvidence || !evidenceIsOpen}>
      ${
        hasEvidence &&
        evidenceIsOpen &&
        html`<dl class="checks">
            ${evidence.map((check) => html`<${CheckLine} key=${check.id} t=${t} say=${say} check=${check} />`)}
          </dl>
          <p class="muted">${protectedText}</p>`
      }
    </div>
  </section>`;
}
