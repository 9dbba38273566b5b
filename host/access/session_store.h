// Login sessions on the server side: one file per session, named by its 256-bit random id,
// holding the user, uid, CSRF token and creation time. The file's modification time is the
// session's last use; marking it never creates the file, so a request running alongside a
// logout cannot bring the removed session back. A session ends when unused for the idle time
// and, however used, at the end of its lifetime. Each worker keeps the records it read, trusted
// while an inotify watch on the directory reports no change to their files (else checked
// against the file's status on every use): a file is written once and then only marked, and
// marked at most once a second, so most requests cost one look at the watch's queue.
#ifndef QRIX_HOST_SESSION_STORE_H_
#define QRIX_HOST_SESSION_STORE_H_

#include <sys/types.h>
#include <time.h>

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "host/access/auth.h"
#include "host/access/file_watch.h"

namespace qrix::host {

struct Session {
  std::string id;
  Account account;    // the administrator flag is not kept: each request derives it again
  std::string token;  // the CSRF token the client sends as X-QRIX-Token
};

// 64 lower-case hex digits: the only names the store ever opens.
bool IsSessionId(std::string_view id);

class SessionStore {
 public:
  SessionStore(std::string dir, int idle_seconds, int lifetime_seconds);

  // Creates the directory (0700) if needed. False with a reason when it cannot be used.
  bool Prepare(std::string* error) const;

  std::optional<Session> Create(const Account& account);
  // The session named `id` if it is live. An expired session's file is removed. Finding a
  // session does not extend it: only MarkUsed does, once the request has proved itself.
  std::optional<Session> Find(std::string_view id);
  void MarkUsed(std::string_view id);
  void Remove(std::string_view id);
  // Removes every expired session file.
  void RemoveExpired();

 private:
  struct Read {
    dev_t dev;
    ino_t ino;
    timespec changed;  // any write or mark changes it: then the file is read again
    time_t created;
    time_t last_used;
    Session session;
    // True while the directory's watch has reported no change to the file since its last stat:
    // then neither its record nor its last use can have changed.
    bool trusted = false;
  };
  std::string PathOf(std::string_view id) const;
  std::optional<Read> ReadFile(std::string_view id, const std::string& path) const;
  // True when the directory is watched (from now on).
  bool Watch();
  // Stops trusting the records of the files the watch reports changed.
  void Untrust();

  std::string dir_;
  int idle_seconds_;
  int lifetime_seconds_;
  std::unordered_map<std::string, Read> read_;
  FileWatch watch_;
  int dir_watch_ = -1;
  bool can_watch_ = true;
};

}  // namespace qrix::host

#endif  // QRIX_HOST_SESSION_STORE_H_
