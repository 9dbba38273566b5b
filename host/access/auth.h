// Logins against the system's accounts: the password through PAM (service "qrix-webapi"),
// the user id, administrator status and whether the account may still log in through NSS and
// the shadow file.
#ifndef QRIX_HOST_AUTH_H_
#define QRIX_HOST_AUTH_H_

#include <sys/stat.h>
#include <sys/types.h>

#include <array>
#include <map>
#include <optional>
#include <string>

#include "host/access/file_watch.h"

namespace qrix::host {

inline constexpr const char* kPamService = "qrix-webapi";
inline constexpr const char* kAdminGroup = "administrators";

enum class PasswordCheck {
  kAccepted,
  kWrong,           // unknown account or wrong password
  kAccountRefused,  // right password, but the account may not log in (expired, locked)
  kFailed,          // PAM itself failed
};

// `client` is the caller's address, for PAM's rules and its log (PAM_RHOST).
PasswordCheck CheckPassword(const std::string& account, const std::string& password,
                            const std::string& client);

struct Account {
  std::string user;
  uid_t uid = 0;
  bool admin = false;  // member of kAdminGroup, as primary or supplementary group
};

// Null when the account does not exist, cannot be read, or may not log in now: its password
// locked ("!" or "*") or empty, the account expired, or its password expired or never set.
std::optional<Account> LookupAccount(const std::string& user);

// LookupAccount's answers, kept while /etc/passwd, /etc/shadow and /etc/group stay as they were
// and the day is the same (expiry dates are days): every request re-checks its account, and
// this makes that cost one look at an inotify queue watching the files, or three stats where
// inotify cannot watch them.
class AccountCache {
 public:
  std::optional<Account> Lookup(const std::string& user);

 private:
  // True when the watches are set and have reported nothing since the last look.
  bool Unchanged();
  // Watches the files (written in place, or bind-mounted, they are seen only by their inodes)
  // and /etc (replaced by a rename). False when inotify cannot.
  bool Watch();
  // Without watches: compares the files' stamps with the last ones, dropping what was kept when
  // they differ. False when a file changed too recently for its stamp to show a next change.
  bool Restamp(time_t now);

  struct Stamp {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = -1;
    timespec modified{};
    timespec changed{};
    bool operator==(const Stamp& o) const;
  };
  static constexpr std::array<const char*, 3> kFiles = {"/etc/passwd", "/etc/shadow", "/etc/group"};

  std::array<Stamp, kFiles.size()> stamps_{};
  FileWatch watch_;
  int etc_watch_ = -1;  // -1 while nothing is watched
  bool can_watch_ = true;
  long day_ = -1;
  std::map<std::string, std::optional<Account>> accounts_;
};

}  // namespace qrix::host

#endif  // QRIX_HOST_AUTH_H_
