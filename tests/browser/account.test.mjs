// The account on the first page: signing in by password, by QR code and anew, what a person does then, and how a session
// ends.
import assert from 'node:assert/strict';
import test from 'node:test';

import { ask, poll, start_account_service } from '../e2e/harness.mjs';
import { json_reply } from '../programs/account/service.mjs';
import { keep_picture, limits, look_again_ms, open_page, refresh, settle, wait_for_text } from './browser.mjs';

const remote = {
  register: '/api/v1/auth/register',
  password: '/api/v1/auth/password',
  qrcode: '/api/v1/auth/qrcode',
  poll: '/api/v1/auth/poll',
  check: '/api/v1/session/check',
  referrer: '/api/v1/session/referrer',
  unbind: '/api/v1/session/unbind',
  release: '/api/v1/session/release',
};
const poll_again_ms = 2000;
const square =
  'data:image/svg+xml,%3Csvg xmlns=%22http://www.w3.org/2000/svg%22 viewBox=%220 0 9 9%22%3E' +
  '%3Cpath d=%22M0 0h3v3h-3zM6 0h3v3h-3zM0 6h3v3h-3zM4 4h1v1h-1zM6 6h2v1h-2z%22/%3E%3C/svg%3E';
const issued = {
  status: 'issued', account_hash: 'hash-1', session_token: 'credential-1', nickname: '小明', public_id: '10001',
  referral_open: true, invite_url: 'https://velmora.invalid/i/10001', primary_machine_id: 'machine-1',
};

// The page with an account service behind it, and the account in sight.
async function open_account(t, answers = {}) {
  const account = await start_account_service(t);
  account.answer(remote.release, json_reply({}));
  account.answer(remote.check, json_reply({ active: true }));
  for (const [action, replies] of Object.entries(answers)) account.answer(remote[action], ...[replies].flat());
  const opened = await open_page(t, {}, { more: ['--account-service', account.url] });
  await opened.open();
  await opened.page.locator('#account > summary').click();
  await opened.page.waitForSelector('#sign-in');
  await settle(opened.page);
  const bodies_to = (action) => account.requests_to(remote[action]).map(({ body }) => body);
  return { ...opened, account, bodies_to };
}

async function fill_in(page, password = 'secret "1"') {
  await page.locator('#sign-in [name="username"]').fill('user');
  await page.locator('#sign-in [name="password"]').fill(password);
  await page.getByRole('button', { name: 'Sign in', exact: true }).click();
}

async function shown_person(page) {
  const pairs = await page.locator('#person').evaluate((list) => [...list.querySelectorAll('dt')]
    .filter((term) => !term.hidden).map((term) => [term.textContent, term.nextElementSibling.textContent]));
  return Object.fromEntries(pairs);
}

async function sign_in(page) {
  await fill_in(page);
  await page.waitForSelector('#signed-in:not([hidden])');
  await settle(page);
}

const polls = (requests) => requests.filter((request) => request.includes('/account/poll?')).length;
const open_reply = json_reply({ state: 'attempt' });
const waiting_reply = json_reply({ status: 'pending', detail: '等待确认' });
const issued_reply = json_reply(issued);

test('without an account service the page says so when the account is opened', limits, async (t) => {
  const { page, requests, complaints, open, end } = await open_page(t);
  await open();
  assert.ok(requests.every((request) => !request.includes('/account/')), 'closed, nothing is asked');
  await page.locator('#account > summary').click();
  await wait_for_text(page, '#account-missing',
                      'The service knows no account service. Start it with --account-service and an address. (未配置账号服务)');
  assert.equal(await page.locator('#account form:visible').count(), 0);
  await keep_picture(page, 'page8-account-missing');
  await page.locator('#account > summary').click();
  await page.locator('#account > summary').click();
  await refresh(page);
  assert.equal(requests.filter((request) => request.includes('/account/')).length, 1, 'asked once');
  assert.equal(complaints.length, 1, JSON.stringify(complaints));
  assert.match(complaints[0], /501/);
  await end();
});

