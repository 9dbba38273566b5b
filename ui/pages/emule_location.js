// eMule's default destination: where the signed-in account's eMule downloads go. Every account
// sees and changes only its own.
import { writableShares } from './location.js';

export default {
  id: 'emule_location',
  title: 'eMule destination',
  api: 'QRIX.Haulport2.Setting.Emule.Location',
  intro: 'Where your eMule downloads are saved. Only shared folders you may write to can be chosen.',
  fields: [
    {
      name: 'default_destination', type: 'select', label: 'Default destination', options: [],
      hint: 'The shared folder your new eMule downloads are saved to.',
    },
  ],
  async prepare(view) {
    view.rows.get('default_destination').control.setOptions(
      [['', '(none chosen)'], ...await writableShares()]);
  },
};
