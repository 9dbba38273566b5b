// The eMule page in a real browser: manual ports and two shared folders survive a reload and
// land in settings.conf and shareddir.dat; an ordinary account is told what it may see.
import assert from 'node:assert/strict';
import { readFile, writeFile } from 'node:fs/promises';
import path from 'node:path';
import { before, describe, test } from 'node:test';

import { newPage, pageStatus, save, settled, signIn } from './support/browser.mjs';
import { useDemoAndBrowser } from './support/demo.mjs';

const kFolders = '#emule-share_folders input[type="checkbox"]';

describe('eMule page', () => {
  const shared = useDemoAndBrowser();
  let demo;
  let page;
  before(async () => {
    ({ demo } = shared);
    // Shared folders are handed to eMule only in download hours: make every hour one.
    const text = await readFile(demo.settingsFile, 'utf8');
    await writeFile(demo.settingsFile, text.replace('download_schedule_enable="yes"',
      'download_schedule_enable="no"'));
    page = await newPage(shared.browser);
    await signIn(page, demo.url, demo.admin);
    await page.click('a[data-page="emule"]');
    await settled(page);
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
    const settings = await demo.settings();
    assert.equal(settings.download_amule_tcp_port, '5000');
    assert.equal(settings.download_amule_udp_port, '5001');
    const shareDir = path.join(demo.state, 'var/packages/Haulport/etc/amule/shareddir.dat');
    assert.equal(await readFile(shareDir, 'utf8'), 'downloads\nusbshare1\n');
    assert.deepEqual(page.errors, []);
  });

  test('an ordinary account reads that eMule is on, without fields to fill', async () => {
    const user = await newPage(shared.browser);
    await signIn(user, demo.url, demo.user);
    await user.click('a[data-page="emule"]');
    await settled(user);
    assert.equal(await user.textContent('#page .note'),
      'eMule is turned on. Only an administrator can change its settings.');
    assert.equal(await user.isVisible('#emule-max_conn'), false);
    assert.equal(await user.isVisible('#page button.primary'), false);
    assert.equal(await pageStatus(user), '');
    assert.deepEqual(user.errors, []);
  });
});
