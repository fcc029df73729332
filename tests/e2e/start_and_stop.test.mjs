// The banner, the ways in which a start fails once the command line is good, and the end.
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';

import {
  Client,
  answers,
  assert_answers,
  creating_service,
  development_token,
  exchange,
  free_port,
  is_native,
  is_wine,
  launch,
  make_directory,
  make_web_root,
  poll,
  program_path_text,
  put_bytes,
  read_record,
  refusal_bytes,
  request_bytes,
  run,
  shipped_service,
  sleep,
  start_effect,
  start_limit_ms,
  start_service,
  unique_mapping_name,
  wait_limit_ms,
  within,
} from './harness.mjs';

const limits = { timeout: 60_000 };
const default_port = 17831;
const footstep = '/api/v1/render/effects/footstep';

function quoted(text) {
  return `"${text.replaceAll('\\', '\\\\').replaceAll('"', '\\"')}"`;
}

async function assert_does_not_start(t, program, args, code, errors) {
  const ended = await run(t, program, args);
  assert.deepEqual(ended, { code, signal: null, output: '', errors });
}

function service_arguments(port, mapping, web_root = make_web_root()) {
  return ['--port', String(port), '--web-root', program_path_text(web_root), '--control-map', mapping];
}

function taken_port_lines(port) {
  return (
    `Unable to bind 127.0.0.1:${port} (Winsock error 10048)\n` +
    'Another control service is already running on this port.\n' +
    'Stop it first (run the stop script, or end velmora_control_demo), then start again.\n'
  );
}

test('the banner shows the given token and nothing else is printed', limits, async (t) => {
  const token = 'a token of any letters, "quoted" or not: é';
  const service = await start_service(t, { token });
  const token_bytes = Buffer.from(token).toString('latin1');
  const expected =
    'Velmora 1.2.0  (algorithm not found)\n' +
    `  Open: http://127.0.0.1:${service.port}/?token=${token_bytes}\n` +
    '  Press Ctrl+C to stop.\n';
  assert.equal(service.output, expected);
  await assert_answers(service);
  await service.stop();
  assert.equal(service.output, expected);
});

test('a generated token is 48 lower-case hexadecimal digits and never the same', limits, async (t) => {
  const tokens = new Set();
  const services = await Promise.all([1, 2].map(() => start_service(t, { token: null })));
  for (const service of services) {
    assert.match(service.token, /^[0-9a-f]{48}$/);
    tokens.add(service.token);
    assert.equal(await exchange(service, put_bytes(service, '/api/v1/none', '')), answers.not_found);
    await service.stop();
  }
  assert.equal(tokens.size, 2);
});

test('the verbose banner adds the advanced page, the web root and the control map', limits, async (t) => {
  const web_root = make_web_root({}, 'with blank');
  // The longest name that passes.
  const mapping = `${unique_mapping_name()}-`.padEnd(240, 'n');
  const service = await start_service(t, { web_root, mapping, more: ['--verbose'] });
  const address = `http://127.0.0.1:${service.port}`;
  assert.equal(
    service.output,
    'Velmora 1.2.0  (algorithm not found)\n' +
      `  Open: ${address}/?token=${development_token}\n` +
      `  Advanced: ${address}/advanced.html?token=${development_token}\n` +
      `  Web root: ${quoted(program_path_text(web_root))}\n` +
      `  Control map: ${mapping} (shared_memory_v8)\n` +
      '  Press Ctrl+C to stop.\n',
  );
  await service.stop();
});

test('an option that is given twice takes its last value', limits, async (t) => {
  const [first_port, port] = [await free_port(), await free_port()];
  const mapping = unique_mapping_name();
  const token = 'the last token that was given counts';
  const service = launch(t, creating_service(), [
    ...service_arguments(first_port, 'not a name', make_directory()),
    ...['--token', 'x'.repeat(40), '--verbose', '--verbose'],
    ...service_arguments(port, mapping),
    ...['--token', token],
  ]);
  await service.wait_for_line(`  Control map: ${mapping} (shared_memory_v8)`, 0, start_limit_ms);
  await service.wait_for_line('  Press Ctrl+C to stop.');
  await service.wait_for_line(`  Open: http://127.0.0.1:${port}/?token=${token}`);
  await assert_answers({ port });
  await service.stop();
});

