// What the pages share: the session token, and a way to the service that asks for one thing at a time.
//
// The service runs one exchange after another and closes each connection, so a second request would only wait
// in its queue. While one is on its way, bodies for the same path are merged into the one that waits, the newest
// value of a key counting: a slider that is dragged sends where it came to rest.
"use strict";

const velmora = (() => {
  const token = new URLSearchParams(location.search).get("token") ?? "";
  const waiting = new Map();  // path -> { body, done: [callbacks of those who wait] }
  let busy = false;

  async function send(method, path, body) {
    try {
      const response = await fetch(path, {
        method,
        headers: { "x-velmora-token": token },
        body: JSON.stringify(body),
        cache: "no-store",
      });
      const answer = await response.json();
      return response.ok ? "Sent" : answer.error;
    } catch {
      return "The service does not answer";
    }
  }

  async function work() {
    if (busy) return;
    busy = true;
    while (waiting.size > 0) {
      const [path, { body, done }] = waiting.entries().next().value;
      waiting.delete(path);
      const outcome = await send("PUT", path, body);
      done.forEach((tell) => tell(outcome));
    }
    busy = false;
  }

  // Sends `body` as JSON and resolves to "Sent" or to a text that says what is wrong.
  function put(path, body) {
    return new Promise((tell) => {
      const earlier = waiting.get(path);
      waiting.set(path, { body: { ...earlier?.body, ...body }, done: [...(earlier?.done ?? []), tell] });
      work();
    });
  }

  // Shows an outcome in the element with the id `status`.
  function show(outcome) {
    const status = document.getElementById("status");
    status.textContent = outcome;
    status.className = outcome === "Sent" ? "good" : "bad";
  }

  // Lets the links between the pages carry the token on.
  function carry_token() {
    for (const link of document.querySelectorAll("a[data-page]")) {
      link.href = `${link.dataset.page}?token=${encodeURIComponent(token)}`;
    }
  }

  return { put, show, carry_token };
})();
