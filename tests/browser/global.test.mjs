// The General page in a real browser against a real demo: the volume change with its progress
// indicator and result, and the Xunlei account whose password is never shown.
import assert from 'node:assert/strict';
import { readFile, readlink, writeFile } from 'node:fs/promises';
import path from 'node:path';
import { before, describe, test } from 'node:test';

import { newPage, pageStatus, save, settled, signIn } from './support/browser.mjs';
import { useDemoAndBrowser } from './support/demo.mjs';

const kVolume = '#global-download_volume';

async function openGeneral(page, demo) {
  await signIn(page, demo.url, demo.admin);
  await page.click('a[data-page="global"]');
  await settled(page);
}

describe('General page', () => {
  const shared = useDemoAndBrowser();
  let demo;
  let browser;
  before(() => ({ demo, browser } = shared));

  test('a volume change shows its progress, then moves the folder and says so', async () => {
    await writeFile(path.join(demo.state, 'volume1/@download/task.part'), 'half a download');
    const page = await newPage(browser);
    await openGeneral(page, demo);
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
    assert.equal(await readlink(path.join(demo.state, 'var/services/download')),
      '/volume2/@download');
    assert.equal(await readFile(path.join(demo.state, 'volume2/@download/task.part'), 'utf8'),
      'half a download');
    assert.deepEqual(page.errors, []);
  });

  test('the Xunlei account is kept and its password never comes back', async () => {
    const page = await newPage(browser);
    await openGeneral(page, demo);
    await page.fill('#global-xunlei_username', 'xl "user"');
    await page.fill('#global-xunlei_password', 'se cret\'"');
    assert.equal(await save(page), 'Saved.');
    await page.reload();
    await settled(page);
    assert.equal(await page.inputValue('#global-xunlei_username'), 'xl "user"');
    assert.equal(await page.inputValue('#global-xunlei_password'), '');
    const stored = JSON.parse(await readFile(
      path.join(demo.state, 'var/packages/Haulport/etc/download/xunlei_accounts.json'), 'utf8'));
    assert.deepEqual(stored.orvane, { username: 'xl "user"', password: 'se cret\'"' });
  });
});