test('without an option the port is 17831', limits, async (t) => {
  // A service of the machine's user may hold the port: being refused at it names it too. The control map that stands
  // without an option is that user's, so it is left alone.
  const args = ['--web-root', program_path_text(make_web_root()), '--control-map', unique_mapping_name()];
  const refusal = taken_port_lines(default_port);
  const service = launch(t, creating_service(), args);
  const has_port = await service.until(
    'its banner or its refusal',
    () => {
      if (service.output.includes('  Press Ctrl+C to stop.\n')) return true;
      return service.errors.length >= refusal.length ? false : undefined;
    },
    start_limit_ms,
  );
  if (!has_port) {
    assert.deepEqual(await service.wait_for_end(), { code: 9, signal: null });
    assert.equal(service.errors, refusal);
    return assert.equal(service.output, '');
  }
  assert.match(service.output, /^  Open: http:\/\/127\.0\.0\.1:17831\/\?token=[0-9a-f]{48}$/m);
  await assert_does_not_start(t, creating_service(), args, 9, refusal);
  await assert_answers({ port: default_port });
  await service.stop();
});

test('the program as shipped needs a system that takes its descriptor', limits, async (t) => {
  if (is_wine) {
    const mapping = unique_mapping_name();
    const refused =
      'Unable to create shared control bridge: unable to create the control mapping security descriptor: 1336\n';
    await assert_does_not_start(t, shipped_service, service_arguments(await free_port(), mapping), 5, refused);
    // With a mapping that is there already it needs no descriptor.
    await start_effect(t, mapping, [], 'mapping made');
    const service = await start_service(t, { program: shipped_service, mapping });
    await assert_answers(service);
    return service.stop();
  }
  const service = await start_service(t, { program: shipped_service });
  await assert_answers(service);
  await service.stop();
});

test('a mapping of another layout ends the start with exit code 5', limits, async (t) => {
  const incompatible =
    'Unable to create shared control bridge: existing control mapping has an incompatible layout\n';
  const rows = [
    ['version', incompatible],
    ['size', incompatible],
    ['magic', incompatible],
    ['unfinished', incompatible],
  ];
  // A mapping on Windows is whole pages, so that a smaller one can be seen past its end there.
  if (is_native) {
    rows.push(['small', 'Unable to create shared control bridge: MapViewOfFile failed with error 5\n']);
  }
  for (const [fault, errors] of rows) {
    await t.test(fault, async (row) => {
      const mapping = unique_mapping_name();
      const effect = await start_effect(row, mapping, ['--fault', fault], 'mapping made');
      await assert_does_not_start(row, shipped_service, service_arguments(await free_port(), mapping), 5, errors);
      await effect.stop();
    });
  }
});

test('a second instance on the same port ends with exit code 9', limits, async (t) => {
  const service = await start_service(t);
  const { port } = service;
  await assert_does_not_start(
    t,
    creating_service(),
    service_arguments(port, service.mapping),
    9,
    taken_port_lines(port),
  );
  await assert_answers(service);
  await service.stop();
});

test('a restart right after a stop binds the same port', limits, async (t) => {
  const port = await free_port();
  for (let round = 0; round < 3; ++round) {
    const service = await start_service(t, { port });
    // The service closes first, so its side of these connections is the one that lingers.
    for (let request = 0; request < 5; ++request) await assert_answers(service);
    await service.stop();
  }
});

test('a stop ends the service although a page was just asked for', limits, async (t) => {
  const service = await start_service(t);
  const clients = await Promise.all([1, 2, 3].map(() => Client.connect(service)));
  for (const client of clients) client.push(request_bytes(service));
  await service.stop();
});

