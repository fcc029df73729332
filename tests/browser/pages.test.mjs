// The pages of web/ in a real browser: what a person switches there reaches the record and the effect.
import assert from 'node:assert/strict';
import path from 'node:path';
import test from 'node:test';

import { chromium } from 'playwright-core';

import {
  assert_answers,
  read_record,
  start_effect,
  start_service,
  unique_mapping_name,
  wait_limit_ms,
} from '../e2e/harness.mjs';

const limits = { timeout: 90_000 };
const web_root = path.resolve(import.meta.dirname ?? path.dirname(new URL(import.meta.url).pathname), '../../web');
const browser_path = process.env.CHROMIUM ?? '/usr/bin/chromium';
const browser_arguments = [
  '--headless',
  '--no-sandbox',
  '--disable-gpu',
  '--disable-quic',
  '--no-first-run',
  '--disable-background-networking',
  '--disable-component-update',
  '--disable-sync',
];

async function start_browser(t) {
  const browser = await chromium.launch({ executablePath: browser_path, args: browser_arguments });
  t.after(() => browser.close());
  return browser;
}

// A page that keeps what it asked for and what went wrong in it.
async function open_page(browser, address) {
  const page = await browser.newPage();
  page.setDefaultTimeout(wait_limit_ms);
  const seen = { requests: [], complaints: [], failures: [] };
  page.on('request', (request) => seen.requests.push(`${request.method()} ${request.url()}`));
  page.on('requestfailed', (request) => seen.failures.push(request.url()));
  page.on('console', (message) => {
    if (['error', 'warning'].includes(message.type())) seen.complaints.push(message.text());
  });
  page.on('pageerror', (error) => seen.complaints.push(String(error)));
  await page.goto(address);
  return { page, seen };
}

async function wait_for_status(page, text) {
  await page.waitForFunction((wanted) => document.getElementById('status').textContent.trim() === wanted, text);
}

async function clear_status(page) {
  await page.evaluate(() => {
    document.getElementById('status').textContent = '';
  });
}

// Sets a control as a person does: the value, then the events of its change.
async function set_value(page, selector, value) {
  await page.locator(selector).evaluate((control, wanted) => {
    control.value = wanted;
    control.dispatchEvent(new Event('input', { bubbles: true }));
    control.dispatchEvent(new Event('change', { bubbles: true }));
  }, value);
}

async function keep_picture(page, name) {
  const directory = process.env.VELMORA_SCREENSHOTS;
  if (directory) await page.screenshot({ path: path.join(directory, `${name}.png`), fullPage: true });
}

// Pictures that stand in the page itself are no requests to anywhere. A look at the endpoints and at what runs ends with
// the page that is left.
function assert_stayed_at_home(seen, service) {
  const origin = `http://127.0.0.1:${service.port}/`;
  for (const request of seen.requests) {
    const [, url] = request.split(' ');
    assert.ok(url.startsWith(origin) || url.startsWith('data:'), request);
    assert.ok(!url.includes('favicon'), request);
  }
  assert.deepEqual(seen.failures.filter((url) => !/\/api\/v1\/(devices|status)$/.test(url)), []);
}

async function start_all(t) {
  const mapping = unique_mapping_name();
  const effect = await start_effect(t, mapping);
  const service = await start_service(t, { mapping, web_root, token: null });
  const address = /^ {2}Open: (\S+)$/m.exec(service.output)[1];
  return { mapping, effect, service, address };
}

test('the enhancement is switched on in the browser and the effect takes it', limits, async (t) => {
  const { mapping, effect, service, address } = await start_all(t);
  const browser = await start_browser(t);
  const { page, seen } = await open_page(browser, address);
  await keep_picture(page, 'index-first');

  const switched_on = effect.mark();
  await page.locator('#enhancement').check();
  await wait_for_status(page, 'Sent');
  await effect.until('the enhancement to be on', () =>
    /^applied word=0x80000000[0-9a-f]{8} bypass=false bypass_all=false strength=\S+$/m.test(
      effect.output.slice(switched_on),
    )
      ? true
      : undefined,
  );

  await clear_status(page);
  await set_value(page, '#strength', '0.75');
  await wait_for_status(page, 'Sent');
  await effect.wait_for_line('applied word=0x800000003f400000 bypass=false bypass_all=false strength=0.75');
  let record = await read_record(t, mapping);
  assert.equal(record.readBigUInt64LE(0x10), 0x000000003f400000n);
  assert.equal(record.readBigUInt64LE(0x80), 0x800000003f400000n);

  await clear_status(page);
  await page.locator('#bypass-all').check();
  await wait_for_status(page, 'Sent');
  await effect.wait_for_line('applied word=0x800000023f400000 bypass=false bypass_all=true strength=0.75');

  await clear_status(page);
  await page.locator('#enhancement').uncheck();
  await wait_for_status(page, 'Sent');
  await effect.wait_for_line('applied word=0x800000033f400000 bypass=true bypass_all=true strength=0.75');
  record = await read_record(t, mapping);
  assert.equal(record.readBigUInt64LE(0x10), 0x000000033f400000n);
  await keep_picture(page, 'index-set');

  assert.ok(seen.requests.some((request) => request.startsWith('PUT ')));
  assert_stayed_at_home(seen, service);
  assert.deepEqual(seen.complaints, []);
  await browser.close();
  await service.stop();
  await effect.stop();
});