test('signing in by password', limits, async (t) => {
  const { page, requests, foreign, bodies_to, end } = await open_account(t, {
    password: open_reply, poll: [waiting_reply, waiting_reply, issued_reply],
  });
  const kinds = await page.locator('#account form input').evaluateAll((all) =>
    all.map(({ form, name, type, autocomplete }) => [form.id, name, type, autocomplete].join(' ')));
  assert.deepEqual(kinds, [
    'sign-in username text username',
    'sign-in password password current-password',
    'register username text username',
    'register password password new-password',
    'register referrer_public_id text off',
    'name-referrer public_id text off',
  ]);
  await keep_picture(page, 'page8-account-signed-out');

  await fill_in(page);
  await wait_for_text(page, '#attempt-state', 'pending: 等待确认');
  assert.equal(await page.locator('[type="password"]').evaluateAll((all) => all.map(({ value }) => value).join('')), '');
  assert.equal(await page.evaluate(() => document.activeElement.id), 'cancel');
  assert.equal(await page.locator('#signed-out').isVisible(), false);
  const machine_id = JSON.parse(bodies_to('password')[0]).machine_id;
  assert.deepEqual(bodies_to('password'),
                   [JSON.stringify({ username: 'user', password: 'secret "1"', machine_id })]);
  await settle(page);
  assert.equal(polls(requests), 1);
  await page.clock.runFor(poll_again_ms - 100);
  assert.equal(polls(requests), 1, 'not before its time');
  await page.clock.runFor(100);
  await poll('the second poll', () => (polls(requests) === 2 ? true : undefined));
  await settle(page);
  await page.clock.runFor(poll_again_ms);
  await page.waitForSelector('#signed-in:not([hidden])');
  await settle(page);
  assert.equal(polls(requests), 3);
  assert.ok(requests.includes('GET /api/v1/account/poll?state=attempt'));
  assert.equal(await page.locator('#account-state').textContent(), 'signed in as 小明');
  assert.equal(await page.locator('#account-news').textContent(), 'Signed in.');
  const { 'Signed in since': since, ...person } = await shown_person(page);
  assert.ok(since.length > 0);
  assert.deepEqual(person, {
    ID: '10001', Name: '小明', 'Time in use': '0 min', 'Primary computer': 'machine-1',
    Invitation: 'https://velmora.invalid/i/10001',
  });
  const link = page.locator('#person a');
  assert.deepEqual(await link.evaluate(({ href, rel, target }) => [href, rel, target]),
                   ['https://velmora.invalid/i/10001', 'noopener noreferrer', '_blank']);
  await keep_picture(page, 'page8-account-signed-in');
  await page.clock.runFor(10 * poll_again_ms);
  await settle(page);
  assert.equal(polls(requests), 3, 'it has come to its end');

  const stored = await page.evaluate(() => JSON.stringify([{ ...localStorage }, { ...sessionStorage }, document.cookie]));
  assert.equal(stored, '[{},{},""]');
  assert.ok(!(await page.content()).includes('secret'));
  assert.deepEqual(foreign, []);
  await end();
});

test('what the account service refuses is shown as it comes', limits, async (t) => {
  const markup = '密码错误 <img src=x onerror="document.title=1">';
  const { account, page, requests, end } = await open_account(t, {
    password: json_reply({ detail: markup }, { status: 403, reason: 'Forbidden' }),
  });
  await fill_in(page);
  await wait_for_text(page, '#account-news', markup);
  assert.equal(await page.locator('#account-news').getAttribute('class'), 'bad');
  assert.equal(await page.locator('#account-news img').count(), 0);
  assert.equal(await page.locator('#sign-in [name="username"]').inputValue(), 'user');
  assert.equal(await page.locator('#sign-in [name="password"]').inputValue(), '');
  assert.equal(polls(requests), 0);
  await keep_picture(page, 'page8-account-refused');
  account.answer(remote.qrcode, json_reply({}, { status: 500, reason: 'Internal Server Error' }));
  await page.locator('#ask-qr').click();
  await wait_for_text(page, '#account-news', '账号服务返回 500');
  await end();
});

test('signing in by QR code, with another device that is signed out', limits, async (t) => {
  const { account, page, requests, foreign, end } = await open_account(t, {
    qrcode: json_reply({ state: 'a b+c/é=', qr_data_url: square }), poll: waiting_reply,
  });
  await page.locator('#ask-qr').click();
  await wait_for_text(page, '#attempt-state', 'pending: 等待确认');
  assert.equal(await page.locator('#qr').getAttribute('src'), square);
  await page.waitForFunction(() => document.getElementById('qr').naturalWidth > 0);
  await keep_picture(page, 'page8-account-qr');
  const [{ target }] = account.requests_to(remote.poll);
  assert.equal(target, `${remote.poll}?state=a%20b%2Bc%2F%C3%A9%3D`);

  await t.test('cancelled, it is polled no more', async () => {
    await page.locator('#cancel').click();
    await settle(page);
    const before = polls(requests);
    await page.clock.runFor(10 * poll_again_ms);
    await settle(page);
    assert.equal(polls(requests), before);
    assert.equal(await page.locator('#qr').getAttribute('src'), null);
    assert.equal(await page.locator('#signed-out').isVisible(), true);
    assert.equal(await page.evaluate(() => document.activeElement.tagName), 'SUMMARY', 'the focus stays near');
  });

  account.answer(remote.poll, json_reply({ ...issued, displaced_machine: '<b>客厅</b>' }));
  await page.locator('#ask-qr').click();
  const displaced = '已登录。另一台设备（<b>客厅</b>）上的 Velmora 将在两分钟内自动退出。';
  await wait_for_text(page, '#account-news', displaced);
  assert.equal(await page.locator('#account-news b').count(), 0);
  assert.deepEqual(foreign, []);
  await end();
});

