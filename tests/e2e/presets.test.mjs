// Presets: named settings as files of one directory, which no name may lead out of.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';

import {
  answer_bytes,
  answers,
  api_bytes,
  ask,
  assert_answers,
  body_of,
  Client,
  equalizer_document,
  exchange,
  hold_file,
  is_native,
  is_wine,
  json_document,
  make_directory,
  make_small_disk,
  make_unprivileged_service,
  program_path_text,
  read_record,
  refusal_bytes,
  request_bytes,
  some_bands,
  start_service,
} from './harness.mjs';

const limits = { timeout: 120_000 };
const collection = '/api/v1/eq/presets';
const equalizer = '/api/v1/render/effects/eq';

const no_such_preset = refusal_bytes(404, 'Not Found', 'no such preset');
const bad_name = refusal_bytes(400, 'Bad Request', 'preset name may contain letters, digits, spaces, - and _ only');
const bad_method = refusal_bytes(405, 'Method Not Allowed', 'unsupported method');
const not_written = refusal_bytes(500, 'Internal Server Error', 'cannot write the preset file');

const preset_answer = (bytes) => answer_bytes(200, 'OK', json_document, bytes);
const bytes_of = (text) => Buffer.from(text, 'utf8').toString('latin1');

const get = (service, name) => ask(service, 'GET', `${collection}/${name}`);
const put = (service, name, body) => ask(service, 'PUT', `${collection}/${name}`, body);
const remove = (service, name) => ask(service, 'DELETE', `${collection}/${name}`);

// The listed names, sorted: their order is the file system's own.
async function list(service) {
  const answer = await ask(service, 'GET', collection);
  const body = body_of(answer);
  assert.equal(answer, answer_bytes(200, 'OK', json_document, body));
  const { presets, ...more } = JSON.parse(Buffer.from(body, 'latin1').toString('utf8'));
  assert.deepEqual(more, {});
  assert.equal(bytes_of(JSON.stringify({ presets })), body, 'the list is written without blanks');
  return presets.sort();
}

function setting_of(shift = 0, bypass = false) {
  return { bypass, fade_ms: 12.34, bands: some_bands(shift) };
}

async function start_with_presets(t, directory, options = {}) {
  return start_service(t, { more: ['--preset-directory', program_path_text(directory)], ...options });
}

// Every file below a directory with its content; what is no file stands there by its kind.
function tree_of(directory, below = '') {
  const found = {};
  for (const entry of fs.readdirSync(path.join(directory, below), { withFileTypes: true })) {
    const name = path.join(below, entry.name);
    if (entry.isFile()) found[name] = fs.readFileSync(path.join(directory, name), 'latin1');
    else found[name] = entry.isSymbolicLink() ? 'link' : entry.isDirectory() ? 'directory' : 'other';
    if (entry.isDirectory()) Object.assign(found, tree_of(directory, name));
  }
  return found;
}