test('the advanced page sets the values of the algorithm', limits, async (t) => {
  const { mapping, effect, service, address } = await start_all(t);
  const browser = await start_browser(t);
  const { page, seen } = await open_page(browser, address.replace('/?', '/advanced.html?'));

  // As a person would: whatever kind of control the page has for a value.
  const set_named = async (name, value) => {
    await clear_status(page);
    const control = page.locator(`[name="${name}"]`);
    const kind = await control.evaluate((element) => element.type ?? element.tagName);
    if (kind === 'checkbox') await control.setChecked(Boolean(value));
    else if (kind.startsWith('select')) await control.selectOption(String(value));
    else await set_value(page, `[name="${name}"]`, String(value));
    await wait_for_status(page, 'Sent');
  };
  await set_named('output_trim_db', -6);
  await set_named('mask_time_alpha', 0.6);
  await set_named('mask_frequency_smooth', 1);
  await set_named('limiter_enabled', false);
  await set_named('limiter_ceiling_db', -3);
  await set_named('stereo_link', 2);

  const line =
    'algorithm word=0xffc4ffe299180001 trim_db=-6 time_alpha=0.6 frequency_smooth=1 limiter=false ' +
    'ceiling_db=-3 stereo_link=2';
  await effect.wait_for_line(line);
  const record = await read_record(t, mapping);
  assert.equal(record.readBigUInt64LE(0xb8), 0xffc4ffe299180001n);
  await keep_picture(page, 'advanced-set');

  await t.test('a refused value shows the words of its refusal', async () => {
    await clear_status(page);
    await set_value(page, '[name="output_trim_db"]', '21');
    await wait_for_status(page, 'output_trim_db must be between -60 and 20');
    assert.deepEqual(await read_record(t, mapping), record);
    await keep_picture(page, 'advanced-refused');
  });

  assert_stayed_at_home(seen, service);
  // The browser itself notes the one answer that was a refusal.
  assert.equal(seen.complaints.length, 1, JSON.stringify(seen.complaints));
  assert.match(seen.complaints[0], /400 \(Bad Request\)/);
  await browser.close();
  await service.stop();
  await effect.stop();
});

test('the links carry the token from page to page', limits, async (t) => {
  const { service, address } = await start_all(t);
  const browser = await start_browser(t);
  const { page, seen } = await open_page(browser, address);
  await page.locator('a[href*="advanced.html"]').click();
  await page.waitForURL(`**/advanced.html?token=${service.token}`);
  await set_value(page, '[name="output_trim_db"]', '1');
  await wait_for_status(page, 'Sent');
  await page.locator('a[href*="help.html"]').click();
  await page.waitForURL(`**/help.html*`);
  await keep_picture(page, 'help');
  assert_stayed_at_home(seen, service);
  assert.deepEqual(seen.complaints, []);
  await browser.close();
  await service.stop();
});

test('a page without the token shows why nothing is sent', limits, async (t) => {
  const { mapping, service, address } = await start_all(t);
  const before = await read_record(t, mapping);
  const browser = await start_browser(t);
  const { page, seen } = await open_page(browser, address.replace(/\?.*/, ''));
  await page.locator('#enhancement').check();
  await wait_for_status(page, 'missing or invalid session token');
  await keep_picture(page, 'index-without-token');
  assert.deepEqual(await read_record(t, mapping), before);
  assert_stayed_at_home(seen, service);
  // One for the look at the endpoints, which is not repeated, and one for what was switched.
  assert.equal(seen.complaints.length, 2, JSON.stringify(seen.complaints));
  for (const complaint of seen.complaints) assert.match(complaint, /401 \(Unauthorized\)/);
  await browser.close();
  await service.stop();
});

// The service runs one exchange at a time and waits for a client that sends nothing. A browser that keeps a spare
// connection open would hold it; how often that happened is told in the output.
test('a browser that stays open lets the service answer others', limits, async (t) => {
  const { service, address } = await start_all(t);
  const browser = await start_browser(t);
  const waits_ms = [];
  for (let round = 0; round < 10; ++round) {
    const { page } = await open_page(browser, address);
    const started = Date.now();
    await assert_answers(service);
    waits_ms.push(Date.now() - started);
    await page.close();
  }
  t.diagnostic(`ten openings; another client was answered after ${waits_ms.join(', ')} ms`);
  await browser.close();
  await service.stop();
});
