#include "tests/support/pgsql_server.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <thread>

#include "platform/vlibc/process.h"
#include "tests/support/files.h"

namespace qrix::test {
namespace {

constexpr const char* kReady = "/run/postgresql/ready";
constexpr int kStartMs = 60'000;  // the first start of a build also makes the template

class Environment : public ::testing::Environment {
 public:
  void SetUp() override { ASSERT_TRUE(PgsqlServer::Get().Start()); }
  void TearDown() override { PgsqlServer::Get().Stop(); }
};

}  // namespace

PgsqlServer& PgsqlServer::Get() {
  static PgsqlServer server;
  return server;
}

bool PgsqlServer::Start() {
  if (pid_ > 0) {
    return true;
  }
  Remove(kReady);
  const std::string script = QRIX_SOURCE_DIR "/scripts/pgsql";
  const std::string tmpl = QRIX_PGSQL_TEMPLATE;
  pid_ = ::fork();
  if (pid_ == 0) {
    // Whatever ends this test process ends the server too.
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    ::execl(script.c_str(), script.c_str(), "serve", "--template", tmpl.c_str(), "--no-fsync",
            static_cast<char*>(nullptr));
    ::_exit(127);
  }
  for (int waited = 0; waited < kStartMs; waited += 10) {
    if (::access(kReady, F_OK) == 0) {
      return true;
    }
    int status = 0;
    if (pid_ < 0 || ::waitpid(pid_, &status, WNOHANG) == pid_) {
      std::fprintf(stderr, "PostgreSQL did not start: %s\n",
                   ReadText("/var/log/pgsql.log").c_str());
      pid_ = -1;
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  Stop();
  return false;
}

void PgsqlServer::Stop() {
  if (pid_ <= 0) {
    return;
  }
  ::kill(pid_, SIGTERM);
  int status = 0;
  ::waitpid(pid_, &status, 0);
  pid_ = -1;
  Remove(kReady);
}

std::string PgsqlServer::Query(const std::string& sql) {
  std::string out;
  RunProcess({"/usr/bin/psql", "-X", "-q", "-A", "-t", "-h", "/run/postgresql", "-U", "postgres",
              "-d", "download", "-c", sql},
             &out);
  return out;
}

::testing::Environment* PgsqlEnvironment() {
  return new Environment;
}

}  // namespace qrix::test
