// Stands in for the account service: answers each path as it is told, in good order or out of it, and keeps every
// request byte by byte. Texts are bytes (latin1) in both directions.
//
// A reply is an object; what it does not say is as in an ordinary reply:
//   status, reason   200 and 'OK'
//   headers          pairs, ahead of those of the framing
//   body             text
//   framing          'length' (Content-Length), 'chunked', or 'close' (up to the connection's end)
//   contentLength   what Content-Length says, where that is not the truth
//   raw              the whole reply, head and all, in place of everything above
//   hold             a promise: the reply waits for it
//   endless          text that follows the whole reply again and again, until the peer has gone
//   cut              how many bytes of the reply go out
//   drip             { bytes, everyMs }: goes out in such pieces, the first one at once
//   then             what follows the last byte that goes out: 'keep' (the connection waits for another request),
//                    'end' (closed in good order), 'reset', or 'stall' (neither heard nor said anything any more)
import { once } from "node:events";
import net from "node:net";
import tls from "node:tls";
import { Worker } from "node:worker_threads";

function pause(milliseconds) {
  return new Promise((resolve) => setTimeout(resolve, milliseconds));
}

const waitLimitMs = 30_000;
const lookIntervalMs = 5;

const chunkBytes = 5;

function chunked(body) {
  const chunks =
    body.match(new RegExp(`[^]{1,${Math.max(chunkBytes, Math.ceil(body.length / 7))}}`, "g")) ?? [];
  return [...chunks.map((chunk) => `${chunk.length.toString(16)}\r\n${chunk}\r\n`), "0\r\n\r\n"].join("");
}

// The bytes of a reply.
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
export function jsonReply(fields, more = {}) {
  const body = Buffer.from(JSON.stringify(fields)).toString("latin1");
  return { headers: [["Content-Type", "application/json"]], body, ...more };
}

// Takes a whole request off the front of `received`; undefined while there is none.
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
  // With `certificate`, { key, cert } as PEM, it speaks TLS. `atConnection` says how connections begin: 'read', or
  // 'end', 'reset' and 'stall' as above, with nothing read.
  static async start({ port = 0, host = "127.0.0.1", certificate } = {}) {
    const service = new AccountService();
    service.scheme = certificate ? "https" : "http";
    service.host = host;
    service.atConnection = "read";
    service.requests = [];
    service.replies = new Map();
    service.sockets = new Set();
    service.watchers = new Set();
    service.connections = 0;
    service.server = certificate ? tls.createServer(certificate) : net.createServer();
    // A peer that turns away from a certificate is none of a test's failures.
    service.server.on("tlsClientError", () => {});
    service.server.on("connection", (socket) => {
      service.sockets.add(socket);
      socket.on("error", () => {});
      socket.on("close", () => service.sockets.delete(socket));
    });
    service.server.on(certificate ? "secureConnection" : "connection", (socket) => service.#serve(socket));
    service.server.listen({ port, host });
    await once(service.server, "listening");
    service.server.unref();
    service.port = service.server.address().port;
    service.url = `${service.scheme}://${host}:${service.port}`;
    return service;
  }

  // How a path is answered, one reply after the other; the last one stays. A function of the request gives a reply
  // for each.
  answer(path, ...replies) {
    this.replies.set(path, replies);
  }

  requestsTo(path) {
    return this.requests.filter((request) => request.path === path);
  }

  // Resolves to the requests to the path when so many have come in all.
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

  #nextReply(request) {
    const replies = this.replies.get(request.path);
    if (replies === undefined) return { status: 404, reason: "Not Found", body: "no such path" };
    const reply = replies.length > 1 ? replies.shift() : replies[0];
    return typeof reply === "function" ? reply(request) : reply;
  }

  #finish(socket, how) {
    if (how === "end") socket.end();
    // A TLS connection is reset through the one below it.
    if (how === "reset") (socket._parent ?? socket).resetAndDestroy();
    if (how === "stall") socket.pause();
  }

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

  async #goOn(socket, closed, text) {
    const pieceBytes = 16_384;
    const piece = text.repeat(Math.ceil(pieceBytes / text.length));
    while (!socket.destroyed) {
      const taken = new Promise((resolve) => socket.write(piece, "latin1", resolve));
      await Promise.race([taken, closed]);
    }
  }

  async #answer(socket, closed, reply) {
    await reply.hold;
    const whole = replyBytes(reply);
    const bytes = whole.slice(0, reply.cut ?? whole.length);
    const piece = reply.drip?.bytes ?? Math.max(bytes.length, 1);
    for (let at = 0; at < bytes.length && !socket.destroyed; at += piece) {
      if (at > 0) await pause(reply.drip.everyMs);
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