test('the whole life of a preset', limits, async (t) => {
  const home = make_directory();
  const directory = path.join(home, 'made', 'by', 'the service');
  const service = await start_with_presets(t, directory);

  await t.test('nothing is made before the first one is kept', async () => {
    assert.equal(await ask(service, 'GET', collection), preset_answer('{"presets":[]}'));
    assert.equal(await get(service, 'first'), no_such_preset);
    assert.equal(await remove(service, 'first'), no_such_preset);
    const refused = refusal_bytes(400, 'Bad Request', 'bands must contain exactly 15 entries');
    assert.equal(await put(service, 'first', '{"bands":[]}'), refused);
    assert.deepEqual(fs.readdirSync(home), []);
  });

  const live = { bypass: false, fade_ms: 50, bands: some_bands(3) };
  assert.equal(await ask(service, 'PUT', equalizer, JSON.stringify(live)), answers.done);
  const live_record = await read_record(t, service.mapping);

  await t.test('saved: the file holds the checked setting and no more', async () => {
    const body = JSON.stringify({ colour: 'blue', ...setting_of(), more: [1, 2] }, null, 2);
    assert.equal(await put(service, 'first', body), answers.done);
    assert.deepEqual(tree_of(directory), { 'first.json': equalizer_document(setting_of()) });
    assert.ok(tree_of(directory)['first.json'].startsWith('{"bypass":false,"fade_ms":12.34,"bands":[{"type":0,'));
    assert.deepEqual(await read_record(t, service.mapping), live_record, 'the live equalizer is another matter');
  });
  await t.test('what the body leaves out is a default, whatever is live', async () => {
    const { bands } = setting_of();
    assert.equal(await put(service, 'defaults', JSON.stringify({ bands })), answers.done);
    const expected = equalizer_document({ bypass: true, fade_ms: 20, bands });
    assert.equal(tree_of(directory)['defaults.json'], expected);
  });
  await t.test('listed and fetched', async () => {
    assert.deepEqual(await list(service), ['defaults', 'first']);
    assert.equal(await get(service, 'first'), preset_answer(equalizer_document(setting_of())));
    assert.equal(await get(service, 'second'), no_such_preset);
  });
  await t.test('put to the live equalizer', async () => {
    assert.equal(await ask(service, 'PUT', equalizer, body_of(await get(service, 'first'))), answers.done);
    const expected = equalizer_document({ ...setting_of(), fade_ms: 12.3 });
    assert.equal(body_of(await ask(service, 'GET', equalizer)), expected);
  });
  await t.test('replaced by a shorter one without a question', async () => {
    const short = { bypass: true, fade_ms: 1, bands: Array(15).fill({ type: 0, freq_hz: 20, gain_db: 0, q: 1 }) };
    assert.equal(await put(service, 'first', JSON.stringify(short)), answers.done);
    assert.equal(tree_of(directory)['first.json'], equalizer_document(short));
  });
  await t.test('a refused body leaves the file as it was', async () => {
    const before = tree_of(home);
    const { bands } = setting_of();
    const refusals = [
      ['', 'bands must be an array'],
      ['{"bands":[{"type":1]]}', 'malformed band object'],
      ['{"bands":[{}]}', 'each band needs type, freq_hz, gain_db and q'],
      [JSON.stringify({ bands: [{ ...bands[0], type: 9 }] }), 'band type must be 0..8'],
      [JSON.stringify({ bands: bands.slice(1) }), 'bands must contain exactly 15 entries'],
      [JSON.stringify({ bands, fade_ms: 0.5 }), 'fade_ms must be 1..200'],
    ];
    for (const [body, message] of refusals) {
      assert.equal(await put(service, 'first', body), refusal_bytes(400, 'Bad Request', message));
      assert.equal(await put(service, 'fresh', body), refusal_bytes(400, 'Bad Request', message));
    }
    assert.deepEqual(tree_of(home), before);
  });
  await t.test('it outlives the service', async () => {
    const second = await start_with_presets(t, directory);
    assert.deepEqual(await list(second), ['defaults', 'first']);
    await second.stop();
  });
  await t.test('deleted, which changes nothing in the effect', async () => {
    const before = await read_record(t, service.mapping);
    assert.equal(await remove(service, 'first'), answers.done);
    assert.deepEqual(Object.keys(tree_of(directory)), ['defaults.json']);
    assert.equal(await remove(service, 'first'), no_such_preset);
    assert.equal(await get(service, 'first'), no_such_preset);
    assert.deepEqual(await list(service), ['defaults']);
    assert.deepEqual(await read_record(t, service.mapping), before);
  });
  await t.test('a directory that has gone is made again', async () => {
    fs.rmSync(path.join(home, 'made'), { recursive: true });
    assert.deepEqual(await list(service), []);
    assert.equal(await put(service, 'again', JSON.stringify(setting_of())), answers.done);
    assert.deepEqual(await list(service), ['again']);
  });
  await service.stop();
});

test('presets lie beside the captures unless they are told where', limits, async (t) => {
  const home = make_directory();
  const captures = program_path_text(path.join(home, 'wav'));
  const service = await start_service(t, { more: ['--capture-directory', captures] });
  assert.equal(await put(service, 'beside', JSON.stringify(setting_of())), answers.done);
  assert.deepEqual(Object.keys(tree_of(home)).sort(), ['presets', path.join('presets', 'beside.json')]);
  await service.stop();
});

