// The equalizer, its presets and the captures in a real browser.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';

import { chromium } from 'playwright-core';

import {
  equalizer_document,
  equalizer_in,
  make_directory,
  poll,
  read_record,
  some_bands,
  start_effect,
  start_service,
  unique_mapping_name,
  wait_limit_ms,
} from '../e2e/harness.mjs';

const limits = { timeout: 120_000 };
const web_root = path.resolve(import.meta.dirname ?? path.dirname(new URL(import.meta.url).pathname), '../../web');
const browser_path = process.env.CHROMIUM ?? '/usr/bin/chromium';
const browser_arguments = ['--headless', '--no-sandbox', '--disable-gpu', '--no-first-run', '--disable-background-networking'];
const capture_names = ['capture-1-host-in.wav', 'capture-2-algorithm-in.wav', 'capture-3-algorithm-out.wav', 'capture-4-host-out.wav'];

// The service with directories of its own, the effect beside it, and the advanced page in a browser.
async function open_advanced_page(t) {
  const mapping = unique_mapping_name();
  const effect = await start_effect(t, mapping);
  const home = make_directory();
  const captures = path.join(home, 'captures');
  fs.mkdirSync(captures);
  const presets = path.join(home, 'presets');
  const more = ['--capture-directory', captures, '--preset-directory', presets];
  const service = await start_service(t, { mapping, web_root, more });
  const browser = await chromium.launch({ executablePath: browser_path, args: browser_arguments });
  t.after(() => browser.close());
  const page = await browser.newPage();
  page.setDefaultTimeout(wait_limit_ms);
  const complaints = [];
  page.on('console', (message) => {
    if (['error', 'warning'].includes(message.type())) complaints.push(message.text());
  });
  page.on('pageerror', (error) => complaints.push(String(error)));
  const address = `http://127.0.0.1:${service.port}/advanced.html?token=${service.token}`;
  const open = async () => {
    await page.goto(address);
    await page.waitForSelector('#equalizer:not([disabled])');
  };
  await open();
  const end = async () => {
    await browser.close();
    await service.stop();
    await effect.stop();
  };
  return { mapping, effect, service, captures, presets, page, complaints, open, end };
}

async function wait_for_text(page, selector, text) {
  const look = ([where, wanted]) => document.querySelector(where).textContent.trim() === wanted;
  await page.waitForFunction(look, [selector, text]);
}

// Does something on the page and waits for what it says then.
async function act(page, action, outcome = 'Sent') {
  await page.evaluate(() => {
    document.getElementById('status').textContent = '';
  });
  await action();
  await wait_for_text(page, '#status', outcome);
}

// What the page shows, as a setting.
function shown_setting(page) {
  return page.evaluate(() => {
    const field = (element, name) => element.querySelector(`[name="${name}"]`);
    const equalizer = document.getElementById('equalizer');
    return {
      bypass: field(equalizer, 'bypass').checked,
      fade_ms: Number(field(equalizer, 'fade_ms').value),
      bands: [...document.querySelectorAll('#bands tr')].map((row) =>
        Object.fromEntries(['type', 'freq_hz', 'gain_db', 'q'].map((name) => [name, Number(field(row, name).value)])),
      ),
    };
  });
}

async function keep_picture(page, name) {
  const directory = process.env.VELMORA_SCREENSHOTS;
  if (directory) await page.screenshot({ path: path.join(directory, `${name}.png`), fullPage: true });
}

const preset_rows = (page) => page.locator('#presets li span').allTextContents();

async function wait_for_presets(page, names) {
  const look = (wanted) => [...document.querySelectorAll('#presets li span')].map((one) => one.textContent).join('\n') === wanted;
  await page.waitForFunction(look, names.join('\n'));
}

