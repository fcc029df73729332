// The pictures beside words. Each goes with words that say the same, so readers skip them.
import { html } from "../view.js";

const shapes = {
  good: "M4.5 12.5l5 5 10-11",
  warning: "M4 12h15M13 6l6 6-6 6",
  bad: "M12 5v9M12 18.5v.5",
  neutral: "M12 7v5l3 3M12 21a9 9 0 1 1 0-18 9 9 0 0 1 0 18z",
  ready: "M8 5.5v13l10.5-6.5z",
  yes: "M4.5 12.5l5 5 10-11",
  no: "M6 6l12 12M18 6L6 18",
  unknown: "M5.5 12h.1M12 12h.1M18.5 12h.1",
  undo: "M9 4.5L4 9.5l5 5M4.5 9.5H14a5 5 0 0 1 0 10h-3",
  redo: "M15 4.5l5 5-5 5M19.5 9.5H10a5 5 0 0 0 0 10h3",
  info: "M12 11v6M12 7v.5M12 21a9 9 0 1 1 0-18 9 9 0 0 1 0 18z",
};

/** @typedef {keyof typeof shapes} IconName */

/** @param {{name: IconName, class?: string}} props */
export function Icon({ name, class: className = "" }) {
  return html`<svg class="icon ${className}" viewBox="0 0 24 24" aria-hidden="true">
    <path d=${shapes[name]} />
  </svg>`;
}
