// Download locations: where the signed-in account's downloads go, and the folder from which its
// torrent and NZB files are picked up. Every account sees and changes only its own.
import { call } from '../api.js';

export const kShareApi = 'QRIX.Core.Share';

// The shares the signed-in account may write to, as [value, text] choices.
export async function writableShares() {
  const data = await call(kShareApi, 'list');
  return (data?.shares ?? []).filter((s) => s.writable).map((s) => [s.name, s.name]);
}

export default {
  id: 'location',
  title: 'Download locations',
  api: 'QRIX.Haulport2.Setting.Location',
  intro: 'Your own download folders. Only shared folders you may write to can be chosen.',
  // "get" answers 403 while the account has stored nothing yet.
  emptyOn: { 403: 'You have not chosen a default destination yet.' },
  fields: [
    {
      name: 'default_destination', type: 'select', label: 'Default destination', options: [],
      hint: 'The shared folder your new downloads are saved to.',
    },
    { section: 'Watch folder' },
    {
      name: 'enable_torrent_nzb_watch', type: 'bool',
      label: 'Add torrent and NZB files found in the watch folder',
    },
    {
      name: 'torrent_nzb_watch_folder', type: 'text', label: 'Watch folder', maxLength: 4095,
      enabledBy: 'enable_torrent_nzb_watch',
      hint: 'A folder inside a shared folder you may write to, such as downloads/watch. ' +
        'No other account may watch the same folder.',
    },
    {
      name: 'enable_delete_torrent_nzb_watch', type: 'bool',
      label: 'Delete the files once they are added', enabledBy: 'enable_torrent_nzb_watch',
    },
  ],
  // The destination is chosen from the shares this account may write to.
  async prepare(view) {
    view.rows.get('default_destination').control.setOptions(
      [['', '(none chosen)'], ...await writableShares()]);
  },
};
