// Reading documents of which nothing is certain: a member that is missing or of another type is undefined.

/**
 * @param {unknown} value
 * @returns {Record<string, unknown>} the value if it is an object, else an empty one
 */
export function objectOf(value) {
  return typeof value === "object" && value !== null && !Array.isArray(value)
    ? /** @type {Record<string, unknown>} */ (value)
    : {};
}

/**
 * @param {unknown} value
 * @returns {unknown[]}
 */
export function listOf(value) {
  return Array.isArray(value) ? value : [];
}

/**
 * @param {unknown} value
 * @returns {string[]} the texts in a list
 */
export function textsOf(value) {
  /** @type {string[]} */
  const texts = [];
  for (const one of listOf(value)) if (typeof one === "string") texts.push(one);
  return texts;
}

/**
 * @param {unknown} value
 * @returns {boolean | undefined}
 */
export function flagOf(value) {
  return typeof value === "boolean" ? value : undefined;
}

/**
 * @param {unknown} value
 * @returns {number | undefined} a finite number
 */
export function numberOf(value) {
  return typeof value === "number" && Number.isFinite(value) ? value : undefined;
}

/**
 * @param {unknown} value
 * @returns {string | undefined}
 */
export function textOf(value) {
  return typeof value === "string" ? value : undefined;
}

/**
 * The service's JSON. A number of the shared record may not be finite: it comes as a bare nan, inf or -inf, which
 * becomes that text.
 *
 * @param {string} text
 * @returns {unknown} the document; undefined if the text is not JSON
 */
export function parseDocument(text) {
  const stringsAndNotFinite = /"[^"\\]*(?:\\.[^"\\]*)*"|-?\b(?:nan|inf)\b/g;
  try {
    return JSON.parse(
      text.replace(stringsAndNotFinite, (found) => (found.startsWith('"') ? found : `"${found}"`)),
    );
  } catch {
    return undefined;
  }
}
