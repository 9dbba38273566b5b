// Starts the demo (scripts/demo) in a fresh state directory on a free loopback port, waits until
// it says it is ready, and stops it again. Gives the tests the URL, the logins and the files.
import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { mkdtemp, readFile, rm } from 'node:fs/promises';
import net from 'node:net';
import os from 'node:os';
import path from 'node:path';
import { after, before } from 'node:test';
import { fileURLToPath } from 'node:url';

import { launchBrowser } from './browser.mjs';

export const kRepo = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '../../..');
const kStartMs = 60_000;
const kStopMs = 15_000;

function freePort() {
  return new Promise((resolve, reject) => {
    const server = net.createServer();
    server.once('error', reject);
    server.listen(0, '127.0.0.1', () => {
      const { port } = server.address();
      server.close(() => resolve(port));
    });
  });
}

export async function startDemo() {
  const state = await mkdtemp(path.join(os.tmpdir(), 'qrix-browser-'));
  const port = await freePort();
  const url = `http://127.0.0.1:${port}/`;
  // Its own process group, so that stopping it reaches the sandbox and everything inside.
  const child = spawn(path.join(kRepo, 'scripts/demo'), ['--state', state, '--port', String(port)],
    { cwd: kRepo, detached: true, stdio: ['ignore', 'pipe', 'pipe'] });
  let output = '';
  child.stdout.on('data', (d) => { output += d; });
  child.stderr.on('data', (d) => { output += d; });
  let exited = null;
  const done = new Promise((resolve) => child.on('exit', (code, signal) => {
    exited = { code, signal };
    resolve(exited);
  }));

  const demo = {
    url,
    state,
    output: () => output,
    settingsFile: path.join(state, 'var/packages/Haulport/etc/settings.conf'),
    async stop() {
      if (!exited) {
        // SIGTERM to the script alone: it stops the host, the scheduler and the log in order.
        process.kill(child.pid, 'SIGTERM');
        const timer = setTimeout(() => {
          try { process.kill(-child.pid, 'SIGKILL'); } catch { /* already gone */ }
        }, kStopMs);
        await done;
        clearTimeout(timer);
      }
      await rm(state, { recursive: true, force: true });
      return exited;
    },
  };

  // The script says it is ready once the host listens; it ends, or stays silent, when it fails.
  let timer;
  const ready = await new Promise((resolve) => {
    timer = setTimeout(() => resolve(false), kStartMs);
    child.stdout.on('data', () => output.includes('demo: ready at') && resolve(true));
    done.then(() => resolve(false));
  }).finally(() => clearTimeout(timer));
  if (!ready) {
    await demo.stop();
    throw new Error(`the demo did not get ready at ${url} within ${kStartMs} ms:\n${output}`);
  }
  demo.logins = JSON.parse(await readFile(path.join(state, 'demo-logins.json'), 'utf8'));
  demo.admin = demo.logins.find((l) => l.admin);
  demo.user = demo.logins.find((l) => !l.admin);
  return demo;
}

// One demo and one browser for a test file: started before its tests, and after them the
// browser closed and the demo stopped, which must end cleanly and take the host down with it.
export function useDemoAndBrowser() {
  const shared = { demo: undefined, browser: undefined };
  before(async () => {
    shared.demo = await startDemo();
    shared.browser = await launchBrowser();
  });
  after(async () => {
    await shared.browser?.close();
    const { demo } = shared;
    if (demo) {
      const { url } = demo;
      const end = await demo.stop();
      assert.deepEqual(end, { code: 0, signal: null }, `the demo did not stop cleanly:\n${demo.output()}`);
      await assert.rejects(fetch(url), 'the host still answers after the demo stopped');
    }
  });
  return shared;
}