// What stands behind the collection's path, and the file that it names.
const long_letter = '\u4e2d';
const names = [
  ['normal', 'normal'],
  ['with-dash_1', 'with-dash_1'],
  ['-', '-'],
  ['0', '0'],
  ['n%6Frmal%2d2', 'normal-2'],
  ['with%20space', 'with space'],
  ['with+space', 'with space'],
  ['two++blanks', 'two  blanks'],
  ['%E4%B8%AD%E6%96%87', '\u4e2d\u6587'],
  ['%e4%b8%ad%e6%96%87', '\u4e2d\u6587'],
  [bytes_of('\u4e2d\u6587'), '\u4e2d\u6587'],
  ['%C3%A9', '\u00e9'],
  ['e%CC%81', 'e\u0301'],
  ['%F0%9F%8E%A7', '\u{1f3a7}'],
  ['a'.repeat(64), 'a'.repeat(64)],
  ['%61'.repeat(64), 'a'.repeat(64)],
  [encodeURIComponent(long_letter.repeat(21)), long_letter.repeat(21)],
  [encodeURIComponent(`${long_letter.repeat(21)}x`), `${long_letter.repeat(21)}x`],
  ['normal?name=../escape', 'normal'],
  // Signs that only look like a dot or a separator are letters like any other.
  [encodeURIComponent('\uff0e\uff0e\uff0fescape'), '\uff0e\uff0e\uff0fescape'],
  [encodeURIComponent('\u2024\u2024\u2215escape'), '\u2024\u2024\u2215escape'],
];

test('a name is the file that its bytes say', limits, async (t) => {
  const home = make_directory();
  const directory = path.join(home, 'presets');
  const service = await start_with_presets(t, directory);
  const body = JSON.stringify(setting_of());
  for (const [target, name] of names) {
    await t.test(`${target} is ${name}`, async () => {
      assert.equal(await put(service, target, body), answers.done);
      assert.deepEqual(tree_of(home), { presets: 'directory', [`presets/${name}.json`]: equalizer_document(setting_of()) });
      assert.deepEqual(await list(service), [name]);
      assert.equal(await get(service, target), preset_answer(equalizer_document(setting_of())));
      assert.equal(await ask(service, 'POST', `${collection}/${target}`), bad_method);
      assert.equal(await remove(service, target), answers.done);
      assert.deepEqual(tree_of(home), { presets: 'directory' });
    });
  }

  // Bytes that are no UTF-8 become replacement signs, and so does every way to write a dot or a slash in too many.
  const ill_formed = ['%ff', '%80%80', '%c0%ae%c0%ae%c0%afescape', '%c0%ae%c0%ae%c1%9cescape', '%e0%80%ae%e0%80%ae%e0%80%afescape',
    '%f0%80%80%ae%f0%80%80%ae%f0%80%80%afescape', '%ed%a0%80', '%ed%bc%af', '%f4%90%80%80', 'cut%e4%b8'];
  for (const target of ill_formed) {
    await t.test(`${target} stays in the directory`, async () => {
      assert.equal(await put(service, target, body), answers.done);
      const [folder, file, ...more] = Object.keys(tree_of(home));
      assert.deepEqual([folder, more], ['presets', []]);
      assert.match(file, /^presets\/(cut)?\ufffd+(escape)?\.json$/);
      assert.equal(await get(service, target), preset_answer(equalizer_document(setting_of())));
      assert.equal(await remove(service, target), answers.done);
      assert.deepEqual(tree_of(home), { presets: 'directory' });
    });
  }
  await service.stop();
});

