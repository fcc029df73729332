// From a PUT to the shared record and on to the effect that follows it, and what is left when either is gone.
import assert from 'node:assert/strict';
import test from 'node:test';

import {
  answers,
  assert_answers,
  built_program,
  exchange,
  hex_word,
  is_native,
  put_bytes,
  read_record,
  record_bytes,
  refusal_bytes,
  run,
  shipped_service,
  start_effect,
  start_service,
  unique_mapping_name,
} from './harness.mjs';

const limits = { timeout: 90_000 };
const footstep = '/api/v1/render/effects/footstep';
const algorithm = '/api/v1/render/effects/algorithm';

// Where the words stand in the record, written down here a second time on purpose.
const footstep_at = 0x10;
const applied_at = 0x80;
const algorithm_at = 0xb8;
const eq_word_at = 0xc8;
const eq_bands_at = 0xd8;
const eq_band_count = 15;

const first_footstep_word = 0x0000000100000000n;
const first_algorithm_word = 0x0000fff600060001n;
const first_eq_word = 0x000000c800000001n;
const applied_flag = 1n << 63n;

function float_bits(value) {
  const view = new DataView(new ArrayBuffer(4));
  view.setFloat32(0, value);
  return BigInt(view.getUint32(0));
}

function footstep_word(bypass, bypass_all, strength) {
  return float_bits(strength) | (BigInt(bypass) << 32n) | (BigInt(bypass_all) << 33n);
}

// As C writes a number with %g.
function general(value) {
  return Object.is(value, -0) ? '-0' : String(Number(value.toPrecision(6)));
}

function applied_line(bypass, bypass_all, strength) {
  const word = hex_word(footstep_word(bypass, bypass_all, strength) | applied_flag);
  return `applied word=${word} bypass=${bypass} bypass_all=${bypass_all} strength=${general(Math.fround(strength))}`;
}

function algorithm_word({ trim, alpha, smooth, limiter, ceiling, link }) {
  const tenths = (value) => BigInt.asUintN(16, BigInt(value));
  return (
    1n |
    (BigInt(limiter) << 17n) |
    (BigInt(link) << 18n) |
    (BigInt(smooth) << 20n) |
    (BigInt(alpha) << 24n) |
    (tenths(ceiling) << 32n) |
    (tenths(trim) << 48n)
  );
}

// The state in stored units: trim and ceiling in tenths of a decibel, alpha in 1/255.
function algorithm_line(state) {
  return (
    `algorithm word=${hex_word(algorithm_word(state))} trim_db=${general(state.trim / 10)} ` +
    `time_alpha=${general(state.alpha / 255)} frequency_smooth=${state.smooth} limiter=${state.limiter} ` +
    `ceiling_db=${general(state.ceiling / 10)} stereo_link=${state.link}`
  );
}

const first_algorithm = { trim: 0, alpha: 0, smooth: 0, limiter: true, ceiling: -10, link: 1 };

function put(service, target, body) {
  return exchange(service, put_bytes(service, target, body));
}

// The record but for the words that the test has changed on purpose.
function without(record, offsets) {
  const copy = Buffer.from(record);
  for (const offset of offsets) copy.fill(0, offset, offset + 8);
  return copy.toString('hex');
}

function assert_first_record(record, applied) {
  const bands = record.subarray(eq_bands_at, eq_bands_at + eq_band_count * 16);
  for (let band = 0; band < eq_band_count; ++band) {
    const at = band * 16;
    assert.equal(bands.readInt32LE(at), 0);
    // The systems' libraries differ in the last bits of a power.
    const frequency = Math.fround(20 * Math.fround(1000 ** Math.fround(band / 14)));
    const tolerance = band === 0 || band === eq_band_count - 1 ? 0 : 2 * 2 ** (Math.floor(Math.log2(frequency)) - 23);
    assert.ok(Math.abs(bands.readFloatLE(at + 4) - frequency) <= tolerance, `band ${band}`);
    assert.equal(bands.readFloatLE(at + 8), 0);
    assert.equal(bands.readFloatLE(at + 12), Math.fround(0.707));
  }
  const rest = Buffer.from(record);
  rest.fill(0, eq_bands_at, eq_bands_at + eq_band_count * 16);
  const expected = Buffer.alloc(record_bytes);
  expected.write('VMC1', 0, 'latin1');
  expected.writeUInt32LE(8, 4);
  expected.writeUInt32LE(record_bytes, 8);
  expected.writeBigUInt64LE(first_footstep_word, footstep_at);
  expected.writeBigUInt64LE(first_algorithm_word, algorithm_at);
  expected.writeBigUInt64LE(first_eq_word, eq_word_at);
  if (applied) expected.writeBigUInt64LE(first_footstep_word | applied_flag, applied_at);
  assert.equal(rest.toString('hex'), expected.toString('hex'));
}

