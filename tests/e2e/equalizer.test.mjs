// The live equalizer: what its route takes and refuses, what then stands in the record, and what the effect sees.
import assert from 'node:assert/strict';
import test from 'node:test';

import {
  answer_bytes,
  answers,
  ask,
  assert_answers,
  body_of,
  equalizer_document,
  equalizer_in,
  exchange,
  json_document,
  number_text,
  read_record,
  record_bytes,
  refusal_bytes,
  request_bytes,
  shipped_service,
  some_bands,
  start_effect,
  start_service,
  unique_mapping_name,
} from './harness.mjs';

const limits = { timeout: 120_000 };
const equalizer = '/api/v1/render/effects/eq';

// What another writer than the equalizer's must have left alone: all but the block at 0xc0..0x1c8.
const block_begin = 0xc0;
const block_end = 0x1c8;

const get = (service) => ask(service, 'GET', equalizer);
const put = (service, body) => ask(service, 'PUT', equalizer, body);
const document_answer = (setting) => answer_bytes(200, 'OK', json_document, equalizer_document(setting));

function outside_block(record) {
  return record.toString('hex', 0, block_begin) + record.toString('hex', block_end);
}

// A setting as 32-bit numbers, and its fade as the record holds it.
function as_stored({ bypass, fade_ms, bands }) {
  return {
    bypass,
    fade_ms: Math.round(fade_ms * 10) / 10,
    bands: bands.map(({ type, freq_hz, gain_db, q }) => ({
      type,
      freq_hz: Math.fround(freq_hz),
      gain_db: Math.fround(gain_db),
      q: Math.fround(q),
    })),
  };
}

// The text of a band in which some fields are replaced. A field given as null is left out.
function band_text(fields = {}) {
  const whole = { type: 1, freq_hz: 1000, gain_db: 3, q: 1, ...fields };
  const pairs = Object.entries(whole).filter(([, value]) => value !== null);
  return `{${pairs.map(([key, value]) => `"${key}":${value}`).join(',')}}`;
}

// A body of `count` bands, the one at `place` with other fields, and more text behind the array.
function body_with(fields = {}, { place = 0, count = 15, more = '' } = {}) {
  const bands = Array.from({ length: count }, (_, index) => band_text(index === place ? fields : {}));
  return `{"bands":[${bands.join(',')}]${more}}`;
}

test('a new equalizer reads as the record that the service has made', limits, async (t) => {
  const service = await start_service(t);
  const record = await read_record(t, service.mapping);
  const answer = await get(service);
  assert.equal(answer, document_answer(equalizer_in(record)));
  const body = body_of(answer);
  assert.ok(body.startsWith('{"bypass":true,"fade_ms":20,"bands":[{"type":0,"freq_hz":20,"gain_db":0,"q":0.707},'));
  assert.ok(body.endsWith(',{"type":0,"freq_hz":20000,"gain_db":0,"q":0.707}]}'));
  const frequencies = JSON.parse(body).bands.map((band) => band.freq_hz);
  const spread = Array.from({ length: 15 }, (_, index) => Number((20 * 1000 ** (index / 14)).toPrecision(6)));
  frequencies.forEach((frequency, band) => {
    assert.ok(Math.abs(frequency / spread[band] - 1) < 1e-5, `band ${band} at ${frequency} Hz`);
  });
  assert.deepEqual(await read_record(t, service.mapping), record, 'reading changes nothing');
  await service.stop();
});

