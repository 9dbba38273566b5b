#include "module/handler/rss_handler.h"

#include <cstdint>
#include <cstdio>
#include <sstream>

#include "module/common/api_callback.h"
#include "module/common/api_utils.h"
#include "module/dlcommon/download_info.h"

namespace {

constexpr const char* kKey = "download_rss_update_interval";
constexpr int kDefaultSeconds = 86400;
// Feeds are never refreshed more often than this, whatever the file says.
constexpr int kFloorSeconds = 600;
constexpr int kBufSize = 256;

}  // namespace

void RssHandler::Get() {
  Json::Value out;
  if (LoadSettings(out)) {
    m_response->SetSuccess(out);
  }
  ReportError();
}

void RssHandler::Set() {
  QRIXDL::CommitQueue queue(m_request);
  const auto minutes =
      m_request->GetAndCheckInt("update_interval", QRIX::APIRequest::PARAM_REQUIRED);
  if (minutes.IsSet()) {
    // Wider arithmetic: an out-of-range request wraps like the device's int instead of being
    // undefined; the check table keeps real requests within a day.
    queue.Add(kKey, static_cast<int>(static_cast<int64_t>(minutes.Get()) * 60));
    if (queue.Flush()) {
      m_response->SetCallbackFunc(QRIXDL::Callback::SchedulerSIGHUP, nullptr);
      m_response->SetSuccess(Json::Value());
    }
  }
  ReportError();
}

bool RssHandler::LoadSettings(Json::Value& out) {
  char def[16];
  std::snprintf(def, sizeof def, "%d", kDefaultSeconds);
  char buf[kBufSize];
  SettingsGetKeyValue(kKey, def, buf, sizeof buf);
  std::istringstream text(buf);
  int seconds = 0;
  if (!(text >> seconds)) {
    seconds = kDefaultSeconds;
  }
  if (seconds < kFloorSeconds) {
    seconds = kFloorSeconds;
  }
  out["update_interval"] = seconds / 60;
  return true;
}
