// Signing in and out, and what a signed-in person does. Only a person's click sends anything: whether there is an account
// service shows in the answer to a poll of no attempt, which asks nobody.
import { flagOf, numberOf, objectOf, textOf } from "../model/read.js";
import { serviceSentence } from "../model/reasons.js";

/**
 * @typedef {import("./session.js").Session} Session
 * @typedef {import("../model/types.js").Sentence} Sentence
 * @typedef {{tone: "info" | "bad", lines: Sentence[]}} News
 * @typedef {{state: string, polls: number, failures: number, text: Sentence, code: string}} Attempt
 */

const accountPath = "/api/v1/account";
const pollAgainMs = 2000;
const mostPolls = 300;
const mostFailures = 5;
const noAccountService = 501;
// Other words of the account service leave an attempt open.
const endingWords = new Set([
  "issued",
  "error",
  "expired",
  "denied",
  "rejected",
  "refused",
  "cancelled",
  "canceled",
  "failed",
  "closed",
  "used",
  "invalid",
  "not_found",
  "timeout",
]);

/** @param {unknown} status */
function readAccount(status) {
  const account = objectOf(objectOf(status).session);
  return {
    isKnown: flagOf(account.signed_in) !== undefined,
    signedIn: account.signed_in === true,
    id: textOf(account.public_id) ?? "",
    since: numberOf(account.signed_in_unix) ?? 0,
    usage: numberOf(account.usage_seconds) ?? 0,
    primaryKnown: account.primary_known === true,
    primary: textOf(account.primary_machine_id) ?? "",
    referralOpen: account.referral_open === true,
    referrer: textOf(account.referrer) ?? "",
    invitation: textOf(account.invite_url) ?? "",
  };
}

/** @typedef {ReturnType<typeof readAccount>} AccountFacts */

