// Key/value files on real files in the sandbox: the line format, atomic publishing (whatever
// moment a writer is killed at), the cache that must always see the file as it is on disk,
// batching under the file lock, and what another local account can do to them.
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <utility>

#include "platform/vlibc/vlibc_error.h"
#include "platform/vlibc/vlibc_file.h"
#include "tests/support/files.h"
#include "tests/support/lock_holder.h"
#include "tests/support/syslog_capture.h"

namespace {

using qrix::test::ReadText;
using qrix::test::WriteText;

constexpr const char* kFile = "/tmp/kv/test.conf";
constexpr int kLock = 0x806;
constexpr int kUnlock = 0x800;

// The return code and the value read for `key`.
std::pair<int, std::string> Get(const char* key, int size = 128) {
  std::string buf(static_cast<size_t>(size), 'X');
  const int rc = VLIBCFileGetKeyValue(kFile, key, buf.data(), size, 0);
  return {rc, rc >= 0 ? std::string(buf.c_str()) : ""};
}

// The permission bits, owner and group of `path`.
std::tuple<unsigned, unsigned, unsigned> Owner(const char* path) {
  struct stat st {};
  EXPECT_EQ(lstat(path, &st), 0) << path;
  return {st.st_mode & 07777, st.st_uid, st.st_gid};
}

class KvFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::filesystem::remove_all("/tmp/kv");
    std::filesystem::create_directories("/tmp/kv");
  }
};

struct ParseCase {
  const char* name;
  const char* text;  // nullptr: no file at all
  int size;
  int rc;
  const char* value;
};

TEST_F(KvFileTest, ReadsTheLineFormat) {
  const ParseCase cases[] = {
      {"missing file", nullptr, 64, 0, ""},
      {"plain", "k=\"v\"\n", 64, 1, "v"},
      {"no final newline", "a=\"1\"\nk=\"v\"", 64, 1, "v"},
      {"missing key", "a=\"1\"\n", 64, 0, ""},
      {"first of duplicates", "k=\"one\"\nk=\"two\"\n", 64, 3, "one"},
      {"inner quotes", "k=\"a\"b\"\n", 64, 3, "a\"b"},
      {"escapes as sh reads them", R"(k="\"\$\`\\")", 64, 4, "\"$`\\"},
      {"other backslashes kept", R"(k="a\b\")", 64, 4, "a\\b\\"},
      {"unquoted is taken literally", R"(k=a\$b)", 64, 4, "a\\$b"},
      {"blanks around", "  k =  \"v\"  \n", 64, 1, "v"},
      {"crlf", "k=\"v\"\r\n", 64, 1, "v"},
      {"empty value", "k=\"\"\n", 64, 0, ""},
      {"comment", "#k=\"v\"\n", 64, 0, ""},
      {"section header ignored", "[k]\nk=\"v\"\n", 64, 1, "v"},
      {"no equals sign", "k\n", 64, 0, ""},
      {"prefix is not the key", "kk=\"v\"\n", 64, 0, ""},
      {"cut to the buffer", "k=\"abcdefgh\"\n", 4, 3, "abc"},
      {"buffer of one", "k=\"abc\"\n", 1, 0, ""},
  };
  for (const ParseCase& c : cases) {
    SCOPED_TRACE(c.name);
    qrix::test::Remove(kFile);
    if (c.text != nullptr) {
      WriteText(kFile, c.text);
    }
    EXPECT_EQ(Get("k", c.size), std::make_pair(c.rc, std::string(c.value)));
  }
}

TEST_F(KvFileTest, RefusesBadArgumentsAndMissingPlaces) {
  char buf[8];
  EXPECT_EQ(VLIBCFileGetKeyValue(nullptr, "k", buf, 8, 0), -1);
  EXPECT_EQ(VLIBCFileGetKeyValue(kFile, "k", buf, 0, 0), -1);
  EXPECT_EQ(VLIBCErrGet(), ERR_BAD_PARAMETERS);
  EXPECT_EQ(VLIBCFileSetKeyValue("/tmp/kv/none/x.conf", "k", "v", nullptr), -1);
  std::filesystem::create_directories(kFile);  // a directory where the file should be
  EXPECT_EQ(VLIBCFileGetKeyValue(kFile, "k", buf, 8, 0), -1);
}

