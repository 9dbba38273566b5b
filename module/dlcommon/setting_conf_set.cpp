// Writing settings.conf as a whole record, and telling the scheduler daemon.
#include <signal.h>
#include <syslog.h>

#include <cstdio>
#include <cstring>

#include "module/dlcommon/critical_section.h"
#include "module/dlcommon/download_info.h"
#include "module/dlcommon/download_info_fields.h"
#include "platform/vlibc/vlibc_error.h"
#include "platform/vlibc/vlibc_file.h"
#include "platform/vlibc/vlibc_proc.h"

namespace qrixdl::settings {
namespace {

constexpr const char* kLineFormat = "%s=\"%s\"\n";

int LoadInt(const DownloadInfo* info, const Field& f) {
  const char* at = reinterpret_cast<const char*>(info) + f.offset;
  if (f.size == sizeof(uint16_t)) {
    uint16_t v;
    std::memcpy(&v, at, sizeof v);
    return v;
  }
  int v;
  std::memcpy(&v, at, sizeof v);
  return v;
}

// The value text of one field; false for a value the file cannot hold (an unknown encryption).
bool Encode(const DownloadInfo* info, const Field& f, char (&number)[16], const char** text) {
  static constexpr const char* kEncryptWords[] = {"disable", "auto", "always"};
  if (f.rule == Rule::kText) {
    *text = reinterpret_cast<const char*>(info) + f.offset;
    return true;
  }
  const int v = LoadInt(info, f);
  switch (f.rule) {
    case Rule::kOrderWord:
      *text = v == 1 ? "user" : "request";
      return true;
    case Rule::kFlagYes:
    case Rule::kFlagYesOrMissing:
    case Rule::kFlagNotNo:
    case Rule::kFlagSetNotNo:
      *text = v != 0 ? "yes" : "no";
      return true;
    case Rule::kEncryptWord:
      if (v < 0 || v > 2) {
        return false;
      }
      *text = kEncryptWords[v];
      return true;
    default:
      std::snprintf(number, sizeof number, "%i", v);
      *text = number;
      return true;
  }
}

}  // namespace
}  // namespace qrixdl::settings

extern "C" int QRIXDLInfoSet(const DownloadInfo* info) {
  using namespace qrixdl::settings;
  if (VLIBCFileLock(QRIXDL_SETTINGS_LOCK, QRIXDL_SETTINGS_LOCK_TIMEOUT) == -1) {
    syslog(LOG_ERR, "%s (%d) There is an error here.", "setting_conf_set", __LINE__);
    return -1;
  }
  int result = 0;
  for (const char* key : kWriteOrder) {
    const Field* f = FindField(key);
    char number[16];
    const char* text = nullptr;
    if (f == nullptr || !Encode(info, *f, number, &text) ||
        VLIBCFileSetKeyValue(QRIXDL_SETTINGS_CONF, key, text, kLineFormat) == -1) {
      syslog(LOG_ERR, "%s (%d) There is an error here.", "setting_conf_set", __LINE__);
      result = -1;
      break;
    }
  }
  if (result == 0 && QRIXDLSchedulerHup(SIGHUP) != 0) {
    syslog(LOG_ERR, "%s (%d)Failed to hup scheduled.", "setting_conf_set", __LINE__);
  }
  // Staged writes are published by now (before the signal) or as the lock goes.
  if (VLIBCFileUnlock(QRIXDL_SETTINGS_UNLOCK) == -1 && result == 0) {
    syslog(LOG_ERR, "%s (%d) There is an error here.", "setting_conf_set", __LINE__);
    result = -1;
  }
  return result;
}

extern "C" int QRIXDLSchedulerHup(int sig) {
  QRIXDL::RootCriticalSection root("setting_conf_set", __LINE__);
  // Sent even when becoming root failed: the daemon may belong to us anyway.
  const int sent = VLIBCProcSignalByPidFile(QRIXDL_SCHEDULER_PID, sig);
  root.Leave(__LINE__);
  if (sent == -1) {
    syslog(LOG_ERR, "%s:%d Failed to send HUP to scheduler. [0x%04X %s:%d]", "setting_conf_set",
           __LINE__, VLIBCErrGet(), VLIBCErrorGetFile(), VLIBCErrorGetLine());
    return -1;
  }
  return 0;
}
