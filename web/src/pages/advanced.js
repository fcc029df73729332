// The Advanced page: processing, captures, diagnostics, and the account where there is one.
import { createAccount } from "../app/account_actions.js";
import { createAdvanced } from "../app/advanced_actions.js";
import { createCaptures } from "../app/capture_actions.js";
import { createDiagnostics } from "../app/diagnostics_actions.js";
import { createReport } from "../app/report_actions.js";
import { createSession } from "../app/session.js";
import { AccountCard } from "../components/account_card.js";
import { CaptureCard } from "../components/capture_card.js";
import { DiagnosticsCard } from "../components/diagnostics_card.js";
import { Frame, nameDocument } from "../components/frame.js";
import { Message } from "../components/message.js";
import { ProcessingCard } from "../components/processing_card.js";
import { ReportDialog } from "../components/report_dialog.js";
import { VerdictCard } from "../components/verdict_card.js";
import { say } from "../texts/index.js";
import { html, render } from "../view.js";

/** @typedef {import("../model/types.js").Sentence} Sentence */

/** Draws the page and keeps it up to date. */
export function openAdvancedPage() {
  const session = createSession(draw);
  const advanced = createAdvanced(session);
  const captures = createCaptures(session);
  const account = createAccount(session);
  const diagnostics = createDiagnostics(session);
  const report = createReport(session);
  const root = document.documentElement;

  function draw() {
    const language = session.language();
    const t = (/** @type {string} */ key, values = {}) => say(language, key, values);
    const tell = (/** @type {Sentence} */ { key, values }) => t(key, values);
    const verdict = session.judge();
    nameDocument(language, `${t("header.advanced")} – ${t("page.title")}`);
    const { message } = session.state;
    const isReached = verdict.controls !== "hidden";
    const isWaiting = session.client.link().state === "waiting";
    const content = html`<${Frame}
      t=${t}
      page="advanced"
      token=${session.token}
      language=${language}
      onLanguage=${session.setLanguage}
      version=${session.version()}
      stamp=${root.dataset.stamp ?? ""}
    >
      ${
        (!isReached || isWaiting) &&
        html`<${VerdictCard}
          t=${t}
          say=${tell}
          verdict=${{ ...verdict, controls: "hidden", buttons: [] }}
          token=${session.token}
          protectedText=""
          evidenceIsOpen=${false}
          onUnfold=${() => {}}
          onButton=${() => {}}
        />`
      }
      <div class="messages" role="status">
        ${
          message !== null &&
          isReached &&
          html`<${Message}
            t=${t}
            say=${tell}
            token=${session.token}
            tone=${message.tone}
            lines=${[message.sentence]}
          />`
        }
      </div>
      ${
        isReached &&
        html`<div class="cards ${isWaiting ? "stale" : ""}">
          <${ProcessingCard} t=${t} advanced=${advanced} />
          <${CaptureCard} t=${t} captures=${captures} />
          <${DiagnosticsCard} say=${tell} t=${t} diagnostics=${diagnostics} report=${report} />
          <${AccountCard} t=${t} say=${tell} account=${account} token=${session.token} />
        </div>`
      }
      <${ReportDialog} t=${t} report=${report} />
    <//>`;
    render(content, document.body);
  }

  draw();
  session.start();
  if (session.token === "") return;
  captures.start();
  account.findOut();
}
