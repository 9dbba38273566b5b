#include "module/dlcommon/critical_section.h"

#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace QRIXDL {
namespace {

struct Ids {
  unsigned r, e, s;
};

Ids ReadIds(bool group) {
  Ids ids{};
  if (group) {
    gid_t r, e, s;
    getresgid(&r, &e, &s);
    ids = {r, e, s};
  } else {
    uid_t r, e, s;
    getresuid(&r, &e, &s);
    ids = {r, e, s};
  }
  return ids;
}

// Sets the effective user or group id to `id` with the logging every switch carries.
bool SetEffective(bool group, unsigned id, const char* source, int line) {
  const char* what = group ? "resgid" : "resuid";
  const Ids before = ReadIds(group);
  const int rc = group ? setresgid(-1, id, -1) : setresuid(-1, id, -1);
  if (rc != 0) {
    char text[1024];
    const char* msg = strerror_r(errno, text, sizeof text);
    syslog(LOG_AUTH | LOG_ERR, "%s:%d ERROR: set%s(%d, %d, %d) [%s]", source, line, what, -1,
           static_cast<int>(id), -1, msg);
    errno = 1;
    return false;
  }
  if (id == 0) {
    syslog(LOG_AUTH | LOG_INFO, "%s:%d WARNING: set%s(%d, %d, %d)", source, line, what, -1, 0, -1);
  }
  const Ids after = ReadIds(group);
  syslog(LOG_AUTH | LOG_DEBUG, "%s:%d set%s: (%d, %d, %d) -> (%d, %d, %d)", source, line, what,
         static_cast<int>(before.r), static_cast<int>(before.e), static_cast<int>(before.s),
         static_cast<int>(after.r), static_cast<int>(after.e), static_cast<int>(after.s));
  return true;
}

}  // namespace

RootCriticalSection::RootCriticalSection(const char* source, int line)
    : source_(source), line_(line), saved_euid_(geteuid()), saved_egid_(getegid()) {
  if ((saved_egid_ != 0 && !SetEffective(true, 0, source_, line_)) ||
      (saved_euid_ != 0 && !SetEffective(false, 0, source_, line_))) {
    syslog(LOG_AUTH | LOG_ERR, "%s:%d ERROR: ENTERCriticalSection", source_, line_);
    return;
  }
  errno = 0;
  entered_ = true;
  syslog(LOG_AUTH | LOG_INFO, "%s:%d ENTERCriticalSection", source_, line_);
}

RootCriticalSection::~RootCriticalSection() {
  if (!left_) {
    Leave(line_);
  }
}

bool RootCriticalSection::Become(uid_t uid, gid_t gid, int line) {
  // An unknown identity is no identity: setting -1 would change nothing and look like success.
  if (uid == static_cast<uid_t>(-1) || gid == static_cast<gid_t>(-1)) {
    return false;
  }
  return SetEffective(true, gid, source_, line) && SetEffective(false, uid, source_, line);
}

bool RootCriticalSection::Leave(int line) {
  left_ = true;
  const bool uid_differs = geteuid() != saved_euid_;
  // Changing the group needs root, so become root first when the user id moved.
  bool ok = !uid_differs || SetEffective(false, 0, source_, line);
  if (ok && getegid() != saved_egid_) {
    ok = SetEffective(true, saved_egid_, source_, line);
  }
  if (ok && uid_differs) {
    ok = SetEffective(false, saved_euid_, source_, line);
  }
  if (!ok) {
    syslog(LOG_AUTH | LOG_ERR, "%s:%d ERROR: LEAVECriticalSection", source_, line);
    return false;
  }
  errno = 0;
  syslog(LOG_AUTH | LOG_INFO, "%s:%d LEAVECriticalSection", source_, line);
  return true;
}

}  // namespace QRIXDL
