// RSS feeds: how often subscribed feeds are refreshed.
export default {
  id: 'rss',
  title: 'RSS',
  api: 'QRIX.Haulport2.Setting.Rss',
  intro: 'How often subscribed RSS feeds are checked for new items.',
  fields: [
    {
      name: 'update_interval', type: 'int', label: 'Refresh interval', min: 1, max: 1440,
      unit: 'minutes', hint: 'From 1 to 1440 minutes; feeds are refreshed at most every 10.',
    },
  ],
};
