#include "module/handler/emule_handler.h"

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "module/common/api_callback.h"
#include "module/common/api_utils.h"
#include "module/common/module_log.h"
#include "module/dlcommon/download_info.h"
#include "module/setting.h"
#include "platform/dlbase/download_schedule.h"
#include "platform/dlbase/shared_folder.h"
#include "platform/system/qrix_service_port.h"

namespace {

constexpr const char* kSource = "handler/emule_handler";
constexpr int kDefaultTcpPort = 4662;
constexpr int kDefaultUdpPort = 4672;
constexpr int kShownMaxConn = 500;  // shown while the stored limit is 0 (none set)
constexpr int kKeyBufSize = 256;
constexpr int kPortBufSize = 8;

constexpr int kErrNoPermission = 403;
constexpr int kErrReadSettings = 506;
constexpr int kErrPortConflict = 517;
constexpr int kErrNotRunning = 1800;
constexpr int kErrShareDir = 1802;
constexpr int kErrInit = 1803;
constexpr int kErrDisabled = 1805;
constexpr int kErrPorts = 1806;

bool IsDefaultPortPair(int tcp, int udp) {
  return tcp == 0 || udp == 0 || (tcp == kDefaultTcpPort && udp == kDefaultUdpPort);
}

std::string ReadKey(const char* key, const char* def, int size = kKeyBufSize) {
  std::vector<char> buf(static_cast<size_t>(size));
  SettingsGetKeyValue(key, def, buf.data(), size);
  return buf.data();
}

}  // namespace

void EmuleHandler::Get() {
  Json::Value out;
  if (LoadSettings(out)) {
    m_response->SetSuccess(out);
  }
  ReportError();
}

void EmuleHandler::Set() {
  if (ValidateParams() && ApplySettings()) {
    m_response->SetSuccess(Json::Value());
  }
  ReportError();
}

bool EmuleHandler::LoadSettings(Json::Value& out) {
  // Asked first: while the daemon is stopped there is nothing to show.
  if (!IsAmuleDaemonRunning() || !IsAmuleCgidRunning()) {
    QRIXDLErrSet(kErrNotRunning);
    return false;
  }
  DownloadInfo info;
  if (QRIXDLInfoGet(&info) < 0) {
    QRIXDLErrSet(kErrReadSettings);
    return false;
  }
  out["enable_emule"] = info.enable_amule != 0;
  if (info.enable_amule == 0) {
    return true;
  }
  const bool default_ports = IsDefaultPortPair(info.amule_tcp_port, info.amule_udp_port);
  if (!m_request->IsAdmin()) {
    return true;
  }
  out["enable_server_update"] = info.amule_auto_update_server != 0;
  out["enable_server_auto_connect"] = info.amule_auto_connect != 0;
  out["enable_obfuscation"] = info.amule_enable_obfuscation != 0;
  out["enable_outgoing_obfuscation"] = info.amule_outgoing_obfuscation != 0;
  out["enable_obfuscation_only"] = info.amule_only_obfuscation != 0;
  out["port_type"] = default_ports ? "default_port" : "manual_port";
  out["tcp_port"] = default_ports ? kDefaultTcpPort : info.amule_tcp_port;
  out["udp_port"] = default_ports ? kDefaultUdpPort : info.amule_udp_port;
  out["max_conn"] = info.amule_max_conn == 0 ? kShownMaxConn : info.amule_max_conn;
  out["upload_rate"] = info.amule_ul_rate;
  out["download_rate"] = info.amule_dl_rate;
  out["enable_schedule"] = ReadKey("download_amule_schedule_enable", "no") == "yes";
  out["schedule"] = ReadKey("download_amule_schedule", gDefaultSchedule);
  out["schedule_upload_rate"] = std::atoi(ReadKey("download_amule_alt_ul_rate", "0").c_str());
  out["schedule_download_rate"] = std::atoi(ReadKey("download_amule_alt_dl_rate", "0").c_str());
  out["share_folders"] = Json::Value(Json::arrayValue);
  std::ifstream shared(QRIX_AMULE_SHAREDDIR);
  for (std::string line; std::getline(shared, line);) {
    out["share_folders"].append(line);
  }
  return true;
}

// The conflict check runs only for the "emule_" names, which a client sends when the user
// edited the ports, and only with both; the plain names are what gets written.
bool EmuleHandler::ValidateParams() {
  const auto tcp = m_request->GetAndCheckInt("emule_tcp_port", QRIX::APIRequest::PARAM_REQUIRED);
  const auto udp = m_request->GetAndCheckInt("emule_udp_port", QRIX::APIRequest::PARAM_REQUIRED);
  return !tcp.IsSet() || !udp.IsSet() || CheckEmulePorts(tcp.Get(), udp.Get());
}

bool EmuleHandler::CheckEmulePorts(int tcp, int udp) {
  const int dht_port = std::atoi(ReadKey("download_dhtport", "6881", kPortBufSize).c_str());
  const int current_tcp =
      std::atoi(ReadKey("download_amule_tcp_port", "4662", kPortBufSize).c_str());
  if (tcp != current_tcp && WebUtils::IsPortConflict("ed2k", tcp, tcp) != 0) {
    QRIXDLErrSet(kErrPortConflict);
    return false;
  }
  if (udp == dht_port) {
    QRIXDLErrSet(kErrPortConflict);
    return false;
  }
  return true;
}

