// The program at a terminal, as a person starts it: what is shown there, and Ctrl+C.
import assert from 'node:assert/strict';
import test from 'node:test';

import {
  assert_answers,
  creating_service,
  development_token,
  free_port,
  is_wine,
  launch,
  make_web_root,
  program_path_text,
  start_limit_ms,
  unique_mapping_name,
} from './harness.mjs';

const limits = { timeout: 120_000 };

const in_shell = (word) => `'${word.replaceAll("'", "'\\''")}'`;

// Starts the service in a terminal of its own, whose keys are the program's `child.stdin`. It ends as the service does.
// A shell that stayed in between would get Ctrl+C as well, and some then end with a code of their own.
function launch_at_terminal(t, args) {
  const words = [...(is_wine ? ['wine'] : []), creating_service(), ...args];
  const command = `exec ${words.map(in_shell).join(' ')}`;
  return launch(t, 'script', ['-q', '-e', '-c', command, '/dev/null'], { of_system: true, with_input: true });
}

// What the terminal shows, as text: the output without its control sequences, with a line feed for each line's end.
function shown(program) {
  const text = Buffer.from(program.output, 'latin1').toString('utf8');
  return text.replaceAll(/\x1b\[[?0-9;]*[A-Za-z]/g, '').replaceAll(/\r+\n/g, '\n');
}

test('a terminal shows names in any language', limits, async (t) => {
  const separator = is_wine ? '\\\\' : '/';
  const program = launch_at_terminal(t, ['--web-root', 'Ω ö 网页']);
  assert.deepEqual(await program.wait_for_end(start_limit_ms), { code: 3, signal: null });
  assert.equal(shown(program), `Unable to read "Ω ö 网页${separator}index.html"\n`);
});

test('Ctrl+C at a terminal ends the service with exit code 0', limits, async (t) => {
  const port = await free_port();
  const program = launch_at_terminal(t, [
    ...['--port', String(port), '--web-root', program_path_text(make_web_root())],
    ...['--control-map', unique_mapping_name(), '--token', development_token],
  ]);
  await program.until(
    'the banner',
    () => (shown(program).includes('Press Ctrl+C to stop.') ? true : undefined),
    start_limit_ms,
  );
  assert.ok(shown(program).includes(`Open: http://127.0.0.1:${port}/?token=${development_token}\n`), program.said());
  await assert_answers({ port, token: development_token });
  program.child.stdin.write('\x03');
  assert.deepEqual(await program.wait_for_end(), { code: 0, signal: null });
});
