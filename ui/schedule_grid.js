// The weekly download schedule as a 7 x 24 grid of hours. The stored form is 168 characters, day
// by day: the first 24 are hours 0-23 of the first day; "1" means downloading is allowed.
// A person paints hours by pressing and dragging (a rectangle from where the press started) or
// with the keyboard (arrows move, Space toggles, Shift+arrow carries the current hour's state).

export const kDays = 7;
export const kHours = 24;
export const kScheduleLength = kDays * kHours;
// The order of the days in the stored string.
export const kDayNames = ['Sunday', 'Monday', 'Tuesday', 'Wednesday', 'Thursday', 'Friday',
  'Saturday'];

// Stored text to 168 booleans. `exact` is false when the text was not 168 characters of "0" and
// "1"; missing hours then read as off, so nothing is switched on that the text did not switch on.
export function parseSchedule(text) {
  const source = typeof text === 'string' ? text : '';
  const bits = Array.from({ length: kScheduleLength }, (_, i) => source[i] === '1');
  const exact = source.length === kScheduleLength && /^[01]*$/.test(source);
  return { bits, exact };
}

export function formatSchedule(bits) {
  return bits.map((on) => (on ? '1' : '0')).join('');
}

export function cellIndex(day, hour) {
  return day * kHours + hour;
}

// `snapshot` with the rectangle between the cells `from` and `to` (indices) set to `on`.
export function paintRect(snapshot, from, to, on) {
  const day0 = Math.min(Math.floor(from / kHours), Math.floor(to / kHours));
  const day1 = Math.max(Math.floor(from / kHours), Math.floor(to / kHours));
  const hour0 = Math.min(from % kHours, to % kHours);
  const hour1 = Math.max(from % kHours, to % kHours);
  return snapshot.map((value, i) => {
    const day = Math.floor(i / kHours);
    const hour = i % kHours;
    return day >= day0 && day <= day1 && hour >= hour0 && hour <= hour1 ? on : value;
  });
}

// The cell a key moves to from `index`, or -1 for keys the grid does not use for moving.
export function moveIndex(index, key) {
  const day = Math.floor(index / kHours);
  const hour = index % kHours;
  switch (key) {
    case 'ArrowLeft': return cellIndex(day, Math.max(0, hour - 1));
    case 'ArrowRight': return cellIndex(day, Math.min(kHours - 1, hour + 1));
    case 'ArrowUp': return cellIndex(Math.max(0, day - 1), hour);
    case 'ArrowDown': return cellIndex(Math.min(kDays - 1, day + 1), hour);
    case 'Home': return cellIndex(day, 0);
    case 'End': return cellIndex(day, kHours - 1);
    default: return -1;
  }
}

function hourLabel(hour) {
  return `${String(hour).padStart(2, '0')}:00`;
}

// One element of the grid with its ARIA role.
function gridPart(tag, role, className) {
  const element = document.createElement(tag);
  element.setAttribute('role', role);
  element.className = className;
  return element;
}

export class ScheduleGrid {
  constructor({ id, label }) {
    this.bits = new Array(kScheduleLength).fill(true);
    this.focusIndex = 0;
    this.drag = null;
    this.listeners = [];

    this.element = document.createElement('div');
    this.element.className = 'schedule';

    const legend = document.createElement('p');
    legend.className = 'schedule-legend';
    legend.innerHTML = '<span class="swatch on"></span> downloading allowed ' +
      '<span class="swatch off"></span> paused';

    this.grid = document.createElement('div');
    this.grid.className = 'schedule-grid';
    this.grid.id = id;
    this.grid.setAttribute('role', 'grid');
    this.grid.setAttribute('aria-label', label);
    this.grid.setAttribute('aria-multiselectable', 'true');
    this.cells = [];
    this.buildRows();

    const tools = document.createElement('div');
    tools.className = 'schedule-tools';
    for (const [text, value] of [['Allow every hour', true], ['Pause every hour', false]]) {
      const button = document.createElement('button');
      button.type = 'button';
      button.textContent = text;
      button.addEventListener('click', () => this.setAll(value));
      tools.append(button);
    }
    const help = document.createElement('p');
    help.className = 'hint';
    help.textContent = 'Press and drag across hours to switch them on or off. ' +
      'With the keyboard: arrow keys move, Space switches an hour, Shift with an arrow key ' +
      'carries the current hour\'s setting along.';

    this.element.append(legend, this.grid, tools, help);
    this.grid.addEventListener('pointerdown', (e) => this.onPointerDown(e));
    this.grid.addEventListener('pointermove', (e) => this.onPointerMove(e));
    this.grid.addEventListener('pointerup', (e) => this.onPointerEnd(e));
    this.grid.addEventListener('pointercancel', (e) => this.onPointerEnd(e));
    this.grid.addEventListener('keydown', (e) => this.onKeyDown(e));
  }

