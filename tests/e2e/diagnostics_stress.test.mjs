// Many writers at the words of one record, in several processes and threads, while the service reads them again and
// again: no word is torn, no count goes back, and none is lost.
//
// The test effect's hammer writes words that check themselves: their fields follow from one seed.
import assert from "node:assert/strict";
import test from "node:test";

import { answers, bodyOf, isNative, readRecord, startEffect, startService, words } from "./harness.mjs";
import { quietSystem } from "./quiet_system.mjs";

const limits = { timeout: 240_000 };
const quiet = quietSystem();
const finishLimitMs = 120_000;
const status = "/api/v1/status";
const footstep = "/api/v1/render/effects/footstep";
const pending = -2147483638;
const discoveryStage = 1;
const negotiationStages = [1, 9, 10];

const signed = (value) => value | 0;
const inverse = (value) => ~value >>> 0;
const upper31Bits = (value) => value % 2 ** 31;

// ---- what holds in each document, by the hammer's rules ----

function isFormat(d, side) {
  const [rate, channels, validBits, containerBytes, type] = [
    "sample_rate",
    "channels",
    "valid_bits",
    "container_bytes",
    "format_type",
  ].map((name) => d[`lock_${side}_${name}`]);
  if (rate === 0) return channels === 0 && validBits === 0 && containerBytes === 0 && type === 0;
  return (
    rate === channels * 1000 + 1 &&
    validBits === (channels ^ 0xff) &&
    containerBytes === (channels ^ 0x5a) &&
    type === (channels ^ 0xa5)
  );
}

function isProgress(d, step, enteredStages) {
  const [stage, result] = [d[`${step}_stage`], d[`${step}_hresult`]];
  return (enteredStages.includes(stage) && result === pending) || result === signed(inverse(stage));
}

const isQueryConsistent = (value, succeeded) => succeeded === (value % 2 === 0);

// Each holds from the first report of its word on: a record without one has zeros.
const wordRules = {
  initializeSizes: (d) => d.initialize_declared_size === inverse(d.initialize_data_size),
  initializeMode: (d) =>
    d.initialize_structure === upper31Bits(Math.imul(d.initialize_processing_mode, 3) >>> 0) &&
    d.initialize_for_discovery_only === (d.initialize_processing_mode % 2 === 1),
  initializeProgress: (d) => isProgress(d, "initialize", [discoveryStage]),
  lockProgress: (d) => isProgress(d, "lock", negotiationStages),
  lockInput: (d) => isFormat(d, "input"),
  lockOutput: (d) => isFormat(d, "output"),
  stream: (d) => d.channels === inverse(d.sample_rate),
  pipeline: (d) =>
    upper31Bits(d.last_algorithm_error >>> 0) === upper31Bits(inverse(d.pipeline_mode)) &&
    d.algorithm_requested === (d.pipeline_mode % 2 === 1),
  applied: (d) => {
    const seed = Math.round(d.applied_strength * 65536);
    return (
      d.applied_valid &&
      d.applied_bypass === ((seed & 1) === 1) &&
      d.applied_bypass_all === ((seed & 2) === 2)
    );
  },
  processing: (d) =>
    d.processing_gain_valid && Math.round(d.processing_gain_db * 16) === d.processing_block_count % 4096,
  queries: (d) =>
    (d.get_effects_list_count === 0 ||
      isQueryConsistent(d.last_effect_count, d.get_effects_list_succeeded)) &&
    (d.get_controllable_effects_list_count === 0 ||
      isQueryConsistent(d.last_controllable_effect_count, d.get_controllable_effects_list_succeeded)) &&
    (d.get_latency_count === 0 || d.last_latency_nonzero || d.get_latency_succeeded) &&
    (d.get_input_channel_count_count === 0 ||
      isQueryConsistent(d.last_input_channel_count, d.get_input_channel_count_succeeded)),
  capture: (d) =>
    d.capture_reported &&
    d.capture_seconds === (d.capture_state ^ 0xffff) &&
    d.capture_detail_code < 0 &&
    (d.capture_detail_code & 0xffff) === d.capture_state,
};

// The count that shows that a word's first report is whole: of the same round, and raised behind it.
const raisedBehind = {
  initializeSizes: "initialize_count",
  initializeMode: "initialize_count",
  initializeProgress: "initialize_count",
  lockProgress: "lock_attempt_count",
  lockInput: "lock_attempt_count",
  lockOutput: "lock_attempt_count",
  stream: "lock_count",
  pipeline: "lock_count",
  applied: "total_processed_blocks",
  processing: "total_processed_blocks",
  queries: "initialize_count",
  capture: "capture_state",
};

const counts = words`
  initialize_attempt_count initialize_runtime_count initialize_discovery_count initialize_count lock_count
  lock_attempt_count total_processed_blocks get_effects_list_count get_controllable_effects_list_count
  get_latency_count get_input_channel_count_count
`;
const masks = ["initialized_mode_mask", "locked_mode_mask", "processed_mode_mask"];

