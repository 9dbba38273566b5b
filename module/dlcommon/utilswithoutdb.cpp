#include "module/dlcommon/utilswithoutdb.h"

#include <strings.h>
#include <sys/stat.h>
#include <syslog.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "module/dlcommon/critical_section.h"
#include "platform/accounts/qrix_user.h"
#include "platform/shares/qrix_share.h"
#include "platform/system/qrix_fs_type.h"
#include "platform/system/qrix_index.h"
#include "platform/vlibc/vlibc_error.h"
#include "platform/vlibc/vlibc_exec.h"

namespace {

constexpr const char* kSource = "utilswithoutdb";
constexpr const char* kPackageUser = "Haulport";
constexpr int kEventCloseWrite = 64;
constexpr int kMaxSuffix = 268435454;

#define LOG_WITH_ERR(fmt, ...)                                                            \
  syslog(LOG_ERR, "%s:%d " fmt " QrixErr=[0x%04X %s:%d]", kSource, __LINE__, __VA_ARGS__, \
         VLIBCErrGet(), VLIBCErrorGetFile(), VLIBCErrorGetLine())

int g_package_uid = -1;
int g_package_gid = -1;

void LoadPackageIds() {
  uid_t uid;
  gid_t gid;
  if (g_package_uid != -1) {
    return;
  }
  if (QRIXUserGetUGID(kPackageUser, &uid, &gid) != 0) {
    syslog(LOG_ERR, "%s:%d Failed to get UGID for user %s", kSource, __LINE__, kPackageUser);
    return;
  }
  g_package_uid = static_cast<int>(uid);
  g_package_gid = static_cast<int>(gid);
}

struct UserDeleter {
  void operator()(QRIXUSER* user) const { QRIXUserFree(user); }
};
struct ShareDeleter {
  void operator()(QRIXSHARE* share) const { QRIXShareFree(share); }
};

bool IsExternal(const char* path) {
  return std::strncmp(path, "/volumeUSB", 10) == 0 || std::strncmp(path, "/volumeSATA", 11) == 0;
}

std::vector<std::string> Components(std::string_view path) {
  std::vector<std::string> parts;
  while (!path.empty()) {
    const size_t slash = path.find('/');
    if (slash != 0) {
      parts.emplace_back(path.substr(0, slash));
    }
    path = slash == std::string_view::npos ? std::string_view() : path.substr(slash + 1);
  }
  return parts;
}

// Copies `text` whole into `out`, or logs and fails when it does not fit.
int CopyWhole(std::string_view text, char* out, int size) {
  if (static_cast<int>(text.size()) + 1 > size) {
    syslog(LOG_ERR, "%s:%d Buffer size too small, string length [%d], buffer size [%d]", kSource,
           __LINE__, static_cast<int>(text.size()), size);
    return -1;
  }
  std::memcpy(out, text.data(), text.size());
  out[text.size()] = '\0';
  return 0;
}

// The share on an external disk is the one whose folder is the disk's mount point.
int ExternalShareName(const std::vector<std::string>& parts, char* out, int size) {
  const std::string mount = "/" + parts[0] + "/" + parts[1];
  std::vector<std::string> names;
  if (QRIXShareEnumByMntPath(mount.c_str(), &names) < 0) {
    LOG_WITH_ERR("Failed to list the shares on [%s].", mount.c_str());
    return -1;
  }
  for (const std::string& name : names) {
    QRIXSHARE* raw = nullptr;
    if (QRIXShareGet(name.c_str(), &raw) != 0) {
      syslog(LOG_ERR, "%s:%d Failed to get share info for %s", kSource, __LINE__, name.c_str());
      continue;
    }
    const std::unique_ptr<QRIXSHARE, ShareDeleter> share(raw);
    if (mount == share->szPath) {
      return CopyWhole(name, out, size);
    }
  }
  return -1;
}

struct UrlPrefix {
  const char* prefix;
  int type;
};

constexpr UrlPrefix kUrlPrefixes[] = {
    {"http://", QRIXDL_URL_HTTP},         {"https://", QRIXDL_URL_HTTPS},
    {"magnet:?", QRIXDL_URL_MAGNET},      {"ed2k://", QRIXDL_URL_ED2K},
    {"ftp://", QRIXDL_URL_FTP},           {"ftps://", QRIXDL_URL_FTPS},
    {"sftp://", QRIXDL_URL_SFTP},         {"thunder://", QRIXDL_URL_THUNDER},
    {"flashget://", QRIXDL_URL_FLASHGET}, {"qqdl://", QRIXDL_URL_QQDL},
};

}  // namespace

