// The secret cipher: round trips at every length in exactly the buffer the callers compute,
// clean failures, and the key file's creation and guards.
#include "platform/vlibc/vlibc_crypt.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "platform/vlibc/vlibc_error.h"
#include "tests/support/files.h"

namespace {

namespace fs = std::filesystem;

size_t TextSize(size_t n) {
  return (n + 2) / 3 * 4 + 1;
}

std::string Encrypt(const std::string& plain, size_t size) {
  std::string out(size, '#');
  if (VLIBCCryptSzEncrypt(plain.c_str(), out.data(), static_cast<int>(size)) == 0) {
    return "(failed:" + std::string(out.c_str()) + ")";
  }
  return out.c_str();
}

std::string Decrypt(const std::string& text, size_t size) {
  std::string out(size, '#');
  if (VLIBCCryptSzDecrypt(text.c_str(), out.data(), static_cast<int>(size)) == 0) {
    return "(failed:" + std::string(out.c_str()) + ")";
  }
  return out.c_str();
}

class VlibcCryptTest : public ::testing::Test {
 protected:
  void SetUp() override { fs::remove_all(VLIBC_CRYPT_KEY_FILE); }
};

TEST_F(VlibcCryptTest, RoundTripsInTheExactBuffer) {
  const std::string plains[] = {"",
                                "a",
                                "ab",
                                "abc",
                                "abcd",
                                "say \"hi\"\n\r=",
                                "pässwörd",
                                std::string(44, 'k'),
                                std::string(3000, 'z')};
  for (const std::string& plain : plains) {
    SCOPED_TRACE(plain.size());
    const std::string text = Encrypt(plain, TextSize(plain.size()));
    EXPECT_EQ(text.size(), TextSize(plain.size()) - 1);
    EXPECT_EQ(text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                     "0123456789+/="),
              std::string::npos);
    if (!plain.empty()) {
      EXPECT_NE(text, Encrypt(std::string(plain.size(), 'A'), TextSize(plain.size())));
    }
    if (plain == "abc") {
      EXPECT_NE(text, "YWJj");  // enciphered, not merely encoded
    }
    EXPECT_EQ(Decrypt(text, plain.size() + 1), plain);
    EXPECT_EQ(Decrypt(text, plain.size()), "(failed:)");
  }
}

TEST_F(VlibcCryptTest, BadInputFailsCleanly) {
  EXPECT_EQ(Encrypt("abcd", TextSize(4) - 1), "(failed:)");
  EXPECT_EQ(VLIBCErrGet(), ERR_BAD_PARAMETERS);
  char untouched = 'u';
  EXPECT_EQ(VLIBCCryptSzEncrypt("a", &untouched, 0), 0);
  EXPECT_EQ(untouched, 'u');
  EXPECT_EQ(VLIBCCryptSzEncrypt(nullptr, &untouched, 1), 0);
  for (const char* text : {"not base64!", "YWJj\n", "YQ", "YQ=", "Y==="}) {
    EXPECT_EQ(Decrypt(text, 64), "(failed:)") << text;
    EXPECT_EQ(VLIBCErrGet(), ERR_CRYPT) << text;
  }
}

TEST_F(VlibcCryptTest, TheKeyIsMadeOnceAndGuarded) {
  const std::string text = Encrypt("secret", TextSize(6));
  struct stat st {};
  ASSERT_EQ(lstat(VLIBC_CRYPT_KEY_FILE, &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0600u);
  EXPECT_EQ(st.st_size, 32);
  EXPECT_EQ(Encrypt("secret", TextSize(6)), text);  // the same key again

  const std::string key = qrix::test::ReadText(VLIBC_CRYPT_KEY_FILE);
  // Keys others may have read, or that are not a plain 32-byte file, are never used.
  const struct {
    const char* name;
    mode_t mode;
    size_t size;
  } refused[] = {{"group-readable", 0640, 32}, {"world-readable", 0604, 32},
                 {"executable", 0700, 32},     {"short", 0600, 31},
                 {"long", 0600, 33},           {"a directory", 0700, 0}};
  for (const auto& r : refused) {
    SCOPED_TRACE(r.name);
    fs::remove_all(VLIBC_CRYPT_KEY_FILE);
    if (r.size == 0) {
      fs::create_directory(VLIBC_CRYPT_KEY_FILE);
    } else {
      qrix::test::WriteText(VLIBC_CRYPT_KEY_FILE, (key + key).substr(0, r.size));
    }
    chmod(VLIBC_CRYPT_KEY_FILE, r.mode);
    EXPECT_EQ(Encrypt("secret", TextSize(6)), "(failed:)");
    EXPECT_EQ(VLIBCErrGet(), ERR_CRYPT);
    EXPECT_EQ(Decrypt(text, 7), "(failed:)");
  }
  fs::remove_all(VLIBC_CRYPT_KEY_FILE);
  qrix::test::WriteText("/var/qrix/etc/real.key", key);
  chmod("/var/qrix/etc/real.key", 0600);
  fs::create_symlink("/var/qrix/etc/real.key", VLIBC_CRYPT_KEY_FILE);
  EXPECT_EQ(Decrypt(text, 7), "(failed:)");  // a link could point anywhere
  fs::remove(VLIBC_CRYPT_KEY_FILE);
  fs::rename("/var/qrix/etc/real.key", VLIBC_CRYPT_KEY_FILE);
  EXPECT_EQ(Decrypt(text, 7), "secret");

  // Another machine's key does not give the secret back.
  fs::remove_all(VLIBC_CRYPT_KEY_FILE);
  EXPECT_NE(Encrypt("secret", TextSize(6)), text);
  EXPECT_NE(Decrypt(text, 7), "secret");
}

TEST_F(VlibcCryptTest, ConcurrentFirstUsesAgreeOnOneKey) {
  constexpr int kProcs = 6;
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  for (int i = 0; i < kProcs; ++i) {
    if (fork() == 0) {
      const std::string text = Encrypt("same secret", TextSize(11));
      (void)!write(fds[1], text.c_str(), text.size() + 1);
      _exit(0);
    }
  }
  close(fds[1]);
  std::string all;
  char buf[256];
  for (ssize_t n; (n = read(fds[0], buf, sizeof buf)) > 0;) {
    all.append(buf, static_cast<size_t>(n));
  }
  close(fds[0]);
  while (wait(nullptr) > 0) {
  }
  const std::string mine = Encrypt("same secret", TextSize(11));
  std::string want;
  for (int i = 0; i < kProcs; ++i) {
    want += mine + '\0';
  }
  EXPECT_EQ(all, want);
}

}  // namespace
