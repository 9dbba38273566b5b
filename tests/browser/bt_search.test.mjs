// The BT search page in a real browser against the demo's search script: the list, adding a
// plug-in from a file, deleting what may be deleted, and an account whose password is never shown.
import assert from 'node:assert/strict';
import { readFile, stat } from 'node:fs/promises';
import path from 'node:path';
import { before, describe, test } from 'node:test';

import { newPage, pageStatus, settled, signIn } from './support/browser.mjs';
import { useDemoAndBrowser } from './support/demo.mjs';

const rowNames = (page) => page.$$eval('#btsearch-plugins tbody tr', (rows) => rows.map((r) => r.dataset.plugin));

async function press(page, text) {
  await page.click(`#page button:has-text("${text}")`);
  await settled(page);
  return pageStatus(page);
}

describe('BT search page', () => {
  const shared = useDemoAndBrowser();
  let demo;
  let page;
  let userPlugins;

  before(async () => {
    ({ demo } = shared);
    userPlugins = path.join(demo.state, 'var/packages/Haulport/etc/download/userplugins');
    page = await newPage(shared.browser);
    await signIn(page, demo.url, demo.admin);
    await page.click('a[data-page="btsearch"]');
    await settled(page);
  });

  test('adds a plug-in from a file and deletes only added ones', async () => {
    assert.deepEqual(await rowNames(page), ['linuxiso', 'members']);
    const plugin = { name: 'mine', displayname: 'Mine', version: '1', description: '' };
    await page.setInputFiles('#btsearch-file', {
      name: 'mine.json', mimeType: 'application/json', buffer: Buffer.from(JSON.stringify(plugin)),
    });
    assert.equal(await press(page, 'Add plug-in'), 'Added mine.json.');
    assert.deepEqual(await rowNames(page), ['linuxiso', 'members', 'mine']);
    assert.equal(await page.textContent('tr[data-plugin="mine"] td:nth-child(4)'), 'Added');
    const mine = path.join(userPlugins, 'mine.json');
    assert.deepEqual(JSON.parse(await readFile(mine, 'utf8')), plugin);

    await page.check('tr[data-plugin="mine"] input[type="checkbox"]');
    assert.equal(await press(page, 'Delete selected'), 'Deleted.');
    assert.deepEqual(await rowNames(page), ['linuxiso', 'members']);
    await assert.rejects(stat(mine), 'the file is gone');

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
