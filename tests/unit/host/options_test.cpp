#include "host/options.h"

#include <gtest/gtest.h>

#include <iterator>
#include <sstream>

namespace qrix::host {
namespace {

// Parses a command line given as one string, its words separated by blanks.
ParseStatus Parse(const std::string& line, HostOptions* out, std::string* error) {
  std::istringstream in(line);
  std::vector<std::string> words{std::istream_iterator<std::string>(in), {}};
  std::vector<const char*> args;
  for (const std::string& word : words) {
    args.push_back(word.c_str());
  }
  return ParseOptions(std::span<const char* const>(args.data(), args.size()), out, error);
}

TEST(OptionsTest, AcceptsTheDocumentedCommandLine) {
  HostOptions o;
  std::string error;
  ASSERT_EQ(Parse("--module /m/a.so --module=/m/b.so --ui /srv/ui --listen ::1 --port 0 "
                  "--workers=3 --session-dir /run/s --idle-timeout 60 --session-lifetime 3600 "
                  "--behind-proxy --request-timeout 5 --read-timeout 2 --host-name nas.local "
                  "--login-max-failures 3",
                  &o, &error),
            ParseStatus::kRun)
      << error;
  EXPECT_EQ(o.modules, (std::vector<std::string>{"/m/a.so", "/m/b.so"}));
  EXPECT_EQ(o.ui_dir, "/srv/ui");
  EXPECT_EQ(o.listen, "::1");
  EXPECT_EQ(o.port, 0);
  EXPECT_EQ(o.workers, 3);
  EXPECT_EQ(o.session_dir, "/run/s");
  EXPECT_EQ(o.idle_timeout, 60);
  EXPECT_EQ(o.session_lifetime, 3600);
  EXPECT_TRUE(o.behind_proxy);
  EXPECT_EQ(o.request_timeout, 5);
  EXPECT_EQ(o.read_timeout, 2);
  EXPECT_EQ(o.host_names, (std::vector<std::string>{"nas.local"}));
  EXPECT_EQ(o.login_max_failures, 3);
  EXPECT_EQ(o.login_max_failures_per_address, HostOptions().login_max_failures_per_address);
}

TEST(OptionsTest, RefusesBadCommandLinesWithAReason) {
  struct Row {
    const char* args;
    const char* reason;
  };
  const Row rows[] = {
      {"", "no --module given"},
      {"--port 80", "no --module given"},
      {"--module m.so --port 65536", "--port: expected a whole number from 0 to 65535"},
      {"--module m.so --port 8o", "--port: expected a whole number"},
      {"--module m.so --workers 0", "--workers: expected a whole number from 1"},
      {"--module m.so --idle-timeout -5", "--idle-timeout: expected"},
      {"--module m.so --port", "--port needs a value"},
      {"--module m.so --colour red", "unknown option --colour"},
      {"--module m.so stray", "unexpected argument \"stray\""},
      {"--module=", "--module: empty value"},
      {"--module m.so --behind-proxy=yes", "--behind-proxy takes no value"},
  };
  for (const Row& row : rows) {
    HostOptions o;
    std::string error;
    EXPECT_EQ(Parse(row.args, &o, &error), ParseStatus::kBad) << row.reason;
    EXPECT_EQ(error.rfind(row.reason, 0), 0u) << error;
  }
  HostOptions o;
  std::string error;
  EXPECT_EQ(Parse("--help", &o, &error), ParseStatus::kHelp);
}

}  // namespace
}  // namespace qrix::host
