#include "module/common/api_utils.h"

#include <syslog.h>

#include <cstring>
#include <sstream>

#include "module/dlcommon/download_info.h"
#include "platform/dlbase/handler_base.h"
#include "platform/system/qrix_mail.h"
#include "platform/system/qrix_service_port.h"
#include "platform/vlibc/vlibc_error.h"
#include "platform/vlibc/vlibc_file.h"

namespace QRIXDL {

void CommitQueue::Add(const char* key, const std::string& value) {
  m_queue.emplace_back(key, value);
}

void CommitQueue::Add(const char* key, int value) {
  std::ostringstream text;
  text << value;
  m_queue.emplace_back(key, text.str());
}

bool CommitQueue::CheckAndAdd(const char* param, const char* key) {
  if (!m_request->HasParam(param)) {
    return false;
  }
  m_queue.emplace_back(key, m_request->GetParam(param, Json::Value()).asString());
  return true;
}

bool CommitQueue::CheckAndAddBool(const char* param, const char* key, BoolConverter converter) {
  const QRIX::APIParameter<bool> value =
      m_request->GetAndCheckBool(param, QRIX::APIRequest::PARAM_REQUIRED, nullptr);
  if (!value.IsSet()) {
    return false;
  }
  m_queue.emplace_back(key, converter != nullptr ? converter(value) : (value.Get() ? "1" : "0"));
  return true;
}

std::string CommitQueue::YesOrNoVal(const QRIX::APIParameter<bool>& param) {
  return param.Get() ? "yes" : "no";
}

bool CommitQueue::Flush() {
  bool result = true;
  if (VLIBCFileLock(QRIXDL_SETTINGS_LOCK, QRIXDL_SETTINGS_LOCK_TIMEOUT) == -1) {
    return result;  // by design: no lock, nothing written, still a success
  }
  const auto fail = [&result](const std::string& key, const std::string& value) {
    syslog(LOG_ERR, "%s:%d Write setting error. k=%s v=%s[0x%04X %s:%d]", "common/api_utils", 79,
           key.c_str(), value.c_str(), VLIBCErrGet(), VLIBCErrorGetFile(), VLIBCErrorGetLine());
    QRIXDLErrSet(505);
    result = false;
  };
  for (const auto& [key, value] : m_queue) {
    // The length travels with the value so that an embedded NUL is refused, not cut.
    if (VLIBCFileSetKeyValueN(QRIXDL_SETTINGS_CONF, key.c_str(), value.data(), value.size(),
                              nullptr) == -1) {
      fail(key, value);
      break;
    }
  }
  // The platform publishes the staged writes as it lets the lock go: a file that cannot be
  // published then is a failed write like any other.
  if (VLIBCFileUnlock(QRIXDL_SETTINGS_UNLOCK) == -1 && result && !m_queue.empty()) {
    fail(m_queue.front().first, m_queue.front().second);
  }
  return result;
}

int SetDownloadServicePort(const char* section, int protocol, int port) {
  QRIXSERVICEPORT record{};
  record.version = QRIX_SERVICE_PORT_V1;
  record.flags = 0;
  record.protocol = protocol;
  record.port = port;
  return QRIXServiceConfSectionPortSet(QRIX_SERVICE_CONF_SET, "qrixdownload_port", section,
                                       &record);
}

bool IsEmailOK() {
  QRIXMAIL mail;
  std::memset(&mail, 0, sizeof mail);
  return QRIXMailGet(&mail) >= 1 && mail.enable != 0;
}

}  // namespace QRIXDL
