#include "platform/db/qrix_db.h"

#include <libpq-fe.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "platform/vlibc/vlibc_error.h"

namespace {

struct PgConnDeleter {
  void operator()(PGconn* conn) const { PQfinish(conn); }
};
struct PgResultDeleter {
  void operator()(PGresult* result) const { PQclear(result); }
};
using PgConn = std::unique_ptr<PGconn, PgConnDeleter>;
using PgResult = std::unique_ptr<PGresult, PgResultDeleter>;

// libpq's messages end with a newline; log lines must not.
std::string Chomp(const char* text) {
  std::string s = text != nullptr ? text : "";
  while (!s.empty() && (s.back() == '\n' || s.back() == ' ')) {
    s.pop_back();
  }
  return s;
}

}  // namespace

struct QRIXDBConn {
  PgConn pg;
  std::string host, user, database;
  pid_t pid = ::getpid();
  bool persistent = false;
  std::string error;
};

struct QRIXDBResult {
  PgResult pg;
  int next_row = 0;
};

namespace {

bool Inherited(const QRIXDBConn& conn) {
  return conn.pid != ::getpid();
}

// Lets go of a connection inherited across fork. It is the parent's session, on a socket both
// processes hold: no goodbye may go out on it. An unconnected socket takes the place of this
// process's descriptor, so libpq's goodbye and close go there. Should that swap fail, the
// connection is left alone rather than risk the parent's session.
void LetGo(PGconn* pg) {
  const int fd = PQsocket(pg);
  if (fd >= 0) {
    const int dead = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool swapped = dead >= 0 && ::dup2(dead, fd) == fd;
    if (dead >= 0) {
      ::close(dead);
    }
    if (!swapped) {
      return;
    }
  }
  PQfinish(pg);
}

// Ends a connection: one of this process's own with a goodbye (its deleter), an inherited one
// without.
void Finish(std::unique_ptr<QRIXDBConn> conn) {
  if (conn != nullptr && Inherited(*conn)) {
    LetGo(conn->pg.release());
  }
}

// The persistent connections of this process, and those inherited from the processes it was
// forked from, which stay here unused until they are closed or the process ends.
struct Cache {
  std::vector<std::unique_ptr<QRIXDBConn>> entries;
  ~Cache() {
    for (auto& entry : entries) {
      Finish(std::move(entry));
    }
  }
};

Cache& Persistent() {
  static Cache cache;
  return cache;
}

QRIXDBCONN* g_last = nullptr;  // the connection escaping follows
std::string g_connect_error;   // why the last connect failed

std::unique_ptr<QRIXDBConn> Open(const char* host, const char* user, const char* database) {
  const char* const keys[] = {"host", "user", "dbname", "client_encoding", nullptr};
  const char* const values[] = {host != nullptr ? host : QRIX_DB_SOCKET_DIR, user, database, "UTF8",
                                nullptr};
  PgConn pg(PQconnectdbParams(keys, values, 0));
  if (pg == nullptr || PQstatus(pg.get()) != CONNECTION_OK) {
    g_connect_error = pg != nullptr ? Chomp(PQerrorMessage(pg.get())) : "out of memory";
    VLIBCErrSet(ERR_NOT_FOUND);
    return nullptr;
  }
  auto conn = std::make_unique<QRIXDBConn>();
  conn->pg = std::move(pg);
  conn->host = values[0];
  conn->user = user != nullptr ? user : "";
  conn->database = database != nullptr ? database : "";
  return conn;
}

bool Live(const QRIXDBConn& conn) {
  return !Inherited(conn) && PQstatus(conn.pg.get()) == CONNECTION_OK;
}

}  // namespace

