#include "module/dlcommon/database.h"

#include <syslog.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <memory>

#include "module/dlcommon/critical_section.h"
#include "module/dlcommon/utilswithoutdb.h"

namespace {

constexpr const char* kSource = "database";
constexpr const char* kDatabase = "download";
constexpr const char* kPackageRole = "Haulport";
constexpr const char* kSuperuser = "postgres";
constexpr int kAttempts = 12;

using Connector = QRIXDBCONN* (*)(const char*, const char*, const char*, const char*);

QRIXDBCONN* ConnectAs(Connector connect, const char* role) {
  return connect(nullptr, role, nullptr, kDatabase);
}

// Peer authentication lets only the package identity use its role: take it for the connect,
// inside the root critical section that puts the caller's ids back.
QRIXDBCONN* ConnectWithPrivilege(Connector connect) {
  QRIXDL::RootCriticalSection section(kSource, __LINE__);
  QRIXDBCONN* conn = nullptr;
  if (section.Become(static_cast<uid_t>(GetPackageUID()), static_cast<gid_t>(GetPackageGID()),
                     __LINE__)) {
    conn = ConnectAs(connect, kPackageRole);
  } else {
    syslog(LOG_ERR, "%s:%d Failed to set privilege to Haulport.\n", kSource, __LINE__);
  }
  section.Leave(__LINE__);
  return conn;
}

QRIXDBCONN* ConnectAsSuperuser(Connector connect) {
  QRIXDL::RootCriticalSection section(kSource, __LINE__);
  QRIXDBCONN* conn = ConnectAs(connect, kSuperuser);
  section.Leave(__LINE__);
  return conn;
}

QRIXDBCONN* ConnectByIdentity(Connector connect) {
  const uid_t euid = ::geteuid();
  if (static_cast<int>(euid) == GetPackageUID()) {
    return ConnectAs(connect, kPackageRole);
  }
  if (euid == 0) {
    return ConnectAs(connect, kSuperuser);
  }
  return ConnectWithPrivilege(connect);
}

template <typename Deleter>
int Exec(const char* statement, std::unique_ptr<QRIXDBCONN, Deleter> conn) {
  if (conn == nullptr) {
    syslog(LOG_ERR, "%s (%d) Failed to connect to database", kSource, __LINE__);
    return -1;
  }
  QRIXDBRESULT* raw = nullptr;
  const int rc = QRIXDBExecute(conn.get(), statement, &raw);
  const QRIXDL::DBResult result(raw);
  if (rc == -1) {
    syslog(LOG_ERR, "%s (%d) Failed to exec [%s] (%s)", kSource, __LINE__, statement,
           QRIXDBErrorGet(conn.get()));
    return -1;
  }
  return QRIXDBAffectedRows(conn.get(), result.get());
}

struct NonPersistentDeleter {
  void operator()(QRIXDBCONN* conn) const { DownloadDBNonPClose(conn); }
};

}  // namespace

extern "C" {

QRIXDBCONN* DownloadDBPConnect(void) {
  return ConnectByIdentity(QRIXDBPConnect);
}

QRIXDBCONN* DownloadDBConnect(void) {
  return DownloadDBPConnect();
}

void DownloadDBClose(QRIXDBCONN*) {}

void DownloadDBPClose(void) {
  if (QRIXDBCONN* conn = DownloadDBPConnect()) {
    QRIXDBClose(conn);
  }
}

QRIXDBCONN* DownloadDBNonPConnect(int asSuperuser) {
  std::srand(static_cast<unsigned>(std::time(nullptr)));
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    QRIXDBCONN* conn =
        asSuperuser == 1 ? ConnectAsSuperuser(QRIXDBConnect) : ConnectByIdentity(QRIXDBConnect);
    if (conn != nullptr) {
      return conn;
    }
    const int pause = static_cast<int>((std::rand() / 2147483647.0 + 1.0) * 3000000);
    ::usleep(static_cast<useconds_t>(pause));
    syslog(LOG_ERR, "retryTimes=%d sleep %d usecond", attempt, pause);
  }
  syslog(LOG_ERR, "Failed to connect: timeout");
  return nullptr;
}

void DownloadDBNonPClose(QRIXDBCONN* conn) {
  if (conn != nullptr) {
    QRIXDBClose(conn);
  }
}

int DownloadDBExec(const char* statement) {
  if (statement == nullptr) {
    syslog(LOG_ERR, "%s (%d) Bad parameters.", kSource, __LINE__);
    return -1;
  }
  return Exec(statement, QRIXDL::PersistentDB(DownloadDBPConnect()));
}

int DownloadDBExecNonPersistent(const char* statement, int asSuperuser) {
  if (statement == nullptr) {
    syslog(LOG_ERR, "%s (%d) Bad parameters.", kSource, __LINE__);
    return -1;
  }
  return Exec(statement, std::unique_ptr<QRIXDBCONN, NonPersistentDeleter>(
                             DownloadDBNonPConnect(asSuperuser)));
}

}  // extern "C"
