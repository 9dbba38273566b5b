// qrixfstool: file-system checks for the package's scripts and libraries.
//   qrixfstool --check-volume-writable PATH
//       exit status 1 when the file system holding PATH takes writes, 0 when it is read-only,
//       2 when PATH cannot be checked (with the reason on standard error).
#include <sys/statvfs.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

int main(int argc, char** argv) {
  if (argc != 3 || std::strcmp(argv[1], "--check-volume-writable") != 0) {
    std::fprintf(stderr, "usage: qrixfstool --check-volume-writable PATH\n");
    return 2;
  }
  struct statvfs fs {};
  if (::statvfs(argv[2], &fs) != 0) {
    std::fprintf(stderr, "qrixfstool: cannot check %s: %s\n", argv[2], std::strerror(errno));
    return 2;
  }
  return (fs.f_flag & ST_RDONLY) != 0 ? 0 : 1;
}
