// The system's PostgreSQL inside the test's sandbox (scripts/pgsql), copied from the template
// cluster kept in the build tree and run without fsync. One per test executable: add
// PgsqlEnvironment() as a GoogleTest environment; tests may stop and start it.
#ifndef HAULPORT_TESTS_SUPPORT_PGSQL_SERVER_H_
#define HAULPORT_TESTS_SUPPORT_PGSQL_SERVER_H_

#include <gtest/gtest.h>
#include <sys/types.h>

#include <string>

namespace qrix::test {

class PgsqlServer {
 public:
  static PgsqlServer& Get();

  // Starts the server and waits until the package database is there; false when it did not
  // come up (the reason is on stderr).
  bool Start();
  void Stop();

  // Runs `sql` with psql as the superuser in "download"; the rows as unaligned text, fields
  // separated by "|", one row a line.
  static std::string Query(const std::string& sql);

 private:
  PgsqlServer() = default;
  pid_t pid_ = -1;
};

// Starts the server before the first test (skipping nothing: tests fail without it) and stops
// it after the last.
::testing::Environment* PgsqlEnvironment();

}  // namespace qrix::test

#endif  // HAULPORT_TESTS_SUPPORT_PGSQL_SERVER_H_
