#include "platform/volume/storage_volume.h"

#include <sys/statvfs.h>

#include "platform/volume/mount_table.h"

namespace QRIX::KRS::STORAGE_WEBUTILS {
namespace {

using qrix::volume::Kind;

int KindBit(Kind kind) {
  switch (kind) {
    case Kind::kInternal:
      return Volume::kInternal;
    case Kind::kUsb:
      return Volume::kUsb;
    case Kind::kSata:
      return Volume::kSata;
    default:
      return 0;
  }
}

Json::Value Entry(const qrix::volume::Mount& m, Kind kind) {
  Json::Value entry(Json::objectValue);
  entry["display"] = Volume::ToUIVolumeStr(m.mount_point);
  entry["mount_point"] = m.mount_point;
  struct statvfs fs {};
  const bool readable = ::statvfs(m.mount_point.c_str(), &fs) == 0;
  const bool read_only = m.read_only || (readable && (fs.f_flag & ST_RDONLY) != 0);
  if (!readable || m.super_read_only || (read_only && kind == Kind::kInternal)) {
    entry["status"] = "crashed";
  } else {
    entry["status"] = read_only ? "read_only" : "normal";
  }
  entry["free_size"] = readable ? Json::UInt64(fs.f_bavail) * fs.f_frsize : 0;
  entry["total_size"] = readable ? Json::UInt64(fs.f_blocks) * fs.f_frsize : 0;
  entry["fs_type"] = m.fs_type;
  return entry;
}

}  // namespace

void Volume::VolumeListGet(Json::Value& out, bool writable_only) const {
  Json::Value list(Json::arrayValue);
  for (const qrix::volume::Mount& m : qrix::volume::VolumeMounts()) {
    const Kind kind = qrix::volume::VolumeKind(m.mount_point);
    if ((KindBit(kind) & kinds_) == 0) {
      continue;
    }
    Json::Value entry = Entry(m, kind);
    if (!writable_only || entry["status"] == "normal") {
      list.append(std::move(entry));
    }
  }
  out["volume_count"] = list.size();
  out["volume_list"] = std::move(list);
}

std::string Volume::ToUIVolumeStr(const std::string& path) {
  int number = 0;
  switch (qrix::volume::VolumeKind(path, &number)) {
    case Kind::kInternal:
      return "Volume " + std::to_string(number);
    case Kind::kUsb:
    case Kind::kSata:
      return path.substr(path.rfind('/') + 1);
    default:
      return path;
  }
}

}  // namespace QRIX::KRS::STORAGE_WEBUTILS
