// The test account service: answers each path as the test says, well-formed or not, and keeps every
// request byte by byte. Texts are bytes (latin1) in both directions.
//
import { once } from "node:events";
import net from "node:net";
import tls from "node:tls";
import { Worker } from "node:worker_threads";

/**
 * @typedef {net.Socket} Socket
 * @typedef {object} Reply What a reply leaves out is as in an ordinary one.
 * @property {number} [status] by default 200
 * @property {string} [reason]
 * @property {string[][]} [headers] pairs; they come ahead of those of the framing
 * @property {string} [body]
 * @property {string} [framing] "length" (Content-Length), "chunked", or "close" (up to the connection's end)
 * @property {string | number} [contentLength] the value of Content-Length, where that is not the truth
 * @property {string} [raw] the whole reply, head and all, in place of everything above
 * @property {Promise<unknown>} [hold] the reply waits for it
 * @property {string} [endless] follows the whole reply again and again, until the peer has gone
 * @property {number} [cut] how many bytes of the reply go out
 * @property {{ bytes: number, everyMs: number }} [drip] goes out in such pieces, the first one at once
 * @property {string} [then] what follows the last byte: "keep" (the connection waits for another request), "end"
 *   (closed in good order), "reset", or "stall" (nothing is read or sent any more)
 * @typedef {NonNullable<ReturnType<typeof takeRequest>>} Request
 * @typedef {{ key: string, cert: string }} Certificate PEM
 * @typedef {{ port?: number, host?: string, certificate?: Certificate }} AccountOptions
 */

/** @param {number} milliseconds */
function pause(milliseconds) {
  return new Promise((resolve) => setTimeout(resolve, milliseconds));
}

const waitLimitMs = 30_000;
const lookIntervalMs = 5;

const chunkBytes = 5;

/** @param {string} body */
function chunked(body) {
  const chunks =
    body.match(new RegExp(`[^]{1,${Math.max(chunkBytes, Math.ceil(body.length / 7))}}`, "g")) ?? [];
  return [...chunks.map((chunk) => `${chunk.length.toString(16)}\r\n${chunk}\r\n`), "0\r\n\r\n"].join("");
}

// The bytes of a reply.
/** @param {Reply} reply */
export function replyBytes({
  status = 200,
  reason = "OK",
  headers = [],
  body = "",
  framing = "length",
  contentLength,
  raw,
}) {
  if (raw !== undefined) return raw;
  const lines = [`HTTP/1.1 ${status} ${reason}`, ...headers.map(([name, value]) => `${name}: ${value}`)];
  if (framing === "length") lines.push(`Content-Length: ${contentLength ?? body.length}`);
  if (framing === "chunked") lines.push("Transfer-Encoding: chunked");
  return `${lines.join("\r\n")}\r\n\r\n${framing === "chunked" ? chunked(body) : body}`;
}

// A reply with a JSON body.
/** @param {object} fields @param {Reply} more @returns {Reply} */
export function jsonReply(fields, more = {}) {
  const body = Buffer.from(JSON.stringify(fields)).toString("latin1");
  return { headers: [["Content-Type", "application/json"]], body, ...more };
}

// Takes a whole request off the front of `received`; undefined while there is none.
/** @param {{ number: number, received: string }} connection */
function takeRequest(connection) {
  const headEnd = connection.received.indexOf("\r\n\r\n");
  if (headEnd < 0) return undefined;
  const head = connection.received.slice(0, headEnd + 4);
  const length = Number(/\r\ncontent-length: *([0-9]+)\r\n/i.exec(head)?.[1] ?? 0);
  if (connection.received.length < head.length + length) return undefined;
  const body = connection.received.slice(head.length, head.length + length);
  connection.received = connection.received.slice(head.length + length);
  const [method, target] = head.split(" ", 2);
  return {
    method,
    target,
    path: target.split("?")[0],
    head,
    body,
    connection: connection.number,
    atMs: Date.now(),
  };
}

export class AccountService {
  url = "";
  port = 0;
  // How connections begin: "read", or "end", "reset" and "stall" as in a reply, with nothing read.
  atConnection = "read";
  connections = 0;
  /** @type {Request[]} */
  requests = [];
  /** @type {Map<string, (Reply | ((request: Request) => Reply | Promise<Reply>))[]>} */
  replies = new Map();
  /** @type {Set<Socket>} */
  sockets = new Set();
  /** @type {((request: Request) => void) | undefined} */
  onRequest;

  /** @param {net.Server} server */
  constructor(server) {
    this.server = server;
  }

