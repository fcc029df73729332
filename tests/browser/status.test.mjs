// What runs, as the pages show it: the steps from an effect that is installed to sound that it has changed, the
// settings in force, and the diagnostics.
import assert from 'node:assert/strict';
import path from 'node:path';
import test from 'node:test';

import { ask, body_of, poll } from '../e2e/harness.mjs';
import {
  applied_word,
  float_bits,
  headphones,
  install_effect,
  keep_picture,
  limits,
  look_again_ms,
  make_processes,
  one_look,
  open_page,
  refresh,
  rewrite,
  settle,
  speakers,
  wait_for_text,
  words,
  write_word,
} from './browser.mjs';

const loaded = ['velmora_windows_apo.dll', 'fse.dll'];
const put_footstep = (service, setting) =>
  ask(service, 'PUT', '/api/v1/render/effects/footstep', JSON.stringify(setting));

function steps_of(page) {
  return page.locator('#steps dd').evaluateAll((all) => all.map((one) => `${one.dataset.is}: ${one.textContent}`));
}

test('everything that works is told, with the gain and what is applied', limits, async (t) => {
  const opened = await open_page(t, { effect: install_effect() }, { processes: make_processes(loaded) });
  const { page, service, mapping, requests, foreign, complaints, open, end } = opened;
  await put_footstep(service, { bypass: false, bypass_all: false, enhance_strength: 0.6 });
  write_word(mapping, words.applied, applied_word({ strength: 0.6 }));
  write_word(mapping, words.processing, (1n << 63n) | float_bits(1.25));
  write_word(mapping, words.blocks, 1000n);
  await open();
  assert.deepEqual(await steps_of(page), [
    'yes: The effect and its algorithm are installed.',
    "yes: The effect is in the endpoint's effect chain.",
    'yes: The audio engine runs, process 4711.',
    'yes: The engine has loaded the effect and its algorithm.',
    'unknown: A second look will tell.',
    'yes: The enhancement is on, strength 60 %.',
  ]);
  write_word(mapping, words.blocks, 1200n);
  await refresh(page);
  assert.equal((await steps_of(page))[4], 'yes: Sound goes through the effect: 1200 blocks so far, gain 1.3 dB.');
  await wait_for_text(page, '#summary', 'The effect works. The enhancement is on, strength 60 %.');
  await keep_picture(page, 'page8-works');

  await t.test('until sound stops', async () => {
    await refresh(page);
    await wait_for_text(page, '#summary', 'Processing: No sound goes through the effect: 1200 blocks so far. ' +
      'Play a sound on this endpoint.');
  });
  await t.test('and what the effect has not taken over shows', async () => {
    write_word(mapping, words.blocks, 1300n);
    await put_footstep(service, { bypass: true, bypass_all: false, enhance_strength: 0.6 });
    await refresh(page);
    await wait_for_text(page, '#summary', 'Applied: The enhancement is on, strength 60 %. That is not what is set above. ' +
      'The effect takes a setting over while sound plays.');
    write_word(mapping, words.blocks, 1400n);
    write_word(mapping, words.applied, applied_word({ strength: 0.6, bypass: true }));
    await refresh(page);
    await wait_for_text(page, '#summary', 'The effect works. The enhancement is off.');
  });
  const looks = requests.length / one_look.length;
  assert.deepEqual(requests, Array.from({ length: looks }, () => one_look).flat());
  assert.equal(looks, 5, 'one at the start, and one each two seconds');
  assert.deepEqual(foreign, []);
  assert.deepEqual(complaints, []);
  await end();
});

