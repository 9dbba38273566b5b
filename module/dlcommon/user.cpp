#include "module/dlcommon/user.h"

#include <syslog.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "module/dlcommon/database.h"
#include "platform/accounts/qrix_user.h"
#include "platform/vlibc/vlibc_error.h"

namespace {

constexpr const char* kSource = "user";
constexpr size_t kReserve = 128;
constexpr size_t kWatchReserve = 256;  // the watch statements are the longest
constexpr size_t kFolderBuffer = 4096;

// A zero-filled scratch buffer; null, after the log line, when memory runs out.
struct FreeDeleter {
  void operator()(char* p) const { std::free(p); }
};
using Scratch = std::unique_ptr<char, FreeDeleter>;

Scratch Alloc(size_t size) {
  Scratch buffer(static_cast<char*>(std::calloc(size, 1)));
  if (buffer == nullptr) {
    syslog(LOG_ERR, "%s (%d) Failed to malloc(%d)", kSource, __LINE__, static_cast<int>(size));
  }
  return buffer;
}

// `text` escaped for a string literal, in a buffer of twice its length plus one.
Scratch Escape(const char* text) {
  const size_t length = std::strlen(text);
  Scratch out = Alloc(2 * length + 1);
  if (out != nullptr) {
    QRIXDBEscapeString(out.get(), text, length);
  }
  return out;
}

// A statement in a buffer of `size` bytes; a longer one is cut.
__attribute__((format(printf, 2, 3))) Scratch Format(size_t size, const char* format, ...) {
  Scratch out = Alloc(size);
  if (out != nullptr) {
    va_list args;
    va_start(args, format);
    std::vsnprintf(out.get(), size, format, args);
    va_end(args);
  }
  return out;
}

bool Usable(const char* text) {
  return text != nullptr && text[0] != '\0';
}

int BadParameters(int line) {
  syslog(LOG_ERR, "%s (%d) Bad parameters.", kSource, line);
  return -1;
}

QRIXDL::PersistentDB Connect() {
  QRIXDL::PersistentDB db(DownloadDBPConnect());
  if (db == nullptr) {
    syslog(LOG_ERR, "%s (%d) Failed to connect to database", kSource, __LINE__);
  }
  return db;
}

// Runs `statement`, keeping its result when `result` is given. False, logged, on failure.
bool Run(QRIXDBCONN* db, const char* statement, QRIXDL::DBResult* result = nullptr) {
  QRIXDBRESULT* raw = nullptr;
  const int rc = QRIXDBExecute(db, statement, &raw);
  QRIXDL::DBResult owned(raw);
  if (rc == -1) {
    syslog(LOG_ERR, "%s (%d) Failed to exec [%s] (%s)", kSource, __LINE__, statement,
           QRIXDBErrorGet(db));
    return false;
  }
  if (result != nullptr) {
    *result = std::move(owned);
  }
  return true;
}

struct UserDeleter {
  void operator()(QRIXUSER* user) const { QRIXUserFree(user); }
};
using UserRecord = std::unique_ptr<QRIXUSER, UserDeleter>;

UserRecord GetUser(const char* name) {
  QRIXUSER* raw = nullptr;
  if (QRIXUserGet(name, &raw) != 0) {
    syslog(LOG_ERR, "%s:%d Failed to get user [%s][0x%04X %s:%d]", kSource, __LINE__, name,
           VLIBCErrGet(), VLIBCErrorGetFile(), VLIBCErrorGetLine());
    return nullptr;
  }
  return UserRecord(raw);
}

const char* Flag(int on) {
  return on != 0 ? "t" : "f";
}
bool IsTrue(const char* value) {
  return value != nullptr && value[0] == 't';
}

// Copies `value` into the caller's buffer, zeroed first and cut to size - 1.
void CopyOut(const char* value, char* buf, int size) {
  std::memset(buf, 0, static_cast<size_t>(size));
  std::strncpy(buf, value, static_cast<size_t>(size) - 1);
}

// The one row of `username` for a select statement: -1 on failure, 0 without a row (or when it
// cannot be fetched, logged with `what`), 1 with the row in `row`.
int SelectUserRow(const char* format, const char* username, const char* what,
                  QRIXDL::DBResult* result, QRIXDBROW* row) {
  const QRIXDL::PersistentDB db = Connect();
  if (db == nullptr) {
    return -1;
  }
  const Scratch name = Escape(username);
  const Scratch statement =
      name ? Format(std::strlen(name.get()) + kReserve, format, name.get()) : nullptr;
  if (statement == nullptr || !Run(db.get(), statement.get(), result)) {
    return -1;
  }
  if (QRIXDBNumRows(result->get()) == 0) {
    return 0;
  }
  if (QRIXDBFetchRow(result->get(), row) == -1) {
    syslog(LOG_ERR, "%s (%d) Failed to get %s setting for user [%s]", kSource, __LINE__, what,
           username);
    return 0;
  }
  return 1;
}

}  // namespace

