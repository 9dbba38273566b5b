// The volumes as the web pages list them. Each entry of "volume_list" is an object:
//   "display"      the name a person knows it by: "Volume 1", or an external disk's share name
//   "mount_point"  "/volume1", "/volumeUSB1/usbshare1-1"
//   "status"       "normal"; "read_only" for an external volume mounted read-only (write-protected
//                  or a file system without write support); "crashed" for a volume whose file
//                  system cannot be read or went read-only, and for an internal volume mounted
//                  read-only, which only happens after errors
//   "free_size", "total_size"  bytes (free: what ordinary users may still write), 0 when
//                  crashed and unreadable
//   "fs_type"      "ext4", "btrfs", ...
#ifndef QRIX_PLATFORM_VOLUME_STORAGE_VOLUME_H_
#define QRIX_PLATFORM_VOLUME_STORAGE_VOLUME_H_

#include <json/json.h>

#include <string>

#include "platform/qrix_export.h"

namespace QRIX::KRS::STORAGE_WEBUTILS {

class QRIX_EXPORT Volume {
 public:
  // Kinds of volume to list, or-ed: 13 lists every kind this system has.
  enum Kinds { kInternal = 0x1, kUsb = 0x4, kSata = 0x8 };

  explicit Volume(int kinds) : kinds_(kinds) {}

  // Writes "volume_list" (entries in mount-table order) and "volume_count" into `out`; with
  // `writable_only`, only volumes whose status is "normal".
  void VolumeListGet(Json::Value& out, bool writable_only) const;

  // The display name of the volume mounted at `path`, or `path` itself when it is none.
  static std::string ToUIVolumeStr(const std::string& path);

 private:
  int kinds_;
};

}  // namespace QRIX::KRS::STORAGE_WEBUTILS

#endif  // QRIX_PLATFORM_VOLUME_STORAGE_VOLUME_H_
