// One settings page: shows a page description's fields, loads them with "get" and saves only the
// changed ones with "set". The descriptions live in pages/, one file per API.

import { call } from './api.js';
import { describeError, needsLogin } from './errors.js';
import { buildField, changedValues } from './form.js';

// What a page may send besides its changed fields. Fields of one `group` go out together when
// any of them changed (eMule's port type and both ports: the server takes ports only with their
// type). `alsoSendAs` repeats a value that goes out under a second name (the BitTorrent ports go
// out again as bt_tcp_port and bt_dht_port, which is what makes the server test them for
// conflicts with other services).
export function requestParams(fields, changes, values = changes) {
  const params = { ...changes };
  const groups = new Set(fields.filter((f) => f.group && f.name in changes).map((f) => f.group));
  for (const field of fields) {
    if (groups.has(field.group) && values[field.name] !== undefined) {
      params[field.name] = values[field.name];
    }
  }
  for (const field of fields) {
    if (field.alsoSendAs && field.name in params) params[field.alsoSendAs] = params[field.name];
  }
  return params;
}

export class SettingsPage {
  // `onSessionEnded` runs when the server says the session is gone.
  constructor(page, { onSessionEnded }) {
    this.page = page;
    this.onSessionEnded = onSessionEnded;
    this.fields = page.fields.filter((f) => f.name);
    this.loaded = null;
    this.busy = false;
    this.element = document.createElement('div');
    this.build();
  }

  build() {
    const title = document.createElement('h1');
    title.textContent = this.page.title;
    title.id = `${this.page.id}-title`;
    this.element.append(title);
    if (this.page.intro) {
      const intro = document.createElement('p');
      intro.className = 'intro';
      intro.textContent = this.page.intro;
      this.element.append(intro);
    }

    this.note = document.createElement('p');
    this.note.className = 'note';
    this.note.hidden = true;
    this.element.append(this.note);

    this.form = document.createElement('form');
    this.form.noValidate = true;
    this.form.setAttribute('aria-labelledby', title.id);
    this.rows = new Map();
    let group = this.form;
    for (const entry of this.page.fields) {
      if (entry.section) {
        group = document.createElement('fieldset');
        const legend = document.createElement('legend');
        legend.textContent = entry.section;
        group.append(legend);
        this.form.append(group);
        continue;
      }
      const row = buildField(entry, this.page.id);
      row.control.onChange(() => this.onEdit());
      this.rows.set(entry.name, row);
      group.append(row.row);
    }

    const actions = document.createElement('div');
    actions.className = 'actions';
    this.actions = actions;
    this.status = document.createElement('p');
    this.status.className = 'status';
    this.status.setAttribute('role', 'status');
    this.status.setAttribute('aria-live', 'polite');
    this.saveButton = document.createElement('button');
    this.saveButton.type = 'submit';
    this.saveButton.className = 'primary';
    this.saveButton.textContent = 'Save';
    this.revertButton = document.createElement('button');
    this.revertButton.type = 'button';
    this.revertButton.textContent = 'Revert';
    this.revertButton.addEventListener('click', () => this.load());
    // Shown while the server works on in the background after a save (a volume move, say).
    this.progress = document.createElement('progress');
    this.progress.hidden = true;
    actions.append(this.progress, this.status, this.revertButton, this.saveButton);
    this.form.append(actions);
    this.form.addEventListener('submit', (e) => {
      e.preventDefault();
      this.save();
    });
    this.element.append(this.form);
  }

  label(name) {
    return this.rows.get(name)?.field.label ?? name;
  }

  setStatus(text, kind = '') {
    this.status.textContent = text;
    this.status.dataset.kind = kind;
  }

  setBusy(busy) {
    this.busy = busy;
    this.saveButton.disabled = busy;
    this.revertButton.disabled = busy;
    this.form.setAttribute('aria-busy', busy ? 'true' : 'false');
  }

  values() {
    const out = {};
    for (const [name, row] of this.rows) out[name] = row.control.value;
    return out;
  }