// Body, then what must be stored: bypass, bypass_all, strength. Each row differs from the one above it, so that the
// effect has something to report.
const footstep_accepts = [
  ['{"bypass":false,"enhance_strength":0.5}', false, false, 0.5],
  ['{"bypass":false,"enhance_strength":0.75,"bypass_all":true}', false, true, 0.75],
  // A client that knows nothing of bypass_all switches it off.
  ['{"bypass":false,"enhance_strength":0.75}', false, false, 0.75],
  ['{"bypass":true,"enhance_strength":0}', true, false, 0],
  ['{"bypass":true,"enhance_strength":1}', true, false, 1],
  ['{"bypass_all":true,"enhance_strength":1,"bypass":true}', true, true, 1],
  ['{"bypass":false,"enhance_strength":0.1,"bypass_all":1}', false, false, 0.1],
  ['{"bypass":false,"enhance_strength":0.2,"bypass_all":"true"}', false, false, 0.2],
  [' \r\n{ "bypass"\t:\n true , "enhance_strength" :\f 0.123456789 }', true, false, 0.123456789],
  ['"bypass":trueish,"enhance_strength":.5x', true, false, 0.5],
  ['{"bypass":false,"enhance_strength":0x1p-2}', false, false, 0.25],
  ['{"bypass":false,"enhance_strength":+1e-1}', false, false, 0.1],
  ['{"bypass":false,"enhance_strength":1e-45}', false, false, 1e-45],
  ['{"bypass":false,"enhance_strength":1e-99}', false, false, 0],
  ['{"bypass":false,"enhance_strength":-0}', false, false, -0],
  ['{"bypass":false,"enhance_strength":1.00000001}', false, false, 1],
  ['{"inner":{"bypass":true,"enhance_strength":0.3},"bypass":false,"enhance_strength":2}', true, false, 0.3],
  ['{"note":"bypass","x":false,"enhance_strength":0.6}', false, false, 0.6],
];

const footstep_refusal = refusal_bytes(400, 'Bad Request', 'bypass and enhance_strength (0..1) are required');
const footstep_rejects = [
  '',
  '{}',
  'null',
  '{"bypass":false}',
  '{"enhance_strength":0.5}',
  '{"bypass_all":true}',
  '{"bypass_all":true,"enhance_strength":0.5}',
  '{"bypass":false,"enhance_strength":1.01}',
  '{"bypass":false,"enhance_strength":1.0000001}',
  '{"bypass":false,"enhance_strength":-0.01}',
  '{"bypass":false,"enhance_strength":-1e-45}',
  '{"bypass":false,"enhance_strength":1e39}',
  '{"bypass":false,"enhance_strength":inf}',
  '{"bypass":false,"enhance_strength":nan}',
  '{"bypass":false,"enhance_strength":"0.5"}',
  '{"bypass":false,"enhance_strength":null}',
  '{"bypass":false,"enhance_strength":}',
  '{"bypass":false,"enhance_strength"',
  '{"bypass":0,"enhance_strength":0.5}',
  '{"bypass":"false","enhance_strength":0.5}',
  '{"bypass":False,"enhance_strength":0.5}',
  '{"bypass":fals,"enhance_strength":0.5}',
  '{"Bypass":false,"enhance_strength":0.5}',
  "{'bypass':false,'enhance_strength':0.5}",
  '{"bypass":"false","bypass":true,"enhance_strength":0.4}',
  '{"bypass":true,"enhance_strength":2,"enhance_strength":0.4}',
];

