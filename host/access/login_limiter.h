// Limits failed logins per account and per client address. Every request is a fresh process,
// so the counts live in small files (one per account and per address, named by a hash), and
// each update happens under a lock so that parallel failures are all counted.
#ifndef QRIX_HOST_LOGIN_LIMITER_H_
#define QRIX_HOST_LOGIN_LIMITER_H_

#include <string>

namespace qrix::host {

inline constexpr const char* kLoginFailuresDir = "/run/qrix/webapi/login_failures";

struct LoginLimits {
  int per_account = 5;
  int per_address = 20;
  int lockout_seconds = 300;  // also how far back failures count
};

class LoginLimiter {
 public:
  LoginLimiter(std::string dir, LoginLimits limits);

  // Creates the directory (0700) if needed. False with a reason when it cannot be used.
  bool Prepare(std::string* error) const;

  // True while the account or the address is locked out.
  bool LockedOut(const std::string& account, const std::string& address) const;
  // Counts one failure against both; each is locked out once it reaches its limit.
  void RecordFailure(const std::string& account, const std::string& address);
  // Clears the account's failures. The address keeps its count: one good login must not
  // reopen an address that is guessing at other accounts.
  void RecordSuccess(const std::string& account);

 private:
  std::string PathOf(const char* kind, const std::string& name) const;
  bool Locked(const std::string& path) const;
  void Count(const std::string& path, const std::string& name, int limit) const;

  std::string dir_;
  LoginLimits limits_;
};

}  // namespace qrix::host

#endif  // QRIX_HOST_LOGIN_LIMITER_H_
