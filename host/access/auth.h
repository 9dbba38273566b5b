// Logins against the system's accounts: the password through PAM (service "qrix-webapi"),
// the user id and administrator status through NSS.
#ifndef QRIX_HOST_AUTH_H_
#define QRIX_HOST_AUTH_H_

#include <sys/types.h>

#include <optional>
#include <string>

namespace qrix::host {

inline constexpr const char* kPamService = "qrix-webapi";
inline constexpr const char* kAdminGroup = "administrators";

enum class PasswordCheck {
  kAccepted,
  kWrong,           // unknown account or wrong password
  kAccountRefused,  // right password, but the account may not log in (expired, locked)
  kFailed,          // PAM itself failed
};

PasswordCheck CheckPassword(const std::string& account, const std::string& password);

struct Account {
  std::string user;
  uid_t uid = 0;
  bool admin = false;  // member of kAdminGroup, as primary or supplementary group
};

// Null when the account does not exist or cannot be read.
std::optional<Account> LookupAccount(const std::string& user);

}  // namespace qrix::host

#endif  // QRIX_HOST_AUTH_H_
