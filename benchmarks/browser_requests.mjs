// The requests whose cost is counted: with no more headers than the service needs, and as browsers send them.
//
// Chromium's headers are what `node benchmarks/browser_heads.mjs` recorded from Chromium 156 on Linux, with its windowed name
// in place of the headless one. Firefox's are those that it documents for version 128 on Linux, in its order.
import { token } from "./plain_service.mjs";

export const footstepPath = "/api/v1/render/effects/footstep";
export const footstepBody = '{"bypass":false,"enhance_strength":0.5}';

const chromiumName =
  "Mozilla/5.0 (X11; Linux x86_64) AppleWebKit/537.36 (KHTML, like Gecko) Chrome/156.0.0.0 Safari/537.36";
const chromiumBrands = 'sec-ch-ua: "Not:A-Brand";v="8", "Chromium";v="156"';
const firefoxName = "Mozilla/5.0 (X11; Linux x86_64; rv:128.0) Gecko/20100101 Firefox/128.0";

/**
 * @typedef {object} Shape What a request is made of.
 * @property {string} method
 * @property {string} path
 * @property {string} [body]
 * @typedef {(shape: Shape, port: number) => string[]} HeadersOf The header lines behind Host.
 */

/** @param {Shape} shape */
const isPage = (shape) => !shape.path.startsWith("/api/");
/** @param {boolean} wanted @param {string[]} lines */
const onlyIf = (wanted, ...lines) => (wanted ? lines : []);

/** @type {HeadersOf} */
const neededHeaders = (shape) => [
  ...onlyIf(!isPage(shape), `x-velmora-token: ${token}`),
  ...onlyIf(shape.body !== undefined, `Content-Length: ${shape.body?.length}`),
];

/** @type {HeadersOf} */
function chromiumHeaders(shape, port) {
  if (isPage(shape)) {
    return [
      "Connection: keep-alive",
      chromiumBrands,
      "sec-ch-ua-mobile: ?0",
      'sec-ch-ua-platform: "Linux"',
      "Upgrade-Insecure-Requests: 1",
      `User-Agent: ${chromiumName}`,
      "Accept: text/html,application/xhtml+xml,application/xml;q=0.9,image/jxl,image/avif,image/webp,image/apng," +
        "*/*;q=0.8,application/signed-exchange;v=b3;q=0.7",
      "Sec-Fetch-Site: none",
      "Sec-Fetch-Mode: navigate",
      "Sec-Fetch-User: ?1",
      "Sec-Fetch-Dest: document",
      "Accept-Encoding: gzip, deflate, br, zstd",
      "Accept-Language: en-US,en;q=0.9",
    ];
  }
  const sends = shape.body !== undefined;
  return [
    "Connection: keep-alive",
    ...onlyIf(sends, `Content-Length: ${shape.body?.length}`),
    "Pragma: no-cache",
    "Cache-Control: no-cache",
    `x-velmora-token: ${token}`,
    'sec-ch-ua-platform: "Linux"',
    `User-Agent: ${chromiumName}`,
    chromiumBrands,
    ...onlyIf(sends, "Content-Type: text/plain;charset=UTF-8"),
    "sec-ch-ua-mobile: ?0",
    "Accept: */*",
    ...onlyIf(sends, `Origin: http://127.0.0.1:${port}`),
    "Sec-Fetch-Site: same-origin",
    "Sec-Fetch-Mode: cors",
    "Sec-Fetch-Dest: empty",
    `Referer: http://127.0.0.1:${port}/?token=${token}`,
    "Accept-Encoding: gzip, deflate, br, zstd",
    "Accept-Language: en-US,en;q=0.9",
  ];
}

/** @type {HeadersOf} */
function firefoxHeaders(shape, port) {
  if (isPage(shape)) {
    return [
      `User-Agent: ${firefoxName}`,
      "Accept: text/html,application/xhtml+xml,application/xml;q=0.9,image/avif,image/webp,image/png,image/svg+xml," +
        "*/*;q=0.8",
      "Accept-Language: en-US,en;q=0.5",
      "Accept-Encoding: gzip, deflate, br, zstd",
      "Connection: keep-alive",
      "Upgrade-Insecure-Requests: 1",
      "Sec-Fetch-Dest: document",
      "Sec-Fetch-Mode: navigate",
      "Sec-Fetch-Site: none",
      "Sec-Fetch-User: ?1",
      "Priority: u=0, i",
    ];
  }
  const sends = shape.body !== undefined;
  return [
    `User-Agent: ${firefoxName}`,
    "Accept: */*",
    "Accept-Language: en-US,en;q=0.5",
    "Accept-Encoding: gzip, deflate, br, zstd",
    `Referer: http://127.0.0.1:${port}/?token=${token}`,
    `x-velmora-token: ${token}`,
    ...onlyIf(
      sends,
      "Content-Type: text/plain;charset=UTF-8",
      `Content-Length: ${shape.body?.length}`,
      `Origin: http://127.0.0.1:${port}`,
    ),
    "Connection: keep-alive",
    "Sec-Fetch-Dest: empty",
    "Sec-Fetch-Mode: cors",
    "Sec-Fetch-Site: same-origin",
    "Priority: u=4",
    "Pragma: no-cache",
    "Cache-Control: no-cache",
  ];
}

/** Who asks, and with which headers. @type {Record<string, HeadersOf>} */
export const askers = { needed: neededHeaders, Chromium: chromiumHeaders, Firefox: firefoxHeaders };

/** What is asked for. @type {Record<string, Shape>} */
export const shapes = {
  footstep: { method: "PUT", path: footstepPath, body: footstepBody },
  page: { method: "GET", path: "/" },
  script: { method: "GET", path: "/velmora-eq.js" },
  equalizer: { method: "GET", path: "/api/v1/render/effects/eq" },
  status: { method: "GET", path: "/api/v1/status" },
};

/**
 * @param {Shape} shape
 * @param {HeadersOf} headersOf
 * @param {number} port
 * @returns {string} the bytes of the request
 */
export const requestOf = (shape, headersOf, port) =>
  [
    `${shape.method} ${shape.path} HTTP/1.1`,
    `Host: 127.0.0.1:${port}`,
    ...headersOf(shape, port),
    "",
    shape.body ?? "",
  ].join("\r\n");