test('only an image within the answer is shown as a code', limits, async (t) => {
  const { account, page, requests, foreign, end } = await open_account(t, {});
  const rows = ['http://127.0.0.1:1/x.png', 'https://velmora.invalid/x.png', 'javascript:document.title=1',
    'data:text/html,<script>1</script>', ' data:image/png;base64,AA', '/api/v1/status', ''];
  for (const qr_data_url of rows) {
    account.answer(remote.qrcode, json_reply({ state: 'attempt', qr_data_url }));
    await page.evaluate(() => (document.getElementById('account-news').textContent = ''));
    await page.locator('#ask-qr').click();
    await wait_for_text(page, '#account-news', 'The account service sent no image that could be shown.');
    assert.equal(await page.locator('#qr').getAttribute('src'), null, qr_data_url);
  }
  assert.equal(polls(requests), 0);
  assert.deepEqual(foreign, []);
  await end();
});

test('a new account is registered and signed in', limits, async (t) => {
  const { page, bodies_to, end } = await open_account(t, {
    register: json_reply({ state: 'attempt', public_id: '10009', referrer_note: '推荐人已绑定 <i>' }), poll: waiting_reply,
  });
  await page.getByText('Register a new account').click();
  const send = async (referrer) => {
    await page.locator('#register [name="username"]').fill('new');
    await page.locator('#register [name="password"]').fill('secret');
    await page.locator('#register [name="referrer_public_id"]').fill(referrer);
    await page.getByRole('button', { name: 'Register', exact: true }).click();
    await wait_for_text(page, '#account-news', 'Your ID is 10009.\n推荐人已绑定 <i>');
    await wait_for_text(page, '#attempt-state', 'pending: 等待确认');
    await page.locator('#cancel').click();
  };
  await keep_picture(page, 'page8-account-register');
  await send('');
  await send('10002');
  const [first, second] = bodies_to('register').map((body) => JSON.parse(body));
  assert.deepEqual(Object.keys(first), ['username', 'password', 'machine_id']);
  assert.equal(second.referrer_public_id, '10002');
  await end();
});

test('an attempt ends with the words that end it, and when nothing comes of it', limits, async (t) => {
  const { account, page, requests, end } = await open_account(t, { password: open_reply });
  const rows = [
    ['expired', '二维码已过期', 'expired: 二维码已过期'],
    ['Denied', '', 'Denied'],
    ['issued', '', 'error: 账号服务未返回账号标识，无法完成登录'],
  ];
  for (const [status, detail, text] of rows) {
    account.answer(remote.poll, json_reply({ status, detail }));
    await fill_in(page);
    await wait_for_text(page, '#account-news', text);
    await settle(page);
    const before = polls(requests);
    await page.clock.runFor(5 * poll_again_ms);
    await settle(page);
    assert.equal(polls(requests), before, status);
    assert.equal(await page.locator('#signed-out').isVisible(), true);
  }

  account.answer(remote.poll, { body: 'no JSON' });
  const before = polls(requests);
  await fill_in(page);
  const most_failures = 5;
  for (let count = 1; count <= most_failures; ++count) {
    await poll(`failure ${count}`, () => (polls(requests) === before + count ? true : undefined));
    await settle(page);
    await page.clock.runFor(poll_again_ms);
  }
  await wait_for_text(page, '#account-news', '账号服务返回的内容无法识别');
  await page.clock.runFor(5 * poll_again_ms);
  await settle(page);
  assert.equal(polls(requests), before + most_failures);
  await end();
});

