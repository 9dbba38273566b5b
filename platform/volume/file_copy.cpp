// The tree is walked with directory descriptors (openat and friends, never following links), so
// nothing renamed meanwhile can steer the copy outside the two trees. File data moves with
// FICLONE where the file system shares extents, else copy_file_range, else read and write.
#include "platform/volume/file_copy.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <filesystem>
#include <memory>
#include <string>

#include "platform/vlibc/unique_fd.h"
#include "platform/vlibc/vlibc_error.h"

namespace {

using qrix::UniqueFd;

struct DirClose {
  void operator()(DIR* dir) const { ::closedir(dir); }
};
using DirStream = std::unique_ptr<DIR, DirClose>;

class Copier {
 public:
  explicit Copier(const QRIX_COPY_OPTIONS& options) : options_(options) {}

  // Copies the contents of directory `src` into directory `dst`.
  bool CopyContents(int src, int dst);
  // Sets what the options keep of `st` on the entry `name` of `dir` (or on `fd` when >= 0).
  bool Apply(int dir, const char* name, int fd, const struct stat& st);
  int error() const { return error_; }

 private:
  bool CopyEntry(int src, int dst, const char* name);
  bool CopyFile(int src, int dst, const char* name, const struct stat& st);
  bool CopyData(int in, int out, off_t size);
  bool Fail(int code) {
    if (error_ == ERR_NONE) {
      error_ = (errno == ENOSPC || errno == EDQUOT) ? ERR_NO_SPACE : code;
    }
    return false;
  }