test('a stop waits for the running exchange and does not disturb it', limits, async (t) => {
  const service = await start_service(t);
  const client = await Client.connect(service);
  const bytes = put_bytes(service, footstep, '{"bypass":false,"enhance_strength":0.5}');
  await client.send(bytes.slice(0, 40));
  await sleep(100);
  service.signal('SIGINT');
  assert.ok(await client.is_silent_for(500));
  assert.equal(service.end, undefined, 'it runs on while the client is there');
  await client.send(bytes.slice(40, -5));
  await sleep(50);
  await client.send(bytes.slice(-5));
  assert.deepEqual(await client.answer(), { bytes: answers.done, reset: false });
  assert.deepEqual(await service.wait_for_end(), { code: 0, signal: null });
  assert.equal(service.errors, '');
});

test('a stop is noticed when the client that held the service has left', limits, async (t) => {
  const service = await start_service(t);
  const client = await Client.connect(service);
  await sleep(100);
  service.signal('SIGINT');
  service.signal('SIGINT');
  await sleep(500);
  assert.equal(service.end, undefined, 'it runs on while the client is there');
  client.leave();
  assert.deepEqual(await service.wait_for_end(), { code: 0, signal: null });
  assert.equal(service.errors, '');
});

// The other stop signals are the native system's: Wine turns an interrupt alone into a console event.
if (is_native) {
  test('each stop signal ends the service with exit code 0', limits, async (t) => {
    for (const signal of ['SIGINT', 'SIGTERM', 'SIGQUIT', 'SIGHUP']) {
      await t.test(signal, async (row) => {
        const service = await start_service(row);
        await service.stop(signal);
      });
    }
  });
}

test('a service whose output nobody reads serves on', limits, async (t) => {
  const port = await free_port();
  const args = [...service_arguments(port, unique_mapping_name()), '--token', development_token, '--verbose'];
  const start = async () => {
    const program = launch(t, creating_service(), args);
    program.child.stdout.destroy();
    program.child.stderr.destroy();
    const listening = () => Client.connect({ port }).catch(() => program.end);
    return [program, await poll('the service to listen', listening, start_limit_ms)];
  };
  let [service, first] = await start();
  // What Wine says of a program that it could not start is not read either.
  if (is_wine && service.end !== undefined) [service, first] = await start();
  assert.equal(service.end, undefined, 'it runs');
  first.leave();
  await assert_answers({ port });
  service.signal('SIGINT');
  const exited = new Promise((resolve) => service.child.once('exit', (code, signal) => resolve({ code, signal })));
  assert.deepEqual(await within(wait_limit_ms, () => 'its end', exited), { code: 0, signal: null });
});