const trim_refusal = refusal_bytes(400, 'Bad Request', 'output_trim_db must be between -60 and 20');
const alpha_refusal = refusal_bytes(400, 'Bad Request', 'mask_time_alpha must be between 0 and 0.95');
const smooth_refusal = refusal_bytes(400, 'Bad Request', 'mask_frequency_smooth must be 0 or 1');
const ceiling_refusal = refusal_bytes(400, 'Bad Request', 'limiter_ceiling_db must be between -12 and 0');
const link_refusal = refusal_bytes(400, 'Bad Request', 'stereo_link must be 0, 1 or 2');

// Body, and what it changes in the state that stands.
const algorithm_accepts = [
  ['{"output_trim_db":-60}', { trim: -600 }],
  ['{"output_trim_db":20}', { trim: 200 }],
  ['{"output_trim_db":-5.54}', { trim: -55 }],
  ['{"mask_time_alpha":0.95}', { alpha: 242 }],
  ['{"mask_time_alpha":0.6}', { alpha: 153 }],
  ['{"mask_frequency_smooth":1}', { smooth: 1 }],
  ['{"mask_frequency_smooth":0.5}', { smooth: 0 }],
  ['{"limiter_enabled":false}', { limiter: false }],
  ['{"limiter_ceiling_db":-12}', { ceiling: -120 }],
  ['{"limiter_ceiling_db":0}', { ceiling: 0 }],
  ['{"stereo_link":2}', { link: 2 }],
  ['{"stereo_link":1.9}', { link: 1 }],
  ['{"stereo_link":0}', { link: 0 }],
  // Values of another type count as absent.
  ['{"stereo_link":"2","limiter_enabled":1,"mask_time_alpha":null}', {}],
  ['', {}],
  ['{}', {}],
  ['not even an object', {}],
  [
    '{"stereo_link":2,"limiter_ceiling_db":-3.5,"limiter_enabled":true,"mask_frequency_smooth":1,' +
      '"mask_time_alpha":0.25,"output_trim_db":-20.04}',
    { trim: -200, alpha: 64, smooth: 1, limiter: true, ceiling: -35, link: 2 },
  ],
];

const algorithm_rejects = [
  ['{"output_trim_db":-60.5}', trim_refusal],
  ['{"output_trim_db":-60.00001}', trim_refusal],
  ['{"output_trim_db":20.5}', trim_refusal],
  ['{"mask_time_alpha":0.96}', alpha_refusal],
  ['{"mask_time_alpha":0.9500001}', alpha_refusal],
  ['{"mask_time_alpha":-0.01}', alpha_refusal],
  ['{"mask_frequency_smooth":1.01}', smooth_refusal],
  ['{"mask_frequency_smooth":-0.5}', smooth_refusal],
  ['{"limiter_ceiling_db":0.1}', ceiling_refusal],
  ['{"limiter_ceiling_db":-12.1}', ceiling_refusal],
  ['{"stereo_link":2.5}', link_refusal],
  ['{"stereo_link":-0.1}', link_refusal],
  // Checked in a fixed order, whatever the order in the body; one that fails at the last key changes nothing.
  ['{"stereo_link":3,"output_trim_db":21}', trim_refusal],
  ['{"limiter_ceiling_db":1,"mask_frequency_smooth":2,"mask_time_alpha":2}', alpha_refusal],
  ['{"limiter_ceiling_db":1,"mask_frequency_smooth":2}', smooth_refusal],
  ['{"stereo_link":3,"limiter_ceiling_db":1}', ceiling_refusal],
  ['{"output_trim_db":-6,"limiter_enabled":false,"stereo_link":3}', link_refusal],
];

