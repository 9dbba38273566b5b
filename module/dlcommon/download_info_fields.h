// The 45 settings of DownloadInfo declared once: key, field, read rule and default. The reader
// and the writer walk this table in their own fixed orders.
#ifndef HAULPORT_MODULE_DLCOMMON_DOWNLOAD_INFO_FIELDS_H_
#define HAULPORT_MODULE_DLCOMMON_DOWNLOAD_INFO_FIELDS_H_

#include <cstddef>
#include <iterator>

#include "module/dlcommon/download_info.h"

namespace qrixdl::settings {

enum class Rule {
  kOrderWord,     // 1 for exactly "user"; written "user"/"request"
  kDecimal,       // missing: the default; else decimal
  kDecimalFloor,  // missing or below 1: the default
  kFlagYes,       // 1 only for exactly "yes"
  kFlagYesOrMissing,  // 1 when missing or exactly "yes"
  kFlagNotNo,         // 0 only when present and exactly "no"
  kFlagSetNotNo,      // 0 when missing or exactly "no"
  kEncryptWord,       // "always" 2, "auto" 1, anything else 0
  kText,              // copied, cut to the field; missing: the default text
  kPort16,            // decimal cut to 16 bits; missing or 0: the default
};

struct Field {
  const char* key;
  size_t offset;
  size_t size;  // of the member: text fields are cut to size - 1
  Rule rule;
  int def;
  const char* def_text;
};

#define QRIXDL_FIELD(member, rule, def) \
  Field { "download_" #member, offsetof(DownloadInfo, member), sizeof(DownloadInfo::member), \
          Rule::rule, def, "" }
#define QRIXDL_TEXT(member, def_text) \
  Field { "download_" #member, offsetof(DownloadInfo, member), sizeof(DownloadInfo::member), \
          Rule::kText, 0, def_text }

// Reading order. Keep it: the reader's dhtport fix-up after start_port relies on dhtport being
// read again later.
inline constexpr Field kReadOrder[] = {
    QRIXDL_FIELD(order, kOrderWord, 0),
    QRIXDL_FIELD(ul_rate, kDecimal, 20),
    QRIXDL_FIELD(dl_rate, kDecimal, 0),
    QRIXDL_FIELD(http_dl_rate, kDecimal, 0),
    QRIXDL_FIELD(http_max_conn, kDecimal, 4),
    QRIXDL_FIELD(enable_http_multi_conn, kFlagNotNo, 1),
    QRIXDL_FIELD(start_port, kDecimalFloor, 16881),
    QRIXDL_FIELD(end_port, kDecimal, 0),
    QRIXDL_FIELD(port_map_enabled, kFlagYes, 0),
    QRIXDL_FIELD(seeding_ratio, kDecimal, 0),
    QRIXDL_FIELD(seeding_interval, kDecimal, 0),
    QRIXDL_FIELD(seeding_auto_remove, kFlagSetNotNo, 0),
    QRIXDL_FIELD(enable_dht, kFlagYesOrMissing, 1),
    QRIXDL_FIELD(dhtport, kDecimalFloor, 6881),
    QRIXDL_FIELD(enable_bt_port_forwarding, kFlagYes, 0),
    QRIXDL_FIELD(btencrypt, kEncryptWord, 0),
    QRIXDL_FIELD(btmaxpeers, kDecimalFloor, 100),
    QRIXDL_FIELD(maxtasks, kDecimalFloor, 10),
    QRIXDL_FIELD(enable_bt_preview, kFlagSetNotNo, 0),
    QRIXDL_FIELD(enable_pyload, kFlagYesOrMissing, 1),
    QRIXDL_FIELD(enable_autoUnzip, kFlagYes, 0),
    QRIXDL_FIELD(enable_amule, kFlagYes, 0),
    QRIXDL_FIELD(amule_ul_rate, kDecimal, 20),
    QRIXDL_FIELD(amule_dl_rate, kDecimal, 0),
    QRIXDL_FIELD(amule_tcp_port, kDecimal, 4662),
    QRIXDL_FIELD(amule_udp_port, kDecimal, 4672),
    QRIXDL_FIELD(amule_max_conn, kDecimal, 500),
    QRIXDL_FIELD(amule_auto_connect, kDecimal, 0),
    QRIXDL_FIELD(amule_enable_obfuscation, kDecimal, 1),
    QRIXDL_FIELD(amule_outgoing_obfuscation, kDecimal, 1),
    QRIXDL_FIELD(amule_only_obfuscation, kDecimal, 0),
    QRIXDL_FIELD(amule_auto_update_server, kDecimal, 0),
    QRIXDL_FIELD(ftpmax_enable, kFlagYes, 0),
    QRIXDL_FIELD(ftpmax, kDecimalFloor, 3),
    QRIXDL_TEXT(nzb_server, ""),
    QRIXDL_FIELD(nzb_port, kPort16, 119),
    QRIXDL_FIELD(nzb_auth, kFlagYes, 0),
    QRIXDL_TEXT(nzb_user, ""),
    QRIXDL_TEXT(nzb_password_en, ""),
    QRIXDL_FIELD(nzb_numconn, kDecimalFloor, 2),
    QRIXDL_TEXT(nzb_encryption, "no"),
    QRIXDL_FIELD(nzb_dl_rate, kDecimal, 0),
    QRIXDL_FIELD(nzb_enable_parchive, kFlagSetNotNo, 0),
    QRIXDL_FIELD(nzb_enable_remove_parchive_files, kFlagSetNotNo, 0),
    QRIXDL_FIELD(enable_xunlei, kFlagYes, 0),
};

// Writing order: seeding_interval before seeding_ratio, maxtasks after the eMule block, the FTP
// keys and enable_xunlei last.
inline constexpr const char* kWriteOrder[] = {
    "download_order",
    "download_ul_rate",
    "download_dl_rate",
    "download_http_dl_rate",
    "download_http_max_conn",
    "download_enable_http_multi_conn",
    "download_start_port",
    "download_end_port",
    "download_port_map_enabled",
    "download_seeding_interval",
    "download_seeding_ratio",
    "download_seeding_auto_remove",
    "download_enable_dht",
    "download_dhtport",
    "download_enable_bt_port_forwarding",
    "download_btencrypt",
    "download_btmaxpeers",
    "download_enable_bt_preview",
    "download_enable_pyload",
    "download_enable_autoUnzip",
    "download_enable_amule",
    "download_amule_ul_rate",
    "download_amule_dl_rate",
    "download_amule_tcp_port",
    "download_amule_udp_port",
    "download_amule_max_conn",
    "download_amule_auto_connect",
    "download_amule_enable_obfuscation",
    "download_amule_outgoing_obfuscation",
    "download_amule_only_obfuscation",
    "download_amule_auto_update_server",
    "download_maxtasks",
    "download_nzb_server",
    "download_nzb_port",
    "download_nzb_auth",
    "download_nzb_user",
    "download_nzb_password_en",
    "download_nzb_numconn",
    "download_nzb_encryption",
    "download_nzb_dl_rate",
    "download_nzb_enable_parchive",
    "download_nzb_enable_remove_parchive_files",
    "download_ftpmax_enable",
    "download_ftpmax",
    "download_enable_xunlei",
};

static_assert(std::size(kReadOrder) == 45 && std::size(kWriteOrder) == 45);

// The record crosses into programs built apart from this library, on the 32-bit NAS as here:
// 32-bit integers, the untouched 16-byte head, the text sizes the reader cuts to and the 16-bit
// NZB port fix its layout (360 bytes on both targets).
static_assert(sizeof(int) == 4 && offsetof(DownloadInfo, order) == 16);
static_assert(sizeof(DownloadInfo::nzb_server) == 64 && sizeof(DownloadInfo::nzb_user) == 64 &&
              sizeof(DownloadInfo::nzb_password_en) == 45 &&
              sizeof(DownloadInfo::nzb_encryption) == 4);
static_assert(sizeof(DownloadInfo::nzb_port) == 2 && sizeof(DownloadInfo) == 360);

// The table row of a key, or nullptr.
const Field* FindField(const char* key);

}  // namespace qrixdl::settings

#endif  // HAULPORT_MODULE_DLCOMMON_DOWNLOAD_INFO_FIELDS_H_
