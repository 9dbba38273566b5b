// Key/value files. Reads go through the per-process parse cache (kv_cache.h). Writes rewrite
// the whole file atomically under the lock of its writers (dir_lock.h), so writers of one file
// never lose each other's keys.
#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/vlibc/atomic_file.h"
#include "platform/vlibc/dir_lock.h"
#include "platform/vlibc/kv_cache.h"
#include "platform/vlibc/kv_staging.h"
#include "platform/vlibc/kv_text.h"
#include "platform/vlibc/unique_fd.h"
#include "platform/vlibc/vlibc_error.h"
#include "platform/vlibc/vlibc_file.h"

namespace qrix::kv {
namespace {

struct StagedWrite {
  std::string key;
  std::string value;
  std::string line;
};

struct StagedFile {
  std::string path;
  std::vector<StagedWrite> writes;
};

std::mutex g_mutex;
std::vector<StagedFile> g_staged;  // few files, kept in first-write order

// Set when a publish of staged writes failed, until the lock's release reports it.
bool g_publish_failed = false;

// A staged value of this process for `key`, newest first.
const std::string* StagedValue(std::string_view path, std::string_view key) {
  for (const StagedFile& file : g_staged) {
    if (file.path != path) {
      continue;
    }
    for (auto it = file.writes.rbegin(); it != file.writes.rend(); ++it) {
      if (it->key == key) {
        return &it->value;
      }
    }
  }
  return nullptr;
}

// Applies `writes` to the file as it is on disk and publishes it once. 0 or -1.
int Publish(const std::string& path, const std::vector<StagedWrite>& writes) {
  const DirectoryLock lock(DirName(path), BaseName(path));
  if (!lock.Held()) {
    VLIBCErrSet(ERR_FILE_OPEN);
    return -1;
  }
  RemoveStaleTemporaries(path);
  std::string text;
  const int read_err = ReadFile(path, &text);
  if (read_err != 0 && read_err != ENOENT) {
    VLIBCErrSet(ERR_FILE_READ);
    return -1;
  }
  for (const StagedWrite& w : writes) {
    ReplaceKey(&text, w.key, w.line);
  }
  if (const int err = PublishFile(path, text)) {
    syslog(LOG_ERR, "cannot publish %s: %s", path.c_str(), std::strerror(err));
    VLIBCErrSet(ERR_FILE_WRITE);
    return -1;
  }
  return 0;
}

}  // namespace

int PublishStaged() {
  std::vector<StagedFile> staged;
  {
    const std::lock_guard<std::mutex> guard(g_mutex);
    staged.swap(g_staged);
  }
  int result = 0;
  for (const StagedFile& file : staged) {
    if (Publish(file.path, file.writes) != 0) {
      result = -1;
    }
  }
  if (result != 0) {
    const std::lock_guard<std::mutex> guard(g_mutex);
    g_publish_failed = true;
  }
  return result;
}

int TakePublishFailure() {
  const std::lock_guard<std::mutex> guard(g_mutex);
  return std::exchange(g_publish_failed, false) ? -1 : 0;
}

}  // namespace qrix::kv

extern "C" {

int VLIBCFileGetKeyValue(const char* file, const char* key, char* buf, int size, int /*flags*/) {
  if (file == nullptr || key == nullptr || buf == nullptr || size <= 0) {
    VLIBCErrSet(ERR_BAD_PARAMETERS);
    return -1;
  }
  buf[0] = '\0';
  // Copies `value` cut to the buffer; returns the length copied.
  const auto copy_out = [buf, size](std::string_view value) {
    const size_t n = std::min(value.size(), static_cast<size_t>(size) - 1);
    std::memcpy(buf, value.data(), n);
    buf[n] = '\0';
    return static_cast<int>(n);
  };
  const std::string_view path(file);
  const std::string_view name(key);
  {
    const std::lock_guard<std::mutex> guard(qrix::kv::g_mutex);
    if (const std::string* staged = qrix::kv::StagedValue(path, name)) {
      return copy_out(*staged);
    }
  }
  thread_local std::string value;  // reused: reads are the hot path
  const int found = qrix::kv::CachedLookUp(path, name, &value);
  return found <= 0 ? found : copy_out(value);
}

int VLIBCFileSetKeyValueN(const char* file, const char* key, const char* value, size_t value_len,
                          const char* line_format) {
  if (file == nullptr || key == nullptr || value == nullptr) {
    VLIBCErrSet(ERR_BAD_PARAMETERS);
    return -1;
  }
  const std::string_view val(value, value_len);
  if (!qrix::kv::IsStorableKey(key) || !qrix::kv::IsStorableValue(val)) {
    VLIBCErrSet(ERR_FILE_BAD_VALUE);
    return -1;
  }
  qrix::kv::StagedWrite write{key, std::string(val), {}};
  if (!qrix::kv::RenderLine(line_format, write.key, write.value, &write.line)) {
    VLIBCErrSet(ERR_BAD_PARAMETERS);
    return -1;
  }
  const std::string path(file);
  if (qrix::kv::StagingActive()) {
    // Fail now, not at unlock, when the file could not be published at all.
    struct stat dir {};
    const std::string dir_path = qrix::DirName(path);
    if (::stat(dir_path.c_str(), &dir) != 0 || !S_ISDIR(dir.st_mode) ||
        ::access(dir_path.c_str(), W_OK) != 0) {
      VLIBCErrSet(ERR_FILE_OPEN);
      return -1;
    }
    const std::lock_guard<std::mutex> guard(qrix::kv::g_mutex);
    for (qrix::kv::StagedFile& staged : qrix::kv::g_staged) {
      if (staged.path == path) {
        staged.writes.push_back(std::move(write));
        return 0;
      }
    }
    qrix::kv::g_staged.push_back({path, {}});
    qrix::kv::g_staged.back().writes.push_back(std::move(write));
    return 0;
  }
  return qrix::kv::Publish(path, {write});
}

int VLIBCFileSetKeyValue(const char* file, const char* key, const char* value,
                         const char* line_format) {
  if (value == nullptr) {
    VLIBCErrSet(ERR_BAD_PARAMETERS);
    return -1;
  }
  return VLIBCFileSetKeyValueN(file, key, value, std::strlen(value), line_format);
}

}  // extern "C"
