// A system without sound and without processes of note, for all tests of a file.
import path from "node:path";
import { after, before } from "node:test";

import { isNative, makeDirectory } from "./harness.mjs";
import { useSoundServer } from "./pulse.mjs";

// To be called once, outside of the tests. Gives a function that returns the environment of programs, from the first test on. Natively
// the system shows no processes, and none of those that run here is taken for the engine. Under Wine the way to the sound
// server is a matter of the registry, which is put back behind the last test; nobody listens there.
export function quietSystem() {
  /** @type {(() => unknown)[]} */
  const endings = [];
  /** @type {Record<string, string> | undefined} */
  let environment;
  before(async () => {
    if (isNative) environment = { VELMORA_PROC: makeDirectory() };
    else
      environment = await useSoundServer(
        { after: (end) => endings.push(end) },
        path.join(makeDirectory(), "nobody"),
      );
  });
  after(async () => {
    for (const end of endings.reverse()) await end();
  });
  return () => environment;
}
