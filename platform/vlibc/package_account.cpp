#include "platform/vlibc/package_account.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <syslog.h>

#include <cerrno>
#include <mutex>
#include <vector>

namespace qrix {
namespace {

// One id looked up by name in an account file, kept until that file changes.
struct CachedId {
  std::mutex mutex;
  bool valid = false;
  struct stat seen {};
  std::optional<unsigned> id;
};

bool SameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
         a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

// The entry named QRIX_PACKAGE_ACCOUNT through getpwnam_r or getgrnam_r, or null.
template <typename Entry, typename LookUp>
const Entry* FindPackageEntry(LookUp look_up, Entry* entry, std::vector<char>* buf) {
  Entry* found = nullptr;
  buf->resize(1024);
  while (look_up(QRIX_PACKAGE_ACCOUNT, entry, buf->data(), buf->size(), &found) == ERANGE) {
    buf->resize(buf->size() * 2);
  }
  return found;
}

template <typename LookUp>
std::optional<unsigned> Cached(CachedId* cache, const char* file, LookUp look_up) {
  struct stat now {};
  const bool stable = ::stat(file, &now) == 0;
  const std::lock_guard<std::mutex> guard(cache->mutex);
  if (!cache->valid || !stable || !SameFile(now, cache->seen)) {
    cache->id = look_up();
    cache->seen = now;
    cache->valid = stable;
  }
  return cache->id;
}

}  // namespace

std::optional<uid_t> PackageUid() {
  static CachedId cache;
  return Cached(&cache, "/etc/passwd", []() -> std::optional<unsigned> {
    passwd entry{};
    std::vector<char> buf;
    const passwd* found = FindPackageEntry(getpwnam_r, &entry, &buf);
    return found != nullptr ? std::optional<unsigned>(found->pw_uid) : std::nullopt;
  });
}

std::optional<gid_t> PackageGid() {
  static CachedId cache;
  return Cached(&cache, "/etc/group", []() -> std::optional<unsigned> {
    group entry{};
    std::vector<char> buf;
    if (const group* found = FindPackageEntry(getgrnam_r, &entry, &buf)) {
      return found->gr_gid;
    }
    syslog(LOG_WARNING, "no group %s: the package's secret files and locks are kept to root alone",
           QRIX_PACKAGE_ACCOUNT);
    return std::nullopt;
  });
}

std::optional<FileAccess> PackageFileAccess(std::string_view path, std::optional<uid_t> owner) {
  if (!path.starts_with(QRIX_PACKAGE_ETC_DIR "/")) {
    return std::nullopt;
  }
  if (const std::optional<gid_t> gid = PackageGid()) {
    const uid_t uid = owner && *owner != 0 && *owner == PackageUid() ? *owner : 0;
    return FileAccess{uid, *gid, 0640};
  }
  return FileAccess{0, 0, 0600};
}

}  // namespace qrix
