// The endpoints on the first page in a real browser: what a machine has is shown, and what a person picks and sets
// arrives there.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import test from 'node:test';

import { ask, body_of, poll, start_service } from '../e2e/harness.mjs';
import {
  Machine,
  devices_path,
  dword_data,
  export_text,
  hex_data,
  list_data,
  render_path,
  text_data,
} from '../e2e/registry.mjs';
import {
  begin_look,
  keep_picture,
  limits,
  look_again_ms,
  one_look,
  open_page_on,
  refresh,
  rewrite_text,
  settle,
  wait_for_text,
} from './browser.mjs';

const flows = {
  render: { path: render_path, prefix: '{0.0.0.00000000}.' },
  capture: { path: `${devices_path}\\Audio\\Capture`, prefix: '{0.0.1.00000000}.' },
};
const own_path = 'HKEY_LOCAL_MACHINE\\SOFTWARE\\VelmoraStandIn\\Audio';
const friendly_name = '{a45c254e-df1c-4efd-8020-67d146a850e0},14';
const chain = '{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},14';
const effect = '{631D9145-CACF-44D7-861B-5D82ADD8C84F}';

const guid_of = (digit) => `{${`${digit}`.repeat(8)}-1111-4222-8333-444444444444}`;
const id_of = ({ flow = 'render', digit }) => flows[flow].prefix + guid_of(digit);

// A machine as the stand-in reads it. An endpoint: { flow, digit, name, bound, peak, sessions: [process ids] }, the
// digit naming it, and `name_data` in place of a name that is no text. A process id of 0 is shown as "system", and one
// that is nobody's as "pid " and the number. Sessions are active.
function machine_text({ endpoints, default_render, default_capture }) {
  const keys = [[own_path, [
    ...(default_render ? [['DefaultRender', text_data(id_of(default_render))]] : []),
    ...(default_capture ? [['DefaultCapture', text_data(id_of(default_capture))]] : []),
  ]]];
  for (const endpoint of endpoints) {
    const device = `${flows[endpoint.flow ?? 'render'].path}\\${guid_of(endpoint.digit)}`;
    const name_data = endpoint.name === undefined ? endpoint.name_data : text_data(endpoint.name);
    const own = `${own_path}\\${id_of(endpoint)}`;
    keys.push(
      [device, [['DeviceState', dword_data(1)]]],
      [`${device}\\FxProperties`, endpoint.bound ? [[chain, list_data([effect])]] : []],
      [`${device}\\Properties`, name_data === undefined ? [] : [[friendly_name, name_data]]],
      [own, endpoint.peak === undefined ? [] : [['Peak', text_data(endpoint.peak)]]],
      ...(endpoint.sessions ?? []).map((process, index) => [
        `${own}\\Sessions\\${index}`,
        [['State', dword_data(1)], ['ProcessId', dword_data(process)]],
      ]),
    );
  }
  return export_text(keys);
}

const nobody = 0x7ffffff0;
const speakers = { digit: 1, name: 'Speakers', peak: '0.25', sessions: [0, nobody], bound: true };
const headphones = { digit: 2, name: 'Headphones', peak: '0' };
const microphone = { flow: 'capture', digit: 3, name: 'Microphone', peak: '0.5' };
const line_in = { flow: 'capture', digit: 4, name: 'Line In' };
const common = {
  endpoints: [speakers, headphones, microphone, line_in],
  default_render: speakers,
  default_capture: microphone,
};

const rewrite = (machine, contents) => rewrite_text(machine, machine_text(contents));

// The first page of the service on a machine.
async function open_first_page(t, contents, { token = true, shown = true } = {}) {
  const opened = await open_page_on(t, machine_text(contents));
  await opened.open({ with_token: token });
  // A look is one at the endpoints and one at the state behind it.
  if (shown) await opened.page.waitForSelector('#footstep:enabled');
  await settle(opened.page);
  return opened;
}

// What the page shows of a list, a line for each endpoint.
function shown_list(page, flow) {
  return page.locator(`#${flow} li`).evaluateAll((rows) =>
    rows.map((row) => {
      const part = (selector) => row.querySelector(selector);
      const mark = (selector) => (part(selector).checkVisibility() ? part(selector).textContent : '');
      return [
        part('input').checked ? '*' : '-',
        part('.name').textContent,
        mark('.default-mark'),
        mark('.selected-mark'),
        `${part('meter').value} ${part('.peak').textContent}`,
        part('.sessions').textContent,
        part('.bound').textContent,
      ].join('|');
    }));
}