test('the referrer, the primary computer and the logout', limits, async (t) => {
  const { account, page, bodies_to, end } = await open_account(t, {
    password: open_reply,
    poll: issued_reply,
    referrer: [json_reply({ detail: '没有这个用户' }, { status: 404, reason: 'Not Found' }), json_reply({ detail: '已绑定' })],
    unbind: json_reply({}),
  });
  await sign_in(page);
  const name_referrer = async (id, text) => {
    await page.locator('#name-referrer input').fill(id);
    await page.getByRole('button', { name: 'Name the referrer' }).click();
    await wait_for_text(page, '#account-news', text);
    await settle(page);
  };
  await name_referrer('1', '没有这个用户');
  assert.equal(await page.locator('#account-news').getAttribute('class'), 'bad');
  assert.equal(await page.locator('#name-referrer').isVisible(), true);
  await name_referrer('10002', '已绑定');
  await page.waitForSelector('#name-referrer', { state: 'hidden' });
  assert.equal((await shown_person(page)).Referrer, '10002');
  const credentials = { account_hash: 'hash-1', token: 'credential-1' };
  assert.deepEqual(bodies_to('referrer').map((body) => JSON.parse(body)),
                   [{ ...credentials, public_id: '1' }, { ...credentials, public_id: '10002' }]);

  const dialogs = [];
  page.on('dialog', (dialog) => {
    dialogs.push(dialog.message());
    return dialogs.length === 1 ? dialog.dismiss() : dialog.accept();
  });
  await page.locator('#free-primary').click();
  assert.deepEqual(bodies_to('unbind'), [], 'not without a yes');
  await page.locator('#free-primary').click();
  await wait_for_text(page, '#account-news', '已解绑，请重新扫码登录');
  await settle(page);
  assert.equal((await shown_person(page))['Primary computer'], 'none');
  assert.equal(bodies_to('unbind').length, 1);

  const before = account.requests.length;
  await page.locator('#logout').click();
  await wait_for_text(page, '#account-state', 'signed out');
  assert.equal(await page.locator('#account-news').textContent(), 'Signed out.');
  assert.equal(await page.locator('#signed-in').isVisible(), false);
  assert.equal(await page.locator('#signed-out').isVisible(), true);
  assert.equal(await page.evaluate(() => document.activeElement.tagName), 'SUMMARY');
  assert.equal(account.requests.length, before, 'a logout is local');
  await end();
});

test('a session that ends elsewhere shows as signed out', limits, async (t) => {
  const { account, page, open, end } = await open_account(t, {
    password: open_reply, poll: json_reply({ ...issued, session_check_seconds: 1 }),
  });
  await sign_in(page);
  await t.test('and a page that is opened anew knows the session', async () => {
    await open();
    assert.equal(await page.locator('#account-state').textContent(), 'signed in as 10001');
  });
  account.answer(remote.check, { body: '{"active":false}' });
  await poll('the sign-out', async () => {
    await refresh(page);
    return (await page.locator('#account-state').textContent()) === 'signed out' ? true : undefined;
  });
  assert.equal(await page.locator('#account-news').textContent(),
               'Signed out: the session has ended. If that was not you, the account has signed in on another device.');
  await page.locator('#account > summary').click();
  assert.deepEqual(await page.locator('#signed-out').isVisible(), true);
  await keep_picture(page, 'page8-account-taken-over');
  await end();
});

test('texts of the account service stay texts, and only web addresses are links', limits, async (t) => {
  const rows = [
    ['javascript:document.title=1', null],
    ['data:text/html,x', null],
    [' https://velmora.invalid/', null],
    ['https://', null],
    ['<a href="https://velmora.invalid/">x</a>', null],
    ['HTTP://velmora.invalid/a b', 'http://velmora.invalid/a%20b'],
  ];
  const name = '<img src=x onerror="document.title=1">\u202e';
  const { account, service, page, requests, foreign, end } = await open_account(t, { password: open_reply });
  for (const [invite_url, address] of rows) {
    account.answer(remote.poll, json_reply({ ...issued, nickname: name, public_id: name, referrer: name, invite_url }));
    await sign_in(page);
    const person = await shown_person(page);
    assert.deepEqual([person.ID, person.Name, person.Referrer, person.Invitation], [name, name, name, invite_url]);
    const links = await page.locator('#person a').evaluateAll((all) => all.map(({ href }) => href));
    assert.deepEqual(links, address === null ? [] : [address]);
    await ask(service, 'POST', '/api/v1/account/logout');
    await refresh(page);
    await page.waitForSelector('#signed-out:not([hidden])');
  }
  assert.equal(await page.locator('#account :is(img:not(#qr), script)').count(), 0);
  assert.equal(await page.title(), 'Velmora');
  assert.deepEqual(foreign, []);
  assert.ok(requests.every((request) => / \/api\/v1\/(devices|status|account)/.test(request)));
  await end();
});

test('while the account service is slow the page asks for nothing else, and asks once', limits, async (t) => {
  let let_go;
  const hold = new Promise((resolve) => (let_go = resolve));
  const { page, requests, bodies_to, end } = await open_account(t, {
    password: { ...open_reply, hold }, poll: waiting_reply,
  });
  const before = requests.length;
  await fill_in(page);
  await wait_for_text(page, '#account-news',
                      'Under way. Nothing else is answered until the account service has answered or its time is up.');
  await fill_in(page);
  await page.locator('#ask-qr').click();
  await page.clock.runFor(10 * look_again_ms);
  assert.equal(requests.length, before + 1);
  let_go();
  await wait_for_text(page, '#attempt-state', 'pending: 等待确认');
  assert.equal(bodies_to('password').length, 1);
  await end();
});
