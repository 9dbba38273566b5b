#include "platform/vlibc/dir_lock.h"

#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>

namespace qrix {

namespace {

// Writers of one file, or of one directory, wait this long for each other: a rewrite takes
// milliseconds, so a wait this long means a holder that is stuck.
constexpr double kWriterWait = 10;

LockFile LockOf(const std::string& dir, const std::string& name) {
  struct stat st {};
  if (::stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
    return {};
  }
  // FNV-1a of the directory's identity and the name: stable across processes and builds.
  const std::string key = std::to_string(st.st_dev) + ":" + std::to_string(st.st_ino) + "/" + name;
  uint64_t hash = 14695981039346656037ULL;
  for (const char c : key) {
    hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211ULL;
  }
  char file[32];
  std::snprintf(file, sizeof file, "path-%016llx.lock", static_cast<unsigned long long>(hash));
  return LockFile(file, LOCK_EX, kWriterWait,
                  "writers of " + dir + (name.empty() ? "" : "/") + name);
}

}  // namespace

DirectoryLock::DirectoryLock(const std::string& dir, const std::string& name)
    : lock_(LockOf(dir, name)) {}

int MakeDirectories(const std::string& dir, unsigned mode) {
  for (size_t slash = dir.find('/', 1);; slash = dir.find('/', slash + 1)) {
    const std::string prefix = dir.substr(0, slash);
    if (!prefix.empty() && ::mkdir(prefix.c_str(), mode) != 0 && errno != EEXIST) {
      return errno;
    }
    if (slash == std::string::npos) {
      break;
    }
  }
  struct stat st {};
  if (::stat(dir.c_str(), &st) != 0) {
    return errno;
  }
  return S_ISDIR(st.st_mode) ? 0 : ENOTDIR;
}

}  // namespace qrix
