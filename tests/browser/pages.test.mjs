// Every settings page in a real browser against one demo, as the administrator and as an ordinary
// account: a change is sent alone and shown after a reload; switches, bad numbers and refusals
// read as clear messages; the schedule grid by mouse and keyboard; the download locations, BT
// search and eMule pages; the volume move. Tests run in order on the one demo, the volume move
// last. What the module stores is the HTTP and unit tests' part: here, what the page sends and
// shows.
import assert from 'node:assert/strict';
import { readFile, stat, writeFile } from 'node:fs/promises';
import path from 'node:path';
import { before, describe, test } from 'node:test';

import { kErrorTexts } from '../../ui/errors.js';
import { formatSchedule, kHours, paintRect } from '../../ui/schedule_grid.js';
import { newPage, pageStatus, recordCalls, save, settled, signIn } from './support/browser.mjs';
import { useDemoAndBrowser } from './support/demo.mjs';

describe('every page in a browser', () => {
  const shared = useDemoAndBrowser();
  let demo;
  before(() => ({ demo } = shared));

  async function openPage(page, id) {
    await page.click(`a[data-page="${id}"]`);
    // The page changes on the hash's change event, after the click: until then the last page's
    // settled form would answer for it.
    await page.waitForSelector(`a[data-page="${id}"][aria-current="page"]`);
    await settled(page);
  }

  // A new page signed in as `account`, on the page `id` when given.
  async function open(account, id, options) {
    const page = await newPage(shared.browser, options);
    await signIn(page, demo.url, account);
    if (id) await openPage(page, id);
    return page;
  }

  describe('settings pages', () => {
    let page;
    before(async () => { page = await open(demo.admin); });

    test('a change is sent alone and shown after a reload', async () => {
      const rows = [
        { page: 'ftp_http', field: 'ftp_max_conn', kind: 'fill', value: ' 42 ', shown: '42' },
        { page: 'bt', field: 'encrypt', kind: 'select', value: 'always' },
        { page: 'bt', field: 'enable_dht', kind: 'check', value: false },
        // Minutes on the page, never less than 10 when read back.
        { page: 'rss', field: 'update_interval', kind: 'fill', value: '5', shown: '10' },
      ];
      for (const row of rows) {
        const name = `${row.page}.${row.field} = ${row.value}`;
        await openPage(page, row.page);
        const selector = `#${row.page}-${row.field}`;
        const calls = recordCalls(page);
        if (row.kind === 'select') await page.selectOption(selector, row.value);
        else if (row.kind === 'check') await page.setChecked(selector, row.value);
        else await page.fill(selector, row.value);
        assert.equal(await save(page), 'Saved.', name);
        const sent = Object.keys(calls.find((c) => c.method === 'set'))
          .filter((k) => !['api', 'version', 'method'].includes(k));
        assert.deepEqual(sent, [row.field], `${name}: only the changed field is sent`);
        await page.reload();
        await settled(page);
        const shown = row.kind === 'check' ? page.isChecked(selector) : page.inputValue(selector);
        assert.equal(await shown, row.shown ?? row.value, name);
      }
      assert.deepEqual(page.errors, []);
    });

    // Which numbers are bad and what they read as is the page logic's unit test.
    test('a limit follows its switch, and a bad number never leaves the page', async () => {
      await openPage(page, 'ftp_http');
      const limit = '#ftp_http-ftp_max_conn';
      await page.uncheck('#ftp_http-enable_ftp_max_conn');
      assert.ok(await page.isDisabled(limit));
      await page.check('#ftp_http-enable_ftp_max_conn');
      const calls = recordCalls(page);
      await page.fill(limit, '65536');
      assert.equal(await save(page), 'Please correct the marked fields.');
      assert.equal(await page.getAttribute(limit, 'aria-invalid'), 'true');
      assert.deepEqual(calls.filter((c) => c.method === 'set'), []);
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

  // ---- the weekly schedule grid: drag across hours, save, reload ----

  // What a drag from cell `from` to cell `to` ([day, hour]) should leave: the rectangle between
  // them takes the opposite of the first cell's state (paintRect's own rule is unit-tested).
  function expectDrag(week, [d0, h0], [d1, h1]) {
    const bits = [...week].map((c) => c === '1');
    const [a, b] = [d0 * kHours + h0, d1 * kHours + h1];
    return formatSchedule(paintRect(bits, a, b, !bits[a]));
  }

  function gridState(page) {
    return page.$$eval('.schedule-cell', (cells) =>
      cells.map((c) => (c.getAttribute('aria-selected') === 'true' ? '1' : '0')).join(''));
  }

  async function drag(page, from, to) {
    // The mouse acts where the window shows the grid; a reload may have left it scrolled away.
    await page.locator('.schedule-grid').scrollIntoViewIfNeeded();
    const [a, b] = await Promise.all([from, to].map(async ([day, hour]) => {
      const box = await page.locator(`.schedule-cell[data-index="${day * kHours + hour}"]`)
        .boundingBox();
      return { x: box.x + box.width / 2, y: box.y + box.height / 2 };
    }));
    await page.mouse.move(a.x, a.y);
    await page.mouse.down();
    await page.mouse.move(b.x, b.y, { steps: 12 });
    await page.mouse.up();
  }

  describe('schedule grid', () => {
    // Backwards and upwards over two days; which cells a drag paints is paintRect's unit test.
    const [from, to] = [[6, 23], [5, 20]];

    for (const wide of [true, false]) {
      test(`dragged hours are saved and come back (${wide ? 'wide' : 'narrow'} window)`, async () => {
        const viewport = wide ? { width: 1100, height: 900 } : { width: 380, height: 800 };
        const page = await open(demo.admin, 'scheduler', { viewport });
        const want = expectDrag(await gridState(page), from, to);
        await drag(page, from, to);
        assert.equal(await gridState(page), want, 'the grid as dragged');
        assert.equal(await save(page), 'Saved.');
        await page.reload();
        await settled(page);
        assert.equal(await gridState(page), want, 'after a reload');
        assert.deepEqual(page.errors, []);
      });
    }

    test('the keyboard switches hours too', async () => {
      const page = await open(demo.admin, 'scheduler');
      const before = await gridState(page);
      await page.locator('.schedule-cell[data-index="0"]').focus();
      // Down to the second day, right to 08:00, switch it, then carry that along to 11:00.
      await page.keyboard.press('ArrowDown');
      for (let i = 0; i < 8; ++i) await page.keyboard.press('ArrowRight');
      await page.keyboard.press('Space');
      for (let i = 0; i < 3; ++i) await page.keyboard.press('Shift+ArrowRight');
      assert.equal(await gridState(page), expectDrag(before, [1, 8], [1, 11]));
      assert.equal(await save(page), 'Saved.');
    });
  });

  describe('download locations page', () => {
    let page;
    before(async () => { page = await open(demo.user); });

    test('a destination and a watch folder are saved and shown after a reload', async () => {
      const destination = '#location-default_destination';
      const options = await page.$$eval(`${destination} option`, (list) => list.map((o) => o.value));
      assert.deepEqual(options, ['', 'downloads', 'usbshare1'], 'only shares it may write to');
      assert.equal(await page.isChecked('#location-enable_torrent_nzb_watch'), false);

      await page.selectOption(destination, 'usbshare1');
      await page.check('#location-enable_torrent_nzb_watch');
      await page.check('#location-enable_delete_torrent_nzb_watch');
      assert.equal(await save(page), 'Saved.');
      await page.reload();
      await settled(page);
      assert.equal(await page.inputValue(destination), 'usbshare1');
      assert.equal(await page.isChecked('#location-enable_torrent_nzb_watch'), true);
      assert.equal(await page.inputValue('#location-torrent_nzb_watch_folder'),
        'downloads/watch-user');
      assert.deepEqual(page.errors, []);
    });

    test('a refused watch folder says why', async () => {
      // Watched by the administrator; the codes and their texts are the handler's and the unit's.
      await page.fill('#location-torrent_nzb_watch_folder', 'downloads/watch-admin');
      assert.equal(await save(page), kErrorTexts[1207]);
    });
  });

  const rowNames = (page) => page.$$eval('#btsearch-plugins tbody tr', (rows) => rows.map((r) => r.dataset.plugin));

  async function press(page, text) {
    await page.click(`#page button:has-text("${text}")`);
    await settled(page);
    return pageStatus(page);
  }

  describe('BT search page', () => {
    let page;
    before(async () => { page = await open(demo.admin, 'btsearch'); });

    test('adds a plug-in from a file and deletes only added ones', async () => {
      assert.deepEqual(await rowNames(page), ['linuxiso', 'members']);
      const plugin = { name: 'mine', displayname: 'Mine', version: '1', description: '' };
      await page.setInputFiles('#btsearch-file', {
        name: 'mine.json', mimeType: 'application/json', buffer: Buffer.from(JSON.stringify(plugin)),
      });
      assert.equal(await press(page, 'Add plug-in'), 'Added mine.json.');
      assert.deepEqual(await rowNames(page), ['linuxiso', 'members', 'mine']);
      assert.equal(await page.textContent('tr[data-plugin="mine"] td:nth-child(4)'), 'Added');

      await page.check('tr[data-plugin="mine"] input[type="checkbox"]');
      assert.equal(await press(page, 'Delete selected'), 'Deleted.');
      assert.deepEqual(await rowNames(page), ['linuxiso', 'members']);

      await page.check('tr[data-plugin="linuxiso"] input[type="checkbox"]');
      assert.equal(await press(page, 'Delete selected'), 'Built-in plug-ins cannot be deleted.');
      assert.deepEqual(await rowNames(page), ['linuxiso', 'members']);
      assert.deepEqual(page.errors, []);
    });

    test('an account is saved and verified, its password never shown', async () => {
      await page.click('tr[data-plugin="members"] button:has-text("Account")');
      await page.fill('#btsearch-username', 'demo');
      await page.fill('#btsearch-password', 'demo');
      assert.equal(await press(page, 'Save account'), 'Account saved.');
      assert.equal(await page.inputValue('#btsearch-password'), '');
      assert.match(await page.textContent('tr[data-plugin="members"] td:nth-child(5)'), /^demo /);
      assert.equal(await press(page, 'Verify'), 'The account was accepted.', 'with the stored password');
      await page.fill('#btsearch-password', 'wrong');
      assert.equal(await press(page, 'Verify'), 'The account was not accepted. Check the user name and password.');
      const conf = await stat(path.join(demo.state, 'var/packages/Haulport/etc/download/btsearch.conf'));
      assert.equal(conf.mode & 0o077, 0, 'only its owner may read the stored password');
      assert.deepEqual(page.errors, []);
    });
  });

  const kFolders = '#emule-share_folders input[type="checkbox"]';

  describe('eMule page', () => {
    let page;
    before(async () => {
      // Shared folders are handed to eMule only in download hours: make every hour one.
      const text = await readFile(demo.settingsFile, 'utf8');
      await writeFile(demo.settingsFile, text.replace('download_schedule_enable="yes"',
        'download_schedule_enable="no"'));
      page = await open(demo.admin, 'emule');
    });

    test('manual ports and two shared folders are saved and shown after a reload', async () => {
      assert.equal(await page.inputValue('#emule-port_type'), 'default_port');
      assert.equal(await page.isDisabled('#emule-tcp_port'), true);
      await page.selectOption('#emule-port_type', 'manual_port');
      await page.fill('#emule-tcp_port', '5000');
      await page.fill('#emule-udp_port', '5001');
      await page.check(`${kFolders}[value="downloads"]`);
      await page.check(`${kFolders}[value="usbshare1"]`);
      assert.equal(await save(page), 'Saved.');

      await page.reload();
      await settled(page);
      assert.equal(await page.inputValue('#emule-port_type'), 'manual_port');
      assert.equal(await page.inputValue('#emule-tcp_port'), '5000');
      assert.equal(await page.inputValue('#emule-udp_port'), '5001');
      assert.deepEqual(await page.$$eval(`${kFolders}:checked`, (boxes) => boxes.map((b) => b.value)),
        ['downloads', 'usbshare1']);
      assert.deepEqual(page.errors, []);
    });

    test('an ordinary account reads that eMule is on, without fields to fill', async () => {
      const user = await open(demo.user, 'emule');
      assert.equal(await user.textContent('#page .note'),
        'eMule is turned on. Only an administrator can change its settings.');
      assert.equal(await user.isVisible('#emule-max_conn'), false);
      assert.equal(await user.isVisible('#page button.primary'), false);
      assert.equal(await pageStatus(user), '');
      assert.deepEqual(user.errors, []);
    });
  });

  const kVolume = '#global-download_volume';

  test('General page: a volume change shows its progress, then moves the folder', async () => {
    await writeFile(path.join(demo.state, 'volume1/@download/task.part'), 'half a download');
    const page = await open(demo.admin, 'global');
    assert.equal(await page.inputValue(kVolume), '/volume1');
    const labels = await page.$$eval(`${kVolume} option`, (o) => o.map((x) => x.textContent));
    assert.ok(labels.some((l) => /^Volume 2 \(Normal, [\d.]+ \w+ free\)$/.test(l)), labels);

    await page.selectOption(kVolume, '/volume2');
    await page.click('#page button.primary');
    await page.waitForSelector('#page progress:not([hidden])');
    assert.match(await pageStatus(page), /^Moving the temporary download folder to Volume 2/);
    await settled(page);
    assert.ok(await page.isHidden('#page progress'));
    assert.equal(await pageStatus(page), 'The temporary download folder was moved to Volume 2.');
    assert.equal(await page.inputValue(kVolume), '/volume2');
    assert.deepEqual(page.errors, []);
  });
});
