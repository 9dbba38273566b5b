#include "host/dispatch/uploads.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "host/common/host_log.h"
#include "platform/vlibc/dir_lock.h"
#include "platform/vlibc/unique_fd.h"

namespace qrix::host {
namespace {

// The directory, made when missing; refused unless it is this process's own, 0700, not a link.
bool PrivateDirectory() {
  if (const int err = MakeDirectories(kUploadDir, 0700); err != 0) {
    LogFailure("cannot make the upload directory", kUploadDir, err);
    return false;
  }
  struct stat st {};
  if (::lstat(kUploadDir, &st) != 0 || !S_ISDIR(st.st_mode) || st.st_uid != ::geteuid() ||
      (st.st_mode & 077) != 0) {
    LogFailure("refusing the upload directory", kUploadDir, "not a private directory");
    return false;
  }
  return true;
}

std::optional<std::string> RandomName() {
  unsigned char bytes[16];
  if (::getrandom(bytes, sizeof bytes, 0) != static_cast<ssize_t>(sizeof bytes)) {
    return std::nullopt;
  }
  static constexpr char kHex[] = "0123456789abcdef";
  std::string name;
  for (const unsigned char b : bytes) {
    name += kHex[b >> 4];
    name += kHex[b & 15];
  }
  return name;
}

}  // namespace

UploadedFiles::~UploadedFiles() {
  for (const std::string& path : paths_) {
    ::unlink(path.c_str());  // the module may have removed or moved it already
  }
}

std::optional<std::string> UploadedFiles::Store(const std::string& content) {
  const std::optional<std::string> name = RandomName();
  if (!PrivateDirectory() || !name) {
    return std::nullopt;
  }
  const std::string path = std::string(kUploadDir) + "/" + *name;
  UniqueFd fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!fd.Valid()) {
    LogFailure("cannot store an upload in", kUploadDir, std::strerror(errno));
    return std::nullopt;
  }
  paths_.push_back(path);
  for (size_t done = 0; done < content.size();) {
    const ssize_t n = ::write(fd.Get(), content.data() + done, content.size() - done);
    if (n < 0 && errno == EINTR) {
      continue;
    }
    if (n <= 0) {
      LogFailure("cannot store an upload in", kUploadDir, std::strerror(errno));
      return std::nullopt;
    }
    done += static_cast<size_t>(n);
  }
  return path;
}

void RemoveStaleUploads() {
  DIR* dir = ::opendir(kUploadDir);
  if (dir == nullptr) {
    return;
  }
  while (const dirent* entry = ::readdir(dir)) {
    if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) {
      ::unlinkat(::dirfd(dir), entry->d_name, 0);
    }
  }
  ::closedir(dir);
}

}  // namespace qrix::host
