// Counts what one element of a large machine costs at its full size and at a quarter of it, in instructions, which do
// not depend on the load: node benchmarks/size_counts.mjs PROGRAM. PROGRAM is velmora_size_bench.
//
// valgrind counts a run that makes the machine and sends a request several times, and one that only makes the machine.
import { spawnSync } from "node:child_process";

import { addResultRow } from "./result_rows.mjs";

const [program] = process.argv.slice(2);
const requests = {
  devices: "list of devices",
  status: "status",
  presets: "list of presets",
  bind: "bind and unbind",
};
const aim = 1.1;

/** @param {number} scale @param {string} request */
function count(scale, request) {
  const valgrind = [
    "--tool=callgrind",
    "--callgrind-out-file=/dev/null",
    program,
    "1",
    String(scale),
    request,
  ];
  const { stdout, stderr } = spawnSync("valgrind", valgrind, { encoding: "utf8" });
  const instructions = Number(/Collected : (\d+)/.exec(stderr)?.[1]);
  if (!(instructions > 0)) throw new Error(`valgrind counted nothing: ${stderr}`);
  const [elements, sent] = /(\d+) elements, (\d+) requests/.exec(stdout)?.slice(1).map(Number) ?? [1, 1];
  return { instructions, elements, sent };
}

const scales = [0.25, 1];
const makings = scales.map((scale) => count(scale, "none").instructions);
for (const [request, name] of Object.entries(requests)) {
  const [quarter, full] = scales.map((scale, index) => {
    const { instructions, elements, sent } = count(scale, request);
    return (instructions - makings[index]) / sent / elements;
  });
  const ratio = full / quarter;
  console.log(
    `${name}: ${full.toFixed(0)} instructions each, at a quarter ${quarter.toFixed(0)}: ${ratio.toFixed(3)}`,
  );
  addResultRow({
    part: "size, instructions",
    name: `${name}, each`,
    ours: `${full.toFixed(0)} instr.`,
    peer: `${quarter.toFixed(0)} instr.`,
    ratio: ratio.toFixed(3),
    aim: `<= ${aim.toFixed(2)}`,
    isMet: ratio <= aim,
  });
}
