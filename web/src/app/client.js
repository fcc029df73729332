// Carries out what the client queue decides: sends requests, sets the one timer and hands answers to who asked.
import { newQueue, step } from "../model/client_queue.js";
import { objectOf, parseDocument, textOf } from "../model/read.js";

/**
 * @typedef {import("../model/client_queue.js").Request} Request
 * @typedef {import("../model/client_queue.js").QueueEvent} QueueEvent
 *
 * @typedef {object} Answer
 * @property {number} status of HTTP; 0: no answer came, or a newer request took the place of this one
 * @property {boolean} ok
 * @property {boolean} dropped
 * @property {string} error the service's error text; empty for none
 * @property {unknown} document the answer's JSON; undefined where it is none
 *
 * @typedef {object} Reading how an answer is read
 * @property {(response: Response) => Promise<void>} [read] takes the body of an answer that is no refusal, in place of
 *   its document; the request ends when this does. It must not reject
 * @property {AbortSignal} [signal] ends the request early
 *
 * @typedef {Omit<Request, "id"> & Reading} Question
 *
 * @typedef {object} Client
 * @property {(question: Question) => Promise<Answer>} ask never rejects
 * @property {(event: QueueEvent) => void} tell
 * @property {() => import("../model/types.js").Link} link
 * @property {() => boolean} isBusy whether a request is in flight or waits
 */

/** @type {Answer} */
const noAnswer = { status: 0, ok: false, dropped: false, error: "", document: undefined };

/**
 * @param {Response} response
 * @param {Reading["read"]} read
 * @returns {Promise<Answer>}
 */
async function readAnswer(response, read) {
  const { ok, status } = response;
  if (read !== undefined && ok) {
    await read(response);
    return { ...noAnswer, status, ok };
  }
  const document = parseDocument(await response.text());
  const error = ok ? "" : (textOf(objectOf(document).error) ?? "");
  return { ...noAnswer, status, ok, error, document };
}

/**
 * @param {object} surroundings
 * @param {string} surroundings.token empty for none
 * @param {(kind: "status" | "devices" | "equalizer", document: unknown, time: number) => void} surroundings.onLook
 * @param {() => void} surroundings.onForget what was seen so far says nothing about the present
 * @param {() => void} surroundings.onChange the link may have changed
 * @returns {Client}
 */
export function createClient({ token, onLook, onForget, onChange }) {
  let queue = newQueue(Date.now(), token !== "");
  let nextId = 1;
  /** @type {ReturnType<typeof setTimeout> | undefined} */
  let timer;
  /** @type {Map<number, {settle: (answer: Answer) => void, reading: Reading}>} */
  const asked = new Map();

  /** @param {QueueEvent} event */
  function tell(event) {
    const { queue: next, effects } = step(queue, event, Date.now());
    queue = next;
    for (const effect of effects) {
      if (effect.type === "send") send(effect.request);
      else if (effect.type === "dropped") settle(effect.request.id, { ...noAnswer, dropped: true });
      else if (effect.type === "forgetLooks") onForget();
      else wake(effect.at);
    }
    onChange();
  }

  /** @param {number} at */
  function wake(at) {
    clearTimeout(timer);
    timer = setTimeout(() => tell({ type: "tick" }), Math.max(0, at - Date.now()));
  }

  /**
   * @param {number} id
   * @param {Answer} answer
   */
  function settle(id, answer) {
    asked.get(id)?.settle(answer);
    asked.delete(id);
  }

  /** @param {Request} request */
  async function send(request) {
    const { id, method, path, body, look } = request;
    const { read, signal } = asked.get(id)?.reading ?? {};
    let answer = noAnswer;
    try {
      const response = await fetch(path, {
        method,
        headers: { "x-velmora-token": token },
        body: body === undefined ? undefined : JSON.stringify(body),
        cache: "no-store",
        signal,
      });
      answer = await readAnswer(response, read);
    } catch {
      // Nobody listens, or the connection broke. The queue decides what that means.
    }
    if (look !== undefined && answer.ok) onLook(look, answer.document, Date.now());
    // Who asked comes first, so that what follows from the answer is asked ahead of the next look.
    settle(id, answer);
    await Promise.resolve();
    const { status, error } = answer;
    tell(status === 0 ? { type: "failed", id } : { type: "answer", id, status, error });
  }

  return {
    tell,
    link: () => queue.link,
    isBusy: () => queue.flight !== null || queue.waiting.length > 0,
    ask({ read, signal, ...question }) {
      const id = nextId++;
      return new Promise((resolve) => {
        asked.set(id, { settle: resolve, reading: { read, signal } });
        tell({ type: "ask", request: { ...question, id } });
      });
    },
  };
}
