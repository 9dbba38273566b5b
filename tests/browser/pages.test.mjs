// Every settings page in a real browser: one change per row, saved, checked in settings.conf
// and after a reload; the NZB password is never shown and sent only when typed; a port clash
// comes back as a clear message.
import assert from 'node:assert/strict';
import { before, describe, test } from 'node:test';

import { kErrorTexts } from '../../ui/errors.js';
import { newPage, recordCalls, save, settled, signIn } from
  './support/browser.mjs';
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

  test('a change is stored under its key and shown after a reload', async () => {
    const rows = [
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
      await setControl(page, selector, row.kind, row.value);
      assert.equal(await save(page), 'Saved.', name);
      const now = await demo.settings();
      assert.equal(now[row.key], row.stored, name);
      for (const key of Object.keys(before)) {
        if (key !== row.key) assert.equal(now[key], before[key], `${name}: ${key} untouched`);
      }
      await page.reload();
      await settled(page);
      assert.equal(await readControl(page, selector, row.kind), row.shown ?? row.value, name);
    }
    assert.deepEqual(page.errors, []);
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
});
