// An INI section read into a string hash, through the INI code every other file uses.
#include "platform/vlibc/vlibc_szhash.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/files.h"

namespace qrix::test {
namespace {

TEST(VlibcSzHashTest, FileGetSectionFindsOneSectionOrSaysWhy) {
  const char* path = "/tmp/section.conf";
  const SzHashPtr hash(VLIBCSzHashAlloc(4));
  ASSERT_TRUE(hash);
  VLIBCSzHashSetValue(hash.get(), "stale", "x");
  const struct {
    const char* text;  // nullptr: no file
    const char* section;
    int result;
    int count;
    const char* user;  // "username" afterwards, or nullptr
  } rows[] = {
      {nullptr, "a", 0, 0, nullptr},
      {"[b]\nusername=\"x\"\n", "a", 0, 0, nullptr},
      {"[a]\n", "a", 1, 0, nullptr},
      {"username=\"top\"\n[a]\nusername=\"ann\"\nusername=\"later\"\n[b]\nusername=\"bob\"\n[a]\n"
       "password=\"p\"\n",
       "a", 1, 2, "ann"},
      {"username=\"top\"\n", "", 0, 0, nullptr},
      {"[ a ]\r\nusername = \"ann\"\r\n", "a", 1, 1, "ann"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text ? row.text : "(no file)");
    Remove(path);
    if (row.text != nullptr) {
      WriteText(path, row.text);
    }
    PVLIBCSZHASH h = hash.get();
    EXPECT_EQ(VLIBCFileGetSection(path, row.section, &h), row.result);
    EXPECT_EQ(h, hash.get());
    EXPECT_EQ(VLIBCSzHashCount(h), row.count);
    const char* user = VLIBCSzHashGetValue(h, "username");
    EXPECT_EQ(user ? std::string(user) : "(none)", row.user ? row.user : "(none)");
  }
  Remove(path);
  std::filesystem::create_directory(path);
  PVLIBCSZHASH h = hash.get();
  EXPECT_EQ(VLIBCFileGetSection(path, "a", &h), -1);
  EXPECT_EQ(VLIBCSzHashAlloc(0), nullptr);
}

}  // namespace
}  // namespace qrix::test