test('a setting comes back as it was put, and the effect sees each one', limits, async (t) => {
  const mapping = unique_mapping_name();
  const effect = await start_effect(t, mapping);
  const service = await start_service(t, { mapping });
  const before = await read_record(t, mapping);
  const setting = { bypass: false, fade_ms: 12.34, bands: some_bands() };

  assert.equal(await put(service, JSON.stringify(setting)), answers.done);
  await effect.wait_for_line('equalizer revision=1 bypass=false fade_ms=12.3');
  const record = await read_record(t, mapping);
  assert.deepEqual(equalizer_in(record), { ...as_stored(setting), revision: 1 });
  assert.equal(outside_block(record), outside_block(before));
  assert.equal(record.readBigUInt64LE(0xc0), 2n, 'the sequence is even again');
  assert.equal(await get(service), document_answer(as_stored(setting)));
  assert.ok((await get(service)).includes('{"bypass":false,"fade_ms":12.3,"bands":[{"type":0,"freq_hz":31.25,'));

  await t.test('the same setting once more is a new revision', async () => {
    assert.equal(await put(service, JSON.stringify(setting)), answers.done);
    await effect.wait_for_line('equalizer revision=2 bypass=false fade_ms=12.3');
  });
  await t.test('what was read can be put', async () => {
    const body = body_of(await get(service));
    assert.equal(await put(service, body), answers.done);
    await effect.wait_for_line('equalizer revision=3 bypass=false fade_ms=12.3');
    assert.equal(body_of(await get(service)), body);
  });
  await t.test('a service that starts anew finds it', async () => {
    await service.stop();
    const next = await start_service(t, { mapping });
    assert.equal(await get(next), document_answer(as_stored(setting)));
    await next.stop();
  });
  await effect.stop();
});

test('the service as shipped sets the equalizer in a record that the effect has made', limits, async (t) => {
  const mapping = unique_mapping_name();
  const effect = await start_effect(t, mapping, [], 'mapping made');
  const service = await start_service(t, { mapping, program: shipped_service });
  const setting = { bypass: false, fade_ms: 200, bands: some_bands(4) };
  assert.equal(await put(service, JSON.stringify(setting)), answers.done);
  await effect.wait_for_line('equalizer revision=1 bypass=false fade_ms=200');
  assert.equal(await get(service), document_answer(as_stored(setting)));
  await service.stop();
  await effect.stop();
});

// Body, and what it changes in the setting of the row above it. `first` is the first band's change alone.
const plain_band = { type: 1, freq_hz: 1000, gain_db: 3, q: 1 };
const accepts = [
  ['fifteen bands alone keep bypass and fade', body_with(), {}],
  ['bypass', body_with({}, { more: ',"bypass":false' }), { bypass: false }],
  ['neither again', body_with(), {}],
  ['a bypass of another type is kept', body_with({}, { more: ',"bypass":"yes"' }), {}],
  ['a bypass that is a number is kept', body_with({}, { more: ',"bypass":1' }), {}],
  ['the shortest fade', body_with({}, { more: ',"fade_ms":1' }), { fade_ms: 1 }],
  ['the longest fade', body_with({}, { more: ',"fade_ms":200' }), { fade_ms: 200 }],
  ['a fade in hundredths', body_with({}, { more: ',"fade_ms":12.36' }), { fade_ms: 12.4 }],
  ['a fade of another type is kept', body_with({}, { more: ',"fade_ms":"50"' }), {}],
  ['bypass and fade in front of the bands', body_with().replace('{', '{"fade_ms":20,"bypass":true,'), { bypass: true, fade_ms: 20 }],
  ['the least type', body_with({ type: 0 }), { first: { type: 0 } }],
  ['the greatest type', body_with({ type: 8 }), { first: { type: 8 } }],
  ['a type that is cut', body_with({ type: 2.5 }), { first: { type: 2 } }],
  ['a type just below 9', body_with({ type: 8.9 }), { first: { type: 8 } }],
  ['a type of minus zero', body_with({ type: '-0' }), { first: { type: 0 } }],
  ['the lowest frequency', body_with({ freq_hz: 20 }), { first: { freq_hz: 20 } }],
  ['the highest frequency', body_with({ freq_hz: 20000 }), { first: { freq_hz: 20000 } }],
  ['a frequency that is rounded to the highest', body_with({ freq_hz: 20000.0001 }), { first: { freq_hz: 20000 } }],
  ['the least gain', body_with({ gain_db: -30 }), { first: { gain_db: -30 } }],
  ['the greatest gain', body_with({ gain_db: 30 }), { first: { gain_db: 30 } }],
  ['a gain near nothing', body_with({ gain_db: '1e-5' }), { first: { gain_db: 1e-5 } }],
  ['a gain of minus zero', body_with({ gain_db: '-0.0' }), { first: { gain_db: -0 } }],
  ['the least q', body_with({ q: 0.1 }), { first: { q: 0.1 } }],
  ['the greatest q', body_with({ q: 18 }), { first: { q: 18 } }],
  ['more digits than are written', body_with({ freq_hz: 32.757877, q: 0.12345678 }), { first: { freq_hz: 32.757877, q: 0.12345678 } }],
  ['an unknown key', body_with({ colour: '"blue"' }, { more: ',"colour":"blue"' }), {}],
  ['sixteen bands', body_with({}, { count: 16 }), {}],
  ['a sixteenth band that breaks every rule', body_with({ type: 99, q: null }, { count: 16, place: 15 }), {}],
  ['a sixteenth band that never ends', body_with().replace(']}', ',{"type":{}]}'), {}],
  ['garbage between the bands', body_with().replaceAll('},{', '} no, comma "x" {'), {}],
  ['white space everywhere', body_with().replaceAll(/([:,[\]{}])/g, ' \r\n\t$1 '), {}],
  ['text round the object', `x ${body_with()} y`, {}],
  ['the keys in another order', body_with().replaceAll(/"type":1,(.*?)\}/g, '$1,"type":1}'), {}],
];

