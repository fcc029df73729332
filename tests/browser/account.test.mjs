// The account at the end of the Advanced page, with an account service behind it.
import assert from "node:assert/strict";
import { createRequire } from "node:module";
import test from "node:test";

import { poll, startAccountService } from "../e2e/harness.mjs";
import { jsonReply } from "../programs/account/service.mjs";
import { limits, openPage } from "./browser.mjs";

const axePath = createRequire(import.meta.url).resolve("axe-core/axe.min.js");
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

const waitForFocus = (page, text) =>
  poll(`the focus on ${text}`, async () =>
    (await page.evaluate(() => document.activeElement?.textContent?.trim())) === text ? true : undefined,
  );
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
  await page.getByText("Waiting for the account service to confirm the sign-in… 等待确认").waitFor();
  await waitForFocus(page, "Cancel");
  const [{ username, password }] = bodiesTo("password");
  assert.deepEqual([username, password], ["user", 'secret "1"']);
  await news(page, "Signed in.");
  await page.locator("[data-account-state]", { hasText: "Signed in as 小明" }).waitFor();
  const facts = await page.locator("#account dd").allTextContents();
  assert.deepEqual(
    [facts[0], facts[1], facts[3], facts[4], await page.locator("#account dd a").textContent()],
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

  const free = page.getByRole("button", { name: "Free the primary computer" });
  await free.click();
  const question = page.getByRole("dialog", { name: "Free the primary computer?" });
  await waitForFocus(page, "Cancel");
  await page.keyboard.press("Escape");
  await question.waitFor({ state: "detached" });
  await waitForFocus(page, "Free the primary computer");
  assert.deepEqual(bodiesTo("unbind"), [], "not without a yes");
  await free.click();
  await question.getByRole("button", { name: "Free it" }).click();
  await news(page, "The primary computer is free.");
  await page.locator("#account dd").nth(4).filter({ hasText: "None yet" }).waitFor();
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
    assert.equal(await page.locator("#account .message .help-link").count(), 0, "nothing is known of it");
    await poll("the focus", async () =>
      (await page.evaluate(() => document.activeElement?.getAttribute("autocomplete"))) === "current-password"
        ? true
        : undefined,
    );
    assert.equal(await page.getByRole("textbox", { name: "User name", exact: true }).inputValue(), "user");
    assert.equal(await page.locator("#account img").count(), 0);
    assert.equal(await page.getByRole("textbox", { name: "Password", exact: true }).inputValue(), "");
    account.answer(remote.qrcode, jsonReply({}, { status: 500, reason: "Internal Server Error" }));
    await page.getByRole("button", { name: "Sign in by QR code" }).click();
    await news(page, "The account service refused this (500).");
    const help = String(await page.locator("#account .message .help-link").getAttribute("href"));
    assert.ok(help.endsWith("#error-accountStatus"), help);
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
  account.answer(remote.poll, jsonReply({ status: "Denied", detail: "已拒绝 <b>" }));
  await news(page, "The sign-in was declined. Begin again if that was not intended.\n已拒绝 <b>");
  // The focus stays near.
  await page.waitForFunction(() => document.activeElement?.id === "account-title");
  account.answer(remote.poll, jsonReply({ status: "issued" }));
  await signIn(page);
  await news(page, "The account service named no account. The sign-in is not complete.");
});

test(
  "a code that expires makes room for a new one, and the page says how long it waits",
  limits,
  async (t) => {
    const { account, page } = await openAccount(t, {
      qrcode: jsonReply({ state: "attempt", qr_data_url: square }),
      poll: waitingReply,
    });
    await page.getByRole("button", { name: "Sign in by QR code" }).click();
    await page.getByText(/^This page waits (?:10:00|9:5\d) more\.$/).waitFor();
    await page.getByText(/^This page waits 9:5[0-8] more\.$/).waitFor();
    account.answer(remote.poll, jsonReply({ status: "expired" }));
    await news(page, "This code has expired. Get a new one.");
    await waitForFocus(page, "Get a new code");
    account.answer(remote.poll, waitingReply);
    await page.keyboard.press("Enter");
    await page.getByRole("img", { name: "QR code to scan for the sign-in" }).waitFor();
    assert.equal(await page.getByRole("button", { name: "Get a new code" }).count(), 0);
  },
);

test("an attempt that nobody answers ends after ten minutes", limits, async (t) => {
  const { page, requests } = await openAccount(t, { password: openReply, poll: waitingReply });
  await page.clock.install();
  await signIn(page);
  await poll("the first poll", () => (polls(requests) > 0 ? true : undefined));
  await page.clock.fastForward("09:58");
  await page.getByText(/^This page waits 0:0\d more\.$/).waitFor();
  await page.clock.fastForward("00:05");
  await news(page, "The sign-in was not confirmed in time. Sign in again.");
  const count = polls(requests);
  await page.clock.fastForward("00:30");
  await page.waitForTimeout(300);
  assert.equal(polls(requests), count);
});

test("a code that cannot be drawn is said to be none", limits, async (t) => {
  const broken = "data:image/png;base64,AAAA";
  const { page } = await openAccount(t, {
    qrcode: jsonReply({ state: "attempt", qr_data_url: broken }),
    poll: waitingReply,
  });
  await page.getByRole("button", { name: "Sign in by QR code" }).click();
  await news(page, "The account service sent no code that can be shown.");
});