// The words of `now` were read one after the other, so that `before`, read earlier, shows which reports are there.
function assertConsistent(now, before) {
  for (const [word, holds] of Object.entries(wordRules)) {
    if (before[raisedBehind[word]] > 0) assert.ok(holds(now), `${word} is torn: ${JSON.stringify(now)}`);
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

async function readDiagnostics(service) {
  return JSON.parse(bodyOf(await service.ask("GET", status))).apo_diagnostics;
}

// Four threads in two processes, so that each of the four queries is one thread's.
const processes = 2;
const threads = 2;

async function startHammers(t, service, rounds) {
  const hammers = [];
  for (let index = 0; index < processes; ++index) {
    const writers = index % 2 === 0 ? [] : ["--through-shared-writers"];
    const firstQuery = String(index * threads);
    const more = [
      "--hammer",
      String(rounds),
      "--threads",
      String(threads),
      "--hammer-query",
      firstQuery,
      ...writers,
    ];
    hammers.push(await startEffect(t, service.mapping, more, "mapping opened"));
  }
  return hammers;
}

// The hammers are at work for as long as `wanted` is in the record.
async function publish(service, wanted, strength = 0.5) {
  const body = `{"bypass":false,"bypass_all":${wanted},"enhance_strength":${strength}}`;
  await service.expect(answers.done, "PUT", footstep, body);
}

// Lets the hammers go, and reads so many documents while they write, or all until they are done by themselves. Gives the
// last one and how many rounds there were.
async function readUntilDone(service, hammers, documents) {
  let before = await readDiagnostics(service);
  assert.equal(before.initialize_attempt_count, 0, "no hammer begins by itself");
  await publish(service, true);
  const areDone = () => hammers.every((hammer) => hammer.output.includes("hammer finished"));
  for (let whileWriting = 0; whileWriting < documents && !areDone();) {
    const now = await readDiagnostics(service);
    assertConsistent(now, before);
    if (now.total_processed_blocks > before.total_processed_blocks) ++whileWriting;
    // The service goes on writing its own words.
    if (whileWriting % 16 === 0) await publish(service, true, whileWriting % 32 === 0 ? 0.25 : 0.75);
    before = now;
  }
  if (documents < Infinity) await publish(service, false);
  const total = { rounds: 0, odd: 0 };
  for (const hammer of hammers) {
    const line = /^hammer finished rounds=([0-9]+) odd=([0-9]+) lost=([0-9]+)\n/m;
    const [, rounds, odd, lost] = await hammer.until(
      "its end",
      () => hammer.output.match(line) ?? undefined,
      finishLimitMs,
    );
    total.rounds += Number(rounds);
    total.odd += Number(odd);
    assert.equal(lost, "0", "no report is gone that nobody has replaced");
  }
  const last = await readDiagnostics(service);
  assertConsistent(last, before);
  return { total, last };
}

// What so many rounds must come to.
function assertComplete(last, { rounds, odd }, queries) {
  assert.equal(last.initialize_attempt_count, rounds);
  assert.equal(last.initialize_discovery_count, odd);
  assert.equal(last.initialize_count, rounds);
  assert.equal(last.lock_count, rounds);
  assert.equal(last.lock_attempt_count, rounds);
  assert.equal(last.total_processed_blocks, rounds);
  for (const query of ["effects_list", "controllable_effects_list", "latency", "input_channel_count"]) {
    assert.equal(last[`get_${query}_count`], queries, query);
  }
}

// The word of the negotiations as the rounds must leave it: one of 32 bits, whose lower half carries into the upper one.
function negotiationWord({ rounds, odd }) {
  return Number((BigInt(odd) + BigInt(rounds - odd) * 0x10000n) % 2n ** 32n);
}

const noEnd = "4000000000";

test("words and counts hold while many write", limits, async (t) => {
  const documents = isNative ? 1000 : 60;
  const service = await startService(t, { env: quiet() });
  const hammers = await startHammers(t, service, noEnd);
  const { total, last } = await readUntilDone(service, hammers, documents);
  assertComplete(last, total, 255);
  for (const mask of masks) assert.equal(last[mask], 0xffff);
  const word = (await readRecord(t, service.mapping)).readUInt32LE(0x64);
  assert.equal(word, negotiationWord(total));
  assert.equal(last.input_format_negotiation_count, word % 0x10000);
  assert.equal(last.output_format_negotiation_count, Math.floor(word / 0x10000));
  for (const hammer of hammers) await hammer.stop();
});

// There is room for few reports, which are soon over: several records, so that writers meet in time.
test("counts that stop at 255 lose none before", limits, async (t) => {
  const rounds = 254;
  for (let trial = 1; trial <= (isNative ? 5 : 1); ++trial) {
    await t.test(`record ${trial}`, async (row) => {
      const service = await startService(row, { env: quiet() });
      const hammers = await startHammers(row, service, rounds);
      const { total, last } = await readUntilDone(service, hammers, Infinity);
      const all = processes * threads * rounds;
      assert.deepEqual(total, { rounds: all, odd: all / 2 });
      assertComplete(last, total, rounds);
      assert.equal(last.input_format_negotiation_count, all / 2);
      assert.equal(last.output_format_negotiation_count, all / 2);
      for (const hammer of hammers) await hammer.stop();
    });
  }
});
