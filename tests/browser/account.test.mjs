// The account at the end of the Advanced page, with an account service behind it.
import assert from "node:assert/strict";
import test from "node:test";

import { poll, startAccountService } from "../e2e/harness.mjs";
import { jsonReply } from "../programs/account/service.mjs";
import { limits, openPage } from "./browser.mjs";

const remote = {
  register: "/api/v1/auth/register",
  password: "/api/v1/auth/password",
  qrcode: "/api/v1/auth/qrcode",
  poll: "/api/v1/auth/poll",
  check: "/api/v1/session/check",
  referrer: "/api/v1/session/referrer",
  unbind: "/api/v1/session/unbind",
  release: "/api/v1/session/release",
};
const square =
  "data:image/svg+xml,%3Csvg xmlns=%22http://www.w3.org/2000/svg%22 viewBox=%220 0 9 9%22%3E" +
  "%3Cpath d=%22M0 0h3v3h-3zM6 0h3v3h-3zM0 6h3v3h-3z%22/%3E%3C/svg%3E";
const issued = {
  status: "issued",
  account_hash: "hash-1",
  session_token: "credential-1",
  nickname: "小明",
  public_id: "10001",
  referral_open: true,
  invite_url: "https://velmora.invalid/i/10001",
  primary_machine_id: "machine-1",
};
const openReply = jsonReply({ state: "attempt" });
const waitingReply = jsonReply({ status: "pending", detail: "等待确认" });
const refusal = (detail) => jsonReply({ detail }, { status: 403, reason: "Forbidden" });

async function openAccount(t, answers = {}, context = {}) {
  const account = await startAccountService(t);
  account.answer(remote.release, jsonReply({}));
  account.answer(remote.check, jsonReply({ active: true }));
  for (const [action, replies] of Object.entries(answers))
    account.answer(remote[action], ...[replies].flat());
  const opened = await openPage(t, {
    page: "/advanced.html",
    more: ["--account-service", account.url],
    context,
  });
  await opened.page.locator("form[name=sign-in]").waitFor();
  return {
    ...opened,
    account,
    bodiesTo: (action) => account.requestsTo(remote[action]).map(({ body }) => JSON.parse(body)),
  };
}

async function signIn(page, password = 'secret "1"') {
  await page.getByRole("textbox", { name: "User name", exact: true }).fill("user");
  await page.getByRole("textbox", { name: "Password", exact: true }).fill(password);
  await page.getByRole("button", { name: "Sign in", exact: true }).click();
}

const news = (page, text) => page.locator("#account .news .message > span", { hasText: text }).waitFor();
const polls = (requests) => requests.filter((request) => request.includes("/account/poll?")).length;

test("signing in by password, and what a signed-in person does", limits, async (t) => {
  const opened = await openAccount(t, {
    password: openReply,
    poll: [waitingReply, jsonReply(issued)],
    referrer: [refusal("没有这个用户"), jsonReply({ detail: "已绑定" })],
    unbind: jsonReply({}),
  });
  const { page, bodiesTo, requests, foreign, changes } = opened;
  assert.deepEqual(await changes(), [], "opening the page sends nothing");
  await signIn(page);
  await page.getByText("pending: 等待确认").waitFor();
  assert.equal(await page.evaluate(() => document.activeElement?.textContent), "Cancel");
  const [{ username, password }] = bodiesTo("password");
  assert.deepEqual([username, password], ["user", 'secret "1"']);
  await news(page, "Signed in.");
  assert.equal(await page.locator("[data-account-state]").textContent(), "Signed in as 小明");
  const facts = await page.locator("#account dd").allTextContents();
  assert.deepEqual(
    [facts[0], facts[1], facts[3], facts[4], facts[5]],
    ["10001", "小明", "0 min", "machine-1", "https://velmora.invalid/i/10001"],
  );
  assert.equal(await page.locator("#account dd a").getAttribute("rel"), "noopener noreferrer");
  assert.equal(polls(requests), 2);

  const referrer = page.getByRole("textbox", { name: "ID of who referred you" });
  for (const [id, text] of [
    ["1", "没有这个用户"],
    ["10002", "已绑定"],
  ]) {
    await referrer.fill(id);
    await page.getByRole("button", { name: "Name the referrer" }).click();
    await news(page, text);
  }
  await referrer.waitFor({ state: "detached" });

  const answers = [false, true];
  page.on("dialog", (dialog) => (answers.shift() ? dialog.accept() : dialog.dismiss()));
  const free = page.getByRole("button", { name: "Free the primary computer" });
  await free.click();
  assert.deepEqual(bodiesTo("unbind"), [], "not without a yes");
  await free.click();
  await poll("the request", () => (bodiesTo("unbind").length === 1 ? true : undefined));
  await page.getByRole("button", { name: "Log out" }).click();
  await news(page, "Signed out.");
  const stored = await page.evaluate(() =>
    JSON.stringify([{ ...localStorage }, { ...sessionStorage }, document.cookie]),
  );
  assert.ok(!/secret|credential|10001/.test(stored), stored);
  assert.ok(!(await page.content()).includes("secret"));
  assert.deepEqual(foreign, []);
});

