// BitTorrent search: the search plug-ins and their site accounts (a page of its own kind).
import { BtSearchPage, kApi } from '../bt_search_page.js';

export default {
  id: 'btsearch',
  title: 'BT search',
  api: kApi,
  intro: 'The plug-ins that search sites for torrents. Add one from a file, select plug-ins to ' +
    'delete or update them, and give plug-ins that need one a site account.',
  view: BtSearchPage,
};
