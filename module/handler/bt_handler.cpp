#include "module/handler/bt_handler.h"

#include <cstdlib>

#include "module/common/api_callback.h"
#include "module/common/api_utils.h"
#include "module/common/module_log.h"
#include "module/dlcommon/download_info.h"
#include "platform/system/qrix_service_port.h"

namespace {

constexpr const char* kSource = "handler/bt_handler";
constexpr int kReadBufSize = 256;

// The stored value of `key` read as a number, `def` when missing.
int ReadIntKey(const char* key, const char* def) {
  char buf[kReadBufSize];
  SettingsGetKeyValue(key, def, buf, sizeof buf);
  return std::atoi(buf);
}

}  // namespace

void BtHandler::Get() {
  Json::Value out;
  if (LoadSettings(out)) {
    m_response->SetSuccess(out);
  }
  ReportError();
}

void BtHandler::Set() {
  if (ValidateParams()) {
    if (ApplySettings()) {
      m_response->SetSuccess(Json::Value());
    } else {
      QRIXDL_LOG_ERR(kSource, "Failed to apply download service data");
    }
  }
  ReportError();
}

bool BtHandler::LoadSettings(Json::Value& out) {
  DownloadInfo info;
  if (QRIXDLInfoGet(&info) < 0) {
    QRIXDLErrSet(506);
    return false;
  }
  out["tcp_port"] = info.start_port;
  out["max_upload_rate"] = info.ul_rate;
  out["max_download_rate"] = info.dl_rate;
  out["seeding_ratio"] = info.seeding_ratio;
  out["seeding_interval"] = info.seeding_interval;
  out["enable_seeding_auto_remove"] = info.seeding_auto_remove != 0;
  out["enable_dht"] = info.enable_dht != 0;
  out["dht_port"] = info.dhtport;
  out["max_peer"] = info.btmaxpeers;
  out["enable_port_forwarding"] = info.enable_bt_port_forwarding != 0;
  out["enable_preview"] = info.enable_bt_preview != 0;
  out["encrypt"] = info.btencrypt == 0 ? "disable" : info.btencrypt == 2 ? "always" : "auto";
  return true;
}

// The conflict checks run only for the "bt_" names, which a client sends when the user edited
// the ports; the plain names below are what gets written.
bool BtHandler::ValidateParams() {
  const auto tcp = m_request->GetAndCheckInt("bt_tcp_port", QRIX::APIRequest::PARAM_REQUIRED);
  const auto dht = m_request->GetAndCheckInt("bt_dht_port", QRIX::APIRequest::PARAM_REQUIRED);
  if (tcp.IsSet()) {
    const int current = ReadIntKey("download_start_port", "16881");
    if (tcp.Get() != current && WebUtils::IsPortConflict("bt", tcp.Get(), tcp.Get()) != 0) {
      QRIXDLErrSet(517);
      return false;
    }
  }
  if (dht.IsSet() && dht.Get() == ReadIntKey("download_amule_udp_port", "4672")) {
    QRIXDLErrSet(517);
    return false;
  }
  return true;
}

bool BtHandler::ApplySettings() {
  const auto tcp_port = m_request->GetAndCheckInt("tcp_port", QRIX::APIRequest::PARAM_REQUIRED);
  const auto enable_dht =
      m_request->GetAndCheckBool("enable_dht", QRIX::APIRequest::PARAM_REQUIRED);
  const auto dht_port = m_request->GetAndCheckInt("dht_port", QRIX::APIRequest::PARAM_REQUIRED);
  QRIXDL::CommitQueue queue(m_request);

  DownloadInfo info{};
  if (QRIXDLInfoGet(&info) < 0) {
    QRIXDL_LOG_ERR(kSource, "Failed to get DownloadInfo");
    QRIXDLErrSet(506);
    return false;
  }
  queue.CheckAndAdd("max_upload_rate", "download_ul_rate");
  queue.CheckAndAdd("max_download_rate", "download_dl_rate");
  const bool tcp_changed = tcp_port.IsSet() && tcp_port.Get() != info.start_port;
  if (tcp_changed) {
    queue.Add("download_start_port", tcp_port.Get());
  }
  const bool dht_changed = dht_port.IsSet() && dht_port.Get() != info.dhtport;
  if (dht_changed) {
    queue.Add("download_dhtport", dht_port.Get());
  }
  queue.CheckAndAddBool("enable_dht", "download_enable_dht", QRIXDL::CommitQueue::YesOrNoVal);
  // The scheduler restarts DHT when it is switched, or when it runs and its port moved.
  const bool dht_switched = enable_dht.IsSet() && enable_dht.Get() != (info.enable_dht != 0);
  const bool dht_restart = dht_switched || (info.enable_dht != 0 && dht_changed);
  queue.CheckAndAddBool("enable_port_forwarding", "download_enable_bt_port_forwarding",
                        QRIXDL::CommitQueue::YesOrNoVal);
  queue.CheckAndAddBool("enable_preview", "download_enable_bt_preview",
                        QRIXDL::CommitQueue::YesOrNoVal);
  queue.CheckAndAdd("max_peer", "download_btmaxpeers");
  queue.CheckAndAdd("encrypt", "download_btencrypt");
  queue.CheckAndAdd("seeding_interval", "download_seeding_interval");
  queue.CheckAndAdd("seeding_ratio", "download_seeding_ratio");
  queue.CheckAndAddBool("enable_seeding_auto_remove", "download_seeding_auto_remove",
                        QRIXDL::CommitQueue::YesOrNoVal);
  if (!queue.Flush()) {
    return false;
  }

  // The settings file is written by now and stays so if a registration fails.
  if (tcp_changed && SetTcpServicePort(tcp_port.Get()) < 0) {
    QRIXDLErrSet(1209);
    return false;
  }
  if (dht_changed && SetDhtServicePort(dht_port.Get()) < 0) {
    QRIXDLErrSet(1209);
    return false;
  }
  m_response->SetCallbackFunc(QRIXDL::Callback::SchedulerSIGHUP, nullptr);
  if (tcp_changed || dht_changed) {
    m_response->SetCallbackFunc(QRIXDL::Callback::ReloadFirewall, nullptr);
  }
  if (dht_restart) {
    m_response->SetCallbackFunc(QRIXDL::Callback::SchedulerSIGCONT, nullptr);
  }
  return true;
}

int BtHandler::SetTcpServicePort(int port) {
  return QRIXDL::SetDownloadServicePort("bt", QRIX_PORT_TCP, port);
}

int BtHandler::SetDhtServicePort(int port) {
  return QRIXDL::SetDownloadServicePort("bt_dht", QRIX_PORT_UDP, port);
}
