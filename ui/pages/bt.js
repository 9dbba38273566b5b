// BitTorrent: ports, rates, peers, encryption and seeding.
export default {
  id: 'bt',
  title: 'BitTorrent',
  api: 'QRIX.Haulport2.Setting.BT',
  intro: 'How BitTorrent tasks connect, how fast they transfer and how long they seed.',
  fields: [
    { section: 'Connection' },
    {
      name: 'tcp_port', type: 'int', label: 'Listening port (TCP)', min: 1, max: 65535,
      alsoSendAs: 'bt_tcp_port', hint: 'Must not be used by another service.',
    },
    { name: 'enable_port_forwarding', type: 'bool', label: 'Forward the port on the router' },
    { name: 'enable_dht', type: 'bool', label: 'Find peers through DHT' },
    {
      name: 'dht_port', type: 'int', label: 'DHT port (UDP)', min: 1, max: 65535,
      alsoSendAs: 'bt_dht_port', enabledBy: 'enable_dht',
      hint: 'Must differ from the eMule UDP port.',
    },
    { name: 'max_peer', type: 'int', label: 'Maximum peers per task', min: 5, max: 10000 },
    {
      name: 'encrypt', type: 'select', label: 'Protocol encryption',
      options: [['auto', 'Automatic'], ['always', 'Always'], ['disable', 'Disabled']],
    },
    { section: 'Transfer' },
    {
      name: 'max_download_rate', type: 'int', label: 'Maximum download rate', min: 0,
      unit: 'KB/s', hint: '0 means no limit.',
    },
    {
      name: 'max_upload_rate', type: 'int', label: 'Maximum upload rate', min: 0, unit: 'KB/s',
      hint: '0 means no limit.',
    },
    { name: 'enable_preview', type: 'bool', label: 'Download pieces in order for preview' },
    { section: 'Seeding' },
    { name: 'seeding_ratio', type: 'int', label: 'Seeding ratio', min: 0 },
    { name: 'seeding_interval', type: 'int', label: 'Seeding interval', min: 0 },
    {
      name: 'enable_seeding_auto_remove', type: 'bool',
      label: 'Remove finished tasks when seeding ends',
    },
  ],
};
