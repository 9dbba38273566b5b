#include "host/access/login_limiter.h"

#include <sodium.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "host/common/host_log.h"
#include "host/common/json_text.h"
#include "platform/vlibc/atomic_file.h"
#include "platform/vlibc/vlibc_file.h"

namespace qrix::host {
namespace {

// The platform's named lock serialising updates of the failure counts.
constexpr int kLoginFailuresLock = 0x0900;
constexpr int kLockWaitSeconds = 5;

struct Counter {
  Json::Int64 failures = 0;
  Json::Int64 since = 0;
  Json::Int64 locked_until = 0;
};

Counter ReadCounter(const std::string& path) {
  Counter c;
  std::string text;
  Json::Value record;
  if (ReadFile(path, &text) == 0 && ParseStrictJson(text, &record) && record.isObject()) {
    c.failures = record["failures"].isInt64() ? record["failures"].asInt64() : 0;
    c.since = record["since"].isInt64() ? record["since"].asInt64() : 0;
    c.locked_until = record["locked_until"].isInt64() ? record["locked_until"].asInt64() : 0;
  }
  return c;
}

}  // namespace

LoginLimiter::LoginLimiter(std::string dir, LoginLimits limits)
    : dir_(std::move(dir)), limits_(limits) {}

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

std::string LoginLimiter::PathOf(const char* kind, const std::string& name) const {
  unsigned char hash[16];
  crypto_generichash(hash, sizeof hash, reinterpret_cast<const unsigned char*>(name.data()),
                     name.size(), nullptr, 0);
  char hex[sizeof hash * 2 + 1];
  sodium_bin2hex(hex, sizeof hex, hash, sizeof hash);
  return dir_ + "/" + kind + "-" + hex;
}

bool LoginLimiter::Locked(const std::string& path) const {
  const Counter c = ReadCounter(path);
  const Json::Int64 now = ::time(nullptr);
  // A lockout reaching further than one lockout ahead means the clock was set back.
  return c.locked_until > now && c.locked_until - now <= limits_.lockout_seconds;
}

bool LoginLimiter::LockedOut(const std::string& account, const std::string& address) const {
  return Locked(PathOf("account", account)) || Locked(PathOf("address", address));
}

void LoginLimiter::Count(const std::string& path, const std::string& name, int limit) const {
  Counter c = ReadCounter(path);
  const Json::Int64 now = ::time(nullptr);
  if (now - c.since > limits_.lockout_seconds || c.since > now) {
    c = Counter{0, now, 0};
  }
  if (++c.failures >= limit) {
    c.locked_until = now + limits_.lockout_seconds;
  }
  Json::Value record(Json::objectValue);
  record["name"] = name;
  record["failures"] = c.failures;
  record["since"] = c.since;
  record["locked_until"] = c.locked_until;
  if (const int err = PublishFile(path, JsonText(record) + "\n", 0600); err != 0) {
    LogFailure("cannot record failed login in", path, err);
  }
}

void LoginLimiter::RecordFailure(const std::string& account, const std::string& address) {
  if (VLIBCFileLock(kLoginFailuresLock | VLIBC_LOCK_EXCLUSIVE | VLIBC_LOCK_WAIT,
                    kLockWaitSeconds) != 0) {
    LogFailure("cannot lock login failure counts in", dir_, "lock not taken");
  }
  // Counted even without the lock: a lost count beats none.
  Count(PathOf("account", account), account, limits_.per_account);
  Count(PathOf("address", address), address, limits_.per_address);
  VLIBCFileUnlock(kLoginFailuresLock);
}

void LoginLimiter::RecordSuccess(const std::string& account) {
  const std::string path = PathOf("account", account);
  if (::unlink(path.c_str()) != 0 && errno != ENOENT) {
    LogFailure("cannot clear failed logins in", path, errno);
  }
}

}  // namespace qrix::host