test('a PUT reaches the record and the effect', limits, async (t) => {
  const mapping = unique_mapping_name();
  const effect = await start_effect(t, mapping, [], 'mapping made');
  await effect.wait_for_line(applied_line(true, false, 0));
  await effect.wait_for_line(algorithm_line(first_algorithm));
  const first = await read_record(t, mapping);
  const service = await start_service(t, { mapping, program: shipped_service });

  await t.test('the service opens what the effect has made and changes no byte of it', async (row) => {
    assert.deepEqual(await read_record(row, mapping), first);
    assert_first_record(first, true);
  });

  let state = [true, false, 0];
  for (const [body, ...stored] of footstep_accepts) {
    await t.test(`footstep ${body} is taken`, async (row) => {
      const mark = effect.mark();
      assert.equal(await put(service, footstep, body), answers.done);
      await effect.wait_for_line(applied_line(...stored), mark);
      state = stored;
      // Under Wine a program for each row would take longer than all the rest: there the last row answers for all.
      if (is_native) {
        const record = await read_record(row, mapping);
        assert.equal(record.readBigUInt64LE(footstep_at), footstep_word(...stored));
      }
    });
  }

  await t.test('a footstep PUT changes its own word and the applied one', async (row) => {
    const record = await read_record(row, mapping);
    assert.equal(record.readBigUInt64LE(footstep_at), footstep_word(...state));
    assert.equal(record.readBigUInt64LE(applied_at), footstep_word(...state) | applied_flag);
    const changed = [footstep_at, applied_at];
    assert.equal(without(record, changed), without(first, changed));
  });

  const before_footstep_rejects = await read_record(t, mapping);
  for (const body of footstep_rejects) {
    await t.test(`footstep ${body} is refused and changes nothing`, async (row) => {
      assert.equal(await put(service, footstep, body), footstep_refusal);
      if (is_native) assert.deepEqual(await read_record(row, mapping), before_footstep_rejects);
    });
  }

  let values = { ...first_algorithm };
  for (const [body, change] of algorithm_accepts) {
    await t.test(`algorithm ${JSON.stringify(body)} is taken`, async (row) => {
      const mark = effect.mark();
      assert.equal(await put(service, algorithm, body), answers.done);
      values = { ...values, ...change };
      if (Object.keys(change).length > 0) await effect.wait_for_line(algorithm_line(values), mark);
      if (is_native) {
        const record = await read_record(row, mapping);
        assert.equal(record.readBigUInt64LE(algorithm_at), algorithm_word(values));
      }
    });
  }

  await t.test('an algorithm PUT changes its own word alone', async (row) => {
    const record = await read_record(row, mapping);
    assert.equal(record.readBigUInt64LE(algorithm_at), algorithm_word(values));
    assert.equal(without(record, [algorithm_at]), without(before_footstep_rejects, [algorithm_at]));
  });

  const before_algorithm_rejects = await read_record(t, mapping);
  for (const [body, refusal] of algorithm_rejects) {
    await t.test(`algorithm ${body} is refused and changes nothing`, async (row) => {
      assert.equal(await put(service, algorithm, body), refusal);
      if (is_native) assert.deepEqual(await read_record(row, mapping), before_algorithm_rejects);
    });
  }

  await t.test('a request that does not pass the gate changes nothing', async () => {
    const body = '{"bypass":false,"enhance_strength":0.875,"output_trim_db":1}';
    for (const target of [footstep, algorithm]) {
      const bytes = put_bytes(service, target, body);
      assert.equal(await exchange(service, bytes.replace(service.token, 'x'.repeat(32))), answers.no_token);
      assert.equal(await exchange(service, bytes.replace('Host: 127', 'Host: 128')), answers.not_local);
      assert.equal(await exchange(service, bytes.replace('PUT', 'POST')), answers.not_found);
      assert.equal(await exchange(service, bytes.replace('HTTP/1.1', 'HTTP/2.0')), answers.invalid_request);
    }
  });

  await t.test('after all refusals every byte of the record is as it was', async (row) => {
    assert.deepEqual(await read_record(row, mapping), before_algorithm_rejects);
    const mark = effect.mark();
    assert.equal(await put(service, footstep, '{"bypass":false,"enhance_strength":0.9375}'), answers.done);
    await effect.wait_for_line(applied_line(false, false, 0.9375), mark);
  });

  await service.stop();
  await effect.stop();
  assert.ok(effect.output.endsWith('\nstopped\n'));
});

// A number of 60000 digits, almost all that a request can hold. What it is, the number, and the strength that it
// stands for.
const zeros = (count) => '0'.repeat(count);
const long_accepts = [
  ['zeros in front', `${zeros(59_999)}1`, 1],
  ['zeros behind the point', `0.5${zeros(59_998)}`, 0.5],
  ['less than a float can tell', `0.${zeros(59_998)}1`, 0],
  ['nines, which round to 1', `0.${'9'.repeat(59_999)}`, 1],
  ['threes', `0.${'3'.repeat(59_999)}`, 1 / 3],
  ['more than 1 by less than a float can tell', `1.${zeros(59_998)}1`, 1],
  ['an exponent that takes its zeros back', `25${zeros(59_998)}e-60000`, 0.25],
  ['an exponent that gives its zeros back', `0.${zeros(59_998)}75e59998`, 0.75],
];
const long_rejects = [
  ['beyond the range of a float, which counts as absent', '9'.repeat(60_000)],
  ['beyond the range of a strength', `2.${zeros(59_999)}`],
  ['less than 0', `-1.${zeros(59_999)}`],
];

