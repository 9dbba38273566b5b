#include "platform/dlbase/download_schedule.h"

#include <cstring>

#include "platform/vlibc/vlibc_file.h"

namespace {

constexpr const char* kSettings = "/var/packages/Haulport/etc/settings.conf";
constexpr int kHoursPerDay = 24;

}  // namespace

namespace qrixdl {

bool ScheduleAllows(bool enabled, const std::string& schedule, const std::tm& when) {
  if (!enabled) {
    return true;
  }
  const size_t hour = static_cast<size_t>(when.tm_wday * kHoursPerDay + when.tm_hour);
  return hour < schedule.size() && schedule[hour] == '1';
}

}  // namespace qrixdl

bool IsInWhenToDownload() {
  char enable[8] = {};
  if (VLIBCFileGetKeyValue(kSettings, "download_schedule_enable", enable, sizeof enable, 0) <= 0 ||
      std::strcmp(enable, "yes") != 0) {
    return true;
  }
  char schedule[256] = {};
  // No schedule stored is the default one, every hour on.
  if (VLIBCFileGetKeyValue(kSettings, "download_schedule", schedule, sizeof schedule, 0) <= 0) {
    return true;
  }
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  return qrixdl::ScheduleAllows(true, schedule, local);
}
