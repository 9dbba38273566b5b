// eMule: ports, rates, connections, protocol obfuscation, server options, eMule's own weekly
// schedule and the folders it shares. Ordinary accounts learn only whether eMule is on.
import { parseSchedule } from '../schedule_grid.js';
import { writableShares } from './location.js';

export default {
  id: 'emule',
  title: 'eMule',
  api: 'QRIX.Haulport2.Setting.Emule',
  intro: 'How eMule connects, how fast it transfers, when it runs and what it shares.',
  fields: [
    { section: 'Connection' },
    {
      name: 'port_type', type: 'select', label: 'Ports', group: 'ports',
      options: [['default_port', 'Default (TCP 4662, UDP 4672)'], ['manual_port', 'Chosen here']],
    },
    {
      name: 'tcp_port', type: 'int', label: 'TCP port', min: 1, max: 65535, group: 'ports',
      alsoSendAs: 'emule_tcp_port', enabledBy: 'port_type', enabledValue: 'manual_port',
      hint: 'Must not be used by another service.',
    },
    {
      name: 'udp_port', type: 'int', label: 'UDP port', min: 1, max: 65535, group: 'ports',
      alsoSendAs: 'emule_udp_port', enabledBy: 'port_type', enabledValue: 'manual_port',
      hint: 'Must differ from the BitTorrent DHT port.',
    },
    { name: 'max_conn', type: 'int', label: 'Maximum connections', min: 100, max: 500 },
    { name: 'enable_obfuscation', type: 'bool', label: 'Accept obfuscated connections' },
    {
      name: 'enable_outgoing_obfuscation', type: 'bool',
      label: 'Obfuscate outgoing connections',
    },
    { name: 'enable_obfuscation_only', type: 'bool', label: 'Allow obfuscated connections only' },
    { section: 'Servers' },
    { name: 'enable_server_update', type: 'bool', label: 'Update the server list automatically' },
    { name: 'enable_server_auto_connect', type: 'bool', label: 'Connect to a server at start' },
    { section: 'Transfer' },
    {
      name: 'download_rate', type: 'int', label: 'Maximum download rate', min: 0, unit: 'KB/s',
      hint: '0 means no limit.',
    },
    {
      name: 'upload_rate', type: 'int', label: 'Maximum upload rate', min: 0, unit: 'KB/s',
      hint: '0 means no limit.',
    },
    { section: 'Schedule' },
    { name: 'enable_schedule', type: 'bool', label: 'Follow eMule\'s weekly schedule' },
    { name: 'schedule', type: 'schedule', label: 'eMule weekly schedule' },
    {
      name: 'schedule_download_rate', type: 'int', label: 'Download rate in paused hours',
      min: 0, unit: 'KB/s', hint: '0 means no limit.',
    },
    {
      name: 'schedule_upload_rate', type: 'int', label: 'Upload rate in paused hours', min: 0,
      unit: 'KB/s', hint: '0 means no limit.',
    },
    { section: 'Shared folders' },
    {
      name: 'share_folders', type: 'folders', label: 'Folders eMule shares',
      emptyText: 'You may write to no shared folder.',
      hint: 'Saved only while downloads are allowed by the download schedule.',
    },
  ],
  unavailable(data) {
    if (data.enable_emule === false) {
      return 'eMule is turned off. An administrator can turn it on under General.';
    }
    if (data.enable_emule === true && !('port_type' in data)) {
      return 'eMule is turned on. Only an administrator can change its settings.';
    }
    return '';
  },
  async prepare(view) {
    view.rows.get('share_folders').control.setOptions(await writableShares());
  },
  describe(data, page) {
    if (typeof data.schedule !== 'string') return;
    page.rows.get('schedule').setHint(parseSchedule(data.schedule).exact ? '' :
      'The stored schedule was not a full week of hours; missing hours are shown paused.');
  },
};
