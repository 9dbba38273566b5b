// Debian's chromium driven by playwright-core (no browser download), and the steps every test
// takes on the page.
import { chromium } from 'playwright-core';

export const kChromium = process.env.QRIX_CHROMIUM ?? '/usr/bin/chromium';

export function launchBrowser() {
  return chromium.launch({
    executablePath: kChromium,
    // The driver already turns off the sandbox, background networking, updates and sync.
    args: ['--disable-gpu'],
  });
}

// A new page with JavaScript errors collected, so a test can insist there were none.
export async function newPage(browser, options = {}) {
  const context = await browser.newContext(options);
  const page = await context.newPage();
  page.errors = [];
  page.on('pageerror', (e) => page.errors.push(e.message));
  return page;
}

// The settings page has finished loading or saving (or the account has no page to load).
export async function settled(page) {
  await page.waitForSelector('#page form[aria-busy="false"], #page > p.status');
}

export async function signIn(page, url, { account, passwd }) {
  await page.goto(url);
  await page.fill('#login-account', account);
  await page.fill('#login-passwd', passwd);
  await page.click('#login-submit');
  await page.waitForSelector('#settings-view:not([hidden])');
  await settled(page);
}

export function pageStatus(page) {
  return page.textContent('#page .status');
}

export async function save(page) {
  await page.click('#page button.primary');
  await settled(page);
  return pageStatus(page);
}

// The form fields of every entry.cgi request the page makes from now on.
export function recordCalls(page) {
  const calls = [];
  page.on('request', (request) => {
    if (request.url().endsWith('/webapi/entry.cgi')) {
      calls.push(Object.fromEntries(new URLSearchParams(request.postData() ?? '')));
    }
  });
  return calls;
}
