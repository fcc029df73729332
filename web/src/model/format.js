// Numbers, times and names as the pages show them. The two languages write numbers alike; units differ.

/** @typedef {import("./types.js").Language} Language */

const unknownText = "–";

/**
 * @param {number} value
 * @param {number} digits behind the point
 */
function fixed(value, digits) {
  const text = value.toFixed(digits);
  return Number(text) === 0 ? text.replace("-", "") : text;
}

/**
 * @param {unknown} value
 * @returns {value is number}
 */
const isNumber = (value) => typeof value === "number" && Number.isFinite(value);

/**
 * @param {unknown} share 0 to 1
 * @returns {string} such as "50 %". What is above 0 never reads 0 %.
 */
export function percent(share) {
  if (!isNumber(share)) return unknownText;
  const rounded = Math.round(share * 100);
  return rounded === 0 && share > 0 ? "< 1 %" : `${rounded === 0 ? 0 : rounded} %`;
}

/**
 * @param {unknown} value
 * @returns {string} such as "+3.5 dB"
 */
export function decibels(value) {
  if (!isNumber(value)) return unknownText;
  const text = fixed(value, 1).replace(/\.0$/, "");
  return `${Number(text) > 0 ? "+" : ""}${text.replace("-", "−")} dB`;
}

/**
 * @param {unknown} value
 * @returns {string} such as "3.5 dB": an amount, without a sign for what is above 0
 */
export const decibelsPlain = (value) => decibels(value).replace("+", "");

/**
 * @param {unknown} value
 * @returns {string} such as "125 Hz" or "1.25 kHz"
 */
export function hertz(value) {
  if (!isNumber(value)) return unknownText;
  if (Math.abs(value) < 999.5) return `${Number(value.toPrecision(3))} Hz`;
  return `${Number((value / 1000).toPrecision(3))} kHz`;
}

/**
 * @param {unknown} value
 * @param {Language} language
 * @returns {string} such as "12 s"
 */
export function seconds(value, language) {
  if (!isNumber(value)) return unknownText;
  return language === "zh" ? `${Math.round(value)} 秒` : `${Math.round(value)} s`;
}

/**
 * @param {unknown} time milliseconds since 1970
 * @returns {string} the local time of day, such as "19:04", in both languages
 */
export function timeOfDay(time) {
  if (!isNumber(time)) return unknownText;
  const date = new Date(time);
  if (Number.isNaN(date.getTime())) return unknownText;
  return [date.getHours(), date.getMinutes()].map((part) => String(part).padStart(2, "0")).join(":");
}

/**
 * @param {unknown} time milliseconds since 1970
 * @param {Language} language
 * @returns {string} the local date and time of day, such as "22 Nov 2026, 19:04"
 */
export function dateTime(time, language) {
  if (!isNumber(time) || Number.isNaN(new Date(time).getTime())) return unknownText;
  const locale = language === "zh" ? "zh-CN" : "en-GB";
  const style = /** @type {const} */ ({ dateStyle: "medium", timeStyle: "short", hourCycle: "h23" });
  return new Intl.DateTimeFormat(locale, style).format(time);
}

/**
 * @param {unknown} value milliseconds, what is left
 * @returns {string} such as "9:58"; never less than 0:00
 */
export function countdown(value) {
  if (!isNumber(value)) return unknownText;
  const whole = Math.max(0, Math.ceil(value / 1000));
  return `${Math.floor(whole / 60)}:${String(whole % 60).padStart(2, "0")}`;
}

const sizeUnits = ["bytes", "KB", "MB", "GB"];
const sizeStep = 1024;

/**
 * @param {unknown} value bytes
 * @param {Language} language
 * @returns {string} such as "115 MB", counted as Windows does: 1 KB is 1024 bytes
 */
export function fileSize(value, language) {
  if (!isNumber(value) || value < 0) return unknownText;
  let [amount, unit] = [value, 0];
  // What would be shown as 1024 of a unit is 1 of the next one.
  while (amount >= sizeStep - 0.5 && unit < sizeUnits.length - 1) {
    amount /= sizeStep;
    ++unit;
  }
  if (unit === 0)
    return language === "zh" ? `${amount} 字节` : `${amount} ${amount === 1 ? "byte" : "bytes"}`;
  return `${amount < 10 ? Number(amount.toFixed(1)) : Math.round(amount)} ${sizeUnits[unit]}`;
}

/**
 * @param {unknown} value seconds
 * @param {Language} language
 * @returns {string} such as "2 h 5 min"
 */
export function duration(value, language) {
  if (!isNumber(value)) return unknownText;
  const minutes = Math.floor(value / 60);
  const [hours, rest] = [Math.floor(minutes / 60), minutes % 60];
  if (language === "zh") return hours > 0 ? `${hours} 小时 ${rest} 分钟` : `${rest} 分钟`;
  return hours > 0 ? `${hours} h ${rest} min` : `${rest} min`;
}

/** So many programs are named; the others are counted. */
const mostNamed = 4;

/**
 * @param {unknown} names
 * @param {Language} language
 * @returns {string} such as "player.exe, browser.exe and 2 more"
 */
export function list(names, language) {
  if (!Array.isArray(names)) return unknownText;
  const named = names.slice(0, mostNamed).map((name) => plainName(String(name)));
  const more = names.length - named.length;
  const text = named.join(language === "zh" ? "、" : ", ");
  if (more <= 0) return text;
  return language === "zh" ? `${text}等 ${names.length} 个程序` : `${text} and ${more} more`;
}

const longestName = 80;
const control = /[\p{Cc}\u2028\u2029]+/gu;
const directional = /[\u0590-\u08ff\u200e\u200f\u202a-\u202e\u2066-\u2069\ufb1d-\ufdff\ufe70-\ufefc]/u;
const overrides = /[\u200e\u200f\u202a-\u202e\u2066-\u2069]/gu;

/**
 * A name of the machine's, to stand within a sentence: on one line, of a bearable length, and without reordering the
 * text around it.
 *
 * @param {string} name
 * @returns {string}
 */
export function plainName(name) {
  const line = name.replace(control, " ").trim();
  const letters = [...line];
  const short = letters.length > longestName ? `${letters.slice(0, longestName - 1).join("")}…` : line;
  return directional.test(short) ? `\u2068${short.replace(overrides, "")}\u2069` : short;
}

/**
 * The name of a device without what Windows adds in parentheses, unless two devices would then be called alike.
 *
 * @param {string} name
 * @param {string[]} all names of the devices of its kind
 * @returns {string} empty for no name
 */
export function shortDeviceName(name, all) {
  const cut = (/** @type {string} */ text) => text.replace(/\s*\([^()]*\)\s*$/u, "") || text;
  const short = cut(name);
  const isShared = all.filter((other) => cut(other) === short).length > 1;
  return plainName(isShared ? name : short);
}
