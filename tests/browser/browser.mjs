// A machine with everything that the pages tell of, and pages in a browser whose clock stands still unless a test moves
// it.
import fs from 'node:fs';
import path from 'node:path';

import { chromium } from 'playwright-core';

import { make_directory, poll, start_service, unique_mapping_name, wait_limit_ms } from '../e2e/harness.mjs';
import { Machine, devices_path, dword_data, export_text, list_data, render_path, text_data } from '../e2e/registry.mjs';

export const limits = { timeout: 120_000 };
export const look_again_ms = 2000;
export const one_look = ['GET /api/v1/devices', 'GET /api/v1/status'];

const web_root = path.resolve(import.meta.dirname ?? path.dirname(new URL(import.meta.url).pathname), '../../web');
const browser_path = process.env.CHROMIUM ?? '/usr/bin/chromium';
const browser_arguments = ['--headless', '--no-sandbox', '--disable-gpu', '--no-first-run', '--disable-background-networking'];

const software = 'HKEY_LOCAL_MACHINE\\SOFTWARE';
const services_path = 'HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services';
const own_path = `${software}\\VelmoraStandIn`;
const friendly_name = '{a45c254e-df1c-4efd-8020-67d146a850e0},14';
const chain = '{d04e05a6-594b-4fb6-a80d-01af5eed7d1d},14';
export const effect_class = '{631D9145-CACF-44D7-861B-5D82ADD8C84F}';

const guid_of = (digit) => `{${`${digit}`.repeat(8)}-1111-4222-8333-444444444444}`;
export const id_of = (digit) => `{0.0.0.00000000}.${guid_of(digit)}`;

export const speakers = { digit: 1, name: 'Speakers', bound: true };
export const headphones = { digit: 2, name: 'Headphones' };

// The export of a machine.
//   endpoints   of render: { digit, name, bound, takes_effects, volume, muted }; the first is the default
//   effect      the path of the effect's file; null: the effect is not registered
//   trusted     whether Windows loads what it does not trust
//   audio       how the audio service behaves, as numbers: { StopMs, StopError, ... }
export function machine_text({
  endpoints = [speakers, headphones],
  effect = null,
  trusted = true,
  audio = {},
} = {}) {
  const keys = [
    [`${own_path}\\Audio`, endpoints.length > 0 ? [['DefaultRender', text_data(id_of(endpoints[0].digit))]] : []],
    [`${software}\\Microsoft\\Windows NT\\CurrentVersion\\Audio`, trusted ? [['DisableProtectedAudioDG', dword_data(1)]] : []],
    [`${services_path}\\Audiosrv`, []],
    [`${own_path}\\Services\\Audiosrv`, Object.entries(audio).map(([name, value]) => [name, dword_data(value)])],
  ];
  for (const { digit, name, bound, takes_effects = true, volume, muted } of endpoints) {
    const device = `${render_path}\\${guid_of(digit)}`;
    const sound = [];
    if (volume !== undefined) sound.push(['Volume', text_data(String(volume))]);
    if (muted !== undefined) sound.push(['Muted', dword_data(Number(muted))]);
    keys.push(
      [device, [['DeviceState', dword_data(1)]]],
      [`${device}\\Properties`, [[friendly_name, text_data(name)]]],
      [`${own_path}\\Audio\\${id_of(digit)}`, sound],
    );
    if (takes_effects) keys.push([`${device}\\FxProperties`, bound ? [[chain, list_data([effect_class])]] : []]);
  }
  keys.push([`${devices_path}\\Audio\\Capture`, []]);
  if (effect !== null) {
    keys.push([`${software}\\Classes\\CLSID\\${effect_class}\\InprocServer32`, [['DEFAULT', text_data(effect)]]]);
  }
  return export_text(keys).replace('"DEFAULT"=', '@=');
}

// As another program writes it: the service never sees a half.
export function rewrite_text(machine, text) {
  fs.writeFileSync(`${machine.file}.next`, text);
  fs.renameSync(`${machine.file}.next`, machine.file);
}

export const rewrite = (machine, contents) => rewrite_text(machine, machine_text(contents));

// A directory with the effect's files, or some of them. Gives the path of the effect.
export function install_effect(names = ['velmora_windows_apo.dll', 'fse.dll', 'model_weights.bin'], directory = '') {
  const place = make_directory(directory);
  for (const name of names) fs.writeFileSync(path.join(place, name), '');
  return path.join(place, 'velmora_windows_apo.dll');
}

