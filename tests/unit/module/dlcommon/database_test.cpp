// The package database connection: the role each identity gets and the ids it leaves with, the
// persistent connection's life, statements, and the retries with the server down (the sleeps are
// taken over here, not waited).
#include "module/dlcommon/database.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "platform/system/qrix_service.h"
#include "tests/support/files.h"
#include "tests/support/pgsql_server.h"
#include "tests/support/syslog_capture.h"

namespace {

bool g_take_sleeps = false;
std::vector<useconds_t> g_sleeps;

}  // namespace

// The library's usleep lands here (the executable exports it).
extern "C" __attribute__((visibility("default"))) int usleep(useconds_t us) {
  if (g_take_sleeps) {
    g_sleeps.push_back(us);
    return 0;
  }
  using Fn = int (*)(useconds_t);
  static const Fn real = reinterpret_cast<Fn>(dlsym(RTLD_NEXT, "usleep"));
  return real(us);
}

namespace {

using qrix::test::PgsqlServer;
using qrix::test::SyslogCapture;

[[maybe_unused]] ::testing::Environment* const kServer =
    ::testing::AddGlobalTestEnvironment(qrix::test::PgsqlEnvironment());

// One value of a one-row query on `conn`, or "(failed)".
std::string Value(QRIXDBCONN* conn, const char* sql, const char* column) {
  QRIXDBRESULT* raw = nullptr;
  const int rc = QRIXDBExecute(conn, sql, &raw);
  const QRIXDL::DBResult result(raw);
  QRIXDBROW row;
  if (rc != 0 || QRIXDBFetchRow(result.get(), &row) != 0) {
    return "(failed)";
  }
  const char* value = QRIXDBFetchField(result.get(), row, column);
  return value != nullptr ? value : "(null)";
}

enum class Via { kPersistent, kFresh, kFreshSuperuser };

// In a child that takes the effective ids (uid, gid) first: "role euid egid" after connecting.
std::string ConnectInChild(uid_t uid, gid_t gid, Via via) {
  ::unlink("/tmp/connected");
  const pid_t child = ::fork();
  if (child == 0) {
    if (::setresgid(-1, gid, -1) != 0 || ::setresuid(-1, uid, -1) != 0) {
      ::_exit(2);
    }
    QRIXDBCONN* conn = via == Via::kPersistent ? DownloadDBPConnect()
                                               : DownloadDBNonPConnect(via == Via::kFreshSuperuser);
    const std::string out = (conn ? Value(conn, "SELECT current_user", "current_user") : "none") +
                            " " + std::to_string(::geteuid()) + " " + std::to_string(::getegid());
    qrix::test::WriteText("/tmp/connected", out);
    ::_exit(0);
  }
  int status = -1;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  return qrix::test::ReadText("/tmp/connected");
}

TEST(DatabaseTest, TheRoleFollowsTheIdentityAndTheIdsComeBack) {
  const struct {
    uid_t uid;
    gid_t gid;
    Via via;
    const char* want;
    int sections;  // ENTER and LEAVE lines of the switch
  } cases[] = {
      {990, 990, Via::kPersistent, "Haulport 990 990", 0},
      {0, 0, Via::kPersistent, "postgres 0 0", 0},
      {2002, 100, Via::kPersistent, "Haulport 2002 100", 2},
      {2002, 100, Via::kFresh, "Haulport 2002 100", 2},
      {990, 990, Via::kFreshSuperuser, "postgres 990 990", 2},
      {0, 0, Via::kFreshSuperuser, "postgres 0 0", 2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.want);
    SyslogCapture::Get().Clear();
    EXPECT_EQ(ConnectInChild(c.uid, c.gid, c.via), c.want);
    EXPECT_EQ(SyslogCapture::Get().Count("CriticalSection"), c.sections);
    EXPECT_FALSE(SyslogCapture::Get().Contains("ERROR"));
  }
}

std::string Backend(QRIXDBCONN* conn) {
  return Value(conn, "SELECT pg_backend_pid() AS pid", "pid");
}

TEST(DatabaseTest, ThePersistentConnectionOutlivesCloseUntilPClose) {
  QRIXDBCONN* first = DownloadDBPConnect();
  ASSERT_NE(first, nullptr);
  const std::string backend = Backend(first);
  DownloadDBClose(first);
  QRIXDBCONN* again = DownloadDBConnect();
  EXPECT_EQ(again, first);
  EXPECT_EQ(Backend(again), backend);
  DownloadDBPClose();
  QRIXDBCONN* fresh = DownloadDBPConnect();
  ASSERT_NE(fresh, nullptr);
  EXPECT_NE(Backend(fresh), backend);
}

// A process forked from a worker (the volume move, a request's callbacks) shares the socket of
// the worker's session: it works on a session of its own, and neither closing the inherited
// handle nor simply ending may end the worker's.
TEST(DatabaseTest, AForkedChildLeavesTheParentsSessionAlone) {
  QRIXDBCONN* parent = DownloadDBPConnect();
  ASSERT_NE(parent, nullptr);
  const std::string backend = Backend(parent);
  for (const bool close_inherited : {true, false}) {
    const pid_t child = ::fork();
    if (child == 0) {
      const bool refused = Backend(parent) == "(failed)";
      QRIXDBCONN* own = DownloadDBPConnect();
      const bool separate = own != nullptr && own != parent && Backend(own) != backend;
      DownloadDBPClose();
      if (close_inherited) {
        QRIXDBClose(parent);
      }
      std::exit(refused && separate ? 0 : 1);  // exit, not _exit: the process's end runs
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "closing the inherited handle: " << close_inherited;
    EXPECT_EQ(Backend(parent), backend) << "closing the inherited handle: " << close_inherited;
  }
  EXPECT_EQ(DownloadDBPConnect(), parent);
}

TEST(DatabaseTest, StatementsAnswerTheRowsTheyTouched) {
  PgsqlServer::Query(
      "DELETE FROM user_setting; INSERT INTO user_setting(username, uid) VALUES ('a', 1), ('b', "
      "2)");
  SyslogCapture::Get().Clear();
  EXPECT_EQ(DownloadDBExec("UPDATE user_setting SET uid = uid WHERE username = 'none'"), 0);
  EXPECT_EQ(DownloadDBExec("UPDATE user_setting SET uid = uid + 10"), 2);
  EXPECT_EQ(DownloadDBExecNonPersistent("DELETE FROM user_setting WHERE uid = 11", 0), 1);
  EXPECT_EQ(DownloadDBExecNonPersistent("SELECT 1", 1), 1);
  // One statement only: nothing rides along after a ";".
  EXPECT_EQ(DownloadDBExec("SELECT 1; DELETE FROM user_setting"), -1);
  EXPECT_EQ(DownloadDBExec("UPDATE no_such_table SET x = 1"), -1);
  EXPECT_EQ(DownloadDBExec(nullptr), -1);
  EXPECT_EQ(PgsqlServer::Query("SELECT username, uid FROM user_setting"), "b|12\n");
  EXPECT_TRUE(SyslogCapture::Get().Contains(
      "Failed to exec [UPDATE no_such_table SET x = 1] (ERROR:  relation \"no_such_table\" does "
      "not exist"));
  EXPECT_TRUE(SyslogCapture::Get().Contains("database (") &&
              SyslogCapture::Get().Contains(") Bad parameters."));
}

TEST(DatabaseTest, WithTheServerDownAFreshConnectTriesTwelveTimes) {
  DownloadDBPClose();
  PgsqlServer::Get().Stop();
  EXPECT_EQ(VLIBServiceIsRunning("pgsql"), 0);
  SyslogCapture::Get().Clear();
  g_sleeps.clear();
  g_take_sleeps = true;
  EXPECT_EQ(DownloadDBPConnect(), nullptr);  // one try, no sleep: all 12 are the fresh one's
  EXPECT_EQ(DownloadDBExec("SELECT 1"), -1);
  EXPECT_EQ(DownloadDBNonPConnect(0), nullptr);
  g_take_sleeps = false;
  ASSERT_EQ(g_sleeps.size(), 12u);
  for (size_t i = 0; i < g_sleeps.size(); ++i) {
    EXPECT_GE(g_sleeps[i], 3'000'000u);
    EXPECT_LE(g_sleeps[i], 6'000'000u);
    EXPECT_TRUE(SyslogCapture::Get().Contains("retryTimes=" + std::to_string(i) + " sleep " +
                                              std::to_string(g_sleeps[i]) + " usecond"));
  }
  EXPECT_TRUE(SyslogCapture::Get().Contains("Failed to connect: timeout"));
  EXPECT_TRUE(SyslogCapture::Get().Contains("Failed to connect to database"));
  ASSERT_TRUE(PgsqlServer::Get().Start());
  EXPECT_NE(DownloadDBPConnect(), nullptr);
  EXPECT_EQ(VLIBServiceIsRunning("pgsql"), 1);
}

}  // namespace