test('the page shows the live equalizer, and a change on it reaches the record', limits, async (t) => {
  const { mapping, effect, page, complaints, open, end } = await open_advanced_page(t);
  const first = equalizer_in(await read_record(t, mapping));
  const document_of_page = async () => equalizer_document(await shown_setting(page));
  assert.equal(await document_of_page(), equalizer_document(first));
  await keep_picture(page, 'equalizer-first');

  const row = page.locator('#bands tr').nth(4);
  await act(page, () => row.locator('[name="gain_db"]').fill('-6.5').then(() => row.locator('[name="gain_db"]').blur()));
  await effect.wait_for_line('equalizer revision=1 bypass=true fade_ms=20');
  await act(page, () => row.locator('[name="type"]').selectOption('7'));
  await act(page, () => page.locator('#equalizer [name="bypass"]').uncheck());
  await effect.wait_for_line('equalizer revision=3 bypass=false fade_ms=20');
  const record = await read_record(t, mapping);
  const expected = { ...first, bypass: false, revision: 3 };
  expected.bands[4] = { ...expected.bands[4], type: 7, gain_db: -6.5 };
  assert.equal(equalizer_document(equalizer_in(record)), equalizer_document(expected));
  assert.equal(await document_of_page(), equalizer_document(expected));

  await t.test('a refused value shows the words of its refusal', async () => {
    const frequency = page.locator('#bands tr').nth(0).locator('[name="freq_hz"]');
    await act(page, () => frequency.fill('19').then(() => frequency.blur()), 'freq_hz must be 20..20000');
    await keep_picture(page, 'equalizer-refused');
    await act(page, () => frequency.fill('').then(() => frequency.blur()), 'each band needs type, freq_hz, gain_db and q');
    assert.deepEqual(await read_record(t, mapping), record);
  });
  await t.test('opened anew it shows what the effect was last told', async () => {
    await open();
    assert.equal(await document_of_page(), equalizer_document(expected));
  });
  assert.deepEqual(complaints.filter((text) => !/400 \(Bad Request\)/.test(text)), []);
  await end();
});

test('presets are saved, loaded and deleted by clicks', limits, async (t) => {
  const { mapping, presets, page, complaints, end } = await open_advanced_page(t);
  const save = async (name, outcome) => {
    await page.locator('#save [name="name"]').fill(name);
    await act(page, () => page.locator('#save button').click(), outcome);
  };
  const row_of = (name) => page.locator('#presets li').filter({ has: page.getByText(name, { exact: true }) });
  const stored = (name) => fs.readFileSync(path.join(presets, `${name}.json`), 'utf8');
  const first = equalizer_document(equalizer_in(await read_record(t, mapping)));
  assert.deepEqual(await preset_rows(page), []);

  await save('quiet room');
  await save('\u591c\u665a');
  await wait_for_presets(page, ['quiet room', '\u591c\u665a']);
  assert.equal(stored('quiet room'), first);
  const other = { bypass: false, fade_ms: 35, bands: some_bands() };
  fs.writeFileSync(path.join(presets, 'by hand.json'), equalizer_document(other));
  await save('quiet room');
  await wait_for_presets(page, ['by hand', 'quiet room', '\u591c\u665a']);

  await t.test('loaded: the effect has it and the page shows it', async () => {
    await act(page, () => row_of('by hand').getByText('Load').click());
    assert.equal(equalizer_document(equalizer_in(await read_record(t, mapping))), equalizer_document(other));
    assert.equal(equalizer_document(await shown_setting(page)), equalizer_document(other));
    await keep_picture(page, 'presets');
  });
  await t.test('saved under a name that is there: replaced', async () => {
    await save('quiet room');
    assert.equal(stored('quiet room'), equalizer_document(other));
  });
  await t.test('a refused name shows the rule', async () => {
    await save('a/b', 'preset name may contain letters, digits, spaces, - and _ only');
    assert.deepEqual(fs.readdirSync(presets).length, 3);
  });
  await t.test('deleted only when the question is answered with yes', async () => {
    const questions = [];
    const answer_next = (yes) =>
      page.once('dialog', (dialog) => {
        questions.push(dialog.message());
        return yes ? dialog.accept() : dialog.dismiss();
      });
    answer_next(false);
    await row_of('by hand').getByText('Delete').click();
    assert.ok(fs.existsSync(path.join(presets, 'by hand.json')));
    answer_next(true);
    await act(page, () => row_of('by hand').getByText('Delete').click());
    assert.equal(fs.existsSync(path.join(presets, 'by hand.json')), false);
    assert.deepEqual(await preset_rows(page), ['quiet room', '\u591c\u665a']);
    assert.deepEqual(questions, Array(2).fill('Delete the preset "by hand"?'));
  });
  await t.test('one that has gone meanwhile', async () => {
    fs.rmSync(path.join(presets, 'quiet room.json'));
    await act(page, () => row_of('quiet room').getByText('Load').click(), 'no such preset');
    page.once('dialog', (dialog) => dialog.accept());
    await act(page, () => row_of('quiet room').getByText('Delete').click(), 'no such preset');
    assert.deepEqual(await preset_rows(page), ['\u591c\u665a']);
  });
  assert.deepEqual(complaints.filter((text) => !/40[04] \((Bad Request|Not Found)\)/.test(text)), []);
  await end();
});

