// The page's logic without a browser: the schedule string, number checks, what gets sent, how
// answers and errors read, and whether the pages still match the module's parameter table and
// every error code the module and the host can answer.
import assert from 'node:assert/strict';
import { readdir, readFile } from 'node:fs/promises';
import path from 'node:path';
import { describe, test } from 'node:test';
import { fileURLToPath } from 'node:url';

import { ApiError, decodeAnswer, encodeCall } from '../../ui/api.js';
import { describeError, kErrorTexts, needsLogin } from '../../ui/errors.js';
import { changedValues, checkInteger } from '../../ui/form.js';
import { kPages } from '../../ui/pages/index.js';
import { formatSchedule, moveIndex, paintRect, parseSchedule } from '../../ui/schedule_grid.js';
import { updatesFrom } from '../../ui/bt_search_page.js';
import { requestParams } from '../../ui/settings_page.js';

// Not the demo's support module: that loads the browser driver, and these tests need node alone.
const kRepo = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '../..');
const ones = '1'.repeat(168);
const pattern = ('0'.repeat(9) + '1'.repeat(15)).repeat(7);

describe('schedule text', () => {
  test('parses into 168 hours, and only an exact text comes back unchanged', () => {
    const rows = [
      { text: ones, on: 168, exact: true },
      { text: pattern, on: 105, exact: true },
      { text: '1'.repeat(24), on: 24, exact: false },
      { text: `${ones}1`, on: 168, exact: false },
      { text: `2${ones.slice(1)}`, on: 167, exact: false },
      { text: undefined, on: 0, exact: false },
    ];
    for (const row of rows) {
      const { bits, exact } = parseSchedule(row.text);
      const text = formatSchedule(bits);
      assert.deepEqual([bits.length, bits.filter(Boolean).length, exact, /^[01]{168}$/.test(text)],
        [168, row.on, row.exact, true], String(row.text));
      if (exact) assert.equal(text, row.text);
    }
  });

  test('a drag paints exactly the rectangle between its ends', () => {
    const at = (day, hour) => day * 24 + hour;
    const rows = [
      { name: 'one cell', from: at(0, 0), to: at(0, 0), cells: [at(0, 0)] },
      { name: 'down a column', from: at(0, 23), to: at(2, 23), cells: [at(0, 23), at(1, 23), at(2, 23)] },
      {
        name: 'corners given backwards', from: at(3, 2), to: at(2, 1),
        cells: [at(2, 1), at(2, 2), at(3, 1), at(3, 2)],
      },
    ];
    for (const row of rows) {
      for (const on of [true, false]) {
        const snapshot = new Array(168).fill(!on);
        const copy = snapshot.slice();
        const painted = paintRect(snapshot, row.from, row.to, on);
        const changed = painted.flatMap((v, i) => (v === on ? [i] : []));
        assert.deepEqual(changed, row.cells, `${row.name} (${on})`);
        assert.deepEqual(snapshot, copy, `${row.name}: the snapshot is not touched`);
      }
    }
  });

  test('keys move within the week and stop at its edges', () => {
    const rows = [
      { from: 0, key: 'ArrowRight', to: 1 },
      { from: 0, key: 'ArrowDown', to: 24 },
      { from: 23, key: 'ArrowRight', to: 23 },
      { from: 24, key: 'ArrowLeft', to: 24 },
      { from: 167, key: 'ArrowDown', to: 167 },
      { from: 50, key: 'Home', to: 48 },
      { from: 50, key: 'End', to: 71 },
      { from: 50, key: 'a', to: -1 },
    ];
    for (const row of rows) assert.equal(moveIndex(row.from, row.key), row.to, JSON.stringify(row));
  });
});