extern "C" {

int DownloadUserShareSet(const char* username, const char* shareFolder) {
  if (!Usable(username) || !Usable(shareFolder)) {
    return BadParameters(__LINE__);
  }
  const UserRecord user = GetUser(username);
  if (user == nullptr) {
    return -1;
  }
  const QRIXDL::PersistentDB db = Connect();
  if (db == nullptr) {
    return -1;
  }
  const Scratch name = Escape(username);
  const Scratch folder = Escape(shareFolder);
  if (name == nullptr || folder == nullptr) {
    return -1;
  }
  const size_t size = std::strlen(name.get()) + std::strlen(folder.get()) + kReserve;
  const Scratch select = Format(
      size, "SELECT share_folder FROM user_setting WHERE lower(username)=lower('%s')", name.get());
  QRIXDL::DBResult found;
  if (select == nullptr || !Run(db.get(), select.get(), &found)) {
    return -1;
  }
  const Scratch write =
      QRIXDBNumRows(found.get()) == 0
          ? Format(size,
                   "INSERT INTO user_setting(username, uid, share_folder, user_disabled) "
                   "VALUES('%s', %d, '%s', 'f')",
                   name.get(), static_cast<int>(user->uid), folder.get())
          : Format(size,
                   "UPDATE user_setting set share_folder='%s' WHERE lower(username)=lower('%s')",
                   folder.get(), name.get());
  return write != nullptr && Run(db.get(), write.get()) ? 0 : -1;
}

int DownloadUserShareGet(const char* username, char* buf, int size) {
  if (!Usable(username) || buf == nullptr || size <= 0) {
    return BadParameters(__LINE__);
  }
  QRIXDL::DBResult result;
  QRIXDBROW row = 0;
  const int found = SelectUserRow(
      "SELECT share_folder, user_disabled FROM user_setting WHERE lower(username)=lower('%s')",
      username, "share_folder", &result, &row);
  const char* folder = found == 1 ? QRIXDBFetchField(result.get(), row, "share_folder") : nullptr;
  if (folder == nullptr) {
    if (found == -1) {
      return -1;
    }
    std::memset(buf, 0, static_cast<size_t>(size));
    return 0;
  }
  CopyOut(folder, buf, size);
  return IsTrue(QRIXDBFetchField(result.get(), row, "user_disabled")) ? 2 : 1;
}

int DownloadUserWatchInfoGet(const char* username, int* enableWatch, int* deleteWatched, char* buf,
                             int size) {
  if (!Usable(username) || buf == nullptr || size <= 0) {
    return BadParameters(__LINE__);
  }
  QRIXDL::DBResult result;
  QRIXDBROW row = 0;
  const int found = SelectUserRow(
      "SELECT enable_watchffolder, delete_watchtorrent, watchfolder FROM user_setting WHERE "
      "lower(username)=lower('%s')",
      username, "watchfolder", &result, &row);
  const char* folder = found == 1 ? QRIXDBFetchField(result.get(), row, "watchfolder") : nullptr;
  if (folder == nullptr) {
    if (found == -1) {
      return -1;
    }
    std::memset(buf, 0, static_cast<size_t>(size));
    return 0;
  }
  CopyOut(folder, buf, size);
  // Only ever 1: the caller's zeros stand for "off".
  if (enableWatch != nullptr &&
      IsTrue(QRIXDBFetchField(result.get(), row, "enable_watchffolder"))) {
    *enableWatch = 1;
  }
  if (deleteWatched != nullptr &&
      IsTrue(QRIXDBFetchField(result.get(), row, "delete_watchtorrent"))) {
    *deleteWatched = 1;
  }
  return 1;
}

int DownloadUserWatchInfoSet(const char* username, int enableWatch, int deleteWatched,
                             const char* folder) {
  if (!Usable(username) || (enableWatch != 0 && !Usable(folder))) {
    return BadParameters(__LINE__);
  }
  const UserRecord user = GetUser(username);
  if (user == nullptr) {
    return -1;
  }
  const QRIXDL::PersistentDB db = Connect();
  if (db == nullptr) {
    return -1;
  }
  const Scratch name = Escape(username);
  const Scratch watch = enableWatch != 0 ? Escape(folder) : nullptr;
  if (name == nullptr || (enableWatch != 0 && watch == nullptr)) {
    return -1;
  }
  const size_t size =
      std::strlen(name.get()) + (watch ? std::strlen(watch.get()) : 0) + kWatchReserve;
  const Scratch select = Format(
      size, "SELECT share_folder FROM user_setting WHERE lower(username)=lower('%s')", name.get());
  QRIXDL::DBResult found;
  if (select == nullptr || !Run(db.get(), select.get(), &found)) {
    return -1;
  }
  Scratch write;
  if (QRIXDBNumRows(found.get()) == 0) {
    // Switched off, there is no folder text: the row stores what formatting a null text gives,
    // "(null)", which the package's other programs expect.
    write = Format(size,
                   "INSERT INTO user_setting(username, uid, share_folder, user_disabled, "
                   "enable_watchffolder, delete_watchtorrent, watchfolder) VALUES('%s', %d, '', "
                   "'f', '%s', '%s', '%s')",
                   name.get(), static_cast<int>(user->uid), Flag(enableWatch), Flag(deleteWatched),
                   watch ? watch.get() : "(null)");
  } else if (enableWatch != 0) {
    write = Format(size,
                   "UPDATE user_setting set enable_watchffolder='%s', delete_watchtorrent='%s', "
                   "watchfolder='%s' WHERE lower(username)=lower('%s')",
                   Flag(1), Flag(deleteWatched), watch.get(), name.get());
  } else {
    write = Format(size,
                   "UPDATE user_setting set enable_watchffolder='%s' WHERE "
                   "lower(username)=lower('%s')",
                   Flag(0), name.get());
  }
  return write != nullptr && Run(db.get(), write.get()) ? 0 : -1;
}

int DownloadCheckWatchfolder(const char* username, const char* folder) {
  if (!Usable(username) || folder == nullptr) {
    return BadParameters(__LINE__);
  }
  const QRIXDL::PersistentDB db = Connect();
  if (db == nullptr) {
    return -1;
  }
  const Scratch name = Escape(username);
  const Scratch statement =
      name ? Format(std::strlen(name.get()) + kReserve,
                    "SELECT watchfolder FROM user_setting WHERE enable_watchffolder='t' and "
                    "user_disabled='f' and lower(username)!=lower('%s')",
                    name.get())
           : nullptr;
  QRIXDL::DBResult result;
  if (statement == nullptr || !Run(db.get(), statement.get(), &result)) {
    return -1;
  }
  char other[kFolderBuffer];
  QRIXDBROW row = 0;
  while (QRIXDBFetchRow(result.get(), &row) == 0) {
    const char* value = QRIXDBFetchField(result.get(), row, "watchfolder");
    CopyOut(value != nullptr ? value : "", other, sizeof other);
    if (std::strcmp(other, folder) == 0) {
      return 0;
    }
  }
  return 1;
}

int DownloadUserDisable(const char* username, int disable) {
  if (!Usable(username)) {
    return BadParameters(__LINE__);
  }
  // Escaping follows the server's settings, which only a connection knows.
  const QRIXDL::PersistentDB db(DownloadDBPConnect());
  const Scratch name = Escape(username);
  if (name == nullptr) {
    return -1;
  }
  const size_t size = std::strlen(name.get()) + kReserve;
  const Scratch statement =
      disable != 0 ? Format(size,
                            "UPDATE user_setting SET user_disabled='t', enable_watchffolder='f' "
                            "WHERE lower(username)=lower('%s')",
                            name.get())
                   : Format(size,
                            "UPDATE user_setting SET user_disabled='f' WHERE "
                            "lower(username)=lower('%s')",
                            name.get());
  if (statement == nullptr) {
    return -1;
  }
  if (DownloadDBExec(statement.get()) < 0) {
    syslog(LOG_ERR, "%s (%d) Failed to exec [%s]", kSource, __LINE__, statement.get());
    return -1;
  }
  return 0;
}

}  // extern "C"
