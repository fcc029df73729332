// A system without sound and without processes of note, for all tests of a file.
import path from 'node:path';
import { after, before } from 'node:test';

import { is_native, make_directory } from './harness.mjs';
import { use_sound_server } from './pulse.mjs';

// To be called once, outside of the tests. Gives what tells the environment of programs, from the first test on. Natively
// the system shows no processes, and none of those that run here is taken for the engine. Under Wine the way to the sound
// server is a matter of the registry, which is put back behind the last test; nobody listens there.
export function quiet_system() {
  const endings = [];
  let environment;
  before(async () => {
    if (is_native) environment = { VELMORA_PROC: make_directory() };
    else environment = await use_sound_server({ after: (end) => endings.push(end) }, path.join(make_directory(), 'nobody'));
  });
  after(async () => {
    for (const end of endings.reverse()) await end();
  });
  return () => environment;
}