test("a password can be looked at, and hides again when it is sent", limits, async (t) => {
  const { page } = await openAccount(t, { password: refusal("no") });
  await page.getByRole("textbox", { name: "User name", exact: true }).fill("user");
  const password = page.locator("form[name=sign-in] [name=password]");
  await password.fill("secret");
  await page.getByRole("checkbox", { name: "Show the password" }).check();
  assert.equal(await password.getAttribute("type"), "text");
  await password.press("Enter");
  await news(page, "no");
  assert.deepEqual([await password.getAttribute("type"), await password.inputValue()], ["password", ""]);
  assert.ok(!(await page.getByRole("checkbox", { name: "Show the password" }).isChecked()));
  assert.ok(!(await page.content()).includes("secret"));
});

test(
  "a session that ends elsewhere says what to do, and one that another tab ends says that",
  limits,
  async (t) => {
    const { account, page, newPage } = await openAccount(t, {
      password: openReply,
      poll: jsonReply({ ...issued, session_check_seconds: 1 }),
    });
    await signIn(page);
    await news(page, "Signed in.");
    account.answer(remote.check, jsonReply({ active: false }));
    await news(page, "the account has signed in on another device");
    assert.equal(await page.locator("#account .message.bad").count(), 1);
    await page.locator("form[name=sign-in]").waitFor();

    account.answer(remote.check, jsonReply({ active: true, next_check_seconds: 4_000_000 }));
    await signIn(page);
    await news(page, "Signed in.");
    const second = await newPage();
    await second.goto(page.url());
    await second.getByRole("button", { name: "Log out" }).click();
    await news(second, "Signed out.");
    await page.bringToFront();
    await news(page, "Signed out in another tab.");
  },
);

test("logging out asks first where the time in use is lost", limits, async (t) => {
  const { page, requests } = await openAccount(t, { password: openReply, poll: jsonReply(issued) });
  await page.route("**/api/v1/status", async (route) => {
    const response = await route.fetch();
    const text = await response.text();
    await route.fulfill({ response, body: text.replace(/"usage_seconds":\d+/, '"usage_seconds":7500') });
  });
  await signIn(page);
  await page.getByText("2 h 5 min", { exact: true }).waitFor();
  const leave = page.locator("#account > .row > button", { hasText: "Log out" });
  const logouts = () => requests.filter((request) => request.includes("/account/logout")).length;
  await leave.click();
  const question = page.getByRole("dialog", { name: "Log out?" });
  await question.getByText("The time in use, 2 h 5 min, begins at 0 after the next sign-in.").waitFor();
  await question.getByRole("button", { name: "Stay signed in" }).click();
  assert.equal(logouts(), 0);
  await leave.click();
  await question.getByRole("button", { name: "Log out" }).click();
  await news(page, "Signed out.");
  assert.equal(logouts(), 1);
});

test(
  "what the account service does not say a reason for is said in the page's language",
  limits,
  async (t) => {
    const { account, page } = await openAccount(t, {
      password: openReply,
      poll: jsonReply(issued),
      unbind: jsonReply({}, { status: 500, reason: "Internal Server Error" }),
    });
    await signIn(page);
    await page.getByRole("button", { name: "Free the primary computer" }).click();
    await page.getByRole("button", { name: "Free it" }).click();
    await news(page, "The account service did not free the primary computer (500).");
    account.answer(remote.referrer, jsonReply({}, { status: 404, reason: "Not Found" }));
    await page.getByRole("textbox", { name: "ID of who referred you" }).fill("7");
    await page.getByRole("button", { name: "Name the referrer" }).click();
    await news(page, "The account service did not set the referrer (404).");
  },
);

for (const [locale, colorScheme] of /** @type {["en-US" | "zh-CN", "light" | "dark"][]} */ ([
  ["en-US", "light"],
  ["zh-CN", "dark"],
])) {
  test(`the account is for everybody: ${locale}, ${colorScheme}, 360 wide`, limits, async (t) => {
    const { account, page } = await openAccount(
      t,
      { qrcode: jsonReply({ state: "attempt", qr_data_url: square }), poll: waitingReply },
      { locale, colorScheme, viewport: { width: 360, height: 740 } },
    );
    const check = async (what) => {
      const found = await page.evaluate(async () => {
        const { violations } = await /** @type {any} */ (window).axe.run("#account", {
          resultTypes: ["violations"],
        });
        return violations.flatMap(({ id, nodes }) => nodes.map(({ html }) => `${id}: ${html}`));
      });
      assert.deepEqual(found, [], what);
      assert.equal(await page.evaluate(() => document.documentElement.scrollWidth - innerWidth), 0, what);
      const small = await page
        .locator("#account button, #account summary, #account .field, #account .choice")
        .evaluateAll((all) =>
          all
            .filter((one) => one.checkVisibility() && one.getBoundingClientRect().height < 40)
            .map((one) => one.outerHTML),
        );
      assert.deepEqual(small, [], what);
    };
    await page.addScriptTag({ path: axePath });
    await page.locator("#account summary").click();
    await check("signed out");
    await page.locator("form[name=sign-in] button[type=button]").click();
    await page.locator("#account .qr").waitFor();
    await check("a code");
    account.answer(remote.poll, jsonReply({ ...issued, primary_machine_id: "ab12".repeat(16) }));
    await page.locator("#account dl").waitFor();
    await check("signed in");
  });
}