test('what is accepted is in the record and comes back', limits, async (t) => {
  const service = await start_service(t);
  let setting = { bypass: true, fade_ms: 20 };
  for (const [index, [what, body, { first = {}, ...change }]] of accepts.entries()) {
    setting = { ...setting, ...change };
    const whole = as_stored({ ...setting, bands: Array.from({ length: 15 }, () => ({ ...plain_band })) });
    whole.bands[0] = as_stored({ ...setting, bands: [{ ...plain_band, ...first }] }).bands[0];
    await t.test(what, async () => {
      assert.equal(await put(service, body), answers.done);
      assert.equal(await get(service), document_answer(whole));
      const stored = equalizer_in(await read_record(t, service.mapping));
      assert.deepEqual(stored, { ...whole, revision: index + 1 });
    });
  }
  assert.equal(number_text(1e-5), '1e-05', 'exponents have two digits');
  assert.equal(number_text(32.757877), '32.7579');
  await service.stop();
});

const no_array = 'bands must be an array';
const malformed = 'malformed band object';
const incomplete = 'each band needs type, freq_hz, gain_db and q';
const bad_type = 'band type must be 0..8';
const bad_frequency = 'freq_hz must be 20..20000';
const bad_gain = 'gain_db must be -30..30';
const bad_q = 'q must be 0.1..18';
const bad_count = 'bands must contain exactly 15 entries';
const bad_fade = 'fade_ms must be 1..200';

