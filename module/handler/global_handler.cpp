// Log lines carry "handler/global_handler" and the line numbers the package's support tools
// know them by, whatever line of this file writes them.
#include "module/handler/global_handler.h"

#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "module/common/api_callback.h"
#include "module/common/api_utils.h"
#include "module/dlcommon/amule_conf_set.h"
#include "module/dlcommon/download_info.h"
#include "module/dlcommon/file.h"
#include "platform/system/localized_strings.h"
#include "platform/system/qrix_log.h"
#include "platform/system/qrix_service.h"
#include "platform/task/kos_task.h"
#include "platform/vlibc/process_runner.h"
#include "platform/vlibc/regex.h"
#include "platform/vlibc/vlibc_error.h"
#include "platform/vlibc/vlibc_exec.h"
#include "platform/vlibc/vlibc_proc.h"
#include "platform/volume/file_copy.h"
#include "platform/volume/storage_volume.h"

#define GLOBAL_LOG(line, fmt, ...) \
  syslog(LOG_ERR, "%s:%d " fmt, kSource, line __VA_OPT__(, ) __VA_ARGS__)

namespace {

using QRIX::KRS::STORAGE_WEBUTILS::Volume;

constexpr const char* kSource = "handler/global_handler";
// Read by nothing here; the package's notifier lives at this path.
[[maybe_unused]] const std::string kNotifyTool = "/usr/qrix/bin/qrixkosnotify";

constexpr int kPathSize = 4096;
constexpr int kAllVolumes = Volume::kInternal | Volume::kUsb | Volume::kSata;  // 13
constexpr const char* kXunleiPlugin = "orvane";
constexpr const char* kXunleiPluginMgr =
    "/var/packages/Haulport/target/xunleiplugin/xunleipluginmgr.php";
constexpr const char* kOpenBasedir =
    "open_basedir=/var/packages/Haulport/target/xunleiplugin/"
    ":/var/packages/Haulport/target/xunleiplugin/orvane"
    ":/var/packages/Haulport/etc/download/"
    ":/tmp:/var/packages/Haulport/target/hostscript:/var/packages/Haulport/etc/download"
    ":/mnt/source/Haulport/xunleiplugin/"
    ":/mnt/source/orvane-xunlei-lixian-0.x/";
constexpr const char* kServiceScript = "/var/packages/Haulport/target/scripts/S25download.sh";
constexpr const char* kTaskOwner = "@system";
constexpr const char* kTaskName = "haulport";
constexpr const char* kEventSource = "Download Service";
constexpr unsigned int kEventMoved = 0x13000004;
constexpr unsigned int kEventMoveFailed = 0x13000005;
constexpr int kEventType = 2;

QRIXUtils::ProcessRunner MakeXunleiPluginRunner() {
  QRIXUtils::ProcessRunner runner("/usr/bin/php", "/usr/bin/php");
  runner.addArguments("-d", "display_errors=Off", "-d", kOpenBasedir, kXunleiPluginMgr);
  return runner;
}

bool GetXunleiAccount(Json::Value& out, const std::string& plugin) {
  QRIXUtils::ProcessRunner runner = MakeXunleiPluginRunner();
  runner.addArguments("--plugin", plugin, "--getAccountInfo");
  if (runner.run(true, true) != 0) {
    GLOBAL_LOG(238, "Failed to run search command");
    QRIXDLErrSet(516);
    return false;
  }
  const std::string& output = runner.getCapturedOutput();
  if (output.find_first_not_of(" \t\r\n") == std::string::npos) {
    out["xunlei_username"] = "";
    out["xunlei_password"] = "";
    return true;
  }
  Json::Value root;
  if (!Json::Reader().parse(output, root, true) || !root.isObject()) {
    GLOBAL_LOG(250, "Failed to parse strResult");
    QRIXDLErrSet(502);
    return false;
  }
  const auto text = [&root](const char* key) {
    const Json::Value& value = root[key];
    return value.isString() ? value.asString() : std::string();
  };
  out["xunlei_username"] = text("username");
  out["xunlei_password"] = text("password");
  return true;
}

bool SetXunleiAccount(std::string& username, std::string& password, const std::string& plugin) {
  Json::Value stored;
  GetXunleiAccount(stored, kXunleiPlugin);  // unreadable: nothing stored
  const std::string stored_user = stored["xunlei_username"].asString();
  const std::string stored_password = stored["xunlei_password"].asString();
  if (username.empty()) {
    username = stored_user;
  }
  if (password.empty()) {
    password = stored_password;
  }
  if (username == stored_user && password == stored_password) {
    return true;
  }
  QRIXUtils::ProcessRunner store = MakeXunleiPluginRunner();
  store.addArguments("--plugin", plugin, "--setAccountInfo", "--account", username, "--password",
                     password);
  if (store.run(true, false) != 0) {
    GLOBAL_LOG(295, "Failed to run search command");
    QRIXDLErrSet(516);
    return false;
  }
  QRIXUtils::ProcessRunner check = MakeXunleiPluginRunner();
  check.addArguments("--plugin", plugin, "--account", username, "--password", password,
                     "--verifyAccount");
  if (check.run(true, false) != 0) {
    GLOBAL_LOG(309, "Failed to run search command");
    QRIXDLErrSet(516);
    return false;
  }
  return true;
}

std::string GetUsbShareName(const std::string& path) {
  static const qrix::Regex kUsbShare(R"(^\/volumeUSB\d+\/(usbshare.*?)\/)");
  std::string share;
  return kUsbShare.PartialMatch(path, &share) ? share : std::string();
}

// "<volume>/@download" into `out`; false when it does not fit.
bool TmpDirOf(const char* volume, char (&out)[kPathSize]) {
  const int n = std::snprintf(out, sizeof out, "%s/@download", volume);
  return n >= 0 && n < kPathSize;
}

int MoveTmpDownloadDir(const char* fromVolume, const char* toVolume) {
  if (toVolume == nullptr || toVolume[0] == '\0') {
    GLOBAL_LOG(529, "Bad parameters");
    return -1;
  }
  char to[kPathSize];
  if (!TmpDirOf(toVolume, to)) {
    return -1;
  }
  if (fromVolume != nullptr && fromVolume[0] != '\0') {
    char from[kPathSize];
    const QRIX_COPY_OPTIONS keep_all = {1, 1, 1, 1, {}};
    if (!TmpDirOf(fromVolume, from) || QRIXFileCopyDirectory(from, to, &keep_all) != 0) {
      GLOBAL_LOG(550, "Failed to move temporary directory to %s", toVolume);
      return -1;
    }
  }
  if (::unlink(QRIXDL_TMP_DOWNLOAD_LINK) != 0) {
    GLOBAL_LOG(556, "Failed to remove origial link to temporary directory [%s]",
               std::strerror(errno));
  }
  if (::mkdir(to, 0755) != 0 && errno != EEXIST) {
    GLOBAL_LOG(559, "Failed to create temporary directory %s", to);
  }
  if (::symlink(to, QRIXDL_TMP_DOWNLOAD_LINK) != 0) {
    GLOBAL_LOG(562, "Failed to create soft link for temporary directory [%s]",
               std::strerror(errno));
    return -1;
  }
  return 0;
}

// Stops the download service, moves its temporary directory, starts it again and tells the
// event log. The service restarts even after a failed copy: it goes on with the old directory.
bool ChangeVolume(const char* fromVolume, const char* toVolume) {
  if (VLIBCExec(kServiceScript, "stop", nullptr, nullptr, nullptr) < 0) {
    GLOBAL_LOG(413, "Failed to stop download service");
    QRIXDLErrSet(1002);
    return false;
  }
  bool moved = true;
  bool no_space = false;
  if (MoveTmpDownloadDir(fromVolume, toVolume) < 0) {
    GLOBAL_LOG(420, "Failed to change temporary dir from %s to %s", fromVolume, toVolume);
    moved = false;
    no_space = VLIBCErrGet() == ERR_NO_SPACE;
  }
  if (VLIBCExec(kServiceScript, "start", nullptr, nullptr, nullptr) < 0) {
    GLOBAL_LOG(433, "Failed to start download service");
    QRIXDLErrSet(1003);
    return false;
  }
  const std::string from = Volume::ToUIVolumeStr(fromVolume);
  const std::string to = Volume::ToUIVolumeStr(toVolume);
  if (!moved) {
    QRIXLogSet1(kEventType, QRIX_EVENT_ERR, kEventMoveFailed, kEventSource, from.c_str(),
                to.c_str(), "");
    if (no_space) {
      GLOBAL_LOG(445, "error_no_enough_space");
      QRIXDLErrSet(1006);
    } else {
      GLOBAL_LOG(448, "error_service_datamove_failed");
      QRIXDLErrSet(1005);
    }
    return false;
  }
  QRIXLogSet1(kEventType, QRIX_EVENT_INFO, kEventMoved, kEventSource, from.c_str(), to.c_str(), "");
  return true;
}

}  // namespace