async function wait_for_list(page, flow, lines) {
  let last;
  await poll(`the ${flow} list ${JSON.stringify(lines)}`, async () => {
    last = await shown_list(page, flow);
    return JSON.stringify(last) === JSON.stringify(lines) ? true : undefined;
  }).catch((error) => assert.deepEqual(last, lines, error.message));
}

// Does something on the page and waits for what it says then.
async function act(page, action, outcome = 'Sent') {
  await page.evaluate(() => {
    document.getElementById('status').textContent = '';
  });
  await action();
  await wait_for_text(page, '#status', outcome);
}

async function set_volume(page, level) {
  await page.locator('#volume').fill(String(level));
}

async function inventory(service) {
  return JSON.parse(body_of(await ask(service, 'GET', '/api/v1/devices')));
}

// What the machine keeps for an endpoint, once it is there.
async function wait_for_kept(machine, endpoint, line) {
  const block = `[${own_path}\\${id_of(endpoint)}]\r\n`;
  await poll(`${line} of ${endpoint.name}`, async () => {
    const text = await machine.export();
    const [kept] = text.slice(text.indexOf(block) + block.length).split('\r\n\r\n');
    return kept.split('\r\n').includes(line) ? true : undefined;
  });
}

const volume_line = (level) => `"Volume"="${Number(Math.fround(level).toPrecision(9))}"`;

const row_of = (page, name) => page.locator('li').filter({ hasText: name });

test('both lists show names, marks, peaks, sessions and what is bound', limits, async (t) => {
  const { page, complaints, requests, end } = await open_first_page(t, common);
  assert.deepEqual(await shown_list(page, 'render'), [
    `*|Speakers|default|selected|0.25 25 %|system, pid ${nobody}|Effect bound`,
    '-|Headphones|||0 0 %|none|Effect not bound',
  ]);
  assert.deepEqual(await shown_list(page, 'capture'), [
    '*|Microphone|default|selected|0.5 50 %|none|',
    '-|Line In|||0 0 %|none|',
  ]);
  assert.equal(await page.locator('#endpoints-trouble').textContent(), '');
  assert.deepEqual(await page.locator('.none:visible, .gone:visible').count(), 0);
  assert.equal(await page.locator('#working-name').textContent(), 'Speakers');
  // Nothing has been sent.
  assert.deepEqual(requests, one_look);
  await keep_picture(page, 'endpoints');
  assert.deepEqual(complaints, []);
  await end();
});

test('what helps to see the page is told to those who hear it', limits, async (t) => {
  const { page, end } = await open_first_page(t, common);
  const render = page.getByRole('group', { name: 'Render' });
  const radio = render.getByRole('radio', { name: 'Speakers', exact: true });
  assert.equal(await radio.isChecked(), true);
  const described = await radio.evaluate((one) =>
    one.getAttribute('aria-describedby').split(' ').map((id) => document.getElementById(id).textContent));
  assert.deepEqual(described, ['default', 'selected', `Sessions: system, pid ${nobody}`, 'Effect bound']);
  assert.equal(await render.getByRole('meter', { name: 'Peak of Speakers' }).count(), 1);
  const sound = page.getByRole('group', { name: 'Sound of Speakers' });
  assert.equal(await sound.getByRole('slider', { name: 'Volume' }).getAttribute('aria-valuetext'), '100 %');
  assert.equal(await sound.getByRole('checkbox', { name: 'Mute' }).count(), 1);
  const ids = await page.evaluate(() => [...document.querySelectorAll('[id]')].map(({ id }) => id));
  assert.equal(new Set(ids).size, ids.length, 'each id stands once');
  await end();
});

