// The BT search page: the search plug-ins and their accounts. Unlike a settings page there is
// no one form to save: adding, deleting, updating, checking for updates and each account are
// calls of their own. A stored password is never sent back by the server, so it is never shown.

import { call, upload } from './api.js';
import { describeError, needsLogin } from './errors.js';

export const kApi = 'QRIX.Haulport2.Setting.BTSearch';

// What the search script's codes mean for each action, where the general text says less.
const kActionErrors = {
  create: {
    1401: 'That file is not a search plug-in.',
    1402: 'A built-in plug-in has that name, and built-in plug-ins cannot be replaced.',
  },
  delete: {
    1401: 'A selected plug-in does not exist any more.',
    1402: 'Built-in plug-ins cannot be deleted.',
  },
  update: { 1403: 'No update could be fetched for a selected plug-in.' },
  set: { 1403: 'The search plug-in did not accept the account.' },
  verify: { 1404: 'The account was not accepted. Check the user name and password.' },
};

// The newer versions an update check reports for installed plug-ins, by name. The server answers
// {"plugins": [{"name", "version"}, ...]} or the list alone; anything else reports none.
export function updatesFrom(answer, plugins) {
  const listed = Array.isArray(answer) ? answer : answer?.plugins;
  const installed = new Map(plugins.map((p) => [p.name, p.version]));
  const updates = new Map();
  for (const entry of Array.isArray(listed) ? listed : []) {
    const name = entry?.name;
    const version = entry?.version;
    if (typeof name === 'string' && typeof version === 'string' && installed.has(name) &&
        installed.get(name) !== version) {
      updates.set(name, version);
    }
  }
  return updates;
}

function el(tag, props = {}, ...children) {
  const node = Object.assign(document.createElement(tag), props);
  node.append(...children);
  return node;
}

function button(text, onClick, className = '') {
  const b = el('button', { type: 'button', textContent: text, className });
  b.addEventListener('click', onClick);
  return b;
}

export class BtSearchPage {
  constructor(page, { onSessionEnded }) {
    this.page = page;
    this.onSessionEnded = onSessionEnded;
    this.plugins = [];
    this.users = [];  // the stored user name of each account plug-in, in list order
    this.updates = new Map();
    this.accountOf = null;  // the plug-in whose account is open
    this.element = el('div');
    this.build();
  }

  build() {
    const title = el('h1', { id: 'btsearch-title', textContent: this.page.title });
    const intro = el('p', { className: 'intro', textContent: this.page.intro });
    this.form = el('form', { noValidate: true });
    this.form.setAttribute('aria-labelledby', title.id);
    this.form.addEventListener('submit', (e) => e.preventDefault());

    this.rows = el('tbody');
    const head = el('tr');
    for (const text of ['', 'Plug-in', 'Version', 'Kind', 'Account']) {
      head.append(el('th', { scope: 'col', textContent: text }));
    }
    this.table = el('table', { className: 'plugins', id: 'btsearch-plugins' }, el('thead', {}, head), this.rows);
    this.empty = el('p', { className: 'hint', textContent: 'No search plug-ins are installed.', hidden: true });

    this.file = el('input', { type: 'file', id: 'btsearch-file', accept: '.json,application/json' });
    const fileLabel = el('label', { htmlFor: this.file.id, textContent: 'Plug-in file' });
    this.buttons = [
      button('Add plug-in', () => this.add()),
      button('Delete selected', () => this.forSelected('delete')),
      button('Update selected', () => this.forSelected('update')),
      button('Check for updates', () => this.checkUpdates()),
    ];
    const tools = el('div', { className: 'plugin-tools' }, fileLabel, this.file, ...this.buttons);

    this.account = this.buildAccount();
    this.status = el('p', { className: 'status', role: 'status' });
    this.status.setAttribute('aria-live', 'polite');
    const actions = el('div', { className: 'actions' }, this.status);
    this.form.append(this.table, this.empty, tools, this.account, actions);
    this.element.append(title, intro, this.form);
  }

  buildAccount() {
    this.user = el('input', { type: 'text', id: 'btsearch-username', autocomplete: 'off' });
    this.password = el('input', { type: 'password', id: 'btsearch-password', autocomplete: 'new-password' });
    this.accountLegend = el('legend');
    const field = (input, label, hint) => el('div', { className: 'field' },
      el('label', { htmlFor: input.id, textContent: label }), input,
      el('p', { className: 'hint', textContent: hint }));
    const panel = el('fieldset', { id: 'btsearch-account', hidden: true }, this.accountLegend,
      field(this.user, 'User name', 'Empty user name and password remove the account.'),
      field(this.password, 'Password', 'The stored password is never shown. Verify without one ' +
        'to test the stored password.'),
      el('div', { className: 'plugin-tools' },
        button('Save account', () => this.saveAccount(), 'primary'),
        button('Verify', () => this.verifyAccount()),
        button('Close', () => this.openAccount(null))));
    return panel;
  }

