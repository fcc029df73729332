// Binding the effect on the first page: what a person presses reaches the endpoint that is worked on, and what becomes
// of the audio service is told.
import assert from 'node:assert/strict';
import test from 'node:test';

import { poll } from '../e2e/harness.mjs';
import {
  headphones,
  id_of,
  keep_picture,
  limits,
  open_page,
  refresh,
  rewrite,
  settle,
  speakers,
  wait_for_text,
} from './browser.mjs';

const bound_marks = (page) => page.locator('#render .bound').allTextContents();
const posts = (requests) => requests.filter((request) => request.startsWith('POST'));
const body_for = (attach, digit, restart_audio = true) =>
  `POST /api/v1/render/apo ${JSON.stringify({ attach, endpoint_id: id_of(digit), restart_audio })}`;
const added_lists = '(endpoint bound and a default-mode list was added)';

test('the buttons bind and unbind the endpoint that is worked on', limits, async (t) => {
  const { page, requests, complaints, open, end } = await open_page(t, { endpoints: [headphones, speakers] });
  await open();
  assert.deepEqual(await bound_marks(page), ['Effect bound', 'Effect not bound']);
  assert.equal(await page.locator('#working-name').textContent(), 'Headphones');
  assert.equal(await page.locator('#restart-audio').isChecked(), true);

  await page.getByRole('button', { name: 'Bind the effect', exact: true }).click();
  await wait_for_text(page, '#binding-result',
                      `The effect is bound now. ${added_lists}\nThe audio service was started anew.`);
  await settle(page);
  assert.deepEqual(await bound_marks(page), ['Effect bound', 'Effect bound']);
  assert.equal(await page.locator('#status').textContent(), 'Sent');
  assert.equal(await page.locator('#binding-result').getAttribute('class'), 'good');
  await keep_picture(page, 'page8-bound');

  await page.getByText('Speakers', { exact: true }).first().click();
  await wait_for_text(page, '#working-name', 'Speakers');
  await page.locator('#restart-audio').uncheck();
  await page.getByRole('button', { name: 'Unbind the effect' }).click();
  await wait_for_text(page, '#binding-result', 'The effect is not bound now. (endpoint unbound)\n' +
    'The audio service was left alone: the change counts when it starts the next time.');
  await settle(page);
  assert.deepEqual(await bound_marks(page), ['Effect not bound', 'Effect bound']);
  assert.deepEqual(posts(requests), [body_for(true, 2), body_for(false, 1, false)]);
  assert.deepEqual(complaints, []);
  await end();
});

test('an audio service that does not start anew is told of, and the binding stands', limits, async (t) => {
  const rows = [
    ['refused', { StopError: 5 }, 'Audiosrv did not accept the stop request: access is denied (0x80070005)'],
    ['does not come back', { StartError: 1058 }, 'Audiosrv did not restart: the service is disabled (0x80070422)'],
    ['no words for it', { StopError: 1 }, 'Audiosrv did not accept the stop request: a failure without a name here (0x80070001)'],
  ];
  for (const [what, audio, reason] of rows) {
    await t.test(what, async (row) => {
      const { page, complaints, open, end } = await open_page(row, { endpoints: [headphones], audio });
      await open();
      await page.locator('#bind').click();
      await wait_for_text(page, '#binding-result', `The effect is bound now. ${added_lists}\n` +
        `The audio service was not started anew: ${reason}. The change counts when it starts the next time.`);
      assert.equal(await page.locator('#binding-result').getAttribute('class'), 'bad');
      await settle(page);
      assert.deepEqual(await bound_marks(page), ['Effect bound']);
      await keep_picture(page, 'page8-restart-failed');
      assert.deepEqual(complaints, []);
      await end();
    });
  }
});

test('while it is under way the page says so, asks once, and holds everything else', limits, async (t) => {
  const { page, requests, open, end } = await open_page(t, { endpoints: [headphones], audio: { StopMs: 2000 } });
  await open();
  const before = requests.length;
  await page.locator('#bind').focus();
  await page.keyboard.press('Enter');
  await wait_for_text(page, '#binding-result',
                      'Under way. With the audio service this may take some seconds; nothing else is answered until then.');
  assert.equal(await page.locator('#unbind').getAttribute('aria-disabled'), 'true');
  await page.keyboard.press('Enter');
  await page.locator('#unbind').evaluate((button) => button.click());
  await page.locator('#volume').evaluate((slider) => {
    slider.value = 0.5;
    slider.dispatchEvent(new Event('input', { bubbles: true }));
  });
  await page.clock.runFor(10_000);
  assert.deepEqual(requests.slice(before), [body_for(true, 2)], 'nothing overtakes it, and no look joins the queue');
  await keep_picture(page, 'page8-binding');
  await wait_for_text(page, '#binding-result',
                      `The effect is bound now. ${added_lists}\nThe audio service was started anew.`);
  await poll('the volume', () => (requests.some((request) => request.includes('/volume')) ? true : undefined));
  await settle(page);
  assert.equal(await page.evaluate(() => document.activeElement.id), 'bind', 'the focus stays');
  assert.equal(await page.locator('#bind').getAttribute('aria-disabled'), null);
  assert.equal(posts(requests).length, 1);
  await end();
});

test('a refusal is shown in the words of the service', limits, async (t) => {
  const plain = { digit: 3, name: 'No effects', takes_effects: false };
  const { machine, page, complaints, open, end } = await open_page(t, { endpoints: [plain] });
  await open();
  const not_opened =
    'the endpoint FxProperties key could not be opened for writing (run the control service elevated)';
  await page.locator('#bind').click();
  await wait_for_text(page, '#binding-result', `Nothing came of it: ${not_opened}`);
  assert.equal(await page.locator('#status').textContent(), not_opened);
  assert.equal(await page.locator('#binding-result').getAttribute('class'), 'bad');

  rewrite(machine, { endpoints: [] });
  await refresh(page);
  await page.locator('#unbind').click();
  await wait_for_text(page, '#binding-result', 'Nothing came of it: no render endpoint is selected');
  assert.equal(complaints.length, 2, JSON.stringify(complaints));
  assert.match(complaints[0], /503/);
  assert.match(complaints[1], /400/);
  await end();
});

test('what is bound elsewhere shows at the next look', limits, async (t) => {
  const { machine, page, open, end } = await open_page(t, { endpoints: [headphones] });
  await open();
  const shown = page.locator('#steps dd').nth(1);
  assert.equal(await shown.textContent(), "The effect is not in the endpoint's effect chain.");
  rewrite(machine, { endpoints: [{ ...headphones, bound: true }] });
  await refresh(page);
  assert.equal(await shown.textContent(), "The effect is in the endpoint's effect chain.");
  await end();
});
