// Builds a settings form from a page's field list and works out what a person changed.
// One maker per field type; every control offers the same small interface:
//   element, value (get/set), setDisabled(off), onChange(fn), focus(), check() -> error text or ''.

import { ScheduleGrid } from './schedule_grid.js';

function input(id, type) {
  const el = document.createElement('input');
  el.id = id;
  el.type = type;
  return el;
}

// The parts every plain input shares. Only methods here: spreading copies no accessors.
function wrapInput(el) {
  return {
    element: el,
    focus: () => el.focus(),
    setDisabled: (off) => { el.disabled = off; },
    onChange: (fn) => el.addEventListener('input', fn),
    check: () => '',
  };
}

// Whole number inside the field's bounds, as the server's checks want it.
export function checkInteger(text, { min, max } = {}) {
  const trimmed = String(text).trim();
  if (trimmed === '') return 'Enter a number.';
  if (!/^-?\d+$/.test(trimmed)) return 'Enter a whole number.';
  const n = Number(trimmed);
  if (!Number.isSafeInteger(n)) return 'The number is too large.';
  if (min !== undefined && n < min) {
    return max !== undefined ? `Enter a number from ${min} to ${max}.` : `Enter ${min} or more.`;
  }
  if (max !== undefined && n > max) {
    return min !== undefined ? `Enter a number from ${min} to ${max}.` : `Enter ${max} or less.`;
  }
  return '';
}

const kMakers = {
  bool(field, id) {
    const el = input(id, 'checkbox');
    return {
      ...wrapInput(el),
      onChange: (fn) => el.addEventListener('change', fn),
      get value() { return el.checked; },
      set value(v) { el.checked = v === true; },
    };
  },

  int(field, id) {
    const el = input(id, 'text');
    el.inputMode = 'numeric';
    el.autocomplete = 'off';
    el.className = 'number';
    if (field.min !== undefined) el.dataset.min = String(field.min);
    const bounds = { min: field.min, max: field.max };
    return {
      ...wrapInput(el),
      bounds,
      // A value that fails check() is never sent, so its text form is enough here.
      get value() {
        const t = el.value.trim();
        return checkInteger(t, bounds) === '' ? Number(t) : t;
      },
      set value(v) { el.value = v === undefined || v === null ? '' : String(v); },
      check: () => checkInteger(el.value, bounds),
    };
  },

  text(field, id) {
    const el = input(id, 'text');
    el.autocomplete = 'off';
    if (field.maxLength) el.maxLength = field.maxLength;
    return {
      ...wrapInput(el),
      get value() { return el.value; },
      set value(v) { el.value = v ?? ''; },
      check: () => (field.required && el.value.trim() === '' ? 'Enter a value.' : ''),
    };
  },

  // The server never returns a stored secret: the box starts empty and an empty box means
  // "keep the stored one", so its value is undefined and never differs from what was loaded.
  password(field, id) {
    const el = input(id, 'password');
    el.autocomplete = 'new-password';
    el.placeholder = field.placeholder ?? 'unchanged';
    return {
      ...wrapInput(el),
      get value() { return el.value === '' ? undefined : el.value; },
      set value(_) { el.value = ''; },
    };
  },

  select(field, id) {
    const el = document.createElement('select');
    el.id = id;
    const setOptions = (options) => {
      el.replaceChildren(...options.map(([value, text]) => {
        const option = document.createElement('option');
        option.value = value;
        option.textContent = text;
        return option;
      }));
    };
    setOptions(field.options);
    return {
      ...wrapInput(el),
      // For choices the server lists: each [value, text].
      setOptions,
      onChange: (fn) => el.addEventListener('change', fn),
      get value() { return el.value; },
      set value(v) {
        // A stored value this page does not offer is shown, not silently replaced.
        if (![...el.options].some((o) => o.value === v) && typeof v === 'string') {
          const option = document.createElement('option');
          option.value = v;
          option.textContent = v;
          el.append(option);
        }
        el.value = v;
      },
    };
  },

  // One of the volumes the server lists (setOptions), each with its state and free space. A
  // volume that cannot take the folder is shown but cannot be chosen; with nothing chosen the
  // value is undefined, so nothing is sent.
  volume(field, id) {
    const el = document.createElement('select');
    el.id = id;
    return {
      ...wrapInput(el),
      onChange: (fn) => el.addEventListener('change', fn),
      setOptions(volumes, describe) {
        el.replaceChildren();
        for (const volume of volumes) {
          const option = document.createElement('option');
          option.value = volume.mount_point;
          option.textContent = describe(volume);
          option.disabled = volume.status !== 'normal';
          el.append(option);
        }
      },
      get value() { return el.value === '' ? undefined : el.value; },
      set value(v) { el.value = typeof v === 'string' ? v : ''; },
    };
  },

  // Folders ticked from a list (setOptions: [value, text] pairs). A stored folder the list does
  // not offer is shown ticked, so saving never drops it unseen. The value keeps the list's order.
  folders(field, id) {
    const el = document.createElement('fieldset');
    el.id = id;
    el.className = 'folders';
    el.setAttribute('aria-labelledby', `${id}-label`);
    let chosen = [];
    let listeners = [];
    const boxes = () => [...el.querySelectorAll('input[type="checkbox"]')];
    const render = (options) => {
      const offered = options.map(([value]) => value);
      const all = [...options, ...chosen.filter((v) => !offered.includes(v)).map((v) => [v, v])];
      el.replaceChildren(...all.map(([value, text], i) => {
        const label = document.createElement('label');
        const box = input(`${id}-${i}`, 'checkbox');
        box.value = value;
        box.checked = chosen.includes(value);
        box.addEventListener('change', () => {
          chosen = boxes().filter((b) => b.checked).map((b) => b.value);
          for (const fn of listeners) fn();
        });
        label.append(box, text);
        return label;
      }));
      if (all.length === 0) el.textContent = field.emptyText ?? 'Nothing to choose from.';
    };
    let options = [];
    return {
      element: el,
      focus: () => boxes()[0]?.focus(),
      setDisabled: (off) => { el.disabled = off; },
      onChange: (fn) => { listeners.push(fn); },
      setOptions(list) {
        options = list;
        render(options);
      },
      get value() { return [...chosen]; },
      set value(v) {
        chosen = Array.isArray(v) ? v.filter((x) => typeof x === 'string') : [];
        render(options);
      },
      check: () => '',
    };
  },

  schedule(field, id) {
    const grid = new ScheduleGrid({ id, label: field.label });
    return {
      element: grid.element,
      grid,
      focus: () => grid.focusCell(grid.focusIndex),
      setDisabled: (off) => { grid.disabled = off; },
      onChange: (fn) => grid.onChange(fn),
      get value() { return grid.value; },
      set value(v) { grid.value = v; },
      check: () => '',
    };
  },
};

