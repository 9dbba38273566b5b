#include "host/options.h"

#include <gtest/gtest.h>

#include <iterator>
#include <sstream>
#include <tuple>

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
  EXPECT_EQ(std::tie(o.modules, o.ui_dir, o.listen, o.session_dir, o.host_names),
            std::make_tuple(std::vector<std::string>{"/m/a.so", "/m/b.so"}, "/srv/ui", "::1",
                            "/run/s", std::vector<std::string>{"nas.local"}));
  // The per-address limit is an option of its own.
  EXPECT_EQ(
      (std::vector<int>{o.port, o.workers, o.idle_timeout, o.session_lifetime, o.behind_proxy,
                        o.request_timeout, o.read_timeout, o.login_max_failures,
                        o.login_max_failures_per_address}),
      (std::vector<int>{0, 3, 60, 3600, 1, 5, 2, 3, HostOptions().login_max_failures_per_address}));
}

TEST(OptionsTest, RefusesBadCommandLinesWithAReason) {
  struct Row {
    const char* args;
    const char* reason;
  };
  const Row rows[] = {
      {"", "no --module given"},
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