// A stream that is closed at the start is a number that the next thing opened would take, and the banner would go into
// it. On Windows a program without a stream has no handle for it, and nothing else can come to stand for the stream.
if (is_native) {
  const closed_streams = [
    ['standard input', '<&-'],
    ['standard output', '>&-'],
    ['standard error', '2>&-'],
    ['any standard stream', '<&- >&- 2>&-'],
  ];

  // Starts the program by a shell that closes streams and then becomes the program.
  const launch_without = (t, redirections, args) =>
    launch(t, '/bin/sh', ['-c', `exec "$0" "$@" ${redirections}`, creating_service(), ...args]);

  test('a service that is started without standard streams harms neither record nor answers', limits, async (t) => {
    const ordinary = await start_service(t);
    const first_record = await read_record(t, ordinary.mapping);
    const page = await exchange(ordinary, request_bytes(ordinary, { target: '/help.html' }));
    const [banner] = ordinary.output.split('  Open:');
    await ordinary.stop();

    for (const [what, redirections] of closed_streams) {
      await t.test(`without ${what}`, async (row) => {
        const [port, mapping] = [await free_port(), unique_mapping_name()];
        const args = [...service_arguments(port, mapping), '--token', development_token, '--verbose'];
        const service = launch_without(row, redirections, args);
        const client = await poll(
          'the service to listen',
          () => Client.connect({ port }).catch(() => undefined),
          start_limit_ms,
        );
        client.push(request_bytes({ port }, { target: '/help.html' }));
        assert.deepEqual(await client.answer(), { bytes: page, reset: false });
        assert.deepEqual(await read_record(row, mapping), first_record);
        assert.equal(
          await exchange({ port }, put_bytes({ port, token: development_token }, footstep, '{}')),
          refusal_bytes(400, 'Bad Request', 'bypass and enhance_strength (0..1) are required'),
        );
        await service.stop();
        const speaks = what !== 'standard output' && what !== 'any standard stream';
        assert.equal(service.output.slice(0, banner.length), speaks ? banner : '');
      });
    }
  });

  test('a start that fails without standard streams leaves the record unharmed', limits, async (t) => {
    const service = await start_service(t);
    const first_record = await read_record(t, service.mapping);
    for (const [what, redirections] of closed_streams) {
      await t.test(`without ${what}`, async (row) => {
        const refused = launch_without(row, redirections, service_arguments(service.port, service.mapping));
        assert.deepEqual(await refused.wait_for_end(start_limit_ms), { code: 9, signal: null });
        assert.equal(refused.errors, redirections.includes('2>') ? '' : taken_port_lines(service.port));
        assert.deepEqual(await read_record(row, service.mapping), first_record);
      });
    }
    await assert_answers(service);
    await service.stop();
  });
}

// Puts a program named xdg-open first on the path. It leaves its arguments in a file.
function make_browser() {
  const directory = make_directory();
  const seen = path.join(directory, 'seen');
  const script = `#!/bin/sh\nprintf '%s\\n' "$#" "$@" > '${seen}.part'\nmv '${seen}.part' '${seen}'\n`;
  fs.writeFileSync(path.join(directory, 'xdg-open'), script, { mode: 0o755 });
  return { seen, env: { PATH: `${directory}:${process.env.PATH}` } };
}

test('the browser is opened on the address of the banner', limits, async (t) => {
  const { seen, env } = make_browser();
  const service = await start_service(t, { env, more: ['--open-browser'] });
  await poll('the browser', () => (fs.existsSync(seen) ? true : undefined), start_limit_ms);
  const address = `http://127.0.0.1:${service.port}/?token=${service.token}`;
  assert.equal(fs.readFileSync(seen, 'utf8'), `1\n${address}\n`);
  await assert_answers(service);
  assert.ok(service.output.endsWith('  Press Ctrl+C to stop.\n'));
  await service.stop();
});

// Under Wine opening an address always succeeds: what is started there is a program of Wine's own that looks for a
// browser later.
if (is_native) {
  test('a browser that cannot be started costs one line and nothing else', limits, async (t) => {
    const service = await start_service(t, { env: { PATH: make_directory() }, more: ['--open-browser'] });
    await service.wait_for_line(
      '  (could not open a browser automatically -- copy the address above into one)',
    );
    await assert_answers(service);
    await service.stop();
  });

  test('a browser that stays holds nothing of the service', limits, async (t) => {
    const directory = make_directory();
    const process_file = path.join(directory, 'pid');
    const script = `#!/bin/sh\necho $$ > '${process_file}.part'\nmv '${process_file}.part' '${process_file}'\nexec sleep 60\n`;
    fs.writeFileSync(path.join(directory, 'xdg-open'), script, { mode: 0o755 });
    const env = { PATH: `${directory}:${process.env.PATH}` };
    const service = await start_service(t, { env, more: ['--open-browser'] });
    await poll('the browser', () => (fs.existsSync(process_file) ? true : undefined));
    const browser = Number(fs.readFileSync(process_file, 'utf8'));
    t.after(() => process.kill(browser, 'SIGKILL'));
    assert.ok(browser > 1);
    await assert_answers(service);
    // The end of its output shows that the browser does not hold the pipe either.
    await service.stop();
    const again = await start_service(t, { port: service.port });
    await again.stop();
    process.kill(browser, 0);
  });
}