test('the first step that is not so is named, with what to do', limits, async (t) => {
  const bind_hint = process.getuid() === 0 ? 'Press "Bind the effect".'
    : 'Start the service as administrator. Then press "Bind the effect".';
  const whole = () => ({ effect: install_effect() });
  const rows = [
    ['nothing installed', {}, {}, 'Installed: The effect is not registered with Windows. Install the effect.'],
    ['no algorithm', () => ({ effect: install_effect(['velmora_windows_apo.dll', 'fse.dll']) }), {},
      "Installed: fse.dll or model_weights.bin is missing beside the effect's file. Install the effect again."],
    ['not bound', () => ({ ...whole(), endpoints: [headphones] }), {},
      `Bound: The effect is not in the endpoint's effect chain. ${bind_hint}`],
    ['an endpoint that takes none', () => ({ ...whole(), endpoints: [{ ...headphones, takes_effects: false }] }), {},
      'Bound: Windows keeps no effects for this endpoint. Choose another render endpoint.'],
    ['no endpoint', () => ({ ...whole(), endpoints: [] }), {},
      'Bound: There is no render endpoint. Connect or enable a device that plays sound.'],
    ['no engine', whole, { modules: null },
      'Engine: The audio engine (audiodg.exe) does not run. Play a sound: Windows starts the engine for it.'],
    ['not loaded', whole, { modules: ['other.dll'] },
      'Loaded: The engine has not loaded the effect. Play a sound on this endpoint. If that does not help, bind again ' +
        'with "Restart audio now".'],
    ['not trusted', () => ({ ...whole(), trusted: false }), { modules: ['other.dll'] },
      'Loaded: The engine has not loaded the effect. Play a sound on this endpoint. If that does not help, bind again ' +
        'with "Restart audio now". For information: DisableProtectedAudioDG is not 1 in ' +
        'HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Audio.'],
    ['no sound yet', whole, { modules: loaded },
      'Processing: No sound has gone through the effect. Play a sound on this endpoint.'],
    ['not made ready', whole, { modules: loaded, word: [words.initialize_progress, 0x80004005n] },
      'Processing: The effect could not be made ready: an unspecified failure (0x80004005). The diagnostics on the ' +
        'page Advanced tell how far it came.'],
    ['begun and not ended', whole, { modules: loaded, word: [words.initialize_progress, 0x8000000an] },
      'Processing: No sound has gone through the effect. Play a sound on this endpoint.'],
    ['another format', whole, { modules: loaded, word: [words.lock_progress, 0x88890008n] },
      'Processing: The effect did not take the format of the sound: a failure without a name here (0x88890008). Set ' +
        'another default format for the endpoint in the sound settings of Windows.'],
  ];
  for (const [what, contents, { modules = loaded, word }, summary] of rows) {
    await t.test(what, async (row) => {
      const made = typeof contents === 'function' ? contents() : contents;
      const { page, mapping, open, end } = await open_page(row, made, { processes: make_processes(modules) });
      if (word) write_word(mapping, ...word);
      await open();
      await refresh(page);
      await wait_for_text(page, '#summary', summary);
      assert.equal(await page.locator('#summary').getAttribute('data-is'), 'no');
      await keep_picture(page, `page8-trouble-${what.replaceAll(' ', '-')}`);
      await end();
    });
  }
});

test('sound that goes through counts for more than what cannot be looked into', limits, async (t) => {
  const { page, mapping, open, end } =
    await open_page(t, { effect: install_effect() }, { processes: make_processes([], false) });
  write_word(mapping, words.blocks, 1n);
  write_word(mapping, words.applied, applied_word({ strength: 0, bypass: true }));
  await open();
  assert.match((await steps_of(page))[3], /^unknown: What the engine has loaded cannot be listed: .*\(0x80070057\)\.$/);
  write_word(mapping, words.blocks, 2n);
  await refresh(page);
  await wait_for_text(page, '#summary', 'The effect works. The enhancement is off.');
  await end();
});

test('the settings begin as they are, and follow another client', limits, async (t) => {
  const { machine, service, page, complaints, requests, open, end } =
    await open_page(t, { endpoints: [{ ...speakers, volume: 0.4, muted: true }] });
  await put_footstep(service, { bypass: false, bypass_all: true, enhance_strength: 0.75 });
  const shown = () => page.evaluate(() => {
    const { checked, indeterminate } = document.getElementById('mute');
    const text = (id) => document.getElementById(id).textContent;
    return [document.getElementById('enhancement').checked, document.getElementById('bypass-all').checked,
      document.getElementById('strength').value, text('strength-shown'),
      document.getElementById('volume').value, text('volume-shown'), checked, indeterminate];
  });
  await open();
  assert.deepEqual(await shown(), [true, true, '0.75', '75 %', '0.4', '40 %', true, false]);
  await page.locator('#strength').focus();
  await put_footstep(service, { bypass: true, bypass_all: false, enhance_strength: 0.25 });
  rewrite(machine, { endpoints: [{ ...speakers, volume: 1, muted: false }] });
  await refresh(page);
  assert.deepEqual(await shown(), [false, false, '0.25', '25 %', '1', '100 %', false, false]);
  assert.equal(await page.evaluate(() => document.activeElement.id), 'strength');
  assert.ok(requests.every((request) => request.startsWith('GET')), 'a look changes nothing');
  assert.deepEqual(complaints, []);
  await end();
});

