// The service's rules for a setting, written without the pages' code: what each value may be, and what is kept of it.

const ranges = /** @type {const} */ ([
  ["type", 0, 8],
  ["freq_hz", 20, 20000],
  ["gain_db", -30, 30],
  ["q", 0.1, 18],
]);

/**
 * @param {unknown} value
 * @param {number} low
 * @param {number} high
 */
const isWithin = (value, low, high) =>
  typeof value === "number" && value >= low && value <= high && Math.fround(value) <= high;

/**
 * @param {any} setting
 * @returns {string[]} what the service would refuse or change; empty for none
 */
export function brokenRules(setting) {
  const broken = [];
  if (typeof setting.bypass !== "boolean") broken.push("bypass");
  if (!isWithin(setting.fade_ms, 1, 200)) broken.push("fade_ms");
  if (Number(setting.fade_ms.toFixed(1)) !== setting.fade_ms) broken.push("fade_ms is not in tenths");
  if (!Array.isArray(setting.bands) || setting.bands.length !== 15) return [...broken, "bands"];
  setting.bands.forEach((/** @type {any} */ band, /** @type {number} */ index) => {
    for (const [name, low, high] of ranges) {
      const value = band[name];
      if (!isWithin(value, low, high)) broken.push(`${name} of ${index}: ${value}`);
      else if (Number(Math.fround(value).toPrecision(6)) !== value || Object.is(value, -0))
        broken.push(`digits of ${value}`);
    }
    if (!Number.isInteger(band.type)) broken.push(`type of ${index}: ${band.type}`);
    if (Object.keys(band).length !== ranges.length) broken.push(`members of ${index}`);
  });
  return broken;
}
