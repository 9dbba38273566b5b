// Key/value files. Reads are served from a per-process parse of each file that is revalidated
// with one stat() per call, so every read sees the file as it is on disk at a fraction of the
// cost of reopening it. Writes rewrite the whole file atomically under a lock on its directory,
// so writers of one file never lose each other's keys.
#include <fcntl.h>
#include <sys/file.h>
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
#include "platform/vlibc/kv_staging.h"
#include "platform/vlibc/kv_text.h"
#include "platform/vlibc/unique_fd.h"
#include "platform/vlibc/vlibc_error.h"
#include "platform/vlibc/vlibc_file.h"

namespace qrix::kv {
namespace {

struct Identity {
  dev_t dev = 0;
  ino_t ino = 0;
  off_t size = -1;
  timespec mtime{};
  timespec ctime{};

  static Identity Of(const struct stat& st) {
    return {st.st_dev, st.st_ino, st.st_size, st.st_mtim, st.st_ctim};
  }
  bool operator==(const Identity& o) const {
    return dev == o.dev && ino == o.ino && size == o.size && mtime.tv_sec == o.mtime.tv_sec &&
           mtime.tv_nsec == o.mtime.tv_nsec && ctime.tv_sec == o.ctime.tv_sec &&
           ctime.tv_nsec == o.ctime.tv_nsec;
  }
};

struct CachedFile {
  Identity identity;
  std::unordered_map<std::string, std::string> values;
};

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
std::unordered_map<std::string, CachedFile> g_cache;
std::vector<StagedFile> g_staged;  // few files, kept in first-write order

std::string DirOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) {
    return ".";
  }
  return slash == 0 ? "/" : path.substr(0, slash);
}

// Serialises the writers of the files of one directory, across processes.
class DirectoryLock {
 public:
  explicit DirectoryLock(const std::string& path)
      : fd_(::open(DirOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    while (fd_.Valid() && ::flock(fd_.Get(), LOCK_EX) != 0) {
      if (errno != EINTR) {
        fd_.Reset();
      }
    }
  }
  bool Held() const { return fd_.Valid(); }

 private:
  UniqueFd fd_;
};

// Looks `key` up in the file as it is now. 1 found, 0 missing, -1 error (error state set).
int LookUp(const std::string& path, const std::string& key, std::string* value) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) {
    if (errno == ENOENT || errno == ENOTDIR) {
      return 0;
    }
    VLIBCErrSet(ERR_FILE_OPEN);
    return -1;
  }
  const std::lock_guard<std::mutex> guard(g_mutex);
  CachedFile& cached = g_cache[path];
  if (!(cached.identity == Identity::Of(st))) {
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat opened {};
    std::string text;
    if (!fd.Valid() || ::fstat(fd.Get(), &opened) != 0 || ReadFd(fd.Get(), &text) != 0) {
      const bool gone = errno == ENOENT;
      g_cache.erase(path);
      if (gone) {
        return 0;
      }
      VLIBCErrSet(ERR_FILE_READ);
      return -1;
    }
    cached.identity = Identity::Of(opened);
    cached.values = ParseAll(text);
  }
  const auto it = cached.values.find(key);
  if (it == cached.values.end()) {
    return 0;
  }
  *value = it->second;
  return 1;
}

// A staged value of this process for `key`, newest first.
const std::string* StagedValue(const std::string& path, const std::string& key) {
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
  DirectoryLock lock(path);
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
  return result;
}

}  // namespace qrix::kv

extern "C" {

int VLIBCFileGetKeyValue(const char* file, const char* key, char* buf, int size, int /*flags*/) {
  if (file == nullptr || key == nullptr || buf == nullptr || size <= 0) {
    VLIBCErrSet(ERR_BAD_PARAMETERS);
    return -1;
  }
  buf[0] = '\0';
  const std::string path(file);
  const std::string name(key);
  std::string value;
  bool staged = false;
  {
    const std::lock_guard<std::mutex> guard(qrix::kv::g_mutex);
    if (const std::string* staged_value = qrix::kv::StagedValue(path, name)) {
      value = *staged_value;
      staged = true;
    }
  }
  if (!staged) {
    const int found = qrix::kv::LookUp(path, name, &value);
    if (found <= 0) {
      return found;
    }
  }
  const size_t n = std::min(value.size(), static_cast<size_t>(size) - 1);
  std::memcpy(buf, value.data(), n);
  buf[n] = '\0';
  return static_cast<int>(n);
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
    const std::string dir_path = qrix::kv::DirOf(path);
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
