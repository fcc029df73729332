// How long an import takes: node benchmarks/import.mjs
//
// Reads texts of 1 MiB of many shapes, the longest that the page takes, and prints the median time and the counted steps per
// character; and how long a graphic curve takes to fit.
import { readImport } from "../web/src/model/import/read.js";
import { shapes } from "../tests/web/import_shapes.mjs";

const size = 1 << 20;
const rounds = 5;

/** @param {number[]} values */
const median = (values) => [...values].sort((one, other) => one - other)[values.length >> 1];

/** @param {() => void} work */
function medianMs(work) {
  const times = Array.from({ length: rounds }, () => {
    const start = performance.now();
    work();
    return performance.now() - start;
  });
  return median(times).toFixed(0).padStart(6);
}

const noFit = () => ({ bands: [], maximumDb: 0, rmsDb: 0 });

console.log("1 MiB of                    ms   steps per character");
for (const { name, make } of shapes) {
  const text = make(size);
  const counter = { steps: 0 };
  readImport(text, counter, { fit: noFit });
  const time = medianMs(() => readImport(text, { steps: 0 }, { fit: noFit }));
  console.log(`${name.padEnd(24)}${time}   ${(counter.steps / text.length).toFixed(2)}`);
}

const points = Array.from({ length: 127 }, (_, at) => `${(20 * 1000 ** (at / 126)).toFixed(1)} ${at % 7}`);
const curve = `GraphicEQ: ${points.join("; ")}`;
console.log(`${"a curve of 127 points".padEnd(24)}${medianMs(() => readImport(curve))}`);
