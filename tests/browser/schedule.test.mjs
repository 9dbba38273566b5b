// The weekly schedule grid in a real browser: drag across hours, save, reload, and the same
// hours are on, in the page and in settings.conf.
import assert from 'node:assert/strict';
import { before, describe, test } from 'node:test';

import { newPage, save, settled, signIn } from './support/browser.mjs';
import { useDemoAndBrowser } from './support/demo.mjs';

const kHours = 24;

// What a drag from cell `from` to cell `to` ([day, hour]) should leave: every hour in the
// rectangle between them takes the opposite of the state the first cell had.
function expectDrag(week, [d0, h0], [d1, h1]) {
  const flip = week[d0 * kHours + h0] === '1' ? '0' : '1';
  const cells = [...week];
  for (let d = Math.min(d0, d1); d <= Math.max(d0, d1); ++d) {
    for (let h = Math.min(h0, h1); h <= Math.max(h0, h1); ++h) cells[d * kHours + h] = flip;
  }
  return cells.join('');
}

function gridState(page) {
  return page.$$eval('.schedule-cell', (cells) =>
    cells.map((c) => (c.getAttribute('aria-selected') === 'true' ? '1' : '0')).join(''));
}

async function cellCenter(page, [day, hour]) {
  const box = await page.locator(`.schedule-cell[data-index="${day * kHours + hour}"]`)
    .boundingBox();
  return { x: box.x + box.width / 2, y: box.y + box.height / 2 };
}

async function drag(page, from, to) {
  // The mouse acts where the window shows the grid; a reload may have left it scrolled away.
  await page.locator('.schedule-grid').scrollIntoViewIfNeeded();
  const a = await cellCenter(page, from);
  const b = await cellCenter(page, to);
  await page.mouse.move(a.x, a.y);
  await page.mouse.down();
  await page.mouse.move(b.x, b.y, { steps: 12 });
  await page.mouse.up();
}

describe('schedule grid', () => {
  const shared = useDemoAndBrowser();
  let demo;
  let browser;
  before(() => ({ demo, browser } = shared));

  const drags = [
    { name: 'along one morning', from: [1, 2], to: [1, 6] },
    { name: 'a block over three days', from: [2, 10], to: [4, 14] },
    { name: 'backwards and upwards', from: [6, 23], to: [5, 20] },
    { name: 'a single hour', from: [0, 0], to: [0, 0] },
    { name: 'a whole day', from: [3, 0], to: [3, 23] },
  ];

  for (const wide of [true, false]) {
    test(`dragged hours are saved and come back (${wide ? 'wide' : 'narrow'} window)`, async () => {
      const viewport = wide ? { width: 1100, height: 900 } : { width: 380, height: 800 };
      const page = await newPage(browser, { viewport });
      await signIn(page, demo.url, demo.admin);
      await page.click('a[data-page="scheduler"]');
      await settled(page);
      for (const row of drags) {
        const before = await gridState(page);
        assert.equal(before, (await demo.settings()).download_schedule, row.name);
        const want = expectDrag(before, row.from, row.to);
        await drag(page, row.from, row.to);
        assert.equal(await gridState(page), want, `${row.name}: the grid as dragged`);
        assert.equal(await save(page), 'Saved.', row.name);
        assert.equal((await demo.settings()).download_schedule, want, `${row.name}: stored`);
        await page.reload();
        await settled(page);
        assert.equal(await gridState(page), want, `${row.name}: after a reload`);
      }
      assert.deepEqual(page.errors, []);
    });
  }

  test('the keyboard switches hours too', async () => {
    const page = await newPage(browser);
    await signIn(page, demo.url, demo.admin);
    await page.click('a[data-page="scheduler"]');
    await settled(page);
    const before = await gridState(page);
    await page.locator('.schedule-cell[data-index="0"]').focus();
    // Down to the second day, right to 08:00, switch it, then carry that along to 11:00.
    await page.keyboard.press('ArrowDown');
    for (let i = 0; i < 8; ++i) await page.keyboard.press('ArrowRight');
    await page.keyboard.press('Space');
    for (let i = 0; i < 3; ++i) await page.keyboard.press('Shift+ArrowRight');
    const flipped = before[kHours + 8] === '1' ? '0' : '1';
    const want = [...before];
    for (let h = 8; h <= 11; ++h) want[kHours + h] = flipped;
    assert.equal(await gridState(page), want.join(''));
    assert.equal(await save(page), 'Saved.');
    assert.equal((await demo.settings()).download_schedule, want.join(''));
  });
});
