// The rows of the table at the end of ./bench, as benchmarks/result_rows.h writes them.
import fs from "node:fs";

/** @typedef {{ part: string, name: string, ours: string, peer?: string, ratio: string, aim?: string, isMet?: boolean }} ResultRow */

/**
 * Appends a line to the file that VELMORA_BENCH_ROWS names. Does nothing without that variable. A row whose `isMet` is
 * missing has no aim.
 * @param {ResultRow} row
 */
export function addResultRow({ part, name, ours, peer = "-", ratio, aim = "-", isMet }) {
  const file = process.env.VELMORA_BENCH_ROWS;
  if (!file) return;
  const verdict = isMet === undefined ? "-" : isMet ? "met" : "missed";
  fs.appendFileSync(file, `${[part, name, ours, peer, ratio, "-", aim, verdict].join("\t")}\n`);
}
