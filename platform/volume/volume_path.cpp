#include "platform/volume/volume_path.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/vlibc/vlibc_error.h"
#include "platform/volume/mount_table.h"

extern "C" int VolumePathParseEx(const char* path, QRIX_VOLUME_INFO* info) {
  if (path == nullptr || info == nullptr) {
    VLIBCErrSet(ERR_BAD_PARAMETERS);
    return -1;
  }
  char resolved[PATH_MAX];
  qrix::volume::Mount volume;
  if (::realpath(path, resolved) == nullptr ||
      !qrix::volume::VolumeOf(qrix::volume::VolumeMounts(), resolved, &volume) ||
      volume.mount_point.size() >= sizeof info->vol_path) {
    VLIBCErrSet(ERR_NOT_FOUND);
    return -1;
  }
  std::memset(info, 0, sizeof *info);
  std::memcpy(info->vol_path, volume.mount_point.c_str(), volume.mount_point.size());
  std::snprintf(info->fs_type, sizeof info->fs_type, "%s", volume.fs_type.c_str());
  switch (qrix::volume::VolumeKind(volume.mount_point, &info->number)) {
    case qrix::volume::Kind::kUsb:
      info->kind = QRIX_VOLUME_USB;
      break;
    case qrix::volume::Kind::kSata:
      info->kind = QRIX_VOLUME_SATA;
      break;
    default:
      info->kind = QRIX_VOLUME_INTERNAL;
      break;
  }
  info->read_only = volume.read_only || volume.super_read_only;
  return 0;
}
