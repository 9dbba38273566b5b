#include "platform/system/qrix_index.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "platform/vlibc/atomic_file.h"
#include "platform/vlibc/unique_fd.h"
#include "platform/vlibc/vlibc_error.h"

namespace {

// Appends the line "<verb> <number> <path>" whole or not at all: the indexer must never read
// half a request.
int Append(const char* verb, unsigned int number, const char* path) {
  if (path == nullptr || path[0] != '/' || std::strpbrk(path, "\r\n") != nullptr) {
    VLIBCErrSet(ERR_BAD_PARAMETERS);
    return -1;
  }
  const std::string line = std::string(verb) + " " + std::to_string(number) + " " + path + "\n";
  ::mkdir(qrix::DirName(QRIX_INDEX_QUEUE).c_str(), 0755);
  const qrix::UniqueFd fd(::open(QRIX_INDEX_QUEUE, O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
  struct stat st {};
  if (!fd.Valid() || ::flock(fd.Get(), LOCK_EX) != 0 || ::fstat(fd.Get(), &st) != 0) {
    VLIBCErrSet(ERR_FILE_OPEN);
    return -1;
  }
  const ssize_t written = ::pwrite(fd.Get(), line.data(), line.size(), st.st_size);
  if (written != static_cast<ssize_t>(line.size())) {
    [[maybe_unused]] const int undone = ::ftruncate(fd.Get(), st.st_size);
    VLIBCErrSet(ERR_FILE_WRITE);
    return -1;
  }
  return 0;
}

}  // namespace

extern "C" int VLIBQrixIndexAdd(const char* path, int kind) {
  if (kind != QRIX_INDEX_FILE && kind != QRIX_INDEX_FOLDER) {
    VLIBCErrSet(ERR_BAD_PARAMETERS);
    return -1;
  }
  return Append("index", static_cast<unsigned int>(kind), path);
}

extern "C" int QRIXFileChangeNotify(const char* path, int flags, unsigned int mask) {
  if (flags != 0) {
    VLIBCErrSet(ERR_BAD_PARAMETERS);
    return -1;
  }
  return Append("change", mask, path);
}