/** @param {Session} session */
export function createAccount(session) {
  const { state, client } = session;
  const view = {
    isConfigured: false,
    news: /** @type {News | null} */ (null),
    attempt: /** @type {Attempt | null} */ (null),
    isAsking: false,
    nickname: "",
  };
  let wasSignedIn = false;
  let isLoggingOut = false;

  session.watchers.add((kind, document) => {
    if (kind !== "status") return;
    const { signedIn } = readAccount(document);
    if (wasSignedIn && !signedIn) {
      view.nickname = "";
      tell("info", { key: isLoggingOut ? "account.loggedOut" : "account.ended", values: {} });
    }
    if (!signedIn) isLoggingOut = false;
    wasSignedIn = signedIn;
  });

  /**
   * @param {News["tone"]} tone
   * @param {...Sentence} lines
   */
  function tell(tone, ...lines) {
    view.news = lines.length > 0 ? { tone, lines } : null;
    session.changed();
  }

  async function findOut() {
    const answer = await client.ask({ method: "GET", path: `${accountPath}/poll` });
    view.isConfigured = answer.status === 400;
    session.changed();
  }

  /**
   * One thing at a time: whoever presses twice asks once.
   *
   * @param {string} action
   * @param {Record<string, string>} [body]
   * @returns {Promise<Record<string, unknown> | undefined>} the answer; nothing where it was refused
   */
  async function ask(action, body) {
    if (view.isAsking) return undefined;
    session.begin();
    view.isAsking = true;
    if (action === "logout") tell("info");
    else tell("info", { key: "account.wait", values: {} });
    const answer = await client.ask({ method: "POST", path: `${accountPath}/${action}`, body, slow: true });
    view.isAsking = false;
    if (answer.status === noAccountService) view.isConfigured = false;
    if (answer.ok) tell("info");
    else
      tell(
        "bad",
        answer.status === 0 ? { key: "action.stopped", values: {} } : serviceSentence(answer.error),
      );
    return answer.ok ? objectOf(answer.document) : undefined;
  }

  /**
   * @param {Record<string, unknown>} opened
   * @param {string} key
   * @param {string} [code]
   */
  function beginAttempt(opened, key, code = "") {
    const attempt = {
      state: textOf(opened.state) ?? "",
      polls: 0,
      failures: 0,
      text: { key, values: {} },
      code,
    };
    view.attempt = attempt;
    session.changed();
    poll(attempt);
  }

  /**
   * @param {News["tone"]} tone
   * @param {Sentence} text
   */
  function endAttempt(tone, text) {
    view.attempt = null;
    tell(tone, text);
  }

  /** @param {Record<string, unknown>} answer */
  function statusSentence({ status, detail }) {
    const [word, text] = [textOf(status) ?? "", textOf(detail) ?? ""];
    const known = serviceSentence(text);
    if (text === "") return { key: "service.unknown", values: { text: word } };
    return known.key === "service.unknown"
      ? { key: "account.status", values: { status: word, detail: text } }
      : known;
  }

  /** @param {Attempt} attempt */
  async function pollOnce(attempt) {
    const path = `${accountPath}/poll?state=${encodeURIComponent(attempt.state)}`;
    const answer = await client.ask({ method: "GET", path, slow: true });
    // It has been cancelled, or there is another one.
    if (view.attempt !== attempt) return;
    if (!answer.ok) {
      attempt.text = serviceSentence(answer.error);
      const isOver = (answer.status >= 400 && answer.status < 500) || answer.status === noAccountService;
      if (isOver || ++attempt.failures === mostFailures) endAttempt("bad", attempt.text);
      return;
    }
    attempt.failures = 0;
    const reply = objectOf(answer.document);
    attempt.text = statusSentence(reply);
    if (reply.status === "issued") {
      view.nickname = textOf(reply.nickname) ?? "";
      const detail = textOf(reply.detail) ?? "";
      endAttempt("info", detail === "" ? { key: "account.signedIn", values: {} } : serviceSentence(detail));
      session.lookAt("status");
    } else if (endingWords.has((textOf(reply.status) ?? "").toLowerCase())) {
      endAttempt("bad", attempt.text);
    }
  }

  /** @param {Attempt} attempt */
  async function poll(attempt) {
    await pollOnce(attempt);
    session.changed();
    if (view.attempt !== attempt) return;
    if (++attempt.polls === mostPolls) return endAttempt("bad", { key: "account.expired", values: {} });
    setTimeout(() => view.attempt === attempt && poll(attempt), pollAgainMs);
  }

  /** @param {Record<string, string>} fields */
  async function signIn(fields) {
    const answer = await ask("password", fields);
    if (answer) beginAttempt(answer, "account.waiting");
  }

  /** @param {Record<string, string>} fields */
  async function register({ referrer_public_id: referrer = "", ...fields }) {
    const answer = await ask(
      "register",
      referrer === "" ? fields : { ...fields, referrer_public_id: referrer },
    );
    if (!answer) return;
    const [id, note] = [textOf(answer.public_id) ?? "", textOf(answer.referrer_note) ?? ""];
    beginAttempt(answer, "account.waiting");
    const lines = [];
    if (id !== "") lines.push({ key: "account.yourId", values: { id } });
    if (note !== "") lines.push(serviceSentence(note));
    tell("info", ...lines);
  }

  async function signInByCode() {
    const answer = await ask("qrcode");
    if (!answer) return;
    const code = textOf(answer.qr_data_url) ?? "";
    if (/^data:image\//i.test(code)) beginAttempt(answer, "account.scan", code);
    else tell("bad", { key: "account.noCode", values: {} });
  }

  /**
   * @param {string} action
   * @param {Record<string, string>} [body]
   * @returns {Promise<boolean>}
   */
  async function act(action, body) {
    const answer = await ask(action, body);
    if (!answer) return false;
    tell(answer.ok === true ? "info" : "bad", serviceSentence(textOf(answer.detail) ?? ""));
    session.lookAt("status");
    return answer.ok === true;
  }

  async function logOut() {
    isLoggingOut = true;
    if (await ask("logout")) session.lookAt("status");
    else isLoggingOut = false;
  }

  return {
    view,
    facts: () => readAccount(state.seen.now),
    findOut,
    signIn,
    register,
    signInByCode,
    cancel: () => endAttempt("info", { key: "account.cancelled", values: {} }),
    nameReferrer: (/** @type {Record<string, string>} */ fields) => act("referrer", fields),
    freePrimary: () => act("unbind"),
    logOut,
  };
}

/** @typedef {ReturnType<typeof createAccount>} Account */
