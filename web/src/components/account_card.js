// The account, at the end of the Advanced page. Texts of the account service that no table has are shown as they come.
import { html, useEffect, useLayoutEffect, useRef, useState } from "../view.js";
import { Dialog } from "./controls.js";
import { Message } from "./message.js";

/**
 * @typedef {import("../view.js").Translate} Translate
 * @typedef {import("../app/account_actions.js").Account} Account
 * @typedef {import("../app/account_actions.js").AccountFacts} AccountFacts
 * @typedef {(sentence: import("../model/types.js").Sentence) => string} Say
 */

/** An identifier that is longer is cut; its title has all of it. */
const longestId = 16;
const shownOfId = 8;

/**
 * Takes what a form holds, and leaves no password in it.
 *
 * @param {(fields: Record<string, string>) => void} onSubmit
 */
const submits = (onSubmit) => (/** @type {SubmitEvent & {currentTarget: HTMLFormElement}} */ event) => {
  event.preventDefault();
  const fields = Object.fromEntries(new FormData(event.currentTarget));
  for (const input of event.currentTarget.querySelectorAll("[data-password]")) {
    /** @type {HTMLInputElement} */ (input).value = "";
  }
  onSubmit(/** @type {Record<string, string>} */ (fields));
};

/** @param {{label: string, name: string, autocomplete: string, required?: boolean}} props */
function Field({ label, name, autocomplete, required = true }) {
  return html`<label>
    <span>${label}</span>
    <input
      class="field text"
      type="text"
      name=${name}
      autocomplete=${autocomplete}
      autocapitalize="none"
      spellcheck=${false}
      required=${required}
    />
  </label>`;
}

/**
 * A password, which can be looked at while it is written. It hides again when it is sent.
 *
 * @param {{label: string, show: string, autocomplete: string, refusals: number}} props refusals: of this form so far;
 *   after one, the field has the focus
 */
function PasswordField({ label, show, autocomplete, refusals }) {
  const [isShown, setIsShown] = useState(false);
  const input = useRef(/** @type {HTMLInputElement | null} */ (null));
  const before = useRef(refusals);
  useEffect(() => {
    if (before.current !== refusals) input.current?.focus();
    before.current = refusals;
  }, [refusals]);
  useEffect(() => {
    const form = input.current?.form;
    const hide = () => setIsShown(false);
    form?.addEventListener("submit", hide);
    return () => form?.removeEventListener("submit", hide);
  }, []);
  return html`<label>
      <span>${label}</span>
      <input
        ref=${input}
        class="field text"
        type=${isShown ? "text" : "password"}
        data-password
        name="password"
        autocomplete=${autocomplete}
        autocapitalize="none"
        spellcheck=${false}
        required
      />
    </label>
    <label class="choice">
      <input
        type="checkbox"
        checked=${isShown}
        onChange=${(/** @type {{currentTarget: HTMLInputElement}} */ { currentTarget }) =>
          setIsShown(currentTarget.checked)}
      />
      <span>${show}</span>
    </label>`;
}

/** @param {{t: Translate, account: Account}} props */
function SignedOut({ t, account }) {
  const { refusal, isAsking } = account.view;
  const refusalsOf = (/** @type {string} */ action) => (refusal.action === action ? refusal.count : 0);
  return html`
    <p class="muted">${t("account.optional")}</p>
    <form class="account-form" name="sign-in" method="post" onSubmit=${submits(account.signIn)}>
      <${Field} label=${t("account.userName")} name="username" autocomplete="username" />
      <${PasswordField}
        label=${t("account.password")}
        show=${t("account.show")}
        autocomplete="current-password"
        refusals=${refusalsOf("password")}
      />
      <div class="row">
        <button class="button primary" aria-disabled=${isAsking}>${t("account.signIn")}</button>
        <button type="button" class="button" aria-disabled=${isAsking} onClick=${account.signInByCode}>
          ${t("account.signInByCode")}
        </button>
      </div>
    </form>
    <details>
      <summary>${t("account.registerTitle")}</summary>
      <form class="account-form" name="register" method="post" onSubmit=${submits(account.register)}>
        <${Field} label=${t("account.newUserName")} name="username" autocomplete="username" />
        <${PasswordField}
          label=${t("account.newPassword")}
          show=${t("account.showNew")}
          autocomplete="new-password"
          refusals=${refusalsOf("register")}
        />
        <${Field}
          label=${t("account.referrerOptional")}
          name="referrer_public_id"
          autocomplete="off"
          required=${false}
        />
        <div class="row">
          <button class="button" aria-disabled=${isAsking}>${t("account.register")}</button>
        </div>
      </form>
    </details>
  `;
}

/** @param {{t: Translate, say: Say, account: Account}} props */
function Attempt({ t, say, account }) {
  const { attempt } = account.view;
  const cancel = useRef(/** @type {HTMLButtonElement | null} */ (null));
  useEffect(() => cancel.current?.focus({ preventScroll: true }), []);
  if (attempt === null) return null;
  const { text, detail, code, endsAt } = attempt;
  return html`<div class="attempt">
    <p role="status">${say(text)} ${detail !== null && html`<bdi>${say(detail)}</bdi>`}</p>
    ${
      code !== "" &&
      html`<img class="qr" src=${code} alt=${t("account.code")} onError=${() => account.failCode()} />`
    }
    <p class="muted" role="timer">${t("account.remaining", { remaining: endsAt - Date.now() })}</p>
    <p class="row">
      <button ref=${cancel} type="button" class="button" onClick=${account.cancel}>
        ${t("account.cancel")}
      </button>
    </p>
  </div>`;
}

