// What another local account can do to the settings and the locks of their writers. Each row
// attacks as nobody from a process that keeps what it took until the row ends; then root saves
// a secret as the settings store does, which must be written, and the row checks the rest.
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>

#include "platform/vlibc/vlibc_file.h"
#include "tests/support/files.h"
#include "tests/support/lock_holder.h"
#include "tests/support/syslog_capture.h"

namespace {

using qrix::test::kSettingsConf;
using qrix::test::LockHolder;
using qrix::test::SyslogCapture;

constexpr const char* kLockDir = "/run/lock/qrix";
constexpr const char* kSecretKey = "download_nzb_password_en";

// `what`, run as nobody.
std::function<bool()> AsNobody(const std::function<bool()>& what) {
  return [what] {
    return setgroups(0, nullptr) == 0 && setresgid(65534, 65534, 65534) == 0 &&
           setresuid(65534, 65534, 65534) == 0 && what();
  };
}

// Opens `path`, creating a missing file, and locks it: true when this process now holds it.
// The descriptor stays open for as long as the process lives.
bool Hold(const char* path) {
  int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0 && errno == ENOENT) {
    fd = open(path, O_RDONLY | O_CREAT | O_CLOEXEC, 0666);
  }
  return fd >= 0 && flock(fd, LOCK_EX | LOCK_NB) == 0;
}

// A locked save of the secret, in a child that an alarm ends should it hang.
bool Save(const char* value) {
  return qrix::test::InChildren(1, [value](int) {
    alarm(60);
    return VLIBCFileLock(0x806, 5) == 0 &&
           VLIBCFileSetKeyValue(kSettingsConf, kSecretKey, value, nullptr) == 0 &&
           VLIBCFileUnlock(0x800) == 0;
  });
}

void ExpectOwned(const char* path, gid_t gid, mode_t mode) {
  struct stat st {};
  ASSERT_EQ(lstat(path, &st), 0) << path;
  EXPECT_EQ(st.st_uid, 0u) << path;
  EXPECT_EQ(st.st_gid, gid) << path;
  EXPECT_EQ(st.st_mode & 07777, mode) << path;
}

TEST(FilesAndSignals, AnotherAccountCanNeitherReadTheSecretsNorSilenceASave) {
  struct Row {
    const char* name;
    std::function<bool()> attack;
    std::function<void()> check;
  } const rows[] = {
      {"reads the saved secrets", [] { return true; },
       [] {
         ExpectOwned(kSettingsConf, 990, 0640);
         EXPECT_FALSE(
             LockHolder(AsNobody([] { return open(kSettingsConf, O_RDONLY) >= 0; })).Holding());
       }},
      {"locks the settings directory", [] { return Hold("/var/packages/Haulport/etc"); }, [] {}},
      {"takes the lock files before root does",
       [] {
         Hold("/run/lock/qrix-vlibc-0800.lock");
         Hold("/run/lock/qrix/vlibc-0800.lock");
         return true;
       },
       [] {}},
      {"plants the lock directory, with links for root to follow",
       [] {
         return mkdir(kLockDir, 0777) == 0 && chmod(kLockDir, 0777) == 0 &&
                symlink("/tmp/planted", "/run/lock/qrix/vlibc-0800.lock") == 0 &&
                symlink("/tmp/planted", "/run/lock/qrix-vlibc-0800.lock") == 0;
       },
       [] {
         EXPECT_FALSE(std::filesystem::exists("/tmp/planted"));
         ExpectOwned(kLockDir, 990, 02770);
         EXPECT_TRUE(SyslogCapture::Get().Contains(
             "lock directory /run/lock/qrix: owner 65534:65534, mode 0777, not root's alone"));
       }},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    SyslogCapture::Get().Clear();
    // As after a boot, on a machine an older release set up: no locks, a settings file 0644.
    for (const auto& entry : std::filesystem::directory_iterator("/run/lock")) {
      std::filesystem::remove_all(entry.path());
    }
    qrix::test::WriteSettings(std::string(kSecretKey) + "=\"old\"\n");
    ASSERT_EQ(chmod(kSettingsConf, 0644), 0);

    const LockHolder attacker(AsNobody(row.attack));
    EXPECT_TRUE(attacker.Holding());
    EXPECT_TRUE(Save("new"));
    EXPECT_EQ(qrix::test::ReadSettings()[kSecretKey], "new");
    row.check();
  }
}

}  // namespace
