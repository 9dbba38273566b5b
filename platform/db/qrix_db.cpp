#include "platform/db/qrix_db.h"

#include <libpq-fe.h>
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

// The persistent connections of this process. One inherited across fork belongs to the parent:
// finishing it here would end the parent's session on the shared socket, so it is let go.
struct Cache {
  std::vector<std::unique_ptr<QRIXDBConn>> entries;
  ~Cache() {
    for (auto& entry : entries) {
      if (entry->pid != ::getpid()) {
        static_cast<void>(entry->pg.release());
      }
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
  return conn.pid == ::getpid() && PQstatus(conn.pg.get()) == CONNECTION_OK;
}

}  // namespace

extern "C" {

QRIXDBCONN* QRIXDBPConnect(const char* host, const char* user, const char*, const char* database) {
  auto& entries = Persistent().entries;
  const std::string want_host = host != nullptr ? host : QRIX_DB_SOCKET_DIR;
  for (auto it = entries.begin(); it != entries.end(); ++it) {
    QRIXDBConn& c = **it;
    if (c.pid == ::getpid() && c.host == want_host && c.user == (user ? user : "") &&
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
  if (!conn->persistent) {
    delete conn;
    return;
  }
  auto& entries = Persistent().entries;
  std::erase_if(entries, [conn](const auto& entry) { return entry.get() == conn; });
}

int QRIXDBExecute(QRIXDBCONN* conn, const char* statement, QRIXDBRESULT** result) {
  if (result != nullptr) {
    *result = nullptr;
  }
  if (conn == nullptr || statement == nullptr) {
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
