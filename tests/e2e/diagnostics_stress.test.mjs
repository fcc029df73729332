// Many writers at the words of one record, in several processes and threads, while the service reads them again and
// again: no word is torn, no count goes back, and none is lost.
//
// The test effect's hammer writes words that check themselves: their fields follow from one seed.
import assert from 'node:assert/strict';
import test from 'node:test';

import { answers, ask, body_of, is_native, read_record, start_effect, start_service } from './harness.mjs';
import { quiet_system } from './quiet_system.mjs';

const limits = { timeout: 240_000 };
const quiet = quiet_system();
const finish_limit_ms = 120_000;
const status = '/api/v1/status';
const footstep = '/api/v1/render/effects/footstep';
const pending = -2147483638;
const discovery_stage = 1;
const negotiation_stages = [1, 9, 10];

const signed = (value) => value | 0;
const inverse = (value) => ~value >>> 0;
const upper_31_bits = (value) => value % 2 ** 31;

// ---- what holds in each document, by the hammer's rules ----

function is_format(d, side) {
  const [rate, channels, valid_bits, container_bytes, type] =
    ['sample_rate', 'channels', 'valid_bits', 'container_bytes', 'format_type'].map((name) => d[`lock_${side}_${name}`]);
  if (rate === 0) return channels === 0 && valid_bits === 0 && container_bytes === 0 && type === 0;
  return rate === channels * 1000 + 1 && valid_bits === (channels ^ 0xff) && container_bytes === (channels ^ 0x5a) &&
    type === (channels ^ 0xa5);
}

function is_progress(d, step, entered_stages) {
  const [stage, result] = [d[`${step}_stage`], d[`${step}_hresult`]];
  return (entered_stages.includes(stage) && result === pending) || result === signed(inverse(stage));
}

const is_query_consistent = (value, succeeded) => succeeded === (value % 2 === 0);

// Each holds from the first report of its word on: a record without one has zeros.
const word_rules = {
  initialize_sizes: (d) => d.initialize_declared_size === inverse(d.initialize_data_size),
  initialize_mode: (d) =>
    d.initialize_structure === upper_31_bits(Math.imul(d.initialize_processing_mode, 3) >>> 0) &&
    d.initialize_for_discovery_only === (d.initialize_processing_mode % 2 === 1),
  initialize_progress: (d) => is_progress(d, 'initialize', [discovery_stage]),
  lock_progress: (d) => is_progress(d, 'lock', negotiation_stages),
  lock_input: (d) => is_format(d, 'input'),
  lock_output: (d) => is_format(d, 'output'),
  stream: (d) => d.channels === inverse(d.sample_rate),
  pipeline: (d) =>
    upper_31_bits(d.last_algorithm_error >>> 0) === upper_31_bits(inverse(d.pipeline_mode)) &&
    d.algorithm_requested === (d.pipeline_mode % 2 === 1),
  applied: (d) => {
    const seed = Math.round(d.applied_strength * 65536);
    return d.applied_valid && d.applied_bypass === ((seed & 1) === 1) && d.applied_bypass_all === ((seed & 2) === 2);
  },
  processing: (d) => d.processing_gain_valid && Math.round(d.processing_gain_db * 16) === d.processing_block_count % 4096,
  queries: (d) =>
    (d.get_effects_list_count === 0 || is_query_consistent(d.last_effect_count, d.get_effects_list_succeeded)) &&
    (d.get_controllable_effects_list_count === 0 ||
      is_query_consistent(d.last_controllable_effect_count, d.get_controllable_effects_list_succeeded)) &&
    (d.get_latency_count === 0 || d.last_latency_nonzero || d.get_latency_succeeded) &&
    (d.get_input_channel_count_count === 0 ||
      is_query_consistent(d.last_input_channel_count, d.get_input_channel_count_succeeded)),
  capture: (d) =>
    d.capture_reported && d.capture_seconds === (d.capture_state ^ 0xffff) && d.capture_detail_code < 0 &&
    (d.capture_detail_code & 0xffff) === d.capture_state,
};

// The count that tells that a word's first report is whole: of the same round, and raised behind it.
const raised_behind = {
  initialize_sizes: 'initialize_count',
  initialize_mode: 'initialize_count',
  initialize_progress: 'initialize_count',
  lock_progress: 'lock_attempt_count',
  lock_input: 'lock_attempt_count',
  lock_output: 'lock_attempt_count',
  stream: 'lock_count',
  pipeline: 'lock_count',
  applied: 'total_processed_blocks',
  processing: 'total_processed_blocks',
  queries: 'initialize_count',
  capture: 'capture_state',
};

const counts = [
  'initialize_attempt_count',
  'initialize_runtime_count',
  'initialize_discovery_count',
  'initialize_count',
  'lock_count',
  'lock_attempt_count',
  'total_processed_blocks',
  'get_effects_list_count',
  'get_controllable_effects_list_count',
  'get_latency_count',
  'get_input_channel_count_count',
];
const masks = ['initialized_mode_mask', 'locked_mode_mask', 'processed_mode_mask'];

