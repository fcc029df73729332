// The program at a terminal, as a person starts it: what is shown there, and Ctrl+C.
import assert from "node:assert/strict";
import test from "node:test";

import {
  assertAnswers,
  creatingService,
  developmentToken,
  freePort,
  isWine,
  launch,
  makeWebRoot,
  programPathText,
  startLimitMs,
  uniqueMappingName,
} from "./harness.mjs";

const limits = { timeout: 120_000 };

const inShell = (word) => `'${word.replaceAll("'", "'\\''")}'`;

// Starts the service in a terminal of its own, whose keys are the program's `child.stdin`. It ends as the service does.
// A shell that stayed in between would get Ctrl+C as well, and some then end with a code of their own.
function launchAtTerminal(t, args) {
  const words = [...(isWine ? ["wine"] : []), creatingService(), ...args];
  const command = `exec ${words.map(inShell).join(" ")}`;
  return launch(t, "script", ["-q", "-e", "-c", command, "/dev/null"], { ofSystem: true, withInput: true });
}

const escape = "\x1b";

// What the terminal shows, as text: the output without its control sequences, with a line feed for each line's end.
function shown(program) {
  const text = Buffer.from(program.output, "latin1").toString("utf8");
  const control = new RegExp(`${escape}\\[[?0-9;]*[A-Za-z]`, "g");
  return text.replaceAll(control, "").replaceAll(/\r+\n/g, "\n");
}

test("a terminal shows names in any language", limits, async (t) => {
  const separator = isWine ? "\\\\" : "/";
  const program = launchAtTerminal(t, ["--web-root", "Ω ö 网页"]);
  assert.deepEqual(await program.waitForEnd(startLimitMs), { code: 3, signal: null });
  assert.equal(shown(program), `Unable to read "Ω ö 网页${separator}index.html"\n`);
});

test("Ctrl+C at a terminal ends the service with exit code 0", limits, async (t) => {
  const port = await freePort();
  const program = launchAtTerminal(t, [
    ...["--port", String(port), "--web-root", programPathText(makeWebRoot())],
    ...["--control-map", uniqueMappingName(), "--token", developmentToken],
  ]);
  await program.until(
    "the banner",
    () => (shown(program).includes("Press Ctrl+C to stop.") ? true : undefined),
    startLimitMs,
  );
  assert.ok(
    shown(program).includes(`Open: http://127.0.0.1:${port}/?token=${developmentToken}\n`),
    program.said(),
  );
  await assertAnswers({ port, token: developmentToken });
  program.child.stdin?.write("\x03");
  assert.deepEqual(await program.waitForEnd(), { code: 0, signal: null });
});