describe('form values', () => {
  test('whole numbers are checked against their bounds', () => {
    const port = { min: 1, max: 65535 };
    const rows = [
      { text: '1', bounds: port, error: '' },
      { text: '65535', bounds: port, error: '' },
      { text: ' 80 ', bounds: port, error: '' },
      { text: '0', bounds: port, error: 'Enter a number from 1 to 65535.' },
      { text: '65536', bounds: port, error: 'Enter a number from 1 to 65535.' },
      { text: '-1', bounds: { min: 0 }, error: 'Enter 0 or more.' },
      { text: '11', bounds: { max: 10 }, error: 'Enter 10 or less.' },
      { text: '-7', bounds: {}, error: '' },
      { text: '', bounds: port, error: 'Enter a number.' },
      { text: '1.5', bounds: {}, error: 'Enter a whole number.' },
      { text: '12abc', bounds: {}, error: 'Enter a whole number.' },
      { text: '99999999999999999999', bounds: {}, error: 'The number is too large.' },
    ];
    for (const row of rows) {
      assert.equal(checkInteger(row.text, row.bounds), row.error, JSON.stringify(row.text));
    }
  });

  test('only what differs from the loaded settings is sent', () => {
    const fields = [
      { name: 'port', type: 'int' },
      { name: 'enable', type: 'bool' },
      { name: 'word', type: 'select' },
      { name: 'password', type: 'password' },
      { name: 'limit', type: 'int', readOnly: true },
    ];
    const loaded = { port: 80, enable: false, word: 'auto', limit: 5 };
    const rows = [
      { values: { port: 80, enable: false, word: 'auto' }, sent: {} },
      { values: { port: 81, enable: false, word: 'auto' }, sent: { port: 81 } },
      { values: { port: 80, enable: false, word: 'auto', password: 's3' }, sent: { password: 's3' } },
      { values: { port: 80, enable: false, word: 'auto', password: undefined }, sent: {} },
      { values: { port: 80, enable: false, word: 'auto', limit: 9 }, sent: {} },
      { values: { port: '80', enable: false, word: 'auto' }, sent: { port: '80' } },
    ];
    for (const row of rows) {
      assert.deepEqual(changedValues(fields, row.values, loaded), row.sent, JSON.stringify(row));
    }
  });

  test('a value sent under a second name goes out only when it changed', () => {
    const fields = [{ name: 'tcp_port', alsoSendAs: 'bt_tcp_port' }, { name: 'max_peer' }];
    assert.deepEqual(requestParams(fields, { tcp_port: 7000 }),
      { tcp_port: 7000, bt_tcp_port: 7000 });
    assert.deepEqual(requestParams(fields, {}), {});
    // A group goes out whole when one of it changed, each member under both names.
    const ports = [
      { name: 'port_type', group: 'ports' }, { name: 'tcp', group: 'ports', alsoSendAs: 'x_tcp' },
      { name: 'rate' },
    ];
    const values = { port_type: 'manual_port', tcp: 7000, rate: 5 };
    assert.deepEqual(requestParams(ports, { tcp: 7000 }, values),
      { port_type: 'manual_port', tcp: 7000, x_tcp: 7000 });
    assert.deepEqual(requestParams(ports, { rate: 5 }, values), { rate: 5 });
  });
});

describe('requests and answers', () => {
  test('every parameter is sent as JSON text', () => {
    const body = encodeCall('QRIX.Haulport2.Setting.Scheduler', 'set', {
      schedule: '0101', enable_schedule: true, max_tasks: 5, order: 'user', skipped: undefined,
      quote: 'a"b', number_text: '6881',
    });
    assert.deepEqual(Object.fromEntries(body), {
      api: 'QRIX.Haulport2.Setting.Scheduler', version: '1', method: 'set',
      schedule: '"0101"', enable_schedule: 'true', max_tasks: '5', order: '"user"',
      quote: '"a\\"b"', number_text: '"6881"',
    });
  });

  test('answers unwrap to their data or to an ApiError', () => {
    assert.deepEqual(decodeAnswer({ success: true, data: { a: 1 } }), { a: 1 });
    assert.equal(decodeAnswer({ success: true }), null);
    const errors = { name: 'port', reason: 'type' };
    const rows = [
      [{ success: false, error: { code: 506 } }, 506, null],
      [{ success: false, error: { code: 120 }, errors }, 120, errors],
      [{ success: false }, 0, null],
      [null, 0, null],
      [{ success: 'yes' }, 0, null],
    ];
    for (const [answer, code, errors] of rows) {
      assert.throws(() => decodeAnswer(answer), { constructor: ApiError, code, errors },
        JSON.stringify(answer));
    }
  });

  test('errors read as sentences that name the field', () => {
    const labelOf = (name) => ({ tcp_port: 'Listening port (TCP)' })[name] ?? name;
    const refused = (name, reason) => new ApiError(120, { name, reason });
    const rows = [
      { error: refused('tcp_port', 'condition'), text: 'Listening port (TCP) is outside the allowed values.' },
      { error: refused('x', 'odd'), text: 'x is not valid.' },
      { error: new ApiError(120), text: 'A value is not valid.' },
      { error: new ApiError(517), text: kErrorTexts[517] },
      { error: new ApiError(4242), text: 'The request failed with error 4242.' },
      {
        error: new ApiError(0, null, 'the server could not be reached'),
        text: 'The request did not complete: the server could not be reached.',
      },
    ];
    for (const row of rows) assert.equal(describeError(row.error, labelOf), row.text);
    assert.deepEqual([106, 107, 105].map((code) => needsLogin(new ApiError(code))),
      [true, true, false]);
  });

  test('every code the module or the host can answer has its own text', async () => {
    const codes = new Set();
    const hostCodes = await readFile(path.join(kRepo, 'host/host_codes.h'), 'utf8')
      .catch(() => '');
    for (const m of hostCodes.matchAll(/=\s*(\d{3})\b/g)) codes.add(Number(m[1]));
    for (const file of await sourceFiles(path.join(kRepo, 'module'))) {
      const text = await readFile(file, 'utf8');
      for (const m of text.matchAll(/QRIXDLErrSet\((\d+)\)/g)) codes.add(Number(m[1]));
    }
    assert.ok(codes.size > 3, 'found the codes in the sources');
    codes.delete(120);  // worded per field by describeError
    const missing = [...codes].filter((code) => !(code in kErrorTexts));
    assert.deepEqual(missing, []);
  });
});

