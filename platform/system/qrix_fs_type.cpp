#include "platform/system/qrix_fs_type.h"

#include <sys/vfs.h>

#include "platform/vlibc/vlibc_error.h"

namespace {

struct Magic {
  unsigned long magic;  // statfs's f_type
  int code;
};

constexpr Magic kMagics[] = {
    {0x4d44, QRIX_FS_FAT},       {0x2011BAB0, QRIX_FS_FAT},  {0xEF53, QRIX_FS_EXT},
    {0x9123683E, QRIX_FS_BTRFS}, {0x58465342, QRIX_FS_XFS},  {0x01021994, QRIX_FS_TMPFS},
    {0x5346544E, QRIX_FS_NTFS},  {0x7366746E, QRIX_FS_NTFS},  // ntfs, ntfs3
};

}  // namespace

extern "C" int QRIXGetFSType(const char* path) {
  struct statfs fs {};
  if (path == nullptr || ::statfs(path, &fs) != 0) {
    VLIBCErrSet(path == nullptr ? ERR_BAD_PARAMETERS : ERR_NOT_FOUND);
    return -1;
  }
  for (const Magic& m : kMagics) {
    if (static_cast<unsigned long>(fs.f_type) == m.magic) {
      return m.code;
    }
  }
  return QRIX_FS_OTHER;
}
