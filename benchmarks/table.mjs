// Prints the table at the end of ./bench: node benchmarks/table.mjs ROWS
//
// Each line of the file ROWS is one row, as benchmarks/result_rows.h writes it: part, row, ours, peer, ratio, control,
// aim and verdict, separated by tabs.
import fs from "node:fs";

const heads = ["row", "ours", "peer", "ratio", "control", "aim", "verdict"];
const leftColumns = new Set([0, 6]);
const noise = "noise";

const rows = fs
  .readFileSync(process.argv[2], "utf8")
  .split("\n")
  .filter((line) => line !== "")
  .map((line) => line.split("\t"));
const widths = heads.map((head, column) =>
  Math.max(head.length, ...rows.map((cells) => cells[column + 1].length)),
);

/** @param {string[]} cells */
const lineOf = (cells) =>
  cells
    .map((cell, column) =>
      leftColumns.has(column) ? cell.padEnd(widths[column]) : cell.padStart(widths[column]),
    )
    .join("  ")
    .trimEnd();

console.log(lineOf(heads));
let part = "";
for (const [ofPart, ...cells] of rows) {
  if (ofPart !== part) console.log(`\n${ofPart}`);
  part = ofPart;
  console.log(lineOf(cells));
}

/** @param {string} verdict */
const count = (verdict) => rows.filter((cells) => cells[7] === verdict).length;
console.log(`\n${count("met")} met, ${count("missed")} missed, ${count(noise)} noise`);
if (count(noise) > 0) {
  console.log("The control says that the rows marked noise say nothing: run again on a quieter machine.");
}