test('picking an endpoint moves the mark, and the service works on it', limits, async (t) => {
  const { service, page, requests, complaints, end } = await open_first_page(t, common);
  await act(page, () => page.getByText('Headphones').click());
  await wait_for_list(page, 'render', [
    `-|Speakers|default||0.25 25 %|system, pid ${nobody}|Effect bound`,
    '*|Headphones||selected|0 0 %|none|Effect not bound',
  ]);
  assert.equal(await page.locator('#working-name').textContent(), 'Headphones');
  await act(page, () => page.getByRole('radio', { name: 'Line In' }).click());
  await wait_for_list(page, 'capture', ['-|Microphone|default||0.5 50 %|none|', '*|Line In||selected|0 0 %|none|']);
  const { selected_render_endpoint_id, selected_capture_endpoint_id } = await inventory(service);
  assert.deepEqual([selected_render_endpoint_id, selected_capture_endpoint_id], [id_of(headphones), id_of(line_in)]);
  assert.deepEqual(requests.filter((request) => request.startsWith('PUT')), [
    `PUT /api/v1/devices/render ${JSON.stringify({ endpoint_id: id_of(headphones) })}`,
    `PUT /api/v1/devices/capture ${JSON.stringify({ endpoint_id: id_of(line_in) })}`,
  ]);

  await t.test('by the keyboard as well, the focus staying where it is', async () => {
    await page.getByRole('radio', { name: 'Headphones' }).focus();
    await act(page, () => page.keyboard.press('ArrowUp'));
    await wait_for_list(page, 'render', [
      `*|Speakers|default|selected|0.25 25 %|system, pid ${nobody}|Effect bound`,
      '-|Headphones|||0 0 %|none|Effect not bound',
    ]);
    assert.equal((await inventory(service)).selected_render_endpoint_id, id_of(speakers));
    assert.equal(await page.getByRole('radio', { name: 'Speakers' }).evaluate((one) => one === document.activeElement), true);
  });
  assert.deepEqual(complaints, []);
  await end();
});

test('a click on the default endpoint that is followed holds it fast', limits, async (t) => {
  const { machine, service, page, end } = await open_first_page(t, common);
  await act(page, () => page.getByRole('radio', { name: 'Speakers' }).click());
  rewrite(machine, { ...common, default_render: headphones });
  await refresh(page);
  await wait_for_list(page, 'render', [
    `*|Speakers||selected|0.25 25 %|system, pid ${nobody}|Effect bound`,
    '-|Headphones|default||0 0 %|none|Effect not bound',
  ]);
  assert.equal((await inventory(service)).selected_render_endpoint_id, id_of(speakers));
  await end();
});

test('volume and mute arrive at the endpoint that is worked on', limits, async (t) => {
  const { machine, page, complaints, end } = await open_first_page(t, common);
  const shown = () => page.evaluate(() => {
    const text = (id) => document.getElementById(id).textContent;
    const { checked, indeterminate } = document.getElementById('mute');
    return [document.getElementById('volume').value, text('volume-shown'), checked, indeterminate, text('mute-shown')];
  });
  await act(page, () => set_volume(page, 0.3));
  await wait_for_kept(machine, speakers, volume_line(0.3));
  assert.deepEqual(await shown(), ['0.3', '30 %', false, false, '']);
  await act(page, () => page.locator('#mute').check());
  await wait_for_kept(machine, speakers, '"Muted"=dword:00000001');
  await act(page, () => page.locator('#mute').uncheck());
  await wait_for_kept(machine, speakers, '"Muted"=dword:00000000');
  for (const level of [1, 0]) {
    await act(page, () => set_volume(page, level));
    await wait_for_kept(machine, speakers, volume_line(level));
  }
  // A refresh leaves them alone.
  await refresh(page);
  assert.deepEqual(await shown(), ['0', '0 %', false, false, '']);

  await act(page, () => page.getByText('Headphones').click());
  await wait_for_text(page, '#working-name', 'Headphones');
  await settle(page);
  assert.deepEqual(await shown(), ['1', '100 %', false, false, ''], 'as the other endpoint has them');
  await act(page, () => set_volume(page, 0.75));
  await act(page, () => page.locator('#mute').check());
  await wait_for_kept(machine, headphones, volume_line(0.75));
  await wait_for_kept(machine, headphones, '"Muted"=dword:00000001');
  await wait_for_kept(machine, speakers, volume_line(0));
  assert.deepEqual(await shown(), ['0.75', '75 %', true, false, '']);
  await keep_picture(page, 'endpoints-set');
  assert.deepEqual(complaints, []);
  await end();
});

test('a volume goes to the endpoint that was chosen before it', limits, async (t) => {
  const { machine, service, page, requests, end } = await open_first_page(t, common);
  // All in one turn of the page, so that everything but the first waits.
  await page.evaluate(() => {
    const set = (level) => {
      const slider = document.getElementById('volume');
      slider.value = level;
      slider.dispatchEvent(new Event('input', { bubbles: true }));
    };
    const [first, second] = document.querySelectorAll('#render input');
    document.getElementById('bypass-all').click();
    second.click();
    for (const level of ['0.1', '0.2', '0.3']) set(level);
    first.click();
    for (const level of ['0.6', '0.7']) set(level);
  });
  await wait_for_kept(machine, speakers, volume_line(0.7));
  await wait_for_kept(machine, headphones, volume_line(0.3));
  assert.equal((await inventory(service)).selected_render_endpoint_id, id_of(speakers));
  assert.deepEqual(requests.filter((request) => request.includes('/volume')), [
    'PUT /api/v1/render/volume {"volume":0.3}',
    'PUT /api/v1/render/volume {"volume":0.7}',
  ]);
  await end();
});