  QRIX_COPY_OPTIONS options_;
  int error_ = ERR_NONE;
  char buffer_[128 * 1024];
};

bool Copier::Apply(int dir, const char* name, int fd, const struct stat& st) {
  const int at = fd >= 0 ? fd : dir;
  const char* path = fd >= 0 ? "" : name;
  const int flags = AT_SYMLINK_NOFOLLOW | (fd >= 0 ? AT_EMPTY_PATH : 0);
  // Owner first: changing it clears the setuid and setgid bits the mode then puts back.
  if (options_.keep_owner != 0 && ::fchownat(at, path, st.st_uid, st.st_gid, flags) != 0) {
    return Fail(ERR_FILE_WRITE);
  }
  if (options_.keep_mode != 0 && !S_ISLNK(st.st_mode)) {
    const mode_t mode = st.st_mode & (options_.keep_owner != 0 ? 07777 : 0777);
    if ((fd >= 0 ? ::fchmod(fd, mode) : ::fchmodat(dir, name, mode, 0)) != 0) {
      return Fail(ERR_FILE_WRITE);
    }
  }
  if (options_.keep_times != 0) {
    const timespec times[2] = {st.st_atim, st.st_mtim};
    if ((fd >= 0 ? ::futimens(fd, times) : ::utimensat(dir, name, times, AT_SYMLINK_NOFOLLOW)) !=
        0) {
      return Fail(ERR_FILE_WRITE);
    }
  }
  return true;
}

bool Copier::CopyContents(int src, int dst) {
  DirStream dir(::fdopendir(::dup(src)));
  if (!dir) {
    return Fail(ERR_FILE_READ);
  }
  errno = 0;
  while (const dirent* entry = ::readdir(dir.get())) {
    const std::string_view name(entry->d_name);
    if (name != "." && name != ".." && !CopyEntry(src, dst, entry->d_name)) {
      return false;
    }
    errno = 0;
  }
  return errno == 0 || Fail(ERR_FILE_READ);
}

bool Copier::CopyEntry(int src, int dst, const char* name) {
  struct stat st {};
  const int follow = options_.keep_links != 0 ? AT_SYMLINK_NOFOLLOW : 0;
  if (::fstatat(src, name, &st, follow) != 0) {
    return Fail(ERR_FILE_READ);
  }
  if (S_ISDIR(st.st_mode)) {
    if (::mkdirat(dst, name, 0700) != 0 && errno != EEXIST) {
      return Fail(ERR_FILE_WRITE);
    }
    const UniqueFd in(::openat(src, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
    const UniqueFd out(::openat(dst, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
    if (!in.Valid() || !out.Valid()) {
      return Fail(in.Valid() ? ERR_FILE_WRITE : ERR_FILE_READ);
    }
    // Times last: filling the directory would change them again.
    return CopyContents(in.Get(), out.Get()) && Apply(dst, name, out.Get(), st);
  }
  if (S_ISREG(st.st_mode)) {
    return CopyFile(src, dst, name, st);
  }
  if (S_ISSOCK(st.st_mode)) {
    return true;  // a socket is a live endpoint, not data
  }
  if (::unlinkat(dst, name, 0) != 0 && errno != ENOENT) {
    return Fail(ERR_FILE_WRITE);
  }
  if (S_ISLNK(st.st_mode)) {
    char target[PATH_MAX];
    const ssize_t n = ::readlinkat(src, name, target, sizeof target - 1);
    if (n < 0) {
      return Fail(ERR_FILE_READ);
    }
    target[n] = '\0';
    if (::symlinkat(target, dst, name) != 0) {
      return Fail(ERR_FILE_WRITE);
    }
  } else if (::mknodat(dst, name, st.st_mode & S_IFMT, st.st_rdev) != 0) {
    return Fail(ERR_FILE_WRITE);
  }
  return Apply(dst, name, -1, st);
}

bool Copier::CopyFile(int src, int dst, const char* name, const struct stat& st) {
  const UniqueFd in(::openat(src, name, O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  if (!in.Valid()) {
    return Fail(ERR_FILE_READ);
  }
  UniqueFd out(::openat(dst, name, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600));
  if (!out.Valid() && errno == ELOOP) {  // a link in the way is replaced, never written through
    ::unlinkat(dst, name, 0);
    out.Reset(::openat(dst, name, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600));
  }
  if (!out.Valid()) {
    return Fail(ERR_FILE_WRITE);
  }
  return CopyData(in.Get(), out.Get(), st.st_size) && Apply(dst, name, out.Get(), st);
}

bool Copier::CopyData(int in, int out, off_t size) {
  if (size > 0 && ::ioctl(out, FICLONE, in) == 0) {
    return true;
  }
  bool kernel_copy = true;
  for (;;) {
    ssize_t n;
    if (kernel_copy) {
      n = ::copy_file_range(in, nullptr, out, nullptr, 1 << 30, 0);
      if (n < 0 && (errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP ||
                    errno == EBADF)) {
        kernel_copy = false;
        continue;
      }
    } else {
      n = ::read(in, buffer_, sizeof buffer_);
      for (ssize_t done = 0; n > 0 && done < n;) {
        const ssize_t w = ::write(out, buffer_ + done, static_cast<size_t>(n - done));
        if (w < 0 && errno != EINTR) {
          return Fail(ERR_FILE_WRITE);
        }
        done += w > 0 ? w : 0;
      }
    }
    if (n == 0) {
      return true;
    }
    if (n < 0 && errno != EINTR) {
      return Fail(ERR_FILE_WRITE);
    }
  }
}

}  // namespace

extern "C" int QRIXFileCopyDirectory(const char* from, const char* to,
                                     const QRIX_COPY_OPTIONS* options) {
  if (from == nullptr || to == nullptr || from[0] == '\0' || to[0] == '\0') {
    VLIBCErrSet(ERR_BAD_PARAMETERS);
    return -1;
  }
  const QRIX_COPY_OPTIONS none{};
  const auto copier = std::make_unique<Copier>(options != nullptr ? *options : none);
  const UniqueFd src(::open(from, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  struct stat st {};
  if (!src.Valid() || ::fstat(src.Get(), &st) != 0) {
    VLIBCErrSet(ERR_FILE_READ);
    return -1;
  }
  const bool made = ::mkdir(to, 0700) == 0;
  const UniqueFd dst(::open(to, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (dst.Valid() && copier->CopyContents(src.Get(), dst.Get()) &&
      copier->Apply(-1, nullptr, dst.Get(), st)) {
    return 0;
  }
  const int error = copier->error() != ERR_NONE ? copier->error()
                    : errno == ENOSPC           ? ERR_NO_SPACE
                                                : ERR_FILE_WRITE;
  if (made) {
    std::error_code ignored;
    std::filesystem::remove_all(to, ignored);
  }
  VLIBCErrSet(error);
  return -1;
}
