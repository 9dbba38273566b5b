#include "module/handler/location_handler.h"

#include <string>

#include "module/common/api_callback.h"
#include "module/common/module_log.h"
#include "module/dlcommon/file.h"
#include "module/dlcommon/user.h"
#include "platform/dlbase/shared_folder.h"

namespace {

constexpr const char* kSource = "handler/location_handler";
constexpr int kFolderSize = 4096;

constexpr int kErrFolderCheck = 117;
constexpr int kErrNoPermission = 403;
constexpr int kErrSetShare = 407;
constexpr int kErrReadUserSetting = 519;
constexpr int kErrNoTmpDir = 1201;
constexpr int kErrFolderTaken = 1207;
constexpr int kErrSetWatch = 1208;

bool GetDefaultFolder(const std::string& user, std::string& folder) {
  char buf[kFolderSize] = {};
  if (GetTmpDownloadDir(buf, sizeof buf) == -1) {
    QRIXDLErrSet(kErrNoTmpDir);
    return false;
  }
  switch (DownloadUserShareGet(user.c_str(), buf, sizeof buf)) {
    case -1:
      QRIXDLErrSet(kErrReadUserSetting);
      return false;
    case 0:
      QRIXDLErrSet(kErrNoPermission);
      return false;
    default:  // 1, or 2 for a disabled account: the same folder
      folder = buf;
      return true;
  }
}

// The caller clears both flags first: the table only ever sets them.
bool GetWatchInfo(const std::string& user, int* enable, int* remove, std::string& folder) {
  char buf[kFolderSize] = {};
  if (DownloadUserWatchInfoGet(user.c_str(), enable, remove, buf, sizeof buf) == -1) {
    QRIXDLErrSet(kErrReadUserSetting);
    return false;
  }
  folder = buf;
  return true;
}

// The shared-folder check's verdict as this API reports it: no permission is 403.
bool CheckSharedPath(const std::string& path, const std::string& user) {
  try {
    qrixdl::common::CheckSharedPathWithException(path, user);
    return true;
  } catch (const qrixdl::QrixError& e) {
    QRIXDLErrSet(e.GetErrorCode() == qrixdl::kErrNoSharePermission ? kErrNoPermission
                                                                   : e.GetErrorCode());
    return false;
  }
}

}  // namespace

void LocationHandler::Get() {
  Json::Value out;
  if (LoadSettings(out)) {
    m_response->SetSuccess(out);
  }
  ReportError();
}

void LocationHandler::Set() {
  if (ApplySettings()) {
    m_response->SetSuccess(Json::Value());
  }
  ReportError();
}

// Always true: what could not be read is answered empty, its error code left to ReportError.
bool LocationHandler::LoadSettings(Json::Value& out) {
  const std::string& user = m_request->GetLoginUserName();
  std::string destination;
  if (!GetDefaultFolder(user, destination)) {
    destination.clear();
  }
  int enable = 0;
  int remove = 0;
  std::string watch;
  if (!GetWatchInfo(user, &enable, &remove, watch)) {
    enable = remove = 0;
    watch.clear();
  }
  out["default_destination"] = destination;
  out["enable_torrent_nzb_watch"] = enable != 0;
  out["enable_delete_torrent_nzb_watch"] = remove != 0;
  out["torrent_nzb_watch_folder"] = watch;
  return true;
}

bool LocationHandler::ApplySettings() {
  constexpr auto kOpt = QRIX::APIRequest::PARAM_OPTIONAL;
  const auto destination = m_request->GetAndCheckString("default_destination", kOpt);
  const auto enable_param = m_request->GetAndCheckBool("enable_torrent_nzb_watch", kOpt);
  const auto remove_param = m_request->GetAndCheckBool("enable_delete_torrent_nzb_watch", kOpt);
  const auto folder_param = m_request->GetAndCheckString("torrent_nzb_watch_folder", kOpt);
  const std::string& user = m_request->GetLoginUserName();

  if (destination.IsSet()) {
    if (!CheckSharedPath(destination.Get(), user)) {
      return false;
    }
    if (DownloadUserShareSet(user.c_str(), destination.Get().c_str()) == -1) {
      QRIXDL_LOG_ERR(kSource, "Failed to set user share.");
      QRIXDLErrSet(kErrSetShare);
      return false;
    }
  }

  int enable = 0;
  int remove = 0;
  std::string folder;
  if (!GetWatchInfo(user, &enable, &remove, folder)) {
    enable = remove = 0;
    folder.clear();
  }
  if (!enable_param.IsSet() && !remove_param.IsSet() && !folder_param.IsSet()) {
    return true;
  }
  if (enable_param.IsSet()) {
    enable = enable_param.Get() ? 1 : 0;
  }
  if (remove_param.IsSet()) {
    remove = remove_param.Get() ? 1 : 0;
  }
  // A folder taken over from the stored row is not checked again.
  if (folder_param.IsSet()) {
    folder = folder_param.Get();
    if (!CheckSharedPath(folder, user)) {
      return false;
    }
    switch (DownloadCheckWatchfolder(user.c_str(), folder.c_str())) {
      case -1:
        QRIXDLErrSet(kErrFolderCheck);
        return false;
      case 0:
        QRIXDLErrSet(kErrFolderTaken);
        return false;
      default:
        break;
    }
  }
  if (DownloadUserWatchInfoSet(user.c_str(), enable, remove, folder.c_str()) == -1) {
    QRIXDL_LOG_ERR(kSource, "Failed to watch torrent/nzb folder.");
    QRIXDLErrSet(kErrSetWatch);
    return false;
  }
  m_response->SetCallbackFunc(QRIXDL::Callback::SchedulerSIGHUP, nullptr);
  return true;
}
