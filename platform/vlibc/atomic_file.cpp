#include "platform/vlibc/atomic_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <vector>

#include "platform/vlibc/package_account.h"
#include "platform/vlibc/unique_fd.h"

namespace qrix {
namespace {

std::string TemporaryPrefix(const std::string& path) {
  return "." + BaseName(path) + ".tmp.";
}

// Unlinks the temporary file unless it was renamed into place.
class TemporaryFile {
 public:
  explicit TemporaryFile(const std::string& target) {
    std::string pattern = DirName(target) + "/" + TemporaryPrefix(target) + "XXXXXX";
    std::vector<char> buf(pattern.begin(), pattern.end());
    buf.push_back('\0');
    fd_.Reset(::mkostemp(buf.data(), O_CLOEXEC));
    if (fd_.Valid()) {
      path_.assign(buf.data());
    }
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() {
    if (!path_.empty()) {
      ::unlink(path_.c_str());
    }
  }
  int Fd() const { return fd_.Get(); }
  bool Valid() const { return fd_.Valid(); }
  const std::string& Path() const { return path_; }
  void Published() { path_.clear(); }

 private:
  UniqueFd fd_;
  std::string path_;
};

int WriteAll(int fd, std::string_view data) {
  while (!data.empty()) {
    const ssize_t n = ::write(fd, data.data(), data.size());
    if (n < 0) {
      if (errno == EINTR) {
        continue;
      }
      return errno;
    }
    data.remove_prefix(static_cast<size_t>(n));
  }
  return 0;
}

}  // namespace

std::string BaseName(std::string_view path) {
  const size_t slash = path.rfind('/');
  return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

std::string DirName(std::string_view path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string_view::npos) {
    return ".";
  }
  return std::string(slash == 0 ? std::string_view("/") : path.substr(0, slash));
}

int PublishFile(const std::string& path, std::string_view content, mode_t new_mode) {
  struct stat old {};
  const bool exists = ::stat(path.c_str(), &old) == 0;
  TemporaryFile tmp(path);
  if (!tmp.Valid()) {
    return errno;
  }
  if (int err = WriteAll(tmp.Fd(), content)) {
    return err;
  }
  FileAccess want = exists ? FileAccess{old.st_uid, old.st_gid, old.st_mode & 07777}
                           : FileAccess{::geteuid(), ::getegid(), new_mode};
  if (const std::optional<FileAccess> fixed =
          PackageFileAccess(path, exists ? std::optional<uid_t>(old.st_uid) : std::nullopt)) {
    want = *fixed;
  }
  // Only root may give a file away; anyone else keeps writing files as themselves.
  if ((want.uid != ::geteuid() || want.gid != ::getegid()) &&
      ::fchown(tmp.Fd(), want.uid, want.gid) != 0 && ::geteuid() == 0) {
    return errno;
  }
  if (::fchmod(tmp.Fd(), want.mode) != 0) {
    return errno;
  }
  if (::fsync(tmp.Fd()) != 0) {
    return errno;
  }
  if (::rename(tmp.Path().c_str(), path.c_str()) != 0) {
    return errno;
  }
  tmp.Published();
  UniqueFd dir(::open(DirName(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!dir.Valid() || ::fsync(dir.Get()) != 0) {
    return errno;
  }
  return 0;
}

int ReadFile(const std::string& path, std::string* out) {
  UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd.Valid()) {
    return errno;
  }
  return ReadFd(fd.Get(), out);
}

int ReadFd(int fd, std::string* out) {
  out->clear();
  char buf[8192];
  for (;;) {
    const ssize_t n = ::read(fd, buf, sizeof buf);
    if (n < 0) {
      if (errno == EINTR) {
        continue;
      }
      return errno;
    }
    if (n == 0) {
      return 0;
    }
    out->append(buf, static_cast<size_t>(n));
  }
}

void RemoveStaleTemporaries(const std::string& path) {
  const std::string dir_path = DirName(path);
  const std::string prefix = TemporaryPrefix(path);
  DIR* dir = ::opendir(dir_path.c_str());
  if (dir == nullptr) {
    return;
  }
  while (const dirent* entry = ::readdir(dir)) {
    const std::string_view name(entry->d_name);
    if (name.size() == prefix.size() + 6 && name.substr(0, prefix.size()) == prefix) {
      ::unlinkat(::dirfd(dir), entry->d_name, 0);
    }
  }
  ::closedir(dir);
}

}  // namespace qrix
