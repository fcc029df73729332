// From a PUT to the shared record and on to the effect that follows it, and what is left when either is gone.
import assert from "node:assert/strict";
import test from "node:test";

import {
  answers,
  builtProgram,
  hexWord,
  isNative,
  readRecord,
  recordBytes,
  refusalBytes,
  run,
  shippedService,
  startEffect,
  startService,
  uniqueMappingName,
  words,
} from "./harness.mjs";

const limits = { timeout: 90_000 };
const footstep = "/api/v1/render/effects/footstep";
const algorithm = "/api/v1/render/effects/algorithm";

// The words' offsets in the record, written down a second time on purpose.
const footstepAt = 0x10;
const appliedAt = 0x80;
const algorithmAt = 0xb8;
const eqWordAt = 0xc8;
const eqBandsAt = 0xd8;
const eqBandCount = 15;

const firstFootstepWord = 0x0000000100000000n;
const firstAlgorithmWord = 0x0000fff600060001n;
const firstEqWord = 0x000000c800000001n;
const appliedFlag = 1n << 63n;

function floatBits(value) {
  const view = new DataView(new ArrayBuffer(4));
  view.setFloat32(0, value);
  return BigInt(view.getUint32(0));
}

function footstepWord(bypass, bypass_all, strength) {
  return floatBits(strength) | (BigInt(bypass) << 32n) | (BigInt(bypass_all) << 33n);
}

// As C writes a number with %g.
function general(value) {
  return Object.is(value, -0) ? "-0" : String(Number(value.toPrecision(6)));
}

function appliedLine(bypass, bypass_all, strength) {
  const word = hexWord(footstepWord(bypass, bypass_all, strength) | appliedFlag);
  return `applied word=${word} bypass=${bypass} bypass_all=${bypass_all} strength=${general(Math.fround(strength))}`;
}