export const kFieldTypes = Object.keys(kMakers);

// The parameters to send: every field whose value differs from what the server last gave.
export function changedValues(fields, values, loaded) {
  const out = {};
  for (const field of fields) {
    if (field.readOnly) continue;
    const value = values[field.name];
    if (value !== undefined && !sameValue(value, loaded[field.name])) out[field.name] = value;
  }
  return out;
}

// Lists (the folders) are equal when they hold the same items in the same order.
function sameValue(a, b) {
  if (Array.isArray(a) || Array.isArray(b)) {
    return Array.isArray(a) && Array.isArray(b) && a.length === b.length &&
      a.every((item, i) => item === b[i]);
  }
  return a === b;
}

// Lays out one field: label, control, unit, hint and a slot for its error.
export function buildField(field, prefix) {
  const maker = kMakers[field.type];
  if (!maker) throw new Error(`unknown field type ${field.type} for ${field.name}`);
  const id = `${prefix}-${field.name}`;
  const control = maker(field, id);
  const row = document.createElement('div');
  row.className = `field field-${field.type}`;
  row.dataset.name = field.name;

  const describedBy = [];
  const hint = document.createElement('p');
  hint.className = 'hint';
  hint.id = `${id}-hint`;
  if (field.hint) {
    hint.textContent = field.hint;
    describedBy.push(hint.id);
  }
  const error = document.createElement('p');
  error.className = 'field-error';
  error.id = `${id}-error`;
  error.hidden = true;

  let label;
  if (field.type === 'schedule' || field.type === 'folders') {
    label = document.createElement('span');
    label.className = 'label';
    label.id = `${id}-label`;
  } else {
    label = document.createElement('label');
    label.htmlFor = id;
  }
  label.textContent = field.label;

  if (field.type === 'bool') {
    row.append(control.element, label);
  } else if (field.unit) {
    const group = document.createElement('span');
    group.className = 'with-unit';
    const unit = document.createElement('span');
    unit.className = 'unit';
    unit.textContent = field.unit;
    group.append(control.element, unit);
    row.append(label, group);
  } else {
    row.append(label, control.element);
  }
  row.append(hint, error);

  const target = field.type === 'schedule' ? control.grid.grid : control.element;
  const describe = () => {
    const ids = error.hidden ? describedBy : [...describedBy, error.id];
    if (ids.length) target.setAttribute('aria-describedby', ids.join(' '));
    else target.removeAttribute('aria-describedby');
  };
  describe();

  return {
    field,
    row,
    control,
    setHint(text) {
      hint.textContent = text;
      const listed = describedBy.includes(hint.id);
      if (text && !listed) describedBy.push(hint.id);
      if (!text && listed) describedBy.splice(describedBy.indexOf(hint.id), 1);
      describe();
    },
    showError(text) {
      error.textContent = text;
      error.hidden = !text;
      row.classList.toggle('invalid', Boolean(text));
      if (text) target.setAttribute('aria-invalid', 'true');
      else target.removeAttribute('aria-invalid');
      describe();
    },
  };
}