const refused_names = [
  // Ways up and out, plain and encoded.
  '.', '..', '../escape', '..%2Fescape', '..%2fescape', '..\\escape', '..%5Cescape', '..%5cescape', '%2e', '%2e%2e',
  '%2e%2e%2fescape', '%2E%2E%2Fescape', '%2e%2e%5cescape', '%2e%2e/escape', '.%2e/escape', '../../escape',
  'a/../../escape', 'a%2f..%2f..%2fescape', 'a%5c..%5c..%5cescape', './escape', '../presets/victim', '..%2fpresets%2fvictim',
  // Encoded twice: once decoded, a percent sign is left.
  '%252e%252e%252fescape', '%2561', '..%252fescape', '..%255cescape', '%25', '%252e',
  // A dot or a slash in too many bytes beside one that is real.
  '%c0%ae%c0%ae/escape', '%c0%ae%c0%ae%5cescape', '..%c0%afescape', '..%ef%bc%8fescape',
  // The end of a C text.
  '%00', 'victim%00', 'victim%00.json', '%00victim', '..%00/escape', 'victim\0',
  // Absolute, on a drive, on a server, to a device, in an alternate stream.
  '/tmp/escape', '%2Ftmp%2Fescape', '//server/share', '%5C%5Cserver%5Cshare%5Cescape', '%5Cescape', 'C:', 'C%3A',
  'C:escape', 'C:\\escape', 'C%3A%5Cescape', 'C%3A%2Fescape', 'Z:escape', 'Z%3Aescape', '%5C%5C%3F%5CC%3A%5Cescape',
  '%5C%5C.%5CNUL', '%5C%5C.%5CC%3A', 'NUL:', 'CON%3A', 'victim:stream', 'victim%3Astream', 'victim::$DATA', 'victim.json:stream',
  '%3A', 'victim%3A%3A%24DATA',
  // Signs and places that the rule leaves out.
  'victim.json', 'trailing.', 'trailing%2e', '.leading', 'a.b', 'with/slash', 'with%2Fslash', 'with\\slash', 'with:colon', 'with*star',
  'with%3Fquery', 'with"quote', 'with%22quote', 'with<lt', 'with>gt', 'with%3Cgt', 'with|pipe', 'with%7Cpipe', 'VICTIM~1', '~',
  '$HOME', '%24HOME', '`id`', "it's", 'a,b', 'a;b', 'a&b', 'a=b', 'a@b', 'a!b', 'a^b', 'a[b]', 'a{b}', 'a(b)', 'a%0ab', 'a%0d%0ab', 'a%09b',
  'a%1fb', 'a%7fb', 'a%08b', '%20', '+', '%20victim', 'victim%20', '+victim', 'victim+', 'victim%20?x', '++',
  'a%', 'a%4', 'a%zz', '%', '%%36%31', 'a%2', '#', 'a#b', 'victim/', 'victim%2f', 'victim\\',
  // Too long, in bytes.
  'a'.repeat(65), '%61'.repeat(65), 'a'.repeat(60_000), encodeURIComponent(long_letter.repeat(22)), `${'a'.repeat(64)}+`,
];

test('no name leads out of the directory, whatever the method', limits, async (t) => {
  const home = make_directory();
  const directory = path.join(home, 'presets');
  fs.mkdirSync(path.join(directory, 'a'), { recursive: true });
  fs.writeFileSync(path.join(directory, 'victim.json'), 'inside');
  fs.writeFileSync(path.join(home, 'escape.json'), 'outside');
  fs.writeFileSync(path.join(home, 'escape'), 'outside');
  const service = await start_with_presets(t, directory, { cwd: home });
  const before = tree_of(home);
  const body = JSON.stringify(setting_of());
  for (const name of refused_names) {
    await t.test(JSON.stringify(name.slice(0, 60)), async () => {
      const target = `${collection}/${name}`;
      for (const method of ['GET', 'DELETE', 'POST', 'HEAD', 'get', 'PATCH']) {
        assert.equal(await ask(service, method, target), bad_name, method);
      }
      assert.equal(await ask(service, 'PUT', target, body), bad_name);
      assert.equal(await ask(service, 'PUT', target, 'no setting'), bad_name, 'the name is looked at before the body');
    });
  }
  assert.deepEqual(tree_of(home), before);
  assert.equal(fs.existsSync('/tmp/escape.json'), false);
  await assert_answers(service);
  await service.stop();
});

