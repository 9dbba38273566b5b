// Login sessions on the server side: one file per session, named by its 256-bit random id,
// holding the user, uid, administrator flag, CSRF token and creation time. The file's
// modification time is the session's last use: touching it through the open file means a
// request running alongside a logout can never bring the removed session back.
#ifndef QRIX_HOST_SESSION_STORE_H_
#define QRIX_HOST_SESSION_STORE_H_

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

#include "host/access/auth.h"

namespace qrix::host {

struct Session {
  std::string id;
  Account account;
  std::string token;  // the CSRF token the client sends as X-QRIX-Token
};

// 64 lower-case hex digits: the only names the store ever opens.
bool IsSessionId(std::string_view id);

class SessionStore {
 public:
  SessionStore(std::string dir, int idle_seconds);

  // Creates the directory (0700) if needed. False with a reason when it cannot be used.
  bool Prepare(std::string* error) const;

  std::optional<Session> Create(const Account& account);
  // The session named `id` if it is live, its last use moved to now. An expired session's
  // file is removed.
  std::optional<Session> Use(std::string_view id);
  void Remove(std::string_view id);
  // Removes every expired session file.
  void RemoveExpired();

 private:
  std::string PathOf(std::string_view id) const;

  std::string dir_;
  int idle_seconds_;
};

}  // namespace qrix::host

#endif  // QRIX_HOST_SESSION_STORE_H_