const rejects = [
  ['no body', '', no_array],
  ['an empty object', '{}', no_array],
  ['bypass and fade alone', '{"bypass":false,"fade_ms":10}', no_array],
  ['bands that are no array', '{"bands":15}', no_array],
  ['an array without its end', body_with().slice(0, -2), no_array],
  ['another case', body_with().replace('bands', 'Bands'), no_array],
  ['no bands', '{"bands":[]}', bad_count],
  ['blanks for bands', '{"bands":[  ]}', bad_count],
  ['numbers for bands', `{"bands":[${Array(15).fill(1).join(',')}]}`, bad_count],
  ['one band', body_with({}, { count: 1 }), bad_count],
  ['fourteen bands', body_with({}, { count: 14 }), bad_count],
  ['fourteen bands and a bad fade', body_with({}, { count: 14, more: ',"fade_ms":0' }), bad_count],
  ['a nested object cuts its band short', body_with({ type: '{"type":1}' }), incomplete],
  ['type below 0', body_with({ type: -1 }), bad_type],
  ['type just below 0', body_with({ type: -0.1 }), bad_type],
  ['type 9', body_with({ type: 9 }), bad_type],
  ['a type beyond every integer', body_with({ type: '1e30' }), bad_type],
  ['frequency too low', body_with({ freq_hz: 19.99 }), bad_frequency],
  ['frequency too high', body_with({ freq_hz: 20000.01 }), bad_frequency],
  ['gain too low', body_with({ gain_db: -30.01 }), bad_gain],
  ['gain too high', body_with({ gain_db: 30.01 }), bad_gain],
  ['q too small', body_with({ q: 0.05 }), bad_q],
  ['q too great', body_with({ q: 18.01 }), bad_q],
  ['every rule broken: the type comes first', body_with({ type: 9, freq_hz: 0, gain_db: 99, q: 0 }), bad_type],
  ['the frequency before the gain and q', body_with({ freq_hz: 0, gain_db: 99, q: 0 }), bad_frequency],
  ['the gain before q', body_with({ gain_db: 99, q: 0 }), bad_gain],
  ['what is missing before what is bad', body_with({ type: 99, q: null }), incomplete],
  ...['type', 'freq_hz', 'gain_db', 'q'].map((key) => [`no ${key}`, body_with({ [key]: null }), incomplete]),
  ...['"1"', 'true', '[1]', 'nan', 'inf', '1e39', ''].map((value) => [`a q of ${value || 'nothing'}`, body_with({ q: value }), incomplete]),
  ['the last band', body_with({ q: 0 }, { place: 14 }), bad_q],
  ['the first bad band counts', body_with({ q: 0 }, { place: 3 }).replace('"freq_hz":1000', '"freq_hz":1'), bad_frequency],
  ['a bad band before a bad fade', body_with({ q: 0 }, { more: ',"fade_ms":0' }), bad_q],
  ['a fade that the record could hold', body_with({}, { more: ',"fade_ms":0.5' }), bad_fade],
  ['a fade of nothing', body_with({}, { more: ',"fade_ms":0' }), bad_fade],
  ['a negative fade', body_with({}, { more: ',"fade_ms":-1' }), bad_fade],
  ['a fade too long', body_with({}, { more: ',"fade_ms":200.1' }), bad_fade],
  ['a good bypass does not save a bad fade', body_with({}, { more: ',"bypass":false,"fade_ms":201' }), bad_fade],
];

test('what is refused is told by its first fault and leaves the record alone', limits, async (t) => {
  const mapping = unique_mapping_name();
  const effect = await start_effect(t, mapping);
  const service = await start_service(t, { mapping });
  assert.equal(await put(service, JSON.stringify({ bypass: false, fade_ms: 50, bands: some_bands() })), answers.done);
  await effect.wait_for_line('equalizer revision=1 bypass=false fade_ms=50');
  const before = await read_record(t, mapping);
  assert.equal(before.length, record_bytes);

  for (const [what, body, message] of rejects) {
    await t.test(what, async () => {
      assert.equal(await put(service, body), refusal_bytes(400, 'Bad Request', message));
      assert.deepEqual(await read_record(t, mapping), before);
    });
  }
  // A band's own brackets end the array, or leave it without an end; an unclosed band inside needs a bracket more.
  await t.test('a band without its end', async () => {
    const body = '{"bands":[{"type":1]]}';
    assert.equal(await put(service, body), refusal_bytes(400, 'Bad Request', malformed));
    assert.deepEqual(await read_record(t, mapping), before);
  });
  await t.test('other methods and paths', async () => {
    for (const method of ['POST', 'DELETE', 'PATCH', 'HEAD', 'put']) {
      assert.equal(await ask(service, method, equalizer, body_with()), answers.not_found);
    }
    for (const path of [`${equalizer}/`, `${equalizer}x`, equalizer.toUpperCase(), equalizer.replace('eq', '%65q')]) {
      assert.equal(await ask(service, 'PUT', path, body_with()), answers.not_found);
    }
    assert.deepEqual(await read_record(t, mapping), before);
  });
  await t.test('a foreign origin and a missing token', async () => {
    const options = { method: 'PUT', target: equalizer, body: body_with() };
    const token = ['X-Velmora-Token', service.token];
    const from_elsewhere = [token, ['Origin', 'http://evil.example']];
    assert.equal(await exchange(service, request_bytes(service, { ...options, headers: from_elsewhere })), answers.not_local);
    assert.equal(await exchange(service, request_bytes(service, options)), answers.no_token);
    assert.deepEqual(await read_record(t, mapping), before);
  });
  assert.equal(await put(service, body_with()), answers.done, 'the next good one is taken');
  await effect.wait_for_line('equalizer revision=2 bypass=false fade_ms=50');
  await assert_answers(service);
  await service.stop();
  await effect.stop();
});
