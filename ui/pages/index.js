// The settings pages, in the order of the tabs. Adding a page: write pages/<name>.js (see
// ftp_http.js for the shape) and add one line here.
import ftpHttp from './ftp_http.js';
import globalSettings from './global.js';
import bt from './bt.js';
import btSearch from './bt_search.js';
import scheduler from './scheduler.js';
import rss from './rss.js';
import nzb from './nzb.js';
import location from './location.js';
import emule from './emule.js';
import emuleLocation from './emule_location.js';

export const kPages = [
  ftpHttp,
  globalSettings,
  bt,
  btSearch,
  scheduler,
  rss,
  nzb,
  location,
  emule,
  emuleLocation,
];
