#include "platform/accounts/qrix_group.h"

#include <grp.h>
#include <pwd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "platform/vlibc/vlibc_error.h"

namespace {

// Calls a reentrant NSS lookup with a buffer that grows until the entry fits. Returns the
// lookup's error (0 with *found null when there is no such entry).
template <typename Entry, typename Lookup>
int LookUp(Lookup lookup, Entry* entry, Entry** found, std::vector<char>* buffer) {
  buffer->resize(1024);
  int error;
  while ((error = lookup(entry, buffer->data(), buffer->size(), found)) == ERANGE &&
         buffer->size() < (1u << 20)) {
    buffer->resize(buffer->size() * 2);
  }
  return error;
}

}  // namespace

extern "C" int VLIBGroupIsAdminGroupMemByUid(uid_t uid, int with_primary) {
  passwd pw{};
  passwd* user = nullptr;
  std::vector<char> user_buffer;
  if (LookUp(
          [uid](passwd* e, char* b, size_t n, passwd** f) { return getpwuid_r(uid, e, b, n, f); },
          &pw, &user, &user_buffer) != 0) {
    VLIBCErrSet(ERR_PROC);
    return -1;
  }
  if (user == nullptr) {
    VLIBCErrSet(ERR_NOT_FOUND);
    return -1;
  }
  group gr{};
  group* admins = nullptr;
  std::vector<char> group_buffer;
  if (LookUp([](group* e, char* b, size_t n,
                group** f) { return getgrnam_r(QRIX_ADMIN_GROUP, e, b, n, f); },
             &gr, &admins, &group_buffer) != 0) {
    VLIBCErrSet(ERR_PROC);
    return -1;
  }
  if (admins == nullptr) {
    return 0;
  }
  if (with_primary != 0 && user->pw_gid == admins->gr_gid) {
    return 1;
  }
  for (char** member = admins->gr_mem; *member != nullptr; ++member) {
    if (std::strcmp(*member, user->pw_name) == 0) {
      return 1;
    }
  }
  return 0;
}