// The words of `now` were read one after the other, so that `before`, read earlier, tells which reports are there.
function assert_consistent(now, before) {
  for (const [word, holds] of Object.entries(word_rules)) {
    if (before[raised_behind[word]] > 0) assert.ok(holds(now), `${word} is torn: ${JSON.stringify(now)}`);
  }
  for (const count of counts) assert.ok(now[count] >= before[count], `${count} went back`);
  for (const mask of masks) assert.equal(now[mask] & before[mask], before[mask], `${mask} lost a bit`);
  assert.equal(now.initialize_attempt_count, now.initialize_runtime_count + now.initialize_discovery_count);
  assert.equal(
    now.format_negotiation_count,
    now.input_format_negotiation_count + now.output_format_negotiation_count,
  );
}

// ---- the writers ----

async function read_diagnostics(service) {
  return JSON.parse(body_of(await ask(service, 'GET', status))).apo_diagnostics;
}

// Four threads in two processes, so that each of the four queries is one thread's.
const processes = 2;
const threads = 2;

async function start_hammers(t, service, rounds) {
  const hammers = [];
  for (let index = 0; index < processes; ++index) {
    const writers = index % 2 === 0 ? [] : ['--through-shared-writers'];
    const first_query = String(index * threads);
    const more = ['--hammer', String(rounds), '--threads', String(threads), '--hammer-query', first_query, ...writers];
    hammers.push(await start_effect(t, service.mapping, more, 'mapping opened'));
  }
  return hammers;
}

// The hammers are at work for as long as `wanted` stands in the record.
async function publish(service, wanted, strength = 0.5) {
  const body = `{"bypass":false,"bypass_all":${wanted},"enhance_strength":${strength}}`;
  assert.equal(await ask(service, 'PUT', footstep, body), answers.done);
}

// Lets the hammers go, and reads so many documents while they write, or all until they are done by themselves. Gives the
// last one and how many rounds there were.
async function read_until_done(service, hammers, documents) {
  let before = await read_diagnostics(service);
  assert.equal(before.initialize_attempt_count, 0, 'no hammer begins by itself');
  await publish(service, true);
  const are_done = () => hammers.every((hammer) => hammer.output.includes('hammer finished'));
  for (let while_writing = 0; while_writing < documents && !are_done();) {
    const now = await read_diagnostics(service);
    assert_consistent(now, before);
    if (now.total_processed_blocks > before.total_processed_blocks) ++while_writing;
    // The service goes on writing its own words.
    if (while_writing % 16 === 0) await publish(service, true, while_writing % 32 === 0 ? 0.25 : 0.75);
    before = now;
  }
  if (documents < Infinity) await publish(service, false);
  const total = { rounds: 0, odd: 0 };
  for (const hammer of hammers) {
    const line = /^hammer finished rounds=([0-9]+) odd=([0-9]+) lost=([0-9]+)\n/m;
    const [, rounds, odd, lost] = await hammer.until('its end', () => hammer.output.match(line) ?? undefined, finish_limit_ms);
    total.rounds += Number(rounds);
    total.odd += Number(odd);
    assert.equal(lost, '0', 'no report is gone that nobody has replaced');
  }
  const last = await read_diagnostics(service);
  assert_consistent(last, before);
  return { total, last };
}

// What so many rounds must come to.
function assert_complete(last, { rounds, odd }, queries) {
  assert.equal(last.initialize_attempt_count, rounds);
  assert.equal(last.initialize_discovery_count, odd);
  assert.equal(last.initialize_count, rounds);
  assert.equal(last.lock_count, rounds);
  assert.equal(last.lock_attempt_count, rounds);
  assert.equal(last.total_processed_blocks, rounds);
  for (const query of ['effects_list', 'controllable_effects_list', 'latency', 'input_channel_count']) {
    assert.equal(last[`get_${query}_count`], queries, query);
  }
}

// The word of the negotiations as the rounds must leave it: one of 32 bits, whose lower half carries into the upper one.
function negotiation_word({ rounds, odd }) {
  return Number((BigInt(odd) + BigInt(rounds - odd) * 0x10000n) % 2n ** 32n);
}

const no_end = '4000000000';

test('words and counts hold while many write', limits, async (t) => {
  const documents = is_native ? 1000 : 60;
  const service = await start_service(t, { env: quiet() });
  const hammers = await start_hammers(t, service, no_end);
  const { total, last } = await read_until_done(service, hammers, documents);
  assert_complete(last, total, 255);
  for (const mask of masks) assert.equal(last[mask], 0xffff);
  const word = (await read_record(t, service.mapping)).readUInt32LE(0x64);
  assert.equal(word, negotiation_word(total));
  assert.equal(last.input_format_negotiation_count, word % 0x10000);
  assert.equal(last.output_format_negotiation_count, Math.floor(word / 0x10000));
  for (const hammer of hammers) await hammer.stop();
  await service.stop();
});

// There is room for few reports, which are soon over: several records, so that writers meet in time.
test('counts that stop at 255 lose none before', limits, async (t) => {
  const rounds = 254;
  for (let trial = 1; trial <= (is_native ? 5 : 1); ++trial) {
    await t.test(`record ${trial}`, async (row) => {
      const service = await start_service(row, { env: quiet() });
      const hammers = await start_hammers(row, service, rounds);
      const { total, last } = await read_until_done(service, hammers, Infinity);
      const all = processes * threads * rounds;
      assert.deepEqual(total, { rounds: all, odd: all / 2 });
      assert_complete(last, total, rounds);
      assert.equal(last.input_format_negotiation_count, all / 2);
      assert.equal(last.output_format_negotiation_count, all / 2);
      for (const hammer of hammers) await hammer.stop();
      await service.stop();
    });
  }
});
