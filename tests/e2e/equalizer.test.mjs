// The live equalizer: what its route takes and refuses, what the record then holds, and what the effect sees.
import assert from "node:assert/strict";
import test from "node:test";

import {
  answerBytes,
  answers,
  bodyOf,
  equalizerDocument,
  equalizerIn,
  jsonDocument,
  numberText,
  readRecord,
  recordBytes,
  refusalBytes,
  shippedService,
  someBands,
  startEffect,
  startService,
  uniqueMappingName,
} from "./harness.mjs";

const limits = { timeout: 120_000 };
const equalizer = "/api/v1/render/effects/eq";

// What another writer than the equalizer's must have left unchanged: all but the block at 0xc0..0x1c8.
const blockBegin = 0xc0;
const blockEnd = 0x1c8;

const get = (service) => service.ask("GET", equalizer);
const put = (service, body) => service.ask("PUT", equalizer, body);
const documentAnswer = (setting) => answerBytes(200, "OK", jsonDocument, equalizerDocument(setting));

function outsideBlock(record) {
  return record.toString("hex", 0, blockBegin) + record.toString("hex", blockEnd);
}

// A setting as 32-bit numbers, and its fade as the record holds it.
function asStored({ bypass, fade_ms, bands }) {
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
function bandText(fields = {}) {
  const whole = { type: 1, freq_hz: 1000, gain_db: 3, q: 1, ...fields };
  const pairs = Object.entries(whole).filter(([, value]) => value !== null);
  return `{${pairs.map(([key, value]) => `"${key}":${value}`).join(",")}}`;
}

// A body of `count` bands, the one at `place` with other fields, and more text behind the array.
function bodyWith(fields = {}, { place = 0, count = 15, more = "" } = {}) {
  const bands = Array.from({ length: count }, (_, index) => bandText(index === place ? fields : {}));
  return `{"bands":[${bands.join(",")}]${more}}`;
}

test("a new equalizer reads as the record that the service has made", limits, async (t) => {
  const service = await startService(t);
  const record = await readRecord(t, service.mapping);
  const answer = await get(service);
  assert.equal(answer, documentAnswer(equalizerIn(record)));
  const body = bodyOf(answer);
  assert.ok(
    body.startsWith('{"bypass":true,"fade_ms":20,"bands":[{"type":0,"freq_hz":20,"gain_db":0,"q":0.707},'),
  );
  assert.ok(body.endsWith(',{"type":0,"freq_hz":20000,"gain_db":0,"q":0.707}]}'));
  const frequencies = JSON.parse(body).bands.map((band) => band.freq_hz);
  const spread = Array.from({ length: 15 }, (_, index) => Number((20 * 1000 ** (index / 14)).toPrecision(6)));
  frequencies.forEach((frequency, band) => {
    assert.ok(Math.abs(frequency / spread[band] - 1) < 1e-5, `band ${band} at ${frequency} Hz`);
  });
  assert.deepEqual(await readRecord(t, service.mapping), record, "reading changes nothing");
});

test("a setting comes back as it was put, and the effect sees each one", limits, async (t) => {
  const mapping = uniqueMappingName();
  const effect = await startEffect(t, mapping);
  const service = await startService(t, { mapping });
  const before = await readRecord(t, mapping);
  const setting = { bypass: false, fade_ms: 12.34, bands: someBands() };

  assert.equal(await put(service, JSON.stringify(setting)), answers.done);
  await effect.waitForLine("equalizer revision=1 bypass=false fade_ms=12.3");
  const record = await readRecord(t, mapping);
  assert.deepEqual(equalizerIn(record), { ...asStored(setting), revision: 1 });
  assert.equal(outsideBlock(record), outsideBlock(before));
  assert.equal(record.readBigUInt64LE(0xc0), 2n, "the sequence is even again");
  assert.equal(await get(service), documentAnswer(asStored(setting)));
  assert.ok(
    (await get(service)).includes('{"bypass":false,"fade_ms":12.3,"bands":[{"type":0,"freq_hz":31.25,'),
  );

  await t.test("the same setting once more is a new revision", async () => {
    assert.equal(await put(service, JSON.stringify(setting)), answers.done);
    await effect.waitForLine("equalizer revision=2 bypass=false fade_ms=12.3");
  });
  await t.test("what was read can be put", async () => {
    const body = bodyOf(await get(service));
    assert.equal(await put(service, body), answers.done);
    await effect.waitForLine("equalizer revision=3 bypass=false fade_ms=12.3");
    assert.equal(bodyOf(await get(service)), body);
  });
  await t.test("a service that starts anew finds it", async () => {
    await service.stop();
    const next = await startService(t, { mapping });
    assert.equal(await get(next), documentAnswer(asStored(setting)));
    await next.stop();
  });
});

test("the service as shipped sets the equalizer in a record that the effect has made", limits, async (t) => {
  const mapping = uniqueMappingName();
  const effect = await startEffect(t, mapping, [], "mapping made");
  const service = await startService(t, { mapping, program: shippedService });
  const setting = { bypass: false, fade_ms: 200, bands: someBands(4) };
  assert.equal(await put(service, JSON.stringify(setting)), answers.done);
  await effect.waitForLine("equalizer revision=1 bypass=false fade_ms=200");
  assert.equal(await get(service), documentAnswer(asStored(setting)));
});

// Body, and what it changes in the setting of the row above it. `first` changes only the first band.
const plainBand = { type: 1, freq_hz: 1000, gain_db: 3, q: 1 };
/** @type {any[][]} */
const accepts = [
  ["fifteen bands alone keep bypass and fade", bodyWith(), {}],
  ["bypass", bodyWith({}, { more: ',"bypass":false' }), { bypass: false }],
  ["a bypass of another type is kept", bodyWith({}, { more: ',"bypass":"yes"' }), {}],
  ["the longest fade", bodyWith({}, { more: ',"fade_ms":200' }), { fade_ms: 200 }],
  ["a fade in hundredths", bodyWith({}, { more: ',"fade_ms":12.36' }), { fade_ms: 12.4 }],
  ["a fade of another type is kept", bodyWith({}, { more: ',"fade_ms":"50"' }), {}],
  [
    "bypass and fade in front of the bands",
    bodyWith().replace("{", '{"fade_ms":20,"bypass":true,'),
    { bypass: true, fade_ms: 20 },
  ],
  ["a type that is cut", bodyWith({ type: 2.5 }), { first: { type: 2 } }],
  ["a type just below 9", bodyWith({ type: 8.9 }), { first: { type: 8 } }],
  ["a frequency rounded to the highest", bodyWith({ freq_hz: 20000.0001 }), { first: { freq_hz: 20000 } }],
  ["a gain of minus zero", bodyWith({ gain_db: "-0.0" }), { first: { gain_db: -0 } }],
  [
    "more digits than are written",
    bodyWith({ freq_hz: 32.757877, q: 0.12345678 }),
    { first: { freq_hz: 32.757877, q: 0.12345678 } },
  ],
  ["an unknown key", bodyWith({ colour: '"blue"' }, { more: ',"colour":"blue"' }), {}],
  ["a sixteenth band that breaks every rule", bodyWith({ type: 99, q: null }, { count: 16, place: 15 }), {}],
  ["a sixteenth band that never ends", bodyWith().replace("]}", ',{"type":{}]}'), {}],
  ["garbage between the bands", bodyWith().replaceAll("},{", '} no, comma "x" {'), {}],
  ["white space everywhere", bodyWith().replaceAll(/([:,[\]{}])/g, " \r\n\t$1 "), {}],
];

test("what is accepted is in the record and comes back", limits, async (t) => {
  const service = await startService(t);
  let setting = { bypass: true, fade_ms: 20 };
  for (const [index, [what, body, { first = {}, ...change }]] of accepts.entries()) {
    setting = { ...setting, ...change };
    const whole = asStored({ ...setting, bands: Array.from({ length: 15 }, () => ({ ...plainBand })) });
    whole.bands[0] = asStored({ ...setting, bands: [{ ...plainBand, ...first }] }).bands[0];
    await t.test(what, async () => {
      assert.equal(await put(service, body), answers.done);
      assert.equal(await get(service), documentAnswer(whole));
      const stored = equalizerIn(await readRecord(t, service.mapping));
      assert.deepEqual(stored, { ...whole, revision: index + 1 });
    });
  }
  assert.equal(numberText(1e-5), "1e-05", "exponents have two digits");
  assert.equal(numberText(32.757877), "32.7579");
});

const noArray = "bands must be an array";
const malformed = "malformed band object";
const incomplete = "each band needs type, freq_hz, gain_db and q";
const badType = "band type must be 0..8";
const badFrequency = "freq_hz must be 20..20000";
const badGain = "gain_db must be -30..30";
const badQ = "q must be 0.1..18";
const badCount = "bands must contain exactly 15 entries";
const badFade = "fade_ms must be 1..200";

const rejects = [
  ["no body", "", noArray],
  ["an array without its end", bodyWith().slice(0, -2), noArray],
  ["no bands", '{"bands":[]}', badCount],
  ["numbers for bands", `{"bands":[${Array(15).fill(1).join(",")}]}`, badCount],
  ["fourteen bands", bodyWith({}, { count: 14 }), badCount],
  ["fourteen bands and a bad fade", bodyWith({}, { count: 14, more: ',"fade_ms":0' }), badCount],
  ["a nested object cuts its band short", bodyWith({ type: '{"type":1}' }), incomplete],
  ["type just below 0", bodyWith({ type: -0.1 }), badType],
  ["frequency too high", bodyWith({ freq_hz: 20000.01 }), badFrequency],
  ["gain too high", bodyWith({ gain_db: 30.01 }), badGain],
  ["q too great", bodyWith({ q: 18.01 }), badQ],
  ["every rule broken: the type comes first", bodyWith({ type: 9, freq_hz: 0, gain_db: 99, q: 0 }), badType],
  ["the frequency before the gain and q", bodyWith({ freq_hz: 0, gain_db: 99, q: 0 }), badFrequency],
  ["the gain before q", bodyWith({ gain_db: 99, q: 0 }), badGain],
  ["what is missing before what is bad", bodyWith({ type: 99, q: null }), incomplete],
  ["no type", bodyWith({ type: null }), incomplete],
  ...['"1"', "nan", ""].map((value) => [`a q of ${value || "nothing"}`, bodyWith({ q: value }), incomplete]),
  ["the last band", bodyWith({ q: 0 }, { place: 14 }), badQ],
  [
    "the first bad band counts",
    bodyWith({ q: 0 }, { place: 3 }).replace('"freq_hz":1000', '"freq_hz":1'),
    badFrequency,
  ],
  ["a bad band before a bad fade", bodyWith({ q: 0 }, { more: ',"fade_ms":0' }), badQ],
  ["a fade that the record could hold", bodyWith({}, { more: ',"fade_ms":0.5' }), badFade],
  ["a fade too long", bodyWith({}, { more: ',"fade_ms":200.1' }), badFade],
  [
    "a good bypass does not save a bad fade",
    bodyWith({}, { more: ',"bypass":false,"fade_ms":201' }),
    badFade,
  ],
];

test("a refusal names the first fault and leaves the record unchanged", limits, async (t) => {
  const mapping = uniqueMappingName();
  const effect = await startEffect(t, mapping);
  const service = await startService(t, { mapping });
  assert.equal(
    await put(service, JSON.stringify({ bypass: false, fade_ms: 50, bands: someBands() })),
    answers.done,
  );
  await effect.waitForLine("equalizer revision=1 bypass=false fade_ms=50");
  const before = await readRecord(t, mapping);
  assert.equal(before.length, recordBytes);

  for (const [what, body, message] of rejects) {
    await t.test(what, async () => {
      assert.equal(await put(service, body), refusalBytes(400, "Bad Request", message));
      assert.deepEqual(await readRecord(t, mapping), before);
    });
  }
  // A band's own brackets end the array, or leave it without an end; an unclosed band inside needs a bracket more.
  await t.test("a band without its end", async () => {
    const body = '{"bands":[{"type":1]]}';
    assert.equal(await put(service, body), refusalBytes(400, "Bad Request", malformed));
    assert.deepEqual(await readRecord(t, mapping), before);
  });
  await t.test("other methods and paths", async () => {
    for (const method of ["POST", "put"])
      await service.expect(answers.notFound, method, equalizer, bodyWith());
    for (const target of [`${equalizer}/`, equalizer.replace("eq", "%65q")]) {
      await service.expect(answers.notFound, "PUT", target, bodyWith());
    }
    assert.deepEqual(await readRecord(t, mapping), before);
  });
  await t.test("a foreign origin and a missing token", async () => {
    const options = { method: "PUT", target: equalizer, body: bodyWith() };
    const token = ["X-Velmora-Token", service.token];
    const fromElsewhere = [token, ["Origin", "http://evil.example"]];
    await service.expectFor(answers.notLocal, service.requestBytes({ ...options, headers: fromElsewhere }));
    await service.expectFor(answers.noToken, service.requestBytes(options));
    assert.deepEqual(await readRecord(t, mapping), before);
  });
  assert.equal(await put(service, bodyWith()), answers.done, "the next good one is taken");
  await effect.waitForLine("equalizer revision=2 bypass=false fade_ms=50");
  await service.assertAnswers();
});
