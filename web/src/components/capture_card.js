// The card of the captures: where the flow is, in one sentence, and what can be done there.
import { digits, parseField } from "../model/equalizer.js";
import { secondsRange } from "../model/capture_flow.js";
import { html, useEffect, useLayoutEffect, useRef, useState } from "../view.js";
import { Dialog, NumberField } from "./controls.js";
import { Icon } from "./icon.js";

/**
 * @typedef {import("../view.js").Translate} Translate
 * @typedef {import("../app/capture_actions.js").Captures} Captures
 * @typedef {import("../model/types.js").Sentence} Sentence
 */

const icons = /** @type {const} */ ({ info: "info", good: "good", warning: "bad" });

/**
 * For screen readers: once for each step of the flow, not with every second and every byte.
 *
 * @param {{text: string, phase: string}} props
 */
function Announcement({ text, phase }) {
  const [said, setSaid] = useState("");
  useEffect(() => setSaid(text), [phase]);
  return html`<p class="for-readers" role="status">${said}</p>`;
}

/** @param {{t: Translate, captures: Captures, bytes: number}} props */
function MemoryQuestion({ t, captures, bytes }) {
  const no = () => captures.answerQuestion(false);
  return html`<${Dialog} title=${t("capture.memoryTitle", { bytes })} onCancel=${no}>
    <p>${t("capture.memoryText", { bytes })}</p>
    <div class="row">
      <button type="button" class="button" autofocus onClick=${no}>${t("confirm.cancel")}</button>
      <button type="button" class="button primary" onClick=${() => captures.answerQuestion(true)}>
        ${t("capture.memoryYes")}
      </button>
    </div>
  <//>`;
}

/** @param {{t: Translate, captures: Captures}} props */
function Length({ t, captures }) {
  const { minimum, maximum } = secondsRange;
  return html`<div class="tuning">
    <${NumberField}
      label=${t("capture.seconds")}
      name="seconds"
      value=${captures.flow().seconds}
      minimum=${minimum}
      maximum=${maximum}
      format=${(/** @type {number} */ value) => `${digits(value)} s`}
      parse=${parseField}
      describedBy="about-seconds"
      onChange=${captures.setSeconds}
    />
    <p class="muted" id="about-seconds">${t("capture.secondsRange", { minimum, maximum })}</p>
  </div>`;
}

/** @param {{t: Translate, captures: Captures}} props */
export function CaptureCard({ t, captures }) {
  const { sentence, tone, notes, buttons, progress } = captures.explain();
  const { phase, words } = captures.flow();
  const tell = (/** @type {Sentence} */ { key, values }) => t(key, values);
  const card = useRef(/** @type {HTMLElement | null} */ (null));
  // A button that has done its work goes; the focus stays near instead of falling to the top of the page.
  const hadFocus = card.current?.querySelector(".actions")?.contains(document.activeElement) ?? false;
  useLayoutEffect(() => {
    if (hadFocus && document.activeElement === document.body) card.current?.querySelector("h2")?.focus();
  });
  const { isBusy, question } = captures.view;
  return html`<section ref=${card} class="card" data-phase=${phase} aria-labelledby="captures">
    <h2 id="captures" tabindex="-1">${t("capture.title")}</h2>
    <p class="muted">${t("capture.about")}</p>
    <${Announcement} text=${tell(sentence)} phase=${phase} />
    <p class="flow ${tone}">
      <${Icon} name=${icons[tone]} />
      <span data-sentence>${tell(sentence)}</span>
    </p>
    ${
      progress !== null &&
      html`<progress
        aria-label=${t("capture.progress")}
        max=${progress.most > 0 ? progress.most : undefined}
        value=${progress.most > 0 ? progress.value : undefined}
      ></progress>`
    }
    ${notes.map((note) => html`<p key=${note.key} class="muted" data-note=${note.key}>${tell(note)}</p>`)}
    ${phase === "idle" && html`<${Length} t=${t} captures=${captures} />`}
    <div class="row actions">
      ${buttons.map(
        ({ id, key, values, primary }) =>
          html`<button
            key=${id}
            type="button"
            class="button ${primary ? "primary" : ""}"
            data-action=${id}
            aria-disabled=${isBusy}
            onClick=${() => {
              if (!isBusy) captures.act(id);
            }}
          >
            ${t(key, values)}
          </button>`,
      )}
    </div>
    ${words && html`<p class="muted number">${t("capture.words", { ...words })}</p>`}
    ${question !== null && html`<${MemoryQuestion} t=${t} captures=${captures} bytes=${question} />`}
  </section>`;
}