test('methods and paths are judged in their order', limits, async (t) => {
  const directory = path.join(make_directory(), 'presets');
  const service = await start_with_presets(t, directory);
  const body = JSON.stringify(setting_of());
  const table = [
    ['GET', collection, preset_answer('{"presets":[]}')],
    ['GET', `${collection}?x=/y`, preset_answer('{"presets":[]}')],
    ['POST', collection, answers.not_found],
    ['PUT', collection, answers.not_found],
    ['DELETE', collection, answers.not_found],
    ['HEAD', collection, answers.not_found],
    ['GET', `${collection}/`, answers.not_found],
    ['PUT', `${collection}/`, answers.not_found],
    ['DELETE', `${collection}/?x`, answers.not_found],
    ['GET', `${collection}x`, answers.not_found],
    ['PUT', `${collection}x/name`, answers.not_found],
    ['GET', `${collection}%2fname`, answers.not_found],
    ['GET', collection.toUpperCase(), answers.not_found],
    ['GET', `${collection}//name`, bad_name],
    ['POST', `${collection}/a.b`, bad_name],
    ['POST', `${collection}/name`, bad_method],
    ['PATCH', `${collection}/name`, bad_method],
    ['HEAD', `${collection}/name`, bad_method],
    ['OPTIONS', `${collection}/name`, bad_method],
    ['put', `${collection}/name`, bad_method],
    ['GET', `${collection}/name`, no_such_preset],
    ['DELETE', `${collection}/name`, no_such_preset],
  ];
  for (const [method, target, expected] of table) {
    await t.test(`${method} ${target}`, async () => assert.equal(await ask(service, method, target, body), expected));
  }
  await t.test('the token and the origin come first', async () => {
    const options = { method: 'PUT', target: `${collection}/a.b`, body };
    const headers = [['X-Velmora-Token', service.token], ['Origin', 'null']];
    assert.equal(await exchange(service, request_bytes(service, { ...options, headers })), answers.not_local);
    assert.equal(await exchange(service, request_bytes(service, options)), answers.no_token);
  });
  assert.equal(fs.existsSync(directory), false, 'none of it made the directory');
  await service.stop();
});

test('files that were put there by hand', limits, async (t) => {
  const home = make_directory();
  const directory = path.join(home, 'presets');
  fs.mkdirSync(path.join(directory, 'folder.json', 'inner.json'), { recursive: true });
  const at = (name) => path.join(directory, name);
  const odd_bytes = Buffer.from(Array.from({ length: 200_000 }, (_, index) => (index * 7) % 256));
  fs.writeFileSync(at('empty.json'), '');
  fs.writeFileSync(at('upper.JSON'), 'upper');
  fs.writeFileSync(at('a.b.json'), 'two dots');
  fs.writeFileSync(at('.json'), 'no name');
  fs.writeFileSync(at('..json'), 'a dot for a name');
  fs.writeFileSync(at('notes.txt'), 'notes');
  fs.writeFileSync(at('x.json.bak'), 'old');
  fs.writeFileSync(at('json'), 'json');
  fs.writeFileSync(at('odd.json'), odd_bytes);
  fs.writeFileSync(at('by hand.json'), '\ufeff{ "bands": "whatever" }\r\n');
  fs.writeFileSync(path.join(home, 'target'), 'behind the link');
  fs.symlinkSync('../target', at('link.json'));
  fs.symlinkSync('..', at('link to folder.json'));
  fs.symlinkSync('nowhere', at('dangling.json'));
  fs.symlinkSync('loop.json', at('loop.json'));
  execFileSync('mkfifo', [at('pipe.json')]);
  const service = await start_with_presets(t, directory);
  const before = tree_of(home);
  const body = JSON.stringify(setting_of());

  await t.test('the regular ones are listed, whatever their names', async () => {
    assert.deepEqual(await list(service), ['.', 'a.b', 'by hand', 'empty', 'link', 'odd']);
  });
  await t.test('bytes come as they stand', async () => {
    assert.equal(await get(service, 'odd'), preset_answer(odd_bytes.toString('latin1')));
    assert.equal(await get(service, 'by+hand'), preset_answer(bytes_of('\ufeff{ "bands": "whatever" }\r\n')));
    assert.equal(await get(service, 'link'), preset_answer('behind the link'));
  });
  await t.test('an empty one is listed and yet not there', async () => {
    assert.equal(await get(service, 'empty'), no_such_preset);
  });
  await t.test('a listed name may be refused', async () => {
    assert.equal(await get(service, 'a.b'), bad_name);
  });
  // A file system that ignores case finds the one in capitals.
  if (is_native) assert.equal(await get(service, 'upper'), no_such_preset);
  const no_files = ['folder', 'link+to+folder', 'pipe'];
  for (const name of no_files) {
    await t.test(`${name} is no preset, and stays`, async () => {
      assert.equal(await get(service, name), no_such_preset);
      assert.equal(await remove(service, name), no_such_preset);
      assert.equal(await put(service, name, body), not_written);
    });
  }
  for (const name of ['dangling', 'loop']) {
    await t.test(`${name} is no preset`, async () => {
      assert.equal(await get(service, name), no_such_preset);
      assert.equal(await remove(service, name), no_such_preset);
    });
  }
  assert.deepEqual(tree_of(home), before);
  await t.test('an empty one can be deleted', async () => {
    assert.equal(await remove(service, 'empty'), answers.done);
    assert.equal(fs.existsSync(at('empty.json')), false);
  });
  await t.test('a link is written through, and deleted without what it leads to', async () => {
    assert.equal(await put(service, 'link', body), answers.done);
    assert.equal(fs.readFileSync(path.join(home, 'target'), 'latin1'), equalizer_document(setting_of()));
    // Wine deletes what a link of the system below leads to, and leaves the link.
    if (is_wine) return;
    assert.equal(await remove(service, 'link'), answers.done);
    assert.equal(fs.existsSync(at('link.json')), false);
    assert.equal(fs.readFileSync(path.join(home, 'target'), 'latin1'), equalizer_document(setting_of()));
  });
  await service.stop();
});