test('a refresh follows what other programs change, in place', limits, async (t) => {
  const { machine, page, complaints, end } = await open_first_page(t, common);
  await page.evaluate(() => {
    window.first_rows = [...document.querySelectorAll('#render li')];
  });
  await page.getByRole('radio', { name: 'Headphones' }).focus();
  await page.evaluate(() => document.addEventListener('focusout', () => {
    window.focus_went = true;
  }));
  rewrite(machine, {
    ...common,
    endpoints: [
      // Before the others, so that their rows do not stay where they were.
      { digit: 0, name: 'Television', peak: '1.5' },
      { ...speakers, peak: '0.875', sessions: [], bound: false },
      { ...headphones, name: 'Earphones', sessions: [0] },
      microphone,
      line_in,
    ],
    default_render: headphones,
  });
  await refresh(page);
  await wait_for_list(page, 'render', [
    '-|Television|||1 150 %|none|Effect not bound',
    '-|Speakers|||0.875 88 %|none|Effect not bound',
    '*|Earphones|default|selected|0 0 %|system|Effect not bound',
  ]);
  assert.equal(await page.locator('#working-name').textContent(), 'Earphones');
  const kept = await page.evaluate(() => {
    const [, ...rows] = document.querySelectorAll('#render li');
    return rows.every((row, index) => row === window.first_rows[index]) &&
      rows[1].contains(document.activeElement) && !window.focus_went;
  });
  assert.equal(kept, true, 'the rows are the same elements, and the focus is where it was');
  assert.deepEqual(complaints, []);
  await end();
});

test('a selected endpoint that goes away is told of, and its volume is refused', limits, async (t) => {
  const { machine, service, page, complaints, end } = await open_first_page(t, common);
  await act(page, () => page.getByText('Headphones').click());
  await wait_for_text(page, '#working-name', 'Headphones');
  await act(page, () => set_volume(page, 0.5));
  await page.getByRole('radio', { name: 'Headphones' }).focus();
  await settle(page);
  rewrite(machine, { ...common, endpoints: [speakers, microphone, line_in] });
  await refresh(page);
  await wait_for_list(page, 'render', [`-|Speakers|default||0.25 25 %|system, pid ${nobody}|Effect bound`]);
  assert.equal(await page.locator('#render .gone').innerText(), 'The selected endpoint is not there: Headphones');
  assert.equal(await page.locator('#capture .gone').isVisible(), false);
  assert.equal(await page.evaluate(() => document.activeElement.textContent), 'Render', 'the focus stays near');

  await act(page, () => set_volume(page, 0.9), 'Windows endpoint volume update failed');
  assert.equal(await page.locator('#volume-shown').textContent(), 'not known', 'what was refused was not set');
  await act(page, () => page.locator('#mute').click(), 'Windows endpoint mute update failed');
  assert.equal(await page.locator('#mute').evaluate((box) => box.indeterminate), true);
  assert.equal(await page.locator('#status').getAttribute('class'), 'bad');
  await keep_picture(page, 'endpoints-gone');

  await act(page, () => page.getByText('Speakers', { exact: true }).first().click());
  await page.waitForSelector('#render .gone', { state: 'hidden' });
  assert.equal((await inventory(service)).selected_render_endpoint_id, id_of(speakers));
  assert.equal(complaints.length, 2, JSON.stringify(complaints));
  for (const complaint of complaints) assert.match(complaint, /503 \(Service Unavailable\)/);
  await end();
});

test('choosing an endpoint that has just gone is refused, and the mark stays', limits, async (t) => {
  const { machine, page, complaints, end } = await open_first_page(t, common);
  rewrite(machine, { ...common, endpoints: [speakers, microphone] });
  const refusal = 'active endpoint not found for this direction';
  await act(page, () => page.getByRole('radio', { name: 'Line In' }).click(), refusal);
  await wait_for_list(page, 'capture', ['*|Microphone|default|selected|0.5 50 %|none|']);
  await act(page, () => page.getByRole('radio', { name: 'Microphone' }).click());
  assert.equal(complaints.length, 1, JSON.stringify(complaints));
  assert.match(complaints[0], /404 \(Not Found\)/);
  await end();
});

