#include "host/access/policy.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/files.h"

namespace qrix::host {
namespace {

TEST(PolicyTest, PathReplacesTheLibrarySuffix) {
  EXPECT_EQ(PolicyPath("/b/module/libhaulport_setting.so"),
            "/b/module/libhaulport_setting.policy.json");
  EXPECT_EQ(PolicyPath("/b/odd.so.1"), "/b/odd.so.1.policy.json");
  EXPECT_EQ(PolicyPath("/b/plain"), "/b/plain.policy.json");
}

TEST(PolicyTest, ReadsTheOpenListAndRefusesOtherShapes) {
  struct Row {
    const char* content;  // null: no file
    bool ok;
    std::set<std::string> open;
  };
  const Row rows[] = {
      {nullptr, true, {}},
      {R"({"open_to_every_user": ["A.One", "A.Two"]})", true, {"A.One", "A.Two"}},
      {R"({})", true, {}},
      {R"({"open_to_every_user": "A.One"})", false, {}},
      {R"({"open_to_every_user": ["A.One", 3]})", false, {}},
      {R"({"open_to_every_user": [""]})", false, {}},
      {R"(["A.One"])", false, {}},
      {"{not json", false, {}},
  };
  const std::string module = "/tmp/policy_test/libm.so";
  for (const Row& row : rows) {
    qrix::test::Remove(PolicyPath(module));
    if (row.content != nullptr) {
      qrix::test::WriteText(PolicyPath(module), row.content);
    }
    std::set<std::string> open = {"stale"};
    std::string error;
    EXPECT_EQ(ReadPolicy(module, &open, &error), row.ok) << (row.content ? row.content : "-");
    if (row.ok) {
      EXPECT_EQ(open, row.open);
    } else {
      EXPECT_NE(error.find(PolicyPath(module)), std::string::npos) << error;
    }
  }
}

// Only a missing file means "administrators only". One that exists but cannot be read, or that
// another account could have written, stops the host rather than quietly deciding who may
// change what.
TEST(PolicyTest, RefusesFilesOnlyRootShouldWriteButOthersCould) {
  const std::string module = "/tmp/policy_test/guarded.so";
  const std::string path = PolicyPath(module);
  struct Row {
    const char* label;
    uid_t owner;
    gid_t group;
    mode_t mode;
    const char* reason;  // null: accepted
  };
  const Row rows[] = {
      {"root's, read-only for others", 0, 0, 0644, nullptr},
      {"writable by root's group", 0, 0, 0664, nullptr},
      {"owned by another account", 2001, 0, 0644, "is not a file only root may write"},
      {"writable by everyone", 0, 0, 0646, "is not a file only root may write"},
      {"writable by another group", 0, 100, 0664, "is not a file only root may write"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.label);
    qrix::test::WriteText(path, R"({"open_to_every_user": ["A.One"]})");
    ASSERT_EQ(::chown(path.c_str(), row.owner, row.group), 0);
    ASSERT_EQ(::chmod(path.c_str(), row.mode), 0);
    std::set<std::string> open;
    std::string error;
    EXPECT_EQ(ReadPolicy(module, &open, &error), row.reason == nullptr) << error;
    if (row.reason != nullptr) {
      EXPECT_NE(error.find(row.reason), std::string::npos) << error;
    }
  }
  qrix::test::Remove(path);
  ASSERT_EQ(::mkdir(path.c_str(), 0755), 0);  // even root cannot read it as a file
  std::set<std::string> open;
  std::string error;
  EXPECT_FALSE(ReadPolicy(module, &open, &error));
  qrix::test::Remove(path);
  ASSERT_EQ(::symlink("/tmp/policy_test/elsewhere.json", path.c_str()), 0);
  qrix::test::WriteText("/tmp/policy_test/elsewhere.json", "{}");
  EXPECT_FALSE(ReadPolicy(module, &open, &error)) << "a link is not followed";
}

}  // namespace
}  // namespace qrix::host
