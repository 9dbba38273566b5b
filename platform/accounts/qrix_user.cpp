#include "platform/accounts/qrix_user.h"

#include <grp.h>
#include <pwd.h>
#include <strings.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/vlibc/vlibc_error.h"

namespace {

// getpw*_r need a scratch buffer whose size NSS may ask to grow.
struct PasswdEntry {
  passwd pw{};
  std::vector<char> buffer = std::vector<char>(4096);
};

bool LookUpExact(const char* name, PasswdEntry* entry) {
  for (;;) {
    passwd* found = nullptr;
    const int rc = getpwnam_r(name, &entry->pw, entry->buffer.data(), entry->buffer.size(), &found);
    if (rc == ERANGE && entry->buffer.size() < (1u << 20)) {
      entry->buffer.resize(entry->buffer.size() * 2);
      continue;
    }
    return rc == 0 && found != nullptr;
  }
}

// The whole account list is walked only when the exact name is not there.
bool LookUpIgnoringCase(const char* name, PasswdEntry* entry) {
  bool found = false;
  setpwent();
  for (;;) {
    passwd* next = nullptr;
    const int rc = getpwent_r(&entry->pw, entry->buffer.data(), entry->buffer.size(), &next);
    if (rc == ERANGE && entry->buffer.size() < (1u << 20)) {
      entry->buffer.resize(entry->buffer.size() * 2);
      continue;
    }
    if (rc != 0 || next == nullptr) {
      break;
    }
    if (strcasecmp(next->pw_name, name) == 0) {
      found = true;
      break;
    }
  }
  endpwent();
  return found;
}

bool LookUp(const char* name, PasswdEntry* entry) {
  if (name == nullptr || name[0] == '\0') {
    VLIBCErrSet(ERR_BAD_PARAMETERS);
    return false;
  }
  if (LookUpExact(name, entry) || LookUpIgnoringCase(name, entry)) {
    return true;
  }
  VLIBCErrSet(ERR_NOT_FOUND);
  return false;
}

}  // namespace

extern "C" int QRIXUserGet(const char* name, PQRIXUSER* user) {
  PasswdEntry entry;
  if (user == nullptr || !LookUp(name, &entry)) {
    if (user == nullptr) {
      VLIBCErrSet(ERR_BAD_PARAMETERS);
    }
    return -1;
  }
  auto* record = static_cast<QRIXUSER*>(std::calloc(1, sizeof(QRIXUSER)));
  if (record != nullptr) {
    record->szName = strdup(entry.pw.pw_name);
    record->szHome = strdup(entry.pw.pw_dir != nullptr ? entry.pw.pw_dir : "");
    record->uid = entry.pw.pw_uid;
    record->gid = entry.pw.pw_gid;
  }
  if (record == nullptr || record->szName == nullptr || record->szHome == nullptr) {
    QRIXUserFree(record);
    VLIBCErrSet(ERR_OUT_OF_MEMORY);
    return -1;
  }
  *user = record;
  return 0;
}

extern "C" void QRIXUserFree(PQRIXUSER user) {
  if (user != nullptr) {
    std::free(user->szName);
    std::free(user->szHome);
    std::free(user);
  }
}

extern "C" int QRIXUserGetUGID(const char* name, uid_t* uid, gid_t* gid) {
  PasswdEntry entry;
  if (uid == nullptr || gid == nullptr) {
    VLIBCErrSet(ERR_BAD_PARAMETERS);
    return -1;
  }
  if (!LookUp(name, &entry)) {
    return -1;
  }
  *uid = entry.pw.pw_uid;
  *gid = entry.pw.pw_gid;
  return 0;
}

namespace qrix::accounts {

std::vector<std::string> GroupsOf(const char* name) {
  PasswdEntry entry;
  if (!LookUp(name, &entry)) {
    return {};
  }
  std::vector<gid_t> gids(32);
  int count = static_cast<int>(gids.size());
  while (getgrouplist(entry.pw.pw_name, entry.pw.pw_gid, gids.data(), &count) < 0) {
    gids.resize(static_cast<size_t>(count) + 16);
    count = static_cast<int>(gids.size());
  }
  std::vector<std::string> names;
  std::vector<char> buffer(4096);
  for (int i = 0; i < count; ++i) {
    group gr{};
    group* found = nullptr;
    int rc;
    while ((rc = getgrgid_r(gids[i], &gr, buffer.data(), buffer.size(), &found)) == ERANGE &&
           buffer.size() < (1u << 20)) {
      buffer.resize(buffer.size() * 2);
    }
    if (rc == 0 && found != nullptr) {
      names.emplace_back(found->gr_name);
    }
  }
  return names;
}

}  // namespace qrix::accounts
