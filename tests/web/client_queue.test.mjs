// The client's rules, played with a clock of the test's own and a service that answers when the test says so.
import assert from "node:assert/strict";
import test from "node:test";

import { isIdle, newQueue, step, waitingMs } from "../../web/src/model/client_queue.js";

const start = 1_000_000;
let nextRequest = 0;
const request = (more = {}) => ({ id: ++nextRequest, method: "PUT", path: "/api/v1/render/volume", ...more });

// A page that carries effects out, and a service that takes `tookMs` for each answer.
class Play {
  constructor({
    tookMs = 2,
    hasToken = true,
    answer = /** @type {(flight: any) => any} */ (() => ({ status: 200 })),
  } = {}) {
    this.time = start;
    this.queue = newQueue(start, hasToken);
    this.tookMs = tookMs;
    this.answerOf = answer;
    this.sent = [];
    this.dropped = [];
    this.forgotten = 0;
    this.links = [];
    this.most = 0;
    this.tell({ type: "tick" });
  }

  tell(event) {
    const { queue, effects } = step(this.queue, event, this.time);
    if (this.queue.link.state !== queue.link.state) this.links.push([this.time - start, queue.link.state]);
    this.queue = queue;
    assert.ok(effects.filter(({ type }) => type === "send").length <= 1);
    for (const effect of effects) {
      if (effect.type === "send") {
        assert.equal(this.answersAt ?? null, null, "one request in flight");
        this.sent.push({ at: this.time - start, ...effect.request });
        this.answersAt = this.time + this.tookMs;
      } else if (effect.type === "wake") {
        assert.ok(effect.at > this.time, "a timer that is due at once would spin");
        this.wakesAt = effect.at;
      } else if (effect.type === "dropped") {
        this.dropped.push(effect.request.id);
      } else {
        ++this.forgotten;
      }
    }
  }

  answer() {
    const flight = this.queue.flight?.request;
    assert.ok(flight);
    this.answersAt = null;
    const found = this.answerOf(flight);
    this.tell(
      found === null ? { type: "failed", id: flight.id } : { type: "answer", id: flight.id, ...found },
    );
  }

  run(ms) {
    const end = this.time + ms;
    for (let steps = 0; ; ++steps) {
      assert.ok(steps < 100_000, "it spins");
      const due = Math.min(this.answersAt ?? Infinity, this.wakesAt ?? Infinity);
      if (due > end) break;
      this.time = Math.max(this.time, due);
      if (this.answersAt !== null && this.answersAt !== undefined && this.answersAt <= this.time) {
        this.answer();
      } else {
        this.wakesAt = null;
        this.tell({ type: "tick" });
      }
    }
    this.time = end;
  }

  ask(more) {
    const one = request(more);
    this.tell({ type: "ask", request: one });
    return one.id;
  }

  looks(from = 0) {
    return this.sent.filter(({ look, at }) => look && at >= from).map(({ look, at }) => [at, look]);
  }
}

test("two looks 200 ms apart at first, then one request every 500 ms by turns", () => {
  const play = new Play();
  play.run(2800);
  assert.deepEqual(play.looks(), [
    [0, "status"],
    [2, "devices"],
    [4, "equalizer"],
    [202, "status"],
    [702, "status"],
    [1202, "devices"],
    [1702, "status"],
    [2202, "devices"],
    [2702, "status"],
  ]);
  assert.deepEqual(play.links, [[204, "answering"]]);
});

test("no more than two requests a second while it is idle", () => {
  const play = new Play();
  play.run(60_000);
  assert.ok(play.looks(1000).length <= 59 * 2 + 1, `${play.looks(1000).length}`);
});

test("never sooner than five times the last answer's duration", () => {
  const play = new Play({ tookMs: 300 });
  play.run(20_000);
  const times = play.looks(2000).map(([at]) => at);
  for (let index = 1; index < times.length; ++index) assert.equal(times[index] - times[index - 1], 1500);
});

test("meters are read every 250 ms while they are in view", () => {
  const play = new Play();
  play.run(1000);
  play.tell({ type: "unfolded", unfolded: true });
  play.run(2000);
  const devices = play.looks(1000).filter(([, look]) => look === "devices");
  assert.ok(devices.length >= 7 && devices.length <= 9, `${devices.length}`);
  assert.ok(play.looks(1000).some(([, look]) => look === "status"));
  play.tell({ type: "unfolded", unfolded: false });
  play.run(1000);
  const before = play.sent.length;
  play.run(2000);
  assert.equal(play.sent.length - before, 4);
});