extern "C" {

int GetPackageUID(void) {
  LoadPackageIds();
  return g_package_uid;
}

int GetPackageGID(void) {
  LoadPackageIds();
  return g_package_gid;
}

int DownloadUtilsChangeOwner(const char* path, const char* user) {
  if (path == nullptr || user == nullptr) {
    syslog(LOG_ERR, "%s:%d Bad parameters", kSource, __LINE__);
    return -1;
  }
  int type;
  {
    const QRIXDL::RootCriticalSection root(kSource, __LINE__);
    type = QRIXGetFSType(path);
  }
  if (type == -1) {
    syslog(LOG_ERR, "%s:%d Failed to get FS type of [%s]", kSource, __LINE__, path);
    return -1;
  }
  if (type == QRIX_FS_FAT || type == QRIX_FS_NTFS) {
    return 0;
  }
  QRIXUSER* raw = nullptr;
  if (QRIXUserGet(user, &raw) != 0) {
    LOG_WITH_ERR("Failed to get user [%s].", user);
    return -1;
  }
  const std::unique_ptr<QRIXUSER, UserDeleter> record(raw);
  char ids[32];
  std::snprintf(ids, sizeof ids, "%i:%i", static_cast<int>(record->uid),
                static_cast<int>(record->gid));
  int rc;
  {
    const QRIXDL::RootCriticalSection root(kSource, __LINE__);
    rc = VLIBCExec("/bin/chown", "-R", ids, path, nullptr);
  }
  if (rc != 0) {
    syslog(LOG_ERR, "%s:%d Failed to exec chown -R [%s] [%s].", kSource, __LINE__, ids, path);
    return -1;
  }
  return 0;
}

int DownloadUtilsGetShareNameByPath(const char* path, char* out, int size) {
  if (path == nullptr || out == nullptr || size < 1) {
    syslog(LOG_ERR, "%s:%d Bad parameter", kSource, __LINE__);
    return -1;
  }
  const std::string_view text = path;
  if (text.empty() || text[0] != '/') {
    return CopyWhole(text.substr(0, text.find('/')), out, size);
  }
  const std::vector<std::string> parts = Components(text);
  if (parts.size() < 2) {
    syslog(LOG_ERR, "%s:%d Failed to find share name. Invalid path [%s].", kSource, __LINE__, path);
    return -1;
  }
  if (IsExternal(path)) {
    return ExternalShareName(parts, out, size);
  }
  return CopyWhole(parts[1] == "homes" ? "home" : parts[1], out, size);
}

int DownloadUtilsIsEncryptShare(const char* path) {
  if (path == nullptr) {
    syslog(LOG_ERR, "%s:%d Bad parameter.", kSource, __LINE__);
    return 0;
  }
  if (IsExternal(path)) {
    return 0;
  }
  char name[4096];
  if (DownloadUtilsGetShareNameByPath(path, name, sizeof name) != 0) {
    syslog(LOG_ERR, "%s:%d Failed to get share name from [%s]", kSource, __LINE__, path);
    return 0;
  }
  // Homes: "home" as written, or the "homes" folder of a volume (which the name comes back as).
  if (std::strcmp(name, "home") == 0) {
    return 0;
  }
  QRIXSHARE* raw = nullptr;
  if (QRIXShareGet(name, &raw) != 0) {
    LOG_WITH_ERR("Failed to get share [%s].", name);
    return 0;
  }
  const std::unique_ptr<QRIXSHARE, ShareDeleter> share(raw);
  return (share->fStatus & 6) != 0 ? 1 : 0;
}

int DownloadUtilsNotifyIndexing(const char* path) {
  if (path == nullptr) {
    syslog(LOG_ERR, "%s:%d Bad parameter", kSource, __LINE__);
    return -1;
  }
  struct stat st {};
  int stat_errno = 0;
  int queued = 0;
  {
    const QRIXDL::RootCriticalSection root(kSource, __LINE__);
    if (::stat(path, &st) != 0) {
      stat_errno = errno;
    } else if (S_ISREG(st.st_mode) || S_ISDIR(st.st_mode)) {
      queued = VLIBQrixIndexAdd(path, S_ISREG(st.st_mode) ? QRIX_INDEX_FILE : QRIX_INDEX_FOLDER);
      if (queued == 0) {
        queued = QRIXFileChangeNotify(path, 0, kEventCloseWrite);
      }
    }
  }
  if (stat_errno != 0) {
    // What %m would print; -Wpedantic refuses %m itself.
    syslog(LOG_ERR, "%s:%d Failed to stat [%s]. %s", kSource, __LINE__, path,
           std::strerror(stat_errno));
    return -1;
  }
  if (!S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode)) {
    syslog(LOG_ERR, "%s:%d Invalid mode [%d] for [%s]", kSource, __LINE__,
           static_cast<int>(st.st_mode), path);
    return -1;
  }
  if (queued != 0) {
    LOG_WITH_ERR("Failed to queue [%s] for indexing.", path);
    return -1;
  }
  return 0;
}

int QRIXDLValidateFilename(char* out, int size, const char* dir, const char* name) {
  if (dir == nullptr || name == nullptr || out == nullptr || size < 1) {
    syslog(LOG_ERR, "%s:%d Bad parameter", kSource, __LINE__);
    return -1;
  }
  const std::string file(name, strnlen(name, 1023));
  const size_t dot = file.rfind('.');
  const std::string base = file.substr(0, dot);
  const std::string ext = dot == std::string::npos ? "" : file.substr(dot);  // with its dot
  const size_t cap = static_cast<size_t>(size);
  std::snprintf(out, cap, "%s/%s", dir, file.c_str());
  struct stat st {};
  for (int counter = 1; ::lstat(out, &st) == 0 && counter <= kMaxSuffix; ++counter) {
    std::snprintf(out, cap, "%s/%s%d%s", dir, base.c_str(), counter, ext.c_str());
  }
  return 0;
}

int QRIXDLGetURLType(const char* url) {
  if (url == nullptr) {
    return QRIXDL_URL_OTHER;
  }
  for (const UrlPrefix& p : kUrlPrefixes) {
    if (strncasecmp(url, p.prefix, std::strlen(p.prefix)) == 0) {
      return p.type;
    }
  }
  return QRIXDL_URL_OTHER;
}

}  // extern "C"