/**
 * What the account service says of itself is a text, and a link only where it leads to the web.
 *
 * @param {{t: Translate, account: Account, text: string}} props
 */
function Invitation({ t, account, text }) {
  if (!/^https?:\/\//i.test(text) || !URL.canParse(text)) return html`<bdi>${text}</bdi>`;
  const { href } = new URL(text);
  return html`<a href=${href} rel="noopener noreferrer" target="_blank" dir="auto">${text}</a>${" "}
    <button type="button" class="button" onClick=${() => account.copy(href)}>
      ${t("account.copyInvitation")}
    </button>`;
}

/** @param {{t: Translate, facts: AccountFacts}} props */
function Primary({ t, facts: { primaryKnown, primary } }) {
  if (!primaryKnown) return t("account.primaryUnknown");
  if (primary === "") return t("account.primaryNone");
  const shown = primary.length > longestId ? `${primary.slice(0, shownOfId)}…` : primary;
  return html`<bdi title=${primary}>${shown}</bdi>`;
}

/** @param {{t: Translate, account: Account, facts: AccountFacts}} props */
function Question({ t, account, facts }) {
  const { question } = account.view;
  if (question === null) return null;
  const [title, text, yes, no, does] =
    question === "free"
      ? ["freeQuestion", "freeText", "freeYes", "cancel", account.freePrimary]
      : ["logOutQuestion", "logOutText", "logOut", "stay", account.logOut];
  return html`<${Dialog} title=${t(`account.${title}`)} onCancel=${() => account.askFor(null)}>
    <p>${t(`account.${text}`, { seconds: facts.usage })}</p>
    <div class="row">
      <button type="button" class="button" autofocus onClick=${() => account.askFor(null)}>
        ${t(`account.${no}`)}
      </button>
      <button type="button" class="button primary" onClick=${does}>${t(`account.${yes}`)}</button>
    </div>
  <//>`;
}

/** @param {{t: Translate, account: Account, facts: AccountFacts}} props */
function SignedIn({ t, account, facts }) {
  const { isAsking, nickname } = account.view;
  const rows = [
    ["id", facts.id],
    ["name", nickname],
    ["since", facts.since === 0 ? "" : t("account.sinceValue", { since: facts.since * 1000 })],
    ["usage", t("account.usageValue", { seconds: facts.usage })],
    ["primary", html`<${Primary} t=${t} facts=${facts} />`],
    ["referrer", facts.referrer],
    [
      "invitation",
      facts.invitation && html`<${Invitation} t=${t} account=${account} text=${facts.invitation} />`,
    ],
  ].filter(([, text]) => text !== "");
  return html`
    <dl class="pairs">
      ${rows.map(
        ([name, text]) => html`
          <dt>${t(`account.${name}`)}</dt>
          <dd>${typeof text === "string" ? html`<bdi>${text}</bdi>` : text}</dd>
        `,
      )}
    </dl>
    ${
      facts.referralOpen &&
      html`<form class="account-form" name="referrer" method="post" onSubmit=${submits(account.nameReferrer)}>
        <${Field} label=${t("account.referrerId")} name="public_id" autocomplete="off" />
        <div class="row">
          <button class="button" aria-disabled=${isAsking}>${t("account.nameReferrer")}</button>
        </div>
      </form>`
    }
    <div class="row">
      <button type="button" class="button" aria-disabled=${isAsking} onClick=${() => account.askFor("free")}>
        ${t("account.free")}
      </button>
      <button type="button" class="button" aria-disabled=${isAsking} onClick=${account.leave}>
        ${t("account.logOut")}
      </button>
    </div>
    <${Question} t=${t} account=${account} facts=${facts} />
  `;
}

/** @param {{t: Translate, say: Say, account: Account, token: string}} props */
export function AccountCard({ t, say, account, token }) {
  const { isConfigured, news, attempt, nickname, needsNewCode } = account.view;
  const card = useRef(/** @type {HTMLElement | null} */ (null));
  // What had the focus goes with the state that it belongs to; the focus stays near.
  const hadFocus = card.current?.contains(document.activeElement) ?? false;
  useLayoutEffect(() => {
    if (!hadFocus || document.activeElement !== document.body) return;
    const next = card.current?.querySelector("[data-next]") ?? card.current?.querySelector("h2");
    /** @type {HTMLElement | null | undefined} */ (next)?.focus({ preventScroll: true });
  });
  if (!isConfigured) return null;
  const facts = account.facts();
  const name = nickname || facts.id;
  const signedIn = name === "" ? t("account.signedInUnnamed") : t("account.signedInAs", { name });
  const isFree = facts.isKnown && !facts.signedIn && attempt === null;
  return html`<section ref=${card} class="card" id="account" aria-labelledby="account-title">
    <div class="row">
      <h2 id="account-title" tabindex="-1">${t("account.title")}</h2>
      <bdi class="muted" data-account-state>${facts.signedIn ? signedIn : t("account.signedOut")}</bdi>
    </div>
    <div role="status" class="news">
      ${news !== null && html`<${Message} t=${t} say=${say} token=${token} tone=${news.tone} lines=${news.lines} />`}
    </div>
    ${
      isFree &&
      needsNewCode &&
      html`<button type="button" class="button primary" data-next onClick=${account.signInByCode}>
        ${t("account.newCode")}
      </button>`
    }
    ${attempt !== null && html`<${Attempt} t=${t} say=${say} account=${account} />`}
    ${isFree && html`<${SignedOut} t=${t} account=${account} />`}
    ${facts.signedIn && html`<${SignedIn} t=${t} account=${account} facts=${facts} />`}
  </section>`;
}