// Processes for the service to see: an audio engine that has loaded these files, or none for null. Without `readable`
// its files cannot be listed.
export function make_processes(modules, readable = true) {
  const root = make_directory();
  if (modules === null) return root;
  const engine = path.join(root, '4711');
  fs.mkdirSync(engine);
  fs.symlinkSync('/windows/audiodg.exe', path.join(engine, 'exe'));
  const lines = modules.map((name, index) => `${index + 1}0000-${index + 1}1000 r-xp 00000000 08:01 7   /windows/${name}\n`);
  if (readable) fs.writeFileSync(path.join(engine, 'maps'), lines.join(''));
  return root;
}

// The words of the shared record that an effect writes.
export const words = { initialize_progress: 0x58, lock_progress: 0x68, applied: 0x80, processing: 0x88, blocks: 0x98 };

export function write_word(mapping, offset, value) {
  const bytes = Buffer.alloc(8);
  bytes.writeBigUInt64LE(value);
  const file = fs.openSync(`/dev/shm/${mapping.replace('\\', '.')}`, 'r+');
  fs.writeSync(file, bytes, 0, 8, offset);
  fs.closeSync(file);
}

export function float_bits(value) {
  const bytes = Buffer.alloc(4);
  bytes.writeFloatLE(value);
  return BigInt(bytes.readUInt32LE());
}

export function applied_word({ strength, bypass = false, bypass_all = false }) {
  return float_bits(strength) | (BigInt(bypass) << 32n) | (BigInt(bypass_all) << 33n) | (1n << 63n);
}

// The service on the machine of an export, and one of its pages. `more` are options of the service, `env` variables of
// its.
export async function open_page_on(t, text, { page_path = '/', more = [], env = {} } = {}) {
  const machine = await Machine.make(t, text);
  const mapping = unique_mapping_name();
  const service = await start_service(t, { web_root, env: { ...machine.env, ...env }, mapping, more });
  const browser = await chromium.launch({ executablePath: browser_path, args: browser_arguments });
  t.after(() => browser.close());
  const page = await browser.newPage();
  page.setDefaultTimeout(wait_limit_ms);
  const complaints = [];
  page.on('console', (message) => {
    if (['error', 'warning'].includes(message.type())) complaints.push(message.text());
  });
  page.on('pageerror', (error) => complaints.push(String(error)));
  const requests = [];
  const foreign = [];
  page.on('request', (request) => {
    const { protocol, host, pathname, search } = new URL(request.url());
    if (protocol !== 'data:' && host !== `127.0.0.1:${service.port}`) foreign.push(request.url());
    if (!pathname.startsWith('/api/')) return;
    requests.push([request.method(), pathname + search, request.postData() ?? ''].join(' ').trim());
  });
  await page.clock.install({ time: 0 });
  await page.clock.pauseAt(1000);
  const open = async ({ with_token = true } = {}) => {
    await page.goto(`http://127.0.0.1:${service.port}${page_path}${with_token ? `?token=${service.token}` : ''}`);
    await settle(page);
  };
  const end = async () => {
    await browser.close();
    await service.stop();
  };
  return { machine, service, mapping, page, complaints, requests, foreign, open, end };
}

export function open_page(t, contents = {}, { processes = null, ...options } = {}) {
  const env = { VELMORA_PROC: processes ?? make_processes(null) };
  return open_page_on(t, machine_text(contents), { env, ...options });
}

// Waits until nothing is under way. A page that is busy skips a look.
export async function settle(page) {
  await page.waitForFunction(() => !velmora.is_busy(), undefined, { polling: 20 });
}

// Lets the time of one look go by.
export async function begin_look(page) {
  await settle(page);
  await page.clock.runFor(look_again_ms);
}

// The same, and lets its answers come.
export async function refresh(page) {
  await begin_look(page);
  await settle(page);
}

// Waits for the text of an element, and names what stands there instead.
export async function wait_for_text(page, selector, text) {
  let last;
  await poll(`${JSON.stringify(text)} in ${selector}`, async () => {
    last = await page.locator(selector).textContent();
    return last === text ? true : undefined;
  }).catch((error) => {
    throw new Error(`${error.message}; there stands ${JSON.stringify(last)}`);
  });
}

export async function keep_picture(page, name) {
  const directory = process.env.VELMORA_SCREENSHOTS;
  if (directory) await page.screenshot({ path: path.join(directory, `${name}.png`), fullPage: true });
}
