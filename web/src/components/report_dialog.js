// The report before it is copied: exactly the text that goes to the clipboard.
import { html, useEffect, useRef } from "../view.js";
import { Dialog } from "./controls.js";
import { Icon } from "./icon.js";

/**
 * @typedef {import("../view.js").Translate} Translate
 * @typedef {import("../app/report_actions.js").Report} Report
 */

const outcomes = /** @type {const} */ ({
  copied: { icon: "yes", key: "report.copied" },
  refused: { icon: "bad", key: "report.byHand" },
});

/** @param {{t: Translate, report: Report}} props */
function OpenReport({ t, report }) {
  const { text, outcome } = report.view;
  const field = useRef(/** @type {HTMLTextAreaElement | null} */ (null));
  useEffect(() => {
    if (outcome !== "refused") return;
    field.current?.focus();
    field.current?.select();
  }, [outcome]);
  return html`<${Dialog} title=${t("report.title")} onCancel=${report.close}>
    <p class="muted">${t("report.note")}</p>
    <label class="labelled">
      <span>${t("report.preview")}</span>
      <textarea ref=${field} class="report" readonly rows="12" spellcheck=${false} value=${text}></textarea>
    </label>
    <p class="outcome" role="status">
      ${
        outcome !== "none" &&
        html`<${Icon} name=${outcomes[outcome].icon} /><span>${t(outcomes[outcome].key)}</span>`
      }
    </p>
    <div class="row">
      <button type="button" class="button" onClick=${report.close}>${t("report.close")}</button>
      <button type="button" class="button primary" autofocus onClick=${report.copy}>
        ${t("report.copy")}
      </button>
    </div>
  <//>`;
}

/**
 * The dialog while it is open.
 *
 * @param {{t: Translate, report: Report}} props
 */
export function ReportDialog({ t, report }) {
  return report.view.text === null ? null : html`<${OpenReport} t=${t} report=${report} />`;
}
