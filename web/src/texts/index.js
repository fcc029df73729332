// Texts by key, in the page's language.
//
// A placeholder is {name} or {name:form}. Forms: percent, decibels, decibelsPlain, hertz, seconds, duration, time,
// size, dateTime, countdown, list. Without a form a value is shown as it is; one that is a sentence itself, { key, values },
// is put into the same language.
import * as format from "../model/format.js";
import { en } from "./en.js";
import { helpEn } from "./help_en.js";
import { helpZh } from "./help_zh.js";
import { zh } from "./zh.js";

/**
 * @typedef {import("../model/types.js").Language} Language
 * @typedef {import("../model/types.js").Values} Values
 */

/** @type {Record<Language, Record<string, string>>} */
export const tables = { en: { ...en, ...helpEn }, zh: { ...zh, ...helpZh } };

/** @type {Record<string, (value: unknown, language: Language) => string>} */
const forms = {
  percent: format.percent,
  decibels: format.decibels,
  decibelsPlain: format.decibelsPlain,
  hertz: format.hertz,
  seconds: format.seconds,
  duration: format.duration,
  time: format.timeOfDay,
  size: format.fileSize,
  dateTime: format.dateTime,
  countdown: format.countdown,
  list: format.list,
};

const placeholder = /\{(?<name>[a-zA-Z]+)(?::(?<form>[a-zA-Z]+))?\}/g;
// Names end in brackets, too: "Speakers (USB)". All visible ASCII is half-width.
const latinEdge = { start: /^[\p{Script=Latin}\p{Nd}!-~]/u, end: /[\p{Script=Latin}\p{Nd}!-~]$/u };
const chineseEdge = { start: /^\p{Script=Han}/u, end: /\p{Script=Han}$/u };

/**
 * @param {unknown} value
 * @param {string} form
 * @param {Language} language
 * @returns {string}
 */
function shown(value, form, language) {
  if (form !== "" && Object.hasOwn(forms, form)) return forms[form](value, language);
  if (typeof value === "object" && value !== null && "key" in value) {
    const { key, values } = /** @type {import("../model/types.js").Sentence} */ (value);
    return say(language, key, values);
  }
  if (Array.isArray(value)) return format.list(value, language);
  return value === undefined || value === null ? "" : String(value);
}

/**
 * Chinese keeps a blank between its characters and half-width ones: Latin letters, digits and ASCII marks.
 *
 * @param {string} text
 * @param {string} before
 * @param {string} after
 */
function spaced(text, before, after) {
  const first = chineseEdge.end.test(before) && latinEdge.start.test(text) ? " " : "";
  const last = chineseEdge.start.test(after) && latinEdge.end.test(text) ? " " : "";
  return `${first}${text}${last}`;
}

/**
 * The text of a key.
 *
 * @param {Language} language
 * @param {string} key
 * @param {Values} [values]
 * @returns {string} the key itself if the tables have no such text
 */
export function say(language, key, values = {}) {
  if (!Object.hasOwn(tables[language], key)) return key;
  const template = tables[language][key];
  return template.replace(placeholder, (whole, name, form = "", at = 0) => {
    const text = shown(Object.hasOwn(values, name) ? values[name] : undefined, form, language);
    return language === "zh" ? spaced(text, template.slice(0, at), template.slice(at + whole.length)) : text;
  });
}

/**
 * A sentence of the verdict, a reason or a check.
 *
 * @param {Language} language
 * @param {import("../model/types.js").Sentence} sentence
 */
export const saySentence = (language, { key, values }) => say(language, key, values);

/**
 * The language of a page: the person's choice, else the first of the browser's that the pages have, else English.
 *
 * @param {readonly string[]} languages as navigator.languages gives them
 * @param {Language | null} chosen
 * @returns {Language}
 */
export function chooseLanguage(languages, chosen) {
  if (chosen !== null) return chosen;
  for (const one of languages) {
    const language = String(one).toLowerCase().split("-")[0];
    if (language === "zh" || language === "en") return language;
  }
  return "en";
}

/**
 * @param {Language} language
 * @returns {string} for the attribute `lang`
 */
export const languageTag = (language) => (language === "zh" ? "zh-CN" : "en");
