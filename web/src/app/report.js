// What a person copies to report a fault: the verdict and the documents that it rests on.
import { objectOf } from "../model/read.js";

/**
 * @param {{seen: import("../model/types.js").Observation, action: import("../model/types.js").Action | null,
 *   kept: import("../model/types.js").Kept}} state
 * @param {import("../model/types.js").Verdict} verdict
 * @param {import("../model/types.js").Link} link
 * @returns {string} without the session token; the account's identity is left out
 */
export function reportText({ seen, action, kept }, verdict, link) {
  const status = { ...objectOf(seen.now), session: undefined };
  const report = {
    time: new Date().toISOString(),
    browser: navigator.userAgent,
    verdict: verdict.id,
    link,
    action,
    engine_before: kept.engine,
    restart_pending: kept.restartPending,
    status,
    devices: seen.devices,
    equalizer: seen.equalizer,
  };
  return JSON.stringify(report, null, 2);
}
