// What became of the last thing that the person did.
import { html } from "../view.js";
import { Icon } from "./icon.js";

/**
 * @param {{tone: "info" | "bad", text: string, children?: import("../view.js").Children}} props
 */
export function Message({ tone, text, children = null }) {
  return html`<div class="message ${tone}" data-message>
    <${Icon} name=${tone} />
    <span>${text}</span>
    ${children}
  </div>`;
}
