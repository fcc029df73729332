// The Advanced page: processing, captures, diagnostics, and the account where there is one.
import { createAccount } from "../app/account_actions.js";
import { createAdvanced } from "../app/advanced_actions.js";
import { createDiagnostics } from "../app/diagnostics_actions.js";
import { createReport } from "../app/report_actions.js";
import { createSession } from "../app/session.js";
import { AccountCard } from "../components/account_card.js";
import { NumberField, Switch } from "../components/controls.js";
import { DiagnosticsCard } from "../components/diagnostics_card.js";
import { Frame, nameDocument } from "../components/frame.js";
import { Message } from "../components/message.js";
import { ReportDialog } from "../components/report_dialog.js";
import { VerdictCard } from "../components/verdict_card.js";
import { decibelField, digits, fadeRange, millisecondField, parseField } from "../model/equalizer.js";
import { say } from "../texts/index.js";
import { html, render, useLayoutEffect, useRef } from "../view.js";

/**
 * @typedef {import("../view.js").Translate} Translate
 * @typedef {import("../app/advanced_actions.js").Advanced} Advanced
 * @typedef {import("../model/types.js").Sentence} Sentence
 */

/** The record keeps this one in steps of its own, which have digits that nobody has set. */
const twoDigits = (/** @type {number} */ value) => digits(Number(value.toFixed(2)));

const numbers = [
  { key: "output_trim_db", text: "outputTrim", minimum: -60, maximum: 20, format: decibelField },
  { key: "mask_time_alpha", text: "maskTime", minimum: 0, maximum: 0.95, format: twoDigits },
  { key: "limiter_ceiling_db", text: "limiterCeiling", minimum: -12, maximum: 0, format: decibelField },
];

/** @param {{label: string, value: number | undefined, onChange: (value: number) => void}} props */
function StereoLink({ label, value, onChange }) {
  const select = useRef(/** @type {HTMLSelectElement | null} */ (null));
  useLayoutEffect(() => {
    if (select.current !== null) select.current.value = String(value ?? "");
  });
  return html`<label>
    <span>${label}</span>
    <select
      ref=${select}
      name="stereo_link"
      disabled=${value === undefined}
      onChange=${(/** @type {{currentTarget: HTMLSelectElement}} */ { currentTarget }) =>
        onChange(Number(currentTarget.value))}
    >
      ${[0, 1, 2].map((one) => html`<option key=${one} value=${one}>${one}</option>`)}
    </select>
  </label>`;
}

/** @param {{t: Translate, advanced: Advanced}} props */
function ProcessingCard({ t, advanced }) {
  const numberOf = (/** @type {string} */ key) => {
    const value = advanced.value(key);
    return typeof value === "number" ? value : undefined;
  };
  const switches = [
    { key: "mask_frequency_smooth", text: "maskFrequency", values: [0, 1] },
    { key: "limiter_enabled", text: "limiter", values: [false, true] },
  ];
  return html`<section class="card" aria-labelledby="processing">
    <h2 id="processing">${t("advanced.processing")}</h2>
    <div class="settings">
      ${numbers.map(
        ({ key, text, ...field }) =>
          html`<${NumberField}
            key=${key}
            label=${t(`advanced.${text}`)}
            name=${key}
            value=${numberOf(key)}
            disabled=${numberOf(key) === undefined}
            parse=${parseField}
            onChange=${(/** @type {number} */ value) => advanced.setAlgorithm(key, value)}
            ...${field}
          />`,
      )}
      <${NumberField}
        label=${t("advanced.fade")}
        name="fade_ms"
        value=${advanced.fade()}
        disabled=${advanced.fade() === undefined}
        format=${millisecondField}
        parse=${parseField}
        onChange=${advanced.setFade}
        ...${fadeRange}
      />
      <${StereoLink}
        label=${t("advanced.stereoLink")}
        value=${numberOf("stereo_link")}
        onChange=${(/** @type {number} */ value) => advanced.setAlgorithm("stereo_link", value)}
      />
      ${switches.map(({ key, text, values: [off, on] }) => {
        const value = advanced.value(key);
        return html`<div key=${key} class="setting">
          <span aria-hidden="true">${t(`advanced.${text}`)}</span>
          <${Switch}
            class="small"
            label=${t(`advanced.${text}`)}
            words=${[t("control.off"), t("control.on")]}
            checked=${value !== undefined && value !== off}
            disabled=${value === undefined}
            onChange=${(/** @type {boolean} */ isOn) => advanced.setAlgorithm(key, isOn ? on : off)}
          />
        </div>`;
      })}
    </div>
    <p class="muted">${t("advanced.processingNote")}</p>
  </section>`;
}

/** @param {{t: Translate, advanced: Advanced}} props */
function CaptureCard({ t, advanced }) {
  const { capture, captureBytes, seconds } = advanced.view;
  return html`<section class="card" aria-labelledby="captures">
    <h2 id="captures">${t("capture.title")}</h2>
    <p class="muted">${t("capture.note")}</p>
    <div class="row">
      <${NumberField}
        label=${t("capture.seconds")}
        name="seconds"
        value=${seconds}
        minimum=${1}
        maximum=${300}
        format=${(/** @type {number} */ value) => `${digits(value)} s`}
        parse=${parseField}
        onChange=${advanced.setSeconds}
      />
      ${
        /** @type {const} */ (["start", "stop", "export"]).map(
          (action) =>
            html`<button key=${action} type="button" class="button" onClick=${() => advanced.capture(action)}>
              ${t(`capture.${action}`)}
            </button>`,
        )
      }
      <button type="button" class="button" disabled=${capture !== "ready"} onClick=${advanced.download}>
        ${t("capture.download")}
      </button>
      <span class="muted" role="status"
        >${capture !== "none" && t(`capture.${capture}`, { bytes: captureBytes })}</span
      >
    </div>
  </section>`;
}

/** Draws the page and keeps it up to date. */
export function openAdvancedPage() {
  const session = createSession(draw);
  const advanced = createAdvanced(session);
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
          <${CaptureCard} t=${t} advanced=${advanced} />
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
  advanced.lookForFiles(0);
  account.findOut();
}