function algorithmWord({ trim, alpha, smooth, limiter, ceiling, link }) {
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
function algorithmLine(state) {
  return (
    `algorithm word=${hexWord(algorithmWord(state))} trim_db=${general(state.trim / 10)} ` +
    `time_alpha=${general(state.alpha / 255)} frequency_smooth=${state.smooth} limiter=${state.limiter} ` +
    `ceiling_db=${general(state.ceiling / 10)} stereo_link=${state.link}`
  );
}

const firstAlgorithm = { trim: 0, alpha: 0, smooth: 0, limiter: true, ceiling: -10, link: 1 };

function put(service, target, body) {
  return service.exchange(service.putBytes(target, body));
}

// The record but for the words that the test has changed on purpose.
function without(record, offsets) {
  const copy = Buffer.from(record);
  for (const offset of offsets) copy.fill(0, offset, offset + 8);
  return copy.toString("hex");
}

function assertFirstRecord(record, applied) {
  const bands = record.subarray(eqBandsAt, eqBandsAt + eqBandCount * 16);
  for (let band = 0; band < eqBandCount; ++band) {
    const at = band * 16;
    assert.equal(bands.readInt32LE(at), 0);
    // The systems' libraries differ in the last bits of a power.
    const frequency = Math.fround(20 * Math.fround(1000 ** Math.fround(band / 14)));
    const tolerance =
      band === 0 || band === eqBandCount - 1 ? 0 : 2 * 2 ** (Math.floor(Math.log2(frequency)) - 23);
    assert.ok(Math.abs(bands.readFloatLE(at + 4) - frequency) <= tolerance, `band ${band}`);
    assert.equal(bands.readFloatLE(at + 8), 0);
    assert.equal(bands.readFloatLE(at + 12), Math.fround(0.707));
  }
  const rest = Buffer.from(record);
  rest.fill(0, eqBandsAt, eqBandsAt + eqBandCount * 16);
  const expected = Buffer.alloc(recordBytes);
  expected.write("VMC1", 0, "latin1");
  expected.writeUInt32LE(8, 4);
  expected.writeUInt32LE(recordBytes, 8);
  expected.writeBigUInt64LE(firstFootstepWord, footstepAt);
  expected.writeBigUInt64LE(firstAlgorithmWord, algorithmAt);
  expected.writeBigUInt64LE(firstEqWord, eqWordAt);
  if (applied) expected.writeBigUInt64LE(firstFootstepWord | appliedFlag, appliedAt);
  assert.equal(rest.toString("hex"), expected.toString("hex"));
}

// Body, then what must be stored: bypass, bypass_all, strength. Each row differs from the one above it, so that the
// effect has something to report.
const footstepAccepts = [
  ['{"bypass":false,"enhance_strength":0.5}', false, false, 0.5],
  ['{"bypass":false,"enhance_strength":0.75,"bypass_all":true}', false, true, 0.75],
  // A client that knows nothing of bypass_all switches it off.
  ['{"bypass":false,"enhance_strength":0.75}', false, false, 0.75],
  ['{"bypass":true,"enhance_strength":1}', true, false, 1],
  ['{"bypass_all":true,"enhance_strength":1,"bypass":true}', true, true, 1],
  ['{"bypass":false,"enhance_strength":0.2,"bypass_all":"true"}', false, false, 0.2],
  [' \r\n{ "bypass"\t:\n true , "enhance_strength" :\f 0.123456789 }', true, false, 0.123456789],
  ['{"bypass":false,"enhance_strength":0x1p-2}', false, false, 0.25],
  ['{"bypass":false,"enhance_strength":1e-45}', false, false, 1e-45],
  ['{"bypass":false,"enhance_strength":-0}', false, false, -0],
  ['{"inner":{"bypass":true,"enhance_strength":0.3},"bypass":false,"enhance_strength":2}', true, false, 0.3],
];

const footstepRefusal = refusalBytes(400, "Bad Request", "bypass and enhance_strength (0..1) are required");
// One body for each way to the refusal.
const footstepRejects = words`
  {} {"bypass":false} {"enhance_strength":0.5} {"bypass":false,"enhance_strength":1.0000001}
  {"bypass":false,"enhance_strength":-1e-45} {"bypass":false,"enhance_strength":nan}
  {"bypass":false,"enhance_strength":"0.5"} {"bypass":0,"enhance_strength":0.5}
  {"bypass":"false","bypass":true,"enhance_strength":0.4}
`;

const trimRefusal = refusalBytes(400, "Bad Request", "output_trim_db must be between -60 and 20");
const alphaRefusal = refusalBytes(400, "Bad Request", "mask_time_alpha must be between 0 and 0.95");
const smoothRefusal = refusalBytes(400, "Bad Request", "mask_frequency_smooth must be 0 or 1");
const ceilingRefusal = refusalBytes(400, "Bad Request", "limiter_ceiling_db must be between -12 and 0");
const linkRefusal = refusalBytes(400, "Bad Request", "stereo_link must be 0, 1 or 2");

// Body, and what it changes in the current state.
/** @type {any[][]} */
const algorithmAccepts = [
  ['{"output_trim_db":-60}', { trim: -600 }],
  ['{"output_trim_db":-5.54}', { trim: -55 }],
  ['{"mask_time_alpha":0.95}', { alpha: 242 }],
  ['{"mask_frequency_smooth":1}', { smooth: 1 }],
  ['{"limiter_enabled":false}', { limiter: false }],
  ['{"limiter_ceiling_db":-12}', { ceiling: -120 }],
  ['{"stereo_link":2}', { link: 2 }],
  ['{"stereo_link":1.9}', { link: 1 }],
  ['{"stereo_link":0}', { link: 0 }],
  // Values of another type count as absent.
  ['{"stereo_link":"2","limiter_enabled":1,"mask_time_alpha":null}', {}],
  ["", {}],
  [
    '{"stereo_link":2,"limiter_ceiling_db":-3.5,"limiter_enabled":true,"mask_frequency_smooth":1,' +
      '"mask_time_alpha":0.25,"output_trim_db":-20.04}',
    { trim: -200, alpha: 64, smooth: 1, limiter: true, ceiling: -35, link: 2 },
  ],
];

const algorithmRejects = [
  ['{"output_trim_db":-60.00001}', trimRefusal],
  ['{"mask_time_alpha":0.9500001}', alphaRefusal],
  ['{"mask_frequency_smooth":1.01}', smoothRefusal],
  ['{"limiter_ceiling_db":-12.1}', ceilingRefusal],
  ['{"stereo_link":-0.1}', linkRefusal],
  // Checked in a fixed order, whatever the order in the body; one that fails at the last key changes nothing.
  ['{"stereo_link":3,"output_trim_db":21}', trimRefusal],
  ['{"limiter_ceiling_db":1,"mask_frequency_smooth":2,"mask_time_alpha":2}', alphaRefusal],
  ['{"stereo_link":3,"limiter_ceiling_db":1}', ceilingRefusal],
  ['{"output_trim_db":-6,"limiter_enabled":false,"stereo_link":3}', linkRefusal],
];

test("a PUT reaches the record and the effect", limits, async (t) => {
  const mapping = uniqueMappingName();
  const effect = await startEffect(t, mapping, [], "mapping made");
  await effect.waitForLine(appliedLine(true, false, 0));
  await effect.waitForLine(algorithmLine(firstAlgorithm));
  const first = await readRecord(t, mapping);
  const service = await startService(t, { mapping, program: shippedService });

  await t.test("the service opens what the effect has made and changes no byte of it", async (row) => {
    assert.deepEqual(await readRecord(row, mapping), first);
    assertFirstRecord(first, true);
  });

  /** @type {any[]} */
  let state = [true, false, 0];
  for (const [body, ...stored] of footstepAccepts) {
    await t.test(`footstep ${body} is taken`, async (row) => {
      const mark = effect.mark();
      assert.equal(await put(service, footstep, body), answers.done);
      await effect.waitForLine(appliedLine(...stored), mark);
      state = stored;
      // Under Wine a program for each row would take longer than all the rest: there the last row answers for all.
      if (isNative) {
        const record = await readRecord(row, mapping);
        assert.equal(record.readBigUInt64LE(footstepAt), footstepWord(...stored));
      }
    });
  }

  await t.test("a footstep PUT changes its own word and the applied one", async (row) => {
    const record = await readRecord(row, mapping);
    assert.equal(record.readBigUInt64LE(footstepAt), footstepWord(...state));
    assert.equal(record.readBigUInt64LE(appliedAt), footstepWord(...state) | appliedFlag);
    const changed = [footstepAt, appliedAt];
    assert.equal(without(record, changed), without(first, changed));
  });

  const beforeFootstepRejects = await readRecord(t, mapping);
  for (const body of footstepRejects) {
    await t.test(`footstep ${body} is refused and changes nothing`, async (row) => {
      assert.equal(await put(service, footstep, body), footstepRefusal);
      if (isNative) assert.deepEqual(await readRecord(row, mapping), beforeFootstepRejects);
    });
  }

  let values = { ...firstAlgorithm };
  for (const [body, change] of algorithmAccepts) {
    await t.test(`algorithm ${JSON.stringify(body)} is taken`, async (row) => {
      const mark = effect.mark();
      assert.equal(await put(service, algorithm, body), answers.done);
      values = { ...values, ...change };
      if (Object.keys(change).length > 0) await effect.waitForLine(algorithmLine(values), mark);
      if (isNative) {
        const record = await readRecord(row, mapping);
        assert.equal(record.readBigUInt64LE(algorithmAt), algorithmWord(values));
      }
    });
  }

  await t.test("an algorithm PUT changes only its own word", async (row) => {
    const record = await readRecord(row, mapping);
    assert.equal(record.readBigUInt64LE(algorithmAt), algorithmWord(values));
    assert.equal(without(record, [algorithmAt]), without(beforeFootstepRejects, [algorithmAt]));
  });

  const beforeAlgorithmRejects = await readRecord(t, mapping);
  for (const [body, refusal] of algorithmRejects) {
    await t.test(`algorithm ${body} is refused and changes nothing`, async (row) => {
      assert.equal(await put(service, algorithm, body), refusal);
      if (isNative) assert.deepEqual(await readRecord(row, mapping), beforeAlgorithmRejects);
    });
  }

  await t.test("a request that does not pass the gate changes nothing", async () => {
    const body = '{"bypass":false,"enhance_strength":0.875,"output_trim_db":1}';
    for (const target of [footstep, algorithm]) {
      const bytes = service.putBytes(target, body);
      await service.expectFor(answers.noToken, bytes.replace(service.token, "x".repeat(32)));
      await service.expectFor(answers.notLocal, bytes.replace("Host: 127", "Host: 128"));
      await service.expectFor(answers.notFound, bytes.replace("PUT", "POST"));
      await service.expectFor(answers.invalidRequest, bytes.replace("HTTP/1.1", "HTTP/2.0"));
    }
  });

  await t.test("after all refusals every byte of the record is as it was", async (row) => {
    assert.deepEqual(await readRecord(row, mapping), beforeAlgorithmRejects);
    const mark = effect.mark();
    assert.equal(await put(service, footstep, '{"bypass":false,"enhance_strength":0.9375}'), answers.done);
    await effect.waitForLine(appliedLine(false, false, 0.9375), mark);
  });

  await service.stop();
  await effect.stop();
  assert.ok(effect.output.endsWith("\nstopped\n"));
});

// A number of 60000 digits, almost all that a request can hold. What it is, the number, and the strength that it
// stands for.
const zeros = (count) => "0".repeat(count);
const longAccepts = [
  ["zeros in front", `${zeros(59_999)}1`, 1],
  ["zeros behind the point", `0.5${zeros(59_998)}`, 0.5],
  ["less than a float can tell", `0.${zeros(59_998)}1`, 0],
  ["nines, which round to 1", `0.${"9".repeat(59_999)}`, 1],
  ["threes", `0.${"3".repeat(59_999)}`, 1 / 3],
  ["more than 1 by less than a float can tell", `1.${zeros(59_998)}1`, 1],
  ["an exponent that takes its zeros back", `25${zeros(59_998)}e-60000`, 0.25],
  ["an exponent that gives its zeros back", `0.${zeros(59_998)}75e59998`, 0.75],
];
const longRejects = [
  ["beyond the range of a float, which counts as absent", "9".repeat(60_000)],
  ["beyond the range of a strength", `2.${zeros(59_999)}`],
  ["less than 0", `-1.${zeros(59_999)}`],
];

test("a number of 60000 digits is read like a short one", limits, async (t) => {
  const service = await startService(t);
  const first = await readRecord(t, service.mapping);
  const bodyOf = (number) => `{"bypass":false,"enhance_strength":${number}}`;
  for (const [what, number] of longRejects) {
    await t.test(`${what}: refused`, async () => {
      assert.equal(await put(service, footstep, bodyOf(number)), footstepRefusal);
      await service.assertAnswers();
    });
  }
  await t.test("one that counts as absent where it may be absent: taken", async () => {
    assert.equal(await put(service, algorithm, `{"output_trim_db":${"9".repeat(60_000)}}`), answers.done);
    await service.assertAnswers();
  });
  assert.deepEqual(await readRecord(t, service.mapping), first);
  for (const [what, number, strength] of longAccepts) {
    await t.test(`${what}: taken as ${strength}`, async (row) => {
      assert.equal(await put(service, footstep, bodyOf(number)), answers.done);
      await service.assertAnswers();
      const record = await readRecord(row, service.mapping);
      assert.equal(
        hexWord(record.readBigUInt64LE(footstepAt)),
        hexWord(footstepWord(false, false, strength)),
      );
    });
  }
});

test("the parameters live as long as anybody holds the mapping", limits, async (t) => {
  const mapping = uniqueMappingName();
  const service = await startService(t, { mapping });
  assertFirstRecord(await readRecord(t, mapping), false);
  const effect = await startEffect(t, mapping, ["--open-only"], "mapping opened");
  await effect.waitForLine(appliedLine(true, false, 0));
  assertFirstRecord(await readRecord(t, mapping), true);

  assert.equal(
    await put(service, footstep, '{"bypass":false,"enhance_strength":0.375,"bypass_all":true}'),
    answers.done,
  );
  assert.equal(await put(service, algorithm, '{"output_trim_db":-7.5,"stereo_link":2}'), answers.done);
  await effect.waitForLine(appliedLine(false, true, 0.375));
  const record = await readRecord(t, mapping);
  await service.stop();

  await t.test("the effect keeps them when the service is gone", async (row) => {
    assert.deepEqual(await readRecord(row, mapping), record);
  });

  await t.test("a service that comes back goes on from them", async (row) => {
    // It opens and need not create, so the program as shipped can do it on every system.
    const again = await startService(row, { mapping, program: shippedService });
    assert.deepEqual(await readRecord(row, mapping), record);
    assert.equal(await put(again, algorithm, "{}"), answers.done);
    assert.deepEqual(await readRecord(row, mapping), record);
    assert.equal(await put(again, algorithm, '{"stereo_link":0}'), answers.done);
    const changed = { ...firstAlgorithm, trim: -75, link: 0 };
    await effect.waitForLine(algorithmLine(changed));
  });

  await effect.stop();
  await t.test("nobody holds the mapping, and it is gone", async (row) => {
    const gone = { code: 1, signal: null, output: "", errors: "mapping failed with error 2\n" };
    assert.deepEqual(await run(row, builtProgram("velmora_print_record"), [mapping]), gone);
  });

  await t.test("a new mapping starts from the first values", async (row) => {
    const fresh = await startService(row, { mapping });
    assertFirstRecord(await readRecord(row, mapping), false);
    assert.equal(await put(fresh, footstep, '{"bypass":false,"enhance_strength":1}'), answers.done);
    // A service that is killed holds nothing either.
    fresh.kill();
    await fresh.waitForEnd();
  });

  await t.test("what a killed service leaves is not taken up", async (row) => {
    const fresh = await startService(row, { mapping });
    assertFirstRecord(await readRecord(row, mapping), false);
    await fresh.assertAnswers();
  });

  await t.test("an effect that comes first sets the first values itself", async (row) => {
    const first = await startEffect(row, mapping, [], "mapping made");
    await first.waitForLine(appliedLine(true, false, 0));
    assertFirstRecord(await readRecord(row, mapping), true);
  });
});
