// Limits login attempts per (account, client address) and per client address. The counts live
// in small files shared by the workers, named by a keyed hash, so a name of any length costs
// one fixed-size record; the key is drawn afresh at each start of the host. An attempt is
// counted before its password is checked, under a lock, so parallel guesses cannot pass a
// limit; a right password takes its attempt back.
#ifndef QRIX_HOST_LOGIN_LIMITER_H_
#define QRIX_HOST_LOGIN_LIMITER_H_

#include <sodium.h>

#include <string>

namespace qrix::host {

inline constexpr const char* kLoginFailuresDir = "/run/qrix/webapi/login_failures";

struct LoginLimits {
  int per_account = 5;  // failures of one account from one address
  int per_address = 20;
  int lockout_seconds = 300;  // also how far back failures count
  int max_records = 4096;     // past this, the oldest record makes way for a new one
};

class LoginLimiter {
 public:
  enum class Admission { kAdmitted, kLockedOut, kFailed };

  // Draws the key for the record names: libsodium must be initialised.
  LoginLimiter(std::string dir, LoginLimits limits);

  // Creates the directory (0700) if needed. False with a reason when it cannot be used.
  bool Prepare(std::string* error) const;

  // Before the password is checked: counts the attempt against the account from `address` and
  // against `address`. kLockedOut, counting nothing, while either has reached its limit;
  // kFailed when the counts cannot be kept.
  Admission Admit(const std::string& account, const std::string& address);
  // The password was right: the account's failures from `address` are forgotten and the address
  // gets this attempt back. It keeps earlier failures: one good login must not reopen an
  // address that is guessing at other accounts.
  void Accepted(const std::string& account, const std::string& address);
  // The password could not be checked at all: both get this attempt back.
  void Withdraw(const std::string& account, const std::string& address);

 private:
  std::string PairPath(const std::string& account, const std::string& address) const;
  std::string AddressPath(const std::string& address) const;
  // Before the two records are written, one of them new at least: removes the expired records
  // and, when still too many, the oldest others.
  void MakeRoom(const std::string& pair_path, const std::string& address_path) const;
  void TakeBack(const std::string& path, int limit, bool forget) const;

  std::string dir_;
  LoginLimits limits_;
  unsigned char key_[crypto_generichash_KEYBYTES];
};

}  // namespace qrix::host

#endif  // QRIX_HOST_LOGIN_LIMITER_H_