  setStatus(text, kind = '') {
    this.status.textContent = text;
    this.status.dataset.kind = kind;
  }

  setBusy(busy) {
    for (const b of this.form.querySelectorAll('button, input')) b.disabled = busy;
    this.form.setAttribute('aria-busy', busy ? 'true' : 'false');
  }

  fail(error, action) {
    if (needsLogin(error)) {
      this.onSessionEnded(describeError(error));
      return;
    }
    this.setStatus(kActionErrors[action]?.[error.code] ?? describeError(error), 'error');
  }

  // Runs one action with the page busy; `work` resolves to the status shown when it succeeds.
  async run(action, work) {
    this.setBusy(true);
    this.setStatus('Working…');
    try {
      this.setStatus(await work(), 'ok');
    } catch (error) {
      this.fail(error, action);
    } finally {
      this.setBusy(false);
    }
  }

  async refresh() {
    const data = await call(kApi, 'list');
    this.plugins = Array.isArray(data?.plugins) ? data.plugins : [];
    this.users = await Promise.all(this.plugins.map((p) => (p.account
      ? call(kApi, 'get', { plugin_name: p.name }).then((d) => d?.username ?? '')
      : null)));
    this.render();
  }

  render() {
    const users = this.users;
    this.rows.replaceChildren();
    this.plugins.forEach((p, i) => {
      const pick = el('input', { type: 'checkbox', value: p.name });
      pick.setAttribute('aria-label', `Select ${p.displayname ?? p.name}`);
      const name = el('td', {}, el('span', { textContent: p.displayname ?? p.name }),
        el('span', { className: 'hint', textContent: p.description ? ` ${p.description}` : '' }));
      const newer = this.updates.get(p.name);
      const version = el('td', { textContent: (p.version ?? '') + (newer ? ` (${newer} available)` : '') });
      let account = el('td', { textContent: '—' });
      if (p.account) {
        account = el('td', {}, el('span', { textContent: users[i] ? `${users[i]} ` : 'not set ' }),
          button('Account…', () => this.openAccount(p), 'link'));
      }
      const row = el('tr', {}, el('td', {}, pick), name, version,
        el('td', { textContent: p.builtin === false ? 'Added' : 'Built in' }), account);
      row.dataset.plugin = p.name;
      this.rows.append(row);
    });
    this.empty.hidden = this.plugins.length > 0;
  }

  selected() {
    return [...this.rows.querySelectorAll('input[type="checkbox"]:checked')].map((c) => c.value);
  }

  load() {
    this.openAccount(null);
    return this.run('list', async () => {
      await this.refresh();
      return '';
    });
  }

  add() {
    const file = this.file.files?.[0];
    if (!file) {
      this.setStatus('Choose a plug-in file first.', 'error');
      return undefined;
    }
    return this.run('create', async () => {
      await upload(kApi, 'create', 'btsearch_plugin', file);
      this.file.value = '';
      await this.refresh();
      return `Added ${file.name}.`;
    });
  }

  forSelected(method) {
    const names = this.selected();
    if (names.length === 0) {
      this.setStatus('Select one or more plug-ins first.', 'error');
      return undefined;
    }
    return this.run(method, async () => {
      try {
        await call(kApi, method, { plugin_names: names });
      } finally {
        if (method === 'update') for (const name of names) this.updates.delete(name);
        await this.refresh();  // what was done before a failure stays done
      }
      return method === 'delete' ? 'Deleted.' : 'Updated.';
    });
  }

  checkUpdates() {
    return this.run('update_check', async () => {
      this.updates = updatesFrom(await call(kApi, 'update_check'), this.plugins);
      this.render();
      const count = this.updates.size;
      return count === 0 ? 'Every plug-in is up to date.'
        : `Updates are available for ${count} plug-in(s): select them and choose Update selected.`;
    });
  }

  openAccount(plugin) {
    this.accountOf = plugin;
    this.account.hidden = plugin === null;
    this.password.value = '';
    if (plugin === null) return;
    this.accountLegend.textContent = `Account for ${plugin.displayname ?? plugin.name}`;
    this.user.value = this.users[this.plugins.indexOf(plugin)] ?? '';
    this.user.focus();
  }

  saveAccount() {
    const username = this.user.value;
    const password = this.password.value;
    if (username !== '' && password === '') {
      this.setStatus('Type the password to save the account.', 'error');
      return undefined;
    }
    return this.run('set', async () => {
      await call(kApi, 'set', { plugin_name: this.accountOf.name, username, password });
      this.password.value = '';
      await this.refresh();
      return username ? 'Account saved.' : 'Account removed.';
    });
  }

  verifyAccount() {
    const params = { plugin_name: this.accountOf.name, username: this.user.value };
    if (this.password.value) params.password = this.password.value;
    return this.run('verify', async () => {
      await call(kApi, 'verify', params);
      return 'The account was accepted.';
    });
  }
}
