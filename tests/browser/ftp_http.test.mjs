// The FTP and HTTP page in a real browser against a real demo: sign in, change the connection
// limit, reload, see it; bad values are refused; ordinary users are turned away.
import assert from 'node:assert/strict';
import { readFile } from 'node:fs/promises';
import path from 'node:path';
import { before, describe, test } from 'node:test';

import { newPage, pageStatus, recordCalls, save, settled, signIn } from
  './support/browser.mjs';
import { useDemoAndBrowser } from './support/demo.mjs';

const kLimit = '#ftp_http-ftp_max_conn';

describe('FTP and HTTP page', () => {
  const shared = useDemoAndBrowser();
  let demo;
  let browser;
  before(() => ({ demo, browser } = shared));

  test('a changed connection limit is stored alone and shown after a reload', async () => {
    const rows = [
      { typed: '1', shown: '1' },
      { typed: '65535', shown: '65535' },
      { typed: ' 42 ', shown: '42' },
    ];
    const page = await newPage(browser);
    await signIn(page, demo.url, demo.admin);
    const untouched = await demo.settings();
    for (const row of rows) {
      const calls = recordCalls(page);
      await page.fill(kLimit, row.typed);
      assert.equal(await save(page), 'Saved.', `saving ${JSON.stringify(row.typed)}`);
      const set = calls.find((c) => c.method === 'set');
      assert.deepEqual(set, {
        api: 'QRIX.Haulport2.Setting.FtpHttp', version: '1', method: 'set',
        ftp_max_conn: row.shown,
      }, 'only the changed field is sent');

      await page.reload();
      await settled(page);
      assert.equal(await page.inputValue(kLimit), row.shown);
      const now = await demo.settings();
      assert.equal(now.download_ftpmax, row.shown);
      assert.equal(now.download_http_dl_rate, untouched.download_http_dl_rate);
      assert.equal(now.download_ftpmax_enable, untouched.download_ftpmax_enable);
    }
    assert.deepEqual(page.errors, []);
  });

  test('each save reaches the scheduler, and the system log lands in the state', async () => {
    const counts = async () => {
      const text = await readFile(path.join(demo.state, 'log/scheduler-signals'), 'utf8');
      return Number(/hup=(\d+)/.exec(text)?.[1]);
    };
    const page = await newPage(browser);
    await signIn(page, demo.url, demo.admin);
    const before = await counts();
    await page.fill(kLimit, String(Number(await page.inputValue(kLimit)) + 1));
    assert.equal(await save(page), 'Saved.');
    // The signal goes out after the answer: give it a moment.
    let after = before;
    for (let i = 0; i < 50 && after === before; ++i) {
      await new Promise((r) => setTimeout(r, 100));
      after = await counts();
    }
    assert.equal(after, before + 1);
    const log = await readFile(path.join(demo.state, 'log/messages'), 'utf8');
    assert.match(log, /qrix-webapi\[\d+\]: listening on 127\.0\.0\.1/);
  });

  test('a switch and a rate are saved in one request', async () => {
    const page = await newPage(browser);
    await signIn(page, demo.url, demo.admin);
    await page.uncheck('#ftp_http-enable_ftp_max_conn');
    assert.ok(await page.isDisabled(kLimit), 'the limit follows its switch');
    await page.fill('#ftp_http-ftp_http_max_download_rate', '750');
    assert.equal(await save(page), 'Saved.');
    const now = await demo.settings();
    assert.equal(now.download_ftpmax_enable, 'no');
    assert.equal(now.download_http_dl_rate, '750');
    await page.reload();
    await settled(page);
    assert.equal(await page.isChecked('#ftp_http-enable_ftp_max_conn'), false);
    assert.equal(await page.inputValue('#ftp_http-ftp_http_max_download_rate'), '750');
  });

  test('values outside 1 to 65535 are refused and nothing is written', async () => {
    const rows = [
      { typed: '0', error: 'Enter a number from 1 to 65535.' },
      { typed: '65536', error: 'Enter a number from 1 to 65535.' },
      { typed: '-3', error: 'Enter a number from 1 to 65535.' },
      { typed: '2.5', error: 'Enter a whole number.' },
      { typed: 'ten', error: 'Enter a whole number.' },
      { typed: '', error: 'Enter a number.' },
    ];
    const page = await newPage(browser);
    await signIn(page, demo.url, demo.admin);
    await page.check('#ftp_http-enable_ftp_max_conn');
    const before = await demo.settings();
    const calls = recordCalls(page);
    for (const row of rows) {
      await page.fill(kLimit, row.typed);
      assert.equal(await save(page), 'Please correct the marked fields.', row.typed);
      assert.equal(await page.textContent('#ftp_http-ftp_max_conn-error'), row.error, row.typed);
      assert.equal(await page.getAttribute(kLimit, 'aria-invalid'), 'true');
    }
    assert.deepEqual(calls.filter((c) => c.method === 'set'), []);
    assert.deepEqual(await demo.settings(), before);
  });

  test('sign-in problems and ordinary users get clear messages', async () => {
    const page = await newPage(browser);
    await page.goto(demo.url);
    await page.fill('#login-account', demo.admin.account);
    await page.fill('#login-passwd', `${demo.admin.passwd}x`);
    await page.click('#login-submit');
    await page.waitForFunction(() => document.querySelector('#login-status').textContent !== '');
    assert.equal(await page.textContent('#login-status'), 'The account or password is wrong.');

    // An ordinary account is offered only what it may use: its own download locations and
    // what eMule shows it.
    await signIn(page, demo.url, demo.user);
    assert.deepEqual(await page.$$eval('#tabs a', (links) => links.map((a) => a.dataset.page)),
      ['location', 'emule', 'emule_location']);
    assert.equal(await pageStatus(page), '');
    assert.deepEqual(page.errors, []);
  });
});