// The recursive listing is node 18.17's.
async function sourceFiles(dir) {
  const names = await readdir(dir, { recursive: true });
  return names.filter((name) => name.endsWith('.cpp')).map((name) => path.join(dir, name));
}

// The "set" parameters of each API as the module's check table declares them.
async function moduleParameters() {
  const text = await readFile(path.join(kRepo, 'module/setting.cpp'), 'utf8');
  const lists = new Map();
  for (const m of text.matchAll(/constexpr ParamRule (k\w+)\[\] = \{([\s\S]*?)\};/g)) {
    const rules = [];
    for (const r of m[2].matchAll(/(Str|Int|Bool|Port|Range|OneOf|Strings|VolumePath)\("(\w+)"((?:R"\(.*?\)"|[^)])*)\)/g)) {
      const [, kind, name, rest] = r;
      const rule = { kind, name };
      if (kind === 'Port') Object.assign(rule, { min: 1, max: 65535 });
      if (kind === 'Range') {
        const [, min, max] = /,\s*(-?\d+),\s*(-?\d+)/.exec(rest);
        Object.assign(rule, { min: Number(min), max: Number(max) });
      }
      if (kind === 'OneOf') rule.values = JSON.parse(/R"\((.*)\)"/.exec(rest)[1]);
      rules.push(rule);
    }
    lists.set(m[1], rules);
  }
  const byApi = new Map();
  for (const m of text.matchAll(/\{QRIXDL_API\("([\w.]+)"\), "set", (k\w+)\}/g)) {
    byApi.set(`QRIX.Haulport2.Setting.${m[1]}`, lists.get(m[2]));
  }
  return byApi;
}

describe('pages', () => {
  test('match the module\'s parameters: names, kinds, ranges, choices and switches', async () => {
    const params = await moduleParameters();
    const kinds = {
      bool: ['Bool'], int: ['Int', 'Port', 'Range'], text: ['Str'], password: ['Str'],
      schedule: ['Str'], select: ['Str', 'OneOf'], volume: ['VolumePath'], folders: ['Strings'],
    };
    const handlers = (await Promise.all((await sourceFiles(path.join(kRepo, 'module/handler')))
      .map((f) => readFile(f, 'utf8')))).join('\n');
    for (const page of kPages.filter((p) => p.fields)) {
      const rules = params.get(page.api);
      assert.ok(rules, `${page.api} has a "set" row in the check table`);
      const fields = page.fields.filter((f) => f.name && !f.readOnly);
      assert.deepEqual(fields.map((f) => f.name).sort(), rules.map((r) => r.name).sort(),
        `${page.id}: one field per parameter`);
      for (const field of fields) {
        const rule = rules.find((r) => r.name === field.name);
        const where = `${page.id}.${field.name}`;
        assert.ok(kinds[field.type]?.includes(rule.kind), `${where}: ${field.type} for ${rule.kind}`);
        assert.ok(field.label, `${where} has a label`);
        if (field.enabledBy) {
          const by = page.fields.find((f) => f.name === field.enabledBy);
          const ok = field.enabledValue === undefined ? by?.type === 'bool'
            : by?.type === 'select' && by.options.some(([v]) => v === field.enabledValue);
          assert.ok(ok, `${where}: enabledBy names a switch (and one of its values)`);
        }
        if ('min' in rule) {
          assert.deepEqual([field.min, field.max], [rule.min, rule.max], `${where}: bounds`);
        }
        if (rule.values) {
          assert.deepEqual(field.options.map(([v]) => v), rule.values, `${where}: choices`);
        }
        if (field.alsoSendAs) {
          assert.ok(handlers.includes(`"${field.alsoSendAs}"`),
            `${where}: a handler reads ${field.alsoSendAs}`);
        }
      }
    }
  });
});

describe('plug-in updates', () => {
  test('are the newer versions the update check names for installed plug-ins', () => {
    const installed = [{ name: 'a', version: '1' }, { name: 'b', version: '2' }];
    const rows = [
      { answer: { plugins: [{ name: 'a', version: '1.1' }, { name: 'b', version: '2' }] }, want: [['a', '1.1']] },
      { answer: [{ name: 'b', version: '3' }, { name: 'gone', version: '9' }], want: [['b', '3']] },
      { answer: null, want: [] },
      { answer: { plugins: [{ name: 'a', version: 2 }, 'b', null] }, want: [] },
    ];
    for (const { answer, want } of rows) {
      assert.deepEqual([...updatesFrom(answer, installed)], want, JSON.stringify(answer));
    }
  });
});
