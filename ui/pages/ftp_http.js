// FTP and HTTP downloads: the FTP connection limit and the rate limit both share.
export default {
  id: 'ftp_http',
  title: 'FTP and HTTP',
  api: 'QRIX.Haulport2.Setting.FtpHttp',
  intro: 'Limits for tasks that download over FTP or HTTP.',
  fields: [
    { name: 'enable_ftp_max_conn', type: 'bool', label: 'Limit the number of FTP connections' },
    {
      name: 'ftp_max_conn', type: 'int', label: 'Maximum FTP connections', min: 1, max: 65535,
      enabledBy: 'enable_ftp_max_conn',
    },
    {
      name: 'ftp_http_max_download_rate', type: 'int', label: 'Maximum download rate', min: 0,
      unit: 'KB/s', hint: 'Shared by FTP and HTTP downloads. 0 means no limit.',
    },
  ],
};
