#include "host/access/login_limiter.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <utility>
#include <vector>

#include "host/common/host_log.h"
#include "host/common/json_text.h"
#include "platform/vlibc/atomic_file.h"
#include "platform/vlibc/dir_lock.h"

namespace qrix::host {
namespace {

struct Counter {
  bool exists = false;
  Json::Int64 failures = 0;
  Json::Int64 since = 0;  // start of the window in which failures count
  Json::Int64 locked_until = 0;
};

Counter ReadCounter(const std::string& path) {
  Counter c;
  std::string text;
  Json::Value record;
  if (ReadFile(path, &text) != 0) {
    return c;
  }
  c.exists = true;
  if (ParseStrictJson(text, &record) && record.isObject()) {
    c.failures = record["failures"].isInt64() ? record["failures"].asInt64() : 0;
    c.since = record["since"].isInt64() ? record["since"].asInt64() : 0;
    c.locked_until = record["locked_until"].isInt64() ? record["locked_until"].asInt64() : 0;
  }
  return c;
}

bool WriteCounter(const std::string& path, const Counter& c) {
  Json::Value record(Json::objectValue);
  record["failures"] = c.failures;
  record["since"] = c.since;
  record["locked_until"] = c.locked_until;
  if (const int err = PublishFile(path, JsonText(record) + "\n", 0600); err != 0) {
    LogFailure("cannot record a login attempt in", path, err);
    return false;
  }
  return true;
}

class FailureCount {
 public:
  FailureCount(int limit, int lockout_seconds)
      : limit_(limit), lockout_(lockout_seconds), now_(::time(nullptr)) {}

  // A lockout reaching further than one lockout ahead means the clock was set back.
  bool Locked(const Counter& c) const {
    return c.locked_until > now_ && c.locked_until - now_ <= lockout_;
  }
  Counter Counted(Counter c) const {
    if (now_ - c.since > lockout_ || c.since > now_) {
      c = Counter{c.exists, 0, now_, 0};  // the window has passed: start a new one
    }
    if (++c.failures >= limit_) {
      c.locked_until = now_ + lockout_;
    }
    return c;
  }