// Writes replace a key's first line, drop its duplicates, append new keys and keep the rest;
// what would break the format is refused and writes nothing.
TEST_F(KvFileTest, WritesReplaceAppendOrAreRefused) {
  WriteText(kFile, "# head\na=\"1\"\nk=\"old\"\nb=\"2\"\nk=\"dup\"\n");
  ASSERT_EQ(VLIBCFileSetKeyValue(kFile, "k", "new", nullptr), 0);
  ASSERT_EQ(VLIBCFileSetKeyValue(kFile, "c", "q\"uo\"te", "%s=\"%s\"\n"), 0);
  ASSERT_EQ(VLIBCFileSetKeyValue(kFile, "p", "$5", "%s = \"%s%%\"\n"), 0);
  // An unquoted value is one sh would split, expand or run.
  for (const char* bad : {"%s", "%s=%d", "%s=%s=%s", "%n%s%s", "%s=%s", "%s=\"\"%s"}) {
    EXPECT_EQ(VLIBCFileSetKeyValue(kFile, "k", "x", bad), -1) << bad;
  }
  const std::pair<const char*, std::string> refused[] = {{"k", "line\nother=\"x\""},
                                                         {"k", "cr\rhere"},
                                                         {"k", std::string("a\0b", 3)},
                                                         {"", "v"},
                                                         {"a=b", "v"},
                                                         {"a$(x)", "v"}};
  for (const auto& [key, value] : refused) {
    EXPECT_EQ(VLIBCFileSetKeyValueN(kFile, key, value.data(), value.size(), nullptr), -1) << key;
    EXPECT_EQ(VLIBCErrGet(), ERR_FILE_BAD_VALUE) << key;
  }
  EXPECT_EQ(ReadText(kFile),
            "# head\na=\"1\"\nk=\"new\"\nb=\"2\"\nc=\"q\\\"uo\\\"te\"\np = \"\\$5%\"\n");
  EXPECT_EQ(Get("c").second, "q\"uo\"te");
}

// The package's shell scripts source these files: whatever a value holds, sh runs nothing and
// reads what the reader reads.
TEST_F(KvFileTest, ShellReadsEveryValueLiterally) {
  constexpr const char* kRan = "/tmp/kv/ran";
  const std::string values[] = {
      R"("\')",
      "$(/usr/bin/touch /tmp/kv/ran)",
      "`/usr/bin/touch /tmp/kv/ran`",
      "\"; /usr/bin/touch /tmp/kv/ran; \"",
      R"(a\)",
      R"(\"\$\`\\)",
      " tab\there \x01\x7f\xff ",
      "",
  };
  WriteText(kFile, "before=\"1\"\n");
  for (const std::string& value : values) {
    SCOPED_TRACE(value);
    ASSERT_EQ(VLIBCFileSetKeyValue(kFile, "k", value.c_str(), nullptr), 0);
    ASSERT_EQ(VLIBCFileSetKeyValue(kFile, "after", "2", nullptr), 0);
    EXPECT_EQ(qrix::test::SourcedValue(kFile, "k"), value);
    EXPECT_EQ(Get("k", 256).second, value);
    EXPECT_EQ(qrix::test::SourcedValue(kFile, "after"), "2");
    EXPECT_FALSE(std::filesystem::exists(kRan));
  }
}

