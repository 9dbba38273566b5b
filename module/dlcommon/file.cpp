// The temporary download directory, its volume and space, task temporaries and quotas. Log
// lines carry the source name "file" and the line numbers the package's tools look for.
#include "module/dlcommon/file.h"

#include <sys/stat.h>
#include <sys/statfs.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "module/dlcommon/critical_section.h"
#include "platform/accounts/qrix_group.h"
#include "platform/vlibc/vlibc_exec.h"
#include "platform/volume/qrix_quota.h"
#include "platform/volume/volume_path.h"

namespace {

constexpr const char* kSource = "file";
constexpr int kPathSize = 4096;
constexpr int64_t kMinFreeBytes = 0x100000;
constexpr int kExecWait = 0xBB;
constexpr int kExecBackground = 0xFB;  // kExecWait with VLIBC_EXEC_NOWAIT
static_assert((kExecWait | VLIBC_EXEC_NOWAIT) == kExecBackground);

}  // namespace

extern "C" int GetTmpDownloadDirRealPath(char* buf, int size) {
  if (buf == nullptr || size < 0) {
    syslog(LOG_ERR, "%s:%d Bad parameters", kSource, 91);
    return -1;
  }
  std::memset(buf, 0, static_cast<size_t>(size));
  return ::readlink(QRIXDL_TMP_DOWNLOAD_LINK, buf, static_cast<size_t>(size)) < 0 ? -1 : 0;
}

extern "C" int GetTmpDownloadDir(char* buf, int size) {
  if (GetTmpDownloadDirRealPath(buf, size) != 0) {
    return -1;
  }
  struct stat st {};
  if (::stat(buf, &st) != 0 || !S_ISDIR(st.st_mode)) {
    return -1;
  }
  return VLIBCExec(QRIXDL_FSTOOL, "--check-volume-writable", buf, nullptr, nullptr) == 1 ? 0 : -1;
}

extern "C" int GetTmpDownloadDirVol(char* buf, int size) {
  char path[kPathSize] = {};
  QRIX_VOLUME_INFO info{};
  if (GetTmpDownloadDir(path, sizeof path) != 0) {
    syslog(LOG_ERR, "%s:%d Failed to get download temporary directory", kSource, 112);
    return -1;
  }
  if (VolumePathParseEx(path, &info) < 0) {
    syslog(LOG_ERR, "%s:%d Failed to parse path [%s] for volume info", kSource, 116, path);
    return -1;
  }
  if (buf == nullptr || size < 1) {
    return -1;
  }
  return std::snprintf(buf, static_cast<size_t>(size), "%s", info.vol_path) < 0 ? -1 : 0;
}

extern "C" int TmpVolumeSpaceCheck(void) {
  char path[1024];
  if (GetTmpDownloadDir(path, sizeof path) != 0) {
    syslog(LOG_ERR, "%s:%d Failed to get TmpDownloadDir.", kSource, 144);
    return -1;
  }
  if (path[0] == '\0') {
    return 0;
  }
  struct statfs fs {};
  if (::statfs(path, &fs) != 0) {
    syslog(LOG_ERR, "%s:%d statfs() failed [%s]", kSource, 154, std::strerror(errno));
    return -1;
  }
  const int64_t free_bytes = static_cast<int64_t>(fs.f_bsize) * static_cast<int64_t>(fs.f_bavail);
  return free_bytes < kMinFreeBytes ? 1 : 0;
}

extern "C" int RemoveTaskTemp(const char* path, int flag) {
  // Only an absolute path: anything else would reach rm as an option or as nothing at all.
  if (path == nullptr || path[0] != '/' ||
      VLIBCExecl("/bin/rm", flag != 0 ? kExecBackground : kExecWait, "-rf", path, nullptr) != 0) {
    syslog(LOG_ERR, "%s:%d Failed to remove path [%s]", kSource, 179,
           path != nullptr ? path : "(null)");
    return -1;
  }
  return 0;
}

extern "C" int QRIXDLQuotaCheck(uid_t uid, const char* path, uint64_t size) {
  const int admin = VLIBGroupIsAdminGroupMemByUid(uid, 1);
  if (admin == -1) {
    syslog(LOG_ERR, "%s:%d Failed to check if uid %d is admingroup", kSource, 49,
           static_cast<int>(uid));
    return -1;
  }
  if (admin == 1) {
    return 0;
  }
  QRIXDL::RootCriticalSection root(kSource, 55);
  const int verdict = QRIXQuotaIsEnough(uid, path, size) == 1 ? 0 : -1;
  root.Leave(55);  // the verdict stands even when the ids cannot be put back
  return verdict;
}
