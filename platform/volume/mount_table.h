// The mount table as the volumes see it: every mount of /proc/self/mountinfo, and which of them
// are the system's volumes (/volume<N>, /volumeUSB<N>/<share>, /volumeSATA<N>/<share>).
#ifndef QRIX_PLATFORM_VOLUME_MOUNT_TABLE_H_
#define QRIX_PLATFORM_VOLUME_MOUNT_TABLE_H_

#include <string>
#include <string_view>
#include <vector>

#include "platform/qrix_export.h"

namespace qrix::volume {

enum class Kind { kNone, kInternal, kUsb, kSata };

struct Mount {
  std::string mount_point;
  std::string fs_type;
  std::string source;
  bool read_only = false;        // this mount is read-only (a read-only bind, say)
  bool super_read_only = false;  // the file system itself is (an error remount, say)
};

// The mounts of this process, in table order; empty when the table cannot be read.
QRIX_EXPORT std::vector<Mount> ReadMounts();
// Parses mountinfo text (exposed for its own tests).
QRIX_EXPORT std::vector<Mount> ParseMountInfo(std::string_view text);

// What kind of volume `mount_point` is, and its number (1 for /volume1 and /volumeUSB1/...).
QRIX_EXPORT Kind VolumeKind(std::string_view mount_point, int* number = nullptr);

// The volumes of the mount table, each mount point once (the last mount over it wins), in
// table order.
QRIX_EXPORT std::vector<Mount> VolumeMounts();

// The volume that holds `path` (already resolved): the longest volume mount point that is
// `path` or one of its parents. False when none does.
QRIX_EXPORT bool VolumeOf(const std::vector<Mount>& volumes, std::string_view path, Mount* out);

}  // namespace qrix::volume

#endif  // QRIX_PLATFORM_VOLUME_MOUNT_TABLE_H_
