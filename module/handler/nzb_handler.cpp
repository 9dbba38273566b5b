#include "module/handler/nzb_handler.h"

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "module/common/api_callback.h"
#include "module/common/api_utils.h"
#include "module/common/module_log.h"
#include "module/dlcommon/download_info.h"
#include "platform/vlibc/vlibc_crypt.h"

namespace {

constexpr const char* kSource = "handler/nzb_handler";

}  // namespace

void NzbHandler::Get() {
  Json::Value out;
  if (LoadSettings(out)) {
    m_response->SetSuccess(out);
  }
  ReportError();
}

void NzbHandler::Set() {
  QRIXDL::CommitQueue queue(m_request);
  const auto password = m_request->GetAndCheckString("password", QRIX::APIRequest::PARAM_REQUIRED);
  queue.CheckAndAdd("server", "download_nzb_server");
  queue.CheckAndAdd("port", "download_nzb_port");
  queue.CheckAndAdd("conn_per_download", "download_nzb_numconn");
  queue.CheckAndAddBool("enable_encryption", "download_nzb_encryption",
                        QRIXDL::CommitQueue::YesOrNoVal);
  queue.CheckAndAdd("max_download_rate", "download_nzb_dl_rate");
  queue.CheckAndAddBool("enable_auth", "download_nzb_auth", QRIXDL::CommitQueue::YesOrNoVal);
  queue.CheckAndAdd("username", "download_nzb_user");

  bool encrypted = true;
  if (password.IsSet()) {
    // Exactly a Base64 text of the password and its terminator: the cipher keeps the length.
    const size_t size = (password.Get().size() + 2) / 3 * 4 + 1;
    std::vector<char> buf(size, '\0');
    encrypted =
        size <= static_cast<size_t>(INT_MAX) &&
        VLIBCCryptSzEncrypt(password.Get().c_str(), buf.data(), static_cast<int>(size)) != 0;
    if (encrypted) {
      queue.Add("download_nzb_password_en", std::string(buf.data()));
    } else {
      QRIXDL_LOG_ERR(kSource, "Failed to encrypt password");
    }
  }
  if (encrypted) {
    queue.CheckAndAddBool("enable_parchive", "download_nzb_enable_parchive",
                          QRIXDL::CommitQueue::YesOrNoVal);
    queue.CheckAndAddBool("enable_remove_parfiles", "download_nzb_enable_remove_parchive_files",
                          QRIXDL::CommitQueue::YesOrNoVal);
    if (queue.Flush()) {
      m_response->SetCallbackFunc(QRIXDL::Callback::SchedulerSIGHUP, nullptr);
      m_response->SetSuccess(Json::Value());
    }
  }
  ReportError();
}

bool NzbHandler::LoadSettings(Json::Value& out) {
  DownloadInfo info;
  if (QRIXDLInfoGet(&info) < 0) {
    QRIXDLErrSet(506);
    return false;
  }
  out["server"] = info.nzb_server;
  out["port"] = static_cast<int>(info.nzb_port);
  out["enable_encryption"] = std::strcmp(info.nzb_encryption, "yes") == 0;
  out["enable_auth"] = info.nzb_auth != 0;
  out["username"] = info.nzb_user;
  out["conn_per_download"] = info.nzb_numconn;
  out["max_download_rate"] = info.nzb_dl_rate;
  out["enable_parchive"] = info.nzb_enable_parchive != 0;
  out["enable_remove_parfiles"] = info.nzb_enable_remove_parchive_files != 0;
  return true;
}
