#include "host/access/session_store.h"

#include <dirent.h>
#include <fcntl.h>
#include <sodium.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>

#include "host/common/host_log.h"
#include "host/common/json_text.h"
#include "platform/vlibc/atomic_file.h"
#include "platform/vlibc/unique_fd.h"

namespace qrix::host {
namespace {

constexpr size_t kRandomBytes = 32;  // 256 bits
// A last use this far in the future means the clock was set back: treat it as expired.
constexpr time_t kClockSlack = 60;
constexpr time_t kMarkEvery = 1;
// Records a worker keeps; past this the cache starts again (a worker serves a few users).
constexpr std::size_t kMaxCached = 256;

std::string RandomHex() {
  unsigned char bytes[kRandomBytes];
  randombytes_buf(bytes, sizeof bytes);
  char hex[kRandomBytes * 2 + 1];
  sodium_bin2hex(hex, sizeof hex, bytes, sizeof bytes);
  return hex;
}

// Whether `since` (a last use or a creation) is more than `seconds` ago, or in the future.
bool Expired(time_t since, int seconds) {
  const time_t now = ::time(nullptr);
  return now - since > seconds || since - now > kClockSlack;
}

}  // namespace

bool IsSessionId(std::string_view id) {
  if (id.size() != kRandomBytes * 2) {
    return false;
  }
  for (const char c : id) {
    if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'))) {
      return false;
    }
  }
  return true;
}

SessionStore::SessionStore(std::string dir, int idle_seconds, int lifetime_seconds)
    : dir_(std::move(dir)), idle_seconds_(idle_seconds), lifetime_seconds_(lifetime_seconds) {}

std::string SessionStore::PathOf(std::string_view id) const {
  return dir_ + "/" + std::string(id);
}

bool SessionStore::Prepare(std::string* error) const {
  std::error_code ec;
  std::filesystem::create_directories(dir_, ec);
  if (ec) {
    *error = "cannot create session directory " + dir_ + ": " + ec.message();
    return false;
  }
  if (::chmod(dir_.c_str(), 0700) != 0) {
    *error = "cannot restrict session directory " + dir_ + ": " + std::strerror(errno);
    return false;
  }
  return true;
}

std::optional<Session> SessionStore::Create(const Account& account) {
  Session session{RandomHex(), account, RandomHex()};
  Json::Value record(Json::objectValue);
  record["user"] = account.user;
  record["uid"] = static_cast<Json::UInt64>(account.uid);
  record["token"] = session.token;
  record["created"] = static_cast<Json::Int64>(::time(nullptr));
  const std::string path = PathOf(session.id);
  if (const int err = PublishFile(path, JsonText(record) + "\n", 0600); err != 0) {
    LogFailure("cannot write session file", path, err);
    return std::nullopt;
  }
  return session;
}

std::optional<Session> SessionStore::Find(std::string_view id) {
  if (!IsSessionId(id)) {
    return std::nullopt;
  }
  const std::string path = PathOf(id);
  const std::string key(id);
  Untrust();
  auto it = read_.find(key);
  if (it == read_.end() || !it->second.trusted) {
    // Watch first: a change after this point is reported even if it races the stat below.
    const bool watched = Watch();
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) {
      if (errno != ENOENT) {
        LogFailure("cannot stat session file", path, errno);
      }
      read_.erase(key);
      return std::nullopt;
    }
    if (Expired(st.st_mtim.tv_sec, idle_seconds_)) {
      ::unlink(path.c_str());
      read_.erase(key);
      return std::nullopt;
    }
    if (it == read_.end() || it->second.dev != st.st_dev || it->second.ino != st.st_ino ||
        it->second.changed.tv_sec != st.st_ctim.tv_sec ||
        it->second.changed.tv_nsec != st.st_ctim.tv_nsec) {
      std::optional<Read> read = ReadFile(id, path);
      if (!read) {
        read_.erase(key);
        return std::nullopt;
      }
      if (read_.size() >= kMaxCached) {
        read_.clear();
      }
      it = read_.insert_or_assign(key, std::move(*read)).first;
    }
    it->second.last_used = st.st_mtim.tv_sec;
    it->second.trusted = watched;
  }
  // A trusted record's last use is its file's: a mark since would have been reported.
  if (Expired(it->second.last_used, idle_seconds_) ||
      Expired(it->second.created, lifetime_seconds_)) {
    ::unlink(path.c_str());
    read_.erase(it);
    return std::nullopt;
  }
  return it->second.session;
}

