#include "module/handler/ftp_http_handler.h"

#include "module/common/api_callback.h"
#include "module/common/api_utils.h"
#include "module/dlcommon/download_info.h"

void FtpHttpHandler::Get() {
  Json::Value out;
  if (LoadSettings(out)) {
    m_response->SetSuccess(out);
  }
  ReportError();
}

void FtpHttpHandler::Set() {
  if (ApplySettings()) {
    m_response->SetSuccess(Json::Value());
  }
  ReportError();
}

bool FtpHttpHandler::LoadSettings(Json::Value& out) {
  DownloadInfo info;
  if (QRIXDLInfoGet(&info) < 0) {
    QRIXDLErrSet(506);
    return false;
  }
  out["enable_ftp_max_conn"] = info.ftpmax_enable != 0;
  out["ftp_max_conn"] = info.ftpmax;
  out["ftp_http_max_download_rate"] = info.http_dl_rate;
  return true;
}

bool FtpHttpHandler::ApplySettings() {
  QRIXDL::CommitQueue queue(m_request);
  queue.CheckAndAddBool("enable_ftp_max_conn", "download_ftpmax_enable",
                        QRIXDL::CommitQueue::YesOrNoVal);
  queue.CheckAndAdd("ftp_max_conn", "download_ftpmax");
  queue.CheckAndAdd("ftp_http_max_download_rate", "download_http_dl_rate");
  if (!queue.Flush()) {
    return false;
  }
  m_response->SetCallbackFunc(QRIXDL::Callback::SchedulerSIGHUP, nullptr);
  return true;
}
