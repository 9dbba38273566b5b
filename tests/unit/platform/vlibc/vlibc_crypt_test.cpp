// The secret cipher: round trips at every length in exactly the buffer the callers compute,
// clean failures, and the key file's creation and guards.
#include "platform/vlibc/vlibc_crypt.h"

#include <gtest/gtest.h>
#include <sodium.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "platform/vlibc/vlibc_error.h"
#include "tests/support/files.h"

namespace {

namespace fs = std::filesystem;

size_t TextSize(size_t n) {
  return (n + 2) / 3 * 4 + 1;
}

// What a call of the cipher leaves in a buffer of `size` bytes, or "(failed:...)".
std::string Run(int (*cipher)(const char*, char*, int), const std::string& in, size_t size) {
  std::string out(size, '#');
  const int ok = cipher(in.c_str(), out.data(), static_cast<int>(size));
  return ok != 0 ? out.c_str() : "(failed:" + std::string(out.c_str()) + ")";
}

std::string Encrypt(const std::string& plain, size_t size) {
  return Run(VLIBCCryptSzEncrypt, plain, size);
}

std::string Decrypt(const std::string& text, size_t size) {
  return Run(VLIBCCryptSzDecrypt, text, size);
}

// The bytes a text stands for.
std::string Bytes(const std::string& text) {
  std::string bytes(text.size(), '\0');
  size_t n = 0;
  sodium_base642bin(reinterpret_cast<unsigned char*>(bytes.data()), bytes.size(), text.c_str(),
                    text.size(), nullptr, &n, nullptr, sodium_base64_VARIANT_ORIGINAL);
  return bytes.substr(0, n);
}

class VlibcCryptTest : public ::testing::Test {
 protected:
  void SetUp() override { fs::remove_all(VLIBC_CRYPT_KEY_FILE); }
};

TEST_F(VlibcCryptTest, RoundTripsInTheExactBuffer) {
  // Every padding of the text, and bytes a shell or a parser would care about.
  for (const size_t n : {0, 1, 2, 3, 4, 13, 44, 3000}) {
    std::string plain;
    while (plain.size() < n) {
      plain += "say \"hi\"\n\r= p\xc3\xa4ssw\xc3\xb6rd ";
    }
    plain.resize(n);
    SCOPED_TRACE(plain.size());
    const std::string text = Encrypt(plain, TextSize(plain.size()));
    EXPECT_EQ(text.size(), TextSize(plain.size()) - 1);
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
  // Any other Base64 text (an older cipher's, say) gives bytes of its length or a failure.
  for (size_t n = 0; n < 40; ++n) {
    std::string bytes(n, '\0');
    randombytes_buf(bytes.data(), n);
    std::string text(TextSize(n), '\0');
    sodium_bin2base64(text.data(), text.size(),
                      reinterpret_cast<const unsigned char*>(bytes.data()), n,
                      sodium_base64_VARIANT_ORIGINAL);
    const std::string plain = Decrypt(text.c_str(), n + 1);
    EXPECT_TRUE(plain.size() == n || plain == "(failed:)") << n;
  }
}

// One known (secret, text) pair gives nothing away about another text of the same length. With
// one key stream for all secrets (or a chain that runs one way), changing one secret byte would
// leave other text bytes alone, or change them by what the secret changed by. (Two rounds of
// a Feistel network would still keep half of them.)
TEST_F(VlibcCryptTest, OnePairSaysNothingAboutAnother) {
  for (const size_t n : {16, 45}) {
    const std::string p(n, 'p');
    const std::string cp = Bytes(Encrypt(p, TextSize(n)));
    for (size_t i = 0; i < n; ++i) {
      std::string q = p;
      q[i] = 'q';
      const std::string cq = Bytes(Encrypt(q, TextSize(n)));
      ASSERT_EQ(cq.size(), n);
      size_t kept = 0;  // by chance, two bytes in 256
      for (size_t j = 0; j < n; ++j) {
        kept += cp[j] == cq[j] || (cp[j] ^ cq[j]) == ('p' ^ 'q');
      }
      EXPECT_LE(kept, n / 4) << "secret byte " << i << " of " << n;
    }
  }
}

TEST_F(VlibcCryptTest, TheKeyIsMadeOnceAndGuarded) {
  // Processes that use it first at once agree on one key.
  ASSERT_TRUE(qrix::test::InChildren(6, [](int i) {
    qrix::test::WriteText("/tmp/crypt" + std::to_string(i), Encrypt("secret", TextSize(6)));
    return true;
  }));
  const std::string text = Encrypt("secret", TextSize(6));
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(qrix::test::ReadText("/tmp/crypt" + std::to_string(i)), text);
  }
  struct stat st {};
  ASSERT_EQ(lstat(VLIBC_CRYPT_KEY_FILE, &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0600u);
  EXPECT_EQ(st.st_size, 32);

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

}  // namespace