bool SessionStore::Watch() {
  constexpr uint32_t kEvents = IN_ATTRIB | IN_MODIFY | IN_CREATE | IN_DELETE | IN_MOVED_FROM |
                               IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
  if (dir_watch_ < 0 && can_watch_) {
    dir_watch_ = watch_.Add(dir_.c_str(), kEvents);
    can_watch_ = dir_watch_ >= 0;  // out of watches: a stat per request from now on
  }
  return dir_watch_ >= 0;
}

void SessionStore::Untrust() {
  bool all = false;
  const bool looked = watch_.Drain([this, &all](int watch, std::string_view name) {
    if (watch != dir_watch_ || name.empty()) {
      all = true;  // the directory itself, or events lost
    } else if (const auto it = read_.find(std::string(name)); it != read_.end()) {
      it->second.trusted = false;
    }
  });
  if (!looked || all) {
    for (auto& [id, read] : read_) {
      read.trusted = false;
    }
    dir_watch_ = -1;  // watched again at the next look
  }
}

std::optional<SessionStore::Read> SessionStore::ReadFile(std::string_view id,
                                                         const std::string& path) const {
  UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  struct stat st {};
  if (!fd.Valid() || ::fstat(fd.Get(), &st) != 0) {
    if (errno != ENOENT) {
      LogFailure("cannot open session file", path, errno);
    }
    return std::nullopt;
  }
  std::string text;
  Json::Value record;
  if (const int err = ReadFd(fd.Get(), &text); err != 0) {
    LogFailure("cannot read session file", path, err);
    return std::nullopt;
  }
  if (!ParseStrictJson(text, &record) || !record.isObject() || !record["user"].isString() ||
      !record["uid"].isUInt64() || !record["token"].isString() || !record["created"].isInt64()) {
    LogFailure("cannot use session file", path, "not a session record");
    return std::nullopt;
  }
  return Read{st.st_dev,
              st.st_ino,
              st.st_ctim,
              static_cast<time_t>(record["created"].asInt64()),
              st.st_mtim.tv_sec,
              Session{std::string(id),
                      Account{record["user"].asString(),
                              static_cast<uid_t>(record["uid"].asUInt64()), false},
                      record["token"].asString()}};
}

// A mark less than a second old is not renewed: the idle time is counted in seconds, and an
// unchanged file keeps its cached record valid.
void SessionStore::MarkUsed(std::string_view id) {
  const auto it = read_.find(std::string(id));
  if (it != read_.end() && ::time(nullptr) - it->second.last_used < kMarkEvery) {
    return;
  }
  const std::string path = PathOf(id);
  if (IsSessionId(id) && ::utimensat(AT_FDCWD, path.c_str(), nullptr, AT_SYMLINK_NOFOLLOW) != 0 &&
      errno != ENOENT) {
    LogFailure("cannot mark last use of session file", path, errno);
  }
}

void SessionStore::Remove(std::string_view id) {
  read_.erase(std::string(id));
  if (IsSessionId(id)) {
    const std::string path = PathOf(id);
    if (::unlink(path.c_str()) != 0 && errno != ENOENT) {
      LogFailure("cannot remove session file", path, errno);
    }
  }
}

void SessionStore::RemoveExpired() {
  const std::unique_ptr<DIR, int (*)(DIR*)> dir(::opendir(dir_.c_str()), ::closedir);
  if (!dir) {
    LogFailure("cannot list session directory", dir_, errno);
    return;
  }
  while (const dirent* entry = ::readdir(dir.get())) {
    struct stat st {};
    if (IsSessionId(entry->d_name) &&
        ::fstatat(::dirfd(dir.get()), entry->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0 &&
        Expired(st.st_mtim.tv_sec, idle_seconds_)) {
      ::unlinkat(::dirfd(dir.get()), entry->d_name, 0);
    }
  }
}

}  // namespace qrix::host