test('a capture is exported and downloaded by clicks', limits, async (t) => {
  const { mapping, captures, page, complaints, end } = await open_advanced_page(t);
  const asks = [];
  page.on('request', (request) => asks.push(`${request.method()} ${new URL(request.url()).pathname}`));
  const looks = () => asks.filter((ask) => ask.endsWith('/ready')).length;
  const capture_word = async () => (await read_record(t, mapping)).readBigUInt64LE(0xa8);
  const click = (text) => page.locator('#captures').getByText(text, { exact: true }).click();
  assert.equal(await page.locator('#download').isDisabled(), true);

  await page.locator('#seconds').fill('3');
  await act(page, () => click('Start'));
  assert.equal(await capture_word(), (1n << 32n) | (3n << 16n) | 1n);
  await act(page, () => click('Stop'));
  assert.equal(await capture_word(), (2n << 32n) | (3n << 16n) | 2n);
  assert.equal(looks(), 0, 'nobody looks for files before an export');

  await act(page, () => click('Export'));
  assert.equal(await capture_word(), (3n << 32n) | (3n << 16n) | 3n);
  await wait_for_text(page, '#capture-files', 'Waiting for the effect');
  await poll('two looks for the files', () => (looks() >= 2 ? true : undefined));
  const contents = capture_names.map((name, index) => Buffer.alloc(70_000 + index, index + 1));
  capture_names.forEach((name, index) => fs.writeFileSync(path.join(captures, name), contents[index]));
  const bytes = contents.reduce((sum, content) => sum + content.length, 0);
  await wait_for_text(page, '#capture-files', `${bytes} bytes`);
  await keep_picture(page, 'captures');

  const [download] = await Promise.all([page.waitForEvent('download'), act(page, () => click('Download'))]);
  assert.match(download.suggestedFilename(), /^velmora-capture-\d{8}-\d{6}\.zip$/);
  const file = path.join(make_directory(), 'captures.zip');
  await download.saveAs(file);
  assert.equal(fs.statSync(file).size, bytes + 518);
  assert.match(execFileSync('unzip', ['-t', file], { encoding: 'utf8' }), /No errors detected/);
  for (const [index, name] of capture_names.entries()) {
    assert.ok(execFileSync('unzip', ['-p', file, name]).equals(contents[index]), name);
  }

  await t.test('seconds out of range show the rule, and the files stay', async () => {
    await page.locator('#seconds').fill('301');
    await act(page, () => click('Export'), 'seconds must be between 1 and 300');
    assert.equal(fs.readdirSync(captures).length, 4);
  });
  await t.test('files that have gone meanwhile', async () => {
    fs.rmSync(path.join(captures, capture_names[3]));
    await act(page, () => click('Download'), 'no exported capture found -- export first');
  });
  assert.deepEqual(complaints.filter((text) => !/40[04] \((Bad Request|Not Found)\)/.test(text)), []);
  await end();
});
