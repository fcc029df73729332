// Signing in and out, and what a signed-in person does. Only a person's click sends anything: whether there is an account
// service shows in the answer to a poll of no attempt, which asks nobody.
import { flagOf, numberOf, objectOf, textOf } from "../model/read.js";
import { serviceSentence } from "../model/reasons.js";

/**
 * @typedef {import("./session.js").Session} Session
 * @typedef {import("../model/types.js").Sentence} Sentence
 * @typedef {{tone: "info" | "bad", lines: Sentence[]}} News
 *
 * @typedef {object} Attempt a sign-in that waits for the account service
 * @property {"code" | "password" | "register"} kind
 * @property {string} state the account service's name for it
 * @property {number} endsAt when the page gives up
 * @property {number} failures polls in a row that were not answered
 * @property {Sentence} text what the person does now
 * @property {Sentence | null} detail what the account service says besides
 * @property {string} code the address of the image to scan; empty for none
 *
 * @typedef {object} Refusal
 * @property {string} action
 * @property {number} count of all refusals so far, so that the same one again is another
 */

const accountPath = "/api/v1/account";
const pollAgainMs = 2000;
const attemptMs = 600_000;
const mostFailures = 5;
const noAccountService = 501;
/** Less than this time in use is lost without a question. */
const worthAskingSeconds = 60;
const ended = /** @type {const} */ ({ over: "over", denied: "denied", failed: "failed" });
/** The words of the account service that end an attempt, and what they mean. Other words leave it open. */
const endings = new Map([
  ["expired", ended.over],
  ["timeout", ended.over],
  ["closed", ended.over],
  ["used", ended.over],
  ["invalid", ended.over],
  ["not_found", ended.over],
  ["denied", ended.denied],
  ["rejected", ended.denied],
  ["refused", ended.denied],
  ["cancelled", ended.denied],
  ["canceled", ended.denied],
  ["error", ended.failed],
  ["failed", ended.failed],
]);
/** Other tabs learn from here that a person has logged out. */
const channelName = "velmora.account";

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
    refusal: /** @type {Refusal} */ ({ action: "", count: 0 }),
    /** The last attempt was by a code and has ended: another one may be wanted. */
    needsNewCode: false,
    question: /** @type {"free" | "logout" | null} */ (null),
    nickname: "",
  };
  let wasSignedIn = false;
  /** Who has logged out, while the session still shows. */
  let leaving = /** @type {"nobody" | "here" | "otherTab"} */ ("nobody");
  const farewells = {
    nobody: "account.ended",
    here: "account.loggedOut",
    otherTab: "account.loggedOutInTab",
  };
  const channel = new BroadcastChannel(channelName);
  channel.addEventListener("message", ({ data: leaves }) => {
    if (wasSignedIn) leaving = leaves === true ? "otherTab" : "nobody";
  });

  session.watchers.add((kind, document) => {
    if (kind !== "status") return;
    const { signedIn } = readAccount(document);
    if (wasSignedIn && !signedIn) {
      view.nickname = "";
      view.question = null;
      tell(leaving === "nobody" ? "bad" : "info", { key: farewells[leaving], values: {} });
    }
    if (!signedIn) leaving = "nobody";
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
    view.needsNewCode = false;
    view.question = null;
    if (action === "logout") tell("info");
    else tell("info", { key: "account.wait", values: {} });
    const answer = await client.ask({ method: "POST", path: `${accountPath}/${action}`, body, slow: true });
    view.isAsking = false;
    if (answer.status === noAccountService) view.isConfigured = false;
    if (answer.ok) tell("info");
    else {
      view.refusal = { action, count: view.refusal.count + 1 };
      tell(
        "bad",
        answer.status === 0 ? { key: "action.stopped", values: {} } : serviceSentence(answer.error),
      );
    }
    return answer.ok ? objectOf(answer.document) : undefined;
  }

  /**
   * @param {Record<string, unknown>} opened
   * @param {Attempt["kind"]} kind
   * @param {string} [code]
   */
  function beginAttempt(opened, kind, code = "") {
    /** @type {Attempt} */
    const attempt = {
      kind,
      state: textOf(opened.state) ?? "",
      endsAt: Date.now() + attemptMs,
      failures: 0,
      text: { key: kind === "code" ? "account.scan" : "account.waiting", values: {} },
      detail: null,
      code,
    };
    view.attempt = attempt;
    session.changed();
    setTimeout(() => {
      if (view.attempt === attempt) endAttempt("bad", ending(attempt, ended.over));
    }, attemptMs);
    poll(attempt);
  }

  /**
   * @param {News["tone"]} tone
   * @param {...Sentence} lines
   */
  function endAttempt(tone, ...lines) {
    view.needsNewCode = tone === "bad" && view.attempt?.kind === "code";
    view.attempt = null;
    tell(tone, ...lines);
  }

  /**
   * @param {Attempt} attempt
   * @param {"over" | "denied" | "failed"} how
   * @returns {Sentence}
   */
  function ending({ kind }, how) {
    const key = how === ended.over && kind === "code" ? "account.codeOver" : `account.${how}`;
    return { key, values: {} };
  }

  /**
   * What an answer says that ends an attempt: what its word means, and its own text.
   *
   * @param {Attempt} attempt
   * @param {"over" | "denied" | "failed"} how
   * @param {string} detail
   */
  function endByAnswer(attempt, how, detail) {
    const known = serviceSentence(detail);
    const lines = known.key === "service.unknown" || detail === "" ? [ending(attempt, how)] : [];
    if (detail !== "") lines.push(known);
    endAttempt("bad", ...lines);
  }

  /** @param {Attempt} attempt */
  async function pollOnce(attempt) {
    const path = `${accountPath}/poll?state=${encodeURIComponent(attempt.state)}`;
    const answer = await client.ask({ method: "GET", path, slow: true });
    // It has been cancelled, or there is another one.
    if (view.attempt !== attempt) return;
    if (!answer.ok) {
      attempt.detail = serviceSentence(answer.error);
      const isOver = (answer.status >= 400 && answer.status < 500) || answer.status === noAccountService;
      if (isOver || ++attempt.failures === mostFailures) endAttempt("bad", attempt.detail);
      return;
    }
    attempt.failures = 0;
    const reply = objectOf(answer.document);
    const detail = textOf(reply.detail) ?? "";
    const how = endings.get((textOf(reply.status) ?? "").toLowerCase());
    if (reply.status === "issued") {
      view.nickname = textOf(reply.nickname) ?? "";
      endAttempt("info", detail === "" ? { key: "account.signedIn", values: {} } : serviceSentence(detail));
      session.lookAt("status");
    } else if (how !== undefined) endByAnswer(attempt, how, detail);
    else attempt.detail = detail === "" ? null : serviceSentence(detail);
  }

  /** @param {Attempt} attempt */
  async function poll(attempt) {
    await pollOnce(attempt);
    session.changed();
    setTimeout(() => view.attempt === attempt && poll(attempt), pollAgainMs);
  }

  /** @param {Record<string, string>} fields */
  async function signIn(fields) {
    const answer = await ask("password", fields);
    if (answer) beginAttempt(answer, "password");
  }

  /** @param {Record<string, string>} fields */
  async function register({ referrer_public_id: referrer = "", ...fields }) {
    const answer = await ask(
      "register",
      referrer === "" ? fields : { ...fields, referrer_public_id: referrer },
    );
    if (!answer) return;
    const [id, note] = [textOf(answer.public_id) ?? "", textOf(answer.referrer_note) ?? ""];
    beginAttempt(answer, "register");
    const lines = [];
    if (id !== "") lines.push({ key: "account.yourId", values: { id } });
    if (note !== "") lines.push(serviceSentence(note));
    tell("info", ...lines);
  }

  async function signInByCode() {
    const answer = await ask("qrcode");
    if (!answer) return;
    const code = textOf(answer.qr_data_url) ?? "";
    if (/^data:image\//i.test(code)) beginAttempt(answer, "code", code);
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

  /** The image of the code cannot be drawn. */
  function failCode() {
    if (view.attempt !== null) endAttempt("bad", { key: "account.noCode", values: {} });
  }

  async function logOut() {
    leaving = "here";
    channel.postMessage(true);
    if (await ask("logout")) return void session.lookAt("status");
    leaving = "nobody";
    channel.postMessage(false);
  }

  /** @param {"free" | "logout" | null} question */
  function askFor(question) {
    view.question = question;
    session.changed();
  }

  /** @param {string} text */
  async function copy(text) {
    try {
      await navigator.clipboard.writeText(text);
      tell("info", { key: "action.copied", values: {} });
    } catch {
      tell("info", { key: "account.copyByHand", values: {} });
    }
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
    failCode,
    askFor,
    copy,
    logOut,
    /** Logging out loses the time in use: what was counted is asked about. */
    leave: () => (readAccount(state.seen.now).usage >= worthAskingSeconds ? askFor("logout") : logOut()),
  };
}

/** @typedef {ReturnType<typeof createAccount>} Account */
