// Settings survive kill -9 at any moment of a write: writers are killed at random points and
// the file is parsed after every kill.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <random>
#include <set>
#include <string>
#include <thread>

#include "platform/vlibc/vlibc_file.h"
#include "tests/support/files.h"

namespace {

constexpr const char* kFile = "/tmp/crash/settings.conf";
constexpr int kKeys = 12;

std::string Key(int i) { return "download_key_" + std::to_string(i); }

// Rewrites all keys with one generation number, forever: under the lock (one publish per
// generation) or key by key.
[[noreturn]] void Writer(bool locked) {
  for (long gen = 1;; ++gen) {
    const std::string value = "gen" + std::to_string(gen) + std::string(gen % 97, 'x');
    if (locked) {
      VLIBCFileLock(0x806, 5);
    }
    for (int i = 0; i < kKeys; ++i) {
      VLIBCFileSetKeyValue(kFile, Key(i).c_str(), value.c_str(), nullptr);
    }
    if (locked) {
      VLIBCFileUnlock(0x800);
    }
  }
}

void KillAtRandomAndCheck(bool locked) {
  std::filesystem::remove_all("/tmp/crash");
  std::filesystem::create_directories("/tmp/crash");
  std::string seed;
  for (int i = 0; i < kKeys; ++i) {
    seed += Key(i) + "=\"gen0\"\n";
  }
  qrix::test::WriteText(kFile, seed);
  std::mt19937 rng(12345);
  std::uniform_int_distribution<int> pause_us(0, 4000);
  for (int round = 0; round < 150; ++round) {
    const pid_t pid = fork();
    if (pid == 0) {
      Writer(locked);
    }
    std::this_thread::sleep_for(std::chrono::microseconds(pause_us(rng)));
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);

    const auto parsed = qrix::test::ParseKvStrict(qrix::test::ReadText(kFile));
    ASSERT_TRUE(parsed.ok) << "round " << round << ": torn line " << parsed.bad_line;
    ASSERT_EQ(parsed.values.size(), static_cast<size_t>(kKeys)) << "round " << round;
    std::set<std::string> generations;
    for (const auto& [key, value] : parsed.values) {
      ASSERT_EQ(value.rfind("gen", 0), 0u) << key << "=" << value;
      generations.insert(value.substr(0, value.find('x')));
    }
    if (locked) {
      // One publish per generation: a kill never leaves a mix of two.
      ASSERT_EQ(generations.size(), 1u) << "round " << round;
    }
  }
  // Whatever temporaries the kills left are cleared by the next write.
  ASSERT_EQ(VLIBCFileSetKeyValue(kFile, Key(0).c_str(), "final", nullptr), 0);
  for (const auto& entry : std::filesystem::directory_iterator("/tmp/crash")) {
    EXPECT_EQ(entry.path().filename(), "settings.conf");
  }
}

TEST(KvCrashTest, LockedBatchesAreAllOrNothing) { KillAtRandomAndCheck(true); }

TEST(KvCrashTest, SingleWritesNeverTearTheFile) { KillAtRandomAndCheck(false); }

}  // namespace
