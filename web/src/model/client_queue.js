// When the page asks the service for what. The service runs one exchange after another, so the page has one request in
// flight; what the person does goes ahead of the page's own looks.
//
// Everything is one pure function: step(queue, event, time) gives the next queue and the effects to carry out. The
// caller sends, sets one timer, and reports what happens.

/**
 * @typedef {import("./types.js").Link} Link
 *
 * @typedef {object} Request
 * @property {number} id given by the queue's caller; unique
 * @property {"GET" | "PUT" | "POST" | "DELETE"} method
 * @property {string} path
 * @property {unknown} [body]
 * @property {string} [control] a newer request of the same control replaces one that waits
 * @property {boolean} [barrier] what is asked for later is not moved ahead of it: a choice of a device, an add
 * @property {boolean} [slow] may take long by itself: an add, a restart, the account; the link does not count as waiting
 * @property {"status" | "devices" | "equalizer"} [look] the page's own look
 *
 * @typedef {object} Queue
 * @property {{request: Request, sentAt: number} | null} flight
 * @property {Request[]} waiting in the order in which they are sent
 * @property {Link} link
 * @property {boolean} hidden
 * @property {boolean} unfolded the meters are in view
 * @property {boolean} equalizerMatters the verdict depends on the equalizer's setting
 * @property {Record<"status" | "devices" | "equalizer", number>} looks how many have been answered since the first look
 *   began
 * @property {boolean} begun the first looks were complete once since the page was shown or the link came back
 * @property {number} firstStatusAt
 * @property {number} turn counts the looks
 * @property {number} nextLookAt
 * @property {number} plannedLookAt when it was due before actions put it off
 * @property {number} failures network failures in a row
 * @property {number} nextId for the page's own looks, below 0
 *
 * @typedef {{type: "ask", request: Request}
 *   | {type: "answer", id: number, status: number, error?: string}
 *   | {type: "failed", id: number}
 *   | {type: "tick"}
 *   | {type: "hidden"}
 *   | {type: "visible"}
 *   | {type: "unfolded", unfolded: boolean}
 *   | {type: "equalizerMatters", matters: boolean}
 *   | {type: "lookAnew"}} QueueEvent
 *   answer: a whole answer came, with its HTTP status and the service's error text; failed: no answer came;
 *   lookAnew: what was seen so far says nothing about the present (an add ended, another device was chosen)
 *
 * @typedef {{type: "send", request: Request}
 *   | {type: "dropped", request: Request}
 *   | {type: "forgetLooks"}
 *   | {type: "wake", at: number}} Effect
 *   send: at most one; dropped: a newer one took its place, or the link ended; wake: replaces the timer that was set;
 *   forgetLooks: see observation.js
 */

const secondLookMs = 200;
const lookMs = 500;
const meterLookMs = 125;
const restFactor = 5;
export const waitingMs = 1000;
const retryMs = 200;
/** A look that is this late goes ahead of what the person does: a drag may send without a pause. */
const overdueMs = 500;
const goneLookMs = 2000;
const failuresUntilGone = 2;
/** The page's own looks go round in this order; with the meters in view, devices are looked at more often. */
const turns = /** @type {const} */ (["status", "devices"]);
const equalizerTurns = /** @type {const} */ (["status", "devices", "status", "devices", "equalizer"]);
const meterTurns = /** @type {const} */ (["devices", "status", "devices", "equalizer"]);
const meterTurnsOnly = /** @type {const} */ (["devices", "status"]);
const paths = {
  status: "/api/v1/status",
  devices: "/api/v1/devices",
  equalizer: "/api/v1/render/effects/eq",
};
const tokenError = "missing or invalid session token";

/**
 * @param {number} time
 * @param {boolean} hasToken
 * @returns {Queue} step() it with a tick to begin
 */
export function newQueue(time, hasToken = true) {
  return {
    flight: null,
    waiting: [],
    link: { state: hasToken ? "first" : "noToken", since: time },
    hidden: false,
    unfolded: false,
    equalizerMatters: false,
    looks: { status: 0, devices: 0, equalizer: 0 },
    begun: false,
    firstStatusAt: 0,
    turn: 0,
    nextLookAt: time,
    plannedLookAt: time,
    failures: 0,
    nextId: -1,
  };
}

/** @param {Queue} queue */
export const isIdle = ({ flight, waiting }) => flight === null && waiting.length === 0;

/**
 * @param {Queue} queue
 * @returns {boolean} no request is sent any more
 */
const hasEnded = ({ link }) => link.state === "refused" || link.state === "noToken";

