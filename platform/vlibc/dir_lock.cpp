#include "platform/vlibc/dir_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>

namespace qrix {

DirectoryLock::DirectoryLock(const std::string& dir)
    : fd_(::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
  while (fd_.Valid() && ::flock(fd_.Get(), LOCK_EX) != 0) {
    if (errno != EINTR) {
      fd_.Reset();
    }
  }
}

int MakeDirectories(const std::string& dir, unsigned mode) {
  for (size_t slash = dir.find('/', 1);; slash = dir.find('/', slash + 1)) {
    const std::string prefix = dir.substr(0, slash);
    if (!prefix.empty() && ::mkdir(prefix.c_str(), mode) != 0 && errno != EEXIST) {
      return errno;
    }
    if (slash == std::string::npos) {
      break;
    }
  }
  struct stat st {};
  if (::stat(dir.c_str(), &st) != 0) {
    return errno;
  }
  return S_ISDIR(st.st_mode) ? 0 : ENOTDIR;
}

}  // namespace qrix
