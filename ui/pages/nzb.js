// NZB downloads: the news server, its login and the repair options. The stored password is
// never sent back by the server; the box stays empty and a typed one replaces it.
export default {
  id: 'nzb',
  title: 'NZB',
  api: 'QRIX.Haulport2.Setting.Nzb',
  intro: 'The news server used for NZB downloads.',
  fields: [
    { section: 'News server' },
    { name: 'server', type: 'text', label: 'Server', maxLength: 63 },
    { name: 'port', type: 'int', label: 'Port', min: 1, max: 65535 },
    { name: 'enable_encryption', type: 'bool', label: 'Use an encrypted connection (SSL/TLS)' },
    { name: 'enable_auth', type: 'bool', label: 'The server requires a login' },
    {
      name: 'username', type: 'text', label: 'User name', maxLength: 63, enabledBy: 'enable_auth',
    },
    {
      name: 'password', type: 'password', label: 'Password', enabledBy: 'enable_auth',
      hint: 'Leave empty to keep the stored password.',
    },
    { section: 'Downloads' },
    { name: 'conn_per_download', type: 'int', label: 'Connections per download', min: 1 },
    {
      name: 'max_download_rate', type: 'int', label: 'Maximum download rate', min: 0,
      unit: 'KB/s', hint: '0 means no limit.',
    },
    { name: 'enable_parchive', type: 'bool', label: 'Repair downloads with PAR2 files' },
    {
      name: 'enable_remove_parfiles', type: 'bool',
      label: 'Delete PAR2 files after a successful repair', enabledBy: 'enable_parchive',
    },
  ],
};