// New files are 0644, rewritten ones keep owner and mode; without the package's group, its files
// that hold secrets are root's alone, and say so.
TEST_F(KvFileTest, KeepsOwnerAndModeAndMakesNewFiles0644) {
  ASSERT_EQ(VLIBCFileSetKeyValue(kFile, "k", "v", nullptr), 0);
  EXPECT_EQ(Owner(kFile), std::make_tuple(0644u, 0u, 0u));
  ASSERT_EQ(chmod(kFile, 0600), 0);
  ASSERT_EQ(chown(kFile, 1234, 5678), 0);
  ASSERT_EQ(VLIBCFileSetKeyValue(kFile, "k", "w", nullptr), 0);
  EXPECT_EQ(Owner(kFile), std::make_tuple(0600u, 1234u, 5678u));

  const std::string groups = ReadText("/etc/group");
  WriteText("/etc/group", groups.substr(0, groups.find("Haulport:")));
  qrix::test::SyslogCapture::Get().Clear();
  const int rc = VLIBCFileSetKeyValue(qrix::test::kSettingsConf, "k", "v", nullptr);
  WriteText("/etc/group", groups);
  ASSERT_EQ(rc, 0);
  EXPECT_EQ(Owner(qrix::test::kSettingsConf), std::make_tuple(0600u, 0u, 0u));
  EXPECT_TRUE(qrix::test::SyslogCapture::Get().Contains("no group Haulport"));
}

// The cache must never hide a change made by someone else, however it was made: in place, by
// rename, by removal, by a forked child (which must not steal the parent's change notices), or
// through a symbolic link.
TEST_F(KvFileTest, ReadsSeeEveryChangeOnDisk) {
  WriteText(kFile, "k=\"aaaa\"\n");
  ASSERT_EQ(Get("k").second, "aaaa");
  WriteText(kFile, "k=\"bbbb\"\n");  // same size, rewritten in place
  EXPECT_EQ(Get("k").second, "bbbb");
  WriteText("/tmp/kv/other", "k=\"cccc\"\n");
  std::filesystem::rename("/tmp/kv/other", kFile);
  EXPECT_EQ(Get("k").second, "cccc");
  qrix::test::Remove(kFile);
  EXPECT_EQ(Get("k").first, 0);
  WriteText(kFile, "k=\"dddd\"\n");
  EXPECT_EQ(Get("k").second, "dddd");
  ASSERT_TRUE(qrix::test::InChildren(1, [](int) {
    return Get("k").second == "dddd" && VLIBCFileSetKeyValue(kFile, "k", "child", nullptr) == 0 &&
           Get("k").second == "child";
  }));
  EXPECT_EQ(Get("k").second, "child");
  WriteText("/tmp/kv/elsewhere/real.conf", "k=\"eeee\"\n");
  std::filesystem::remove(kFile);
  std::filesystem::create_symlink("/tmp/kv/elsewhere/real.conf", kFile);
  EXPECT_EQ(Get("k").second, "eeee");
  WriteText("/tmp/kv/elsewhere/real.conf", "k=\"ffff\"\n");
  EXPECT_EQ(Get("k").second, "ffff");
}

// Writes under the lock reach the file once, at the last unlock; those made before a refused
// one are kept.
TEST_F(KvFileTest, LockedWritesArePublishedOnceAtUnlock) {
  WriteText(kFile, "a=\"0\"\n");
  ASSERT_EQ(VLIBCFileLock(kLock, 5), 0);
  ASSERT_EQ(VLIBCFileLock(kLock, 5), 0);  // nested in the same process
  ASSERT_EQ(VLIBCFileSetKeyValue(kFile, "a", "1", nullptr), 0);
  ASSERT_EQ(VLIBCFileSetKeyValue(kFile, "b", "2", nullptr), 0);
  ASSERT_EQ(VLIBCFileSetKeyValue(kFile, "a", "3", nullptr), 0);
  ASSERT_EQ(VLIBCFileSetKeyValue(kFile, "c", "bad\n", nullptr), -1);
  EXPECT_EQ(Get("a").second, "3");  // this process reads its own writes
  EXPECT_EQ(ReadText(kFile), "a=\"0\"\n");
  ASSERT_EQ(VLIBCFileUnlock(kUnlock), 0);
  EXPECT_EQ(ReadText(kFile), "a=\"0\"\n");  // still held once
  ASSERT_EQ(VLIBCFileUnlock(kUnlock), 0);
  EXPECT_EQ(ReadText(kFile), "a=\"3\"\nb=\"2\"\n");
  EXPECT_EQ(VLIBCFileUnlock(kUnlock), -1);  // not held any more
}

