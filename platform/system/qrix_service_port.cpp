#include "platform/system/qrix_service_port.h"

#include <dirent.h>
#include <syslog.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/system/qrix_paths.h"
#include "platform/vlibc/atomic_file.h"
#include "platform/vlibc/dir_lock.h"
#include "platform/vlibc/ini_text.h"
#include "platform/vlibc/vlibc_error.h"

namespace {

constexpr const char* kSuffix = ".conf";

struct PortRange {
  int first;
  int last;
};

bool IsServiceName(const char* name) {
  if (name == nullptr || name[0] == '\0' || name[0] == '.' || std::strlen(name) > 64) {
    return false;
  }
  for (const char* p = name; *p != '\0'; ++p) {
    const char c = *p;
    const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                    c == '_' || c == '-' || c == '.';
    if (!ok) {
      return false;
    }
  }
  return true;
}

bool IsValidRecord(const QRIXSERVICEPORT& r) {
  const bool protocol_ok = r.protocol == QRIX_PORT_TCP || r.protocol == QRIX_PORT_UDP ||
                           r.protocol == (QRIX_PORT_TCP | QRIX_PORT_UDP);
  const bool range_ok = r.port >= 1 && r.port <= 65535 &&
                        (r.port_end == 0 || (r.port_end >= r.port && r.port_end <= 65535));
  return r.version == QRIX_SERVICE_PORT_V1 && r.flags == 0 && r.reserved == 0 && protocol_ok &&
         range_ok;
}

std::string ProtocolText(int protocol) {
  switch (protocol) {
    case QRIX_PORT_TCP:
      return "tcp";
    case QRIX_PORT_UDP:
      return "udp";
    default:
      return "tcp,udp";
  }
}

std::string PortText(const QRIXSERVICEPORT& r) {
  std::string text = std::to_string(r.port);
  if (r.port_end != 0 && r.port_end != r.port) {
    text += "-" + std::to_string(r.port_end);
  }
  return text;
}

std::optional<int> ParsePort(std::string_view text) {
  int value = 0;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (ec != std::errc() || end != text.data() + text.size() || value < 1 || value > 65535) {
    return std::nullopt;
  }
  return value;
}

// "N" or "N-M" with N <= M.
std::optional<PortRange> ParseRange(std::string_view text) {
  const size_t dash = text.find('-');
  const std::optional<int> first = ParsePort(text.substr(0, dash));
  const std::optional<int> last =
      dash == std::string_view::npos ? first : ParsePort(text.substr(dash + 1));
  if (!first || !last || *last < *first) {
    return std::nullopt;
  }
  return PortRange{*first, *last};
}

bool BelongsTo(std::string_view section, std::string_view service) {
  return !service.empty() && section.starts_with(service) &&
         (section.size() == service.size() || section[service.size()] == '_');
}

// The service files of the directory, as paths.
std::vector<std::string> ServiceFiles() {
  std::vector<std::string> files;
  const std::unique_ptr<DIR, int (*)(DIR*)> dir(::opendir(QRIX_SERVICE_CONF_DIR), ::closedir);
  if (!dir) {
    return files;
  }
  while (const dirent* entry = ::readdir(dir.get())) {
    const std::string_view name(entry->d_name);
    // Hidden names are the temporaries of writers.
    if (!name.starts_with(".") && name.size() > std::strlen(kSuffix) && name.ends_with(kSuffix)) {
      files.push_back(std::string(QRIX_SERVICE_CONF_DIR) + "/" + std::string(name));
    }
  }
  return files;
}

}  // namespace

extern "C" int QRIXServiceConfSectionPortSet(int op, const char* service, const char* section,
                                             const QRIXSERVICEPORT* record) {
  if (op != QRIX_SERVICE_CONF_SET || !IsServiceName(service) || section == nullptr ||
      !qrix::ini::IsStorableSectionName(section) || record == nullptr || !IsValidRecord(*record)) {
    VLIBCErrSet(ERR_BAD_PARAMETERS);
    return -1;
  }
  if (const int err = qrix::MakeDirectories(QRIX_SERVICE_CONF_DIR)) {
    syslog(LOG_ERR, "cannot create %s: %s", QRIX_SERVICE_CONF_DIR, std::strerror(err));
    VLIBCErrSet(ERR_FILE_OPEN);
    return -1;
  }
  const qrix::DirectoryLock lock(QRIX_SERVICE_CONF_DIR);
  if (!lock.Held()) {
    syslog(LOG_ERR, "cannot lock %s: %s", QRIX_SERVICE_CONF_DIR, std::strerror(errno));
    VLIBCErrSet(ERR_FILE_OPEN);
    return -1;
  }
  const std::string path = std::string(QRIX_SERVICE_CONF_DIR) + "/" + service + kSuffix;
  qrix::RemoveStaleTemporaries(path);
  std::string text;
  if (const int err = qrix::ReadFile(path, &text); err != 0 && err != ENOENT) {
    syslog(LOG_ERR, "cannot read %s: %s", path.c_str(), std::strerror(err));
    VLIBCErrSet(ERR_FILE_READ);
    return -1;
  }
  const std::vector<qrix::ini::Entry> entries = {{"protocol", ProtocolText(record->protocol)},
                                                 {"port", PortText(*record)}};
  if (!qrix::ini::ReplaceSection(&text, section, entries)) {
    VLIBCErrSet(ERR_BAD_PARAMETERS);
    return -1;
  }
  if (const int err = qrix::PublishFile(path, text, 0644)) {
    syslog(LOG_ERR, "cannot publish %s: %s", path.c_str(), std::strerror(err));
    VLIBCErrSet(ERR_FILE_WRITE);
    return -1;
  }
  return 0;
}

namespace WebUtils {

int IsPortConflict(const std::string& service, int first, int last) {
  if (first > last) {
    std::swap(first, last);
  }
  for (const std::string& path : ServiceFiles()) {
    std::string text;
    if (qrix::ReadFile(path, &text) != 0) {
      continue;
    }
    for (const qrix::ini::Section& section : qrix::ini::ParseSections(text)) {
      if (BelongsTo(section.name, service)) {
        continue;
      }
      const std::string* port = section.Find("port");
      const std::optional<PortRange> range = port ? ParseRange(*port) : std::nullopt;
      if (range && range->first <= last && first <= range->last) {
        return 1;
      }
    }
  }
  return 0;
}

}  // namespace WebUtils