test("the equalizer is read again where the verdict depends on it", () => {
  const play = new Play();
  play.run(1000);
  play.tell({ type: "equalizerMatters", matters: true });
  play.run(5000);
  const kinds = new Set(play.looks(1000).map(([, look]) => look));
  assert.deepEqual([...kinds].sort(), ["devices", "equalizer", "status"]);
});

test("a newer value of the same control replaces the one that waits", () => {
  const play = new Play({ tookMs: 50 });
  play.run(1000);
  const first = play.ask({ control: "volume", body: { volume: 0.1 } });
  const second = play.ask({ control: "volume", body: { volume: 0.2 } });
  const other = play.ask({ control: "mute" });
  const third = play.ask({ control: "volume", body: { volume: 0.3 } });
  play.run(1000);
  const ids = play.sent.filter(({ look }) => !look).map(({ id }) => id);
  assert.deepEqual(ids, [first, other, third]);
  assert.deepEqual(play.dropped, [second]);
});

test("looks that actions ask for count as the page's own, and take no other look's turn", () => {
  const play = new Play();
  play.run(2000);
  for (let edit = 0; edit < 40; ++edit) {
    play.ask({ method: "GET", path: "/api/v1/status", look: "status", control: "look at status" });
    play.run(100);
  }
  const devices = play.sent.filter(({ look }) => look === "devices").map(({ at }) => at);
  const gaps = devices.slice(1).map((at, index) => at - devices[index]);
  assert.ok(devices.length >= 7 && Math.max(...gaps) <= 1250, `devices at ${devices.join(" ")}`);
});

test("a person who sends without a pause does not keep the page from looking", () => {
  const play = new Play();
  play.run(2000);
  const from = play.time - start;
  for (let edit = 0; edit < 2000; ++edit) {
    play.ask({ control: "one" });
    play.ask({ control: "other" });
    play.run(2);
  }
  const own = play.sent.filter(({ id, at }) => id < 0 && at >= from).length;
  assert.ok(own >= 3 && own <= 9, `${own} looks in 4 s`);
});

test("what is asked for behind a choice of a device stays behind it, and what was ahead stays ahead", () => {
  const play = new Play({ tookMs: 50 });
  play.run(1000);
  play.ask({ control: "other" });
  const old = play.ask({ control: "volume" });
  const choice = play.ask({ control: "device", barrier: true });
  const dropped = play.ask({ control: "volume" });
  const last = play.ask({ control: "volume" });
  play.run(1000);
  assert.deepEqual(
    play.sent
      .filter(({ look }) => !look)
      .slice(1)
      .map(({ id }) => id),
    [old, choice, last],
  );
  assert.deepEqual(play.dropped, [dropped]);
});

test("what the person does goes ahead of the looks, at once when nothing is in flight", () => {
  const play = new Play();
  play.run(950);
  play.ask({ control: "strength" });
  assert.equal(play.sent.at(-1).at, 950);
  assert.equal(play.sent.at(-1).control, "strength");
});

test("a slider that is dragged for long leaves room for looks", () => {
  const play = new Play();
  play.run(1000);
  for (let count = 0; count < 300; ++count) {
    play.ask({ control: "strength" });
    play.run(16);
  }
  assert.ok(play.looks(1000).length >= 6, `${play.looks(1000).length}`);
});

test("after a second without an answer it waits, and answers end that", () => {
  const play = new Play();
  play.run(1000);
  play.tookMs = 12_000;
  play.run(500);
  const sentAt = play.sent.at(-1).at;
  play.run(2000);
  assert.deepEqual(play.queue.link, { state: "waiting", since: start + sentAt });
  play.tookMs = 2;
  play.run(12_000);
  assert.deepEqual(play.links.slice(-2), [
    [sentAt + waitingMs, "waiting"],
    [sentAt + 12_000, "answering"],
  ]);
});

test("a first look without an answer waits too", () => {
  const play = new Play({ tookMs: 60_000 });
  play.run(1500);
  assert.equal(play.queue.link.state, "waiting");
});