if (is_native) {
  test('a file name of any bytes is listed as text', limits, async (t) => {
    const directory = make_directory();
    for (const name of ['quo"te', 'back\\slash', 'line\nend', 'bell\x07']) fs.writeFileSync(path.join(directory, `${name}.json`), 'x');
    fs.writeFileSync(Buffer.concat([Buffer.from(`${directory}/`), Buffer.from([0xff]), Buffer.from('.json')]), 'x');
    const service = await start_with_presets(t, directory);
    assert.deepEqual(await list(service), ['back\\slash', 'bell\x07', 'line\nend', 'quo"te', '\ufffd'].sort());
    await service.stop();
  });

  test('a preset that may not be read or written', limits, async (t) => {
    const directory = make_directory();
    const whole = path.join(directory, 'private.json');
    fs.writeFileSync(whole, 'private');
    fs.chmodSync(whole, 0);
    const service = await start_with_presets(t, directory, { program: make_unprivileged_service() });
    assert.deepEqual(await list(service), ['private']);
    assert.equal(await get(service, 'private'), no_such_preset);
    assert.equal(await put(service, 'private', JSON.stringify(setting_of())), not_written);
    fs.chmodSync(directory, 0o555);
    assert.equal(await put(service, 'fresh', JSON.stringify(setting_of())), not_written);
    assert.equal(await remove(service, 'private'), no_such_preset);
    fs.chmodSync(directory, 0o333);
    assert.deepEqual(await list(service), [], 'a directory that cannot be read has no presets');
    fs.chmodSync(directory, 0);
    assert.deepEqual(await list(service), []);
    fs.chmodSync(directory, 0o755);
    assert.equal(fs.statSync(whole).size, 'private'.length);
    await service.stop();
  });
}

if (is_wine) {
  test('a preset that another program holds', limits, async (t) => {
    const directory = make_directory();
    const file = path.join(directory, 'held.json');
    fs.writeFileSync(file, 'held');
    const service = await start_with_presets(t, directory);
    const release = await hold_file(t, file);
    assert.equal(await get(service, 'held'), preset_answer('held'), 'it may still be read');
    assert.equal(await put(service, 'held', JSON.stringify(setting_of())), not_written);
    assert.equal(await remove(service, 'held'), no_such_preset);
    assert.deepEqual(tree_of(directory), { 'held.json': 'held' });
    assert.deepEqual(await list(service), ['held']);
    await release();
    assert.equal(await put(service, 'held', JSON.stringify(setting_of())), answers.done);
    assert.equal(await remove(service, 'held'), answers.done);
    assert.deepEqual(tree_of(directory), {});
    await service.stop();
  });
}

