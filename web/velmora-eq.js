// What the pages share: the session token, a way to the service that asks for one thing at a time, and words for the
// numbers of Windows.
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

  // The service's JSON. A number of the shared record may be none: it comes as nan, inf or -inf, which no JSON has, and
  // is read as that text.
  function parse(text) {
    const no_number = /"[^"\\]*(?:\\.[^"\\]*)*"|-?\b(?:nan|inf)\b/g;
    return JSON.parse(text.replace(no_number, (found) => (found.startsWith('"') ? found : `"${found}"`)));
  }

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
      const { status } = response;
      if (!response.ok) return { outcome: (await response.json()).error, refused: true, status };
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

  // Resolves to { outcome, answer, refused, status }: "Sent" and what `read` took from the response, or a text that says
  // what is wrong and no answer; `refused` is true if the text is the service's own, and `status` is the number that
  // came with it.
  function ask(method, path, body, read = async (response) => parse(await response.text())) {
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

  // These resolve to { outcome, answer, refused, status }, the answer being the JSON that came.
  const get = (path) => ask("GET", path);
  const submit = (path, body) => ask("POST", path, body);

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

  // Only what differs is written: a selection within the text stays, and a reader's voice says nothing twice.
  function put_text(element, text) {
    if (element.textContent !== text) element.textContent = text;
  }

  const error_words = {
    0x80004005: "an unspecified failure",
    0x8000000a: "begun and not ended",
    0x80040154: "the audio system is not installed",
    0x80070002: "it is not there",
    0x80070005: "access is denied",
    0x8007000e: "there is not enough memory",
    0x80070057: "an argument is wrong",
    0x800703f8: "the registry cannot be read",
    0x80070422: "the service is disabled",
    0x80070424: "the service is not installed",
    0x80070426: "the service does not run",
    0x80070490: "no such endpoint was found",
    0x800706ba: "the audio service cannot be reached",
    0x8007070c: "the value has another type",
    0x88890004: "an endpoint went away while it was looked at",
    0x88890010: "the audio service does not run",
  };

  // A status of Windows, which comes as a signed number, as Windows writes it.
  const hex = (code) => `0x${(code >>> 0).toString(16).toUpperCase().padStart(8, "0")}`;

  const error_text = (code) => `${error_words[code >>> 0] ?? "a failure without a name here"} (${hex(code)})`;

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

  return { parse, put, post, remove, get, submit, is_busy, download, put_text, hex, error_text, show, carry_token };
})();
