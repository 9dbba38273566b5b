/* The download settings record and its readers and writers, shared with the package's other
 * programs (some of them C). */
#ifndef HAULPORT_MODULE_DLCOMMON_DOWNLOAD_INFO_H_
#define HAULPORT_MODULE_DLCOMMON_DOWNLOAD_INFO_H_

#include <stdint.h>

#include "platform/qrix_export.h"

#ifdef __cplusplus
extern "C" {
#endif

#define QRIXDL_SETTINGS_CONF "/var/packages/Haulport/etc/settings.conf"
#define QRIXDL_SCHEDULER_PID "/tmp/qrixdl_scheduler.pid"

/* Lock arguments shared by every writer of the settings file. */
#define QRIXDL_SETTINGS_LOCK 0x806
#define QRIXDL_SETTINGS_LOCK_TIMEOUT 5
#define QRIXDL_SETTINGS_UNLOCK 0x800

/* Fields in declaration order; the first 16 bytes are touched by neither reader nor writer. */
typedef struct _tag_DownloadInfo_ {
  char reserved[16];
  int order;
  int ul_rate;
  int dl_rate;
  int http_dl_rate;
  int http_max_conn;
  int enable_http_multi_conn;
  int start_port;
  int end_port;
  int port_map_enabled;
  int seeding_ratio;
  int seeding_interval;
  int seeding_auto_remove;
  int enable_dht;
  int dhtport;
  int enable_bt_port_forwarding;
  int btencrypt;
  int btmaxpeers;
  int maxtasks;
  int enable_bt_preview;
  int enable_pyload;
  int enable_autoUnzip;
  int enable_amule;
  int amule_ul_rate;
  int amule_dl_rate;
  int amule_tcp_port;
  int amule_udp_port;
  int amule_max_conn;
  int amule_auto_connect;
  int amule_enable_obfuscation;
  int amule_outgoing_obfuscation;
  int amule_only_obfuscation;
  int amule_auto_update_server;
  int enable_xunlei;
  int ftpmax_enable;
  int ftpmax;
  char nzb_server[64];
  uint16_t nzb_port;
  int nzb_auth;
  char nzb_user[64];
  char nzb_password_en[45];
  char nzb_encryption[4];
  int nzb_numconn;
  int nzb_dl_rate;
  int nzb_enable_parchive;
  int nzb_enable_remove_parchive_files;
} DownloadInfo;

/* Reads the 45 settings with their defaults. 0, or -1 when the file could not be read. */
QRIX_EXPORT int QRIXDLInfoGet(DownloadInfo* info);
/* Writes the 45 settings under the settings lock, then sends the scheduler SIGHUP.
 * 0, or -1 (keys written before the failure stay written). */
QRIX_EXPORT int QRIXDLInfoSet(const DownloadInfo* info);
/* Reads one key into `buf`, or the default when the key is missing or empty. Returns the
 * length read, or the result of formatting the default (its whole length, even when cut). */
QRIX_EXPORT int SettingsGetKeyValue(const char* key, const char* def, char* buf, int size);
/* Sends `sig` to the scheduler daemon as root. 0 when delivered, -1 otherwise. */
QRIX_EXPORT int QRIXDLSchedulerHup(int sig);

#ifdef __cplusplus
}
#endif

#endif /* HAULPORT_MODULE_DLCOMMON_DOWNLOAD_INFO_H_ */