/**
 * @param {Queue} queue
 * @param {Link["state"]} state
 * @param {number} since
 * @returns {Queue}
 */
function withLink(queue, state, since) {
  return queue.link.state === state ? queue : { ...queue, link: { state, since } };
}

/** @param {Queue} queue */
const firstLooksAreComplete = ({ looks }) => looks.status >= 2 && looks.devices >= 1 && looks.equalizer >= 1;

/**
 * The look that is due next.
 *
 * @param {Queue} queue
 * @returns {"status" | "devices" | "equalizer"}
 */
function nextLook({ looks, turn, unfolded, equalizerMatters, link }) {
  if (link.state === "gone") return "status";
  if (looks.status === 0) return "status";
  if (looks.devices === 0) return "devices";
  if (looks.equalizer === 0) return "equalizer";
  if (looks.status === 1) return "status";
  const order = unfolded
    ? equalizerMatters
      ? meterTurns
      : meterTurnsOnly
    : equalizerMatters
      ? equalizerTurns
      : turns;
  return order[turn % order.length];
}

/**
 * When the next look is due, after an answer.
 *
 * @param {Queue} queue
 * @param {number} sentAt
 * @param {number} time
 */
function dueAfter(queue, sentAt, time) {
  const { looks } = queue;
  if (!firstLooksAreComplete(queue)) {
    const isSecond = looks.status === 1 && looks.devices > 0 && looks.equalizer > 0;
    return isSecond ? Math.max(time, queue.firstStatusAt + secondLookMs) : time;
  }
  const gap = queue.unfolded ? meterLookMs : lookMs;
  return sentAt + Math.max(gap, restFactor * (time - sentAt));
}

/**
 * Puts a request behind those that wait, in place of an older one of the same control.
 *
 * @param {Queue} queue
 * @param {Request} request
 * @returns {[Queue, Effect[]]}
 */
function enqueue(queue, request) {
  if (hasEnded(queue)) return [queue, [{ type: "dropped", request }]];
  const barrier = queue.waiting.map((one) => one.barrier === true).lastIndexOf(true);
  const isOld = (/** @type {Request} */ one, /** @type {number} */ index) =>
    index > barrier && request.control !== undefined && one.control === request.control;
  const dropped = queue.waiting.filter(isOld);
  const waiting = [...queue.waiting.filter((one, index) => !isOld(one, index)), request];
  return [{ ...queue, waiting }, dropped.map((one) => ({ type: "dropped", request: one }))];
}

/**
 * The end of the link: nothing that waits is sent.
 *
 * @param {Queue} queue
 * @param {"refused" | "gone"} state
 * @param {number} time
 * @returns {[Queue, Effect[]]}
 */
function endLink(queue, state, time) {
  /** @type {Effect[]} */
  const dropped = queue.waiting.map((request) => ({ type: "dropped", request }));
  return [withLink({ ...queue, waiting: [] }, state, time), dropped];
}

/**
 * @param {Queue} queue
 * @param {number} time
 * @returns {Queue} as before the first look, on the same link
 */
function beginLooks(queue, time) {
  const looks = { status: 0, devices: 0, equalizer: 0 };
  return { ...queue, looks, turn: 0, nextLookAt: time, plannedLookAt: time };
}

/**
 * @param {Queue} queue
 * @param {{id: number, status: number, error?: string}} answer
 * @param {number} time
 * @returns {[Queue, Effect[]]}
 */
function takeAnswer(queue, { id, status, error }, time) {
  const { flight } = queue;
  if (flight === null || flight.request.id !== id) return [queue, []];
  /** @type {Queue} */
  let next = { ...queue, flight: null, failures: 0 };
  const isAccount = flight.request.path.includes("/api/v1/account/");
  // The account service's own refusals are 401 as well.
  if (status === 401 && (error === tokenError || !isAccount)) return endLink(next, "refused", time);
  /** @type {Effect[]} */
  const effects = [];
  if (queue.link.state === "gone") {
    next = withLink({ ...beginLooks(next, time), begun: false }, "first", time);
    effects.push({ type: "forgetLooks" });
    return [next, effects];
  }
  const { look } = flight.request;
  if (look !== undefined) {
    if (look === "status" && next.looks.status === 0) next.firstStatusAt = time;
    const wasComplete = firstLooksAreComplete(next);
    next.looks = { ...next.looks, [look]: next.looks[look] + 1 };
    // A look that an action asked for is as good as the page's own, but takes no other look's turn.
    if (wasComplete && look === nextLook(queue)) ++next.turn;
  }
  next.begun ||= firstLooksAreComplete(next);
  next = withLink(next, next.begun ? "answering" : "first", time);
  // A change does not put the looks off for longer than its own answer asks for: a slider may be dragged for long. A
  // slow answer is no measure of the service's load.
  const restUntil = flight.sentAt + restFactor * (time - flight.sentAt);
  const isOwnLook = look !== undefined && (id < 0 || !firstLooksAreComplete(queue));
  if (isOwnLook) next.nextLookAt = next.plannedLookAt = dueAfter(next, flight.sentAt, time);
  else if (!flight.request.slow) next.nextLookAt = Math.max(next.nextLookAt, restUntil);
  return [next, effects];
}

