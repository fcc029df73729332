// All that the status document says, for whoever looks for a fault.
import { objectOf } from "../model/read.js";
import { hexResult } from "../model/reasons.js";
import { html } from "../view.js";

/**
 * @typedef {import("../view.js").Translate} Translate
 * @typedef {import("../app/advanced_actions.js").Advanced} Advanced
 */

const groups = ["apo_diagnostics", "apo_host", "audio_engine", "apo_binding", "versions"];
const isResult = (/** @type {string} */ key) => /(?:hresult|error|error_code|detail_code)$/.test(key);
const isMask = (/** @type {string} */ key) => key.endsWith("_mask");

/**
 * The effect's and Windows' own values, as they are in the document.
 *
 * @param {Translate} t
 * @param {string} key
 * @param {unknown} value
 */
function valueText(t, key, value) {
  if (Array.isArray(value)) return value.join("\n") || t("diagnostics.none");
  if (value === "") return t("diagnostics.none");
  if (typeof value !== "number") return String(value);
  if (isResult(key)) return `${value} (${hexResult(value)})`;
  if (isMask(key)) return `${value} (0x${value.toString(16).toUpperCase().padStart(4, "0")})`;
  return String(value);
}

/** @param {{t: Translate, advanced: Advanced, status: unknown}} props */
export function DiagnosticsCard({ t, advanced, status }) {
  const isOpen = advanced.view.diagnosticsAreOpen;
  const document = objectOf(status);
  return html`<details
    class="card"
    id="diagnostics"
    open=${isOpen}
    onToggle=${(/** @type {{currentTarget: HTMLDetailsElement}} */ { currentTarget }) =>
      advanced.unfoldDiagnostics(currentTarget.open)}
  >
    <summary><h2>${t("diagnostics.title")}</h2></summary>
    ${
      isOpen &&
      groups.map(
        (group) =>
          html`<section key=${group} aria-labelledby=${`group-${group}`}>
            <h3 id=${`group-${group}`}>${t(`diagnostics.${group}`)}</h3>
            <table aria-labelledby=${`group-${group}`}>
              <tbody>
                ${Object.entries(objectOf(document[group])).map(
                  ([key, value]) =>
                    html`<tr key=${key}>
                      <th scope="row">${key}</th>
                      <td><bdi>${valueText(t, key, value)}</bdi></td>
                    </tr>`,
                )}
              </tbody>
            </table>
          </section>`,
      )
    }
  </details>`;
}
