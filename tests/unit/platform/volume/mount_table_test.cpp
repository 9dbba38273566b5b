// Reading the mount table: which mounts are volumes, escaped paths, read-only mounts and file
// systems, and which volume holds a path.
#include "platform/volume/mount_table.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

namespace {

using qrix::volume::Kind;

TEST(MountTableTest, ParsesMountInfoLines) {
  const auto mounts = qrix::volume::ParseMountInfo(
      "36 35 98:0 /a /volume1 rw,noatime master:1 - ext4 /dev/md2 rw,errors=continue\n"
      "37 35 98:0 /b /volumeUSB2/usb\\040share ro,relatime - vfat /dev/sdq1 rw\n"
      "38 35 0:4 / /volume3 rw shared:2 shared:3 - ext4 /dev/md3 ro,errors=remount-ro\n"
      "garbage line\n");
  std::vector<std::tuple<std::string, std::string, std::string, bool, bool>> got;
  for (const auto& m : mounts) {
    got.emplace_back(m.mount_point, m.fs_type, m.source, m.read_only, m.super_read_only);
  }
  EXPECT_EQ(got, (decltype(got){{"/volume1", "ext4", "/dev/md2", false, false},
                                {"/volumeUSB2/usb share", "vfat", "/dev/sdq1", true, false},
                                {"/volume3", "ext4", "/dev/md3", false, true}}));
}

TEST(MountTableTest, TellsVolumesFromOtherMounts) {
  struct Case {
    const char* mount_point;
    Kind kind;
    int number;
  } const cases[] = {
      {"/volume1", Kind::kInternal, 1},
      {"/volume12", Kind::kInternal, 12},
      {"/volumeUSB3/usbshare3-1", Kind::kUsb, 3},
      {"/volumeSATA1/sata1", Kind::kSata, 1},
      {"/volume", Kind::kNone, 0},
      {"/volume01", Kind::kNone, 0},
      {"/volume1/share", Kind::kNone, 0},
      {"/volumeUSB3", Kind::kNone, 0},
      {"/volumeUSB3/a/b", Kind::kNone, 0},
      {"/volumeX1", Kind::kNone, 0},
  };
  for (const Case& c : cases) {
    int number = 0;
    EXPECT_EQ(qrix::volume::VolumeKind(c.mount_point, &number), c.kind) << c.mount_point;
    EXPECT_EQ(number, c.number) << c.mount_point;
  }
  const std::vector<qrix::volume::Mount> volumes = {{"/volume1"}, {"/volume10"}};
  qrix::volume::Mount found;
  EXPECT_TRUE(qrix::volume::VolumeOf(volumes, "/volume10/@download", &found));
  EXPECT_EQ(found.mount_point, "/volume10");
  EXPECT_TRUE(qrix::volume::VolumeOf(volumes, "/volume1", &found));
  EXPECT_FALSE(qrix::volume::VolumeOf(volumes, "/volume100/x", &found));
}

}  // namespace
