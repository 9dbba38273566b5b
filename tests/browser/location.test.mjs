// The download locations page in a real browser as an ordinary account: only its own page is
// offered, a destination picked from its writable shares and a watch folder switched on survive
// a reload and land in its row of the table, and refused folders read as what to do.
import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import path from 'node:path';
import { promisify } from 'node:util';
import { before, describe, test } from 'node:test';

import { kErrorTexts } from '../../ui/errors.js';
import { newPage, save, settled, signIn } from './support/browser.mjs';
import { kRepo, useDemoAndBrowser } from './support/demo.mjs';

// The account's row, read with psql in a second sandbox on the demo's state.
async function row(demo, account) {
  const { stdout } = await promisify(execFile)(path.join(kRepo, 'scripts/sandbox'), [
    'exec', '--state', demo.state, '--', '/usr/bin/psql', '-X', '-A', '-t', '-h',
    '/run/postgresql', '-U', 'postgres', '-d', 'download', '-c',
    'SELECT share_folder, enable_watchffolder, delete_watchtorrent, watchfolder ' +
    `FROM user_setting WHERE username = '${account}'`]);
  return stdout.trim();
}

describe('download locations page', () => {
  const shared = useDemoAndBrowser();
  let demo;
  let page;
  before(async () => {
    ({ demo } = shared);
    page = await newPage(shared.browser);
    await signIn(page, demo.url, demo.user);
  });

  test('a destination and a watch folder are saved in the account\'s own row', async () => {
    const destination = '#location-default_destination';
    const options = await page.$$eval(`${destination} option`, (list) => list.map((o) => o.value));
    assert.deepEqual(options, ['', 'downloads', 'usbshare1'], 'only shares it may write to');
    assert.equal(await page.inputValue(destination), 'downloads');
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
    assert.equal(await row(demo, 'user'), 'usbshare1|t|t|downloads/watch-user');
    assert.equal(await row(demo, 'admin'), 'video|t|f|downloads/watch-admin');
    assert.deepEqual(page.errors, []);
  });

  test('a refused watch folder says why and changes nothing', async () => {
    const rows = [
      { folder: 'video/x', code: 403 },  // read only for this account
      { folder: 'downloads/../../etc', code: 403 },
      { folder: 'downloads/watch-admin', code: 1207 },  // the administrator watches it
      { folder: 'downloads/missing', code: 1207 },
    ];
    const before = await row(demo, 'user');
    for (const { folder, code } of rows) {
      await page.fill('#location-torrent_nzb_watch_folder', folder);
      assert.equal(await save(page), kErrorTexts[code], folder);
      assert.equal(await row(demo, 'user'), before, folder);
    }
  });
});