void GlobalHandler::Get() {
  Json::Value payload;
  if (LoadSettings(payload)) {
    m_response->SetSuccess(payload);
  }
  ReportError();
}

void GlobalHandler::Set() {
  Json::Value payload;
  if (ApplySettings(payload)) {
    m_response->SetSuccess(payload);
  }
  ReportError();
}

bool GlobalHandler::LoadSettings(Json::Value& payload) {
  const Volume lister(kAllVolumes);
  char path[kPathSize] = {};
  Json::Value account;
  DownloadInfo info;
  if (QRIXDLInfoGet(&info) < 0) {
    QRIXDLErrSet(506);
    return false;
  }
  payload["enable_unzip_service"] = info.enable_autoUnzip != 0;
  payload["enable_xunlei"] = info.enable_xunlei != 0;
  payload["enable_emule"] = info.enable_amule != 0;
  if (!GetXunleiAccount(account, kXunleiPlugin)) {
    return false;
  }
  payload["xunlei_username"] = account["xunlei_username"];
  lister.VolumeListGet(payload, false);
  if (GetTmpDownloadDirVol(path, sizeof path) < 0) {
    // The directory is on a volume that cannot be used: show where it is, as crashed.
    GetTmpDownloadDirRealPath(path, sizeof path);
    const std::string share = GetUsbShareName(path);
    const StringBundle texts("volume", m_request->GetUILanguage());
    Json::Value entry(Json::objectValue);
    entry["display"] =
        (share.empty() ? "" : share + " ") + "(" + texts.Text("volume_status_crashed", "") + ")";
    entry["mount_point"] = path;
    payload["volume_count"] = payload["volume_count"].asInt() + 1;
    payload["volume_list"].append(entry);
  }
  payload["download_volume"] = 0;
  if (path[0] != '\0') {
    payload["download_volume"] = path;
  }
  return true;
}