  // Fields switched off by their "enabledBy" box (or choice, with "enabledValue") stay visible
  // but cannot be edited.
  applyDependencies() {
    for (const row of this.rows.values()) {
      const { enabledBy, enabledValue } = row.field;
      if (!enabledBy) continue;
      const value = this.rows.get(enabledBy)?.control.value;
      row.control.setDisabled(enabledValue === undefined ? !value : value !== enabledValue);
    }
  }

  onEdit() {
    this.applyDependencies();
    if (!this.loaded || this.busy) return;
    const pending = Object.keys(changedValues(this.fields, this.values(), this.loaded)).length;
    this.setStatus(pending ? 'Unsaved changes.' : '');
  }

  clearErrors() {
    for (const row of this.rows.values()) row.showError('');
  }

  fail(error) {
    if (needsLogin(error)) {
      this.onSessionEnded(describeError(error));
      return;
    }
    const text = describeError(error, (name) => this.label(name));
    const row = error.code === 120 ? this.rows.get(error.errors?.name) : null;
    if (row) {
      row.showError(text);
      row.control.focus();
    }
    this.setStatus(text, 'error');
  }

  show(data) {
    // An answer with nothing this account can change (eMule's for an ordinary account) is said
    // in words, instead of empty fields and a Save button.
    const note = this.page.unavailable?.(data) ?? '';
    this.note.textContent = note;
    this.note.hidden = !note;
    for (const part of this.form.children) {
      if (part !== this.actions) part.hidden = Boolean(note);
    }
    this.saveButton.hidden = Boolean(note);
    this.revertButton.hidden = Boolean(note);
    if (this.page.beforeShow) this.page.beforeShow(data, this);
    for (const [name, row] of this.rows) {
      row.control.value = data[name];
      const limitName = row.field.maxFrom;
      if (limitName && row.control.bounds) {
        const limit = data[limitName];
        row.control.bounds.max = Number.isInteger(limit) ? limit : row.field.max;
      }
    }
    // What the controls show is the baseline: a value a control had to tidy up (a schedule of
    // the wrong length, say) is only sent back when the person changes it.
    this.loaded = { ...data, ...this.values() };
    this.applyDependencies();
    if (this.page.describe) this.page.describe(data, this);
  }

  async load() {
    this.setBusy(true);
    this.clearErrors();
    this.setStatus('Loading…');
    try {
      if (this.page.prepare) await this.page.prepare(this);
      const data = await call(this.page.api, 'get');
      this.show(data ?? {});
      this.setStatus('');
    } catch (error) {
      // Some APIs answer "get" with an error while nothing is stored: an empty form, and why.
      const note = this.page.emptyOn?.[error.code];
      if (note) {
        this.show({});
        this.setStatus(note);
        return;
      }
      this.fail(error);
    } finally {
      this.setBusy(false);
    }
  }

  async save() {
    if (this.busy || !this.loaded) return;
    this.clearErrors();
    let first = null;
    for (const row of this.rows.values()) {
      const problem = row.control.check();
      if (problem) {
        row.showError(problem);
        first ??= row;
      }
    }
    if (first) {
      first.control.focus();
      this.setStatus('Please correct the marked fields.', 'error');
      return;
    }
    const changes = changedValues(this.fields, this.values(), this.loaded);
    if (Object.keys(changes).length === 0) {
      this.setStatus('Nothing to save: no setting was changed.');
      return;
    }
    this.setBusy(true);
    this.setStatus('Saving…');
    try {
      const params = requestParams(this.fields, changes, this.values());
      const answer = await call(this.page.api, 'set', params);
      // A page whose "set" goes on in the background waits for it and says how it ended.
      const outcome = this.page.afterSet ? await this.page.afterSet(answer, this) : null;
      // Show what the server now holds, which may differ from what was typed.
      const data = await call(this.page.api, 'get');
      this.show(data ?? {});
      this.setStatus(outcome?.text ?? 'Saved.', outcome?.kind ?? 'ok');
    } catch (error) {
      this.fail(error);
    } finally {
      this.setBusy(false);
    }
  }
}
