// Reading settings.conf: the whole record and single keys.
#include <syslog.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "module/dlcommon/download_info.h"
#include "module/dlcommon/download_info_fields.h"
#include "platform/vlibc/kv_cache.h"
#include "platform/vlibc/vlibc_file.h"

namespace qrixdl::settings {
namespace {

constexpr int kValueBufSize = 89;

// strtol as the device does it: 32-bit longs saturate instead of wrapping.
int Decimal(const char* text) {
  const long v = std::strtol(text, nullptr, 10);
  if (v > INT_MAX) {
    return INT_MAX;
  }
  return v < INT_MIN ? INT_MIN : static_cast<int>(v);
}

void StoreInt(DownloadInfo* info, const Field& f, int value) {
  char* at = reinterpret_cast<char*>(info) + f.offset;
  if (f.size == sizeof(uint16_t)) {
    const uint16_t cut = static_cast<uint16_t>(value);
    std::memcpy(at, &cut, sizeof cut);
  } else {
    std::memcpy(at, &value, sizeof value);
  }
}

// `len` is the reader's result: 0 means missing (or empty, which reads the same).
void Convert(DownloadInfo* info, const Field& f, const char* text, int len) {
  const bool missing = len == 0;
  const auto is = [text](const char* word) { return std::strcmp(text, word) == 0; };
  switch (f.rule) {
    case Rule::kOrderWord:
      StoreInt(info, f, is("user") ? 1 : 0);
      break;
    case Rule::kDecimal:
      StoreInt(info, f, missing ? f.def : Decimal(text));
      break;
    case Rule::kDecimalFloor: {
      const int v = missing ? f.def : Decimal(text);
      StoreInt(info, f, v < 1 ? f.def : v);
      break;
    }
    case Rule::kFlagYes:
      StoreInt(info, f, is("yes") ? 1 : 0);
      break;
    case Rule::kFlagYesOrMissing:
      StoreInt(info, f, missing || is("yes") ? 1 : 0);
      break;
    case Rule::kFlagNotNo:
      StoreInt(info, f, !missing && is("no") ? 0 : 1);
      break;
    case Rule::kFlagSetNotNo:
      StoreInt(info, f, missing || is("no") ? 0 : 1);
      break;
    case Rule::kEncryptWord:
      StoreInt(info, f, is("always") ? 2 : is("auto") ? 1 : 0);
      break;
    case Rule::kText: {
      char* dst = reinterpret_cast<char*>(info) + f.offset;
      std::snprintf(dst, f.size, "%s", missing ? f.def_text : text);
      break;
    }
    case Rule::kPort16: {
      const uint16_t port = static_cast<uint16_t>(missing ? 0 : Decimal(text));
      StoreInt(info, f, port == 0 ? f.def : port);
      break;
    }
  }
}

}  // namespace

const Field* FindField(const char* key) {
  for (const Field& f : kReadOrder) {
    if (std::strcmp(f.key, key) == 0) {
      return &f;
    }
  }
  return nullptr;
}

}  // namespace qrixdl::settings

extern "C" int QRIXDLInfoGet(DownloadInfo* info) {
  using namespace qrixdl::settings;
  std::memset(info, 0, sizeof *info);
  const qrix::kv::ReadBatch one_read;
  for (const Field& f : kReadOrder) {
    char value[kValueBufSize];
    std::memset(value, 0, sizeof value);
    const int len = VLIBCFileGetKeyValue(QRIXDL_SETTINGS_CONF, f.key, value, sizeof value, 0);
    if (len == -1) {
      syslog(LOG_ERR, "%s (%d) There is an error here.", "setting_conf_get", __LINE__);
      return -1;
    }
    Convert(info, f, value, len);
    if (f.offset == offsetof(DownloadInfo, start_port) && info->dhtport < 1) {
      info->dhtport = 16881;  // overwritten when dhtport itself is read
    }
  }
  return 0;
}

extern "C" int SettingsGetKeyValue(const char* key, const char* def, char* buf, int size) {
  if (buf == nullptr || size <= 0) {
    return -1;
  }
  std::memset(buf, 0, static_cast<size_t>(size));
  const int len = VLIBCFileGetKeyValue(QRIXDL_SETTINGS_CONF, key, buf, size, 0);
  if (len > 0) {
    return len;
  }
  return std::snprintf(buf, static_cast<size_t>(size), "%s", def != nullptr ? def : "");
}
