#include "host/access/login_limiter.h"

#include <fcntl.h>
#include <sodium.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

namespace qrix::host {
namespace {

using Admission = LoginLimiter::Admission;
namespace fs = std::filesystem;

class LoginLimiterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_GE(sodium_init(), 0);
    fs::remove_all(kDir);
  }
  size_t Records() const {
    return static_cast<size_t>(std::distance(fs::directory_iterator(kDir), {}));
  }
  // Makes every record look last written a lockout (and a second) ago.
  void AgeRecords(int seconds) const {
    for (const auto& entry : fs::directory_iterator(kDir)) {
      struct stat st {};
      ASSERT_EQ(::stat(entry.path().c_str(), &st), 0);
      const timespec times[2] = {{st.st_mtim.tv_sec - seconds - 1, 0},
                                 {st.st_mtim.tv_sec - seconds - 1, 0}};
      ASSERT_EQ(::utimensat(AT_FDCWD, entry.path().c_str(), times, 0), 0);
    }
  }

  static constexpr const char* kDir = "/tmp/login_limiter_test";
};

TEST_F(LoginLimiterTest, RecordsStayUnderTheCapAndExpiredOnesGo) {
  LoginLimits limits;
  limits.per_address = 1000;
  limits.max_records = 8;
  LoginLimiter limiter(kDir, limits);
  std::string error;
  ASSERT_TRUE(limiter.Prepare(&error)) << error;
  for (int i = 0; i < 20; ++i) {
    ASSERT_EQ(limiter.Admit("name-" + std::to_string(i), "192.0.2.1"), Admission::kAdmitted);
    EXPECT_LE(Records(), 8u) << i;
  }
  AgeRecords(limits.lockout_seconds);
  ASSERT_EQ(limiter.Admit("fresh", "192.0.2.2"), Admission::kAdmitted);
  EXPECT_EQ(Records(), 2u) << "expired records are swept";
}

// Failures per account and address are driven over HTTP by the login tests; an attempt that
// the password check could not decide is given back, which only this level can see.
TEST_F(LoginLimiterTest, AWithdrawnAttemptCountsNothing) {
  LoginLimits limits;
  limits.per_account = 1;
  LoginLimiter limiter(kDir, limits);
  std::string error;
  ASSERT_TRUE(limiter.Prepare(&error)) << error;
  ASSERT_EQ(limiter.Admit("a", "192.0.2.1"), Admission::kAdmitted);
  limiter.Withdraw("a", "192.0.2.1");
  EXPECT_EQ(limiter.Admit("a", "192.0.2.1"), Admission::kAdmitted);
  EXPECT_EQ(limiter.Admit("a", "192.0.2.1"), Admission::kLockedOut);
}

}  // namespace
}  // namespace qrix::host