  buildRows() {
    const head = gridPart('div', 'row', 'schedule-row');
    head.append(gridPart('span', 'columnheader', 'schedule-corner'));
    for (let hour = 0; hour < kHours; ++hour) {
      const h = gridPart('span', 'columnheader', hour % 3 === 0 ? 'schedule-hour major' : 'schedule-hour');
      h.setAttribute('aria-label', hourLabel(hour));
      h.textContent = String(hour);
      head.append(h);
    }
    this.grid.append(head);
    for (let day = 0; day < kDays; ++day) {
      const row = gridPart('div', 'row', 'schedule-row');
      const name = gridPart('span', 'rowheader', 'schedule-day');
      name.textContent = kDayNames[day].slice(0, 3);
      name.title = kDayNames[day];
      row.append(name);
      for (let hour = 0; hour < kHours; ++hour) {
        const index = cellIndex(day, hour);
        const cell = gridPart('span', 'gridcell', 'schedule-cell');
        cell.dataset.index = String(index);
        cell.setAttribute('aria-label', `${kDayNames[day]} ${hourLabel(hour)}`);
        cell.tabIndex = index === 0 ? 0 : -1;
        row.append(cell);
        this.cells.push(cell);
      }
      this.grid.append(row);
    }
  }

  get value() {
    return formatSchedule(this.bits);
  }

  set value(text) {
    this.bits = parseSchedule(text).bits;
    this.render();
  }

  onChange(listener) {
    this.listeners.push(listener);
  }

  set disabled(off) {
    this.grid.classList.toggle('disabled', off);
    this.grid.setAttribute('aria-disabled', off ? 'true' : 'false');
  }

  changed() {
    for (const listener of this.listeners) listener(this.value);
  }

  render() {
    this.cells.forEach((cell, i) => {
      cell.classList.toggle('on', this.bits[i]);
      cell.setAttribute('aria-selected', this.bits[i] ? 'true' : 'false');
    });
  }

  setAll(on) {
    this.bits.fill(on);
    this.render();
    this.changed();
  }

  focusCell(index) {
    this.cells[this.focusIndex].tabIndex = -1;
    this.focusIndex = index;
    this.cells[index].tabIndex = 0;
    this.cells[index].focus();
  }

  cellAt(x, y) {
    const hit = document.elementFromPoint(x, y);
    const cell = hit?.closest?.('.schedule-cell');
    return cell && this.grid.contains(cell) ? Number(cell.dataset.index) : -1;
  }

  onPointerDown(e) {
    if (e.button !== 0) return;
    const cell = e.target.closest?.('.schedule-cell');
    if (!cell) return;
    e.preventDefault();
    const index = Number(cell.dataset.index);
    this.grid.setPointerCapture(e.pointerId);
    this.drag = { anchor: index, on: !this.bits[index], snapshot: this.bits.slice() };
    this.focusCell(index);
    this.bits = paintRect(this.drag.snapshot, index, index, this.drag.on);
    this.render();
  }

  onPointerMove(e) {
    if (!this.drag) return;
    const index = this.cellAt(e.clientX, e.clientY);
    if (index < 0) return;
    this.bits = paintRect(this.drag.snapshot, this.drag.anchor, index, this.drag.on);
    this.render();
  }

  onPointerEnd(e) {
    if (!this.drag) return;
    if (this.grid.hasPointerCapture(e.pointerId)) this.grid.releasePointerCapture(e.pointerId);
    this.drag = null;
    this.changed();
  }

  onKeyDown(e) {
    if (e.key === ' ' || e.key === 'Enter') {
      e.preventDefault();
      this.bits[this.focusIndex] = !this.bits[this.focusIndex];
      this.render();
      this.changed();
      return;
    }
    const next = moveIndex(this.focusIndex, e.key);
    if (next < 0) return;
    e.preventDefault();
    if (e.shiftKey && next !== this.focusIndex) {
      this.bits[next] = this.bits[this.focusIndex];
      this.render();
      this.changed();
    }
    this.focusCell(next);
  }
}
