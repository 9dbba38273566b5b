// Volumes: copying a download tree between them (what each kind of entry keeps, and a full
// target volume that is reported as such and gets its space back), and reading the mount table
// (which mounts are volumes, escaped paths, read-only mounts, which volume holds a path).
#include "platform/volume/file_copy.h"
#include "platform/volume/mount_table.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include "platform/vlibc/vlibc_error.h"
#include "tests/support/files.h"

namespace {

namespace fs = std::filesystem;
constexpr QRIX_COPY_OPTIONS kKeepAll = {1, 1, 1, 1, {}};

struct Entry {
  const char* path;
  mode_t type_and_mode;  // S_IFDIR, S_IFREG, S_IFLNK or S_IFIFO with the permission bits
  uid_t owner;
  const char* content;  // the file's data or the link's target
};

constexpr Entry kTree[] = {
    {"a", S_IFDIR | 0750, 990, nullptr},     {"a/file", S_IFREG | 04640, 990, "some data"},
    {"a/b", S_IFDIR | 0700, 0, nullptr},     {"a/b/empty", S_IFREG | 0600, 65534, ""},
    {"a/link", S_IFLNK | 0777, 990, "file"}, {"dangling", S_IFLNK | 0777, 0, "/nowhere/at/all"},
    {"fifo", S_IFIFO | 0620, 990, nullptr},  {"top", S_IFREG | 0755, 0, "#!/bin/sh\n"},
};

void Make(const std::string& root, const Entry& e) {
  const std::string p = root + "/" + e.path;
  switch (e.type_and_mode & S_IFMT) {
    case S_IFDIR:
      ASSERT_EQ(mkdir(p.c_str(), 0700), 0);
      break;
    case S_IFLNK:
      ASSERT_EQ(symlink(e.content, p.c_str()), 0);
      break;
    case S_IFIFO:
      ASSERT_EQ(mkfifo(p.c_str(), 0600), 0);
      break;
    default:
      qrix::test::WriteText(p, e.content);
  }
  ASSERT_EQ(lchown(p.c_str(), e.owner, e.owner), 0);
  if (!S_ISLNK(e.type_and_mode)) {
    ASSERT_EQ(chmod(p.c_str(), e.type_and_mode & 07777), 0);
  }
}

TEST(FileCopyTest, KeepsModesOwnersTimesAndLinks) {
  fs::remove_all("/volume1/src");
  fs::remove_all("/volume2/copy");
  ASSERT_EQ(mkdir("/volume1/src", 0751), 0);
  for (const Entry& e : kTree) {
    Make("/volume1/src", e);
  }
  // Times last, deepest first: making an entry changes its directory's times.
  for (auto e = std::rbegin(kTree); e != std::rend(kTree); ++e) {
    const time_t shift = static_cast<time_t>(e->owner);
    const timespec times[2] = {{1000000000 + shift, 5}, {1200000000 + shift, 7}};
    const std::string p = std::string("/volume1/src/") + e->path;
    ASSERT_EQ(utimensat(AT_FDCWD, p.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
  }
  ASSERT_EQ(QRIXFileCopyDirectory("/volume1/src", "/volume2/copy", &kKeepAll), 0);
  struct stat root {};
  ASSERT_EQ(stat("/volume2/copy", &root), 0);
  EXPECT_EQ(root.st_mode & 07777, 0751u);
  for (const Entry& e : kTree) {
    SCOPED_TRACE(e.path);
    const std::string p = std::string("/volume2/copy/") + e.path;
    struct stat st {};
    ASSERT_EQ(lstat(p.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & (S_IFMT | 07777), e.type_and_mode);
    EXPECT_EQ(st.st_uid, e.owner);
    EXPECT_EQ(st.st_gid, e.owner);
    EXPECT_EQ(st.st_mtim.tv_sec, 1200000000 + e.owner);
    EXPECT_EQ(st.st_mtim.tv_nsec, 7);
    if (S_ISREG(st.st_mode)) {
      EXPECT_EQ(qrix::test::ReadText(p), e.content);
    } else if (S_ISLNK(st.st_mode)) {
      EXPECT_EQ(fs::read_symlink(p), e.content);
    }
  }
  // Copied again over itself: the same tree, nothing doubled.
  ASSERT_EQ(QRIXFileCopyDirectory("/volume1/src", "/volume2/copy", &kKeepAll), 0);
  EXPECT_EQ(std::distance(fs::recursive_directory_iterator("/volume2/copy"), {}),
            static_cast<long>(std::size(kTree)));
}

TEST(FileCopyTest, AFullVolumeIsReportedAndCleanedUp) {
  fs::remove_all("/volume1/big");
  fs::create_directories("/volume1/big/sub");
  for (const char* name : {"one", "sub/two", "sub/three"}) {
    std::ofstream(std::string("/volume1/big/") + name) << std::string(1 << 20, 'x');
  }
  EXPECT_EQ(QRIXFileCopyDirectory("/volume1/big", "/volume3/big", &kKeepAll), -1);
  EXPECT_EQ(VLIBCErrGet(), ERR_NO_SPACE);
  EXPECT_FALSE(fs::exists("/volume3/big"));
  EXPECT_EQ(QRIXFileCopyDirectory("/volume1/none", "/volume2/none", &kKeepAll), -1);
  EXPECT_EQ(VLIBCErrGet(), ERR_FILE_READ);
  EXPECT_EQ(QRIXFileCopyDirectory("/volume1/big", "", &kKeepAll), -1);
  EXPECT_EQ(VLIBCErrGet(), ERR_BAD_PARAMETERS);
}

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
