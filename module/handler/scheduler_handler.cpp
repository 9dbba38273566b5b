#include "module/handler/scheduler_handler.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "module/common/api_callback.h"
#include "module/common/api_utils.h"
#include "module/common/module_log.h"
#include "module/dlcommon/download_info.h"
#include "module/setting.h"

namespace {

constexpr const char* kSource = "handler/scheduler_handler";
constexpr int kBufSize = 256;
constexpr int kLineSize = 512;

using File = std::unique_ptr<FILE, int (*)(FILE*)>;

// The limit on concurrent tasks the machine's memory allows (MemTotal in kB).
int TasksLimitFor(unsigned long long mem_total_kb) {
  if (mem_total_kb > 1000000ULL) {
    return 80;
  }
  if (mem_total_kb > 500000ULL) {
    return 50;
  }
  if (mem_total_kb > 240000ULL) {
    return 30;
  }
  return 20;
}

}  // namespace

void SchedulerHandler::Get() {
  Json::Value out;
  if (LoadSettings(out)) {
    m_response->SetSuccess(out);
  }
  ReportError();
}

void SchedulerHandler::Set() {
  QRIXDL::CommitQueue queue(m_request);
  queue.CheckAndAddBool("enable_schedule", "download_schedule_enable",
                        QRIXDL::CommitQueue::YesOrNoVal);
  queue.CheckAndAdd("schedule", "download_schedule");
  queue.CheckAndAdd("download_rate", "download_alt_dl_rate");
  queue.CheckAndAdd("upload_rate", "download_alt_ul_rate");
  queue.CheckAndAdd("order", "download_order");
  queue.CheckAndAdd("max_tasks", "download_maxtasks");
  if (queue.Flush()) {
    m_response->SetCallbackFunc(QRIXDL::Callback::SchedulerSIGHUP, nullptr);
    m_response->SetSuccess(Json::Value());
  }
  ReportError();
}

bool SchedulerHandler::LoadSettings(Json::Value& out) {
  DownloadInfo info;
  if (QRIXDLInfoGet(&info) < 0) {
    QRIXDLErrSet(506);
    return false;
  }
  char buf[kBufSize];
  SettingsGetKeyValue("download_schedule_enable", "no", buf, sizeof buf);
  out["enable_schedule"] = std::strcmp(buf, "yes") == 0;
  SettingsGetKeyValue("download_schedule", gDefaultSchedule, buf, sizeof buf);
  out["schedule"] = buf;
  SettingsGetKeyValue("download_alt_ul_rate", "0", buf, sizeof buf);
  out["upload_rate"] = std::atoi(buf);
  SettingsGetKeyValue("download_alt_dl_rate", "0", buf, sizeof buf);
  out["download_rate"] = std::atoi(buf);
  out["order"] = info.order != 0 ? "user" : "request";
  out["max_tasks"] = info.maxtasks;

  // The limit is advisory: without the memory size the answer simply goes without it.
  char path[kLineSize];
  std::snprintf(path, sizeof path, "%s", "/proc/meminfo");
  const File meminfo(std::fopen(path, "r"), std::fclose);
  if (!meminfo) {
    QRIXDL_LOG_ERR(kSource, "Cannot open /proc/meminfo");
    return true;
  }
  char line[kLineSize];
  unsigned long long mem_total = 0;
  bool found = false;
  while (!found && std::fgets(line, sizeof line, meminfo.get()) != nullptr) {
    found = std::sscanf(line, "MemTotal:%llu", &mem_total) == 1;
  }
  if (!found) {
    QRIXDL_LOG_ERR(kSource, "Cannot get MemTotal value.");
    return true;
  }
  out["max_tasks_limit"] = TasksLimitFor(mem_total);
  return true;
}