extern "C" {

QRIXDBCONN* QRIXDBPConnect(const char* host, const char* user, const char*, const char* database) {
  auto& entries = Persistent().entries;
  const std::string want_host = host != nullptr ? host : QRIX_DB_SOCKET_DIR;
  for (auto it = entries.begin(); it != entries.end(); ++it) {
    QRIXDBConn& c = **it;
    if (!Inherited(c) && c.host == want_host && c.user == (user ? user : "") &&
        c.database == (database ? database : "")) {
      if (Live(c)) {
        return g_last = &c;
      }
      entries.erase(it);  // the server went away: start over
      break;
    }
  }
  std::unique_ptr<QRIXDBConn> conn = Open(host, user, database);
  if (conn == nullptr) {
    return nullptr;
  }
  conn->persistent = true;
  entries.push_back(std::move(conn));
  return g_last = entries.back().get();
}

QRIXDBCONN* QRIXDBConnect(const char* host, const char* user, const char*, const char* database) {
  std::unique_ptr<QRIXDBConn> conn = Open(host, user, database);
  return conn != nullptr ? (g_last = conn.release()) : nullptr;
}

void QRIXDBClose(QRIXDBCONN* conn) {
  if (conn == nullptr) {
    return;
  }
  if (g_last == conn) {
    g_last = nullptr;
  }
  std::unique_ptr<QRIXDBConn> owned;
  auto& entries = Persistent().entries;
  if (!conn->persistent) {
    owned.reset(conn);
  } else if (const auto it = std::find_if(entries.begin(), entries.end(),
                                          [conn](const auto& e) { return e.get() == conn; });
             it != entries.end()) {
    owned = std::move(*it);
    entries.erase(it);
  }
  Finish(std::move(owned));
}

int QRIXDBExecute(QRIXDBCONN* conn, const char* statement, QRIXDBRESULT** result) {
  if (result != nullptr) {
    *result = nullptr;
  }
  if (conn == nullptr || statement == nullptr) {
    VLIBCErrSet(ERR_BAD_PARAMETERS);
    return -1;
  }
  if (Inherited(*conn)) {
    conn->error = "the connection belongs to the process this one was forked from";
    VLIBCErrSet(ERR_BAD_PARAMETERS);
    return -1;
  }
  // The extended protocol runs exactly one statement: an injected "; ..." cannot add another.
  PgResult pg(PQexecParams(conn->pg.get(), statement, 0, nullptr, nullptr, nullptr, nullptr, 0));
  const ExecStatusType status = pg != nullptr ? PQresultStatus(pg.get()) : PGRES_FATAL_ERROR;
  const bool ok = status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK;
  conn->error = ok ? "" : Chomp(PQerrorMessage(conn->pg.get()));
  if (result != nullptr && pg != nullptr) {
    *result = new QRIXDBResult{std::move(pg)};
  }
  return ok ? 0 : -1;
}

int QRIXDBAffectedRows(QRIXDBCONN*, QRIXDBRESULT* result) {
  return result != nullptr ? std::atoi(PQcmdTuples(result->pg.get())) : 0;
}

int QRIXDBNumRows(QRIXDBRESULT* result) {
  return result != nullptr ? PQntuples(result->pg.get()) : 0;
}

int QRIXDBFetchRow(QRIXDBRESULT* result, QRIXDBROW* row) {
  if (result == nullptr || row == nullptr || result->next_row >= PQntuples(result->pg.get())) {
    return -1;
  }
  *row = result->next_row++;
  return 0;
}

const char* QRIXDBFetchField(QRIXDBRESULT* result, QRIXDBROW row, const char* column) {
  if (result == nullptr || column == nullptr || row < 0 || row >= PQntuples(result->pg.get())) {
    return nullptr;
  }
  const int field = PQfnumber(result->pg.get(), column);
  if (field < 0 || PQgetisnull(result->pg.get(), row, field)) {
    return nullptr;
  }
  return PQgetvalue(result->pg.get(), row, field);
}

void QRIXDBFreeResult(QRIXDBRESULT* result) {
  delete result;
}

const char* QRIXDBErrorGet(QRIXDBCONN* conn) {
  return conn != nullptr ? conn->error.c_str() : g_connect_error.c_str();
}

size_t QRIXDBEscapeString(char* to, const char* from, size_t length) {
  if (to == nullptr) {
    VLIBCErrSet(ERR_BAD_PARAMETERS);
    return 0;
  }
  to[0] = '\0';
  if (from == nullptr || g_last == nullptr || !Live(*g_last)) {
    VLIBCErrSet(from == nullptr ? ERR_BAD_PARAMETERS : ERR_NOT_FOUND);
    return 0;
  }
  int error = 0;
  return PQescapeStringConn(g_last->pg.get(), to, from, length, &error);
}

}  // extern "C"
