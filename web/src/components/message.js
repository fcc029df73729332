// What became of the last thing that the person did.
import { helpAnchorOf } from "../model/help_entries.js";
import { html } from "../view.js";
import { HelpLink } from "./frame.js";
import { Icon } from "./icon.js";

/** @typedef {import("../model/types.js").Sentence} Sentence */

/**
 * One sentence in each line. Where Help explains one of them, a link leads there.
 *
 * @param {{t: import("../view.js").Translate, say: (sentence: Sentence) => string, token: string,
 *   tone: "info" | "bad", lines: Sentence[], children?: import("../view.js").Children}} props
 */
export function Message({ t, say, token, tone, lines, children = null }) {
  const anchor = lines.map(helpAnchorOf).find((found) => found !== undefined);
  return html`<div class="message ${tone}" data-message>
    <${Icon} name=${tone} />
    <span>${lines.map(say).join("\n")}</span>
    <${HelpLink} t=${t} token=${token} anchor=${anchor} text=${t("help.whatIsThis")} />
    ${children}
  </div>`;
}