test('names are text, whatever stands in them', limits, async (t) => {
  const names = [
    '<img src=x onerror="document.title=1">',
    '</bdi></label><script>document.title=1</script>&amp;',
    '"quoted" \\ back  slash \u202e right to left, \u00e4\u{1f3a7}',
  ];
  const endpoints = names.map((name, digit) => ({ digit, name }));
  const { page, complaints, requests, end } = await open_first_page(t, { endpoints, default_render: endpoints[0] });
  assert.deepEqual(await page.locator('#render .name').allTextContents(), names);
  assert.equal(await page.locator('#working-name').textContent(), names[0]);
  assert.equal(await page.locator('#render li :is(img, script)').count(), 0);
  const radio = page.getByRole('radio', { name: names[1], exact: true });
  await act(page, () => radio.click());
  await wait_for_text(page, '#working-name', names[1]);
  assert.equal(await page.title(), 'Velmora');
  const expected = / \/api\/v1\/(devices|status)/;
  assert.ok(requests.every((request) => expected.test(request)), JSON.stringify(requests));
  await keep_picture(page, 'endpoints-markup');
  assert.deepEqual(complaints, []);
  await end();
});

test('an endpoint without a name is shown by its id', limits, async (t) => {
  const half_a_pair = hex_data(1, Buffer.from('\ud83d\0', 'utf16le'));
  const endpoints = [{ digit: 7 }, { digit: 8, name_data: half_a_pair }, { digit: 9, name: '' }];
  const { page, end } = await open_first_page(t, { endpoints });
  assert.deepEqual(await page.locator('#render .name').allTextContents(), endpoints.map(id_of));
  assert.equal(await page.locator('#working-name').textContent(), id_of(endpoints[0]));
  await end();
});

test('a machine without endpoints says so, with the number of the error', limits, async (t) => {
  const { machine, page, complaints, end } = await open_first_page(t, { endpoints: [] });
  const trouble = 'Windows could not tell everything: no such endpoint was found (0x80070490)';
  assert.equal(await page.locator('#endpoints-trouble').textContent(), trouble);
  const notes = await page.locator('.none:visible').allTextContents();
  assert.deepEqual(notes, ['No active endpoint renders sound.', 'No active endpoint captures sound.']);
  assert.equal(await page.locator('.gone:visible').count(), 0);
  await act(page, () => set_volume(page, 0.5), 'Windows endpoint volume update failed');
  assert.equal(await page.locator('#volume-shown').textContent(), 'not known');
  await keep_picture(page, 'endpoints-none');

  rewrite(machine, common);
  await refresh(page);
  await wait_for_text(page, '#endpoints-trouble', '');
  assert.equal(await page.locator('.none:visible').count(), 0);
  assert.equal(await page.locator('li').count(), 4);

  fs.writeFileSync(machine.file, 'no export');
  await refresh(page);
  await wait_for_text(page, '#endpoints-trouble', 'Windows could not tell everything: the registry cannot be read (0x800703F8)');
  assert.equal(complaints.length, 1, JSON.stringify(complaints));
  await end();
});

test('the page looks again only in view, and never while a button is held', limits, async (t) => {
  const { machine, page, requests, end } = await open_first_page(t, common);
  const looks = () => requests.filter((request) => request === 'GET /api/v1/devices').length;
  const set_visibility = (state) => page.evaluate((wanted) => {
    Object.defineProperty(document, 'visibilityState', { value: wanted, configurable: true });
    document.dispatchEvent(new Event('visibilitychange'));
  }, state);
  assert.equal(looks(), 1);
  await page.clock.runFor(look_again_ms - 100);
  assert.equal(looks(), 1);
  await page.clock.runFor(100);
  await poll('the second look', () => (looks() === 2 ? true : undefined));
  await settle(page);

  await set_visibility('hidden');
  await page.clock.runFor(10 * look_again_ms);
  assert.equal(looks(), 2);
  rewrite(machine, { ...common, endpoints: [headphones, microphone] });
  await set_visibility('visible');
  await wait_for_list(page, 'render', ['*|Headphones|default|selected|0 0 %|none|Effect not bound']);
  assert.equal(looks(), 3);

  // A drag of the slider, with what it sends on its way.
  const box = await page.locator('#volume').boundingBox();
  await page.mouse.move(box.x + box.width / 4, box.y + box.height / 2);
  await page.mouse.down();
  await page.mouse.move(box.x + box.width / 2, box.y + box.height / 2, { steps: 4 });
  await wait_for_text(page, '#status', 'Sent');
  await page.clock.runFor(10 * look_again_ms);
  assert.equal(looks(), 3);
  await page.mouse.up();
  await refresh(page);
  await poll('a look after the drag', () => (looks() === 4 ? true : undefined));
  await end();
});

