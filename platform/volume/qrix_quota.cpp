#include "platform/volume/qrix_quota.h"

#include <fcntl.h>
#include <sys/quota.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "platform/vlibc/atomic_file.h"
#include "platform/vlibc/unique_fd.h"
#include "platform/vlibc/vlibc_error.h"

namespace {

constexpr uint64_t kQuotaBlock = 1024;  // dqb_*limit count blocks of this size

// An open handle on `path` or, for a path still to be made, on its nearest existing parent.
qrix::UniqueFd OpenNearest(std::string path) {
  for (;;) {
    qrix::UniqueFd fd(::open(path.c_str(), O_PATH | O_CLOEXEC));
    if (fd.Valid() || errno != ENOENT || path == "/" || path.empty()) {
      return fd;
    }
    path = qrix::DirName(path);
  }
}

// Errors that mean "this file system keeps no user quotas".
bool QuotasOff(int error) {
  return error == ESRCH || error == ENOSYS || error == EOPNOTSUPP || error == ENOTTY ||
         error == EINVAL || error == ENOENT;
}

}  // namespace

extern "C" int QRIXQuotaIsEnough(uid_t uid, const char* path, uint64_t size) {
  if (path == nullptr || path[0] != '/') {
    VLIBCErrSet(ERR_BAD_PARAMETERS);
    return -1;
  }
  const qrix::UniqueFd fd = OpenNearest(path);
  if (!fd.Valid()) {
    VLIBCErrSet(ERR_NOT_FOUND);
    return -1;
  }
  dqblk quota{};
#ifdef SYS_quotactl_fd
  const long rc = ::syscall(SYS_quotactl_fd, fd.Get(), QCMD(Q_GETQUOTA, USRQUOTA), uid, &quota);
#else
  errno = ENOSYS;
  const long rc = -1;
#endif
  if (rc != 0) {
    if (QuotasOff(errno)) {
      return 1;
    }
    VLIBCErrSet(ERR_PROC);
    return -1;
  }
  const uint64_t limit = quota.dqb_bhardlimit != 0 ? quota.dqb_bhardlimit : quota.dqb_bsoftlimit;
  if (limit == 0) {
    return 1;
  }
  const uint64_t bytes = limit * kQuotaBlock;
  return quota.dqb_curspace <= bytes && size <= bytes - quota.dqb_curspace ? 1 : 0;
}
