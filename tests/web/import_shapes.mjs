// Texts to import of any length, many of them made to be hard to read: about as long as asked for.

/**
 * @param {string} part
 * @param {number} length
 */
const repeatTo = (part, length) => part.repeat(Math.ceil(length / part.length)).slice(0, length);

/** @type {[string, (length: number) => string][]} */
const rows = [
  ["good filters", (length) => repeatTo("Filter 1: ON PK Fc 105 Hz Gain 3.5 dB Q 0.7\n", length)],
  ["bad lines", (length) => repeatTo("x\n", length)],
  ["line ends", (length) => repeatTo("\r\n\n\r", length)],
  ["blanks", (length) => repeatTo(" ", length)],
  ["one word", (length) => repeatTo("x", length)],
  ["colons", (length) => repeatTo(":", length)],
  ["one long number", (length) => `Filter 1: ON PK Fc ${repeatTo("1", length)}`],
  ["words behind a filter", (length) => `Filter 1: ON PK Fc 1 ${repeatTo("1 ", length)}`],
  ["many fields", (length) => `Filter 1: ON PK ${repeatTo("Fc 100 Hz Gain 1 dB Q 1 ", length)}`],
  ["commas", (length) => `Filter 1: ON PK Fc ${repeatTo(",", length)}`],
  ["a long filter number", (length) => `Filter ${repeatTo("1", length)}: ON PK`],
  ["wide characters", (length) => `Filter 1：${repeatTo("１，", length)}`],
  ["preamps", (length) => repeatTo("Preamp: -1 dB\n", length)],
  ["pairs", (length) => `GraphicEQ: ${repeatTo("100 1; 200,5 -1; ", length)}`],
  ["bad pairs", (length) => `GraphicEQ: ${repeatTo("x;", length)}`],
  ["separators", (length) => `GraphicEQ: ${repeatTo(";", length)}`],
  ["graphic lines", (length) => repeatTo("GraphicEQ: 1 1\n", length)],
  ["brackets", (length) => repeatTo("[", length)],
  ["braces in braces", (length) => repeatTo('{"bands":[', length)],
  ["JSON numbers", (length) => `[${repeatTo("1,", length)}1]`],
  ["a JSON number", (length) => `[${repeatTo("1", length)}]`],
  ["a JSON text", (length) => `{"${repeatTo("\\u0041", length - (length % 6))}":1}`],
  ["an open JSON text", (length) => `{"${repeatTo("\\", length)}`],
  ["JSON members", (length) => `{${repeatTo('"bands":[],', length - (length % 11))}"bypass":true}`],
  ["bands", (length) => `{"bands":[${repeatTo('{"type":0},', length - (length % 11))}{}]}`],
  ["JSON that ends badly", (length) => `{"bands":[\n${repeatTo('{"type":0},\n', length)}`],
];

export const shapes = rows.map(([name, make]) => ({ name, make }));
