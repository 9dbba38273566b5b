#include "platform/system/qrix_log.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

#include "platform/vlibc/unique_fd.h"

namespace {

struct EventText {
  unsigned int id;
  const char* format;  // up to three %s, filled with the event's arguments in order
};

constexpr EventText kEventTexts[] = {
    {0x13000004, "The temporary download folder was moved from %s to %s.%s"},
    {0x13000005, "The temporary download folder could not be moved from %s to %s.%s"},
};

int Severity(int level) {
  switch (level) {
    case QRIX_EVENT_INFO:
      return LOG_INFO;
    case QRIX_EVENT_WARN:
      return LOG_WARNING;
    default:
      return LOG_ERR;
  }
}

// syslog() speaks with the program's own tag; an event line carries the event log's.
int SendLine(int priority, const std::string& message) {
  const qrix::UniqueFd fd(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, "/dev/log");
  char stamp[32] = "";
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  if (::localtime_r(&now, &local) != nullptr) {
    std::strftime(stamp, sizeof stamp, "%b %e %T", &local);
  }
  char head[96];
  std::snprintf(head, sizeof head, "<%d>%s %s[%d]: ", priority, stamp, QRIX_EVENT_LOG_TAG,
                static_cast<int>(::getpid()));
  const std::string line = head + message;
  if (!fd.Valid() ||
      ::connect(fd.Get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      ::send(fd.Get(), line.data(), line.size(), 0) < 0) {
    return -1;
  }
  return 0;
}

}  // namespace

extern "C" int QRIXLogSet1(int type, int level, unsigned int event_id, const char* source,
                           const char* arg1, const char* arg2, const char* arg3) {
  const char* a1 = arg1 != nullptr ? arg1 : "";
  const char* a2 = arg2 != nullptr ? arg2 : "";
  const char* a3 = arg3 != nullptr ? arg3 : "";
  char text[1024];
  std::snprintf(text, sizeof text, "event 0x%08X: %s %s %s", event_id, a1, a2, a3);
  for (const EventText& e : kEventTexts) {
    if (e.id == event_id) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
      std::snprintf(text, sizeof text, e.format, a1, a2, a3);
#pragma GCC diagnostic pop
    }
  }
  char message[1200];
  std::snprintf(message, sizeof message, "[%s] (type %d) %s", source != nullptr ? source : "", type,
                text);
  return SendLine(LOG_USER | Severity(level), message);
}