bool GlobalHandler::SetSettings(bool moveVolume) {
  QRIXDL::CommitQueue queue(m_request);
  constexpr auto kOptional = QRIX::APIRequest::PARAM_OPTIONAL;
  const auto enable_emule = m_request->GetAndCheckBool("enable_emule", kOptional);
  const auto enable_xunlei = m_request->GetAndCheckBool("enable_xunlei", kOptional);
  const auto username = m_request->GetAndCheckString("xunlei_username", kOptional);
  const auto password = m_request->GetAndCheckString("xunlei_password", kOptional);
  const auto volume = m_request->GetAndCheckString("download_volume", kOptional);

  DownloadInfo info{};
  if (QRIXDLInfoGet(&info) < 0) {
    GLOBAL_LOG(340, "Failed to get DownloadInfo");
    QRIXDLErrSet(506);
    return false;
  }
  queue.CheckAndAddBool("enable_emule", "download_enable_amule", QRIXDL::CommitQueue::YesOrNoVal);
  queue.CheckAndAddBool("enable_unzip_service", "download_enable_autoUnzip",
                        QRIXDL::CommitQueue::YesOrNoVal);
  queue.CheckAndAddBool("enable_xunlei", "download_enable_xunlei", QRIXDL::CommitQueue::YesOrNoVal);
  if ((enable_xunlei.IsSet() && enable_xunlei.Get()) || username.IsSet() || password.IsSet()) {
    std::string user = username.Get();
    std::string secret = password.Get();
    if (!SetXunleiAccount(user, secret, kXunleiPlugin)) {
      QRIXDLErrSet(1000);
      return false;
    }
  }
  if (queue.Empty() && !moveVolume) {
    return true;
  }
  if (!queue.Flush()) {
    return false;
  }
  char current[kPathSize] = {};
  if (GetTmpDownloadDirVol(current, sizeof current) < 0) {
    GLOBAL_LOG(371, "Failed to get current volume path");
    current[0] = '\0';
  }
  if (moveVolume && !ChangeVolume(current, volume.Get().c_str())) {
    return false;
  }
  const bool emule_on = enable_emule.IsSet() && enable_emule.Get();
  if (moveVolume || (info.enable_amule == 0 && emule_on)) {
    const char* target = moveVolume ? volume.Get().c_str() : current;
    if (QRIXDLAmuleVolumeSet(target) == -1) {
      GLOBAL_LOG(391, "Failed to set download tmp to volume %s", target);
      QRIXDLErrSet(1004);
      return false;
    }
  }
  if (enable_emule.IsSet() && enable_emule.Get() != (info.enable_amule == 1)) {
    m_response->SetCallbackFunc(QRIXDL::Callback::SchedulerSIGHUP, nullptr);
  }
  return true;
}