/**
 * @param {Queue} queue
 * @param {number} id
 * @param {number} time
 * @returns {[Queue, Effect[]]}
 */
function takeFailure(queue, id, time) {
  const { flight } = queue;
  if (flight === null || flight.request.id !== id) return [queue, []];
  const failures = queue.failures + 1;
  const next = { ...queue, flight: null, failures };
  // A connection may be lost once; a service that has stopped refuses the second one too.
  if (failures < failuresUntilGone) return [{ ...next, nextLookAt: time + retryMs }, []];
  return endLink({ ...next, nextLookAt: time + goneLookMs }, "gone", time);
}

/**
 * @param {Queue} queue
 * @param {QueueEvent} event
 * @param {number} time
 * @returns {[Queue, Effect[]]}
 */
function take(queue, event, time) {
  switch (event.type) {
    case "ask":
      return enqueue(queue, event.request);
    case "answer":
      return takeAnswer(queue, event, time);
    case "failed":
      return takeFailure(queue, event.id, time);
    case "hidden":
      return [{ ...queue, hidden: true }, []];
    case "visible": {
      if (!queue.hidden) return [queue, []];
      const shown = beginLooks({ ...queue, hidden: false, begun: false }, time);
      const isOpen = !hasEnded(queue) && queue.link.state !== "gone";
      return [isOpen ? withLink(shown, "first", time) : shown, [{ type: "forgetLooks" }]];
    }
    case "unfolded":
      return [
        { ...queue, unfolded: event.unfolded, nextLookAt: event.unfolded ? time : queue.nextLookAt },
        [],
      ];
    case "equalizerMatters":
      return [{ ...queue, equalizerMatters: event.matters }, []];
    case "lookAnew": {
      return [beginLooks(queue, time), [{ type: "forgetLooks" }]];
    }
    default:
      return [queue, []];
  }
}

/**
 * Sends what is due, and says when to look again.
 *
 * @param {Queue} queue
 * @param {number} time
 * @returns {[Queue, Effect[]]}
 */
function go(queue, time) {
  if (hasEnded(queue)) return [queue, []];
  const { flight } = queue;
  if (flight !== null) {
    if (flight.request.slow || queue.link.state === "gone" || queue.link.state === "waiting")
      return [queue, []];
    const waitsAt = flight.sentAt + waitingMs;
    if (time >= waitsAt) return [withLink(queue, "waiting", flight.sentAt), []];
    return [queue, [{ type: "wake", at: waitsAt }]];
  }
  const [request, ...waiting] = queue.waiting;
  const isOverdue = !queue.hidden && queue.begun && time >= queue.plannedLookAt + overdueMs;
  if (request !== undefined && !isOverdue) return send({ ...queue, waiting }, request, time);
  if (queue.hidden) return [queue, []];
  if (request === undefined && time < queue.nextLookAt)
    return [queue, [{ type: "wake", at: queue.nextLookAt }]];
  const look = nextLook(queue);
  const own = { id: queue.nextId, method: /** @type {const} */ ("GET"), path: paths[look], look };
  return send({ ...queue, nextId: queue.nextId - 1 }, own, time);
}

/**
 * @param {Queue} queue
 * @param {Request} request
 * @param {number} time
 * @returns {[Queue, Effect[]]}
 */
function send(queue, request, time) {
  /** @type {Effect[]} */
  const effects = [{ type: "send", request }];
  if (!request.slow && queue.link.state !== "gone") effects.push({ type: "wake", at: time + waitingMs });
  return [{ ...queue, flight: { request, sentAt: time } }, effects];
}

/**
 * @param {Queue} queue
 * @param {QueueEvent} event
 * @param {number} time
 * @returns {{queue: Queue, effects: Effect[]}}
 */
export function step(queue, event, time) {
  const [taken, first] = take(queue, event, time);
  const [next, second] = go(taken, time);
  return { queue: next, effects: [...first, ...second] };
}
