#include "module/handler/emule_location_handler.h"

#include <strings.h>

#include <cstdio>
#include <string>

#include "module/common/module_log.h"
#include "platform/dlbase/shared_folder.h"
#include "platform/vlibc/vlibc_file.h"

namespace {

constexpr const char* kSource = "handler/emule_location_handler";
constexpr int kKeySize = 11;
constexpr int kDestinationSize = 4095;

constexpr int kErrNoPermission = 403;
constexpr int kErrGetDestination = 504;
constexpr int kErrSetDestination = 505;

// The daemon knows the built-in "admin" as user 0, whatever the spelling; everyone else by uid.
std::string DestinationKey(const QRIX::APIRequest& request) {
  char key[kKeySize];
  const bool builtin_admin = strcasecmp(request.GetLoginUserName().c_str(), "admin") == 0;
  std::snprintf(key, sizeof key, "%d", builtin_admin ? 0 : static_cast<int>(request.GetLoginUID()));
  return key;
}

}  // namespace

void EmuleLocationHandler::Get() {
  Json::Value out;
  if (LoadSettings(out)) {
    m_response->SetSuccess(out);
  }
  ReportError();
}

void EmuleLocationHandler::Set() {
  if (ApplySettings()) {
    m_response->SetSuccess(Json::Value());
  }
  ReportError();
}

bool EmuleLocationHandler::LoadSettings(Json::Value& out) {
  const std::string key = DestinationKey(*m_request);
  char buf[kDestinationSize] = {};
  if (VLIBCFileGetKeyValue(QRIXDL_AMULE_DESTINATION_CONF, key.c_str(), buf, sizeof buf, 0) == -1) {
    QRIXDL_LOG_ERR(kSource, "Failed to get default destination by (%s) user.",
                   m_request->GetLoginUserName().c_str());
    QRIXDLErrSet(kErrGetDestination);
    return false;
  }
  out["default_destination"] = buf;
  return true;
}

bool EmuleLocationHandler::ApplySettings() {
  const auto destination =
      m_request->GetAndCheckString("default_destination", QRIX::APIRequest::PARAM_REQUIRED);
  const std::string key = DestinationKey(*m_request);
  if (!destination.IsSet()) {
    return true;
  }
  const std::string& user = m_request->GetLoginUserName();
  try {
    qrixdl::common::CheckSharedPathWithException(destination.Get(), user);
  } catch (const qrixdl::QrixError& e) {
    QRIXDLErrSet(e.GetErrorCode() == qrixdl::kErrNoSharePermission ? kErrNoPermission
                                                                   : e.GetErrorCode());
    return false;
  }
  if (VLIBCFileSetKeyValue(QRIXDL_AMULE_DESTINATION_CONF, key.c_str(), destination.Get().c_str(),
                           nullptr) == -1) {
    QRIXDL_LOG_ERR(kSource, "Failed to set default destination by %s user.", user.c_str());
    QRIXDLErrSet(kErrSetDestination);
    return false;
  }
  return true;
}