TEST_F(KvFileTest, LockIsExclusiveAcrossProcessesAndDiesWithItsHolder) {
  {
    const qrix::test::LockHolder holder;
    ASSERT_TRUE(holder.Holding());
    qrix::test::SyslogCapture::Get().Clear();
    EXPECT_EQ(VLIBCFileLock(kLock, 1), -1);
    EXPECT_EQ(VLIBCErrGet(), ERR_LOCK_TIMEOUT);
    // The module then answers success without writing: the log must say why, and who held it.
    EXPECT_TRUE(qrix::test::SyslogCapture::Get().Contains(
        "lock /run/lock/qrix/vlibc-0800.lock (named lock 0x0800) not had after "));
    // Its name as the system knows it: under an emulator that is the emulator's.
    std::string name = qrix::test::ReadText("/proc/" + std::to_string(holder.Pid()) + "/comm");
    name.erase(name.find_last_not_of('\n') + 1);
    EXPECT_TRUE(qrix::test::SyslogCapture::Get().Contains(
        " s: held by pid " + std::to_string(holder.Pid()) + " (" + name + ")"));
    EXPECT_EQ(VLIBCFileLock(0x802, 0), -1);  // a single try fails at once
    EXPECT_EQ(VLIBCFileLock(0x906, 1), 0);   // another lock is free
    EXPECT_EQ(VLIBCFileUnlock(0x900), 0);
  }  // the holder is killed here
  EXPECT_EQ(VLIBCFileLock(kLock, 1), 0);
  EXPECT_EQ(VLIBCFileUnlock(kUnlock), 0);
}

// A waiter sleeps in the kernel's queue until the lock is free or its bound has passed: neither
// a caller that blocks every signal nor another signal on the way may change either.
TEST_F(KvFileTest, LockWaitsKeepTheirBoundWhateverTheCallersSignals) {
  auto holder = std::make_unique<qrix::test::LockHolder>();
  ASSERT_TRUE(holder->Holding());
  sigset_t all;
  sigset_t before;
  sigset_t blocked;
  sigset_t after;
  sigfillset(&all);
  ASSERT_EQ(pthread_sigmask(SIG_SETMASK, &all, &before), 0);
  pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
  EXPECT_EQ(VLIBCFileLock(kLock, 1), -1);
  EXPECT_EQ(VLIBCErrGet(), ERR_LOCK_TIMEOUT);
  pthread_sigmask(SIG_SETMASK, &before, &after);
  for (int sig = 1; sig <= SIGRTMAX; ++sig) {
    EXPECT_EQ(sigismember(&after, sig), sigismember(&blocked, sig)) << "signal " << sig;
  }

  struct sigaction nothing {};
  nothing.sa_handler = [](int) {};
  sigemptyset(&nothing.sa_mask);
  struct sigaction old {};
  ASSERT_EQ(sigaction(SIGUSR2, &nothing, &old), 0);  // without SA_RESTART: the wait sees EINTR
  const pthread_t waiter = pthread_self();
  std::thread releaser([&holder, waiter] {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    pthread_kill(waiter, SIGUSR2);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    holder.reset();
  });
  EXPECT_EQ(VLIBCFileLock(kLock, 5), 0);
  releaser.join();
  sigaction(SIGUSR2, &old, nullptr);
  EXPECT_EQ(VLIBCFileUnlock(kUnlock), 0);
}

