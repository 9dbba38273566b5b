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
      {R"({"open_to_every_user": []})", true, {}},
      {R"({})", true, {}},
      {R"({"open_to_every_user": "A.One"})", false, {}},
      {R"({"open_to_every_user": ["A.One", 3]})", false, {}},
      {R"({"open_to_every_user": [""]})", false, {}},
      {R"(["A.One"])", false, {}},
      {"{not json", false, {}},
      {"", false, {}},
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

TEST(PolicyTest, AnUnreadableFileIsAnErrorNotAnEmptyPolicy) {
  // Only a missing file means "administrators only"; one that exists but cannot be read must
  // not quietly become that (a directory stands in: even root cannot read it as a file).
  const std::string module = "/tmp/policy_test/unreadable.so";
  qrix::test::Remove(PolicyPath(module));
  ASSERT_EQ(::mkdir(PolicyPath(module).c_str(), 0755), 0);
  std::set<std::string> open;
  std::string error;
  EXPECT_FALSE(ReadPolicy(module, &open, &error));
  EXPECT_NE(error.find("cannot read policy"), std::string::npos) << error;
}

}  // namespace
}  // namespace qrix::host