test('where there is no directory and none can be made', limits, async (t) => {
  const home = make_directory();
  fs.writeFileSync(path.join(home, 'file'), 'a file');
  for (const place of ['file', 'file/below', 'file/far/below']) {
    await t.test(place, async (t) => {
      const service = await start_with_presets(t, path.join(home, place));
      assert.deepEqual(await list(service), []);
      assert.equal(await put(service, 'name', JSON.stringify(setting_of())), not_written);
      assert.equal(await get(service, 'name'), no_such_preset);
      assert.equal(await remove(service, 'name'), no_such_preset);
      await service.stop();
    });
  }
  assert.deepEqual(tree_of(home), { file: 'a file' });
});

test('a full disk', limits, async (t) => {
  const disk = make_small_disk(t, 8192);
  const service = await start_with_presets(t, disk.directory);
  const body = JSON.stringify(setting_of());
  assert.equal(await put(service, 'kept', body), answers.done);
  // One page is left, and this takes it.
  fs.writeFileSync(path.join(disk.directory, 'filler'), Buffer.alloc(4096, 1));
  await t.test('refuses a new preset and leaves it empty', async () => {
    assert.equal(await put(service, 'fresh', body), not_written);
    assert.equal(fs.statSync(path.join(disk.directory, 'fresh.json')).size, 0);
    assert.deepEqual(await list(service), ['fresh', 'kept']);
    assert.equal(await get(service, 'fresh'), no_such_preset);
    assert.equal(await get(service, 'kept'), preset_answer(equalizer_document(setting_of())));
  });
  await t.test('takes it when there is room again', async () => {
    fs.rmSync(path.join(disk.directory, 'filler'));
    assert.equal(await put(service, 'fresh', body), answers.done);
    assert.equal(await get(service, 'fresh'), preset_answer(equalizer_document(setting_of())));
  });
  await service.stop();
});

test('a disk that may only be read', limits, async (t) => {
  const disk = make_small_disk(t, 8192);
  fs.writeFileSync(path.join(disk.directory, 'kept.json'), 'kept');
  disk.make_read_only();
  const service = await start_with_presets(t, disk.directory);
  const body = JSON.stringify(setting_of());
  assert.deepEqual(await list(service), ['kept']);
  assert.equal(await get(service, 'kept'), preset_answer('kept'));
  assert.equal(await put(service, 'kept', body), not_written);
  assert.equal(await put(service, 'fresh', body), not_written);
  // Wine deletes at the last close, when nobody is left to be told that it failed.
  assert.equal(await remove(service, 'kept'), is_wine ? answers.done : no_such_preset);
  assert.deepEqual(tree_of(disk.directory), { 'kept.json': 'kept' });
  await service.stop();

  await t.test('has no room for the directory either', async (t) => {
    const below = await start_with_presets(t, path.join(disk.directory, 'below', 'presets'));
    assert.equal(await put(below, 'fresh', body), not_written);
    assert.deepEqual(await list(below), []);
    await below.stop();
  });
});

// Names that mean a device to Windows, whatever stands behind their dot, and one that Windows has taken for a device
// at times and Wine does not. A device that is opened may never answer, so each answer has its limit.
test('names of devices', { timeout: 120_000 }, async (t) => {
  const directory = path.join(make_directory(), 'presets');
  const service = await start_with_presets(t, directory);
  assert.equal(await put(service, 'plain', JSON.stringify(setting_of())), answers.done);
  for (const name of ['NUL', 'CON', 'COM1', 'LPT1', 'AUX', 'PRN', 'nul', 'con', 'com1', 'COM%C2%B9']) {
    await t.test(name, async (t) => {
      const spoken = [];
      for (const [method, body] of [['GET'], ['PUT', JSON.stringify(setting_of())], ['GET'], ['DELETE'], ['DELETE']]) {
        const client = await Client.connect(service);
        client.push(api_bytes(service, method, `${collection}/${name}`, body));
        spoken.push((await client.answer(10_000)).bytes);
        await assert_answers(service);
      }
      const as_file = [no_such_preset, answers.done, preset_answer(equalizer_document(setting_of())), answers.done, no_such_preset];
      const as_device = [no_such_preset, not_written, no_such_preset, no_such_preset, no_such_preset];
      assert.deepEqual(spoken, is_wine && !name.includes('%') ? as_device : as_file);
    });
  }
  assert.deepEqual(await list(service), ['plain']);
  assert.deepEqual(Object.keys(tree_of(directory)), ['plain.json']);
  await service.stop();
});