 private:
  int limit_;
  Json::Int64 lockout_;
  Json::Int64 now_;
};

}  // namespace

LoginLimiter::LoginLimiter(std::string dir, LoginLimits limits)
    : dir_(std::move(dir)), limits_(limits) {
  crypto_generichash_keygen(key_);
}

bool LoginLimiter::Prepare(std::string* error) const {
  std::error_code ec;
  std::filesystem::create_directories(dir_, ec);
  if (ec || ::chmod(dir_.c_str(), 0700) != 0) {
    *error = "cannot create login failure directory " + dir_ + ": " +
             (ec ? ec.message() : std::strerror(errno));
    return false;
  }
  return true;
}

// Record names: 32 hex digits of a keyed hash, whatever the length of what they count.
// The first byte of the hashed text tells the two kinds apart; an address holds no NUL.
std::string LoginLimiter::PairPath(const std::string& account, const std::string& address) const {
  crypto_generichash_state state;
  crypto_generichash_init(&state, key_, sizeof key_, 16);
  crypto_generichash_update(&state, reinterpret_cast<const unsigned char*>("p"), 1);
  crypto_generichash_update(&state, reinterpret_cast<const unsigned char*>(account.data()),
                            account.size());
  crypto_generichash_update(&state, reinterpret_cast<const unsigned char*>(""), 1);
  crypto_generichash_update(&state, reinterpret_cast<const unsigned char*>(address.data()),
                            address.size());
  unsigned char hash[16];
  crypto_generichash_final(&state, hash, sizeof hash);
  char hex[sizeof hash * 2 + 1];
  return dir_ + "/" + sodium_bin2hex(hex, sizeof hex, hash, sizeof hash);
}

std::string LoginLimiter::AddressPath(const std::string& address) const {
  const std::string text = "a" + address;
  unsigned char hash[16];
  crypto_generichash(hash, sizeof hash, reinterpret_cast<const unsigned char*>(text.data()),
                     text.size(), key_, sizeof key_);
  char hex[sizeof hash * 2 + 1];
  return dir_ + "/" + sodium_bin2hex(hex, sizeof hex, hash, sizeof hash);
}

void LoginLimiter::MakeRoom(const std::string& pair_path, const std::string& address_path) const {
  const std::unique_ptr<DIR, int (*)(DIR*)> dir(::opendir(dir_.c_str()), ::closedir);
  if (!dir) {
    LogFailure("cannot list login failure records in", dir_, errno);
    return;
  }
  // A record last written a lockout ago holds neither a lockout nor a failure that counts.
  const time_t expired_before = ::time(nullptr) - limits_.lockout_seconds;
  std::vector<std::pair<timespec, std::string>> live;  // all but the two about to be written
  while (const dirent* entry = ::readdir(dir.get())) {
    struct stat st {};
    if (entry->d_name[0] == '.' ||
        ::fstatat(::dirfd(dir.get()), entry->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
      continue;
    }
    const std::string path = dir_ + "/" + entry->d_name;
    if (st.st_mtim.tv_sec < expired_before) {
      ::unlinkat(::dirfd(dir.get()), entry->d_name, 0);
    } else if (path != pair_path && path != address_path) {
      live.emplace_back(st.st_mtim, entry->d_name);
    }
  }
  const int excess = static_cast<int>(live.size()) + 2 - limits_.max_records;
  if (excess <= 0) {
    return;
  }
  std::partial_sort(live.begin(), live.begin() + std::min<size_t>(excess, live.size()), live.end(),
                    [](const auto& a, const auto& b) {
                      return a.first.tv_sec != b.first.tv_sec ? a.first.tv_sec < b.first.tv_sec
                                                              : a.first.tv_nsec < b.first.tv_nsec;
                    });
  for (int i = 0; i < excess && i < static_cast<int>(live.size()); ++i) {
    ::unlinkat(::dirfd(dir.get()), live[static_cast<size_t>(i)].second.c_str(), 0);
  }
  LogFailure("login failure records full in", dir_,
             "dropped the " + std::to_string(excess) + " oldest");
}

LoginLimiter::Admission LoginLimiter::Admit(const std::string& account,
                                            const std::string& address) {
  const DirectoryLock lock(dir_);
  if (!lock.Held()) {
    LogFailure("cannot lock login failure records in", dir_, errno);
    return Admission::kFailed;
  }
  const std::string pair_path = PairPath(account, address);
  const std::string address_path = AddressPath(address);
  const FailureCount per_pair(limits_.per_account, limits_.lockout_seconds);
  const FailureCount per_address(limits_.per_address, limits_.lockout_seconds);
  const Counter pair = ReadCounter(pair_path);
  const Counter from = ReadCounter(address_path);
  if (per_pair.Locked(pair) || per_address.Locked(from)) {
    return Admission::kLockedOut;
  }
  if (!pair.exists || !from.exists) {
    MakeRoom(pair_path, address_path);
  }
  return WriteCounter(pair_path, per_pair.Counted(pair)) &&
                 WriteCounter(address_path, per_address.Counted(from))
             ? Admission::kAdmitted
             : Admission::kFailed;
}

void LoginLimiter::TakeBack(const std::string& path, int limit, bool forget) const {
  if (forget) {
    if (::unlink(path.c_str()) != 0 && errno != ENOENT) {
      LogFailure("cannot clear failed logins in", path, errno);
    }
    return;
  }
  Counter c = ReadCounter(path);
  if (!c.exists || c.failures == 0) {
    return;
  }
  if (--c.failures < limit) {
    c.locked_until = 0;
  }
  WriteCounter(path, c);
}

void LoginLimiter::Accepted(const std::string& account, const std::string& address) {
  const DirectoryLock lock(dir_);
  if (!lock.Held()) {
    LogFailure("cannot lock login failure records in", dir_, errno);
    return;
  }
  TakeBack(PairPath(account, address), limits_.per_account, true);
  TakeBack(AddressPath(address), limits_.per_address, false);
}

void LoginLimiter::Withdraw(const std::string& account, const std::string& address) {
  const DirectoryLock lock(dir_);
  if (!lock.Held()) {
    LogFailure("cannot lock login failure records in", dir_, errno);
    return;
  }
  TakeBack(PairPath(account, address), limits_.per_account, false);
  TakeBack(AddressPath(address), limits_.per_address, false);
}

}  // namespace qrix::host
