// What the pages share: the session token, and a way to the service that asks for one thing at a time.
//
// The service runs one exchange after another and closes each connection, so a second request would only wait
// in its queue. While one is on its way, a body to be put is merged into the last that waits if it goes to the same
// path, the newest value of a key counting: a slider that is dragged sends where it came to rest. Nothing overtakes
// what was asked for before it: a volume is for the endpoint that had been chosen by then.
"use strict";

const velmora = (() => {
  const token = new URLSearchParams(location.search).get("token") ?? "";
  const waiting = [];  // { method, path, body, read, done: [callbacks of those who wait] }
  let busy = false;

  async function send({ method, path, body, read }) {
    let trouble = "The service does not answer";
    try {
      const response = await fetch(path, {
        method,
        headers: { "x-velmora-token": token },
        body: JSON.stringify(body),
        cache: "no-store",
      });
      trouble = "The answer cannot be read";
      if (!response.ok) return { outcome: (await response.json()).error, refused: true };
      return { outcome: "Sent", answer: await read(response) };
    } catch {
      return { outcome: trouble };
    }
  }

  async function work() {
    if (busy) return;
    busy = true;
    while (waiting.length > 0) {
      const request = waiting.shift();
      const result = await send(request);
      request.done.forEach((tell) => tell(result));
    }
    busy = false;
  }

  // Resolves to { outcome, answer, refused }: "Sent" and what `read` took from the response, or a text that says what
  // is wrong and no answer; `refused` is true if the text is the service's own.
  function ask(method, path, body, read = (response) => response.json()) {
    return new Promise((tell) => {
      const last = waiting.at(-1);
      if (method === "PUT" && last?.method === "PUT" && last.path === path) {
        last.body = { ...last.body, ...body };
        last.done.push(tell);
      } else {
        waiting.push({ method, path, body, read, done: [tell] });
      }
      work();
    });
  }

  // These resolve to the outcome alone.
  const put = async (path, body) => (await ask("PUT", path, body)).outcome;
  const post = async (path, body) => (await ask("POST", path, body)).outcome;
  const remove = async (path) => (await ask("DELETE", path)).outcome;

  // Resolves to { outcome, answer, refused }, the answer being the JSON that came.
  const get = (path) => ask("GET", path);

  // Whether a request is on its way, or waits.
  const is_busy = () => busy;

  // Fetches a file and hands it to the browser's downloads; a plain link could not send the token.
  async function download(path) {
    const { outcome, answer } = await ask("GET", path, undefined, async (response) => ({
      name: /filename="([^"]*)"/.exec(response.headers.get("content-disposition"))?.[1] ?? "download",
      content: await response.blob(),
    }));
    if (answer) {
      const link = document.createElement("a");
      link.href = URL.createObjectURL(answer.content);
      link.download = answer.name;
      link.click();
      setTimeout(() => URL.revokeObjectURL(link.href), 60_000);
    }
    return outcome;
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

  return { put, post, remove, get, is_busy, download, show, carry_token };
})();