test('an answer from before a change does not take the change back', limits, async (t) => {
  const { page, open, end } = await open_page(t, { endpoints: [{ ...speakers, volume: 0.4, muted: false }] });
  await open();
  let release;
  const held = new Promise((resolve) => (release = resolve));
  let has_come = false;
  await page.route('**/api/v1/status', async (route) => {
    const response = await route.fetch();
    has_come = true;
    await held;
    await route.fulfill({ response });
  }, { times: 1 });
  await page.clock.runFor(look_again_ms);
  await poll('the old answer', () => (has_come ? true : undefined));
  await page.locator('#strength').fill('0.5');
  await page.locator('#volume').fill('0.9');
  release();
  await settle(page);
  assert.equal(await page.locator('#strength').inputValue(), '0.5');
  assert.equal(await page.locator('#volume').inputValue(), '0.9');
  await refresh(page);
  assert.equal(await page.locator('#strength-shown').textContent(), '50 %');
  assert.equal(await page.locator('#volume-shown').textContent(), '90 %');
  await end();
});

test('values that are no numbers are lived with', limits, async (t) => {
  const opened = await open_page(t, { effect: install_effect() }, { processes: make_processes(loaded) });
  const { page, mapping, complaints, open, end } = opened;
  write_word(mapping, words.applied, (1n << 63n) | float_bits(Number.NaN));
  write_word(mapping, words.processing, (1n << 63n) | float_bits(-Infinity));
  await open();
  write_word(mapping, words.blocks, 7n);
  await refresh(page);
  const steps = await steps_of(page);
  assert.equal(steps[4], 'yes: Sound goes through the effect: 7 blocks so far.');
  assert.equal(steps[5], 'no: The enhancement is on, strength no number. That is not what is set above.');

  const rows = [
    ['{"a":nan,"b":inf,"c":-inf,"d":1}', { a: 'nan', b: 'inf', c: '-inf', d: 1 }],
    ['[nan,inf]', ['nan', 'inf']],
    ['{"nan":"inf","x":"a nan, -inf","y":"\\":nan,\\\\"}', { nan: 'inf', x: 'a nan, -inf', y: '":nan,\\' }],
    ['"nan"', 'nan'],
    ['{"deep":{"a":[-inf,{"b":nan}]}}', { deep: { a: ['-inf', { b: 'nan' }] } }],
    ['{"info":1,"nano":"information"}', { info: 1, nano: 'information' }],
  ];
  for (const [text, value] of rows) assert.deepEqual(await page.evaluate((one) => velmora.parse(one), text), value, text);
  for (const text of ['{"a":nanx}', '{"a":infinity}', '{nan:1', '"nan', '']) {
    const fails = await page.evaluate((one) => {
      try {
        velmora.parse(one);
        return false;
      } catch {
        return true;
      }
    }, text);
    assert.ok(fails, text);
  }
  assert.deepEqual(complaints, []);
  await end();
});

test('markup in a path stays text', limits, async (t) => {
  const name = '<img src=x onerror="document.title=1">';
  const effect = path.join('/nowhere', name, 'velmora_windows_apo.dll');
  const { page, foreign, requests, complaints, open, end } = await open_page(t, { effect });
  await open();
  const text = `The effect is registered, but its file is missing: ${effect}`;
  assert.equal((await steps_of(page))[0], `no: ${text}`);
  assert.equal(await page.locator('#summary').textContent(), `Installed: ${text} Install the effect again.`);
  assert.equal(await page.locator('#steps img, #summary img').count(), 0);
  assert.equal(await page.title(), 'Velmora');
  assert.deepEqual([foreign, requests], [[], one_look]);
  assert.deepEqual(complaints, []);
  await end();
});

test('a service that is gone leaves nothing standing as if it were so', limits, async (t) => {
  const { service, page, open } = await open_page(t, { effect: install_effect() });
  await open();
  await service.stop();
  await refresh(page);
  await wait_for_text(page, '#summary', 'What runs cannot be read: The service does not answer');
  assert.deepEqual(new Set(await steps_of(page)), new Set(['unknown: Not known.']));
});