test('a number of 60000 digits is read like a short one', limits, async (t) => {
  const service = await start_service(t);
  const first = await read_record(t, service.mapping);
  const body_of = (number) => `{"bypass":false,"enhance_strength":${number}}`;
  for (const [what, number] of long_rejects) {
    await t.test(`${what}: refused`, async () => {
      assert.equal(await put(service, footstep, body_of(number)), footstep_refusal);
      await assert_answers(service);
    });
  }
  await t.test('one that counts as absent where it may be absent: taken', async () => {
    assert.equal(await put(service, algorithm, `{"output_trim_db":${'9'.repeat(60_000)}}`), answers.done);
    await assert_answers(service);
  });
  assert.deepEqual(await read_record(t, service.mapping), first);
  for (const [what, number, strength] of long_accepts) {
    await t.test(`${what}: taken as ${strength}`, async (row) => {
      assert.equal(await put(service, footstep, body_of(number)), answers.done);
      await assert_answers(service);
      const record = await read_record(row, service.mapping);
      assert.equal(hex_word(record.readBigUInt64LE(footstep_at)), hex_word(footstep_word(false, false, strength)));
    });
  }
  await service.stop();
});

test('the parameters live as long as anybody holds the mapping', limits, async (t) => {
  const mapping = unique_mapping_name();
  const service = await start_service(t, { mapping });
  assert_first_record(await read_record(t, mapping), false);
  const effect = await start_effect(t, mapping, ['--open-only'], 'mapping opened');
  await effect.wait_for_line(applied_line(true, false, 0));
  assert_first_record(await read_record(t, mapping), true);

  assert.equal(
    await put(service, footstep, '{"bypass":false,"enhance_strength":0.375,"bypass_all":true}'),
    answers.done,
  );
  assert.equal(await put(service, algorithm, '{"output_trim_db":-7.5,"stereo_link":2}'), answers.done);
  await effect.wait_for_line(applied_line(false, true, 0.375));
  const record = await read_record(t, mapping);
  await service.stop();

  await t.test('the effect keeps them when the service is gone', async (row) => {
    assert.deepEqual(await read_record(row, mapping), record);
  });

  await t.test('a service that comes back goes on from them', async (row) => {
    // It opens and need not create, so the program as shipped can do it on every system.
    const again = await start_service(row, { mapping, program: shipped_service });
    assert.deepEqual(await read_record(row, mapping), record);
    assert.equal(await put(again, algorithm, '{}'), answers.done);
    assert.deepEqual(await read_record(row, mapping), record);
    assert.equal(await put(again, algorithm, '{"stereo_link":0}'), answers.done);
    const changed = { ...first_algorithm, trim: -75, link: 0 };
    await effect.wait_for_line(algorithm_line(changed));
    await again.stop();
  });

  await effect.stop();
  await t.test('nobody holds the mapping, and it is gone', async (row) => {
    const gone = { code: 1, signal: null, output: '', errors: 'mapping failed with error 2\n' };
    assert.deepEqual(await run(row, built_program('velmora_print_record'), [mapping]), gone);
  });

  await t.test('a new mapping starts from the first values', async (row) => {
    const fresh = await start_service(row, { mapping });
    assert_first_record(await read_record(row, mapping), false);
    assert.equal(await put(fresh, footstep, '{"bypass":false,"enhance_strength":1}'), answers.done);
    // A service that is killed holds nothing either.
    fresh.kill();
    await fresh.wait_for_end();
  });

  await t.test('what a killed service leaves is not taken up', async (row) => {
    const fresh = await start_service(row, { mapping });
    assert_first_record(await read_record(row, mapping), false);
    await assert_answers(fresh);
    await fresh.stop();
  });

  await t.test('an effect that comes first sets the first values itself', async (row) => {
    const first = await start_effect(row, mapping, [], 'mapping made');
    await first.wait_for_line(applied_line(true, false, 0));
    assert_first_record(await read_record(row, mapping), true);
    await first.stop();
  });
});