test(
  "what the account service refuses is shown: known texts in the page's language, others as they come",
  limits,
  async (t) => {
    const markup = '密码错误 <img src=x onerror="document.title=1">';
    const { account, page } = await openAccount(t, { password: refusal(markup) });
    await signIn(page);
    await news(page, markup);
    assert.equal(await page.locator("#account .message.bad").count(), 1);
    assert.equal(await page.locator("#account img").count(), 0);
    assert.equal(await page.getByRole("textbox", { name: "Password", exact: true }).inputValue(), "");
    account.answer(remote.qrcode, jsonReply({}, { status: 500, reason: "Internal Server Error" }));
    await page.getByRole("button", { name: "Sign in by QR code" }).click();
    await news(page, "The account service refused this (500).");
  },
);

test("signing in by QR code, cancelled and done", limits, async (t) => {
  const { account, page, requests } = await openAccount(t, {
    qrcode: jsonReply({ state: "a b+c/é=", qr_data_url: square }),
    poll: waitingReply,
  });
  const begin = page.getByRole("button", { name: "Sign in by QR code" });
  await begin.click();
  await page.getByRole("img", { name: "QR code to scan for the sign-in" }).waitFor();
  await poll("the first poll", () => (polls(requests) === 1 ? true : undefined));
  assert.equal(account.requestsTo(remote.poll)[0].target, `${remote.poll}?state=a%20b%2Bc%2F%C3%A9%3D`);
  await page.getByRole("button", { name: "Cancel" }).click();
  await news(page, "Cancelled.");
  await page.waitForTimeout(2500);
  assert.equal(polls(requests), 1);
  account.answer(remote.poll, jsonReply({ ...issued, displaced_machine: "<b>客厅</b>" }));
  await begin.click();
  await news(page, "Signed in. Velmora on another device (<b>客厅</b>) signs out within two minutes.");
});

test("only an image within the answer is shown as a code", limits, async (t) => {
  const { account, page, requests, foreign } = await openAccount(t);
  let asked = 0;
  for (const url of ["http://127.0.0.1:1/x.png", "javascript:document.title=1", "data:text/html,1", ""]) {
    account.answer(remote.qrcode, jsonReply({ state: "attempt", qr_data_url: url }));
    await page.getByRole("button", { name: "Sign in by QR code" }).click();
    ++asked;
    await poll("the question", () => (account.requestsTo(remote.qrcode).length === asked ? true : undefined));
    await news(page, "The account service sent no code that can be shown.");
    assert.equal(await page.locator("#account img").count(), 0);
  }
  assert.equal(polls(requests), 0);
  assert.deepEqual(foreign, []);
});

test("a new account is registered, and an attempt ends with the words that end it", limits, async (t) => {
  const { account, page, bodiesTo } = await openAccount(t, {
    register: jsonReply({ state: "attempt", public_id: "10009", referrer_note: "推荐人已绑定 <i>" }),
    poll: waitingReply,
    password: openReply,
  });
  await page.getByText("Register a new account").click();
  await page.getByRole("textbox", { name: "New user name" }).fill("new");
  await page.getByRole("textbox", { name: "New password" }).fill("secret");
  await page.getByRole("button", { name: "Register", exact: true }).click();
  await news(page, "Your ID is 10009.\n推荐人已绑定 <i>");
  assert.deepEqual(Object.keys(bodiesTo("register")[0]), ["username", "password", "machine_id"]);
  account.answer(remote.poll, jsonReply({ status: "Denied" }));
  await news(page, "Denied");
  account.answer(remote.poll, jsonReply({ status: "issued" }));
  await signIn(page);
  await news(page, "The account service named no account. The sign-in is not complete.");
});