test('one look waits for its answer before there is another', limits, async (t) => {
  const { service, page, requests, end } = await open_first_page(t, common);
  service.signal('SIGSTOP');
  await page.clock.runFor(10 * look_again_ms);
  await poll('the second look', () => (requests.length > 2 ? true : undefined));
  assert.deepEqual(requests, [...one_look, 'GET /api/v1/devices']);
  service.signal('SIGCONT');
  await settle(page);
  assert.deepEqual(requests, [...one_look, ...one_look]);
  await page.clock.runFor(look_again_ms);
  await poll('the next look', () => (requests.length === 6 ? true : undefined));
  await end();
});

// Holds the answers to one kind of request back until they are let through.
async function hold_answers(page, method, url) {
  const held = { arrived: false };
  held.let_through = new Promise((resolve) => {
    held.release = resolve;
  });
  await page.route(url, async (route) => {
    if (route.request().method() !== method) return route.fallback();
    const response = await route.fetch();
    held.arrived = true;
    await held.let_through;
    await route.fulfill({ response });
  });
  held.wait = () => poll(`${method} ${url}`, () => (held.arrived ? true : undefined));
  return held;
}

test('an answer from before a choice does not take the choice back', limits, async (t) => {
  const { page, end } = await open_first_page(t, common);
  const old_look = await hold_answers(page, 'GET', '**/api/v1/devices');
  const choice = await hold_answers(page, 'PUT', '**/api/v1/devices/render');
  await begin_look(page);
  await old_look.wait();
  const headphones_radio = page.getByRole('radio', { name: 'Headphones' });
  await headphones_radio.click();
  old_look.release();
  await choice.wait();
  assert.equal(await headphones_radio.isChecked(), true);
  choice.release();
  await wait_for_list(page, 'render', [
    `-|Speakers|default||0.25 25 %|system, pid ${nobody}|Effect bound`,
    '*|Headphones||selected|0 0 %|none|Effect not bound',
  ]);
  await end();
});

test('an answer that comes while a button is held moves nothing', limits, async (t) => {
  const { machine, page, end } = await open_first_page(t, common);
  const before = await shown_list(page, 'render');
  const look = await hold_answers(page, 'GET', '**/api/v1/devices');
  rewrite(machine, { ...common, endpoints: [headphones, microphone, line_in] });
  await begin_look(page);
  await look.wait();
  await page.locator('#render .name').first().hover();
  await page.mouse.down();
  look.release();
  await settle(page);
  assert.deepEqual(await shown_list(page, 'render'), before);
  // Let go elsewhere, so that nothing is chosen.
  await page.mouse.move(1, 1);
  await page.mouse.up();
  await refresh(page);
  await wait_for_list(page, 'render', ['*|Headphones|default|selected|0 0 %|none|Effect not bound']);
  await end();
});

test('a service that is gone is told of, and one that is back is read again', limits, async (t) => {
  const { machine, service, page } = await open_first_page(t, common);
  await service.stop();
  await refresh(page);
  await wait_for_text(page, '#endpoints-trouble', 'The endpoints cannot be read: The service does not answer');
  assert.equal(await page.locator('#status').textContent(), '', 'the answers to the person stay');
  const again = await start_service(t, {
    web_root: service.web_root,
    env: machine.env,
    port: service.port,
    token: service.token,
  });
  await refresh(page);
  await wait_for_text(page, '#endpoints-trouble', '');
  await page.close();
  await again.stop();
});

test('without the token the page says why there is no list, and asks no more', limits, async (t) => {
  const { page, requests, end } = await open_first_page(t, common, { token: false, shown: false });
  await wait_for_text(page, '#endpoints-trouble', 'The endpoints cannot be read: missing or invalid session token');
  await page.clock.runFor(10 * look_again_ms);
  assert.deepEqual(requests, ['GET /api/v1/devices']);
  await end();
});
