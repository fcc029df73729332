// The algorithm's values: ranges, first values, and what a reset takes back.
import assert from "node:assert/strict";
import test from "node:test";

import {
  algorithmValues,
  changedValues,
  fadeFirst,
  firstValues,
  numberSettings,
} from "../../web/src/model/processing.js";
import { tables } from "../../web/src/texts/index.js";

const settings = Object.values(numberSettings);

test("a new record's values are within the ranges", () => {
  for (const { key, first, minimum, maximum } of settings) {
    assert.equal(firstValues[key], first, key);
    assert.ok(minimum <= first && first <= maximum, key);
  }
  assert.equal(fadeFirst, 20);
});

test("the ranges are those that the service's refusals name", () => {
  const texts = {
    output_trim_db: "service.outputTrim",
    mask_time_alpha: "service.maskTime",
    limiter_ceiling_db: "service.limiterCeiling",
  };
  for (const { key, minimum, maximum } of settings) {
    assert.ok(tables.en[texts[key]].includes(`between ${minimum} and ${maximum}`), key);
  }
});

test("a step of the record shows with the digits that tell it from the next one", () => {
  const { format } = numberSettings.time;
  const steps = Array.from({ length: 243 }, (_, step) => format(Number((step / 255).toPrecision(6))));
  assert.equal(new Set(steps).size, steps.length);
  assert.equal(format(0.501961), "0.502");
  assert.equal(format(0), "0");
  assert.equal(numberSettings.trim.format(-3.3), "-3.3 dB");
});

test("the values are read from the status document, and what is none is left out", () => {
  const footstep = { ...firstValues, stereo_link: "2", mask_time_alpha: null, bypass: true };
  const values = algorithmValues({ footstep });
  assert.deepEqual(values, {
    output_trim_db: 0,
    mask_frequency_smooth: 0,
    limiter_enabled: true,
    limiter_ceiling_db: -1,
  });
  for (const status of [null, undefined, {}, { footstep: 3 }]) assert.deepEqual(algorithmValues(status), {});
});

test("what differs from a new record is what a reset takes away", () => {
  assert.deepEqual(changedValues({ ...firstValues }), {});
  assert.deepEqual(changedValues({ ...firstValues, limiter_enabled: false, stereo_link: 0 }), {
    limiter_enabled: false,
    stereo_link: 0,
  });
  assert.deepEqual(changedValues({}), {});
});
