// How the pages are drawn: the rendering library with HTML in template strings.
import htm from "htm";
import { h } from "preact";

export { Fragment, render } from "preact";
export { useEffect, useLayoutEffect, useRef, useState } from "preact/hooks";

/** @type {(strings: TemplateStringsArray, ...values: unknown[]) => Children} */
export const html = /** @type {any} */ (htm).bind(h);

/** @typedef {import("preact").ComponentChildren} Children */
/** @typedef {(key: string, values?: Record<string, unknown>) => string} Translate a text of the page's language */
