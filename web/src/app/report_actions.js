// The report that a person copies, from the button to the clipboard.
import { reportText } from "../model/report.js";
import { say } from "../texts/index.js";

/** @typedef {import("./session.js").Session} Session */

/** @param {Session} session */
export function createReport(session) {
  const { state, client } = session;
  const view = {
    /** What is shown, and what will be copied; null while the dialog is closed. */
    text: /** @type {string | null} */ (null),
    outcome: /** @type {"none" | "copied" | "refused"} */ ("none"),
  };

  /** @param {string | null} text */
  function show(text) {
    view.text = text;
    view.outcome = "none";
    session.changed();
  }

  /** The report is made once: what is shown stays as it is until it is copied. */
  function open() {
    const language = session.language();
    const { seen, action, kept } = state;
    const source = {
      time: Date.now(),
      browser: navigator.userAgent,
      token: session.token,
      verdict: session.judge(),
      link: client.link(),
      action,
      kept,
      seen,
    };
    show(reportText(source, ({ key, values }) => say(language, key, values)));
  }

  async function copy() {
    const { text } = view;
    if (text === null) return;
    try {
      await navigator.clipboard.writeText(text);
      view.outcome = "copied";
    } catch {
      // The browser may refuse the clipboard: the person copies by hand.
      view.outcome = "refused";
    }
    session.changed();
  }

  return { view, open, copy, close: () => show(null) };
}

/** @typedef {ReturnType<typeof createReport>} Report */
