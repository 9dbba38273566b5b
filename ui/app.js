// The page frame: sign-in, the tabs of the settings pages, and moving between them by the URL's
// fragment (#bt, #scheduler, ...), so that a reload stays on the same page.

import { login, logout, session } from './api.js';
import { describeError } from './errors.js';
import { kPages } from './pages/index.js';
import { SettingsPage } from './settings_page.js';

const $ = (id) => document.getElementById(id);

// At sign-in the host's codes mean something narrower than on a settings call.
const kLoginErrors = {
  105: 'This account may not sign in.',
  111: 'The account or password is wrong.',
};

// An account sees only the pages it may save: an ordinary user never meets an empty form.
function allowedPages() {
  const apis = session.apis();
  return kPages.filter((p) => apis.includes(p.api));
}

function pageFromHash(pages) {
  const id = location.hash.replace(/^#/, '');
  return pages.find((p) => p.id === id) ?? pages[0];
}

function showLogin(message = '') {
  $('settings-view').hidden = true;
  $('who').hidden = true;
  $('login-view').hidden = false;
  $('login-status').textContent = message;
  $('login-passwd').value = '';
  const account = $('login-account');
  (account.value ? $('login-passwd') : account).focus();
}

function endSession(message) {
  session.clear();
  showLogin(message);
}

function buildTabs() {
  const list = $('tabs');
  list.replaceChildren();
  for (const page of allowedPages()) {
    const item = document.createElement('li');
    const link = document.createElement('a');
    link.href = `#${page.id}`;
    link.textContent = page.title;
    link.dataset.page = page.id;
    item.append(link);
    list.append(item);
  }
}

function showPage() {
  const page = pageFromHash(allowedPages());
  if (!page) {
    const note = document.createElement('p');
    note.className = 'status';
    note.textContent = 'Your account has no download settings to change here.';
    $('page').replaceChildren(note);
    document.title = 'Haulport settings';
    return;
  }
  for (const link of $('tabs').querySelectorAll('a')) {
    if (link.dataset.page === page.id) link.setAttribute('aria-current', 'page');
    else link.removeAttribute('aria-current');
  }
  // A page with a view of its own (BT search) brings it; the others are settings forms.
  const View = page.view ?? SettingsPage;
  const view = new View(page, { onSessionEnded: endSession });
  $('page').replaceChildren(view.element);
  $('page').setAttribute('aria-labelledby', `${page.id}-title`);
  document.title = `${page.title} · Haulport settings`;
  view.load();
}

function showSettings() {
  $('login-view').hidden = true;
  $('settings-view').hidden = false;
  $('who').hidden = false;
  $('who-name').textContent = session.account() ?? '';
  buildTabs();
  showPage();
}

async function onLogin(event) {
  event.preventDefault();
  const account = $('login-account').value.trim();
  const passwd = $('login-passwd').value;
  const status = $('login-status');
  if (!account || !passwd) {
    status.textContent = 'Enter your account and password.';
    return;
  }
  const submit = $('login-submit');
  submit.disabled = true;
  status.textContent = '';
  try {
    await login(account, passwd);
    showSettings();
  } catch (error) {
    status.textContent = kLoginErrors[error.code] ?? describeError(error);
    $('login-passwd').select();
  } finally {
    submit.disabled = false;
  }
}

function start() {
  $('login-form').addEventListener('submit', onLogin);
  $('logout').addEventListener('click', async () => {
    try {
      await logout();
    } finally {
      showLogin('You have signed out.');
    }
  });
  window.addEventListener('hashchange', () => {
    if (session.token()) showPage();
  });
  if (session.token()) showSettings();
  else showLogin();
}

start();