// Writers of one file, each without the lock, must not lose each other's keys.
TEST_F(KvFileTest, ConcurrentWritersLoseNoUpdate) {
  EXPECT_TRUE(qrix::test::InChildren(6, [](int w) {
    bool ok = true;
    for (int k = 0; k < 25; ++k) {
      const std::string key = "w" + std::to_string(w) + "_" + std::to_string(k);
      ok = VLIBCFileSetKeyValue(kFile, key.c_str(), key.c_str(), nullptr) == 0 && ok;
    }
    return ok;
  }));
  const auto parsed = qrix::test::ParseKvStrict(ReadText(kFile));
  EXPECT_TRUE(parsed.ok) << parsed.bad_line;
  EXPECT_EQ(parsed.values.size(), 6u * 25);
  EXPECT_TRUE(std::all_of(parsed.values.begin(), parsed.values.end(),
                          [](const auto& kv) { return kv.first == kv.second; }));
}

// A generation's value: its length changes with it, so a cut value shows.
std::string Value(long gen) {
  return "gen" + std::to_string(gen) + std::string(gen % 97, 'x');
}

// Settings survive kill -9 at any moment of a write: a writer rewriting 12 keys with one
// generation, forever, under the lock (one publish per generation) or key by key, is killed at
// random points and the file is parsed after every kill.
void KillAtRandomAndCheck(bool locked) {
  std::string seed;
  for (int i = 0; i < 12; ++i) {
    seed += "key_" + std::to_string(i) + "=\"gen0\"\n";
  }
  WriteText(kFile, seed);
  std::mt19937 rng(12345);
  for (int round = 0; round < 150; ++round) {
    const pid_t pid = fork();
    for (long gen = 0; pid == 0; ++gen) {
      if (locked) {
        VLIBCFileLock(kLock, 5);
      }
      for (int i = 0; i < 12; ++i) {
        VLIBCFileSetKeyValue(kFile, ("key_" + std::to_string(i)).c_str(), Value(gen).c_str(),
                             nullptr);
      }
      if (locked) {
        VLIBCFileUnlock(kUnlock);
      }
    }
    std::this_thread::sleep_for(std::chrono::microseconds(rng() % 4000));
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);

    const auto parsed = qrix::test::ParseKvStrict(ReadText(kFile));
    ASSERT_TRUE(parsed.ok) << "round " << round << ": torn line " << parsed.bad_line;
    std::set<std::string> generations;
    for (const auto& [key, value] : parsed.values) {
      ASSERT_EQ(value, Value(std::atol(value.c_str() + 3))) << key;
      generations.insert(value);
    }
    ASSERT_EQ(parsed.values.size(), 12u) << "round " << round;
    // One publish per generation: a kill never leaves a mix of two.
    ASSERT_TRUE(!locked || generations.size() == 1) << "round " << round;
  }
  // Temporaries a killed writer left (those of these rounds and one made up) go with the next
  // write; another file's stay.
  WriteText("/tmp/kv/.test.conf.tmp.AbC123", "half");
  WriteText("/tmp/kv/.other.conf.tmp.AbC123", "not ours");
  ASSERT_EQ(VLIBCFileSetKeyValue(kFile, "key_0", "final", nullptr), 0);
  std::set<std::string> left;
  for (const auto& entry : std::filesystem::directory_iterator("/tmp/kv")) {
    left.insert(entry.path().filename());
  }
  EXPECT_EQ(left, (std::set<std::string>{".other.conf.tmp.AbC123", "test.conf"}));
}

// Locked batches are all or nothing; single writes never tear the file.
TEST_F(KvFileTest, KilledWritersLeaveAWholeFile) {
  KillAtRandomAndCheck(true);
  KillAtRandomAndCheck(false);
}

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

// What another local account can do to the settings and the locks of their writers. Each row
// attacks as nobody from a process that keeps what it took until the row ends; then root saves
// a secret as the settings store does, which must be written, and the row checks the rest.
TEST(FilesAndSignals, AnotherAccountCanNeitherReadTheSecretsNorSilenceASave) {
  struct Row {
    const char* name;
    std::function<bool()> attack;
    std::function<void()> check;
  } const rows[] = {
      {"reads the saved secrets", [] { return true; },
       [] {
         EXPECT_EQ(Owner(kSettingsConf), std::make_tuple(0640u, 0u, 990u));
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
         EXPECT_EQ(Owner(kLockDir), std::make_tuple(02770u, 0u, 990u));
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
