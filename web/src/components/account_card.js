// The account, at the end of the Advanced page. Texts of the account service that no table has are shown as they come.
import { html, useEffect, useRef } from "../view.js";
import { Message } from "./message.js";

/**
 * @typedef {import("../view.js").Translate} Translate
 * @typedef {import("../app/account_actions.js").Account} Account
 * @typedef {import("../app/account_actions.js").AccountFacts} AccountFacts
 */

/**
 * Takes what a form holds, and leaves no password in it.
 *
 * @param {(fields: Record<string, string>) => void} onSubmit
 */
const submits = (onSubmit) => (/** @type {SubmitEvent & {currentTarget: HTMLFormElement}} */ event) => {
  event.preventDefault();
  const fields = Object.fromEntries(new FormData(event.currentTarget));
  for (const input of event.currentTarget.querySelectorAll("[type=password]")) {
    /** @type {HTMLInputElement} */ (input).value = "";
  }
  onSubmit(/** @type {Record<string, string>} */ (fields));
};

/** @param {{label: string, name: string, type?: string, autocomplete: string, required?: boolean}} props */
function Field({ label, name, type = "text", autocomplete, required = true }) {
  return html`<label>
    <span>${label}</span>
    <input
      class="field text"
      type=${type}
      name=${name}
      autocomplete=${autocomplete}
      autocapitalize="none"
      spellcheck=${false}
      required=${required}
    />
  </label>`;
}

/** @param {{t: Translate, account: Account}} props */
function SignedOut({ t, account }) {
  return html`
    <form class="settings" name="sign-in" method="post" onSubmit=${submits(account.signIn)}>
      <${Field} label=${t("account.userName")} name="username" autocomplete="username" />
      <${Field}
        label=${t("account.password")}
        name="password"
        type="password"
        autocomplete="current-password"
      />
      <div class="row">
        <button class="button primary">${t("account.signIn")}</button>
        <button type="button" class="button" onClick=${account.signInByCode}>
          ${t("account.signInByCode")}
        </button>
      </div>
    </form>
    <details>
      <summary>${t("account.registerTitle")}</summary>
      <form class="settings" name="register" method="post" onSubmit=${submits(account.register)}>
        <${Field} label=${t("account.newUserName")} name="username" autocomplete="username" />
        <${Field}
          label=${t("account.newPassword")}
          name="password"
          type="password"
          autocomplete="new-password"
        />
        <${Field}
          label=${t("account.referrerOptional")}
          name="referrer_public_id"
          autocomplete="off"
          required=${false}
        />
        <div class="row"><button class="button">${t("account.register")}</button></div>
      </form>
    </details>
  `;
}

/** @param {{t: Translate, say: (sentence: import("../model/types.js").Sentence) => string, account: Account}} props */
function Attempt({ t, say, account }) {
  const { attempt } = account.view;
  const cancel = useRef(/** @type {HTMLButtonElement | null} */ (null));
  useEffect(() => cancel.current?.focus({ preventScroll: true }), []);
  if (attempt === null) return null;
  return html`<div>
    <p role="status">${say(attempt.text)}</p>
    ${attempt.code !== "" && html`<img class="qr" src=${attempt.code} alt=${t("account.code")} />`}
    <p class="row">
      <button ref=${cancel} type="button" class="button" onClick=${account.cancel}>
        ${t("account.cancel")}
      </button>
    </p>
  </div>`;
}

/** What the account service says of itself is a text, and a link only where it leads to the web. */
function Invitation({ text = "" }) {
  if (!/^https?:\/\//i.test(text) || !URL.canParse(text)) return html`<bdi>${text}</bdi>`;
  return html`<a href=${new URL(text).href} rel="noopener noreferrer" target="_blank" dir="auto">${text}</a>`;
}

/**
 * @param {Translate} t
 * @param {AccountFacts} facts
 */
function primaryText(t, { primaryKnown, primary }) {
  if (!primaryKnown) return t("account.primaryUnknown");
  return primary || t("account.primaryNone");
}

/** @param {{t: Translate, account: Account, facts: AccountFacts}} props */
function SignedIn({ t, account, facts }) {
  const rows = [
    ["id", facts.id],
    ["name", account.view.nickname],
    ["since", facts.since === 0 ? "" : new Date(facts.since * 1000).toLocaleString()],
    ["usage", t("account.usageValue", { seconds: facts.usage })],
    ["primary", primaryText(t, facts)],
    ["referrer", facts.referrer],
  ].filter(([, text]) => text !== "");
  const free = () => {
    if (confirm(t("account.freeQuestion"))) account.freePrimary();
  };
  return html`
    <dl class="pairs">
      ${rows.map(
        ([name, text]) => html`
          <dt>${t(`account.${name}`)}</dt>
          <dd><bdi>${text}</bdi></dd>
        `,
      )}
      ${
        facts.invitation !== "" &&
        html`
          <dt>${t("account.invitation")}</dt>
          <dd><${Invitation} text=${facts.invitation} /></dd>
        `
      }
    </dl>
    ${
      facts.referralOpen &&
      html`<form class="settings" name="referrer" method="post" onSubmit=${submits(account.nameReferrer)}>
        <${Field} label=${t("account.referrerId")} name="public_id" autocomplete="off" />
        <div class="row"><button class="button">${t("account.nameReferrer")}</button></div>
      </form>`
    }
    <div class="row">
      <button type="button" class="button" onClick=${free}>${t("account.free")}</button>
      <button type="button" class="button" onClick=${account.logOut}>${t("account.logOut")}</button>
    </div>
  `;
}

/**
 * @param {{t: Translate, say: (sentence: import("../model/types.js").Sentence) => string, account: Account,
 *   token: string}} props
 */
export function AccountCard({ t, say, account, token }) {
  const { isConfigured, news, attempt, nickname } = account.view;
  if (!isConfigured) return null;
  const facts = account.facts();
  const name = nickname || facts.id;
  const signedIn = name === "" ? t("account.signedInUnnamed") : t("account.signedInAs", { name });
  return html`<section class="card" id="account" aria-labelledby="account-title">
    <div class="row">
      <h2 id="account-title">${t("account.title")}</h2>
      <bdi class="muted" data-account-state>${facts.signedIn ? signedIn : t("account.signedOut")}</bdi>
    </div>
    <div role="status" class="news">
      ${news !== null && html`<${Message} t=${t} say=${say} token=${token} tone=${news.tone} lines=${news.lines} />`}
    </div>
    ${attempt !== null && html`<${Attempt} t=${t} say=${say} account=${account} />`}
    ${facts.isKnown && !facts.signedIn && attempt === null && html`<${SignedOut} t=${t} account=${account} />`}
    ${facts.signedIn && html`<${SignedIn} t=${t} account=${account} facts=${facts} />`}
  </section>`;
}
