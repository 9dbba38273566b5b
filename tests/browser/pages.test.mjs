// Every settings page in a real browser: one change per row, sent alone, saved, checked in
// settings.conf and after a reload, each save reaching the scheduler; a switch disables what it
// governs; bad numbers are refused on the page; the NZB password is never shown and sent only
// when typed; a port clash comes back as a clear message; sign-in problems and ordinary users.
import assert from 'node:assert/strict';
import { readFile } from 'node:fs/promises';
import path from 'node:path';
import { before, describe, test } from 'node:test';

import { kErrorTexts } from '../../ui/errors.js';
import { newPage, pageStatus, recordCalls, save, settled, signIn } from './support/browser.mjs';
import { useDemoAndBrowser } from './support/demo.mjs';

async function openPage(page, id) {
  await page.click(`a[data-page="${id}"]`);
  await settled(page);
}

async function setControl(page, selector, kind, value) {
  if (kind === 'select') await page.selectOption(selector, value);
  else if (kind === 'check') await (value ? page.check(selector) : page.uncheck(selector));
  else await page.fill(selector, value);
}

async function readControl(page, selector, kind) {
  return kind === 'check' ? page.isChecked(selector) : page.inputValue(selector);
}

describe('settings pages', () => {
  const shared = useDemoAndBrowser();
  let demo;
  let page;

  before(async () => {
    ({ demo } = shared);
    page = await newPage(shared.browser);
    await signIn(page, demo.url, demo.admin);
  });

  test('a change is sent alone, stored under its key and shown after a reload', async () => {
    const hups = async () => Number(/hup=(\d+)/.exec(
      await readFile(path.join(demo.state, 'log/scheduler-signals'), 'utf8'))?.[1]);
    const hupsBefore = await hups();
    const rows = [
      { page: 'ftp_http', field: 'ftp_max_conn', kind: 'fill', value: '65535', key: 'download_ftpmax', stored: '65535' },
      { page: 'ftp_http', field: 'ftp_max_conn', kind: 'fill', value: ' 42 ', key: 'download_ftpmax', stored: '42', shown: '42' },
      { page: 'ftp_http', field: 'ftp_http_max_download_rate', kind: 'fill', value: '750', key: 'download_http_dl_rate', stored: '750' },
      { page: 'bt', field: 'encrypt', kind: 'select', value: 'always', key: 'download_btencrypt', stored: 'always' },
      { page: 'bt', field: 'max_peer', kind: 'fill', value: '300', key: 'download_btmaxpeers', stored: '300' },
      { page: 'bt', field: 'enable_dht', kind: 'check', value: false, key: 'download_enable_dht', stored: 'no' },
      { page: 'bt', field: 'tcp_port', kind: 'fill', value: '51413', key: 'download_start_port', stored: '51413' },
      // Minutes on the page, seconds in the file, and never less than 10 minutes when read.
      { page: 'rss', field: 'update_interval', kind: 'fill', value: '90', key: 'download_rss_update_interval', stored: '5400' },
      { page: 'rss', field: 'update_interval', kind: 'fill', value: '5', key: 'download_rss_update_interval', stored: '300', shown: '10' },
      { page: 'nzb', field: 'server', kind: 'fill', value: 'news.example.net', key: 'download_nzb_server', stored: 'news.example.net' },
      { page: 'nzb', field: 'enable_encryption', kind: 'check', value: false, key: 'download_nzb_encryption', stored: 'no' },
      { page: 'scheduler', field: 'order', kind: 'select', value: 'user', key: 'download_order', stored: 'user' },
      { page: 'scheduler', field: 'max_tasks', kind: 'fill', value: '3', key: 'download_maxtasks', stored: '3' },
    ];
    for (const row of rows) {
      const name = `${row.page}.${row.field} = ${row.value}`;
      await openPage(page, row.page);
      const selector = `#${row.page}-${row.field}`;
      const before = await demo.settings();
      const calls = recordCalls(page);
      await setControl(page, selector, row.kind, row.value);
      assert.equal(await save(page), 'Saved.', name);
      const sent = Object.keys(calls.find((c) => c.method === 'set'))
        .filter((k) => !['api', 'version', 'method', `bt_${row.field}`].includes(k));
      assert.deepEqual(sent, [row.field], `${name}: only the changed field is sent`);
      const now = await demo.settings();
      assert.equal(now[row.key], row.stored, name);
      for (const key of Object.keys(before)) {
        if (key !== row.key) assert.equal(now[key], before[key], `${name}: ${key} untouched`);
      }
      await page.reload();
      await settled(page);
      assert.equal(await readControl(page, selector, row.kind), row.shown ?? row.value, name);
    }
    // Each save signals the scheduler after its answer: give the last one a moment.
    for (let i = 0; i < 50 && await hups() < hupsBefore + rows.length; ++i) {
      await new Promise((r) => setTimeout(r, 100));
    }
    assert.equal(await hups(), hupsBefore + rows.length);
    assert.deepEqual(page.errors, []);
  });

  test('a limit follows its switch, and bad numbers never leave the page', async () => {
    await openPage(page, 'ftp_http');
    const limit = '#ftp_http-ftp_max_conn';
    await page.uncheck('#ftp_http-enable_ftp_max_conn');
    assert.ok(await page.isDisabled(limit));
    await page.check('#ftp_http-enable_ftp_max_conn');
    const before = await demo.settings();
    const calls = recordCalls(page);
    for (const [typed, error] of [['65536', 'Enter a number from 1 to 65535.'],
      ['2.5', 'Enter a whole number.'], ['', 'Enter a number.']]) {
      await page.fill(limit, typed);
      assert.equal(await save(page), 'Please correct the marked fields.', typed);
      assert.equal(await page.textContent(`${limit}-error`), error, typed);
      assert.equal(await page.getAttribute(limit, 'aria-invalid'), 'true');
    }
    assert.deepEqual(calls.filter((c) => c.method === 'set'), []);
    assert.deepEqual(await demo.settings(), before);
    await page.reload();
    await settled(page);
  });

  test('the NZB password is sent only when typed and never shown', async () => {
    await openPage(page, 'nzb');
    const box = '#nzb-password';
    assert.equal(await page.inputValue(box), '');
    const calls = recordCalls(page);
    await page.fill(box, 'hunter2');
    assert.equal(await save(page), 'Saved.');
    const stored = (await demo.settings()).download_nzb_password_en;
    assert.ok(stored && stored !== 'hunter2', 'the password is stored enciphered');
    assert.equal(calls.find((c) => c.method === 'set').password, '"hunter2"');
    assert.equal(await page.inputValue(box), '', 'the box is empty again after saving');
    assert.ok(calls.every((c) => c.method !== 'get' || !('password' in c)));

    await page.reload();
    await settled(page);
    assert.equal(await page.inputValue(box), '');
    await page.fill('#nzb-port', '119');
    assert.equal(await save(page), 'Saved.');
    const set = calls.filter((c) => c.method === 'set').at(-1);
    assert.deepEqual(Object.keys(set).sort(), ['api', 'method', 'port', 'version']);
    assert.equal((await demo.settings()).download_nzb_password_en, stored, 'kept as it was');
  });

  test('a DHT port that clashes with eMule is refused with a clear message', async () => {
    await openPage(page, 'bt');
    await page.check('#bt-enable_dht');
    await save(page);
    const before = await demo.settings();
    const calls = recordCalls(page);
    // eMule's UDP port when the settings name none.
    await page.fill('#bt-dht_port', '4672');
    const status = await save(page);
    assert.equal(status, kErrorTexts[517]);
    const set = calls.find((c) => c.method === 'set');
    assert.equal(set.bt_dht_port, '4672', 'the clash check is asked for');
    assert.deepEqual(await demo.settings(), before, 'nothing written');
  });

  test('sign-in problems and ordinary users get clear messages', async () => {
    const other = await newPage(shared.browser);
    await other.goto(demo.url);
    await other.fill('#login-account', demo.admin.account);
    await other.fill('#login-passwd', `${demo.admin.passwd}x`);
    await other.click('#login-submit');
    await other.waitForFunction(() => document.querySelector('#login-status').textContent !== '');
    assert.equal(await other.textContent('#login-status'), 'The account or password is wrong.');
    // An ordinary account is offered only what it may use: its own download locations and
    // what eMule shows it.
    await signIn(other, demo.url, demo.user);
    assert.deepEqual(await other.$$eval('#tabs a', (links) => links.map((a) => a.dataset.page)),
      ['location', 'emule', 'emule_location']);
    assert.equal(await pageStatus(other), '');
    assert.deepEqual(other.errors, []);
  });
});