bool GlobalHandler::ApplySettings(Json::Value& payload) {
  const auto volume =
      m_request->GetAndCheckString("download_volume", QRIX::APIRequest::PARAM_OPTIONAL);
  if (VLIBServiceIsRunning("pgsql") == 0) {
    GLOBAL_LOG(164, "pgsql is not running");
    QRIXDLErrSet(1001);
    return false;
  }
  bool move = false;
  if (volume.IsSet()) {
    char current[kPathSize] = {};
    if (GetTmpDownloadDirVol(current, sizeof current) < 0) {
      GLOBAL_LOG(171, "Failed to get current volume path");
      current[0] = '\0';
    }
    move = volume.Get() != current;
  }
  if (!move) {
    const bool ok = SetSettings(false);
    if (!ok) {
      GLOBAL_LOG(215, "Failed to apply download service data");
    }
    return ok;
  }
  KOS::Task task(kTaskOwner, kTaskName);
  const int pid = VLIBCProcForkChildNoWait();
  if (pid < 0) {
    task.remove();
    GLOBAL_LOG(189, "Failed to fork().");
    QRIXDLErrSet(503);
    return false;
  }
  if (pid == 0) {
    // The move: the whole request is applied here, switches and account first. The child ends
    // with _exit: what it inherited (the host's connection, a database link) is the worker's.
    const bool ok = SetSettings(true);
    if (!ok) {
      GLOBAL_LOG(201, "Failed to apply download service data");
    }
    // Only "success" or "fail" is kept: why a move failed is told by the logs, not the answer.
    if (!task.setProperty("result", ok ? "success" : "fail")) {
      GLOBAL_LOG(206, "Failed to write progress.");
    }
    task.finish(false);
    ::_exit(0);
  }
  payload["running"] = 1;
  payload["progress"] = "START";
  return true;
}

void GlobalHandler::ReadProgress() {
  Json::Value payload(Json::objectValue);
  const std::unique_ptr<KOS::Task> task = KOS::TaskMgr(kTaskOwner).getTask(kTaskName);
  if (task == nullptr) {
    payload["running"] = -1;
  } else if (task->isFinished()) {
    // Whoever removes the record reports the result; a poll racing it in another worker
    // finds none, so the result is told exactly once.
    if (task->remove()) {
      payload["running"] = 0;
      payload["result"] = task->getStringProperty("result", "fail");
    } else {
      payload["running"] = -1;
    }
  } else {
    payload["running"] = 1;
  }
  m_response->SetSuccess(payload);
  ReportError();
}

Json::Value GlobalHandler::VolumeDisplayStatusToString(int status, bool localized) {
  QRIX::KRS::LocalizedStringParser texts;
  texts.ParseTexts(StringBundle::kTexts + m_request->GetUILanguage());
  struct Row {
    int status;
    const char* key;
    const char* word;
  };
  static constexpr Row kRows[] = {
      {0, "volume_novolume", "no_volume"},
      {3, "volume_status_crashed", "crashed"},
      {4, "volume_expand_progress", "expanding"},
  };
  for (const Row& row : kRows) {
    if (row.status == status) {
      return localized ? texts.GetText("service", row.key) : row.word;
    }
  }
  return "";
}