bool EmuleHandler::ApplySettings() {
  constexpr auto kReq = QRIX::APIRequest::PARAM_REQUIRED;
  QRIXDL::CommitQueue queue(m_request);
  const auto port_type = m_request->GetAndCheckString("port_type", kReq);
  const auto share_folders = m_request->GetAndCheckUnitArray("share_folders", kReq);
  const auto tcp_port = m_request->GetAndCheckInt("tcp_port", kReq);
  const auto udp_port = m_request->GetAndCheckInt("udp_port", kReq);

  DownloadInfo info{};
  if (QRIXDLInfoGet(&info) < 0) {
    QRIXDL_LOG_ERR(kSource, "Failed to get DownloadInfo");
    QRIXDLErrSet(kErrReadSettings);
    return false;
  }
  if (info.enable_amule == 0) {
    QRIXDLErrSet(kErrDisabled);
    return false;
  }
  const std::string& user = m_request->GetLoginUserName();
  // Only what eMule's on/off is shows to other accounts: they change nothing here.
  if (!m_request->IsAdmin()) {
    return true;
  }

  // The flags go out as "1"/"0", the schedule switch alone as "yes"/"no": the daemon reads them
  // so.
  bool settings_changed = false;
  const auto stage_bool = [&](const char* param, const char* key,
                              QRIXDL::CommitQueue::BoolConverter converter = nullptr) {
    settings_changed |= queue.CheckAndAddBool(param, key, converter);
  };
  const auto stage = [&](const char* param, const char* key) {
    settings_changed |= queue.CheckAndAdd(param, key);
  };
  stage_bool("enable_server_update", "download_amule_auto_update_server");
  stage_bool("enable_server_auto_connect", "download_amule_auto_connect");
  stage("upload_rate", "download_amule_ul_rate");
  stage("download_rate", "download_amule_dl_rate");
  stage_bool("enable_obfuscation", "download_amule_enable_obfuscation");
  stage_bool("enable_outgoing_obfuscation", "download_amule_outgoing_obfuscation");
  stage_bool("enable_obfuscation_only", "download_amule_only_obfuscation");
  stage_bool("enable_schedule", "download_amule_schedule_enable", QRIXDL::CommitQueue::YesOrNoVal);
  stage("schedule", "download_amule_schedule");
  stage("schedule_download_rate", "download_amule_alt_dl_rate");
  stage("schedule_upload_rate", "download_amule_alt_ul_rate");
  stage("max_conn", "download_amule_max_conn");

  bool ports_changed = false;
  int new_tcp = kDefaultTcpPort;
  int new_udp = kDefaultUdpPort;
  if (port_type.IsSet()) {
    // A manual type without one of its ports keeps that port as it is in use now, rather than
    // writing a port 0 that no service can register.
    if (port_type.Get() == "manual_port") {
      const bool was_default = IsDefaultPortPair(info.amule_tcp_port, info.amule_udp_port);
      new_tcp = tcp_port.IsSet() ? tcp_port.Get()
                : was_default    ? kDefaultTcpPort
                                 : info.amule_tcp_port;
      new_udp = udp_port.IsSet() ? udp_port.Get()
                : was_default    ? kDefaultUdpPort
                                 : info.amule_udp_port;
    }
    if (new_tcp != info.amule_tcp_port || new_udp != info.amule_udp_port) {
      queue.Add("download_amule_tcp_port", new_tcp);
      queue.Add("download_amule_udp_port", new_udp);
      ports_changed = true;
    }
  }

  // Outside the download hours the daemon is paused and the folders are left for later.
  if (share_folders.IsSet() && IsInWhenToDownload()) {
    std::vector<std::string> folders;
    for (const Json::Value& element : share_folders.Get()) {
      const std::string path = element.asString();
      if (!QRIXDownloadCheckShareFolder(path.c_str(), user.c_str(), nullptr, 0)) {
        QRIXDLErrSet(kErrNoPermission);
        return false;
      }
      folders.push_back(path);
    }
    if (!m_amule.IsInited() && !m_amule.OnInit()) {
      QRIXDL_LOG_ERR(kSource, "Failed to init amule");
      QRIXDLErrSet(kErrInit);
      return false;
    }
    if (!m_amule.AmuleShareDirSet(folders)) {
      QRIXDL_LOG_ERR(kSource, "Failed to set shareddir.dat");
      QRIXDLErrSet(kErrShareDir);
      return false;
    }
  }

  if (!queue.Flush()) {
    return false;
  }
  if (settings_changed) {
    m_response->SetCallbackFunc(QRIXDL::Callback::SchedulerSIGHUP, nullptr);
  }
  if (ports_changed) {
    // The settings file is written by now and keeps the new ports if this fails.
    if (SetEmuleServicePorts(new_tcp, new_udp) < 0) {
      QRIXDL_LOG_ERR(kSource, "Failed to apply port setting.");
      QRIXDLErrSet(kErrPorts);
      return false;
    }
    m_response->SetCallbackFunc(QRIXDL::Callback::ReloadFirewall, nullptr);
    m_response->SetCallbackFunc(QRIXDL::Callback::SchedulerSIGUSR2, nullptr);
  }
  return true;
}

int EmuleHandler::SetEmuleServicePorts(int tcp, int udp) {
  if (QRIXDL::SetDownloadServicePort("emule_tcp", QRIX_PORT_TCP, tcp) < 0) {
    return -1;
  }
  return QRIXDL::SetDownloadServicePort("emule_udp", QRIX_PORT_UDP, udp);
}
