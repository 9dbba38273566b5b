// Global settings: the package's services, the Xunlei account and the volume that holds the
// temporary download folder. Changing the volume moves the folder in the background; the page
// shows a progress indicator until the server says how it ended.
import { call } from '../api.js';
import { loadTexts } from '../texts.js';

const kApi = 'QRIX.Haulport2.Setting.Global';
const kPollMs = 500;
let texts = {};

export function formatBytes(bytes) {
  const units = ['bytes', 'KB', 'MB', 'GB', 'TB', 'PB'];
  let value = Number(bytes) || 0;
  let unit = 0;
  while (value >= 1024 && unit < units.length - 1) {
    value /= 1024;
    unit += 1;
  }
  return unit === 0 ? `${value} bytes` : `${value.toFixed(1)} ${units[unit]}`;
}

// "Volume 2 (Normal, 1.5 GB free)"; the server's extra entry for a folder on an unusable
// volume carries its state in its name already.
export function describeVolume(volume) {
  if (!volume.status) return volume.display;
  const state = texts.volume?.[`volume_status_${volume.status}`] ?? volume.status;
  return volume.status === 'crashed'
    ? `${volume.display} (${state})`
    : `${volume.display} (${state}, ${formatBytes(volume.free_size)} free)`;
}

// How a finished move ended, in words. A failure may come after the folder moved (the service
// did not start again, eMule's configuration could not be rewritten), so it is not called a
// folder left in place; the page then shows where the folder is.
export function moveOutcome(progress, target) {
  if (progress.running !== 0) {
    return { text: 'The move ended elsewhere. The page shows where the folder is now.', kind: '' };
  }
  if (progress.result === 'success') {
    return { text: `The temporary download folder was moved to ${target}.`, kind: 'ok' };
  }
  return {
    text: 'The move did not complete. Check that the volume has enough free space and can be ' +
      'written to; the system log tells what failed.',
    kind: 'error',
  };
}

const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

export default {
  id: 'global',
  title: 'General',
  api: kApi,
  intro: 'The download services, the Xunlei account, and where unfinished downloads are kept.',
  fields: [
    { section: 'Services' },
    { name: 'enable_emule', type: 'bool', label: 'Enable eMule downloads' },
    { name: 'enable_unzip_service', type: 'bool', label: 'Unpack finished archives automatically' },
    { name: 'enable_xunlei', type: 'bool', label: 'Enable Xunlei offline downloads' },
    { section: 'Xunlei account' },
    { name: 'xunlei_username', type: 'text', label: 'Account', maxLength: 256 },
    {
      name: 'xunlei_password', type: 'password', label: 'Password', maxLength: 256,
      hint: 'Never shown. Leave empty to keep the stored one.',
    },
    { section: 'Temporary download folder' },
    {
      name: 'download_volume', type: 'volume', label: 'Volume',
      hint: 'Changing it stops the download service while the folder is copied to the volume.',
    },
  ],

  beforeShow(data, view) {
    const row = view.rows.get('download_volume');
    row.control.setOptions(data.volume_list ?? [], describeVolume);
  },

  async afterSet(answer, view) {
    if (answer?.running !== 1) return null;
    const select = view.rows.get('download_volume').control.element;
    const target = select.selectedOptions[0]?.textContent.replace(/ \(.*$/, '') ?? 'the volume';
    view.progress.hidden = false;
    view.setStatus(`Moving the temporary download folder to ${target}…`);
    try {
      for (;;) {
        await sleep(kPollMs);
        const progress = await call(kApi, 'read_progress');
        if (progress?.running !== 1) return moveOutcome(progress ?? {}, target);
      }
    } finally {
      view.progress.hidden = true;
    }
  },

  async prepare() {
    texts = await loadTexts();
  },
};