  // With `certificate` it speaks TLS.
  /** @param {AccountOptions} options */
  static async start({ port = 0, host = "127.0.0.1", certificate } = {}) {
    const service = new AccountService(certificate ? tls.createServer(certificate) : net.createServer());
    // A peer that turns away from a certificate is none of a test's failures.
    service.server.on("tlsClientError", () => {});
    service.server.on("connection", (/** @type {Socket} */ socket) => {
      service.sockets.add(socket);
      socket.on("error", () => {});
      socket.on("close", () => service.sockets.delete(socket));
    });
    const event = certificate ? "secureConnection" : "connection";
    service.server.on(event, (/** @type {Socket} */ socket) => service.#serve(socket));
    service.server.listen({ port, host });
    await once(service.server, "listening");
    service.server.unref();
    service.port = /** @type {net.AddressInfo} */ (service.server.address()).port;
    service.url = `${certificate ? "https" : "http"}://${host}:${service.port}`;
    return service;
  }

  // How a path is answered, one reply after the other; the last one stays. A function of the request gives a reply
  // for each.
  /** @param {string} path @param {(Reply | ((request: Request) => Reply | Promise<Reply>))[]} replies */
  answer(path, ...replies) {
    this.replies.set(path, replies);
  }

  /** @param {string} path */
  requestsTo(path) {
    return this.requests.filter((request) => request.path === path);
  }

  // Resolves to the requests to the path when so many have come in all.
  /** @param {string} path @param {number} count */
  async waitForRequests(path, count) {
    const deadline = Date.now() + waitLimitMs;
    for (;;) {
      const seen = this.requestsTo(path);
      if (seen.length >= count) return seen;
      if (Date.now() > deadline) throw new Error(`${seen.length} of ${count} requests came to ${path}`);
      await pause(lookIntervalMs);
    }
  }

  async close() {
    this.server.close();
    for (const socket of this.sockets) socket.destroy();
  }

  /** @param {Request} request */
  #nextReply(request) {
    const replies = this.replies.get(request.path);
    if (replies === undefined) return { status: 404, reason: "Not Found", body: "no such path" };
    const reply = replies[0];
    if (replies.length > 1) replies.shift();
    return typeof reply === "function" ? reply(request) : reply;
  }

  /** @param {Socket} socket @param {string} how */
  #finish(socket, how) {
    if (how === "end") socket.end();
    // A TLS connection is reset through the one below it.
    /** @type {{ _parent?: Socket }} */
    const { _parent: below } = /** @type {any} */ (socket);
    if (how === "reset") (below ?? socket).resetAndDestroy();
    if (how === "stall") socket.pause();
  }

  /** @param {Socket} socket */
  async #serve(socket) {
    const connection = { number: ++this.connections, received: "" };
    socket.on("error", () => {});
    socket.setNoDelay(true);
    if (this.atConnection !== "read") return this.#finish(socket, this.atConnection);
    const closed = new Promise((resolve) => socket.once("close", resolve));
    let isBusy = false;
    const answerAll = async () => {
      if (isBusy) return;
      isBusy = true;
      for (let request = takeRequest(connection); request; request = takeRequest(connection)) {
        this.requests.push(request);
        this.onRequest?.(request);
        await this.#answer(socket, closed, await this.#nextReply(request));
      }
      isBusy = false;
    };
    socket.setEncoding("latin1");
    socket.on("data", (text) => {
      connection.received += text;
      answerAll();
    });
  }

  /** @param {Socket} socket @param {Promise<unknown>} closed @param {string} text */
  async #goOn(socket, closed, text) {
    const pieceBytes = 16_384;
    const piece = text.repeat(Math.ceil(pieceBytes / text.length));
    while (!socket.destroyed) {
      const taken = new Promise((resolve) => socket.write(piece, "latin1", resolve));
      await Promise.race([taken, closed]);
    }
  }

  /** @param {Socket} socket @param {Promise<unknown>} closed @param {Reply} reply */
  async #answer(socket, closed, reply) {
    await reply.hold;
    const whole = replyBytes(reply);
    const bytes = whole.slice(0, reply.cut ?? whole.length);
    const piece = reply.drip?.bytes ?? Math.max(bytes.length, 1);
    for (let at = 0; at < bytes.length && !socket.destroyed; at += piece) {
      if (at > 0) await pause(reply.drip?.everyMs ?? 0);
      const taken = new Promise((resolve) => socket.write(bytes.slice(at, at + piece), "latin1", resolve));
      await Promise.race([taken, closed]);
    }
    if (reply.endless !== undefined) await this.#goOn(socket, closed, reply.endless);
    this.#finish(socket, reply.then ?? (reply.framing === "close" ? "end" : "keep"));
  }
}

// A port that nobody accepts from, with its queue full: a connection to it is neither made nor refused. Resolves to
// its number and `close`.
export async function startDeafPort(host = "127.0.0.1") {
  const source = `
    const { parentPort, workerData } = require('node:worker_threads');
    const server = require('node:net').createServer();
    server.listen({ port: 0, host: workerData, backlog: 1 }, () => {
      parentPort.postMessage(server.address().port);
      setImmediate(() => Atomics.wait(new Int32Array(new SharedArrayBuffer(4)), 0, 0));
    });`;
  const worker = new Worker(source, { eval: true, workerData: host });
  const [port] = await once(worker, "message");
  /** @type {Socket[]} */
  const fillers = [];
  const close = async () => {
    for (const filler of fillers) filler.destroy();
    await worker.terminate();
  };
  const waitMs = 500;
  for (let count = 0; count < 64; ++count) {
    const filler = net.connect({ port, host });
    filler.on("error", () => {});
    fillers.push(filler);
    const connected = await Promise.race([once(filler, "connect").then(() => true), pause(waitMs)]);
    if (connected !== true) return { port, close };
  }
  await close();
  throw new Error("the queue of a port never filled");
}