test("a slow request is not waited for", () => {
  const play = new Play();
  play.run(990);
  play.tookMs = 30_000;
  play.ask({ method: "POST", path: "/api/v1/render/apo", slow: true, barrier: true });
  play.run(20_000);
  assert.equal(play.queue.link.state, "answering");
  play.tookMs = 2;
  play.run(11_000);
  assert.ok(play.looks(21_000).length > 0);
});

test("one lost connection is tried again, the second one means that the service is gone", () => {
  let fails = 1;
  const play = new Play({ answer: () => (fails-- > 0 ? null : { status: 200 }) });
  play.run(3000);
  assert.deepEqual(
    play.links.map(([, state]) => state),
    ["answering"],
  );
  fails = Infinity;
  const waiting = play.ask({ control: "volume" });
  play.ask({ control: "mute" });
  play.run(5000);
  assert.equal(play.queue.link.state, "gone");
  assert.ok(!play.dropped.includes(waiting), "it was sent");
  const before = play.sent.length;
  play.run(10_000);
  assert.ok(play.sent.length - before <= 5, "it looks again every two seconds");
});

test("a service that comes back is looked at as for the first time", () => {
  let isGone = false;
  const play = new Play({ answer: () => (isGone ? null : { status: 200 }) });
  play.run(1000);
  isGone = true;
  play.run(5000);
  isGone = false;
  play.run(3000);
  assert.deepEqual(
    play.links.map(([, state]) => state),
    ["answering", "gone", "first", "answering"],
  );
  assert.equal(play.forgotten, 1);
});

test("a refused token ends the link for good", () => {
  const refusal = { status: 401, error: "missing or invalid session token" };
  const play = new Play({ answer: () => refusal });
  play.run(1000);
  assert.equal(play.queue.link.state, "refused");
  assert.equal(play.sent.length, 1);
  const id = play.ask({ control: "volume" });
  play.run(10_000);
  assert.deepEqual([play.sent.length, play.dropped], [1, [id]]);
});

test("a refusal of the account service is not one of the token", () => {
  const answer = ({ path }) =>
    path.includes("account") ? { status: 401, error: "wrong password" } : { status: 200 };
  const play = new Play({ answer });
  play.run(1000);
  play.ask({ method: "POST", path: "/api/v1/account/password", slow: true });
  play.run(1000);
  assert.equal(play.queue.link.state, "answering");
});

test("without a token nothing is sent", () => {
  const play = new Play({ hasToken: false });
  play.run(10_000);
  play.tell({ type: "hidden" });
  play.tell({ type: "visible" });
  play.run(10_000);
  assert.deepEqual([play.sent.length, play.queue.link.state], [0, "noToken"]);
});

test("a hidden page asks for nothing, and begins again when it is shown", () => {
  const play = new Play();
  play.run(1000);
  play.tell({ type: "hidden" });
  play.run(100);
  const before = play.sent.length;
  play.run(600_000);
  assert.equal(play.sent.length, before);
  play.tell({ type: "visible" });
  assert.equal(play.queue.link.state, "first");
  play.run(500);
  assert.deepEqual(
    play.looks(601_000).map(([, look]) => look),
    ["status", "devices", "equalizer", "status"],
  );
  assert.deepEqual([play.queue.link.state, play.forgotten], ["answering", 1]);
  play.tell({ type: "visible" });
  assert.equal(play.forgotten, 1, "it was visible");
});

test("after a change the looks begin again on the same link", () => {
  const play = new Play();
  play.run(1000);
  play.tell({ type: "lookAnew" });
  play.run(300);
  assert.deepEqual(
    play.looks(1000).map(([at, look]) => [at - 1000, look]),
    [
      [0, "status"],
      [2, "devices"],
      [4, "equalizer"],
      [202, "status"],
    ],
  );
  assert.deepEqual([play.queue.link.state, play.forgotten], ["answering", 1]);
});

test("an answer to something else changes nothing", () => {
  const play = new Play({ tookMs: 100 });
  const before = play.queue;
  play.tell({ type: "answer", id: 4711, status: 401 });
  play.tell({ type: "failed", id: 4711 });
  assert.deepEqual(play.queue, before);
  assert.equal(isIdle(play.queue), false);
});

test("opening a page sends GET only", () => {
  const play = new Play();
  play.run(60_000);
  assert.deepEqual([...new Set(play.sent.map(({ method }) => method))], ["GET"]);
});