// ---- the advanced page ----

const advanced = { page_path: '/advanced.html' };
const status_requests = (requests) => requests.filter((request) => request === 'GET /api/v1/status').length;

test('the controls of the algorithm begin as the effect was told', limits, async (t) => {
  const { service, page, requests, complaints, open, end } = await open_page(t, {}, advanced);
  const setting = {
    output_trim_db: -6.5, mask_time_alpha: 0.5, mask_frequency_smooth: 1, limiter_enabled: false,
    limiter_ceiling_db: -3, stereo_link: 2,
  };
  await ask(service, 'PUT', '/api/v1/render/effects/algorithm', JSON.stringify(setting));
  await open();
  const shown = await page.locator('#algorithm').evaluate((form) => Object.fromEntries(
    [...form.elements].filter(({ name }) => name).map((one) => [one.name, one.type === 'checkbox' ? one.checked : one.value])));
  assert.deepEqual(shown, {
    output_trim_db: '-6.5', mask_time_alpha: '0.5', mask_frequency_smooth: true, limiter_enabled: false,
    limiter_ceiling_db: '-3', stereo_link: '2',
  });
  assert.equal(await page.locator('#algorithm fieldset').isEnabled(), true);
  assert.ok(requests.every((request) => request.startsWith('GET')));
  assert.deepEqual(complaints, []);
  await end();
});

test('the diagnostics are read while they are open', limits, async (t) => {
  const opened = await open_page(t, { effect: install_effect() }, { ...advanced, processes: make_processes(loaded) });
  const { service, page, mapping, requests, complaints, open, end } = opened;
  write_word(mapping, words.initialize_progress, (3n << 32n) | 0x80004005n);
  await open();
  await page.clock.runFor(10 * look_again_ms);
  assert.equal(status_requests(requests), 1, 'the one for the controls');

  const value_of = async (label) => {
    const row = page.locator('#diagnostics tr').filter({ has: page.getByRole('rowheader', { name: label, exact: true }) });
    return (await row.locator('td').allTextContents()).join('|');
  };
  await page.locator('#diagnostics summary').click();
  await poll('the rows', async () => ((await page.locator('#diagnostics tr').count()) > 0 ? true : undefined));
  const rows = [
    ['Available', 'yes'],
    ['Initialize HRESULT', '-2147467259 (0x80004005)'],
    ['Initialize stage', '3'],
    ['Last algorithm error', '0 (0x00000000)'],
    ['Initialized mode mask', '0 (0x0000)'],
    ['Processing gain dB', '0 dB'],
    ['Class id registered', 'yes'],
    ['Effect loaded', 'yes'],
    ['Process id', '4711'],
    ['Effect module path', '/windows/velmora_windows_apo.dll'],
    ['Bound', 'yes'],
    ['Chain', '{631D9145-CACF-44D7-861B-5D82ADD8C84F}'],
    ['Error code', '0 (0x00000000)|0 (0x00000000)'],
    ['App', '1.2.0'],
  ];
  for (const [label, value] of rows) assert.equal(await value_of(label), value, label);
  const document = JSON.parse(body_of(await ask(service, 'GET', '/api/v1/status')));
  const groups = ['apo_diagnostics', 'apo_host', 'audio_engine', 'apo_binding', 'versions'];
  const keys = groups.flatMap((group) => Object.keys(document[group]));
  assert.equal(await page.locator('#diagnostics tr').count(), keys.length, 'each key has its row');
  await keep_picture(page, 'page8-diagnostics');

  await page.evaluate(() => (window.first_row = document.querySelector('#diagnostics tr')));
  write_word(mapping, words.blocks, 77n);
  write_word(mapping, words.processing, (1n << 63n) | float_bits(Infinity));
  await refresh(page);
  assert.equal(await value_of('Total processed blocks'), '77');
  assert.equal(await value_of('Processing gain dB'), 'inf');
  assert.equal(await page.evaluate(() => window.first_row === document.querySelector('#diagnostics tr')), true);
  assert.equal(status_requests(requests), 3);

  await page.locator('#diagnostics summary').click();
  await page.clock.runFor(10 * look_again_ms);
  assert.equal(status_requests(requests), 3, 'closed, nothing is asked');
  assert.deepEqual(complaints, []);
  await end();
});
